// Parts of a mesh, cut off where a scalar reaches a level.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"

#include <vtkSmartPointer.h>

#include <string>

class vtkUnstructuredGrid;

enum class cut_side { low, high };

// The part of the mesh on one side of the level. Cells on that side are kept whole, but for second-order
// ones, which are cut into first-order ones; cells that the level crosses are split into tetrahedra,
// triangles or lines. Node arrays are interpolated on the cut, cell arrays taken from the cell that each
// piece is of. Throws failure or interrupted; text starts with path.
vtkSmartPointer<vtkUnstructuredGrid> cut_mesh(const std::string &path, input_mesh &mesh,
                                              const scalar_array &scalar, double level, cut_side side,
                                              const carried_arrays &carried);
