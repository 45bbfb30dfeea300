/* Differential operators on node data, and the passing of cell data to nodes.
 *
 *   UTILgrad      gradient of a scalar         3 floats a node
 *   UTILcurl      curl of a vector             3 floats a node
 *   UTILdiv       divergence of a vector       1 float a node
 *   UTILderiv_3d  the derivative matrix at a point of a solid cell, UTILderiv_2d of a surface cell
 *   UTILcell_to_node   cell data as a mean around each node
 *
 * Results are floats, whatever the type of the data (those of UTILcell_to_node have the type of the data), in
 * arrays of the caller. All arguments are borrowed.
 *
 * The operators stand in one form for each mesh kind, reached through the mesh's methods. They do not all give
 * the same on the same nodes:
 *
 *   cell sets     by the shape functions of the cells; the mean of what the cells around a node have there
 *   _struct       by differences of data and of coordinates between neighbouring nodes
 *   _unif, _rect  by differences along the axes
 *
 * Linear fields come out exactly, up to rounding, on cell sets of solid cells and on curvilinear and uniform
 * meshes in two (gradient only) and three dimensions. On rectilinear meshes they do in three dimensions at all
 * nodes but the last ones of axis 0. What is different there, and where hosts rely on results that are not
 * derivatives at all, is said with each form. The skoklana command has derivatives without these differences.
 *
 * veclen, data_type and null_flag as everywhere: see types.h. Where the data may hold null, results are 0
 * around each null node: see UTILderiv_null. */
#ifndef SKOKLANA_DERIV_H
#define SKOKLANA_DERIV_H

#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- whole meshes ------------------------------------------------------------------------------------- *
 *
 * data        nnodes rows of veclen elements of data_type
 * veclen      1 for the gradient, 3 for curl and divergence
 * null_value  one element of data_type
 * out         nnodes rows of 3 floats, of 1 for the divergence
 *
 * Each runs the form bound to the mesh. With none bound it reports "no grad function found", "no curl function
 * found" or "no div function found" under its own name and returns 0. */
int UTILgrad(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
             const void *null_value, float *out);
int UTILcurl(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
             const void *null_value, float *out);
int UTILdiv(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
            const void *null_value, float *out);

/* ---- cell sets ------------------------------------------------------------------------------------------ *
 *
 * A cell's values are differentiated at each of its own nodes. A node gets the plain mean over the cells around
 * it, large or small. Sets are taken as they are, second-order cells by their own shape functions.
 *
 *   solids     the gradient, curl and divergence in space
 *   surfaces   the gradient within the surface, as a vector in space. Curl and divergence are not those of a
 *              vector field on the surface: the divergence is the derivative along the first tangent of the
 *              first nnodes elements of data, taken as a scalar; the curl points along the normal and follows
 *              UTILderiv_2d. Hosts rely on both. Take the gradients of the components instead.
 *   lines      none: the operation ends with "no grad function for cell_ndim=1" (curl, div) under its name, at
 *              the first line cell, whatever other sets there are
 *
 * A corner where a cell has no derivative (its Jacobian's determinant is exactly 0, one of its nodes is null)
 * counts in the mean: with 0 in a gradient, with the row of the corner before it in the curl and the divergence
 * of a solid. Nearly flat cells are taken as they are. A node without cells gets NaN. Sets without shape
 * derivatives (second-order pyramids) give 0.
 *
 * veclen   for the gradient at most 1, for curl and divergence at least 2; else the result is 0 without a
 *          report, and out is as it was. Vectors of two or more than three components are read as rows of
 *          their length, of which the derivatives 1, 2, 3, 5, 6, 7 and 0, 4, 8 make curl and divergence: only
 *          rows of 3 give what the names say
 *
 * Returns 1. 0 where a connect list could not be had ("fld_info", as mesh.h tells), for line cells, and after an
 * interruption; out then holds sums so far. After line cells the status range of the set stays pushed. Where
 * coordinates cannot be had, or the type is unknown, each corner says so (by ERRerror under "fld_info", or
 * by "interpolate: unknown data type" on standard error) and counts with 0.
 *
 * Status checks come before the cells 256, 513, 770, ... of a set, in a range for each set.
 * Memory: an int a node. Time: about nodes a cell squared. */
