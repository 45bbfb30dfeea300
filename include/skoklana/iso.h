/* Isosurfaces, isolines, and plane slices of rectilinear meshes. */
#ifndef SKOKLANA_ISO_H
#define SKOKLANA_ISO_H

#include <skoklana/containers.h>
#include <skoklana/locate.h>
#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- level surfaces and lines --------------------------------------------------------------------- *
 *
 * A level divides the nodes of a mesh: those with a value at or above it, and those below. Between the two
 * runs a surface through volume cells and a line through surface cells, straight within a cell, through one
 * new node on each edge that has a node of either side at its ends. What comes out is the topology alone: new
 * nodes as pairs of mesh nodes, and triangles and lines over new nodes. UTILget_param and UTILeval_coord give
 * the new nodes their places, UTILeval_param other data there, and the cell maps the data of cells.
 *
 * data           nnodes values of data_type, one a node
 * null_flag      not 0: the data has null values, and null_value points to one element of data_type. A cell
 *                with a null value at any of its nodes is left out; its neighbours are not affected.
 *                0: null_value is not read
 * level          NaN in the data is below every level. Data of DTYPE_FLOAT in cell sets is compared with the
 *                level rounded to float, all other data with the level as it is
 * nnodes_out     out: how many new nodes there are
 * min_node, max_node   out, handed over, nnodes_out entries each: the lower and the upper mesh node of each
 *                new node. Cells that share an edge share its new node, also across sets
 * nline, ntri    out: how many lines and triangles there are
 * line_conn, tri_conn  out, handed over: 2 new nodes a line, 3 a triangle
 * nline_conn, ntri_conn  out: entries in use, 2 * nline and 3 * ntri
 *
 * Lists that are handed over come from ARRalloc_f and go by ARRfree_f or free.
 *
 * Success is a result of 1, on every mesh kind: test for that alone. Other results differ. Asked to stop, the
 * isosurface of cell sets gives 0 and that of a lattice of three axes -1, both without a report; isolines are
 * never stopped. A failure gives 0. Reports tell the two apart, and host_isosurf does so in its result. */

/* Extracts from one cell set: the type of the functions in slots SLOT_SLICE, SLOT_ISOLINE and their SUB
 * fellows, for sets of first-order cells or for what second-order cells have been cut into.
 *
 * set        which set of the mesh; its connect list is fetched if the record does not hold it yet
 * null_flag  not 0: cells with a node of flag 2 are left out, all cell_nnodes nodes of a cell counted
 * flags      a byte a node: 1 at or above the level, 0 below, 2 null (with a null_flag only); from malloc
 * table      numbers the new nodes; one for each node of the mesh, from UTILedge_table_create
 * connect    the list of new nodes to append to. NULL, or *capacity 0: a list is begun, and what *connect
 *            held is released
 * used       entries in use
 * capacity   entries there is room for; at the end of a call more than a single cell can take is free
 * cell_map   NULL, or pointing to NULL: not wanted. Otherwise the number of the cell within the set is
 *            written for each primitive of this call, from the list's start; it has the first capacity of
 *            the connect lists, 1024 for triangles and 1000 for lines, and grows like them
 *
 * Returns the count of primitives that this call has made. 0 is also the result of a failure, which has been
 * reported, and -1 of an interruption. Without a connect list, or memory for the first list, table and flags
 * stay the caller's. After any other failure both are released and the list is kept; after an interruption
 * the list is released too.
 *
 * A host may bind a function of its own, which may hand on to those of the library: where one of them fails
 * inside, with the table that was given, the extraction ends, whatever the host's function makes of it. By
 * itself it gives 0 for a set without crossings, or less than 0, with table, flags and list released, to end
 * the extraction. */
typedef qx_long (*slice_cell_func)(mesh_info *mesh, int set, int null_flag, unsigned char *flags,
                                   edge_table *table, qx_long **connect, qx_long *used, qx_long *capacity,
                                   qx_long **cell_map);

/* Extracts the level surface of volume cells, and with it the level lines of surface cells, by the form bound
 * to the mesh: UTILslice_cells or UTILslice_struct. The arguments are told above.
 *
 * With none bound: "No isosurf function found" under "UTILisosurf_func", 0, with the outputs as they were. */
int UTILisosurf(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                qx_long **line_conn, qx_long *nline_conn, qx_long *ntri, qx_long **tri_conn,
                qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map);

