/* Point location and sampling: block tables, cells that hold a point, data at points.
 *
 *     blk_tbl *table;
 *     qx_long cell;
 *     float uvw[3];
 *     mesh->methods->interp_init_func(mesh, &table);                       once a mesh
 *     mesh->methods->find_cell_func(mesh, table, point, &cell, uvw);       1: cell and uvw hold the place
 *     mesh->methods->interp_data_func(mesh, cell, ..., uvw, out);          values there
 *
 * cell ids     the number of a cell within the mesh, for cell sets; the number of its lowest node, for
 *              structured meshes of any kind. UTILget_cell_id splits the former
 * parameters   3 floats a point, as the shape functions of the cell's kind take them. A structured cell is
 *              the line, quadrilateral or hexahedron of cell.h over the nodes
 *
 *                  b + 1, b, b + d0, b + d0 + 1, and the four plus d0 * d1
 *
 *              with b its lowest node and d0, d1 the first entries of dims; a line takes the first two, a
 *              quadrilateral the first four. Parameters (u, v, w) along the axes of a rectilinear or uniform
 *              mesh, each from -1 to 1, so are (v, u, -w) to its cell with three axes, and (-u, v) or (-u)
 *              with fewer. Along an axis of one node both sides of a cell are that node
 * points       3 floats, whatever nspace is; the coordinates that a mesh does not have are 0
 * tables       are read only once built, by any number of threads at a time. They hold cell ids and no
 *              pointers into the mesh, and mean something as long as the mesh stays as it was
 *
 * Coordinates, points and connect lists that are still to be fetched are fetched; where that fails the
 * operation has reported it as mesh.h tells. A point in no cell is no failure and is not reported. */
#ifndef SKOKLANA_LOCATE_H
#define SKOKLANA_LOCATE_H

#include <skoklana/mesh.h>
#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- block tables ------------------------------------------------------------------------------------ *
 *
 * A table lists the cells of a mesh by place. Each block has a list of the cells whose bounding boxes reach
 * it. Lists are links through a pool: blocks[b] is the newest entry of block b, cell_list[entry] its cell and
 * next_list[entry] the entry before it; 0 ends a list, and entry 0 is never used. So cells come in the
 * reverse of the order of insertion, which is by set and number, or by lowest node: the highest first. */

/* A regular lattice of blocks over the box of a mesh, for points anywhere. */
struct blk_tbl {
    qx_long *blocks; /* nblocks list heads; 0: an empty block. Block (i, j, k) is (k * nblk + j) * nblk + i */
    qx_long nblocks; /* nblk to the power nspace */
    int nblk;        /* blocks along each axis */
    int nspace;      /* axes, 1 to 3 */
    float min_ext[3];   /* box of the mesh, lower corner; 0 from nspace on */
    float max_ext[3];   /* upper corner */
    qx_long *cell_list; /* list_size entries, those from 1 to list_used - 1 in use: the cell */
    qx_long *next_list; /* list_size entries: the next entry of the block's list; 0 where not in use */
    qx_long list_size;  /* entries that the pool has room for */
    qx_long list_grow;  /* entries that the next growth adds; each growth raises it by half, truncated */
    qx_long list_used;  /* the next free entry; 1 in an empty table */
    int owns_lists;     /* non-zero: blocks, cell_list and next_list are kept by the table */
};

/* The nodes of a uniform lattice, each a block that lists the cells whose boxes cover it. Fields without a
 * comment are those of blk_tbl. */
struct blk_tbl_unif {
    qx_long *blocks;  /* a list head a node; node (i, j, k) is (k * dims[1] + j) * dims[0] + i */
    qx_long nblocks;  /* nodes */
    qx_long dims[3];  /* nodes along each axis; 1 on axes that were not given */
    float min_ext[3]; /* first node; 0 on axes that were not given */
    float max_ext[3]; /* last node */
    qx_long *cell_list;
    qx_long *next_list; /* 0 throughout, and of the first size, in the single mode */
    qx_long list_size;
    qx_long list_grow;
    qx_long list_used;
    int owns_lists;
};

