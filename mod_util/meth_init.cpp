// The table by which a host binds mesh operations and cell functions: names to look up, and what they mean.
//
// Hosts number the rows, so their order is fixed. First the mesh operations, for each in turn the plain
// form, then _struct, _unif and _rect (rslice_func has the last two only):
//
//     interp_init_func, find_cell_func, interp_cell_func, interp_data_func, cell_extent_func,
//     coord_list_func, data_list_func, isosurf_func, isoline_func, rslice_func, cut_func, contour_func,
//     grad_func, curl_func, div_func, deriv3d_func, deriv2d_func, thresh_null_func, eval_coord_func,
//     glyph_func, curl_func and div_func once more, cell_to_node_func
//
// Then the cell functions, kind by kind, first order before second: line, tri, quad, hex, tet, prism, pyr.
// Within a kind: shape_func, shape_deriv, rev_par, slice_cell (three dimensions only), cut_cell,
// contour_cell, isoline, vol_integr; in second order shape_func, shape_deriv, rev_par, tesselate.
//
// Several names share a function: what a form reads of a mesh decides, not what the mesh is called.

#include <skoklana/cell.h>
#include <skoklana/cut.h>
#include <skoklana/deriv.h>
#include <skoklana/glyph.h>
#include <skoklana/host/om.h>
#include <skoklana/iso.h>
#include <skoklana/locate.h>
#include <skoklana/measure.h>
#include <skoklana/mesh.h>

// clang-format off
#define ROW(name, function) {reinterpret_cast<void (*)(void)>(function), name}

