#include <skoklana/iso.h>
#include <skoklana/thread.h>

#include "support/arrays.hpp"
#include "support/fresh_host.hpp"
#include "support/host_calls.hpp"
#include "support/lattices.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>

namespace {

using arrays::dtype_of;
using numbers = std::vector<qx_long>;

// A call's outputs, as they were left.
struct surface_call {
    int result = -7;
    qx_long nnodes = -7, nline = -7, nline_conn = -7, ntri = -7, ntri_conn = -7, map_count = -7;
    qx_long *min_node = &nnodes, *max_node = &nnodes, *line_conn = &nnodes, *tri_conn = &nnodes,
            *map = &nnodes;
    bool mapped = true;

    surface_call() = default;
    surface_call(const surface_call &) = delete;
    surface_call &operator=(const surface_call &) = delete;
    ~surface_call() { release(); }

    // nthreads 0: the plain form
    template <typename T>
    void run(int nthreads, mesh_info *mesh, const T *data, double level, const T *null,
             int type = dtype_of<T>)
    {
        qx_long *const count = mapped ? &map_count : nullptr, **const list = mapped ? &map : nullptr;
        if (!mapped) {
            map_count = 0;
            map = nullptr;
        }
        result = nthreads == 0 ? UTILslice_struct(mesh, data, type, null != nullptr, null, level, &nnodes,
                                                  &min_node, &max_node, &nline, &line_conn, &nline_conn,
                                                  &ntri, &tri_conn, &ntri_conn, count, list)
                               : UTILmt_slice_struct(nthreads, mesh, data, type, null != nullptr, null, level,
                                                     &nnodes, &min_node, &max_node, &nline, &line_conn,
                                                     &nline_conn, &ntri, &tri_conn, &ntri_conn, count, list);
    }

    void release()
    {
        for (qx_long **list : {&min_node, &max_node, &line_conn, &tri_conn, &map}) {
            if (*list != &nnodes) free(*list);
            *list = nullptr;
        }
    }

    bool is_empty() const
    {
        return nnodes == 0 && nline == 0 && nline_conn == 0 && ntri == 0 && ntri_conn == 0 &&
               map_count == 0 && min_node == nullptr && max_node == nullptr && line_conn == nullptr &&
               tri_conn == nullptr && map == nullptr;
    }

