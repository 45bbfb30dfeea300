/* Differential operators and the passing of cell data to nodes. */
#ifndef SKOKLANA_DERIV_H
#define SKOKLANA_DERIV_H

#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

/* Each runs the form bound to the mesh with the same arguments. With none bound it reports, by ERRerror
 * for the gradient, curl and divergence and by a line on standard error for the others, and returns 0. */

/* Gradient and curl: nnodes rows of 3 floats; divergence: nnodes floats.
 *
 * data   nnodes rows of veclen elements of data_type */
int UTILgrad(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
             const void *null_value, float *out);
int UTILcurl(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
             const void *null_value, float *out);
int UTILdiv(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
            const void *null_value, float *out);

/* The derivative matrix at one parametric position of one cell.
 *
 * uvw         parametric position
 * out         3 rows of veclen floats: element [r][c] is the derivative of component c along axis r; for
 *             the surface form 2 rows in the cell's tangent frame
 * frame       3 x 3, columns the unit tangents and the unit normal
 * local_xyz   the cell's nodes in that frame, rows of 3 floats */
int UTILderiv_3d(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type, int null_flag,
                 const void *null_value, const float *uvw, float *out);
int UTILderiv_2d(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type, int null_flag,
                 const void *null_value, const float *uvw, float *out, float *frame, float *local_xyz);

/* Cell data of one set carried to the nodes; called once a set, in ascending order.
 *
 * cell_data      cell_count[set] rows of veclen elements
 * weight_power   0: plain mean; n: cells weigh by 1 / distance^n
 * out            nnodes rows of veclen elements of data_type
 * weights_slot, marks_slot   carry the accumulators from one call to the next */
int UTILcell_to_node(mesh_info *mesh, int set, int data_type, const void *cell_data, int veclen,
                     int null_flag, const void *null_value, int weight_power, void *out, float **weights_slot,
                     unsigned char **marks_slot);

SKOKLANA_END
#endif
