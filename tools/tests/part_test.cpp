// cut, band, slice and threshold.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkCell.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPointSet.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkThreshold.h>
#include <vtkUnsignedCharArray.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace {

struct part_mesh {
    const char *mesh, *ending;
    int order;
};

const part_mesh solid_meshes[] = {{"uniform", ".vti", 1}, {"rectilinear", ".vtr", 1}, {"hex", ".vtu", 1},
                                  {"prism", ".vtu", 1},   {"pyramid", ".vtu", 1},     {"tet", ".vtu", 1},
                                  {"hex", ".vtu", 2},     {"tet", ".vtu", 2}};

std::string name_of(const testing::TestParamInfo<part_mesh> &info)
{
    return std::string(info.param.mesh) + std::to_string(info.param.order);
}

// The cube from -1.5 to 1.5 with numbers at nodes and cells, and an array that is linear.
std::string cube(const part_mesh &mesh, const char *size, const std::function<double(const double *)> &value)
{
    std::string path = scratch(std::string("cube") + mesh.ending);
    run_well({"sample", "noisy-sphere", "--mesh", mesh.mesh, "--order", std::to_string(mesh.order), "--size",
              size, "-o", path});
    const auto data = read(path);
    number_all(data);
    add_node_array(data, "value", value);
    write(path, data);
    return path;
}

double sum_of_all(vtkDataArray *array)
{
    double sum = 0;
    for (vtkIdType i = 0; i < array->GetNumberOfTuples(); ++i)
        sum += array->GetComponent(i, 0);
    return sum;
}

void expect_all_nodes_used(vtkDataSet *data)
{
    std::vector<bool> used(static_cast<size_t>(data->GetNumberOfPoints()));
    for (vtkIdType cell = 0; cell < data->GetNumberOfCells(); ++cell)
        for (vtkIdType i = 0; i < data->GetCell(cell)->GetNumberOfPoints(); ++i)
            used[static_cast<size_t>(data->GetCell(cell)->GetPointId(i))] = true;
    EXPECT_EQ(std::count(used.begin(), used.end(), false), 0);
}

// The boxes of all pieces.
std::vector<std::array<double, 6>> boxes_of(vtkDataSet *data)
{
    std::vector<std::array<double, 6>> boxes(static_cast<size_t>(data->GetNumberOfCells()));
    for (size_t c = 0; c < boxes.size(); ++c)
        data->GetCellBounds(static_cast<vtkIdType>(c), boxes[c].data());
    std::sort(boxes.begin(), boxes.end());
    return boxes;
}

// The volume of the cells without any of these nodes.
double volume_without(vtkDataSet *whole, const std::vector<bool> &nodes)
{
    vtkNew<vtkUnsignedCharArray> whole_cells;
    whole_cells->SetName("whole");
    for (vtkIdType c = 0; c < whole->GetNumberOfCells(); ++c) {
        unsigned char is_whole = 1;
        for (vtkIdType i = 0; i < whole->GetCell(c)->GetNumberOfPoints(); ++i)
            if (nodes[static_cast<size_t>(whole->GetCell(c)->GetPointId(i))]) is_whole = 0;
        whole_cells->InsertNextValue(is_whole);
    }
    whole->GetCellData()->AddArray(whole_cells);
    vtkNew<vtkThreshold> filter;
    filter->SetInputData(whole);
    filter->SetInputArrayToProcess(0, 0, 0, vtkDataObject::FIELD_ASSOCIATION_CELLS, "whole");
    filter->SetThresholdFunction(vtkThreshold::THRESHOLD_BETWEEN);
    filter->SetLowerThreshold(1);
    filter->SetUpperThreshold(1);
    filter->Update();
    return volume_of(filter->GetOutput());
}

