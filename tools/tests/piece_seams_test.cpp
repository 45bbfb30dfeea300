// What tells nodes and edges on seams apart: numbers of nodes, and rules that go by the cells at an edge alone.
#include "pieces_support.hpp"

#include <gtest/gtest.h>

#include <vtkCellType.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkDoubleArray.h>
#include <vtkIdList.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace {

using cut_up::words;

template <typename Cells> vtkSmartPointer<Cells> mesh_of(const std::vector<std::array<double, 3>> &places)
{
    auto made = vtkSmartPointer<Cells>::New();
    vtkNew<vtkPoints> points;
    for (const auto &at : places)
        points->InsertNextPoint(at.data());
    made->SetPoints(points);
    made->AllocateEstimate(16, 8);
    return made;
}

template <typename Cells> void add_cell(Cells *to, int type, const std::vector<vtkIdType> &nodes)
{
    vtkNew<vtkIdList> list;
    for (const vtkIdType node : nodes)
        list->InsertNextId(node);
    to->InsertNextCell(type, list);
}

} // namespace

// ---- numbers of nodes ---------------------------------------------------------------------------------------

namespace {

// Four cubes around an edge, with a slit between two of them: the nodes at its open end are there twice.
vtkSmartPointer<vtkUnstructuredGrid> cubes_with_slit()
{
    std::vector<std::array<double, 3>> places;
    for (int k = 0; k < 2; ++k)
        for (int j = 0; j < 3; ++j)
            for (int i = 0; i < 3; ++i)
                places.push_back({1.0 * i, 1.0 * j, 1.0 * k});
    places.push_back({1, 0, 0});
    places.push_back({1, 0, 1});
    auto made = mesh_of<vtkUnstructuredGrid>(places);
    for (const int i : {0, 1})
        for (const int j : {0, 1}) {
            const vtkIdType a = i + 3 * j;
            std::vector<vtkIdType> nodes = {a, a + 1, a + 4, a + 3, a + 9, a + 10, a + 13, a + 12};
            if (i == 1 && j == 0) { // the other side of the slit
                std::replace(nodes.begin(), nodes.end(), vtkIdType{1}, vtkIdType{18});
                std::replace(nodes.begin(), nodes.end(), vtkIdType{10}, vtkIdType{19});
            }
            add_cell(made.Get(), VTK_HEXAHEDRON, nodes);
        }
    number_all(made);
    add_node_array(made, "value", [](const double *at) { return at[0] + 2 * at[1] + 4 * at[2]; });
    return made;
}

void rename_numbers(vtkDataSet *data, const char *name, bool all_alike = false)
{
    vtkNew<vtkDoubleArray> numbers;
    numbers->SetName(name);
    for (vtkIdType node = 0; node < data->GetNumberOfPoints(); ++node)
        numbers->InsertNextValue(all_alike ? 3 : 7 * node_array(data, "node")->GetComponent(node, 0) + 100);
    data->GetPointData()->RemoveArray("node");
    data->GetPointData()->AddArray(numbers);
}

struct counted {
    vtkIdType nodes, faces, told;
};

void expect_of_list(const std::string &list, const counted &expected)
{
    std::vector<words> ways = {{}, {"--pieces", "2"}, {"--pieces", "3"}};
    for (const words &how : ways) {
        SCOPED_TRACE(how.empty() ? "in one" : "in " + how[1] + " pieces");
        const std::string made = scratch("slit_made.vtu"), skin = scratch("slit_skin.vtp");
        const ran told = run_well(words{"clamp", list, "--array", "value", "--min", "1", "-o", made} + how);
        EXPECT_EQ(read(made)->GetNumberOfPoints(), expected.nodes);
        const std::string note = std::to_string(expected.told) + " node(s) of the pieces stand where another";
        EXPECT_EQ(told.err.find(note) != std::string::npos, expected.told > 0) << told.err;
        const ran also = run_well(words{"boundary", list, "-o", skin} + how);
        EXPECT_EQ(also.err.find(note) != std::string::npos, expected.told > 0) << also.err;
        EXPECT_EQ(read(skin)->GetNumberOfCells(), expected.faces);
        const std::string about = run_well(words{"info", list} + how).out;
        EXPECT_NE(about.find("nodes: " + std::to_string(expected.nodes) + "\n"), std::string::npos) << about;
    }
}

} // namespace

