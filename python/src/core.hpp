// What all parts of the bindings share: lists of the library that become numpy arrays, numpy arrays that become
// arguments, meshes, and the frame in which every operation runs.
//
// Arguments are brought into shape by the Python layer: the checks here keep memory safe, and their texts are for
// whoever calls the compiled part directly.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <skoklana_host.h>

#include <atomic>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace py = pybind11;

// ---- lists of the library ------------------------------------------------------------------------------------

struct freed_by_host {
    void operator()(void *list) const { host_free(list); }
};
template <typename T> using list_of = std::unique_ptr<T[], freed_by_host>;

// count elements, at least one byte. Throws bad_alloc.
void *new_bytes(qx_long count, size_t size);
template <typename T> list_of<T> new_list(qx_long count)
{
    return list_of<T>(static_cast<T *>(new_bytes(count, sizeof(T))));
}

// An array that owns the list and releases it with its last view. A list that is not there has no elements.
py::array adopt_list(void *list, const py::dtype &type, const std::vector<py::ssize_t> &shape);
template <typename T> py::array adopt(list_of<T> list, std::initializer_list<qx_long> shape)
{
    return adopt_list(list.release(), py::dtype::of<T>(), std::vector<py::ssize_t>(shape));
}
// Lists that arrays own now.
long long live_lists();

// ---- numpy arrays as arguments ---------------------------------------------------------------------------------

// DTYPE_CHAR to DTYPE_QX_LONG; -1: the library has no such type, or not in this byte order.
int type_code(const py::dtype &type);
py::dtype type_of_code(int code);

// Rows of elements. Stays where it is made: the null value is inside.
class rows_arg {
  public:
    // values: contiguous, (rows,) or (rows, veclen). null: None, or an array of one element of the same type.
    rows_arg(const char *name, const py::array &values, qx_long rows, const py::object &null = py::none());
    rows_arg(const rows_arg &) = delete;
    rows_arg &operator=(const rows_arg &) = delete;

    int null_flag() const { return array.null != nullptr ? 1 : 0; }

    host_array array;
    qx_long count;

  private:
    alignas(8) unsigned char null_value[8];
    py::array keep;
};

// The elements of a contiguous array of this type and length.
template <typename T> const T *elements(const char *name, const py::array &values, qx_long count)
{
    if (!py::isinstance<py::array_t<T>>(values) || (values.flags() & py::array::c_style) == 0 ||
        values.size() != count)
        throw py::value_error(std::string(name) + ": has the wrong type, layout or length");
    return static_cast<const T *>(values.data());
}

// ---- meshes ----------------------------------------------------------------------------------------------------

struct freed_field {
    void operator()(host_field *field) const { host_free_field(field); }
};
using field_ptr = std::unique_ptr<host_field, freed_field>;
struct freed_table {
    void operator()(blk_tbl *table) const { host_free_table(table); }
};

// Cells as they were given.
struct given_cells {
    int kind, order;
    qx_long count;
    const qx_long *connect;
};

class mesh_object {
  public:
    // Null once the mesh was closed.
    mesh_info *record() const { return mesh; }
    // The field, for operations that look at cells as a whole.
    host_field *field() const { return whole.get(); }
    // The field for extractions, which see no cells of lattices across axes of one node and take nodes 12 and 13 of
    // second-order prisms the other way round: another one over the same nodes and cells where that matters. Made when
    // first asked for; throws.
    host_field *field_of_extractions();
    // The library's own block table; null for meshes that need none. Made when first asked for; throws.
    const blk_tbl *table();
    // Makes the table and fetches what operations fetch on demand, after which threads may share the mesh. Throws. Gives
    // the percentage of progress that this took.
    int make_ready();
    // No operation takes the mesh any more. Its memory goes now, or with the last array or locator that leans on it.
    void close();

    bool is_leant_on = false;
    field_ptr whole;
    mesh_info *mesh = nullptr;
    // As of the record, also when that is gone.
    qx_long nnodes = 0, ncells = 0;
    int nspace = 0;
    bool lattice = false, compact = false; // compact: places are told by axes
    std::vector<given_cells> sets;
    py::list keep; // the arrays that the field leans on

