/* The embedded host: what a program runs on that has no host of its own.
 *
 * A program describes a mesh by plain arrays, gets a bound mesh_info for it and hands that to the functions
 * of skoklana.h. Link libskoklana and libskoklana_host.
 *
 *     const float corners[6] = {0, 0, 0, 1, 1, 1};
 *     const qx_long dims[3] = {64, 64, 64};
 *     host_field *field = host_uniform(3, dims, 3, corners);
 *     mesh_info *mesh = host_mesh(field);
 *     if (mesh == NULL) puts(host_error());
 *     ...
 *     host_free_field(field);
 *
 * arrays     that describe a mesh are *borrowed until host_free_field*: they are read where they stand, not
 *            copied, and must outlive the field unchanged. dims and the list of axes are copied, the axes
 *            themselves are not. Coordinates that only follow from the arrays (those of uniform and
 *            rectilinear meshes), and the cells of structured meshes, are made when an operation first
 *            needs them, and kept by the field
 * failures   functions that give a pointer give NULL, others 0, and nothing has changed; host_error then
 *            tells what was wrong, in words for the user
 * limits     a mesh has at most 2^55 nodes and 2^55 cells
 * threads    a field belongs to one thread at a time; different fields may be used at once
 *
 * Nothing needs to be set up or torn down. */
#ifndef SKOKLANA_HOST_H
#define SKOKLANA_HOST_H

/* The version that a program is built with: 10000 * major + 100 * minor + patch. host_version gives that of the
 * library which it runs with. */
#define SKOKLANA_HOST_VERSION 100

#include <skoklana/cell_nodes.h>
#include <skoklana/mesh.h>

#include <stddef.h>

SKOKLANA_BEGIN

typedef struct host_field host_field;

/* ---- fields from arrays ---------------------------------------------------------------------------- *
 *
 * For all structured meshes:
 *
 * ndim     computational axes, 1 to 3
 * dims     ndim entries: nodes along each axis, at least 1; nodes are numbered with axis 0 fastest
 * nspace   coordinates a node, ndim to 3
 *
 * An axis of one node is legal; the mesh has no cells then. */

/* A uniform mesh: evenly spaced along each axis.
 *
 * corners   two rows of nspace floats, the first node and the last; finite, and no further apart than a
 *           float can tell. Along axes from ndim on, and those of one node, the first row holds
 *
 * The coordinate at a position is position * ((last - first) / (dims - 1)) + first, rounded to float at
 * each step. */
host_field *host_uniform(int ndim, const qx_long *dims, int nspace, const float *corners);

/* A part of a uniform mesh: the nodes of a box of it, with their coordinates in the whole, bit for bit.
 *
 * Corners of the part's own would be rounded, and the steps between them too. The part is a rectilinear mesh
 * therefore, with the whole's coordinates on its axes, and its extents are those of its own nodes. Points belong to
 * the cells that hold them in the whole, with the same places within them, for the library's search and for
 * host_make_locator (with the whole's default tolerance): of parts that meet in a plane of nodes, one has a point in it.
 * host_gradient, host_curl and host_divergence take the whole's steps, and one-sided differences at the ends of the part;
 * so a part of which a layer of nodes is left out, except at ends of the whole, has the whole's derivatives. The
 * library's derivatives of whole meshes are those of rectilinear ones. A part that is flat where the whole is not is a
 * mesh of its own: a point belongs to it where it lies in its plane.
 *
 * whole    a field of host_uniform, or a part of one. Nothing is borrowed: it may go before the part
 * extent   a pair for each axis: the first node and the last, counted from 0 within whole */
host_field *host_uniform_part(const host_field *whole, const qx_long *extent);

/* A rectilinear mesh: spaced at will along each axis.
 *
 * axes   nspace pointers. Below ndim: dims[d] finite floats, the coordinates along that axis. From ndim on:
 *        one finite float, the same for all nodes, or NULL for 0 */
