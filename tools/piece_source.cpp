#include "piece_source.hpp"

#include "cell_order.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "listed_files.hpp"
#include "packing.hpp"
#include "process_group.hpp"

#include <vtkCellData.h>
#include <vtkCellType.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkDataSetAttributes.h>
#include <vtkDoubleArray.h>
#include <vtkExtentTranslator.h>
#include <vtkIdList.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPointSet.h>
#include <vtkPolyData.h>
#include <vtkRectilinearGrid.h>
#include <vtkUnsignedCharArray.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numeric>
#include <sstream>
#include <type_traits>

void mesh_figures::add(const mesh_figures &other)
{
    if (other.nnodes == 0) return;
    for (int d = 0; d < 3; ++d) {
        const bool first = nnodes == 0;
        box[2 * d] = first ? other.box[2 * d] : std::min(box[2 * d], other.box[2 * d]);
        box[2 * d + 1] = first ? other.box[2 * d + 1] : std::max(box[2 * d + 1], other.box[2 * d + 1]);
    }
    dropped = dropped || other.dropped;
    rounding = std::max(rounding, other.rounding);
    nnodes += other.nnodes;
    ncells += other.ncells;
    for (const auto &[type, n] : other.by_type)
        by_type[type] += n;
}

namespace {

mesh_figures figures_of(vtkDataSet *data)
{
    mesh_figures figures;
    if (data == nullptr || data->GetNumberOfPoints() == 0) return figures;
    int extent[6];
    data->GetBounds(figures.box);
    figures.nnodes = data->GetNumberOfPoints();
    figures.ncells = data->GetNumberOfCells();
    figures.dropped = any_dropped(data);
    const bool lattice = extent_of(data, extent);
    if (!lattice || figures.dropped || vtkPointSet::SafeDownCast(data) != nullptr)
        figures.rounding = rounding_of(data);
    if (lattice && !figures.dropped && figures.ncells > 0)
        figures.by_type[data->GetCellType(0)] = figures.ncells;
    else
        for (vtkIdType cell = 0; cell < figures.ncells; ++cell)
            ++figures.by_type[data->GetCellType(cell)];
    return figures;
}

// In digits that read back as they were.
std::string as_text(const mesh_figures &figures)
{
    std::ostringstream text;
    text << std::hexfloat;
    for (const double x : figures.box)
        text << x << ' ';
    text << figures.dropped << ' ' << figures.rounding << ' ' << figures.nnodes << ' ' << figures.ncells
         << ' ' << figures.by_type.size();
    for (const auto &[type, n] : figures.by_type)
        text << ' ' << type << ' ' << n;
    return text.str();
}

mesh_figures from_text(const std::string &text)
{
    mesh_figures figures;
    std::istringstream in(text);
    std::string number;
    for (double &x : figures.box) { // streams do not read what they write in this form
        in >> number;
        x = strtod(number.c_str(), nullptr);
    }
    size_t types = 0;
    in >> figures.dropped >> number >> figures.nnodes >> figures.ncells >> types;
    figures.rounding = strtod(number.c_str(), nullptr);
    for (size_t i = 0; i < types; ++i) {
        int type;
        in >> type;
        in >> figures.by_type[type];
    }
    return figures;
}

whole_mesh whole_of(const mesh_figures &figures)
{
    whole_mesh whole;
    std::copy_n(figures.box, 6, whole.box);
    whole.dropped = figures.dropped;
    whole.one_kind = figures.by_type.size() <= 1;
    whole.rounding = figures.rounding;
    for (const auto &[type, ncells] : figures.by_type)
        if (const cell_order *kind = order_of_vtk(type)) whole.kinds.emplace_back(kind->kind, kind->order);
    return whole;
}

mesh_figures agreed_figures(const mesh_figures &own)
{
    mesh_figures all;
    for (const std::string &one : processes::all_of(as_text(own)))
        all.add(from_text(one));
    return all;
}

int first_of_share(int share, int shares, int count)
{
    return static_cast<int>(static_cast<int64_t>(count) * share / shares);
}

// Which of shares an entry is in.
int share_of(int entry, int shares, int count)
{
    int share = static_cast<int>((static_cast<int64_t>(entry) * shares) / std::max(count, 1));
    while (share + 1 < shares && first_of_share(share + 1, shares, count) <= entry)
        ++share;
    while (share > 0 && first_of_share(share, shares, count) > entry)
        --share;
    return share;
}

// ---- lattices -----------------------------------------------------------------------------------------------

// Slabs of one file or of a list of files, of which the reader takes what a slab needs.
class slab_source : public piece_source {
  public:
    slab_source(const std::string &path_, const xml_heading &heading_, int count, const piece_needs &needs_);
    read_piece read(const piece_unit &unit) override;
    whole_mesh survey(mesh_figures *figures) override;
    bool lattice_extent(int *extent) const override
    {
        std::copy_n(heading.extent, 6, extent);
        return true;
    }

