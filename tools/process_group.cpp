#include "process_group.hpp"

#include "failure.hpp"
#include "leftovers.hpp"

#include <vtkAbstractArray.h>
#include <vtkCommunicator.h>
#include <vtkDataSet.h>
#include <vtkDataSetAttributes.h>
#include <vtkImageData.h>
#include <vtkMPI.h>
#include <vtkMPIController.h>
#include <vtkNew.h>
#include <vtkPointSet.h>
#include <vtkPoints.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sched.h>
#include <thread>
#include <unistd.h>

namespace {

vtkMPIController *controller; // of a group of several; it is never deleted: MPI may be gone by then
int own_rank, group_size = 1, own_processors;
bool launched;   // by mpirun
bool all_failed; // what is on its way out was agreed upon
int64_t sent;
MPI_Comm of_failures; // apart from all else, as the others may be anywhere

constexpr int text_tag = 5001, data_tag = 5002;

std::string &mark_of_first()
{
    static std::string mark = mark_of_process();
    return mark;
}

// Whether a program that starts groups of processes started this one.
bool started_in_group()
{
    for (const char *mark : {"OMPI_COMM_WORLD_SIZE", "PMI_RANK", "PMI_SIZE", "PMIX_RANK", "MPI_LOCALNRANKS"})
        if (getenv(mark) != nullptr) return true;
    return false;
}

// Reduces one number.
template <typename T> T reduced(T value, int operation)
{
    T result = value;
    if (controller != nullptr) controller->AllReduce(&value, &result, 1, operation);
    return result;
}

// What ended the work of one process.
enum class end_of_work : char { well, failed, stopped, no_memory };

struct ended {
    end_of_work how = end_of_work::well;
    int code = exit_failed;
    std::string text;

    std::string as_text() const
    {
        return std::string(1, static_cast<char>(how)) + static_cast<char>(code) + text;
    }
    void raise() const
    {
        switch (how) {
        case end_of_work::well: return;
        case end_of_work::failed: throw failure(text, static_cast<exit_code>(code));
        case end_of_work::stopped: throw interrupted();
        case end_of_work::no_memory: throw std::bad_alloc();
        }
    }
};

ended end_of(const std::function<void()> &work)
{
    ended end;
    try {
        work();
    } catch (const failure &wrong) {
        end = {end_of_work::failed, wrong.code, wrong.what()};
    } catch (const interrupted &) {
        end.how = end_of_work::stopped;
    } catch (const std::bad_alloc &) {
        end.how = end_of_work::no_memory;
    } catch (const std::length_error &) {
        end.how = end_of_work::no_memory;
    } catch (const std::exception &wrong) {
        end = {end_of_work::failed, exit_failed, wrong.what()};
    }
    return end;
}

// Where an image lies: other kinds bring that along.
struct image_place {
    double origin[3], spacing[3];
    int extent[6];
};

// The share of one of the processes of a machine; mpirun may have bound each to processors of its own.
int processors_among(MPI_Comm machine)
{
    constexpr size_t bytes = sizeof(cpu_set_t);
    static_assert(CPU_SETSIZE <= processor_set().size(), "all have a number");
    int count = 1, own = 0;
    MPI_Comm_size(machine, &count);
    MPI_Comm_rank(machine, &own);
    cpu_set_t mine;
    CPU_ZERO(&mine);
    if (sched_getaffinity(0, bytes, &mine) != 0)
        for (unsigned i = 0; i < std::min<unsigned>(std::thread::hardware_concurrency(), CPU_SETSIZE); ++i)
            CPU_SET(i, &mine);
    std::vector<cpu_set_t> all(static_cast<size_t>(count));
    MPI_Allgather(&mine, bytes, MPI_BYTE, all.data(), bytes, MPI_BYTE, machine);
    std::vector<processor_set> allowed(all.size());
    for (size_t p = 0; p < all.size(); ++p)
        for (size_t i = 0; i < CPU_SETSIZE; ++i)
            allowed[p][i] = CPU_ISSET(i, &all[p]) != 0;
    return share_of_processors(allowed, static_cast<size_t>(own));
}

vtkIdType count_of(vtkDataSet *data, bool of_cells)
{
    return of_cells ? data->GetNumberOfCells() : data->GetNumberOfPoints();
}

// The arrays of nodes and cells with their types. VTK sends none of which there are no values, and has fewer types on the
// way: a signed char comes out as a char.
std::string arrays_of(vtkDataSet *data)
{
    std::string text;
    for (const bool of_cells : {false, true}) {
        vtkDataSetAttributes *arrays =
            data->GetAttributes(of_cells ? vtkDataObject::CELL : vtkDataObject::POINT);
        for (int i = 0; i < arrays->GetNumberOfArrays(); ++i) {
            vtkAbstractArray *array = arrays->GetAbstractArray(i);
            if (array->GetName() != nullptr)
                text += std::to_string(static_cast<int>(of_cells)) + " " +
                        std::to_string(array->GetDataType()) + " " +
                        std::to_string(array->GetNumberOfComponents()) + " " + array->GetName() + '\0';
        }
    }
    return text;
}

// The values of an array bit for bit as another type of their size; null: there is none.
vtkSmartPointer<vtkAbstractArray> as_type(int type, vtkAbstractArray *from)
{
    auto made = vtkSmartPointer<vtkAbstractArray>::Take(vtkAbstractArray::CreateArray(type));
    if (made == nullptr || made->GetDataTypeSize() != from->GetDataTypeSize() || from->GetDataTypeSize() == 0)
        return nullptr;
    made->SetName(from->GetName());
    made->SetNumberOfComponents(from->GetNumberOfComponents());
    made->CopyComponentNames(from);
    made->SetNumberOfTuples(from->GetNumberOfTuples());
    memcpy(made->GetVoidPointer(0), from->GetVoidPointer(0),
           static_cast<size_t>(from->GetNumberOfValues()) * static_cast<size_t>(from->GetDataTypeSize()));
    return made;
}

// What VTK leaves out of a data set on its way, which its writers want of one with nothing in it.
void fill_in(vtkDataSet *data, const std::string &arrays)
{
    auto *set = vtkPointSet::SafeDownCast(data);
    auto *grid = vtkUnstructuredGrid::SafeDownCast(data);
    if (set != nullptr && set->GetPoints() == nullptr) set->SetPoints(vtkNew<vtkPoints>());
    if (grid != nullptr && grid->GetCells() == nullptr) grid->Allocate(1);
    for (size_t at = 0; at < arrays.size(); at = arrays.find('\0', at) + 1) {
        int of_cells, type, components, name;
        if (sscanf(arrays.c_str() + at, "%d %d %d %n", &of_cells, &type, &components, &name) != 3) return;
        vtkDataSetAttributes *of =
            data->GetAttributes(of_cells != 0 ? vtkDataObject::CELL : vtkDataObject::POINT);
        if (vtkAbstractArray *got = of->GetAbstractArray(arrays.c_str() + at + name)) {
            const auto array = got->GetDataType() != type ? as_type(type, got) : nullptr;
            if (array != nullptr) of->AddArray(array);
        } else if (count_of(data, of_cells != 0) == 0) {
            const auto array = vtkSmartPointer<vtkAbstractArray>::Take(vtkAbstractArray::CreateArray(type));
            array->SetName(arrays.c_str() + at + name);
            array->SetNumberOfComponents(components);
            of->AddArray(array);
        }
    }
}

} // namespace

