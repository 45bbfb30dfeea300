// The parts of a mesh between neighbouring levels of a scalar.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"

#include <vtkSmartPointer.h>

#include <string>
#include <vector>

class vtkPointSet;

struct made_bands {
    vtkSmartPointer<vtkPointSet> data;
    std::vector<qx_long> ncells; // of each band, lines left out
};

// Bands from each level to the next, half open but for the last one, so that each value is in one band alone.
// Their cells have the arrays "band", counted from 0, "band_lower" and "band_upper". surface: as polygonal
// data, with the lines along the levels as cells of the band below each line, of band 0 along the first
// level; otherwise as a mesh of cells. Node arrays are carried, the scalar's own one at its levels. Throws
// failure or interrupted; text starts with path.
made_bands extract_bands(const std::string &path, input_mesh &mesh, const scalar_array &scalar,
                         const std::vector<double> &levels, const std::vector<typed_array> &carried,
                         bool surface);
