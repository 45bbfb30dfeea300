// Charts: what a point moves in when it is led to its parametric position in a cell.
//
// For solids the chart is space itself. For surfaces and curves it is the local axes of the cell at the
// estimate, in which what lies off the surface or curve stands apart from what lies along it.
//
// All arithmetic is in float. It is that of the host's matrix services (MATvec_by_mat: sums from left to right),
// but written out: a call for a product of 3 x 8 costs more than the product. jacobian.hpp tells where this is
// done and where the host is called. Rows of three floats sit in one register, a lane each, which changes no bit.
#pragma once

#include "jacobian.hpp"

#include <type_traits>

// ---- a cell's nodes --------------------------------------------------------------------------------------

template <int N> struct node_rows {
    vec3 row[N];

    FORCE_INLINE void load(const float *coords)
    {
        for (int k = 0; k < N; ++k)
            row[k] = vec3_at(coords + 3 * k);
    }

    // A row of N factors times the nodes.
    FORCE_INLINE vec3 weighted(const float *factors) const
    {
        vec3 sum = factors[0] * row[0];
        for (int k = 1; k < N; ++k)
            sum += factors[k] * row[k];
        return sum;
    }
};

// ---- charts ----------------------------------------------------------------------------------------------
//
// lay      puts the chart at an estimate, given the shape derivatives there; the Jacobian's determinant
// step     from the estimate towards the point, given the shape values there
// far_off  whether the point is not worth a step
// on_cell  whether the point is within a limit of the surface or curve that the last step was taken in

template <int N> struct solid_chart {
    node_rows<N> nodes;
    vec3 point;
    vec3 inverse[3]; // columns of the inverse Jacobian

    FORCE_INLINE solid_chart(const float *coords, const float *at) : point(vec3_at(at))
    {
        nodes.load(coords);
    }

    FORCE_INLINE float lay(const float *d)
    {
        const vec3 u = nodes.weighted(d), v = nodes.weighted(d + N), w = nodes.weighted(d + 2 * N);
        inverse[0] = cross(v, w);
        inverse[1] = cross(w, u);
        inverse[2] = cross(u, v);
        const float det = dot(u, inverse[0]), scale = 1 / det;
        for (vec3 &column : inverse)
            column *= scale;
        return det;
    }

    FORCE_INLINE void step(const float *n, float *delta) const
    {
        const vec3 d = dots(point - nodes.weighted(n), inverse[0], inverse[1], inverse[2]);
        for (int k = 0; k < 3; ++k)
            delta[k] = d[k];
    }

    FORCE_INLINE bool on_cell(double) const { return true; }
};

// Nodes and point in the local axes of a surface or curve.
template <int N> struct local_view {
    node_rows<N> nodes, local;
    vec3 point, local_point, offset;

    FORCE_INLINE local_view(const float *coords, const float *at) : point(vec3_at(at)) { nodes.load(coords); }

    FORCE_INLINE void turn(const local_axes &axes)
    {
        for (int k = 0; k < N; ++k)
            local.row[k] = axes(nodes.row[k]);
        local_point = axes(point);
    }

    // From the position at the estimate to the point.
    FORCE_INLINE void measure(const float *n) { offset = local_point - local.weighted(n); }

    FORCE_INLINE bool is_near(int axis, double limit) const
    {
        return std::fabs(static_cast<double>(offset[axis])) <= limit;
    }
};

template <int N> struct surface_chart {
    local_view<N> view;
    float inverse[4];

    FORCE_INLINE surface_chart(const float *coords, const float *at) : view(coords, at) {}

    FORCE_INLINE float lay(const float *d)
    {
        view.turn(surface_axes(view.nodes.weighted(d), view.nodes.weighted(d + N)));
        const vec3 u = view.local.weighted(d), v = view.local.weighted(d + N);
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

    FORCE_INLINE bool on_cell(double limit) const { return view.is_near(2, limit); }
};

template <int N> struct curve_chart {
    local_view<N> view;
    float inverse;

    FORCE_INLINE curve_chart(const float *coords, const float *at) : view(coords, at) {}

    FORCE_INLINE float lay(const float *d)
    {
        const vec3 tangent = view.nodes.weighted(d);
        const float len = length(tangent);
        view.turn(curve_axes(tangent / len));
        inverse = static_cast<float>(1.0 / len);
        return len;
    }

    FORCE_INLINE void step(const float *n, float *delta)
    {
        view.measure(n);
        delta[0] = view.offset[0] * inverse;
    }

    FORCE_INLINE bool on_cell(double limit) const { return view.is_near(1, limit) && view.is_near(2, limit); }
};

template <int Ndim, int N>
using chart_of = std::conditional_t<Ndim == 3, solid_chart<N>,
                                    std::conditional_t<Ndim == 2, surface_chart<N>, curve_chart<N>>>;