// Commands that together fill the mesh, on a linear array with every 19th node null: what is left are pieces that
// are there without nulls too, and they fill the cells without null nodes. Of second-order cells the linear pieces
// without null nodes remain.
void expect_nulls_to_take_their_cells_alone(const part_mesh &mesh,
                                            const std::vector<std::vector<std::string>> &commands)
{
    const std::string path = cube(mesh, "6", [](const double *x) { return x[0] + 0.5 * x[1] - 0.25 * x[2]; });
    const std::string holed = scratch(std::string("holed") + mesh.ending), out = scratch("left.vtu");
    const auto data = read(path);
    std::vector<bool> is_null(static_cast<size_t>(data->GetNumberOfPoints()));
    for (size_t node = 3; node < is_null.size(); node += 19) {
        is_null[node] = true;
        node_array(data, "value")->SetComponent(static_cast<vtkIdType>(node), 0, -999);
    }
    write(holed, data);
    double left = 0;
    for (std::vector<std::string> command : commands) {
        for (const std::string &more :
             {std::string("-a"), std::string("value"), std::string("-o"), out, path})
            command.push_back(more);
        run_well(command);
        const auto plain = boxes_of(read(out));
        command.back() = holed;
        command.emplace_back("--null=-999");
        run_well(command);
        const auto with_nulls = read(out);
        const auto boxes = boxes_of(with_nulls);
        EXPECT_LT(boxes.size(), plain.size());
        EXPECT_TRUE(std::includes(plain.begin(), plain.end(), boxes.begin(), boxes.end()));
        expect_all_nodes_used(with_nulls);
        for (vtkIdType i = 0; i < with_nulls->GetNumberOfPoints(); ++i)
            ASSERT_GT(node_array(with_nulls, "value")->GetComponent(i, 0), -3)
                << "a null carried onto a node";
        left += volume_of(with_nulls);
    }
    const double without = volume_without(data, is_null);
    EXPECT_GT(without, 5);
    if (mesh.order == 1) {
        EXPECT_NEAR(left, without, 1e-4);
    } else {
        EXPECT_GT(left, without - 1e-4);
        EXPECT_LT(left, 26.5);
    }
}

} // namespace

// ---- cut ----------------------------------------------------------------------------------------------------

namespace {

class Cut : public testing::TestWithParam<part_mesh> {};

} // namespace

TEST_P(Cut, BothSidesOfALinearArrayHaveTheirVolume)
{
    const std::string path =
        cube(GetParam(), "7", [](const double *x) { return x[0] + 0.5 * x[1] - 0.25 * x[2]; });
    const std::string out = scratch("cut.vtu");
    double sum = 0;
    for (const char *side : {"high", "low"}) {
        run_well({"cut", path, "-a", "value", "--level", "0.31", "--side", side, "-o", out});
        const auto data = read(out);
        sum += volume_of(data);
        expect_all_nodes_used(data);
        vtkDataArray *value = node_array(data, "value");
        for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i) {
            const double *at = data->GetPoint(i);
            const double v = value->GetComponent(i, 0);
            ASSERT_NEAR(v, at[0] + 0.5 * at[1] - 0.25 * at[2], 1e-5);
            ASSERT_GE(side[0] == 'h' ? v - 0.31 : 0.31 - v, -1e-6);
        }
        ASSERT_NE(cell_array(data, "cell"), nullptr);
    }
    EXPECT_NEAR(sum, 27, 1e-4);
}

TEST_P(Cut, CellsKeepTheNumbersOfTheirOwn)
{
    const std::string path = cube(GetParam(), "5", [](const double *x) { return x[2]; });
    const std::string out = scratch("cut_cells.vtu");
    run_well({"cut", path, "-a", "value", "--level", "0.1", "-o", out});
    const auto whole = read(path), data = read(out);
    vtkDataArray *number = cell_array(data, "cell");
    for (vtkIdType c = 0; c < data->GetNumberOfCells(); ++c) {
        double of[6], piece[6];
        whole->GetCellBounds(static_cast<vtkIdType>(number->GetComponent(c, 0)), of);
        data->GetCellBounds(c, piece);
        for (int d = 0; d < 3; ++d) {
            ASSERT_GE(piece[2 * d], of[2 * d] - 1e-5);
            ASSERT_LE(piece[2 * d + 1], of[2 * d + 1] + 1e-5);
        }
    }
}

