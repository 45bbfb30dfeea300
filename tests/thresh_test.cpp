#include "support/arrays.hpp"
#include "support/host_calls.hpp"

#include <skoklana/cut.h>

#include <algorithm>
#include <iterator>

using namespace arrays;

namespace {

// ---- references ------------------------------------------------------------------------------------------

// A test of one value against a level, both sides in double.
template <typename T> struct level_test {
    bool has_null;
    T null_value;
    double level;
    int direction;

    bool survives(T value) const
    {
        if (has_null && value == null_value) return false;
        const double v = static_cast<double>(value);
        return direction < 0 ? level >= v : v >= level;
    }
};

// The map of a test: survivors numbered in order, -1 for the others.
template <typename T, typename Survives>
std::vector<qx_long> slow_map(const std::vector<T> &data, Survives survives)
{
    std::vector<qx_long> map;
    qx_long next = 0;
    for (T value : data)
        map.push_back(survives(value) ? next++ : -1);
    return map;
}

qx_long survivors_of(const std::vector<qx_long> &map)
{
    return std::count_if(map.begin(), map.end(), [](qx_long entry) { return entry >= 0; });
}

constexpr qx_long guard = -99;

// A map with a guard before it and one behind it.
struct guarded_map {
    std::vector<qx_long> entries;

    explicit guarded_map(size_t count) : entries(count + 2, guard) {}
    qx_long *data() { return entries.data() + 1; }
    std::vector<qx_long> inside() const { return {entries.begin() + 1, entries.end() - 1}; }
    bool rims_untouched() const { return entries.front() == guard && entries.back() == guard; }
};

template <typename T> struct run_node_thresh {
    guarded_map map;
    qx_long survivors;

    run_node_thresh(const std::vector<T> &data, const level_test<T> &test) : map(data.size())
    {
        survivors = UTILnode_thresh(static_cast<qx_long>(data.size()), dtype_of<T>, data.data(),
                                    test.has_null, test.has_null ? &test.null_value : nullptr, test.level,
                                    test.direction, map.data());
    }
};

template <typename T> class NodeThreshold : public testing::Test {
};
TYPED_TEST_SUITE(NodeThreshold, all_types);

// Data that stand one element off any boundary.
template <typename T> struct shifted {
    std::vector<T> all;
    explicit shifted(const std::vector<T> &data) : all(1) { all.insert(all.end(), data.begin(), data.end()); }
    const T *data() const { return all.data() + 1; }
};

} // namespace

// ---- one level -----------------------------------------------------------------------------------------

TYPED_TEST(NodeThreshold, NumbersSurvivorsInNodeOrderForEveryCount)
{
    using T = TypeParam;
    bool saw_null = false, saw_dropped = false, saw_kept = false;
    for (qx_long count : counts())
        for (int variant = 0; variant < 8; ++variant) {
            const level_test<T> test = {(variant & 1) != 0, T(5), (variant & 2) != 0 ? 2.5 : 3.0,
                                        (variant & 4) != 0 ? -1 : 1};
            const std::vector<T> data =
                mixed_values<T>(static_cast<uint64_t>(count * 8 + variant), count, T(5));
            const std::vector<qx_long> expected = slow_map(data, [&](T v) { return test.survives(v); });
            const shifted<T> off(data);
            guarded_map map(data.size());
            ASSERT_EQ(survivors_of(expected),
                      UTILnode_thresh(count, dtype_of<T>, off.data(), test.has_null, &test.null_value,
                                      test.level, test.direction, map.data()));
            ASSERT_EQ(expected, map.inside()) << count << ", variant " << variant;
            ASSERT_TRUE(map.rims_untouched());
            for (size_t i = 0; i < data.size(); ++i) {
                saw_null = saw_null || (test.has_null && data[i] == T(5));
                saw_dropped = saw_dropped || (data[i] != T(5) && expected[i] < 0);
                saw_kept = saw_kept || expected[i] > 0;
            }
        }
    EXPECT_TRUE(saw_null && saw_dropped && saw_kept);
}

