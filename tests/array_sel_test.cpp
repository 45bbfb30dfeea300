#include "support/arrays.hpp"
#include "support/host_calls.hpp"

#include <skoklana/array.h>

#include <algorithm>

using namespace arrays;

namespace {

// ---- the typed names, by type -------------------------------------------------------------------------

#define TYPED_NAMES(T, suffix)                    \
    [[maybe_unused]] auto typed_clamp(T)          \
    {                                             \
        return UTILclamp_##suffix;                \
    }                                             \
    [[maybe_unused]] auto typed_copy_list(T)      \
    {                                             \
        return UTILcopy_array_list_##suffix;      \
    }                                             \
    [[maybe_unused]] auto typed_extract_vector(T) \
    {                                             \
        return UTILextract_vector_##suffix;       \
    }
TYPED_NAMES(signed char, char)
TYPED_NAMES(unsigned char, byte)
TYPED_NAMES(short, short)
TYPED_NAMES(int, int)
TYPED_NAMES(float, float)
TYPED_NAMES(double, double)
TYPED_NAMES(qx_long, qx_long)

auto typed_extract_scalar(signed char)
{
    return UTILextract_scalar_char;
}
auto typed_extract_scalar(unsigned char)
{
    return UTILextract_scalar_byte;
}
auto typed_extract_scalar(short)
{
    return UTILextract_scalar_short;
}
auto typed_extract_scalar(float)
{
    return UTILextract_scalar_float;
}
auto typed_extract_scalar(double)
{
    return UTILextract_scalar_double;
}
auto typed_extract_scalar(qx_long)
{
    return UTILextract_scalar_qx_long;
}

// ---- references ------------------------------------------------------------------------------------------

template <typename T>
void slow_clamp(qx_long count, const T *in, int stride, int offset, bool has_null, T null_value, bool has_min,
                T min, bool has_max, T max, T *out)
{
    for (qx_long i = 0; i < count; ++i) {
        const qx_long p = offset + i * stride;
        if (has_null && in[p] == null_value)
            out[p] = null_value;
        else if (has_min && in[p] < min)
            out[p] = min;
        else if (has_max && in[p] > max)
            out[p] = max;
        else
            out[p] = in[p];
    }
}

template <typename T> class ArraySelection : public testing::Test {
};
TYPED_TEST_SUITE(ArraySelection, all_types);

std::vector<std::string> one_report(const char *operation)
{
    return {std::string(operation) + ": unknown data type"};
}

} // namespace

// ---- clamp -------------------------------------------------------------------------------------------------

TYPED_TEST(ArraySelection, ClampAgreesWithTheReference)
{
    using T = TypeParam;
    bool saw_null = false, saw_min = false, saw_max = false, saw_inside = false;
    for (qx_long count : counts())
        for (int flags = 0; flags < 8; ++flags) {
            const int stride = 1 + static_cast<int>(count % 4), offset = static_cast<int>(count % 3);
            const bool has_null = flags & 1, has_min = flags & 2, has_max = flags & 4;
            const T null_value = T(5), min = T(1), max = T(3);
            const std::vector<T> in = mixed_values<T>(count, offset + count * stride + 1, null_value);
            std::vector<T> expected(in.size(), T(77)), out = expected, out_typed = expected;
            slow_clamp(count, in.data(), stride, offset, has_null, null_value, has_min, min, has_max, max,
                       expected.data());
            EXPECT_EQ(1, UTILclamp(count, in.data(), stride, offset, dtype_of<T>, has_null, &null_value,
                                   has_min, 1.0, has_max, 3.0, out.data()));
            EXPECT_EQ(1, typed_clamp(T())(count, in.data(), stride, offset, has_null, null_value, has_min,
                                          min, has_max, max, out_typed.data()));
            ASSERT_TRUE(same_bytes(expected, out)) << count << " flags " << flags;
            ASSERT_TRUE(same_bytes(expected, out_typed)) << count << " flags " << flags;
            for (qx_long i = 0; flags == 7 && i < count; ++i) {
                const T v = in[static_cast<size_t>(offset + i * stride)];
                saw_null = saw_null || v == null_value;
                saw_min = saw_min || v < min;
                saw_max = saw_max || (v > max && v != null_value);
                saw_inside = saw_inside || (v > min && v < max);
            }
        }
    EXPECT_TRUE(saw_null && saw_min && saw_max && saw_inside);
}

