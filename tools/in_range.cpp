// Cells are marked here; the library lists the marked ones, as it lists the cells that have a value.
#include "in_range.hpp"

#include "carry.hpp"
#include "failure.hpp"
#include "progress.hpp"

#include <skoklana/cut.h>

#include <vtkUnstructuredGrid.h>

#include <type_traits>
#include <utility>

namespace {

using marks = std::vector<unsigned char>;

// A mark a value.
marks marks_of(const scalar_array &scalar, const wanted_range &range)
{
    marks in(static_cast<size_t>(scalar.array.count));
    with_values(scalar.array, [&](const auto *values) {
        using T = std::remove_const_t<std::remove_pointer_t<decltype(values)>>;
        T null = 0;
        if (scalar.null_flag != 0) null = *static_cast<const T *>(scalar.null_value());
        for (size_t i = 0; i < in.size(); ++i) {
            const auto value = static_cast<double>(values[i]);
            in[i] = value >= range.lo && value <= range.hi && !(scalar.null_flag != 0 && values[i] == null);
        }
    });
    return in;
}

// A mark a cell of each set, by those of the cell's nodes, in the order of the sets.
marks cells_by_nodes(const input_mesh &mesh, const marks &nodes, bool any)
{
    marks in;
    mesh.each_cell([&](const qx_long *list, int nnodes) {
        int count = 0;
        for (int i = 0; i < nnodes; ++i)
            count += nodes[static_cast<size_t>(list[i])];
        in.push_back(any ? count > 0 : count == nnodes);
    });
    return in;
}

qx_long cells_in(const input_mesh &mesh, size_t set)
{
    return mesh.structured() ? mesh.mesh->ncells : mesh.sets[set].ncells;
}

// The same by their own values.
marks cells_by_own(const input_mesh &mesh, const marks &own)
{
    marks in;
    for (size_t set = 0; set < mesh.nsets(); ++set)
        for (qx_long cell = 0; cell < cells_in(mesh, set); ++cell)
            in.push_back(own[static_cast<size_t>(mesh.vtk_cell(set, cell))]);
    return in;
}

} // namespace

vtkSmartPointer<vtkUnstructuredGrid> cells_in_range(const std::string &path, input_mesh &mesh,
                                                    const scalar_array &scalar, array_place place,
                                                    const wanted_range &range, const carried_arrays &carried)
{
    const std::string what = path + ": threshold";
    const operation choosing("threshold");
    const marks values = marks_of(scalar, range);
    const marks in =
        place == array_place::node ? cells_by_nodes(mesh, values, range.any) : cells_by_own(mesh, values);
    struct chosen_set {
        qx_long ncells = 0;
        owned_list connect;
        std::vector<qx_long> vtk_cell;
    };
    std::vector<chosen_set> sets(mesh.nsets());
    std::vector<node_entries> lists;
    qx_long first = 0; // of the set's cells
    for (size_t set = 0; set < sets.size(); ++set) {
        chosen_set &to = sets[set];
        const unsigned char *cells = in.data() + first, out = 0;
        const qx_long ncells = cells_in(mesh, set);
        first += ncells;
        qx_long *connect = nullptr, entries = 0;
        choosing.check(UTILthresh_null_from_cells(mesh.mesh, static_cast<int>(set), cells, DTYPE_BYTE, &out,
                                                  &to.ncells, &connect, &entries) == 1,
                       what);
        to.connect.reset(connect);
        std::vector<qx_long> local;
        for (qx_long cell = 0; cell < ncells; ++cell)
            if (cells[cell] != 0) local.push_back(cell);
        mesh.vtk_cells(set, to.ncells, local.data(), &to.vtk_cell);
        lists.push_back({connect, to.ncells > 0 ? entries : 0});
    }

    const std::vector<qx_long> kept = drop_unused(mesh.nnodes, lists);
    const auto nkept = static_cast<qx_long>(kept.size());
    node_results nodes(mesh, carried.node, nkept);
    choosing.check(nodes.add(nkept, kept.data()), what);
    cell_results cells;
    for (size_t set = 0; set < sets.size(); ++set)
        cells.add(mesh.kind_of_set(set), mesh.structured() ? 1 : mesh.sets[set].order, sets[set].ncells,
                  std::move(sets[set].connect), std::move(sets[set].vtk_cell));
    auto out = vtkSmartPointer<vtkUnstructuredGrid>::New();
    nodes.hand_over(out);
    cells.hand_over(out, carried.cell);
    return out;
}
