// Coordinates of listed nodes on uniform and rectilinear meshes, a million at a time.
//
// Each node number is split into axis positions, which costs two divisions by the same two numbers all
// along the list. They are done as multiplications by a reciprocal, exact for every node number, so that
// positions are those of the plain division. The numbers of axes and coordinates are template arguments:
// a row then has no inner loop left.
#pragma once

#include "lattice.hpp"
#include "simd.hpp"

#include <type_traits>

// Division of numbers from 0 to 2^63 - 1 by one divisor d, in 1 to 2^63 - 1. With 2^(s - 1) < d <= 2^s and
// r = 2^(63 + s) / d, rounded up, the error of n * r / 2^(63 + s) is below n / 2^63 / d, less than the 1 / d
// that would carry the quotient over to the next whole number.
//
// Granlund and Montgomery. Division by invariant integers using multiplication. 1994
struct exact_divisor {
    __extension__ typedef unsigned __int128 wide;

    uint64_t reciprocal;
    int shift = 0;

    explicit exact_divisor(qx_long divisor)
    {
        const uint64_t d = divisor > 0 ? static_cast<uint64_t>(divisor) : 1;
        while ((uint64_t{1} << shift) < d)
            ++shift;
        reciprocal = static_cast<uint64_t>(((wide{1} << (63 + shift)) + d - 1) / d);
    }

    // 2n makes up for the bit by which the reciprocal falls short of 64.
    qx_long quotient(qx_long n) const
    {
        return static_cast<qx_long>((static_cast<wide>(2 * static_cast<uint64_t>(n)) * reciprocal >> 64) >>
                                    shift);
    }
};

// split_node for many nodes of one lattice.
template <int ndim> struct node_splitter {
    qx_long rows, planes; // nodes a row, rows a plane
    exact_divisor by_row, by_plane;

    explicit node_splitter(const qx_long *dims)
        : rows(ndim > 1 ? dims[0] : 1), planes(ndim > 2 ? dims[1] : 1), by_row(rows), by_plane(planes)
    {
    }

    lattice_position split(qx_long node) const
    {
        lattice_position position = {{node, 0, 0}};
        if (ndim < 2) return position;
        const qx_long row = by_row.quotient(node);
        position.at[0] = node - row * rows;
        position.at[1] = row;
        if (ndim < 3) return position;
        position.at[2] = by_plane.quotient(row);
        position.at[1] = row - position.at[2] * planes;
        return position;
    }
};

// The coordinates of any node; Axes is uniform_axes or rectilinear_axes.
template <typename Axes, int ndim_, int nspace_> struct compact_rows {
    static constexpr int nspace = nspace_;

    Axes axes;
    node_splitter<ndim_> splitter;

    explicit compact_rows(const Axes &axes_) : axes(axes_), splitter(axes_.dims) {}

    FORCE_INLINE void read(qx_long node, float *row) const
    {
        const lattice_position position = splitter.split(node);
        for (int d = 0; d < nspace; ++d)
            row[d] = d < ndim_ ? axes.coordinate(d, position.at[d]) : axes.points[d];
    }
};

// Calls body with the compact_rows of the axes' shape; a lattice has at most as many axes as space, which
// has at most 3. Does nothing for other shapes: they are no meshes. Tells whether body ran.
template <typename Axes, typename Body> bool with_compact_rows(const Axes &axes, Body body)
{
    switch (axes.nspace >= axes.ndim ? 10 * axes.nspace + axes.ndim : 0) {
#define ONE_SHAPE(nspace, ndim) \
    case 10 * (nspace) + (ndim): body(compact_rows<Axes, ndim, nspace>(axes)); return true;
        ONE_SHAPE(1, 1)
        ONE_SHAPE(2, 1)
        ONE_SHAPE(2, 2)
        ONE_SHAPE(3, 1)
        ONE_SHAPE(3, 2)
        ONE_SHAPE(3, 3)
#undef ONE_SHAPE
    default: return false;
    }
}
