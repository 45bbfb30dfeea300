// Level surfaces and lines as results: the library's extraction, its lists put into a record.
//
// Maps come a cell set each, in the order of the sets, as the primitives of all sets of one dimension follow one
// another in one list; so a set's stretch of the list goes by the set's dimension.
//
// Several workers take the library's kernels for cell sets, each for its share of the cells, and its threaded form for
// lattices of three axes.
#include "cell_workers.hpp"
#include "node_flags.hpp"
#include "options.hpp"
#include "progress.hpp"
#include "report.hpp"
#include "result.hpp"
#include "workers.hpp"

#include <skoklana/iso.h>

#include <cassert>
#include <cmath>
#include <utility>

namespace {

enum class level_kind { surfaces, lines };

// What the library hands over.
struct level_lists {
    qx_long nnodes = 0, nline = 0, ntri = 0;
    list_of<qx_long> min_node, max_node, line_conn, tri_conn;
    qx_long nmaps;
    list_of<qx_long> map_count; // nmaps entries; null: no maps are wanted
    list_of<qx_long *> map;

    explicit level_lists(qx_long nmaps_) : nmaps(nmaps_) {}
    ~level_lists()
    {
        for (qx_long s = 0; map != nullptr && s < nmaps; ++s)
            free(map[s]);
    }
    level_lists(const level_lists &) = delete;
    level_lists &operator=(const level_lists &) = delete;

