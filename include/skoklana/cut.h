/* Parts of a mesh: cuts, contour bands, node thresholds, removal of null nodes. */
#ifndef SKOKLANA_CUT_H
#define SKOKLANA_CUT_H

#include <skoklana/containers.h>
#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- cuts --------------------------------------------------------------------------------------------- *
 *
 * A cut keeps the part of a mesh on one side of a level. Cells whose corners are all on that side pass whole;
 * of a cell that the level crosses the kept part is made anew, by the case tables of tables.h: of tetrahedra,
 * triangles or lines, over the corners that are kept and a new node on each edge with an end on either side.
 * What comes out is the topology alone: UTILget_param and UTILeval_coord give the new nodes their places,
 * UTILeval_param other data there, UTILdata_list the data of the nodes that are kept, and the cell maps that of
 * cells.
 *
 * Output nodes are numbered in one sequence: the nodes that are kept, 0 to nold - 1, in the order of the mesh,
 * then the new nodes, nold + e for entry e of min_node and max_node. Output cells come in seven lists:
 *
 *   0 tetrahedra   1 prisms   2 pyramids   3 hexahedra   4 triangles   5 quadrilaterals   6 lines
 *
 * A whole cell goes to the list of its kind, with its corners in their order. Pieces are tetrahedra of volume
 * cells, triangles of surface cells, lines of lines.
 *
 * data           nnodes values of data_type, one a node
 * null_flag      not 0: the data has null values, and null_value points to one element of data_type. A cell
 *                with a null value at any of its nodes is left out; its neighbours are not affected.
 *                0: null_value is not read
 * level          compared with values in double
 * side           0 and above: values at and above the level are kept. Below 0: those below it. A node at the
 *                level is then among the kept nodes too, but no cell refers to it: the edges from it to corners
 *                below have new nodes, though these lie where it does. NaN is kept on neither side
 * nold           out: nodes that are kept
 * nnodes_out     out: new nodes
 * min_node, max_node   out, handed over, nnodes_out entries each: the lower and the upper mesh node of each
 *                new node. Cells that share an edge share its new node, also across sets
 * cut_ncells     out, 7 entries: cells of each list
 * cut_conn       out, 7 entries, handed over: the nodes of each list's cells, by output numbers; NULL where
 *                there are no cells
 * cut_nconn      out, 7 entries: entries in use of each list
 *
 * Both sides together are the mesh for lines, triangles, quadrilaterals and tetrahedra, and for all kinds
 * where the new nodes of a cell lie in one plane, as those of a linear field on straight cells do. Elsewhere
 * the sides of a hexahedron, prism or pyramid may leave a gap or overlap: where corners of a face are kept
 * and not kept in turn, kept corners are held apart on either side, and polygons that are not flat are split
 * by diagonals that need not agree.
 * Neighbours agree on the part of a face that is kept, but not on its diagonals. Pieces may be flat.
 *
 * Lists that are handed over come from ARRalloc_f and go by ARRfree_f or free. */

