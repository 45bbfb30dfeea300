// Isosurfaces over cell sets.
//
// Volume cells give triangles by the isosurface cases, through one kernel for all four kinds. Surface cells
// in the same mesh give lines, by the isoline kernels, over the same new nodes.
#include "cell_set.hpp"
#include "surface_rules.hpp"

namespace {

using surface_rules = surface_rules_of<host_numbers, true>;

constexpr kernel_manners slice_manners = {"UTILslice", "UTILslice", true};

} // namespace

static set_kernel slice_kernel(const mesh_info *mesh, int set)
{
    switch (mesh->cell_ndim[set]) {
    case 3: return {set_function<slice_cell_func>(mesh, set, SLOT_SLICE, SLOT_SUB_SLICE), true, nullptr};
    case 2: return {set_function<slice_cell_func>(mesh, set, SLOT_ISOLINE, SLOT_SUB_ISOLINE), false, nullptr};
    default: return {nullptr, false, nullptr};
    }
}

int UTILslice_cells(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                    double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                    qx_long **line_conn, qx_long *nline_conn, qx_long *ntri, qx_long **tri_conn,
                    qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map)
{
    const extract_rules rules = {"UTILslice", 1024, true, slice_kernel, 0};
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

#define EXPORT_KERNEL(kind)                                                                                \
    qx_long UTILslice_##kind(mesh_info *mesh, int set, int null_flag, unsigned char *flags,                \
                             edge_table *table, qx_long **connect, qx_long *used, qx_long *capacity,       \
                             qx_long **cell_map)                                                           \
    {                                                                                                      \
        return run_kernel(extract_range<kind##_cases, surface_rules>, slice_manners, mesh, set, null_flag, \
                          flags, table, {connect, used, capacity, cell_map});                              \
    }
EXPORT_KERNEL(hex)
EXPORT_KERNEL(prism)
EXPORT_KERNEL(pyr)
EXPORT_KERNEL(tet)
