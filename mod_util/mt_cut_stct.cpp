// Cuts of structured meshes by several threads: slabs of the last axis, a thread each, that write one cut
// (lattice_parts.hpp). The retained nodes are counted, numbered and listed slab by slab too, the planes between two
// slabs by the one above. One thread alone cuts as ever.
//
// An edge of the plane between two slabs that has a new node must have got it from the slab below. It has not where
// the cells below it are left out for their nulls, and such a mesh is refused.
#include <skoklana/cut.h>
#include <skoklana/thread.h>

#include "lattice_cut.hpp"
#include "lattice_parts.hpp"

#include <skoklana/host/om.h>

namespace {

constexpr const char *threaded_cut_module = "UTILmt_cut_struct_3d", *cut_array_module = "mt_isovolume";

// Edges of a cell in its lower plane: the first two along i and along j.
constexpr unsigned lower_edges = 3u << 0 | 3u << edges_an_axis<3>;

struct placed_cut_sink : lattice_cut_sink<3, placed_list> {
    qx_long listed_end;  // planes from here on are listed by the slab above
    qx_long *not_listed; // where they are listed all the same

    lattice_end enter_plane(qx_long k)
    {
        if (k >= listed_end) old_nodes = with_index(not_listed, nlisted);
        return lattice_cut_sink<3, placed_list>::enter_plane(k);
    }
};

struct cut_slab {
    lattice_part<lattice_cut_tally<3>, true> part;
    const cut_request *asked;
    size_t element_bytes;
    qx_long listed_end; // planes from here on are listed by the slab above
    bool writes, fits;
    qx_long nold, npieces, nwhole;
    edge_nodes_of<placed_list> nodes;
    placed_cut_sink made;

    const void *values_from(qx_long plane) const
    {
        const qx_long first = plane * part.dims[0] * part.dims[1];
        return static_cast<const char *>(asked->data) + static_cast<size_t>(first) * element_bytes;
    }

    qx_long retained_in(qx_long plane) const
    {
        const qx_long dims[3] = {part.dims[0], part.dims[1], 1};
        return UTILnnode_thresh_struct(3, dims, values_from(plane), asked->data_type, asked->null_flag,
                                       asked->null_value, asked->level, asked->side);
    }
};

// Retained nodes are counted plane by plane too, while their values are at hand.
struct cut_counter : lattice_sink<3, 1> {
    static constexpr bool wants_whole = true;
    using tally = lattice_cut_tally<3>;
    const cut_slab &slab;
    qx_long nold = 0, nnodes = 0, npieces = 0, nwhole = 0;
    bool fits = true; // edges of the lowest plane have their numbers from the slab below

    explicit cut_counter(const cut_slab &of) : slab(of) {}

    lattice_end enter_plane(qx_long k)
    {
        if (k < slab.listed_end) nold += slab.retained_in(k);
        return lattice_end::done;
    }

    static const edge_order<3> &order(unsigned index) { return lattice_cut<3>(index).crossed; }

