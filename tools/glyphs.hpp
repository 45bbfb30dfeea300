// Copies of a shape at the nodes of a data set.
#pragma once

#include "arrays.hpp"

#include <vtkSmartPointer.h>
#include <vtkType.h>

#include <string>
#include <vector>

class vtkDataSet;
class vtkPolyData;

// What is copied: polygons and lines over nodes, made for a vector of length 1 along x.
struct glyph_shape {
    std::vector<float> coords;                     // rows of 3
    std::vector<vtkIdType> line_sizes, line_nodes; // nodes a line; nodes line by line
    std::vector<vtkIdType> poly_sizes, poly_nodes;
    qx_long nnodes() const { return static_cast<qx_long>(coords.size()) / 3; }
};

// "arrow" and "cone", from the node along the vector; "sphere" and "cube", around the node; anything else is a file
// whose polygons and lines are taken as they stand. Throws failure.
glyph_shape shape_named(const std::string &name);

struct glyph_options {
    const typed_array *vectors;   // of the data's nodes: turn the shape
    std::vector<vtkIdType> nodes; // where copies stand; their vectors are finite and have a length
    std::vector<double> lengths;  // of the copies there
    std::vector<double> values;   // to see them by, under a name
    std::string value_name;
    double box[6]; // of all data, of which there may be more than this
};

// Node arrays of the result: the vectors, as floats, and the values. Throws failure or interrupted; text starts with
// path.
vtkSmartPointer<vtkPolyData> place_glyphs(const std::string &path, vtkDataSet *data, const glyph_shape &shape,
                                          const glyph_options &options);

// The length of each row; NaN: it has no value.
std::vector<double> lengths_of(const scalar_array &rows);
