#include <skoklana/scatter.h>

#include "support/arrays.hpp"
#include "support/host_calls.hpp"
#include "support/scatter_reference.hpp"

#include <gtest/gtest.h>

#include <map>

using namespace arrays;
using scatter_reference::branches;
using scatter_reference::grid;

namespace {

struct scattered_points {
    int nspace;
    std::vector<float> coords;
    qx_long count() const { return static_cast<qx_long>(coords.size()) / nspace; }
};

// Points in and around a box, some of them on nodes of its grid.
scattered_points points_around(const grid &g, int count, unsigned seed)
{
    std::mt19937 random(seed);
    scattered_points p = {g.ndim + static_cast<int>(seed % 2), {}};
    for (int i = 0; i < count; ++i)
        for (int k = 0; k < p.nspace; ++k) {
            if (k >= g.ndim) {
                p.coords.push_back(std::numeric_limits<float>::quiet_NaN());
                continue;
            }
            const float size = g.max[k] - g.min[k], part = static_cast<float>(random() % 1000) / 1000;
            const qx_long n = std::max<qx_long>(1, g.dims[k] - 1);
            p.coords.push_back(
                i % 5 == 0 ? static_cast<float>(random() % n) * (size / static_cast<float>(n)) + g.min[k]
                           : g.min[k] + size * (part * 1.4f - 0.2f));
        }
    return p;
}

template <typename T> std::vector<T> small_values(qx_long count, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<T> values;
    for (qx_long i = 0; i < count; ++i)
        values.push_back(std::is_integral_v<T> ? static_cast<T>(random() % 100)
                                               : static_cast<T>(random() % 100000) / static_cast<T>(777));
    return values;
}

template <typename T> struct spread_result {
    int returned, null_flag;
    int radius[3];
    std::vector<T> out;
};

template <typename T>
spread_result<T> spread_by_library(const grid &g, const scattered_points &p, int veclen,
                                   const std::vector<T> &data, int null_flag, T null_value)
{
    spread_result<T> r;
    qx_long ngrid = 1;
    for (int k = 0; k < g.ndim; ++k)
        ngrid *= g.dims[k];
    std::copy(g.radius, g.radius + 3, r.radius);
    r.null_flag = null_flag;
    r.out.assign(static_cast<size_t>(ngrid * veclen), T(77));
    r.returned = UTILscat_data_interp2(p.count(), p.nspace, p.coords.data(), dtype_of<T>, veclen, data.data(),
                                       g.min, g.max, g.ndim, g.dims, r.radius, g.power, &r.null_flag,
                                       &null_value, r.out.data());
    return r;
}

std::vector<grid> grids()
{
    std::vector<grid> all;
    for (int power : {1, 2, 3, 4, 7, 10, 20, 0, -1}) {
        all.push_back({1, {40, 1, 1}, {-1, 0, 0}, {3, 0, 0}, {3, 0, 0}, power});
        all.push_back({2, {13, 9, 1}, {0, -2, 0}, {4, 2, 0}, {2, 3, 0}, power});
        all.push_back({3, {7, 6, 5}, {0.1f, 0, -1}, {1.1f, 3, 1}, {1, 2, 0}, power});
    }
    for (int power : {2, 3}) {
        all.push_back({1, {1, 1, 1}, {0, 0, 0}, {1, 0, 0}, {1, 0, 0}, power}); // one node
        all.push_back({1, {5, 1, 1}, {1, 0, 0}, {1, 0, 0}, {2, 0, 0}, power}); // no extent
        all.push_back({2, {9, 1, 1}, {0, 0, 0}, {1, 1, 0}, {1, 1, 0}, power}); // an axis of one node
        all.push_back({2, {9, 6, 1}, {0, 2, 0}, {1, 2, 0}, {1, 1, 0}, power}); // an axis without extent
        all.push_back({3, {6, 1, 8}, {0, 2, 0}, {1, 3, 1}, {1, 1, 4}, power});
        all.push_back({2, {400, 3, 1}, {0, 0, 0}, {1, 1, 0}, {300, 1, 0}, power}); // rows longer than a piece
        all.push_back({1, {700, 1, 1}, {0, 0, 0}, {1, 0, 0}, {300, 0, 0}, power});
        all.push_back({2, {9, 6, 1}, {0, 2, 0}, {1, 1, 0}, {1, -1, 0}, power}); // turned round, no window
    }
    return all;
}

// How far a result may be from the reference: powers other than 1 and 2 are taken by products.
template <typename T> bool near_enough(T expected, T got, int power)
{
    if (memcmp(&expected, &got, sizeof(T)) == 0) return true;
    if (std::isnan(static_cast<double>(expected)) && std::isnan(static_cast<double>(got))) return true;
    if (power == 1 || power == 2) return false;
    const double a = static_cast<double>(expected), b = static_cast<double>(got);
    return std::fabs(a - b) <= (std::is_integral_v<T> ? 1.0 : 1e-6 * std::fabs(a));
}

template <typename T> class ScatterOntoGrid : public testing::Test {
};
TYPED_TEST_SUITE(ScatterOntoGrid, all_types);

} // namespace

