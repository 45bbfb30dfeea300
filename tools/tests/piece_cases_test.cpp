// What pieces may meet with: pieces of nothing, nodes without values on seams, hidden cells, places far from 0, threads,
// pictures. What comes out is what one process makes of the whole file.
#include "pieces_support.hpp"

#include <gtest/gtest.h>

#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkDoubleArray.h>
#include <vtkIdList.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPNGReader.h>
#include <vtkPointData.h>
#include <vtkPointSet.h>
#include <vtkPoints.h>
#include <vtkRectilinearGrid.h>
#include <vtkUnsignedCharArray.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>

namespace fs = std::filesystem;

namespace {

using cut_up::sample;
using cut_up::way;
using cut_up::words;

// With pieces of nothing, and more processes than pieces.
const way ways[] = {{{4, cut_up::shares::runs, {1}, false}, 2, 0},
                    {{2, cut_up::shares::runs, {}, false}, 3, 0},
                    {{6, cut_up::shares::runs, {0, 5}, true}, 0, 4},
                    {{1, cut_up::shares::runs, {}, false}, 5, 0}};

// The same sample in one file and in pieces.
struct both_files {
    std::string whole, cut;
};

both_files files_of(const std::string &name, vtkDataSet *data, const std::string &ending,
                    const cut_up::how &cut)
{
    both_files files = {scratch("one_" + name + "." + ending.substr(2)), scratch("cut_" + name + ending)};
    write(files.whole, data);
    cut_up::write_pieces(files.cut, data, cut);
    return files;
}

// A command on both, and its two results.
struct both_results {
    vtkSmartPointer<vtkDataSet> whole, pieces;
};

both_results run_both(const both_files &files, const way &how, const std::string &command, const words &rest,
                      const std::string &ending)
{
    const std::string one = scratch("of_one" + ending), all = scratch("of_all" + ending);
    fs::remove(one);
    fs::remove(all);
    run_well(words{command, files.whole} + rest + words{"-o", one});
    words line = words{command, files.cut} + rest + words{"-o", all};
    if (how.pieces > 0) line = line + words{"--pieces", std::to_string(how.pieces)};
    if (how.processes > 0)
        run_well_on(how.processes, line);
    else
        run_well(line);
    return fs::exists(one) && fs::exists(all) ? both_results{read(one), read(all)} : both_results{};
}

// Each cell by its type, the cell that it is of, and its middle; the means of arrays at its nodes behind.
std::vector<std::vector<double>> middles_of(vtkDataSet *data)
{
    std::vector<std::vector<double>> rows;
    vtkNew<vtkIdList> nodes;
    for (vtkIdType cell = 0; cell < data->GetNumberOfCells(); ++cell) {
        data->GetCellPoints(cell, nodes);
        const auto n = static_cast<double>(nodes->GetNumberOfIds());
        vtkDataArray *of = data->GetCellData()->GetArray("cell");
        std::vector<double> row = {static_cast<double>(data->GetCellType(cell)),
                                   n,
                                   of != nullptr ? of->GetComponent(cell, 0) : 0,
                                   0,
                                   0,
                                   0};
        vtkPointData *arrays = data->GetPointData();
        for (vtkIdType i = 0; i < nodes->GetNumberOfIds(); ++i) {
            double x[3];
            data->GetPoint(nodes->GetId(i), x);
            for (size_t d = 0; d < 3; ++d)
                row[3 + d] += x[d] / n;
        }
        for (const char *name : {"value", "exact", "flow", "count"}) {
            vtkDataArray *array = arrays->GetArray(name);
            if (array == nullptr) continue;
            row.push_back(0);
            for (vtkIdType i = 0; i < nodes->GetNumberOfIds(); ++i)
                row.back() += array->GetComponent(nodes->GetId(i), 0) / n;
        }
        rows.push_back(row);
    }
    std::sort(rows.begin(), rows.end(), [](const auto &a, const auto &b) {
        for (size_t i = 0; i < 6; ++i)
            if (std::abs(a[i] - b[i]) > (i < 3 ? 0 : 5e-6)) return a[i] < b[i];
        return false;
    });
    return rows;
}

// Nodes between two others go from one end to the other as the first cell of the edge does. On a seam that cell may be
// another, and then the last bits of places and values differ, of single precision by some units.
void expect_near_mesh(vtkDataSet *expected, vtkDataSet *got)
{
    const auto a = middles_of(expected), b = middles_of(got);
    ASSERT_EQ(a.size(), b.size());
    EXPECT_GE(got->GetNumberOfPoints(), expected->GetNumberOfPoints());
    for (size_t cell = 0; cell < a.size(); ++cell) {
        ASSERT_EQ(a[cell].size(), b[cell].size());
        for (size_t i = 0; i < a[cell].size(); ++i) {
            if (std::isnan(a[cell][i]) && std::isnan(b[cell][i])) continue;
            const bool cut_off = i == 9; // "count", of whole numbers
            ASSERT_NEAR(a[cell][i], b[cell][i], cut_off ? 1.01 : 3e-7 * (1 + std::abs(a[cell][i])))
                << cell << " " << i;
        }
    }
}

struct one_command {
    const char *name;
    words rest;
    const char *ending;
};

// ending: of the file that the sample is in.
void expect_as_whole(const both_files &files, const way &how, const one_command &one,
                     const std::string &ending)
{
    const std::string own = "." + ending.substr(2);
    SCOPED_TRACE(std::string(one.name) + " on " + std::to_string(how.processes) + ", --pieces " +
                 std::to_string(how.pieces) + ", of " + files.cut);
    const both_results made =
        run_both(files, how, one.name, one.rest, *one.ending == '\0' ? own : one.ending);
    ASSERT_NE(made.whole, nullptr);
    ASSERT_NE(made.pieces, nullptr);
    EXPECT_GT(made.whole->GetNumberOfCells(), 0);
    const bool lattice = own != ".vtu" && own != ".vtp";
    const std::string name = one.name;
    const bool cuts_edges =
        name == "iso" || name == "isoline" || name == "cut" || name == "band" || name == "slice";
    if (!lattice && cuts_edges)
        expect_near_mesh(made.whole, made.pieces);
    else // sums over the cells around a node too: pieces are stretches, and cells keep their order
        expect_same_mesh(made.whole, made.pieces);
}

vtkSmartPointer<vtkDataSet> copy_of(const sample &of)
{
    auto copy = vtkSmartPointer<vtkDataSet>::Take(of.whole->NewInstance());
    copy->DeepCopy(of.whole);
    return copy;
}

#define NEED_MPIRUN \
    if (!has_mpirun()) GTEST_SKIP() << "mpirun is not there"

} // namespace

