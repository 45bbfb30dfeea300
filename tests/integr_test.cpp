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
using reference::step;
using sample_reference::table_of;
using sample_reference::table_ptr;

namespace {

using point = std::array<float, 3>;

const char *const no_function_line = "UTILfind_cell: unable to find interp_cell function\n";

// A cube of side 2 around the origin.
meshes::mesh_ptr cube(qx_long n = 9)
{
    return meshes::uniform({n, n, n}, 3, {-1, -1, -1}, {1, 1, 1});
}

std::array<double, 3> along_x(double, double, double)
{
    return {1, 0, 0};
}

struct seen_by_stand_ins {
    std::vector<point> points;      // that were located
    std::vector<float> next_speeds; // along x, of the samples to come; the last one stays
    int locate_result = 1, sample_result = 1;
    size_t samples = 0;
} seen;

int find_anywhere(mesh_info *, const blk_tbl *, const float *p, qx_long *cell, float *uvw)
{
    seen.points.push_back({p[0], p[1], p[2]});
    *cell = 0;
    std::fill_n(uvw, 3, 0.0f);
    return seen.locate_result;
}

int speed_in_turn(mesh_info *, qx_long, int veclen, const void *, int, int, const void *, int, const float *,
                  float *out)
{
    std::fill_n(out, veclen, 0.0f);
    out[0] = seen.next_speeds[std::min(seen.samples++, seen.next_speeds.size() - 1)];
    return seen.sample_result;
}

// A mesh on which any point is found and speeds come as they are listed.
struct stand_ins : reference::own_methods {
    stand_ins(mesh_info *of, std::vector<float> speeds) : own_methods(of)
    {
        seen = {};
        seen.next_speeds = std::move(speeds);
        table.find_cell_func = find_anywhere;
        table.interp_data_func = speed_in_turn;
    }
};

// The end of n equal steps through a field of the position, on a mesh that interpolates it exactly.
point end_of(const field &f, int order, double h, int n, point p)
{
    for (int i = 0; i < n; ++i) {
        qx_long cell = -1;
        float uvw[3], v[3];
        EXPECT_EQ(f.mesh->methods->find_cell_func(f.mesh, f.table, p.data(), &cell, uvw), 1);
        EXPECT_EQ(
            f.mesh->methods->interp_data_func(f.mesh, cell, 3, f.data.data(), f.type, 0, nullptr, 1, uvw, v),
            1);
        const step s = reference::run_step(f, h, order, p, v, 1e6f);
        EXPECT_EQ(s.result, 1);
        p = s.x1;
    }
    return p;
}

double distance(const point &a, const std::array<double, 3> &b)
{
    double sum = 0;
    for (size_t d = 0; d < 3; ++d)
        sum += (a[d] - b[d]) * (a[d] - b[d]);
    return std::sqrt(sum);
}

class Integrate : public FreshHost {};

} // namespace

// ---- all of it, against the slow form ------------------------------------------------------------------------