TYPED_TEST(ArraySelection, ClampMayWorkInPlace)
{
    using T = TypeParam;
    for (int stride : {1, 3})
        for (qx_long count : counts()) {
            std::vector<T> values = mixed_values<T>(count, 1 + count * stride, T(5));
            std::vector<T> expected = values;
            const T null_value = T(5);
            slow_clamp(count, values.data() + 1, stride, 0, true, null_value, true, T(1), true, T(3),
                       expected.data() + 1);
            T *misaligned = values.data() + 1; // one element off any boundary
            EXPECT_EQ(1, UTILclamp(count, misaligned, stride, 0, dtype_of<T>, 1, &null_value, 1, 1.0, 1, 3.0,
                                   misaligned));
            ASSERT_TRUE(same_bytes(expected, values)) << count;
        }
}

TYPED_TEST(ArraySelection, ClampBoundsAtTheLimitsOfTheTypeChangeNothing)
{
    using T = TypeParam;
    using limits = std::numeric_limits<T>;
    const std::vector<T> in = edge_values<T>();
    const qx_long count = static_cast<qx_long>(in.size());
    std::vector<T> out(in.size());
    typed_clamp(T())(count, in.data(), 1, 0, 0, T(), 1,
                     limits::has_infinity ? -limits::infinity() : limits::min(), 1,
                     limits::has_infinity ? limits::infinity() : limits::max(), out.data());
    EXPECT_TRUE(same_bytes(in, out));
}

TYPED_TEST(ArraySelection, ClampBoundsAreBroughtIntoTheType)
{
    using T = TypeParam;
    const std::vector<T> in = edge_values<T>();
    const qx_long count = static_cast<qx_long>(in.size());
    int clamped = 0, upside_down = 0;
    for (double min : edge_levels())
        for (double max : edge_levels()) {
            if (std::is_integral_v<T> && (std::isnan(min) || std::isnan(max))) continue;
            const T low = slow_bound<T>(min), high = slow_bound<T>(max);
            std::vector<T> expected(in.size()), out(in.size());
            slow_clamp(count, in.data(), 1, 0, false, T(), true, low, true, high, expected.data());
            UTILclamp(count, in.data(), 1, 0, dtype_of<T>, 0, nullptr, 1, min, 1, max, out.data());
            ASSERT_TRUE(same_bytes(expected, out)) << min << " to " << max;
            clamped += !same_bytes(in, out);
            upside_down += low > high;
        }
    EXPECT_GT(std::min(clamped, upside_down), 100);
}

TYPED_TEST(ArraySelection, ClampWithoutBoundsCopiesTheComponent)
{
    using T = TypeParam;
    const std::vector<T> in = mixed_values<T>(1, 30, T(5));
    std::vector<T> out(30, T(77)), expected = out;
    for (size_t p = 1; p < 30; p += 3)
        expected[p] = in[p];
    EXPECT_EQ(1, UTILclamp(10, in.data(), 3, 1, dtype_of<T>, 0, nullptr, 0, 1, 0, 2, out.data()));
    EXPECT_TRUE(same_bytes(expected, out));
}

TYPED_TEST(ArraySelection, ClampWithMinAboveMaxGivesMinToWhatIsBelowBoth)
{
    using T = TypeParam;
    const std::vector<T> in = {T(1), T(5), T(9)};
    std::vector<T> out(3);
    UTILclamp(3, in.data(), 1, 0, dtype_of<T>, 0, nullptr, 1, 7, 1, 3, out.data());
    EXPECT_EQ((std::vector<T>{T(7), T(7), T(3)}), out);
}

TYPED_TEST(ArraySelection, ClampLeavesNullAlone)
{
    using T = TypeParam;
    const T null_value = T(100);
    const std::vector<T> in = {T(100), T(50), T(0)};
    std::vector<T> out(3);
    UTILclamp(3, in.data(), 1, 0, dtype_of<T>, 1, &null_value, 1, 10, 1, 20, out.data());
    EXPECT_EQ((std::vector<T>{T(100), T(20), T(10)}), out);
}

