#include "support/fresh_host.hpp"
#include "support/sample_reference.hpp"
#include "support/trace_reference.hpp"

#include <skoklana.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace reference = trace_reference;
using reference::ribbon;
using reference::ribbon_request;
using reference::triple;

namespace {

// ---- derivatives that stand in for the mesh's own ------------------------------------------------------------------

struct derivative_script {
    // Rows of as many entries as the field's rows have, by the number of the node's cell; the last one stays.
    std::vector<std::vector<float>> matrices;
    std::vector<float> frame = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    int failing_call = -1;
    int calls = 0;
    std::vector<qx_long> cells;
} script;

int matrix_by_script(qx_long cell, float *out)
{
    script.cells.push_back(cell);
    if (script.calls++ == script.failing_call) return 0;
    const std::vector<float> &J =
        script.matrices[std::min(static_cast<size_t>(cell), script.matrices.size() - 1)];
    std::copy(J.begin(), J.end(), out);
    return 1;
}

int solid_by_script(mesh_info *, qx_long cell, int, const void *, int, int, const void *, const float *,
                    float *out)
{
    return matrix_by_script(cell, out);
}

int surface_by_script(mesh_info *, qx_long cell, int, const void *, int, int, const void *, const float *,
                      float *out, float *frame, float *local_xyz)
{
    std::copy(script.frame.begin(), script.frame.end(), frame);
    std::fill_n(local_xyz, 12, 0.0f);
    return matrix_by_script(cell, out);
}

struct scripted : reference::own_methods {
    scripted(mesh_info *of, std::vector<std::vector<float>> matrices) : own_methods(of)
    {
        script = {};
        script.matrices = std::move(matrices);
        table.deriv3d_func = solid_by_script;
        table.deriv2d_func = surface_by_script;
    }
};

const std::vector<float> no_change(9, 0.0f);

// A turn at a rate about z.
std::vector<float> spin_z(float rate)
{
    return {0, rate, 0, -rate, 0, 0, 0, 0, 0};
}

// ---- lines ---------------------------------------------------------------------------------------------------------

// Points with the same speed and step at each.
ribbon_request line_of(mesh_info *mesh, const std::vector<triple> &points, float speed = 1, float step = 0.5f)
{
    ribbon_request r;
    r.mesh = mesh;
    for (size_t i = 0; i < points.size(); ++i) {
        const triple &p = points[i], &next = points[i + 1 < points.size() ? i + 1 : i],
                     &last = points[i + 1 < points.size() ? i : i - 1];
        r.points.insert(r.points.end(), p.begin(), p.end());
        for (size_t d = 0; d < 3; ++d)
            r.vecs.push_back(next[d] - last[d]);
        r.uvws.insert(r.uvws.end(), {0, 0, 0});
        r.cells.push_back(static_cast<qx_long>(i));
        r.speeds.push_back(speed);
        r.steps.push_back(step);
    }
    return r;
}

std::vector<triple> straight(const triple &from, const triple &by, int n)
{
    std::vector<triple> points;
    for (int i = 0; i < n; ++i)
        points.push_back({from[0] + static_cast<float>(i) * by[0], from[1] + static_cast<float>(i) * by[1],
                          from[2] + static_cast<float>(i) * by[2]});
    return points;
}

// From the line to the edge at a node.
triple offset(const ribbon_request &r, const ribbon &made, size_t i)
{
    triple t;
    for (size_t d = 0; d < 3; ++d)
        t[d] = made.edge[3 * i + d] - r.points[3 * i + d];
    return t;
}

bool same(const ribbon &a, const ribbon &b)
{
    return a.result == b.result && reference::same_floats(a.edge, b.edge) &&
           reference::same_floats(&a.width, &b.width, 1) && reference::same_floats(&a.angle, &b.angle, 1);
}

bool untouched(const ribbon &made)
{
    for (float x : made.edge)
        if (x != 55) return false;
    return made.width == 55 && made.angle == 55;
}

class Ribbon : public FreshHost {
  protected:
    meshes::mesh_ptr solids = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    meshes::mesh_ptr surfaces = meshes::cells(CELL_QUAD, 1, {1, 1}, 1);
    meshes::mesh_ptr lines = meshes::cells(CELL_LINE, 1, {2}, 1);
};

} // namespace