TYPED_TEST(ScatterOntoGrid, AgreesWithTheReferenceOnEveryGridAndPower)
{
    using T = TypeParam;
    branches seen;
    unsigned seed = 0;
    for (const grid &g : grids())
        for (int veclen : {1, 3})
            for (int null_flag : {0, 1}) {
                ++seed;
                const scattered_points p = points_around(g, seed % 7 == 0 ? 4 : 60, seed);
                const std::vector<T> data = small_values<T>(p.count() * veclen, seed);
                const T null_value = null_flag != 0 ? data[0] : T(101);
                bool any_empty;
                const std::vector<T> expected =
                    scatter_reference::spread<T>(g, p.count(), p.nspace, p.coords.data(), veclen, data.data(),
                                                 null_flag != 0, null_value, &any_empty, &seen);
                const spread_result<T> got = spread_by_library(g, p, veclen, data, null_flag, null_value);
                EXPECT_EQ(1, got.returned);
                EXPECT_EQ(null_flag != 0 || any_empty ? 1 : 0, got.null_flag);
                ASSERT_EQ(expected.size(), got.out.size());
                for (size_t i = 0; i < expected.size(); ++i)
                    ASSERT_TRUE(near_enough(expected[i], got.out[i], g.power))
                        << +expected[i] << " and " << +got.out[i] << " at " << i << ", ndim " << g.ndim
                        << ", power " << g.power << ", seed " << seed;
            }
    EXPECT_GT(std::min({seen.pinned, seen.refused, seen.empty, seen.summed, seen.null}), 100);
}

TYPED_TEST(ScatterOntoGrid, EmptyNodesHaveTheNullValueItself)
{
    using T = TypeParam;
    for (T null_value : edge_values<T>()) {
        const grid g = {2, {20, 20, 1}, {0, 0, 0}, {1, 1, 0}, {1, 1, 0}, 2};
        const scattered_points p = {2, {0.5f, 0.5f}};
        const spread_result<T> got = spread_by_library<T>(g, p, 1, {T(1)}, 0, null_value);
        EXPECT_EQ(1, got.null_flag);
        EXPECT_EQ(0, memcmp(&got.out[0], &null_value, sizeof null_value)) << +null_value;
        EXPECT_EQ(T(1), got.out[9 * 20 + 9]);
    }
}

// Grids of several tiles: of some planes; of rows, where a plane is larger than a tile; of single rows that are. And
// more points, or more tiles of points, than are listed at a time.
TEST(ScatterData, LargeGridsAndManyPointsAgreeWithTheReference)
{
    const struct {
        grid g;
        int count, veclen;
    } cases[] = {
        {{3, {70, 60, 40}, {0, 0, 0}, {1, 2, 3}, {1, 2, 1}, 2}, 5000, 1},
        {{3, {70, 60, 40}, {0, 0, 0}, {1, 2, 3}, {1, 2, 1}, 2}, 5000, 2},
        {{3, {200, 180, 6}, {0, 0, 0}, {1, 2, 3}, {5, 30, 2}, 2}, 300, 1},
        {{2, {300, 300, 1}, {0, 0, 0}, {1, 2, 0}, {1, 1, 0}, 2}, 70000, 1},
        {{2, {33000, 60, 1}, {0, 0, 0}, {1, 2, 0}, {1, 60, 0}, 2}, 6000, 1},
        {{1, {50000, 1, 1}, {0, 0, 0}, {1, 0, 0}, {200, 0, 0}, 2}, 500, 1},
    };
    for (const auto &c : cases) {
        const grid &g = c.g;
        const scattered_points p = points_around(g, c.count, 3);
        const std::vector<double> data = small_values<double>(p.count() * c.veclen, 5);
        bool any_empty;
        branches seen;
        const std::vector<double> expected = scatter_reference::spread<double>(
            g, p.count(), p.nspace, p.coords.data(), c.veclen, data.data(), true, data[0], &any_empty, &seen);
        EXPECT_GT(std::min(seen.summed, seen.null), 0) << "of the first point, which is in the grid";
        const spread_result<double> got = spread_by_library<double>(g, p, c.veclen, data, 1, data[0]);
        EXPECT_TRUE(same_bytes(expected, got.out)) << g.ndim << " axes, " << c.count << " points";
    }
}

