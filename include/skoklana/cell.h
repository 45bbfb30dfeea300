/* Cell mathematics: shape functions, Jacobians, reverse mapping, values in a cell, tesselation. */
#ifndef SKOKLANA_CELL_H
#define SKOKLANA_CELL_H

#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

typedef void (*shape_func)(const float *uvw, float *n);
typedef void (*shape_deriv_func)(const float *uvw, float *d);
typedef int (*rev_par_func)(const float *coords, const float *point, float *uvw);
typedef int (*tesselate_func)(qx_long ncells, const qx_long *connect, qx_long *new_ncells,
                              qx_long **new_connect, int *new_nnodes);

void UTILsh_func_line_1(const float *uvw, float *n);
void UTILsh_func_line_2(const float *uvw, float *n);
void UTILsh_func_tri_1(const float *uvw, float *n);
void UTILsh_func_tri_2(const float *uvw, float *n);
void UTILsh_func_quad_1(const float *uvw, float *n);
void UTILsh_func_quad_2(const float *uvw, float *n);
void UTILsh_func_hex_1(const float *uvw, float *n);
void UTILsh_func_hex_2(const float *uvw, float *n);
void UTILsh_func_tet_1(const float *uvw, float *n);
void UTILsh_func_tet_2(const float *uvw, float *n);
void UTILsh_func_pent_1(const float *uvw, float *n);
void UTILsh_func_pent_2(const float *uvw, float *n);
void UTILsh_func_pyr_1(const float *uvw, float *n);
void UTILsh_deriv_line_1(const float *uvw, float *d);
void UTILsh_deriv_line_2(const float *uvw, float *d);
void UTILsh_deriv_tri_1(const float *uvw, float *d);
void UTILsh_deriv_tri_2(const float *uvw, float *d);
void UTILsh_deriv_quad_1(const float *uvw, float *d);
void UTILsh_deriv_quad_2(const float *uvw, float *d);
void UTILsh_deriv_hex_1(const float *uvw, float *d);
void UTILsh_deriv_hex_2(const float *uvw, float *d);
void UTILsh_deriv_tet_1(const float *uvw, float *d);
void UTILsh_deriv_tet_2(const float *uvw, float *d);
void UTILsh_deriv_pent_1(const float *uvw, float *d);
void UTILsh_deriv_pent_2(const float *uvw, float *d);
void UTILsh_deriv_pyr_1(const float *uvw, float *d);

float UTILjacobian_1d_det(int n, const float *deriv, const float *coords);
float UTILjacobian_2d_det(int n, const float *deriv, const float *coords);
float UTILjacobian_3d_det(int n, const float *deriv, const float *coords);
float UTILjacobian_1d_inv(int n, const float *deriv, const float *coords, float *inv, float *frame,
                          float *local);
float UTILjacobian_2d_inv(int n, const float *deriv, const float *coords, float *inv, float *frame,
                          float *local);
float UTILjacobian_3d_inv(int n, const float *deriv, const float *coords, float *inv);
int UTILrev_par_line_1(const float *coords, const float *point, float *uvw);
int UTILrev_par_line_2(const float *coords, const float *point, float *uvw);
int UTILrev_par_tri_1(const float *coords, const float *point, float *uvw);
int UTILrev_par_tri_2(const float *coords, const float *point, float *uvw);
int UTILrev_par_quad_1(const float *coords, const float *point, float *uvw);
int UTILrev_par_quad_2(const float *coords, const float *point, float *uvw);
int UTILrev_par_hex_1(const float *coords, const float *point, float *uvw);
int UTILrev_par_hex_2(const float *coords, const float *point, float *uvw);
int UTILrev_par_tet_1(const float *coords, const float *point, float *uvw);
int UTILrev_par_tet_2(const float *coords, const float *point, float *uvw);
int UTILrev_par_pent_1(const float *coords, const float *point, float *uvw);
int UTILrev_par_pent_2(const float *coords, const float *point, float *uvw);
int UTILrev_par_pyr_1(const float *coords, const float *point, float *uvw);

int UTILinterp_cell_val(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                        int null_flag, const void *null_value, int npts, const float *uvw, float *out);
int UTILinterp_cell_val_struct(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                               int null_flag, const void *null_value, int npts, const float *uvw, float *out);
int UTILtesselate_cell_val(const qx_long *nodes, int nnodes, shape_func shape, int veclen, const void *data,
                           int data_type, int null_flag, const void *null_value, int npts, const float *uvw,
                           float *out);
int UTILtesselate_line_2(qx_long ncells, const qx_long *connect, qx_long *new_ncells, qx_long **new_connect,
                         int *new_nnodes);
int UTILtesselate_tri_2(qx_long ncells, const qx_long *connect, qx_long *new_ncells, qx_long **new_connect,
                        int *new_nnodes);
int UTILtesselate_quad_2(qx_long ncells, const qx_long *connect, qx_long *new_ncells, qx_long **new_connect,
                         int *new_nnodes);
int UTILtesselate_hex_2(qx_long ncells, const qx_long *connect, qx_long *new_ncells, qx_long **new_connect,
                        int *new_nnodes);
int UTILtesselate_tet_2(qx_long ncells, const qx_long *connect, qx_long *new_ncells, qx_long **new_connect,
                        int *new_nnodes);
int UTILtesselate_prism_2(qx_long ncells, const qx_long *connect, qx_long *new_ncells, qx_long **new_connect,
                          int *new_nnodes);
int UTILtesselate_pyr_2(qx_long ncells, const qx_long *connect, qx_long *new_ncells, qx_long **new_connect,
                        int *new_nnodes);

SKOKLANA_END
#endif