// Where programs give nodes global numbers, these say which nodes of different files are one.
TEST(PlainListsWithSlits, GoByGlobalNumbers)
{
    const auto whole = cubes_with_slit();
    const cut_up::how along = {2, cut_up::shares::runs, {}, false};
    for (const char *name : {"GlobalNodeId", "GlobalPointIds"}) {
        SCOPED_TRACE(name);
        const auto numbered = vtkSmartPointer<vtkUnstructuredGrid>::New();
        numbered->DeepCopy(whole);
        rename_numbers(numbered, name);
        expect_of_list(cut_up::write_pieces(scratch("slit_named.pvtu"), numbered, along), {20, 18, 0});
    }
    const std::string list = cut_up::write_pieces(scratch("slit_role.pvtu"), whole, along);
    for (int p = 0; p < 2; ++p) {
        const auto piece = read(cut_up::piece_path(list, p));
        piece->GetPointData()->SetGlobalIds(piece->GetPointData()->GetArray("node"));
        write(cut_up::piece_path(list, p), piece);
    }
    expect_of_list(list, {20, 18, 0});
}

// Without them, or where they are not what their name says, nodes at one place are one, which is told where a piece has
// two at one place.
TEST(PlainListsWithSlits, AreClosedWithoutNumbers)
{
    const auto whole = cubes_with_slit(), alike = cubes_with_slit();
    whole->GetPointData()->RemoveArray("node");
    rename_numbers(alike, "GlobalNodeId", true);
    expect_of_list(cut_up::write_pieces(scratch("slit.pvtu"), whole, {2, cut_up::shares::runs, {}, false}),
                   {18, 16, 0});
    expect_of_list(
        cut_up::write_pieces(scratch("slit_alike.pvtu"), alike, {2, cut_up::shares::runs, {}, false}),
        {18, 16, 0});
    // one file has both sides of the slit
    expect_of_list(
        cut_up::write_pieces(scratch("slit_turns.pvtu"), whole, {2, cut_up::shares::in_turn, {}, false}),
        {20, 18, 2});
}

TEST(PlainListsWithSlits, GoByGlobalNumbersInGroups)
{
    if (!has_mpirun()) GTEST_SKIP() << "mpirun is not there";
    const auto numbered = cubes_with_slit();
    rename_numbers(numbered, "GlobalNodeId");
    const std::string list =
        cut_up::write_pieces(scratch("slit_groups.pvtu"), numbered, {2, cut_up::shares::runs, {}, false});
    const std::string made = scratch("slit_groups.vtu"), skin = scratch("slit_groups.vtp");
    run_well_on(2, {"clamp", list, "--array", "value", "--min", "1", "-o", made});
    EXPECT_EQ(read(made)->GetNumberOfPoints(), 20);
    run_well_on(3, {"boundary", list, "-o", skin});
    EXPECT_EQ(read(skin)->GetNumberOfCells(), 18);
}

// ---- files of several parts ---------------------------------------------------------------------------------

namespace {

std::string numbers_in_words(const std::vector<double> &values)
{
    std::string text;
    char one[40];
    for (const double value : values) {
        snprintf(one, sizeof one, "%.17g ", value);
        text += one;
    }
    return text;
}

std::string element(const std::string &type, const std::string &name, int components, const std::string &text)
{
    return "<DataArray type=\"" + type + "\" Name=\"" + name + "\" NumberOfComponents=\"" +
           std::to_string(components) + "\" format=\"ascii\">" + text + "</DataArray>\n";
}

std::string array_text(vtkDataArray *array, const std::string &name)
{
    std::vector<double> values;
    for (vtkIdType row = 0; row < array->GetNumberOfTuples(); ++row)
        for (int c = 0; c < array->GetNumberOfComponents(); ++c)
            values.push_back(array->GetComponent(row, c));
    const bool single = array->GetDataType() == VTK_FLOAT;
    return element(single ? "Float32" : "Float64", name, array->GetNumberOfComponents(),
                   numbers_in_words(values));
}

// One after another in a file of one mesh.
std::string part_text(vtkUnstructuredGrid *data)
{
    std::vector<double> connect, ends, types;
    vtkNew<vtkIdList> nodes;
    for (vtkIdType cell = 0; cell < data->GetNumberOfCells(); ++cell) {
        data->GetCellPoints(cell, nodes);
        for (vtkIdType i = 0; i < nodes->GetNumberOfIds(); ++i)
            connect.push_back(static_cast<double>(nodes->GetId(i)));
        ends.push_back(static_cast<double>(connect.size()));
        types.push_back(data->GetCellType(cell));
    }
    return "<Piece NumberOfPoints=\"" + std::to_string(data->GetNumberOfPoints()) + "\" NumberOfCells=\"" +
           std::to_string(data->GetNumberOfCells()) + "\"><PointData>" +
           array_text(node_array(data, "value"), "value") + "</PointData><CellData>" +
           array_text(cell_array(data, "amount"), "amount") + "</CellData><Points>" +
           array_text(data->GetPoints()->GetData(), "Points") + "</Points><Cells>" +
           element("Int64", "connectivity", 1, numbers_in_words(connect)) +
           element("Int64", "offsets", 1, numbers_in_words(ends)) +
           element("UInt8", "types", 1, numbers_in_words(types)) + "</Cells></Piece>\n";
}

} // namespace

