/* Threads: how many there are to be, division of a mesh among them, and operations that start them. */
#ifndef SKOKLANA_THREAD_H
#define SKOKLANA_THREAD_H

#include <skoklana/containers.h>
#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

/* An operation that starts threads is told how many: nthreads, of which a number below 1 is taken as 1. No
 * operation looks at a setting, and none starts a thread but those that say so. Threads end within the call
 * that started them. They share what is read, and own what they write: results are put together by the thread
 * that called, in the order of the shares, so that they are the same on every run. A thread makes no call of
 * the host, unless the operation says so; status calls, reports and host arrays are the caller's thread's. A
 * thread that can't be started has its share done by the caller's. */

/* ---- how many ------------------------------------------------------------------------------------------ */

/* Settles how many threads there are to be and stores it in the host's setting "Templates.CONFIG.num_threads";
 * a host without that setting learns nothing. To be called once, at the start.
 *
 * The number is that of the environment variable QX_NUM_THREADS, read by atoi: a text that is no number, and
 * an empty one, give 0, and a number below 1 is stored as it stands. Without the variable it is the host's
 * count of processors, and 1 where the host can't tell. More than 16 become 16. */
void DVmt_init(void);

/* ---- division ------------------------------------------------------------------------------------------ */

/* Whether a field has cell sets: 1; 0 for a structured field, which has dims. */
int UTILmt_check_isUCD(OMobj_id field_id);

/* Shares of a number of things, in order: equal ones, and one more for each of the first threads as far as the
 * remainder goes. Ten by three are 4, 3, 3; two by three are 1, 1, 0.
 *
 * number   0 or more
 * shares   out, nthreads entries; none is written where nthreads is below 1
 *
 * Returns 1. */
int UTILmt_divide_number(int nthreads, qx_long number, qx_long *shares);

/* Makes a record of a mesh for each thread, with the sizes of its share.
 *
 * out   out, nthreads entries: new records, each to be released by UTILmt_free_divided_mesh_info. They own
 *       their arrays, but for the field's id, which is the mesh's
 *
 * A structured mesh, which is one whose field has dims, is divided along its last axis: neighbours share a
 * plane of nodes. A piece has ndim, three dims, the last ones 1, and nnodes; of a mesh with compact points it
 * has two corners, whatever the mesh's points are, so that those of a rectilinear mesh mean nothing. Cell sets
 * are divided set by set: a piece has, for each, its share of cells, numbered from 0 on, nnodes, ndim and order
 * of the cells, empty entries for connect lists and positions, and ncells in all. Nothing else is set: there are
 * no methods, no coordinates, no box, and of the functions of the cells a piece holds only the first ones, one
 * entry a set, of the first set's row.
 *
 * Returns 1; 0 with a report under "UTILmt": "dims[ndim-1] is too small to be divided.", if there are fewer
 * cells along the last axis than threads, out being left as it was, and "cannot allocate out array." for out
 * NULL, and where there is no memory, the entries made so far being NULL then. */
int UTILmt_create_divided_mesh_info(mesh_info *mesh, mesh_info **out, int nthreads);

/* Releases one record of UTILmt_create_divided_mesh_info with all its arrays, those included that have been
 * put into it since, all by free. Returns 1; 0 for NULL. */
int UTILmt_free_divided_mesh_info(mesh_info *mesh);

/* ---- edge tables --------------------------------------------------------------------------------------- *
 *
 * The tables of containers.h for threads: the same numbers for the same edges, with all arrays from the C
 * library, and given up to plain free. Each belongs to one thread. */

typedef struct mt_edge_table {
    int *heads;       /* nbuckets entries: 1 + the newest edge of each lower node, 0 for none */
    int *next;        /* capacity entries: next[e + 1] is 1 + the edge behind edge e, 0 at the end */
    qx_long *lo, *hi; /* capacity entries: lower and upper node of each edge */
    qx_long nbuckets;
    int capacity; /* 1024 at first */
    int count;    /* edges held */
    int grow;     /* what the next growth adds: 1024, 1536, 2304, ..., each half as much again */
} mt_edge_table;

