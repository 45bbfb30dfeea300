// Cuts of cell sets: what is left of a mesh on one side of a level.
//
// Nodes are retained or not by their value, and retained ones numbered. The walk of cell_walk.hpp finds the
// cells that are kept whole, which are copied a stretch at a time, and those that the level crosses, which
// become simplices by the rows of cut_cases.hpp, over corners that are kept and new nodes. One kernel serves
// all kinds of cells. The road through a mesh is that of level surfaces: one edge table throughout,
// second-order sets in blocks of first-order cells.
#include <skoklana/cut.h>

#include "blocks.hpp"
#include "cell_set.hpp"
#include "cut_flags.hpp"
#include "cut_sink.hpp"
#include "dtype.hpp"
#include "kernel_watch.hpp"

#include <skoklana/array.h>

static const char *const cut_module = "UTILcut";

void report_cut_end(walk_end end, const char *module)
{
    switch (end) {
    case walk_end::no_list: report_error(module, "alloc for connect list failed"); break;
    case walk_end::no_edges: report_error(module, "realloc for edge table failed"); break;
    case walk_end::no_connect: report_error(module, "realloc for connect list failed"); break;
    case walk_end::no_map: report_error(module, "realloc for cell list failed"); break;
    default: break;
    }
}

namespace {

constexpr qx_long cut_block = 1024; // second-order cells that are taken together

// ---- a kernel --------------------------------------------------------------------------------------------

// What a kernel is given.
struct cut_call {
    mesh_info *mesh;
    int set;
    int null_flag;
    unsigned char *flags;
    int side;
    qx_long nold;
    const qx_long *node_map;
    edge_table *table;
    piece_lists lists;
    qx_long *map_count; // an entry a list of the set; null: no maps
    qx_long **map;
};

template <typename Cases> walk_end cut_set(const cut_call &call)
{
    mesh_info *mesh = call.mesh;
    if (!fetch_connect(mesh, call.set)) return walk_end::no_rows;
    if (!begin_piece_lists(call.lists, CUT_LISTS)) return walk_end::no_list;
    const int nnodes = mesh->cell_nnodes[call.set];
    const cell_rows rows = {
        mesh->cell_connect[call.set],         nnodes,          call.flags, call.null_flag != 0,
        call.side < 0 ? Cases::last_case : 0, call.table->size};
    piece_maps maps(call.map_count, call.map);
    cut_sink<Cases> sink(nnodes, call.nold, call.node_map, call.lists, &maps);
    return walk_cells<Cases>(rows, {call.set, 0, mesh->cell_count[call.set]}, call.table, &sink);
}

void release_maps_of_set(qx_long *count, qx_long **map)
{
    if (count == nullptr) return;
    for (int list = 0; list < CUT_LISTS; ++list) {
        release_numbers(&map[list], ALLOC_AT("cut_fnc"));
        count[list] = 0;
    }
}

// The result of an exported kernel: what it does not hand back then it releases.
int end_cut_kernel(const cut_call &call, walk_end end)
{
    report_cut_end(end, cut_module);
    if (end == walk_end::complete) return 1;
    if (end == walk_end::no_rows || end == walk_end::no_list) {
        kernel_watch::mark(call.table, kernel_failure::kept);
        return 0;
    }
    kernel_watch::mark(call.table, kernel_failure::released);
    UTILedge_table_delete(call.table);
    free(call.flags);
    if (end == walk_end::interrupted) {
        release_piece_lists(call.lists, CUT_LISTS);
        release_maps_of_set(call.map_count, call.map);
    }
    return 0;
}

// ---- a whole mesh ----------------------------------------------------------------------------------------

struct cut_run {
    mesh_info *mesh;
    int null_flag, side;
    qx_long nold;
    const qx_long *node_map;
    edge_table *table;
    unsigned char *flags;
    piece_lists lists;
};

bool run_cut(cut_run *run, mesh_info *mesh, int set, cut_cell_func kernel, qx_long *map_count, qx_long **map)
{
    const kernel_watch watch(run->table);
    const int result = kernel(mesh, set, run->null_flag, run->flags, run->side, run->nold, run->node_map,
                              run->table, run->lists.ncells, run->lists.connect, run->lists.used,
                              run->lists.capacity, run->lists.step, map_count, map);
    if (watch.seen() == kernel_failure::released) {
        run->table = nullptr;
        run->flags = nullptr;
    }
    return result == 1 && watch.seen() == kernel_failure::none;
}

// Lists for the maps of a set. False: there is no memory, and there are none.
bool begin_maps(qx_long *count, qx_long **map)
{
    for (int list = 0; list < CUT_LISTS; ++list) {
        count[list] = 0;
        map[list] = nullptr;
    }
    for (int list = 0; list < CUT_LISTS; ++list) {
        map[list] = alloc_numbers(first_piece_entries, ALLOC_AT("cut_fnc"));
        if (map[list] != nullptr) continue;
        report_error(cut_module, "alloc for cell list failed");
        release_maps_of_set(count, map);
        return false;
    }
    return true;
}

// The maps of a block, as a kernel gets them: those of all sets, of which one is in use.
struct block_maps {
    scratch memory;
    qx_long *counts = nullptr, **maps = nullptr;
    int first = 0;

