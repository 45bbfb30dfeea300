// Every kind of cell that VTK has, through files and back.
//
// A single cell is built from VTK's own parametric coordinates, so that what is tested is the
// meaning that VTK gives to a cell's nodes, and not a copy of our table of it.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkCell.h>
#include <vtkCellData.h>
#include <vtkCellType.h>
#include <vtkGenericCell.h>
#include <vtkIdList.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

namespace {

struct kind {
    const char *name;
    int type, back; // VTK's type, and the type that it comes back as
    int ndim;
    bool same_values; // the values inside are VTK's
};

std::ostream &operator<<(std::ostream &out, const kind &one)
{
    return out << one.name;
}

// Second-order prisms and pyramids are sampled as pieces, and pyramids have another shape function than VTK's.
const kind kinds[] = {
    {"line", VTK_LINE, VTK_LINE, 1, true},
    {"triangle", VTK_TRIANGLE, VTK_TRIANGLE, 2, true},
    {"quad", VTK_QUAD, VTK_QUAD, 2, true},
    {"tetra", VTK_TETRA, VTK_TETRA, 3, true},
    {"pyramid", VTK_PYRAMID, VTK_PYRAMID, 3, false},
    {"wedge", VTK_WEDGE, VTK_WEDGE, 3, true},
    {"hexahedron", VTK_HEXAHEDRON, VTK_HEXAHEDRON, 3, true},
    {"pixel", VTK_PIXEL, VTK_QUAD, 2, true},
    {"voxel", VTK_VOXEL, VTK_HEXAHEDRON, 3, true},
    {"edge_2", VTK_QUADRATIC_EDGE, VTK_QUADRATIC_EDGE, 1, true},
    {"triangle_2", VTK_QUADRATIC_TRIANGLE, VTK_QUADRATIC_TRIANGLE, 2, true},
    {"quad_2", VTK_QUADRATIC_QUAD, VTK_QUADRATIC_QUAD, 2, true},
    {"tetra_2", VTK_QUADRATIC_TETRA, VTK_QUADRATIC_TETRA, 3, true},
    {"pyramid_2", VTK_QUADRATIC_PYRAMID, VTK_QUADRATIC_PYRAMID, 3, false},
    {"wedge_2", VTK_QUADRATIC_WEDGE, VTK_QUADRATIC_WEDGE, 3, false},
    {"hexahedron_2", VTK_QUADRATIC_HEXAHEDRON, VTK_QUADRATIC_HEXAHEDRON, 3, true},
    {"triangle_7", VTK_BIQUADRATIC_TRIANGLE, VTK_QUADRATIC_TRIANGLE, 2, false},
    {"quad_9", VTK_BIQUADRATIC_QUAD, VTK_QUADRATIC_QUAD, 2, false},
    {"wedge_18", VTK_BIQUADRATIC_QUADRATIC_WEDGE, VTK_QUADRATIC_WEDGE, 3, false},
    {"hexahedron_24", VTK_BIQUADRATIC_QUADRATIC_HEXAHEDRON, VTK_QUADRATIC_HEXAHEDRON, 3, false},
    {"hexahedron_27", VTK_TRIQUADRATIC_HEXAHEDRON, VTK_QUADRATIC_HEXAHEDRON, 3, false},
    {"pyramid_19", VTK_TRIQUADRATIC_PYRAMID, VTK_QUADRATIC_PYRAMID, 3, false},
};

vtkSmartPointer<vtkCell> instance_of(int type)
{
    return vtkSmartPointer<vtkCell>::Take(vtkGenericCell::InstantiateCell(type));
}

// Where node i of VTK's cell stands: as VTK's parametric coordinates say, but for pyramids, whose own are those of a
// collapsed cube, or start half-way up.
std::array<double, 3> place_of(int type, int i)
{
    const double *p = instance_of(type)->GetParametricCoords() + 3 * i;
    double at[3] = {p[0], p[1], p[2]};
    if (type == VTK_TRIQUADRATIC_PYRAMID) at[2] = 2 * p[2] - 1;
    if (type == VTK_PYRAMID || type == VTK_QUADRATIC_PYRAMID)
        for (int d = 0; d < 2; ++d)
            at[d] = p[d] + (i == 4 || i >= 9 ? (0.5 - p[d]) * (i == 4 ? 1 : 0.5) : 0);
    // turned and stretched, so that flat faces stay flat and straight edges straight
    const double axes[3][3] = {{1.1, 0.2, -0.1}, {-0.15, 0.9, 0.1}, {0.2, 0.05, 1.2}};
    std::array<double, 3> xyz;
    for (size_t d = 0; d < 3; ++d)
        xyz[d] = 3 + axes[0][d] * at[0] + axes[1][d] * at[1] + axes[2][d] * at[2];
    return xyz;
}

vtkSmartPointer<vtkUnstructuredGrid> one_cell(int type)
{
    const auto cell = instance_of(type);
    auto grid = vtkSmartPointer<vtkUnstructuredGrid>::New();
    vtkNew<vtkPoints> points;
    vtkNew<vtkIdList> nodes;
    for (int i = 0; i < cell->GetNumberOfPoints(); ++i)
        nodes->InsertNextId(points->InsertNextPoint(place_of(type, i).data()));
    grid->SetPoints(points);
    grid->InsertNextCell(type, nodes);
    number_all(grid);
    random_numbers random(static_cast<unsigned>(type));
    add_node_array(grid, "any", [&](const double *) { return random.next(); });
    add_node_array(grid, "ramp", [](const double *x) { return 0.3 * x[0] + 0.5 * x[1] + x[2]; });
    return grid;
}

// The length of the edges that one triangle alone has: of a whole plane cut, its circumference.
double rim_of(vtkPolyData *surface)
{
    std::map<std::pair<vtkIdType, vtkIdType>, int> uses;
    for (vtkIdType c = 0; c < surface->GetNumberOfCells(); ++c) {
        vtkIdList *nodes = surface->GetCell(c)->GetPointIds();
        for (int i = 0; i < 3; ++i)
            ++uses[std::minmax(nodes->GetId(i), nodes->GetId((i + 1) % 3))];
    }
    double sum = 0;
    for (const auto &[edge, count] : uses) {
        if (count != 1) continue;
        double a[3], b[3];
        surface->GetPoint(edge.first, a);
        surface->GetPoint(edge.second, b);
        sum += std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
    }
    return sum;
}

class CellKinds : public testing::TestWithParam<kind> {};

TEST_P(CellKinds, ComeBackAsTheyWere)
{
    const kind &one = GetParam();
    for (const char *ending : {".vtk", ".vtu"}) {
        const auto grid = one_cell(one.type);
        const std::string path = scratch(one.name + std::string(ending)), out = scratch("back.vtu");
        write(path, grid);
        run_well({"threshold-null", path, "-a", "any", "--null", "-1", "-o", out});
        const auto back = read(out);
        ASSERT_EQ(back->GetNumberOfCells(), 1);
        EXPECT_EQ(back->GetCellType(0), one.back);
        EXPECT_EQ(cell_array(back, "cell")->GetComponent(0, 0), 0);
        // node i of the cell stands where node i of VTK's cell does, and has its values
        const auto expected = instance_of(one.back);
        vtkNew<vtkIdList> nodes;
        back->GetCellPoints(0, nodes);
        ASSERT_EQ(nodes->GetNumberOfIds(), expected->GetNumberOfPoints());
        for (int i = 0; i < expected->GetNumberOfPoints(); ++i) {
            const auto xyz = place_of(one.back, i);
            for (int d = 0; d < 3; ++d)
                EXPECT_NEAR(back->GetPoint(nodes->GetId(i))[d], xyz[static_cast<size_t>(d)], 1e-5)
                    << "node " << i;
            const auto old =
                static_cast<vtkIdType>(node_array(back, "node")->GetComponent(nodes->GetId(i), 0));
            EXPECT_NEAR(node_array(back, "any")->GetComponent(nodes->GetId(i), 0),
                        node_array(grid, "any")->GetComponent(old, 0), 1e-5);
        }
    }
}

// A linear field has the same level sets however a cell is split: they are plane cuts through it.
TEST_P(CellKinds, AreCutAlongPlanes)
{
    const kind &one = GetParam();
    if (one.ndim < 2) return;
    const auto grid = one_cell(one.type);
    const std::string path = scratch(std::string(one.name) + ".vtu"), out = scratch("plane.vtp");
    write(path, grid);
    double range[2];
    node_array(grid, "ramp")->GetRange(range);
    const double level = range[0] + 0.47 * (range[1] - range[0]);
    run_well({one.ndim == 3 ? "iso" : "isoline", path, "-a", "ramp", "-l", std::to_string(level), "-o", out});
    const auto ours = read_surface(out), theirs = contour(grid, "ramp", {std::stod(std::to_string(level))});
    const double expected = one.ndim == 3 ? area_of(theirs) : length_of(theirs);
    ASSERT_GT(expected, 0.1);
    EXPECT_NEAR(one.ndim == 3 ? area_of(ours) : length_of(ours), expected, 1e-4 * expected);
    if (one.ndim == 3) {
        EXPECT_NEAR(rim_of(ours), rim_of(theirs), 1e-4 * rim_of(theirs)) << "pieces overlap";
    }
    EXPECT_EQ(cell_array(ours, "cell")->GetRange()[1], 0);
}

TEST_P(CellKinds, HoldVtksValuesInside)
{
    const kind &one = GetParam();
    const auto grid = one_cell(one.type);
    const std::string path = scratch(std::string(one.name) + ".vtu"), at = scratch("inside.vtp");
    write(path, grid);
    vtkCell *cell = grid->GetCell(0);
    vtkNew<vtkPoints> points;
    std::vector<double> expected;
    double middle[3];
    cell->GetParametricCenter(middle);
    for (int i = 0; i < cell->GetNumberOfPoints(); ++i) {
        double parametric[3] = {0, 0, 0}, xyz[3], weights[64], value = 0;
        for (int d = 0; d < one.ndim; ++d) // nearer to the node than to any other
            parametric[d] = middle[d] + 0.85 * (cell->GetParametricCoords()[3 * i + d] - middle[d]);
        int sub = 0;
        cell->EvaluateLocation(sub, parametric, xyz, weights);
        for (int n = 0; n < cell->GetNumberOfPoints(); ++n)
            value += weights[n] * node_array(grid, "any")->GetComponent(n, 0);
        points->InsertNextPoint(xyz);
        expected.push_back(value);
    }
    vtkNew<vtkPolyData> where;
    where->SetPoints(points);
    write(at, where);
    run_well({"probe", path, "--points", at, "-o", scratch("values.vtp")});

    // Points are placed in a cell to a twentieth of its parameters. Values that are 0 to 1 at the nodes change
    // by up to 0.2 over that, and by 0.06 on average.
    const auto ours = read(scratch("values.vtp"));
    double sum = 0;
    for (vtkIdType i = 0; i < points->GetNumberOfPoints(); ++i) {
        const double *x = points->GetPoint(i);
        ASSERT_EQ(node_array(ours, "vtkValidPointMask")->GetComponent(i, 0), 1) << "point " << i;
        ASSERT_NEAR(node_array(ours, "ramp")->GetComponent(i, 0), 0.3 * x[0] + 0.5 * x[1] + x[2], 0.1);
        if (!one.same_values) continue;
        const double off =
            std::abs(node_array(ours, "any")->GetComponent(i, 0) - expected[static_cast<size_t>(i)]);
        ASSERT_LT(off, 0.2) << "point " << i;
        sum += off;
    }
    EXPECT_LT(sum, 0.06 * static_cast<double>(points->GetNumberOfPoints()));
}

INSTANTIATE_TEST_SUITE_P(Vtk, CellKinds, testing::ValuesIn(kinds));

TEST(MixedCells, KeepTheirNumbers)
{
    // a cell of each kind in one file, in no order of kinds, beside some that have no kind
    auto grid = vtkSmartPointer<vtkUnstructuredGrid>::New();
    vtkNew<vtkPoints> points;
    grid->SetPoints(points);
    int placed = 0;
    const auto add = [&](int type) {
        const auto cell = instance_of(type);
        vtkNew<vtkIdList> nodes;
        for (int i = 0; i < cell->GetNumberOfPoints(); ++i) {
            const double *p = cell->GetParametricCoords() + 3 * i;
            nodes->InsertNextId(points->InsertNextPoint(p[0] + 2 * placed, p[1], p[2]));
        }
        grid->InsertNextCell(type, nodes);
        ++placed;
    };
    for (const int type : {VTK_HEXAHEDRON, VTK_TETRA, VTK_PENTAGONAL_PRISM, VTK_WEDGE, VTK_QUADRATIC_TETRA,
                           VTK_HEXAHEDRON, VTK_HEXAGONAL_PRISM, VTK_PYRAMID, VTK_TETRA})
        add(type);
    number_all(grid);
    add_node_array(grid, "height", [](const double *x) { return x[2]; });
    write(scratch("mixed.vtu"), grid);
    const ran result =
        run_well({"iso", scratch("mixed.vtu"), "-a", "height", "-l", "0.4", "-o", scratch("mixed.vtp")});
    EXPECT_NE(result.err.find("split into simplices: 1 PentagonalPrism, 1 HexagonalPrism"), std::string::npos)
        << shown(result);
    const auto ours = read_surface(scratch("mixed.vtp")), theirs = contour(grid, "height", {0.4});
    EXPECT_NEAR(area_of(ours), area_of(theirs), 1e-4 * area_of(theirs));
    std::vector<bool> seen(9);
    for (vtkIdType c = 0; c < ours->GetNumberOfCells(); ++c) {
        double box[6];
        ours->GetCell(c)->GetBounds(box);
        const auto cell = static_cast<int>(cell_array(ours, "cell")->GetComponent(c, 0));
        ASSERT_EQ(cell, static_cast<int>(box[0] / 2 + 0.01));
        seen[static_cast<size_t>(cell)] = true;
    }
    EXPECT_EQ(seen, std::vector<bool>(9, true));
}

TEST(CellsWithoutAKind, AreSplitOrLeftOutWithACount)
{
    vtkNew<vtkUnstructuredGrid> grid;
    vtkNew<vtkPoints> points;
    grid->SetPoints(points);
    for (int i = 0; i < 5; ++i)
        points->InsertNextPoint(std::cos(i * 1.2566), std::sin(i * 1.2566), 0);
    const vtkIdType all[5] = {0, 1, 2, 3, 4};
    grid->InsertNextCell(VTK_POLYGON, 5, all);
    grid->InsertNextCell(VTK_VERTEX, 1, all);
    grid->InsertNextCell(VTK_VERTEX, 1, all + 1);
    grid->InsertNextCell(VTK_BEZIER_TRIANGLE, 3, all);
    add_node_array(grid, "x", [](const double *x) { return x[0]; });
    write(scratch("odd.vtu"), grid);
    const ran result = run_well({"info", scratch("odd.vtu")});
    EXPECT_NE(result.out.find("cell sets, 3 triangles"), std::string::npos) << shown(result);
    EXPECT_NE(result.err.find("split into simplices: 1 Polygon"), std::string::npos) << shown(result);
    EXPECT_NE(result.err.find("left out, as they have no kind here: 1 BezierTriangle"), std::string::npos)
        << shown(result);
    EXPECT_NE(result.err.find("left out: 2 cell(s) that are only points"), std::string::npos)
        << shown(result);
    run_well({"isoline", scratch("odd.vtu"), "-l", "0", "-o", scratch("odd.vtp")});
    EXPECT_NEAR(length_of(read_surface(scratch("odd.vtp"))), 1.7013, 1e-3); // across the pentagon
}

TEST(CellsWithoutAKind, AloneAreRefused)
{
    vtkNew<vtkUnstructuredGrid> grid;
    vtkNew<vtkPoints> points;
    grid->SetPoints(points);
    for (int i = 0; i < 3; ++i)
        points->InsertNextPoint(i & 1, i >> 1, 0);
    const vtkIdType all[3] = {0, 1, 2};
    grid->InsertNextCell(VTK_BEZIER_TRIANGLE, 3, all);
    add_node_array(grid, "x", [](const double *x) { return x[0]; });
    write(scratch("bezier.vtu"), grid);
    const ran result = run({"isoline", scratch("bezier.vtu"), "-l", "0", "-o", scratch("bezier.vtp")});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("kinds that cannot be used: 1 BezierTriangle; convert them"), std::string::npos)
        << shown(result);
}

