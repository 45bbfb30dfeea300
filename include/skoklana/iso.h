/* Isosurfaces and isolines, and the containers that number their new nodes. */
#ifndef SKOKLANA_ISO_H
#define SKOKLANA_ISO_H

#include <skoklana/locate.h>
#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

typedef struct edge_table {
    int *head;
    int *next;
    qx_long *min_list;
    qx_long *max_list;
    qx_long size;
    int max_edges;
    int nedges;
    int grow;
} edge_table;

typedef struct edge_table_str {
    int *head;
    int *next;
    int *link_edge;
    qx_long *min_list;
    qx_long *max_list;
    int max_edges;
    int nedges;
    qx_long size;
    int max_links;
    int nlinks;
    int grow;
} edge_table_str;

typedef struct cell_table {
    int *head;
    int *next;
    qx_long *cell_numbers;
    qx_long size;
    float scale;
    int max_cells;
    int ncells;
    int grow;
} cell_table;

typedef struct cell_node cell_node;
struct cell_node {
    qx_long cell;
    cell_node *next;
};

typedef struct cell_list {
    cell_node *top;
    cell_node *free_nodes;
    int nblocks;
    cell_node **blocks;
} cell_list;

typedef qx_long (*slice_cell_func)(mesh_info *mesh, int set, int null_flag, unsigned char *flags,
                                   edge_table *table, qx_long **connect, qx_long *used, qx_long *capacity,
                                   qx_long **cell_map);

edge_table *UTILedge_table_create(qx_long size);
qx_long UTILedge_table_add_points(edge_table *table, const qx_long *first, const qx_long *second, int count,
                                  int *numbers);
qx_long UTILedge_table_add_hash_points(edge_table *table, const qx_long *first, const qx_long *second,
                                       qx_long max_index, int count, int *numbers);
qx_long UTILedge_table_get_free(edge_table *table, qx_long **min_list, qx_long **max_list, qx_long *count);
qx_long UTILedge_table_delete(edge_table *table);
edge_table_str *UTILedge_table_create_str(qx_long size, int initial);
qx_long UTILedge_table_add_str(edge_table_str *table, const qx_long *first, const qx_long *second,
                               qx_long base, int count, int *numbers);
qx_long UTILedge_table_clean(edge_table_str *table, qx_long shift);
qx_long UTILedge_table_free_str(edge_table_str *table, qx_long **min_list, qx_long **max_list,
                                qx_long *count);
qx_long UTILedge_table_delete_str(edge_table_str *table);
cell_table *UTILcell_table_create(qx_long size, qx_long max_index);
qx_long UTILcell_table_add(cell_table *table, qx_long cell);
qx_long UTILcell_in_table(cell_table *table, qx_long cell);
qx_long UTILcell_table_delete(cell_table *table);
cell_list *UTILinit_cell_list(int capacity);
qx_long UTILadd_cell_to_list(cell_list *list, int count, const qx_long *cells);
qx_long UTILrm_cell_from_list(cell_list *list);
qx_long UTILdelete_cell_list(cell_list *list);

int UTILisosurf(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                qx_long **line_conn, qx_long *nline_conn, qx_long *ntri, qx_long **tri_conn,
                qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map);
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
int UTILisoline(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                qx_long **line_conn, qx_long *nline_conn, qx_long *cell_map_count, qx_long **cell_map);
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

/* Cuts a uniform or rectilinear mesh by a plane into a regular grid on the plane, by the form bound to the
 * mesh, which gets all arguments but the mesh. With none bound: a line on standard error, 0.
 *
 * normal, distance   the plane: normal . x = distance
 * out_dims           2 entries: nodes of the grid
 * out_points         the grid's compact coordinates in unit extents
 * xform              4 x 4, row-major: places the grid in space
 * lo_node, hi_node, weight, valid   handed over, an entry a grid node: the two mesh nodes around it, its
 *                    place between them, and 1 where it lies in the mesh
 *
 * Returns the count of valid nodes. */
int UTILrslice(mesh_info *mesh, const qx_long *dims, const float *points, const float *normal,
               double distance, qx_long *out_dims, float *out_points, int out_nspace, float *xform,
               qx_long **lo_node, qx_long **hi_node, float **weight, unsigned char **valid);

SKOKLANA_END
#endif
