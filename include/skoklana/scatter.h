/* Scattered points: Delaunay tesselations, values spread onto regular grids, points put into bins, made-up data.
 *
 * Points are rows of floats, and a point's id is the number of its row. None of these operations reads a mesh.
 * All arrays that come in are borrowed. Nothing is kept between calls: any number of them may run at once. */
#ifndef SKOKLANA_SCATTER_H
#define SKOKLANA_SCATTER_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- Delaunay tesselation ---------------------------------------------------------------------------- *
 *
 * Triangles, or tetrahedra, whose circles or spheres hold no point. Points are put in one by one in order of x
 * (Bowyer 1981, Watson 1981), beginning with one cell around the box that the caller gives; what touches that
 * cell's corners is left out at the end. The corners are near: for a box from (0, 0) to (1, 1) they are at
 * (-1.2, -0.2), (2.2, -0.2) and (0.5, 2), and for one from (0, 0, 0) to (1, 1, 1) at (-0.5, -0.5, -0.5) and, from
 * there, 4, 6 and 12 along x, y and z. So thin cells at the rim are missing and the outline need not be convex. A
 * larger box puts them further away, and the result comes nearer to the convex hull.
 *
 * nnodes       points
 * min_extent, max_extent   opposite corners of the box, a float an axis. It is taken as it is: points outside it
 *              are put in as long as they are inside the cell around it; others may spoil the result around
 *              them, or leave it empty, but do no harm beyond it
 * check        not 0: the result is checked on standard error, see below. Costs a look at every point whose x is
 *              within the circle or sphere, for each cell
 * ntri, ntet   out: how many cells there are
 * conn         out, handed over, from ARRalloc_f: ids of points, 3 a triangle, 4 a tetrahedron. The block has room
 *              for the cells that were left out too; it is there for 0 cells as well
 *
 * Vertices. Triangles run counter-clockwise, tetrahedra so that vertices 1, 2, 3 run clockwise seen from vertex 0.
 * The last vertex is the one that comes last by x; the second of a tetrahedron has the lowest id of the others.
 *
 * Order of cells. The same for the same points, on every machine. Cells are in the order in which the sweep is done
 * with them: last come those whose circle or sphere lies furthest left.
 *
 * Points left out: those at the place of another one, without a word; ones with a coordinate that is NaN, without
 * a word; in the plane, a point that by rounding is in no circle, without a word; and a point that gives degenerate
 * cells and does so still when it has been moved a little five times, with one of
 *
 *     scat_to_tri: skip point N          N is twice the id
 *     scat_to_tet: skip point N          N is three times the id
 *
 * A point is moved in a copy of the coordinates, which is then the one that later points meet. In the plane it
 * moves by 0.001 of an edge, square to it; in space by 0.00001 of the lengths of two edges, square to both. That
 * happens to points on the sides of the cell around everything, as the points of a box that is too small are.
 *
 * Points on a line or in a plane give no cells. Of several points on one circle or sphere any tesselation may come
 * out. In the plane all tests are plain double arithmetic; in space those that rounding may turn are made exactly,
 * so that lattices give no flat or overlapping tetrahedra.
 *
 * With check, each point that is inside the circle or sphere of a cell by more than 1e-5 of the squared radius has
 * a line, the corners of the cell that was made last excepted, and a last line counts them; r and d are the
 * squares of the radius and of the distance from the centre:
 *
 *      tri (A B C) includes point P  r=R d=D          with a blank in front
 *     tet (A B C D) includes point P  r=R d=D
 *     ucd_scat_to_tet: N bad tetras found             in the plane too
 *
 * Status is checked within the caller's range, at every 129th point in the plane and every 65th in space.
 *
 * Returns 1. A box without extent along an axis: 1 at once; ntri and conn are then left as they were, ntet is 0
 * with a NULL conn. If a point is beyond every circle, infinitely far to the right, nothing is left of the result:
 * 0 cells. 0 when asked to stop: conn is left as it was in the plane and NULL in space, and the count is that of
 * the cells so far. 0 also without memory, unreported: the count is 0 and conn NULL.
 *
 * Cost: of the order of n log n for points that are spread evenly; memory 50 to 100 bytes a point in the plane, and
 * 300 in space. Points whose circles stay open for long, as those on a curve along x, cost more. */

/* coords: nnodes rows of nspace floats, 2 or more, of which the first two are read. */
int UTILdelaun_tess_2D(qx_long nnodes, const float *coords, int nspace, const float *min_extent,
                       const float *max_extent, int check, qx_long *ntri, qx_long **conn);
/* coords: nnodes rows of 3 floats. */
int UTILdelaun_tess_3D(qx_long nnodes, const float *coords, const float *min_extent, const float *max_extent,
                       int check, qx_long *ntet, qx_long **conn);

/* ---- values on a grid -------------------------------------------------------------------------------- */

