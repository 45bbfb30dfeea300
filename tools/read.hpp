// Files as VTK data sets.
#pragma once

#include <vtkSmartPointer.h>

#include <string>
#include <vector>

class vtkDataSet;

struct read_options {
    int block = -1;       // of a file of several blocks: the one to take; below 0: all of them as one mesh
    int step = 0;         // of a file of several time steps, from 0
    std::string solution; // PLOT3D: the file with the data; empty: looked for beside the grid
};

struct input_file {
    std::string path;
    vtkSmartPointer<vtkDataSet> data;
    int nblocks = 1, nsteps = 1;
    std::vector<double> times;      // of the steps, where the file has them
    std::vector<std::string> notes; // what the user should know of the reading
};

// Reads a file of any format that VTK knows, told by its first bytes where the format has a mark and by its
// ending otherwise. Throws failure.
input_file read_file(const std::string &path, const read_options &options);
