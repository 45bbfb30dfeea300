// Level surfaces and lines over cell sets: the kernels of a set, and the road of a whole mesh.
//
// The walk of cell_walk.hpp does the work; here stands what its cells become, primitives in a growing list,
// and who is told of a failure.
#pragma once

#include "cell_walk.hpp"
#include "grow.hpp"

#include <skoklana/iso.h>

// ---- a kernel --------------------------------------------------------------------------------------------

// Where primitives are appended, as the exported kernels get it.
struct primitive_lists {
    qx_long **connect;  // new nodes of the primitives; null or a capacity of 0: begun anew
    qx_long *used;      // entries in use
    qx_long *capacity;  // entries there is room for
    qx_long **cell_map; // null, or holding null: not wanted; otherwise a list of the first capacity
};

// Begins a list that is not there yet, or has no capacity. False: there is no memory.
template <class Numbers> bool begin_primitives(const primitive_lists &lists, qx_long first_capacity)
{
    if (*lists.capacity != 0 && *lists.connect != nullptr) return true;
    if (*lists.connect != nullptr) Numbers::release(*lists.connect, ALLOC_AT("extract"));
    *lists.used = 0;
    *lists.connect = Numbers::alloc(first_capacity, ALLOC_AT("extract"));
    *lists.capacity = *lists.connect != nullptr ? first_capacity : 0;
    return *lists.connect != nullptr;
}

// Rules are those of an operation: which primitives a case makes, whose the lists are and how they grow.
template <typename Rules> class primitive_sink {
  public:
    static constexpr bool checks_status = Rules::checks_status;
    static constexpr bool takes_whole = false;
    qx_long made = 0; // primitives

    explicit primitive_sink(const primitive_lists &to) : lists(to) {}

    // False: there is no memory.
    bool begin()
    {
        map = lists.cell_map != nullptr ? *lists.cell_map : nullptr;
        return begin_primitives<typename Rules::numbers>(lists, Rules::first_capacity);
    }

    template <typename Row> walk_end take(qx_long cell, const qx_long *, const Row &row, const int *number)
    {
        const int nprimitives = Rules::count(row);
        Rules::append(row, number, *lists.connect + *lists.used);
        *lists.used += nprimitives * Rules::nodes_each;
        if (map != nullptr) {
            if (!make_room<typename Rules::numbers>(lists.cell_map, made, nprimitives,
                                                    {&map_capacity, &map_step, Rules::raises_step},
                                                    ALLOC_AT("extract")))
                return walk_end::no_map;
            map = *lists.cell_map;
            std::fill_n(map + made, nprimitives, cell);
        }
        made += nprimitives;
        return make_room<typename Rules::numbers>(lists.connect, *lists.used, Rules::margin,
                                                  {lists.capacity, &connect_step, Rules::raises_step},
                                                  ALLOC_AT("extract"))
                   ? walk_end::complete
                   : walk_end::no_connect;
    }

    walk_end take_whole(qx_long, const qx_long *, qx_long) { return walk_end::complete; }

  private:
    const primitive_lists lists;
    qx_long *map = nullptr;
    qx_long connect_step = Rules::first_capacity;
    qx_long map_capacity = Rules::first_capacity, map_step = Rules::first_capacity;
};

// A kernel over a range of cells. made: primitives, also where it ends early.
template <typename Cases, typename Rules, typename Table = edge_table>
walk_end extract_range(const cell_rows &rows, const cell_range &range, Table *table,
                       const primitive_lists &lists, qx_long *made)
{
    primitive_sink<Rules> sink(lists);
    if (!sink.begin()) return walk_end::no_list;
    const walk_end end = walk_cells<Cases>(rows, range, table, &sink);
    *made = sink.made;
    return end;
}

using range_kernel = walk_end (*)(const cell_rows &rows, const cell_range &range, edge_table *table,
                                  const primitive_lists &lists, qx_long *made);

// The reports' modules, and whether a last status check follows the cells.
struct kernel_manners {
    const char *connect_module, *map_module;
    bool checks_at_end;
};

// Tells of what memory was missing, where it was that.
void report_kernel_end(walk_end end, const kernel_manners &manners);

// An exported kernel: a whole set on behalf of a caller outside, who has no word for a failure but 0. What the
// kernel does not hand back then it releases.
qx_long run_kernel(range_kernel kernel, const kernel_manners &manners, mesh_info *mesh, int set,
                   int null_flag, unsigned char *flags, edge_table *table, const primitive_lists &lists);

// ---- a whole mesh ----------------------------------------------------------------------------------------

// As slice_cell_func, by nthreads threads. What a call is given stays with its caller.
using threaded_slice_func = qx_long (*)(int nthreads, mesh_info *mesh, int set, int null_flag,
                                        unsigned char *flags, edge_table *table, qx_long **connect,
                                        qx_long *used, qx_long *capacity, qx_long **cell_map);

// The function that extracts from a set; null: the set takes no part.
struct set_kernel {
    slice_cell_func func;
    bool makes_triangles;         // or lines
    threaded_slice_func threaded; // of operations by threads: in place of func; null: the set makes nothing
};

// What differs between the operations.
struct extract_rules {
    const char *module;    // of the reports
    qx_long unit;          // cells in a block at most, and the first size of a cell map
    bool opens_set_ranges; // a status range around each set
    set_kernel (*choose)(const mesh_info *mesh, int set);
    int nthreads; // 0: an operation without threads
};

struct level_request {
    mesh_info *mesh;
    const void *data;
    int data_type;
    int null_flag;
    const void *null_value;
    double level;
    qx_long *cell_map_count; // an entry a set; null: no maps
    qx_long **cell_map;
};

struct primitive_list {
    qx_long count;
    qx_long *connect;
    qx_long used;
    qx_long capacity;
};

struct level_result {
    qx_long nnodes;
    qx_long *min_node, *max_node;
    primitive_list lines, triangles;
};

// 1, or 0 after a report or an interruption; the result is then all 0 and nothing is left behind.
int extract_level(const level_request &request, const extract_rules &rules, level_result *result);