    bool want_maps()
    {
        map_count = list_of<qx_long>(allocate_zeroed<qx_long>(nmaps));
        map = list_of<qx_long *>(allocate_zeroed<qx_long *>(nmaps));
        return map_count != nullptr && map != nullptr;
    }
};

int extract(mesh_info *mesh, level_kind kind, const host_array &array, double level, int nworkers,
            level_lists *out)
{
    qx_long *min_node = nullptr, *max_node = nullptr, *line_conn = nullptr, *tri_conn = nullptr;
    qx_long nline_conn = 0, ntri_conn = 0;
    const int null_flag = array.null != nullptr ? 1 : 0;
    int done;
    if (kind == level_kind::lines)
        done = mesh->methods->isoline_func(mesh, array.data, array.type, null_flag, array.null, level,
                                           &out->nnodes, &min_node, &max_node, &out->nline, &line_conn,
                                           &nline_conn, out->map_count.get(), out->map.get());
    else if (nworkers == 1)
        done = mesh->methods->isosurf_func(mesh, array.data, array.type, null_flag, array.null, level,
                                           &out->nnodes, &min_node, &max_node, &out->nline, &line_conn,
                                           &nline_conn, &out->ntri, &tri_conn, &ntri_conn,
                                           out->map_count.get(), out->map.get());
    else
        done = UTILmt_isosurf(nworkers, mesh, array.data, array.type, null_flag, array.null, level,
                              &out->nnodes, &min_node, &max_node, &out->nline, &line_conn, &nline_conn,
                              &out->ntri, &tri_conn, &ntri_conn, out->map_count.get(), out->map.get());
    if (done != 1) { // what is left in them is not ours then
        for (qx_long s = 0; out->map != nullptr && s < out->nmaps; ++s)
            out->map[s] = nullptr;
        return done;
    }
    out->min_node.reset(min_node);
    out->max_node.reset(max_node);
    out->line_conn.reset(line_conn);
    out->tri_conn.reset(tri_conn);
    return 1;
}

// The numbers of the cells that primitives of a dimension were made of, one list for all sets. Null: no memory.
list_of<qx_long> joined_maps(const host_field *field, level_lists *lists, int ndim, qx_long count)
{
    const mesh_info &mesh = field->made;
    const bool is_alone = lists->nmaps == 1 && (mesh.ncell_sets < 1 || mesh.cell_first[0] == 0);
    if (is_alone) return list_of<qx_long>(std::exchange(lists->map[0], nullptr));
    list_of<qx_long> all = allocate_list<qx_long>(count);
    qx_long filled = 0;
    for (qx_long s = 0; all != nullptr && s < lists->nmaps; ++s) {
        if (mesh.cell_ndim[s] != ndim) continue;
        for (qx_long i = 0; i < lists->map_count[s]; ++i)
            all[filled++] = lists->map[s][i] + mesh.cell_first[s];
    }
    return all;
}

// ---- cell sets by several workers --------------------------------------------------------------------------------

enum { LINE_LIST, TRIANGLE_LIST, LEVEL_LISTS };
constexpr int kind_of_level_list[LEVEL_LISTS] = {CELL_LINE, CELL_TRI};

struct level_kernels {
    level_kind kind;
    const node_flags &nodes;
    bool with_cells;
};

bool is_crossed(const void *operation, int kind)
{
    const int ndim = cell_kinds[kind].ndim;
    return ndim == 2 ||
           (ndim == 3 && static_cast<const level_kernels *>(operation)->kind == level_kind::surfaces);
}

void *(*const slicers[CELL_KINDS])(void *) = {nullptr,
                                              nullptr,
                                              nullptr,
                                              thread_func_slice_tet,
                                              thread_func_slice_pyr,
                                              thread_func_slice_prism,
                                              thread_func_slice_hex};

// Cells of primitives that a kernel has counted from a row on.
bool append_cells(worker_list *to, const qx_long *cells, qx_long count, qx_long first_row, double done)
{
    if (!reserve_entries(&to->cell, &to->cell_room, to->ncells, count, done)) return false;
    for (qx_long i = 0; i < count; ++i)
        to->cell[to->ncells + i] = cells[i] + first_row;
    to->ncells += count;
    return true;
}

bool slice_rows(const level_kernels &level, const row_stretch &rows, cell_worker *worker)
{
    constexpr qx_long most_entries = 15, margin = 25, first_cells = 1024; // as the kernels have them
    worker_list *to = &worker->lists[TRIANGLE_LIST];
    if (!reserve_entries(&to->connect, &to->room, to->used, most_entries * (rows.end - rows.first) + margin,
                         worker->done))
        return false;
    list_of<qx_long> cells;
    if (level.with_cells && (cells = allocate_list<qx_long>(first_cells)) == nullptr) return false;
    qx_long *cell_list = cells.release(), ncells = 0;
    thread_slice_arg arg = {rows.first,
                            rows.end - 1,
                            rows.nnodes,
                            rows.connect,
                            level.nodes.has_null(),
                            level.nodes.flags(),
                            worker->edges,
                            &to->connect,
                            &to->used,
                            &to->room,
                            level.with_cells ? &cell_list : nullptr,
                            &ncells};
    const bool good = slicers[rows.kind](&arg) != nullptr;
    worker->edges = arg.edges;
    cells.reset(cell_list);
    return good && (!level.with_cells || append_cells(to, cells.get(), ncells, 0, worker->done));
}

// The kernels of lines can't tell a failure from rows without lines, so they are given all the room that they could
// ask for. They are the library's for a set, and see the rows as the one set of a mesh.
bool line_rows(const level_kernels &level, const row_stretch &rows, cell_worker *worker)
{
    constexpr qx_long most_nodes = 4, margin = 8, first_cells = 1000;
    qx_long nrows = rows.end - rows.first, used = 0;
    worker_list *to = &worker->lists[LINE_LIST];
    if (!reserve_entries(&to->connect, &to->room, to->used, most_nodes * nrows + margin, worker->done) ||
        !reserve_edges(worker->edges, most_nodes * nrows))
        return false;
    list_of<qx_long> cells;
    if (level.with_cells && (cells = allocate_list<qx_long>(first_cells)) == nullptr) return false;
    mesh_info mesh = {};
    qx_long *connect = const_cast<qx_long *>(rows.connect) + rows.first * rows.nnodes, first = 0;
    int nnodes = rows.nnodes, ndim = 2, order = 1;
    mesh.nnodes = worker->edges->nbuckets;
    mesh.ncell_sets = 1;
    mesh.ncells = nrows;
    mesh.cell_first = &first;
    mesh.cell_count = &nrows;
    mesh.cell_nnodes = &nnodes;
    mesh.cell_ndim = &ndim;
    mesh.cell_order = &order;
    mesh.cell_connect = &connect;
    const mt_edge_table &own = *worker->edges;
    edge_table edges = {own.heads, own.next, own.lo, own.hi, own.nbuckets, own.capacity, own.count, own.grow};
    qx_long *cell_list = cells.get(), room = to->room, *lines = to->connect;
    used = to->used;
    const qx_long nlines = (rows.kind == CELL_TRI ? UTILisoline_tri : UTILisoline_quad)(
        &mesh, 0, level.nodes.has_null(), level.nodes.flags(), &edges, &lines, &used, &room,
        level.with_cells ? &cell_list : nullptr);
    assert(lines == to->connect && cell_list == cells.get() && edges.max_edges == own.capacity);
    to->used = used;
    worker->edges->count = edges.nedges;
    return !level.with_cells || append_cells(to, cells.get(), nlines, rows.first, worker->done);
}

bool extract_rows(const void *operation, const row_stretch &rows, cell_worker *worker)
{
    const level_kernels &level = *static_cast<const level_kernels *>(operation);
    return cell_kinds[rows.kind].ndim == 3 ? slice_rows(level, rows, worker) : line_rows(level, rows, worker);
}

// Adds what there is to a result that has been begun.
int extract_by_workers(const char *call, const host_field *field, level_kind kind, const host_array &array,
                       double level, bool with_cells, worker_team *team, result_builder *result)
{
    constexpr qx_long most_lines = 2, rows_of_a_map = 1000 / most_lines - 2;
    const operation_watch watch;
    node_flags nodes(field, array, level, team);
    const level_kernels kernels = {kind, nodes, with_cells};
    bool flat = false;
    for (int set = 0; set < field->nsets; ++set)
        flat = flat || cell_kinds[field->sets[set].kind].ndim == 2;
    cell_workers workers({field, team, 0, with_cells, LEVEL_LISTS, kind_of_level_list,
                          flat && with_cells ? rows_of_a_map : most_rows_a_call, is_crossed, extract_rows,
                          &kernels});
    if (!nodes.classify()) return watch.failed(call);
    const int done = workers.extract();
    if (done == HOST_STOPPED) return HOST_STOPPED;
    return done == HOST_DONE && workers.join(result) ? static_cast<int>(HOST_DONE) : watch.failed(call);
}

int finish(result_builder *result, const host_array &array, double level, const host_level_options &options,
           worker_team *team, host_result **out)
{
    if (!result->place(array, level, options.without_coords == 0, team)) return HOST_FAILED;
    *out = result->finish();
    return HOST_DONE;
}

int build(const char *call, host_field *field, level_kind kind, const host_array *array, double level,
          const host_level_options *given, host_result **out)
{
    *out = nullptr;
    mesh_info *mesh = host_mesh(field);
    if (mesh == nullptr) return HOST_FAILED;
    if (!is_scalar(call, array, level)) return HOST_FAILED;
    const host_level_options options = settled_options(given);
    if (kind == level_kind::surfaces ? mesh->methods->isosurf_func == nullptr
                                     : mesh->methods->isoline_func == nullptr)
        return host_fail("%s: the library has no such operation for the mesh", call);

    result_builder result(call, field);
    if (!result.begin()) return HOST_FAILED;
    const int nworkers = workers_for(options.threads, field->kind == KIND_CELLS ? field->made.ncells
                                                      : mesh->ndim == 3         ? mesh->dims[2] - 1
                                                                                : 1);
    worker_team team(nworkers);
    if (field->kind == KIND_CELLS && nworkers > 1) {
        const int done =
            extract_by_workers(call, field, kind, *array, level, options.without_cells == 0, &team, &result);
        return done == HOST_DONE ? finish(&result, *array, level, options, &team, out) : done;
    }

    // Lattices of another number of axes have no cells of the dimension, whatever the library makes of them.
    const bool has_cells =
        field->kind == KIND_CELLS || mesh->ndim == 2 || (mesh->ndim == 3 && kind == level_kind::surfaces);
    level_lists lists(field->kind == KIND_CELLS && mesh->ncell_sets > 0 ? mesh->ncell_sets : 1);
    if (options.without_cells == 0 && !lists.want_maps())
        return host_fail("%s: no memory for the maps", call);
    const operation_watch watch;
    if (has_cells && extract(mesh, kind, *array, level, nworkers, &lists) != 1) return watch.failed(call);
    if (nworkers > 1 && is_stopped(1, 1, nullptr)) return HOST_STOPPED; // what threads do is done to its end

    const bool with_cells = options.without_cells == 0;
    struct {
        int kind, ndim;
        qx_long count;
        list_of<qx_long> *connect;
    } const primitives[] = {{CELL_LINE, 2, lists.nline, &lists.line_conn},
                            {CELL_TRI, 3, lists.ntri, &lists.tri_conn}};
    for (const auto &of : primitives) {
        if (of.count == 0) continue;
        list_of<qx_long> cells;
        if (with_cells) cells = joined_maps(field, &lists, of.ndim, of.count);
        if (with_cells && cells == nullptr) return host_fail("%s: no memory for the cells", call);
        if (!result.add_set(of.kind, 1, of.count, std::move(*of.connect), std::move(cells)))
            return HOST_FAILED;
    }
    result.add_new_nodes(lists.nnodes, std::move(lists.min_node), std::move(lists.max_node));
    return finish(&result, *array, level, options, &team, out);
}

} // namespace

extern "C" {

int host_isosurf(host_field *field, const host_array *array, double level, const host_level_options *options,
                 host_result **out)
{
    return build("host_isosurf", field, level_kind::surfaces, array, level, options, out);
}

int host_isoline(host_field *field, const host_array *array, double level, const host_level_options *options,
                 host_result **out)
{
    return build("host_isoline", field, level_kind::lines, array, level, options, out);
}

} // extern "C"
