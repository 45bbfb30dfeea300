#include "input.hpp"

#include "console.hpp"

#include <vtkCellData.h>
#include <vtkDataSet.h>
#include <vtkPointData.h>

#include <algorithm>

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
