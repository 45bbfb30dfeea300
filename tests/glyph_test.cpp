#include "support/fetches.hpp"
#include "support/fresh_host.hpp"
#include "support/glyph_reference.hpp"
#include "support/lattices.hpp"
#include "support/meshes.hpp"
#include "support/trace_reference.hpp"

#include <skoklana.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace reference = glyph_reference;
using reference::output;
using reference::request;
using reference::source;
using trace_reference::as_type;

namespace {

const char *const kind_names[] = {"uniform", "rectilinear", "curvilinear", "cells"};

meshes::mesh_ptr mesh_of_kind(int kind, const lattices::shape &s)
{
    switch (kind) {
    case 0: return lattices::uniform(s);
    case 1: return lattices::rectilinear(s);
    case 2: return lattices::curvilinear(s);
    default: return meshes::cells(CELL_TET, 1, {2, 1, 1}, 3, 0.1);
    }
}

// One node at (1, 2, 3), of a template along x with a point off it on each axis.
struct one_node {
    meshes::mesh_ptr made = meshes::from_cells(3, {1, 2, 3}, {}, {}, {});
    request r;

    explicit one_node(std::vector<double> data, int type = DTYPE_FLOAT)
    {
        r.mesh = made->mesh;
        r.places = {1, 2, 3};
        r.type = type;
        r.veclen = static_cast<int>(data.size());
        r.data = as_type(type, data);
        r.map_veclen = r.scale_veclen = r.veclen;
        r.glyph_coords = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    }

    // Row g less the place of the node.
    std::vector<float> row(const output &out, size_t g) const
    {
        return {out.coords[3 * g] - 1, out.coords[3 * g + 1] - 2, out.coords[3 * g + 2] - 3};
    }
};

double value_of(const output &out, int type, size_t row)
{
    double value = -77;
    UTILtype_to_double(type, out.data.data() + row * static_cast<size_t>(DTYPEtype_size(type)), &value);
    return value;
}

void expect_near(const std::vector<float> &a, const std::vector<float> &b)
{
    for (size_t d = 0; d < 3; ++d)
        EXPECT_NEAR(a[d], b[d], 1e-6) << "axis " << d;
}

std::vector<float> random_floats(std::mt19937_64 *random, size_t n)
{
    std::uniform_real_distribution<float> spread(-1, 1);
    std::vector<float> values(n);
    for (float &x : values)
        x = spread(*random);
    return values;
}

// Rows of a type, some zero, some along z, some null with all of their entries and some with the first alone.
std::vector<double> rows_of(std::mt19937_64 *random, int type, qx_long n, int veclen, double null)
{
    std::vector<double> values;
    for (qx_long i = 0; i < n; ++i) {
        const uint64_t what = (*random)() % 8;
        for (int c = 0; c < veclen; ++c) {
            double x = std::uniform_real_distribution<double>(type == DTYPE_BYTE ? 0 : -40, 40)(*random);
            if (type == DTYPE_FLOAT || type == DTYPE_DOUBLE) x /= 7;
            if (what == 0) x = 0;
            if (what == 1 && c < 2) x = 0;
            if (what == 2 || (what == 3 && c == 0)) x = null;
            if (what == 4 && (type == DTYPE_FLOAT || type == DTYPE_DOUBLE)) x *= 1e-25;
            values.push_back(x);
        }
    }
    return values;
}

request random_request(std::mt19937_64 *random, const meshes::test_mesh &m, int type)
{
    const auto pick = [&](int n) { return static_cast<int>((*random)() % static_cast<uint64_t>(n)); };
    request r;
    r.mesh = m.mesh;
    r.places = m.coords;
    r.type = type;
    r.veclen = 1 + pick(3);
    r.null_flag = pick(2);
    const double null = 5;
    r.null_value = as_type(type, {null});
    r.data = as_type(type, rows_of(random, type, m.nnodes(), r.veclen, null));
    r.scale_from = pick(2) == 0 ? source::same_array : source::own_array;
    r.map_from = pick(2) == 0 ? source::same_array : source::own_array;
    r.scale_veclen = r.scale_from == source::same_array ? r.veclen : 1 + pick(3);
    r.map_veclen = r.map_from == source::same_array ? r.veclen : 1 + pick(3);
    r.scale_data = as_type(type, rows_of(random, type, m.nnodes(), r.scale_veclen, null));
    r.map_data = as_type(type, rows_of(random, type, m.nnodes(), r.map_veclen, null));
    r.orient = pick(3);
    r.by_component = pick(2);
    r.normalize = pick(2);
    r.scale = 0.3 * (pick(5) - 2);
    for (int &flag : r.scale_axes)
        flag = pick(3);
    if (pick(2) == 0) r.node_xform = random_floats(random, 16);
    if (pick(2) == 0) r.glyph_xform = random_floats(random, 16);
    r.glyph_nspace = 1 + pick(3);
    const size_t sizes[] = {0, 1, 2, 5, 7, 8, 9, 12, 16, 23, 24, 25, 31, 40};
    r.glyph_coords = random_floats(random, sizes[pick(14)] * static_cast<size_t>(r.glyph_nspace));
    r.out_nspace = 1 + pick(3);
    return r;
}

class Glyph : public FreshHost {};

} // namespace

