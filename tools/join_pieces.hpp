// Data sets taken apart and put together.
#pragma once

#include "piece_marks.hpp"

#include <vtkSmartPointer.h>
#include <vtkType.h>

#include <array>
#include <string>
#include <vector>

class vtkDataSet;
class vtkPointSet;

using marks = std::vector<unsigned char>; // one each: 0 or not

// The cells that are marked, in their order, and the nodes that they have or that are marked in lone (empty: none),
// with all arrays. Polygonal data and cells of any kind.
vtkSmartPointer<vtkPointSet> cells_of(vtkPointSet *data, const marks &keep, const marks &lone = {});

// Where a node stands; with one sign of 0.
using node_place = std::array<double, 3>;
node_place place_of(vtkDataSet *data, vtkIdType node);

// The nodes of cells that are marked.
marks nodes_of_cells(vtkDataSet *data, const marks &cells);

// The nodes of an image or a grid within the extent, in VTK's numbers, with all arrays. Of a slab these are rows of the
// whole's own, which they keep alive.
vtkSmartPointer<vtkDataSet> part_of_lattice(vtkDataSet *data, const int *extent);
// Null where data is none of these.
bool extent_of(vtkDataSet *data, int *extent);

// A node array that says between which two places of the mesh a result's node lies: what is there twice has the same.
// It goes before a result is written.
constexpr const char *name_of_ends = "places that a node lies between";
void drop_ends(vtkDataSet *data);
// What tells a node from all others of the whole: its number where there is such an array, else its place.
node_place node_key(vtkDataSet *data, vtkIdType node);
// Numbers the nodes of a piece by one of its arrays of single numbers. False: some number is there twice, or no array.
bool number_by_array(vtkDataSet *data, const std::string &name);
bool is_numbered(vtkDataSet *data);
// Nodes that stand where one before them does.
vtkIdType count_doubled_nodes(vtkDataSet *data);

// Which nodes of different pieces become one; nodes of one piece stay apart, and so do those with other global ids.
enum class seam_nodes {
    with_equal_values, // at one place, or between the same ends where these are known
    at_one_place       // those with equal values first; the first piece's values are kept
};

// Of a lattice of that extent the cells, or the nodes, that are not in a slab of it.
piece_marks marks_outside(const int *slab, const int *extent, bool cells);

// Pieces as one data set, in their order, which are given up. Lattices keep their extents; they cover a box together.
// unlike: the number of nodes that dropped out with values of their own; nullptr: not wanted.
vtkSmartPointer<vtkDataSet> joined(std::vector<vtkSmartPointer<vtkDataSet>> &&pieces,
                                   seam_nodes which = seam_nodes::with_equal_values,
                                   vtkIdType *unlike = nullptr);

// The second data set behind the first, with the nodes of both that stand at one place as one; the first's cells and
// nodes keep their numbers.
vtkSmartPointer<vtkPointSet> attached(vtkPointSet *first, vtkPointSet *second);