/* The form of UTILisosurf for cell sets.
 *
 * cell_map_count   out, an entry a set: how many triangles or lines the set has made; NULL: no maps are made
 * cell_map         out, an entry a set, handed over: for each primitive of the set, in order, the number
 *                  within the set of the cell that made it. Not read without cell_map_count
 *
 * Sets are taken in order, and their cells in order. Sets of 3-dimensional cells make triangles by the case
 * tables of tables.h, sets of 2-dimensional cells make lines as UTILisoline_cells does; both share the
 * numbers of new nodes, which are given in order of first sight. Others are passed over, and so are sets
 * without a function for this and second-order sets without a tesselator; their entries of the maps stay
 * as they were, but for cell_map_count, which is 0 in the last case.
 *
 * Right-hand normals of triangles point to lower values where no cell is inverted, second-order prisms apart.
 * In a face whose corners are above and below in turn the two corners above are kept apart. That looks at the
 * face alone, so cells on both sides of it agree and the surface is closed inside the mesh; no value at the
 * middle of the face or cell is asked for. Where cells meet whose faces do not, it is not closed.
 *
 * Cells of second order are cut into first-order cells over the same nodes, at most 1024 at a time, and these
 * extracted; the map names the second-order cell. The pieces of a face of two second-order cells need not
 * agree, tetrahedra apart.
 *
 * A list that nothing was added to is handed over empty, with room for 1024 entries, if a set of its kind
 * took part; otherwise it is NULL.
 *
 * Each set, and within it each block of second-order cells, opens a status range. A second-order set without
 * a tesselator leaves its range open. The status is checked at cell 256 of a set or block, at every 257th
 * from there, and once at its end, where it is too late to stop.
 *
 * Returns 1. When asked to stop, 0. On failure 0 and a report: "unknown data type" under
 * "UTILthreshold_scalar", "unable to get cell set connect list" under "fld_info", or under "UTILslice" what
 * could not be had: "alloc for edge table failed", "alloc for cell list failed", "alloc for connect list
 * failed", "alloc for mesh copy failed", "tesselation failed", "realloc for edge table failed", "realloc for
 * cell list failed", "realloc for connect list failed". All outputs are then 0 or NULL, but for entries of the
 * maps: those of sets that were complete are taken back, those of the set that failed and of later ones are as
 * they were, but for a count that may be 0. Nothing is left behind. For its byte a node it asks the host to make
 * room, by ERRout_of_memory with "Cannot alloc flags array", until it gets it.
 *
 * Takes 5 bytes a node of working memory, and time for a look at each node and each cell's flags and for the
 * cells that are crossed. Cells whose neighbours in the list are neighbours in the mesh are done several
 * times as fast as cells in no order.
 *
 * Lorensen and Cline. Marching cubes: a high resolution 3D surface construction algorithm. 1987
 * Nielson and Hamann. The asymptotic decider: resolving the ambiguity in marching cubes. 1991: the other way
 * to settle such faces, by the values at their corners */
int UTILslice_cells(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                    double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                    qx_long **line_conn, qx_long *nline_conn, qx_long *ntri, qx_long **tri_conn,
                    qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map);

/* The level surface of a structured mesh of three axes, or the level lines of one of two. The form of
 * UTILisosurf for curvilinear, uniform and rectilinear meshes, and all that is said there of its arguments
 * holds here. Only dims and nnodes of the mesh are read: no coordinates.
 *
 * cell_map_count   out: how many primitives there are, one number for the whole mesh; NULL: no map is made
 * cell_map         out, handed over: for each triangle or line the cell that made it. Cell (i, j, k) has
 *                  the number (k * (dims[1] - 1) + j) * (dims[0] - 1) + i. Not read without cell_map_count
 *
 * New nodes are numbered in the order in which a walk over the cells, i fastest, then j, then k, first meets
 * them; triangles stand in the order of the same walk. With i, j and k for the axes of a right-handed frame,
 * their normals point to lower values. A cell with a null corner is left out; NaN is below every level. In a
 * face whose corners are above and below in turn, the two corners above are kept apart, so the surface is
 * closed inside the mesh.
 *
 * A mesh of three axes gives triangles, nline and nline_conn 0 and line_conn NULL; one of two axes gives
 * what UTILisoline_struct gives, ntri and ntri_conn 0 and tri_conn NULL. Where nothing is crossed the lists
 * are handed over empty. Axes of one node are legal; there are no cells then.
 *
 * Returns 1; 0 without a report for other numbers of axes, an unknown type, and no memory for the first lists
 * or the new nodes; 0 with "realloc for cell list failed" under "UTILslice" or "realloc for connect list
 * failed" under "slice_struct"; -1 when asked to stop, which is looked for at every eighth plane of cells and
 * once at the end, where it is too late. Whenever the result is not 1 all counts are 0, all lists NULL, and
 * nothing is left behind.
 *
 * Takes working memory for two planes of nodes, and time for a look at each node and for the cells that are
 * crossed.
 *
 * Lorensen and Cline. Marching cubes: a high resolution 3D surface construction algorithm. 1987 */