int UTILgrad_cells(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                   const void *null_value, float *out);
int UTILcurl_cells(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                   const void *null_value, float *out);
int UTILdiv_cells(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                  const void *null_value, float *out);

/* The same at points of one cell.
 *
 * cell_ndim   2: as a surface cell, 3: as a solid; else "no grad function for cell_ndim=1" (curl, div) under
 *             the operation's name, result 0, out as it was
 * cell        number within the mesh
 * uvw         npts parametric positions, rows of 3 floats
 * out         npts rows of 3 floats, of 1 for the divergence
 *
 * Returns 1. A point without derivatives, also of a cell that is not there, gets 0, or the row of the point before
 * it in the curl and divergence of solids. The gradient takes scalars: it has no veclen. */
int UTILgrad_cell(mesh_info *mesh, int cell_ndim, qx_long cell, const void *data, int data_type,
                  int null_flag, const void *null_value, int npts, const float *uvw, float *out);
int UTILcurl_cell(mesh_info *mesh, int cell_ndim, qx_long cell, const void *data, int veclen, int data_type,
                  int null_flag, const void *null_value, int npts, const float *uvw, float *out);
int UTILdiv_cell(mesh_info *mesh, int cell_ndim, qx_long cell, const void *data, int veclen, int data_type,
                 int null_flag, const void *null_value, int npts, const float *uvw, float *out);

/* ---- structured meshes ---------------------------------------------------------------------------------- *
 *
 * Central differences within, one-sided differences of first order at both ends of each axis. The axes of
 * uniform and rectilinear meshes are x, y and z. Axes of two nodes have the same difference at both.
 *
 * Refused, with a report under "UTILgrad", "UTILcurl" or "UTILdiv" and result 0: veclen above 1 for the
 * gradient ("veclen must be 1"), veclen other than 3 for curl and divergence ("veclen must be 3"); fewer axes than
 * 2 for the gradient ("no grad function for ndim=1"), than 3 for the others ("no curl function for ndim=2", "no
 * div function for ndim=2"). Coordinates that cannot be had: "fld_info", as mesh.h tells.
 *
 *   _unif    an axis of one node, or of no length: nothing is written, and the result is 1 all the same
 *   _rect    at the last node of axis 0 the y entry of the table's row before (0 in a table that has only
 *            x there) stands for its x, in the gradient, curl and divergence. In two dimensions the gradient
 *            is the difference of the data times the interval, instead of divided by it. An interval of 0
 *            gives infinity or NaN at that node
 *   _struct  a node whose coordinate differences span no volume (area in two dimensions, where z is not looked
 *            at) has exactly 0. In three dimensions coordinates are rows of 3 floats, whatever nspace
 *
 * On axes of one node the forms _rect and _struct give what happens to stand behind them in memory: not to be
 * used. Progress is told before the positions 7, 15, 23, ... of axis 0. A stop leaves the nodes at earlier
 * positions done; others may be. The result is then 0 of UTILgrad_struct and 1 of the others, for which the null
 * pass goes on; the same holds for an unknown type. Memory: the lengths of the axes. */
int UTILgrad_struct(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                    const void *null_value, float *out);
int UTILgrad_unif(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                  const void *null_value, float *out);
int UTILgrad_rect(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                  const void *null_value, float *out);
int UTILcurl_struct(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                    const void *null_value, float *out);
int UTILcurl_unif(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                  const void *null_value, float *out);
int UTILcurl_rect(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                  const void *null_value, float *out);
int UTILdiv_struct(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                   const void *null_value, float *out);
int UTILdiv_unif(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                 const void *null_value, float *out);
int UTILdiv_rect(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                 const void *null_value, float *out);

/* The kernels of these forms, for arrays without a mesh.
 *
 * dims      nodes along each axis, 2 or 3 entries
 * nspace    floats a row of coords or points: 2 or 3; the forms in three dimensions have rows of 3
 * coords    a row a node
 * points    compact coordinates in the layouts of mesh.h
 * data      one element a node, rows of 3 for curl and divergence
 * out       a row of 3 floats a node, of 1 for the divergence; the third entry is 0 in two dimensions
 *
 * Return 1. 0: an unknown type ("unknown data type" under "UTILgrad", "UTILcurl" or "UTILdiv"), an interruption, a
 * uniform axis of less than two nodes or of no length. Integers are subtracted in 32 bits, qx_long in 64, and
 * wrap round; doubles are subtracted and scaled in double; all else is in float. */
