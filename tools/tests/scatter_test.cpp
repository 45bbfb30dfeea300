// delaunay and scatter.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkCell.h>
#include <vtkDataArray.h>
#include <vtkImageData.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkUnstructuredGrid.h>

#include <cmath>
#include <sstream>

namespace {

// A table of points with a value each: a plane, which any triangles keep.
std::string table(const std::string &name, int count, int axes, unsigned seed, double far = 0)
{
    random_numbers random(seed);
    std::ostringstream text;
    text.precision(17);
    text << (axes == 2 ? "x,y,height\n" : "x,y,z,height\n");
    for (int i = 0; i < count; ++i) {
        double p[3] = {0, 0, 0};
        for (int d = 0; d < axes; ++d)
            p[d] = random.next() + far;
        text << p[0] << ',' << p[1];
        if (axes == 3) text << ',' << p[2];
        text << ',' << p[0] + 2 * p[1] + 3 * p[2] - (axes == 2 ? 3 : 6) * far << '\n';
    }
    std::string path = scratch(name);
    write_bytes(path, text.str());
    return path;
}

// The corners of the unit square or cube, a few points inside.
std::string box_table(const std::string &name, int axes)
{
    std::string text = axes == 2 ? "x,y\n" : "x,y,z\n";
    const char *const ends[2] = {"0", "1"};
    for (int corner = 0; corner < 1 << axes; ++corner) {
        for (int d = 0; d < axes; ++d)
            text += std::string(d > 0 ? "," : "") + ends[corner >> d & 1];
        text += '\n';
    }
    text += axes == 2 ? "0.25,0.5\n0.75,0.25\n" : "0.25,0.5,0.5\n0.75,0.25,0.375\n";
    std::string path = scratch(name);
    write_bytes(path, text);
    return path;
}

} // namespace

// ---- delaunay -----------------------------------------------------------------------------------------------

TEST(Delaunay, TrianglesCoverTheHullAndCarryArrays)
{
    const std::string out = scratch("triangles.vtp");
    const ran result = run_well({"delaunay", table("flat.csv", 500, 2, 1), "-o", out});
    EXPECT_EQ("", result.err) << "nothing is missing";
    const auto data = read_surface(out);
    EXPECT_EQ(500, data->GetNumberOfPoints());
    EXPECT_GT(data->GetNumberOfPolys(), 950);
    EXPECT_NE(std::string::npos, result.out.find(std::to_string(data->GetNumberOfPolys()) + " triangles"));
    vtkDataArray *height = node_array(data, "height");
    for (vtkIdType i = 0; i < 500; ++i) {
        double p[3];
        data->GetPoint(i, p);
        EXPECT_NEAR(p[0] + 2 * p[1], height->GetComponent(i, 0), 1e-6);
    }
    for (const std::string ending : {".vtu", ".stl"}) {
        const std::string other = scratch("triangles" + ending);
        run_well({"delaunay", scratch("flat.csv"), "-o", other});
        EXPECT_EQ(data->GetNumberOfPolys(), read(other)->GetNumberOfCells());
    }
}

TEST(Delaunay, SquareAndCubeAreFilled)
{
    const std::string square = scratch("square.vtp"), cube = scratch("cube.vtu"), skin = scratch("cube.stl");
    EXPECT_EQ("", run_well({"delaunay", box_table("square.csv", 2), "-o", square}).err);
    EXPECT_NEAR(1, area_of(read_surface(square)), 1e-12);
    EXPECT_EQ("", run_well({"delaunay", box_table("cube.csv", 3), "-o", cube}).err);
    const auto solid = read(cube);
    EXPECT_NEAR(1, volume_of(solid), 1e-12);
    for (vtkIdType c = 0; c < solid->GetNumberOfCells(); ++c)
        ASSERT_EQ(VTK_TETRA, solid->GetCellType(c));
    run_well({"delaunay", scratch("cube.csv"), "-o", skin});
    EXPECT_NEAR(6, area_of(read_surface(skin)), 1e-6);
}

