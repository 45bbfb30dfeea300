#include "support/fetches.hpp"
#include "support/host_calls.hpp"
#include "support/lattices.hpp"

#include <skoklana.h>

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr float inf = std::numeric_limits<float>::infinity();

// Lists that end within, at and past the reach of what is asked for ahead, and of whole blocks.
const std::vector<qx_long> counts = {0, 1, 2, 31, 32, 33, 47, 48, 49, 64, 100, 500};

struct pair_list {
    std::vector<qx_long> first, second;
    std::vector<float> t;

    qx_long count() const { return static_cast<qx_long>(first.size()); }
};

// Any two nodes, mostly different; t mostly within 0 to 1, both ends included.
pair_list random_pairs(uint64_t seed, qx_long count, qx_long nnodes)
{
    std::mt19937_64 random(seed);
    const auto node = [&] { return static_cast<qx_long>(random() % static_cast<uint64_t>(nnodes)); };
    pair_list pairs;
    for (qx_long i = 0; i < count; ++i) {
        pairs.first.push_back(node());
        pairs.second.push_back(node());
        pairs.t.push_back(i % 10 == 8   ? 0.0f
                          : i % 10 == 9 ? 1.0f
                                        : static_cast<float>(random() % 10007) / 10007);
    }
    return pairs;
}

// Every k-th pair gets a negative number, on either side or both.
pair_list with_missing(pair_list pairs, size_t every)
{
    for (size_t i = every - 1; i < pairs.first.size(); i += every) {
        if (i / every % 3 != 1) pairs.first[i] = -1;
        if (i / every % 3 != 0)
            pairs.second[i] = std::numeric_limits<qx_long>::min() + static_cast<qx_long>(i);
    }
    return pairs;
}

bool missing(const pair_list &pairs, size_t i)
{
    return pairs.first[i] < 0 || pairs.second[i] < 0;
}

bool same_bits(const void *a, const void *b, size_t bytes)
{
    return bytes == 0 || memcmp(a, b, bytes) == 0;
}

// ---- references: one rounding a line -------------------------------------------------------------------------

float between_in_float(float a, float b, float t)
{
    volatile float difference = b - a;
    volatile float part = difference * t;
    volatile float sum = part + a;
    return sum;
}

double between_in_double(double a, double b, float t)
{
    volatile double difference = b - a;
    volatile double part = difference * static_cast<double>(t);
    volatile double sum = part + a;
    return sum;
}

template <typename T> T reference(T a, T b, float t)
{
    return static_cast<T>(between_in_float(static_cast<float>(a), static_cast<float>(b), t));
}
template <> double reference(double a, double b, float t)
{
    return between_in_double(a, b, t);
}
template <> qx_long reference(qx_long a, qx_long b, float t)
{
    return static_cast<qx_long>(between_in_double(static_cast<double>(a), static_cast<double>(b), t));
}

// ---- data of every type --------------------------------------------------------------------------------------

template <typename T> struct code_of;
template <> struct code_of<signed char> {
    static constexpr int value = DTYPE_CHAR;
};
template <> struct code_of<unsigned char> {
    static constexpr int value = DTYPE_BYTE;
};
template <> struct code_of<short> {
    static constexpr int value = DTYPE_SHORT;
};
template <> struct code_of<int> {
    static constexpr int value = DTYPE_INT;
};
template <> struct code_of<float> {
    static constexpr int value = DTYPE_FLOAT;
};
template <> struct code_of<double> {
    static constexpr int value = DTYPE_DOUBLE;
};
template <> struct code_of<qx_long> {
    static constexpr int value = DTYPE_QX_LONG;
};

using element_types = testing::Types<signed char, unsigned char, short, int, float, double, qx_long>;

// Values of the whole type, as far as a mean of two still is one.
template <typename T> std::vector<T> full_range(uint64_t seed, qx_long count)
{
    constexpr double top =
        std::is_integral_v<T> ? static_cast<double>(std::numeric_limits<T>::max() / 2) : 1e6;
    return meshes::random_values<T>(seed, count, std::is_unsigned_v<T> ? 0 : -top, top);
}

template <typename T> class EvalParam : public testing::Test {
};
TYPED_TEST_SUITE(EvalParam, element_types);

