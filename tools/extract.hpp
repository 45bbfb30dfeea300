// Level sets of a mesh as VTK polygonal data.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"

#include <vtkSmartPointer.h>

#include <string>
#include <vector>

class vtkPolyData;

enum class level_kind { surfaces, lines };

struct extracted {
    vtkSmartPointer<vtkPolyData> data;
    std::vector<qx_long> nnodes, ntri; // nodes and triangles of each level, which follow one another
};

// The surfaces (of solid cells) and lines (of flat ones) where a scalar reaches each level, in the order of the
// levels. New nodes are placed between the mesh's nodes; node arrays are interpolated there and cell arrays
// taken from the cell that each piece lies in. raw: all nodes and pieces as the library gives them; else new nodes
// that stand on one node of the mesh are merged, and pieces without extent dropped. Throws failure or interrupted; text starts with path.
extracted extract_levels(const std::string &path, input_mesh &mesh, level_kind kind,
                         const scalar_array &scalar, const std::vector<double> &levels,
                         const carried_arrays &carried, bool raw);