host_field *host_rectilinear(int ndim, const qx_long *dims, int nspace, const float *const *axes);

/* A curvilinear mesh. coords: a row of nspace floats a node. */
host_field *host_curvilinear(int ndim, const qx_long *dims, int nspace, const float *coords);

/* A mesh of cell sets, none yet.
 *
 * nnodes   0 and up
 * nspace   1 to 3
 * coords   nnodes rows of nspace floats; may be NULL where nnodes is 0 */
host_field *host_cells(qx_long nnodes, int nspace, const float *coords);

/* Adds a cell set to a field of host_cells, before its mesh is asked for. Sets keep the order in which they
 * are added; any mix of kinds and orders will do, several sets of one kind too.
 *
 * kind      CELL_LINE to CELL_HEX; of no higher dimension than nspace
 * order     1, or 2 for cells with nodes on their edges
 * ncells    0 and up
 * connect   ncells rows of node numbers, in the node order of cell_nodes.h; may be NULL where ncells is 0
 *
 * Every node number is looked at: one outside the field is refused. */
int host_add_cells(host_field *field, int kind, int order, qx_long ncells, const qx_long *connect);

/* Adds cells as VTK describes them: any mix of types, in VTK's node order. They are copied, into a cell set for each
 * kind and order that there is: those of first order by kind, then those of second. Cells of one set keep their order.
 *
 * types     ncells entries: VTK's cell types 3, 5, 8 to 14 and 21 to 27: lines, triangles, pixels, quadrilaterals,
 *           tetrahedra, voxels, hexahedra, wedges, pyramids, and the quadratic ones of these
 * offsets   ncells + 1 entries: cell c has the nodes from offsets[c] to offsets[c + 1] - 1
 * nodes     node numbers
 * numbers   out, ncells entries: the number of each cell within the mesh, for data that goes by VTK's cells. May be
 *           NULL
 *
 * Any other type, a wrong count of nodes and a node outside the field are refused, and nothing is added. */
int host_add_cells_vtk(host_field *field, qx_long ncells, const unsigned char *types, const qx_long *offsets,
                       const qx_long *nodes, qx_long *numbers);

/* The field's mesh, bound to the library's operations: the same record each time, kept by the field.
 *
 * min_ext and max_ext are the box of all nodes, also of those that no cell uses; NaN coordinates do not
 * count, and where there are no others both are 0. Structured meshes have one cell set. The coordinates of a
 * range of nodes of cell sets are asked for by node numbers: lo[0] to hi[0]. */
mesh_info *host_mesh(host_field *field);

/* Releases the field, its mesh and all that was made for it. Copies of the mesh are of no use then. NULL is
 * taken. */
void host_free_field(host_field *field);

/* Releases a block table of UTILinterp_init or UTILinterp_init_struct, with its lists if it owns them. NULL
 * is taken. */
void host_free_table(blk_tbl *table);

/* Releases a list that an operation handed over, of the library or of the host. NULL is taken. */
void host_free(void *list);

/* The version of the library, as SKOKLANA_HOST_VERSION. */
int host_version(void);

/* What was wrong with this thread's last host_ call that failed, or last fetch from a field; "" if none
 * did. Never NULL; valid until the thread's next failure. */
const char *host_error(void);

/* ---- contexts ----------------------------------------------------------------------------------------- *
 *
 * Reports, progress, requests to stop and the error text belong to a context: one a chain of calls. A thread that
 * uses none shares the handlers and the request to stop with all other such threads, and has reports, error text and
 * progress of its own.
 *
 *     host_context *context = host_new_context();
 *     host_context *before = host_use_context(context);
 *     host_set_progress_handler(show, &window);          the context's own
 *     ... operations of the library and of the host ...
 *     host_use_context(before);
 *     host_free_context(context);
 *
 * What is said below of a thread is said of its context where it uses one. A context serves one thread at a time; two
 * threads with a context each know nothing of one another. Where the host works with several threads itself their
 * reports reach the caller's context when all are done, in the order of their shares of the work. */

