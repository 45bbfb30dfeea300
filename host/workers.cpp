#include "workers.hpp"

#include "context.hpp"
#include "report.hpp"

#include <cassert>
#include <cstdlib>

static void hand_reports_on(host_context *context)
{
    while (waiting_report *report = context->first) {
        take_report(report->text.module, report->severity, report->text.message);
        context->first = report->next;
        free(report);
    }
    context->last = nullptr;
}

worker_team::worker_team(int n) : nworkers(n)
{
    assert(n >= 1 && n <= most_workers);
    pthread_mutex_init(&lock, nullptr);
    pthread_cond_init(&begin, nullptr);
    pthread_cond_init(&end, nullptr);
}

worker_team::~worker_team()
{
    pthread_mutex_lock(&lock);
    ends = true;
    pthread_cond_broadcast(&begin);
    pthread_mutex_unlock(&lock);
    for (int k = 1; started && k < nworkers; ++k) {
        if (members[k].runs) pthread_join(members[k].thread, nullptr);
        host_free_context(members[k].context);
    }
    pthread_cond_destroy(&end);
    pthread_cond_destroy(&begin);
    pthread_mutex_destroy(&lock);
}

void *worker_team::serve_as(void *given)
{
    const member *of = static_cast<const member *>(given);
    host_use_context(of->context);
    of->team->serve(of->k);
    host_use_context(nullptr);
    return nullptr;
}

void worker_team::serve(int k)
{
    unsigned seen = 0;
    pthread_mutex_lock(&lock);
    for (;;) {
        while (turn == seen && !ends)
            pthread_cond_wait(&begin, &lock);
        if (turn == seen) break;
        seen = turn;
        pthread_mutex_unlock(&lock);
        step(step_data, k);
        pthread_mutex_lock(&lock);
        if (--nbusy == 0) pthread_cond_signal(&end);
    }
    pthread_mutex_unlock(&lock);
}

void worker_team::start()
{
    started = true;
    for (int k = 1; k < nworkers; ++k) {
        members[k] = {this, k, host_new_context(), {}, false};
        if (members[k].context == nullptr) continue;
        members[k].context->is_worker = true;
        members[k].context->team_stop = &stop;
        members[k].runs = pthread_create(&members[k].thread, nullptr, serve_as, &members[k]) == 0;
    }
}

void worker_team::run(void (*work)(void *data, int k), void *data)
{
    if (!started) start();
    call_chain &chain = this_chain();
    std::atomic<int> *const above = chain.workers_stop; // of a worker with workers of its own there is none
    stop = 0;
    chain.workers_stop = &stop;
    pthread_mutex_lock(&lock);
    step = work;
    step_data = data;
    for (int k = 1; k < nworkers; ++k)
        nbusy += members[k].runs ? 1 : 0;
    ++turn;
    pthread_cond_broadcast(&begin);
    pthread_mutex_unlock(&lock);
    work(data, 0);
    pthread_mutex_lock(&lock);
    while (nbusy > 0)
        pthread_cond_wait(&end, &lock);
    pthread_mutex_unlock(&lock);
    for (int k = 1; k < nworkers; ++k)
        if (members[k].runs)
            hand_reports_on(members[k].context);
        else
            work(data, k);
    chain.workers_stop = above;
}
