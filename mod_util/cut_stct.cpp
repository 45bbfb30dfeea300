// Cut over structured meshes: a sink of the walk over lattices (lattice_walk.hpp). Whole cells are copied, crossed
// ones are split by their cut cases (lattice_split.hpp).
//
// The nodes that a cut retains are counted before anything is written, since new nodes are numbered behind them:
// so each connect entry is final when it is written.
//
// A node is retained where its value, in double, is on the kept side of the level or at it. A cell keeps a corner
// where besides the flags of UTILthreshold_scalar say so, whose comparison is in the data's precision and puts
// values at the level on the high side. Both are tests of one bound, and so are they together.
#include <skoklana/cut.h>

#include "dtype.hpp"
#include "lattice_split.hpp"

namespace {

constexpr qx_long first_cut_entries = 1024; // of every list
constexpr qx_long first_cut_nodes = 1024;

// What a cut is asked for.
struct cut_request {
    const mesh_info *mesh;
    const void *data;
    int data_type, null_flag;
    const void *null_value;
    double level;
    int side;
    bool mapped;
};

template <int naxes_> struct lattice_cut_sink : split_sink<naxes_, 1> {
    using base = split_sink<naxes_, 1>;
    static constexpr int naxes = naxes_;
    using typename base::cases;

    const cut_request *asked;
    size_t element_bytes;

    struct tally {
        int npieces = 0;
        void add(const lattice_cell<1> &cell)
        {
            npieces += cases::row(lattice_cut<naxes>(cell.index[0]).index).ncells;
        }
    };

    static const edge_order<naxes> &order(unsigned index) { return lattice_cut<naxes>(index).crossed; }

    lattice_end enter_plane(qx_long k)
    {
        const qx_long first = this->plane * k;
        UTILnode_thresh_struct(
            this->plane, static_cast<const char *>(asked->data) + static_cast<size_t>(first) * element_bytes,
            asked->data_type, asked->null_flag, asked->null_value, asked->level, asked->side, first,
            &this->nlisted, this->old_nodes, this->next_map());
        return lattice_end::done;
    }

    lattice_end make_room(const tally &adds, int nwhole, double done)
    {
        return this->make_room_for_split(adds.npieces, nwhole, done);
    }

    struct writer {
        qx_long *entry, *map;
        qx_long *retained[2];
        qx_long nx, nold, first_in_plane, first_cell;

        FORCE_INLINE void take(const lattice_cell<1> &cell, const piece_edges<naxes, 1> &edges, node_writer *)
        {
            const lattice_cut_case<naxes> &at = lattice_cut<naxes>(cell.index[0]);
            const cut_case &row = cases::row(at.index);
            const qx_long i = cell.i;
            qx_long numbers[most_cut_local];
            number_corners<naxes>(retained, nx, first_in_plane + i, numbers);
            for (int p = 0; p < row.npoints; ++p)
                numbers[base::ncorners + p] = nold + edges.slot[0][at.crossed.edges[p]][i];
            entry = write_pieces(row.nodes, base::piece_nnodes * row.ncells, numbers, entry);
            if (map != nullptr)
                for (int piece = 0; piece < row.ncells; ++piece)
                    *map++ = first_cell + i;
        }
    };

    writer begin(const piece_place &place)
    {
        const made_cells &out = this->pieces;
        return {out.connect.data + out.connect.used,
                out.map.data != nullptr ? out.map.data + out.map.used : nullptr,
                {this->map[0], this->map[1]},
                this->nx,
                this->nold,
                this->in_plane(place),
                place.cell};
    }

    void end(const writer &, const tally &added)
    {
        this->pieces.connect.used += base::piece_nnodes * static_cast<qx_long>(added.npieces);
        this->pieces.map.used += added.npieces;
    }
};

// Calls body with the test for the corners that cells keep.
template <typename T, typename Body> auto with_kept_test(double level, int side, Body body)
{
    if constexpr (std::is_integral_v<T>) {
        const auto flagged = [=](T v) {
            return with_level_test<T>(level, true, [v](const auto &above) { return above.one(v); });
        };
        constexpr T greatest = std::numeric_limits<T>::max(), least = std::numeric_limits<T>::min();
        if (side >= 0) {
            const auto kept = [=](T v) { return flagged(v) && static_cast<double>(v) >= level; };
            if (!kept(greatest)) return body(nothing<T>);
            return body(at_least<T>{least_that<T>(kept)});
        }
        const auto dropped = [=](T v) { return flagged(v) || !(level >= static_cast<double>(v)); };
        if (!dropped(greatest)) return body(at_most<T>{greatest});
        if (dropped(least)) return body(nothing<T>);
        return body(at_most<T>{static_cast<T>(least_that<T>(dropped) - 1)});
    } else {
        // Of a level that is no number of the type the flags take the one that it is rounded to. Above the level
        // the next number is that one itself; below it comes after all that are at or below the level.
        if (side >= 0) return with_widened_level_test<T>(level, side, body);
        return body(less_than<T>{static_cast<T>(level)});
    }
}

template <int naxes> struct cut_result {
    edge_nodes nodes;
    lattice_cut_sink<naxes> made = {};
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
    using cases = typename lattice_cut_sink<naxes>::cases;
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

template <typename T, int naxes> lattice_end cut_typed(const cut_request &asked, cut_result<naxes> *out)
{
    const mesh_info *mesh = asked.mesh;
    out->made.asked = &asked;
    out->made.element_bytes = sizeof(T);
    const equal_to<T> null = {null_value_of<T>(asked.null_flag, asked.null_value)};
    return with_kept_test<T>(asked.level, asked.side, [&](auto kept) {
        return with_tested_flags(
            static_cast<const T *>(asked.data), mesh->nnodes, asked.null_flag != 0, null,
            [&](const flag_source &flags) {
                return walk_lattice(mesh->dims, flags, lattice_checks::every_eighth_slab, &out->nodes,
                                    &out->made);
            },
            kept);
    });
}

} // namespace

template <int naxes>
static int cut_lattice(const cut_request &asked, qx_long *nold, qx_long **old_nodes, qx_long *nnodes_out,
                       qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                       qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    *nold = *nnodes_out = 0;
    *old_nodes = *min_node = *max_node = nullptr;
    for (int list = 0; list < CUT_LISTS; ++list) {
        cut_ncells[list] = cut_nconn[list] = 0;
        cut_conn[list] = nullptr;
        if (asked.mapped) {
            cell_map_count[list] = 0;
            cell_map[list] = nullptr;
        }
    }

    cut_result<naxes> out;
    scratch memory;
    const qx_long nretained =
        UTILnnode_thresh_struct(naxes, asked.mesh->dims, asked.data, asked.data_type, asked.null_flag,
                                asked.null_value, asked.level, asked.side);
    lattice_end end = lattice_end::no_node_memory;
    if (out.made.open_retained(asked.mesh->dims, nretained, &memory) && open_cut(&out, asked.mapped))
        end = with_dtype_or(
            asked.data_type, [] { return lattice_end::no_node_memory; }, // reported by the count
            [&](auto type) { return cut_typed<typename decltype(type)::type>(asked, &out); });
    if (end != lattice_end::done) {
        release_cut(&out);
        if (end == lattice_end::no_map_memory) report_error("UTILcut", "realloc for cell list failed");
        return 0;
    }

    *nold = out.made.nold;
    *old_nodes = out.made.old_nodes;
    *nnodes_out = out.nodes.min_node.used;
    *min_node = out.nodes.min_node.data;
    *max_node = out.nodes.max_node.data;
    using cases = typename lattice_cut_sink<naxes>::cases;
    for (int list = 0; list < CUT_LISTS; ++list) {
        made_cells none;
        none.map = out.no_cells[list];
        made_cells &cells = list == cases::whole_list   ? out.made.whole
                            : list == cases::piece_list ? out.made.pieces
                                                        : none;
        cut_ncells[list] = cells.connect.used / cut_list_nnodes[list];
        cut_nconn[list] = cells.connect.used;
        if (cells.connect.used == 0) release_list(&cells.connect, ALLOC_AT("cut_stct"));
        cut_conn[list] = cells.connect.data;
        if (asked.mapped) {
            cell_map_count[list] = cells.map.used;
            cell_map[list] = cells.map.data;
        }
    }
    return 1;
}

int UTILcut_struct_3d(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                      double level, int side, qx_long *nold, qx_long **old_nodes, qx_long *nnodes_out,
                      qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                      qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    if (mesh->ndim != 3) return 0;
    return cut_lattice<3>(
        {mesh, data, data_type, null_flag, null_value, level, side, cell_map_count != nullptr}, nold,
        old_nodes, nnodes_out, min_node, max_node, cut_ncells, cut_conn, cut_nconn, cell_map_count, cell_map);
}

int UTILcut_struct_2d(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                      double level, int side, qx_long *nold, qx_long **old_nodes, qx_long *nnodes_out,
                      qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                      qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    if (mesh->ndim != 2) return 0;
    return cut_lattice<2>(
        {mesh, data, data_type, null_flag, null_value, level, side, cell_map_count != nullptr}, nold,
        old_nodes, nnodes_out, min_node, max_node, cut_ncells, cut_conn, cut_nconn, cell_map_count, cell_map);
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
