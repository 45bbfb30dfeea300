// Cut cases of a lattice cell, by the bits in which a walk hands out its corners.
//
// The corners of a cut hexahedron are counted around the upper plane of a slab first and then around the lower
// one, the other way than the corners of a connect row; those of a quadrilateral as everywhere. So the cases of
// the tables get another order, and their new nodes the numbers of the cell's edges.
#pragma once

#include "cut_cases.hpp"
#include "lattice_edges.hpp"

template <int naxes> struct lattice_cut_case {
    edge_order<naxes> crossed;
    unsigned char index; // of the row in the table of hexahedra or quadrilaterals
};

template <int naxes> struct lattice_cut_table {
    lattice_cut_case<naxes> row[1 << (1 << naxes)];
};

extern const lattice_cut_table<3> lattice_cuts_hex;
extern const lattice_cut_table<2> lattice_cuts_quad;

template <int naxes> const lattice_cut_case<naxes> &lattice_cut(unsigned index)
{
    if constexpr (naxes == 3)
        return lattice_cuts_hex.row[index];
    else
        return lattice_cuts_quad.row[index];
}

// Where a corner of a cut cell stands.
template <int naxes> constexpr unsigned place_of_cut_corner(int corner)
{
    return place_of_ring_corner(naxes == 3 ? corner ^ 4 : corner);
}

template <int naxes> constexpr lattice_cut_table<naxes> derive_lattice_cuts(const cut_case *rows)
{
    lattice_cut_table<naxes> table = {};
    for (unsigned index = 0; index < 1u << (1 << naxes); ++index) {
        lattice_cut_case<naxes> &to = table.row[index];
        for (int corner = 0; corner < 1 << naxes; ++corner)
            if ((index >> walk_bit<naxes>(place_of_cut_corner<naxes>(corner)) & 1) != 0)
                to.index = static_cast<unsigned char>(to.index | 1u << corner);
        const cut_case &from = rows[to.index];
        for (int p = 0; p < from.npoints; ++p)
            to.crossed.append(edge_between<naxes>(place_of_cut_corner<naxes>(from.left[p]),
                                                  place_of_cut_corner<naxes>(from.right[p])));
        to.crossed.rank_own();
    }
    return table;
}
