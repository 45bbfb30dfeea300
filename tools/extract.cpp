// One extraction a level gives pairs of mesh nodes, connect lists over them and the cell of each piece. All
// levels are extracted first, so that the output is allocated once at its full size and each level writes its
// stretch of it.
#include "extract.hpp"

#include "carry.hpp"
#include "failure.hpp"
#include "host_results.hpp"
#include "progress.hpp"
#include "threads.hpp"

#include <skoklana_host.h>

#include <vtkPolyData.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <unordered_map>
#include <utility>

namespace {

// What one level gave.
struct level_result {
    qx_long nnodes = 0;
    owned_list min_node, max_node;
    qx_long nline = 0, ntri = 0;
    owned_list line_conn, tri_conn;
    std::vector<qx_long> line_cell, tri_cell; // VTK's cell that each piece lies in
    std::vector<float> t;                     // of each node, on its edge
};

// Calls the operation for one level.
int run(input_mesh &mesh, level_kind kind, const scalar_array &scalar, double level, level_result *out)
{
    const typed_array &data = scalar.array;
    const host_array array = {data.values, data.type, 1,
                              scalar.null_flag != 0 ? scalar.null_value() : nullptr};
    const host_level_options options = {sizeof options, 1, 0, threads_for(mesh.mesh->ncells)};
    host_result *made = nullptr;
    const int done = (kind == level_kind::surfaces ? host_isosurf : host_isoline)(mesh.field, &array, level,
                                                                                  &options, &made);
    if (done != HOST_DONE) return done;
    const std::unique_ptr<host_result, void (*)(host_result *)> held(made, host_free_result);
    out->nnodes = made->nnodes;
    out->min_node.reset(std::exchange(made->first_node, nullptr));
    out->max_node.reset(std::exchange(made->second_node, nullptr));
    out->t.assign(made->t, made->t + made->nnodes);
    for (int s = 0; s < made->nsets; ++s) {
        host_set &set = made->sets[s];
        const bool lines = set.kind == CELL_LINE;
        (lines ? out->nline : out->ntri) = set.ncells;
        (lines ? out->line_conn : out->tri_conn).reset(std::exchange(set.connect, nullptr));
        (lines ? out->line_cell : out->tri_cell) = vtk_cells_of(mesh, set.ncells, set.cell);
    }
    return HOST_DONE;
}

// ---- what a level at nodes leaves ---------------------------------------------------------------------------
//
// Where a node holds the level exactly, a new node stands on it for each edge there, and pieces between such
// nodes have no extent. Merged and dropped, the rest meets as it did.

// For each new node, the first of those that stand on the same node of the mesh; itself for others.
std::vector<qx_long> first_in_place(input_mesh &mesh, const level_result &one, const float *t)
{
    std::vector<qx_long> near_node, at, ends;
    std::vector<float> near_t;
    for (qx_long i = 0; i < one.nnodes; ++i) {
        if (t[i] > 0.01f && t[i] < 0.99f) continue; // rounding of coordinates reaches no further
        near_node.push_back(i);
        near_t.push_back(t[i]);
        at.push_back(one.min_node[static_cast<size_t>(i)]);
        ends.push_back(one.max_node[static_cast<size_t>(i)]);
    }
    std::vector<qx_long> first(static_cast<size_t>(one.nnodes));
    std::iota(first.begin(), first.end(), qx_long{0});
    const auto n = static_cast<qx_long>(near_node.size());
    if (n == 0) return first;

    std::vector<float> place(near_node.size() * 3), node_place(near_node.size() * 3);
    const std::vector<float> start(near_node.size());
    UTILeval_coord(mesh.mesh, n, at.data(), ends.data(), near_t.data(), place.data());
    for (size_t i = 0; i < near_node.size(); ++i)
        if (near_t[i] > 0.5f) at[i] = ends[i];
    UTILeval_coord(mesh.mesh, n, at.data(), at.data(), start.data(), node_place.data());
    std::unordered_map<qx_long, qx_long> on_node;
    for (size_t i = 0; i < near_node.size(); ++i)
        if (std::equal(&place[i * 3], &place[i * 3] + 3, &node_place[i * 3]))
            first[static_cast<size_t>(near_node[i])] = on_node.try_emplace(at[i], near_node[i]).first->second;
    return first;
}

// Whether the corners span nothing: a length, or an area.
template <int corners> bool without_extent(const float *coords, const qx_long *corner)
{
    double side[2][3] = {};
    for (int s = 0; s + 1 < corners; ++s)
        for (int d = 0; d < 3; ++d)
            side[s][d] = double{coords[corner[s + 1] * 3 + d]} - coords[corner[0] * 3 + d];
    if (corners == 2) return side[0][0] == 0 && side[0][1] == 0 && side[0][2] == 0;
    for (int d = 0; d < 3; ++d) {
        const int e = (d + 1) % 3, f = (d + 2) % 3;
        if (side[0][e] * side[1][f] != side[0][f] * side[1][e]) return false;
    }
    return true;
}

// Drops the pieces without extent and renumbers the rest; which nodes are left in use is marked.
template <int corners>
void keep_pieces(const float *coords, const std::vector<qx_long> &first, qx_long *npieces, qx_long *connect,
                 std::vector<qx_long> *cells, std::vector<char> *used)
{
    qx_long kept = 0;
    for (qx_long piece = 0; piece < *npieces; ++piece) {
        qx_long row[corners];
        for (int c = 0; c < corners; ++c)
            row[c] = first[static_cast<size_t>(connect[piece * corners + c])];
        if (without_extent<corners>(coords, row)) continue;
        for (int c = 0; c < corners; ++c) {
            (*used)[static_cast<size_t>(row[c])] = 1;
            connect[kept * corners + c] = row[c];
        }
        (*cells)[static_cast<size_t>(kept++)] = (*cells)[static_cast<size_t>(piece)];
    }
    *npieces = kept;
    cells->resize(static_cast<size_t>(kept));
}

// Merges and drops in one level's result.
bool tidy(input_mesh &mesh, level_result *one, float *t)
{
    const std::vector<qx_long> first = first_in_place(mesh, *one, t);
    std::vector<float> coords(static_cast<size_t>(one->nnodes) * 3);
    std::vector<char> used(static_cast<size_t>(one->nnodes));
    if (UTILeval_coord(mesh.mesh, one->nnodes, one->min_node.get(), one->max_node.get(), t, coords.data()) !=
        1)
        return false;
    keep_pieces<2>(coords.data(), first, &one->nline, one->line_conn.get(), &one->line_cell, &used);
    keep_pieces<3>(coords.data(), first, &one->ntri, one->tri_conn.get(), &one->tri_cell, &used);

    std::vector<qx_long> number(used.size());
    qx_long kept = 0;
    for (size_t i = 0; i < used.size(); ++i) {
        if (used[i] == 0) continue;
        const auto to = static_cast<size_t>(kept);
        one->min_node[to] = one->min_node[i];
        one->max_node[to] = one->max_node[i];
        t[to] = t[i];
        number[i] = kept++;
    }
    one->nnodes = kept;
    const auto renumber = [&](qx_long *connect, qx_long entries) {
        for (qx_long i = 0; i < entries; ++i)
            connect[i] = number[static_cast<size_t>(connect[i])];
    };
    renumber(one->line_conn.get(), one->nline * 2);
    renumber(one->tri_conn.get(), one->ntri * 3);
    return true;
}

} // namespace