TYPED_TEST(NodeThreshold, ComparesInDoubleWhateverTheType)
{
    using T = TypeParam;
    const std::vector<T> data = edge_values<T>();
    for (double level : edge_levels())
        for (int direction : {-1, 1}) {
            for (T null_value : data) {
                const level_test<T> test = {true, null_value, level, direction};
                const run_node_thresh<T> run(data, test);
                ASSERT_EQ(slow_map(data, [&](T v) { return test.survives(v); }), run.map.inside())
                    << "level " << level << " direction " << direction << " null " << +null_value;
                ASSERT_EQ(survivors_of(run.map.inside()), run.survivors);
            }
            const level_test<T> test = {false, T(), level, direction};
            ASSERT_EQ(slow_map(data, [&](T v) { return test.survives(v); }),
                      run_node_thresh<T>(data, test).map.inside())
                << "level " << level << " direction " << direction;
        }
}

TYPED_TEST(NodeThreshold, ValueAtTheLevelSurvivesInEitherDirection)
{
    using T = TypeParam;
    const std::vector<T> data = {T(2), T(3), T(4)};
    const auto map = [&](int direction) {
        return run_node_thresh<T>(data, {false, T(), 3, direction}).map.inside();
    };
    EXPECT_EQ((std::vector<qx_long>{0, 1, -1}), map(-1));
    EXPECT_EQ((std::vector<qx_long>{0, 1, -1}), map(-100));
    EXPECT_EQ((std::vector<qx_long>{-1, 0, 1}), map(1));
    EXPECT_EQ((std::vector<qx_long>{-1, 0, 1}), map(100));
    EXPECT_EQ(map(1), map(0)) << "no direction is the positive one";
}

TEST(NodeThresholdLevel, FloatIsWidenedAndTheLevelIsNotRounded)
{
    const std::vector<float> data = {0.1f}; // above 0.1 in double
    EXPECT_EQ(1, run_node_thresh<float>(data, {false, 0, 0.1, 1}).survivors);
    EXPECT_EQ(0, run_node_thresh<float>(data, {false, 0, 0.1, -1}).survivors);
}

TEST(NodeThresholdLevel, LongsThatOneDoubleStandsForCompareAlike)
{
    const qx_long big = qx_long{1} << 53;
    const std::vector<qx_long> data = {big - 1, big, big + 1, big + 2};
    const double level = static_cast<double>(big);
    EXPECT_EQ((std::vector<qx_long>{-1, 0, 1, 2}),
              run_node_thresh<qx_long>(data, {false, 0, level, 1}).map.inside());
    EXPECT_EQ((std::vector<qx_long>{0, 1, 2, -1}),
              run_node_thresh<qx_long>(data, {false, 0, level, -1}).map.inside());
}

TEST(NodeThresholdLevel, NaNSurvivesNoLevelAndNothingSurvivesANaNLevel)
{
    const double nan = std::numeric_limits<double>::quiet_NaN(),
                 infinity = std::numeric_limits<double>::infinity();
    const std::vector<double> data = {nan, -infinity, 0, infinity};
    for (int direction : {-1, 1}) {
        EXPECT_EQ(0, run_node_thresh<double>(data, {true, nan, nan, direction}).survivors);
        EXPECT_EQ(-1, run_node_thresh<double>(data, {true, nan, 0, direction}).map.inside()[0]);
    }
    EXPECT_EQ((std::vector<qx_long>{-1, -1, -1, 0}),
              run_node_thresh<double>(data, {false, 0, infinity, 1}).map.inside());
    EXPECT_EQ((std::vector<qx_long>{-1, 0, 1, 2}),
              run_node_thresh<double>(data, {false, 0, infinity, -1}).map.inside());
}

// ---- two bounds ----------------------------------------------------------------------------------------