    block_maps() = default;
    block_maps(const block_maps &) = delete;
    block_maps &operator=(const block_maps &) = delete;
    ~block_maps()
    {
        if (maps != nullptr) release_maps_of_set(counts + first, maps + first);
    }

    bool begin(int nsets, int set)
    {
        const qx_long nlists = static_cast<qx_long>(nsets) * CUT_LISTS;
        qx_long *new_counts = memory.borrow<qx_long>(nlists), **new_maps = memory.borrow<qx_long *>(nlists);
        if (new_counts == nullptr || new_maps == nullptr) {
            report_error(cut_module, "alloc for cell list failed");
            return false;
        }
        counts = new_counts;
        maps = new_maps;
        first = set * CUT_LISTS;
        return begin_maps(counts + first, maps + first);
    }
};

// Appends a block's map to the set's, in numbers of second-order cells.
bool append_block_map(const cell_block &block, qx_long nmade, const qx_long *made, qx_long *count,
                      qx_long **map)
{
    constexpr qx_long unit = first_piece_entries;
    if ((*count / unit + 1) * unit - *count <= nmade) {
        const qx_long capacity = ((*count + nmade) / unit + 1) * unit;
        void *grown = ARRrealloc_f(*map, DTYPE_QX_LONG, capacity, 0, ALLOC_AT("cut_fnc"));
        if (grown == nullptr) {
            report_error(cut_module, "realloc for cell list failed");
            return false;
        }
        *map = static_cast<qx_long *>(grown);
    }
    for (qx_long i = 0; i < nmade; ++i)
        (*map)[*count + i] = made[i] / block.pieces + block.done;
    *count += nmade;
    return true;
}

bool cut_blocks(cut_run *run, int set, tesselate_func tesselate, cut_cell_func kernel, qx_long *map_count,
                qx_long **map)
{
    return for_each_block(run->mesh, set, tesselate, cut_block, cut_module, [&](const cell_block &block) {
        if (map_count == nullptr) return run_cut(run, block.mesh, set, kernel, nullptr, nullptr);
        block_maps made;
        if (!made.begin(run->mesh->ncell_sets, set) ||
            !run_cut(run, block.mesh, set, kernel, made.counts, made.maps))
            return false;
        bool good = true;
        for (int l = set * CUT_LISTS; good && l < (set + 1) * CUT_LISTS; ++l)
            good = append_block_map(block, made.counts[l], made.maps[l], &map_count[l], &map[l]);
        return good;
    });
}

enum class set_end { done, failed, failed_before_cells };

set_end cut_one_set(cut_run *run, int set, qx_long *map_count, qx_long **map)
{
    mesh_info *mesh = run->mesh;
    const auto kernel = set_function<cut_cell_func>(mesh, set, SLOT_CUT, SLOT_SUB_CUT);
    const int first_list = set * CUT_LISTS;
    if (kernel == nullptr) {
        for (int l = first_list; map_count != nullptr && l < first_list + CUT_LISTS; ++l) {
            map_count[l] = 0;
            map[l] = nullptr;
        }
        return set_end::done;
    }
    OMpush_status_range(100 * set / mesh->ncell_sets, 100 * (set + 1) / mesh->ncell_sets);
    const auto pop = [](set_end end) {
        OMpop_status_range();
        return end;
    };
    if (map_count != nullptr && !begin_maps(map_count + first_list, map + first_list))
        return pop(set_end::failed);
    if (mesh->cell_order[set] < 2)
        return pop(run_cut(run, mesh, set, kernel, map_count, map) ? set_end::done : set_end::failed);
    const auto tesselate = set_function<tesselate_func>(mesh, set, SLOT_TESSELATE);
    // Without a tesselator the set is passed over, and its range stays open: as with level surfaces.
    if (tesselate == nullptr) return set_end::done;
    if (!fetch_connect(mesh, set)) return pop(set_end::failed_before_cells);
    return pop(cut_blocks(run, set, tesselate, kernel, map_count, map) ? set_end::done : set_end::failed);
}

bool is_known_type(int code)
{
    return with_dtype_silent(code, [](auto) -> int { return 1; }) != 0;
}

} // namespace