TYPED_TEST(EvalParam, AgreesWithTheReference)
{
    using T = TypeParam;
    constexpr qx_long nnodes = 200;
    for (int veclen : {1, 2, 3, 4, 7})
        for (qx_long count : counts)
            for (const pair_list &pairs :
                 {random_pairs(1, count, nnodes), with_missing(random_pairs(2, count, nnodes), 7)}) {
                const std::vector<T> data = full_range<T>(static_cast<uint64_t>(veclen), nnodes * veclen);
                std::vector<T> out(static_cast<size_t>(count * veclen), T{77}), expected = out;
                for (size_t i = 0; i < static_cast<size_t>(count); ++i)
                    for (size_t k = 0; k < static_cast<size_t>(veclen) && !missing(pairs, i); ++k)
                        expected[i * static_cast<size_t>(veclen) + k] =
                            reference(data[static_cast<size_t>(pairs.first[i] * veclen) + k],
                                      data[static_cast<size_t>(pairs.second[i] * veclen) + k], pairs.t[i]);
                ASSERT_EQ(UTILeval_param(count, veclen, code_of<T>::value, data.data(), 0, nullptr,
                                         pairs.first.data(), pairs.second.data(), pairs.t.data(), out.data()),
                          1);
                ASSERT_EQ(out, expected) << "veclen " << veclen << ", " << count << " pairs";
            }
}

TYPED_TEST(EvalParam, NullAtEitherEndMakesThatComponentNull)
{
    using T = TypeParam;
    constexpr qx_long nnodes = 60;
    constexpr T null = 3;
    bool at_first = false, at_second = false, at_both = false, at_none = false, one_of_many = false;
    for (int veclen : {1, 2, 3, 5})
        for (qx_long count : counts) {
            const pair_list pairs = with_missing(random_pairs(3, count, nnodes), 9);
            const std::vector<T> data = meshes::random_values<T>(4, nnodes * veclen, 0, 8); // many are null
            std::vector<T> whole(data);
            for (T &value : whole)
                if constexpr (std::is_floating_point_v<T>) value = std::trunc(value);
            std::vector<T> out(static_cast<size_t>(count * veclen), T{77}), expected = out;
            for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
                int nulls = 0;
                for (size_t k = 0; k < static_cast<size_t>(veclen) && !missing(pairs, i); ++k) {
                    const T a = whole[static_cast<size_t>(pairs.first[i] * veclen) + k],
                            b = whole[static_cast<size_t>(pairs.second[i] * veclen) + k];
                    const bool is_null = a == null || b == null;
                    expected[i * static_cast<size_t>(veclen) + k] =
                        is_null ? null : reference(a, b, pairs.t[i]);
                    at_first = at_first || (a == null && b != null);
                    at_second = at_second || (a != null && b == null);
                    at_both = at_both || (a == null && b == null);
                    at_none = at_none || !is_null;
                    nulls += is_null;
                }
                one_of_many = one_of_many || (nulls > 0 && nulls < veclen && !missing(pairs, i));
            }
            ASSERT_EQ(UTILeval_param(count, veclen, code_of<T>::value, whole.data(), 1, &null,
                                     pairs.first.data(), pairs.second.data(), pairs.t.data(), out.data()),
                      1);
            ASSERT_EQ(out, expected) << "veclen " << veclen << ", " << count << " pairs";
        }
    EXPECT_TRUE(at_first && at_second && at_both && at_none && one_of_many);
}

TYPED_TEST(EvalParam, EndsAreTheNodesThemselves)
{
    using T = TypeParam;
    const T data[2] = {T{11}, T{42}};
    const qx_long a[2] = {0, 0}, b[2] = {1, 1};
    const float t[2] = {0, 1};
    T out[2] = {};
    ASSERT_EQ(UTILeval_param(2, 1, code_of<TypeParam>::value, data, 0, nullptr, a, b, t, out), 1);
    EXPECT_EQ(out[0], T{11});
    EXPECT_EQ(out[1], T{42});
}

template <typename T> T eval_one(T a, T b, float t)
{
    const T data[2] = {a, b};
    const qx_long first = 0, second = 1;
    T out = T{};
    EXPECT_EQ(UTILeval_param(1, 1, code_of<T>::value, data, 0, nullptr, &first, &second, &t, &out), 1);
    return out;
}

