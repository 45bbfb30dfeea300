// Contexts: what belongs to one chain of calls. Its reports, its progress, its requests to stop, its error text.
//
// A thread that uses no context has a chain of its own, and the handlers and the request to stop of the process.
#pragma once

#include <skoklana_host.h>

#include <atomic>

constexpr int kept_reports = 8;

struct kept_report {
    char module[64];
    char message[448];
};

// Ranges nested deeper than this report where the last kept one begins. Operations nest a handful.
constexpr int kept_ranges = 64;

// What one chain of calls leaves behind.
struct call_chain {
    // The last reports, a ring, and how many were made since it was cleared.
    kept_report reports[kept_reports];
    unsigned nreports;
    char error_text[512];
    // Open status ranges, as the overall percentages at which each begins and ends.
    int range_depth;
    struct {
        double low, high;
    } ranges[kept_ranges];
    bool told_to_stop; // by a status check of the operation that is watched
    // The workers that this chain has running, to be stopped with it.
    std::atomic<int> *workers_stop;
    // What is given back when an operation must have memory; null: nothing.
    void *reserve;
};

struct handlers {
    host_error_handler error;
    void *error_user;
    host_progress_handler progress;
    void *progress_user;
};

// A report that waits for its caller.
struct waiting_report {
    waiting_report *next;
    int severity;
    kept_report text;
};

struct host_context {
    call_chain chain;
    handlers to;
    std::atomic<int> stop;
    // Of a worker: reports wait here, oldest first, and stop is that of all its fellows.
    bool is_worker;
    std::atomic<int> *team_stop;
    waiting_report *first, *last;
};

// The context that this thread uses; null: none.
host_context *context_in_use();
// The chain of this thread.
call_chain &this_chain();
// The handlers that this thread's calls go to.
handlers &handlers_in_use();
