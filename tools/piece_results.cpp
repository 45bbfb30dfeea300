#include "pieces.hpp"

#include "console.hpp"
#include "failure.hpp"
#include "join_pieces.hpp"
#include "to_vtk.hpp"
#include "write.hpp"

#include <vtkCell.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkImageData.h>
#include <vtkPointData.h>
#include <vtkPointSet.h>
#include <vtkPolyData.h>
#include <vtkRectilinearGrid.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <new>
#include <utility>

using data_set = vtkSmartPointer<vtkDataSet>;

struct piece_results::state {
    const pieces *of;
    std::string path;
    bool joined, keep;
    std::vector<std::pair<int, data_set>> parts; // of pieces, in their order, as far as they are kept
    std::vector<data_set> in_hand;               // of the last piece, where it is to be written
    int piece_in_hand = 0;
    file_batch files;
    std::string heading;              // of the list
    std::map<int, std::string> lines; // of the list, by pieces
    int64_t nodes = 0, cells[4] = {}; // written
    data_set whole;

    bool listed() const { return of->several() && !joined && !path.empty(); }
    std::string name_of(int piece) const;
    void write_piece_in_hand();
    void gather();
    std::string list_text() const;
    void count(vtkDataSet *data);
};

namespace {

namespace fs = std::filesystem;

void too_large(const std::string &path)
{
    const fs::path name(path);
    throw failure(
        (path.empty() ? std::string("the picture") : path) + ": the pieces together do not fit into memory" +
        (path.empty()
             ? "; leave it out, or draw fewer"
             : "; a name that ends in .p" + name.extension().string().substr(1) + " takes a file each"));
}

void count_cells(vtkDataSet *data, int64_t *by_ndim)
{
    std::map<int, int> ndim_of;
    int extent[6];
    const vtkIdType n = data->GetNumberOfCells();
    if (extent_of(data, extent) && n > 0) {
        by_ndim[data->GetCell(0)->GetCellDimension()] += n;
        return;
    }
    for (vtkIdType cell = 0; cell < n; ++cell) {
        const int type = data->GetCellType(cell);
        const auto found = ndim_of.find(type);
        const int ndim =
            found != ndim_of.end() ? found->second : ndim_of[type] = data->GetCell(cell)->GetCellDimension();
        ++by_ndim[ndim];
    }
}

// "Float32" and so on.
std::string xml_type(vtkAbstractArray *array)
{
    if (array->GetDataType() == VTK_STRING) return "String";
    const std::string bits = std::to_string(8 * array->GetDataTypeSize());
    switch (array->GetDataType()) {
    case VTK_FLOAT:
    case VTK_DOUBLE: return "Float" + bits;
    case VTK_UNSIGNED_CHAR:
    case VTK_UNSIGNED_SHORT:
    case VTK_UNSIGNED_INT:
    case VTK_UNSIGNED_LONG:
    case VTK_UNSIGNED_LONG_LONG: return "UInt" + bits;
    case VTK_BIT: return "Bit";
    default: return "Int" + bits;
    }
}

std::string array_line(vtkAbstractArray *array, const char *indent)
{
    const std::string name = array->GetName() != nullptr ? xml_text(array->GetName()) : "";
    const bool numbers = vtkDataArray::SafeDownCast(array) != nullptr;
    return std::string(indent) + (numbers ? "<PDataArray" : "<PArray") + " type=\"" + xml_type(array) + "\"" +
           (array->GetDataType() == VTK_ID_TYPE ? " IdType=\"1\"" : "") + " Name=\"" + name +
           "\" NumberOfComponents=\"" + std::to_string(array->GetNumberOfComponents()) + "\"/>\n";
}

std::string arrays_text(const char *element, vtkDataSetAttributes *of)
{
    std::string roles;
    for (int role = 0; role < vtkDataSetAttributes::NUM_ATTRIBUTES; ++role) {
        vtkAbstractArray *array = of->GetAbstractAttribute(role);
        if (array != nullptr && array->GetName() != nullptr)
            roles += std::string(" ") + vtkDataSetAttributes::GetAttributeTypeAsString(role) + "=\"" +
                     xml_text(array->GetName()) + "\"";
    }
    std::string text = std::string("    <") + element + roles + ">\n";
    for (int i = 0; i < of->GetNumberOfArrays(); ++i)
        text += array_line(of->GetAbstractArray(i), "      ");
    return text + "    </" + element + ">\n";
}

std::string numbers_text(const double *values)
{
    char text[120];
    snprintf(text, sizeof text, "%.17g %.17g %.17g", values[0], values[1], values[2]);
    return text;
}

std::string extent_text(const int *e)
{
    std::string text;
    for (int i = 0; i < 6; ++i)
        text += (i == 0 ? "" : " ") + std::to_string(e[i]);
    return text;
}

// What is the same for all pieces; behind WholeExtent the extent is put in.
std::string heading_of(vtkDataSet *data)
{
    std::string text =
        arrays_text("PPointData", data->GetPointData()) + arrays_text("PCellData", data->GetCellData());
    if (auto *grid = vtkRectilinearGrid::SafeDownCast(data)) {
        text += "    <PCoordinates>\n" + array_line(grid->GetXCoordinates(), "      ") +
                array_line(grid->GetYCoordinates(), "      ") +
                array_line(grid->GetZCoordinates(), "      ") + "    </PCoordinates>\n";
    } else if (auto *points = vtkPointSet::SafeDownCast(data)) {
        if (points->GetPoints() != nullptr)
            text +=
                "    <PPoints>\n" + array_line(points->GetPoints()->GetData(), "      ") + "    </PPoints>\n";
    }
    return text;
}

// ".pvtp" and so on: its element.
const char *element_of(const std::string &path)
{
    const std::string ending = fs::path(path).extension().string();
    return ending == ".pvtp"   ? "PPolyData"
           : ending == ".pvtu" ? "PUnstructuredGrid"
           : ending == ".pvti" ? "PImageData"
           : ending == ".pvtr" ? "PRectilinearGrid"
                               : "PStructuredGrid";
}

} // namespace