TEST(Clamp, NullOfTheOtherZeroIsWrittenAsTheNullValue)
{
    const float null_value = 0.0f;
    const std::vector<float> in = {-0.0f, -0.0f};
    std::vector<float> out(2);
    UTILclamp(2, in.data(), 1, 0, DTYPE_FLOAT, 1, &null_value, 0, 0, 0, 0, out.data());
    EXPECT_FALSE(std::signbit(out[0]));
    UTILclamp(2, in.data(), 1, 0, DTYPE_FLOAT, 0, nullptr, 0, 0, 0, 0, out.data());
    EXPECT_TRUE(std::signbit(out[0]));
}

TEST(Clamp, NaNPassesThroughAndANaNBoundHoldsNothingBack)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> in = {nan, -1, 1};
    std::vector<double> out(3);
    UTILclamp(3, in.data(), 1, 0, DTYPE_DOUBLE, 1, &nan, 1, 0, 1, nan, out.data());
    EXPECT_TRUE(std::isnan(out[0])); // and equals no null value
    EXPECT_EQ(0, out[1]);
    EXPECT_EQ(1, out[2]);
}

TEST(Clamp, BoundsAreTruncatedForIntegersAndRoundedForFloat)
{
    const std::vector<int> ints = {-4, -3, -2, 2, 3, 4};
    std::vector<int> int_out(6);
    UTILclamp(6, ints.data(), 1, 0, DTYPE_INT, 0, nullptr, 1, -2.9, 1, 2.9, int_out.data());
    EXPECT_EQ((std::vector<int>{-2, -2, -2, 2, 2, 2}), int_out);

    const std::vector<float> floats = {0.0f, 1.0f};
    std::vector<float> float_out(2);
    UTILclamp(2, floats.data(), 1, 0, DTYPE_FLOAT, 0, nullptr, 1, 0.1, 1, 0.7, float_out.data());
    EXPECT_EQ((std::vector<float>{0.1f, 0.7f}), float_out);

    const std::vector<double> doubles = {0.0, 1.0};
    std::vector<double> double_out(2);
    UTILclamp(2, doubles.data(), 1, 0, DTYPE_DOUBLE, 0, nullptr, 1, 0.1, 1, 0.7, double_out.data());
    EXPECT_EQ((std::vector<double>{0.1, 0.7}), double_out);

    const std::vector<qx_long> longs = {0, qx_long{1} << 60};
    std::vector<qx_long> long_out(2);
    UTILclamp(2, longs.data(), 1, 0, DTYPE_QX_LONG, 0, nullptr, 0, 0, 1, 9007199254740992.0 * 4 + 0.0,
              long_out.data());
    EXPECT_EQ((std::vector<qx_long>{0, qx_long{1} << 55}), long_out);
}

TEST(Clamp, BoundsOfNarrowTypesKeepTheLowBitsOfThirtyTwo)
{
    const std::vector<unsigned char> bytes = {0, 44, 45, 255};
    std::vector<unsigned char> out(4);
    UTILclamp(4, bytes.data(), 1, 0, DTYPE_BYTE, 0, nullptr, 0, 0, 1, 300, out.data()); // 300 is 44
    EXPECT_EQ((std::vector<unsigned char>{0, 44, 44, 44}), out);
    UTILclamp(4, bytes.data(), 1, 0, DTYPE_BYTE, 0, nullptr, 1, -1, 0, 0, out.data()); // -1 is 255
    EXPECT_EQ((std::vector<unsigned char>{255, 255, 255, 255}), out);
    // The ends of 32 bits are still within them, with fractions that are cut off.
    for (double least : {-2147483648.0, -2147483648.5}) { // the low bits are 0
        UTILclamp(4, bytes.data(), 1, 0, DTYPE_BYTE, 0, nullptr, 0, 0, 1, least, out.data());
        EXPECT_EQ((std::vector<unsigned char>{0, 0, 0, 0}), out);
        const signed char below = -5;
        signed char clamped = 9;
        UTILclamp(1, &below, 1, 0, DTYPE_CHAR, 0, nullptr, 1, least, 0, 0, &clamped);
        EXPECT_EQ(0, clamped);
    }
    for (double largest : {2147483647.0, 2147483647.5}) { // the low bits are all 1
        const short above = 5;
        short clamped = 9;
        UTILclamp(1, &above, 1, 0, DTYPE_SHORT, 0, nullptr, 0, 0, 1, largest, &clamped);
        EXPECT_EQ(-1, clamped);
    }
}