TEST_F(Integrate, AgreesWithStagesTakenOneByOne)
{
    int results[3] = {0, 0, 0}, kinds = 0;
    for (const sample_reference::named_mesh &m : sample_reference::all_meshes()) {
        SCOPED_TRACE(m.name);
        const table_ptr table = table_of(m.made->mesh);
        const std::vector<float> places = sample_reference::points_about(*m.made, 7, 48, m.made->nspace);
        host_calls::reset();
        std::mt19937_64 random(3);
        std::uniform_real_distribution<float> spread(-1, 1);
        bool took_a_step = false;
        for (size_t i = 0; i < 48; ++i) {
            field f;
            f.mesh = m.made->mesh;
            f.table = table.get();
            f.veclen = 1 + static_cast<int>(i % 3);
            f.type = static_cast<int>(random() % 7);
            const double low = f.type == DTYPE_BYTE ? 0 : -50;
            const std::vector<double> values =
                meshes::random_values<double>(random(), m.made->nnodes() * f.veclen, low, 50);
            f.data = reference::as_type(f.type, values);
            f.null_flag = i % 4 == 3;
            f.null_value = reference::as_type(f.type, {values[0]});
            point x0 = {0, 0, 0.25f};
            for (size_t d = 0; d < static_cast<size_t>(f.mesh->nspace); ++d)
                x0[d] = places[i * static_cast<size_t>(f.mesh->nspace) + d];
            const float vel0[3] = {20 * spread(random), 20 * spread(random), 20 * spread(random)};
            for (int order = 1; order <= 4; ++order)
                for (double h : {0.0003, -0.004, 0.02}) {
                    const float max_speed = i % 2 == 0 ? 40.0f : 1e9f;
                    const step expected = reference::slow_step(f, h, order, x0, vel0, max_speed);
                    const host_calls::watch watch;
                    const step made = reference::run_step(f, h, order, x0, vel0, max_speed);
                    ASSERT_EQ(made.result, expected.result) << "order " << order << ", h " << h;
                    ASSERT_TRUE(reference::same(made, expected)) << "order " << order << ", h " << h;
                    EXPECT_EQ(watch.allocations(), 0);
                    ++results[made.result + 1];
                    took_a_step = took_a_step || made.result == 1;
                }
        }
        kinds += took_a_step;
        EXPECT_TRUE(host_calls::seen().statuses.empty());
    }
    for (int count : results)
        EXPECT_GT(count, 300) << "the fields no longer reach all results";
    EXPECT_GT(kinds, 25);
}

// ---- checks on entry --------------------------------------------------------------------------------------------

TEST_F(Integrate, UnknownOrderIsPrintedAndClearsTheVector)
{
    const meshes::mesh_ptr made = cube();
    const field f = reference::vectors_of(*made, along_x);
    const float vel0[3] = {1, 0, 0};
    for (int order : {0, 5, -1}) {
        testing::internal::CaptureStderr();
        const step s = reference::run_step(f, 0.1, order, {0, 0, 0}, vel0, 9);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "UTILintegrate: unknown integration order\n");
        EXPECT_EQ(s.result, 0);
        EXPECT_EQ(s.vel1, (point{0, 0, 0}));
        EXPECT_EQ(s.speed_out, 77);
    }
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(Integrate, LongRowsAreRefusedBeforeManyAxes)
{
    const meshes::mesh_ptr made = cube();
    field f = reference::vectors_of(*made, along_x);
    const float vel0[4] = {1, 0, 0, 0};
    f.mesh->nspace = 4;
    for (int veclen : {4, 3}) {
        f.veclen = veclen;
        testing::internal::CaptureStderr();
        const step s = reference::run_step(f, 0.1, 9, {0, 0, 0}, vel0, 9);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), veclen > 3
                                                              ? "UTILintegrate: veclen is greater than 3\n"
                                                              : "UTILintegrate: nspace is greater than 3\n");
        EXPECT_EQ(s.result, 0);
        EXPECT_EQ(s.vel1, (point{77, 77, 77})) << "cleared too early";
    }
    f.mesh->nspace = 3;
}

TEST_F(Integrate, MissingFunctionIsPrintedFirst)
{
    const meshes::mesh_ptr made = cube();
    field f = reference::vectors_of(*made, along_x);
    f.veclen = 4;
    const float vel0[4] = {1, 0, 0, 0};
    for (bool locates : {false, true}) {
        reference::own_methods methods(f.mesh);
        if (locates)
            methods.table.interp_data_func = nullptr;
        else
            methods.table.find_cell_func = nullptr;
        testing::internal::CaptureStderr();
        const step s = reference::run_step(f, 0.1, 9, {0, 0, 0}, vel0, 9);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), no_function_line);
        EXPECT_EQ(s.result, 0);
        EXPECT_EQ(s.vel1, (point{77, 77, 77}));
    }
}

