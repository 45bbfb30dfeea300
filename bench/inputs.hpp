// Inputs of the cases: a sample of tools/samples.hpp as the embedded host and as VTK see it.
#pragma once

#include "samples.hpp"

#include <skoklana_host.h>

#include <vtkSmartPointer.h>

#include <memory>
#include <string>
#include <vector>

class vtkDataArray;
class vtkDataSet;

namespace bench {

// Both sides read the same node data; coordinates and connect lists stand once for each.
struct input {
    std::vector<samples::mesh> parts; // one, or one a cell set, with all coordinates in the first
    host_field *field = nullptr;
    mesh_info *mesh = nullptr;
    vtkSmartPointer<vtkDataSet> theirs;
    vtkSmartPointer<vtkDataArray> scalars; // theirs too
    int type = 0;
    int64_t cubes_an_axis = 0;

    input() = default;
    input(const input &) = delete;
    input &operator=(const input &) = delete;
    ~input();

    void *data() const;
    // Sizes of what an operation may have to read.
    double data_bytes() const;
    double mesh_bytes() const; // coordinates and connect lists
};

using input_ptr = std::shared_ptr<input>;

// dims[d] nodes along axis d of the sample's cube. as_bytes: the values from least to greatest as 0 to 255.
input_ptr structured_input(samples::layout layout, const int64_t *dims, const char *sample,
                           bool as_bytes = false);

// The cube cut into cubes_an_axis^3 cubes, and those into cells: as many layers as there are kinds, from below,
// each cut into one kind.
input_ptr cells_input(const std::vector<int> &kinds, int64_t cubes_an_axis, const char *sample);

// The cube's middle plane cut into squares_an_axis^2 squares, and those into cells of a kind.
input_ptr surface_input(int kind, int64_t squares_an_axis, const char *sample);

// Rows of 3 floats from a fixed seed, all inside the mesh: anywhere in the cube, and in a random cell of
// meshes that do not fill it.
std::vector<float> random_places(const input &in, int64_t npoints);

} // namespace bench
