// Data sets and pictures into files, whole or not at all.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

class vtkDataSet;

// From now on results may take the place of files that were read.
void allow_overwriting_inputs();
// A file that was read: no result may take its place. Throws failure where one is about to.
void note_input(const std::string &path);

// Calls write with the name of a file beside path, then gives that file the name path. If write throws or the
// file is missing or empty, path is as it was. Links are followed. Throws failure, which tells in a line what
// the system says.
void write_beside(const std::string &path, const std::function<void(const std::string &)> &write);

// The name of the file beside path, the same in all processes (process_group.hpp).
std::string name_beside(const std::string &path);

class partial_file;

// Files that are put in place together, or removed.
class file_batch {
  public:
    file_batch();
    ~file_batch();
    file_batch(const file_batch &) = delete;
    file_batch &operator=(const file_batch &) = delete;

    // Write beside path. Throw failure.
    void write_data_set(const std::string &path, vtkDataSet *data);
    void write_text(const std::string &path, const std::string &text);
    // What another process leaves beside path is removed with the record, and if a signal ends the program.
    void watch(const std::string &path);
    // Throws failure.
    void put_in_place();

  private:
    void write_by(const std::string &path, const std::function<void(const std::string &)> &write);

    std::vector<std::string> paths;
    std::vector<std::unique_ptr<partial_file>> watched;
};

// Removes a file whose place is taken next, together with others that it would not suit. Throws failure.
void remove_before(const std::string &path);

// The kind of file that an ending stands for must suit what is written; throws failure (wrong usage) if not.
// endings: those that suit, each between spaces; what: the thing, as in "a surface".
void check_ending(const std::string &path, const char *endings, const char *what);

// By the ending: VTK XML (.vtp .vtu .vti .vtr .vts: binary, compressed), .ply or .stl. Throws failure.
void write_data_set(const std::string &path, vtkDataSet *data);

// As it stands between the quotes of an XML attribute.
std::string xml_text(const std::string &name);

// A text as it stands, such as a table. Throws failure.
void write_text(const std::string &path, const std::string &text);
