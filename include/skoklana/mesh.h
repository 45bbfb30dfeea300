/* The mesh record, its table of operations, and the coordinates, data and extents read through it.
 *
 * A host describes a mesh in a mesh_info and hands that to every operation. Meshes are of four kinds:
 *
 *   cell sets   unstructured: explicit coordinates and a connect list a set
 *   _struct     curvilinear: explicit coordinates, nodes in a lattice of dims
 *   _rect       rectilinear: one list of coordinates an axis
 *   _unif       uniform: two corners
 *
 * Compact coordinates, the points of a mesh:
 *
 *   _unif   two rows of nspace floats, the first and the last corner. Axis d below ndim runs from
 *           points[d] to points[nspace + d] in dims[d] even steps; axes from ndim to nspace are
 *           constant at points[d].
 *   _rect   a row of nspace floats for each position of each axis, the axes one after another, so
 *           dims[0] + dims[1] + dims[2] rows. Position i on axis d is points[(off[d] + i) * nspace + d],
 *           off[d] the sum of the earlier dims; axes from ndim to nspace take points[d].
 *
 * Structured nodes are numbered with axis 0 fastest: node i + j * dims[0] + k * dims[0] * dims[1] stands at
 * positions i, j, k. A structured mesh carries cell set 0, which describes its cell: cell_nnodes[0] is 2, 4
 * or 8 and row 0 of cell_funcs holds the cell's functions. A structured cell goes by the number of its
 * lowest node, a cell of a set by its number within the mesh, the sets one after another.
 *
 * What a record does not hold yet is fetched when an operation first needs it, and stays. A fetch that fails
 * is reported through ERRerror under "fld_info", as "unable to get field coordinates", "unable to get field
 * points" or "unable to get cell set connect list"; the operation then returns 0 and the next one tries
 * again. Operations of this header write their results at the end: where they return 0 the outputs are as
 * they were. None of them allocates memory, UTILcopy_mesh_info aside.
 *
 * Operations that exist in a form for each mesh kind are reached through the mesh's methods: the functions
 * without a suffix such as UTILeval_coord run the form that the host has bound. Where none is bound they
 * return 0 and say so, some through ERRerror and some by a line on the standard error stream. */
#ifndef SKOKLANA_MESH_H
#define SKOKLANA_MESH_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

typedef struct mesh_info mesh_info;
typedef struct mesh_methods mesh_methods;
typedef struct blk_tbl blk_tbl;
typedef struct blk_tbl_unif blk_tbl_unif;

/* Any function of a cell_methods row; cast it to the type of its slot before a call. */
typedef void (*cell_func)(void);

/* Slots of a cell_methods row. A set's row has CELL_METHOD_SLOTS entries, the rest of them NULL. Behind each
 * slot: the stem of the names under which FLD_METHinit hands over its functions, stem_kind_order. The kinds
 * are line, tri, quad, tet, hex, prism and pyr, the orders 1 and 2. Where there is no function of a name the
 * slot stays NULL, and operations on whole meshes pass over the set.
 *
 * Slots 9 to 12 have no names of their own. A second-order set takes there what slots 3, 4, 5 and 7 are for
 * the first-order cells that its tesselation makes: line cells of lines, tri cells of surfaces, tet cells of
 * solids. In first-order sets they stay NULL. */
enum {
    SLOT_SHAPE_FUNC = 0,   /* shape_func */
    SLOT_SHAPE_DERIV = 1,  /* shape_deriv */
    SLOT_REV_PAR = 2,      /* rev_par */
    SLOT_SLICE = 3,        /* slice_cell */
    SLOT_CUT = 4,          /* cut_cell */
    SLOT_ISOLINE = 5,      /* isoline */
    SLOT_VOL_INTEGR = 6,   /* vol_integr */
    SLOT_CONTOUR = 7,      /* contour_cell */
    SLOT_TESSELATE = 8,    /* tesselate */
    SLOT_SUB_SLICE = 9,    /* slice_cell of the pieces */
    SLOT_SUB_CUT = 10,     /* cut_cell of the pieces */
    SLOT_SUB_ISOLINE = 11, /* isoline of the pieces */
    SLOT_SUB_CONTOUR = 12, /* contour_cell of the pieces */
    CELL_METHOD_SLOTS = 256
};

