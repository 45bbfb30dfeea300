#include "options.hpp"

#include "colours.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "node_means.hpp"
#include "progress.hpp"
#include "write.hpp"

#include <vtkDataSet.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <iterator>

CLI::Validator finite_number()
{
    return CLI::Validator(
        [](const std::string &text) {
            double value;
            if (!CLI::detail::lexical_cast(text, value)) return text + " is no number";
            return std::isfinite(value) ? std::string() : text + " is no finite number";
        },
        "", "");
}

CLI::Validator positive_number()
{
    return CLI::Validator(
        [](const std::string &text) {
            double value;
            const bool is_one = CLI::detail::lexical_cast(text, value) && std::isfinite(value) && value > 0;
            return is_one ? std::string() : text + " is out of range; a number above 0 is wanted";
        },
        "", "");
}

CLI::Validator whole_number(int64_t from)
{
    return CLI::Validator(
        [from](const std::string &text) {
            int64_t value;
            const bool is_one = CLI::detail::lexical_cast(text, value);
            return is_one && value >= from ? std::string()
                                           : text + " is out of range; a whole number from " +
                                                 std::to_string(from) + " is wanted";
        },
        "", "");
}

// ---- input --------------------------------------------------------------------------------------------------

static void add_how(CLI::App &app, read_options *how)
{
    app.add_option("--block", how->block, "of a file of several blocks: take block N only, from 0")
        ->check(whole_number(0));
    app.add_option("--step", how->step,
                   "of a file of several time steps: take step N, from 0; else the first")
        ->check(whole_number(0));
    app.add_option("--solution", how->solution,
                   "PLOT3D: the file with the data of the grid; else looked for beside it");
}

input_options::input_options(CLI::App &app)
{
    app.add_option("FILE", file,
                   "any file that VTK reads: .vtk .vti .vtu .vtp ..., PLOT3D, EnSight, Exodus, STL, ...")
        ->required();
    add_how(app, &how);
}

input_options::input_options(CLI::App &app, points_too)
{
    app.add_option("POINTS", file,
                   "the points of a .csv file (columns x, y, z and values; z may be missing), of an .xyz "
                   "file (rows of "
                   "numbers) or of any file that VTK reads")
        ->required();
    app.add_option(
           "--columns", columns,
           "of a .csv or .xyz file: the columns that are the coordinates, X,Y or X,Y,Z; those without a "
           "name are column1, column2, ...")
        ->delimiter(',')
        ->allow_extra_args(false);
    add_how(app, &how);
}

input_options::input_options(CLI::App &app, in_pieces) : input_options(app)
{
    app.add_option("--pieces", npieces,
                   "work on the file in N pieces, one after another, of which one is in memory; a result "
                   "that ends in "
                   ".pvtp, .pvtu and so on has a file each")
        ->check(CLI::Range(1, 1000000));
    app.add_flag("--gather", gather, "of several pieces: one file of all, which any other ending means, too");
}

pieces input_options::split(mesh_use use, piece_with with, const mean_maker &mean) const
{
    return {file, how, use, npieces, with, mean};
}

pieces input_options::split(const result_options &result, const mean_maker &mean, mesh_use use,
                            piece_with with) const
{
    const int count = npieces == 0 && result.is_list() && !processes::several() ? 1 : npieces;
    return {file, how, use, count, with, mean};
}

input input_options::read() const
{
    return read_input(file, how);
}

input input_options::points() const
{
    if (columns.size() == 1 || columns.size() > 3)
        throw failure("--columns: X,Y or X,Y,Z is wanted", exit_usage);
    return read_points(file, how, columns);
}

input input_options::load(mesh_use use) const
{
    return load_input(file, how, use);
}

// ---- array --------------------------------------------------------------------------------------------------

array_options::array_options(CLI::App &app, array_place at, component_kind components_, bool null_option)
    : place(at), components(components_)
{
    const char *kind = place == array_place::node   ? "node array"
                       : place == array_place::cell ? "cell array"
                                                    : "node or cell array";
    app.add_option("--array,-a", name,
                   std::string("the ") + kind + " to work on; needed where there are several");
    if (components == component_kind::length)
        app.add_option("--component", component,
                       "of an array of vectors: component N, from 0, or \"length\" (the default)");
    if (components == component_kind::all)
        app.add_option("--component", component, "of an array of vectors: component N, from 0; else all");
    if (null_option)
        app.add_option("--null", null,
                       place == array_place::cell ? "cells with this value have none; NaN always means that"
                                                  : "nodes with this value have none; NaN always means that")
            ->check(finite_number());
    if (place != array_place::cell)
        app.add_flag("--cell-to-node", cell_to_node,
                     "take a cell array, as the mean of the cells around each node");
}

