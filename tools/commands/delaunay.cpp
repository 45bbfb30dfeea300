#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "finite_points.hpp"
#include "options.hpp"
#include "tesselate.hpp"

#include <vtkCellArray.h>
#include <vtkDataSet.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkTypeInt64Array.h>
#include <vtkUnstructuredGrid.h>

#include <string>

namespace {

class delaunay : public command {
  public:
    explicit delaunay(CLI::App &app);
    void run() override;

  private:
    int axes_of(const std::vector<float> &xyz) const;

    input_options file;
    bool flat = false, solid = false, own_box = false;
    with_options with;
    result_options result;
};

delaunay::delaunay(CLI::App &app)
    : file(app, input_options::points_too::yes),
      with(app, "carry only this array along, and colour the picture by it; may be repeated"),
      result(app, "result: .vtu, .vtp or .stl; of tetrahedra, .vtp and .stl have the outside",
             result_options::drawn::yes)
{
    app.footer("\nTriangles are made by x and y, and z is kept. In files that hold triangles alone, "
               "tetrahedra are told by their\n"
               "outside. Of points at the same place one gets the cells; all points and their arrays are in "
               "the result.\n\n"
               "Examples:\n"
               "  skoklana delaunay wells.csv -o wells.vtp --picture wells.png\n"
               "  skoklana delaunay stations.csv --columns lon,lat,height --2d -o land.stl\n"
               "  skoklana delaunay cloud.xyz -o cloud.vtu");
    auto *two =
        app.add_flag("--2d", flat, "triangles by x and y; z is kept (the default where all z are equal)");
    app.add_flag("--3d", solid, "tetrahedra (the default where they are not)")->excludes(two);
    app.add_flag("--library", own_box,
                 "hand the library the points' own box; then thin cells at the rim are missing");
}

int delaunay::axes_of(const std::vector<float> &xyz) const
{
    if (flat || solid) return flat ? 2 : 3;
    for (size_t i = 5; i < xyz.size(); i += 3)
        if (xyz[i] != xyz[2]) return 3;
    return 2;
}

vtkSmartPointer<vtkCellArray> cells_of(const std::vector<qx_long> &rows, int length,
                                       const std::vector<qx_long> &in_file)
{
    vtkNew<vtkTypeInt64Array> list;
    list->SetNumberOfValues(static_cast<vtkIdType>(rows.size()));
    for (size_t i = 0; i < rows.size(); ++i)
        list->SetValue(static_cast<vtkIdType>(i), in_file[static_cast<size_t>(rows[i])]);
    auto cells = vtkSmartPointer<vtkCellArray>::New();
    cells->SetData(length, list);
    return cells;
}

// All points of the file, at their places, with the arrays.
void give_points(vtkDataSet *from, const std::vector<typed_array> &arrays, vtkPointSet *to)
{
    vtkNew<vtkPoints> points;
    const auto *set = vtkPointSet::SafeDownCast(from);
    points->SetDataType(set != nullptr ? const_cast<vtkPointSet *>(set)->GetPoints()->GetDataType()
                                       : VTK_FLOAT);
    points->SetNumberOfPoints(from->GetNumberOfPoints());
    for (vtkIdType i = 0; i < from->GetNumberOfPoints(); ++i)
        points->SetPoint(i, from->GetPoint(i));
    to->SetPoints(points);
    for (const typed_array &array : arrays)
        to->GetPointData()->AddArray(array.kept);
}

std::string percent(double share)
{
    return in_words(100 * share) + " %";
}

void tell_what_is_missing(const tesselation &made, const std::vector<float> &xyz)
{
    const missing_part missing = missing_from_hull(made, xyz);
    if (missing.overlaps)
        say_note("triangles overlap: points are closer together than can be told in a box of this size");
    if (!missing.any()) return;
    const bool flat = made.ndim == 2;
    std::string note = std::string("the ") + (flat ? "outline" : "outside") + " is not the convex hull: ";
    note += std::to_string(missing.dents) + (flat ? " corners" : " edges") + " bend inwards, " +
            std::to_string(missing.points) + " points are outside or on the rim; about " +
            percent(missing.share) + (flat ? " of its area" : " of its volume") + " is missing";
    say_note(note);
}

void delaunay::run()
{
    result.check(" .vtu .vtp .stl ", "a tesselation");
    const input in = file.points();
    const carried_arrays carried = with.choose(in);
    const finite_points points = finite_points_of(in.file.data, [](qx_long) { return true; });
    const auto all = static_cast<int64_t>(in.file.data->GetNumberOfPoints());
    if (points.count() < all)
        say_note("left out for coordinates that are no numbers: " + std::to_string(all - points.count()) +
                 " of " + std::to_string(all) + " points");
    const int ndim = axes_of(points.xyz);
    if (points.count() < ndim + 1)
        throw failure(file.path() + ": at least " + std::to_string(ndim + 1) + " points make " +
                      (ndim == 2 ? "a triangle" : "a tetrahedron") + "; it has " +
                      std::to_string(points.count()));
    stage_done("read");

    const tesselation made = tesselate_points(file.path(), ndim, points.xyz,
                                              own_box ? tesselated_in::own_box : tesselated_in::large_box);
    if (is_flat(made, points.xyz))
        throw failure(file.path() + ": its points are " +
                      (ndim == 2 ? "on one line of x and y, and make no triangles"
                                 : "in one plane, and make no tetrahedra; --2d makes triangles by x and y"));
    vtkNew<vtkUnstructuredGrid> grid;
    vtkNew<vtkPolyData> surface;
    give_points(in.file.data, carried.node, grid);
    give_points(in.file.data, carried.node, surface);
    grid->SetCells(ndim == 2 ? VTK_TRIANGLE : VTK_TETRA, cells_of(made.cells, ndim + 1, points.rows));
    surface->SetPolys(cells_of(ndim == 2 ? made.cells : outside_of(made), 3, points.rows));
    stage_done("compute");

    std::string counts = std::to_string(made.count()) + (ndim == 2 ? " triangles, " : " tetrahedra, ") +
                         std::to_string(all) + " points";
    if (made.doubled > 0) counts += ", " + std::to_string(made.doubled) + " doubled";
    if (made.skipped > 0) counts += ", " + std::to_string(made.skipped) + " skipped";
    tell_what_is_missing(made, points.xyz);
    result.write(result.ends_in(".vtu") ? static_cast<vtkDataSet *>(grid) : surface, counts);
    if (!result.pictured()) return;
    drawing picture;
    picture.data = surface;
    picture.sides = made.count() <= 20000; // beyond that they hide the colours
    for (const std::string &name : with.names())
        if (picture.colour_by.empty() && find_array(carried.node, name) != nullptr) picture.colour_by = name;
    if (picture.colour_by.empty() && !carried.node.empty()) picture.colour_by = carried.node.front().name;
    surface->GetCellsBounds(picture.box);
    result.draw(picture, counts);
}

} // namespace

extern const command_entry delaunay_command{"delaunay", "Makes triangles or tetrahedra out of points",
                                            make_command<delaunay>};