/* Cuts one cell set: the type of the functions in slots SLOT_CUT and SLOT_SUB_CUT, for sets of first-order cells or
 * for what second-order cells have been cut into.
 *
 * set        which set of the mesh; its connect list is fetched if the record does not hold it yet
 * null_flag  not 0: cells with a node of flag 2 are left out, all cell_nnodes nodes of a cell counted
 * flags      a byte a node: 1 at or above the level, 0 below, 2 null (with a null_flag only); from malloc
 * side       0 and above: corners of flag 1 are kept; below 0: those of flag 0
 * nold, node_map   how many nodes are kept, and the output number of each that is
 * table      numbers the new nodes; one for each node of the mesh, from UTILedge_table_create
 * cut_ncells, cut_conn, cut_nconn   7 entries each, counted on and appended to. A list that is NULL, or whose
 *            capacity is 0, is begun with 1024 entries, and what it held is released
 * capacity, grow   7 entries each: entries that there is room for, and what the next growth of the list adds.
 *            A list grows before a cell is written where less than 10 entries are left; each step is half as
 *            long again as the last one
 * cell_map_count, cell_map   NULL: no maps. Otherwise an entry for each list of each set of the mesh, of
 *            which set * 7 to set * 7 + 6 are counted on and appended to: the number within the set of the
 *            cell that each output cell came from. They hold lists of 1024 entries, and are empty
 *
 * The status is checked at cell 256 and at every 257th from there.
 *
 * Returns 1; 0 on a failure, which has been reported, and where asked to stop. Without a connect list, or memory
 * for the first lists, everything stays the caller's; after any other failure table and flags are released
 * and the lists are kept; when asked to stop, the lists and the maps of this set are released too.
 *
 * A host may bind a function of its own, which may hand on to those of the library: where one of them fails
 * inside, with the table that was given, the cut ends, whatever the host's function makes of it. By itself it
 * gives 1, or anything else to end the cut; it releases nothing. */
typedef int (*cut_cell_func)(mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side,
                             qx_long nold, const qx_long *node_map, edge_table *table, qx_long *cut_ncells,
                             qx_long **cut_conn, qx_long *cut_nconn, qx_long *capacity, qx_long *grow,
                             qx_long *cell_map_count, qx_long **cell_map);

/* Cuts a mesh, by the form bound to it: UTILcut_cells or UTILcut_struct, whose node_map differs. With none
 * bound: "no cut function found" under "UTILcut", 0, with the outputs as they were. */
int UTILcut(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
            double level, int side, qx_long *nold, qx_long **node_map, qx_long *nnodes_out,
            qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
            qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);

/* The form of UTILcut for cell sets.
 *
 * node_map         out, handed over, from malloc: the output number of each node of the mesh, -1 where it is
 *                  not kept
 * cell_map_count   out, 7 entries a set: how many cells of each list the set has made; NULL: no maps are made
 * cell_map         out, 7 entries a set, handed over: for each such cell, in order, the number within the set
 *                  of the cell that it came from. All seven lists of a set are there, also empty ones. Not
 *                  read without cell_map_count
 *
 * Sets are taken in order, and their cells in order; new nodes are numbered in order of first sight. Sets
 * without a function for this are passed over, their entries of the maps 0 and NULL.
 *
 * Cells of second order are cut into first-order cells over the same nodes, at most 1024 at a time, and these
 * are cut, so that even a cell that is kept whole comes out in pieces; of a cell with a null node those pieces
 * are left out that have it. The map names the second-order cell.
 *
 * Each set, and within it each block of second-order cells, opens a status range. A second-order set without
 * a tesselator is passed over, with empty lists for its maps, and leaves its range open. The status is
 * checked at cell 256 of a set or block and at every 257th from there.
 *
 * Returns 1. When asked to stop, 0. On failure 0 and a report: "unknown data type" under "UTILnode_thresh",
 * "unable to get cell set connect list" under "fld_info", or under "UTILcut" what could not be had: "alloc
 * for node map failed", "alloc for edge table failed", "alloc for cell list failed", "alloc for connect list
 * failed", "alloc for mesh copy failed", "tesselation failed", "realloc for edge table failed", "realloc for cell
 * list failed", "realloc for connect list failed". nnodes_out, min_node and max_node are then as they were,
 * and node_map is NULL, but where the connect list of a second-order set could not be fetched, which leaves it
 * with the caller. Output lists and maps that are there, NULL otherwise, are the caller's to release; when
 * asked to stop, all output lists and the maps of the set, or block, in hand are taken back. For its byte a
 * node it asks the host to make room, by ERRout_of_memory with "Cannot alloc flags array", until it gets it.
 *
 * Takes 5 bytes a node of working memory. Whole cells, the great majority, cost little more than the copy. */
int UTILcut_cells(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                  double level, int side, qx_long *nold, qx_long **node_map, qx_long *nnodes_out,
                  qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                  qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);

