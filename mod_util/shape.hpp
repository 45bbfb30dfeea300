// The embedded host includes this header too.
//
// Shape functions and their parametric derivatives. The host includes this header too.
//
// Generated from the node positions of cell_nodes.h.
//
// A node's function follows from where the node stands:
//
//   line, quad, hex   a product over the axes: 1 + a u where the node stands at a = -1 or 1, 1 - u^2 where it
//                     stands at 0. Corners of the second order carry the serendipity factor as well.
//   tri, tet          by the barycentric coordinates L, the last one t = 1 - u - v (- w): L or L (2 L - 1) at a
//                     corner, 4 La Lb in the middle of an edge.
//   prism             the triangle's times the line's.
//   pyr               the apex by w alone, a base corner as a corner of the hexahedron.
//
// Node numbers and positions are template arguments: each function comes out as straight code in which equal
// factors are computed once. All of it is in double; every result is rounded once, as it is stored.
#pragma once

#include "simd.hpp"

#include <skoklana/cell_nodes.h>

#include <cstddef>
#include <utility>

// Kinds and orders that have shape functions, as X(suffix of the exported names, kind, order).
#define FOR_EACH_SHAPE(X)    \
    X(line_1, CELL_LINE, 1)  \
    X(line_2, CELL_LINE, 2)  \
    X(tri_1, CELL_TRI, 1)    \
    X(tri_2, CELL_TRI, 2)    \
    X(quad_1, CELL_QUAD, 1)  \
    X(quad_2, CELL_QUAD, 2)  \
    X(hex_1, CELL_HEX, 1)    \
    X(hex_2, CELL_HEX, 2)    \
    X(tet_1, CELL_TET, 1)    \
    X(tet_2, CELL_TET, 2)    \
    X(pent_1, CELL_PRISM, 1) \
    X(pent_2, CELL_PRISM, 2) \
    X(pyr_1, CELL_PYR, 1)

// ---- where a node stands ------------------------------------------------------------------------------------

constexpr int place_on_axis(int kind, int node, int axis)
{
    return static_cast<int>(cell_kinds[kind].position[node][axis]);
}

// The corners of the simplex spanned by the first axes between which a node stands; equal at a corner.
struct simplex_ends {
    int a, b;
};

constexpr simplex_ends ends_in_simplex(int kind, int axes, int node)
{
    simplex_ends ends = {-1, -1};
    float rest = 1;
    for (int corner = 0; corner <= axes; ++corner) {
        const float share = corner < axes ? cell_kinds[kind].position[node][corner] : rest;
        rest -= share;
        if (share > 0 && ends.a < 0) ends.a = corner;
        if (share > 0) ends.b = corner;
    }
    return ends;
}

// The derivative of a barycentric coordinate along an axis.
constexpr int barycentric_slope(int corner, int axes, int axis)
{
    if (axis >= axes) return 0;
    return corner == axes ? -1 : corner == axis ? 1 : 0;
}

// ---- factors ------------------------------------------------------------------------------------------------

template <int Place> FORCE_INLINE double axis_factor(double u)
{
    if constexpr (Place == 0)
        return 1 - u * u;
    else
        return 1 + Place * u;
}

template <int Place> FORCE_INLINE double axis_slope(double u)
{
    if constexpr (Place == 0)
        return -2 * u;
    else
        return Place;
}

// ---- lines, quadrilaterals, hexahedra ------------------------------------------------------------------------

