// Cuts, slowly: one cell after the other, every edge looked up in a map, the exported case tables read as a
// newcomer would. Second-order cells are tesselated one at a time. And calls of the operations with their
// outputs at hand, in the same form.
//
// Node classes and node maps come from UTILthreshold_scalar and UTILnode_thresh, which have references of
// their own.
#pragma once

#include "support/meshes.hpp"

#include <skoklana/mesh.h>

#include <array>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace cut_reference {

using numbers = std::vector<qx_long>;

enum : size_t { tets, prisms, pyramids, hexes, triangles, quads, lines, list_count };

// What a cut gives.
struct result {
    int status = 1;
    qx_long nold = 0;
    numbers old_nodes; // input numbers of the retained nodes; for cell sets, read off the node map
    numbers node_map;  // cell sets: an entry a node
    numbers min_node, max_node;
    std::array<qx_long, list_count> ncells = {};
    std::array<numbers, list_count> conn;
    // Of each set, or of the lattice. Empty without maps.
    std::vector<std::array<numbers, list_count>> maps;
};

bool operator==(const result &a, const result &b);
// What differs first, for messages.
std::string difference(const result &got, const result &expected);

// Scalar node data as operations take it.
struct scalar {
    const void *data;
    int data_type;
    int null_flag;
    const void *null_value;
};

template <typename T> scalar scalar_of(const std::vector<T> &data, int data_type, const T *null_value)
{
    return {data.data(), data_type, null_value != nullptr, null_value};
}

// Cell sets. takes_part: an entry a set, false for sets without a kernel; empty: all take part.
result cut_cells(const meshes::test_mesh &mesh, const scalar &field, double level, int side,
                 bool with_maps = true, const std::vector<bool> &takes_part = {});
// Structured meshes of two or three axes: dims has an entry for each.
result cut_lattice(const numbers &dims, const scalar &field, double level, int side, bool with_maps = true);

using cut_func = decltype(mesh_methods::cut_func);
// Runs an operation and takes its lists. Empty lists are not looked at, whatever pointers they are given as.
// nmaps: sets that have maps, 0 for none; a lattice has one. A failed call gives status alone.
result run(cut_func operation, mesh_info *mesh, const scalar &field, double level, int side, size_t nmaps);

// ---- what contour_reference.hpp uses as well
// -----------------------------------------------------------------

struct local_node {
    bool is_new;
    int number; // a corner, or a new node of the case from 0
};

struct case_row {
    std::vector<std::pair<int, int>> points; // corners of each new node's edge
    int piece_list = 0;
    std::vector<std::vector<local_node>> pieces;
    std::vector<std::pair<int, int>> lines; // new nodes
};

// A case of the cut tables, by cell kind.
case_row row_of(int kind, int index);
// The list that whole cells of a kind go to.
size_t whole_list(int kind);

// Calls take(kind, nodes, cell) for each first-order cell of a set, in order: the cells themselves, or the
// pieces of each; cell is the number within the set.
void each_cell(const meshes::test_mesh &mesh, size_t set,
               const std::function<void(int kind, const numbers &nodes, qx_long cell)> &take);
// Calls take(kind, nodes, cell) for each cell of a lattice, in order: nodes in the corner order of cuts and
// bands, of hexahedra the higher plane first.
void each_lattice_cell(const numbers &dims,
                       const std::function<void(int kind, const numbers &nodes, qx_long cell)> &take);

// Takes count entries of a list that was handed over and releases it; null gives none.
numbers take_list(qx_long *list, qx_long count);

} // namespace cut_reference
