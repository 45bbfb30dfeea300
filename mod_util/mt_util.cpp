// What threads share: how many there are, who gets which cells, and an edge table for each.
//
// Nothing here starts a thread, and nothing takes a lock: each thread has records and tables of its own, and what
// it makes is put together by the thread that waits for it.
#include "links.hpp"
#include "report.hpp"
#include "thread_edges.hpp"

#include <skoklana/host/fld.h>
#include <skoklana/host/om.h>
#include <skoklana/host/tool.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

static_assert(sizeof(mt_edge_table) == 56 && offsetof(mt_edge_table, nbuckets) == 32 &&
                  offsetof(mt_edge_table, count) == 44 && offsetof(mt_edge_table, grow) == 48,
              "layout of mt_edge_table");
static_assert(sizeof(mt_edge_table_str) == 72 && offsetof(mt_edge_table_str, edge_capacity) == 40 &&
                  offsetof(mt_edge_table_str, nbuckets) == 48 &&
                  offsetof(mt_edge_table_str, chain_capacity) == 56 &&
                  offsetof(mt_edge_table_str, grow) == 64,
              "layout of mt_edge_table_str");

constexpr int most_threads = 16;
constexpr int first_thread_edges = 1024; // entries of a plain table, and their first step
static const char *const divide_module = "UTILmt";

// ---- division of a mesh ----------------------------------------------------------------------------------

static qx_long share_of(int nthreads, int thread, qx_long number)
{
    return number / nthreads + (thread < number % nthreads ? 1 : 0);
}

// The arrays of a record for cell sets; false: no memory.
static bool open_sets(mesh_info *piece, const mesh_info *mesh)
{
    const qx_long nsets = piece->ncell_sets = mesh->ncell_sets;
    piece->get_connect = mesh->get_connect;
    piece->cell_first = new_zeroed<qx_long>(nsets);
    piece->cell_count = new_zeroed<qx_long>(nsets);
    piece->cell_nnodes = new_zeroed<int>(nsets);
    piece->cell_ndim = new_zeroed<int>(nsets);
    piece->cell_order = new_zeroed<int>(nsets);
    piece->cell_connect = new_zeroed<qx_long *>(nsets);
    piece->cell_aux = new_zeroed<float *>(nsets);
    piece->cell_funcs = new_zeroed<cell_func>(nsets * CELL_METHOD_SLOTS);
    return piece->cell_first != nullptr && piece->cell_count != nullptr && piece->cell_nnodes != nullptr &&
           piece->cell_ndim != nullptr && piece->cell_order != nullptr && piece->cell_connect != nullptr &&
           piece->cell_aux != nullptr && piece->cell_funcs != nullptr;
}

static void fill_sets(mesh_info *piece, const mesh_info *mesh, int nthreads, int thread)
{
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        piece->cell_first[set] = piece->ncells;
        piece->cell_count[set] = share_of(nthreads, thread, mesh->cell_count[set]);
        piece->ncells += piece->cell_count[set];
        piece->cell_nnodes[set] = mesh->cell_nnodes[set];
        piece->cell_ndim[set] = mesh->cell_ndim[set];
        piece->cell_order[set] = mesh->cell_order[set];
        // One slot a set out of the first set's row: no kernel is called through a piece.
        piece->cell_funcs[set] = mesh->cell_funcs[set];
    }
}

// Planes first to first + share of cells along the last axis, of a mesh whose points, if it has compact ones, are two
// corners. False: no memory.
static bool make_slab(mesh_info *piece, const mesh_info *mesh, const float *points, qx_long first,
                      qx_long share)
{
    const int last = mesh->ndim - 1, nspace = mesh->nspace;
    piece->ndim = mesh->ndim;
    piece->dims = new_zeroed<qx_long>(3);
    if (piece->dims == nullptr) return false;
    for (int d = 0; d < 3; ++d)
        piece->dims[d] = d < last ? mesh->dims[d] : 1;
    piece->dims[last] = share + (share != 0 ? 1 : 0);
    piece->nnodes = piece->dims[0] * piece->dims[1] * piece->dims[2];
    if (points == nullptr) return true;
    piece->points = new_zeroed<float>(2 * static_cast<qx_long>(nspace));
    if (piece->points == nullptr) return false;
    std::copy_n(points, 2 * nspace, piece->points);
    const float step = (points[nspace + last] - points[last]) / static_cast<float>(mesh->dims[last] - 1);
    const float low = static_cast<float>(first) * step + points[last];
    piece->points[last] = low;
    piece->points[nspace + last] = static_cast<float>(share) * step + low;
    return true;
}

