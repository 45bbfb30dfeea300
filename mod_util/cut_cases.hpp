// Cut cases, one record a case, as the kernels read them.
//
// A cut keeps some corners of a cell; the record tells what is left of it. All pieces of a kind of cell are
// of one kind themselves: tetrahedra of volume cells, triangles of surface cells, lines of lines. So a piece
// is its nodes alone. A node of a piece is a place in an array that a kernel fills for the cell at hand:
//
//   0 to ncorners - 1   its corners, by their output numbers
//   ncorners + p        its new node p, the one between corners left[p] and right[p]
//
// and a kernel writes array[nodes[i]] for every i. This holds for cell sets and for structured meshes; what
// the array holds, output numbers, node numbers of a first cut or values, is the kernel's affair.
//
// A policy names the facts of one kind for a kernel template; a cut_kind holds the same for a kernel that
// finds the kind while it runs. Cases have bit c set where corner c is kept. Case 0 and last_case have empty
// records: nothing is left, or the whole cell, which goes to whole_list. cut_tables.cpp has the rows.
#pragma once

#include "level_keys.hpp"

// The output lists of cuts and bands. Bands have no list of lines.
enum cut_list {
    TET_LIST,
    PRISM_LIST,
    PYR_LIST,
    HEX_LIST,
    TRI_LIST,
    QUAD_LIST,
    LINE_LIST,
    CUT_LISTS,
    BAND_LISTS = LINE_LIST
};

constexpr int cut_list_nnodes[CUT_LISTS] = {4, 6, 5, 8, 3, 4, 2};

constexpr int most_cut_nodes = 52;  // entries of a case: 13 tetrahedra
constexpr int most_cut_points = 12; // new nodes of a case
constexpr int most_cut_local = 20;  // corners and new nodes of a case

struct cut_case {
    unsigned char npoints; // new nodes
    unsigned char ncells;  // pieces
    unsigned char nlines;  // lines that a surface cell's kept part ends in, inside the cell
    unsigned char left[most_cut_points],
        right[most_cut_points];          // corners of each new node's edge, the lower one left
    unsigned char nodes[most_cut_nodes]; // of all pieces, one after the other
    unsigned char lines[4];              // new nodes, from 0, two a line
};

extern const cut_case cut_rows_hex[256];
extern const cut_case cut_rows_prism[64];
extern const cut_case cut_rows_pyr[32];
extern const cut_case cut_rows_tet[16];
extern const cut_case cut_rows_quad[16];
extern const cut_case cut_rows_tri[8];
extern const cut_case cut_rows_line[4];

struct hex_cut_cases : level_keys<8> {
    static constexpr unsigned char corner_of_bit[8] = {0, 1, 2, 3, 4, 5, 6, 7};
    static constexpr cut_list whole_list = HEX_LIST, piece_list = TET_LIST;
    static const cut_case &row(int index) { return cut_rows_hex[index]; }
};

struct prism_cut_cases : level_keys<6> {
    static constexpr unsigned char corner_of_bit[6] = {0, 1, 2, 3, 4, 5};
    static constexpr cut_list whole_list = PRISM_LIST, piece_list = TET_LIST;
    static const cut_case &row(int index) { return cut_rows_prism[index]; }
};

struct pyr_cut_cases : level_keys<5> {
    static constexpr unsigned char corner_of_bit[5] = {0, 1, 2, 3, 4};
    static constexpr cut_list whole_list = PYR_LIST, piece_list = TET_LIST;
    static const cut_case &row(int index) { return cut_rows_pyr[index]; }
};

struct tet_cut_cases : level_keys<4> {
    static constexpr unsigned char corner_of_bit[4] = {0, 1, 2, 3};
    static constexpr cut_list whole_list = TET_LIST, piece_list = TET_LIST;
    static const cut_case &row(int index) { return cut_rows_tet[index]; }
};

struct quad_cut_cases : level_keys<4> {
    static constexpr unsigned char corner_of_bit[4] = {0, 1, 2, 3};
    static constexpr cut_list whole_list = QUAD_LIST, piece_list = TRI_LIST;
    static const cut_case &row(int index) { return cut_rows_quad[index]; }
};

struct tri_cut_cases : level_keys<3> {
    static constexpr unsigned char corner_of_bit[3] = {0, 1, 2};
    static constexpr cut_list whole_list = TRI_LIST, piece_list = TRI_LIST;
    static const cut_case &row(int index) { return cut_rows_tri[index]; }
};

struct line_cut_cases : level_keys<2> {
    static constexpr unsigned char corner_of_bit[2] = {0, 1};
    static constexpr cut_list whole_list = LINE_LIST, piece_list = LINE_LIST;
    static const cut_case &row(int index) { return cut_rows_line[index]; }
};

struct cut_kind {
    int ncorners;
    int last_case;
    cut_list whole_list, piece_list;
    const cut_case *rows;
};

template <typename Cases> constexpr cut_kind cut_kind_of(const cut_case *rows)
{
    return {Cases::ncorners, Cases::last_case, Cases::whole_list, Cases::piece_list, rows};
}

// By the list that whole cells of the kind go to.
inline constexpr cut_kind cut_kinds[CUT_LISTS] = {
    cut_kind_of<tet_cut_cases>(cut_rows_tet),   cut_kind_of<prism_cut_cases>(cut_rows_prism),
    cut_kind_of<pyr_cut_cases>(cut_rows_pyr),   cut_kind_of<hex_cut_cases>(cut_rows_hex),
    cut_kind_of<tri_cut_cases>(cut_rows_tri),   cut_kind_of<quad_cut_cases>(cut_rows_quad),
    cut_kind_of<line_cut_cases>(cut_rows_line),
};
