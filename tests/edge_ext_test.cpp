// Border and crease edges of surfaces, and all their edges: against a small machine for each pair of nodes.
#include <skoklana/boundary.h>

#include "support/fresh_host.hpp"
#include "support/meshes.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

// The square-root table is the host's affair; that it is asked for is not.
static int sqrt_tables = 0;
extern "C" void __real_MATbuild_sqrt_table(void);
extern "C" __attribute__((visibility("default"))) void __wrap_MATbuild_sqrt_table(void)
{
    ++sqrt_tables;
    __real_MATbuild_sqrt_table();
}

namespace {

using numbers = std::vector<qx_long>;
using pair_of_nodes = std::pair<qx_long, qx_long>;

struct edge_list {
    int result = -1;
    qx_long nedges = -1;
    numbers edges;
};

edge_list external_edges(int nspace, const std::vector<float> &coords, int ncorners, const numbers &connect,
                         double angle, int stride = 0)
{
    if (stride == 0) stride = ncorners;
    edge_list out;
    qx_long *edges = nullptr;
    out.result = UTILexternal_edges(static_cast<qx_long>(coords.size()) / nspace, nspace, coords.data(),
                                    static_cast<qx_long>(connect.size()) / stride, stride, ncorners,
                                    connect.data(), &out.nedges, &edges, angle);
    if (edges != nullptr) out.edges.assign(edges, edges + 2 * out.nedges);
    free(edges);
    return out;
}

std::array<float, 3> slow_normal(int nspace, const std::vector<float> &coords, const qx_long *cell,
                                 int ncorners)
{
    float e1[3] = {}, e2[3] = {};
    for (int d = 0; d < nspace; ++d) {
        const auto at = [&](int corner) { return coords[static_cast<size_t>(cell[corner] * nspace + d)]; };
        e1[d] = at(1) - at(0);
        e2[d] = at(ncorners - 1) - at(0);
    }
    std::array<float, 3> n;
    for (size_t d = 0; d < 3; ++d) {
        const size_t y = (d + 1) % 3, z = (d + 2) % 3;
        n[d] = e2[y] * e1[z] - e2[z] * e1[y];
    }
    const float square = n[0] * n[0] + n[1] * n[1] + n[2] * n[2];
    const float length = static_cast<float>(std::sqrt(static_cast<double>(square)));
    if (static_cast<double>(length) > 1e-29)
        for (float &c : n)
            c /= length;
    return n;
}

numbers slow_external_edges(int nspace, const std::vector<float> &coords, int ncorners,
                            const numbers &connect, double angle)
{
    struct open_edge {
        qx_long time;
        std::array<float, 3> normal;
    };
    std::map<pair_of_nodes, open_edge> open;
    qx_long time = 0;
    for (size_t cell = 0; cell < connect.size(); cell += static_cast<size_t>(ncorners)) {
        const auto n = slow_normal(nspace, coords, &connect[cell], ncorners);
        for (int c = 0; c < ncorners; ++c, ++time) {
            const qx_long a = connect[cell + static_cast<size_t>(c)];
            const qx_long b = connect[cell + static_cast<size_t>((c + 1) % ncorners)];
            const pair_of_nodes key = {std::min(a, b), std::max(a, b)};
            const auto found = open.find(key);
            if (found == open.end()) {
                open[key] = {time, n};
                continue;
            }
            const auto &m = found->second.normal;
            float dot = n[0] * m[0] + n[1] * m[1] + n[2] * m[2];
            if (dot < -1) dot = -1;
            if (dot > 1) dot = 1;
            const float between = static_cast<float>(std::acos(static_cast<double>(dot)));
            if (!(angle <= std::fabs(static_cast<double>(between)))) open.erase(found);
        }
    }
    std::vector<std::pair<pair_of_nodes, open_edge>> left(open.begin(), open.end());
    std::sort(left.begin(), left.end(), [](const auto &x, const auto &y) {
        return x.first.first != y.first.first ? x.first.first < y.first.first : x.second.time > y.second.time;
    });
    numbers out;
    for (const auto &one : left) {
        out.push_back(one.first.first);
        out.push_back(one.first.second);
    }
    return out;
}

// Quads or triangles over n by n squares, nodes raised by f.
template <typename F>
void height_field(int ncorners, int n, F f, std::vector<float> *coords, numbers *connect)
{
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i)
            for (float c : {static_cast<float>(i), static_cast<float>(j), static_cast<float>(f(i, j))})
                coords->push_back(c);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const qx_long a = j * (n + 1) + i, b = a + 1, c = b + n + 1, d = a + n + 1;
            for (qx_long node : ncorners == 4 ? numbers{a, b, c, d} : numbers{a, b, c, a, c, d})
                connect->push_back(node);
        }
}

