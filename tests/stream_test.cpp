#include "support/fetches.hpp"
#include "support/fresh_host.hpp"
#include "support/sample_reference.hpp"
#include "support/trace_reference.hpp"

#include <skoklana.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace reference = trace_reference;
using reference::field;
using reference::line;
using reference::line_request;
using sample_reference::table_of;
using sample_reference::table_ptr;

namespace {

const char *const no_function_line = "UTILfind_cell: unable to find interp_cell function\n";
const double turn = 2 * std::acos(-1.0);

meshes::mesh_ptr wide_cube(qx_long n = 9)
{
    return meshes::uniform({n, n, n}, 3, {-1, -1, -1}, {1, 1, 1});
}

std::array<double, 3> to_the_right(double, double, double)
{
    return {1, 0, 0};
}

std::array<double, 3> around_z(double x, double y, double)
{
    return {-y, x, 0.1};
}

line_request request_on(const field &f, std::vector<float> start, int max_nodes)
{
    line_request r;
    r.of = f;
    r.start = std::move(start);
    r.max_nodes = max_nodes;
    return r;
}

int total(const reference::line_tally &t)
{
    return t.outside + t.no_value + t.slow + t.stage + t.too_fast + t.full;
}

// Traces on a mesh against the slow form: fields of all types and row lengths, from seeds in and around it.
void compare_on(const meshes::test_mesh &m, const std::string &name, int ntraces,
                reference::line_tally *tally, qx_long *nodes)
{
    SCOPED_TRACE(name);
    const table_ptr table = table_of(m.mesh);
    const std::vector<float> seeds = sample_reference::points_about(m, 12, ntraces, m.nspace);
    std::mt19937_64 random(8);
    host_calls::reset();
    for (int i = 0; i < ntraces; ++i) {
        const int type = static_cast<int>(random() % 7), veclen = i % 5 == 4 ? 1 + i / 5 % 2 : 3;
        field f;
        const double sign = type == DTYPE_BYTE ? 0 : 1;
        if (i % 3 == 0) { // at random
            f.veclen = veclen;
            f.type = type;
            f.data = reference::as_type(
                type, meshes::random_values<double>(random(), m.nnodes() * veclen, -40 * sign, 40));
        } else { // around an axis through the middle of the mesh
            const sample_reference::box about(m);
            f = reference::vectors_of(
                m,
                [&](double x, double y, double z) {
                    const double u = x - (about.lo[0] + about.hi[0]) / 2.0,
                                 v = y - (about.lo[1] + about.hi[1]) / 2.0;
                    return std::array<double, 3>{-60 * v + 5 * sign, 60 * u, 9 * (z - about.lo[2])};
                },
                veclen, type);
        }
        f.mesh = m.mesh;
        f.table = table.get();
        f.null_flag = i % 7 == 6;
        const size_t size = static_cast<size_t>(DTYPEtype_size(type));
        const size_t row = random() % static_cast<size_t>(m.nnodes()) * static_cast<size_t>(veclen) * size;
        f.null_value.assign(f.data.begin() + static_cast<long>(row),
                            f.data.begin() + static_cast<long>(row + size));
        line_request r = request_on(f, {}, i % 6 == 5 ? 1 + i % 3 : 40);
        r.start.assign(seeds.begin() + i * m.nspace, seeds.begin() + (i + 1) * m.nspace);
        r.order = 1 + static_cast<int>(random() % 4);
        r.direction = random() % 2 == 0 ? 1 : -1;
        r.nseg = 1 + static_cast<int>(random() % 3);
        r.min_speed = i % 4 == 3 ? 8.0 : 0.0;
        r.record = i % 8 != 1;
        const line expected = reference::slow_line(r, tally);
        const host_calls::watch watch;
        const line made = reference::run_line(r);
        ASSERT_EQ(reference::difference(made, expected), "")
            << "trace " << i << ", type " << type << ", order " << r.order;
        *nodes += made.count;
    }
    EXPECT_TRUE(host_calls::seen().statuses.empty());
}

// ---- functions of a mesh that stand in for its own ---------------------------------------------------------------

struct line_script {
    float wander = 0.4f;       // what u grows by at each point located
    std::vector<float> speeds; // along x, in turn; the last one stays
    size_t samples = 0;
    int locate_result = 1;
    int located_until_error = 1 << 30; // so many points are found; then the search fails
    int extent_calls = 0;
    bool has_extents = true;
    float sides[3] = {0.5f, 0.25f, 1};
    int located = 0;
} script;

int find_by_script(mesh_info *, const blk_tbl *, const float *p, qx_long *cell, float *uvw)
{
    uvw[0] = script.wander * static_cast<float>(script.located++);
    uvw[1] = uvw[2] = 0;
    *cell = static_cast<qx_long>(p[0]);
    return script.located > script.located_until_error ? script.locate_result : 1;
}

int sample_by_script(mesh_info *, qx_long, int veclen, const void *, int, int, const void *, int,
                     const float *, float *out)
{
    std::fill_n(out, veclen, 0.0f);
    out[0] = script.speeds[std::min(script.samples++, script.speeds.size() - 1)];
    return 1;
}

int extent_by_script(mesh_info *, qx_long, float *min, float *max)
{
    ++script.extent_calls;
    if (!script.has_extents) return 0;
    for (int d = 0; d < 3; ++d) {
        min[d] = 1;
        max[d] = 1 + script.sides[d];
    }
    return 1;
}

struct scripted : reference::own_methods {
    scripted(mesh_info *of, std::vector<float> speeds) : own_methods(of)
    {
        script = {};
        script.speeds = std::move(speeds);
        table.find_cell_func = find_by_script;
        table.interp_data_func = sample_by_script;
        table.cell_extent_func = extent_by_script;
    }
};

class StreamLine : public FreshHost {};

} // namespace

