// Cell mathematics once more, slowly: shape functions written out one by one in double, and the reverse
// mapping as a plain sequence of host and library calls. Random cells of every kind to try them on.
#pragma once

#include <skoklana/cell.h>
#include <skoklana/cell_nodes.h>
#include <skoklana/host/tool.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace cell_reference {

struct cell_functions {
    const char *name;
    int kind, order;
    shape_func values;
    shape_deriv_func slopes;
    rev_par_func map_back;

    int ndim() const { return cell_kinds[kind].ndim; }
    int nnodes() const { return order == 1 ? cell_kinds[kind].ncorners : cell_kinds[kind].nnodes_2; }
};

#define ONE_CELL(suffix, kind, order)                                                           \
    {                                                                                           \
#suffix, kind, order, UTILsh_func_##suffix, UTILsh_deriv_##suffix, UTILrev_par_##suffix \
    }
inline const cell_functions cells[] = {
    ONE_CELL(line_1, CELL_LINE, 1), ONE_CELL(line_2, CELL_LINE, 2),  ONE_CELL(tri_1, CELL_TRI, 1),
    ONE_CELL(tri_2, CELL_TRI, 2),   ONE_CELL(quad_1, CELL_QUAD, 1),  ONE_CELL(quad_2, CELL_QUAD, 2),
    ONE_CELL(hex_1, CELL_HEX, 1),   ONE_CELL(hex_2, CELL_HEX, 2),    ONE_CELL(tet_1, CELL_TET, 1),
    ONE_CELL(tet_2, CELL_TET, 2),   ONE_CELL(pent_1, CELL_PRISM, 1), ONE_CELL(pent_2, CELL_PRISM, 2),
    ONE_CELL(pyr_1, CELL_PYR, 1)};
#undef ONE_CELL

inline const cell_functions &cell_of(int kind, int order)
{
    for (const cell_functions &cell : cells)
        if (cell.kind == kind && cell.order == order) return cell;
    return cells[0];
}

// The one whose weights do not sum to 1.
inline bool has_odd_weights(const cell_functions &cell)
{
    return cell.kind == CELL_PRISM && cell.order == 2;
}

// Parameters that run from 0 and sum to at most 1; the others run from -1 to 1.
inline int barycentric_axes(const cell_functions &cell)
{
    return cell.kind == CELL_TRI || cell.kind == CELL_PRISM ? 2 : cell.kind == CELL_TET ? 3 : 0;
}

// Mapped back without iteration.
inline bool has_closed_form(const cell_functions &cell)
{
    return cell.order == 1 && (cell.kind == CELL_LINE || cell.kind == CELL_TRI || cell.kind == CELL_TET);
}

using position = std::array<double, 3>;

inline position node_position(const cell_functions &cell, int node)
{
    const float *p = cell_kinds[cell.kind].position[node];
    return {p[0], p[1], p[2]};
}

// ---- shape functions --------------------------------------------------------------------------------------

