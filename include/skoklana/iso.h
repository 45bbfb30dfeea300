/* Isosurfaces and isolines, and the containers that number their new nodes. */
#ifndef SKOKLANA_ISO_H
#define SKOKLANA_ISO_H

#include <skoklana/locate.h>
#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- containers of the extractions ---------------------------------------------------------------- *
 *
 * An extraction makes new nodes on edges of input cells. A new node is told by the unordered pair of the two
 * mesh nodes of its edge, not by a position. Edge tables turn pairs into new-node numbers: 0, 1, 2, ... in
 * order of first sight, the same number for a pair seen again, in either order. A pair of one node with
 * itself is a pair like any other. When the extraction ends, the table's two lists are its new nodes.
 *
 *   edge_table       a bucket a node, for cell sets; or fewer buckets, hashed, for traces of few cells
 *   edge_table_str   buckets for a band of a lattice that moves on plane by plane
 *   cell_table       the set of cells that a trace has visited
 *   cell_list        the stack of cells that it has still to visit
 *
 * Edges and cells are held in order of their numbers; those of a bucket are chained, newest first.
 * Capacities are entries. A table or list belongs to one thread at a time. None of these functions reports
 * anything: where memory runs out they return 0, or NULL, and a container that is there can be used on
 * unless its function says otherwise, and must be released. */

typedef struct edge_table {
    int *head;         /* size entries: 1 + number of the bucket's newest edge, 0 if it has none */
    int *next;         /* max_edges entries: next[e + 1] is 1 + the edge behind edge e, 0 at the end */
    qx_long *min_list; /* max_edges entries: lower node of each edge */
    qx_long *max_list; /* max_edges entries: upper node of each edge */
    qx_long size;      /* buckets */
    int max_edges;     /* capacity, 1024 at first */
    int nedges;        /* edges held */
    int grow;          /* what the next growth adds: 1024, 1536, 2304, ..., each half as much again */
} edge_table;

typedef struct edge_table_str {
    int *head;         /* size entries: the bucket's newest link, 0 if it has none */
    int *next;         /* max_links entries: next[l] is the link behind link l, 0 at the end */
    int *link_edge;    /* max_links entries: link_edge[l - 1] is the edge of link l */
    qx_long *min_list; /* max_edges entries: lower node of each edge */
    qx_long *max_list; /* max_edges entries: upper node of each edge */
    int max_edges;     /* capacity of the two node lists */
    int nedges;        /* edges held, those that the band has left behind included */
    qx_long size;      /* buckets */
    int max_links;     /* capacity of next and link_edge */
    int nlinks;        /* 1 + links made: links are numbered from 1 */
    int grow;          /* what the next growth adds to either kind of list; then half as much again */
} edge_table_str;

typedef struct cell_table {
    int *head;             /* size entries: 1 + number of the bucket's newest entry, 0 if it has none */
    int *next;             /* max_cells entries: next[e + 1] is 1 + number of the entry behind entry e */
    qx_long *cell_numbers; /* max_cells entries: the cell of each entry */
    qx_long size;          /* buckets */
    float scale;           /* buckets a cell: a cell's bucket is its number times scale, truncated */
    int max_cells;         /* capacity, 1024 at first */
    int ncells;            /* entries held */
    int grow;              /* what every growth adds, 1024 */
} cell_table;

typedef struct cell_node cell_node;
struct cell_node {
    qx_long cell;
    cell_node *next; /* the node below it on the stack, or behind it among the spare ones; NULL at the end */
};

typedef struct cell_list {
    cell_node *top;        /* the cell to visit next; NULL: none is left */
    cell_node *free_nodes; /* spare nodes, always one at least */
    int nblocks;           /* blocks of 1024 nodes */
    cell_node **blocks;    /* every block, for the release */
} cell_list;

/* An empty table. size: buckets; for UTILedge_table_add_points more than the largest lower node number, as
 * the node count of the mesh is. Release it by UTILedge_table_delete or UTILedge_table_get_free. */
edge_table *UTILedge_table_create(qx_long size);
/* Numbers edges by their nodes.
 *
 * first, second   count node numbers each: the nodes of each edge, in either order
 * numbers         out, count entries: the new node of each edge
 *
 * Returns 1, also for count below 1; -1 for a null table. 0: the lists could not grow; edges before that one
 * are numbered, its own number is -1, those behind it are not written, and the table is as it was before it.
 * The lists grow with the edge that leaves them one entry. Cost: a walk along the edges that share the lower
 * node. */
qx_long UTILedge_table_add_points(edge_table *table, const qx_long *first, const qx_long *second, int count,
                                  int *numbers);
/* The same for a table with fewer buckets than there are nodes.
 *
 * max_index   nodes of the mesh
 *
 * The bucket is the lower node times the integer quotient size / max_index. With fewer buckets than nodes
 * that is 0 and the table is one chain, whose walk costs as many steps as there are edges: use it for few
 * edges. The numbers do not depend on it. */
