// stream and glyph on fields whose lines are known, and the files they write looked at with VTK.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkFloatArray.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>

#include <array>
#include <cmath>
#include <functional>
#include <limits>

namespace {

using vector = std::array<double, 3>;
using vector_field = std::function<vector(const double *)>;

const double pi = std::acos(-1.0);

// A cube from -1 to 1 of n nodes along each axis with a vector at each, in a file.
std::string cube_with(const std::string &name, const vector_field &field, int n = 33, int ncomp = 3)
{
    vtkNew<vtkImageData> image;
    image->SetDimensions(n, n, n);
    image->SetOrigin(-1, -1, -1);
    image->SetSpacing(2.0 / (n - 1), 2.0 / (n - 1), 2.0 / (n - 1));
    vtkNew<vtkFloatArray> flow;
    flow->SetName("flow");
    flow->SetNumberOfComponents(ncomp);
    flow->SetNumberOfTuples(image->GetNumberOfPoints());
    for (vtkIdType i = 0; i < image->GetNumberOfPoints(); ++i) {
        double at[3];
        image->GetPoint(i, at);
        flow->SetTuple(i, field(at).data());
    }
    image->GetPointData()->AddArray(flow);
    add_node_array(image, "height", [](const double *at) { return at[2]; });
    std::string path = scratch(name);
    write(path, image);
    return path;
}

vector spin(const double *at)
{
    return {-at[1], at[0], 0.1};
}

std::string spinning()
{
    static const std::string path = cube_with("spinning.vti", spin);
    return path;
}

double figure(vtkPolyData *data, const char *cell_array_name, vtkIdType cell)
{
    return cell_array(data, cell_array_name)->GetComponent(cell, 0);
}

std::vector<vtkIdType> nodes_of(vtkCellArray *cells, vtkIdType cell)
{
    vtkIdType count;
    const vtkIdType *nodes;
    cells->GetCellAtId(cell, count, nodes);
    return {nodes, nodes + count};
}

vector place(vtkPolyData *data, vtkIdType node)
{
    vector at;
    data->GetPoint(node, at.data());
    return at;
}

double distance(const vector &a, const vector &b)
{
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

} // namespace

// ---- lines ------------------------------------------------------------------------------------------------------------

TEST(Stream, LinesFollowAHelixAndSayWhen)
{
    const std::string out = scratch("helix.vtp");
    const ran result =
        run_well({"stream", spinning(), "--seeds-line", "0.2,0,-0.9", "0.8,0,-0.9", "4", "-o", out});
    EXPECT_NE(result.out.find("4 lines"), std::string::npos) << shown(result);
    EXPECT_NE(result.out.find("4 left the mesh"), std::string::npos) << shown(result);
    const auto lines = read_surface(out);
    ASSERT_EQ(lines->GetNumberOfLines(), 4);
    for (vtkIdType line = 0; line < 4; ++line) {
        EXPECT_EQ(figure(lines, "seed", line), line);
        EXPECT_EQ(figure(lines, "ended", line), 1);
        const double radius = 0.2 + 0.2 * static_cast<double>(line);
        for (const vtkIdType node : nodes_of(lines->GetLines(), line)) {
            const double time = node_array(lines, "time")->GetComponent(node, 0);
            EXPECT_LT(distance(place(lines, node),
                               {radius * std::cos(time), radius * std::sin(time), -0.9 + 0.1 * time}),
                      2e-4);
            EXPECT_NEAR(node_array(lines, "speed")->GetComponent(node, 0), std::hypot(radius, 0.1), 1e-4);
            EXPECT_NEAR(node_array(lines, "flow")->GetComponent(node, 2), 0.1, 1e-5);
        }
        const vtkIdType last = nodes_of(lines->GetLines(), line).back();
        EXPECT_NEAR(place(lines, last)[2], 1, 1e-4) << "up to the top";
    }
}

// The speed grows along the line, so that steps are shortened: their sizes at first choice would sum to more.
TEST(Stream, TimeIsThatOfTheStepsTaken)
{
    const std::string in = cube_with(
        "faster.vti",
        [](const double *at) {
            return vector{std::exp(at[0]), 0, 0};
        },
        65);
    const std::string out = scratch("faster.vtp");
    for (const char *order : {"1", "2", "4"}) {
        run_well({"stream", in, "--seeds-line", "-0.9,0,0", "-0.9,0,0", "1", "--order", order, "-o", out});
        const auto lines = read_surface(out);
        const vtkIdType last = lines->GetNumberOfPoints() - 1;
        const double x = place(lines, last)[0], time = node_array(lines, "time")->GetComponent(last, 0);
        EXPECT_NEAR(x, 1, 1e-4);
        EXPECT_NEAR(time, std::exp(0.9) - std::exp(-x), order[0] == '1' ? 0.05 : 1e-3) << order;
    }
}

TEST(Stream, BothWaysFromTheSeed)
{
    const std::string out = scratch("both.vtp");
    run_well({"stream", spinning(), "--seeds-line", "0.5,0,0", "0.5,0,0", "1", "--both", "-o", out});
    const auto lines = read_surface(out);
    ASSERT_EQ(lines->GetNumberOfLines(), 1);
    EXPECT_EQ(figure(lines, "ended", 0), 1);
    EXPECT_EQ(figure(lines, "began", 0), 1);
    double before = -1e9;
    bool at_seed = false;
    for (const vtkIdType node : nodes_of(lines->GetLines(), 0)) {
        const double time = node_array(lines, "time")->GetComponent(node, 0);
        EXPECT_GT(time, before);
        before = time;
        EXPECT_LT(distance(place(lines, node), {0.5 * std::cos(time), 0.5 * std::sin(time), 0.1 * time}),
                  2e-4);
        at_seed = at_seed || time == 0;
    }
    EXPECT_TRUE(at_seed);
    EXPECT_GT(before, 9.5);
}

TEST(Stream, EndsWhereItIsToldTo)
{
    const std::string out = scratch("ends.vtp");
    const std::vector<std::string> one = {"stream",  spinning(), "--seeds-line", "0.5,0,0",
                                          "0.5,0,0", "1",        "-o",           out};
    const auto traced = [&](const std::string &option, const std::string &value) {
        std::vector<std::string> arguments = one;
        arguments.insert(arguments.end(), {option, value});
        run_well(arguments);
        return read_surface(out);
    };
    const auto steps = traced("--max-steps", "17");
    EXPECT_EQ(steps->GetNumberOfPoints(), 18);
    EXPECT_EQ(figure(steps, "ended", 0), 4);
    const auto lengths = traced("--max-length", "1.25");
    EXPECT_NEAR(length_of(lengths), 1.25, 1e-6);
    EXPECT_EQ(figure(lengths, "ended", 0), 5);
    EXPECT_EQ(run({"stream", spinning(), "--seeds-line", "0.5,0,0", "0.5,0,0", "1", "--min-speed", "0.6",
                   "-o", out})
                      .err.find("1 of 1 seeds have no value, or are at rest or slower than --min-speed") !=
                  std::string::npos,
              true);
    const std::string slowing = cube_with("slowing.vti", [](const double *at) {
        return vector{1 - at[0] * 0.9, 0, 0};
    });
    run_well(
        {"stream", slowing, "--seeds-line", "-0.5,0,0", "-0.5,0,0", "1", "--min-speed", "0.5", "-o", out});
    const auto slow = read_surface(out);
    EXPECT_EQ(figure(slow, "ended", 0), 3);
    EXPECT_NEAR(place(slow, slow->GetNumberOfPoints() - 1)[0], 0.5, 0.1);
}

TEST(Stream, NodesWithoutAValueEndALine)
{
    const std::string in = cube_with("holes.vti", [](const double *at) {
        return vector{at[0] > 0.4 ? std::numeric_limits<double>::quiet_NaN() : 1.0, 0, 0};
    });
    const std::string out = scratch("holes.vtp");
    run_well({"stream", in, "--seeds-line", "-0.5,0,0", "0.8,0,0", "2", "-o", out});
    const auto lines = read_surface(out);
    ASSERT_EQ(lines->GetNumberOfLines(), 1);
    EXPECT_EQ(figure(lines, "ended", 0), 2);
    EXPECT_NEAR(place(lines, lines->GetNumberOfPoints() - 1)[0], 0.37, 0.08);
}

TEST(Stream, SeedsOutsideAreCountedAndTold)
{
    const std::string out = scratch("outside.vtp");
    const ran result = run_well({"stream", spinning(), "--seeds-line", "0,0.5,0", "0,1.5,0", "5", "-o", out});
    EXPECT_NE(result.err.find("2 of 5 seeds are outside the mesh"), std::string::npos) << shown(result);
    EXPECT_EQ(read_surface(out)->GetNumberOfLines(), 3);
}

TEST(Stream, SeedsComeInFourWays)
{
    const std::string out = scratch("seeds.vtp"), points = scratch("points.csv");
    run_well({"stream", spinning(), "--seeds-plane", "-0.5,-0.5,0", "0.5,-0.5,0", "-0.5,0.5,0", "3", "4",
              "-o", out, "--max-steps", "3"});
    const auto plane = read_surface(out);
    ASSERT_EQ(plane->GetNumberOfLines(), 12);
    for (vtkIdType line = 0; line < 12; ++line)
        EXPECT_LT(distance(place(plane, nodes_of(plane->GetLines(), line)[0]),
                           {-0.5 + 0.5 * static_cast<double>(line % 3),
                            -0.5 + std::floor(static_cast<double>(line) / 3) / 3, 0}),
                  1e-6);
    run_well({"stream", spinning(), "--seeds-random", "20", "-o", out, "--max-steps", "3"});
    const auto random = read_surface(out);
    EXPECT_EQ(random->GetNumberOfLines(), 20);
    write_bytes(points, "x,y,z\n0.1,0.2,0.3\n-0.4,0.1,0\n");
    run_well({"stream", spinning(), "--seeds", points, "-o", out, "--max-steps", "3"});
    const auto listed = read_surface(out);
    ASSERT_EQ(listed->GetNumberOfLines(), 2);
    EXPECT_LT(distance(place(listed, 0), {0.1, 0.2, 0.3}), 1e-6);
}

TEST(Stream, RandomSeedsLieInCellsOfEveryKind)
{
    for (const char *mesh : {"rectilinear", "curvilinear", "hex", "tet", "prism", "pyramid"}) {
        const bool is_lattice = mesh[0] == 'r' || mesh[0] == 'c';
        const std::string in =
            scratch(std::string(mesh) + (is_lattice ? (mesh[0] == 'r' ? ".vtr" : ".vts") : ".vtu"));
        run_well({"sample", "abc-flow", "--mesh", mesh, "--size", "8", "-o", in});
        const std::string out = scratch("random.vtp");
        const ran result = run_well({"stream", in, "--seeds-random", "30", "-o", out});
        EXPECT_EQ(result.err.find("outside"), std::string::npos) << shown(result);
        EXPECT_EQ(read_surface(out)->GetNumberOfLines(), 30) << mesh;
    }
}

// Cells that are no boxes, and places that are right all the same.
TEST(Stream, LinesOnMeshesOfAllKindsFollowALinearFieldToTheBorder)
{
    const auto turning = [](vtkDataSet *data) {
        vtkNew<vtkFloatArray> flow;
        flow->SetName("flow");
        flow->SetNumberOfComponents(3);
        flow->SetNumberOfTuples(data->GetNumberOfPoints());
        double middle[3];
        data->GetCenter(middle);
        for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i) {
            double at[3];
            data->GetPoint(i, at);
            flow->SetTuple3(i, middle[1] - at[1], at[0] - middle[0], 0.3);
        }
        data->GetPointData()->Initialize();
        data->GetPointData()->AddArray(flow);
    };
    for (const char *mesh : {"uniform", "rectilinear", "curvilinear", "hex", "tet", "prism", "pyramid"}) {
        const std::string kind = mesh;
        const std::string ending = kind == "uniform"       ? ".vti"
                                   : kind == "rectilinear" ? ".vtr"
                                   : kind == "curvilinear" ? ".vts"
                                                           : ".vtu";
        const std::string in = scratch(kind + ending), out = scratch("turning.vtp");
        run_well({"sample", "abc-flow", "--mesh", kind, "--size", "12", "-o", in});
        const auto data = read(in);
        turning(data);
        write(in, data);
        double box[6];
        data->GetBounds(box);
        const double r = (box[1] - box[0]) / 8;
        const double middle[2] = {(box[0] + box[1]) / 2, (box[2] + box[3]) / 2};
        const std::string seed = std::to_string(middle[0] + r) + "," + std::to_string(middle[1]) + "," +
                                 std::to_string((box[4] + box[5]) / 2);
        run_well({"stream", in, "--seeds-line", seed, seed, "1", "--both", "-o", out});
        const auto lines = read_surface(out);
        ASSERT_EQ(lines->GetNumberOfLines(), 1) << mesh;
        double lowest = 1e9, highest = -1e9;
        for (vtkIdType i = 0; i < lines->GetNumberOfPoints(); ++i) {
            const vector at = place(lines, i);
            EXPECT_NEAR(std::hypot(at[0] - middle[0], at[1] - middle[1]), r, 1e-4 * r) << mesh;
            lowest = std::min(lowest, at[2]);
            highest = std::max(highest, at[2]);
        }
        if (kind == "curvilinear") continue; // its ends are not flat
        EXPECT_NEAR(lowest, box[4], 1e-4) << mesh;
        EXPECT_NEAR(highest, box[5], 1e-4) << mesh;
    }
}

