// Containers of the extractions: edges that become new nodes, cells seen and cells to visit.
//
// An edge is the unordered pair of its nodes. A table numbers edges in order of first sight: it chains the
// edges of a bucket, newest first, through next[], and keeps their nodes in two lists that become the
// result. A bucket is
//     the lower node itself                    plain table: one head a node, short chains, 4 bytes a node
//     the lower node less the band's first     banded table: two planes of heads that move over a lattice
//     the lower node scaled down               hashed use of the plain table: heads far fewer than nodes
// Registering an edge is one chain walk; memory is asked for when a list is full, in rising steps.
//
// The visited cells of a trace are a table of the same make; the cells to visit are a stack whose nodes come
// in blocks and return to a free chain, so that a trace allocates once in 1024 pushes.
#include "edge_tbl.hpp"

#include "grow.hpp"
#include "memory.hpp"

#include <climits>
#include <cstddef>
#include <cstring>

// Callers read the records' fields.
static_assert(sizeof(edge_table) == 56 && offsetof(edge_table, size) == 32 &&
                  offsetof(edge_table, grow) == 48,
              "layout of edge_table");
static_assert(sizeof(edge_table_str) == 72 && offsetof(edge_table_str, max_edges) == 40 &&
                  offsetof(edge_table_str, size) == 48 && offsetof(edge_table_str, grow) == 64,
              "layout of edge_table_str");
static_assert(sizeof(cell_table) == 48 && offsetof(cell_table, scale) == 32 &&
                  offsetof(cell_table, grow) == 44,
              "layout of cell_table");
static_assert(sizeof(cell_node) == 16 && sizeof(cell_list) == 32 && offsetof(cell_list, blocks) == 24,
              "layout of cell_list");

constexpr int first_capacity = 1024; // entries of a plain table and a cell table, and their first step
constexpr int cells_per_block = 1024;

template <typename T> static T *new_zeroed(qx_long count)
{
    return static_cast<T *>(calloc(count > 0 ? static_cast<size_t>(count) : 1, sizeof(T)));
}

static void *new_block(qx_long count, size_t width)
{
    return malloc(static_cast<size_t>(count > 0 ? count : 1) * width);
}

// next holds 32-bit links: a table that has INT_MAX entries is full.
static int raised_capacity(int capacity, int step)
{
    return step > INT_MAX - capacity ? INT_MAX : capacity + step;
}

static int raised_grow(int grow)
{
    return static_cast<int>(std::min<qx_long>(raised_step(grow), INT_MAX));
}

static bool resize_links(int **links, int capacity)
{
    void *grown = realloc(*links, static_cast<size_t>(capacity) * sizeof(int));
    if (grown == nullptr) return false;
    *links = static_cast<int *>(grown);
    return true;
}

// The same for links that must be 0 until they are used.
static bool resize_zeroed_links(int **links, int old_capacity, int capacity)
{
    if (!resize_links(links, capacity)) return false;
    memset(*links + old_capacity, 0, static_cast<size_t>(capacity - old_capacity) * sizeof(int));
    return true;
}

static bool resize_numbers(qx_long **list, int capacity)
{
    void *grown = ARRrealloc_f(*list, DTYPE_QX_LONG, capacity, 0, ALLOC_AT("edge_tbl"));
    if (grown == nullptr) return false;
    *list = static_cast<qx_long *>(grown);
    return true;
}

// ---- plain table -----------------------------------------------------------------------------------------

bool grow_edge_table(edge_table *table)
{
    const int capacity = raised_capacity(table->max_edges, table->grow);
    if (capacity == table->max_edges || !resize_zeroed_links(&table->next, table->max_edges, capacity) ||
        !resize_numbers(&table->min_list, capacity) || !resize_numbers(&table->max_list, capacity))
        return false;
    table->max_edges = capacity;
    table->grow = raised_grow(table->grow);
    return true;
}

// As find_or_add_edge, where a bucket holds edges of many lower nodes.
static int find_or_add_scaled(edge_table *table, float scale, qx_long a, qx_long b)
{
    const qx_long lo = std::min(a, b), hi = std::max(a, b);
    const qx_long bucket = static_cast<qx_long>(static_cast<float>(lo) * scale);
    assert(bucket >= 0 && bucket <= table->size);
    for (int link = table->head[bucket]; link != 0; link = table->next[link])
        if (table->max_list[link - 1] == hi && table->min_list[link - 1] == lo) return link - 1;
    return append_edge(table, &table->head[bucket], lo, hi);
}

edge_table *UTILedge_table_create(qx_long size)
{
    edge_table *table = static_cast<edge_table *>(calloc(1, sizeof(edge_table)));
    if (table == nullptr) return nullptr;
    // One head more than buckets: a node number that a float rounds up may land there.
    table->head = new_zeroed<int>(size + 1);
    table->next = new_zeroed<int>(first_capacity);
    table->min_list = alloc_numbers(first_capacity, ALLOC_AT("edge_tbl"));
    table->max_list = alloc_numbers(first_capacity, ALLOC_AT("edge_tbl"));
    table->size = size;
    table->max_edges = first_capacity;
    table->grow = first_capacity;
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
static bool grow_band(edge_table_str *table)
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
        if (capacity == table->max_edges || !resize_numbers(&table->max_list, capacity) ||
            !resize_numbers(&table->min_list, capacity))
            return false;
        table->max_edges = capacity;
        grown = true;
    }
    if (grown) table->grow = raised_grow(table->grow);
    return true;
}

// As find_or_add_edge, with buckets counted from base.
static int find_or_add_banded(edge_table_str *table, qx_long base, qx_long a, qx_long b)
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
    if (!grow_band(table)) return -1;
    const int edge = table->nedges++;
    table->max_list[edge] = hi;
    table->min_list[edge] = lo;
    table->link_edge[link - 1] = edge;
    table->next[link] = *head;
    *head = link;
    return edge;
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
        numbers[i] = find_or_add_banded(table, base, first[i], second[i]);
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

// ---- visited cells ---------------------------------------------------------------------------------------

static qx_long bucket_of_cell(const cell_table *table, qx_long cell)
{
    const qx_long bucket = static_cast<qx_long>(static_cast<float>(cell) * table->scale);
    assert(bucket >= 0 && bucket <= table->size);
    return bucket;
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
    // One head more than buckets: from 2^24 cells on, a float may round the last cell up to max_index.
    table->head = new_zeroed<int>(size + 1);
    table->next = new_zeroed<int>(first_capacity);
    table->cell_numbers = static_cast<qx_long *>(new_block(first_capacity, sizeof(qx_long)));
    table->size = size;
    table->scale = static_cast<float>(size) / static_cast<float>(max_index);
    table->max_cells = first_capacity;
    table->grow = first_capacity;
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
