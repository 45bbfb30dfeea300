// Data sets and pictures into files, whole or not at all.
#pragma once

#include <functional>
#include <string>

class vtkDataSet;

// Calls write with the name of a file beside path, then gives that file the name path. If write throws or the
// file is missing or empty, path is as it was. Throws failure.
void write_beside(const std::string &path, const std::function<void(const std::string &)> &write);

// The kind of file that an ending stands for must suit what is written; throws failure (wrong usage) if not.
// endings: those that suit, each between spaces; what: the thing, as in "a surface".
void check_ending(const std::string &path, const char *endings, const char *what);

// By the ending: VTK XML (.vtp .vtu .vti .vtr .vts: binary, compressed), .ply, .stl, or .csv (nodes with their
// arrays, a row each). Throws failure.
void write_data_set(const std::string &path, vtkDataSet *data);

// A text as it stands, such as a table. Throws failure.
void write_text(const std::string &path, const std::string &text);
