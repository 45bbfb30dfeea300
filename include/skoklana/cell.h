/* Inside one cell: shape functions, Jacobians, the way back from space to parameters, values between nodes,
 * and the cutting of second-order cells into first-order ones.
 *
 * Kinds. A cell has a kind and an order, which its functions carry in their names: line_1 is the line of
 * first order, hex_2 the hexahedron of second order. The prism is called pent in the shape functions and the
 * reverse mapping.
 *
 *   kind      nodes, order 1 and 2   parameters
 *   line        2     3              u in [-1, 1]
 *   tri         3     6              u, v in [0, 1], u + v <= 1
 *   quad        4     8              u, v in [-1, 1]
 *   tet         4    10              u, v, w in [0, 1], u + v + w <= 1
 *   pyr         5   (13)             u, v, w in [-1, 1]; no shape functions in second order
 *   prism       6    15              u, v as of tri, w in [-1, 1]
 *   hex         8    20              u, v, w in [-1, 1]
 *
 * Node order. Where each node stands is tabulated in skoklana/cell_nodes.h. That order holds for connect
 * lists, coordinates, shape values and derivatives alike. Note that hexahedra start at the corner
 * (-1, 1, 1), that simplices end at the parametric origin, that pyramids start at the apex.
 *
 * Arrays. coords is always n rows of x, y, z, also of a mesh with less than three coordinates a node: pad
 * them with 0. uvw holds as many floats as the cell has dimensions, unless a function says otherwise. All
 * arguments are borrowed. Nothing is allocated but the lists of the tesselation, which are handed over.
 *
 * Threads. The functions that take no mesh may be called from any thread.
 *
 * Zienkiewicz, Taylor. The Finite Element Method, volume 1: shape functions of the serendipity and simplex
 * families, their derivatives and the parametric mapping. */
#ifndef SKOKLANA_CELL_H
#define SKOKLANA_CELL_H

#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

/* Types of the functions in a cell_methods row: slots 0, 1, 2 and 8. */
typedef void (*shape_func)(const float *uvw, float *n);
typedef void (*shape_deriv_func)(const float *uvw, float *d);
typedef int (*rev_par_func)(const float *coords, const float *point, float *uvw);
typedef int (*tesselate_func)(qx_long ncells, const qx_long *connect, qx_long *new_ncells,
                              qx_long **new_connect, int *new_nnodes);

/* ---- shape functions ------------------------------------------------------------------------------- *
 *
 * The weight of each node at a parametric position: 1 at the node's own, 0 at the others'. A value or
 * coordinate at uvw is the sum of n[k] times that of node k.
 *
 * n   out, a float a node
 *
 * The weights sum to 1, at positions outside the cell too: the polynomials go on. The second-order prism is
 * the exception. Its node 7 carries the weight of node 6, so that the two are both 1 at node 6 and both 0 at
 * node 7, the sum is not 1 (0.748 at (0.2, 0.3, 0.4), for example), and a position formed with the weights
 * moves with the origin of the coordinates.
 *
 * The pyramid is a product form. Its base nodes have weight 0 all over w = 1, whatever u and v.
 *
 * Computed in double and rounded once. */
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

/* The derivatives of the shape functions along the parameters.
 *
 * d   out, a row for each parameter, a float a node in each: d[axis * nnodes + node]
 *
 * Each row sums to 0, those of the second-order prism included: its node 7 has the derivatives of
 * 2 v (1 - u - v) (1 + w) here, not those of the weight that UTILsh_func_pent_2 gives it. The
 * derivatives of line_1, tri_1 and tet_1 are constant, and uvw is not read. */
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

/* ---- Jacobians --------------------------------------------------------------------------------------- *
 *
 * The Jacobian is deriv times coords: a row for each parameter, the tangent along it in space.
 *
 * n        nodes of the cell
 * deriv    1, 2 or 3 rows of n floats, the shape derivatives at one position
 * coords   n rows of x, y, z
 *
 * All in float, products and inverses by the host's matrix services. Nothing is reported. */

/* The length, area or volume that a unit of the parameters covers: the length of the tangent, the length of
 * the cross product of two tangents, the determinant of three, negative in a cell given inside out. */
float UTILjacobian_1d_det(int n, const float *deriv, const float *coords);
float UTILjacobian_2d_det(int n, const float *deriv, const float *coords);
float UTILjacobian_3d_det(int n, const float *deriv, const float *coords);

/* The inverse Jacobian of a curve in axes of its own: the tangent, and two normals.
 *
 * inv     out, 1 float: 1 over the length of the tangent
 * frame   out, 3 x 3, the local axes as columns: a row vector times frame is in local axes
 * local   out, n x 3, the nodes in local axes
 *
 * Returns the length of the tangent. Where it is 0, nothing is written. */
float UTILjacobian_1d_inv(int n, const float *deriv, const float *coords, float *inv, float *frame,
                          float *local);

/* The inverse Jacobian of a surface in axes of its own: the tangent along u, the in-plane direction across
 * it, and the normal.
 *
 * inv     out, 2 x 2, the inverse of the Jacobian within the tangent plane
 * frame   out, 3 x 3, the local axes as columns; axes shorter than 1e-5 keep their length
 * local   out, n x 3, the nodes in local axes
 *
 * Returns the determinant, as the host's inverse does. Where it is 0, frame and local are written and inv
 * holds what the host's inverse leaves there. */
float UTILjacobian_2d_inv(int n, const float *deriv, const float *coords, float *inv, float *frame,
                          float *local);

