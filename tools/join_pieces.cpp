#include "join_pieces.hpp"

#include "failure.hpp"

#include <vtkAppendFilter.h>
#include <vtkAppendPolyData.h>
#include <vtkBoundingBox.h>
#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkCommand.h>
#include <vtkDataArray.h>
#include <vtkDataObject.h>
#include <vtkDataSetAttributes.h>
#include <vtkDoubleArray.h>
#include <vtkFloatArray.h>
#include <vtkIdList.h>
#include <vtkIdTypeArray.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkRectilinearGrid.h>
#include <vtkStructuredGrid.h>
#include <vtkUnsignedCharArray.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numeric>

namespace {

using numbers = std::vector<vtkIdType>;

// Of nodes from the first on, as far as there are any.
struct new_numbers {
    numbers of;
    vtkIdType first = 0;
    vtkIdType operator[](vtkIdType node) const { return of[static_cast<size_t>(node - first)]; }
};

vtkSmartPointer<vtkIdList> list_of(const numbers &of)
{
    auto list = vtkSmartPointer<vtkIdList>::New();
    list->SetNumberOfIds(static_cast<vtkIdType>(of.size()));
    std::copy(of.begin(), of.end(), list->GetPointer(0));
    return list;
}

// Rows of all arrays.
void copy_rows(vtkDataSetAttributes *from, const numbers &rows, vtkDataSetAttributes *to)
{
    const auto count = static_cast<vtkIdType>(rows.size());
    numbers places(rows.size());
    std::iota(places.begin(), places.end(), 0);
    to->CopyAllOn();
    to->CopyAllocate(from, count);
    to->SetNumberOfTuples(count);
    to->CopyData(from, list_of(rows), list_of(places));
}

// The marked cells of a list, whose first has the number first, over new numbers of nodes.
vtkSmartPointer<vtkCellArray> renumbered(vtkCellArray *cells, vtkIdType first, const marks &keep,
                                         const new_numbers &number)
{
    auto out = vtkSmartPointer<vtkCellArray>::New();
    vtkIdType count, ncells = 0, entries = 0;
    const vtkIdType *nodes;
    for (vtkIdType cell = 0; cell < cells->GetNumberOfCells(); ++cell) {
        if (keep[static_cast<size_t>(first + cell)] == 0) continue;
        ++ncells;
        entries += cells->GetCellSize(cell);
    }
    out->AllocateExact(ncells, entries);
    for (vtkIdType cell = 0; cell < cells->GetNumberOfCells(); ++cell) {
        if (keep[static_cast<size_t>(first + cell)] == 0) continue;
        cells->GetCellAtId(cell, count, nodes);
        out->InsertNextCell(static_cast<int>(count));
        for (vtkIdType i = 0; i < count; ++i)
            out->InsertCellPoint(number[nodes[i]]);
    }
    out->Squeeze();
    return out;
}

// A polyhedron is described by its faces.
void add_cells_with_faces(vtkUnstructuredGrid *from, const marks &keep, const new_numbers &number,
                          vtkUnstructuredGrid *to)
{
    vtkNew<vtkIdList> list;
    to->Allocate(from->GetNumberOfCells());
    for (vtkIdType cell = 0; cell < from->GetNumberOfCells(); ++cell) {
        if (keep[static_cast<size_t>(cell)] == 0) continue;
        const int type = from->GetCellType(cell);
        if (type == VTK_POLYHEDRON) {
            from->GetFaceStream(cell, list); // the number of faces, and for each its nodes behind their count
            vtkIdType at = 1;
            for (vtkIdType face = 0; face < list->GetId(0); ++face) {
                const vtkIdType count = list->GetId(at++);
                for (vtkIdType i = 0; i < count; ++i, ++at)
                    list->SetId(at, number[list->GetId(at)]);
            }
        } else {
            from->GetCellPoints(cell, list);
            for (vtkIdType i = 0; i < list->GetNumberOfIds(); ++i)
                list->SetId(i, number[list->GetId(i)]);
        }
        to->InsertNextCell(type, list);
    }
}

// The marked cells over the nodes of rows, which number leads to.
vtkSmartPointer<vtkPointSet> rebuilt(vtkPointSet *data, const marks &keep, const new_numbers &number,
                                     const numbers &rows)
{
    auto out = vtkSmartPointer<vtkPointSet>::Take(data->NewInstance());
    vtkNew<vtkPoints> points;
    points->SetDataType(data->GetPoints()->GetDataType());
    points->SetNumberOfPoints(static_cast<vtkIdType>(rows.size()));
    if (!rows.empty()) data->GetPoints()->GetData()->GetTuples(list_of(rows), points->GetData());
    out->SetPoints(points);
    copy_rows(data->GetPointData(), rows, out->GetPointData());

    numbers cells;
    for (size_t cell = 0; cell < keep.size(); ++cell)
        if (keep[cell] != 0) cells.push_back(static_cast<vtkIdType>(cell));
    if (auto *grid = vtkUnstructuredGrid::SafeDownCast(data)) {
        auto *to = vtkUnstructuredGrid::SafeDownCast(out);
        if (grid->GetFaces() != nullptr) {
            add_cells_with_faces(grid, keep, number, to);
        } else if (grid->GetNumberOfCells() > 0) {
            vtkNew<vtkUnsignedCharArray> types;
            for (const vtkIdType cell : cells)
                types->InsertNextValue(static_cast<unsigned char>(grid->GetCellType(cell)));
            to->SetCells(types, renumbered(grid->GetCells(), 0, keep, number));
        }
    } else if (auto *poly = vtkPolyData::SafeDownCast(data)) {
        auto *to = vtkPolyData::SafeDownCast(out);
        vtkIdType first = 0;
        const auto next = [&](vtkCellArray *list) {
            auto made = renumbered(list, first, keep, number);
            first += list->GetNumberOfCells();
            return made;
        };
        to->SetVerts(next(poly->GetVerts()));
        to->SetLines(next(poly->GetLines()));
        to->SetPolys(next(poly->GetPolys()));
        to->SetStrips(next(poly->GetStrips()));
    }
    copy_rows(data->GetCellData(), cells, out->GetCellData());
    out->GetFieldData()->ShallowCopy(data->GetFieldData());
    return out;
}

marks all_of(vtkIdType count)
{
    marks out(static_cast<size_t>(count), 1);
    return out;
}

// ---- nodes at one place -------------------------------------------------------------------------------------

// Whether two rows hold the same bits in all arrays.
bool same_values(vtkPointData *of, vtkIdType a, vtkIdType b)
{
    for (int i = 0; i < of->GetNumberOfArrays(); ++i) {
        auto *array = of->GetArray(i);
        if (array == nullptr || !array->HasStandardMemoryLayout()) continue;
        const size_t row = static_cast<size_t>(array->GetNumberOfComponents()) *
                           static_cast<size_t>(array->GetElementComponentSize());
        const auto *bytes = static_cast<const char *>(array->GetVoidPointer(0));
        if (memcmp(bytes + static_cast<size_t>(a) * row, bytes + static_cast<size_t>(b) * row, row) != 0)
            return false;
    }
    return true;
}

bool same_row(vtkDataArray *of, vtkIdType a, vtkIdType b)
{
    for (int c = 0; of != nullptr && c < of->GetNumberOfComponents(); ++c)
        if (of->GetComponent(a, c) != of->GetComponent(b, c)) return false;
    return true;
}

bool is_finite(const node_place &at)
{
    return std::all_of(at.begin(), at.end(), [](double x) { return std::isfinite(x); });
}

uint64_t hash_of(const node_place &at)
{
    uint64_t hash = 0;
    for (const double x : at) {
        uint64_t bits;
        memcpy(&bits, &x, sizeof bits);
        hash = (hash ^ bits ^ bits >> 29) * 0x9E3779B97F4A7C15U;
        hash ^= hash >> 32;
    }
    return hash;
}

// A node in the overlap of its piece's box with another.
struct seam_node {
    std::vector<double> key; // of all that may become one: the place, or the ends where they are known
    vtkIdType node;
    size_t piece;
};

// What pieces may differ in at one node, as they go from one end of an edge to the other or back: coordinates are
// floats.
constexpr double rounding = 1e-6;

// Nodes first[p] up to first[p + 1] are of piece p.
std::vector<seam_node> nodes_on_seams(vtkPointSet *data, const numbers &first, vtkDataArray *ends)
{
    const size_t npieces = first.size() - 1;
    std::vector<vtkBoundingBox> box(npieces);
    for (size_t p = 0; p < npieces; ++p) {
        for (vtkIdType node = first[p]; node < first[p + 1]; ++node)
            if (node_place at = place_of(data, node); is_finite(at)) box[p].AddPoint(at.data());
        double bounds[6], most = 0;
        if (ends == nullptr || box[p].IsValid() == 0) continue;
        box[p].GetBounds(bounds);
        for (const double bound : bounds)
            most = std::max(most, std::abs(bound));
        box[p].Inflate(rounding * most);
    }
    std::vector<seam_node> seam;
    for (size_t p = 0; p < npieces; ++p) {
        std::vector<vtkBoundingBox> shared;
        for (size_t q = 0; q < npieces; ++q)
            if (vtkBoundingBox both(box[p]); q != p && both.IntersectBox(box[q]) != 0) shared.push_back(both);
        for (vtkIdType node = first[p]; node < first[p + 1] && !shared.empty(); ++node) {
            const node_place at = place_of(data, node);
            if (!is_finite(at) || std::none_of(shared.begin(), shared.end(), [&](const vtkBoundingBox &one) {
                    return one.ContainsPoint(at.data());
                }))
                continue;
            seam_node one = {{at.begin(), at.end()}, node, p};
            if (ends != nullptr) {
                one.key.resize(static_cast<size_t>(ends->GetNumberOfComponents()));
                for (size_t c = 0; c < one.key.size(); ++c)
                    one.key[c] = ends->GetComponent(node, static_cast<int>(c));
            }
            seam.push_back(one);
        }
    }
    std::sort(seam.begin(), seam.end(), [](const seam_node &a, const seam_node &b) {
        return a.key != b.key ? a.key < b.key : a.node < b.node;
    });
    return seam;
}

bool stand_together(vtkPointSet *data, vtkIdType a, vtkIdType b)
{
    const node_place first = place_of(data, a), second = place_of(data, b);
    double most = 0, apart = 0;
    for (size_t d = 0; d < 3; ++d) {
        most = std::max({most, std::abs(first[d]), std::abs(second[d])});
        apart = std::max(apart, std::abs(first[d] - second[d]));
    }
    return apart <= rounding * most;
}

// For each node the one that it becomes. Of the nodes with one key each piece gives one to each: those with equal values,
// then those that are alike otherwise.
numbers seam_partners(vtkPointSet *data, const numbers &first, seam_nodes which, vtkIdType *unlike)
{
    vtkPointData *values = data->GetPointData();
    vtkDataArray *ends = values->GetArray(name_of_ends), *ids = values->GetGlobalIds();
    const std::vector<seam_node> seam = nodes_on_seams(data, first, ends);
    numbers partner(static_cast<size_t>(data->GetNumberOfPoints()));
    std::iota(partner.begin(), partner.end(), 0);
    std::vector<std::pair<vtkIdType, size_t>>
        kept; // of the key in hand, each with the last piece that joined it
    const auto alike = [&](vtkIdType a, vtkIdType b) {
        if (ends != nullptr) return stand_together(data, a, b);
        return which == seam_nodes::at_one_place && same_row(ids, a, b);
    };
    const auto equal = [&](vtkIdType a, vtkIdType b) {
        return (ends == nullptr || place_of(data, a) == place_of(data, b)) && same_values(values, a, b);
    };
    const auto join = [&](const seam_node &one, const auto &may_become) {
        const auto to = std::find_if(kept.begin(), kept.end(), [&](const auto &other) {
            return other.second != one.piece && may_become(other.first, one.node);
        });
        if (to == kept.end()) return false;
        partner[static_cast<size_t>(one.node)] = to->first;
        to->second = one.piece;
        return true;
    };
    std::vector<seam_node> left; // of one piece with one key
    for (size_t i = 0, end = 0; i < seam.size(); i = end) {
        if (i == 0 || seam[i].key != seam[i - 1].key) kept.clear();
        left.clear();
        for (end = i; end < seam.size() && seam[end].key == seam[i].key && seam[end].piece == seam[i].piece;
             ++end)
            if (!join(seam[end], equal)) left.push_back(seam[end]);
        for (const seam_node &one : left)
            if (join(one, alike))
                ++*unlike;
            else
                kept.emplace_back(one.node, one.piece);
    }
    return partner;
}

// Nodes that become others drop out.
vtkSmartPointer<vtkPointSet> merged(vtkPointSet *data, const numbers &partner)
{
    numbers number(partner.size()), rows;
    for (size_t node = 0; node < partner.size(); ++node) {
        const auto to = static_cast<size_t>(partner[node]);
        if (to != node) {
            number[node] = number[to];
            continue;
        }
        number[node] = static_cast<vtkIdType>(rows.size());
        rows.push_back(static_cast<vtkIdType>(node));
    }
    if (rows.size() == partner.size()) return data;
    return rebuilt(data, all_of(data->GetNumberOfCells()), {std::move(number), 0}, rows);
}

// Marks of hidden nodes and cells, which pieces without any do not have.
void give_all_marks(std::vector<vtkSmartPointer<vtkDataSet>> *pieces)
{
    const char *name = vtkDataSetAttributes::GhostArrayName();
    for (const bool of_cells : {false, true}) {
        const auto rows_of = [of_cells](vtkDataSet *of) {
            return of->GetAttributes(of_cells ? vtkDataObject::CELL : vtkDataObject::POINT);
        };
        if (std::none_of(pieces->begin(), pieces->end(),
                         [&](const auto &one) { return rows_of(one)->GetAbstractArray(name) != nullptr; }))
            continue;
        for (auto &piece : *pieces) {
            if (rows_of(piece)->GetAbstractArray(name) != nullptr) continue;
            const auto marked = vtkSmartPointer<vtkDataSet>::Take(piece->NewInstance());
            marked->ShallowCopy(piece);
            vtkNew<vtkUnsignedCharArray> none;
            none->SetName(name);
            none->SetNumberOfValues(of_cells ? piece->GetNumberOfCells() : piece->GetNumberOfPoints());
            none->FillValue(0);
            rows_of(marked)->AddArray(none);
            piece = marked;
        }
    }
}

// The order and the roles that arrays have in another data set.
void arrange_like(vtkDataSet *like, vtkDataSet *data)
{
    for (const int rows : {vtkDataObject::POINT, vtkDataObject::CELL}) {
        vtkDataSetAttributes *from = like->GetAttributes(rows), *to = data->GetAttributes(rows);
        for (int i = 0; i < from->GetNumberOfArrays(); ++i) {
            const char *name = from->GetAbstractArray(i)->GetName();
            const vtkSmartPointer<vtkAbstractArray> array =
                name != nullptr ? to->GetAbstractArray(name) : nullptr;
            if (array == nullptr) continue;
            to->RemoveArray(name);
            const int at = to->AddArray(array), role = from->IsArrayAnAttribute(i);
            if (role >= 0) to->SetActiveAttribute(at, role);
        }
    }
}

vtkSmartPointer<vtkPointSet> one_after_another(const std::vector<vtkSmartPointer<vtkDataSet>> &pieces)
{
    auto out = vtkSmartPointer<vtkPointSet>::Take(vtkPointSet::SafeDownCast(pieces.front()->NewInstance()));
    if (vtkPolyData::SafeDownCast(pieces.front()) != nullptr) {
        vtkNew<vtkAppendPolyData> append;
        for (const auto &piece : pieces)
            append->AddInputData(vtkPolyData::SafeDownCast(piece));
        append->Update();
        out->ShallowCopy(append->GetOutput());
    } else {
        vtkNew<vtkAppendFilter> append;
        for (const auto &piece : pieces)
            append->AddInputData(piece);
        append->Update();
        out->ShallowCopy(append->GetOutput());
    }
    arrange_like(pieces.front(), out); // VTK puts them in the order of their names
    return out;
}

vtkSmartPointer<vtkPointSet> append_and_merge(std::vector<vtkSmartPointer<vtkDataSet>> &&pieces,
                                              seam_nodes which, vtkIdType *unlike)
{
    numbers first = {0};
    for (const auto &piece : pieces)
        first.push_back(first.back() + piece->GetNumberOfPoints());
    give_all_marks(&pieces);
    const auto all = one_after_another(pieces);
    pieces.clear();
    vtkIdType count = 0;
    auto out = merged(all, seam_partners(all, first, which, &count));
    if (unlike != nullptr) *unlike = count;
    return out;
}

// ---- lattices -----------------------------------------------------------------------------------------------

// Nodes, or cells, along each axis of an extent, and their number.
struct lattice_size {
    vtkIdType along[3];
    lattice_size(const int *extent, bool cells)
    {
        for (int d = 0; d < 3; ++d) {
            const int steps = extent[2 * d + 1] - extent[2 * d];
            along[d] = cells ? std::max(steps, 1) : steps + 1;
        }
    }
    vtkIdType count() const { return along[0] * along[1] * along[2]; }
    vtkIdType place_of(vtkIdType i, vtkIdType j, vtkIdType k) const
    {
        return i + along[0] * (j + along[1] * k);
    }
};

// Whether those of part follow one another in the whole.
bool is_stretch(const lattice_size &part, const lattice_size &whole)
{
    bool full = true; // along the axes before
    for (int d = 2; d >= 0; --d) {
        if (part.along[d] != 1) {
            for (int before = 0; before < d; ++before)
                full = full && part.along[before] == whole.along[before];
            break;
        }
    }
    return full;
}

// Copies the rows of those that both extents have.
void copy_lattice(vtkAbstractArray *from, const int *from_extent, vtkAbstractArray *to, const int *to_extent,
                  bool cells)
{
    const lattice_size have(from_extent, cells), want(to_extent, cells);
    vtkIdType lo[3], hi[3];
    for (int d = 0; d < 3; ++d) {
        lo[d] = std::max(from_extent[2 * d], to_extent[2 * d]);
        hi[d] = std::min(from_extent[2 * d] + have.along[d], to_extent[2 * d] + want.along[d]);
    }
    const auto row = [&](const lattice_size &size, const int *extent, vtkIdType j, vtkIdType k) {
        return size.place_of(lo[0] - extent[0], j - extent[2], k - extent[4]);
    };
    for (vtkIdType k = lo[2]; k < hi[2]; ++k)
        for (vtkIdType j = lo[1]; j < hi[1]; ++j)
            if (hi[0] > lo[0])
                to->InsertTuples(row(want, to_extent, j, k), hi[0] - lo[0], row(have, from_extent, j, k),
                                 from);
}

vtkSmartPointer<vtkAbstractArray> empty_like(vtkAbstractArray *array, vtkIdType count)
{
    auto out = vtkSmartPointer<vtkAbstractArray>::Take(array->NewInstance());
    out->SetName(array->GetName());
    out->SetNumberOfComponents(array->GetNumberOfComponents());
    out->SetNumberOfTuples(count);
    return out;
}

// What an array's end lets go of.
class keeper : public vtkCommand {
  public:
    explicit keeper(vtkObject *kept_) : kept(kept_) {}
    void Execute(vtkObject *, unsigned long, void *) override {}

