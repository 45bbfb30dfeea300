// Weighted windows and blends, against one sum at a time.
#include <skoklana/array.h>

#include "support/arrays.hpp"
#include "support/fresh_host.hpp"
#include "support/meshes.hpp"

using namespace arrays;

namespace {

// A sum as an element: the whole part for integer types.
template <typename T> T element_of(double value)
{
    if constexpr (std::is_integral_v<T>)
        return slow_bound<T>(value);
    else
        return static_cast<T>(value);
}

template <typename T>
std::vector<T> slow_filter(const std::vector<float> &weights, qx_long count, int veclen,
                           const std::vector<T> &in)
{
    const int n = static_cast<int>(weights.size()), half = n / 2;
    double total = 0;
    for (float w : weights)
        total += w;
    std::vector<double> w(weights.begin(), weights.end());
    if (total != 1.0)
        for (double &one : w)
            one /= total;
    std::vector<T> out;
    for (qx_long i = 0; i < count; ++i) {
        double partial = 0;
        int met = 0;
        for (int k = 0; k < n; ++k)
            if (i + k - half >= 0 && i + k - half < count) {
                partial += w[static_cast<size_t>(k)];
                ++met;
            }
        for (int c = 0; c < veclen; ++c) {
            double sum = 0;
            for (int k = 0; k < n; ++k) {
                const qx_long sample = i + k - half;
                if (sample < 0 || sample >= count) continue;
                const double weight =
                    met == n ? w[static_cast<size_t>(k)] : w[static_cast<size_t>(k)] / partial;
                sum += weight * static_cast<double>(in[static_cast<size_t>(sample * veclen + c)]);
            }
            out.push_back(element_of<T>(sum));
        }
    }
    return out;
}

template <typename T> class Filter : public FreshHost {
};
TYPED_TEST_SUITE(Filter, all_types);

class Filters : public FreshHost {};

} // namespace

TYPED_TEST(Filter, AgreesWithTheReference)
{
    using T = TypeParam;
    std::mt19937_64 random(5);
    for (int nweights : {1, 2, 3, 4, 5, 8, 13})
        for (qx_long count : {0, 1, 2, 3, 5, 8, 15, 16, 17, 40, 111})
            for (int veclen : {1, 2, 3, 5}) {
                const auto weights = meshes::random_values<float>(random(), nweights, 0.1, 2);
                const auto in = meshes::random_values<T>(random(), count * veclen, 0, 120);
                std::vector<T> out(in.size());
                ASSERT_EQ(1, UTILfilter_1d(nweights, weights.data(), count, veclen, dtype_of<T>, in.data(),
                                           out.data()));
                ASSERT_TRUE(same_bytes(slow_filter(weights, count, veclen, in), out))
                    << nweights << " weights, " << count << " samples of " << veclen;
            }
}

