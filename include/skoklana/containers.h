/* Containers of the extractions: edges that become new nodes, cells seen, cells to visit. */
#ifndef SKOKLANA_CONTAINERS_H
#define SKOKLANA_CONTAINERS_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* An extraction makes new nodes on edges of input cells. A new node is told by the unordered pair of the two
 * mesh nodes of its edge, not by a position. Edge tables turn pairs into new-node numbers: 0, 1, 2, ... in
 * order of first sight, the same number for a pair seen again, in either order. A pair of one node with
 * itself is a pair like any other. When the extraction ends, the table's two lists are its new nodes.
 *
 *   edge_table       a bucket a node, for cell sets; or fewer buckets, hashed, for traces of few cells
 *   edge_table_str   buckets for a band of a lattice that moves on plane by plane
 *   cell_table       the set of cells that a trace has visited
 *   cell_list        the stack of cells that it has still to visit
 *
 * Edges and cells are held in order of their numbers; those of a bucket are chained, newest first.
 * Capacities are entries. A table or list belongs to one thread at a time. None of these functions reports
 * anything: where memory runs out they return 0, or NULL, and a container that is there can be used on
 * unless its function says otherwise, and must be released. */

typedef struct edge_table {
    int *head;         /* size entries: 1 + number of the bucket's newest edge, 0 if it has none */
    int *next;         /* max_edges entries: next[e + 1] is 1 + the edge behind edge e, 0 at the end */
    qx_long *min_list; /* max_edges entries: lower node of each edge */
    qx_long *max_list; /* max_edges entries: upper node of each edge */
    qx_long size;      /* buckets */
    int max_edges;     /* capacity, 1024 at first */
    int nedges;        /* edges held */
    int grow;          /* what the next growth adds: 1024, 1536, 2304, ..., each half as much again */
} edge_table;

typedef struct edge_table_str {
    int *head;         /* size entries: the bucket's newest link, 0 if it has none */
    int *next;         /* max_links entries: next[l] is the link behind link l, 0 at the end */
    int *link_edge;    /* max_links entries: link_edge[l - 1] is the edge of link l */
    qx_long *min_list; /* max_edges entries: lower node of each edge */
    qx_long *max_list; /* max_edges entries: upper node of each edge */
    int max_edges;     /* capacity of the two node lists */
    int nedges;        /* edges held, those that the band has left behind included */
    qx_long size;      /* buckets */
    int max_links;     /* capacity of next and link_edge */
    int nlinks;        /* 1 + links made: links are numbered from 1 */
    int grow;          /* what the next growth adds to either kind of list; then half as much again */
} edge_table_str;

typedef struct cell_table {
    int *head;             /* size entries: 1 + number of the bucket's newest entry, 0 if it has none */
    int *next;             /* max_cells entries: next[e + 1] is 1 + number of the entry behind entry e */
    qx_long *cell_numbers; /* max_cells entries: the cell of each entry */
    qx_long size;          /* buckets */
    float scale;           /* buckets a cell: a cell's bucket is its number times scale, truncated */
    int max_cells;         /* capacity, 1024 at first */
    int ncells;            /* entries held */
    int grow;              /* what every growth adds, 1024 */
} cell_table;

typedef struct cell_node cell_node;
struct cell_node {
    qx_long cell;
    cell_node *next; /* the node below it on the stack, or behind it among the spare ones; NULL at the end */
};

typedef struct cell_list {
    cell_node *top;        /* the cell to visit next; NULL: none is left */
    cell_node *free_nodes; /* spare nodes, always one at least */
    int nblocks;           /* blocks of 1024 nodes */
    cell_node **blocks;    /* every block, for the release */
} cell_list;

/* An empty table. size: buckets; for UTILedge_table_add_points more than the largest lower node number, as
 * the node count of the mesh is. Release it by UTILedge_table_delete or UTILedge_table_get_free. */
