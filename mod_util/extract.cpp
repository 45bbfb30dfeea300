// The road of a level through the sets of a mesh.
//
// Nodes are classified once, into a byte each. Every set is then given to its kernel, whole or in blocks of
// first-order cells, with one edge table throughout: a new node that two sets or two blocks meet on is one
// node. Lists of triangles and lines grow over the sets; cell maps are a list a set.
//
// A kernel's result can't tell a failure from a set without crossings, both being 0, nor what it has released.
// Kernels are therefore called under a watch (kernel_watch.hpp). A function of the host that gives less than 0
// without a mark has released the table, the flags and the list; 0 without one is an empty set.
#include "extract.hpp"

#include "blocks.hpp"
#include "cell_set.hpp"
#include "kernel_watch.hpp"

#include <skoklana/array.h>

namespace {

struct extraction {
    const level_request &request;
    const extract_rules &rules;
    edge_table *table = nullptr;
    unsigned char *flags = nullptr;
    level_result result = {};
};

} // namespace

static void release_list(qx_long **list)
{
    release_numbers(list, ALLOC_AT("extract"));
}

void report_kernel_end(walk_end end, const kernel_manners &manners)
{
    switch (end) {
    case walk_end::no_list: report_error(manners.connect_module, "alloc for connect list failed"); break;
    case walk_end::no_edges: report_error(manners.connect_module, "realloc for edge table failed"); break;
    case walk_end::no_connect: report_error(manners.connect_module, "realloc for connect list failed"); break;
    case walk_end::no_map: report_error(manners.map_module, "realloc for cell list failed"); break;
    default: break;
    }
}

qx_long run_kernel(range_kernel kernel, const kernel_manners &manners, mesh_info *mesh, int set,
                   int null_flag, unsigned char *flags, edge_table *table, const primitive_lists &lists)
{
    qx_long made = 0;
    walk_end end = walk_end::no_rows;
    if (fetch_connect(mesh, set)) {
        const cell_rows rows = {
            mesh->cell_connect[set], mesh->cell_nnodes[set], flags, null_flag != 0, 0, table->size};
        end = kernel(rows, {set, 0, mesh->cell_count[set]}, table, lists, &made);
    }
    report_kernel_end(end, manners);
    if (end == walk_end::complete) {
        if (manners.checks_at_end) interrupted(100);
        return made;
    }
    if (end == walk_end::no_rows || end == walk_end::no_list) {
        kernel_watch::mark(table, kernel_failure::kept);
        return 0;
    }
    kernel_watch::mark(table, kernel_failure::released);
    UTILedge_table_delete(table);
    free(flags);
    if (end != walk_end::interrupted) return 0;
    release_list(lists.connect);
    *lists.used = 0;
    *lists.capacity = 0;
    return -1;
}

// Primitives made; -1: failed or interrupted.
static qx_long run_set(extraction &x, mesh_info *mesh, int set, const set_kernel &kernel, qx_long **map)
{
    primitive_list &list = kernel.makes_triangles ? x.result.triangles : x.result.lines;
    if (x.rules.nthreads > 0)
        return kernel.threaded == nullptr
                   ? 0
                   : kernel.threaded(x.rules.nthreads, mesh, set, x.request.null_flag, x.flags, x.table,
                                     &list.connect, &list.used, &list.capacity, map);
    const kernel_watch watch(x.table);
    const qx_long made = kernel.func(mesh, set, x.request.null_flag, x.flags, x.table, &list.connect,
                                     &list.used, &list.capacity, map);
    if (made >= 0 && watch.seen() == kernel_failure::none) return made;
    if (made < 0 || watch.seen() == kernel_failure::released) {
        x.table = nullptr;
        x.flags = nullptr;
    }
    if (made < 0) list = {};
    return -1;
}

// Appends a block's map to the set's, in numbers of second-order cells.
static bool append_block_map(const extraction &x, const cell_block &block, qx_long total,
                             const qx_long *block_map, qx_long made, qx_long **map)
{
    const qx_long unit = x.rules.unit;
    if (total + made >= unit) {
        const qx_long capacity = unit + (total + made) / unit * unit + unit;
        void *grown = ARRrealloc_f(*map, DTYPE_QX_LONG, capacity, 0, ALLOC_AT("extract"));
        if (grown == nullptr) {
            report_error(x.rules.module, "realloc for cell list failed");
            return false;
        }
        *map = static_cast<qx_long *>(grown);
    }
    for (qx_long i = 0; i < made; ++i)
        (*map)[total + i] = block_map[i] / block.pieces + block.done;
    return true;
}