typedef struct mt_edge_table_str {
    int *heads;        /* nbuckets entries: the newest chain entry of each lower node, 0 for none */
    int *next;         /* chain_capacity entries: the chain entry behind each, 0 at the end */
    int *edge_of;      /* chain_capacity entries: edge_of[c - 1] is the edge of chain entry c */
    qx_long *lo, *hi;  /* edge_capacity entries: lower and upper node of each edge */
    int edge_capacity; /* of lo and hi */
    int count;         /* edges held, those that the window has left behind included */
    qx_long nbuckets;
    int chain_capacity; /* of next and edge_of */
    int chain_next;     /* the next unused chain entry, 1 at first */
    int grow;           /* what the next growth adds to either kind of array; then half as much again */
} mt_edge_table_str;

/* An empty table. nbuckets: more than the largest lower node number. NULL: no memory. */
mt_edge_table *UTILmt_edge_table_create(qx_long nbuckets);
/* An empty table for a window of nodes. capacity: the first one of all lists, also the first growth, 1 or
 * more. NULL: no memory. */
mt_edge_table_str *UTILmt_edge_table_create_str(qx_long nbuckets, int capacity);
/* Numbers n edges by their nodes a and b, in either order; ids is out, n entries. Returns 1, also where there
 * was no memory for an edge, whose id is -1 then; -1 for a null table. */
qx_long UTILmt_edge_table_add_points(mt_edge_table *table, const qx_long *a, const qx_long *b, int n,
                                     int *ids);
/* The same within a window, whose first node is base. Returns 1; 0 where there was no memory, with the id of
 * that edge -1 and those behind it not written: the table may only be released then; -1 for a null table. */
qx_long UTILmt_edge_table_add_str(mt_edge_table_str *table, const qx_long *a, const qx_long *b, qx_long base,
                                  int n, int *ids);
/* Moves the window on by n buckets, as UTILedge_table_clean does: edges of the lowest n buckets keep their ids
 * and are not found again, the uppermost n buckets keep what they held. An n above nbuckets is taken as
 * nbuckets. Returns 1; -1 for a null table. */
qx_long UTILmt_edge_table_clean(mt_edge_table_str *table, qx_long n);
/* Ends a table and hands its lists over. Returns 1; 0 for a null table, outputs as they were. */
qx_long UTILmt_edge_table_get_free(mt_edge_table *table, qx_long **lo, qx_long **hi, qx_long *count);
qx_long UTILmt_edge_table_free_str(mt_edge_table_str *table, qx_long **lo, qx_long **hi, qx_long *count);
/* Ends a table with its lists. Returns 1, also for NULL. */
qx_long UTILmt_edge_table_delete(mt_edge_table *table);
qx_long UTILmt_edge_table_delete_str(mt_edge_table_str *table);

/* ---- isosurfaces of cell sets ---------------------------------------------------------------------------- */

/* What a thread is given that extracts from some cells of a set, and what it fills. A program that has threads of
 * its own may call the workers below too: with lists, counts and a table that no one else uses meanwhile. */
typedef struct thread_slice_arg {
    qx_long first, last;        /* cells of the set, both included; none if last is below first */
    int cell_nnodes;            /* nodes a cell */
    const qx_long *connect;     /* the set's list: the row of cell 0, whatever first is */
    int null_check;             /* not 0: cells with a node of flag 2 are left out */
    const unsigned char *flags; /* a byte a node: 1 at or above the level, 0 below, 2 null */
    mt_edge_table *edges;       /* numbers the new nodes, from its count on; NULL after a failure */
    qx_long **conn;             /* the list of new nodes to append to, 3 a triangle; from the C library */
    qx_long *conn_used;         /* entries in use */
    qx_long *conn_cap;          /* entries there is room for; 0, or *conn NULL: a list is begun */
    qx_long **cells;     /* NULL, or pointing to NULL: not wanted. Otherwise a list of 1024 entries: the
                                 * cell of each triangle that is made, by its number within the set */
    qx_long *cells_used; /* out: entries written; as it was where they are not wanted */
} thread_slice_arg;

