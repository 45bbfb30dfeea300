#include "inputs.hpp"

#include <vtkCellArray.h>
#include <vtkDoubleArray.h>
#include <vtkFloatArray.h>
#include <vtkIdTypeArray.h>
#include <vtkImageData.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkRectilinearGrid.h>
#include <vtkStructuredGrid.h>
#include <vtkUnsignedCharArray.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace bench {
namespace {

void require(bool holds)
{
    if (holds) return;
    fprintf(stderr, "bench: %s\n", host_error());
    exit(1);
}

void bind(input *made)
{
    require(made->field != nullptr);
    made->mesh = host_mesh(made->field);
    require(made->mesh != nullptr);
}

vtkSmartPointer<vtkFloatArray> borrowed(std::vector<float> &values, int components, const char *name)
{
    auto array = vtkSmartPointer<vtkFloatArray>::New();
    array->SetNumberOfComponents(components);
    array->SetArray(values.data(), static_cast<vtkIdType>(values.size()), 1);
    array->SetName(name);
    return array;
}

void attach_data(input *made)
{
    if (made->bytes.empty()) {
        made->theirs->GetPointData()->SetScalars(borrowed(made->data, 1, "data"));
        return;
    }
    auto array = vtkSmartPointer<vtkUnsignedCharArray>::New();
    array->SetArray(made->bytes.data(), static_cast<vtkIdType>(made->bytes.size()), 1);
    array->SetName("data");
    made->theirs->GetPointData()->SetScalars(array);
}

float lattice_coordinate(qx_long i, qx_long n)
{
    return n == 1 ? 0.0f : static_cast<float>(i) * (2.0f / static_cast<float>(n - 1)) - 1.0f;
}

// The coordinates of n[0] x n[1] x n[2] nodes, axis 0 fastest.
std::vector<float> lattice(const qx_long *n)
{
    std::vector<float> coords;
    coords.reserve(static_cast<size_t>(3 * n[0] * n[1] * n[2]));
    for (qx_long k = 0; k < n[2]; ++k)
        for (qx_long j = 0; j < n[1]; ++j)
            for (qx_long i = 0; i < n[0]; ++i)
                coords.insert(coords.end(), {lattice_coordinate(i, n[0]), lattice_coordinate(j, n[1]),
                                             lattice_coordinate(k, n[2])});
    return coords;
}

std::vector<float> sampled(const std::vector<float> &coords, function f)
{
    std::vector<float> data(coords.size() / 3);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<float>(f(coords[3 * i], coords[3 * i + 1], coords[3 * i + 2]));
    return data;
}

vtkSmartPointer<vtkPoints> points_of(std::vector<float> &coords)
{
    auto points = vtkSmartPointer<vtkPoints>::New();
    points->SetData(borrowed(coords, 3, "points"));
    return points;
}

// Corners of a unit cube in VTK's order, and the cells that we cut it into, by node of cell_nodes.h.
using corner = std::vector<int>; // x, y, z

std::vector<std::vector<corner>> cells_of_cube(int kind)
{
    std::vector<std::vector<corner>> cells;
    const auto place = [&](bool turned) {
        std::vector<corner> cell;
        for (int c = 0; c < cell_kinds[kind].ncorners; ++c) {
            const float *at = cell_kinds[kind].position[c];
            const bool half = kind == CELL_PRISM; // u and v run over [0, 1] there
            const int x = half ? static_cast<int>(at[0]) : (at[0] > 0 ? 1 : 0);
            const int y = half ? static_cast<int>(at[1]) : (at[1] > 0 ? 1 : 0);
            cell.push_back({turned ? 1 - x : x, turned ? 1 - y : y, at[2] > 0 ? 1 : 0});
        }
        cells.push_back(cell);
    };
    if (kind == CELL_HEX) place(false);
    if (kind == CELL_PRISM) {
        place(false);
        place(true);
    }
    if (kind == CELL_TET) {
        int axis[3] = {0, 1, 2};
        do {
            corner at = {0, 0, 0};
            std::vector<corner> path = {at};
            for (int a : axis) {
                at[static_cast<size_t>(a)] = 1;
                path.push_back(at);
            }
            const bool even = (axis[1] - axis[0] + 3) % 3 == 1;
            cells.push_back(even ? std::vector<corner>{path[1], path[2], path[3], path[0]}
                                 : std::vector<corner>{path[2], path[1], path[3], path[0]});
        } while (std::next_permutation(axis, axis + 3));
    }
    return cells;
}

// Position in our node row of each node of VTK's row.
const std::vector<int> &vtk_row(int kind)
{
    static const std::vector<int> hex = {5, 6, 7, 4, 1, 2, 3, 0}, tet = {3, 0, 1, 2},
                                  prism = {0, 1, 2, 3, 4, 5};
    return kind == CELL_HEX ? hex : kind == CELL_TET ? tet : prism;
}

} // namespace

