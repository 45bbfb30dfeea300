// The library keeps nodes at the level that no cell refers to: those drop out here.
#include "cut_mesh.hpp"

#include "carry.hpp"
#include "failure.hpp"
#include "progress.hpp"

#include <skoklana/cut.h>
#include <skoklana/mesh.h>

#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr size_t nlists = 7;
constexpr int kind_of_list[nlists] = {CELL_TET, CELL_PRISM, CELL_PYR, CELL_HEX,
                                      CELL_TRI, CELL_QUAD,  CELL_LINE};

// What the operation gave.
struct cut_lists {
    std::vector<qx_long> old_nodes; // input numbers of the retained nodes
    qx_long nnew = 0;
    owned_list min_node, max_node;
    qx_long ncells[nlists] = {}, used[nlists] = {};
    owned_list connect[nlists];
    std::vector<qx_long> vtk_cell[nlists];
};

bool run(input_mesh &mesh, const scalar_array &scalar, double level, cut_side side, cut_lists *out)
{
    const size_t nsets = std::max<size_t>(mesh.nsets(), 1);
    std::vector<qx_long> map_count(nsets * nlists);
    std::vector<qx_long *> map(nsets * nlists);
    qx_long nold = 0, *nodes = nullptr, *min_node = nullptr, *max_node = nullptr, *connect[nlists] = {};
    const typed_array &data = scalar.array;
    if (UTILcut(mesh.mesh, data.values, data.type, scalar.null_flag, scalar.null_value(), level,
                side == cut_side::high ? 1 : -1, &nold, &nodes, &out->nnew, &min_node, &max_node, out->ncells,
                connect, out->used, map_count.data(), map.data()) != 1)
        return false;

    // Cell sets have a map of all nodes, lattices the list of the retained ones.
    const owned_list kept(nodes);
    if (mesh.structured()) {
        out->old_nodes.assign(nodes, nodes + nold);
    } else {
        out->old_nodes.reserve(static_cast<size_t>(nold));
        for (qx_long node = 0; node < mesh.nnodes; ++node)
            if (kept[static_cast<size_t>(node)] >= 0) out->old_nodes.push_back(node);
    }
    out->min_node.reset(min_node);
    out->max_node.reset(max_node);
    for (size_t list = 0; list < nlists; ++list) {
        if (out->ncells[list] > 0) out->connect[list].reset(connect[list]);
        for (size_t set = 0; set < mesh.nsets(); ++set) {
            const owned_list cells(map[set * nlists + list]);
            mesh.vtk_cells(set, map_count[set * nlists + list], cells.get(), &out->vtk_cell[list]);
        }
    }
    return true;
}

} // namespace

vtkSmartPointer<vtkUnstructuredGrid> cut_mesh(const std::string &path, input_mesh &mesh,
                                              const scalar_array &scalar, double level, cut_side side,
                                              const carried_arrays &carried)
{
    const std::string what = path + ": cut";
    cut_lists cut;
    const operation cutting("cut");
    cutting.check(run(mesh, scalar, level, side, &cut), what);

    const auto nold = static_cast<qx_long>(cut.old_nodes.size());
    std::vector<node_entries> lists;
    for (size_t list = 0; list < nlists; ++list)
        if (cut.ncells[list] > 0) lists.push_back({cut.connect[list].get(), cut.used[list]});
    std::vector<qx_long> old_nodes, min_node, max_node;
    for (const qx_long node : drop_unused(nold + cut.nnew, lists)) {
        if (node < nold) {
            old_nodes.push_back(cut.old_nodes[static_cast<size_t>(node)]);
        } else {
            min_node.push_back(cut.min_node[static_cast<size_t>(node - nold)]);
            max_node.push_back(cut.max_node[static_cast<size_t>(node - nold)]);
        }
    }

    const auto kept = static_cast<qx_long>(old_nodes.size()), made = static_cast<qx_long>(min_node.size());
    std::vector<float> t(min_node.size());
    node_results nodes(mesh, carried.node, kept + made);
    cutting.check(nodes.add(kept, old_nodes.data()) &&
                      UTILget_param(made, scalar.array.type, scalar.array.values, level, min_node.data(),
                                    max_node.data(), t.data()) == 1 &&
                      nodes.add_between(made, min_node.data(), max_node.data(), t.data()),
                  what);
    cell_results cells;
    for (size_t list = 0; list < nlists; ++list)
        cells.add(kind_of_list[list], 1, cut.ncells[list], std::move(cut.connect[list]),
                  std::move(cut.vtk_cell[list]));
    auto out = vtkSmartPointer<vtkUnstructuredGrid>::New();
    nodes.hand_over(out);
    cells.hand_over(out, carried.cell);
    return out;
}
