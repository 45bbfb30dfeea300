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

/* ---- data at points ---------------------------------------------------------------------------------- *
 *
 * Each point is located in the mesh. Node data is interpolated in the cell found, by the mesh's
 * interp_data_func; cell data is that of the cell, copied as it stands. A point outside the mesh, or in a
 * cell that has no value, gets a null value in all elements of its row; that is no failure.
 *
 * The two forms differ in how points are located. The plain form runs the mesh's find_cell_func and takes
 * points anywhere. The _to_unif form looks a point up in the table of a lattice and tries the cells listed at
 * the nearest node: it is for points that are the nodes of that lattice, all or some of them, whose lists
 * hold just the cells that can matter. A point halfway between two nodes belongs to the lower one, and one
 * that is beyond the lattice by a node or more lies outside.
 *
 * Arguments of several of them:
 *
 * npts, points      npts rows of nspace floats, nspace 1 to 3; missing coordinates are 0
 * xform             4 x 4, as MATvec3_mat4_multiply takes it: from the points' space into that of the mesh;
 *                   NULL: they are the same. The _to_unif forms look points up as they are given and try
 *                   cells where the matrix takes them, so theirs is the inverse of the matrix that the
 *                   table was built with
 * mesh              in the plain forms with find_cell_func and, for node data, interp_data_func; in the
 *                   _to_unif forms with interp_cell_func unless single is set, and with interp_data_func
 *                   once a value is to be interpolated
 * tbl               the mesh's table: of interp_init_func for the plain forms (NULL for uniform and
 *                   rectilinear meshes), of UTILinterp_init2 or UTILinterp_init_struct2 for the others
 * data_type         of data, null values and results alike
 * ncomp, veclens    node data: components that are sampled together, and the length of a row of each
 * data              node data: for each component nnodes rows. Cell data: arrays with a row for each cell
 *                   of a set, by number within the set
 * set_map           cell data, by cell set: the index of its array in data; negative: the set has none, and
 *                   points in it get the null value. On structured meshes the cell goes by the number of its
 *                   lowest node, and that number is looked up like any other: cells whose node is beyond the
 *                   set's count have no row
 * min_values        not read; may be NULL
 * max_values        the largest value of each component, one element a component
 * null_flags        in and out, one a component: not 0 on entry: the data may hold the component's null
 *                   value; on return: as on entry, or 1 where a row was filled with null. null_flag is the
 *                   same for cell data
 * null_values       slots of 8 bytes, one a component, with one element of data_type at the start of each.
 *                   null_value is one such slot, for cell data
 * out               npts rows for each component; handed in by the caller, overlaps no input
 *
 * Null values. Of node data a row is null whose cell has a node with the null value in its first element, if
 * the flag on entry says that there may be such. The plain forms give a component that came with flag 0 a
 * null value of its own, and write it to the slot before the first point: 0 for rows of two and more, for
 * scalars one above max_values. That wraps round at the end of an integer type: of bytes up to 255 it is 0.
 * max_values is read for such scalars alone. The _to_unif forms take the slots as they are.
 *
 * Precision. Node data is interpolated in float, whatever its type, and truncated towards zero for the
 * integer types; the search ends up to a twentieth of a cell's parameters from the point, unless the cell's
 * mapping is exact. qx_long and double values keep 24 bits. Use single, or cell data, for values that must
 * come through unchanged.
 *
 * Reports. Each gives 1; 0 and "unknown data type" under its own name for a code that is none. An unfetchable
 * coordinate or connect list is reported at each point that needs it and leaves that point outside.
 * Interruption is looked for every 257th point of node data, every 1025th in the _to_unif form, and never in
 * cell data. An interrupted operation returns 0: rows of the points before are written, flags are as they
 * were. Memory for flags and one row must be had: the host is asked to make room until there is. What the
 * plain forms allocate beyond that makes the search quicker and can be missed. All of it is released. */

/* Samples node data anywhere.
 *
 * set_null, null_fill   set_null not 0: a scalar component without a null value of its own takes null_fill,
 *                       converted to data_type, in place of one above its largest value
 *
 * Where find_cell_func or interp_data_func is missing: "UTILfind_cell: unable to find interp_cell function"
 * on standard error, 0, and nothing is written. With npts 0 the flags stay and null values are settled. */
int UTILinterpolate_data(qx_long npts, const float *points, int nspace, const float *xform, mesh_info *mesh,
                         const blk_tbl *tbl, int ncomp, int data_type, const int *veclens, void **data,
                         void *min_values, void *max_values, int *null_flags, void *null_values, int set_null,
                         double null_fill, void **out);

/* Samples cell data anywhere.
 *
 * max_values   one element: the largest value of all arrays
 *
 * Where find_cell_func is missing: "UTILfind_cell: unable to find interp_cell function" on standard error, 0,
 * and nothing is written. */
int UTILinterpolate_cell_data(qx_long npts, const float *points, int nspace, const float *xform,
                              mesh_info *mesh, const blk_tbl *tbl, const int *set_map, int data_type,
                              int veclen, void **data, void *min_values, void *max_values, int *null_flag,
                              void *null_value, void *out);

/* Samples node data at the nodes of a lattice.
 *
 * single   not 0, for a table built so: the cell that the node lists is taken without a test, and the row is
 *          that of the cell's node nearest to the point, the first of several, as it stands. A null value
 *          that this node holds is copied like any other and raises no flag. Coordinates or a connect list
 *          that can't be had end the operation with 0
 *
 * Where interp_cell_func is missing: "UTILfind_cell: unable to find interp_cell function" on standard error
 * at each point, and none is located. Where interp_data_func is missing and a value is due:
 * "UTILinterpolate_data: unable to find interp_cell function", 0, flags as they were. */
int UTILinterpolate_data_to_unif(qx_long npts, const float *points, int nspace, const float *xform,
                                 mesh_info *mesh, const blk_tbl_unif *tbl, int ncomp, int data_type,
                                 const int *veclens, void **data, void *null_values, int *null_flags,
                                 int single, void **out);

/* Samples cell data at the nodes of a lattice. Note the order of flag and value, the other way round than for
 * nodes.
 *
 * single   not 0, for a table built so: the cell that the node lists is taken without a test
 *
 * A missing interp_cell_func is reported as for nodes. */
int UTILinterpolate_cell_data_to_unif(qx_long npts, const float *points, int nspace, const float *xform,
                                      mesh_info *mesh, const blk_tbl_unif *tbl, const int *set_map,
                                      int data_type, int veclen, void **data, int *null_flag,
                                      void *null_value, int single, void *out);

SKOKLANA_END
#endif
