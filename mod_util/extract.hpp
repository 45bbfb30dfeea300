// Level surfaces and lines over cell sets: the walk over one set, and the road of a whole mesh.
//
// A walk takes its cells in the runs between two status checks. A first loop reads nothing but the connect
// list and the node flags and keeps the few crossed cells with their case index, without a branch on what
// the flags hold; a second one looks up the cases, registers the edges and appends the primitives. Walks
// differ in the cell kind, a policy of cases.hpp or isoline_cases.hpp, and in what is made of a case and how
// lists grow, a policy of the operation.
#pragma once

#include "edge_tbl.hpp"
#include "fetch.hpp"
#include "grow.hpp"
#include "memory.hpp"
#include "rows.hpp"
#include "simd.hpp"
#include "status.hpp"

#include <skoklana/iso.h>

// What a walk reads and writes.
struct set_walk {
    mesh_info *mesh;
    int set;
    int null_flag;
    const unsigned char *flags; // a byte a node: 0 below, 1 at or above the level, 2 null
    edge_table *table;
    qx_long **connect;  // new nodes of the primitives, appended to; null or a capacity of 0: begun anew
    qx_long *used;      // entries in use
    qx_long *capacity;  // entries there is room for
    qx_long **cell_map; // null, or holding null: not wanted; otherwise a list of the first capacity
    qx_long made = 0;   // out: primitives
};

// Every end but the first and the last has been reported.
enum class walk_end {
    complete,
    not_begun, // no connect list, or no memory for the first list
    failed,
    interrupted
};

using walk_func = walk_end (*)(set_walk &walk);

struct crossed_cell {
    int in_run;
    int index;
};

constexpr qx_long first_run = 256; // cells before the first status check
constexpr qx_long later_run = 257;

// How far ahead a connect list is asked for where cells are scattered: their flags come late, so the processor
// does not get to read the list ahead by itself.
constexpr qx_long entries_ahead = 512;

// The cells of a run that the level crosses, and none that has a null node. Nulls: flags may hold 2.
template <typename Cases, bool Nulls>
int find_crossed(const qx_long *nodes, qx_long ncells, int nnodes, const unsigned char *flags, bool scattered,
                 crossed_cell *crossed)
{
    int ncrossed = 0;
    for (int cell = 0; cell < ncells; ++cell, nodes += nnodes) {
        if (scattered) ask_for_row(nodes, sizeof(qx_long), entries_ahead);
        int index = 0, seen = 0;
        for (int bit = Cases::ncorners - 1; bit >= 0; --bit) {
            const int flag = flags[nodes[Cases::corner_of_bit[bit]]];
            index = 2 * index + flag;
            seen |= flag;
        }
        if (Nulls)
            for (int node = Cases::ncorners; node < nnodes; ++node)
                seen |= flags[nodes[node]];
        // Written always and counted if it is to stay: most cells are not crossed, but no predictor knows
        // which ones.
        crossed[ncrossed] = {cell, index};
        const bool mixed = static_cast<unsigned>(index - 1) < static_cast<unsigned>(Cases::last_case - 1);
        ncrossed += mixed & !(Nulls && (seen & 2) != 0);
    }
    return ncrossed;
}

// Crossed cells whose edges are asked for together.
constexpr int batch_cells = 16;

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

