// Isosurface cases of a lattice cell, by its edges.
#pragma once

#include "iso_cases.hpp"
#include "lattice_edges.hpp"

struct lattice_case {
    unsigned char triangles[15]; // edges, three a triangle; filled up with the first of them
    unsigned char ntriangles;
    edge_order<3> crossed;
};

struct lattice_case_table {
    lattice_case row[256];
};

extern const lattice_case_table lattice_cases;

constexpr lattice_case_table derive_lattice_cases(const iso_case *rows)
{
    lattice_case_table table = {};
    for (int index = 0; index < 256; ++index) {
        const iso_case &from = rows[index];
        lattice_case &to = table.row[index];
        to.ntriangles = from.ntriangles;
        for (int p = 0; p < from.npoints; ++p)
            to.crossed.append(
                edge_between<3>(place_of_ring_corner(from.left[p]), place_of_ring_corner(from.right[p])));
        to.crossed.rank_own();
        for (int t = 0; t < 15; ++t)
            to.triangles[t] = to.crossed.edges[t < 3 * from.ntriangles ? from.points[t] : 0];
    }
    return table;
}
