// Plain arrays as VTK data sets.
#pragma once

#include <skoklana/types.h>

#include <vtkSmartPointer.h>

#include <vector>

class vtkDataSet;

namespace samples {
struct mesh;
struct field;
} // namespace samples

// Points, each a vertex. xyz: rows of 3, kept as float where that holds them all.
vtkSmartPointer<vtkDataSet> points_to_vtk(const std::vector<double> &xyz);
// An image of dims nodes from lo to hi.
vtkSmartPointer<vtkDataSet> lattice_to_vtk(const qx_long dims[3], const double lo[3], const double hi[3]);
vtkSmartPointer<vtkDataSet> sample_to_vtk(const samples::mesh &mesh, const samples::field &field);

// The ending of the file that a data set is written to, between spaces.
const char *ending_of_data(vtkDataSet *data);