    std::vector<numbers> lists() const
    {
        return {numbers{nnodes, nline, nline_conn, ntri, ntri_conn, map_count},
                numbers(min_node, min_node + nnodes),
                numbers(max_node, max_node + nnodes),
                numbers(tri_conn, tri_conn + ntri_conn),
                map != nullptr ? numbers(map, map + map_count) : numbers(),
                numbers(line_conn, line_conn + nline_conn)};
    }
};

template <typename T>
std::vector<numbers> surface_of(int nthreads, mesh_info *mesh, const std::vector<T> &data, double level,
                                const T *null, bool mapped = true)
{
    surface_call call;
    call.mapped = mapped;
    call.run(nthreads, mesh, data.data(), level, null);
    EXPECT_EQ(call.result, 1) << nthreads;
    return call.result == 1 ? call.lists() : std::vector<numbers>();
}

// A block that holds the values to the byte, so that a read past them is seen.
template <typename T> std::vector<T> exact(std::vector<T> values)
{
    values.shrink_to_fit();
    return values;
}

template <typename T> class ThreadedSurface : public testing::Test {
};
TYPED_TEST_SUITE(ThreadedSurface, arrays::all_types);

TYPED_TEST(ThreadedSurface, IsThatOfOneThreadForAnyNumberOfThem)
{
    using T = TypeParam;
    std::mt19937 random(11 + dtype_of<T>);
    const auto below = [&](unsigned n) { return random() % n; };
    const qx_long widths[] = {1, 2, 3, 5, 8, 33, 63, 64, 65, 66, 130};
    int with_triangles = 0, with_nulls = 0, thin = 0;
    for (int pass = 0; pass < 40; ++pass) {
        SCOPED_TRACE("pass " + std::to_string(pass));
        const std::vector<qx_long> dims = {widths[below(11)], 1 + static_cast<qx_long>(below(8)),
                                           2 + static_cast<qx_long>(below(20))};
        const auto in = meshes::uniform(dims, 3, {0, 0, 0}, {1, 1, 1});
        // From noise to few crossings, with nulls from none to many.
        const unsigned nvalues = 2 + below(6), rare = 1 + below(20);
        std::vector<T> data;
        for (qx_long n = 0; n < in->nnodes(); ++n)
            data.push_back(static_cast<T>(below(rare) == 0 ? below(nvalues) : 0));
        data = exact(data);
        const T null = static_cast<T>(below(nvalues + 2));
        const T *null_value = below(2) != 0 ? &null : nullptr;
        const double level = below(2 * nvalues) / 2.0 - 0.5;
        const bool mapped = below(4) != 0;
        const std::vector<numbers> plain = surface_of(0, in->mesh, data, level, null_value, mapped);
        for (int nthreads = 1; nthreads <= std::min<qx_long>(dims[2] - 1, 16); ++nthreads) {
            EXPECT_EQ(surface_of(nthreads, in->mesh, data, level, null_value, mapped), plain)
                << nthreads << " threads";
            thin += nthreads > 1 && nthreads == dims[2] - 1 && plain[0][3] > 0;
        }
        with_triangles += plain[0][3] > 0;
        with_nulls += plain[0][3] > 0 && null_value != nullptr;
        if (testing::Test::HasFailure()) return;
    }
    EXPECT_GT(with_triangles, 15);
    EXPECT_GT(with_nulls, 4);
    EXPECT_GT(thin, 3);
}

std::vector<float> waves(const meshes::test_mesh &in)
{
    return meshes::field_of<float>(in, [](double x, double y, double z) {
        return std::sin(20 * x) + std::cos(17 * y) * std::sin(23 * z);
    });
}

// Large enough for lists of many pages, and for slabs whose stretches begin anywhere.
TEST(ThreadedSurfaces, LargeOnesAreTheSameInEveryDescriptionOfTheMesh)
{
    for (const auto &in : {meshes::curvilinear({50, 40, 37}, 3, {0, 0, 0}, {1, 1, 1}, 3),
                           meshes::rectilinear({50, 40, 37}, 3, {0, 0, 0}, {1, 1, 1}, 3)}) {
        const std::vector<float> data = waves(*in);
        const std::vector<numbers> plain = surface_of<float>(0, in->mesh, data, 0.2, nullptr);
        EXPECT_GT(plain[0][3], 20000);
        for (int nthreads : {1, 2, 3, 7, 16, 36})
            EXPECT_EQ(surface_of<float>(nthreads, in->mesh, data, 0.2, nullptr), plain) << nthreads;
    }
}

TEST(ThreadedSurfaces, NullsAboutThePlanesBetweenSlabs)
{
    const auto in = meshes::uniform({7, 6, 9}, 3, {0, 0, 0}, {1, 1, 1});
    std::mt19937 random(5);
    for (int pass = 0; pass < 60; ++pass) {
        std::vector<short> data;
        for (int n = 0; n < 7 * 6 * 9; ++n)
            data.push_back(static_cast<short>(random() % 2));
        const short null = 9;
        // Most of a plane or two near the middle.
        for (int hole = 0; hole < 60; ++hole)
            data[42 * (2 + random() % 4) + random() % 42] = null;
        const std::vector<numbers> plain = surface_of<short>(0, in->mesh, data, 0.5, &null);
        for (int nthreads = 1; nthreads <= 8; ++nthreads)
            ASSERT_EQ(surface_of<short>(nthreads, in->mesh, data, 0.5, &null), plain) << nthreads;
    }
}

TEST(ThreadedSurfaces, AnEdgeInThePlaneOfTwoSlabsComesOutOnce)
{
    const auto in = meshes::uniform({2, 2, 3}, 3, {0, 0, 0}, {1, 1, 1});
    std::vector<float> data(12, 0.0f);
    data[4] = 1;
    const std::vector<numbers> out = surface_of<float>(2, in->mesh, data, 0.5, nullptr);
    EXPECT_EQ(out[1], (numbers{4, 4, 0, 4}));
    EXPECT_EQ(out[2], (numbers{6, 5, 4, 8}));
    EXPECT_EQ(out[4], (numbers{0, 1}));
}

TEST(ThreadedSurfaces, LargeNullsAreComparedInTheirOwnType)
{
    const auto in = meshes::uniform({4, 4, 5}, 3, {0, 0, 0}, {1, 1, 1});
    const qx_long null = (qx_long(1) << 60) + 1; // the same double as 2^60
    std::vector<qx_long> data(80, 0);
    data[21] = data[42] = qx_long(1) << 60;
    data[58] = null;
    const std::vector<numbers> plain = surface_of<qx_long>(0, in->mesh, data, 5, &null);
    EXPECT_EQ(surface_of<qx_long>(3, in->mesh, data, 5, &null), plain);
    EXPECT_GT(plain[0][3], 10);
}

// Each of the seven typed forms by its own name.
TEST(ThreadedSurfaces, TypedForms)
{
    const auto in = meshes::uniform({5, 4, 6}, 3, {0, 0, 0}, {1, 1, 1});
    const auto expect_same = [&](auto starter, auto value) {
        using T = decltype(value);
        std::vector<T> data = meshes::random_values<T>(3, 120, 0, 10);
        const T null = data[50];
        surface_call plain, threaded;
        plain.run(0, in->mesh, data.data(), 5, &null);
        threaded.result = starter(3, in->mesh, data.data(), 1, null, 5.0, &threaded.nnodes,
                                  &threaded.min_node, &threaded.max_node, &threaded.ntri, &threaded.tri_conn,
                                  &threaded.ntri_conn, &threaded.map_count, &threaded.map);
        EXPECT_EQ(threaded.result, 1);
        threaded.nline = threaded.nline_conn = 0;
        threaded.line_conn = nullptr;
        EXPECT_EQ(threaded.lists(), plain.lists());
        EXPECT_GT(plain.ntri, 20);
        const auto flat = meshes::uniform({5, 4}, 3, {0, 0, 0}, {1, 1, 1});
        surface_call of_two_axes;
        of_two_axes.nline = of_two_axes.nline_conn = 0;
        of_two_axes.line_conn = nullptr;
        EXPECT_EQ(starter(2, flat->mesh, data.data(), 0, null, 5.0, &of_two_axes.nnodes,
                          &of_two_axes.min_node, &of_two_axes.max_node, &of_two_axes.ntri,
                          &of_two_axes.tri_conn, &of_two_axes.ntri_conn, &of_two_axes.map_count,
                          &of_two_axes.map),
                  0);
        EXPECT_TRUE(of_two_axes.is_empty());
    };
    expect_same(UTILmt_slice_str_char, static_cast<signed char>(0));
    expect_same(UTILmt_slice_str_byte, static_cast<unsigned char>(0));
    expect_same(UTILmt_slice_str_short, static_cast<short>(0));
    expect_same(UTILmt_slice_str_int, 0);
    expect_same(UTILmt_slice_str_float, 0.0f);
    expect_same(UTILmt_slice_str_double, 0.0);
    expect_same(UTILmt_slice_str_qx_long, qx_long(0));
}

std::vector<int> percents()
{
    std::vector<int> all;
    for (const host_calls::status &status : host_calls::seen().statuses)
        all.push_back(status.percent);
    return all;
}

TEST(ThreadedSurfaces, StatusIsToldThreeTimesAndStopsNothing)
{
    const auto in = meshes::uniform({5, 5, 40}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<float> data = waves(*in);
    for (int nthreads : {1, 4}) {
        host_calls::reset();
        host_calls::interrupt_at(0);
        surface_of<float>(nthreads, in->mesh, data, 0.2, nullptr);
        EXPECT_EQ(percents(), (std::vector<int>{20, 90, 100}));
        EXPECT_TRUE(host_calls::seen().pushes.empty());
    }
    host_calls::reset();
}

TEST(ThreadedSurfaces, MoreThreadsThanPlanesOfCells)
{
    const auto in = meshes::uniform({4, 4, 4}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<float> data(64, 0.0f);
    for (int nthreads : {4, 16, 100}) {
        host_calls::reset();
        const int before = host_calls::threads_started();
        surface_call call;
        call.run<float>(nthreads, in->mesh, data.data(), 0.5, nullptr);
        EXPECT_EQ(call.result, 0);
        EXPECT_TRUE(call.is_empty());
        EXPECT_EQ(host_calls::report_texts(),
                  (std::vector<std::string>{"UTILmt: dims[ndim-1] is too small to be divided."}));
        EXPECT_TRUE(percents().empty());
        EXPECT_EQ(host_calls::threads_started(), before);
    }
    // A single plane of nodes can't be divided by one thread either.
    const auto plane = meshes::uniform({4, 4, 1}, 3, {0, 0, 0}, {1, 1, 1});
    surface_call call;
    call.run<float>(1, plane->mesh, data.data(), 0.5, nullptr);
    EXPECT_EQ(call.result, 0);
    EXPECT_TRUE(call.is_empty());
}

TEST(ThreadedSurfaces, ThreadsBelowOneAreOne)
{
    const auto in = meshes::uniform({4, 4, 4}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<float> data = waves(*in);
    const std::vector<numbers> plain = surface_of<float>(0, in->mesh, data, 0.2, nullptr);
    EXPECT_EQ(surface_of<float>(-1, in->mesh, data, 0.2, nullptr), plain);
    qx_long nnodes, ntri, ntri_conn, *min_node, *max_node, *tri_conn;
    ASSERT_EQ(UTILmt_slice_str_float(0, in->mesh, data.data(), 0, 0, 0.2, &nnodes, &min_node, &max_node,
                                     &ntri, &tri_conn, &ntri_conn, nullptr, nullptr),
              1);
    EXPECT_EQ(numbers(tri_conn, tri_conn + ntri_conn), plain[3]);
    free(min_node);
    free(max_node);
    free(tri_conn);
}

TEST(ThreadedSurfaces, MeshesOfTwoAxesGiveTheirLinesOnTheCallersThread)
{
    const auto in = meshes::uniform({30, 20}, 3, {0, 0, 0}, {1, 1, 0});
    const std::vector<float> data = waves(*in);
    const std::vector<numbers> plain = surface_of<float>(0, in->mesh, data, 0.2, nullptr);
    EXPECT_GT(plain[0][1], 20);
    host_calls::reset();
    const int before = host_calls::threads_started();
    EXPECT_EQ(surface_of<float>(50, in->mesh, data, 0.2, nullptr), plain);
    EXPECT_EQ(host_calls::threads_started(), before);
    EXPECT_TRUE(percents().empty());
}

TEST(ThreadedSurfaces, WhatIsNoSurfaceGivesNothing)
{
    const auto line = meshes::uniform({9}, 1, {0, 0, 0}, {1, 0, 0});
    const auto volume = meshes::uniform({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1});
    const auto cells = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 3);
    const std::vector<float> data(27, 0.0f);
    host_calls::reset();
    {
        surface_call call;
        call.run<float>(2, line->mesh, data.data(), 0.5, nullptr);
        EXPECT_EQ(call.result, 0);
        EXPECT_TRUE(call.is_empty());
    }
    for (int type : {-1, 7}) {
        surface_call call;
        call.run<float>(2, volume->mesh, data.data(), 0.5, nullptr, type);
        EXPECT_EQ(call.result, 0);
        EXPECT_TRUE(call.is_empty());
    }
    { // a record of three axes whose field has cell sets
        mesh_info mesh = *volume->mesh;
        mesh.field_id = cells->mesh->field_id;
        surface_call call;
        call.run<float>(2, &mesh, data.data(), 0.5, nullptr);
        EXPECT_EQ(call.result, 0);
        EXPECT_TRUE(call.is_empty());
    }
    EXPECT_TRUE(host_calls::report_texts().empty());
    EXPECT_TRUE(percents().empty());
}

TEST(ThreadedSurfaces, NothingCrossedHandsOverEmptyLists)
{
    const auto in = meshes::uniform({4, 4, 4}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<float> data(64, 0.0f);
    for (int nthreads : {1, 3}) {
        surface_call call;
        call.run<float>(nthreads, in->mesh, data.data(), 0.5, nullptr);
        EXPECT_EQ(call.result, 1);
        EXPECT_EQ(call.ntri, 0);
        EXPECT_EQ(call.nnodes, 0);
        EXPECT_EQ(call.map_count, 0);
        for (const qx_long *list : {call.min_node, call.max_node, call.tri_conn, call.map})
            EXPECT_NE(list, nullptr);
    }
}

TEST(ThreadedSurfaces, SlabsThatCannotGetAThreadAreDoneByTheCaller)
{
    const auto in = meshes::uniform({9, 8, 12}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<float> data = waves(*in);
    const std::vector<numbers> plain = surface_of<float>(0, in->mesh, data, 0.2, nullptr);
    const int before = host_calls::threads_started();
    EXPECT_EQ(surface_of<float>(4, in->mesh, data, 0.2, nullptr), plain);
    const int nthreads = host_calls::threads_started() - before;
    EXPECT_GE(nthreads, 4);
    for (int k = 0; k < nthreads; ++k) {
        host_calls::fail_thread(k);
        EXPECT_EQ(surface_of<float>(4, in->mesh, data, 0.2, nullptr), plain) << k;
    }
    host_calls::reset();
}

// Every allocation, of the starter and of any thread, in turn.
TEST(ThreadedSurfaces, WithoutMemoryThereIsAReportAndNothingIsLeft)
{
    const auto in = meshes::uniform({40, 20, 9}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<unsigned char> data = meshes::random_values<unsigned char>(7, 40 * 20 * 9, 0, 10);
    const std::vector<numbers> plain = surface_of<unsigned char>(0, in->mesh, data, 5, nullptr);
    const std::vector<std::string> known = {"UTILmt: cannot allocate out array.",
                                            "UTILmt_slice: cannot allocate array",
                                            "UTILmt_slice_str_byte: alloc for min,max_nlist failed",
                                            "UTILmt_slice_str_byte: alloc for nlist failed",
                                            "UTILmt_slice_str_byte: alloc for cell_ind[0] failed",
                                            "UTILmt_slice_str_float: realloc for min,max_nlist failed",
                                            "thread_func_slice_str_byte: realloc for cell list failed",
                                            "thread_func_slice_str_byte: realloc for connect list failed"};
    for (int nthreads : {1, 2, 5}) {
        std::vector<std::string> texts;
        int insisted = 0;
        for (int k = 0;; ++k) {
            SCOPED_TRACE(std::to_string(nthreads) + " threads, allocation " + std::to_string(k));
            host_calls::reset();
            host_calls::watch watch;
            host_calls::fail_allocation(k);
            surface_call call;
            call.run<unsigned char>(nthreads, in->mesh, data.data(), 5, nullptr);
            const bool refused = host_calls::allocation_was_refused();
            const std::vector<std::string> reports = host_calls::report_texts();
            if (call.result == 1) {
                EXPECT_EQ(call.lists(), plain);
                EXPECT_TRUE(reports.empty());
            } else {
                EXPECT_EQ(call.result, 0);
                EXPECT_TRUE(call.is_empty());
                ASSERT_EQ(reports.size(), 1u);
                EXPECT_NE(std::find(known.begin(), known.end(), reports[0]), known.end()) << reports[0];
                texts.push_back(reports[0]);
            }
            for (const std::string &text : host_calls::seen().out_of_memory)
                EXPECT_EQ(text, "Cannot alloc flags array");
            insisted += !host_calls::seen().out_of_memory.empty();
            call.release();
            EXPECT_EQ(watch.live_blocks(), 0);
            if (!refused || testing::Test::HasFailure()) break;
        }
        EXPECT_EQ(insisted, nthreads);
        for (const std::string &text : known) {
            const bool grown = text.find("thread_func") != std::string::npos; // by one thread alone
            if (!grown || nthreads == 1) {
                EXPECT_NE(std::find(texts.begin(), texts.end(), text), texts.end()) << text << nthreads;
            }
        }
    }
    host_calls::reset();
}

TEST(ThreadedSurfaces, TheSameBytesOnEveryRunAndTwoMeshesAtATime)
{
    const auto in = meshes::uniform({33, 20, 17}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<float> data = waves(*in);
    const std::vector<numbers> plain = surface_of<float>(0, in->mesh, data, 0.2, nullptr);
    for (int pass = 0; pass < 20; ++pass)
        EXPECT_EQ(surface_of<float>(3 + pass % 3, in->mesh, data, 0.2, nullptr), plain);
}

TEST(ThreadedIsosurf, GoesByTheKindOfMesh)
{
    const auto in = meshes::uniform({9, 8, 7}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<float> data = waves(*in);
    surface_call plain, threaded;
    plain.mapped = false;
    plain.run<float>(0, in->mesh, data.data(), 0.2, nullptr);
    EXPECT_EQ(UTILmt_isosurf(3, in->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.2, &threaded.nnodes,
                             &threaded.min_node, &threaded.max_node, &threaded.nline, &threaded.line_conn,
                             &threaded.nline_conn, &threaded.ntri, &threaded.tri_conn, &threaded.ntri_conn,
                             nullptr, nullptr),
              1);
    threaded.map_count = 0;
    threaded.map = nullptr;
    EXPECT_EQ(threaded.lists(), plain.lists());
}

} // namespace