// ---- all of it, against the slow form ------------------------------------------------------------------------

TEST_F(Ribbon, AgreesWithTheSlowForm)
{
    std::mt19937_64 random(4);
    std::uniform_real_distribution<float> spread(-1, 1);
    int capped = 0;
    for (int i = 0; i < 600; ++i) {
        const bool is_solid = i % 2 == 0;
        ribbon_request r;
        r.mesh = is_solid ? solids->mesh : surfaces->mesh;
        r.nspace = is_solid ? 3 : 2 + i % 4 / 2;
        r.veclen = 1 + i % 5 % 3;
        const int n = 2 + static_cast<int>(random() % 12);
        std::vector<std::vector<float>> matrices;
        const float strength = i % 10 == 9 ? 90.0f : 1.0f;
        for (int k = 0; k < n; ++k) {
            matrices.emplace_back();
            for (int c = 0; c < (is_solid ? 3 : 2) * r.veclen; ++c)
                matrices.back().push_back(strength * spread(random));
            for (int d = 0; d < r.nspace; ++d)
                r.points.push_back(static_cast<float>(k) * (d == i % r.nspace ? 0.4f : 0.0f) +
                                   0.1f * spread(random));
            for (int c = 0; c < r.veclen; ++c)
                r.vecs.push_back(i % 7 == 6 ? 0 : spread(random));
            for (int c = 0; c < 3; ++c)
                r.uvws.push_back(spread(random));
            r.cells.push_back(k);
            r.speeds.push_back(std::fabs(spread(random)));
            r.steps.push_back((i % 3 == 2 ? -1.0f : 1.0f) * std::fabs(spread(random)));
        }
        r.fixed_width = i % 4 == 1 ? 3 : 0;
        r.width = 0.1 + 0.3 * spread(random);
        r.angle = i % 3 == 0 ? 0 : 3.0 * spread(random);
        scripted methods(r.mesh, matrices);
        for (float &x : script.frame)
            x = spread(random);
        const ribbon expected = reference::slow_ribbon(r);
        script.calls = 0;
        const ribbon made = reference::run_ribbon(r);
        ASSERT_EQ(made.result, 1);
        ASSERT_TRUE(same(made, expected)) << "line " << i;
        ASSERT_EQ(script.calls, n - 1) << "none at the first node";
        capped += made.width > 1000;
    }
    EXPECT_GT(capped, 5) << "the derivatives no longer reach the cap";
}

// ---- what makes it turn and widen ------------------------------------------------------------------------------------

TEST_F(Ribbon, WithoutDerivativesTheEdgeIsParallel)
{
    scripted methods(solids->mesh, {no_change});
    for (const triple &by :
         {triple{0.5f, 0, 0}, triple{0, 0.5f, 0}, triple{0.25f, -0.5f, 0}, triple{0, 0, 0.5f}}) {
        ribbon_request r = line_of(solids->mesh, straight({1, 2, 3}, by, 9));
        {
            const ribbon made = reference::run_ribbon(r);
            ASSERT_EQ(made.result, 1);
            for (size_t i = 0; i < 9; ++i) {
                const triple across = offset(r, made, i);
                EXPECT_NEAR(reference::length(across), 0.25, 1e-6) << i;
                EXPECT_NEAR(reference::dot(across, by), 0, 1e-6) << i;
                for (size_t d = 0; d < 3; ++d)
                    EXPECT_NEAR(across[d], offset(r, made, 0)[d], 1e-6) << i;
            }
            EXPECT_EQ(made.width, 0.25f);
            EXPECT_EQ(made.angle, 0);
        }
    }
}

TEST_F(Ribbon, StartsNarrowerWhereTheLineClimbs)
{
    scripted methods(solids->mesh, {no_change});
    const float climb = std::sqrt(0.5f);
    const ribbon_request r = line_of(solids->mesh, straight({0, 0, 0}, {climb, 0, climb}, 5));
    const ribbon made = reference::run_ribbon(r);
    EXPECT_NEAR(reference::length(offset(r, made, 0)), 0.25 * climb, 1e-6);
    for (size_t i = 1; i < 5; ++i)
        EXPECT_NEAR(reference::length(offset(r, made, i)), 0.25, 1e-6);
}