// With fair weights node 7 of the second-order prism has a function of its own: the one that the derivatives
// are those of.
inline std::vector<double> shape(const cell_functions &cell, const position &at, bool fair = false)
{
    const double u = at[0], v = at[1], w = at[2];
    const double t = cell.kind == CELL_TET ? 1 - u - v - w : 1 - u - v;
    const bool first = cell.order == 1;
    std::vector<double> n;
    switch (cell.kind) {
    case CELL_LINE:
        if (first) return {(1 - u) / 2, (1 + u) / 2};
        return {-u * (1 - u) / 2, u * (1 + u) / 2, 1 - u * u};
    case CELL_TRI:
        if (first) return {u, v, t};
        return {u * (2 * u - 1), v * (2 * v - 1), t * (2 * t - 1), 4 * u * v, 4 * v * t, 4 * u * t};
    case CELL_TET:
        if (first) return {u, v, w, t};
        return {u * (2 * u - 1), v * (2 * v - 1), w * (2 * w - 1), t * (2 * t - 1), 4 * u * v,
                4 * u * w,       4 * u * t,       4 * v * w,       4 * w * t,       4 * v * t};
    case CELL_PYR:
        return {(1 + w) / 2, (1 + u) * (1 + v) * (1 - w) / 8, (1 - u) * (1 + v) * (1 - w) / 8,
                (1 - u) * (1 - v) * (1 - w) / 8, (1 + u) * (1 - v) * (1 - w) / 8};
    case CELL_PRISM:
        for (double side : {1.0, -1.0})
            for (double L : {u, v, t})
                n.push_back(first ? L * (1 + side * w) / 2 : L * (1 + side * w) * (2 * L + side * w - 2) / 2);
        if (first) return n;
        for (double x : {2 * u * v * (1 + w), (fair ? 2 * v * t : 2 * u * v) * (1 + w), 2 * u * t * (1 + w),
                         2 * u * v * (1 - w), 2 * v * t * (1 - w), 2 * u * t * (1 - w), v * (1 - w * w),
                         u * (1 - w * w), t * (1 - w * w)})
            n.push_back(x);
        return n;
    case CELL_QUAD:
        for (int node = 0; node < cell.nnodes(); ++node) {
            const position p = node_position(cell, node);
            const double a = p[0], b = p[1];
            if (first)
                n.push_back((1 + a * u) * (1 + b * v) / 4);
            else if (a == 0)
                n.push_back((1 - u * u) * (1 + b * v) / 2);
            else if (b == 0)
                n.push_back((1 + a * u) * (1 - v * v) / 2);
            else
                n.push_back((1 + a * u) * (1 + b * v) * (a * u + b * v - 1) / 4);
        }
        return n;
    default:
        for (int node = 0; node < cell.nnodes(); ++node) {
            const position p = node_position(cell, node);
            const double a = p[0], b = p[1], c = p[2];
            if (first)
                n.push_back((1 + a * u) * (1 + b * v) * (1 + c * w) / 8);
            else if (a == 0)
                n.push_back((1 - u * u) * (1 + b * v) * (1 + c * w) / 4);
            else if (b == 0)
                n.push_back((1 + a * u) * (1 - v * v) * (1 + c * w) / 4);
            else if (c == 0)
                n.push_back((1 + a * u) * (1 + b * v) * (1 - w * w) / 4);
            else
                n.push_back((1 + a * u) * (1 + b * v) * (1 + c * w) * (a * u + b * v + c * w - 2) / 8);
        }
        return n;
    }
}

// By central differences, which are exact here save for rounding: no function is of higher than second
// degree in any one parameter.
inline std::vector<double> shape_slopes(const cell_functions &cell, const position &at)
{
    const double h = 1.0 / 64;
    std::vector<double> d;
    for (size_t axis = 0; axis < static_cast<size_t>(cell.ndim()); ++axis) {
        position lower = at, upper = at;
        lower[axis] -= h;
        upper[axis] += h;
        const std::vector<double> a = shape(cell, lower, true), b = shape(cell, upper, true);
        for (size_t node = 0; node < a.size(); ++node)
            d.push_back((b[node] - a[node]) / (2 * h));
    }
    return d;
}

inline position map_forward(const cell_functions &cell, const std::vector<float> &coords, const position &at)
{
    const std::vector<double> n = shape(cell, at);
    position x = {0, 0, 0};
    for (size_t node = 0; node < n.size(); ++node)
        for (size_t d = 0; d < 3; ++d)
            x[d] += n[node] * coords[3 * node + d];
    return x;
}

// ---- random positions and cells --------------------------------------------------------------------------------

// Within the cell, or beyond it by up to a share of its range. Axes that the cell has not are 0.
inline position random_position(const cell_functions &cell, std::mt19937_64 &random, double beyond = 0)
{
    const int nbary = barycentric_axes(cell);
    position at = {0, 0, 0};
    for (;;) {
        double rest = 1 + beyond;
        for (int d = 0; d < cell.ndim(); ++d) {
            const double low = d < nbary ? -beyond : -1 - beyond, high = 1 + beyond;
            at[static_cast<size_t>(d)] = std::uniform_real_distribution<double>(low, high)(random);
            if (d < nbary) rest -= at[static_cast<size_t>(d)];
        }
        if (rest >= 0) return at;
    }
}