/* Extracts from the cells of a thread_slice_arg, without a call of the host. A list grows as those of the kernels
 * of iso.h do, by the C library.
 *
 * Returns arg. Where a list or the table can't grow, NULL, after "realloc for cell list failed", "realloc for
 * connect list failed", "realloc for edge table failed" or "alloc for connect list failed" under "UTILslice": the
 * only call of the host, made by the thread. The table is gone then, the lists hold what was made so far. */
void *thread_func_slice_tet(void *arg);
void *thread_func_slice_hex(void *arg);
void *thread_func_slice_prism(void *arg);
void *thread_func_slice_pyr(void *arg);

/* The kernels of iso.h by threads, each of which has a share of the set's cells, in order. What they make is
 * appended in this order: triangles to connect, cells to cell_map from its start, edges to the table.
 *
 * A new node has the number that its thread gave it. Threads count from 0, and so does each call: with one thread
 * and an empty table triangles and table are those of the kernel, otherwise a number stands for several new nodes,
 * and an edge that two threads see stands in the table twice. Who needs one numbering takes one thread.
 *
 * table   the edges behind those it has, not to be found by their nodes; its lists come from the C library then
 *
 * Returns the triangles of this call; 0, with everything as it was, also with the reports "unable to get cell set
 * connect list" under "fld_info", "cannot alloc thread argment array." under "UTILmt_slice", or under "UTILslice"
 * what else there was no memory for. A share whose thread fails contributes the triangles that it has made, but no
 * edges. Table and flags stay the caller's. Status calls are made with 20 and 90 percent, and stop nothing. */
qx_long UTILmt_slice_tet(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags,
                         edge_table *table, qx_long **connect, qx_long *used, qx_long *capacity,
                         qx_long **cell_map);
qx_long UTILmt_slice_hex(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags,
                         edge_table *table, qx_long **connect, qx_long *used, qx_long *capacity,
                         qx_long **cell_map);
qx_long UTILmt_slice_prism(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags,
                           edge_table *table, qx_long **connect, qx_long *used, qx_long *capacity,
                           qx_long **cell_map);
qx_long UTILmt_slice_pyr(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags,
                         edge_table *table, qx_long **connect, qx_long *used, qx_long *capacity,
                         qx_long **cell_map);

/* UTILslice_cells by nthreads threads, set by set, and block by block of a set of second order.
 *
 * Sets of volume cells take part, by the type that the field tells (FLDget_cell_type): tetrahedra, hexahedra,
 * prisms and pyramids, of either order. Others make nothing, with a count of 0 in their entry of cell_map_count;
 * there are no lines. New nodes are numbered as by the kernels above: for one numbering there must be one thread
 * and one first-order set. A set whose connect list can't be had, or for whose threads there is no memory, is
 * reported and makes nothing.
 *
 * Returns and reports as UTILslice_cells otherwise. */
int UTILmt_slice_cells(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                       const void *null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                       qx_long **max_node, qx_long *nline, qx_long **line_conn, qx_long *nline_conn,
                       qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count,
                       qx_long **cell_map);

/* UTILmt_slice_cells for a mesh whose ndim is 0, UTILmt_slice_struct for others. */
int UTILmt_isosurf(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                   const void *null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                   qx_long **max_node, qx_long *nline, qx_long **line_conn, qx_long *nline_conn,
                   qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count,
                   qx_long **cell_map);

/* ---- isosurfaces of structured meshes -------------------------------------------------------------------- */

