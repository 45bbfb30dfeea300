#include "pieces_support.hpp"

#include <gtest/gtest.h>

#include <vtkAppendFilter.h>
#include <vtkCell.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSetAttributes.h>
#include <vtkDoubleArray.h>
#include <vtkFloatArray.h>
#include <vtkGenericCell.h>
#include <vtkGeometryFilter.h>
#include <vtkIdList.h>
#include <vtkImageData.h>
#include <vtkIntArray.h>
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
#include <array>
#include <cmath>
#include <filesystem>
#include <numeric>

namespace fs = std::filesystem;

namespace {

using box = std::array<int, 6>;

const unsigned char copy_of_cell = vtkDataSetAttributes::DUPLICATECELL;
const unsigned char copy_of_node = vtkDataSetAttributes::DUPLICATEPOINT;

// ---- the list of pieces -------------------------------------------------------------------------------------------------

std::string xml_type(vtkDataArray *array)
{
    const int bits = 8 * array->GetDataTypeSize();
    switch (array->GetDataType()) {
    case VTK_FLOAT:
    case VTK_DOUBLE: return "Float" + std::to_string(bits);
    case VTK_UNSIGNED_CHAR:
    case VTK_UNSIGNED_SHORT:
    case VTK_UNSIGNED_INT: return "UInt" + std::to_string(bits);
    default: return "Int" + std::to_string(bits);
    }
}

std::string declared(vtkDataArray *array, const std::string &name)
{
    return "<PDataArray type=\"" + xml_type(array) + "\" Name=\"" + name + "\" NumberOfComponents=\"" +
           std::to_string(array->GetNumberOfComponents()) + "\"/>\n";
}

std::string declared(vtkDataSetAttributes *arrays, const char *element)
{
    std::string text = std::string("<") + element + ">\n";
    for (int i = 0; i < arrays->GetNumberOfArrays(); ++i)
        if (vtkDataArray *array = arrays->GetArray(i)) text += declared(array, array->GetName());
    return text + "</" + element + ">\n";
}

std::string text_of(const int *extent)
{
    std::string text;
    for (int i = 0; i < 6; ++i)
        text += (i > 0 ? " " : "") + std::to_string(extent[i]);
    return text;
}

std::string text_of(const double *three)
{
    char text[100];
    snprintf(text, sizeof text, "%.17g %.17g %.17g", three[0], three[1], three[2]);
    return text;
}

struct piece {
    vtkSmartPointer<vtkDataSet> data;
    box extent = {0, -1, 0, -1, 0, -1}; // of lattices
};

// The list: like has the arrays of all pieces.
void write_list(const std::string &path, vtkDataSet *whole, vtkDataSet *like,
                const std::vector<piece> &pieces, bool ghosts)
{
    std::string kind = "PUnstructuredGrid", attributes, points;
    const int *extent = nullptr;
    if (auto *image = vtkImageData::SafeDownCast(whole)) {
        kind = "PImageData";
        extent = image->GetExtent();
        attributes = " Origin=\"" + text_of(image->GetOrigin()) + "\" Spacing=\"" +
                     text_of(image->GetSpacing()) + "\"";
    } else if (auto *rectilinear = vtkRectilinearGrid::SafeDownCast(like)) { // a crop makes doubles of them
        kind = "PRectilinearGrid";
        extent = vtkRectilinearGrid::SafeDownCast(whole)->GetExtent();
        points = "<PCoordinates>\n" + declared(rectilinear->GetXCoordinates(), "x") +
                 declared(rectilinear->GetYCoordinates(), "y") +
                 declared(rectilinear->GetZCoordinates(), "z") + "</PCoordinates>\n";
    } else {
        auto *set = vtkPointSet::SafeDownCast(whole);
        points = "<PPoints>\n" + declared(set->GetPoints()->GetData(), "Points") + "</PPoints>\n";
        if (vtkPolyData::SafeDownCast(whole) != nullptr) kind = "PPolyData";
        if (auto *curvilinear = vtkStructuredGrid::SafeDownCast(whole)) {
            kind = "PStructuredGrid";
            extent = curvilinear->GetExtent();
        }
    }
    std::string text = "<?xml version=\"1.0\"?>\n<VTKFile type=\"" + kind +
                       "\" version=\"1.0\" byte_order=\"LittleEndian\" header_type=\"UInt64\">\n<" + kind;
    if (extent != nullptr) text += " WholeExtent=\"" + text_of(extent) + "\"";
    text += attributes + " GhostLevel=\"" + (ghosts ? "1" : "0") + "\">\n";
    text +=
        declared(like->GetPointData(), "PPointData") + declared(like->GetCellData(), "PCellData") + points;
    for (size_t i = 0; i < pieces.size(); ++i) {
        text += "<Piece";
        if (extent != nullptr) text += " Extent=\"" + text_of(pieces[i].extent.data()) + "\"";
        text += " Source=\"" + fs::path(cut_up::piece_path(path, static_cast<int>(i))).filename().string() +
                "\"/>\n";
    }
    write_bytes(path, text + "</" + kind + ">\n</VTKFile>\n");
}

// ---- lattices -----------------------------------------------------------------------------------------------------------

// Cuts the longest box in two until there are count of them, at unequal places.
std::vector<box> cut_box(const box &whole, size_t count)
{
    std::vector<box> boxes = {whole};
    while (boxes.size() < count) {
        size_t longest = 0;
        int axis = 0, most = 0;
        for (size_t b = 0; b < boxes.size(); ++b)
            for (int d = 0; d < 3; ++d) {
                const auto at = 2 * static_cast<size_t>(d);
                if (boxes[b][at + 1] - boxes[b][at] <= most) continue;
                most = boxes[b][at + 1] - boxes[b][at];
                longest = b;
                axis = d;
            }
        if (most < 2) break;
        const auto at = 2 * static_cast<size_t>(axis);
        box lower = boxes[longest], upper = lower;
        lower[at + 1] = upper[at] = lower[at] + std::max(1, most * 2 / 5);
        boxes[longest] = lower;
        boxes.insert(boxes.begin() + static_cast<long>(longest) + 1, upper);
    }
    return boxes;
}

template <typename Lattice> vtkSmartPointer<vtkDataSet> crop_as(vtkDataSet *whole, const box &extent)
{
    vtkNew<Lattice> part;
    part->DeepCopy(whole);
    part->Crop(extent.data());
    return part.Get();
}

vtkSmartPointer<vtkDataSet> crop(vtkDataSet *whole, const box &extent)
{
    if (vtkImageData::SafeDownCast(whole) != nullptr) return crop_as<vtkImageData>(whole, extent);
    if (vtkRectilinearGrid::SafeDownCast(whole) != nullptr) return crop_as<vtkRectilinearGrid>(whole, extent);
    return crop_as<vtkStructuredGrid>(whole, extent);
}

vtkSmartPointer<vtkUnsignedCharArray> marks(vtkIdType count)
{
    auto made = vtkSmartPointer<vtkUnsignedCharArray>::New();
    made->SetName(vtkDataSetAttributes::GhostArrayName());
    made->SetNumberOfTuples(count);
    made->FillValue(0);
    return made;
}

// Marks the cells and nodes outside the box that the piece owns.
void mark_lattice(vtkDataSet *part, const box &extent, const box &own)
{
    const auto mark = [&](bool cells) {
        const auto array = marks(cells ? part->GetNumberOfCells() : part->GetNumberOfPoints());
        const int less = cells ? 1 : 0;
        vtkIdType at = 0;
        const auto end = [&](size_t d) { // of an axis of one node: one cell, as it were
            return std::max(extent[2 * d + 1] - less, extent[2 * d]);
        };
        const auto is_own = [&](size_t d, int position) {
            return position >= own[2 * d] && position <= std::max(own[2 * d + 1] - less, own[2 * d]);
        };
        for (int k = extent[4]; k <= end(2); ++k)
            for (int j = extent[2]; j <= end(1); ++j)
                for (int i = extent[0]; i <= end(0); ++i, ++at)
                    if (!is_own(0, i) || !is_own(1, j) || !is_own(2, k))
                        array->SetValue(at, cells ? copy_of_cell : copy_of_node);
        if (cells)
            part->GetCellData()->AddArray(array);
        else
            part->GetPointData()->AddArray(array);
    };
    mark(true);
    mark(false);
}

std::vector<piece> cut_lattice(vtkDataSet *whole, const int *whole_extent, const cut_up::how &cut)
{
    box all;
    std::copy_n(whole_extent, 6, all.begin());
    std::vector<box> boxes = cut_box(all, static_cast<size_t>(cut.count) - cut.empty.size());
    std::vector<piece> pieces;
    size_t next = 0;
    for (int i = 0; i < cut.count; ++i) {
        pieces.emplace_back();
        const bool empty = std::count(cut.empty.begin(), cut.empty.end(), i) > 0;
        if (empty || next == boxes.size()) continue;
        const box own = boxes[next++];
        box extent = own;
        for (size_t d = 0; cut.ghosts && d < 3; ++d) {
            extent[2 * d] = std::max(all[2 * d], own[2 * d] - 1);
            extent[2 * d + 1] = std::min(all[2 * d + 1], own[2 * d + 1] + 1);
        }
        pieces.back().extent = extent;
        pieces.back().data = crop(whole, extent);
        if (cut.ghosts) mark_lattice(pieces.back().data, extent, own);
    }
    return pieces;
}

// ---- cells --------------------------------------------------------------------------------------------------------------

// The piece of each cell.
std::vector<int> share_out(vtkDataSet *whole, const cut_up::how &cut)
{
    std::vector<int> pieces;
    for (int i = 0; i < cut.count; ++i)
        if (std::count(cut.empty.begin(), cut.empty.end(), i) == 0) pieces.push_back(i);
    const vtkIdType n = whole->GetNumberOfCells();
    std::vector<vtkIdType> order(static_cast<size_t>(n));
    std::iota(order.begin(), order.end(), 0);
    if (cut.share == cut_up::shares::by_place) {
        std::vector<double> at;
        for (vtkIdType c = 0; c < n; ++c) {
            double b[6];
            whole->GetCellBounds(c, b);
            at.push_back(b[0] + b[1] + 0.3 * (b[2] + b[3]));
        }
        std::stable_sort(order.begin(), order.end(), [&](vtkIdType a, vtkIdType b) {
            return at[static_cast<size_t>(a)] < at[static_cast<size_t>(b)];
        });
    }
    std::vector<int> piece_of(static_cast<size_t>(n));
    for (size_t i = 0; i < order.size(); ++i) {
        const size_t share =
            cut.share == cut_up::shares::in_turn ? i % pieces.size() : i * pieces.size() / order.size();
        piece_of[static_cast<size_t>(order[i])] = pieces[share];
    }
    return piece_of;
}

vtkSmartPointer<vtkPointSet> some_cells(vtkDataSet *whole, const std::vector<vtkIdType> &cells,
                                        std::vector<vtkIdType> *nodes)
{
    vtkSmartPointer<vtkPointSet> part;
    vtkPolyData *surface = nullptr;
    vtkUnstructuredGrid *grid = nullptr;
    if (vtkPolyData::SafeDownCast(whole) != nullptr) {
        part = surface = vtkPolyData::New();
        surface->AllocateEstimate(static_cast<vtkIdType>(cells.size()) + 1, 4);
    } else {
        part = grid = vtkUnstructuredGrid::New();
        grid->Allocate(static_cast<vtkIdType>(cells.size()) + 1);
    }
    part->UnRegister(nullptr);
    vtkNew<vtkPoints> points;
    points->SetDataType(vtkPointSet::SafeDownCast(whole)->GetPoints()->GetDataType());
    std::vector<vtkIdType> number(static_cast<size_t>(whole->GetNumberOfPoints()), -1);
    part->GetPointData()->CopyAllOn();
    part->GetCellData()->CopyAllOn();
    part->GetPointData()->CopyAllocate(whole->GetPointData());
    part->GetCellData()->CopyAllocate(whole->GetCellData());
    vtkNew<vtkIdList> ids;
    for (const vtkIdType cell : cells) {
        whole->GetCellPoints(cell, ids);
        for (vtkIdType i = 0; i < ids->GetNumberOfIds(); ++i) {
            vtkIdType &own = number[static_cast<size_t>(ids->GetId(i))];
            if (own < 0) {
                own = points->InsertNextPoint(whole->GetPoint(ids->GetId(i)));
                part->GetPointData()->CopyData(whole->GetPointData(), ids->GetId(i), own);
                nodes->push_back(ids->GetId(i));
            }
            ids->SetId(i, own);
        }
        const vtkIdType made = surface != nullptr ? surface->InsertNextCell(whole->GetCellType(cell), ids)
                                                  : grid->InsertNextCell(whole->GetCellType(cell), ids);
        part->GetCellData()->CopyData(whole->GetCellData(), cell, made);
    }
    part->SetPoints(points);
    return part;
}

std::vector<piece> cut_cells(vtkDataSet *whole, const cut_up::how &cut)
{
    const std::vector<int> piece_of = share_out(whole, cut);
    const vtkIdType n = whole->GetNumberOfCells();
    vtkNew<vtkIdList> ids;
    // which pieces have each node with a cell of their own
    std::vector<std::vector<int>> owners(static_cast<size_t>(whole->GetNumberOfPoints()));
    for (vtkIdType c = 0; c < n; ++c) {
        whole->GetCellPoints(c, ids);
        for (vtkIdType i = 0; i < ids->GetNumberOfIds(); ++i)
            owners[static_cast<size_t>(ids->GetId(i))].push_back(piece_of[static_cast<size_t>(c)]);
    }
    std::vector<piece> pieces(static_cast<size_t>(cut.count));
    for (int p = 0; p < cut.count; ++p) {
        std::vector<vtkIdType> own, around, nodes;
        for (vtkIdType c = 0; c < n; ++c) {
            if (piece_of[static_cast<size_t>(c)] == p) {
                own.push_back(c);
                continue;
            }
            whole->GetCellPoints(c, ids);
            bool touches = false;
            for (vtkIdType i = 0; i < ids->GetNumberOfIds(); ++i) {
                const std::vector<int> &of = owners[static_cast<size_t>(ids->GetId(i))];
                touches = touches || std::find(of.begin(), of.end(), p) != of.end();
            }
            if (touches) around.push_back(c);
        }
        const size_t nown = own.size();
        if (cut.ghosts) own.insert(own.end(), around.begin(), around.end());
        const auto part = some_cells(whole, own, &nodes);
        if (cut.ghosts) {
            const auto cell_marks = marks(part->GetNumberOfCells()),
                       node_marks = marks(part->GetNumberOfPoints());
            for (size_t c = nown; c < own.size(); ++c)
                cell_marks->SetValue(static_cast<vtkIdType>(c), copy_of_cell);
            for (size_t i = 0; i < nodes.size(); ++i) {
                const std::vector<int> &of = owners[static_cast<size_t>(nodes[i])];
                if (*std::min_element(of.begin(), of.end()) != p)
                    node_marks->SetValue(static_cast<vtkIdType>(i), copy_of_node);
            }
            part->GetCellData()->AddArray(cell_marks);
            part->GetPointData()->AddArray(node_marks);
        }
        pieces[static_cast<size_t>(p)].data = part;
    }
    return pieces;
}

} // namespace