// ---- pieces of nothing --------------------------------------------------------------------------------------------------

TEST(PartedCases, PiecesMayBeEmptyOrFewerThanProcesses)
{
    NEED_MPIRUN;
    const one_command all[] = {
        {"iso", {"--array", "value", "--level", "0.2,0.9"}, ".vtp"},
        {"cut", {"--array", "value", "--level", "0.4"}, ".vtu"},
        {"band", {"--array", "value", "--levels", "-1,0,0.5,3"}, ".vtu"},
        {"slice", {"--origin", "0.1,0,0.05", "--normal", "1,2,3"}, ".vtp"},
        {"threshold", {"--array", "value", "--min", "0.3", "--any"}, ".vtu"},
        {"threshold-null", {"--array", "node", "--null", "70"}, ".vtu"},
        {"clamp", {"--array", "value", "--max", "0.5"}, ""},
        {"clamp", {"--array", "flow", "--min", "0.1"}, ""},
    };
    size_t at = 0;
    for (const one_command &one : all)
        for (int times = 0; times < 3; ++times, at += 3) {
            const sample &of = cut_up::samples()[at % cut_up::samples().size()];
            const way &how = ways[(at / 3) % std::size(ways)];
            if (of.name == "surface" && std::string(one.name) == "iso") continue; // flat
            expect_as_whole(files_of(of.name, of.whole, of.ending, how.cut), how, one, of.ending);
            if (HasFailure()) return;
        }
}

