#include "support/arrays.hpp"
#include "support/host_calls.hpp"

#include <skoklana/array.h>

#include "classify.hpp"

#include <algorithm>
#include <tuple>

using namespace arrays;

namespace {

#define TYPED_NAME(T, suffix)                 \
    auto typed_threshold_scalar(T)            \
    {                                         \
        return UTILthreshold_scalar_##suffix; \
    }
TYPED_NAME(signed char, char)
TYPED_NAME(unsigned char, byte)
TYPED_NAME(short, short)
TYPED_NAME(int, int)
TYPED_NAME(float, float)
TYPED_NAME(double, double)
TYPED_NAME(qx_long, qx_long)

// Whether a value is on the upper side of a level. Long double holds every 64-bit integer exactly.
template <typename T> bool slow_above(T value, bool inclusive, double level)
{
    if constexpr (std::is_integral_v<T>)
        return inclusive ? static_cast<long double>(value) >= std::ceil(static_cast<long double>(level))
                         : static_cast<long double>(value) > std::floor(static_cast<long double>(level));
    else
        return inclusive ? value >= static_cast<T>(level) : value > static_cast<T>(level);
}

template <typename T> class Threshold : public testing::Test {
};
TYPED_TEST_SUITE(Threshold, all_types);

} // namespace

// ---- a byte a value ----------------------------------------------------------------------------------------

TYPED_TEST(Threshold, ScalarAgreesWithTheReferenceForEveryCount)
{
    using T = TypeParam;
    bool saw[3] = {};
    for (qx_long count : counts())
        for (int variant = 0; variant < 4; ++variant) {
            const bool has_null = variant & 1, inclusive = variant & 2;
            const T null_value = T(5);
            const std::vector<T> from = mixed_values<T>(count, count + 1, null_value);
            const T *data = from.data() + 1; // one element off any boundary
            std::vector<unsigned char> expected, out(static_cast<size_t>(count) + 1, 99);
            for (qx_long i = 0; i < count; ++i)
                expected.push_back(has_null && data[i] == null_value     ? 2
                                   : slow_above(data[i], inclusive, 2.5) ? 1
                                                                         : 0);
            EXPECT_EQ(1, UTILthreshold_scalar(count, data, dtype_of<T>, has_null, &null_value, inclusive, 2.5,
                                              0, 1, 2, out.data() + 1));
            ASSERT_TRUE(std::equal(expected.begin(), expected.end(), out.begin() + 1))
                << count << ", " << variant;
            EXPECT_EQ(99, out[0]);
            for (unsigned char code : expected)
                saw[code] = true;
        }
    EXPECT_TRUE(saw[0] && saw[1] && saw[2]);
}

TYPED_TEST(Threshold, ScalarComparesInTheTypesOwnPrecision)
{
    using T = TypeParam;
    const std::vector<T> data = edge_values<T>();
    const qx_long count = static_cast<qx_long>(data.size());
    std::vector<unsigned char> out(data.size()), out_typed(data.size());
    for (double level : edge_levels())
        for (bool inclusive : {false, true})
            for (T null_value : data) {
                UTILthreshold_scalar(count, data.data(), dtype_of<T>, 1, &null_value, inclusive, level, 10,
                                     20, 30, out.data());
                typed_threshold_scalar(T())(count, data.data(), 1, null_value, inclusive, level, 10, 20, 30,
                                            out_typed.data());
                EXPECT_EQ(out, out_typed);
                for (size_t i = 0; i < data.size(); ++i) {
                    const int expected = data[i] == null_value                   ? 30
                                         : slow_above(data[i], inclusive, level) ? 20
                                                                                 : 10;
                    ASSERT_EQ(expected, out[i])
                        << +data[i] << " against " << level << (inclusive ? " inclusive" : "");
                }
            }
}

TYPED_TEST(Threshold, ScalarLevelOutsideTheTypePutsAllValuesOnOneSide)
{
    using T = TypeParam;
    if constexpr (std::is_integral_v<T>) {
        const std::vector<T> data = edge_values<T>();
        const std::vector<unsigned char> all_below(data.size(), 0), all_above(data.size(), 1);
        std::vector<unsigned char> out(data.size());
        const auto run = [&](int inclusive, double level) {
            UTILthreshold_scalar(static_cast<qx_long>(data.size()), data.data(), dtype_of<T>, 0, nullptr,
                                 inclusive, level, 0, 1, 2, out.data());
            return out;
        };
        for (int inclusive : {0, 1})
            for (double far : {1e19, 1e300, std::numeric_limits<double>::infinity()}) {
                EXPECT_EQ(all_below, run(inclusive, far));
                EXPECT_EQ(all_above, run(inclusive, -far));
            }
    }
}

