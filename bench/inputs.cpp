// Samples bound to the host and handed to VTK.
//
// A mix of kinds takes each kind's layers from a lattice that is cut into that kind throughout: the connect
// list goes cube by cube, so layers are a stretch of it, and the lattice's nodes have the same numbers in
// all. Where diagonals of neighbouring layers do not meet the surface has a crack, the same on both sides.
#include "inputs.hpp"

#include "cell_order.hpp"
#include "to_vtk.hpp"

#include <skoklana/types.h>

#include <vtkCellArray.h>
#include <vtkDataArray.h>
#include <vtkFloatArray.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkTypeInt64Array.h>
#include <vtkUnsignedCharArray.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace bench {

input::~input()
{
    theirs = nullptr;
    host_free_field(field);
}

void *input::data() const
{
    return scalars->GetVoidPointer(0);
}

double input::data_bytes() const
{
    return static_cast<double>(scalars->GetNumberOfValues()) * scalars->GetDataTypeSize();
}

double input::mesh_bytes() const
{
    double bytes = 0;
    for (const samples::mesh &part : parts)
        bytes +=
            static_cast<double>(part.coords.size() * sizeof(float) + part.connect.size() * sizeof(qx_long));
    return bytes;
}

static void require_host(bool holds)
{
    if (holds) return;
    fprintf(stderr, "bench: %s\n", host_error());
    exit(2);
}

static const samples::field &sample_named(const char *name)
{
    const samples::field *found = samples::find(name);
    if (found != nullptr) return *found;
    fprintf(stderr, "bench: no sample %s\n", name);
    exit(2);
}

static vtkSmartPointer<vtkDataArray> scaled_to_bytes(vtkDataArray *values)
{
    double range[2];
    values->GetRange(range);
    auto bytes = vtkSmartPointer<vtkUnsignedCharArray>::New();
    bytes->SetNumberOfValues(values->GetNumberOfTuples());
    for (vtkIdType i = 0; i < values->GetNumberOfTuples(); ++i)
        bytes->SetValue(i, static_cast<unsigned char>(std::lround((values->GetComponent(i, 0) - range[0]) /
                                                                  (range[1] - range[0]) * 255)));
    return bytes;
}

static void finish(input *made, const char *name, bool as_bytes)
{
    require_host(made->field != nullptr);
    made->mesh = host_mesh(made->field);
    require_host(made->mesh != nullptr);
    vtkPointData *data = made->theirs->GetPointData();
    if (as_bytes) data->SetScalars(scaled_to_bytes(data->GetScalars()));
    data->GetScalars()->SetName(name);
    made->scalars = data->GetScalars();
    made->type = as_bytes ? DTYPE_BYTE : DTYPE_FLOAT;
}

input_ptr structured_input(samples::layout layout, const int64_t *dims, const char *sample, bool as_bytes)
{
    const samples::field &field = sample_named(sample);
    auto made = std::make_shared<input>();
    made->parts.push_back(samples::structured(layout, dims, field.lo, field.hi));
    made->cubes_an_axis = dims[0] - 1;
    const samples::mesh &mesh = made->parts[0];
    made->theirs = sample_to_vtk(mesh, field);
    const int ndim = static_cast<int>(mesh.dims.size());
    if (layout == samples::layout::uniform) {
        made->field = host_uniform(ndim, mesh.dims.data(), 3, mesh.corners.data());
    } else if (layout == samples::layout::rectilinear) {
        const float *axes[3] = {mesh.axes[0].data(), mesh.axes[1].data(), mesh.axes[2].data()};
        made->field = host_rectilinear(ndim, mesh.dims.data(), 3, axes);
    } else {
        made->field = host_curvilinear(ndim, mesh.dims.data(), 3, mesh.coords.data());
    }
    finish(made.get(), sample, as_bytes);
    return made;
}

// Keeps the cells of cubes first to last - 1 and, of the nodes that follow the lattice's, those of these cubes.
static void keep_layers(samples::mesh *whole, int64_t first, int64_t last, int64_t cubes,
                        int64_t lattice_nodes)
{
    const int64_t row = static_cast<int64_t>(whole->connect.size()) / cubes;
    whole->connect = {whole->connect.begin() + first * row, whole->connect.begin() + last * row};
    whole->ncells = whole->ncells / cubes * (last - first);
    const int64_t added_a_cube = (whole->nnodes() - lattice_nodes) / cubes;
    const auto added = whole->coords.begin() + 3 * lattice_nodes;
    whole->coords.erase(added + 3 * added_a_cube * last, whole->coords.end());
    whole->coords.erase(added, added + 3 * added_a_cube * first);
    for (int64_t &node : whole->connect)
        if (node >= lattice_nodes) node -= added_a_cube * first;
}

