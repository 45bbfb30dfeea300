#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkCell.h>
#include <vtkCellData.h>
#include <vtkContourFilter.h>
#include <vtkDEMReader.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkDataSetWriter.h>
#include <vtkFloatArray.h>
#include <vtkGenericDataObjectReader.h>
#include <vtkIdList.h>
#include <vtkIdTypeArray.h>
#include <vtkMath.h>
#include <vtkMultiBlockDataSet.h>
#include <vtkMultiBlockPLOT3DReader.h>
#include <vtkNew.h>
#include <vtkPLYReader.h>
#include <vtkPLYWriter.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkSTLReader.h>
#include <vtkSTLWriter.h>
#include <vtkTetra.h>
#include <vtkXMLDataSetWriter.h>
#include <vtkXMLGenericDataObjectReader.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

// ---- the command --------------------------------------------------------------------------------------------

namespace {

struct scratch_folder {
    fs::path path;
    explicit scratch_folder(const char *name)
        : path(fs::temp_directory_path() / (name + std::to_string(getpid())))
    {
        fs::create_directories(path);
    }
    ~scratch_folder() { fs::remove_all(path); }
};

const scratch_folder &folder()
{
    static const scratch_folder made("skoklana_test");
    return made;
}

// Groups that are started at one time get in the way of one another where they share it.
const scratch_folder &folder_of_groups()
{
    static const scratch_folder made("skoklana_mpi");
    return made;
}

struct pipe_ends {
    int read = -1, write = -1;
};

pipe_ends open_pipe(bool terminal)
{
    pipe_ends ends;
    int pair[2];
    if (terminal) {
        EXPECT_EQ(openpty(&ends.read, &ends.write, nullptr, nullptr, nullptr), 0);
    } else {
        EXPECT_EQ(pipe(pair), 0);
        ends = {pair[0], pair[1]};
    }
    return ends;
}

// The command in a process that has someone beside it: who looks at its processor time, in hundredths of a second.
std::string script_of_victim(const surroundings &around)
{
    return "if [ \"$OMPI_COMM_WORLD_RANK\" = " + std::to_string(around.victim) +
           " ]; then (while t=$(cut -d ' ' -f 14 /proc/$$/stat 2>/dev/null) && [ \"$t\" -lt 50 ]; "
           "do sleep 0.02; done; kill -" +
           std::to_string(around.signal_of_victim) + " $$ 2>/dev/null) & fi; exec \"$@\"";
}

[[noreturn]] void become_command(const std::vector<std::string> &arguments, const surroundings &around,
                                 int out, int err)
{
    dup2(around.out.empty() ? out : open(around.out.c_str(), O_WRONLY), STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    for (const char *display : {"DISPLAY", "WAYLAND_DISPLAY"})
        unsetenv(display);
    for (const std::string &one : around.set) {
        const size_t equals = one.find('=');
        setenv(one.substr(0, equals).c_str(), one.substr(equals + 1).c_str(), 1);
    }
    std::vector<std::string> line = {SKOKLANA_COMMAND};
    if (around.victim >= 0) line = {"sh", "-c", script_of_victim(around), "sh", SKOKLANA_COMMAND};
    if (around.processes > 0) {
        line.insert(line.begin(), {"mpirun", "--oversubscribe", "-n", std::to_string(around.processes)});
        setenv("OMPI_MCA_orte_tmpdir_base", folder_of_groups().path.c_str(), 1);
        setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
        setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
        setenv("OMPI_MCA_mpi_yield_when_idle", "1", 1);
        setenv("OMPI_MCA_btl_vader_single_copy_mechanism", "none", 1); // forbidden in containers
        setenv("ASAN_OPTIONS", "detect_leaks=0", 0);                   // of MPI
    }
    if (around.most_memory > 0) {
        const rlim_t most = static_cast<rlim_t>(around.most_memory) * 1024;
        const rlimit limit = {most, most};
        setrlimit(RLIMIT_DATA, &limit);
    }
    line.insert(line.end(), arguments.begin(), arguments.end());
    std::vector<char *> list;
    list.reserve(line.size() + 1);
    for (std::string &one : line)
        list.push_back(one.data());
    list.push_back(nullptr);
    execvp(list[0], list.data());
    _exit(127);
}

// Reads both until both end, and looks around ten times a second. A terminal ends with an error where a pipe ends with 0.
void read_both(int out, int err, ran *result, const std::function<void()> &after_each)
{
    pollfd ends[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    std::string *to[2] = {&result->out, &result->err};
    while (ends[0].fd >= 0 || ends[1].fd >= 0) {
        poll(ends, 2, 100);
        for (int i = 0; i < 2; ++i) {
            if (ends[i].fd < 0 || ends[i].revents == 0) continue;
            char bytes[4096];
            const ssize_t n = ::read(ends[i].fd, bytes, sizeof bytes);
            if (n > 0)
                to[i]->append(bytes, static_cast<size_t>(n));
            else
                ends[i].fd = -1;
        }
        after_each();
    }
}

} // namespace

std::string command_path()
{
    return "'" SKOKLANA_COMMAND "'";
}

ran run(const std::vector<std::string> &arguments, const surroundings &around)
{
    if (around.processes > 0) folder_of_groups(); // this process's, not the child's
    ran result;
    const pipe_ends out = open_pipe(false), err = open_pipe(around.terminal);
    const pid_t child = fork();
    if (child == 0) become_command(arguments, around, out.write, err.write);
    close(out.write);
    close(err.write);
    bool asked = around.until.empty() && !around.when;
    read_both(out.read, err.read, &result, [&] {
        if (asked || (around.when ? !around.when() : result.err.find(around.until) == std::string::npos))
            return;
        kill(child, SIGINT);
        asked = true;
    });
    int status = 0;
    waitpid(child, &status, 0);
    close(out.read);
    close(err.read);
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

bool has_mpirun()
{
    return system("command -v mpirun > /dev/null 2>&1") == 0;
}

std::string shown(const ran &result)
{
    return "exit code " + std::to_string(result.code) + "\n" + result.out + result.err;
}

ran run_well(const std::vector<std::string> &arguments)
{
    ran result = run(arguments);
    std::string line;
    for (const std::string &one : arguments)
        line += " " + one;
    EXPECT_EQ(result.code, 0) << "skoklana" << line << "\n" << shown(result);
    return result;
}

// ---- files --------------------------------------------------------------------------------------------------

namespace {

template <typename Reader> vtkSmartPointer<vtkDataSet> read_by(Reader *reader, const std::string &path)
{
    reader->SetFileName(path.c_str());
    reader->Update();
    return vtkDataSet::SafeDownCast(reader->GetOutputDataObject(0));
}

std::string ending_of(const std::string &path)
{
    return fs::path(path).extension().string();
}

} // namespace

std::string scratch(const std::string &name)
{
    return (folder().path / name).string();
}

std::vector<std::string> files_in_scratch()
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder().path))
        names.push_back(entry.path().filename().string());
    return names;
}

