// Isosurfaces over cell sets by several threads: each takes some of a set's cells, with an edge table and lists of its
// own, and what they make is appended in their order. The kernels are those of one thread, over a range. One thread alone
// is the one that was called: it appends its triangles itself, and only its edges, whose table is its own, are copied.
//
// Nothing is renumbered: a new node goes by the number that its thread gave it, from 0 on, in the list of triangles.
#include <skoklana/iso.h>
#include <skoklana/thread.h>

#include "cell_set.hpp"
#include "fetch.hpp"
#include "surface_rules.hpp"
#include "thread_edges.hpp"
#include "threads.hpp"

#include <skoklana/host/fld.h>
#include <skoklana/host/om.h>

#include <cstddef>

static_assert(sizeof(thread_slice_arg) == 96 && offsetof(thread_slice_arg, connect) == 24 &&
                  offsetof(thread_slice_arg, edges) == 48 && offsetof(thread_slice_arg, cells_used) == 88,
              "layout of thread_slice_arg");

namespace {

using thread_surface_rules = surface_rules_of<thread_numbers, false>;
using lone_surface_rules = surface_rules_of<host_numbers, false>;

constexpr kernel_manners thread_manners = {"UTILslice", "UTILslice", false};
constexpr qx_long surface_entries = thread_surface_rules::first_capacity;

// ---- a thread --------------------------------------------------------------------------------------------

// Lists and table are worked on apart, so that threads do not write side by side.
template <typename Cases, typename Rules = thread_surface_rules> void *slice_cells_of(thread_slice_arg *arg)
{
    if (arg->last < arg->first) return arg;
    thread_edge_table table = as_edge_table(*arg->edges);
    qx_long *connect = *arg->conn, used = *arg->conn_used, capacity = *arg->conn_cap;
    qx_long *cells = arg->cells != nullptr ? *arg->cells : nullptr;
    const cell_rows rows = {arg->connect, arg->cell_nnodes, arg->flags, arg->null_check != 0, 0, table.size};
    qx_long made = 0;
    const walk_end end = extract_range<Cases, Rules>(rows, {0, arg->first, arg->last + 1}, &table,
                                                     {&connect, &used, &capacity, &cells}, &made);
    store_edges(table, arg->edges);
    *arg->conn = connect;
    *arg->conn_used = used;
    *arg->conn_cap = capacity;
    if (cells != nullptr) {
        *arg->cells = cells;
        *arg->cells_used = made;
    }
    if (end == walk_end::complete) return arg;
    report_kernel_end(end, thread_manners);
    *arg->conn_cap = used; // a growth that failed has counted its step; so much there is at the least
    UTILmt_edge_table_delete(arg->edges);
    arg->edges = nullptr;
    return nullptr;
}

// A share of a set's cells. Its table is made by the thread that uses it: to clear one takes as long as to walk over
// many cells.
struct cell_slice {
    thread_slice_arg arg;
    qx_long nnodes;
    bool no_table;
};

template <typename Cases, typename Rules> void *slice_share_of(void *given)
{
    cell_slice *work = static_cast<cell_slice *>(given);
    work->arg.edges = UTILmt_edge_table_create(work->nnodes);
    work->no_table = work->arg.edges == nullptr;
    return work->no_table ? nullptr : slice_cells_of<Cases, Rules>(&work->arg);
}

// What threads run, and the same for the thread that was called.
struct slice_entries {
    void *(*in_thread)(void *), *(*alone)(void *);
};

template <typename Cases>
constexpr slice_entries slice_entries_of = {slice_share_of<Cases, thread_surface_rules>,
                                            slice_share_of<Cases, lone_surface_rules>};

// ---- a set -----------------------------------------------------------------------------------------------

// What a thread fills. One thread alone fills the caller's lists, and nothing of it is left to be copied.
struct slice_share {
    qx_long *conn, conn_used, conn_cap;
    qx_long *cells, cells_used;
};

struct sliced_set {
    int nthreads;
    cell_slice *works = nullptr;
    slice_share *shares = nullptr;
    list_copies *copies = nullptr;
    thread_team threads;
    qx_long cells_of_one = 0;
    scratch memory;

    explicit sliced_set(int n) : nthreads(n) {}
    sliced_set(const sliced_set &) = delete;
    sliced_set &operator=(const sliced_set &) = delete;
    ~sliced_set()
    {
        for (int k = 0; works != nullptr && shares != nullptr && k < nthreads; ++k) {
            UTILmt_edge_table_delete(works[k].arg.edges);
            free(shares[k].conn);
            free(shares[k].cells);
        }
    }

