// Measures and integrals: bodies whose measure is known, and the cell functions summed one by one.
#include <skoklana/cell.h>
#include <skoklana/measure.h>

#include "support/arrays.hpp"
#include "support/fresh_host.hpp"
#include "support/meshes.hpp"

#include <cmath>

using namespace arrays;

namespace {

using integrate_func = int (*)(mesh_info *, int, qx_long, const void *, int, int, const void *, float *,
                               float *);

struct sums {
    float measure = -1, integral = -1;
};

bool operator==(const sums &a, const sums &b)
{
    return memcmp(&a, &b, sizeof a) == 0;
}

std::ostream &operator<<(std::ostream &out, const sums &s)
{
    return out << s.measure << ", " << s.integral;
}

sums measure(mesh_info *mesh, int ndim, const void *data = nullptr, int dtype = DTYPE_FLOAT,
             int null_flag = 0, const void *null_value = nullptr)
{
    sums out;
    EXPECT_EQ(1, UTILvol_integr(mesh, ndim, data, dtype, null_flag, null_value, &out.measure, &out.integral));
    return out;
}

struct sample_point {
    float uvw[3];
    float weight;
};

// The rules, written out once more by their coordinates.
std::vector<sample_point> points_of(int kind)
{
    const float s = 1.0f / 6, l = 2.0f / 3, e = 0.57735026f;
    switch (kind) {
    case CELL_LINE: return {{{0, 0, 0}, 1}, {{0, 0, 0}, 1}};
    case CELL_TRI: return {{{1.0f / 3, 1.0f / 3, 0}, 0.5f}};
    case CELL_QUAD: return {{{-e, -e, 0}, 1}, {{e, -e, 0}, 1}, {{e, e, 0}, 1}, {{-e, e, 0}, 1}};
    case CELL_TET: return {{{0.25f, 0.25f, 0.25f}, s}};
    case CELL_PRISM:
        return {{{l, s, -e}, s}, {{s, l, -e}, s}, {{s, s, -e}, s},
                {{l, s, e}, s},  {{s, l, e}, s},  {{s, s, e}, s}};
    default:
        return {{{e, -e, -e}, 1}, {{e, e, -e}, 1}, {{-e, e, -e}, 1}, {{-e, -e, -e}, 1},
                {{e, -e, e}, 1},  {{e, e, e}, 1},  {{-e, e, e}, 1},  {{-e, -e, e}, 1}};
    }
}

struct kind_functions {
    int kind;
    shape_func shape;
    shape_deriv_func slope;
    integrate_func integrate;
};

const kind_functions kinds[] = {
    {CELL_LINE, UTILsh_func_line_1, UTILsh_deriv_line_1, UTILvol_integr_cell_line},
    {CELL_TRI, UTILsh_func_tri_1, UTILsh_deriv_tri_1, UTILvol_integr_cell_tri},
    {CELL_QUAD, UTILsh_func_quad_1, UTILsh_deriv_quad_1, UTILvol_integr_cell_quad},
    {CELL_TET, UTILsh_func_tet_1, UTILsh_deriv_tet_1, UTILvol_integr_cell_tet},
    {CELL_PRISM, UTILsh_func_pent_1, UTILsh_deriv_pent_1, UTILvol_integr_cell_prism},
    {CELL_HEX, UTILsh_func_hex_1, UTILsh_deriv_hex_1, UTILvol_integr_cell_hex},
};

// One cell by the formulas, in float, through the host's products.
template <typename T>
sums slow_cell(const kind_functions &of, const meshes::test_mesh &mesh, int set, qx_long cell, const T *data,
               const T *null_value)
{
    const int n = cell_kinds[of.kind].ncorners, ndim = cell_kinds[of.kind].ndim;
    float coords[24] = {}, values[8] = {};
    for (int c = 0; c < n; ++c) {
        const qx_long node = mesh.connect[static_cast<size_t>(set)][static_cast<size_t>(cell * n + c)];
        for (int d = 0; d < mesh.nspace; ++d)
            coords[3 * c + d] = static_cast<float>(meshes::at(mesh, node, d));
        if (data == nullptr) continue;
        if (null_value != nullptr && data[node] == *null_value) return {0, 0};
        values[c] = static_cast<float>(data[node]);
    }
    sums out = {0, 0};
    for (const sample_point &q : points_of(of.kind)) {
        float weights[8], slopes[24];
        of.shape(q.uvw, weights);
        of.slope(q.uvw, slopes);
        const float det = std::fabs(ndim == 1   ? UTILjacobian_1d_det(n, slopes, coords)
                                    : ndim == 2 ? UTILjacobian_2d_det(n, slopes, coords)
                                                : UTILjacobian_3d_det(n, slopes, coords));
        out.measure += det * q.weight;
        if (data == nullptr) continue;
        float value = 0;
        for (int c = 0; c < n; ++c)
            value += weights[c] * values[c];
        out.integral += value * q.weight * det;
    }
    return out;
}

template <typename T> class Integral : public FreshHost {
};
TYPED_TEST_SUITE(Integral, all_types);

class Measure : public FreshHost {};

} // namespace

