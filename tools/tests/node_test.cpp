// threshold-null, clamp and sample.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkThreshold.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cmath>

namespace {

// ---- threshold-null -----------------------------------------------------------------------------------------

// What VTK keeps of the cells whose nodes all have a value above lo.
vtkSmartPointer<vtkUnstructuredGrid> above(vtkDataSet *data, const char *array, double lo)
{
    vtkNew<vtkThreshold> filter;
    filter->SetInputData(data);
    filter->SetInputArrayToProcess(0, 0, 0, vtkDataObject::FIELD_ASSOCIATION_POINTS, array);
    filter->SetUpperThreshold(lo);
    filter->SetThresholdFunction(vtkThreshold::THRESHOLD_UPPER);
    filter->AllScalarsOn();
    filter->Update();
    return filter->GetOutput();
}

double sum_of(vtkDataArray *array)
{
    double sum = 0;
    for (vtkIdType i = 0; i < array->GetNumberOfTuples(); ++i)
        sum += array->GetComponent(i, 0);
    return sum;
}

struct made_mesh {
    const char *mesh, *ending;
    int order;
};

class ThresholdNull : public testing::TestWithParam<made_mesh> {};

TEST_P(ThresholdNull, KeepsTheCellsThatVtkKeeps)
{
    const made_mesh &mesh = GetParam();
    const std::string path = scratch("nulls" + std::string(mesh.ending)), out = scratch("kept.vtu");
    run_well({"sample", "noisy-sphere", "--mesh", mesh.mesh, "--order", std::to_string(mesh.order), "--size",
              "9", "-o", path});
    const auto data = read(path);
    number_all(data);
    vtkDataArray *height = node_array(data, "height");
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
        if (height->GetComponent(i, 0) < -0.3) height->SetComponent(i, 0, -1000);
    write(path, data);
    run_well({"threshold-null", path, "-a", "height", "--null=-1000", "-o", out});
    const auto ours = read(out), theirs = vtkSmartPointer<vtkDataSet>(above(data, "height", -999));
    ASSERT_GT(theirs->GetNumberOfCells(), 50);
    ASSERT_LT(theirs->GetNumberOfCells(), data->GetNumberOfCells());
    EXPECT_EQ(ours->GetNumberOfCells(), theirs->GetNumberOfCells());
    EXPECT_NEAR(volume_of(ours), volume_of(theirs), 1e-5 * volume_of(theirs));
    EXPECT_EQ(sum_of(cell_array(ours, "cell")), sum_of(cell_array(theirs, "cell")));
    // ours keeps the nodes that no cell is left to use, theirs does not
    EXPECT_GE(ours->GetNumberOfPoints(), theirs->GetNumberOfPoints());
    vtkDataArray *node = node_array(ours, "node"), *value = node_array(ours, "height");
    for (vtkIdType i = 0; i < ours->GetNumberOfPoints(); ++i) {
        const auto old = static_cast<vtkIdType>(node->GetComponent(i, 0));
        ASSERT_EQ(value->GetComponent(i, 0), height->GetComponent(old, 0));
        for (int d = 0; d < 3; ++d)
            ASSERT_NEAR(ours->GetPoint(i)[d], data->GetPoint(old)[d], 1e-6);
    }
}

INSTANTIATE_TEST_SUITE_P(Made, ThresholdNull,
                         testing::Values(made_mesh{"uniform", ".vti", 1}, made_mesh{"rectilinear", ".vtr", 1},
                                         made_mesh{"curvilinear", ".vts", 1}, made_mesh{"hex", ".vtu", 1},
                                         made_mesh{"prism", ".vtu", 1}, made_mesh{"pyramid", ".vtu", 1},
                                         made_mesh{"tet", ".vtu", 1}, made_mesh{"hex", ".vtu", 2},
                                         made_mesh{"tet", ".vtu", 2}));

TEST(ThresholdNullOfRealData, DropsTheNodesWithNaN)
{
    const std::string path = real_data("notch_stress.vtk"), out = scratch("stress.vtu");
    if (path.empty()) GTEST_SKIP() << "notch_stress.vtk is not here";
    run_well({"threshold-null", path, "-a", "Nodal Stress-normed", "-o", out});
    const auto ours = read(out);
    EXPECT_EQ(ours->GetNumberOfPoints(), 12717 - 9180);
    EXPECT_EQ(ours->GetNumberOfCells(), 2192);
    EXPECT_NEAR(volume_of(ours), volume_of(read(path)), 1e-9);
}

// ---- clamp --------------------------------------------------------------------------------------------------

TEST(Clamp, LimitsOneArrayAndCopiesTheRest)
{
    for (const char *mesh : {"uniform", "rectilinear", "curvilinear", "tet"}) {
        const std::string ending = mesh == std::string("uniform")       ? ".vti"
                                   : mesh == std::string("tet")         ? ".vtu"
                                   : mesh == std::string("curvilinear") ? ".vts"
                                                                        : ".vtr";
        const std::string path = scratch("whole" + ending), out = scratch("clamped" + ending);
        run_well({"sample", "abc-flow", "--mesh", mesh, "--size", "7", "-o", path});
        const auto data = read(path);
        number_all(data);
        write(path, data);
        run_well(
            {"clamp", path, "-a", "velocity", "--component", "1", "--min=-0.5", "--max", "1", "-o", out});
        const auto ours = read(out);
        EXPECT_STREQ(ours->GetClassName(), data->GetClassName());
        EXPECT_EQ(sum_of(node_array(ours, "node")), sum_of(node_array(data, "node")));
        EXPECT_EQ(sum_of(cell_array(ours, "cell")), sum_of(cell_array(data, "cell")));
        vtkDataArray *after = node_array(ours, "velocity"), *before = node_array(data, "velocity");
        for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
            for (int c = 0; c < 3; ++c) {
                const double was = before->GetComponent(i, c);
                ASSERT_EQ(after->GetComponent(i, c), c != 1 ? was : was < -0.5 ? -0.5 : was > 1 ? 1 : was);
            }
    }
}

TEST(Clamp, LeavesNullsAlone)
{
    const std::string path = scratch("marked.vti"), out = scratch("marked_clamped.vti");
    run_well({"sample", "noisy-sphere", "--size", "5", "-o", path});
    const auto data = read(path);
    node_array(data, "height")->SetComponent(3, 0, -999);
    write(path, data);
    run_well({"clamp", path, "--min", "0", "--null=-999", "-o", out});
    const auto ours = read(out);
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
        ASSERT_EQ(node_array(ours, "height")->GetComponent(i, 0),
                  i == 3 ? -999 : std::max(0.0, node_array(data, "height")->GetComponent(i, 0)));
}

// Bounds beyond the type limit nothing, or everything; and what is told changed is what changed.
TEST(Clamp, TakesBoundsThatTheTypeCannotHold)
{
    vtkNew<vtkImageData> image;
    image->SetDimensions(16, 16, 1);
    image->AllocateScalars(VTK_UNSIGNED_CHAR, 1);
    for (int i = 0; i < 256; ++i)
        static_cast<unsigned char *>(image->GetScalarPointer())[i] = static_cast<unsigned char>(i);
    image->GetPointData()->GetScalars()->SetName("bytes");
    const std::string path = scratch("bytes.vti"), out = scratch("bytes_out.vti");
    write(path, image);
    const struct {
        std::vector<std::string> bounds;
        int lo, hi;
        const char *changed;
    } cases[] = {{{"--min=-10", "--max", "300"}, 0, 255, ": 0 values of bytes limited"},
                 {{"--min", "2.5", "--max", "9.9"}, 3, 9, ": 249 values"},
                 {{"--min", "300"}, 255, 255, ": 255 values"},
                 {{"--max=-1"}, 0, 0, ": 255 values"}};
    for (const auto &one : cases) {
        std::vector<std::string> arguments = {"clamp", path, "-o", out};
        arguments.insert(arguments.end(), one.bounds.begin(), one.bounds.end());
        const ran result = run_well(arguments);
        const auto ours = read(out);
        vtkDataArray *after = node_array(ours, "bytes");
        for (int i = 0; i < 256; ++i)
            ASSERT_EQ(after->GetComponent(i, 0), std::clamp(i, one.lo, one.hi)) << one.bounds[0];
        EXPECT_NE(result.out.find(one.changed), std::string::npos) << shown(result);
    }
}

TEST(Clamp, OfRealData)
{
    const std::string path = real_data("ironProt.vtk"), out = scratch("iron.vti");
    if (path.empty()) GTEST_SKIP() << "ironProt.vtk is not here";
    run_well({"clamp", path, "--min", "20", "--max", "200", "-o", out});
    const auto after = read(out), before = read(path);
    vtkDataArray *ours = node_array(after, "scalars"), *was = node_array(before, "scalars");
    EXPECT_EQ(ours->GetDataType(), VTK_UNSIGNED_CHAR);
    EXPECT_EQ(ours->GetRange()[0], 20);
    EXPECT_EQ(ours->GetRange()[1], 200);
    EXPECT_EQ(ours->GetNumberOfTuples(), was->GetNumberOfTuples());
}

// ---- sample -------------------------------------------------------------------------------------------------

TEST(Sample, IsTheSameFieldOnEveryMesh)
{
    // the value at each node is the formula's, wherever the node stands
    const auto orbital = [](const double *x) {
        const double r = std::sqrt(x[0] * x[0] + x[1] * x[1] + x[2] * x[2]);
        return std::sqrt(3 / 3.14159265358979323846) / 3072 * x[2] * (x[0] * x[0] - x[1] * x[1]) *
               std::exp(-r / 4);
    };
    const struct {
        const char *mesh, *ending;
        vtkIdType nodes, cells;
    } cases[] = {{"uniform", ".vti", 210, 120},     {"rectilinear", ".vtr", 210, 120},
                 {"curvilinear", ".vts", 210, 120}, {"hex", ".vtu", 210, 120},
                 {"prism", ".vtu", 210, 240},       {"pyramid", ".vtu", 330, 720},
                 {"tet", ".vtu", 210, 720}};
    for (const auto &one : cases) {
        const std::string path = scratch("sample" + std::string(one.ending));
        run_well({"sample", "hydrogen", "--mesh", one.mesh, "--size", "5", "6", "7", "-o", path});
        const auto data = read(path);
        EXPECT_EQ(data->GetNumberOfPoints(), one.nodes) << one.mesh;
        EXPECT_EQ(data->GetNumberOfCells(), one.cells) << one.mesh;
        if (one.mesh != std::string("curvilinear")) {
            EXPECT_NEAR(volume_of(data), 60.0 * 60 * 60, 1) << one.mesh;
        }
        vtkDataArray *psi = node_array(data, "psi");
        for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
            ASSERT_NEAR(psi->GetComponent(i, 0), orbital(data->GetPoint(i)), 1e-7) << one.mesh;
    }
}

TEST(Sample, IsTheSameFileEachTime)
{
    for (const char *name : {"hydrogen", "marschner-lobb", "abc-flow", "noisy-sphere"}) {
        run_well({"sample", name, "--size", "6", "-o", scratch("once.vti")});
        run_well({"sample", name, "--size", "6", "-o", scratch("again.vti")});
        EXPECT_EQ(bytes_of(scratch("once.vti")), bytes_of(scratch("again.vti"))) << name;
    }
}

} // namespace