static qx_long *begin_map(const extraction &x)
{
    qx_long *map = alloc_numbers(x.rules.unit, ALLOC_AT("extract"));
    if (map == nullptr) report_error(x.rules.module, "alloc for cell list failed");
    return map;
}

// As run_set, for a second-order set. Each block's map goes by cells of the block, in its own list.
static qx_long run_blocks(extraction &x, int set, tesselate_func tesselate, const set_kernel &kernel,
                          qx_long **map)
{
    qx_long total = 0;
    const bool good = for_each_block(
        x.request.mesh, set, tesselate, x.rules.unit, x.rules.module, [&](const cell_block &block) {
            qx_long *block_map = map != nullptr ? begin_map(x) : nullptr;
            if (map != nullptr && block_map == nullptr) return false;
            const qx_long made = run_set(x, block.mesh, set, kernel, map != nullptr ? &block_map : nullptr);
            const bool appended =
                made >= 0 && (map == nullptr || append_block_map(x, block, total, block_map, made, map));
            release_list(&block_map);
            total += made;
            return appended;
        });
    return good ? total : -1;
}

static bool extract_set(extraction &x, int set)
{
    const level_request &request = x.request;
    const mesh_info *mesh = request.mesh;
    const set_kernel kernel = x.rules.choose(mesh, set);
    if (kernel.func == nullptr) return true;
    const bool first_order = mesh->cell_order[set] < 2;
    const tesselate_func tesselate = set_function<tesselate_func>(mesh, set, SLOT_TESSELATE);
    const bool in_parts = first_order || tesselate != nullptr;

    if (x.rules.opens_set_ranges) {
        OMpush_status_range(100 * set / mesh->ncell_sets, 100 * (set + 1) / mesh->ncell_sets);
        if (request.cell_map_count != nullptr) request.cell_map_count[set] = 0;
    }
    // A second-order set without a tesselator is passed over, and its range stays open: hosts have always
    // seen one push more than pops for such a set.
    if (!in_parts) return true;

    qx_long *map = nullptr;
    qx_long made = -1;
    if (request.cell_map_count == nullptr || (map = begin_map(x)) != nullptr) {
        qx_long **wanted = map != nullptr ? &map : nullptr;
        made = first_order ? run_set(x, request.mesh, set, kernel, wanted)
                           : run_blocks(x, set, tesselate, kernel, wanted);
    }
    if (x.rules.opens_set_ranges) OMpop_status_range();
    if (made < 0) {
        release_list(&map);
        return false;
    }
    if (map != nullptr) {
        request.cell_map_count[set] = made;
        request.cell_map[set] = map;
    }
    (kernel.makes_triangles ? x.result.triangles : x.result.lines).count += made;
    return true;
}

// Takes back the maps of the first nsets sets.
static void release_maps(const extraction &x, int nsets)
{
    const level_request &request = x.request;
    if (request.cell_map_count == nullptr) return;
    for (int set = 0; set < nsets; ++set) {
        if (x.rules.choose(request.mesh, set).func == nullptr) continue;
        if (request.mesh->cell_order[set] >= 2 &&
            set_function<tesselate_func>(request.mesh, set, SLOT_TESSELATE) == nullptr)
            continue;
        request.cell_map_count[set] = 0;
        release_list(&request.cell_map[set]);
    }
}

int extract_level(const level_request &request, const extract_rules &rules, level_result *result)
{
    *result = {};
    const mesh_info *mesh = request.mesh;
    extraction x = {request, rules};
    // Threads look edges up in tables of their own, and this one is then a list.
    x.table = UTILedge_table_create(rules.nthreads > 0 ? 1 : mesh->nnodes);
    if (x.table == nullptr) {
        report_error(rules.module, "alloc for edge table failed");
        return 0;
    }
    x.flags = insist_zeroed<unsigned char>(mesh->nnodes, "Cannot alloc flags array");
    bool good = UTILthreshold_scalar(mesh->nnodes, request.data, request.data_type, request.null_flag,
                                     request.null_value, 1, request.level, 0, 1, 2, x.flags) == 1;
    int set = 0;
    while (good && set < mesh->ncell_sets) {
        good = extract_set(x, set);
        if (good) ++set;
    }
    free(x.flags);
    if (!good) {
        release_maps(x, set);
        release_list(&x.result.lines.connect);
        release_list(&x.result.triangles.connect);
        UTILedge_table_delete(x.table);
        return 0;
    }
    UTILedge_table_get_free(x.table, &x.result.min_node, &x.result.max_node, &x.result.nnodes);
    *result = x.result;
    return 1;
}