TEST(EvalParamNumbers, IntegersTruncateTowardsZero)
{
    EXPECT_EQ(eval_one<int>(0, 3, 0.5f), 1);
    EXPECT_EQ(eval_one<int>(0, -3, 0.5f), -1);
    EXPECT_EQ(eval_one<int>(-1, 0, 0.75f), 0);
    EXPECT_EQ(eval_one<signed char>(-128, 127, 0.5f), 0);
    EXPECT_EQ(eval_one<signed char>(-10, -5, 0.5f), -7);
    EXPECT_EQ(eval_one<unsigned char>(255, 0, 0.25f), 191);
    EXPECT_EQ(eval_one<short>(-32768, -32767, 0.5f), -32767);
    EXPECT_EQ(eval_one<qx_long>(0, -3, 0.5f), -1);
    EXPECT_EQ(eval_one<qx_long>(-7, -8, 0.9f), -7);
}

TEST(EvalParamNumbers, IntegersAreMixedInFloatAndLongOnesInDouble)
{
    // 2^24 + 1 is no float: it becomes 2^24 before anything else happens.
    EXPECT_EQ(eval_one<int>(16777217, 16777217, 0), 16777216);
    EXPECT_EQ(eval_one<int>(0, 16777217, 1), 16777216);
    EXPECT_EQ(eval_one<qx_long>(16777217, 16777217, 0), 16777217);
    EXPECT_EQ(eval_one<qx_long>((qx_long{1} << 53) + 1, 0, 0), qx_long{1} << 53);
    // The difference of two floats is rounded to float, that of two doubles is exact here.
    EXPECT_EQ(eval_one<float>(1, 1e8f, 0.5f), between_in_float(1, 1e8f, 0.5f));
    // 1e-10 - 1 is -1 in float, and the second end is lost on the way to it; double keeps it.
    EXPECT_EQ(eval_one<float>(1, 1e-10f, 1), 0);
    EXPECT_NE(between_in_double(1, 1e-10, 1), 0);
    EXPECT_EQ(eval_one<double>(0.1, 0.7, 0.3f), between_in_double(0.1, 0.7, 0.3f));
    EXPECT_NE(eval_one<double>(0.1, 0.7, 0.3f), static_cast<double>(between_in_float(0.1f, 0.7f, 0.3f)));
}

// Rounding can carry a result past the type's end: the float next to INT_MAX is one more.
TEST(EvalParamNumbers, ResultsPastTheTypeStopAtItsEnd)
{
    EXPECT_EQ(eval_one<int>(INT_MAX, INT_MAX, 0.5f), INT_MAX);
    EXPECT_EQ(eval_one<int>(INT_MIN, INT_MIN, 0.5f), INT_MIN);
    EXPECT_EQ(eval_one<qx_long>(INT64_MAX, INT64_MAX, 0.5f), INT64_MAX);
    EXPECT_EQ(eval_one<qx_long>(INT64_MIN, INT64_MIN, 0.5f), INT64_MIN);
}

// Beyond the nodes the line through them leaves the range of a narrow type long before that of int.
TEST(EvalParamNumbers, NarrowTypesKeepTheLowBits)
{
    EXPECT_EQ(eval_one<signed char>(0, 100, 2), -56);
    EXPECT_EQ(eval_one<unsigned char>(0, 100, 3), 44);
    EXPECT_EQ(eval_one<unsigned char>(0, 100, -0.5f), 206);
    EXPECT_EQ(eval_one<short>(0, 30000, 2), -5536);
    EXPECT_EQ(eval_one<short>(0, 30000, 1e6f), SHRT_MAX);
    EXPECT_EQ(eval_one<unsigned char>(0, 1, -1e10f), 0);
}

