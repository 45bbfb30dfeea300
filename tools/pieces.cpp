#include "pieces.hpp"

#include "cell_order.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "piece_source.hpp"

#include <vtkCell.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkGenericCell.h>
#include <vtkIdList.h>
#include <vtkIdTypeArray.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPointSet.h>
#include <vtkUnsignedCharArray.h>

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

struct pieces::plan {
    std::string path;
    read_options how;
    mesh_use use;
    bool several, ghosts;
    mean_maker mean;
    std::unique_ptr<piece_source> source; // of several
    whole_mesh mesh;                      // of several
    totals whole;
    std::map<std::pair<int, int>, qx_long> sets; // cells by kind and order, of the pieces of this process
    std::vector<std::string> notes, said;        // of this process; of all, each once
    std::map<int, std::vector<std::string>> loaded_notes; // by unit

    input piece_of(const piece_unit &unit, bool meshed);
    void take_mean(input *in, bool meshed) const;
    void run(const std::function<void(const input &)> &body, bool meshed);
    void agree_on_totals();
};

namespace {

int dimension_of(int vtk_type)
{
    const auto cell = vtkSmartPointer<vtkCell>::Take(vtkGenericCell::InstantiateCell(vtk_type));
    return cell != nullptr ? cell->GetCellDimension() : 0;
}

std::string words_of(const std::map<std::pair<int, int>, qx_long> &sets)
{
    std::string words;
    for (const auto &[kind, ncells] : sets)
        words += (words.empty() ? "" : ", ") + std::to_string(ncells) +
                 (kind.second == 2 ? " second-order " : " ") + name_of_kind(kind.first);
    return words.empty() ? "no cells" : words;
}

// What is known of the whole before any piece is read for good.
pieces::totals totals_of(const mesh_figures &figures, const piece_source &source)
{
    pieces::totals whole = {};
    std::copy_n(figures.box, 6, whole.box);
    whole.nnodes = figures.nnodes;
    whole.ncells = figures.ncells;
    std::map<std::pair<int, int>, qx_long> sets;
    for (const auto &[type, n] : figures.by_type) {
        const int ndim = dimension_of(type);
        whole.cell_ndim = std::max(whole.cell_ndim, ndim);
        whole.flat_cells = whole.flat_cells || ndim == 2;
        if (const cell_order *order = order_of_vtk(type)) sets[{order->kind, order->order}] += n;
    }
    int extent[6];
    if (source.lattice_extent(extent)) {
        std::copy_n(extent, 6, whole.extent);
        for (int d = 0; d < 3; ++d)
            if (extent[2 * d + 1] > extent[2 * d] || (d == 0 && whole.nnodes == 1))
                whole.size_in_words += (whole.size_in_words.empty() ? "" : " x ") +
                                       std::to_string(extent[2 * d + 1] - extent[2 * d] + 1);
        whole.size_in_words += " nodes";
    } else {
        whole.size_in_words = words_of(sets);
    }
    return whole;
}

// "12 cell(s)" and "30 cell(s)" are one note about 42; notes with other numbers, or none, are told once.
std::vector<std::string> added_up(const std::vector<std::string> &notes)
{
    static const char *const digits = "0123456789";
    struct sum {
        std::string text;
        std::vector<long long> counts;
    };
    std::vector<std::string> skeletons;
    std::map<std::string, sum> sums;
    for (const std::string &note : notes) {
        std::string skeleton;
        std::vector<long long> counts;
        bool whole_numbers = true;
        for (size_t at = 0; at < note.size();) {
            const size_t end = std::min(note.find_first_not_of(digits, at), note.size());
            const bool word_before = at > 0 && (isalpha(static_cast<unsigned char>(note[at - 1])) != 0);
            if (end == at || word_before) {
                skeleton += note[at++];
                continue;
            }
            if (end < note.size() && (note[end] == '.' && end + 1 < note.size() &&
                                      isdigit(static_cast<unsigned char>(note[end + 1])) != 0))
                whole_numbers = false;
            skeleton += '\1';
            counts.push_back(strtoll(note.c_str() + at, nullptr, 10));
            at = end;
        }
        bool of_cells = false;
        for (const char *words : {"cell", "split into simplices", "taken without", "left out"})
            of_cells = of_cells || note.find(words) != std::string::npos;
        if (!whole_numbers || !of_cells) {
            skeleton = note;
            counts.clear();
        }
        const auto [entry, first] = sums.try_emplace(skeleton, sum{note, counts});
        if (first) {
            skeletons.push_back(skeleton);
            continue;
        }
        for (size_t i = 0; i < counts.size(); ++i)
            entry->second.counts[i] += counts[i];
    }
    std::vector<std::string> out;
    for (const std::string &skeleton : skeletons) {
        std::string text;
        size_t next = 0;
        const std::vector<long long> &counts = sums[skeleton].counts;
        for (const char c : skeleton)
            text += c == '\1' && !counts.empty() ? std::to_string(counts[next++]) : std::string(1, c);
        out.push_back(text);
    }
    return out;
}

void tell_of_all(const std::vector<std::string> &own, std::vector<std::string> *told)
{
    std::string text;
    for (const std::string &note : own)
        text += note + '\0';
    std::vector<std::string> all;
    for (const std::string &of_one : processes::all_of(text))
        for (size_t at = 0; at < of_one.size(); at = of_one.find('\0', at) + 1)
            all.push_back(of_one.c_str() + at);
    for (const std::string &note : added_up(all)) {
        if (std::find(told->begin(), told->end(), note) != told->end()) continue;
        say_note(note);
        told->push_back(note);
    }
}

} // namespace

