// gradient, curl, divergence and cell-to-node: exact for linear data on any mesh, and what VTK's filters give.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkCellData.h>
#include <vtkCellDataToPointData.h>
#include <vtkDataArray.h>
#include <vtkFloatArray.h>
#include <vtkGradientFilter.h>
#include <vtkIntArray.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkUnstructuredGrid.h>

#include <cmath>

namespace {

// ---- linear data ----------------------------------------------------------------------------------------------

const double field[3][3] = {{2, -3, 1}, {0.5, 4, -2}, {-1, 1.5, 3}};

// Adds the node arrays "t" and "v", linear in the place.
void add_linear(vtkDataSet *data)
{
    add_node_array(data, "t", [](const double *x) { return 2 * x[0] - 3 * x[1] + x[2] + 4; });
    vtkNew<vtkFloatArray> v;
    v->SetName("v");
    v->SetNumberOfComponents(3);
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i) {
        const double *x = data->GetPoint(i);
        float row[3];
        for (int c = 0; c < 3; ++c)
            row[c] = static_cast<float>(field[c][0] * x[0] + field[c][1] * x[1] + field[c][2] * x[2]);
        v->InsertNextTypedTuple(row);
    }
    data->GetPointData()->AddArray(v);
}

struct mesh_of_cells {
    const char *mesh, *ending;
    int order;
    std::vector<std::string> size;
    bool flat;
};

std::ostream &operator<<(std::ostream &out, const mesh_of_cells &mesh)
{
    return out << mesh.mesh << " of order " << mesh.order << (mesh.flat ? ", flat" : "");
}

const mesh_of_cells meshes[] = {
    {"uniform", ".vti", 1, {"7", "6", "5"}, false},
    {"rectilinear", ".vtr", 1, {"7", "6", "5"}, false},
    {"curvilinear", ".vts", 1, {"7", "6", "5"}, false},
    {"uniform", ".vti", 1, {"7", "6", "1"}, true},
    {"rectilinear", ".vtr", 1, {"7", "6", "1"}, true},
    {"curvilinear", ".vts", 1, {"7", "6", "1"}, true},
    {"hex", ".vtu", 1, {"5"}, false},
    {"hex", ".vtu", 2, {"4"}, false},
    {"prism", ".vtu", 1, {"5"}, false},
    {"prism", ".vtu", 2, {"4"}, false},
    {"pyramid", ".vtu", 1, {"4"}, false},
    {"pyramid", ".vtu", 2, {"3"}, false},
    {"tet", ".vtu", 1, {"5"}, false},
    {"tet", ".vtu", 2, {"4"}, false},
    {"quad", ".vtu", 1, {"6"}, true},
    {"tri", ".vtu", 2, {"5"}, true},
};

class Derivative : public testing::TestWithParam<mesh_of_cells> {};

void expect_rows(vtkDataSet *data, const std::string &array, const std::vector<double> &row)
{
    vtkDataArray *made = node_array(data, array);
    ASSERT_NE(made, nullptr) << array;
    ASSERT_EQ(made->GetNumberOfComponents(), static_cast<int>(row.size()));
    EXPECT_EQ(made->GetDataType(), VTK_FLOAT);
    ASSERT_EQ(made->GetNumberOfTuples(), data->GetNumberOfPoints());
    for (vtkIdType i = 0; i < made->GetNumberOfTuples(); ++i)
        for (int c = 0; c < made->GetNumberOfComponents(); ++c)
            ASSERT_NEAR(made->GetComponent(i, c), row[static_cast<size_t>(c)], 1e-3)
                << array << " at node " << i << ", component " << c;
}

// In the plane of x and y what is along z is left out.
TEST_P(Derivative, OfLinearDataIsExact)
{
    const mesh_of_cells &mesh = GetParam();
    const std::string path = scratch("linear" + std::string(mesh.ending)),
                      out = scratch("derived" + std::string(mesh.ending));
    std::vector<std::string> arguments = {"sample",  "abc-flow", "--mesh",
                                          mesh.mesh, "--order",  std::to_string(mesh.order),
                                          "-o",      path,       "--size"};
    arguments.insert(arguments.end(), mesh.size.begin(), mesh.size.end());
    run_well(arguments);
    const auto data = read(path);
    add_linear(data);
    write(path, data);
    const double z = mesh.flat ? 0 : 1;
    run_well({"gradient", path, "-a", "t", "-o", out});
    expect_rows(read(out), "gradient(t)", {2, -3, z});
    EXPECT_NE(node_array(read(out), "v"), nullptr); // the other arrays stay
    if (std::string(mesh.mesh) == "uniform") {
        run_well({"gradient", path, "-a", "v", "--component", "1", "-o", out});
        expect_rows(read(out), "gradient(v)", {0.5, 4, -2 * z});
    }
    run_well({"curl", path, "-a", "v", "-o", out});
    expect_rows(read(out), "curl(v)",
                {field[2][1] - z * field[1][2], z * field[0][2] - field[2][0], field[1][0] - field[0][1]});
    run_well({"divergence", path, "-a", "v", "-o", out});
    expect_rows(read(out), "divergence(v)", {field[0][0] + field[1][1] + z * field[2][2]});
}
INSTANTIATE_TEST_SUITE_P(AnyMesh, Derivative, testing::ValuesIn(meshes));