TEST(Stream, OnAFlatMeshVectorsCountWithinIt)
{
    vtkNew<vtkImageData> image;
    image->SetDimensions(9, 9, 1);
    image->SetSpacing(0.125, 0.125, 1);
    image->SetOrigin(0, 0, 0.5);
    vtkNew<vtkFloatArray> flow;
    flow->SetName("flow");
    flow->SetNumberOfComponents(3);
    flow->SetNumberOfTuples(81);
    for (vtkIdType i = 0; i < 81; ++i)
        flow->SetTuple3(i, 1, 0, 0.7);
    image->GetPointData()->AddArray(flow);
    const std::string in = scratch("flat.vti"), out = scratch("flat.vtp");
    write(in, image);
    const ran result = run_well(
        {"stream", in, "--seeds-line", "0.1,0.3,0.5", "0.1,0.3,0.5", "1", "-o", out, "--ribbon", "0.05"});
    EXPECT_NE(result.err.find("the mesh is flat"), std::string::npos) << shown(result);
    const auto lines = read_surface(out);
    EXPECT_EQ(lines->GetNumberOfStrips(), 1);
    double box[6];
    lines->GetBounds(box);
    EXPECT_NEAR(box[1], 1, 1e-4);
    EXPECT_NEAR(node_array(lines, "speed")->GetComponent(0, 0), 1, 1e-6);
}

