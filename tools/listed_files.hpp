// Files that a list of pieces (.pvtu, .pvtp and so on) names, and all of them as one.
//
// A cell belongs to one file: where one has cells of others around its own, marked as copies, these go with the nodes
// that none but they have. Marks of hidden cells and nodes stay.
#pragma once

#include "read.hpp"

#include <vtkSmartPointer.h>

#include <cstdint>
#include <string>

class vtkDataSet;

// A file of a list of unstructured pieces, with the arrays that the list names; bare: without them. Its data: nullptr
// where nothing is in it. Where the list has global numbers of nodes, they are the nodes' (node_key of join_pieces.hpp),
// unless a file has one twice. Throws failure.
input_file read_listed(const std::string &list, const xml_heading &heading, int number, bool bare);

// What to tell of files in which so many nodes stand where another of the same file does; of none: empty.
std::string note_of_doubled_nodes(int64_t doubled);

// All files of such a list, in their order, with a node for those of several that stand at one place. Throws failure.
input_file read_all_listed(const std::string &list);

// Takes the marks of copies out of data in which each cell is there once; those of what is hidden stay. of_list: false
// of a file on its own, of which copies of cells are hidden ones.
void forget_copies(vtkDataSet *data, bool of_list);
