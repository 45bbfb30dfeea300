// Ends that no process can say a word about, pieces without anything in them, and what memory pieces take.
#include "pieces_support.hpp"

#include <gtest/gtest.h>

#include <vtkDataArray.h>
#include <vtkDataSet.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

using cut_up::words;

const std::string &busy_lattice()
{
    static const std::string path = [] {
        std::string made = scratch("busier.vti");
        run_well({"sample", "hydrogen", "--size", "160", "-o", made});
        return made;
    }();
    return path;
}

// Kills what the line starts as soon as one of its files is being written.
void kill_while_writing(const std::string &line)
{
    const std::string folder = scratch(""),
                      script =
                          "exec 2>/dev/null; cd '" + folder + "' || exit 1; " + line +
                          " >/dev/null & p=$!; n=0; until ls -A | grep -q '^[.].*[.]part'; "
                          "do sleep 0.01; n=$((n+1)); [ $n -gt 3000 ] && break; done; kill -9 $p; wait $p";
    EXPECT_EQ(system(script.c_str()), (128 + 9) * 256);
}

std::string group(int n)
{
    return "OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 OMPI_MCA_mpi_yield_when_idle=1 "
           "OMPI_MCA_btl_vader_single_copy_mechanism=none mpirun --oversubscribe -n " +
           std::to_string(n) + " ";
}

double peak_of(const words &line)
{
    const std::string told = run_well(line + words{"--time", "--threads", "1"}).out;
    const size_t at = told.find("peak ");
    return at == std::string::npos ? 0 : strtod(told.c_str() + at + 5, nullptr);
}

} // namespace

// ---- kills --------------------------------------------------------------------------------------------------

// Nobody can clean up but the next run.
TEST(PieceStopsByKill, LeavesWhatTheNextRunRemoves)
{
    const std::string &file = busy_lattice();
    kill_while_writing(command_path() + " gradient busier.vti --array psi --pieces 40 -o killed.pvti");
    EXPECT_TRUE(leaves_parts());
    EXPECT_FALSE(fs::exists(scratch("killed.pvti")));
    EXPECT_FALSE(fs::exists(scratch("killed_0.vti")));
    write_bytes(scratch(".killed_7.part1-.vti"), "of somebody else"); // is not touched
    run_well({"clamp", file, "--array", "psi", "--min", "0", "-o", scratch("unlike.pvti"), "--pieces", "2"});
    const auto begun = [] {
        const std::vector<std::string> names = files_in_scratch();
        return std::count_if(names.begin(), names.end(),
                             [](const std::string &name) { return name.compare(0, 7, ".killed") == 0; });
    };
    EXPECT_GT(begun(), 1); // the other run has nothing to do with them
    run_well({"clamp", file, "--array", "psi", "--min", "0", "-o", scratch("killed.pvti"), "--pieces", "2"});
    EXPECT_EQ(begun(), 1);
    fs::remove(scratch(".killed_7.part1-.vti"));
    EXPECT_FALSE(leaves_parts());
}

// Its processes notice, and remove what they were at.
TEST(PieceStopsByKill, OfMpirunEndsAll)
{
    if (!has_mpirun()) GTEST_SKIP() << "mpirun is not there";
    busy_lattice();
    for (const int n : {1, 3}) {
        SCOPED_TRACE(std::to_string(n) + " processes");
        kill_while_writing(group(n) + command_path() +
                           " gradient busier.vti --array psi --pieces 60 --threads 1 -o ended.pvti");
        for (int tries = 0; tries < 100 && leaves_parts(); ++tries)
            EXPECT_EQ(system("sleep 0.1"), 0);
        EXPECT_FALSE(leaves_parts());
        EXPECT_FALSE(fs::exists(scratch("ended.pvti")));
        EXPECT_FALSE(fs::exists(scratch("ended_0.vti")));
        EXPECT_EQ(system("sleep 0.5; ps -eo args | grep -q '[e]nded.pvti'"), 256);
    }
}

// ---- pieces with nothing in them ----------------------------------------------------------------------------