/* One mesh. The host creates the record, owns it and every array in it, and outlives all use of it.
 * Operations write two things only: the lazy fields points, coords and cell_connect, once each, with
 * what the host's fetch functions deliver; and, within a call, cell sets that they put back. */
struct mesh_info {
    OMobj_id *field_id;    /* the host field that this record describes */
    int ndim;              /* computational axes of a structured mesh, 1 to 3; 0 for cell sets */
    qx_long *dims;         /* nodes along each computational axis, dims[0] the fastest */
    int nspace;            /* coordinates a node, 1 to 3 */
    qx_long nnodes;        /* nodes of the mesh */
    float *points;         /* compact coordinates of _unif and _rect meshes; NULL until fetched */
    float *coords;         /* nnodes rows of nspace floats; NULL until fetched */
    float min_ext[3];      /* lower corner of the bounding box, nspace entries in use */
    float max_ext[3];      /* upper corner */
    mesh_methods *methods; /* the operations bound for the mesh's kind */

    /* Fetch functions of the host, called on the thread of the operation; a result below 1 is failure. What
     * they store through their last argument stays the host's, valid for the life of the record. */
    int (*get_coords)(mesh_info *mesh, float **coords);
    /* Copies instead. lo and hi: index triples, both ends included; coords: borrowed, room for the rows of
     * nspace floats of that box, axis 0 fastest */
    int (*get_coords_range)(mesh_info *mesh, const qx_long *lo, const qx_long *hi, float *coords);
    int (*get_points)(mesh_info *mesh, float **points);

    int ncell_sets;         /* cell sets; the arrays below have an entry for each */
    qx_long ncells;         /* cells of all sets */
    qx_long *cell_first;    /* number of the set's first cell within the mesh */
    qx_long *cell_count;    /* cells in the set */
    int *cell_nnodes;       /* nodes a cell, and the row length of the connect list */
    int *cell_ndim;         /* dimension of the set's cells, 1 to 3 */
    int *cell_order;        /* 1: linear cells; 2 and more: second-order cells */
    qx_long **cell_connect; /* cell_count rows of cell_nnodes node numbers; NULL until fetched */
    float **cell_aux;       /* parametric positions of the cell's nodes, cell_nnodes rows of 3 floats */
    cell_func *cell_funcs;  /* row s: CELL_METHOD_SLOTS functions from cell_funcs[s * CELL_METHOD_SLOTS] */
    int (*get_connect)(mesh_info *mesh, int set, qx_long **connect);
};

/* The operations of a mesh, in the order of their slot numbers, 0 to 20. A NULL member: the mesh kind has no
 * such operation. The name of a member, with _struct, _unif or _rect behind it for structured meshes, is the
 * name under which FLD_METHinit hands over the form to bind; its arguments stand with the operation that
 * runs it. */
