// Vectors of three floats and the local frames of curves and surfaces. The host includes this header too.
//
// Whose arithmetic. What a caller sees as one evaluation at one position goes through the host's services, as
// promised: the exported Jacobians through MATvec_by_mat, MATmat2_inverse and MATmat3_inverse, the derivative
// at a point through these and MATmat3_transpose. A host may do as it likes there. Loops over many cells or
// many estimates (the reverse mapping, derivatives of whole meshes) write the products out, with lanes of
// their own, under one condition: every operation is in float, rounded by itself, sums run from left to
// right, inverses are adjugates times 1 / determinant, so that behind the embedded host both roads agree bit
// for bit.
//
// A vector fills three lanes of a register of four. The fourth is arbitrary and never looked at.
#pragma once

#include "simd.hpp"

#include <cmath>

typedef float vec3 __attribute__((vector_size(16)));

FORCE_INLINE vec3 vec3_at(const float *p)
{
    return vec3{p[0], p[1], p[2], 0};
}

FORCE_INLINE float dot(const vec3 &a, const vec3 &b)
{
    const vec3 p = a * b;
    return p[0] + p[1] + p[2];
}

FORCE_INLINE vec3 cross(const vec3 &a, const vec3 &b)
{
    return __builtin_shufflevector(a, a, 1, 2, 0, 3) * __builtin_shufflevector(b, b, 2, 0, 1, 3) -
           __builtin_shufflevector(a, a, 2, 0, 1, 3) * __builtin_shufflevector(b, b, 1, 2, 0, 3);
}

// The dot products of a with b, c and d.
FORCE_INLINE vec3 dots(const vec3 &a, const vec3 &b, const vec3 &c, const vec3 &d)
{
    const vec3 pb = a * b, pc = a * c, pd = a * d;
    const vec3 xy = __builtin_shufflevector(pb, pc, 0, 4, 1, 5),
               zz = __builtin_shufflevector(pb, pc, 2, 6, 3, 7);
    return __builtin_shufflevector(xy, pd, 0, 1, 4, 5) + __builtin_shufflevector(xy, pd, 2, 3, 5, 5) +
           __builtin_shufflevector(zz, pd, 0, 1, 6, 6);
}

// The root of a float is the same taken in float or in double and rounded: double has more than twice the digits.
FORCE_INLINE float length(const vec3 &a)
{
    return std::sqrt(dot(a, a));
}

// The determinant of the matrix with rows a, b, c.
FORCE_INLINE float determinant(const vec3 &a, const vec3 &b, const vec3 &c)
{
    return dot(a, cross(b, c));
}

// Vectors up to this length keep their length in a frame: they are too short to have a direction.
constexpr float shortest_direction = 1e-5f;
// A tangent this close to the y axis has its side vector in the y-z plane, any other in the x-z plane.
constexpr float along_y = 0.996f;

FORCE_INLINE vec3 normalised(const vec3 &a)
{
    const float len = length(a);
    return len > shortest_direction ? a / len : a;
}

// The local axes in space. As a 3 x 3 matrix they are its columns, so that a row vector times the matrix is
// the vector in local axes.
struct local_axes {
    vec3 a, b, c;

    FORCE_INLINE vec3 operator()(const vec3 &v) const { return dots(v, a, b, c); }

    FORCE_INLINE void store(float *frame) const
    {
        for (int row = 0; row < 3; ++row) {
            frame[3 * row] = a[row];
            frame[3 * row + 1] = b[row];
            frame[3 * row + 2] = c[row];
        }
    }
};

// Of a curve: its unit tangent, the normal m, the side vector s.
FORCE_INLINE local_axes curve_axes(const vec3 &unit)
{
    const vec3 side =
        std::fabs(unit[1]) > along_y ? vec3{0, -unit[2], unit[1], 0} : vec3{-unit[2], 0, unit[0], 0};
    const vec3 s = normalised(side);
    return {unit, cross(s, unit), s};
}

// Of a surface with two tangents: the first one's direction, the in-plane normal to it, the surface's normal.
FORCE_INLINE local_axes surface_axes(const vec3 &tangent_u, const vec3 &tangent_v)
{
    const vec3 e1 = normalised(tangent_u);
    const vec3 normal = normalised(cross(e1, tangent_v));
    return {e1, cross(normal, e1), normal};
}