typedef struct host_context host_context;

host_context *host_new_context(void);
/* Releases a context that no thread uses any more, the calling one aside. NULL is taken. */
void host_free_context(host_context *context);
/* Makes a context the calling thread's from now on; NULL: none. Returns the one before. */
host_context *host_use_context(host_context *context);

/* ---- reports, progress, interruption ---------------------------------------------------------------- *
 *
 * Handlers are called on the thread that runs the operation. Those of threads without a context are set before
 * other threads run. user is handed through as it is. */

/* Called for each report of the library.
 *
 * module     borrowed: who reports
 * severity   2
 * message    borrowed: one line without a newline */
typedef void (*host_error_handler)(void *user, const char *module, int severity, const char *message);

/* Sets the handler. NULL, and none set: "module: message" goes to standard error; in a context reports are only kept. */
void host_set_error_handler(host_error_handler handler, void *user);

/* The last reports of this thread, whatever the handler did with them.
 *
 * age       0 is the newest; 8 are kept
 * module    out, may be NULL; the text is valid until the thread's next report, cut after 63 bytes
 * message   out, may be NULL; the same, cut after 447 bytes
 *
 * Returns 0 where there is no report of that age. */
int host_last_report(int age, const char **module, const char **message);
/* Forgets this thread's reports. */
void host_clear_reports(void);

/* Called at each status check of an operation.
 *
 * percent   overall progress, 0 to 100, rounded down: the operation's own percentage, within all the status
 *           ranges that are open on this thread. It never falls while ranges and checks go up
 * message   borrowed: what is being done; may be NULL
 *
 * A non-zero result asks the operation to stop. */
typedef int (*host_progress_handler)(void *user, int percent, const char *message);

/* Sets the handler. NULL: none. */
void host_set_progress_handler(host_progress_handler handler, void *user);

/* Asks all operations, on all threads and in all contexts, to stop at their next status check; an operation that
 * stops returns 0 unless its own text says otherwise, and reports nothing. May be called from any thread and from
 * signal handlers. The request stands until host_clear_interrupt, of a thread without a context. */
void host_interrupt(void);
/* The same for the operations of one context. That request stands until host_clear_interrupt in the context. */
void host_interrupt_context(host_context *context);
void host_clear_interrupt(void);

/* Sets memory aside for this thread, or its context. Some operations of the library can't do without a working array, a
 * byte a node in most cases; a host that has no memory for it is asked again and again, and this one ends the
 * program after ten seconds. With memory set aside that is given back instead, at the first such question, so that the
 * array can be had. The operation goes on, and fails as others do where memory is short.
 *
 * bytes   as much as such an array takes; 0: none. What was set aside before is given back first
 *
 * Returns 0 where there is no such memory. It goes with the context. */
int host_reserve_memory(size_t bytes);

/* ---- results, arrays and options ---------------------------------------------------------------------- *
 *
 * Calls below that work on a whole mesh give one of three results. Where it is not HOST_DONE nothing is handed
 * over. HOST_FAILED: host_error tells why. HOST_STOPPED: the program asked for it. */
enum { HOST_STOPPED = -1, HOST_FAILED = 0, HOST_DONE = 1 };

/* An array of a program.
 *
 * data     borrowed: rows of veclen elements of type
 * type     DTYPE_CHAR to DTYPE_QX_LONG
 * veclen   elements a row, 1 and up
 * null     borrowed: one element of type. A row whose first element equals it has no value. NULL: all rows have */
typedef struct host_array {
    const void *data;
    int type;
    int veclen;
    const void *null;
} host_array;

/* Records of options begin with their size: set it to sizeof the record and everything else to 0, which stands
 * for the default. NULL for a record is all defaults.
 *
 *     host_locator_options options = {sizeof options};
 *     options.tolerance = 1e-3; */

