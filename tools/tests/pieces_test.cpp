// Files in pieces, by one process and by several: what comes out is what one process makes of the whole.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkAppendFilter.h>
#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkDataSetAttributes.h>
#include <vtkExtractCells.h>
#include <vtkIdList.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkStringArray.h>
#include <vtkUnsignedCharArray.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <sys/resource.h>

namespace fs = std::filesystem;

namespace {

// ---- data sets as sets --------------------------------------------------------------------------------------

template <typename T> void append_bytes(std::string *to, const T &value)
{
    to->append(reinterpret_cast<const char *>(&value), sizeof value);
}

void append_row(std::string *to, vtkDataSetAttributes *arrays, vtkIdType row)
{
    std::vector<std::pair<std::string, vtkDataArray *>> named;
    for (int i = 0; i < arrays->GetNumberOfArrays(); ++i)
        if (vtkDataArray *array = arrays->GetArray(i)) named.emplace_back(array->GetName(), array);
    std::sort(named.begin(), named.end());
    for (const auto &[name, array] : named) {
        *to += name;
        for (int c = 0; c < array->GetNumberOfComponents(); ++c)
            append_bytes(to, array->GetComponent(row, c));
    }
}

std::string node_bytes(vtkDataSet *data, vtkIdType node)
{
    std::string bytes;
    double at[3];
    data->GetPoint(node, at);
    for (const double x : at)
        append_bytes(&bytes, x + 0.0);
    append_row(&bytes, data->GetPointData(), node);
    return bytes;
}

std::vector<std::string> nodes_of(vtkDataSet *data)
{
    std::vector<std::string> nodes;
    for (vtkIdType node = 0; node < data->GetNumberOfPoints(); ++node)
        nodes.push_back(node_bytes(data, node));
    std::sort(nodes.begin(), nodes.end());
    return nodes;
}

// Cells with their nodes in order and all arrays.
std::vector<std::string> cells_of(vtkDataSet *data)
{
    std::vector<std::string> cells;
    vtkNew<vtkIdList> nodes;
    for (vtkIdType cell = 0; cell < data->GetNumberOfCells(); ++cell) {
        std::string bytes = std::to_string(data->GetCellType(cell));
        data->GetCellPoints(cell, nodes);
        for (vtkIdType i = 0; i < nodes->GetNumberOfIds(); ++i)
            bytes += node_bytes(data, nodes->GetId(i));
        append_row(&bytes, data->GetCellData(), cell);
        cells.push_back(bytes);
    }
    std::sort(cells.begin(), cells.end());
    return cells;
}

// seams_merged: false of lists, of which VTK's reader does not merge the nodes.
void expect_same(const std::string &whole, const std::string &pieces, bool seams_merged = true)
{
    const auto a = read(whole), b = read(pieces);
    ASSERT_NE(a, nullptr) << whole;
    ASSERT_NE(b, nullptr) << pieces;
    EXPECT_EQ(a->GetNumberOfCells(), b->GetNumberOfCells());
    EXPECT_TRUE(cells_of(a) == cells_of(b)) << pieces << " has other cells than " << whole;
    if (!seams_merged) return;
    EXPECT_EQ(a->GetNumberOfPoints(), b->GetNumberOfPoints());
    EXPECT_TRUE(nodes_of(a) == nodes_of(b)) << pieces << " has other nodes than " << whole;
}

// ---- inputs -------------------------------------------------------------------------------------------------

// A sample with cell arrays too.
std::string sample_file(const std::string &mesh, const std::string &ending, const std::string &size = "8,7,9")
{
    std::string path = scratch("pieces_" + mesh + ending);
    if (fs::exists(path)) return path;
    std::vector<std::string> arguments = {"sample", "hydrogen", "--mesh", mesh, "-o", path, "--size"};
    size_t at = 0;
    for (size_t comma = 0; comma != std::string::npos; at = comma + 1) {
        comma = size.find(',', at);
        arguments.push_back(size.substr(at, comma - at));
    }
    run_well(arguments);
    const auto data = read(path);
    number_all(data);
    write(path, data);
    return path;
}

std::string mixed_file()
{
    std::string path = scratch("pieces_mixed.vtu");
    if (fs::exists(path)) return path;
    vtkNew<vtkAppendFilter> append;
    double shift = 0;
    for (const auto &[mesh, order] :
         {std::pair("hex", 1), std::pair("tet", 2), std::pair("prism", 1), std::pair("tri", 1)}) {
        const std::string part = scratch("part.vtu");
        run_well({"sample", "hydrogen", "--mesh", mesh, "--order", std::to_string(order), "--size", "4", "4",
                  std::string(mesh) == "tri" ? "1" : "4", "-o", part});
        const auto made = read(part);
        auto *data = vtkUnstructuredGrid::SafeDownCast(made);
        for (vtkIdType node = 0; node < data->GetNumberOfPoints(); ++node) {
            double at[3];
            data->GetPoint(node, at);
            at[0] += shift;
            data->GetPoints()->SetPoint(node, at);
        }
        shift += 100;
        append->AddInputData(data);
    }
    append->Update();
    const auto all = vtkSmartPointer<vtkUnstructuredGrid>::New();
    all->ShallowCopy(append->GetOutput());
    number_all(all);
    write(path, all);
    return path;
}

// The same data in n pieces, with a list of them.
std::string in_pieces(const std::string &path, int n)
{
    const fs::path file(path);
    const std::string ending = ".p" + file.extension().string().substr(1);
    std::string list = scratch(file.stem().string() + "_in" + std::to_string(n) + ending);
    if (!fs::exists(list))
        run_well(
            {"clamp", path, "--array", "node", "--min", "-1", "--pieces", std::to_string(n), "-o", list});
    return list;
}

struct one_command {
    const char *name;
    std::vector<std::string> arguments; // behind the file
    const char *ending;                 // of the result
};

const one_command commands[] = {
    {"iso", {"--array", "psi", "--level", "0.001,0.003"}, ".vtp"},
    {"cut", {"--array", "psi", "--level", "0.002"}, ".vtu"},
    {"band", {"--array", "psi", "--levels", "-0.002,0.0005,0.002,1"}, ".vtu"},
    {"slice", {"--origin", "0.5,0,1", "--normal", "1,2,3"}, ".vtp"},
    {"threshold", {"--array", "psi", "--min", "0.001", "--any"}, ".vtu"},
    {"threshold-null", {"--array", "node", "--null", "100"}, ".vtu"},
};

std::vector<std::string> line_of(const one_command &one, const std::string &file, const std::string &out)
{
    std::vector<std::string> line = {one.name, file};
    line.insert(line.end(), one.arguments.begin(), one.arguments.end());
    line.insert(line.end(), {"-o", out});
    return line;
}

std::vector<std::string> with(std::vector<std::string> line, const std::vector<std::string> &more)
{
    line.insert(line.end(), more.begin(), more.end());
    return line;
}

ran run_group(int n, const std::vector<std::string> &arguments)
{
    surroundings around;
    around.processes = n;
    ran result = run(arguments, around);
    std::string line;
    for (const std::string &one : arguments)
        line += " " + one;
    EXPECT_EQ(result.code, 0) << "mpirun -n " << n << " skoklana" << line << "\n" << shown(result);
    return result;
}

const char *const uniform = "uniform", *const rectilinear = "rectilinear", *const curvilinear = "curvilinear";

std::string file_of_kind(const std::string &kind)
{
    if (kind == "pvti") return in_pieces(sample_file(uniform, ".vti"), 3);
    if (kind == "pvtr") return in_pieces(sample_file(rectilinear, ".vtr"), 3);
    if (kind == "pvts") return in_pieces(sample_file(curvilinear, ".vts"), 3);
    if (kind == "pvtu") return in_pieces(sample_file("hex", ".vtu"), 4);
    if (kind == "mixed") return in_pieces(mixed_file(), 4);
    return kind == "vti"   ? sample_file(uniform, ".vti")
           : kind == "vtr" ? sample_file(rectilinear, ".vtr")
           : kind == "vts" ? sample_file(curvilinear, ".vts")
           : kind == "vtu" ? sample_file("hex", ".vtu")
                           : mixed_file();
}

// The file of one piece that says the same.
std::string whole_of_kind(const std::string &kind)
{
    return file_of_kind(kind == "mixed" ? "all" : kind[0] == 'p' ? kind.substr(1) : kind);
}

#define NEED_MPIRUN \
    if (!has_mpirun()) GTEST_SKIP() << "mpirun is not there"

} // namespace

