#include "piece_source.hpp"

#include "cell_order.hpp"
#include "failure.hpp"
#include "listed_files.hpp"
#include "process_group.hpp"

#include <vtkCellData.h>
#include <vtkCellType.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkDataSetAttributes.h>
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
    slab_source(const std::string &path_, const xml_heading &heading_, int count);
    read_piece read(const piece_unit &unit, bool ghosts) override;
    whole_mesh survey(mesh_figures *figures) override;
    bool lattice_extent(int *extent) const override
    {
        std::copy_n(heading.extent, 6, extent);
        return true;
    }

  protected:
    // The file itself is read by one process, and its whole is here.
    explicit slab_source(const std::string &path_) : path(path_) {}
    void share_out(int count);
    virtual vtkSmartPointer<vtkDataSet> nodes_within(const int *extent, bool bare);
    bool slab(int number, bool ghosts, int *extent) const;

    std::string path;
    xml_heading heading;
    std::map<int, vtkSmartPointer<vtkDataSet>> looked_at; // read in full at the first look
};

slab_source::slab_source(const std::string &path_, const xml_heading &heading_, int count)
    : path(path_), heading(heading_)
{
    if (processes::is_first())
        for (const xml_heading::piece &one : heading.pieces)
            check_file(one.path);
    share_out(count);
}

void slab_source::share_out(int count)
{
    pieces = count > 0 ? count : processes::size();
    for (int p = 0; p < pieces; ++p)
        list.push_back({share_of(p, processes::size(), pieces), p, p});
}

// Slabs across the last axis that has several nodes: what one of them needs lies together in the file.
bool slab_source::slab(int number, bool ghosts, int *extent) const
{
    const int *whole = heading.extent;
    int axis = 2;
    while (axis > 0 && whole[2 * axis + 1] <= whole[2 * axis])
        --axis;
    std::copy_n(whole, 6, extent);
    const int cells = whole[2 * axis + 1] - whole[2 * axis];
    if (cells == 0) return number == 0; // a single node
    const int lo = first_of_share(number, pieces, cells), hi = first_of_share(number + 1, pieces, cells);
    if (hi <= lo) return false;
    const int layer = ghosts ? 1 : 0;
    extent[2 * axis] = whole[2 * axis] + std::max(lo - layer, 0);
    extent[2 * axis + 1] = whole[2 * axis] + std::min(hi + layer, cells);
    return true;
}

vtkSmartPointer<vtkDataSet> slab_source::nodes_within(const int *extent, bool bare)
{
    read_options how;
    how.bare = bare;
    how.extent.assign(extent, extent + 6);
    vtkSmartPointer<vtkDataSet> data;
    try {
        data = read_file(path, how).data;
    } catch (const failure &) {
        for (const xml_heading::piece &one : heading.pieces) // whichever it is will tell
            read_file(one.path, {});
        throw;
    }
    int got[6];
    if (!extent_of(data, got) || !std::equal(got, got + 6, extent))
        throw failure(path + ": is damaged: a part of it is missing");
    return data;
}

read_piece slab_source::read(const piece_unit &unit, bool ghosts)
{
    read_piece piece;
    int own[6], with[6];
    if (!slab(unit.number, false, own)) return piece;
    slab(unit.number, ghosts, with);
    piece.data = nodes_within(with, false);
    forget_copies(piece.data, !heading.pieces.empty());
    if (std::equal(own, own + 6, with)) return piece;
    const auto mark = [&](bool cells) {
        marks out;
        int last[3];
        for (int d = 0; d < 3; ++d)
            last[d] = with[2 * d + 1] - (cells && with[2 * d + 1] > with[2 * d] ? 1 : 0);
        for (int k = with[4]; k <= last[2]; ++k)
            for (int j = with[2]; j <= last[1]; ++j)
                for (int i = with[0]; i <= last[0]; ++i) {
                    const int at[3] = {i, j, k};
                    bool outside = false;
                    for (int d = 0; d < 3; ++d) {
                        const bool thick = cells && own[2 * d + 1] > own[2 * d];
                        outside = outside || at[d] < own[2 * d] || at[d] > own[2 * d + 1] - (thick ? 1 : 0);
                    }
                    out.push_back(outside ? 1 : 0);
                }
        return out;
    };
    piece.ghost_cell = mark(true);
    piece.ghost_node = mark(false);
    return piece;
}

