// VTK data sets as meshes of the library.
//
// Images, rectilinear and structured grids become the structured kinds where those can say the same: lattices
// with blanked cells become cell sets of the visible cells, and lattices that no compact description fits
// (turned images, descending axes, flat along another axis than the last) become curvilinear.
//
// All else becomes cell sets, one for each kind and order. Float coordinates and connect lists of one kind in
// the same node order are VTK's own arrays. Cells that have no kind here are split by VTK into simplices over
// their own nodes; cells of no dimension are left out. Solid cells whose nodes turn the other way are turned
// round, so that surfaces of all cells agree on their sides: VTK's texts and its shape functions disagree on
// prisms, and files follow either.
#include "mesh_from_vtk.hpp"

#include "arrays.hpp"
#include "cell_order.hpp"
#include "crash_guard.hpp"
#include "failure.hpp"

#include <skoklana/cell.h>

#include <vtkBoundingBox.h>
#include <vtkCell.h>
#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkCellType.h>
#include <vtkDataArray.h>
#include <vtkDataSetAttributes.h>
#include <vtkGenericCell.h>
#include <vtkIdList.h>
#include <vtkImageData.h>
#include <vtkMatrix3x3.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPointSet.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkRectilinearGrid.h>
#include <vtkStructuredGrid.h>
#include <vtkUnsignedCharArray.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <map>

const char *name_of_kind(int kind)
{
    static const char *const names[] = {"lines",    "triangles", "quadrilaterals", "tetrahedra",
                                        "pyramids", "prisms",    "hexahedra"};
    return names[kind];
}

int input_mesh::cell_ndim() const
{
    int highest = ndim;
    for (const input_set &set : sets)
        highest = std::max(highest, cell_kinds[set.kind].ndim);
    return highest;
}

void input_mesh::vtk_cells(size_t set, qx_long count, const qx_long *local, std::vector<qx_long> *to) const
{
    to->reserve(to->size() + static_cast<size_t>(count));
    for (qx_long i = 0; i < count; ++i)
        to->push_back(vtk_cell(set, local[i]));
}

int input_mesh::kind_of_set(size_t set) const
{
    static const int lattice_kinds[] = {CELL_LINE, CELL_LINE, CELL_QUAD, CELL_HEX};
    return structured() ? lattice_kinds[ndim] : sets[set].kind;
}

std::string input_mesh::size_in_words() const
{
    std::string words;
    if (structured()) {
        for (const qx_long dim : dims)
            words += (words.empty() ? "" : " x ") + std::to_string(dim);
        return words + " nodes";
    }
    for (const input_set &set : sets)
        words += (words.empty() ? "" : ", ") + std::to_string(set.ncells) +
                 (set.order == 2 ? " second-order " : " ") + name_of_kind(set.kind);
    return words.empty() ? "no cells" : words;
}

// ---- coordinates --------------------------------------------------------------------------------------------

// The precision of coordinates that is promised without a word, relative to the mesh's size, and what is worth
// a shift.
static const double told_rounding = 1e-5, shifted_rounding = 1e-6;

// How far the mesh goes, of which a piece may be a small part.
static double size_of(const input_mesh *mesh)
{
    return mesh->whole != nullptr ? vtkBoundingBox(mesh->whole->box).GetDiagonalLength()
                                  : mesh->data->GetLength();
}

// Tells of coordinates that float cannot hold.
static void note_rounding(input_mesh *mesh, double worst)
{
    const double size = size_of(mesh);
    if (worst <= told_rounding * size) return;
    char text[100];
    snprintf(text, sizeof text, "coordinates are rounded to float, by up to %.3g; the mesh is %.3g across",
             worst, size);
    mesh->notes.push_back(text);
}

// Puts the middle of the mesh at 0.
static void shift(input_mesh *mesh)
{
    char text[200];
    if (mesh->whole != nullptr)
        vtkBoundingBox(mesh->whole->box).GetCenter(mesh->offset);
    else
        mesh->data->GetCenter(mesh->offset);
    snprintf(text, sizeof text,
             "float cannot hold the coordinates apart; worked on around %.9g, %.9g, %.9g and shifted back",
             mesh->offset[0], mesh->offset[1], mesh->offset[2]);
    mesh->notes.push_back(text);
}

