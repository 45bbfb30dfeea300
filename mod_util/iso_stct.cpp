// Isosurface over structured meshes: a sink of the walk over lattices (lattice_walk.hpp). Crossed cells give
// the triangles of their cases, whole cells nothing.
//
// Lorensen and Cline. Marching cubes: a high resolution 3D surface construction algorithm. 1987
#include <skoklana/iso.h>

#include "dtype.hpp"
#include "lattice_cases.hpp"
#include "lattice_walk.hpp"

namespace {

constexpr qx_long first_triangle_entries = 1024;
constexpr qx_long first_surface_nodes = 1000;
// A cell adds at most 5 triangles, 15 entries; all 15 are stored whatever the count.
constexpr qx_long triangle_margin = 25;

struct triangle_sink : lattice_sink<3, 1> {
    made_cells triangles;

    struct tally {
        int ntriangles = 0;
        void add(const lattice_cell<1> &cell) { ntriangles += lattice_cases.row[cell.index[0]].ntriangles; }
    };

    static const edge_order<3> &order(unsigned index) { return lattice_cases.row[index].crossed; }

    lattice_end make_room(const tally &adds, int, double done)
    {
        return make_room_for_cells(&triangles, adds.ntriangles, 3, triangle_margin, done);
    }

    struct writer {
        qx_long *entry, *map;
        qx_long first_cell;

        FORCE_INLINE void take(const lattice_cell<1> &cell, const piece_edges<3, 1> &edges, node_writer *)
        {
            const lattice_case &row = lattice_cases.row[cell.index[0]];
            const qx_long i = cell.i;
            const int nentries = 3 * row.ntriangles;
            for (int t = 0; t < 6; ++t)
                entry[t] = edges.slot[0][row.triangles[t]][i];
            if (nentries > 6)
                for (int t = 6; t < 15; ++t)
                    entry[t] = edges.slot[0][row.triangles[t]][i];
            entry += nentries;
            if (map != nullptr)
                for (int t = 0; t < row.ntriangles; ++t)
                    *map++ = first_cell + i;
        }
    };

    writer begin(const piece_place &place)
    {
        const made_cells &out = triangles;
        return {out.connect.data + out.connect.used,
                out.map.data != nullptr ? out.map.data + out.map.used : nullptr, place.cell};
    }

    void end(const writer &, const tally &added)
    {
        triangles.connect.used += 3 * static_cast<qx_long>(added.ntriangles);
        triangles.map.used += added.ntriangles;
    }
};

struct surface {
    edge_nodes nodes;
    triangle_sink made;
};

void release_surface(surface *out)
{
    release_nodes(&out->nodes);
    release_cells(&out->made.triangles);
}

bool open_surface(surface *out, bool mapped)
{
    if (open_cells(&out->made.triangles, first_triangle_entries, mapped) &&
        open_nodes(&out->nodes, first_surface_nodes))
        return true;
    release_surface(out);
    return false;
}

} // namespace

template <typename T>
static int slice_str(const mesh_info *mesh, const T *data, int null_flag, T null_value, double level,
                     qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *ntri,
                     qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map)
{
    if (mesh->ndim != 3) return 0;
    surface out;
    if (!open_surface(&out, cell_map_count != nullptr)) return 0;
    const lattice_end end = with_level_flags(
        data, mesh->nnodes, level, null_flag, null_value, [mesh, &out](const flag_source &flags) {
            return walk_lattice(mesh->dims, flags, lattice_checks::every_eighth_slab, &out.nodes, &out.made);
        });
    if (end != lattice_end::done) {
        release_surface(&out);
        if (end == lattice_end::interrupted) return -1;
        if (end == lattice_end::no_map_memory) report_error("UTILslice", "realloc for cell list failed");
        if (end == lattice_end::no_connect_memory)
            report_error("slice_struct", "realloc for connect list failed");
        return 0;
    }
    const made_cells &triangles = out.made.triangles;
    *nnodes_out = out.nodes.min_node.used;
    *min_node = out.nodes.min_node.data;
    *max_node = out.nodes.max_node.data;
    *ntri_conn = triangles.connect.used;
    *ntri = triangles.connect.used / 3;
    *tri_conn = triangles.connect.data;
    if (cell_map_count != nullptr) {
        *cell_map_count = triangles.map.used;
        *cell_map = triangles.map.data;
    }
    interrupted(100);
    return 1;
}

int UTILslice_struct(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                     double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node,
                     qx_long *nline, qx_long **line_conn, qx_long *nline_conn, qx_long *ntri,
                     qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map)
{
    *nnodes_out = *nline = *nline_conn = *ntri = *ntri_conn = 0;
    *min_node = *max_node = *line_conn = *tri_conn = nullptr;
    if (cell_map_count != nullptr) {
        *cell_map_count = 0;
        *cell_map = nullptr;
    }
    if (mesh->ndim < 2) return 0;
    if (mesh->ndim == 2)
        return UTILisoline_struct(mesh, data, data_type, null_flag, null_value, level, nnodes_out, min_node,
                                  max_node, nline, line_conn, nline_conn, cell_map_count, cell_map);
    return with_dtype_silent(data_type, [=](auto type) {
        using T = typename decltype(type)::type;
        return slice_str(mesh, static_cast<const T *>(data), null_flag,
                         null_value_of<T>(null_flag, null_value), level, nnodes_out, min_node, max_node, ntri,
                         tri_conn, ntri_conn, cell_map_count, cell_map);
    });
}