// Rows of points are in line with each other, and four at a time are on a circle.
TEST(Delaunay, LatticesAreFilledWithoutOverlap)
{
    for (const double spacing : {30.0, 0.37})
        for (const double turned : {0.0, 0.3}) {
            std::ostringstream text;
            text.precision(12);
            text << "x,y\n";
            for (int i = 0; i < 150; ++i)
                for (int j = 0; j < 150; ++j)
                    text << 557945 + spacing * (i * std::cos(turned) - j * std::sin(turned)) << ','
                         << 5108000 + spacing * (i * std::sin(turned) + j * std::cos(turned)) << '\n';
            const std::string path = scratch("lattice.csv"), out = scratch("lattice.vtu");
            write_bytes(path, text.str());
            const ran result = run_well({"delaunay", path, "-o", out});
            EXPECT_EQ(std::string::npos, result.err.find("overlap")) << result.err;
            EXPECT_EQ(std::string::npos, result.err.find("hull")) << result.err;
            EXPECT_EQ(std::string::npos, result.out.find("skipped")) << result.out;
            EXPECT_GE(read(out)->GetNumberOfCells(), 2 * 149 * 149);
        }
}

// Points near a line: in a box around them there would hardly be a triangle.
TEST(Delaunay, ThinCloudsComeOutToTheirHull)
{
    random_numbers random(7);
    std::string text = "x,y\n";
    for (int i = 0; i < 1000; ++i)
        text += std::to_string(i + random.next()) + "," + std::to_string(random.next() * 0.01) + "\n";
    write_bytes(scratch("thin.csv"), text);
    const ran result = run_well({"delaunay", scratch("thin.csv"), "-o", scratch("thin.vtp")});
    EXPECT_EQ("", result.err);
    EXPECT_EQ(std::string::npos, result.out.find("skipped")) << result.out;
    text = "x,y\n";
    for (int i = 0; i < 100; ++i)
        text += std::to_string(i * 0.7) + "," + std::to_string(i * 0.3) + "\n";
    write_bytes(scratch("slant.csv"), text);
    EXPECT_NE(std::string::npos,
              run({"delaunay", scratch("slant.csv"), "-o", scratch("none.vtp")}).err.find("on one line"));
}

TEST(Delaunay, TetrahedraOfManyPointsLeaveNoDent)
{
    const std::string out = scratch("many.vtu");
    const ran result = run_well({"delaunay", table("many.csv", 2000, 3, 3), "-o", out});
    EXPECT_EQ("", result.err);
    EXPECT_GT(read(out)->GetNumberOfCells(), 10000);
    EXPECT_EQ(std::string::npos, result.out.find("skipped"));
}

TEST(Delaunay, LibrarysBoxLeavesTheRimOpenAndSaysSo)
{
    for (int axes : {2, 3}) {
        const ran result =
            run_well({"delaunay", table("open.csv", 300, axes, 5), "--library", "-o", scratch("open.vtu")});
        EXPECT_NE(std::string::npos, result.err.find("is not the convex hull")) << result.err;
        EXPECT_NE(std::string::npos,
                  result.err.find(axes == 2 ? "corners bend inwards" : "edges bend inwards"));
    }
}

TEST(Delaunay, DoubledPointsAreCounted)
{
    const std::string path = table("once.csv", 50, 2, 2), twice = scratch("twice.csv");
    const std::string text = bytes_of(path);
    write_bytes(twice, text + text.substr(text.find('\n') + 1));
    const ran result = run_well({"delaunay", twice, "-o", scratch("twice.vtp")});
    EXPECT_NE(std::string::npos, result.out.find("100 points, 50 doubled")) << result.out;
    EXPECT_EQ(std::string::npos, result.out.find("skipped"));
}

// The thin triangles at the second point are among those that the library's box leaves out.
TEST(Delaunay, PointsWithoutACellAreCounted)
{
    write_bytes(scratch("rim.csv"), "x,y\n0,0\n1,0\n4,0\n9,1\n16,0\n25,1\n");
    const ran result = run_well({"delaunay", scratch("rim.csv"), "--library", "-o", scratch("rim.vtp")});
    EXPECT_NE(std::string::npos, result.out.find("3 triangles, 6 points, 1 skipped")) << result.out;
    EXPECT_NE(std::string::npos, result.err.find("1 points are outside or on the rim")) << result.err;
    const ran whole = run_well({"delaunay", scratch("rim.csv"), "-o", scratch("rim.vtp")});
    EXPECT_EQ(std::string::npos, whole.out.find("skipped")) << whole.out;
    EXPECT_EQ("", whole.err);
}