/* The functions of type cut_cell_func, by the kind of cell. */
int UTILcut_hex(mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side, qx_long nold,
                const qx_long *node_map, edge_table *table, qx_long *cut_ncells, qx_long **cut_conn,
                qx_long *cut_nconn, qx_long *capacity, qx_long *grow, qx_long *cell_map_count,
                qx_long **cell_map);
int UTILcut_prism(mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side, qx_long nold,
                  const qx_long *node_map, edge_table *table, qx_long *cut_ncells, qx_long **cut_conn,
                  qx_long *cut_nconn, qx_long *capacity, qx_long *grow, qx_long *cell_map_count,
                  qx_long **cell_map);
int UTILcut_pyr(mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side, qx_long nold,
                const qx_long *node_map, edge_table *table, qx_long *cut_ncells, qx_long **cut_conn,
                qx_long *cut_nconn, qx_long *capacity, qx_long *grow, qx_long *cell_map_count,
                qx_long **cell_map);
int UTILcut_tet(mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side, qx_long nold,
                const qx_long *node_map, edge_table *table, qx_long *cut_ncells, qx_long **cut_conn,
                qx_long *cut_nconn, qx_long *capacity, qx_long *grow, qx_long *cell_map_count,
                qx_long **cell_map);
int UTILcut_quad(mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side, qx_long nold,
                 const qx_long *node_map, edge_table *table, qx_long *cut_ncells, qx_long **cut_conn,
                 qx_long *cut_nconn, qx_long *capacity, qx_long *grow, qx_long *cell_map_count,
                 qx_long **cell_map);
int UTILcut_tri(mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side, qx_long nold,
                const qx_long *node_map, edge_table *table, qx_long *cut_ncells, qx_long **cut_conn,
                qx_long *cut_nconn, qx_long *capacity, qx_long *grow, qx_long *cell_map_count,
                qx_long **cell_map);
int UTILcut_line(mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side, qx_long nold,
                 const qx_long *node_map, edge_table *table, qx_long *cut_ncells, qx_long **cut_conn,
                 qx_long *cut_nconn, qx_long *capacity, qx_long *grow, qx_long *cell_map_count,
                 qx_long **cell_map);

/* ---- contour bands --------------------------------------------------------------------------------- *
 *
 * A band keeps the part of a mesh whose values lie between two levels, both included. Cells whose corners are
 * all between them pass whole. A cell that one level crosses is cut by it, as by UTILcut; of one that both cross
 * there are cases of its own if it is a surface cell (tables.h), and a volume cell is cut at the lower level and
 * its pieces at the upper one. A band is a finished mesh: it has the places of all its nodes.
 *
 * Output nodes are numbered in one sequence: the nodes that are kept, 0 to nold - 1, in the order of the mesh,
 * then the new nodes, nold + e for entry e of min_node, max_node and level_list. Output cells come in six
 * lists: 0 tetrahedra, 1 prisms, 2 pyramids, 3 hexahedra, 4 triangles, 5 quadrilaterals.
 *
 * data           nnodes values of data_type, one a node
 * null_flag      not 0: the data has null values, and null_value points to one element of data_type. A cell
 *                with a null value at any of its nodes is left out. Values are compared with it as doubles
 * low_level, high_level   compared with values as doubles: value >= low_level and value <= high_level. NaN in the
 *                data is below every band. With the lower level above the upper one no node is kept, and what
 *                comes out of cells that both cross is of new nodes only
 * nold           out: nodes that are kept, as UTILnode_thresh2 finds them, which brings the levels into the data's
 *                type first: of integers there may be nodes among them, of a value between a level and the
 *                whole number next to it towards 0, to which no cell refers; and with levels beyond the range of
 *                char, byte or short other nodes may be kept, or none at all. A cell with a corner between
 *                the levels that is not kept is left out. Callers bring levels into the range of such a type
 *                first, which changes nothing else
 * nnodes_out     out: new nodes
 * min_node, max_node   out, handed over, nnodes_out entries each: the ends of each new node's edge, the lower
 *                number first. Below nnodes it is a node of the mesh; nnodes + m stands for new node m, which the
 *                first cut of a volume cell has made: the second cut has new nodes on edges to it
 * level_list     out, handed over, nnodes_out entries: 0 for a new node at the lower level, 1 at the upper one.
 *                An edge that both levels cross has a new node at each
 * cont_ncells, cont_conn, cont_nconn   out, 6 entries each: cells of each list, their nodes by output numbers,
 *                NULL where there are no cells, and entries in use
 * nspace         that of the mesh
 * coords         out, handed over, nspace floats for each output node; NULL where there is none. New nodes are
 *                placed by UTILeval_contour
 * nlow_lines, nhigh_lines   in: not 0 asks for the lines in which the band ends at that level, inside surface
 *                cells; out: how many there are
 * low_lines, high_lines   out, handed over: two output nodes a line. NULL: not asked for, or not made
 *
 * Bands that follow on each other share their levels, and a cell all of whose corners are at the level between
 * them is in both. Their volumes add up where those of the two sides of a cut do.
 *
 * Lists that are handed over come from ARRalloc_f and go by ARRfree_f or free. */

