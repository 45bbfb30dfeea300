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

/* ---- cut cases -------------------------------------------------------------------------------------- *
 *
 * For every pattern of corners that a cut keeps: the new nodes on the edges of the cell, and the simplices
 * that fill the kept part, tetrahedra of volume cells, triangles of surface cells, lines of lines. Tables end
 * in the kind of cell.
 *
 * A case index has bit c set where corner c is kept, for all seven kinds; this is another order than that of
 * the isosurface cases. Corners are numbered as by the shape functions. Case 0, nothing kept, and the case
 * CUTmax_index, everything kept, have no content and need no table; hex has no row for the latter.
 *
 *   CUTmax_index         the case of all corners kept
 *   CUTnold_nodes        by case: kept corners
 *   CUTnnew_nodes        by case: new nodes, at most 12, 7, 6, 4 for hex, prism, pyr, tet
 *   CUTm_ind             by case: where its new nodes begin in the next two
 *   CUTmin_node          the lower corner of each new node's edge
 *   CUTmax_node          the higher corner
 *   CUTncell             by case: output cells, at most 13 for hex
 *   CUTt_ind             by case: where its cells begin in the next two
 *   CUTcell_type         output list of each cell: 0 tetrahedra, 4 triangles, 6 lines
 *   CUTcell_nnode        nodes of each cell
 *   CUTc_ind             by case: where the nodes of its cells begin in the next two
 *   CUTconnect_list      for each node of each cell a corner, or a new node by its place among those of the
 *                        case
 *   CUTnew_flag_list     beside it: 0 corner, 1 new node
 *
 *   CUTedge_nline        surface cells, by case: lines that the kept part ends in, inside the cell
 *   CUTedge_cind         by case: where its lines begin in the next
 *   CUTedge_connect_list new nodes by their places, two a line
 *
 * What holds of each row: every edge with one kept end has one new node and there are no others; cells are
 * over kept corners and new nodes and use all of them. On a quadrilateral side of a volume cell, two kept
 * corners across the diagonal stay apart, whichever side of the level is kept: a case and its complement then
 * leave a gap between them. hex 165 and 90, with diagonal corners on all sides, are four corner pieces each,
 * a sixth of the cell together. quad keeps its corners 0 and 2 together (case 5, four triangles) and 1 and 3
 * apart (case 10, two).
 *
 * Neighbours keep the same part of the side that they share, but may divide it by another diagonal. With new
 * nodes at the midpoints no cell is inverted and a case and its complement do not overlap; the tables have a
 * few flat cells, 18 of hex, 3 of prism, 3 of pyr, which turn the diagonal of a side. Where all new nodes lie
 * in a plane, as for a linear field in a straight cell, a case and its complement fill the cell exactly.
 * Where they do not, they do so for tet, tri and quad (5 and 10 aside); a pyramid or prism can be left short
 * or be overfilled a little, and so can a hexahedron with diagonal corners.
 *
 * Open arrays hold as many entries as are said here (new nodes, cells, nodes of cells), and zeros behind
 * them:
 *
 *   hex 1536, 1608, 6432      prism 288, 274, 1096      pyr 128, 121, 484      tet 48, 34, 136
 *   quad 32, 30, 90, 16 lines      tri 12, 9, 27, 6 lines
 *   line 1, 2, 4, both cases with the same new node */

/* Volume cells. */
extern const int CUTmax_index_hex;
extern const int CUTnold_nodes_hex[255];
extern const int CUTnnew_nodes_hex[255];
extern const int CUTm_ind_hex[255];
extern const unsigned char CUTmin_node_hex[];
extern const unsigned char CUTmax_node_hex[];
extern const int CUTncell_hex[255];
extern const int CUTt_ind_hex[255];
extern const unsigned char CUTcell_type_hex[];
extern const unsigned char CUTcell_nnode_hex[];
extern const int CUTc_ind_hex[255];
extern const unsigned char CUTconnect_list_hex[];
extern const unsigned char CUTnew_flag_list_hex[];

