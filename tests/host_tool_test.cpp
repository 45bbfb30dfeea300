// The embedded host's tools: reports, typed arrays, conversions, small matrices, processors.
#include "support/meshes.hpp"

#include <skoklana/host/tool.h>
#include <skoklana_host.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <sched.h>

// Reports of the code under test are caught on their way to the host; these go past the net.
extern "C" void __real_ERRerror(const char *module, int zero, int severity, const char *message);

namespace {

void report(const std::string &module, const std::string &message)
{
    __real_ERRerror(module.c_str(), 0, 2, message.c_str());
}

std::string last_report(int age)
{
    const char *module = nullptr, *message = nullptr;
    return host_last_report(age, &module, &message) == 1 ? std::string(module) + ": " + message : "none";
}

struct handled {
    std::vector<std::string> reports;
    int severity = -1;
};

void record_report(void *user, const char *module, int severity, const char *message)
{
    handled *seen = static_cast<handled *>(user);
    seen->reports.push_back(std::string(module) + ": " + message);
    seen->severity = severity;
}

class Reports : public testing::Test {
  protected:
    void SetUp() override
    {
        host_clear_reports();
        host_set_error_handler(record_report, &seen);
    }
    void TearDown() override { host_set_error_handler(nullptr, nullptr); }

    handled seen;
};

} // namespace

// ---- reports ---------------------------------------------------------------------------------------------------

TEST_F(Reports, GoToTheHandler)
{
    report("UTILcut", "no cut function found");
    EXPECT_EQ(seen.reports, std::vector<std::string>{"UTILcut: no cut function found"});
    EXPECT_EQ(seen.severity, 2);
}

TEST_F(Reports, GoToStandardErrorWithoutAHandler)
{
    host_set_error_handler(nullptr, nullptr);
    testing::internal::CaptureStderr();
    report("UTILcut", "no cut function found");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "UTILcut: no cut function found\n");
    EXPECT_TRUE(seen.reports.empty());
    EXPECT_EQ(last_report(0), "UTILcut: no cut function found");
}

TEST_F(Reports, AreKeptNewestFirst)
{
    EXPECT_EQ(last_report(0), "none");
    for (int made = 1; made <= 20; ++made) {
        report("module", std::to_string(made));
        for (int age = 0; age < 12; ++age)
            EXPECT_EQ(last_report(age),
                      age < made && age < 8 ? "module: " + std::to_string(made - age) : "none")
                << made << " " << age;
    }
    EXPECT_EQ(last_report(-1), "none");
    EXPECT_EQ(host_last_report(0, nullptr, nullptr), 1);
    host_clear_reports();
    EXPECT_EQ(last_report(0), "none");
    report("module", "again");
    EXPECT_EQ(last_report(0), "module: again");
    EXPECT_EQ(last_report(1), "none");
}

TEST_F(Reports, BelongToTheirThread)
{
    report("main", "one");
    std::thread([] {
        EXPECT_EQ(last_report(0), "none");
        report("other", "two");
        EXPECT_EQ(last_report(0), "other: two");
        EXPECT_EQ(last_report(1), "none");
    }).join();
    EXPECT_EQ(last_report(0), "main: one");
    EXPECT_EQ(seen.reports.size(), 2u);
}

TEST_F(Reports, AreCutInTheListAndWholeForTheHandler)
{
    const std::string module(500, 'm'), message(5000, 't');
    report(module, message);
    EXPECT_EQ(seen.reports[0], module + ": " + message);
    EXPECT_EQ(last_report(0), module.substr(0, 63) + ": " + message.substr(0, 447));
}

TEST(HostError, BelongsToItsThread)
{
    std::thread([] { EXPECT_STREQ(host_error(), ""); }).join();
    EXPECT_EQ(host_mesh(nullptr), nullptr);
    EXPECT_STREQ(host_error(), "host_mesh: field is NULL");
    std::thread([] {
        EXPECT_STREQ(host_error(), "");
        host_uniform(7, nullptr, 3, nullptr);
        EXPECT_STREQ(host_error(), "host_uniform: ndim is 7, but a structured mesh has 1 to 3 axes");
    }).join();
    EXPECT_STREQ(host_error(), "host_mesh: field is NULL");
}

// ---- typed arrays ----------------------------------------------------------------------------------------------

