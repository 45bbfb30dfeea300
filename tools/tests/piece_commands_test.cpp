// Commands that look at neighbours, or hand work over, on pieces of every kind of mesh: what comes out is what one process
// makes of the whole file.
#include "pieces_support.hpp"

#include <gtest/gtest.h>

#include <vtkAppendFilter.h>
#include <vtkCell.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkDoubleArray.h>
#include <vtkFloatArray.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPointSet.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkRectilinearGrid.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace {

using cut_up::sample;
using cut_up::way;
using cut_up::words;

// Every count of processes, cut and kind of share stands beside each kind of mesh once in a while.
const way ways[] = {
    {{3, cut_up::shares::by_place, {}, false}, 2},        {{4, cut_up::shares::runs, {1}, true}, 3},
    {{7, cut_up::shares::by_place, {0, 6}, false}, 0, 5}, {{2, cut_up::shares::runs, {}, false}, 5},
    {{5, cut_up::shares::in_turn, {}, true}, 1, 4},       {{1, cut_up::shares::runs, {}, false}, 2, 3}};

std::string in_words(const sample &of, const way &how)
{
    return of.name + " in " + std::to_string(how.cut.count) + (how.cut.ghosts ? " with ghosts" : "") +
           " on " + std::to_string(how.processes) + ", --pieces " + std::to_string(how.pieces);
}

const std::string &whole_file(const sample &of)
{
    static std::map<std::string, std::string> written;
    std::string &path = written[of.name];
    if (path.empty()) {
        path = scratch("all_" + of.name + cut_up::whole_ending(of));
        write(path, of.whole);
    }
    return path;
}

// The command on a file in pieces.
void run_cut_up(const sample &of, const way &how, const words &command, const words &rest)
{
    const std::string path = cut_up::write_pieces(scratch("cut_" + of.name + of.ending), of.whole, how.cut);
    words all = command + words{path} + rest;
    if (how.pieces > 0) all = all + words{"--pieces", std::to_string(how.pieces)};
    if (how.processes > 0)
        run_well_on(how.processes, all);
    else
        run_well(all);
}

// Whether cells have their order in pieces, and with it sums over the cells around a node their last bits.
bool keeps_order(const sample &of, const way &how)
{
    return cut_up::is_lattice(of) || how.cut.share == cut_up::shares::runs;
}

// Whole and cut up, into one file each: called with both for each kind of mesh.
// in_runs: no other shares, so that cells keep their order.
template <typename Compare>
void each_kind(const words &command, const words &rest, const std::string &ending, int shift, Compare compare,
               bool in_runs = false)
{
    int at = shift;
    for (const sample &of : cut_up::samples()) {
        way how = ways[static_cast<size_t>(at++) % std::size(ways)];
        if (in_runs) how.cut.share = cut_up::shares::runs;
        SCOPED_TRACE(in_words(of, how));
        const std::string end = ending.empty() ? cut_up::whole_ending(of) : ending;
        const std::string whole = scratch("whole_result" + end), joined = scratch("joined_result" + end);
        std::filesystem::remove(joined);
        run_well(command + words{whole_file(of)} + rest + words{"-o", whole});
        run_cut_up(of, how, command, rest + words{"-o", joined});
        ASSERT_TRUE(std::filesystem::exists(joined));
        compare(of, how, read(whole), read(joined));
        if (testing::Test::HasFailure()) return;
    }
}

} // namespace

TEST(PartedSlopes, AreThoseOfTheWhole)
{
    const struct {
        const char *command, *array, *made;
    } all[] = {{"gradient", "value", "gradient(value)"},
               {"curl", "flow", "curl(flow)"},
               {"divergence", "flow", "divergence(flow)"}};
    int shift = 0;
    for (const auto &one : all)
        each_kind({one.command}, {"--array", one.array}, "", shift++,
                  [&](const sample &of, const way &how, vtkDataSet *whole, vtkDataSet *joined) {
                      if (keeps_order(of, how))
                          expect_same_mesh(whole, joined);
                      else
                          expect_near_at_nodes(whole, joined, one.made, 1e-6);
                  });
}

