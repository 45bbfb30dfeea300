// The embedded host includes this header too.
//
// What the first touch of memory costs.
#pragma once

#include <skoklana/types.h>

#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

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