TYPED_TEST(NodeThreshold, RangeKeepsBothEndsAndDropsNull)
{
    using T = TypeParam;
    bool saw_null_inside = false, saw_lo = false, saw_hi = false;
    for (qx_long count : counts())
        for (bool has_null : {false, true}) {
            const T null_value = T(2);
            const std::vector<T> data = mixed_values<T>(static_cast<uint64_t>(count), count, null_value);
            guarded_map map(data.size());
            const qx_long survivors = UTILnode_thresh2(count, dtype_of<T>, data.data(), has_null,
                                                       has_null ? &null_value : nullptr, 1, 3, map.data());
            const std::vector<qx_long> expected =
                slow_map(data, [&](T v) { return v >= T(1) && v <= T(3) && !(has_null && v == null_value); });
            ASSERT_EQ(expected, map.inside()) << count;
            ASSERT_EQ(survivors_of(expected), survivors);
            ASSERT_TRUE(map.rims_untouched());
            for (size_t i = 0; i < data.size(); ++i) {
                saw_null_inside = saw_null_inside || (has_null && data[i] == null_value);
                saw_lo = saw_lo || (data[i] == T(1) && expected[i] >= 0);
                saw_hi = saw_hi || (data[i] == T(3) && expected[i] >= 0);
            }
        }
    EXPECT_TRUE(saw_null_inside && saw_lo && saw_hi);
}

TYPED_TEST(NodeThreshold, RangeBoundsAreBroughtIntoTheType)
{
    using T = TypeParam;
    const std::vector<T> data = edge_values<T>();
    int kept_some = 0, kept_none = 0;
    for (double lo : edge_levels())
        for (double hi : edge_levels()) {
            if (std::is_integral_v<T> && (std::isnan(lo) || std::isnan(hi))) continue;
            const T low = slow_bound<T>(lo), high = slow_bound<T>(hi);
            guarded_map map(data.size());
            const qx_long survivors = UTILnode_thresh2(static_cast<qx_long>(data.size()), dtype_of<T>,
                                                       data.data(), 0, nullptr, lo, hi, map.data());
            ASSERT_EQ(slow_map(data, [=](T v) { return low <= v && v <= high; }), map.inside())
                << lo << " to " << hi;
            ++(survivors > 0 ? kept_some : kept_none);
        }
    EXPECT_GT(std::min(kept_some, kept_none), 100);
}

TEST(NodeThresholdRange, BoundsAreTruncatedForIntegersAndRoundedForFloat)
{
    const auto map_of = [](auto data, double lo, double hi) {
        using T = typename decltype(data)::value_type;
        guarded_map map(data.size());
        UTILnode_thresh2(static_cast<qx_long>(data.size()), dtype_of<T>, data.data(), 0, nullptr, lo, hi,
                         map.data());
        return map.inside();
    };
    EXPECT_EQ((std::vector<qx_long>{-1, 0, 1, 2, -1}), map_of(std::vector<int>{-3, -2, 0, 2, 3}, -2.9, 2.9));
    EXPECT_EQ((std::vector<qx_long>{-1, 0, 1, 2, -1}),
              map_of(std::vector<signed char>{-3, -2, 0, 2, 3}, -2.9, 2.9));
    EXPECT_EQ((std::vector<qx_long>{0, 1, -1}), map_of(std::vector<unsigned char>{0, 44, 45}, 0, 300))
        << "300 is 44 in eight bits";
    EXPECT_EQ((std::vector<qx_long>{0}), map_of(std::vector<float>{0.1f}, 0, 0.1));
    EXPECT_EQ((std::vector<qx_long>{-1}), map_of(std::vector<double>{0.1f}, 0, 0.1));
}

TYPED_TEST(NodeThreshold, RangeUpsideDownKeepsNothing)
{
    using T = TypeParam;
    for (qx_long count : counts()) {
        const std::vector<T> data = mixed_values<T>(static_cast<uint64_t>(count), count, T(2));
        guarded_map map(data.size());
        EXPECT_EQ(0, UTILnode_thresh2(count, dtype_of<T>, data.data(), 0, nullptr, 3, 2, map.data()));
        EXPECT_EQ(std::vector<qx_long>(data.size(), -1), map.inside());
    }
}

