// The map between a cell's own coordinates and space, in double, and its inverse.
//
// A point's place in a cell is found by Newton's method on x(u) = point, to the end: where a step has become
// small it is taken and ends the search, so what is left of the error is its square. Triangles and tetrahedra of
// first order are done in one step. On surfaces and curves the step is that of least squares, and what is left is
// the distance off the cell.
//
// How far a point lies outside is measured in space, side by side: sides are linear functions of the cell's own
// coordinates that are 0 on a side and positive inside, and the gradient of one in space turns its value
// into a distance. So a thin cell is as exact as a thick one, and what counts as rounding is the rounding of
// coordinates.
//
// A map that folds, as strongly distorted cells of second order do, may lead astray: then the search starts again
// from several places of the cell.
//
// Pyramids are searched in (a, b, w), a and b the distances from the axis. Base functions are bilinear in a and b over
// the half width s = (1 - w) / 2 at that height, so that there is a Jacobian up to the apex, and for a base that is a
// parallelogram the map is linear. What is handed out is a / s and b / s, each from -1 to 1.
#pragma once

#include "mod_util/shape.hpp"

#include <skoklana/cell_nodes.h>

#include <algorithm>
#include <cmath>
#include <utility>

// Points and gradients: two coordinates in a register, the third in another.
struct vec3d {
    typedef double pair __attribute__((vector_size(16)));
    pair xy;
    double z;

    static FORCE_INLINE vec3d of(double x, double y, double third)
    {
        vec3d made;
        made.xy = pair{x, y};
        made.z = third;
        return made;
    }
    FORCE_INLINE double operator[](int d) const { return d < 2 ? xy[d] : z; }
};

FORCE_INLINE vec3d operator+(const vec3d &a, const vec3d &b)
{
    return {a.xy + b.xy, a.z + b.z};
}

FORCE_INLINE vec3d operator-(const vec3d &a, const vec3d &b)
{
    return {a.xy - b.xy, a.z - b.z};
}

FORCE_INLINE vec3d operator*(double s, const vec3d &a)
{
    return {s * a.xy, s * a.z};
}

FORCE_INLINE void operator+=(vec3d &a, const vec3d &b)
{
    a = a + b;
}

FORCE_INLINE double dot(const vec3d &a, const vec3d &b)
{
    const vec3d::pair p = a.xy * b.xy;
    return p[0] + p[1] + a.z * b.z;
}

FORCE_INLINE vec3d cross(const vec3d &a, const vec3d &b)
{
    return vec3d::of(a.xy[1] * b.z - a.z * b.xy[1], a.z * b.xy[0] - a.xy[0] * b.z,
                     a.xy[0] * b.xy[1] - a.xy[1] * b.xy[0]);
}

FORCE_INLINE vec3d absolute(const vec3d &a)
{
    return vec3d::of(std::fabs(a.xy[0]), std::fabs(a.xy[1]), std::fabs(a.z));
}

FORCE_INLINE double length(const vec3d &a)
{
    return std::sqrt(dot(a, a));
}

constexpr int most_cell_nodes = 20;

// ---- weights of a cell's nodes -------------------------------------------------------------------------------
//
// values    at u, in the parameters that are handed out
// at_chart  values and slopes at a place of the search; d: a row of nnodes for each axis

