// Derivatives at the corners of eight cells of one set, side by side in lanes.
//
// A cell set's corners have the same parametric positions in all its cells, so the shape derivatives there are
// one table for the set. Each lane does what derive_in_solid and derive_in_surface do behind the embedded
// host, in the same order and width: a lane's results are theirs bit for bit. Sums start from 0, so none of
// them is -0, and terms of 0 leave them as they are.
#pragma once

#include "deriv.hpp"
#include "jacobian.hpp"
#include "simd.hpp"

#include <cmath>
#include <cstring>

constexpr int lane_count = 8;
constexpr int most_lane_nodes = 20;

typedef float lanes __attribute__((vector_size(lane_count * sizeof(float))));

// Eight cells. Node k of the cell in lane l stands in xyz[k][axis][l] and so on.
struct lane_cells {
    lanes xyz[most_lane_nodes][3];
    lanes values[most_lane_nodes][3]; // as many components as the operator takes
    lanes rows[most_lane_nodes][3];   // out: a row of the operator at each corner
};

// The shape derivatives at each corner: ndim rows of nnodes floats, corner after corner.
struct corner_slopes {
    int nnodes;
    bool same[most_lane_nodes]; // the corner's are those of corner 0
    float at[most_lane_nodes * 3 * most_lane_nodes];

    // fill(corner, rows) writes those of one corner.
    template <typename Fill> void tabulate(int ndim, int nnodes_, Fill fill)
    {
        nnodes = nnodes_;
        const int size = ndim * nnodes;
        for (int corner = 0; corner < nnodes; ++corner) {
            float *rows = at + corner * size;
            fill(corner, rows);
            same[corner] = memcmp(rows, at, static_cast<size_t>(size) * sizeof(float)) == 0;
        }
    }
};

FORCE_INLINE void take_roots(lanes *a)
{
    float x[lane_count];
    memcpy(x, a, sizeof x);
    for (int l = 0; l < lane_count; ++l)
        x[l] = std::sqrt(x[l]);
    memcpy(a, x, sizeof x);
}

// ---- solids ------------------------------------------------------------------------------------------------

// The inverse of a 3 x 3 matrix as the host's: the adjugate times 1 / determinant, which is given back.
FORCE_INLINE void invert_solid(lanes *m, lanes *det)
{
    const lanes a = m[4] * m[8] - m[5] * m[7], b = m[5] * m[6] - m[3] * m[8], c = m[3] * m[7] - m[4] * m[6];
    *det = m[0] * a + m[1] * b + m[2] * c;
    const lanes scale = 1.0f / *det;
    const lanes d = m[2] * m[7] - m[1] * m[8], e = m[1] * m[5] - m[2] * m[4], f = m[0] * m[8] - m[2] * m[6],
                g = m[2] * m[3] - m[0] * m[5], h = m[1] * m[6] - m[0] * m[7], i = m[0] * m[4] - m[1] * m[3];
    m[0] = a * scale;
    m[1] = d * scale;
    m[2] = e * scale;
    m[3] = b * scale;
    m[4] = f * scale;
    m[5] = g * scale;
    m[6] = c * scale;
    m[7] = h * scale;
    m[8] = i * scale;
}

template <typename Operator> FORCE_INLINE void derive_solids(const corner_slopes &slopes, lane_cells *cells)
{
    constexpr int ncomp = Operator::ncomp;
    const int n = slopes.nnodes;
    // Where a corner's Jacobian is singular: 0, or what the corner before it has.
    lanes kept[3][ncomp] = {};
    lanes row[3] = {};
    for (int corner = 0; corner < n; ++corner) {
        if (corner == 0 || !slopes.same[corner]) {
            const float *u = slopes.at + corner * 3 * n, *v = u + n, *w = v + n;
            lanes m[9] = {}, det;
            for (int k = 0; k < n; ++k) {
                const lanes *xyz = cells->xyz[k];
                for (int d = 0; d < 3; ++d) {
                    m[d] += u[k] * xyz[d];
                    m[3 + d] += v[k] * xyz[d];
                    m[6 + d] += w[k] * xyz[d];
                }
            }
            invert_solid(m, &det);
            lanes sum[3][ncomp] = {};
            for (int k = 0; k < n; ++k)
                for (int axis = 0; axis < 3; ++axis) {
                    const lanes along = m[3 * axis] * u[k] + m[3 * axis + 1] * v[k] + m[3 * axis + 2] * w[k];
                    for (int c = 0; c < ncomp; ++c)
                        sum[axis][c] += along * cells->values[k][c];
                }
            for (int axis = 0; axis < 3; ++axis)
                for (int c = 0; c < ncomp; ++c) {
                    const lanes otherwise = Operator::zero_on_failure ? lanes{} : kept[axis][c];
                    kept[axis][c] = det == 0.0f ? otherwise : sum[axis][c];
                }
            Operator::combine([&](int axis, int c) -> const lanes & { return kept[axis][c]; }, row);
        }
        for (int e = 0; e < Operator::out_veclen; ++e)
            cells->rows[corner][e] = row[e];
    }
}