  private:
    vtkSmartPointer<vtkObject> kept;
};

// Rows that follow one another, in the memory of the array, which lives as long as they do. nullptr: it is of a class
// that has none to share.
vtkSmartPointer<vtkAbstractArray> shared_rows(vtkAbstractArray *array, vtkIdType first, vtkIdType count)
{
    auto *from = vtkDataArray::SafeDownCast(array);
    if (from == nullptr || !from->HasStandardMemoryLayout() || from->GetDataType() == VTK_BIT) return nullptr;
    auto out = vtkSmartPointer<vtkDataArray>::Take(from->NewInstance());
    const vtkIdType components = from->GetNumberOfComponents();
    out->SetName(from->GetName());
    out->SetNumberOfComponents(static_cast<int>(components));
    out->SetVoidArray(from->GetVoidPointer(first * components), count * components, 1);
    const auto kept = vtkSmartPointer<keeper>::Take(new keeper(from));
    out->AddObserver(vtkCommand::DeleteEvent, kept);
    return out;
}

// A lattice of that extent like one of the pieces, with the nodes of all of them that it has.
vtkSmartPointer<vtkDataSet> lattice_of(const std::vector<vtkSmartPointer<vtkDataSet>> &pieces,
                                       const int *extent)
{
    vtkDataSet *like = pieces.front();
    auto out = vtkSmartPointer<vtkDataSet>::Take(like->NewInstance());
    auto *image = vtkImageData::SafeDownCast(out);
    auto *grid = vtkRectilinearGrid::SafeDownCast(out);
    auto *curved = vtkStructuredGrid::SafeDownCast(out);
    int all[6];
    std::copy_n(extent, 6, all);
    if (image != nullptr) {
        image->CopyStructure(like);
        image->SetExtent(all);
    }
    if (grid != nullptr) grid->SetExtent(all);
    if (curved != nullptr) curved->SetExtent(all);

    const lattice_size nodes(extent, false), cells(extent, true);
    // Of one lattice that has all of it in one stretch the rows are its own.
    int first_extent[6];
    extent_of(like, first_extent);
    const lattice_size first_nodes(first_extent, false), first_cells(first_extent, true);
    const bool stretch =
        pieces.size() == 1 && is_stretch(nodes, first_nodes) && is_stretch(cells, first_cells);
    const auto rows_of = [&](bool of_cells, const auto &array_of, vtkAbstractArray *array) {
        const lattice_size &all_of_it = of_cells ? first_cells : first_nodes;
        const vtkIdType count = of_cells ? cells.count() : nodes.count();
        const vtkIdType at = all_of_it.place_of(extent[0] - first_extent[0], extent[2] - first_extent[2],
                                                extent[4] - first_extent[4]);
        if (auto shared = stretch ? shared_rows(array, at, count) : nullptr) return shared;
        auto made = empty_like(array, count);
        for (const auto &piece : pieces) {
            int have[6];
            extent_of(piece, have);
            if (vtkAbstractArray *from = array_of(piece.Get()))
                copy_lattice(from, have, made, extent, of_cells);
        }
        return made;
    };
    if (curved != nullptr) {
        const auto points_of = [](vtkDataSet *of) -> vtkAbstractArray * {
            return vtkStructuredGrid::SafeDownCast(of)->GetPoints()->GetData();
        };
        const auto places = rows_of(false, points_of, points_of(like));
        vtkNew<vtkPoints> points;
        points->SetData(vtkDataArray::SafeDownCast(places));
        curved->SetPoints(points);
    }
    for (int d = 0; d < 3 && grid != nullptr; ++d) {
        const auto axis_of = [d](vtkDataSet *of) {
            auto *one = vtkRectilinearGrid::SafeDownCast(of);
            return d == 0 ? one->GetXCoordinates() : d == 1 ? one->GetYCoordinates() : one->GetZCoordinates();
        };
        const auto axis = empty_like(axis_of(like), nodes.along[d]);
        for (const auto &piece : pieces) {
            int have[6];
            extent_of(piece, have);
            const int lo = std::max(have[2 * d], extent[2 * d]),
                      hi = std::min(have[2 * d + 1], extent[2 * d + 1]);
            if (hi >= lo)
                axis->InsertTuples(lo - extent[2 * d], hi - lo + 1, lo - have[2 * d], axis_of(piece));
        }
        auto *numbers_of_axis = vtkDataArray::SafeDownCast(axis);
        if (d == 0) grid->SetXCoordinates(numbers_of_axis);
        if (d == 1) grid->SetYCoordinates(numbers_of_axis);
        if (d == 2) grid->SetZCoordinates(numbers_of_axis);
    }
    for (const bool of_cells : {false, true}) {
        const auto data_of = [of_cells](vtkDataSet *of) -> vtkDataSetAttributes * {
            if (of_cells) return of->GetCellData();
            return of->GetPointData();
        };
        vtkDataSetAttributes *to = data_of(out);
        for (int i = 0; i < data_of(like)->GetNumberOfArrays(); ++i) {
            vtkAbstractArray *array = data_of(like)->GetAbstractArray(i);
            to->AddArray(rows_of(
                of_cells,
                [&](vtkDataSet *of) {
                    return array->GetName() != nullptr ? data_of(of)->GetAbstractArray(array->GetName())
                                                       : data_of(of)->GetAbstractArray(i);
                },
                array));
            const int role = data_of(like)->IsArrayAnAttribute(i);
            if (role >= 0) to->SetActiveAttribute(i, role);
        }
    }
    out->GetFieldData()->ShallowCopy(like->GetFieldData());
    return out;
}

} // namespace

