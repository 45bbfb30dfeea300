#include "carry.hpp"
#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "progress.hpp"
#include "skin.hpp"

#include <vtkNew.h>
#include <vtkPolyData.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace {

constexpr double usual_angle = 30; // degrees
constexpr double pi = 3.14159265358979323846;

class boundary : public command {
  public:
    explicit boundary(CLI::App &app);
    void run() override;

  private:
    void write_faces(const input &in, mesh_surface &surface) const;
    void write_edges(const input &in, const mesh_surface &surface, const operation &work) const;
    void finish(const input &in, node_results *nodes, cell_results *cells, const carried_arrays &carried,
                const std::string &counts) const;

    input_options file;
    with_options with;
    result_options result;
    std::optional<double> angle;
};

boundary::boundary(CLI::App &app)
    : file(app), with(app), result(app, "result: .vtp, .stl or .ply", result_options::drawn::yes)
{
    app.add_option(
        "--edges", angle,
        "edges in place of faces: those of one cell, and those where two cells meet at this angle or "
        "more (degrees, 0 to 180; 30 for surfaces)");
    app.footer(
        "Of solids: the faces that no second cell has, turned outward; node arrays go along, and cell\n"
        "arrays by the cell of each face. Faces of second order come as triangles between their nodes.\n"
        "Of surfaces, and of solids with --edges: border and crease edges; neighbours of opposite\n"
        "winding are turned the same way first.");
}

std::string count_of(size_t n, const char *what)
{
    return std::to_string(n) + " " + what;
}

owned_list as_list(const std::vector<qx_long> &numbers)
{
    owned_list list(static_cast<qx_long *>(malloc(std::max<size_t>(numbers.size(), 1) * sizeof(qx_long))));
    if (list == nullptr) throw std::bad_alloc();
    std::copy(numbers.begin(), numbers.end(), list.get());
    return list;
}

void boundary::finish(const input &in, node_results *nodes, cell_results *cells,
                      const carried_arrays &carried, const std::string &counts) const
{
    vtkNew<vtkPolyData> made;
    nodes->hand_over(made);
    cells->hand_over(made.Get(), carried.cell);
    stage_done("compute");
    result.write(made, counts);
    if (!result.pictured()) return;
    drawing what = {};
    what.data = made.Get();
    if (!with.names().empty()) {
        what.colour_by = with.names().front();
        what.colour_cells = find_array(in.node, what.colour_by) == nullptr;
    }
    in.file.data->GetBounds(what.box);
    result.draw(what, counts);
}

void boundary::write_faces(const input &in, mesh_surface &surface) const
{
    const carried_arrays carried = with.choose(in);
    if (!result.takes_quadrilaterals()) cut_into_triangles(&surface);
    const auto nnodes = static_cast<qx_long>(surface.nodes.size());
    node_results nodes(*in.mesh, carried.node, nnodes);
    if (!nodes.add(nnodes, surface.nodes.data()))
        throw failure(file.path() + ": its nodes could not be read");
    cell_results cells;
    const auto ntri = static_cast<qx_long>(surface.tri_cell.size());
    const auto nquad = static_cast<qx_long>(surface.quad_cell.size());
    cells.add(CELL_TRI, 1, ntri, as_list(surface.tri), std::move(surface.tri_cell));
    cells.add(CELL_QUAD, 1, nquad, as_list(surface.quad), std::move(surface.quad_cell));
    const std::string counts = std::to_string(ntri) + " triangles, " + std::to_string(nquad) +
                               " quadrilaterals, " + std::to_string(nnodes) + " nodes";
    finish(in, &nodes, &cells, carried, counts);
}

void boundary::write_edges(const input &in, const mesh_surface &surface, const operation &work) const
{
    carried_arrays carried = with.choose(in);
    carried.cell.clear(); // an edge is no cell's own
    std::vector<qx_long> edges =
        feature_edges(*in.mesh, surface, angle.value_or(usual_angle) * pi / 180, work, file.path());
    std::vector<qx_long> used = edges;
    std::sort(used.begin(), used.end());
    used.erase(std::unique(used.begin(), used.end()), used.end());
    for (qx_long &node : edges)
        node = std::lower_bound(used.begin(), used.end(), node) - used.begin();
    for (qx_long &node : used)
        node = surface.nodes[static_cast<size_t>(node)];
    const auto nnodes = static_cast<qx_long>(used.size());
    node_results nodes(*in.mesh, carried.node, nnodes);
    if (!nodes.add(nnodes, used.data())) throw failure(file.path() + ": its nodes could not be read");
    cell_results cells;
    cells.add(CELL_LINE, 1, static_cast<qx_long>(edges.size() / 2), as_list(edges), {});
    finish(in, &nodes, &cells, carried,
           count_of(edges.size() / 2, "edges, ") + count_of(used.size(), "nodes"));
}

void boundary::run()
{
    if (angle && !(*angle >= 0 && *angle <= 180))
        throw failure("--edges takes an angle from 0 to 180 degrees", exit_usage);
    result.check(angle ? " .vtp " : " .vtp .stl .ply ", angle ? "lines are" : "a surface");
    const input in = file.load(mesh_use::extract);
    stage_done("read");
    const int ndim = in.mesh->cell_ndim();
    if (ndim < 2) throw failure(file.path() + ": has neither solids nor surfaces, so it has no boundary");
    if (ndim == 2) result.check(" .vtp ", "lines are");
    const operation work("boundary");
    mesh_surface surface = ndim == 3 ? faces_of_solids(*in.mesh, work, file.path()) : surface_cells(*in.mesh);
    if (ndim == 3 && !angle)
        write_faces(in, surface);
    else
        write_edges(in, surface, work);
}

} // namespace

extern const command_entry boundary_command{
    "boundary", "External faces of solids, borders and creases of surfaces", make_command<boundary>};