TEST_P(Cut, NullNodesTakeTheirCellsAndNothingElse)
{
    expect_nulls_to_take_their_cells_alone(GetParam(), {{"cut", "--level", "0.31", "--side", "high"},
                                                        {"cut", "--level", "0.31", "--side", "low"}});
}

INSTANTIATE_TEST_SUITE_P(Solids, Cut, testing::ValuesIn(solid_meshes), name_of);

TEST(CutOfCells, AtALayerOfNodesIsWholeCells)
{
    const std::string path =
        cube({"hex", ".vtu", 1}, "7", [](const double *x) { return std::round(2 * x[0]); });
    for (const char *side : {"high", "low"}) {
        const std::string out = scratch("cut_layer.vtu");
        run_well({"cut", path, "-a", "value", "--level", "1", "--side", side, "-o", out});
        const auto data = read(out);
        EXPECT_NEAR(volume_of(data), side[0] == 'h' ? 9 : 18, 1e-4);
        expect_all_nodes_used(data);
    }
}

TEST(CutOfCells, NothingThereIsANoteAndAnEmptyMesh)
{
    const std::string path = cube({"tet", ".vtu", 1}, "3", [](const double *x) { return x[0]; });
    const ran result = run({"cut", path, "-a", "value", "--level", "7", "-o", scratch("nothing.vtu")});
    EXPECT_EQ(result.code, 0) << shown(result);
    EXPECT_NE(result.err.find("nothing is on that side: value runs from -1.5 to 1.5"), std::string::npos);
    EXPECT_EQ(read(scratch("nothing.vtu"))->GetNumberOfCells(), 0);
}

TEST(CutOfCells, WantsValuesAtNodes)
{
    const std::string path = cube({"tet", ".vtu", 1}, "3", [](const double *x) { return x[0]; });
    const ran result = run({"cut", path, "-a", "cell", "--level", "7", "-o", scratch("no.vtu")});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("cell holds a value a cell, and values at nodes are wanted (--cell-to-node"),
              std::string::npos);
    EXPECT_EQ(
        run({"cut", path, "-a", "value", "--level", "7", "--side", "left", "-o", scratch("no.vtu")}).code, 2);
}

// ---- band ---------------------------------------------------------------------------------------------------

namespace {

class Band : public testing::TestWithParam<part_mesh> {};

} // namespace

TEST_P(Band, BandsOfALinearArrayFillTheMesh)
{
    const std::string path =
        cube(GetParam(), "6", [](const double *x) { return x[0] + 0.5 * x[1] - 0.25 * x[2]; });
    const std::string out = scratch("bands.vtu");
    run_well({"band", path, "-a", "value", "--levels=-9,-0.7,-0.65,0.31,9", "-o", out});
    const auto data = read(out);
    EXPECT_NEAR(volume_of(data), 27, 1e-4);
    expect_all_nodes_used(data);
    const double levels[] = {-9, -0.7, -0.65, 0.31, 9};
    vtkDataArray *band = cell_array(data, "band"), *value = node_array(data, "value");
    double seen = 0;
    for (vtkIdType c = 0; c < data->GetNumberOfCells(); ++c) {
        const int b = static_cast<int>(band->GetComponent(c, 0));
        seen = std::max(seen, band->GetComponent(c, 0));
        ASSERT_EQ(cell_array(data, "band_lower")->GetComponent(c, 0), levels[b]);
        ASSERT_EQ(cell_array(data, "band_upper")->GetComponent(c, 0), levels[b + 1]);
        for (vtkIdType i = 0; i < data->GetCell(c)->GetNumberOfPoints(); ++i) {
            const vtkIdType node = data->GetCell(c)->GetPointId(i);
            const double *at = data->GetPoint(node);
            ASSERT_GE(value->GetComponent(node, 0), levels[b] - 1e-6);
            ASSERT_LE(value->GetComponent(node, 0), levels[b + 1] + 1e-6);
            ASSERT_NEAR(value->GetComponent(node, 0), at[0] + 0.5 * at[1] - 0.25 * at[2], 1e-5);
        }
    }
    EXPECT_EQ(seen, 3);
}

