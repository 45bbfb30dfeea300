// External faces, and all edges of volume cells: against maps of keys, and as closed surfaces.
#include <skoklana/boundary.h>
#include <skoklana/cell_faces.h>
#include <skoklana/host/tool.h>

#include "support/fresh_host.hpp"
#include "support/meshes.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <numeric>
#include <set>

namespace {

using numbers = std::vector<qx_long>;

// The faces of a kind of cell, free to be wrong.
struct face_shape {
    std::vector<int> nnodes, ncorners;
    numbers list;

    int count() const { return static_cast<int>(nnodes.size()); }
    numbers face(int f) const
    {
        const qx_long first = std::accumulate(nnodes.begin(), nnodes.begin() + f, qx_long{0});
        return {list.begin() + first, list.begin() + first + nnodes[static_cast<size_t>(f)]};
    }
};

face_shape faces_of(int kind, int order)
{
    const cell_face_list &from = cell_faces[order - 1][kind];
    face_shape shape;
    shape.nnodes.assign(from.nnodes, from.nnodes + from.nfaces);
    shape.ncorners.assign(from.ncorners, from.ncorners + from.nfaces);
    shape.list.assign(from.node, from.node + std::accumulate(shape.nnodes.begin(), shape.nnodes.end(), 0));
    return shape;
}

struct face_set {
    int nnodes;
    numbers cells, connect;
};

bool operator==(const face_set &a, const face_set &b)
{
    return a.nnodes == b.nnodes && a.cells == b.cells && a.connect == b.connect;
}

struct boundary {
    int result = -1, nsets = -1;
    std::vector<face_set> sets;
};

constexpr int room = 8;

boundary external_faces(qx_long nnodes, int stride, const numbers &connect, const face_shape &shape,
                        int max_sets = room)
{
    boundary out;
    qx_long ncells[room], size[room], *cells[room], *lists[room];
    int set_nnodes[room];
    out.result =
        UTILexternal_faces(nnodes, static_cast<qx_long>(connect.size()) / stride, stride, connect.data(),
                           shape.count(), shape.nnodes.data(), shape.ncorners.data(), shape.list.data(),
                           max_sets, &out.nsets, ncells, set_nnodes, cells, lists, size);
    for (int s = 0; out.result == 1 && s < out.nsets; ++s) {
        EXPECT_EQ(ncells[s] * set_nnodes[s], size[s]);
        EXPECT_EQ(ncells[s] == 0, cells[s] == nullptr);
        EXPECT_EQ(ncells[s] == 0, lists[s] == nullptr);
        out.sets.push_back({set_nnodes[s], {cells[s], cells[s] + ncells[s]}, {lists[s], lists[s] + size[s]}});
        ARRfree_f(cells[s], __FILE__, __LINE__);
        free(lists[s]);
    }
    return out;
}

// Every key holds its last occurrence for as long as it came up an odd number of times. What is left is listed by
// lowest node, the latest first.
std::vector<face_set> slow_faces(int stride, const numbers &connect, const face_shape &shape)
{
    struct occurrence {
        qx_long time, cell;
        int face;
    };
    std::map<std::array<qx_long, 3>, occurrence> open;
    qx_long time = 0;
    const qx_long ncells = static_cast<qx_long>(connect.size()) / stride;
    for (qx_long cell = 0; cell < ncells; ++cell)
        for (int f = 0; f < shape.count(); ++f, ++time) {
            const int n = shape.ncorners[static_cast<size_t>(f)];
            numbers ring;
            for (int c = 0; c < n; ++c)
                ring.push_back(
                    connect[static_cast<size_t>(cell * stride + shape.face(f)[static_cast<size_t>(c)])]);
            const size_t at = static_cast<size_t>(std::min_element(ring.begin(), ring.end()) - ring.begin());
            const size_t m = static_cast<size_t>(n);
            const qx_long a = ring[(at + m - 1) % m], b = ring[(at + 1) % m];
            const std::array<qx_long, 3> key = {ring[at], std::min(a, b), std::max(a, b)};
            if (open.erase(key) == 0) open[key] = {time, cell, f};
        }
    if (open.empty()) return {};
    std::vector<std::pair<std::array<qx_long, 3>, occurrence>> left(open.begin(), open.end());
    std::sort(left.begin(), left.end(), [](const auto &x, const auto &y) {
        return x.first[0] != y.first[0] ? x.first[0] < y.first[0] : x.second.time > y.second.time;
    });
    std::vector<face_set> sets;
    for (int nnodes : shape.nnodes)
        if (std::none_of(sets.begin(), sets.end(), [=](const face_set &s) { return s.nnodes == nnodes; }))
            sets.push_back({nnodes, {}, {}});
    for (const auto &one : left)
        for (face_set &set : sets)
            if (set.nnodes == shape.nnodes[static_cast<size_t>(one.second.face)]) {
                set.cells.push_back(one.second.cell);
                for (qx_long local : shape.face(one.second.face))
                    set.connect.push_back(connect[static_cast<size_t>(one.second.cell * stride + local)]);
            }
    return sets;
}

numbers edges_3d(int *result, qx_long nnodes, int stride, const numbers &connect, const face_shape &shape)
{
    qx_long nedges = -1, *edges = nullptr;
    *result = UTILedges_3D(nnodes, static_cast<qx_long>(connect.size()) / stride, stride, connect.data(),
                           shape.count(), shape.nnodes.data(), shape.ncorners.data(), shape.list.data(),
                           &nedges, &edges);
    const numbers list(edges, edges + (edges == nullptr ? 0 : 2 * nedges));
    EXPECT_EQ(*result == 1 ? static_cast<qx_long>(list.size()) : -2, 2 * nedges);
    free(edges);
    return list;
}

// Each pair at its first occurrence; by lower node, the last first.
numbers slow_edges(int stride, const numbers &connect, const face_shape &shape)
{
    std::map<std::pair<qx_long, qx_long>, qx_long> seen;
    qx_long time = 0;
    for (size_t cell = 0; cell * static_cast<size_t>(stride) < connect.size(); ++cell)
        for (int f = 0; f < shape.count(); ++f) {
            const numbers face = shape.face(f);
            const size_t n = static_cast<size_t>(shape.ncorners[static_cast<size_t>(f)]);
            for (size_t c = 0; c < n; ++c) {
                const qx_long a = connect[cell * static_cast<size_t>(stride) + static_cast<size_t>(face[c])];
                const qx_long b =
                    connect[cell * static_cast<size_t>(stride) + static_cast<size_t>(face[(c + 1) % n])];
                seen.emplace(std::make_pair(std::min(a, b), std::max(a, b)), time++);
            }
        }
    std::vector<std::pair<std::pair<qx_long, qx_long>, qx_long>> all(seen.begin(), seen.end());
    std::sort(all.begin(), all.end(), [](const auto &x, const auto &y) {
        return x.first.first != y.first.first ? x.first.first < y.first.first : x.second > y.second;
    });
    numbers out;
    for (const auto &one : all) {
        out.push_back(one.first.first);
        out.push_back(one.first.second);
    }
    return out;
}

const int solids[] = {CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX};

class Faces : public FreshHost {};

const numbers one_hex = {0, 1, 2, 3, 4, 5, 6, 7};

} // namespace

