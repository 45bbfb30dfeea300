// Contour bands, slowly: as cut_reference.hpp, with all outputs of a band. Positions of new nodes are formed
// here again, one at a time.
#pragma once

#include "support/cut_reference.hpp"

namespace contour_reference {

using cut_reference::numbers;
using cut_reference::scalar;

constexpr size_t list_count = 6; // as the lists of a cut, without lines

// What a band gives.
struct result {
    int status = 1;
    qx_long nold = 0;
    numbers old_nodes; // input numbers of the retained nodes; for cell sets, read off the node map
    numbers node_map;  // cell sets: an entry a node
    numbers min_node, max_node;
    std::vector<unsigned char> levels; // of each new node: 0 lower, 1 upper
    std::array<qx_long, list_count> ncells = {};
    std::array<numbers, list_count> conn;
    std::vector<float> coords;
    bool has_lines[2] = {false, false}; // a list was handed over, maybe an empty one
    numbers lines[2];                   // along the lower and the upper level
};

bool operator==(const result &a, const result &b);
// What differs first, for messages.
std::string difference(const result &got, const result &expected);

struct band {
    double low, high;
    bool low_lines = true, high_lines = true; // asked for
};

// What bands do that is not plain from their definition:
//
// - A cell that has a corner between the levels which the node map does not hold is passed over. This comes
// about
//   only where the bounds as elements are others than the levels: narrow integers and levels beyond their
//   range, qx_long values beyond 2^53.
// - Surface cells whose corners fit no row, as with the levels in the wrong order, are passed over.
// - Lines are made where set 0 is a surface set, asked for, and are lost to a later set of volume cells.
//
// Retained nodes of structured meshes take their coordinates from UTILget_coord_list, the ends of edges from
// get_coords_range.

// Cell sets. takes_part as for cuts.
result band_cells(const meshes::test_mesh &mesh, const scalar &field, const band &of,
                  const std::vector<bool> &takes_part = {});
// Structured meshes of two or three axes.
result band_lattice(mesh_info *mesh, const scalar &field, const band &of);

using contour_func = decltype(mesh_methods::contour_func);
// Runs an operation and takes its lists. A failed call gives status alone.
result run(contour_func operation, mesh_info *mesh, const scalar &field, const band &of);

} // namespace contour_reference