    // False: no memory.
    bool open(const mesh_info *mesh, int set, int null_flag, const unsigned char *flags,
              const primitive_lists &lists)
    {
        const bool mapped = lists.cell_map != nullptr && *lists.cell_map != nullptr;
        works = memory.borrow<cell_slice>(nthreads);
        shares = memory.borrow<slice_share>(nthreads);
        copies = memory.borrow<list_copies>(nthreads);
        qx_long *counts = memory.borrow<qx_long>(nthreads);
        if (works == nullptr || shares == nullptr || copies == nullptr || counts == nullptr ||
            !threads.open(nthreads))
            return false;
        UTILmt_divide_number(nthreads, mesh->cell_count[set], counts);
        qx_long first = 0;
        for (int k = 0; k < nthreads; ++k) {
            slice_share &share = shares[k];
            thread_slice_arg &arg = works[k].arg;
            works[k].nnodes = mesh->nnodes;
            arg.first = first;
            first += counts[k];
            arg.last = first - 1;
            arg.cell_nnodes = mesh->cell_nnodes[set];
            arg.connect = mesh->cell_connect[set];
            arg.null_check = null_flag;
            arg.flags = flags;
            if (nthreads == 1) {
                arg.conn = lists.connect;
                arg.conn_used = lists.used;
                arg.conn_cap = lists.capacity;
                arg.cells = mapped ? lists.cell_map : nullptr;
                arg.cells_used = &cells_of_one;
                return true;
            }
            arg.conn = &share.conn;
            arg.conn_used = &share.conn_used;
            arg.conn_cap = &share.conn_cap;
            arg.cells = mapped ? &share.cells : nullptr;
            arg.cells_used = &share.cells_used;
            share.conn = thread_numbers::alloc(surface_entries, ALLOC_AT("mt_iso_fnc"));
            share.conn_cap = surface_entries;
            if (mapped) share.cells = thread_numbers::alloc(surface_entries, ALLOC_AT("mt_iso_fnc"));
            if (share.conn == nullptr || (mapped && share.cells == nullptr)) return false;
        }
        return true;
    }

    // False: there was no memory for a table.
    bool run(const slice_entries &entries)
    {
        threads.run(nthreads, works, nthreads == 1 ? entries.alone : entries.in_thread);
        return std::none_of(works, works + nthreads, [](const cell_slice &work) { return work.no_table; });
    }

    // Appends what the threads have made. False: no memory, and nothing is appended.
    bool append_to(edge_table *table, const primitive_lists &lists)
    {
        qx_long nentries = 0, nedges = 0, ncells = 0;
        for (int k = 0; k < nthreads; ++k) {
            nentries += shares[k].conn_used;
            ncells += shares[k].cells_used;
            if (works[k].arg.edges != nullptr) nedges += works[k].arg.edges->count;
        }
        if (!reserve_edges(table, nedges)) {
            report_kernel_end(walk_end::no_edges, thread_manners);
            return false;
        }
        // A kernel that appends after this one finds room for a cell.
        if (!reserve(lists.connect, *lists.used + nentries + thread_surface_rules::margin, lists.capacity)) {
            report_kernel_end(walk_end::no_connect, thread_manners);
            return false;
        }
        qx_long map_capacity = surface_entries;
        if (ncells > 0 && !reserve(lists.cell_map, ncells, &map_capacity)) {
            report_kernel_end(walk_end::no_map, thread_manners);
            return false;
        }
        qx_long *map = ncells > 0 ? *lists.cell_map : nullptr;
        for (int k = 0; k < nthreads; ++k) {
            const slice_share &share = shares[k];
            copies[k].add(share.conn, *lists.connect + *lists.used, share.conn_used);
            *lists.used += share.conn_used;
            if (ncells > 0) {
                copies[k].add(share.cells, map, share.cells_used);
                map += share.cells_used;
            }
            place_edges(table, works[k].arg.edges, &copies[k]);
        }
        copy_lists(&threads, nthreads, copies);
        return true;
    }

  private:
    static bool reserve(qx_long **list, qx_long needed, qx_long *capacity)
    {
        if (needed <= *capacity) return true;
        qx_long *grown = host_numbers::resize(*list, needed, ALLOC_AT("mt_iso_fnc"));
        if (grown == nullptr) return false;
        expect_to_fill(grown, needed * static_cast<qx_long>(sizeof(qx_long)));
        *list = grown;
        *capacity = needed;
        return true;
    }
};

} // namespace

