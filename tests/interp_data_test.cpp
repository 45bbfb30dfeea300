// Sampling at points anywhere, against the point-by-point reference and by what must hold.
#include "support/cell_reference.hpp"
#include "support/fetches.hpp"
#include "support/fresh_host.hpp"
#include "support/sample_reference.hpp"

#include <gtest/gtest.h>

#include <numeric>

using namespace sample_reference;

namespace {

constexpr const char *no_search = "UTILfind_cell: unable to find interp_cell function\n";

// From here on nothing of what came before is seen: tables make status checks of their own.
template <typename Request> table_ptr place_in(Request *r, const meshes::test_mesh &made)
{
    r->made = &made;
    r->mesh = made.mesh;
    r->nspace = made.nspace;
    table_ptr table = table_of(made.mesh);
    r->table = table.get();
    host_calls::reset();
    return table;
}

// One float component without null data.
node_request<float> scalar_request(const std::vector<float> &data)
{
    node_request<float> r;
    r.veclens = {1};
    r.data = {data};
    r.max_values = {1000};
    r.null_flags = {0};
    r.null_values = {0};
    return r;
}

std::vector<float> affine_field(const meshes::test_mesh &m)
{
    return meshes::field_of<float>(m, [](double x, double y, double z) { return 3 * x - 2 * y + z + 5; });
}

// A segment from 0 to n - 1 with a node at each whole number, as a uniform mesh.
meshes::mesh_ptr ruler(qx_long n)
{
    return meshes::uniform({n}, 1, {0}, {static_cast<float>(n - 1)});
}

template <typename T> class NodeSampling : public FreshHost {
};
TYPED_TEST_SUITE(NodeSampling, arrays::all_types);

template <typename T> class CellSampling : public FreshHost {
};
TYPED_TEST_SUITE(CellSampling, arrays::all_types);

class Sampling : public FreshHost {};

} // namespace

// ---- node data ---------------------------------------------------------------------------------------------------

TYPED_TEST(NodeSampling, GivesWhatThePointsGiveOneByOneOnEveryMesh)
{
    using T = TypeParam;
    uint64_t seed = 1;
    qx_long found = 0, null_data_rows = 0;
    for (const named_mesh &m : all_meshes()) {
        SCOPED_TRACE(m.name);
        node_request<T> r;
        const table_ptr table = place_in(&r, *m.made);
        fill_node_data(&r, ++seed);
        r.points = points_about(*m.made, seed, 140, r.nspace);
        r.set_null = seed % 2 == 0;
        r.null_fill = 17;
        tally seen;
        const samples<T> expected = slow_sample(r, false, &seen);
        expect_same(sample(r), expected);
        EXPECT_GT(seen.missed, 0);
        EXPECT_GT(seen.found, m.can_locate ? 20 : -1);
        null_data_rows += seen.null_rows - 5 * seen.missed;
        found += seen.found;
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
    EXPECT_GT(null_data_rows, found / 10) << "too little null data was met";
    EXPECT_LT(null_data_rows, found);
}

TYPED_TEST(NodeSampling, TakesPointsThroughTheMatrixAndPadsThem)
{
    using T = TypeParam;
    // Into the middle of the box of the mesh.
    const float turn_in_space[16] = {0.5f, 0.2f, 0.1f, 0, -0.2f, 0.5f, 0,    0,
                                     0,    0.1f, 0.5f, 0, 0.3f,  0.1f, 0.2f, 1};
    const float turn_in_plane[16] = {0.5f, 0.2f, 0, 0, -0.2f, 0.5f, 0, 0, 0.1f, 0.1f, 0, 0, 0.3f, 0.1f, 0, 1};
    const meshes::mesh_ptr hexes = meshes::cells(CELL_HEX, 1, {4, 4, 4}, 5, 0.1);
    const meshes::mesh_ptr quads = meshes::cells(CELL_QUAD, 1, {4, 4, 4}, 5, 0.1, 2);
    for (const meshes::test_mesh *made : {hexes.get(), quads.get()})
        for (int nspace : {1, 2, 3})
            for (bool turned : {false, true}) {
                SCOPED_TRACE(std::to_string(made->nspace) + ", points of " + std::to_string(nspace));
                node_request<T> r;
                const table_ptr table = place_in(&r, *made);
                fill_node_data(&r, 8);
                r.nspace = nspace;
                r.points = meshes::random_values<float>(9, 200 * nspace, 0, 1);
                if (turned) r.xform = made->nspace == 3 ? turn_in_space : turn_in_plane;
                tally seen;
                const samples<T> expected = slow_sample(r, false, &seen);
                expect_same(sample(r), expected);
                EXPECT_GT(seen.found, turned ? 150 : nspace == made->nspace ? 100 : -1);
            }
}

TYPED_TEST(NodeSampling, WithoutANullValueOfItsOwnTakesOneBeyondTheData)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    node_request<T> r;
    const table_ptr table = place_in(&r, *made);
    r.veclens = {1, 1, 2, 1};
    for (int veclen : r.veclens)
        r.data.emplace_back(static_cast<size_t>(3 * veclen), static_cast<T>(5));
    const T largest = std::numeric_limits<T>::max();
    r.max_values = {static_cast<T>(9), largest, static_cast<T>(9), static_cast<T>(9)};
    r.null_flags = {0, 0, 0, 1};
    r.null_values.assign(4, 0);
    put<T>(&r.null_values, 3, 77);
    r.points = {-1, 0.5f};

    const samples<T> s = sample(r);
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.null_flags, (std::vector<int>{1, 1, 1, 1}));
    EXPECT_EQ(s.rows[0], (std::vector<T>{10, 5}));
    const T wrapped = std::is_floating_point_v<T> ? largest : std::numeric_limits<T>::lowest();
    EXPECT_EQ(s.rows[1], (std::vector<T>{wrapped, 5})) << "bytes wrap from 255 to 0";
    EXPECT_EQ(s.rows[2], (std::vector<T>{0, 0, 5, 5}));
    EXPECT_EQ(s.rows[3], (std::vector<T>{77, 5}));
    EXPECT_EQ(get<T>(s.null_values, 0), 10);
    EXPECT_EQ(get<T>(s.null_values, 1), wrapped);
    EXPECT_EQ(get<T>(s.null_values, 2), 0);
    EXPECT_EQ(get<T>(s.null_values, 3), 77);
}