struct mesh_methods {
    int (*interp_init_func)(mesh_info *mesh, blk_tbl **out);
    int (*find_cell_func)(mesh_info *mesh, const blk_tbl *tbl, const float *point, qx_long *cell, float *uvw);
    int (*interp_cell_func)(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                            float *uvw);
    int (*interp_data_func)(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                            int null_flag, const void *null_value, int npts, const float *uvw, float *out);
    int (*cell_extent_func)(mesh_info *mesh, qx_long cell, float *min, float *max);
    int (*coord_list_func)(mesh_info *mesh, qx_long count, const qx_long *list, float *out);
    qx_long (*data_list_func)(mesh_info *mesh, int data_type, int veclen, const void *data, qx_long count,
                              const qx_long *list, void *out);
    int (*isosurf_func)(mesh_info *mesh, const void *data, int data_type, int null_flag,
                        const void *null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                        qx_long **max_node, qx_long *nline, qx_long **line_conn, qx_long *nline_conn,
                        qx_long *ntri, qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count,
                        qx_long **cell_map);
    int (*isoline_func)(mesh_info *mesh, const void *data, int data_type, int null_flag,
                        const void *null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                        qx_long **max_node, qx_long *nline, qx_long **line_conn, qx_long *nline_conn,
                        qx_long *cell_map_count, qx_long **cell_map);
    int (*cut_func)(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                    double level, int side, qx_long *nold, qx_long **node_map, qx_long *nnodes_out,
                    qx_long **min_node, qx_long **max_node, qx_long *cut_ncells, qx_long **cut_conn,
                    qx_long *cut_nconn, qx_long *cell_map_count, qx_long **cell_map);
    int (*eval_coord_func)(mesh_info *mesh, qx_long count, const qx_long *list_a, const qx_long *list_b,
                           const float *t, float *out);
    int (*glyph_func)(mesh_info *mesh, int data_type, int veclen, const void *data, int null_flag,
                      const void *null_value, int scale_veclen, int map_veclen, const void *scale_data,
                      const void *map_data, int orient_flag, int component_flag, int normalize_flag,
                      double scale, const int *scale_axes, const float *node_xform, qx_long glyph_nnodes,
                      int glyph_nspace, const float *glyph_coords, const float *glyph_xform, int out_nspace,
                      float *out_coords, void *out_data);
    int (*thresh_null_func)(mesh_info *mesh, const void *data, int data_type, const void *null_value,
                            qx_long *nkept, qx_long **map, void *out0, void *out1, void *out2, void *out3,
                            int zero);
    qx_long (*rslice_func)(const qx_long *dims, const float *points, const float *normal, double distance,
                           qx_long *out_dims, float *out_points, int out_nspace, float *xform,
                           qx_long **lo_node, qx_long **hi_node, float **weight, unsigned char **valid);
    int (*grad_func)(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                     const void *null_value, float *out);
    int (*curl_func)(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                     const void *null_value, float *out);
    int (*div_func)(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                    const void *null_value, float *out);
    int (*deriv3d_func)(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                        int null_flag, const void *null_value, const float *uvw, float *out);
    int (*deriv2d_func)(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                        int null_flag, const void *null_value, const float *uvw, float *out, float *frame,
                        float *local_xyz);
    int (*contour_func)(mesh_info *mesh, const void *data, int data_type, int null_flag,
                        const void *null_value, double low_level, double high_level, qx_long *nold,
                        qx_long **node_map, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node,
                        unsigned char **level_list, qx_long *cont_ncells, qx_long **cont_conn,
                        qx_long *cont_nconn, int nspace, float **coords, qx_long *nlow_lines,
                        qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines);
    int (*cell_to_node_func)(mesh_info *mesh, int set, int data_type, const void *cell_data, int veclen,
                             int null_flag, const void *null_value, int weight_power, void *out,
                             float **weights_slot, unsigned char **marks_slot);
};

/* ---- registration -------------------------------------------------------------------------------- */

/* Hands the library's table of named functions to the host by OMadd_named_funcs; the host binds
 * mesh_methods and the rows of cell_funcs by these names. Names of cell functions are stem_kind_order, such
 * as shape_func_hex_1; the stem tells the slot. A few names stand twice, each time with the same function.
 * The table and its texts live for ever; each call hands over the same one. Returns 1. Any arguments given
 * are ignored. */
int FLD_METHinit(void);

/* ---- the record ---------------------------------------------------------------------------------- */

/* Makes a shallow copy of a mesh record.
 *
 * src   borrowed
 * out   the copy; release it with plain free of the record alone
 *
 * The copy shares dims and all per-set arrays with its source, so what is written through one is seen
 * through the other. Its points and coords are NULL: it fetches anew. Its min_ext, max_ext and cell_order
 * hold nothing that may be read, nor do the per-set pointers where ncell_sets is 0.
 *
 * Returns 1; 0, unreported, and a NULL copy where there is no memory. */
int UTILcopy_mesh_info(mesh_info *src, mesh_info **out);