// ---- one process --------------------------------------------------------------------------------------------

namespace {

class PiecesOfKind : public testing::TestWithParam<const char *> {};

} // namespace

TEST_P(PiecesOfKind, AreAsTheWhole)
{
    const std::string kind = GetParam(), file = file_of_kind(kind), whole = whole_of_kind(kind);
    for (const one_command &one : commands) {
        const std::string expected = scratch("expected" + std::string(one.ending)),
                          made = scratch("made" + std::string(one.ending));
        run_well(line_of(one, whole, expected));
        for (const char *n : {"1", "3", "7"}) {
            SCOPED_TRACE(std::string(one.name) + " of " + kind + " in " + n);
            run_well(with(line_of(one, file, made), {"--pieces", n}));
            expect_same(expected, made);
        }
    }
    EXPECT_FALSE(leaves_parts());
}

TEST_P(PiecesOfKind, FillLists)
{
    const std::string kind = GetParam(), file = file_of_kind(kind), whole = whole_of_kind(kind);
    for (const one_command &one : {commands[0], commands[1]}) {
        const std::string expected = scratch("expected" + std::string(one.ending)),
                          made = scratch("list.p" + std::string(one.ending + 1));
        run_well(line_of(one, whole, expected));
        const ran told = run_well(with(line_of(one, file, made), {"--pieces", "3"}));
        EXPECT_NE(told.out.find("in 3 pieces"), std::string::npos) << told.out;
        expect_same(expected, made, false);
    }
    EXPECT_FALSE(leaves_parts());
}

