// Lists of pieces in a plain start: what a command makes of one is what it makes of the file that was cut up.
#include "pieces_support.hpp"

#include <gtest/gtest.h>

#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkDataSetAttributes.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPointSet.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkUnsignedCharArray.h>
#include <vtkUnstructuredGrid.h>

#include <cmath>
#include <map>

namespace {

using cut_up::sample;
using cut_up::words;

// Written anew each time: tests of one process may change a sample.
std::string whole_file(const std::string &name, vtkDataSet *data, const std::string &ending)
{
    std::string path = scratch("uncut_" + name + ending);
    write(path, data);
    return path;
}

// The mean of each node array, in the order of names.
std::vector<double> means_at_nodes(vtkDataSet *data)
{
    std::map<std::string, double> means;
    for (int i = 0; i < data->GetPointData()->GetNumberOfArrays(); ++i) {
        vtkDataArray *array = data->GetPointData()->GetArray(i);
        for (int c = 0; c < array->GetNumberOfComponents(); ++c)
            for (vtkIdType node = 0; node < array->GetNumberOfTuples(); ++node)
                if (const double value = array->GetComponent(node, c); !std::isnan(value))
                    means[array->GetName() + std::to_string(c)] +=
                        value / static_cast<double>(array->GetNumberOfTuples());
    }
    std::vector<double> all;
    all.reserve(means.size());
    for (const auto &[name, mean] : means)
        all.push_back(mean);
    return all;
}

// Where nodes have other numbers, what is worked out between two of them differs in the last digit.
void expect_alike(vtkDataSet *expected, vtkDataSet *got)
{
    EXPECT_EQ(got->GetNumberOfPoints(), expected->GetNumberOfPoints());
    EXPECT_EQ(got->GetNumberOfCells(), expected->GetNumberOfCells());
    const std::vector<double> a = means_at_nodes(expected), b = means_at_nodes(got);
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i)
        EXPECT_NEAR(a[i], b[i], 1e-5 * std::abs(a[i]) + 1e-6) << i;
}

struct one_command {
    const char *name;
    words arguments;    // behind the file
    const char *ending; // of the result; empty: that of the input
    bool exact = false; // whatever the nodes' numbers are
};

// Of any mesh of cells with an area or a volume.
const one_command commands[] = {
    {"iso", {"--array", "value", "--level", "0.4"}, ".vtp"},
    {"cut", {"--array", "value", "--level", "0.4"}, ".vtu"},
    {"gradient", {"--array", "value"}, ""},
    {"cell-to-node", {"--array", "amount"}, ""},
    {"boundary", {}, ".vtp", true},
    {"clamp", {"--array", "value", "--min", "0", "--max", "1"}, "", true},
    {"threshold", {"--array", "value", "--min", "0.4", "--any"}, ".vtu", true},
};

void expect_like_whole(const sample &of, vtkDataSet *data, const std::string &list)
{
    const std::string end = cut_up::whole_ending(of), whole = whole_file(of.name, data, end);
    EXPECT_EQ(run_well({"measure", list}).out, run_well({"measure", whole}).out);
    for (const one_command &one : commands) {
        SCOPED_TRACE(one.name);
        if (of.ending == ".pvtp" && std::string(one.name) == "iso") continue;
        const std::string ending = *one.ending != '\0' ? one.ending : end;
        const std::string expected = scratch("of_whole" + ending), made = scratch("of_list" + ending);
        run_well(words{one.name, whole} + one.arguments + words{"-o", expected});
        run_well(words{one.name, list} + one.arguments + words{"-o", made});
        if (one.exact || (of.ending != ".pvtu" && of.ending != ".pvtp"))
            expect_same_mesh(read(expected), read(made));
        else
            expect_alike(read(expected), read(made));
        if (testing::Test::HasFailure()) return;
    }
}

class PlainListsOfKind : public testing::TestWithParam<const char *> {};

cut_up::how in_runs(int count)
{
    return {count, cut_up::shares::runs, {}, false};
}

// Hides each cell whose number every divides.
vtkSmartPointer<vtkDataSet> with_hidden_cells(vtkDataSet *data, vtkIdType every)
{
    auto made = vtkSmartPointer<vtkDataSet>::Take(data->NewInstance());
    made->ShallowCopy(data);
    vtkNew<vtkUnsignedCharArray> marks;
    marks->SetName(vtkDataSetAttributes::GhostArrayName());
    for (vtkIdType cell = 0; cell < data->GetNumberOfCells(); ++cell)
        marks->InsertNextValue(cell % every == 0
                                   ? static_cast<unsigned char>(vtkDataSetAttributes::HIDDENCELL)
                                   : static_cast<unsigned char>(0));
    made->GetCellData()->AddArray(marks);
    return made;
}

} // namespace

