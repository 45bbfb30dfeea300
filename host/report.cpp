// Reports: to the program's handler, and the last ones kept a chain of calls. No memory is asked for, so that a
// report of failing memory comes through too; long texts are cut.
#include "report.hpp"

#include "context.hpp"

#include <skoklana/host/tool.h>
#include <skoklana_host.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

// How long an operation that must have memory is kept waiting for it, in steps, before the program ends.
constexpr int most_waits = 100;
constexpr long wait_ms = 100;

// The waits of this thread in a row. A call that comes long after the last one begins anew.
struct shortage {
    int waits;
    double last_s;
};

thread_local shortage memory_shortage;

// A worker's report waits for the join. Without memory it is lost; what has failed is told by the operation.
void keep_for_caller(host_context *worker, int severity, const kept_report &text)
{
    waiting_report *report = static_cast<waiting_report *>(malloc(sizeof(waiting_report)));
    if (report == nullptr) return;
    *report = {nullptr, severity, text};
    (worker->last != nullptr ? worker->last->next : worker->first) = report;
    worker->last = report;
}

double seconds_now()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace

int host_fail(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    call_chain &chain = this_chain();
    vsnprintf(chain.error_text, sizeof chain.error_text, format, args);
    va_end(args);
    return 0;
}

void take_report(const char *module, int severity, const char *message)
{
    host_context *context = context_in_use();
    call_chain &chain = this_chain();
    kept_report &kept = chain.reports[chain.nreports++ % kept_reports];
    snprintf(kept.module, sizeof kept.module, "%s", module);
    snprintf(kept.message, sizeof kept.message, "%s", message);
    if (context != nullptr && context->is_worker) return keep_for_caller(context, severity, kept);
    const handlers &to = handlers_in_use();
    if (to.error != nullptr)
        to.error(to.error_user, module, severity, message);
    else if (context == nullptr)
        fprintf(stderr, "%s: %s\n", module, message);
}

extern "C" {

const char *host_error(void)
{
    return this_chain().error_text;
}

void host_set_error_handler(host_error_handler handler, void *user)
{
    handlers_in_use().error = handler;
    handlers_in_use().error_user = user;
}

int host_last_report(int age, const char **module, const char **message)
{
    const call_chain &chain = this_chain();
    if (age < 0 || age >= kept_reports || static_cast<unsigned>(age) >= chain.nreports) return 0;
    const kept_report &report =
        chain.reports[(chain.nreports - 1 - static_cast<unsigned>(age)) % kept_reports];
    if (module != nullptr) *module = report.module;
    if (message != nullptr) *message = report.message;
    return 1;
}

void host_clear_reports(void)
{
    this_chain().nreports = 0;
}

void ERRerror(const char *module, int, int severity, const char *message)
{
    take_report(module, severity, message);
}

int host_reserve_memory(size_t bytes)
{
    call_chain &chain = this_chain();
    free(chain.reserve);
    chain.reserve = bytes > 0 ? malloc(bytes) : nullptr;
    return bytes == 0 || chain.reserve != nullptr ||
           host_fail("host_reserve_memory: no memory for %zu bytes", bytes) != 0;
}

void ERRout_of_memory(const char *message)
{
    call_chain &chain = this_chain();
    if (chain.reserve != nullptr) {
        free(chain.reserve);
        chain.reserve = nullptr;
        return;
    }
    shortage &now = memory_shortage;
    if (seconds_now() - now.last_s > 1) now.waits = 0;
    if (now.waits == 0) take_report("out of memory", 2, message);
    if (++now.waits > most_waits) {
        fprintf(stderr, "out of memory: %s; giving up\n", message);
        abort();
    }
    const timespec wait = {0, wait_ms * 1000000};
    nanosleep(&wait, nullptr);
    now.last_s = seconds_now();
}

} // extern "C"