// ---- against VTK ----------------------------------------------------------------------------------------------

// The furthest apart of two arrays, of the greatest of theirs; all but the rows that skip names.
double apart(vtkDataArray *ours, vtkDataArray *theirs)
{
    double most = 0, worst = 0;
    for (vtkIdType i = 0; i < theirs->GetNumberOfTuples(); ++i)
        for (int c = 0; c < theirs->GetNumberOfComponents(); ++c) {
            most = std::max(most, std::abs(theirs->GetComponent(i, c)));
            worst = std::max(worst, std::abs(theirs->GetComponent(i, c) - ours->GetComponent(i, c)));
        }
    return worst / most;
}

vtkSmartPointer<vtkDataSet> vtk_gradient(vtkDataSet *data, const char *array)
{
    vtkNew<vtkGradientFilter> filter;
    filter->SetInputData(data);
    filter->SetInputArrayToProcess(0, 0, 0, vtkDataObject::FIELD_ASSOCIATION_POINTS, array);
    filter->SetResultArrayName("theirs");
    filter->Update();
    return vtkDataSet::SafeDownCast(filter->GetOutput());
}

TEST(DerivativeOf, CurvedDataIsWhatVtkGives)
{
    for (const mesh_of_cells &mesh : meshes) {
        if (mesh.order == 2 || mesh.flat || std::string(mesh.mesh) == "pyramid") continue;
        SCOPED_TRACE(mesh.mesh);
        const std::string path = scratch("curved" + std::string(mesh.ending)),
                          out = scratch("slopes" + std::string(mesh.ending));
        run_well({"sample", "noisy-sphere", "--mesh", mesh.mesh, "--size", "9", "-o", path});
        run_well({"gradient", path, "-o", out});
        EXPECT_LT(apart(node_array(read(out), "gradient(height)"),
                        node_array(vtk_gradient(read(path), "height"), "theirs")),
                  1e-4);
    }
}

TEST(DerivativeOf, RealDataIsWhatVtkGives)
{
    const struct {
        const char *file, *array, *ending;
        double within;
    } all[] = {{"ironProt.vtk", "scalars", ".vti", 1e-5}, {"hexa.vtk", "scalars", ".vtu", 1e-3}};
    int seen = 0;
    for (const auto &one : all) {
        const std::string path = real_data(one.file);
        if (path.empty()) continue;
        const auto data = read(path);
        if (node_array(data, one.array) == nullptr) continue;
        ++seen;
        const std::string out = scratch("real" + std::string(one.ending));
        run_well({"gradient", path, "-a", one.array, "-o", out});
        EXPECT_LT(apart(node_array(read(out), "gradient(" + std::string(one.array) + ")"),
                        node_array(vtk_gradient(data, one.array), "theirs")),
                  one.within)
            << one.file;
    }
    if (seen == 0) GTEST_SKIP() << "the data sets are not here";
}

// ---- what is not like that ------------------------------------------------------------------------------------

TEST(DerivativeOf, TheLibrarysOwnFormsDifferAsItsManualTells)
{
    const std::string path = scratch("ends.vtr"), out = scratch("ends_out.vtr");
    run_well({"sample", "abc-flow", "--mesh", "rectilinear", "--size", "5", "-o", path});
    const auto data = read(path);
    add_linear(data);
    write(path, data);
    run_well({"gradient", path, "-a", "t", "--library", "-o", out});
    const auto written = read(out);
    vtkDataArray *made = node_array(written, "gradient(t)");
    int off = 0;
    for (vtkIdType i = 0; i < made->GetNumberOfTuples(); ++i) {
        const bool is_off = std::abs(made->GetComponent(i, 0) - 2) > 1e-3;
        off += is_off ? 1 : 0;
        EXPECT_TRUE(i % 5 == 4 || !is_off) << "node " << i;
    }
    EXPECT_GT(off, 0);

    const std::string flat = scratch("flat.vti");
    run_well({"sample", "abc-flow", "--size", "5", "5", "1", "-o", flat});
    const ran refused = run({"curl", flat, "-a", "velocity", "--library", "-o", scratch("no.vti")});
    EXPECT_EQ(refused.code, 1) << shown(refused);
    EXPECT_NE(refused.err.find("UTILcurl: no curl function for ndim=2"), std::string::npos) << shown(refused);
}