TEST(Polyhedra, AreSplit)
{
    vtkNew<vtkUnstructuredGrid> grid;
    vtkNew<vtkPoints> points;
    for (int i = 0; i < 8; ++i)
        points->InsertNextPoint(i & 1, i >> 1 & 1, i >> 2);
    grid->SetPoints(points);
    const vtkIdType nodes[8] = {0, 1, 2, 3, 4, 5, 6, 7};
    const vtkIdType faces[30] = {4, 0, 2, 3, 1, 4, 4, 5, 7, 6, 4, 0, 1, 5, 4,
                                 4, 2, 6, 7, 3, 4, 0, 4, 6, 2, 4, 1, 3, 7, 5};
    grid->InsertNextCell(VTK_POLYHEDRON, 8, nodes, 6, faces);
    add_node_array(grid, "z", [](const double *x) { return x[2]; });
    write(scratch("polyhedron.vtu"), grid);
    const ran result =
        run_well({"iso", scratch("polyhedron.vtu"), "-l", "0.3", "-o", scratch("polyhedron.vtp")});
    EXPECT_NE(result.err.find("split into simplices: 1 Polyhedron"), std::string::npos) << shown(result);
    EXPECT_NEAR(area_of(read_surface(scratch("polyhedron.vtp"))), 1, 1e-5);
}

