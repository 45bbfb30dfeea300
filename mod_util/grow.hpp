// Growing lists. A list is tested once a cell, with a margin that holds whatever a single cell can add, so
// that appends inside the cell need no test. It grows by a step; most steps then rise by half, truncated,
// others stay.
//
// Capacities are visible to callers where a record or an argument exposes them: the growth points here are
// part of those contracts.
#pragma once

#include "memory.hpp"

#include <algorithm>

// A batch_list of fewer entries grows only as far as it must.
constexpr qx_long large_list = 65536;

inline qx_long raised_step(qx_long step)
{
    return step + step / 2;
}

struct list_growth {
    qx_long *capacity; // entries
    qx_long *step;     // entries that the next growth adds
    bool raise;        // whether a growth raises the step by half
};

// One growth of a host array of qx_long, whatever room is left in it. Kept out of the walks, which test for room
// once a cell and grow a few times in all.
template <class Numbers>
__attribute__((noinline)) bool grow_list(qx_long **list, const list_growth &growth, const char *file,
                                         int line)
{
    *growth.capacity += *growth.step;
    if (growth.raise) *growth.step = raised_step(*growth.step);
    qx_long *grown = Numbers::resize(*list, *growth.capacity, file, line);
    if (grown == nullptr) return false;
    expect_to_fill(grown, *growth.capacity * static_cast<qx_long>(sizeof(qx_long)));
    *list = grown;
    return true;
}

// Room in a host array of qx_long for margin entries behind the used ones, by at most one growth. On
// failure the list is as it was, still the caller's to release, though capacity and step have moved on.
template <class Numbers = host_numbers>
bool make_room(qx_long **list, qx_long used, qx_long margin, const list_growth &growth, const char *file,
               int line)
{
    return used <= *growth.capacity - margin || grow_list<Numbers>(list, growth, file, line);
}

// A host array of numbers with its bookkeeping, for kernels that fill it a batch of cells at a time.
struct batch_list {
    qx_long *data = nullptr;
    qx_long used = 0, capacity = 0, step = 0;
};

inline bool open_list(batch_list *list, qx_long capacity, const char *file, int line)
{
    list->data = static_cast<qx_long *>(ARRalloc_f(nullptr, DTYPE_QX_LONG, capacity, 0, file, line));
    list->capacity = list->step = capacity;
    return list->data != nullptr;
}

inline void release_list(batch_list *list, const char *file, int line)
{
    if (list->data != nullptr) ARRfree_f(list->data, file, line);
    *list = batch_list();
}

inline bool resize_list(batch_list *list, qx_long needed, const char *file, int line)
{
    qx_long capacity = list->capacity, step = list->step;
    while (capacity < needed) {
        capacity += step;
        step = raised_step(step);
    }
    void *grown = ARRrealloc_f(list->data, DTYPE_QX_LONG, capacity, 0, file, line);
    if (grown == nullptr) return false;
    expect_to_fill(grown, capacity * static_cast<qx_long>(sizeof(qx_long)));
    list->data = static_cast<qx_long *>(grown);
    list->capacity = capacity;
    list->step = step;
    return true;
}

// Room for more entries and a margin behind them. The steps rise by half, and as many are taken at once as
// single cells would have taken one after the other.
//
// done is the share of the walk, up to 1, that will be behind it when these entries are in. Growth may copy a
// list, and the copy touches fresh memory, so a large list takes the steps at once that the rest of the walk
// will ask for if it goes on as before, up to four times what is needed now. What stays unused of that is
// never touched. If there is no memory for it, what is needed now will do.
inline bool make_room_for(batch_list *list, qx_long more, qx_long margin, double done, const char *file,
                          int line)
{
    const qx_long needed = list->used + more + margin;
    if (needed <= list->capacity) return true;
    if (needed >= large_list && done < 1) {
        const qx_long expected =
            static_cast<qx_long>(static_cast<double>(needed) * std::min(1.125 / done, 4.0));
        if (expected > needed && resize_list(list, expected, file, line)) return true;
    }
    return resize_list(list, needed, file, line);
}
