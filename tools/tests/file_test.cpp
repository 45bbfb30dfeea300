// What is read, however it is stored, and what is written.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSetAttributes.h>
#include <vtkExodusIIWriter.h>
#include <vtkImageData.h>
#include <vtkMatrix3x3.h>
#include <vtkMultiBlockDataSet.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkRectilinearGrid.h>
#include <vtkStringArray.h>
#include <vtkStructuredGrid.h>
#include <vtkXMLMultiBlockDataWriter.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

bool holds(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

std::string made(const char *mesh, const std::string &name, const char *size = "9")
{
    std::string path = scratch(name);
    run_well({"sample", "noisy-sphere", "--mesh", mesh, "--size", size, "-o", path});
    return path;
}

// ---- what is written ----------------------------------------------------------------------------------------

TEST(Output, IsTheSameSurfaceInEveryFormat)
{
    const std::string path = made("uniform", "solid.vti", "16");
    for (const char *ending : {".vtp", ".ply", ".stl"})
        run_well({"iso", path, "-l", "0", "-o", scratch("surface" + std::string(ending))});
    const auto vtp = read_surface(scratch("surface.vtp"));
    ASSERT_GT(vtp->GetNumberOfPolys(), 500);
    for (const char *ending : {".ply", ".stl"}) {
        const auto other = read_surface(scratch("surface" + std::string(ending)));
        EXPECT_EQ(other->GetNumberOfPolys(), vtp->GetNumberOfPolys()) << ending;
        EXPECT_NEAR(area_of(other), area_of(vtp), 1e-5 * area_of(vtp)) << ending;
    }
    const std::string xml = bytes_of(scratch("surface.vtp"));
    EXPECT_TRUE(holds(xml.substr(0, 400), "vtkZLibDataCompressor"));
    EXPECT_TRUE(holds(xml, "encoding=\"raw\"")) << "binary as it is";
}

TEST(Output, ReplacesAFileWholeAndLeavesNothingBeside)
{
    const std::string path = made("uniform", "again.vti"), out = scratch("again.vtp");
    write_bytes(out, "an older result");
    run_well({"iso", path, "-l", "0", "-o", out});
    EXPECT_GT(read_surface(out)->GetNumberOfPolys(), 0);
    for (const std::string &name : files_in_scratch())
        EXPECT_FALSE(holds(name, ".part")) << name;
}

TEST(Output, IsTheSameOnEveryRun)
{
    const std::string path = made("tet", "twice.vtu");
    run_well({"iso", path, "-l", "0", "-o", scratch("once.ply")});
    run_well({"--threads", "3", "iso", path, "-l", "0", "-o", scratch("twice.ply")});
    EXPECT_EQ(bytes_of(scratch("once.ply")), bytes_of(scratch("twice.ply")));
}

// ---- what is read -------------------------------------------------------------------------------------------

TEST(Input, IsTheSameMeshFromEveryFormat)
{
    const char *const cases[][3] = {{"uniform", ".vti", ".vtk"},
                                    {"rectilinear", ".vtr", ".vtk"},
                                    {"curvilinear", ".vts", ".vtk"},
                                    {"hex", ".vtu", ".vtk"}};
    for (const auto &one : cases) {
        const std::string xml = made(one[0], std::string("format") + one[1]);
        const auto data = read(xml);
        write(scratch("format.vtk"), data);
        run_well({"iso", xml, "-l", "0.1", "-o", scratch("xml.vtp")});
        run_well({"iso", scratch("format.vtk"), "-l", "0.1", "-o", scratch("legacy.vtp")});
        const auto a = read_surface(scratch("xml.vtp")), b = read_surface(scratch("legacy.vtp"));
        EXPECT_EQ(a->GetNumberOfPolys(), b->GetNumberOfPolys()) << one[0];
        EXPECT_NEAR(area_of(a), area_of(b), 1e-4 * area_of(a)) << one[0];
    }
}

TEST(Input, IsKnownByItsContentWhateverItsEnding)
{
    const std::string path = made("uniform", "content.vti");
    write_bytes(scratch("content.dat"), bytes_of(path));
    const ran result = run_well({"info", scratch("content.dat")});
    EXPECT_TRUE(holds(result.out, "mesh:  uniform, 9 x 9 x 9 nodes")) << shown(result);
}

TEST(Input, FromExodus)
{
    const std::string path = made("hex", "blocks.vtu"), exodus = scratch("blocks.exo");
    vtkNew<vtkExodusIIWriter> writer;
    writer->SetInputData(read(path));
    writer->SetFileName(exodus.c_str());
    writer->Write();
    run_well({"iso", path, "-l", "0.1", "-o", scratch("vtu.vtp")});
    run_well({"iso", exodus, "-a", "height", "-l", "0.1", "-o", scratch("exodus.vtp")});
    const auto a = read_surface(scratch("vtu.vtp")), b = read_surface(scratch("exodus.vtp"));
    EXPECT_EQ(a->GetNumberOfPolys(), b->GetNumberOfPolys());
    EXPECT_NEAR(area_of(a), area_of(b), 1e-5 * area_of(a));
}

TEST(Input, OfSeveralBlocksIsOneMeshOrOneOfThem)
{
    vtkNew<vtkMultiBlockDataSet> blocks;
    double area = 0;
    for (int i = 0; i < 2; ++i) {
        const auto data = read(made("uniform", "block.vti"));
        auto *image = vtkImageData::SafeDownCast(data);
        image->SetOrigin(i * 3 - 1.5, -1.5, -1.5);
        area += area_of(contour(image, "height", {0.1}));
        blocks->SetBlock(static_cast<unsigned>(i), image);
    }
    vtkNew<vtkXMLMultiBlockDataWriter> writer;
    writer->SetInputData(blocks);
    writer->SetFileName(scratch("two.vtm").c_str());
    writer->Write();
    const ran result = run_well({"iso", scratch("two.vtm"), "-l", "0.1", "-o", scratch("two.vtp")});
    EXPECT_TRUE(holds(result.err, "2 blocks taken as one mesh")) << shown(result);
    EXPECT_NEAR(area_of(read_surface(scratch("two.vtp"))), area, 0.01 * area);
    run_well({"iso", scratch("two.vtm"), "--block", "1", "-l", "0.1", "-o", scratch("one.vtp")});
    EXPECT_NEAR(area_of(read_surface(scratch("one.vtp"))), area / 2, 0.01 * area);
    const ran beyond = run({"info", scratch("two.vtm"), "--block", "2"});
    EXPECT_EQ(beyond.code, 1);
    EXPECT_TRUE(holds(beyond.err, "has blocks 0 to 1, not 2")) << shown(beyond);
}

// Lattices that no compact description fits take the road of the curvilinear ones.
TEST(Input, OfTurnedImagesAndDescendingAxes)
{
    const auto data = read(made("uniform", "plain.vti"));
    auto *image = vtkImageData::SafeDownCast(data);
    const double turn[9] = {0, -1, 0, 1, 0, 0, 0, 0, 1};
    image->GetDirectionMatrix()->DeepCopy(turn);
    write(scratch("turned.vti"), image);
    ran result = run_well({"info", scratch("turned.vti")});
    EXPECT_TRUE(holds(result.out, "curvilinear, 9 x 9 x 9")) << shown(result);
    run_well({"iso", scratch("turned.vti"), "-l", "0.1", "-o", scratch("turned.vtp")});
    const auto ours = read_surface(scratch("turned.vtp")), theirs = contour(image, "height", {0.1});
    EXPECT_NEAR(area_of(ours), area_of(theirs), 5e-3 * area_of(theirs));
    // the filter leaves the turn out: around the first node, x becomes y, and y the other way x
    const double *box = theirs->GetBounds();
    const double expected[6] = {-3 - box[3], -3 - box[2], box[0], box[1], box[4], box[5]};
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(ours->GetBounds()[i], expected[i], 1e-4);

    const auto rectilinear = read(made("rectilinear", "up.vtr"));
    auto *grid = vtkRectilinearGrid::SafeDownCast(rectilinear);
    vtkDataArray *x = grid->GetXCoordinates();
    for (vtkIdType i = 0; i < x->GetNumberOfTuples(); ++i)
        x->SetComponent(i, 0, -x->GetComponent(i, 0));
    write(scratch("down.vtr"), grid);
    result = run_well({"info", scratch("down.vtr")});
    EXPECT_TRUE(holds(result.out, "curvilinear, 9 x 9 x 9")) << shown(result);
    run_well({"iso", scratch("down.vtr"), "-l", "0.1", "-o", scratch("down.vtp")});
    EXPECT_NEAR(area_of(read_surface(scratch("down.vtp"))), area_of(contour(grid, "height", {0.1})), 0.05);
}

TEST(Input, OfFlatImagesAlongAnyAxis)
{
    for (int axis = 0; axis < 3; ++axis) {
        vtkNew<vtkImageData> image;
        int dims[3] = {12, 12, 12};
        dims[axis] = 1;
        image->SetDimensions(dims);
        add_node_array(image, "waves", [](const double *x) {
            return std::sin(0.7 * x[0]) + std::cos(0.5 * x[1] + 0.3) + std::sin(0.6 * x[2]);
        });
        write(scratch("flat.vti"), image);
        run_well({"isoline", scratch("flat.vti"), "-l", "0.8", "-o", scratch("flat.vtp")});
        const auto ours = read_surface(scratch("flat.vtp")), theirs = contour(image, "waves", {0.8});
        ASSERT_GT(length_of(theirs), 5);
        EXPECT_NEAR(length_of(ours), length_of(theirs), 1e-3 * length_of(theirs)) << "axis " << axis;
    }
}

TEST(Input, WithoutItsHiddenCells)
{
    for (const char *mesh : {"uniform", "curvilinear", "hex"}) {
        const std::string ending = mesh == std::string("uniform") ? ".vti"
                                   : mesh == std::string("hex")   ? ".vtu"
                                                                  : ".vts";
        const auto data = read(made(mesh, "seen" + ending));
        data->AllocateCellGhostArray();
        auto *marks = data->GetCellGhostArray();
        vtkIdType hidden = 0;
        for (vtkIdType c = 0; c < data->GetNumberOfCells(); ++c)
            if (c % 3 == 0) {
                marks->SetValue(c, vtkDataSetAttributes::HIDDENCELL);
                ++hidden;
            }
        number_all(data);
        write(scratch("hidden" + ending), data);
        const ran result = run_well(
            {"iso", scratch("hidden" + ending), "-a", "height", "-l", "0.1", "-o", scratch("hidden.vtp")});
        EXPECT_TRUE(holds(result.err, "left out: " + std::to_string(hidden) + " hidden or duplicate cell(s)"))
            << shown(result);
        const auto ours = read_surface(scratch("hidden.vtp"));
        vtkDataArray *cell = cell_array(ours, "cell");
        ASSERT_GT(cell->GetNumberOfTuples(), 50);
        for (vtkIdType i = 0; i < cell->GetNumberOfTuples(); ++i)
            ASSERT_NE(static_cast<vtkIdType>(cell->GetComponent(i, 0)) % 3, 0) << mesh;
    }
}

TEST(Input, KeepsItsTypesAndWidensTheOthersWithANote)
{
    const struct {
        int type;
        const char *told;
        int back;
    } cases[] = {{VTK_SIGNED_CHAR, ": char,", VTK_SIGNED_CHAR},
                 {VTK_UNSIGNED_CHAR, ": byte,", VTK_UNSIGNED_CHAR},
                 {VTK_SHORT, ": short,", VTK_SHORT},
                 {VTK_INT, ": int,", VTK_INT},
                 {VTK_FLOAT, ": float,", VTK_FLOAT},
                 {VTK_DOUBLE, ": double,", VTK_DOUBLE},
                 {VTK_LONG_LONG, ": long,", VTK_LONG_LONG},
                 {VTK_UNSIGNED_SHORT, ": unsigned short, taken as int,", VTK_INT},
                 {VTK_UNSIGNED_INT, ": unsigned int, taken as long,", VTK_LONG_LONG},
                 {VTK_UNSIGNED_LONG_LONG, "taken as long,", VTK_LONG_LONG}};
    for (const auto &one : cases) {
        vtkNew<vtkImageData> image;
        image->SetDimensions(4, 4, 4);
        image->AllocateScalars(one.type, 1);
        vtkDataArray *values = image->GetPointData()->GetScalars();
        values->SetName("any");
        for (vtkIdType i = 0; i < 64; ++i)
            values->SetComponent(i, 0, static_cast<double>(i));
        write(scratch("type.vti"), image);
        const ran told = run_well({"info", scratch("type.vti")});
        EXPECT_TRUE(holds(told.out, one.told)) << shown(told);
        EXPECT_TRUE(holds(told.out, "0 .. 63")) << shown(told);
        run_well({"iso", scratch("type.vti"), "-l", "31.5", "-o", scratch("type.vtp")});
        const auto ours = read_surface(scratch("type.vtp")), theirs = contour(image, "any", {31.5});
        EXPECT_NEAR(area_of(ours), area_of(theirs), 1e-4 * area_of(theirs));
        vtkDataArray *any = node_array(ours, "any");
        EXPECT_EQ(any->GetDataTypeSize(), vtkDataArray::GetDataTypeSize(one.back)) << one.told;
        EXPECT_EQ(any->GetDataTypeMin(), vtkDataArray::GetDataTypeMin(one.back)) << one.told;
    }
}

TEST(Input, WithTooLargeUnsignedNumbers)
{
    vtkNew<vtkImageData> image;
    image->SetDimensions(2, 2, 2);
    image->AllocateScalars(VTK_UNSIGNED_LONG_LONG, 1);
    for (int i = 0; i < 8; ++i)
        static_cast<unsigned long long *>(image->GetScalarPointer())[i] = i % 2 == 0 ? 0 : ~0ull;
    image->GetPointData()->GetScalars()->SetName("any");
    write(scratch("large.vti"), image);
    const ran told = run_well({"info", scratch("large.vti")});
    EXPECT_TRUE(holds(told.out, "taken as double, 0 .. 1.84467e+19")) << shown(told);
}

// Steps of a thousandth at 5e8, where float knows steps of 32.
TEST(Input, WithCoordinatesThatFloatCannotHoldApartIsWorkedOnNear0)
{
    vtkNew<vtkImageData> image;
    image->SetDimensions(9, 9, 9);
    image->SetSpacing(1e-3, 1e-3, 1e-3);
    add_node_array(image, "any", [](const double *x) { return 1000 * x[0] + 100 * x[1]; });
    const auto near_result = scratch("near.vtp");
    write(scratch("near.vti"), image);
    image->SetOrigin(5e8, -4e6, 0);
    write(scratch("far.vti"), image);
    vtkNew<vtkPoints> points;
    points->SetDataTypeToDouble();
    for (vtkIdType i = 0; i < image->GetNumberOfPoints(); ++i)
        points->InsertNextPoint(image->GetPoint(i));
    vtkNew<vtkStructuredGrid> grid;
    grid->SetDimensions(9, 9, 9);
    grid->SetPoints(points);
    grid->GetPointData()->ShallowCopy(image->GetPointData());
    write(scratch("far.vts"), grid);
    run_well({"iso", scratch("near.vti"), "-l", "3.25", "-o", near_result});
    const auto from_near = read_surface(near_result);
    for (const char *ending : {".vti", ".vts"}) {
        const ran told =
            run_well({"iso", scratch("far" + std::string(ending)), "-l", "3.25", "-o", scratch("far.vtp")});
        EXPECT_TRUE(
            holds(told.err, "note: float cannot hold the coordinates apart; worked on around 500000000,"))
            << shown(told);
        const auto from_far = read_surface(scratch("far.vtp"));
        EXPECT_EQ(from_far->GetNumberOfPolys(), from_near->GetNumberOfPolys());
        EXPECT_NEAR(area_of(from_far), area_of(from_near), 1e-3 * area_of(from_near));
        EXPECT_NEAR(from_far->GetBounds()[0], 5e8 + 0.00245, 1e-3);
        EXPECT_NEAR(from_far->GetBounds()[2], -4e6, 1e-6);
        run_well({"probe", scratch("far" + std::string(ending)), "--line", "500000000.001,-4000000,0",
                  "500000000.003,-3999999.996,0.004", "3", "-o", scratch("far.csv")});
        const std::string table = bytes_of(scratch("far.csv"));
        double values[3];
        EXPECT_EQ(sscanf(table.c_str(),
                         "x,y,z,any,vtkValidPointMask\n500000000.001,-4e+06,0,%lf,1\n%*[^\n]\n"
                         "500000000.003,-3999999.996,0.004,%lf,1\n",
                         &values[0], &values[1]),
                  2)
            << table;
        EXPECT_NEAR(values[0], 1, 1e-3);
        EXPECT_NEAR(values[1], 3.4, 1e-3);
    }
}

// ---- places of results --------------------------------------------------------------------------------------

TEST(Output, OverAFileThatIsReadIsRefused)
{
    const std::string path = made("uniform", "self.vti"), before = bytes_of(path);
    std::filesystem::remove(scratch("link.vti"));
    std::filesystem::create_symlink("self.vti", scratch("link.vti"));
    for (const std::string &out : {path, scratch("link.vti"), scratch("./self.vti")}) {
        const ran result = run({"clamp", path, "--max", "0", "-o", out});
        EXPECT_EQ(result.code, 2);
        EXPECT_TRUE(holds(result.err, "is a file that is read, too; --overwrite lets the result"))
            << shown(result);
    }
    EXPECT_EQ(bytes_of(path), before);
    write_bytes(scratch("self.csv"), "x,y,z\n0,0,0\n");
    EXPECT_EQ(run({"probe", path, "--points", scratch("self.csv"), "-o", scratch("self.csv")}).code, 2);
    EXPECT_EQ(bytes_of(scratch("self.csv")), "x,y,z\n0,0,0\n");
    run_well({"probe", path, "--points", scratch("self.csv"), "-o", scratch("self.csv"), "--overwrite"});
    EXPECT_TRUE(holds(bytes_of(scratch("self.csv")), "x,y,z,height"));
    run_well({"--overwrite", "clamp", path, "--max", "0", "-o", path});
    EXPECT_LE(node_array(read(path), "height")->GetRange()[1], 0);
}

TEST(Output, GoesWhereALinkPointsAndNotOverAReadOnlyFile)
{
    namespace fs = std::filesystem;
    const std::string path = made("uniform", "linked.vti"), link = scratch("link.vtp");
    fs::create_directories(scratch("deep"));
    fs::remove(link);
    fs::create_symlink("deep/there.vtp", link);
    run_well({"iso", path, "-l", "0", "-o", link});
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_GT(read(scratch("deep/there.vtp"))->GetNumberOfCells(), 0);

    const std::string locked = scratch("locked.vtp");
    write_bytes(locked, "older");
    fs::permissions(locked, fs::perms::owner_read);
    const ran result = run({"iso", path, "-l", "0", "-o", locked});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "skoklana: " + locked + ": cannot be written: it is there already and read-only\n");
    EXPECT_EQ(bytes_of(locked), "older");
}