TEST(Stream, NullAndCellVectorsAreTakenWhereToldTo)
{
    const std::string in = cube_with(
        "marked.vti",
        [](const double *at) {
            return vector{at[0] > 0.45 ? -99.0 : 1.0, 0, 0};
        },
        21);
    const std::string out = scratch("marked.vtp");
    run_well({"stream", in, "--seeds-line", "-0.5,0,0", "-0.5,0,0", "1", "--null", "-99", "-o", out});
    const auto lines = read_surface(out);
    ASSERT_EQ(lines->GetNumberOfLines(), 1);
    EXPECT_EQ(figure(lines, "ended", 0), 2);
    EXPECT_NEAR(place(lines, lines->GetNumberOfPoints() - 1)[0], 0.4, 1e-3) << "up to the cells that have it";

    const auto data = read(in);
    vtkNew<vtkFloatArray> of_cells;
    of_cells->SetName("wind");
    of_cells->SetNumberOfComponents(2);
    of_cells->SetNumberOfTuples(data->GetNumberOfCells());
    for (vtkIdType i = 0; i < data->GetNumberOfCells(); ++i)
        of_cells->SetTuple2(i, 0, 1);
    data->GetCellData()->AddArray(of_cells);
    const std::string cells = scratch("wind.vti");
    write(cells, data);
    const ran wrong = run({"stream", cells, "--vectors", "wind", "--seeds-random", "1", "-o", out});
    EXPECT_NE(wrong.err.find("--cell-to-node"), std::string::npos) << shown(wrong);
    run_well({"stream", cells, "--cell-to-node", "--seeds-line", "0.1,-0.5,0", "0.1,-0.5,0", "1", "-o", out});
    const auto wind = read_surface(out);
    EXPECT_NEAR(length_of(wind), 1.5, 1e-4);
    EXPECT_EQ(node_array(wind, "wind")->GetNumberOfComponents(), 2);
}