/* ---- results of extractions ----------------------------------------------------------------------------- *
 *
 * What an extraction makes of a mesh is a mesh again: nodes, which are nodes of the mesh or lie between two of them,
 * and cells over these nodes, each made of a cell of the mesh. All lists belong to the result and go with it.
 *
 *     host_result *surface;
 *     if (host_isosurf(field, &density, 0.5, NULL, &surface) != HOST_DONE) puts(host_error());
 *     const host_set *triangles = host_set_of_kind(surface, CELL_TRI);            NULL: there are none
 *     float *temperature_on_it = malloc(surface->nnodes * sizeof(float));
 *     host_carry_nodes(surface, &temperature, temperature_on_it, NULL);
 *     host_free_result(surface); */

/* Cells of one kind. */
typedef struct host_set {
    int kind, order; /* CELL_LINE to CELL_HEX; 1 or 2 */
    qx_long ncells;
    qx_long *connect; /* ncells rows of nodes of the result, in the order of cell_nodes.h */
    qx_long *cell;    /* ncells entries: the cell of the mesh that each was made of, numbered as told below of
                         located points. NULL where the caller did not want it */
} host_set;

typedef struct host_result {
    qx_long nnodes;       /* the mesh's own first, then new ones */
    qx_long nold;         /* nodes of the mesh */
    qx_long *old_node;    /* nold entries: which they are. NULL for none */
    qx_long *first_node;  /* nnodes - nold entries: a new node lies between this node of the mesh */
    qx_long *second_node; /* and this one */
    float *t;             /* where between the two, 0 at the first and 1 at the second */
    int nspace;           /* as of the mesh */
    float *coords;        /* nnodes rows of nspace. NULL where the caller did not want it */
    qx_long ncells;       /* of all sets */
    int nsets;            /* each kind of cells that there are any of */
    host_set *sets;
    qx_long *
        third_node; /* NULL, or nnodes - nold entries: where it is not -1 the new node lies at t not between first_node
                            and second_node, but between first_node and the point at s between second_node and this
                            one. A program may carry data by such a record of its own, as of the new nodes of bands
                            that stand on edges to other new nodes; results of the host have none */
    float *s; /* with third_node */
} host_result;

typedef struct host_level_options {
    size_t size;
    int without_coords; /* not 0: coords stays NULL */
    int without_cells;  /* not 0: cell of the sets stays NULL, which makes large surfaces sooner */
    int threads;        /* how many may work on it, as told below; 0: one */
} host_level_options;

/* Threads. An extraction by several threads gives what one thread gives, byte for byte, whatever their number. No more
 * take part than there are cells, or planes of cells along the last axis of a lattice, and 64 at the most; lattices of
 * less than three axes take one. A small mesh is done sooner by one thread than others can be started: that is for the
 * caller to weigh. They take turns with nothing: the caller's thread is one of them, the others live as long as the
 * call. Each needs 4 bytes a node of cell sets, of which it touches those about its cells. Progress is told of the
 * caller's share; lattices tell of little and can be stopped only at the end of it. */

/* The surface at which a scalar of solid cells reaches a level, and with it the lines at which one of flat cells does;
 * iso.h tells of both. Triangles and lines are sets of order 1.
 *
 * array   a row a node, of one element
 * out     handed over, to host_free_result; NULL unless HOST_DONE. The field need not outlive it */
int host_isosurf(host_field *field, const host_array *array, double level, const host_level_options *options,
                 host_result **out);
/* The lines of flat cells alone. */
int host_isoline(host_field *field, const host_array *array, double level, const host_level_options *options,
                 host_result **out);

typedef struct host_cut_options {
    size_t size;
    int without_coords; /* not 0: coords stays NULL */
    int without_cells;  /* not 0: cell of the sets stays NULL */
    int threads;        /* as of levels */
} host_cut_options;

enum { HOST_BELOW = -1, HOST_ABOVE = 1 };

