// A file, its arrays and its mesh, and the choice of arrays.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"
#include "piece_marks.hpp"
#include "read.hpp"

#include <memory>
#include <string>
#include <vector>

struct input {
    input_file file;
    std::vector<typed_array> node, cell;
    std::unique_ptr<input_mesh> mesh; // of load_input only

    // Of a piece of a file (pieces.hpp): the piece of the results that its own go to, and marks of the layer of
    // cells around it, which its mesh has as well, and of the nodes that only these have; empty: there are none.
    int piece = 0;
    bool ends_piece = false; // no other part that is read goes to the same piece
    piece_marks ghost_cell, ghost_node;
    // Of a piece, where asked for: the number of each node in the whole, in the first piece that has it; below 0 in
    // others. Empty: numbers are those of the data set.
    piece_numbers node_number;
    // Of a piece, where asked for: the cell array that was chosen, as means at the nodes of the whole.
    typed_array mean;
    bool counts(size_t number) const { return node_number.empty() || node_number[number] >= 0; }
};

// All tell the user what came up. Throw failure.
input read_input(const std::string &path, const read_options &how);
input load_input(const std::string &path, const read_options &how, mesh_use use);
// Points alone, of a table of text too: .csv, .tsv, .txt and .xyz. columns: of a table, those that are the
// coordinates; empty: see csv.hpp.
input read_points(const std::string &path, const read_options &how, const std::vector<std::string> &columns);

// "a, b, c", or "none".
std::string names_of(const std::vector<typed_array> &arrays);
const typed_array *find_array(const std::vector<typed_array> &arrays, const std::string &name);
