// Numbers that pieces tell, and nodes that their results have, are those of one process: what lies on a seam counts once.
#include "pieces_support.hpp"

#include <gtest/gtest.h>

#include <vtkAppendFilter.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkIdList.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPointSet.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkUnstructuredGrid.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>

namespace {

using cut_up::sample;
using cut_up::words;

// With an array of whole numbers, whose levels nodes have exactly, and one with holes.
vtkSmartPointer<vtkDataSet> with_steps(vtkDataSet *data)
{
    auto made = vtkSmartPointer<vtkDataSet>::Take(data->NewInstance());
    made->DeepCopy(data);
    add_node_array(made, "steps", [](const double *x) { return std::floor(2 * x[2] + x[0]); });
    add_node_array(made, "holes", [](const double *x) {
        return x[0] + x[1] > 0.4 ? std::numeric_limits<double>::quiet_NaN() : x[2];
    });
    return made;
}

struct two_files {
    std::string name, whole, list;
};

// Whole, and in files of pieces whose cells are in the order of the whole's.
std::vector<two_files> files()
{
    static const std::vector<two_files> all = [] {
        std::vector<two_files> made;
        for (const char *name : {"uniform", "hex", "mixed", "surface"}) {
            const sample &of = cut_up::sample_of(name);
            const auto data = with_steps(of.whole);
            two_files one = {name, scratch("counted" + cut_up::whole_ending(of)), ""};
            one.whole = scratch(std::string("counted_") + name + cut_up::whole_ending(of));
            write(one.whole, data);
            const bool lattice = of.ending == ".pvti";
            one.list = cut_up::write_pieces(
                scratch(std::string("counted_list_") + name + of.ending), data,
                {4, lattice ? cut_up::shares::by_place : cut_up::shares::runs, {}, true});
            made.push_back(one);
        }
        return made;
    }();
    return all;
}

// The lines on standard output and the notes, without the name of the file and what comes of names.
std::string told_by(const words &line, int processes = 0)
{
    const ran told = processes > 0 ? run_well_on(processes, line) : run_well(line);
    std::string text;
    for (const std::string &all : {told.out, told.err})
        for (size_t at = 0, end; at < all.size(); at = end + 1) {
            end = std::min(all.find('\n', at), all.size());
            const std::string row = all.substr(at, end - at);
            if (row.find("counted") == std::string::npos && row.find("kind") == std::string::npos)
                text += row + "\n";
        }
    return text;
}

} // namespace

TEST(PieceCounts, OfFilesAreTheWholes)
{
    for (const two_files &of : files()) {
        SCOPED_TRACE(of.name);
        const std::string expected = told_by({"info", of.whole});
        EXPECT_NE(expected.find("without a value"), std::string::npos) << expected;
        EXPECT_EQ(told_by({"info", of.whole, "--pieces", "3"}), expected);
        EXPECT_EQ(told_by({"info", of.list, "--pieces", "3"}), expected);
        EXPECT_EQ(told_by({"info", of.list, "--pieces", "7"}), expected);
        EXPECT_EQ(told_by({"info", of.list}), expected);
        if (has_mpirun()) {
            EXPECT_EQ(told_by({"info", of.list}, 3), expected);
            EXPECT_EQ(told_by({"info", of.whole}, 2), expected);
        }
    }
}

TEST(PieceCounts, OfResultsAreTheWholes)
{
    for (const two_files &of : files()) {
        SCOPED_TRACE(of.name);
        const std::string end = std::filesystem::path(of.whole).extension();
        const words commands[] = {
            {"clamp", "--array", "value", "--min", "0", "-o", scratch("limited" + end)},
            {"gradient", "--array", "holes", "-o", scratch("slopes" + end)},
            {"threshold", "--array", "value", "--min", "0", "--any", "-o", scratch("high.vtu")},
            {"threshold-null", "--array", "holes", "-o", scratch("full.vtu")},
            {"cell-to-node", "--array", "amount", "--null", "1", "-o", scratch("means" + end)},
        };
        for (const words &one : commands) {
            const words rest(one.begin() + 1, one.end());
            const std::string expected = told_by(words{one[0], of.whole} + rest);
            EXPECT_EQ(told_by(words{one[0], of.whole} + rest + words{"--pieces", "3"}), expected);
            EXPECT_EQ(told_by(words{one[0], of.list} + rest + words{"--pieces", "5"}), expected);
        }
    }
}