TEST(EvalParamNumbers, NullIsComparedInItsOwnType)
{
    const qx_long far[2] = {(qx_long{1} << 53) + 1, 5}, far_null = qx_long{1} << 53;
    const int near[2] = {16777217, 5}, near_null = 16777216;
    const qx_long a = 0, b = 1;
    const float t = 1;
    qx_long far_out = 0;
    int near_out = 0;
    ASSERT_EQ(UTILeval_param(1, 1, DTYPE_QX_LONG, far, 1, &far_null, &a, &b, &t, &far_out), 1);
    ASSERT_EQ(UTILeval_param(1, 1, DTYPE_INT, near, 1, &near_null, &a, &b, &t, &near_out), 1);
    EXPECT_EQ(far_out, 5) << "not null, though both are one double";
    EXPECT_EQ(near_out, 5) << "not null, though both are one float";
    ASSERT_EQ(UTILeval_param(1, 1, DTYPE_INT, near, 1, &near[0], &a, &b, &t, &near_out), 1);
    EXPECT_EQ(near_out, 16777217) << "the null value itself, in full";
}

TEST(EvalParamNumbers, ZeroOfEitherSignIsNullAndComesOutAsTheNullValue)
{
    const double data[2] = {-0.0, 8}, null = 0.0;
    const qx_long a = 0, b = 1;
    const float t = 0.5f;
    for (int flag : {1, 2, -1}) {
        double out = -7;
        ASSERT_EQ(UTILeval_param(1, 1, DTYPE_DOUBLE, data, flag, &null, &a, &b, &t, &out), 1);
        EXPECT_EQ(out, 0);
        EXPECT_FALSE(std::signbit(out));
    }
}

TEST(EvalParamNumbers, NanAndInfinityPassThroughTheArithmetic)
{
    EXPECT_TRUE(std::isnan(eval_one<float>(NAN, 1, 0.5f)));
    EXPECT_TRUE(std::isnan(eval_one<double>(1, NAN, 0.5f)));
    EXPECT_TRUE(std::isnan(eval_one<float>(1, inf, 0)));
    EXPECT_EQ(eval_one<float>(1, inf, 0.5f), inf);
    // A null value of NaN equals nothing.
    const float data[2] = {NAN, 1}, t = 0.5f, null = NAN;
    const qx_long a = 1, b = 1;
    float out = 0;
    ASSERT_EQ(UTILeval_param(1, 1, DTYPE_FLOAT, data, 1, &null, &a, &b, &t, &out), 1);
    EXPECT_EQ(out, 1);
}

TEST(EvalParamNumbers, UnknownTypeIsReportedWhateverTheCount)
{
    const qx_long node = 0;
    const double data = 1;
    const float t = 0;
    double untouched = -7;
    for (int type : {7, -1})
        for (qx_long count : {0, 1}) {
            host_calls::reset();
            EXPECT_EQ(UTILeval_param(count, 1, type, &data, 0, nullptr, &node, &node, &t, &untouched), 0);
            EXPECT_EQ(host_calls::seen().reports,
                      (std::vector<host_calls::report>{{"UTILeval_param", 0, 2, "unknown data type"}}));
        }
    EXPECT_EQ(untouched, -7);
}

// ---- where a level lies --------------------------------------------------------------------------------------

template <typename T> class GetParam : public testing::Test {
};
TYPED_TEST_SUITE(GetParam, element_types);

TYPED_TEST(GetParam, AgreesWithTheReference)
{
    using T = TypeParam;
    constexpr qx_long nnodes = 200;
    bool equal = false, within = false, beyond = false;
    for (qx_long count : counts)
        for (double value : {0.1, 3.0, -2.5, 1e9})
            for (size_t every : {size_t{1000}, size_t{7}}) {
                const pair_list pairs = with_missing(random_pairs(6, count, nnodes), every);
                std::vector<T> data = meshes::random_values<T>(7, nnodes, std::is_unsigned_v<T> ? 0 : -4, 4);
                for (size_t node = 8; node < data.size(); node += 8)
                    data[node] = data[0]; // so that real numbers are equal now and then, too
                std::vector<float> out(static_cast<size_t>(count), -7.0f), expected = out;
                for (size_t i = 0; i < out.size(); ++i) {
                    if (missing(pairs, i)) continue;
                    const T a = data[static_cast<size_t>(pairs.first[i])],
                            b = data[static_cast<size_t>(pairs.second[i])];
                    volatile double part = value - static_cast<double>(a);
                    volatile double whole = static_cast<double>(b) - static_cast<double>(a);
                    expected[i] = a == b ? 0.0f : static_cast<float>(part / whole);
                    equal = equal || a == b;
                    within = within || (expected[i] > 0 && expected[i] < 1);
                    beyond = beyond || expected[i] > 1;
                }
                ASSERT_EQ(UTILget_param(count, code_of<T>::value, data.data(), value, pairs.first.data(),
                                        pairs.second.data(), out.data()),
                          1);
                ASSERT_EQ(out, expected) << count << " pairs, level " << value;
            }
    EXPECT_TRUE(equal && within && beyond);
}