TEST(NodeThresholdRange, NaNIsInNoRange)
{
    const float nan = std::numeric_limits<float>::quiet_NaN(),
                infinity = std::numeric_limits<float>::infinity();
    const std::vector<float> data = {nan, -infinity, infinity};
    guarded_map map(3);
    EXPECT_EQ(2, UTILnode_thresh2(3, DTYPE_FLOAT, data.data(), 1, &nan, -1e300, 1e300, map.data()));
    EXPECT_EQ((std::vector<qx_long>{-1, 0, 1}), map.inside()) << "1e300 is infinite in single precision";
    EXPECT_EQ(0, UTILnode_thresh2(3, DTYPE_FLOAT, data.data(), 0, nullptr, nan, 1, map.data()));
    EXPECT_EQ(0, UTILnode_thresh2(3, DTYPE_FLOAT, data.data(), 0, nullptr, -1, nan, map.data()));
}

// ---- counts over a lattice -----------------------------------------------------------------------------

TYPED_TEST(NodeThreshold, CountOverALatticeIsThatOfItsNodes)
{
    using T = TypeParam;
    const std::vector<std::vector<qx_long>> lattices = {
        {0}, {1}, {70}, {5000}, {9, 1}, {1, 9}, {33, 65}, {0, 7}, {7, 5, 3}, {1, 40, 60}, {13, 17, 19}};
    for (const std::vector<qx_long> &dims : lattices)
        for (int variant = 0; variant < 4; ++variant) {
            qx_long nnodes = 1;
            for (qx_long dim : dims)
                nnodes *= dim;
            const level_test<T> test = {(variant & 1) != 0, T(5), 3, (variant & 2) != 0 ? -1 : 0};
            const std::vector<T> data = mixed_values<T>(static_cast<uint64_t>(nnodes), nnodes, T(5));
            EXPECT_EQ(survivors_of(slow_map(data, [&](T v) { return test.survives(v); })),
                      UTILnnode_thresh_struct(
                          static_cast<int>(dims.size()), dims.data(), data.data(), dtype_of<T>, test.has_null,
                          test.has_null ? &test.null_value : nullptr, test.level, test.direction));
        }
}

// ---- plane by plane ------------------------------------------------------------------------------------

TYPED_TEST(NodeThreshold, SweepCarriesTheCountAndLeavesTheRestOfTheMapAlone)
{
    using T = TypeParam;
    for (qx_long plane : counts())
        for (int variant = 0; variant < 4; ++variant) {
            const int nplanes = plane > 600 ? 2 : 3;
            const level_test<T> test = {(variant & 1) != 0, T(5), 2, (variant & 2) != 0 ? -1 : 1};
            const std::vector<T> data =
                mixed_values<T>(static_cast<uint64_t>(plane + variant), nplanes * plane, T(5));
            const qx_long first_base = qx_long{1} << 40; // node numbers beyond 32 bits

            std::vector<qx_long> expected_list;
            std::vector<std::vector<qx_long>> expected_maps;
            for (int p = 0; p < nplanes; ++p) {
                expected_maps.emplace_back(plane, guard - p);
                for (qx_long i = 0; i < plane; ++i) {
                    if (!test.survives(data[static_cast<size_t>(p * plane + i)])) continue;
                    expected_maps.back()[static_cast<size_t>(i)] = static_cast<qx_long>(expected_list.size());
                    expected_list.push_back(first_base + p * plane + i);
                }
            }

            std::vector<qx_long> list(expected_list.size()); // no room for a store too many
            qx_long count = 0;
            for (int p = 0; p < nplanes; ++p) {
                const qx_long before = count;
                std::vector<qx_long> map(static_cast<size_t>(plane), guard - p);
                const qx_long survivors = UTILnode_thresh_struct(
                    plane, data.data() + p * plane, dtype_of<T>, test.has_null,
                    test.has_null ? &test.null_value : nullptr, test.level, test.direction,
                    first_base + p * plane, &count, list.data(), map.data());
                ASSERT_EQ(count - before, survivors);
                ASSERT_EQ(expected_maps[static_cast<size_t>(p)], map) << plane << ", plane " << p;
            }
            ASSERT_EQ(static_cast<qx_long>(expected_list.size()), count);
            ASSERT_EQ(expected_list, list) << plane;
        }
}