static const float *float_positions(vtkDataSet *data)
{
    auto *points = vtkPointSet::SafeDownCast(data);
    vtkDataArray *array = points != nullptr ? points->GetPoints()->GetData() : nullptr;
    const bool held =
        array != nullptr && array->GetDataType() == VTK_FLOAT && array->HasStandardMemoryLayout();
    return held ? static_cast<float *>(array->GetVoidPointer(0)) : nullptr;
}

double rounding_of(vtkDataSet *data)
{
    double worst = 0, xyz[3];
    if (float_positions(data) != nullptr) return 0;
    for (vtkIdType node = 0; node < data->GetNumberOfPoints(); ++node) {
        data->GetPoint(node, xyz);
        for (const double exact : xyz)
            worst = std::max(worst, std::abs(exact - static_cast<float>(exact)));
    }
    return worst;
}

// Coordinates as float; gives by how much the worst was rounded.
static double round_positions(input_mesh *mesh)
{
    double worst = 0, xyz[3];
    for (vtkIdType node = 0; node < mesh->nnodes; ++node) {
        mesh->data->GetPoint(node, xyz);
        for (int d = 0; d < 3; ++d) {
            const double exact = xyz[d] - mesh->offset[d];
            const float value = static_cast<float>(exact);
            mesh->coords[static_cast<size_t>(node * 3 + d)] = value;
            if (std::abs(exact - value) > worst) worst = std::abs(exact - value);
        }
    }
    return worst;
}

static const float *set_positions(input_mesh *mesh)
{
    if (const float *held = float_positions(mesh->data)) return mesh->positions = held;
    mesh->coords.resize(static_cast<size_t>(mesh->nnodes) * 3);
    const double size = size_of(mesh);
    double worst = round_positions(mesh);
    if (mesh->whole != nullptr) worst = mesh->whole->rounding;
    if (worst > shifted_rounding * size && std::isfinite(size)) {
        shift(mesh);
        worst = round_positions(mesh);
    }
    note_rounding(mesh, worst);
    return mesh->positions = mesh->coords.data();
}

// ---- lattices -----------------------------------------------------------------------------------------------

namespace {

// Cells and nodes that are marked as hidden, or as copies that another piece owns.
struct ghosts {
    const unsigned char *node = nullptr, *cell = nullptr;
    explicit ghosts(vtkDataSet *data)
    {
        if (vtkUnsignedCharArray *marks = data->GetPointGhostArray()) node = marks->GetPointer(0);
        if (vtkUnsignedCharArray *marks = data->GetCellGhostArray()) cell = marks->GetPointer(0);
    }
    bool drops(vtkIdType number, const vtkIdType *nodes, vtkIdType count) const
    {
        const int gone = vtkDataSetAttributes::HIDDENCELL | vtkDataSetAttributes::DUPLICATECELL;
        if (cell != nullptr && (cell[number] & gone) != 0) return true;
        for (vtkIdType i = 0; node != nullptr && i < count; ++i)
            if ((node[nodes[i]] & vtkDataSetAttributes::HIDDENPOINT) != 0) return true;
        return false;
    }
};

} // namespace

// Whether any cell is left out; walking the marks alone is quick.
bool any_dropped(vtkDataSet *data)
{
    const ghosts marks(data);
    for (vtkIdType c = 0; marks.cell != nullptr && c < data->GetNumberOfCells(); ++c)
        if (marks.drops(c, nullptr, 0)) return true;
    for (vtkIdType n = 0; marks.node != nullptr && n < data->GetNumberOfPoints(); ++n)
        if ((marks.node[n] & vtkDataSetAttributes::HIDDENPOINT) != 0) return true;
    return false;
}

static void curvilinear(input_mesh *mesh)
{
    mesh->kind = "curvilinear";
    const float *coords = set_positions(mesh);
    mesh->field = host_curvilinear(mesh->ndim, mesh->dims.data(), 3, coords);
}

