// Measures of fields: bodies and integrals that are known, on every kind and order.
#include <skoklana_host.h>

#include "support/arrays.hpp"
#include "support/fresh_host.hpp"
#include "support/meshes.hpp"

#include <cmath>

namespace {

class Measures : public FreshHost {};

struct found {
    host_measure of[3];
    const host_measure &operator[](int ndim) const { return of[ndim - 1]; }
};

template <typename T>
found measure(const meshes::mesh_ptr &mesh, const std::vector<T> &values, const T *null_value = nullptr)
{
    found out;
    const host_array array = {values.data(), arrays::dtype_of<T>, 1, null_value};
    EXPECT_EQ(HOST_DONE, host_measure_field(mesh->field, &array, 0, out.of));
    return out;
}

const int all_kinds[] = {CELL_LINE, CELL_TRI, CELL_QUAD, CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX};

// The integral of a polynomial over the unit box of ndim dimensions, x^a y^b z^c.
double box_integral(int ndim, int a, int b, int c)
{
    const int exponent[3] = {a, b, c};
    double integral = 1;
    for (int d = 0; d < 3; ++d)
        integral *= d < ndim ? 1.0 / (exponent[d] + 1) : exponent[d] == 0 ? 1 : 0;
    return integral;
}

} // namespace

TEST_F(Measures, UnitBoxesOfAllKindsAndOrdersAreOneAndLinearFieldsExact)
{
    for (int kind : all_kinds)
        for (int order : {1, 2}) {
            const int ndim = cell_kinds[kind].ndim;
            for (double jitter : {0.0, 0.15}) {
                // inner corners are moved: cells stay straight, and fill the box all the same
                const auto mesh = meshes::cells(kind, order, {3, 2, 2}, 7, jitter);
                const auto x = meshes::field_of<double>(
                    *mesh, [](double u, double v, double w) { return 2 * u - v + 3 * w; });
                const found out = measure(mesh, x);
                const double expected = box_integral(ndim, 1, 0, 0) * 2 - box_integral(ndim, 0, 1, 0) +
                                        3 * box_integral(ndim, 0, 0, 1);
                if (jitter > 0) continue; // outer corners are moved, too
                EXPECT_NEAR(1, out[ndim].measure, 1e-6) << kind << " order " << order;
                EXPECT_NEAR(expected, out[ndim].integral, 2e-6) << kind << " order " << order;
                EXPECT_EQ(out[ndim].measure, out[ndim].valued);
                EXPECT_EQ(mesh->mesh->ncells, out[ndim].ncells);
                for (int other = 1; other <= 3; ++other)
                    if (other != ndim) {
                        EXPECT_EQ(0, out[other].measure + static_cast<double>(out[other].ncells));
                    }
            }
        }
}

TEST_F(Measures, SecondOrderCellsIntegrateQuadraticFieldsExactly)
{
    for (int kind : all_kinds) {
        const int ndim = cell_kinds[kind].ndim;
        const auto mesh = meshes::cells(kind, 2, {2, 2, 2}, 3);
        const auto square =
            meshes::field_of<double>(*mesh, [](double x, double y, double) { return x * x + x * y; });
        EXPECT_NEAR(box_integral(ndim, 2, 0, 0) + box_integral(ndim, 1, 1, 0),
                    measure(mesh, square)[ndim].integral, 2e-6)
            << kind;
    }
}

TEST_F(Measures, DistortedSolidsHaveTheVolumeThatTheirBoundaryEncloses)
{
    // Two halves of one body, moved corners between them: whatever the corners, the parts add up.
    for (int kind : {CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX}) {
        const auto coarse = meshes::cells(kind, 1, {1, 1, 1}, 1);
        std::mt19937_64 random(static_cast<uint64_t>(kind));
        std::vector<float> coords = coarse->coords;
        for (float &c : coords)
            c += static_cast<float>(random() % 100) / 1000;
        const auto mesh = meshes::from_cells(3, coords, {kind}, {1}, coarse->connect);
        const auto ones = std::vector<float>(static_cast<size_t>(mesh->nnodes()), 1.0f);
        const found whole = measure(mesh, ones);
        EXPECT_NEAR(whole[3].measure, whole[3].integral, 1e-14);
        // by the divergence theorem: the integral of 1 is that of the flux of (x, 0, 0), here by many small tets
        if (kind != CELL_TET) continue;
        double volume = 0;
        for (size_t t = 0; t < mesh->connect[0].size(); t += 4) {
            double e[3][3];
            for (int r = 0; r < 3; ++r)
                for (int d = 0; d < 3; ++d)
                    e[r][d] = meshes::at(*mesh, mesh->connect[0][t + static_cast<size_t>(r)], d) -
                              meshes::at(*mesh, mesh->connect[0][t + 3], d);
            volume += std::fabs(e[0][0] * (e[1][1] * e[2][2] - e[1][2] * e[2][1]) +
                                e[0][1] * (e[1][2] * e[2][0] - e[1][0] * e[2][2]) +
                                e[0][2] * (e[1][0] * e[2][1] - e[1][1] * e[2][0])) /
                      6;
        }
        EXPECT_NEAR(volume, whole[3].measure, 1e-12);
    }
}

TEST_F(Measures, ACurvedTriangleHasTheAreaUnderItsParabola)
{
    // Its curved side goes through the middle of an arc of a circle.
    const float h = std::sqrt(0.5f);
    const std::vector<float> coords = {1, 0, 0, 1, 0, 0, h, h, 0, 0.5f, 0.5f, 0};
    const auto mesh = meshes::from_cells(2, coords, {CELL_TRI}, {2}, {{0, 1, 2, 3, 4, 5}});
    found out;
    ASSERT_EQ(HOST_DONE, host_measure_field(mesh->field, nullptr, 7, out.of));
    // The triangle and two thirds of the arc's height over its chord.
    const double height = 1 - std::sqrt(0.5), chord = std::sqrt(2.0);
    EXPECT_NEAR(0.5 + 2.0 / 3 * height * chord, out[2].measure, 1e-6);
}