TEST_F(Integrate, UnknownTypeIsReportedBySampling)
{
    const meshes::mesh_ptr made = cube();
    field f = reference::vectors_of(*made, along_x);
    f.type = 7;
    const float vel0[3] = {1, 0, 0};
    EXPECT_EQ(reference::run_step(f, 0.1, 1, {0, 0, 0}, vel0, 9).result, 0);
    EXPECT_EQ(host_calls::report_texts(), std::vector<std::string>{"UTILinterp: unknown data type"});
}

// ---- the ends of a step --------------------------------------------------------------------------------------------

TEST_F(Integrate, StageOutsideTheMeshGivesWhatTheSearchGives)
{
    const meshes::mesh_ptr made = cube();
    const field f = reference::vectors_of(*made, along_x);
    const float vel0[3] = {1, 0, 0};
    for (int order = 1; order <= 4; ++order) {
        const step s = reference::run_step(f, 3.0, order, {0.9f, 0, 0}, vel0, 9);
        EXPECT_EQ(s.result, 0);
        EXPECT_EQ(s.speed_out, 77);
        EXPECT_EQ(s.vel1, (point{0, 0, 0}));
        EXPECT_GT(s.x1[0], 1) << "the point that failed";
    }
    // The end point itself is not looked for: only the last of these stages lies within.
    const step beyond = reference::run_step(f, 0.2, 2, {0.84f, 0, 0}, vel0, 9);
    EXPECT_EQ(beyond.result, 1);
    EXPECT_GT(beyond.x1[0], 1);
    EXPECT_EQ(reference::run_step(f, 0.2, 1, {0.84f, 0, 0}, vel0, 9).result, 0)
        << "order 1 checks where it ends";
}

TEST_F(Integrate, ErrorOfTheSearchIsHandedOnWithoutASpeed)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {3, 3, 3}, 1);
    const table_ptr table = table_of(made->mesh);
    field f = reference::vectors_of(*made, along_x);
    f.table = table.get();
    const float vel0[3] = {1, 0, 0};
    EXPECT_EQ(reference::run_step(f, 0.1, 4, {0.5f, 0.5f, 0.5f}, vel0, 9).result, 1);
    std::fill_n(table->cell_list, table->list_used, -3);
    const step s = reference::run_step(f, 0.1, 4, {0.5f, 0.5f, 0.5f}, vel0, 9);
    EXPECT_EQ(s.result, -1);
    EXPECT_EQ(s.speed_out, 77);
}

TEST_F(Integrate, CellWithoutAValueEndsTheStep)
{
    const meshes::mesh_ptr made = cube(5);
    field f = reference::vectors_of(*made, along_x);
    f.null_flag = 1;
    f.null_value = reference::as_type(DTYPE_FLOAT, {1.0});
    const float vel0[3] = {1, 0, 0};
    const step s = reference::run_step(f, 0.1, 4, {0, 0, 0}, vel0, 9);
    EXPECT_EQ(s.result, 0);
    EXPECT_EQ(s.speed_out, 77);
}

TEST_F(Integrate, LimitIsAMillionthAboveAndRounded)
{
    const meshes::mesh_ptr made = cube();
    const field f = reference::vectors_of(*made, along_x);
    const float vel0[3] = {1, 0, 0};
    for (float limit : {1.0f, 100.0f, 3e7f}) {
        const float rounded = static_cast<float>(static_cast<double>(limit) + 1e-6);
        const float above = std::nextafter(rounded, 1e9f);
        for (float speed : {limit, rounded, above}) {
            stand_ins methods(f.mesh, {speed});
            const step s = reference::run_step(f, 1e-9, 2, {0, 0, 0}, vel0, limit);
            EXPECT_EQ(s.result, speed == above ? -1 : 1);
            EXPECT_EQ(s.speed_out, speed == above ? above : 77);
        }
    }
    EXPECT_EQ(static_cast<float>(100.0 + 1e-6), 100.0f) << "no room above: the next speed fails";
}