// ---- all of it, against the slow form ------------------------------------------------------------------------

TEST_F(StreamLine, AgreesWithTheSlowFormOnAllMeshKinds)
{
    reference::line_tally tally;
    qx_long nodes = 0;
    int traces = 0;
    for (const sample_reference::named_mesh &m : sample_reference::all_meshes()) {
        compare_on(*m.made, m.name, 40, &tally, &nodes);
        traces += 40;
    }
    EXPECT_EQ(total(tally), traces);
    for (int reached : {tally.outside, tally.no_value, tally.slow, tally.stage, tally.full, tally.entered,
                        tally.adapted, tally.kept})
        EXPECT_GT(reached, 30) << "the fields no longer reach all branches";
    EXPECT_GT(tally.retried, 300);
    EXPECT_GT(tally.leaps, 0);
    EXPECT_GT(nodes, 5000);
}

// Lists of more cells than are kept at hand, and lines from block to block.
TEST_F(StreamLine, AgreesWithTheSlowFormWhereListsAreLong)
{
    reference::line_tally tally;
    qx_long nodes = 0;
    compare_on(*meshes::curvilinear({40, 40, 11}, 3, {0, 0, 0}, {1, 1, 1}, 3, 0.4), "curvilinear, distorted",
               60, &tally, &nodes);
    compare_on(*meshes::cells(CELL_TET, 1, {12, 12, 12}, 3, 0.25), "tets", 60, &tally, &nodes);
    compare_on(*meshes::cells(CELL_TRI, 1, {30, 30}, 3, 0.2), "triangles in space", 40, &tally, &nodes);
    // A box that is much longer than most cells: nearly all lie in one block.
    std::vector<float> coords;
    std::vector<qx_long> connect;
    const meshes::mesh_ptr fine = meshes::cells(CELL_HEX, 1, {10, 10, 10}, 4, 0.2);
    coords = fine->coords;
    connect = fine->connect[0];
    for (int k = 0; k < 2; ++k)
        coords.insert(coords.end(), {20.0f * static_cast<float>(k) - 0.01f, 0, 0});
    compare_on(*meshes::from_cells(3, coords, {CELL_HEX, CELL_LINE}, {1, 1},
                                   {connect, {fine->nnodes(), fine->nnodes() + 1}}),
               "hexes in one block", 60, &tally, &nodes);
    compare_on(*meshes::rectilinear({40, 30, 20}, 3, {0, 0, 0}, {1, 1, 1}, 3), "rectilinear", 60, &tally,
               &nodes);
    EXPECT_GT(nodes, 2000);
    EXPECT_GT(tally.retried, 100);
}

