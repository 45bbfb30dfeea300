#include <skoklana/cut.h>
#include <skoklana/thread.h>

#include "support/arrays.hpp"
#include "support/cut_reference.hpp"
#include "support/fresh_host.hpp"
#include "support/host_calls.hpp"
#include "support/lattice_reference.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

namespace {

using arrays::dtype_of;
using cut_reference::numbers;
using cut_reference::result;
using lattice_reference::lattice;

int threads_wanted = 1;

// With the arguments of the plain form, by threads_wanted threads.
int cut_by_threads(mesh_info *mesh, const void *data, int type, int null_flag, const void *null, double level,
                   int side, qx_long *nold, qx_long **old_nodes, qx_long *nnodes, qx_long **min_node,
                   qx_long **max_node, qx_long *ncells, qx_long **conn, qx_long *nconn, qx_long *map_count,
                   qx_long **map)
{
    return UTILmt_cut(threads_wanted, mesh, data, type, null_flag, null, level, side, nold, old_nodes, nnodes,
                      min_node, max_node, ncells, conn, nconn, map_count, map);
}

template <typename T>
result cut(int nthreads, mesh_info *mesh, const std::vector<T> &data, double level, int side, const T *null,
           bool mapped = true)
{
    threads_wanted = nthreads;
    return cut_reference::run(nthreads == 0 ? UTILcut_struct : cut_by_threads, mesh,
                              cut_reference::scalar_of(data, dtype_of<T>, null), level, side, mapped ? 1 : 0);
}

// Whether an edge between two slabs has its new node from the upper slab alone, the cells below it being left out.
template <typename T>
bool lacks_partner(const numbers &dims, const std::vector<T> &data, double level, const T *null, int nthreads)
{
    if (null == nullptr || dims[2] < 2) return false;
    const qx_long nx = dims[0], ny = dims[1], plane = nx * ny, ncells = dims[2] - 1;
    const auto value = [&](qx_long i, qx_long j, qx_long k) {
        return data[static_cast<size_t>(i + nx * j + plane * k)];
    };
    const auto walked = [&](qx_long i, qx_long j, qx_long k) {
        if (i < 0 || j < 0 || i >= nx - 1 || j >= ny - 1) return false;
        for (int c = 0; c < 8; ++c)
            if (value(i + (c & 1), j + (c >> 1 & 1), k + (c >> 2)) == *null) return false;
        return true;
    };
    const int n = static_cast<int>(std::min<qx_long>(nthreads, ncells));
    numbers shares(static_cast<size_t>(n));
    UTILmt_divide_number(n, ncells, shares.data());
    qx_long k = 0;
    for (const qx_long share : shares) {
        for (qx_long j = 0; k > 0 && j < ny; ++j)
            for (qx_long i = 0; i < nx; ++i)
                for (int along : {0, 1}) {
                    const qx_long di = along == 0, dj = along == 1;
                    if (i + di >= nx || j + dj >= ny) continue;
                    const bool crossed = (static_cast<double>(value(i, j, k)) >= level) !=
                                         (static_cast<double>(value(i + di, j + dj, k)) >= level);
                    const auto seen = [&](qx_long slab) {
                        return walked(i, j, slab) || walked(i - dj, j - di, slab);
                    };
                    if (crossed && seen(k) && !seen(k - 1)) return true;
                }
        k += share;
    }
    return false;
}

template <typename T> class ThreadedLatticeCut : public testing::Test {
};
TYPED_TEST_SUITE(ThreadedLatticeCut, arrays::all_types);

TYPED_TEST(ThreadedLatticeCut, IsThatOfOneThreadForAnyNumberOfThem)
{
    using T = TypeParam;
    std::mt19937 random(11 + dtype_of<T>);
    const auto below = [&](unsigned n) { return random() % n; };
    const qx_long widths[] = {1, 2, 3, 5, 8, 33, 64, 65, 66};
    int with_pieces = 0, with_nulls = 0, refused = 0, idle = 0;
    for (int pass = 0; pass < 40; ++pass) {
        SCOPED_TRACE("pass " + std::to_string(pass));
        lattice in(
            {widths[below(9)], 1 + static_cast<qx_long>(below(6)), 1 + static_cast<qx_long>(below(18))});
        const unsigned nvalues = 2 + below(6), rare = 1 + below(6);
        std::vector<T> data;
        for (qx_long n = 0; n < in.nnodes(); ++n)
            data.push_back(static_cast<T>(below(rare) == 0 ? below(nvalues) : 0));
        data.shrink_to_fit();
        const T null = static_cast<T>(below(nvalues + 2));
        const T *null_value = below(2) != 0 ? &null : nullptr;
        // Between the values: then both tests of a node agree, and the flags with the reference's.
        const double level = static_cast<double>(below(nvalues)) + (std::is_integral_v<T> ? 0 : 0.5);
        const int side = below(2) != 0 ? 1 : -1;
        const bool mapped = below(4) != 0;
        const result plain = cut(0, &in.mesh, data, level, side, null_value, mapped);
        ASSERT_EQ(plain.status, 1);
        for (int nthreads = 1; nthreads <= 16; ++nthreads) {
            host_calls::reset();
            const result got = cut(nthreads, &in.mesh, data, level, side, null_value, mapped);
            if (lacks_partner(in.dims, data, level, null_value, nthreads)) {
                ++refused;
                EXPECT_EQ(got.status, 0) << nthreads;
                EXPECT_EQ(host_calls::report_texts(),
                          (std::vector<std::string>{"UTILmt_cut_struct_3d: Connection wrong"}));
                continue;
            }
            EXPECT_TRUE(got == plain) << nthreads << " threads: " << cut_reference::difference(got, plain);
            idle += nthreads > in.dims[2] - 1;
            with_nulls += null_value != nullptr && nthreads > 1 && plain.ncells[cut_reference::tets] > 0;
        }
        with_pieces += plain.ncells[cut_reference::tets] > 0 && plain.ncells[cut_reference::hexes] > 0;
        if (testing::Test::HasFailure()) return;
    }
    EXPECT_GT(with_pieces, 3);
    EXPECT_GT(with_nulls, 5);
    EXPECT_GT(refused, 0);
    EXPECT_GT(idle, 20);
}

std::vector<float> bumps(const numbers &dims)
{
    std::vector<float> data;
    for (qx_long k = 0; k < dims[2]; ++k)
        for (qx_long j = 0; j < dims[1]; ++j)
            for (qx_long i = 0; i < dims[0]; ++i)
                data.push_back(static_cast<float>(std::sin(0.5 * static_cast<double>(i)) +
                                                  std::cos(0.4 * static_cast<double>(j)) *
                                                      std::sin(0.3 * static_cast<double>(k))));
    return data;
}

TEST(ThreadedCut, LargeCutsAreTheSame)
{
    lattice in({50, 40, 37});
    const std::vector<float> data = bumps(in.dims);
    for (const int side : {1, -1}) {
        const result plain = cut<float>(0, &in.mesh, data, 0.2, side, nullptr);
        EXPECT_GT(plain.ncells[cut_reference::tets], 20000);
        EXPECT_GT(plain.ncells[cut_reference::hexes], 5000);
        for (int nthreads : {1, 2, 3, 7, 16, 36, 100}) {
            const result got = cut<float>(nthreads, &in.mesh, data, 0.2, side, nullptr);
            EXPECT_TRUE(got == plain) << nthreads << cut_reference::difference(got, plain);
        }
    }
}

TEST(ThreadedCut, EdgesBetweenSlabsHaveOneNewNode)
{
    lattice in({2, 2, 3});
    std::vector<float> data(12, 0.0f);
    data[4] = 1;
    const result got = cut<float>(2, &in.mesh, data, 0.5, 1, nullptr);
    EXPECT_EQ(got.nold, 1);
    EXPECT_EQ(got.old_nodes, (numbers{4}));
    EXPECT_EQ(got.min_node.size(), 4u);
    EXPECT_EQ(got.ncells[cut_reference::tets], 2);
}

TEST(ThreadedCut, AnEdgeThatTheSlabBelowHasNotSeenIsAnError)
{
    lattice in({2, 2, 3});
    std::vector<float> data(12, 0.0f);
    data[4] = 1;
    data[0] = 9;
    const float null = 9;
    EXPECT_EQ(cut<float>(0, &in.mesh, data, 0.5, 1, &null).status, 1);
    EXPECT_EQ(cut<float>(1, &in.mesh, data, 0.5, 1, &null).status, 1);
    host_calls::reset();
    host_calls::watch watch;
    EXPECT_EQ(cut<float>(2, &in.mesh, data, 0.5, 1, &null).status, 0);
    EXPECT_EQ(host_calls::report_texts(),
              (std::vector<std::string>{"UTILmt_cut_struct_3d: Connection wrong"}));
    EXPECT_EQ(host_calls::seen().reports[0].severity, 2);
}

TEST(ThreadedCut, NodesKeptAndNoneInAMeshWithoutCells)
{
    for (const numbers &dims : {numbers{4, 3, 1}, numbers{1, 1, 1}, numbers{1, 4, 9}}) {
        lattice in(dims);
        std::vector<int> data;
        for (int n = 0; n < in.nnodes(); ++n)
            data.push_back(n % 3);
        for (int nthreads : {1, 2, 5}) {
            const result got = cut<int>(nthreads, &in.mesh, data, 1, 1, nullptr);
            const result plain = cut<int>(0, &in.mesh, data, 1, 1, nullptr);
            EXPECT_EQ(got.status, 1);
            EXPECT_TRUE(got == plain) << nthreads << cut_reference::difference(got, plain);
        }
        const result none = cut<int>(3, &in.mesh, data, 7, 1, nullptr);
        EXPECT_EQ(none.status, 1);
        EXPECT_EQ(none.nold, 0);
    }
}

TEST(ThreadedCut, OutputsOfEmptyListsAreNull)
{
    lattice in({3, 3, 4});
    const std::vector<int> data(36, 0);
    qx_long nold = -1, *old_nodes = &nold, nnodes = -1, *min_node, *max_node, ncells[7], nconn[7],
            map_count[7];
    qx_long *conn[7], *map[7];
    std::fill_n(conn, 7, &nold);
    ASSERT_EQ(UTILmt_cut_struct_3d(3, &in.mesh, data.data(), DTYPE_INT, 0, nullptr, 1, 1, &nold, &old_nodes,
                                   &nnodes, &min_node, &max_node, ncells, conn, nconn, map_count, map),
              1);
    EXPECT_EQ(nold, 0);
    EXPECT_EQ(old_nodes, nullptr);
    EXPECT_EQ(nnodes, 0);
    for (int list = 0; list < 7; ++list) {
        EXPECT_EQ(ncells[list], 0);
        EXPECT_EQ(nconn[list], 0);
        EXPECT_EQ(conn[list], nullptr);
        EXPECT_EQ(map_count[list], 0);
        free(map[list]);
    }
    free(min_node);
    free(max_node);
}

TEST(ThreadedCut, StatusIsToldThreeTimesAndStopsNothing)
{
    lattice in({5, 5, 40});
    const std::vector<float> data = bumps(in.dims);
    for (int nthreads : {1, 4}) {
        host_calls::reset();
        host_calls::interrupt_at(0);
        EXPECT_EQ(cut<float>(nthreads, &in.mesh, data, 0.2, 1, nullptr).status, 1);
        host_calls::expect_checks({20, 90, 100});
    }
    host_calls::reset();
}

TEST(ThreadedCut, TwoAxesAreCutOnTheCallersThreadAndCanBeStopped)
{
    lattice in({12, 40});
    std::vector<float> data;
    for (int n = 0; n < 480; ++n)
        data.push_back(static_cast<float>(n % 7));
    const int before = host_calls::threads_started();
    const result plain = cut<float>(0, &in.mesh, data, 3.5, 1, nullptr);
    EXPECT_TRUE(cut<float>(50, &in.mesh, data, 3.5, 1, nullptr) == plain);
    EXPECT_GT(plain.ncells[cut_reference::triangles], 100);
    EXPECT_EQ(host_calls::threads_started(), before);
    host_calls::reset();
    host_calls::interrupt_at(1);
    EXPECT_EQ(cut<float>(2, &in.mesh, data, 3.5, 1, nullptr).status, 0);
    EXPECT_EQ(host_calls::seen().statuses.size(), 2u);
    host_calls::reset();
}

TEST(ThreadedCut, OtherNumbersOfAxesGiveNothing)
{
    lattice line({9}), flat({3, 3});
    const std::vector<float> data(9, 0.0f);
    EXPECT_EQ(cut<float>(2, &line.mesh, data, 0.5, 1, nullptr).status, 0);
    qx_long nold = -7;
    EXPECT_EQ(UTILmt_cut_struct_3d(2, &flat.mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0, 1, &nold, nullptr,
                                   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              0);
    EXPECT_EQ(nold, -7);
}

TEST(ThreadedCut, AnUnknownTypeIsReportedOnceAndStartsNoThread)
{
    lattice in({3, 3, 9});
    const std::vector<float> data(81, 0.0f);
    host_calls::reset();
    const int before = host_calls::threads_started();
    threads_wanted = 4;
    EXPECT_EQ(cut_reference::run(cut_by_threads, &in.mesh, {data.data(), 9, 0, nullptr}, 0.5, 1, 1).status,
              0);
    EXPECT_EQ(host_calls::report_texts(),
              (std::vector<std::string>{"UTILnnode_thresh_struct: unknown data type"}));
    EXPECT_EQ(host_calls::threads_started(), before);
    host_calls::reset();
}

TEST(ThreadedCut, SlabsThatCannotGetAThreadAreDoneByTheCaller)
{
    lattice in({9, 8, 12});
    const std::vector<float> data = bumps(in.dims);
    const result plain = cut<float>(0, &in.mesh, data, 0.2, 1, nullptr);
    const int before = host_calls::threads_started();
    EXPECT_TRUE(cut<float>(4, &in.mesh, data, 0.2, 1, nullptr) == plain);
    const int nthreads = host_calls::threads_started() - before;
    EXPECT_GE(nthreads, 4);
    for (int k = 0; k < nthreads; ++k) {
        host_calls::fail_thread(k);
        EXPECT_TRUE(cut<float>(4, &in.mesh, data, 0.2, 1, nullptr) == plain) << k;
    }
    host_calls::reset();
}

// Every allocation, of the starter and of any thread, in turn.
TEST(ThreadedCut, WithoutMemoryThereIsAReportAndNothingIsLeft)
{
    lattice in({40, 20, 9});
    std::vector<unsigned char> data;
    std::mt19937 random(3);
    for (qx_long n = 0; n < in.nnodes(); ++n)
        data.push_back(static_cast<unsigned char>(random() % 10));
    const std::vector<std::string> known = {
        "UTILmt_cut_struct_3d: alloc thread arrays failed", "mt_isovolume: realloc for cell list failed",
        "mt_isovolume: failed to alloc thread info struct array", "mt_isovolume: failed to alloc nlist."};
    for (int nthreads : {1, 2, 5}) {
        std::vector<std::string> texts;
        for (int k = 0;; ++k) {
            SCOPED_TRACE(std::to_string(nthreads) + " threads, allocation " + std::to_string(k));
            host_calls::reset();
            bool refused = false;
            {
                qx_long nold = -1, *old_nodes = &nold, nnodes = -1, *min_node = &nold, *max_node = &nold,
                        ncells[7], nconn[7], map_count[7];
                qx_long *conn[7], *map[7];
                host_calls::watch watch;
                host_calls::fail_allocation(k);
                const int status = UTILmt_cut_struct_3d(nthreads, &in.mesh, data.data(), DTYPE_BYTE, 0,
                                                        nullptr, 5, 1, &nold, &old_nodes, &nnodes, &min_node,
                                                        &max_node, ncells, conn, nconn, map_count, map);
                refused = host_calls::allocation_was_refused();
                const std::vector<std::string> reports = host_calls::report_texts();
                if (status == 1) {
                    EXPECT_TRUE(reports.empty());
                } else {
                    EXPECT_EQ(status, 0);
                    EXPECT_EQ(nold, 0);
                    EXPECT_EQ(nnodes, 0);
                    EXPECT_EQ(old_nodes, nullptr);
                    EXPECT_EQ(min_node, nullptr);
                    for (int list = 0; list < 7; ++list) {
                        EXPECT_EQ(ncells[list], 0);
                        EXPECT_EQ(conn[list], nullptr);
                        EXPECT_EQ(map_count[list], 0);
                        EXPECT_EQ(map[list], nullptr);
                    }
                    ASSERT_EQ(reports.size(), 1u);
                    EXPECT_NE(std::find(known.begin(), known.end(), reports[0]), known.end()) << reports[0];
                    texts.push_back(reports[0]);
                }
                for (qx_long *list : {old_nodes, min_node, max_node})
                    free(list);
                for (int list = 0; list < 7; ++list) {
                    free(conn[list]);
                    free(map[list]);
                }
                EXPECT_EQ(watch.live_blocks(), 0);
            }
            if (!refused || testing::Test::HasFailure()) break;
        }
        for (const std::string &text : known)
            EXPECT_NE(std::find(texts.begin(), texts.end(), text), texts.end()) << text << nthreads;
    }
    host_calls::reset();
}

} // namespace