// Nulls would lie in the first band.
TEST_P(Band, NullNodesTakeTheirCellsAndNothingElse)
{
    expect_nulls_to_take_their_cells_alone(GetParam(), {{"band", "--levels=-2000,-0.7,-0.65,0.31,9"}});
}

INSTANTIATE_TEST_SUITE_P(Solids, Band, testing::ValuesIn(solid_meshes), name_of);

TEST(BandOfFlatCells, PlateausAreInOneBandAndAreasAddUp)
{
    for (const char *mesh : {"tri", "quad", "uniform"}) {
        const std::string ending = mesh == std::string("uniform") ? ".vti" : ".vtu";
        const std::string path = scratch("flat" + ending), out = scratch("flat.vtp");
        std::vector<std::string> make = {"sample", "noisy-sphere", "--mesh", mesh, "--size", "7"};
        for (const char *more : {"7", "1", "-o"})
            make.push_back(more);
        make.push_back(path);
        run_well(make);
        const auto data = read(path);
        add_node_array(data, "step", [](const double *x) { return std::floor(x[0] + 0.01); });
        write(path, data);
        run_well({"band", path, "-a", "step", "--levels=-2,-1,0,1", "-o", out});
        const auto bands = read_surface(out);
        EXPECT_NEAR(area_of(bands), 9, 1e-4) << mesh;
        vtkDataArray *band = cell_array(bands, "band");
        int ncells[3] = {};
        for (vtkIdType c = bands->GetNumberOfLines(); c < bands->GetNumberOfCells(); ++c)
            ++ncells[static_cast<int>(band->GetComponent(c, 0))];
        for (const int n : ncells)
            EXPECT_GT(n, 0) << mesh;
    }
}

TEST(BandOfFlatCells, LinesRunAlongTheLevels)
{
    const std::string path = scratch("slope.vtu"), out = scratch("slope.vtp");
    run_well({"sample", "noisy-sphere", "--mesh", "tri", "--size", "9", "9", "1", "-o", path});
    const auto data = read(path);
    add_node_array(data, "slope", [](const double *x) { return x[0]; });
    write(path, data);
    run_well({"band", path, "-a", "slope", "--levels=-1.1,-0.4,0.2,1.4", "-o", out});
    const auto bands = read_surface(out);
    EXPECT_NEAR(area_of(bands), 2.5 * 3, 1e-4);
    EXPECT_NEAR(length_of(bands), 4 * 3, 1e-4);
    EXPECT_EQ(bands->GetCellData()->GetArray("band")->GetNumberOfTuples(), bands->GetNumberOfCells());

    // beside cells that are lines as well
    auto *grid = vtkUnstructuredGrid::SafeDownCast(data);
    const vtkIdType ends[2] = {0, 1};
    grid->GetCellData()->Initialize();
    grid->InsertNextCell(VTK_LINE, 2, ends);
    write(path, grid);
    for (const char *pieces : {"1", "3"}) {
        run_well({"band", path, "-a", "slope", "--levels=-1.1,-0.4,0.2,1.4", "--pieces", pieces, "-o", out});
        const auto again = read_surface(out);
        EXPECT_EQ(again->GetNumberOfLines(), bands->GetNumberOfLines()) << pieces;
        EXPECT_EQ(again->GetNumberOfPolys(), bands->GetNumberOfPolys()) << pieces;
    }
}