TYPED_TEST(Integral, IsTheSumOfTheCellsBitForBit)
{
    using T = TypeParam;
    qx_long taken_out = 0;
    for (const kind_functions &of : kinds) {
        for (int nspace = cell_kinds[of.kind].ndim; nspace <= 3; ++nspace) {
            // 1 to 27 cells and their multiples: every remainder of a group of lanes
            const auto mesh = meshes::cells(of.kind, 1, {3, 3, 3}, 5, 0.2, nspace);
            const auto data = mixed_values<T>(9, mesh->nnodes(), T(100));
            const T null_value = T(100);
            for (int nulls : {0, 1}) {
                sums expected = {0, 0};
                qx_long left_out = 0; // no cell of these has a measure of 0
                for (qx_long cell = 0; cell < mesh->mesh->cell_count[0]; ++cell) {
                    sums one;
                    ASSERT_EQ(1, of.integrate(mesh->mesh, 0, cell, data.data(), dtype_of<T>, nulls,
                                              &null_value, &one.measure, &one.integral));
                    const sums slow =
                        slow_cell(of, *mesh, 0, cell, data.data(), nulls != 0 ? &null_value : nullptr);
                    if (!std::isnan(slow.integral)) {
                        ASSERT_EQ(slow, one) << "kind " << of.kind;
                    }
                    expected.measure += one.measure;
                    expected.integral += one.integral;
                    left_out += one.measure == 0;
                }
                const sums all = measure(mesh->mesh, cell_kinds[of.kind].ndim, data.data(), dtype_of<T>,
                                         nulls, &null_value);
                if (std::isnan(expected.integral))
                    EXPECT_TRUE(std::isnan(all.integral));
                else
                    EXPECT_EQ(expected, all) << "kind " << of.kind << " nspace " << nspace;
                EXPECT_EQ(expected.measure, all.measure);
                EXPECT_TRUE(nulls != 0 || left_out == 0);
                taken_out += left_out;
            }
        }
    }
    EXPECT_GT(taken_out, 100);
}

TYPED_TEST(Integral, NullsAreToldInTheDatasOwnType)
{
    using T = TypeParam;
    const auto mesh = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    std::vector<T> data(8, T(3));
    T null_value = T(4);
    if constexpr (sizeof(T) == 8) { // equal as floats, not as what they are
        null_value = T((qx_long{1} << 40) + 1);
        data.assign(8, T(qx_long{1} << 40));
    }
    EXPECT_NE(0, measure(mesh->mesh, 3, data.data(), dtype_of<T>, 1, &null_value).measure);
    data[5] = null_value;
    EXPECT_EQ((sums{0, 0}), measure(mesh->mesh, 3, data.data(), dtype_of<T>, 1, &null_value));
    EXPECT_NE(0, measure(mesh->mesh, 3, data.data(), dtype_of<T>, 0, &null_value).measure);
}