static bool ascending(const std::vector<float> &axis)
{
    return std::adjacent_find(axis.begin(), axis.end(), [](float a, float b) { return !(a < b); }) ==
           axis.end();
}

static void rectilinear(input_mesh *mesh, vtkRectilinearGrid *grid)
{
    vtkDataArray *from[3] = {grid->GetXCoordinates(), grid->GetYCoordinates(), grid->GetZCoordinates()};
    auto *whole =
        vtkRectilinearGrid::SafeDownCast(mesh->whole != nullptr ? mesh->whole->lattice.Get() : grid);
    vtkDataArray *all[3] = {whole->GetXCoordinates(), whole->GetYCoordinates(), whole->GetZCoordinates()};
    double worst = 0;
    const auto round_axes = [&](vtkDataArray *const *axes) {
        worst = 0;
        for (int d = 0; d < 3; ++d) {
            mesh->axes[d].clear();
            for (vtkIdType i = 0; i < axes[d]->GetNumberOfTuples(); ++i) {
                const double value = axes[d]->GetComponent(i, 0) - mesh->offset[d];
                mesh->axes[d].push_back(static_cast<float>(value));
                worst = std::max(worst, std::abs(value - mesh->axes[d].back()));
            }
        }
    };
    round_axes(all);
    if (worst > shifted_rounding * size_of(mesh)) {
        shift(mesh);
        round_axes(all);
    }
    if (!ascending(mesh->axes[0]) || !ascending(mesh->axes[1]) || !ascending(mesh->axes[2]))
        return curvilinear(mesh);
    if (grid != whole) round_axes(from);
    mesh->kind = "rectilinear";
    note_rounding(mesh, worst);
    const float *axes[3] = {mesh->axes[0].data(), mesh->axes[1].data(), mesh->axes[2].data()};
    mesh->field = host_rectilinear(mesh->ndim, mesh->dims.data(), 3, axes);
}

// The part of the whole's lattice that a piece is.
static void uniform_part(input_mesh *mesh, vtkImageData *piece, vtkImageData *whole)
{
    int all[6], part[6];
    whole->GetExtent(all);
    piece->GetExtent(part);
    std::vector<qx_long> dims, extent;
    for (int d = 0; d < mesh->ndim; ++d) {
        dims.push_back(all[2 * d + 1] - all[2 * d] + 1);
        extent.insert(extent.end(), {part[2 * d] - all[2 * d], part[2 * d + 1] - all[2 * d]});
    }
    host_field *of = host_uniform(mesh->ndim, dims.data(), 3, mesh->corners.data());
    if (of != nullptr) mesh->field = host_uniform_part(of, extent.data());
    host_free_field(of);
}

static void uniform(input_mesh *mesh, vtkImageData *piece)
{
    auto *image = vtkImageData::SafeDownCast(mesh->whole != nullptr ? mesh->whole->lattice.Get() : piece);
    bool steps_up = true;
    for (const int d : {0, 1, 2})
        steps_up = steps_up && image->GetSpacing()[d] > 0;
    if (!steps_up || !image->GetDirectionMatrix()->IsIdentity()) return curvilinear(mesh);
    mesh->kind = "uniform";
    double first[3], last[3], worst = 0;
    image->GetPoint(0, first);
    image->GetPoint(image->GetNumberOfPoints() - 1, last);
    double farthest = 0; // nodes between are worked out in float
    for (const double *corner : {first, last})
        for (int d = 0; d < 3; ++d)
            farthest = std::max(farthest, std::abs(corner[d]));
    if (farthest * 6e-8 > shifted_rounding * size_of(mesh)) shift(mesh);
    for (const double *corner : {first, last})
        for (int d = 0; d < 3; ++d) {
            const double value = corner[d] - mesh->offset[d];
            mesh->corners.push_back(static_cast<float>(value));
            worst = std::max(worst, std::abs(value - mesh->corners.back()));
        }
    note_rounding(mesh, worst);
    if (image != piece) return uniform_part(mesh, piece, image);
    mesh->field = host_uniform(mesh->ndim, mesh->dims.data(), 3, mesh->corners.data());
}

