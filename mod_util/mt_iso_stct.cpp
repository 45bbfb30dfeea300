// Isosurface over structured meshes by several threads: slabs of the last axis, a thread each, that write one surface
// (lattice_parts.hpp). One thread alone has no use for a count: the slab is then walked over as ever, on the thread
// that was called, with lists of the host.
#include <skoklana/iso.h>
#include <skoklana/thread.h>

#include "dtype.hpp"
#include "lattice_parts.hpp"
#include "surface_sink.hpp"

#include <skoklana/host/om.h>

namespace {

struct triangle_counter : lattice_sink<3, 1> {
    using tally = triangle_tally;
    qx_long nnodes = 0, ntriangles = 0;

    static const edge_order<3> &order(unsigned index) { return lattice_cases.row[index].crossed; }

    void count(const piece_for<triangle_counter> &piece, qx_long)
    {
        nnodes += piece.nnodes;
        ntriangles += piece.tally.ntriangles;
    }
};

struct surface_slab {
    lattice_part<triangle_tally, false> part;
    bool writes;
    qx_long ntriangles;
    edge_nodes_of<placed_list> nodes;
    triangle_sink<placed_list> made;
};

// The names that a call goes by in its reports, and what its threads run.
struct slice_entry {
    const char *starter, *worker;
    void *(*run)(void *);
};

struct surface_out {
    qx_long *nnodes, **min_node, **max_node, *ntri, **tri_conn, *ntri_conn;
    qx_long *map_count, **map; // null: not wanted

    bool mapped() const { return map_count != nullptr; }

    void clear() const
    {
        *nnodes = *ntri = *ntri_conn = 0;
        *min_node = *max_node = *tri_conn = nullptr;
        if (!mapped()) return;
        *map_count = 0;
        *map = nullptr;
    }

