// Reverse mapping: the parametric coordinates of a point in one cell, and whether it lies in the cell.
//
// Newton's method on x(uvw) = N(uvw) x coords, one loop for all kinds:
//
//     J = N'(uvw) x coords,   d = (point - x(uvw)) x inverse of J,   uvw += d   until every |d| < 0.05
//
// A chart is what the loop moves in. For solids it is space itself. For surfaces and curves it is the local
// axes of the cell at the estimate: what they measure off the surface or curve takes no part in the step and
// is tested separately. Lines, triangles and tetrahedra of first order have closed forms.
//
// The mapping serves to find a cell and to interpolate in it, so it is coarse by design: the step that is
// found small is not applied, and a cell accepts points up to 5 percent beyond its parametric boundary.
// This is the inner loop of point location. All arithmetic is in float, products summed in index order as
// the host's matrix services do, but written out here: a call for a product of 3 x 8 costs more than the
// product. Rows of three floats sit in one register, a lane each, which changes no bit.

#include "jacobian.hpp"
#include "shape.hpp"

#include <skoklana/cell.h>

#include <type_traits>

namespace {

constexpr int most_steps = 20;
constexpr double settled_step = 0.05;  // a step this small is not taken: the estimate will do
constexpr double slack = 0.05;         // how far beyond a parametric boundary a point may lie
constexpr double most = 1.05;          // the same from the other end
constexpr double most_offset = 0.05;   // how far off a surface or curve, in coordinates whatever its size
constexpr double early_offset = 0.001; // off a quadrilateral's plane, relative to its determinant

// ---- rows of three floats --------------------------------------------------------------------------------

typedef float lanes4 __attribute__((vector_size(16)));

template <int N> struct rows3 {
    lanes4 row[N];

    FORCE_INLINE void load(const float *from)
    {
        for (int k = 0; k < N; ++k)
            row[k] = lanes4{from[3 * k], from[3 * k + 1], from[3 * k + 2], 0};
    }

    // N factors times the rows.
    template <typename Factors> FORCE_INLINE lanes4 weighted(const Factors &factors) const
    {
        lanes4 sum = factors[0] * row[0];
        for (int k = 1; k < N; ++k)
            sum += factors[k] * row[k];
        return sum;
    }
};

FORCE_INLINE vec3 vec3_of(const lanes4 &a)
{
    return {a[0], a[1], a[2]};
}

// ---- charts ----------------------------------------------------------------------------------------------
//
// lay      puts the chart at an estimate, given the shape derivatives there; the Jacobian's determinant
// step     from the estimate towards the point, given the shape values there
// far_off  whether the point is not worth a step
// on_cell  whether the point lies on the surface or curve that the last step was taken in

template <int N> struct solid_chart {
    rows3<N> nodes;
    vec3 point;
    vec3 inverse[3]; // columns of the inverse Jacobian

    FORCE_INLINE solid_chart(const float *coords, const float *at) : point(vec3_at(at))
    {
        nodes.load(coords);
    }

    FORCE_INLINE float lay(const float *d)
    {
        const vec3 u = vec3_of(nodes.weighted(d)), v = vec3_of(nodes.weighted(d + N)),
                   w = vec3_of(nodes.weighted(d + 2 * N));
        inverse[0] = cross(v, w);
        inverse[1] = cross(w, u);
        inverse[2] = cross(u, v);
        const float det = dot(u, inverse[0]), scale = 1 / det;
        for (vec3 &column : inverse)
            column = column * scale;
        return det;
    }

    FORCE_INLINE void step(const float *n, float *delta)
    {
        const vec3 rest = point - vec3_of(nodes.weighted(n));
        for (int k = 0; k < 3; ++k)
            delta[k] = dot(rest, inverse[k]);
    }

    FORCE_INLINE bool on_cell() const { return true; }
};

// Nodes and point in the local axes of a surface or curve.
template <int N> struct local_view {
    rows3<N> nodes, local;
    lanes4 point, local_point, offset;

    FORCE_INLINE local_view(const float *coords, const float *at) : point{at[0], at[1], at[2], 0}
    {
        nodes.load(coords);
    }

    FORCE_INLINE void turn(const float *frame)
    {
        rows3<3> axes;
        axes.load(frame);
        for (int k = 0; k < N; ++k)
            local.row[k] = axes.weighted(nodes.row[k]);
        local_point = axes.weighted(point);
    }

    // From the position at the estimate to the point.
    FORCE_INLINE void measure(const float *n) { offset = local_point - local.weighted(n); }

    FORCE_INLINE bool is_near(int axis) const
    {
        return std::fabs(static_cast<double>(offset[axis])) <= most_offset;
    }
};

template <int N> struct surface_chart {
    local_view<N> view;
    float inverse[4];

    FORCE_INLINE surface_chart(const float *coords, const float *at) : view(coords, at) {}

    FORCE_INLINE float lay(const float *d)
    {
        float frame[9];
        surface_frame(vec3_of(view.nodes.weighted(d)), vec3_of(view.nodes.weighted(d + N)), frame);
        view.turn(frame);
        const lanes4 u = view.local.weighted(d), v = view.local.weighted(d + N);
        const float det = u[0] * v[1] - u[1] * v[0], scale = 1 / det;
        inverse[0] = v[1] * scale;
        inverse[1] = -u[1] * scale;
        inverse[2] = -v[0] * scale;
        inverse[3] = u[0] * scale;
        return det;
    }

    FORCE_INLINE bool far_off(double limit) const
    {
        return std::fabs(static_cast<double>(view.local_point[2] - view.local.row[0][2])) > limit;
    }

    FORCE_INLINE void step(const float *n, float *delta)
    {
        view.measure(n);
        for (int k = 0; k < 2; ++k)
            delta[k] = view.offset[0] * inverse[k] + view.offset[1] * inverse[2 + k];
    }

    FORCE_INLINE bool on_cell() const { return view.is_near(2); }
};

template <int N> struct curve_chart {
    local_view<N> view;
    float inverse;

    FORCE_INLINE curve_chart(const float *coords, const float *at) : view(coords, at) {}

    FORCE_INLINE float lay(const float *d)
    {
        const vec3 tangent = vec3_of(view.nodes.weighted(d));
        const float len = length(tangent);
        float frame[9];
        curve_frame(tangent / len, frame);
        view.turn(frame);
        inverse = static_cast<float>(1.0 / len);
        return len;
    }

    FORCE_INLINE void step(const float *n, float *delta)
    {
        view.measure(n);
        delta[0] = view.offset[0] * inverse;
    }

    FORCE_INLINE bool on_cell() const { return view.is_near(1) && view.is_near(2); }
};

template <int Ndim, int N>
using chart_of = std::conditional_t<Ndim == 3, solid_chart<N>,
                                    std::conditional_t<Ndim == 2, surface_chart<N>, curve_chart<N>>>;

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

// Moves at to the point; 1, 0 or -1 as the exported functions give it.
template <int Kind, int Order> FORCE_INLINE int newton(const float *coords, const float *point, float *at)
{
    using cell = cell_shape<Kind, Order>;
    constexpr int ndim = cell::ndim;
    chart_of<ndim, cell::nnodes> chart(coords, point);
    float sign = 1;
    for (int i = 0; i < most_steps; ++i) {
        float n[cell::nnodes], d[ndim * cell::nnodes], delta[ndim];
        cell::values(at, n);
        cell::slopes(at, d);
        const float det = chart.lay(d);
        // A cell given inside out maps as well as any; one that turns over on the way is folded.
        if (i == 0 && det < 0) sign = -1;
        if (det * sign <= 0) return -1;
        if constexpr (Kind == CELL_QUAD)
            if (chart.far_off(early_offset * det * sign)) return 0;

        chart.step(n, delta);
        bool settled = true;
        for (int k = 0; k < ndim; ++k) {
            // A curve is judged by the change of the parameter, which is the step after rounding.
            const float change = ndim == 1 ? at[k] - (at[k] + delta[k]) : delta[k];
            settled &= std::fabs(static_cast<double>(change)) < settled_step;
        }
        if (settled) break;
        for (int k = 0; k < ndim; ++k)
            at[k] += delta[k];
    }
    return in_cell<Kind>(at) && chart.on_cell();
}

template <int Kind, int Order> int locate_in_cell(const float *coords, const float *point, float *uvw)
{
    constexpr int ndim = cell_kinds[Kind].ndim;
    float at[ndim];
    start<Kind>(at);
    const int result = newton<Kind, Order>(coords, point, at);
    for (int d = 0; d < ndim; ++d)
        uvw[d] = at[d];
    return result;
}

// ---- closed forms ------------------------------------------------------------------------------------------

// Half the distance of two points: the tangent of the line between them.
float half_distance(const vec3 &a, const vec3 &b)
{
    return length({-0.5f * a.x + 0.5f * b.x, -0.5f * a.y + 0.5f * b.y, -0.5f * a.z + 0.5f * b.z});
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
