// Located points, as the host's own operations see them.
#pragma once

#include "cells.hpp"

#include <skoklana_host.h>

#include <cstdint>

// What host_places stands at the beginning of.
struct located_points : host_places {
    const host_field *field;
    int threads; // that may sample at the points
    // An order of the points in which neighbours lie near each other, a batch at a time: point order[i] of the batch
    // of i. Null: their own.
    static constexpr qx_long batch = qx_long{1} << 20;
    uint32_t *order;

    qx_long in_order(qx_long i) const { return order != nullptr ? i / batch * batch + order[i] : i; }
};

inline const host_field *field_of(const host_places *places)
{
    return static_cast<const located_points *>(places)->field;
}

// ---- one point after another ---------------------------------------------------------------------------------------

// A search for points one by one, each near the last; for one thread at a time.
struct host_point_search;
host_point_search *start_search(const host_locator *locator); // null: no memory
void end_search(host_point_search *search);                   // null is taken

// Where a point of three coordinates belongs, as host_locate has it: 1; 0: outside; -1: no memory.
int find_point(host_point_search *search, const double *point, qx_long *cell, double *uvw);

const host_field *field_of(const host_locator *locator);
