// Rows of nodes, read in the order of a list: copies of rows as they stand, and asking ahead for rows that
// a list comes to soon.
//
// An extraction's lists jump about in arrays that are much larger than the caches. What a loop would wait
// for is the memory of the rows, not its own work, so each pass asks for the rows of a later one.
#pragma once

#include <skoklana/types.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

// How far ahead of its use a row is asked for, in list entries.
constexpr qx_long rows_ahead = 48;

// Asks for a row. Any number will do, also one that is no row: nothing is read.
inline void ask_for_row(const void *rows, size_t row_bytes, qx_long row)
{
    __builtin_prefetch(reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(rows) +
                                                      static_cast<uintptr_t>(row) * row_bytes));
}

// Calls body with a constant for a usual number, so that loops over it unroll, or with 0 for another.
template <typename Number, Number... usual, typename Body> void with_constant(Number number, Body body)
{
    const bool found =
        ((number == usual ? (body(std::integral_constant<Number, usual>{}), true) : false) || ...);
    if (!found) body(std::integral_constant<Number, 0>{});
}
