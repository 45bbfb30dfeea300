// Cuts of cell sets by several threads: each takes some of a set's cells, with an edge table and lists of its own, and
// what they make is appended in their order. The kernels are those of one thread, over a range.
//
// Nothing is renumbered: a new node goes by the number that its thread gave it, behind the retained ones. A whole mesh
// needs one numbering, and is cut by one thread.
#include <skoklana/cut.h>
#include <skoklana/thread.h>

#include "cut_sink.hpp"
#include "fetch.hpp"
#include "thread_edges.hpp"
#include "threads.hpp"

#include <skoklana/host/om.h>

#include <cstddef>

static_assert(sizeof(thread_cut_arg) == 424 && offsetof(thread_cut_arg, direction) == 48 &&
                  offsetof(thread_cut_arg, ncells) == 80 && offsetof(thread_cut_arg, cell_cap) == 200 &&
                  offsetof(thread_cut_arg, cells_used) == 368 && CUT_LISTS == 7,
              "layout of thread_cut_arg");

static const char *const threaded_cells_module = "UTILmt_cut";

// The counts of cells are the one thing that threads write in common, without a lock: where two do so at a time, what
// one of them adds may be lost. Each adds once. In a function of its own, by whose name sanitizers know it.
__attribute__((noinline)) static void add_to_shared_counts(const qx_long *made, qx_long *ncells)
{
    for (int list = 0; list < CUT_LISTS; ++list)
        if (made[list] != 0) ncells[list] += made[list];
}

// ---- a thread --------------------------------------------------------------------------------------------

// Lists and table are worked on apart, so that threads do not write side by side.
template <typename Cases> static void *cut_cells_of(thread_cut_arg *arg)
{
    if (arg->last < arg->first) return arg;
    thread_cut_arg own = *arg;
    thread_edge_table table = as_edge_table(*arg->edges);
    qx_long made[CUT_LISTS] = {}, steps[CUT_LISTS];
    std::fill_n(steps, static_cast<int>(CUT_LISTS), first_piece_entries);
    const piece_lists lists = {made, own.conn, own.conn_used, own.conn_cap, steps};
    const bool mapped = own.cells[Cases::whole_list] != nullptr && own.cells[Cases::piece_list] != nullptr;
    piece_maps_of<thread_numbers> maps(mapped ? own.cells_used : nullptr, own.cells);
    if (mapped) std::copy_n(own.cell_cap, static_cast<int>(CUT_LISTS), maps.capacity);
    walk_end end = walk_end::no_list;
    if (begin_piece_list<thread_numbers>(lists, Cases::whole_list) &&
        begin_piece_list<thread_numbers>(lists, Cases::piece_list)) {
        const cell_rows rows = {arg->connect,
                                arg->cell_nnodes,
                                arg->flags,
                                arg->null_check != 0,
                                arg->direction < 0 ? Cases::last_case : 0,
                                table.size};
        cut_sink<Cases, thread_numbers, false> sink(arg->cell_nnodes, arg->base, arg->node_map, lists, &maps);
        end = walk_cells<Cases>(rows, {0, arg->first, arg->last + 1}, &table, &sink);
    }
    store_edges(table, arg->edges);
    if (mapped) std::copy_n(maps.capacity, static_cast<int>(CUT_LISTS), own.cell_cap);
    *arg = own;
    add_to_shared_counts(made, arg->ncells);
    if (end == walk_end::complete) return arg;
    report_cut_end(end, threaded_cells_module);
    UTILmt_edge_table_delete(arg->edges);
    arg->edges = nullptr;
    return nullptr;
}

// ---- a set -----------------------------------------------------------------------------------------------

namespace {

// What a starter is given.
struct threaded_cut {
    const char *module;
    void *(*worker)(void *);
    int lists[2]; // of whole cells and of pieces
    int nthreads;
    mesh_info *mesh;
    int set, null_flag;
    const unsigned char *flags;
    int side;
    qx_long nold;
    const qx_long *node_map;
    edge_table *table;
    piece_lists out;
    qx_long *map_count, **map; // of the set; null: no maps
};

struct cut_shares {
    int nthreads;
    thread_cut_arg *args = nullptr;
    list_copies *copies = nullptr;
    thread_team threads;
    scratch memory;

