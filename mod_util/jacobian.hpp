// Vectors of three floats and the local frames of curves and surfaces. All in float, each operation rounded,
// so that the exported Jacobians and the reverse mapping agree bit for bit.
#pragma once

#include "simd.hpp"

#include <cmath>

struct vec3 {
    float x, y, z;
};

FORCE_INLINE vec3 vec3_at(const float *p)
{
    return {p[0], p[1], p[2]};
}

FORCE_INLINE vec3 operator-(const vec3 &a, const vec3 &b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

FORCE_INLINE vec3 operator*(const vec3 &a, float s)
{
    return {a.x * s, a.y * s, a.z * s};
}

FORCE_INLINE vec3 operator/(const vec3 &a, float s)
{
    return {a.x / s, a.y / s, a.z / s};
}

FORCE_INLINE float dot(const vec3 &a, const vec3 &b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

FORCE_INLINE vec3 cross(const vec3 &a, const vec3 &b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

FORCE_INLINE float length(const vec3 &a)
{
    return static_cast<float>(std::sqrt(static_cast<double>(dot(a, a))));
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

// frame: 3 x 3, the local axes as columns; a row vector times frame is in local axes.
FORCE_INLINE void set_columns(const vec3 &a, const vec3 &b, const vec3 &c, float *frame)
{
    const float rows[9] = {a.x, b.x, c.x, a.y, b.y, c.y, a.z, b.z, c.z};
    for (int i = 0; i < 9; ++i)
        frame[i] = rows[i];
}

// Local axes of a curve: its unit tangent, the normal m, the side vector s.
FORCE_INLINE void curve_frame(const vec3 &unit, float *frame)
{
    const vec3 side = std::fabs(unit.y) > along_y ? vec3{0, -unit.z, unit.y} : vec3{-unit.z, 0, unit.x};
    const vec3 s = normalised(side);
    set_columns(unit, cross(s, unit), s, frame);
}

// Local axes of a surface with two tangents: the first one's direction, the in-plane normal to it, and the
// normal of the surface.
FORCE_INLINE void surface_frame(const vec3 &tangent_u, const vec3 &tangent_v, float *frame)
{
    const vec3 e1 = normalised(tangent_u);
    const vec3 normal = normalised(cross(e1, tangent_v));
    set_columns(e1, cross(normal, e1), normal, frame);
}
