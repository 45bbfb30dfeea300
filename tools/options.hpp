// Groups of options that several commands have. Each adds itself to the command it is constructed for, and
// gives what was asked for once the command runs. All throw failure.
#pragma once

#include "arrays.hpp"
#include "input.hpp"
#include "picture.hpp"
#include "pieces.hpp"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Checks of arguments, which name the option and what is wanted.
CLI::Validator finite_number();
CLI::Validator positive_number(); // and finite
CLI::Validator whole_number(int64_t from);

class result_options;

// FILE, --block, --step, --solution; of commands that work in pieces --pieces and --gather.
class input_options {
  public:
    explicit input_options(CLI::App &app);
    // POINTS instead of FILE: tables of text too, with --columns.
    enum class points_too { yes };
    input_options(CLI::App &app, points_too);
    enum class in_pieces { yes };
    input_options(CLI::App &app, in_pieces);
    const std::string &path() const { return file; }
    bool gathers() const { return gather; }
    // The file in pieces; all (process_group.hpp). mean: of the array options that choose in it.
    pieces split(mesh_use use = mesh_use::extract, piece_with with = piece_with::nothing,
                 const mean_maker &mean = {}) const;
    // The same where the result may be a list of files.
    pieces split(const result_options &result, const mean_maker &mean = {}, mesh_use use = mesh_use::extract,
                 piece_with with = piece_with::nothing) const;
    // The file with its arrays; the user is told what came up. With a mesh of the library: load.
    input read() const;
    input load(mesh_use use) const;
    input points() const;

  private:
    std::string file;
    read_options how;
    std::vector<std::string> columns;
    int npieces = 0;
    bool gather = false;
};

enum class array_place { node, cell, either };

// What was chosen.
struct chosen_array {
    typed_array array;
    bool cell = false; // a value a cell
};

// What --component can be, beside a number.
enum class component_kind {
    none,   // there is no such option
    length, // "length", which is the default
    all     // not given: every component
};

// --array, --component, --null, and --cell-to-node where a node array is wanted: the array that is worked on.
class array_options {
  public:
    explicit array_options(CLI::App &app, array_place place = array_place::node,
                           component_kind components = component_kind::length, bool null_option = true);

    // The array that was named, or the only one.
    chosen_array choose(const input &in) const;
    // What --cell-to-node makes of a piece, for split; empty where it was not given.
    mean_maker mean() const;
    // The component that was asked for; -1: the length of rows, or all of them.
    int component_of(const input &in, const typed_array &array) const;
    // One component of the array or its length, with its null value.
    scalar_array scalar(const input &in, const typed_array &array) const;

    std::optional<double> null;

  private:
    chosen_array means_of_cells(const input &in) const;

    array_place place;
    component_kind components;
    std::string name, component;
    bool cell_to_node = false;
};

// --vectors, --null, --cell-to-node: the node array of vectors that is worked on.
class vectors_options {
  public:
    explicit vectors_options(CLI::App &app);
    // The array that was named, or the only one of 2 or 3 components.
    typed_array choose(const input &in) const;
    // The same with its null rows: those with a NaN, and those that begin with the null value.
    scalar_array choose_rows(const input &in) const;
    // As of array_options.
    mean_maker mean() const;

  private:
    typed_array choose_without_mean(const input &in) const;

    std::string name;
    std::optional<double> null;
    bool cell_to_node = false;
};

// --with: the arrays that are carried along.
class with_options {
  public:
    explicit with_options(CLI::App &app, const char *about = "carry only this array along; may be repeated");
    // Those that were named, or all.
    carried_arrays choose(const input &in) const;
    const std::vector<std::string> &names() const { return with; }

  private:
    std::vector<std::string> with;
};

// --level.
class level_options {
  public:
    explicit level_options(CLI::App &app);
    const std::vector<double> &values() const { return levels; }
    // Throws where there are more than that many; use: what for, as in " for a picture".
    void check(size_t most, const char *use) const;

  private:
    std::vector<double> levels;
};

// --out, and --picture, --view, --size and --colors where the result can be drawn. endings: those that the result can be written to, each
// between spaces; what: the result, as in "a surface".
class result_options {
  public:
    enum class drawn { no, yes };
    // about: the help text of --out. Without pictures --out is required, with them one of both is.
    // size_name: of the size of pictures, for commands that have a --size of their own.
    result_options(CLI::App &app, const char *about, drawn pictures = drawn::no,
                   const char *size_name = "--size");
    // Before any work: something is asked for, and its names suit.
    void check(const char *endings, const char *what);
    // Of commands that work in pieces: a list of files, .pvtp for .vtp, is an ending too.
    void check(const char *endings, const char *what, const input_options &file);
    bool pictured() const { return !picture.empty(); }
    // Formats of surfaces that hold triangles alone do not.
    bool takes_quadrilaterals() const;
    // Of --out; an empty ending: there is none.
    bool ends_in(const std::string &ending) const
    {
        return ending.empty() ? out.empty()
                              : out.size() > ending.size() &&
                                    out.compare(out.size() - ending.size(), ending.size(), ending) == 0;
    }
    // --out is a list of files.
    bool is_list() const
    {
        return ends_in(".pvtp") || ends_in(".pvtu") || ends_in(".pvti") || ends_in(".pvtr") ||
               ends_in(".pvts");
    }
    // The ending of each file: that of --out, ".vtp" of ".pvtp".
    std::string ending() const;
    // Where results of pieces go.
    piece_results results_of(const pieces &of) const;
    // All say so, with the counts.
    void write(vtkDataSet *data, const std::string &counts) const;
    void write(piece_results &made, const pieces &of, const std::string &counts) const; // all
    // Of pieces the first process draws; all.
    void draw(const drawing &picture, const std::string &counts) const;
    // The same of all that was made, in the box of the whole, with colours as any process that has a piece says.
    void draw(drawing picture, const piece_results &made, const pieces &of, const std::string &counts) const;

  private:
    std::string out, picture, size;
    const char *size_option;
    picture_look look;
};