TEST(ThresholdScalar, FractionalLevelOnBytesIsTheSameStrictOrInclusive)
{
    const std::vector<unsigned char> data = {0, 1, 2, 3, 4, 255};
    std::vector<unsigned char> strict(6), inclusive(6);
    UTILthreshold_scalar(6, data.data(), DTYPE_BYTE, 0, nullptr, 0, 2.5, 0, 1, 2, strict.data());
    UTILthreshold_scalar(6, data.data(), DTYPE_BYTE, 0, nullptr, 1, 2.5, 0, 1, 2, inclusive.data());
    EXPECT_EQ((std::vector<unsigned char>{0, 0, 0, 1, 1, 1}), strict);
    EXPECT_EQ(strict, inclusive);
    UTILthreshold_scalar(6, data.data(), DTYPE_BYTE, 0, nullptr, 0, 2, 0, 1, 2, strict.data());
    UTILthreshold_scalar(6, data.data(), DTYPE_BYTE, 0, nullptr, 1, 2, 0, 1, 2, inclusive.data());
    EXPECT_EQ((std::vector<unsigned char>{0, 0, 0, 1, 1, 1}), strict);
    EXPECT_EQ((std::vector<unsigned char>{0, 0, 1, 1, 1, 1}), inclusive);
}

TEST(ThresholdScalar, FloatsCompareInSinglePrecision)
{
    const float value = 0.1f; // above 0.1 in double
    unsigned char out = 9;
    UTILthreshold_scalar(1, &value, DTYPE_FLOAT, 0, nullptr, 0, 0.1, 0, 1, 2, &out);
    EXPECT_EQ(0, out);
    UTILthreshold_scalar(1, &value, DTYPE_FLOAT, 0, nullptr, 1, 0.1, 0, 1, 2, &out);
    EXPECT_EQ(1, out);
}

TEST(ThresholdScalar, NaNIsBelowEveryLevelAndNoValueReachesANaNLevel)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> data = {nan, -1, 1};
    std::vector<unsigned char> out(3);
    UTILthreshold_scalar(3, data.data(), DTYPE_DOUBLE, 1, &nan, 1, 0, 0, 1, 2, out.data());
    EXPECT_EQ((std::vector<unsigned char>{0, 0, 1}), out);
    UTILthreshold_scalar(3, data.data(), DTYPE_DOUBLE, 0, nullptr, 1, nan, 0, 1, 2, out.data());
    EXPECT_EQ((std::vector<unsigned char>{0, 0, 0}), out);
    const std::vector<int> ints = {-1, 0, 1};
    UTILthreshold_scalar(3, ints.data(), DTYPE_INT, 0, nullptr, 0, nan, 0, 1, 2, out.data());
    EXPECT_EQ((std::vector<unsigned char>{0, 0, 0}), out);
}

TEST(ThresholdScalar, CodesAreTakenAsBytes)
{
    const std::vector<short> data = {1, 2, 3};
    const short null_value = 3;
    std::vector<unsigned char> out(3);
    UTILthreshold_scalar(3, data.data(), DTYPE_SHORT, 1, &null_value, 1, 2, 256 + 7, -1, 1000, out.data());
    EXPECT_EQ((std::vector<unsigned char>{7, 255, 1000 & 255}), out);
}

TYPED_TEST(Threshold, PlainAndWideFormsOfTheKernelAgree)
{
#if SKOKLANA_HAVE_AVX2_FORM
    using T = TypeParam;
    if (!have_avx2()) GTEST_SKIP() << "no wide instructions here";
    const outcome_codes codes = {3, 1, 2};
    const auto compare = [&](auto test) {
        for (qx_long count : counts()) {
            const std::vector<T> data = mixed_values<T>(count, count, T(5));
            std::vector<unsigned char> plain(data.size()), wide(data.size());
            classify_plain<true>(data.data(), count, test, T(5), codes, plain.data());
            classify_wide<true>(data.data(), count, test, T(5), codes, wide.data());
            ASSERT_EQ(plain, wide) << count;
            classify_plain<false>(data.data(), count, test, T(5), codes, plain.data());
            classify_wide<false>(data.data(), count, test, T(5), codes, wide.data());
            ASSERT_EQ(plain, wide) << count;
        }
    };
    compare(at_least<T>{T(3)});
    compare(greater_than<T>{T(3)});
    compare(at_most<T>{T(3)});
    compare(in_range<T>{T(1), T(3)});
    compare(in_range<T>{T(3), T(1)});
    compare(not_outside<T>{T(1), T(3)});
    compare(anything<T>{});
#endif
}

