// The walk over the cells of a set: which of them a level crosses, and the numbers of their new nodes.
//
// A walk takes a range of cells in the runs between two status checks. Each run is read twice. A first loop
// reads nothing but the connect rows and the flags of nodes; it keeps the few mixed cells with their keys, and
// as bits the cells that are kept whole, without a branch on what the flags hold. The second one goes through
// both in the order of the cells, looks up the rows of the mixed ones, numbers their edges and hands
// everything to a sink.
//
// What may differ is an argument. A policy of cases says which corner stands at which bit of a key, what a key
// means and which row of edges it has. The table is any that edge_tbl.hpp has functions for. A sink has
//
//     static constexpr bool checks_status   whether the walk looks for an interruption
//     static constexpr bool takes_whole     whether whole cells are of interest
//     walk_end take(cell, corners, row, number)        a mixed cell: its nodes, its row, its new nodes
//     walk_end take_whole(first, corners, ncells)      consecutive whole cells
//
// and what either gives other than walk_end::complete ends the walk. Cell numbers are those within the set.
// A walk reports nothing.
#pragma once

#include "edge_tbl.hpp"
#include "rows.hpp"
#include "simd.hpp"
#include "status.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

enum class walk_end {
    complete,
    no_rows,  // the set's connect list could not be fetched, which has been reported
    no_list,  // a first list could not be had
    no_edges, // a table or a list could not grow
    no_connect,
    no_map,
    interrupted
};

// Cells first to end - 1 of a set.
struct cell_range {
    int set;
    qx_long first, end;
};

// What is read of a set.
struct cell_rows {
    const qx_long *connect; // rows of the set's cells, nnodes entries each
    int nnodes;
    const unsigned char *flags; // a byte a node, of a meaning that the cases know
    bool nulls;                 // cells with a null node are left out
    int flip;                   // what keys are xor'ed with where whole cells are of interest
    qx_long mesh_nodes;
};

// ---- a run of cells --------------------------------------------------------------------------------------

// Where a mixed cell stands in its run, and its key, in a word: the loop over all cells writes one for each, and
// is bound by what it writes.
class mixed_cell {
  public:
    mixed_cell() = default;
    mixed_cell(int in_run, int key) : word(static_cast<uint32_t>(in_run) << 16 | static_cast<uint32_t>(key))
    {
    }
    int in_run() const { return static_cast<int>(word >> 16); }
    int key() const { return static_cast<int>(word & 0xffff); }

  private:
    uint32_t word;
};
static_assert(items_between_checks < 1 << 16, "a place in a run has 16 bits");

// A run's mixed cells in order, and a bit for each whole one.
struct sorted_run {
    int nmixed;
    mixed_cell mixed[items_between_checks];
    uint64_t whole[(items_between_checks + 63) / 64];
};

// How far ahead a connect list is asked for where cells are scattered: their flags come late, so the processor
// does not get to read the list ahead by itself.
constexpr qx_long entries_ahead = 512;

// Nulls: flags may hold the null mark. Whole: bits are wanted.
template <typename Cases, bool Nulls, bool Whole>
void sort_cells(const cell_rows &rows, qx_long first, qx_long ncells, bool scattered, sorted_run *run)
{
    const unsigned char *const flags = rows.flags;
    const int nnodes = rows.nnodes, flip = rows.flip;
    const qx_long *nodes = rows.connect + first * nnodes;
    mixed_cell *mixed = run->mixed;
    if (Whole) memset(run->whole, 0, sizeof run->whole);
    for (int cell = 0; cell < ncells; ++cell, nodes += nnodes) {
        if (scattered) ask_for_row(nodes, sizeof(qx_long), entries_ahead);
        int key = 0, seen = 0;
        for (int bit = Cases::ncorners - 1; bit >= 0; --bit) {
            const int flag = flags[nodes[Cases::corner_of_bit[bit]]];
            key = 2 * key + Cases::bits_of(flag);
            seen |= flag;
        }
        if (Nulls)
            for (int node = Cases::ncorners; node < nnodes; ++node)
                seen |= flags[nodes[node]];
        const bool taken = !(Nulls && (seen & Cases::null_mark) != 0);
        if (Whole) key ^= flip;
        // Written always and counted if it is to stay: most cells are not mixed, but no predictor knows which
        // ones.
        *mixed = mixed_cell(cell, key);
        mixed += Cases::is_mixed(key) & taken;
        if (Whole) run->whole[cell / 64] |= static_cast<uint64_t>(Cases::is_whole(key) & taken) << cell % 64;
    }
    run->nmixed = static_cast<int>(mixed - run->mixed);
}

// The first stretch of set bits from begin on and before end, where there is one.
inline bool next_stretch(const uint64_t *bits, int begin, int end, int *first, int *behind)
{
    const auto seek = [bits, end](int at, uint64_t flip) {
        while (at < end) {
            const uint64_t word = (bits[at / 64] ^ flip) >> at % 64;
            if (word != 0) return std::min(at + __builtin_ctzll(word), end);
            at += 64 - at % 64;
        }
        return end;
    };
    *first = seek(begin, 0);
    if (*first == end) return false;
    *behind = seek(*first, ~uint64_t{0});
    return true;
}

// ---- edges -----------------------------------------------------------------------------------------------

// Mixed cells whose edges are asked for together.
constexpr int batch_cells = 16;

// The most edges of a cell that a row names.
constexpr int most_row_edges = 12;

