// Slow, plain references for what walks over structured meshes do: cells one after the other, every edge looked
// up in a map. walk() is the reference of the walk; what becomes of a cell is told by what it calls, such as
// the level surfaces and lines below.
#pragma once

#include <skoklana/mesh.h>
#include <skoklana/tables.h>

#include <algorithm>
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

// Edges get numbers in order of first sight. An edge that is crossed at several levels has a number at each.
struct edge_numbers {
    numbers min_node, max_node; // of each new node
    std::map<std::pair<std::pair<qx_long, qx_long>, int>, qx_long> seen;

    qx_long number(qx_long a, qx_long b, int level = 0)
    {
        const std::pair<qx_long, qx_long> ends(std::min(a, b), std::max(a, b));
        const auto added = seen.insert({{ends, level}, static_cast<qx_long>(seen.size())});
        if (added.second) {
            min_node.push_back(ends.first);
            max_node.push_back(ends.second);
        }
        return added.first->second;
    }
};

// A cell of two or three axes: its nodes around the lower face and then around the upper one.
struct cell {
    numbers nodes;
    qx_long number;
    qx_long slab; // on the last axis
};

template <typename T, typename Nodes>
bool has_null(const std::vector<T> &data, const Nodes &nodes, const T *null)
{
    return null != nullptr && std::any_of(nodes.begin(), nodes.end(),
                                          [&](qx_long n) { return data[static_cast<size_t>(n)] == *null; });
}

// Calls take(cell) for the cells of slabs first to end - 1 that have no null node, by i, then j, then k, and
// gives the number of those that have one. null: none where it is NULL.
template <typename T, typename Take>
qx_long walk_slabs(const numbers &dims, qx_long first, qx_long end, const std::vector<T> &data, const T *null,
                   Take take)
{
    const bool solid = dims.size() == 3;
    const qx_long d0 = dims[0], plane = solid ? d0 * dims[1] : d0;
    const qx_long nrows = solid ? dims[1] - 1 : 1;
    qx_long with_null = 0;
    for (qx_long k = first; k < end; ++k) {
        for (qx_long j = 0; j < nrows; ++j) {
            for (qx_long i = 0; i + 1 < d0; ++i) {
                const qx_long b = i + d0 * j + plane * k;
                cell c = {{}, (nrows * k + j) * (d0 - 1) + i, k};
                if (solid)
                    c.nodes = {b,         b + 1,         b + 1 + d0,         b + d0,
                               b + plane, b + plane + 1, b + plane + 1 + d0, b + plane + d0};
                else
                    c.nodes = {b, b + 1, b + 1 + d0, b + d0};
                if (has_null(data, c.nodes, null))
                    ++with_null;
                else
                    take(c);
            }
        }
    }
    return with_null;
}

template <typename T, typename Take>
qx_long walk(const numbers &dims, const std::vector<T> &data, const T *null, Take take)
{
    return walk_slabs(dims, 0, dims.back() - 1, data, null, take);
}

template <typename T> bool above(const std::vector<T> &data, qx_long node, double level)
{
    return static_cast<double>(data[static_cast<size_t>(node)]) >= level;
}

// ---- level surfaces and lines ------------------------------------------------------------------------------

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
level_set surface(const numbers &dims, const std::vector<T> &data, double level, const T *null)
{
    constexpr size_t corner_of_bit[8] = {0, 1, 4, 5, 3, 2, 7, 6};
    level_set out;
    edge_numbers edges;
    out.cells_with_null = walk(dims, data, null, [&](const cell &c) {
        int index = 0;
        for (size_t bit = 0; bit < 8; ++bit)
            index |= above(data, c.nodes[corner_of_bit[bit]], level) << bit;
        if (index == 0 || index == 255) return;
        qx_long points[12];
        for (int p = 0; p < ISOninter_pts_hex[index]; ++p)
            points[p] =
                edges.number(c.nodes[ISOleft_vert_hex[index][p]], c.nodes[ISOright_vert_hex[index][p]]);
        append_triangles(index, points, c.number, &out);
    });
    out.min_node = edges.min_node;
    out.max_node = edges.max_node;
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
level_set lines(const numbers &dims, const std::vector<T> &data, double level, const T *null)
{
    level_set out;
    edge_numbers edges;
    out.cells_with_null = walk(dims, data, null, [&](const cell &c) {
        int index = 0, entries = 0;
        for (size_t corner = 0; corner < 4; ++corner)
            index |= above(data, c.nodes[corner], level) << corner;
        for (const auto &crossing : quad_crossings(index)) {
            out.connect.push_back(edges.number(c.nodes[crossing.first], c.nodes[crossing.second]));
            if (++entries % 2 == 0) out.cell.push_back(c.number);
        }
    });
    out.min_node = edges.min_node;
    out.max_node = edges.max_node;
    return out;
}

} // namespace lattice_reference
