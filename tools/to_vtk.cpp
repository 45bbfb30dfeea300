#include "to_vtk.hpp"

#include "cell_order.hpp"
#include "samples.hpp"

#include <vtkCellArray.h>
#include <vtkDataObjectTypes.h>
#include <vtkFloatArray.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkRectilinearGrid.h>
#include <vtkStructuredGrid.h>
#include <vtkTypeInt64Array.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>

static vtkSmartPointer<vtkFloatArray> floats(const std::vector<float> &values, int components)
{
    auto array = vtkSmartPointer<vtkFloatArray>::New();
    array->SetNumberOfComponents(components);
    array->SetNumberOfTuples(static_cast<vtkIdType>(values.size()) / components);
    std::copy(values.begin(), values.end(), array->GetPointer(0));
    return array;
}

static vtkSmartPointer<vtkPoints> to_points(const std::vector<float> &xyz)
{
    auto points = vtkSmartPointer<vtkPoints>::New();
    points->SetData(floats(xyz, 3));
    return points;
}

vtkSmartPointer<vtkDataSet> points_to_vtk(const std::vector<double> &xyz)
{
    auto data = vtkSmartPointer<vtkPolyData>::New();
    vtkNew<vtkPoints> points;
    const bool held =
        std::all_of(xyz.begin(), xyz.end(), [](double value) { return static_cast<float>(value) == value; });
    points->SetDataType(held ? VTK_FLOAT : VTK_DOUBLE);
    points->SetNumberOfPoints(static_cast<vtkIdType>(xyz.size() / 3));
    for (vtkIdType i = 0; i < points->GetNumberOfPoints(); ++i)
        points->SetPoint(i, &xyz[static_cast<size_t>(i) * 3]);
    data->SetPoints(points);
    vtkNew<vtkTypeInt64Array> nodes;
    nodes->SetNumberOfValues(data->GetNumberOfPoints());
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
        nodes->SetValue(i, i);
    vtkNew<vtkCellArray> vertices;
    vertices->SetData(1, nodes);
    data->SetVerts(vertices);
    return data;
}

vtkSmartPointer<vtkDataSet> lattice_to_vtk(const qx_long dims[3], const double lo[3], const double hi[3])
{
    auto data = vtkSmartPointer<vtkImageData>::New();
    double spacing[3];
    for (int d = 0; d < 3; ++d)
        spacing[d] = dims[d] > 1 && hi[d] > lo[d] ? (hi[d] - lo[d]) / static_cast<double>(dims[d] - 1) : 1;
    data->SetDimensions(static_cast<int>(dims[0]), static_cast<int>(dims[1]), static_cast<int>(dims[2]));
    data->SetOrigin(lo[0], lo[1], lo[2]);
    data->SetSpacing(spacing);
    return data;
}

static vtkSmartPointer<vtkDataSet> to_cells(const samples::mesh &mesh)
{
    auto data = vtkSmartPointer<vtkUnstructuredGrid>::New();
    data->SetPoints(to_points(mesh.coords));
    const cell_order *order = order_of_kind(mesh.cell_kind, mesh.order);
    const int n = order->vtk_nodes;
    vtkNew<vtkTypeInt64Array> nodes;
    nodes->SetNumberOfValues(mesh.ncells * n);
    for (int64_t c = 0; c < mesh.ncells; ++c)
        for (int i = 0; i < n; ++i)
            nodes->SetValue(c * n + order->node[place_in_list(mesh.cell_kind, mesh.order, i)],
                            mesh.connect[static_cast<size_t>(c * n + i)]);
    vtkNew<vtkCellArray> cells;
    cells->SetData(n, nodes);
    data->SetCells(order->vtk, cells);
    return data;
}

static vtkSmartPointer<vtkDataSet> to_mesh(const samples::mesh &mesh)
{
    if (mesh.kind == samples::layout::cells) return to_cells(mesh);
    int64_t dims[3] = {1, 1, 1};
    std::copy(mesh.dims.begin(), mesh.dims.end(), dims);
    const int d[3] = {static_cast<int>(dims[0]), static_cast<int>(dims[1]), static_cast<int>(dims[2])};
    if (mesh.kind == samples::layout::uniform) {
        const std::vector<double> corners(mesh.corners.begin(), mesh.corners.end());
        return lattice_to_vtk(dims, corners.data(), corners.data() + 3);
    }
    if (mesh.kind == samples::layout::rectilinear) {
        auto data = vtkSmartPointer<vtkRectilinearGrid>::New();
        data->SetDimensions(d[0], d[1], d[2]);
        data->SetXCoordinates(floats(mesh.axes[0], 1));
        data->SetYCoordinates(floats(mesh.axes[1], 1));
        data->SetZCoordinates(floats(mesh.axes[2], 1));
        return data;
    }
    auto data = vtkSmartPointer<vtkStructuredGrid>::New();
    data->SetDimensions(d[0], d[1], d[2]);
    data->SetPoints(to_points(mesh.coords));
    return data;
}

vtkSmartPointer<vtkDataSet> sample_to_vtk(const samples::mesh &mesh, const samples::field &field)
{
    auto data = to_mesh(mesh);
    const auto array = floats(samples::values(field, mesh), field.veclen);
    array->SetName(field.array);
    if (field.veclen == 1)
        data->GetPointData()->SetScalars(array);
    else
        data->GetPointData()->SetVectors(array);
    return data;
}

const char *ending_of_data(vtkDataSet *data)
{
    switch (data->GetDataObjectType()) {
    case VTK_POLY_DATA: return " .vtp ";
    case VTK_RECTILINEAR_GRID: return " .vtr ";
    case VTK_STRUCTURED_GRID: return " .vts ";
    case VTK_UNSTRUCTURED_GRID: return " .vtu ";
    default: return " .vti "; // images of any class
    }
}
