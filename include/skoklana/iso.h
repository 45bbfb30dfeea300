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