TYPED_TEST(NodeThreshold, SweepGoesOnFromAnyCount)
{
    using T = TypeParam;
    const std::vector<T> data = {T(9), T(1), T(9)};
    std::vector<qx_long> list(7, guard), map(3, guard);
    qx_long count = 5;
    EXPECT_EQ(2, UTILnode_thresh_struct(3, data.data(), dtype_of<T>, 0, nullptr, 5, 1, 100, &count,
                                        list.data(), map.data()));
    EXPECT_EQ(7, count);
    EXPECT_EQ((std::vector<qx_long>{guard, guard, guard, guard, guard, 100, 102}), list);
    EXPECT_EQ((std::vector<qx_long>{5, guard, 6}), map);
}

namespace {

// Stretches of nodes that all survive a level of 2, that none survives and that are mixed, of lengths around the
// widths of vectors and words. Saw counts words of 32 nodes by what they hold: nothing, all, some.
template <typename T> std::vector<T> values_in_runs(uint64_t seed, size_t count, int (&saw)[3])
{
    std::mt19937_64 random(seed);
    const size_t lengths[] = {1, 3, 4, 5, 7, 8, 9, 31, 32, 33, 63, 64, 65, 96, 500};
    std::vector<T> values;
    while (values.size() < count) {
        const uint64_t kind = random() % 3;
        for (size_t left = lengths[random() % std::size(lengths)]; left > 0; --left)
            values.push_back(T(kind == 0 ? random() % 2 : kind == 1 ? 2 + random() % 3 : random() % 5));
    }
    values.resize(count);
    for (size_t i = 0; i + 32 <= count; i += 32) {
        const auto kept =
            std::count_if(values.begin() + static_cast<qx_long>(i),
                          values.begin() + static_cast<qx_long>(i) + 32, [](T v) { return v >= T(2); });
        ++saw[kept == 0 ? 0 : kept == 32 ? 1 : 2];
    }
    return values;
}

// Sweeps one plane after before nodes have been listed, into a list without room for a store too many.
template <typename T>
void check_sweep(const std::vector<T> &data, const level_test<T> &test, qx_long before,
                 std::vector<qx_long> *list)
{
    const qx_long base = 1000;
    const size_t room = list->size();
    std::vector<qx_long> expected_map(data.size(), guard), expected_list;
    for (size_t i = 0; i < data.size(); ++i)
        if (test.survives(data[i])) {
            expected_map[i] = before + static_cast<qx_long>(expected_list.size());
            expected_list.push_back(base + static_cast<qx_long>(i));
        }
    const size_t survivors = expected_list.size();
    ASSERT_LE(static_cast<size_t>(before) + survivors + 1, room);
    qx_long *end = list->data() + room - survivors, count = before; // where the list would go on
    end[-1] = guard;
    std::vector<qx_long> map(data.size(), guard);
    ASSERT_EQ(static_cast<qx_long>(survivors),
              UTILnode_thresh_struct(static_cast<qx_long>(data.size()), data.data(), dtype_of<T>,
                                     test.has_null, &test.null_value, test.level, test.direction, base,
                                     &count, end - before, map.data()));
    ASSERT_EQ(before + static_cast<qx_long>(survivors), count);
    ASSERT_EQ(expected_map, map) << data.size() << " after " << before;
    ASSERT_TRUE(std::equal(expected_list.begin(), expected_list.end(), end))
        << data.size() << " after " << before;
    ASSERT_EQ(guard, end[-1]);
}

} // namespace

