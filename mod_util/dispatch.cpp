// One call site for all mesh kinds: each operation runs the function that the host has bound to its slot.
//
// An empty slot means that the mesh kind has no such operation. That is a failure, reported in one of two
// ways: through the host's error service or as a line on the standard error stream. Which way, and under
// which name, differs from operation to operation; hosts filter by these texts, so they stay as they are.

#include <skoklana/cut.h>
#include <skoklana/deriv.h>
#include <skoklana/glyph.h>
#include <skoklana/iso.h>
#include <skoklana/mesh.h>

#include "report.hpp"

template <typename Func> static Func in_slot(const mesh_info *mesh, Func mesh_methods::*slot)
{
    return mesh->methods != nullptr ? mesh->methods->*slot : nullptr;
}

// Runs func; where there is none, reports through the host's error service.
template <typename Func, typename... Args>
static auto run_or_report(Func func, const char *module, const char *message, Args... args)
    -> decltype(func(args...))
{
    if (func != nullptr) return func(args...);
    report_error(module, message);
    return 0;
}

// Runs func; where there is none, prints a line on the standard error stream.
template <typename Func, typename... Args>
static auto run_or_print(Func func, const char *line, Args... args) -> decltype(func(args...))
{
    if (func != nullptr) return func(args...);
    print_error("%s\n", line);
    return 0;
}

int UTILget_coord_list(mesh_info *mesh, qx_long count, const qx_long *list, float *out)
{
    return run_or_print(in_slot(mesh, &mesh_methods::coord_list_func),
                        "UTILcoord_list_func: no coord_list function found", mesh, count, list, out);
}

qx_long UTILget_data_list(mesh_info *mesh, int data_type, int veclen, const void *data, qx_long count,
                          const qx_long *list, void *out)
{
    return run_or_print(in_slot(mesh, &mesh_methods::data_list_func),
                        "UTILdata_list_func: no data_list function found", mesh, data_type, veclen, data,
                        count, list, out);
}

int UTILisosurf(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                qx_long **line_conn, qx_long *nline_conn, qx_long *ntri, qx_long **tri_conn,
                qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map)
{
    return run_or_report(in_slot(mesh, &mesh_methods::isosurf_func), "UTILisosurf_func",
                         "No isosurf function found", mesh, data, data_type, null_flag, null_value, level,
                         nnodes_out, min_node, max_node, nline, line_conn, nline_conn, ntri, tri_conn,
                         ntri_conn, cell_map_count, cell_map);
}

int UTILisoline(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                qx_long **line_conn, qx_long *nline_conn, qx_long *cell_map_count, qx_long **cell_map)
{
    return run_or_report(in_slot(mesh, &mesh_methods::isoline_func), "UTILisoline",
                         "no isoline function found", mesh, data, data_type, null_flag, null_value, level,
                         nnodes_out, min_node, max_node, nline, line_conn, nline_conn, cell_map_count,
                         cell_map);
}

int UTILcut(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
            double level, int side, qx_long *nold, qx_long **node_map, qx_long *nnodes_out,
            qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
            qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map)
{
    return run_or_report(in_slot(mesh, &mesh_methods::cut_func), "UTILcut", "no cut function found", mesh,
                         data, data_type, null_flag, null_value, level, side, nold, node_map, nnodes_out,
                         min_node, max_node, cut_ncells, cut_conn, cut_nconn, cell_map_count, cell_map);
}

int UTILeval_coord(mesh_info *mesh, qx_long count, const qx_long *list_a, const qx_long *list_b,
                   const float *t, float *out)
{
    return run_or_print(in_slot(mesh, &mesh_methods::eval_coord_func),
                        "UTILeval_coord_func: no eval_coord function found", mesh, count, list_a, list_b, t,
                        out);
}

int UTILglyph_func(mesh_info *mesh, int data_type, int veclen, const void *data, int null_flag,
                   const void *null_value, int scale_veclen, int map_veclen, const void *scale_data,
                   const void *map_data, int orient_flag, int component_flag, int normalize_flag,
                   double scale, const int *scale_axes, const float *node_xform, qx_long glyph_nnodes,
                   int glyph_nspace, const float *glyph_coords, const float *glyph_xform, int out_nspace,
                   float *out_coords, void *out_data)
{
    return run_or_print(in_slot(mesh, &mesh_methods::glyph_func), "UTILglyph_func: no glyph function found",
                        mesh, data_type, veclen, data, null_flag, null_value, scale_veclen, map_veclen,
                        scale_data, map_data, orient_flag, component_flag, normalize_flag, scale, scale_axes,
                        node_xform, glyph_nnodes, glyph_nspace, glyph_coords, glyph_xform, out_nspace,
                        out_coords, out_data);
}

