// iso and isoline against VTK's contour filter on the same file.
//
// Both place a node on each edge that a level crosses, so that first-order meshes give the same nodes; how the
// nodes of a cell are joined may differ where a face is ambiguous, and areas then differ a little. Second-order
// cells are split in different ways: only areas near each other can be expected.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkCell.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkIdList.h>
#include <vtkImageData.h>
#include <vtkLongLongArray.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkTriangle.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <random>
#include <set>

namespace {

struct made_mesh {
    const char *mesh, *ending;
    int order;
    bool flat;
    double tolerance; // of areas and lengths, relative
};

std::ostream &operator<<(std::ostream &out, const made_mesh &mesh)
{
    return out << mesh.mesh << " of order " << mesh.order;
}

const made_mesh made_meshes[] = {
    {"uniform", ".vti", 1, false, 5e-3},     {"rectilinear", ".vtr", 1, false, 5e-3},
    {"curvilinear", ".vts", 1, false, 5e-3}, {"hex", ".vtu", 1, false, 5e-3},
    {"prism", ".vtu", 1, false, 5e-3},       {"pyramid", ".vtu", 1, false, 5e-3},
    {"tet", ".vtu", 1, false, 1e-5},         {"hex", ".vtu", 2, false, 2e-2},
    {"prism", ".vtu", 2, false, 2e-2},       {"pyramid", ".vtu", 2, false, 2e-2},
    {"tet", ".vtu", 2, false, 2e-2},         {"uniform", ".vti", 1, true, 5e-3},
    {"rectilinear", ".vtr", 1, true, 5e-3},  {"curvilinear", ".vts", 1, true, 5e-3},
    {"quad", ".vtu", 1, true, 5e-3},         {"tri", ".vtu", 1, true, 1e-5},
    {"quad", ".vtu", 2, true, 2e-2},         {"tri", ".vtu", 2, true, 2e-2},
};

std::string make(const char *sample, const made_mesh &mesh, int n)
{
    std::string path = scratch("made" + std::string(mesh.ending));
    const std::string size = std::to_string(n);
    std::vector<std::string> arguments = {
        "sample", sample, "--mesh", mesh.mesh, "--order", std::to_string(mesh.order), "--size", size};
    if (mesh.flat) arguments.insert(arguments.end(), {size, "1"});
    arguments.insert(arguments.end(), {"-o", path});
    run_well(arguments);
    return path;
}

double measure_of(vtkPolyData *data, bool flat)
{
    return flat ? length_of(data) : area_of(data);
}

class Levels : public testing::TestWithParam<made_mesh> {};

TEST_P(Levels, OfMadeDataAreWhereVtkFindsThem)
{
    const made_mesh &mesh = GetParam();
    // second-order cells are split in other ways than VTK's, which shows the less the smoother the data is
    const bool smooth = mesh.order == 2;
    const std::string path = make("noisy-sphere", mesh, smooth ? 13 : 24), out = scratch("levels.vtp");
    const auto data = read(path);
    add_node_array(data, "waves",
                   [](const double *x) { return std::sin(2 * x[0]) * std::cos(1.5 * x[1]) + 0.7 * x[2]; });
    write(path, data);
    const char *array = smooth ? "waves" : "height";
    const std::vector<double> levels = {0.05, -0.1, 0.3};
    run_well(
        {mesh.flat ? "isoline" : "iso", path, "-a", array, "--level", "0.05", "--level=-0.1,0.3", "-o", out});
    const auto ours = read_surface(out), theirs = contour(data, array, levels);
    ASSERT_GT(theirs->GetNumberOfPoints(), 100);
    const double expected = measure_of(theirs, mesh.flat);
    EXPECT_NEAR(measure_of(ours, mesh.flat), expected, mesh.tolerance * expected);
    if (mesh.order == 1) {
        EXPECT_EQ(ours->GetNumberOfPoints(), theirs->GetNumberOfPoints());
    }
    EXPECT_EQ(mesh.flat ? ours->GetNumberOfPolys() : ours->GetNumberOfLines(), 0);

    // the array itself has the level's value on the new nodes
    vtkDataArray *carried = node_array(ours, array);
    for (vtkIdType i = 0; i < carried->GetNumberOfTuples(); ++i) {
        double off = 1;
        for (const double one : levels)
            off = std::min(off, std::abs(carried->GetComponent(i, 0) - one));
        ASSERT_LT(off, 1e-5) << "node " << i;
    }
}

TEST_P(Levels, CarryArraysOfNodesAndCells)
{
    const made_mesh &mesh = GetParam();
    const auto data = read(make("hydrogen", mesh, 9));
    const std::string path = scratch("numbered" + std::string(mesh.ending)), out = scratch("carried.vtp");
    number_all(data);
    add_node_array(data, "slope", [](const double *x) { return x[0] - 2 * x[1] + 0.5 * x[2]; });
    add_node_array(data, "ramp", [](const double *x) { return x[0] + x[1] + x[2]; });
    write(path, data);
    run_well({mesh.flat ? "isoline" : "iso", path, "-a", "ramp", "-l", "2.3", "-o", out, "--with", "slope",
              "-w", "cell"});
    const auto ours = read_surface(out);
    ASSERT_GT(ours->GetNumberOfCells(), 10);
    EXPECT_EQ(ours->GetPointData()->GetNumberOfArrays(), 1);

    vtkDataArray *slope = node_array(ours, "slope"), *cell = cell_array(ours, "cell");
    for (vtkIdType i = 0; i < ours->GetNumberOfPoints(); ++i) {
        const double *x = ours->GetPoint(i);
        ASSERT_NEAR(slope->GetComponent(i, 0), x[0] - 2 * x[1] + 0.5 * x[2], 2e-4);
    }
    for (vtkIdType c = 0; c < ours->GetNumberOfCells(); ++c) {
        double piece[6], box[6];
        ours->GetCell(c)->GetBounds(piece);
        data->GetCellBounds(static_cast<vtkIdType>(cell->GetComponent(c, 0)), box);
        for (int d = 0; d < 3; ++d) {
            ASSERT_GE(piece[2 * d], box[2 * d] - 1e-4) << "piece " << c;
            ASSERT_LE(piece[2 * d + 1], box[2 * d + 1] + 1e-4) << "piece " << c;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Made, Levels, testing::ValuesIn(made_meshes));

struct real_case {
    const char *file, *command, *array;
    std::vector<double> levels;
    double tolerance;
    bool same_nodes = true; // not where cells are split in other ways
};

std::ostream &operator<<(std::ostream &out, const real_case &one)
{
    return out << one.file;
}

class RealLevels : public testing::TestWithParam<real_case> {};

TEST_P(RealLevels, AreWhereVtkFindsThem)
{
    const real_case &one = GetParam();
    const std::string path = real_data(one.file), out = scratch("real.vtp");
    if (path.empty()) GTEST_SKIP() << one.file << " is not here";
    std::vector<std::string> arguments = {one.command, path, "--array", one.array, "-o", out};
    for (const double level : one.levels)
        arguments.push_back("--level=" + std::to_string(level));
    run_well(arguments);
    const auto ours = read_surface(out), theirs = contour(read(path), one.array, one.levels);
    const bool lines = one.command == std::string("isoline");
    const double expected = measure_of(theirs, lines);
    ASSERT_GT(expected, 0);
    EXPECT_NEAR(measure_of(ours, lines), expected, one.tolerance * expected);
    arguments.push_back("--raw"); // VTK keeps the nodes of pieces without extent
    run_well(arguments);
    const auto raw = read_surface(out);
    const auto nodes = static_cast<double>(theirs->GetNumberOfPoints());
    EXPECT_NEAR(static_cast<double>(raw->GetNumberOfPoints()), nodes, (one.same_nodes ? 0.01 : 0.2) * nodes);
    EXPECT_NEAR(measure_of(raw, lines), measure_of(ours, lines), 1e-6 * expected);
    double box[6], their_box[6];
    ours->GetBounds(box);
    theirs->GetBounds(their_box);
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(box[i], their_box[i], 1e-5 * theirs->GetLength());
}

const real_case real_cases[] = {
    {"ironProt.vtk", "iso", "scalars", {80.5, 128.5, 200.5}, 5e-3},
    {"carotid.vtk", "iso", "scalars", {160.5, 310.5}, 5e-3},
    {"heart.vti", "iso", "scalars", {100.5}, 5e-3},
    {"RectGrid2.vtk", "iso", "scalars", {3, 5.5}, 5e-3},
    {"SampleStructGrid.vtk", "iso", "scalars", {0.4}, 5e-3},
    {"bluntfinxyz.bin", "iso", "Density", {0.8, 1.5, 2.5}, 5e-3},
    {"office.binary.vtk", "iso", "scalars", {-0.5, 0.1}, 5e-3},
    {"hexa.vtk", "iso", "scalars", {5, 10}, 5e-3},
    {"fire_ug.vtu", "iso", "t", {400, 500}, 5e-3},
    {"notch_stress.vtk", "iso", "Nodal Stress-0", {2e6, 4e6}, 5e-3},
    {"CylinderLinear.vtk", "iso", "vel_norm", {0.3, 0.7}, 1e-5},
    {"CylinderQuadratic.vtk", "iso", "pressure", {1500, 4000}, 2e-2, false},
    {"PentaHexa.vtk", "iso", "scalar2", {0.4}, 2e-2, false},
    {"blow.vtk", "isoline", "thickness7", {0.5, 0.7}, 5e-3},
    {"SainteHelens.dem", "isoline", "Elevation", {1000.5, 2000.5}, 5e-3},
    {"jacksboro.vtk", "isoline", "elevation", {500.5, 800.5}, 5e-3},
    {"topobathy.vtk", "isoline", "height", {0.5, 1000.5}, 2e-2},
};

INSTANTIATE_TEST_SUITE_P(Real, RealLevels, testing::ValuesIn(real_cases));

TEST(LevelsOfVectors, AreOfTheLengthOrOfOneComponent)
{
    const std::string path = scratch("flow.vti"), out = scratch("flow.vtp");
    run_well({"sample", "abc-flow", "--size", "20", "-o", path});
    const auto data = read(path);
    vtkDataArray *velocity = node_array(data, "velocity");
    vtkIdType node = 0;
    add_node_array(data, "speed", [&](const double *) {
        const double *v = velocity->GetTuple3(node++);
        return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    });
    node = 0;
    add_node_array(data, "last", [&](const double *) { return velocity->GetComponent(node++, 2); });
    for (const char *component : {"length", "2"}) {
        run_well({"iso", path, "--component", component, "-l", "1.7", "-o", out});
        const auto ours = read_surface(out);
        const auto theirs = contour(data, component == std::string("2") ? "last" : "speed", {1.7});
        EXPECT_EQ(ours->GetNumberOfPoints(), theirs->GetNumberOfPoints());
        EXPECT_NEAR(area_of(ours), area_of(theirs), 2e-3 * area_of(theirs));
        EXPECT_EQ(node_array(ours, "velocity")->GetNumberOfComponents(), 3);
    }
}

TEST(LevelsOfDataWithNulls, LeaveTheCellsAtNullNodesOut)
{
    // half of the nodes have no value, told by NaN in one file and by a number in the other
    const std::string path = scratch("whole.vti"), nans = scratch("nan.vti"), marks = scratch("mark.vti");
    run_well({"sample", "noisy-sphere", "--size", "20", "-o", path});
    const auto data = read(path);
    vtkDataArray *height = node_array(data, "height");
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
        if (data->GetPoint(i)[0] < 0) height->SetComponent(i, 0, std::nan(""));
    write(nans, data);
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
        if (data->GetPoint(i)[0] < 0) height->SetComponent(i, 0, -999);
    write(marks, data);
    run_well({"iso", nans, "-l", "0", "-o", scratch("nan.vtp")});
    run_well({"iso", marks, "-l", "0", "--null=-999", "-o", scratch("mark.vtp")});
    const auto from_nans = read_surface(scratch("nan.vtp")), from_marks = read_surface(scratch("mark.vtp"));
    ASSERT_GT(from_nans->GetNumberOfPolys(), 100);
    EXPECT_GE(from_nans->GetBounds()[0], 0);
    EXPECT_EQ(from_nans->GetNumberOfPolys(), from_marks->GetNumberOfPolys());
    EXPECT_DOUBLE_EQ(area_of(from_nans), area_of(from_marks));
}

// Edges that only one piece has: the rim of a surface. Pieces without extent have no say.
size_t rim_of(vtkPolyData *data)
{
    const auto place = [&](vtkIdType node) {
        const double *x = data->GetPoint(node);
        return std::array<double, 3>{x[0], x[1], x[2]};
    };
    std::map<std::array<std::array<double, 3>, 2>, int> uses;
    for (vtkIdType c = 0; c < data->GetNumberOfCells(); ++c) {
        vtkIdList *nodes = data->GetCell(c)->GetPointIds();
        for (int i = 0; i < 3; ++i) {
            auto a = place(nodes->GetId(i)), b = place(nodes->GetId((i + 1) % 3));
            if (a == b) continue;
            if (b < a) std::swap(a, b);
            ++uses[{a, b}];
        }
    }
    return static_cast<size_t>(
        std::count_if(uses.begin(), uses.end(), [](const auto &edge) { return edge.second % 2 == 1; }));
}

TEST(LevelsThatNodesHold, HaveNoCoincidentNodesAndNoPiecesWithoutArea)
{
    // whole numbers: a level is met by many nodes exactly
    const std::string path = scratch("whole.vti"), out = scratch("tidy.vtp"), raw_out = scratch("raw.vtp");
    vtkNew<vtkImageData> image;
    image->SetDimensions(14, 14, 14);
    add_node_array(image, "steps", [](const double *x) {
        return std::floor(std::abs(x[0] - 6.3) + std::abs(x[1] - 6.4) + std::abs(x[2] - 6.6));
    });
    number_all(image);
    write(path, image);
    const ran told = run_well({"iso", path, "-a", "steps", "-l", "5", "-o", out});
    run_well({"iso", path, "-a", "steps", "-l", "5", "-o", raw_out, "--raw"});
    const auto ours = read_surface(out), raw = read_surface(raw_out);
    ASSERT_GT(ours->GetNumberOfPolys(), 200);
    EXPECT_LT(ours->GetNumberOfPolys(), raw->GetNumberOfPolys());
    EXPECT_NE(told.out.find(": " + std::to_string(ours->GetNumberOfPolys()) + " triangles, " +
                            std::to_string(ours->GetNumberOfPoints()) + " nodes\n"),
              std::string::npos)
        << shown(told);
    std::set<std::array<double, 3>> places;
    for (vtkIdType i = 0; i < ours->GetNumberOfPoints(); ++i) {
        const double *x = ours->GetPoint(i);
        EXPECT_TRUE(places.insert({x[0], x[1], x[2]}).second) << "node " << i;
        EXPECT_EQ(node_array(ours, "steps")->GetComponent(i, 0), 5);
    }
    double area = 0;
    for (vtkIdType c = 0; c < ours->GetNumberOfCells(); ++c) {
        const double one = vtkTriangle::SafeDownCast(ours->GetCell(c))->ComputeArea();
        EXPECT_GT(one, 0) << "piece " << c;
        area += one;
    }
    EXPECT_NEAR(area, area_of(raw), 1e-9 * area);
    EXPECT_EQ(rim_of(ours), rim_of(raw));
    EXPECT_EQ(rim_of(ours), 0u) << "the octahedron is closed";
    // each piece still comes from the cell it lies in
    for (vtkIdType c = 0; c < ours->GetNumberOfCells(); ++c) {
        double piece[6], box[6];
        ours->GetCell(c)->GetBounds(piece);
        image->GetCellBounds(static_cast<vtkIdType>(cell_array(ours, "cell")->GetComponent(c, 0)), box);
        for (int d = 0; d < 3; ++d)
            ASSERT_TRUE(piece[2 * d] >= box[2 * d] && piece[2 * d + 1] <= box[2 * d + 1]);
    }

    run_well({"sample", "hydrogen", "--size", "9", "9", "1", "-o", scratch("flat.vti")});
    const auto flat = read(scratch("flat.vti"));
    add_node_array(flat, "x", [](const double *x) { return x[0] + x[1]; });
    write(scratch("flat.vti"), flat);
    run_well({"isoline", scratch("flat.vti"), "-a", "x", "-l", "0", "-o", out});
    const auto line = read_surface(out);
    EXPECT_EQ(line->GetNumberOfPoints(), 9);
    EXPECT_EQ(line->GetNumberOfLines(), 8);
}

// a + 1 (b - a) is another number than b where their difference is rounded.
TEST(LevelsThatNodesHold, GiveThemWhatTheNodesHave)
{
    const std::string path = scratch("met.vts");
    run_well({"sample", "hydrogen", "--mesh", "curvilinear", "--size", "12", "-o", path});
    const auto mesh = read(path);
    int count = 0;
    add_node_array(mesh, "steps", [&](const double *) { return count++ * 7 % 10; });
    std::mt19937 random(8);
    std::uniform_real_distribution<double> wide(-1e9, 1e9);
    add_node_array(mesh, "wide", [&](const double *) { return wide(random); });
    vtkNew<vtkLongLongArray> large;
    large->SetName("large");
    for (vtkIdType n = 0; n < mesh->GetNumberOfPoints(); ++n)
        large->InsertNextValue(static_cast<long long>(random()) << 31 | static_cast<long long>(random()));
    mesh->GetPointData()->AddArray(large);
    write(path, mesh);
    for (const char *command : {"iso", "cut"}) {
        const std::string out = scratch(std::string(command) + (*command == 'i' ? ".vtp" : ".vtu"));
        run_well({command, path, "-a", "steps", "-l", "5", "-o", out});
        const auto made = read(out);
        std::map<std::array<double, 3>, vtkIdType> nodes;
        for (vtkIdType n = 0; n < mesh->GetNumberOfPoints(); ++n) {
            const double *x = mesh->GetPoint(n);
            nodes[{x[0], x[1], x[2]}] = n;
        }
        int met = 0;
        for (vtkIdType n = 0; n < made->GetNumberOfPoints(); ++n) {
            if (node_array(made, "steps")->GetComponent(n, 0) != 5) continue;
            const double *x = made->GetPoint(n);
            const auto found = nodes.find({x[0], x[1], x[2]});
            if (found == nodes.end() || node_array(mesh, "steps")->GetComponent(found->second, 0) != 5)
                continue;
            ++met;
            EXPECT_EQ(node_array(made, "wide")->GetComponent(n, 0),
                      node_array(mesh, "wide")->GetComponent(found->second, 0));
            EXPECT_EQ(vtkLongLongArray::SafeDownCast(node_array(made, "large"))->GetValue(n),
                      large->GetValue(found->second));
        }
        EXPECT_GT(met, 50) << command;
    }
}

// Level 5 on nodes of 4 and 6 is 5, and not 4.
TEST(LevelsOfIntegers, CarryThemRounded)
{
    vtkNew<vtkImageData> image;
    image->SetDimensions(5, 5, 5);
    image->AllocateScalars(VTK_INT, 1);
    for (int i = 0; i < 125; ++i)
        static_cast<int *>(image->GetScalarPointer())[i] = i * 7 % 100;
    image->GetPointData()->GetScalars()->SetName("count");
    write(scratch("count.vti"), image);
    run_well({"iso", scratch("count.vti"), "-l", "33,50,71", "-o", scratch("count.vtp")});
    const auto ours = read_surface(scratch("count.vtp"));
    vtkDataArray *count = node_array(ours, "count");
    EXPECT_EQ(count->GetDataType(), VTK_INT);
    std::set<double> seen;
    for (vtkIdType i = 0; i < count->GetNumberOfTuples(); ++i)
        seen.insert(count->GetComponent(i, 0));
    EXPECT_EQ(seen, (std::set<double>{33, 50, 71}));
}

TEST(LevelsThatNothingReaches, GiveAnEmptyFileAndANote)
{
    const std::string path = scratch("small.vti"), out = scratch("none.vtp");
    run_well({"sample", "hydrogen", "--size", "5", "-o", path});
    const ran result = run_well({"iso", path, "-l", "7", "-o", out});
    EXPECT_NE(result.err.find("nothing has that value: psi runs from"), std::string::npos) << shown(result);
    EXPECT_EQ(read_surface(out)->GetNumberOfCells(), 0);
    // but where nodes hold the level, that is not so
    vtkNew<vtkImageData> image;
    image->SetDimensions(3, 3, 3);
    add_node_array(image, "ones", [](const double *) { return 1; });
    write(scratch("ones.vti"), image);
    const ran held = run_well({"iso", scratch("ones.vti"), "-l", "1", "-o", out});
    EXPECT_NE(held.err.find("no cell has values on both sides"), std::string::npos) << shown(held);
}

} // namespace