namespace {

const int type_sizes[7] = {1, 1, 2, 4, 4, 8, 8};

void *alloc(int type, qx_long count)
{
    return ARRalloc_f(nullptr, type, count, 0, "tests/host_tool_test", __LINE__);
}

void *resize(void *list, int type, qx_long count)
{
    return ARRrealloc_f(list, type, count, 0, "tests/host_tool_test", __LINE__);
}

} // namespace

TEST(Arrays, HaveRoomForTheirElements)
{
    for (int type = 0; type < 7; ++type)
        for (qx_long count : {1, 2, 1000}) {
            unsigned char *list = static_cast<unsigned char *>(alloc(type, count));
            ASSERT_NE(list, nullptr);
            const size_t bytes = static_cast<size_t>(count * type_sizes[type]);
            memset(list, 0x5a, bytes);
            list = static_cast<unsigned char *>(resize(list, type, 3 * count));
            ASSERT_NE(list, nullptr);
            EXPECT_TRUE(std::all_of(list, list + bytes, [](unsigned char byte) { return byte == 0x5a; }));
            memset(list, 0x77, 3 * bytes);
            list = static_cast<unsigned char *>(resize(list, type, 1));
            ASSERT_NE(list, nullptr);
            EXPECT_EQ(list[0], 0x77);
            if (type % 2 == 0)
                free(list);
            else
                ARRfree_f(list, "tests/host_tool_test", __LINE__);
        }
    ARRfree_f(nullptr, "tests/host_tool_test", __LINE__);
}

TEST(Arrays, WithoutElementsAreBlocksAllTheSame)
{
    void *list = alloc(DTYPE_DOUBLE, 0);
    EXPECT_NE(list, nullptr);
    list = resize(list, DTYPE_DOUBLE, 0);
    EXPECT_NE(list, nullptr);
    list = resize(list, DTYPE_DOUBLE, 10);
    EXPECT_NE(list, nullptr);
    free(list);
    list = resize(nullptr, DTYPE_INT, 4);
    EXPECT_NE(list, nullptr);
    free(list);
}

TEST(Arrays, OfImpossibleSizesAreRefused)
{
    void *list = alloc(DTYPE_INT, 1);
    *static_cast<int *>(list) = 42;
    const qx_long most = std::numeric_limits<qx_long>::max();
    for (int type = 0; type < 7; ++type)
        for (qx_long count : {qx_long{-1}, std::numeric_limits<qx_long>::min(), most, most / 2 + 1,
                              most / 4 + 1, most / 8 + 1}) {
            if (count > 0 && count <= most / type_sizes[type]) continue; // one for the allocator to refuse
            EXPECT_EQ(alloc(type, count), nullptr) << type << " " << count;
            EXPECT_EQ(resize(list, type, count), nullptr) << type << " " << count;
        }
    EXPECT_EQ(alloc(7, 1), nullptr);
    EXPECT_EQ(alloc(-1, 1), nullptr);
    EXPECT_EQ(*static_cast<int *>(list), 42);
    free(list);
}

// ---- conversions -------------------------------------------------------------------------------------------------

