#include "workers.hpp"

#include "context.hpp"
#include "report.hpp"

#include <cassert>
#include <cstdlib>

#include <pthread.h>

namespace {

struct worker {
    void (*work)(void *data, int k);
    void *data;
    int k;
    host_context *context;
    pthread_t thread;
    bool runs;
};

void *run_worker(void *given)
{
    const worker *w = static_cast<const worker *>(given);
    host_use_context(w->context);
    w->work(w->data, w->k);
    host_use_context(nullptr);
    return nullptr;
}

void hand_reports_on(host_context *context)
{
    while (waiting_report *report = context->first) {
        take_report(report->text.module, report->severity, report->text.message);
        context->first = report->next;
        free(report);
    }
}

} // namespace

void run_workers(int n, void (*work)(void *data, int k), void *data)
{
    assert(n >= 1 && n <= most_workers);
    worker workers[most_workers];
    std::atomic<int> stop{0};
    call_chain &chain = this_chain();
    std::atomic<int> *const above = chain.workers_stop; // of a worker with workers of its own there is none
    chain.workers_stop = &stop;
    for (int k = 1; k < n; ++k) {
        workers[k] = {work, data, k, host_new_context(), {}, false};
        if (workers[k].context == nullptr) continue;
        workers[k].context->is_worker = true;
        workers[k].context->team_stop = &stop;
        workers[k].runs = pthread_create(&workers[k].thread, nullptr, run_worker, &workers[k]) == 0;
    }
    work(data, 0);
    for (int k = 1; k < n; ++k) {
        if (workers[k].runs)
            pthread_join(workers[k].thread, nullptr);
        else
            work(data, k);
        if (workers[k].context == nullptr) continue;
        hand_reports_on(workers[k].context);
        host_free_context(workers[k].context);
    }
    chain.workers_stop = above;
}