TYPED_TEST(NodeSampling, TakesTheCallersFillForScalarsAlone)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    node_request<T> r;
    const table_ptr table = place_in(&r, *made);
    r.veclens = {1, 3, 1};
    for (int veclen : r.veclens)
        r.data.emplace_back(static_cast<size_t>(3 * veclen), static_cast<T>(5));
    r.null_flags = {0, 0, 1};
    r.null_values.assign(3, 0);
    put<T>(&r.null_values, 2, 77);
    r.points = {-1};
    r.set_null = 1;
    r.null_fill = 44.75; // max_values are not needed
    const samples<T> s = sample(r);
    EXPECT_EQ(s.rows[0][0], static_cast<T>(44.75));
    EXPECT_EQ(s.rows[1], (std::vector<T>{0, 0, 0}));
    EXPECT_EQ(s.rows[2][0], 77);
    EXPECT_EQ(get<T>(s.null_values, 0), static_cast<T>(44.75));
}

TYPED_TEST(NodeSampling, OfNoPointsSettlesTheNullValuesAndLeavesTheFlags)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    node_request<T> r;
    const table_ptr table = place_in(&r, *made);
    r.veclens = {1, 1};
    r.data.assign(2, std::vector<T>(3, 5));
    r.max_values = {7, 7};
    r.null_flags = {0, 6};
    r.null_values.assign(2, 0);
    put<T>(&r.null_values, 1, 3);
    const samples<T> s = sample(r);
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.null_flags, (std::vector<int>{0, 6}));
    EXPECT_EQ(get<T>(s.null_values, 0), 8);
    EXPECT_EQ(get<T>(s.null_values, 1), 3);
    EXPECT_TRUE(host_calls::seen().statuses.empty());
}

TYPED_TEST(NodeSampling, TruncatesTowardsZeroForIntegers)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(2);
    node_request<T> r;
    const table_ptr table = place_in(&r, *made);
    r.veclens = {1};
    const T end = std::is_signed_v<T> ? static_cast<T>(-10) : static_cast<T>(10);
    r.data = {{end, 0}};
    r.max_values = {10};
    r.null_flags = {0};
    r.null_values = {0};
    r.points = {0.25f, 0.75f, 0.9375f};
    const samples<T> s = sample(r);
    const float sign = std::is_signed_v<T> ? -1 : 1;
    EXPECT_EQ(s.rows[0], (std::vector<T>{static_cast<T>(sign * 7.5f), static_cast<T>(sign * 2.5f),
                                         static_cast<T>(sign * 0.625f)}));
    EXPECT_EQ(s.null_flags[0], 0);
}

TYPED_TEST(NodeSampling, OfANullNodeIsNullInItsCellsAlone)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(6);
    node_request<T> r;
    const table_ptr table = place_in(&r, *made);
    r.veclens = {1, 1};
    r.data.assign(2, std::vector<T>{5, 5, 99, 5, 5, 5});
    r.null_flags = {1, 0};
    r.max_values = {99, 99};
    r.null_values.assign(2, 0);
    put<T>(&r.null_values, 0, 99);
    r.points = {0.5f, 1.5f, 2.5f, 3.5f, 4.5f};
    const samples<T> s = sample(r);
    EXPECT_EQ(s.rows[0], (std::vector<T>{5, 99, 99, 5, 5}));
    EXPECT_EQ(s.rows[1], (std::vector<T>{5, 52, 52, 5, 5}));
    EXPECT_EQ(s.null_flags, (std::vector<int>{1, 0}));
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TYPED_TEST(NodeSampling, OutsideRaisesEveryFlagAndMakesNoDataNull)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(4);
    node_request<T> r;
    const table_ptr table = place_in(&r, *made);
    r.veclens = {1, 2};
    r.data = {std::vector<T>(4, 8), std::vector<T>(8, 0)};
    r.null_flags = {0, 0};
    r.max_values = {7, 7}; // the null value is 8, which the data holds
    r.null_values.assign(2, 0);
    r.points = {-1, 0.5f, 9, 1.5f};
    const samples<T> s = sample(r);
    EXPECT_EQ(s.null_flags, (std::vector<int>{1, 1}));
    EXPECT_EQ(s.rows[0], (std::vector<T>{8, 8, 8, 8}));

    // Without a flag of the caller's no row of data is null, whatever it holds and whatever lies outside.
    r.data = {{8, 8, 6, 6}, std::vector<T>(8, 0)};
    r.points = {-1, 1.5f};
    EXPECT_EQ(sample(r).rows[0], (std::vector<T>{8, 7}));
}

