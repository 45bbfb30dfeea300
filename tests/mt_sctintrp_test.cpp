#include <skoklana/scatter.h>
#include <skoklana/thread.h>

#include "support/arrays.hpp"
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

namespace {

using arrays::dtype_of;

struct scatter_case {
    int ndim;
    qx_long dims[3];
    int radius[3], power, veclen, null_flag;
    std::vector<float> coords; // rows of ndim + 1
    qx_long count() const { return static_cast<qx_long>(coords.size()) / (ndim + 1); }
    qx_long nnodes() const { return dims[0] * (ndim > 1 ? dims[1] : 1) * (ndim > 2 ? dims[2] : 1); }
};

constexpr float box_min[3] = {0.1f, -1, 2}, box_max[3] = {2, 1.3f, 5};

scatter_case any_case(unsigned seed, int npoints)
{
    std::mt19937 random(seed);
    scatter_case c;
    c.ndim = 1 + static_cast<int>(seed % 3);
    for (int k = 0; k < 3; ++k) {
        c.dims[k] = 1 + static_cast<qx_long>(random() % 12);
        c.radius[k] = static_cast<int>(random() % 4);
    }
    c.power = static_cast<int>(random() % 5) - (random() % 7 == 0);
    c.veclen = 1 + static_cast<int>(random() % 3);
    c.null_flag = random() % 2;
    for (int i = 0; i < npoints; ++i)
        for (int k = 0; k <= c.ndim; ++k) {
            const float part = static_cast<float>(random() % 1000) / 800 - 0.1f;
            // Some points are on nodes.
            const float step = (box_max[k % 3] - box_min[k % 3]) / 4;
            c.coords.push_back(i % 4 == 0 ? box_min[k % 3] + step * static_cast<float>(random() % 5)
                                          : box_min[k % 3] + part * (box_max[k % 3] - box_min[k % 3]));
        }
    return c;
}

template <typename T> struct spread {
    int returned = -7, null_flag;
    std::vector<int> radius;
    std::vector<T> out;

    // nthreads 0: the plain form
    spread(const scatter_case &c, int nthreads, const std::vector<T> &data, T null_value,
           int type = dtype_of<T>)
        : null_flag(c.null_flag), radius(c.radius, c.radius + 3),
          out(static_cast<size_t>(c.nnodes() * c.veclen), T(77))
    {
        returned =
            nthreads == 0
                ? UTILscat_data_interp2(c.count(), c.ndim + 1, c.coords.data(), type, c.veclen, data.data(),
                                        box_min, box_max, c.ndim, c.dims, radius.data(), c.power, &null_flag,
                                        &null_value, out.data())
                : UTILmt_scat_data_interp2(nthreads, c.count(), c.ndim + 1, c.coords.data(), type, c.veclen,
                                           data.data(), box_min, box_max, c.ndim, c.dims, radius.data(),
                                           c.power, &null_flag, &null_value, out.data());
    }

    bool operator==(const spread &other) const
    {
        return returned == other.returned && null_flag == other.null_flag && radius == other.radius &&
               arrays::same_bytes(out, other.out);
    }
};

template <typename T> class ThreadedScatter : public testing::Test {
};
TYPED_TEST_SUITE(ThreadedScatter, arrays::all_types);

TYPED_TEST(ThreadedScatter, IsThatOfOneThreadForAnyNumberOfThem)
{
    using T = TypeParam;
    int straddled = 0, empty = 0, full = 0, nulls = 0;
    for (unsigned seed = 1; seed <= 60; ++seed) {
        const scatter_case c = any_case(seed, seed % 9 == 0 ? 0 : 1 + static_cast<int>(seed * 3 % 50));
        const std::vector<T> data = meshes::random_values<T>(seed, c.count() * c.veclen, 0, 100);
        const T null_value = c.null_flag != 0 && !data.empty() ? data[0] : T(3);
        const spread<T> plain(c, 0, data, null_value);
        ASSERT_EQ(plain.returned, 1);
        for (int nthreads = 1; nthreads <= 16; nthreads += seed <= 6 ? 1 : 1 + nthreads)
            ASSERT_TRUE(spread<T>(c, nthreads, data, null_value) == plain)
                << "seed " << seed << ", threads " << nthreads;
        straddled += c.count() > 10 && c.dims[c.ndim - 1] > 3;
        empty += c.null_flag == 0 && plain.null_flag == 1;
        full += c.null_flag == 0 && plain.null_flag == 0;
        nulls += c.null_flag != 0 && c.count() > 0;
    }
    EXPECT_GT(std::min({straddled, empty, full, nulls}), 4);
}

TEST(ThreadedScattering, NoThreadWithoutAPlane)
{
    scatter_case c = any_case(3, 20); // one axis
    ASSERT_EQ(c.ndim, 1);
    c.dims[0] = 3;
    const std::vector<float> data(static_cast<size_t>(c.count() * c.veclen), 1.0f);
    const int before = host_calls::threads_started();
    const spread<float> got(c, 50, data, 9);
    EXPECT_EQ(got.returned, 1);
    EXPECT_EQ(host_calls::threads_started() - before, 3);
    EXPECT_TRUE(got == (spread<float>(c, 0, data, 9)));
    EXPECT_TRUE((spread<float>(c, -4, data, 9) == got)) << "below one is one";
}

TEST(ThreadedScattering, MakesNoStatusCalls)
{
    const scatter_case c = any_case(4, 600);
    const std::vector<double> data(static_cast<size_t>(c.count() * c.veclen), 1.0);
    host_calls::reset();
    host_calls::interrupt_at(0);
    EXPECT_EQ((spread<double>(c, 2, data, 9).returned), 1);
    EXPECT_TRUE(host_calls::seen().statuses.empty());
    host_calls::reset();
}

// Two integers that one double stands for.
TEST(ThreadedScattering, NullsAreComparedAsDoubles)
{
    const qx_long null = (qx_long(1) << 60) + 1, near = qx_long(1) << 60;
    scatter_case c = {1, {3, 1, 1}, {1, 1, 1}, 2, 1, 1, {box_min[0], 0}};
    const spread<qx_long> plain(c, 0, {near}, null), threaded(c, 1, {near}, null);
    EXPECT_EQ(threaded.out[0], null);
    EXPECT_NE(plain.out[0], null);
}

TEST(ThreadedScattering, FailuresLeaveTheOutputs)
{
    scatter_case c = any_case(5, 10);
    const std::vector<float> data(static_cast<size_t>(c.count() * c.veclen), 1.0f);
    std::fill_n(c.radius, 3, 0);
    c.null_flag = 0;
    using texts = std::vector<std::string>;
    const auto expect_untouched = [](const spread<float> &got) {
        EXPECT_EQ(got.returned, 0);
        EXPECT_EQ(got.null_flag, 0);
        EXPECT_EQ(got.radius, std::vector<int>(3, 0));
        EXPECT_EQ(std::count(got.out.begin(), got.out.end(), 77.0f), static_cast<long>(got.out.size()));
    };
    for (int type : {-1, 7}) {
        host_calls::reset();
        expect_untouched(spread<float>(c, 2, data, 9, type));
        EXPECT_EQ(host_calls::report_texts(), texts());
    }
    for (int k = 0;; ++k) {
        host_calls::reset();
        const host_calls::watch watch;
        std::vector<float> room(5000);
        host_calls::fail_allocation(k);
        int null_flag = 0;
        int radius[3] = {0, 0, 0};
        const float null_value = 9;
        const int returned = UTILmt_scat_data_interp2(2, c.count(), c.ndim + 1, c.coords.data(), DTYPE_FLOAT,
                                                      c.veclen, data.data(), box_min, box_max, c.ndim, c.dims,
                                                      radius, c.power, &null_flag, &null_value, room.data());
        EXPECT_EQ(watch.live_blocks(), 0);
        if (!host_calls::allocation_was_refused()) {
            EXPECT_GE(k, 7);
            break;
        }
        EXPECT_EQ(returned, 0);
        EXPECT_EQ(radius[0], 0);
        EXPECT_EQ(null_flag, 0);
        EXPECT_EQ(host_calls::report_texts(), texts{"UTILmt_scat_interp: cannot allocate arrays"});
    }
    for (int ndim : {0, -1, 4}) {
        host_calls::reset();
        int null_flag = 0, radius[4] = {};
        const qx_long dims[4] = {2, 2, 2, 2};
        const float null_value = 9, values[16] = {};
        float out[16] = {};
        EXPECT_EQ(UTILmt_scat_data_interp2(2, 0, 4, values, DTYPE_FLOAT, 1, values, values, values, ndim,
                                           dims, radius, 2, &null_flag, &null_value, out),
                  0);
        EXPECT_EQ(host_calls::report_texts(), texts{"UTILmt_scat_interp: illegal ndim"});
        EXPECT_EQ(radius[0], 0);
    }
    const qx_long huge[2] = {qx_long(1) << 40, qx_long(1) << 40};
    int null_flag = 0, radius[2] = {};
    host_calls::reset();
    EXPECT_EQ(UTILmt_scat_data_interp2(2, 1, 2, c.coords.data(), DTYPE_FLOAT, 1, data.data(), box_min,
                                       box_max, 2, huge, radius, 2, &null_flag, data.data(), nullptr),
              0);
    EXPECT_EQ(host_calls::report_texts(), texts{"UTILmt_scat_interp: cannot allocate arrays"});
    host_calls::reset();
}

TEST(ThreadedScattering, ThreadsThatCannotBeStartedAreDoneByTheCaller)
{
    const scatter_case c = any_case(8, 40); // three axes
    const std::vector<short> data = meshes::random_values<short>(2, c.count() * c.veclen, 0, 100);
    const spread<short> plain(c, 0, data, 9);
    for (int k = 0; k < 3; ++k) {
        host_calls::fail_thread(k);
        EXPECT_TRUE((spread<short>(c, 3, data, 9) == plain)) << k;
    }
    host_calls::reset();
}

// So many values that they are worth threads before and after the sums, too.
TEST(ThreadedScattering, ManyPointsAndALargeGrid)
{
    scatter_case c = {2, {700, 400, 1}, {2, 1, 0}, 2, 1, 0, {}};
    std::mt19937 random(7);
    for (int i = 0; i < 3 * 140000; ++i)
        c.coords.push_back(box_min[i % 3] + static_cast<float>(random() % 5000) / 3000);
    const std::vector<short> data = meshes::random_values<short>(2, c.count(), 0, 100);
    const spread<short> plain(c, 0, data, 9);
    for (int k = 0; k < 10; ++k) {
        const int before = host_calls::threads_started();
        if (k < 9) host_calls::fail_thread(k);
        EXPECT_TRUE((spread<short>(c, 3, data, 9) == plain)) << k;
        EXPECT_EQ(host_calls::threads_started() - before, 9);
    }
    EXPECT_EQ(plain.null_flag, 1);
    host_calls::reset();
}

// A worker called on its own adds to what is there.
TEST(ThreadedScattering, WorkersTakeTheSlabsOfAnyone)
{
    const float coords[] = {0.5f, 0.5f, 2.5f, 0.5f}, min[] = {0, 0}, max[] = {3, 2};
    const double data[] = {4, 8};
    const qx_long dims[] = {4, 3};
    const int radius[] = {1, 1}, null_flag = 0;
    double acc[4] = {}, weight[4] = {};
    thread_scat_arg arg = {};
    arg.nnodes = 2;
    arg.nspace = 2;
    arg.coords = coords;
    arg.veclen = 1;
    arg.data = data;
    arg.min_extent = min;
    arg.max_extent = max;
    arg.ndim = 2;
    arg.dims = dims;
    arg.radius = radius;
    arg.power = 2;
    arg.acc = acc;
    arg.weight = weight;
    arg.threshold = 1e-38;
    arg.null_flag = &null_flag;
    arg.first = arg.last = 1;
    arg.offset = 4;
    EXPECT_EQ(thread_func_scat_data_interp(&arg), &arg);
    EXPECT_EQ(weight[0], 2);
    EXPECT_EQ(acc[0] / weight[0], 4);
    EXPECT_GT(weight[1], 2);
    EXPECT_EQ(acc[3] / weight[3], 8);
    arg.last = 0;
    EXPECT_EQ(thread_func_scat_data_interp(&arg), &arg);
    EXPECT_EQ(weight[0], 2);
}

} // namespace