namespace {

template <typename Array, typename List>
void put_list(const List &list, const char *name, vtkDataSetAttributes *to)
{
    vtkNew<Array> array;
    array->SetName(name);
    array->SetNumberOfValues(static_cast<vtkIdType>(list.size()));
    for (size_t i = 0; i < list.size(); ++i)
        array->SetValue(static_cast<vtkIdType>(i), list[i]);
    to->AddArray(array);
}

template <typename Array> auto list_out_of(vtkDataSetAttributes *from, const char *name)
{
    auto *array = Array::SafeDownCast(from->GetAbstractArray(name));
    std::vector<typename Array::ValueType> list(array->GetPointer(0),
                                                array->GetPointer(0) + array->GetNumberOfValues());
    from->RemoveArray(name);
    return list;
}

// The extent of a lattice without the layers around it but for so many.
void extent_within(const input &in, int layers, int *extent)
{
    int all[6];
    extent_of(in.file.data, all);
    own_extent_of(in, extent);
    for (int d = 0; d < 3; ++d) {
        extent[2 * d] = std::max(all[2 * d], extent[2 * d] - layers);
        extent[2 * d + 1] = std::min(all[2 * d + 1], extent[2 * d + 1] + layers);
    }
}

// The cells of a piece, and those of the layers around it that have a node of its own.
marks cells_within(const input &in, bool one_layer)
{
    marks keep;
    vtkNew<vtkIdList> nodes;
    for (size_t cell = 0; cell < in.ghost_cell.size(); ++cell) {
        bool kept = in.ghost_cell[cell] == 0;
        if (!kept && one_layer) {
            in.file.data->GetCellPoints(static_cast<vtkIdType>(cell), nodes);
            for (vtkIdType i = 0; i < nodes->GetNumberOfIds(); ++i)
                kept = kept || in.ghost_node[static_cast<size_t>(nodes->GetId(i))] == 0;
        }
        keep.push_back(kept ? 1 : 0);
    }
    return keep;
}

// What is left has one layer or none.
void drop_outer_layer(input *in, bool one_layer)
{
    static const char *const ghosts = "nodes of the layer", *const ghost_cells = "cells of the layer",
                             *const numbers = "numbers in the whole";
    if (in->ghost_cell.empty()) return;
    vtkDataSet *data = in->file.data;
    int extent[6];
    if (extent_of(data, extent)) {
        int own[6], left[6];
        own_extent_of(*in, own);
        extent_within(*in, one_layer ? 1 : 0, left);
        in->file.data = part_of_lattice(data, left);
        if (!in->node_number.empty()) {
            const piece_marks outside = marks_outside(left, extent, false);
            in->node_number =
                in->node_number.part(outside.first_own(), outside.end_of_own() - outside.first_own());
        }
        in->ghost_node = one_layer ? marks_outside(own, left, false) : piece_marks();
        in->ghost_cell = one_layer ? marks_outside(own, left, true) : piece_marks();
        return;
    }
    put_list<vtkUnsignedCharArray>(in->ghost_node, ghosts, data->GetPointData());
    put_list<vtkUnsignedCharArray>(in->ghost_cell, ghost_cells, data->GetCellData());
    if (!in->node_number.empty()) put_list<vtkIdTypeArray>(in->node_number, numbers, data->GetPointData());
    in->file.data =
        cells_of(vtkPointSet::SafeDownCast(data), cells_within(*in, one_layer), in->ghost_node.own());
    vtkDataSet *left = in->file.data;
    const marks nodes = list_out_of<vtkUnsignedCharArray>(left->GetPointData(), ghosts);
    const marks cells = list_out_of<vtkUnsignedCharArray>(left->GetCellData(), ghost_cells);
    if (!in->node_number.empty())
        in->node_number = list_out_of<vtkIdTypeArray>(left->GetPointData(), numbers);
    in->ghost_node = one_layer ? nodes : piece_marks();
    in->ghost_cell = one_layer ? cells : piece_marks();
}

} // namespace