    void release() const
    {
        for (qx_long **list : {min_node, max_node, tri_conn})
            release_numbers(list, ALLOC_AT("mt_iso_stct"));
        if (mapped()) release_numbers(map, ALLOC_AT("mt_iso_stct"));
        clear();
    }
};

void report_slab_end(lattice_end end, const slice_entry &names)
{
    switch (end) {
    case lattice_end::no_node_memory:
        report_error("UTILmt_slice_str_float", "realloc for min,max_nlist failed");
        break;
    case lattice_end::no_map_memory: report_error(names.worker, "realloc for cell list failed"); break;
    case lattice_end::no_connect_memory: report_error(names.worker, "realloc for connect list failed"); break;
    default: break;
    }
}

// ---- one thread ------------------------------------------------------------------------------------------

const char *open_lists(surface *out, bool mapped)
{
    if (!open_nodes(&out->nodes, first_surface_nodes)) return "alloc for min,max_nlist failed";
    made_cells *to = &out->made.triangles;
    if (!open_list(&to->connect, first_triangle_entries, ALLOC_AT("mt_iso_stct")))
        return "alloc for nlist failed";
    if (mapped && !open_list(&to->map, first_triangle_entries, ALLOC_AT("mt_iso_stct")))
        return "alloc for cell_ind[0] failed";
    return nullptr;
}

bool slice_whole(const qx_long *dims, const flag_source &flags, const slice_entry &names,
                 const surface_out &to)
{
    surface out;
    const char *const failure = open_lists(&out, to.mapped());
    lattice_end end = lattice_end::done;
    if (failure != nullptr)
        report_error(names.starter, failure);
    else
        end = walk_lattice(dims, flags, lattice_checks::never, &out.nodes, &out.made);
    OMstatus_check(90, nullptr, nullptr);
    report_slab_end(end, names);
    if (failure != nullptr || end != lattice_end::done) {
        release_surface(&out);
        return false;
    }
    const made_cells &triangles = out.made.triangles;
    *to.nnodes = out.nodes.min_node.used;
    *to.min_node = out.nodes.min_node.data;
    *to.max_node = out.nodes.max_node.data;
    *to.ntri_conn = triangles.connect.used;
    *to.ntri = triangles.connect.used / 3;
    *to.tri_conn = triangles.connect.data;
    if (to.mapped()) {
        *to.map_count = triangles.map.used;
        *to.map = triangles.map.data;
    }
    return true;
}

// ---- several ---------------------------------------------------------------------------------------------

void run_slab(surface_slab *slab)
{
    if (!slab->writes) {
        triangle_counter counted;
        slab->part.count(&counted);
        slab->part.nnodes = counted.nnodes;
        slab->ntriangles = counted.ntriangles;
        return;
    }
    slab->part.write(&slab->made, &slab->nodes);
    finish_nodes(&slab->nodes);
    finish_cells(&slab->made.triangles);
}

// A host array of count numbers that will be filled; null: no memory, which has been reported.
qx_long *filled_numbers(qx_long count, const char *module, const char *message)
{
    qx_long *list = alloc_numbers(std::max<qx_long>(count, 1), ALLOC_AT("mt_iso_stct"));
    if (list == nullptr)
        report_error(module, message);
    else
        expect_to_fill(list, count * static_cast<qx_long>(sizeof(qx_long)));
    return list;
}

// Lists for all that the slabs have counted, and a stretch of each for every slab.
bool open_output(int nslabs, surface_slab *slabs, const slice_entry &names, const surface_out &to)
{
    qx_long nnodes = 0, ntriangles = 0;
    for (int k = 0; k < nslabs; ++k) {
        nnodes += slabs[k].part.nnodes;
        ntriangles += slabs[k].ntriangles;
    }
    *to.min_node = filled_numbers(nnodes, names.starter, "alloc for min,max_nlist failed");
    if (*to.min_node == nullptr) return false;
    *to.max_node = filled_numbers(nnodes, names.starter, "alloc for min,max_nlist failed");
    if (*to.max_node == nullptr) return false;
    *to.tri_conn = filled_numbers(3 * ntriangles, names.starter, "alloc for nlist failed");
    if (*to.tri_conn == nullptr) return false;
    if (to.mapped()) {
        *to.map = filled_numbers(ntriangles, names.starter, "alloc for cell_ind[0] failed");
        if (*to.map == nullptr) return false;
    }
    *to.nnodes = *to.ntri = 0;
    for (int k = 0; k < nslabs; ++k) {
        surface_slab &slab = slabs[k];
        slab.writes = true;
        slab.nodes = {stretch_of(*to.min_node, *to.nnodes, slab.part.nnodes),
                      stretch_of(*to.max_node, *to.nnodes, slab.part.nnodes)};
        slab.made.triangles.connect = stretch_of(*to.tri_conn, 3 * *to.ntri, 3 * slab.ntriangles);
        if (to.mapped()) slab.made.triangles.map = stretch_of(*to.map, *to.ntri, slab.ntriangles);
        *to.nnodes += slab.part.nnodes;
        *to.ntri += slab.ntriangles;
    }
    *to.ntri_conn = 3 * *to.ntri;
    if (to.mapped()) *to.map_count = *to.ntri;
    return true;
}

const surface_slab *first_failed(int nslabs, const surface_slab *slabs)
{
    for (int k = 0; k < nslabs; ++k)
        if (slabs[k].part.end != lattice_end::done) return &slabs[k];
    return nullptr;
}

bool slice_slabs(int nslabs, const qx_long *dims, const qx_long *shares, const flag_source &flags,
                 const slice_entry &names, surface_slab *slabs, thread_team *threads, const surface_out &to)
{
    qx_long first = 0;
    for (int k = 0; k < nslabs; ++k) {
        slabs[k] = {};
        slabs[k].part.open(dims, flags, {first, first + shares[k]});
        first += shares[k];
    }
    threads->run(nslabs, slabs, names.run);
    const surface_slab *failed = first_failed(nslabs, slabs);
    bool good = failed == nullptr && open_output(nslabs, slabs, names, to);
    if (good) {
        threads->run(nslabs, slabs, names.run);
        failed = first_failed(nslabs, slabs);
        good = failed == nullptr;
    }
    OMstatus_check(90, nullptr, nullptr);
    for (int k = 0; k < nslabs; ++k)
        slabs[k].part.close();
    if (failed != nullptr) report_slab_end(failed->part.end, names);
    return good;
}

// What a starter holds beside its output.
struct slice_work {
    int nthreads;
    mesh_info **pieces = nullptr;
    qx_long *shares = nullptr;
    surface_slab *slabs = nullptr;
    thread_team threads;
    scratch memory;

    explicit slice_work(int n) : nthreads(n) {}
    slice_work(const slice_work &) = delete;
    slice_work &operator=(const slice_work &) = delete;
    ~slice_work()
    {
        for (int k = 0; pieces != nullptr && k < nthreads; ++k)
            UTILmt_free_divided_mesh_info(pieces[k]);
    }