// On lattices by differences, of uniform ones with the distances of the whole.
TEST(PartedSlopes, OfTheLibraryAreThoseOfTheWhole)
{
    const sample &of = cut_up::sample_of("uniform");
    const struct {
        const char *command, *array;
    } all[] = {{"gradient", "value"}, {"gradient", "count"}, {"curl", "flow"}, {"divergence", "flow"}};
    for (const auto &one : all) {
        const std::string whole = scratch("library.vti"), joined = scratch("library_joined.vti");
        run_well({one.command, whole_file(of), "--array", one.array, "--library", "-o", whole});
        for (const char *count : {"1", "2", "3", "7", "11"}) {
            SCOPED_TRACE(std::string(one.command) + " in " + count);
            run_well({one.command, whole_file(of), "--array", one.array, "--library", "-o", joined,
                      "--pieces", count});
            expect_same_mesh(read(whole), read(joined));
        }
    }
    each_kind({"gradient"}, {"--array", "value", "--null", "1", "--library"}, "", 1,
              [&](const sample &kind, const way &how, vtkDataSet *whole, vtkDataSet *joined) {
                  if (keeps_order(kind, how))
                      expect_same_mesh(whole, joined);
                  else
                      expect_near_at_nodes(whole, joined, "gradient(value)", 1e-5);
              });
}

TEST(PartedMeans, AreThoseOfTheWhole)
{
    int shift = 3;
    for (const char *weight : {"none", "distance"})
        each_kind({"cell-to-node"}, {"--array", "amount", "--weight", weight}, "", shift++,
                  [&](const sample &of, const way &how, vtkDataSet *whole, vtkDataSet *joined) {
                      if (keeps_order(of, how))
                          expect_same_mesh(whole, joined);
                      else
                          expect_near_at_nodes(whole, joined, "amount", 1e-14);
                  });
}

TEST(PartedSkin, HasNoFacesBetweenPieces)
{
    int at = 0;
    for (const sample &of : cut_up::samples()) {
        const way &how = ways[static_cast<size_t>(++at) % std::size(ways)];
        SCOPED_TRACE(in_words(of, how));
        for (const bool edges : {false, true}) {
            const std::string whole = scratch("whole_skin.vtp"), joined = scratch("joined_skin.vtp");
            const words rest = edges ? words{"--edges", "40"} : words{};
            run_well(words{"boundary", whole_file(of)} + rest + words{"-o", whole});
            run_cut_up(of, how, {"boundary"}, rest + words{"-o", joined});
            expect_same_mesh(read(whole), read(joined));
            if (HasFailure()) return;
        }
    }
}

TEST(PartedSums, CountsEachCellOnce)
{
    int at = 1;
    for (const sample &of : cut_up::samples()) {
        const way &how = ways[static_cast<size_t>(++at) % std::size(ways)];
        SCOPED_TRACE(in_words(of, how));
        const std::string whole = scratch("whole.json"), joined = scratch("joined.json");
        run_well({"measure", whole_file(of), "--json", whole});
        run_cut_up(of, how, {"measure"}, {"--json", joined});
        // Numbers within rounding of sums, words as they stand.
        std::istringstream a(bytes_of(whole)), b(bytes_of(joined));
        std::string x, y;
        int numbers = 0;
        while (a >> x) {
            ASSERT_TRUE(b >> y);
            char *end_x, *end_y;
            const double p = std::strtod(x.c_str(), &end_x), q = std::strtod(y.c_str(), &end_y);
            if (end_x == x.c_str()) {
                EXPECT_EQ(x, y);
                continue;
            }
            ++numbers;
            EXPECT_NEAR(p, q, 1e-9 * std::max(1.0, std::abs(p))) << x << " " << y;
        }
        EXPECT_GT(numbers, 5);
        if (HasFailure()) return;
    }
}

TEST(PartedAnswers, GivesEachPointOneAnswer)
{
    int shift = 2;
    for (const char *by : {"", "--library"})
        each_kind({"probe"},
                  (*by != '\0' ? words{by} : words{}) +
                      words{"--line", "-1.4,-1.3,-1.2", "1.45,1.1,1.35", "400"},
                  ".vtp", shift++, [](const sample &, const way &, vtkDataSet *whole, vtkDataSet *joined) {
                      expect_same_mesh(whole, joined);
                      EXPECT_EQ(joined->GetNumberOfPoints(), 400);
                  });
}

TEST(PartedAnswers, OfPointsOnSeamsIsThatOfTheWhole)
{
    // All nodes: each is on the border of cells, and many on seams.
    for (const char *name : {"uniform", "rectilinear", "hex", "tet"})
        for (const char *by : {"", "--library"}) {
            const sample &of = cut_up::sample_of(name);
            const way how = {{4, cut_up::shares::runs, {}, false}, 2};
            SCOPED_TRACE(in_words(of, how) + by);
            const std::string whole = scratch("whole_at.vtp"), joined = scratch("joined_at.vtp");
            const words rest = (*by != '\0' ? words{by} : words{}) + words{"--points", whole_file(of)};
            run_well(words{"probe", whole_file(of)} + rest + words{"-o", whole});
            run_cut_up(of, how, {"probe"}, rest + words{"-o", joined});
            expect_same_mesh(read(whole), read(joined));
            if (HasFailure()) return;
        }
}