TYPED_TEST(ArraySelection, ClampBoundsBeyondAllIntegersHoldNothingBack)
{
    using T = TypeParam;
    const std::vector<T> in = {std::numeric_limits<T>::lowest(), T(1), std::numeric_limits<T>::max()};
    std::vector<T> out(3);
    UTILclamp(3, in.data(), 1, 0, dtype_of<T>, 0, nullptr, 1, -std::numeric_limits<double>::max(), 1,
              std::numeric_limits<double>::max(), out.data());
    EXPECT_TRUE(same_bytes(in, out));
}

// ---- copy by list ------------------------------------------------------------------------------------------

TYPED_TEST(ArraySelection, CopyByListTakesTheListedRows)
{
    using T = TypeParam;
    std::mt19937_64 random(7);
    for (int veclen : {1, 2, 3, 4, 5, 6, 8, 9, 16, 17})
        for (qx_long count : {0, 1, 2, 31, 33, 500}) {
            const qx_long rows = 40; // so that a long list repeats rows
            const std::vector<T> in = mixed_values<T>(count, rows * veclen, T(5));
            std::vector<qx_long> list;
            std::vector<T> expected;
            for (qx_long i = 0; i < count; ++i) {
                list.push_back(static_cast<qx_long>(random() % rows));
                for (int c = 0; c < veclen; ++c)
                    expected.push_back(in[static_cast<size_t>(list.back() * veclen + c)]);
            }
            std::vector<T> out(expected.size()), out_typed(expected.size());
            EXPECT_EQ(
                1, UTILcopy_array_list(-1, veclen, dtype_of<T>, in.data(), count, list.data(), out.data()));
            EXPECT_EQ(1, typed_copy_list(T())(veclen, in.data(), count, list.data(), out_typed.data()));
            ASSERT_TRUE(same_bytes(expected, out)) << veclen << " x " << count;
            ASSERT_TRUE(same_bytes(expected, out_typed)) << veclen << " x " << count;
        }
}

// ---- extraction --------------------------------------------------------------------------------------------

TYPED_TEST(ArraySelection, ExtractScalarTakesOneComponent)
{
    using T = TypeParam;
    for (qx_long count : counts())
        for (int stride : {1, 2, 3, 4, 5, 7}) {
            const int offset = static_cast<int>(count) % stride;
            const qx_long length =
                count > 0 ? offset + (count - 1) * stride + 1 : 0; // to the last element read
            const std::vector<T> in = mixed_values<T>(count, length, T(5));
            std::vector<T> expected, out(static_cast<size_t>(count)), out_typed(static_cast<size_t>(count));
            for (qx_long i = 0; i < count; ++i)
                expected.push_back(in[static_cast<size_t>(offset + i * stride)]);
            EXPECT_EQ(1, UTILextract_scalar(count, stride, in.data(), dtype_of<T>, offset, out.data()));
            ASSERT_TRUE(same_bytes(expected, out)) << count << " by " << stride;
            if constexpr (!std::is_same_v<T, int>) {
                EXPECT_EQ(1, typed_extract_scalar(T())(count, stride, in.data(), offset, out_typed.data()));
                ASSERT_TRUE(same_bytes(expected, out_typed)) << count << " by " << stride;
            }
        }
}

