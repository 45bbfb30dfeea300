// Work in pieces that cannot go on: all processes end, the user is told once, and no half files are left.
#include "pieces_support.hpp"

#include <gtest/gtest.h>

#include <vtkDataSet.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace {

using cut_up::words;

int count_of(const std::string &text, const std::string &what)
{
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

// Keep three processes busy for seconds.
const std::string &large_lattice()
{
    static const std::string path = [] {
        std::string made = scratch("busy.vti");
        run_well({"sample", "hydrogen", "--size", "200", "-o", made});
        return made;
    }();
    return path;
}

const std::string &large_mesh()
{
    static const std::string path = [] {
        const std::string plain = scratch("plain.vts");
        std::string made = scratch("busy.vts");
        run_well({"sample", "hydrogen", "--mesh", "curvilinear", "--size", "80", "-o", plain});
        run_well({"gradient", plain, "--array", "psi", "-o", made});
        return made;
    }();
    return path;
}

struct long_work {
    const char *what;
    const std::string &(*file)();
    words arguments; // behind the file
    const char *result, *first_piece;
};

const long_work works[] = {
    {"gradient", large_lattice, {"--array", "psi", "--pieces", "90"}, "ended.pvti", "ended_0.vti"},
    {"probe", large_mesh, {"--line", "-20,-19,-18", "19,18,20", "4000000"}, "ended.vtp", ""},
    {"stream",
     large_mesh,
     {"--vectors", "gradient(psi)", "--both", "--seeds-random", "30000", "--max-steps", "3000"},
     "ended.vtp",
     ""},
};

words line_of(const long_work &one)
{
    return words{one.what, one.file()} + one.arguments + words{"-o", scratch(one.result)};
}

void expect_nothing_left(const long_work &one)
{
    EXPECT_FALSE(fs::exists(scratch(one.result)));
    EXPECT_TRUE(*one.first_piece == '\0' || !fs::exists(scratch(one.first_piece)));
    EXPECT_FALSE(leaves_parts());
}

#define NEED_MPIRUN \
    if (!has_mpirun()) GTEST_SKIP() << "mpirun is not there"

} // namespace

// ---- ends that come from outside ----------------------------------------------------------------------------------------

TEST(PieceStops, KilledProcessesTakeTheOthersAlong)
{
    NEED_MPIRUN;
    int victim = 0;
    for (const long_work &one : works) {
        surroundings around;
        around.processes = 3;
        around.victim = victim++ % 3;
        SCOPED_TRACE(std::string(one.what) + " without process " + std::to_string(around.victim));
        const ran told = run(line_of(one), around);
        EXPECT_EQ(told.code, 128 + 9) << shown(told); // mpirun's
        expect_nothing_left(one);
    }
}

TEST(PieceStops, InterruptedProcessesTakeTheOthersAlong)
{
    NEED_MPIRUN;
    int victim = 1;
    for (const long_work &one : works) {
        surroundings around;
        around.processes = 3;
        around.victim = victim++ % 3;
        around.signal_of_victim = 2;
        SCOPED_TRACE(std::string(one.what) + " with process " + std::to_string(around.victim) +
                     " interrupted");
        const ran told = run(line_of(one), around);
        EXPECT_EQ(told.code, 130) << shown(told);
        EXPECT_EQ(count_of(told.err, "skoklana: "), 1) << shown(told);
        EXPECT_EQ(count_of(told.err, "skoklana: stopped\n"), 1) << shown(told);
        expect_nothing_left(one);
    }
}

// Ctrl-C in a terminal comes to mpirun alone, which stops the processes and may be gone before it has passed on what they
// say.
TEST(PieceStops, InterruptingMpirunEndsAll)
{
    NEED_MPIRUN;
    for (const int n : {1, 2, 3}) {
        SCOPED_TRACE(std::to_string(n) + " processes");
        surroundings around;
        around.processes = n;
        around.when = leaves_parts;
        const ran told = run(line_of(works[0]), around);
        EXPECT_NE(told.code, 0) << shown(told);
        const auto stops = count_of(told.err, "skoklana: stopped\n");
        EXPECT_LE(stops, 1) << shown(told);
        EXPECT_EQ(count_of(told.err, "skoklana: "), stops) << shown(told);
        expect_nothing_left(works[0]);
    }
}