TYPED_TEST(NodeThreshold, SweepTakesRunsOfKeptAndOfDroppedNodes)
{
    using T = TypeParam;
    int saw[3] = {};
    for (size_t count : {31, 32, 33, 64, 100, 1000, 4095, 4096, 4097, 9000})
        for (int variant = 0; variant < 8; ++variant) {
            const std::vector<T> data =
                values_in_runs<T>(count * 8 + static_cast<size_t>(variant), count, saw);
            const level_test<T> test = {(variant & 1) != 0, T(3), 2, (variant & 2) != 0 ? -1 : 1};
            std::vector<qx_long> list(count + 9);
            check_sweep(data, test, variant, &list);
        }
    EXPECT_GT(std::min({saw[0], saw[1], saw[2]}), 50);
}

TYPED_TEST(NodeThreshold, SweepGoesOnBehindAListLongerThanTheCaches)
{
    using T = TypeParam;
    int saw[3] = {};
    std::vector<qx_long> list((3 << 20) + 8192);
    for (qx_long before : {(1 << 20) - 100, 1 << 20, (1 << 20) + 1, 3 << 20})
        for (size_t count : {0, 1, 7, 9, 40, 4096, 7000})
            for (int variant = 0; variant < 4; ++variant) { // the list's end falls on any place of a line
                const std::vector<T> data =
                    values_in_runs<T>(count + static_cast<size_t>(variant), count, saw);
                check_sweep(data, {variant % 2 != 0, T(3), 2, 1}, before, &list);
            }
    EXPECT_GT(std::min({saw[0], saw[1], saw[2]}), 50);
}

// ---- null alone ----------------------------------------------------------------------------------------

TYPED_TEST(NodeThreshold, NullTestKeepsAllThatDiffersFromNull)
{
    using T = TypeParam;
    int dropped = 0;
    for (qx_long count : counts()) {
        const T null_value = T(5);
        const std::vector<T> data = mixed_values<T>(static_cast<uint64_t>(count), count, null_value);
        const std::vector<qx_long> expected = slow_map(data, [=](T v) { return v != null_value; });
        guarded_map map(data.size());
        const qx_long survivors =
            UTILnode_thresh_null(count, dtype_of<T>, data.data(), &null_value, map.data());
        ASSERT_EQ(survivors_of(expected), survivors);
        ASSERT_EQ(expected, map.inside()) << count;
        ASSERT_TRUE(map.rims_untouched());
        dropped += survivors < count;
    }
    EXPECT_GT(dropped, 50);

    const std::vector<T> edges = edge_values<T>();
    for (T null_value : edges) {
        guarded_map map(edges.size());
        UTILnode_thresh_null(static_cast<qx_long>(edges.size()), dtype_of<T>, edges.data(), &null_value,
                             map.data());
        ASSERT_EQ(slow_map(edges, [=](T v) { return v != null_value; }), map.inside()) << +null_value;
    }
}

TEST(NodeThresholdNull, NaNDiffersFromEveryNullAndZerosAreOne)
{
    const float nan = std::numeric_limits<float>::quiet_NaN(), zero = 0.0f;
    const std::vector<float> data = {nan, 0.0f, -0.0f, 1.0f};
    guarded_map map(4);
    EXPECT_EQ(4, UTILnode_thresh_null(4, DTYPE_FLOAT, data.data(), &nan, map.data()));
    EXPECT_EQ((std::vector<qx_long>{0, 1, 2, 3}), map.inside());
    EXPECT_EQ(2, UTILnode_thresh_null(4, DTYPE_FLOAT, data.data(), &zero, map.data()));
    EXPECT_EQ((std::vector<qx_long>{0, -1, -1, 1}), map.inside());
}

// ---- the rim -----------------------------------------------------------------------------------------------