int UTILslice_struct(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                     double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node,
                     qx_long *nline, qx_long **line_conn, qx_long *nline_conn, qx_long *ntri,
                     qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map);

/* Extracts the level lines of surface cells, by the form bound to the mesh: UTILisoline_cells or
 * UTILisoline_struct. The arguments are told above. With none bound: "no isoline function found" under
 * "UTILisoline", 0, with the outputs as they were. */
int UTILisoline(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                qx_long **line_conn, qx_long *nline_conn, qx_long *cell_map_count, qx_long **cell_map);

/* The form of UTILisoline for cell sets: lines as UTILslice_cells makes them of its 2-dimensional cells.
 *
 * cell_map_count, cell_map   as of UTILslice_cells
 *
 * Every set with an isoline function takes part, whatever its dimension. In a quadrilateral whose corners are
 * above and below in turn, the lines always cut off corners 0 and 2, whichever pair is above. A line runs the
 * same way for data and for its negative: which side is above can't be told from its direction. Inside a mesh
 * lines have no ends.
 *
 * Second-order cells are taken at most 1000 at a time, each such block in a status range; nothing else opens
 * a range, and the status is never checked. Lists have room for 1000 entries at first.
 *
 * Returns and reports as UTILslice_cells, under "UTILisoline", but what concerns the connect list and the
 * edge table's growth under "isoline". */
int UTILisoline_cells(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                      double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node,
                      qx_long *nline, qx_long **line_conn, qx_long *nline_conn, qx_long *cell_map_count,
                      qx_long **cell_map);

/* The level lines of a structured mesh of two axes: the form of UTILisoline for curvilinear, uniform and
 * rectilinear meshes. Only dims and nnodes of the mesh are read; of more than two axes the first two, and so
 * the mesh's first plane.
 *
 * line_conn        out, handed over: two new nodes a line
 * cell_map_count   out: how many lines there are; NULL: no map is made
 * cell_map         out, handed over: for each line the cell that made it. Cell (i, j) has the number
 *                  j * (dims[0] - 1) + i. Not read without cell_map_count
 *
 * New nodes are numbered in the order in which a walk over the cells, i fastest, first meets them; lines
 * stand in the order of the same walk. A cell with a null corner is left out; NaN is below every level. Where
 * the corners of a cell are above and below in turn, the lines always cut off the lowest corner and the one
 * across from it, whichever pair is above. A line runs the same way for data and for its negative: which side
 * is above can't be told from its direction.
 *
 * Returns 1; 0 without a report for fewer than two axes, an unknown type, and no memory for the first lists
 * or the new nodes; 0 with "realloc for cell list failed" or "realloc for connect list failed" under
 * "UTILisoline". The counts are 0 then, the lists NULL. Never checks the status. */
int UTILisoline_struct(mesh_info *mesh, const void *data, int data_type, int null_flag,
                       const void *null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                       qx_long **max_node, qx_long *nline, qx_long **line_conn, qx_long *nline_conn,
                       qx_long *cell_map_count, qx_long **cell_map);

/* The functions of type slice_cell_func, by the kind of cell. A list of triangles is begun with 1024 entries
 * and grows by 1024, 1536, 2304, ... when a cell leaves less than 25 of them; a list of lines is begun with
 * 1000 and grows by 1000 when a cell leaves less than 8. The steps start anew with each call. Triangles: the
 * status is checked as UTILslice_cells tells. Lines: never, and so -1 is never returned. */
qx_long UTILslice_hex(mesh_info *mesh, int set, int null_flag, unsigned char *flags, edge_table *table,
                      qx_long **connect, qx_long *used, qx_long *capacity, qx_long **cell_map);
qx_long UTILslice_prism(mesh_info *mesh, int set, int null_flag, unsigned char *flags, edge_table *table,
                        qx_long **connect, qx_long *used, qx_long *capacity, qx_long **cell_map);
