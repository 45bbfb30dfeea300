// Data made up from a polynomial of coordinates of second degree, evaluated in single precision.

#include <skoklana/scatter.h>

#include "dtype.hpp"

// Coefficients go with 1, the coordinates, their products in pairs, their squares, each in order of the axes.
// Products and sums are taken from the left.
static float second_degree(int ndim, const float *c, const float *at)
{
    const float x = at[0], y = at[1], z = at[2];
    switch (ndim) {
    case 1: return c[0] + c[1] * x + c[2] * x * x;
    case 2: return c[0] + c[1] * x + c[2] * y + c[3] * x * y + c[4] * x * x + c[5] * y * y;
    default:
        return c[0] + c[1] * x + c[2] * y + c[3] * z + c[4] * x * y + c[5] * x * z + c[6] * y * z +
               c[7] * x * x + c[8] * y * y + c[9] * z * z;
    }
}

extern "C" int UTILgen_data(qx_long count, int stride, int offset, int dtype, void *out, int ndim,
                            const float *coords, const float *coefs, int null_flag, double null_value)
{
    return with_dtype(dtype, "UTILgen_data", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        T *to = static_cast<T *>(out) + offset;
        if (null_flag != 0) {
            for (qx_long i = 0; i < count; ++i)
                to[i * stride] = truncate_to<T>(null_value);
            return 1;
        }
        if (ndim < 1 || ndim > 3) return 1;
        for (qx_long i = 0; i < count; ++i) {
            float at[3] = {0, 0, 0};
            for (int k = 0; k < ndim; ++k)
                at[k] = coords != nullptr ? coords[i * ndim + k] : static_cast<float>(i * ndim + k);
            to[i * stride] = truncate_to<T>(second_degree(ndim, coefs, at));
        }
        return 1;
    });
}
