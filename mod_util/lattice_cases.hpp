// Isosurface cases of a lattice cell, by its edges.
//
//     edge 0 to 3     along i, at the corners j + 2 k of the cell's j-k face
//          4 to 7     along j, at the corners i + 2 k
//          8 to 11    along k, at the corners i + 2 j
//
// The last edge of each kind ends in the corner that is uppermost on all axes. These three are the cell's
// own: no cell that comes earlier in the order of the lattice has them.
#pragma once

#include "cases.hpp"

constexpr int own_edge[3] = {3, 7, 11}; // along i, j, k
constexpr unsigned own_edges = 1u << 3 | 1u << 7 | 1u << 11;

struct lattice_case {
    unsigned char triangles[15]; // edges, three a triangle; filled up with the first of them
    unsigned char ntriangles;
    unsigned char edges[12]; // crossed, in the order in which they get their numbers
    unsigned char nedges;
    unsigned char nown;        // crossed edges among the cell's own
    unsigned char own_rank[3]; // places of the own edges in that order; those not crossed come behind
};

struct lattice_case_table {
    lattice_case row[256];
};

extern const lattice_case_table lattice_cases;

// Corner c stands at 0 or 1 on each axis.
constexpr int corner_position(int corner, int axis)
{
    return axis == 0 ? (corner + 1) >> 1 & 1 : axis == 1 ? corner >> 1 & 1 : corner >> 2;
}

constexpr int edge_between(int a, int b)
{
    int axis = 0;
    while (corner_position(a, axis) == corner_position(b, axis))
        ++axis;
    const int fast = axis == 0 ? 1 : 0, slow = axis == 2 ? 1 : 2;
    return 4 * axis + corner_position(a, fast) + 2 * corner_position(a, slow);
}

constexpr lattice_case_table derive_lattice_cases(const iso_case *rows)
{
    lattice_case_table table = {};
    for (int index = 0; index < 256; ++index) {
        const iso_case &from = rows[index];
        lattice_case &to = table.row[index];
        to.nedges = from.npoints;
        to.ntriangles = from.ntriangles;
        unsigned crossed = 0;
        int rank[12] = {};
        for (int p = 0; p < from.npoints; ++p) {
            const int edge = edge_between(from.left[p], from.right[p]);
            to.edges[p] = static_cast<unsigned char>(edge);
            crossed |= 1u << edge;
            if ((own_edges >> edge & 1) != 0) rank[edge] = to.nown++;
        }
        int behind = to.nown;
        for (int axis = 0; axis < 3; ++axis) {
            const bool is_crossed = (crossed >> own_edge[axis] & 1) != 0;
            to.own_rank[axis] = static_cast<unsigned char>(is_crossed ? rank[own_edge[axis]] : behind++);
        }
        for (int t = 0; t < 15; ++t)
            to.triangles[t] = to.edges[t < 3 * from.ntriangles ? from.points[t] : 0];
    }
    return table;
}
