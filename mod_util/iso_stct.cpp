// Isosurface over structured meshes: a walk over the whole lattice with the sink of surface_sink.hpp.
//
// Lorensen and Cline. Marching cubes: a high resolution 3D surface construction algorithm. 1987
#include <skoklana/iso.h>

#include "dtype.hpp"
#include "surface_sink.hpp"

namespace {

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
