// Lattices for tests: shapes that reach every rim, and one mesh described in all the ways it can be.
#pragma once

#include "support/meshes.hpp"

#include <skoklana/mesh.h>

#include <string>
#include <vector>

namespace lattices {

inline qx_long product(const std::vector<qx_long> &dims)
{
    qx_long n = 1;
    for (qx_long d : dims)
        n *= d;
    return n;
}

struct shape {
    std::vector<qx_long> dims;
    int nspace;
};

inline std::string text(const shape &s)
{
    std::string out = std::to_string(s.nspace) + " coordinates, nodes";
    for (qx_long d : s.dims)
        out += " " + std::to_string(d);
    return out;
}

inline std::vector<shape> in_every_space(const std::vector<std::vector<qx_long>> &all_dims)
{
    std::vector<shape> shapes;
    for (const std::vector<qx_long> &dims : all_dims)
        for (int nspace = static_cast<int>(dims.size()); nspace <= 3; ++nspace)
            shapes.push_back({dims, nspace});
    return shapes;
}

// One, two and three axes, axes of a single node in every place; few enough nodes to try all ranges.
inline std::vector<shape> small_shapes()
{
    return in_every_space({{5}, {1}, {4, 3}, {1, 3}, {3, 1}, {3, 4, 2}, {1, 3, 2}, {3, 1, 2}, {3, 2, 1}});
}

// As the small ones, with enough nodes for lists of many.
inline std::vector<shape> wide_shapes()
{
    return in_every_space(
        {{513}, {37, 29}, {1, 200}, {200, 1}, {13, 11, 7}, {1, 20, 30}, {20, 1, 30}, {20, 30, 1}});
}

// Boxes that are not round numbers, with an axis that descends.
inline meshes::mesh_ptr uniform(const shape &s)
{
    return meshes::uniform(s.dims, s.nspace, {0.1f, -2.3f, 7.7f}, {1.9f, -0.4f, 3.1f});
}

inline meshes::mesh_ptr rectilinear(const shape &s)
{
    return meshes::rectilinear(s.dims, s.nspace, {0.1f, -2.3f, 7.7f}, {1.9f, -0.4f, 3.1f}, 5);
}

inline meshes::mesh_ptr curvilinear(const shape &s)
{
    return meshes::curvilinear(s.dims, s.nspace, {0.1f, -2.3f, 7.7f}, {1.9f, -0.4f, 3.1f}, 6);
}

// The lowest nodes of the cells of a lattice in which every axis has a cell, in the order of the cells.
inline std::vector<qx_long> lowest_nodes(const std::vector<qx_long> &dims)
{
    std::vector<qx_long> lowest;
    for (qx_long node = 0; node < product(dims); ++node) {
        bool begins = true;
        qx_long rest = node;
        for (qx_long n : dims) {
            begins = begins && rest % n < n - 1;
            rest /= n;
        }
        if (begins) lowest.push_back(node);
    }
    return lowest;
}

// One uniform mesh, described as uniform, rectilinear, curvilinear and as a cell set, in this order. The
// cells of the set are numbered as those of the lattice.
inline std::vector<meshes::mesh_ptr> in_all_ways(const shape &s)
{
    std::vector<meshes::mesh_ptr> ways;
    ways.push_back(uniform(s));
    const meshes::test_mesh &even = *ways[0];
    const int ndim = even.ndim;

    meshes::mesh_ptr rect(new meshes::test_mesh), curved(new meshes::test_mesh);
    for (meshes::test_mesh *made : {rect.get(), curved.get()}) {
        made->ndim = ndim;
        made->nspace = s.nspace;
        made->dims = s.dims;
        made->coords = even.coords;
    }
    std::vector<const float *> axes;
    qx_long step = 1;
    for (int d = 0; d < s.nspace; ++d) {
        const size_t axis = static_cast<size_t>(d);
        const qx_long n = d < ndim ? s.dims[axis] : 1;
        rect->axes.emplace_back();
        for (qx_long i = 0; i < n; ++i)
            rect->axes[axis].push_back(even.coords[static_cast<size_t>(i * step * s.nspace + d)]);
        step *= n;
    }
    for (const std::vector<float> &axis : rect->axes)
        axes.push_back(axis.data());
    rect->field = host_rectilinear(ndim, rect->dims.data(), s.nspace, axes.data());
    rect->mesh = host_mesh(rect->field);
    curved->field = host_curvilinear(ndim, curved->dims.data(), s.nspace, curved->coords.data());
    curved->mesh = host_mesh(curved->field);
    ways.push_back(std::move(rect));
    ways.push_back(std::move(curved));

    const qx_long row = ndim > 1 ? s.dims[0] : 0, plane = ndim > 2 ? s.dims[0] * s.dims[1] : 0;
    const qx_long corners[8] = {1, 0, row, row + 1, plane + 1, plane, plane + row, plane + row + 1};
    std::vector<qx_long> connect;
    for (qx_long lowest : lowest_nodes(s.dims))
        for (int c = 0; c < 1 << ndim; ++c)
            connect.push_back(lowest + (ndim == 1 ? 1 - corners[c] : corners[c]));
    const int kinds[4] = {0, CELL_LINE, CELL_QUAD, CELL_HEX};
    ways.push_back(meshes::from_cells(s.nspace, even.coords, {kinds[ndim]}, {1}, {connect}));
    return ways;
}

} // namespace lattices