pieces::pieces(const std::string &path, const read_options &how, mesh_use use, int count, piece_with with,
               const mean_maker &mean)
    : own(std::make_unique<plan>())
{
    own->path = path;
    own->how = how;
    own->use = use;
    own->ghosts = with == piece_with::ghosts || with == piece_with::ghosts_and_numbers;
    own->mean = mean;
    own->several = count > 0 || processes::several();
    own->whole = {};
    if (!own->several) return;
    const int layers = (own->ghosts ? 1 : 0) + (mean ? 1 : 0); // values at nodes take the cells around them
    own->source = open_pieces(
        path, how, count, {layers, with == piece_with::numbers || with == piece_with::ghosts_and_numbers});
    mesh_figures figures;
    own->mesh = own->source->survey(&figures);
    own->whole = totals_of(figures, *own->source);
}

pieces::~pieces() = default;

bool pieces::several() const
{
    return own->several;
}

int pieces::count() const
{
    return own->several ? own->source->npieces() : 1;
}

int pieces::process_of(int piece) const
{
    if (!own->several) return 0;
    for (const piece_unit &unit : own->source->units())
        if (unit.piece == piece) return unit.process;
    return 0;
}

const std::string &pieces::path() const
{
    return own->path;
}

const pieces::totals &pieces::whole() const
{
    return own->whole;
}

input pieces::plan::piece_of(const piece_unit &unit, bool meshed)
{
    input in;
    in.file.path = path;
    in.piece = unit.piece;
    const auto &units = source->units();
    in.ends_piece = &unit == &units.back() || (&unit)[1].piece != unit.piece;
    read_piece read = source->read(unit);
    if (read.data == nullptr || read.data->GetNumberOfPoints() == 0) return in;
    in.file.data = read.data;
    in.ghost_cell = std::move(read.ghost_cell);
    in.ghost_node = std::move(read.ghost_node);
    in.node_number = std::move(read.number);
    notes.insert(notes.end(), read.notes.begin(), read.notes.end());
    if (mean) take_mean(&in, meshed);
    vtkDataSet *data = in.file.data;
    in.node = arrays_of(data->GetPointData(), data->GetNumberOfPoints(), &notes);
    in.cell = arrays_of(data->GetCellData(), data->GetNumberOfCells(), &notes);
    in.node.erase(std::remove_if(in.node.begin(), in.node.end(),
                                 [](const typed_array &one) { return one.name == name_of_ends; }),
                  in.node.end());
    if (!meshed) return in;
    in.mesh = make_mesh(path, in.file.data, use, &mesh, &in.ghost_cell);
    notes.insert(notes.end(), in.mesh->notes.begin(), in.mesh->notes.end());
    return in;
}

