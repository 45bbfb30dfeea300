/* One mesh of each kind: its box, and where some of its nodes stand. */
#include <skoklana.h>
#include <skoklana_host.h>

#include <stdio.h>
#include <stdlib.h>

enum { LISTED = 3 };

/* Prints the box of all nodes that cells use, and the listed nodes. Releases the field. */
static void show(const char *name, host_field *field, const qx_long *nodes)
{
    mesh_info *mesh = field != NULL ? host_mesh(field) : NULL;
    float min[3], max[3], position[LISTED * 3];
    qx_long *map = NULL;
    if (mesh == NULL || UTILfield_extent(mesh, min, max) != 1) {
        fprintf(stderr, "%s: %s\n", name, host_error());
        exit(EXIT_FAILURE);
    }
    printf("%s: %lld nodes, %lld cells, from (%g %g %g) to (%g %g %g)\n", name, (long long)mesh->nnodes,
           (long long)mesh->ncells, min[0], min[1], min[2], max[0], max[1], max[2]);

    /* Structured meshes take a list of nodes; cell sets take the new place of every node, or -1. */
    if (mesh->ndim == 0) {
        map = malloc((size_t)mesh->nnodes * sizeof *map);
        if (map == NULL) exit(EXIT_FAILURE);
        for (qx_long node = 0; node < mesh->nnodes; ++node)
            map[node] = -1;
        for (int i = 0; i < LISTED; ++i)
            map[nodes[i]] = i;
    }
    if (UTILget_coord_list(mesh, LISTED, map != NULL ? map : nodes, position) != 1) exit(EXIT_FAILURE);
    for (int i = 0; i < LISTED; ++i)
        printf("    node %lld at (%g %g %g)\n", (long long)nodes[i], position[3 * i], position[3 * i + 1],
               position[3 * i + 2]);
    free(map);
    host_free_field(field);
}

int main(void)
{
    const qx_long dims[3] = {5, 3, 2}, nodes[LISTED] = {0, 7, 29};

    const float corners[6] = {0, 0, 0, 2, 1, 0.5f}; /* first node, last node */
    show("uniform", host_uniform(3, dims, 3, corners), nodes);

    const float x[5] = {0, 1, 10, 100, 1000}, y[3] = {-1, 0, 1}, z[2] = {0, 0.5f};
    const float *axes[3] = {x, y, z};
    show("rectilinear", host_rectilinear(3, dims, 3, axes), nodes);

    float coords[5 * 3 * 2 * 3]; /* sheared: each row starts further to the right */
    for (int node = 0; node < 5 * 3 * 2; ++node) {
        const int i = node % 5, j = node / 5 % 3, k = node / 15;
        coords[3 * node] = (float)i + 0.5f * (float)j;
        coords[3 * node + 1] = (float)j;
        coords[3 * node + 2] = (float)k;
    }
    show("curvilinear", host_curvilinear(3, dims, 3, coords), nodes);

    /* A tetrahedron and a triangle on one of its faces; nobody uses node 4. Triangles and tetrahedra have
     * their parametric origin at the last node. */
    const float corner[5 * 3] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 9, 9, 9};
    const qx_long tet[4] = {1, 2, 3, 0}, tri[3] = {1, 2, 0}, some[LISTED] = {1, 3, 4};
    host_field *cells = host_cells(5, 3, corner);
    if (cells == NULL || !host_add_cells(cells, CELL_TET, 1, 1, tet) ||
        !host_add_cells(cells, CELL_TRI, 1, 1, tri)) {
        fprintf(stderr, "%s\n", host_error());
        return EXIT_FAILURE;
    }
    show("cell sets", cells, some);
    return 0;
}
