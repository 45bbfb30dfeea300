/* Particle tracing: one integration step, stream lines, and ribbons along them.
 *
 *     mesh->methods->interp_init_func(mesh, &table);               once a mesh
 *     UTILstream_line(mesh, table, velocity, DTYPE_FLOAT, 3, 0, NULL, 4, 1, 2, 0.0, seed, 1000, &count,
 *                     points, vectors, 1, cells, uvws, speeds, steps, work);
 *     UTILribbon(mesh, count, 3, points, vectors, cells, uvws, speeds, steps, ...);
 *
 * A trace reaches the field through three functions of the mesh's table: find_cell_func, interp_data_func and, for
 * the size of steps, cell_extent_func. So it runs alike on meshes of all kinds, on surfaces and along curves, and
 * on functions of a host's own. Many lines can be traced through one table, and tables are only read.
 *
 * Arguments of several of them:
 *
 * tbl         from the mesh's interp_init_func; NULL for uniform and rectilinear meshes
 * data        nnodes rows of veclen elements of data_type: the vectors. veclen is 1 to 3. Where it is not the
 *             mesh's nspace, the shorter of the two is what moves: coordinates beyond it stay as they were
 * null_value  one element of data_type. A cell with a node whose first component equals it has no values, and
 *             a trace ends there
 *
 * What was to be fetched and can't be is reported as mesh.h tells, an unknown data_type as "unknown data type"
 * under "UTILinterp", and the trace ends. None of these makes status calls: a line takes as long as its steps. */
#ifndef SKOKLANA_TRACE_H
#define SKOKLANA_TRACE_H

#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

/* Takes one step of a given size.
 *
 * cell             the cell that holds x0; not read
 * h                the step, in units of time; negative: against the field
 * order            1 to 4: Euler, Ralston's second-order method, a third-order one, the classical fourth-order one
 * x0               3 floats whatever nspace is, those beyond it 0
 * x1               out, 3 floats: where the step ends. Not x0. Without success: the stage point that failed
 * vel0             veclen floats: the field at x0
 * vel1             out, veclen floats: the blended vector of the step; zeros without success. Not vel0
 * max_speed        what a stage may have, and 1e-6 more: a limit of max_speed + 1e-6, rounded to float
 * speed_out        out: the speed that was above the limit; only written then
 *
 *     order    stage points                                              vel1
 *       1      x0 + h k1 (only looked at, by location and speed)         k1
 *       2      x0 + 0.75 h k1                                            k1 / 3 + 2 k2 / 3
 *       3      x0 + h/2 k1, x0 + 4 h k2 - h k1                           (k1 + 4 k2 + k3) / 6
 *       4      x0 + h/2 k1, x0 + h/2 k2, x0 + h k3                       (k1 + 2 (k2 + k3) + k4) / 6
 *
 * with k1 = vel0 and x1 = x0 + h vel1. The third order goes 4 h along k2 where Kutta's method goes 2 h: its error
 * falls with the step as that of order 1. h/2 and 0.75 h are rounded to float and the points made with them are float
 * sums; all other points and the blends are formed in double and rounded once.
 *
 * Returns 1 for a step taken. The end point is not located, order 1 aside, so it may lie outside the mesh.
 * Returns -1 for a stage above the limit; and what find_cell_func gave, 0 or -1, for one that is not in the mesh.
 * Returns 0 where interp_data_func gave 0, and, with a line on standard error, where the mesh lacks one of the two
 * functions ("UTILfind_cell: unable to find interp_cell function"), where veclen or else nspace is above 3
 * ("UTILintegrate: veclen is greater than 3"), and for any other order ("UTILintegrate: unknown integration
 * order"). vel1 stays as it was in the first three cases.
 *
 * Cost: 1 location and sample in orders 1 and 2, 2 in order 3, 3 in order 4.
 *
 * Literature: Ralston. Runge-Kutta methods with minimum error bounds. Mathematics of Computation 16, 1962. */
int UTILintegrate(mesh_info *mesh, const blk_tbl *tbl, qx_long cell, const void *data, int data_type,
                  int veclen, int null_flag, const void *null_value, double h, int order, const float *x0,
                  float *x1, const float *vel0, float *vel1, float max_speed, float *speed_out);

