// Writers complain through an error code, through VTK's message window, or not at all: all three are looked
// at, and a file that is missing or empty afterwards is a failure whatever the writer says.
#include "write.hpp"

#include "failure.hpp"
#include "messages.hpp"
#include "progress.hpp"

#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkErrorCode.h>
#include <vtkNew.h>
#include <vtkPLYWriter.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkSTLWriter.h>
#include <vtkXMLDataSetWriter.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

void write_beside(const std::string &path, const std::function<void(const std::string &)> &write)
{
    stop_if_asked();
    const fs::path target(path);
    const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
    std::error_code code;
    if (!fs::is_directory(folder, code))
        throw failure(path + ": cannot be written: there is no folder " + folder.string());
    if (fs::is_directory(target, code)) throw failure(path + ": cannot be written: it is a folder");
    // the ending stays last: some writers go by it
    const std::string beside = (folder / ("." + target.stem().string() + ".part" + std::to_string(getpid()) +
                                          target.extension().string()))
                                   .string();
    const partial_file part(beside);
    try {
        write(beside);
        if (!fs::exists(beside, code) || fs::file_size(beside, code) == 0)
            throw failure("nothing was written; is the folder writable and the disk not full?");
        fs::rename(beside, target, code);
        if (code) throw failure(code.message());
    } catch (const failure &wrong) {
        throw failure(path + ": cannot be written: " + wrong.what());
    } catch (const fs::filesystem_error &wrong) {
        throw failure(path + ": cannot be written: " + wrong.code().message());
    }
}

void check_ending(const std::string &path, const char *endings, const char *what)
{
    const std::string ending = fs::path(path).extension().string();
    if (!ending.empty() && strstr(endings, (" " + ending + " ").c_str()) != nullptr) return;
    throw failure(path + ": " + what + " is written to a file that ends in" +
                      std::string(endings, strlen(endings) - 1),
                  exit_usage);
}

template <typename Writer> static void run(Writer *writer, const std::string &path, vtkDataSet *data)
{
    writer->SetFileName(path.c_str());
    writer->SetInputData(data);
    const int done = writer->Write();
    const auto errors = vtk_messages::take_errors();
    if (!errors.empty()) throw failure(errors.front());
    if (done == 0 || writer->GetErrorCode() != vtkErrorCode::NoError)
        throw failure(vtkErrorCode::GetStringFromErrorCode(writer->GetErrorCode()));
}

// VTK's PLY writer doesn't look whether its writes succeed: the length of the file tells.
static void check_ply(const std::string &path, vtkPolyData *data)
{
    std::ifstream file(path, std::ios::binary);
    std::string header(4096, '\0');
    file.read(header.data(), static_cast<std::streamsize>(header.size()));
    const std::string mark = "end_header\n";
    const size_t end = header.find(mark);
    const auto nodes = static_cast<uintmax_t>(data->GetNumberOfPoints());
    const auto triangles = static_cast<uintmax_t>(data->GetNumberOfPolys());
    if (end == std::string::npos || fs::file_size(path) != end + mark.size() + nodes * 12 + triangles * 13)
        throw failure("the disk may be full");
}

// A name and its parts as columns: "v" or "v:0", "v:1", "v:2".
static std::string column_names(vtkDataArray *array)
{
    std::string names;
    const int n = array->GetNumberOfComponents();
    for (int c = 0; c < n; ++c)
        names += "," + std::string(array->GetName()) + (n > 1 ? ":" + std::to_string(c) : "");
    return names;
}

static void write_csv(const std::string &path, vtkDataSet *data)
{
    std::ofstream file(path);
    vtkPointData *arrays = data->GetPointData();
    file << "x,y,z";
    for (int a = 0; a < arrays->GetNumberOfArrays(); ++a)
        file << column_names(arrays->GetArray(a));
    file << '\n';
    for (vtkIdType node = 0; node < data->GetNumberOfPoints(); ++node) {
        double xyz[3];
        data->GetPoint(node, xyz);
        file.precision(9); // enough to read the same float again
        file << xyz[0] << ',' << xyz[1] << ',' << xyz[2];
        for (int a = 0; a < arrays->GetNumberOfArrays(); ++a) {
            vtkDataArray *array = arrays->GetArray(a);
            file.precision(array->GetDataTypeSize() > 4 ? 17 : 9);
            for (int c = 0; c < array->GetNumberOfComponents(); ++c) {
                file << ',';
                if (array->GetDataType() == VTK_LONG_LONG) // a double cannot hold them all
                    file << static_cast<const long long *>(
                        array->GetVoidPointer(0))[node * array->GetNumberOfComponents() + c];
                else
                    file << array->GetComponent(node, c);
            }
        }
        file << '\n';
    }
    file.close();
    if (!file) throw failure(strerror(errno));
}

void write_data_set(const std::string &path, vtkDataSet *data)
{
    const std::string ending = fs::path(path).extension().string();
    write_beside(path, [&](const std::string &beside) {
        vtk_messages::take_errors();
        if (ending == ".csv") return write_csv(beside, data);
        if (ending == ".ply") {
            vtkNew<vtkPLYWriter> writer;
            run(writer.Get(), beside, data);
            return check_ply(beside, vtkPolyData::SafeDownCast(data));
        }
        if (ending == ".stl") {
            vtkNew<vtkSTLWriter> writer;
            writer->SetFileTypeToBinary();
            return run(writer.Get(), beside, data);
        }
        vtkNew<vtkXMLDataSetWriter> writer; // takes the kind of the data
        writer->SetDataModeToAppended();
        writer->EncodeAppendedDataOff();
        writer->SetCompressorTypeToZLib();
        writer->SetCompressionLevel(2); // four times as quick as level 5, and a tenth larger
        writer->SetHeaderTypeToUInt64();
        run(writer.Get(), beside, data);
    });
}

void write_text(const std::string &path, const std::string &text)
{
    write_beside(path, [&](const std::string &beside) {
        std::ofstream file(beside, std::ios::binary);
        file << text;
        file.close();
        if (!file) throw failure(strerror(errno));
    });
}
