// Reverse mapping: the parametric coordinates of a point in one cell, and whether it lies in the cell.
//
// Newton's method on x(uvw) = N(uvw) x coords, one loop for all kinds:
//
//     J = N'(uvw) x coords,   d = (point - x(uvw)) x inverse of J,   uvw += d   until every |d| < 0.05
//
// The loop moves in a chart of cell_chart.hpp: what a point measures off a surface or curve takes no part in
// the step and is tested separately. Lines, triangles and tetrahedra of first order have closed forms.
//
// The mapping serves to find a cell and to interpolate in it, so it is coarse by design: the step that is
// found small is not applied, and a cell accepts points up to 5 percent beyond its parametric boundary.
// This is the inner loop of point location.

#include "cell_chart.hpp"
#include "shape.hpp"

#include <skoklana/cell.h>

namespace {

constexpr int most_steps = 20;
constexpr double settled_step = 0.05;  // a step this small is not taken: the estimate will do
constexpr double slack = 0.05;         // how far beyond a parametric boundary a point may lie
constexpr double most = 1.05;          // the same from the other end
constexpr double most_offset = 0.05;   // how far off a surface or curve, in coordinates whatever its size
constexpr double early_offset = 0.001; // off a quadrilateral's plane, relative to its determinant

// ---- parameters ------------------------------------------------------------------------------------------

// How many of a kind's parameters are barycentric: from 0, with a sum of at most 1. The others run from -1
// to 1.
constexpr int barycentric_axes(int kind)
{
    return kind == CELL_TRI || kind == CELL_PRISM ? 2 : kind == CELL_TET ? 3 : 0;
}

// The middle of the cell; for a prism that of the triangle halfway up.
template <int Kind> FORCE_INLINE void start(float *at)
{
    for (int d = 0; d < cell_kinds[Kind].ndim; ++d)
        at[d] = d < barycentric_axes(Kind) ? 1.0f / static_cast<float>(barycentric_axes(Kind) + 1) : 0.0f;
}

// NaN is in no range.
FORCE_INLINE bool in_barycentric_range(float u)
{
    return u <= most && u + slack >= 0;
}

FORCE_INLINE bool in_symmetric_range(float u)
{
    return std::fabs(static_cast<double>(u)) <= most;
}

template <int Kind> FORCE_INLINE bool in_cell(const float *at)
{
    constexpr int ndim = cell_kinds[Kind].ndim, nbary = barycentric_axes(Kind);
    double rest = most;
    for (int d = 0; d < nbary; ++d) {
        if (!in_barycentric_range(at[d])) return false;
        rest -= at[d];
    }
    for (int d = nbary; d < ndim; ++d)
        if (!in_symmetric_range(at[d])) return false;
    return rest >= 0;
}

// ---- the loop ----------------------------------------------------------------------------------------------

enum class newton { goes_on, settled, off_plane, degenerate };

// One step of the estimate at.
template <typename Cell, typename Chart>
FORCE_INLINE newton step(Chart &chart, float *at, float *sign, bool is_first)
{
    constexpr int ndim = Cell::ndim;
    float n[Cell::nnodes], d[ndim * Cell::nnodes], delta[ndim];
    Cell::values(at, n);
    Cell::slopes(at, d);
    const float det = chart.lay(d);
    // A cell given inside out maps as well as any; one that turns over on the way is folded.
    if (is_first && det < 0) *sign = -1;
    if (det * *sign <= 0) return newton::degenerate;
    if constexpr (Cell::Kind == CELL_QUAD)
        if (chart.far_off(early_offset * det * *sign)) return newton::off_plane;

    chart.step(n, delta);
    bool settled = true;
    for (int k = 0; k < ndim; ++k) {
        // A curve is judged by the change of the parameter, which is the step after rounding.
        const float change = ndim == 1 ? at[k] - (at[k] + delta[k]) : delta[k];
        settled &= std::fabs(static_cast<double>(change)) < settled_step;
    }
    if (settled) return newton::settled;
    for (int k = 0; k < ndim; ++k)
        at[k] += delta[k];
    return newton::goes_on;
}

// Moves at from the start to the point; 1, 0 or -1 as the exported functions give it. The first step stands
// apart: at the start the shape functions are constants, which saves a quarter of the time.
template <typename Cell> FORCE_INLINE int approach(const float *coords, const float *point, float *at)
{
    chart_of<Cell::ndim, Cell::nnodes> chart(coords, point);
    float sign = 1;
    newton state = step<Cell>(chart, at, &sign, true);
    for (int i = 1; i < most_steps && state == newton::goes_on; ++i)
        state = step<Cell>(chart, at, &sign, false);
    if (state == newton::degenerate) return -1;
    if (state == newton::off_plane) return 0;
    return in_cell<Cell::Kind>(at) && chart.on_cell(most_offset);
}

template <int Kind, int Order> int locate_in_cell(const float *coords, const float *point, float *uvw)
{
    constexpr int ndim = cell_kinds[Kind].ndim;
    float at[ndim];
    start<Kind>(at);
    const int result = approach<cell_shape<Kind, Order>>(coords, point, at);
    for (int d = 0; d < ndim; ++d)
        uvw[d] = at[d];
    return result;
}

// ---- closed forms ------------------------------------------------------------------------------------------

// Half the distance of two points: the tangent of the line between them.
float half_distance(const vec3 &a, const vec3 &b)
{
    return length(-0.5f * a + 0.5f * b);
}

// By distances from the ends: a point beside the line is as far off as one beyond its ends.
int locate_in_line(const float *coords, const float *point, float *uvw)
{
    const vec3 x[2] = {vec3_at(coords), vec3_at(coords + 3)}, p = vec3_at(point);
    const float h = half_distance(x[0], x[1]);
    if (h == 0) return -1;
    const float s0 = half_distance(x[0], p) / h, s1 = half_distance(x[1], p) / h;
    uvw[0] = 2 * s0 - 1;
    return s0 <= most && s1 <= most && s0 + s1 <= most;
}

// By signed areas: a point off the plane makes larger ones, and so falls out.
int locate_in_triangle(const float *coords, const float *point, float *uvw)
{
    const vec3 x[3] = {vec3_at(coords), vec3_at(coords + 3), vec3_at(coords + 6)}, p = vec3_at(point);
    uvw[0] = uvw[1] = 0;
    const vec3 normal = cross(x[0] - x[2], x[1] - x[2]);
    const float area = length(normal);
    if (area == 0) return 0;
    const int opposite[2][2] = {{1, 2}, {2, 0}};
    for (int k = 0; k < 2; ++k) {
        const vec3 part = cross(x[opposite[k][0]] - p, x[opposite[k][1]] - p);
        const float share = length(part) / area;
        uvw[k] = dot(part, normal) > 0 ? share : -share;
        if (!in_barycentric_range(uvw[k])) return 0;
    }
    return in_cell<CELL_TRI>(uvw);
}

// By signed volumes.
int locate_in_tetrahedron(const float *coords, const float *point, float *uvw)
{
    const vec3 x[4] = {vec3_at(coords), vec3_at(coords + 3), vec3_at(coords + 6), vec3_at(coords + 9)};
    const vec3 p = vec3_at(point);
    uvw[0] = uvw[1] = uvw[2] = 0;
    const float volume = determinant(x[0] - x[3], x[1] - x[3], x[2] - x[3]);
    if (volume == 0) return 0;
    const int opposite[3][3] = {{1, 3, 2}, {3, 0, 2}, {3, 1, 0}};
    for (int k = 0; k < 3; ++k) {
        const int *face = opposite[k];
        uvw[k] = determinant(x[face[0]] - p, x[face[1]] - p, x[face[2]] - p) / volume;
        if (!in_barycentric_range(uvw[k])) return 0;
    }
    return in_cell<CELL_TET>(uvw);
}

} // namespace

