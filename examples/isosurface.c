/* The surface of a ball, and a second array carried onto it: how warm it is there. */
#include <skoklana_host.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

enum { N = 33 };

static float distance[N * N * N];                /* from the middle of the cube */
static short temperature[N * N * N];             /* rises from left to right */
static int density[(N - 1) * (N - 1) * (N - 1)]; /* of the cells: their layer */

static double area(const host_result *surface, const host_set *triangles)
{
    double sum = 0;
    for (qx_long i = 0; i < triangles->ncells; ++i) {
        const float *p[3];
        for (int k = 0; k < 3; ++k)
            p[k] = surface->coords + 3 * triangles->connect[3 * i + k];
        double a[3], b[3], square = 0;
        for (int d = 0; d < 3; ++d) {
            a[d] = p[1][d] - p[0][d];
            b[d] = p[2][d] - p[0][d];
        }
        for (int d = 0; d < 3; ++d) {
            const double n = a[(d + 1) % 3] * b[(d + 2) % 3] - a[(d + 2) % 3] * b[(d + 1) % 3];
            square += n * n;
        }
        sum += sqrt(square) / 2;
    }
    return sum;
}

int main(void)
{
    const qx_long dims[3] = {N, N, N};
    const float corners[6] = {-1, -1, -1, 1, 1, 1}; /* first node, last node */
    for (int node = 0; node < N * N * N; ++node) {
        const int at[3] = {node % N, node / N % N, node / N / N};
        float square = 0;
        for (int d = 0; d < 3; ++d) {
            const float x = 2.0f * (float)at[d] / (N - 1) - 1;
            square += x * x;
        }
        distance[node] = sqrtf(square);
        temperature[node] = (short)(100 + 10 * at[0]);
    }
    for (int cell = 0; cell < (N - 1) * (N - 1) * (N - 1); ++cell)
        density[cell] = cell / (N - 1) / (N - 1);

    host_field *field = host_uniform(3, dims, 3, corners);
    const host_array distances = {distance, DTYPE_FLOAT, 1, NULL};
    host_result *surface = NULL;
    if (field == NULL || host_isosurf(field, &distances, 0.75, NULL, &surface) != HOST_DONE) {
        fprintf(stderr, "%s\n", host_error());
        return EXIT_FAILURE;
    }
    const host_set *triangles =
        host_set_of_kind(surface, CELL_TRI); /* NULL would be: nothing reaches the level */
    printf("%lld nodes, %lld triangles, area %.2f\n", (long long)surface->nnodes,
           (long long)triangles->ncells, area(surface, triangles));

    /* A row a node of the surface, and a row a triangle. */
    const host_array temperatures = {temperature, DTYPE_SHORT, 1, NULL},
                     layers = {density, DTYPE_INT, 1, NULL};
    short *warm = malloc((size_t)surface->nnodes * sizeof *warm);
    int *layer = malloc((size_t)surface->ncells * sizeof *layer);
    if (warm == NULL || layer == NULL || host_carry_nodes(surface, &temperatures, warm, NULL) != HOST_DONE ||
        host_carry_cells(surface, &layers, layer) != HOST_DONE)
        return EXIT_FAILURE;
    short least = warm[0], most = warm[0];
    for (qx_long node = 0; node < surface->nnodes; ++node) {
        least = warm[node] < least ? warm[node] : least;
        most = warm[node] > most ? warm[node] : most;
    }
    printf("%d degrees on the left, %d on the right; the first triangle lies in layer %d\n", least, most,
           layer[0]);

    free(warm);
    free(layer);
    host_free_result(surface);
    host_free_field(field);
    return 0;
}