static const OM_named_func named_functions[] = {
    ROW("interp_init_func",        UTILinterp_init),
    ROW("interp_init_func_struct", UTILinterp_init_struct),
    ROW("interp_init_func_unif",   UTILinterp_init_unif),
    ROW("interp_init_func_rect",   UTILinterp_init_rect),

    ROW("find_cell_func",        UTILfind_cell),
    ROW("find_cell_func_struct", UTILfind_cell),
    ROW("find_cell_func_unif",   UTILfind_cell_unif),
    ROW("find_cell_func_rect",   UTILfind_cell_rect),

    ROW("interp_cell_func",        UTILinterp_cell_uvw),
    ROW("interp_cell_func_struct", UTILinterp_cell_uvw_struct),
    ROW("interp_cell_func_unif",   UTILinterp_cell_uvw_unif),
    ROW("interp_cell_func_rect",   UTILinterp_cell_uvw_rect),

    ROW("interp_data_func",        UTILinterp_cell_val),
    ROW("interp_data_func_struct", UTILinterp_cell_val_struct),
    ROW("interp_data_func_unif",   UTILinterp_cell_val_struct),
    ROW("interp_data_func_rect",   UTILinterp_cell_val_struct),

    ROW("cell_extent_func",        UTILcell_extent),
    ROW("cell_extent_func_struct", UTILcell_extent_struct),
    ROW("cell_extent_func_unif",   UTILcell_extent_unif),
    ROW("cell_extent_func_rect",   UTILcell_extent_rect),

    ROW("coord_list_func",        UTILcoord_list),
    ROW("coord_list_func_struct", UTILcoord_list_struct),
    ROW("coord_list_func_unif",   UTILcoord_list_unif),
    ROW("coord_list_func_rect",   UTILcoord_list_rect),

    ROW("data_list_func",        UTILdata_list),
    ROW("data_list_func_struct", UTILdata_list_struct),
    ROW("data_list_func_unif",   UTILdata_list_struct),
    ROW("data_list_func_rect",   UTILdata_list_struct),

    ROW("isosurf_func",        UTILslice_cells),
    ROW("isosurf_func_struct", UTILslice_struct),
    ROW("isosurf_func_unif",   UTILslice_struct),
    ROW("isosurf_func_rect",   UTILslice_struct),

    ROW("isoline_func",        UTILisoline_cells),
    ROW("isoline_func_struct", UTILisoline_struct),
    ROW("isoline_func_unif",   UTILisoline_struct),
    ROW("isoline_func_rect",   UTILisoline_struct),

    ROW("rslice_func_unif", UTILrslice_unif),
    ROW("rslice_func_rect", UTILrslice_rect),

    ROW("cut_func",        UTILcut_cells),
    ROW("cut_func_struct", UTILcut_struct),
    ROW("cut_func_unif",   UTILcut_struct),
    ROW("cut_func_rect",   UTILcut_struct),

    ROW("contour_func",        UTILcontour_cells),
    ROW("contour_func_struct", UTILcontour_struct),
    ROW("contour_func_unif",   UTILcontour_struct),
    ROW("contour_func_rect",   UTILcontour_struct),

    ROW("grad_func",        UTILgrad_cells),
    ROW("grad_func_struct", UTILgrad_struct),
    ROW("grad_func_unif",   UTILgrad_unif),
    ROW("grad_func_rect",   UTILgrad_rect),

    ROW("curl_func",        UTILcurl_cells),
    ROW("curl_func_struct", UTILcurl_struct),
    ROW("curl_func_unif",   UTILcurl_unif),
    ROW("curl_func_rect",   UTILcurl_rect),

    ROW("div_func",        UTILdiv_cells),
    ROW("div_func_struct", UTILdiv_struct),
    ROW("div_func_unif",   UTILdiv_unif),
    ROW("div_func_rect",   UTILdiv_rect),

    ROW("deriv3d_func",        UTILderiv_cell_3d),
    ROW("deriv3d_func_struct", UTILderiv_struct_3d),
    ROW("deriv3d_func_unif",   UTILderiv_unif_3d),
    ROW("deriv3d_func_rect",   UTILderiv_rect_3d),

    ROW("deriv2d_func",        UTILderiv_cell_2d),
    ROW("deriv2d_func_struct", UTILderiv_struct_2d),
    ROW("deriv2d_func_unif",   UTILderiv_unif_2d),
    ROW("deriv2d_func_rect",   UTILderiv_rect_2d),

    ROW("thresh_null_func",        UTILthresh_null_cells),
    ROW("thresh_null_func_struct", UTILthresh_null_struct),
    ROW("thresh_null_func_unif",   UTILthresh_null_struct),
    ROW("thresh_null_func_rect",   UTILthresh_null_struct),

    ROW("eval_coord_func",        UTILeval_param_coord),
    ROW("eval_coord_func_struct", UTILeval_param_coord),
    ROW("eval_coord_func_unif",   UTILeval_param_coord_unif),
    ROW("eval_coord_func_rect",   UTILeval_param_coord_rect),

    ROW("glyph_func",        UTILglyph),
    ROW("glyph_func_struct", UTILglyph),
    ROW("glyph_func_unif",   UTILglyph_unif),
    ROW("glyph_func_rect",   UTILglyph_rect),

    ROW("curl_func",        UTILcurl_cells),
    ROW("curl_func_struct", UTILcurl_struct),
    ROW("curl_func_unif",   UTILcurl_unif),
    ROW("curl_func_rect",   UTILcurl_rect),

    ROW("div_func",        UTILdiv_cells),
    ROW("div_func_struct", UTILdiv_struct),
    ROW("div_func_unif",   UTILdiv_unif),
    ROW("div_func_rect",   UTILdiv_rect),

    ROW("cell_to_node_func",        UTILcell_to_node_cells),
    ROW("cell_to_node_func_struct", UTILcell_to_node_struct),
    ROW("cell_to_node_func_unif",   UTILcell_to_node_struct),
    ROW("cell_to_node_func_rect",   UTILcell_to_node_struct),

    ROW("shape_func_line_1",  UTILsh_func_line_1),
    ROW("shape_deriv_line_1", UTILsh_deriv_line_1),
    ROW("rev_par_line_1",     UTILrev_par_line_1),
    ROW("cut_cell_line_1",    UTILcut_line),
    ROW("vol_integr_line_1",  UTILvol_integr_cell_line),

    ROW("shape_func_line_2",  UTILsh_func_line_2),
    ROW("shape_deriv_line_2", UTILsh_deriv_line_2),
    ROW("rev_par_line_2",     UTILrev_par_line_2),
    ROW("tesselate_line_2",   UTILtesselate_line_2),

    ROW("shape_func_tri_1",  UTILsh_func_tri_1),
    ROW("shape_deriv_tri_1", UTILsh_deriv_tri_1),
    ROW("rev_par_tri_1",     UTILrev_par_tri_1),
    ROW("cut_cell_tri_1",    UTILcut_tri),
    ROW("contour_cell_tri_1", UTILcontour_tri),
    ROW("isoline_tri_1",     UTILisoline_tri),
    ROW("vol_integr_tri_1",   UTILvol_integr_cell_tri),

    ROW("shape_func_tri_2",  UTILsh_func_tri_2),
    ROW("shape_deriv_tri_2", UTILsh_deriv_tri_2),
    ROW("rev_par_tri_2",     UTILrev_par_tri_2),
    ROW("tesselate_tri_2",   UTILtesselate_tri_2),

    ROW("shape_func_quad_1",  UTILsh_func_quad_1),
    ROW("shape_deriv_quad_1", UTILsh_deriv_quad_1),
    ROW("rev_par_quad_1",     UTILrev_par_quad_1),
    ROW("cut_cell_quad_1",    UTILcut_quad),
    ROW("contour_cell_quad_1", UTILcontour_quad),
    ROW("isoline_quad_1",     UTILisoline_quad),
    ROW("vol_integr_quad_1",  UTILvol_integr_cell_quad),

    ROW("shape_func_quad_2",  UTILsh_func_quad_2),
    ROW("shape_deriv_quad_2", UTILsh_deriv_quad_2),
    ROW("rev_par_quad_2",     UTILrev_par_quad_2),
    ROW("tesselate_quad_2",   UTILtesselate_quad_2),

    ROW("shape_func_hex_1",  UTILsh_func_hex_1),
    ROW("shape_deriv_hex_1", UTILsh_deriv_hex_1),
    ROW("rev_par_hex_1",     UTILrev_par_hex_1),
    ROW("slice_cell_hex_1",  UTILslice_hex),
    ROW("cut_cell_hex_1",    UTILcut_hex),
    ROW("contour_cell_hex_1", UTILcontour_hex),
    ROW("vol_integr_hex_1",   UTILvol_integr_cell_hex),

    ROW("shape_func_hex_2",  UTILsh_func_hex_2),
    ROW("shape_deriv_hex_2", UTILsh_deriv_hex_2),
    ROW("rev_par_hex_2",     UTILrev_par_hex_2),
    ROW("tesselate_hex_2",   UTILtesselate_hex_2),

    ROW("shape_func_tet_1",  UTILsh_func_tet_1),
    ROW("shape_deriv_tet_1", UTILsh_deriv_tet_1),
    ROW("rev_par_tet_1",     UTILrev_par_tet_1),
    ROW("slice_cell_tet_1",  UTILslice_tet),
    ROW("cut_cell_tet_1",    UTILcut_tet),
    ROW("contour_cell_tet_1", UTILcontour_tet),
    ROW("vol_integr_tet_1",   UTILvol_integr_cell_tet),

    ROW("shape_func_tet_2",  UTILsh_func_tet_2),
    ROW("shape_deriv_tet_2", UTILsh_deriv_tet_2),
    ROW("rev_par_tet_2",     UTILrev_par_tet_2),
    ROW("tesselate_tet_2",   UTILtesselate_tet_2),

    ROW("shape_func_prism_1",  UTILsh_func_pent_1),
    ROW("shape_deriv_prism_1", UTILsh_deriv_pent_1),
    ROW("rev_par_prism_1",     UTILrev_par_pent_1),
    ROW("slice_cell_prism_1",  UTILslice_prism),
    ROW("cut_cell_prism_1",    UTILcut_prism),
    ROW("contour_cell_prism_1", UTILcontour_prism),
    ROW("vol_integr_prism_1",  UTILvol_integr_cell_prism),

    ROW("shape_func_prism_2",  UTILsh_func_pent_2),
    ROW("shape_deriv_prism_2", UTILsh_deriv_pent_2),
    ROW("rev_par_prism_2",     UTILrev_par_pent_2),
    ROW("tesselate_prism_2",   UTILtesselate_prism_2),

    ROW("shape_func_pyr_1",  UTILsh_func_pyr_1),
    ROW("shape_deriv_pyr_1", UTILsh_deriv_pyr_1),
    ROW("rev_par_pyr_1",     UTILrev_par_pyr_1),
    ROW("slice_cell_pyr_1",  UTILslice_pyr),
    ROW("cut_cell_pyr_1",    UTILcut_pyr),
    ROW("contour_cell_pyr_1", UTILcontour_pyr),

    ROW("tesselate_pyr_2", UTILtesselate_pyr_2),
};
// clang-format on

int FLD_METHinit(void)
{
    OMadd_named_funcs(named_functions, static_cast<int>(sizeof named_functions / sizeof named_functions[0]));
    return 1;
}
