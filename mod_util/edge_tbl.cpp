// Edge tables: edges that become new nodes.
//
// An edge is the unordered pair of its nodes. A table numbers edges in order of first sight: it chains the
// edges of a bucket, newest first, through next[], and keeps their nodes in two lists that become the
// result. A bucket is
//     the lower node itself                    plain table: one head a node, short chains, 4 bytes a node
//     the lower node less the band's first     banded table: two planes of heads that move over a lattice
//     the lower node scaled down               hashed use of the plain table: heads far fewer than nodes
// Registering an edge is one chain walk; memory is asked for when a list is full, in rising steps.
#include "edge_tbl.hpp"

#include "links.hpp"

#include <cstddef>

// Callers read the records' fields.
static_assert(sizeof(edge_table) == 56 && offsetof(edge_table, size) == 32 &&
                  offsetof(edge_table, grow) == 48,
              "layout of edge_table");
static_assert(sizeof(edge_table_str) == 72 && offsetof(edge_table_str, max_edges) == 40 &&
                  offsetof(edge_table_str, size) == 48 && offsetof(edge_table_str, grow) == 64,
              "layout of edge_table_str");

constexpr int first_edges = 1024; // entries of a plain table, and their first step

template <class Numbers> static bool resize_numbers(qx_long **list, int capacity)
{
    qx_long *grown = Numbers::resize(*list, capacity, ALLOC_AT("edge_tbl"));
    if (grown == nullptr) return false;
    *list = grown;
    return true;
}

// ---- plain table -----------------------------------------------------------------------------------------

template <class Numbers> static bool grow_lists(edge_table *table)
{
    const int capacity = raised_capacity(table->max_edges, table->grow);
    if (capacity == table->max_edges || !resize_zeroed_links(&table->next, table->max_edges, capacity) ||
        !resize_numbers<Numbers>(&table->min_list, capacity) ||
        !resize_numbers<Numbers>(&table->max_list, capacity))
        return false;
    table->max_edges = capacity;
    table->grow = raised_grow(table->grow);
    return true;
}

bool grow_edge_table(edge_table *table)
{
    return grow_lists<host_numbers>(table);
}

bool grow_edge_table(thread_edge_table *table)
{
    return grow_lists<thread_numbers>(table);
}

// As find_or_add_edge, where a bucket holds edges of many lower nodes.
static int find_or_add_scaled(edge_table *table, float scale, qx_long a, qx_long b)
{
    const qx_long lo = std::min(a, b), hi = std::max(a, b);
    const qx_long bucket = scaled_bucket(lo, scale, table->size);
    for (int link = table->head[bucket]; link != 0; link = table->next[link])
        if (table->max_list[link - 1] == hi && table->min_list[link - 1] == lo) return link - 1;
    return append_edge(table, &table->head[bucket], lo, hi);
}

edge_table *UTILedge_table_create(qx_long size)
{
    edge_table *table = static_cast<edge_table *>(calloc(1, sizeof(edge_table)));
    if (table == nullptr) return nullptr;
    // One head more than buckets: what scaled_bucket leads to.
    table->head = new_zeroed<int>(size + 1);
    table->next = new_zeroed<int>(first_edges);
    table->min_list = alloc_numbers(first_edges, ALLOC_AT("edge_tbl"));
    table->max_list = alloc_numbers(first_edges, ALLOC_AT("edge_tbl"));
    table->size = size;
    table->max_edges = first_edges;
    table->grow = first_edges;
    if (table->head == nullptr || table->next == nullptr || table->min_list == nullptr ||
        table->max_list == nullptr) {
        UTILedge_table_delete(table);
        return nullptr;
    }
    return table;
}

qx_long UTILedge_table_add_points(edge_table *table, const qx_long *first, const qx_long *second, int count,
                                  int *numbers)
{
    if (table == nullptr) return -1;
    for (int i = 0; i < count; ++i) {
        numbers[i] = find_or_add_edge(table, first[i], second[i]);
        if (numbers[i] < 0) return 0;
    }
    return 1;
}

qx_long UTILedge_table_add_hash_points(edge_table *table, const qx_long *first, const qx_long *second,
                                       qx_long max_index, int count, int *numbers)
{
    if (table == nullptr) return -1;
    // An integer quotient: 0, and so a single chain, as soon as there are fewer buckets than nodes. The
    // numbering does not depend on it.
    const qx_long quotient = max_index != 0 ? table->size / max_index : 0;
    const auto scale = static_cast<float>(quotient);
    for (int i = 0; i < count; ++i) {
        numbers[i] = find_or_add_scaled(table, scale, first[i], second[i]);
        if (numbers[i] < 0) return 0;
    }
    return 1;
}

qx_long UTILedge_table_get_free(edge_table *table, qx_long **min_list, qx_long **max_list, qx_long *count)
{
    if (table == nullptr) return 0;
    *min_list = table->min_list;
    *max_list = table->max_list;
    *count = table->nedges;
    free(table->head);
    free(table->next);
    free(table);
    return 1;
}

