/* A program that is a host itself: the library hands its functions to it, asks it for memory and progress, and reads a
 * mesh of its own making. Only number conversions and small matrices come from the embedded host, which is linked for
 * them; what stands here takes the place of its calls of the same name. */
#include <skoklana.h>
#include <skoklana/host/fld.h>
#include <skoklana/host/om.h>
#include <skoklana/host/tool.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* ---- what the library asks of a host --------------------------------------------------------------------- */

static const OM_named_func *functions;
static int nfunctions, nlists;

int OMadd_named_funcs(const OM_named_func *table, int count)
{
    functions = table; /* lives for ever */
    nfunctions = count;
    return 1;
}

static void (*function(const char *name))(void)
{
    for (int i = 0; i < nfunctions; ++i)
        if (strcmp(functions[i].name, name) == 0) return functions[i].func;
    return NULL; /* the library knows that as an operation that the mesh does not have */
}

void OMpush_status_range(int low, int high)
{
    (void)low;
    (void)high;
}

void OMpop_status_range(void) {}

int OMstatus_check(int percent, const char *message, int *stop)
{
    (void)percent; /* show it */
    (void)message;
    if (stop != NULL) *stop = 0; /* not 0 once the user has had enough */
    return 1;
}

void ERRerror(const char *module, int zero, int severity, const char *message)
{
    (void)zero;
    fprintf(stderr, "%s: %s (%d)\n", module, message, severity);
}

void *ARRalloc_f(void *zero, int type, qx_long count, int zero2, const char *file, int line)
{
    (void)zero;
    (void)zero2;
    (void)file;
    (void)line;
    ++nlists;
    return malloc((size_t)(count > 0 ? count : 1) * (size_t)DTYPEtype_size(type));
}

/* ---- a mesh that this host keeps in its own way ------------------------------------------------------------ */

static qx_long dims[3] = {9, 9, 9};
static float corners[6] = {0, 0, 0, 8, 8, 8};

static int get_points(mesh_info *mesh, float **points)
{
    (void)mesh;
    *points = corners;
    return 1;
}

int main(void)
{
    int values[9 * 9 * 9];
    for (int node = 0; node < 9 * 9 * 9; ++node)
        values[node] = node % 9 + node / 9 % 9 + node / 81;

    FLD_METHinit();
    OMobj_id id = {{0, 1}};
    mesh_methods methods = {0};
    mesh_info mesh = {0};
    methods.isosurf_func =
        (int (*)(mesh_info *, const void *, int, int, const void *, double, qx_long *, qx_long **, qx_long **,
                 qx_long *, qx_long **, qx_long *, qx_long *, qx_long **, qx_long *, qx_long *,
                 qx_long **))function("isosurf_func_unif");
    methods.eval_coord_func = (int (*)(mesh_info *, qx_long, const qx_long *, const qx_long *, const float *,
                                       float *))function("eval_coord_func_unif");
    mesh.field_id = &id;
    mesh.ndim = mesh.nspace = 3;
    mesh.dims = dims;
    mesh.nnodes = 9 * 9 * 9;
    mesh.methods = &methods;
    mesh.get_points = get_points;

    qx_long nnodes, *a, *b, nline, *line, nline_conn, ntri, *tri, ntri_conn;
    if (UTILisosurf(&mesh, values, DTYPE_INT, 0, NULL, 11.5, &nnodes, &a, &b, &nline, &line, &nline_conn,
                    &ntri, &tri, &ntri_conn, NULL, NULL) != 1)
        return EXIT_FAILURE;
    float *t = malloc((size_t)nnodes * sizeof *t), *coords = malloc((size_t)nnodes * 3 * sizeof *coords);
    if (t == NULL || coords == NULL || UTILget_param(nnodes, DTYPE_INT, values, 11.5, a, b, t) != 1 ||
        UTILeval_coord(&mesh, nnodes, a, b, t, coords) != 1)
        return EXIT_FAILURE;
    printf("%s functions to choose from, %s memory asked for\n", nfunctions > 100 ? "many" : "few",
           nlists > 0 ? "some" : "no");
    printf("%lld triangles over %lld nodes, the first at (%g %g %g)\n", (long long)ntri, (long long)nnodes,
           coords[0], coords[1], coords[2]);
    free(t);
    free(coords);
    free(a);
    free(b);
    free(tri);
    return 0;
}