int share_of_processors(const std::vector<processor_set> &allowed, size_t process)
{
    const auto sharing =
        static_cast<size_t>(std::count_if(allowed.begin(), allowed.end(), [&](const processor_set &other) {
            return (other & allowed[process]).any();
        }));
    return static_cast<int>(std::max<size_t>(1, allowed[process].count() / std::max<size_t>(sharing, 1)));
}

void processes::start(int *argc, char ***argv)
{
    launched = started_in_group();
    if (!launched) return;
    vtkMPIController *made = vtkMPIController::New();
    made->Initialize(argc, argv);
    own_rank = made->GetLocalProcessId();
    group_size = made->GetNumberOfProcesses();
    if (group_size == 1) return;
    controller = made;
    MPI_Comm_dup(MPI_COMM_WORLD, &of_failures);
    MPI_Comm machine;
    if (MPI_Comm_split_type(MPI_COMM_WORLD, MPI_COMM_TYPE_SHARED, 0, MPI_INFO_NULL, &machine) ==
        MPI_SUCCESS) {
        own_processors = processors_among(machine);
        MPI_Comm_free(&machine);
    }
    mark_of_first() = text_of(0, mark_of_process());
    if (own_rank == 0) return;
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) dup2(nowhere, STDOUT_FILENO);
    if (nowhere >= 0) close(nowhere);
}

void processes::finish()
{
    int up = 0, down = 0;
    if (!launched) return;
    MPI_Initialized(&up);
    MPI_Finalized(&down);
    if (up != 0 && down == 0) MPI_Finalize();
}

int processes::rank()
{
    return own_rank;
}

