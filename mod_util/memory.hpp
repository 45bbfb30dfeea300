// Allocation: scratch that is released on every way out, host arrays that are handed over, and working
// arrays that an operation cannot do without.
#pragma once

#include <skoklana/host/tool.h>

#include <cassert>
#include <cstdlib>

// Where an allocation stands, for the host's memory tracking. MODULE is defined by the source file.
#define ALLOC_AT(module) "mod_util/" module, __LINE__

// count host elements of qx_long, to be handed over; null: no memory.
inline qx_long *alloc_numbers(qx_long count, const char *file, int line)
{
    return static_cast<qx_long *>(ARRalloc_f(nullptr, DTYPE_QX_LONG, count, 0, file, line));
}

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
    void *block[8];
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
