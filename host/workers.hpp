// Work side by side within one operation.
//
// Workers run in contexts of their own: their reports wait and are handed on to the caller's context after the join,
// those of the first worker first, and a request to stop that reaches the caller's chain reaches them at their
// next status check. Their progress is not told: the caller, who is the first worker, tells its own.
#pragma once

#include <skoklana_host.h>

#include <algorithm>
#include <atomic>

#include <pthread.h>

constexpr int most_workers = 64;

// As many workers as a program asks for, by a number that is 0 for one, and no more than there are things to do.
inline int workers_for(int asked, qx_long things)
{
    return static_cast<int>(std::clamp<qx_long>(std::min<qx_long>(asked, things), 1, most_workers));
}

// Where the share of worker k of n begins, of a number of things that are divided in order.
inline qx_long share_begin(qx_long number, int k, int n)
{
    return number / n * k + std::min<qx_long>(number % n, k);
}

// Workers that are started once and work on one thing after another, as steps of an operation. The caller is the first of
// them; what no thread can be had for is done by the caller too, when the others are through.
class worker_team {
  public:
    explicit worker_team(int n); // 1 to most_workers
    ~worker_team();
    worker_team(const worker_team &) = delete;
    worker_team &operator=(const worker_team &) = delete;

    int size() const { return nworkers; }
    // Calls work(data, k) for k from 0 to size() - 1, k of 0 on the calling thread. Comes back when all are done.
    void run(void (*work)(void *data, int k), void *data);
    template <typename Body> void run(Body &body)
    {
        run([](void *given, int k) { (*static_cast<Body *>(given))(k); }, &body);
    }

  private:
    struct member {
        worker_team *team;
        int k;
        host_context *context;
        pthread_t thread;
        bool runs;
    };

    void start();
    void serve(int k);
    static void *serve_as(void *given);

    const int nworkers;
    member members[most_workers] = {};
    bool started = false;
    std::atomic<int> stop{0};
    pthread_mutex_t lock;
    pthread_cond_t begin, end;
    // under the lock
    void (*step)(void *data, int k) = nullptr;
    void *step_data = nullptr;
    unsigned turn = 0;
    int nbusy = 0;
    bool ends = false;
};

// The same for one step alone.
template <typename Body> void run_workers(int n, Body &body)
{
    worker_team team(n);
    team.run(body);
}
