// Values of a mesh at points.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"

#include <string>
#include <vector>

// Where values are wanted: rows of 3, and the lattice that they are the nodes of where they are one.
struct probe_points {
    std::vector<float> xyz;
    bool lattice = false;
    qx_long dims[3] = {0, 0, 0};
    float lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
    qx_long count() const { return static_cast<qx_long>(xyz.size() / 3); }
};

// The nodes of a lattice over the mesh's box.
probe_points lattice_over(const input_mesh &mesh, const qx_long dims[3]);
probe_points points_on_line(const float a[3], const float b[3], qx_long n);

// Node arrays interpolated at the points, and cell arrays taken from the cell that holds the point; arrays of
// the same names and types, a row a point. Where there is no value, outside the mesh and in cells with null
// data, floats are NaN and integers a value that the array does not hold. The last array, vtkValidPointMask,
// is 1 for points inside the mesh and 0 elsewhere. Throws failure or interrupted; text starts with path.
std::vector<typed_array> probe(const std::string &path, input_mesh &mesh, const probe_points &points,
                               const std::vector<typed_array> &node, const std::vector<typed_array> &cell);
