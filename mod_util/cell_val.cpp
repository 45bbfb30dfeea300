// Values in one cell: those of its nodes, weighted by its shape function.

#include "cell_val.hpp"

#include "fetch.hpp"
#include "lattice.hpp"

#include <skoklana/cell.h>

#include <algorithm>

int interpolate_any_type(const valued_cell &cell, const node_data &of, int npts, const float *uvw, float *out)
{
    if (cell.shape == nullptr || of.data == nullptr || of.veclen < 1) return 0;
    if (cell.nnodes < 1 || cell.nnodes > most_valued_nodes) return 0;
    return with_dtype(of.data_type, "UTILinterp", [&](auto tag) {
        return interpolate_in_cell<typename decltype(tag)::type>(cell, of, npts, uvw, out);
    });
}

int UTILinterp_cell_val(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                        int null_flag, const void *null_value, int npts, const float *uvw, float *out)
{
    const cell_place place = find_set(mesh, cell);
    if (!is_cell(place) || !fetch_connect(mesh, place.set)) return 0;
    const valued_cell view = {cell_nodes(mesh, place), mesh->cell_nnodes[place.set],
                              set_function<shape_func>(mesh, place.set, SLOT_SHAPE_FUNC)};
    return interpolate_any_type(view, {veclen, data, data_type, null_flag, null_value}, npts, uvw, out);
}

int UTILinterp_cell_val_struct(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                               int null_flag, const void *null_value, int npts, const float *uvw, float *out)
{
    constexpr int most_corners = 8;
    const int ncorners = mesh->cell_nnodes[0];
    if (cell < 0 || cell >= mesh->nnodes || ncorners > most_corners) return 0;
    qx_long nodes[most_corners];
    location_order_nodes(cell, flat_steps_of(mesh->ndim, mesh->dims), ncorners, nodes);
    // The last position of an axis starts no cell.
    if (*std::max_element(nodes, nodes + ncorners) >= mesh->nnodes) return 0;
    const valued_cell view = {nodes, ncorners, set_function<shape_func>(mesh, 0, SLOT_SHAPE_FUNC)};
    return interpolate_any_type(view, {veclen, data, data_type, null_flag, null_value}, npts, uvw, out);
}

int UTILtesselate_cell_val(const qx_long *nodes, int nnodes, shape_func shape, int veclen, const void *data,
                           int data_type, int null_flag, const void *null_value, int npts, const float *uvw,
                           float *out)
{
    return interpolate_any_type({nodes, nnodes, shape}, {veclen, data, data_type, null_flag, null_value},
                                npts, uvw, out);
}