/* Numbers the new nodes of bands: an edge_table whose edges have a level. */
typedef struct contour_edge_table {
    int *head;                 /* size entries: 1 + number of the bucket's newest edge, 0 if it has none */
    int *next;                 /* next[e + 1] is 1 + the edge behind edge e, 0 at the end */
    qx_long *min_list;         /* lower node of each edge */
    qx_long *max_list;         /* upper node of each edge */
    int nlow;                  /* edges at the lower level */
    int nhigh;                 /* edges at the upper level */
    unsigned char *level_list; /* level of each edge: 0 lower, 1 upper */
    qx_long size;              /* buckets: the nodes of the mesh */
    int max_edges;             /* capacity, 1000 at first */
    int nedges;                /* edges held */
    int grow;                  /* what each growth adds, 1000 */
} contour_edge_table;

/* Makes the band of one cell set: the type of the functions in slots SLOT_CONTOUR and SLOT_SUB_CONTOUR, for sets of
 * first-order cells or for what second-order cells have been cut into.
 *
 * set        which set of the mesh; its connect list is fetched if the record does not hold it yet
 * nold, node_map   how many nodes are kept, and the output number of each that is, -1 of others
 * table      numbers the new nodes; that of the operation which calls the kernel
 * cont_ncells, cont_conn, cont_nconn, capacity, grow   6 entries each, as of cut_cell_func
 * nlow_lines, low_lines, nhigh_lines, high_lines   lines are appended to a list that is there. Where there is none,
 *            surface cells of set 0 begin it, with room for 1024 lines, if its count is not 0. A list grows by 1024
 *            lines where its count and the lines of a cell reach its capacity. Volume cells release both lists
 *
 * The status is checked at the 257th cell that a level crosses, and at every 257th such cell from there.
 *
 * Returns 1; 0 on a failure, of which that of a fetch alone is reported, and where asked to stop. When asked to
 * stop, the table and all lists are released; otherwise everything stays the caller's.
 *
 * A host may bind a function of its own, which may hand on to those of the library: where one of them fails
 * inside, with the table that was given, the operation ends, whatever the host's function makes of it. By itself it
 * gives 1, or anything else to end the operation; it releases nothing. */
typedef int (*contour_cell_func)(mesh_info *mesh, int set, int data_type, const void *data, int null_flag,
                                 const void *null_value, double low_level, double high_level, qx_long nold,
                                 const qx_long *node_map, contour_edge_table *table, qx_long *cont_ncells,
                                 qx_long **cont_conn, qx_long *cont_nconn, qx_long *capacity, qx_long *grow,
                                 qx_long *nlow_lines, qx_long **low_lines, qx_long *nhigh_lines,
                                 qx_long **high_lines);