TYPED_TEST(GetParam, EqualEndsGiveZero)
{
    const TypeParam data[2] = {TypeParam{5}, TypeParam{5}};
    const qx_long a = 0, b = 1;
    float t = -7;
    ASSERT_EQ(UTILget_param(1, code_of<TypeParam>::value, data, 5, &a, &b, &t), 1);
    EXPECT_EQ(t, 0);
    ASSERT_EQ(UTILget_param(1, code_of<TypeParam>::value, data, 9, &a, &b, &t), 1);
    EXPECT_EQ(t, 0);
}

TYPED_TEST(GetParam, IsUndoneByEvalParam)
{
    const TypeParam data[2] = {TypeParam{20}, TypeParam{84}};
    const qx_long a = 0, b = 1;
    for (int level = 20; level <= 84; level += 4) {
        float t = -7;
        TypeParam back = 0;
        ASSERT_EQ(UTILget_param(1, code_of<TypeParam>::value, data, level, &a, &b, &t), 1);
        ASSERT_EQ(UTILeval_param(1, 1, code_of<TypeParam>::value, data, 0, nullptr, &a, &b, &t, &back), 1);
        EXPECT_EQ(back, static_cast<TypeParam>(level));
    }
}

TEST(GetParamNumbers, TheQuotientIsFormedInDouble)
{
    // In float value - a and b - a would both be 0 or both be 4.
    const int data[2] = {33554432, 33554435};
    const qx_long a = 0, b = 1;
    float t = -7;
    ASSERT_EQ(UTILget_param(1, DTYPE_INT, data, 33554433, &a, &b, &t), 1);
    EXPECT_EQ(t, static_cast<float>(1.0 / 3.0));
}

TEST(GetParamNumbers, LongValuesThatAreOneDoubleAreNotEqual)
{
    const qx_long data[2] = {qx_long{1} << 53, (qx_long{1} << 53) + 1};
    const qx_long a = 0, b = 1;
    float t = -7;
    ASSERT_EQ(UTILget_param(1, DTYPE_QX_LONG, data, 0, &a, &b, &t), 1);
    EXPECT_EQ(t, -inf);
}

TEST(GetParamNumbers, NanGivesNan)
{
    const float data[3] = {NAN, 1, NAN};
    const qx_long a[3] = {0, 1, 0}, b[3] = {1, 0, 2};
    float t[3] = {};
    ASSERT_EQ(UTILget_param(3, DTYPE_FLOAT, data, 0.5, a, b, t), 1);
    for (float value : t)
        EXPECT_TRUE(std::isnan(value));
    const double huge[2] = {0, 1e-300};
    const qx_long first = 0, second = 1;
    ASSERT_EQ(UTILget_param(1, DTYPE_DOUBLE, huge, 1, &first, &second, t), 1);
    EXPECT_EQ(t[0], inf) << "a quotient that no float holds";
}

TEST(GetParamNumbers, UnknownTypeIsReportedWhateverTheCount)
{
    const qx_long node = 0;
    const double data = 1;
    float untouched = -7;
    for (int type : {7, -1})
        for (qx_long count : {0, 1}) {
            host_calls::reset();
            EXPECT_EQ(UTILget_param(count, type, &data, 0, &node, &node, &untouched), 0);
            EXPECT_EQ(host_calls::seen().reports,
                      (std::vector<host_calls::report>{{"UTILget_param", 0, 2, "unknown data type"}}));
        }
    EXPECT_EQ(untouched, -7);
}

// ---- positions between nodes ---------------------------------------------------------------------------------

using eval_coord_form = int (*)(mesh_info *, qx_long, const qx_long *, const qx_long *, const float *,
                                float *);