// A cell array at the nodes.
static typed_array mean_at_nodes(const input &in, const typed_array &of, const std::optional<double> &null)
{
    const std::string &path = in.file.path;
    std::unique_ptr<input_mesh> own;
    if (in.mesh == nullptr) own = make_mesh(path, in.file.data, mesh_use::extract);
    return means_at_nodes(path, own != nullptr ? *own : *in.mesh, of, mean_weight::none, null.has_value(),
                          null.value_or(0))
        .array;
}

chosen_array array_options::means_of_cells(const input &in) const
{
    const std::string &path = in.file.path, of_cells = "; its cell arrays: " + names_of(in.cell);
    if (in.cell.empty()) throw failure(path + ": has no cell arrays, and --cell-to-node takes one");
    if (name.empty() && in.cell.size() > 1)
        throw failure(path + ": has several cell arrays; name one with --array" + of_cells);
    const typed_array *of = name.empty() ? &in.cell.front() : find_array(in.cell, name);
    if (of == nullptr) throw failure(path + ": has no cell array " + name + of_cells);
    return {mean_at_nodes(in, *of, null), false};
}

mean_maker array_options::mean() const
{
    if (!cell_to_node) return {};
    return [this](const input &in) { return means_of_cells(in).array; };
}

chosen_array array_options::choose(const input &in) const
{
    if (cell_to_node && in.mean.kept != nullptr) return {in.mean, false};
    if (cell_to_node) return means_of_cells(in);
    const std::string &path = in.file.path;
    const bool nodes = place != array_place::cell, cells = place != array_place::node;
    const char *at = place == array_place::node ? "node " : place == array_place::cell ? "cell " : "";
    const auto &first = nodes ? in.node : in.cell, &other = nodes ? in.cell : in.node;
    const std::string other_names =
        std::string("; its ") + (nodes ? "cell" : "node") + " arrays: " + names_of(other);
    const std::string choice = std::string("; its ") + (nodes ? "node" : "cell") +
                               " arrays: " + names_of(first) + (nodes && cells ? other_names : "");
    const std::string wanted = std::string("values at ") + (nodes ? "nodes" : "cells") + " are wanted";
    const size_t count = first.size() + (nodes && cells ? other.size() : 0);
    if (count == 0 && nodes && cells) throw failure(path + ": has no arrays, and values are wanted");
    if (count == 0)
        throw failure(path + ": has no " + at + "arrays, and " + wanted +
                      (other.empty() ? ""
                       : nodes       ? " (--cell-to-node makes them of cell arrays)" + other_names
                                     : other_names));
    if (name.empty()) {
        if (count > 1) throw failure(path + ": has several " + at + "arrays; name one with --array" + choice);
        if (first.empty()) return {other.front(), nodes};
        return {first.front(), !nodes};
    }
    if (const typed_array *array = find_array(first, name)) return {*array, !nodes};
    const typed_array *array = find_array(other, name);
    if (array != nullptr && nodes && cells) return {*array, true};
    if (array != nullptr)
        throw failure(path + ": " + name + " holds a value a " + (nodes ? "cell" : "node") + ", and " +
                      wanted + (nodes ? " (--cell-to-node makes them of it)" : "") + choice);
    throw failure(path + ": has no array " + name + choice);
}

int array_options::component_of(const input &in, const typed_array &array) const
{
    const bool lengths = components == component_kind::length;
    if (component.empty() || (lengths && component == "length")) return -1;
    int number = -1;
    const char *end = component.data() + component.size();
    if (std::from_chars(component.data(), end, number).ptr != end || number < 0)
        throw failure("--component " + component +
                          (lengths ? ": is neither a number from 0 nor \"length\"" : ": is no number from 0"),
                      exit_usage);
    if (number >= array.veclen)
        throw failure(in.file.path + ": " + array.name + " has components 0 to " +
                      std::to_string(array.veclen - 1) + ", not " + component);
    return number;
}