TEST(PartedCases, LinesOnFlatMeshesMeet)
{
    NEED_MPIRUN;
    const one_command lines = {"isoline", {"--array", "value", "--level", "0.1,0.3,0.6"}, ".vtp"};
    const sample &surface = cut_up::sample_of("surface");
    for (const way &how : ways)
        expect_as_whole(files_of(surface.name, surface.whole, surface.ending, how.cut), how, lines,
                        surface.ending);
    for (const auto &[mesh, ending] :
         {std::pair("uniform", ".pvti"), std::pair("curvilinear", ".pvts"), std::pair("tri", ".pvtu")}) {
        const std::string path = scratch(std::string("flat.") + (ending + 2));
        run_well({"sample", "noisy-sphere", "--mesh", mesh, "--size", "17", "14", "1", "-o", path});
        const auto data = read(path);
        add_node_array(data, "value", [](const double *x) { return x[0] * x[1] + 0.3 * std::sin(4 * x[0]); });
        expect_as_whole(files_of(std::string("flat_") + mesh, data, ending, ways[1].cut), ways[1], lines,
                        ending);
    }
}

// A process whose piece has nodes and no cell that is left has the others' cell arrays too.
TEST(PartedCases, ArraysOutliveThePiecesWithoutCells)
{
    NEED_MPIRUN;
    const sample &of = cut_up::sample_of("hex");
    const auto data = copy_of(of);
    vtkDataArray *value = data->GetPointData()->GetArray("value");
    const vtkIdType n = data->GetNumberOfPoints();
    for (vtkIdType node = 0; node < n / 2; ++node) // the last of three has all its nodes
        if (node % 2 == 0) value->SetComponent(node, 0, 77);
    for (const int processes : {2, 3}) {
        const way how = {{3, cut_up::shares::runs, {}, false}, processes, 0};
        expect_as_whole(files_of("no_cells", data, of.ending, how.cut), how,
                        {"threshold-null", {"--array", "value", "--null", "77"}, ".vtu"}, of.ending);
    }
}

// One file of nothing is a file, with the arrays, whichever process has the piece.
TEST(PartedCases, ResultsMayBeOfNothing)
{
    NEED_MPIRUN;
    const sample &of = cut_up::sample_of("uniform");
    const both_files files = files_of("nothing", of.whole, of.ending, {1, cut_up::shares::runs, {}, false});
    for (const one_command &one : {one_command{"cut", {"--array", "value", "--level", "99"}, ".vtu"},
                                   one_command{"iso", {"--array", "value", "--level", "99"}, ".vtp"}}) {
        const both_results made =
            run_both(files, {{}, 13, 0}, one.name, one.rest, one.ending); // of 11 layers of cells
        ASSERT_NE(made.pieces, nullptr);
        EXPECT_EQ(made.pieces->GetNumberOfPoints(), 0);
        EXPECT_NE(made.whole->GetPointData()->GetArray("value"), nullptr);
        for (const char *array : {"value", "exact", "flow"})
            EXPECT_NE(made.pieces->GetPointData()->GetArray(array), nullptr) << array;
    }
}

// ---- nodes without a value ----------------------------------------------------------------------------------------------