TEST(DerivativeOf, NodesWithoutCellsAreNotNumbersAndToldOf)
{
    const std::string path = scratch("loose.vtu"), out = scratch("loose_out.vtu");
    vtkNew<vtkUnstructuredGrid> grid;
    vtkNew<vtkPoints> points;
    for (const auto &x :
         std::vector<std::vector<double>>{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {5, 5, 5}})
        points->InsertNextPoint(x.data());
    grid->SetPoints(points);
    const vtkIdType nodes[4] = {0, 1, 2, 3};
    grid->InsertNextCell(VTK_TETRA, 4, nodes);
    add_linear(grid);
    write(path, grid);
    const ran told = run_well({"gradient", path, "-a", "t", "-o", out});
    EXPECT_NE(told.err.find("note: 1 nodes have no gradient"), std::string::npos) << shown(told);
    const auto written = read(out);
    vtkDataArray *made = node_array(written, "gradient(t)");
    EXPECT_TRUE(std::isnan(made->GetComponent(4, 0)));
    EXPECT_NEAR(made->GetComponent(0, 1), -3, 1e-5);
}

TEST(DerivativeOf, NodesWithoutValueTakeTheirCellsOut)
{
    const std::string path = scratch("holes.vti"), out = scratch("holes_out.vti");
    run_well({"sample", "abc-flow", "--size", "6", "-o", path});
    const auto data = read(path);
    add_linear(data);
    vtkDataArray *t = node_array(data, "t"), *v = node_array(data, "v");
    t->SetComponent(0, 0, -1000);
    v->SetComponent(0, 1, std::nan(""));
    write(path, data);
    for (const std::vector<std::string> &extra : std::vector<std::vector<std::string>>{
             {"gradient", "t", "--null=-1000"}, {"divergence", "v", "--null=-1e30"}}) {
        run_well({extra[0], path, "-a", extra[1], extra[2], "-o", out});
        const auto written = read(out);
        vtkDataArray *made = node_array(written, extra[0] + "(" + extra[1] + ")");
        for (vtkIdType i = 0; i < made->GetNumberOfTuples(); ++i) {
            // The corner is in one cell, and no other.
            if (i == 0)
                EXPECT_TRUE(std::isnan(made->GetComponent(i, 0)));
            else
                EXPECT_NEAR(made->GetComponent(i, 0), extra[0] == "gradient" ? 2 : 9, 1e-3) << "node " << i;
        }
    }
}

TEST(DerivativeOf, WrongArraysAreNamed)
{
    const std::string path = scratch("named.vti");
    run_well({"sample", "noisy-sphere", "--size", "5", "-o", path});
    const ran scalar = run({"curl", path, "-a", "height", "-o", scratch("no.vti")});
    EXPECT_EQ(scalar.code, 1);
    EXPECT_NE(scalar.err.find("height has 1 component, and curl takes vectors of 3"), std::string::npos)
        << shown(scalar);
    const ran ending = run({"gradient", path, "-o", scratch("no.vtu")});
    EXPECT_EQ(ending.code, 2) << shown(ending);
    const ran nothing = run({"divergence", path});
    EXPECT_EQ(nothing.code, 2) << shown(nothing);
}

TEST(DerivativeOf, PicturesAreDrawn)
{
    const std::string path = scratch("drawn.vti"), picture = scratch("drawn.png");
    run_well({"sample", "noisy-sphere", "--size", "12", "-o", path});
    run_well({"gradient", path, "--picture", picture});
    EXPECT_GT(bytes_of(picture).size(), 1000u);
}

// ---- cell data at nodes ---------------------------------------------------------------------------------------

vtkDataArray *add_cell_array(vtkDataSet *data, vtkDataArray *array, const char *name)
{
    random_numbers random(3);
    array->SetName(name);
    array->SetNumberOfTuples(data->GetNumberOfCells());
    for (vtkIdType i = 0; i < data->GetNumberOfCells(); ++i)
        array->SetComponent(i, 0, std::floor(100 * random.next()));
    data->GetCellData()->AddArray(array);
    return array;
}