template <int Kind, int Order> struct tensor_shape {
    static constexpr int axes = cell_kinds[Kind].ndim;

    struct at {
        double u[3];
    };

    template <typename Real> static FORCE_INLINE at prepare(const Real *uvw)
    {
        at p = {};
        for (int d = 0; d < axes; ++d)
            p.u[d] = uvw[d];
        return p;
    }

    template <int Node> static constexpr bool is_serendipity_corner()
    {
        return Order == 2 && Node < cell_kinds[Kind].ncorners;
    }

    // Each corner's share at the centre of the cell, and of an edge's middle at the centre of the edge.
    template <int Node> static constexpr double scale()
    {
        int halvings = 0;
        for (int d = 0; d < axes; ++d)
            halvings += place_on_axis(Kind, Node, d) != 0;
        return 1.0 / (1 << halvings);
    }

    template <int Node, std::size_t... D>
    static FORCE_INLINE double value(const at &p, std::index_sequence<D...>)
    {
        const double product = (axis_factor<place_on_axis(Kind, Node, D)>(p.u[D]) * ... * scale<Node>());
        if constexpr (is_serendipity_corner<Node>())
            return product * (((place_on_axis(Kind, Node, D) * p.u[D]) + ...) - (axes - 1));
        else
            return product;
    }

    template <int Node, int Axis, std::size_t... D>
    static FORCE_INLINE double slope(const at &p, std::index_sequence<D...>)
    {
        const double product = ((D == Axis ? axis_slope<place_on_axis(Kind, Node, D)>(p.u[D])
                                           : axis_factor<place_on_axis(Kind, Node, D)>(p.u[D])) *
                                ... * scale<Node>());
        // (1 + a u)' (s - m) + (1 + a u) s' with s' = a: the second term has the first one's factors too.
        if constexpr (is_serendipity_corner<Node>())
            return product * (((place_on_axis(Kind, Node, D) * p.u[D]) + ...) - (axes - 1) +
                              axis_factor<place_on_axis(Kind, Node, Axis)>(p.u[Axis]));
        else
            return product;
    }

    template <int Node> static FORCE_INLINE double value(const at &p)
    {
        return value<Node>(p, std::make_index_sequence<axes>{});
    }

    template <int Node, int Axis> static FORCE_INLINE double slope(const at &p)
    {
        return slope<Node, Axis>(p, std::make_index_sequence<axes>{});
    }
};

// ---- triangles, tetrahedra ------------------------------------------------------------------------------------

template <int Axes> struct barycentric {
    double L[Axes + 1];

    template <typename Real> static FORCE_INLINE barycentric of(const Real *uvw)
    {
        barycentric p = {};
        p.L[Axes] = 1;
        for (int d = 0; d < Axes; ++d) {
            p.L[d] = uvw[d];
            p.L[Axes] -= p.L[d];
        }
        return p;
    }

    // La Lb, and its derivative.
    template <int A, int B> FORCE_INLINE double pair() const { return L[A] * L[B]; }
    template <int A, int B, int Axis> FORCE_INLINE double pair_slope() const
    {
        return barycentric_slope(A, Axes, Axis) * L[B] + barycentric_slope(B, Axes, Axis) * L[A];
    }
};

template <int Kind, int Order> struct simplex_shape {
    static constexpr int axes = cell_kinds[Kind].ndim;
    using at = barycentric<axes>;

    template <typename Real> static FORCE_INLINE at prepare(const Real *uvw) { return at::of(uvw); }

    template <int Node> static FORCE_INLINE double value(const at &p)
    {
        constexpr simplex_ends e = ends_in_simplex(Kind, axes, Node);
        if constexpr (Order == 1)
            return p.L[e.a];
        else if constexpr (e.a == e.b)
            return p.L[e.a] * (2 * p.L[e.a] - 1);
        else
            return 4 * p.template pair<e.a, e.b>();
    }

    template <int Node, int Axis> static FORCE_INLINE double slope(const at &p)
    {
        constexpr simplex_ends e = ends_in_simplex(Kind, axes, Node);
        if constexpr (Order == 1)
            return barycentric_slope(e.a, axes, Axis);
        else if constexpr (e.a == e.b)
            return barycentric_slope(e.a, axes, Axis) * (4 * p.L[e.a] - 1);
        else
            return 4 * p.template pair_slope<e.a, e.b, Axis>();
    }
};

// ---- prisms -----------------------------------------------------------------------------------------------------