/* Builds the table of a mesh from its coordinates, connect lists and box: UTILinterp_init for cell sets,
 * UTILinterp_init_struct for curvilinear meshes.
 *
 * mesh   min_ext and max_ext hold the mesh. Blocks are counted by them: the position of x on an axis is
 *        (x - min_ext) * (nblk - 1) / (max_ext - min_ext) in float, truncated, and 0 where the box is not
 *        thicker than 1e-30. Of cells that stand out of the box what falls on no block is left out; position
 *        nblk of an axis is the first block of the next row
 * out    the table, handed over. This library has no call that releases it: free its lists with ARRfree_f,
 *        the record with free. The embedded host does so in host_free_table
 *
 * The number of cells tells the size:
 *
 *     mesh->ncells     below 1000    below 2000    below 20000    below 200000    more
 *     nblk                      7            10             16              22      30
 *     first pool size         500          1000           2000            2000    2000
 *
 * A structured mesh has a layer of cells along each axis, also where an axis is missing or has one node.
 * Cells with NaN or infinite coordinates may be left out.
 *
 * Returns 1. Returns 0
 *   where coordinates cannot be fetched, or there is no memory for an empty table, with out as it was;
 *   where a connect list cannot be fetched, with the table so far in out, the caller's to release;
 *   where memory ends later, or the user interrupts, with out NULL.
 * Want of memory is not reported.
 *
 * Progress: one status range, "building block table" before cells 400, 801, 1202 and so on, counted from 0
 * over all sets, or in every second layer of a structured mesh, and 100 percent at the end, where a request
 * to stop comes too late. */
int UTILinterp_init(mesh_info *mesh, blk_tbl **out);
int UTILinterp_init_struct(mesh_info *mesh, blk_tbl **out);
/* Uniform and rectilinear meshes need no table: out becomes NULL. Return 1. */
int UTILinterp_init_unif(mesh_info *mesh, blk_tbl **out);
int UTILinterp_init_rect(mesh_info *mesh, blk_tbl **out);

/* An empty table of the size for ncells cells, its box 0, its lists its own.
 *
 * nspace   1 to 3
 * out      handed over, as from UTILinterp_init
 *
 * Returns 1; 0, unreported, for any other nspace and where there is no memory, with out as it was. */
int UTILinterp_init_alloc(qx_long ncells, int nspace, blk_tbl **out);

/* Builds the table of a mesh for the nodes of a uniform lattice: UTILinterp_init2 for cell sets,
 * UTILinterp_init_struct2 for curvilinear meshes.
 *
 * xform    a matrix of 4 x 4 floats, as MATvec3_mat4_multiply takes it, from the space of the mesh to that of
 *          the lattice; NULL: they are the same. With a matrix all nodes are copied, 12 bytes each, for the
 *          time of the call
 * ndim     entries of dims, 1 to 3
 * dims     nodes along each axis, at least 1
 * naxes    entries of min and max, 0 to 3. Axes beyond them have one position, as do those beyond the
 *          coordinates of the mesh, and those where max is not greater than min by more than 1e-30
 * min, max first and last node of the lattice
 * single   0: each node lists all cells whose boxes cover it. Else: only the first one, in the order of the
 *          cells; lists have no links
 * out      handed over; release it with UTILinterp_end2
 *
 * A cell covers the nodes whose positions lie in its box, one that lies below it by at most 1e-6 of a step,
 * and the first node of an axis also where its box ends less than a step below that. Entries are 32 bits
 * wide: cell ids wrap beyond. The pool's first size goes by the number of cells, as for the other table.
 *
 * Returns, reports and progress are those of UTILinterp_init; dims that cannot be give 0, unreported, with
 * out as it was. */
int UTILinterp_init2(mesh_info *mesh, const float *xform, int ndim, const qx_long *dims, int naxes,
                     const float *min, const float *max, int single, blk_tbl_unif **out);
int UTILinterp_init_struct2(mesh_info *mesh, const float *xform, int ndim, const qx_long *dims, int naxes,
                            const float *min, const float *max, int single, blk_tbl_unif **out);
/* An empty table of a lattice, its corners 0, its lists its own; the pool's first size by ncells. Returns 1;
 * 0, unreported, for an ndim that is not 1 to 3, for dims below 1 or too many nodes to be addressed, and where
 * there is no memory, with out as it was. */
int UTILinterp_init_alloc2(int ncells, int ndim, const qx_long *dims, blk_tbl_unif **out);
/* Releases a table, with its lists if it owns them. Returns 1; 0 for NULL. */
int UTILinterp_end2(blk_tbl_unif *t);

/* ---- the cell that holds a point --------------------------------------------------------------------- */

