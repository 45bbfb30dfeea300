// Allocation: scratch that is released on every way out, host arrays that are handed over, and working
// arrays that an operation cannot do without.
#pragma once

#include "fresh_pages.hpp"

#include <skoklana/host/tool.h>

#include <cassert>
#include <cstdlib>

// Where an allocation stands, for the host's memory tracking: the name of the source file without its ending.
#define ALLOC_AT(module) "mod_util/" module, __LINE__

// count host elements of qx_long, to be handed over; null: no memory.
inline qx_long *alloc_numbers(qx_long count, const char *file, int line)
{
    return static_cast<qx_long *>(ARRalloc_f(nullptr, DTYPE_QX_LONG, count, 0, file, line));
}

inline void release_numbers(qx_long **list, const char *file, int line)
{
    if (*list != nullptr) ARRfree_f(*list, file, line);
    *list = nullptr;
}

// Who has a list that a kernel grows: the host; or the C library, in threads, who make no calls of the host. A list
// is an array of qx_long; NULL: no memory, and a list to be resized is as it was.
struct host_numbers {
    static qx_long *alloc(qx_long count, const char *file, int line)
    {
        return alloc_numbers(count, file, line);
    }
    static qx_long *resize(qx_long *list, qx_long count, const char *file, int line)
    {
        return static_cast<qx_long *>(ARRrealloc_f(list, DTYPE_QX_LONG, count, 0, file, line));
    }
    static void release(qx_long *list, const char *file, int line) { ARRfree_f(list, file, line); }
};

struct thread_numbers {
    static qx_long *alloc(qx_long count, const char *, int)
    {
        return static_cast<qx_long *>(malloc(bytes(count)));
    }
    static qx_long *resize(qx_long *list, qx_long count, const char *, int)
    {
        return static_cast<qx_long *>(realloc(list, bytes(count)));
    }
    static void release(qx_long *list, const char *, int) { free(list); }

  private:
    static size_t bytes(qx_long count)
    {
        return static_cast<size_t>(count > 0 ? count : 1) * sizeof(qx_long);
    }
};

// Zeroed memory that must be had: asks the host to make room and tries again, without limit.
template <typename T> T *insist_zeroed(qx_long count, const char *message)
{
    for (;;) {
        void *block = calloc(count > 0 ? static_cast<size_t>(count) : 1, sizeof(T));
        if (block != nullptr) return static_cast<T *>(block);
        ERRout_of_memory(message);
    }
}

// Working memory of one call, released last first when the record goes out of scope.
struct scratch {
    void *block[8] = {};
    int used = 0;

    scratch() = default;
    scratch(const scratch &) = delete;
    scratch &operator=(const scratch &) = delete;
    ~scratch()
    {
        while (used > 0)
            free(block[--used]);
    }

    // Takes over a block from malloc; null is taken too.
    template <typename T> T *keep(T *taken)
    {
        assert(used < 8);
        if (taken != nullptr) block[used++] = taken;
        return taken;
    }

    // count zeroed elements; null: no memory.
    template <typename T> T *borrow(qx_long count)
    {
        assert(count >= 0);
        return keep(static_cast<T *>(calloc(count > 0 ? static_cast<size_t>(count) : 1, sizeof(T))));
    }
};
