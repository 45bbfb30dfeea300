// What the code under test asks of its host and of the allocator: recorded, and failed on demand.
//
// The test programs are linked with these calls wrapped, so that everything passes through here before it
// reaches the embedded host or the C library. Allocations are counted and tracked only between watch() and
// the end of the watch object, and only on the thread that watches and on those that are started from it.
#pragma once

#include <skoklana/host/om.h>
#include <skoklana/host/tool.h>

#include <cstddef>
#include <string>
#include <vector>

namespace host_calls {

struct report {
    std::string module;
    int zero, severity;
    std::string message;
};

inline bool operator==(const report &a, const report &b)
{
    return a.module == b.module && a.zero == b.zero && a.severity == b.severity && a.message == b.message;
}

struct status {
    int percent;
    std::string message; // "" for NULL
    int depth;           // ranges open at the call
};

struct range {
    int low, high;
};

// A host array that was made, or brought to another size.
struct array {
    int type;
    qx_long count;
    bool resized;
};

// All that was recorded since the last reset.
struct record {
    std::vector<report> reports;
    std::vector<std::string> out_of_memory; // texts of ERRout_of_memory
    std::vector<status> statuses;
    std::vector<range> pushes;
    std::vector<array> arrays;
    int depth = 0;        // status ranges open now
    int lowest_depth = 0; // below 0: a pop too many
};

record &seen();

// Forgets what was recorded and disarms every fault.
void reset();

// The reports as "module: message", for comparison in one go.
std::vector<std::string> report_texts();

// The sizes to which arrays were brought, in the order of the calls.
std::vector<qx_long> resized_counts();

// The k-th status check from now (0: the next) asks to stop, and so do all after it.
void interrupt_at(int k);

// Watches allocations of this thread and of those it starts: of the library, by malloc, calloc, realloc and the host's arrays.
struct watch {
    watch();
    ~watch();
    watch(const watch &) = delete;
    watch &operator=(const watch &) = delete;

    int allocations() const;  // asked for so far, refused ones included; a resize counts as one
    long live_blocks() const; // blocks handed out since the watch began and not released
    size_t largest() const;   // bytes of the largest block asked for by malloc, calloc and realloc
};

// While watched: the k-th allocation from now (0: the next) is refused, once.
void fail_allocation(int k);
// Refuses all allocations from the k-th on.
void fail_allocations_from(int k);
// Whether a refusal has happened since it was asked for.
bool allocation_was_refused();

// Threads asked for so far, refused ones included.
int threads_started();
// The k-th thread from now (0: the next) can't be started.
void fail_thread(int k);

// The table that the library handed over last.
const OM_named_func *named_funcs();
int named_func_count();

} // namespace host_calls