extern const int CUTmax_index_prism;
extern const int CUTnold_nodes_prism[64];
extern const int CUTnnew_nodes_prism[64];
extern const int CUTm_ind_prism[64];
extern const unsigned char CUTmin_node_prism[];
extern const unsigned char CUTmax_node_prism[];
extern const int CUTncell_prism[64];
extern const int CUTt_ind_prism[64];
extern const unsigned char CUTcell_type_prism[];
extern const unsigned char CUTcell_nnode_prism[];
extern const int CUTc_ind_prism[64];
extern const unsigned char CUTconnect_list_prism[];
extern const unsigned char CUTnew_flag_list_prism[];

extern const int CUTmax_index_pyr;
extern const int CUTnold_nodes_pyr[32];
extern const int CUTnnew_nodes_pyr[32];
extern const int CUTm_ind_pyr[32];
extern const unsigned char CUTmin_node_pyr[];
extern const unsigned char CUTmax_node_pyr[];
extern const int CUTncell_pyr[32];
extern const int CUTt_ind_pyr[32];
extern const unsigned char CUTcell_type_pyr[];
extern const unsigned char CUTcell_nnode_pyr[];
extern const int CUTc_ind_pyr[32];
extern const unsigned char CUTconnect_list_pyr[];
extern const unsigned char CUTnew_flag_list_pyr[];

extern const int CUTmax_index_tet;
extern const int CUTnold_nodes_tet[15];
extern const int CUTnnew_nodes_tet[15];
extern const int CUTm_ind_tet[16];
extern const unsigned char CUTmin_node_tet[];
extern const unsigned char CUTmax_node_tet[];
extern const int CUTncell_tet[16];
extern const int CUTt_ind_tet[16];
extern const unsigned char CUTcell_type_tet[];
extern const unsigned char CUTcell_nnode_tet[];
extern const int CUTc_ind_tet[18];
extern const unsigned char CUTconnect_list_tet[];
extern const unsigned char CUTnew_flag_list_tet[];

/* Surface cells. */
extern const int CUTmax_index_quad;
extern const int CUTnold_nodes_quad[16];
extern const int CUTnnew_nodes_quad[16];
extern const int CUTm_ind_quad[16];
extern const unsigned char CUTmin_node_quad[];
extern const unsigned char CUTmax_node_quad[];
extern const int CUTncell_quad[16];
extern const int CUTt_ind_quad[16];
extern const unsigned char CUTcell_type_quad[];
extern const unsigned char CUTcell_nnode_quad[];
extern const int CUTc_ind_quad[18];
extern const unsigned char CUTconnect_list_quad[];
extern const unsigned char CUTnew_flag_list_quad[];
extern const int CUTedge_nline_quad[16];
extern const int CUTedge_cind_quad[16];
extern const unsigned char CUTedge_connect_list_quad[];

extern const int CUTmax_index_tri;
extern const int CUTnold_nodes_tri[8];
extern const int CUTnnew_nodes_tri[8];
extern const int CUTm_ind_tri[8];
extern const unsigned char CUTmin_node_tri[];
extern const unsigned char CUTmax_node_tri[];
extern const int CUTncell_tri[8];
extern const int CUTt_ind_tri[8];
extern const unsigned char CUTcell_type_tri[];
extern const unsigned char CUTcell_nnode_tri[];
extern const int CUTc_ind_tri[8];
extern const unsigned char CUTconnect_list_tri[];
extern const unsigned char CUTnew_flag_list_tri[];
extern const int CUTedge_nline_tri[8];
extern const int CUTedge_cind_tri[8];
extern const unsigned char CUTedge_connect_list_tri[];

/* Lines. */
extern const int CUTmax_index_line;
extern const int CUTnold_nodes_line[4];
extern const int CUTnnew_nodes_line[4];
extern const int CUTm_ind_line[4];
extern const unsigned char CUTmin_node_line[];
extern const unsigned char CUTmax_node_line[];
extern const int CUTncell_line[4];
extern const int CUTt_ind_line[4];
extern const unsigned char CUTcell_type_line[];
extern const unsigned char CUTcell_nnode_line[];
extern const int CUTc_ind_line[4];
extern const unsigned char CUTconnect_list_line[];
extern const unsigned char CUTnew_flag_list_line[];