void drop_ends(vtkDataSet *data)
{
    if (data != nullptr) data->GetPointData()->RemoveArray(name_of_ends);
}

node_place node_key(vtkDataSet *data, vtkIdType node)
{
    if (vtkDataArray *number = data->GetPointData()->GetArray(name_of_ends))
        return {number->GetComponent(node, 0), 0, 0};
    return place_of(data, node);
}

bool number_by_array(vtkDataSet *data, const std::string &name)
{
    vtkDataArray *from = data->GetPointData()->GetArray(name.c_str());
    if (from == nullptr) return false;
    vtkNew<vtkDoubleArray> numbers;
    numbers->SetName(name_of_ends);
    numbers->SetNumberOfValues(data->GetNumberOfPoints());
    for (vtkIdType node = 0; node < data->GetNumberOfPoints(); ++node)
        numbers->SetValue(node, from->GetComponent(node, 0));
    std::vector<double> sorted(numbers->GetPointer(0), numbers->GetPointer(0) + data->GetNumberOfPoints());
    if (std::any_of(sorted.begin(), sorted.end(), [](double number) { return std::isnan(number); }))
        return false;
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) return false;
    data->GetPointData()->AddArray(numbers);
    return true;
}

bool is_numbered(vtkDataSet *data)
{
    return data->GetPointData()->GetArray(name_of_ends) != nullptr;
}

