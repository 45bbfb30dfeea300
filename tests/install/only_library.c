/* A program of someone else's that calls nothing of the host by itself. */
#include <skoklana.h>

#include <stdio.h>

int main(void)
{
    const float in[3] = {1, 4, 9};
    float out[3];
    if (UTILclamp(3, in, 1, 0, DTYPE_FLOAT, 0, NULL, 1, 2, 1, 6, out) != 1) return 1;
    printf("%g %g %g\n", out[0], out[1], out[2]);
    return 0;
}
