// One extraction a level gives pairs of mesh nodes, connect lists over them and the cell of each piece. All
// levels are extracted first, so that the output is allocated once at its full size and each level writes its
// stretch of it.
#include "extract.hpp"

#include "carry.hpp"
#include "failure.hpp"
#include "progress.hpp"

#include <skoklana/iso.h>

#include <vtkPolyData.h>

#include <algorithm>

namespace {

// What one level gave.
struct level_result {
    qx_long nnodes = 0;
    owned_list min_node, max_node;
    qx_long nline = 0, ntri = 0;
    owned_list line_conn, tri_conn;
    std::vector<qx_long> line_cell, tri_cell; // VTK's cell that each piece lies in
};

// Calls the operation for one level; false: it failed or was stopped, and what it left is not to be read.
bool run(input_mesh &mesh, level_kind kind, const scalar_array &scalar, double level, level_result *out)
{
    const size_t nmaps = std::max<size_t>(mesh.nsets(), 1);
    std::vector<qx_long> map_count(nmaps);
    std::vector<qx_long *> map(nmaps);
    qx_long *min_node = nullptr, *max_node = nullptr, *line_conn = nullptr, *tri_conn = nullptr;
    qx_long nline_conn = 0, ntri_conn = 0;
    const typed_array &data = scalar.array;
    int result;
    if (kind == level_kind::surfaces)
        result = UTILisosurf(mesh.mesh, data.values, data.type, scalar.null_flag, scalar.null_value(), level,
                             &out->nnodes, &min_node, &max_node, &out->nline, &line_conn, &nline_conn,
                             &out->ntri, &tri_conn, &ntri_conn, map_count.data(), map.data());
    else
        result = UTILisoline(mesh.mesh, data.values, data.type, scalar.null_flag, scalar.null_value(), level,
                             &out->nnodes, &min_node, &max_node, &out->nline, &line_conn, &nline_conn,
                             map_count.data(), map.data());
    if (result != 1) return false;

    out->min_node.reset(min_node);
    out->max_node.reset(max_node);
    out->line_conn.reset(line_conn);
    out->tri_conn.reset(tri_conn);
    for (size_t s = 0; s < mesh.nsets(); ++s) {
        const owned_list cells(map[s]);
        const bool lines = cell_kinds[mesh.kind_of_set(s)].ndim == 2;
        mesh.vtk_cells(s, map_count[s], cells.get(), lines ? &out->line_cell : &out->tri_cell);
    }
    return true;
}

// Places the nodes of one level, with the node arrays.
bool add_nodes(const scalar_array &scalar, double level, const level_result &one, node_results *nodes)
{
    const qx_long *a = one.min_node.get(), *b = one.max_node.get();
    const auto t = std::make_unique<float[]>(static_cast<size_t>(std::max<qx_long>(one.nnodes, 1)));
    const typed_array &data = scalar.array;
    return UTILget_param(one.nnodes, data.type, data.values, level, a, b, t.get()) == 1 &&
           nodes->add_between(one.nnodes, a, b, t.get());
}

} // namespace

extracted extract_levels(const std::string &path, input_mesh &mesh, level_kind kind,
                         const scalar_array &scalar, const std::vector<double> &levels,
                         const carried_arrays &carried)
{
    const int nlevels = static_cast<int>(levels.size());
    const std::string what = path + (kind == level_kind::surfaces ? ": isosurface" : ": isolines");
    std::vector<level_result> results(levels.size());
    qx_long nnodes = 0;
    extracted made;
    made.data = vtkSmartPointer<vtkPolyData>::New();

    operation run_all(kind == level_kind::surfaces ? "isosurface" : "isolines");
    for (int i = 0; i < nlevels; ++i) {
        const status_part part(i, nlevels);
        level_result &one = results[static_cast<size_t>(i)];
        run_all.check(run(mesh, kind, scalar, levels[static_cast<size_t>(i)], &one), what);
        nnodes += one.nnodes;
        made.ntri.push_back(one.ntri);
    }

    node_results nodes(mesh, carried.node, nnodes);
    cell_results cells;
    qx_long first = 0;
    for (size_t i = 0; i < levels.size(); ++i) {
        level_result &one = results[i];
        if (one.nnodes == 0) continue;
        run_all.check(add_nodes(scalar, levels[i], one, &nodes), what);
        cells.add(CELL_LINE, 1, one.nline, std::move(one.line_conn), std::move(one.line_cell), first);
        cells.add(CELL_TRI, 1, one.ntri, std::move(one.tri_conn), std::move(one.tri_cell), first);
        first += one.nnodes;
    }
    nodes.hand_over(made.data);
    cells.hand_over(made.data, carried.cell);
    return made;
}