TEST_F(Measures, NullNodesTakeOutTheIntegralAndNotTheMeasure)
{
    const auto mesh = meshes::cells(CELL_QUAD, 1, {4, 1}, 1);
    std::vector<int> values(static_cast<size_t>(mesh->nnodes()), 3);
    const int null_value = -1;
    values[static_cast<size_t>(mesh->connect[0][0])] =
        null_value; // a corner of the first cell and maybe of more
    const found out = measure(mesh, values, &null_value);
    EXPECT_NEAR(1, out[2].measure, 1e-6);
    EXPECT_GT(out[2].null_cells, 0);
    EXPECT_NEAR(1 - static_cast<double>(out[2].null_cells) / 4, out[2].valued, 1e-6);
    EXPECT_NEAR(3, out[2].integral / out[2].valued, 1e-12);
}

TEST_F(Measures, StructuredMeshesOfAllKinds)
{
    const auto check = [](const meshes::mesh_ptr &mesh, int ndim, double measure_, qx_long ncells) {
        const auto x = meshes::field_of<float>(*mesh, [](double u, double, double) { return u; });
        const found out = measure(mesh, x);
        EXPECT_NEAR(measure_, out[ndim].measure, 1e-5 * measure_);
        EXPECT_NEAR(0.5, out[ndim].integral / out[ndim].valued, 1e-5);
        EXPECT_EQ(ncells, out[ndim].ncells);
    };
    check(meshes::uniform({4, 5, 3}, 3, {0, 0, 0}, {1, 2, 3}), 3, 6, 24);
    check(meshes::uniform({4, 5}, 2, {0, 0}, {1, 2}), 2, 2, 12);
    check(meshes::uniform({4, 5}, 3, {0, 0, 1}, {1, 2, 1}), 2, 2, 12);
    check(meshes::uniform({9}, 1, {0}, {1}), 1, 1, 8);
    check(meshes::uniform({4, 1, 3}, 3, {0, 0, 0}, {1, 0, 3}), 2, 3, 6); // an axis of one node
    check(meshes::rectilinear({4, 5, 3}, 3, {0, 0, 0}, {1, 2, 3}, 5), 3, 6, 24);
    check(meshes::curvilinear({4, 5, 3}, 3, {0, 0, 0}, {1, 2, 3}, 5, 0), 3, 6, 24);
    const auto one = meshes::uniform({1, 1, 1}, 3, {0, 0, 0}, {0, 0, 0});
    EXPECT_EQ(0, measure(one, std::vector<float>{1})[3].ncells);
}

TEST_F(Measures, MixedMeshesAreToldApartByDimension)
{
    const auto mesh =
        meshes::mixed({CELL_HEX, CELL_PYR, CELL_TRI, CELL_LINE, CELL_TET}, {1, 2, 1, 1, 2}, 2, 3);
    const found out = measure(mesh, std::vector<double>(static_cast<size_t>(mesh->nnodes()), 2.0));
    EXPECT_NEAR(3, out[3].measure, 1e-5);
    EXPECT_NEAR(1, out[2].measure, 1e-5);
    EXPECT_NEAR(1, out[1].measure, 1e-5);
    EXPECT_NEAR(6, out[3].integral, 1e-5);
}

TEST_F(Measures, EveryTypeAndComponentIsRead)
{
    const auto mesh = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 1);
    const auto try_type = [&](auto sample) {
        using T = decltype(sample);
        std::vector<T> rows;
        for (qx_long n = 0; n < mesh->nnodes(); ++n)
            rows.insert(rows.end(), {T(1), T(5), T(9)});
        host_measure out[3];
        const host_array array = {rows.data(), arrays::dtype_of<T>, 3, nullptr};
        for (int c : {0, 1, 2}) {
            EXPECT_EQ(HOST_DONE, host_measure_field(mesh->field, &array, c, out));
            EXPECT_NEAR(1 + 4 * c, out[2].integral, 1e-5);
        }
        for (int c : {-1, 3})
            EXPECT_EQ(HOST_FAILED, host_measure_field(mesh->field, &array, c, out));
    };
    try_type(static_cast<signed char>(0));
    try_type(static_cast<unsigned char>(0));
    try_type(short{0});
    try_type(0);
    try_type(0.0f);
    try_type(0.0);
    try_type(qx_long{0});
    const host_array wrong = {&mesh, 9, 1, nullptr};
    host_measure out[3];
    EXPECT_EQ(HOST_FAILED, host_measure_field(mesh->field, &wrong, 0, out));
    EXPECT_STREQ("host_measure_field: values have the type 9, which there is not", host_error());
}

TEST_F(Measures, StopsWhereItIsAskedTo)
{
    const auto mesh = meshes::uniform({42, 42, 42}, 3, {0, 0, 0}, {1, 1, 1});
    const auto stop_late = [](void *calls, int, const char *) {
        return ++*static_cast<int *>(calls) == 2 ? 1 : 0;
    };
    int calls = 0;
    host_set_progress_handler(stop_late, &calls);
    host_measure out[3];
    EXPECT_EQ(HOST_STOPPED, host_measure_field(mesh->field, nullptr, 0, out));
    host_set_progress_handler(nullptr, nullptr);
    EXPECT_EQ(0, out[2].ncells);
    EXPECT_EQ(HOST_DONE, host_measure_field(mesh->field, nullptr, 0, out));
    EXPECT_EQ(41 * 41 * 41, out[2].ncells);
}