// ---- all of it, against the slow form ------------------------------------------------------------------------

TEST_F(Glyph, AgreesWithTheSlowFormForAllOptionsTypesAndMeshKinds)
{
    std::mt19937_64 random(2);
    reference::tally seen;
    const std::vector<lattices::shape> shapes = lattices::small_shapes();
    for (int kind = 0; kind < 4; ++kind)
        for (const lattices::shape &s : shapes) {
            const meshes::mesh_ptr made = mesh_of_kind(kind, s);
            if (kind != 3 && made->mesh->methods->glyph_func == nullptr) FAIL() << "no function is bound";
            for (int i = 0; i < 21; ++i) {
                const request r = random_request(&random, *made, i % 7);
                const output expected = reference::slow(r, &seen);
                const host_calls::watch watch;
                const output out = reference::run(r);
                ASSERT_TRUE(reference::same(out, expected)) << kind_names[kind] << ", " << lattices::text(s)
                                                            << ", type " << r.type << ", request " << i;
            }
        }
    for (int reached : {seen.null, seen.collapsed, seen.turned, seen.not_turned, seen.along_z,
                        seen.double_division, seen.unit_x})
        EXPECT_GT(reached, 100) << "the requests no longer reach all branches";
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(Glyph, TemplatesOfAnySizeAgreeWithTheSlowForm)
{
    std::mt19937_64 random(6);
    reference::tally seen;
    const meshes::mesh_ptr made = meshes::curvilinear({5, 5, 3}, 3, {0, 0, 0}, {1, 1, 1}, 6);
    for (size_t nnodes : {255, 256, 257, 264, 512, 600})
        for (int out_nspace = 1; out_nspace <= 3; ++out_nspace)
            for (int orient : {0, 1}) {
                request r = random_request(&random, *made, DTYPE_FLOAT);
                r.orient = orient;
                r.out_nspace = out_nspace;
                r.glyph_nspace = 3;
                r.glyph_coords = random_floats(&random, 3 * nnodes);
                ASSERT_TRUE(reference::same(reference::run(r), reference::slow(r, &seen))) << nnodes;
            }
}

TEST_F(Glyph, InfinitiesAndNotANumberComeOutAsTheArithmeticHasThem)
{
    std::mt19937_64 random(9);
    const float nan_value = std::numeric_limits<float>::quiet_NaN(),
                inf = std::numeric_limits<float>::infinity();
    const meshes::mesh_ptr made = meshes::curvilinear({9, 9, 2}, 3, {0, 0, 0}, {1, 1, 1}, 6);
    reference::tally seen;
    for (int i = 0; i < 60; ++i) {
        request r = random_request(&random, *made, i % 2 == 0 ? DTYPE_FLOAT : DTYPE_DOUBLE);
        std::vector<double> values = rows_of(&random, r.type, made->nnodes(), r.veclen, 5);
        for (double &x : values) {
            const uint64_t what = random() % 12;
            if (what == 0) x = static_cast<double>(nan_value);
            if (what == 1) x = static_cast<double>(inf);
            if (what == 2) x = -1e30;
            if (what == 3) x = -0.0;
        }
        r.data = as_type(r.type, values);
        for (float &x : r.glyph_coords)
            if (random() % 20 == 0) x = random() % 2 == 0 ? inf : -0.0f;
        ASSERT_TRUE(reference::same(reference::run(r), reference::slow(r, &seen))) << i;
    }
}

// ---- orientation and size --------------------------------------------------------------------------------------------

TEST_F(Glyph, TemplateFollowsTheVector)
{
    const one_node n({0, 3, 4});
    const output out = reference::run(n.r);
    expect_near(n.row(out, 0), {0, 3, 4});  // x along the vector
    expect_near(n.row(out, 1), {5, 0, 0});  // y along the vector cross z
    expect_near(n.row(out, 2), {0, 4, -3}); // z along the first cross the second
}

TEST_F(Glyph, VectorsAlongZHaveAProperFrameToo)
{
    for (double z : {2.0, -2.0}) {
        const one_node n({0, 0, z});
        const output out = reference::run(n.r);
        const std::vector<float> u = n.row(out, 0), w = n.row(out, 1), t = n.row(out, 2);
        expect_near(u, {0, 0, static_cast<float>(z)});
        expect_near(w, {static_cast<float>(-z), 0, 0});
        expect_near(t, {0, -2, 0});
    }
}

TEST_F(Glyph, ScalarsAreNotTurnedAndNegativeOnesTurnTheTemplateOver)
{
    one_node n({-2});
    for (source from : {source::same_array, source::own_array}) {
        n.r.scale_from = from;
        n.r.scale_data = n.r.data;
        const output out = reference::run(n.r);
        expect_near(n.row(out, 0), {-2, 0, 0});
        expect_near(n.row(out, 1), {0, -2, 0});
        EXPECT_EQ(value_of(out, DTYPE_FLOAT, 0), -2);
    }
    n.r.scale_veclen = 2;
    n.r.scale_data = as_type(DTYPE_FLOAT, {-3, -4});
    expect_near(n.row(reference::run(n.r), 0), {5, 0, 0});
}

TEST_F(Glyph, OnlyFlaggedAxesScaleAndThatAfterTurning)
{
    one_node n({0, 2, 0});
    n.r.scale_axes[0] = 0;
    n.r.scale_axes[2] = 0;
    const output out = reference::run(n.r);
    expect_near(n.row(out, 0), {0, 2, 0});
    expect_near(n.row(out, 1), {1, 0, 0});
    expect_near(n.row(out, 2), {0, 0, -1});
}

TEST_F(Glyph, ComponentsScaleTheirAxes)
{
    one_node n({2, -3, 4});
    n.r.orient = 0;
    n.r.by_component = 1;
    n.r.scale = 0.5;
    const output out = reference::run(n.r);
    expect_near(n.row(out, 0), {1, 0, 0});
    expect_near(n.row(out, 1), {0, -1.5f, 0});
    expect_near(n.row(out, 2), {0, 0, 2});
}

TEST_F(Glyph, NormalizedComponentsShortenTheTurnedAxisTwice)
{
    one_node n({0, 4, 0});
    n.r.by_component = n.r.normalize = 1;
    const output out = reference::run(n.r);
    // u is the vector over 16, and the y component of the vector over 4 is 1.
    expect_near(n.row(out, 0), {0, 0.25f, 0});
    n.r.scale_axes[0] = n.r.scale_axes[1] = n.r.scale_axes[2] = 0;
    expect_near(n.row(reference::run(n.r), 0), {0, 0.25f, 0});
    expect_near(n.row(reference::run(n.r), 1), {1, 0, 0});
}

TEST_F(Glyph, LengthDoesNotCountWhenNormalized)
{
    one_node n({0, 4, 0});
    n.r.normalize = 1;
    n.r.scale = 3;
    n.r.scale_from = source::own_array;
    n.r.scale_data = as_type(DTYPE_FLOAT, {9, 9, 9});
    expect_near(n.row(reference::run(n.r), 0), {0, 3, 0});
}

// ---- vectors of no length ------------------------------------------------------------------------------------------

TEST_F(Glyph, ZeroVectorsCollapseAndTheirScalarsAreAbsolute)
{
    one_node n({0, 0, 0});
    n.r.map_from = source::own_array;
    n.r.map_veclen = 1;
    n.r.map_data = as_type(DTYPE_FLOAT, {-7});
    const output out = reference::run(n.r);
    for (size_t g = 0; g < 3; ++g) {
        expect_near(n.row(out, g), {0, 0, 0});
        EXPECT_EQ(value_of(out, DTYPE_FLOAT, g), 7);
    }
    n.r.data = as_type(DTYPE_FLOAT, {1, 0, 0});
    EXPECT_EQ(value_of(reference::run(n.r), DTYPE_FLOAT, 0), -7) << "as it stands";
}

TEST_F(Glyph, ZeroVectorsHaveFullSizeWhenNormalized)
{
    one_node n({0, 0, 0});
    n.r.normalize = 1;
    n.r.scale = 2;
    const output out = reference::run(n.r);
    expect_near(n.row(out, 0), {2, 0, 0});
    expect_near(n.row(out, 1), {0, 2, 0});
    expect_near(n.row(out, 2), {0, 0, 2});
    n.r.by_component = 1;
    const output flat = reference::run(n.r);
    expect_near(n.row(flat, 0), {2, 0, 0});
    expect_near(n.row(flat, 1), {0, 0, 0});
    expect_near(n.row(flat, 2), {0, 0, 0});
}

TEST_F(Glyph, LimitOfZeroIsAFloat)
{
    for (float x : {1e-24f, std::nextafter(1e-24f, 0.0f)}) {
        one_node n({static_cast<double>(x)});
        n.r.scale = 1e24;
        n.r.orient = 0;
        const output out = reference::run(n.r);
        EXPECT_NEAR(n.row(out, 0)[0], x == 1e-24f ? 1 : 0, 1e-6);
    }
}

// ---- null data ------------------------------------------------------------------------------------------------------

TEST_F(Glyph, NullNodesCollapseAndKeepTheFirstValue)
{
    one_node n({5, 5, 5}, DTYPE_INT);
    n.r.null_flag = 1;
    n.r.null_value = as_type(DTYPE_INT, {5});
    n.r.map_from = source::own_array;
    n.r.map_veclen = 2;
    n.r.map_data = as_type(DTYPE_INT, {16777217, 3});
    const output out = reference::run(n.r);
    for (size_t g = 0; g < 3; ++g) {
        expect_near(n.row(out, g), {0, 0, 0});
        EXPECT_EQ(value_of(out, DTYPE_INT, g), 16777217);
    }
    n.r.data = as_type(DTYPE_INT, {5, 5, 6});
    EXPECT_GT(reference::length({{n.row(reference::run(n.r), 0)[0], 0, 0}}), 1)
        << "all components have to be null";
}

// ---- values -----------------------------------------------------------------------------------------------------------

TEST_F(Glyph, SeparateScalarsKeepAllBitsAndSharedOnesTheirFirst24)
{
    one_node n({16777217}, DTYPE_INT);
    EXPECT_EQ(value_of(reference::run(n.r), DTYPE_INT, 0), 16777216);
    n.r.map_from = source::own_array;
    n.r.map_data = n.r.data;
    EXPECT_EQ(value_of(reference::run(n.r), DTYPE_INT, 0), 16777217);
}

TEST_F(Glyph, ComputedValuesAreTruncatedAndNarrowTypesTakeTheLowBits)
{
    one_node bytes({200, 200, 200}, DTYPE_BYTE); // length 346.4
    EXPECT_EQ(value_of(reference::run(bytes.r), DTYPE_BYTE, 0), 346 - 256);
    one_node shorts({3, 4}, DTYPE_SHORT);
    EXPECT_EQ(value_of(reference::run(shorts.r), DTYPE_SHORT, 0), 5);
    one_node longs({2, 2}, DTYPE_QX_LONG); // 2.83
    EXPECT_EQ(value_of(reference::run(longs.r), DTYPE_QX_LONG, 0), 2);
    one_node doubles({1, 1}, DTYPE_DOUBLE);
    EXPECT_EQ(value_of(reference::run(doubles.r), DTYPE_DOUBLE, 0), static_cast<double>(std::sqrt(2.0f)));
}

// ---- failures and interruption ----------------------------------------------------------------------------------------

TEST_F(Glyph, UnknownTypeIsReportedUnderTheFormsNameBeforeAnythingIsFetched)
{
    const std::vector<lattices::shape> shapes = {{{3, 3}, 2}};
    const char *const names[] = {"UTILglyph_unif", "UTILglyph_rect", "UTILglyph", "UTILglyph"};
    for (int kind = 0; kind < 4; ++kind) {
        const meshes::mesh_ptr made = mesh_of_kind(kind, shapes[0]);
        std::mt19937_64 random(1);
        request r = random_request(&random, *made, DTYPE_FLOAT);
        failing_fetches fetches(made->mesh);
        for (int code : {-1, 7}) {
            host_calls::reset();
            output out(r);
            r.type = code;
            EXPECT_EQ(UTILglyph_func(r.mesh, code, r.veclen, r.data.data(), 0, nullptr, 1, 1, r.data.data(),
                                     r.data.data(), 0, 0, 0, 1, r.scale_axes, nullptr, r.glyph_nnodes(),
                                     r.glyph_nspace, r.glyph_coords.data(), nullptr, r.out_nspace,
                                     out.coords.data(), out.data.data()),
                      0);
            EXPECT_EQ(host_calls::report_texts(),
                      std::vector<std::string>{std::string(names[kind]) + ": unknown data type"});
        }
        EXPECT_EQ(fetches.coords_calls + fetches.points_calls, 0);
    }
}

TEST_F(Glyph, PlacesThatCantBeFetchedAreReported)
{
    const std::vector<lattices::shape> shapes = {{{3, 3}, 2}};
    for (int kind = 0; kind < 4; ++kind) {
        const meshes::mesh_ptr made = mesh_of_kind(kind, shapes[0]);
        std::mt19937_64 random(1);
        request r = random_request(&random, *made, DTYPE_FLOAT);
        r.glyph_coords.resize(static_cast<size_t>(3 * r.glyph_nspace));
        host_calls::reset();
        failing_fetches fetches(made->mesh);
        fetches.fail_coords = fetches.fail_points = 1;
        const output out = reference::run(r), untouched(r);
        EXPECT_EQ(out.result, 0);
        EXPECT_EQ(out.data, untouched.data);
        EXPECT_EQ(host_calls::report_texts(),
                  std::vector<std::string>{kind < 2 ? "fld_info: unable to get field points"
                                                    : "fld_info: unable to get field coordinates"});
        EXPECT_EQ(reference::run(r).result, 1) << "the next one tries again";
    }
}

TEST_F(Glyph, MeshWithoutAFormIsTold)
{
    one_node n({1, 0, 0});
    trace_reference::own_methods methods(n.r.mesh);
    methods.table.glyph_func = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(reference::run(n.r).result, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "UTILglyph_func: no glyph function found\n");
}

TEST_F(Glyph, ChecksAtEvery257thNodeAndKeepsWhatWasWritten)
{
    for (int kind = 0; kind < 3; ++kind) {
        const meshes::mesh_ptr made = mesh_of_kind(kind, {{13, 11, 7}, 3});
        std::mt19937_64 random(5);
        request r = random_request(&random, *made, DTYPE_SHORT);
        r.glyph_nspace = 3;
        r.glyph_coords = random_floats(&random, 30);
        reference::tally seen;
        const qx_long total = r.nnodes();
        std::vector<qx_long> checked;
        std::vector<int> percents;
        for (qx_long n = 256; n < total; n += 257) {
            checked.push_back(n);
            percents.push_back(static_cast<int>(static_cast<float>(n) *
                                                static_cast<float>(100.0 / static_cast<double>(total))));
        }
        ASSERT_EQ(checked.size(), 3u);
        host_calls::reset();
        EXPECT_TRUE(reference::same(reference::run(r), reference::slow(r, &seen)));
        host_calls::expect_checks(percents);
        for (size_t k = 0; k < checked.size(); ++k) {
            host_calls::reset();
            host_calls::interrupt_at(static_cast<int>(k));
            EXPECT_TRUE(reference::same(reference::run(r), reference::slow(r, &seen, checked[k]))) << k;
        }
        host_calls::reset();
    }
}

TEST_F(Glyph, AllocatesNothing)
{
    const meshes::mesh_ptr made = mesh_of_kind(0, {{9, 9, 9}, 3});
    std::mt19937_64 random(5);
    request r = random_request(&random, *made, DTYPE_FLOAT);
    r.glyph_nspace = 3;
    r.glyph_coords = random_floats(&random, 900);
    output out(r);
    r.mesh->get_points(r.mesh, &r.mesh->points);
    const host_calls::watch watch;
    UTILglyph_func(r.mesh, r.type, r.veclen, r.data.data(), 0, nullptr, 1, 1, r.data.data(), r.data.data(), 1,
                   0, 0, 1, r.scale_axes, nullptr, r.glyph_nnodes(), 3, r.glyph_coords.data(), nullptr,
                   r.out_nspace, out.coords.data(), out.data.data());
    EXPECT_EQ(watch.allocations(), 0);
}

TEST_F(Glyph, EmptyMeshesAndTemplatesGiveNothing)
{
    one_node n({1, 2, 3});
    n.r.glyph_coords.clear();
    EXPECT_EQ(reference::run(n.r).result, 1);
    const meshes::mesh_ptr none = meshes::from_cells(3, {}, {}, {}, {});
    request r = n.r;
    r.mesh = none->mesh;
    r.glyph_coords = {1, 2, 3};
    EXPECT_EQ(reference::run(r).result, 1);
}