namespace {

const char *const head = "<VTKFile type=\"@\" version=\"1.0\" byte_order=\"LittleEndian\"><@>";
const char *const floats = "<DataArray type=\"Float32\" NumberOfComponents=\"3\" format=\"ascii\">";

std::string file_of(std::string text, const std::string &type)
{
    text = head + text + "</@></VTKFile>\n";
    for (size_t at = 0; (at = text.find('@')) != std::string::npos;)
        text.replace(at, 1, type);
    return text;
}

std::string list_of(const std::string &type, const std::string &first, const std::string &second)
{
    return file_of("<PPointData><PDataArray type=\"Float32\" Name=\"value\"/></PPointData><PCellData>"
                   "<PDataArray type=\"Float64\" Name=\"amount\"/></PCellData><PPoints><PDataArray "
                   "type=\"Float32\" NumberOfComponents=\"3\"/></PPoints><Piece Source=\"" +
                       first + "\"/><Piece Source=\"" + second + "\"/>",
                   "P" + type);
}

// One tetrahedron, or one triangle.
std::string one_cell(const std::string &type)
{
    const bool grid = type == "UnstructuredGrid";
    const std::string cells = grid ? "Cells" : "Polys";
    return file_of(
        std::string("<Piece NumberOfPoints=\"4\" ") +
            (grid ? "NumberOfCells"
                  : "NumberOfVerts=\"0\" NumberOfLines=\"0\" NumberOfStrips=\"0\" NumberOfPolys") +
            "=\"1\"><PointData><DataArray type=\"Float32\" Name=\"value\" format=\"ascii\">0 1 2 3"
            "</DataArray></PointData><CellData><DataArray type=\"Float64\" Name=\"amount\" "
            "format=\"ascii\">7</DataArray></CellData><Points>" +
            floats + "0 0 0 1 0 0 0 1 0 0 0 1</DataArray></Points><" + cells +
            "><DataArray type=\"Int64\" Name=\"connectivity\" format=\"ascii\">0 1 2 3</DataArray>"
            "<DataArray type=\"Int64\" Name=\"offsets\" format=\"ascii\">4</DataArray>" +
            (grid ? "<DataArray type=\"UInt8\" Name=\"types\" format=\"ascii\">10</DataArray>" : "") + "</" +
            cells + "></Piece>",
        type);
}

} // namespace

// However their writers leave out what they do not have.
TEST(PlainListsWithEmptyPieces, AreTheOtherPieces)
{
    const std::string none = "<Piece NumberOfPoints=\"0\" NumberOfCells=\"0\"";
    const std::string no_cells =
        "<Cells><DataArray type=\"Int64\" Name=\"connectivity\" format=\"ascii\"></DataArray><DataArray "
        "type=\"Int64\" Name=\"offsets\" format=\"ascii\"></DataArray><DataArray type=\"UInt8\" "
        "Name=\"types\" format=\"ascii\"></DataArray></Cells>";
    const std::string no_points = std::string("<Points>") + floats + "</DataArray></Points>";
    const auto with = [&](const std::string &inside) { return none + ">" + inside + "</Piece>"; };
    const std::string pieces[] = {"",
                                  none + "/>",
                                  with(""),
                                  with("<PointData/><CellData/>" + no_cells),
                                  with("<PointData/><CellData/><Points/><Cells/>"),
                                  with(no_points + no_cells),
                                  "<Piece  NumberOfCells='0'\n NumberOfPoints='0'/>"};
    for (const std::string type : {"UnstructuredGrid", "PolyData"}) {
        SCOPED_TRACE(type);
        const std::string end = type == "PolyData" ? "vtp" : "vtu", list = scratch("emptied.p" + end),
                          made = scratch("unemptied." + end);
        write_bytes(scratch("one." + end), one_cell(type));
        for (const bool first : {false, true})
            for (const std::string &piece : pieces) {
                SCOPED_TRACE(piece);
                const std::string empty = "none." + end, full = "one." + end;
                write_bytes(scratch(empty), file_of(piece, type));
                write_bytes(list, list_of(type, first ? empty : full, first ? full : empty));
                for (const words &how : {words{}, words{"--pieces", "2"}}) {
                    run_well(words{"clamp", list, "--array", "value", "--min", "1", "-o", made} + how);
                    const auto got = read(made);
                    EXPECT_EQ(got->GetNumberOfPoints(), 4);
                    EXPECT_EQ(got->GetNumberOfCells(), 1);
                    EXPECT_NE(cell_array(got, "amount"), nullptr);
                }
            }
    }
}