  protected:
    // The file itself is read by one process, and its whole is here.
    slab_source(const std::string &path_, const piece_needs &needs_) : piece_source(needs_), path(path_) {}
    void share_out(int count, qx_long most);
    virtual vtkSmartPointer<vtkDataSet> nodes_within(const int *extent, bool bare,
                                                     std::vector<std::string> *notes);
    int slab_axis() const;
    int cells_along() const;
    bool slab(int number, int layers, int *extent) const;
    piece_numbers numbers_in(const int *own, const int *extent) const;

    std::string path;
    xml_heading heading;
    std::map<int, vtkSmartPointer<vtkDataSet>> looked_at; // read in full at the first look
};

slab_source::slab_source(const std::string &path_, const xml_heading &heading_, int count,
                         const piece_needs &needs_)
    : piece_source(needs_), path(path_), heading(heading_)
{
    if (processes::is_first())
        for (const xml_heading::piece &one : heading.pieces)
            check_file(one.path);
    share_out(count, cells_along());
}

// most: what there is to share.
void slab_source::share_out(int count, qx_long most)
{
    pieces = count > 0 ? static_cast<int>(std::clamp<qx_long>(most, 1, count)) : processes::size();
    for (int p = 0; p < pieces; ++p)
        list.push_back({share_of(p, processes::size(), pieces), p, p});
}

// Slabs go across the last axis that has several nodes: what one of them needs lies together in the file.
int slab_source::slab_axis() const
{
    int axis = 2;
    while (axis > 0 && heading.extent[2 * axis + 1] <= heading.extent[2 * axis])
        --axis;
    return axis;
}

int slab_source::cells_along() const
{
    const int axis = slab_axis();
    return heading.extent[2 * axis + 1] - heading.extent[2 * axis];
}

bool slab_source::slab(int number, int layers, int *extent) const
{
    const int *whole = heading.extent;
    const int axis = slab_axis(), cells = cells_along();
    std::copy_n(whole, 6, extent);
    if (cells == 0) return number == 0; // a single node
    const int lo = first_of_share(number, pieces, cells), hi = first_of_share(number + 1, pieces, cells);
    if (hi <= lo) return false;
    extent[2 * axis] = whole[2 * axis] + std::max(lo - layers, 0);
    extent[2 * axis + 1] = whole[2 * axis] + std::min(hi + layers, cells);
    return true;
}

vtkSmartPointer<vtkDataSet> slab_source::nodes_within(const int *extent, bool bare,
                                                      std::vector<std::string> *notes)
{
    read_options how;
    how.bare = bare;
    how.extent.assign(extent, extent + 6);
    const input_file file = read_file(path, how);
    int got[6];
    if (!extent_of(file.data, got) || !std::equal(got, got + 6, extent))
        throw failure(path + ": is damaged: a part of it is missing");
    if (notes != nullptr) *notes = file.notes;
    return file.data;
}

// Of nodes between two slabs the lower one has the number.
piece_numbers slab_source::numbers_in(const int *own, const int *extent) const
{
    const int *whole = heading.extent;
    const int axis = slab_axis();
    int part[6];
    std::copy_n(own, 6, part);
    if (part[2 * axis] > whole[2 * axis]) ++part[2 * axis];
    const piece_marks others = marks_outside(part, extent, false),
                      in_whole = marks_outside(part, whole, false);
    return {others.first_own(), others.end_of_own(), others.size(),
            static_cast<vtkIdType>(in_whole.first_own())};
}

read_piece slab_source::read(const piece_unit &unit)
{
    read_piece piece;
    int own[6], with[6];
    if (!slab(unit.number, 0, own)) return piece;
    slab(unit.number, needs.layers, with);
    piece.data = nodes_within(with, false, &piece.notes);
    forget_copies(piece.data, !heading.pieces.empty());
    if (needs.numbers) piece.number = numbers_in(own, with);
    if (std::equal(own, own + 6, with)) return piece;
    piece.ghost_cell = marks_outside(own, with, true);
    piece.ghost_node = marks_outside(own, with, false);
    return piece;
}

whole_mesh slab_source::survey(mesh_figures *figures)
{
    vtkSmartPointer<vtkDataSet> lattice;
    const bool curved = heading.type == "StructuredGrid" || heading.type == "PStructuredGrid";
    processes::agree([&] {
        if (!curved) {
            lattice = nodes_within(heading.extent, true, nullptr); // axes at most
            lattice->GetPointData()->Initialize();
            lattice->GetCellData()->Initialize();
        }
        if (!curved && !heading.ghosts) return;
        for (const piece_unit &unit : list) {
            int extent[6];
            if (unit.process != processes::rank() || !slab(unit.number, 0, extent)) continue;
            const auto data = nodes_within(extent, true, nullptr);
            forget_copies(data, !heading.pieces.empty());
            figures->add(figures_of(data));
        }
    });
    if (curved || heading.ghosts) {
        *figures = agreed_figures(*figures);
    } else {
        *figures = figures_of(lattice);
    }
    figures->nnodes = figures->ncells = 1;
    for (int d = 0; d < 3; ++d) {
        const qx_long steps = heading.extent[2 * d + 1] - heading.extent[2 * d];
        figures->nnodes *= steps + 1;
        figures->ncells *= std::max<qx_long>(steps, 1);
    }
    if (lattice != nullptr) lattice->GetBounds(figures->box);
    whole_mesh whole = whole_of(*figures);
    whole.lattice = lattice;
    return whole;
}

// So that nodes of pieces are one by their number, and not by their place, where several may stand.
void number_nodes(vtkDataSet *data, vtkIdType first)
{
    vtkNew<vtkDoubleArray> numbers;
    numbers->SetName(name_of_ends);
    numbers->SetNumberOfValues(data->GetNumberOfPoints());
    for (vtkIdType node = 0; node < data->GetNumberOfPoints(); ++node)
        numbers->SetValue(node, static_cast<double>(first + node));
    data->GetPointData()->AddArray(numbers);
}

// ---- lists of unstructured files ----------------------------------------------------------------------------

// And one file of several parts, whose nodes are its own: those of different parts are never one.
class list_source : public piece_source {
  public:
    list_source(const std::string &path_, const xml_heading &heading_, int count, const piece_needs &needs_);
    read_piece read(const piece_unit &unit) override;
    whole_mesh survey(mesh_figures *figures) override;
    bool lattice_extent(int *) const override { return false; }

