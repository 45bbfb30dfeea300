// An end in words before memory runs out.
#pragma once

#include <cstddef>

// Memory that is free now, or 0 where the system does not tell.
size_t free_memory();
// Allows the program no more than that beyond what it has: later allocations fail instead of driving the
// machine, or the system's killer of programs, to the edge.
void limit_memory();