input::~input()
{
    theirs = nullptr;
    host_free_field(field);
}

input_ptr uniform_input(qx_long nx, qx_long ny, qx_long nz, function f, bool as_bytes)
{
    auto made = std::make_shared<input>();
    const qx_long dims[3] = {nx, ny, nz};
    const int ndim = nz > 1 ? 3 : 2;
    made->corners = {-1, -1, nz > 1 ? -1.0f : 0.0f, 1, 1, nz > 1 ? 1.0f : 0.0f};
    {
        const std::vector<float> coords = lattice(dims);
        made->data = sampled(coords, f);
    }
    if (as_bytes) {
        const auto range = std::minmax_element(made->data.begin(), made->data.end());
        const float lo = *range.first, hi = *range.second;
        for (float value : made->data)
            made->bytes.push_back(static_cast<unsigned char>(std::lround((value - lo) / (hi - lo) * 255)));
        made->data.clear();
    }
    made->field = host_uniform(ndim, dims, 3, made->corners.data());
    bind(made.get());
    auto image = vtkSmartPointer<vtkImageData>::New();
    image->SetDimensions(static_cast<int>(nx), static_cast<int>(ny), static_cast<int>(nz));
    image->SetOrigin(-1, -1, nz > 1 ? -1 : 0);
    image->SetSpacing(2.0 / static_cast<double>(nx - 1), 2.0 / static_cast<double>(ny - 1),
                      nz > 1 ? 2.0 / static_cast<double>(nz - 1) : 1.0);
    made->theirs = image;
    attach_data(made.get());
    return made;
}

input_ptr rectilinear_input(qx_long n, function f)
{
    auto made = std::make_shared<input>();
    const qx_long dims[3] = {n, n, n};
    for (int d = 0; d < 3; ++d) {
        std::vector<float> axis;
        for (qx_long i = 0; i < n; ++i) {
            const float even = lattice_coordinate(i, n);
            axis.push_back(i == 0 || i == n - 1 ? even
                                                : even + 0.3f / static_cast<float>(n) *
                                                             std::sin(7.0f * static_cast<float>(i)));
        }
        made->axes.push_back(axis);
    }
    const float *axes[3] = {made->axes[0].data(), made->axes[1].data(), made->axes[2].data()};
    for (qx_long k = 0; k < n; ++k)
        for (qx_long j = 0; j < n; ++j)
            for (qx_long i = 0; i < n; ++i)
                made->data.push_back(static_cast<float>(f(axes[0][i], axes[1][j], axes[2][k])));
    made->field = host_rectilinear(3, dims, 3, axes);
    bind(made.get());
    auto grid = vtkSmartPointer<vtkRectilinearGrid>::New();
    grid->SetDimensions(static_cast<int>(n), static_cast<int>(n), static_cast<int>(n));
    grid->SetXCoordinates(borrowed(made->axes[0], 1, "x"));
    grid->SetYCoordinates(borrowed(made->axes[1], 1, "y"));
    grid->SetZCoordinates(borrowed(made->axes[2], 1, "z"));
    made->theirs = grid;
    attach_data(made.get());
    return made;
}