// ---- surfaces ----------------------------------------------------------------------------------------------

struct lane_vec3 {
    lanes at[3];
};

FORCE_INLINE void cross_lanes(const lane_vec3 &a, const lane_vec3 &b, lane_vec3 *out)
{
    for (int d = 0; d < 3; ++d) {
        const int e = (d + 1) % 3, f = (d + 2) % 3;
        out->at[d] = a.at[e] * b.at[f] - a.at[f] * b.at[e];
    }
}

// As normalised() of jacobian.hpp.
FORCE_INLINE void normalise_lanes(lane_vec3 *a)
{
    lanes len = a->at[0] * a->at[0] + a->at[1] * a->at[1] + a->at[2] * a->at[2];
    take_roots(&len);
    for (int d = 0; d < 3; ++d)
        a->at[d] = len > shortest_direction ? a->at[d] / len : a->at[d];
}

// Of a scalar, whatever the operator: the derivatives along both tangents, turned into a row in space by the
// gradient, the first of them by the divergence.
template <typename Operator> FORCE_INLINE void derive_surfaces(const corner_slopes &slopes, lane_cells *cells)
{
    const int n = slopes.nnodes;
    lanes row[3] = {};
    for (int corner = 0; corner < n; ++corner) {
        if (corner == 0 || !slopes.same[corner]) {
            const float *u = slopes.at + corner * 2 * n, *v = u + n;
            lane_vec3 along_u = {}, along_v = {}, m, normal;
            for (int k = 0; k < n; ++k)
                for (int d = 0; d < 3; ++d) {
                    along_u.at[d] += u[k] * cells->xyz[k][d];
                    along_v.at[d] += v[k] * cells->xyz[k][d];
                }
            normalise_lanes(&along_u);
            cross_lanes(along_u, along_v, &normal);
            normalise_lanes(&normal);
            cross_lanes(normal, along_u, &m);

            lanes j[4] = {};
            for (int k = 0; k < n; ++k) {
                const lanes *xyz = cells->xyz[k];
                const lanes a = xyz[0] * along_u.at[0] + xyz[1] * along_u.at[1] + xyz[2] * along_u.at[2];
                const lanes b = xyz[0] * m.at[0] + xyz[1] * m.at[1] + xyz[2] * m.at[2];
                j[0] += u[k] * a;
                j[1] += u[k] * b;
                j[2] += v[k] * a;
                j[3] += v[k] * b;
            }
            const lanes det = j[0] * j[3] - j[1] * j[2], scale = 1.0f / det;
            const lanes inverse[4] = {j[3] * scale, -j[1] * scale, -j[2] * scale, j[0] * scale};
            lanes sum[2] = {};
            for (int k = 0; k < n; ++k)
                for (int r = 0; r < 2; ++r)
                    sum[r] += (inverse[2 * r] * u[k] + inverse[2 * r + 1] * v[k]) * cells->values[k][0];

            for (int e = 0; e < Operator::out_veclen; ++e) {
                lanes made = sum[0];
                if constexpr (Operator::out_veclen == 3)
                    made = sum[0] * along_u.at[e] + sum[1] * m.at[e] + 0.0f * normal.at[e] + 0.0f;
                row[e] = det == 0.0f ? lanes{} : made;
            }
        }
        for (int e = 0; e < Operator::out_veclen; ++e)
            cells->rows[corner][e] = row[e];
    }
}

// ---- the choice --------------------------------------------------------------------------------------------

template <typename Operator, int Ndim>
FORCE_INLINE void derive_lanes(const corner_slopes &slopes, lane_cells *cells)
{
    if constexpr (Ndim == 3)
        derive_solids<Operator>(slopes, cells);
    else
        derive_surfaces<Operator>(slopes, cells);
}

template <typename Operator, int Ndim>
TARGET_AVX2 void derive_lanes_wide(const corner_slopes &slopes, lane_cells *cells)
{
    derive_lanes<Operator, Ndim>(slopes, cells);
}

template <typename Operator, int Ndim> void derive_lanes_plain(const corner_slopes &slopes, lane_cells *cells)
{
    derive_lanes<Operator, Ndim>(slopes, cells);
}

// By the instructions that the machine has.
template <typename Operator, int Ndim> auto lanes_kernel()
{
    return have_avx2() ? derive_lanes_wide<Operator, Ndim> : derive_lanes_plain<Operator, Ndim>;
}