TEST_F(Integrate, EachStageIsHeldAgainstTheLimit)
{
    const meshes::mesh_ptr made = cube();
    const field f = reference::vectors_of(*made, along_x);
    const float vel0[3] = {1, 0, 0};
    const int stages[5] = {0, 1, 1, 2, 3};
    for (int order = 1; order <= 4; ++order)
        for (int fast = 0; fast <= stages[order]; ++fast) {
            std::vector<float> speeds(static_cast<size_t>(fast), 1.0f);
            speeds.push_back(2.5f);
            stand_ins methods(f.mesh, speeds);
            const step s = reference::run_step(f, 0.1, order, {0, 0, 0}, vel0, 2);
            const bool is_met = fast < stages[order];
            EXPECT_EQ(s.result, is_met ? -1 : 1) << "order " << order << ", stage " << fast;
            EXPECT_EQ(s.speed_out, is_met ? 2.5f : 77);
            EXPECT_EQ(seen.samples, static_cast<size_t>(is_met ? fast + 1 : stages[order]));
            if (is_met) {
                EXPECT_EQ(s.vel1, (point{0, 0, 0}));
                EXPECT_EQ(s.x1, seen.points.back());
            }
        }
}

// Only 0 is a failure here.
TEST_F(Integrate, OtherResultsOfSamplingCount)
{
    const meshes::mesh_ptr made = cube();
    const field f = reference::vectors_of(*made, along_x);
    const float vel0[3] = {1, 0, 0};
    stand_ins methods(f.mesh, {1});
    seen.sample_result = -1;
    EXPECT_EQ(reference::run_step(f, 0.1, 4, {0, 0, 0}, vel0, 2).result, 1);
    seen.locate_result = 5;
    EXPECT_EQ(reference::run_step(f, 0.1, 4, {0, 0, 0}, vel0, 2).result, 5);
}

TEST_F(Integrate, NotANumberIsNotTooFast)
{
    const meshes::mesh_ptr made = cube();
    const field f = reference::vectors_of(*made, along_x);
    const float vel0[3] = {1, 0, 0}, nan_value = std::numeric_limits<float>::quiet_NaN();
    stand_ins methods(f.mesh, {nan_value});
    const step s = reference::run_step(f, 0.1, 2, {0, 0, 0}, vel0, 2);
    EXPECT_EQ(s.result, 1);
    EXPECT_TRUE(std::isnan(s.vel1[0]));
    EXPECT_TRUE(std::isnan(s.x1[0]));
}

TEST_F(Integrate, FetchThatFailsEndsTheStep)
{
    const float vel0[3] = {1, 0, 0};
    const meshes::mesh_ptr even = cube();
    {
        failing_fetches fetches(even->mesh);
        fetches.fail_points = 1;
        const field f = reference::vectors_of(*even, along_x);
        EXPECT_EQ(reference::run_step(f, 0.1, 1, {0, 0, 0}, vel0, 9).result, 0);
        EXPECT_EQ(host_calls::report_texts(),
                  std::vector<std::string>{"fld_info: unable to get field points"});
        EXPECT_EQ(reference::run_step(f, 0.1, 1, {0, 0, 0}, vel0, 9).result, 1);
    }
    host_calls::reset();
    const meshes::mesh_ptr sets = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 1);
    const table_ptr table = table_of(sets->mesh);
    field f = reference::vectors_of(*sets, along_x);
    f.table = table.get();
    qx_long *connect = sets->mesh->cell_connect[0];
    sets->mesh->cell_connect[0] = nullptr;
    failing_fetches fetches(sets->mesh);
    fetches.fail_connect_of_set = 0;
    EXPECT_EQ(reference::run_step(f, 0.1, 1, {0.4f, 0.5f, 0.5f}, vel0, 9).result, 0);
    EXPECT_EQ(host_calls::report_texts()[0], "fld_info: unable to get cell set connect list");
    fetches.fail_connect_of_set = -1;
    EXPECT_EQ(reference::run_step(f, 0.1, 1, {0.4f, 0.5f, 0.5f}, vel0, 9).result, 1);
    EXPECT_EQ(sets->mesh->cell_connect[0], connect);
}

