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
        compare(of, read(whole), read(joined));
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
                  [&](const sample &of, vtkDataSet *whole, vtkDataSet *joined) {
                      if (cut_up::is_lattice(of))
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
              [&](const sample &kind, vtkDataSet *whole, vtkDataSet *joined) {
                  if (is_lattice(kind))
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
                  [&](const sample &, vtkDataSet *whole, vtkDataSet *joined) {
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
                  ".vtp", shift++, [](const sample &, vtkDataSet *whole, vtkDataSet *joined) {
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

// Lines by seed: their nodes, and why they ended.
struct one_line {
    std::vector<std::array<double, 3>> nodes;
    int ended, began;
};

std::map<int, one_line> lines_by_seed(vtkDataSet *data)
{
    std::map<int, one_line> lines;
    for (vtkIdType c = 0; c < data->GetNumberOfCells(); ++c) {
        one_line &line = lines[static_cast<int>(cell_array(data, "seed")->GetComponent(c, 0))];
        line.ended = static_cast<int>(cell_array(data, "ended")->GetComponent(c, 0));
        line.began = static_cast<int>(cell_array(data, "began")->GetComponent(c, 0));
        vtkCell *cell = data->GetCell(c);
        for (vtkIdType i = 0; i < cell->GetNumberOfPoints(); ++i) {
            line.nodes.emplace_back();
            cell->GetPoints()->GetPoint(i, line.nodes.back().data());
        }
    }
    return lines;
}

void expect_same_lines(vtkDataSet *whole, vtkDataSet *joined)
{
    const auto a = lines_by_seed(whole), b = lines_by_seed(joined);
    ASSERT_EQ(a.size(), b.size());
    EXPECT_GT(a.size(), 3u);
    for (const auto &[seed, line] : a) {
        ASSERT_EQ(b.count(seed), 1u) << "seed " << seed;
        const one_line &other = b.at(seed);
        EXPECT_EQ(other.ended, line.ended) << "seed " << seed;
        EXPECT_EQ(other.began, line.began) << "seed " << seed;
        ASSERT_EQ(other.nodes.size(), line.nodes.size()) << "seed " << seed;
        for (size_t i = 0; i < line.nodes.size(); ++i)
            for (size_t d = 0; d < 3; ++d)
                ASSERT_NEAR(other.nodes[i][d], line.nodes[i][d], 2e-5) << "seed " << seed << " node " << i;
    }
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
            [](const sample &of, vtkDataSet *whole, vtkDataSet *joined) {
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

void expect_same_lines(const std::string &path, const words &rest, int count, bool with_note)
{
    const std::string whole = scratch("whole_lines.vtp"), parted = scratch("parted_lines.vtp");
    run_well(words{"stream", path} + rest + words{"-o", whole});
    const ran told =
        run_well(words{"stream", path, "--pieces", std::to_string(count)} + rest + words{"-o", parted});
    EXPECT_EQ(told.err.find(" took shorter steps than on one process") != std::string::npos, with_note)
        << count << told.err;
    if (!with_note) expect_same_lines(read(whole), read(parted));
}

TEST(PartedLines, KnowCellsThatAreTakenApart)
{
    const std::string path = solids_of_second_order();
    for (const char *seeds : {"5", "20"})
        for (const int count : {2, 3, 7})
            expect_same_lines(
                path, {"--vectors", "velocity", "--seeds-random", seeds, "--both", "--max-steps", "100"},
                count, false);
}

TEST(PartedLines, StepOverThinLayers)
{
    const std::string path = layers({1, 0.05, 1, 0.03, 0.8, 0.05, 1, 0.02, 1});
    for (const int count : {2, 3, 4, 9})
        expect_same_lines(path, {"--vectors", "v", "--seeds-random", "20", "--both", "--max-steps", "200"},
                          count, false);
}

// A step goes over more layers than a piece knows of.
TEST(PartedLines, TellWhereAStepIsCutShort)
{
    const std::string path = layers({1, 0.01, 0.01, 0.01, 0.01, 0.01, 0.01, 1});
    expect_same_lines(path, {"--vectors", "v", "--seeds-random", "20", "--both"}, 8, true);
    expect_same_lines(path, {"--vectors", "v", "--seeds-random", "20", "--both"}, 1, false);
}

TEST(PartedLines, RibbonsAreForOneProcess)
{
    const sample &of = cut_up::sample_of("uniform");
    const ran result = run({"stream", whole_file(of), "--pieces", "2", "--vectors", "flow", "--ribbon", "0.1",
                            "--seeds-random", "3", "-o", scratch("ribbons.vtp")});
    EXPECT_EQ(result.code, 2);
    EXPECT_NE(result.err.find("--ribbon"), std::string::npos);
}

TEST(PartedArrows, NodesOnSeamsHaveOne)
{
    each_kind({"glyph"}, {"--vectors", "flow", "--shape", "cone"}, ".vtp", 5,
              [](const sample &, vtkDataSet *whole, vtkDataSet *joined) { expect_same_mesh(whole, joined); });
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
