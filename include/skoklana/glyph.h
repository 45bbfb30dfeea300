/* Glyphs: copies of a small template at the nodes of a mesh, turned, sized and valued by the nodes' data.
 *
 *     const int axes[3] = {1, 1, 1};
 *     UTILglyph_func(mesh, DTYPE_FLOAT, 3, velocity, 0, NULL, 3, 3, velocity, velocity, 1, 0, 0, 0.1, axes, NULL,
 *                    31, 3, arrow, NULL, 3, coords, speeds);
 *
 * Each node of the mesh, in the order of their numbers, gives glyph_nnodes rows of output, whatever its data, so
 * the connectivity of the copies is the template's, shifted by glyph_nnodes from copy to copy. */
#ifndef SKOKLANA_GLYPH_H
#define SKOKLANA_GLYPH_H

#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

/* Places the copies.
 *
 * data_type        of data, null_value, scale_data, map_data and out_data
 * veclen           components of data, 1 to 3
 * data             nnodes rows: the vector or scalar of each node
 * null_value       one element. A node is null where all of its components equal it
 * scale_veclen     components of scale_data, 1 to 3
 * map_veclen       components of map_data, 1 to 3
 * scale_data       nnodes rows: where a glyph's size comes from; may be data itself
 * map_data         nnodes rows: where out_data comes from; may be data itself
 * orient_flag      not 0: the template's x axis is turned to the vector, for veclen 2 and 3
 * component_flag   not 0: each axis is scaled by the vector's own component along it
 * normalize_flag   not 0: the vector's length does not count
 * scale            factor of all sizes
 * scale_axes       3 flags: the axes that are scaled; others keep the template's size
 * node_xform       4 x 4, as MATvec3_mat4_multiply takes it: applied to the mesh's nodes; NULL: none
 * glyph_nnodes     nodes of the template
 * glyph_nspace     coordinates of a template node, 1 to 3; missing ones are 0
 * glyph_coords     glyph_nnodes rows
 * glyph_xform      4 x 4: applied to the template's nodes; NULL: none
 * out_nspace       coordinates of an output row, 1 to 3
 * out_coords       nnodes * glyph_nnodes rows of floats, the template's node fastest
 * out_data         an element a row, in the same order
 *
 * A template node is taken through glyph_xform, turned, scaled and moved to the mesh's node, in this order: as
 * scaling follows turning, scale_axes and component_flag speak of the axes of the mesh. Let the magnitude be the
 * length of the vector, for scalars their absolute value. Then
 *
 *   null nodes        all rows stand at the node, their values are the first component of the map_data row
 *   magnitude below   all rows stand at the node, unless normalize_flag is set; their values are as below, but a
 *     1e-24           scalar of map_data comes out as its absolute value
 *   size              normalize_flag: scale; scale_data is data: the magnitude times scale, with the sign of a
 *                     scalar, which turns the glyph over; a separate scalar: the element times scale, negative
 *                     too; a separate vector: its length times scale
 *   by component      each component times scale; with normalize_flag each divided by the magnitude first. A
 *                     vector below 1e-24 counts as (1, 0, 0) then
 *   turning           rows u, w, t of the rotation: u the vector over its magnitude, w = u x z over its length
 *                     (u x y where u is along z), t = u x w. Below 1e-24 nothing is turned. With component_flag
 *                     and normalize_flag both set the vector is divided by the magnitude twice, and u, with it
 *                     the glyph along the vector, is not of unit length
 *   values            map_data is data: the magnitude, with the sign of a scalar; a separate scalar: the element
 *                     as it stands; a separate vector: its length
 *
 * Elements are read as floats, lengths are float sums of squares under a double root. So a scalar of data that is
 * passed as map_data too keeps 24 bits; in an array of its own it keeps all. Values that are computed are truncated
 * for the integer types, for those below 32 bits by way of 64.
 *
 * The form bound to the mesh is run; with none bound the line "UTILglyph_func: no glyph function found" goes to
 * standard error, and the result is 0. UTILglyph is the form for cell sets and curvilinear meshes, the others
 * are those for their kinds.
 *
 * Returns 1. Returns 0 for an unknown type, with "unknown data type" under the form's name; where coordinates or
 * points can't be fetched, reported as mesh.h tells; and where the user interrupts, which is asked for at every
 * 257th node: the rows of the nodes before are written then. Allocates nothing. Cost: the writing of the output. */
int UTILglyph_func(mesh_info *mesh, int data_type, int veclen, const void *data, int null_flag,
                   const void *null_value, int scale_veclen, int map_veclen, const void *scale_data,
                   const void *map_data, int orient_flag, int component_flag, int normalize_flag,
                   double scale, const int *scale_axes, const float *node_xform, qx_long glyph_nnodes,
                   int glyph_nspace, const float *glyph_coords, const float *glyph_xform, int out_nspace,
                   float *out_coords, void *out_data);
int UTILglyph(mesh_info *mesh, int data_type, int veclen, const void *data, int null_flag,
              const void *null_value, int scale_veclen, int map_veclen, const void *scale_data,
              const void *map_data, int orient_flag, int component_flag, int normalize_flag, double scale,
              const int *scale_axes, const float *node_xform, qx_long glyph_nnodes, int glyph_nspace,
              const float *glyph_coords, const float *glyph_xform, int out_nspace, float *out_coords,
              void *out_data);
int UTILglyph_unif(mesh_info *mesh, int data_type, int veclen, const void *data, int null_flag,
                   const void *null_value, int scale_veclen, int map_veclen, const void *scale_data,
                   const void *map_data, int orient_flag, int component_flag, int normalize_flag,
                   double scale, const int *scale_axes, const float *node_xform, qx_long glyph_nnodes,
                   int glyph_nspace, const float *glyph_coords, const float *glyph_xform, int out_nspace,
                   float *out_coords, void *out_data);
int UTILglyph_rect(mesh_info *mesh, int data_type, int veclen, const void *data, int null_flag,
                   const void *null_value, int scale_veclen, int map_veclen, const void *scale_data,
                   const void *map_data, int orient_flag, int component_flag, int normalize_flag,
                   double scale, const int *scale_axes, const float *node_xform, qx_long glyph_nnodes,
                   int glyph_nspace, const float *glyph_coords, const float *glyph_xform, int out_nspace,
                   float *out_coords, void *out_data);

SKOKLANA_END
#endif