/* Makes a band of a mesh, by the form bound to it: UTILcontour_cells or UTILcontour_struct, whose node_map
 * differs. With none bound: "no contour function found" under "UTILcontour", 0, with the outputs as they were. */
int UTILcontour(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                double low_level, double high_level, qx_long *nold, qx_long **node_map, qx_long *nnodes_out,
                qx_long **min_node, qx_long **max_node, unsigned char **level_list, qx_long *cont_ncells,
                qx_long **cont_conn, qx_long *cont_nconn, int nspace, float **coords, qx_long *nlow_lines,
                qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines);

/* The form of UTILcontour for cell sets.
 *
 * node_map   out, handed over, from malloc: the output number of each node of the mesh, -1 where it is not kept
 *
 * Sets are taken in order, and their cells in order; new nodes are numbered in order of first sight, those of a
 * volume cell's first cut before those of its second. The latter are the cell's own where they stand on an edge
 * inside it or across a face: neighbours need not share them. Sets without a function for this are passed over.
 *
 * Lines are made where set 0 is one of surface cells, and lost to a set of volume cells behind it. So they are of
 * use for meshes of surface cells alone.
 *
 * Cells of second order are cut into first-order cells over the same nodes, at most 1024 at a time. Each set, and
 * within it each block of second-order cells, opens a status range; a second-order set without a tesselator is
 * passed over and leaves its range open.
 *
 * Returns 1. When asked to stop, 0. On failure 0, with a report for some: "unable to get field coordinates" and
 * "unable to get cell set connect list" under "fld_info", "unknown data type" under "UTILnode_thresh2", "alloc for
 * mesh copy failed" and "tesselation failed" under "UTILcontour"; other lack of memory is not reported. node_map and
 * coords are then NULL; nnodes_out, min_node, max_node and level_list are as they were. Output lists and lines that
 * are there, NULL otherwise, are the caller's to release; when asked to stop, all of them are taken back.
 *
 * Takes 5 bytes a node of working memory. Whole cells cost little more than the copy. */
int UTILcontour_cells(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                      double low_level, double high_level, qx_long *nold, qx_long **node_map,
                      qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, unsigned char **level_list,
                      qx_long *cont_ncells, qx_long **cont_conn, qx_long *cont_nconn, int nspace,
                      float **coords, qx_long *nlow_lines, qx_long **low_lines, qx_long *nhigh_lines,
                      qx_long **high_lines);

/* The functions of type contour_cell_func, by the kind of cell. */
int UTILcontour_hex(mesh_info *mesh, int set, int data_type, const void *data, int null_flag,
                    const void *null_value, double low_level, double high_level, qx_long nold,
                    const qx_long *node_map, contour_edge_table *table, qx_long *cont_ncells,
                    qx_long **cont_conn, qx_long *cont_nconn, qx_long *capacity, qx_long *grow,
                    qx_long *nlow_lines, qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines);
int UTILcontour_prism(mesh_info *mesh, int set, int data_type, const void *data, int null_flag,
                      const void *null_value, double low_level, double high_level, qx_long nold,
                      const qx_long *node_map, contour_edge_table *table, qx_long *cont_ncells,
                      qx_long **cont_conn, qx_long *cont_nconn, qx_long *capacity, qx_long *grow,
                      qx_long *nlow_lines, qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines);
int UTILcontour_pyr(mesh_info *mesh, int set, int data_type, const void *data, int null_flag,
                    const void *null_value, double low_level, double high_level, qx_long nold,
                    const qx_long *node_map, contour_edge_table *table, qx_long *cont_ncells,
                    qx_long **cont_conn, qx_long *cont_nconn, qx_long *capacity, qx_long *grow,
                    qx_long *nlow_lines, qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines);