// Each part has its own nodes, and each process reads its own parts.
TEST(PartedCasesOfOneFile, AreTheWholeFile)
{
    const std::string file = scratch("parts.vtu"), expected = scratch("parts_whole"),
                      made = scratch("parts_made");
    for (const char *name : {"hex", "mixed"}) {
        SCOPED_TRACE(name);
        const std::string list = cut_up::write_pieces(scratch("parts.pvtu"), cut_up::sample_of(name).whole,
                                                      {4, cut_up::shares::runs, {}, false});
        std::string text = "<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" "
                           "byte_order=\"LittleEndian\"><UnstructuredGrid>\n";
        for (int p = 0; p < 4; ++p)
            text += part_text(vtkUnstructuredGrid::SafeDownCast(read(cut_up::piece_path(list, p))));
        write_bytes(file, text + "</UnstructuredGrid></VTKFile>\n");
        EXPECT_GT(read(file)->GetNumberOfPoints(), cut_up::sample_of(name).whole->GetNumberOfPoints());
        const std::pair<words, const char *> lines[] = {
            {{"boundary", file}, ".vtp"},
            {{"gradient", file, "--array", "value"}, ".vtu"},
            {{"cell-to-node", file, "--array", "amount"}, ".vtu"},
            {{"iso", file, "--array", "value", "--level", "0.4"}, ".vtp"},
            {{"threshold", file, "--array", "value", "--min", "0.4", "--any"}, ".vtu"}};
        for (const auto &[line, ending] : lines) {
            run_well(line + words{"-o", expected + ending});
            const auto whole = read(expected + ending);
            for (const char *n : {"1", "3", "4", "9"}) {
                SCOPED_TRACE(line[0] + " --pieces " + n);
                run_well(line + words{"-o", made + ending, "--pieces", n});
                expect_same_mesh(whole, read(made + ending));
            }
            if (!has_mpirun()) continue;
            run_well_on(3, line + words{"-o", made + ending});
            expect_same_mesh(whole, read(made + ending));
        }
        EXPECT_EQ(run_well({"info", file, "--pieces", "3"}).out, run_well({"info", file}).out);
        EXPECT_EQ(run_well({"measure", file, "--pieces", "6"}).out, run_well({"measure", file}).out);
    }
}

// ---- edges of skins -----------------------------------------------------------------------------------------

