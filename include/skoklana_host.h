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

#include <skoklana/cell_nodes.h>
#include <skoklana/mesh.h>

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

/* What was wrong with this thread's last host_ call that failed, or last fetch from a field; "" if none
 * did. Never NULL; valid until the thread's next failure. */
const char *host_error(void);

/* ---- reports, progress, interruption ---------------------------------------------------------------- *
 *
 * Handlers are called on the thread that runs the operation; set them before other threads run. user is
 * handed through as it is. */

/* Called for each report of the library.
 *
 * module     borrowed: who reports
 * severity   2
 * message    borrowed: one line without a newline */
typedef void (*host_error_handler)(void *user, const char *module, int severity, const char *message);

/* Sets the handler. NULL, and none set: "module: message" goes to standard error. */
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

/* Asks all operations, on all threads, to stop at their next status check; an operation that stops returns 0
 * unless its own text says otherwise, and reports nothing. May be called from any thread and from signal
 * handlers. The request stands until host_clear_interrupt. */
void host_interrupt(void);
void host_clear_interrupt(void);

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
