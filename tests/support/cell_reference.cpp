#include "support/cell_reference.hpp"

namespace cell_reference {
namespace {

using vec = std::array<float, 3>;

vec minus(const float *a, const float *b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

vec cross_of(const vec &a, const vec &b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

float dot_of(const vec &a, const vec &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

float norm(const vec &a)
{
    return std::sqrt(dot_of(a, a));
}

bool barycentric_in_range(float x)
{
    return !(x > 1.05 || x + 0.05 < 0);
}

int line_by_distances(const float *x, const float *point, float *uvw)
{
    const float deriv[2] = {-0.5f, 0.5f};
    const float h = UTILjacobian_1d_det(2, deriv, x);
    if (h == 0) return -1;
    float s[2];
    for (int end = 0; end < 2; ++end) {
        float pair[6];
        for (int d = 0; d < 3; ++d) {
            pair[d] = x[3 * end + d];
            pair[3 + d] = point[d];
        }
        s[end] = UTILjacobian_1d_det(2, deriv, pair) / h;
    }
    uvw[0] = 2 * s[0] - 1;
    if (s[0] > 1.05 || s[1] > 1.05) return 0;
    return s[0] + s[1] <= 1.05 ? 1 : 0;
}

int triangle_by_areas(const float *x, const float *p, float *uv)
{
    uv[0] = uv[1] = 0;
    const vec nrm = cross_of(minus(x, x + 6), minus(x + 3, x + 6));
    const float area = norm(nrm);
    if (area == 0) return 0;
    const vec c0 = cross_of(minus(x + 3, p), minus(x + 6, p));
    uv[0] = (dot_of(c0, nrm) > 0 ? 1.0f : -1.0f) * (norm(c0) / area);
    if (!barycentric_in_range(uv[0])) return 0;
    const vec c1 = cross_of(minus(x + 6, p), minus(x, p));
    uv[1] = (dot_of(c1, nrm) > 0 ? 1.0f : -1.0f) * (norm(c1) / area);
    if (!barycentric_in_range(uv[1])) return 0;
    return 1.05 - uv[0] - uv[1] >= 0 ? 1 : 0;
}

float volume_of(const float *x, int a, int b, int c, const float *from)
{
    const vec p = minus(x + 3 * a, from), q = minus(x + 3 * b, from), r = minus(x + 3 * c, from);
    return p[0] * (q[1] * r[2] - q[2] * r[1]) + p[1] * (q[2] * r[0] - q[0] * r[2]) +
           p[2] * (q[0] * r[1] - q[1] * r[0]);
}

int tetrahedron_by_volumes(const float *x, const float *p, float *uvw)
{
    uvw[0] = uvw[1] = uvw[2] = 0;
    const float volume = volume_of(x, 0, 1, 2, x + 9);
    if (volume == 0) return 0;
    uvw[0] = volume_of(x, 1, 3, 2, p) / volume;
    if (!barycentric_in_range(uvw[0])) return 0;
    uvw[1] = volume_of(x, 3, 0, 2, p) / volume;
    if (!barycentric_in_range(uvw[1])) return 0;
    uvw[2] = volume_of(x, 3, 1, 0, p) / volume;
    if (!barycentric_in_range(uvw[2])) return 0;
    return 1.05 - uvw[0] - uvw[1] - uvw[2] >= 0 ? 1 : 0;
}

bool at_most(float x, double limit)
{
    return std::fabs(static_cast<double>(x)) <= limit;
}

bool inside_test(const cell_functions &cell, const float *uvw, const float *off)
{
    const double u = uvw[0], v = cell.ndim() > 1 ? uvw[1] : 0, w = cell.ndim() > 2 ? uvw[2] : 0;
    for (int d = 0; d < cell.ndim(); ++d)
        if (!at_most(uvw[d], 1.05)) return false;
    switch (cell.kind) {
    case CELL_PRISM: return u + 0.05 >= 0 && v + 0.05 >= 0 && 1.05 - u - v >= 0;
    case CELL_TET: return u + 0.05 >= 0 && v + 0.05 >= 0 && w + 0.05 >= 0 && 1.05 - u - v - w >= 0;
    case CELL_TRI: return u + 0.05 >= 0 && v + 0.05 >= 0 && 1.05 - u - v >= 0 && at_most(off[2], 0.05);
    case CELL_QUAD: return at_most(off[2], 0.05);
    case CELL_LINE: return at_most(off[1], 0.05) && at_most(off[2], 0.05);
    default: return true;
    }
}

// The Newton loop of all other cells.
int iterate(const cell_functions &cell, const float *coords, const float *point, float *uvw, int *steps)
{
    const int n = cell.nnodes(), ndim = cell.ndim();
    for (int d = 0; d < ndim; ++d)
        uvw[d] = 0;
    if (cell.kind == CELL_TRI || cell.kind == CELL_PRISM) uvw[0] = uvw[1] = 1.0f / 3;
    if (cell.kind == CELL_TET) uvw[0] = uvw[1] = uvw[2] = 0.25f;
    float sign = 1, off[3] = {0, 0, 0};
    for (int i = 0; i < 20; ++i) {
        *steps = i + 1;
        float values[20], slopes[60], inv[9], frame[9], local[60], pl[3], x[3], r[3], d[3];
        cell.values(uvw, values);
        cell.slopes(uvw, slopes);
        const float det = ndim == 3   ? UTILjacobian_3d_inv(n, slopes, coords, inv)
                          : ndim == 2 ? UTILjacobian_2d_inv(n, slopes, coords, inv, frame, local)
                                      : UTILjacobian_1d_inv(n, slopes, coords, inv, frame, local);
        if (i == 0 && det < 0) sign = -1;
        if (det * sign <= 0) return -1;
        if (ndim == 3) {
            MATvec_by_mat(values, coords, x, 1, n, 3);
            for (int k = 0; k < 3; ++k)
                r[k] = point[k] - x[k];
        } else {
            MATvec_by_mat(point, frame, pl, 1, 3, 3);
            const float dz = pl[2] - local[2];
            if (cell.kind == CELL_QUAD && std::fabs(static_cast<double>(dz)) > 0.001 * det * sign) return 0;
            MATvec_by_mat(values, local, x, 1, n, 3);
            for (int k = 0; k < 3; ++k)
                r[k] = off[k] = pl[k] - x[k];
        }
        MATvec_by_mat(r, inv, d, 1, ndim, ndim);
        bool small = true;
        for (int k = 0; k < ndim; ++k) {
            const float next = uvw[k] + d[k];
            const float change = ndim == 1 ? uvw[k] - next : d[k];
            if (!(std::fabs(static_cast<double>(change)) < 0.05)) small = false;
        }
        if (small) break;
        for (int k = 0; k < ndim; ++k)
            uvw[k] += d[k];
    }
    return inside_test(cell, uvw, off) ? 1 : 0;
}

} // namespace

mapping map_back(const cell_functions &cell, const std::vector<float> &coords,
                 const std::array<float, 3> &point, std::array<float, 3> uvw)
{
    mapping out = {0, uvw, 0};
    const float *x = coords.data(), *p = point.data();
    if (cell.order == 1 && cell.kind == CELL_LINE)
        out.result = line_by_distances(x, p, out.uvw.data());
    else if (cell.order == 1 && cell.kind == CELL_TRI)
        out.result = triangle_by_areas(x, p, out.uvw.data());
    else if (cell.order == 1 && cell.kind == CELL_TET)
        out.result = tetrahedron_by_volumes(x, p, out.uvw.data());
    else
        out.result = iterate(cell, x, p, out.uvw.data(), &out.steps);
    return out;
}

} // namespace cell_reference
