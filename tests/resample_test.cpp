// Grids of another size, against loops that take one sample at a time.
#include <skoklana/array.h>

#include "support/arrays.hpp"
#include "support/fresh_host.hpp"
#include "support/meshes.hpp"

using namespace arrays;

namespace {

qx_long product(const std::vector<qx_long> &dims)
{
    qx_long n = 1;
    for (qx_long dim : dims)
        n *= dim;
    return n;
}

// Visits every sample of the input and keeps those whose every index is a multiple of its step.
template <typename T>
std::vector<T> slow_downsize(const std::vector<qx_long> &dims, const std::vector<int> &steps,
                             const std::vector<T> &in)
{
    std::vector<T> out;
    for (qx_long sample = 0; sample < product(dims); ++sample) {
        qx_long rest = sample;
        bool kept = true;
        for (size_t d = 0; d < dims.size(); ++d) {
            kept = kept && rest % dims[d] % steps[d] == 0;
            rest /= dims[d];
        }
        if (kept) out.push_back(in[static_cast<size_t>(sample)]);
    }
    return out;
}

template <typename T>
std::vector<T> downsized(const std::vector<qx_long> &dims, const std::vector<int> &steps,
                         const std::vector<T> &in, size_t size)
{
    std::vector<T> out(size);
    EXPECT_EQ(1, UTILdownsize(static_cast<int>(dims.size()), dims.data(), steps.data(), dtype_of<T>,
                              in.data(), out.data()));
    return out;
}

template <typename T>
std::vector<T> slow_resample(const std::vector<qx_long> &in_dims, const std::vector<qx_long> &out_dims,
                             int veclen, const std::vector<T> &in)
{
    std::vector<T> out;
    for (qx_long sample = 0; sample < product(out_dims); ++sample) {
        qx_long rest = sample, source = 0, stride = 1;
        for (size_t d = 0; d < in_dims.size(); ++d) {
            const qx_long i = rest % out_dims[d];
            rest /= out_dims[d];
            const double scale =
                (static_cast<double>(in_dims[d]) - 1.0) / (static_cast<double>(out_dims[d]) - 1.0);
            const qx_long from =
                i == 0 ? 0
                       : static_cast<qx_long>(std::trunc(static_cast<double>(i) * scale + 0.4999999999999));
            source += from * stride;
            stride *= in_dims[d];
        }
        for (int c = 0; c < veclen; ++c)
            out.push_back(in[static_cast<size_t>(source * veclen + c)]);
    }
    return out;
}

template <typename T> class GridSize : public FreshHost {
};
TYPED_TEST_SUITE(GridSize, all_types);

class GridSizes : public FreshHost {};

template <typename T> std::vector<T> numbered(qx_long count)
{
    std::vector<T> values;
    for (qx_long i = 0; i < count; ++i)
        values.push_back(T(i * 7 % 101));
    return values;
}

} // namespace

TYPED_TEST(GridSize, DownsizeKeepsTheSamplesAtMultiplesOfTheSteps)
{
    using T = TypeParam;
    std::mt19937_64 random(11);
    int folded = 0, strided = 0;
    for (int trial = 0; trial < 300; ++trial) {
        std::vector<qx_long> dims;
        std::vector<int> steps;
        for (size_t axes = 1 + random() % 4; dims.size() < axes;) {
            dims.push_back(1 + static_cast<qx_long>(random() % 7));
            steps.push_back(random() % 2 != 0 ? 1 : 1 + static_cast<int>(random() % 5));
        }
        folded += steps[0] == 1 && dims.size() > 1;
        strided += steps[0] > 1;
        const std::vector<T> in = numbered<T>(product(dims));
        const std::vector<T> expected = slow_downsize(dims, steps, in);
        ASSERT_EQ(expected, downsized(dims, steps, in, expected.size())) << "trial " << trial;
    }
    EXPECT_GT(std::min(folded, strided), 50);
}