    void count(const piece_for<cut_counter> &piece, qx_long k)
    {
        nnodes += piece.nnodes;
        npieces += piece.tally.npieces;
        nwhole += piece.nwhole;
        if (k == 0 || k != slab.part.range.first) return;
        for (int n = 0; n < piece.ncells; ++n) {
            const edge_order<3> &crossed = order(piece.cells[n].index[0]);
            for (int e = 0; e < crossed.nedges; ++e)
                if ((piece.cells[n].fresh & lower_edges) >> crossed.edges[e] & 1) fits = false;
        }
    }
};

// ---- a thread --------------------------------------------------------------------------------------------

void count_slab(cut_slab *slab)
{
    cut_counter counted(*slab);
    slab->part.count(&counted);
    slab->nold = counted.nold;
    slab->part.nnodes = counted.nnodes;
    slab->npieces = counted.npieces;
    slab->nwhole = counted.nwhole;
    slab->fits = counted.fits;
}

void write_slab(cut_slab *slab)
{
    scratch memory;
    const qx_long plane = slab->part.dims[0] * slab->part.dims[1];
    placed_cut_sink &made = slab->made;
    made.nx = slab->part.dims[0];
    made.plane = plane;
    made.map[0] = memory.borrow<qx_long>(2 * plane);
    made.map[1] = made.map[0] + plane;
    made.not_listed = memory.borrow<qx_long>(plane);
    slab->part.end = lattice_end::no_node_memory;
    if (made.map[0] == nullptr || made.not_listed == nullptr) return;
    slab->part.write(&made, &slab->nodes);
    finish_nodes(&slab->nodes);
    finish_cells(&made.whole);
    finish_cells(&made.pieces);
}

// ---- all slabs -------------------------------------------------------------------------------------------

// A host array of count numbers that will be filled. Null: no memory.
qx_long *filled_cut_numbers(qx_long count)
{
    qx_long *list = alloc_numbers(std::max<qx_long>(count, 1), ALLOC_AT("mt_cut_stct"));
    if (list != nullptr) expect_to_fill(list, count * static_cast<qx_long>(sizeof(qx_long)));
    return list;
}

// A list of cells, if there are any, and the map of it. False: no memory.
bool open_cut_list(const cut_outputs &to, int list, qx_long ncells)
{
    to.ncells[list] = ncells;
    to.nconnect[list] = ncells * cut_list_nnodes[list];
    if (ncells == 0) return true;
    to.connect[list] = filled_cut_numbers(to.nconnect[list]);
    if (to.map_count == nullptr) return to.connect[list] != nullptr;
    to.map[list] = filled_cut_numbers(ncells);
    to.map_count[list] = ncells;
    return to.connect[list] != nullptr && to.map[list] != nullptr;
}

// Lists for all that the slabs have counted. False: no memory.
bool open_cut_output(int nslabs, const cut_slab *slabs, const cut_outputs &to)
{
    qx_long npieces = 0, nwhole = 0;
    for (int k = 0; k < nslabs; ++k) {
        *to.nold += slabs[k].nold;
        *to.nnodes += slabs[k].part.nnodes;
        npieces += slabs[k].npieces;
        nwhole += slabs[k].nwhole;
    }
    *to.min_node = filled_cut_numbers(*to.nnodes);
    *to.max_node = filled_cut_numbers(*to.nnodes);
    if (*to.nold > 0) {
        const qx_long bytes = *to.nold * static_cast<qx_long>(sizeof(qx_long));
        *to.old_nodes = static_cast<qx_long *>(malloc(static_cast<size_t>(bytes)));
        if (*to.old_nodes == nullptr) return false;
        expect_to_fill(*to.old_nodes, bytes);
    }
    return *to.min_node != nullptr && *to.max_node != nullptr && open_cut_list(to, TET_LIST, npieces) &&
           open_cut_list(to, HEX_LIST, nwhole);
}

void release_cut_output(const cut_outputs &to)
{
    free(*to.old_nodes);
    release_numbers(to.min_node, ALLOC_AT("mt_cut_stct"));
    release_numbers(to.max_node, ALLOC_AT("mt_cut_stct"));
    for (int list : {TET_LIST, HEX_LIST}) {
        release_numbers(&to.connect[list], ALLOC_AT("mt_cut_stct"));
        if (to.map_count != nullptr) release_numbers(&to.map[list], ALLOC_AT("mt_cut_stct"));
    }
    to.clear();
}

// A stretch of a list of cells and of its map for a slab.
made_cells_of<placed_list> cells_of_slab(const cut_outputs &to, int list, qx_long first, qx_long count)
{
    const int nnodes = cut_list_nnodes[list];
    made_cells_of<placed_list> cells;
    cells.connect = stretch_of(to.connect[list], nnodes * first, nnodes * count);
    if (to.map_count != nullptr) cells.map = stretch_of(to.map[list], first, count);
    return cells;
}

void place_slabs(int nslabs, cut_slab *slabs, const cut_outputs &to)
{
    qx_long nold = 0, nnodes = 0, npieces = 0, nwhole = 0;
    for (int k = 0; k < nslabs; ++k) {
        cut_slab &slab = slabs[k];
        slab.writes = true;
        slab.nodes = {stretch_of(*to.min_node, nnodes, slab.part.nnodes),
                      stretch_of(*to.max_node, nnodes, slab.part.nnodes)};
        slab.made.asked = slab.asked;
        slab.made.element_bytes = slab.element_bytes;
        slab.made.listed_end = slab.listed_end;
        slab.made.nold = *to.nold;
        slab.made.old_nodes = *to.old_nodes;
        slab.made.nlisted = nold;
        slab.made.pieces = cells_of_slab(to, TET_LIST, npieces, slab.npieces);
        slab.made.whole = cells_of_slab(to, HEX_LIST, nwhole, slab.nwhole);
        nold += slab.nold;
        nnodes += slab.part.nnodes;
        npieces += slab.npieces;
        nwhole += slab.nwhole;
    }
}

// What is wrong after a walk; null: nothing.
const char *fault_of_slabs(int nslabs, const cut_slab *slabs)
{
    for (int k = 0; k < nslabs; ++k) {
        if (slabs[k].part.end != lattice_end::done) return "alloc thread arrays failed";
        if (!slabs[k].fits) return "Connection wrong";
    }
    return nullptr;
}

bool cut_slabs(const cut_request &asked, size_t element_bytes, int nslabs, const qx_long *shares,
               const flag_source &flags, cut_slab *slabs, thread_team *threads, const cut_outputs &to)
{
    const qx_long *dims = asked.mesh->dims;
    qx_long first = 0;
    for (int k = 0; k < nslabs; ++k) {
        slabs[k] = {};
        slabs[k].part.open(dims, flags, {first, first + shares[k]});
        first += shares[k];
        slabs[k].asked = &asked;
        slabs[k].element_bytes = element_bytes;
        slabs[k].listed_end = k == nslabs - 1 ? dims[2] : first;
    }
    threads->run(nslabs, slabs, thread_func_cut_str_3d);
    const char *fault = fault_of_slabs(nslabs, slabs), *module = threaded_cut_module;
    if (fault == nullptr && !open_cut_output(nslabs, slabs, to)) {
        fault = "failed to alloc nlist.";
        module = cut_array_module;
    }
    if (fault == nullptr) {
        place_slabs(nslabs, slabs, to);
        threads->run(nslabs, slabs, thread_func_cut_str_3d);
        fault = fault_of_slabs(nslabs, slabs);
    }
    for (int k = 0; k < nslabs; ++k)
        slabs[k].part.close();
    OMstatus_check(90, nullptr, nullptr);
    if (fault == nullptr) return true;
    report_error(module, fault);
    release_cut_output(to);
    return false;
}

// By one slab at the most.
bool cut_alone(const cut_request &asked, const cut_outputs &to)
{
    const lattice_end end = cut_volume(asked, lattice_checks::never, to);
    OMstatus_check(90, nullptr, nullptr);
    switch (end) {
    case lattice_end::done: return true;
    case lattice_end::no_map_memory: report_error(cut_array_module, "realloc for cell list failed"); break;
    case lattice_end::no_connect_memory: report_error(cut_array_module, "failed to alloc nlist."); break;
    default: report_error(threaded_cut_module, "alloc thread arrays failed"); break;
    }
    return false;
}

template <typename T>
bool cut_typed_slabs(const cut_request &asked, int nslabs, const qx_long *shares, cut_slab *slabs,
                     thread_team *threads, const cut_outputs &to)
{
    const equal_to<T> null = {null_value_of<T>(asked.null_flag, asked.null_value)};
    return with_kept_test<T>(asked.level, asked.side, [&](auto kept) {
        return with_tested_flags(
            static_cast<const T *>(asked.data), asked.mesh->nnodes, asked.null_flag != 0, null,
            [&](const flag_source &flags) {
                return cut_slabs(asked, sizeof(T), nslabs, shares, flags, slabs, threads, to);
            },
            kept);
    });
}

int cut_in_threads(int nthreads, const cut_request &asked, const cut_outputs &to)
{
    to.clear();
    const mesh_info *mesh = asked.mesh;
    if (with_dtype_silent(asked.data_type, [](auto) -> int { return 1; }) == 0) {
        // The count of nodes is what tells of the type.
        UTILnnode_thresh_struct(3, mesh->dims, asked.data, asked.data_type, asked.null_flag, asked.null_value,
                                asked.level, asked.side);
        return 0;
    }
    // Slabs without a plane of cells are not cut; others are one at the least.
    const int nslabs =
        static_cast<int>(std::max<qx_long>(std::min<qx_long>(std::max(nthreads, 1), mesh->dims[2] - 1), 1));
    scratch memory;
    thread_team threads;
    qx_long *shares = memory.borrow<qx_long>(nslabs);
    if (shares == nullptr || !threads.open(nslabs)) {
        report_error(cut_array_module, "realloc for cell list failed");
        return 0;
    }
    cut_slab *slabs = memory.borrow<cut_slab>(nslabs);
    if (slabs == nullptr) {
        report_error(cut_array_module, "failed to alloc thread info struct array");
        return 0;
    }
    UTILmt_divide_number(nslabs, mesh->dims[2] - 1, shares);
    OMstatus_check(20, nullptr, nullptr);
    const bool good = nslabs == 1
                          ? cut_alone(asked, to)
                          : with_dtype_or(
                                asked.data_type, [] { return false; },
                                [&](auto type) {
                                    using T = typename decltype(type)::type;
                                    return cut_typed_slabs<T>(asked, nslabs, shares, slabs, &threads, to);
                                });
    if (!good) return 0;
    OMstatus_check(100, nullptr, nullptr);
    return 1;
}

} // namespace