// Every Nth node of the whole, each once.
TEST(PieceCounts, GlyphsAreAtEveryNthNodeOfTheWhole)
{
    for (const two_files &of : files()) {
        SCOPED_TRACE(of.name);
        const std::string expected = scratch("arrows.vtp"), made = scratch("arrows_made.vtp");
        for (const char *every : {"1", "5"}) {
            const words rest = {"--vectors", "flow", "--fixed", "0.1", "--every", every, "-o"};
            run_well(words{"glyph", of.whole} + rest + words{expected});
            run_well(words{"glyph", of.whole} + rest + words{made, "--pieces", "4"});
            expect_same_mesh(read(expected), read(made));
            if (has_mpirun()) {
                run_well_on(3, words{"glyph", of.whole} + rest + words{made});
                expect_same_mesh(read(expected), read(made));
            }
            // a list has its own order of nodes, that of a plain start
            run_well(words{"glyph", of.list} + rest + words{expected});
            run_well(words{"glyph", of.list} + rest + words{made, "--pieces", "6"});
            expect_same_mesh(read(expected), read(made));
        }
    }
}

// Values at nodes that are means of cells take the cells of other pieces in.
TEST(PieceCounts, MeansOfCellsAreThoseOfTheWhole)
{
    for (const two_files &of : files()) {
        const std::string end = std::filesystem::path(of.whole).extension();
        const words commands[] = {
            {"iso", "--array", "amount", "--level", "1.05", "-o", ".vtp"},
            {"isoline", "--array", "amount", "--level", "1.05", "-o", ".vtp"},
            {"cut", "--array", "amount", "--level", "1.05", "-o", ".vtu"},
            {"threshold", "--array", "amount", "--min", "1.05", "-o", ".vtu"},
            {"clamp", "--array", "amount", "--max", "1.05", "-o", end},
            {"gradient", "--array", "amount", "-o", end},
        };
        for (const words &one : commands) {
            if (one[0] == (of.name == "surface" ? "iso" : "isoline")) continue; // of the other dimension
            SCOPED_TRACE(of.name + " " + one[0]);
            words rest(one.begin() + 1, one.end());
            const std::string expected = scratch("means" + rest.back()),
                              made = scratch("means_made" + rest.back());
            rest.pop_back();
            rest.insert(rest.begin(), "--cell-to-node");
            run_well(words{one[0], of.whole} + rest + words{expected});
            for (const std::string &file : {of.whole, of.list}) {
                run_well(words{one[0], file} + rest + words{made, "--pieces", "4"});
                EXPECT_EQ(read(made)->GetNumberOfPoints(), read(expected)->GetNumberOfPoints());
                EXPECT_EQ(read(made)->GetNumberOfCells(), read(expected)->GetNumberOfCells());
                if (file == of.whole && one[0] != "gradient") expect_same_mesh(read(expected), read(made));
            }
            if (has_mpirun() && (one[0] == "cut" || one[0] == "gradient")) {
                run_well_on(3, words{one[0], of.whole} + rest + words{made});
                EXPECT_EQ(read(made)->GetNumberOfPoints(), read(expected)->GetNumberOfPoints());
                EXPECT_EQ(read(made)->GetNumberOfCells(), read(expected)->GetNumberOfCells());
            }
        }
    }
}

// A level that nodes have exactly: nodes of several edges at one place are as many as on one process, and values there
// the same but for the last digit.
TEST(PieceCounts, LevelsAtNodesLeaveTheNodesOfTheWhole)
{
    for (const two_files &of : files()) {
        const char *surface = of.name == "surface" ? "isoline" : "iso";
        const words commands[] = {
            {surface, "--array", "steps", "--level", "0", "-o", scratch("at_nodes.vtp")},
            {surface, "--array", "steps", "--level", "0", "--raw", "-o", scratch("at_nodes_raw.vtp")},
            {"cut", "--array", "steps", "--level", "1", "-o", scratch("at_nodes.vtu")},
            {"band", "--array", "steps", "--levels", "-1,0,1", "-o", scratch("at_nodes_band.vtu")},
        };
        for (const words &one : commands) {
            SCOPED_TRACE(of.name + " " + one[0] + (one[5] == "--raw" ? " --raw" : ""));
            const words rest(one.begin() + 1, one.end());
            run_well(words{one[0], of.whole} + rest);
            const auto expected = read(one.back());
            EXPECT_GT(expected->GetNumberOfCells(), 0);
            for (const words &more : {words{of.whole, "--pieces", "3"}, words{of.whole, "--pieces", "7"},
                                      words{of.list, "--pieces", "4"}}) {
                run_well(words{one[0]} + more + rest);
                const auto made = read(one.back());
                EXPECT_EQ(made->GetNumberOfPoints(), expected->GetNumberOfPoints()) << more.back();
                EXPECT_EQ(made->GetNumberOfCells(), expected->GetNumberOfCells()) << more.back();
                EXPECT_EQ(made->GetPointData()->GetNumberOfArrays(),
                          expected->GetPointData()->GetNumberOfArrays());
            }
        }
    }
}