TEST(Stream, TheLibrarysPlacesGoATwentiethOfACellFurther)
{
    const std::string in = scratch("library.vtu"), out = scratch("library.vtp");
    run_well({"sample", "abc-flow", "--mesh", "hex", "--size", "8", "-o", in});
    const ran exact = run_well({"stream", in, "--seeds-random", "40", "-o", out});
    double bounds[6], exactly[6], roughly[6];
    read(in)->GetBounds(bounds);
    read_surface(out)->GetBounds(exactly);
    run_well({"stream", in, "--seeds-random", "40", "--library", "-o", out});
    read_surface(out)->GetBounds(roughly);
    const double size = bounds[1] - bounds[0];
    for (int i = 0; i < 6; ++i) {
        const int side = i % 2 == 0 ? -1 : 1;
        EXPECT_LE(side * (exactly[i] - bounds[i]), 1e-5 * size) << shown(exact);
        EXPECT_LE(side * (roughly[i] - bounds[i]), 0.06 * size / 7);
    }
}

// ---- ribbons ------------------------------------------------------------------------------------------------------------

TEST(Stream, RibbonsAreAsWideAsAskedForAndTurnWithTheField)
{
    // Along the axis of a turn at a rate of 3 the ribbon turns by 3 in a unit of time.
    const std::string in = cube_with("axis.vti", [](const double *at) {
        return vector{-3 * at[1], 3 * at[0], 1};
    });
    const std::string out = scratch("ribbon.vtp");
    const ran result =
        run_well({"stream", in, "--seeds-line", "0,0,-0.95", "0,0,-0.95", "1", "--ribbon", "0.2", "-o", out});
    EXPECT_NE(result.out.find("1 ribbons"), std::string::npos) << shown(result);
    const auto ribbon = read_surface(out);
    ASSERT_EQ(ribbon->GetNumberOfStrips(), 1);
    EXPECT_EQ(ribbon->GetNumberOfLines(), 0);
    EXPECT_EQ(figure(ribbon, "ended", 0), 1);
    const auto nodes = nodes_of(ribbon->GetStrips(), 0);
    vector first = {0, 0, 0};
    double turned = 0;
    for (size_t i = 0; i < nodes.size(); i += 2) {
        const vector a = place(ribbon, nodes[i]), b = place(ribbon, nodes[i + 1]);
        EXPECT_NEAR(distance(a, b), 0.2, 1e-5);
        EXPECT_NEAR((a[0] + b[0]) / 2, 0, 1e-4) << "the line is its middle";
        const vector across = {(b[0] - a[0]) / 0.2, (b[1] - a[1]) / 0.2, 0};
        if (i == 0) first = across;
        const double time = node_array(ribbon, "time")->GetComponent(nodes[i], 0);
        turned = std::atan2(first[0] * across[1] - first[1] * across[0],
                            first[0] * across[0] + first[1] * across[1]);
        EXPECT_NEAR(std::remainder(turned - 3 * time, 2 * pi), 0, 1e-3) << time;
    }
}