// Lists of points are for speed alone.
TEST(ScatterData, NoMemoryForTilesChangesNothing)
{
    const grid g = {3, {70, 60, 40}, {0, 0, 0}, {1, 2, 3}, {1, 2, 1}, 2};
    const scattered_points p = points_around(g, 300, 3);
    const std::vector<float> data = small_values<float>(p.count(), 5);
    const spread_result<float> expected = spread_by_library<float>(g, p, 1, data, 0, 0.0f);
    for (int k : {2, 3}) { // behind the sums and weights
        const host_calls::watch watch;
        host_calls::fail_allocation(k);
        const spread_result<float> got = spread_by_library<float>(g, p, 1, data, 0, 0.0f);
        EXPECT_TRUE(host_calls::allocation_was_refused());
        EXPECT_EQ(1, got.returned);
        EXPECT_TRUE(same_bytes(expected.out, got.out));
        EXPECT_EQ(0, watch.live_blocks());
    }
    EXPECT_TRUE(host_calls::report_texts().empty());
    host_calls::reset();
}

TEST(ScatterData, FirstOfTwoPointsOnANodeStays)
{
    const grid g = {2, {3, 3, 1}, {0, 0, 0}, {2, 2, 0}, {1, 1, 0}, 2};
    const scattered_points p = {2, {1.5f, 1, 1, 1, 1, 1}};
    const spread_result<float> got = spread_by_library<float>(g, p, 1, {7, 3, 5}, 0, -1.0f);
    EXPECT_EQ(3.0f, got.out[4]) << "the sum before it is given up, the point behind it refused";
    EXPECT_EQ(0, got.null_flag) << "every node was reached";
}

TEST(ScatterData, ZeroRadiusIsWrittenBackAsOne)
{
    const grid g = {3, {4, 4, 4}, {0, 0, 0}, {1, 1, 1}, {0, 2, 0}, 2};
    const spread_result<float> got = spread_by_library<float>(g, {3, {0.5f, 0.5f, 0.5f}}, 1, {1}, 0, 0.0f);
    EXPECT_EQ(1, got.radius[0]);
    EXPECT_EQ(2, got.radius[1]);
    EXPECT_EQ(1, got.radius[2]);
}

TEST(ScatterData, WindowOfOneAxisIsOneNodeShorterAbove)
{
    for (int ndim : {1, 2}) {
        const grid g = {ndim, {11, 1, 1}, {0, 0, 0}, {10, 1, 0}, {2, 1, 0}, 2};
        const spread_result<float> got = spread_by_library<float>(g, {2, {5.5f, 0}}, 1, {1}, 0, -1.0f);
        for (int i = 0; i < 11; ++i)
            EXPECT_EQ(i >= 3 && i <= (ndim == 1 ? 6 : 7) ? 1.0f : -1.0f, got.out[i]) << ndim << ", " << i;
    }
}

