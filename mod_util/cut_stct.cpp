// Cut over structured meshes: a walk over the whole lattice with the sink of lattice_cut.hpp.
#include <skoklana/cut.h>

#include "dtype.hpp"
#include "lattice_cut.hpp"

namespace {

template <int naxes> struct cut_result {
    edge_nodes nodes;
    lattice_cut_sink<naxes, batch_list> made = {};
    batch_list no_cells[CUT_LISTS]; // maps of the other lists
};

template <int naxes> void release_cut(cut_result<naxes> *out)
{
    release_nodes(&out->nodes);
    release_cells(&out->made.whole);
    release_cells(&out->made.pieces);
    for (batch_list &map : out->no_cells)
        release_list(&map, ALLOC_AT("cut_stct"));
    free(out->made.old_nodes);
}

template <int naxes> constexpr bool is_made_list(int list)
{
    using cases = typename lattice_cut_sink<naxes, batch_list>::cases;
    return list == cases::whole_list || list == cases::piece_list;
}

template <int naxes> bool open_cut(cut_result<naxes> *out, bool mapped)
{
    bool opened = open_cells(&out->made.whole, first_cut_entries, mapped) &&
                  open_cells(&out->made.pieces, first_cut_entries, mapped) &&
                  open_nodes(&out->nodes, first_cut_nodes);
    for (int list = 0; list < CUT_LISTS && opened && mapped; ++list)
        if (!is_made_list<naxes>(list))
            opened = open_list(&out->no_cells[list], first_cut_entries, ALLOC_AT("cut_stct"));
    return opened;
}

template <typename T, int naxes>
lattice_end cut_typed(const cut_request &asked, lattice_checks checks, cut_result<naxes> *out)
{
    const mesh_info *mesh = asked.mesh;
    out->made.asked = &asked;
    out->made.element_bytes = sizeof(T);
    const equal_to<T> null = {null_value_of<T>(asked.null_flag, asked.null_value)};
    return with_kept_test<T>(asked.level, asked.side, [&](auto kept) {
        return with_tested_flags(
            static_cast<const T *>(asked.data), mesh->nnodes, asked.null_flag != 0, null,
            [&](const flag_source &flags) {
                return walk_lattice(mesh->dims, flags, checks, &out->nodes, &out->made);
            },
            kept);
    });
}

} // namespace

template <int naxes>
static lattice_end cut_lattice(const cut_request &asked, lattice_checks checks, const cut_outputs &to)
{
    to.clear();
    cut_result<naxes> out;
    scratch memory;
    const qx_long nretained =
        UTILnnode_thresh_struct(naxes, asked.mesh->dims, asked.data, asked.data_type, asked.null_flag,
                                asked.null_value, asked.level, asked.side);
    lattice_end end = lattice_end::no_node_memory;
    if (out.made.open_retained(asked.mesh->dims, nretained, &memory) && open_cut(&out, asked.mapped))
        end = with_dtype_or(
            asked.data_type, [] { return lattice_end::no_node_memory; }, // reported by the count
            [&](auto type) { return cut_typed<typename decltype(type)::type>(asked, checks, &out); });
    if (end != lattice_end::done) {
        release_cut(&out);
        return end;
    }

    *to.nold = out.made.nold;
    *to.old_nodes = out.made.old_nodes;
    *to.nnodes = out.nodes.min_node.used;
    *to.min_node = out.nodes.min_node.data;
    *to.max_node = out.nodes.max_node.data;
    using cases = typename lattice_cut_sink<naxes, batch_list>::cases;
    for (int list = 0; list < CUT_LISTS; ++list) {
        made_cells none;
        none.map = out.no_cells[list];
        made_cells &cells = list == cases::whole_list   ? out.made.whole
                            : list == cases::piece_list ? out.made.pieces
                                                        : none;
        to.ncells[list] = cells.connect.used / cut_list_nnodes[list];
        to.nconnect[list] = cells.connect.used;
        if (cells.connect.used == 0) release_list(&cells.connect, ALLOC_AT("cut_stct"));
        to.connect[list] = cells.connect.data;
        if (asked.mapped) {
            to.map_count[list] = cells.map.used;
            to.map[list] = cells.map.data;
        }
    }
    return lattice_end::done;
}

lattice_end cut_volume(const cut_request &asked, lattice_checks checks, const cut_outputs &to)
{
    return cut_lattice<3>(asked, checks, to);
}

template <int naxes> static int cut_and_report(const cut_request &asked, const cut_outputs &to)
{
    const lattice_end end = cut_lattice<naxes>(asked, lattice_checks::every_eighth_slab, to);
    if (end == lattice_end::no_map_memory) report_error("UTILcut", "realloc for cell list failed");
    return end == lattice_end::done ? 1 : 0;
}

int UTILcut_struct_3d(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                      double level, int side, qx_long *nold, qx_long **old_nodes, qx_long *nnodes_out,
                      qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                      qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    if (mesh->ndim != 3) return 0;
    return cut_and_report<3>(
        {mesh, data, data_type, null_flag, null_value, level, side, cell_map_count != nullptr},
        {nold, old_nodes, nnodes_out, min_node, max_node, cut_ncells, cut_conn, cut_nconn, cell_map_count,
         cell_map});
}

int UTILcut_struct_2d(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                      double level, int side, qx_long *nold, qx_long **old_nodes, qx_long *nnodes_out,
                      qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                      qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    if (mesh->ndim != 2) return 0;
    return cut_and_report<2>(
        {mesh, data, data_type, null_flag, null_value, level, side, cell_map_count != nullptr},
        {nold, old_nodes, nnodes_out, min_node, max_node, cut_ncells, cut_conn, cut_nconn, cell_map_count,
         cell_map});
}

int UTILcut_struct(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                   double level, int side, qx_long *nold, qx_long **old_nodes, qx_long *nnodes_out,
                   qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                   qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    if (mesh->ndim != 2 && mesh->ndim != 3) return 0;
    const auto cut = mesh->ndim == 3 ? UTILcut_struct_3d : UTILcut_struct_2d;
    return cut(mesh, data, data_type, null_flag, null_value, level, side, nold, old_nodes, nnodes_out,
               min_node, max_node, cut_ncells, cut_conn, cut_nconn, cell_map_count, cell_map);
}
