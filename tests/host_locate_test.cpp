// Exact location and sampling: cells that really hold the point, nothing lost between them, values to the precision
// of coordinates. What a place is compared with are shape functions found anew, by solving for the functions of each
// kind's space that are 1 at one node and 0 at the others.
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include "host/cell_map.hpp"
#include "mod_util/type_switch.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <numeric>
#include <set>

namespace {

using triple = std::array<double, 3>;

// ---- shape functions found anew ------------------------------------------------------------------------------

// The functions that a kind's space is spanned by, as many as it has nodes. Parameters as those of positions; the
// pyramid's over its rational space.
std::vector<double> spanning(int kind, int order, const triple &p)
{
    const double u = p[0], v = p[1], w = p[2];
    const bool one = order == 1;
    switch (kind) {
    case CELL_LINE: return one ? std::vector<double>{1, u} : std::vector<double>{1, u, u * u};
    case CELL_TRI:
        return one ? std::vector<double>{1, u, v} : std::vector<double>{1, u, v, u * u, u * v, v * v};
    case CELL_QUAD:
        return one ? std::vector<double>{1, u, v, u * v}
                   : std::vector<double>{1, u, v, u * v, u * u, v * v, u * u * v, u * v * v};
    case CELL_TET:
        return one ? std::vector<double>{1, u, v, w}
                   : std::vector<double>{1, u, v, w, u * u, v * v, w * w, u * v, v * w, u * w};
    case CELL_PRISM: {
        if (one) return {1, u, v, w, u * w, v * w};
        std::vector<double> all;
        for (const double along : {1.0, w})
            for (const double across : {1.0, u, v, u * u, u * v, v * v})
                all.push_back(across * along);
        for (const double across : {1.0, u, v})
            all.push_back(across * w * w);
        return all;
    }
    case CELL_PYR: {
        const double s = (1 - w) / 2, q = s > 0 ? u * v / s : 0;
        if (one) return {1, u, v, w, q};
        return {1, u, v, w, q, u * u, v * v, w * w, u * w, v * w, q * w, u * q, v * q};
    }
    default: {
        std::vector<double> all = {1, u, v, w, u * v, v * w, u * w, u * v * w};
        if (one) return all;
        for (const double more : {u * u, v * v, w * w, u * u * v, u * u * w, v * v * u, v * v * w, w * w * u,
                                  w * w * v, u * u * v * w, v * v * u * w, w * w * u * v})
            all.push_back(more);
        return all;
    }
    }
}

using matrix = std::vector<std::vector<double>>;

// By elimination beside the unit matrix.
matrix inverse_of(matrix a)
{
    const size_t n = a.size();
    for (size_t r = 0; r < n; ++r) {
        a[r].resize(2 * n);
        a[r][n + r] = 1;
    }
    for (size_t c = 0; c < n; ++c) {
        size_t pivot = c;
        for (size_t r = c; r < n; ++r)
            if (std::fabs(a[r][c]) > std::fabs(a[pivot][c])) pivot = r;
        std::swap(a[c], a[pivot]);
        const double scale = 1 / a[c][c];
        EXPECT_LT(std::fabs(scale), 1e9);
        for (double &x : a[c])
            x *= scale;
        for (size_t r = 0; r < n; ++r) {
            const double factor = a[r][c];
            for (size_t k = c; r != c && factor != 0 && k < 2 * n; ++k)
                a[r][k] -= factor * a[c][k];
        }
    }
    for (std::vector<double> &row : a)
        row.erase(row.begin(), row.begin() + static_cast<long>(n));
    return a;
}

int nnodes_of(int kind, int order)
{
    return order == 1 ? cell_kinds[kind].ncorners : cell_kinds[kind].nnodes_2;
}

triple place_of_node(int kind, int node)
{
    const float *p = cell_kinds[kind].position[node];
    return {p[0], p[1], p[2]};
}

// Weights at a place in the parameters of positions: their sum over the nodes of each spanning function is that
// function at the place.
std::vector<double> reference_weights(int kind, int order, const triple &place)
{
    static std::map<std::pair<int, int>, matrix> inverses;
    const size_t n = static_cast<size_t>(nnodes_of(kind, order));
    matrix &inverse = inverses[{kind, order}];
    if (inverse.empty()) {
        matrix rows(n, std::vector<double>(n));
        for (size_t node = 0; node < n; ++node) {
            const std::vector<double> at = spanning(kind, order, place_of_node(kind, static_cast<int>(node)));
            for (size_t f = 0; f < n; ++f)
                rows[f][node] = at[f];
        }
        inverse = inverse_of(rows);
    }
    const std::vector<double> at = spanning(kind, order, place);
    std::vector<double> weights(n);
    for (size_t node = 0; node < n; ++node)
        for (size_t f = 0; f < n; ++f)
            weights[node] += inverse[node][f] * at[f];
    return weights;
}

// A random place within the cell, at least margin away from its sides in its own parameters.
triple random_place(int kind, std::mt19937_64 &random, double margin)
{
    std::uniform_real_distribution<double> unit(0, 1);
    for (;;) {
        triple p = {0, 0, 0};
        for (size_t d = 0; d < static_cast<size_t>(cell_kinds[kind].ndim); ++d)
            p[d] = static_cast<int>(d) < barycentric_axes_of(kind) ? unit(random) : 2 * unit(random) - 1;
        double least = 10;
        const cell_sides &sides = sides_of_kind[kind];
        for (int k = 0; k < sides.count; ++k) {
            const cell_side &side = sides.side[k];
            least =
                std::min(least, side.at + side.slope[0] * p[0] + side.slope[1] * p[1] + side.slope[2] * p[2]);
        }
        if (least > margin) return p;
    }
}

// From the parameters of positions to those that are handed out.
triple handed_out(int kind, triple p)
{
    if (kind != CELL_PYR) return p;
    const double s = (1 - p[2]) / 2;
    return {s > 0 ? p[0] / s : 0, s > 0 ? p[1] / s : 0, p[2]};
}

// ---- meshes and points ----------------------------------------------------------------------------------------

struct freed {
    void operator()(host_locator *locator) const { host_free_locator(locator); }
    void operator()(host_places *places) const { host_free_places(places); }
};
using locator_ptr = std::unique_ptr<host_locator, freed>;
using places_ptr = std::unique_ptr<host_places, freed>;

locator_ptr locator_of(const meshes::test_mesh &mesh, double tolerance = 0)
{
    host_locator_options options = {sizeof options, tolerance, 0};
    host_locator *locator = nullptr;
    EXPECT_EQ(host_make_locator(mesh.field, &options, &locator), HOST_DONE) << host_error();
    return locator_ptr(locator);
}

places_ptr located(const meshes::test_mesh &mesh, const std::vector<triple> &points, double tolerance = 0)
{
    const locator_ptr locator = locator_of(mesh, tolerance);
    const host_array array = {points.data(), DTYPE_DOUBLE, 3, nullptr};
    host_places *places = nullptr;
    EXPECT_EQ(host_locate(locator.get(), &array, static_cast<qx_long>(points.size()), &places), HOST_DONE)
        << host_error();
    return places_ptr(places);
}

struct mesh_cell {
    int kind, order;
    std::vector<qx_long> nodes;
};

// All cells by number, those of structured meshes in location order.
std::vector<mesh_cell> cells_of(const meshes::test_mesh &mesh)
{
    std::vector<mesh_cell> cells;
    for (size_t s = 0; s < mesh.kinds.size(); ++s) {
        const size_t n = static_cast<size_t>(nnodes_of(mesh.kinds[s], mesh.orders[s]));
        for (size_t i = 0; i < mesh.connect[s].size(); i += n)
            cells.push_back({mesh.kinds[s], mesh.orders[s],
                             std::vector<qx_long>(mesh.connect[s].begin() + static_cast<long>(i),
                                                  mesh.connect[s].begin() + static_cast<long>(i + n))});
    }
    if (mesh.ndim == 0) return cells;
    std::vector<qx_long> dims;
    for (const qx_long n : mesh.dims)
        if (n > 1) dims.push_back(n);
    const size_t naxes = dims.size();
    dims.resize(3, 1);
    const int kinds[4] = {-1, CELL_LINE, CELL_QUAD, CELL_HEX};
    const qx_long corner[8][3] = {{1, 0, 0}, {0, 0, 0}, {0, 1, 0}, {1, 1, 0},
                                  {1, 0, 1}, {0, 0, 1}, {0, 1, 1}, {1, 1, 1}};
    if (naxes == 0) return cells;
    for (qx_long k = 0; k < std::max<qx_long>(dims[2] - 1, 1); ++k)
        for (qx_long j = 0; j < std::max<qx_long>(dims[1] - 1, 1); ++j)
            for (qx_long i = 0; i < dims[0] - 1; ++i) {
                mesh_cell cell = {kinds[naxes], 1, {}};
                for (int c = 0; c < 1 << naxes; ++c)
                    cell.nodes.push_back(i + corner[c][0] +
                                         dims[0] * (j + corner[c][1] + dims[1] * (k + corner[c][2])));
                cells.push_back(cell);
            }
    return cells;
}

triple position(const meshes::test_mesh &mesh, const mesh_cell &cell, const std::vector<double> &weights)
{
    triple p = {0, 0, 0};
    for (size_t k = 0; k < weights.size(); ++k)
        for (size_t d = 0; d < 3; ++d)
            p[d] += weights[k] * meshes::at(mesh, cell.nodes[k], static_cast<int>(d));
    return p;
}

triple node_at(const meshes::test_mesh &mesh, qx_long node)
{
    return {meshes::at(mesh, node, 0), meshes::at(mesh, node, 1), meshes::at(mesh, node, 2)};
}

double linear(const triple &p)
{
    return 3 + 2 * p[0] - 5 * p[1] + 7 * p[2];
}

std::vector<double> linear_data(const meshes::test_mesh &mesh)
{
    return meshes::field_of<double>(mesh, [](double x, double y, double z) { return linear({x, y, z}); });
}

struct sampled {
    std::vector<double> values;
    std::vector<unsigned char> mask;
};

sampled sample(const places_ptr &places, const std::vector<double> &data, const double *null = nullptr)
{
    sampled out = {std::vector<double>(static_cast<size_t>(places->npoints), -1),
                   std::vector<unsigned char>(static_cast<size_t>(places->npoints), 9)};
    const host_array values = {data.data(), DTYPE_DOUBLE, 1, null};
    EXPECT_EQ(host_sample_nodes(places.get(), &values, out.values.data(), out.mask.data()), HOST_DONE);
    return out;
}

// Meshes of cells of every kind and order, and lattices of every number of axes, of some size within the unit box.
std::vector<meshes::mesh_ptr> all_meshes(double jitter)
{
    std::vector<meshes::mesh_ptr> all;
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (const int order : {1, 2})
            all.push_back(meshes::cells(kind, order, {4, 3, 3}, 7, jitter));
    all.push_back(meshes::cells(CELL_TRI, 1, {5, 4}, 3, jitter, 2));
    all.push_back(meshes::cells(CELL_QUAD, 2, {5, 4}, 3, jitter, 2));
    all.push_back(meshes::cells(CELL_LINE, 1, {9}, 3, jitter, 1));
    all.push_back(meshes::mixed({CELL_HEX, CELL_TET, CELL_PYR, CELL_PRISM}, {1, 2, 1, 2}, 2, 5));
    const std::vector<std::vector<qx_long>> shapes = {{6}, {5, 4}, {5, 1}, {4, 5, 3}, {4, 1, 3}, {1, 7, 1}};
    for (const std::vector<qx_long> &dims : shapes) {
        all.push_back(meshes::uniform(dims, 3, {0, -1, 2}, {1, 0.5, 2.75}));
        all.push_back(meshes::uniform(dims, 3, {1, 0.5, 2}, {0, -1, 2.75})); // descending axes
        all.push_back(meshes::rectilinear(dims, 3, {0, -1, 2}, {1, 0.5, 2.75}, 5));
        all.push_back(meshes::rectilinear(dims, 3, {0, 0.5, 2}, {1, -1, 2.75}, 5));
        all.push_back(meshes::curvilinear(dims, 3, {0, -1, 0}, {1, 0.5, 0.75}, 5, jitter));
    }
    return all;
}

double range_of(const std::vector<double> &values)
{
    const auto ends = std::minmax_element(values.begin(), values.end());
    return *ends.second - *ends.first;
}

// Whether the place that was found is where the point is, and in the cell.
void expect_holds(const meshes::test_mesh &mesh, const std::vector<mesh_cell> &cells,
                  const places_ptr &places, size_t i, const triple &point, double within)
{
    const qx_long number = places->cell[i];
    ASSERT_GE(number, 0) << i;
    ASSERT_LT(number, static_cast<qx_long>(cells.size()));
    const mesh_cell &cell = cells[static_cast<size_t>(number)];
    const double *uvw = places->uvw + 3 * i;
    triple place = {uvw[0], uvw[1], uvw[2]};
    if (cell.kind == CELL_PYR)
        for (size_t d = 0; d < 2; ++d)
            place[d] *= (1 - uvw[2]) / 2;
    const cell_sides &sides = sides_of_kind[cell.kind];
    for (int k = 0; k < sides.count; ++k) {
        const cell_side &side = sides.side[k];
        EXPECT_GE(side.at + side.slope[0] * place[0] + side.slope[1] * place[1] + side.slope[2] * place[2],
                  -1e-12);
    }
    const triple there = position(mesh, cell, reference_weights(cell.kind, cell.order, place));
    for (size_t d = 0; d < 3; ++d)
        EXPECT_NEAR(there[d], point[d], within) << "kind " << cell.kind << " order " << cell.order;
}

} // namespace