TEST(Delaunay, FlatPointsMakeTrianglesUnlessToldOtherwise)
{
    const std::string path = table("solid.csv", 100, 3, 2), out = scratch("by_xy.vtp");
    run_well({"delaunay", path, "--2d", "-o", out});
    const auto data = read_surface(out);
    double bounds[6];
    data->GetBounds(bounds);
    EXPECT_GT(bounds[5] - bounds[4], 0.5) << "z is kept";
    EXPECT_GT(data->GetNumberOfPolys(), 150);
    const ran failed = run({"delaunay", table("level.csv", 100, 2, 2), "--3d", "-o", scratch("none.vtu")});
    EXPECT_EQ(1, failed.code);
    EXPECT_NE(std::string::npos,
              failed.err.find("in one plane, and make no tetrahedra; --2d makes triangles"))
        << failed.err;
    EXPECT_EQ(2, run({"delaunay", path, "--2d", "--3d", "-o", out}).code);
}

TEST(Delaunay, FarPointsKeepTheirDigits)
{
    // 5000000 and less than 1 in steps of 0.5 in single precision.
    const std::string out = scratch("far.vtp");
    EXPECT_EQ("", run_well({"delaunay", table("far.csv", 300, 2, 4, 5000000), "-o", out}).err);
    const auto data = read_surface(out);
    EXPECT_GT(data->GetNumberOfPolys(), 560);
    double p[3];
    data->GetPoint(7, p);
    EXPECT_NE(p[0], std::floor(p[0] * 2) / 2);
}

TEST(Delaunay, TakesXyzFilesAndMeshes)
{
    const std::string xyz = scratch("cloud.xyz"), out = scratch("cloud.vtu");
    write_bytes(xyz, "# made by hand\n0 0 0 1\n1 0 0 2\n0 1 0 3\n0 0 1 4\n\n0.2 0.2 0.2 5\n");
    run_well({"delaunay", xyz, "-o", out});
    const auto data = read(out);
    EXPECT_EQ(4, data->GetNumberOfCells());
    EXPECT_EQ(5, node_array(data, "column4")->GetComponent(4, 0));
    const std::string mesh = scratch("mesh.vtu");
    run_well({"sample", "noisy-sphere", "--mesh", "tet", "--size", "5", "-o", mesh});
    run_well({"delaunay", mesh, "-o", out, "--picture", scratch("mesh.png")});
    EXPECT_NEAR(volume_of(read(mesh)), volume_of(read(out)), 1e-6 * volume_of(read(mesh)));
    EXPECT_NE(nullptr, node_array(read(out), "height"));
}

TEST(Delaunay, WhatCantBeTesselatedIsToldPlainly)
{
    const auto failed = [](const std::string &text, const char *words) {
        const std::string path = scratch("bad.csv"), out = scratch("bad.vtu");
        write_bytes(path, text);
        const ran result = run({"delaunay", path, "-o", out});
        EXPECT_EQ(1, result.code);
        EXPECT_NE(std::string::npos, result.err.find(words)) << result.err;
    };
    failed("x,y\n0,0\n1,1\n2,2\n3,3\n", "on one line");
    failed("x,y\n0,0\n1,1\n", "at least 3 points make a triangle; it has 2");
    failed("x,y\n4,5\n4,5\n4,5\n4,5\n", "on one line");
    failed("x,y,z\n0,0,0\n1,0,0\n0,1,1\n1,1,1\n", "in one plane");
    failed("x,y,z\n0,0,0\n1,2,1\n0,1,1\n", "at least 4 points make a tetrahedron; it has 3");
    failed("easting,northing,v\n0,0,1\n1,0,2\n0,1,3\n",
           "has no column x, one of the coordinates; its columns: easting");
    failed("x,y\n0,0\n1,text\n", "holds no point");
    failed("x,y\n", "holds no points");
    write_bytes(scratch("nan.csv"), "x,y\n0,0\n1,0\n0,1\nnan,3\n");
    const ran result = run_well({"delaunay", scratch("nan.csv"), "-o", scratch("nan.vtp")});
    EXPECT_NE(std::string::npos, result.err.find("coordinates that are no numbers: 1 of 4 points"));
    EXPECT_EQ(2, run({"delaunay", scratch("nan.csv"), "-o", scratch("bad.vti")}).code);
}

