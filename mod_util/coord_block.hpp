// Coordinates of listed nodes on uniform and rectilinear meshes, a block of nodes at a time.
//
// A node number is split into axis positions by two divisions. Here they are done in double, on loops over a
// block that the compiler turns into vector instructions: for n below 2^51 the product n * (1 / d), rounded
// to a whole number, is the quotient or one more, and a negative remainder tells which. Every number involved
// is whole and below 2^53, so positions are exact, and their coordinates those of lattice.hpp bit for bit.
// A block that holds another number, and what is left over at the end of a list, goes node by node.
#pragma once

#include "lattice.hpp"
#include "simd.hpp"

#include <cstring>

constexpr int block_nodes = 32;

struct block_column {
    float at[block_nodes];
};

// From 2^52 to 2^53 doubles are the whole numbers: added to a smaller number this rounds it to a whole one.
constexpr double whole_bias = 4503599627370496.0;

FORCE_INLINE double whole_to_double(qx_long number)
{
    double biased;
    const uint64_t bits = static_cast<uint64_t>(number) | 0x4330000000000000u; // 2^52 + number
    memcpy(&biased, &bits, sizeof biased);
    return biased - whole_bias;
}

// Division by one number, for many.
struct block_divisor {
    double divisor, inverse;

    explicit block_divisor(qx_long d) : divisor(static_cast<double>(d)), inverse(1 / divisor) {}

    FORCE_INLINE void divide(double number, double *quotient, double *remainder) const
    {
        const double near = (number * inverse + whole_bias) - whole_bias;
        const double rest = number - near * divisor;
        *quotient = near - (rest < 0 ? 1.0 : 0.0);
        *remainder = rest + (rest < 0 ? divisor : 0.0);
    }
};

// Coordinates from positions on one axis, a block of them.
FORCE_INLINE void block_coordinates(const uniform_axes &axes, int d, const double *position,
                                    block_column *out)
{
    const float step = axes.step[d], first = axes.points[d];
    for (int i = 0; i < block_nodes; ++i)
        out->at[i] = static_cast<float>(position[i]) * step + first;
}

FORCE_INLINE void block_coordinates(const rectilinear_axes &axes, int d, const double *position,
                                    block_column *out)
{
    const float *list = axes.points + axes.offset[d] * axes.nspace + d;
    for (int i = 0; i < block_nodes; ++i)
        out->at[i] = list[static_cast<int>(position[i]) * axes.nspace];
}

// Whether the places of an axis list can be counted in int.
inline bool has_short_lists(const uniform_axes &)
{
    return true;
}

inline bool has_short_lists(const rectilinear_axes &axes)
{
    bool all_short = true;
    for (int d = 0; d < axes.ndim; ++d)
        all_short = all_short && axes.dims[d] < (1 << 29);
    return all_short;
}

// The coordinates of any node; Axes is uniform_axes or rectilinear_axes.
template <typename Axes> struct compact_rows {
    Axes axes;
    block_divisor row, plane;
    bool short_lists;

    explicit compact_rows(const Axes &axes_)
        : axes(axes_), row(axes.ndim > 1 ? axes.dims[0] : 1), plane(axes.ndim > 2 ? axes.dims[1] : 1),
          short_lists(has_short_lists(axes))
    {
    }

    // One node.
    void read(qx_long node, float *coords) const
    {
        const lattice_position position = split_node(node, axes.ndim, axes.dims);
        for (int d = 0; d < axes.nspace; ++d)
            coords[d] = d < axes.ndim ? axes.coordinate(d, position.at[d]) : axes.points[d];
    }

    // Whether read_block takes these nodes.
    FORCE_INLINE bool is_block(const qx_long *nodes) const
    {
        if (!short_lists) return false;
        qx_long all = 0;
        for (int i = 0; i < block_nodes; ++i)
            all |= nodes[i];
        return all >= 0 && all < qx_long{1} << 51;
    }

    // block_nodes nodes, a column for each coordinate.
    FORCE_INLINE void read_block(const qx_long *nodes, block_column *columns) const
    {
        double position[3][block_nodes];
        if (axes.ndim == 1) {
            for (int i = 0; i < block_nodes; ++i)
                position[0][i] = whole_to_double(nodes[i]);
        } else if (axes.ndim == 2) {
            for (int i = 0; i < block_nodes; ++i)
                row.divide(whole_to_double(nodes[i]), &position[1][i], &position[0][i]);
        } else {
            for (int i = 0; i < block_nodes; ++i) {
                double rows;
                row.divide(whole_to_double(nodes[i]), &rows, &position[0][i]);
                plane.divide(rows, &position[2][i], &position[1][i]);
            }
        }
        for (int d = 0; d < axes.nspace; ++d) {
            if (d < axes.ndim)
                block_coordinates(axes, d, position[d], &columns[d]);
            else
                for (int i = 0; i < block_nodes; ++i)
                    columns[d].at[i] = axes.points[d];
        }
    }
};

// Columns to rows of nspace floats.
FORCE_INLINE void store_block(const block_column *columns, int nspace, float *out)
{
    if (nspace == 3) {
        for (int i = 0; i < block_nodes; ++i) {
            out[3 * i] = columns[0].at[i];
            out[3 * i + 1] = columns[1].at[i];
            out[3 * i + 2] = columns[2].at[i];
        }
        return;
    }
    for (int i = 0; i < block_nodes; ++i)
        for (int d = 0; d < nspace; ++d)
            out[nspace * i + d] = columns[d].at[i];
}
