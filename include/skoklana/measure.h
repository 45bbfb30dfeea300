/* Measures of meshes, and polynomial fits.
 *
 * A mesh belongs to one thread at a time, as its lazy fields may be filled; the fits may be called from any
 * thread. */
#ifndef SKOKLANA_MEASURE_H
#define SKOKLANA_MEASURE_H

#include <skoklana/mesh.h>

SKOKLANA_BEGIN

/* ---- length, area, volume -------------------------------------------------------------------------- */

/* Sums the measure of the cells of one dimension, and the integral of a scalar over them.
 *
 * ndim            1: length, 2: area, 3: volume; cells of other dimensions are passed over
 * data            a scalar a node, or NULL
 * dtype           its type; not looked at where data is NULL, nor are the two below
 * null_flag       not 0: a cell with a node that equals the null value adds nothing, neither to the integral nor
 *                 to the measure
 * null_value      one element of the data's type
 * out_vol         out: the measure
 * out_integral    out: the integral; 0 where data is NULL
 *
 * By the rule bound in the vol_integr slot of each set. Sets without one add nothing: those of pyramids and of
 * second-order cells. All is in single precision, summed cell by cell and set by set, so that large meshes lose
 * digits. Inverted cells count as positive. Structured meshes are measured through their one cell set.
 *
 * Returns 1, whatever fails: a cell whose coordinates or connect list cannot be had adds 0 and reports it, one
 * by one, and so does an unknown type, each time with the line "UTILvol_integr: unknown data type" on standard
 * error. No progress is reported. */
int UTILvol_integr(mesh_info *mesh, int ndim, const void *data, int dtype, int null_flag,
                   const void *null_value, float *out_vol, float *out_integral);

/* One cell, as a set's vol_integr slot has it.
 *
 * set, cell                   the set, and the cell's number within it
 * out_vol, out_integral       out: the cell's own
 *
 * Quadrature in parametric coordinates: one point in a triangle and in a tetrahedron, two along each axis of a
 * quadrilateral and of a hexahedron, two along w at three places each of a prism. A line is sampled twice at
 * its middle. Shape functions and their derivatives are those of the set's row, determinants those of
 * UTILjacobian_1d_det to UTILjacobian_3d_det by the set's dimension; of any other dimension the measure is 0.
 *
 * Returns 1, also for a cell with a null node, whose results are 0; 0 after a failed fetch, with the results as
 * they were, and with results of 0 for an unknown type, an empty slot of shape functions or want of memory. */
int UTILvol_integr_cell_line(mesh_info *mesh, int set, qx_long cell, const void *data, int dtype,
                             int null_flag, const void *null_value, float *out_vol, float *out_integral);
int UTILvol_integr_cell_tri(mesh_info *mesh, int set, qx_long cell, const void *data, int dtype,
                            int null_flag, const void *null_value, float *out_vol, float *out_integral);
int UTILvol_integr_cell_quad(mesh_info *mesh, int set, qx_long cell, const void *data, int dtype,
                             int null_flag, const void *null_value, float *out_vol, float *out_integral);
int UTILvol_integr_cell_hex(mesh_info *mesh, int set, qx_long cell, const void *data, int dtype,
                            int null_flag, const void *null_value, float *out_vol, float *out_integral);
int UTILvol_integr_cell_tet(mesh_info *mesh, int set, qx_long cell, const void *data, int dtype,
                            int null_flag, const void *null_value, float *out_vol, float *out_integral);
int UTILvol_integr_cell_prism(mesh_info *mesh, int set, qx_long cell, const void *data, int dtype,
                              int null_flag, const void *null_value, float *out_vol, float *out_integral);

/* ---- polynomials in one variable ------------------------------------------------------------------- *
 *
 * A polynomial is its ncoef coefficients, the constant term first. */

/* Values of a polynomial, by Horner's rule in double.
 *
 * ncoef   coefficients; below 1 the polynomial is 0
 * x       npts abscissae
 * out     out, npts elements of dtype: truncated towards zero for integer types, of which char, byte and short
 *         take the low bits, so that 300.7 is 44 as a byte
 *
 * Returns 1; 0 for an unknown type, reported as "unknown data type". */
int UTILeval_polynom(int ncoef, const double *coefs, qx_long npts, const float *x, void *out, int dtype);

