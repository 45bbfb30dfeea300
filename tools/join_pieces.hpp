// Data sets taken apart and put together.
#pragma once

#include <vtkSmartPointer.h>
#include <vtkType.h>

#include <array>
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

// The nodes of an image or a grid within the extent, in VTK's numbers, with all arrays.
vtkSmartPointer<vtkDataSet> part_of_lattice(vtkDataSet *data, const int *extent);
// Null where data is none of these.
bool extent_of(vtkDataSet *data, int *extent);

// A node array that says between which two places of the mesh a result's node lies: what is there twice has the same.
// It goes before a result is written.
constexpr const char *name_of_ends = "places that a node lies between";
void drop_ends(vtkDataSet *data);

// Which nodes of different pieces become one; nodes of one piece stay apart, and so do those with other global ids.
enum class seam_nodes {
    with_equal_values, // at one place, or between the same ends where these are known
    at_one_place       // those with equal values first; the first piece's values are kept
};

// Of a lattice of that extent the cells, or the nodes, that are not in the part of it.
marks marks_outside(const int *part, const int *extent, bool cells);

// Pieces as one data set, in their order, which are given up. Lattices keep their extents; they cover a box together.
// unlike: the number of nodes that dropped out with values of their own; nullptr: not wanted.
vtkSmartPointer<vtkDataSet> joined(std::vector<vtkSmartPointer<vtkDataSet>> &&pieces,
                                   seam_nodes which = seam_nodes::with_equal_values,
                                   vtkIdType *unlike = nullptr);

// The second data set behind the first, with the nodes of both that stand at one place as one; the first's cells and
// nodes keep their numbers.
vtkSmartPointer<vtkPointSet> attached(vtkPointSet *first, vtkPointSet *second);
