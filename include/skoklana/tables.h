/* Case tables of the extractions, read-only. */
#ifndef SKOKLANA_TABLES_H
#define SKOKLANA_TABLES_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- isosurface cases ----------------------------------------------------------------------------- *
 *
 * For every pattern of corners above and below a level, how a surface runs through a cell: the edges that it
 * crosses, the polygons over these crossings, and the triangles of a polygon. Tables end in the kind of cell.
 *
 * A case index has a bit for each corner, set where the corner's value is at or above the level. Bits 0, 1, 2
 * and so on stand for
 *
 *   hex      256 cases   corners 0, 1, 4, 5, 3, 2, 7, 6
 *   prism     64 cases   corners 5, 2, 0, 3, 1, 4
 *   pyr       32 cases   corners 1, 2, 3, 4, 0
 *   tet       16 cases   corners 0, 1, 2, 3
 *
 *        7--------6        hex     corner at x, y, z of 0 or 1: bit x + 2z + 4y
 *       /|       /|        prism   0, 1, 2 at (0,0,0), (1,0,0), (0,1,0), and 3, 4, 5 above them
 *      4--------5 |        pyr     apex 0; the base 1, 2, 3, 4 runs counter-clockwise seen from the apex
 *      | 3------|-2        tet     0 at the origin; 1, 2, 3 at the ends of the x, y and z axes
 *      |/       |/
 *      0--------1          z up, y away, x to the right
 *
 *   ISOninter_pts    by case: how many edges are crossed, at most 12, 7, 6, 4
 *   ISOninter_polys  by case: how many polygons there are, at most 4, 2, 2, 1
 *   ISOnppoly        by case: the size of each polygon. Polygons take the crossings of their case in order,
 *                    one polygon after the other, so that the row sums up to ISOninter_pts
 *   ISOleft_vert     by case: one corner of each crossed edge, the one above the level; for tet the one below
 *   ISOright_vert    by case: the other corner
 *   ISOncell         by size of a polygon less 1: how many triangles it is split into, and the first of them
 *   ISOnpcel         triangles, as positions in the polygon
 *
 * Entries behind a row's content are 0; in the corner tables of tet they are -1. Cases of equal corners, the
 * first and the last, have no content.
 *
 * Each edge with one corner above is crossed once. A polygon is a closed loop across the faces of the cell:
 * on a face, two crossings are joined by a segment, and four, of corners above and below in turn, by two
 * segments that each cut off one of the corners above. This rule looks at a face alone, without its values,
 * so neighbours agree on the face that they share and a surface through many cells has no holes. It makes a
 * case differ from its complement: hex case 33, corners 0 and 2 above, is two triangles, case 222, the same
 * two corners below, is a hexagon.
 *
 * Right-hand normals of polygons point away from the corners above for hex and prism, and towards them for
 * pyr and tet; the triangles of tet are turned once more and point away. UTILslice_struct takes the triangles
 * as they are; UTILslice_cells exchanges the second and third corner of each, which with the corner numbers
 * of its cells makes all normals point to lower values.
 *
 * Lorensen and Cline. Marching cubes: a high resolution 3D surface construction algorithm. 1987 */

/* How a polygon is split. */
typedef struct iso_pair {
    int ntri;  /* triangles; 0 for sizes that no polygon has */
    int first; /* the first one's place in ISOnpcel */
} iso_pair;

/* One triangle of a polygon: positions of its corners among the polygon's points, from 0. */
typedef struct iso_triple {
    int p[3];
} iso_triple;

/* Hexahedra: polygons of 3 to 7 points. Up to 5 points they are fans from point 0; larger ones are split
 * otherwise. */
extern const int ISOninter_pts_hex[256];
extern const int ISOninter_polys_hex[256];
extern const unsigned char ISOnppoly_hex[256][4];
extern const unsigned char ISOleft_vert_hex[256][12];
extern const unsigned char ISOright_vert_hex[256][12];
extern const iso_pair ISOncell_hex[8];
extern const iso_triple ISOnpcel_hex[12];

/* Prisms: polygons of 3 to 6 points. */
extern const int ISOninter_pts_prism[64];
extern const int ISOninter_polys_prism[64];
extern const int ISOnppoly_prism[64][4];
extern const unsigned char ISOleft_vert_prism[64][12];
extern const unsigned char ISOright_vert_prism[64][12];
extern const iso_pair ISOncell_prism[6];
extern const iso_triple ISOnpcel_prism[8];

/* Pyramids: polygons of 3 to 6 points. */
extern const int ISOninter_pts_pyr[32];
extern const int ISOninter_polys_pyr[32];
extern const int ISOnppoly_pyr[32][4];
extern const unsigned char ISOleft_vert_pyr[32][12];
extern const unsigned char ISOright_vert_pyr[32][12];
extern const iso_pair ISOncell_pyr[6];
extern const iso_triple ISOnpcel_pyr[8];

/* Tetrahedra: polygons of 3 and 4 points. */
extern const int ISOninter_pts_tet[16];
extern const int ISOninter_polys_tet[16];
extern const int ISOnppoly_tet[16][4];
extern const int ISOleft_vert_tet[16][4];
extern const int ISOright_vert_tet[16][4];
extern const iso_pair ISOncell_tet[6];
extern const iso_triple ISOnpcel_tet[8];

/* The pairs of four things: (0, 1), (0, 2), (0, 3), (1, 2), (1, 3), (2, 3). No operation reads it. */
extern const int ISOedge_table_hex[12];

SKOKLANA_END
#endif
