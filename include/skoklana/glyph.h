/* Glyphs at the nodes of a mesh. */
#ifndef SKOKLANA_GLYPH_H
#define SKOKLANA_GLYPH_H

#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

/* Places a copy of a small template geometry at each node of the mesh, by the form bound to the mesh.
 * With none bound: a line on standard error, 0.
 *
 * data          nnodes rows of veclen elements of data_type: the vector or scalar of each node
 * scale_data    nnodes rows of scale_veclen elements: the source of size; may be data itself
 * map_data      nnodes rows of map_veclen elements: the source of out_data; may be data itself
 * scale_axes    3 flags: the axes that scale
 * node_xform, glyph_xform   4 x 4 matrices or NULL
 * glyph_coords  glyph_nnodes rows of glyph_nspace floats
 * out_coords    nnodes * glyph_nnodes rows of out_nspace floats, the template's node fastest
 * out_data      an element a row, in the same order */
int UTILglyph_func(mesh_info *mesh, int data_type, int veclen, const void *data, int null_flag,
                   const void *null_value, int scale_veclen, int map_veclen, const void *scale_data,
                   const void *map_data, int orient_flag, int component_flag, int normalize_flag,
                   double scale, const int *scale_axes, const float *node_xform, qx_long glyph_nnodes,
                   int glyph_nspace, const float *glyph_coords, const float *glyph_xform, int out_nspace,
                   float *out_coords, void *out_data);

SKOKLANA_END
#endif