// The same form for all pieces, whether or not nodes of theirs have no value.
TEST(PieceCounts, SlopesBesideHolesAreThoseOfTheWhole)
{
    for (const two_files &of : files()) {
        SCOPED_TRACE(of.name);
        const std::string end = std::filesystem::path(of.whole).extension();
        const std::string expected = scratch("holes" + end), made = scratch("holes_made" + end);
        run_well({"gradient", of.whole, "--array", "holes", "-o", expected});
        for (const char *count : {"2", "7"}) {
            run_well({"gradient", of.whole, "--array", "holes", "-o", made, "--pieces", count});
            const auto a = read(expected), b = read(made);
            ASSERT_EQ(a->GetNumberOfPoints(), b->GetNumberOfPoints());
            std::vector<std::string> nodes[2];
            for (const auto &data : {a, b})
                nodes[data == b ? 1 : 0] = nodes_by_place(data);
            EXPECT_TRUE(nodes[0] == nodes[1]) << "in " << count;
        }
    }
}

// Two blocks that touch, each with nodes of its own: they stay apart however the file is taken to pieces.
TEST(PieceCounts, NodesThatTheFileKeepsApartStayApart)
{
    const auto block = with_steps(cut_up::sample_of("hex").whole);
    vtkNew<vtkAppendFilter> both;
    both->AddInputData(block);
    const auto other = with_steps(block);
    double box[6];
    block->GetBounds(box);
    vtkPoints *points = vtkPointSet::SafeDownCast(other)->GetPoints();
    for (vtkIdType node = 0; node < points->GetNumberOfPoints(); ++node) {
        double at[3];
        points->GetPoint(node, at);
        at[2] += box[5] - box[4];
        points->SetPoint(node, at);
    }
    both->AddInputData(other);
    both->Update();
    const std::string file = scratch("slit.vtu");
    write(file, both->GetOutput());
    const words commands[] = {
        {"boundary", "-o", scratch("slit_skin.vtp")},
        {"clamp", "--array", "value", "--min", "0", "-o", scratch("slit_limited.vtu")},
        {"gradient", "--array", "value", "-o", scratch("slit_slopes.vtu")},
        {"iso", "--array", "value", "--level", "0.4", "-o", scratch("slit_surface.vtp")},
        {"cut", "--array", "value", "--level", "0.4", "-o", scratch("slit_cut.vtu")},
    };
    for (const words &one : commands) {
        SCOPED_TRACE(one[0]);
        const words rest(one.begin() + 1, one.end());
        run_well(words{one[0], file} + rest);
        const auto expected = read(one.back());
        for (const char *count : {"2", "3", "8"}) {
            run_well(words{one[0], file, "--pieces", count} + rest);
            expect_same_mesh(expected, read(one.back()));
        }
        if (!has_mpirun()) continue;
        run_well_on(2, words{one[0], file, "--gather"} + rest);
        expect_same_mesh(expected, read(one.back()));
    }
}

// Pieces that come to an edge from its two ends find the same node but for the last digit.
TEST(PieceCounts, NodesOnEdgesBetweenPiecesAreOne)
{
    const sample &of = cut_up::sample_of("hex");
    for (const cut_up::shares share : {cut_up::shares::by_place, cut_up::shares::in_turn}) {
        const std::string list = cut_up::write_pieces(scratch("edges.pvtu"), of.whole, {5, share, {}, false});
        for (const words &one : {words{"iso", "--array", "value", "--level", "0.2,0.4"},
                                 words{"cut", "--array", "value", "--level", "0.4"}}) {
            const std::string out = scratch(one[0] == "iso" ? "edges.vtp" : "edges_cut.vtu");
            const words rest = words(one.begin() + 1, one.end()) + words{"-o", out};
            run_well(words{one[0], list} + rest);
            const auto expected = read(out);
            run_well(words{one[0], list, "--pieces", "5"} + rest);
            EXPECT_EQ(read(out)->GetNumberOfPoints(), expected->GetNumberOfPoints());
            EXPECT_EQ(read(out)->GetNumberOfCells(), expected->GetNumberOfCells());
        }
    }
}