int UTILcut_cells(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                  double level, int side, qx_long *nold, qx_long **node_map, qx_long *nnodes_out,
                  qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                  qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    const qx_long nnodes = mesh->nnodes;
    for (int list = 0; list < CUT_LISTS; ++list) {
        cut_ncells[list] = cut_nconn[list] = 0;
        cut_conn[list] = nullptr;
    }
    *nold = 0;
    const size_t map_bytes = static_cast<size_t>(nnodes > 0 ? nnodes : 1) * sizeof(qx_long);
    *node_map = static_cast<qx_long *>(malloc(map_bytes));
    if (*node_map == nullptr) {
        report_error(cut_module, "alloc for node map failed");
        return 0;
    }
    expect_to_fill(*node_map, static_cast<qx_long>(map_bytes));
    *nold = UTILnode_thresh(nnodes, data_type, data, null_flag, null_value, level, side, *node_map);

    qx_long capacity[CUT_LISTS] = {}, step[CUT_LISTS] = {};
    cut_run run = {mesh,      null_flag, side,    *nold,
                   *node_map, nullptr,   nullptr, {cut_ncells, cut_conn, cut_nconn, capacity, step}};
    set_end end = set_end::failed;
    if (is_known_type(data_type)) { // or has been reported
        run.table = UTILedge_table_create(nnodes);
        if (run.table == nullptr) {
            report_error(cut_module, "alloc for edge table failed");
        } else {
            run.flags = insist_zeroed<unsigned char>(nnodes, "Cannot alloc flags array");
            UTILthreshold_scalar(nnodes, data, data_type, null_flag, null_value, 1, level, 0, 1, 2,
                                 run.flags);
            match_flags_to_map(nnodes, data_type, level, side, *node_map, run.flags);
            end = set_end::done;
        }
    }
    for (int set = 0; end == set_end::done && set < mesh->ncell_sets; ++set)
        end = cut_one_set(&run, set, cell_map_count, cell_map);
    free(run.flags);
    if (end != set_end::done) {
        UTILedge_table_delete(run.table);
        if (end == set_end::failed) {
            free(*node_map);
            *node_map = nullptr;
        }
        return 0;
    }
    UTILedge_table_get_free(run.table, min_node, max_node, nnodes_out);
    drop_empty_lists(cut_ncells, cut_conn, CUT_LISTS);
    return 1;
}

#define EXPORT_KERNEL(kind)                                                                             \
    int UTILcut_##kind(mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side,         \
                       qx_long nold, const qx_long *node_map, edge_table *table, qx_long *cut_ncells,   \
                       qx_long **cut_conn, qx_long *cut_nconn, qx_long *capacity, qx_long *grow,        \
                       qx_long *cell_map_count, qx_long **cell_map)                                     \
    {                                                                                                   \
        const bool maps = cell_map_count != nullptr;                                                    \
        const cut_call call = {mesh,                                                                    \
                               set,                                                                     \
                               null_flag,                                                               \
                               flags,                                                                   \
                               side,                                                                    \
                               nold,                                                                    \
                               node_map,                                                                \
                               table,                                                                   \
                               {cut_ncells, cut_conn, cut_nconn, capacity, grow},                       \
                               maps ? cell_map_count + static_cast<qx_long>(set) * CUT_LISTS : nullptr, \
                               maps ? cell_map + static_cast<qx_long>(set) * CUT_LISTS : nullptr};      \
        return end_cut_kernel(call, cut_set<kind##_cut_cases>(call));                                   \
    }
EXPORT_KERNEL(hex)
EXPORT_KERNEL(prism)
EXPORT_KERNEL(pyr)
EXPORT_KERNEL(tet)
EXPORT_KERNEL(quad)
EXPORT_KERNEL(tri)
EXPORT_KERNEL(line)
