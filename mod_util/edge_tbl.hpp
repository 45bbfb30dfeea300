// The plain edge table's inner step, in line for the kernels that register millions of edges.
//
// Tables of the caller's thread have host arrays. Those of threads are the same records, by types of their own, with
// all arrays from the C library.
#pragma once

#include <skoklana/containers.h>

#include <algorithm>
#include <cassert>

struct thread_edge_table : edge_table {};
struct thread_edge_table_str : edge_table_str {};

// Room for one more edge: the next one is number table->nedges. False: the arrays could not grow and the
// table is as it was.
bool grow_edge_table(edge_table *table);
bool grow_edge_table(thread_edge_table *table);

// A bucket's chain holds all edges that the bucket's rule puts there, newest first.
template <typename Table> int append_edge(Table *table, int *head, qx_long lo, qx_long hi)
{
    const int edge = table->nedges;
    if (edge + 1 >= table->max_edges - 1 && !grow_edge_table(table)) return -1;
    table->nedges = edge + 1;
    table->max_list[edge] = hi;
    table->min_list[edge] = lo;
    table->next[edge + 1] = *head;
    *head = edge + 1;
    return edge;
}

// The number of the edge between two nodes, which is made on first sight; -1: the table could not grow.
template <typename Table> int find_or_add_edge(Table *table, qx_long a, qx_long b)
{
    // Sums instead of a choice: where nodes are numbered without regard to place, no predictor knows which of
    // the two is the lower one.
    const qx_long below = std::min<qx_long>(a - b, 0), lo = b + below, hi = a - below;
    assert(lo >= 0 && lo < table->size);
    for (int link = table->head[lo]; link != 0; link = table->next[link])
        if (table->max_list[link - 1] == hi) return link - 1;
    return append_edge(table, &table->head[lo], lo, hi);
}

// The same within a band whose first node is base; not in line.
int find_or_add_banded(thread_edge_table_str *table, qx_long base, qx_long a, qx_long b);
