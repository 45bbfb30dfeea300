// probe against VTK's probe filter on the same file, and against values known beforehand.
//
// Second-order cells and pyramids are interpolated in other ways than VTK's, which shows where data is not linear.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkCell.h>
#include <vtkDataArray.h>
#include <vtkDoubleArray.h>
#include <vtkFloatArray.h>
#include <vtkIdList.h>
#include <vtkImageData.h>
#include <vtkIntArray.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkProbeFilter.h>
#include <vtkTypeInt64Array.h>
#include <vtkUnsignedCharArray.h>

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

// ---- exact --------------------------------------------------------------------------------------------------

class ExactProbe : public testing::TestWithParam<made_mesh> {};

double plane(const double *x)
{
    return 3 * x[0] - 2 * x[1] + 0.5 * x[2] + 1;
}

void add_array(vtkDataSet *data, vtkDataArray *array, const char *name,
               const std::function<double(vtkIdType)> &value)
{
    array->SetName(name);
    array->SetNumberOfTuples(data->GetNumberOfPoints());
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
        array->SetComponent(i, 0, value(i));
    data->GetPointData()->AddArray(array);
}

// Every node, places along lines through nodes, edges and faces, and places anywhere, all in the mesh.
std::vector<double> places_in(vtkDataSet *data)
{
    std::vector<double> xyz;
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
        xyz.insert(xyz.end(), data->GetPoint(i), data->GetPoint(i) + 3);
    random_numbers random(5);
    vtkNew<vtkIdList> nodes;
    for (vtkIdType c = 0; c < data->GetNumberOfCells(); ++c) {
        data->GetCellPoints(c, nodes);
        const auto corner = [&] {
            return nodes->GetId(
                static_cast<vtkIdType>(random.next() * static_cast<double>(nodes->GetNumberOfIds())));
        };
        for (int n = 1; n <= 4; ++n) { // mixtures of so many nodes: on edges, faces, inside
            double sum = 0, at[3] = {0, 0, 0};
            for (int k = 0; k < n; ++k) {
                double weight = 0.1 + random.next(), x[3];
                data->GetPoint(corner(), x);
                for (int d = 0; d < 3; ++d)
                    at[d] += weight * x[d];
                sum += weight;
            }
            for (const double one : at)
                xyz.push_back(one / sum);
        }
    }
    return xyz;
}

TEST_P(ExactProbe, LosesNothingAndIsLinear)
{
    const made_mesh &mesh = GetParam();
    const std::string path = scratch("exact" + std::string(mesh.ending)), where = scratch("exact_at.vtp"),
                      out = scratch("exact_out.vtp");
    const bool flat = mesh.mesh == std::string("quad") || mesh.mesh == std::string("tri");
    run_well({"sample", "hydrogen", "--mesh", mesh.mesh, "--order", std::to_string(mesh.order), "--size",
              flat ? "9" : "5", "-o", path});
    const auto data = read(path);
    number_all(data);
    add_array(data, vtkNew<vtkDoubleArray>(), "plane", [&](vtkIdType i) { return plane(data->GetPoint(i)); });
    add_array(data, vtkNew<vtkIntArray>(), "one", [](vtkIdType) { return 1; });
    add_array(data, vtkNew<vtkUnsignedCharArray>(), "bytes",
              [](vtkIdType i) { return static_cast<double>(i % 256); });
    write(path, data);

    std::vector<double> xyz = places_in(data);
    vtkNew<vtkPoints> points;
    points->SetDataTypeToDouble();
    for (size_t i = 0; i < xyz.size(); i += 3)
        points->InsertNextPoint(&xyz[i]);
    points->InsertNextPoint(1e3, 0, 0);
    vtkNew<vtkPolyData> at;
    at->SetPoints(points);
    write(where, at);
    run_well({"probe", path, "--points", where, "-o", out});
    const auto ours = read(out);
    vtkDataArray *inside = node_array(ours, mask_name), *values = node_array(ours, "plane"),
                 *one = node_array(ours, "one"), *bytes = node_array(ours, "bytes"),
                 *cell = node_array(ours, "cell");
    EXPECT_EQ(values->GetDataType(), VTK_DOUBLE);
    EXPECT_EQ(bytes->GetDataType(), VTK_UNSIGNED_CHAR);
    const vtkIdType n = ours->GetNumberOfPoints() - 1;
    double range[2];
    values->GetFiniteRange(range);
    for (vtkIdType i = 0; i < n; ++i) {
        const double *x = &xyz[static_cast<size_t>(i) * 3];
        // mixtures of the nodes of a twisted cell may lie outside of it
        const bool within = mesh.mesh != std::string("curvilinear") || i < data->GetNumberOfPoints();
        if (within) {
            ASSERT_EQ(inside->GetComponent(i, 0), 1) << x[0] << " " << x[1] << " " << x[2];
        }
        if (inside->GetComponent(i, 0) == 0) continue;
        ASSERT_NEAR(values->GetComponent(i, 0), plane(x), 1e-6 * (range[1] - range[0]));
        ASSERT_EQ(one->GetComponent(i, 0), 1);
        double box[6];
        data->GetCellBounds(static_cast<vtkIdType>(cell->GetComponent(i, 0)), box);
        for (int d = 0; d < 3; ++d) {
            ASSERT_GE(x[d], box[2 * d] - 1e-4);
            ASSERT_LE(x[d], box[2 * d + 1] + 1e-4);
        }
        if (i < data->GetNumberOfPoints()) {
            ASSERT_EQ(bytes->GetComponent(i, 0), i % 256);
        }
    }
    EXPECT_EQ(inside->GetComponent(n, 0), 0);
    EXPECT_TRUE(std::isnan(values->GetComponent(n, 0)));

    // by the library's own sampling, bytes that use all their values have them in the middle of cells, too
    if (mesh.order == 1 && mesh.mesh == std::string("uniform")) {
        run_well({"probe", path, "--library", "--points", where, "-o", out});
        const auto theirs = read(out);
        for (vtkIdType i = 0; i < n; ++i)
            ASSERT_NEAR(node_array(theirs, "bytes")->GetComponent(i, 0), bytes->GetComponent(i, 0), 1.01);
    }
}