// Most nodes stand alone: a place whose mark in a table of bits is not set yet has none before it. Only those of places
// that share a mark are compared.
vtkIdType count_doubled_nodes(vtkDataSet *data)
{
    const vtkIdType count = data->GetNumberOfPoints();
    size_t room = 1024;
    while (room < 16 * static_cast<size_t>(count))
        room *= 2;
    std::vector<bool> seen(room), shared(room);
    auto *set = vtkPointSet::SafeDownCast(data);
    auto *floats = set != nullptr ? vtkFloatArray::SafeDownCast(set->GetPoints()->GetData()) : nullptr;
    const float *row = floats != nullptr ? floats->GetPointer(0) : nullptr;
    const auto each_mark = [&](const auto &take) {
        for (vtkIdType node = 0; node < count; ++node) {
            node_place at;
            if (row != nullptr)
                for (size_t d = 0; d < 3; ++d) // 0 of one sign
                    at[d] = static_cast<double>(row[static_cast<size_t>(node) * 3 + d]) + 0.0;
            else
                at = place_of(data, node);
            if (is_finite(at)) take(at, hash_of(at) & (room - 1));
        }
    };
    bool any = false;
    each_mark([&](const node_place &, size_t mark) {
        if (seen[mark]) any = shared[mark] = true;
        seen[mark] = true;
    });
    if (!any) return 0;
    std::vector<node_place> places;
    each_mark([&](const node_place &at, size_t mark) {
        if (shared[mark]) places.push_back(at);
    });
    std::sort(places.begin(), places.end());
    vtkIdType doubled = 0;
    for (size_t i = 1; i < places.size(); ++i)
        doubled += places[i] == places[i - 1] ? 1 : 0;
    return doubled;
}