TEST_F(Ribbon, FirstEdgesLieAsTheirFrameSays)
{
    scripted methods(solids->mesh, {no_change});
    // At angle 0 along a x t, a quarter on along a, which is (t.y, -t.x, 0), or (-t.z, 0, t.x) for a line along z.
    struct {
        triple by, at_0, at_quarter;
    } const cases[] = {{{1, 0, 0}, {0, 0, 1}, {0, -1, 0}},
                       {{0, 1, 0}, {0, 0, 1}, {1, 0, 0}},
                       {{0, 0, 1}, {0, 1, 0}, {-1, 0, 0}}};
    for (const auto &c : cases)
        for (bool quarter : {false, true}) {
            ribbon_request r = line_of(solids->mesh, straight({0, 0, 0}, c.by, 2));
            r.angle = quarter ? std::acos(0.0) : 0;
            const triple across = offset(r, reference::run_ribbon(r), 0);
            for (size_t d = 0; d < 3; ++d)
                EXPECT_NEAR(across[d], 0.25 * (quarter ? c.at_quarter : c.at_0)[d], 1e-6);
        }
}

// A field that turns about z at a rate of 2 w has half its curl, w, there. Trapezium: half of the first step's
// turn is that of the rate at the start, which is the angle.
TEST_F(Ribbon, TurnsAtHalfTheCurl)
{
    scripted methods(solids->mesh, {spin_z(0.5f)}); // curl 1
    const ribbon_request r = line_of(solids->mesh, straight({0, 0, 0}, {0, 0, 1}, 6), 1, 0.25f);
    const ribbon made = reference::run_ribbon(r);
    EXPECT_FLOAT_EQ(made.angle, 0.5f * 0.25f * 4.5f);
    EXPECT_FLOAT_EQ(made.width, 0.25f);
    const triple first = offset(r, made, 0);
    for (size_t i = 1; i < 6; ++i) {
        const double angle = 0.5 * 0.25 * (static_cast<double>(i) - 0.5);
        const triple across = offset(r, made, i);
        EXPECT_NEAR(reference::dot(across, first), 0.0625 * std::cos(angle), 1e-6);
        EXPECT_NEAR(reference::cross(first, across)[2], 0.0625 * std::sin(angle), 1e-6) << "with the field";
    }
}

TEST_F(Ribbon, AngleAtTheStartIsARateThere)
{
    scripted methods(solids->mesh, {no_change});
    ribbon_request r = line_of(solids->mesh, straight({0, 0, 0}, {1, 0, 0}, 3), 1, 0.5f);
    r.angle = 0.8;
    const ribbon made = reference::run_ribbon(r);
    EXPECT_FLOAT_EQ(made.angle, 0.8f + 0.8f * 0.5f * 0.5f);
}