// ---- shape functions --------------------------------------------------------------------------------------------

TEST(ExactShapes, AreTheFunctionsOfTheirSpaces)
{
    std::mt19937_64 random(5);
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (const int order : {1, 2})
            for (int turn = 0; turn < 20; ++turn) {
                const int n = nnodes_of(kind, order), node = turn % n;
                const triple place = turn < n ? place_of_node(kind, node) : random_place(kind, random, 0.0);
                const triple uvw = handed_out(kind, place);
                double found[most_cell_nodes];
                with_shape(kind, order, [&](auto shape) {
                    decltype(shape)::values(uvw.data(), found);
                    return 0;
                });
                const std::vector<double> expected = reference_weights(kind, order, place);
                for (int k = 0; k < n; ++k) {
                    EXPECT_NEAR(found[k], expected[static_cast<size_t>(k)], 1e-11)
                        << "kind " << kind << " order " << order << " node " << k;
                    EXPECT_TRUE(turn >= n || std::fabs(found[k] - (k == node ? 1 : 0)) < 1e-11);
                }
            }
}

TEST(ExactShapes, HaveTheSlopesOfTheirValues)
{
    std::mt19937_64 random(6);
    constexpr double step = 1e-5;
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (const int order : {1, 2})
            for (int turn = 0; turn < 10; ++turn) {
                const triple place = random_place(kind, random, 0.02);
                with_shape(kind, order, [&](auto shape) {
                    using S = decltype(shape);
                    double n[S::nnodes], d[3 * S::nnodes], low[S::nnodes], high[S::nnodes],
                        none[3 * S::nnodes];
                    S::at_chart(place.data(), n, d);
                    for (size_t axis = 0; axis < static_cast<size_t>(S::ndim); ++axis) {
                        triple before = place, after = place;
                        before[axis] -= step;
                        after[axis] += step;
                        S::at_chart(before.data(), low, none);
                        S::at_chart(after.data(), high, none);
                        for (int k = 0; k < S::nnodes; ++k)
                            EXPECT_NEAR(d[static_cast<int>(axis) * S::nnodes + k],
                                        (high[k] - low[k]) / (2 * step), 1e-6)
                                << "kind " << kind << " order " << order;
                    }
                    return 0;
                });
            }
}

