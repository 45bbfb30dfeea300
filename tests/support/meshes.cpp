#include "support/meshes.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <stdexcept>

namespace meshes {
namespace {

using point = std::array<double, 3>;

void require(bool holds)
{
    if (!holds) throw std::runtime_error(std::string("no mesh: ") + host_error());
}

qx_long product(const std::vector<qx_long> &dims)
{
    qx_long nodes = 1;
    for (qx_long n : dims)
        nodes *= n;
    return nodes;
}

// The coordinates of a lattice from its axes, axis 0 fastest; axes beyond dims are constant.
std::vector<float> lattice_coords(const std::vector<qx_long> &dims, int nspace,
                                  const std::vector<std::vector<float>> &axes)
{
    std::vector<float> coords;
    for (qx_long node = 0; node < product(dims); ++node) {
        qx_long rest = node;
        for (int d = 0; d < nspace; ++d) {
            const size_t axis = static_cast<size_t>(d);
            const qx_long n = axis < dims.size() ? dims[axis] : 1;
            coords.push_back(axes[axis][static_cast<size_t>(rest % n)]);
            rest /= n;
        }
    }
    return coords;
}

std::vector<std::vector<float>> even_axes(const std::vector<qx_long> &dims, int nspace,
                                          const std::vector<float> &lo, const std::vector<float> &hi)
{
    std::vector<std::vector<float>> axes;
    for (int d = 0; d < nspace; ++d) {
        const size_t axis = static_cast<size_t>(d);
        const qx_long n = axis < dims.size() ? dims[axis] : 1;
        std::vector<float> values;
        for (qx_long i = 0; i < n; ++i)
            values.push_back(
                n == 1
                    ? lo[axis]
                    : static_cast<float>(i) * ((hi[axis] - lo[axis]) / static_cast<float>(n - 1)) + lo[axis]);
        axes.push_back(values);
    }
    return axes;
}

mesh_ptr bound(mesh_ptr made)
{
    require(made->field != nullptr);
    made->mesh = host_mesh(made->field);
    require(made->mesh != nullptr);
    return made;
}

// A corner mesh under construction: nodes by position, so that cells share them.
struct builder {
    std::map<point, qx_long> numbers;
    std::vector<point> nodes;