// ---- pieces that are not there ------------------------------------------------------------------------------------------

namespace {

// Runs what needs all pieces while one of them is away, or is not what it was.
void expect_named(const words &line, const std::string &piece)
{
    const std::string name = fs::path(piece).filename().string(), bytes = bytes_of(piece);
    for (const int processes : {0, 2})
        for (const bool away : {true, false}) {
            if (away)
                fs::remove(piece);
            else
                write_bytes(piece, bytes.substr(0, bytes.size() * 2 / 3));
            SCOPED_TRACE(line[0] + " on " + std::to_string(processes) + ", " + name +
                         (away ? " away" : " cut short"));
            const ran told = processes == 0 ? run(line + words{"--pieces", "2"}) : run_on(processes, line);
            write_bytes(piece, bytes);
            EXPECT_EQ(told.code, 1) << shown(told);
            EXPECT_NE(told.err.find(name), std::string::npos) << shown(told);
            EXPECT_EQ(count_of(told.err, "skoklana: "), 1) << shown(told);
            for (const char *result : {"never.vtp", "never.vtu", "never.vti", "never.json"})
                EXPECT_FALSE(fs::exists(scratch(result))) << result;
            EXPECT_FALSE(leaves_parts());
        }
}

} // namespace

TEST(PieceStops, MissingAndDamagedPiecesAreNamed)
{
    NEED_MPIRUN;
    const auto of = [](const char *name) {
        const cut_up::sample &sample = cut_up::sample_of(name);
        return cut_up::write_pieces(scratch("gaps" + sample.ending), sample.whole,
                                    {3, cut_up::shares::runs, {}, false});
    };
    const std::string hexes = of("hex"), lattice = of("uniform");
    const auto out = [](const char *name) { return words{"-o", scratch(name)}; };
    expect_named(words{"gradient", hexes, "--array", "value"} + out("never.vtu"),
                 cut_up::piece_path(hexes, 2));
    expect_named(words{"gradient", lattice, "--array", "value"} + out("never.vti"),
                 cut_up::piece_path(lattice, 0));
    expect_named(words{"measure", hexes, "--json", scratch("never.json")}, cut_up::piece_path(hexes, 0));
    expect_named(words{"probe", lattice, "--line", "-1,-1,-1", "1,1,1", "50"} + out("never.vtp"),
                 cut_up::piece_path(lattice, 2));
    expect_named(words{"stream", hexes, "--vectors", "flow", "--seeds-random", "9"} + out("never.vtp"),
                 cut_up::piece_path(hexes, 1));
    expect_named(words{"glyph", hexes, "--vectors", "flow"} + out("never.vtp"), cut_up::piece_path(hexes, 1));
    expect_named(words{"boundary", lattice} + out("never.vtp"), cut_up::piece_path(lattice, 1));
    expect_named(words{"cell-to-node", hexes, "--array", "amount"} + out("never.vtu"),
                 cut_up::piece_path(hexes, 2));
}

// ---- memory -------------------------------------------------------------------------------------------------------------

// One file out of what fits piece by piece alone: the way out is told, and is one.
TEST(PieceStops, JoiningBeyondMemoryNamesTheWayOut)
{
    const std::string file = scratch("wide.vti");
    run_well({"sample", "hydrogen", "--size", "110", "-o", file});
    surroundings around;
    around.most_memory = 120000;
    const words line = {"threshold", file, "--array", "psi", "--min", "-1", "--pieces", "24", "-o"};
    ran told = run(line + words{scratch("wide.vtu")}, around);
    EXPECT_EQ(told.code, 1) << shown(told);
    EXPECT_EQ(count_of(told.err, "skoklana: "), 1) << shown(told);
    EXPECT_NE(told.err.find(".pvtu "), std::string::npos) << shown(told);
    EXPECT_FALSE(fs::exists(scratch("wide.vtu")));
    EXPECT_FALSE(leaves_parts());
    told = run(line + words{scratch("wide.pvtu")}, around);
    EXPECT_EQ(told.code, 0) << shown(told);
    EXPECT_EQ(read(scratch("wide.pvtu"))->GetNumberOfCells(), 109 * 109 * 109);
}