TYPED_TEST(ArraySelection, ExtractVectorInterleavesSeparateArrays)
{
    using T = TypeParam;
    for (qx_long count : counts())
        for (int ncomp = 0; ncomp <= 6; ++ncomp) {
            std::vector<int> strides, offsets;
            std::vector<std::vector<T>> arrays;
            std::vector<void *> pointers;
            std::vector<T *> typed_pointers;
            for (int c = 0; c < ncomp; ++c) {
                strides.push_back(1 + c % 4);
                offsets.push_back((c * 5) % 3);
                const qx_long length = count > 0 ? offsets.back() + (count - 1) * strides.back() + 1 : 0;
                arrays.push_back(mixed_values<T>(count + c, length, T(5)));
            }
            for (std::vector<T> &array : arrays) {
                pointers.push_back(array.data());
                typed_pointers.push_back(array.data());
            }
            std::vector<T> expected;
            for (qx_long i = 0; i < count; ++i)
                for (size_t c = 0; c < arrays.size(); ++c)
                    expected.push_back(arrays[c][static_cast<size_t>(strides[c] * i + offsets[c])]);
            std::vector<T> out(expected.size()), out_typed(expected.size());
            EXPECT_EQ(1, UTILextract_vector(count, strides.data(), pointers.data(), dtype_of<T>, ncomp,
                                            offsets.data(), out.data()));
            EXPECT_EQ(1, typed_extract_vector(T())(count, strides.data(), typed_pointers.data(), ncomp,
                                                   offsets.data(), out_typed.data()));
            ASSERT_TRUE(same_bytes(expected, out)) << count << " of " << ncomp;
            ASSERT_TRUE(same_bytes(expected, out_typed)) << count << " of " << ncomp;
        }
}

// ---- the rim -----------------------------------------------------------------------------------------------

TYPED_TEST(ArraySelection, NoElementsIsSuccessAndWritesNothing)
{
    using T = TypeParam;
    const int stride = 1, offset = 0;
    void *no_array = nullptr;
    T *no_typed_array = nullptr;
    for (qx_long count : {0, -1, -100}) {
        EXPECT_EQ(1, UTILclamp(count, nullptr, 1, 0, dtype_of<T>, 0, nullptr, 1, 0, 1, 1, nullptr));
        EXPECT_EQ(1, UTILcopy_array_list(0, 3, dtype_of<T>, nullptr, count, nullptr, nullptr));
        EXPECT_EQ(1, UTILextract_scalar(count, 1, nullptr, dtype_of<T>, 0, nullptr));
        EXPECT_EQ(1, UTILextract_vector(count, &stride, &no_array, dtype_of<T>, 1, &offset, nullptr));
        EXPECT_EQ(1, UTILextract_vector(count, nullptr, nullptr, dtype_of<T>, 2, nullptr, nullptr));
        EXPECT_EQ(1, typed_clamp(T())(count, nullptr, 1, 0, 0, T(), 1, T(0), 1, T(1), nullptr));
        EXPECT_EQ(1, typed_copy_list(T())(3, nullptr, count, nullptr, nullptr));
        EXPECT_EQ(1, typed_extract_vector(T())(count, &stride, &no_typed_array, 1, &offset, nullptr));
    }
}

TEST(ArraySelectionReports, UnknownTypeIsReportedUnderTheOperation)
{
    for (int type : {-1, 7, 100})
        for (qx_long count : {0, 3}) {
            host_calls::reset();
            EXPECT_EQ(0, UTILclamp(count, nullptr, 1, 0, type, 0, nullptr, 1, 0, 1, 1, nullptr));
            EXPECT_EQ(one_report("UTILclamp"), host_calls::report_texts());
            host_calls::reset();
            EXPECT_EQ(0, UTILcopy_array_list(0, 3, type, nullptr, count, nullptr, nullptr));
            EXPECT_EQ(one_report("UTILcopy_array_list"), host_calls::report_texts());
            host_calls::reset();
            EXPECT_EQ(0, UTILextract_scalar(count, 1, nullptr, type, 0, nullptr));
            EXPECT_EQ(one_report("UTILextract_scalar"), host_calls::report_texts());
            host_calls::reset();
            EXPECT_EQ(0, UTILextract_vector(count, nullptr, nullptr, type, 1, nullptr, nullptr));
            EXPECT_EQ(one_report("UTILextract_vector"), host_calls::report_texts());
            EXPECT_EQ((host_calls::report{"UTILextract_vector", 0, 2, "unknown data type"}),
                      host_calls::seen().reports.at(0));
        }
}