// ---- location -----------------------------------------------------------------------------------------------------

TEST(ExactLocation, FindsRandomPointsOfEveryCellOfEveryKind)
{
    std::mt19937_64 random(11);
    for (const double jitter : {0.0, 0.2})
        for (const meshes::mesh_ptr &mesh : all_meshes(jitter)) {
            const std::vector<mesh_cell> cells = cells_of(*mesh);
            std::vector<triple> points, places;
            std::vector<qx_long> expected;
            for (size_t c = 0; c < cells.size(); ++c)
                for (int turn = 0; turn < 4; ++turn) {
                    places.push_back(random_place(cells[c].kind, random, 1e-3));
                    points.push_back(position(
                        *mesh, cells[c], reference_weights(cells[c].kind, cells[c].order, places.back())));
                    expected.push_back(static_cast<qx_long>(c));
                }
            const places_ptr found = located(*mesh, points);
            ASSERT_EQ(found->npoints, static_cast<qx_long>(points.size()));
            for (size_t i = 0; i < points.size(); ++i) {
                const mesh_cell &cell = cells[static_cast<size_t>(expected[i])];
                ASSERT_EQ(found->cell[i], expected[i]) << "kind " << cell.kind << " order " << cell.order;
                const triple uvw = handed_out(cell.kind, places[i]);
                for (size_t d = 0; d < 3; ++d)
                    EXPECT_NEAR(found->uvw[3 * i + d], uvw[d], 2e-5)
                        << "kind " << cell.kind << " order " << cell.order << " axis " << d;
                expect_holds(*mesh, cells, found, i, points[i], 1e-6);
            }
            const std::vector<double> data = linear_data(*mesh);
            const sampled values = sample(found, data);
            for (size_t i = 0; i < points.size(); ++i) {
                EXPECT_EQ(values.mask[i], 1);
                EXPECT_NEAR(values.values[i], linear(points[i]), 1e-6 * range_of(data));
            }
        }
}

TEST(ExactLocation, FindsEachNodeInTheLowestOfItsCellsWithTheNodesOwnValue)
{
    for (const double jitter : {0.0, 0.2})
        for (const meshes::mesh_ptr &mesh : all_meshes(jitter)) {
            const std::vector<mesh_cell> cells = cells_of(*mesh);
            if (mesh->kinds.size() > 1) continue;                 // parts that meet have nodes of their own
            std::map<triple, std::pair<qx_long, qx_long>> lowest; // by place: cell and node
            for (size_t c = 0; c < cells.size(); ++c)
                for (const qx_long node : cells[c].nodes)
                    lowest.insert({node_at(*mesh, node), {static_cast<qx_long>(c), node}});
            std::vector<triple> points;
            for (const auto &node : lowest)
                points.push_back(node.first);
            const places_ptr found = located(*mesh, points);
            std::vector<double> data(static_cast<size_t>(mesh->nnodes()));
            std::iota(data.begin(), data.end(), 100.0);
            const sampled values = sample(found, data);
            size_t i = 0;
            for (const auto &node : lowest) {
                EXPECT_EQ(found->cell[i], node.second.first);
                EXPECT_NEAR(values.values[i], data[static_cast<size_t>(node.second.second)], 1e-5);
                EXPECT_EQ(values.mask[i], 1);
                ++i;
            }
        }
}

