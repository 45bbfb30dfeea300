// The mesh record with exact functions: places and values as those of the host's own calls, one point after another
// wherever they lie, and lines traced by the library's operations that follow linear fields on any mesh.
#include "support/meshes.hpp"

#include <skoklana/trace.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

struct exact_field {
    host_locator *locator = nullptr;
    mesh_info *mesh = nullptr;

    explicit exact_field(const meshes::test_mesh &of)
    {
        EXPECT_EQ(host_make_locator(of.field, nullptr, &locator), HOST_DONE) << host_error();
        mesh = host_exact_mesh(locator);
        EXPECT_NE(mesh, nullptr) << host_error();
    }
    ~exact_field()
    {
        host_free_exact_mesh(mesh);
        host_free_locator(locator);
    }
    exact_field(const exact_field &) = delete;
    exact_field &operator=(const exact_field &) = delete;
};

// Cells of every kind and order, some kinds together, and lattices with and without axes of one node.
std::vector<meshes::mesh_ptr> exact_meshes()
{
    std::vector<meshes::mesh_ptr> all;
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (const int order : {1, 2})
            all.push_back(meshes::cells(kind, order, {4, 3, 3}, 7, 0.2));
    all.push_back(meshes::cells(CELL_TRI, 1, {5, 4}, 3, 0.2, 2));
    all.push_back(meshes::cells(CELL_LINE, 1, {9}, 3, 0.2, 1));
    all.push_back(meshes::mixed({CELL_HEX, CELL_TET, CELL_PYR, CELL_PRISM}, {1, 2, 1, 2}, 2, 5));
    const std::vector<std::vector<qx_long>> shapes = {{6}, {5, 4}, {5, 1}, {4, 5, 3}, {4, 1, 3}, {1, 7, 1}};
    for (const std::vector<qx_long> &dims : shapes) {
        all.push_back(meshes::uniform(dims, 3, {0, -1, 2}, {1, 0.5, 2.75}));
        all.push_back(meshes::rectilinear(dims, 3, {0, 0.5, 2}, {1, -1, 2.75}, 5));
        all.push_back(meshes::curvilinear(dims, 3, {0, -1, 0}, {1, 0.5, 0.75}, 5, 0.2));
    }
    return all;
}

// Each third one at a node, the others anywhere in a box that is somewhat larger.
std::vector<std::array<float, 3>> points_around(const meshes::test_mesh &mesh, int count)
{
    std::mt19937_64 random(3);
    std::uniform_real_distribution<float> share(-0.1f, 1.1f);
    std::uniform_int_distribution<qx_long> any_node(0, mesh.nnodes() - 1);
    std::vector<std::array<float, 3>> points;
    for (int i = 0; i < count; ++i) {
        std::array<float, 3> at = {0, 0, 0};
        const qx_long node = any_node(random);
        for (int d = 0; d < mesh.nspace; ++d) {
            const float low = mesh.mesh->min_ext[d], high = mesh.mesh->max_ext[d];
            at[static_cast<size_t>(d)] = i % 3 == 0 ? static_cast<float>(meshes::at(mesh, node, d))
                                                    : low + share(random) * (high - low);
        }
        points.push_back(at);
    }
    points.push_back({std::numeric_limits<float>::quiet_NaN(), 0, 0});
    points.push_back({0, std::numeric_limits<float>::infinity(), 0});
    return points;
}

// From a cell's number as places have it to its lowest node.
qx_long lowest_node(const meshes::test_mesh &mesh, qx_long cell)
{
    qx_long node = 0, stride = 1;
    for (const qx_long n : mesh.dims) {
        const qx_long across = std::max<qx_long>(n - 1, 1);
        node += cell % across * stride;
        cell /= across;
        stride *= n;
    }
    return node;
}

} // namespace

