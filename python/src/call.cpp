// Operations, arguments, arrays and threads: what stands between Python and the library.
//
// The library looks for a request to stop at its status checks. There, at most every few hundredths of a second, the
// frame takes Python's lock for a moment, runs signal handlers and the caller's own progress function, and keeps what
// either raises until the operation has ended.
#include "core.hpp"

#include <skoklana/host/om.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <new>
#include <string>
#include <system_error>
#include <utility>

namespace {

constexpr double look_every_s = 0.03;
// Working arrays that the library must have, beside its byte a node.
constexpr qx_long spare_bytes = 65536;

std::atomic<long long> nlive;
// The operation that runs on this thread.
thread_local call_frame *running;

double seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

bool has(const std::string &text, const char *word)
{
    return text.find(word) != std::string::npos;
}

// The exception that a text of the library or the host belongs to.
[[noreturn]] void raise(std::string text)
{
    if (text.compare(0, 5, "host_") == 0) text.erase(0, 5);
    if (has(text, "memory") || has(text, "alloc")) {
        PyErr_SetString(PyExc_MemoryError, text.c_str());
        throw py::error_already_set();
    }
    if (has(text, "names node")) throw py::index_error(text);
    if (has(text, "data type")) throw py::type_error(text);
    throw py::value_error(text);
}

} // namespace

// ---- lists and arrays ------------------------------------------------------------------------------------------

void *new_bytes(qx_long count, size_t size)
{
    size_t bytes;
    void *made = nullptr;
    if (count >= 0 && !__builtin_mul_overflow(static_cast<size_t>(count), size, &bytes))
        made = malloc(bytes > 0 ? bytes : 1);
    if (made == nullptr) throw std::bad_alloc();
    return made;
}

py::array adopt_list(void *list, const py::dtype &type, const std::vector<py::ssize_t> &shape)
{
    std::unique_ptr<void, freed_by_host> held(list);
    if (list == nullptr) return py::array(type, shape);
    py::capsule owner(list, [](void *owned) {
        host_free(owned);
        --nlive;
    });
    list = held.release();
    ++nlive;
    return py::array(type, shape, list, owner);
}

long long live_lists()
{
    return nlive;
}

int type_code(const py::dtype &type)
{
    if (!type.attr("isnative").cast<bool>()) return -1;
    const auto size = type.itemsize();
    switch (type.kind()) {
    case 'i':
        return size == 1   ? DTYPE_CHAR
               : size == 2 ? DTYPE_SHORT
               : size == 4 ? DTYPE_INT
               : size == 8 ? DTYPE_QX_LONG
                           : -1;
    case 'u': return size == 1 ? DTYPE_BYTE : -1;
    case 'f': return size == 4 ? DTYPE_FLOAT : size == 8 ? DTYPE_DOUBLE : -1;
    default: return -1;
    }
}

py::dtype type_of_code(int code)
{
    switch (code) {
    case DTYPE_CHAR: return py::dtype::of<signed char>();
    case DTYPE_BYTE: return py::dtype::of<unsigned char>();
    case DTYPE_SHORT: return py::dtype::of<short>();
    case DTYPE_INT: return py::dtype::of<int>();
    case DTYPE_FLOAT: return py::dtype::of<float>();
    case DTYPE_DOUBLE: return py::dtype::of<double>();
    default: return py::dtype::of<qx_long>();
    }
}

rows_arg::rows_arg(const char *name, const py::array &values, qx_long rows, const py::object &null)
    : array{values.data(), type_code(values.dtype()), 1, nullptr}, count(rows), null_value{}, keep(values)
{
    const std::string who = name;
    if (array.type < 0) throw py::type_error(who + ": the library has no such element type");
    if ((values.flags() & py::array::c_style) == 0) throw py::value_error(who + ": is not contiguous");
    if (values.ndim() < 1 || values.ndim() > 2 || values.shape(0) != rows)
        throw py::value_error(who + ": has the wrong shape");
    if (values.ndim() == 2) {
        if (values.shape(1) < 1 || values.shape(1) > 1 << 20)
            throw py::value_error(who + ": rows have at least one element");
        array.veclen = static_cast<int>(values.shape(1));
    }
    if (rows == 0) array.data = null_value; // never read, but a place
    if (null.is_none()) return;
    const py::array one = py::array::ensure(null);
    if (!one || one.size() != 1 || type_code(one.dtype()) != array.type)
        throw py::type_error("null: is no element of the type of " + who);
    memcpy(null_value, one.data(), static_cast<size_t>(one.itemsize()));
    array.null = null_value;
}