TEST_F(StreamLine, AxesThatDoNotAscendAreSearchedFromTheirStart)
{
    const std::vector<float> folded = {0, 0.5f, 0.25f, 0.75f, 1};
    const float *axes[3] = {folded.data(), folded.data(), folded.data()};
    const qx_long dims[3] = {5, 5, 5};
    meshes::test_mesh m;
    m.ndim = 3;
    m.dims = {5, 5, 5};
    for (float z : folded)
        for (float y : folded)
            for (float x : folded)
                m.coords.insert(m.coords.end(), {x, y, z});
    m.field = host_rectilinear(3, dims, 3, axes);
    m.mesh = host_mesh(m.field);
    ASSERT_NE(m.mesh, nullptr);
    reference::line_tally tally;
    qx_long nodes = 0;
    compare_on(m, "folded axes", 60, &tally, &nodes);
    EXPECT_GT(nodes, 200);
}

// Where one of the mesh's functions is not the library's, each point goes by it.
TEST_F(StreamLine, FunctionsOfTheHostAreCalled)
{
    const meshes::mesh_ptr made = meshes::curvilinear({9, 9, 9}, 3, {0, 0, 0}, {1, 1, 1}, 3);
    const table_ptr table = table_of(made->mesh);
    field f = reference::vectors_of(*made, [](double x, double y, double) {
        return std::array<double, 3>{0.5 - y, x - 0.5, 0.1};
    });
    f.table = table.get();
    const line_request r = request_on(f, {0.7f, 0.5f, 0.2f}, 60);
    const line expected = reference::run_line(r);
    ASSERT_GT(expected.count, 30);
    static int finds, tests, samples;
    finds = tests = samples = 0;
    const auto find = [](mesh_info *m, const blk_tbl *t, const float *p, qx_long *c, float *uvw) {
        return ++finds, UTILfind_cell(m, t, p, c, uvw);
    };
    const auto test = [](mesh_info *m, qx_long c, const float *p, int box, double tol, float *uvw) {
        return ++tests, UTILinterp_cell_uvw_struct(m, c, p, box, tol, uvw);
    };
    const auto sample = [](mesh_info *m, qx_long c, int veclen, const void *d, int type, int flag,
                           const void *null, int n, const float *uvw, float *out) {
        return ++samples, UTILinterp_cell_val_struct(m, c, veclen, d, type, flag, null, n, uvw, out);
    };
    for (int which = 0; which < 3; ++which) {
        reference::own_methods methods(f.mesh);
        if (which == 0) methods.table.find_cell_func = find;
        if (which == 1) methods.table.interp_cell_func = test;
        if (which == 2) methods.table.interp_data_func = sample;
        EXPECT_EQ(reference::difference(reference::run_line(r), expected), "");
    }
    EXPECT_GE(finds, 4 * expected.count);
    EXPECT_GE(tests, 4 * expected.count);
    EXPECT_GE(samples, 4 * expected.count);
}

// ---- checks on entry --------------------------------------------------------------------------------------------

TEST_F(StreamLine, MissingFunctionLeavesTheCount)
{
    const meshes::mesh_ptr made = wide_cube();
    const line_request r = request_on(reference::vectors_of(*made, to_the_right), {0, 0, 0}, 5);
    for (int missing = 0; missing < 3; ++missing) {
        reference::own_methods methods(made->mesh);
        if (missing == 0) methods.table.find_cell_func = nullptr;
        if (missing == 1) methods.table.interp_data_func = nullptr;
        if (missing == 2) methods.table.cell_extent_func = nullptr;
        testing::internal::CaptureStderr();
        const line made_line = reference::run_line(r);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), no_function_line);
        EXPECT_EQ(made_line.result, 0);
        EXPECT_EQ(made_line.count, -9);
    }
}