// Between nodes of a cell: on its faces, edges and in it. Rounded to float, a point may end up on either side, or
// just outside of the mesh.
TEST(ExactLocation, LosesNoPointOnFacesAndEdges)
{
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> unit(0, 1);
    for (const double jitter : {0.0, 0.2})
        for (const meshes::mesh_ptr &mesh : all_meshes(jitter)) {
            const std::vector<mesh_cell> cells = cells_of(*mesh);
            std::vector<triple> points;
            std::vector<double> expected;
            for (const mesh_cell &cell : cells)
                for (int turn = 0; turn < 6; ++turn) {
                    triple place = random_place(cell.kind, random, 0.0);
                    // moved onto one or two sides
                    const cell_sides &sides = sides_of_kind[cell.kind];
                    for (int side = turn % 2; side < 2; ++side) {
                        const cell_side &to = sides.side[random() % static_cast<uint64_t>(sides.count)];
                        double value = to.at, square = 0;
                        for (size_t d = 0; d < 3; ++d) {
                            value += to.slope[d] * place[d];
                            square += to.slope[d] * to.slope[d];
                        }
                        for (size_t d = 0; d < 3; ++d)
                            place[d] -= to.slope[d] * value / square;
                    }
                    bool inside = true;
                    for (int k = 0; k < sides.count; ++k) {
                        const cell_side &side = sides.side[k];
                        inside = inside && side.at + side.slope[0] * place[0] + side.slope[1] * place[1] +
                                                   side.slope[2] * place[2] >
                                               -1e-12;
                    }
                    if (!inside) continue;
                    triple p = position(*mesh, cell, reference_weights(cell.kind, cell.order, place));
                    for (double &x : p)
                        x = static_cast<double>(static_cast<float>(x));
                    points.push_back(p);
                }
            const places_ptr found = located(*mesh, points);
            const std::vector<double> data = linear_data(*mesh);
            const sampled values = sample(found, data);
            for (size_t i = 0; i < points.size(); ++i) {
                EXPECT_EQ(values.mask[i], 1);
                EXPECT_NEAR(values.values[i], linear(points[i]), 2e-6 * range_of(data));
                expect_holds(*mesh, cells, found, i, points[i], 2e-6);
            }
        }
}

TEST(ExactLocation, FollowsLinesAlongFacesEdgesAndThroughNodes)
{
    for (int kind = CELL_TET; kind < CELL_KINDS; ++kind)
        for (const int order : {1, 2}) {
            const meshes::mesh_ptr mesh = meshes::cells(kind, order, {4, 4, 4}, 1);
            std::vector<triple> points;
            for (const double y : {0.0, 0.25, 0.375, 0.5, 1.0})
                for (const double z : {0.0, 0.125, 0.25, 1.0})
                    for (int i = 0; i <= 64; ++i)
                        for (int axis = 0; axis < 3; ++axis) {
                            triple p = {y, z, z};
                            p[static_cast<size_t>(axis)] = i / 64.0;
                            points.push_back(p);
                            points.push_back({i / 64.0, i / 64.0, axis == 0 ? y : i / 64.0});
                        }
            const places_ptr found = located(*mesh, points);
            const std::vector<double> data = linear_data(*mesh);
            const sampled values = sample(found, data);
            for (size_t i = 0; i < points.size(); ++i) {
                ASSERT_GE(found->cell[i], 0)
                    << kind << " " << points[i][0] << " " << points[i][1] << " " << points[i][2];
                EXPECT_NEAR(values.values[i], linear(points[i]), 1e-6 * range_of(data));
            }
        }
}

// Every cell that shares a face lists all of its nodes: the lowest of them is the one that is told.
TEST(ExactLocation, PrefersTheLowestCellOnASharedFace)
{
    for (int kind = CELL_TRI; kind < CELL_KINDS; ++kind) {
        const meshes::mesh_ptr mesh = meshes::cells(kind, 1, {3, 3, 3}, 17, 0.15);
        const std::vector<mesh_cell> cells = cells_of(*mesh);
        std::map<std::set<qx_long>, std::vector<qx_long>> sides; // by nodes: the cells
        for (size_t c = 0; c < cells.size(); ++c) {
            const cell_sides &of = sides_of_kind[kind];
            for (int k = 0; k < of.count; ++k) {
                std::set<qx_long> nodes;
                for (int node = 0; node < cell_kinds[kind].ncorners; ++node) {
                    const triple p = place_of_node(kind, node);
                    const cell_side &s = of.side[k];
                    if (std::fabs(s.at + s.slope[0] * p[0] + s.slope[1] * p[1] + s.slope[2] * p[2]) < 1e-9)
                        nodes.insert(cells[c].nodes[static_cast<size_t>(node)]);
                }
                if (static_cast<int>(nodes.size()) >= cell_kinds[kind].ndim)
                    sides[nodes].push_back(static_cast<qx_long>(c));
            }
        }
        std::vector<triple> points;
        std::vector<qx_long> expected;
        for (const auto &side : sides) {
            if (side.second.size() < 2 || side.first.size() == 4)
                continue; // their middle is that of a warped face
            triple p = {0, 0, 0};
            for (const qx_long node : side.first)
                for (size_t d = 0; d < 3; ++d)
                    p[d] += node_at(*mesh, node)[d] / static_cast<double>(side.first.size());
            points.push_back(p);
            expected.push_back(side.second[0]);
        }
        const places_ptr found = located(*mesh, points);
        for (size_t i = 0; i < points.size(); ++i)
            EXPECT_EQ(found->cell[i], expected[i]) << "kind " << kind;
    }
}

TEST(ExactLocation, FindsPointsInCellsWithCurvedEdges)
{
    std::mt19937_64 random(23);
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (const double bend : {0.02, 0.05}) {
            const meshes::mesh_ptr straight = meshes::cells(kind, 2, {2, 2, 2}, 4, 0.1);
            std::vector<float> coords = straight->coords;
            std::uniform_real_distribution<float> spread(static_cast<float>(-bend), static_cast<float>(bend));
            const std::vector<mesh_cell> before = cells_of(*straight);
            std::set<qx_long> middles;
            for (const mesh_cell &cell : before)
                for (size_t k = static_cast<size_t>(cell_kinds[kind].ncorners); k < cell.nodes.size(); ++k)
                    middles.insert(cell.nodes[k]);
            for (const qx_long node : middles)
                for (int d = 0; d < std::max(cell_kinds[kind].ndim, 2); ++d)
                    coords[static_cast<size_t>(3 * node + d)] += spread(random);
            const meshes::mesh_ptr mesh = meshes::from_cells(3, coords, {kind}, {2}, {straight->connect[0]});
            const std::vector<mesh_cell> cells = cells_of(*mesh);
            std::vector<triple> points;
            for (const mesh_cell &cell : cells)
                for (int turn = 0; turn < 20; ++turn)
                    points.push_back(
                        position(*mesh, cell, reference_weights(kind, 2, random_place(kind, random, 0.0))));
            const places_ptr found = located(*mesh, points);
            for (size_t i = 0; i < points.size(); ++i)
                expect_holds(*mesh, cells, found, i, points[i], 1e-6);
        }
}

