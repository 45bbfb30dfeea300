#include "listed_files.hpp"

#include "failure.hpp"
#include "join_pieces.hpp"
#include "whole_file.hpp"

#include <vtkAbstractArray.h>
#include <vtkCellData.h>
#include <vtkDataSetAttributes.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPointSet.h>
#include <vtkPolyData.h>
#include <vtkUnsignedCharArray.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cstring>

void forget_copies(vtkDataSet *data, bool of_list)
{
    const char *name = vtkDataSetAttributes::GhostArrayName();
    for (vtkDataSetAttributes *of : {static_cast<vtkDataSetAttributes *>(data->GetPointData()),
                                     static_cast<vtkDataSetAttributes *>(data->GetCellData())}) {
        auto *from = vtkUnsignedCharArray::SafeDownCast(of->GetAbstractArray(name));
        if (from == nullptr) continue;
        const int hidden = of == data->GetPointData() ? int{vtkDataSetAttributes::HIDDENPOINT}
                           : of_list                  ? int{vtkDataSetAttributes::HIDDENCELL}
                                     : vtkDataSetAttributes::HIDDENCELL | vtkDataSetAttributes::DUPLICATECELL;
        vtkNew<vtkUnsignedCharArray> kept;
        kept->SetName(name);
        bool any = false;
        for (vtkIdType i = 0; i < from->GetNumberOfTuples(); ++i) {
            kept->InsertNextValue(static_cast<unsigned char>(from->GetValue(i) & hidden));
            any = any || kept->GetValue(i) != 0;
        }
        of->RemoveArray(name);
        if (any) of->AddArray(kept);
    }
}

namespace {

[[noreturn]] void missing_array(const std::string &path, const char *where, const std::string &name,
                                const std::string &list_path)
{
    throw failure(path + ": has no " + where + " array " + name + ", which " + list_path +
                  " has for all its pieces");
}

[[noreturn]] void odd_array(const std::string &path, const char *where, const xml_heading::array &listed,
                            int components, const std::string &list_path)
{
    throw failure(path + ": " + where + " array " + listed.name + " has " + std::to_string(components) +
                  " components, and " + list_path + " says " + std::to_string(listed.components));
}

// The arrays that the list names, and no others. count: of nodes or cells.
void match_arrays(const std::string &path, const std::string &list_path, vtkDataSetAttributes *arrays,
                  vtkIdType count, const std::vector<xml_heading::array> &listed, const char *where)
{
    for (int i = arrays->GetNumberOfArrays() - 1; i >= 0; --i) {
        const char *name = arrays->GetAbstractArray(i)->GetName();
        const bool wanted =
            name != nullptr && (strcmp(name, vtkDataSetAttributes::GhostArrayName()) == 0 ||
                                std::any_of(listed.begin(), listed.end(),
                                            [&](const xml_heading::array &one) { return one.name == name; }));
        if (!wanted) arrays->RemoveArray(i);
    }
    for (const xml_heading::array &one : listed) {
        vtkAbstractArray *array = arrays->GetAbstractArray(one.name.c_str());
        if (array == nullptr && count == 0) { // of which there is nothing to tell
            const auto none =
                vtkSmartPointer<vtkAbstractArray>::Take(vtkAbstractArray::CreateArray(one.type));
            none->SetName(one.name.c_str());
            none->SetNumberOfComponents(one.components);
            arrays->AddArray(none);
            continue;
        }
        if (array == nullptr) missing_array(path, where, one.name, list_path);
        if (array->GetNumberOfComponents() != one.components)
            odd_array(path, where, one, array->GetNumberOfComponents(), list_path);
    }
}

// Nodes without a cell that are no copies, and the cells that are none; nothing is in both where all cells are kept.
struct owned {
    marks cells, lone;
    bool copies = false;
    explicit owned(vtkDataSet *data);
};

owned::owned(vtkDataSet *data) : cells(static_cast<size_t>(data->GetNumberOfCells()), 1)
{
    if (vtkUnsignedCharArray *ghosts = data->GetCellGhostArray())
        for (size_t cell = 0; cell < cells.size(); ++cell) {
            const int mark = ghosts->GetValue(static_cast<vtkIdType>(cell));
            cells[cell] = (mark & vtkDataSetAttributes::DUPLICATECELL) == 0 ? 1 : 0;
            copies = copies || cells[cell] == 0;
        }
    if (!copies) return;
    lone = nodes_of_cells(data, marks(cells.size(), 1));
    vtkUnsignedCharArray *ghosts = data->GetPointGhostArray();
    for (size_t node = 0; node < lone.size(); ++node) {
        const int mark = ghosts != nullptr ? ghosts->GetValue(static_cast<vtkIdType>(node)) : 0;
        const bool kept = lone[node] == 0 && (mark & vtkDataSetAttributes::DUPLICATEPOINT) == 0;
        lone[node] = kept ? 1 : 0;
    }
}

} // namespace