TEST_F(StreamLine, WithoutRoomThereIsNoNode)
{
    const meshes::mesh_ptr made = wide_cube();
    for (int room : {0, -4}) {
        const line l =
            reference::run_line(request_on(reference::vectors_of(*made, to_the_right), {0, 0, 0}, room));
        EXPECT_EQ(l.result, 1);
        EXPECT_EQ(l.count, 0);
        EXPECT_EQ(l.work[0], 55);
    }
}

TEST_F(StreamLine, LongRowsAndManyAxesMakeNoNode)
{
    const meshes::mesh_ptr made = wide_cube();
    line_request r = request_on(reference::vectors_of(*made, to_the_right), {0, 0, 0, 0}, 5);
    r.of.veclen = 4;
    testing::internal::CaptureStderr();
    line l = reference::run_line(r);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "UTILintegrate: veclen is greater than 3\n");
    EXPECT_EQ(l.result, 1);
    EXPECT_EQ(l.count, 0);
    r.of.veclen = 3;
    made->mesh->nspace = 4;
    testing::internal::CaptureStderr();
    l = reference::run_line(r);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "UTILintegrate: nspace is greater than 3\n");
    EXPECT_EQ(l.result, 1);
    EXPECT_EQ(l.count, 0);
    made->mesh->nspace = 3;
}

TEST_F(StreamLine, UnknownOrderEndsAfterOneNode)
{
    const meshes::mesh_ptr made = wide_cube();
    line_request r = request_on(reference::vectors_of(*made, to_the_right), {0, 0, 0}, 5);
    r.order = 5;
    testing::internal::CaptureStderr();
    const line l = reference::run_line(r);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "UTILintegrate: unknown integration order\n");
    EXPECT_EQ(l.result, 1);
    EXPECT_EQ(l.count, 1);
}

// ---- the ends of a line -----------------------------------------------------------------------------------------