bool leaves_parts()
{
    for (const std::string &name : files_in_scratch())
        if (name[0] == '.' && name.find(".part") != std::string::npos) return true;
    return false;
}

std::vector<std::string> figures()
{
    std::vector<std::string> lines;
    std::ifstream file(SKOKLANA_FIGURES);
    for (std::string line; std::getline(file, line);)
        if (!line.empty() && line[0] != '#') lines.push_back(line);
    return lines;
}

std::string real_data(const std::string &name)
{
    for (const char *place : {SKOKLANA_REAL_DATA, SKOKLANA_SAMPLE_DATA})
        if (fs::exists(fs::path(place) / name)) return (fs::path(place) / name).string();
    return "";
}

vtkSmartPointer<vtkDataSet> read(const std::string &path)
{
    const std::string ending = ending_of(path);
    vtkSmartPointer<vtkDataSet> data;
    if (ending == ".vtk") {
        vtkNew<vtkGenericDataObjectReader> reader;
        reader->ReadAllScalarsOn();
        reader->ReadAllVectorsOn();
        reader->ReadAllFieldsOn();
        data = read_by(reader.Get(), path);
    } else if (ending == ".ply") {
        data = read_by(vtkNew<vtkPLYReader>().Get(), path);
    } else if (ending == ".stl") {
        data = read_by(vtkNew<vtkSTLReader>().Get(), path);
    } else if (ending == ".dem") {
        data = read_by(vtkNew<vtkDEMReader>().Get(), path);
    } else if (ending == ".bin") {
        vtkNew<vtkMultiBlockPLOT3DReader> reader;
        std::string solution = path;
        solution.replace(solution.rfind("xyz"), 3, "q");
        reader->SetXYZFileName(path.c_str());
        reader->SetQFileName(solution.c_str());
        reader->AutoDetectFormatOn();
        reader->Update();
        data = vtkDataSet::SafeDownCast(reader->GetOutput()->GetBlock(0));
    } else {
        data = read_by(vtkNew<vtkXMLGenericDataObjectReader>().Get(), path);
    }
    EXPECT_NE(data, nullptr) << path;
    return data;
}

vtkSmartPointer<vtkPolyData> read_surface(const std::string &path)
{
    vtkSmartPointer<vtkPolyData> data = vtkPolyData::SafeDownCast(read(path));
    EXPECT_NE(data, nullptr) << path;
    return data;
}

template <typename Writer> static void write_by(Writer *writer, const std::string &path, vtkDataSet *data)
{
    writer->SetFileName(path.c_str());
    writer->SetInputData(data);
    EXPECT_EQ(writer->Write(), 1) << path;
}