TYPED_TEST(NodeSampling, OfAnUnknownTypeIsReported)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    mesh_methods none = *made->mesh->methods, *own = made->mesh->methods;
    none.find_cell_func = nullptr;
    none.interp_data_func = nullptr;
    node_request<T> r;
    const table_ptr table = place_in(&r, *made);
    fill_node_data(&r, 1);
    r.points = {0.5f};
    made->mesh->methods = &none; // the type is looked at first
    for (int type : {-1, 7}) {
        host_calls::reset();
        samples<T> expected = before(r);
        expected.result = 0;
        expect_same(sample(r, type), expected);
        EXPECT_EQ(host_calls::seen().reports,
                  (std::vector<host_calls::report>{{"UTILinterpolate_data", 0, 2, "unknown data type"}}));
    }
    made->mesh->methods = own;
}

TYPED_TEST(NodeSampling, WithoutItsFunctionsSaysSoAndTouchesNothing)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    mesh_methods *own = made->mesh->methods;
    for (int empty : {0, 1}) {
        node_request<T> r;
        const table_ptr table = place_in(&r, *made);
        fill_node_data(&r, 1);
        r.points = {0.5f, 1.5f};
        mesh_methods some = *own;
        if (empty == 0) some.find_cell_func = nullptr;
        if (empty == 1) some.interp_data_func = nullptr;
        made->mesh->methods = &some;
        samples<T> expected = before(r);
        expected.result = 0;
        testing::internal::CaptureStderr();
        const samples<T> s = sample(r);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), no_search);
        made->mesh->methods = own;
        expect_same(s, expected);
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
}

// What a mesh's functions are called with, and what they answer.
namespace {

struct asked {
    qx_long cell;
    int veclen;
    const void *data;
    int data_type, null_flag;
    const void *null_value;
    int npts;
    float uvw[3];
};
std::vector<asked> questions;
std::vector<std::array<float, 3>> places;
int find_result, value_result;

int counted_find(mesh_info *, const blk_tbl *, const float *point, qx_long *cell, float *uvw)
{
    places.push_back({point[0], point[1], point[2]});
    *cell = static_cast<qx_long>(places.size()) + 100;
    for (int d = 0; d < 3; ++d)
        uvw[d] = point[d] / 2;
    return point[0] < 0 ? find_result : 1;
}

int recorded_value(mesh_info *, qx_long cell, int veclen, const void *data, int data_type, int null_flag,
                   const void *null_value, int npts, const float *uvw, float *out)
{
    questions.push_back(
        {cell, veclen, data, data_type, null_flag, null_value, npts, {uvw[0], uvw[1], uvw[2]}});
    std::fill_n(out, veclen, 12.0f);
    return uvw[1] < 0 ? value_result : 1;
}

} // namespace

TYPED_TEST(NodeSampling, AsksTheMeshsFunctionsWithTheCallersFlags)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    mesh_methods *own = made->mesh->methods, replaced = *own;
    replaced.find_cell_func = counted_find;
    replaced.interp_data_func = recorded_value;
    made->mesh->methods = &replaced;
    for (int no : {0, -1, 2}) {
        find_result = value_result = no;
        questions.clear();
        places.clear();
        node_request<T> r;
        r.made = made.get();
        r.mesh = made->mesh;
        fill_node_data(&r, 1);
        r.nspace = 2;
        r.points = {-1, 4, 1, 6, 2, -6, 3, 5};
        samples<T> s = before(r);
        pointers<T> data(r.data), out(s.rows);
        EXPECT_EQ(UTILinterpolate_data(r.npts(), r.points.data(), 2, nullptr, r.mesh, nullptr, 5,
                                       arrays::dtype_of<T>, r.veclens.data(), data.all.data(), nullptr,
                                       r.max_values.data(), s.null_flags.data(), s.null_values.data(), 0, 0,
                                       out.all.data()),
                  1);
        ASSERT_EQ(places.size(), 4u);
        EXPECT_EQ(places[2], (std::array<float, 3>{2, -6, 0}));
        ASSERT_EQ(questions.size(), 15u) << "three points of five components";
        for (size_t q = 0; q < questions.size(); ++q) {
            const size_t point = q / 5 + 1, j = q % 5;
            EXPECT_EQ(questions[q].cell, static_cast<qx_long>(point) + 101);
            EXPECT_EQ(questions[q].veclen, r.veclens[j]);
            EXPECT_EQ(questions[q].data, r.data[j].data());
            EXPECT_EQ(questions[q].data_type, arrays::dtype_of<T>);
            EXPECT_EQ(questions[q].null_flag, r.null_flags[j]) << "not raised by the first point";
            EXPECT_EQ(questions[q].null_value, &s.null_values[j]);
            EXPECT_EQ(questions[q].npts, 1);
            EXPECT_EQ(questions[q].uvw[1], places[point][1] / 2);
        }
        for (size_t j = 0; j < 5; ++j) {
            const T null = get<T>(s.null_values, j), value = 12;
            std::vector<T> expected;
            for (T row : {null, value, null, value})
                expected.insert(expected.end(), static_cast<size_t>(r.veclens[j]), row);
            EXPECT_EQ(s.rows[j], expected) << "result " << no;
        }
        EXPECT_EQ(s.null_flags, (std::vector<int>{1, 1, 1, 1, 1}));
    }
    made->mesh->methods = own;
}

