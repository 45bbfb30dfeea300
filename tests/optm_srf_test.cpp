// Height grids reduced to triangles: the same as the steps told one by one, and what must hold of any result.
#include <skoklana/measure.h>

#include "support/arrays.hpp"
#include "support/fresh_host.hpp"
#include "support/surface_reference.hpp"

#include <functional>
#include <map>

using namespace arrays;

namespace {

constexpr double no_number = std::numeric_limits<double>::quiet_NaN();

template <typename T> struct reduced {
    int result = -1;
    std::vector<float> coords;
    std::vector<qx_long> connect;
    std::vector<T> heights;

    qx_long ntris() const { return static_cast<qx_long>(connect.size()) / 3; }
};

template <typename T>
reduced<T> reduce(const std::vector<T> &data, qx_long nx, qx_long ny, double tolerance, int nspace = 2,
                  std::vector<float> points = {})
{
    if (points.empty()) {
        points.assign(static_cast<size_t>(2 * nspace), 0.0f);
        points[static_cast<size_t>(nspace)] = static_cast<float>(nx - 1);
        points[static_cast<size_t>(nspace) + 1] = static_cast<float>(ny - 1);
    }
    const qx_long dims[2] = {nx, ny};
    qx_long ncoords = -1, ntris = -1, *connect = nullptr;
    float *coords = nullptr;
    void *heights = nullptr;
    reduced<T> out;
    out.result = UTILoptimize_surface(dims, nspace, points.data(), dtype_of<T>, data.data(), tolerance,
                                      &ncoords, &coords, &ntris, &connect, &heights);
    if (out.result != 1) {
        EXPECT_TRUE(ncoords == -1 && ntris == -1 && !connect && !coords && !heights)
            << "outputs were written";
        return out;
    }
    out.coords.assign(coords, coords + ncoords * nspace);
    out.connect.assign(connect, connect + 3 * ntris);
    out.heights.assign(static_cast<T *>(heights), static_cast<T *>(heights) + ncoords);
    ARRfree_f(coords, "test", 0);
    free(connect);
    free(heights);
    return out;
}

// Whole numbers for whole types, and such that every type holds them.
template <typename T>
std::vector<T> grid_of(qx_long nx, qx_long ny, const std::function<double(qx_long, qx_long)> &height)
{
    std::vector<T> data;
    for (qx_long j = 0; j < ny; ++j)
        for (qx_long i = 0; i < nx; ++i)
            data.push_back(static_cast<T>(height(i, j)));
    return data;
}

template <typename T> double rounded(double value)
{
    T out;
    UTILdouble_to_type(dtype_of<T>, value, &out);
    return static_cast<double>(out);
}

template <typename T>
reference::surface told(const std::vector<T> &data, qx_long nx, qx_long ny, double tolerance)
{
    return reference::surface_reduction(std::vector<double>(data.begin(), data.end()), nx, ny, tolerance,
                                        rounded<T>)
        .run();
}

template <typename T> void expect_same(const reference::surface &expected, const reduced<T> &got)
{
    ASSERT_EQ(1, got.result);
    ASSERT_EQ(expected.connect, got.connect);
    std::vector<qx_long> places;
    for (const float x : got.coords)
        places.push_back(static_cast<qx_long>(x));
    ASSERT_EQ(expected.places, places);
    ASSERT_TRUE(same_bytes(expected.heights, std::vector<double>(got.heights.begin(), got.heights.end())));
}

// Twice the area of each triangle, by the vertices' places on a grid of unit spacing.
std::vector<qx_long> areas_of(const reference::surface &made)
{
    std::vector<qx_long> areas;
    for (size_t t = 0; t < made.tested.size(); ++t) {
        const auto at = [&](int corner, int d) {
            const size_t vertex = static_cast<size_t>(made.connect[3 * t + static_cast<size_t>(corner)]);
            return made.places[2 * vertex + static_cast<size_t>(d)];
        };
        areas.push_back((at(1, 0) - at(0, 0)) * (at(2, 1) - at(0, 1)) -
                        (at(1, 1) - at(0, 1)) * (at(2, 0) - at(0, 0)));
    }
    return areas;
}

template <typename T> class Reduction : public FreshHost {
};
TYPED_TEST_SUITE(Reduction, all_types);

class HeightGrid : public FreshHost {};

} // namespace

