// Object manager: named functions, progress, interruption, settings.
//
// Functions stand in a hash table with open addressing whose slots point at the rows that were handed over;
// the rows live for ever, so nothing is copied. Tables are handed over once and looked up some dozens of
// times a mesh.
//
// A status range is kept as the overall percentages at which it begins and ends, so that a check maps its
// own percentage in one step however deep it is nested. Each chain of calls has ranges of its own.
#include "context.hpp"
#include "progress.hpp"
#include "registry.hpp"
#include "report.hpp"

#include <skoklana/host/om.h>
#include <skoklana/host/tool.h>
#include <skoklana_host.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

// ---- named functions -----------------------------------------------------------------------------------------

struct registry {
    std::mutex lock;
    const OM_named_func **slots; // null: free
    size_t size;                 // of slots, a power of two; at most half of them are taken
    size_t used;
    int refused; // tables not taken for lack of memory
};

registry functions;

// FNV-1a.
size_t hash_of(const char *name)
{
    uint64_t hash = 0xcbf29ce484222325u;
    for (; *name != '\0'; ++name)
        hash = (hash ^ static_cast<unsigned char>(*name)) * 0x100000001b3u;
    return hash;
}

// The slot that holds a name, or the free one where it would go.
const OM_named_func **slot_of(const OM_named_func **slots, size_t size, const char *name)
{
    size_t slot = hash_of(name) & (size - 1);
    while (slots[slot] != nullptr && strcmp(slots[slot]->name, name) != 0)
        slot = (slot + 1) & (size - 1);
    return &slots[slot];
}

// Room for added more names.
bool reserve_names(registry *names, size_t added)
{
    size_t size = std::max<size_t>(names->size, 64);
    while (size < 2 * (names->used + added))
        size *= 2;
    if (size == names->size) return true;
    const OM_named_func **slots =
        static_cast<const OM_named_func **>(calloc(size, sizeof(const OM_named_func *)));
    if (slots == nullptr) return false;
    for (size_t s = 0; s < names->size; ++s)
        if (names->slots[s] != nullptr) *slot_of(slots, size, names->slots[s]->name) = names->slots[s];
    free(names->slots);
    names->slots = slots;
    names->size = size;
    return true;
}

// False: the name stands for another function.
bool add_name(registry *names, const OM_named_func *row)
{
    const OM_named_func **slot = slot_of(names->slots, names->size, row->name);
    if (*slot != nullptr) return (*slot)->func == row->func;
    *slot = row;
    ++names->used;
    return true;
}

// ---- progress and interruption -------------------------------------------------------------------------------

std::atomic<int> stop_requested;
static_assert(ATOMIC_INT_LOCK_FREE == 2, "host_interrupt is called from signal handlers");

bool is_asked(const std::atomic<int> &stop)
{
    return stop.load(std::memory_order_relaxed) != 0;
}

// The overall percentage at percent of the innermost range.
double overall(int percent)
{
    const double part = std::clamp(percent, 0, 100);
    const call_chain &chain = this_chain();
    if (chain.range_depth == 0) return part;
    if (chain.range_depth > kept_ranges) return chain.ranges[kept_ranges - 1].low;
    const auto &range = chain.ranges[chain.range_depth - 1];
    return range.low + (range.high - range.low) * part / 100;
}

// ---- settings ------------------------------------------------------------------------------------------------

// Objects by their full path; the root's is empty. An object's id holds its place in this list.
struct setting {
    const char *path;
    bool integer; // others only hold objects
    std::atomic<int64_t> value;
};

constexpr int64_t never_set = INT64_MIN;

setting settings[] = {{"", false, {never_set}},
                      {"Templates", false, {never_set}},
                      {"Templates.CONFIG", false, {never_set}},
                      {"Templates.CONFIG.num_threads", true, {never_set}}};

constexpr uint64_t setting_tag = 0x676e6974746573; // tells these ids from those of fields

setting *setting_of(OMobj_id object)
{
    const uint64_t nsettings = sizeof settings / sizeof *settings;
    return object.word[0] == setting_tag && object.word[1] < nsettings ? &settings[object.word[1]] : nullptr;
}

// Whether whole is the path of something at rest below parent.
bool is_path(const char *whole, const char *parent, const char *rest)
{
    const size_t length = strlen(parent);
    if (strncmp(whole, parent, length) != 0) return false;
    whole += length;
    if (length > 0 && *whole++ != '.') return false;
    return strcmp(whole, rest) == 0;
}

} // namespace