// The values at nodes that take the layer around, which goes then.
void pieces::plan::take_mean(input *in, bool meshed) const
{
    static const char *const name = "means at the nodes of a piece";
    vtkDataSet *data = in->file.data;
    std::vector<std::string> told; // once more by the piece itself
    in->node = arrays_of(data->GetPointData(), data->GetNumberOfPoints(), &told);
    in->cell = arrays_of(data->GetCellData(), data->GetNumberOfCells(), &told);
    in->mesh = make_mesh(path, data, meshed ? use : mesh_use::extract, &mesh);
    typed_array made = mean(*in);
    in->mesh = nullptr;
    made.kept->SetName(name);
    const auto with = vtkSmartPointer<vtkDataSet>::Take(data->NewInstance());
    with->ShallowCopy(data);
    with->GetPointData()->AddArray(made.kept);
    in->file.data = with;
    drop_outer_layer(in, ghosts);
    vtkPointData *rows = in->file.data->GetPointData();
    made.kept = rows->GetArray(name);
    rows->RemoveArray(name);
    made.kept->SetName(made.name.c_str());
    made.values = values_of(made.kept);
    made.count = made.kept->GetNumberOfTuples();
    in->mean = made;
}

void pieces::plan::run(const std::function<void(const input &)> &body, bool meshed)
{
    if (!several) {
        const input in = meshed ? load_input(path, how, use) : read_input(path, how);
        in.file.data->GetBounds(whole.box);
        whole.nnodes = in.file.data->GetNumberOfPoints();
        whole.ncells = in.file.data->GetNumberOfCells();
        extent_of(in.file.data, whole.extent);
        if (meshed) {
            whole.cell_ndim = in.mesh->cell_ndim();
            for (size_t set = 0; set < in.mesh->nsets(); ++set)
                whole.flat_cells = whole.flat_cells || cell_kinds[in.mesh->kind_of_set(set)].ndim == 2;
            whole.kind = in.mesh->kind;
            whole.size_in_words = in.mesh->size_in_words();
            whole.nnodes = in.mesh->nnodes;
            whole.ncells = in.mesh->mesh->ncells;
        }
        return body(in);
    }
    sets.clear();
    whole.kind.clear();
    processes::agree([&] {
        for (const piece_unit &unit : source->units()) {
            if (unit.process != processes::rank()) continue;
            const input in = piece_of(unit, meshed);
            if (in.file.data == nullptr) continue;
            if (meshed && whole.kind.empty()) whole.kind = in.mesh->kind;
            for (size_t set = 0; meshed && set < in.mesh->sets.size(); ++set) {
                const input_set &of = in.mesh->sets[set];
                qx_long ncells = of.ncells;
                for (qx_long cell = 0; cell < of.ncells && !in.ghost_cell.empty(); ++cell)
                    ncells -= in.ghost_cell[static_cast<size_t>(of.vtk_cell(cell))];
                sets[{of.kind, of.order}] += ncells;
            }
            body(in);
        }
    });
    tell_of_all(std::exchange(notes, {}), &said);
    if (meshed) agree_on_totals();
}

// The figures of the meshes that were made take the place of those of the files.
void pieces::plan::agree_on_totals()
{
    std::string text = whole.kind;
    for (const auto &[kind, n] : sets)
        text +=
            " " + std::to_string(kind.first) + " " + std::to_string(kind.second) + " " + std::to_string(n);
    std::map<std::pair<int, int>, qx_long> all;
    for (const std::string &one : processes::all_of(text)) {
        const size_t end = std::min(one.find_first_of("0123456789"), one.size());
        std::string kind = one.substr(0, end);
        while (!kind.empty() && kind.back() == ' ')
            kind.pop_back();
        if (!kind.empty()) whole.kind = kind;
        int cell_kind, order, used;
        long long n;
        const char *at = one.c_str() + end;
        while (sscanf(at, "%d %d %lld%n", &cell_kind, &order, &n, &used) == 3) {
            all[{cell_kind, order}] += n;
            at += used;
        }
    }
    if (all.empty() && whole.kind != "cell sets") return;
    whole.ncells = 0;
    for (const auto &[kind, n] : all)
        whole.ncells += n;
    whole.size_in_words = words_of(all);
}

int pieces::own_count() const
{
    const auto &units = own->source->units();
    return static_cast<int>(std::count_if(units.begin(), units.end(), [](const piece_unit &unit) {
        return unit.process == processes::rank();
    }));
}

input pieces::load(int i)
{
    int at = 0;
    for (const piece_unit &unit : own->source->units())
        if (unit.process == processes::rank() && at++ == i) {
            input in = own->piece_of(unit, true);
            own->loaded_notes[i] = std::exchange(own->notes, {}); // the same each time
            return in;
        }
    return {};
}

