// Reports: to the program's handler, and the last ones kept a thread. No memory is asked for, so that a
// report of failing memory comes through too; long texts are cut.
#include "report.hpp"

#include <skoklana/host/tool.h>
#include <skoklana_host.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

constexpr int kept_reports = 8;

struct kept_report {
    char module[64];
    char message[448];
};

struct report_log {
    kept_report kept[kept_reports]; // a ring
    unsigned made;                  // reports since the log was cleared
};

thread_local report_log reports;
thread_local char error_text[512];

host_error_handler error_handler = nullptr;
void *error_user = nullptr;

// How long an operation that must have memory is kept waiting for it, in steps, before the program ends.
constexpr int most_waits = 100;
constexpr long wait_ms = 100;

// The waits of this thread in a row. A call that comes long after the last one begins anew.
struct shortage {
    int waits;
    double last_s;
};

thread_local shortage memory_shortage;

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
    vsnprintf(error_text, sizeof error_text, format, args);
    va_end(args);
    return 0;
}

extern "C" {

const char *host_error(void)
{
    return error_text;
}

void host_set_error_handler(host_error_handler handler, void *user)
{
    error_handler = handler;
    error_user = user;
}

int host_last_report(int age, const char **module, const char **message)
{
    if (age < 0 || age >= kept_reports || static_cast<unsigned>(age) >= reports.made) return 0;
    const kept_report &report = reports.kept[(reports.made - 1 - static_cast<unsigned>(age)) % kept_reports];
    if (module != nullptr) *module = report.module;
    if (message != nullptr) *message = report.message;
    return 1;
}

void host_clear_reports(void)
{
    reports.made = 0;
}

void ERRerror(const char *module, int, int severity, const char *message)
{
    kept_report &kept = reports.kept[reports.made++ % kept_reports];
    snprintf(kept.module, sizeof kept.module, "%s", module);
    snprintf(kept.message, sizeof kept.message, "%s", message);
    if (error_handler != nullptr)
        error_handler(error_user, module, severity, message);
    else
        fprintf(stderr, "%s: %s\n", module, message);
}

void ERRout_of_memory(const char *message)
{
    shortage &now = memory_shortage;
    if (seconds_now() - now.last_s > 1) now.waits = 0;
    if (now.waits == 0) ERRerror("out of memory", 0, 2, message);
    if (++now.waits > most_waits) {
        fprintf(stderr, "out of memory: %s; giving up\n", message);
        abort();
    }
    const timespec wait = {0, wait_ms * 1000000};
    nanosleep(&wait, nullptr);
    now.last_s = seconds_now();
}

} // extern "C"
