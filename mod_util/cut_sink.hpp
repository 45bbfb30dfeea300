// Cuts of cell sets: what becomes of the cells that the walk of cell_walk.hpp finds. Whole ones are copied, a stretch at
// a time, split ones become pieces.
#pragma once

#include "cell_walk.hpp"
#include "piece_lists.hpp"

// Numbers: who has the lists; checks: whether the walk looks for an interruption.
template <typename Cases, class Numbers = host_numbers, bool checks = true> class cut_sink {
  public:
    static constexpr bool checks_status = checks;
    static constexpr bool takes_whole = true;

    cut_sink(int row_nnodes, qx_long nretained, const qx_long *map_of_nodes, const piece_lists &to,
             piece_maps_of<Numbers> *maps_to)
        : nnodes(row_nnodes), nold(nretained), node_map(map_of_nodes), lists(to), maps(maps_to)
    {
    }

    walk_end take(qx_long cell, const qx_long *corners, const cut_case &row, const int *number)
    {
        constexpr cut_list list = Cases::piece_list;
        const int ncells = row.ncells;
        qx_long local[most_cut_local];
        local_nodes<Cases::ncorners>(corners, node_map, row.npoints, number, nold, local);
        if (!append_pieces<Numbers>(lists, list, ncells, row.nodes, local)) return walk_end::no_connect;
        if (maps->count != nullptr) {
            if (!maps->make_room(list, ncells)) return walk_end::no_map;
            std::fill_n(maps->map[list] + maps->count[list], ncells, cell);
            maps->count[list] += ncells;
        }
        return walk_end::complete;
    }

    walk_end take_whole(qx_long first, const qx_long *corners, qx_long ncells)
    {
        constexpr int list = Cases::whole_list;
        if (!append_whole_cells<Cases, Numbers>(lists, corners, nnodes, ncells, node_map))
            return walk_end::no_connect;
        if (maps->count != nullptr) {
            if (!maps->make_room(list, ncells)) return walk_end::no_map;
            qx_long *map = maps->map[list] + maps->count[list];
            for (qx_long i = 0; i < ncells; ++i)
                map[i] = first + i;
            maps->count[list] += ncells;
        }
        return walk_end::complete;
    }

  private:
    const int nnodes;
    const qx_long nold;
    const qx_long *const node_map;
    const piece_lists lists;
    piece_maps_of<Numbers> *const maps;
};

// Tells under module of what memory a cut of a set was missing, where it was that.
void report_cut_end(walk_end end, const char *module);