node_place place_of(vtkDataSet *data, vtkIdType node)
{
    node_place at;
    data->GetPoint(node, at.data());
    for (double &x : at)
        if (x == 0) x = 0; // of either sign
    return at;
}

vtkSmartPointer<vtkPointSet> cells_of(vtkPointSet *data, const marks &keep, const marks &lone)
{
    const marks used = nodes_of_cells(data, keep);
    numbers rows;
    for (size_t node = 0; node < used.size(); ++node)
        if (used[node] != 0 || (!lone.empty() && lone[node] != 0))
            rows.push_back(static_cast<vtkIdType>(node));
    new_numbers number;
    if (!rows.empty()) { // a stretch of cells has few of all nodes
        number.first = rows.front();
        number.of.resize(static_cast<size_t>(rows.back() - rows.front() + 1), -1);
    }
    for (size_t row = 0; row < rows.size(); ++row)
        number.of[static_cast<size_t>(rows[row] - number.first)] = static_cast<vtkIdType>(row);
    return rebuilt(data, keep, number, rows);
}

marks nodes_of_cells(vtkDataSet *data, const marks &cells)
{
    marks used(static_cast<size_t>(data->GetNumberOfPoints()));
    vtkNew<vtkIdList> nodes;
    for (size_t cell = 0; cell < cells.size(); ++cell) {
        if (cells[cell] == 0) continue;
        data->GetCellPoints(static_cast<vtkIdType>(cell), nodes);
        for (vtkIdType i = 0; i < nodes->GetNumberOfIds(); ++i)
            used[static_cast<size_t>(nodes->GetId(i))] = 1;
    }
    return used;
}

