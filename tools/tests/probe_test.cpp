// probe against VTK's probe filter on the same file, and against values known beforehand.
//
// Points are placed in a cell to a twentieth of its parameters, and cells reach a twentieth beyond their faces:
// where a cell is no box, values differ from VTK's by as much of the change across a cell.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkDataArray.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkProbeFilter.h>

#include <cmath>
#include <sstream>

namespace {

const char *const mask_name = "vtkValidPointMask";

vtkSmartPointer<vtkDataSet> probed_by_vtk(vtkDataSet *data, vtkDataSet *points)
{
    vtkNew<vtkProbeFilter> filter;
    filter->SetSourceData(data);
    filter->SetInputData(points);
    filter->Update();
    return filter->GetOutput();
}

struct agreement {
    vtkIdType both = 0, one = 0; // points that are inside for both, and for one only
    double worst = 0;            // difference of values inside, of the array's range
};

agreement compare(vtkDataSet *ours, vtkDataSet *theirs, const char *array)
{
    agreement result;
    vtkDataArray *a = node_array(ours, array), *b = node_array(theirs, array);
    vtkDataArray *inside_a = node_array(ours, mask_name), *inside_b = node_array(theirs, mask_name);
    double range[2], width = 1e-30;
    for (int c = 0; c < b->GetNumberOfComponents(); ++c) {
        b->GetFiniteRange(range, c);
        width = std::max(width, range[1] - range[0]);
    }
    EXPECT_EQ(ours->GetNumberOfPoints(), theirs->GetNumberOfPoints());
    for (vtkIdType i = 0; i < ours->GetNumberOfPoints(); ++i) {
        const bool in_a = inside_a->GetComponent(i, 0) != 0, in_b = inside_b->GetComponent(i, 0) != 0;
        EXPECT_EQ(in_a, !std::isnan(a->GetComponent(i, 0))) << "point " << i;
        result.one += in_a != in_b ? 1 : 0;
        if (!in_a || !in_b) continue;
        ++result.both;
        for (int c = 0; c < a->GetNumberOfComponents(); ++c)
            result.worst =
                std::max(result.worst, std::abs(a->GetComponent(i, c) - b->GetComponent(i, c)) / width);
    }
    return result;
}

struct made_mesh {
    const char *mesh, *ending;
    int order;
    double tolerance; // of the range: pyramids and second-order cells are interpolated in different ways
};

std::ostream &operator<<(std::ostream &out, const made_mesh &mesh)
{
    return out << mesh.mesh << " of order " << mesh.order;
}

class Probe : public testing::TestWithParam<made_mesh> {};

const made_mesh made_meshes[] = {
    {"uniform", ".vti", 1, 1e-4}, {"rectilinear", ".vtr", 1, 1e-4}, {"curvilinear", ".vts", 1, 1e-2},
    {"hex", ".vtu", 1, 1e-4},     {"prism", ".vtu", 1, 1e-4},       {"pyramid", ".vtu", 1, 5e-2},
    {"tet", ".vtu", 1, 1e-4},     {"hex", ".vtu", 2, 1e-3},         {"prism", ".vtu", 2, 1e-1},
    {"pyramid", ".vtu", 2, 1e-1}, {"tet", ".vtu", 2, 1e-3},
};

TEST_P(Probe, OfMadeDataGivesWhatVtkGives)
{
    const made_mesh &mesh = GetParam();
    const std::string path = scratch("probed" + std::string(mesh.ending)), csv = scratch("points.csv");
    run_well({"sample", "abc-flow", "--mesh", mesh.mesh, "--order", std::to_string(mesh.order), "--size", "9",
              "-o", path});
    const auto data = read(path);
    double box[6];
    data->GetBounds(box);

    // points anywhere in a box a little larger than the mesh's
    random_numbers random(7);
    vtkNew<vtkPoints> points;
    std::ostringstream text;
    text.precision(9);
    text << "id,X,Y,Z\n";
    for (int i = 0; i < 400; ++i) {
        float x[3];
        for (int d = 0; d < 3; ++d)
            x[d] =
                static_cast<float>(box[2 * d] + (1.1 * random.next() - 0.05) * (box[2 * d + 1] - box[2 * d]));
        points->InsertNextPoint(x);
        text << i << ',' << x[0] << ',' << x[1] << ',' << x[2] << '\n';
    }
    write_bytes(csv, text.str());
    vtkNew<vtkPolyData> where;
    where->SetPoints(points);

    run_well({"probe", path, "--points", csv, "-o", scratch("at.vtp")});
    const agreement at_points = compare(read(scratch("at.vtp")), probed_by_vtk(data, where), "velocity");
    EXPECT_GT(at_points.both, 150);
    EXPECT_LE(at_points.one, 4);
    EXPECT_LE(at_points.worst, mesh.tolerance);

    run_well({"probe", path, "--grid", "7", "8", "6", "-o", scratch("grid.vti")});
    const auto grid = read(scratch("grid.vti"));
    const agreement on_grid = compare(grid, probed_by_vtk(data, grid), "velocity");
    EXPECT_GT(on_grid.both, 100);
    EXPECT_LE(on_grid.one, 60) << "of the 216 that stand on the box's faces";
    EXPECT_LE(on_grid.worst, mesh.tolerance);
}

INSTANTIATE_TEST_SUITE_P(Made, Probe, testing::ValuesIn(made_meshes));

struct real_case {
    const char *file, *array;
    double tolerance;
};

std::ostream &operator<<(std::ostream &out, const real_case &one)
{
    return out << one.file;
}

class RealProbe : public testing::TestWithParam<real_case> {};

// In the middle of the cells, where neighbours and faces are no matter.
TEST_P(RealProbe, GivesWhatVtkGives)
{
    const std::string path = real_data(GetParam().file), where = scratch("where.vtp"),
                      out = scratch("there.vtp");
    if (path.empty()) GTEST_SKIP() << GetParam().file << " is not here";
    const auto data = read(path);
    vtkNew<vtkPoints> points;
    const vtkIdType step = std::max<vtkIdType>(1, data->GetNumberOfCells() / 500);
    for (vtkIdType c = 0; c < data->GetNumberOfCells(); c += step) {
        double box[6];
        data->GetCellBounds(c, box);
        points->InsertNextPoint((box[0] + box[1]) / 2, (box[2] + box[3]) / 2, (box[4] + box[5]) / 2);
    }
    vtkNew<vtkPolyData> at;
    at->SetPoints(points);
    write(where, at);
    run_well({"probe", path, "--points", where, "-w", GetParam().array, "-o", out});
    const agreement result = compare(read(out), probed_by_vtk(data, at), GetParam().array);
    EXPECT_GT(result.both, points->GetNumberOfPoints() / 2);
    EXPECT_LE(result.one, points->GetNumberOfPoints() / 20);
    EXPECT_LE(result.worst, GetParam().tolerance);
}

const real_case real_cases[] = {
    {"carotid.vtk", "vectors", 1e-4},
    {"RectGrid2.vtk", "scalars", 1e-4},
    {"SampleStructGrid.vtk", "scalars", 1e-3},
    {"bluntfinxyz.bin", "Density", 2e-2},
    {"hexa.vtk", "scalars", 1e-4},
    {"fire_ug.vtu", "t", 1e-4},
    {"CylinderLinear.vtk", "velocity", 5e-2},
    {"CylinderQuadratic.vtk", "pressure", 5e-2},
    {"SainteHelens.dem", "Elevation", 1e-4},
    {"topobathy.vtk", "height", 1e-4},
};

INSTANTIATE_TEST_SUITE_P(Real, RealProbe, testing::ValuesIn(real_cases));

TEST(ProbeOfCellArrays, TakesThemFromTheCellThatHoldsThePoint)
{
    for (const char *mesh : {"uniform", "rectilinear", "curvilinear", "hex"}) {
        const std::string ending = mesh == std::string("uniform")       ? ".vti"
                                   : mesh == std::string("hex")         ? ".vtu"
                                   : mesh == std::string("curvilinear") ? ".vts"
                                                                        : ".vtr";
        const std::string path = scratch("celled" + ending), where = scratch("middles.vtp");
        run_well({"sample", "hydrogen", "--mesh", mesh, "--size", "5", "6", "4", "-o", path});
        const auto data = read(path);
        number_all(data);
        write(path, data);
        vtkNew<vtkPoints> points;
        for (vtkIdType c = 0; c < data->GetNumberOfCells(); ++c) {
            double box[6];
            data->GetCellBounds(c, box);
            points->InsertNextPoint((box[0] + box[1]) / 2, (box[2] + box[3]) / 2, (box[4] + box[5]) / 2);
        }
        vtkNew<vtkPolyData> at;
        at->SetPoints(points);
        write(where, at);
        run_well({"probe", path, "--points", where, "-o", scratch("celled.vtp")});
        const auto ours = read(scratch("celled.vtp"));
        vtkDataArray *cell = node_array(ours, "cell");
        EXPECT_EQ(cell->GetDataTypeSize(), 8);
        for (vtkIdType c = 0; c < data->GetNumberOfCells(); ++c)
            ASSERT_EQ(cell->GetComponent(c, 0), c) << mesh;
    }
}

TEST(ProbeAlongALine, HasBothEndsAndIsEvenlySpaced)
{
    const std::string path = scratch("line.vti"), out = scratch("line.csv");
    run_well({"sample", "hydrogen", "--size", "13", "-o", path});
    const auto data = read(path);
    add_node_array(data, "ramp", [](const double *x) { return 2 * x[0] - x[2]; });
    write(path, data);
    run_well({"probe", path, "--line", "0,0,0", "20,0,-40", "5", "-w", "ramp", "-o", out});
    EXPECT_EQ(bytes_of(out), "x,y,z,ramp,vtkValidPointMask\n0,0,0,0,1\n5,0,-10,20,1\n10,0,-20,40,1\n"
                             "15,0,-30,60,1\n20,0,-40,nan,0\n");
}

TEST(ProbeOfIntegers, KeepsTheirTypeAndMarksMissesByAValueOfTheirOwn)
{
    vtkNew<vtkImageData> image;
    image->SetDimensions(3, 3, 3);
    image->AllocateScalars(VTK_SHORT, 1);
    for (int i = 0; i < 27; ++i)
        static_cast<short *>(image->GetScalarPointer())[i] = static_cast<short>(100 + i % 3 * 10);
    image->GetPointData()->GetScalars()->SetName("count");
    write(scratch("short.vti"), image);
    write_bytes(scratch("two.csv"), "0.5 1 1\n7 7 7\n");
    run_well({"probe", scratch("short.vti"), "--points", scratch("two.csv"), "-o", scratch("short.vtp")});
    const auto ours = read(scratch("short.vtp"));
    EXPECT_EQ(node_array(ours, "count")->GetDataType(), VTK_SHORT);
    EXPECT_EQ(node_array(ours, "count")->GetComponent(0, 0), 105);
    EXPECT_EQ(node_array(ours, "count")->GetComponent(1, 0), -32768);
    EXPECT_EQ(node_array(ours, mask_name)->GetComponent(1, 0), 0);
}

} // namespace