INSTANTIATE_TEST_SUITE_P(Kinds, PiecesOfKind,
                         testing::Values("vti", "vtr", "vts", "vtu", "pvti", "pvtr", "pvts", "pvtu", "all",
                                         "mixed"),
                         [](const auto &kind) { return std::string(kind.param); });

TEST(Pieces, KeepLattices)
{
    for (const char *kind : {"vti", "vtr", "vts", "pvti"}) {
        const std::string ending = "." + std::string(kind[0] == 'p' ? kind + 1 : kind);
        const std::string expected = scratch("expected" + ending), made = scratch("made" + ending);
        run_well({"clamp", whole_of_kind(kind), "--array", "psi", "--max", "0.002", "-o", expected});
        run_well(
            {"clamp", file_of_kind(kind), "--array", "psi", "--max", "0.002", "-o", made, "--pieces", "4"});
        expect_same(expected, made);
        const auto data = read(made);
        EXPECT_EQ(data->GetNumberOfPoints(), 8 * 7 * 9);
    }
}

TEST(Pieces, HaveLayersOfLattices)
{
    for (const char *kind : {"vti", "vtr", "pvti"})
        for (const char *axis : {"x", "y", "z"})
            for (const char *at : {"0.3", "0", "2.5"}) {
                SCOPED_TRACE(std::string(kind) + " across " + axis + " at " + at);
                const std::string ending = "." + std::string(kind[0] == 'p' ? kind + 1 : kind);
                const std::string expected = scratch("expected" + ending), made = scratch("made" + ending);
                run_well({"slice", whole_of_kind(kind), "--axis", axis, "--at", at, "-o", expected});
                run_well(
                    {"slice", file_of_kind(kind), "--axis", axis, "--at", at, "-o", made, "--pieces", "3"});
                expect_same(expected, made);
            }
}