piece_results::piece_results(const pieces &of, const std::string &path, bool joined, bool keep)
    : own(std::make_unique<state>())
{
    own->of = &of;
    own->path = path;
    own->joined = joined;
    own->keep = keep;
    for (int p = 0; own->listed() && p < of.count(); ++p)
        own->files.watch(own->name_of(p));
    if (processes::several() && !path.empty()) own->files.watch(path);
}

piece_results::~piece_results() = default;

// "out.pvtp": "out_3.vtp".
std::string piece_results::state::name_of(int piece) const
{
    const fs::path name(path);
    return (name.parent_path() /
            (name.stem().string() + "_" + std::to_string(piece) + "." + name.extension().string().substr(2)))
        .string();
}

void piece_results::state::count(vtkDataSet *data)
{
    nodes += data->GetNumberOfPoints();
    count_cells(data, cells);
}

void piece_results::state::write_piece_in_hand()
{
    if (in_hand.empty()) return;
    const data_set all = ::joined(std::exchange(in_hand, {}));
    if (keep) { // to be joined once more
        const auto kept = data_set::Take(all->NewInstance());
        kept->ShallowCopy(all);
        parts.emplace_back(piece_in_hand, kept);
    }
    drop_ends(all);
    const std::string made_heading = heading_of(all);
    if (all->GetNumberOfPoints() == 0) { // is listed only where all are
        if (heading.empty()) heading = "-" + made_heading;
        return;
    }
    if (heading.empty() || heading[0] == '-') heading = "+" + made_heading;
    const std::string name = name_of(piece_in_hand);
    files.write_data_set(name, all);
    count(all);
    int extent[6];
    std::string &line = lines[piece_in_hand];
    if (extent_of(all, extent)) line = extent_text(extent) + "\n";
    if (auto *image = vtkImageData::SafeDownCast(all))
        line += " Origin=\"" + numbers_text(image->GetOrigin()) + "\" Spacing=\"" +
                numbers_text(image->GetSpacing()) + "\"\n";
}

void piece_results::add(const input &in, vtkDataSet *made)
{
    try {
        if (!own->of->several()) {
            own->whole = made;
            return;
        }
        if (!own->listed()) {
            own->parts.emplace_back(in.piece, made);
            return;
        }
        if (in.piece != own->piece_in_hand) own->write_piece_in_hand();
        own->piece_in_hand = in.piece;
        own->in_hand.push_back(made);
        if (in.ends_piece) own->write_piece_in_hand(); // before the next takes memory of its own
    } catch (const std::bad_alloc &) {
        too_large(own->path);
    }
}

// All parts at the first process, one after another.
void piece_results::state::gather()
{
    std::vector<data_set> all;
    for (const auto &part : parts) // in their order
        if (!processes::several()) all.push_back(part.second);
    for (int p = 0; processes::several() && p < of->count(); ++p) {
        const int from = of->process_of(p);
        int64_t n = 0;
        for (const auto &part : parts)
            n += part.first == p ? 1 : 0;
        n = processes::sum(from == processes::rank() ? n : int64_t{0});
        auto next = parts.begin();
        for (int64_t i = 0; i < n; ++i) {
            vtkDataSet *mine = nullptr;
            if (from == processes::rank()) {
                while (next->first != p)
                    ++next;
                mine = (next++)->second;
            }
            const data_set got = processes::move(mine, from, 0);
            if (processes::is_first()) all.push_back(got);
        }
    }
    parts.clear();
    processes::agree([&] {
        if (!processes::is_first()) return;
        if (all.empty()) throw failure(of->path() + ": no piece of it holds anything");
        try {
            whole = ::joined(std::move(all));
            drop_ends(whole);
        } catch (const std::bad_alloc &) {
            too_large(path);
        }
    });
}