whole_mesh slab_source::survey(mesh_figures *figures)
{
    vtkSmartPointer<vtkDataSet> lattice;
    const bool curved = heading.type == "StructuredGrid" || heading.type == "PStructuredGrid";
    processes::agree([&] {
        if (!curved) {
            lattice = nodes_within(heading.extent, true); // axes at most
            lattice->GetPointData()->Initialize();
            lattice->GetCellData()->Initialize();
        }
        if (!curved && !heading.ghosts) return;
        for (const piece_unit &unit : list) {
            int extent[6];
            if (unit.process != processes::rank() || !slab(unit.number, false, extent)) continue;
            const auto data = nodes_within(extent, true);
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

// ---- lists of unstructured files ----------------------------------------------------------------------------

class list_source : public piece_source {
  public:
    list_source(const std::string &path_, const xml_heading &heading_, int count);
    read_piece read(const piece_unit &unit, bool ghosts) override;
    whole_mesh survey(mesh_figures *figures) override;
    bool lattice_extent(int *) const override { return false; }

  private:
    vtkSmartPointer<vtkPointSet> file(int number, bool bare);
    vtkSmartPointer<vtkPointSet> own_file(int number);

    std::string path;
    xml_heading heading;
    bool kept; // files once read: a process that was not told to save memory holds its share
    std::map<int, vtkSmartPointer<vtkPointSet>> files;
    std::vector<mesh_figures> of_file; // of all processes
};

list_source::list_source(const std::string &path_, const xml_heading &heading_, int count)
    : path(path_), heading(heading_), kept(count == 0)
{
    const auto nfiles = static_cast<int>(heading.pieces.size());
    if (nfiles == 0) throw failure(path + ": lists no pieces");
    if (processes::is_first())
        for (const xml_heading::piece &one : heading.pieces)
            check_file(one.path);
    // without a number, results have a piece a process
    pieces = count > 0 ? count : processes::size();
    const int nunits = std::max(nfiles, pieces);
    for (int u = 0; u < nunits; ++u) {
        piece_unit unit;
        unit.piece = nunits == pieces ? u : share_of(u, pieces, nfiles);
        unit.number = nunits == nfiles ? u : share_of(u, nfiles, nunits);
        const int first = nunits == nfiles ? u : first_of_share(unit.number, nfiles, nunits);
        unit.part = u - first;
        unit.nparts = nunits == nfiles ? 1 : first_of_share(unit.number + 1, nfiles, nunits) - first;
        unit.process = share_of(unit.piece, processes::size(), pieces);
        list.push_back(unit);
    }
}

// nullptr: it is empty.
vtkSmartPointer<vtkPointSet> list_source::file(int number, bool bare)
{
    if (const auto found = files.find(number); found != files.end()) return found->second;
    const vtkSmartPointer<vtkPointSet> data =
        vtkPointSet::SafeDownCast(read_listed(path, heading, number, bare && !kept).data);
    if (kept) files[number] = data;
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
        if (inside) places[at] = 1;
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
        near[node] = inside && places.count(at) != 0 ? 1 : 0;
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
    for (vtkIdType cell = 0; cell < all->GetNumberOfCells(); ++cell)
        piece.ghost_cell.push_back(marks_of(all)->GetValue(cell) == is_own ? 0 : 1);
    all->GetCellData()->RemoveArray(owned);
    if (all->GetNumberOfPoints() == own->GetNumberOfPoints() &&
        all->GetNumberOfCells() == own->GetNumberOfCells()) {
        piece.ghost_cell.clear();
        return piece;
    }
    piece.ghost_node.assign(static_cast<size_t>(all->GetNumberOfPoints()), 1);
    std::fill_n(piece.ghost_node.begin(), own->GetNumberOfPoints(), static_cast<unsigned char>(0));
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

read_piece list_source::read(const piece_unit &unit, bool ghosts)
{
    read_piece piece;
    const auto whole_file = file(unit.number, false);
    const auto own = stretch_of(whole_file, unit.part, unit.nparts);
    piece.data = own;
    if (!ghosts || own == nullptr) return piece;
    std::vector<vtkSmartPointer<vtkPointSet>> before, after;
    double box[6];
    own->GetBounds(box);
    for (size_t f = 0; f < of_file.size(); ++f) {
        if (of_file[f].nnodes == 0 || !boxes_meet(box, of_file[f].box)) continue;
        const auto number = static_cast<int>(f);
        if (number == unit.number && unit.nparts == 1) continue;
        if (number == unit.number) {
            before.push_back(
                neighbours_in(whole_file, own, all_but_before(unit, whole_file->GetNumberOfCells())));
            after.push_back(
                neighbours_in(whole_file, own, all_but_after(unit, whole_file->GetNumberOfCells())));
        } else {
            (number < unit.number ? before : after).push_back(neighbours_in(file(number, false), own, {}));
        }
    }
    return with_layer(own, before, after);
}

whole_mesh list_source::survey(mesh_figures *figures)
{
    const int n = processes::size(), nfiles = static_cast<int>(heading.pieces.size());
    std::string own;
    processes::agree([&] {
        for (int f = 0; f < nfiles; ++f)
            if (share_of(f, n, nfiles) == processes::rank()) own += as_text(figures_of(file(f, true))) + "\n";
    });
    for (const std::string &texts : processes::all_of(own)) {
        std::istringstream lines(texts);
        for (std::string line; std::getline(lines, line);)
            of_file.push_back(from_text(line));
    }
    for (const mesh_figures &one : of_file)
        figures->add(one);
    if (figures->nnodes == 0) throw failure(path + ": holds no nodes");
    return whole_of(*figures);
}

// ---- any other file -----------------------------------------------------------------------------------------

// The first process reads it and sends every other one its pieces; one process alone takes them from the whole.
class shared_source : public slab_source {
  public:
    shared_source(const std::string &path_, const read_options &how, int count, bool ghosts);
    read_piece read(const piece_unit &unit, bool ghosts) override;
    whole_mesh survey(mesh_figures *figures) override;
    bool lattice_extent(int *extent) const override
    {
        if (!lattice) return false;
        return slab_source::lattice_extent(extent);
    }

  private:
    vtkSmartPointer<vtkDataSet> nodes_within(const int *extent, bool bare) override;
    read_piece taken(const piece_unit &unit, bool ghosts);

    vtkSmartPointer<vtkDataSet> data; // the first process's
    bool lattice = false;
    mesh_figures all;
    vtkSmartPointer<vtkDataSet> bare_lattice;
    std::map<int, read_piece> sent_here; // by the number of the unit
};

std::string as_text(const marks &of)
{
    return {reinterpret_cast<const char *>(of.data()), of.size()};
}

shared_source::shared_source(const std::string &path_, const read_options &how, int count, bool ghosts)
    : slab_source(path_)
{
    share_out(count);
    std::string about;
    processes::agree([&] {
        if (!processes::is_first()) return;
        input_file file = read_file(path, how);
        data = file.data;
        lattice = extent_of(data, heading.extent);
        if (!lattice && vtkPointSet::SafeDownCast(data) == nullptr)
            throw failure(path + ": is of a kind that cannot be taken apart");
        heading.type = vtkPointSet::SafeDownCast(data) != nullptr ? "StructuredGrid" : "ImageData";
        forget_copies(data, false);
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
    if (!processes::several()) return;
    for (const piece_unit &unit : list) {
        read_piece piece;
        processes::agree([&] {
            if (processes::is_first()) piece = taken(unit, ghosts);
        });
        if (processes::is_first() && unit.process != 0) {
            processes::send(as_text(piece.ghost_cell), unit.process);
            processes::send(as_text(piece.ghost_node), unit.process);
        }
        if (!processes::is_first() && unit.process == processes::rank()) {
            const std::string cells = processes::receive(0), nodes = processes::receive(0);
            piece.ghost_cell.assign(cells.begin(), cells.end());
            piece.ghost_node.assign(nodes.begin(), nodes.end());
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

vtkSmartPointer<vtkDataSet> shared_source::nodes_within(const int *extent, bool)
{
    return part_of_lattice(data, extent);
}

read_piece shared_source::taken(const piece_unit &unit, bool ghosts)
{
    if (lattice) return slab_source::read(unit, ghosts);
    auto *points = vtkPointSet::SafeDownCast(data);
    read_piece piece;
    const auto own = stretch_of(points, unit.number, pieces);
    piece.data = own;
    if (!ghosts || own == nullptr) return piece;
    piece_unit stretch = unit;
    stretch.part = unit.number;
    stretch.nparts = pieces;
    return with_layer(own, {neighbours_in(points, own, all_but_before(stretch, data->GetNumberOfCells()))},
                      {neighbours_in(points, own, all_but_after(stretch, data->GetNumberOfCells()))});
}

read_piece shared_source::read(const piece_unit &unit, bool ghosts)
{
    if (!processes::several()) return taken(unit, ghosts);
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
                                          bool ghosts)
{
    xml_heading heading;
    processes::agree([&] { heading = read_xml_heading(path); });
    const std::string kind = heading.type.substr(!heading.pieces.empty() ? 1 : 0);
    const bool plain = how.block <= 0 && how.step == 0;
    const bool is_lattice = kind == "ImageData" || kind == "RectilinearGrid" || kind == "StructuredGrid";
    std::unique_ptr<piece_source> source;
    if (plain && is_lattice)
        processes::agree([&] { source = std::make_unique<slab_source>(path, heading, count); });
    else if (plain && !heading.pieces.empty() && (kind == "UnstructuredGrid" || kind == "PolyData"))
        processes::agree([&] { source = std::make_unique<list_source>(path, heading, count); });
    else
        source = std::make_unique<shared_source>(path, how, count, ghosts);
    return source;
}