// Sets the axes of more than one node, as dims. False: one of a single node comes before a longer one, so
// that axes and coordinates do not match.
static bool set_dims(input_mesh *mesh, const int *vtk_dims)
{
    bool in_place = true;
    for (int d = 0; d < 3; ++d) {
        if (vtk_dims[d] < 2) continue;
        in_place = in_place && static_cast<int>(mesh->dims.size()) == d;
        mesh->dims.push_back(vtk_dims[d]);
    }
    if (mesh->dims.empty()) mesh->dims.push_back(1);
    mesh->ndim = static_cast<int>(mesh->dims.size());
    return in_place;
}

// ---- cells --------------------------------------------------------------------------------------------------

namespace {

// Gathers the cells of a data set into sets.
class cell_sorter {
  public:
    cell_sorter(const std::string &path_, input_mesh *mesh_, const float *coords_)
        : path(path_), mesh(mesh_), coords(coords_), marks(mesh_->data)
    {
        static const shape_deriv_func derivs[] = {
            nullptr,           nullptr, nullptr, UTILsh_deriv_tet_1, UTILsh_deriv_pyr_1, UTILsh_deriv_pent_1,
            UTILsh_deriv_hex_1};
        const float centre[CELL_KINDS][3] = {{}, {}, {}, {0.25f, 0.25f, 0.25f}, {}, {1 / 3.0f, 1 / 3.0f, 0},
                                             {}};
        for (int kind = CELL_TET; kind < CELL_KINDS; ++kind)
            derivs[kind](centre[kind], deriv[kind]);
    }

    void add(vtkIdType number, int type, const vtkIdType *nodes, vtkIdType count);
    void finish();

  private:
    void add_one(vtkIdType number, const cell_order &order, const vtkIdType *nodes);
    void add_split(vtkIdType number, int type);
    bool inside_out(int kind, const vtkIdType *nodes, const cell_order &order) const;
    int one(vtkIdType number) const { return mesh->is_of_others(number) ? 0 : 1; }
    [[noreturn]] void bad_cell(vtkIdType number, const std::string &what) const
    {
        throw failure(path + ": cell " + std::to_string(number) + " " + what + "; the file may be damaged");
    }

    const std::string &path;
    input_mesh *mesh;
    const float *coords;
    ghosts marks;
    float deriv[CELL_KINDS][3 * 8];
    input_set *sets[CELL_KINDS][3] = {};
    input_set made[CELL_KINDS][3] = {};
    std::map<int, vtkIdType> split, reduced, refused; // by VTK type: how many
    vtkIdType points = 0, turned = 0, dropped = 0;
    vtkNew<vtkIdList> pieces;
    vtkNew<vtkPoints> piece_points;
};

} // namespace

// The sign of the volume at the middle of the cell, in our node order.
bool cell_sorter::inside_out(int kind, const vtkIdType *nodes, const cell_order &order) const
{
    float corners[8 * 3];
    const int n = cell_kinds[kind].ncorners;
    for (int i = 0; i < n; ++i)
        memcpy(corners + i * 3, coords + nodes[order.node[i]] * 3, 3 * sizeof(float));
    return UTILjacobian_3d_det(n, deriv[kind], corners) < 0;
}

void cell_sorter::add_one(vtkIdType number, const cell_order &order, const vtkIdType *nodes)
{
    const cell_kind_nodes &kind = cell_kinds[order.kind];
    input_set &set = made[order.kind][order.order];
    const int n = order.order == 2 ? kind.nnodes_2 : kind.ncorners;
    const bool turn = kind.ndim == 3 && inside_out(order.kind, nodes, order);
    const signed char *mirror = mirror_of_kind(order.kind);
    for (int i = 0; i < n; ++i)
        set.own.push_back(nodes[order.node[turn ? mirror[i] : i]]);
    set.cell.push_back(number);
    ++set.ncells;
    turned += turn ? one(number) : 0;
}

