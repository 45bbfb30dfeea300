// Inputs of the cases: meshes as the embedded host and as VTK see them, over the same arrays.
#pragma once

#include <skoklana_host.h>

#include <vtkSmartPointer.h>

#include <functional>
#include <memory>
#include <vector>

class vtkDataSet;

namespace bench {

// A mesh twice: for us and for VTK. Both read the same coordinates and the same data.
struct input {
    std::vector<float> corners, coords, data;
    std::vector<std::vector<float>> axes;
    std::vector<unsigned char> bytes;
    std::vector<std::vector<qx_long>> connect;
    host_field *field = nullptr;
    mesh_info *mesh = nullptr;
    vtkSmartPointer<vtkDataSet> theirs;

    input() = default;
    input(const input &) = delete;
    input &operator=(const input &) = delete;
    ~input();
};

using input_ptr = std::shared_ptr<input>;
using function = double (*)(double x, double y, double z);

// n nodes an axis over [-1, 1]^3 (or ^2 where nz is 1), f sampled at the nodes as float, or scaled from its
// range over the nodes to 0..255 as bytes.
input_ptr uniform_input(qx_long nx, qx_long ny, qx_long nz, function f, bool as_bytes = false);
input_ptr rectilinear_input(qx_long n, function f);
// The cube bent: each node shifted by a fifth of a cell along a wave.
input_ptr curvilinear_input(qx_long n, function f);

// Cell sets over [-1, 1]^3: cubes cut into the kinds, layers of equal thickness from below, nodes shared.
enum class cut_into { hexes, tets, mix };
input_ptr cells_input(cut_into kinds, qx_long cubes_an_axis, function f);

// npoints places in [-0.99, 0.99]^3 from a fixed seed, rows of 3 floats.
std::vector<float> random_places(qx_long npoints);

} // namespace bench