TEST_F(Faces, TablesStandOutwardWithMiddlesBetweenTheirCorners)
{
    for (int kind : solids) {
        const cell_kind_nodes &nodes = cell_kinds[kind];
        double centre[3] = {};
        for (int n = 0; n < nodes.ncorners; ++n)
            for (int d = 0; d < 3; ++d)
                centre[d] += static_cast<double>(nodes.position[n][d]) / nodes.ncorners;
        std::map<std::pair<qx_long, qx_long>, int> directed;
        const face_shape first = faces_of(kind, 1), second = faces_of(kind, 2);
        ASSERT_EQ(first.count(), second.count());
        std::set<qx_long> middles;
        for (int f = 0; f < first.count(); ++f) {
            const numbers ring = first.face(f), full = second.face(f);
            const size_t n = ring.size();
            ASSERT_EQ(first.ncorners[static_cast<size_t>(f)], static_cast<int>(n));
            ASSERT_EQ(second.ncorners[static_cast<size_t>(f)], static_cast<int>(n));
            ASSERT_EQ(2 * n, full.size());
            double a[3], b[3], out[3];
            for (int d = 0; d < 3; ++d) {
                a[d] = nodes.position[ring[1]][d] - nodes.position[ring[0]][d];
                b[d] = nodes.position[ring[2]][d] - nodes.position[ring[0]][d];
                out[d] = nodes.position[ring[0]][d] - centre[d];
            }
            EXPECT_GT((a[1] * b[2] - a[2] * b[1]) * out[0] + (a[2] * b[0] - a[0] * b[2]) * out[1] +
                          (a[0] * b[1] - a[1] * b[0]) * out[2],
                      0)
                << "kind " << kind << " face " << f;
            for (size_t c = 0; c < n; ++c) {
                EXPECT_EQ(ring[c], full[c]);
                ++directed[{ring[c], ring[(c + 1) % n]}];
                middles.insert(full[n + c]);
                for (int d = 0; d < 3; ++d)
                    EXPECT_EQ(2 * nodes.position[full[n + c]][d],
                              nodes.position[ring[c]][d] + nodes.position[ring[(c + 1) % n]][d]);
            }
        }
        for (const auto &edge : directed) { // closed: each edge once each way
            EXPECT_EQ(1, edge.second);
            EXPECT_EQ(1u, directed.count({edge.first.second, edge.first.first}));
        }
        EXPECT_EQ(static_cast<size_t>(nodes.nnodes_2 - nodes.ncorners), middles.size());
    }
}

