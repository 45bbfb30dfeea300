/* Parts of a mesh: cuts, contour bands, node thresholds, removal of null nodes. */
#ifndef SKOKLANA_CUT_H
#define SKOKLANA_CUT_H

#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

int UTILcut(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
            double level, int side, qx_long *nold, qx_long **node_map, qx_long *nnodes_out,
            qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
            qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);
int UTILcontour(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                double low_level, double high_level, qx_long *nold, qx_long **node_map, qx_long *nnodes_out,
                qx_long **min_node, qx_long **max_node, unsigned char **level_list, qx_long *cont_ncells,
                qx_long **cont_conn, qx_long *cont_nconn, int nspace, float **coords, qx_long *nlow_lines,
                qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines);

/* ---- data of a band's new nodes --------------------------------------------------------------------- */

/* Carries node data, or coordinates, onto the new nodes of a contour band: along the edge of each to where
 * the contoured variable takes the new node's level.
 *
 * nnodes            nodes of the mesh
 * n_new             new nodes to work on
 * first             number of the first of them: entry first of the next three is row 0 of out
 * contour_type      element type of contour_data
 * contour_data      the contoured variable, one element a node of the mesh
 * level_lo          the band's levels, as the band was made with
 * level_hi
 * edge_a, edge_b    ends of each new node's edge, from entry 0: a node of the mesh below nnodes; nnodes + m
 *                   is new node m, whose own ends must be nodes of the mesh. At most one end of an edge may
 *                   be new. A negative end: the row of out stays as it was
 * level_sel         0: the new node is at level_lo; otherwise: at level_hi
 * veclen            elements a row of data and of out
 * data_type         element type of data, out and the null value
 * null_flag         not 0: elements of data equal to *null_value, one element, are null
 * data_offset       elements by which data begins behind the row of node 0; element k of node n is
 *                   data[n * veclen + k - data_offset]
 * data              rows of the nodes of the mesh. The pointer contour_data itself: the contoured variable is
 *                   carried, and out gets one element a new node, its level, whatever veclen is, also where
 *                   an end is negative
 * out               n_new rows
 *
 * With c for the contoured variable and L for the level, the row is row(a) + (row(b) - row(a)) * t with t =
 * (L - c(a)) / (c(b) - c(a)), row(a) as it stands where c is the same at both ends. A new node at an end of
 * the edge counts with its own level for c and with its own row, which is not rounded in between; t is then 0
 * where the two values are equal. All arithmetic is in double. Results of integer types are truncated towards
 * zero; outside the type's range they are any value.
 *
 * A component is null where it is null at either end; a row that is copied stays as it is. A new node at an
 * end makes no null of its own: where one of its components comes out null, the null value goes on as a
 * number.
 *
 * Returns 1; for an unknown type, of the two the contoured variable's first, reports "unknown data type" and
 * returns 0. Allocates nothing, checks no status; any thread may call it on arrays of its own. */
int UTILeval_contour(qx_long nnodes, qx_long n_new, qx_long first, int contour_type, const void *contour_data,
                     double level_lo, double level_hi, const qx_long *edge_a, const qx_long *edge_b,
                     const unsigned char *level_sel, int veclen, int data_type, int null_flag,
                     const void *null_value, qx_long data_offset, const void *data, void *out);

/* ---- node thresholds ------------------------------------------------------------------------------- *
 *
 * Which nodes survive a test of their values, and their new numbers. Survivors are numbered from 0 in node
 * order; a node map holds the new number of each node, -1 for the others.
 *
 * data         one element of data_type a node
 * null_flag    not 0: nodes whose value equals the null value do not survive; null_value points to one
 *              element
 * level        in double, as given: values are widened to double and compared there
 * direction    negative: values up to the level survive, level >= value; 0 and positive: those from the level
 *              on, value >= level. A value at the level survives either way
 * map          out, an entry a node
 *
 * Each returns the count of survivors. NaN survives no level and no range, and passes the null test. An
 * unknown type reports "unknown data type" under the function's own name and gives 0, nothing written.
 * Nothing is allocated, no status is checked, and any thread may call them on arrays of its own. */

/* By a level. */
qx_long UTILnode_thresh(qx_long nnodes, int data_type, const void *data, int null_flag,
                        const void *null_value, double level, int direction, qx_long *map);
/* By a range, both ends included: lo <= value <= hi. The bounds are brought into the data's type first:
 * truncated for integers, to 32 bits for char, byte, short and int, of which the narrow types take the low
 * bits, and to 64 bits for qx_long; rounded to single precision for float. With lo above hi none survives. */
qx_long UTILnode_thresh2(qx_long nnodes, int data_type, const void *data, int null_flag,
                         const void *null_value, double lo, double hi, qx_long *map);
/* By a level, the count alone: over dims[0] * ... * dims[ndim - 1] nodes. */
qx_long UTILnnode_thresh_struct(int ndim, const qx_long *dims, const void *data, int data_type, int null_flag,
                                const void *null_value, double level, int direction);