    explicit cut_shares(int n) : nthreads(n) {}
    cut_shares(const cut_shares &) = delete;
    cut_shares &operator=(const cut_shares &) = delete;
    ~cut_shares()
    {
        for (int k = 0; args != nullptr && k < nthreads; ++k) {
            UTILmt_edge_table_delete(args[k].edges);
            for (int list = 0; list < CUT_LISTS; ++list) {
                free(args[k].conn[list]);
                free(args[k].cells[list]);
            }
        }
    }

    // False: no memory.
    bool open(const threaded_cut &cut)
    {
        const mesh_info *mesh = cut.mesh;
        args = memory.borrow<thread_cut_arg>(nthreads);
        copies = memory.borrow<list_copies>(nthreads);
        qx_long *counts = memory.borrow<qx_long>(nthreads);
        if (args == nullptr || copies == nullptr || counts == nullptr || !threads.open(nthreads))
            return false;
        UTILmt_divide_number(nthreads, mesh->cell_count[cut.set], counts);
        qx_long first = 0;
        for (int k = 0; k < nthreads; ++k) {
            thread_cut_arg &arg = args[k];
            arg.first = first;
            first += counts[k];
            arg.last = first - 1;
            arg.ncase = cut_kinds[cut.lists[0]].last_case;
            arg.cell_nnodes = mesh->cell_nnodes[cut.set];
            arg.connect = mesh->cell_connect[cut.set];
            arg.null_check = cut.null_flag;
            arg.flags = cut.flags;
            arg.direction = cut.side;
            arg.base = cut.nold;
            arg.node_map = cut.node_map;
            arg.edges = UTILmt_edge_table_create(mesh->nnodes);
            arg.ncells = cut.out.ncells;
            if (arg.edges == nullptr) return false;
            for (int list : cut.lists) {
                if (arg.conn[list] != nullptr) continue; // both lists are one
                arg.conn[list] = thread_numbers::alloc(first_piece_entries, ALLOC_AT("mt_cut_fnc"));
                arg.conn_cap[list] = arg.cell_cap[list] = first_piece_entries;
                if (arg.conn[list] == nullptr) return false;
                if (cut.map_count == nullptr) continue;
                arg.cells[list] = thread_numbers::alloc(first_piece_entries, ALLOC_AT("mt_cut_fnc"));
                if (arg.cells[list] == nullptr) return false;
            }
        }
        return true;
    }
};

// Brings a host array to needed entries, or makes it.
bool resize_or_make(qx_long **list, qx_long needed)
{
    qx_long *grown = *list == nullptr ? host_numbers::alloc(needed, ALLOC_AT("mt_cut_fnc"))
                                      : host_numbers::resize(*list, needed, ALLOC_AT("mt_cut_fnc"));
    if (grown == nullptr) return false;
    expect_to_fill(grown, needed * static_cast<qx_long>(sizeof(qx_long)));
    *list = grown;
    return true;
}

// Room for all that the threads have made; what there is none for ends it, nothing being appended.
walk_end reserve_output(const threaded_cut &cut, const cut_shares &work)
{
    qx_long nedges = 0;
    for (int k = 0; k < work.nthreads; ++k)
        if (work.args[k].edges != nullptr) nedges += work.args[k].edges->count;
    if (!reserve_edges(cut.table, nedges)) return walk_end::no_edges;
    for (int list = 0; list < CUT_LISTS; ++list) {
        qx_long nentries = 0, ncells = 0;
        for (int k = 0; k < work.nthreads; ++k) {
            nentries += work.args[k].conn_used[list];
            ncells += work.args[k].cells_used[list];
        }
        const qx_long needed = cut.out.used[list] + nentries;
        if (needed > cut.out.capacity[list]) {
            if (!resize_or_make(&cut.out.connect[list], needed)) return walk_end::no_connect;
            cut.out.capacity[list] = needed;
        }
        // Nobody tells how long the maps of a set are, but that they are begun with so many entries.
        if (ncells != 0 &&
            !resize_or_make(&cut.map[list], std::max(cut.map_count[list] + ncells, first_piece_entries)))
            return walk_end::no_map;
    }
    return walk_end::complete;
}

void append_output(const threaded_cut &cut, cut_shares *work)
{
    for (int k = 0; k < work->nthreads; ++k) {
        const thread_cut_arg &arg = work->args[k];
        list_copies *copies = &work->copies[k];
        for (int list = 0; list < CUT_LISTS; ++list) {
            copies->add(arg.conn[list], cut.out.connect[list] + cut.out.used[list], arg.conn_used[list]);
            cut.out.used[list] += arg.conn_used[list];
            if (arg.cells_used[list] == 0) continue; // a map that is not there has no count either
            copies->add(arg.cells[list], cut.map[list] + cut.map_count[list], arg.cells_used[list]);
            cut.map_count[list] += arg.cells_used[list];
        }
        place_edges(cut.table, arg.edges, copies);
    }
    copy_lists(&work->threads, work->nthreads, work->copies);
}

int cut_set_in_threads(const threaded_cut &cut)
{
    if (!fetch_connect(cut.mesh, cut.set)) return 0;
    const auto end = [] {
        OMstatus_check(100, nullptr, nullptr);
        return 1;
    };
    // Threads without a cell are not started.
    cut_shares work(
        static_cast<int>(std::min<qx_long>(std::max(cut.nthreads, 1), cut.mesh->cell_count[cut.set])));
    if (!begin_piece_lists(cut.out, CUT_LISTS) || !work.open(cut)) {
        report_error(cut.module, "cannot alloc thread argment array.");
        return end();
    }
    OMstatus_check(20, nullptr, nullptr);
    work.threads.run(work.nthreads, work.args, cut.worker);
    OMstatus_check(90, nullptr, nullptr);
    const walk_end room = reserve_output(cut, work);
    if (room == walk_end::complete)
        append_output(cut, &work);
    else
        report_cut_end(room, threaded_cells_module);
    return end();
}

} // namespace

