// Edge tables of threads: the tables of edge_tbl.hpp under the names that callers of threads read them by, with all
// their arrays from the C library, since threads make no calls of the host.
#pragma once

#include "edge_tbl.hpp"
#include "links.hpp"
#include "threads.hpp"

#include <skoklana/thread.h>

inline thread_edge_table as_edge_table(const mt_edge_table &table)
{
    thread_edge_table same;
    same.head = table.heads;
    same.next = table.next;
    same.min_list = table.lo;
    same.max_list = table.hi;
    same.size = table.nbuckets;
    same.max_edges = table.capacity;
    same.nedges = table.count;
    same.grow = table.grow;
    return same;
}

// Puts back what additions change.
inline void store_edges(const thread_edge_table &same, mt_edge_table *table)
{
    table->next = same.next;
    table->lo = same.min_list;
    table->hi = same.max_list;
    table->capacity = same.max_edges;
    table->count = same.nedges;
    table->grow = same.grow;
}

// Room for more edges in a caller's table, behind those it has, where append_edges puts them. Its lists are ones that
// free takes, and the C library's from then on. False: no memory, and no edge less.
inline bool reserve_edges(edge_table *table, qx_long more)
{
    const qx_long needed = table->nedges + more;
    if (needed <= table->max_edges) return true;
    if (needed > INT_MAX) return false;
    const int capacity = static_cast<int>(needed);
    for (qx_long **list : {&table->min_list, &table->max_list}) {
        qx_long *grown = thread_numbers::resize(*list, capacity, ALLOC_AT("thread_edges"));
        if (grown == nullptr) return false;
        *list = grown;
    }
    if (!resize_zeroed_links(&table->next, table->max_edges, capacity)) return false;
    table->max_edges = capacity;
    return true;
}

// Gives a thread's edges the places behind those of the caller's table, whose buckets learn nothing of them; they are
// yet to be copied.
inline void place_edges(edge_table *table, const mt_edge_table *thread, list_copies *copies)
{
    if (thread == nullptr) return;
    copies->add(thread->lo, table->min_list + table->nedges, thread->count);
    copies->add(thread->hi, table->max_list + table->nedges, thread->count);
    table->nedges += thread->count;
}

inline thread_edge_table_str as_edge_table_str(const mt_edge_table_str &table)
{
    thread_edge_table_str same;
    same.head = table.heads;
    same.next = table.next;
    same.link_edge = table.edge_of;
    same.min_list = table.lo;
    same.max_list = table.hi;
    same.max_edges = table.edge_capacity;
    same.nedges = table.count;
    same.size = table.nbuckets;
    same.max_links = table.chain_capacity;
    same.nlinks = table.chain_next;
    same.grow = table.grow;
    return same;
}

inline void store_edges_str(const thread_edge_table_str &same, mt_edge_table_str *table)
{
    table->next = same.next;
    table->edge_of = same.link_edge;
    table->lo = same.min_list;
    table->hi = same.max_list;
    table->edge_capacity = same.max_edges;
    table->count = same.nedges;
    table->chain_capacity = same.max_links;
    table->chain_next = same.nlinks;
    table->grow = same.grow;
}