TEST(Delaunay, TextColumnsAreLeftOutWithANote)
{
    write_bytes(scratch("named.csv"), "name,x,y,v\na,0,0,2\nb,1,0,4\nc,0,1,6\n");
    const ran result = run_well({"delaunay", scratch("named.csv"), "-o", scratch("named.vtp")});
    EXPECT_NE(std::string::npos, result.err.find("column name holds texts")) << result.err;
    const auto data = read(scratch("named.vtp"));
    EXPECT_EQ(4, node_array(data, "v")->GetComponent(1, 0));
    EXPECT_EQ(1, data->GetPointData()->GetNumberOfArrays());
}

TEST(Delaunay, ColumnsTellWhichAreTheCoordinates)
{
    const std::string path = scratch("stations.csv"), out = scratch("stations.vtp");
    write_bytes(path, "\xef\xbb\xbfid;Lon;lat;height\n7;0;0;5\n8;1;0;6\n9;0;1;7\n");
    run_well({"delaunay", path, "--columns", "lon,lat", "-o", out});
    EXPECT_EQ(7, node_array(read_surface(out), "height")->GetComponent(2, 0));
    run_well({"delaunay", path, "--columns", "lon,lat,height", "--2d", "-o", out});
    double p[3];
    read_surface(out)->GetPoint(2, p);
    EXPECT_EQ(7, p[2]);
    EXPECT_EQ(8, node_array(read_surface(out), "id")->GetComponent(1, 0));
    const ran failed = run({"delaunay", path, "--columns", "lon,late", "-o", out});
    EXPECT_EQ(1, failed.code);
    EXPECT_NE(std::string::npos, failed.err.find("no column late")) << failed.err;
    write_bytes(scratch("bare.xyz"), "7 0 0 5\n8 1 0 6\n9 0 1 7\n");
    run_well({"delaunay", scratch("bare.xyz"), "--columns", "column2,column3", "-o", out});
    EXPECT_EQ(1, read_surface(out)->GetNumberOfPolys());
    EXPECT_EQ(2, run({"delaunay", out, "--columns", "x,y", "-o", scratch("other.vtp")}).code);
}

// A box of any size and place is one of size 1 to the library.
TEST(Delaunay, HugeTinyAndFarCoordinatesAreTesselated)
{
    for (const char *const scale : {"e300", "e37", "e-37", "e-300"})
        for (int axes : {2, 3}) {
            const std::string path = box_table("scaled.csv", axes);
            std::string text = bytes_of(path), scaled;
            for (const char c : text.substr(text.find('\n'))) {
                if (scaled.size() > 1 && isdigit(scaled.back()) != 0 && (c == ',' || c == '\n'))
                    scaled += scale;
                scaled += c;
            }
            write_bytes(path, text.substr(0, text.find('\n')) + scaled);
            const std::string out = scratch(axes == 2 ? "scaled.vtp" : "scaled.vtu");
            EXPECT_EQ("", run_well({"delaunay", path, "-o", out}).err) << scale << " " << axes;
            EXPECT_GE(read(out)->GetNumberOfCells(), axes == 2 ? 6 : 10) << scale;
        }
    write_bytes(scratch("deep.csv"),
                "x,y,z\n1e7,-3e8,2\n10000001,-3e8,2\n1e7,-299999999,2\n10000001,-299999999,2.5\n");
    run_well({"delaunay", scratch("deep.csv"), "-o", scratch("deep.vtu")});
    EXPECT_NEAR(0.5 / 6, volume_of(read(scratch("deep.vtu"))), 1e-6);
}

// ---- scatter ------------------------------------------------------------------------------------------------

TEST(Scatter, ValuesComeNearTheirPlaneOnTheGrid)
{
    const std::string out = scratch("grid.vti");
    const ran result = run_well({"scatter", table("values.csv", 4000, 2, 1), "-a", "height", "--size",
                                 "40,30", "-o", out, "--picture", scratch("grid.png")});
    const auto data = read(out);
    EXPECT_EQ(1200, data->GetNumberOfPoints());
    vtkDataArray *height = node_array(data, "height");
    EXPECT_EQ(VTK_FLOAT, height->GetDataType());
    EXPECT_NE(std::string::npos, result.err.find("single precision"));
    double p[3];
    for (vtkIdType i = 0; i < 1200; ++i) {
        data->GetPoint(i, p);
        EXPECT_NEAR(p[0] + 2 * p[1], height->GetComponent(i, 0), 0.15);
    }
    EXPECT_GT(bytes_of(scratch("grid.png")).size(), 2000u);
}

