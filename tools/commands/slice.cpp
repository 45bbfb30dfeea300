#include "plane.hpp"

#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "parse.hpp"

#include <vtkDataSet.h>
#include <vtkPolyData.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>

namespace {

class slice : public command {
  public:
    explicit slice(CLI::App &app);
    void run() override;

  private:
    slice_plane chosen_plane() const;

    input_options file;
    std::string axis, origin, normal;
    std::optional<double> at;
    result_options result;
    with_options with;
};

slice::slice(CLI::App &app)
    : file(app), result(app, "result: .vtp; .vti or .vtr of a mesh of that kind", result_options::drawn::yes),
      with(app, "carry only this array along, and colour the picture by it; may be repeated")
{
    app.footer("\nA slice across an axis of a uniform or rectilinear mesh is a flat mesh of its kind, .vti "
               "or .vtr;\n"
               "any slice is triangles (of flat cells, lines) in a .vtp.");
    app.add_option("--axis", axis, "across this axis: x, y or z")->check(CLI::IsMember({"x", "y", "z"}));
    app.add_option("--at", at, "where on the axis");
    app.add_option("--origin", origin, "a point of the plane, as x,y,z");
    app.add_option("--normal", normal, "across the plane, as x,y,z");
}

slice_plane slice::chosen_plane() const
{
    slice_plane plane = {{0, 0, 0}, {0, 0, 0}};
    const bool by_axis = !axis.empty() || at, by_normal = !origin.empty() || !normal.empty();
    if (by_axis == by_normal || (by_axis && (axis.empty() || !at)) ||
        (by_normal && (origin.empty() || normal.empty())))
        throw failure("give --axis x|y|z and --at V, or --origin X,Y,Z and --normal X,Y,Z", exit_usage);
    if (by_axis) {
        if (!std::isfinite(*at)) throw failure("--at: is no place on the axis", exit_usage);
        plane.origin[axis[0] - 'x'] = *at;
        plane.normal[axis[0] - 'x'] = 1;
        return plane;
    }
    const std::vector<double> point = parse_point("--origin", origin),
                              across = parse_point("--normal", normal);
    std::copy_n(point.data(), 3, plane.origin);
    std::copy_n(across.data(), 3, plane.normal);
    const double length = std::hypot(across[0], across[1], across[2]);
    if (!(length > 0) || !std::isfinite(length))
        throw failure("--normal " + normal + ": has no direction", exit_usage);
    return plane;
}

void slice::run()
{
    const slice_plane plane = chosen_plane();
    result.check(" .vtp .vti .vtr ", "a slice");
    const input in = file.load(mesh_use::extract);
    const carried_arrays carried = with.choose(in);
    const bool lattice =
        !axis.empty() && !result.ends_in(".vtp") && has_lattice_slices(*in.mesh, axis[0] - 'x');
    const char *ending = in.mesh->kind == "uniform" ? ".vti" : ".vtr";
    if (!lattice && (result.ends_in(".vti") || result.ends_in(".vtr")))
        throw failure(file.path() + ": this slice is triangles, not a lattice of nodes, and goes into a .vtp",
                      exit_usage);
    if (lattice && !result.ends_in(ending) && !result.ends_in(""))
        throw failure(file.path() + ": is a " + in.mesh->kind + " mesh, and its slice goes into a " + ending +
                          " or .vtp",
                      exit_usage);
    stage_done("read");

    vtkSmartPointer<vtkDataSet> made;
    if (lattice)
        made = slice_lattice(file.path(), *in.mesh, axis[0] - 'x', *at, carried);
    else
        made = slice_by_plane(file.path(), *in.mesh, plane, carried);
    stage_done("compute");
    if (made->GetNumberOfPoints() == 0) {
        double box[6];
        in.file.data->GetBounds(box);
        say_note("the plane misses the mesh, which is in the box " + in_words(box[0]) + " .. " +
                 in_words(box[1]) + ", " + in_words(box[2]) + " .. " + in_words(box[3]) + ", " +
                 in_words(box[4]) + " .. " + in_words(box[5]));
    }
    const std::string counts = std::to_string(made->GetNumberOfCells()) + " cells, " +
                               std::to_string(made->GetNumberOfPoints()) + " nodes";
    result.write(made, counts);
    if (!result.pictured()) return;
    drawing picture;
    picture.data = made;
    const auto &arrays = carried.node.empty() ? carried.cell : carried.node;
    if (!with.names().empty())
        picture.colour_by = with.names().front();
    else if (!arrays.empty())
        picture.colour_by = arrays.front().name;
    picture.colour_cells = find_array(carried.node, picture.colour_by) == nullptr;
    in.file.data->GetBounds(picture.box);
    result.draw(picture, counts);
}

} // namespace

extern const command_entry slice_command{"slice", "Cuts a mesh by a plane", make_command<slice>};