/* Follows one particle from a seed, and chooses the size of its steps by the cells it comes through.
 *
 * order       as for UTILintegrate
 * direction   1: with the field; -1: against it
 * nseg        steps wanted in a cell, at least 1
 * min_speed   slower than this, and at rest, the line ends
 * start       nspace floats: the seed
 * max_nodes   room in the arrays, which is what ends a line that nothing else ends
 * count       out: the nodes of the line
 * coords      out, max_nodes rows of nspace floats: the line's nodes
 * vecs        out, max_nodes rows of veclen floats: the field there
 * record      0: the next four are not written and may be NULL
 * cells       out, max_nodes entries: the cell that holds the node
 * uvws        out, max_nodes rows of 3 floats: parameters in that cell; what its kind does not use is not of use
 * speeds      out, max_nodes entries: length of the vector
 * steps       out, max_nodes entries: the step chosen at the node, negative against the field. A step that was
 *             shortened after that stands here at its first size: time along the line is not their sum
 * work        out, nspace floats: where the last step went, to go on from after max_nodes; of no use where the
 *             line ended in a failed step
 *
 * In a cell that was entered the step is 0.7 of its shortest side (axes along which its box is flat don't count)
 * over nseg and the speed. In the same cell again, with r the way between the last two nodes in the cell's
 * parameters, times nseg: ten times the last step for r below 0.01, the last step over r below 0.7 and above 2,
 * and else the same again. A stage that meets a speed above that at the node is answered by a shorter step, as
 * for a cell entered at the speed met, which is allowed from then on; the next node goes on from the step that
 * was taken.
 *
 * A line ends where its next node lies in no cell or in one without values, is slower than min_speed or at rest;
 * where a step's stage does so; where 100 attempts at a step were too fast; and at max_nodes, after a last step.
 *
 * Returns 1 however the line ends, also with no node at all. Returns 0, count as it was, with the line
 * "UTILfind_cell: unable to find interp_cell function" on standard error, where the mesh lacks find_cell_func,
 * interp_data_func or cell_extent_func. With veclen or nspace above 3 there is the integrator's line and no node;
 * with an unknown order its line and one node. Allocates nothing.
 *
 * Cost: a location and a sample for each node and each stage. On cell sets and curvilinear meshes the boxes of a
 * block's cells are read once for all that a line does in the block. */
int UTILstream_line(mesh_info *mesh, const blk_tbl *tbl, const void *data, int data_type, int veclen,
                    int null_flag, const void *null_value, int order, int direction, int nseg,
                    double min_speed, const float *start, int max_nodes, int *count, float *coords,
                    float *vecs, int record, qx_long *cells, float *uvws, float *speeds, float *steps,
                    float *work);

/* Makes the second edge of a ribbon along a recorded line: turned by the field's rotation about the line, and
 * widened by what the field spreads across it.
 *
 * npts          nodes of the line, at least 2; no two neighbours in the same place
 * points        2 npts rows of nspace floats: the line, and out: the other edge, a row a node
 * vecs          npts rows of veclen floats
 * cells, uvws, speeds, steps   as UTILstream_line records them, npts entries or rows each
 * fixed_width   0: the width follows the field's divergence; else it stays
 * width         of the ribbon at its start: from the line to the other edge
 * angle         at its start, about the line in radians; from the vector t x (t.y, -t.x, 0) x t across the
 *               tangent t towards (t.y, -t.x, 0). For a line along z that is (-t.z, 0, t.x)
 * width_out     out: the width at the last node
 * angle_out     out: the angle there, with that at the start in it. With both a ribbon goes on in another piece
 *
 * At each node but the first the field's derivatives are taken by the mesh's deriv3d_func, or deriv2d_func where
 * the cells of set 0 are surfaces. The angle grows by half the curl along the line, the width by
 * exp of half the divergence less the change of speed along the line, both by the trapezium rule over steps; the
 * exponent of a step is at most 10. At the start the rate of widening counts as 0, and that of turning as the
 * angle given.
 *
 * The first row stands off by width only where the line sets out in the xy plane or along z, and by less
 * elsewhere: the vectors across it are not brought to unit length there.
 *
 * Returns 1. Returns 0 with nothing written where a derivative can't be had (unless the form says more it is
 * not reported), where the cells of set 0 are lines, for npts below 2, veclen or nspace above 3, and where there
 * is no memory for two floats a node, none of these reported.
 *
 * Literature: Ueng, Sikorski, Ma. Efficient streamline, streamribbon, and streamtube constructions on
 * unstructured grids. IEEE TVCG 2(2), 1996. */
int UTILribbon(mesh_info *mesh, int npts, int nspace, float *points, const float *vecs, const qx_long *cells,
               const float *uvws, const float *speeds, const float *steps, int veclen, const void *data,
               int data_type, int null_flag, const void *null_value, int fixed_width, double width,
               double angle, float *width_out, float *angle_out);

SKOKLANA_END
#endif