// ---- what moves ---------------------------------------------------------------------------------------------------

TEST_F(Integrate, ShorterRowsLeaveTheOtherCoordinates)
{
    const meshes::mesh_ptr made = cube();
    field f = reference::vectors_of(
        *made,
        [](double, double, double) {
            return std::array<double, 3>{1, 0.5, 9};
        },
        2);
    const float vel0[2] = {1, 0.5f};
    for (int order = 1; order <= 4; ++order) {
        const step s = reference::run_step(f, 0.1, order, {0, 0, 0.3f}, vel0, 9);
        EXPECT_EQ(s.result, 1);
        EXPECT_FLOAT_EQ(s.x1[0], 0.1f);
        EXPECT_FLOAT_EQ(s.x1[1], 0.05f);
        EXPECT_EQ(s.x1[2], 0.3f);
        EXPECT_EQ(s.vel1[2], 77) << "beyond the row";
    }
}

TEST_F(Integrate, LongerRowsMoveWhatTheMeshHas)
{
    const meshes::mesh_ptr made = meshes::uniform({5, 5}, 2, {-1, -1}, {1, 1});
    field f = reference::vectors_of(*made, [](double, double, double) {
        return std::array<double, 3>{1, 0.5, 2};
    });
    const float vel0[3] = {1, 0.5f, 2};
    const step s = reference::run_step(f, 0.1, 4, {0, 0, 0}, vel0, 9);
    EXPECT_EQ(s.result, 1);
    EXPECT_FLOAT_EQ(s.x1[0], 0.1f);
    EXPECT_EQ(s.x1[2], 0) << "the plane is not left";
    EXPECT_FLOAT_EQ(s.vel1[2], 2);
    EXPECT_EQ(reference::run_step(f, 0.1, 4, {0, 0, 0}, vel0, 2.2f).result, -1) << "all components are speed";
}

TEST_F(Integrate, AtRestNothingMoves)
{
    const meshes::mesh_ptr made = cube();
    const field f = reference::vectors_of(*made, along_x);
    const float vel0[3] = {0, 0, 0};
    stand_ins methods(f.mesh, {0});
    const step s = reference::run_step(f, 0.5, 4, {0.1f, 0.2f, 0.3f}, vel0, 0);
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.x1, (point{0.1f, 0.2f, 0.3f}));
    EXPECT_EQ(seen.points.size(), 3u);
    for (const point &p : seen.points)
        EXPECT_EQ(p, s.x1);
}

TEST_F(Integrate, ThirdOrderGoesFourTimesAlongItsSecondVector)
{
    const meshes::mesh_ptr made = cube();
    const field f = reference::vectors_of(*made, along_x);
    const float vel0[3] = {1, 0, 0};
    stand_ins methods(f.mesh, {2, 3});
    const step s = reference::run_step(f, 0.5, 3, {0, 0, 0}, vel0, 9);
    ASSERT_EQ(seen.points.size(), 2u);
    EXPECT_EQ(seen.points[0][0], 0.25f);
    EXPECT_EQ(seen.points[1][0], 4 * 0.5f * 2 - 0.5f * 1);
    EXPECT_EQ(s.vel1[0], (1 + 4 * 2 + 3) / 6.0f);
    EXPECT_EQ(s.x1[0], 1.0f);
}