// Strongly distorted but sound: every corner is turned the right way.
TEST(ExactLocation, FindsPointsInDistortedHexahedra)
{
    std::mt19937_64 random(31);
    std::uniform_real_distribution<float> spread(-0.75f, 0.75f);
    int tried = 0;
    while (tried < 60) {
        std::vector<float> coords;
        for (int k = 0; k < 8; ++k)
            for (int d = 0; d < 3; ++d)
                coords.push_back(cell_kinds[CELL_HEX].position[k][d] + spread(random));
        const meshes::mesh_ptr mesh =
            meshes::from_cells(3, coords, {CELL_HEX}, {1}, {{0, 1, 2, 3, 4, 5, 6, 7}});
        const std::vector<mesh_cell> cells = cells_of(*mesh);
        node_map<exact_shape<CELL_HEX, 1>> map;
        for (int k = 0; k < 8; ++k)
            map.row[k] = vec3d::of(coords[static_cast<size_t>(3 * k)], coords[static_cast<size_t>(3 * k + 1)],
                                   coords[static_cast<size_t>(3 * k + 2)]);
        map.prepare();
        bool sound = true;
        for (int i = 0; i < 343; ++i) {
            const double u[3] = {i % 7 / 3.0 - 1, i / 7 % 7 / 3.0 - 1, i / 49 / 3.0 - 1};
            sound = sound && has_orientation(map, u, 1.0);
        }
        if (!sound) continue;
        ++tried;
        std::vector<triple> points;
        for (int turn = 0; turn < 200; ++turn)
            points.push_back(position(*mesh, cells[0],
                                      reference_weights(CELL_HEX, 1, random_place(CELL_HEX, random, 0.0))));
        const places_ptr found = located(*mesh, points);
        for (size_t i = 0; i < points.size(); ++i)
            expect_holds(*mesh, cells, found, i, points[i], 1e-6);
    }
}

// ---- what is not in a cell, or not quite ----------------------------------------------------------------------

TEST(ExactLocation, GivesPointsNearbyToTheNearestCellWithinTheTolerance)
{
    const meshes::mesh_ptr solids = meshes::cells(CELL_HEX, 1, {3, 3, 3}, 1);
    const meshes::mesh_ptr lattice = meshes::uniform({4, 4, 4}, 3, {0, 0, 0}, {1, 1, 1});
    const meshes::mesh_ptr axes = meshes::rectilinear({4, 4, 4}, 3, {1, 1, 1}, {0, 0, 0}, 4);
    for (const meshes::mesh_ptr &mesh : {std::cref(solids), std::cref(lattice), std::cref(axes)}) {
        const std::vector<triple> points = {{-0.009, 0.5, 0.5}, {0.5, 1.009, 0.4}, {1.009, 1.009, -0.009},
                                            {-0.011, 0.5, 0.5}, {0.5, 0.5, 1.02},  {0.5, 0.5, 0.5}};
        const places_ptr near = located(*mesh, points, 0.01);
        for (size_t i = 0; i < points.size(); ++i)
            EXPECT_EQ(near->cell[i] >= 0, i != 3 && i != 4) << i;
        const sampled values = sample(near, linear_data(*mesh));
        EXPECT_NEAR(values.values[0], linear({0, 0.5, 0.5}), 1e-5); // at the nearest place of the cell
        EXPECT_NEAR(values.values[2], linear({1, 1, 0}), 1e-5);
        EXPECT_EQ(values.values[3], 0);
        const places_ptr only = located(*mesh, points, -1);
        for (size_t i = 0; i < points.size(); ++i)
            EXPECT_EQ(only->cell[i] >= 0, i == 5) << i;
    }
}

TEST(ExactLocation, GivesAPointBetweenCellsToTheNearerOne)
{
    // two tetrahedra with a gap of 0.1 in x
    const std::vector<float> coords = {0,    0, 0, 1, 0, 0, 1,    1, 0, 1,    0, 1,
                                       1.1f, 0, 0, 2, 0, 0, 1.1f, 1, 0, 1.1f, 0, 1};
    const meshes::mesh_ptr mesh = meshes::from_cells(3, coords, {CELL_TET}, {1}, {{1, 2, 3, 0, 5, 6, 7, 4}});
    const places_ptr found = located(*mesh, {{1.03, 0.2, 0.2}, {1.07, 0.2, 0.2}, {1.05, 5, 0}}, 0.08);
    EXPECT_EQ(found->cell[0], 0);
    EXPECT_EQ(found->cell[1], 1);
    EXPECT_EQ(found->cell[2], -1);
}

TEST(ExactLocation, FindsNothingForPointsThatAreNowhere)
{
    const double nan = std::numeric_limits<double>::quiet_NaN(),
                 far = std::numeric_limits<double>::infinity();
    for (const meshes::mesh_ptr &mesh : all_meshes(0.1)) {
        const places_ptr found = located(*mesh, {{nan, 0.1, 0.1},
                                                 {0.1, nan, nan},
                                                 {far, 0, 0},
                                                 {0, -far, 0},
                                                 {1e300, 1e300, 1e300},
                                                 {9, 9, 9},
                                                 {-9, 0.1, 2.1}});
        for (qx_long i = 0; i < found->npoints; ++i)
            EXPECT_EQ(found->cell[i], -1) << i;
    }
}