template <int Kind_, int Order> struct exact_shape {
    static constexpr int kind = Kind_, ndim = cell_kinds[Kind_].ndim;
    static constexpr int nnodes = Order == 1 ? cell_kinds[Kind_].ncorners : cell_kinds[Kind_].nnodes_2;
    static constexpr bool one_step = cell_shape<Kind_, Order>::constant_slopes;
    static constexpr bool is_hull = Order == 1; // the cell lies within its nodes
    using family = typename cell_shape<Kind_, Order>::family;
    using at = typename family::at;

    static FORCE_INLINE void values(const double *u, double *n)
    {
        store(family::prepare(u), n, std::make_index_sequence<nnodes>{});
    }

    static FORCE_INLINE void at_chart(const double *u, double *n, double *d)
    {
        const at p = family::prepare(u);
        store(p, n, std::make_index_sequence<nnodes>{});
        store_slopes<0>(p, d, std::make_index_sequence<nnodes>{});
        if constexpr (ndim > 1) store_slopes<1>(p, d + nnodes, std::make_index_sequence<nnodes>{});
        if constexpr (ndim > 2) store_slopes<2>(p, d + 2 * nnodes, std::make_index_sequence<nnodes>{});
    }

  private:
    template <std::size_t... Node>
    static FORCE_INLINE void store(const at &p, double *n, std::index_sequence<Node...>)
    {
        if constexpr (Kind_ == CELL_PRISM)
            ((n[Node] = family::template own_value<Node>(p)), ...);
        else
            ((n[Node] = family::template value<Node>(p)), ...);
    }

    template <int Axis, std::size_t... Node>
    static FORCE_INLINE void store_slopes(const at &p, double *d, std::index_sequence<Node...>)
    {
        ((d[Node] = family::template slope<Node, Axis>(p)), ...);
    }
};

// With s the half width at a height, t = 1 - s the height over the base, from 0 to 1, and alpha = a / s, beta = b / s.
// Of the second order are the functions on
//
//   the apex             t (2 t - 1)
//   corner (i, j)        A B / 4 with A = i a + j b - 1, B = (1 + i a) (1 + j b) - t + i j t a b / s
//   a base edge, a = 0   s^2 (1 - alpha^2) (1 + j beta) / 2, and the like for b = 0
//   an upright edge      s t (1 + i alpha) (1 + j beta)
//
// Bedrosian. Shape functions and integration formulas for three-dimensional finite element analysis. 1992
template <int Order> struct exact_pyramid {
    static constexpr int kind = CELL_PYR, ndim = 3;
    static constexpr int nnodes = Order == 1 ? 5 : 13;
    static constexpr bool one_step = false, is_hull = Order == 1;

    static FORCE_INLINE void values(const double *u, double *n)
    {
        double slopes[3 * nnodes];
        evaluate(u[0], u[1], (1 - u[2]) / 2, n, slopes);
    }

    // Beyond the cell's sides the ratios are held, so that places outside, next to the apex too, have a Jacobian.
    static FORCE_INLINE void at_chart(const double *u, double *n, double *d)
    {
        double alpha, beta;
        const double s = ratios(u, &alpha, &beta);
        evaluate(std::clamp(alpha, -2.0, 2.0), std::clamp(beta, -2.0, 2.0), s, n, d);
        // values of what lies where the ratios end: the slopes take them to the place itself
        const double da = u[0] - std::clamp(alpha, -2.0, 2.0) * s,
                     db = u[1] - std::clamp(beta, -2.0, 2.0) * s;
        if (da != 0 || db != 0)
            for (int k = 0; k < nnodes; ++k)
                n[k] += da * d[k] + db * d[nnodes + k];
    }

    // The half width at a place; the ratios are 0 at the apex.
    static FORCE_INLINE double ratios(const double *u, double *alpha, double *beta)
    {
        const double s = (1 - u[2]) / 2;
        const bool is_apex = std::fabs(s) < 1e-300;
        *alpha = is_apex ? 0 : u[0] / s;
        *beta = is_apex ? 0 : u[1] / s;
        return s;
    }

  private:
    static void evaluate(double alpha, double beta, double s, double *n, double *d)
    {
        double *da = d, *db = d + nnodes, *dw = d + 2 * nnodes;
        const double t = 1 - s;
        // The slope along s at fixed ratios becomes that along w at fixed a and b.
        const auto set = [&](int node, double value, double slope_a, double slope_b, double slope_s) {
            n[node] = value;
            da[node] = slope_a;
            db[node] = slope_b;
            dw[node] = -0.5 * (slope_s - alpha * slope_a - beta * slope_b);
        };
        if constexpr (Order == 1)
            set(0, t, 0, 0, -1);
        else
            set(0, t * (2 * t - 1), 0, 0, 1 - 4 * t);
        for (int node = 1; node < 5; ++node) {
            const double i = cell_kinds[CELL_PYR].position[node][0],
                         j = cell_kinds[CELL_PYR].position[node][1];
            const double p = 1 + i * alpha, q = 1 + j * beta;
            if constexpr (Order == 1) {
                set(node, s * p * q / 4, i * q / 4, j * p / 4, p * q / 4);
                continue;
            }
            const double ia = i * alpha, jb = j * beta;
            const double A = ia * s + jb * s - 1, B = (1 + ia * s) * (1 + jb * s) - t + ia * jb * s * t;
            const double A_s = ia + jb, B_s = ia * (1 + jb * s) + jb * (1 + ia * s) + 1 + ia * jb * (t - s);
            set(node, A * B / 4, (i * B + A * (i * (1 + jb * s) + i * jb * t)) / 4,
                (j * B + A * (j * (1 + ia * s) + j * ia * t)) / 4, (A_s * B + A * B_s) / 4);
        }
        for (int node = 5; node < nnodes; ++node) {
            const float *place = cell_kinds[CELL_PYR].position[node];
            if (place[2] == 0) { // halfway up
                const double i = 2 * place[0], j = 2 * place[1], p = 1 + i * alpha, q = 1 + j * beta;
                set(node, s * t * p * q, t * i * q, t * j * p, (t - s) * p * q);
            } else if (place[0] == 0) {
                const double j = place[1], q = 1 + j * beta, r = 1 - alpha * alpha;
                set(node, s * s * r * q / 2, -s * alpha * q, s * r * j / 2, s * r * q);
            } else {
                const double i = place[0], p = 1 + i * alpha, r = 1 - beta * beta;
                set(node, s * s * r * p / 2, s * r * i / 2, -s * beta * p, s * r * p);
            }
        }
    }
};
template <> struct exact_shape<CELL_PYR, 1> : exact_pyramid<1> {
};
template <> struct exact_shape<CELL_PYR, 2> : exact_pyramid<2> {
};

