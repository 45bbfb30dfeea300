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
    // Of VTK's XML files only:
    bool bare = false; // without arrays but for the marks of hidden cells and copies, and the node array kept
    std::string kept;
    std::vector<int>
        extent; // of lattices: the first and last node along each axis, of those to read; empty: all
    int part = 0, nparts = 0;  // of unstructured ones of several parts: the one to read; 0: all
    bool may_be_empty = false; // no nodes are no failure
    bool of_list = false;      // a list of pieces names it: it is none itself
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

// What a VTK XML file tells of itself at its start.
struct xml_heading {
    std::string
        type; // "ImageData" and so on, "PImageData" of lists of pieces; empty: the file is none of these
    int extent[6] = {0, -1, 0, -1, 0, -1}; // of lattices: of the whole
    struct piece {
        std::string path;
        int extent[6];
    };
    std::vector<piece> pieces; // of lists
    int nparts = 1;            // of unstructured meshes: those that the file holds one after another
    struct array {
        std::string name;
        int components, type; // VTK's
    };
    std::vector<array> node, cell; // of lists
    bool ghosts = false;           // there may be marks of hidden cells and copies
    std::string ids; // of lists: the node array that numbers the nodes of all pieces; empty: none
};
// Throws failure where the file cannot be opened, or is a list of pieces and damaged.
xml_heading read_xml_heading(const std::string &path);
// Throws failure where the file is missing or ends too early.
void check_file(const std::string &path);