// ---- files --------------------------------------------------------------------------------------------------------------

std::string cut_up::piece_path(const std::string &path, int piece)
{
    const fs::path list(path);
    const std::string ending = "." + list.extension().string().substr(2); // .pvtu: .vtu
    return (list.parent_path() / (list.stem().string() + "_" + std::to_string(piece) + ending)).string();
}

std::string cut_up::write_pieces(const std::string &path, vtkDataSet *whole, const how &cut)
{
    const int *extent = nullptr;
    if (auto *image = vtkImageData::SafeDownCast(whole)) extent = image->GetExtent();
    if (auto *rectilinear = vtkRectilinearGrid::SafeDownCast(whole)) extent = rectilinear->GetExtent();
    if (auto *curvilinear = vtkStructuredGrid::SafeDownCast(whole)) extent = curvilinear->GetExtent();
    const std::vector<piece> pieces =
        extent != nullptr ? cut_lattice(whole, extent, cut) : cut_cells(whole, cut);
    vtkDataSet *like = whole;
    for (size_t i = 0; i < pieces.size(); ++i) {
        const std::string piece = piece_path(path, static_cast<int>(i));
        if (pieces[i].data == nullptr) { // a lattice of no nodes, with the arrays of all
            const auto empty = vtkSmartPointer<vtkDataSet>::Take(whole->NewInstance());
            for (const bool cells : {false, true}) {
                vtkDataSetAttributes *from =
                    cells ? static_cast<vtkDataSetAttributes *>(whole->GetCellData()) : whole->GetPointData();
                vtkDataSetAttributes *to =
                    cells ? static_cast<vtkDataSetAttributes *>(empty->GetCellData()) : empty->GetPointData();
                to->CopyAllOn();
                to->CopyAllocate(from);
            }
            ::write(piece, empty);
            continue;
        }
        ::write(piece, pieces[i].data);
        like = pieces[i].data;
    }
    write_list(path, whole, like, pieces, cut.ghosts);
    return path;
}

