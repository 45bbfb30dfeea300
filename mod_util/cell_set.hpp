// The embedded host includes this header too.
//
// Cell sets: which set holds a cell, and the functions of a set's row.
#pragma once

#include <skoklana/mesh.h>

struct cell_place {
    int set = -1;       // -1: no set holds the cell
    qx_long local = -1; // the cell's number within the set
};

// The first set, in ascending order, that a global cell number does not lie past. A negative number comes
// out as set 0 with a negative local number: callers test both.
inline cell_place find_set(const mesh_info *mesh, qx_long cell)
{
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        const qx_long local = cell - mesh->cell_first[set];
        if (local < mesh->cell_count[set]) return {set, local};
    }
    return {};
}

inline bool is_cell(const cell_place &place)
{
    return place.set >= 0 && place.local >= 0;
}

inline const qx_long *cell_nodes(const mesh_info *mesh, const cell_place &place)
{
    return mesh->cell_connect[place.set] + place.local * mesh->cell_nnodes[place.set];
}

// The function in a slot of a set's row, as the type of the slot; null: the slot is empty.
template <typename Func> Func set_function(const mesh_info *mesh, int set, int slot)
{
    return reinterpret_cast<Func>(mesh->cell_funcs[static_cast<qx_long>(set) * CELL_METHOD_SLOTS + slot]);
}

// The function of an operation: the set's own, else the one for the cells of its tesselation.
template <typename Func> Func set_function(const mesh_info *mesh, int set, int slot, int sub_slot)
{
    const Func own = set_function<Func>(mesh, set, slot);
    return own != nullptr ? own : set_function<Func>(mesh, set, sub_slot);
}