qx_long UTILslice_pyr(mesh_info *mesh, int set, int null_flag, unsigned char *flags, edge_table *table,
                      qx_long **connect, qx_long *used, qx_long *capacity, qx_long **cell_map);
qx_long UTILslice_tet(mesh_info *mesh, int set, int null_flag, unsigned char *flags, edge_table *table,
                      qx_long **connect, qx_long *used, qx_long *capacity, qx_long **cell_map);
qx_long UTILisoline_tri(mesh_info *mesh, int set, int null_flag, unsigned char *flags, edge_table *table,
                        qx_long **connect, qx_long *used, qx_long *capacity, qx_long **cell_map);
qx_long UTILisoline_quad(mesh_info *mesh, int set, int null_flag, unsigned char *flags, edge_table *table,
                         qx_long **connect, qx_long *used, qx_long *capacity, qx_long **cell_map);

/* ---- tracing from a seed ---------------------------------------------------------------------------- *
 *
 * Walks out from the cell that holds a point and extracts the level set through that point, as far as the
 * walk gets, without a look at the rest of the mesh. For structured meshes.
 *
 * seed             nspace coordinates
 * data             a value a node; data_type, null_flag and null_value tell its type and what is null
 * tbl              the block table of the mesh, handed on to its find function; NULL for meshes that need none
 * level            out: the value at the seed, as the mesh's own interpolation gives it in float; left as it
 *                  was where there is none
 * nnodes_out, min_node, max_node   out, the lists handed over: new nodes, as of UTILisosurf, in order of first
 *                  sight
 * nprim            out: triangles or lines
 * conn, nconn      out, the list handed over: new nodes of the primitives, and how many entries are in use
 *
 * The walk goes depth first. It goes on from crossed cells only; a cell without a crossing or with a null
 * corner ends it there, and if the seed's is one, the result is empty, with the level set.
 *
 * Return 1; 0 without a report where the seed is not found or has no value, for an unknown type, too few
 * axes, and no memory; 0 with "UTILfind_cell: unable to find interp_cell function" or "realloc for connect
 * list failed" on standard error. Whenever the result is not 1 all counts are 0 and all lists NULL. */

/* Traces a surface on a mesh of three axes, with the triangles of UTILslice_struct. All edges of a mesh of
 * more than 1024 nodes stand in one chain, so the time grows with the square of the surface: for small pieces
 * of surface in large meshes.
 *
 * From a crossed cell the walk steps along i where the surface crosses a face across i, but along j where it
 * crosses a face across k, and along k where it crosses one across j. A sheet that lies across k or across j
 * is therefore followed along a single row of cells only.
 *
 * -1 when asked to stop, which is looked for at every 401st visit to a cell. */
int UTILiso_trace(mesh_info *mesh, const float *seed, const void *data, int data_type, int null_flag,
                  const void *null_value, const blk_tbl *tbl, double *level, qx_long *nnodes_out,
                  qx_long **min_node, qx_long **max_node, qx_long *nprim, qx_long **conn, qx_long *nconn);

/* Traces lines on a mesh of two axes; of three axes in its first plane. Crossings are told otherwise than by
 * UTILisoline_struct: an edge from a to b is crossed if level >= a and b > level, or a >= level and level >
 * b, or if both are at the level. A cell with one crossing makes a line from the new node to itself, one with
 * two or three a line between the first two. With four, the data at the first two corners decides which edges
 * are joined.
 *
 * Never checks the status. */
int UTILisoline_trace(mesh_info *mesh, const float *seed, const void *data, int data_type, int null_flag,
                      const void *null_value, const blk_tbl *tbl, double *level, qx_long *nnodes_out,
                      qx_long **min_node, qx_long **max_node, qx_long *nprim, qx_long **conn, qx_long *nconn);

/* ---- chains of lines -------------------------------------------------------------------------------- */

/* Sorts loose lines into chains, in the place of the list: each chain's lines one after the other, each
 * beginning where the last one ended.
 *
 * lines    n entries, two nodes a line; out: the lines of the chains
 * n        entries; of less than two lines the list is left as it is
 * nnodes   node numbers are 0 to nnodes - 1
 *
 * A chain is begun for each node in turn, the lowest first, that no chain has: at the far end that is reached
 * from it by way of its first line. A ring of three lines or more ends with the line back to its first node.
 * A node keeps its first line and its last one: where more than two meet, lines are lost. So are all but one
 * of several lines between the same two nodes and lines from a node to itself. The result is never longer,
 * and it is just as long where nothing is lost; its length is not returned, and what stands behind it is left
 * as it was.
 *
 * Returns 1; 0 and "alloc of working arrays failed" under "UTILline_connect" without memory, with the list as
 * it was. Takes 17 bytes a node. */
