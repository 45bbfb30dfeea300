// Meshes without their null nodes.
#pragma once

#include "arrays.hpp"
#include "extract.hpp"
#include "mesh_from_vtk.hpp"

#include <vtkSmartPointer.h>

#include <string>

class vtkUnstructuredGrid;

// The nodes whose scalar is not null and the cells that have only such nodes, with their arrays. Throws failure
// or interrupted; text starts with path.
vtkSmartPointer<vtkUnstructuredGrid> without_null(const std::string &path, input_mesh &mesh,
                                                  const scalar_array &scalar, const carried_arrays &carried);