// The forms take one argument more than callers give, always 0.
int UTILthresh_null(mesh_info *mesh, const void *data, int data_type, const void *null_value, qx_long *nkept,
                    qx_long **map, void *out0, void *out1, void *out2, void *out3)
{
    return run_or_print(in_slot(mesh, &mesh_methods::thresh_null_func),
                        "UTILthresh_null: no thresh_null function found", mesh, data, data_type, null_value,
                        nkept, map, out0, out1, out2, out3, 0);
}

// The forms work on dims and points alone and get no mesh.
int UTILrslice(mesh_info *mesh, const qx_long *dims, const float *points, const float *normal,
               double distance, qx_long *out_dims, float *out_points, int out_nspace, float *xform,
               qx_long **lo_node, qx_long **hi_node, float **weight, unsigned char **valid)
{
    return static_cast<int>(run_or_print(
        in_slot(mesh, &mesh_methods::rslice_func), "UTILrslice_func: no rslice function found", dims, points,
        normal, distance, out_dims, out_points, out_nspace, xform, lo_node, hi_node, weight, valid));
}

int UTILgrad(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
             const void *null_value, float *out)
{
    return run_or_report(in_slot(mesh, &mesh_methods::grad_func), "UTILgrad", "no grad function found", mesh,
                         data, veclen, data_type, null_flag, null_value, out);
}

int UTILcurl(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
             const void *null_value, float *out)
{
    return run_or_report(in_slot(mesh, &mesh_methods::curl_func), "UTILcurl", "no curl function found", mesh,
                         data, veclen, data_type, null_flag, null_value, out);
}

int UTILdiv(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
            const void *null_value, float *out)
{
    return run_or_report(in_slot(mesh, &mesh_methods::div_func), "UTILdiv", "no div function found", mesh,
                         data, veclen, data_type, null_flag, null_value, out);
}

int UTILderiv_3d(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type, int null_flag,
                 const void *null_value, const float *uvw, float *out)
{
    return run_or_print(in_slot(mesh, &mesh_methods::deriv3d_func), "UTILderiv: no deriv3d function found",
                        mesh, cell, veclen, data, data_type, null_flag, null_value, uvw, out);
}

int UTILderiv_2d(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type, int null_flag,
                 const void *null_value, const float *uvw, float *out, float *frame, float *local_xyz)
{
    return run_or_print(in_slot(mesh, &mesh_methods::deriv2d_func), "UTILderiv: no deriv2d function found",
                        mesh, cell, veclen, data, data_type, null_flag, null_value, uvw, out, frame,
                        local_xyz);
}

int UTILcontour(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                double low_level, double high_level, qx_long *nold, qx_long **node_map, qx_long *nnodes_out,
                qx_long **min_node, qx_long **max_node, unsigned char **level_list, qx_long *cont_ncells,
                qx_long **cont_conn, qx_long *cont_nconn, int nspace, float **coords, qx_long *nlow_lines,
                qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines)
{
    return run_or_report(in_slot(mesh, &mesh_methods::contour_func), "UTILcontour",
                         "no contour function found", mesh, data, data_type, null_flag, null_value, low_level,
                         high_level, nold, node_map, nnodes_out, min_node, max_node, level_list, cont_ncells,
                         cont_conn, cont_nconn, nspace, coords, nlow_lines, low_lines, nhigh_lines,
                         high_lines);
}

int UTILcell_to_node(mesh_info *mesh, int set, int data_type, const void *cell_data, int veclen,
                     int null_flag, const void *null_value, int weight_power, void *out, float **weights_slot,
                     unsigned char **marks_slot)
{
    return run_or_print(in_slot(mesh, &mesh_methods::cell_to_node_func),
                        "UTILcell_to_node: no function found", mesh, set, data_type, cell_data, veclen,
                        null_flag, null_value, weight_power, out, weights_slot, marks_slot);
}