TEST_F(Integrate, NegativeStepsGoBack)
{
    const meshes::mesh_ptr made = cube();
    const field f = reference::vectors_of(*made, along_x);
    const float vel0[3] = {1, 0, 0};
    for (int order = 1; order <= 4; ++order) {
        const step s = reference::run_step(f, -0.25, order, {0.5f, 0, 0}, vel0, 1);
        EXPECT_EQ(s.result, 1);
        EXPECT_EQ(s.x1[0], 0.25f);
        EXPECT_EQ(s.vel1[0], 1) << "the vector is the field's";
    }
}

// ---- analytic fields ------------------------------------------------------------------------------------------------
//
// All linear, so that every mesh interpolates them exactly and the error is the scheme's own.

TEST_F(Integrate, CirclesCloseWithTheSchemesOrder)
{
    const meshes::mesh_ptr made = cube();
    const field f = reference::vectors_of(*made, [](double x, double y, double) {
        return std::array<double, 3>{-y, x, 0};
    });
    const double turn = 2 * std::acos(-1.0);
    const auto error = [&](int order, int n) {
        return distance(end_of(f, order, turn / n, n, {0.25f, 0, 0}), {0.25, 0, 0});
    };
    EXPECT_NEAR(error(1, 80) / error(1, 160), 2, 0.3);
    EXPECT_NEAR(error(2, 40) / error(2, 80), 4, 0.4);
    EXPECT_NEAR(error(3, 80) / error(3, 160), 2, 0.5) << "the doubled stage costs two orders";
    EXPECT_NEAR(error(4, 12) / error(4, 24), 16, 3);
    EXPECT_LT(error(4, 80), 2e-6);
}

TEST_F(Integrate, SaddlesAndHelicesAgreeWithTheirFormulas)
{
    const meshes::mesh_ptr made = cube();
    const field saddle = reference::vectors_of(*made, [](double x, double y, double) {
        return std::array<double, 3>{x, -y, 0};
    });
    const point end = end_of(saddle, 4, 1.0 / 32, 32, {0.25f, 0.75f, 0});
    EXPECT_LT(distance(end, {0.25 * std::exp(1.0), 0.75 * std::exp(-1.0), 0}), 1e-6);

    const field helix = reference::vectors_of(*made, [](double x, double y, double) {
        return std::array<double, 3>{-y, x, 0.125};
    });
    const double turn = 2 * std::acos(-1.0);
    const point around = end_of(helix, 4, turn / 64, 64, {0.5f, 0, -0.5f});
    EXPECT_LT(distance(around, {0.5, 0, -0.5 + turn / 8}), 3e-6);
    const point back = end_of(helix, 4, -turn / 64, 64, around);
    EXPECT_LT(distance(back, {0.5, 0, -0.5}), 5e-6);
}

TEST_F(Integrate, AllMeshKindsGiveTheSameCircle)
{
    std::vector<meshes::mesh_ptr> all;
    all.push_back(cube(7));
    all.push_back(meshes::rectilinear({7, 7, 7}, 3, {-1, -1, -1}, {1, 1, 1}, 4));
    all.push_back(meshes::curvilinear({7, 7, 7}, 3, {-1, -1, -1}, {1, 1, 1}, 4));
    for (int kind : {CELL_HEX, CELL_TET, CELL_PRISM, CELL_PYR})
        all.push_back(meshes::cells(kind, 1, {7, 7, 7}, 4, 0.1));
    const double turn = 2 * std::acos(-1.0);
    for (const meshes::mesh_ptr &made : all) {
        const table_ptr table = table_of(made->mesh);
        const double middle = made->ndim > 0 ? 0 : 0.5;
        field f = reference::vectors_of(*made, [=](double x, double y, double) {
            return std::array<double, 3>{middle - y, x - middle, 0};
        });
        f.table = table.get();
        const float x = static_cast<float>(middle + 0.375), y = static_cast<float>(middle);
        // A search stops up to a twentieth of a cell's parameters from the point: a fortieth of its size.
        EXPECT_LT(distance(end_of(f, 4, turn / 64, 64, {x, y, y}), {middle + 0.375, middle, middle}), 0.03);
    }
}
