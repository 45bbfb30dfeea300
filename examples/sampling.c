/* Values along a line through a mesh of two kinds of cells, at the places where the line really is. */
#include <skoklana_host.h>

#include <stdio.h>
#include <stdlib.h>

enum { NPOINTS = 10 };

int main(void)
{
    /* A cube and a wedge beside it, as VTK numbers their nodes. */
    const float coords[10 * 3] = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1,
                                  1, 0, 1, 1, 1, 1, 0, 1, 1, 2, 0, 0, 2, 0, 1};
    const unsigned char types[2] = {12, 13};
    const qx_long offsets[3] = {0, 8, 14};
    const qx_long nodes[14] = {0, 1, 2, 3, 4, 5, 6, 7, 1, 2, 8, 5, 6, 9};
    host_field *field = host_cells(10, 3, coords);
    if (field == NULL || !host_add_cells_vtk(field, 2, types, offsets, nodes, NULL)) {
        fprintf(stderr, "%s\n", host_error());
        return EXIT_FAILURE;
    }

    /* One array of doubles, and one of integers in which -1 means that nobody measured. */
    double height[10];
    int count[10];
    const int unknown = -1;
    for (int node = 0; node < 10; ++node) {
        height[node] = coords[3 * node] + 10 * coords[3 * node + 2];
        count[node] = node == 9 ? unknown : 100 * node;
    }
    const host_array heights = {height, DTYPE_DOUBLE, 1, NULL}, counts = {count, DTYPE_INT, 1, &unknown};

    float line[NPOINTS * 3]; /* from (-0.25, 0.25, 0.25) along x */
    for (int i = 0; i < NPOINTS; ++i) {
        line[3 * i] = -0.25f + 0.25f * (float)i;
        line[3 * i + 1] = line[3 * i + 2] = 0.25f;
    }
    const host_array points = {line, DTYPE_FLOAT, 3, NULL};
    host_locator *locator = NULL;
    host_places *places = NULL;
    double h[NPOINTS];
    int c[NPOINTS];
    unsigned char has_height[NPOINTS], has_count[NPOINTS];
    if (host_make_locator(field, NULL, &locator) != HOST_DONE ||
        host_locate(locator, &points, NPOINTS, &places) != HOST_DONE ||
        host_sample_nodes(places, &heights, h, has_height) != HOST_DONE ||
        host_sample_nodes(places, &counts, c, has_count) != HOST_DONE) {
        fprintf(stderr, "%s\n", host_error());
        return EXIT_FAILURE;
    }
    for (int i = 0; i < NPOINTS; ++i) {
        printf("x %5.2f  cell %2lld", line[3 * i], (long long)places->cell[i]);
        if (has_height[i]) printf("  height %.4f", h[i]);
        if (has_count[i]) printf("  count %d", c[i]);
        printf("\n");
    }
    host_free_places(places);
    host_free_locator(locator);
    host_free_field(field);
    return 0;
}