// Calls body(shape) for a kind and order that cells have.
template <typename Body> auto with_shape(int kind, int order, Body body)
{
    const bool first = order == 1;
    switch (kind) {
    case CELL_LINE: return first ? body(exact_shape<CELL_LINE, 1>{}) : body(exact_shape<CELL_LINE, 2>{});
    case CELL_TRI: return first ? body(exact_shape<CELL_TRI, 1>{}) : body(exact_shape<CELL_TRI, 2>{});
    case CELL_QUAD: return first ? body(exact_shape<CELL_QUAD, 1>{}) : body(exact_shape<CELL_QUAD, 2>{});
    case CELL_TET: return first ? body(exact_shape<CELL_TET, 1>{}) : body(exact_shape<CELL_TET, 2>{});
    case CELL_PYR: return first ? body(exact_shape<CELL_PYR, 1>{}) : body(exact_shape<CELL_PYR, 2>{});
    case CELL_PRISM: return first ? body(exact_shape<CELL_PRISM, 1>{}) : body(exact_shape<CELL_PRISM, 2>{});
    default: return first ? body(exact_shape<CELL_HEX, 1>{}) : body(exact_shape<CELL_HEX, 2>{});
    }
}

// ---- sides ------------------------------------------------------------------------------------------------------

// 0 on the side, positive inside: at + slope . u
struct cell_side {
    double at, slope[3];
};

struct cell_sides {
    int count;
    cell_side side[6];
};