TEST_F(Faces, AHexHasSixAndATetFourByLowestNode)
{
    const boundary hex = external_faces(8, 8, one_hex, faces_of(CELL_HEX, 1));
    ASSERT_EQ(1, hex.nsets);
    EXPECT_EQ(4, hex.sets[0].nnodes);
    EXPECT_EQ(numbers(6, 0), hex.sets[0].cells);
    const boundary tet = external_faces(4, 4, {3, 0, 2, 1}, faces_of(CELL_TET, 1));
    ASSERT_EQ(1, tet.nsets);
    // Faces 0, 1 and 3 have node 0, the latest first; face 2 has node 1.
    EXPECT_EQ((numbers{0, 1, 2, 3, 1, 0, 3, 0, 2, 3, 2, 1}), tet.sets[0].connect);
}

TEST_F(Faces, TwoHexesThatShareAFaceHaveTen)
{
    const auto mesh = meshes::cells(CELL_HEX, 1, {2, 1, 1}, 1);
    const boundary out = external_faces(mesh->nnodes(), 8, mesh->connect[0], faces_of(CELL_HEX, 1));
    EXPECT_EQ(10u, out.sets.at(0).cells.size());
}

TEST_F(Faces, SetsAreNumberedInTheOrderInWhichTheirSizesComeUp)
{
    const boundary prism = external_faces(6, 6, {0, 1, 2, 3, 4, 5}, faces_of(CELL_PRISM, 1));
    ASSERT_EQ(2, prism.nsets);
    EXPECT_EQ(3, prism.sets[0].nnodes);
    EXPECT_EQ(2u, prism.sets[0].cells.size());
    EXPECT_EQ(4, prism.sets[1].nnodes);
    EXPECT_EQ(3u, prism.sets[1].cells.size());
    const boundary pyr = external_faces(5, 5, {0, 1, 2, 3, 4}, faces_of(CELL_PYR, 1));
    ASSERT_EQ(2, pyr.nsets);
    EXPECT_EQ(4, pyr.sets[0].nnodes);
}

TEST_F(Faces, ASetMayStayEmpty)
{
    // Two prisms back to back on all three sides: triangles are left alone.
    const boundary out = external_faces(9, 6, {0, 1, 2, 3, 4, 5, 3, 4, 5, 0, 1, 2}, faces_of(CELL_PRISM, 1));
    ASSERT_EQ(0, out.nsets); // the triangles of the one are those of the other, too
    const boundary open = external_faces(9, 6, {0, 1, 2, 3, 4, 5, 6, 7, 8, 3, 4, 5}, faces_of(CELL_PRISM, 1));
    EXPECT_EQ(2, open.nsets);
    face_shape sides = faces_of(CELL_PRISM, 1);
    sides.nnodes = {3, 4, 4, 4}; // without the lower triangle
    sides.ncorners = sides.nnodes;
    sides.list.erase(sides.list.begin() + 3, sides.list.begin() + 6);
    const boundary shut = external_faces(9, 6, {0, 1, 2, 3, 4, 5, 3, 4, 5, 0, 1, 2}, sides);
    ASSERT_EQ(2, shut.nsets);
    EXPECT_EQ(2u, shut.sets[0].cells.size());
    EXPECT_TRUE(shut.sets[1].cells.empty());
    EXPECT_EQ(4, shut.sets[1].nnodes);
}

TEST_F(Faces, AFaceMetThreeTimesIsExternalAgainAsItWasLast)
{
    const boundary out =
        external_faces(8, 8, {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7},
                       faces_of(CELL_HEX, 1));
    ASSERT_EQ(1, out.nsets);
    EXPECT_EQ(numbers(6, 2), out.sets[0].cells);
}