TEST(Scatter, NodesOutOfReachAreNaNAndCounted)
{
    write_bytes(scratch("one.csv"), "x,y,z,v\n0.5,0.5,0.5,3\n");
    const std::string out = scratch("one.vti");
    const ran result = run_well({"scatter", scratch("one.csv"), "--size", "11,11,11", "--radius", "1",
                                 "--box", "0,0,0,1,1,1", "-o", out});
    EXPECT_NE(std::string::npos, result.out.find(std::to_string(1331 - 27) + " of them out of reach"))
        << result.out;
    const auto grid = read(out);
    vtkDataArray *v = node_array(grid, "v");
    EXPECT_EQ(3, v->GetComponent((5 * 11 + 5) * 11 + 5, 0)) << "the point is on the node";
    EXPECT_TRUE(std::isnan(v->GetComponent(0, 0)));
}

TEST(Scatter, IntegersAreRoundedAndHaveAMask)
{
    const std::string mesh = scratch("whole.vtp"), out = scratch("whole.vti");
    write_bytes(scratch("whole.csv"), "x,y,v\n0,0,1\n1,0,2\n0,1,2\n1,1,2\n");
    run_well({"delaunay", scratch("whole.csv"), "-o", mesh});
    const auto data = read_surface(mesh);
    number_all(data); // an integer array "node"
    write(mesh, data);
    run_well(
        {"scatter", mesh, "-a", "node", "--size", "3,2", "--radius", "1", "--box", "0,0,0,2,1,0", "-o", out});
    const auto grid = read(out);
    vtkDataArray *node = node_array(grid, "node"), *mask = node_array(grid, "vtkValidPointMask");
    EXPECT_NE(VTK_FLOAT, node->GetDataType());
    const double expected[6] = {0, 1, 2, 2, 3, 2};
    for (vtkIdType i = 0; i < 6; ++i) {
        EXPECT_EQ(1, mask->GetComponent(i, 0));
        EXPECT_EQ(expected[i], node->GetComponent(i, 0)) << i;
    }
}

TEST(Scatter, LargeIntegersLoseNoDigits)
{
    const std::string points = scratch("counters.vtk"), out = scratch("counters.vti");
    write_bytes(
        points,
        "# vtk DataFile Version 3.0\ncounters\nASCII\nDATASET POLYDATA\nPOINTS 4 float\n"
        "0 0 0 1 0 0 0 1 0 1 1 0\nPOINT_DATA 4\nSCALARS a int 1\nLOOKUP_TABLE default\n"
        "2147483641 2147483643 2147483647 2147483641\nSCALARS b vtktypeint64 1\nLOOKUP_TABLE default\n"
        "-9223372036854775807 9223372036854775806 0 5\n");
    const ran one = run_well({"scatter", points, "-a", "a", "--size", "2,2", "--radius", "1", "-o", out});
    EXPECT_EQ("", one.err) << "the values are 6 apart at most";
    const double expected[4] = {2147483641, 2147483643, 2147483647, 2147483641};
    const auto first = read(out);
    vtkDataArray *a = node_array(first, "a");
    for (vtkIdType i = 0; i < 4; ++i)
        EXPECT_EQ(expected[i], a->GetComponent(i, 0));
    const ran wide = run_well({"scatter", points, "-a", "b", "--size", "2,2", "--radius", "1", "-o", out});
    EXPECT_NE(std::string::npos, wide.err.find("b is spread in single precision")) << wide.err;
    const auto second = read(out);
    vtkDataArray *b = node_array(second, "b");
    EXPECT_EQ(-9223372036854775807.0, b->GetComponent(0, 0));
    EXPECT_NEAR(9223372036854775806.0, b->GetComponent(1, 0), 1e12);
}