TYPED_TEST(GridSize, TypedDownsizeCopiesBlocksFromTheOffsetOn)
{
    using T = TypeParam;
    const std::vector<T> in = numbered<T>(24);
    const qx_long dims[2] = {6, 4}, steps[2] = {4, 3}, blocks[2] = {2, 1};
    std::vector<T> out(10, T(99)), expected = out;
    // columns 0, 1 and 4, 5 of rows 0 and 3
    for (size_t i = 0; i < 8; ++i)
        expected[1 + i] = in[std::vector<size_t>{0, 1, 4, 5, 18, 19, 22, 23}[i]];
    qx_long offset = 1;
    int result = -1;
    if constexpr (std::is_same_v<T, signed char>)
        result = UTILdownsize_char(2, dims, steps, blocks, in.data(), out.data(), &offset);
    if constexpr (std::is_same_v<T, unsigned char>)
        result = UTILdownsize_byte(2, dims, steps, blocks, in.data(), out.data(), &offset);
    if constexpr (std::is_same_v<T, short>)
        result = UTILdownsize_short(2, dims, steps, blocks, in.data(), out.data(), &offset);
    if constexpr (std::is_same_v<T, int>)
        result = UTILdownsize_int(2, dims, steps, blocks, in.data(), out.data(), &offset);
    if constexpr (std::is_same_v<T, float>)
        result = UTILdownsize_float(2, dims, steps, blocks, in.data(), out.data(), &offset);
    if constexpr (std::is_same_v<T, double>)
        result = UTILdownsize_double(2, dims, steps, blocks, in.data(), out.data(), &offset);
    if constexpr (std::is_same_v<T, qx_long>)
        result = UTILdownsize_qx_long(2, dims, steps, blocks, in.data(), out.data(), &offset);
    EXPECT_EQ(1, result);
    EXPECT_EQ(9, offset);
    EXPECT_EQ(expected, out);
}

TYPED_TEST(GridSize, ResampleTakesTheNearestSample)
{
    using T = TypeParam;
    std::mt19937_64 random(12);
    for (int trial = 0; trial < 200; ++trial) {
        const size_t ndim = 1 + random() % 3;
        std::vector<qx_long> in_dims, out_dims;
        while (in_dims.size() < ndim) {
            in_dims.push_back(1 + static_cast<qx_long>(random() % 9));
            out_dims.push_back(1 + static_cast<qx_long>(random() % 12));
        }
        const int veclen = 1 + static_cast<int>(random() % 3);
        const std::vector<T> in = numbered<T>(product(in_dims) * veclen);
        const std::vector<T> expected = slow_resample(in_dims, out_dims, veclen, in);
        std::vector<T> out(expected.size());
        ASSERT_EQ(1, UTILresample(static_cast<int>(ndim), in_dims.data(), out_dims.data(), veclen,
                                  dtype_of<T>, in.data(), out.data()));
        ASSERT_EQ(expected, out) << "trial " << trial;
    }
}

TYPED_TEST(GridSize, TypedResampleIsTheSame)
{
    using T = TypeParam;
    const qx_long in_dims[2] = {5, 3}, out_dims[2] = {7, 4};
    const std::vector<T> in = numbered<T>(15);
    std::vector<T> expected(28), out(28);
    UTILresample(2, in_dims, out_dims, 1, dtype_of<T>, in.data(), expected.data());
    if constexpr (std::is_same_v<T, signed char>)
        UTILresample_char(2, in_dims, out_dims, 1, in.data(), out.data());
    if constexpr (std::is_same_v<T, unsigned char>)
        UTILresample_byte(2, in_dims, out_dims, 1, in.data(), out.data());
    if constexpr (std::is_same_v<T, short>)
        UTILresample_short(2, in_dims, out_dims, 1, in.data(), out.data());
    if constexpr (std::is_same_v<T, int>) UTILresample_int(2, in_dims, out_dims, 1, in.data(), out.data());
    if constexpr (std::is_same_v<T, float>)
        UTILresample_float(2, in_dims, out_dims, 1, in.data(), out.data());
    if constexpr (std::is_same_v<T, double>)
        UTILresample_double(2, in_dims, out_dims, 1, in.data(), out.data());
    if constexpr (std::is_same_v<T, qx_long>)
        UTILresample_qx_long(2, in_dims, out_dims, 1, in.data(), out.data());
    EXPECT_EQ(expected, out);
}

TEST_F(GridSizes, EqualSizesGiveACopy)
{
    for (qx_long n : {1, 2, 3, 1023, 1024, 1025, 5000}) {
        const std::vector<int> in = meshes::random_values<int>(1, n, -1000, 1000);
        std::vector<int> out(in.size());
        UTILresample(1, &n, &n, 1, DTYPE_INT, in.data(), out.data());
        EXPECT_EQ(in, out) << n;
    }
}

TEST_F(GridSizes, HalfwayBetweenTwoSamplesIsTheLowerOneUntilTheSumRoundsUp)
{
    const qx_long in_dim = 3001, out_dim = 6001; // index i at i / 2
    std::vector<int> in(in_dim), out(out_dim);
    for (int i = 0; i < in_dim; ++i)
        in[static_cast<size_t>(i)] = i;
    UTILresample(1, &in_dim, &out_dim, 1, DTYPE_INT, in.data(), out.data());
    EXPECT_EQ(0, out[1]);
    EXPECT_EQ(500, out[1001]);
    EXPECT_EQ(1, out[2]);
    EXPECT_EQ(2501, out[5001]); // 2500.5 + 0.4999999999999 is 2501 in double
}

