#include <skoklana/thread.h>

#include "support/fresh_host.hpp"
#include "support/sample_reference.hpp"

#include <gtest/gtest.h>

#include <thread>

using namespace sample_reference;

namespace {

// As sample() of the reference, points first to end - 1.
template <typename T>
samples<T> sample_for_thread(const node_request<T> &r, qx_long first, qx_long end,
                             int type = arrays::dtype_of<T>)
{
    node_request<T> part = r;
    part.points.assign(r.points.begin() + first * r.nspace, r.points.begin() + end * r.nspace);
    samples<T> s = before(part);
    pointers<T> data(r.data), out(s.rows);
    s.result = UTILmt_interpolate_data(end - first, r.points.data() + first * r.nspace, r.nspace, r.xform,
                                       r.mesh, r.table, static_cast<int>(r.veclens.size()), type,
                                       r.veclens.data(), data.all.data(), nullptr,
                                       const_cast<T *>(r.max_values.data()), s.null_flags.data(),
                                       s.null_values.data(), r.set_null, r.null_fill, out.all.data());
    return s;
}

template <typename T>
samples<T> sample_for_thread(const cell_request<T> &r, qx_long first, qx_long end,
                             int type = arrays::dtype_of<T>)
{
    cell_request<T> part = r;
    part.points.assign(r.points.begin() + first * r.nspace, r.points.begin() + end * r.nspace);
    samples<T> s = before(part);
    pointers<T> data(r.data);
    s.result = UTILmt_interpolate_cell_data(end - first, r.points.data() + first * r.nspace, r.nspace,
                                            r.xform, r.mesh, r.table, r.set_map.data(), type, r.veclen,
                                            data.all.data(), nullptr, const_cast<T *>(&r.max_value),
                                            s.null_flags.data(), s.null_values.data(), s.rows[0].data());
    return s;
}

// Slices of the points, a thread each, put together.
template <typename T, typename Request> samples<T> sample_by_threads(const Request &r, int nthreads)
{
    std::vector<samples<T>> parts(static_cast<size_t>(nthreads));
    std::vector<qx_long> shares(parts.size());
    UTILmt_divide_number(nthreads, r.npts(), shares.data());
    std::vector<std::thread> threads;
    qx_long first = 0;
    for (size_t k = 0; k < parts.size(); ++k) {
        threads.emplace_back(
            [&r, &parts, k, first, end = first + shares[k]] { parts[k] = sample_for_thread(r, first, end); });
        first += shares[k];
    }
    for (std::thread &thread : threads)
        thread.join();
    samples<T> all = parts[0];
    for (size_t k = 1; k < parts.size(); ++k) {
        EXPECT_EQ(parts[k].result, all.result);
        for (size_t j = 0; j < all.rows.size(); ++j)
            all.rows[j].insert(all.rows[j].end(), parts[k].rows[j].begin(), parts[k].rows[j].end());
        for (size_t j = 0; j < all.null_flags.size(); ++j)
            all.null_flags[j] = std::max(all.null_flags[j], parts[k].null_flags[j]);
        EXPECT_EQ(parts[k].null_values, all.null_values);
    }
    return all;
}

// With everything fetched that a search and a value ask for.
template <typename Request> table_ptr placed(Request *r, const meshes::test_mesh &made)
{
    r->made = &made;
    r->mesh = made.mesh;
    r->nspace = made.nspace;
    table_ptr table = table_of(made.mesh);
    r->table = table.get();
    if (r->mesh->coords == nullptr) r->mesh->get_coords(r->mesh, &r->mesh->coords);
    if (made.ndim > 0 && r->mesh->points == nullptr) r->mesh->get_points(r->mesh, &r->mesh->points);
    for (int set = 0; made.ndim == 0 && set < r->mesh->ncell_sets; ++set)
        if (r->mesh->cell_connect[set] == nullptr)
            r->mesh->get_connect(r->mesh, set, &r->mesh->cell_connect[set]);
    host_calls::reset();
    return table;
}

template <typename T> class ThreadedNodeSampling : public FreshHost {
};
using few_types = testing::Types<unsigned char, float, double, qx_long>;
TYPED_TEST_SUITE(ThreadedNodeSampling, few_types);

TYPED_TEST(ThreadedNodeSampling, IsThePlainFormPointByPointOnEveryMesh)
{
    using T = TypeParam;
    uint64_t seed = 1;
    qx_long found = 0, missed = 0;
    for (const named_mesh &m : all_meshes()) {
        SCOPED_TRACE(m.name);
        node_request<T> r;
        const table_ptr table = placed(&r, *m.made);
        fill_node_data(&r, ++seed);
        r.points = points_about(*m.made, seed, 140, r.nspace);
        r.set_null = seed % 2 == 0;
        r.null_fill = 17;
        tally seen;
        const samples<T> expected = slow_sample(r, false, &seen);
        expect_same(sample_for_thread(r, 0, r.npts()), expected);
        found += seen.found;
        missed += seen.missed;
    }
    EXPECT_GT(found, 500);
    EXPECT_GT(missed, 500);
}

TEST(ThreadedSampling, SlicesByThreadsAreTheWhole)
{
    for (const named_mesh &m : all_meshes()) {
        SCOPED_TRACE(m.name);
        node_request<float> r;
        const table_ptr table = placed(&r, *m.made);
        fill_node_data(&r, 5);
        r.points = points_about(*m.made, 6, 600, r.nspace);
        const samples<float> whole = sample(r);
        for (int nthreads : {1, 2, 5})
            expect_same(sample_by_threads<float>(r, nthreads), whole);
    }
}

TEST(ThreadedSampling, OfCellDataInSlicesIsTheWhole)
{
    for (const named_mesh &m : all_meshes()) {
        if (m.made->ndim > 0) continue;
        SCOPED_TRACE(m.name);
        cell_request<short> r;
        const table_ptr table = placed(&r, *m.made);
        r.veclen = 2;
        for (int set = 0; set < r.mesh->ncell_sets; ++set) {
            r.set_map.push_back(set % 3 == 2 ? -1 : set);
            r.data.push_back(meshes::random_values<short>(3, 2 * r.mesh->cell_count[set], 0, 100));
        }
        r.points = points_about(*m.made, 6, 300, r.nspace);
        const samples<short> whole = sample(r);
        for (int nthreads : {1, 2, 5})
            expect_same(sample_by_threads<short>(r, nthreads), whole);
    }
}

class ThreadedSample : public FreshHost {
  protected:
    meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {3, 3, 3}, 4);
    node_request<float> request;
    table_ptr table;

