#include "input.hpp"

#include "console.hpp"
#include "csv.hpp"
#include "failure.hpp"

#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>

input read_input(const std::string &path, const read_options &how)
{
    input in;
    in.file = read_file(path, how);
    vtkDataSet *data = in.file.data;
    in.node = arrays_of(data->GetPointData(), data->GetNumberOfPoints(), &in.file.notes);
    in.cell = arrays_of(data->GetCellData(), data->GetNumberOfCells(), &in.file.notes);
    say_notes(in.file.notes);
    return in;
}

// By the ending. That of PLOT3D files is .xyz too, whose numbers are seldom texts.
static bool is_point_table(const std::string &path)
{
    std::string ending = std::filesystem::path(path).extension().string();
    for (char &c : ending)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    if (ending == ".csv" || ending == ".tsv" || ending == ".txt") return true;
    if (ending != ".xyz") return false;
    std::ifstream file(path, std::ios::binary);
    std::string head(4096, '\0');
    file.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<size_t>(file.gcount()));
    return head.find('\0') == std::string::npos;
}

static vtkSmartPointer<vtkDataSet> points_of_table(const point_table &table, std::vector<std::string> *notes)
{
    vtkNew<vtkPoints> points;
    points->SetDataTypeToDouble();
    points->SetNumberOfPoints(table.count());
    for (qx_long i = 0; i < table.count(); ++i)
        points->SetPoint(i, &table.xyz[static_cast<size_t>(3 * i)]);
    auto data = vtkSmartPointer<vtkPolyData>::New();
    data->SetPoints(points);
    for (const point_table::column &column : table.others) {
        const auto array = array_of_texts(column.name, column.texts);
        if (vtkDataArray::SafeDownCast(array) != nullptr)
            data->GetPointData()->AddArray(array);
        else
            notes->push_back("column " + column.name + " holds texts, and is left out");
    }
    return data;
}

input read_points(const std::string &path, const read_options &how, const std::vector<std::string> &columns)
{
    if (!is_point_table(path)) {
        if (!columns.empty())
            throw failure(path + ": is no table of text, and --columns is for such", exit_usage);
        return read_input(path, how);
    }
    input in;
    in.file.path = path;
    in.file.data = points_of_table(read_point_table(path, {true, columns}), &in.file.notes);
    in.node = arrays_of(in.file.data->GetPointData(), in.file.data->GetNumberOfPoints(), &in.file.notes);
    say_notes(in.file.notes);
    return in;
}

input load_input(const std::string &path, const read_options &how, mesh_use use)
{
    input in = read_input(path, how);
    in.mesh = make_mesh(path, in.file.data, use);
    say_notes(in.mesh->notes);
    return in;
}

std::string names_of(const std::vector<typed_array> &arrays)
{
    std::string names;
    for (const typed_array &array : arrays)
        names += (names.empty() ? "" : ", ") + array.name;
    return names.empty() ? "none" : names;
}

const typed_array *find_array(const std::vector<typed_array> &arrays, const std::string &name)
{
    const auto found = std::find_if(arrays.begin(), arrays.end(),
                                    [&](const typed_array &array) { return array.name == name; });
    return found == arrays.end() ? nullptr : &*found;
}