TEST(BandOfCells, LevelsBeyondTheTypeAreItsEnds)
{
    const std::string path = scratch("bytes.vti"), out = scratch("bytes.vtu");
    run_well({"sample", "noisy-sphere", "--size", "5", "-o", path});
    const auto data = read(path);
    vtkNew<vtkUnsignedCharArray> bytes;
    bytes->SetName("byte");
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
        bytes->InsertNextValue(static_cast<unsigned char>(i % 256));
    data->GetPointData()->AddArray(bytes);
    write(path, data);
    run_well({"band", path, "-a", "byte", "--levels=-10,300", "-o", out});
    EXPECT_EQ(read(out)->GetNumberOfCells(), 64);
    EXPECT_NEAR(volume_of(read(out)), 27, 1e-4);
}

TEST(BandOfCells, LevelsAscend)
{
    const std::string path = cube({"tet", ".vtu", 1}, "3", [](const double *x) { return x[0]; });
    for (const char *levels : {"--levels=1", "--levels=1,1", "--levels=1,0", "--levels=0,nan"})
        EXPECT_EQ(run({"band", path, "-a", "value", levels, "-o", scratch("no.vtu")}).code, 2) << levels;
    EXPECT_EQ(run({"band", path, "-a", "value", "--levels=0,1", "-o", scratch("no.vtp")}).code, 2);
}

// ---- slice --------------------------------------------------------------------------------------------------

namespace {

class Slice : public testing::TestWithParam<part_mesh> {};

} // namespace

TEST_P(Slice, AnyPlaneHasItsArea)
{
    const std::string path = cube(GetParam(), "6", [](const double *x) { return x[0] + 2 * x[1] - x[2]; });
    const std::string out = scratch("plane.vtp");
    run_well({"slice", path, "--origin", "0.1,0,0", "--normal", "1,1,0.5", "-o", out});
    const auto made = read_surface(out);
    const auto data = read(path);
    add_node_array(data, "distance", [](const double *x) { return (x[0] - 0.1 + x[1] + 0.5 * x[2]) / 1.5; });
    EXPECT_NEAR(area_of(made), area_of(contour(data, "distance", {0})), 1e-3);
    EXPECT_GT(area_of(made), 9);
    for (vtkIdType i = 0; i < made->GetNumberOfPoints(); ++i) {
        const double *at = made->GetPoint(i);
        ASSERT_NEAR(at[0] - 0.1 + at[1] + 0.5 * at[2], 0, 1e-5);
        ASSERT_NEAR(node_array(made, "value")->GetComponent(i, 0), at[0] + 2 * at[1] - at[2], 1e-5);
    }
    ASSERT_NE(cell_array(made, "cell"), nullptr);
}

// The rim of the mesh on either side, a layer of nodes, and in between: always the whole square, once.
TEST_P(Slice, PlanesThroughLayersOfNodesAreThereOnce)
{
    const std::string path = cube(GetParam(), "7", [](const double *x) { return x[0] + 2 * x[1] - x[2]; });
    for (const char *axis : {"x", "y", "z"})
        for (const char *at : {"-1.5", "-0.5", "0", "0.2", "1.5"}) {
            const std::string out = scratch("layer.vtp");
            run_well({"slice", path, "--axis", axis, "--at", at, "-o", out});
            const auto made = read_surface(out);
            EXPECT_NEAR(area_of(made), 9, 1e-4) << axis << " " << at;
            expect_all_nodes_used(made);
            for (vtkIdType i = 0; i < made->GetNumberOfPoints(); ++i)
                ASSERT_NEAR(made->GetPoint(i)[axis[0] - 'x'], std::stod(at), 1e-6);
        }
}

INSTANTIATE_TEST_SUITE_P(Solids, Slice, testing::ValuesIn(solid_meshes), name_of);