TEST(ExactMesh, FindsAndSamplesAsTheHostsOwnCallsDo)
{
    int ninside = 0, nnull = 0;
    for (const meshes::mesh_ptr &mesh : exact_meshes()) {
        const exact_field exact(*mesh);
        const auto points = points_around(*mesh, 400);
        const qx_long npoints = static_cast<qx_long>(points.size());
        host_places *places = nullptr;
        const host_array at = {points.data(), DTYPE_FLOAT, 3, nullptr};
        ASSERT_EQ(host_locate(exact.locator, &at, npoints, &places), HOST_DONE);

        std::vector<double> data;
        for (qx_long node = 0; node < mesh->nnodes(); ++node)
            for (const double factor : {1.0, -2.0})
                data.push_back(factor *
                               (3 + 2 * meshes::at(*mesh, node, 0) - 5 * meshes::at(*mesh, node, 1)));
        const double null = data[static_cast<size_t>(mesh->nnodes() / 2 * 2)];
        const host_array values = {data.data(), DTYPE_DOUBLE, 2, &null};
        std::vector<double> expected(2 * points.size());
        std::vector<unsigned char> mask(points.size());
        ASSERT_EQ(host_sample_nodes(places, &values, expected.data(), mask.data()), HOST_DONE);

        const mesh_methods *methods = exact.mesh->methods;
        for (size_t i = 0; i < points.size(); ++i) {
            qx_long cell = -7;
            float uvw[3] = {9, 9, 9}, row[2] = {};
            const int found = methods->find_cell_func(exact.mesh, nullptr, points[i].data(), &cell, uvw);
            ASSERT_EQ(found, places->cell[i] >= 0 ? 1 : 0) << i;
            if (found == 0) continue;
            ++ninside;
            EXPECT_EQ(cell, mesh->ndim > 0 ? lowest_node(*mesh, places->cell[i]) : places->cell[i]);
            for (size_t d = 0; d < 3; ++d)
                EXPECT_EQ(uvw[d], static_cast<float>(places->uvw[3 * i + d]));
            const int has_value = methods->interp_data_func(exact.mesh, cell, 2, data.data(), DTYPE_DOUBLE, 1,
                                                            &null, 1, uvw, row);
            // A weight may be that of a node by rounding of the place alone.
            if (has_value != mask[i]) {
                ++nnull;
                continue;
            }
            for (size_t c = 0; c < 2 && has_value != 0; ++c)
                EXPECT_NEAR(row[c], expected[2 * i + c], 1e-5);
        }
        host_free_places(places);
    }
    EXPECT_GT(ninside, 3000);
    EXPECT_LT(nnull, 30);
}

TEST(ExactMesh, TakesValuesOfAllTypesAndManyPointsOfACell)
{
    const meshes::mesh_ptr mesh = meshes::uniform({2, 2, 2}, 3, {0, 0, 0}, {1, 1, 1});
    const exact_field exact(*mesh);
    const float point[3] = {0.25f, 0.5f, 0.5f}, corner[3] = {1, 0, 0};
    float uvw[6], row[2];
    qx_long cell;
    ASSERT_EQ(exact.mesh->methods->find_cell_func(exact.mesh, nullptr, point, &cell, uvw), 1);
    ASSERT_EQ(exact.mesh->methods->find_cell_func(exact.mesh, nullptr, corner, &cell, uvw + 3), 1);
    const auto sampled = [&](const void *data, int type) {
        return exact.mesh->methods->interp_data_func(exact.mesh, cell, 1, data, type, 0, nullptr, 2, uvw,
                                                     row);
    };
    // 2 at x 1, 0 at x 0: integers are not rounded
    const signed char chars[8] = {0, 2, 0, 2, 0, 2, 0, 2};
    const int ints[8] = {0, 2, 0, 2, 0, 2, 0, 2};
    const qx_long longs[8] = {0, 2, 0, 2, 0, 2, 0, 2};
    const double doubles[8] = {0, 2, 0, 2, 0, 2, 0, 2};
    const std::pair<const void *, int> arrays[] = {
        {chars, DTYPE_CHAR}, {ints, DTYPE_INT}, {longs, DTYPE_QX_LONG}, {doubles, DTYPE_DOUBLE}};
    for (const auto &array : arrays) {
        row[0] = row[1] = -1;
        EXPECT_EQ(sampled(array.first, array.second), 1);
        EXPECT_EQ(row[0], 0.5f);
        EXPECT_EQ(row[1], 2.0f);
    }
    EXPECT_EQ(sampled(doubles, 99), 0);
    EXPECT_EQ(sampled(nullptr, DTYPE_DOUBLE), 0);
    for (const qx_long wrong : {qx_long{-1}, qx_long{1}, qx_long{2}, qx_long{7}, qx_long{100}})
        EXPECT_EQ(exact.mesh->methods->interp_data_func(exact.mesh, wrong, 1, doubles, DTYPE_DOUBLE, 0,
                                                        nullptr, 1, uvw, row),
                  0)
            << wrong;
}