TEST(ExactLocation, FindsPointsOffAFlatMeshOnlyWithinTheTolerance)
{
    for (const int kind : {CELL_TRI, CELL_QUAD})
        for (const int order : {1, 2}) {
            const meshes::mesh_ptr mesh = meshes::cells(kind, order, {3, 3}, 2, 0.1);
            const places_ptr found =
                located(*mesh, {{0.5, 0.5, 0}, {0.5, 0.5, 0.004}, {0.5, 0.5, 0.006}}, 0.005);
            EXPECT_GE(found->cell[0], 0);
            EXPECT_EQ(found->cell[1], found->cell[0]);
            EXPECT_EQ(found->cell[2], -1);
        }
    const meshes::mesh_ptr lattice = meshes::uniform({4, 3, 1}, 3, {0, 0, 2}, {1, 1, 2});
    const places_ptr found = located(*lattice, {{0.5, 0.5, 2}, {0.5, 0.5, 2.004}, {0.5, 0.5, 2.006}}, 0.005);
    EXPECT_EQ(found->cell[0], 1);
    EXPECT_EQ(found->cell[1], 1);
    EXPECT_EQ(found->cell[2], -1);
}

TEST(ExactLocation, TakesNoPointIntoCellsThatHaveNoExtentOrNoPlace)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // a flat tetrahedron, one with a node nowhere, and a sound one
    const meshes::mesh_ptr mesh =
        meshes::from_cells(3, {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0, 0, 0, 1, nan, 0, 0}, {CELL_TET}, {1},
                           {{0, 1, 2, 3, 0, 1, 2, 5, 1, 2, 4, 0}});
    const places_ptr found = located(*mesh, {{0.2, 0.2, 0.2}, {0.2, 0.2, 0}, {0.9, 0.9, 0}}, -1);
    EXPECT_EQ(found->cell[0], 2);
    EXPECT_EQ(found->cell[1], 2);
    EXPECT_EQ(found->cell[2], -1);
}

TEST(ExactLocation, TakesCollapsedHexahedraForWhatTheyAre)
{
    // a prism given as a hexahedron with two edges of one node each
    const meshes::mesh_ptr mesh =
        meshes::from_cells(3, {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 0, 1, 1}, {CELL_HEX}, {1},
                           {{3, 3, 4, 5, 0, 0, 1, 2}});
    std::vector<triple> points;
    for (const double x : {0.0, 0.1, 0.5, 0.9})
        for (const double z : {0.0, 0.3, 1.0})
            points.push_back({x, (1 - x) / 2, z});
    points.push_back({0, 0, 0.4});
    points.push_back({0, 0, 1});
    const places_ptr found = located(*mesh, points);
    const sampled values = sample(found, linear_data(*mesh));
    for (size_t i = 0; i < points.size(); ++i) {
        EXPECT_EQ(found->cell[i], 0) << i;
        EXPECT_NEAR(values.values[i], linear(points[i]), 2e-5);
    }
}

TEST(ExactLocation, ServesMeshesWithoutCellsAndListsWithoutPoints)
{
    const meshes::mesh_ptr empty = meshes::from_cells(3, {}, {}, {}, {});
    const meshes::mesh_ptr nodes = meshes::from_cells(3, {1, 2, 3}, {CELL_HEX}, {1}, {{}});
    const meshes::mesh_ptr one = meshes::uniform({1, 1, 1}, 3, {0, 0, 0}, {0, 0, 0});
    for (const meshes::mesh_ptr &mesh : {std::cref(empty), std::cref(nodes), std::cref(one)}) {
        EXPECT_EQ(located(*mesh, {{0, 0, 0}, {1, 2, 3}})->cell[0], -1);
        EXPECT_EQ(located(*mesh, {})->npoints, 0);
    }
}

TEST(ExactLocation, ReadsFloatsAndDoublesOfAnyRowLength)
{
    const meshes::mesh_ptr mesh = meshes::uniform({9}, 1, {0}, {8});
    const locator_ptr locator = locator_of(*mesh);
    const float floats[4] = {0.5f, 3.25f, 8, 8.5f};
    const double pairs[8] = {0.5, 0, 3.25, 0, 8, 0, 3, 1};
    host_places *places = nullptr;
    const host_array singles = {floats, DTYPE_FLOAT, 1, nullptr}, rows = {pairs, DTYPE_DOUBLE, 2, nullptr};
    const qx_long expected[4] = {0, 3, 7, -1};
    for (const host_array *points : {&singles, &rows}) {
        ASSERT_EQ(host_locate(locator.get(), points, 4, &places), HOST_DONE);
        const places_ptr held(places);
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(places->cell[i], expected[i]) << i;
    }
}

// Nodes as the program works them out may differ from the mesh's in the last place.
TEST(ExactLocation, FindsNodesOfEvenAxesThatAreARoundingAway)
{
    const meshes::mesh_ptr mesh = meshes::uniform({1001}, 1, {0.1f}, {7.3f});
    std::vector<triple> points;
    for (int i = 0; i <= 1000; ++i)
        for (const float to : {-9.0f, 9.0f})
            points.push_back(
                {static_cast<double>(std::nextafter(mesh->coords[static_cast<size_t>(i)], to)), 0, 0});
    const places_ptr found = located(*mesh, points);
    for (size_t i = 0; i < points.size(); ++i) {
        EXPECT_EQ(found->cell[i], std::max<qx_long>(static_cast<qx_long>(i) / 2 - 1, 0));
        EXPECT_EQ(found->uvw[3 * i], i < 2 ? 1 : -1); // the second node of a line is the lower one
    }
}

TEST(ExactLocation, LocatesLongListsInBatchesAsItDoesShortOnes)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_TET, 1, {3, 3, 3}, 2, 0.1);
    const std::vector<float> few = meshes::random_values<float>(4, 3 * 1000, -0.1, 1.1);
    std::vector<float> many;
    while (many.size() < 3 * ((size_t{1} << 20) + 5000))
        many.insert(many.end(), few.begin(), few.end());
    const locator_ptr locator = locator_of(*mesh);
    host_places *made = nullptr;
    const host_array some = {few.data(), DTYPE_FLOAT, 3, nullptr},
                     all = {many.data(), DTYPE_FLOAT, 3, nullptr};
    ASSERT_EQ(host_locate(locator.get(), &some, 1000, &made), HOST_DONE);
    const places_ptr short_list(made);
    ASSERT_EQ(host_locate(locator.get(), &all, static_cast<qx_long>(many.size() / 3), &made), HOST_DONE);
    const places_ptr long_list(made);
    qx_long apart = 0;
    for (qx_long i = 0; i < long_list->npoints; ++i)
        apart += long_list->cell[i] != short_list->cell[i % 1000] ||
                 memcmp(long_list->uvw + 3 * i, short_list->uvw + i % 1000 * 3, 3 * sizeof(double)) != 0;
    EXPECT_EQ(apart, 0);
}