/* ---- band cases ------------------------------------------------------------------------------------- *
 *
 * What lies between two levels in a surface cell that has corners above the upper one and corners below the
 * lower one: both cuts in one row, and the lines along either level.
 *
 * A row is found by two sets of corners: hi_mask has bit c set where corner c is above the upper level,
 * lo_mask where it is at or above the lower one.
 *
 *   CONTtable_index      by hi_mask * 16 + lo_mask for quad, hi_mask * 8 + lo_mask for tri: the row, from 1;
 *                        -1 where there is none. There is one where hi_mask is not empty and part of a
 *                        lo_mask that is not full
 *   CONTnold_nodes       by row: corners in the band
 *   CONTnnew_nodes       by row: new nodes, at most 8
 *   CONTm_ind            by row: where its new nodes begin in the next three
 *   CONTmin_node         the lower corner of each new node's edge
 *   CONTmax_node         the higher corner
 *   CONTvalues           its level: 0 the lower one, 1 the upper one
 *   CONTncell            by row: output cells
 *   CONTt_ind            by row: where its cells begin in the next two
 *   CONTcell_type        output list of each cell: 4, triangles
 *   CONTcell_nnode       nodes of each cell: 3
 *   CONTc_ind            by row: where the nodes of its cells begin in the next two
 *   CONTconnect_list     for each node of each cell a corner, or a new node by its place among those of the
 *                        row
 *   CONTnew_flag_list    beside it: 0 corner, 1 new node
 *   CONTnedge1           by row: lines at the lower level
 *   CONTedge_ind1        by row: where they begin in the next
 *   CONTconnect_edge1    new nodes by their places, two a line
 *   CONTnedge2, CONTedge_ind2, CONTconnect_edge2   the same of the upper level
 *
 * An edge that both levels cross has a new node at each. Row 0 and the entry behind the last row are 0. Open
 * arrays hold, in entries, for tri 48 new nodes, 30 cells of 90 nodes and 12 lines at each level; for quad
 * 224 new nodes, 160 cells of 480 nodes and 56 lines at each level. */

extern const int CONTtable_index_tri[64];
extern const int CONTnold_nodes_tri[14];
extern const int CONTnnew_nodes_tri[14];
extern const int CONTm_ind_tri[14];
extern const unsigned char CONTmin_node_tri[];
extern const unsigned char CONTmax_node_tri[];
extern const unsigned char CONTvalues_tri[];
extern const int CONTncell_tri[14];
extern const int CONTt_ind_tri[14];
extern const unsigned char CONTcell_type_tri[];
extern const unsigned char CONTcell_nnode_tri[];
extern const int CONTc_ind_tri[14];
extern const unsigned char CONTconnect_list_tri[];
extern const unsigned char CONTnew_flag_list_tri[];
extern const int CONTnedge1_tri[14];
extern const int CONTnedge2_tri[14];
extern const int CONTedge_ind1_tri[14];
extern const int CONTedge_ind2_tri[14];
extern const unsigned char CONTconnect_edge1_tri[];
extern const unsigned char CONTconnect_edge2_tri[];

extern const int CONTtable_index_quad[256];
extern const int CONTnold_nodes_quad[52];
extern const int CONTnnew_nodes_quad[52];
extern const int CONTm_ind_quad[52];
extern const unsigned char CONTmin_node_quad[];
extern const unsigned char CONTmax_node_quad[];
extern const unsigned char CONTvalues_quad[];
extern const int CONTncell_quad[52];
extern const int CONTt_ind_quad[52];
extern const unsigned char CONTcell_type_quad[];
extern const unsigned char CONTcell_nnode_quad[];
extern const int CONTc_ind_quad[52];
extern const unsigned char CONTconnect_list_quad[];
extern const unsigned char CONTnew_flag_list_quad[];
extern const int CONTnedge1_quad[52];
extern const int CONTnedge2_quad[52];
extern const int CONTedge_ind1_quad[52];
extern const int CONTedge_ind2_quad[52];
extern const unsigned char CONTconnect_edge1_quad[];
extern const unsigned char CONTconnect_edge2_quad[];

SKOKLANA_END
#endif