class Edges : public FreshHost {};

const std::vector<float> square = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
constexpr double pi = 3.14159265358979323846;

} // namespace

TEST_F(Edges, AFlatGridKeepsItsRimAtAnAngleAndEveryEdgeAtNone)
{
    std::vector<float> coords;
    numbers connect;
    height_field(
        4, 5, [](int, int) { return 0; }, &coords, &connect);
    EXPECT_EQ(20, external_edges(3, coords, 4, connect, 0.5).nedges);
    EXPECT_EQ(60, external_edges(3, coords, 4, connect, 0).nedges);
}

TEST_F(Edges, AboveAFloatsPiNoSharedEdgeIsLeftAndAtADoublesPiOppositeNormalsAre)
{
    // a square and its back: closed, with opposite windings and with equal ones
    const numbers closed = {0, 1, 2, 3, 3, 2, 1, 0}, twice = {0, 1, 2, 3, 0, 1, 2, 3};
    EXPECT_EQ(4, external_edges(3, square, 4, closed, pi).nedges); // pi is below the float next to it
    EXPECT_EQ(0, external_edges(3, square, 4, closed, 3.1415928).nedges);
    EXPECT_EQ(0, external_edges(3, square, 4, twice, pi).nedges);

    qx_long nedges = 7, *edges = &nedges;
    EXPECT_EQ(1, UTILexternal_edges(4, 3, square.data(), 2, 4, 4, closed.data(), &nedges, &edges, 4));
    EXPECT_EQ(0, nedges);
    EXPECT_EQ(&nedges, edges);
}

TEST_F(Edges, AThirdCellIsHeldAgainstTheFirstOfACrease)
{
    // Three triangles at edge 0 1: the first in the floor, the second upright, the third in the floor again.
    const std::vector<float> coords = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 0};
    const numbers floor_wall = {0, 1, 2, 0, 1, 3};
    EXPECT_EQ(5, external_edges(3, coords, 3, floor_wall, 1).nedges);
    const numbers floor_wall_floor = {0, 1, 2, 0, 1, 3, 0, 1, 4};
    const edge_list out = external_edges(3, coords, 3, floor_wall_floor, 1);
    EXPECT_EQ(6, out.nedges); // smooth with the first: the crease is gone
    for (size_t e = 0; e < out.edges.size(); e += 2)
        EXPECT_FALSE(out.edges[e] == 0 && out.edges[e + 1] == 1);
}

TEST_F(Edges, CellsWithoutAreaMeetOthersAtARightAngle)
{
    const std::vector<float> coords = {0, 0, 0, 1, 0, 0, 0, 1, 0, 2, 0, 0};
    const numbers flat = {0, 1, 2, 0, 1, 3}; // the second is a line
    EXPECT_EQ(5, external_edges(3, coords, 3, flat, 1.57).nedges);
    EXPECT_EQ(4, external_edges(3, coords, 3, flat, 1.58).nedges);
}

TEST_F(Edges, AnEdgeFromANodeToItselfIsOne)
{
    const edge_list out = external_edges(3, square, 3, {0, 0, 2}, 1);
    EXPECT_EQ((numbers{0, 2, 0, 0}), out.edges); // a cell without area meets itself at a right angle
    const edge_list all = external_edges(3, square, 3, {0, 0, 2}, 2);
    EXPECT_EQ((numbers{0, 0}), all.edges);
}

TEST_F(Edges, NaNIsNoCrease)
{
    std::vector<float> coords = {0, 0, 0, 1, 0, 0, 0, 1, 0, std::nanf(""), 0, 1};
    EXPECT_EQ(4, external_edges(3, coords, 3, {0, 1, 2, 0, 1, 3}, 0).nedges);
    EXPECT_EQ(4, external_edges(3, square, 3, {0, 1, 2, 0, 2, 3}, std::nan("")).nedges);
}

