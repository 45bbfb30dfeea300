/* The faces of each solid cell kind, as UTILexternal_faces and UTILedges_3D take them.
 *
 * Each face runs around its corners so that, seen from outside a cell of positive volume, they stand
 * counterclockwise; in second order the middles of its edges follow, the one of corners 0 and 1 first. Lines
 * and surfaces have no faces. Node numbers are those of cell_nodes.h.
 *
 * Constant data, safe to read from any thread. */
#ifndef SKOKLANA_CELL_FACES_H
#define SKOKLANA_CELL_FACES_H

#include <skoklana/cell_nodes.h>
#include <skoklana/types.h>

typedef struct cell_face_list {
    int nfaces;       /* faces of a cell; entries in use of the two below */
    int nnodes[6];    /* nodes of each face */
    int ncorners[6];  /* corners of each face */
    qx_long node[48]; /* the nodes of all faces, one face behind the other */
} cell_face_list;

/* clang-format off */
/* By order less 1, and kind. */
static const cell_face_list cell_faces[2][CELL_KINDS] = {
    /* order 1: line, tri, quad, tet, pyr, prism, hex */
    {{0, {0}, {0}, {0}},
     {0, {0}, {0}, {0}},
     {0, {0}, {0}, {0}},
     {4, {3, 3, 3, 3}, {3, 3, 3, 3}, {0, 1, 2,  0, 3, 1,  0, 2, 3,  1, 3, 2}},
     {5, {4, 3, 3, 3, 3}, {4, 3, 3, 3, 3}, {1, 4, 3, 2,  0, 1, 2,  0, 4, 1,  0, 2, 3,  0, 3, 4}},
     {5, {3, 3, 4, 4, 4}, {3, 3, 4, 4, 4}, {0, 1, 2,  3, 5, 4,  0, 3, 4, 1,  0, 2, 5, 3,  1, 4, 5, 2}},
     {6, {4, 4, 4, 4, 4, 4}, {4, 4, 4, 4, 4, 4}, {0, 1, 2, 3,  0, 4, 5, 1,  0, 3, 7, 4,  1, 5, 6, 2,  2, 6, 7, 3,  4, 7, 6, 5}}},
    /* order 2: line, tri, quad, tet, pyr, prism, hex */
    {{0, {0}, {0}, {0}},
     {0, {0}, {0}, {0}},
     {0, {0}, {0}, {0}},
     {4, {6, 6, 6, 6}, {3, 3, 3, 3}, {0, 1, 2, 4, 7, 5,  0, 3, 1, 6, 9, 4,  0, 2, 3, 5, 8, 6,  1, 3, 2, 9, 8, 7}},
     {5, {8, 6, 6, 6, 6}, {4, 3, 3, 3, 3}, {1, 4, 3, 2, 12, 11, 10, 9,  0, 1, 2, 5, 9, 6,  0, 4, 1, 8, 12, 5,  0, 2, 3, 6, 10, 7,  0, 3, 4, 7, 11, 8}},
     {5, {6, 6, 8, 8, 8}, {3, 3, 4, 4, 4}, {0, 1, 2, 6, 7, 8,  3, 5, 4, 11, 10, 9,  0, 3, 4, 1, 13, 9, 12, 6,  0, 2, 5, 3, 8, 14, 11, 13,  1, 4, 5, 2, 12, 10, 14, 7}},
     {6, {8, 8, 8, 8, 8, 8}, {4, 4, 4, 4, 4, 4}, {0, 1, 2, 3, 8, 9, 10, 11,  0, 4, 5, 1, 16, 12, 17, 8,  0, 3, 7, 4, 11, 19, 15, 16,  1, 5, 6, 2, 17, 13, 18, 9,  2, 6, 7, 3, 18, 14, 19, 10,  4, 7, 6, 5, 15, 14, 13, 12}}},
};
/* clang-format on */

#endif