TEST_F(Measure, AUnitCubeIsOneAndItsIntegralTheMean)
{
    const auto mesh = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    const auto z = meshes::field_of<float>(*mesh, [](double, double, double w) { return 2 * w; });
    const sums out = measure(mesh->mesh, 3, z.data());
    EXPECT_FLOAT_EQ(1, out.measure);
    EXPECT_FLOAT_EQ(1, out.integral);
}

TEST_F(Measure, StraightCellsOfAllKindsFillTheUnitBox)
{
    for (const kind_functions &of : kinds) {
        const auto mesh = meshes::cells(of.kind, 1, {3, 2, 4}, 1);
        const auto linear = meshes::field_of<double>(*mesh, [](double x, double, double) { return x; });
        const sums out = measure(mesh->mesh, cell_kinds[of.kind].ndim, linear.data(), DTYPE_DOUBLE);
        EXPECT_NEAR(1, out.measure, 1e-5) << "kind " << of.kind;
        EXPECT_NEAR(0.5, out.integral, 1e-5) << "kind " << of.kind;
    }
}

TEST_F(Measure, InvertedCellsCountAsPositive)
{
    const std::vector<float> coords = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    const auto one = meshes::from_cells(3, coords, {CELL_TET}, {1}, {{0, 1, 2, 3}});
    const auto other = meshes::from_cells(3, coords, {CELL_TET}, {1}, {{1, 0, 2, 3}});
    EXPECT_FLOAT_EQ(1.0f / 6, measure(one->mesh, 3).measure);
    EXPECT_FLOAT_EQ(1.0f / 6, measure(other->mesh, 3).measure);
}

TEST_F(Measure, ALineIsSampledTwiceAtItsMiddle)
{
    const auto mesh = meshes::from_cells(3, {0, 0, 0, 3, 4, 0}, {CELL_LINE}, {1}, {{0, 1}});
    EXPECT_FLOAT_EQ(5, measure(mesh->mesh, 1).measure);
    // What the two points make of x^2 at the ends 0 and 1: its value in the middle of the line, not two thirds.
    const float data[2] = {0, 1};
    EXPECT_FLOAT_EQ(2.5, measure(mesh->mesh, 1, data).integral);
    int evaluations = 0;
    static int *seen;
    seen = &evaluations;
    static float last[3];
    mesh->mesh->cell_funcs[SLOT_SHAPE_FUNC] = reinterpret_cast<cell_func>(+[](const float *uvw, float *n) {
        ++*seen;
        last[0] = uvw[0];
        UTILsh_func_line_1(uvw, n);
    });
    float vol, integral;
    UTILvol_integr_cell_line(mesh->mesh, 0, 0, data, DTYPE_FLOAT, 0, nullptr, &vol, &integral);
    EXPECT_EQ(2, evaluations);
    EXPECT_EQ(0, last[0]);
}

TEST_F(Measure, PyramidsAndSecondOrderCellsAddNothing)
{
    EXPECT_EQ((sums{0, 0}), measure(meshes::cells(CELL_PYR, 1, {2, 2, 2}, 1)->mesh, 3));
    for (const kind_functions &of : kinds)
        EXPECT_EQ((sums{0, 0}),
                  measure(meshes::cells(of.kind, 2, {2, 2, 2}, 1)->mesh, cell_kinds[of.kind].ndim));
}