/* Puts another cell list in place of set: writes its cell_count, cell_connect and cell_nnodes.
 *
 * count     cells
 * connect   borrowed, count rows of nnodes node numbers
 *
 * Whoever replaces a set saves the three values before and puts them back by the same call. Returns 1. */
int UTILreplace_cell_set(mesh_info *mesh, int set, qx_long count, qx_long *connect, int nnodes);

/* ---- coordinates and data of listed nodes -------------------------------------------------------- *
 *
 * The list of nodes means two things. Cell sets take a *node map*: nnodes entries, the new place of each
 * node, or a negative number to drop it; count is ignored. Structured meshes take a *gather list*: count
 * entries, the node to read for each output row.
 *
 * out has room for what the map or list asks for, and may not overlap the input. */

/* Coordinates, rows of nspace floats, by the form bound to the mesh. With none bound the line
 * "UTILcoord_list_func: no coord_list function found" on standard error, and 0. */
int UTILget_coord_list(mesh_info *mesh, qx_long count, const qx_long *list, float *out);
/* Cell sets: row map[i] of out is the position of node i, for each node with map[i] >= 0. */
int UTILcoord_list(mesh_info *mesh, qx_long count, const qx_long *map, float *out);
/* Structured meshes: row i of out is the position of node list[i]; count rows. Explicit coordinates. */
int UTILcoord_list_struct(mesh_info *mesh, qx_long count, const qx_long *list, float *out);
/* The same from compact coordinates. On a uniform axis position p stands at p * step + first corner, with
 * step = (last corner - first corner) / (dims - 1), all in float. */
int UTILcoord_list_unif(mesh_info *mesh, qx_long count, const qx_long *list, float *out);
int UTILcoord_list_rect(mesh_info *mesh, qx_long count, const qx_long *list, float *out);

/* Data rows by the form bound to the mesh: veclen elements a row, a row a node, copied as they stand. With
 * none bound the line "UTILdata_list_func: no data_list function found" on standard error, and 0. */
qx_long UTILget_data_list(mesh_info *mesh, int data_type, int veclen, const void *data, qx_long count,
                          const qx_long *list, void *out);
/* Cell sets, by node map. Returns veclen times the rows copied; 0 for an unknown type, unreported. */
qx_long UTILdata_list(mesh_info *mesh, int data_type, int veclen, const void *data, qx_long count,
                      const qx_long *map, void *out);
/* Structured meshes, by gather list. Returns veclen times count; 0 for an unknown type, unreported. */
qx_long UTILdata_list_struct(mesh_info *mesh, int data_type, int veclen, const void *data, qx_long count,
                             const qx_long *list, void *out);

/* ---- points and data between two nodes ----------------------------------------------------------- *
 *
 * An extraction tells its new nodes as pairs of mesh nodes. UTILget_param gives the place of the level
 * between the two, UTILeval_coord the position there, UTILeval_param the data there.
 *
 * list_a, list_b   count entries: the two nodes of each pair
 * t                count entries: the place between them, 0 at the first node and 1 at the second; beyond
 *                  that range the line through the two is followed
 *
 * A pair with a negative number is left out: its row of out keeps what it held. NaN in the data comes out as
 * the arithmetic has it. */

/* Positions between nodes by the form bound to the mesh. With none bound the line
 * "UTILeval_coord_func: no eval_coord function found" on standard error, and 0. */
int UTILeval_coord(mesh_info *mesh, qx_long count, const qx_long *list_a, const qx_long *list_b,
                   const float *t, float *out);
/* Row i of out is the point at t[i] between nodes list_a[i] and list_b[i]: (b - a) * t + a, in float, for each
 * of nspace coordinates. Explicit coordinates. */
int UTILeval_param_coord(mesh_info *mesh, qx_long count, const qx_long *list_a, const qx_long *list_b,
                         const float *t, float *out);
/* The same from compact coordinates. */
int UTILeval_param_coord_unif(mesh_info *mesh, qx_long count, const qx_long *list_a, const qx_long *list_b,
                              const float *t, float *out);
int UTILeval_param_coord_rect(mesh_info *mesh, qx_long count, const qx_long *list_a, const qx_long *list_b,
                              const float *t, float *out);