// By VTK into simplices over the cell's own nodes.
void cell_sorter::add_split(vtkIdType number, int type)
{
    vtkCell *cell = mesh->data->GetCell(number);
    const int dim = cell->GetCellDimension();
    const cell_order *simplex = order_of_kind(dim == 3 ? CELL_TET : dim == 2 ? CELL_TRI : CELL_LINE, 1);
    pieces->Reset();
    piece_points->Reset();
    if (cell->Triangulate(0, pieces, piece_points) == 0 || pieces->GetNumberOfIds() == 0) {
        refused[type] += one(number);
        return;
    }
    for (vtkIdType i = 0; i + dim < pieces->GetNumberOfIds(); i += dim + 1)
        add_one(number, *simplex, pieces->GetPointer(i));
    split[type] += one(number);
}

void cell_sorter::add(vtkIdType number, int type, const vtkIdType *nodes, vtkIdType count)
{
    for (vtkIdType i = 0; i < count; ++i)
        if (nodes[i] < 0 || nodes[i] >= mesh->nnodes)
            bad_cell(number,
                     "refers to node " + std::to_string(nodes[i]) + " of " + std::to_string(mesh->nnodes));
    if (marks.drops(number, nodes, count)) {
        dropped += one(number);
        return;
    }
    const cell_order *order = order_of_vtk(type);
    if (type == VTK_POLYGON && (count == 3 || count == 4))
        order = order_of_kind(count == 3 ? CELL_TRI : CELL_QUAD, 1);
    if (order != nullptr) {
        if (count < order->vtk_nodes)
            bad_cell(number, "has " + std::to_string(count) + " nodes where its kind has " +
                                 std::to_string(order->vtk_nodes));
        const cell_kind_nodes &kind = cell_kinds[order->kind];
        if (count != (order->order == 2 ? kind.nnodes_2 : kind.ncorners)) reduced[type] += one(number);
        add_one(number, *order, nodes);
        return;
    }
    switch (type) {
    case VTK_EMPTY_CELL: return;
    case VTK_VERTEX:
    case VTK_POLY_VERTEX: points += one(number); return;
    case VTK_POLY_LINE:
        for (vtkIdType i = 0; i + 1 < count; ++i)
            add_one(number, *order_of_kind(CELL_LINE, 1), nodes + i);
        return;
    case VTK_TRIANGLE_STRIP:
        for (vtkIdType i = 0; i + 2 < count; ++i) { // every other one turns the other way
            const vtkIdType corners[3] = {nodes[i], nodes[i + 1 + i % 2], nodes[i + 2 - i % 2]};
            add_one(number, *order_of_kind(CELL_TRI, 1), corners);
        }
        return;
    case VTK_POLYGON:
        if (count < 3) { // has no area
            refused[type] += one(number);
            return;
        }
        add_split(number, type);
        return;
    case VTK_QUADRATIC_POLYGON:
    case VTK_PENTAGONAL_PRISM:
    case VTK_HEXAGONAL_PRISM:
    case VTK_QUADRATIC_LINEAR_QUAD:
    case VTK_QUADRATIC_LINEAR_WEDGE:
    case VTK_CUBIC_LINE:
    case VTK_CONVEX_POINT_SET:
    case VTK_POLYHEDRON:
    case VTK_LAGRANGE_CURVE:
    case VTK_LAGRANGE_TRIANGLE:
    case VTK_LAGRANGE_QUADRILATERAL:
    case VTK_LAGRANGE_TETRAHEDRON:
    case VTK_LAGRANGE_HEXAHEDRON:
    case VTK_LAGRANGE_WEDGE: add_split(number, type); return;
    default: refused[type] += one(number); // of no use for values between nodes, or unknown
    }
}

// "12 Polyhedron": VTK's classes without their prefix. Its list of names by type is out of step with the types.
static std::string counts_in_words(const std::map<int, vtkIdType> &counts)
{
    std::string words;
    for (const auto &[type, count] : counts) {
        const auto cell = vtkSmartPointer<vtkCell>::Take(vtkGenericCell::InstantiateCell(type));
        const std::string name =
            cell != nullptr ? cell->GetClassName() + strlen("vtk") : "of VTK's type " + std::to_string(type);
        words += (words.empty() ? "" : ", ") + std::to_string(count) + " " + name;
    }
    return words;
}

