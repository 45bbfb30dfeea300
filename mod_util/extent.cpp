// Boxes of cells and of the field.
//
// A box starts as the first node and is widened by each further one, each bound by a comparison of its own:
// a NaN at the first node stays, one at a later node changes nothing.

#include <skoklana/mesh.h>

#include "cell_set.hpp"
#include "fetch.hpp"
#include "lattice.hpp"

#include <cassert>

namespace {

struct node_box {
    float min[3] = {}, max[3] = {};

    void start(const float *coords, int nspace)
    {
        for (int d = 0; d < nspace; ++d)
            min[d] = max[d] = coords[d];
    }

    void widen(const float *coords, int nspace)
    {
        for (int d = 0; d < nspace; ++d) {
            min[d] = coords[d] < min[d] ? coords[d] : min[d];
            max[d] = coords[d] > max[d] ? coords[d] : max[d];
        }
    }

    void hand_out(int nspace, float *min_out, float *max_out) const
    {
        for (int d = 0; d < nspace; ++d) {
            min_out[d] = min[d];
            max_out[d] = max[d];
        }
    }
};

} // namespace

static void box_of_nodes(const mesh_info *mesh, const qx_long *nodes, int count, float *min, float *max)
{
    node_box box;
    box.start(mesh->coords + nodes[0] * mesh->nspace, mesh->nspace);
    for (int i = 1; i < count; ++i)
        box.widen(mesh->coords + nodes[i] * mesh->nspace, mesh->nspace);
    box.hand_out(mesh->nspace, min, max);
}

static bool is_node(const mesh_info *mesh, qx_long node)
{
    return node >= 0 && node < mesh->nnodes;
}

// The box from position low to high of each axis; what lies beyond the axes is constant.
template <typename Axes>
static void box_of_positions(const Axes &axes, const lattice_position &low, const lattice_position &high,
                             float *min, float *max)
{
    for (int d = 0; d < axes.nspace; ++d) {
        min[d] = d < axes.ndim ? axes.coordinate(d, low.at[d]) : axes.points[d];
        max[d] = d < axes.ndim ? axes.coordinate(d, high.at[d]) : axes.points[d];
    }
}

// All nodes of all cells; the coordinates are there. The count of coordinates is a constant, so that the box
// stays in registers.
template <int nspace> static int box_of_cells(mesh_info *mesh, float *min, float *max)
{
    node_box box;
    bool started = false;
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        if (!fetch_connect(mesh, set)) return 0;
        const qx_long *nodes = mesh->cell_connect[set];
        const qx_long count = mesh->cell_count[set] * mesh->cell_nnodes[set];
        if (count > 0 && !started) {
            box.start(mesh->coords + nodes[0] * nspace, nspace);
            started = true;
        }
        for (qx_long i = 0; i < count; ++i)
            box.widen(mesh->coords + nodes[i] * nspace, nspace);
    }
    if (started) box.hand_out(nspace, min, max);
    return 1;
}

int UTILcell_extent(mesh_info *mesh, qx_long cell, float *min, float *max)
{
    const cell_place place = find_set(mesh, cell);
    if (!is_cell(place)) return 0;
    if (!fetch_coords(mesh) || !fetch_connect(mesh, place.set)) return 0;
    box_of_nodes(mesh, cell_nodes(mesh, place), mesh->cell_nnodes[place.set], min, max);
    return 1;
}

int UTILcell_extent_struct(mesh_info *mesh, qx_long cell, float *min, float *max)
{
    if (!is_node(mesh, cell)) return 0;
    const int ncorners = mesh->cell_nnodes[0];
    assert(ncorners >= 2 && ncorners <= 8);
    qx_long nodes[8];
    location_order_nodes(cell, flat_steps_of(mesh->ndim, mesh->dims), ncorners, nodes);
    for (int corner = 0; corner < ncorners; ++corner)
        if (!is_node(mesh, nodes[corner])) return 0; // no cell begins at the end of the mesh
    if (!fetch_coords(mesh)) return 0;
    box_of_nodes(mesh, nodes, ncorners, min, max);
    return 1;
}

int UTILcell_extent_unif(mesh_info *mesh, qx_long cell, float *min, float *max)
{
    if (!is_node(mesh, cell)) return 0;
    if (!fetch_points(mesh)) return 0;
    const lattice_position low = split_node(cell, mesh->ndim, mesh->dims);
    const lattice_position high = {{low.at[0] + 1, low.at[1] + 1, low.at[2] + 1}};
    box_of_positions(uniform_axes(mesh->ndim, mesh->dims, mesh->nspace, mesh->points), low, high, min, max);
    return 1;
}

int UTILcell_extent_rect(mesh_info *mesh, qx_long cell, float *min, float *max)
{
    if (!is_node(mesh, cell)) return 0;
    if (!fetch_points(mesh)) return 0;
    const lattice_position low = split_node(cell, mesh->ndim, mesh->dims);
    lattice_position high = low;
    for (int d = 0; d < mesh->ndim; ++d)
        if (low.at[d] + 1 < mesh->dims[d]) ++high.at[d]; // an axis's list ends with its last position
    box_of_positions(rectilinear_axes(mesh->ndim, mesh->dims, mesh->nspace, mesh->points), low, high, min,
                     max);
    return 1;
}

int UTILfield_extent(mesh_info *mesh, float *min, float *max)
{
    if (!fetch_coords(mesh)) return 0;
    switch (mesh->nspace) {
    case 1: return box_of_cells<1>(mesh, min, max);
    case 2: return box_of_cells<2>(mesh, min, max);
    default: return box_of_cells<3>(mesh, min, max);
    }
}
