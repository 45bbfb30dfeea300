// The lists that walks over structured meshes fill, and how a walk ends.
#pragma once

#include "grow.hpp"

enum class lattice_end {
    done,
    interrupted,
    no_node_memory,
    no_map_memory,
    no_connect_memory,
    no_coords // from the host
};

// New nodes in the order of their numbers, by the nodes at the ends of their edges. They grow alike: used and
// capacity of the first hold for both.
template <class List> struct edge_nodes_of {
    List min_node, max_node;
};
using edge_nodes = edge_nodes_of<batch_list>;

inline void release_nodes(edge_nodes *nodes)
{
    for (batch_list *list : {&nodes->min_node, &nodes->max_node})
        release_list(list, ALLOC_AT("lattice_lists"));
}

inline bool open_nodes(edge_nodes *nodes, qx_long capacity)
{
    return open_list(&nodes->max_node, capacity, ALLOC_AT("lattice_lists")) &&
           open_list(&nodes->min_node, capacity, ALLOC_AT("lattice_lists"));
}

template <class List>
lattice_end make_room_for_nodes(edge_nodes_of<List> *nodes, qx_long more, qx_long margin, double done)
{
    const bool has_room = make_room_for(&nodes->max_node, more, margin, done, ALLOC_AT("lattice_lists")) &&
                          make_room_for(&nodes->min_node, more, margin, done, ALLOC_AT("lattice_lists"));
    return has_room ? lattice_end::done : lattice_end::no_node_memory;
}

// Cells of one kind that a walk makes: their nodes, and the cell of the mesh that each comes from.
template <class List> struct made_cells_of {
    List connect;
    List map; // no data: not wanted
};
using made_cells = made_cells_of<batch_list>;

inline void release_cells(made_cells *cells)
{
    for (batch_list *list : {&cells->connect, &cells->map})
        release_list(list, ALLOC_AT("lattice_lists"));
}

inline bool open_cells(made_cells *cells, qx_long capacity, bool mapped)
{
    return open_list(&cells->connect, capacity, ALLOC_AT("lattice_lists")) &&
           (!mapped || open_list(&cells->map, capacity, ALLOC_AT("lattice_lists")));
}

// Room for more cells of nentries nodes, and a margin of entries behind them.
template <class List>
lattice_end make_room_for_cells(made_cells_of<List> *cells, qx_long more, int nentries, qx_long margin,
                                double done)
{
    if (cells->map.data != nullptr && !make_room_for(&cells->map, more, 0, done, ALLOC_AT("lattice_lists")))
        return lattice_end::no_map_memory;
    if (!make_room_for(&cells->connect, nentries * more, margin, done, ALLOC_AT("lattice_lists")))
        return lattice_end::no_connect_memory;
    return lattice_end::done;
}