TEST_F(Edges, AgreeWithTheReferenceOnSurfacesAtEveryAngle)
{
    int creases = 0, smooth = 0;
    for (int ncorners : {3, 4}) {
        std::mt19937 random(5);
        std::vector<float> coords;
        numbers connect;
        height_field(
            ncorners, 30, [&](int, int) { return static_cast<double>(random() % 100) / 60; }, &coords,
            &connect);
        for (double angle : {-1.0, 0.0, 1e-9, 0.1, 0.7, 1.5707963267948966, 1.5707964, 2.0, 3.0, 4.0}) {
            const edge_list out = external_edges(3, coords, ncorners, connect, angle);
            ASSERT_EQ(slow_external_edges(3, coords, ncorners, connect, angle), out.edges) << angle;
            creases += out.nedges > 500;
            smooth += out.nedges < 500;
        }
    }
    EXPECT_GT(std::min(creases, smooth), 3);
}

TEST_F(Edges, AgreeWithTheReferenceAtLimitsThatDotProductsHitExactly)
{
    // Angles that are the arc cosines of the very dot products that come up.
    std::vector<float> coords;
    numbers connect;
    std::mt19937 random(8);
    height_field(
        3, 12, [&](int, int) { return static_cast<double>(random() % 7) / 5; }, &coords, &connect);
    int hit = 0;
    for (size_t cell = 0; cell + 6 <= connect.size(); cell += 6) {
        const auto a = slow_normal(3, coords, &connect[cell], 3),
                   b = slow_normal(3, coords, &connect[cell + 3], 3);
        const float dot = std::clamp(a[0] * b[0] + a[1] * b[1] + a[2] * b[2], -1.0f, 1.0f);
        const double angle = static_cast<double>(static_cast<float>(std::acos(static_cast<double>(dot))));
        for (double limit : {angle, std::nextafter(angle, 10), std::nextafter(angle, -10)})
            ASSERT_EQ(slow_external_edges(3, coords, 3, connect, limit),
                      external_edges(3, coords, 3, connect, limit).edges);
        ++hit;
    }
    EXPECT_GT(hit, 100);
}

TEST_F(Edges, AgreeWithTheReferenceOnAnyConnectList)
{
    std::mt19937_64 random(31);
    for (int trial = 0; trial < 200; ++trial) {
        const int ncorners = 2 + static_cast<int>(random() % 4), nspace = 1 + static_cast<int>(random() % 3);
        const qx_long nnodes = 2 + static_cast<qx_long>(random() % 9);
        std::vector<float> coords;
        for (qx_long c = 0; c < nnodes * nspace; ++c)
            coords.push_back(static_cast<float>(random() % 4));
        numbers connect;
        for (size_t n = random() % 40 * static_cast<size_t>(ncorners); n > 0; --n)
            connect.push_back(static_cast<qx_long>(random() % static_cast<uint64_t>(nnodes)));
        const double angle = static_cast<double>(random() % 40) / 10;
        ASSERT_EQ(slow_external_edges(nspace, coords, ncorners, connect, angle),
                  external_edges(nspace, coords, ncorners, connect, angle).edges)
            << "trial " << trial;

        // All edges are those that are left where no edge is ever taken out.
        std::map<pair_of_nodes, qx_long> seen;
        qx_long time = 0;
        for (size_t cell = 0; cell < connect.size(); cell += static_cast<size_t>(ncorners))
            for (int c = 0; c < ncorners; ++c) {
                const qx_long a = connect[cell + static_cast<size_t>(c)];
                const qx_long b = connect[cell + static_cast<size_t>((c + 1) % ncorners)];
                seen.emplace(pair_of_nodes{std::min(a, b), std::max(a, b)}, time++);
            }
        std::vector<std::pair<pair_of_nodes, qx_long>> all(seen.begin(), seen.end());
        std::sort(all.begin(), all.end(), [](const auto &x, const auto &y) {
            return x.first.first != y.first.first ? x.first.first < y.first.first : x.second > y.second;
        });
        numbers expected;
        for (const auto &one : all) {
            expected.push_back(one.first.first);
            expected.push_back(one.first.second);
        }
        qx_long nedges = -1, *edges = nullptr;
        ASSERT_EQ(1, UTILedges_2D(nnodes, static_cast<qx_long>(connect.size()) / ncorners, ncorners,
                                  connect.data(), ncorners, &nedges, &edges));
        const numbers got(edges, edges + (edges == nullptr ? 0 : 2 * nedges));
        free(edges);
        ASSERT_EQ(static_cast<qx_long>(expected.size()), 2 * nedges);
        ASSERT_EQ(expected, got) << "trial " << trial;
    }
}