namespace {

using element_types = std::tuple<signed char, unsigned char, short, int, float, double, qx_long>;
template <int Type> using element = std::tuple_element_t<static_cast<size_t>(Type), element_types>;

// Calls body with each of the seven type codes as a constant.
template <typename Body> void for_each_type(Body body)
{
    body(std::integral_constant<int, 0>{});
    body(std::integral_constant<int, 1>{});
    body(std::integral_constant<int, 2>{});
    body(std::integral_constant<int, 3>{});
    body(std::integral_constant<int, 4>{});
    body(std::integral_constant<int, 5>{});
    body(std::integral_constant<int, 6>{});
}

// By way of long double, which holds every value of all seven types exactly.
template <typename To, typename From> To reference_conversion(From from)
{
    using limits = std::numeric_limits<To>;
    const long double value = static_cast<long double>(from);
    if (limits::is_integer) {
        if (std::isnan(value)) return 0;
        const long double cut = std::trunc(value);
        if (cut < static_cast<long double>(limits::min())) return limits::min();
        if (cut > static_cast<long double>(limits::max())) return limits::max();
        return static_cast<To>(cut);
    }
    return static_cast<To>(from);
}

template <typename T> std::vector<T> telling_values()
{
    using limits = std::numeric_limits<T>;
    std::vector<T> values = {0, 1, limits::lowest(), limits::max(), static_cast<T>(limits::lowest() / 2)};
    if (!limits::is_integer) {
        for (double value : {-0.0,
                             0.5,
                             -0.5,
                             0.999999,
                             -0.999999,
                             1.5,
                             -1.5,
                             127.9,
                             128.0,
                             -128.9,
                             -129.0,
                             255.9,
                             256.0,
                             -1.0,
                             32767.5,
                             32768.0,
                             -32768.5,
                             -32769.0,
                             2147483520.0,
                             2147483647.0,
                             2147483648.0,
                             -2147483648.0,
                             -2147483904.0,
                             9.2233715e18,
                             9223372036854775807.0,
                             -9223372036854775808.0,
                             -1e19,
                             1e30,
                             -1e30,
                             1e-40})
            values.push_back(static_cast<T>(value));
        values.push_back(limits::infinity());
        values.push_back(-limits::infinity());
        values.push_back(limits::quiet_NaN());
    } else {
        for (qx_long value : {127LL, 128LL, 255LL, 256LL, -128LL, -129LL, 32767LL, 32768LL, -32769LL,
                              2147483647LL, 2147483648LL, -2147483649LL, 16777217LL, 9007199254740993LL})
            values.push_back(static_cast<T>(value)); // what is left of it in the narrow types
    }
    std::mt19937_64 random(3);
    for (int k = 0; k < 200; ++k)
        values.push_back(static_cast<T>(static_cast<qx_long>(random()) >> (random() % 64)));
    return values;
}

template <typename T> void expect_same(T got, T expected)
{
    if (expected != expected)
        EXPECT_TRUE(got != got);
    else
        EXPECT_EQ(memcmp(&got, &expected, sizeof got), 0) << +got << " instead of " << +expected;
}

} // namespace

TEST(Conversions, KnowTheSizeOfEveryType)
{
    for (int type = 0; type < 7; ++type)
        EXPECT_EQ(DTYPEtype_size(type), type_sizes[type]);
    EXPECT_EQ(DTYPEtype_size(7), 0);
    EXPECT_EQ(DTYPEtype_size(-1), 0);
}

TEST(Conversions, OfListedRowsAgreeWithTheReferenceForAllPairsOfTypes)
{
    int pairs = 0;
    for_each_type([&](auto from_type) {
        for_each_type([&](auto to_type) {
            using from = element<decltype(from_type)::value>;
            using to = element<decltype(to_type)::value>;
            const std::vector<from> values = telling_values<from>();
            for (int veclen : {1, 2, 3}) {
                const qx_long nrows = static_cast<qx_long>(values.size()) / veclen;
                std::vector<qx_long> list; // last row first, and the first one twice more
                for (qx_long row = nrows; row-- > 0;)
                    list.push_back(row);
                list.push_back(0);
                list.push_back(0);
                std::vector<to> out(list.size() * static_cast<size_t>(veclen) + 1, to{99});
                EXPECT_EQ(DTYPEcvt_copy_array_list(from_type, values.data(), to_type, out.data(), veclen,
                                                   static_cast<qx_long>(list.size()), list.data()),
                          1);
                for (size_t row = 0; row < list.size(); ++row)
                    for (size_t k = 0; k < static_cast<size_t>(veclen); ++k)
                        expect_same(
                            out[row * static_cast<size_t>(veclen) + k],
                            reference_conversion<to>(
                                values[static_cast<size_t>(list[row]) * static_cast<size_t>(veclen) + k]));
                EXPECT_EQ(out.back(), to{99});
            }
            ++pairs;
        });
    });
    EXPECT_EQ(pairs, 49);
}

TEST(Conversions, OfNoRowsOrUnknownTypesWriteNothing)
{
    const qx_long list[1] = {0};
    const int from[1] = {5};
    int to[1] = {9};
    EXPECT_EQ(DTYPEcvt_copy_array_list(DTYPE_INT, from, DTYPE_INT, to, 1, 0, list), 1);
    EXPECT_EQ(DTYPEcvt_copy_array_list(7, from, DTYPE_INT, to, 1, 1, list), 0);
    EXPECT_EQ(DTYPEcvt_copy_array_list(DTYPE_INT, from, -1, to, 1, 1, list), 0);
    EXPECT_EQ(to[0], 9);
    float f = 9;
    double d = 9;
    EXPECT_EQ(UTILtype_to_float(7, from, &f), 0);
    EXPECT_EQ(UTILtype_to_double(7, from, &d), 0);
    EXPECT_EQ(UTILdouble_to_type(7, 1.0, to), 0);
    EXPECT_EQ(f, 9);
    EXPECT_EQ(d, 9);
    EXPECT_EQ(to[0], 9);
}