TYPED_TEST(Reduction, IsWhatTheStepsTell)
{
    using T = TypeParam;
    int boundary_splits = 0, inner_splits = 0, refined = 0, fanned = 0;
    std::mt19937_64 random(17);
    for (int trial = 0; trial < 60; ++trial) {
        const qx_long nx = 2 + static_cast<qx_long>(random() % 14),
                      ny = 2 + static_cast<qx_long>(random() % 14);
        const double a = 0.1 + 0.01 * static_cast<double>(random() % 60);
        const auto data = grid_of<T>(nx, ny, [&](qx_long i, qx_long j) -> double {
            const double x = static_cast<double>(i), y = static_cast<double>(j);
            switch (trial % 5) {
            case 0: return static_cast<double>(random() % 4);
            case 1: return 40 + 30 * std::sin(a * x) * std::cos(a * y);
            case 2: return (x - 6) * (x - 6) * 0.7 + (y - 5) * (y - 5) * 0.6;
            case 3: return i == nx / 2 && j == ny / 2 ? 5 : 0;
            default: return 10 + 3 * x + 2 * y + static_cast<double>(random() % 3);
            }
        });
        const double tolerance = trial % 3 == 0 ? 0 : static_cast<double>(random() % 1000) / 150;
        const reference::surface expected = told(data, nx, ny, tolerance);
        expect_same(expected, reduce(data, nx, ny, tolerance));
        if (this->HasFatalFailure())
            FAIL() << "trial " << trial << ": " << nx << " x " << ny << " " << tolerance;
        boundary_splits += expected.boundary_splits;
        inner_splits += expected.inner_splits;
        refined += expected.refined;
        fanned += expected.fanned;
    }
    EXPECT_GT(boundary_splits, 10);
    EXPECT_GT(inner_splits, 10);
    EXPECT_GT(refined, 0);
    EXPECT_GT(fanned, 0);
}

TYPED_TEST(Reduction, KeepsWholeNumbersAndFractionsOfItsType)
{
    using T = TypeParam;
    const T low = std::numeric_limits<T>::is_signed ? T(-100) : T(3);
    const auto data = grid_of<T>(
        9, 9, [&](qx_long i, qx_long j) { return static_cast<double>(low) + (i == 4 && j > 2 ? 90 : 0); });
    const auto made = reduce(data, 9, 9, 0.5);
    expect_same(told(data, 9, 9, 0.5), made);
    EXPECT_NE(made.heights.end(), std::find(made.heights.begin(), made.heights.end(), T(low + T(90))));
}

TEST_F(HeightGrid, FlatAtZeroGivesTwoTriangles)
{
    for (const qx_long nx : {2, 3, 7, 20})
        for (const qx_long ny : {2, 5, 11}) {
            const auto made = reduce(std::vector<float>(static_cast<size_t>(nx * ny), 0.0f), nx, ny, 0);
            EXPECT_EQ((std::vector<qx_long>{3, 0, 1, 2, 3, 1}), made.connect) << nx << " " << ny;
            const float x = static_cast<float>(nx - 1), y = static_cast<float>(ny - 1);
            EXPECT_EQ((std::vector<float>{0, 0, x, 0, x, y, 0, y}), made.coords);
        }
}

TEST_F(HeightGrid, FlatAtAnotherHeightDoesWhereRowsAreCrossedAtNodes)
{
    EXPECT_EQ(2, reduce(std::vector<double>(9 * 5, 7.25), 9, 5, 0).ntris());
    EXPECT_EQ(2, reduce(std::vector<double>(5 * 5, -7.25), 5, 5, 0).ntris());
    // Elsewhere the rows' line is not the height.
    EXPECT_GT(reduce(std::vector<double>(8 * 5, 7.25), 8, 5, 0).ntris(), 2);
}