constexpr cell_sides sides_of_kind[CELL_KINDS] = {
    /* line */ {2, {{1, {1}}, {1, {-1}}}},
    /* tri */ {3, {{0, {1}}, {0, {0, 1}}, {1, {-1, -1}}}},
    /* quad */ {4, {{1, {1}}, {1, {-1}}, {1, {0, 1}}, {1, {0, -1}}}},
    /* tet */ {4, {{0, {1}}, {0, {0, 1}}, {0, {0, 0, 1}}, {1, {-1, -1, -1}}}},
    /* pyr, in a, b, w */
    {5,
     {{0.5, {1, 0, -0.5}}, {0.5, {-1, 0, -0.5}}, {0.5, {0, 1, -0.5}}, {0.5, {0, -1, -0.5}}, {1, {0, 0, 1}}}},
    /* prism */
    {5, {{0, {1}}, {0, {0, 1}}, {1, {-1, -1}}, {1, {0, 0, 1}}, {1, {0, 0, -1}}}},
    /* hex */
    {6, {{1, {1}}, {1, {-1}}, {1, {0, 1}}, {1, {0, -1}}, {1, {0, 0, 1}}, {1, {0, 0, -1}}}},
};

// How many of a kind's coordinates are barycentric: they are not negative and sum to at most 1.
constexpr int barycentric_axes_of(int kind)
{
    return kind == CELL_TRI || kind == CELL_PRISM ? 2 : kind == CELL_TET ? 3 : 0;
}

// ---- the search ----------------------------------------------------------------------------------------------------

// A cell's nodes as seen from the point, and the map at a place: the point's offset from there, and the tangents.
template <typename Shape> struct node_map {
    static constexpr int ndim = Shape::ndim;
    vec3d row[Shape::nnodes];

    FORCE_INLINE void look(const double *u, vec3d *offset, vec3d *tangent) const
    {
        double n[Shape::nnodes], d[ndim * Shape::nnodes];
        Shape::at_chart(u, n, d);
        vec3d sum = n[0] * row[0];
        for (int k = 1; k < Shape::nnodes; ++k)
            sum += n[k] * row[k];
        *offset = -1 * sum;
        for (int axis = 0; axis < ndim; ++axis) {
            const double *slopes = d + axis * Shape::nnodes;
            vec3d t = slopes[0] * row[0];
            for (int k = 1; k < Shape::nnodes; ++k)
                t += slopes[k] * row[k];
            tangent[axis] = t;
        }
    }

    FORCE_INLINE void prepare() {}

    // The least of a direction's component over the cell, seen from the point. First order: of its nodes.
    FORCE_INLINE double least_along(const vec3d &direction) const
    {
        double least = dot(direction, row[0]);
        for (int k = 1; k < Shape::nnodes; ++k)
            least = std::min(least, dot(direction, row[k]));
        return least;
    }
};

// Hexahedra of first order by the coefficients of 1, u, v, uv, and w times these: a fifth of the products.
template <> struct node_map<exact_shape<CELL_HEX, 1>> {
    vec3d row[8]; // nodes, then coefficients

    FORCE_INLINE void prepare()
    {
        vec3d half[2][4]; // of the sum and the difference of both faces across w
        for (int k = 0; k < 4; ++k) {
            half[0][k] = row[k] + row[k + 4];
            half[1][k] = row[k] - row[k + 4];
        }
        for (int h = 0; h < 2; ++h) { // corners at (-1, 1), (-1, -1), (1, -1), (1, 1)
            const vec3d *f = half[h];
            const vec3d left = f[0] + f[1], right = f[2] + f[3], turn = f[0] - f[1], back = f[3] - f[2];
            row[4 * h] = 0.125 * (left + right);
            row[4 * h + 1] = 0.125 * (right - left);
            row[4 * h + 2] = 0.125 * (turn + back);
            row[4 * h + 3] = 0.125 * (back - turn);
        }
    }

    FORCE_INLINE void look(const double *u, vec3d *offset, vec3d *tangent) const
    {
        const double uv = u[0] * u[1];
        const vec3d across = row[4] + u[0] * row[5] + u[1] * row[6] + uv * row[7];
        const vec3d twist = row[3] + u[2] * row[7];
        *offset = -1 * (row[0] + u[0] * row[1] + u[1] * row[2] + uv * row[3] + u[2] * across);
        tangent[0] = row[1] + u[2] * row[5] + u[1] * twist;
        tangent[1] = row[2] + u[2] * row[6] + u[0] * twist;
        tangent[2] = across;
    }

    // Or something less.
    FORCE_INLINE double least_along(const vec3d &direction) const
    {
        double least = dot(direction, row[0]);
        for (int k = 1; k < 8; ++k)
            least -= std::fabs(dot(direction, row[k]));
        return least;
    }
};

