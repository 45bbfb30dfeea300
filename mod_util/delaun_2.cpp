// Delaunay triangles of points in the plane, by the sweep of tess_sweep.hpp.
//
// Everything a triangle's place in the result depends on is plain double arithmetic in a fixed order: its circle,
// the test of a point against it, the step that moves a point out of line with an edge. There are no tolerances: a
// point on a circle is outside.

#include <skoklana/scatter.h>

#include "tess_sweep.hpp"

namespace {

struct triangle_kind {
    static constexpr int axes = 2;
    static constexpr int status_period = 128;
    static constexpr int cells_a_point = 6;
    static constexpr int facets[3][2] = {{0, 1}, {1, 2}, {2, 0}};
    static constexpr const char *skip_text = "scat_to_tri: skip point %" PRId64 "\n";
    static constexpr const char *source = "mod_util/delaun_2";
    struct workspace { // none is needed
        bool start() { return true; }
    };

    static void circumscribe(const double *apex, qx_long count, cell_columns<2> *cells);
    static void step(const double *const *corner, double *out)
    {
        out[0] = (corner[1][1] - corner[0][1]) * 0.001;
        out[1] = (corner[1][0] - corner[0][0]) * -0.001;
    }
    template <typename Id> static Id turn(Id *, const Id *ids) { return std::min(ids[0], ids[1]); }
    static void print_hit(const qx_long *ids, qx_long point, double r2, double d2)
    {
        print_error(" tri (%" PRId64 " %" PRId64 " %" PRId64 ") includes point %" PRId64 "  r=%f d=%f\n",
                    ids[0], ids[1], ids[2], point, r2, d2);
    }
};

constexpr int triangle_kind::facets[3][2];

struct circle_columns {
    const double *x0, *y0, *x1, *y1;
    double *cx, *cy, *r2, *det;
};

// The centre is where the bisectors of the first two edges meet.
FORCE_INLINE void circles(double x2, double y2, qx_long count, const circle_columns &of)
{
#pragma GCC ivdep
    for (qx_long i = 0; i < count; ++i) {
        const double x0 = of.x0[i], y0 = of.y0[i], x1 = of.x1[i], y1 = of.y1[i];
        const double a1 = x1 - x0, b1 = y1 - y0;
        const double c1 = -0.5 * ((y0 + y1) * b1 + (x0 + x1) * a1);
        const double a2 = x2 - x1, b2 = y2 - y1;
        const double c2 = -0.5 * ((y1 + y2) * b2 + (x1 + x2) * a2);
        const double det = b2 * a1 - a2 * b1;
        const double cx = (c2 * b1 - b2 * c1) / det, cy = (a2 * c1 - c2 * a1) / det;
        const double dx = cx - x2, dy = cy - y2;
        of.det[i] = det;
        of.cx[i] = cx;
        of.cy[i] = cy;
        of.r2[i] = dx * dx + dy * dy;
    }
}

TARGET_AVX2 void circles_wide(double x2, double y2, qx_long count, const circle_columns &of)
{
    circles(x2, y2, count, of);
}

void circles_plain(double x2, double y2, qx_long count, const circle_columns &of)
{
    circles(x2, y2, count, of);
}

void triangle_kind::circumscribe(const double *apex, qx_long count, cell_columns<2> *cells)
{
    const circle_columns of = {cells->corner(0, 0), cells->corner(0, 1), cells->corner(1, 0),
                               cells->corner(1, 1), cells->centre(0),    cells->centre(1),
                               cells->r2(),         cells->det()};
    if (have_avx2())
        circles_wide(apex[0], apex[1], count, of);
    else
        circles_plain(apex[0], apex[1], count, of);
}

} // namespace

extern "C" int UTILdelaun_tess_2D(qx_long nnodes, const float *coords, int nspace, const float *min_extent,
                                  const float *max_extent, int check, qx_long *ntri, qx_long **conn)
{
    const float width = max_extent[0] - min_extent[0], height = max_extent[1] - min_extent[1];
    if (width == 0 || height == 0) return 1;
    const double min[2] = {min_extent[0], min_extent[1]}, max[2] = {max_extent[0], max_extent[1]};
    const double dx = width, dy = height;
    const double below = min[1] - 0.2 * dx * dy / dx;
    const float apex = height * 2.0f + min_extent[1];
    const double enclosing[3][2] = {
        {min[0] - dx - 0.2 * dx, below}, {max[0] + dx + 0.2 * dx, below}, {min[0] + 0.5 * dx, apex}};

    return tesselate<triangle_kind>({nnodes, coords, nspace, enclosing[0], check != 0}, ntri, conn);
}