TEST_P(PlainListsOfKind, AreTheWhole)
{
    const sample &of = cut_up::sample_of(GetParam());
    for (const bool ghosts : {false, true}) {
        SCOPED_TRACE(ghosts ? "with ghosts" : "without ghosts");
        const bool lattice = of.ending != ".pvtu" && of.ending != ".pvtp";
        const cut_up::how cut = {4, lattice ? cut_up::shares::by_place : cut_up::shares::runs, {2}, ghosts};
        expect_like_whole(of, of.whole, cut_up::write_pieces(scratch("plain" + of.ending), of.whole, cut));
    }
}
INSTANTIATE_TEST_SUITE_P(Kinds, PlainListsOfKind,
                         testing::Values("uniform", "rectilinear", "curvilinear", "hex", "tet", "second",
                                         "mixed", "surface"),
                         [](const auto &of) { return std::string(of.param); });

// Every node is on a seam, of several pieces.
TEST(PlainLists, MergeNodesOfAllPieces)
{
    for (const char *name : {"tet", "mixed", "surface"})
        for (const bool ghosts : {false, true}) {
            const sample &of = cut_up::sample_of(name);
            SCOPED_TRACE(name + std::string(ghosts ? " with ghosts" : ""));
            const std::string list = cut_up::write_pieces(scratch("turns" + of.ending), of.whole,
                                                          {6, cut_up::shares::in_turn, {}, ghosts}),
                              made = scratch("turns_made" + cut_up::whole_ending(of)),
                              joined = scratch("turns_joined" + cut_up::whole_ending(of));
            run_well({"clamp", list, "--array", "value", "--min", "-100", "-o", made});
            expect_same_mesh(of.whole, read(made));
            run_well({"clamp", list, "--array", "value", "--min", "-100", "-o", joined, "--pieces", "3"});
            expect_same_mesh(read(joined), read(made));
        }
}

// What a file hides stays hidden, where marks of copies stand beside those of hidden cells and where pieces have none.
TEST(PlainLists, HideWhatIsHidden)
{
    for (const sample &of : cut_up::samples()) {
        const auto hidden = with_hidden_cells(of.whole, of.whole->GetNumberOfCells() / 3);
        SCOPED_TRACE(of.name);
        const std::string list = cut_up::write_pieces(scratch("hiding" + of.ending), hidden, in_runs(5));
        const std::string whole = whole_file("hiding", hidden, cut_up::whole_ending(of));
        EXPECT_EQ(run_well({"measure", list}).out, run_well({"measure", whole}).out);
        EXPECT_NE(run_well({"measure", whole}).out,
                  run_well({"measure", whole_file("seen", of.whole, cut_up::whole_ending(of))}).out);
        const std::string expected = scratch("seen.vtp"), made = scratch("seen_of_list.vtp");
        run_well({"boundary", whole, "-o", expected});
        run_well({"boundary", list, "-o", made});
        expect_same_mesh(read(expected), read(made));
    }
}

// Nodes at one place with values of their own: the first piece's count, and it is told. Where they have other global
// numbers they are two.
TEST(PlainLists, TellOfOtherValuesOnSeams)
{
    const sample &of = cut_up::sample_of("hex");
    const std::string list = cut_up::write_pieces(scratch("values.pvtu"), of.whole, in_runs(2));
    const std::string second = cut_up::piece_path(list, 1);
    const auto piece = read(second);
    for (vtkIdType node = 0; node < piece->GetNumberOfPoints(); ++node)
        piece->GetPointData()->GetArray("value")->SetComponent(node, 0, 1000);
    write(second, piece);
    const ran told =
        run_well({"clamp", list, "--array", "value", "--min", "-100", "-o", scratch("values.vtu")});
    EXPECT_NE(told.err.find("node(s) on seams have other values in another piece"), std::string::npos)
        << told.err;
    EXPECT_EQ(read(scratch("values.vtu"))->GetNumberOfPoints(), of.whole->GetNumberOfPoints());

    for (int p = 0; p < 2; ++p) {
        const auto numbered = read(cut_up::piece_path(list, p));
        vtkDataArray *numbers = numbered->GetPointData()->GetArray("node");
        for (vtkIdType node = 0; node < numbers->GetNumberOfTuples(); ++node)
            numbers->SetComponent(node, 0, numbers->GetComponent(node, 0) + 10000 * p);
        numbered->GetPointData()->SetGlobalIds(numbers);
        write(cut_up::piece_path(list, p), numbered);
    }
    run_well({"clamp", list, "--array", "value", "--min", "-100", "-o", scratch("numbered.vtu")});
    EXPECT_EQ(read(scratch("numbered.vtu"))->GetNumberOfPoints(),
              read(cut_up::piece_path(list, 0))->GetNumberOfPoints() +
                  read(cut_up::piece_path(list, 1))->GetNumberOfPoints());
}

