#include <skoklana/scatter.h>

#include "support/arrays.hpp"
#include "support/host_calls.hpp"

#include <gtest/gtest.h>

using namespace arrays;

namespace {

float polynomial(int ndim, const float *c, float x, float y, float z)
{
    float sum;
    if (ndim == 1) {
        sum = c[0] + c[1] * x;
        sum = sum + (c[2] * x) * x;
    } else if (ndim == 2) {
        sum = c[0] + c[1] * x;
        sum = sum + c[2] * y;
        sum = sum + (c[3] * x) * y;
        sum = sum + (c[4] * x) * x;
        sum = sum + (c[5] * y) * y;
    } else {
        sum = c[0] + c[1] * x;
        sum = sum + c[2] * y;
        sum = sum + c[3] * z;
        sum = sum + (c[4] * x) * y;
        sum = sum + (c[5] * x) * z;
        sum = sum + (c[6] * y) * z;
        sum = sum + (c[7] * x) * x;
        sum = sum + (c[8] * y) * y;
        sum = sum + (c[9] * z) * z;
    }
    return sum;
}

template <typename T> class MadeUpData : public testing::Test {
};
TYPED_TEST_SUITE(MadeUpData, all_types);

} // namespace

TYPED_TEST(MadeUpData, IsThePolynomialInSinglePrecision)
{
    using T = TypeParam;
    const float coefs[10] = {1.5f, 0.3f, -0.7f, 0.11f, 0.5f, -0.25f, 0.9f, 0.35f, -0.1f, 0.4f};
    for (int ndim : {1, 2, 3})
        for (bool has_coords : {false, true})
            for (int stride : {1, 3}) {
                std::mt19937 random(static_cast<unsigned>(ndim + stride));
                constexpr int count = 40, offset = 2;
                std::vector<float> coords;
                for (int i = 0; i < count * ndim; ++i)
                    coords.push_back(has_coords ? static_cast<float>(random() % 1000) / 777
                                                : static_cast<float>(i) * 1.0f);
                // Without coordinates values rise quickly: the bytes end before they overflow.
                const int n = has_coords ? count : 2;
                std::vector<T> expected(offset + count * 3, T(9)), out = expected;
                for (int i = 0; i < n; ++i) {
                    const float *at = &coords[static_cast<size_t>(i * ndim)];
                    expected[static_cast<size_t>(offset + i * stride)] = static_cast<T>(
                        polynomial(ndim, coefs, at[0], ndim > 1 ? at[1] : 0, ndim > 2 ? at[2] : 0));
                }
                if (std::is_same_v<T, unsigned char> && !has_coords) continue; // negative values
                EXPECT_EQ(1, UTILgen_data(n, stride, offset, dtype_of<T>, out.data(), ndim,
                                          has_coords ? coords.data() : nullptr, coefs, 0, 0));
                EXPECT_TRUE(same_bytes(expected, out)) << ndim << ", " << has_coords << ", " << stride;
            }
}

TYPED_TEST(MadeUpData, NullValuesAreWrittenWhateverTheAxes)
{
    using T = TypeParam;
    for (int ndim : {-1, 0, 1, 3, 4}) {
        std::vector<T> out(5, T(9));
        EXPECT_EQ(1, UTILgen_data(2, 2, 1, dtype_of<T>, out.data(), ndim, nullptr, nullptr, 7, 42.9));
        const T null_value = static_cast<T>(42.9);
        EXPECT_EQ((std::vector<T>{9, null_value, 9, null_value, 9}), out);
    }
}

TYPED_TEST(MadeUpData, OtherNumbersOfAxesAndNoValuesWriteNothing)
{
    using T = TypeParam;
    const float coefs[10] = {};
    std::vector<T> out(3, T(9));
    for (int ndim : {-1, 0, 4})
        EXPECT_EQ(1, UTILgen_data(3, 1, 0, dtype_of<T>, out.data(), ndim, nullptr, coefs, 0, 0));
    for (qx_long count : {0, -1})
        for (int null_flag : {0, 1})
            EXPECT_EQ(1, UTILgen_data(count, 1, 0, dtype_of<T>, out.data(), 2, nullptr, coefs, null_flag, 1));
    EXPECT_EQ(std::vector<T>(3, T(9)), out);
}

TEST(MadeUpDataReports, UnknownTypeWhateverTheCount)
{
    for (int type : {-1, 7})
        for (qx_long count : {0, 3}) {
            host_calls::reset();
            EXPECT_EQ(0, UTILgen_data(count, 1, 0, type, nullptr, 1, nullptr, nullptr, 1, 0));
            EXPECT_EQ(std::vector<std::string>{"UTILgen_data: unknown data type"},
                      host_calls::report_texts());
        }
    host_calls::reset();
}

TEST(MadeUpDataReports, ElementNumbersAreMadeFloatsOfAllTheirBits)
{
    // 2^24 + 1 is no float: the number of the element is rounded, not counted up in floats.
    const float coefs[3] = {0, 1, 0};
    const auto last_of = [&](qx_long count) { // all written to one place
        double out = -1;
        EXPECT_EQ(1, UTILgen_data(count, 0, 0, DTYPE_DOUBLE, &out, 1, nullptr, coefs, 0, 0));
        return out;
    };
    EXPECT_EQ(16777215.0, last_of(16777216));
    EXPECT_EQ(16777216.0, last_of(16777218));
    EXPECT_EQ(16777220.0, last_of(16777220));
}
