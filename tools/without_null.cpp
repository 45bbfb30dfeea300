#include "without_null.hpp"

#include "carry.hpp"
#include "failure.hpp"
#include "progress.hpp"

#include <skoklana/cut.h>

#include <vtkUnstructuredGrid.h>

#include <utility>

namespace {

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
    vtkSmartPointer<vtkUnstructuredGrid> run(const scalar_array &scalar, const carried_arrays &carried);

  private:
    void remove_from_sets(const scalar_array &scalar);
    void remove_from_lattice(const scalar_array &scalar);

    std::string what;
    input_mesh &mesh;
    std::vector<qx_long> kept; // nodes
    cell_results cells;
};

void remover::remove_from_sets(const scalar_array &scalar)
{
    const size_t n = mesh.sets.size();
    std::vector<qx_long *> local(n), connect(n);
    std::vector<qx_long> ncells(n), sizes(n);
    qx_long nkept = 0, *map = nullptr;
    const operation run("null nodes");
    const int done = UTILthresh_null(mesh.mesh, scalar.array.values, scalar.array.type, scalar.null_value(),
                                     &nkept, &map, local.data(), ncells.data(), connect.data(), sizes.data());
    run.check(done == 1, what);
    const owned_list new_number(map); // by node: its new number or -1
    for (size_t s = 0; s < n; ++s) {
        const owned_list numbers(local[s]);
        std::vector<qx_long> vtk_cell;
        mesh.vtk_cells(s, ncells[s], numbers.get(), &vtk_cell);
        cells.add(mesh.sets[s].kind, mesh.sets[s].order, ncells[s], owned_list(connect[s]),
                  std::move(vtk_cell));
    }
    kept.reserve(static_cast<size_t>(nkept));
    for (qx_long node = 0; node < mesh.nnodes; ++node)
        if (new_number[static_cast<size_t>(node)] >= 0) kept.push_back(node);
}

void remover::remove_from_lattice(const scalar_array &scalar)
{
    qx_long nkept = 0, *nodes = nullptr, *connect = nullptr, ncells = 0, size = 0;
    const operation run("null nodes");
    const int done = UTILthresh_null(mesh.mesh, scalar.array.values, scalar.array.type, scalar.null_value(),
                                     &nkept, &nodes, &connect, &ncells, &size, nullptr);
    run.check(done == 1, what);
    const owned_list numbers(nodes);
    kept.assign(nodes, nodes + nkept);
    std::vector<char> marks(static_cast<size_t>(mesh.nnodes));
    for (const qx_long node : kept)
        marks[static_cast<size_t>(node)] = 1;
    cells.add(mesh.kind_of_set(0), 1, ncells, owned_list(connect), kept_lattice_cells(mesh, marks));
}

vtkSmartPointer<vtkUnstructuredGrid> remover::run(const scalar_array &scalar, const carried_arrays &carried)
{
    if (mesh.structured())
        remove_from_lattice(scalar);
    else
        remove_from_sets(scalar);
    auto out = vtkSmartPointer<vtkUnstructuredGrid>::New();
    const auto nkept = static_cast<qx_long>(kept.size());
    node_results nodes(mesh, carried.node, nkept);
    if (!nodes.add(nkept, kept.data()))
        throw failure(what + " failed: the nodes' positions could not be had");
    nodes.hand_over(out);
    cells.hand_over(out, carried.cell);
    return out;
}

} // namespace

vtkSmartPointer<vtkUnstructuredGrid> without_null(const std::string &path, input_mesh &mesh,
                                                  const scalar_array &scalar, const carried_arrays &carried)
{
    return remover(path, mesh).run(scalar, carried);
}
