// A field of the embedded host: the arrays that describe a mesh, and what was made of them.
#pragma once

#include "bind.hpp"

#include "mod_util/lattice.hpp"

#include <cstdint>
#include <cstdlib>

// Cells as they were added.
struct cell_set {
    int kind, order;
    qx_long count;
    const qx_long *connect; // borrowed; NULL for the cells of a lattice
    qx_long *owned;         // the same where the field owns it, else NULL
};

// The kind of a structured cell, by the number of axes.
constexpr int lattice_cell[4] = {-1, CELL_LINE, CELL_QUAD, CELL_HEX};

// Fields are zeroed when they are made: what a kind of mesh does not have is 0 or NULL.
struct host_field {
    OMobj_id id;
    mesh_kind kind;
    int ndim, nspace; // ndim 0: cell sets
    qx_long dims[3];  // 1 from ndim on; cell sets are one axis of nnodes
    qx_long nnodes;

    // borrowed, but for parts
    const float *corners; // uniform
    const float *axes[3]; // rectilinear; NULL is a constant 0
    const float *coords;  // curvilinear and cell sets

    float step[3]; // uniform
    // of a part of a uniform mesh, which is rectilinear; else NULL: the whole, and the part's first node in it
    host_field *whole;
    qx_long first[3];
    float *own_axes;
    cell_set *sets;
    int nsets, sets_capacity;
    cell_set lattice_set; // the one set of structured meshes

    // made when first fetched
    float *made_points;
    float *made_coords;
    qx_long *made_connect;

    bool mesh_made;
    mesh_methods methods;
    mesh_info made; // as it was filled; owns its per-set arrays
    mesh_info mesh; // as it is in use
};

// Tells the ids of fields from those of settings.
constexpr uint64_t field_tag = 0x646c656966;

inline host_field *field_of(OMobj_id id)
{
    return id.word[0] == field_tag ? reinterpret_cast<host_field *>(static_cast<uintptr_t>(id.word[1]))
                                   : nullptr;
}

// The coordinate of a position on an axis of a uniform or rectilinear mesh; in float, rounded at each step.
inline float axis_coordinate(const host_field *field, int d, qx_long position)
{
    if (field->kind == KIND_RECT) return field->axes[d] != nullptr ? field->axes[d][position] : 0.0f;
    if (d >= field->ndim) return field->corners[d];
    return uniform_coordinate(position, field->step[d], field->corners[d]);
}

// The field in which points are looked for: of a part of a uniform mesh, the whole.
inline const host_field *searched_field(const host_field *field)
{
    return field->whole != nullptr ? field->whole : field;
}

// Makes points be found in a part as in the whole.
void bind_search_of_whole(host_field *part);

// count elements, at least one, so that NULL always means that there is no memory.
template <typename T> T *allocate_zeroed(qx_long count)
{
    return static_cast<T *>(calloc(static_cast<size_t>(count > 0 ? count : 1), sizeof(T)));
}

// Whether a field takes ncells more cells; if not, the failure is recorded.
bool takes_cells(const char *call, const host_field *field, qx_long ncells);
// False: no memory.
bool add_set(host_field *field, const cell_set &set);

// The coordinates of a node, nspace of them.
void copy_node(const host_field *field, qx_long node, float *coords);

// The fetch functions of mesh records.
int fetch_coords_of_field(mesh_info *mesh, float **coords);
int fetch_coords_range_of_field(mesh_info *mesh, const qx_long *lo, const qx_long *hi, float *coords);
int fetch_points_of_field(mesh_info *mesh, float **points);
int fetch_connect_of_field(mesh_info *mesh, int set, qx_long **connect);