// ---- info ---------------------------------------------------------------------------------------------------

TEST(Info, TellsWhatAFileHolds)
{
    const std::string path = made("uniform", "told.vti");
    const auto data = read(path);
    node_array(data, "height")->SetComponent(5, 0, std::nan(""));
    number_all(data);
    write(path, data);
    const ran told = run_well({"info", path});
    for (const char *line : {"mesh:  uniform, 9 x 9 x 9 nodes\n", "nodes: 729\n", "cells: 512\n",
                             "box:   -1.5 .. 1.5, -1.5 .. 1.5, -1.5 .. 1.5\n", "node  array height: float, ",
                             ", 1 without a value (NaN)\n", "node  array node: long, 0 .. 728\n",
                             "cell  array cell: long, 0 .. 511; "})
        EXPECT_TRUE(holds(told.out, line)) << line << "\n" << shown(told);

    // the suggestion works as it stands
    const size_t at = told.out.find("try:   skoklana iso ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_TRUE(holds(told.out.substr(at), "--array height --level"));
}

// The line that info suggests, run by a shell, works: whatever the file and the array are called.
TEST(Info, WritesWholeNumbersOut)
{
    vtkNew<vtkImageData> image;
    image->SetDimensions(2, 1, 1);
    image->AllocateScalars(VTK_LONG_LONG, 1);
    image->GetPointData()->GetScalars()->SetName("large");
    static_cast<long long *>(image->GetScalarPointer())[0] = -1234567;
    static_cast<long long *>(image->GetScalarPointer())[1] = 9007199254740991;
    write(scratch("large.vti"), image);
    const ran told = run_well({"info", scratch("large.vti")});
    EXPECT_TRUE(holds(told.out, "-1234567 .. 9007199254740991\n")) << shown(told);
}

TEST(Info, SuggestsALineThatWorks)
{
    const auto data = read(made("uniform", "plain.vti"));
    data->GetPointData()->RemoveArray("height");
    add_node_array(data, "constant", [](const double *) { return 3; });
    add_node_array(data, "it's $HOME; \\ of x", [](const double *x) { return x[0]; });
    namespace fs = std::filesystem;
    fs::create_directories(scratch("a dir"));
    const fs::path before = fs::current_path();
    fs::current_path(scratch("a dir"));
    for (const char *name : {"-l.vti", "it's a file; $(exit).vti"}) {
        write(scratch("a dir/" + std::string(name)), data);
        const ran told = run_well({"info", "--", name});
        const size_t at = told.out.find("try:   skoklana ");
        ASSERT_NE(at, std::string::npos) << shown(told);
        std::string line = told.out.substr(at + strlen("try:   skoklana "));
        line.pop_back();
        EXPECT_EQ(system((command_path() + " --quiet " + line).c_str()), 0) << line;
        EXPECT_GT(read("out.vtp")->GetNumberOfCells(), 0);
    }
    fs::current_path(before);

    // only cells have values
    data->GetPointData()->Initialize();
    number_all(data);
    data->GetPointData()->Initialize();
    write(scratch("cells.vti"), data);
    EXPECT_TRUE(holds(run_well({"info", scratch("cells.vti")}).out, "\ntry:   skoklana probe "));
}

TEST(Info, TellsOfTextsStepsAndSpacing)
{
    const auto data = read(made("uniform", "plain.vti", "5"));
    vtkNew<vtkStringArray> texts;
    texts->SetName("station");
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
        texts->InsertNextValue("place " + std::to_string(i));
    data->GetPointData()->AddArray(texts);
    number_all(data);
    write(scratch("texts.vti"), data);
    const ran told = run_well({"info", scratch("texts.vti")});
    for (const char *line : {"grid:  origin -1.5, -1.5, -1.5; spacing 0.75, 0.75, 0.75\n",
                             "node  array station: text, 125 entries, \"place 0\" first\n",
                             "cell  array cell: long, 0 .. 63; taken from cells by probe"})
        EXPECT_TRUE(holds(told.out, line)) << line << "\n" << shown(told);
}

TEST(Input, OfCollectionsIsTheFilesOfAStep)
{
    run_well({"sample", "hydrogen", "--size", "5", "-o", scratch("first.vti")});
    run_well({"sample", "noisy-sphere", "--size", "6", "-o", scratch("second.vti")});
    run_well({"sample", "noisy-sphere", "--size", "7", "-o", scratch("third.vti")});
    write_bytes(scratch("steps.pvd"),
                "<?xml version=\"1.0\"?>\n<VTKFile type=\"Collection\" version=\"0.1\">\n<Collection>\n"
                "<DataSet timestep=\"2.5\" part=\"0\" file=\"second.vti\"/>\n"
                "<DataSet timestep=\"0.5\" part=\"0\" file=\"first.vti\"/>\n"
                "<DataSet timestep=\"2.5\" part=\"1\" file=\"third.vti\"/>\n</Collection>\n</VTKFile>\n");
    const ran first = run_well({"info", scratch("steps.pvd")});
    for (const char *line : {"file:  2 time steps\n", "times: 0.5, 2.5\n", "uniform, 5 x 5 x 5", "array psi"})
        EXPECT_TRUE(holds(first.out, line)) << line << "\n" << shown(first);
    const ran part = run_well({"info", scratch("steps.pvd"), "--step", "1", "--block", "1"});
    EXPECT_TRUE(holds(part.out, "uniform, 7 x 7 x 7")) << shown(part);
    const ran both = run_well({"info", scratch("steps.pvd"), "--step", "1"});
    EXPECT_TRUE(holds(both.out, "341 hexahedra")) << shown(both);
    EXPECT_EQ(run({"info", scratch("steps.pvd"), "--step", "2"}).code, 1);
    write_bytes(
        scratch("lost.pvd"),
        "<VTKFile type=\"Collection\"><Collection><DataSet file=\"lost.vti\"/></Collection></VTKFile>");
    EXPECT_TRUE(holds(run({"info", scratch("lost.pvd")}).err, "lost.vti: cannot be opened"));
}

TEST(Input, TakesASolutionForPlot3dOnly)
{
    const std::string path = made("uniform", "plain.vti", "5");
    const ran result = run({"info", path, "--solution", path});
    EXPECT_EQ(result.code, 2);
    EXPECT_TRUE(holds(result.err, "--solution is for PLOT3D grids, and " + path)) << shown(result);
}

TEST(Info, OfRealData)
{
    const struct {
        const char *file, *mesh;
    } cases[] = {{"ironProt.vtk", "uniform, 68 x 68 x 68 nodes"},
                 {"RectGrid2.vtk", "rectilinear, 47 x 33 x 11 nodes"},
                 {"SampleStructGrid.vtk", "curvilinear, 20 x 30 x 40 nodes"},
                 {"bluntfinxyz.bin", "curvilinear, 40 x 32 x 32 nodes"},
                 {"can.vtu", "cell sets, 4800 hexahedra"},
                 {"CylinderQuadratic.vtk", "cell sets, 1522 second-order tetrahedra"},
                 {"notch_stress.vtk", "cell sets, 4 prisms, 2188 hexahedra"},
                 {"PentaHexa.vtk", "cell sets, 1980 tetrahedra"},
                 {"blow.vtk", "cell sets, 928 triangles, 129 quadrilaterals"},
                 {"cow.vtp", "cell sets, 766 triangles, 2519 quadrilaterals"},
                 {"SainteHelens.dem", "uniform, 327 x 467 nodes"},
                 {"heart.vti", "uniform, 32 x 32 x 12 nodes"},
                 {"fire_ug.vtu", "cell sets, 10462 hexahedra"},
                 {"uGridEx.vtk", "2 lines, 10 triangles, 1 quadrilaterals, 2 tetrahedra, 2 hexahedra"},
                 {"jacksboro.vtk", "uniform, 403 x 344 nodes"},
                 {"topobathy.vtk", "rectilinear, 120 x 91 nodes"}};
    int seen = 0;
    for (const auto &one : cases) {
        const std::string path = real_data(one.file);
        if (path.empty()) continue;
        ++seen;
        const ran told = run_well({"info", path});
        EXPECT_TRUE(holds(told.out, one.mesh)) << one.file << "\n" << shown(told);
    }
    if (seen == 0) GTEST_SKIP() << "no real data is here";
}

} // namespace