input_file read_listed(const std::string &list, const xml_heading &heading, int number, bool bare)
{
    read_options how;
    how.bare = bare;
    how.kept = heading.ids;
    how.may_be_empty = true;
    how.of_list = true;
    const std::string &name = heading.pieces[static_cast<size_t>(number)].path;
    input_file file;
    file.path = name;
    if (is_xml_without_nodes(name, heading.type.substr(1))) return file;
    file = read_file(name, how);
    auto *data = vtkPointSet::SafeDownCast(file.data);
    const bool surface = vtkPolyData::SafeDownCast(data) != nullptr,
               grid = vtkUnstructuredGrid::SafeDownCast(data) != nullptr;
    if (!(heading.type == "PPolyData" ? surface : grid))
        throw failure(name + ": is of another kind than " + list + " says");
    if (data->GetNumberOfPoints() == 0) {
        file.data = nullptr;
        return file;
    }
    if (!bare) {
        match_arrays(name, list, data->GetPointData(), data->GetNumberOfPoints(), heading.node, "node");
        match_arrays(name, list, data->GetCellData(), data->GetNumberOfCells(), heading.cell, "cell");
    }
    if (!heading.ids.empty()) number_by_array(data, heading.ids);
    if (const owned own(data); own.copies) file.data = cells_of(data, own.cells, own.lone);
    forget_copies(file.data, true);
    if (file.data->GetNumberOfPoints() == 0) file.data = nullptr;
    return file;
}

std::string note_of_doubled_nodes(int64_t doubled)
{
    if (doubled == 0) return "";
    return std::to_string(doubled) +
           " node(s) of the pieces stand where another of the same piece does: the list has no global "
           "numbers of "
           "nodes to tell which of different pieces are one, and takes those at one place for one";
}

input_file read_all_listed(const std::string &list)
{
    const xml_heading heading = read_xml_heading(list);
    if (heading.pieces.empty()) throw failure(list + ": lists no pieces");
    input_file all;
    all.path = list;
    std::vector<vtkSmartPointer<vtkDataSet>> filled;
    int64_t doubled = 0;
    for (size_t i = 0; i < heading.pieces.size(); ++i) {
        const input_file one = read_listed(list, heading, static_cast<int>(i), false);
        if (one.data != nullptr) filled.push_back(one.data);
        if (one.data != nullptr && !is_numbered(one.data)) doubled += count_doubled_nodes(one.data);
        for (const std::string &note : one.notes)
            if (std::find(all.notes.begin(), all.notes.end(), note) == all.notes.end())
                all.notes.push_back(note);
    }
    if (filled.empty()) throw failure(list + ": holds no nodes");
    if (const std::string note = note_of_doubled_nodes(filled.size() > 1 ? doubled : 0); !note.empty())
        all.notes.push_back(note);
    if (!std::all_of(filled.begin(), filled.end(), is_numbered))
        for (const auto &one : filled)
            drop_ends(one);
    vtkIdType unlike = 0;
    all.data = joined(std::move(filled), seam_nodes::at_one_place, &unlike);
    drop_ends(all.data);
    if (unlike > 0)
        all.notes.push_back(
            std::to_string(unlike) +
            " node(s) on seams have other values in another piece; those of the first are taken");
    const auto keeps = [&](vtkDataSetAttributes *of, const std::vector<xml_heading::array> &listed,
                           const char *where) {
        for (const xml_heading::array &one : listed)
            if (of->GetAbstractArray(one.name.c_str()) == nullptr)
                throw failure(list + ": " + where + " array " + one.name +
                              " is not of one type in all its pieces");
    };
    keeps(all.data->GetPointData(), heading.node, "node");
    keeps(all.data->GetCellData(), heading.cell, "cell");
    return all;
}