TEST_F(HeightGrid, ASpikeInsideGetsTrianglesAroundIt)
{
    const auto data = grid_of<float>(9, 9, [](qx_long i, qx_long j) { return i == 3 && j == 5 ? 4 : 0; });
    EXPECT_GT(reduce(data, 9, 9, 1).ntris(), 2);
    EXPECT_EQ(2, reduce(data, 9, 9, 4).ntris());
}

TEST_F(HeightGrid, ASpikeOnADiagonalIsSeenByTheRowsOnly)
{
    const auto at = [](qx_long i, qx_long j) {
        return grid_of<double>(5, 5, [=](qx_long x, qx_long y) { return x == i && y == j ? 4 : 0; });
    };
    EXPECT_GT(reduce(at(2, 2), 5, 5, 1).ntris(), 2)
        << "the row of the second triangle begins on the diagonal";
    EXPECT_GT(reduce(at(1, 1), 5, 5, 1).ntris(), 2) << "inside the first";
}

TEST_F(HeightGrid, ALargeToleranceLeavesTheCorners)
{
    std::mt19937_64 random(3);
    const auto data =
        grid_of<float>(12, 9, [&](qx_long, qx_long) { return static_cast<double>(random() % 10); });
    const auto made = reduce(data, 12, 9, 1000);
    EXPECT_EQ(2, made.ntris());
    EXPECT_EQ((std::vector<float>{data[0], data[11], data.back(), data[8 * 12]}), made.heights);
}

TEST_F(HeightGrid, ABendOfTheBoundaryIsAVertex)
{
    const auto data = grid_of<double>(11, 4, [](qx_long i, qx_long j) -> double {
        return j == 0 && i > 6 ? static_cast<double>(i - 6) : 0;
    });
    const auto made = reduce(data, 11, 4, 0);
    bool found = false;
    for (size_t v = 0; v < made.heights.size(); ++v)
        found = found || (made.coords[2 * v] == 6 && made.coords[2 * v + 1] == 0);
    EXPECT_TRUE(found);
    EXPECT_EQ(6, made.coords[2]) << "the first vertex after the first corner";
}

TEST_F(HeightGrid, SteepTrianglesAreNotLookedAt)
{
    // A bowl: only the boundary bends enough for what is looked at.
    const auto data = grid_of<float>(9, 9, [](qx_long i, qx_long j) {
        return static_cast<double>((i - 4) * (i - 4) + (j - 4) * (j - 4));
    });
    const auto made = reduce(data, 9, 9, 0);
    EXPECT_EQ(30, made.ntris());
    EXPECT_EQ(32u, made.heights.size());
}

TEST_F(HeightGrid, CoordinatesAreThoseOfTheGridWithZAtZero)
{
    const auto data =
        grid_of<float>(5, 3, [](qx_long i, qx_long j) { return static_cast<double>(i * j % 4); });
    const std::vector<float> flat = {10.5f, -3, 20.5f, 7}, deep = {10.5f, -3, 99, 20.5f, 7, 100};
    const auto two = reduce(data, 5, 3, 0, 2, flat), three = reduce(data, 5, 3, 0, 3, deep);
    const auto expected = told(data, 5, 3, 0);
    EXPECT_EQ(expected.connect, two.connect);
    EXPECT_EQ(expected.connect, three.connect);
    ASSERT_GT(two.heights.size(), 4u);
    for (size_t v = 0; v < two.heights.size(); ++v) {
        const float x = 10.5f + 2.5f * static_cast<float>(expected.places[2 * v]);
        const float y = -3 + 5 * static_cast<float>(expected.places[2 * v + 1]);
        EXPECT_EQ((std::vector<float>{x, y}), (std::vector<float>{two.coords[2 * v], two.coords[2 * v + 1]}));
        EXPECT_EQ(
            (std::vector<float>{x, y, 0}),
            (std::vector<float>{three.coords[3 * v], three.coords[3 * v + 1], three.coords[3 * v + 2]}));
    }
}

