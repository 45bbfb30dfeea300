// A plane is the level 0 of the distance to it. Nodes in the plane count as above it, so that a side of a
// cell in the plane comes from the cell below it; where no cell is below, its nodes are moved below by next
// to nothing, and it comes from the cell above.
//
// Across an axis of a uniform or rectilinear mesh the library gives the slice as a lattice. A uniform mesh is
// asked in steps of its nodes, where the last layer is met exactly.
#include "plane.hpp"

#include "carry.hpp"
#include "console.hpp"
#include "extract.hpp"
#include "failure.hpp"
#include "join_pieces.hpp"
#include "to_vtk.hpp"

#include <skoklana/iso.h>

#include <vtkCellData.h>
#include <vtkDataSet.h>
#include <vtkDoubleArray.h>
#include <vtkImageData.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkRectilinearGrid.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace {

// ---- any plane --------------------------------------------------------------------------------------------

// That of the whole, of which the mesh may be a piece.
void box_of(const input_mesh &mesh, double *box)
{
    if (mesh.whole != nullptr)
        std::copy_n(mesh.whole->box, 6, box);
    else
        mesh.data->GetBounds(box);
}

// The distance of each node, 0 within the rounding of the coordinates.
std::vector<double> distances_to(const slice_plane &plane, const input_mesh &mesh)
{
    std::vector<double> distance(static_cast<size_t>(mesh.nnodes));
    const double length = std::hypot(plane.normal[0], plane.normal[1], plane.normal[2]);
    double box[6], largest = 0;
    box_of(mesh, box);
    for (int i = 0; i < 6; ++i) {
        largest = std::max(largest, std::fabs(box[i] - mesh.offset[i / 2]));
        if (plane.normal[i / 2] != 0) // else it is anywhere
            largest = std::max(largest, std::fabs(plane.origin[i / 2] - mesh.offset[i / 2]));
    }
    const double rounding = 2 * largest * static_cast<double>(std::numeric_limits<float>::epsilon());
    for (size_t node = 0; node < distance.size(); ++node) {
        double at[3], &d = distance[node];
        mesh.data->GetPoint(static_cast<vtkIdType>(node), at);
        for (int k = 0; k < 3; ++k)
            d += (at[k] - plane.origin[k]) * (plane.normal[k] / length);
        if (std::fabs(d) <= rounding) d = 0;
    }
    return distance;
}

// Moves nodes in the plane that no cell below it has.
void close_lower_rim(const input_mesh &mesh, std::vector<double> *distance)
{
    constexpr double next_to_nothing = 1e-300;
    const auto at = [&](qx_long node) -> double & { return (*distance)[static_cast<size_t>(node)]; };
    std::vector<char> has_below(distance->size());
    mesh.each_cell([&](const qx_long *nodes, int count) {
        const bool below = std::any_of(nodes, nodes + count, [&](qx_long node) { return at(node) < 0; });
        for (int i = 0; i < count && below; ++i)
            has_below[static_cast<size_t>(nodes[i])] = 1;
    });
    for (size_t node = 0; node < distance->size(); ++node)
        if ((*distance)[node] == 0 && has_below[node] == 0) (*distance)[node] = -next_to_nothing;
}

// ---- across an axis of a lattice --------------------------------------------------------------------------

// Where a layer of nodes is made: from two nodes of the mesh each.
struct layer_nodes {
    std::vector<qx_long> a, b;
    std::vector<float> t;
    qx_long below; // the layer of the mesh below it
    bool inside;   // the mesh has it, which is a piece else
};

// The axis of the whole, of which the mesh may be a piece: its nodes, and which of them the mesh begins with.
struct whole_axis {
    qx_long count, first = 0;
    std::vector<float> places; // of rectilinear meshes
};

whole_axis axis_of(const input_mesh &mesh, int axis)
{
    whole_axis of = {mesh.dims[static_cast<size_t>(axis)], 0, mesh.axes[axis]};
    if (mesh.whole == nullptr) return of;
    int all[6], part[6];
    extent_of(mesh.whole->lattice, all);
    extent_of(mesh.data, part);
    of.count = all[2 * axis + 1] - all[2 * axis] + 1;
    of.first = part[2 * axis] - all[2 * axis];
    auto *grid = vtkRectilinearGrid::SafeDownCast(mesh.whole->lattice);
    if (grid == nullptr) return of;
    vtkDataArray *places = axis == 0   ? grid->GetXCoordinates()
                           : axis == 1 ? grid->GetYCoordinates()
                                       : grid->GetZCoordinates();
    of.places.clear();
    for (vtkIdType i = 0; i < places->GetNumberOfTuples(); ++i)
        of.places.push_back(static_cast<float>(places->GetComponent(i, 0) - mesh.offset[axis]));
    return of;
}