extern "C" {

void DVmt_init(void)
{
    int count = 1;
    CPUprocessor_info processors = {};
    const char *const wanted = getenv("QX_NUM_THREADS");
    if (wanted != nullptr)
        count = std::min(atoi(wanted), most_threads);
    else if (CPUget_processor_info(&processors) != 0)
        count = std::min(processors.count, most_threads);
    const OMobj_id setting = OMfind_str_subobj(OMroot_obj, "Templates.CONFIG.num_threads");
    const bool is_there = setting.word[0] != OMnull_obj.word[0] || setting.word[1] != OMnull_obj.word[1];
    if (is_there) OMset_int_val(setting, count);
}

int UTILmt_check_isUCD(OMobj_id field_id)
{
    qx_long *dims = nullptr;
    int ndim = 0;
    return FLDget_dims(field_id, &dims, &ndim) == 1 ? 0 : 1;
}

int UTILmt_divide_number(int nthreads, qx_long number, qx_long *shares)
{
    for (int thread = 0; thread < nthreads; ++thread)
        shares[thread] = share_of(nthreads, thread, number);
    return 1;
}

int UTILmt_create_divided_mesh_info(mesh_info *mesh, mesh_info **out, int nthreads)
{
    qx_long *dims = nullptr;
    float *points = nullptr;
    int ndim = 0;
    const bool structured = FLDget_dims(*mesh->field_id, &dims, &ndim) == 1;
    const bool compact = FLDget_points(*mesh->field_id, &points) == 1;
    if (out == nullptr) {
        report_error(divide_module, "cannot allocate out array.");
        return 0;
    }
    const qx_long nplanes = structured && mesh->ndim > 0 ? mesh->dims[mesh->ndim - 1] - 1 : 0;
    if (structured && (nplanes < nthreads || mesh->ndim < 1)) {
        report_error(divide_module, "dims[ndim-1] is too small to be divided.");
        return 0;
    }
    qx_long first = 0;
    for (int thread = 0; thread < nthreads; ++thread) {
        mesh_info *piece = out[thread] = static_cast<mesh_info *>(calloc(1, sizeof(mesh_info)));
        bool good = piece != nullptr;
        if (good) {
            piece->field_id = mesh->field_id;
            piece->nspace = mesh->nspace;
        }
        if (good && structured) {
            const qx_long share = share_of(nthreads, thread, nplanes);
            good = make_slab(piece, mesh, compact ? points : nullptr, first, share);
            first += share;
        } else if (good) {
            good = open_sets(piece, mesh);
            if (good) fill_sets(piece, mesh, nthreads, thread);
        }
        if (good) continue;
        report_error(divide_module, "cannot allocate out array.");
        for (; thread >= 0; --thread) {
            UTILmt_free_divided_mesh_info(out[thread]);
            out[thread] = nullptr;
        }
        return 0;
    }
    return 1;
}

int UTILmt_free_divided_mesh_info(mesh_info *mesh)
{
    if (mesh == nullptr) return 0;
    free(mesh->cell_first);
    free(mesh->cell_count);
    free(mesh->cell_nnodes);
    free(mesh->cell_ndim);
    free(mesh->cell_order);
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        if (mesh->cell_connect != nullptr) free(mesh->cell_connect[set]);
        if (mesh->cell_aux != nullptr) free(mesh->cell_aux[set]);
    }
    free(mesh->cell_connect);
    free(mesh->cell_aux);
    free(mesh->cell_funcs);
    free(mesh->methods);
    free(mesh->coords);
    free(mesh->points);
    free(mesh->dims);
    free(mesh);
    return 1;
}

// ---- edge tables -----------------------------------------------------------------------------------------