/* The inverse Jacobian of a solid.
 *
 * inv   out, 3 x 3
 *
 * Returns the determinant, as the host's inverse does, negative in a cell given inside out. Where it is 0,
 * inv holds what the host's inverse leaves there. */
float UTILjacobian_3d_inv(int n, const float *deriv, const float *coords, float *inv);

/* ---- reverse mapping --------------------------------------------------------------------------------- *
 *
 * The parametric position of a point in space, and whether it lies in the cell.
 *
 * coords   the cell's nodes, rows of x, y, z
 * point    x, y, z
 * uvw      out, as many floats as the cell has dimensions
 *
 * Returns  1   the point lies in the cell, or beyond its boundary by up to 0.05 in its parameters; uvw is not
 *              clamped. In surfaces and curves the point lies within 0.05 of the cell along each normal, a
 *              distance in coordinates whatever the size of the cell
 *          0   it lies outside; uvw holds the last estimate, of which a caller can make nothing
 *         -1   the cell is degenerate at the estimate that uvw holds: no extent, or folded over
 *
 * A NaN point or cell gives 0 or -1. Nothing is reported.
 *
 * Precision. Newton's iteration from the middle of the cell, 20 steps at most. It ends, without taking the
 * step, where no parameter would change by 0.05: enough to tell the cell and to interpolate in it, no more.
 * In cells that are not far from parallelepipeds the error is far below that, as the steps shrink
 * quadratically. Cells given inside out are mapped like others.
 *
 * What to expect of particular kinds:
 *
 *   line_1   by distances: a point counts if its distances from the two ends sum to at most 1.05 lengths,
 *            and lies beyond an end by up to 2.5 percent, so. u is 2 s - 1, s the relative distance from
 *            node 0, and so never below -1. A line without length gives -1 with uvw as it was
 *   tri_1    by areas, tet_1 by volumes, exact within float rounding. A point off the triangle's plane is
 *            outside where its areas come out too large; a cell without area or volume gives 0. Parameters
 *            after the first one out of range stay 0
 *   quad     gives 0 without a step where the point is farther off the plane than 0.001 of the determinant
 *   pent_2   the mapping leans on weights that do not sum to 1, so that away from the origin of coordinates
 *            it finds few points. Its tesselation has no such trouble */
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

/* ---- values in a cell ---------------------------------------------------------------------------------- *
 *
 * Values between the nodes of one cell, by its shape function.
 *
 * veclen       components a row
 * data         rows of veclen elements of data_type, by node
 * data_type    DTYPE_CHAR to DTYPE_QX_LONG
 * null_flag    non-zero: a cell with a null node has no value
 * null_value   one element of data_type; component 0 of a node is compared with it, and no other
 * npts         parametric positions; below 1: nothing is written
 * uvw          npts rows of 3 floats, whatever the dimension of the cell
 * out          npts rows of veclen floats, whatever the type of data
 *
 * Returns 1. Returns 0
 *   where a node of the cell is null; row 0 of out then holds the null value, as float, in every component,
 *   and further rows are as they were;
 *   for a cell that is not there, data NULL, veclen 0 or no shape function, with out as it was;
 *   for an unknown type, reported as "unknown data type" under "UTILinterp";
 *   for a connect list that cannot be had, reported under "fld_info". */

/* In a cell of a cell set; cell is its number within the mesh. */
int UTILinterp_cell_val(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                        int null_flag, const void *null_value, int npts, const float *uvw, float *out);
/* In a cell of a structured mesh of any kind; cell is the number of its lowest node. The parameters are those
 * of a line, quadrilateral or hexahedron whose first edge runs against axis 0, as point location gives
 * them. Along an axis of one node both sides of the cell are that node. */
int UTILinterp_cell_val_struct(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                               int null_flag, const void *null_value, int npts, const float *uvw, float *out);
/* In a cell given by its nodes and shape function; nnodes up to 256, above that it gives 0. */
int UTILtesselate_cell_val(const qx_long *nodes, int nnodes, shape_func shape, int veclen, const void *data,
                           int data_type, int null_flag, const void *null_value, int npts, const float *uvw,
                           float *out);

/* ---- tesselation ----------------------------------------------------------------------------------------- *
 *
 * Cuts second-order cells into first-order cells over the same nodes.
 *
 *   line    2 lines               tet       8 tetrahedra
 *   tri     4 triangles           pyr      13 tetrahedra
 *   quad    6 triangles           prism    16 tetrahedra
 *                                 hex      22 tetrahedra
 *
 * ncells        cells; 0 makes an empty list
 * connect       ncells rows of node numbers, of the second order's length
 * new_ncells    out, ncells times the pieces of a cell; the pieces of a cell stand together, in the order
 *               of the cells
 * new_connect   out, handed over; new_ncells rows of new_nnodes node numbers
 * new_nnodes    out, 2, 3 or 4
 *
 * Returns 1; 0 where there is no memory, with new_connect NULL and the two counts as they would be. A list
 * too long to be addressed counts as one without memory, with new_ncells 0.
 *
 * The pieces of a cell with straight edges fill it, each point once, and are the same way round as the cell.
 * The prism's do so where node 12 stands on the edge of corners 0 and 3 and node 13 on that of corners 1 and
 * 4. The shape functions have these two nodes the other way about. A prism numbered for them gets pieces 4, 5,
 * 12 and 14 (from 0) inside out, some overlapping and some leaving room between them; their volumes still
 * sum to that of the cell. Exchange nodes 12 and 13 of each row before the call to have it filled.
 *
 * Faces with four corners are cut in a way that depends on the kind and place of the face, so pieces of
 * neighbouring solids need not meet edge to edge within such a face. */
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
