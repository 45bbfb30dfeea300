// Jacobians of a cell at one parametric position: the shape derivatives there times the cell's coordinates.
//
// A solid cell's is 3 x 3 and is inverted as it stands. Curves and surfaces in space have one of 1 x 3 or
// 2 x 3. They are turned into local axes first, the tangent directions before the normals, in which it is
// 1 x 1 or 2 x 2. Products and inverses are the host's.

#include "jacobian.hpp"

#include <skoklana/cell.h>
#include <skoklana/host/tool.h>

float UTILjacobian_1d_det(int n, const float *deriv, const float *coords)
{
    float tangent[3];
    MATvec_by_mat(deriv, coords, tangent, 1, n, 3);
    return length(vec3_at(tangent));
}

float UTILjacobian_2d_det(int n, const float *deriv, const float *coords)
{
    float tangents[6];
    MATvec_by_mat(deriv, coords, tangents, 2, n, 3);
    return length(cross(vec3_at(tangents), vec3_at(tangents + 3)));
}

float UTILjacobian_3d_det(int n, const float *deriv, const float *coords)
{
    float tangents[9];
    MATvec_by_mat(deriv, coords, tangents, 3, n, 3);
    return determinant(vec3_at(tangents), vec3_at(tangents + 3), vec3_at(tangents + 6));
}

float UTILjacobian_1d_inv(int n, const float *deriv, const float *coords, float *inv, float *frame,
                          float *local)
{
    float tangent[3];
    MATvec_by_mat(deriv, coords, tangent, 1, n, 3);
    const float len = length(vec3_at(tangent));
    if (len == 0) return 0;
    curve_axes(vec3_at(tangent) / len).store(frame);
    MATvec_by_mat(coords, frame, local, n, 3, 3);
    *inv = static_cast<float>(1.0 / len);
    return len;
}

float UTILjacobian_2d_inv(int n, const float *deriv, const float *coords, float *inv, float *frame,
                          float *local)
{
    float tangents[6];
    MATvec_by_mat(deriv, coords, tangents, 2, n, 3);
    surface_axes(vec3_at(tangents), vec3_at(tangents + 3)).store(frame);
    MATvec_by_mat(coords, frame, local, n, 3, 3);
    MATvec_by_mat(deriv, local, tangents, 2, n, 3);
    for (int row = 0; row < 2; ++row)
        for (int column = 0; column < 2; ++column)
            inv[2 * row + column] = tangents[3 * row + column];
    return MATmat2_inverse(inv);
}

float UTILjacobian_3d_inv(int n, const float *deriv, const float *coords, float *inv)
{
    MATvec_by_mat(deriv, coords, inv, 3, n, 3);
    return MATmat3_inverse(inv);
}