void piece_results::join()
{
    state &of = *own;
    if (!of.of->several()) {
        of.count(of.whole);
        return;
    }
    if (of.listed()) processes::agree([&] { of.write_piece_in_hand(); });
    if (!of.listed() || of.keep) of.gather();
    if (!of.listed() && processes::is_first()) of.count(of.whole);
    of.nodes = processes::sum(of.nodes);
    for (int64_t &n : of.cells)
        n = processes::sum(n);
}

bool piece_results::listed() const
{
    return own->listed();
}

int64_t piece_results::nnodes() const
{
    return own->nodes;
}

int64_t piece_results::ncells(int ndim) const
{
    if (ndim >= 0) return own->cells[ndim];
    return own->cells[0] + own->cells[1] + own->cells[2] + own->cells[3];
}

vtkDataSet *piece_results::whole() const
{
    return own->whole;
}

std::string piece_results::state::list_text() const
{
    const std::string element = element_of(path);
    int whole_extent[6] = {0, -1, 0, -1, 0, -1};
    std::string listed, place;
    for (const auto &[piece, line] : lines) {
        int e[6];
        const bool lattice =
            sscanf(line.c_str(), "%d %d %d %d %d %d", e, e + 1, e + 2, e + 3, e + 4, e + 5) == 6;
        for (int d = 0; lattice && d < 3; ++d) {
            const bool first = place.empty() && listed.empty();
            whole_extent[2 * d] = first ? e[2 * d] : std::min(whole_extent[2 * d], e[2 * d]);
            whole_extent[2 * d + 1] = first ? e[2 * d + 1] : std::max(whole_extent[2 * d + 1], e[2 * d + 1]);
        }
        if (lattice) {
            const size_t end = line.find('\n'), last = line.find('\n', end + 1);
            if (last != std::string::npos) place = line.substr(end + 1, last - end - 1);
        }
        listed += "    <Piece" + (lattice ? " Extent=\"" + extent_text(e) + "\"" : std::string()) +
                  " Source=\"" + xml_text(fs::path(name_of(piece)).filename().string()) + "\"/>\n";
    }
    const bool lattice = whole_extent[1] >= whole_extent[0];
    return "<?xml version=\"1.0\"?>\n<VTKFile type=\"" + element +
           "\" version=\"1.0\" byte_order=\"LittleEndian\" header_type=\"UInt64\" "
           "compressor=\"vtkZLibDataCompressor\">\n  <" +
           element + (lattice ? " WholeExtent=\"" + extent_text(whole_extent) + "\"" : std::string()) +
           " GhostLevel=\"0\"" + place + ">\n" + heading.substr(1) + listed + "  </" + element +
           ">\n</VTKFile>\n";
}

void piece_results::write()
{
    state &of = *own;
    if (of.path.empty()) return;
    if (!of.listed()) {
        processes::agree([&] {
            if (processes::is_first()) write_data_set(of.path, of.whole);
        });
        return;
    }
    // the heading of a piece with nodes, if there is one
    std::string heading;
    for (const std::string &one : processes::all_of(of.heading))
        if (heading.empty() || (heading[0] == '-' && !one.empty() && one[0] == '+')) heading = one;
    std::string own_lines;
    for (const auto &[piece, line] : of.lines)
        own_lines += std::to_string(piece) + " " + line + '\0';
    for (const std::string &one : processes::all_of(own_lines))
        for (size_t at = 0; at < one.size(); at = one.find('\0', at) + 1) {
            const std::string entry = one.c_str() + at;
            const size_t space = entry.find(' ');
            of.lines[std::stoi(entry)] = entry.substr(space + 1);
        }
    if (heading.empty()) throw failure(of.of->path() + ": no piece of it holds anything");
    of.heading = heading;
    // A list that is there names the files that belong to it, whenever the program ends.
    file_batch list;
    const auto first_does = [](const auto &work) {
        processes::agree([&] {
            if (processes::is_first()) work();
        });
    };
    first_does([&] { list.write_text(of.path, of.list_text()); });
    first_does([&] { remove_before(of.path); });
    processes::agree([&] { of.files.put_in_place(); });
    first_does([&] { list.put_in_place(); });
}
