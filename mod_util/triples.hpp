// Rows of three floats taken apart into three arrays, and put together again: loops over the three arrays become
// wide, loops over the rows do not.
#pragma once

#include "simd.hpp"

#include <skoklana/types.h>

#include <cstring>

typedef float four_floats __attribute__((vector_size(16)));

FORCE_INLINE four_floats load_four(const float *from)
{
    four_floats v;
    memcpy(&v, from, sizeof v);
    return v;
}

FORCE_INLINE void store_four(const four_floats &v, float *to)
{
    memcpy(to, &v, sizeof v);
}

// count rows of three.
FORCE_INLINE void split_triples(const float *rows, qx_long count, float *x, float *y, float *z)
{
    qx_long i = 0;
    for (; i + 4 <= count; i += 4, rows += 12) {
        // x0 y0 z0 x1, y1 z1 x2 y2, z2 x3 y3 z3
        const four_floats a = load_four(rows), b = load_four(rows + 4), c = load_four(rows + 8);
        const four_floats xy = __builtin_shufflevector(b, c, 2, 3, 5, 6); // x2 y2 x3 y3
        const four_floats yz = __builtin_shufflevector(a, b, 1, 2, 4, 5); // y0 z0 y1 z1
        store_four(__builtin_shufflevector(a, xy, 0, 3, 4, 6), x + i);
        store_four(__builtin_shufflevector(yz, xy, 0, 2, 5, 7), y + i);
        store_four(__builtin_shufflevector(yz, c, 1, 3, 4, 7), z + i);
    }
    for (; i < count; ++i, rows += 3) {
        x[i] = rows[0];
        y[i] = rows[1];
        z[i] = rows[2];
    }
}

FORCE_INLINE void join_triples(const float *x, const float *y, const float *z, qx_long count, float *rows)
{
    qx_long i = 0;
    for (; i + 4 <= count; i += 4, rows += 12) {
        const four_floats a = load_four(x + i), b = load_four(y + i), c = load_four(z + i);
        const four_floats xy = __builtin_shufflevector(a, b, 0, 2, 4, 6);  // x0 x2 y0 y2
        const four_floats yz = __builtin_shufflevector(b, c, 1, 3, 5, 7);  // y1 y3 z1 z3
        const four_floats zx = __builtin_shufflevector(c, a, 0, 2, 5, 7);  // z0 z2 x1 x3
        store_four(__builtin_shufflevector(xy, zx, 0, 2, 4, 6), rows);     // x0 y0 z0 x1
        store_four(__builtin_shufflevector(yz, xy, 0, 2, 5, 7), rows + 4); // y1 z1 x2 y2
        store_four(__builtin_shufflevector(zx, yz, 1, 3, 5, 7), rows + 8); // z2 x3 y3 z3
    }
    for (; i < count; ++i, rows += 3) {
        rows[0] = x[i];
        rows[1] = y[i];
        rows[2] = z[i];
    }
}
