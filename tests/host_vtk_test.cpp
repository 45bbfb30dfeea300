// Cells in VTK's order: each kind in its place, by where VTK says its nodes stand, and what is refused.
#include "support/meshes.hpp"

#include <skoklana/locate.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>
#include <string>

namespace {

using triple = std::array<double, 3>;

struct field_release {
    void operator()(host_field *field) const { host_free_field(field); }
    void operator()(host_locator *locator) const { host_free_locator(locator); }
    void operator()(host_places *places) const { host_free_places(places); }
};
using field_ptr = std::unique_ptr<host_field, field_release>;

// VTK's nodes of a type in its parametric coordinates; further nodes as the corners that each stands between.
struct vtk_cell {
    int type, kind, order, ndim;
    std::vector<triple> corners;
    std::vector<std::array<size_t, 2>> edges;

    std::vector<triple> nodes() const
    {
        std::vector<triple> all = corners;
        for (const auto &edge : edges) {
            triple middle;
            for (size_t d = 0; d < 3; ++d)
                middle[d] = (corners[edge[0]][d] + corners[edge[1]][d]) / 2;
            all.push_back(middle);
        }
        return all;
    }
};

const std::vector<triple> line = {{0, 0, 0}, {1, 0, 0}};
const std::vector<triple> triangle = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
const std::vector<triple> square = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
const std::vector<triple> tetrahedron = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
const std::vector<triple> cube = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                                  {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
const std::vector<triple> wedge = {{0, 0, 0}, {0, 1, 0}, {1, 0, 0}, {0, 0, 1}, {0, 1, 1}, {1, 0, 1}};
const std::vector<triple> pyramid = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, 1}};

const std::vector<vtk_cell> &vtk_cells()
{
    static const std::vector<vtk_cell> all = {
        {3, CELL_LINE, 1, 1, line, {}},
        {5, CELL_TRI, 1, 2, triangle, {}},
        {8, CELL_QUAD, 1, 2, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, {}},
        {9, CELL_QUAD, 1, 2, square, {}},
        {10, CELL_TET, 1, 3, tetrahedron, {}},
        {11,
         CELL_HEX,
         1,
         3,
         {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {0, 0, 1}, {1, 0, 1}, {0, 1, 1}, {1, 1, 1}},
         {}},
        {12, CELL_HEX, 1, 3, cube, {}},
        {13, CELL_PRISM, 1, 3, wedge, {}},
        {14, CELL_PYR, 1, 3, pyramid, {}},
        {21, CELL_LINE, 2, 1, line, {{0, 1}}},
        {22, CELL_TRI, 2, 2, triangle, {{0, 1}, {1, 2}, {2, 0}}},
        {23, CELL_QUAD, 2, 2, square, {{0, 1}, {1, 2}, {2, 3}, {3, 0}}},
        {24, CELL_TET, 2, 3, tetrahedron, {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {1, 3}, {2, 3}}},
        {25,
         CELL_HEX,
         2,
         3,
         cube,
         {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6}, {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}}},
        {26,
         CELL_PRISM,
         2,
         3,
         wedge,
         {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}}},
        {27, CELL_PYR, 2, 3, pyramid, {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 4}, {2, 4}, {3, 4}}},
    };
    return all;
}

// Sums up to quadratic are in the space of second-order kinds, and linear ones in that of the first.
double values_of(const triple &p, int order)
{
    const double linear = 1 + 2 * p[0] - 3 * p[1] + 5 * p[2];
    return order == 1 ? linear : linear + p[0] * p[0] - p[1] * p[2] + 2 * p[0] * p[1];
}

} // namespace

TEST(VtkCells, HaveTheirNodesWhereVtkSays)
{
    for (const vtk_cell &cell : vtk_cells()) {
        const std::vector<triple> nodes = cell.nodes();
        std::vector<float> coords;
        std::vector<double> data;
        std::vector<qx_long> row;
        for (size_t k = 0; k < nodes.size(); ++k) {
            coords.insert(coords.end(), {static_cast<float>(nodes[k][0]), static_cast<float>(nodes[k][1]),
                                         static_cast<float>(nodes[k][2])});
            data.push_back(values_of(nodes[k], cell.order));
            row.push_back(static_cast<qx_long>(k));
        }
        const field_ptr field(host_cells(static_cast<qx_long>(nodes.size()), 3, coords.data()));
        const unsigned char type = static_cast<unsigned char>(cell.type);
        const qx_long offsets[2] = {0, static_cast<qx_long>(nodes.size())};
        qx_long number = -1;
        ASSERT_EQ(host_add_cells_vtk(field.get(), 1, &type, offsets, row.data(), &number), 1) << host_error();
        EXPECT_EQ(number, 0);
        const mesh_info *mesh = host_mesh(field.get());
        ASSERT_NE(mesh, nullptr);
        ASSERT_EQ(mesh->ncell_sets, 1);
        EXPECT_EQ(mesh->cell_ndim[0], cell.ndim);
        EXPECT_EQ(mesh->cell_order[0], cell.order);
        EXPECT_EQ(mesh->cell_nnodes[0], static_cast<int>(nodes.size()));

        // Values within the cell are right only if each node stands where the cell has it, and parameters turn the
        // same way.
        std::vector<triple> points = {{0.3, 0.2, 0.1}, {0.45, 0.4, 0.15}, {0.4, 0.45, 0.05}};
        for (triple &p : points)
            for (size_t d = static_cast<size_t>(cell.ndim); d < 3; ++d)
                p[d] = 0;
        host_locator *locator = nullptr;
        host_places *made = nullptr;
        ASSERT_EQ(host_make_locator(field.get(), nullptr, &locator), HOST_DONE);
        const std::unique_ptr<host_locator, field_release> held(locator);
        const host_array at = {points.data(), DTYPE_DOUBLE, 3, nullptr};
        ASSERT_EQ(host_locate(locator, &at, 3, &made), HOST_DONE);
        const std::unique_ptr<host_places, field_release> places(made);
        const host_array values = {data.data(), DTYPE_DOUBLE, 1, nullptr};
        double out[3];
        ASSERT_EQ(host_sample_nodes(made, &values, out, nullptr), HOST_DONE);
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(made->cell[i], 0) << cell.type;
            EXPECT_NEAR(out[i], values_of(points[i], cell.order), 1e-6) << cell.type;
        }
    }
}