extern "C" {

void *thread_func_cut_str_3d(void *arg)
{
    cut_slab *slab = static_cast<cut_slab *>(arg);
    if (slab->writes)
        write_slab(slab);
    else
        count_slab(slab);
    return slab->part.end == lattice_end::done && slab->fits ? arg : nullptr;
}

int UTILmt_cut_struct_3d(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                         const void *null_value, double level, int side, qx_long *nold, qx_long **old_nodes,
                         qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *cut_ncells,
                         qx_long **cut_conn, qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    if (mesh->ndim != 3) return 0;
    return cut_in_threads(
        nthreads, {mesh, data, data_type, null_flag, null_value, level, side, cell_map_count != nullptr},
        {nold, old_nodes, nnodes_out, min_node, max_node, cut_ncells, cut_conn, cut_nconn, cell_map_count,
         cell_map});
}

int UTILmt_cut_struct_2d(int, mesh_info *mesh, const void *data, int data_type, int null_flag,
                         const void *null_value, double level, int side, qx_long *nold, qx_long **old_nodes,
                         qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *cut_ncells,
                         qx_long **cut_conn, qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    return UTILcut_struct_2d(mesh, data, data_type, null_flag, null_value, level, side, nold, old_nodes,
                             nnodes_out, min_node, max_node, cut_ncells, cut_conn, cut_nconn, cell_map_count,
                             cell_map);
}

int UTILmt_cut_struct(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                      const void *null_value, double level, int side, qx_long *nold, qx_long **old_nodes,
                      qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *cut_ncells,
                      qx_long **cut_conn, qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    if (mesh->ndim != 2 && mesh->ndim != 3) return 0;
    const auto cut = mesh->ndim == 3 ? UTILmt_cut_struct_3d : UTILmt_cut_struct_2d;
    return cut(nthreads, mesh, data, data_type, null_flag, null_value, level, side, nold, old_nodes,
               nnodes_out, min_node, max_node, cut_ncells, cut_conn, cut_nconn, cell_map_count, cell_map);
}

} // extern "C"
