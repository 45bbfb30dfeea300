/* A program of someone else's: it knows the installed tree only. */
#include <skoklana.h>
#include <skoklana_host.h>

#include <stdio.h>

int main(void)
{
    const qx_long dims[3] = {3, 3, 3};
    const float corners[6] = {0, 0, 0, 2, 4, 6};
    const qx_long last = 26;
    float position[3];
    host_field *field = host_uniform(3, dims, 3, corners);
    if (field == NULL || UTILget_coord_list(host_mesh(field), 1, &last, position) != 1) {
        fprintf(stderr, "%s\n", host_error());
        return 1;
    }
    printf("%g %g %g\n", position[0], position[1], position[2]);
    host_free_field(field);
    return 0;
}