TEST(Conversions, OfSingleValuesAgreeWithTheReference)
{
    for_each_type([](auto type) {
        using stored = element<decltype(type)::value>;
        for (stored value : telling_values<stored>()) {
            char bytes[sizeof value + 1]; // off by one: values need no alignment
            memcpy(bytes + 1, &value, sizeof value);
            float f = 99;
            double d = 99;
            EXPECT_EQ(UTILtype_to_float(type, bytes + 1, &f), 1);
            EXPECT_EQ(UTILtype_to_double(type, bytes + 1, &d), 1);
            expect_same(f, reference_conversion<float>(value));
            expect_same(d, reference_conversion<double>(value));
        }
        for (double value : telling_values<double>()) {
            char bytes[sizeof(stored) + 1];
            EXPECT_EQ(UTILdouble_to_type(type, value, bytes + 1), 1);
            stored got;
            memcpy(&got, bytes + 1, sizeof got);
            expect_same(got, reference_conversion<stored>(value));
        }
    });
}

// ---- matrices ------------------------------------------------------------------------------------------------------

namespace {

std::vector<float> random_matrix(std::mt19937 *random, int rows, int cols)
{
    std::uniform_real_distribution<float> spread(-2, 2);
    std::vector<float> m(static_cast<size_t>(rows * cols));
    for (float &x : m)
        x = spread(*random);
    return m;
}

std::vector<float> reference_product(const std::vector<float> &a, const std::vector<float> &m, int rows,
                                     int inner, int cols)
{
    std::vector<float> out;
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) {
            float sum = 0;
            for (int k = 0; k < inner; ++k)
                sum += a[static_cast<size_t>(r * inner + k)] * m[static_cast<size_t>(k * cols + c)];
            out.push_back(sum);
        }
    return out;
}

} // namespace

TEST(Matrices, MultiplyInFloatInTheOrderOfInner)
{
    std::mt19937 random(5);
    for (int rows : {0, 1, 2, 3, 5})
        for (int inner : {0, 1, 2, 3, 8, 20, 100})
            for (int cols = 0; cols <= 30; ++cols) {
                const std::vector<float> a = random_matrix(&random, rows, inner),
                                         m = random_matrix(&random, inner, cols);
                std::vector<float> out(static_cast<size_t>(rows * cols) + 1, 7);
                MATvec_by_mat(a.data(), m.data(), out.data(), rows, inner, cols);
                EXPECT_EQ(out.back(), 7);
                out.pop_back();
                EXPECT_EQ(out, reference_product(a, m, rows, inner, cols))
                    << rows << " " << inner << " " << cols;
            }
}

TEST(Matrices, MultiplyInPlace)
{
    std::mt19937 random(6);
    for (int size : {1, 2, 3, 4, 8, 63, 64})
        for (int rows : {1, 2, 5}) {
            std::vector<float> a = random_matrix(&random, rows, size);
            const std::vector<float> m = random_matrix(&random, size, size);
            const std::vector<float> expected = reference_product(a, m, rows, size, size);
            MATvec_by_mat(a.data(), m.data(), a.data(), rows, size, size);
            EXPECT_EQ(a, expected) << size;
        }
}

TEST(Matrices, InvertAndGiveTheDeterminant)
{
    std::mt19937 random(7);
    int far_from_singular = 0;
    for (int run = 0; run < 500; ++run)
        for (int size : {2, 3}) {
            const std::vector<float> m = random_matrix(&random, size, size);
            const double a = m[0], b = m[1], c = m[2];
            const double det = size == 2 ? a * m[3] - b * c
                                         : a * (double(m[4]) * m[8] - double(m[5]) * m[7]) +
                                               b * (double(m[5]) * m[6] - double(m[3]) * m[8]) +
                                               c * (double(m[3]) * m[7] - double(m[4]) * m[6]);
            std::vector<float> inverse = m;
            const float got = size == 2 ? MATmat2_inverse(inverse.data()) : MATmat3_inverse(inverse.data());
            EXPECT_NEAR(got, det, 1e-5);
            if (std::fabs(det) < 0.1) continue;
            ++far_from_singular;
            const std::vector<float> product = reference_product(m, inverse, size, size, size);
            for (int k = 0; k < size * size; ++k)
                EXPECT_NEAR(product[static_cast<size_t>(k)], k % (size + 1) == 0 ? 1 : 0, 1e-4) << run;
        }
    EXPECT_GT(far_from_singular, 700);
}

