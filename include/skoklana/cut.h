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

qx_long UTILnode_thresh(qx_long nnodes, int data_type, const void *data, int null_flag,
                        const void *null_value, double level, int direction, qx_long *map);
qx_long UTILnode_thresh2(qx_long nnodes, int data_type, const void *data, int null_flag,
                         const void *null_value, double lo, double hi, qx_long *map);
qx_long UTILnnode_thresh_struct(int ndim, const qx_long *dims, const void *data, int data_type, int null_flag,
                                const void *null_value, double level, int direction);
qx_long UTILnode_thresh_struct(qx_long nnodes, const void *data, int data_type, int null_flag,
                               const void *null_value, double level, int direction, qx_long base,
                               qx_long *count, qx_long *list, qx_long *map);
qx_long UTILnode_thresh_null(qx_long nnodes, int data_type, const void *data, const void *null_value,
                             qx_long *map);
int UTILthresh_null(mesh_info *mesh, const void *data, int data_type, const void *null_value, qx_long *nkept,
                    qx_long **map, void *out0, void *out1, void *out2, void *out3);
int UTILthresh_null_cells(mesh_info *mesh, const void *data, int data_type, const void *null_value,
                          qx_long *nkept, qx_long **map, qx_long **cell_list, qx_long *ncells, qx_long **conn,
                          qx_long *conn_size);
int UTILthresh_null_struct(mesh_info *mesh, const void *data, int data_type, const void *null_value,
                           qx_long *nkept, qx_long **node_list, qx_long **conn, qx_long *ncells,
                           qx_long *conn_size);
int UTILcells_from_nlist(mesh_info *mesh, int set, qx_long nkept, const qx_long *map, qx_long **cell_list,
                         qx_long *ncells, qx_long **conn, qx_long *conn_size);
int UTILthresh_null_from_cells(mesh_info *mesh, int set, const void *data, int data_type,
                               const void *null_value, qx_long *ncells, qx_long **conn, qx_long *conn_size);

SKOKLANA_END
#endif
