// Allocation: scratch that is released on every way out, host arrays that are handed over, and working
// arrays that an operation cannot do without.
#pragma once

#include <skoklana/host/tool.h>

#include <cassert>
#include <cstdint>
#include <cstdlib>

#if defined(__linux__)
#include <sys/mman.h>
#endif

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

// A hint to the system that a block of this size will be filled from end to end. The first touch of fresh
// memory costs a page fault each 4 KiB, more than most kernels need to fill them; where the system backs
// the block by pages of 2 MiB that goes away. Whoever owns the block, its contents and its release are
// untouched. Pages at the ends are hinted at whole, so that a block mapped on its own stays one mapping and
// can be resized in place.
inline void expect_to_fill(void *block, qx_long bytes)
{
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr qx_long worthwhile = qx_long{4} << 20; // there is a whole page of 2 MiB inside wherever it lies
    constexpr uintptr_t page = 4096;
    if (bytes < worthwhile) return;
    const uintptr_t begin = reinterpret_cast<uintptr_t>(block) / page * page;
    const uintptr_t end =
        (reinterpret_cast<uintptr_t>(block) + static_cast<uintptr_t>(bytes) + page - 1) / page * page;
    (void)madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE);
#else
    (void)block;
    (void)bytes;
#endif
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