static vtkSmartPointer<vtkDataSet> cell_sets_to_vtk(const std::vector<samples::mesh> &sets,
                                                    const samples::field &field)
{
    vtkIdType ncells = 0, nconnect = 0;
    for (const samples::mesh &set : sets) {
        ncells += set.ncells;
        nconnect += static_cast<vtkIdType>(set.connect.size());
    }
    auto offsets = vtkSmartPointer<vtkTypeInt64Array>::New(),
         connect = vtkSmartPointer<vtkTypeInt64Array>::New();
    auto types = vtkSmartPointer<vtkUnsignedCharArray>::New();
    offsets->SetNumberOfValues(ncells + 1);
    connect->SetNumberOfValues(nconnect);
    types->SetNumberOfValues(ncells);
    vtkIdType cell = 0, at = 0;
    for (const samples::mesh &set : sets) {
        const cell_order &order = *order_of_kind(set.cell_kind, set.order);
        for (int64_t c = 0; c < set.ncells; ++c, ++cell) {
            offsets->SetValue(cell, at);
            types->SetValue(cell, static_cast<unsigned char>(order.vtk));
            for (int i = 0; i < order.vtk_nodes; ++i)
                connect->SetValue(at + order.node[i],
                                  set.connect[static_cast<size_t>(c * order.vtk_nodes + i)]);
            at += order.vtk_nodes;
        }
    }
    offsets->SetValue(ncells, at);
    auto cells = vtkSmartPointer<vtkCellArray>::New();
    cells->SetData(offsets, connect);

    auto coords = vtkSmartPointer<vtkFloatArray>::New();
    coords->SetNumberOfComponents(3);
    coords->SetNumberOfTuples(sets[0].nnodes());
    std::copy(sets[0].coords.begin(), sets[0].coords.end(), coords->GetPointer(0));
    auto points = vtkSmartPointer<vtkPoints>::New();
    points->SetData(coords);
    const std::vector<float> values = samples::values(field, sets[0]);
    auto scalars = vtkSmartPointer<vtkFloatArray>::New();
    scalars->SetNumberOfValues(static_cast<vtkIdType>(values.size()));
    std::copy(values.begin(), values.end(), scalars->GetPointer(0));

    auto grid = vtkSmartPointer<vtkUnstructuredGrid>::New();
    grid->SetPoints(points);
    grid->SetCells(types, cells);
    grid->GetPointData()->SetScalars(scalars);
    return grid;
}

input_ptr cells_input(const std::vector<int> &kinds, int64_t cubes_an_axis, const char *sample)
{
    const samples::field &field = sample_named(sample);
    auto made = std::make_shared<input>();
    made->cubes_an_axis = cubes_an_axis;
    const int64_t n = cubes_an_axis + 1, dims[3] = {n, n, n};
    const int64_t layer = cubes_an_axis * cubes_an_axis, nkinds = static_cast<int64_t>(kinds.size());
    std::vector<float> coords;
    for (int64_t k = 0; k < nkinds; ++k) {
        made->parts.push_back(samples::cells(kinds[static_cast<size_t>(k)], 1, dims, field.lo, field.hi));
        samples::mesh &set = made->parts.back();
        keep_layers(&set, cubes_an_axis * k / nkinds * layer, cubes_an_axis * (k + 1) / nkinds * layer,
                    layer * cubes_an_axis, n * n * n);
        if (set.coords.size() > coords.size()) coords = set.coords; // the lattice, and maybe further nodes
        set.coords.clear();
    }
    made->parts[0].coords = coords;

    made->field = host_cells(made->parts[0].nnodes(), 3, made->parts[0].coords.data());
    require_host(made->field != nullptr);
    for (const samples::mesh &set : made->parts)
        require_host(host_add_cells(made->field, set.cell_kind, 1, set.ncells, set.connect.data()) == 1);
    made->theirs = nkinds == 1 ? sample_to_vtk(made->parts[0], field) : cell_sets_to_vtk(made->parts, field);
    finish(made.get(), sample, false);
    return made;
}

input_ptr surface_input(int kind, int64_t squares_an_axis, const char *sample)
{
    const samples::field &field = sample_named(sample);
    auto made = std::make_shared<input>();
    made->cubes_an_axis = squares_an_axis;
    const int64_t dims[3] = {squares_an_axis + 1, squares_an_axis + 1, 1};
    made->parts.push_back(samples::cells(kind, 1, dims, field.lo, field.hi));
    const samples::mesh &set = made->parts[0];
    made->field = host_cells(set.nnodes(), 3, set.coords.data());
    require_host(made->field != nullptr);
    require_host(host_add_cells(made->field, kind, 1, set.ncells, set.connect.data()) == 1);
    made->theirs = sample_to_vtk(set, field);
    finish(made.get(), sample, false);
    return made;
}

// A point of the lattice cell with its lowest corner at base: its corners blended by t.
static void blend_corners(const samples::mesh &mesh, const int64_t *base, const double *t, float *out)
{
    double sum[3] = {0, 0, 0};
    for (int corner = 0; corner < 8; ++corner) {
        int64_t node = 0, stride = 1;
        double weight = 1, at[3];
        for (size_t d = 0; d < 3; ++d) {
            const int far = corner >> d & 1;
            node += (base[d] + far) * stride;
            stride *= mesh.dims[d];
            weight *= far != 0 ? t[d] : 1 - t[d];
        }
        mesh.position(node, at);
        for (int d = 0; d < 3; ++d)
            sum[d] += weight * at[d];
    }
    std::copy_n(sum, 3, out);
}

std::vector<float> random_places(const input &in, int64_t npoints)
{
    std::mt19937_64 random(20260101);
    std::uniform_real_distribution<double> share(0.001, 0.999);
    std::vector<float> places(static_cast<size_t>(3 * npoints));
    const samples::mesh &mesh = in.parts[0];
    const double *box = in.theirs->GetBounds(); // lo and hi of x, then of y, then of z
    for (size_t i = 0; i < places.size(); i += 3) {
        if (mesh.kind == samples::layout::curvilinear) {
            int64_t base[3];
            double t[3];
            for (size_t d = 0; d < 3; ++d) {
                base[d] = std::uniform_int_distribution<int64_t>(0, mesh.dims[d] - 2)(random);
                t[d] = share(random);
            }
            blend_corners(mesh, base, t, &places[i]);
            continue;
        }
        for (size_t d = 0; d < 3; ++d)
            places[i + d] = static_cast<float>(box[2 * d] + share(random) * (box[2 * d + 1] - box[2 * d]));
    }
    return places;
}

} // namespace bench