/* The part of a mesh on one side of a level: cells that lie there whole, those of second order in pieces, and of those
 * that the level crosses the part, as simplices; cut.h tells of both. All cells are of order 1, and sets come in this
 * order: tetrahedra, prisms, pyramids, hexahedra, triangles, quadrilaterals, lines. Old nodes are all those on the side,
 * in their order, also those that no cell has.
 *
 * array   a row a node, of one element
 * side    HOST_BELOW: where the scalar is below the level. HOST_ABOVE: where it is not
 * out     handed over, to host_free_result; NULL unless HOST_DONE. The field need not outlive it
 *
 * Lattices of one axis are refused. */
int host_cut(host_field *field, const host_array *array, double level, int side,
             const host_cut_options *options, host_result **out);

/* The result's set of a kind; NULL: there is none. */
const host_set *host_set_of_kind(const host_result *result, int kind);

/* Carries node data of the mesh onto the nodes of a result.
 *
 * from   a row a node of the mesh
 * to     nnodes rows like those
 * mask   nnodes entries: 1 where a row has a value, 0 where one of the two nodes is null; rows of the latter begin with
 *        the null value and are 0 otherwise. May be NULL
 *
 * Between two nodes values are weighted in double; those of integer types are rounded to the nearest. */
int host_carry_nodes(const host_result *result, const host_array *from, void *to, unsigned char *mask);
/* Carries cell data of the mesh onto the cells of a result, the sets one after another.
 *
 * from   a row a cell of the mesh, by the cell's number
 * to     ncells rows like those, copied as they stand */
int host_carry_cells(const host_result *result, const host_array *from, void *to);

void host_free_result(host_result *result); /* NULL is taken */

/* ---- exact location ------------------------------------------------------------------------------------ *
 *
 * The operations of locate.h are made for drawing: they take a point up to a twentieth of a cell outside, and
 * stop short of its place within the cell. These here find the place to the precision of coordinates.
 *
 *     host_locator *locator;
 *     host_places *places;
 *     const host_array points = {xyz, DTYPE_FLOAT, 3, NULL}, values = {data, DTYPE_DOUBLE, 1, NULL};
 *     host_make_locator(field, NULL, &locator);                   once a mesh
 *     host_locate(locator, &points, npoints, &places);            once a list of points
 *     host_sample_nodes(places, &values, out, mask);              once an array
 *
 * A point belongs to the cell of lowest number among those that hold it within rounding, which is one unit in the
 * last place of float coordinates of the cell's size; so points on faces, on edges and at nodes are found. A point
 * in no cell belongs to the nearest one within the locator's tolerance, at the nearest place of that cell. Any other
 * is outside, NaN included.
 *
 * Cells are numbered through all cell sets, in their order. Cells of structured meshes are numbered with axis 0
 * fastest, (k * (dims[1] - 1) + j) * (dims[0] - 1) + i, as cell maps of isosurfaces number them; axes of one node are
 * passed over, so that a mesh with dims (9, 1, 4) has 8 * 3 quadrilaterals. Cells without extent, and those with
 * coordinates that are not finite, hold no point.
 *
 * Places and weights are worked out in double. All kinds have shape functions of their own, of second order too:
 * prisms those of the serendipity family, pyramids the rational ones that agree with their neighbours' on each
 * face. Where cells of second order are distorted so much that their map folds, one of the places is found. */

typedef struct host_locator host_locator;

typedef struct host_locator_options {
    size_t size;
    double tolerance; /* how far outside all cells a point may lie, in coordinates; 0: a millionth of the
                         diagonal of the mesh's box; below 0: none */
    int threads; /* how many may locate points, and sample at them; 0: one. Places and values are the same */
} host_locator_options;

/* Prepares a field for location. The field must outlive the locator, and everything made with it. Read only once
 * made: any number of threads may locate with it at a time.
 *
 * out   handed over, to host_free_locator; NULL unless HOST_DONE
 *
 * Takes 24 bytes and a block table of about 40 bytes a cell for cell sets and curvilinear meshes, and while it is
 * made 16 bytes a cell; next to nothing for others. */
