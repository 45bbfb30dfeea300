// Cuts as results: the library's operation, its lists put into a record.
//
// The retained nodes of cell sets come as a map of all nodes, those of lattices as a list. Maps of cells come seven a
// cell set, one for each list of cells. Several workers take the library's kernels for cell sets, each for its share of
// the cells, and its threaded form for lattices of three axes.
#include "cell_workers.hpp"
#include "context.hpp"
#include "node_flags.hpp"
#include "options.hpp"
#include "progress.hpp"
#include "report.hpp"
#include "result.hpp"

#include <skoklana/cut.h>
#include <skoklana/host/tool.h>

#include <cmath>
#include <utility>

namespace {

constexpr int cut_lists = 7;
constexpr int kind_of_cut_list[cut_lists] = {CELL_TET, CELL_PRISM, CELL_PYR, CELL_HEX,
                                             CELL_TRI, CELL_QUAD,  CELL_LINE};
// By kind of cell: the list of those that are kept whole, and of their pieces.
constexpr int whole_list[CELL_KINDS] = {6, 4, 5, 0, 2, 1, 3}, piece_list[CELL_KINDS] = {6, 4, 4, 0, 0, 0, 0};

struct cut_call {
    const char *call;
    host_field *field;
    const host_array &array;
    double level;
    int side;
    const host_cut_options &options;
    int nworkers;

    bool with_cells() const { return options.without_cells == 0; }
};

// ---- what the library hands over -----------------------------------------------------------------------------------

struct cut_output {
    qx_long nold = 0, nnew = 0, ncells[cut_lists] = {}, nconnect[cut_lists] = {};
    list_of<qx_long> nodes, min_node, max_node, connect[cut_lists];
    qx_long nmaps; // seven a cell set
    list_of<qx_long> map_count;
    list_of<qx_long *> map; // null: no maps are wanted

    explicit cut_output(qx_long nsets) : nmaps(nsets * cut_lists) {}
    ~cut_output()
    {
        for (qx_long m = 0; map != nullptr && m < nmaps; ++m)
            free(map[m]);
    }
    cut_output(const cut_output &) = delete;
    cut_output &operator=(const cut_output &) = delete;

    bool want_maps()
    {
        map_count = list_of<qx_long>(allocate_zeroed<qx_long>(nmaps));
        map = list_of<qx_long *>(allocate_zeroed<qx_long *>(nmaps));
        return map_count != nullptr && map != nullptr;
    }

    // nworkers 0: the operation that makes no threads.
    bool cut(const cut_call &cut, int nworkers)
    {
        mesh_info *mesh = &cut.field->mesh;
        qx_long *node_list = nullptr, *lo = nullptr, *hi = nullptr, *lists[cut_lists] = {};
        const void *data = cut.array.data, *null = cut.array.null;
        const int type = cut.array.type, null_flag = null != nullptr ? 1 : 0;
        const int done = nworkers == 0
                             ? mesh->methods->cut_func(mesh, data, type, null_flag, null, cut.level, cut.side,
                                                       &nold, &node_list, &nnew, &lo, &hi, ncells, lists,
                                                       nconnect, map_count.get(), map.get())
                             : UTILmt_cut(nworkers, mesh, data, type, null_flag, null, cut.level, cut.side,
                                          &nold, &node_list, &nnew, &lo, &hi, ncells, lists, nconnect,
                                          map_count.get(), map.get());
        for (int list = 0; list < cut_lists; ++list) // of a failed cut they are still ours, or null
            connect[list].reset(lists[list]);
        nodes.reset(node_list);
        if (done != 1) return false;
        min_node.reset(lo);
        max_node.reset(hi);
        return true;
    }