TEST_F(Faces, QuadsThatDifferInTheCornerOppositeTheLowestCancelEachOther)
{
    const face_shape quad = {{4}, {4}, {0, 1, 2, 3}};
    EXPECT_EQ(0, external_faces(6, 4, {0, 1, 2, 3, 0, 1, 4, 3}, quad).nsets);
    EXPECT_EQ(1, external_faces(6, 4, {0, 1, 2, 3, 0, 1, 2, 4}, quad).nsets);
}

TEST_F(Faces, OfARepeatedLowestCornerTheFirstCounts)
{
    const face_shape quad = {{4}, {4}, {0, 1, 2, 3}};
    // 0 at corners 0 and 2: its neighbours are 3 and 1 at the first place, 1 and 3 at the second
    EXPECT_EQ(0, external_faces(4, 4, {0, 1, 0, 3, 0, 3, 0, 1}, quad).nsets);
    // 0 at corners 0 and 1, and at 3 and 0
    EXPECT_EQ(1, external_faces(4, 4, {0, 0, 1, 2, 0, 1, 2, 0}, quad).nsets);
}

TEST_F(Faces, SecondOrderFacesAreMatchedByTheirCorners)
{
    for (int kind : solids) {
        if (kind == CELL_PYR) continue;
        const auto mesh = meshes::cells(kind, 2, {2, 2, 2}, 3);
        const int stride = cell_kinds[kind].nnodes_2;
        const boundary out = external_faces(mesh->nnodes(), stride, mesh->connect[0], faces_of(kind, 2));
        EXPECT_EQ(slow_faces(stride, mesh->connect[0], faces_of(kind, 2)), out.sets);
        for (const face_set &set : out.sets)
            EXPECT_TRUE(set.nnodes == 6 || set.nnodes == 8);
    }
}

TEST_F(Faces, BoundariesOfConformingMeshesAreClosedSurfacesThatLookOutward)
{
    for (int kind : solids) {
        const auto mesh = meshes::cells(kind, 1, {3, 4, 2}, 7, 0.1);
        const int stride = cell_kinds[kind].ncorners;
        const boundary out = external_faces(mesh->nnodes(), stride, mesh->connect[0], faces_of(kind, 1));
        std::map<std::pair<qx_long, qx_long>, int> directed;
        std::set<qx_long> used;
        qx_long nfaces = 0;
        double volume = 0;
        for (const face_set &set : out.sets)
            for (size_t f = 0; f < set.cells.size(); ++f, ++nfaces) {
                const qx_long *face = &set.connect[f * static_cast<size_t>(set.nnodes)];
                for (int c = 0; c < set.nnodes; ++c) {
                    ++directed[{face[c], face[(c + 1) % set.nnodes]}];
                    used.insert(face[c]);
                }
                for (int c = 2; c < set.nnodes; ++c) {
                    double p[3][3];
                    for (int d = 0; d < 3; ++d) {
                        p[0][d] = meshes::at(*mesh, face[0], d);
                        p[1][d] = meshes::at(*mesh, face[c - 1], d);
                        p[2][d] = meshes::at(*mesh, face[c], d);
                    }
                    volume += (p[0][0] * (p[1][1] * p[2][2] - p[1][2] * p[2][1]) +
                               p[0][1] * (p[1][2] * p[2][0] - p[1][0] * p[2][2]) +
                               p[0][2] * (p[1][0] * p[2][1] - p[1][1] * p[2][0])) /
                              6;
                }
            }
        for (const auto &edge : directed) {
            EXPECT_EQ(1, edge.second) << "kind " << kind;
            EXPECT_EQ(1u, directed.count({edge.first.second, edge.first.first})) << "kind " << kind;
        }
        EXPECT_EQ(2, static_cast<qx_long>(used.size()) - static_cast<qx_long>(directed.size()) / 2 + nfaces);
        EXPECT_NEAR(1, volume, 0.3) << "kind " << kind; // outer nodes moved a little
        EXPECT_GT(volume, 0.5);
    }
}