bool extent_of(vtkDataSet *data, int *extent)
{
    if (auto *image = vtkImageData::SafeDownCast(data)) return image->GetExtent(extent), true;
    if (auto *grid = vtkRectilinearGrid::SafeDownCast(data)) return grid->GetExtent(extent), true;
    if (auto *grid = vtkStructuredGrid::SafeDownCast(data)) return grid->GetExtent(extent), true;
    return false;
}

vtkSmartPointer<vtkDataSet> part_of_lattice(vtkDataSet *data, const int *extent)
{
    int all[6];
    extent_of(data, all);
    if (std::equal(all, all + 6, extent)) return data;
    return lattice_of({data}, extent);
}

piece_marks marks_outside(const int *slab, const int *extent, bool cells)
{
    const lattice_size part(slab, cells), whole(extent, cells);
    const auto first =
        static_cast<size_t>(whole.place_of(slab[0] - extent[0], slab[2] - extent[2], slab[4] - extent[4]));
    return {first, first + static_cast<size_t>(part.count()), static_cast<size_t>(whole.count())};
}

vtkSmartPointer<vtkDataSet> joined(std::vector<vtkSmartPointer<vtkDataSet>> &&pieces, seam_nodes which,
                                   vtkIdType *unlike)
{
    vtkSmartPointer<vtkDataSet> any = pieces.front();
    std::vector<vtkSmartPointer<vtkDataSet>> filled;
    for (const auto &piece : pieces)
        if (piece->GetNumberOfPoints() > 0) filled.push_back(piece);
    pieces.clear();
    if (filled.empty()) return any;
    if (filled.size() == 1) return filled.front();
    int whole[6];
    if (!extent_of(filled.front(), whole)) return append_and_merge(std::move(filled), which, unlike);
    for (const auto &piece : filled) {
        int own[6];
        extent_of(piece, own);
        for (int d = 0; d < 3; ++d) {
            whole[2 * d] = std::min(whole[2 * d], own[2 * d]);
            whole[2 * d + 1] = std::max(whole[2 * d + 1], own[2 * d + 1]);
        }
    }
    return lattice_of(filled, whole);
}

vtkSmartPointer<vtkPointSet> attached(vtkPointSet *first, vtkPointSet *second)
{
    return append_and_merge({first, second}, seam_nodes::at_one_place, nullptr);
}