TEST(ScatterData, PointsOutsideReachInWithTwoAxesAndCountAsEndsWithOne)
{
    const auto reached = [](int ndim, float x) {
        const grid g = {ndim, {11, 11, 1}, {0, 0, 0}, {10, 10, 0}, {2, 2, 0}, 2};
        const spread_result<float> got = spread_by_library<float>(g, {2, {x, 0.25f}}, 1, {1}, 0, -1.0f);
        return std::count(got.out.begin(), got.out.begin() + 11, 1.0f);
    };
    EXPECT_EQ(3, reached(2, -0.75f)) << "up to a step below the box, the centre is still the first node";
    EXPECT_EQ(2, reached(2, -1.5f));
    EXPECT_EQ(1, reached(2, 12.5f));
    EXPECT_EQ(0, reached(2, 13.5f));
    EXPECT_EQ(2, reached(1, -50));
    EXPECT_EQ(3, reached(1, 50));
}

TEST(ScatterData, FarAndUndefinedCoordinatesReachNothing)
{
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    for (int ndim : {2, 3})
        for (float bad : {inf, -inf, nan, 3e38f, -3e38f}) {
            const grid g = {ndim, {4, 4, 4}, {0, 0, 0}, {1e-30f, 1, 1}, {2147483647, 2, 2}, 2};
            const spread_result<float> got =
                spread_by_library<float>(g, {3, {bad, 0.5f, 0.5f}}, 1, {1}, 0, -1.0f);
            EXPECT_EQ(1, got.returned);
            EXPECT_EQ(static_cast<long>(got.out.size()), std::count(got.out.begin(), got.out.end(), -1.0f));
        }
    const grid line = {1, {4, 1, 1}, {0, 0, 0}, {1, 0, 0}, {2, 0, 0}, 2};
    for (float bad : {inf, -inf, nan})
        EXPECT_EQ(1, spread_by_library<float>(line, {1, {bad}}, 1, {1}, 0, -1.0f).returned);
}

TEST(ScatterData, ResultsHaveSinglePrecisionAndBounds)
{
    const grid g = {1, {2, 1, 1}, {0, 0, 0}, {1, 0, 0}, {1, 0, 0}, 2};
    const scattered_points p = {1, {0}};
    EXPECT_EQ(16777216, spread_by_library<int>(g, p, 1, {16777217}, 0, 0).out[0]);
    EXPECT_EQ(static_cast<double>(0.1f), spread_by_library<double>(g, p, 1, {0.1}, 0, 0.0).out[0]);
    EXPECT_EQ(1e38, spread_by_library<double>(g, p, 1, {1e300}, 0, 0.0).out[0]);
    EXPECT_EQ(-1e38, spread_by_library<double>(g, p, 1, {-1e39}, 0, 0.0).out[0]);
    EXPECT_EQ(1e38f, spread_by_library<float>(g, p, 1, {3e38f}, 0, 0.0f).out[0]);
    EXPECT_EQ(9007199254740992,
              spread_by_library<qx_long>(g, p, 1, {9007199254740993}, 0, qx_long(0)).out[0]);
}

TEST(ScatterData, DistanceThatOverflowsLeavesTheNodeEmpty)
{
    const grid g = {2, {2, 2, 1}, {0, 0, 0}, {1e30f, 1e30f, 0}, {1, 1, 0}, 2};
    const spread_result<float> got = spread_by_library<float>(g, {2, {1e20f, 1e20f}}, 1, {4}, 0, -1.0f);
    EXPECT_EQ((std::vector<float>{-1, -1, -1, -1}), got.out);
    EXPECT_EQ(1, got.null_flag);
}

TEST(ScatterData, WeightThatIsSaturatedTakesNoMore)
{
    // 1 / 1e-38 and a little below it is 1e38 and a little more.
    const float near = 1.2e-19f;
    const grid g = {1, {2, 1, 1}, {0, 0, 0}, {1, 0, 0}, {1, 0, 0}, 2};
    const spread_result<double> got =
        spread_by_library<double>(g, {1, {near, near, near, near}}, 1, {1, 1, 9, 9}, 0, 0.0);
    EXPECT_EQ(1.0, got.out[0]);
}