TEST(ExactMesh, LinesOfALinearFieldAreCirclesOnAnyMeshAndEndAtItsBorder)
{
    std::vector<meshes::mesh_ptr> all;
    for (const int kind : {CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX})
        all.push_back(meshes::cells(kind, 1, {6, 6, 6}, 7, 0.15));
    all.push_back(meshes::cells(CELL_HEX, 2, {5, 5, 5}, 7, 0.1));
    all.push_back(meshes::curvilinear({8, 8, 8}, 3, {0, 0, 0}, {1, 1, 1}, 5, 0.2));
    all.push_back(meshes::rectilinear({8, 8, 8}, 3, {0, 0, 0}, {1, 1, 1}, 5));
    all.push_back(meshes::uniform({8, 8, 8}, 3, {0, 0, 0}, {1, 1, 1}));
    for (const meshes::mesh_ptr &mesh : all) {
        const exact_field exact(*mesh);
        std::vector<float> field; // around the middle, and up
        for (qx_long node = 0; node < mesh->nnodes(); ++node)
            for (const double v : {0.5 - meshes::at(*mesh, node, 1), meshes::at(*mesh, node, 0) - 0.5, 0.02})
                field.push_back(static_cast<float>(v));
        constexpr int most = 4000;
        const float seed[3] = {0.8f, 0.5f, 0.1f};
        std::vector<float> coords(3 * most), vecs(3 * most), uvws(3 * most), speeds(most), steps(most);
        std::vector<qx_long> cells(most);
        float work[3];
        int count = 0;
        ASSERT_EQ(UTILstream_line(exact.mesh, nullptr, field.data(), DTYPE_FLOAT, 3, 0, nullptr, 4, 1, 4, 0,
                                  seed, most, &count, coords.data(), vecs.data(), 1, cells.data(),
                                  uvws.data(), speeds.data(), steps.data(), work),
                  1);
        ASSERT_GT(count, 100);
        ASSERT_LT(count, most);
        for (int i = 0; i < count; ++i) {
            const float *at = &coords[static_cast<size_t>(3 * i)];
            EXPECT_NEAR(std::hypot(at[0] - 0.5, at[1] - 0.5), 0.3, 1e-4) << i;
            EXPECT_NEAR(speeds[static_cast<size_t>(i)], std::hypot(0.3, 0.02), 1e-4);
            EXPECT_LE(at[2], 1.0f + 2e-6f);
        }
        EXPECT_GT(coords[static_cast<size_t>(3 * count - 1)], 0.98f);
    }
}

TEST(ExactMesh, IsNoneOfNoLocator)
{
    EXPECT_EQ(host_exact_mesh(nullptr), nullptr);
    EXPECT_STREQ(host_error(), "host_exact_mesh: locator is NULL");
    host_free_exact_mesh(nullptr);
}