TEST(Matrices, InvertByTheAdjugateInFloat)
{
    float m[4] = {0.1f, 0.7f, -0.3f, 0.9f};
    const float det = 0.1f * 0.9f - 0.7f * -0.3f, scale = 1 / det;
    EXPECT_EQ(MATmat2_inverse(m), det);
    EXPECT_EQ(m[0], 0.9f * scale);
    EXPECT_EQ(m[1], -0.7f * scale);
    EXPECT_EQ(m[2], 0.3f * scale);
    EXPECT_EQ(m[3], 0.1f * scale);
}

TEST(Matrices, ThatAreSingularStayAsTheyAre)
{
    float two[4] = {1, 2, 2, 4}, three[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    EXPECT_EQ(MATmat2_inverse(two), 0);
    EXPECT_EQ(MATmat3_inverse(three), 0);
    EXPECT_EQ(two[3], 4);
    for (int k = 0; k < 9; ++k)
        EXPECT_EQ(three[k], static_cast<float>(k + 1));
    float zero[9] = {};
    EXPECT_EQ(MATmat3_inverse(zero), 0);
    EXPECT_EQ(zero[0], 0);
}

TEST(Matrices, WithNanOrTinyDeterminantsAreInvertedLikeOthers)
{
    float nan[4] = {NAN, 0, 0, 1};
    EXPECT_TRUE(std::isnan(MATmat2_inverse(nan)));
    EXPECT_TRUE(std::isnan(nan[3]));
    float tiny[4] = {1e-20f, 0, 0, 1e-20f};
    EXPECT_EQ(MATmat2_inverse(tiny), 1e-20f * 1e-20f);
    EXPECT_TRUE(std::isinf(1 / (1e-20f * 1e-20f)));
    EXPECT_TRUE(std::isinf(tiny[0]));
}

TEST(Matrices, AreTransposedIntoAnotherAndInPlace)
{
    float m[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9}, t[9];
    MATmat3_transpose(t, m);
    MATmat3_transpose(m, m);
    const float expected[9] = {1, 4, 7, 2, 5, 8, 3, 6, 9};
    EXPECT_EQ(memcmp(t, expected, sizeof t), 0);
    EXPECT_EQ(memcmp(m, expected, sizeof m), 0);
}

TEST(Matrices, MovePointsByRowThree)
{
    float m[16];
    const float offset[3] = {10, 20, 30};
    MATmat4_translate(m, offset);
    for (int k = 0; k < 16; ++k)
        EXPECT_EQ(m[k], k >= 12 && k < 15 ? offset[k - 12] : k % 5 == 0 ? 1 : 0) << k;
    float point[3] = {1, 2, 3};
    MATvec3_mat4_multiply(point, m);
    EXPECT_EQ(point[0], 11);
    EXPECT_EQ(point[1], 22);
    EXPECT_EQ(point[2], 33);
    // x goes to y, y to z, z to x: row i is where axis i goes. The last column plays no part.
    const float turn[16] = {0, 1, 0, 5, 0, 0, 1, 5, 1, 0, 0, 5, 100, 200, 300, 5};
    MATvec3_mat4_multiply(point, turn);
    EXPECT_EQ(point[0], 133);
    EXPECT_EQ(point[1], 211);
    EXPECT_EQ(point[2], 322);
    MATbuild_sqrt_table();
}

// ---- the machine ---------------------------------------------------------------------------------------------------

TEST(Processors, AreThoseThatTheThreadMayUse)
{
    cpu_set_t all;
    ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
    CPUprocessor_info info = {-1, -1};
    EXPECT_NE(CPUget_processor_info(&info), 0);
    EXPECT_EQ(info.count, CPU_COUNT(&all));
    EXPECT_EQ(info.kind, 0);
    std::thread([&] {
        int first = 0;
        while (!CPU_ISSET(first, &all))
            ++first;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(first, &one);
        ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
        CPUprocessor_info own = {-1, -1};
        EXPECT_NE(CPUget_processor_info(&own), 0);
        EXPECT_EQ(own.count, 1);
    }).join();
}