scalar_array array_options::scalar(const input &in, const typed_array &array) const
{
    return scalar_of(array, component_of(in, array), null.has_value(), null.value_or(0));
}

// ---- vectors ------------------------------------------------------------------------------------------------

vectors_options::vectors_options(CLI::App &app)
{
    app.add_option("--vectors", name, "the node array of vectors; needed where there are several");
    app.add_option("--null", null,
                   "nodes whose vector begins with this value have none; NaN always means that")
        ->check(finite_number());
    app.add_flag("--cell-to-node", cell_to_node,
                 "take a cell array, as the mean of the cells around each node");
}

mean_maker vectors_options::mean() const
{
    if (!cell_to_node) return {};
    return [this](const input &in) { return choose_without_mean(in); };
}

typed_array vectors_options::choose(const input &in) const
{
    return cell_to_node && in.mean.kept != nullptr ? in.mean : choose_without_mean(in);
}

typed_array vectors_options::choose_without_mean(const input &in) const
{
    const std::string &path = in.file.path;
    const auto is_vectors = [](const typed_array &array) { return array.veclen == 2 || array.veclen == 3; };
    const auto &arrays = cell_to_node ? in.cell : in.node, &others = cell_to_node ? in.node : in.cell;
    const std::string at = cell_to_node ? "cell" : "node", other = cell_to_node ? "node" : "cell";
    std::vector<typed_array> vectors;
    std::copy_if(arrays.begin(), arrays.end(), std::back_inserter(vectors), is_vectors);
    const std::string choice = "; its " + at + " arrays of vectors: " + names_of(vectors);
    const typed_array *array = name.empty() ? nullptr : find_array(arrays, name);
    if (name.empty() && vectors.empty())
        throw failure(path + ": has no " + at + " arrays of vectors, of 2 or 3 components; its " + at +
                      " arrays: " + names_of(arrays) + "; its " + other + " arrays: " + names_of(others));
    if (name.empty() && vectors.size() > 1)
        throw failure(path + ": has several " + at + " arrays of vectors; name one with --vectors" + choice);
    if (name.empty()) array = &vectors.front();
    if (array != nullptr && !is_vectors(*array))
        throw failure(path + ": " + name + " has " + std::to_string(array->veclen) +
                      (array->veclen == 1 ? " component" : " components") + ", and vectors have 2 or 3" +
                      choice);
    if (array == nullptr && find_array(others, name) != nullptr)
        throw failure(path + ": " + name + " holds a vector a " + other +
                      (cell_to_node ? ", and --cell-to-node takes a cell array"
                                    : ", and vectors at nodes are wanted: see --cell-to-node") +
                      choice);
    if (array == nullptr) throw failure(path + ": has no " + at + " array " + name + choice);
    return cell_to_node ? mean_at_nodes(in, *array, null) : *array;
}

scalar_array vectors_options::choose_rows(const input &in) const
{
    return rows_with_null(choose(in), null.has_value(), null.value_or(0));
}

// ---- arrays to carry ----------------------------------------------------------------------------------------

with_options::with_options(CLI::App &app, const char *about)
{
    app.add_option("--with,-w", with, about)->allow_extra_args(false);
}

carried_arrays with_options::choose(const input &in) const
{
    carried_arrays carried;
    if (with.empty()) {
        carried.node = in.node;
        carried.cell = in.cell;
        return carried;
    }
    for (const std::string &name : with) {
        const typed_array *node = find_array(in.node, name), *cell = find_array(in.cell, name);
        if (node == nullptr && cell == nullptr)
            throw failure(in.file.path + ": has no array " + name + " to carry along; its node arrays: " +
                          names_of(in.node) + "; its cell arrays: " + names_of(in.cell));
        if (node != nullptr) carried.node.push_back(*node);
        if (cell != nullptr) carried.cell.push_back(*cell);
    }
    return carried;
}

// ---- levels -------------------------------------------------------------------------------------------------

level_options::level_options(CLI::App &app)
{
    app.add_option("--level,-l", levels, "the value to extract; may be repeated, or given as X,Y,Z")
        ->required()
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(finite_number());
}

void level_options::check(size_t most, const char *use) const
{
    if (levels.size() > most)
        throw failure("--level: " + std::to_string(levels.size()) + " levels are too many; " +
                          std::to_string(most) + " are the most" + use,
                      exit_usage);
}

