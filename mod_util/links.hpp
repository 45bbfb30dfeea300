// Arrays of 32-bit links, by which tables chain the entries of a bucket, and how they grow.
#pragma once

#include "grow.hpp"
#include "memory.hpp"

#include <cassert>
#include <climits>
#include <cstring>

template <typename T> T *new_zeroed(qx_long count)
{
    return static_cast<T *>(calloc(count > 0 ? static_cast<size_t>(count) : 1, sizeof(T)));
}

inline void *new_block(qx_long count, size_t width)
{
    return malloc(static_cast<size_t>(count > 0 ? count : 1) * width);
}

// next holds 32-bit links: a table that has INT_MAX entries is full.
inline int raised_capacity(int capacity, int step)
{
    return step > INT_MAX - capacity ? INT_MAX : capacity + step;
}

inline int raised_grow(int grow)
{
    return static_cast<int>(std::min<qx_long>(raised_step(grow), INT_MAX));
}

inline bool resize_links(int **links, int capacity)
{
    void *grown = realloc(*links, static_cast<size_t>(capacity) * sizeof(int));
    if (grown == nullptr) return false;
    *links = static_cast<int *>(grown);
    return true;
}

// The same for links that must be 0 until they are used.
inline bool resize_zeroed_links(int **links, int old_capacity, int capacity)
{
    if (!resize_links(links, capacity)) return false;
    memset(*links + old_capacity, 0, static_cast<size_t>(capacity - old_capacity) * sizeof(int));
    return true;
}

// The bucket of a number by a factor; buckets count from 0 to nbuckets, the last one included. From 2^24 on a
// float rounds numbers, beyond 2^25 by more than one, so that the product may lie behind the last bucket.
inline qx_long scaled_bucket(qx_long number, float scale, qx_long nbuckets)
{
    const qx_long bucket = static_cast<qx_long>(static_cast<float>(number) * scale);
    assert(bucket >= 0);
    return std::min(bucket, nbuckets);
}
