// Isoline cases of triangles and quadrilaterals.
//
// A digit pair is a crossed edge, corner by corner; two pairs are a line. A case index has bit c set where
// corner c is at or above the level; rows behind the middle are not kept: an index and its complement share
// a row, lines and direction. So the ambiguous quad cases 5 and 10 both cut off corners 0 and 2, whichever
// pair of corners is above.
#pragma once

#include "level_keys.hpp"

struct isoline_case {
    unsigned char npoints;           // crossed edges, two a line
    unsigned char left[4], right[4]; // corners of each crossed edge
};

// clang-format off
constexpr const char *isoline_quad_rows[8] = {
    /* 0  ---- */ "",
    /* 1  0--- */ "01 30",
    /* 2  -1-- */ "01 12",
    /* 3  01-- */ "12 30",
    /* 4  --2- */ "12 23",
    /* 5  0-2- */ "01 30 12 23",
    /* 6  -12- */ "01 23",
    /* 7  012- */ "23 30",
};
constexpr const char *isoline_tri_rows[4] = {
    /* 0  --- */ "",
    /* 1  0-- */ "01 20",
    /* 2  -1- */ "01 12",
    /* 3  01- */ "12 20",
};
// clang-format on

constexpr isoline_case parse_isoline_row(const char *row)
{
    isoline_case parsed = {};
    for (const char *c = row; *c != 0; c += *c == ' ' ? 1 : 2) {
        if (*c == ' ') continue;
        parsed.left[parsed.npoints] = static_cast<unsigned char>(c[0] - '0');
        parsed.right[parsed.npoints] = static_cast<unsigned char>(c[1] - '0');
        ++parsed.npoints;
    }
    return parsed;
}

// Rows of all case indices, the folded ones included.
template <int Cases> struct isoline_table {
    isoline_case row[Cases];

    constexpr explicit isoline_table(const char *const *rows) : row()
    {
        for (int index = 0; index < Cases; ++index)
            row[index] = parse_isoline_row(rows[index < Cases / 2 ? index : Cases - 1 - index]);
    }
};

inline constexpr isoline_table<16> isoline_quad_table(isoline_quad_rows);
inline constexpr isoline_table<8> isoline_tri_table(isoline_tri_rows);

// As the policies of the isosurface cases: index 0 and last_case have no crossing.
struct quad_line_cases : level_keys<4> {
    static constexpr unsigned char corner_of_bit[4] = {0, 1, 2, 3};
    static const isoline_case &row(int index) { return isoline_quad_table.row[index]; }
};

struct tri_line_cases : level_keys<3> {
    static constexpr unsigned char corner_of_bit[3] = {0, 1, 2};
    static const isoline_case &row(int index) { return isoline_tri_table.row[index]; }
};

constexpr bool isoline_rows_cross(const isoline_case *rows, int ncases)
{
    for (int index = 0; index < ncases; ++index)
        for (int p = 0; p < rows[index].npoints; ++p)
            if ((index >> rows[index].left[p] & 1) == (index >> rows[index].right[p] & 1)) return false;
    return true;
}
static_assert(isoline_rows_cross(isoline_quad_table.row, 16),
              "a quad row has an edge that it does not cross");
static_assert(isoline_rows_cross(isoline_tri_table.row, 8), "a tri row has an edge that it does not cross");
