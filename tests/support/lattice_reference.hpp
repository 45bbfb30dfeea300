// Slow, plain references for level surfaces and lines over structured meshes: one cell after the other, every edge
// looked up in a map.
#pragma once

#include <skoklana/mesh.h>
#include <skoklana/tables.h>

#include <algorithm>
#include <array>
#include <map>
#include <utility>
#include <vector>

namespace lattice_reference {

using numbers = std::vector<qx_long>;

// A mesh record of the given axes and nothing else: walks over a lattice read no coordinates.
struct lattice {
    numbers dims;
    mesh_info mesh = {};

    explicit lattice(numbers dims_) : dims(std::move(dims_))
    {
        mesh.ndim = static_cast<int>(dims.size());
        mesh.dims = dims.data();
        mesh.nnodes = 1;
        for (qx_long n : dims)
            mesh.nnodes *= n;
    }
    lattice(const lattice &) = delete;
    lattice &operator=(const lattice &) = delete;

    qx_long nnodes() const { return mesh.nnodes; }
};

struct level_set {
    numbers min_node, max_node; // of each new node
    numbers connect;            // new nodes, three a triangle or two a line
    numbers cell;               // of each triangle or line
    qx_long cells_with_null = 0;
};

inline bool operator==(const level_set &a, const level_set &b)
{
    return a.min_node == b.min_node && a.max_node == b.max_node && a.connect == b.connect && a.cell == b.cell;
}

// Numbers edges in order of first sight.
struct edge_numbers {
    std::map<std::pair<qx_long, qx_long>, qx_long> seen;
    level_set *out;

    qx_long number(qx_long a, qx_long b)
    {
        const auto added = seen.insert({{std::min(a, b), std::max(a, b)}, static_cast<qx_long>(seen.size())});
        if (added.second) {
            out->min_node.push_back(std::min(a, b));
            out->max_node.push_back(std::max(a, b));
        }
        return added.first->second;
    }
};

template <typename T, size_t N>
bool has_null(const std::vector<T> &data, const std::array<qx_long, N> &nodes, const T *null)
{
    return null != nullptr && std::any_of(nodes.begin(), nodes.end(),
                                          [&](qx_long n) { return data[static_cast<size_t>(n)] == *null; });
}

template <typename T> bool above(const std::vector<T> &data, qx_long node, double level)
{
    return static_cast<double>(data[static_cast<size_t>(node)]) >= level;
}

// Appends a case's triangles over the given nodes of its crossings, in table order.
inline void append_triangles(int index, const qx_long *points, qx_long cell, level_set *out)
{
    int first = 0;
    for (int polygon = 0; polygon < ISOninter_polys_hex[index]; ++polygon) {
        const int size = ISOnppoly_hex[index][polygon];
        const iso_pair split = ISOncell_hex[size - 1];
        for (int t = split.first; t < split.first + split.ntri; ++t) {
            for (int corner : ISOnpcel_hex[t].p)
                out->connect.push_back(points[first + corner]);
            out->cell.push_back(cell);
        }
        first += size;
    }
}

// null: none where it is NULL.
template <typename T>
level_set surface(const std::vector<qx_long> &dims, const std::vector<T> &data, double level, const T *null)
{
    constexpr int corner_of_bit[8] = {0, 1, 4, 5, 3, 2, 7, 6};
    level_set out;
    edge_numbers edges = {{}, &out};
    const qx_long d0 = dims[0], plane = dims[0] * dims[1];
    for (qx_long k = 0; k + 1 < dims[2]; ++k) {
        for (qx_long j = 0; j + 1 < dims[1]; ++j) {
            for (qx_long i = 0; i + 1 < dims[0]; ++i) {
                const qx_long b = i + d0 * j + plane * k;
                const std::array<qx_long, 8> nodes = {
                    b,         b + 1,         b + 1 + d0,         b + d0,
                    b + plane, b + plane + 1, b + plane + 1 + d0, b + plane + d0};
                if (has_null(data, nodes, null)) {
                    ++out.cells_with_null;
                    continue;
                }
                int index = 0;
                for (size_t bit = 0; bit < 8; ++bit)
                    index |= above(data, nodes[static_cast<size_t>(corner_of_bit[bit])], level) << bit;
                if (index == 0 || index == 255) continue;
                qx_long points[12];
                for (int p = 0; p < ISOninter_pts_hex[index]; ++p)
                    points[p] =
                        edges.number(nodes[ISOleft_vert_hex[index][p]], nodes[ISOright_vert_hex[index][p]]);
                append_triangles(index, points, ((dims[1] - 1) * k + j) * (dims[0] - 1) + i, &out);
            }
        }
    }
    return out;
}

// Crossed edges of a quadrilateral, corner pairs, by case index; a case and its complement are alike.
inline std::vector<std::pair<size_t, size_t>> quad_crossings(int index)
{
    switch (index > 7 ? 15 - index : index) {
    case 1: return {{0, 1}, {3, 0}};
    case 2: return {{0, 1}, {1, 2}};
    case 3: return {{1, 2}, {3, 0}};
    case 4: return {{1, 2}, {2, 3}};
    case 5: return {{0, 1}, {3, 0}, {1, 2}, {2, 3}};
    case 6: return {{0, 1}, {2, 3}};
    case 7: return {{2, 3}, {3, 0}};
    default: return {};
    }
}

template <typename T>
level_set lines(const std::vector<qx_long> &dims, const std::vector<T> &data, double level, const T *null)
{
    level_set out;
    edge_numbers edges = {{}, &out};
    for (qx_long j = 0; j + 1 < dims[1]; ++j) {
        for (qx_long i = 0; i + 1 < dims[0]; ++i) {
            const qx_long b = i + dims[0] * j;
            const std::array<qx_long, 4> nodes = {b, b + 1, b + 1 + dims[0], b + dims[0]};
            if (has_null(data, nodes, null)) {
                ++out.cells_with_null;
                continue;
            }
            int index = 0;
            for (size_t corner = 0; corner < 4; ++corner)
                index |= above(data, nodes[corner], level) << corner;
            int entries = 0;
            for (const auto &crossing : quad_crossings(index)) {
                out.connect.push_back(edges.number(nodes[crossing.first], nodes[crossing.second]));
                if (++entries % 2 == 0) out.cell.push_back((dims[0] - 1) * j + i);
            }
        }
    }
    return out;
}

} // namespace lattice_reference