TEST_F(Measure, OneDimensionOfAMixedMeshIsMeasured)
{
    const auto mesh =
        meshes::mixed({CELL_HEX, CELL_TRI, CELL_PYR, CELL_TET, CELL_LINE}, {1, 1, 1, 1, 1}, 2, 3);
    EXPECT_NEAR(2, measure(mesh->mesh, 3).measure, 1e-5);
    EXPECT_NEAR(1, measure(mesh->mesh, 2).measure, 1e-5);
    EXPECT_NEAR(1, measure(mesh->mesh, 1).measure, 1e-5);
    EXPECT_EQ((sums{0, 0}), measure(mesh->mesh, 0));
    EXPECT_EQ((sums{0, 0}), measure(mesh->mesh, 4));
}

TEST_F(Measure, CurvedCellsAreMeasuredByTheSameRulesWhereAHostBindsThem)
{
    // A quarter disc as one second-order quad, by the function of quads in the slot of a second-order set.
    const auto mesh = meshes::cells(CELL_HEX, 2, {2, 2, 2}, 1);
    mesh->mesh->cell_funcs[SLOT_VOL_INTEGR] = reinterpret_cast<cell_func>(UTILvol_integr_cell_hex);
    EXPECT_NEAR(1, measure(mesh->mesh, 3).measure, 1e-5);
}

TEST_F(Measure, SetsWithoutShapeFunctionsArePassedOver)
{
    for (int slot : {SLOT_SHAPE_FUNC, SLOT_SHAPE_DERIV, SLOT_VOL_INTEGR}) {
        const auto mesh = meshes::cells(CELL_QUAD, 1, {2, 2}, 1);
        mesh->mesh->cell_funcs[slot] = nullptr;
        EXPECT_EQ((sums{0, 0}), measure(mesh->mesh, 2));
        float vol = 3, integral = 3;
        if (slot == SLOT_VOL_INTEGR) continue;
        EXPECT_EQ(0, UTILvol_integr_cell_quad(mesh->mesh, 0, 0, nullptr, 0, 0, nullptr, &vol, &integral));
        EXPECT_EQ(0, vol);
    }
}

TEST_F(Measure, AHostsOwnRuleIsCalledForEveryCell)
{
    const auto mesh = meshes::cells(CELL_TRI, 1, {2, 3}, 1);
    mesh->mesh->cell_funcs[SLOT_VOL_INTEGR] =
        reinterpret_cast<cell_func>(+[](mesh_info *, int, qx_long cell, const void *, int, int, const void *,
                                        float *vol, float *integral) {
            *vol = static_cast<float>(cell);
            *integral = 2;
            return 0; // not looked at
        });
    EXPECT_EQ((sums{66, 24}), measure(mesh->mesh, 2));
}

TEST_F(Measure, OfAnyOtherDimensionTheMeasureIsZero)
{
    const auto mesh = meshes::cells(CELL_TRI, 1, {2, 2}, 1);
    mesh->mesh->cell_ndim[0] = 4;
    EXPECT_EQ((sums{0, 0}), measure(mesh->mesh, 4));
}

TEST_F(Measure, StructuredMeshesAreMeasuredThroughTheirOneSet)
{
    EXPECT_NEAR(6, measure(meshes::uniform({4, 5, 3}, 3, {0, 0, 0}, {1, 2, 3})->mesh, 3).measure, 1e-4);
    EXPECT_NEAR(2, measure(meshes::rectilinear({4, 5}, 2, {0, 0}, {1, 2}, 3)->mesh, 2).measure, 1e-5);
    EXPECT_NEAR(6, measure(meshes::curvilinear({5, 5, 5}, 3, {0, 0, 0}, {1, 2, 3}, 1)->mesh, 3).measure,
                1e-4);
    EXPECT_NEAR(4, measure(meshes::uniform({5}, 1, {0}, {4})->mesh, 1).measure, 1e-5);
}

TEST_F(Measure, WithoutDataNeitherTypeNorNullIsLookedAt)
{
    const auto mesh = meshes::cells(CELL_TET, 1, {1, 1, 1}, 1);
    const sums out = measure(mesh->mesh, 3, nullptr, 99, 1, nullptr);
    EXPECT_NEAR(1, out.measure, 1e-6);
    EXPECT_EQ(0, out.integral);
}