// Planes through nodes, also where pieces meet, have each side of a cell once.
TEST(Pieces, AreCutByPlanesThroughSeams)
{
    for (const char *kind : {"vti", "vtu", "pvtu", "vts"}) {
        const auto data = read(whole_of_kind(kind));
        for (int layer = 0; layer < 9; ++layer) {
            double at[3];
            data->GetPoint(layer * 56, at);
            const std::string origin = "0,0," + std::to_string(at[2]);
            SCOPED_TRACE(std::string(kind) + " at " + origin);
            run_well({"slice", whole_of_kind(kind), "--origin", origin, "--normal", "0,0,1", "-o",
                      scratch("expected.vtp")});
            run_well({"slice", file_of_kind(kind), "--origin", origin, "--normal", "0,0,1", "-o",
                      scratch("made.vtp"), "--pieces", "4"});
            expect_same(scratch("expected.vtp"), scratch("made.vtp"));
        }
    }
}

TEST(Pieces, TellTheSame)
{
    for (const char *kind : {"vti", "vtr", "vts", "vtu", "pvti", "pvtu", "all"}) {
        const std::string file = file_of_kind(kind);
        EXPECT_EQ(run_well({"info", file}).out, run_well({"info", file, "--pieces", "3"}).out) << kind;
    }
}

TEST(Pieces, AreDrawnAsTheWhole)
{
    const std::string file = file_of_kind("vti");
    for (const one_command &one : {commands[0], commands[1], commands[2], commands[3]}) {
        run_well(with(line_of(one, file, scratch("drawn" + std::string(one.ending))),
                      {"-p", scratch("whole.png")}));
        run_well(with(line_of(one, file, scratch("drawn.p" + std::string(one.ending + 1))),
                      {"-p", scratch("pieces.png"), "--pieces", "3"}));
        const auto a = fs::file_size(scratch("whole.png")), b = fs::file_size(scratch("pieces.png"));
        EXPECT_NEAR(static_cast<double>(a), static_cast<double>(b), 0.02 * static_cast<double>(a))
            << one.name;
    }
}

// A layer of marked copies around each piece is of nobody's.
TEST(Pieces, TakeCopiesOnce)
{
    const std::string whole = file_of_kind("vtu");
    const auto all = read(whole);
    auto *data = vtkUnstructuredGrid::SafeDownCast(all);
    const vtkIdType n = data->GetNumberOfCells();
    std::string list = "<VTKFile type=\"PUnstructuredGrid\"><PUnstructuredGrid GhostLevel=\"1\"><PPointData>";
    for (int i = 0; i < data->GetPointData()->GetNumberOfArrays(); ++i) {
        vtkDataArray *array = data->GetPointData()->GetArray(i);
        list += std::string("<PDataArray type=\"") +
                (array->GetDataType() == VTK_FLOAT ? "Float32" : "Int64") + "\" Name=\"" + array->GetName() +
                "\" NumberOfComponents=\"" + std::to_string(array->GetNumberOfComponents()) + "\"/>";
    }
    list += "</PPointData><PPoints><PDataArray type=\"Float32\" NumberOfComponents=\"3\"/></PPoints>";
    for (int p = 0; p < 3; ++p) {
        const vtkIdType from = n * p / 3, to = n * (p + 1) / 3;
        vtkNew<vtkIdList> cells;
        for (vtkIdType cell = std::max<vtkIdType>(0, from - 60); cell < std::min(n, to + 60); ++cell)
            cells->InsertNextId(cell);
        vtkNew<vtkExtractCells> extract;
        extract->SetInputData(data);
        extract->SetCellList(cells);
        extract->Update();
        vtkNew<vtkUnstructuredGrid> piece;
        piece->ShallowCopy(extract->GetOutput());
        vtkNew<vtkUnsignedCharArray> marks;
        marks->SetName(vtkDataSetAttributes::GhostArrayName());
        for (vtkIdType i = 0; i < cells->GetNumberOfIds(); ++i)
            marks->InsertNextValue(cells->GetId(i) < from || cells->GetId(i) >= to
                                       ? static_cast<unsigned char>(vtkDataSetAttributes::DUPLICATECELL)
                                       : static_cast<unsigned char>(0));
        piece->GetCellData()->AddArray(marks);
        const std::string name = "copies_" + std::to_string(p) + ".vtu";
        write(scratch(name), piece);
        list += "<Piece Source=\"" + name + "\"/>";
    }
    write_bytes(scratch("copies.pvtu"), list + "</PUnstructuredGrid></VTKFile>\n");
    for (const one_command &one : commands) {
        SCOPED_TRACE(one.name);
        const std::string expected = scratch("expected" + std::string(one.ending)),
                          made = scratch("made" + std::string(one.ending));
        run_well(with(line_of(one, whole, expected), {}));
        run_well(with(line_of(one, scratch("copies.pvtu"), made), {"--pieces", "3"}));
        EXPECT_EQ(read(expected)->GetNumberOfCells(), read(made)->GetNumberOfCells());
        EXPECT_EQ(read(expected)->GetNumberOfPoints(), read(made)->GetNumberOfPoints());
    }
}