// A place that the search has come to.
struct cell_place_found {
    double u[3];
    vec3d gradient[3]; // of each of the cell's own coordinates in space
    vec3d offset;      // what is left to the point
    double det;
    bool settled;
    bool apart; // the cell lies elsewhere; nothing else is known then
};

// The gradients of the coordinates from the tangents. The determinant, or for surfaces and curves a measure that is
// 0 where it is; then nothing is written.
template <int Ndim> FORCE_INLINE double invert(const vec3d *tangent, vec3d *gradient)
{
    if constexpr (Ndim == 3) {
        const vec3d vw = cross(tangent[1], tangent[2]);
        const double det = dot(tangent[0], vw);
        if (!(det != 0)) return 0;
        const double scale = 1 / det;
        gradient[0] = scale * vw;
        gradient[1] = scale * cross(tangent[2], tangent[0]);
        gradient[2] = scale * cross(tangent[0], tangent[1]);
        return det;
    } else if constexpr (Ndim == 2) {
        const double a = dot(tangent[0], tangent[0]), b = dot(tangent[0], tangent[1]),
                     c = dot(tangent[1], tangent[1]);
        const double det = a * c - b * b;
        if (!(det > 0)) return 0;
        gradient[0] = 1 / det * (c * tangent[0] - b * tangent[1]);
        gradient[1] = 1 / det * (a * tangent[1] - b * tangent[0]);
        return det;
    } else {
        const double a = dot(tangent[0], tangent[0]);
        if (!(a > 0)) return 0;
        gradient[0] = 1 / a * tangent[0];
        return a;
    }
}

// How a found place lies to the cell.
struct cell_outside {
    double distance;      // in space; 0: inside
    bool within_rounding; // it may be on the cell
    double worst;         // the value of the side that is passed by furthest, below 0; else 0
    vec3d inwards;        // that side's gradient in space
};

template <typename Shape>
FORCE_INLINE cell_outside how_outside(const cell_place_found &at, const vec3d &rounding)
{
    constexpr int ndim = Shape::ndim;
    constexpr const cell_sides &sides = sides_of_kind[Shape::kind];
    cell_outside out = {0, true, 0, vec3d::of(0, 0, 0)};
    if constexpr (ndim < 3) {
        out.distance = length(at.offset);
        out.within_rounding = out.distance <= length(rounding);
    }
    for (int k = 0; k < sides.count; ++k) {
        const cell_side &side = sides.side[k];
        double value = side.at;
        for (int axis = 0; axis < ndim; ++axis)
            value += side.slope[axis] * at.u[axis];
        if (value >= 0) continue;
        vec3d gradient = side.slope[0] * at.gradient[0];
        for (int axis = 1; axis < ndim; ++axis)
            gradient += side.slope[axis] * at.gradient[axis];
        out.within_rounding = out.within_rounding && -value <= dot(absolute(gradient), rounding);
        out.distance = std::max(out.distance, -value / length(gradient));
        if (value >= out.worst) continue;
        out.worst = value;
        out.inwards = gradient;
    }
    return out;
}