namespace {

void expect_same_lines(vtkDataSet *whole, vtkDataSet *joined)
{
    EXPECT_GT(whole->GetNumberOfCells(), 3);
    expect_same_mesh(whole, joined);
}

} // namespace

TEST(PartedLines, LinesGoOnFromPieceToPiece)
{
    int shift = 4;
    for (const char *by : {"", "--library"})
        each_kind(
            {"stream"},
            (*by != '\0' ? words{by} : words{}) + words{"--vectors", "flow", "--both", "--max-steps", "300",
                                                        "--seeds-line", "-1.1,-0.9,-0.8", "1.2,0.8,0.7",
                                                        "12"},
            ".vtp", shift++,
            [](const sample &of, const way &, vtkDataSet *whole, vtkDataSet *joined) {
                if (of.ending != ".pvtp") expect_same_lines(whole, joined);
            },
            *by != '\0'); // its places overlap, and the cell that is looked at first has a point
}

TEST(PartedLines, RandomSeedsAreThoseOfTheWhole)
{
    for (const char *name : {"uniform", "curvilinear", "hex"}) {
        const sample &of = cut_up::sample_of(name);
        const way how = {{4, cut_up::shares::runs, {2}, false}, 3};
        SCOPED_TRACE(in_words(of, how));
        const std::string whole = scratch("whole_lines.vtp"), joined = scratch("joined_lines.vtp");
        const words rest = {"--vectors", "flow", "--both", "--seeds-random", "15", "--max-length", "2"};
        run_well(words{"stream", whole_file(of)} + rest + words{"-o", whole});
        run_cut_up(of, how, {"stream"}, rest + words{"-o", joined});
        expect_same_lines(read(whole), read(joined));
    }
}

// Every kind of solid of second order, beside those that some of them are taken apart into.
std::string solids_of_second_order()
{
    std::string path = scratch("solids_2.vtu");
    vtkNew<vtkAppendFilter> all;
    double move = 0;
    for (const char *mesh : {"hex", "prism", "pyramid", "tet"})
        for (const char *order : {"2", "1"}) {
            run_well({"sample", "abc-flow", "--mesh", mesh, "--order", order, "--size", "4", "-o", path});
            const auto data = read(path);
            vtkPoints *points = vtkPointSet::SafeDownCast(data)->GetPoints();
            for (vtkIdType i = 0; i < points->GetNumberOfPoints(); ++i) {
                double x[3];
                points->GetPoint(i, x);
                x[0] += move;
                points->SetPoint(i, x);
            }
            move += 10;
            all->AddInputData(data);
        }
    all->Update();
    write(path, all->GetOutput());
    return path;
}

// A lattice of layers as thick as told; the flow goes up and turns.
std::string layers(const std::vector<double> &thickness)
{
    vtkNew<vtkRectilinearGrid> grid;
    vtkNew<vtkDoubleArray> along, up;
    for (int i = 0; i < 5; ++i)
        along->InsertNextValue(i);
    double height = 0;
    up->InsertNextValue(height);
    for (const double one : thickness)
        up->InsertNextValue(height += one);
    grid->SetDimensions(5, 5, static_cast<int>(up->GetNumberOfValues()));
    grid->SetXCoordinates(along);
    grid->SetYCoordinates(along);
    grid->SetZCoordinates(up);
    vtkNew<vtkFloatArray> flow;
    flow->SetName("v");
    flow->SetNumberOfComponents(3);
    for (vtkIdType i = 0; i < grid->GetNumberOfPoints(); ++i) {
        double x[3];
        grid->GetPoint(i, x);
        flow->InsertNextTuple3(0.3 * (2 - x[1]), 0.3 * (x[0] - 2), 1 + 0.2 * std::sin(3 * x[2]));
    }
    grid->GetPointData()->AddArray(flow);
    std::string path = scratch("layers.vtr");
    write(path, grid);
    return path;
}

void expect_same_lines(const std::string &path, const words &rest, int count)
{
    SCOPED_TRACE(std::to_string(count) + " pieces");
    const std::string whole = scratch("whole_lines.vtp"), parted = scratch("parted_lines.vtp");
    run_well(words{"stream", path} + rest + words{"-o", whole});
    run_well(words{"stream", path, "--pieces", std::to_string(count)} + rest + words{"-o", parted});
    expect_same_lines(read(whole), read(parted));
}