/* UTILslice_struct by nthreads threads: slabs of the last axis, a thread each. What comes out is the same, entry
 * by entry, whatever the number of threads. Arguments and outputs are those of UTILslice_struct.
 *
 * A mesh of two axes is done by UTILisoline_struct, without threads and with its results. One of three axes needs
 * as many cells along the last axis as there are threads, one at the least. Status calls are made with 20, 90
 * and 100 percent, and can't stop the operation.
 *
 * Returns 1; 0 without a report for less than two axes, an unknown type, and a mesh whose field has no dims; 0
 * with "dims[ndim-1] is too small to be divided." under "UTILmt", "cannot allocate array" under "UTILmt_slice",
 * or, with byte for the type, "alloc for min,max_nlist failed", "alloc for nlist failed" or "alloc for cell_ind[0]
 * failed" under "UTILmt_slice_str_byte", "realloc for cell list failed" or "realloc for connect list failed" under
 * "thread_func_slice_str_byte", and, for all types, "realloc for min,max_nlist failed" under
 * "UTILmt_slice_str_float". All counts are 0 then, all lists NULL, and nothing is left behind. For its flags it
 * asks the host to make room, by ERRout_of_memory with "Cannot alloc flags array", until it gets it.
 *
 * Takes working memory of a bit for each node, two bits where there are nulls, and two planes a thread; with one
 * thread that of UTILslice_struct, whose time it takes then. */
int UTILmt_slice_struct(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                        const void *null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                        qx_long **max_node, qx_long *nline, qx_long **line_conn, qx_long *nline_conn,
                        qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count,
                        qx_long **cell_map);

/* The same for three axes and data of one type; for others than three axes 0 without a report. The null value is
 * not looked at without a null_flag. */
int UTILmt_slice_str_char(int nthreads, mesh_info *mesh, const signed char *data, int null_flag,
                          signed char null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                          qx_long **max_node, qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn,
                          qx_long *cell_map_count, qx_long **cell_map);
int UTILmt_slice_str_byte(int nthreads, mesh_info *mesh, const unsigned char *data, int null_flag,
                          unsigned char null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                          qx_long **max_node, qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn,
                          qx_long *cell_map_count, qx_long **cell_map);
int UTILmt_slice_str_short(int nthreads, mesh_info *mesh, const short *data, int null_flag, short null_value,
                           double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node,
                           qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count,
                           qx_long **cell_map);
int UTILmt_slice_str_int(int nthreads, mesh_info *mesh, const int *data, int null_flag, int null_value,
                         double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node,
                         qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count,
                         qx_long **cell_map);
int UTILmt_slice_str_float(int nthreads, mesh_info *mesh, const float *data, int null_flag, float null_value,
                           double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node,
                           qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count,
                           qx_long **cell_map);
int UTILmt_slice_str_double(int nthreads, mesh_info *mesh, const double *data, int null_flag,
                            double null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                            qx_long **max_node, qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn,
                            qx_long *cell_map_count, qx_long **cell_map);
int UTILmt_slice_str_qx_long(int nthreads, mesh_info *mesh, const qx_long *data, int null_flag,
                             qx_long null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                             qx_long **max_node, qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn,
                             qx_long *cell_map_count, qx_long **cell_map);
/* What the threads of these run. The record is the library's own affair: nobody else calls them. */
void *thread_func_slice_str_char(void *arg);
void *thread_func_slice_str_byte(void *arg);
void *thread_func_slice_str_short(void *arg);
void *thread_func_slice_str_int(void *arg);
void *thread_func_slice_str_float(void *arg);
void *thread_func_slice_str_double(void *arg);
void *thread_func_slice_str_qx_long(void *arg);

/* ---- cuts of cell sets ------------------------------------------------------------------------------------- */

/* What a thread is given that cuts some cells of a set, and what it fills. Lists have the numbers of cut.h: 0
 * tetrahedra, 1 prisms, 2 pyramids, 3 hexahedra, 4 triangles, 5 quadrilaterals, 6 lines. A program that has
 * threads of its own may call the workers below too: with lists and a table that no one else uses meanwhile. */