// Places that are no numbers are at no place.
TEST(PlainLists, KeepNodesWithoutAPlace)
{
    const sample &of = cut_up::sample_of("tet");
    const std::string list = cut_up::write_pieces(scratch("nowhere.pvtu"), of.whole, in_runs(3));
    for (int p = 0; p < 3; ++p) {
        const auto piece = read(cut_up::piece_path(list, p));
        auto *points = vtkPointSet::SafeDownCast(piece)->GetPoints();
        for (vtkIdType node = 0; node < points->GetNumberOfPoints(); node += 2)
            points->SetPoint(node, std::nan(""), 0, 0);
        write(cut_up::piece_path(list, p), piece);
    }
    const ran told = run({"info", list});
    EXPECT_LT(told.code, 128) << shown(told);
}

TEST(PlainLists, RefuseWhatCannotBe)
{
    const sample &of = cut_up::sample_of("hex");
    const std::string list = cut_up::write_pieces(scratch("refused.pvtu"), of.whole, in_runs(2));
    EXPECT_NE(run({"info", list, "--step", "1"}).err.find("has time steps 0 to 0"), std::string::npos);
    EXPECT_NE(run({"info", list, "--block", "1"}).err.find("is a single block"), std::string::npos);
    const std::string text = bytes_of(list), first = "refused_0.vtu", second = "refused_1.vtu";
    const auto with = [&](const std::string &from, const std::string &to) {
        std::string changed = text;
        changed.replace(changed.find(from), from.size(), to);
        write_bytes(list, changed);
        ran told = run({"measure", list});
        EXPECT_EQ(told.code, 1) << shown(told);
        return told.err;
    };
    EXPECT_NE(with(first, "refused.pvtu").find("is a list of pieces itself"), std::string::npos);
    EXPECT_NE(with(first, "absent_0.vtu").find("absent_0.vtu"), std::string::npos);
    EXPECT_NE(with("Name=\"exact\"", "Name=\"other\"").find("has no node array other"), std::string::npos);
    const auto other = read(cut_up::piece_path(list, 1));
    const auto kept = vtkSmartPointer<vtkDataArray>(node_array(other, "count"));
    const auto odd = vtkSmartPointer<vtkDataArray>::Take(vtkDataArray::CreateDataArray(VTK_DOUBLE));
    odd->DeepCopy(kept);
    other->GetPointData()->AddArray(odd);
    write(cut_up::piece_path(list, 1), other);
    EXPECT_NE(with(second, second).find("node array count is not of one type in all its pieces"),
              std::string::npos);
}

// A list without files, and one whose files are all empty.
TEST(PlainLists, WithNothingAreRefused)
{
    const sample &of = cut_up::sample_of("hex");
    const std::string list = cut_up::write_pieces(scratch("nothing.pvtu"), of.whole, in_runs(2));
    for (int p = 0; p < 2; ++p) {
        vtkNew<vtkUnstructuredGrid> none;
        none->SetPoints(vtkNew<vtkPoints>());
        write(cut_up::piece_path(list, p), none);
    }
    ran told = run({"info", list});
    EXPECT_EQ(told.code, 1);
    EXPECT_NE(told.err.find("holds no nodes"), std::string::npos) << told.err;
    write_bytes(list, "<VTKFile type=\"PUnstructuredGrid\"><PUnstructuredGrid/></VTKFile>\n");
    told = run({"info", list});
    EXPECT_EQ(told.code, 1);
    EXPECT_NE(told.err.find("lists no pieces"), std::string::npos) << told.err;
}
