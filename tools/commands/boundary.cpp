#include "carry.hpp"
#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "progress.hpp"
#include "skin.hpp"

#include <vtkCellType.h>
#include <vtkDataSet.h>
#include <vtkPolyData.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <map>
#include <tuple>

namespace {

constexpr double usual_angle = 30; // degrees
constexpr double pi = 3.14159265358979323846;

class boundary : public command {
  public:
    explicit boundary(CLI::App &app);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    vtkSmartPointer<vtkPolyData> faces_of(const input &in, mesh_surface &surface) const;
    vtkSmartPointer<vtkPolyData> edges_of(const input &in, mesh_surface &surface,
                                          const operation &work) const;

    input_options file;
    with_options with;
    result_options result;
    std::optional<double> angle;
};

boundary::boundary(CLI::App &app)
    : file(app, input_options::in_pieces::yes), with(app),
      result(app, "result: .vtp, .stl or .ply", result_options::drawn::yes)
{
    app.add_option("--edges", angle,
                   "edges in place of faces: those of one cell, those where two cells meet at this angle or "
                   "more (degrees, 0 to 180; 30 for surfaces), and those of three cells or more");
    app.footer(
        "Of solids: the faces that no second cell has, turned outward; node arrays go along, and cell\n"
        "arrays by the cell of each face. Faces of second order come as triangles between their nodes.\n"
        "Of surfaces, and of solids with --edges: border and crease edges, and those where three faces\n"
        "or more meet; neighbours of opposite winding are turned the same way first.");
}

std::string count_of(int64_t n, const char *what)
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

vtkSmartPointer<vtkPolyData> handed_over(node_results *nodes, cell_results *cells,
                                         const std::vector<typed_array> &cell_arrays)
{
    auto made = vtkSmartPointer<vtkPolyData>::New();
    nodes->hand_over(made);
    cells->hand_over(made.Get(), cell_arrays);
    return made;
}

// Without those on cells of the layer around a piece: such a face lies on another piece, or inside of the mesh.
vtkSmartPointer<vtkPolyData> boundary::faces_of(const input &in, mesh_surface &surface) const
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
    std::vector<qx_long> cell_of = surface.tri_cell;
    cell_of.insert(cell_of.end(), surface.quad_cell.begin(), surface.quad_cell.end());
    cells.add(CELL_TRI, 1, ntri, as_list(surface.tri), std::move(surface.tri_cell));
    cells.add(CELL_QUAD, 1, nquad, as_list(surface.quad), std::move(surface.quad_cell));
    return vtkPolyData::SafeDownCast(without_ghosts(in, handed_over(&nodes, &cells, carried.cell), cell_of));
}

// Of an edge of cells of several pieces one piece tells: that of the cell at it whose middle comes first.
class edge_owners {
  public:
    edge_owners(const input &in_, const mesh_surface &surface) : in(in_)
    {
        if (in.ghost_cell.empty()) return;
        add(surface, surface.tri, surface.tri_cell, 3);
        add(surface, surface.quad, surface.quad_cell, 4);
    }
    bool is_own(qx_long a, qx_long b) const
    {
        const auto found = owners.find(std::minmax(a, b));
        return found == owners.end() || !found->second.is_ghost;
    }

  private:
    using place = std::array<double, 3>;
    struct owner {
        place middle;
        bool is_ghost;
    };

    void add(const mesh_surface &surface, const std::vector<qx_long> &rows,
             const std::vector<qx_long> &cell_of, size_t n)
    {
        for (size_t face = 0; face < cell_of.size(); ++face) {
            owner one = {{0, 0, 0}, in.ghost_cell[static_cast<size_t>(cell_of[face])] != 0};
            for (size_t k = 0; k < n; ++k) {
                double at[3];
                in.file.data->GetPoint(surface.nodes[static_cast<size_t>(rows[face * n + k])], at);
                for (size_t d = 0; d < 3; ++d)
                    one.middle[d] += at[d];
            }
            for (size_t k = 0; k < n; ++k) {
                const auto key = std::minmax({rows[face * n + k], rows[face * n + (k + 1) % n]});
                const auto [entry, is_new] = owners.try_emplace(key, one);
                const owner &before = entry->second;
                if (!is_new && std::tie(one.middle, one.is_ghost) < std::tie(before.middle, before.is_ghost))
                    entry->second = one;
            }
        }
    }

    const input &in;
    std::map<std::pair<qx_long, qx_long>, owner> owners;
};

vtkSmartPointer<vtkPolyData> boundary::edges_of(const input &in, mesh_surface &surface,
                                                const operation &work) const
{
    const carried_arrays carried = with.choose(in); // but for cell arrays: an edge is no cell's own
    std::vector<qx_long> all =
        feature_edges(*in.mesh, surface, angle.value_or(usual_angle) * pi / 180, work, file.path());
    const edge_owners owners(in, surface);
    std::vector<qx_long> edges;
    for (size_t i = 0; i < all.size(); i += 2)
        if (owners.is_own(all[i], all[i + 1])) edges.insert(edges.end(), {all[i], all[i + 1]});
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
    return handed_over(&nodes, &cells, {});
}

void boundary::run()
{
    if (angle && !(*angle >= 0 && *angle <= 180))
        throw failure("--edges takes an angle from 0 to 180 degrees", exit_usage);
    result.check(angle ? " .vtp " : " .vtp .stl .ply ", angle ? "lines are" : "a surface", file);
    pieces parts = file.split(result, {}, mesh_use::extract, piece_with::ghosts);
    piece_results made = result.results_of(parts);
    drawing picture;
    if (!with.names().empty()) picture.colour_by = with.names().front();
    bool edges = false;
    int64_t ntri = 0, nquad = 0;
    parts.each([&](const input &in) {
        stage_done("read");
        const int ndim = parts.whole().cell_ndim;
        if (ndim < 2) throw failure(file.path() + ": has neither solids nor surfaces, so it has no boundary");
        if (ndim == 2) result.check(" .vtp ", "lines are", file);
        if (in.mesh->cell_ndim() < ndim) return; // all cells of the piece are on others
        edges = ndim == 2 || angle.has_value();
        const operation work("boundary");
        mesh_surface surface =
            ndim == 3 ? faces_of_solids(*in.mesh, work, file.path()) : surface_cells(*in.mesh);
        const auto one = edges ? edges_of(in, surface, work) : faces_of(in, surface);
        for (vtkIdType cell = 0; !edges && cell < one->GetNumberOfCells(); ++cell)
            ++(one->GetCellType(cell) == VTK_TRIANGLE ? ntri : nquad);
        picture.colour_cells =
            !picture.colour_by.empty() && find_array(in.node, picture.colour_by) == nullptr;
        made.add(in, one);
        stage_done("compute");
    });
    made.join();
    ntri = processes::sum(ntri);
    nquad = processes::sum(nquad);
    const std::string counts = processes::any(edges)
                                   ? count_of(made.ncells(), "edges, ") + count_of(made.nnodes(), "nodes")
                                   : count_of(ntri, "triangles, ") + count_of(nquad, "quadrilaterals, ") +
                                         count_of(made.nnodes(), "nodes");
    result.write(made, parts, counts);
    result.draw(picture, made, parts, counts);
}

} // namespace

extern const command_entry boundary_command{
    "boundary", "External faces of solids, borders and creases of surfaces", make_command<boundary>};