input_ptr curvilinear_input(qx_long n, function f)
{
    auto made = std::make_shared<input>();
    const qx_long dims[3] = {n, n, n};
    made->coords = lattice(dims);
    const float reach = 0.4f / static_cast<float>(n);
    for (size_t i = 0; i < made->coords.size(); i += 3) {
        float *at = &made->coords[i];
        const float shift = reach * std::sin(9 * at[0]) * std::cos(7 * at[1] + 5 * at[2]);
        at[0] += shift;
        at[1] -= shift;
        at[2] += shift;
    }
    made->data = sampled(made->coords, f);
    made->field = host_curvilinear(3, dims, 3, made->coords.data());
    bind(made.get());
    auto grid = vtkSmartPointer<vtkStructuredGrid>::New();
    grid->SetDimensions(static_cast<int>(n), static_cast<int>(n), static_cast<int>(n));
    grid->SetPoints(points_of(made->coords));
    made->theirs = grid;
    attach_data(made.get());
    return made;
}

input_ptr cells_input(cut_into kinds, qx_long cubes, function f)
{
    auto made = std::make_shared<input>();
    const qx_long n = cubes + 1, dims[3] = {n, n, n};
    made->coords = lattice(dims);
    made->data = sampled(made->coords, f);
    const std::vector<int> layers = kinds == cut_into::hexes ? std::vector<int>{CELL_HEX}
                                    : kinds == cut_into::tets
                                        ? std::vector<int>{CELL_TET}
                                        : std::vector<int>{CELL_HEX, CELL_PRISM, CELL_TET};
    made->field = host_cells(n * n * n, 3, made->coords.data());
    require(made->field != nullptr);
    auto cells = vtkSmartPointer<vtkCellArray>::New();
    auto types = vtkSmartPointer<vtkUnsignedCharArray>::New();
    made->connect.resize(layers.size());
    for (size_t layer = 0; layer < layers.size(); ++layer) {
        const int kind = layers[layer];
        const qx_long parts = static_cast<qx_long>(layers.size());
        const qx_long from = cubes * static_cast<qx_long>(layer) / parts,
                      to = cubes * static_cast<qx_long>(layer + 1) / parts;
        std::vector<qx_long> &connect = made->connect[layer];
        for (qx_long k = from; k < to; ++k)
            for (qx_long j = 0; j < cubes; ++j)
                for (qx_long i = 0; i < cubes; ++i)
                    for (const std::vector<corner> &cell : cells_of_cube(kind)) {
                        const size_t row = connect.size();
                        for (const corner &c : cell)
                            connect.push_back(i + c[0] + n * (j + c[1] + n * (k + c[2])));
                        vtkIdType ids[8];
                        for (size_t v = 0; v < cell.size(); ++v)
                            ids[v] = connect[row + static_cast<size_t>(vtk_row(kind)[v])];
                        cells->InsertNextCell(static_cast<vtkIdType>(cell.size()), ids);
                        types->InsertNextValue(kind == CELL_HEX   ? VTK_HEXAHEDRON
                                               : kind == CELL_TET ? VTK_TETRA
                                                                  : VTK_WEDGE);
                    }
        require(host_add_cells(made->field, kind, 1,
                               static_cast<qx_long>(connect.size()) / cell_kinds[kind].ncorners,
                               connect.data()) == 1);
    }
    bind(made.get());
    auto grid = vtkSmartPointer<vtkUnstructuredGrid>::New();
    grid->SetPoints(points_of(made->coords));
    grid->SetCells(types, cells);
    made->theirs = grid;
    attach_data(made.get());
    return made;
}

std::vector<float> random_places(qx_long npoints)
{
    std::mt19937 random(20260101);
    std::uniform_real_distribution<float> spread(-0.99f, 0.99f);
    std::vector<float> places(static_cast<size_t>(3 * npoints));
    for (float &c : places)
        c = spread(random);
    return places;
}

} // namespace bench