TEST_F(Faces, AgreeWithTheReferenceOnAnyConnectList)
{
    std::mt19937_64 random(21);
    int cancelled = 0, several = 0;
    for (int trial = 0; trial < 200; ++trial) {
        const int kind = solids[random() % 4];
        const face_shape shape = faces_of(kind, 1);
        const int stride = cell_kinds[kind].ncorners + static_cast<int>(random() % 2);
        const qx_long nnodes = 1 + static_cast<qx_long>(random() % 12);
        numbers connect;
        for (size_t n = random() % 60 * static_cast<size_t>(stride); n > 0; --n)
            connect.push_back(static_cast<qx_long>(random() % static_cast<uint64_t>(nnodes)));
        const boundary out = external_faces(nnodes, stride, connect, shape);
        ASSERT_EQ(1, out.result);
        const auto expected = slow_faces(stride, connect, shape);
        ASSERT_EQ(expected, out.sets) << "trial " << trial;
        int result;
        ASSERT_EQ(slow_edges(stride, connect, shape), edges_3d(&result, nnodes, stride, connect, shape));
        ASSERT_EQ(1, result);
        size_t left = 0;
        for (const face_set &set : out.sets)
            left += set.cells.size();
        cancelled += left * static_cast<size_t>(stride) < connect.size() / 2;
        several += out.nsets > 1;
    }
    EXPECT_GT(cancelled, 3);
    EXPECT_GT(several, 50);
}

TEST_F(Faces, AgreeWithTheReferenceThroughSeveralGrowths)
{
    for (int kind : {CELL_TET, CELL_HEX}) {
        const auto mesh = meshes::cells(kind, 1, {12, 11, 9}, 5);
        // In a random order of cells the boundary in between is large.
        const size_t stride = static_cast<size_t>(cell_kinds[kind].ncorners);
        std::vector<size_t> order(mesh->connect[0].size() / stride);
        std::iota(order.begin(), order.end(), size_t{0});
        std::shuffle(order.begin(), order.end(), std::mt19937(3));
        numbers connect;
        for (size_t cell : order)
            connect.insert(connect.end(), mesh->connect[0].begin() + static_cast<qx_long>(cell * stride),
                           mesh->connect[0].begin() + static_cast<qx_long>((cell + 1) * stride));
        const boundary out =
            external_faces(mesh->nnodes(), static_cast<int>(stride), connect, faces_of(kind, 1));
        EXPECT_EQ(slow_faces(static_cast<int>(stride), connect, faces_of(kind, 1)), out.sets);
        int result;
        EXPECT_EQ(slow_edges(static_cast<int>(stride), connect, faces_of(kind, 1)),
                  edges_3d(&result, mesh->nnodes(), static_cast<int>(stride), connect, faces_of(kind, 1)));
    }
}

TEST_F(Faces, WithNothingToFindOutputsButTheCountAreLeftAlone)
{
    for (int nfaces : {0, 6}) {
        const face_shape shape = faces_of(CELL_HEX, 1);
        int nsets = 7, set_nnodes = 7;
        qx_long ncells = 7, size = 7, nedges = 7;
        qx_long *cells = &size, *lists = &size, *edges = &size;
        EXPECT_EQ(1, UTILexternal_faces(8, nfaces == 0 ? 1 : 0, 8, one_hex.data(), nfaces,
                                        shape.nnodes.data(), shape.ncorners.data(), shape.list.data(), 1,
                                        &nsets, &ncells, &set_nnodes, &cells, &lists, &size));
        EXPECT_EQ(0, nsets);
        EXPECT_EQ(7, set_nnodes + 0 * ncells);
        EXPECT_EQ(7, ncells);
        EXPECT_EQ(&size, cells);
        EXPECT_EQ(&size, lists);
        EXPECT_EQ(1, UTILedges_3D(8, nfaces == 0 ? 1 : 0, 8, one_hex.data(), nfaces, shape.nnodes.data(),
                                  shape.ncorners.data(), shape.list.data(), &nedges, &edges));
        EXPECT_EQ(0, nedges);
        EXPECT_EQ(&size, edges);
    }
}

TEST_F(Faces, MoreSetsThanThereIsRoomForAreRefused)
{
    const boundary out = external_faces(6, 6, {0, 1, 2, 3, 4, 5}, faces_of(CELL_PRISM, 1), 1);
    EXPECT_EQ(0, out.result);
    EXPECT_EQ(0, out.nsets);
    EXPECT_EQ(0, external_faces(6, 6, {0, 1, 2, 3, 4, 5}, faces_of(CELL_PRISM, 1), 0).result);
    EXPECT_EQ(1, external_faces(6, 6, {}, faces_of(CELL_PRISM, 1), 0).result);
    EXPECT_TRUE(host_calls::seen().arrays.empty() && host_calls::seen().reports.empty());
}

