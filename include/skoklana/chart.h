/* Charts and regions: the lines and labels of a Smith chart, and closed outlines joined by a strip of triangles.
 *
 * Nothing here knows of meshes. Calls on different threads do not meet, as long as no two are given one handle of
 * which one releases it. */
#ifndef SKOKLANA_CHART_H
#define SKOKLANA_CHART_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- Smith chart ----------------------------------------------------------------------------------- *
 *
 * The chart is the unit disc of reflection coefficients, with the circles of constant resistance and of constant
 * reactance in it. They crowd together towards (1, 0), so values are chosen in bands: each band has ticks of its
 * own, and its lines stop at its edge, where resistance or reactance reaches the band's upper value.
 *
 * Smith. Transmission line calculator. Electronics, 1939 */

/* A strictly increasing stretch of the ticks that a chart was made from. */
typedef struct tick_run {
    const int *ticks; /* borrowed from the caller's array: not to be read once that is gone */
    int count;
} tick_run;

/* A line of constant resistance and one of constant reactance, both of one value, each an arc in the upper half
 * of the disc; those in the lower half are their mirror images. Arcs run from the upper value of the band to its
 * lower one, or, where that is below the line's own value, to the end that every full arc has. */
typedef struct graticule_line {
    float r_radius;             /* resistance: circle about (1 - r_radius, 0), 1 / (value + 1) */
    float r_start_x, r_start_y; /* where reactance is the upper value */
    float r_end_x, r_end_y;     /* where it is the lower one, or on the real axis */
    unsigned char reaches_axis; /* 1: the lower value is below the line's own */
    float x_radius;             /* reactance: circle about (1, x_radius), 1 / value */
    float x_start_x, x_start_y; /* where resistance is the upper value */
    float x_end_x, x_end_y;     /* where it is the lower one, or, if reaches_axis, on the unit circle */
    struct graticule_line *next;
} graticule_line;

/* A value that has a label, in ascending order. */
typedef struct graticule_level {
    float value;
    float axis_x;          /* where its circle of resistance meets the real axis */
    float edge_x, edge_y;  /* where its circle of reactance meets the upper half of the unit circle */
    int decimals;          /* of its label */
    int band;              /* number of its band, from 1 */
    int position;          /* index of its tick in the run */
    const tick_run *run;   /* the run in force in its band */
    graticule_line *lines; /* those of the run's ticks below the value, in ascending order, then its own */
    struct graticule_level *next;
} graticule_level;

/* A chart. The getters read just these fields, so a caller may hand them a record of its own. */
typedef struct GraticuleMeshInfo {
    float min_spacing; /* above 0, at most 1: least gap on the real axis between two neighbouring circles */
    float density;     /* points of an arc: this many times the square root of its radius on a half circle */
    graticule_level *levels;
    tick_run *runs; /* nruns entries */
    int nruns;
} GraticuleMeshInfo;

/* Makes a chart.
 *
 * density       points of an arc, see the record
 * min_spacing   least gap between two circles of neighbouring levels on the real axis, whose length is 2; above 1 it
 *               counts as 1
 * ticks         nticks whole numbers from 1 up, read during the call only. Each one that is not greater than the
 *               one before it begins a new run: 1, 2, 5, 10, 5, 10 are two runs, and 3, 3 are two as well
 * nticks        0, or ticks NULL: the chart has the axis and the unit circle only
 *
 * Values are (tick + 10 k) times a power of ten. A band takes the run whose gaps are closest to each other and
 * none of them below min_spacing; where no run will do, the next power of ten is tried, with those runs that have the
 * tick at which the chart has arrived. Runs that end on 10 leave no gaps between bands; if some start on each of 1
 * to 9 then a band can begin anywhere. After six powers of ten a last band follows, of the last run, whose lines go
 * on to (1, 0) as far as floats do.
 *
 * All lines of a level run between the limits of its band, so lines of lower ticks come again with each level of a
 * band. The last band aside, neighbouring levels are min_spacing apart.
 *
 * The handle is for DestroyGraticuleMeshInfo. NULL where min_spacing is not above 0, and, without a report, where
 * there is no memory for the handle, its runs or the state of the work. A level or a line without memory is left
 * out and reported by SCerror. */
GraticuleMeshInfo *CreateGraticuleMeshInfo(float density, float min_spacing, const int *ticks, int nticks);

/* Releases a chart; NULL is taken. */
void DestroyGraticuleMeshInfo(GraticuleMeshInfo *info);

