// Writers complain through an error code, through VTK's message window, or not at all: all three are looked
// at, and a file that is missing or empty afterwards is a failure whatever the writer says.
#include "write.hpp"

#include "failure.hpp"
#include "leftovers.hpp"
#include "messages.hpp"
#include "process_group.hpp"
#include "progress.hpp"

#include <vtkCellData.h>
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
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

// ---- where ---------------------------------------------------------------------------------------------------

static void write_by_ending(const std::string &path, vtkDataSet *data);
static void put_text(const std::string &path, const std::string &text);
static fs::path end_of_links(fs::path path);

static bool overwriting;
static std::vector<std::string> inputs, outputs;

void allow_overwriting_inputs()
{
    overwriting = true;
}

static void check_clash(const std::string &in, const std::string &out)
{
    std::error_code code;
    if (!overwriting && fs::equivalent(in, out, code))
        throw failure(out + ": is a file that is read, too; --overwrite lets the result take its place",
                      exit_usage);
}

void note_input(const std::string &path)
{
    for (const std::string &out : outputs)
        check_clash(path, out);
    inputs.push_back(path);
}

// of_list: leftovers are looked for with the list.
static void note_output(const std::string &path, bool of_list = false)
{
    for (const std::string &in : inputs)
        check_clash(in, path);
    if (!of_list && processes::is_first() && std::find(outputs.begin(), outputs.end(), path) == outputs.end())
        remove_leftovers(end_of_links(path).string());
    outputs.push_back(path);
}

// The file that a chain of links ends at, whether it is there or not.
static fs::path end_of_links(fs::path path)
{
    std::error_code code;
    for (int links = 0; links < 40 && fs::is_symlink(path, code); ++links) {
        const fs::path next = fs::read_symlink(path, code);
        path = next.is_absolute() ? next : path.parent_path() / next;
    }
    return path;
}

// What the system says to a new file, or to more bytes in it; empty: nothing against it.
static std::string try_to_write(const std::string &path, size_t bytes)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file < 0) return strerror(errno);
    std::string wrong;
    const std::vector<char> zeros(bytes);
    for (size_t done = 0; done < bytes && wrong.empty();) {
        const ssize_t n = ::write(file, zeros.data() + done, bytes - done);
        if (n < 0) wrong = strerror(errno);
        done += static_cast<size_t>(std::max<ssize_t>(n, 0));
    }
    if (wrong.empty() && bytes > 0 && fsync(file) != 0 && errno != EINVAL) wrong = strerror(errno);
    close(file);
    return wrong;
}

// Some places can be asked in words that tell more than the system's.
static void check_target(const fs::path &target, const fs::path &folder)
{
    std::error_code code;
    if (!fs::is_directory(folder, code)) throw failure("there is no folder " + folder.string());
    if (fs::is_directory(target, code)) throw failure("it is a folder");
    const auto all_write = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
    if (fs::exists(target, code) &&
        ((fs::status(target, code).permissions() & all_write) == fs::perms::none ||
         access(target.c_str(), W_OK) != 0))
        throw failure("it is there already and read-only");
}

static fs::path folder_of(const fs::path &target)
{
    return target.has_parent_path() ? target.parent_path() : fs::path(".");
}

std::string name_beside(const std::string &path)
{
    return name_with_mark(end_of_links(path).string(), processes::mark());
}

// Turns what goes wrong on the way to path into words.
template <typename Work> static void writing(const std::string &path, Work work)
{
    try {
        work();
    } catch (const failure &wrong) {
        throw failure(path + ": cannot be written: " + wrong.what());
    } catch (const fs::filesystem_error &wrong) {
        throw failure(path + ": cannot be written: " + wrong.code().message());
    }
}

// Whole or not: what write leaves in the file of that name is there to the end.
static void fill_beside(const std::string &path, const std::string &beside,
                        const std::function<void(const std::string &)> &write)
{
    const fs::path target = end_of_links(path);
    check_target(target, folder_of(target));
    if (const std::string wrong = try_to_write(beside, 0); !wrong.empty()) throw failure(wrong);
    try {
        std::error_code code;
        write(beside);
        if (!fs::exists(beside, code) || fs::file_size(beside, code) == 0)
            throw failure("nothing was written");
    } catch (const failure &wrong) { // the system's reason, where there is one, is better than a writer's
        const std::string reason = try_to_write(beside, 1 << 20);
        throw reason.empty() ? wrong : failure(reason);
    }
}

static void move_into_place(const std::string &beside, const std::string &path)
{
    std::error_code code;
    fs::rename(beside, end_of_links(path), code);
    if (code) throw failure(code.message());
}