    // False: no memory, which has been reported, or the mesh can't be divided.
    bool open(mesh_info *mesh)
    {
        pieces = memory.borrow<mesh_info *>(nthreads);
        shares = memory.borrow<qx_long>(nthreads);
        slabs = memory.borrow<surface_slab>(nthreads);
        if (pieces == nullptr || shares == nullptr || slabs == nullptr || !threads.open(nthreads)) {
            report_error("UTILmt_slice", "cannot allocate array");
            return false;
        }
        return UTILmt_create_divided_mesh_info(mesh, pieces, nthreads) == 1;
    }
};

} // namespace

template <typename T>
static int slice_in_threads(const slice_entry &names, int nthreads, mesh_info *mesh, const T *data,
                            int null_flag, T null_value, double level, const surface_out &to)
{
    to.clear();
    if (mesh->ndim != 3 || UTILmt_check_isUCD(*mesh->field_id) == 1) return 0;
    slice_work work(std::max(nthreads, 1));
    if (!work.open(mesh)) return 0;
    UTILmt_divide_number(work.nthreads, mesh->dims[2] - 1, work.shares);
    OMstatus_check(20, nullptr, nullptr);
    const bool good =
        with_level_flags(data, mesh->nnodes, level, null_flag, null_value, [&](const flag_source &flags) {
            return work.nthreads == 1 ? slice_whole(mesh->dims, flags, names, to)
                                      : slice_slabs(work.nthreads, mesh->dims, work.shares, flags, names,
                                                    work.slabs, &work.threads, to);
        });
    if (!good) {
        to.release();
        return 0;
    }
    OMstatus_check(100, nullptr, nullptr);
    return 1;
}

extern "C" {

#define EXPORT_WORKER(code, T, suffix)                              \
    void *thread_func_slice_str_##suffix(void *arg)                 \
    {                                                               \
        surface_slab *slab = static_cast<surface_slab *>(arg);      \
        run_slab(slab);                                             \
        return slab->part.end == lattice_end::done ? arg : nullptr; \
    }
FOR_EACH_DTYPE(EXPORT_WORKER)

} // extern "C"

#define ENTRY_OF_TYPE(code, T, suffix)                                         \
    static slice_entry entry_of_type(of_type<T>)                               \
    {                                                                          \
        return {"UTILmt_slice_str_" #suffix, "thread_func_slice_str_" #suffix, \
                thread_func_slice_str_##suffix};                               \
    }
FOR_EACH_DTYPE(ENTRY_OF_TYPE)

extern "C" {

#define EXPORT_STARTER(code, T, suffix)                                                                      \
    int UTILmt_slice_str_##suffix(int nthreads, mesh_info *mesh, const T *data, int null_flag, T null_value, \
                                  double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, \
                                  qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn,                     \
                                  qx_long *cell_map_count, qx_long **cell_map)                               \
    {                                                                                                        \
        return slice_in_threads<T>(                                                                          \
            entry_of_type(of_type<T>()), nthreads, mesh, data, null_flag, null_value, level,                 \
            {nnodes_out, min_node, max_node, ntri, tri_conn, ntri_conn, cell_map_count, cell_map});          \
    }
FOR_EACH_DTYPE(EXPORT_STARTER)

int UTILmt_slice_struct(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                        const void *null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                        qx_long **max_node, qx_long *nline, qx_long **line_conn, qx_long *nline_conn,
                        qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count,
                        qx_long **cell_map)
{
    const surface_out to = {nnodes_out, min_node,  max_node,       ntri,
                            tri_conn,   ntri_conn, cell_map_count, cell_map};
    to.clear();
    *nline = *nline_conn = 0;
    *line_conn = nullptr;
    if (mesh->ndim < 2) return 0;
    if (mesh->ndim == 2)
        return UTILisoline_struct(mesh, data, data_type, null_flag, null_value, level, nnodes_out, min_node,
                                  max_node, nline, line_conn, nline_conn, cell_map_count, cell_map);
    return with_dtype_silent(data_type, [&](auto type) {
        using T = typename decltype(type)::type;
        return slice_in_threads<T>(entry_of_type(type), nthreads, mesh, static_cast<const T *>(data),
                                   null_flag, null_value_of<T>(null_flag, null_value), level, to);
    });
}

} // extern "C"
