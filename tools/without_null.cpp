#include "without_null.hpp"

#include "cell_order.hpp"
#include "failure.hpp"
#include "progress.hpp"

#include <skoklana/array.h>
#include <skoklana/cut.h>

#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkFloatArray.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkTypeInt64Array.h>
#include <vtkUnsignedCharArray.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cstdlib>

namespace {

// What was kept of one cell set, or of a structured mesh.
struct kept_cells {
    const cell_order *order;
    qx_long ncells = 0;
    qx_long *connect = nullptr;    // in our node order, kept nodes renumbered
    std::vector<qx_long> vtk_cell; // VTK's number of each
};

// The cells of a lattice that have only kept nodes, in the order in which the library lists them.
std::vector<qx_long> kept_lattice_cells(const input_mesh &mesh, const std::vector<char> &kept)
{
    qx_long dims[3] = {1, 1, 1}, cells[3] = {1, 1, 1};
    for (int d = 0; d < mesh.ndim; ++d) {
        dims[d] = mesh.dims[static_cast<size_t>(d)];
        cells[d] = dims[d] - 1;
    }
    std::vector<qx_long> list;
    qx_long number = 0;
    for (qx_long k = 0; k < cells[2]; ++k)
        for (qx_long j = 0; j < cells[1]; ++j)
            for (qx_long i = 0; i < cells[0]; ++i, ++number) {
                bool whole = true;
                for (int corner = 0; corner < 1 << mesh.ndim; ++corner)
                    whole =
                        whole && kept[static_cast<size_t>(
                                     i + (corner & 1) +
                                     dims[0] * (j + (corner >> 1 & 1) + dims[1] * (k + (corner >> 2))))] != 0;
                if (whole) list.push_back(number);
            }
    return list;
}

class remover {
  public:
    remover(const std::string &path, input_mesh &mesh_) : what(path + ": removal of null nodes"), mesh(mesh_)
    {
    }
    ~remover()
    {
        free(nodes);
        for (const kept_cells &set : sets)
            free(set.connect);
    }
    vtkSmartPointer<vtkUnstructuredGrid> run(const scalar_array &scalar, const carried_arrays &carried);

  private:
    void remove_from_sets(const scalar_array &scalar);
    void remove_from_lattice(const scalar_array &scalar);
    void carry_nodes(vtkUnstructuredGrid *out, const std::vector<typed_array> &arrays);
    void carry_cells(vtkUnstructuredGrid *out, const std::vector<typed_array> &arrays);

    std::string what;
    input_mesh &mesh;
    qx_long nkept = 0;
    qx_long *nodes = nullptr; // cell sets: new number or -1 by node; structured: the nodes kept
    std::vector<kept_cells> sets;
};

void remover::remove_from_sets(const scalar_array &scalar)
{
    const size_t n = mesh.sets.size();
    std::vector<qx_long *> cells(n), connect(n);
    std::vector<qx_long> ncells(n), sizes(n);
    const operation run("null nodes");
    const int done =
        UTILthresh_null(mesh.mesh, scalar.array.values, scalar.array.type, scalar.null_value(), &nkept,
                        &nodes, cells.data(), ncells.data(), connect.data(), sizes.data());
    run.check(done == 1, what);
    for (size_t s = 0; s < n; ++s) {
        kept_cells set;
        set.order = order_of_kind(mesh.sets[s].kind, mesh.sets[s].order);
        set.ncells = ncells[s];
        set.connect = connect[s];
        for (qx_long c = 0; c < ncells[s]; ++c)
            set.vtk_cell.push_back(mesh.sets[s].vtk_cell(cells[s][c]));
        free(cells[s]);
        sets.push_back(std::move(set));
    }
}

void remover::remove_from_lattice(const scalar_array &scalar)
{
    static const int kinds[] = {CELL_LINE, CELL_LINE, CELL_QUAD, CELL_HEX};
    kept_cells set;
    set.order = order_of_kind(kinds[mesh.ndim], 1);
    qx_long size = 0;
    const operation run("null nodes");
    const int done = UTILthresh_null(mesh.mesh, scalar.array.values, scalar.array.type, scalar.null_value(),
                                     &nkept, &nodes, &set.connect, &set.ncells, &size, nullptr);
    run.check(done == 1, what);
    std::vector<char> kept(static_cast<size_t>(mesh.nnodes));
    for (qx_long i = 0; i < nkept; ++i)
        kept[static_cast<size_t>(nodes[i])] = 1;
    set.vtk_cell = kept_lattice_cells(mesh, kept);
    sets.push_back(std::move(set));
}

void remover::carry_nodes(vtkUnstructuredGrid *out, const std::vector<typed_array> &arrays)
{
    auto coords = vtkSmartPointer<vtkFloatArray>::New();
    coords->SetNumberOfComponents(3);
    coords->SetNumberOfTuples(nkept);
    if (nkept > 0 && UTILget_coord_list(mesh.mesh, nkept, nodes, coords->GetPointer(0)) != 1)
        throw failure(what + " failed: the nodes' positions could not be had");
    auto points = vtkSmartPointer<vtkPoints>::New();
    points->SetData(coords);
    out->SetPoints(points);
    for (const typed_array &array : arrays) {
        const typed_array made = like(array, nkept);
        UTILget_data_list(mesh.mesh, array.type, array.veclen, array.values, nkept, nodes, made.values);
        out->GetPointData()->AddArray(made.kept);
    }
}

void remover::carry_cells(vtkUnstructuredGrid *out, const std::vector<typed_array> &arrays)
{
    auto offsets = vtkSmartPointer<vtkTypeInt64Array>::New(),
         connect = vtkSmartPointer<vtkTypeInt64Array>::New();
    auto types = vtkSmartPointer<vtkUnsignedCharArray>::New();
    std::vector<qx_long> cells;
    offsets->InsertNextValue(0);
    for (const kept_cells &set : sets) {
        const int n = set.order->vtk_nodes;
        for (qx_long c = 0; c < set.ncells; ++c) {
            qx_long row[20];
            for (int i = 0; i < n; ++i)
                row[set.order->node[i]] = set.connect[c * n + i];
            for (int i = 0; i < n; ++i)
                connect->InsertNextValue(row[i]);
            offsets->InsertNextValue(connect->GetNumberOfValues());
            types->InsertNextValue(static_cast<unsigned char>(set.order->vtk));
        }
        cells.insert(cells.end(), set.vtk_cell.begin(), set.vtk_cell.end());
    }
    auto list = vtkSmartPointer<vtkCellArray>::New();
    list->SetData(offsets, connect);
    out->SetCells(types, list);
    for (const typed_array &array : arrays) {
        const typed_array made = like(array, static_cast<qx_long>(cells.size()));
        UTILcopy_array_list(0, array.veclen, array.type, array.values, made.count, cells.data(), made.values);
        out->GetCellData()->AddArray(made.kept);
    }
}

vtkSmartPointer<vtkUnstructuredGrid> remover::run(const scalar_array &scalar, const carried_arrays &carried)
{
    if (mesh.structured())
        remove_from_lattice(scalar);
    else
        remove_from_sets(scalar);
    auto out = vtkSmartPointer<vtkUnstructuredGrid>::New();
    carry_nodes(out, carried.node);
    carry_cells(out, carried.cell);
    return out;
}

} // namespace

vtkSmartPointer<vtkUnstructuredGrid> without_null(const std::string &path, input_mesh &mesh,
                                                  const scalar_array &scalar, const carried_arrays &carried)
{
    return remover(path, mesh).run(scalar, carried);
}
