// How many threads the operations of a command take.
#pragma once

#include <skoklana/types.h>

#include <functional>

// What --threads says; 0: it is not given.
void ask_for_threads(int count);
// How many processors there are for this process, where it shares them with others.
void have_processors(int count);

// As many as are asked for, by --threads or else by QX_NUM_THREADS; otherwise one a processor, but no more than are worth
// starting for an operation on so many cells or points. A variable that is no number of threads is noted, once, and
// not looked at. Results do not depend on it.
int threads_for(qx_long things);

// Calls work(k) for k from 0 to n - 1, each in a thread of its own with a context of the host, the first one in the
// caller's. The caller does what no thread can be had for as well. Comes back when all are done, and throws what the first
// of them threw.
void run_side_by_side(int n, const std::function<void(int)> &work);
