/* Where the nodes of each cell kind stand in the cell's own parametric coordinates.
 *
 * Parameters run over [-1, 1] on lines, quadrilaterals, hexahedra, pyramids and along w of prisms; over
 * [0, 1], summing to at most 1, on triangles, tetrahedra and in u, v of prisms. Numbering is particular:
 * hexahedra start at a top corner and step around with u negative, simplices end at the parametric origin,
 * pyramids start at the apex. Second-order cells number their corners first, as the first order does.
 *
 * "VTK" tells a kind's nodes in VTK's numbers: node k of the cell is the k-th of the list, corners first, then the
 * second order's. host_add_cells_vtk takes VTK's order directly.
 *
 * Rows are u, v, w; what a kind does not use is 0. Constant data, safe to read from any thread, and in C++
 * part of constant expressions. Shape functions exist for both orders of all kinds but the pyramid, whose
 * second order is known to the tesselation alone. */
#ifndef SKOKLANA_CELL_NODES_H
#define SKOKLANA_CELL_NODES_H

#ifdef __cplusplus
extern "C" {
#endif

enum {
    CELL_LINE = 0,
    CELL_TRI = 1,
    CELL_QUAD = 2,
    CELL_TET = 3,
    CELL_PYR = 4,
    CELL_PRISM = 5,
    CELL_HEX = 6,
    CELL_KINDS = 7
};

typedef struct cell_kind_nodes {
    int ndim;              /* dimension of the cell */
    int ncorners;          /* nodes in first order */
    int nnodes_2;          /* nodes in second order */
    float position[20][3]; /* corners first, then the further nodes of the second order */
} cell_kind_nodes;

#ifdef __cplusplus
#define SKOKLANA_CONSTANT constexpr
#else
#define SKOKLANA_CONSTANT const
#endif

/* By kind. */
static SKOKLANA_CONSTANT cell_kind_nodes cell_kinds[CELL_KINDS] = {
    /* line; VTK 0 1, 2 */
    {1, 2, 3, {{-1, 0, 0}, {1, 0, 0}, {0, 0, 0}}},
    /* tri; VTK 0 1 2, 3 4 5 */
    {2, 3, 6, {{1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {0.5f, 0.5f, 0}, {0, 0.5f, 0}, {0.5f, 0, 0}}},
    /* quad; VTK 0 1 2 3, 4 5 6 7 */
    {2, 4, 8, {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}, {0, -1, 0}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}}},
    /* tet; VTK 1 2 3 0, 5 8 4 9 7 6 */
    {3,
     4,
     10,
     {{1, 0, 0},
      {0, 1, 0},
      {0, 0, 1},
      {0, 0, 0},
      {0.5f, 0.5f, 0},
      {0.5f, 0, 0.5f},
      {0.5f, 0, 0},
      {0, 0.5f, 0.5f},
      {0, 0, 0.5f},
      {0, 0.5f, 0}}},
    /* pyr; VTK 4 2 3 0 1, 11 12 9 10 7 8 5 6 */
    {3,
     5,
     13,
     {{0, 0, 1},
      {1, 1, -1},
      {-1, 1, -1},
      {-1, -1, -1},
      {1, -1, -1},
      {0.5f, 0.5f, 0},
      {-0.5f, 0.5f, 0},
      {-0.5f, -0.5f, 0},
      {0.5f, -0.5f, 0},
      {0, 1, -1},
      {-1, 0, -1},
      {0, -1, -1},
      {1, 0, -1}}},
    /* prism; VTK 4 5 3 1 2 0, 10 11 9 7 8 6 14 13 12. Nodes 12, 13, 14 stand on the edges of corners 1, 0, 2 */
    {3,
     6,
     15,
     {{1, 0, 1},
      {0, 1, 1},
      {0, 0, 1},
      {1, 0, -1},
      {0, 1, -1},
      {0, 0, -1},
      {0.5f, 0.5f, 1},
      {0, 0.5f, 1},
      {0.5f, 0, 1},
      {0.5f, 0.5f, -1},
      {0, 0.5f, -1},
      {0.5f, 0, -1},
      {0, 1, 0},
      {1, 0, 0},
      {0, 0, 0}}},
    /* hex; VTK 7 4 5 6 3 0 1 2, 15 12 13 14 11 8 9 10 19 16 17 18 */
    {3, 8, 20, {{-1, 1, 1}, {-1, -1, 1}, {1, -1, 1}, {1, 1, 1},   {-1, 1, -1}, {-1, -1, -1}, {1, -1, -1},
                {1, 1, -1}, {-1, 0, 1},  {0, -1, 1}, {1, 0, 1},   {0, 1, 1},   {-1, 0, -1},  {0, -1, -1},
                {1, 0, -1}, {0, 1, -1},  {-1, 1, 0}, {-1, -1, 0}, {1, -1, 0},  {1, 1, 0}}},
};

#undef SKOKLANA_CONSTANT

#ifdef __cplusplus
}
#endif
#endif