// ---- samples ------------------------------------------------------------------------------------------------------------

namespace {

void add_arrays(vtkDataSet *data)
{
    number_all(data);
    add_node_array(data, "value", [](const double *x) {
        return std::sin(2 * x[0] + 0.3) + std::cos(1.7 * x[1] - 0.2) * x[2] + 0.4 * x[0] * x[1];
    });
    vtkNew<vtkDoubleArray> exact, amount;
    exact->SetName("exact");
    vtkNew<vtkIntArray> count;
    count->SetName("count");
    vtkNew<vtkFloatArray> flow;
    flow->SetName("flow");
    flow->SetNumberOfComponents(3);
    for (vtkIdType node = 0; node < data->GetNumberOfPoints(); ++node) {
        double x[3];
        data->GetPoint(node, x);
        exact->InsertNextValue(std::exp(0.3 * x[0]) - x[1] * x[2] / 3);
        count->InsertNextValue(static_cast<int>(std::floor(40 * x[0] + 25 * x[1] - 30 * x[2])));
        flow->InsertNextTuple3(1 - 0.3 * x[1], 0.5 * x[0] + 0.1, 0.2 * std::cos(x[0]));
    }
    data->GetPointData()->AddArray(exact);
    data->GetPointData()->AddArray(count);
    data->GetPointData()->AddArray(flow);
    amount->SetName("amount");
    for (vtkIdType cell = 0; cell < data->GetNumberOfCells(); ++cell) {
        double b[6];
        data->GetCellBounds(cell, b);
        amount->InsertNextValue(1 + std::sin(b[0] + 2 * b[2] - b[5]) / 3);
    }
    data->GetCellData()->AddArray(amount);
}

vtkSmartPointer<vtkDataSet> made_sample(const std::string &mesh, const std::string &ending, int order,
                                        const char *size)
{
    const std::string path = scratch("whole_" + mesh + std::to_string(order) + ending);
    run_well({"sample", "noisy-sphere", "--mesh", mesh, "--order", std::to_string(order), "--size", size,
              "-o", path});
    auto data = read(path);
    while (data->GetPointData()->GetNumberOfArrays() > 0)
        data->GetPointData()->RemoveArray(0);
    fs::remove(path);
    return data;
}

// Cells of several kinds and orders that meet in planes.
vtkSmartPointer<vtkDataSet> mixed_cells()
{
    const struct {
        const char *mesh;
        int order;
    } parts[] = {{"hex", 1}, {"tet", 2}, {"prism", 1}, {"pyramid", 1}, {"hex", 2}};
    vtkNew<vtkAppendFilter> all;
    all->MergePointsOn();
    for (int p = 0; p < 5; ++p) {
        const auto data = made_sample(parts[p].mesh, ".vtu", parts[p].order, "5");
        vtkPoints *points = vtkPointSet::SafeDownCast(data)->GetPoints();
        for (vtkIdType i = 0; i < points->GetNumberOfPoints(); ++i) {
            double x[3];
            points->GetPoint(i, x);
            x[0] += 3.0 * p;
            points->SetPoint(i, x);
        }
        all->AddInputData(data);
    }
    all->Update();
    return all->GetOutput();
}

} // namespace