qx_long UTILedge_table_delete(edge_table *table)
{
    if (table == nullptr) return 1;
    free(table->head);
    free(table->next);
    free(table->min_list);
    free(table->max_list);
    free(table);
    return 1;
}

// ---- banded table ----------------------------------------------------------------------------------------

// Room for one more link and one more edge, nlinks counting the new link already.
template <class Numbers> static bool grow_band(edge_table_str *table)
{
    bool grown = false;
    if (table->max_links <= table->nlinks) {
        const int capacity = raised_capacity(table->max_links, table->grow);
        if (capacity == table->max_links || !resize_zeroed_links(&table->next, table->max_links, capacity) ||
            !resize_links(&table->link_edge, capacity))
            return false;
        table->max_links = capacity;
        grown = true;
    }
    if (table->nedges >= table->max_edges) {
        const int capacity = raised_capacity(table->max_edges, table->grow);
        if (capacity == table->max_edges || !resize_numbers<Numbers>(&table->max_list, capacity) ||
            !resize_numbers<Numbers>(&table->min_list, capacity))
            return false;
        table->max_edges = capacity;
        grown = true;
    }
    if (grown) table->grow = raised_grow(table->grow);
    return true;
}

// As find_or_add_edge, with buckets counted from base.
template <class Numbers>
static int number_banded_edge(edge_table_str *table, qx_long base, qx_long a, qx_long b)
{
    const qx_long lo = std::min(a, b), hi = std::max(a, b);
    assert(lo >= base && lo - base < table->size);
    int *head = &table->head[lo - base];
    for (int link = *head; link != 0; link = table->next[link]) {
        const int edge = table->link_edge[link - 1];
        if (table->max_list[edge] == hi) return edge;
    }
    const int link = table->nlinks;
    if (link == INT_MAX) return -1;
    ++table->nlinks;
    if (!grow_band<Numbers>(table)) return -1;
    const int edge = table->nedges++;
    table->max_list[edge] = hi;
    table->min_list[edge] = lo;
    table->link_edge[link - 1] = edge;
    table->next[link] = *head;
    *head = link;
    return edge;
}

int find_or_add_banded(thread_edge_table_str *table, qx_long base, qx_long a, qx_long b)
{
    return number_banded_edge<thread_numbers>(table, base, a, b);
}

edge_table_str *UTILedge_table_create_str(qx_long size, int initial)
{
    assert(initial > 0);
    edge_table_str *table = static_cast<edge_table_str *>(calloc(1, sizeof(edge_table_str)));
    if (table == nullptr) return nullptr;
    table->head = new_zeroed<int>(size);
    table->next = new_zeroed<int>(initial);
    table->link_edge = static_cast<int *>(new_block(initial, sizeof(int)));
    table->min_list = alloc_numbers(initial, ALLOC_AT("edge_tbl"));
    table->max_list = alloc_numbers(initial, ALLOC_AT("edge_tbl"));
    table->max_edges = initial;
    table->size = size;
    table->max_links = initial;
    table->nlinks = 1; // link 0 ends a chain
    table->grow = initial;
    if (table->head == nullptr || table->next == nullptr || table->link_edge == nullptr ||
        table->min_list == nullptr || table->max_list == nullptr) {
        UTILedge_table_delete_str(table);
        return nullptr;
    }
    return table;
}

qx_long UTILedge_table_add_str(edge_table_str *table, const qx_long *first, const qx_long *second,
                               qx_long base, int count, int *numbers)
{
    if (table == nullptr) return -1;
    for (int i = 0; i < count; ++i) {
        numbers[i] = number_banded_edge<host_numbers>(table, base, first[i], second[i]);
        if (numbers[i] < 0) return 0;
    }
    return 1;
}

// The upper shift heads stay as they are. What they lead to can't be taken for an edge of the band's new
// upper part: the edges there have higher upper nodes than any edge that was reached from these heads.
qx_long UTILedge_table_clean(edge_table_str *table, qx_long shift)
{
    if (table == nullptr) return -1;
    const qx_long left_behind = std::min(shift, table->size);
    for (qx_long bucket = 0; bucket < left_behind; ++bucket) {
        for (int link = table->head[bucket]; link != 0;) {
            const int behind = table->next[link];
            table->next[link] = 0;
            link = behind;
        }
        table->head[bucket] = 0;
    }
    if (left_behind > 0)
        memmove(table->head, table->head + left_behind,
                static_cast<size_t>(table->size - left_behind) * sizeof(int));
    return 1;
}

qx_long UTILedge_table_free_str(edge_table_str *table, qx_long **min_list, qx_long **max_list, qx_long *count)
{
    if (table == nullptr) return 0;
    *min_list = table->min_list;
    *max_list = table->max_list;
    *count = table->nedges;
    free(table->head);
    free(table->next);
    free(table->link_edge);
    free(table);
    return 1;
}

qx_long UTILedge_table_delete_str(edge_table_str *table)
{
    if (table == nullptr) return 1;
    free(table->head);
    free(table->next);
    free(table->link_edge);
    free(table->min_list);
    free(table->max_list);
    free(table);
    return 1;
}
