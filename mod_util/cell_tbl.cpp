// What a trace remembers of cells: those that it has seen, and those to visit.
//
// The visited cells are a table that chains the entries of a bucket, newest first; a cell's bucket is its number
// scaled down. The cells to visit are a stack whose nodes come in blocks and return to a free chain, so that a
// trace allocates once in 1024 pushes.
#include <skoklana/containers.h>

#include "links.hpp"

#include <cstddef>

// Callers read the records' fields.
static_assert(sizeof(cell_table) == 48 && offsetof(cell_table, scale) == 32 &&
                  offsetof(cell_table, grow) == 44,
              "layout of cell_table");
static_assert(sizeof(cell_node) == 16 && sizeof(cell_list) == 32 && offsetof(cell_list, blocks) == 24,
              "layout of cell_list");

constexpr int first_cells = 1024; // entries of a table of cells, and what it grows by
constexpr int cells_per_block = 1024;

// ---- visited cells ---------------------------------------------------------------------------------------

static qx_long bucket_of_cell(const cell_table *table, qx_long cell)
{
    return scaled_bucket(cell, table->scale, table->size);
}

static bool grow_cell_table(cell_table *table)
{
    const int capacity = raised_capacity(table->max_cells, table->grow);
    if (capacity == table->max_cells || !resize_zeroed_links(&table->next, table->max_cells, capacity))
        return false;
    void *grown = realloc(table->cell_numbers, static_cast<size_t>(capacity) * sizeof(qx_long));
    if (grown == nullptr) return false;
    table->cell_numbers = static_cast<qx_long *>(grown);
    table->max_cells = capacity;
    return true;
}

cell_table *UTILcell_table_create(qx_long size, qx_long max_index)
{
    cell_table *table = static_cast<cell_table *>(calloc(1, sizeof(cell_table)));
    if (table == nullptr) return nullptr;
    // One head more than buckets: what scaled_bucket leads to.
    table->head = new_zeroed<int>(size + 1);
    table->next = new_zeroed<int>(first_cells);
    table->cell_numbers = static_cast<qx_long *>(new_block(first_cells, sizeof(qx_long)));
    table->size = size;
    table->scale = static_cast<float>(size) / static_cast<float>(max_index);
    table->max_cells = first_cells;
    table->grow = first_cells;
    if (table->head == nullptr || table->next == nullptr || table->cell_numbers == nullptr) {
        UTILcell_table_delete(table);
        return nullptr;
    }
    return table;
}

qx_long UTILcell_table_add(cell_table *table, qx_long cell)
{
    if (table == nullptr) return 0;
    const int entry = table->ncells;
    if (entry + 1 >= table->max_cells - 1 && !grow_cell_table(table)) return 0;
    table->ncells = entry + 1;
    int *head = &table->head[bucket_of_cell(table, cell)];
    table->cell_numbers[entry] = cell;
    table->next[entry + 1] = *head;
    *head = entry + 1;
    return 1;
}

qx_long UTILcell_in_table(cell_table *table, qx_long cell)
{
    if (table == nullptr) return 0;
    for (int link = table->head[bucket_of_cell(table, cell)]; link != 0; link = table->next[link])
        if (table->cell_numbers[link - 1] == cell) return 1;
    return 0;
}

qx_long UTILcell_table_delete(cell_table *table)
{
    if (table == nullptr) return 1;
    free(table->head);
    free(table->next);
    free(table->cell_numbers);
    free(table);
    return 1;
}

// ---- cells to visit --------------------------------------------------------------------------------------

static cell_node *new_chain(int nnodes)
{
    cell_node *chain = static_cast<cell_node *>(new_block(nnodes, sizeof(cell_node)));
    if (chain == nullptr) return nullptr;
    for (int i = 0; i < cells_per_block; ++i)
        chain[i] = {0, i + 1 < cells_per_block ? &chain[i + 1] : nullptr};
    return chain;
}

static bool add_block(cell_list *list)
{
    const size_t nblocks = static_cast<size_t>(list->nblocks) + 1;
    void *blocks = realloc(list->blocks, nblocks * sizeof(cell_node *));
    if (blocks == nullptr) return false;
    list->blocks = static_cast<cell_node **>(blocks);
    cell_node *chain = new_chain(cells_per_block);
    if (chain == nullptr) return false;
    list->blocks[list->nblocks++] = chain;
    list->free_nodes->next = chain;
    return true;
}

cell_list *UTILinit_cell_list(int capacity)
{
    assert(capacity == cells_per_block);
    cell_list *list = static_cast<cell_list *>(calloc(1, sizeof(cell_list)));
    if (list == nullptr) return nullptr;
    list->blocks = static_cast<cell_node **>(new_block(1, sizeof(cell_node *)));
    list->free_nodes = new_chain(std::max(capacity, cells_per_block));
    if (list->blocks == nullptr || list->free_nodes == nullptr) {
        free(list->free_nodes);
        free(list->blocks);
        free(list);
        return nullptr;
    }
    list->blocks[0] = list->free_nodes;
    list->nblocks = 1;
    return list;
}

qx_long UTILadd_cell_to_list(cell_list *list, int count, const qx_long *cells)
{
    for (int i = 0; i < count; ++i) {
        cell_node *node = list->free_nodes;
        // The last free node is never given away before a new block hangs behind it.
        if (node->next == nullptr && !add_block(list)) return 0;
        list->free_nodes = node->next;
        *node = {cells[i], list->top};
        list->top = node;
    }
    return 1;
}

qx_long UTILrm_cell_from_list(cell_list *list)
{
    cell_node *node = list->top;
    if (node == nullptr) return 1;
    list->top = node->next;
    node->next = list->free_nodes;
    list->free_nodes = node;
    return 1;
}

qx_long UTILdelete_cell_list(cell_list *list)
{
    if (list == nullptr) return 1;
    for (int i = 0; i < list->nblocks; ++i)
        free(list->blocks[i]);
    free(list->blocks);
    free(list);
    return 1;
}
