/* Point location and sampling: block tables, cells that hold a point, data at points. */
#ifndef SKOKLANA_LOCATE_H
#define SKOKLANA_LOCATE_H

#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

struct blk_tbl {
    qx_long *blocks;
    qx_long nblocks;
    int nblk;
    int nspace;
    float min_ext[3];
    float max_ext[3];
    qx_long *cell_list;
    qx_long *next_list;
    qx_long list_size;
    qx_long list_grow;
    qx_long list_used;
    int owns_lists;
};

struct blk_tbl_unif {
    qx_long *blocks;
    qx_long nblocks;
    qx_long dims[3];
    float min_ext[3];
    float max_ext[3];
    qx_long *cell_list;
    qx_long *next_list;
    qx_long list_size;
    qx_long list_grow;
    qx_long list_used;
    int owns_lists;
};

int UTILinterp_init(mesh_info *mesh, blk_tbl **out);
int UTILinterp_init_struct(mesh_info *mesh, blk_tbl **out);
int UTILinterp_init_unif(mesh_info *mesh, blk_tbl **out);
int UTILinterp_init_rect(mesh_info *mesh, blk_tbl **out);
int UTILinterp_init_alloc(qx_long ncells, int nspace, blk_tbl **out);
int UTILinterp_init2(mesh_info *mesh, const float *xform, int ndim, const qx_long *dims, int naxes,
                     const float *min, const float *max, int single, blk_tbl_unif **out);
int UTILinterp_init_struct2(mesh_info *mesh, const float *xform, int ndim, const qx_long *dims, int naxes,
                            const float *min, const float *max, int single, blk_tbl_unif **out);
int UTILinterp_init_alloc2(int ncells, int ndim, const qx_long *dims, blk_tbl_unif **out);
int UTILinterp_end2(blk_tbl_unif *t);

int UTILfind_cell(mesh_info *mesh, const blk_tbl *tbl, const float *point, qx_long *cell, float *uvw);
int UTILfind_cell_unif(mesh_info *mesh, const blk_tbl *tbl, const float *point, qx_long *cell, float *uvw);
int UTILfind_cell_rect(mesh_info *mesh, const blk_tbl *tbl, const float *point, qx_long *cell, float *uvw);
int UTILinterp_cell_uvw(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                        float *uvw);
int UTILinterp_cell_uvw_struct(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                               float *uvw);
int UTILinterp_cell_uvw_unif(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                             float *uvw);
int UTILinterp_cell_uvw_rect(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                             float *uvw);
int UTILget_cell_id(mesh_info *mesh, qx_long cell, qx_long *local, int *set);

int UTILinterpolate_data(qx_long npts, const float *points, int nspace, const float *xform, mesh_info *mesh,
                         const blk_tbl *tbl, int ncomp, int data_type, const int *veclens, void **data,
                         void *min_values, void *max_values, int *null_flags, void *null_values, int set_null,
                         double null_fill, void **out);
int UTILinterpolate_cell_data(qx_long npts, const float *points, int nspace, const float *xform,
                              mesh_info *mesh, const blk_tbl *tbl, const int *set_map, int data_type,
                              int veclen, void **data, void *min_values, void *max_values, int *null_flag,
                              void *null_value, void *out);
int UTILinterpolate_data_to_unif(qx_long npts, const float *points, int nspace, const float *xform,
                                 mesh_info *mesh, const blk_tbl_unif *tbl, int ncomp, int data_type,
                                 const int *veclens, void **data, void *null_values, int *null_flags,
                                 int single, void **out);
int UTILinterpolate_cell_data_to_unif(qx_long npts, const float *points, int nspace, const float *xform,
                                      mesh_info *mesh, const blk_tbl_unif *tbl, const int *set_map,
                                      int data_type, int veclen, void **data, int *null_flag,
                                      void *null_value, int single, void *out);

SKOKLANA_END
#endif