// ---- sampling -------------------------------------------------------------------------------------------------------

namespace {

template <typename T> struct type_code;
#define ONE_CODE(code, T, suffix)          \
    template <> struct type_code<T> {      \
        static constexpr int value = code; \
    };
FOR_EACH_DTYPE(ONE_CODE)

template <typename T> class ExactSampling : public testing::Test {
};
using types = testing::Types<signed char, unsigned char, short, int, float, double, qx_long>;
TYPED_TEST_SUITE(ExactSampling, types);

std::vector<triple> random_points(qx_long count, uint64_t seed)
{
    const std::vector<double> values = meshes::random_values<double>(seed, 3 * count, 0.01, 0.99);
    std::vector<triple> points(static_cast<size_t>(count));
    for (size_t i = 0; i < points.size(); ++i)
        points[i] = {values[3 * i], values[3 * i + 1], values[3 * i + 2]};
    return points;
}

template <typename T>
void sample_as(const places_ptr &places, const std::vector<T> &data, int veclen, const T *null,
               std::vector<T> *out, std::vector<unsigned char> *mask)
{
    out->assign(static_cast<size_t>(places->npoints * veclen), T{77});
    mask->assign(static_cast<size_t>(places->npoints), 9);
    const host_array values = {data.data(), type_code<T>::value, veclen, null};
    ASSERT_EQ(host_sample_nodes(places.get(), &values, out->data(), mask->data()), HOST_DONE);
}

} // namespace

TYPED_TEST(ExactSampling, BringsConstantsBackAsTheyAre)
{
    using T = TypeParam;
    std::vector<T> constants = {std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max(), T{1}};
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (const int order : {1, 2}) {
            const meshes::mesh_ptr mesh = meshes::cells(kind, order, {3, 3, 3}, 2, 0.1);
            std::vector<triple> points = random_points(50, 3);
            for (triple &p : points)
                for (size_t d = static_cast<size_t>(cell_kinds[kind].ndim); d < 3; ++d)
                    p[d] = 0;
            const places_ptr places = located(*mesh, points, kind == CELL_TRI || kind < CELL_TET ? 0.2 : 0);
            for (const T constant : constants) {
                std::vector<T> out;
                std::vector<unsigned char> mask;
                sample_as<T>(places, std::vector<T>(static_cast<size_t>(mesh->nnodes()), constant), 1,
                             nullptr, &out, &mask);
                for (size_t i = 0; i < out.size(); ++i) {
                    EXPECT_EQ(mask[i], places->cell[i] >= 0 ? 1 : 0);
                    EXPECT_EQ(out[i], places->cell[i] >= 0 ? constant : T{0});
                }
            }
        }
}

// Rows of three, of which each component is on its own.
TYPED_TEST(ExactSampling, WeighsNodesInDoubleAndRoundsIntegersToTheNearest)
{
    using T = TypeParam;
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 2, {3, 3, 3}, 2, 0.1);
    const places_ptr places = located(*mesh, random_points(300, 5));
    const std::vector<T> data = meshes::random_values<T>(6, 3 * mesh->nnodes(), 0, 100);
    std::vector<T> out;
    std::vector<unsigned char> mask;
    sample_as<T>(places, data, 3, nullptr, &out, &mask);
    int inside = 0;
    for (qx_long i = 0; i < places->npoints; ++i) {
        qx_long nodes[20];
        double weights[20];
        const int n = host_place_weights(places.get(), i, nodes, weights);
        EXPECT_EQ(n > 0, places->cell[i] >= 0);
        inside += n > 0;
        EXPECT_EQ(mask[static_cast<size_t>(i)], n > 0);
        for (int c = 0; n > 0 && c < 3; ++c) {
            double sum = 0;
            for (int k = 0; k < n; ++k)
                sum += weights[k] * static_cast<double>(data[static_cast<size_t>(nodes[k] * 3 + c)]);
            if (std::is_unsigned_v<T>) sum = std::max(sum, 0.0);
            const double slack = std::is_integral_v<T> ? 0.5 + 1e-9 : sizeof(T) == 4 ? 1e-5 : 1e-11;
            EXPECT_NEAR(static_cast<double>(out[static_cast<size_t>(3 * i + c)]), sum, slack);
        }
    }
    EXPECT_GT(inside, 250);
}

TYPED_TEST(ExactSampling, MasksNullsAndTellsNothingByValues)
{
    using T = TypeParam;
    const meshes::mesh_ptr mesh = meshes::uniform({5, 5, 5}, 3, {0, 0, 0}, {4, 4, 4});
    std::vector<T> data(static_cast<size_t>(mesh->nnodes()), T{5});
    const T null = std::numeric_limits<T>::max();
    data[62] = null; // the node in the middle, (2, 2, 2)
    const places_ptr places = located(*mesh, {{1.5, 1.5, 1.5},
                                              {2.5, 2.5, 2.5},
                                              {0.5, 0.5, 0.5},
                                              {2, 2, 2},
                                              {1, 1, 1},     // a node of a cell with a null node
                                              {1, 1.5, 1.5}, // on a face of one that the null node is not on
                                              {2, 1.5, 1.5}, // on one that it is on
                                              {9, 9, 9}});
    std::vector<T> out;
    std::vector<unsigned char> mask;
    sample_as<T>(places, data, 1, &null, &out, &mask);
    EXPECT_EQ(mask, (std::vector<unsigned char>{0, 0, 1, 0, 1, 1, 0, 0}));
    EXPECT_EQ(out, (std::vector<T>{0, 0, 5, 0, 5, 5, 0, 0}));
    sample_as<T>(places, data, 1, nullptr, &out, &mask); // null is a value like any other
    EXPECT_EQ(mask, (std::vector<unsigned char>{1, 1, 1, 1, 1, 1, 1, 0}));
    EXPECT_EQ(out[3], null);
}

TYPED_TEST(ExactSampling, CopiesTheRowsOfCells)
{
    using T = TypeParam;
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_HEX, CELL_TET}, {1, 1}, 2, 3);
    const std::vector<T> data = meshes::random_values<T>(6, 2 * mesh->mesh->ncells, 0, 100);
    const T null = data[2 * 9];
    const places_ptr places = located(*mesh, {{0.1, 0.1, 0.1}, {0.9, 0.9, 0.9}, {1.3, 0.2, 0.3}, {7, 0, 0}});
    std::vector<T> out(8, T{77});
    std::vector<unsigned char> mask(4, 9);
    const host_array values = {data.data(), type_code<T>::value, 2, &null};
    ASSERT_EQ(host_sample_cells(places.get(), &values, out.data(), mask.data()), HOST_DONE);
    for (size_t i = 0; i < 4; ++i) {
        const qx_long cell = places->cell[i];
        const bool has_value = cell >= 0 && data[static_cast<size_t>(2 * cell)] != null;
        EXPECT_EQ(mask[i], has_value);
        for (size_t c = 0; c < 2; ++c)
            EXPECT_EQ(out[2 * i + c], has_value ? data[static_cast<size_t>(2 * cell) + c] : T{0});
    }
}

