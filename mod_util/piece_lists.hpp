// The output lists of cuts and bands over cell sets, as kernels get and fill them: one a kind of cell, with the
// cells' nodes by output numbers, and beside it the cell that each came from.
#pragma once

#include "cut_cases.hpp"
#include "grow.hpp"
#include "memory.hpp"
#include "simd.hpp"

#include <algorithm>

// An entry a list. Capacities and steps last over the kernels of a call, and kernels may be called by others.
struct piece_lists {
    qx_long *ncells;
    qx_long **connect;
    qx_long *used, *capacity, *step; // entries of connect
};

constexpr qx_long first_piece_entries = 1024;
// A list that has fewer entries left than this grows before a cell is written: any cell has at most 8 nodes.
constexpr qx_long piece_margin = 10;

inline void release_piece_lists(const piece_lists &lists, int nlists)
{
    for (int list = 0; list < nlists; ++list) {
        release_numbers(&lists.connect[list], ALLOC_AT("piece_lists"));
        lists.ncells[list] = lists.used[list] = lists.capacity[list] = 0;
    }
}

// Begins a list, or all, where they are not there yet or have no capacity. False: there is no memory.
template <class Numbers = host_numbers> bool begin_piece_list(const piece_lists &lists, int list)
{
    if (lists.capacity[list] != 0 && lists.connect[list] != nullptr) return true;
    if (lists.connect[list] != nullptr) Numbers::release(lists.connect[list], ALLOC_AT("piece_lists"));
    lists.used[list] = lists.capacity[list] = 0;
    lists.connect[list] = Numbers::alloc(first_piece_entries, ALLOC_AT("piece_lists"));
    if (lists.connect[list] == nullptr) return false;
    lists.capacity[list] = lists.step[list] = first_piece_entries;
    return true;
}

inline bool begin_piece_lists(const piece_lists &lists, int nlists)
{
    for (int list = 0; list < nlists; ++list)
        if (!begin_piece_list(lists, list)) return false;
    return true;
}

// An entry a list is released, and left NULL, that nothing was added to.
inline void drop_empty_lists(const qx_long *ncells, qx_long **connect, int nlists)
{
    for (int list = 0; list < nlists; ++list)
        if (ncells[list] == 0) release_numbers(&connect[list], ALLOC_AT("piece_lists"));
}

// Brings a list to a capacity of at least needed entries, by as many steps at once as single cells would have
// taken one after the other. On failure everything is as it was.
template <class Numbers> bool raise_capacity(qx_long **list, qx_long needed, qx_long *capacity, qx_long *step)
{
    qx_long raised = *capacity, next_step = *step;
    while (raised < needed) {
        raised += next_step;
        next_step = raised_step(next_step);
    }
    qx_long *grown = Numbers::resize(*list, raised, ALLOC_AT("piece_lists"));
    if (grown == nullptr) return false;
    expect_to_fill(grown, raised * static_cast<qx_long>(sizeof(qx_long)));
    *list = grown;
    *capacity = raised;
    *step = next_step;
    return true;
}

// Room for ncells cells of nnodes nodes.
template <class Numbers>
bool make_room_for_pieces(const piece_lists &lists, int list, qx_long ncells, int nnodes)
{
    const qx_long needed = lists.used[list] + (ncells - 1) * nnodes + piece_margin;
    return needed <= lists.capacity[list] ||
           raise_capacity<Numbers>(&lists.connect[list], needed, &lists.capacity[list], &lists.step[list]);
}

// Maps from output cells to the cells of a set, an entry a list. Capacities start anew with each kernel.
template <class Numbers> struct piece_maps_of {
    qx_long *count; // null: no maps are wanted
    qx_long **map;
    qx_long capacity[CUT_LISTS], step[CUT_LISTS];

    piece_maps_of(qx_long *counts_of_set, qx_long **maps_of_set) : count(counts_of_set), map(maps_of_set)
    {
        std::fill_n(capacity, static_cast<int>(CUT_LISTS), first_piece_entries);
        std::fill_n(step, static_cast<int>(CUT_LISTS), first_piece_entries);
    }

    bool make_room(int list, qx_long more)
    {
        const qx_long needed = count[list] + more;
        return needed <= capacity[list] ||
               raise_capacity<Numbers>(&map[list], needed, &capacity[list], &step[list]);
    }
};
using piece_maps = piece_maps_of<host_numbers>;

// The output numbers of a cell's corners, and of its new nodes behind them.
template <int ncorners>
FORCE_INLINE void local_nodes(const qx_long *corners, const qx_long *node_map, int npoints, const int *number,
                              qx_long nold, qx_long *local)
{
    for (int corner = 0; corner < ncorners; ++corner)
        local[corner] = node_map[corners[corner]];
    for (int p = 0; p < npoints; ++p)
        local[ncorners + p] = nold + number[p];
}

// Cells by places in local, one after the other. False: no memory.
template <class Numbers = host_numbers>
FORCE_INLINE bool append_pieces(const piece_lists &lists, cut_list list, int ncells,
                                const unsigned char *places, const qx_long *local)
{
    const int nnodes = cut_list_nnodes[list];
    if (!make_room_for_pieces<Numbers>(lists, list, ncells, nnodes)) return false;
    qx_long *out = lists.connect[list] + lists.used[list];
    for (int i = 0; i < ncells * nnodes; ++i)
        out[i] = local[places[i]];
    lists.used[list] += ncells * nnodes;
    lists.ncells[list] += ncells;
    return true;
}

// Rows of nodes as rows of their output numbers: the first ncorners of nnodes nodes of each cell.
template <int ncorners>
void copy_mapped_rows(const qx_long *rows, int nnodes, qx_long ncells, const qx_long *node_map, qx_long *out)
{
    if (nnodes == ncorners) {
        for (qx_long i = 0; i < ncells * ncorners; ++i)
            out[i] = node_map[rows[i]];
        return;
    }
    for (qx_long cell = 0; cell < ncells; ++cell, rows += nnodes, out += ncorners)
        for (int corner = 0; corner < ncorners; ++corner)
            out[corner] = node_map[rows[corner]];
}

// Cells that are kept whole, of the kind of Cases. False: no memory.
template <typename Cases, class Numbers = host_numbers>
bool append_whole_cells(const piece_lists &lists, const qx_long *rows, int nnodes, qx_long ncells,
                        const qx_long *node_map)
{
    constexpr int list = Cases::whole_list, ncorners = Cases::ncorners;
    if (!make_room_for_pieces<Numbers>(lists, list, ncells, ncorners)) return false;
    copy_mapped_rows<ncorners>(rows, nnodes, ncells, node_map, lists.connect[list] + lists.used[list]);
    lists.used[list] += ncells * ncorners;
    lists.ncells[list] += ncells;
    return true;
}