extracted extract_levels(const std::string &path, input_mesh &mesh, level_kind kind,
                         const scalar_array &scalar, const std::vector<double> &levels,
                         const carried_arrays &carried, bool raw)
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
        const double level = levels[static_cast<size_t>(i)];
        check_call(run_all, run(mesh, kind, scalar, level, &one), what);
        if (one.nnodes > 0) run_all.check(raw || tidy(mesh, &one, one.t.data()), what);
        nnodes += one.nnodes;
        made.nnodes.push_back(one.nnodes);
        made.ntri.push_back(one.ntri);
    }

    node_results nodes(mesh, carried.node, nnodes,
                       raw ? node_results::joins::on_one_edge : node_results::joins::in_one_place);
    cell_results cells;
    qx_long first = 0;
    for (size_t i = 0; i < levels.size(); ++i) {
        level_result &one = results[i];
        if (one.nnodes == 0) continue;
        run_all.check(nodes.add_between(one.nnodes, one.min_node.get(), one.max_node.get(), one.t.data()),
                      what);
        cells.add(CELL_LINE, 1, one.nline, std::move(one.line_conn), std::move(one.line_cell), first);
        cells.add(CELL_TRI, 1, one.ntri, std::move(one.tri_conn), std::move(one.tri_cell), first);
        first += one.nnodes;
    }
    nodes.hand_over(made.data);
    cells.hand_over(made.data, carried.cell);
    return made;
}