TEST_F(Edges, WithNothingToFindOnlyTheCountIsWritten)
{
    for (int ncorners : {0, -1, 3}) {
        qx_long nedges = 7, *edges = &nedges;
        const qx_long ncells = ncorners == 3 ? 0 : 1;
        const numbers connect = {0, 1, 2};
        EXPECT_EQ(1, UTILexternal_edges(4, 3, square.data(), ncells, 3, ncorners, connect.data(), &nedges,
                                        &edges, 1));
        EXPECT_EQ(0, nedges);
        nedges = 7;
        EXPECT_EQ(1, UTILedges_2D(4, ncells, 3, connect.data(), ncorners, &nedges, &edges));
        EXPECT_EQ(0, nedges);
        EXPECT_EQ(&nedges, edges);
    }
}

TEST_F(Edges, TheHostsTableOfRootsIsBuiltOnceACall)
{
    sqrt_tables = 0;
    external_edges(3, square, 4, {0, 1, 2, 3}, 1);
    EXPECT_EQ(1, sqrt_tables);
    external_edges(3, square, 4, {}, 1);
    EXPECT_EQ(2, sqrt_tables);
    qx_long nedges, *edges = nullptr;
    const numbers connect = {0, 1, 2, 3};
    UTILedges_2D(4, 1, 4, connect.data(), 4, &nedges, &edges);
    free(edges);
    EXPECT_EQ(2, sqrt_tables);
    host_calls::watch watch;
    host_calls::fail_allocation(0);
    EXPECT_EQ(0, external_edges(3, square, 4, {0, 1, 2, 3}, 1).result);
    EXPECT_EQ(2, sqrt_tables);
}

TEST_F(Edges, StatusInterruptionAndWantOfMemory)
{
    std::vector<float> coords;
    numbers connect;
    height_field(
        4, 29, [](int i, int j) { return (i * j) % 3; }, &coords, &connect); // 841 cells
    external_edges(3, coords, 4, connect, 0);
    host_calls::expect_checks({30, 60, 91});
    const edge_list expected = external_edges(3, coords, 4, connect, 0);
    for (bool all : {false, true}) {
        const auto run = [&] {
            if (!all) return external_edges(3, coords, 4, connect, 0);
            edge_list out;
            qx_long *edges = nullptr;
            out.result = UTILedges_2D(900, 841, 4, connect.data(), 4, &out.nedges, &edges);
            if (edges != nullptr) out.edges.assign(edges, edges + 2 * out.nedges);
            free(edges);
            return out;
        };
        for (int k = 0; k < 3; ++k) {
            host_calls::reset();
            host_calls::interrupt_at(k);
            const host_calls::watch watch;
            const edge_list out = run();
            EXPECT_EQ(0, out.result);
            EXPECT_EQ(-1, out.nedges);
            EXPECT_EQ(0, watch.live_blocks());
        }
        int failures = 0;
        for (int k = 0; k < 50; ++k) {
            host_calls::reset();
            const host_calls::watch watch;
            host_calls::fail_allocation(k);
            qx_long nedges = 5, *edges = nullptr;
            const int result = all ? UTILedges_2D(900, 841, 4, connect.data(), 4, &nedges, &edges)
                                   : UTILexternal_edges(900, 3, coords.data(), 841, 4, 4, connect.data(),
                                                        &nedges, &edges, 0);
            if (!host_calls::allocation_was_refused()) {
                EXPECT_EQ(1, result);
                EXPECT_EQ(static_cast<qx_long>(expected.edges.size()), 2 * nedges);
                free(edges);
                break;
            }
            ++failures;
            EXPECT_EQ(0, result);
            EXPECT_EQ(nullptr, edges);
            EXPECT_EQ(0, watch.live_blocks());
        }
        EXPECT_GE(failures, 3);
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
}