int UTILcontour_tet(mesh_info *mesh, int set, int data_type, const void *data, int null_flag,
                    const void *null_value, double low_level, double high_level, qx_long nold,
                    const qx_long *node_map, contour_edge_table *table, qx_long *cont_ncells,
                    qx_long **cont_conn, qx_long *cont_nconn, qx_long *capacity, qx_long *grow,
                    qx_long *nlow_lines, qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines);
int UTILcontour_quad(mesh_info *mesh, int set, int data_type, const void *data, int null_flag,
                     const void *null_value, double low_level, double high_level, qx_long nold,
                     const qx_long *node_map, contour_edge_table *table, qx_long *cont_ncells,
                     qx_long **cont_conn, qx_long *cont_nconn, qx_long *capacity, qx_long *grow,
                     qx_long *nlow_lines, qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines);
int UTILcontour_tri(mesh_info *mesh, int set, int data_type, const void *data, int null_flag,
                    const void *null_value, double low_level, double high_level, qx_long nold,
                    const qx_long *node_map, contour_edge_table *table, qx_long *cont_ncells,
                    qx_long **cont_conn, qx_long *cont_nconn, qx_long *capacity, qx_long *grow,
                    qx_long *nlow_lines, qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines);

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

/* ---- cuts of structured meshes --------------------------------------------------------------------- *
 *
 * The part of a structured mesh on one side of a level, as explicit cells: cells that are kept whole, and the
 * simplices that crossed cells are split into. Topology alone is made: new nodes are told by the edges that they
 * stand on, and the caller places them and carries data onto them (UTILeval_param_coord, UTILget_data_list).
 *
 * data             one element of data_type a node
 * null_flag        not 0: cells with a node whose value equals the null value are left out; null_value points to
 *                  one element
 * side             0 and above keeps values at or above the level, below 0 those below it
 * nold             out: nodes that are retained, by UTILnode_thresh and the side as its direction: values at the
 *                  level are, on either side. With a side below 0 no cell uses these
 * old_nodes        out, nold entries: the retained nodes, ascending. NULL if there is none
 * nnodes_out       out: new nodes. Output nodes are the retained ones in order, then the new ones: new node e has
 *                  number nold + e
 * min_node, max_node   out, nnodes_out entries: the mesh nodes at the ends of each new node's edge, the lower
 *                  first, in the order in which a walk over the cells, by the first axis, then the second, then
 *                  the third, comes upon them. Edges are shared: no two new nodes have the same ends
 * cut_ncells       out, 7 entries, one an output list: 0 tetrahedra, 1 prisms, 2 pyramids, 3 hexahedra, 4
 *                  triangles, 5 quadrilaterals, 6 lines. Here whole cells are in list 3 or 5, by the axes of the
 *                  mesh, and pieces in list 0 or 4; the others are empty
 * cut_conn         out, 7 entries: the connect rows of each list, in output nodes; NULL for an empty list
 * cut_nconn        out, 7 entries: how many connect entries that are
 * cell_map_count   out, 7 entries; NULL: no map is wanted
 * cell_map         out, 7 entries: for each cell of a list, in order, the cell of the mesh that it comes from, as
 *                  UTILslice_struct counts cells. Handed over even for a list without cells
 *
 * Lists are handed over: old_nodes is released with free, the others with ARRfree_f or free.
 *
 * A whole hexahedron has corners 0 to 3 in its upper plane on the third axis and 4 to 7 in the lower one, each four
 * around the face: with lowest node b and d0, d1 nodes along the first axes b + d0 * d1, b + 1 + d0 * d1,
 * b + 1 + d0 + d0 * d1, b + d0 + d0 * d1, then b, b + 1, b + 1 + d0, b + d0. A whole quadrilateral is b, b + 1,
 * b + 1 + d0, b + d0. Pieces follow the tables of the cut cases (tables.h), whose rules on faces with two kept
 * corners across from each other leave parts of such cells to neither side.
 *
 * A node that its element type's precision would count differently in the two tests (a float beside a level that
 * no float can hold) is kept by a cell only if it is retained too: no connect entry lacks a node.
 *
 * Returns 1; 0 on failure, which leaves nothing behind, all outputs 0 and NULL. The status is looked at in every
 * eighth slab of cells along the last axis, the first time in the eighth; a stop is a failure without a report. So is
 * a lack of memory, except for a map's: "realloc for cell list failed" under "UTILcut". Flags are insisted on:
 * ERRout_of_memory("Cannot alloc flags array") until there are. An unknown type reports "unknown data type" under
 * "UTILnnode_thresh_struct". Memory but for the outputs: some planes of the mesh. */