template <int Order> struct prism_shape {
    struct at {
        barycentric<2> base;
        double w;
    };

    template <typename Real> static FORCE_INLINE at prepare(const Real *uvw)
    {
        return {barycentric<2>::of(uvw), uvw[2]};
    }

    // Node 7 of the second order takes the function of node 6, so the functions do not sum to 1 and a
    // position or value interpolated with them depends on the origin. Values and positions that hosts
    // hold were made with it. The derivatives do not share it: node 7 has its own row there, the rows sum
    // to 0, and measures and gradients, which use derivatives alone, come out right. Neither may be
    // brought into line with the other.
    static constexpr int standing_in_for(int node) { return Order == 2 && node == 7 ? 6 : node; }

    template <int Given> static FORCE_INLINE double value(const at &p)
    {
        return own_value<standing_in_for(Given)>(p);
    }

    // The function that is 1 at the node and 0 at all others: these sum to 1.
    template <int Node> static FORCE_INLINE double own_value(const at &p)
    {
        constexpr simplex_ends e = ends_in_simplex(CELL_PRISM, 2, Node);
        constexpr int c = place_on_axis(CELL_PRISM, Node, 2);
        const double along = axis_factor<c>(p.w), L = p.base.L[e.a];
        if constexpr (Order == 1)
            return L * along / 2;
        else if constexpr (c == 0)
            return L * along;
        else if constexpr (e.a == e.b)
            return L * along * (2 * L + c * p.w - 2) / 2;
        else
            return 2 * p.base.template pair<e.a, e.b>() * along;
    }

    template <int Node, int Axis> static FORCE_INLINE double slope(const at &p)
    {
        constexpr simplex_ends e = ends_in_simplex(CELL_PRISM, 2, Node);
        constexpr int c = place_on_axis(CELL_PRISM, Node, 2);
        constexpr int dL = barycentric_slope(e.a, 2, Axis);
        const double L = p.base.L[e.a];
        if constexpr (Axis < 2) {
            const double along = axis_factor<c>(p.w);
            if constexpr (Order == 1)
                return dL * along / 2;
            else if constexpr (c == 0)
                return dL * along;
            else if constexpr (e.a == e.b)
                return dL * along * (4 * L + c * p.w - 2) / 2;
            else
                return 2 * p.base.template pair_slope<e.a, e.b, Axis>() * along;
        } else {
            if constexpr (Order == 1)
                return c * L / 2;
            else if constexpr (c == 0)
                return L * axis_slope<c>(p.w);
            else if constexpr (e.a == e.b)
                return c * L * (2 * L + 2 * c * p.w - 1) / 2;
            else
                return 2 * c * p.base.template pair<e.a, e.b>();
        }
    }
};

// ---- pyramids -----------------------------------------------------------------------------------------------------

// A plain product: the base functions do not collapse at the apex, they are 0 all over the face w = 1.
struct pyramid_shape {
    using base = tensor_shape<CELL_PYR, 1>;
    using at = base::at;

    template <typename Real> static FORCE_INLINE at prepare(const Real *uvw) { return base::prepare(uvw); }

    template <int Node> static FORCE_INLINE double value(const at &p)
    {
        if constexpr (Node == 0)
            return axis_factor<1>(p.u[2]) / 2;
        else
            return base::value<Node>(p);
    }

    template <int Node, int Axis> static FORCE_INLINE double slope(const at &p)
    {
        if constexpr (Node == 0)
            return Axis == 2 ? 0.5 : 0.0;
        else
            return base::slope<Node, Axis>(p);
    }
};

// ---- any cell -----------------------------------------------------------------------------------------------------

template <int Kind, int Order> constexpr auto shape_family()
{
    if constexpr (Kind == CELL_TRI || Kind == CELL_TET)
        return simplex_shape<Kind, Order>{};
    else if constexpr (Kind == CELL_PRISM)
        return prism_shape<Order>{};
    else if constexpr (Kind == CELL_PYR)
        return pyramid_shape{};
    else
        return tensor_shape<Kind, Order>{};
}

template <int Kind_, int Order> struct cell_shape {
    static constexpr int Kind = Kind_;
    static constexpr int ndim = cell_kinds[Kind].ndim;
    static constexpr int nnodes = Order == 1 ? cell_kinds[Kind].ncorners : cell_kinds[Kind].nnodes_2;
    static constexpr bool constant_slopes =
        Order == 1 && (Kind == CELL_LINE || Kind == CELL_TRI || Kind == CELL_TET);
    using family = decltype(shape_family<Kind, Order>());
    using at = typename family::at;

    // n: nnodes floats.
    static FORCE_INLINE void values(const float *uvw, float *n)
    {
        store_values(family::prepare(uvw), n, std::make_index_sequence<nnodes>{});
    }

    // d: ndim rows of nnodes floats. uvw is not read where the slopes are constant.
    static FORCE_INLINE void slopes(const float *uvw, float *d)
    {
        at p = {};
        if constexpr (!constant_slopes) p = family::prepare(uvw);
        store_slopes<0>(p, d, std::make_index_sequence<nnodes>{});
        if constexpr (ndim > 1) store_slopes<1>(p, d + nnodes, std::make_index_sequence<nnodes>{});
        if constexpr (ndim > 2) store_slopes<2>(p, d + 2 * nnodes, std::make_index_sequence<nnodes>{});
    }

  private:
    template <std::size_t... Node>
    static FORCE_INLINE void store_values(const at &p, float *n, std::index_sequence<Node...>)
    {
        ((n[Node] = static_cast<float>(family::template value<Node>(p))), ...);
    }

    template <int Axis, std::size_t... Node>
    static FORCE_INLINE void store_slopes(const at &p, float *d, std::index_sequence<Node...>)
    {
        ((d[Node] = static_cast<float>(family::template slope<Node, Axis>(p))), ...);
    }
};