TEST(SliceOfLattices, IsAFlatMeshOfItsKind)
{
    for (const part_mesh &mesh : {part_mesh{"uniform", ".vti", 1}, part_mesh{"rectilinear", ".vtr", 1}}) {
        const std::string path = cube(mesh, "6", [](const double *x) { return x[0] + 2 * x[1] - x[2]; });
        const auto whole = read(path);
        for (const char *axis : {"x", "y", "z"})
            for (const char *at : {"-1.5", "0.2", "1.5"}) {
                const std::string out = scratch(std::string("flat") + mesh.ending);
                run_well({"slice", path, "--axis", axis, "--at", at, "-o", out});
                const auto made = read(out);
                ASSERT_STREQ(made->GetClassName(), whole->GetClassName());
                ASSERT_EQ(made->GetNumberOfPoints(), 36);
                ASSERT_EQ(made->GetNumberOfCells(), 25);
                for (vtkIdType i = 0; i < 36; ++i) {
                    const double *p = made->GetPoint(i);
                    ASSERT_NEAR(p[axis[0] - 'x'], std::stod(at), 1e-6);
                    ASSERT_NEAR(node_array(made, "value")->GetComponent(i, 0), p[0] + 2 * p[1] - p[2], 1e-5);
                }
                for (vtkIdType c = 0; c < 25; ++c) {
                    double of[6], piece[6];
                    whole->GetCellBounds(static_cast<vtkIdType>(cell_array(made, "cell")->GetComponent(c, 0)),
                                         of);
                    made->GetCellBounds(c, piece);
                    for (int d = 0; d < 3; ++d) {
                        ASSERT_GE(piece[2 * d], of[2 * d] - 1e-5);
                        ASSERT_LE(piece[2 * d + 1], of[2 * d + 1] + 1e-5);
                    }
                }
            }
        const ran outside = run(
            {"slice", path, "--axis", "x", "--at", "1.6", "-o", scratch(std::string("no") + mesh.ending)});
        EXPECT_EQ(outside.code, 1);
        EXPECT_NE(outside.err.find("runs from -1.5 to 1.5 along x, and 1.6 is outside"), std::string::npos);
    }
}

// The origin of a plane across an axis has no place on the other two, which may be far from 0.
TEST(SliceOfCells, AcrossAnAxisIsFoundFarAway)
{
    const std::string near = scratch("near.vtu"), far = scratch("far.vtu");
    run_well({"sample", "noisy-sphere", "--mesh", "hex", "--size", "6", "-o", near});
    const auto data = read(near);
    vtkNew<vtkPoints> places;
    places->SetDataTypeToDouble();
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i) {
        double x[3];
        data->GetPoint(i, x);
        places->InsertNextPoint(x[0] + 1e7, x[1] - 3e7, x[2] + 1e6);
    }
    vtkPointSet::SafeDownCast(data)->SetPoints(places);
    write(far, data);
    run_well({"slice", near, "--axis", "z", "--at", "0.25", "-o", scratch("near.vtp")});
    run_well({"slice", far, "--axis", "z", "--at", "1000000.25", "-o", scratch("far.vtp")});
    EXPECT_GT(read(scratch("near.vtp"))->GetNumberOfCells(), 0);
    EXPECT_EQ(read(scratch("far.vtp"))->GetNumberOfCells(), read(scratch("near.vtp"))->GetNumberOfCells());
}

TEST(SliceOfCells, SaysWhatItWants)
{
    const std::string path = cube({"tet", ".vtu", 1}, "3", [](const double *x) { return x[0]; });
    const std::string out = scratch("no.vtp");
    EXPECT_EQ(run({"slice", path, "-o", out}).code, 2);
    EXPECT_EQ(run({"slice", path, "--axis", "x", "-o", out}).code, 2);
    EXPECT_EQ(run({"slice", path, "--axis", "w", "--at", "1", "-o", out}).code, 2);
    EXPECT_EQ(run({"slice", path, "--origin", "0,0,0", "-o", out}).code, 2);
    EXPECT_EQ(run({"slice", path, "--origin", "0,0,0", "--normal", "0,0,0", "-o", out}).code, 2);
    EXPECT_EQ(run({"slice", path, "--axis", "x", "--at", "0", "--normal", "0,0,1", "-o", out}).code, 2);
    EXPECT_EQ(run({"slice", path, "--axis", "x", "--at", "0", "-o", scratch("no.vti")}).code, 2);
    const ran missed = run({"slice", path, "--axis", "x", "--at", "7", "-o", out});
    EXPECT_EQ(missed.code, 0);
    EXPECT_NE(missed.err.find("the plane misses the mesh"), std::string::npos);
}

