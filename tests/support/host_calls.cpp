#include "support/host_calls.hpp"

#include <pthread.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <mutex>
#include <unordered_set>

namespace {

struct allocator_state {
    std::mutex lock;
    bool watching = false;
    int asked = 0;
    size_t largest = 0;
    int refuse_from = INT_MAX, refuse_to = INT_MAX; // of the counter asked
    bool refused = false;
    std::unordered_set<void *> *live = nullptr;
};

thread_local allocator_state own_allocator;
thread_local allocator_state *of_starter = nullptr; // of the thread that started this one, where it watched
thread_local int inside = 0; // in a wrapped host call: what it allocates is the host's own

struct guard {
    guard() { ++inside; }
    ~guard() { --inside; }
};

std::recursive_mutex lock;
host_calls::record seen_calls;
int stop_at = INT_MAX;
int threads_asked = 0;
int refused_thread = INT_MAX; // of the counter threads_asked
const OM_named_func *table = nullptr;
int table_count = 0;

allocator_state &allocator_of_thread()
{
    return of_starter != nullptr ? *of_starter : own_allocator;
}

bool counted()
{
    return inside == 0 && allocator_of_thread().watching;
}

// Counts one request; true: to be refused.
bool refuse(size_t bytes = 0)
{
    allocator_state &allocator = allocator_of_thread();
    const std::lock_guard<std::mutex> hold(allocator.lock);
    if (bytes > allocator.largest) allocator.largest = bytes;
    const int number = allocator.asked++;
    const bool no = number >= allocator.refuse_from && number <= allocator.refuse_to;
    allocator.refused = allocator.refused || no;
    return no;
}

void track(void *block)
{
    guard g;
    allocator_state &allocator = allocator_of_thread();
    const std::lock_guard<std::mutex> hold(allocator.lock);
    if (block != nullptr) allocator.live->insert(block);
}

void untrack(void *block)
{
    guard g;
    allocator_state &allocator = allocator_of_thread();
    const std::lock_guard<std::mutex> hold(allocator.lock);
    if (block != nullptr && allocator.live != nullptr) allocator.live->erase(block);
}

void note_array(int type, qx_long count, bool resized)
{
    const std::lock_guard<std::recursive_mutex> hold(lock);
    seen_calls.arrays.push_back({type, count, resized});
}

} // namespace

namespace host_calls {

record &seen()
{
    return seen_calls;
}

void reset()
{
    const std::lock_guard<std::recursive_mutex> hold(lock);
    seen_calls = record();
    stop_at = INT_MAX;
    refused_thread = INT_MAX;
    own_allocator.refuse_from = own_allocator.refuse_to = INT_MAX;
    own_allocator.refused = false;
}

std::vector<std::string> report_texts()
{
    std::vector<std::string> texts;
    for (const report &r : seen_calls.reports)
        texts.push_back(r.module + ": " + r.message);
    return texts;
}

std::vector<qx_long> resized_counts()
{
    std::vector<qx_long> counts;
    for (const array &a : seen_calls.arrays)
        if (a.resized) counts.push_back(a.count);
    return counts;
}

void interrupt_at(int k)
{
    stop_at = static_cast<int>(seen_calls.statuses.size()) + k;
}

watch::watch()
{
    own_allocator.live = new std::unordered_set<void *>;
    own_allocator.asked = 0;
    own_allocator.largest = 0;
    own_allocator.watching = true;
}

watch::~watch()
{
    own_allocator.watching = false;
    delete own_allocator.live;
    own_allocator.live = nullptr;
    own_allocator.refuse_from = own_allocator.refuse_to = INT_MAX;
}

int watch::allocations() const
{
    return own_allocator.asked;
}
long watch::live_blocks() const
{
    return static_cast<long>(own_allocator.live->size());
}

size_t watch::largest() const
{
    return own_allocator.largest;
}

void fail_allocation(int k)
{
    own_allocator.refuse_from = own_allocator.refuse_to = own_allocator.asked + k;
    own_allocator.refused = false;
}

void fail_allocations_from(int k)
{
    own_allocator.refuse_from = own_allocator.asked + k;
    own_allocator.refuse_to = INT_MAX;
    own_allocator.refused = false;
}

bool allocation_was_refused()
{
    return own_allocator.refused;
}

int threads_started()
{
    const std::lock_guard<std::recursive_mutex> hold(lock);
    return threads_asked;
}

void fail_thread(int k)
{
    const std::lock_guard<std::recursive_mutex> hold(lock);
    refused_thread = threads_asked + k;
}

const OM_named_func *named_funcs()
{
    return table;
}
int named_func_count()
{
    return table_count;
}

} // namespace host_calls