int host_make_locator(host_field *field, const host_locator_options *options, host_locator **out);
void host_free_locator(host_locator *locator); /* NULL is taken */

/* Located points. */
typedef struct host_places {
    qx_long npoints;
    const qx_long *cell; /* npoints entries: the point's cell; -1: outside */
    const double
        *uvw; /* npoints rows of 3: the place in the cell, in the parameters of cell_nodes.h; those of
                            a pyramid are u and v over the half width at w, each from -1 to 1. 0 where the kind
                            has no such parameter, and outside */
} host_places;

/* Locates points.
 *
 * points   npoints rows of 1 to 3 floats or doubles; coordinates that are missing are 0, and so are those that the
 *          mesh does not have
 * out      handed over, to host_free_places; NULL unless HOST_DONE. It leans on the field, not on the locator
 *
 * Cost: some tens of boxes and one or two cells a point. Large lists are best located in one call. */
int host_locate(const host_locator *locator, const host_array *points, qx_long npoints, host_places **out);
void host_free_places(host_places *places); /* NULL is taken */

/* ---- sampling ---------------------------------------------------------------------------------------------- */

/* Samples node data at located points.
 *
 * values   a row a node of the field
 * out      npoints rows like those of values
 * mask     npoints entries: 1 where the row has a value, 0 for points outside and where a node that takes part is
 *          null; rows of the latter are 0. May be NULL
 *
 * Nodes take part whose weight is more than 1e-9: at a node, and on a face, none of the others. Values of integer
 * types are rounded to the nearest, and stop at the end of the type's range; all are computed in double. A
 * constant comes back as it is. */
int host_sample_nodes(const host_places *places, const host_array *values, void *out, unsigned char *mask);

/* The same for cell data: each point has the row of its cell, as it stands.
 *
 * values   a row a cell, by the cell's number */
int host_sample_cells(const host_places *places, const host_array *values, void *out, unsigned char *mask);

/* The nodes that take part in a point's values, and their weights, which sum to 1.
 *
 * nodes, weights   out, room for 20 entries
 *
 * Returns how many there are; 0 for a point outside. */
int host_place_weights(const host_places *places, qx_long point, qx_long *nodes, double *weights);

/* ---- exact tracing ----------------------------------------------------------------------------------------- *
 *
 * The operations of trace.h reach a field through its mesh's find_cell_func and interp_data_func. Those of the library
 * take places to a twentieth of a cell; those of this mesh are exact, so that lines end at the mesh's border and a field
 * that is linear in space is followed as one.
 *
 *     mesh_info *exact = host_exact_mesh(locator);
 *     UTILstream_line(exact, NULL, vectors, DTYPE_FLOAT, 3, 0, NULL, 4, 1, 4, 0, seed, ...);
 *     host_free_exact_mesh(exact); */

/* A mesh record of the locator's field with exact functions for places and values; all others are the library's.
 *
 * find_cell_func     looks at no block table: NULL will do. Points belong to cells as host_locate tells; cells are
 *                    numbered as UTILfind_cell numbers them, so that a structured cell goes by its lowest node.
 *                    -1 where there is no memory
 * interp_data_func   values are worked out in double and rounded to float. 0 where a node that takes part is null
 *
 * Handed over, to host_free_exact_mesh; NULL where it can't be had. The locator must outlive it. It serves one thread at
 * a time. Cells of second order are those of the locator: the library's derivatives do not suit its prisms and
 * pyramids. */
mesh_info *host_exact_mesh(const host_locator *locator);
void host_free_exact_mesh(mesh_info *mesh); /* NULL is taken */