TEST(PartedLines, KnowCellsThatAreTakenApart)
{
    const std::string path = solids_of_second_order();
    for (const char *seeds : {"5", "20"})
        for (const int count : {2, 3, 7})
            expect_same_lines(
                path, {"--vectors", "velocity", "--seeds-random", seeds, "--both", "--max-steps", "100"},
                count);
}

TEST(PartedLines, StepOverThinLayers)
{
    const std::string path = layers({1, 0.05, 1, 0.03, 0.8, 0.05, 1, 0.02, 1});
    for (const int count : {2, 3, 4, 9})
        expect_same_lines(path, {"--vectors", "v", "--seeds-random", "20", "--both", "--max-steps", "200"},
                          count);
}

// A step goes over more layers than a piece knows of, and is told what lies there.
TEST(PartedLines, StepOverManyLayers)
{
    const std::string path = layers({1, 0.01, 0.01, 0.01, 0.01, 0.01, 0.01, 1});
    const words rest = {"--vectors", "v", "--seeds-random", "20", "--both"};
    for (const int count : {1, 2, 3, 8})
        for (const words &more : {words{}, words{"--max-length", "0.9"}, words{"--max-steps", "4"}})
            expect_same_lines(path, rest + more + words{"--ribbon", "0.1"}, count);
    if (!has_mpirun()) return;
    const std::string whole = scratch("whole_lines.vtp"), parted = scratch("parted_lines.vtp");
    run_well(words{"stream", path} + rest + words{"-o", whole});
    for (const int processes : {2, 5}) {
        run_well_on(processes, words{"stream", path} + rest + words{"-o", parted});
        expect_same_lines(read(whole), read(parted));
    }
}

// Two blocks share no nodes, so that neither piece has a layer around it; steps go from one to the other all the same.
TEST(PartedLines, StepBetweenPartsWithoutCommonNodes)
{
    const std::string path = scratch("blocks.vtu");
    vtkNew<vtkAppendFilter> both;
    for (const char *size : {"5", "6"}) {
        run_well({"sample", "abc-flow", "--mesh", "hex", "--size", size, "-o", path});
        const auto block = read(path);
        vtkPoints *points = vtkPointSet::SafeDownCast(block)->GetPoints();
        const double to = *size == '5' ? 0 : points->GetBounds()[1];
        for (vtkIdType i = 0; i < points->GetNumberOfPoints(); ++i) {
            double x[3];
            points->GetPoint(i, x);
            x[0] += to;
            points->SetPoint(i, x);
        }
        both->AddInputData(block);
    }
    both->Update();
    write(path, both->GetOutput());
    const words rest = {"--vectors", "velocity", "--both", "--seeds-plane", "5.5,1,1", "7.1,1,1",
                        "5.5,5,5",   "5",        "5"};
    for (const int count : {2, 3})
        expect_same_lines(path, rest, count);
}

// Places that lie beside a piece's last layer by less than the cells reach beyond their faces, and steps over many layers.
TEST(PartedLines, OfAnOfficeAreThoseOfTheWhole)
{
    const std::string path = real_data("office.binary.vtk");
    if (path.empty()) GTEST_SKIP() << "the data set is not here";
    for (const int count : {5, 19})
        expect_same_lines(
            path, {"--vectors", "vectors", "--both", "--seeds-random", "100", "--max-steps", "40"}, count);
}

// The ways that ribbons are made in: every count of pieces, and of processes.
TEST(PartedLines, RibbonsAreThoseOfTheWhole)
{
    std::vector<way> all;
    for (const int count : {1, 2, 3, 5}) {
        all.push_back({{4, cut_up::shares::runs, {}, false}, 0, count});
        all.push_back({{5, cut_up::shares::by_place, {2}, count == 3}, count});
    }
    const std::string table = scratch("ribbon_seeds.csv");
    write_bytes(table, "x,y,z\n0.5,0.3,-0.2\n-0.7,0.6,0.1\n0,0,0\n0.9,-0.4,0.8\n-0.3,-0.8,0.2\n7,7,7\n");
    const words line = {"--seeds-line", "-1.1,-0.9,-0.8", "1.2,0.8,0.7", "6"},
                plane = {"--seeds-plane", "-0.9,-0.9,-0.31", "0.8,-0.9,0.2", "-0.9,0.9,0.3", "3", "2"};
    const words seeds[] = {
        line + words{"--both"}, plane, words{"--seeds", table, "--both", "--max-length", "1.5"},
        plane + words{"--both", "--order", "2", "--min-speed", "0.2"}, line + words{"--max-steps", "40"}};
    const std::string whole = scratch("whole_ribbons.vtp"), joined = scratch("joined_ribbons.vtp");
    size_t at = 0;
    for (const sample &of : cut_up::samples()) {
        if (of.ending == ".pvtp") continue; // the library's places, whose cells overlap
        for (size_t half = 0; half < all.size(); half += 2) {
            const way &how = all[half + at / 4 % 2];
            SCOPED_TRACE(in_words(of, how));
            const words rest = seeds[at % std::size(seeds)] + words{"--vectors", "flow", "--ribbon", "0.05"};
            ++at;
            std::filesystem::remove(joined);
            run_well(words{"stream", whole_file(of)} + rest + words{"-o", whole});
            run_cut_up(of, how, {"stream"}, rest + words{"-o", joined});
            ASSERT_TRUE(std::filesystem::exists(joined));
            const auto expected = read_surface(whole);
            EXPECT_GT(expected->GetNumberOfStrips(), 2);
            expect_same_mesh(expected, read(joined));
            if (HasFailure()) return;
        }
    }
}