// More pieces than there is to share cost nothing.
// Where a process has several files of a list, the cells of all of them count.
TEST(PieceCounts, OfCellsThatStreamTurnsAreTheWholes)
{
    if (!has_mpirun()) GTEST_SKIP() << "mpirun is not there";
    const sample &hexes = cut_up::sample_of("hex");
    vtkNew<vtkUnstructuredGrid> turned;
    turned->SetPoints(vtkPointSet::SafeDownCast(hexes.whole)->GetPoints());
    turned->GetPointData()->ShallowCopy(hexes.whole->GetPointData());
    vtkNew<vtkIdList> nodes;
    for (vtkIdType c = 0; c < hexes.whole->GetNumberOfCells(); ++c) {
        hexes.whole->GetCellPoints(c, nodes);
        std::rotate(nodes->begin(), nodes->begin() + 4, nodes->end());
        turned->InsertNextCell(VTK_HEXAHEDRON, nodes);
    }
    const std::string list =
        cut_up::write_pieces(scratch("turned.pvtu"), turned, {5, cut_up::shares::runs, {}, false});
    const words line = {"stream", list,          "--vectors", "flow", "--seeds-random",
                        "4",      "--max-steps", "50",        "-o",   scratch("turned.vtp")};
    const std::string note = ": " + std::to_string(turned->GetNumberOfCells()) + " cell(s)";
    EXPECT_NE(run_well(line).err.find(note), std::string::npos);
    for (const int processes : {2, 3}) {
        const ran told = run_well_on(processes, line);
        EXPECT_NE(told.err.find(note), std::string::npos) << shown(told);
    }
}

TEST(PieceCounts, AreNoMoreThanLayers)
{
    const two_files of = files().front();
    const std::string list = scratch("layers.pvtp");
    const ran told =
        run_well({"iso", of.whole, "--array", "value", "--level", "0.4", "-o", list, "--pieces", "1000000"});
    EXPECT_NE(told.out.find("in 11 pieces"), std::string::npos) << told.out;
}

TEST(PieceCounts, NameWhatIsMissingInAPlainStart)
{
    for (const two_files &of : files()) {
        const std::string piece = cut_up::piece_path(of.list, 1), bytes = bytes_of(piece);
        std::filesystem::remove(piece);
        ran told = run({"measure", of.list});
        EXPECT_EQ(told.code, 1);
        EXPECT_NE(told.err.find(piece + ": cannot be opened"), std::string::npos) << told.err;
        write_bytes(piece, bytes_of(cut_up::piece_path(of.list, 2)));
        told = run({"measure", of.list});
        EXPECT_EQ(told.err.find("(0x"), std::string::npos) << told.err;
        write_bytes(piece, bytes);
    }
}

// Processes of one machine share its processors, each those that it may run on.
TEST(PieceCounts, ThreadsAreShared)
{
    if (!has_mpirun()) GTEST_SKIP() << "mpirun is not there";
    const two_files of = files().front();
    const auto threads_on = [&](int processes, const words &more, const words &set) {
        surroundings around;
        around.processes = processes;
        around.set = set;
        const ran told = run(words{"info", of.whole, "--time"} + more, around);
        EXPECT_EQ(told.code, 0) << shown(told);
        std::vector<int> threads;
        for (size_t at = told.out.find(", threads "); at != std::string::npos;
             at = told.out.find(", threads ", at + 1))
            threads.push_back(atoi(told.out.c_str() + at + 10));
        return threads;
    };
    EXPECT_EQ(threads_on(3, {"--threads", "5"}, {"QX_NUM_THREADS=7"}), (std::vector<int>{5, 5, 5}));
    EXPECT_EQ(threads_on(2, {}, {"QX_NUM_THREADS=7"}), (std::vector<int>{7, 7}));
    const std::vector<int> alone = threads_on(0, {}, {}), many = threads_on(5, {}, {});
    ASSERT_EQ(alone.size(), 1u);
    ASSERT_EQ(many.size(), 5u);
    for (const int threads : many)
        EXPECT_LE(threads, std::max(1, alone[0] / 5 + 1));
}

// With mpirun -q a failure is one line, and its exit code the command's.
TEST(PieceCounts, OneLineTellsAFailure)
{
    if (!has_mpirun()) GTEST_SKIP() << "mpirun is not there";
    const std::string told = scratch("quiet.txt"), command = command_path();
    const std::string line =
        "OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 mpirun -q --oversubscribe -n 3 " +
        command.substr(1, command.size() - 2) + " info nowhere.vti > " + told + " 2>&1";
    const int code = system(line.c_str());
    EXPECT_EQ(WEXITSTATUS(code), 1);
    EXPECT_EQ(bytes_of(told), "skoklana: nowhere.vti: cannot be opened: No such file or directory\n");
}
