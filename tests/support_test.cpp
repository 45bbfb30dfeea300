// The tests' own tools: mesh builders make sound meshes, and what watches the host and the allocator sees
// and does what it says.
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <map>
#include <set>
#include <stdexcept>
#include <thread>

namespace {

using point = std::array<double, 3>;
using face = std::vector<int>; // corners in turn, outwards by the right-hand rule

point minus(const point &a, const point &b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

point cross(const point &a, const point &b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

double dot(const point &a, const point &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

point parameter(int kind, int node)
{
    const float *p = cell_kinds[kind].position[node];
    return {p[0], p[1], p[2]};
}

// The faces of a solid kind, from nothing but where its corners stand: a face is the set of corners on a
// plane that has all others on one side, in the order of their angles about the face's middle.
std::vector<face> faces_of(int kind)
{
    const int n = cell_kinds[kind].ncorners;
    std::set<std::set<int>> seen;
    std::vector<face> faces;
    for (int a = 0; a < n; ++a)
        for (int b = a + 1; b < n; ++b)
            for (int c = b + 1; c < n; ++c) {
                const point origin = parameter(kind, a);
                point normal = cross(minus(parameter(kind, b), origin), minus(parameter(kind, c), origin));
                std::set<int> on;
                bool above = false, below = false;
                for (int k = 0; k < n; ++k) {
                    const double side = dot(normal, minus(parameter(kind, k), origin));
                    if (std::fabs(side) < 1e-9) on.insert(k);
                    above = above || side > 1e-9;
                    below = below || side < -1e-9;
                }
                if ((above && below) || !seen.insert(on).second) continue;
                if (above) normal = {-normal[0], -normal[1], -normal[2]};
                point middle = {0, 0, 0};
                for (int k : on)
                    for (size_t d = 0; d < 3; ++d)
                        middle[d] += parameter(kind, k)[d] / static_cast<double>(on.size());
                const point u = minus(parameter(kind, *on.begin()), middle), v = cross(normal, u);
                face turned(on.begin(), on.end());
                const auto angle = [&](int k) {
                    const point r = minus(parameter(kind, k), middle);
                    return std::atan2(dot(r, v) / std::sqrt(dot(v, v)), dot(r, u) / std::sqrt(dot(u, u)));
                };
                std::sort(turned.begin(), turned.end(), [&](int l, int r) { return angle(l) < angle(r); });
                faces.push_back(turned);
            }
    return faces;
}

// The sides of a cell by dimension: faces, edges in turn, or end points.
std::vector<face> sides_of(int kind)
{
    const int n = cell_kinds[kind].ncorners;
    if (cell_kinds[kind].ndim == 3) return faces_of(kind);
    if (cell_kinds[kind].ndim == 1) return {{0}, {1}};
    std::vector<face> edges;
    for (int k = 0; k < n; ++k)
        edges.push_back({k, (k + 1) % n});
    return edges;
}

point node_at(const meshes::test_mesh &mesh, qx_long node)
{
    return {meshes::at(mesh, node, 0), meshes::at(mesh, node, 1), meshes::at(mesh, node, 2)};
}

// Signed length, area or volume of a cell from its corners: positive if it is turned as in its parameters.
// A face with four corners that lie in no plane counts as the mean of its two ways to be split.
double measure(int kind, const std::vector<point> &corner)
{
    if (cell_kinds[kind].ndim == 1) return corner[1][0] - corner[0][0];
    double sum = 0;
    if (cell_kinds[kind].ndim == 2) {
        for (const face &edge : sides_of(kind)) {
            const point &a = corner[static_cast<size_t>(edge[0])], &b = corner[static_cast<size_t>(edge[1])];
            sum += (a[0] * b[1] - a[1] * b[0]) / 2;
        }
        return sum;
    }
    for (const face &f : faces_of(kind))
        for (size_t start = 0; start < f.size(); ++start) {
            const point &a = corner[static_cast<size_t>(f[start])];
            for (size_t k = 1; k + 1 < f.size(); ++k) {
                const point &b = corner[static_cast<size_t>(f[(start + k) % f.size()])];
                const point &c = corner[static_cast<size_t>(f[(start + k + 1) % f.size()])];
                sum += dot(a, cross(b, c)) / 6 / static_cast<double>(f.size());
            }
        }
    return sum;
}

struct cell_view {
    std::vector<qx_long> nodes;
    std::vector<point> corners;
};

std::vector<cell_view> cells_of_set(const meshes::test_mesh &mesh, size_t set)
{
    const cell_kind_nodes &info = cell_kinds[mesh.kinds[set]];
    const size_t row = static_cast<size_t>(mesh.orders[set] == 1 ? info.ncorners : info.nnodes_2);
    std::vector<cell_view> cells;
    for (size_t first = 0; first < mesh.connect[set].size(); first += row) {
        cell_view cell;
        for (size_t k = 0; k < row; ++k)
            cell.nodes.push_back(mesh.connect[set][first + k]);
        for (size_t k = 0; k < static_cast<size_t>(info.ncorners); ++k)
            cell.corners.push_back(node_at(mesh, cell.nodes[k]));
        cells.push_back(cell);
    }
    return cells;
}

// Whether points that stand for a side lie on one side of the unit box, of ndim axes.
bool on_the_box(const std::vector<point> &side, int ndim)
{
    for (size_t d = 0; d < static_cast<size_t>(ndim); ++d)
        for (double wall : {0.0, 1.0})
            if (std::all_of(side.begin(), side.end(), [=](const point &p) { return p[d] == wall; }))
                return true;
    return false;
}

std::vector<int> both_orders()
{
    return {1, 2};
}

} // namespace

// ---- cell sets -----------------------------------------------------------------------------------------------

TEST(SidesOfKinds, AreThoseOfTheSolid)
{
    const size_t faces[CELL_KINDS] = {2, 3, 4, 4, 5, 5, 6};
    for (int kind = 0; kind < CELL_KINDS; ++kind) {
        EXPECT_EQ(sides_of(kind).size(), faces[kind]) << kind;
        std::vector<point> corners;
        for (int k = 0; k < cell_kinds[kind].ncorners; ++k)
            corners.push_back(parameter(kind, k));
        const double measures[CELL_KINDS] = {2, 0.5, 4, 1.0 / 6, 8.0 / 3, 1, 8};
        EXPECT_NEAR(measure(kind, corners), measures[kind], 1e-12) << kind;
    }
}

TEST(CellMeshes, FillTheUnitBoxWithCellsTurnedLikeTheirParameters)
{
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (int order : both_orders())
            for (double jitter : {0.0, 0.1}) {
                const meshes::mesh_ptr mesh = meshes::cells(kind, order, {3, 2, 4}, 5, jitter);
                double sum = 0;
                for (const cell_view &cell : cells_of_set(*mesh, 0)) {
                    EXPECT_GT(measure(kind, cell.corners), 0) << kind << " " << jitter;
                    sum += measure(kind, cell.corners);
                }
                EXPECT_NEAR(sum, 1, jitter == 0 ? 1e-6 : 0.3) << kind;
            }
}

TEST(CellMeshes, MeetFaceToFace)
{
    for (int kind = 0; kind < CELL_KINDS; ++kind) {
        const int ndim = cell_kinds[kind].ndim;
        const meshes::mesh_ptr mesh = meshes::cells(kind, 1, {2, 3, 2}, 1);
        std::map<std::vector<qx_long>, int> times; // sides by their nodes
        std::set<std::pair<qx_long, qx_long>> directed;
        for (const cell_view &cell : cells_of_set(*mesh, 0))
            for (const face &side : sides_of(kind)) {
                std::vector<qx_long> nodes;
                for (int k : side)
                    nodes.push_back(cell.nodes[static_cast<size_t>(k)]);
                // Neighbours go along a common edge of a side in opposite directions.
                const bool first = directed.insert({nodes.front(), nodes.back()}).second;
                EXPECT_TRUE(first || ndim != 2) << kind;
                std::sort(nodes.begin(), nodes.end());
                ++times[nodes];
            }
        int inner = 0, outer = 0;
        for (const auto &side : times) {
            std::vector<point> points;
            for (qx_long node : side.first)
                points.push_back(node_at(*mesh, node));
            EXPECT_EQ(side.second, on_the_box(points, ndim) ? 1 : 2) << kind;
            ++(side.second == 1 ? outer : inner);
        }
        EXPECT_GT(inner, 0) << kind;
        EXPECT_GT(outer, 0) << kind;
    }
}

TEST(CellMeshes, SecondOrderNodesStandInTheMiddleOfTheirEdgesAndAreShared)
{
    for (int kind = 0; kind < CELL_KINDS; ++kind) {
        const cell_kind_nodes &info = cell_kinds[kind];
        const meshes::mesh_ptr first = meshes::cells(kind, 1, {2, 2, 2}, 9, 0.2);
        const meshes::mesh_ptr mesh = meshes::cells(kind, 2, {2, 2, 2}, 9, 0.2);
        std::map<std::pair<qx_long, qx_long>, qx_long> middles;
        std::set<qx_long> used;
        for (const cell_view &cell : cells_of_set(*mesh, 0)) {
            used.insert(cell.nodes.begin(), cell.nodes.end());
            for (int node = info.ncorners; node < info.nnodes_2; ++node) {
                int found = 0;
                for (int a = 0; a < info.ncorners; ++a)
                    for (int b = a + 1; b < info.ncorners; ++b) {
                        const point p = parameter(kind, a), q = parameter(kind, b), m = parameter(kind, node);
                        if ((p[0] + q[0]) / 2 != m[0] || (p[1] + q[1]) / 2 != m[1] ||
                            (p[2] + q[2]) / 2 != m[2])
                            continue;
                        ++found;
                        const qx_long ends[2] = {cell.nodes[static_cast<size_t>(a)],
                                                 cell.nodes[static_cast<size_t>(b)]};
                        const qx_long middle = cell.nodes[static_cast<size_t>(node)];
                        const auto edge = middles.insert(
                            {{std::min(ends[0], ends[1]), std::max(ends[0], ends[1])}, middle});
                        EXPECT_EQ(edge.first->second, middle) << kind;
                        for (int d = 0; d < 3; ++d)
                            EXPECT_NEAR(meshes::at(*mesh, middle, d),
                                        (meshes::at(*mesh, ends[0], d) + meshes::at(*mesh, ends[1], d)) / 2,
                                        1e-7);
                    }
                EXPECT_EQ(found, 1) << kind << " node " << node;
            }
        }
        EXPECT_EQ(static_cast<qx_long>(used.size()), mesh->nnodes()) << kind;
        EXPECT_EQ(mesh->nnodes(), first->nnodes() + static_cast<qx_long>(middles.size())) << kind;
        EXPECT_TRUE(std::equal(first->coords.begin(), first->coords.end(), mesh->coords.begin())) << kind;
    }
}

TEST(CellMeshes, LowerDimensionsLieInSpacesOfTheirOwn)
{
    for (int kind : {CELL_LINE, CELL_TRI, CELL_QUAD})
        for (int nspace = cell_kinds[kind].ndim; nspace <= 3; ++nspace) {
            const meshes::mesh_ptr mesh = meshes::cells(kind, 2, {3, 2}, 4, 0.1, nspace);
            EXPECT_EQ(mesh->mesh->nspace, nspace);
            EXPECT_EQ(mesh->mesh->nnodes, mesh->nnodes());
            for (const cell_view &cell : cells_of_set(*mesh, 0))
                EXPECT_GT(measure(kind, cell.corners), 0);
        }
}

TEST(CellMeshes, MixedPartsStandSideBySide)
{
    const std::vector<int> kinds = {CELL_HEX, CELL_TET, CELL_PYR, CELL_PRISM, CELL_QUAD, CELL_TRI, CELL_LINE};
    const std::vector<int> orders = {1, 2, 1, 2, 1, 2, 1};
    const meshes::mesh_ptr mesh = meshes::mixed(kinds, orders, 2, 3, 0.0);
    ASSERT_EQ(mesh->mesh->ncell_sets, 7);
    qx_long next = 0, ncells = 0;
    for (size_t s = 0; s < kinds.size(); ++s) {
        const auto range = std::minmax_element(mesh->connect[s].begin(), mesh->connect[s].end());
        EXPECT_EQ(*range.first, next) << s;
        next = *range.second + 1;
        double sum = 0;
        for (const cell_view &cell : cells_of_set(*mesh, s)) {
            for (const point &corner : cell.corners) {
                EXPECT_GE(corner[0], static_cast<double>(s));
                EXPECT_LE(corner[0], static_cast<double>(s + 1));
            }
            sum += measure(kinds[s], cell.corners);
            ++ncells;
        }
        EXPECT_NEAR(sum, 1, 1e-6) << s;
        EXPECT_EQ(mesh->mesh->cell_order[s], orders[s]);
    }
    EXPECT_EQ(next, mesh->nnodes());
    EXPECT_EQ(ncells, mesh->mesh->ncells);
}

TEST(CellMeshes, ThatTheHostRefusesSayWhy)
{
    try {
        meshes::from_cells(3, {0, 0, 0, 1, 1, 1}, {CELL_LINE}, {1}, {{0, 2}});
        FAIL() << "a node outside the mesh was taken";
    } catch (const std::runtime_error &error) {
        EXPECT_NE(std::string(error.what()).find("names node 2"), std::string::npos) << error.what();
    }
}

// ---- structured meshes -----------------------------------------------------------------------------------------

TEST(StructuredMeshes, StandOnTheBoxTheyAreGiven)
{
    const std::vector<float> lo = {-1, 2, 5}, hi = {3, 4, 11};
    const std::vector<qx_long> all_dims = {5, 3, 4};
    for (size_t ndim = 1; ndim <= 3; ++ndim)
        for (int nspace = static_cast<int>(ndim); nspace <= 3; ++nspace) {
            const std::vector<qx_long> dims(all_dims.begin(), all_dims.begin() + static_cast<long>(ndim));
            const meshes::mesh_ptr made[3] = {meshes::uniform(dims, nspace, lo, hi),
                                              meshes::rectilinear(dims, nspace, lo, hi, 7),
                                              meshes::curvilinear(dims, nspace, lo, hi, 7)};
            for (const meshes::mesh_ptr &mesh : made) {
                EXPECT_EQ(mesh->mesh->ndim, static_cast<int>(ndim));
                ASSERT_EQ(mesh->nnodes(), mesh->mesh->nnodes);
                for (qx_long node = 0; node < mesh->nnodes(); ++node) {
                    qx_long rest = node;
                    for (size_t d = 0; d < static_cast<size_t>(nspace); ++d) {
                        const qx_long n = d < ndim ? dims[d] : 1, position = rest % n;
                        rest /= n;
                        const double x = meshes::at(*mesh, node, static_cast<int>(d));
                        if (position == 0)
                            EXPECT_EQ(x, lo[d]);
                        else if (position == n - 1)
                            EXPECT_NEAR(x, hi[d], 1e-5);
                        else {
                            const double step = (hi[d] - lo[d]) / static_cast<double>(n - 1);
                            EXPECT_NEAR(x, lo[d] + static_cast<double>(position) * step, 0.31 * step);
                        }
                    }
                }
            }
            for (size_t d = 0; d < ndim; ++d)
                EXPECT_TRUE(std::is_sorted(made[1]->axes[d].begin(), made[1]->axes[d].end()));
        }
}

TEST(StructuredMeshes, OfUnevenKindsAreUneven)
{
    const meshes::mesh_ptr even = meshes::uniform({6, 6, 6}, 3, {0, 0, 0}, {1, 1, 1});
    const meshes::mesh_ptr rect = meshes::rectilinear({6, 6, 6}, 3, {0, 0, 0}, {1, 1, 1}, 2);
    const meshes::mesh_ptr curved = meshes::curvilinear({6, 6, 6}, 3, {0, 0, 0}, {1, 1, 1}, 2);
    int rect_moved = 0, curved_moved = 0;
    for (size_t c = 0; c < even->coords.size(); ++c) {
        rect_moved += rect->coords[c] != even->coords[c];
        curved_moved += curved->coords[c] != even->coords[c];
    }
    EXPECT_EQ(rect_moved, 3 * 4 * 36);
    EXPECT_GT(curved_moved, 3 * 60); // the 64 inner nodes
}

TEST(DataOfMeshes, IsOneValueANodeInItsType)
{
    const meshes::mesh_ptr mesh = meshes::uniform({3, 2}, 2, {0, 0, 0}, {4, 1, 1});
    const auto values =
        meshes::field_of<short>(*mesh, [](double x, double y, double z) { return x + 10 * y + 100 * z; });
    EXPECT_EQ(values, (std::vector<short>{0, 2, 4, 10, 12, 14}));
    const auto some = meshes::random_values<unsigned char>(1, 500, 3, 9);
    EXPECT_EQ(some, meshes::random_values<unsigned char>(1, 500, 3, 9));
    EXPECT_EQ(*std::min_element(some.begin(), some.end()), 3);
    EXPECT_EQ(*std::max_element(some.begin(), some.end()), 8);
}

// ---- host calls ------------------------------------------------------------------------------------------------

TEST(HostCalls, AreRecordedInOrder)
{
    host_calls::reset();
    ERRerror("one", 0, 2, "first");
    ERRout_of_memory("some list");
    OMpush_status_range(20, 60);
    OMstatus_check(50, "half", nullptr);
    OMstatus_check(60, nullptr, nullptr);
    OMpop_status_range();
    ERRerror("two", 0, 2, "second");
    const host_calls::record &seen = host_calls::seen();
    EXPECT_EQ(host_calls::report_texts(), (std::vector<std::string>{"one: first", "two: second"}));
    EXPECT_TRUE((seen.reports[0] == host_calls::report{"one", 0, 2, "first"}));
    EXPECT_EQ(seen.out_of_memory, std::vector<std::string>{"some list"});
    ASSERT_EQ(seen.statuses.size(), 2u);
    EXPECT_EQ(seen.statuses[0].percent, 50);
    EXPECT_EQ(seen.statuses[0].message, "half");
    EXPECT_EQ(seen.statuses[0].depth, 1);
    EXPECT_EQ(seen.statuses[1].message, "");
    ASSERT_EQ(seen.pushes.size(), 1u);
    EXPECT_EQ(seen.pushes[0].low, 20);
    EXPECT_EQ(seen.pushes[0].high, 60);
    EXPECT_EQ(seen.depth, 0);
    EXPECT_EQ(seen.lowest_depth, 0);
    OMpop_status_range();
    EXPECT_EQ(seen.lowest_depth, -1);
    host_calls::reset();
    EXPECT_TRUE(seen.reports.empty() && seen.statuses.empty() && seen.pushes.empty() &&
                seen.out_of_memory.empty());
    EXPECT_EQ(seen.lowest_depth, 0);
}

TEST(HostCalls, InterruptFromTheAskedCheckOn)
{
    host_calls::reset();
    OMstatus_check(0, nullptr, nullptr);
    host_calls::interrupt_at(2);
    for (int k = 0; k < 5; ++k) {
        int stop = -1;
        OMstatus_check(k, nullptr, &stop);
        EXPECT_EQ(stop, k >= 2 ? 1 : 0) << k;
    }
    host_calls::reset();
    int stop = -1;
    OMstatus_check(0, nullptr, &stop);
    EXPECT_EQ(stop, 0);
}

TEST(HostCalls, WatchCountsAndTracksAllocations)
{
    host_calls::reset();
    void *volatile before = malloc(8);
    host_calls::watch watch;
    void *volatile a = malloc(8);
    void *volatile b = calloc(2, 8);
    void *volatile c = ARRalloc_f(nullptr, DTYPE_INT, 4, 0, "file", 1);
    EXPECT_EQ(watch.allocations(), 3);
    EXPECT_EQ(watch.live_blocks(), 3);
    a = realloc(a, 100000);
    c = ARRrealloc_f(c, DTYPE_INT, 40000, 0, "file", 1);
    EXPECT_EQ(watch.allocations(), 5);
    EXPECT_EQ(watch.live_blocks(), 3);
    free(a);
    free(c); // plain free takes the host's lists too
    EXPECT_EQ(watch.live_blocks(), 1);
    ARRfree_f(b, "file", 1);
    free(before);
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST(HostCalls, WatchLooksAtItsOwnThreadAndNotAtTheHost)
{
    host_calls::reset();
    host_calls::watch watch;
    std::thread([] { free(malloc(8)); }).join();
    const int before = watch.allocations();
    const float corners[6] = {0, 0, 0, 1, 1, 1};
    const qx_long dims[3] = {2, 2, 2};
    host_field *field = host_uniform(3, dims, 3, corners);
    EXPECT_NE(host_mesh(field), nullptr);
    EXPECT_EQ(watch.allocations(), before);
    host_free_field(field);
}

TEST(HostCalls, RefuseTheAskedAllocationOnce)
{
    host_calls::reset();
    host_calls::watch watch;
    host_calls::fail_allocation(1);
    for (int k = 0; k < 4; ++k) {
        void *volatile block = k % 2 == 0 ? malloc(8) : ARRalloc_f(nullptr, DTYPE_INT, 1, 0, "file", 1);
        EXPECT_EQ(block == nullptr, k == 1) << k;
        EXPECT_EQ(host_calls::allocation_was_refused(), k >= 1) << k;
        free(block);
    }
    void *volatile block = malloc(8);
    host_calls::fail_allocation(0);
    EXPECT_EQ(realloc(block, 16), nullptr); // and the block is still there
    EXPECT_EQ(watch.live_blocks(), 1);
    free(block);
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST(HostCalls, RefuseAllAllocationsFromTheAskedOne)
{
    host_calls::reset();
    host_calls::watch watch;
    host_calls::fail_allocations_from(1);
    for (int k = 0; k < 4; ++k) {
        void *volatile block = calloc(1, 8);
        EXPECT_EQ(block == nullptr, k >= 1) << k;
        free(block);
    }
    host_calls::reset();
    void *volatile block = malloc(8);
    EXPECT_NE(block, nullptr);
    free(block);
}