const made_mesh exact_meshes[] = {
    {"uniform", ".vti", 1, 0}, {"rectilinear", ".vtr", 1, 0}, {"curvilinear", ".vts", 1, 0},
    {"hex", ".vtu", 1, 0},     {"prism", ".vtu", 1, 0},       {"pyramid", ".vtu", 1, 0},
    {"tet", ".vtu", 1, 0},     {"quad", ".vtu", 1, 0},        {"tri", ".vtu", 1, 0},
    {"hex", ".vtu", 2, 0},     {"prism", ".vtu", 2, 0},       {"pyramid", ".vtu", 2, 0},
    {"tet", ".vtu", 2, 0},     {"quad", ".vtu", 2, 0},        {"tri", ".vtu", 2, 0},
};

INSTANTIATE_TEST_SUITE_P(Made, ExactProbe, testing::ValuesIn(exact_meshes));

// The cell of a point is the one that holds it: at the middles of real cells, their own.
TEST(ExactProbeOfRealData, HasTheMiddlesInTheirOwn)
{
    for (const char *name :
         {"CylinderLinear.vtk", "can.vtu", "hexa.vtk", "bluntfinxyz.bin", "office.binary.vtk"}) {
        const std::string path = real_data(name);
        if (path.empty()) GTEST_SKIP() << name << " is not here";
        const auto data = read(path);
        vtkNew<vtkPoints> points;
        points->SetDataTypeToDouble();
        std::vector<vtkIdType> cells;
        const vtkIdType step = std::max<vtkIdType>(1, data->GetNumberOfCells() / 300);
        for (vtkIdType c = 0; c < data->GetNumberOfCells(); c += step) {
            if (data->HasAnyBlankCells() != 0 || data->GetCell(c)->GetNumberOfPoints() == 0) continue;
            double middle[3], at[3], weights[8];
            int part = 0;
            vtkCell *cell = data->GetCell(c);
            cell->GetParametricCenter(middle);
            cell->EvaluateLocation(part, middle, at, weights);
            points->InsertNextPoint(at);
            cells.push_back(c);
        }
        vtkNew<vtkPolyData> at;
        at->SetPoints(points);
        const auto numbered = vtkSmartPointer<vtkDataSet>::Take(data->NewInstance());
        numbered->ShallowCopy(data);
        number_all(numbered);
        const std::string in = scratch(numbered->IsA("vtkStructuredGrid") != 0 ? "celled.vts" : "celled.vtu");
        write(in, numbered);
        write(scratch("middles.vtp"), at);
        run_well({"probe", in, "--points", scratch("middles.vtp"), "-w", "cell", "-o", scratch("cells.vtp")});
        const auto ours = read(scratch("cells.vtp"));
        vtkDataArray *found = node_array(ours, "cell");
        for (size_t i = 0; i < cells.size(); ++i)
            ASSERT_EQ(found->GetComponent(static_cast<vtkIdType>(i), 0), cells[i]) << name;
    }
}

// ---- tables -------------------------------------------------------------------------------------------------

TEST(ProbeIntoATable, QuotesNamesAndCarriesColumns)
{
    vtkNew<vtkImageData> image;
    image->SetDimensions(3, 3, 3);
    add_array(image, vtkNew<vtkFloatArray>(), "a, \"b\"",
              [&](vtkIdType i) { return 0.1 * static_cast<double>(i % 3); });
    add_array(image, vtkNew<vtkDoubleArray>(), "third", [](vtkIdType) { return 1.0 / 3; });
    add_array(image, vtkNew<vtkTypeInt64Array>(), "count", [](vtkIdType) { return 7; });
    write(scratch("names.vtk"), image);
    write_bytes(scratch("where.csv"), "\"the name, in full\";x;y;z;depth\n\"a;\"\"1\"\"\";1;0.5;0;2.50\n"
                                      "far;7;7;7;\n");
    const std::string out = scratch("names.csv");
    run_well({"probe", scratch("names.vtk"), "--points", scratch("where.csv"), "-o", out});
    EXPECT_EQ(bytes_of(out),
              "x,y,z,\"the name, in full\",depth,\"a, \"\"b\"\"\",third,count,vtkValidPointMask\n"
              "1,0.5,0,\"a;\"\"1\"\"\",2.50,0.1,0.33333333333,7,1\n"
              "7,7,7,far,,,,,0\n");
    // and again, from the table that came out
    run_well({"probe", scratch("names.vtk"), "--points", out, "-o", scratch("again.csv")});
    EXPECT_EQ(bytes_of(scratch("again.csv")), bytes_of(out));
    run_well({"probe", scratch("names.vtk"), "--points", out, "-o", scratch("again.vtp")});
    const auto data = read(scratch("again.vtp"));
    EXPECT_EQ(node_array(data, "depth")->GetComponent(0, 0), 2.5);
    EXPECT_NE(data->GetPointData()->GetAbstractArray("the name, in full"), nullptr);
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
                             "15,0,-30,60,1\n20,0,-40,,0\n");
}

TEST(ProbeOfIntegers, KeepsTheirTypeAndTellsMissesByTheMask)
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
    EXPECT_EQ(node_array(ours, "count")->GetComponent(1, 0), 0);
    EXPECT_EQ(node_array(ours, mask_name)->GetComponent(1, 0), 0);
}

} // namespace
