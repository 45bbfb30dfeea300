#include "level_command.hpp"

#include "console.hpp"
#include "failure.hpp"

#include <vtkDataSet.h>
#include <vtkDoubleArray.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>

#include <algorithm>

level_command::level_command(CLI::App &app, level_kind kind_)
    : kind(kind_), file(app), array(app), levels(app),
      result(app, kind_ == level_kind::surfaces ? "result: .vtp, .ply or .stl" : "result: .vtp",
             result_options::drawn::yes),
      with(app, "carry only this array along, and colour the picture by it; may be repeated")
{
    app.add_flag("--raw", raw, "keep all nodes and pieces, also those that coincide or have no extent");
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

namespace {

const size_t most_levels = 1000, most_drawn = 256;

// Adds the level of each node as an array of that name.
void add_level_array(vtkDataSet *data, const char *name, const std::vector<double> &levels,
                     const std::vector<qx_long> &nnodes)
{
    vtkNew<vtkDoubleArray> array;
    array->SetName(name);
    array->SetNumberOfValues(data->GetNumberOfPoints());
    double *to = array->GetPointer(0);
    for (size_t i = 0; i < levels.size(); ++i)
        to = std::fill_n(to, nnodes[i], levels[i]);
    data->GetPointData()->AddArray(array);
}

} // namespace

// Coloured by what --with names first, else by the levels themselves where there are several, else by the first
// other array.
drawing level_command::picture_of(const input &in, const typed_array &of, const carried_arrays &carried,
                                  const extracted &made) const
{
    static const char *const level_name = "level of the picture";
    drawing picture;
    picture.data = made.data;
    picture.level_triangles.assign(made.ntri.begin(), made.ntri.end());
    in.file.data->GetBounds(picture.box);
    std::string by = levels.values().size() > 1 ? of.name : "";
    if (!with.names().empty()) {
        by = with.names().front();
        picture.colour_cells = find_array(carried.node, by) == nullptr;
    } else if (by.empty()) {
        for (const typed_array &other : carried.node)
            if (by.empty() && other.name != of.name) by = other.name;
    }
    picture.colour_by = by;
    if (by == of.name && !picture.colour_cells) { // carried, it is the levels but for rounding
        const bool by_length = of.veclen > 1 && array.component_of(in, of) < 0;
        picture.title = of.name + (by_length ? " (length)" : "");
        picture.levels = levels.values();
        picture.data = vtkSmartPointer<vtkPolyData>::New();
        picture.data->ShallowCopy(made.data);
        add_level_array(picture.data, level_name, levels.values(), made.nnodes);
        picture.colour_by = level_name;
    }
    return picture;
}

std::string level_command::reason(const typed_array &of, const scalar_array &scalar) const
{
    const value_range range = range_of(scalar.array);
    const std::string runs = range.any
                                 ? of.name + " runs from " + in_words(range.lo) + " to " + in_words(range.hi)
                                 : of.name + " has no values";
    bool within = false;
    for (const double level : levels.values())
        within = within || (range.any && level >= range.lo && level <= range.hi);
    return within ? "no cell has values on both sides of a level; " + runs
                  : "nothing has that value: " + runs;
}

void level_command::run()
{
    levels.check(most_levels, "");
    if (result.pictured()) levels.check(most_drawn, " that a picture shows");
    result.check(surfaces() ? " .vtp .ply .stl " : " .vtp ", surfaces() ? "a surface" : "lines");
    const input in = file.load(mesh_use::extract);
    const typed_array of = array.choose(in).array;
    const scalar_array scalar = array.scalar(in, of);
    const carried_arrays carried = with.choose(in);
    check_cells(in);
    stage_done("read");

    const extracted made = extract_levels(file.path(), *in.mesh, kind, scalar, levels.values(), carried, raw);
    vtkPolyData *data = made.data;
    if (data->GetPointData()->GetArray(of.name.c_str()) != nullptr && of.veclen == 1)
        data->GetPointData()->SetActiveScalars(of.name.c_str());
    stage_done("compute");

    const vtkIdType ntri = data->GetNumberOfPolys(), nline = data->GetNumberOfLines();
    if (ntri + nline == 0) say_note(reason(of, scalar));
    std::string counts = std::to_string(data->GetNumberOfPoints()) + " nodes";
    if (ntri > 0) counts = std::to_string(ntri) + " triangles, " + counts;
    if (nline > 0) counts = std::to_string(nline) + " lines, " + counts;
    result.write(data, counts);
    if (!result.pictured()) return;
    result.draw(picture_of(in, of, carried, made), counts);
}
