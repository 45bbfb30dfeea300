// Values of a mesh at points.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

// Where values are wanted: rows of 3 in the coordinates of the data set, and the lattice that they are the nodes
// of where they are one.
struct probe_points {
    std::vector<double> xyz;
    bool lattice = false;
    qx_long dims[3] = {0, 0, 0};
    double lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
    qx_long count() const { return static_cast<qx_long>(xyz.size() / 3); }
};

// The nodes of a lattice over a box.
probe_points lattice_over(const double box[6], const qx_long dims[3]);
probe_points points_on_line(const double a[3], const double b[3], qx_long n);

struct probed {
    std::vector<typed_array> arrays;   // of the same names and types, a row a point
    std::vector<unsigned char> inside; // 1 for points in the mesh, which have values
    std::vector<int64_t> order; // of a piece: which of several answers counts, the least; none where outside
};

// A piece of a mesh among the others.
struct probed_piece {
    static constexpr int64_t none = std::numeric_limits<int64_t>::max();
    int number = 0;                              // in the order of the file
    int whole_extent[6] = {0, -1, 0, -1, 0, -1}; // of lattices
    double whole_box[6] = {0, 0, 0, 0, 0, 0};
};

// Node arrays interpolated at the points, and cell arrays taken from the cell that holds the point. Outside the
// mesh floats are NaN and integers 0. Throws failure or interrupted; text starts with path.
//
// The exact form wants a mesh that was made to be located in, the library's own one that was made to be sampled.
// of: the mesh is that piece, and of the answers of all pieces the one that the whole would give has the least order: that
// of the cell that is looked at first there.
probed probe_exactly(const std::string &path, input_mesh &mesh, const probe_points &points,
                     const std::vector<typed_array> &node, const std::vector<typed_array> &cell,
                     const probed_piece *of = nullptr);
probed probe_by_library(const std::string &path, input_mesh &mesh, const probe_points &points,
                        const std::vector<typed_array> &node, const std::vector<typed_array> &cell,
                        const probed_piece *of = nullptr);
