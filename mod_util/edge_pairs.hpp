// Edges as pairs of nodes in buckets by the lower one.
#pragma once

#include "memory.hpp"
#include "node_buckets.hpp"

struct edge_pair {
    qx_long low, high;
};

inline edge_pair edge_between(qx_long a, qx_long b)
{
    return a < b ? edge_pair{a, b} : edge_pair{b, a};
}

// Hands all pairs over, an array that is not made where there are none. Returns the operation's result; outputs
// of a failure are as they were.
template <typename Entry>
int hand_over_edges(const node_buckets<Entry> &edges, qx_long *nedges, qx_long **list, const char *file,
                    int line)
{
    if (edges.count > 0) {
        qx_long *pairs = alloc_numbers(2 * edges.count, file, line);
        if (pairs == nullptr) return 0;
        *list = pairs;
        edges.for_each([&pairs](qx_long node, const Entry &entry) {
            *pairs++ = node;
            *pairs++ = entry.high;
        });
    }
    *nedges = edges.count;
    return 1;
}