    qx_long node(const point &p)
    {
        const auto found = numbers.find(p);
        if (found != numbers.end()) return found->second;
        const qx_long number = static_cast<qx_long>(nodes.size());
        numbers[p] = number;
        nodes.push_back(p);
        return number;
    }
};

// Corner positions of the kind's cells within a unit cube, in node order.
std::vector<std::vector<point>> cells_of_cube(int kind)
{
    const cell_kind_nodes &info = cell_kinds[kind];
    std::vector<std::vector<point>> cells;
    const auto from_parameters = [&](auto place) {
        std::vector<point> cell;
        for (int c = 0; c < info.ncorners; ++c)
            cell.push_back(place(point{info.position[c][0], info.position[c][1], info.position[c][2]}));
        cells.push_back(cell);
    };
    switch (kind) {
    case CELL_LINE: from_parameters([](point p) { return point{(p[0] + 1) / 2, 0, 0}; }); break;
    case CELL_QUAD: from_parameters([](point p) { return point{(p[0] + 1) / 2, (p[1] + 1) / 2, 0}; }); break;
    case CELL_HEX:
        from_parameters([](point p) { return point{(p[0] + 1) / 2, (p[1] + 1) / 2, (p[2] + 1) / 2}; });
        break;
    case CELL_TRI:
        from_parameters([](point p) { return point{p[0], p[1], 0}; });
        from_parameters([](point p) { return point{1 - p[0], 1 - p[1], 0}; });
        break;
    case CELL_PRISM:
        from_parameters([](point p) { return point{p[0], p[1], (p[2] + 1) / 2}; });
        from_parameters([](point p) { return point{1 - p[0], 1 - p[1], (p[2] + 1) / 2}; });
        break;
    case CELL_TET: {
        std::array<int, 3> axis = {0, 1, 2};
        do {
            // Along the axes in this order from the lowest corner to the highest; the last node of a cell
            // is its parametric origin.
            point corner = {0, 0, 0};
            std::vector<point> path = {corner};
            for (int a : axis) {
                corner[static_cast<size_t>(a)] = 1;
                path.push_back(corner);
            }
            const bool even = (axis[1] - axis[0] + 3) % 3 == 1;
            cells.push_back(even ? std::vector<point>{path[1], path[2], path[3], path[0]}
                                 : std::vector<point>{path[2], path[1], path[3], path[0]});
        } while (std::next_permutation(axis.begin(), axis.end()));
        break;
    }
    case CELL_PYR:
        for (int axis = 0; axis < 3; ++axis) {
            for (int side = 0; side < 2; ++side) {
                const size_t a = static_cast<size_t>(axis), b = (a + 1) % 3, c = (a + 2) % 3;
                std::vector<point> cell = {point{0.5, 0.5, 0.5}};
                const double ring[4][2] = {{1, 1}, {0, 1}, {0, 0}, {1, 0}};
                for (const auto &at_face : ring) {
                    point p;
                    p[a] = side;
                    p[b] = side == 0 ? at_face[0] : at_face[1]; // around the face as seen from the apex
                    p[c] = side == 0 ? at_face[1] : at_face[0];
                    cell.push_back(p);
                }
                cells.push_back(cell);
            }
        }
        break;
    default: break;
    }
    return cells;
}

// The two corners between which each further node of a second-order kind stands.
std::vector<std::array<int, 2>> edges_of(int kind)
{
    const cell_kind_nodes &info = cell_kinds[kind];
    std::vector<std::array<int, 2>> edges;
    for (int node = info.ncorners; node < info.nnodes_2; ++node) {
        std::array<int, 2> edge = {-1, -1};
        for (int a = 0; a < info.ncorners; ++a) {
            for (int b = a + 1; b < info.ncorners; ++b) {
                bool middle = true;
                for (int d = 0; d < 3; ++d)
                    middle =
                        middle && (info.position[a][d] + info.position[b][d]) / 2 == info.position[node][d];
                if (middle && edge[0] < 0) edge = {a, b};
            }
        }
        edges.push_back(edge);
    }
    return edges;
}

} // namespace

mesh_ptr uniform(std::vector<qx_long> dims, int nspace, std::vector<float> lo, std::vector<float> hi)
{
    mesh_ptr made(new test_mesh);
    made->ndim = static_cast<int>(dims.size());
    made->nspace = nspace;
    made->dims = dims;
    for (const std::vector<float> *corner : {&lo, &hi})
        for (int d = 0; d < nspace; ++d)
            made->corners.push_back((*corner)[static_cast<size_t>(d)]);
    made->coords = lattice_coords(dims, nspace, even_axes(dims, nspace, lo, hi));
    made->field = host_uniform(made->ndim, made->dims.data(), nspace, made->corners.data());
    return bound(std::move(made));
}

mesh_ptr rectilinear(std::vector<qx_long> dims, int nspace, std::vector<float> lo, std::vector<float> hi,
                     uint64_t seed)
{
    mesh_ptr made(new test_mesh);
    made->ndim = static_cast<int>(dims.size());
    made->nspace = nspace;
    made->dims = dims;
    made->axes = even_axes(dims, nspace, lo, hi);
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<float> spread(-0.3f, 0.3f);
    for (size_t d = 0; d < dims.size(); ++d)
        for (size_t i = 1; i + 1 < made->axes[d].size(); ++i)
            made->axes[d][i] += spread(random) * (hi[d] - lo[d]) / static_cast<float>(dims[d] - 1);
    made->coords = lattice_coords(dims, nspace, made->axes);
    std::vector<const float *> axes;
    for (const std::vector<float> &axis : made->axes)
        axes.push_back(axis.data());
    made->field = host_rectilinear(made->ndim, made->dims.data(), nspace, axes.data());
    return bound(std::move(made));
}

mesh_ptr curvilinear(std::vector<qx_long> dims, int nspace, std::vector<float> lo, std::vector<float> hi,
                     uint64_t seed, double jitter)
{
    mesh_ptr made(new test_mesh);
    made->ndim = static_cast<int>(dims.size());
    made->nspace = nspace;
    made->dims = dims;
    made->coords = lattice_coords(dims, nspace, even_axes(dims, nspace, lo, hi));
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> spread(-jitter, jitter);
    for (qx_long node = 0; node < product(dims); ++node) {
        qx_long rest = node;
        bool inner = true;
        for (qx_long n : dims) {
            inner = inner && rest % n > 0 && rest % n < n - 1;
            rest /= n;
        }
        for (size_t d = 0; inner && d < dims.size(); ++d)
            made->coords[static_cast<size_t>(node * nspace) + d] +=
                static_cast<float>(spread(random) * (hi[d] - lo[d]) / static_cast<double>(dims[d] - 1));
    }
    made->field = host_curvilinear(made->ndim, made->dims.data(), nspace, made->coords.data());
    return bound(std::move(made));
}

mesh_ptr from_cells(int nspace, std::vector<float> coords, std::vector<int> kinds, std::vector<int> orders,
                    std::vector<std::vector<qx_long>> connect)
{
    mesh_ptr made(new test_mesh);
    made->nspace = nspace;
    made->coords = std::move(coords);
    made->kinds = std::move(kinds);
    made->orders = std::move(orders);
    made->connect = std::move(connect);
    made->field = host_cells(made->nnodes(), nspace, made->coords.data());
    require(made->field != nullptr);
    for (size_t s = 0; s < made->kinds.size(); ++s) {
        const cell_kind_nodes &info = cell_kinds[made->kinds[s]];
        const int nnodes = made->orders[s] == 1 ? info.ncorners : info.nnodes_2;
        require(host_add_cells(made->field, made->kinds[s], made->orders[s],
                               static_cast<qx_long>(made->connect[s].size()) / nnodes,
                               made->connect[s].data()) == 1);
    }
    return bound(std::move(made));
}

mesh_ptr mixed(const std::vector<int> &kinds, const std::vector<int> &orders, int n, uint64_t seed,
               double jitter)
{
    std::vector<float> coords;
    std::vector<std::vector<qx_long>> connect;
    for (size_t s = 0; s < kinds.size(); ++s) {
        const mesh_ptr part = cells(kinds[s], orders[s], {n, n, n}, seed + s, jitter);
        const qx_long first = static_cast<qx_long>(coords.size()) / 3;
        for (size_t c = 0; c < part->coords.size(); ++c)
            coords.push_back(part->coords[c] + (c % 3 == 0 ? static_cast<float>(s) : 0.0f));
        connect.push_back(part->connect[0]);
        for (qx_long &node : connect.back())
            node += first;
    }
    return from_cells(3, std::move(coords), kinds, orders, std::move(connect));
}

mesh_ptr cells(int kind, int order, std::vector<int> n, uint64_t seed, double jitter, int nspace)
{
    const cell_kind_nodes &info = cell_kinds[kind];
    n.resize(3, 1);
    for (int d = info.ndim; d < 3; ++d)
        n[static_cast<size_t>(d)] = 1;

    // Corners at twice their lattice position, so that the centres of cubes have whole numbers too.
    builder built;
    std::vector<std::vector<qx_long>> corner_rows;
    const std::vector<std::vector<point>> in_cube = cells_of_cube(kind);
    for (int k = 0; k < n[2]; ++k)
        for (int j = 0; j < n[1]; ++j)
            for (int i = 0; i < n[0]; ++i)
                for (const std::vector<point> &cell : in_cube) {
                    std::vector<qx_long> row;
                    for (const point &p : cell)
                        row.push_back(built.node({2 * (i + p[0]), 2 * (j + p[1]), 2 * (k + p[2])}));
                    corner_rows.push_back(row);
                }

    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> spread(-jitter, jitter);
    std::vector<float> coords;
    for (const point &p : built.nodes)
        for (int d = 0; d < nspace; ++d) {
            const size_t axis = static_cast<size_t>(d);
            const double moved = d < info.ndim ? p[axis] / 2 + spread(random) : p[axis] / 2;
            coords.push_back(static_cast<float>(moved / n[axis]));
        }

    const std::vector<std::array<int, 2>> edges = edges_of(kind);
    std::map<std::array<qx_long, 2>, qx_long> middles;
    std::vector<qx_long> connect;
    for (const std::vector<qx_long> &row : corner_rows) {
        connect.insert(connect.end(), row.begin(), row.end());
        for (size_t e = 0; order == 2 && e < edges.size(); ++e) {
            const qx_long a = row[static_cast<size_t>(edges[e][0])],
                          b = row[static_cast<size_t>(edges[e][1])];
            const auto added = middles.insert({{std::min(a, b), std::max(a, b)}, 0});
            if (added.second) {
                added.first->second = static_cast<qx_long>(coords.size()) / nspace;
                for (int d = 0; d < nspace; ++d)
                    coords.push_back((coords[static_cast<size_t>(a * nspace + d)] +
                                      coords[static_cast<size_t>(b * nspace + d)]) /
                                     2);
            }
            connect.push_back(added.first->second);
        }
    }
    return from_cells(nspace, std::move(coords), {kind}, {order}, {std::move(connect)});
}

} // namespace meshes