/* The form bound to all structured meshes. With axes other than 2 or 3: 0, and no output is written. */
int UTILcut_struct(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                   double level, int side, qx_long *nold, qx_long **old_nodes, qx_long *nnodes_out,
                   qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                   qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);
/* The same for meshes of three axes, and of two. */
int UTILcut_struct_3d(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                      double level, int side, qx_long *nold, qx_long **old_nodes, qx_long *nnodes_out,
                      qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                      qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);
int UTILcut_struct_2d(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                      double level, int side, qx_long *nold, qx_long **old_nodes, qx_long *nnodes_out,
                      qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                      qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);

/* ---- bands of structured meshes -------------------------------------------------------------------- *
 *
 * The part of a structured mesh between two levels, with the coordinates of all its nodes: a cut from both sides
 * at once. Cells that are all inside are kept whole, others are split into tetrahedra or triangles.
 *
 * data, null_flag, null_value   as for a cut; here a value is null that equals the null value as a double
 * lower, upper     the levels. A value at either is inside. With lower above upper no node is retained; what the
 *                  crossed cells then give are new nodes, and of two axes triangles of new nodes alone
 * nold, old_nodes  as for a cut: the nodes that UTILnode_thresh2 retains. It brings the levels into the data's type
 *                  first, which cells do not: of integers, between levels with fractions, nodes may be retained that
 *                  no cell uses, and a cell with a node between the levels that is not retained, as by levels beyond
 *                  the type's range, is left out as if that node were null. Bring levels into that range first
 * nnodes_out, min_node, max_node   out: new nodes, numbered from nold on, by the ends of their edges. An edge that
 *                  both levels cross has two. Of three axes a cell that both levels cross is cut at the lower one and
 *                  its pieces at the upper one: there an end max_node may be mesh->nnodes + e, which is new node e
 * level_list       out, nnodes_out entries: 0 at the lower level, 1 at the upper one
 * cont_ncells, cont_conn, cont_nconn   out, 6 entries, one a list as for a cut, without lines
 * nspace           coordinates a node: that of the mesh
 * coords           out, nold + nnodes_out rows of nspace floats; NULL if there is no node
 * nlow_lines, nhigh_lines   in: not 0 asks for the lines that the band ends in at the lower, at the upper level.
 *                  Out: how many lines there are
 * low_lines, high_lines     out: output nodes, two a line; NULL where not asked for, and of three axes always
 *
 * Lists are handed over as those of a cut. UTILeval_contour carries more data onto the new nodes, by min_node,
 * max_node and level_list as they are.
 *
 * Returns 1; 0 on failure, which leaves nothing behind, all outputs 0 and NULL. Coordinates are asked for two planes
 * at a time, once for every slab: "unable to get field sub-coordinates" under "fld_info" where the host has none.
 * Stops, an unknown type and a lack of memory are not reported; status and flags are as for a cut. */

/* The form bound to all structured meshes. With axes other than 2 or 3: 0, and no output is written. */
int UTILcontour_struct(mesh_info *mesh, const void *data, int data_type, int null_flag,
                       const void *null_value, double lower, double upper, qx_long *nold, qx_long **old_nodes,
                       qx_long *nnodes_out, qx_long **min_node, qx_long **max_node,
                       unsigned char **level_list, qx_long *cont_ncells, qx_long **cont_conn,
                       qx_long *cont_nconn, int nspace, float **coords, qx_long *nlow_lines,
                       qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines);

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