// Asks for the edge table's entries that a batch comes to: the buckets, then the newest edges in them. In line
// by force: a compiler may find that the function has no result and leave out the call.
template <typename Cases>
FORCE_INLINE void ask_for_edges(const qx_long *run, int nnodes, const crossed_cell *crossed, int ncells,
                                const edge_table *table)
{
    const int *bucket[batch_cells * 12];
    int nbuckets = 0;
    for (int i = 0; i < ncells; ++i) {
        const qx_long *corners = run + static_cast<qx_long>(crossed[i].in_run) * nnodes;
        const auto &row = Cases::row(crossed[i].index);
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

template <typename Rules> bool begin_list(set_walk &walk)
{
    if (*walk.capacity != 0 && *walk.connect != nullptr) return true;
    if (*walk.connect != nullptr) ARRfree_f(*walk.connect, ALLOC_AT("extract"));
    *walk.capacity = Rules::first_capacity;
    *walk.used = 0;
    *walk.connect = alloc_numbers(Rules::first_capacity, ALLOC_AT("extract"));
    if (*walk.connect != nullptr) return true;
    *walk.capacity = 0;
    report_error(Rules::connect_module, "alloc for connect list failed");
    return false;
}

template <typename Cases, typename Rules> walk_end walk_set(set_walk &walk)
{
    mesh_info *mesh = walk.mesh;
    if (!fetch_connect(mesh, walk.set) || !begin_list<Rules>(walk)) return walk_end::not_begun;

    const qx_long *nodes = mesh->cell_connect[walk.set];
    const qx_long ncells = mesh->cell_count[walk.set];
    const int nnodes = mesh->cell_nnodes[walk.set];
    const float percent = static_cast<float>(100.0 / static_cast<double>(ncells));
    const bool scattered = are_scattered(nodes, ncells, nnodes, walk.table->size);
    qx_long *map = walk.cell_map != nullptr ? *walk.cell_map : nullptr;
    qx_long connect_step = Rules::first_capacity;
    qx_long map_capacity = Rules::first_capacity, map_step = Rules::first_capacity;

    for (qx_long first = 0, last; first < ncells; first = last) {
        if (Rules::checks_status && first > 0 &&
            interrupted(static_cast<int>(static_cast<float>(first) * percent)))
            return walk_end::interrupted;
        last = std::min(ncells, first + (first == 0 ? first_run : later_run));

        crossed_cell crossed[later_run];
        const qx_long *run = nodes + first * nnodes;
        const int ncrossed =
            walk.null_flag != 0
                ? find_crossed<Cases, true>(run, last - first, nnodes, walk.flags, scattered, crossed)
                : find_crossed<Cases, false>(run, last - first, nnodes, walk.flags, scattered, crossed);

        for (int i = 0; i < ncrossed; ++i) {
            if (scattered && i % batch_cells == 0)
                ask_for_edges<Cases>(run, nnodes, crossed + i, std::min(batch_cells, ncrossed - i),
                                     walk.table);
            const qx_long *corners = run + static_cast<qx_long>(crossed[i].in_run) * nnodes;
            const auto &row = Cases::row(crossed[i].index);
            int number[12];
            for (int p = 0; p < row.npoints; ++p) {
                number[p] = find_or_add_edge(walk.table, corners[row.left[p]], corners[row.right[p]]);
                if (number[p] < 0) {
                    report_error(Rules::connect_module, "realloc for edge table failed");
                    return walk_end::failed;
                }
            }
            const int nprimitives = Rules::count(row);
            Rules::append(row, number, *walk.connect + *walk.used);
            *walk.used += nprimitives * Rules::nodes_each;

            if (map != nullptr) {
                if (!make_room(walk.cell_map, walk.made, nprimitives,
                               {&map_capacity, &map_step, Rules::raises_step}, ALLOC_AT("extract"))) {
                    report_error(Rules::map_module, "realloc for cell list failed");
                    return walk_end::failed;
                }
                map = *walk.cell_map;
                for (int m = 0; m < nprimitives; ++m)
                    map[walk.made + m] = first + crossed[i].in_run;
            }
            walk.made += nprimitives;
            if (!make_room(walk.connect, *walk.used, Rules::margin,
                           {walk.capacity, &connect_step, Rules::raises_step}, ALLOC_AT("extract"))) {
                report_error(Rules::connect_module, "realloc for connect list failed");
                return walk_end::failed;
            }
        }
    }
    if (Rules::checks_status) interrupted(100);
    return walk_end::complete;
}

// An exported kernel: a walk on behalf of a caller outside, who has no word for a failure but 0. What the
// kernel does not hand back then it releases.
qx_long run_kernel(walk_func walk, mesh_info *mesh, int set, int null_flag, unsigned char *flags,
                   edge_table *table, qx_long **connect, qx_long *used, qx_long *capacity,
                   qx_long **cell_map);

walk_end walk_hex(set_walk &walk);
walk_end walk_prism(set_walk &walk);
walk_end walk_pyr(set_walk &walk);
walk_end walk_tet(set_walk &walk);
walk_end walk_tri(set_walk &walk);
walk_end walk_quad(set_walk &walk);

// ---- a whole mesh ----------------------------------------------------------------------------------------

// The function that extracts from a set; null: the set takes no part.
struct set_kernel {
    slice_cell_func func;
    bool makes_triangles; // or lines
};

// What differs between the operations.
struct extract_rules {
    const char *module;    // of the reports
    qx_long unit;          // cells in a block at most, and the first size of a cell map
    bool opens_set_ranges; // a status range around each set
    set_kernel (*choose)(const mesh_info *mesh, int set);
};

struct level_request {
    mesh_info *mesh;
    const void *data;
    int data_type;
    int null_flag;
    const void *null_value;
    double level;
    qx_long *cell_map_count; // an entry a set; null: no maps
    qx_long **cell_map;
};

struct primitive_list {
    qx_long count;
    qx_long *connect;
    qx_long used;
    qx_long capacity;
};

struct level_result {
    qx_long nnodes;
    qx_long *min_node, *max_node;
    primitive_list lines, triangles;
};

// 1, or 0 after a report or an interruption; the result is then all 0 and nothing is left behind.
int extract_level(const level_request &request, const extract_rules &rules, level_result *result);