// ---- operations ----------------------------------------------------------------------------------------------------

call_frame::call_frame(const char *name_, mesh_object *mesh_, const py::object &progress_)
    : mesh(mesh_), name(name_), progress(progress_), context(nullptr), before(nullptr)
{
    if (mesh != nullptr) take_turn();
    context = host_new_context();
    before = host_use_context(context);
    const qx_long nnodes = mesh != nullptr ? mesh->record()->nnodes : 0;
    if (context == nullptr || host_reserve_memory(static_cast<size_t>(nnodes + spare_bytes)) != 1) {
        leave();
        throw std::bad_alloc();
    }
    host_set_progress_handler(on_progress, this);
    outer = std::exchange(running, this);
    last_look = seconds();
}

call_frame::~call_frame()
{
    running = outer;
    leave();
    for (PyObject *part : error)
        Py_XDECREF(part);
}

// A thread that waits still hears of Ctrl-C.
void call_frame::take_turn()
{
    if (mesh->user.load() == std::this_thread::get_id())
        throw std::runtime_error("the mesh is in use by the operation that tells its progress");
    bool taken = mesh->busy.try_lock();
    while (!taken) {
        {
            const py::gil_scoped_release unlocked;
            taken = mesh->busy.try_lock_for(std::chrono::milliseconds(30));
        }
        if (PyErr_CheckSignals() == 0) continue;
        if (taken) mesh->busy.unlock();
        throw py::error_already_set();
    }
    if (mesh->record() == nullptr) {
        mesh->busy.unlock();
        throw py::value_error("the mesh was closed");
    }
    mesh->user = std::this_thread::get_id();
}

void call_frame::leave()
{
    host_use_context(before);
    host_free_context(context);
    if (mesh == nullptr) return;
    mesh->user = std::thread::id();
    mesh->busy.unlock();
}

int call_frame::on_progress(void *user, int percent, const char *message)
{
    return static_cast<call_frame *>(user)->look(percent, message);
}

int call_frame::look(int percent, const char *message)
{
    if (stop) return 1;
    const double now = seconds();
    const bool tell = !progress.is_none() && percent != last_percent;
    if (!tell && now - last_look < look_every_s) return 0;
    const py::gil_scoped_acquire locked;
    last_look = now;
    stop = PyErr_CheckSignals() != 0;
    if (!stop && tell) {
        last_percent = percent;
        PyObject *given = PyObject_CallFunction(progress.ptr(), "iz", percent, message);
        stop = given == nullptr;
        Py_XDECREF(given);
    }
    if (stop) PyErr_Fetch(&error[0], &error[1], &error[2]);
    return stop ? 1 : 0;
}

void call_frame::finish(int done, const std::string &told)
{
    if (error[0] != nullptr) {
        PyErr_Restore(error[0], error[1], error[2]);
        error[0] = error[1] = error[2] = nullptr;
        throw py::error_already_set();
    }
    if (done == HOST_DONE) return;
    if (done == HOST_STOPPED) throw std::runtime_error(std::string(name) + ": was asked to stop");
    if (done == HOST_FAILED) raise(told.empty() ? host_error() : told);
    const char *message;
    if (host_last_report(0, nullptr, &message) == 1) raise(std::string(name) + ": " + message);
    raise(std::string(name) + ": no memory");
}

progress_part::progress_part(int low, int high)
{
    OMpush_status_range(low, high);
}

progress_part::~progress_part()
{
    OMpop_status_range();
}

void stop_if_asked()
{
    if (running != nullptr && running->look(running->last_percent, nullptr) != 0)
        throw std::runtime_error("was asked to stop");
}

bool asked_to_stop(qx_long done, qx_long total, const char *message)
{
    int stop = 0;
    const double part = static_cast<double>(done) / static_cast<double>(total > 0 ? total : 1);
    OMstatus_check(static_cast<int>(100 * part), message, &stop);
    return stop != 0;
}

