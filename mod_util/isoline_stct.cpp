// Isolines over structured meshes of two axes: a sink of the walk over lattices (lattice_walk.hpp). Each crossed
// edge of a cell is an entry of a line, in the order in which the edges get their numbers.
#include <skoklana/iso.h>

#include "dtype.hpp"
#include "isoline_cases.hpp"
#include "lattice_walk.hpp"

namespace {

constexpr qx_long first_line_capacity = 1000; // of every list
// A cell makes at most 2 lines, 4 entries.
constexpr qx_long line_margin = 8;

struct lattice_line_table {
    edge_order<2> row[16];
};

// The places of a cell's corners count the bits of a case: corners 0, 1, 3, 2 of the ring.
constexpr lattice_line_table derive_lattice_lines()
{
    lattice_line_table table = {};
    for (int index = 0; index < 16; ++index) {
        const int ring_index = (index & 3) | (index & 4) << 1 | (index & 8) >> 1;
        const isoline_case &from = isoline_quad_table.row[ring_index];
        for (int p = 0; p < from.npoints; ++p)
            table.row[index].append(
                edge_between<2>(place_of_ring_corner(from.left[p]), place_of_ring_corner(from.right[p])));
        table.row[index].rank_own();
    }
    return table;
}

constexpr lattice_line_table lattice_lines = derive_lattice_lines();

struct line_sink : lattice_sink<2, 1> {
    made_cells lines;

    struct tally {
        int nentries = 0;
        void add(const lattice_cell<1> &cell) { nentries += lattice_lines.row[cell.index[0]].nedges; }
    };

    static const edge_order<2> &order(unsigned index) { return lattice_lines.row[index]; }

    lattice_end make_room(const tally &adds, int, double done)
    {
        return make_room_for_cells(&lines, adds.nentries / 2, 2, line_margin, done);
    }

    struct writer {
        qx_long *entry, *map;
        qx_long first_cell;

        FORCE_INLINE void take(const lattice_cell<1> &cell, const piece_edges<2, 1> &edges, node_writer *)
        {
            const edge_order<2> &row = lattice_lines.row[cell.index[0]];
            for (int e = 0; e < row.nedges; ++e)
                *entry++ = edges.slot[0][row.edges[e]][cell.i];
            if (map != nullptr)
                for (int line = 0; line < row.nedges / 2; ++line)
                    *map++ = first_cell + cell.i;
        }
    };

    writer begin(const piece_place &place)
    {
        return {lines.connect.data + lines.connect.used,
                lines.map.data != nullptr ? lines.map.data + lines.map.used : nullptr, place.cell};
    }

    void end(const writer &, const tally &added)
    {
        lines.connect.used += added.nentries;
        lines.map.used += added.nentries / 2;
    }
};

struct line_set {
    edge_nodes nodes;
    line_sink made;
};

void release_lines(line_set *out)
{
    release_nodes(&out->nodes);
    release_cells(&out->made.lines);
}

bool open_lines(line_set *out, bool mapped)
{
    if (open_cells(&out->made.lines, first_line_capacity, mapped) &&
        open_nodes(&out->nodes, first_line_capacity))
        return true;
    release_lines(out);
    return false;
}

} // namespace

template <typename T>
static int isoline_str(const mesh_info *mesh, const T *data, int null_flag, T null_value, double level,
                       qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                       qx_long **line_conn, qx_long *nline_conn, qx_long *cell_map_count, qx_long **cell_map)
{
    line_set out;
    if (!open_lines(&out, cell_map_count != nullptr)) return 0;
    const lattice_end end = with_level_flags(
        data, mesh->nnodes, level, null_flag, null_value, [mesh, &out](const flag_source &flags) {
            return walk_lattice(mesh->dims, flags, lattice_checks::never, &out.nodes, &out.made);
        });
    if (end != lattice_end::done) {
        release_lines(&out);
        if (end == lattice_end::no_map_memory) report_error("UTILisoline", "realloc for cell list failed");
        if (end == lattice_end::no_connect_memory)
            report_error("UTILisoline", "realloc for connect list failed");
        return 0;
    }
    const made_cells &lines = out.made.lines;
    *nnodes_out = out.nodes.min_node.used;
    *min_node = out.nodes.min_node.data;
    *max_node = out.nodes.max_node.data;
    *nline = lines.connect.used / 2;
    *nline_conn = lines.connect.used;
    *line_conn = lines.connect.data;
    if (cell_map_count != nullptr) {
        *cell_map_count = lines.map.used;
        *cell_map = lines.map.data;
    }
    return 1;
}

int UTILisoline_struct(mesh_info *mesh, const void *data, int data_type, int null_flag,
                       const void *null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                       qx_long **max_node, qx_long *nline, qx_long **line_conn, qx_long *nline_conn,
                       qx_long *cell_map_count, qx_long **cell_map)
{
    *nnodes_out = *nline = *nline_conn = 0;
    *min_node = *max_node = *line_conn = nullptr;
    if (cell_map_count != nullptr) {
        *cell_map_count = 0;
        *cell_map = nullptr;
    }
    if (mesh->ndim < 2) return 0;
    return with_dtype_silent(data_type, [=](auto type) {
        using T = typename decltype(type)::type;
        return isoline_str(mesh, static_cast<const T *>(data), null_flag,
                           null_value_of<T>(null_flag, null_value), level, nnodes_out, min_node, max_node,
                           nline, line_conn, nline_conn, cell_map_count, cell_map);
    });
}
