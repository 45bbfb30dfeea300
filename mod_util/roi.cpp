// Closed outlines: where one starts, how far along it each vertex is, and the strip between two.
//
// The centre of an outline is that of its perimeter: each edge weighs by its length. Coordinates are added and
// squared as floats and everything that is summed over the outline is a double, parameters aside, which are stored
// as floats and summed as they are stored.
#include <skoklana/chart.h>

#include "memory.hpp"

#include <cmath>

namespace {

struct outline {
    qx_long n;
    qx_long stride;
    const float *coords;

    const float *vertex(qx_long i) const { return coords + i * stride; }
    const float *before(qx_long i) const { return vertex(i > 0 ? i - 1 : n - 1); }
};

struct outline_centre {
    double total; // length of the outline
    double x, y;
};

} // namespace

// length, n entries: that of the edge into each vertex.
static outline_centre measure_outline(const outline &ring, double *length)
{
    double total = 0, sx = 0, sy = 0;
    for (qx_long i = 0; i < ring.n; ++i) {
        const float *from = ring.before(i), *to = ring.vertex(i);
        const float dx = to[0] - from[0], dy = to[1] - from[1];
        length[i] = std::sqrt(static_cast<double>(dx * dx + dy * dy));
        total += length[i];
        sx += static_cast<double>(from[0] + to[0]) * 0.5 * length[i];
        sy += static_cast<double>(from[1] + to[1]) * 0.5 * length[i];
    }
    return {total, sx / total, sy / total};
}

static bool crosses_centre(const outline_centre &centre, int side, const float *from, const float *to)
{
    switch (side) {
    case 0: return centre.x >= static_cast<double>(from[0]) && static_cast<double>(to[0]) >= centre.x;
    case 1: return static_cast<double>(from[1]) >= centre.y && centre.y >= static_cast<double>(to[1]);
    case 2: return static_cast<double>(from[0]) >= centre.x && centre.x >= static_cast<double>(to[0]);
    case 3: return centre.y >= static_cast<double>(from[1]) && static_cast<double>(to[1]) >= centre.y;
    default: return false;
    }
}

int UTILroi_sort_verts(int stride, const float *coords, const qx_long *range, int side, qx_long *nodes,
                       float *params)
{
    const outline ring = {range[1] - range[0] + 1, stride, coords};
    const qx_long n = ring.n;
    if (n < 1) return 0;
    scratch memory;
    double *length = memory.borrow<double>(n);
    if (length == nullptr) return 0;
    const outline_centre centre = measure_outline(ring, length);
    if (centre.total == 0.0) return 0;
    qx_long start = 0;
    while (start < n && !crosses_centre(centre, side, ring.before(start), ring.vertex(start)))
        ++start;
    if (start == n) return 0;

    nodes[0] = start + range[0];
    params[0] = 0;
    for (qx_long k = 1; k <= n; ++k) {
        const qx_long i = start + k < n ? start + k : start + k - n;
        nodes[k] = i + range[0];
        params[k] = static_cast<float>(length[i] / centre.total + static_cast<double>(params[k - 1]));
    }
    return 1;
}

int UTILroi_connect_verts(qx_long n1, qx_long n2, const qx_long *nodes1, const qx_long *nodes2,
                          const float *params1, const float *params2, qx_long *ntri, qx_long *conn)
{
    qx_long i = 0, j = 0, count = 0;
    *conn++ = nodes1[0];
    *conn++ = nodes2[0];
    while (i < n1 && j < n2 && count < *ntri) {
        ++count; // also for a triangle that turns out to have no third vertex
        if (i + 1 < n1 && params2[j + 1] >= params1[i + 1]) {
            *conn++ = nodes1[++i];
        } else {
            if (++j == n2) break;
            *conn++ = nodes2[j];
        }
        *conn++ = nodes1[i];
        *conn++ = nodes2[j];
    }
    return count == *ntri ? 1 : 0;
}