// ---- threshold ----------------------------------------------------------------------------------------------

namespace {

class Threshold : public testing::TestWithParam<part_mesh> {};

} // namespace

TEST_P(Threshold, KeepsTheCellsThatVtkKeeps)
{
    const std::string path = cube(GetParam(), "7", [](const double *x) { return x[0] * x[1] + x[2]; });
    const auto whole = read(path);
    const std::string out = scratch("range.vtu");
    for (const bool cells : {false, true})
        for (const bool any : {false, true}) {
            if (cells && any) continue;
            std::vector<std::string> call = {"threshold", path, "-a", cells ? "cell" : "value", "-o", out};
            const double lo = cells ? 17 : -1.4, hi = cells ? 101 : 1.9;
            call.insert(call.end(), {"--min=" + std::to_string(lo), "--max=" + std::to_string(hi)});
            if (any) call.push_back("--any");
            run_well(call);
            const auto ours = read(out);
            vtkNew<vtkThreshold> filter;
            filter->SetInputData(whole);
            filter->SetInputArrayToProcess(0, 0, 0,
                                           cells ? vtkDataObject::FIELD_ASSOCIATION_CELLS
                                                 : vtkDataObject::FIELD_ASSOCIATION_POINTS,
                                           cells ? "cell" : "value");
            filter->SetThresholdFunction(vtkThreshold::THRESHOLD_BETWEEN);
            filter->SetLowerThreshold(lo);
            filter->SetUpperThreshold(hi);
            filter->SetAllScalars(any ? 0 : 1);
            filter->Update();
            vtkDataSet *theirs = filter->GetOutput();
            ASSERT_GT(theirs->GetNumberOfCells(), 5);
            EXPECT_EQ(ours->GetNumberOfCells(), theirs->GetNumberOfCells());
            EXPECT_EQ(ours->GetNumberOfPoints(), theirs->GetNumberOfPoints());
            EXPECT_EQ(sum_of_all(cell_array(ours, "cell")), sum_of_all(cell_array(theirs, "cell")));
            EXPECT_EQ(sum_of_all(node_array(ours, "node")), sum_of_all(node_array(theirs, "node")));
            EXPECT_NEAR(volume_of(ours), volume_of(theirs), 1e-4);
        }
}

INSTANTIATE_TEST_SUITE_P(Solids, Threshold, testing::ValuesIn(solid_meshes), name_of);

TEST(ThresholdRange, IsGivenAndInOrder)
{
    const std::string path = cube({"tet", ".vtu", 1}, "3", [](const double *x) { return x[0]; });
    const std::string out = scratch("no.vtu");
    EXPECT_EQ(run({"threshold", path, "-a", "value", "-o", out}).code, 2);
    EXPECT_EQ(run({"threshold", path, "-a", "value", "--min", "1", "--max", "0", "-o", out}).code, 2);
    EXPECT_EQ(run({"threshold", path, "-a", "cell", "--min", "1", "--any", "-o", out}).code, 2);
    const ran nothing = run({"threshold", path, "-a", "value", "--min", "9", "-o", out});
    EXPECT_EQ(nothing.code, 0);
    EXPECT_NE(nothing.err.find("no cell is in that range: value runs from -1.5 to 1.5"), std::string::npos);
}

TEST(ThresholdRange, NullsAndNaNAreInNone)
{
    const std::string path = scratch("holes.vti"), out = scratch("holes.vtu");
    run_well({"sample", "noisy-sphere", "--size", "4", "-o", path});
    const auto data = read(path);
    node_array(data, "height")->SetComponent(0, 0, -999);
    node_array(data, "height")->SetComponent(63, 0, NAN);
    write(path, data);
    run_well({"threshold", path, "--min=-2000", "--null=-999", "-o", out});
    EXPECT_EQ(read(out)->GetNumberOfCells(), 25);
}
