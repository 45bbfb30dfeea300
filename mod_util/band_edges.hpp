// The edge table of contour bands: a plain table of edges whose new nodes lie at one of two levels. An edge that
// both levels cross has a new node at each.
#pragma once

#include "edge_tbl.hpp"

#include <skoklana/cut.h>

// An empty table of size buckets, with room for 1000 edges; null: no memory.
contour_edge_table *contour_edge_create(qx_long size);
void contour_edge_delete(contour_edge_table *table);
// Room for 1000 more edges. False: the arrays could not grow and the table is as it was.
bool grow_band_table(contour_edge_table *table);

// As find_or_add_edge, at a level: 0 the lower one, 1 the upper one.
inline int find_or_add_edge_at(contour_edge_table *table, qx_long a, qx_long b, unsigned char level)
{
    const qx_long below = std::min<qx_long>(a - b, 0), lo = b + below, hi = a - below;
    assert(lo >= 0 && lo < table->size);
    int *head = &table->head[lo];
    for (int link = *head; link != 0; link = table->next[link])
        if (table->max_list[link - 1] == hi && table->level_list[link - 1] == level) return link - 1;
    const int edge = table->nedges;
    if (edge + 1 >= table->max_edges - 1 && !grow_band_table(table)) return -1;
    table->nedges = edge + 1;
    ++(level != 0 ? table->nhigh : table->nlow);
    table->max_list[edge] = hi;
    table->min_list[edge] = lo;
    table->level_list[edge] = level;
    table->next[edge + 1] = *head;
    *head = edge + 1;
    return edge;
}
