// What extractions come to, whichever they are: nodes of the mesh that are in the result, new nodes between two of the
// mesh, and sets of cells over both, each cell with the number of the mesh's cell that it was made of. New nodes of
// bands may lie between a node and another new one; they have a third node.
#pragma once

#include "core.hpp"

struct made_set {
    int kind, order;
    qx_long count;
    list_of<qx_long> connect;
    list_of<qx_long> cell; // null: not known
};

struct made_parts {
    qx_long nold = 0, nnew = 0;
    list_of<qx_long> old_node, first, second, third;
    list_of<float> t, s;
    list_of<float> coords;
    std::vector<made_set> sets;
};

// Nodes of a cell.
int length_of(int kind, int order);

// Rows of solid cells, from the library's order of nodes to VTK's.
void put_in_vtk_order(made_parts *parts);

// Takes the lists of a result of the host, which goes.
void take_result(host_result *made, made_parts *parts);

// The lists as arrays; parts are empty after that.
py::dict hand_out(made_parts *parts, int nspace);

// Takes out the nodes that no cell has.
void drop_unused(made_parts *parts, int nspace);

// The places of all nodes. False: the mesh could not tell.
bool place(mesh_info *mesh, made_parts *parts);

// The nodes of the mesh that a node map keeps, or the list of them that lattices have.
list_of<qx_long> kept_nodes(const mesh_info *mesh, list_of<qx_long> map, qx_long nold);

// A list that the library handed over.
template <typename T> list_of<T> taken(T *&list)
{
    return list_of<T>(std::exchange(list, nullptr));
}