void write(const std::string &path, vtkDataSet *data)
{
    const std::string ending = ending_of(path);
    if (ending == ".vtk")
        write_by(vtkNew<vtkDataSetWriter>().Get(), path, data);
    else if (ending == ".ply")
        write_by(vtkNew<vtkPLYWriter>().Get(), path, data);
    else if (ending == ".stl")
        write_by(vtkNew<vtkSTLWriter>().Get(), path, data);
    else
        write_by(vtkNew<vtkXMLDataSetWriter>().Get(), path, data);
}

std::string bytes_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.good()) << path;
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

void write_bytes(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

// ---- figures ------------------------------------------------------------------------------------------------

namespace {

// Sums measure(points of simplex) over the simplices of all cells of a dimension.
double sum_over_cells(vtkDataSet *data, int ndim, double (*measure)(const double (*)[3]))
{
    double sum = 0;
    vtkNew<vtkIdList> nodes;
    vtkNew<vtkPoints> points;
    points->SetDataTypeToDouble();
    for (vtkIdType c = 0; c < data->GetNumberOfCells(); ++c) {
        vtkCell *cell = data->GetCell(c);
        if (cell->GetCellDimension() != ndim) continue;
        cell->Triangulate(0, nodes, points);
        for (vtkIdType i = 0; i + ndim < points->GetNumberOfPoints(); i += ndim + 1) {
            double corner[4][3];
            for (int k = 0; k <= ndim; ++k)
                points->GetPoint(i + k, corner[k]);
            sum += measure(corner);
        }
    }
    return sum;
}

double distance(const double (*p)[3])
{
    return std::sqrt(vtkMath::Distance2BetweenPoints(p[0], p[1]));
}

double triangle_area(const double (*p)[3])
{
    double a[3], b[3], cross[3];
    vtkMath::Subtract(p[1], p[0], a);
    vtkMath::Subtract(p[2], p[0], b);
    vtkMath::Cross(a, b, cross);
    return vtkMath::Norm(cross) / 2;
}

double tetrahedron_volume(const double (*p)[3])
{
    double corner[4][3];
    std::copy(&p[0][0], &p[0][0] + 12, &corner[0][0]);
    return std::abs(vtkTetra::ComputeVolume(corner[0], corner[1], corner[2], corner[3]));
}

} // namespace

double area_of(vtkPolyData *data)
{
    return sum_over_cells(data, 2, triangle_area);
}

double length_of(vtkPolyData *data)
{
    return sum_over_cells(data, 1, distance);
}

double volume_of(vtkDataSet *data)
{
    return sum_over_cells(data, 3, tetrahedron_volume);
}

static vtkDataArray *array_in(vtkDataSetAttributes *attributes, const std::string &name)
{
    vtkDataArray *array = attributes->GetArray(name.c_str());
    EXPECT_NE(array, nullptr) << name;
    return array;
}

vtkDataArray *node_array(vtkDataSet *data, const std::string &name)
{
    return array_in(data->GetPointData(), name);
}

vtkDataArray *cell_array(vtkDataSet *data, const std::string &name)
{
    return array_in(data->GetCellData(), name);
}

vtkSmartPointer<vtkPolyData> contour(vtkDataSet *data, const std::string &array,
                                     const std::vector<double> &levels)
{
    vtkNew<vtkContourFilter> filter;
    filter->SetInputData(data);
    filter->SetInputArrayToProcess(0, 0, 0, vtkDataObject::FIELD_ASSOCIATION_POINTS, array.c_str());
    for (size_t i = 0; i < levels.size(); ++i)
        filter->SetValue(static_cast<int>(i), levels[i]);
    filter->ComputeNormalsOff();
    filter->Update();
    return filter->GetOutput();
}

static vtkSmartPointer<vtkDataArray> numbers(const char *name, vtkIdType count)
{
    auto array = vtkSmartPointer<vtkIdTypeArray>::New();
    array->SetName(name);
    for (vtkIdType i = 0; i < count; ++i)
        array->InsertNextValue(i);
    return array;
}

void number_all(vtkDataSet *data)
{
    data->GetPointData()->AddArray(numbers("node", data->GetNumberOfPoints()));
    data->GetCellData()->AddArray(numbers("cell", data->GetNumberOfCells()));
}

void add_node_array(vtkDataSet *data, const std::string &name,
                    const std::function<double(const double *)> &value)
{
    vtkNew<vtkFloatArray> array;
    array->SetName(name.c_str());
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
        array->InsertNextValue(static_cast<float>(value(data->GetPoint(i))));
    data->GetPointData()->AddArray(array);
    if (data->GetPointData()->GetScalars() == nullptr) data->GetPointData()->SetActiveScalars(name.c_str());
}

double random_numbers::next()
{
    state = state * 6364136223846793005u + 1442695040888963407u;
    return static_cast<double>(state >> 11) / static_cast<double>(1ul << 53);
}
