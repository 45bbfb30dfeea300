// Structured lattices made explicit: connect lists of cells and coordinates of nodes, for a range of them.
//
// A range is split once, where it starts, and then followed row by row: along a row cells and nodes are
// consecutive, and only at its end do the other positions move.

#include <skoklana/mesh.h>

#include "lattice.hpp"
#include "report.hpp"

#include <algorithm>
#include <cassert>

// Calls body(first item, items, position of the first) for each stretch of a row that lies in the range.
template <typename Body>
static void for_each_row(int ndim, const qx_long *dims, qx_long start, qx_long end, Body body)
{
    lattice_position position = split_node(start, ndim, dims);
    for (qx_long item = start; item < end;) {
        const qx_long length = ndim > 1 ? std::min(dims[0] - position.at[0], end - item) : end - item;
        body(item, length, position);
        item += length;
        position.at[0] = 0;
        ++position.at[1];
        if (ndim > 2 && position.at[1] == dims[1]) {
            position.at[1] = 0;
            ++position.at[2];
        }
    }
}

template <int ncorners>
static void fill_connect(int ndim, const qx_long *dims, qx_long start, qx_long end, qx_long *out)
{
    qx_long cells[3] = {0, 0, 0};
    for (int d = 0; d < ndim; ++d)
        cells[d] = dims[d] - 1;
    const lattice_steps step = steps_of(ndim, dims);
    for_each_row(ndim, cells, start, end, [&](qx_long, qx_long length, const lattice_position &position) {
        const qx_long lowest = position.at[0] + position.at[1] * step.row + position.at[2] * step.plane;
        for (qx_long i = 0; i < length; ++i, out += ncorners)
            connect_order_nodes(lowest + i, step, ncorners, out);
    });
}

// Components below the number of axes vary with the position, the others are constant. One component of a
// stretch after the other: a stretch of a row stays in the nearest cache.
template <typename Axes>
static int fill_coords(const Axes &axes, qx_long start, qx_long end, int comp_lo, int comp_hi, float *out)
{
    assert(axes.ndim >= 1 && axes.ndim <= 3);
    if (start >= end || comp_lo >= comp_hi) return 1;
    const int ncomp = comp_hi - comp_lo;
    for_each_row(axes.ndim, axes.dims, start, end,
                 [&](qx_long node, qx_long length, const lattice_position &position) {
                     for (int d = comp_lo; d < comp_hi; ++d) {
                         float *column = out + (node - start) * ncomp + (d - comp_lo);
                         if (d == 0) {
                             for (qx_long i = 0; i < length; ++i)
                                 column[i * ncomp] = axes.coordinate(0, position.at[0] + i);
                         } else {
                             const float same =
                                 d < axes.ndim ? axes.coordinate(d, position.at[d]) : axes.points[d];
                             for (qx_long i = 0; i < length; ++i)
                                 column[i * ncomp] = same;
                         }
                     }
                 });
    return 1;
}

int UTILget_connect_struct(int ndim, const qx_long *dims, qx_long start, qx_long end, qx_long *out)
{
    if (ndim < 1 || ndim > 3) {
        print_error("get_connect_struct: cannot compute connect for ndim %d\n", ndim);
        return 0;
    }
    // With a single node along an axis there is no cell, and nothing to divide by.
    for (int d = 0; d + 1 < ndim; ++d)
        if (dims[d] < 2) return 1;
    if (ndim == 1) fill_connect<2>(ndim, dims, start, end, out);
    if (ndim == 2) fill_connect<4>(ndim, dims, start, end, out);
    if (ndim == 3) fill_connect<8>(ndim, dims, start, end, out);
    return 1;
}

int UTILget_coords_unif(int ndim, const qx_long *dims, int nspace, const float *points, qx_long start,
                        qx_long end, int comp_lo, int comp_hi, float *out)
{
    return fill_coords(uniform_axes(ndim, dims, nspace, points), start, end, comp_lo, comp_hi, out);
}

int UTILget_coords_rect(int ndim, const qx_long *dims, int nspace, const float *points, qx_long start,
                        qx_long end, int comp_lo, int comp_hi, float *out)
{
    return fill_coords(rectilinear_axes(ndim, dims, nspace, points), start, end, comp_lo, comp_hi, out);
}