/* ---- derivatives --------------------------------------------------------------------------------------- *
 *
 * Right for linear fields at every node of every mesh, up to the rounding of floats, where the forms of deriv.h keep
 * what hosts rely on: rectilinear ends, flat meshes and surfaces in any position, axes of one node, pyramids, cells
 * of different dimensions together. The library's forms do the work where they are right, and are as fast here.
 *
 *   lattices   differences between neighbouring nodes, as deriv.h tells; those with null nodes, and surfaces and
 *              curves in space, as cells
 *   cells      at each node the mean over the cells around it; of cells of several dimensions, those of the highest.
 *              Cells with a null node, and those without extent, take no part, but in sets of solid cells without
 *              null (or of surface cells, for the gradient) those without extent count with 0
 *
 * On surfaces and curves derivatives are those within them: the gradient lies in the tangent plane, or along the
 * curve; curl and divergence are put together from the gradients of the components.
 *
 * values   a row a node: 1 element for the gradient, 3 for the others, or 2, the third then 0
 * out      nnodes rows of 3 floats, of 1 for the divergence; NaN where there is no derivative: at nodes without
 *          cells, or with such cells only that take no part. Partly written where the result is not HOST_DONE
 * mask     nnodes entries: 1 where there is a derivative, else 0. May be NULL */
int host_gradient(host_field *field, const host_array *values, float *out, unsigned char *mask);
int host_curl(host_field *field, const host_array *values, float *out, unsigned char *mask);
int host_divergence(host_field *field, const host_array *values, float *out, unsigned char *mask);

/* ---- cell data at nodes ---------------------------------------------------------------------------------- */

enum { HOST_WEIGHT_NONE = 0, HOST_WEIGHT_DISTANCE = 1 };

typedef struct host_cell_to_node_options {
    size_t size;
    int weight; /* HOST_WEIGHT_NONE: cells count alike. HOST_WEIGHT_DISTANCE: by 1 / the distance of the node from
                   the mean of the cell's nodes */
} host_cell_to_node_options;

/* The mean of the cells around each node.
 *
 * values   a row a cell, by the cell's number, as locators number them; null cells take no part
 * out      nnodes rows like those of values, summed in double; integers are rounded to the nearest, and stop at
 *          the end of the type's range. 0 where there is no value
 * mask     nnodes entries: 1 where there is a value, 0 at nodes without cells that take part. May be NULL */
int host_cell_to_node(host_field *field, const host_array *values, const host_cell_to_node_options *options,
                      void *out, unsigned char *mask);

/* ---- measures ---------------------------------------------------------------------------------------------- */

/* What host_measure_field finds for the cells of one dimension. */
typedef struct host_measure {
    qx_long ncells;     /* cells of that dimension */
    double measure;     /* their length, area or volume */
    double integral;    /* of the values, over the cells without a null node */
    double valued;      /* the measure of these cells: integral / valued is the mean */
    qx_long null_cells; /* cells with a null node */
} host_measure;

/* Measures a field, and integrates node data over it.
 *
 * values      a row a node of the field; NULL: nothing is integrated
 * component   the one that is integrated, from 0; not looked at without values
 * out         3 entries: the cells of dimension 1, 2 and 3
 *
 * Gives one of HOST_DONE, HOST_FAILED and HOST_STOPPED. Unlike UTILvol_integr it takes cells of every kind and both
 * orders, in double, by quadrature that is exact for the kind's shape functions on straight solids, on flat surfaces
 * and on lines. A cell with a null node counts with its measure and has no part in the integral. Inverted cells
 * count as positive. */
int host_measure_field(host_field *field, const host_array *values, int component, host_measure *out);

/* ---- settings ------------------------------------------------------------------------------------------ */

/* The integer stored at a path, names joined by dots.
 *
 * path    "Templates.CONFIG.num_threads", which DVmt_init writes, is the one there is
 * value   out
 *
 * Returns 0, with value as it was, where there is no such setting or nothing was stored in it yet. */
int host_get_setting(const char *path, int *value);

SKOKLANA_END
#endif