    // The numbers of the cells that those of a list were made of, for all sets. Null: no memory.
    list_of<qx_long> joined_cells(const mesh_info &mesh, int list)
    {
        if (nmaps == cut_lists) return list_of<qx_long>(std::exchange(map[list], nullptr));
        list_of<qx_long> all = allocate_list<qx_long>(ncells[list]);
        qx_long filled = 0;
        for (qx_long set = 0; all != nullptr && set < nmaps / cut_lists; ++set)
            for (qx_long i = 0; i < map_count[set * cut_lists + list]; ++i)
                all[filled++] = map[set * cut_lists + list][i] + mesh.cell_first[set];
        return all;
    }
};

// What a threaded cut of a lattice gives is that of one thread, but that it refuses some meshes with null nodes. It is
// tried in a context of its own then, whose reports go with it.
bool cut_with_nulls(const cut_call &cut, cut_output *out)
{
    host_context *const trial = host_new_context();
    if (trial == nullptr) return false;
    host_context *const before = host_use_context(trial);
    const bool done = out->cut(cut, cut.nworkers);
    host_use_context(before);
    host_free_context(trial);
    return done;
}

int cut_at_once(const cut_call &cut, result_builder *result)
{
    const host_field *field = cut.field;
    const bool of_sets = field->kind == KIND_CELLS;
    cut_output out(of_sets ? std::max(field->nsets, 1) : 1);
    if (cut.with_cells() && !out.want_maps()) return host_fail("%s: no memory for the maps", cut.call);
    const operation_watch watch;
    const bool tries = cut.nworkers > 1 && cut.array.null != nullptr;
    if (!(tries && cut_with_nulls(cut, &out)) && !out.cut(cut, cut.nworkers > 1 && !tries ? cut.nworkers : 0))
        return watch.failed(cut.call);
    if (cut.nworkers > 1 && is_stopped(1, 1, nullptr))
        return HOST_STOPPED; // what threads do is done to its end

    list_of<qx_long> old_nodes = std::move(out.nodes);
    if (of_sets || old_nodes == nullptr) {
        const list_of<qx_long> numbers = std::move(old_nodes);
        old_nodes = allocate_list<qx_long>(out.nold);
        if (old_nodes == nullptr) return host_fail("%s: no memory for the nodes", cut.call);
        for (qx_long node = 0, next = 0; next < out.nold; ++node)
            if (numbers[node] >= 0) old_nodes[next++] = node;
    }
    result->add_old_nodes(out.nold, std::move(old_nodes));
    for (int list = 0; list < cut_lists; ++list) {
        if (out.ncells[list] == 0) continue;
        list_of<qx_long> cells;
        if (cut.with_cells() && (cells = out.joined_cells(field->made, list)) == nullptr)
            return host_fail("%s: no memory for the cells", cut.call);
        if (!result->add_set(kind_of_cut_list[list], 1, out.ncells[list], std::move(out.connect[list]),
                             std::move(cells)))
            return HOST_FAILED;
    }
    result->add_new_nodes(out.nnew, std::move(out.min_node), std::move(out.max_node));
    return HOST_DONE;
}

// ---- cell sets by several workers ----------------------------------------------------------------------------------

struct cut_kernels {
    const cut_call &cut;
    const node_flags &nodes;
};

void *(*const cutters[CELL_KINDS])(void *) = {
    thread_func_cut_line, thread_func_cut_tri,   thread_func_cut_quad, thread_func_cut_tet,
    thread_func_cut_pyr,  thread_func_cut_prism, thread_func_cut_hex};

bool is_cut(const void *, int)
{
    return true;
}

bool cut_rows(const void *operation, const row_stretch &rows, cell_worker *worker)
{
    const cut_kernels &kernels = *static_cast<const cut_kernels *>(operation);
    const qx_long nrows = rows.end - rows.first;
    qx_long ncells[cut_lists] = {};
    thread_cut_arg arg = {};
    arg.first = rows.first;
    arg.last = rows.end - 1;
    arg.ncase = (1 << cell_kinds[rows.kind].ncorners) - 1;
    arg.cell_nnodes = rows.nnodes;
    arg.connect = rows.connect;
    arg.null_check = kernels.nodes.has_null();
    arg.flags = kernels.nodes.flags();
    arg.direction = kernels.cut.side;
    arg.base = kernels.nodes.nold();
    arg.node_map = kernels.nodes.numbers();
    arg.edges = worker->edges;
    arg.ncells = ncells;
    const int lists[2] = {whole_list[rows.kind], piece_list[rows.kind]};
    for (const int l : lists) {
        constexpr qx_long spare =
            16; // beyond what rows are when all are kept whole; kernels make more if they must
        worker_list *to = &worker->lists[l];
        if (!reserve_entries(&to->connect, &to->room, to->used, nrows * rows.nnodes + spare, worker->done) ||
            (kernels.cut.with_cells() &&
             !reserve_entries(&to->cell, &to->cell_room, to->ncells, nrows + spare, worker->done)))
            return false;
        arg.conn[l] = to->connect;
        arg.conn_used[l] = to->used;
        arg.conn_cap[l] = to->room;
        arg.cells[l] = to->cell;
        arg.cells_used[l] = to->ncells;
        arg.cell_cap[l] = to->cell_room;
    }
    const bool good = cutters[rows.kind](&arg) != nullptr;
    for (const int l : lists)
        worker->lists[l] = {arg.conn[l],  arg.conn_used[l],  arg.conn_cap[l],
                            arg.cells[l], arg.cells_used[l], arg.cell_cap[l]};
    worker->edges = arg.edges;
    return good;
}

int cut_by_workers(const cut_call &cut, worker_team *team, result_builder *result)
{
    const operation_watch watch;
    node_flags nodes(cut.field, cut.array, cut.level, team);
    if (!nodes.classify_for_cut(cut.side)) return watch.failed(cut.call);
    const cut_kernels kernels = {cut, nodes};
    cell_workers workers({cut.field, team, nodes.nold(), cut.with_cells(), cut_lists, kind_of_cut_list,
                          most_rows_a_call, is_cut, cut_rows, &kernels});
    const int done = workers.extract();
    if (done == HOST_STOPPED) return HOST_STOPPED;
    result->add_old_nodes(nodes.nold(), nodes.take_old_nodes());
    return done == HOST_DONE && workers.join(result) ? static_cast<int>(HOST_DONE) : watch.failed(cut.call);
}

} // namespace

