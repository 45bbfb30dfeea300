// Data sets taken apart and put together.
#pragma once

#include <vtkSmartPointer.h>
#include <vtkType.h>

#include <vector>

class vtkDataSet;
class vtkPointSet;

using marks = std::vector<unsigned char>; // one each: 0 or not

// The cells that are marked, in their order, and the nodes that they have or that are marked in lone (empty: none),
// with all arrays. Polygonal data and cells of any kind.
vtkSmartPointer<vtkPointSet> cells_of(vtkPointSet *data, const marks &keep, const marks &lone = {});

// The nodes of cells that are marked.
marks nodes_of_cells(vtkDataSet *data, const marks &cells);

// The nodes of an image or a grid within the extent, in VTK's numbers, with all arrays.
vtkSmartPointer<vtkDataSet> part_of_lattice(vtkDataSet *data, const int *extent);
// Null where data is none of these.
bool extent_of(vtkDataSet *data, int *extent);

// Pieces as one data set, in their order. Lattices keep their extents; they cover a box together. Of unstructured
// data nodes of different pieces become one where place and values are the same; nodes of one piece stay apart.
vtkSmartPointer<vtkDataSet> joined(const std::vector<vtkSmartPointer<vtkDataSet>> &pieces);

// The second data set behind the first, with the nodes of both that stand at one place as one; the first's cells and
// nodes keep their numbers.
vtkSmartPointer<vtkPointSet> attached(vtkPointSet *first, vtkPointSet *second);