extern "C" {

#define EXPORT_THREADED_CUT(kind)                                                                           \
    void *thread_func_cut_##kind(void *arg)                                                                 \
    {                                                                                                       \
        return cut_cells_of<kind##_cut_cases>(static_cast<thread_cut_arg *>(arg));                          \
    }                                                                                                       \
                                                                                                            \
    int UTILmt_cut_##kind(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags,      \
                          int side, qx_long nold, const qx_long *node_map, edge_table *table,               \
                          qx_long *cut_ncells, qx_long **cut_conn, qx_long *cut_nconn, qx_long *capacity,   \
                          qx_long *grow, qx_long *cell_map_count, qx_long **cell_map)                       \
    {                                                                                                       \
        const bool maps = cell_map_count != nullptr;                                                        \
        return cut_set_in_threads({"UTILmt_cut_" #kind,                                                     \
                                   thread_func_cut_##kind,                                                  \
                                   {kind##_cut_cases::whole_list, kind##_cut_cases::piece_list},            \
                                   nthreads,                                                                \
                                   mesh,                                                                    \
                                   set,                                                                     \
                                   null_flag,                                                               \
                                   flags,                                                                   \
                                   side,                                                                    \
                                   nold,                                                                    \
                                   node_map,                                                                \
                                   table,                                                                   \
                                   {cut_ncells, cut_conn, cut_nconn, capacity, grow},                       \
                                   maps ? cell_map_count + static_cast<qx_long>(set) * CUT_LISTS : nullptr, \
                                   maps ? cell_map + static_cast<qx_long>(set) * CUT_LISTS : nullptr});     \
    }
EXPORT_THREADED_CUT(hex)
EXPORT_THREADED_CUT(line)
EXPORT_THREADED_CUT(prism)
EXPORT_THREADED_CUT(pyr)
EXPORT_THREADED_CUT(quad)
EXPORT_THREADED_CUT(tet)
EXPORT_THREADED_CUT(tri)

int UTILmt_cut_cells(int, mesh_info *mesh, const void *data, int data_type, int null_flag,
                     const void *null_value, double level, int side, qx_long *nold, qx_long **node_map,
                     qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *cut_ncells,
                     qx_long **cut_conn, qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    return UTILcut_cells(mesh, data, data_type, null_flag, null_value, level, side, nold, node_map,
                         nnodes_out, min_node, max_node, cut_ncells, cut_conn, cut_nconn, cell_map_count,
                         cell_map);
}

int UTILmt_cut(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
               const void *null_value, double level, int side, qx_long *nold, qx_long **node_map,
               qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *cut_ncells,
               qx_long **cut_conn, qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    const auto cut = mesh->ndim == 0 ? UTILmt_cut_cells : UTILmt_cut_struct;
    return cut(nthreads, mesh, data, data_type, null_flag, null_value, level, side, nold, node_map,
               nnodes_out, min_node, max_node, cut_ncells, cut_conn, cut_nconn, cell_map_count, cell_map);
}

} // extern "C"