TYPED_TEST(NodeSampling, ChecksForInterruptionEvery257thPoint)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = meshes::cells(CELL_TET, 1, {3, 3, 3}, 4, 0.1);
    node_request<T> r;
    const table_ptr table = place_in(&r, *made);
    fill_node_data(&r, 2);
    for (qx_long npts : {256, 257, 513, 514, 1100}) {
        r.points = points_about(*made, 4, npts, 3);
        host_calls::reset();
        expect_same(sample(r), slow_sample(r, false));
        std::vector<int> percents;
        for (qx_long i = 256; i < npts; i += 257)
            percents.push_back(static_cast<int>(static_cast<double>(i) * 100.0 / static_cast<double>(npts)));
        SCOPED_TRACE(npts);
        host_calls::expect_checks(percents);

        for (size_t k = 0; k < percents.size(); ++k) {
            host_calls::reset();
            host_calls::interrupt_at(static_cast<int>(k));
            host_calls::watch watch;
            const samples<T> s = sample(r);
            // Counted by the samples themselves, whose arrays are all alive.
            EXPECT_EQ(host_calls::seen().statuses.size(), k + 1);
            expect_same(s, slow_sample<T>(r, false, nullptr, static_cast<qx_long>(256 + 257 * k)));
            EXPECT_EQ(s.result, 0);
            EXPECT_EQ(s.null_flags, r.null_flags);
        }
    }
}

// ---- memory ------------------------------------------------------------------------------------------------------------

namespace {

// Outputs made beforehand, so that what is allocated within run() is the library's.
template <typename T> struct prepared {
    const node_request<T> &r;
    samples<T> s;
    pointers<T> data, out;

    explicit prepared(const node_request<T> &request)
        : r(request), s(before(request)), data(r.data), out(s.rows)
    {
    }

    void run()
    {
        s.result = UTILinterpolate_data(r.npts(), r.points.data(), r.nspace, r.xform, r.mesh, r.table,
                                        static_cast<int>(r.veclens.size()), arrays::dtype_of<T>,
                                        r.veclens.data(), data.all.data(), nullptr,
                                        const_cast<T *>(r.max_values.data()), s.null_flags.data(),
                                        s.null_values.data(), r.set_null, r.null_fill, out.all.data());
    }
};

} // namespace

TYPED_TEST(NodeSampling, DoesWithoutWhatMemoryItIsRefused)
{
    using T = TypeParam;
    const meshes::mesh_ptr hexes = meshes::cells(CELL_HEX, 1, {4, 4, 4}, 5, 0.1);
    const meshes::mesh_ptr rect = meshes::rectilinear({5, 4, 3}, 3, {0, 0, 0}, {1, 1, 1}, 3);
    for (const meshes::test_mesh *made : {hexes.get(), rect.get()}) {
        node_request<T> r;
        const table_ptr table = place_in(&r, *made);
        fill_node_data(&r, 2);
        r.points = points_about(*made, 4, 600, 3);
        const samples<T> expected = slow_sample(r, false);
        int allocations = 0;
        for (int k = -1; k < allocations; ++k) {
            host_calls::reset();
            prepared<T> call(r);
            long left;
            {
                host_calls::watch watch;
                if (k >= 0) host_calls::fail_allocation(k);
                call.run();
                if (k < 0) allocations = watch.allocations();
                left = watch.live_blocks();
            }
            EXPECT_EQ(left, 0) << "allocation " << k;
            expect_same(call.s, expected);
            EXPECT_TRUE(host_calls::seen().reports.empty());
            // Working arrays must be had; what only makes the search quicker need not.
            EXPECT_EQ(host_calls::seen().out_of_memory.size(), k == 0 || k == 1 ? 1u : 0u);
        }
        EXPECT_GT(allocations, 2);
    }
}

TYPED_TEST(NodeSampling, LeavesNothingBehindWhenInterrupted)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {4, 4, 4}, 5, 0.1);
    node_request<T> r;
    const table_ptr table = place_in(&r, *made);
    fill_node_data(&r, 2);
    r.points = points_about(*made, 4, 1100, 3);
    for (int k = 0; k < 4; ++k) {
        host_calls::reset();
        host_calls::interrupt_at(k);
        prepared<T> call(r);
        long left;
        {
            host_calls::watch watch;
            call.run();
            left = watch.live_blocks();
        }
        EXPECT_EQ(left, 0);
        EXPECT_EQ(call.s.result, 0);
    }
}