TEST_F(GridSizes, ASingleOutputSampleIsTheFirstAlongAnyNumberOfAxes)
{
    const std::vector<short> in = {5, 6, 7, 8, 9, 10, 11, 12};
    const qx_long in_dims[3] = {2, 2, 2}, out_dims[3] = {1, 1, 1};
    for (int ndim : {1, 2, 3}) {
        short out[2] = {0, 99};
        EXPECT_EQ(1, UTILresample(ndim, in_dims, out_dims, 1, DTYPE_SHORT, in.data(), out));
        EXPECT_EQ(5, out[0]);
        EXPECT_EQ(99, out[1]);
    }
}

TEST_F(GridSizes, OtherNumbersOfAxesWriteNothing)
{
    const qx_long dims[4] = {2, 2, 2, 2};
    const double in[16] = {};
    double out[16];
    std::fill(out, out + 16, 7.0);
    for (int ndim : {-1, 0, 4})
        EXPECT_EQ(1, UTILresample(ndim, dims, dims, 1, DTYPE_DOUBLE, in, out));
    for (int ndim : {-1, 0})
        EXPECT_EQ(1, UTILdownsize(ndim, nullptr, nullptr, DTYPE_DOUBLE, in, out));
    EXPECT_EQ(16, std::count(out, out + 16, 7.0));
}

TEST_F(GridSizes, SixteenAxesAreTakenAndSeventeenRefusedWithoutAWord)
{
    std::vector<qx_long> dims(17, 1);
    std::vector<int> steps(17, 2);
    dims[15] = 5;
    const std::vector<int> in = {1, 2, 3, 4, 5};
    std::vector<int> out(3);
    EXPECT_EQ(1, UTILdownsize(16, dims.data(), steps.data(), DTYPE_INT, in.data(), out.data()));
    EXPECT_EQ((std::vector<int>{1, 3, 5}), out);
    EXPECT_EQ(0, UTILdownsize(17, dims.data(), steps.data(), DTYPE_INT, in.data(), out.data()));
    EXPECT_EQ(0, UTILdownsize(17, dims.data(), steps.data(), 7, in.data(), out.data()));
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(GridSizes, AxesOfOneSampleAndOfNone)
{
    const std::vector<int> in = {4, 5};
    std::vector<int> out = {9, 9};
    const qx_long ones[3] = {1, 1, 1}, none[2] = {2, 0}, none_first[2] = {0, 2};
    const int twos[3] = {2, 2, 2}, steps[2] = {1, 1};
    EXPECT_EQ(1, UTILdownsize(3, ones, twos, DTYPE_INT, in.data(), out.data()));
    EXPECT_EQ((std::vector<int>{4, 9}), out);
    EXPECT_EQ(1, UTILdownsize(2, none, twos, DTYPE_INT, in.data(), out.data()));
    EXPECT_EQ(1, UTILdownsize(2, none, steps, DTYPE_INT, in.data(), out.data()));
    EXPECT_EQ(1, UTILdownsize(2, none_first, steps, DTYPE_INT, in.data(), out.data()));
    EXPECT_EQ(1, UTILdownsize(2, none_first, twos, DTYPE_INT, in.data(), out.data()));
    EXPECT_EQ((std::vector<int>{4, 9}), out);
}

TEST_F(GridSizes, AStepBelowOneIsRefused)
{
    const qx_long dims[2] = {2, 2}, steps[2] = {1, 0}, blocks[2] = {1, 1};
    const int int_steps[2] = {1, 0};
    const float in[4] = {};
    float out[4] = {};
    qx_long offset = 0;
    EXPECT_EQ(0, UTILdownsize(2, dims, int_steps, DTYPE_FLOAT, in, out));
    EXPECT_EQ(0, UTILdownsize_float(2, dims, steps, blocks, in, out, &offset));
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(GridSizes, UnknownTypesAreReportedWhateverElseIsAsked)
{
    const qx_long dims[1] = {1};
    const int steps[1] = {1};
    for (int type : {-1, 7}) {
        EXPECT_EQ(0, UTILdownsize(1, dims, steps, type, nullptr, nullptr));
        EXPECT_EQ(0, UTILresample(9, dims, dims, 1, type, nullptr, nullptr));
    }
    EXPECT_EQ(
        (std::vector<std::string>{"UTILdownsize: unknown data type", "UTILresample: unknown data type",
                                  "UTILdownsize: unknown data type", "UTILresample: unknown data type"}),
        host_calls::report_texts());
}
