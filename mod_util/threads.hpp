// Threads of an operation: started for records that are complete, and waited for, by the thread that was called.
#pragma once

#include "memory.hpp"

#include <algorithm>
#include <pthread.h>

// The handles of up to n threads.
class thread_team {
  public:
    thread_team() = default;
    thread_team(const thread_team &) = delete;
    thread_team &operator=(const thread_team &) = delete;
    ~thread_team()
    {
        free(handles);
        free(runs);
    }

    // False: no memory.
    bool open(int n)
    {
        const size_t room = n > 0 ? static_cast<size_t>(n) : 1;
        handles = static_cast<pthread_t *>(calloc(room, sizeof(pthread_t)));
        runs = static_cast<bool *>(calloc(room, sizeof(bool)));
        return handles != nullptr && runs != nullptr;
    }

    // Calls entry(record) for n records, each in a thread of its own, and returns when all have ended. What can't
    // be started is called here, in its turn, and so is a single one.
    template <typename Record> void run(int n, Record *records, void *(*entry)(void *))
    {
        if (n == 1) {
            entry(records);
            return;
        }
        for (int k = 0; k < n; ++k) {
            runs[k] = pthread_create(&handles[k], nullptr, entry, &records[k]) == 0;
            if (!runs[k]) entry(&records[k]);
        }
        for (int k = 0; k < n; ++k)
            if (runs[k]) pthread_join(handles[k], nullptr);
    }

    // The same for work on some values a time, which takes longer than to start a thread if they are many.
    template <typename Record>
    void run_if_worthwhile(qx_long nvalues, int n, Record *records, void *(*entry)(void *))
    {
        constexpr qx_long many = 1 << 17;
        if (nvalues >= many) return run(n, records, entry);
        for (int k = 0; k < n; ++k)
            entry(&records[k]);
    }

  private:
    pthread_t *handles = nullptr;
    bool *runs = nullptr;
};

// Lists that threads have made, to be copied behind each other into arrays that have room for them: a thread's copies
// are a thread's work again, where they are worth one.
struct list_copies {
    static constexpr int most = 16;
    struct copy {
        const qx_long *from;
        qx_long *to, count;
    };
    copy copies[most];
    int ncopies;

    void add(const qx_long *from, qx_long *to, qx_long count)
    {
        assert(ncopies < most);
        if (count > 0) copies[ncopies++] = {from, to, count};
    }

    static void *run(void *arg)
    {
        const list_copies &of_thread = *static_cast<list_copies *>(arg);
        for (int c = 0; c < of_thread.ncopies; ++c)
            std::copy_n(of_thread.copies[c].from, of_thread.copies[c].count, of_thread.copies[c].to);
        return arg;
    }
};

inline void copy_lists(thread_team *threads, int n, list_copies *lists)
{
    qx_long nentries = 0;
    for (int k = 0; k < n; ++k)
        for (int c = 0; c < lists[k].ncopies; ++c)
            nentries += lists[k].copies[c].count;
    threads->run_if_worthwhile(nentries, n, lists, list_copies::run);
}