// Vectors of two components have none along z, whatever they do along it.
TEST(Stream, RibbonsOfTwoComponentsTurnLikeThoseOfThree)
{
    const std::string three = cube_with("three.vti", [](const double *at) {
        return vector{std::cos(2 * at[2]) - at[1], std::sin(3 * at[2]) + 0.5 * at[0], 0};
    });
    const auto cube = read(three);
    vtkDataArray *flow = cube->GetPointData()->GetArray("flow");
    vtkNew<vtkFloatArray> flat;
    flat->SetName("flat");
    flat->SetNumberOfComponents(2);
    for (vtkIdType node = 0; node < flow->GetNumberOfTuples(); ++node)
        flat->InsertNextTuple2(flow->GetComponent(node, 0), flow->GetComponent(node, 1));
    cube->GetPointData()->AddArray(flat);
    const std::string both = scratch("both.vti");
    write(both, cube);
    vtkSmartPointer<vtkPolyData> ribbons[2];
    for (const auto &[name, i] : {std::pair("flow", 0), std::pair("flat", 1)}) {
        const std::string out = scratch("two.vtp");
        run_well({"stream", both, "--vectors", name, "--seeds-line", "-0.5,0.1,-0.3", "0.5,-0.2,0.4", "4",
                  "--both", "--ribbon", "0.1", "-o", out});
        ribbons[i] = read_surface(out);
    }
    ASSERT_EQ(ribbons[0]->GetNumberOfStrips(), 4);
    ASSERT_EQ(ribbons[0]->GetNumberOfPoints(), ribbons[1]->GetNumberOfPoints());
    for (vtkIdType node = 0; node < ribbons[0]->GetNumberOfPoints(); ++node)
        EXPECT_EQ(place(ribbons[0], node), place(ribbons[1], node)) << node;
}