/* Finds the cell that holds a point and the point's parameters in it. The mesh's find_cell_func is the form
 * for its kind.
 *
 * tbl     from the mesh's interp_init_func; only UTILfind_cell reads it. NULL there: nothing is found
 * point   NaN and infinite coordinates are in no cell
 * cell    out, the cell's id
 * uvw     out, 3 floats; what the cell's kind does not use stays as it was in UTILfind_cell, is 0 in the
 *         others
 *
 * Returns 1 where a cell was found, 0 where not, -1 on the errors that are named below.
 *
 * UTILfind_cell, for cell sets and curvilinear meshes, tries the cells of the point's block by the mesh's
 * interp_cell_func, and the first that takes the point is the answer. Where cells overlap or touch that is
 * the one inserted last: the highest id. A point may lie outside of the table's box, and of a cell's, by 1e-6
 * of the sum of the box's three sides. Without a find, cell is the last one tried, -1 for an empty block, and
 * as it was for a point outside of the table's box; uvw then holds nothing of use.
 * -1 for a negative id in a list, with cell -1; and where the mesh has no interp_cell_func, with the line
 * "UTILfind_cell: unable to find interp_cell function" on standard error.
 * Cost: some tens of cells a block are tried, most of them by their boxes alone.
 *
 * UTILfind_cell_rect looks along each axis for the first interval that holds the point's coordinate, both
 * ends included, so a node belongs to the interval below it. The coordinate has to lie between the axis's
 * first and last positions, 1e-30 to spare. In an axis of one node, or where no interval holds it, it gets
 * the last position and parameter 0. Axes from ndim on have to agree with the mesh's place there. Cost: the
 * sum of dims.
 *
 * UTILfind_cell_unif works out the interval, so a node belongs to the interval above it, the last one aside.
 * An axis without length counts as one of one node: position and parameter 0. The rest is as for rectilinear
 * meshes. An axis that descends holds no point.
 *
 * Both give cell -1 where they find nothing. */
int UTILfind_cell(mesh_info *mesh, const blk_tbl *tbl, const float *point, qx_long *cell, float *uvw);
int UTILfind_cell_unif(mesh_info *mesh, const blk_tbl *tbl, const float *point, qx_long *cell, float *uvw);
int UTILfind_cell_rect(mesh_info *mesh, const blk_tbl *tbl, const float *point, qx_long *cell, float *uvw);

/* Tests whether a cell holds a point. The mesh's interp_cell_func is the form for its kind.
 *
 * cell        a cell id; one that the mesh does not have gives 0
 * check_box   0: the cell's parameters alone decide, see tol
 * tol         by how much the point may lie outside: in coordinates. Rectilinear and uniform meshes take it
 *             for their parameters, which run from -1 to 1, and for coordinates on axes from ndim on and of
 *             one node
 * uvw         out, 3 floats, as for UTILfind_cell
 *
 * Cell sets and curvilinear meshes: with check_box the point has to lie in the box of the cell's nodes, x, y
 * and z; then the reverse mapping of the cell's kind decides, and its result is returned: 1 inside, 0
 * outside, -1 for a degenerate cell. 0 where the kind has no mapping, and for cells of more than 256 nodes.
 *
 * Rectilinear and uniform meshes: 1; with check_box 0 for a parameter that is out of range or NaN. Without it
 * any point gets its parameters, beyond the cell too. A rectilinear cell has to begin at a position that is
 * not the last of an axis, axes of one node aside. */
int UTILinterp_cell_uvw(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                        float *uvw);
int UTILinterp_cell_uvw_struct(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                               float *uvw);
int UTILinterp_cell_uvw_unif(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                             float *uvw);
int UTILinterp_cell_uvw_rect(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                             float *uvw);
/* Splits the number of a cell of a cell set.
 *
 * local   out, its number within the set
 * set     in and out; left as it is, and local too, where no set holds the cell. Set it to -1 before the call
 *
 * Returns 1 if set is not negative afterwards, else 0. A negative cell comes out as set 0 with a negative
 * local number: test both. */
int UTILget_cell_id(mesh_info *mesh, qx_long cell, qx_long *local, int *set);

/* ---- data at points ---------------------------------------------------------------------------------- *
 *
 *     float null = 0, values[...];                       NaN, which no value can be mistaken for
 *     int null_flag = 0, veclen = 1;
 *     void *data = temperature, *out = values;
 *     UTILinterpolate_data(npts, points, 3, NULL, mesh, table, 1, DTYPE_FLOAT, &veclen, &data, NULL, NULL, &null_flag,
 *                          &null, 1, NAN, &out);         1, NAN: what points outside get
 *
 * Say what points outside are to get, by set_null: what they get otherwise, one above the largest value, looks like
 * data. Integer types have no value that is none; programs that run on the embedded host have a mask instead, with
 * places and weights in double: host_sample_nodes.
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
 * data              node data: for each component nnodes rows, or NULL for one that is null at all points. Cell
 *                   data: arrays with a row for each cell
 *                   of a set, by number within the set
 * set_map           cell data, by cell set: the index of its array in data; negative: the set has none, and
 *                   points in it get the null value. On structured meshes the cell goes by the number of its
 *                   lowest node, and that number is looked up like any other: cells whose node is beyond the
 *                   set's count have no row
 * min_values        not read; may be NULL
 * max_values        the largest value of each component, one element a component. May be NULL where no scalar
 *                   comes with flag 0, and where set_null is given
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
 * Reports. Each gives 1; 0 and "unknown data type" under its own name for a code that is none. Coordinates
 * that cannot be fetched are reported at each point, a connect list at each cell of its set that is tried;
 * what can only be found by way of them lies outside.
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