TEST_F(HeightGrid, TestedTrianglesTileTheGridUntilOneIsForced)
{
    std::mt19937_64 random(23);
    int tiled = 0, forced = 0;
    for (int trial = 0; trial < 300; ++trial) {
        const qx_long nx = 3 + trial % 11, ny = 3 + trial % 7;
        const double step = static_cast<double>(random() % 100) / 100;
        const auto data = grid_of<double>(nx, ny, [&](qx_long i, qx_long j) {
            return std::sin(step * static_cast<double>(i)) * 3 + std::cos(step * static_cast<double>(j)) * 2;
        });
        const double tolerance = static_cast<double>(random() % 100) / 70;
        const auto made = told(data, nx, ny, tolerance);
        expect_same(made, reduce(data, nx, ny, tolerance));
        qx_long sum = 0, least = 1;
        for (const qx_long area : areas_of(made)) {
            sum += area;
            least = std::min(least, area);
        }
        if (made.fanned > 0 || least < 1) { // what lies upon itself is filled as it comes
            ++forced;
            continue;
        }
        ++tiled;
        EXPECT_EQ(2 * (nx - 1) * (ny - 1), sum) << trial;
        // Inner edges twice, once each way; the others are the boundary's, of which all but refined ones have one.
        std::map<std::pair<qx_long, qx_long>, int> edges;
        for (size_t t = 0; t < made.tested.size(); ++t)
            for (size_t k = 0; k < 3; ++k)
                ++edges[{made.connect[3 * t + k], made.connect[3 * t + (k + 1) % 3]}];
        for (const auto &[edge, count] : edges) {
            EXPECT_EQ(1, count);
            const auto on_side = [&](qx_long v) {
                const qx_long i = made.places[2 * static_cast<size_t>(v)],
                              j = made.places[2 * static_cast<size_t>(v) + 1];
                return i == 0 || j == 0 || i == nx - 1 || j == ny - 1;
            };
            if (made.refined == 0 && made.boundary_splits == 0 &&
                edges.count({edge.second, edge.first}) == 0) {
                EXPECT_TRUE(on_side(edge.first) && on_side(edge.second));
            }
        }
    }
    EXPECT_GT(tiled, 30);
    EXPECT_GT(forced, 0);
}

TEST_F(HeightGrid, NewVerticesOnEdgesHaveTheHeightOfTheEdge)
{
    std::mt19937_64 random(29);
    int corrected = 0;
    for (int trial = 0; trial < 60; ++trial) {
        const auto data =
            grid_of<short>(12, 12, [&](qx_long, qx_long) { return static_cast<double>(random() % 9); });
        const auto made = reduce(data, 12, 12, 2);
        const auto expected = told(data, 12, 12, 2);
        expect_same(expected, made);
        for (size_t v = 0; v < made.heights.size(); ++v)
            corrected += made.heights[v] !=
                         data[static_cast<size_t>(expected.places[2 * v + 1] * 12 + expected.places[2 * v])];
    }
    EXPECT_GT(corrected, 5);
}

TEST_F(HeightGrid, NothingPassesWithoutNumbers)
{
    std::vector<double> lost(36, no_number), one(36, 0.0);
    one[14] = no_number;
    for (const auto &data : {lost, one}) {
        const auto expected = told(data, 6, 6, 1);
        expect_same(expected, reduce(data, 6, 6, 1));
        EXPECT_GT(expected.tested.size(), 2u);
    }
    for (const double tolerance : {-1.0, no_number, -std::numeric_limits<double>::infinity()}) {
        const std::vector<double> flat(36, 0.0);
        expect_same(told(flat, 6, 6, tolerance), reduce(flat, 6, 6, tolerance));
    }
    const double infinite = std::numeric_limits<double>::infinity();
    EXPECT_EQ(2, reduce(std::vector<double>(36, 1.0), 6, 6, infinite).ntris());
}