qx_long UTILedge_table_add_hash_points(edge_table *table, const qx_long *first, const qx_long *second,
                                       qx_long max_index, int count, int *numbers);
/* Ends a table and hands its lists over: min_list and max_list, count entries of lower and upper nodes. The
 * lists are there for count 0 too. Returns 1; 0 for a null table, outputs as they were. */
qx_long UTILedge_table_get_free(edge_table *table, qx_long **min_list, qx_long **max_list, qx_long *count);
/* Ends a table with its lists. Returns 1, also for a null table. */
qx_long UTILedge_table_delete(edge_table *table);

/* An empty table for a band. size: buckets, the nodes of two planes for a mesh of hexahedra; initial: the
 * first capacity, also the first growth, 1 or more. Release it by UTILedge_table_delete_str or
 * UTILedge_table_free_str. */
edge_table_str *UTILedge_table_create_str(qx_long size, int initial);
/* As UTILedge_table_add_points, within a band.
 *
 * base   number of the band's first node; every lower node is from base to base + size - 1
 *
 * After 0 the table may only be released. */
qx_long UTILedge_table_add_str(edge_table_str *table, const qx_long *first, const qx_long *second,
                               qx_long base, int count, int *numbers);
/* Moves a band on by shift buckets; the caller then adds shift to its base. Edges of the lowest shift
 * buckets are left behind: they stay in the lists and are not found again. The other buckets move down by
 * shift, and the uppermost shift keep what they held besides. What those lead to is harmless as long as the
 * band holds axis-aligned edges of a lattice, shift is one plane and size two: the upper nodes of edges in
 * the new plane are higher than any before. Returns 1; -1 for a null table. */
qx_long UTILedge_table_clean(edge_table_str *table, qx_long shift);
/* As UTILedge_table_get_free and UTILedge_table_delete. */
qx_long UTILedge_table_free_str(edge_table_str *table, qx_long **min_list, qx_long **max_list,
                                qx_long *count);
qx_long UTILedge_table_delete_str(edge_table_str *table);

/* An empty set of cells. size: buckets; max_index: cells of the mesh, more than any number that is added. */
cell_table *UTILcell_table_create(qx_long size, qx_long max_index);
/* Adds a cell, without a look whether it is there: ask UTILcell_in_table first. Returns 1; 0 for a null
 * table and where it could not grow, the table then as it was. */
qx_long UTILcell_table_add(cell_table *table, qx_long cell);
/* Returns 1 for a cell that was added; 0 for others, and for a null table. */
qx_long UTILcell_in_table(cell_table *table, qx_long cell);
/* Returns 1, also for a null table. */
qx_long UTILcell_table_delete(cell_table *table);

/* An empty stack of cells. capacity: 1024, the nodes of a block. */
cell_list *UTILinit_cell_list(int capacity);
/* Puts count cells on the stack, the last one on top. Memory comes a block at a time, before the last spare
 * node is taken. Returns 1; 0 where a block could not be had, the cells before that on the stack. */
qx_long UTILadd_cell_to_list(cell_list *list, int count, const qx_long *cells);
/* Takes the top cell off; read it from list->top->cell first. Returns 1. */
qx_long UTILrm_cell_from_list(cell_list *list);
/* Releases a stack with all its blocks. Returns 1. */
qx_long UTILdelete_cell_list(cell_list *list);

typedef qx_long (*slice_cell_func)(mesh_info *mesh, int set, int null_flag, unsigned char *flags,
                                   edge_table *table, qx_long **connect, qx_long *used, qx_long *capacity,
                                   qx_long **cell_map);

int UTILisosurf(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                qx_long **line_conn, qx_long *nline_conn, qx_long *ntri, qx_long **tri_conn,
                qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map);
int UTILslice_cells(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                    double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                    qx_long **line_conn, qx_long *nline_conn, qx_long *ntri, qx_long **tri_conn,
                    qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map);
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
int UTILiso_trace(mesh_info *mesh, const float *seed, const void *data, int data_type, int null_flag,
                  const void *null_value, const blk_tbl *tbl, double *level, qx_long *nnodes_out,
                  qx_long **min_node, qx_long **max_node, qx_long *nprim, qx_long **conn, qx_long *nconn);
int UTILisoline_trace(mesh_info *mesh, const float *seed, const void *data, int data_type, int null_flag,
                      const void *null_value, const blk_tbl *tbl, double *level, qx_long *nnodes_out,
                      qx_long **min_node, qx_long **max_node, qx_long *nprim, qx_long **conn, qx_long *nconn);
int UTILlines_to_chains(qx_long *lines, qx_long n, qx_long nnodes);
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