// Where a cell has a node without a value its field has no derivatives, and a line that comes there is no ribbon.
TEST(PartedLines, WithoutDerivativesThereIsNoRibbon)
{
    const std::string whole = scratch("whole_ribbons.vtp"), joined = scratch("joined_ribbons.vtp");
    for (const char *name : {"uniform", "hex", "tet"}) {
        const sample &of = cut_up::sample_of(name);
        sample holed = {std::string("holed_") + name, of.ending, nullptr};
        holed.whole = vtkSmartPointer<vtkDataSet>::Take(of.whole->NewInstance());
        holed.whole->DeepCopy(of.whole);
        vtkDataArray *flow = holed.whole->GetPointData()->GetArray("flow");
        for (vtkIdType node = 0; node < flow->GetNumberOfTuples(); node += 17)
            flow->SetComponent(node, 0, 77);
        const words rest = {"--vectors", "flow",    "--null",          "77",          "--ribbon", "0.05",
                            "--both",    "--seeds", whole_file(holed), "--max-steps", "30"};
        const ran one = run_well(words{"stream", whole_file(holed)} + rest + words{"-o", whole});
        const auto expected = read_surface(whole);
        EXPECT_GT(expected->GetNumberOfStrips(), 3);
        EXPECT_GT(expected->GetNumberOfLines(), 3);
        EXPECT_NE(one.err.find(std::to_string(expected->GetNumberOfLines()) + " lines have no ribbon"),
                  std::string::npos)
            << one.err;
        for (const way &how : {way{{3, cut_up::shares::runs, {}, false}, 0, 3},
                               way{{4, cut_up::shares::runs, {}, false}, 2}}) {
            SCOPED_TRACE(in_words(holed, how));
            run_cut_up(holed, how, {"stream"}, rest + words{"-o", joined});
            expect_same_mesh(expected, read(joined));
        }
    }
}

TEST(PartedLines, RibbonsOnFlatMeshesLieFlat)
{
    const std::string path = scratch("flat_flow.vti"), whole = scratch("whole_ribbons.vtp"),
                      joined = scratch("joined_ribbons.vtp");
    run_well({"sample", "abc-flow", "--size", "21", "17", "1", "-o", path});
    const words rest = {"--vectors", "velocity", "--ribbon", "0.1", "--both", "--seeds-random", "12"};
    run_well(words{"stream", path} + rest + words{"-o", whole});
    EXPECT_GT(read_surface(whole)->GetNumberOfStrips(), 3);
    for (const char *count : {"2", "5"}) {
        run_well(words{"stream", path, "--pieces", count} + rest + words{"-o", joined});
        expect_same_mesh(read(whole), read(joined));
    }
}

TEST(PartedArrows, NodesOnSeamsHaveOne)
{
    each_kind({"glyph"}, {"--vectors", "flow", "--shape", "cone"}, ".vtp", 5,
              [](const sample &, const way &, vtkDataSet *whole, vtkDataSet *joined) {
                  expect_same_mesh(whole, joined);
              });
    for (const char *name : {"uniform", "curvilinear"}) {
        const sample &of = cut_up::sample_of(name);
        const way how = {{5, cut_up::shares::runs, {}, false}, 3};
        SCOPED_TRACE(in_words(of, how));
        const std::string whole = scratch("whole_glyphs.vtp"), joined = scratch("joined_glyphs.vtp");
        const words rest = {"--vectors", "flow", "--every", "7", "--scale-array", "exact"};
        run_well(words{"glyph", whole_file(of)} + rest + words{"-o", whole});
        run_cut_up(of, how, {"glyph"}, rest + words{"-o", joined});
        expect_same_mesh(read(whole), read(joined));
    }
}