/* Fits a polynomial to samples by the normal equations.
 *
 * x       npts abscissae; used unscaled, so they had better lie between -1 and 1
 * y       npts ordinates of dtype
 * ncoef   coefficients, 1 and up
 * coefs   out, ncoef entries
 *
 * Beware: coefs[i] is solution[perm[i]] of UTILgauss_solve, whose solution[i] belongs to unknown perm[i]. Where
 * perm is not its own inverse the coefficients come out in a wrong order: never with one or two, but with three
 * and more it depends on the abscissae. The cubic on x = 1 to 8 is such a case: for 1 + 2 x + 3 x^2 + 4 x^3 it
 * gives 2, 1, 4, 3. Whoever wants the polynomial builds the normal equations, calls UTILgauss_solve and sets
 * coefs[perm[i]] = solution[i].
 *
 * Returns 1; 0, with coefs as they were, where a pivot falls below 1e-9, such as with fewer distinct abscissae
 * than coefficients; 0 for an unknown type, reported as "unknown data type". */
int UTILleast_squares(qx_long npts, const float *x, int dtype, const void *y, int ncoef, double *coefs);

/* Solves n linear equations by Gaussian elimination; the unknowns come out reordered.
 *
 * a      n columns of n entries: a[j * n + i] is the factor of unknown j in equation i; destroyed
 * b      right-hand sides; destroyed
 * perm   out, n entries: x[i] is the value of unknown perm[i]
 * x      out, n entries
 * eps    the least magnitude of a pivot; that of the last one must exceed it
 *
 * Returns 1; 0 for a singular matrix by that test, and for n below 1: x is as it was then, the other arrays
 * hold what the elimination left. */
int UTILgauss_solve(double *a, double *b, qx_long *perm, double *x, int n, double eps);

/* ---- height grids reduced to triangles ---------------------------------------------------------------- */

/* Replaces a uniform grid of heights by fewer triangles, over some of its nodes, within a tolerance.
 *
 * dims          2 entries: nodes along each axis, 2 and up
 * nspace        2 or 3: coordinates a point
 * points        2 rows of nspace floats: first and last node
 * data          heights, dims[0] * dims[1] elements of dtype, the first axis fastest
 * tolerance     in units of the data
 * out_ncoords   out: vertices
 * out_coords    out: nspace floats a vertex; handed over. Heights are no part of them: z is 0
 * out_ntris     out: triangles
 * out_connect   out: 3 vertex numbers a triangle, anticlockwise where both axes run forward; handed over
 * out_data      out: the height of each vertex, an element of dtype; handed over
 *
 * The four corners stay. A vertex on the edge of a triangle that was made before it has the height of that edge,
 * brought to the data's type, so that the surface has no cracks; all others have the data of their node.
 *
 * What the tolerance means: each triangle that passes has it along its edges, at nodes of those along the grid and
 * between two rows at each column that a slanted one crosses, and in its rows of nodes but the last. Rows are held
 * against a line whose ends are exact only where the edges cross the row at nodes, and rows with one node, and so all
 * thin triangles, are not looked at. Triangles by which the last corners of a polygon are filled are not held against
 * anything, and may lie upon others. So the error at a node can be above the tolerance, and a surface that fits may be
 * turned down: a flat grid of another height than 0 need not come down to two triangles, unless dims[0] - 1 is a
 * multiple of dims[1] - 1. Whoever must keep a bound measures the result. With NaN in the data, and with a tolerance
 * below 0 or NaN, nothing passes.
 *
 * Returns 1; 0, with the outputs as they were and without a report, where there is no memory, for an unknown type, and
 * for dims and nspace out of range. Progress is not told and the work is not interrupted. Arrays are released with
 * ARRfree_f or plain free.
 *
 * The order of vertices is that in which they came in, the boundary from the first node on anticlockwise at first.
 * Cost: some microseconds a triangle, and the nodes.
 *
 * Meisters. Polygons have ears. American Mathematical Monthly, 1975 */
int UTILoptimize_surface(const qx_long *dims, int nspace, const float *points, int dtype, const void *data,
                         double tolerance, qx_long *out_ncoords, float **out_coords, qx_long *out_ntris,
                         qx_long **out_connect, void **out_data);

SKOKLANA_END
#endif