TEST(Stream, RibbonsRunThroughTheSeedBothWays)
{
    const std::string out = scratch("ribbons.vtp"), picture = scratch("ribbons.png");
    run_well({"stream", spinning(), "--seeds-line", "0.2,0,0", "0.7,0,0", "3", "--both", "--ribbon", "0.1",
              "-o", out, "--picture", picture});
    const auto ribbons = read_surface(out);
    EXPECT_EQ(ribbons->GetNumberOfStrips(), 3);
    for (vtkIdType i = 0; i < 3; ++i) {
        const auto nodes = nodes_of(ribbons->GetStrips(), i);
        for (size_t k = 0; k < nodes.size(); k += 2)
            EXPECT_NEAR(distance(place(ribbons, nodes[k]), place(ribbons, nodes[k + 1])), 0.1, 1e-5);
    }
    EXPECT_GT(bytes_of(picture).size(), 10000u);
}

// ---- wrong arguments ----------------------------------------------------------------------------------------------------

TEST(Stream, WrongArgumentsAreNamed)
{
    const std::string out = scratch("x.vtp"), in = spinning();
    const auto complains = [&](std::vector<std::string> arguments, const char *text) {
        arguments.insert(arguments.begin(), "stream");
        const ran result = run(arguments);
        EXPECT_NE(result.code, 0);
        EXPECT_NE(result.err.find(text), std::string::npos) << shown(result);
    };
    complains({in, "-o", out}, "give one of --seeds-line");
    complains({in, "-o", out, "--seeds-random", "3", "--seeds", in}, "give one of --seeds-line");
    complains({in, "--seeds-random", "3"}, "nowhere to put the result");
    complains({in, "-o", out, "--seeds-random", "3", "--vectors", "height"}, "height has 1 component");
    complains({in, "-o", out, "--seeds-random", "3", "--vectors", "none"}, "has no node array none");
    complains({in, "-o", out, "--seeds-line", "0,0", "0,0,0", "3"}, "--seeds-line");
    complains({in, "-o", scratch("x.stl"), "--seeds-random", "3"}, "ends in .vtp");
    complains({in, "-o", out, "--seeds-random", "0"}, "--seeds-random");
    complains({in, "-o", out, "--seeds-random", "3", "--order", "5"}, "--order");
    complains({in, "-o", out, "--seeds-random", "3", "--max-length", "-1"},
              "--max-length: -1 is out of range");
    complains({in, "-o", out, "--seeds-random", "3", "--ribbon", "inf"}, "--ribbon: inf is out of range");
    complains({in, "-o", out, "--seeds-plane", "0,0,0", "1,0,0", "0,1,0", "1000000", "1000000"},
              "makes more than 100000000 seeds");
    complains({in, "-o", out, "--seeds", scratch("none.csv")}, "none.csv");
}