TEST(VtkCells, AreSortedIntoSetsAndTellTheirNumbers)
{
    std::vector<float> coords(3 * 20);
    for (size_t i = 0; i < coords.size(); ++i)
        coords[i] = static_cast<float>(i * i % 17);
    const unsigned char types[6] = {12, 5, 11, 5, 10, 9};
    const qx_long offsets[7] = {0, 8, 11, 19, 22, 26, 30};
    const qx_long nodes[30] = {0, 1, 2, 3, 4, 5,  6,  7,  8,  9,  10, 0, 1, 2, 3,
                               4, 5, 6, 7, 1, 12, 13, 14, 15, 16, 17, 2, 3, 4, 5};
    const field_ptr field(host_cells(20, 3, coords.data()));
    const qx_long before[2] = {3, 4};
    ASSERT_EQ(host_add_cells(field.get(), CELL_LINE, 1, 1, before), 1);
    qx_long numbers[6];
    ASSERT_EQ(host_add_cells_vtk(field.get(), 6, types, offsets, nodes, numbers), 1);
    const qx_long expected[6] = {5, 1, 6, 2, 4, 3};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(numbers[i], expected[i]) << i;
    const mesh_info *mesh = host_mesh(field.get());
    ASSERT_EQ(mesh->ncell_sets, 5); // line, triangles, quadrilateral, tetrahedron, hexahedra
    qx_long *connect = nullptr;
    ASSERT_EQ(mesh->get_connect(const_cast<mesh_info *>(mesh), 4, &connect), 1);
    const qx_long hexahedra[16] = {7, 4, 5, 6, 3, 0, 1, 2, 6, 4, 5, 7, 2, 0, 1, 3};
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(connect[i], hexahedra[i]) << i;
}

TEST(VtkCells, AreRefusedAsAWhole)
{
    const float coords[3 * 4] = {};
    const field_ptr field(host_cells(4, 2, coords));
    const auto refused = [&](unsigned char type, qx_long n, std::vector<qx_long> nodes,
                             const std::string &text) {
        const unsigned char types[2] = {3, type};
        const qx_long offsets[3] = {0, 2, 2 + n};
        nodes.insert(nodes.begin(), {0, 1});
        EXPECT_EQ(host_add_cells_vtk(field.get(), 2, types, offsets, nodes.data(), nullptr), 0);
        EXPECT_EQ(host_error(), "host_add_cells_vtk: " + text);
    };
    refused(7, 3, {0, 1, 2}, "cell 1 has VTK's type 7, which is none of 3, 5, 8 to 14 and 21 to 27");
    refused(5, 4, {0, 1, 2, 3}, "cell 1 has 4 nodes, but a cell of VTK's type 5 has 3");
    refused(5, -9, {0, 1, 2}, "cell 1 has 0 nodes, but a cell of VTK's type 5 has 3");
    refused(5, 3, {0, 1, 4}, "cell 1 names node 4, but the field has 4 nodes");
    refused(5, 3, {0, -1, 2}, "cell 1 names node -1, but the field has 4 nodes");
    refused(10, 4, {0, 1, 2, 3}, "cell 1 is a tet, which needs 3 coordinates a node, but the field has 2");
    EXPECT_EQ(host_add_cells_vtk(field.get(), 1, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_STREQ(host_error(), "host_add_cells_vtk: types is NULL");
    EXPECT_EQ(host_add_cells_vtk(nullptr, 0, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_STREQ(host_error(), "host_add_cells_vtk: field is NULL");
    EXPECT_EQ(host_add_cells_vtk(field.get(), -1, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(host_add_cells_vtk(field.get(), 0, nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(host_mesh(field.get())->ncell_sets, 0);
}
