// Band cases of surface cells that both levels cross, one record a case, as the kernels read them.
//
// The record is that of cut_cases.hpp but for two things: a new node is on its edge at the lower level or at
// the upper one, and there are lines at either. All pieces are triangles.
//
// A case is told by two sets of corners: lo_mask has bit c set where corner c is at or above the lower level,
// hi_mask where it is above the upper one. There is a record where some corners are above, some below, and
// none both. Cells that one level crosses are cut, by the cut case of the mask that is not full: Cases::cuts.
// cont_tables.cpp has the rows.
#pragma once

#include "cut_cases.hpp"

struct band_case {
    unsigned char npoints;           // new nodes
    unsigned char ncells;            // triangles
    unsigned char nlines[2];         // lines at the lower level, and at the upper one
    unsigned char left[8], right[8]; // corners of each new node's edge, the lower one left
    unsigned char level[8];          // of each new node: 0 lower, 1 upper
    unsigned char nodes[15];         // of all triangles: corners, then new nodes from ncorners on
    unsigned char lines[2][4];       // by level: new nodes, from 0, two a line
};

extern const band_case band_rows_quad[51];
extern const band_case band_rows_tri[13];
// Rows by hi_mask << ncorners | lo_mask; below 0: none.
extern const signed char band_index_quad[256];
extern const signed char band_index_tri[64];

struct quad_band_cases {
    using cuts = quad_cut_cases;
    // Null where no row has these corners: levels in the wrong order make such cells, of which nothing is
    // left.
    static const band_case *row(int hi_mask, int lo_mask)
    {
        const int index = band_index_quad[hi_mask << 4 | lo_mask];
        return index < 0 ? nullptr : &band_rows_quad[index];
    }
};

struct tri_band_cases {
    using cuts = tri_cut_cases;
    static const band_case *row(int hi_mask, int lo_mask)
    {
        const int index = band_index_tri[hi_mask << 3 | lo_mask];
        return index < 0 ? nullptr : &band_rows_tri[index];
    }
};