void write_beside(const std::string &path, const std::function<void(const std::string &)> &write)
{
    stop_if_asked();
    note_output(path);
    writing(path, [&] {
        const std::string beside = name_beside(path);
        const partial_file part(beside);
        fill_beside(path, beside, write);
        move_into_place(beside, path);
    });
}

file_batch::file_batch() = default;
file_batch::~file_batch() = default;

void file_batch::watch(const std::string &path)
{
    watched.push_back(std::make_unique<partial_file>(name_beside(path)));
}

void file_batch::write_by(const std::string &path, const std::function<void(const std::string &)> &write)
{
    stop_if_asked();
    note_output(path, true);
    writing(path, [&] {
        const std::string beside = name_beside(path);
        watch(path);
        paths.push_back(path);
        fill_beside(path, beside, write);
    });
}

void file_batch::write_data_set(const std::string &path, vtkDataSet *data)
{
    write_by(path, [&](const std::string &beside) { write_by_ending(beside, data); });
}

void file_batch::write_text(const std::string &path, const std::string &text)
{
    write_by(path, [&](const std::string &beside) { put_text(beside, text); });
}

void remove_before(const std::string &path)
{
    writing(path, [&] { fs::remove(end_of_links(path)); });
}

void file_batch::put_in_place()
{
    for (const std::string &path : paths)
        writing(path, [&] { move_into_place(name_beside(path), path); });
    paths.clear();
}

void check_ending(const std::string &path, const char *endings, const char *what)
{
    note_output(path);
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
    if (!errors.empty() || done == 0 || writer->GetErrorCode() != vtkErrorCode::NoError)
        throw failure("the writer of this format failed");
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
        throw failure("less was written than there is");
}

// VTK's XML writers put names between quotes as they are.
std::string xml_text(const std::string &name)
{
    std::string text;
    for (const char c : name)
        text += c == '"' ? "&quot;" : c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, c);
    return text;
}

static vtkSmartPointer<vtkDataSet> with_xml_names(vtkDataSet *data)
{
    auto out = vtkSmartPointer<vtkDataSet>::Take(data->NewInstance());
    out->ShallowCopy(data);
    for (vtkFieldData *fields : {static_cast<vtkFieldData *>(out->GetPointData()),
                                 static_cast<vtkFieldData *>(out->GetCellData()), out->GetFieldData()})
        for (int i = fields->GetNumberOfArrays() - 1; i >= 0; --i) { // renamed ones go to the end
            const vtkSmartPointer<vtkAbstractArray> array = fields->GetAbstractArray(i);
            const std::string name = array->GetName() != nullptr ? array->GetName() : "";
            if (name.find_first_of("\"<&") == std::string::npos) continue;
            const auto renamed = vtkSmartPointer<vtkAbstractArray>::Take(array->NewInstance());
            if (auto *numbers = vtkDataArray::SafeDownCast(renamed))
                numbers->ShallowCopy(vtkDataArray::SafeDownCast(array));
            else
                renamed->DeepCopy(array);
            renamed->SetName(xml_text(name).c_str());
            fields->RemoveArray(i);
            fields->AddArray(renamed);
        }
    return out;
}

static void write_by_ending(const std::string &path, vtkDataSet *data)
{
    const std::string ending = fs::path(path).extension().string();
    vtk_messages::take_errors();
    if (ending == ".ply") {
        vtkNew<vtkPLYWriter> writer;
        run(writer.Get(), path, data);
        return check_ply(path, vtkPolyData::SafeDownCast(data));
    }
    if (ending == ".stl") {
        vtkNew<vtkSTLWriter> writer;
        writer->SetFileTypeToBinary();
        return run(writer.Get(), path, data);
    }
    vtkNew<vtkXMLDataSetWriter> writer; // takes the kind of the data
    writer->SetDataModeToAppended();
    writer->EncodeAppendedDataOff();
    writer->SetCompressorTypeToZLib();
    writer->SetCompressionLevel(2); // four times as quick as level 5, and a tenth larger
    writer->SetHeaderTypeToUInt64();
    run(writer.Get(), path, with_xml_names(data).Get());
}

void write_data_set(const std::string &path, vtkDataSet *data)
{
    write_beside(path, [&](const std::string &beside) { write_by_ending(beside, data); });
}

static void put_text(const std::string &path, const std::string &text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) throw failure(strerror(errno));
}

void write_text(const std::string &path, const std::string &text)
{
    write_beside(path, [&](const std::string &beside) { put_text(beside, text); });
}