// ---- results ------------------------------------------------------------------------------------------------

result_options::result_options(CLI::App &app, const char *about, drawn pictures, const char *size_name)
    : size_option(size_name)
{
    CLI::Option *file = app.add_option("--out,-o", out, about);
    if (pictures == drawn::no) {
        file->required();
        return;
    }
    app.add_option("--picture,-p", picture, "draw the result into a .png or .jpg file; needs no display");
    app.add_option("--view", look.view, "of the picture: along x, y, z, -x, -y or -z, or iso, from a corner")
        ->check(CLI::IsMember({"x", "y", "z", "-x", "-y", "-z", "iso"}));
    app.add_option(size_name, size, "of the picture in pixels: WxH, 1200x900 if not given");
    app.add_option("--colors,--colours", look.colours, "of the picture: " + names_of_colours())
        ->check([](const std::string &name) {
            return is_colours(name) ? std::string() : name + " is not among " + names_of_colours();
        });
}

void result_options::check(const char *endings, const char *what)
{
    if (out.empty() && picture.empty()) {
        const std::string first(endings + 1, strcspn(endings + 1, " "));
        throw failure("nowhere to put the result: give -o OUT" + first + ", --picture OUT.png or both",
                      exit_usage);
    }
    if (!out.empty()) check_ending(out, endings, what);
    if (!picture.empty()) check_ending(picture, " .png .jpg .jpeg ", "a picture");
    if (size.empty()) return;
    int used = 0;
    if (sscanf(size.c_str(), "%dx%d%n", &look.width, &look.height, &used) != 2 ||
        static_cast<size_t>(used) != size.size() || std::min(look.width, look.height) < 100 ||
        std::max(look.width, look.height) > 8000)
        throw failure(std::string(size_option) + ": " + size +
                          " is out of range; WxH is wanted, each from 100 to 8000",
                      exit_usage);
}

void result_options::check(const char *endings, const char *what, const input_options &file)
{
    std::string all = endings;
    for (const char *ending : {".vtp", ".vtu", ".vti", ".vtr", ".vts"})
        if (strstr(endings, (std::string(" ") + ending + " ").c_str()) != nullptr && is_list())
            all += ".p" + std::string(ending + 1) + " ";
    check(all.c_str(), what);
    if (is_list() && file.gathers())
        throw failure("--gather makes one file, and " + out + " is a list of files; " + ending() +
                          " is the ending",
                      exit_usage);
}

std::string result_options::ending() const
{
    const std::string own = std::filesystem::path(out).extension().string();
    return is_list() ? "." + own.substr(2) : own;
}

bool result_options::takes_quadrilaterals() const
{
    const std::string ending = std::filesystem::path(out).extension().string();
    return ending != ".stl" && ending != ".ply";
}

piece_results result_options::results_of(const pieces &of) const
{
    return {of, out, !is_list(), pictured()};
}

void result_options::write(piece_results &made, const pieces &of, const std::string &counts) const
{
    if (out.empty()) return;
    made.write();
    stage_done("write");
    say("%s: %s%s", out.c_str(), counts.c_str(),
        is_list() && of.count() > 1 ? (", in " + std::to_string(of.count()) + " pieces").c_str() : "");
}

void result_options::write(vtkDataSet *data, const std::string &counts) const
{
    if (out.empty()) return;
    write_data_set(out, data);
    stage_done("write");
    say("%s: %s", out.c_str(), counts.c_str());
}

void result_options::draw(drawing picture_of, const piece_results &made, const pieces &of,
                          const std::string &counts) const
{
    if (picture.empty()) return;
    picture_of.data = made.whole();
    picture_of.colour_by = agreed(picture_of.colour_by);
    picture_of.colour_cells = processes::any(picture_of.colour_cells);
    std::copy_n(of.whole().box, 6, picture_of.box);
    draw(picture_of, counts);
}

void result_options::draw(const drawing &what, const std::string &counts) const
{
    if (picture.empty()) return;
    const partial_file watched(name_beside(picture)); // in the first process it is in place by then
    processes::agree([&] {
        if (processes::is_first()) write_picture(picture, what, look);
    });
    stage_done("picture");
    say("%s: picture of %s", picture.c_str(), counts.c_str());
}