TEST_F(Measure, AnUnknownTypeIsTalkedOfForEachCell)
{
    const auto mesh = meshes::cells(CELL_QUAD, 1, {3, 1}, 1);
    const float data[8] = {};
    testing::internal::CaptureStderr();
    EXPECT_EQ((sums{0, 0}), measure(mesh->mesh, 2, data, 7));
    float vol = 5, integral = 5;
    EXPECT_EQ(0, UTILvol_integr_cell_quad(mesh->mesh, 0, 0, data, -1, 0, nullptr, &vol, &integral));
    const std::string line = "UTILvol_integr: unknown data type\n";
    EXPECT_EQ(line + line + line + line, testing::internal::GetCapturedStderr());
    EXPECT_EQ(0, vol);
    EXPECT_EQ(0, integral);
}

TEST_F(Measure, WhatCannotBeFetchedIsReportedForEachCellAndTriedAgain)
{
    const auto mesh = meshes::cells(CELL_QUAD, 1, {3, 1}, 1);
    static int calls;
    calls = 0;
    const auto fetch = mesh->mesh->get_connect;
    static int (*connects)(mesh_info *, int, qx_long **);
    connects = fetch;
    mesh->mesh->cell_connect[0] = nullptr;
    mesh->mesh->get_connect = [](mesh_info *, int, qx_long **) { return ++calls, 0; };
    EXPECT_EQ((sums{0, 0}), measure(mesh->mesh, 2));
    EXPECT_EQ(3, calls);
    EXPECT_EQ(std::vector<std::string>(3, "fld_info: unable to get cell set connect list"),
              host_calls::report_texts());
    float vol = 5, integral = 5;
    EXPECT_EQ(0, UTILvol_integr_cell_quad(mesh->mesh, 0, 0, nullptr, 0, 0, nullptr, &vol, &integral));
    EXPECT_EQ(5, vol); // as it was

    // The second cell gets it.
    host_calls::reset();
    calls = 0;
    mesh->mesh->get_connect = [](mesh_info *m, int set, qx_long **out) {
        return ++calls < 2 ? 0 : connects(m, set, out);
    };
    EXPECT_NEAR(2.0 / 3, measure(mesh->mesh, 2).measure, 1e-6);
    EXPECT_EQ(1u, host_calls::seen().reports.size());

    host_calls::reset();
    mesh->mesh->coords = nullptr;
    mesh->mesh->get_coords = [](mesh_info *, float **) { return 0; };
    EXPECT_EQ((sums{0, 0}), measure(mesh->mesh, 2));
    EXPECT_EQ(std::vector<std::string>(3, "fld_info: unable to get field coordinates"),
              host_calls::report_texts());
}

TEST_F(Measure, EmptyMeshesMeasureZeroAndNoProgressIsTold)
{
    const auto mesh = meshes::cells(CELL_HEX, 1, {8, 8, 8}, 1);
    measure(mesh->mesh, 3);
    host_calls::expect_checks({});
    EXPECT_EQ(0, host_calls::seen().lowest_depth);
    mesh->mesh->ncell_sets = 0;
    EXPECT_EQ((sums{0, 0}), measure(mesh->mesh, 3));
}

TEST_F(Measure, NothingIsAllocatedForAnyKnownKind)
{
    for (const kind_functions &of : kinds) {
        const auto mesh = meshes::cells(of.kind, 1, {2, 2, 2}, 1);
        const std::vector<float> data(static_cast<size_t>(mesh->nnodes()), 1.0f);
        measure(mesh->mesh, cell_kinds[of.kind].ndim, data.data());
        const host_calls::watch watch;
        measure(mesh->mesh, cell_kinds[of.kind].ndim, data.data());
        EXPECT_EQ(0, watch.allocations());
    }
}