// ---- glyphs -------------------------------------------------------------------------------------------------------------

TEST(Glyph, LongestArrowIsATwentiethOfTheDiagonal)
{
    const std::string in = cube_with("small.vti", spin, 5), out = scratch("arrows.vtp");
    const ran result = run_well({"glyph", in, "-o", out});
    EXPECT_NE(result.out.find("125 glyphs"), std::string::npos) << shown(result);
    const auto arrows = read_surface(out);
    const vtkIdType each = arrows->GetNumberOfPoints() / 125;
    const double scale = std::sqrt(12.0) / 20 / std::hypot(std::sqrt(2.0), 0.1);
    const auto source = read(in);
    for (vtkIdType node = 0; node < 125; ++node) {
        double at[3];
        source->GetPoint(node, at);
        const vector v = spin(at);
        double furthest = 0;
        vector tip = {0, 0, 0};
        for (vtkIdType g = node * each; g < (node + 1) * each; ++g) {
            const vector p = place(arrows, g);
            const double along = ((p[0] - at[0]) * v[0] + (p[1] - at[1]) * v[1] + (p[2] - at[2]) * v[2]);
            if (along <= furthest) continue;
            furthest = along;
            tip = p;
        }
        EXPECT_LT(distance(tip, {at[0] + scale * v[0], at[1] + scale * v[1], at[2] + scale * v[2]}), 1e-5);
        EXPECT_NEAR(node_array(arrows, "magnitude")->GetComponent(node * each, 0),
                    std::hypot(v[0], v[1], v[2]), 1e-5);
        EXPECT_NEAR(node_array(arrows, "flow")->GetComponent(node * each + 1, 0), v[0], 1e-6);
    }
    EXPECT_GT(arrows->GetNumberOfPolys(), 125 * 20);
}

