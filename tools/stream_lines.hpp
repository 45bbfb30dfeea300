// Stream lines and ribbons of a vector field on a mesh.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"

#include <vtkSmartPointer.h>

#include <cstdint>
#include <string>
#include <vector>

class vtkPolyData;

// Why a line ended; the numbers stand in the results. goes_on: it did not, but goes on in another piece of the mesh.
enum class line_end {
    goes_on = 0,
    left_mesh = 1,
    no_value = 2,
    slow = 3,
    max_steps = 4,
    max_length = 5,
    too_fast = 6
};
constexpr int line_ends = 7;
const char *in_words(line_end end);

struct line_options {
    int order = 4;
    bool both = false;     // against the field, too
    int max_steps = 2000;  // each way
    double max_length = 0; // each way; 0: any
    double min_speed = 0;
    double ribbon_width = 0; // 0: lines
    bool by_library = false; // by the library's own places in cells in place of exact ones
};

struct stream_lines {
    vtkSmartPointer<vtkPolyData> data;  // a polyline or a triangle strip a seed
    vtkSmartPointer<vtkPolyData> drawn; // the same, with triangles for strips
    int64_t nlines = 0, nnodes = 0;
    int64_t ends[line_ends] = {}; // lines by their end, those against the field too
    int64_t outside = 0;          // seeds in no cell
    int64_t still = 0;            // seeds without a value or slower than the least speed
    int64_t pointlike = 0;        // seeds from which no step leads on
    bool flattened = false;       // vectors stuck out of a flat mesh
    int64_t plain = 0;            // lines that no ribbon could be made of: they are among the data as lines
};

// Traces a line from each seed, rows of 3 in the coordinates of the data set. Node arrays of the result: "speed",
// "time" (from the seed, negative against the field) and the vectors under their name. Cell arrays: "seed", its
// number; "ended", a line_end; and of lines that run both ways "began" for the other end. Throws failure or
// interrupted; text starts with path. The mesh was made to be traced in.
stream_lines trace_lines(const std::string &path, const input_mesh &mesh, scalar_array vectors,
                         const std::vector<double> &seeds, const line_options &options);

// A lattice of na by nb over the parallelogram from origin to a and to b, those along a one after another.
std::vector<double> seeds_on_plane(const double origin[3], const double a[3], const double b[3], int64_t na,
                                   int64_t nb);
// Places in cells taken at random, the same each time.
std::vector<double> random_seeds(const input_mesh &mesh, int64_t count);
// The points of a .csv file (x,y,z), or the nodes of any file that VTK reads.
std::vector<double> seeds_in_file(const std::string &path);