int UTILrev_par_line_1(const float *coords, const float *point, float *uvw)
{
    return locate_in_line(coords, point, uvw);
}

int UTILrev_par_tri_1(const float *coords, const float *point, float *uvw)
{
    return locate_in_triangle(coords, point, uvw);
}

int UTILrev_par_tet_1(const float *coords, const float *point, float *uvw)
{
    return locate_in_tetrahedron(coords, point, uvw);
}

#define EXPORT_REV_PAR(suffix, kind, order)                                       \
    int UTILrev_par_##suffix(const float *coords, const float *point, float *uvw) \
    {                                                                             \
        return locate_in_cell<kind, order>(coords, point, uvw);                   \
    }
EXPORT_REV_PAR(line_2, CELL_LINE, 2)
EXPORT_REV_PAR(tri_2, CELL_TRI, 2)
EXPORT_REV_PAR(quad_1, CELL_QUAD, 1)
EXPORT_REV_PAR(quad_2, CELL_QUAD, 2)
EXPORT_REV_PAR(hex_1, CELL_HEX, 1)
EXPORT_REV_PAR(hex_2, CELL_HEX, 2)
EXPORT_REV_PAR(tet_2, CELL_TET, 2)
EXPORT_REV_PAR(pent_1, CELL_PRISM, 1)
EXPORT_REV_PAR(pent_2, CELL_PRISM, 2)
EXPORT_REV_PAR(pyr_1, CELL_PYR, 1)