typedef struct thread_cut_arg {
    qx_long first, last;        /* cells of the set, both included; none if last is below first */
    int ncase;                  /* the case of a whole cell: 3 line, 7 tri, 15 quad and tet, 31 pyr, 63 prism,
                                 * 255 hex. Each worker knows its own */
    int cell_nnodes;            /* nodes a cell */
    const qx_long *connect;     /* the set's list: the row of cell 0, whatever first is */
    int null_check;             /* not 0: cells with a node of flag 2 are left out */
    const unsigned char *flags; /* a byte a node: 1 at or above the level, 0 below, 2 null */
    int direction;              /* below 0: nodes below the level are kept, otherwise those of flag 1 */
    qx_long base;               /* retained nodes: new ones are numbered behind them */
    const qx_long *node_map;    /* the numbers of retained nodes */
    mt_edge_table *edges;       /* numbers the new nodes, from its count on; NULL after a failure */
    qx_long *ncells;            /* 7 counts to add to; threads may have them in common, see below */
    qx_long *conn[7];      /* lists to append to, from the C library; NULL, or conn_cap 0: begun if needed */
    qx_long conn_used[7];  /* entries in use */
    qx_long cell_cap[7];   /* entries there is room for in cells */
    qx_long conn_cap[7];   /* entries there is room for in conn */
    qx_long *cells[7];     /* the cell of each output cell, by its number within the set, appended to; not
                                 * made where one of the two lists that the kind of cell goes to is NULL */
    qx_long cells_used[7]; /* entries in use */
} thread_cut_arg;

/* Cuts the cells of a thread_cut_arg, without a call of the host.
 *
 * To ncells each thread adds what it has made once, at its end, without a lock: where threads have the counts in
 * common, some of it may be lost, and the lengths of the lists tell how many cells there are.
 *
 * Returns arg. Where a list or the table can't grow, NULL, after "realloc for connect list failed", "realloc for
 * cell list failed", "realloc for edge table failed" or "alloc for connect list failed" under "UTILmt_cut": the only
 * call of the host, made by the thread. The table is gone then, the lists hold what was made so far. */
void *thread_func_cut_hex(void *arg);
void *thread_func_cut_line(void *arg);
void *thread_func_cut_prism(void *arg);
void *thread_func_cut_pyr(void *arg);
void *thread_func_cut_quad(void *arg);
void *thread_func_cut_tet(void *arg);
void *thread_func_cut_tri(void *arg);

/* The kernels of cut.h (cut_cell_func) by threads, each of which has a share of the set's cells, in order. What they
 * make is appended in this order, edges to the table too.
 *
 * A new node has the number nold + e, with e the number that its thread gave it. Threads count from 0, and so does
 * each call: with one thread and an empty table lists and table are those of the kernel, otherwise a number stands
 * for several new nodes, and an edge that two threads see stands in the table twice. Who needs one numbering takes
 * one thread, or UTILcut_cells. cut_ncells may come out low, with more than one thread, as told above.
 *
 * capacity   7 entries; a list that has capacity 0, or is NULL, is begun with 1024
 * grow       7 entries; 1024 for a list that is begun, not read
 * cell_map   lists of the set at 7 * set, made if NULL; counted on from cell_map_count, in the same place
 * table      the edges behind those it has, not to be found by their nodes; its lists come from the C library then
 *
 * Returns 1; 0 with "unable to get cell set connect list" under "fld_info", all being as it was. Without memory
 * the result is 1 too, with "cannot alloc thread argment array." under the function's own name, or with what there
 * is no memory for under "UTILmt_cut"; nothing is appended then. A share whose thread fails contributes the cells
 * that it has made, but no edges. Table and flags stay the caller's. Status calls are made with 20, 90 and 100
 * percent, of which the last one alone if no thread is started, and stop nothing. */
int UTILmt_cut_hex(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side,
                   qx_long nold, const qx_long *node_map, edge_table *table, qx_long *cut_ncells,
                   qx_long **cut_conn, qx_long *cut_nconn, qx_long *capacity, qx_long *grow,
                   qx_long *cell_map_count, qx_long **cell_map);
int UTILmt_cut_line(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side,
                    qx_long nold, const qx_long *node_map, edge_table *table, qx_long *cut_ncells,
                    qx_long **cut_conn, qx_long *cut_nconn, qx_long *capacity, qx_long *grow,
                    qx_long *cell_map_count, qx_long **cell_map);