    // Operations on one mesh take turns.
    std::timed_mutex busy;
    std::atomic<std::thread::id> user{};

  private:
    field_ptr for_extractions;
    std::vector<list_of<qx_long>> swapped;
    std::unique_ptr<blk_tbl, freed_table> own_table;
    bool table_made = false;
};

// ---- operations --------------------------------------------------------------------------------------------------

// What a body gives for a function of the library itself: whether it gave 1. Its reports tell what failed; where there
// are none it was memory.
constexpr int library_failed = -7;
inline int of_library(bool done)
{
    return done ? static_cast<int>(HOST_DONE) : library_failed;
}

// The frame of one operation: a context of its own, progress, signals, and what becomes of a failure.
class call_frame {
  public:
    call_frame(const char *name, mesh_object *mesh, const py::object &progress);
    ~call_frame();
    call_frame(const call_frame &) = delete;
    call_frame &operator=(const call_frame &) = delete;

    // Whether the program has asked to stop.
    bool is_stopped() const { return stop; }
    // Throws what the operation has come to. told: what failed; "" is for the host to tell.
    void finish(int done, const std::string &told);

    mesh_object *const mesh;

  private:
    void take_turn();
    void leave();
    friend void stop_if_asked();
    static int on_progress(void *user, int percent, const char *message);
    int look(int percent, const char *message);

    const char *name;
    py::object progress;
    host_context *context, *before;
    double last_look = 0;
    int last_percent = -1;
    bool stop = false;
    call_frame *outer = nullptr; // that of an operation which calls back
    PyObject *error[3] = {};
};

// A part of the progress of an operation, while it stands.
class progress_part {
  public:
    progress_part(int low, int high);
    ~progress_part();
    progress_part(const progress_part &) = delete;
    progress_part &operator=(const progress_part &) = delete;
};

// Whether the program asks to stop; for loops of the bindings' own.
bool asked_to_stop(qx_long done, qx_long total, const char *message);

// For loops of the bindings' own, every so many turns: leaves the operation where the program asks to stop.
void stop_if_asked();
inline void stop_if_asked_at(qx_long turn)
{
    if (turn % 65536 == 0) stop_if_asked();
}

// A failure of the host on another thread, in its words.
struct host_failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Runs tasks 0 to ntasks - 1, each once, by so many threads; they have host contexts of their own, and meanwhile the
// calling thread looks for signals. By one thread it is the calling one, and tasks come in order. body is as of run_call.
int run_tasks(int threads, qx_long ntasks, const char *message, const std::function<int(qx_long task)> &body);

// Runs body without Python's lock: it gives one of HOST_DONE, HOST_FAILED, HOST_STOPPED and library_failed, touches
// no Python object, and what it throws is passed on. With a mesh, no other operation on it runs meanwhile.
template <typename Body>
void run_call(const char *name, mesh_object *mesh, const py::object &progress, const Body &body)
{
    call_frame frame(name, mesh, progress);
    int done;
    std::string told;
    {
        const py::gil_scoped_release unlocked;
        try {
            done = body();
        } catch (const host_failure &failure) {
            done = HOST_FAILED;
            told = failure.what();
        } catch (...) { // what failed for being stopped
            if (!frame.is_stopped()) throw;
            done = HOST_STOPPED;
        }
    }
    frame.finish(done, told);
}

// ---- the parts of the module ---------------------------------------------------------------------------------------

void bind_meshes(py::module_ &m);
void bind_parts(py::module_ &m);
void bind_levels(py::module_ &m);
void bind_chains(py::module_ &m);
void bind_cuts(py::module_ &m);
void bind_pieces(py::module_ &m);
void bind_carrying(py::module_ &m);
void bind_sampling(py::module_ &m);
void bind_tracing(py::module_ &m);
void bind_scatter(py::module_ &m);
void bind_arrays(py::module_ &m);
void bind_charts(py::module_ &m);
