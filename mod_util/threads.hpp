// Threads of an operation: started for records that are complete, and waited for, by the thread that was called.
#pragma once

#include "memory.hpp"

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

  private:
    pthread_t *handles = nullptr;
    bool *runs = nullptr;
};