    void SetUp() override
    {
        table = placed(&request, *made);
        request.veclens = {1, 2};
        request.data = {meshes::random_values<float>(3, made->nnodes(), 0, 1),
                        meshes::random_values<float>(4, 2 * made->nnodes(), 0, 1)};
        request.max_values = {1, 1};
        request.null_flags = {0, 0};
        request.null_values = {0, 0};
    }
};

TEST_F(ThreadedSample, ChecksNoStatusAndCannotBeStopped)
{
    request.points = points_about(*made, 6, 2000, 3);
    const samples<float> wanted = sample(request);
    host_calls::reset();
    host_calls::interrupt_at(0);
    expect_same(sample_for_thread(request, 0, 2000), wanted);
    EXPECT_TRUE(host_calls::seen().statuses.empty());
}

TEST_F(ThreadedSample, APointOutsideRaisesEveryFlagAtTheEnd)
{
    request.points = {0.5f, 0.5f, 0.5f, 50, 50, 50};
    const samples<float> got = sample_for_thread(request, 0, 2);
    EXPECT_EQ(got.result, 1);
    EXPECT_EQ(got.null_flags, (std::vector<int>{1, 1}));
    EXPECT_EQ(got.rows[0][1], 2) << "one above the largest value";
    EXPECT_EQ(got.rows[1][2], 0) << "of a vector";
    EXPECT_EQ(get<float>(got.null_values, 0), 2);
    request.set_null = 1;
    request.null_fill = -5;
    EXPECT_EQ(sample_for_thread(request, 0, 2).rows[0][1], -5);
    request.null_flags = {1, 0};
    put<float>(&request.null_values, 0, 44);
    EXPECT_EQ(sample_for_thread(request, 0, 2).rows[0][1], 44) << "the caller's own stands";
}

TEST_F(ThreadedSample, OfNoPointsLeavesTheFlags)
{
    request.points.clear();
    request.null_flags = {7, 0};
    const samples<float> got = sample_for_thread(request, 0, 0);
    EXPECT_EQ(got.result, 1);
    EXPECT_EQ(got.null_flags, (std::vector<int>{7, 0}));
}

TEST_F(ThreadedSample, UnknownTypesAreReportedUnderThePlainNames)
{
    request.points = {0.5f, 0.5f, 0.5f};
    EXPECT_EQ(sample_for_thread(request, 0, 1, 7).result, 0);
    cell_request<float> cells;
    const table_ptr other = placed(&cells, *made);
    cells.set_map = {0};
    cells.data = {std::vector<float>(27)};
    cells.points = request.points;
    EXPECT_EQ(host_calls::report_texts(), (std::vector<std::string>{}));
    EXPECT_EQ(sample_for_thread(cells, 0, 1, -1).result, 0);
    EXPECT_EQ(host_calls::report_texts(),
              (std::vector<std::string>{"UTILinterpolate_cell_data: unknown data type"}));
    host_calls::reset();
    EXPECT_EQ(sample_for_thread(request, 0, 1, 7).result, 0);
    EXPECT_EQ(host_calls::report_texts(),
              (std::vector<std::string>{"UTILinterpolate_data: unknown data type"}));
}

TEST_F(ThreadedSample, WithoutItsFunctionsSaysSoAndTouchesNothing)
{
    request.points = {0.5f, 0.5f, 0.5f};
    mesh_methods methods = *request.mesh->methods;
    request.mesh->methods = &methods;
    for (int which : {0, 1}) {
        methods.find_cell_func = which == 0 ? nullptr : UTILfind_cell;
        methods.interp_data_func = nullptr;
        testing::internal::CaptureStderr();
        const samples<float> got = sample_for_thread(request, 0, 1);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "UTILfind_cell: unable to find interp_cell function\n");
        EXPECT_EQ(got.result, 0);
        EXPECT_EQ(got.null_flags, request.null_flags);
        EXPECT_EQ(got.rows[0][0], unwritten<float>);
    }
}

} // namespace
