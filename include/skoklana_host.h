/* The embedded host: what a program runs on that has no host of its own.
 *
 * A program describes a mesh by plain arrays, gets a bound mesh_info for it and hands that to the functions
 * of skoklana.h. Link libskoklana and libskoklana_host.
 *
 *     const float corners[6] = {0, 0, 0, 1, 1, 1};
 *     const qx_long dims[3] = {64, 64, 64};
 *     host_field *field = host_uniform(3, dims, 3, corners);
 *     if (field == NULL) puts(host_error());
 *     mesh_info *mesh = host_mesh(field);
 *     ...
 *     host_free_field(field);
 *
 * Arrays that describe a mesh are *borrowed until host_free_field*: they are read where they stand, not
 * copied, and must outlive the field unchanged. dims and axis lengths are copied.
 *
 * Functions that give a pointer give NULL on failure, others 0; host_error then says what was wrong, in
 * words for the user. A field belongs to one thread at a time; different fields may be used at once. */
#ifndef SKOKLANA_HOST_H
#define SKOKLANA_HOST_H

#include <skoklana/cell_nodes.h>
#include <skoklana/mesh.h>

SKOKLANA_BEGIN

typedef struct host_field host_field;

/* ---- fields from arrays ---------------------------------------------------------------------------- */

/* A uniform mesh.
 *
 * ndim      computational axes, 1 to 3
 * dims      nodes along each, at least 1, dims[0] the fastest
 * nspace    coordinates a node, ndim to 3
 * corners   two rows of nspace floats: the first node, the last node; finite */
host_field *host_uniform(int ndim, const qx_long *dims, int nspace, const float *corners);

/* A rectilinear mesh.
 *
 * axes   nspace pointers: dims[d] finite floats for each axis below ndim; for axes from ndim to nspace one
 *        float, the constant coordinate there, or NULL for 0 */
host_field *host_rectilinear(int ndim, const qx_long *dims, int nspace, const float *const *axes);

/* A curvilinear mesh. coords: a row of nspace floats a node, axis 0 fastest. */
host_field *host_curvilinear(int ndim, const qx_long *dims, int nspace, const float *coords);

/* A mesh of cell sets, none yet. coords: nnodes rows of nspace floats. */
host_field *host_cells(qx_long nnodes, int nspace, const float *coords);

/* Adds a cell set to a field of host_cells, before its mesh is asked for.
 *
 * kind      CELL_LINE to CELL_HEX
 * order     1 or 2
 * connect   ncells rows of node numbers, in the node order of cell_nodes.h
 *
 * Node numbers outside the field are refused. */
int host_add_cells(host_field *field, int kind, int order, qx_long ncells, const qx_long *connect);

/* The field's mesh, bound to the library's operations; kept by the field. */
mesh_info *host_mesh(host_field *field);

/* Releases the field and its mesh. NULL is taken. */
void host_free_field(host_field *field);

/* Releases a block table of UTILinterp_init or UTILinterp_init_struct. NULL is taken. */
void host_free_table(blk_tbl *table);

/* What was wrong with this thread's last failed host_ call. Never NULL. */
const char *host_error(void);

/* ---- reports, progress, interruption ---------------------------------------------------------------- */

/* Called for each report of the library. The default handler, and NULL, print "module: message" on standard
 * error. Set it before other threads run. */
typedef void (*host_error_handler)(void *user, const char *module, int severity, const char *message);
void host_set_error_handler(host_error_handler handler, void *user);

/* The last reports of this thread, newest first; age 0 is the newest. Returns 0 where there is none of that
 * age; at least 8 are kept. */
int host_last_report(int age, const char **module, const char **message);
void host_clear_reports(void);

/* Called at each status check with the overall progress, 0 to 100, nested ranges taken into account.
 * message may be NULL. A non-zero result asks the operation to stop. NULL: none. */
typedef int (*host_progress_handler)(void *user, int percent, const char *message);
void host_set_progress_handler(host_progress_handler handler, void *user);

/* Asks the running operation to stop at its next status check; it then returns 0 (or as its text says).
 * Safe from other threads and from signal handlers. The request stands until host_clear_interrupt. */
void host_interrupt(void);
void host_clear_interrupt(void);

/* ---- settings ------------------------------------------------------------------------------------------ */

/* The integer stored at a path such as "Templates.CONFIG.num_threads". 0: no such setting, or never set. */
int host_get_setting(const char *path, int *value);

SKOKLANA_END
#endif