TEST(PartedCases, NullsOnSeamsAreThoseOfTheWhole)
{
    NEED_MPIRUN;
    const words null = {"--null", "77"};
    const one_command all[] = {
        {"iso", words{"--array", "value", "--level", "0.2"} + null, ".vtp"},
        {"cut", words{"--array", "value", "--level", "0.4"} + null, ".vtu"},
        {"gradient", words{"--array", "value"} + null, ""},
        {"threshold-null", words{"--array", "value"} + null, ".vtu"},
        {"cell-to-node", words{"--array", "amount"} + null, ""},
        {"slice", {"--origin", "0.1,0,0.05", "--normal", "1,2,3"}, ".vtp"},
    };
    size_t at = 0;
    for (const char *name : {"uniform", "hex", "curvilinear", "tet"}) {
        const sample &of = cut_up::sample_of(name);
        const auto data = copy_of(of);
        vtkDataArray *value = data->GetPointData()->GetArray("value"),
                     *amount = data->GetCellData()->GetArray("amount");
        // every seam has some of them
        for (vtkIdType node = 0; node < data->GetNumberOfPoints(); node += 11)
            value->SetComponent(node, 0, node % 2 == 0 ? 77 : std::numeric_limits<double>::quiet_NaN());
        for (vtkIdType cell = 0; cell < data->GetNumberOfCells(); cell += 5)
            amount->SetComponent(cell, 0, 77);
        for (const one_command &one : all) {
            const way how = at % 2 == 0 ? way{{5, cut_up::shares::runs, {}, false}, 2, 0}
                                        : way{{3, cut_up::shares::runs, {}, true}, 0, 3};
            ++at;
            expect_as_whole(files_of(std::string("null_") + name, data, of.ending, how.cut), how, one,
                            of.ending);
            if (HasFailure()) return;
        }
    }
}

// ---- hidden cells -------------------------------------------------------------------------------------------------------

TEST(PartedCases, HiddenCellsStayHidden)
{
    NEED_MPIRUN;
    const one_command all[] = {
        {"iso", {"--array", "value", "--level", "0.2"}, ".vtp"},
        {"cut", {"--array", "value", "--level", "0.4"}, ".vtu"},
        {"boundary", {}, ".vtp"},
        {"probe", {"--line", "-1.4,-1.3,-1.2", "1.45,1.1,1.35", "300"}, ".vtp"},
        {"threshold", {"--array", "value", "--min", "-100"}, ".vtu"},
    };
    size_t at = 0;
    for (const char *name : {"uniform", "rectilinear", "hex"})
        for (const bool nodes : {false, true}) {
            const sample &of = cut_up::sample_of(name);
            const auto data = copy_of(of);
            vtkNew<vtkUnsignedCharArray> marks;
            marks->SetName(vtkDataSetAttributes::GhostArrayName());
            const vtkIdType n = nodes ? data->GetNumberOfPoints() : data->GetNumberOfCells();
            for (vtkIdType i = 0; i < n; ++i)
                marks->InsertNextValue(i % (nodes ? 97 : 7) != 3 ? 0
                                       : nodes
                                           ? static_cast<unsigned char>(vtkDataSetAttributes::HIDDENPOINT)
                                           : static_cast<unsigned char>(vtkDataSetAttributes::HIDDENCELL));
            if (nodes)
                data->GetPointData()->AddArray(marks);
            else
                data->GetCellData()->AddArray(marks);
            for (const one_command &one : all) {
                const way how = {
                    {3, cut_up::shares::runs, {}, false}, at % 2 == 0 ? 2 : 0, at % 2 == 0 ? 0 : 3};
                ++at;
                SCOPED_TRACE(nodes ? "nodes" : "cells");
                expect_as_whole(files_of(std::string("hidden_") + name, data, of.ending, how.cut), how, one,
                                of.ending);
                if (HasFailure()) return;
            }
        }
}

// ---- places far from 0 --------------------------------------------------------------------------------------------------

