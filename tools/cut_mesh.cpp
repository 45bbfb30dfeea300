// The library keeps nodes at the level that no cell refers to: those drop out here.
#include "cut_mesh.hpp"

#include "carry.hpp"
#include "failure.hpp"
#include "host_results.hpp"
#include "progress.hpp"
#include "threads.hpp"

#include <skoklana/mesh.h>
#include <skoklana_host.h>

#include <vtkUnstructuredGrid.h>

#include <memory>
#include <utility>

namespace {

// What the operation gave.
struct cut_lists {
    qx_long nold = 0, nnew = 0;
    owned_list old_nodes, min_node, max_node;
    struct set {
        int kind;
        qx_long ncells, used;
        owned_list connect;
        std::vector<qx_long> vtk_cell;
    };
    std::vector<set> sets;
};

int run(input_mesh &mesh, const scalar_array &scalar, double level, cut_side side, cut_lists *out)
{
    const typed_array &data = scalar.array;
    const host_array array = {data.values, data.type, 1,
                              scalar.null_flag != 0 ? scalar.null_value() : nullptr};
    const host_cut_options options = {sizeof options, 1, 0, threads_for(mesh.mesh->ncells)};
    host_result *made = nullptr;
    const int done = host_cut(mesh.field, &array, level, side == cut_side::high ? HOST_ABOVE : HOST_BELOW,
                              &options, &made);
    if (done != HOST_DONE) return done;
    const std::unique_ptr<host_result, void (*)(host_result *)> held(made, host_free_result);
    out->nold = made->nold;
    out->nnew = made->nnodes - made->nold;
    out->old_nodes.reset(std::exchange(made->old_node, nullptr));
    out->min_node.reset(std::exchange(made->first_node, nullptr));
    out->max_node.reset(std::exchange(made->second_node, nullptr));
    for (int s = 0; s < made->nsets; ++s) {
        host_set &set = made->sets[s];
        out->sets.push_back({set.kind, set.ncells, set.ncells * cell_kinds[set.kind].ncorners,
                             owned_list(std::exchange(set.connect, nullptr)),
                             vtk_cells_of(mesh, set.ncells, set.cell)});
    }
    return HOST_DONE;
}

} // namespace

vtkSmartPointer<vtkUnstructuredGrid> cut_mesh(const std::string &path, input_mesh &mesh,
                                              const scalar_array &scalar, double level, cut_side side,
                                              const carried_arrays &carried)
{
    const std::string what = path + ": cut";
    cut_lists cut;
    const operation cutting("cut");
    check_call(cutting, run(mesh, scalar, level, side, &cut), what);

    const qx_long nold = cut.nold;
    std::vector<node_entries> lists;
    lists.reserve(cut.sets.size());
    for (const cut_lists::set &set : cut.sets)
        lists.push_back({set.connect.get(), set.used});
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
    for (cut_lists::set &set : cut.sets)
        cells.add(set.kind, 1, set.ncells, std::move(set.connect), std::move(set.vtk_cell));
    auto out = vtkSmartPointer<vtkUnstructuredGrid>::New();
    nodes.hand_over(out);
    cells.hand_over(out, carried.cell);
    return out;
}