// ---- values outside bounds replaced ----------------------------------------------------------------------

namespace {

struct bounds {
    bool has_null, has_min, has_max;
};

template <typename T, typename U>
std::vector<U> slow_threshold(qx_long count, const T *data, int stride, int offset, T null_value, bounds use,
                              T min, T max, const U *target, int veclen, U fill)
{
    std::vector<U> out;
    for (qx_long i = 0; i < count; ++i) {
        const T v = data[offset + i * stride];
        const bool fails =
            (use.has_null && v == null_value) || (use.has_min && v < min) || (use.has_max && v > max);
        for (int c = 0; c < veclen; ++c)
            out.push_back(fails ? fill : target[i * veclen + c]);
    }
    return out;
}

template <typename T, typename U> void try_pair()
{
    for (qx_long count : {0, 1, 7, 31, 32, 33, 70, 511, 512, 513, 1300})
        for (int variant = 0; variant < 8; ++variant) {
            const bounds use = {(variant & 1) != 0, (variant & 2) != 0, (variant & 4) != 0};
            const int stride = 1 + static_cast<int>(count) % 3, offset = variant % 2,
                      veclen = 1 + variant % 4;
            const T null_value = T(5);
            const std::vector<T> data = mixed_values<T>(count, offset + count * stride, null_value);
            const std::vector<U> target = mixed_values<U>(count + 1, count * veclen, U(4));
            const std::vector<U> expected = slow_threshold(count, data.data(), stride, offset, null_value,
                                                           use, T(1), T(3), target.data(), veclen, U(42));
            std::vector<U> out(target.size());
            ASSERT_EQ(1, UTILthreshold(count, data.data(), stride, offset, dtype_of<T>, use.has_null,
                                       &null_value, use.has_min, 1, use.has_max, 3, target.data(), veclen,
                                       dtype_of<U>, 42.25, out.data()));
            if constexpr (std::is_floating_point_v<U>)
                for (size_t i = 0; i < out.size(); ++i)
                    if (out[i] == U(42.25)) out[i] = U(42);
            ASSERT_TRUE(same_bytes(expected, out)) << count << ", " << variant;
        }
}

template <typename T> void try_targets()
{
    try_pair<T, signed char>();
    try_pair<T, unsigned char>();
    try_pair<T, short>();
    try_pair<T, int>();
    try_pair<T, float>();
    try_pair<T, double>();
    try_pair<T, qx_long>();
}

} // namespace

TYPED_TEST(Threshold, EveryPairOfTypesAgreesWithTheReference)
{
    try_targets<TypeParam>();
}

TYPED_TEST(Threshold, BoundsOfRowsAreBroughtIntoTheType)
{
    using T = TypeParam;
    const std::vector<T> data = edge_values<T>();
    const qx_long count = static_cast<qx_long>(data.size());
    const std::vector<int> target(data.size(), 1);
    int kept = 0, replaced = 0;
    for (double min : edge_levels())
        for (double max : edge_levels()) {
            if (std::is_integral_v<T> && (std::isnan(min) || std::isnan(max))) continue;
            const std::vector<int> expected =
                slow_threshold<T, int>(count, data.data(), 1, 0, T(), {false, true, true}, slow_bound<T>(min),
                                       slow_bound<T>(max), target.data(), 1, 0);
            std::vector<int> out(data.size(), 9);
            UTILthreshold(count, data.data(), 1, 0, dtype_of<T>, 0, nullptr, 1, min, 1, max, target.data(), 1,
                          DTYPE_INT, 0, out.data());
            ASSERT_EQ(expected, out) << min << " to " << max;
            for (int keeps : out)
                ++(keeps != 0 ? kept : replaced);
        }
    EXPECT_GT(std::min(kept, replaced), 1000);
}

TYPED_TEST(Threshold, FillIsBroughtIntoTheTargetsTypeWhateverItIs)
{
    using T = TypeParam;
    const short data = 1;
    const T target = T(3);
    for (double fill : edge_levels()) {
        if (std::is_integral_v<T> && std::isnan(fill)) continue;
        const std::vector<T> expected = {slow_bound<T>(fill)};
        std::vector<T> out(1);
        UTILthreshold(1, &data, 1, 0, DTYPE_SHORT, 0, nullptr, 1, 2, 0, 0, &target, 1, dtype_of<T>, fill,
                      out.data());
        ASSERT_TRUE(same_bytes(expected, out)) << fill;
    }
}