TEST_F(StreamLine, SeedOutsideOrAtRestMakesNoNode)
{
    const meshes::mesh_ptr made = wide_cube();
    const field right = reference::vectors_of(*made, to_the_right);
    const field spin = reference::vectors_of(*made, [](double x, double y, double) {
        return std::array<double, 3>{-y, x, 0};
    });
    line_request slow = request_on(right, {0, 0, 0}, 5);
    slow.min_speed = 1.0001;
    for (const line_request &r :
         {request_on(right, {1.5f, 0, 0}, 5), request_on(spin, {0, 0, 0.5f}, 5), slow}) {
        const line l = reference::run_line(r);
        EXPECT_EQ(l.result, 1);
        EXPECT_EQ(l.count, 0);
        EXPECT_EQ(l.coords[0], 55);
        EXPECT_EQ(l.work[0], 55);
    }
    slow.min_speed = 1;
    EXPECT_EQ(reference::run_line(slow).count, 5) << "as fast as asked for is fast enough";
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(StreamLine, RoomForOneNodeTakesOneStep)
{
    const meshes::mesh_ptr made = wide_cube();
    const line l =
        reference::run_line(request_on(reference::vectors_of(*made, to_the_right), {0.0625f, 0, 0}, 1));
    EXPECT_EQ(l.result, 1);
    EXPECT_EQ(l.count, 1);
    EXPECT_FLOAT_EQ(l.steps[0], static_cast<float>(0.7 * 0.25 / 2));
    EXPECT_FLOAT_EQ(l.work[0], 0.0625f + l.steps[0]);
}

TEST_F(StreamLine, LineLeavesTheMesh)
{
    const meshes::mesh_ptr made = wide_cube();
    const line l =
        reference::run_line(request_on(reference::vectors_of(*made, to_the_right), {0, 0, 0}, 100));
    EXPECT_EQ(l.result, 1);
    EXPECT_GT(l.count, 5);
    EXPECT_LT(l.count, 100);
    const size_t last = static_cast<size_t>(l.count - 1);
    EXPECT_GT(l.coords[3 * last], 0.75f);
    EXPECT_LE(l.coords[3 * last], 1);
    EXPECT_EQ(l.steps[last + 1], 55);
}

TEST_F(StreamLine, AgainstTheFieldWithTheSameSteps)
{
    const meshes::mesh_ptr made = wide_cube();
    line_request r = request_on(reference::vectors_of(*made, to_the_right), {0.01f, 0.01f, 0.01f}, 3);
    const line with = reference::run_line(r);
    r.direction = -1;
    const line against = reference::run_line(r);
    ASSERT_EQ(with.count, 3);
    ASSERT_EQ(against.count, 3);
    EXPECT_EQ(against.steps[0], -with.steps[0]);
    EXPECT_LT(against.coords[3], 0);
    EXPECT_GT(with.coords[3], 0);
    EXPECT_FLOAT_EQ(against.vecs[3], 1) << "the vectors are the field's";
}

TEST_F(StreamLine, NotANumberEndsAfterOneNode)
{
    const meshes::mesh_ptr made = wide_cube();
    for (double bad : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
        const field f = reference::vectors_of(*made, [=](double, double, double) {
            return std::array<double, 3>{bad, 0, 0};
        });
        const line l = reference::run_line(request_on(f, {0, 0, 0}, 50));
        EXPECT_EQ(l.result, 1);
        EXPECT_EQ(l.count, 1) << bad;
    }
    // Of a speed beyond floats the steps are 0.
    const field faster = reference::vectors_of(*made, [](double, double, double) {
        return std::array<double, 3>{1e30, 0, 0};
    });
    const line l = reference::run_line(request_on(faster, {0, 0, 0}, 50));
    EXPECT_EQ(l.count, 50);
    EXPECT_EQ(l.coords[147], 0);
    const field fast = reference::vectors_of(*made, [](double, double, double) {
        return std::array<double, 3>{1e18, 0, 0};
    });
    EXPECT_GT(reference::run_line(request_on(fast, {0, 0, 0}, 50)).count, 5);
}

TEST_F(StreamLine, NullDataEndsTheLine)
{
    const meshes::mesh_ptr made = wide_cube();
    field f = reference::vectors_of(*made, [](double x, double, double) {
        return std::array<double, 3>{x > 0.4 ? 2.0 : 1.0, 0, 0};
    });
    f.null_flag = 1;
    f.null_value = reference::as_type(DTYPE_FLOAT, {2});
    const line l = reference::run_line(request_on(f, {-0.5f, 0, 0}, 100));
    const size_t last = static_cast<size_t>(l.count - 1);
    EXPECT_GT(l.count, 3);
    EXPECT_LE(l.coords[3 * last], 0.25f);
}

TEST_F(StreamLine, CrossesFromSetToSet)
{
    const meshes::mesh_ptr made =
        meshes::mixed({CELL_HEX, CELL_TET, CELL_PRISM, CELL_HEX}, {1, 1, 1, 2}, 3, 2, 0.1);
    const table_ptr table = table_of(made->mesh);
    field f = reference::vectors_of(*made, to_the_right);
    f.table = table.get();
    const line l = reference::run_line(request_on(f, {0.05f, 0.4f, 0.45f}, 200));
    int sets[4] = {0, 0, 0, 0};
    for (int i = 0; i < l.count; ++i) {
        qx_long local;
        int set = -1;
        ASSERT_EQ(UTILget_cell_id(made->mesh, l.cells[static_cast<size_t>(i)], &local, &set), 1);
        ++sets[set];
    }
    for (int nodes : sets)
        EXPECT_GT(nodes, 1);
    EXPECT_LT(l.count, 200) << "it leaves through the last set";
    EXPECT_GT(l.coords[static_cast<size_t>(3 * (l.count - 1))], 3.7f);
}

// ---- the size of steps --------------------------------------------------------------------------------------------

TEST_F(StreamLine, StepFollowsTheWayThroughTheCell)
{
    const meshes::mesh_ptr made = wide_cube();
    struct {
        float wander; // in u from node to node: each step of order 1 locates two points
        double factor;
    } const cases[] = {{0, 10},         {0.001f, 10},        {0.0026f, 1 / (2 * 2 * 0.0026)},
                       {0.1f, 1 / 0.4}, {0.174f, 1 / 0.696}, {0.2f, 1},
                       {0.499f, 1},     {0.51f, 1 / 2.04},   {2, 1 / 8.0}};
    for (const auto &c : cases) {
        scripted methods(made->mesh, {1});
        script.wander = c.wander;
        script.sides[0] = script.sides[1] = script.sides[2] = 1e-6f; // so that the cell is not left
        line_request r = request_on(reference::vectors_of(*made, to_the_right), {0, 0, 0}, 2);
        r.order = 1;
        const line l = reference::run_line(r);
        ASSERT_EQ(l.count, 2);
        EXPECT_NEAR(l.steps[1] / l.steps[0], c.factor, 1e-4 * c.factor) << c.wander;
        EXPECT_EQ(script.extent_calls, 1);
    }
}

TEST_F(StreamLine, ShortestSideOfTheCellCountsAndFlatAxesDoNot)
{
    const meshes::mesh_ptr made = wide_cube();
    struct {
        float sides[3];
        double size;
    } const cases[] = {{{0.5f, 0.25f, 1}, 0.25}, {{0.5f, 0, 1}, 0.5}, {{0, 0.25f, 1}, 0.25},
                       {{0, 0, 0.75f}, 0.75},    {{0, 0, 0}, 1e10},   {{2, 3, 4}, 2}};
    for (const auto &c : cases) {
        scripted methods(made->mesh, {4});
        std::copy_n(c.sides, 3, script.sides);
        const line l =
            reference::run_line(request_on(reference::vectors_of(*made, to_the_right), {0, 0, 0}, 1));
        EXPECT_FLOAT_EQ(l.steps[0], static_cast<float>(0.7 * c.size / (2 * 4)));
    }
}

TEST_F(StreamLine, ExtentThatCantBeHadIsPassedOver)
{
    const meshes::mesh_ptr made = wide_cube();
    scripted methods(made->mesh, {1});
    script.has_extents = false;
    const line l = reference::run_line(request_on(reference::vectors_of(*made, to_the_right), {0, 0, 0}, 1));
    EXPECT_EQ(l.count, 1);
    EXPECT_FLOAT_EQ(l.steps[0], static_cast<float>(0.7 * 1e10 / 2)) << "as of a cell without extent";
}

// A stage that is faster than the node makes a shorter step; what stands in steps is the first choice.
TEST_F(StreamLine, FasterStageShortensTheStepThatGoesOn)
{
    const meshes::mesh_ptr made = wide_cube();
    scripted methods(made->mesh, {1, 4, 3.9f, 2, 2});
    line_request r = request_on(reference::vectors_of(*made, to_the_right), {0, 0, 0}, 2);
    r.order = 1;
    script.wander = 0.1f; // three points to the next node: 0.3 * 2 = 0.6, so the step grows
    const line l = reference::run_line(r);
    ASSERT_EQ(l.count, 2);
    EXPECT_FLOAT_EQ(l.steps[0], static_cast<float>(0.7 * 0.25 / 2));
    EXPECT_FLOAT_EQ(l.coords[3], static_cast<float>(0.7 * 0.25 / (2 * 4)))
        << "four times as fast, a quarter as far";
    EXPECT_FLOAT_EQ(l.steps[1], static_cast<float>(0.7 * 0.25 / (2 * 4) / 0.6)) << "from the shortened step";
}

TEST_F(StreamLine, HundredAttemptsAreAllAndTheLastOneCounts)
{
    const meshes::mesh_ptr made = wide_cube();
    for (int failing : {99, 100}) {
        std::vector<float> speeds = {1};
        for (int i = 0; i < failing; ++i)
            speeds.push_back(2.0f + static_cast<float>(i));
        scripted methods(made->mesh, speeds);
        script.speeds.push_back(0.5f);
        line_request r = request_on(reference::vectors_of(*made, to_the_right), {0, 0, 0}, 3);
        r.order = 1;
        const line l = reference::run_line(r);
        EXPECT_EQ(l.result, 1);
        EXPECT_EQ(l.count, failing == 99 ? 3 : 1);
        EXPECT_EQ(script.samples, failing == 99 ? 105u : 101u);
    }
}

// The number is that of a stage too fast, and no speed comes with it.
TEST_F(StreamLine, ErrorOfTheSearchIsTriedAHundredTimes)
{
    const meshes::mesh_ptr made = wide_cube();
    scripted methods(made->mesh, {1});
    script.located_until_error = 1;
    script.locate_result = -1;
    const line l = reference::run_line(request_on(reference::vectors_of(*made, to_the_right), {0, 0, 0}, 3));
    EXPECT_EQ(l.result, 1);
    EXPECT_EQ(l.count, 1);
    EXPECT_EQ(script.located, 101);
}

TEST_F(StreamLine, WithoutRecordOnlyTheLineIsWritten)
{
    const meshes::mesh_ptr made = wide_cube();
    line_request r = request_on(reference::vectors_of(*made, around_z), {0.5f, 0, -0.9f}, 30);
    const line whole = reference::run_line(r);
    r.record = false; // null arrays
    const line bare = reference::run_line(r);
    EXPECT_EQ(bare.count, whole.count);
    EXPECT_EQ(bare.coords, whole.coords);
    EXPECT_EQ(bare.vecs, whole.vecs);
}

TEST_F(StreamLine, BadEntryInAListEndsTheLine)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {4, 4, 4}, 1);
    const table_ptr table = table_of(made->mesh);
    field f = reference::vectors_of(*made, to_the_right);
    f.table = table.get();
    line_request r = request_on(f, {0.1f, 0.4f, 0.4f}, 50);
    reference::line_tally tally;
    ASSERT_GT(reference::run_line(r).count, 5);
    for (qx_long entry = 1; entry < table->list_used; ++entry) {
        const qx_long kept = table->cell_list[entry];
        table->cell_list[entry] = -1;
        for (int order : {2, 4}) {
            r.order = order;
            EXPECT_EQ(reference::difference(reference::run_line(r), reference::slow_line(r, &tally)), "")
                << entry;
        }
        table->cell_list[entry] = kept;
    }
    EXPECT_GT(tally.outside, 0) << "a node that is looked for beyond the entry";
    EXPECT_GT(tally.too_fast, 0) << "a stage";
}