/* Spreads values at scattered points onto the nodes of a regular grid by inverse distance (Shepard 1968), each
 * point over a window around it.
 *
 * nnodes       points
 * nspace       floats a row of coords, ndim or more
 * coords       nnodes rows of nspace floats
 * dtype        type code of data, null_value and out
 * veclen       components a value
 * data         nnodes rows of veclen elements
 * min_extent, max_extent   opposite corners of the grid's box, ndim floats each
 * ndim         axes of the grid, 1 to 3
 * dims         nodes along each axis, the first axis fastest
 * radius       in and out, ndim entries: how many nodes a window reaches to either side of the node at or before
 *              its point. 0 becomes 1, in this array. With one axis the upper side has one node less. Points
 *              outside the box reach into it as far as their windows do; with one axis they count as ones at its
 *              ends
 * power        values weigh by 1 / distance^power. 2 costs least
 * null_flag    in and out. Not 0: points whose first component equals the null value are left out. 0: becomes 1 if
 *              a node stays empty
 * null_value   an element, read in any case: what nodes get that no point has reached
 * out          out, a row of veclen elements a node
 *
 * A node that a point lies on has the value of the first such point. With powers above 2 that holds for points as
 * near as 1e-38 to the power 1 / power: 0.00016 with power 10. A node whose weights add up to 1e38 takes no more.
 * Sums are in double and in the order of the points. Results are between -1e38 and 1e38 and have single precision,
 * those of double and the integers too; integers are truncated. Along an axis of one node, and where the box is
 * flat, distances mean nothing: with two or three axes the nodes that are reached there have the value of the
 * first point that reaches them, or stay empty beyond index 0. Points with NaN for a coordinate reach no node.
 *
 * Status is checked within the caller's range, with two and three axes, at every 129th point.
 *
 * Returns 1; 0 when asked to stop, with out and null_flag as they were. 0 with a report under "UTILscat_interp":
 * "unknown data type"; "cannot allocate arrays"; "illegal ndim", after zeros of radius were replaced.
 *
 * Cost: points times the nodes of a window, and a pass over the grid; memory 8 (1 + veclen) bytes a node. */
int UTILscat_data_interp2(qx_long nnodes, int nspace, const float *coords, int dtype, int veclen,
                          const void *data, const float *min_extent, const float *max_extent, int ndim,
                          const qx_long *dims, int *radius, int power, int *null_flag, const void *null_value,
                          void *out);

/* ---- points in bins ---------------------------------------------------------------------------------- *
 *
 * Lists of the points in each cell of a regular grid. Lists are links through a pool: bins[b] is the newest entry
 * of bin b, nodes[entry] its point and next[entry] the entry before it; 0 ends a list, and entry 0 is never used.
 * The bin of cell (i, j, k) is (k * (dims[1] - 1) + j) * (dims[0] - 1) + i. */
typedef struct scat_interp_bins {
    qx_long *bins;      /* nbins list heads; 0: an empty bin */
    qx_long nbins;      /* cells of the grid */
    int ndim;           /* axes */
    int reserved_a[3];  /* 0 */
    int reserved_b[3];  /* 0 */
    qx_long *nodes;     /* nentries entries, those from 1 to free_entry - 1 in use: the point */
    qx_long *next;      /* nentries entries: the next entry of the bin's list; 0 where not in use */
    qx_long nentries;   /* entries there is room for: points + 1 */
    qx_long free_entry; /* the next free entry; 1 where there are none yet */
} scat_interp_bins;

/* Empty bins.
 *
 * nnodes   points to make room for
 * ndim     axes, 1 or more
 * dims     nodes along each axis
 * handle   out, handed over: release it by UTILscat_interp_end
 *
 * Returns 1; 0, unreported, with handle as it was: ndim below 1, or no memory. */
int UTILscat_interp_alloc(qx_long nnodes, int ndim, const qx_long *dims, scat_interp_bins **handle);
/* Bins with points in them, in the order of the points.
 *
 * nnodes, nspace, coords   nnodes rows of nspace floats, ndim or more
 * min_extent, max_extent   opposite corners of the grid's box, ndim floats each
 * ndim         axes, 1 to 3
 * dims         nodes along each axis
 * handle       out, handed over: release it by UTILscat_interp_end
 *
 * Points outside the box, and those with NaN for a coordinate, are in no bin. A point on a far side is put at
 * 0.9999 of the box: in the last bin along an axis, as long as there are no more than 10000. Along an axis that the
 * box has no extent along, all points are in the first bin. An axis of one node makes no bins: none is filled.
 *
 * Returns 1; 0, unreported, with a NULL handle: nspace below ndim, ndim out of range, or no memory. */
int UTILscat_interp_init(qx_long nnodes, int nspace, const float *coords, const float *min_extent,
                         const float *max_extent, int ndim, const qx_long *dims, scat_interp_bins **handle);
/* Releases bins. Returns 1; 0 for NULL. */
int UTILscat_interp_end(scat_interp_bins *handle);

/* ---- made-up data ------------------------------------------------------------------------------------ */

/* Writes values of a polynomial of second degree.
 *
 * count        values; below 1 nothing is written
 * stride, offset   in elements: value i goes to out[offset + i * stride]
 * dtype        type code of out
 * ndim         coordinates that the polynomial is of:
 *                1   c0 + c1 x + c2 x x
 *                2   c0 + c1 x + c2 y + c3 x y + c4 x x + c5 y y
 *                3   c0 + c1 x + c2 y + c3 z + c4 x y + c5 x z + c6 y z + c7 x x + c8 y y + c9 z z
 *              Any other number: nothing is written, unless null_flag is not 0
 * coords       count rows of ndim floats; NULL: the numbers 0, 1, 2, ... in their place
 * coefs        3, 6 or 10 coefficients
 * null_flag    not 0: every value is null_value, for any ndim
 * null_value   rounded to single precision for float, truncated for integer types
 *
 * All arithmetic is in single precision, from the left; integers are truncated. Returns 1. 0 for an unknown type,
 * whatever the count: "unknown data type" under "UTILgen_data". */
int UTILgen_data(qx_long count, int stride, int offset, int dtype, void *out, int ndim, const float *coords,
                 const float *coefs, int null_flag, double null_value);

SKOKLANA_END
#endif