/* The lines of a chart as polylines. Call it with NULL arrays for the counts, then with arrays of their size.
 *
 * npoints   out: points
 * coords    out: 3 floats a point, z is 0
 * nlines    out: polylines
 * lines     out: two entries a polyline, its first and its last point, all between being its own
 *
 * Each may be NULL, and is written for itself. Polylines are, in this order: the real axis; the unit circle, closed
 * by a point that repeats its first, clockwise from (0, 1); then for each line of each level the arc of resistance
 * with its mirror image, one polyline if it meets the axis and two if not, the arc of reactance, and the mirror
 * image of that. Mirror images come in reverse order.
 *
 * An arc by the angle a has ceil(sqrt(radius) density a / 3.141592652589793) steps, at least one, and that number is
 * meant: just below pi, so that half a circle of a whole density has one step more. */
void GetGraticuleMeshPoints(const GraticuleMeshInfo *info, qx_long *npoints, float *coords, qx_long *nlines,
                            qx_long *lines);

/* The labels of a chart: "0" at (-1, 0), then one a level. Call it twice, as above.
 *
 * nlabels      out: labels
 * axis_pts     out: 3 floats a label: on the real axis, for resistance
 * upper_pts    out: 3 floats a label: on the upper half of the unit circle, for reactance
 * lower_pts    out: 3 floats a label: on the lower half
 * text_size    out: bytes of text
 * text         out: the labels, each ended by a zero, and one more zero
 *
 * Each may be NULL, and is written for itself. */
void GetAnnotationMeshPoints(const GraticuleMeshInfo *info, qx_long *nlabels, float *axis_pts,
                             float *upper_pts, float *lower_pts, qx_long *text_size, char *text);

/* Prints two lines on standard error: "Smith Chart module error: " with the text of the code, then the message.
 *
 * code     0 "No error", 1 "Out of memory", 2 "Unable to find Quorvex object", 3 "Unable to get length of array
 *          object", 4 "Unable to get cell set"; any other has an empty text
 * format   of the message, as for printf, with what it needs */
void SCerror(int code, const char *format, ...);

/* ---- closed outlines ------------------------------------------------------------------------------- */

/* Turns a closed outline so that it starts at one side of its centre, and gives each vertex its place along it.
 *
 * stride   floats from one vertex to the next in coords, 2 and up
 * coords   x and y of vertex i at coords[i * stride], i from 0 whatever the range
 * range    2 entries: first and last node number; n = range[1] - range[0] + 1 vertices
 * side     where it starts, see below
 * nodes    out, n + 1 entries: node numbers in the new order, the first one once more at the end
 * params   out, n + 1 entries: the length of the outline up to there as a part of the whole, summed in single
 *          precision, so that the last need not be exactly 1
 *
 * The centre is the mean of the outline itself, weighted by length. The outline starts at the first vertex, in the
 * order of coords and the edge from the last one to vertex 0 first, whose edge from the vertex before crosses the
 * line through the centre: for side 0 in the direction of rising x, 1 falling y, 2 falling x, 3 rising y. Only that one
 * coordinate is looked at, so the crossing may be on either side of the centre; an end on the line is a crossing.
 *
 * Returns 1; 0, with the outputs as they were and without a report, for n below 1, an outline without length such as a
 * single vertex, another side, no crossing, and where there is no memory. */
int UTILroi_sort_verts(int stride, const float *coords, const qx_long *range, int side, qx_long *nodes,
                       float *params);

/* Joins two outlines by a strip of triangles, walking along both together: the one that lags moves on.
 *
 * n1, n2             steps along each; the second outline is read up to entry n2, the first up to n1 - 1
 * nodes1, nodes2     their nodes, as UTILroi_sort_verts gives them
 * params1, params2   their parameters
 * ntri               triangles expected; not changed
 * conn               out: 3 node numbers a triangle; needs room for two more behind 3 * *ntri, for the pair with which
 *                    the next triangle would begin
 *
 * At a tie the first outline moves. It never takes its last step, and the walk ends when the second has taken its
 * own: the triangle of that step is counted though it has no third vertex, so that a walk to the end counts
 * n1 + n2 - 1.
 *
 * Returns 1 if that count is *ntri, or reaches it before the end, where the walk stops; 0 if not. */
int UTILroi_connect_verts(qx_long n1, qx_long n2, const qx_long *nodes1, const qx_long *nodes2,
                          const float *params1, const float *params2, qx_long *ntri, qx_long *conn);

SKOKLANA_END
#endif