TEST_F(Sampling, AllocatesNothingByThePoint)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {4, 4, 4}, 5, 0.1);
    node_request<double> r;
    const table_ptr table = place_in(&r, *made);
    fill_node_data(&r, 2);
    std::vector<int> allocations;
    for (qx_long npts : {600, 3000}) {
        r.points = points_about(*made, 4, npts, 3);
        prepared<double> call(r);
        host_calls::watch watch;
        call.run();
        allocations.push_back(watch.allocations());
    }
    EXPECT_EQ(allocations[0], allocations[1]);
}

TEST_F(Sampling, OfMorePointsThanAreLocatedTogetherIsTheSame)
{
    const meshes::mesh_ptr hexes = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 5, 0.1);
    const meshes::mesh_ptr even = meshes::uniform({4, 3, 5}, 3, {0, 0, 0}, {1, 1, 1});
    for (const meshes::test_mesh *made : {hexes.get(), even.get()}) {
        node_request<float> r = scalar_request(affine_field(*made));
        const table_ptr table = place_in(&r, *made);
        const qx_long npts = made == hexes.get() ? (1 << 18) + 700 : 5000;
        const std::vector<float> all = meshes::random_values<float>(8, 3 * npts, -0.1, 1.1);
        r.points = all;
        const samples<float> s = sample(r);
        EXPECT_EQ(s.null_flags[0], 1);
        for (qx_long first = 0; first < npts; first += npts / 3 + 1) {
            const qx_long end = std::min(npts, first + npts / 3 + 1);
            r.points.assign(all.begin() + 3 * first, all.begin() + 3 * end);
            const samples<float> part = sample(r);
            EXPECT_TRUE(std::equal(part.rows[0].begin(), part.rows[0].end(), s.rows[0].begin() + first))
                << "from point " << first;
        }
    }
}

// With an extent far beyond the cells, all of them lie in one block: fewer points are then located together.
TEST_F(Sampling, OfPointsInALongListIsThatOfEachAlone)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {13, 13, 13}, 1, 0.2);
    for (int d = 0; d < 3; ++d)
        made->mesh->max_ext[d] = 1000;
    node_request<float> r = scalar_request(affine_field(*made));
    const table_ptr table = place_in(&r, *made);
    ASSERT_EQ(table->list_used, made->mesh->ncells + 1);
    const qx_long npts = 100000;
    const std::vector<float> all = meshes::random_values<float>(8, 3 * npts, -0.1, 1.1);
    r.points = all;
    const samples<float> s = sample(r);
    for (qx_long i = 0; i < npts; i += 97) {
        r.points.assign(all.begin() + 3 * i, all.begin() + 3 * i + 3);
        EXPECT_EQ(sample(r).rows[0][0], s.rows[0][static_cast<size_t>(i)]) << "point " << i;
    }
}

// ---- fetches -------------------------------------------------------------------------------------------------------------

TEST_F(Sampling, ReportsOnceAPointWhatCanNotBeFetched)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 5, 0.1);
    node_request<float> r = scalar_request(affine_field(*made));
    const table_ptr table = place_in(&r, *made);
    r.points = {0.25f, 0.25f, 0.25f, 0.75f, 0.75f, 0.25f, 0.75f, 0.75f, 0.75f};
    const samples<float> sound = sample(r);
    EXPECT_EQ(sound.null_flags[0], 0);
    r.mesh->coords = nullptr;
    {
        failing_fetches fetches(r.mesh);
        fetches.fail_coords = 2;
        host_calls::reset();
        const samples<float> s = sample(r);
        EXPECT_EQ(s.result, 1);
        EXPECT_EQ(s.rows[0], (std::vector<float>{1001, 1001, sound.rows[0][2]}));
        EXPECT_EQ(s.null_flags[0], 1);
        EXPECT_EQ(host_calls::report_texts(),
                  std::vector<std::string>(2, "fld_info: unable to get field coordinates"));
        EXPECT_EQ(fetches.coords_calls, 3);
    }
    r.mesh->cell_connect[0] = nullptr;
    failing_fetches fetches(r.mesh);
    fetches.fail_connect_of_set = 0;
    host_calls::reset();
    const samples<float> s = sample(r);
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.rows[0], std::vector<float>(3, 1001));
    EXPECT_GE(host_calls::seen().reports.size(), 3u);
    for (const std::string &text : host_calls::report_texts())
        EXPECT_EQ(text, "fld_info: unable to get cell set connect list");
}

TEST_F(Sampling, WithoutATestOfCellsHasNoValuesAndSaysSoOnceAPoint)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 5, 0.1);
    mesh_methods *own = made->mesh->methods, some = *own;
    node_request<float> r = scalar_request(affine_field(*made));
    const table_ptr table = place_in(&r, *made);
    r.points = std::vector<float>(3 * 100, 0.3f);
    some.interp_cell_func = nullptr;
    made->mesh->methods = &some;
    testing::internal::CaptureStderr();
    const samples<float> s = sample(r);
    std::string lines;
    for (int i = 0; i < 100; ++i)
        lines += no_search;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), lines);
    made->mesh->methods = own;
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.rows[0], std::vector<float>(100, 1001));
}

