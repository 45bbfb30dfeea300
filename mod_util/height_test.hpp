// Whether a line, or a triangle, over a grid of heights stays within a tolerance of the nodes that it passes.
//
// A line along the grid is held against every node, a slanted one against the heights between two rows wherever it
// meets a column of nodes. A triangle is that of three lines, and of its rows of nodes between them. All heights on the
// way are accumulated step by step from one end: what comes out to the last bit decides at tolerances of 0.
#pragma once

#include "dtype.hpp"

#include <algorithm>
#include <cmath>

struct grid_place {
    qx_long i, j;
};

inline bool same_place(grid_place a, grid_place b)
{
    return a.i == b.i && a.j == b.j;
}

// Twice the area of the triangle o, a, b: above 0 if it turns left. Exact, as twice the grid's area has room.
inline qx_long turn_of(grid_place o, grid_place a, grid_place b)
{
    return (a.i - o.i) * (b.j - o.j) - (a.j - o.j) * (b.i - o.i);
}

struct height_grid {
    const void *data;
    qx_long dims[2];
    double tolerance;
    // By the type of the data. Of three corners the rows are told, not the edges.
    bool (*line_holds)(const height_grid &grid, grid_place a, grid_place b);
    bool (*rows_hold)(const height_grid &grid, const grid_place *corners);
};

inline bool height_holds(double height, double line, double tolerance)
{
    return height - tolerance <= line && line <= height + tolerance;
}

// steps + 1 nodes from the first one on, and the line from there to the last.
template <typename T> bool nodes_hold(const T *node, qx_long stride, qx_long steps, double tolerance)
{
    const double low = static_cast<double>(node[0]), high = static_cast<double>(node[steps * stride]);
    const double rise = (high - low) / static_cast<double>(steps);
    double line = low;
    for (qx_long k = 0; k <= steps; ++k, line += rise)
        if (!height_holds(static_cast<double>(node[k * stride]), line, tolerance)) return false;
    return true;
}

template <typename T> bool line_holds_in(const height_grid &grid, grid_place a, grid_place b)
{
    const qx_long nx = grid.dims[0];
    if (a.i > b.i || (a.i == b.i && a.j > b.j)) std::swap(a, b);
    const T *data = static_cast<const T *>(grid.data), *first = data + a.j * nx + a.i;
    if (a.j == b.j) return nodes_hold(first, 1, b.i - a.i, grid.tolerance);
    if (a.i == b.i) return nodes_hold(first, nx, b.j - a.j, grid.tolerance);

    const double low = static_cast<double>(*first), high = static_cast<double>(data[b.j * nx + b.i]);
    const double steps = static_cast<double>(b.i - a.i), slope = static_cast<double>(b.j - a.j) / steps;
    const double rise = (high - low) / steps;
    double y = static_cast<double>(a.j) + slope, line = low + rise;
    for (qx_long i = a.i + 1; i < b.i; ++i, y += slope, line += rise) { // both ends are nodes
        const qx_long row = static_cast<qx_long>(y);
        const double above = y - static_cast<double>(row);
        if (!(above > 0) || row >= grid.dims[1] - 1) continue;
        const T *column = data + row * nx + i;
        const double lower = static_cast<double>(column[0]), upper = static_cast<double>(column[nx]);
        if (!height_holds(lower + (upper - lower) * above, line, grid.tolerance)) return false;
    }
    return true;
}

// Where an edge that rises by rows crosses the present one, and its height there.
struct row_crossing {
    double x, slope, height, rise;
};

template <typename T> row_crossing rising_edge(const height_grid &grid, grid_place from, grid_place to)
{
    const T *data = static_cast<const T *>(grid.data);
    const double low = static_cast<double>(data[from.j * grid.dims[0] + from.i]);
    const double high = static_cast<double>(data[to.j * grid.dims[0] + to.i]);
    const double rows = static_cast<double>(to.j - from.j);
    return {static_cast<double>(from.i), static_cast<double>(to.i - from.i) / rows, low, (high - low) / rows};
}

inline void next_row(row_crossing *edge)
{
    edge->x += edge->slope;
    edge->height += edge->rise;
}

// The rows of a triangle between its edges, the last one left out, as are those with a single node. The heights of
// both ends are carried to their nodes in a form that is right only where the crossings are nodes: results have
// always been those of this form, and a better one gives other triangles.
template <typename T> bool rows_hold_in(const height_grid &grid, const grid_place *corners)
{
    grid_place low = corners[0], middle = corners[1], high = corners[2];
    if (middle.j < low.j) std::swap(low, middle);
    if (high.j < middle.j) std::swap(middle, high);
    if (middle.j < low.j) std::swap(low, middle);
    if (low.j == high.j) return true;

    const T *nodes = static_cast<const T *>(grid.data) + low.j * grid.dims[0];
    row_crossing whole = rising_edge<T>(grid, low, high);
    row_crossing part = low.j < middle.j ? rising_edge<T>(grid, low, middle) : row_crossing{};
    for (qx_long row = low.j; row < high.j; ++row, nodes += grid.dims[0]) {
        if (row == middle.j) part = rising_edge<T>(grid, middle, high);
        const row_crossing &left = part.x < whole.x ? part : whole, &right = part.x < whole.x ? whole : part;
        const qx_long below = static_cast<qx_long>(left.x), last = static_cast<qx_long>(right.x);
        const qx_long first = below + (static_cast<double>(below) < left.x ? 1 : 0);
        if (first < last) {
            const double width = right.x - left.x;
            double line = left.height + right.height * (left.x - static_cast<double>(first)) / width;
            const double end = right.height - left.height * (static_cast<double>(last) - right.x) / width;
            const double rise = (end - line) / static_cast<double>(last - first);
            for (qx_long i = first; i <= last; ++i, line += rise)
                if (!height_holds(static_cast<double>(nodes[i]), line, grid.tolerance)) return false;
        }
        next_row(&whole);
        next_row(&part);
    }
    return true;
}

// False for an unknown type.
inline bool bind_heights(height_grid *grid, int type)
{
    return with_dtype_silent(type, [grid](auto of) -> int {
               using T = typename decltype(of)::type;
               grid->line_holds = line_holds_in<T>;
               grid->rows_hold = rows_hold_in<T>;
               return 1;
           }) == 1;
}
