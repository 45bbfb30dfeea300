// Second-order cells cut into first-order ones over the same nodes, so that whatever walks cells need know
// linear cells only.
//
// A table for each kind names the pieces by positions in the cell's own node row. Lines give lines, triangles
// and quadrilaterals give triangles, all solids give tetrahedra. No node is made: solids are cut without one
// in their middle, and neighbours agree on a shared face only through the nodes that both have there.

#include "memory.hpp"

#include <skoklana/cell.h>
#include <skoklana/cell_nodes.h>

// ---- pieces, a row each, in output order ---------------------------------------------------------------------

// clang-format off
constexpr unsigned char line_pieces[][2] = {{0, 2}, {2, 1}};

constexpr unsigned char tri_pieces[][3] = {{0, 3, 5}, {1, 4, 3}, {2, 5, 4}, {3, 4, 5}};

constexpr unsigned char quad_pieces[][3] = {{0, 4, 7}, {1, 5, 4}, {2, 6, 5}, {3, 7, 6}, // at the corners
                                            {4, 5, 7}, {6, 7, 5}};

constexpr unsigned char tet_pieces[][4] = {{0, 4, 5, 6}, {1, 7, 4, 9}, {2, 8, 5, 7}, {3, 6, 8, 9}, // at the corners
                                           {4, 5, 6, 7}, {4, 6, 9, 7}, {8, 7, 6, 5}, {8, 9, 6, 7}};

constexpr unsigned char pyr_pieces[][4] = {{11, 8, 12, 4}, {10, 6, 9, 7},  {7, 6, 9, 5},   {7, 0, 6, 5},
                                           {10, 7, 9, 12}, {7, 5, 9, 12},  {5, 1, 9, 12},  {10, 7, 12, 11},
                                           {10, 3, 7, 11}, {11, 7, 12, 8}, {7, 5, 12, 8},  {7, 0, 5, 8},
                                           {9, 2, 6, 10}};

// The pieces fill a prism with node 12 on the edge of corners 0 and 3 and node 13 on that of 1 and 4. The shape
// functions have the two the other way about. Callers of each know its order, so neither can be changed to
// suit the other: extraction goes by this table, interpolation by the functions.
constexpr unsigned char prism_pieces[][4] = {{7, 2, 8, 14},   {11, 5, 10, 14}, {11, 7, 8, 14},   {10, 7, 11, 14},
                                             {9, 6, 12, 10},  {10, 6, 12, 7},  {7, 6, 12, 0},    {12, 9, 10, 3},
                                             {10, 7, 12, 11}, {12, 3, 10, 11}, {11, 7, 12, 8},   {7, 0, 12, 8},
                                             {13, 6, 9, 10},  {9, 4, 13, 10},  {13, 6, 10, 7},   {13, 1, 6, 7}};

constexpr unsigned char hex_pieces[][4] = {{13, 6, 18, 14},  {19, 7, 15, 14},  {19, 13, 18, 14}, {15, 13, 19, 14},
                                           {19, 10, 11, 3},  {18, 9, 10, 2},   {18, 9, 19, 10},  {19, 9, 11, 10},
                                           {13, 9, 19, 18},  {13, 9, 11, 19},  {13, 11, 15, 19}, {13, 11, 16, 15},
                                           {16, 12, 13, 15}, {13, 8, 11, 9},   {17, 8, 13, 9},   {13, 8, 16, 11},
                                           {12, 8, 16, 13},  {17, 8, 12, 13},  {12, 5, 17, 13},  {8, 0, 16, 11},
                                           {17, 1, 8, 9},    {16, 4, 12, 15}};
// clang-format on

// Every row names different nodes of the kind, and every node stands in some row.
template <int Pieces, int Corners>
constexpr bool rows_name_nodes(const unsigned char (&pieces)[Pieces][Corners], int kind)
{
    const int nnodes = cell_kinds[kind].nnodes_2;
    int used = 0;
    for (int piece = 0; piece < Pieces; ++piece) {
        int in_row = 0;
        for (int corner = 0; corner < Corners; ++corner) {
            const int node = pieces[piece][corner];
            if (node >= nnodes || (in_row >> node & 1) != 0) return false;
            in_row |= 1 << node;
        }
        used |= in_row;
    }
    return used == (1 << nnodes) - 1;
}
static_assert(rows_name_nodes(line_pieces, CELL_LINE), "line pieces");
static_assert(rows_name_nodes(tri_pieces, CELL_TRI), "tri pieces");
static_assert(rows_name_nodes(quad_pieces, CELL_QUAD), "quad pieces");
static_assert(rows_name_nodes(tet_pieces, CELL_TET), "tet pieces");
static_assert(rows_name_nodes(pyr_pieces, CELL_PYR), "pyr pieces");
static_assert(rows_name_nodes(prism_pieces, CELL_PRISM), "prism pieces");
static_assert(rows_name_nodes(hex_pieces, CELL_HEX), "hex pieces");

// Bytes of the new list are counted too: a host need not look for their overflow.
static bool fits_in_memory(qx_long ncells, int entries_per_cell)
{
    constexpr qx_long most_bytes = INT64_MAX;
    return ncells >= 0 && ncells <= most_bytes / (entries_per_cell * static_cast<qx_long>(sizeof(qx_long)));
}

template <int Pieces, int Corners>
static int tesselate_cells(const unsigned char (&pieces)[Pieces][Corners], int kind, qx_long ncells,
                           const qx_long *connect, qx_long *new_ncells, qx_long **new_connect,
                           int *new_nnodes)
{
    constexpr int entries_per_cell = Pieces * Corners;
    const bool fits = fits_in_memory(ncells, entries_per_cell);
    *new_nnodes = Corners;
    *new_ncells = fits ? ncells * Pieces : 0;
    *new_connect = fits ? alloc_numbers(ncells * entries_per_cell, ALLOC_AT("cell2ord")) : nullptr;
    if (*new_connect == nullptr) return 0;

    const int nnodes = cell_kinds[kind].nnodes_2;
    qx_long *out = *new_connect;
    for (const qx_long *row = connect, *end = connect + ncells * nnodes; row != end; row += nnodes)
        for (const auto &piece : pieces)
            for (unsigned char position : piece)
                *out++ = row[position];
    return 1;
}

#define EXPORT_TESSELATE(suffix, kind)                                                                       \
    int UTILtesselate_##suffix##_2(qx_long ncells, const qx_long *connect, qx_long *new_ncells,              \
                                   qx_long **new_connect, int *new_nnodes)                                   \
    {                                                                                                        \
        return tesselate_cells(suffix##_pieces, kind, ncells, connect, new_ncells, new_connect, new_nnodes); \
    }
EXPORT_TESSELATE(line, CELL_LINE)
EXPORT_TESSELATE(tri, CELL_TRI)
EXPORT_TESSELATE(quad, CELL_QUAD)
EXPORT_TESSELATE(hex, CELL_HEX)
EXPORT_TESSELATE(tet, CELL_TET)
EXPORT_TESSELATE(prism, CELL_PRISM)
EXPORT_TESSELATE(pyr, CELL_PYR)