TEST(Pieces, NameWhatIsMissing)
{
    const std::string list = in_pieces(sample_file("tet", ".vtu", "4,4,4"), 3);
    const std::string piece = scratch("pieces_tet_in3_1.vtu"), bytes = bytes_of(piece);
    fs::remove(piece);
    ran told =
        run({"cut", list, "--array", "psi", "--level", "0.001", "-o", scratch("none.pvtu"), "--pieces", "3"});
    EXPECT_EQ(told.code, 1);
    EXPECT_NE(told.err.find("pieces_tet_in3_1.vtu"), std::string::npos) << told.err;
    write_bytes(piece, bytes.substr(0, bytes.size() / 2));
    told =
        run({"cut", list, "--array", "psi", "--level", "0.001", "-o", scratch("none.pvtu"), "--pieces", "3"});
    EXPECT_EQ(told.code, 1);
    EXPECT_NE(told.err.find("pieces_tet_in3_1.vtu"), std::string::npos) << told.err;
    write_bytes(piece, bytes);
    EXPECT_FALSE(fs::exists(scratch("none.pvtu")));
    EXPECT_FALSE(fs::exists(scratch("none_0.vtu")));
    EXPECT_FALSE(leaves_parts());
}

TEST(Pieces, RefuseWhatCannotBe)
{
    const std::string file = file_of_kind("vti");
    EXPECT_EQ(run({"iso", file, "--array", "psi", "-l", "0.001", "-o", scratch("a.pvtp"), "--gather"}).code,
              2);
    EXPECT_EQ(
        run({"iso", file, "--array", "psi", "-l", "0.001", "-o", scratch("a.vtp"), "--pieces", "0"}).code, 2);
    EXPECT_EQ(run({"delaunay", file, "-o", scratch("a.vtu"), "--pieces", "2"}).code, 2);
}

// A plain start with a list for a result has one piece.
TEST(Pieces, AreOneInAPlainStart)
{
    const std::string file = file_of_kind("vti");
    run_well(line_of(commands[0], file, scratch("plain.pvtp")));
    run_well(line_of(commands[0], file, scratch("plain.vtp")));
    expect_same(scratch("plain.vtp"), scratch("plain.pvtp"));
    EXPECT_TRUE(fs::exists(scratch("plain_0.vtp")));
    EXPECT_FALSE(fs::exists(scratch("plain_1.vtp")));
}

// Strips come last in a file of polygons, but the triangles that they are made of before quadrilaterals.
TEST(Pieces, AnswerByTheCellOfTheWhole)
{
    constexpr int n = 9;
    vtkNew<vtkPolyData> surface;
    vtkNew<vtkPoints> points;
    vtkNew<vtkCellArray> faces, strips;
    for (vtkIdType j = 0; j < n; ++j)
        for (vtkIdType i = 0; i < n; ++i)
            points->InsertNextPoint(static_cast<double>(i), static_cast<double>(j), 0);
    for (vtkIdType j = 0; j + 1 < n; ++j) {
        if (j % 3 == 1) {
            strips->InsertNextCell(2 * n);
            for (vtkIdType i = 0; i < n; ++i)
                for (vtkIdType at : {n * j + i, n * (j + 1) + i})
                    strips->InsertCellPoint(at);
            continue;
        }
        for (vtkIdType i = 0; i + 1 < n; ++i) {
            const vtkIdType a = n * j + i, square[4] = {a, a + 1, a + 1 + n, a + n};
            faces->InsertNextCell(4, square);
        }
    }
    surface->SetPoints(points);
    surface->SetPolys(faces);
    surface->SetStrips(strips);
    number_all(surface);
    const std::string path = scratch("strips.vtp"), expected = scratch("expected.csv"),
                      made = scratch("made.csv");
    write(path, surface);
    run_well({"probe", path, "--points", path, "-o", expected});
    for (const char *pieces : {"2", "3", "5", "7"}) {
        run_well({"probe", path, "--points", path, "--pieces", pieces, "-o", made});
        EXPECT_TRUE(bytes_of(made) == bytes_of(expected)) << pieces;
    }
}