void (*find_named_func(const char *name))(void)
{
    const std::lock_guard<std::mutex> hold(functions.lock);
    if (functions.size == 0) return nullptr;
    const OM_named_func *row = *slot_of(functions.slots, functions.size, name);
    return row != nullptr ? row->func : nullptr;
}

int refused_tables()
{
    const std::lock_guard<std::mutex> hold(functions.lock);
    return functions.refused;
}

bool is_stopped(long long done, long long total, const char *message)
{
    int stop = 0;
    OMstatus_check(static_cast<int>(100.0 * static_cast<double>(done) / static_cast<double>(total)), message,
                   &stop);
    return stop != 0;
}

operation_watch::operation_watch() : reports_before(this_chain().nreports)
{
    this_chain().told_to_stop = false;
}

bool operation_watch::was_stopped() const
{
    return this_chain().told_to_stop;
}

int operation_watch::failed(const char *call) const
{
    const char *module, *message;
    if (was_stopped()) return HOST_STOPPED;
    if (this_chain().nreports != reports_before && host_last_report(0, &module, &message) == 1)
        return host_fail("%s: %s: %s", call, module, message);
    return host_fail("%s: no memory", call);
}

extern "C" {

const OMobj_id OMroot_obj = {{setting_tag, 0}};
const OMobj_id OMnull_obj = {{0, 0}};

int OMadd_named_funcs(const OM_named_func *table, int count)
{
    const std::lock_guard<std::mutex> hold(functions.lock);
    if (count < 1) return 1;
    if (!reserve_names(&functions, static_cast<size_t>(count))) {
        ++functions.refused;
        return 0;
    }
    bool agree = true;
    for (int row = 0; row < count; ++row)
        agree = add_name(&functions, &table[row]) && agree;
    return agree ? 1 : 0;
}

void OMpush_status_range(int low, int high)
{
    const double from = overall(low), to = overall(high);
    call_chain &chain = this_chain();
    if (chain.range_depth < kept_ranges) chain.ranges[chain.range_depth] = {from, std::max(from, to)};
    ++chain.range_depth;
}

void OMpop_status_range(void)
{
    call_chain &chain = this_chain();
    if (chain.range_depth > 0) --chain.range_depth;
}

int OMstatus_check(int percent, const char *message, int *stop)
{
    host_context *context = context_in_use();
    call_chain &chain = this_chain();
    const handlers &to = handlers_in_use();
    int asked = is_asked(stop_requested) ? 1 : 0;
    if (context != nullptr &&
        (is_asked(context->stop) || (context->team_stop != nullptr && is_asked(*context->team_stop))))
        asked = 1;
    if (to.progress != nullptr) {
        // The margin keeps the end of a range from falling a percent short by rounding.
        const int whole = static_cast<int>(overall(percent) + 1e-9);
        if (to.progress(to.progress_user, whole, message) != 0) asked = 1;
    }
    if (asked != 0) {
        chain.told_to_stop = true;
        if (chain.workers_stop != nullptr) chain.workers_stop->store(1, std::memory_order_relaxed);
    }
    if (stop != nullptr) *stop = asked;
    return 1;
}

OMobj_id OMfind_str_subobj(OMobj_id parent, const char *path)
{
    const setting *above = setting_of(parent);
    if (above == nullptr || path == nullptr) return OMnull_obj;
    for (const setting &object : settings)
        if (is_path(object.path, above->path, path))
            return {{setting_tag, static_cast<uint64_t>(&object - settings)}};
    return OMnull_obj;
}

int OMset_int_val(OMobj_id object, int value)
{
    setting *stored = setting_of(object);
    if (stored == nullptr || !stored->integer) return 0;
    stored->value = value;
    return 1;
}

void host_set_progress_handler(host_progress_handler handler, void *user)
{
    handlers_in_use().progress = handler;
    handlers_in_use().progress_user = user;
}

void host_interrupt(void)
{
    stop_requested.store(1, std::memory_order_relaxed);
}

void host_clear_interrupt(void)
{
    host_context *context = context_in_use();
    (context != nullptr ? context->stop : stop_requested).store(0, std::memory_order_relaxed);
}

int host_get_setting(const char *path, int *value)
{
    const setting *stored = setting_of(OMfind_str_subobj(OMroot_obj, path));
    if (stored == nullptr || !stored->integer)
        return host_fail("host_get_setting: there is no setting \"%s\"", path != nullptr ? path : "(NULL)");
    const int64_t kept = stored->value;
    if (kept == never_set) return host_fail("host_get_setting: \"%s\" was never set", path);
    *value = static_cast<int>(kept);
    return 1;
}

} // extern "C"
