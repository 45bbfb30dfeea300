// The embedded host includes this header too.
//
// Index arithmetic of structured meshes, and the two corner orders of their cells.
//
//        k                       corner offsets from the lowest node b, with the steps
//        |  j                    d0 = dims[0] and d01 = dims[0] * dims[1]:
//        | /
//        |/____ i                connect order: around the lower face, then the upper one
//                                    b, b + 1, b + 1 + d0, b + d0, and the four plus d01
//
//                                location order: that in which the shape functions number a hexahedron
//                                    b + 1, b, b + d0, b + d0 + 1, and the four plus d01
//
// A line takes the first two corners of an order, a quadrilateral the first four.
#pragma once

#include <skoklana/mesh.h>

struct lattice_position {
    qx_long at[3];
};

// The position of a node on each axis; axes from ndim on are 0.
inline lattice_position split_node(qx_long node, int ndim, const qx_long *dims)
{
    lattice_position position = {{node, 0, 0}};
    if (ndim < 2) return position;
    const qx_long rows = node / dims[0];
    position.at[0] = node - rows * dims[0];
    position.at[1] = rows;
    if (ndim < 3) return position;
    position.at[2] = rows / dims[1];
    position.at[1] = rows - position.at[2] * dims[1];
    return position;
}

// The steps to the next node along each axis; axes from ndim on have step 0 and are never taken.
struct lattice_steps {
    qx_long row, plane;
    qx_long column = 1;
};

inline lattice_steps steps_of(int ndim, const qx_long *dims)
{
    return {ndim > 1 ? dims[0] : 0, ndim > 2 ? dims[0] * dims[1] : 0};
}

// The same with step 0 along axes of one node: the corners on both sides of such an axis are one node, and a
// cell of a mesh that is flat there has no corner outside it.
inline lattice_steps flat_steps_of(int ndim, const qx_long *dims)
{
    lattice_steps step = steps_of(ndim, dims);
    if (dims[0] == 1) step.column = 0;
    if (ndim > 1 && dims[1] == 1) step.row = 0;
    if (ndim > 2 && dims[2] == 1) step.plane = 0;
    return step;
}

inline void connect_order_nodes(qx_long lowest, const lattice_steps &step, int ncorners, qx_long *nodes)
{
    const qx_long offsets[4] = {0, 1, 1 + step.row, step.row};
    for (int corner = 0; corner < ncorners; ++corner)
        nodes[corner] = lowest + offsets[corner & 3] + (corner > 3 ? step.plane : 0);
}

inline void location_order_nodes(qx_long lowest, const lattice_steps &step, int ncorners, qx_long *nodes)
{
    const qx_long offsets[4] = {step.column, 0, step.row, step.row + step.column};
    for (int corner = 0; corner < ncorners; ++corner)
        nodes[corner] = lowest + offsets[corner & 3] + (corner > 3 ? step.plane : 0);
}

// The corners of an axis of n evenly spaced nodes become a step, and a position on it a coordinate; in float,
// rounded at each operation.
inline float uniform_step(float first, float last, qx_long n)
{
    return n != 1 ? (last - first) / static_cast<float>(n - 1) : 0;
}

inline float uniform_coordinate(qx_long position, float step, float first)
{
    return static_cast<float>(position) * step + first;
}

// Compact coordinates, prepared once an operation: positions on an axis become coordinates by the rule above, or
// by a look at the axis's list.
struct uniform_axes {
    int ndim, nspace;
    const qx_long *dims;
    const float *points;
    float step[3];

    uniform_axes(int ndim_, const qx_long *dims_, int nspace_, const float *points_)
        : ndim(ndim_), nspace(nspace_), dims(dims_), points(points_), step{0, 0, 0}
    {
        for (int d = 0; d < ndim; ++d)
            step[d] = uniform_step(points[d], points[nspace + d], dims[d]);
    }

    float coordinate(int d, qx_long position) const
    {
        return uniform_coordinate(position, step[d], points[d]);
    }
};

struct rectilinear_axes {
    int ndim, nspace;
    const qx_long *dims;
    const float *points;
    qx_long offset[3]; // first row of each axis

    rectilinear_axes(int ndim_, const qx_long *dims_, int nspace_, const float *points_)
        : ndim(ndim_), nspace(nspace_), dims(dims_), points(points_), offset{0, 0, 0}
    {
        for (int d = 1; d < ndim; ++d)
            offset[d] = offset[d - 1] + dims[d - 1];
    }

    float coordinate(int d, qx_long position) const { return points[(offset[d] + position) * nspace + d]; }
};