/* By a level, for sweeps that take a mesh plane by plane and go on counting.
 *
 * nnodes   nodes of this plane; data is the plane's own
 * base     number of the plane's first node within the mesh
 * count    in and out: survivors of all planes so far
 * list     in and out: the survivors' node numbers, base + place in the plane, from list[*count] on; has room
 *          for as many as survive
 * map      in and out, an entry a node of the plane: a survivor's new number; other entries stay as they were
 *
 * Returns the survivors of this plane. */
qx_long UTILnode_thresh_struct(qx_long nnodes, const void *data, int data_type, int null_flag,
                               const void *null_value, double level, int direction, qx_long base,
                               qx_long *count, qx_long *list, qx_long *map);
/* By the null test alone: a node survives if its value differs from *null_value. */
qx_long UTILnode_thresh_null(qx_long nnodes, int data_type, const void *data, const void *null_value,
                             qx_long *map);

/* ---- removal of null nodes and null cells ---------------------------------------------------------- *
 *
 * What a mesh is without the nodes, or without the cells, whose value is null: explicit connect lists.
 *
 * data                one element of data_type a node, or a cell
 * null_value          one element of data_type
 * nkept               out: nodes that are left
 * ncells              out: cells that are left
 * conn, conn_size     out: their connect rows, one after another, and the entries in use. Handed over, though
 *                     longer than that; NULL and 0 where no cell is left
 *
 * Each returns 1. On failure it returns 0, outputs are 0 and NULL and nothing is left behind. What failed
 * stands on the standard error stream, in a line that begins with the function's name
 * ("UTILthresh_null_struct: cannot allocate node indx array"), but for a connect list that cannot be
 * fetched, which is reported through ERRerror as for every mesh operation, and an unknown type: "unknown
 * data type" under "UTILthresh_null_struct" by UTILthresh_null_struct, under "UTILnode_thresh_null" by the
 * others, as that makes their test. None of them checks the status. */

/* Removes null nodes, by the form bound to the mesh, which gets all arguments and a 0 behind them. With none
 * bound: a line on standard error, 0.
 *
 * map            the fifth output of the form: the node map of cell sets, the node list of structured meshes
 * out0 to out3   the outputs behind it: cell_list, ncells, conn and conn_size of UTILthresh_null_cells;
 *                conn, ncells and conn_size of UTILthresh_null_struct, with anything for out3 */
int UTILthresh_null(mesh_info *mesh, const void *data, int data_type, const void *null_value, qx_long *nkept,
                    qx_long **map, void *out0, void *out1, void *out2, void *out3);
/* Removes null nodes from cell sets, with all cells that use one.
 *
 * map         out: the new number of each node, -1 if it is removed. Handed over
 * cell_list   out, an entry a set: the numbers within the set of the cells that are left. Handed over; NULL
 *             where none is
 * ncells, conn, conn_size   out, an entry a set. Connect rows hold new node numbers
 *
 * Connect lists are fetched as their sets are reached: a failure in a late set leaves the earlier ones
 * fetched. */
int UTILthresh_null_cells(mesh_info *mesh, const void *data, int data_type, const void *null_value,
                          qx_long *nkept, qx_long **map, qx_long **cell_list, qx_long *ncells, qx_long **conn,
                          qx_long *conn_size);
/* Removes null nodes from a structured mesh, which becomes a list of lines, quadrilaterals or hexahedra.
 *
 * node_list   out, nkept entries: the nodes that are left, in order, by their old numbers. Handed over; NULL
 *             where none is
 * conn        rows of 2, 4 or 8 new node numbers. With lowest node b and d0, d1 nodes along the first axes a
 *             hexahedron is b, b + d0, b + d0 + 1, b + 1, then the same four plus d0 * d1; a quadrilateral is
 *             b, b + 1, b + 1 + d0, b + d0, another sense
 *
 * Cells come in the order of their lowest nodes. An ndim other than 1, 2 and 3 is a failure. */
int UTILthresh_null_struct(mesh_info *mesh, const void *data, int data_type, const void *null_value,
                           qx_long *nkept, qx_long **node_list, qx_long **conn, qx_long *ncells,
                           qx_long *conn_size);
/* The cells of one set that have lost no node by a map: the step of UTILthresh_null_cells for a set.
 *
 * nkept       not read
 * map         an entry a node of the mesh: its new number, below 0 if it is removed
 * cell_list   out, as an entry of that of UTILthresh_null_cells */
int UTILcells_from_nlist(mesh_info *mesh, int set, qx_long nkept, const qx_long *map, qx_long **cell_list,
                         qx_long *ncells, qx_long **conn, qx_long *conn_size);
/* Removes null cells. Nodes stay, under their old numbers.
 *
 * set    for cell sets (ndim 0): the set whose cells data are for. Ignored for structured meshes
 * data   one element a cell, those of a structured mesh in the order of their lowest nodes
 * conn   rows as they stand in the set; for structured meshes in the corner order of
 *        UTILthresh_null_struct */
int UTILthresh_null_from_cells(mesh_info *mesh, int set, const void *data, int data_type,
                               const void *null_value, qx_long *ncells, qx_long **conn, qx_long *conn_size);

SKOKLANA_END
#endif