const std::vector<cut_up::sample> &cut_up::samples()
{
    static const std::vector<sample> all = [] {
        std::vector<sample> made;
        made.push_back({"uniform", ".pvti", made_sample("uniform", ".vti", 1, "12")});
        made.push_back({"rectilinear", ".pvtr", made_sample("rectilinear", ".vtr", 1, "11")});
        made.push_back({"curvilinear", ".pvts", made_sample("curvilinear", ".vts", 1, "10")});
        made.push_back({"hex", ".pvtu", made_sample("hex", ".vtu", 1, "9")});
        made.push_back({"tet", ".pvtu", made_sample("tet", ".vtu", 1, "7")});
        made.push_back({"second", ".pvtu", made_sample("tet", ".vtu", 2, "5")});
        made.push_back({"mixed", ".pvtu", mixed_cells()});
        vtkNew<vtkGeometryFilter> surface;
        surface->SetInputData(made_sample("prism", ".vtu", 1, "9"));
        surface->Update();
        made.push_back({"surface", ".pvtp", surface->GetOutput()});
        for (const sample &one : made)
            add_arrays(one.whole);
        return made;
    }();
    return all;
}

const cut_up::sample &cut_up::sample_of(const std::string &name)
{
    const auto found =
        std::find_if(samples().begin(), samples().end(), [&](const sample &one) { return one.name == name; });
    EXPECT_NE(found, samples().end()) << name;
    return *found;
}