void check_positions(const meshes::test_mesh &made, eval_coord_form form, const std::string &what)
{
    const size_t nspace = static_cast<size_t>(made.nspace);
    for (qx_long count : counts)
        for (const pair_list &pairs : {random_pairs(8, count, made.nnodes()),
                                       with_missing(random_pairs(9, count, made.nnodes()), 41)}) {
            std::vector<float> out(static_cast<size_t>(count) * nspace, -7.0f), expected = out;
            for (size_t i = 0; i < pairs.first.size(); ++i)
                for (size_t d = 0; d < nspace && !missing(pairs, i); ++d)
                    expected[i * nspace + d] = between_in_float(
                        made.coords[static_cast<size_t>(pairs.first[i]) * nspace + d],
                        made.coords[static_cast<size_t>(pairs.second[i]) * nspace + d], pairs.t[i]);
            ASSERT_EQ(
                form(made.mesh, count, pairs.first.data(), pairs.second.data(), pairs.t.data(), out.data()),
                1);
            ASSERT_TRUE(same_bits(out.data(), expected.data(), out.size() * sizeof(float)))
                << what << ", " << count << " pairs";
        }
}

TEST(EvalParamCoord, EveryKindAgreesWithTheReference)
{
    for (const std::vector<lattices::shape> &shapes : {lattices::small_shapes(), lattices::wide_shapes()})
        for (const lattices::shape &shape : shapes) {
            check_positions(*lattices::uniform(shape), UTILeval_param_coord_unif, "uniform, " + text(shape));
            check_positions(*lattices::rectilinear(shape), UTILeval_param_coord_rect,
                            "rectilinear, " + text(shape));
            check_positions(*lattices::curvilinear(shape), UTILeval_param_coord,
                            "curvilinear, " + text(shape));
        }
    check_positions(*meshes::mixed({CELL_HEX, CELL_TET}, {1, 2}, 2, 1, 0.2), UTILeval_param_coord,
                    "cell sets");
}

TEST(EvalParamCoord, OneMeshDescribedInAllWaysHasTheSamePositions)
{
    for (const lattices::shape &shape : lattices::in_every_space({{9}, {6, 5}, {5, 4, 7}})) {
        const pair_list pairs = random_pairs(10, 300, lattices::product(shape.dims));
        std::vector<std::vector<float>> found;
        for (const meshes::mesh_ptr &made : lattices::in_all_ways(shape)) {
            ASSERT_NE(made->mesh, nullptr);
            found.emplace_back(300 * static_cast<size_t>(shape.nspace), -7.0f);
            ASSERT_EQ(UTILeval_coord(made->mesh, 300, pairs.first.data(), pairs.second.data(), pairs.t.data(),
                                     found.back().data()),
                      1);
        }
        ASSERT_EQ(found.size(), 4u);
        for (size_t way = 1; way < 4; ++way)
            EXPECT_EQ(found[way], found[0]) << text(shape) << ", way " << way;
    }
}

TEST(EvalParamCoord, FailedFetchGivesNothingAndTheNextCallSucceeds)
{
    const lattices::shape shape = {{4, 3}, 2};
    const struct {
        meshes::mesh_ptr made;
        eval_coord_form form;
        const char *message;
    } cases[] = {{lattices::curvilinear(shape), UTILeval_param_coord, "unable to get field coordinates"},
                 {lattices::rectilinear(shape), UTILeval_param_coord_rect, "unable to get field points"},
                 {lattices::uniform(shape), UTILeval_param_coord_unif, "unable to get field points"}};
    for (const auto &c : cases) {
        failing_fetches fetches(c.made->mesh);
        fetches.fail_coords = fetches.fail_points = 1;
        const qx_long a = 5, b = 6;
        const float t = 0;
        float out[2] = {-7, -7};
        host_calls::reset();
        EXPECT_EQ(c.form(c.made->mesh, 1, &a, &b, &t, out), 0);
        EXPECT_EQ(host_calls::seen().reports,
                  (std::vector<host_calls::report>{{"fld_info", 0, 2, c.message}}));
        EXPECT_EQ(out[0], -7);
        EXPECT_EQ(c.form(c.made->mesh, 1, &a, &b, &t, out), 1);
        EXPECT_EQ(out[1], c.made->coords[11]);
        EXPECT_EQ(host_calls::seen().reports.size(), 1u);
    }
}

} // namespace