TEST_F(Faces, StatusIsCheckedEvery257CellsWithoutARange)
{
    const auto mesh = meshes::cells(CELL_HEX, 1, {10, 10, 8}, 1);
    external_faces(mesh->nnodes(), 8, mesh->connect[0], faces_of(CELL_HEX, 1));
    host_calls::expect_checks({32, 64, 96}); // before cells 256, 513 and 770 of 800
    host_calls::reset();
    int result;
    edges_3d(&result, mesh->nnodes(), 8, mesh->connect[0], faces_of(CELL_HEX, 1));
    host_calls::expect_checks({32, 64, 96});
}

TEST_F(Faces, InterruptionLeavesOutputsAsTheyWere)
{
    const auto mesh = meshes::cells(CELL_HEX, 1, {10, 10, 8}, 1);
    for (int k : {0, 1, 2}) {
        host_calls::interrupt_at(k);
        const host_calls::watch watch;
        const boundary out = external_faces(mesh->nnodes(), 8, mesh->connect[0], faces_of(CELL_HEX, 1));
        EXPECT_EQ(0, out.result);
        EXPECT_EQ(-1, out.nsets);
        EXPECT_EQ(0, watch.live_blocks());
        host_calls::reset();
        host_calls::interrupt_at(k);
        int result;
        edges_3d(&result, mesh->nnodes(), 8, mesh->connect[0], faces_of(CELL_HEX, 1));
        EXPECT_EQ(0, result);
        EXPECT_EQ(0, watch.live_blocks());
        host_calls::reset();
    }
}

TEST_F(Faces, EachAllocationMayFail)
{
    const auto mesh = meshes::cells(CELL_PRISM, 1, {9, 9, 9}, 1);
    const face_shape shape = faces_of(CELL_PRISM, 1);
    int total;
    std::vector<face_set> expected;
    {
        const host_calls::watch watch;
        expected = external_faces(mesh->nnodes(), 6, mesh->connect[0], shape).sets;
        total = watch.allocations();
    }
    EXPECT_GT(total, 8);
    for (int k = 0; k < total; ++k) {
        boundary out;
        {
            const host_calls::watch watch;
            host_calls::fail_allocation(k);
            int nsets = 5, set_nnodes[2];
            qx_long ncells[2], size[2], *cells[2] = {}, *lists[2] = {};
            out.result = UTILexternal_faces(mesh->nnodes(), static_cast<qx_long>(mesh->connect[0].size()) / 6,
                                            6, mesh->connect[0].data(), shape.count(), shape.nnodes.data(),
                                            shape.ncorners.data(), shape.list.data(), 2, &nsets, ncells,
                                            set_nnodes, cells, lists, size);
            EXPECT_EQ(0, out.result) << "allocation " << k;
            EXPECT_EQ(0, watch.live_blocks()) << "allocation " << k;
            EXPECT_TRUE(nsets == 0 || nsets == 5);
            for (int s : {0, 1})
                EXPECT_TRUE(cells[s] == nullptr && lists[s] == nullptr) << "allocation " << k;
        }
        host_calls::reset();
    }
    EXPECT_TRUE(host_calls::seen().reports.empty());
    EXPECT_EQ(expected, external_faces(mesh->nnodes(), 6, mesh->connect[0], shape).sets);

    for (int k = 0, failed = 1; failed != 0; ++k) {
        const host_calls::watch watch;
        host_calls::fail_allocation(k);
        qx_long nedges = 5, *edges = nullptr;
        const int result = UTILedges_3D(mesh->nnodes(), static_cast<qx_long>(mesh->connect[0].size()) / 6, 6,
                                        mesh->connect[0].data(), shape.count(), shape.nnodes.data(),
                                        shape.ncorners.data(), shape.list.data(), &nedges, &edges);
        failed = host_calls::allocation_was_refused();
        EXPECT_EQ(failed == 0, result == 1);
        EXPECT_EQ(failed != 0, edges == nullptr);
        EXPECT_EQ(failed != 0 ? 0 : 1, watch.live_blocks());
        free(edges);
        host_calls::reset();
        ASSERT_LT(k, 100);
    }
}

TEST_F(Faces, ArraysHandedOverAreHostArraysOfNumbers)
{
    external_faces(6, 6, {0, 1, 2, 3, 4, 5}, faces_of(CELL_PRISM, 1));
    ASSERT_EQ(4u, host_calls::seen().arrays.size());
    for (const host_calls::array &array : host_calls::seen().arrays)
        EXPECT_EQ(DTYPE_QX_LONG, array.type);
}