TEST_F(HeightGrid, OutOfRangeIsTurnedDownWithoutAWord)
{
    const std::vector<float> data(16, 0.0f);
    const std::vector<float> points(8, 0.0f);
    EXPECT_EQ(0, reduce(data, 1, 16, 0).result);
    EXPECT_EQ(0, reduce(data, 16, 1, 0).result);
    EXPECT_EQ(0, reduce(data, 0, -4, 0).result);
    EXPECT_EQ(0, reduce(data, 4, 4, 0, 1, points).result);
    EXPECT_EQ(0, reduce(data, 4, 4, 0, 4, points).result);
    const qx_long dims[2] = {4, 4};
    for (const int type : {-1, 7})
        EXPECT_EQ(0, UTILoptimize_surface(dims, 2, points.data(), type, data.data(), 0, nullptr, nullptr,
                                          nullptr, nullptr, nullptr));
    EXPECT_TRUE(host_calls::seen().reports.empty());
    EXPECT_TRUE(host_calls::seen().statuses.empty());
}

TEST_F(HeightGrid, ArraysStartAt1024AndGrowByAsMuch)
{
    const auto data = grid_of<short>(120, 120, [](qx_long i, qx_long j) {
        return 1000 * std::sin(0.2 * static_cast<double>(i)) * std::cos(0.21 * static_cast<double>(j));
    });
    const auto made = reduce(data, 120, 120, 40, 3);
    const qx_long nvertices = static_cast<qx_long>(made.heights.size());
    ASSERT_GT(nvertices, 2048);
    std::map<int, std::vector<qx_long>> asked;
    for (const auto &array : host_calls::seen().arrays)
        asked[array.type].push_back(array.count);
    const auto steps = [](qx_long count, qx_long entries) {
        std::vector<qx_long> all;
        for (qx_long capacity = 1024;; capacity += 1024) {
            all.push_back(capacity * entries);
            if (count < capacity) return all; // one entry stays free
        }
    };
    EXPECT_EQ(steps(nvertices, 3), asked[DTYPE_FLOAT]);
    EXPECT_EQ(steps(nvertices, sizeof(short)), asked[DTYPE_CHAR]);
    EXPECT_EQ(steps(made.ntris(), 3), asked[DTYPE_QX_LONG]);
}

TEST_F(HeightGrid, WithoutMemoryThereIsNoResult)
{
    std::mt19937_64 random(37);
    const auto data =
        grid_of<short>(40, 40, [&](qx_long, qx_long) { return static_cast<double>(random() % 50); });
    const float points[4] = {0, 0, 39, 39};
    const qx_long dims[2] = {40, 40};
    int refused = 0;
    for (int k = 0;; ++k) {
        qx_long ncoords = -1, ntris = -1, *connect = nullptr;
        float *coords = nullptr;
        void *heights = nullptr;
        const host_calls::watch watch;
        host_calls::fail_allocation(k);
        const int result = UTILoptimize_surface(dims, 2, points, DTYPE_SHORT, data.data(), 3, &ncoords,
                                                &coords, &ntris, &connect, &heights);
        const bool was_refused = host_calls::allocation_was_refused();
        host_calls::reset();
        if (!was_refused) {
            EXPECT_EQ(1, result);
            EXPECT_EQ(3, watch.live_blocks());
            free(coords);
            free(connect);
            free(heights);
            break;
        }
        ++refused;
        EXPECT_EQ(0, result) << k;
        EXPECT_EQ(0, watch.live_blocks()) << k;
        EXPECT_TRUE(ncoords == -1 && ntris == -1 && !connect && !coords && !heights) << k;
    }
    EXPECT_GT(refused, 12); // arrays, their growth, boxes, corners, watches, polygons
}
