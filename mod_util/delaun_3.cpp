// Delaunay tetrahedra of points in space, by the sweep of tess_sweep.hpp.
//
// Rounded tests of points against spheres turn tetrahedra over where many points lie on one sphere, as those of
// lattices do. So each sphere has a bound on what a test against it may err by, and a point that close to it is
// tested exactly (in_sphere.hpp). Then no point lies in the plane of a face that it is joined to: strictly inside
// the sphere on one side of the face it would be strictly inside that on the other as well, and the face would be
// no boundary. Degenerate tetrahedra come about only on the faces around everything, or by rounding.

#include <skoklana/scatter.h>

#include "in_sphere.hpp"
#include "tess_sweep.hpp"

namespace {

struct tetrahedron_kind {
    static constexpr int axes = 3;
    static constexpr int status_period = 64;
    static constexpr int cells_a_point = 16;
    static constexpr int facets[4][3] = {{1, 2, 0}, {2, 3, 0}, {3, 1, 0}, {1, 3, 2}};
    static constexpr const char *skip_text = "scat_to_tet: skip point %" PRId64 "\n";
    static constexpr const char *source = "mod_util/delaun_3";
    using workspace = sphere_test;

    static void circumscribe(const double *apex, qx_long count, cell_columns<3> *cells);
    static void step(const double *const *corner, double *out);
    static bool holds(const double *const *vertices, const double *p, sphere_test &exact)
    {
        return exact.holds(vertices, p);
    }
    // The lowest id comes to stand in the middle.
    template <typename Id> static Id turn(Id *v, const Id *ids)
    {
        const int in_front = ids[1] < ids[0] ? 1 : 0, lowest = ids[2] < ids[in_front] ? 2 : in_front;
        const Id a = v[(lowest + 2) % 3], b = v[lowest], c = v[(lowest + 1) % 3];
        v[0] = a, v[1] = b, v[2] = c;
        return ids[lowest];
    }
    static void print_hit(const qx_long *ids, qx_long point, double r2, double d2)
    {
        print_error("tet (%" PRId64 " %" PRId64 " %" PRId64 " %" PRId64 ") includes point %" PRId64
                    "  r=%f d=%f\n",
                    ids[0], ids[1], ids[2], ids[3], point, r2, d2);
    }
};

constexpr int tetrahedron_kind::facets[4][3];

struct vector3 {
    double x, y, z;
};

FORCE_INLINE vector3 cross(const vector3 &a, const vector3 &b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

FORCE_INLINE double dot(const vector3 &a, const vector3 &b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

struct tet_columns {
    const double *corner[3][3];
    double *centre[3];
    double *r2, *det, *plain_r2, *doubt;
};

// Along the unit normal of the first three vertices, by a 1e-5th of the lengths of two edges. The normal's length
// is one of single precision.
void tetrahedron_kind::step(const double *const *corner, double *out)
{
    const double *p = corner[0], *q = corner[1], *r = corner[2];
    const vector3 a = {q[0] - p[0], q[1] - p[1], q[2] - p[2]}, b = {r[0] - p[0], r[1] - p[1], r[2] - p[2]};
    vector3 n = cross(b, a);
    const double length = std::sqrt(static_cast<float>(dot(n, n)));
    if (length > 1e-24) n = {n.x / length, n.y / length, n.z / length};
    const double lengths = std::sqrt(dot(a, a)) + std::sqrt(dot(b, b));
    out[0] = n.x * lengths * 1e-5;
    out[1] = n.y * lengths * 1e-5;
    out[2] = n.z * lengths * 1e-5;
}

// With the apex as origin, A, B and C the corners and V = A . B x C the centre is at
//     (A.A (B x C) + B.B (C x A) + C.C (A x B)) / 2 V
// which errs by some units of |A| |B| |C| / V of the radius.
FORCE_INLINE void spheres(const double *apex, qx_long count, const tet_columns &of)
{
    constexpr double unit = std::numeric_limits<double>::epsilon() / 2;
    constexpr double most = 0.01; // beyond that, bounds of first order mean nothing
    const double px = apex[0], py = apex[1], pz = apex[2];
#pragma GCC ivdep
    for (qx_long i = 0; i < count; ++i) {
        const vector3 a = {of.corner[0][0][i] - px, of.corner[0][1][i] - py, of.corner[0][2][i] - pz};
        const vector3 b = {of.corner[1][0][i] - px, of.corner[1][1][i] - py, of.corner[1][2][i] - pz};
        const vector3 c = {of.corner[2][0][i] - px, of.corner[2][1][i] - py, of.corner[2][2][i] - pz};
        const vector3 bc = cross(b, c), ca = cross(c, a), ab = cross(a, b);
        const double aa = dot(a, a), bb = dot(b, b), cc = dot(c, c), det = dot(a, bc), scale = 0.5 / det;
        const double x = px + (aa * bc.x + bb * ca.x + cc * ab.x) * scale;
        const double y = py + (aa * bc.y + bb * ca.y + cc * ab.y) * scale;
        const double z = pz + (aa * bc.z + bb * ca.z + cc * ab.z) * scale;
        const double dx = x - px, dy = y - py, dz = z - pz;
        const double r2 = dx * dx + dy * dy + dz * dz;
        const double error = 512 * unit * std::sqrt(aa * bb * cc) / std::fabs(det);
        const double bound = r2 * (error + 64 * unit) +
                             std::sqrt(r2) * (std::fabs(x) + std::fabs(y) + std::fabs(z)) * 16 * unit;
        const double doubt = error <= most ? bound : std::numeric_limits<double>::infinity();
        of.centre[0][i] = x;
        of.centre[1][i] = y;
        of.centre[2][i] = z;
        of.r2[i] = r2 + doubt;
        of.det[i] = det;
        of.plain_r2[i] = r2;
        of.doubt[i] = doubt;
    }
}

TARGET_AVX2 void spheres_wide(const double *apex, qx_long count, const tet_columns &of)
{
    spheres(apex, count, of);
}

void spheres_plain(const double *apex, qx_long count, const tet_columns &of)
{
    spheres(apex, count, of);
}

void tetrahedron_kind::circumscribe(const double *apex, qx_long count, cell_columns<3> *cells)
{
    tet_columns of = {{}, {}, cells->r2(), cells->det(), cells->plain_r2(), cells->doubt()};
    for (int k = 0; k < 3; ++k) {
        for (int c = 0; c < 3; ++c)
            of.corner[c][k] = cells->corner(c, k);
        of.centre[k] = cells->centre(k);
    }
    if (have_avx2())
        spheres_wide(apex, count, of);
    else
        spheres_plain(apex, count, of);
}

} // namespace

extern "C" int UTILdelaun_tess_3D(qx_long nnodes, const float *coords, const float *min_extent,
                                  const float *max_extent, int check, qx_long *ntet, qx_long **conn)
{
    *ntet = 0;
    *conn = nullptr;
    double min[3], extent[3];
    for (int k = 0; k < 3; ++k) {
        if (max_extent[k] == min_extent[k]) return 1;
        min[k] = min_extent[k];
        extent[k] = max_extent[k] - min_extent[k];
    }
    const double x = min[0] - 0.5 * extent[0], y = min[1] - 0.5 * extent[1], z = min[2] - 0.5 * extent[2];
    const double far_x = x + 4.0f * (max_extent[0] - min_extent[0]);
    const double far_y = y + 6.0f * (max_extent[1] - min_extent[1]);
    // The plane through the corners on the axes x and y, and through the place two extents from the first corner
    // along each axis, meets the third axis here.
    const double far_z = z + 12.0 * extent[2];
    const double enclosing[4][3] = {{x, y, z}, {far_x, y, z}, {x, y, far_z}, {x, far_y, z}};

    return tesselate<tetrahedron_kind>({nnodes, coords, 3, enclosing[0], check != 0}, ntet, conn);
}
