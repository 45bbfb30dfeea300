// Isolines over cell sets.
//
// Triangles and quadrilaterals give lines by the isoline cases, through one kernel for both. The road through
// a mesh is that of the isosurface, with smaller blocks, lists that grow by a constant step, and progress
// told by the blocks of second-order sets alone.
#include "cell_set.hpp"
#include "extract.hpp"
#include "isoline_cases.hpp"

namespace {

struct line_rules {
    using numbers = host_numbers;
    static constexpr qx_long first_capacity = 1000;
    // A quad case makes at most 2 lines, 4 entries.
    static constexpr qx_long margin = 8;
    static constexpr bool raises_step = false;
    static constexpr bool checks_status = false;
    static constexpr int nodes_each = 2;

    static int count(const isoline_case &row) { return row.npoints / 2; }

    static void append(const isoline_case &row, const int *number, qx_long *connect)
    {
        for (int p = 0; p < row.npoints; ++p)
            connect[p] = number[p];
    }
};

constexpr kernel_manners line_manners = {"isoline", "UTILisoline", false};

} // namespace

static set_kernel isoline_kernel(const mesh_info *mesh, int set)
{
    return {set_function<slice_cell_func>(mesh, set, SLOT_ISOLINE, SLOT_SUB_ISOLINE), false, nullptr};
}

int UTILisoline_cells(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                      double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node,
                      qx_long *nline, qx_long **line_conn, qx_long *nline_conn, qx_long *cell_map_count,
                      qx_long **cell_map)
{
    const extract_rules rules = {"UTILisoline", 1000, false, isoline_kernel, 0};
    level_result result;
    const int status = extract_level(
        {mesh, data, data_type, null_flag, null_value, level, cell_map_count, cell_map}, rules, &result);
    *nnodes_out = result.nnodes;
    *min_node = result.min_node;
    *max_node = result.max_node;
    *nline = result.lines.count;
    *line_conn = result.lines.connect;
    *nline_conn = result.lines.used;
    return status;
}

#define EXPORT_KERNEL(kind)                                                                                 \
    qx_long UTILisoline_##kind(mesh_info *mesh, int set, int null_flag, unsigned char *flags,               \
                               edge_table *table, qx_long **connect, qx_long *used, qx_long *capacity,      \
                               qx_long **cell_map)                                                          \
    {                                                                                                       \
        return run_kernel(extract_range<kind##_line_cases, line_rules>, line_manners, mesh, set, null_flag, \
                          flags, table, {connect, used, capacity, cell_map});                               \
    }
EXPORT_KERNEL(tri)
EXPORT_KERNEL(quad)