std::string cut_up::whole_ending(const sample &of)
{
    return "." + of.ending.substr(2);
}

bool cut_up::is_lattice(const sample &of)
{
    return of.ending != ".pvtu" && of.ending != ".pvtp";
}

// ---- results ------------------------------------------------------------------------------------------------------------

namespace {

// Bytes as text that can be read in a failure of a test, roughly: numbers as such, and their bits.
void append_row(vtkDataArray *array, vtkIdType row, std::string *text)
{
    char number[64];
    for (int c = 0; c < array->GetNumberOfComponents(); ++c) {
        snprintf(number, sizeof number, " %.17g", array->GetComponent(row, c));
        *text += number;
    }
}

// The arrays by name.
std::vector<vtkDataArray *> arrays_by_name(vtkDataSetAttributes *of, const std::vector<std::string> &but_for)
{
    std::vector<vtkDataArray *> arrays;
    for (int i = 0; i < of->GetNumberOfArrays(); ++i) {
        vtkDataArray *array = of->GetArray(i);
        if (array == nullptr || array->GetName() == nullptr) continue;
        if (std::count(but_for.begin(), but_for.end(), array->GetName()) > 0) continue;
        arrays.push_back(array);
    }
    std::sort(arrays.begin(), arrays.end(),
              [](vtkDataArray *a, vtkDataArray *b) { return std::string(a->GetName()) < b->GetName(); });
    return arrays;
}

std::vector<std::string> rows_of_nodes(vtkDataSet *data, const std::vector<std::string> &but_for)
{
    std::vector<std::string> rows;
    const auto arrays = arrays_by_name(data->GetPointData(), but_for);
    for (vtkIdType node = 0; node < data->GetNumberOfPoints(); ++node) {
        double x[3];
        char place[100];
        data->GetPoint(node, x);
        snprintf(place, sizeof place, "%.17g %.17g %.17g", x[0], x[1], x[2]);
        rows.emplace_back(place);
        for (vtkDataArray *array : arrays) {
            rows.back() += std::string(" ") + array->GetName();
            append_row(array, node, &rows.back());
        }
    }
    return rows;
}

} // namespace