int UTILmt_cut_prism(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side,
                     qx_long nold, const qx_long *node_map, edge_table *table, qx_long *cut_ncells,
                     qx_long **cut_conn, qx_long *cut_nconn, qx_long *capacity, qx_long *grow,
                     qx_long *cell_map_count, qx_long **cell_map);
int UTILmt_cut_pyr(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side,
                   qx_long nold, const qx_long *node_map, edge_table *table, qx_long *cut_ncells,
                   qx_long **cut_conn, qx_long *cut_nconn, qx_long *capacity, qx_long *grow,
                   qx_long *cell_map_count, qx_long **cell_map);
int UTILmt_cut_quad(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side,
                    qx_long nold, const qx_long *node_map, edge_table *table, qx_long *cut_ncells,
                    qx_long **cut_conn, qx_long *cut_nconn, qx_long *capacity, qx_long *grow,
                    qx_long *cell_map_count, qx_long **cell_map);
int UTILmt_cut_tet(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side,
                   qx_long nold, const qx_long *node_map, edge_table *table, qx_long *cut_ncells,
                   qx_long **cut_conn, qx_long *cut_nconn, qx_long *capacity, qx_long *grow,
                   qx_long *cell_map_count, qx_long **cell_map);
int UTILmt_cut_tri(int nthreads, mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side,
                   qx_long nold, const qx_long *node_map, edge_table *table, qx_long *cut_ncells,
                   qx_long **cut_conn, qx_long *cut_nconn, qx_long *capacity, qx_long *grow,
                   qx_long *cell_map_count, qx_long **cell_map);

/* UTILcut_cells, on the thread that calls: a mesh's cut has one numbering. nthreads is not looked at. */
int UTILmt_cut_cells(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                     const void *null_value, double level, int side, qx_long *nold, qx_long **node_map,
                     qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *cut_ncells,
                     qx_long **cut_conn, qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);

/* ---- cuts of structured meshes ------------------------------------------------------------------------------ */

/* UTILcut_struct_3d by nthreads threads: slabs of the last axis, a thread each; fewer where there are fewer planes
 * of cells. What comes out is the same, entry by entry, whatever the number of threads, but for this: an edge in the
 * plane between two slabs that only cells above it have, those below being left out for their nulls, is refused
 * with "Connection wrong", and where slabs meet depends on their number. Arguments and outputs are those of
 * UTILcut_struct_3d; maps of lists that are empty may be NULL.
 *
 * Returns 1; 0 without a report for other than three axes, with outputs as they were; 0 with "unknown data type"
 * under "UTILnnode_thresh_struct", "Connection wrong" or "alloc thread arrays failed" under "UTILmt_cut_struct_3d", or
 * under "mt_isovolume" "realloc for cell list failed", "failed to alloc thread info struct array" or "failed to alloc
 * nlist.". All counts are 0 then, all lists NULL, and nothing is left behind. For its flags it asks the host to make
 * room, by ERRout_of_memory with "Cannot alloc flags array", until it gets it. Status calls are made with 20, 90 and
 * 100 percent, and can't stop the operation.
 *
 * Takes working memory of a bit for each node, two bits where there are nulls, and some planes a thread; with one
 * thread that of UTILcut_struct_3d, whose time it takes then. */
int UTILmt_cut_struct_3d(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                         const void *null_value, double level, int side, qx_long *nold, qx_long **old_nodes,
                         qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *cut_ncells,
                         qx_long **cut_conn, qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);
/* UTILcut_struct_2d, on the thread that calls. nthreads is not looked at. */
int UTILmt_cut_struct_2d(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                         const void *null_value, double level, int side, qx_long *nold, qx_long **old_nodes,
                         qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *cut_ncells,
                         qx_long **cut_conn, qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);
/* The one for the mesh's number of axes; 0 for other numbers than 2 and 3, with outputs as they were. */
int UTILmt_cut_struct(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
                      const void *null_value, double level, int side, qx_long *nold, qx_long **old_nodes,
                      qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *cut_ncells,
                      qx_long **cut_conn, qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);
/* What the threads of UTILmt_cut_struct_3d run. The record is the library's own affair: nobody else calls it. */
void *thread_func_cut_str_3d(void *arg);