// ---- exactness -------------------------------------------------------------------------------------------------------------

// The mapping back stops short of the point by up to a twentieth of a cell's parameters. What is sampled is
// what the fields are where it stopped: told by sampling the coordinates themselves.
TEST_F(Sampling, OfFieldsTheCellsHoldExactlyIsExactWhereTheSearchEnds)
{
    qx_long checked = 0;
    for (const named_mesh &m : all_meshes()) {
        if (!m.can_locate) continue;
        SCOPED_TRACE(m.name);
        const meshes::test_mesh &made = *m.made;
        const int nspace = made.nspace;
        // Straight-edged cells of second order hold linear fields; so do those of first order.
        node_request<double> r;
        const table_ptr table = place_in(&r, made);
        r.veclens = {1, nspace};
        r.null_flags = {0, 0};
        r.null_values.assign(2, 0);
        r.set_null = 1;
        r.data = {meshes::field_of<double>(
                      made, [](double x, double y, double z) { return 3 * x - 2 * y + z + 5; }),
                  std::vector<double>(made.coords.begin(), made.coords.end())};
        r.points = points_about(made, 7, 400, nspace);
        const samples<double> s = sample(r);
        const box about(made);
        double size = 0;
        for (int d = 0; d < 3; ++d)
            size = std::max(size, static_cast<double>(about.hi[d] - about.lo[d]));
        for (qx_long i = 0; i < r.npts(); ++i) {
            if (s.rows[0][static_cast<size_t>(i)] == 0) continue;
            double at[3] = {0, 0, 0};
            for (int d = 0; d < nspace; ++d) {
                at[d] = s.rows[1][static_cast<size_t>(i * nspace + d)];
                EXPECT_NEAR(at[d], static_cast<double>(r.points[static_cast<size_t>(i * nspace + d)]),
                            0.06 * size)
                    << "point " << i;
            }
            EXPECT_NEAR(s.rows[0][static_cast<size_t>(i)], 3 * at[0] - 2 * at[1] + at[2] + 5, 2e-5)
                << "point " << i;
            ++checked;
        }
    }
    EXPECT_GT(checked, 3000);
}

TEST_F(Sampling, OfQuadraticFieldsIsExactInEvenCellsOfSecondOrder)
{
    const auto bowl = [](double x, double y, double z) {
        return x * x + y * z - 2 * z * z + x * y + 3 * x + 1;
    };
    for (int kind : {CELL_LINE, CELL_TRI, CELL_QUAD, CELL_TET, CELL_HEX}) {
        SCOPED_TRACE(kind);
        const meshes::mesh_ptr made = meshes::cells(kind, 2, {3, 3, 3}, 1);
        node_request<double> r;
        const table_ptr table = place_in(&r, *made);
        r.veclens = {1, 3};
        r.null_flags = {0, 0};
        r.null_values.assign(2, 0);
        r.set_null = 1;
        r.data = {meshes::field_of<double>(*made, bowl),
                  std::vector<double>(made->coords.begin(), made->coords.end())};
        r.points = points_about(*made, 3, 300, 3);
        const samples<double> s = sample(r);
        int checked = 0;
        for (size_t i = 0; i < 300; ++i) {
            if (s.rows[0][i] == 0) continue;
            const double *at = &s.rows[1][3 * i];
            EXPECT_NEAR(s.rows[0][i], bowl(at[0], at[1], at[2]), 1e-5);
            ++checked;
        }
        EXPECT_GT(checked, 50);
    }
}

// Where the mapping is closed, or its first step is right at once, linear fields come out at the point itself.
TEST_F(Sampling, OfLinearFieldsIsExactWhereTheMappingIs)
{
    std::vector<meshes::mesh_ptr> exact;
    exact.push_back(meshes::cells(CELL_TET, 1, {4, 4, 4}, 5, 0.15));
    exact.push_back(meshes::cells(CELL_TRI, 1, {5, 5, 1}, 5, 0.15, 2));
    exact.push_back(meshes::cells(CELL_LINE, 1, {9, 1, 1}, 5, 0.15, 1));
    for (const lattices::shape &s : lattices::in_every_space({{9}, {5, 4}, {5, 4, 3}})) {
        exact.push_back(meshes::uniform(s.dims, s.nspace, {0.1f, -2.3f, 7.7f}, {1.9f, -0.4f, 8.1f}));
        exact.push_back(meshes::rectilinear(s.dims, s.nspace, {0.1f, -2.3f, 7.7f}, {1.9f, -0.4f, 8.1f}, 2));
    }
    for (const meshes::mesh_ptr &made : exact) {
        node_request<float> r = scalar_request(affine_field(*made));
        const table_ptr table = place_in(&r, *made);
        r.points = points_about(*made, 7, 400, made->nspace);
        const samples<float> s = sample(r);
        const box about(*made);
        int checked = 0;
        for (qx_long i = 0; i < r.npts(); ++i) {
            const float value = s.rows[0][static_cast<size_t>(i)];
            if (value == 1001) continue;
            double x[3] = {0, 0, 0};
            for (int d = 0; d < made->nspace; ++d) {
                // Compact meshes are flat beyond their axes, and take what lies between their corners there.
                const bool is_flat = made->ndim > 0 && d >= made->ndim;
                x[d] = is_flat ? about.lo[d] : r.points[static_cast<size_t>(i * made->nspace + d)];
            }
            EXPECT_NEAR(static_cast<double>(value), 3 * x[0] - 2 * x[1] + x[2] + 5, 1e-4);
            ++checked;
        }
        EXPECT_GT(checked, 100);
    }
}