// ---- analytic fields ------------------------------------------------------------------------------------------------

TEST_F(StreamLine, StaysOnACircle)
{
    const meshes::mesh_ptr made = wide_cube(17);
    const field f = reference::vectors_of(*made, [](double x, double y, double) {
        return std::array<double, 3>{-y, x, 0};
    });
    const double within[5] = {0, 0.5, 0.01, 0.5, 1e-4};
    for (int order : {2, 4}) {
        line_request r = request_on(f, {0.5f, 0, 0.01f}, 400);
        r.order = order;
        const line l = reference::run_line(r);
        ASSERT_EQ(l.count, 400);
        for (size_t i = 0; i < 400; ++i)
            ASSERT_NEAR(std::hypot(l.coords[3 * i], l.coords[3 * i + 1]), 0.5, within[order]) << "node " << i;
    }
}

TEST_F(StreamLine, ClimbsAHelix)
{
    const meshes::mesh_ptr made = wide_cube(17);
    const line l =
        reference::run_line(request_on(reference::vectors_of(*made, around_z), {0.5f, 0, -0.99f}, 2000));
    ASSERT_GT(l.count, 100);
    ASSERT_LT(l.count, 2000);
    const size_t last = static_cast<size_t>(l.count - 1);
    EXPECT_GT(l.coords[3 * last + 2], 0.9f);
    for (size_t i = 0; i <= last; ++i) {
        const double time = (l.coords[3 * i + 2] + 0.99) / 0.1;
        ASSERT_NEAR(l.coords[3 * i], 0.5 * std::cos(time), 1e-4);
        ASSERT_NEAR(l.coords[3 * i + 1], 0.5 * std::sin(time), 1e-4);
    }
    EXPECT_GT((l.coords[3 * last + 2] + 0.99) / 0.1, 2 * turn) << "more than two turns";
}
