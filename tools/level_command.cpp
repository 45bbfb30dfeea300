#include "level_command.hpp"

#include "console.hpp"
#include "failure.hpp"

#include <vtkDataSet.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>

#include <algorithm>

level_command::level_command(CLI::App &app, level_kind kind_)
    : kind(kind_), file(app), array(app), levels(app),
      result(app, kind_ == level_kind::surfaces ? "result: .vtp, .ply or .stl" : "result: .vtp",
             result_options::drawn::yes),
      with(app, "carry only this array along, and colour the picture by it; may be repeated")
{
}

void level_command::check_cells(const input &in) const
{
    const int ndim = in.mesh->cell_ndim();
    bool flat = false;
    for (size_t set = 0; set < in.mesh->nsets(); ++set)
        flat = flat || cell_kinds[in.mesh->kind_of_set(set)].ndim == 2;
    if (ndim < 2)
        throw failure(file.path() + ": has no cells that a surface or line could run through, only " +
                      in.mesh->size_in_words());
    if (!surfaces() && !flat)
        throw failure(file.path() +
                      ": has solid cells only, and lines run on flat ones; iso extracts surfaces");
}

// What --with names first, else the array itself where several levels tell themselves apart by it, else the
// first other one.
std::string level_command::colour(const typed_array &of, const carried_arrays &carried) const
{
    for (const std::string &name : with.names())
        if (find_array(carried.node, name) != nullptr) return name;
    if (levels.values().size() > 1) return find_array(carried.node, of.name) != nullptr ? of.name : "";
    for (const typed_array &other : carried.node)
        if (other.name != of.name) return other.name;
    return "";
}

void level_command::run()
{
    result.check(surfaces() ? " .vtp .ply .stl " : " .vtp ", surfaces() ? "a surface" : "lines");
    const input in = file.load(mesh_use::extract);
    const typed_array of = array.choose(in).array;
    const scalar_array scalar = array.scalar(in, of);
    const carried_arrays carried = with.choose(in);
    check_cells(in);
    stage_done("read");

    const extracted made = extract_levels(file.path(), *in.mesh, kind, scalar, levels.values(), carried);
    vtkPolyData *data = made.data;
    if (data->GetPointData()->GetArray(of.name.c_str()) != nullptr && of.veclen == 1)
        data->GetPointData()->SetActiveScalars(of.name.c_str());
    stage_done("compute");

    const vtkIdType ntri = data->GetNumberOfPolys(), nline = data->GetNumberOfLines();
    if (ntri + nline == 0) {
        const value_range range = range_of(scalar.array);
        say_note("nothing has that value: " + of.name + " runs from " + in_words(range.lo) + " to " +
                 in_words(range.hi));
    }
    std::string counts = std::to_string(data->GetNumberOfPoints()) + " nodes";
    if (ntri > 0) counts = std::to_string(ntri) + " triangles, " + counts;
    if (nline > 0) counts = std::to_string(nline) + " lines, " + counts;
    result.write(data, counts);
    if (!result.pictured()) return;
    drawing picture;
    picture.data = data;
    picture.colour_by = colour(of, carried);
    picture.level_triangles.assign(made.ntri.begin(), made.ntri.end());
    in.file.data->GetBounds(picture.box);
    result.draw(picture, counts);
}
