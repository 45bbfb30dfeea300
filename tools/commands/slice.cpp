#include "plane.hpp"

#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "join_pieces.hpp"
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
    bool takes_pieces() const override { return true; }

  private:
    slice_plane chosen_plane() const;
    bool is_lattice(const input &in) const;
    vtkSmartPointer<vtkDataSet> slice_of(const input &in, const slice_plane &plane,
                                         const carried_arrays &carried) const;

    input_options file;
    std::string axis, origin, normal;
    std::optional<double> at;
    result_options result;
    with_options with;
};

slice::slice(CLI::App &app)
    : file(app, input_options::in_pieces::yes),
      result(app, "result: .vtp; .vti or .vtr of a mesh of that kind", result_options::drawn::yes),
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

bool slice::is_lattice(const input &in) const
{
    const bool lattice =
        !axis.empty() && result.ending() != ".vtp" && has_lattice_slices(*in.mesh, axis[0] - 'x');
    const std::string ending = in.mesh->kind == "uniform" ? ".vti" : ".vtr", asked = result.ending();
    if (!lattice && (asked == ".vti" || asked == ".vtr"))
        throw failure(file.path() + ": this slice is triangles, not a lattice of nodes, and goes into a .vtp",
                      exit_usage);
    if (lattice && asked != ending && !result.ends_in(""))
        throw failure(file.path() + ": is a " + in.mesh->kind + " mesh, and its slice goes into a " + ending +
                          " or .vtp",
                      exit_usage);
    return lattice;
}

// nullptr: another piece has it.
vtkSmartPointer<vtkDataSet> slice::slice_of(const input &in, const slice_plane &plane,
                                            const carried_arrays &carried) const
{
    if (!is_lattice(in))
        return without_marked_ghosts(
            in, slice_by_plane(file.path(), *in.mesh, plane, with_ghost_marks(in, carried)));
    const int across = axis[0] - 'x';
    if (in.ghost_cell.empty()) return slice_lattice(file.path(), *in.mesh, across, *at, carried);
    int own[6], whole[6];
    own_extent_of(in, own);
    auto flat = slice_lattice(file.path(), *in.mesh, across, *at, carried, own);
    if (flat == nullptr) return flat;
    extent_of(in.mesh->whole->lattice, whole);
    for (int d = 0; d < 3; ++d)
        for (int end = 0; end < 2; ++end)
            own[2 * d + end] = d == across ? 0 : own[2 * d + end] - whole[2 * d];
    return part_of_lattice(flat, own);
}

void slice::run()
{
    const slice_plane plane = chosen_plane();
    result.check(" .vtp .vti .vtr ", "a slice", file);
    pieces parts = file.split(result, {}, mesh_use::extract, piece_with::ghosts);
    piece_results made = result.results_of(parts);
    drawing picture;
    parts.each([&](const input &in) {
        const carried_arrays carried = with.choose(in);
        is_lattice(in); // or a word on the ending
        stage_done("read");

        if (const auto one = slice_of(in, plane, carried)) made.add(in, one);
        const auto &arrays = carried.node.empty() ? carried.cell : carried.node;
        if (!with.names().empty())
            picture.colour_by = with.names().front();
        else if (!arrays.empty())
            picture.colour_by = arrays.front().name;
        picture.colour_cells = find_array(carried.node, picture.colour_by) == nullptr;
        stage_done("compute");
    });
    made.join();
    if (made.nnodes() == 0) {
        const double *box = parts.whole().box;
        say_note("the plane misses the mesh, which is in the box " + in_words(box[0]) + " .. " +
                 in_words(box[1]) + ", " + in_words(box[2]) + " .. " + in_words(box[3]) + ", " +
                 in_words(box[4]) + " .. " + in_words(box[5]));
    }
    const std::string counts =
        std::to_string(made.ncells()) + " cells, " + std::to_string(made.nnodes()) + " nodes";
    result.write(made, parts, counts);
    result.draw(picture, made, parts, counts);
}

} // namespace

extern const command_entry slice_command{"slice", "Cuts a mesh by a plane", make_command<slice>};