// Positions of nodes along the axes as the library takes them: rows of three.
std::vector<float> positions_along(const input_mesh &mesh, int axis, const whole_axis &across)
{
    std::vector<float> rows;
    if (mesh.kind == "uniform") { // in steps
        rows.resize(6);
        for (int d = 0; d < 3; ++d)
            rows[3 + static_cast<size_t>(d)] =
                static_cast<float>((d == axis ? across.count : mesh.dims[static_cast<size_t>(d)]) - 1);
        return rows;
    }
    for (int d = 0; d < 3; ++d)
        for (const float position : d == axis ? across.places : mesh.axes[d]) {
            float row[3] = {};
            row[d] = position;
            rows.insert(rows.end(), row, row + 3);
        }
    return rows;
}

layer_nodes layer_at(const std::string &path, input_mesh &mesh, int axis, double at, const int *own_extent)
{
    double box[6];
    box_of(mesh, box);
    const double lo = box[2 * axis], hi = box[2 * axis + 1];
    const bool is_uniform = mesh.kind == "uniform";
    const whole_axis across = axis_of(mesh, axis);
    double place = at - mesh.offset[axis];
    if (is_uniform) place = (at - lo) / (hi - lo) * static_cast<double>(across.count - 1);
    const std::vector<float> points = positions_along(mesh, axis, across);
    qx_long all_dims[3] = {mesh.dims[0], mesh.dims[1], mesh.dims[2]};
    all_dims[axis] = across.count;
    std::vector<float> out_points(static_cast<size_t>(3 * (all_dims[0] + all_dims[1] + all_dims[2])));
    float normal[3] = {}, xform[16], *weight = nullptr;
    normal[axis] = 1;
    qx_long dims[2], *lower = nullptr, *upper = nullptr;
    unsigned char *valid = nullptr;
    const auto slice = is_uniform ? UTILrslice_unif : UTILrslice_rect;
    const qx_long count = slice(all_dims, points.data(), normal, place, dims, out_points.data(), 3, xform,
                                &lower, &upper, &weight, &valid);
    const owned_list lo_node(lower), hi_node(upper);
    const owned<float> part(weight);
    const owned<unsigned char> marks(valid);
    if (lower == nullptr) throw failure(path + ": no memory for a slice");
    if (count == 0)
        throw failure(path + ": runs from " + in_words(lo) + " to " + in_words(hi) + " along " + "xyz"[axis] +
                      ", and " + in_words(at) + " is outside");

    // Across y the library has z first; VTK has x first.
    const bool turned = axis == 1;
    const qx_long along = turned ? dims[1] : dims[0], rows = turned ? dims[0] : dims[1];
    layer_nodes layer;
    qx_long stride = 1; // of the axis
    for (int d = 0; d < axis; ++d)
        stride *= all_dims[d];
    const qx_long below = lo_node[0] / stride % across.count;
    layer.below = below - across.first;
    layer.inside = layer.below >= 0 && layer.below + 1 < mesh.dims[static_cast<size_t>(axis)];
    if (own_extent != nullptr) {
        int all[6];
        extent_of(mesh.whole->lattice, all);
        layer.inside =
            below + all[2 * axis] >= own_extent[2 * axis] && below + all[2 * axis] < own_extent[2 * axis + 1];
    }
    if (!layer.inside) return layer;
    // numbers of nodes in the whole along the axis become those of the mesh
    const qx_long own = mesh.dims[static_cast<size_t>(axis)];
    const auto number = [&](qx_long node) {
        const qx_long k = node / stride % across.count, above = node / stride / across.count;
        return node % stride + stride * (k - across.first + own * above);
    };
    for (qx_long j = 0; j < rows; ++j)
        for (qx_long i = 0; i < along; ++i) {
            const auto from = static_cast<size_t>(turned ? j + dims[0] * i : i + dims[0] * j);
            const bool at_upper = part[from] == 1; // exactly
            layer.a.push_back(number(at_upper ? hi_node[from] : lo_node[from]));
            layer.b.push_back(number(hi_node[from]));
            layer.t.push_back(at_upper ? 0 : part[from]);
        }
    return layer;
}