namespace {

constexpr double far_away[3] = {4.5e6, -3.1e6, 1.2e6};

// The sample there, in doubles: single precision has a digit left of its size.
vtkSmartPointer<vtkDataSet> moved_away(const sample &of)
{
    auto data = copy_of(of);
    if (auto *image = vtkImageData::SafeDownCast(data)) {
        double origin[3];
        image->GetOrigin(origin);
        image->SetOrigin(origin[0] + far_away[0], origin[1] + far_away[1], origin[2] + far_away[2]);
    } else if (auto *grid = vtkRectilinearGrid::SafeDownCast(data)) {
        for (int d = 0; d < 3; ++d) {
            vtkDataArray *from = d == 0   ? grid->GetXCoordinates()
                                 : d == 1 ? grid->GetYCoordinates()
                                          : grid->GetZCoordinates();
            vtkNew<vtkDoubleArray> to;
            for (vtkIdType i = 0; i < from->GetNumberOfTuples(); ++i)
                to->InsertNextValue(from->GetComponent(i, 0) + far_away[d]);
            if (d == 0) grid->SetXCoordinates(to);
            if (d == 1) grid->SetYCoordinates(to);
            if (d == 2) grid->SetZCoordinates(to);
        }
    } else if (auto *set = vtkPointSet::SafeDownCast(data)) {
        vtkNew<vtkPoints> to;
        to->SetDataTypeToDouble();
        for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i) {
            double x[3];
            data->GetPoint(i, x);
            to->InsertNextPoint(x[0] + far_away[0], x[1] + far_away[1], x[2] + far_away[2]);
        }
        set->SetPoints(to);
    }
    return data;
}

std::string away(double x, double y, double z)
{
    char text[100];
    snprintf(text, sizeof text, "%.9g,%.9g,%.9g", x + far_away[0], y + far_away[1], z + far_away[2]);
    return text;
}

} // namespace

TEST(PartedCases, FarPlacesAreShiftedAlike)
{
    NEED_MPIRUN;
    const one_command all[] = {
        {"iso", {"--array", "value", "--level", "0.2"}, ".vtp"},
        {"cut", {"--array", "value", "--level", "0.4"}, ".vtu"},
        {"slice", {"--origin", away(0.1, 0, 0.05), "--normal", "1,2,3"}, ".vtp"},
        {"gradient", {"--array", "value"}, ""},
        {"boundary", {}, ".vtp"},
        {"probe", {"--line", away(-1.4, -1.3, -1.2), away(1.45, 1.1, 1.35), "200"}, ".vtp"},
        {"glyph", {"--vectors", "flow"}, ".vtp"},
    };
    size_t at = 0;
    for (const char *name : {"uniform", "rectilinear", "curvilinear", "hex", "second"}) {
        const sample &of = cut_up::sample_of(name);
        const auto data = moved_away(of);
        for (size_t i = 0; i < std::size(all); ++i) {
            if ((i + at) % 2 == 1 && i > 0) continue; // each with every other kind
            const way how = at % 2 == 0 ? way{{4, cut_up::shares::runs, {}, false}, 2, 0}
                                        : way{{4, cut_up::shares::runs, {}, false}, 0, 3};
            expect_as_whole(files_of(std::string("far_") + name, data, of.ending, how.cut), how, all[i],
                            of.ending);
            if (HasFailure()) return;
        }
        ++at;
    }
}

// ---- threads ------------------------------------------------------------------------------------------------------------