namespace {

// A strip of quadrilaterals that is turned over once before its ends meet.
vtkSmartPointer<vtkPolyData> one_sided_strip(int n)
{
    std::vector<std::array<double, 3>> places;
    for (int i = 0; i < n; ++i)
        for (const double side : {-1.0, 1.0}) {
            const double turn = 2 * M_PI * i / n, away = 3 + side * std::cos(turn / 2);
            places.push_back({away * std::cos(turn), away * std::sin(turn), side * std::sin(turn / 2)});
        }
    auto made = mesh_of<vtkPolyData>(places);
    for (vtkIdType i = 0; i < n; ++i) {
        const bool last = i + 1 == n;
        const vtkIdType a = 2 * i, low = last ? 1 : a + 2, high = last ? 0 : a + 3;
        add_cell(made.Get(), VTK_QUAD, {a, a + 1, high, low});
    }
    return made;
}

// Pages of n rows that meet in one line; every other page has triangles, and cells run either way around.
vtkSmartPointer<vtkPolyData> open_book(int npages, int n)
{
    std::vector<std::array<double, 3>> places;
    for (int i = 0; i <= n; ++i)
        places.push_back({0, 0, 0.5 * i});
    for (int page = 0; page < npages; ++page)
        for (int i = 0; i <= n; ++i)
            places.push_back({std::cos(0.3 * page), std::sin(0.3 * page), 0.5 * i});
    auto made = mesh_of<vtkPolyData>(places);
    for (vtkIdType i = 0; i < n; ++i)
        for (vtkIdType page = 0; page < npages; ++page) {
            const vtkIdType in = i, out = (page + 1) * (n + 1) + i;
            if (page % 2 == 1) {
                add_cell(made.Get(), VTK_TRIANGLE, {in, out, out + 1});
                add_cell(made.Get(), VTK_TRIANGLE, {in, in + 1, out + 1});
            } else if (i % 3 == 0) {
                add_cell(made.Get(), VTK_QUAD, {in, out, out + 1, in + 1});
            } else {
                add_cell(made.Get(), VTK_QUAD, {in, in + 1, out + 1, out});
            }
        }
    return made;
}

// Cubes that share edges but no faces.
vtkSmartPointer<vtkUnstructuredGrid> stairs(int n)
{
    std::vector<std::array<double, 3>> places;
    for (int k = 0; k < 2; ++k)
        for (int j = 0; j <= n; ++j)
            for (int i = 0; i <= n; ++i)
                places.push_back({1.0 * i, 1.0 * j, 1.0 * k});
    auto made = mesh_of<vtkUnstructuredGrid>(places);
    for (vtkIdType s = 0; s < n; ++s) {
        const vtkIdType a = s * (n + 2), b = a + n + 1, up = (n + 1) * (n + 1);
        add_cell(made.Get(), VTK_HEXAHEDRON, {a, a + 1, b + 1, b, a + up, a + up + 1, b + up + 1, b + up});
    }
    return made;
}

using place = std::array<double, 3>;

std::vector<std::pair<place, place>> edges_in(const std::string &path)
{
    const auto data = read(path);
    std::vector<std::pair<place, place>> edges;
    vtkNew<vtkIdList> nodes;
    for (vtkIdType cell = 0; cell < data->GetNumberOfCells(); ++cell) {
        place a, b;
        data->GetCellPoints(cell, nodes);
        data->GetPoint(nodes->GetId(0), a.data());
        data->GetPoint(nodes->GetId(1), b.data());
        edges.emplace_back(std::min(a, b), std::max(a, b));
    }
    std::sort(edges.begin(), edges.end());
    return edges;
}

template <typename Cells> vtkSmartPointer<Cells> backwards(Cells *data)
{
    auto made = vtkSmartPointer<Cells>::New();
    made->SetPoints(data->GetPoints());
    made->AllocateEstimate(16, 8);
    vtkNew<vtkIdList> nodes;
    for (vtkIdType cell = data->GetNumberOfCells(); cell-- > 0;) {
        data->GetCellPoints(cell, nodes);
        made->InsertNextCell(data->GetCellType(cell), nodes);
    }
    return made;
}

// However cells are ordered and shared out.
template <typename Cells> void expect_edges(Cells *data, const char *angle, size_t count)
{
    const bool surface = vtkPolyData::SafeDownCast(data) != nullptr;
    const std::string end = surface ? "vtp" : "vtu", whole = scratch("edged." + end),
                      made = scratch("edges_made.vtp");
    SCOPED_TRACE(end + " at " + angle);
    write(whole, data);
    run_well({"boundary", whole, "--edges", angle, "-o", made});
    const auto expected = edges_in(made);
    EXPECT_EQ(expected.size(), count);
    write(whole, backwards(data));
    run_well({"boundary", whole, "--edges", angle, "-o", made});
    EXPECT_TRUE(edges_in(made) == expected);
    run_well({"boundary", whole, "--edges", angle, "--pieces", "3", "-o", made});
    EXPECT_TRUE(edges_in(made) == expected);
    for (const auto share : {cut_up::shares::runs, cut_up::shares::in_turn}) {
        const std::string list = cut_up::write_pieces(scratch("edged.p" + end), data, {4, share, {}, false});
        run_well({"boundary", list, "--edges", angle, "--pieces", "4", "-o", made});
        EXPECT_TRUE(edges_in(made) == expected);
        if (!has_mpirun()) continue;
        run_well_on(3, {"boundary", list, "--edges", angle, "-o", made});
        EXPECT_TRUE(edges_in(made) == expected);
    }
}

} // namespace

TEST(PartedSkinEdges, AreThoseOfTheWhole)
{
    expect_edges(one_sided_strip(24).Get(), "70", 48);     // its one border alone
    expect_edges(one_sided_strip(24).Get(), "0", 72);      // and those between its cells
    expect_edges(open_book(3, 9).Get(), "60", 3 * 11 + 9); // borders, and where all pages meet
    expect_edges(open_book(4, 9).Get(), "60", 4 * 11 + 9);
    expect_edges(open_book(2, 9).Get(), "60", 2 * 11 + 9);
    expect_edges(stairs(5).Get(), "60", 5 * 12 - 4);
}