TEST(NodeMeans, AreWhatVtkGives)
{
    for (const mesh_of_cells &mesh : meshes) {
        SCOPED_TRACE(mesh.mesh);
        const std::string path = scratch("means" + std::string(mesh.ending)),
                          out = scratch("means_out" + std::string(mesh.ending));
        std::vector<std::string> arguments = {"sample",  "noisy-sphere", "--mesh",
                                              mesh.mesh, "--order",      std::to_string(mesh.order),
                                              "-o",      path,           "--size"};
        arguments.insert(arguments.end(), mesh.size.begin(), mesh.size.end());
        run_well(arguments);
        const auto data = read(path);
        vtkNew<vtkFloatArray> values;
        vtkNew<vtkIntArray> whole;
        add_cell_array(data, values, "value");
        add_cell_array(data, whole, "whole");
        write(path, data);
        vtkNew<vtkCellDataToPointData> filter;
        filter->SetInputData(data);
        filter->Update();
        vtkDataArray *theirs = filter->GetOutput()->GetPointData()->GetArray("value");
        run_well({"cell-to-node", path, "-a", "value", "-o", out});
        EXPECT_LT(apart(node_array(read(out), "value"), theirs), 1e-6);
        run_well({"cell-to-node", path, "-a", "whole", "-o", out});
        const auto made = read(out);
        vtkDataArray *ours = node_array(made, "whole");
        EXPECT_EQ(ours->GetDataType(), VTK_INT);
        for (vtkIdType i = 0; i < ours->GetNumberOfTuples(); ++i)
            ASSERT_LE(std::abs(ours->GetComponent(i, 0) - theirs->GetComponent(i, 0)), 0.5001);
        // Weights move the means, within the range of the cells.
        run_well({"cell-to-node", path, "-a", "value", "--weight", "distance", "-o", out});
        double range[2];
        node_array(read(out), "value")->GetRange(range);
        EXPECT_GE(range[0], 0);
        EXPECT_LE(range[1], 99);
    }
}

TEST(NodeMeans, LeaveCellsWithoutValueOut)
{
    const std::string path = scratch("null_cells.vti"), out = scratch("null_means.vti");
    run_well({"sample", "noisy-sphere", "--size", "3", "3", "1", "-o", path});
    const auto data = read(path);
    vtkNew<vtkIntArray> whole;
    add_cell_array(data, whole, "whole");
    for (int i = 0; i < 4; ++i)
        whole->SetValue(i, i == 0 ? -7 : 10 * i); // -7, 10, 20, 30
    write(path, data);
    const ran told = run_well({"cell-to-node", path, "--null=-7", "-o", out});
    const auto written = read(out);
    vtkDataArray *made = node_array(written, "whole");
    EXPECT_EQ(made->GetComponent(0, 0), -7); // of the null cell alone
    EXPECT_EQ(made->GetComponent(1, 0), 10);
    EXPECT_EQ(made->GetComponent(4, 0), 20);
    EXPECT_NE(told.err.find("note: 1 nodes are in no cell with a value"), std::string::npos) << shown(told);
}

TEST(NodeMeans, OtherCommandsTakeThemOnTheWay)
{
    const std::string path = scratch("way.vtu"), carried = scratch("way_nodes.vtu");
    run_well({"sample", "noisy-sphere", "--mesh", "tet", "--size", "8", "-o", path});
    const auto data = read(path);
    vtkNew<vtkFloatArray> values;
    add_cell_array(data, values, "value");
    write(path, data);
    run_well({"cell-to-node", path, "-a", "value", "-o", carried});
    run_well({"iso", carried, "-a", "value", "-l", "50", "-o", scratch("two_steps.vtp")});
    run_well({"iso", path, "-a", "value", "--cell-to-node", "-l", "50", "-o", scratch("one_step.vtp")});
    const auto two = read_surface(scratch("two_steps.vtp")), one = read_surface(scratch("one_step.vtp"));
    EXPECT_GT(one->GetNumberOfPolys(), 50);
    EXPECT_EQ(one->GetNumberOfPolys(), two->GetNumberOfPolys());
    EXPECT_DOUBLE_EQ(area_of(one), area_of(two));
    run_well({"clamp", path, "-a", "value", "--cell-to-node", "--max", "50", "-o", carried});
    EXPECT_LE(node_array(read(carried), "value")->GetRange()[1], 50);
    run_well({"gradient", path, "-a", "value", "--cell-to-node", "-o", carried});
    EXPECT_NE(node_array(read(carried), "gradient(value)"), nullptr);
    const ran wrong = run({"gradient", path, "-a", "height", "--cell-to-node", "-o", carried});
    EXPECT_EQ(wrong.code, 1);
    EXPECT_NE(wrong.err.find("has no cell array height; its cell arrays: value"), std::string::npos)
        << shown(wrong);
}

} // namespace