TEST(Pieces, OfLatticesLeaveTextsOut)
{
    for (const char *mesh : {"uniform", "rectilinear", "curvilinear"}) {
        const std::string ending = *mesh == 'u'   ? ".vti"
                                   : *mesh == 'r' ? ".vtr"
                                                  : ".vts",
                          path = scratch("texts" + ending), expected = scratch("expected.vtp"),
                          made = scratch("made.vtp");
        run_well({"sample", "noisy-sphere", "--mesh", mesh, "--size", "9", "-o", path});
        const std::vector<std::string> line = {"iso", path, "-l", "0", "-o"};
        run_well(with(line, {expected}));
        const auto data = read(path);
        for (const bool of_cells : {false, true}) {
            vtkNew<vtkStringArray> texts;
            texts->SetName(of_cells ? "words" : "names");
            const vtkIdType count = of_cells ? data->GetNumberOfCells() : data->GetNumberOfPoints();
            for (vtkIdType i = 0; i < count; ++i)
                texts->InsertNextValue("text " + std::to_string(i));
            data->GetAttributes(of_cells ? vtkDataObject::CELL : vtkDataObject::POINT)->AddArray(texts);
        }
        write(path, data);
        const ran told = run_well(with(line, {made, "--pieces", "3"}));
        expect_same(expected, made);
        for (const char *name : {"names", "words"}) {
            const std::string note = "left out: array " + std::string(name) + ",";
            const size_t at = told.err.find(note);
            EXPECT_NE(at, std::string::npos) << told.err;
            EXPECT_EQ(told.err.find(note, at + 1), std::string::npos) << told.err; // once
        }
    }
}

// ---- several processes --------------------------------------------------------------------------------------

namespace {

class PieceGroups : public testing::TestWithParam<int> {};

} // namespace

TEST_P(PieceGroups, MakeWhatOneMakes)
{
    NEED_MPIRUN;
    const char *const kinds[] = {"vti", "pvtu", "vts", "mixed", "vtu", "pvti", "vtr"};
    size_t next = static_cast<size_t>(GetParam());
    for (const one_command &one : commands) {
        const std::string kind = kinds[next++ % std::size(kinds)];
        SCOPED_TRACE(std::string(one.name) + " of " + kind);
        const std::string expected = scratch("expected" + std::string(one.ending)),
                          made = scratch("made" + std::string(one.ending));
        const ran plain = run_well(line_of(one, whole_of_kind(kind), expected));
        fs::remove(made);
        const ran told = run_group(GetParam(), line_of(one, file_of_kind(kind), made));
        expect_same(expected, made);
        EXPECT_EQ(std::count(told.out.begin(), told.out.end(), '\n'), 1) << told.out;
    }
    EXPECT_FALSE(leaves_parts());
}

TEST_P(PieceGroups, WriteAPieceEach)
{
    NEED_MPIRUN;
    const one_command &one = commands[0];
    run_well(line_of(one, whole_of_kind("pvtu"), scratch("expected.vtp")));
    run_group(GetParam(), line_of(one, file_of_kind("pvtu"), scratch("each.pvtp")));
    expect_same(scratch("expected.vtp"), scratch("each.pvtp"), false);
    run_group(GetParam(), with(line_of(one, file_of_kind("vti"), scratch("each.pvtp")),
                               {"--pieces", "4", "-p", scratch("each.png")}));
    run_well(line_of(one, whole_of_kind("vti"), scratch("expected.vtp")));
    expect_same(scratch("expected.vtp"), scratch("each.pvtp"), false);
    EXPECT_TRUE(fs::exists(scratch("each.png")));
    EXPECT_EQ(run_well({"info", file_of_kind("pvtu")}).out,
              run_group(GetParam(), {"info", file_of_kind("pvtu")}).out);
}