/* UTILmt_cut_cells for a mesh whose ndim is 0, UTILmt_cut_struct for others. */
int UTILmt_cut(int nthreads, mesh_info *mesh, const void *data, int data_type, int null_flag,
               const void *null_value, double level, int side, qx_long *nold, qx_long **node_map,
               qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *cut_ncells,
               qx_long **cut_conn, qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);

/* ---- scattered data ------------------------------------------------------------------------------------------ */

/* What a thread is given that spreads scattered values over some planes of a grid's last axis. */
typedef struct thread_scat_arg {
    qx_long nnodes;                       /* points */
    int nspace;                           /* floats from point to point */
    const float *coords;                  /* of the points */
    int veclen;                           /* components a point */
    const double *data;                   /* veclen values a point */
    const float *min_extent, *max_extent; /* the grid's box */
    int ndim;                             /* the grid's axes, 1 to 3 */
    const qx_long *dims;                  /* nodes along each */
    const int *radius;                    /* of a point's window along each axis, none of them 0 */
    int power;                            /* of the distance */
    double *acc;                          /* veclen sums a node, from the first node of the planes on */
    double *weight;       /* a weight a node, likewise; 0 where no point has reached the node, and
                                           * the sums are of no meaning then */
    double threshold;     /* squared distance below which a point is on a node */
    const int *null_flag; /* not 0: points whose first component is null_value are left out */
    double null_value;
    qx_long first, last; /* the planes, both included; none if last is below first */
    qx_long offset;      /* nodes of the grid before the planes */
} thread_scat_arg;

/* UTILscat_data_interp2 by nthreads threads: slabs of the grid's last axis, a thread each, and no more of them than
 * there are planes. The result does not depend on their number. It is that of UTILscat_data_interp2, but that null
 * values are told by comparing doubles, which takes some values of DTYPE_QX_LONG beyond 2^53 for the null value.
 *
 * The arguments are those of UTILscat_data_interp2. There are no status calls: it can't be stopped.
 *
 * Returns 1; 0 without a report for an unknown type; 0 with "illegal ndim" or "cannot allocate arrays" under
 * "UTILmt_scat_interp", all outputs and radius being as they were.
 *
 * Takes working memory of 8 bytes for each value, of points and of the grid, and 8 a node of the grid. */
int UTILmt_scat_data_interp2(int nthreads, qx_long nnodes, int nspace, const float *coords, int dtype,
                             int veclen, const void *data, const float *min_extent, const float *max_extent,
                             int ndim, const qx_long *dims, int *radius, int power, int *null_flag,
                             const void *null_value, void *out);
/* What its threads run: adds the points to a thread_scat_arg's sums and weights, in their order. Returns arg. */
void *thread_func_scat_data_interp(void *arg);

/* ---- sampling -------------------------------------------------------------------------------------------------- */

/* UTILinterpolate_data and UTILinterpolate_cell_data for threads of the caller's, who shares out the points: each
 * thread calls with its own points, outputs, null flags and null values. No thread is started and no status call
 * made, so that a call can't be stopped. All else is as there, the reports under the names there included.
 *
 * Mesh and table are read by all threads at a time. So the mesh must have what is fetched on demand before the first
 * call: coordinates or points, and the connect lists of its sets. Functions that a host has bound must stand it, too.
 *
 * min_values   not read; may be NULL */
int UTILmt_interpolate_data(qx_long npts, const float *points, int nspace, const float *xform,
                            mesh_info *mesh, const blk_tbl *tbl, int ncomp, int data_type, const int *veclens,
                            void **data, void *min_values, void *max_values, int *null_flags,
                            void *null_values, int set_null, double null_fill, void **out);
int UTILmt_interpolate_cell_data(qx_long npts, const float *points, int nspace, const float *xform,
                                 mesh_info *mesh, const blk_tbl *tbl, const int *set_map, int data_type,
                                 int veclen, void **data, void *min_values, void *max_values, int *null_flag,
                                 void *null_value, void *out);

SKOKLANA_END
#endif
