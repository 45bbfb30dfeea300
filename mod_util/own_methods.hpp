// Which of a mesh's functions are the library's own.
//
// A host may bind what it likes. Where a function that an operation would call a million times is known, its work
// is done in line, from the same source; anything else is called. Drivers of extractions need no such knowledge:
// kernel_watch.hpp tells them what a kernel did, whoever called it.
#pragma once

#include "shape.hpp"

#include <skoklana/cell.h>
#include <skoklana/locate.h>

#include <algorithm>
#include <iterator>

enum class own_form { none, cells, structured, rectilinear, uniform };

// The search for the cell of a point. Cell sets and curvilinear meshes have one in common, by block table.
inline own_form own_search(const mesh_info *mesh)
{
    const auto bound = mesh->methods->find_cell_func;
    return bound == UTILfind_cell        ? own_form::cells
           : bound == UTILfind_cell_rect ? own_form::rectilinear
           : bound == UTILfind_cell_unif ? own_form::uniform
                                         : own_form::none;
}

// The test whether a cell holds a point.
inline own_form own_cell_test(const mesh_info *mesh)
{
    const auto bound = mesh->methods->interp_cell_func;
    return bound == UTILinterp_cell_uvw          ? own_form::cells
           : bound == UTILinterp_cell_uvw_struct ? own_form::structured
                                                 : own_form::none;
}

// The value in a cell.
inline own_form own_cell_value(const mesh_info *mesh)
{
    const auto bound = mesh->methods->interp_data_func;
    return bound == UTILinterp_cell_val          ? own_form::cells
           : bound == UTILinterp_cell_val_struct ? own_form::structured
                                                 : own_form::none;
}

inline bool is_own_mapping(rev_par_func bound)
{
#define OWN_MAPPING(suffix, kind, order) UTILrev_par_##suffix,
    static constexpr rev_par_func own[] = {FOR_EACH_SHAPE(OWN_MAPPING)};
#undef OWN_MAPPING
    return std::find(std::begin(own), std::end(own), bound) != std::end(own);
}

// The kind whose first-order shape functions these are, of those that have a form in line; -1: of none.
inline int own_shape(shape_func bound)
{
    return bound == UTILsh_func_hex_1 ? CELL_HEX : bound == UTILsh_func_tet_1 ? CELL_TET : -1;
}