/* Data between nodes, count rows of veclen elements of data_type.
 *
 * data         rows of veclen elements, by node
 * null_value   one element of data_type; a component that is null at either end comes out null
 * out          rows as those of data, one a pair
 *
 * (b - a) * t + a, in float for types up to DTYPE_FLOAT and in double for the others, truncated towards
 * zero for the integer types; ints therefore keep 24 bits. A result past the range of int, or of qx_long,
 * stops at its end, and NaN gives the lower end; narrower types keep the low bits of an int. An unknown type
 * reports "unknown data type" under "UTILeval_param" and gives 0. */
int UTILeval_param(qx_long count, int veclen, int data_type, const void *data, int null_flag,
                   const void *null_value, const qx_long *list_a, const qx_long *list_b, const float *t,
                   void *out);

/* The parameters at which a scalar reaches value between two nodes.
 *
 * data   one element a node
 * out    count floats: (value - a) / (b - a) in double, stored as float; 0 where a equals b
 *
 * An unknown type reports "unknown data type" under "UTILget_param" and gives 0. */
int UTILget_param(qx_long count, int data_type, const void *data, double value, const qx_long *list_a,
                  const qx_long *list_b, float *out);

/* ---- structured lattices made explicit ------------------------------------------------------------ */

/* The connect list of structured cells start to end - 1, cells numbered with axis 0 fastest.
 *
 * dims   nodes an axis, ndim entries
 * out    end - start rows of 2, 4 or 8 node numbers: around the lower face, then around the upper one
 *
 * With lowest node b and d0, d1 nodes along the first axes a row is b, b + 1, b + 1 + d0, b + d0, then the
 * same four plus d0 * d1. That is not the corner order in which shape functions and point location see a
 * structured cell.
 *
 * Returns 1, also where there is nothing to write; for an ndim other than 1, 2 and 3 the line
 * "get_connect_struct: cannot compute connect for ndim" with the number on standard error, and 0. */
int UTILget_connect_struct(int ndim, const qx_long *dims, qx_long start, qx_long end, qx_long *out);

/* Coordinates of structured nodes start to end - 1 from compact points.
 *
 * comp_lo, comp_hi   the components wanted, comp_lo to comp_hi - 1, within 0 to nspace - 1
 * out                end - start rows of comp_hi - comp_lo floats; components from ndim on are those of the
 *                    first row of points
 *
 * Returns 1, also where there is nothing to write. */
int UTILget_coords_unif(int ndim, const qx_long *dims, int nspace, const float *points, qx_long start,
                        qx_long end, int comp_lo, int comp_hi, float *out);
int UTILget_coords_rect(int ndim, const qx_long *dims, int nspace, const float *points, qx_long start,
                        qx_long end, int comp_lo, int comp_hi, float *out);

/* ---- extents --------------------------------------------------------------------------------------- */

/* The box of one cell, nspace entries each in min and max.
 *
 * cell   cell sets: the number within the mesh; structured: the number of the cell's lowest node
 *
 * Returns 1; 0 for a cell that is not there, unreported; 0 also where coordinates or a connect list cannot be
 * had. Along an axis of a single node the box is flat. On compact coordinates min holds the lower position
 * of each axis and max the higher one: on an axis that descends min is above max. */
int UTILcell_extent(mesh_info *mesh, qx_long cell, float *min, float *max);
int UTILcell_extent_struct(mesh_info *mesh, qx_long cell, float *min, float *max);
int UTILcell_extent_unif(mesh_info *mesh, qx_long cell, float *min, float *max);
int UTILcell_extent_rect(mesh_info *mesh, qx_long cell, float *min, float *max);

/* The box of all nodes that cells use, nspace entries each: unused nodes do not count, so it may be smaller
 * than min_ext and max_ext. For any kind of mesh whose host delivers coordinates and connect lists.
 *
 * Returns 1, with min and max as they were if there is no cell; 0 where coordinates, which are fetched in
 * any case, or a connect list cannot be had. */
int UTILfield_extent(mesh_info *mesh, float *min, float *max);

SKOKLANA_END
#endif