TEST(ScatterData, StatusIsCheckedAtEvery129thPointOfTwoAndThreeAxes)
{
    for (int ndim : {1, 2, 3}) {
        const grid g = {ndim, {5, 5, 5}, {0, 0, 0}, {1, 1, 1}, {1, 1, 1}, 2};
        const scattered_points p = points_around(g, 400, 2);
        std::vector<float> data(400, 2.0f); // null, all of them: their rounds count
        host_calls::reset();
        EXPECT_EQ(1, spread_by_library<float>(g, p, 1, data, 1, 2.0f).returned);
        std::vector<int> percents;
        for (const host_calls::status &status : host_calls::seen().statuses)
            percents.push_back(status.percent);
        EXPECT_EQ(ndim == 1 ? std::vector<int>() : (std::vector<int>{32, 64, 96}), percents);
        EXPECT_TRUE(host_calls::seen().pushes.empty());
    }
}

TEST(ScatterData, InterruptionLeavesEverythingButTheRadius)
{
    const grid g = {3, {5, 5, 5}, {0, 0, 0}, {1, 1, 1}, {1, 0, 1}, 2};
    const scattered_points p = points_around(g, 400, 2);
    const std::vector<short> data = small_values<short>(400, 1);
    for (int k = 0; k < 3; ++k) {
        host_calls::reset();
        host_calls::interrupt_at(k);
        const host_calls::watch watch;
        short null_value = 5;
        int null_flag = 0, radius[3] = {1, 0, 1};
        std::vector<short> out(125, 77);
        EXPECT_EQ(0, UTILscat_data_interp2(400, p.nspace, p.coords.data(), DTYPE_SHORT, 1, data.data(), g.min,
                                           g.max, 3, g.dims, radius, 2, &null_flag, &null_value, out.data()));
        EXPECT_EQ(std::vector<short>(125, 77), out);
        EXPECT_EQ(0, null_flag);
        EXPECT_EQ(1, radius[1]);
        EXPECT_EQ(static_cast<size_t>(k) + 1, host_calls::seen().statuses.size());
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
    host_calls::reset();
}

TEST(ScatterData, FailuresAreReportedAndLeaveTheOutputs)
{
    const float coords[2] = {0, 0}, min[4] = {0, 0, 0, 0}, max[4] = {1, 1, 1, 1}, value = 1;
    const qx_long dims[4] = {2, 2, 2, 2};
    const float null_value = 3;
    const auto run = [&](int type, int ndim, const qx_long *sizes, int *radius) {
        int null_flag = 0;
        std::vector<float> out(16, 77);
        const int returned = UTILscat_data_interp2(0, 4, coords, type, 1, &value, min, max, ndim, sizes,
                                                   radius, 2, &null_flag, &null_value, out.data());
        EXPECT_EQ(0, null_flag);
        EXPECT_EQ(std::vector<float>(16, 77), out);
        return returned;
    };
    using texts = std::vector<std::string>;
    for (int type : {-1, 7}) {
        host_calls::reset();
        int radius[4] = {};
        EXPECT_EQ(0, run(type, 2, dims, radius));
        EXPECT_EQ(texts{"UTILscat_interp: unknown data type"}, host_calls::report_texts());
        EXPECT_EQ(0, radius[0]);
    }
    for (int ndim : {0, -1, 4}) {
        host_calls::reset();
        int radius[4] = {};
        EXPECT_EQ(0, run(DTYPE_FLOAT, ndim, dims, radius));
        EXPECT_EQ(texts{"UTILscat_interp: illegal ndim"}, host_calls::report_texts());
        EXPECT_EQ(ndim == 4 ? 1 : 0, radius[3]);
    }
    for (int k = 0; k < 2; ++k) {
        host_calls::reset();
        const host_calls::watch watch;
        host_calls::fail_allocation(k);
        int radius[4] = {};
        EXPECT_EQ(0, run(DTYPE_FLOAT, 2, dims, radius));
        EXPECT_EQ(texts{"UTILscat_interp: cannot allocate arrays"}, host_calls::report_texts());
        EXPECT_EQ(2, host_calls::seen().reports[0].severity);
        EXPECT_EQ(0, radius[0]);
    }
    host_calls::reset();
    const qx_long huge[4] = {qx_long(1) << 40, qx_long(1) << 40, 1, 1};
    int radius[4] = {};
    EXPECT_EQ(0, run(DTYPE_FLOAT, 2, huge, radius));
    EXPECT_EQ(texts{"UTILscat_interp: cannot allocate arrays"}, host_calls::report_texts());
    host_calls::reset();
}

// ---- bins ------------------------------------------------------------------------------------------------

namespace {

std::vector<qx_long> chain_of(const scat_interp_bins *bins, qx_long bin)
{
    std::vector<qx_long> points;
    for (qx_long entry = bins->bins[bin]; entry != 0; entry = bins->next[entry])
        points.push_back(bins->nodes[entry]);
    return points;
}

} // namespace

TEST(ScatterBins, ChainsHoldThePointsOfEachCellNewestFirst)
{
    std::mt19937 random(1);
    for (int ndim : {1, 2, 3}) {
        const qx_long dims[3] = {4, 3, 6};
        const float min[3] = {0, -1, 2}, max[3] = {3, 1, 4.5f};
        std::vector<float> coords;
        for (int i = 0; i < 500 * 3; ++i)
            coords.push_back(static_cast<float>(random() % 130) / 20 - 1.5f);
        std::map<qx_long, std::vector<qx_long>> expected;
        qx_long kept = 0;
        for (qx_long i = 0; i < 500; ++i) {
            qx_long at[3] = {0, 0, 0};
            bool inside = true;
            for (int k = 0; k < ndim; ++k) {
                float t = (coords[3 * i + k] - min[k]) / (max[k] - min[k]);
                inside = inside && !(t < 0 || t > 1);
                if (t == 1.0f) t = 0.9999f;
                at[k] = static_cast<qx_long>(static_cast<float>(dims[k] - 1) * t);
            }
            if (!inside) continue;
            const qx_long nx = dims[0] - 1, ny = ndim > 1 ? dims[1] - 1 : 0;
            std::vector<qx_long> &chain = expected[(ny * at[2] + at[1]) * nx + at[0]];
            chain.insert(chain.begin(), i);
            ++kept;
        }
        EXPECT_GT(kept, 20);
        EXPECT_LT(kept, 480);
        scat_interp_bins *bins = nullptr;
        ASSERT_EQ(1, UTILscat_interp_init(500, 3, coords.data(), min, max, ndim, dims, &bins));
        EXPECT_EQ(ndim == 1 ? 3 : ndim == 2 ? 6 : 30, bins->nbins);
        EXPECT_EQ(ndim, bins->ndim);
        EXPECT_EQ(501, bins->nentries);
        EXPECT_EQ(kept + 1, bins->free_entry);
        for (qx_long bin = 0; bin < bins->nbins; ++bin)
            EXPECT_EQ(expected[bin], chain_of(bins, bin)) << bin;
        for (qx_long entry = 2; entry < bins->free_entry; ++entry)
            EXPECT_LT(bins->nodes[entry - 1], bins->nodes[entry]) << "entries are in the order of the points";
        EXPECT_EQ(1, UTILscat_interp_end(bins));
    }
}

TEST(ScatterBins, FarCornerIsInTheLastBinOfAxesThatAreNotTooLong)
{
    const float corner[2] = {1, 1}, min[2] = {0, 0}, max[2] = {1, 1};
    scat_interp_bins *bins;
    const qx_long dims[2] = {5, 7};
    ASSERT_EQ(1, UTILscat_interp_init(1, 2, corner, min, max, 2, dims, &bins));
    EXPECT_EQ(std::vector<qx_long>{0}, chain_of(bins, 4 * 6 - 1));
    UTILscat_interp_end(bins);
    const qx_long longer[1] = {20001};
    ASSERT_EQ(1, UTILscat_interp_init(1, 2, corner, min, max, 1, longer, &bins));
    EXPECT_EQ(std::vector<qx_long>{0}, chain_of(bins, 19998));
    UTILscat_interp_end(bins);
}

TEST(ScatterBins, PointsOutsideAndUndefinedOnesAreInNoBin)
{
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    const std::vector<float> coords = {-0.1f, 0.5f, 1.1f, 0.5f, 0.5f, -0.1f, nan, 0.5f, 0.5f, nan, inf, 0.5f};
    const float min[2] = {0, 0}, max[2] = {1, 1};
    const qx_long dims[2] = {3, 3};
    scat_interp_bins *bins;
    ASSERT_EQ(1, UTILscat_interp_init(6, 2, coords.data(), min, max, 2, dims, &bins));
    EXPECT_EQ(1, bins->free_entry);
    UTILscat_interp_end(bins);
}

TEST(ScatterBins, FlatBoxAxesOfOneNodeAndNoPoints)
{
    const float coords[4] = {0.75f, 5, 0.25f, -5}, min[2] = {0, 2}, max[2] = {1, 2};
    const qx_long dims[2] = {3, 4}, thin[2] = {3, 1};
    scat_interp_bins *bins;
    ASSERT_EQ(1, UTILscat_interp_init(2, 2, coords, min, max, 2, dims, &bins));
    EXPECT_EQ(std::vector<qx_long>{1}, chain_of(bins, 0)) << "no extent: the first bin along that axis";
    EXPECT_EQ(std::vector<qx_long>{0}, chain_of(bins, 1));
    UTILscat_interp_end(bins);
    ASSERT_EQ(1, UTILscat_interp_init(2, 2, coords, min, max, 2, thin, &bins));
    EXPECT_EQ(0, bins->nbins);
    EXPECT_EQ(1, bins->free_entry);
    UTILscat_interp_end(bins);
    ASSERT_EQ(1, UTILscat_interp_init(0, 2, nullptr, min, max, 2, dims, &bins));
    EXPECT_EQ(1, bins->nentries);
    for (qx_long bin = 0; bin < bins->nbins; ++bin)
        EXPECT_EQ(0, bins->bins[bin]);
    UTILscat_interp_end(bins);
}

TEST(ScatterBins, AllocGivesEmptyBinsForAnyNumberOfAxes)
{
    const qx_long dims[4] = {3, 4, 5, 2};
    scat_interp_bins *bins;
    host_calls::reset();
    ASSERT_EQ(1, UTILscat_interp_alloc(10, 4, dims, &bins));
    EXPECT_EQ(24, bins->nbins);
    EXPECT_EQ(4, bins->ndim);
    EXPECT_EQ(1, bins->free_entry);
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(0, bins->reserved_a[k] + bins->reserved_b[k]);
    EXPECT_EQ(std::vector<qx_long>(24, 0), std::vector<qx_long>(bins->bins, bins->bins + 24));
    EXPECT_EQ(std::vector<qx_long>(11, 0), std::vector<qx_long>(bins->next, bins->next + 11));
    ASSERT_EQ(3u, host_calls::seen().arrays.size());
    for (const host_calls::array &array : host_calls::seen().arrays)
        EXPECT_EQ(DTYPE_QX_LONG, array.type);
    EXPECT_EQ(1, UTILscat_interp_end(bins));
}

TEST(ScatterBins, WrongArgumentsAndNoMemoryAreSilent)
{
    const float coords[3] = {0, 0, 0}, min[3] = {0, 0, 0}, max[3] = {1, 1, 1};
    const qx_long dims[4] = {3, 3, 3, 3};
    scat_interp_bins *const kept = reinterpret_cast<scat_interp_bins *>(8);
    scat_interp_bins *bins = kept;
    host_calls::reset();
    EXPECT_EQ(0, UTILscat_interp_alloc(1, 0, dims, &bins));
    EXPECT_EQ(kept, bins);
    EXPECT_EQ(0, UTILscat_interp_init(1, 1, coords, min, max, 2, dims, &bins));
    EXPECT_EQ(nullptr, bins);
    bins = kept;
    EXPECT_EQ(0, UTILscat_interp_init(1, 4, coords, min, max, 4, dims, &bins));
    EXPECT_EQ(nullptr, bins);
    EXPECT_EQ(0, UTILscat_interp_end(nullptr));
    for (int k = 0; k < 4; ++k) {
        const host_calls::watch watch;
        bins = kept;
        host_calls::fail_allocation(k);
        EXPECT_EQ(0, UTILscat_interp_alloc(1, 2, dims, &bins)) << k;
        EXPECT_EQ(kept, bins);
        host_calls::fail_allocation(k);
        EXPECT_EQ(0, UTILscat_interp_init(1, 3, coords, min, max, 2, dims, &bins)) << k;
        EXPECT_EQ(nullptr, bins);
        EXPECT_EQ(0, watch.live_blocks()) << k;
    }
    EXPECT_TRUE(host_calls::seen().reports.empty());
    host_calls::reset();
}
