#include "band_edges.hpp"

#include "links.hpp"

#include <cstddef>

// Kernels are handed the record by callers.
static_assert(sizeof(contour_edge_table) == 72 && offsetof(contour_edge_table, level_list) == 40 &&
                  offsetof(contour_edge_table, max_edges) == 56 && offsetof(contour_edge_table, grow) == 64,
              "layout of contour_edge_table");

constexpr int band_table_step = 1000; // edges, at first and with every growth

// The table grows by a constant step; the blocks behind it are larger, by rising steps, or a million edges would
// be copied a thousand times. Their size follows from the capacity alone.
static int block_of_capacity(int capacity)
{
    int entries = band_table_step;
    while (entries < capacity)
        entries = raised_capacity(entries, std::max(band_table_step, entries / 2));
    return entries;
}

static bool resize_band_numbers(qx_long **list, int entries)
{
    void *grown = ARRrealloc_f(*list, DTYPE_QX_LONG, entries, 0, ALLOC_AT("band_edges"));
    if (grown == nullptr) return false;
    *list = static_cast<qx_long *>(grown);
    return true;
}

static bool resize_levels(unsigned char **list, int entries)
{
    void *grown = ARRrealloc_f(*list, DTYPE_BYTE, entries, 0, ALLOC_AT("band_edges"));
    if (grown == nullptr) return false;
    *list = static_cast<unsigned char *>(grown);
    return true;
}

bool grow_band_table(contour_edge_table *table)
{
    const int capacity = raised_capacity(table->max_edges, table->grow);
    if (capacity == table->max_edges) return false;
    const int has = block_of_capacity(table->max_edges), needs = block_of_capacity(capacity);
    if (needs > has &&
        (!resize_zeroed_links(&table->next, has, needs) || !resize_band_numbers(&table->min_list, needs) ||
         !resize_band_numbers(&table->max_list, needs) || !resize_levels(&table->level_list, needs)))
        return false;
    table->max_edges = capacity;
    return true;
}

contour_edge_table *contour_edge_create(qx_long size)
{
    contour_edge_table *table = static_cast<contour_edge_table *>(calloc(1, sizeof(contour_edge_table)));
    if (table == nullptr) return nullptr;
    table->head = new_zeroed<int>(size + 1);
    table->next = new_zeroed<int>(band_table_step);
    table->min_list = alloc_numbers(band_table_step, ALLOC_AT("band_edges"));
    table->max_list = alloc_numbers(band_table_step, ALLOC_AT("band_edges"));
    table->level_list = static_cast<unsigned char *>(
        ARRalloc_f(nullptr, DTYPE_BYTE, band_table_step, 0, ALLOC_AT("band_edges")));
    table->size = size;
    table->max_edges = band_table_step;
    table->grow = band_table_step;
    if (table->head == nullptr || table->next == nullptr || table->min_list == nullptr ||
        table->max_list == nullptr || table->level_list == nullptr) {
        contour_edge_delete(table);
        return nullptr;
    }
    return table;
}

void contour_edge_delete(contour_edge_table *table)
{
    if (table == nullptr) return;
    free(table->head);
    free(table->next);
    free(table->min_list);
    free(table->max_list);
    free(table->level_list);
    free(table);
}