void cell_sorter::finish()
{
    for (auto &orders : made)
        for (input_set &set : orders) {
            if (set.ncells == 0) continue;
            set.kind = static_cast<int>(&orders - made);
            set.order = static_cast<int>(&set - orders);
            set.file_kind = set.kind;
            set.file_order = set.order;
            mesh->sets.push_back(std::move(set));
            mesh->sets.back().connect = mesh->sets.back().own.data();
        }
    auto &notes = mesh->notes;
    for (auto *counts : {&split, &reduced, &refused}) // of other pieces alone
        for (auto entry = counts->begin(); entry != counts->end();)
            entry = entry->second == 0 ? counts->erase(entry) : std::next(entry);
    if (!split.empty()) notes.push_back("split into simplices: " + counts_in_words(split));
    if (!reduced.empty()) notes.push_back("taken without their further nodes: " + counts_in_words(reduced));
    if (!refused.empty()) notes.push_back("left out, as they have no kind here: " + counts_in_words(refused));
    if (turned > 0)
        notes.push_back("turned round, as their nodes go the other way: " + std::to_string(turned) +
                        " cell(s)");
    if (points > 0) notes.push_back("left out: " + std::to_string(points) + " cell(s) that are only points");
    if (dropped > 0) notes.push_back("left out: " + std::to_string(dropped) + " hidden or duplicate cell(s)");
    if (mesh->sets.empty() && !refused.empty())
        throw failure(path + ": all its cells are of kinds that cannot be used: " + counts_in_words(refused) +
                      "; convert them to tetrahedra or other plain cells");
}