TEST(Scatter, FarPointsKeepTheirPlaces)
{
    // In single precision steps of 0.5 would be left at 5000000.
    const std::string out = scratch("far.vti");
    run_well({"scatter", table("far_values.csv", 4000, 2, 1, 5000000), "--size", "40,30", "-o", out});
    const auto data = read(out);
    double p[3];
    for (vtkIdType i = 0; i < 1200; ++i) {
        data->GetPoint(i, p);
        EXPECT_NEAR(p[0] + 2 * p[1] - 15000000, node_array(data, "height")->GetComponent(i, 0), 0.15);
    }
}

TEST(Scatter, ValuesThatAreNoNumbersDoNotSpread)
{
    write_bytes(scratch("inf.csv"), "x,y,v\n0,0,1\n1,0,inf\n0,1,1\n1,inf,7\n1,1,1\n");
    const ran result =
        run_well({"scatter", scratch("inf.csv"), "--size", "3,3", "--radius", "3", "-o", scratch("inf.vti")});
    EXPECT_NE(std::string::npos, result.err.find("2 of 5 points")) << result.err;
    const auto grid = read(scratch("inf.vti"));
    for (vtkIdType i = 0; i < 9; ++i)
        EXPECT_EQ(1, node_array(grid, "v")->GetComponent(i, 0));
}

TEST(Scatter, RadiusReachesAHandfulOfPointsByDefault)
{
    const ran few =
        run_well({"scatter", table("few.csv", 100, 2, 1), "--size", "100,100", "-o", scratch("few.vti")});
    EXPECT_NE(std::string::npos, few.out.find("radius 12,12")) << few.out;
    EXPECT_EQ(std::string::npos, few.out.find("12,12, 5"));
    const ran given = run_well(
        {"scatter", scratch("few.csv"), "--size", "100,100", "--radius", "3,5", "-o", scratch("few.vti")});
    EXPECT_NE(std::string::npos, given.out.find("radius 3,5")) << given.out;
}

TEST(Scatter, PointsWithoutAValueAreLeftOut)
{
    write_bytes(scratch("holes.csv"), "x,y,v\n0,0,1\n1,0,nan\n0,1,-9\n1,1,1\n0.5,0.5,1\n");
    const ran result = run_well({"scatter", scratch("holes.csv"), "--null=-9", "--size", "5,5", "--radius",
                                 "5", "-o", scratch("holes.vti")});
    EXPECT_NE(std::string::npos, result.err.find("want of a value or a place: 2 of 5 points")) << result.err;
    const auto grid = read(scratch("holes.vti"));
    vtkDataArray *v = node_array(grid, "v");
    for (vtkIdType i = 0; i < 25; ++i)
        EXPECT_FLOAT_EQ(1, static_cast<float>(v->GetComponent(i, 0)));
}

TEST(Scatter, WrongArgumentsAreRefused)
{
    const std::string path = table("args.csv", 20, 2, 1), out = scratch("args.vti");
    const auto refused = [&](std::vector<std::string> more, int code) {
        more.insert(more.begin(), {"scatter", path, "-o", out});
        EXPECT_EQ(code, run(more).code) << shown(run(more));
    };
    refused({"--size", "5"}, 2);
    refused({"--size", "5,1"}, 2);
    refused({"--size", "4294967297,2"}, 2);
    refused({"--size", "2000000,2000000"}, 2);
    refused({"--size", "5,5", "--box", "nan,0,0,1,1,1"}, 2);
    refused({"--size", "5,5", "--box", "1e9,1e9,0,1000000001,1000000001,0"}, 1); // beyond single precision
    refused({"--size", "5,5", "--radius", "1,2,3"}, 2);
    refused({"--size", "5,5", "--radius", "0"}, 2);
    refused({"--size", "5,5", "--power", "0"}, 2);
    refused({"--size", "5,5", "--box", "0,0,0,0,1,1"}, 2);
    refused({"--size", "5,5", "--array", "depth"}, 1);
    refused({"--size", "5,5,5"}, 1); // all z are equal
    refused({"--size", "5,5", "--box", "0,0,0,1,1"}, 2);
    refused({"--size", "5,5", "--columns", "x"}, 2);
    // lists end at the next word
    run_well({"scatter", "--size", "5,5", path, "-o", out});
    run_well({"scatter", "-o", out, "--size", "5,5", "--box", "0,0,0,1,1,0", "--radius", "3", path});
    run_well({"scatter", "-o", out, "--size", "5,5", "--columns", "x,height", "-a", "y", path});
}
