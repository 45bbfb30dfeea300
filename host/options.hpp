// Option records of the interface: a program may have been built with a shorter one than ours, or a longer one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

// The options as given, as far as they were; the rest is 0.
template <typename Options> Options settled_options(const Options *given)
{
    Options all = {};
    if (given != nullptr) memcpy(&all, given, std::min(given->size, sizeof all));
    all.size = sizeof all;
    return all;
}
