// boundary, measure, resample and fit.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkCell.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSetSurfaceFilter.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkRectilinearGrid.h>
#include <vtkUnstructuredGrid.h>

#include <cmath>
#include <fstream>
#include <map>
#include <sstream>

namespace {

std::string made(const std::string &mesh, int order, int size, const char *field = "noisy-sphere")
{
    const std::string ending = mesh == "uniform"       ? ".vti"
                               : mesh == "rectilinear" ? ".vtr"
                               : mesh == "curvilinear" ? ".vts"
                                                       : ".vtu";
    std::string path = scratch("made_" + mesh + std::to_string(order) + ending);
    run_well({"sample", field, "--mesh", mesh, "--order", std::to_string(order), "--size",
              std::to_string(size), "-o", path});
    return path;
}

bool holds(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// Of a closed surface that looks outward.
double enclosed(vtkDataSet *surface)
{
    double volume = 0;
    for (vtkIdType c = 0; c < surface->GetNumberOfCells(); ++c) {
        vtkCell *cell = surface->GetCell(c);
        double a[3], b[3], d[3];
        cell->GetPoints()->GetPoint(0, a);
        for (vtkIdType k = 2; k < cell->GetNumberOfPoints(); ++k) {
            cell->GetPoints()->GetPoint(k - 1, b);
            cell->GetPoints()->GetPoint(k, d);
            volume += (a[0] * (b[1] * d[2] - b[2] * d[1]) + a[1] * (b[2] * d[0] - b[0] * d[2]) +
                       a[2] * (b[0] * d[1] - b[1] * d[0])) /
                      6;
        }
    }
    return volume;
}

// Every edge once in each direction.
bool is_closed(vtkDataSet *surface)
{
    std::map<std::pair<vtkIdType, vtkIdType>, int> edges;
    for (vtkIdType c = 0; c < surface->GetNumberOfCells(); ++c) {
        vtkCell *cell = surface->GetCell(c);
        const vtkIdType n = cell->GetNumberOfPoints();
        for (vtkIdType k = 0; k < n; ++k)
            ++edges[{cell->GetPointId(k), cell->GetPointId((k + 1) % n)}];
    }
    for (const auto &edge : edges) {
        const auto back = edges.find({edge.first.second, edge.first.first});
        if (edge.second != 1 || back == edges.end()) return false;
    }
    return !edges.empty();
}

struct made_body {
    const char *mesh;
    int order;
};

class BoundaryOfBodies : public testing::TestWithParam<made_body> {};

TEST_P(BoundaryOfBodies, IsAClosedSurfaceAroundTheirVolume)
{
    const std::string path = made(GetParam().mesh, GetParam().order, 7), out = scratch("skin.vtp");
    auto data = read(path);
    number_all(data);
    write(path, data);
    run_well({"boundary", path, "-o", out});
    const auto skin = read(out);
    EXPECT_TRUE(is_closed(skin));
    EXPECT_NEAR(enclosed(skin), volume_of(data), 2e-2 * volume_of(data)); // curved cells are cut straight
    vtkDataArray *node = node_array(skin, "node"), *cell = cell_array(skin, "cell");
    ASSERT_TRUE(node != nullptr && cell != nullptr);
    for (vtkIdType i = 0; i < skin->GetNumberOfPoints(); ++i)
        for (int d = 0; d < 3; ++d)
            ASSERT_NEAR(skin->GetPoint(i)[d],
                        data->GetPoint(static_cast<vtkIdType>(node->GetComponent(i, 0)))[d], 1e-6);
    // each face lies on the cell that it names
    for (vtkIdType c = 0; c < skin->GetNumberOfCells(); ++c) {
        vtkIdList *nodes = data->GetCell(static_cast<vtkIdType>(cell->GetComponent(c, 0)))->GetPointIds();
        vtkCell *face = skin->GetCell(c);
        for (vtkIdType k = 0; k < face->GetNumberOfPoints(); ++k)
            ASSERT_GE(nodes->IsId(static_cast<vtkIdType>(node->GetComponent(face->GetPointId(k), 0))), 0);
    }
    if (GetParam().order > 1) return;
    vtkNew<vtkDataSetSurfaceFilter> filter;
    filter->SetInputData(data);
    filter->Update();
    EXPECT_EQ(skin->GetNumberOfCells(), filter->GetOutput()->GetNumberOfCells());
    // that filter makes the sides of lattices one by one, each with nodes of its own
    if (path.substr(path.size() - 4) == ".vtu") {
        EXPECT_EQ(skin->GetNumberOfPoints(), filter->GetOutput()->GetNumberOfPoints());
    }
}

INSTANTIATE_TEST_SUITE_P(Made, BoundaryOfBodies,
                         testing::Values(made_body{"uniform", 1}, made_body{"rectilinear", 1},
                                         made_body{"curvilinear", 1}, made_body{"hex", 1},
                                         made_body{"tet", 1}, made_body{"prism", 1}, made_body{"pyramid", 1},
                                         made_body{"hex", 2}, made_body{"tet", 2}, made_body{"prism", 2},
                                         made_body{"pyramid", 2}));

TEST(Boundary, FacesThatDifferentKindsShareAreInside)
{
    // A hexahedron under a pyramid, and a tetrahedron at one of its sides.
    const std::string path = scratch("house.vtk"), out = scratch("house.vtp");
    write_bytes(path, "# vtk DataFile Version 3.0\nhouse\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS 10 float\n"
                      "0 0 0 1 0 0 1 1 0 0 1 0 0 0 1 1 0 1 1 1 1 0 1 1 .5 .5 2 .5 -1 1.5\n"
                      "CELLS 3 20\n8 0 1 2 3 4 5 6 7\n5 4 5 6 7 8\n4 4 9 5 8\nCELL_TYPES 3\n12\n14\n10\n");
    const ran told = run_well({"boundary", path, "-o", out});
    const auto skin = read(out);
    EXPECT_EQ(skin->GetNumberOfCells(), 5 + 3 + 3);
    EXPECT_TRUE(is_closed(skin));
}

TEST(Boundary, OfSurfacesAreBordersAndCreases)
{
    // Two squares of a corner and their neighbour of the other winding, all at the edge between.
    const std::string path = scratch("fold.vtk"), out = scratch("fold.vtp");
    write_bytes(path, "# vtk DataFile Version 3.0\nfold\nASCII\nDATASET POLYDATA\nPOINTS 8 float\n"
                      "0 0 0 1 0 0 2 0 0 2 0 1 0 1 0 1 1 0 2 1 0 2 1 1\n"
                      "POLYGONS 3 15\n4 0 1 5 4\n4 1 5 6 2\n4 2 6 7 3\n");
    run_well({"boundary", path, "-o", out});
    EXPECT_EQ(read(out)->GetNumberOfCells(), 9); // 8 of the border, 1 crease; the flat join is none
    run_well({"boundary", path, "--edges", "100", "-o", out});
    EXPECT_EQ(read(out)->GetNumberOfCells(), 8);
    run_well({"boundary", path, "--edges", "0", "-o", out});
    EXPECT_EQ(read(out)->GetNumberOfCells(), 10);
}

TEST(Boundary, EdgesOfABoxAreItsTwelve)
{
    const std::string path = made("hex", 1, 5), out = scratch("edges.vtp"), picture = scratch("edges.png");
    run_well({"boundary", path, "--edges", "30", "-o", out, "--picture", picture});
    EXPECT_EQ(read(out)->GetNumberOfCells(), 12 * 4);
    EXPECT_GT(bytes_of(picture).size(), 1000u);
}

TEST(Boundary, IsWrittenAsTrianglesWhereTheFormatHasNothingElse)
{
    const std::string path = made("hex", 1, 4);
    for (const char *name : {"box.stl", "box.ply"}) {
        run_well({"boundary", path, "-o", scratch(name)});
        const auto skin = read(scratch(name));
        EXPECT_EQ(skin->GetNumberOfCells(), 6 * 9 * 2) << name;
        EXPECT_NEAR(enclosed(skin), volume_of(read(path)), 1e-3 * volume_of(read(path)));
    }
}

TEST(Boundary, SaysWhatIsWrong)
{
    const std::string path = made("hex", 1, 3);
    EXPECT_EQ(run({"boundary", path, "--edges", "200", "-o", scratch("x.vtp")}).code, 2);
    EXPECT_EQ(run({"boundary", path, "--edges", "30", "-o", scratch("x.stl")}).code, 2);
    EXPECT_EQ(run({"boundary", path}).code, 2);
    const std::string line = scratch("line.vtk");
    write_bytes(line, "# vtk DataFile Version 3.0\nl\nASCII\nDATASET POLYDATA\nPOINTS 2 float\n0 0 0 1 0 0\n"
                      "LINES 1 3\n2 0 1\n");
    const ran none = run({"boundary", line, "-o", scratch("x.vtp")});
    EXPECT_EQ(none.code, 1);
    EXPECT_TRUE(holds(none.err, "neither solids nor surfaces")) << none.err;
}

// ---- measure ------------------------------------------------------------------------------------------------

class MeasureOfBodies : public testing::TestWithParam<made_body> {};

TEST_P(MeasureOfBodies, IsVtksVolumeAndLinearFieldsComeOutRight)
{
    const std::string path = made(GetParam().mesh, GetParam().order, 6), json = scratch("figures.json");
    auto data = read(path);
    add_node_array(data, "x", [](const double *p) { return 2 * p[0] + 3; });
    write(path, data);
    double box[6];
    data->GetBounds(box);
    run_well({"measure", path, "--array", "x", "--json", json});
    const std::string text = bytes_of(json);
    const auto number = [&](const std::string &key) {
        const size_t at = text.find("\"" + key + "\":");
        return at == std::string::npos ? std::nan("") : std::stod(text.substr(at + key.size() + 3));
    };
    EXPECT_EQ(number("dimension"), 3) << text;
    EXPECT_EQ(number("cells"), static_cast<double>(data->GetNumberOfCells()));
    EXPECT_NEAR(number("measure"), volume_of(data), (GetParam().order == 1 ? 2e-3 : 2e-2) * volume_of(data))
        << text;
    EXPECT_NEAR(number("integral") / number("measure"), number("mean"), 1e-12);
    EXPECT_NEAR(number("mean"), box[0] + box[1] + 3, 0.05 * (box[1] - box[0])) << text;
}

INSTANTIATE_TEST_SUITE_P(Made, MeasureOfBodies,
                         testing::Values(made_body{"uniform", 1}, made_body{"rectilinear", 1},
                                         made_body{"curvilinear", 1}, made_body{"hex", 1},
                                         made_body{"tet", 1}, made_body{"prism", 1}, made_body{"pyramid", 1},
                                         made_body{"hex", 2}, made_body{"tet", 2}, made_body{"prism", 2},
                                         made_body{"pyramid", 2}));

TEST(Measure, TheLibrarysOwnRuleLeavesOutPyramidsAndSecondOrder)
{
    for (const made_body &body : {made_body{"pyramid", 1}, made_body{"hex", 2}}) {
        const std::string path = made(body.mesh, body.order, 4);
        EXPECT_TRUE(holds(run_well({"measure", path, "--library"}).out, "volume          0"))
            << run({"measure", path, "--library"}).out;
        EXPECT_FALSE(holds(run_well({"measure", path}).out, "volume          0"));
    }
}

TEST(Measure, NodesWithoutValueTakeOutTheirCells)
{
    const std::string path = scratch("flat.vti");
    run_well({"sample", "noisy-sphere", "--size", "5", "-o", path});
    auto data = read(path);
    add_node_array(data, "v", [](const double *) { return 7.0; });
    node_array(data, "v")->SetComponent(0, 0, -1);
    write(path, data);
    const ran told = run_well({"measure", path, "--array", "v", "--null=-1"});
    EXPECT_TRUE(holds(told.err, "1 cells with a node without value")) << told.err;
    EXPECT_TRUE(holds(told.out, " 7\n")) << told.out; // the mean
    node_array(data, "v")->SetComponent(0, 0, std::nan(""));
    write(path, data);
    for (const auto &arguments : {std::vector<std::string>{"measure", path, "--array", "v"},
                                  std::vector<std::string>{"measure", path, "--array", "v", "--null=-1"}}) {
        const ran same = run_well(arguments);
        EXPECT_EQ(same.out, told.out);
        EXPECT_TRUE(holds(same.err, "1 cells with a node without value")) << same.err;
    }
}

TEST(Measure, SaysWhatIsWrong)
{
    const std::string path = made("hex", 1, 3);
    EXPECT_EQ(run({"measure", path, "--array", "nothing"}).code, 1);
    EXPECT_EQ(run({"measure", path, "--json", scratch("x.txt")}).code, 2);
}

// ---- resample -----------------------------------------------------------------------------------------------

TEST(Resample, KeepsTheCornersAndTakesTheNearestNode)
{
    for (const char *mesh : {"uniform", "rectilinear", "curvilinear"}) {
        const std::string path = made(mesh, 1, 9);
        auto data = read(path);
        number_all(data);
        write(path, data);
        const std::string out = scratch("coarse" + path.substr(path.size() - 4));
        run_well({"resample", path, "--size", "5,3,9", "-o", out});
        const auto coarse = read(out);
        ASSERT_EQ(coarse->GetNumberOfPoints(), 5 * 3 * 9);
        ASSERT_EQ(coarse->GetNumberOfCells(), 4 * 2 * 8);
        double was[6], is[6];
        data->GetBounds(was);
        coarse->GetBounds(is);
        for (int b = 0; b < 6; ++b)
            EXPECT_NEAR(was[b], is[b], 1e-5) << mesh;
        vtkDataArray *node = node_array(coarse, "node");
        for (int k = 0; k < 9; ++k)
            for (int j = 0; j < 3; ++j)
                for (int i = 0; i < 5; ++i) {
                    const vtkIdType n = (k * 3 + j) * 5 + i, from = (k * 9 + 4 * j) * 9 + 2 * i;
                    ASSERT_EQ(node->GetComponent(n, 0), static_cast<double>(from));
                    for (int d = 0; d < 3; ++d)
                        ASSERT_NEAR(coarse->GetPoint(n)[d], data->GetPoint(from)[d], 1e-5) << mesh;
                }
        // cell 0 of 4 along x is over old cells 0 and 1: its middle begins cell 1
        EXPECT_EQ(cell_array(coarse, "cell")->GetComponent(0, 0), 1 + 8 * 2);
    }
}

TEST(Resample, SaysWhatIsWrong)
{
    const std::string path = made("uniform", 1, 4), cells = made("tet", 1, 3);
    EXPECT_EQ(run({"resample", path, "--size", "0,4,4", "-o", scratch("x.vti")}).code, 2);
    EXPECT_EQ(run({"resample", path, "--size", "4", "-o", scratch("x.vti")}).code, 2);
    EXPECT_EQ(run({"resample", path, "--size", "4,4,4", "-o", scratch("x.vtu")}).code, 2);
    const ran none = run({"resample", cells, "--size", "4,4,4", "-o", scratch("x.vti")});
    EXPECT_EQ(none.code, 1);
    EXPECT_TRUE(holds(none.err, "probe --grid")) << none.err;
}

// ---- fit ----------------------------------------------------------------------------------------------------

double number_of(const std::string &text, const std::string &key, size_t from = 0)
{
    const size_t at = text.find("\"" + key + "\":", from);
    return at == std::string::npos ? std::nan("") : std::stod(text.substr(at + key.size() + 3));
}

TEST(Fit, FindsPolynomialsOfDegreeZeroToEightFarFromTheOriginToo)
{
    for (int degree = 0; degree <= 8; ++degree)
        for (const double middle : {0.0, 40.0}) {
            const std::string path = scratch("samples.csv"), json = scratch("fit.json");
            std::string text = "time,height,\"other, one\"\n";
            std::vector<double> coefs;
            for (int k = 0; k <= degree; ++k)
                coefs.push_back((k % 2 == 0 ? 1 : -1) * (1 + 0.5 * k) * std::pow(0.5, k));
            for (int i = 0; i <= 60; ++i) {
                const double x = middle + i * 0.05 - 1.5;
                double y = 0;
                for (size_t k = coefs.size(); k-- > 0;)
                    y = y * (x - middle) + coefs[k];
                char row[96];
                snprintf(row, sizeof row, "%.17g,%.17g,7\n", x, y);
                text += row;
            }
            write_bytes(path, text);
            run_well({"fit", path, "--x", "time", "--y", "height", "--degree", std::to_string(degree), "-o",
                      json});
            const std::string found = bytes_of(json);
            EXPECT_LT(number_of(found, "largest"), 1e-10) << found;
            if (middle != 0) continue;
            size_t at = 0;
            for (int k = 0; k <= degree; ++k) {
                at = found.find("\"coefficient\":", at + 1);
                ASSERT_NE(at, std::string::npos);
                EXPECT_NEAR(number_of(found, "coefficient", at), coefs[static_cast<size_t>(k)], 1e-9)
                    << degree;
            }
        }
}

TEST(Fit, TellsTheResidualAndDrawsThePlot)
{
    const std::string path = scratch("line.csv"), picture = scratch("line.png"),
                      csv = scratch("line_fit.csv");
    write_bytes(path, "x;y\n0;0\n1;1\n2;2\n3;3.4\n;9\n4;oh\n");
    const ran told =
        run_well({"fit", path, "--x", "1", "--y", "y", "-d", "1", "-o", csv, "--picture", picture});
    EXPECT_TRUE(holds(told.err, "2 rows without a number passed over")) << told.err;
    EXPECT_TRUE(holds(told.out, "4 samples")) << told.out;
    EXPECT_GT(bytes_of(picture).size(), 3000u);
    EXPECT_EQ(bytes_of(csv).substr(0, 18), "power,coefficient\n");
}

TEST(Fit, SaysWhatIsWrong)
{
    const std::string path = scratch("few.csv");
    write_bytes(path, "x,y\n1,2\n1,3\n2,4\n");
    const ran few = run({"fit", path, "--x", "x", "--y", "y", "-d", "2"});
    EXPECT_EQ(few.code, 1);
    EXPECT_TRUE(holds(few.err, "do not determine a polynomial of degree 2")) << few.err;
    EXPECT_EQ(run({"fit", path, "--x", "x", "--y", "z", "-d", "1"}).code, 1);
    EXPECT_EQ(run({"fit", path, "--x", "x", "--y", "y", "-d", "99"}).code, 2);
    EXPECT_EQ(run({"fit", path, "--x", "x", "--y", "y", "-d", "1", "-o", scratch("x.txt")}).code, 2);
    EXPECT_EQ(run({"fit", scratch("none.csv"), "--x", "x", "--y", "y", "-d", "1"}).code, 1);
}

} // namespace