TEST(ExactSamples, OfLargeIntegersAreExactWhereTheyCanBe)
{
    const meshes::mesh_ptr mesh = meshes::uniform({3}, 1, {0}, {2});
    const qx_long large = (qx_long{1} << 62) + 12345;
    const qx_long data[3] = {large, large + 10, std::numeric_limits<qx_long>::min()};
    const places_ptr places = located(*mesh, {{0, 0, 0}, {0.5, 0, 0}, {1, 0, 0}, {0.25, 0, 0}, {1.5, 0, 0}});
    qx_long out[5];
    unsigned char mask[5];
    const host_array values = {data, DTYPE_QX_LONG, 1, nullptr};
    ASSERT_EQ(host_sample_nodes(places.get(), &values, out, mask), HOST_DONE);
    EXPECT_EQ(out[0], large);
    EXPECT_EQ(out[1], large + 5);
    EXPECT_EQ(out[2], large + 10);
    EXPECT_EQ(out[3], large + 2);
    EXPECT_NEAR(static_cast<double>(out[4]), -2305843009213688000.0, 1e4);
}

TEST(ExactSamples, OfNodesThatTakeNoPartDoNotReachTheValue)
{
    const double nan = std::numeric_limits<double>::quiet_NaN(), far = std::numeric_limits<double>::max();
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {2, 1, 1}, 1);
    std::vector<double> data;
    for (qx_long node = 0; node < mesh->nnodes(); ++node)
        data.push_back(meshes::at(*mesh, node, 0) > 0.9   ? nan
                       : meshes::at(*mesh, node, 0) > 0.4 ? far
                                                          : -far);
    const places_ptr places = located(*mesh, {{0.5, 0.5, 0.5}, {0.75, 0.5, 0.5}, {0.25, 0.3, 0.3}});
    const sampled values = sample(places, data);
    EXPECT_EQ(values.values[0], far);
    EXPECT_TRUE(std::isnan(values.values[1]));
    EXPECT_NEAR(values.values[2] / far, 0, 1e-12); // the difference of the two is beyond a double
}

// ---- failures -------------------------------------------------------------------------------------------------------

TEST(ExactLocation, RefusesWhatIsNoListOfPoints)
{
    const meshes::mesh_ptr mesh = meshes::uniform({3}, 1, {0}, {2});
    const locator_ptr locator = locator_of(*mesh);
    const float points[6] = {};
    host_places *places = nullptr;
    const auto refused = [&](const void *data, int type, int veclen, qx_long n, const char *text) {
        const host_array array = {data, type, veclen, nullptr};
        EXPECT_EQ(host_locate(locator.get(), &array, n, &places), HOST_FAILED);
        EXPECT_EQ(places, nullptr);
        EXPECT_STREQ(host_error(), text);
    };
    refused(points, DTYPE_INT, 3, 1, "host_locate: points are float or double");
    refused(points, DTYPE_FLOAT, 4, 1, "host_locate: points have 4 coordinates, but a point has 1 to 3");
    refused(points, DTYPE_FLOAT, 0, 1, "host_locate: points have 0 coordinates, but a point has 1 to 3");
    refused(nullptr, DTYPE_FLOAT, 3, 1, "host_locate: points is NULL");
    refused(points, DTYPE_FLOAT, 3, -1, "host_locate: npoints is negative");
    EXPECT_EQ(host_locate(nullptr, nullptr, 0, &places), HOST_FAILED);
    host_locator *made = nullptr;
    host_locator_options options = {sizeof options, std::numeric_limits<double>::quiet_NaN(), 0};
    EXPECT_EQ(host_make_locator(mesh->field, &options, &made), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_make_locator: the tolerance is nan, but it is finite");
    EXPECT_EQ(host_make_locator(nullptr, nullptr, &made), HOST_FAILED);
    options = {0, 5.0, 0}; // a record of no size has no options
    EXPECT_EQ(host_make_locator(mesh->field, &options, &made), HOST_DONE);
    const locator_ptr held(made);
    const host_array outside = {points, DTYPE_FLOAT, 1, nullptr};
    const float beyond = 3;
    const host_array one = {&beyond, DTYPE_FLOAT, 1, nullptr};
    ASSERT_EQ(host_locate(made, &one, 1, &places), HOST_DONE);
    EXPECT_EQ(places->cell[0], -1);
    host_free_places(places);
    EXPECT_EQ(outside.veclen, 1);
}

TEST(ExactSamples, RefuseWhatIsNoArray)
{
    const meshes::mesh_ptr mesh = meshes::uniform({3}, 1, {0}, {2});
    const places_ptr places = located(*mesh, {{1, 0, 0}});
    const float data[3] = {};
    float out;
    const host_array sound = {data, DTYPE_FLOAT, 1, nullptr}, untyped = {data, 9, 1, nullptr},
                     no_row = {data, DTYPE_FLOAT, 0, nullptr}, no_data = {nullptr, DTYPE_FLOAT, 1, nullptr};
    for (const auto call : {host_sample_nodes, host_sample_cells}) {
        EXPECT_EQ(call(places.get(), &untyped, &out, nullptr), HOST_FAILED);
        EXPECT_NE(std::string(host_error()).find("9 is no element type"), std::string::npos);
        EXPECT_EQ(call(places.get(), &no_row, &out, nullptr), HOST_FAILED);
        EXPECT_EQ(call(places.get(), &no_data, &out, nullptr), HOST_FAILED);
        EXPECT_EQ(call(places.get(), nullptr, &out, nullptr), HOST_FAILED);
        EXPECT_EQ(call(nullptr, &sound, &out, nullptr), HOST_FAILED);
        EXPECT_EQ(call(places.get(), &sound, nullptr, nullptr), HOST_FAILED);
        EXPECT_EQ(call(places.get(), &sound, &out, nullptr), HOST_DONE); // no mask is wanted
    }
}