TYPED_TEST(Threshold, MayReplaceInPlace)
{
    using T = TypeParam;
    for (int veclen : {1, 3})
        for (qx_long count : {1, 40, 600}) {
            std::vector<T> values = mixed_values<T>(count, count * veclen, T(5));
            const std::vector<T> expected =
                slow_threshold<T, T>(count, values.data(), veclen, 0, T(5), {true, true, true}, T(1), T(3),
                                     values.data(), veclen, T(9));
            const T null_value = T(5);
            EXPECT_EQ(1, UTILthreshold(count, values.data(), veclen, 0, dtype_of<T>, 1, &null_value, 1, 1, 1,
                                       3, values.data(), veclen, dtype_of<T>, 9, values.data()));
            EXPECT_TRUE(same_bytes(expected, values)) << count;
        }
}

TEST(ThresholdRows, NaNIsNotOutsideAnyBounds)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> data = {nan, 0, 2, 4};
    const std::vector<int> target = {1, 2, 3, 4};
    std::vector<int> out(4);
    UTILthreshold(4, data.data(), 1, 0, DTYPE_FLOAT, 1, &nan, 1, 1, 1, 3, target.data(), 1, DTYPE_INT, -7.9,
                  out.data());
    EXPECT_EQ((std::vector<int>{1, -7, 3, -7}), out);
}

TEST(ThresholdRows, FillIsConvertedToTheTargetsType)
{
    const std::vector<int> data = {9};
    const auto filled = [&](int type, double fill, void *out) {
        UTILthreshold(1, data.data(), 1, 0, DTYPE_INT, 0, nullptr, 0, 0, 1, 3, out, 1, type, fill, out);
    };
    unsigned char byte = 0;
    filled(DTYPE_BYTE, 300, &byte); // the low bits of 32
    EXPECT_EQ(44, byte);
    short narrow = 0;
    filled(DTYPE_SHORT, -2.9, &narrow);
    EXPECT_EQ(-2, narrow);
    float single = 0;
    filled(DTYPE_FLOAT, 0.1, &single);
    EXPECT_EQ(0.1f, single);
    double real = 0;
    filled(DTYPE_DOUBLE, 0.1, &real);
    EXPECT_EQ(0.1, real);
    qx_long wide = 0;
    filled(DTYPE_QX_LONG, 1e15 + 0.5, &wide);
    EXPECT_EQ(1000000000000000, wide);
}

TYPED_TEST(Threshold, NoElementsIsSuccessAndWritesNothing)
{
    using T = TypeParam;
    for (qx_long count : {0, -1}) {
        EXPECT_EQ(1, UTILthreshold_scalar(count, nullptr, dtype_of<T>, 0, nullptr, 1, 0, 0, 1, 2, nullptr));
        EXPECT_EQ(1, typed_threshold_scalar(T())(count, nullptr, 0, T(), 1, 0, 0, 1, 2, nullptr));
        EXPECT_EQ(1, UTILthreshold(count, nullptr, 1, 0, dtype_of<T>, 0, nullptr, 1, 0, 1, 1, nullptr, 3,
                                   dtype_of<T>, 0, nullptr));
    }
}

TEST(ThresholdReports, UnknownTypeIsReportedByTheScalarFormAndSilentInTheOther)
{
    for (int type : {-1, 7})
        for (qx_long count : {0, 3}) {
            host_calls::reset();
            EXPECT_EQ(0, UTILthreshold_scalar(count, nullptr, type, 0, nullptr, 1, 0, 0, 1, 2, nullptr));
            ASSERT_EQ(1u, host_calls::seen().reports.size());
            EXPECT_EQ((host_calls::report{"UTILthreshold_scalar", 0, 2, "unknown data type"}),
                      host_calls::seen().reports[0]);
            host_calls::reset();
            testing::internal::CaptureStderr();
            EXPECT_EQ(0, UTILthreshold(count, nullptr, 1, 0, type, 0, nullptr, 1, 0, 1, 1, nullptr, 1,
                                       DTYPE_INT, 0, nullptr));
            EXPECT_EQ(0, UTILthreshold(count, nullptr, 1, 0, DTYPE_INT, 0, nullptr, 1, 0, 1, 1, nullptr, 1,
                                       type, 0, nullptr));
            EXPECT_EQ("", testing::internal::GetCapturedStderr());
            EXPECT_TRUE(host_calls::seen().reports.empty());
        }
}
