// Extraction from cell sets by workers side by side, with the one numbering of a single one.
//
// The cells of all sets that take part are one sequence, and each worker has a stretch of it. It runs the library's
// kernels over some rows at a time, with an edge table and lists of its own. What they make is then joined as a single
// worker would have made it, who comes to the cells in the same order: an edge has the number that the first worker gave
// it who met it, and those that the later ones met first follow in their order. Edges and lists of the first worker
// stand as they are, and the others' are appended to them, each entry written once.
//
// Nothing is written but what workers own: sets are read where they stand, and cells of second order are cut into pieces
// some at a time, on the side.
#pragma once

#include "lists.hpp"
#include "result.hpp"
#include "workers.hpp"

#include <skoklana/thread.h>

constexpr int most_cell_lists = 7;
constexpr qx_long most_rows_a_call = qx_long{1}
                                     << 30; // no limit: calls are as long as stretches between checks

// Consecutive cells of first order, rows first to end - 1 of a connect list.
struct row_stretch {
    int kind, nnodes;
    const qx_long *connect; // row 0
    qx_long first, end;
};

// Cells of one kind, as a worker makes them.
struct worker_list {
    qx_long *connect, used,
        room; // entries; below nold they name retained nodes, others the worker's own edges
    qx_long *cell, ncells, cell_room;
};

struct cell_worker {
    mt_edge_table *edges; // null: could not be had, or went with a kernel that failed
    worker_list lists[most_cell_lists];
    int result;
    double
        done; // share of the cells whose output its lists are to hold that were taken before the rows at hand
    qx_long lowest, highest; // lower nodes of its edges lie between these
    // Of all but the first worker, for each edge: its place among those that no earlier worker has met; below 0: which
    // worker has, and which of its edges it is.
    qx_long *place;
    qx_long base, nfresh; // edges of the earlier workers, and its own among all
};

// Room for more entries behind the used ones of a growing list, where done is the worker's. False: no memory.
bool reserve_entries(qx_long **list, qx_long *room, qx_long used, qx_long more, double done);
// Room for more edges, so that no addition has to make it.
bool reserve_edges(mt_edge_table *edges, qx_long more);

// What workers run.
struct cell_task {
    const host_field *field; // of cell sets; its mesh has been made
    worker_team *team;
    qx_long nold; // retained nodes
    bool with_cells;
    int nlists;
    const int *kind_of_list;
    qx_long rows_a_call; // at most so many for the kernel
    bool (*takes)(const void *operation, int kind);
    // Extracts and appends to the worker's lists; cells by the numbers of their rows. False: no memory.
    bool (*extract)(const void *operation, const row_stretch &rows, cell_worker *worker);
    const void *operation;
};

class cell_workers {
  public:
    explicit cell_workers(const cell_task &of) : task(of), nworkers(of.team->size()) {}
    ~cell_workers();
    cell_workers(const cell_workers &) = delete;
    cell_workers &operator=(const cell_workers &) = delete;

    // One of HOST_DONE, HOST_FAILED for want of memory, and HOST_STOPPED.
    int extract();
    // What was extracted, as new nodes and sets of a result. False: no memory.
    bool join(result_builder *result);

  private:
    void work(int k);
    bool take_rows(const row_stretch &rows, qx_long first_cell, qx_long pieces, cell_worker *worker) const;
    int take_set(int set, qx_long first, qx_long end, cell_worker *worker, qx_long *done,
                 qx_long share) const;
    bool find_places(int k);
    qx_long joint_number(const cell_worker &worker, qx_long edge) const;
    void copy_share(int share, qx_long *lo, qx_long *hi) const;

    const cell_task task;
    const int nworkers;
    cell_worker *workers = nullptr;
};