// ---- cell data -------------------------------------------------------------------------------------------------------------

namespace {

// One array a set, in another order than the sets, and one set without.
template <typename T> void fill_cell_data(cell_request<T> *r, int veclen, uint64_t seed)
{
    const int nsets = r->mesh->ncell_sets;
    r->veclen = veclen;
    r->set_map.clear();
    r->data.assign(static_cast<size_t>(nsets), {});
    const std::vector<T> edges = arrays::edge_values<T>();
    std::mt19937_64 random(seed);
    for (int set = 0; set < nsets; ++set) {
        r->set_map.push_back(nsets - 1 - set);
        std::vector<T> *rows = &r->data[static_cast<size_t>(nsets - 1 - set)];
        for (qx_long k = 0; k < r->mesh->cell_count[set] * veclen; ++k)
            rows->push_back(random() % 4 == 0 ? edges[random() % edges.size()]
                                              : static_cast<T>(random() % 100));
    }
    if (nsets > 2) r->set_map[1] = -1;
}

} // namespace

TYPED_TEST(CellSampling, GivesTheRowOfTheCellThatHoldsThePoint)
{
    using T = TypeParam;
    uint64_t seed = 1;
    qx_long null_though_found = 0;
    for (const named_mesh &m : all_meshes())
        for (int veclen : {1, 3}) {
            SCOPED_TRACE(m.name);
            cell_request<T> r;
            const table_ptr table = place_in(&r, *m.made);
            fill_cell_data(&r, veclen, ++seed);
            r.points = points_about(*m.made, seed, 120, r.nspace);
            r.null_flag = seed / 2 % 2 == 0 ? 3 : 0;
            put<T>(&r.null_value, 0, 88);
            r.max_value = seed % 4 == 1 ? std::numeric_limits<T>::max() : 99;
            tally seen;
            const samples<T> expected = slow_sample(r, false, &seen);
            expect_same(sample(r), expected);
            EXPECT_GT(seen.found, m.can_locate ? 20 : -1);
            EXPECT_GT(seen.missed, 0);
            null_though_found += seen.null_rows - seen.missed;
            EXPECT_TRUE(host_calls::seen().reports.empty());
            EXPECT_TRUE(host_calls::seen().statuses.empty());
        }
    EXPECT_GT(null_though_found, 0);
}

// A structured cell goes by its lowest node, and the row is looked up by that number as it is.
TYPED_TEST(CellSampling, OfStructuredMeshesGoesByTheLowestNode)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = meshes::uniform({4, 3}, 2, {0, 0}, {3, 2}); // 6 cells, 12 nodes
    cell_request<T> r;
    const table_ptr table = place_in(&r, *made);
    r.set_map = {0};
    r.data = {{10, 11, 12, 13, 14, 15}};
    r.max_value = 15;
    r.points = {0.5f, 0.5f, 2.5f, 0.5f, 0.5f, 1.5f, 1.5f, 1.5f, 2.5f, 1.5f};
    const samples<T> s = sample(r);
    EXPECT_EQ(s.rows[0], (std::vector<T>{10, 12, 14, 15, 16})) << "the cell at node 6 has no row";
    EXPECT_EQ(s.null_flags[0], 1);
}

TYPED_TEST(CellSampling, OfNoPointsSettlesTheNullValue)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    for (int veclen : {1, 2})
        for (int flag : {0, 5}) {
            cell_request<T> r;
            const table_ptr table = place_in(&r, *made);
            fill_cell_data(&r, veclen, 1);
            r.max_value = std::numeric_limits<T>::max();
            r.null_flag = flag;
            put<T>(&r.null_value, 0, 88);
            const samples<T> s = sample(r);
            EXPECT_EQ(s.result, 1);
            EXPECT_EQ(s.null_flags[0], flag);
            EXPECT_EQ(get<T>(s.null_values, 0), (flag != 0    ? static_cast<T>(88)
                                                 : veclen > 1 ? static_cast<T>(0)
                                                              : one_more(r.max_value)));
        }
}

