#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "height_mesh.hpp"
#include "options.hpp"
#include "parse.hpp"
#include "progress.hpp"

#include <skoklana/array.h>
#include <skoklana/measure.h>

#include <vtkCellArray.h>
#include <vtkDoubleArray.h>
#include <vtkImageData.h>
#include <vtkMatrix3x3.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>

namespace {

// A lattice of two axes in space, and the direction that heights rise in.
struct height_lattice {
    vtkDataSet *data;
    qx_long nx, ny;
    double up[3];
    bool turned_over; // its axes and that direction are left-handed
};

class terrain : public command {
  public:
    explicit terrain(CLI::App &app);
    void run() override;

  private:
    double bound(const std::vector<double> &heights) const;
    height_lattice lattice_of(const input &in) const;
    std::vector<double> heights_of(const input &in, const typed_array &array) const;
    height_triangles library_triangles(const height_lattice &lattice, const std::vector<double> &heights,
                                       double tolerance, std::vector<double> *at_vertices) const;
    vtkSmartPointer<vtkPolyData> surface(const height_lattice &lattice, const height_triangles &made,
                                         const std::vector<double> &at_vertices,
                                         const carried_arrays &carried, const std::string &name) const;

    input_options file;
    array_options array;
    with_options with;
    result_options result;
    std::string tolerance;
    double scale = 1;
    bool library = false;
};

terrain::terrain(CLI::App &app)
    : file(app), array(app, array_place::node, component_kind::length, false), with(app),
      result(app, "result: .vtp, .stl or .ply", result_options::drawn::yes)
{
    app.add_option("--tolerance,-t", tolerance,
                   "largest error at a node, in units of the array; with % a part of its range: 2%")
        ->required();
    app.add_option("--scale", scale, "raise the surface by the array times this number; 0 leaves it flat")
        ->check(finite_number())
        ->capture_default_str();
    app.add_flag("--library", library, "what UTILoptimize_surface makes of it, whatever its error");
    app.footer(
        "A height map, an image of two axes such as a .dem file, as triangles between some of its nodes.\n"
        "No node is further from the surface than the tolerance: the worst one becomes a vertex until that\n"
        "holds. The library's own reduction does not promise it and leaves more triangles; it is there to\n"
        "be looked at. Both are measured afterwards.\n"
        "\n"
        "  skoklana terrain mountain.dem --tolerance 10 --scale 2 -o mountain.stl\n"
        "  skoklana terrain heights.vti --array z --tolerance 1% -p mountain.png");
}

double terrain::bound(const std::vector<double> &heights) const
{
    std::string text = tolerance;
    const bool part = !text.empty() && text.back() == '%';
    if (part) text.pop_back();
    double value = parse_number("--tolerance", text);
    if (!(value >= 0) || !std::isfinite(value))
        throw failure("--tolerance: " + tolerance + " is below 0 or no number", exit_usage);
    if (part) {
        const auto [low, high] = std::minmax_element(heights.begin(), heights.end());
        value *= (*high - *low) / 100;
    }
    return value;
}

height_lattice terrain::lattice_of(const input &in) const
{
    auto *image = vtkImageData::SafeDownCast(in.file.data);
    int dims[3] = {0, 0, 0};
    if (image != nullptr) image->GetDimensions(dims);
    int axes[3], naxes = 0, flat = 2;
    for (int d = 0; d < 3; ++d)
        if (dims[d] > 1)
            axes[naxes++] = d;
        else
            flat = d;
    if (image == nullptr || naxes != 2)
        throw failure(file.path() +
                      ": is no height map; one is an image of two axes, with more than one node along each");
    height_lattice lattice = {image, dims[axes[0]], dims[axes[1]], {0, 0, 0}, flat == 1};
    vtkMatrix3x3 *direction = image->GetDirectionMatrix();
    for (int d = 0; d < 3; ++d)
        lattice.up[d] = direction->GetElement(d, flat);
    if (direction->Determinant() < 0) lattice.turned_over = !lattice.turned_over;
    for (int d = 0; d < 2; ++d)
        if (image->GetSpacing()[axes[d]] < 0) lattice.turned_over = !lattice.turned_over;
    return lattice;
}

std::vector<double> terrain::heights_of(const input &in, const typed_array &of) const
{
    const scalar_array scalar = array.scalar(in, of);
    std::vector<double> heights;
    heights.reserve(static_cast<size_t>(scalar.array.count));
    with_values(of.veclen == 1 ? of : scalar.array, [&](const auto *values) {
        for (qx_long node = 0; node < scalar.array.count; ++node)
            heights.push_back(static_cast<double>(values[node]));
    });
    const auto lost =
        std::find_if(heights.begin(), heights.end(), [](double h) { return !std::isfinite(h); });
    if (lost != heights.end())
        throw failure(file.path() + ": node " + std::to_string(lost - heights.begin()) + " of " + of.name +
                      " has no height; a height map has one at every node");
    return heights;
}

struct list_freed {
    void operator()(void *list) const { free(list); }
};

height_triangles terrain::library_triangles(const height_lattice &lattice, const std::vector<double> &heights,
                                            double bound_of_error, std::vector<double> *at_vertices) const
{
    const qx_long dims[2] = {lattice.nx, lattice.ny};
    const float points[4] = {0, 0, static_cast<float>(lattice.nx - 1), static_cast<float>(lattice.ny - 1)};
    qx_long ncoords = 0, ntris = 0, *connect = nullptr;
    float *coords = nullptr;
    void *values = nullptr;
    const operation work("terrain");
    work.check(UTILoptimize_surface(dims, 2, points, DTYPE_DOUBLE, heights.data(), bound_of_error, &ncoords,
                                    &coords, &ntris, &connect, &values) == 1,
               file.path() + ": could not be reduced");
    const std::unique_ptr<void, list_freed> kept[3] = {std::unique_ptr<void, list_freed>(coords),
                                                       std::unique_ptr<void, list_freed>(connect),
                                                       std::unique_ptr<void, list_freed>(values)};
    height_triangles made;
    for (qx_long v = 0; v < ncoords; ++v)
        made.nodes.push_back(std::llround(coords[2 * v + 1]) * lattice.nx + std::llround(coords[2 * v]));
    for (qx_long t = 0; t < ntris; ++t)
        made.corners.push_back({static_cast<int>(connect[3 * t]), static_cast<int>(connect[3 * t + 1]),
                                static_cast<int>(connect[3 * t + 2])});
    at_vertices->assign(static_cast<double *>(values), static_cast<double *>(values) + ncoords);
    return made;
}

vtkSmartPointer<vtkPolyData> terrain::surface(const height_lattice &lattice, const height_triangles &made,
                                              const std::vector<double> &at_vertices,
                                              const carried_arrays &carried, const std::string &name) const
{
    const auto nvertices = static_cast<vtkIdType>(made.nodes.size());
    vtkNew<vtkPoints> points;
    points->SetNumberOfPoints(nvertices);
    for (vtkIdType v = 0; v < nvertices; ++v) {
        double x[3];
        lattice.data->GetPoint(made.nodes[static_cast<size_t>(v)], x);
        for (int d = 0; d < 3; ++d)
            x[d] += lattice.up[d] * scale * at_vertices[static_cast<size_t>(v)];
        points->SetPoint(v, x);
    }
    vtkNew<vtkCellArray> cells;
    for (const std::array<int, 3> &corners : made.corners) {
        const vtkIdType row[3] = {corners[0], corners[lattice.turned_over ? 2 : 1],
                                  corners[lattice.turned_over ? 1 : 2]};
        cells->InsertNextCell(3, row);
    }
    auto data = vtkSmartPointer<vtkPolyData>::New();
    data->SetPoints(points);
    data->SetPolys(cells);
    for (const typed_array &from : carried.node) {
        const typed_array to = like(from, nvertices);
        UTILcopy_array_list(from.count, from.veclen, from.type, from.values, nvertices, made.nodes.data(),
                            to.values);
        if (library && from.name == name && from.veclen == 1)
            for (vtkIdType v = 0; v < nvertices; ++v) // edges have heights of their own there
                to.kept->SetTuple1(v, at_vertices[static_cast<size_t>(v)]);
        data->GetPointData()->AddArray(to.kept);
    }
    return data;
}

void terrain::run()
{
    result.check(" .vtp .stl .ply ", "a surface");
    const input in = file.read();
    const height_lattice lattice = lattice_of(in);
    const chosen_array of = array.choose(in);
    carried_arrays carried = with.choose(in);
    const std::vector<double> heights = heights_of(in, of.array);
    const double most = bound(heights);
    stage_done("read");

    const height_map map = {lattice.nx, lattice.ny, heights.data()};
    std::vector<double> at_vertices;
    height_triangles made;
    if (library) {
        made = library_triangles(lattice, heights, most, &at_vertices);
    } else {
        made = fit_heights(map, most, [] { stop_if_asked(); });
        for (const int64_t node : made.nodes)
            at_vertices.push_back(heights[static_cast<size_t>(node)]);
    }
    const height_error error = error_of(map, made, at_vertices);
    if (error.uncovered > 0)
        say_note(std::to_string(error.uncovered) + " nodes have no triangle over or under them");
    const vtkSmartPointer<vtkPolyData> data = surface(lattice, made, at_vertices, carried, of.array.name);
    stage_done("compute");

    const qx_long full = 2 * (lattice.nx - 1) * (lattice.ny - 1);
    const auto ntris = static_cast<qx_long>(made.corners.size());
    const std::string counts = std::to_string(ntris) + " triangles, " +
                               in_words(100 * static_cast<double>(ntris) / static_cast<double>(full)) +
                               " % of the grid's " + std::to_string(full) + ", " +
                               std::to_string(made.nodes.size()) + " nodes, largest error " +
                               in_words(error.largest);
    result.write(data, counts);
    if (!result.pictured()) return;
    drawing what = {};
    what.data = data;
    if (data->GetPointData()->HasArray(of.array.name.c_str()) != 0) what.colour_by = of.array.name;
    data->GetBounds(what.box);
    result.draw(what, counts);
}

} // namespace

extern const command_entry terrain_command{
    "terrain", "A height map as few triangles, with a bound on the error", make_command<terrain>};