  private:
    bool is_list() const { return !heading.pieces.empty(); }
    int nfiles() const { return is_list() ? static_cast<int>(heading.pieces.size()) : heading.nparts; }
    vtkSmartPointer<vtkPointSet> file(int number, bool bare);
    vtkSmartPointer<vtkPointSet> part_of_file(int number, bool bare);
    std::vector<vtkIdType> numbers_in_file(int number, vtkPointSet *data);
    void number_parts();
    vtkIdType number_files();
    void forget_numbers();

    std::string path;
    xml_heading heading;
    bool kept; // files once read: a process that was not told to save memory holds its share
    std::map<int, vtkSmartPointer<vtkPointSet>> files;
    vtkSmartPointer<vtkPointSet> in_hand; // the file that the last stretch was of
    int in_hand_number = -1;
    std::vector<mesh_figures> of_file;   // of all processes
    std::vector<vtkIdType> first_number; // of each file's nodes, where they are numbered
};

list_source::list_source(const std::string &path_, const xml_heading &heading_, int count,
                         const piece_needs &needs_)
    : piece_source(needs_), path(path_), heading(heading_), kept(count == 0)
{
    const int n = nfiles();
    if (processes::is_first())
        for (const xml_heading::piece &one : heading.pieces)
            check_file(one.path);
    // without a number, results have a piece a process
    pieces = count > 0 ? count : processes::size();
    const int nunits = std::max(n, pieces);
    for (int u = 0; u < nunits; ++u) {
        piece_unit unit;
        unit.piece = nunits == pieces ? u : share_of(u, pieces, n);
        unit.number = nunits == n ? u : share_of(u, n, nunits);
        const int first = nunits == n ? u : first_of_share(unit.number, n, nunits);
        unit.part = u - first;
        unit.nparts = nunits == n ? 1 : first_of_share(unit.number + 1, n, nunits) - first;
        unit.process = share_of(unit.piece, processes::size(), pieces);
        list.push_back(unit);
    }
}

// nullptr: it is empty.
vtkSmartPointer<vtkPointSet> list_source::file(int number, bool bare)
{
    if (const auto found = files.find(number); found != files.end()) return found->second;
    vtkSmartPointer<vtkPointSet> data;
    if (is_list())
        data = vtkPointSet::SafeDownCast(read_listed(path, heading, number, bare && !kept).data);
    else
        data = part_of_file(number, bare && !kept);
    if (kept) files[number] = data;
    return data;
}

vtkSmartPointer<vtkPointSet> list_source::part_of_file(int number, bool bare)
{
    read_options how;
    how.bare = bare;
    how.part = number;
    how.nparts = heading.nparts;
    how.may_be_empty = true;
    vtkSmartPointer<vtkPointSet> data = vtkPointSet::SafeDownCast(read_file(path, how).data);
    if (data == nullptr || data->GetNumberOfPoints() == 0) return nullptr;
    forget_copies(data, false);
    if (const auto n = static_cast<size_t>(number); n < first_number.size())
        number_nodes(data, first_number[n]);
    return data;
}

// Cells of a stretch, and with the first one the nodes without a cell.
vtkSmartPointer<vtkPointSet> stretch_of(vtkPointSet *data, int part, int nparts)
{
    if (data == nullptr || nparts == 1) return data;
    const auto ncells = static_cast<size_t>(data->GetNumberOfCells());
    const auto n = static_cast<size_t>(nparts), p = static_cast<size_t>(part);
    const size_t from = ncells * p / n, to = ncells * (p + 1) / n;
    marks keep(ncells);
    std::fill(keep.begin() + static_cast<std::ptrdiff_t>(from),
              keep.begin() + static_cast<std::ptrdiff_t>(to), static_cast<unsigned char>(1));
    marks lone;
    if (part == 0) {
        lone = nodes_of_cells(data, marks(ncells, 1));
        for (unsigned char &mark : lone)
            mark = mark == 0 ? 1 : 0;
    }
    auto made = cells_of(data, keep, lone);
    return made->GetNumberOfPoints() > 0 ? made : nullptr;
}

// The numbers of the nodes of a stretch, of those of all nodes. A node is the first stretch's that has it.
std::vector<vtkIdType> numbers_of_stretch(vtkPointSet *data, const std::vector<vtkIdType> &numbers, int part,
                                          int nparts)
{
    if (nparts == 1) return numbers;
    std::vector<int> first(numbers.size(), nparts);
    marks here(numbers.size());
    vtkNew<vtkIdList> nodes;
    const auto ncells = static_cast<size_t>(data->GetNumberOfCells()), n = static_cast<size_t>(nparts);
    for (int p = 0; p < nparts; ++p) {
        const auto of = static_cast<size_t>(p);
        for (size_t cell = ncells * of / n; cell < ncells * (of + 1) / n; ++cell) {
            data->GetCellPoints(static_cast<vtkIdType>(cell), nodes);
            for (vtkIdType i = 0; i < nodes->GetNumberOfIds(); ++i) {
                const auto node = static_cast<size_t>(nodes->GetId(i));
                first[node] = std::min(first[node], p);
                if (p == part) here[node] = 1;
            }
        }
    }
    std::vector<vtkIdType> out;
    for (size_t node = 0; node < numbers.size(); ++node) {
        const bool lone = first[node] == nparts;
        if (here[node] == 0 && !(lone && part == 0)) continue;
        out.push_back(lone || first[node] == part ? numbers[node] : -1);
    }
    return out;
}

// Cells of data, but for those marked in without, that have a node where piece has one.
vtkSmartPointer<vtkPointSet> neighbours_in(vtkPointSet *data, vtkPointSet *piece, const marks &without)
{
    std::map<std::array<double, 3>, char> places;
    double box[6];
    data->GetBounds(box);
    for (vtkIdType node = 0; node < piece->GetNumberOfPoints(); ++node) {
        std::array<double, 3> at;
        piece->GetPoint(node, at.data());
        bool inside = true;
        for (size_t d = 0; d < 3; ++d)
            inside = inside && at[d] >= box[2 * d] && at[d] <= box[2 * d + 1];
        if (inside) places[node_key(piece, node)] = 1;
    }
    marks near(static_cast<size_t>(data->GetNumberOfPoints()));
    double around[6];
    piece->GetBounds(around);
    for (size_t node = 0; node < near.size(); ++node) {
        std::array<double, 3> at;
        data->GetPoint(static_cast<vtkIdType>(node), at.data());
        bool inside = true;
        for (size_t d = 0; d < 3; ++d)
            inside = inside && at[d] >= around[2 * d] && at[d] <= around[2 * d + 1];
        near[node] = inside && places.count(node_key(data, static_cast<vtkIdType>(node))) != 0 ? 1 : 0;
    }
    marks keep(static_cast<size_t>(data->GetNumberOfCells()));
    vtkNew<vtkIdList> nodes;
    bool any = false;
    for (size_t cell = 0; cell < keep.size(); ++cell) {
        if (!without.empty() && without[cell] != 0) continue;
        data->GetCellPoints(static_cast<vtkIdType>(cell), nodes);
        for (vtkIdType i = 0; i < nodes->GetNumberOfIds(); ++i)
            if (near[static_cast<size_t>(nodes->GetId(i))] != 0) keep[cell] = 1;
        any = any || keep[cell] != 0;
    }
    return any ? cells_of(data, keep) : nullptr;
}

// Polygonal data has its cells by class.
int class_of(vtkDataSet *data, vtkIdType cell)
{
    if (vtkPolyData::SafeDownCast(data) == nullptr) return 0;
    switch (data->GetCellType(cell)) {
    case VTK_VERTEX:
    case VTK_POLY_VERTEX: return 0;
    case VTK_LINE:
    case VTK_POLY_LINE: return 1;
    case VTK_TRIANGLE_STRIP: return 3;
    default: return 2;
    }
}

// The same nodes, and the cells in another order.
template <typename Cells>
vtkSmartPointer<vtkPointSet> reordered_as(Cells *from, const std::vector<vtkIdType> &order)
{
    auto made = vtkSmartPointer<Cells>::New();
    made->SetPoints(from->GetPoints());
    made->GetPointData()->ShallowCopy(from->GetPointData());
    if constexpr (std::is_same_v<Cells, vtkPolyData>)
        made->AllocateEstimate(from->GetNumberOfCells() + 1, 4);
    else
        made->Allocate(from->GetNumberOfCells() + 1);
    made->GetCellData()->CopyAllOn();
    made->GetCellData()->CopyAllocate(from->GetCellData(), from->GetNumberOfCells());
    vtkNew<vtkIdList> nodes;
    for (const vtkIdType cell : order) {
        const int type = from->GetCellType(cell);
        from->GetCellPoints(cell, nodes);
        if constexpr (std::is_same_v<Cells, vtkUnstructuredGrid>)
            if (type == VTK_POLYHEDRON) from->GetFaceStream(cell, nodes);
        made->GetCellData()->CopyData(from->GetCellData(), cell, made->InsertNextCell(type, nodes));
    }
    return made;
}

// A piece with cells around it that belong to others. All cells are in the order of the file: what is summed over the
// cells around a node is the same in each piece that has the node. Nodes of the piece's own come first.
read_piece with_layer(vtkPointSet *own, const std::vector<vtkSmartPointer<vtkPointSet>> &before,
                      const std::vector<vtkSmartPointer<vtkPointSet>> &after)
{
    static const char *const owned = "cells of the piece's own";
    constexpr unsigned char comes_before = 0, is_own = 1, comes_after = 2;
    read_piece piece;
    const auto marked = [&](vtkPointSet *data, unsigned char place) {
        auto out = vtkSmartPointer<vtkPointSet>::Take(data->NewInstance());
        out->ShallowCopy(data);
        vtkNew<vtkUnsignedCharArray> mark;
        mark->SetName(owned);
        mark->SetNumberOfValues(data->GetNumberOfCells());
        mark->FillValue(place);
        out->GetCellData()->AddArray(mark);
        return out;
    };
    vtkSmartPointer<vtkPointSet> all = marked(own, is_own);
    for (const auto &one : before)
        if (one != nullptr) all = attached(all, marked(one, comes_before));
    for (const auto &one : after)
        if (one != nullptr) all = attached(all, marked(one, comes_after));
    const auto marks_of = [](vtkDataSet *data) {
        return vtkUnsignedCharArray::SafeDownCast(data->GetCellData()->GetAbstractArray(owned));
    };
    std::vector<vtkIdType> order(static_cast<size_t>(all->GetNumberOfCells()));
    std::iota(order.begin(), order.end(), 0);
    const auto place_of = [&](vtkIdType cell) {
        return std::make_pair(class_of(all, cell), marks_of(all)->GetValue(cell));
    };
    const auto in_order = [&](vtkIdType a, vtkIdType b) { return place_of(a) < place_of(b); };
    if (!std::is_sorted(order.begin(), order.end(), in_order)) {
        std::stable_sort(order.begin(), order.end(), in_order);
        if (auto *surface = vtkPolyData::SafeDownCast(all))
            all = reordered_as(surface, order);
        else if (auto *grid = vtkUnstructuredGrid::SafeDownCast(all))
            all = reordered_as(grid, order);
    }
    piece.data = all;
    marks ghosts(static_cast<size_t>(all->GetNumberOfCells()));
    for (size_t cell = 0; cell < ghosts.size(); ++cell)
        ghosts[cell] = marks_of(all)->GetValue(static_cast<vtkIdType>(cell)) == is_own ? 0 : 1;
    all->GetCellData()->RemoveArray(owned);
    if (all->GetNumberOfPoints() == own->GetNumberOfPoints() &&
        all->GetNumberOfCells() == own->GetNumberOfCells())
        return piece;
    piece.ghost_cell = std::move(ghosts);
    piece.ghost_node = {0, static_cast<size_t>(own->GetNumberOfPoints()),
                        static_cast<size_t>(all->GetNumberOfPoints())};
    return piece;
}

// The cells of a file but for those before a stretch of them, or after it.
marks all_but_before(const piece_unit &unit, vtkIdType ncells)
{
    const auto n = static_cast<size_t>(unit.nparts), p = static_cast<size_t>(unit.part);
    marks without(static_cast<size_t>(ncells), 1);
    std::fill_n(without.begin(), static_cast<size_t>(ncells) * p / n, static_cast<unsigned char>(0));
    return without;
}

marks all_but_after(const piece_unit &unit, vtkIdType ncells)
{
    const auto n = static_cast<size_t>(unit.nparts), p = static_cast<size_t>(unit.part);
    marks without(static_cast<size_t>(ncells), 0);
    std::fill_n(without.begin(), static_cast<size_t>(ncells) * (p + 1) / n, static_cast<unsigned char>(1));
    return without;
}

bool boxes_meet(const double *a, const double *b)
{
    for (int d = 0; d < 3; ++d)
        if (a[2 * d] > b[2 * d + 1] || b[2 * d] > a[2 * d + 1]) return false;
    return true;
}

// A stretch of the cells of data, with the layers that beside finds: for a part it gives the cells of others that touch
// it, before and behind its own.
template <typename Beside>
read_piece with_layers(const vtkSmartPointer<vtkPointSet> &own, int layers, Beside beside)
{
    using some = std::vector<vtkSmartPointer<vtkPointSet>>;
    read_piece piece;
    piece.data = own;
    for (int layer = 0; layer < layers; ++layer) {
        some before, after;
        beside(vtkPointSet::SafeDownCast(piece.data), &before, &after);
        piece = with_layer(own, before, after);
    }
    return piece;
}

read_piece list_source::read(const piece_unit &unit)
{
    if (in_hand_number != unit.number || unit.nparts == 1) in_hand = nullptr;
    const auto whole_file = in_hand != nullptr ? in_hand : file(unit.number, false);
    if (unit.nparts > 1) in_hand = whole_file; // its next stretch is asked for next
    in_hand_number = unit.number;
    const auto own = stretch_of(whole_file, unit.part, unit.nparts);
    if (own == nullptr) return {};
    read_piece piece = with_layers(own, needs.layers, [&](vtkPointSet *part, auto *before, auto *after) {
        double box[6];
        part->GetBounds(box);
        for (size_t f = 0; f < of_file.size(); ++f) {
            if (of_file[f].nnodes == 0 || !boxes_meet(box, of_file[f].box)) continue;
            const auto number = static_cast<int>(f);
            if (number == unit.number ? unit.nparts == 1 : !is_list()) continue;
            if (number == unit.number) {
                const vtkIdType ncells = whole_file->GetNumberOfCells();
                before->push_back(neighbours_in(whole_file, part, all_but_before(unit, ncells)));
                after->push_back(neighbours_in(whole_file, part, all_but_after(unit, ncells)));
            } else {
                (number < unit.number ? before : after)
                    ->push_back(neighbours_in(file(number, false), part, {}));
            }
        }
    });
    if (!needs.numbers) return piece;
    std::vector<vtkIdType> numbers =
        numbers_of_stretch(whole_file, numbers_in_file(unit.number, whole_file), unit.part, unit.nparts);
    numbers.resize(static_cast<size_t>(piece.data->GetNumberOfPoints()), -1);
    piece.number = std::move(numbers);
    return piece;
}

// They are none that tell nodes apart.
void list_source::forget_numbers()
{
    heading.ids.clear();
    for (const auto &[number, data] : files)
        if (data != nullptr) drop_ends(data);
}

// Nodes that an earlier file has, too, are that one's; of several at one place as many as it has.
std::vector<vtkIdType> list_source::numbers_in_file(int number, vtkPointSet *data)
{
    if (data == nullptr) return {};
    if (!is_list()) {
        std::vector<vtkIdType> all(static_cast<size_t>(data->GetNumberOfPoints()));
        std::iota(all.begin(), all.end(), first_number[static_cast<size_t>(number)]);
        return all;
    }
    const mesh_figures &figures = of_file[static_cast<size_t>(number)];
    std::map<node_place, int> taken;
    for (int f = 0; f < number; ++f) {
        const mesh_figures &other = of_file[static_cast<size_t>(f)];
        if (other.nnodes == 0 || !boxes_meet(figures.box, other.box)) continue;
        std::map<node_place, int> here;
        const auto earlier = file(f, true);
        for (vtkIdType node = 0; node < earlier->GetNumberOfPoints(); ++node) {
            const node_place at = place_of(earlier, node);
            bool within = true;
            for (size_t d = 0; d < 3; ++d)
                within = within && at[d] >= figures.box[2 * d] && at[d] <= figures.box[2 * d + 1];
            if (within) ++here[node_key(earlier, node)];
        }
        for (const auto &[at, count] : here)
            taken[at] = std::max(taken[at], count);
    }
    const auto n = static_cast<size_t>(number);
    vtkIdType next = n < first_number.size() ? first_number[n] : 0;
    std::vector<vtkIdType> numbers;
    for (vtkIdType node = 0; node < data->GetNumberOfPoints(); ++node) {
        const node_place at = place_of(data, node);
        const auto found = std::isfinite(at[0] + at[1] + at[2]) ? taken.find(node_key(data, node))
                                                                : taken.end(); // of no place: none
        const bool is_others = found != taken.end() && found->second-- > 0;
        numbers.push_back(is_others ? -1 : next++);
    }
    return numbers;
}

// Gives the number of all nodes.
vtkIdType list_source::number_files()
{
    const int n = processes::size(), nfiles = this->nfiles();
    std::string own;
    processes::agree([&] {
        for (int f = 0; f < nfiles; ++f) {
            if (share_of(f, n, nfiles) != processes::rank()) continue;
            const std::vector<vtkIdType> numbers = numbers_in_file(f, file(f, true));
            own += std::to_string(std::count_if(numbers.begin(), numbers.end(),
                                                [](vtkIdType number) { return number >= 0; })) +
                   "\n";
        }
    });
    vtkIdType next = 0;
    std::vector<vtkIdType> first;
    for (const std::string &texts : processes::all_of(own)) {
        std::istringstream counts(texts);
        for (vtkIdType count = 0; counts >> count; next += count)
            first.push_back(next);
    }
    first_number = first;
    return next;
}

whole_mesh list_source::survey(mesh_figures *figures)
{
    const int n = processes::size(), count = nfiles();
    std::string own;
    int64_t doubled = 0;
    bool numbered = !heading.ids.empty();
    const bool matter = needs.layers > 0 || needs.numbers; // nodes that are one or are not
    processes::agree([&] {
        for (int f = 0; f < count; ++f) {
            if (share_of(f, n, count) != processes::rank()) continue;
            const auto data = file(f, true);
            own += as_text(figures_of(data)) + "\n";
            if (data == nullptr || !is_list()) continue;
            if (heading.ids.empty() && matter) doubled += count_doubled_nodes(data);
            numbered = numbered && is_numbered(data);
        }
    });
    if (!heading.ids.empty() && processes::any(!numbered)) forget_numbers();
    const std::string note = note_of_doubled_nodes(count > 1 ? processes::sum(doubled) : 0);
    if (!note.empty()) say_note(note);
    for (const std::string &texts : processes::all_of(own)) {
        std::istringstream lines(texts);
        for (std::string line; std::getline(lines, line);)
            of_file.push_back(from_text(line));
    }
    for (const mesh_figures &one : of_file)
        figures->add(one);
    if (figures->nnodes == 0) throw failure(path + ": holds no nodes");
    if (!is_list()) number_parts();
    if (is_list() && needs.numbers) figures->nnodes = number_files();
    return whole_of(*figures);
}

// As they follow one another in the file.
void list_source::number_parts()
{
    vtkIdType next = 0;
    for (const mesh_figures &one : of_file) {
        first_number.push_back(next);
        next += one.nnodes;
    }
    for (const auto &[number, data] : files)
        if (data != nullptr) number_nodes(data, first_number[static_cast<size_t>(number)]);
}

// ---- any other file -----------------------------------------------------------------------------------------

// The first process reads it and sends every other one its pieces; one process alone takes them from the whole.
class shared_source : public slab_source {
  public:
    shared_source(const std::string &path_, const read_options &how, int count, const piece_needs &needs_);
    read_piece read(const piece_unit &unit) override;
    whole_mesh survey(mesh_figures *figures) override;
    bool lattice_extent(int *extent) const override
    {
        if (!lattice) return false;
        return slab_source::lattice_extent(extent);
    }