INSTANTIATE_TEST_SUITE_P(Sizes, PieceGroups, testing::Values(1, 2, 3, 5));

// What processes send each other has fewer types than files.
TEST(PieceGroupsOfArrays, KeepTheirTypes)
{
    NEED_MPIRUN;
    const std::string path = scratch("types.vti"), expected = scratch("expected.vtu"),
                      made = scratch("made.vtu");
    run_well({"sample", "noisy-sphere", "--size", "7", "-o", path});
    const auto data = read(path);
    for (const int type : {VTK_CHAR, VTK_SIGNED_CHAR, VTK_UNSIGNED_CHAR, VTK_SHORT, VTK_UNSIGNED_SHORT,
                           VTK_INT, VTK_UNSIGNED_INT, VTK_LONG, VTK_UNSIGNED_LONG, VTK_LONG_LONG,
                           VTK_UNSIGNED_LONG_LONG, VTK_FLOAT, VTK_DOUBLE, VTK_ID_TYPE})
        for (vtkDataSetAttributes *arrays : {static_cast<vtkDataSetAttributes *>(data->GetPointData()),
                                             static_cast<vtkDataSetAttributes *>(data->GetCellData())}) {
            const auto array = vtkSmartPointer<vtkDataArray>::Take(vtkDataArray::CreateDataArray(type));
            array->SetName(("of type " + std::to_string(type)).c_str());
            array->SetNumberOfComponents(2);
            array->SetComponentName(1, "second");
            const bool of_cells = arrays == data->GetCellData();
            array->SetNumberOfTuples(of_cells ? data->GetNumberOfCells() : data->GetNumberOfPoints());
            for (vtkIdType i = 0; i < array->GetNumberOfTuples(); ++i)
                for (int c = 0; c < 2; ++c)
                    array->SetComponent(i, c, static_cast<double>((5 * i + c) % 120));
            arrays->AddArray(array);
        }
    write(path, data);
    const std::vector<std::string> line = {"threshold", path, "-a", "height", "--min", "-0.5", "-o"};
    run_well(with(line, {expected}));
    const auto whole = read(expected);
    for (const int processes : {2, 3}) {
        run_group(processes, with(line, {made, "--gather"}));
        expect_same(expected, made);
        const auto joined = read(made);
        for (const bool of_cells : {false, true}) {
            vtkDataSetAttributes *want = whole->GetAttributes(of_cells ? vtkDataObject::CELL
                                                                       : vtkDataObject::POINT),
                                 *got = joined->GetAttributes(of_cells ? vtkDataObject::CELL
                                                                       : vtkDataObject::POINT);
            EXPECT_GE(want->GetNumberOfArrays(), 14);
            ASSERT_EQ(got->GetNumberOfArrays(), want->GetNumberOfArrays());
            for (int i = 0; i < want->GetNumberOfArrays(); ++i) {
                vtkAbstractArray *array = got->GetAbstractArray(want->GetArrayName(i));
                ASSERT_NE(array, nullptr) << want->GetArrayName(i);
                EXPECT_EQ(array->GetDataType(), want->GetAbstractArray(i)->GetDataType())
                    << want->GetArrayName(i);
                EXPECT_EQ(array->HasAComponentName(), want->GetAbstractArray(i)->HasAComponentName());
            }
        }
    }
}