// How far a position lies beyond the nearest limit of the parameters; negative inside.
inline double distance_beyond(const cell_functions &cell, const position &at)
{
    const int nbary = barycentric_axes(cell);
    double beyond = -1, sum = 0;
    for (int d = 0; d < cell.ndim(); ++d) {
        const double u = at[static_cast<size_t>(d)];
        beyond = std::max(beyond, d < nbary ? -u : std::fabs(u) - 1);
        if (d < nbary) sum += u;
    }
    return nbary > 0 ? std::max(beyond, sum - 1) : beyond;
}

struct cell_shape_options {
    double jitter = 0.15; // of corners along an axis, in halves of its length
    double bend = 0;      // of second-order nodes off the middle of their edge
    double warp = 0;      // off the plane or line of a cell of lower dimension
    double size = 1;
    position offset = {0, 0, 0};
    bool inside_out = false; // mirrored
};

// A distorted cell of a kind, turned at random in space.
inline std::vector<float> random_cell(const cell_functions &cell, std::mt19937_64 &random,
                                      const cell_shape_options &options)
{
    const auto spread = [&](double most) {
        return std::uniform_real_distribution<double>(-most, std::nextafter(most, 2 * most + 1))(random);
    };
    std::vector<position> nodes;
    for (int node = 0; node < cell.nnodes(); ++node) {
        position p = node_position(cell, node);
        const int ncorners = cell_kinds[cell.kind].ncorners;
        if (node >= ncorners) { // the middle of the two corners that average to the node's position
            for (int a = 0; a < ncorners; ++a)
                for (int b = a + 1; b < ncorners; ++b) {
                    const position pa = node_position(cell, a), pb = node_position(cell, b);
                    bool middle = true;
                    for (size_t d = 0; d < 3; ++d)
                        middle = middle && (pa[d] + pb[d]) / 2 == node_position(cell, node)[d];
                    if (middle)
                        for (size_t d = 0; d < 3; ++d)
                            p[d] = (nodes[static_cast<size_t>(a)][d] + nodes[static_cast<size_t>(b)][d]) / 2;
                }
        }
        const double most = node < ncorners ? options.jitter : options.bend;
        for (int d = 0; d < 3; ++d)
            p[static_cast<size_t>(d)] += spread(d >= cell.ndim()             ? options.warp
                                                : d < barycentric_axes(cell) ? most / 2
                                                                             : most);
        nodes.push_back(p);
    }

    // A random rotation, from a quaternion.
    double q[4], len = 0;
    for (double &x : q) {
        x = std::normal_distribution<double>()(random);
        len += x * x;
    }
    for (double &x : q)
        x /= std::sqrt(len);
    const double r[3][3] = {{1 - 2 * (q[2] * q[2] + q[3] * q[3]), 2 * (q[1] * q[2] - q[0] * q[3]),
                             2 * (q[1] * q[3] + q[0] * q[2])},
                            {2 * (q[1] * q[2] + q[0] * q[3]), 1 - 2 * (q[1] * q[1] + q[3] * q[3]),
                             2 * (q[2] * q[3] - q[0] * q[1])},
                            {2 * (q[1] * q[3] - q[0] * q[2]), 2 * (q[2] * q[3] + q[0] * q[1]),
                             1 - 2 * (q[1] * q[1] + q[2] * q[2])}};
    std::vector<float> coords;
    for (position p : nodes) {
        if (options.inside_out) p[0] = -p[0];
        for (size_t d = 0; d < 3; ++d)
            coords.push_back(static_cast<float>(
                (r[d][0] * p[0] + r[d][1] * p[1] + r[d][2] * p[2]) * options.size + options.offset[d]));
    }
    return coords;
}

// The cell in its own parameters: x, y, z are u, v, w at every node.
inline std::vector<float> unit_cell(const cell_functions &cell)
{
    std::vector<float> coords;
    for (int node = 0; node < cell.nnodes(); ++node)
        for (double x : node_position(cell, node))
            coords.push_back(static_cast<float>(x));
    return coords;
}

// ---- reverse mapping -----------------------------------------------------------------------------------------------

struct mapping {
    int result;
    std::array<float, 3> uvw; // entries that are not written keep what they held
    int steps;                // evaluations of the Jacobian
};

mapping map_back(const cell_functions &cell, const std::vector<float> &coords,
                 const std::array<float, 3> &point, std::array<float, 3> uvw);

} // namespace cell_reference