TEST_F(Ribbon, WidensWithTheDivergenceLessTheStretching)
{
    // Divergence 3 at all nodes, and the speed grows by 1 over a way of 1.
    scripted methods(solids->mesh, {{1, 0, 0, 0, 1, 0, 0, 0, 1}});
    ribbon_request r = line_of(solids->mesh, straight({0, 0, 0}, {1, 0, 0}, 4), 1, 0.5f);
    for (size_t i = 0; i < 4; ++i)
        r.speeds[i] = 1 + static_cast<float>(i);
    const ribbon made = reference::run_ribbon(r);
    const double exponents[4] = {0, 0.25 * 0.5 * 2, 0.25 * 0.5 * 6, 0.25 * 0.5 * 10};
    for (size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(reference::length(offset(r, made, i)), 0.25 * std::exp(exponents[i]), 1e-6);
    EXPECT_NEAR(made.width, 0.25 * std::exp(exponents[3]), 1e-6);

    r.fixed_width = 1;
    const ribbon fixed = reference::run_ribbon(r);
    for (size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(reference::length(offset(r, fixed, i)), 0.25, 1e-6);
    EXPECT_EQ(fixed.width, 0.25f);
}

TEST_F(Ribbon, WideningOfAStepIsCapped)
{
    scripted methods(solids->mesh, {{500, 0, 0, 0, 0, 0, 0, 0, 0}});
    const ribbon_request r = line_of(solids->mesh, straight({0, 0, 0}, {1, 0, 0}, 2), 1, 1);
    EXPECT_FLOAT_EQ(reference::run_ribbon(r).width, static_cast<float>(0.25 * std::exp(10.0)));
    scripted narrowing(solids->mesh, {{-500, 0, 0, 0, 0, 0, 0, 0, 0}});
    EXPECT_FLOAT_EQ(reference::run_ribbon(r).width, static_cast<float>(0.25 * std::exp(-125.0)));
}

TEST_F(Ribbon, GoesOnInAnotherPiece)
{
    scripted methods(solids->mesh, {spin_z(0.5f)});
    const std::vector<triple> points = straight({0, 0, 0}, {0, 0, 1}, 7);
    ribbon_request first = line_of(solids->mesh, {points.begin(), points.begin() + 4});
    const ribbon a = reference::run_ribbon(first);
    ribbon_request second = line_of(solids->mesh, {points.begin() + 3, points.end()});
    second.width = a.width;
    second.angle = a.angle;
    const ribbon b = reference::run_ribbon(second);
    const triple end = offset(first, a, 3), start = offset(second, b, 0);
    for (size_t d = 0; d < 3; ++d)
        EXPECT_NEAR(end[d], start[d], 1e-6);
}

TEST_F(Ribbon, OnASurfaceTheCurlIsAlongItsNormal)
{
    // The frame's third column is the normal, here x: the line runs along x, and so turns with the field.
    scripted methods(surfaces->mesh, {{0, 0.5f, 0, -0.5f, 0, 0}});
    script.frame = {0, 0, 1, 1, 0, 0, 0, 1, 0};
    const ribbon_request r = line_of(surfaces->mesh, straight({0, 0, 0}, {1, 0, 0}, 3), 1, 0.5f);
    EXPECT_FLOAT_EQ(reference::run_ribbon(r).angle, 0.5f * 0.5f * 1.5f);
    script.frame = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    EXPECT_EQ(reference::run_ribbon(r).angle, 0) << "across the line nothing turns";
}

// ---- on meshes, with the mesh's own derivatives ------------------------------------------------------------------

// About its axis a turning field turns a ribbon at its own rate, on meshes of any kind; the width stays, as the field
// has no divergence and the speed along the axis does not change.
TEST_F(Ribbon, TurnsWithAFieldOfKnownRotation)
{
    std::vector<meshes::mesh_ptr> all;
    all.push_back(meshes::uniform({7, 7, 7}, 3, {0, 0, 0}, {1, 1, 1}));
    all.push_back(meshes::rectilinear({7, 7, 7}, 3, {0, 0, 0}, {1, 1, 1}, 4));
    all.push_back(meshes::curvilinear({7, 7, 7}, 3, {0, 0, 0}, {1, 1, 1}, 4));
    for (int kind : {CELL_HEX, CELL_TET, CELL_PRISM})
        all.push_back(meshes::cells(kind, 1, {6, 6, 6}, 4, 0.1));
    for (const meshes::mesh_ptr &made : all) {
        const sample_reference::table_ptr table = sample_reference::table_of(made->mesh);
        reference::line_request trace;
        trace.of = reference::vectors_of(*made, [](double x, double y, double) {
            return std::array<double, 3>{-3 * (y - 0.5), 3 * (x - 0.5), 1};
        });
        trace.of.table = table.get();
        trace.start = {0.5f, 0.5f, 0.05f};
        const reference::line line = reference::run_line(trace);
        ASSERT_GT(line.count, 5);
        const size_t n = static_cast<size_t>(line.count);
        std::vector<float> points(line.coords.begin(), line.coords.begin() + static_cast<long>(3 * n));
        points.resize(6 * n);
        float width = 0, angle = 0;
        ASSERT_EQ(UTILribbon(made->mesh, line.count, 3, points.data(), line.vecs.data(), line.cells.data(),
                             line.uvws.data(), line.speeds.data(), line.steps.data(), 3, trace.of.data.data(),
                             DTYPE_FLOAT, 0, nullptr, 0, 0.1, 0, &width, &angle),
                  1);
        float way = 0.5f * line.steps[1]; // the start counts as not turning
        for (size_t i = 2; i < n; ++i)
            way += line.steps[i];
        EXPECT_NEAR(angle, 3 * way, 0.02 * way);
        EXPECT_NEAR(width, 0.1, 0.01);
    }
}

// ---- failures --------------------------------------------------------------------------------------------------------

TEST_F(Ribbon, DerivativeThatCantBeHadLeavesAllUntouched)
{
    const std::vector<triple> points = straight({0, 0, 0}, {1, 0, 0}, 5);
    for (mesh_info *mesh : {solids->mesh, surfaces->mesh})
        for (int failing = 0; failing < 4; ++failing) {
            scripted methods(mesh, {no_change});
            script.failing_call = failing;
            const ribbon_request r = line_of(mesh, points);
            const ribbon made = reference::run_ribbon(r);
            EXPECT_EQ(made.result, 0);
            EXPECT_TRUE(untouched(made));
            EXPECT_EQ(script.calls, failing + 1);
        }
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(Ribbon, CellsThatAreLinesHaveNone)
{
    const ribbon_request r = line_of(lines->mesh, straight({0, 0, 0}, {1, 0, 0}, 5));
    scripted methods(lines->mesh, {no_change});
    const ribbon made = reference::run_ribbon(r);
    EXPECT_EQ(made.result, 0);
    EXPECT_TRUE(untouched(made));
    EXPECT_EQ(script.calls, 0);
}

TEST_F(Ribbon, MeshWithoutDerivativesIsToldOnce)
{
    const ribbon_request solid = line_of(solids->mesh, straight({0, 0, 0}, {1, 0, 0}, 5));
    const ribbon_request surface = line_of(surfaces->mesh, straight({0, 0, 0}, {1, 0, 0}, 5));
    for (const ribbon_request &r : {solid, surface}) {
        reference::own_methods methods(r.mesh);
        methods.table.deriv3d_func = nullptr;
        methods.table.deriv2d_func = nullptr;
        testing::internal::CaptureStderr();
        const ribbon made = reference::run_ribbon(r);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), r.mesh == solids->mesh
                                                              ? "UTILderiv: no deriv3d function found\n"
                                                              : "UTILderiv: no deriv2d function found\n");
        EXPECT_EQ(made.result, 0);
        EXPECT_TRUE(untouched(made));
    }
}

TEST_F(Ribbon, TooShortOrTooWideIsRefused)
{
    scripted methods(solids->mesh, {no_change});
    const ribbon_request whole = line_of(solids->mesh, straight({0, 0, 0}, {1, 0, 0}, 5));
    for (int which = 0; which < 4; ++which) {
        ribbon_request r = whole;
        if (which < 2) r.speeds.resize(static_cast<size_t>(which));
        if (which == 2) r.veclen = 4;
        if (which == 3) r.nspace = 4;
        const ribbon made = reference::run_ribbon(r);
        EXPECT_EQ(made.result, 0);
        EXPECT_TRUE(untouched(made));
    }
    EXPECT_EQ(script.calls, 0);
}

TEST_F(Ribbon, WithoutMemoryItIsRefusedAndNothingStays)
{
    scripted methods(solids->mesh, {no_change});
    const ribbon_request r = line_of(solids->mesh, straight({0, 0, 0}, {1, 0, 0}, 5));
    float room[30], width = 55, angle = 55;
    std::copy(r.points.begin(), r.points.end(), room);
    std::fill(room + 15, room + 30, 55.0f);
    const auto run = [&] {
        return UTILribbon(r.mesh, 5, 3, room, r.vecs.data(), r.cells.data(), r.uvws.data(), r.speeds.data(),
                          r.steps.data(), 3, room, DTYPE_FLOAT, 0, nullptr, 0, 0.25, 0, &width, &angle);
    };
    script.cells.reserve(100);
    for (int k = 0; k < 2; ++k) {
        const host_calls::watch watch;
        host_calls::fail_allocation(k);
        EXPECT_EQ(run(), 0);
        EXPECT_TRUE(host_calls::allocation_was_refused());
        EXPECT_EQ(watch.live_blocks(), 0);
        EXPECT_EQ(room[15], 55);
        EXPECT_EQ(width, 55);
    }
    {
        const host_calls::watch watch;
        script.failing_call = 2;
        EXPECT_EQ(run(), 0);
        EXPECT_EQ(watch.allocations(), 2);
        EXPECT_EQ(watch.live_blocks(), 0);
        script.failing_call = -1;
        EXPECT_EQ(run(), 1);
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    EXPECT_TRUE(host_calls::seen().reports.empty());
    EXPECT_TRUE(host_calls::seen().statuses.empty());
}