TEST(PartedCases, ThreadsOfProcessesMakeTheSameBytes)
{
    NEED_MPIRUN;
    const std::string path = scratch("threads.vti");
    run_well({"sample", "hydrogen", "--size", "60", "-o", path});
    const struct {
        words line;
        std::vector<std::string> results;
    } all[] = {{{"iso", path, "--array", "psi", "-l", "0.001,0.003", "-o", scratch("threads.pvtp")},
                {"threads.pvtp", "threads_0.vtp", "threads_1.vtp"}},
               {{"cut", path, "--array", "psi", "-l", "0.001", "-o", scratch("threads.pvtu")},
                {"threads.pvtu", "threads_0.vtu", "threads_1.vtu"}},
               {{"probe", path, "--line", "-9,-8,-7", "9,8,9", "90000", "-o", scratch("threads.vtp")},
                {"threads.vtp"}}};
    for (const auto &one : all) {
        std::vector<std::string> expected;
        for (const char *threads : {"1", "2", "5"}) {
            SCOPED_TRACE(one.line[0] + " with threads " + threads);
            run_well_on(2, one.line + words{"--threads", threads});
            for (size_t i = 0; i < one.results.size(); ++i) {
                const std::string bytes = bytes_of(scratch(one.results[i]));
                EXPECT_FALSE(bytes.empty());
                if (expected.size() == i) expected.push_back(bytes);
                EXPECT_TRUE(bytes == expected[i]) << one.results[i];
            }
        }
    }
}

// ---- pictures -----------------------------------------------------------------------------------------------------------

namespace {

// The share of the pixels that differ by more than a rounding. Faces that are drawn in another order are other on edges.
double share_apart(const std::string &path, const std::string &other)
{
    vtkSmartPointer<vtkImageData> images[2];
    for (const auto &[name, i] : {std::pair(&path, 0), std::pair(&other, 1)}) {
        vtkNew<vtkPNGReader> reader;
        reader->SetFileName(name->c_str());
        reader->Update();
        images[i] = reader->GetOutput();
    }
    int size[3];
    images[0]->GetDimensions(size);
    EXPECT_EQ(size[0], 320);
    EXPECT_EQ(images[1]->GetNumberOfPoints(), images[0]->GetNumberOfPoints());
    const auto *a = static_cast<unsigned char *>(images[0]->GetScalarPointer()),
               *b = static_cast<unsigned char *>(images[1]->GetScalarPointer());
    vtkIdType apart = 0;
    for (vtkIdType i = 0; i < 3 * images[0]->GetNumberOfPoints(); i += 3)
        for (vtkIdType c = i; c < i + 3; ++c)
            if (std::abs(a[c] - b[c]) > 8) {
                ++apart;
                break;
            }
    return static_cast<double>(apart) / static_cast<double>(images[0]->GetNumberOfPoints());
}

} // namespace

TEST(PartedCases, PicturesAreThoseOfTheWhole)
{
    NEED_MPIRUN;
    const struct {
        const char *command, *of;
        words rest;
    } all[] = {
        {"gradient", "hex", {"--array", "value"}},
        {"curl", "uniform", {"--array", "flow"}},
        {"cell-to-node", "curvilinear", {"--array", "amount"}},
        {"boundary", "mixed", {"--with", "value"}},
        {"stream",
         "hex",
         {"--vectors", "flow", "--both", "--seeds-line", "-1.1,-0.9,-0.8", "1.2,0.8,0.7", "9"}},
        {"glyph", "uniform", {"--vectors", "flow", "--every", "29", "--shape", "cone"}},
        {"threshold", "tet", {"--array", "value", "--min", "0.2", "--any"}},
    };
    size_t at = 0;
    for (const auto &one : all) {
        const sample &of = cut_up::sample_of(one.of);
        const std::string whole = scratch("whole.png"), parted = scratch("parted.png");
        const bool several = at++ % 2 == 0;
        SCOPED_TRACE(std::string(one.command) + (several ? " on two processes" : " in three pieces"));
        const both_files files = files_of(std::string("drawn_") + one.of, of.whole, of.ending,
                                          {3, cut_up::shares::runs, {}, false});
        const words with = one.rest + words{"--size", "320x240", "--picture"};
        fs::remove(parted);
        run_well(words{one.command, files.whole} + with + words{whole});
        if (several)
            run_well_on(2, words{one.command, files.cut} + with + words{parted});
        else
            run_well(words{one.command, files.cut} + with + words{parted, "--pieces", "3"});
        ASSERT_TRUE(fs::exists(parted));
        EXPECT_LT(share_apart(whole, parted), 0.002);
    }
}
