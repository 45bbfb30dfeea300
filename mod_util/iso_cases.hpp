// Isosurface cases, one record a case, as the kernels read them.
//
// The exported case tables hold crossings, polygons and the split of a polygon in arrays of their own; a
// kernel would read five of them for each cell. Here the same facts are flattened: the crossed edges, and the
// triangles over the crossings. A policy names a cell kind's corners, the bit order of its case index and
// its rows, so that one kernel template serves all kinds.
#pragma once

#include "level_keys.hpp"

struct iso_case {
    unsigned char npoints;             // crossed edges
    unsigned char ntriangles;          // triangles over them
    unsigned char left[12], right[12]; // corners of each crossed edge
    unsigned char points[15];          // crossings, three a triangle, in the order of the case tables
};

extern const iso_case iso_rows_hex[256];
extern const iso_case iso_rows_prism[64];
extern const iso_case iso_rows_pyr[32];
extern const iso_case iso_rows_tet[16];

// A case index has bit b set where corner corner_of_bit[b] is at or above the level. Index 0 and last_case
// have no crossing.
struct hex_cases : level_keys<8> {
    static constexpr unsigned char corner_of_bit[8] = {0, 1, 4, 5, 3, 2, 7, 6};
    static const iso_case &row(int index) { return iso_rows_hex[index]; }
};

struct prism_cases : level_keys<6> {
    static constexpr unsigned char corner_of_bit[6] = {5, 2, 0, 3, 1, 4};
    static const iso_case &row(int index) { return iso_rows_prism[index]; }
};

struct pyr_cases : level_keys<5> {
    static constexpr unsigned char corner_of_bit[5] = {1, 2, 3, 4, 0};
    static const iso_case &row(int index) { return iso_rows_pyr[index]; }
};

struct tet_cases : level_keys<4> {
    static constexpr unsigned char corner_of_bit[4] = {0, 1, 2, 3};
    static const iso_case &row(int index) { return iso_rows_tet[index]; }
};