extern "C" {
// Visible, since sanitized libraries name the allocator without a version, and the linker takes that for a
// reference to the wrapped name too.
#pragma GCC visibility push(default)

void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);
void *__real_ARRalloc_f(void *zero, int type, qx_long count, int zero2, const char *file, int line);
void *__real_ARRrealloc_f(void *array, int type, qx_long count, int zero2, const char *file, int line);
void __real_ARRfree_f(void *array, const char *file, int line);
void __real_ERRerror(const char *module, int zero, int severity, const char *message);
void __real_OMpush_status_range(int low, int high);
void __real_OMpop_status_range(void);
int __real_OMstatus_check(int percent, const char *message, int *stop);
int __real_OMadd_named_funcs(const OM_named_func *rows, int count);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *),
                          void *argument);

void *__wrap_malloc(size_t size)
{
    if (!counted()) return __real_malloc(size);
    if (refuse(size)) return nullptr;
    void *block = __real_malloc(size);
    track(block);
    return block;
}

void *__wrap_calloc(size_t count, size_t size)
{
    if (!counted()) return __real_calloc(count, size);
    if (refuse(count * size)) return nullptr;
    void *block = __real_calloc(count, size);
    track(block);
    return block;
}

void *__wrap_realloc(void *old, size_t size)
{
    if (!counted()) return __real_realloc(old, size);
    if (refuse(size)) return nullptr;
    untrack(old);
    void *block = __real_realloc(old, size);
    track(block);
    return block;
}

void __wrap_free(void *block)
{
    if (inside == 0) untrack(block);
    __real_free(block);
}

void *__wrap_ARRalloc_f(void *zero, int type, qx_long count, int zero2, const char *file, int line)
{
    const bool count_it = counted();
    if (count_it && refuse()) return nullptr;
    guard g;
    note_array(type, count, false);
    void *block = __real_ARRalloc_f(zero, type, count, zero2, file, line);
    if (count_it) track(block);
    return block;
}

void *__wrap_ARRrealloc_f(void *array, int type, qx_long count, int zero2, const char *file, int line)
{
    const bool count_it = counted();
    if (count_it && refuse()) return nullptr;
    guard g;
    note_array(type, count, true);
    if (count_it) untrack(array);
    void *block = __real_ARRrealloc_f(array, type, count, zero2, file, line);
    if (count_it) track(block);
    return block;
}

void __wrap_ARRfree_f(void *array, const char *file, int line)
{
    untrack(array);
    guard g;
    __real_ARRfree_f(array, file, line);
}

// Reports are recorded and go no further.
void __wrap_ERRerror(const char *module, int zero, int severity, const char *message)
{
    guard g;
    const std::lock_guard<std::recursive_mutex> hold(lock);
    seen_calls.reports.push_back({module, zero, severity, message});
}

// The operation asks again; what was refused once is there the next time.
void __wrap_ERRout_of_memory(const char *message)
{
    guard g;
    const std::lock_guard<std::recursive_mutex> hold(lock);
    seen_calls.out_of_memory.push_back(message);
}

void __wrap_OMpush_status_range(int low, int high)
{
    guard g;
    const std::lock_guard<std::recursive_mutex> hold(lock);
    seen_calls.pushes.push_back({low, high});
    ++seen_calls.depth;
    __real_OMpush_status_range(low, high);
}

void __wrap_OMpop_status_range(void)
{
    guard g;
    const std::lock_guard<std::recursive_mutex> hold(lock);
    --seen_calls.depth;
    if (seen_calls.depth < seen_calls.lowest_depth) seen_calls.lowest_depth = seen_calls.depth;
    __real_OMpop_status_range();
}

int __wrap_OMstatus_check(int percent, const char *message, int *stop)
{
    guard g;
    const std::lock_guard<std::recursive_mutex> hold(lock);
    const int number = static_cast<int>(seen_calls.statuses.size());
    seen_calls.statuses.push_back({percent, message != nullptr ? message : "", seen_calls.depth});
    const int result = __real_OMstatus_check(percent, message, stop);
    if (stop != nullptr && number >= stop_at) *stop = 1;
    return result;
}

int __wrap_OMadd_named_funcs(const OM_named_func *rows, int count)
{
    guard g;
    table = rows;
    table_count = count;
    return __real_OMadd_named_funcs(rows, count);
}

struct thread_start {
    void *(*entry)(void *);
    void *argument;
    allocator_state *watched; // by the thread that starts; null: it does not watch
};

static void *run_watched(void *argument)
{
    thread_start *const start = static_cast<thread_start *>(argument);
    ++inside;
    const thread_start what = *start;
    delete start;
    --inside;
    of_starter = what.watched;
    return what.entry(what.argument);
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *),
                          void *argument)
{
    guard g;
    {
        const std::lock_guard<std::recursive_mutex> hold(lock);
        if (threads_asked++ == refused_thread) return EAGAIN;
    }
    allocator_state &allocator = allocator_of_thread();
    thread_start *const start = new thread_start{entry, argument, allocator.watching ? &allocator : nullptr};
    const int result = __real_pthread_create(thread, attributes, run_watched, start);
    if (result != 0) delete start;
    return result;
}

#pragma GCC visibility pop
} // extern "C"