int processes::processors()
{
    return own_processors > 0 ? own_processors
                              : std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

const std::string &processes::mark()
{
    return mark_of_first();
}

bool processes::by_launcher()
{
    return launched;
}

int processes::size()
{
    return group_size;
}

int64_t processes::sum(int64_t value)
{
    return reduced(static_cast<vtkTypeInt64>(value), vtkCommunicator::SUM_OP);
}

double processes::sum(double value)
{
    if (!several()) return value;
    std::vector<double> all(static_cast<size_t>(group_size));
    controller->AllGather(&value, all.data(), 1);
    double total = 0;
    for (const double one : all)
        total += one;
    return total;
}

double processes::least(double value)
{
    return reduced(value, vtkCommunicator::MIN_OP);
}

double processes::greatest(double value)
{
    return reduced(value, vtkCommunicator::MAX_OP);
}

bool processes::any(bool value)
{
    return reduced(value ? 1 : 0, vtkCommunicator::MAX_OP) != 0;
}

std::vector<std::string> processes::all_of(const std::string &text)
{
    if (!several()) return {text};
    const size_t n = static_cast<size_t>(group_size);
    const auto own = static_cast<vtkIdType>(text.size());
    std::vector<vtkIdType> lengths(n), starts(n);
    controller->AllGather(&own, lengths.data(), 1);
    vtkIdType total = 0;
    for (size_t i = 0; i < n; ++i) {
        starts[i] = total;
        total += lengths[i];
    }
    std::string bytes(static_cast<size_t>(total) + 1, '\0'), mine = text + '\0';
    controller->AllGatherV(mine.data(), bytes.data(), own, lengths.data(), starts.data());
    std::vector<std::string> all;
    for (size_t i = 0; i < n; ++i)
        all.push_back(bytes.substr(static_cast<size_t>(starts[i]), static_cast<size_t>(lengths[i])));
    sent += own * (group_size - 1);
    return all;
}

std::string processes::text_of(int from, const std::string &text)
{
    if (!several()) return text;
    auto length = static_cast<vtkIdType>(text.size());
    controller->Broadcast(&length, 1, from);
    std::string bytes = own_rank == from ? text : std::string(static_cast<size_t>(length), '\0');
    if (length > 0) controller->Broadcast(bytes.data(), length, from);
    if (own_rank == from) sent += length * (group_size - 1);
    return bytes;
}

void processes::send(const std::string &text, int to)
{
    const auto length = static_cast<vtkIdType>(text.size());
    controller->Send(&length, 1, to, text_tag);
    if (length > 0) controller->Send(text.data(), length, to, text_tag);
    sent += length;
}

std::string processes::receive(int from)
{
    vtkIdType length = 0;
    controller->Receive(&length, 1, from, text_tag);
    std::string text(static_cast<size_t>(length), '\0');
    if (length > 0) controller->Receive(text.data(), length, from, text_tag);
    return text;
}

vtkSmartPointer<vtkDataSet> processes::move(vtkDataSet *data, int from, int to)
{
    if (from == to) return own_rank == from ? data : nullptr;
    if (own_rank == from) {
        image_place place = {};
        if (auto *image = vtkImageData::SafeDownCast(data)) {
            image->GetOrigin(place.origin);
            image->GetSpacing(place.spacing);
            image->GetExtent(place.extent);
        }
        send(data == nullptr
                 ? ""
                 : std::string(reinterpret_cast<const char *>(&place), sizeof place) + arrays_of(data),
             to);
        if (data == nullptr) return nullptr;
        controller->Send(data, to, data_tag);
        sent += static_cast<int64_t>(data->GetActualMemorySize()) * 1024;
    } else if (own_rank == to) {
        const std::string bytes = receive(from);
        if (bytes.empty()) return nullptr;
        image_place place;
        memcpy(&place, bytes.data(), sizeof place);
        const auto object =
            vtkSmartPointer<vtkDataObject>::Take(controller->ReceiveDataObject(from, data_tag));
        vtkDataSet *got = vtkDataSet::SafeDownCast(object);
        if (auto *image = vtkImageData::SafeDownCast(got)) {
            image->SetExtent(place.extent);
            image->SetOrigin(place.origin);
            image->SetSpacing(place.spacing);
        }
        fill_in(got, bytes.substr(sizeof place));
        return got;
    }
    return nullptr;
}

void processes::agree(const std::function<void()> &work)
{
    if (!several()) return work();
    const ended own = end_of(work);
    // in the common case one number for all
    if (!any(own.how != end_of_work::well)) return;
    for (const std::string &one : all_of(own.as_text())) {
        const ended other = {static_cast<end_of_work>(one[0]), one[1], one.substr(2)};
        if (other.how == end_of_work::well) continue;
        all_failed = true;
        other.raise();
    }
}

int64_t processes::bytes_sent()
{
    return sent;
}

void processes::give_up(const std::string &message, int code)
{
    if (!several()) {
        fprintf(stderr, "%s\n", message.c_str());
        finish();
        exit(code);
    }
    signal(SIGTERM,
           SIG_DFL); // mpirun ends those that are still here once one has left; no further message then
    // Where all fail alike, as on wrong arguments, they meet here, and the first one tells it. Who comes alone tells
    // it himself, and ends the rest, which may wait for him.
    bool all_here = all_failed;
    MPI_Request meeting;
    if (!all_here && MPI_Ibarrier(of_failures, &meeting) == MPI_SUCCESS)
        for (int tries = 0, here = 0; tries < 200 && !all_here; ++tries) {
            MPI_Test(&meeting, &here, MPI_STATUS_IGNORE);
            all_here = here != 0;
            if (!all_here) usleep(10000);
        }
    if (own_rank == 0 || !all_here) fprintf(stderr, "%s\n", message.c_str());
    fflush(nullptr);
    if (all_here) {
        MPI_Finalize();
        _exit(code);
    }
    MPI_Abort(MPI_COMM_WORLD, code);
    _exit(code);
}