int UTILlines_to_chains(qx_long *lines, qx_long n, qx_long nnodes);

/* The same, with the nodes numbered anew along the chains: line by line the result is (0, 1), (1, 2) and so
 * on, and from a ring's last node back to its first.
 *
 * renumber   out, nnodes entries: the new number of each node that is on a line; others are left as they were
 *
 * Reports under "UTILlines_to_poly". */
int UTILlines_to_polyl(qx_long *lines, qx_long n, qx_long nnodes, qx_long *renumber);

/* ---- plane slices as grids --------------------------------------------------------------------------- */

/* Cuts a uniform or rectilinear mesh of three axes by a plane into a regular grid on the plane, by the form
 * bound to the mesh, UTILrslice_unif or UTILrslice_rect. It gets all arguments but the mesh, of which nothing
 * is read. With none bound: "UTILrslice_func: no rslice function found" on standard error, 0, outputs as they
 * were.
 *
 * dims         nodes along each axis of the mesh
 * points       the mesh's compact coordinates, in rows of three
 * normal       3 components, of any length
 * distance     the plane is where normal . x = distance; taken in float
 * out_dims     out, 2 entries: nodes of the grid along u and v
 * out_points   out, the grid's compact coordinates, in unit extents. UTILrslice_unif: the corners 0 and 1 of
 *              the unit square, 2 rows. UTILrslice_rect: a row for each node of u, (t, 0, 0), then for each
 *              of v, (0, t, 0), t from 0 to 1 as the mesh's nodes are spaced, 0 on an axis without length.
 *              Rows enough for either are dims[0] + dims[1] + dims[2]
 * out_nspace   floats a row of out_points, 2 or 3
 * xform        out, 4 x 4, row-major: places the unit square in space. Rows 0 and 1 are its sides along u and
 *              v, row 2 their cross product, made a unit vector if it is longer than 1e-32, row 3 the first
 *              corner. The whole range of u and v is on it, also where the plane leaves the mesh
 * lo_node, hi_node   out, handed over, out_dims[0] * out_dims[1] entries, u fastest: the two nodes of the
 *                    mesh
 *              between which the grid's node is; -1 where it is outside the mesh
 * weight       out, handed over: its place between them, 0 at lo_node and 1 at hi_node. Not written outside
 * valid        out, handed over: 1 in the mesh, 0 outside
 *
 * w is the axis with the largest component of the normal, in a tie the lowest; u and v are the two behind it:
 * y and z for w = x, z and x for y, x and y for z. The grid has a node above each pair of nodes of u and v.
 * Row 2 of xform points along +w on ascending axes, whatever the sign of the normal.
 *
 * A plane through nodes of the mesh takes the edge above them with weight 0 in uniform meshes, but for the
 * last layer, and the edge below with weight 1 in rectilinear ones. An axis of one node along w has no edge,
 * and nothing is valid; along u or v it works. Axes may descend. All arithmetic is in float: in uniform
 * meshes a row of grid nodes is reached by repeated subtraction, and what that loses is part of the result. A
 * normal of 0 leaves nothing valid and xform without meaning.
 *
 * Returns the count of valid nodes, UTILrslice in 32 bits. Without memory: 0, unreported, and the four lists
 * are NULL, as they never are for a plane outside the mesh. No status is checked. */
int UTILrslice(mesh_info *mesh, const qx_long *dims, const float *points, const float *normal,
               double distance, qx_long *out_dims, float *out_points, int out_nspace, float *xform,
               qx_long **lo_node, qx_long **hi_node, float **weight, unsigned char **valid);
/* The forms for the two kinds of mesh. */
qx_long UTILrslice_unif(const qx_long *dims, const float *points, const float *normal, double distance,
                        qx_long *out_dims, float *out_points, int out_nspace, float *xform, qx_long **lo_node,
                        qx_long **hi_node, float **weight, unsigned char **valid);
qx_long UTILrslice_rect(const qx_long *dims, const float *points, const float *normal, double distance,
                        qx_long *out_dims, float *out_points, int out_nspace, float *xform, qx_long **lo_node,
                        qx_long **hi_node, float **weight, unsigned char **valid);

SKOKLANA_END
#endif