// Nodes of a lattice cell in the order of VTK's line, quadrilateral or hexahedron.
static void lattice_cells(input_mesh *mesh, cell_sorter *sorter)
{
    static const int types[] = {VTK_VERTEX, VTK_LINE, VTK_QUAD, VTK_HEXAHEDRON};
    static const int around[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    qx_long dims[3] = {1, 1, 1}, cells[3] = {1, 1, 1};
    for (int d = 0; d < mesh->ndim; ++d) {
        dims[d] = mesh->dims[static_cast<size_t>(d)];
        cells[d] = dims[d] - 1;
    }
    const int count = 1 << mesh->ndim;
    vtkIdType number = 0;
    for (qx_long k = 0; k < cells[2]; ++k)
        for (qx_long j = 0; j < cells[1]; ++j)
            for (qx_long i = 0; i < cells[0]; ++i, ++number) {
                vtkIdType nodes[8];
                for (int n = 0; n < count; ++n)
                    nodes[n] =
                        i + around[n % 4][0] + dims[0] * (j + around[n % 4][1] + dims[1] * (k + n / 4));
                sorter->add(number, types[mesh->ndim], nodes, count);
            }
}

// Damaged files can hold lists that point anywhere: looked at before VTK walks them.
static void check_list(const std::string &path, vtkCellArray *cells)
{
    vtkDataArray *offsets = cells->GetOffsetsArray();
    const vtkIdType entries = cells->GetNumberOfConnectivityIds();
    double last = 0;
    for (vtkIdType i = 0; i < offsets->GetNumberOfTuples(); ++i) {
        const double offset = offsets->GetComponent(i, 0);
        if (offset < last || offset > static_cast<double>(entries))
            throw failure(path + ": the list of its cells is damaged at cell " + std::to_string(i));
        last = offset;
    }
}

// Cells of one kind whose nodes come in our order already: the set is VTK's own list.
static bool share_list(input_mesh *mesh, vtkCellArray *cells, int type)
{
    const cell_order *order = order_of_vtk(type);
    if (order == nullptr || !cells->IsStorage64Bit() || cells->GetNumberOfCells() == 0) return false;
    if (cells->IsHomogeneous() != order->vtk_nodes) return false;
    for (int i = 0; i < order->vtk_nodes; ++i)
        if (i >= 20 || order->node[i] != i) return false;
    input_set set;
    set.kind = order->kind;
    set.order = order->order;
    set.file_kind = set.kind;
    set.file_order = set.order;
    set.ncells = cells->GetNumberOfCells();
    set.connect = our_list(cells->GetConnectivityArray64()->GetPointer(0));
    mesh->sets.push_back(std::move(set));
    return true;
}

static void explicit_cells(const std::string &path, input_mesh *mesh, cell_sorter *sorter)
{
    vtkDataSet *data = mesh->data;
    const vtkIdType ncells = data->GetNumberOfCells();
    const bool shared = !any_dropped(data) && (mesh->whole == nullptr || mesh->whole->one_kind);
    if (auto *grid = vtkUnstructuredGrid::SafeDownCast(data)) {
        if (ncells == 0) return;
        check_list(path, grid->GetCells());
        if (shared && grid->IsHomogeneous() != 0 && share_list(mesh, grid->GetCells(), grid->GetCellType(0)))
            return;
    } else if (auto *poly = vtkPolyData::SafeDownCast(data)) {
        for (vtkCellArray *cells : {poly->GetVerts(), poly->GetLines(), poly->GetPolys(), poly->GetStrips()})
            check_list(path, cells);
        const vtkIdType npolys = poly->GetNumberOfPolys(), nlines = poly->GetNumberOfLines();
        const vtkIdType corners = poly->GetPolys()->IsHomogeneous();
        if (shared && npolys == ncells && (corners == 3 || corners == 4) &&
            share_list(mesh, poly->GetPolys(), corners == 3 ? VTK_TRIANGLE : VTK_QUAD))
            return;
        if (shared && nlines == ncells && poly->GetLines()->IsHomogeneous() == 2 &&
            share_list(mesh, poly->GetLines(), VTK_LINE))
            return;
    }
    vtkNew<vtkIdList> nodes;
    for (vtkIdType c = 0; c < ncells; ++c) {
        data->GetCellPoints(c, nodes);
        sorter->add(c, data->GetCellType(c), nodes->GetPointer(0), nodes->GetNumberOfIds());
    }
    sorter->finish();
}

// Values in second-order prisms and pyramids cannot be computed by the library: the shape functions of the former do not sum
// to 1 and the latter have none. To be sampled they are taken apart into first-order cells.
static void take_apart(const std::string &path, input_mesh *mesh)
{
    for (input_set &set : mesh->sets) {
        if (set.order != 2 || (set.kind != CELL_PRISM && set.kind != CELL_PYR)) continue;
        qx_long count, *connect = nullptr;
        int nnodes;
        const tesselate_func tesselate = set.kind == CELL_PRISM ? UTILtesselate_prism_2 : UTILtesselate_pyr_2;
        if (tesselate(set.ncells, set.connect, &count, &connect, &nnodes) != 1)
            throw failure(path +
                          ": its second-order cells could not be split; there may be too little memory");
        input_set parts;
        parts.file_kind = set.file_kind;
        parts.file_order = set.file_order;
        parts.order = 1;
        parts.kind = nnodes == 4 ? CELL_TET : nnodes == 5 ? CELL_PYR : nnodes == 6 ? CELL_PRISM : CELL_HEX;
        parts.ncells = count;
        parts.own.assign(connect, connect + count * nnodes);
        free(connect);
        parts.connect = parts.own.data();
        for (qx_long i = 0; i < count; ++i)
            parts.cell.push_back(set.vtk_cell(i / (count / set.ncells)));
        mesh->notes.push_back(std::string("second-order ") + name_of_kind(set.kind) +
                              " are sampled as first-order pieces");
        set = std::move(parts);
    }
}

// Surfaces beside solids, which are most often their skin.
static void drop_lower_cells(input_mesh *mesh)
{
    const int highest = mesh->cell_ndim();
    qx_long count = 0;
    auto &sets = mesh->sets;
    for (auto set = sets.begin(); set != sets.end();) {
        const bool is_lower = cell_kinds[set->kind].ndim < highest;
        for (qx_long cell = 0; is_lower && cell < set->ncells; ++cell)
            count += mesh->is_of_others(set->vtk_cell(cell)) ? 0 : 1;
        set = is_lower ? sets.erase(set) : set + 1;
    }
    if (count > 0)
        mesh->notes.push_back("left out: " + std::to_string(count) + " cell(s) that are no " +
                              (highest == 3 ? "solids" : "surfaces"));
}

static void drop_lines(input_mesh *mesh)
{
    if (mesh->cell_ndim() < 2) return;
    auto &sets = mesh->sets;
    sets.erase(std::remove_if(sets.begin(), sets.end(),
                              [](const input_set &set) { return cell_kinds[set.kind].ndim < 2; }),
               sets.end());
}

static void cell_sets(const std::string &path, input_mesh *mesh, mesh_use use)
{
    const bool lattice = mesh->structured();
    const float *coords = set_positions(mesh);
    cell_sorter sorter(path, mesh, coords);
    if (lattice) {
        lattice_cells(mesh, &sorter);
        sorter.finish();
    } else {
        explicit_cells(path, mesh, &sorter);
    }
    mesh->kind = "cell sets";
    mesh->ndim = 0;
    mesh->dims.clear();
    if (use == mesh_use::sample || use == mesh_use::trace) take_apart(path, mesh);
    if (use == mesh_use::trace) drop_lower_cells(mesh);
    if (use == mesh_use::divide) drop_lines(mesh);
    if (use == mesh_use::locate)
        for (input_set &set : mesh->sets)
            if (set.kind == CELL_PRISM && set.order == 2)
                for (size_t i = 0; i < set.own.size(); i += 15)
                    std::swap(set.own[i + 12], set.own[i + 13]);
    mesh->field = host_cells(mesh->nnodes, 3, coords);
    for (const input_set &set : mesh->sets)
        if (mesh->field != nullptr &&
            host_add_cells(mesh->field, set.kind, set.order, set.ncells, set.connect) == 0)
            throw failure(path + ": " + host_error());
    // By which form the host derives depends on the kinds that there are: a piece has those of the whole.
    if (mesh->field == nullptr || mesh->whole == nullptr || use != mesh_use::locate) return;
    for (const auto &[kind, order] : mesh->whole->kinds)
        if (host_add_cells(mesh->field, kind, order, 0, nullptr) == 0)
            throw failure(path + ": " + host_error());
}

std::unique_ptr<input_mesh> make_mesh(const std::string &path, vtkDataSet *data, mesh_use use,
                                      const whole_mesh *whole, const piece_marks *others)
{
    const crash_guard guard(path); // VTK walks lists that came from the file
    auto mesh = std::make_unique<input_mesh>();
    mesh->data = data;
    mesh->nnodes = data->GetNumberOfPoints();
    auto *image = vtkImageData::SafeDownCast(data);
    auto *grid = vtkRectilinearGrid::SafeDownCast(data);
    auto *structured = vtkStructuredGrid::SafeDownCast(data);
    int dims[3] = {1, 1, 1};
    if (image != nullptr) image->GetDimensions(dims);
    if (grid != nullptr) grid->GetDimensions(dims);
    if (structured != nullptr) structured->GetDimensions(dims);
    const bool lattice = image != nullptr || grid != nullptr || structured != nullptr;
    const bool in_place = !lattice || set_dims(mesh.get(), dims);

    mesh->whole = whole;
    if (others != nullptr && !others->empty()) mesh->others = others;
    if (!lattice || (whole != nullptr ? whole->dropped : any_dropped(data)))
        cell_sets(path, mesh.get(), use);
    else if (structured != nullptr || !in_place)
        curvilinear(mesh.get());
    else if (grid != nullptr)
        rectilinear(mesh.get(), grid);
    else
        uniform(mesh.get(), image);
    if (mesh->field != nullptr) mesh->mesh = host_mesh(mesh->field);
    mesh->others = nullptr;
    if (mesh->mesh == nullptr) throw failure(path + ": " + host_error());
    return mesh;
}