edge_table *UTILedge_table_create(qx_long size);
/* Numbers edges by their nodes.
 *
 * first, second   count node numbers each: the nodes of each edge, in either order
 * numbers         out, count entries: the new node of each edge
 *
 * Returns 1, also for count below 1; -1 for a null table. 0: the lists could not grow; edges before that one
 * are numbered, its own number is -1, those behind it are not written, and the table is as it was before it.
 * The lists grow with the edge that leaves them one entry. Cost: a walk along the edges that share the lower
 * node. */
qx_long UTILedge_table_add_points(edge_table *table, const qx_long *first, const qx_long *second, int count,
                                  int *numbers);
/* The same for a table with fewer buckets than there are nodes.
 *
 * max_index   nodes of the mesh
 *
 * The bucket is the lower node times the integer quotient size / max_index. With fewer buckets than nodes
 * that is 0 and the table is one chain, whose walk costs as many steps as there are edges: use it for few
 * edges. The numbers do not depend on it. */
qx_long UTILedge_table_add_hash_points(edge_table *table, const qx_long *first, const qx_long *second,
                                       qx_long max_index, int count, int *numbers);
/* Ends a table and hands its lists over: min_list and max_list, count entries of lower and upper nodes. The
 * lists are there for count 0 too. Returns 1; 0 for a null table, outputs as they were. */
qx_long UTILedge_table_get_free(edge_table *table, qx_long **min_list, qx_long **max_list, qx_long *count);
/* Ends a table with its lists. Returns 1, also for a null table. */
qx_long UTILedge_table_delete(edge_table *table);

/* An empty table for a band. size: buckets, the nodes of two planes for a mesh of hexahedra; initial: the
 * first capacity, also the first growth, 1 or more. Release it by UTILedge_table_delete_str or
 * UTILedge_table_free_str. */
edge_table_str *UTILedge_table_create_str(qx_long size, int initial);
/* As UTILedge_table_add_points, within a band.
 *
 * base   number of the band's first node; every lower node is from base to base + size - 1
 *
 * After 0 the table may only be released. */
qx_long UTILedge_table_add_str(edge_table_str *table, const qx_long *first, const qx_long *second,
                               qx_long base, int count, int *numbers);
/* Moves a band on by shift buckets; the caller then adds shift to its base. Edges of the lowest shift
 * buckets are left behind: they stay in the lists and are not found again. The other buckets move down by
 * shift, and the uppermost shift keep what they held besides. What those lead to is harmless as long as the
 * band holds axis-aligned edges of a lattice, shift is one plane and size two: the upper nodes of edges in
 * the new plane are higher than any before. Returns 1; -1 for a null table. */
qx_long UTILedge_table_clean(edge_table_str *table, qx_long shift);
/* As UTILedge_table_get_free and UTILedge_table_delete. */
qx_long UTILedge_table_free_str(edge_table_str *table, qx_long **min_list, qx_long **max_list,
                                qx_long *count);
qx_long UTILedge_table_delete_str(edge_table_str *table);

/* An empty set of cells. size: buckets; max_index: cells of the mesh, more than any number that is added. */
cell_table *UTILcell_table_create(qx_long size, qx_long max_index);
/* Adds a cell, without a look whether it is there: ask UTILcell_in_table first. Returns 1; 0 for a null
 * table and where it could not grow, the table then as it was. */
qx_long UTILcell_table_add(cell_table *table, qx_long cell);
/* Returns 1 for a cell that was added; 0 for others, and for a null table. */
qx_long UTILcell_in_table(cell_table *table, qx_long cell);
/* Returns 1, also for a null table. */
qx_long UTILcell_table_delete(cell_table *table);

/* An empty stack of cells. capacity: 1024, the nodes of a block. */
cell_list *UTILinit_cell_list(int capacity);
/* Puts count cells on the stack, the last one on top. Memory comes a block at a time, before the last spare
 * node is taken. Returns 1; 0 where a block could not be had, the cells before that on the stack. */
qx_long UTILadd_cell_to_list(cell_list *list, int count, const qx_long *cells);
/* Takes the top cell off; read it from list->top->cell first. Returns 1. */
qx_long UTILrm_cell_from_list(cell_list *list);
/* Releases a stack with all its blocks. Returns 1. */
qx_long UTILdelete_cell_list(cell_list *list);

SKOKLANA_END
#endif