TEST(Glyph, SizesComeFromAnotherArrayOrAreAllAlike)
{
    const std::string in = cube_with(
                          "tall.vti",
                          [](const double *) {
                              return vector{0, 0, 7};
                          },
                          3),
                      out = scratch("sizes.vtp");
    const auto heights = [&](const std::vector<std::string> &options) {
        std::vector<std::string> arguments = {"glyph", in, "-o", out, "--shape", "cone"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        run_well(arguments);
        const auto cones = read_surface(out);
        const vtkIdType each = cones->GetNumberOfPoints() / 27;
        std::vector<double> tall;
        for (vtkIdType node = 0; node < 27; ++node) {
            double lo = 1e9, hi = -1e9;
            for (vtkIdType g = node * each; g < (node + 1) * each; ++g) {
                lo = std::min(lo, place(cones, g)[2]);
                hi = std::max(hi, place(cones, g)[2]);
            }
            tall.push_back(hi - lo);
        }
        return tall;
    };
    for (const double tall : heights({"--scale", "0.01"}))
        EXPECT_NEAR(tall, 0.07, 1e-6);
    for (const double tall : heights({"--fixed", "0.3"}))
        EXPECT_NEAR(tall, 0.3, 1e-6);
    const auto by_height = heights({"--scale", "0.5", "--scale-array", "height"});
    for (size_t node = 0; node < 27; ++node)
        EXPECT_NEAR(by_height[node], node / 9 == 1 ? 0 : 0.5, 1e-6) << "from -1 to 1, by its length";
    EXPECT_NE(node_array(read_surface(out), "height"), nullptr);
}

TEST(Glyph, ShapesOfEveryKindAndFromAFile)
{
    const std::string in = cube_with(
        "one.vti",
        [](const double *) {
            return vector{1, 0, 0};
        },
        2);
    const std::string own = scratch("own.vtp"), out = scratch("shapes.vtp"), picture = scratch("shapes.png");
    run_well({"glyph", in, "--every", "8", "--fixed", "1", "--shape", "sphere", "-o", own});
    const auto ball = read_surface(own);
    EXPECT_NEAR(area_of(ball), pi, 0.25);
    for (const char *shape : {"arrow", "cone", "cube", "sphere"}) {
        run_well({"glyph", in, "--fixed", "1", "--shape", shape, "--every", "8", "-o", out, "-p", picture});
        EXPECT_GT(area_of(read_surface(out)), 0.05) << shape;
        EXPECT_GT(bytes_of(picture).size(), 5000u) << shape;
    }
    run_well({"glyph", in, "--fixed", "1", "--shape", "cube", "--every", "8", "-o", out});
    EXPECT_NEAR(area_of(read_surface(out)), 6, 1e-5);
    run_well({"glyph", in, "--fixed", "0.5", "--shape", own, "-o", out});
    const auto copies = read_surface(out);
    EXPECT_EQ(copies->GetNumberOfPoints(), 8 * ball->GetNumberOfPoints());
    EXPECT_EQ(copies->GetNumberOfPolys(), 8 * ball->GetNumberOfPolys());
    EXPECT_NEAR(area_of(copies), 8 * 0.25 * area_of(ball), 1e-3);
}

TEST(Glyph, NodesWithoutAVectorHaveNone)
{
    const std::string in = cube_with(
        "gaps.vti",
        [](const double *at) {
            const double nan = std::numeric_limits<double>::quiet_NaN();
            return at[0] < -0.5 ? vector{nan, 0, 0} : at[0] > 0.5 ? vector{0, 0, 0} : vector{0, 1, 0};
        },
        3);
    const ran result = run_well({"glyph", in, "-o", scratch("gaps.vtp")});
    EXPECT_NE(result.out.find("9 glyphs"), std::string::npos) << shown(result);
    EXPECT_NE(result.err.find("18 nodes have no glyph"), std::string::npos) << shown(result);
}

TEST(Glyph, HugeAndTinyVectorsAreSizedAsOthersAre)
{
    for (const double size : {1e-25, 1e30}) {
        const std::string in = cube_with(
            "extreme.vti",
            [&](const double *at) {
                return vector{0, at[1] > 0 ? 2 * size : size, 0};
            },
            2);
        const std::string out = scratch("extreme.vtp");
        run_well({"glyph", in, "--shape", "cone", "-o", out});
        const auto cones = read_surface(out);
        double box[6];
        cones->GetBounds(box);
        EXPECT_NEAR(box[3] - 1, std::sqrt(12.0) / 20, 1e-5) << size;
        EXPECT_NEAR(node_array(cones, "magnitude")->GetComponent(0, 0) / size, 1, 1e-5);
    }
}

TEST(Glyph, WrongArgumentsAreNamed)
{
    const std::string out = scratch("x.vtp"), in = spinning();
    const auto complains = [&](std::vector<std::string> arguments, const char *text) {
        arguments.insert(arguments.begin(), "glyph");
        const ran result = run(arguments);
        EXPECT_NE(result.code, 0);
        EXPECT_NE(result.err.find(text), std::string::npos) << shown(result);
    };
    complains({in, "-o", out, "--scale-array", "none"}, "has no node array none");
    complains({in, "-o", out, "--shape", in}, "is no shape");
    complains({in, "-o", out, "--scale", "1", "--fixed", "1"}, "--fixed");
    complains({in, "-o", out, "--scale", "nan"}, "--scale: nan is out of range");
    complains({in, "-o", out, "--every", "0"}, "--every: 0 is out of range");
    complains({in, "-o", out, "--vectors", "height"}, "height has 1 component");
}