// ---- tasks by threads ----------------------------------------------------------------------------------------------

namespace {

struct freed_context {
    void operator()(host_context *context) const { host_free_context(context); }
};
using context_ptr = std::unique_ptr<host_context, freed_context>;

// Threads that take tasks as they come.
class task_team {
  public:
    task_team(qx_long ntasks_, const std::function<int(qx_long)> &body_) : ntasks(ntasks_), body(body_) {}
    ~task_team() { stop_and_join(); }
    task_team(const task_team &) = delete;
    task_team &operator=(const task_team &) = delete;

    // Gives how many there are.
    int start(int threads)
    {
        members.reserve(static_cast<size_t>(threads));
        for (int k = 0; k < threads; ++k) {
            context_ptr context(host_new_context());
            if (context == nullptr) break;
            host_context *const own = context.get();
            contexts.push_back(std::move(context));
            const std::lock_guard<std::mutex> locked(lock);
            try {
                members.emplace_back([this, own] { work(own); });
            } catch (const std::system_error &) {
                break;
            }
            ++working;
        }
        return working;
    }

    // False: the program asks to stop.
    bool wait(const char *message)
    {
        constexpr std::chrono::milliseconds look_every(10);
        std::unique_lock<std::mutex> locked(lock);
        while (working > 0) {
            changed.wait_for(locked, look_every, [this] { return working == 0; });
            locked.unlock();
            if (asked_to_stop(finished, ntasks, message)) {
                stop_and_join();
                return false;
            }
            locked.lock();
        }
        return true;
    }

    // Throws the failure of the first of the tasks that failed.
    void rethrow()
    {
        stop_and_join();
        if (failure) std::rethrow_exception(failure);
    }

  private:
    void work(host_context *context)
    {
        host_context *const before = host_use_context(context);
        while (!stop) {
            const qx_long task = next++;
            if (task >= ntasks) break;
            try {
                do_task(task);
                ++finished;
            } catch (...) {
                const std::lock_guard<std::mutex> locked(lock);
                if (!failure || task < failed_task) {
                    failure = std::current_exception();
                    failed_task = task;
                }
                stop = true;
            }
        }
        host_use_context(before);
        const std::lock_guard<std::mutex> locked(lock);
        --working;
        changed.notify_one();
    }

    void do_task(qx_long task)
    {
        const int done = body(task);
        if (done == HOST_DONE || (done == HOST_STOPPED && stop)) return;
        const char *message = nullptr;
        if (done == HOST_FAILED) throw host_failure(host_error());
        if (host_last_report(0, nullptr, &message) == 1) throw host_failure(message);
        throw std::bad_alloc();
    }

    void stop_and_join()
    {
        stop = true;
        for (std::thread &member : members)
            if (member.joinable()) {
                for (const context_ptr &context : contexts)
                    host_interrupt_context(context.get());
                member.join();
            }
    }

    const qx_long ntasks;
    const std::function<int(qx_long)> &body;
    std::vector<context_ptr> contexts;
    std::vector<std::thread> members;
    std::atomic<qx_long> next{0}, finished{0};
    std::atomic<bool> stop{false};
    std::mutex lock;
    std::condition_variable changed;
    int working = 0;
    std::exception_ptr failure;
    qx_long failed_task = 0;
};

int run_in_order(qx_long ntasks, const std::function<int(qx_long)> &body)
{
    int done = HOST_DONE;
    for (qx_long task = 0; done == HOST_DONE && task < ntasks; ++task) {
        OMpush_status_range(static_cast<int>(100 * task / ntasks),
                            static_cast<int>(100 * (task + 1) / ntasks));
        done = body(task);
        OMpop_status_range();
    }
    return done;
}

} // namespace

int run_tasks(int threads, qx_long ntasks, const char *message, const std::function<int(qx_long task)> &body)
{
    const int wanted = static_cast<int>(std::min<qx_long>(std::max(threads, 1), ntasks));
    if (wanted < 2) return run_in_order(ntasks, body);
    task_team team(ntasks, body);
    if (team.start(wanted) == 0) return run_in_order(ntasks, body);
    if (!team.wait(message)) return HOST_STOPPED;
    team.rethrow();
    return HOST_DONE;
}