  private:
    vtkSmartPointer<vtkDataSet> nodes_within(const int *extent, bool bare,
                                             std::vector<std::string> *notes) override;
    read_piece taken(const piece_unit &unit);

    vtkSmartPointer<vtkDataSet> data; // the first process's
    bool lattice = false;
    mesh_figures all;
    vtkSmartPointer<vtkDataSet> bare_lattice;
    std::map<int, read_piece> sent_here; // by the number of the unit
};

shared_source::shared_source(const std::string &path_, const read_options &how, int count,
                             const piece_needs &needs_)
    : slab_source(path_, needs_)
{
    processes::agree([&] {
        if (!processes::is_first()) return;
        input_file file = read_file(path, how);
        data = file.data;
        lattice = extent_of(data, heading.extent);
        if (!lattice && vtkPointSet::SafeDownCast(data) == nullptr)
            throw failure(path + ": is of a kind that cannot be taken apart");
        heading.type = vtkPointSet::SafeDownCast(data) != nullptr ? "StructuredGrid" : "ImageData";
        forget_copies(data, false);
        if (!lattice) number_nodes(data, 0);
        all = figures_of(data);
    });
    std::ostringstream text;
    text << lattice;
    for (const int e : heading.extent)
        text << ' ' << e;
    text << ' ' << as_text(all);
    std::istringstream in(processes::text_of(0, text.str()));
    in >> lattice;
    for (int &e : heading.extent)
        in >> e;
    std::string rest;
    std::getline(in, rest);
    all = from_text(rest);
    share_out(count, lattice ? cells_along() : all.ncells);
    if (!processes::several()) return;
    for (const piece_unit &unit : list) {
        read_piece piece;
        processes::agree([&] {
            if (processes::is_first()) piece = taken(unit);
        });
        if (processes::is_first() && unit.process != 0) {
            packer known;
            piece.ghost_cell.pack(&known);
            piece.ghost_node.pack(&known);
            piece.number.pack(&known);
            processes::send(known.bytes, unit.process);
        }
        if (!processes::is_first() && unit.process == processes::rank()) {
            const std::string bytes = processes::receive(0);
            unpacker known(bytes);
            piece.ghost_cell = piece_marks(&known);
            piece.ghost_node = piece_marks(&known);
            piece.number = piece_numbers(&known);
        }
        const auto moved = processes::move(piece.data, 0, unit.process);
        if (unit.process != processes::rank()) continue;
        piece.data = moved;
        sent_here[unit.number] = piece;
    }
    // the lattice without arrays goes to all
    const bool axes = lattice && processes::text_of(0, heading.type) == "ImageData";
    if (axes && processes::is_first()) {
        bare_lattice = vtkSmartPointer<vtkDataSet>::Take(data->NewInstance());
        bare_lattice->CopyStructure(data);
    }
    for (int to = 1; to < processes::size() && axes; ++to)
        if (const auto got = processes::move(bare_lattice, 0, to)) bare_lattice = got;
    data = nullptr;
}

vtkSmartPointer<vtkDataSet> shared_source::nodes_within(const int *extent, bool, std::vector<std::string> *)
{
    return part_of_lattice(data, extent);
}

read_piece shared_source::taken(const piece_unit &unit)
{
    if (lattice) return slab_source::read(unit);
    auto *points = vtkPointSet::SafeDownCast(data);
    const auto own = stretch_of(points, unit.number, pieces);
    if (own == nullptr) return {};
    piece_unit stretch = unit;
    stretch.part = unit.number;
    stretch.nparts = pieces;
    const vtkIdType ncells = data->GetNumberOfCells();
    read_piece piece = with_layers(own, needs.layers, [&](vtkPointSet *part, auto *before, auto *after) {
        before->push_back(neighbours_in(points, part, all_but_before(stretch, ncells)));
        after->push_back(neighbours_in(points, part, all_but_after(stretch, ncells)));
    });
    if (!needs.numbers) return piece;
    std::vector<vtkIdType> numbers(static_cast<size_t>(points->GetNumberOfPoints()));
    std::iota(numbers.begin(), numbers.end(), 0);
    numbers = numbers_of_stretch(points, numbers, stretch.part, stretch.nparts);
    numbers.resize(static_cast<size_t>(piece.data->GetNumberOfPoints()), -1);
    piece.number = std::move(numbers);
    return piece;
}

read_piece shared_source::read(const piece_unit &unit)
{
    if (!processes::several()) return taken(unit);
    return sent_here.at(unit.number);
}

whole_mesh shared_source::survey(mesh_figures *figures)
{
    *figures = all;
    whole_mesh whole = whole_of(all);
    if (!processes::several() && lattice && vtkPointSet::SafeDownCast(data) == nullptr) {
        bare_lattice = vtkSmartPointer<vtkDataSet>::Take(data->NewInstance());
        bare_lattice->CopyStructure(data);
    }
    whole.lattice = bare_lattice;
    return whole;
}

} // namespace

std::unique_ptr<piece_source> open_pieces(const std::string &path, const read_options &how, int count,
                                          const piece_needs &needs)
{
    xml_heading heading;
    processes::agree([&] { heading = read_xml_heading(path); });
    const std::string kind = heading.type.substr(!heading.pieces.empty() ? 1 : 0);
    const bool plain = how.block <= 0 && how.step == 0, is_list_type = !heading.pieces.empty();
    const bool is_lattice = kind == "ImageData" || kind == "RectilinearGrid" || kind == "StructuredGrid";
    std::unique_ptr<piece_source> source;
    if (plain && is_lattice)
        processes::agree([&] { source = std::make_unique<slab_source>(path, heading, count, needs); });
    else if (plain && (kind == "UnstructuredGrid" || kind == "PolyData") &&
             (is_list_type || heading.nparts > 1))
        processes::agree([&] { source = std::make_unique<list_source>(path, heading, count, needs); });
    else
        source = std::make_unique<shared_source>(path, how, count, needs);
    return source;
}
