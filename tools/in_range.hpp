// Whole cells of a mesh, chosen by their values.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"
#include "options.hpp"

#include <vtkSmartPointer.h>

#include <string>

class vtkUnstructuredGrid;

struct wanted_range {
    double lo, hi; // both included
    bool any;      // by nodes: one node in the range is enough
};

// The cells with all nodes in the range, with any of them, or with their own value in it, and the nodes of
// these cells; with their arrays. Nulls and NaN are in no range. Throws failure or interrupted; text starts
// with path.
vtkSmartPointer<vtkUnstructuredGrid> cells_in_range(const std::string &path, input_mesh &mesh,
                                                    const scalar_array &scalar, array_place place,
                                                    const wanted_range &range, const carried_arrays &carried);