// Whether the whole cell lies on one side of a point that is outside by that side: then no other place of the cell
// need be looked for.
template <typename Shape>
FORCE_INLINE bool is_apart(const node_map<Shape> &map, const cell_outside &out, const vec3d &rounding,
                           double tolerance)
{
    return Shape::is_hull && out.worst < 0 &&
           map.least_along(out.inwards) >
               tolerance * length(out.inwards) + dot(absolute(out.inwards), rounding);
}

constexpr int most_newton_steps = 40; // where nodes of a cell fall together each one only halves the error
constexpr double far_off = 3;         // coordinates beyond this are no estimates
constexpr double settled_at = 1e-5;   // the step after this one would be its square

FORCE_INLINE bool is_within(const vec3d &offset, const vec3d &limit)
{
    const vec3d size = absolute(offset);
    return size[0] <= limit[0] && size[1] <= limit[1] && size[2] <= limit[2];
}

template <typename Shape>
FORCE_INLINE void search(const node_map<Shape> &map, const double *start, const vec3d &rounding,
                         double tolerance, cell_place_found *at)
{
    constexpr int ndim = Shape::ndim;
    const vec3d none = 1e-3 * rounding;
    std::copy_n(start, ndim, at->u);
    at->settled = at->apart = false;
    at->det = 0;
    for (int step = 0; step < most_newton_steps; ++step) {
        vec3d tangent[3];
        map.look(at->u, &at->offset, tangent);
        if (ndim == 3 && step > 0 && is_within(at->offset, none)) break;
        const double det = invert<ndim>(tangent, at->gradient);
        if (!(std::fabs(det) > 0)) break;
        at->det = det;
        double length = 0, delta[3];
        for (int axis = 0; axis < ndim; ++axis) {
            delta[axis] = dot(at->gradient[axis], at->offset);
            length += std::fabs(delta[axis]);
        }
        if (!(length < 1e100)) break;
        for (int axis = 0; axis < ndim; ++axis)
            at->u[axis] = std::clamp(at->u[axis] + delta[axis], -far_off, far_off);
        at->settled = Shape::one_step || length < settled_at;
        if (at->settled) break;
        // Most cells that are tried do not hold the point, which the first step tells of most of these.
        if (ndim == 3 && step == 0 &&
            is_apart<Shape>(map, how_outside<Shape>(*at, rounding), rounding, tolerance)) {
            at->apart = true;
            return;
        }
    }
    // On surfaces and curves what is left lies off the cell.
    if constexpr (ndim < 3) {
        vec3d tangent[3];
        map.look(at->u, &at->offset, tangent);
    } else {
        at->settled = at->settled || is_within(at->offset, rounding);
    }
}

// ---- inside or outside ------------------------------------------------------------------------------------------------

enum class cell_holds { no, nearly, yes };

// Moves a place that is outside, or within rounding of a side, onto the cell: weights of nodes off that side are 0
// then. What comes out are the parameters as they are handed out.
template <typename Shape>
FORCE_INLINE void settle_on_cell(const cell_place_found &at, const vec3d &rounding, double *uvw)
{
    constexpr int ndim = Shape::ndim, nbary = barycentric_axes_of(Shape::kind);
    const vec3d half = 0.5 * rounding;
    double u[3] = {0, 0, 0}, slack[3] = {0, 0, 0};
    for (int axis = 0; axis < ndim; ++axis) {
        u[axis] = at.u[axis];
        slack[axis] = dot(absolute(at.gradient[axis]), half);
    }
    if constexpr (nbary > 0) {
        double share[nbary + 1], sum = 0, last_slack = 0;
        share[nbary] = 1;
        for (int axis = 0; axis < nbary; ++axis) {
            share[nbary] -= u[axis];
            last_slack += slack[axis];
            share[axis] = u[axis] <= slack[axis] ? 0 : u[axis];
        }
        if (share[nbary] <= last_slack) share[nbary] = 0;
        for (const double part : share)
            sum += part;
        for (int axis = 0; axis < nbary; ++axis)
            u[axis] = sum > 0 ? share[axis] / sum : 1.0 / (nbary + 1);
    }
    if constexpr (Shape::kind == CELL_PYR) {
        const double s = (1 - u[2]) / 2, width_slack = slack[2] / 2;
        for (int axis = 0; axis < 2; ++axis) {
            if (s <= slack[axis] + width_slack)
                u[axis] = 0;
            else if (std::fabs(u[axis]) >= s - slack[axis] - width_slack)
                u[axis] = std::copysign(1.0, u[axis]);
            else
                u[axis] /= s;
        }
    }
    for (int axis = Shape::kind == CELL_PYR ? 2 : nbary; axis < ndim; ++axis)
        if (std::fabs(u[axis]) >= 1 - slack[axis]) u[axis] = std::copysign(1.0, u[axis]);
    std::copy_n(u, 3, uvw);
}