// The cells of the mesh that the layer runs through, in the order of its own cells.
std::vector<qx_long> cells_of_layer(const input_mesh &mesh, int axis, qx_long below)
{
    qx_long from[3] = {}, to[3];
    for (int d = 0; d < 3; ++d)
        to[d] = mesh.dims[static_cast<size_t>(d)] - 1;
    from[axis] = below;
    to[axis] = below + 1;
    std::vector<qx_long> cells;
    for (qx_long k = from[2]; k < to[2]; ++k)
        for (qx_long j = from[1]; j < to[1]; ++j)
            for (qx_long i = from[0]; i < to[0]; ++i)
                cells.push_back(i + (mesh.dims[0] - 1) * (j + (mesh.dims[1] - 1) * k));
    return cells;
}

vtkSmartPointer<vtkDataSet> flat_mesh(const input_mesh &mesh, int axis, double at)
{
    int part[6]; // within the whole
    for (int d = 0; d < 3; ++d) {
        const auto first = static_cast<int>(axis_of(mesh, d).first);
        part[2 * d] = d == axis ? 0 : first;
        part[2 * d + 1] = d == axis ? 0 : first + static_cast<int>(mesh.dims[static_cast<size_t>(d)]) - 1;
    }
    if (mesh.kind == "uniform") {
        double box[6];
        box_of(mesh, box);
        box[2 * axis] = box[2 * axis + 1] = at;
        qx_long dims[3];
        for (int d = 0; d < 3; ++d)
            dims[d] = d == axis ? 1 : axis_of(mesh, d).count;
        const double lo[3] = {box[0], box[2], box[4]}, hi[3] = {box[1], box[3], box[5]};
        auto flat = lattice_to_vtk(dims, lo, hi);
        vtkImageData::SafeDownCast(flat)->SetExtent(part);
        return flat;
    }
    auto flat = vtkSmartPointer<vtkRectilinearGrid>::New();
    auto *grid = vtkRectilinearGrid::SafeDownCast(mesh.data);
    auto place = vtkSmartPointer<vtkDoubleArray>::New();
    place->InsertNextValue(at);
    flat->SetExtent(part);
    flat->SetXCoordinates(axis == 0 ? place.Get() : grid->GetXCoordinates());
    flat->SetYCoordinates(axis == 1 ? place.Get() : grid->GetYCoordinates());
    flat->SetZCoordinates(axis == 2 ? place.Get() : grid->GetZCoordinates());
    return flat;
}

} // namespace

vtkSmartPointer<vtkPolyData> slice_by_plane(const std::string &path, input_mesh &mesh,
                                            const slice_plane &plane, const carried_arrays &carried)
{
    std::vector<double> distance = distances_to(plane, mesh);
    if (std::find(distance.begin(), distance.end(), 0.0) != distance.end()) close_lower_rim(mesh, &distance);
    scalar_array scalar;
    scalar.array.type = DTYPE_DOUBLE;
    scalar.array.count = mesh.nnodes;
    scalar.array.values = distance.data();
    return extract_levels(path, mesh, level_kind::surfaces, scalar, {0}, carried, false).data;
}

bool has_lattice_slices(const input_mesh &mesh, int axis)
{
    return (mesh.kind == "uniform" || mesh.kind == "rectilinear") && mesh.ndim == 3 &&
           mesh.dims[static_cast<size_t>(axis)] > 1;
}

vtkSmartPointer<vtkDataSet> slice_lattice(const std::string &path, input_mesh &mesh, int axis, double at,
                                          const carried_arrays &carried, const int *own)
{
    const layer_nodes layer = layer_at(path, mesh, axis, at, own);
    if (!layer.inside) return nullptr;
    auto flat = flat_mesh(mesh, axis, at);
    std::vector<typed_array> made;
    if (!rows_between(carried.node, static_cast<qx_long>(layer.a.size()), layer.a.data(), layer.b.data(),
                      layer.t.data(), &made))
        throw failure(path + ": arrays could not be carried onto the slice");
    for (const typed_array &array : made)
        flat->GetPointData()->AddArray(array.kept);
    for (const typed_array &array : rows_of(carried.cell, cells_of_layer(mesh, axis, layer.below)))
        flat->GetCellData()->AddArray(array.kept);
    return flat;
}