// Prisms are written both ways round. Surfaces of all cells must still face the same way.
TEST(CellsInsideOut, GiveSurfacesThatFaceAsTheOthersDo)
{
    const auto grid = one_cell(VTK_HEXAHEDRON);
    const vtkIdType mirrored[8] = {0, 3, 2, 1, 4, 7, 6, 5};
    vtkNew<vtkUnstructuredGrid> again;
    again->SetPoints(grid->GetPoints());
    again->InsertNextCell(VTK_HEXAHEDRON, 8, mirrored);
    again->GetPointData()->ShallowCopy(grid->GetPointData());
    double normal[2] = {};
    int n = 0;
    for (vtkUnstructuredGrid *one : {grid.Get(), again.Get()}) {
        write(scratch("way.vtu"), one);
        const ran result =
            run_well({"iso", scratch("way.vtu"), "-a", "ramp", "-l", "6.2", "-o", scratch("way.vtp")});
        EXPECT_EQ(result.err.find("turned round") != std::string::npos, one == again.Get()) << shown(result);
        const auto surface = read_surface(scratch("way.vtp"));
        for (vtkIdType c = 0; c < surface->GetNumberOfCells(); ++c) {
            double p[3][3], a[3], b[3];
            for (int i = 0; i < 3; ++i)
                surface->GetPoint(surface->GetCell(c)->GetPointId(i), p[i]);
            for (int d = 0; d < 3; ++d) {
                a[d] = p[1][d] - p[0][d];
                b[d] = p[2][d] - p[0][d];
            }
            normal[n] += a[0] * b[1] - a[1] * b[0]; // along z, which the ramp ascends most
        }
        ++n;
    }
    EXPECT_GT(std::abs(normal[0]), 0.1);
    EXPECT_NEAR(normal[0], normal[1], 1e-5);
}

} // namespace
