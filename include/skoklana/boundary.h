/* The boundary of a cell list: faces that belong to one cell, border and crease edges, all edges.
 *
 * These operations work on plain arrays, one list of cells of one kind, and know nothing of meshes. A mesh of
 * several sets with common faces is handed over as one list only if its cells are of one kind.
 *
 *   nnodes    nodes of the mesh; every number of a connect list is from 0 to nnodes - 1
 *   ncells    cells; with none, and where the cells have no faces or corners, nothing is found
 *   stride    entries of connect a cell
 *   connect   ncells rows of stride node numbers
 *
 * The faces of a kind of volume cell:
 *
 *   nfaces          faces of a cell
 *   face_nnodes     nfaces entries: nodes of each face, and by how much face_list moves on
 *   face_ncorners   nfaces entries: corners of each face, of second-order faces fewer than nodes
 *   face_list       for each face in turn its nodes as numbers within the cell, the corners first and around the
 *                   face
 *
 * All return 1, also where nothing is found, and 0 where there is no memory, and after an interruption: nothing
 * is reported, and outputs are as they were. Before cell 256 and every 257th from there the status is checked.
 * Arrays are handed over: release them with ARRfree_f or plain free. Calls on different threads do not meet.
 *
 * Cost: one look into a bucket of next to no length for each face or edge of each cell. */
#ifndef SKOKLANA_BOUNDARY_H
#define SKOKLANA_BOUNDARY_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* The faces of volume cells that no second cell shares.
 *
 * max_sets           entries of each of the five arrays below
 * out_nsets          out: sets of faces; faces are parted by their number of nodes, in the order in which these
 *                    numbers first come up in face_nnodes. A set may be empty
 * out_ncells         out, by set: faces
 * out_set_nnodes     out, by set: nodes a face
 * out_cells          out, by set: the cell of each face; handed over, NULL where the set is empty
 * out_connect        out, by set: rows of node numbers, each face as face_list has it; handed over, likewise
 * out_connect_size   out, by set: entries of out_connect
 *
 * A face is told by its lowest corner and the two beside it in the ring, in whatever winding; of a cell with a
 * node at several corners the first such corner counts. Two faces of one key cancel each other, also where
 * their further corners differ, and a third one is external again.
 *
 * Order: by lowest corner, and at one corner the face of the latest cell first.
 *
 * Where no face is left *out_nsets is 0 and nothing else is written. With more sets than max_sets the
 * result is 0, *out_nsets is 0 and nothing is handed over. On an interruption *out_nsets is as it was; where the
 * lists can't be had it is 0. */
int UTILexternal_faces(qx_long nnodes, qx_long ncells, int stride, const qx_long *connect, int nfaces,
                       const int *face_nnodes, const int *face_ncorners, const qx_long *face_list,
                       int max_sets, int *out_nsets, qx_long *out_ncells, int *out_set_nnodes,
                       qx_long **out_cells, qx_long **out_connect, qx_long *out_connect_size);

/* The edges of surface cells that no second cell shares, and those where two cells meet at an angle.
 *
 * nspace       coordinates a node, 1 to 3
 * coords       nnodes rows of nspace floats
 * ncorners     corners of a cell, the first entries of its row, around it
 * out_nedges   out: edges
 * out_edges    out: a pair of nodes an edge, the lower one first; handed over. Not written where there are none
 * angle        radians. An edge stays where the normals of its two cells differ by at least that much: with 0
 *              all edges do, above pi, as a float, none
 *
 * A cell's normal is that of its corners 0, 1 and the last, so it turns round with the winding: neighbours of
 * opposite winding meet at nearly pi where they lie flat. The normal of a cell without area is zero, and meets
 * any other at a right angle. At an edge of three cells the third is held against the first, if that made a
 * crease with the second.
 *
 * Normals, their product and its arc cosine are rounded to float; NaN is no crease.
 *
 * Order: by the lower node, and at one node the edge of the latest cell first. */
int UTILexternal_edges(qx_long nnodes, int nspace, const float *coords, qx_long ncells, int stride,
                       int ncorners, const qx_long *connect, qx_long *out_nedges, qx_long **out_edges,
                       double angle);

/* All edges of surface cells, each once.
 *
 * ncorners     corners of a cell, around it
 * out_nedges   out: edges
 * out_edges    out: a pair of nodes an edge, the lower one first; handed over. Not written where there are none
 *
 * Order: by the lower node, and at one node the edge that comes up last first. */
int UTILedges_2D(qx_long nnodes, qx_long ncells, int stride, const qx_long *connect, int ncorners,
                 qx_long *out_nedges, qx_long **out_edges);
/* The same of volume cells, by their faces. */
int UTILedges_3D(qx_long nnodes, qx_long ncells, int stride, const qx_long *connect, int nfaces,
                 const int *face_nnodes, const int *face_ncorners, const qx_long *face_list,
                 qx_long *out_nedges, qx_long **out_edges);

SKOKLANA_END
#endif