// Whether cells are mostly far, by node number, from the ones before them in the list: told by a sample. Where
// neighbours in the list are neighbours in the mesh the caches hold the edges that a cell comes to, and asking
// for them would only cost.
inline bool are_scattered(const qx_long *nodes, qx_long ncells, int nnodes, qx_long mesh_nodes)
{
    constexpr qx_long sample = 64;
    const qx_long far = mesh_nodes / 16, stride = std::max<qx_long>(ncells / sample, 1);
    int nseen = 0, nfar = 0;
    for (qx_long cell = 1; cell < ncells; cell += stride, ++nseen) {
        const qx_long *row = nodes + cell * nnodes;
        nfar += std::abs(row[0] - row[-nnodes]) > far;
    }
    return 2 * nfar > nseen;
}

// Asks for the table's entries that a batch comes to: the buckets, then the newest edges in them. In line by
// force: a compiler may find that the function has no result and leave out the call.
template <typename Cases, typename Table>
FORCE_INLINE void ask_for_edges(const qx_long *run, int nnodes, const mixed_cell *mixed, int ncells,
                                const Table *table)
{
    const int *bucket[batch_cells * most_row_edges];
    int nbuckets = 0;
    for (int i = 0; i < ncells; ++i) {
        const qx_long *corners = run + static_cast<qx_long>(mixed[i].in_run()) * nnodes;
        const auto &row = Cases::row(mixed[i].key());
        for (int p = 0; p < row.npoints; ++p) {
            bucket[nbuckets] = &table->head[std::min(corners[row.left[p]], corners[row.right[p]])];
            __builtin_prefetch(bucket[nbuckets++], 1);
        }
    }
    for (int b = 0; b < nbuckets; ++b) {
        ask_for_row(table->max_list, sizeof(qx_long), *bucket[b] - 1);
        ask_for_row(table->next, sizeof(int), *bucket[b]);
    }
}

// The new nodes of a row's edges. False: the table could not grow.
template <typename Row>
FORCE_INLINE bool number_edges(edge_table *table, const qx_long *corners, const Row &row, int *number)
{
    for (int p = 0; p < row.npoints; ++p) {
        number[p] = find_or_add_edge(table, corners[row.left[p]], corners[row.right[p]]);
        if (number[p] < 0) return false;
    }
    return true;
}

// ---- the walk --------------------------------------------------------------------------------------------

// The whole cells of a run from begin to end - 1.
template <typename Sink>
walk_end hand_over_whole(const cell_rows &rows, qx_long first, const sorted_run &sorted, int begin, int end,
                         Sink *sink)
{
    int stretch, behind;
    for (; next_stretch(sorted.whole, begin, end, &stretch, &behind); begin = behind) {
        const walk_end result = sink->take_whole(
            first + stretch, rows.connect + (first + stretch) * rows.nnodes, behind - stretch);
        if (result != walk_end::complete) return result;
    }
    return walk_end::complete;
}

template <typename Cases, typename Table, typename Sink>
walk_end hand_over(const cell_rows &rows, qx_long first, int ncells, const sorted_run &sorted, bool scattered,
                   Table *table, Sink *sink)
{
    const qx_long *run = rows.connect + first * rows.nnodes;
    walk_end end = walk_end::complete;
    int done = 0;
    for (int i = 0; i < sorted.nmixed; ++i) {
        if (scattered && i % batch_cells == 0)
            ask_for_edges<Cases>(run, rows.nnodes, sorted.mixed + i, std::min(batch_cells, sorted.nmixed - i),
                                 table);
        const mixed_cell cell = sorted.mixed[i];
        if (Sink::takes_whole) {
            end = hand_over_whole(rows, first, sorted, done, cell.in_run(), sink);
            if (end != walk_end::complete) return end;
            done = cell.in_run() + 1;
        }
        const qx_long *corners = run + static_cast<qx_long>(cell.in_run()) * rows.nnodes;
        const auto &row = Cases::row(cell.key());
        int number[most_row_edges];
        if (!number_edges(table, corners, row, number)) return walk_end::no_edges;
        end = sink->take(first + cell.in_run(), corners, row, number);
        if (end != walk_end::complete) return end;
    }
    if (Sink::takes_whole) end = hand_over_whole(rows, first, sorted, done, ncells, sink);
    return end;
}

template <typename Cases, typename Table, typename Sink>
walk_end walk_cells(const cell_rows &rows, const cell_range &range, Table *table, Sink *sink)
{
    const qx_long ncells = range.end - range.first;
    const float percent = static_cast<float>(100.0 / static_cast<double>(ncells));
    const bool scattered =
        are_scattered(rows.connect + range.first * rows.nnodes, ncells, rows.nnodes, rows.mesh_nodes);
    for (qx_long done = 0, next; done < ncells; done = next) {
        if (Sink::checks_status && done > 0 &&
            interrupted(static_cast<int>(static_cast<float>(done) * percent)))
            return walk_end::interrupted;
        next = next_status_check(done, ncells);
        sorted_run sorted;
        const qx_long first = range.first + done;
        if (rows.nulls)
            sort_cells<Cases, true, Sink::takes_whole>(rows, first, next - done, scattered, &sorted);
        else
            sort_cells<Cases, false, Sink::takes_whole>(rows, first, next - done, scattered, &sorted);
        const walk_end end =
            hand_over<Cases>(rows, first, static_cast<int>(next - done), sorted, scattered, table, sink);
        if (end != walk_end::complete) return end;
    }
    return walk_end::complete;
}