TYPED_TEST(Filter, TypedFormsAreTheSame)
{
    using T = TypeParam;
    const std::vector<float> w = {1, 2, 1};
    const auto a = meshes::random_values<T>(1, 50, 0, 100), b = meshes::random_values<T>(2, 50, 0, 100);
    std::vector<T> expected(50), out(50), blend_expected(50), blend(50);
    UTILfilter_1d(3, w.data(), 25, 2, dtype_of<T>, a.data(), expected.data());
    UTILinterpolate(50, 0.25, dtype_of<T>, a.data(), b.data(), blend_expected.data());
#define BOTH(type, suffix)                                                                  \
    if constexpr (std::is_same_v<T, type>) {                                                \
        EXPECT_EQ(1, UTILfilter_1d_##suffix(3, w.data(), 25, 2, a.data(), out.data()));     \
        EXPECT_EQ(1, UTILinterpolate_##suffix(50, 0.25, a.data(), b.data(), blend.data())); \
    }
    BOTH(signed char, char)
    BOTH(unsigned char, byte)
    BOTH(short, short)
    BOTH(int, int)
    BOTH(float, float)
    BOTH(double, double)
    BOTH(qx_long, qx_long)
#undef BOTH
    EXPECT_EQ(expected, out);
    EXPECT_EQ(blend_expected, blend);
}

TYPED_TEST(Filter, OneWeightCopies)
{
    using T = TypeParam;
    const std::vector<T> in = {T(1), T(100), T(5)};
    std::vector<T> out(3);
    const float weight = 0.3f;
    UTILfilter_1d(1, &weight, 3, 1, dtype_of<T>, in.data(), out.data());
    EXPECT_EQ(in, out);
}

TYPED_TEST(Filter, BlendsAreTheLineBetweenTwoValuesTruncated)
{
    using T = TypeParam;
    for (qx_long count : counts()) {
        const auto a = meshes::random_values<T>(static_cast<uint64_t>(count), count, 0, 120);
        const auto b = meshes::random_values<T>(static_cast<uint64_t>(count) + 1, count, 0, 120);
        std::vector<T> out(a.size());
        for (double t : {0.0, 0.25, 0.7, 1.0, 1.2}) {
            ASSERT_EQ(1, UTILinterpolate(count, t, dtype_of<T>, a.data(), b.data(), out.data()));
            for (size_t i = 0; i < a.size(); ++i) {
                const double from = static_cast<double>(a[i]), to = static_cast<double>(b[i]);
                ASSERT_EQ(element_of<T>((to - from) * t + from), out[i]);
                if (t == 0) {
                    ASSERT_EQ(a[i], out[i]);
                }
                if (t == 1 && std::is_integral_v<T>) {
                    ASSERT_EQ(b[i], out[i]);
                }
            }
        }
    }
}

TEST_F(Filters, WeightsThatSumToExactlyOneAreNotDivided)
{
    // Ten times a tenth is not 1 in double; each is divided by what it is.
    const std::vector<float> tenths(10, 0.1f), halves = {0.5f, 0.5f};
    double sum = 0;
    for (float w : tenths)
        sum += w;
    ASSERT_NE(1.0, sum);
    const std::vector<double> in(30, 3.0);
    std::vector<double> out(30);
    UTILfilter_1d(10, tenths.data(), 30, 1, DTYPE_DOUBLE, in.data(), out.data());
    double expected = 0;
    for (int k = 0; k < 10; ++k)
        expected += static_cast<double>(0.1f) / sum * 3.0;
    EXPECT_EQ(expected, out[15]);
    const std::vector<double> pair = {1, 4};
    UTILfilter_1d(2, halves.data(), 2, 1, DTYPE_DOUBLE, pair.data(), out.data());
    EXPECT_EQ(1, out[0]); // the end: the one weight that meets a sample counts whole
    EXPECT_EQ(2.5, out[1]);
}

TEST_F(Filters, EndsAreDividedByTheWeightsThatMeetASampleAndTheInteriorIsNotAgain)
{
    const std::vector<float> w = {1, 2, 5};
    const std::vector<double> ones(6, 1.0);
    std::vector<double> out(6);
    UTILfilter_1d(3, w.data(), 6, 1, DTYPE_DOUBLE, ones.data(), out.data());
    for (double v : out)
        EXPECT_NEAR(1, v, 1e-15);
    const std::vector<double> step = {0, 1, 1, 1, 1, 0};
    UTILfilter_1d(3, w.data(), 6, 1, DTYPE_DOUBLE, step.data(), out.data());
    EXPECT_NEAR(5.0 / 7, out[0], 1e-15);
    EXPECT_NEAR(7.0 / 8, out[1], 1e-15);
    EXPECT_NEAR(1.0 / 3, out[5], 1e-15);
}

TEST_F(Filters, BadWeightsGiveZeroWithoutAWordAndWithoutAWrite)
{
    const std::vector<float> w = {1, -1};
    const std::vector<float> in = {1, 2};
    std::vector<float> out = {7, 7};
    EXPECT_EQ(0, UTILfilter_1d(2, w.data(), 2, 1, DTYPE_FLOAT, in.data(), out.data()));
    EXPECT_EQ(0, UTILfilter_1d(0, w.data(), 2, 1, DTYPE_FLOAT, in.data(), out.data()));
    EXPECT_EQ(0, UTILfilter_1d(2, w.data(), 0, 1, DTYPE_FLOAT, in.data(), out.data()));
    EXPECT_EQ((std::vector<float>{7, 7}), out);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(Filters, UnknownTypesComeFirst)
{
    EXPECT_EQ(0, UTILfilter_1d(0, nullptr, 0, 1, 7, nullptr, nullptr));
    EXPECT_EQ(0, UTILinterpolate(0, 0.5, -1, nullptr, nullptr, nullptr));
    EXPECT_EQ(
        (std::vector<std::string>{"UTILfilter: unknown data type", "UTILinterpolate: unknown data type"}),
        host_calls::report_texts());
}

TEST_F(Filters, SumsPastATypeTakeTheLowBitsOfAnInt)
{
    const std::vector<float> w = {3, -1, -1}; // at the ends some weights alone
    const std::vector<unsigned char> in = {200, 0, 0, 0};
    std::vector<unsigned char> out(4);
    UTILfilter_1d(3, w.data(), 4, 1, DTYPE_BYTE, in.data(), out.data());
    EXPECT_EQ(600 & 255, out[1]);
    const std::vector<unsigned char> a = {0}, b = {200};
    UTILinterpolate(1, 2.0, DTYPE_BYTE, a.data(), b.data(), out.data());
    EXPECT_EQ(400 & 255, out[0]);
}

TEST_F(Filters, WithoutMemoryTheResultIsZero)
{
    const std::vector<float> w = {1, 2, 1};
    const std::vector<int> in = {1, 2, 3};
    std::vector<int> out = {9, 9, 9};
    const host_calls::watch watch;
    host_calls::fail_allocation(0);
    EXPECT_EQ(0, UTILfilter_1d(3, w.data(), 3, 1, DTYPE_INT, in.data(), out.data()));
    EXPECT_EQ(0, watch.live_blocks());
    EXPECT_EQ(9, out[0]);
}