int UTILgrad_struct_2d(const qx_long *dims, int nspace, const float *coords, const void *data, int data_type,
                       float *out);
int UTILgrad_struct_3d(const qx_long *dims, const float *coords, const void *data, int data_type, float *out);
int UTILcurl_struct_3d(const qx_long *dims, const float *coords, const void *data, int data_type, float *out);
int UTILdiv_struct_3d(const qx_long *dims, const float *coords, const void *data, int data_type, float *out);
int UTILgrad_unif_2d(const qx_long *dims, int nspace, const float *points, const void *data, int data_type,
                     float *out);
int UTILgrad_unif_3d(const qx_long *dims, const float *points, const void *data, int data_type, float *out);
int UTILcurl_unif_3d(const qx_long *dims, const float *points, const void *data, int data_type, float *out);
int UTILdiv_unif_3d(const qx_long *dims, const float *points, const void *data, int data_type, float *out);
int UTILgrad_rect_2d(const qx_long *dims, int nspace, const float *points, const void *data, int data_type,
                     float *out);
int UTILgrad_rect_3d(const qx_long *dims, const float *points, const void *data, int data_type, float *out);
int UTILcurl_rect_3d(const qx_long *dims, const float *points, const void *data, int data_type, float *out);
int UTILdiv_rect_3d(const qx_long *dims, const float *points, const void *data, int data_type, float *out);

/* ---- at a point of a cell --------------------------------------------------------------------------------- *
 *
 * The derivative matrix at one parametric position, for any veclen. The dispatchers run the form bound to the
 * mesh; with none bound they print "UTILderiv: no deriv3d function found" or "UTILderiv: no deriv2d function
 * found" on standard error and return 0.
 *
 * cell         number within the mesh; of a structured mesh the number of the cell's lowest node
 * uvw          parametric position, 3 floats
 * out          3 rows of veclen floats: element [r][c] is the derivative of component c along axis r in space. On
 *              a surface 2 rows, along the cell's two tangents, for veclen 1. For any other veclen the surface
 *              form does not give derivatives of components: it multiplies the values, as one row, with the
 *              frame. Callers that want vectors turned ask for one component after the other.
 * frame        out, 3 x 3: its columns are the two unit tangents and the unit normal at the position, so that
 *              a row in these axes times the transposed frame is a vector in space
 * local_xyz    out, the cell's nodes in those axes, a row of 3 floats each
 *
 * Returns 1. 0 without a report, and out not written: no such cell, no data, veclen below 1, no shape
 * derivatives for the kind, a null node (by its first component), a determinant of exactly 0, a cell of more than
 * 85 nodes; with a report by ERRerror where coordinates or connect lists cannot be had, and with "interpolate:
 * unknown data type" on standard error for an unknown type. frame and local_xyz may be written then.
 *
 * Products and inverses are the host's: MATvec_by_mat, MATmat2_inverse, MATmat3_inverse, MATmat3_transpose. */
int UTILderiv_3d(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type, int null_flag,
                 const void *null_value, const float *uvw, float *out);
int UTILderiv_2d(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type, int null_flag,
                 const void *null_value, const float *uvw, float *out, float *frame, float *local_xyz);

int UTILderiv_cell_3d(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                      int null_flag, const void *null_value, const float *uvw, float *out);
int UTILderiv_cell_2d(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                      int null_flag, const void *null_value, const float *uvw, float *out, float *frame,
                      float *local_xyz);

/* For structured meshes: cell 0 of cell_funcs gives the shape derivatives. Of meshes with two axes the solid forms
 * find no volume, and of three axes the surface forms find no cell: the result is 0. */
int UTILderiv_struct_3d(mesh_info *mesh, qx_long node, int veclen, const void *data, int data_type,
                        int null_flag, const void *null_value, const float *uvw, float *out);