mt_edge_table *UTILmt_edge_table_create(qx_long nbuckets)
{
    mt_edge_table *table = static_cast<mt_edge_table *>(calloc(1, sizeof(mt_edge_table)));
    if (table == nullptr) return nullptr;
    table->heads = new_zeroed<int>(nbuckets);
    table->next = new_zeroed<int>(first_thread_edges);
    table->lo = static_cast<qx_long *>(new_block(first_thread_edges, sizeof(qx_long)));
    table->hi = static_cast<qx_long *>(new_block(first_thread_edges, sizeof(qx_long)));
    table->nbuckets = nbuckets;
    table->capacity = table->grow = first_thread_edges;
    if (table->heads == nullptr || table->next == nullptr || table->lo == nullptr || table->hi == nullptr) {
        UTILmt_edge_table_delete(table);
        return nullptr;
    }
    return table;
}

mt_edge_table_str *UTILmt_edge_table_create_str(qx_long nbuckets, int capacity)
{
    mt_edge_table_str *table = static_cast<mt_edge_table_str *>(calloc(1, sizeof(mt_edge_table_str)));
    if (table == nullptr) return nullptr;
    table->heads = new_zeroed<int>(nbuckets);
    table->next = new_zeroed<int>(capacity);
    table->edge_of = static_cast<int *>(new_block(capacity, sizeof(int)));
    table->lo = static_cast<qx_long *>(new_block(capacity, sizeof(qx_long)));
    table->hi = static_cast<qx_long *>(new_block(capacity, sizeof(qx_long)));
    table->nbuckets = nbuckets;
    table->edge_capacity = table->chain_capacity = table->grow = capacity;
    table->chain_next = 1; // chain entry 0 ends a chain
    if (table->heads == nullptr || table->next == nullptr || table->edge_of == nullptr ||
        table->lo == nullptr || table->hi == nullptr) {
        UTILmt_edge_table_delete_str(table);
        return nullptr;
    }
    return table;
}

qx_long UTILmt_edge_table_add_points(mt_edge_table *table, const qx_long *a, const qx_long *b, int n,
                                     int *ids)
{
    if (table == nullptr) return -1;
    thread_edge_table same = as_edge_table(*table);
    for (int i = 0; i < n; ++i)
        ids[i] = find_or_add_edge(&same, a[i], b[i]);
    store_edges(same, table);
    return 1;
}

qx_long UTILmt_edge_table_add_str(mt_edge_table_str *table, const qx_long *a, const qx_long *b, qx_long base,
                                  int n, int *ids)
{
    if (table == nullptr) return -1;
    thread_edge_table_str same = as_edge_table_str(*table);
    bool good = true;
    for (int i = 0; i < n && good; ++i) {
        ids[i] = find_or_add_banded(&same, base, a[i], b[i]);
        good = ids[i] >= 0;
    }
    store_edges_str(same, table);
    return good ? 1 : 0;
}

qx_long UTILmt_edge_table_clean(mt_edge_table_str *table, qx_long n)
{
    if (table == nullptr) return -1;
    thread_edge_table_str same = as_edge_table_str(*table);
    return UTILedge_table_clean(&same, n);
}

qx_long UTILmt_edge_table_get_free(mt_edge_table *table, qx_long **lo, qx_long **hi, qx_long *count)
{
    if (table == nullptr) return 0;
    *lo = table->lo;
    *hi = table->hi;
    *count = table->count;
    table->lo = table->hi = nullptr;
    UTILmt_edge_table_delete(table);
    return 1;
}

qx_long UTILmt_edge_table_free_str(mt_edge_table_str *table, qx_long **lo, qx_long **hi, qx_long *count)
{
    if (table == nullptr) return 0;
    *lo = table->lo;
    *hi = table->hi;
    *count = table->count;
    table->lo = table->hi = nullptr;
    UTILmt_edge_table_delete_str(table);
    return 1;
}

qx_long UTILmt_edge_table_delete(mt_edge_table *table)
{
    if (table == nullptr) return 1;
    free(table->heads);
    free(table->next);
    free(table->lo);
    free(table->hi);
    free(table);
    return 1;
}

qx_long UTILmt_edge_table_delete_str(mt_edge_table_str *table)
{
    if (table == nullptr) return 1;
    free(table->heads);
    free(table->next);
    free(table->edge_of);
    free(table->lo);
    free(table->hi);
    free(table);
    return 1;
}

} // extern "C"