static qx_long slice_set_in_threads(const slice_entries &entries, int nthreads, mesh_info *mesh, int set,
                                    int null_flag, const unsigned char *flags, edge_table *table,
                                    const primitive_lists &lists)
{
    if (!fetch_connect(mesh, set)) return 0;
    if (!begin_primitives<host_numbers>(lists, surface_entries)) {
        report_kernel_end(walk_end::no_list, thread_manners);
        return 0;
    }
    // Threads without a cell are not started.
    const qx_long ncells = mesh->cell_count[set];
    sliced_set work(static_cast<int>(std::min<qx_long>(std::max(nthreads, 1), ncells)));
    if (!work.open(mesh, set, null_flag, flags, lists)) {
        report_error("UTILmt_slice", "cannot alloc thread argment array.");
        return 0;
    }
    OMstatus_check(20, nullptr, nullptr);
    const qx_long before = *lists.used;
    const bool ran = work.run(entries);
    OMstatus_check(90, nullptr, nullptr);
    if (!ran) report_error("UTILmt_slice", "cannot alloc thread argment array.");
    if (!ran || !work.append_to(table, lists)) {
        *lists.used = before;
        return 0;
    }
    return (*lists.used - before) / thread_surface_rules::nodes_each;
}

// ---- a mesh ----------------------------------------------------------------------------------------------

// Volume sets alone take part, by the type that the field gives them. Second-order sets come as tetrahedra.
static set_kernel threaded_slice_kernel(const mesh_info *mesh, int set)
{
    const int ndim = mesh->cell_ndim[set];
    const auto bound = ndim == 3   ? set_function<slice_cell_func>(mesh, set, SLOT_SLICE, SLOT_SUB_SLICE)
                       : ndim == 2 ? set_function<slice_cell_func>(mesh, set, SLOT_ISOLINE, SLOT_SUB_ISOLINE)
                                   : nullptr;
    set_kernel kernel = {bound, ndim == 3, nullptr};
    if (bound == nullptr || ndim == 2) return kernel;
    int type = 0;
    if (FLDget_cell_type(*mesh->field_id, set, &type) != 1) return kernel;
    switch (type) {
    case 6: kernel.threaded = UTILmt_slice_tet; break;
    case 7: kernel.threaded = UTILmt_slice_hex; break;
    case 8: kernel.threaded = UTILmt_slice_prism; break;
    case 9: kernel.threaded = UTILmt_slice_pyr; break;
    case 16:
    case 17:
    case 18:
    case 19: kernel.threaded = UTILmt_slice_tet; break;
    default: break;
    }
    return kernel;
}

extern "C" {

#define EXPORT_KERNEL(kind)                                                                                  \
    void *thread_func_slice_##kind(void *arg)                                                                \
    {                                                                                                        \
        return slice_cells_of<kind##_cases>(static_cast<thread_slice_arg *>(arg));                           \
    }                                                                                                        \
                                                                                                             \
    qx_long UTILmt_slice_##kind(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags, \
                                edge_table *table, qx_long **connect, qx_long *used, qx_long *capacity,      \
                                qx_long **cell_map)                                                          \
    {                                                                                                        \
        return slice_set_in_threads(slice_entries_of<kind##_cases>, nthreads, mesh, set, null_flag, flags,   \
                                    table, {connect, used, capacity, cell_map});                             \
    }
EXPORT_KERNEL(tet)
EXPORT_KERNEL(hex)
EXPORT_KERNEL(prism)
EXPORT_KERNEL(pyr)

int UTILmt_slice_cells(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                       const void *null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                       qx_long **max_node, qx_long *nline, qx_long **line_conn, qx_long *nline_conn,
                       qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count,
                       qx_long **cell_map)
{
    const extract_rules rules = {"UTILslice", 1024, true, threaded_slice_kernel, std::max(nthreads, 1)};
    level_result result;
    const int status = extract_level(
        {mesh, data, data_type, null_flag, null_value, level, cell_map_count, cell_map}, rules, &result);
    *nnodes_out = result.nnodes;
    *min_node = result.min_node;
    *max_node = result.max_node;
    *nline = result.lines.count;
    *line_conn = result.lines.connect;
    *nline_conn = result.lines.used;
    *ntri = result.triangles.count;
    *tri_conn = result.triangles.connect;
    *ntri_conn = result.triangles.used;
    return status;
}

int UTILmt_isosurf(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                   const void *null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                   qx_long **max_node, qx_long *nline, qx_long **line_conn, qx_long *nline_conn,
                   qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count,
                   qx_long **cell_map)
{
    const auto slice = mesh->ndim == 0 ? UTILmt_slice_cells : UTILmt_slice_struct;
    return slice(nthreads, mesh, data, data_type, null_flag, null_value, level, nnodes_out, min_node,
                 max_node, nline, line_conn, nline_conn, ntri, tri_conn, ntri_conn, cell_map_count, cell_map);
}

} // extern "C"