TYPED_TEST(CellSampling, NeedsTheSearchAloneAndAKnownType)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    mesh_methods *own = made->mesh->methods, some = *own;
    cell_request<T> r;
    const table_ptr table = place_in(&r, *made);
    fill_cell_data(&r, 1, 1);
    r.points = {0.5f};
    some.interp_data_func = nullptr;
    made->mesh->methods = &some;
    EXPECT_EQ(sample(r).rows[0][0], r.data[0][0]);
    some.find_cell_func = nullptr;
    samples<T> expected = before(r);
    expected.result = 0;
    testing::internal::CaptureStderr();
    const samples<T> s = sample(r);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), no_search);
    expect_same(s, expected);
    expect_same(sample(r, 7), expected);
    EXPECT_EQ(host_calls::seen().reports,
              (std::vector<host_calls::report>{{"UTILinterpolate_cell_data", 0, 2, "unknown data type"}}));
    made->mesh->methods = own;
}

TYPED_TEST(CellSampling, DoesWithoutWhatMemoryItIsRefused)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {4, 4, 4}, 5, 0.1);
    cell_request<T> r;
    const table_ptr table = place_in(&r, *made);
    fill_cell_data(&r, 1, 1);
    r.points = points_about(*made, 4, 600, 3);
    const samples<T> expected = slow_sample(r, false);
    int allocations = 0;
    for (int k = -1; k < allocations; ++k) {
        samples<T> s = before(r);
        pointers<T> data(r.data);
        long left;
        {
            host_calls::watch watch;
            if (k >= 0) host_calls::fail_allocation(k);
            s.result = UTILinterpolate_cell_data(r.npts(), r.points.data(), 3, nullptr, r.mesh, r.table,
                                                 r.set_map.data(), arrays::dtype_of<T>, 1, data.all.data(),
                                                 nullptr, &r.max_value, s.null_flags.data(),
                                                 s.null_values.data(), s.rows[0].data());
            if (k < 0) allocations = watch.allocations();
            left = watch.live_blocks();
        }
        EXPECT_EQ(left, 0);
        expect_same(s, expected);
    }
    EXPECT_TRUE(host_calls::seen().out_of_memory.empty());
}

// ---- meshes that are none -----------------------------------------------------------------------------------------------

// Folded and collapsed cells, coordinates that are no numbers, points that are none, lists that name cells
// which are not there: always what the points give one by one.
TEST_F(Sampling, OfRuinedMeshesGivesWhatThePointsGiveOneByOne)
{
    std::mt19937_64 random(2024);
    const float odd[] = {std::numeric_limits<float>::quiet_NaN(),
                         std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity(),
                         1e30f,
                         -1e30f,
                         1e-38f,
                         0};
    tally seen;
    int bad_entries = 0;
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        meshes::mesh_ptr made;
        if (round % 4 == 0) {
            made = meshes::curvilinear({5, 4, 3}, 3, {0, 0, 0}, {1, 1, 1}, random(), 0.3);
        } else if (round % 4 == 1) {
            made = meshes::mixed({CELL_HEX, CELL_TET, CELL_PRISM, CELL_PYR}, {1, 2, 2, 1}, 1, random(), 0.2);
        } else {
            const cell_reference::cell_functions &cell =
                cell_reference::cells[random() % std::size(cell_reference::cells)];
            made = meshes::cells(cell.kind, cell.order, {3, 2, 2}, random(), 0.4);
        }
        node_request<float> r;
        const table_ptr table = place_in(&r, *made);
        // Ruined after the table was made, too: what it lists need not be what is there.
        const size_t ncoords = made->coords.size(), many = random() % (ncoords / 4 + 1);
        for (size_t k = 0; k < many; ++k)
            switch (random() % 3) {
            case 0: made->coords[random() % ncoords] = odd[random() % std::size(odd)]; break;
            case 1: made->coords[random() % ncoords] = made->coords[random() % ncoords]; break;
            default:
                for (size_t d = 0, from = random() % (ncoords / 3), to = random() % (ncoords / 3); d < 3; ++d)
                    made->coords[3 * to + d] = made->coords[3 * from + d];
            }
        table_ptr late;
        if (round % 2 == 0) {
            late = table_of(made->mesh);
            r.table = late.get();
        }
        for (int k = 0; round % 3 == 0 && k < 20; ++k) {
            const blk_tbl *t = r.table;
            if (t->list_used < 2) continue;
            const qx_long entry =
                1 + static_cast<qx_long>(random() % static_cast<uint64_t>(t->list_used - 1));
            const qx_long ids[] = {-1, -100, r.mesh->ncells, r.mesh->nnodes,
                                   std::numeric_limits<qx_long>::max() / 2};
            t->cell_list[entry] = ids[random() % std::size(ids)];
            ++bad_entries;
        }
        r.veclens = {1, 2};
        for (int veclen : r.veclens)
            r.data.push_back(meshes::random_values<float>(random(), made->nnodes() * veclen, -5, 5));
        r.null_flags = {0, 1};
        r.max_values = {5, 5};
        r.null_values.assign(2, 0);
        r.points = meshes::random_values<float>(random(), 3 * 150, -0.1, 1.1);
        for (int k = 0; k < 10; ++k)
            r.points[random() % r.points.size()] = odd[random() % std::size(odd)];
        const samples<float> expected = slow_sample(r, false, &seen);
        expect_same(sample(r), expected);
    }
    EXPECT_GT(seen.found, 2000);
    EXPECT_GT(seen.missed, 2000);
    EXPECT_GT(bad_entries, 500);
}
