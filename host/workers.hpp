// Work side by side within one operation.
//
// Workers run in contexts of their own: their reports wait and are handed on to the caller's context after the join,
// those of the first worker first, and a request to stop that reaches the caller's chain reaches them at their
// next status check. Their progress is not told: the caller, who is the first worker, tells its own.
#pragma once

#include <skoklana/types.h>

#include <algorithm>

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

// Calls work(data, k) for k from 0 to n - 1, n at most most_workers; k of 0 on the calling thread, and so what no thread
// can be had for. Comes back when all are done.
void run_workers(int n, void (*work)(void *data, int k), void *data);

template <typename Body> void run_workers(int n, Body &body)
{
    run_workers(
        n, [](void *data, int k) { (*static_cast<Body *>(data))(k); }, &body);
}
