// Cells of VTK's kinds as cells of ours: kinds, orders and the permutations of their nodes.
//
// Both sides number corners first and then nodes in the middle of edges, from different starts: row i of a
// permutation names the VTK node that is our node i. Kinds with further nodes (centres of faces and cells)
// lose those.
//
// Second-order prisms have two orders here: the tesselation takes node 12 to stand on the edge of corners 0 and
// 3 and node 13 on that of corners 1 and 4, the shape functions the other way about (cell_nodes.h). Connect
// lists of the command are in the order of the tesselation, which is all that it does with them.
#pragma once

#include <skoklana/cell_nodes.h>

struct cell_order {
    int vtk;       // VTK's cell type
    int kind;      // ours, CELL_LINE to CELL_HEX
    int order;     // 1 or 2
    int vtk_nodes; // nodes of the VTK cell; more than ours where some are dropped
    signed char node[20];
};

// nullptr: VTK's kind has no single cell of ours.
const cell_order *order_of_vtk(int vtk_type);
// The VTK cell that a kind is written as; never a reduced one.
const cell_order *order_of_kind(int kind, int order);

// The place in a connect list of the command where node i of cell_nodes.h stands.
int place_in_list(int kind, int order, int i);

// The same cell with the axes u and v exchanged, which turns a cell inside out: our node mirror[i] takes the
// place of node i. Holds for both orders of the kind.
const signed char *mirror_of_kind(int kind);