int UTILderiv_unif_3d(mesh_info *mesh, qx_long node, int veclen, const void *data, int data_type,
                      int null_flag, const void *null_value, const float *uvw, float *out);
int UTILderiv_rect_3d(mesh_info *mesh, qx_long node, int veclen, const void *data, int data_type,
                      int null_flag, const void *null_value, const float *uvw, float *out);
int UTILderiv_struct_2d(mesh_info *mesh, qx_long node, int veclen, const void *data, int data_type,
                        int null_flag, const void *null_value, const float *uvw, float *out, float *frame,
                        float *local_xyz);
int UTILderiv_unif_2d(mesh_info *mesh, qx_long node, int veclen, const void *data, int data_type,
                      int null_flag, const void *null_value, const float *uvw, float *out, float *frame,
                      float *local_xyz);
int UTILderiv_rect_2d(mesh_info *mesh, qx_long node, int veclen, const void *data, int data_type,
                      int null_flag, const void *null_value, const float *uvw, float *out, float *frame,
                      float *local_xyz);

/* ---- the null pass ---------------------------------------------------------------------------------------- *
 *
 * Sets results to 0 wherever a null value may have entered them. The operators above end with it where null_flag
 * is set.
 *
 *   cell sets     all nodes of every cell that holds a null node
 *   structured    the 3 x 3 x 3 neighbourhood of every null node, within the mesh
 *
 * data         rows of veclen elements; a row is null by its first component
 * out_veclen   floats a row of out
 *
 * Returns 1; 0 after "unknown data type" under "UTILderiv_null" and where a connect list cannot be had; sets before
 * that one are done. A mesh without cell sets has nothing to look at. */
int UTILderiv_null(mesh_info *mesh, const void *data, int veclen, int data_type, const void *null_value,
                   int out_veclen, float *out);
int UTILderiv_null_struct(mesh_info *mesh, const void *data, int veclen, int data_type,
                          const void *null_value, int out_veclen, float *out);

/* ---- cell data at nodes ----------------------------------------------------------------------------------- *
 *
 * Each node gets the mean of the cells around it. Call it once a set, in ascending order: the last call divides.
 * Structured meshes have one set and are done in one call.
 *
 * cell_data      cell_count[set] rows of veclen elements
 * weight_power   0: plain mean; n: cells weigh by 1 / d^n, d the distance of the node from the mean of the cell's
 *                nodes. A cell with d exactly 0 sets the node's weight to 1, while the sum keeps what others
 *                gave
 * out            nnodes rows of veclen elements of data_type; must stay in place between the calls
 * weights_slot, marks_slot
 *                carry a float and a byte a node from one call to the next. Both are made by calloc at set 0,
 *                written at every set but the last, read at every set but the first, and released at the last.
 *                Whoever stops before releases them with free. Not touched by the structured form, nor on a
 *                mesh with one set, where they may be NULL.
 *
 * A node that a null cell touches becomes null, whatever the other cells have; a cell is null by its first
 * component. A node without cells gets 0.
 *
 * The sums stand in out, in its type: those of char, byte, short, int and qx_long wrap round, so that two
 * bytes of 200 have the mean 72. The division, and weighted sums, go through float and are truncated to the
 * type; doubles stay in double. The skoklana command sums in double and rounds.
 *
 * The dispatcher prints "UTILcell_to_node: no function found" on standard error where none is bound. Returns 1;
 * 0 after "unknown data type" under "UTILcell_to_node", and where the connect list, or the coordinates for a
 * weight, cannot be had: the call then has done nothing. */
int UTILcell_to_node(mesh_info *mesh, int set, int data_type, const void *cell_data, int veclen,
                     int null_flag, const void *null_value, int weight_power, void *out, float **weights_slot,
                     unsigned char **marks_slot);
int UTILcell_to_node_cells(mesh_info *mesh, int set, int data_type, const void *cell_data, int veclen,
                           int null_flag, const void *null_value, int weight_power, void *out,
                           float **weights_slot, unsigned char **marks_slot);
int UTILcell_to_node_struct(mesh_info *mesh, int set, int data_type, const void *cell_data, int veclen,
                            int null_flag, const void *null_value, int weight_power, void *out,
                            float **weights_slot, unsigned char **marks_slot);

SKOKLANA_END
#endif