TYPED_TEST(NodeThreshold, NoNodesGiveNoSurvivorsAndTouchNothing)
{
    using T = TypeParam;
    const T null_value = T(5);
    for (qx_long nnodes : {0, -1}) {
        qx_long count = 3;
        EXPECT_EQ(0, UTILnode_thresh(nnodes, dtype_of<T>, nullptr, 1, &null_value, 1, 1, nullptr));
        EXPECT_EQ(0, UTILnode_thresh2(nnodes, dtype_of<T>, nullptr, 1, &null_value, 1, 2, nullptr));
        EXPECT_EQ(0, UTILnode_thresh_struct(nnodes, nullptr, dtype_of<T>, 1, &null_value, 1, 1, 0, &count,
                                            nullptr, nullptr));
        EXPECT_EQ(0, UTILnode_thresh_null(nnodes, dtype_of<T>, nullptr, &null_value, nullptr));
        EXPECT_EQ(3, count);
    }
}

TYPED_TEST(NodeThreshold, AsksTheHostForNothing)
{
    using T = TypeParam;
    host_calls::reset();
    const std::vector<T> data = mixed_values<T>(1, 5000, T(5));
    const T null_value = T(5);
    std::vector<qx_long> map(data.size()), list(data.size());
    const qx_long nnodes = static_cast<qx_long>(data.size());
    qx_long count = 0;
    host_calls::watch watch;
    host_calls::fail_allocations_from(0);
    host_calls::interrupt_at(0);
    const qx_long results[] = {
        UTILnode_thresh(nnodes, dtype_of<T>, data.data(), 1, &null_value, 2, 1, map.data()),
        UTILnode_thresh2(nnodes, dtype_of<T>, data.data(), 1, &null_value, 1, 3, map.data()),
        UTILnnode_thresh_struct(1, &nnodes, data.data(), dtype_of<T>, 1, &null_value, 2, 1),
        UTILnode_thresh_struct(nnodes, data.data(), dtype_of<T>, 1, &null_value, 2, 1, 0, &count, list.data(),
                               map.data()),
        UTILnode_thresh_null(nnodes, dtype_of<T>, data.data(), &null_value, map.data())};
    for (qx_long result : results)
        EXPECT_GT(result, 1000);
    EXPECT_EQ(0, watch.allocations());
    EXPECT_TRUE(host_calls::seen().statuses.empty());
    EXPECT_TRUE(host_calls::seen().pushes.empty());
    EXPECT_TRUE(host_calls::seen().reports.empty());
    host_calls::reset();
}

TEST(NodeThresholdReports, UnknownTypeIsReportedUnderTheOperationWhateverTheCount)
{
    const auto reported = [](const char *operation) {
        const std::vector<host_calls::report> reports = host_calls::seen().reports;
        host_calls::reset();
        return reports.size() == 1 && reports[0] == host_calls::report{operation, 0, 2, "unknown data type"};
    };
    for (int type : {-1, 7, 1000})
        for (qx_long nnodes : {0, 3}) {
            host_calls::reset();
            qx_long count = 4;
            EXPECT_EQ(0, UTILnode_thresh(nnodes, type, nullptr, 0, nullptr, 1, 1, nullptr));
            EXPECT_TRUE(reported("UTILnode_thresh"));
            EXPECT_EQ(0, UTILnode_thresh2(nnodes, type, nullptr, 0, nullptr, 1, 2, nullptr));
            EXPECT_TRUE(reported("UTILnode_thresh2"));
            EXPECT_EQ(0, UTILnnode_thresh_struct(1, &nnodes, nullptr, type, 0, nullptr, 1, 1));
            EXPECT_TRUE(reported("UTILnnode_thresh_struct"));
            EXPECT_EQ(0, UTILnode_thresh_struct(nnodes, nullptr, type, 0, nullptr, 1, 1, 0, &count, nullptr,
                                                nullptr));
            EXPECT_TRUE(reported("UTILnode_thresh_struct"));
            EXPECT_EQ(4, count);
            EXPECT_EQ(0, UTILnode_thresh_null(nnodes, type, nullptr, nullptr, nullptr));
            EXPECT_TRUE(reported("UTILnode_thresh_null"));
        }
}