template <int Kind> constexpr void middle_of(double *u)
{
    for (int axis = 0; axis < cell_kinds[Kind].ndim; ++axis)
        u[axis] = axis < barycentric_axes_of(Kind) ? 1.0 / (barycentric_axes_of(Kind) + 1) : 0;
    if (Kind == CELL_PYR) u[2] = -0.5;
}

// Whether the map's determinant has a sign at a place.
template <typename Shape> bool has_orientation(const node_map<Shape> &map, const double *place, double sign)
{
    vec3d offset, tangent[3], gradient[3];
    map.look(place, &offset, tangent);
    return invert<Shape::ndim>(tangent, gradient) * sign > 0;
}

// The search from the middle, and from halfway to each node where that is led astray.
template <typename Shape>
cell_holds find_in_cell(node_map<Shape> *map, const vec3d &rounding, double tolerance, double *distance,
                        double *uvw)
{
    double start[3] = {0, 0, 0};
    middle_of<Shape::kind>(start);
    map->prepare();
    cell_place_found at = {};
    search<Shape>(*map, start, rounding, tolerance, &at);
    if (at.apart) return cell_holds::no;

    const auto judge = [&](const cell_place_found &found, const cell_outside &out) {
        if (!out.within_rounding && !(out.distance <= tolerance)) return cell_holds::no;
        settle_on_cell<Shape>(found, rounding, uvw);
        *distance = out.distance;
        return out.within_rounding ? cell_holds::yes : cell_holds::nearly;
    };
    if (at.det != 0) {
        const cell_outside out = how_outside<Shape>(at, rounding);
        const cell_holds holds = at.settled ? judge(at, out) : cell_holds::no;
        if (holds != cell_holds::no || Shape::one_step) return holds;
        // A place that is settled with the orientation of the middle is taken for the only one on its side of a fold.
        if (is_apart<Shape>(*map, out, rounding, tolerance)) return cell_holds::no;
        if (at.settled && (Shape::ndim < 3 || has_orientation(*map, start, at.det))) return cell_holds::no;
    }
    if (Shape::one_step) return cell_holds::no;

    cell_holds best = cell_holds::no;
    double best_distance = 0, best_uvw[3];
    for (int node = 0; node < Shape::nnodes && best != cell_holds::yes; ++node) {
        double between[3];
        for (int axis = 0; axis < Shape::ndim; ++axis) {
            const double to = cell_kinds[Shape::kind].position[node][axis];
            between[axis] = (start[axis] + to) / 2;
        }
        search<Shape>(*map, between, rounding, tolerance, &at);
        if (at.apart) return cell_holds::no;
        if (!at.settled) continue;
        const cell_holds holds = judge(at, how_outside<Shape>(at, rounding));
        if (holds == cell_holds::no || (best == holds && *distance >= best_distance)) continue;
        best = holds;
        best_distance = *distance;
        std::copy_n(uvw, 3, best_uvw);
    }
    if (best == cell_holds::no) return best;
    *distance = best_distance;
    std::copy_n(best_uvw, 3, uvw);
    return best;
}