TEST(PieceFailures, AreToldOnce)
{
    NEED_MPIRUN;
    surroundings around;
    around.processes = 3;
    const auto told_once = [&](const std::vector<std::string> &line, const std::string &words, int code) {
        const ran told = run(line, around);
        EXPECT_EQ(told.code, code) << shown(told);
        size_t count = 0;
        for (size_t at = told.err.find("skoklana: "); at != std::string::npos;
             at = told.err.find("skoklana: ", at + 1))
            ++count;
        EXPECT_EQ(count, 1u) << told.err;
        EXPECT_NE(told.err.find(words), std::string::npos) << told.err;
    };
    const std::string file = file_of_kind("vti");
    told_once({"iso", file, "--array", "nothing", "-l", "1", "-o", scratch("no.vtp")}, "nothing", 1);
    told_once({"iso", scratch("nowhere.vti"), "-l", "1", "-o", scratch("no.vtp")}, "nowhere.vti", 1);
    told_once({"iso", file, "--array", "psi", "-l", "1", "-o", scratch("no.txt")}, "no.txt", 2);
    told_once({"delaunay", file, "-o", scratch("no.vtu")}, "one process", 2);

    const std::string list = in_pieces(sample_file("tet", ".vtu", "4,4,4"), 3);
    const std::string piece = scratch("pieces_tet_in3_2.vtu"), bytes = bytes_of(piece);
    fs::remove(piece);
    told_once({"cut", list, "--array", "psi", "-l", "0.001", "-o", scratch("no.pvtu")}, "in3_2.vtu", 1);
    write_bytes(piece, bytes.substr(0, bytes.size() - 100));
    told_once({"cut", list, "--array", "psi", "-l", "0.001", "-o", scratch("no.pvtu")}, "in3_2.vtu", 1);
    write_bytes(piece, bytes);
    told_once({"iso", file, "--array", "psi", "-l", "0.001", "-o", scratch("no_folder") + "/a.pvtp"},
              "no_folder", 1);
    EXPECT_FALSE(fs::exists(scratch("no_0.vtu")));
    EXPECT_FALSE(fs::exists(scratch("no.pvtu")));
    EXPECT_FALSE(leaves_parts());
}

// One of a group that dies takes the others along, and nothing is left.
TEST(PieceFailures, EndAll)
{
    NEED_MPIRUN;
    const std::string file = scratch("large.vti");
    run_well({"sample", "hydrogen", "--size", "230", "-o", file});
    const std::string out = scratch("killed.pvtp");
    surroundings around;
    around.processes = 3;
    for (const int victim : {0, 2}) {
        around.victim = victim;
        const ran told =
            run({"iso", file, "--array", "psi", "-l",
                 "0.0001,0.0002,0.0003,0.0005,0.0006,0.0007,0.0008,0.0009,0.001,0.0011,0.0012", "-o", out},
                around);
        EXPECT_NE(told.code, 0) << shown(told);
        EXPECT_FALSE(fs::exists(out));
        EXPECT_FALSE(fs::exists(scratch("killed_0.vtp")));
        EXPECT_FALSE(leaves_parts());
    }
}

// ---- memory -------------------------------------------------------------------------------------------------

// Files larger than the memory that a process may have go through piece by piece.
TEST(PieceMemory, IsBounded)
{
    const std::string file = scratch("big.vti"), list = scratch("big_cut.pvtp");
    run_well({"sample", "hydrogen", "--size", "256", "-o", file}); // 64 MB of values
    const std::string command = command_path().substr(1, command_path().size() - 2);
    const auto limited = [&](const std::string &more) {
        return system(("(ulimit -d 60000; " + command + " iso " + file + " --array psi -l 0.001 " + more +
                       " > " + scratch("limited.txt") + " 2>&1)")
                          .c_str());
    };
    EXPECT_NE(limited("-o " + scratch("big_whole.vtp")), 0) << "the limit is no limit";
    EXPECT_EQ(limited("-o " + list + " --pieces 16"), 0) << bytes_of(scratch("limited.txt"));
    run_well({"iso", file, "--array", "psi", "-l", "0.001", "-o", scratch("big_whole.vtp")});
    EXPECT_EQ(read(scratch("big_whole.vtp"))->GetNumberOfCells(), read(list)->GetNumberOfCells());
    const ran told = run_well({"info", file, "--pieces", "4", "--time"});
    EXPECT_NE(told.out.find("process 0: peak"), std::string::npos) << told.out;
}