extern "C" {

int host_cut(host_field *field, const host_array *array, double level, int side,
             const host_cut_options *given, host_result **out)
{
    constexpr const char *call = "host_cut";
    *out = nullptr;
    mesh_info *mesh = host_mesh(field);
    if (mesh == nullptr || !is_scalar(call, array, level)) return HOST_FAILED;
    if (side != HOST_BELOW && side != HOST_ABOVE)
        return host_fail("%s: side is %d, but sides are HOST_BELOW (-1) and HOST_ABOVE (1)", call, side);
    if (field->kind != KIND_CELLS && field->ndim == 1)
        return host_fail("%s: the library has no such operation for a mesh of one axis", call);
    const host_cut_options options = settled_options(given);
    const bool of_sets = field->kind == KIND_CELLS;
    const int nworkers = workers_for(options.threads, of_sets           ? field->made.ncells
                                                      : mesh->ndim == 3 ? mesh->dims[2] - 1
                                                                        : 1);
    worker_team team(nworkers);
    result_builder result(call, field);
    if (!result.begin()) return HOST_FAILED;
    const cut_call cut = {call, field, *array, level, side, options, nworkers};
    const int done =
        of_sets && nworkers > 1 ? cut_by_workers(cut, &team, &result) : cut_at_once(cut, &result);
    if (done != HOST_DONE) return done;
    if (!result.place(*array, level, options.without_coords == 0, &team)) return HOST_FAILED;
    *out = result.finish();
    return HOST_DONE;
}

} // extern "C"