std::vector<std::string> nodes_by_place(vtkDataSet *data, const std::vector<std::string> &but_for)
{
    std::vector<std::string> rows = rows_of_nodes(data, but_for);
    std::sort(rows.begin(), rows.end());
    return rows;
}

std::vector<std::string> cells_by_place(vtkDataSet *data, const std::vector<std::string> &but_for)
{
    const std::vector<std::string> nodes = rows_of_nodes(data, but_for);
    const auto arrays = arrays_by_name(data->GetCellData(), but_for);
    std::vector<std::string> rows;
    vtkNew<vtkIdList> ids;
    for (vtkIdType cell = 0; cell < data->GetNumberOfCells(); ++cell) {
        data->GetCellPoints(cell, ids);
        std::vector<std::string> corners;
        for (vtkIdType i = 0; i < ids->GetNumberOfIds(); ++i)
            corners.push_back(nodes[static_cast<size_t>(ids->GetId(i))]);
        // Flat cells are told from their least corner on, in their own direction.
        if (data->GetCell(cell)->GetCellDimension() == 2 && corners.size() <= 4)
            std::rotate(corners.begin(), std::min_element(corners.begin(), corners.end()), corners.end());
        if (corners.size() == 2)
            std::sort(corners.begin(), corners.end()); // a line has no direction of its own
        std::string row = "type " + std::to_string(data->GetCellType(cell));
        for (vtkDataArray *array : arrays) {
            row += std::string(" ") + array->GetName();
            append_row(array, cell, &row);
        }
        for (const std::string &corner : corners)
            row += "\n  " + corner;
        rows.push_back(row);
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

void expect_same_mesh(vtkDataSet *expected, vtkDataSet *got, const std::vector<std::string> &but_for)
{
    ASSERT_NE(expected, nullptr);
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(got->GetNumberOfPoints(), expected->GetNumberOfPoints());
    EXPECT_EQ(got->GetNumberOfCells(), expected->GetNumberOfCells());
    for (const bool nodes : {true, false}) {
        const auto a = nodes ? nodes_by_place(expected, but_for) : cells_by_place(expected, but_for);
        const auto b = nodes ? nodes_by_place(got, but_for) : cells_by_place(got, but_for);
        if (a == b) continue;
        const auto apart = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
        ADD_FAILURE() << (nodes ? "nodes" : "cells") << " differ, first in\n"
                      << (apart.first != a.end() ? *apart.first : "none") << "\nand\n"
                      << (apart.second != b.end() ? *apart.second : "none");
    }
}

void expect_near_at_nodes(vtkDataSet *expected, vtkDataSet *got, const std::string &name, double within)
{
    ASSERT_EQ(got->GetNumberOfPoints(), expected->GetNumberOfPoints());
    ASSERT_EQ(got->GetNumberOfCells(), expected->GetNumberOfCells());
    using row = std::vector<double>;
    const auto rows = [&](vtkDataSet *of) {
        std::vector<row> all;
        vtkDataArray *array = node_array(of, name);
        for (vtkIdType i = 0; i < of->GetNumberOfPoints(); ++i) {
            row one(of->GetPoint(i), of->GetPoint(i) + 3);
            one.push_back(node_array(of, "node")->GetComponent(i, 0));
            for (int c = 0; c < array->GetNumberOfComponents(); ++c)
                one.push_back(array->GetComponent(i, c));
            all.push_back(one);
        }
        std::sort(all.begin(), all.end());
        return all;
    };
    const std::vector<row> a = rows(expected), b = rows(got);
    double largest = 0, apart = 0;
    for (size_t i = 0; i < a.size(); ++i)
        for (size_t c = 0; c < a[i].size(); ++c) {
            ASSERT_EQ(std::isnan(a[i][c]), std::isnan(b[i][c])) << "node " << i;
            if (std::isnan(a[i][c])) continue;
            if (c < 4) {
                ASSERT_EQ(a[i][c], b[i][c]);
            }
            largest = std::max(largest, std::abs(a[i][c]));
            apart = std::max(apart, std::abs(a[i][c] - b[i][c]));
        }
    EXPECT_LE(apart, within * largest);
}

ran run_on(int processes, const std::vector<std::string> &arguments)
{
    surroundings around;
    around.processes = processes;
    return run(arguments, around);
}

ran run_well_on(int processes, const std::vector<std::string> &arguments)
{
    ran result = run_on(processes, arguments);
    std::string line;
    for (const std::string &one : arguments)
        line += " " + one;
    EXPECT_EQ(result.code, 0) << "mpirun -n " << processes << " skoklana" << line << "\n" << shown(result);
    return result;
}