void pieces::tell_of_loaded()
{
    std::vector<std::string> notes;
    for (const auto &[unit, of_unit] : std::exchange(own->loaded_notes, {}))
        notes.insert(notes.end(), of_unit.begin(), of_unit.end());
    tell_of_all(notes, &own->said);
}

void pieces::each(const std::function<void(const input &)> &body)
{
    own->run(body, true);
}

void pieces::each_unmeshed(const std::function<void(const input &)> &body)
{
    own->run(body, false);
}

// ---- what pieces found --------------------------------------------------------------------------------------

void widen(value_range *range, const value_range &by)
{
    range->nans += by.nans;
    if (!by.any) return;
    range->lo = range->any ? std::min(range->lo, by.lo) : by.lo;
    range->hi = range->any ? std::max(range->hi, by.hi) : by.hi;
    range->any = true;
}

value_range agreed(const value_range &own)
{
    constexpr double endless = std::numeric_limits<double>::infinity();
    if (!processes::several()) return own;
    value_range all;
    all.any = processes::any(own.any);
    all.lo = processes::least(own.any ? own.lo : endless);
    all.hi = processes::greatest(own.any ? own.hi : -endless);
    all.nans = processes::sum(static_cast<int64_t>(own.nans));
    if (!all.any) all.lo = all.hi = 0;
    return all;
}

std::string agreed(const std::string &own)
{
    for (const std::string &one : processes::all_of(own))
        if (!one.empty()) return one;
    return "";
}

void own_extent_of(const input &in, int *extent)
{
    int all[6];
    extent_of(in.file.data, all);
    std::copy_n(all, 6, extent);
    if (in.ghost_node.empty()) return;
    size_t first = in.ghost_node.first_own(), last = in.ghost_node.end_of_own() - 1;
    for (int d = 0; d < 3; ++d) {
        const size_t along = static_cast<size_t>(all[2 * d + 1]) - static_cast<size_t>(all[2 * d]) + 1;
        extent[2 * d] = all[2 * d] + static_cast<int>(first % along);
        extent[2 * d + 1] = all[2 * d] + static_cast<int>(last % along);
        first /= along;
        last /= along;
    }
}

static const char *const mark_name = "cells around the piece";

carried_arrays with_ghost_marks(const input &in, carried_arrays carried)
{
    if (in.ghost_cell.empty()) return carried;
    const auto count = static_cast<qx_long>(in.ghost_cell.size());
    typed_array marked;
    marked.name = mark_name;
    marked.type = DTYPE_BYTE;
    const typed_array made = like(marked, count);
    for (size_t cell = 0; cell < in.ghost_cell.size(); ++cell)
        static_cast<unsigned char *>(made.values)[cell] = in.ghost_cell[cell];
    carried.cell.push_back(made);
    return carried;
}

vtkSmartPointer<vtkDataSet> without_marked_ghosts(const input &in, vtkDataSet *made)
{
    if (in.ghost_cell.empty()) return made;
    vtkDataArray *marked = made->GetCellData()->GetArray(mark_name);
    marks keep;
    for (vtkIdType cell = 0; cell < made->GetNumberOfCells(); ++cell)
        keep.push_back(marked->GetComponent(cell, 0) == 0 ? 1 : 0);
    made->GetCellData()->RemoveArray(mark_name);
    return cells_of(vtkPointSet::SafeDownCast(made), keep);
}

vtkSmartPointer<vtkDataSet> without_ghosts(const input &in, vtkDataSet *made)
{
    if (in.ghost_cell.empty()) return made;
    int extent[6];
    if (extent_of(made, extent)) {
        own_extent_of(in, extent);
        return part_of_lattice(made, extent);
    }
    return cells_of(vtkPointSet::SafeDownCast(made), in.ghost_cell.own(), in.ghost_node.own());
}

vtkSmartPointer<vtkDataSet> without_ghosts(const input &in, vtkDataSet *made,
                                           const std::vector<qx_long> &cell_of)
{
    if (in.ghost_cell.empty()) return made;
    marks keep;
    for (const qx_long cell : cell_of)
        keep.push_back(in.ghost_cell[static_cast<size_t>(cell)] == 0 ? 1 : 0);
    return cells_of(vtkPointSet::SafeDownCast(made), keep);
}
