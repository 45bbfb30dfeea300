// Surfaces of cell sets: how the cases of volume cells become triangles, and how the lists of these grow. The kernels
// are those of extract.hpp.
#pragma once

#include "extract.hpp"
#include "iso_cases.hpp"

// Numbers: who has the lists; checks: whether the walk looks for an interruption.
template <class Numbers, bool checks> struct surface_rules_of {
    using numbers = Numbers;
    static constexpr qx_long first_capacity = 1024;
    // A hex case makes at most 5 triangles, 15 entries; the rest is headroom so that a test a cell suffices.
    static constexpr qx_long margin = 25;
    static constexpr bool raises_step = true;
    static constexpr bool checks_status = checks;
    static constexpr int nodes_each = 3;

    static int count(const iso_case &row) { return row.ntriangles; }

    // Every triangle is turned: with the corner numbers of the cells, normals then point to lower values.
    static void append(const iso_case &row, const int *number, qx_long *connect)
    {
        for (int i = 0; i < 3 * row.ntriangles; i += 3) {
            connect[i] = number[row.points[i]];
            connect[i + 1] = number[row.points[i + 2]];
            connect[i + 2] = number[row.points[i + 1]];
        }
    }
};