// Nodes without cells, whose file has no cell arrays, take those of others not away.
TEST(PlainListsWithEmptyPieces, HaveTheArraysOfOthers)
{
    const std::string type = "UnstructuredGrid", list = scratch("bare.pvtu"), made = scratch("bare_made.vtu");
    write_bytes(scratch("one.vtu"), one_cell(type));
    write_bytes(
        scratch("nodes.vtu"),
        file_of("<Piece NumberOfPoints=\"1\" NumberOfCells=\"0\"><PointData><DataArray type=\"Float32\" "
                "Name=\"value\" format=\"ascii\">9</DataArray></PointData><Points>" +
                    std::string(floats) +
                    "5 5 5</DataArray></Points><Cells><DataArray type=\"Int64\" Name=\"connectivity\" "
                    "format=\"ascii\"></DataArray><DataArray type=\"Int64\" Name=\"offsets\" "
                    "format=\"ascii\"></DataArray><DataArray type=\"UInt8\" Name=\"types\" "
                    "format=\"ascii\"></DataArray></Cells></Piece>",
                type));
    for (const bool first : {false, true})
        for (const words &how : {words{}, words{"--pieces", "2"}}) {
            write_bytes(list,
                        list_of(type, first ? "nodes.vtu" : "one.vtu", first ? "one.vtu" : "nodes.vtu"));
            run_well(words{"clamp", list, "--array", "value", "--min", "1", "-o", made} + how);
            const auto got = read(made);
            EXPECT_EQ(got->GetNumberOfPoints(), 5);
            EXPECT_EQ(got->GetNumberOfCells(), 1);
            ASSERT_NE(cell_array(got, "amount"), nullptr);
            EXPECT_EQ(cell_array(got, "amount")->GetComponent(0, 0), 7);
        }
}

// A file that is none, and one of another kind, stay what they are.
TEST(PlainListsWithEmptyPieces, AreNotWhateverHasNoNodes)
{
    const std::string list = scratch("odd.pvtu");
    write_bytes(scratch("one.vtu"), one_cell("UnstructuredGrid"));
    write_bytes(list, list_of("UnstructuredGrid", "one.vtu", "odd.vtu"));
    for (const std::string &text :
         {std::string(), std::string("<VTKFile type=\"UnstructuredGrid\">"),
          file_of("<Piece/>", "UnstructuredGrid"),
          file_of("<Piece NumberOfPoints=\"3\" NumberOfCells=\"0\"/>", "UnstructuredGrid")}) {
        write_bytes(scratch("odd.vtu"), text);
        const ran told = run({"info", list});
        EXPECT_EQ(told.code, 1) << text << shown(told);
        EXPECT_NE(told.err.find("odd.vtu"), std::string::npos) << shown(told);
    }
}

// ---- memory -------------------------------------------------------------------------------------------------

// Half of a lattice takes half of what all of it takes, with its layer of cells beside it.
TEST(PieceMemoryOfHalves, IsHalf)
{
    const std::string &file = busy_lattice();
    const double least = peak_of({"info", file, "--pieces", "100"});
    const words line = {"gradient", file, "--array", "psi", "-o", scratch("halves.pvti"), "--pieces"};
    const double whole = peak_of(line + words{"1"}) - least, half = peak_of(line + words{"2"}) - least;
    EXPECT_GT(whole, 4e6 * 16 * 1e-6); // 160^3 nodes with a float and three more
    EXPECT_LT(half, 0.62 * whole);
}
