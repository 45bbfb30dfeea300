// Block tables: the lists of cells, and the walk over a mesh that fills them. Both forms of table share this;
// a form adds its lattice of blocks and the rule by which a cell's box becomes a range of them.
//
// The lists lie in a pool of two parallel arrays, the cell of each entry and the entry that follows it. Entry 0
// is none, so that 0 ends a list. New entries go to the head: a list runs from the newest entry to the
// oldest, and a search prefers the cell that was inserted last. The pool grows by a step that itself rises by
// half each time. Entry numbers, list_size and list_grow are visible in the record.
#pragma once

#include "cell_set.hpp"
#include "fetch.hpp"
#include "grow.hpp"
#include "lane_box.hpp"
#include "lattice.hpp"
#include "memory.hpp"
#include "status.hpp"

#include <algorithm>
#include <cstring>

// The pool's first size, and the first step of its growth.
inline qx_long first_pool_size(qx_long ncells)
{
    return ncells < 1000 ? 500 : ncells < 2000 ? 1000 : 2000;
}

template <typename Table> void release_table(Table *table, const char *source)
{
    if (table->owns_lists != 0)
        for (qx_long *list : {table->blocks, table->cell_list, table->next_list})
            if (list != nullptr) ARRfree_f(list, source, __LINE__);
    free(table);
}

// A table of empty blocks, its lattice still to be described; null: no memory.
template <typename Table> Table *new_table(qx_long nblocks, qx_long pool_size, const char *source)
{
    Table *table = static_cast<Table *>(malloc(sizeof(Table)));
    if (table == nullptr) return nullptr;
    *table = {};
    table->owns_lists = 1;
    table->nblocks = nblocks;
    table->list_size = table->list_grow = pool_size;
    table->list_used = 1;
    table->blocks = alloc_numbers(nblocks, source, __LINE__);
    table->cell_list = alloc_numbers(pool_size, source, __LINE__);
    table->next_list = alloc_numbers(pool_size, source, __LINE__);
    if (table->blocks == nullptr || table->cell_list == nullptr || table->next_list == nullptr) {
        release_table(table, source);
        return nullptr;
    }
    std::fill_n(table->blocks, nblocks, 0);
    std::fill_n(table->next_list, pool_size, 0);
    return table;
}

// A table's pool while it is filled. The record's own fields are brought up to date at the end: were they
// written with each entry, every write to a list could change them in the compiler's eyes.
template <typename Table> class pool_writer {
  public:
    // Without links, next_list stays as it is: lists of one entry have none.
    pool_writer(Table *table_, bool links_, const char *source_)
        : table(table_), source(source_), links(links_), used(table_->list_used), size(table_->list_size)
    {
    }
    pool_writer(const pool_writer &) = delete;
    pool_writer &operator=(const pool_writer &) = delete;

    // New links are zeroed here, those of entries in use having been written since.
    ~pool_writer()
    {
        table->list_used = used;
        if (links && !out_of_memory) std::fill(table->next_list + used, table->next_list + size, 0);
    }

    // Room for count more entries. The pool grows as if they came one by one.
    bool reserve(qx_long count)
    {
        while (used + count > size)
            if (!grow()) return false;
        return true;
    }

    // Puts a cell at the head of a block's list; room is there.
    void add(qx_long block, qx_long cell)
    {
        table->cell_list[used] = cell;
        if (links) table->next_list[used] = table->blocks[block];
        table->blocks[block] = used++;
    }

  private:
    bool grow()
    {
        table->list_size = size += table->list_grow;
        table->list_grow = raised_step(table->list_grow);
        for (qx_long **list : {&table->cell_list, &table->next_list}) {
            if (list == &table->next_list && !links) break;
            void *grown = ARRrealloc_f(*list, DTYPE_QX_LONG, size, 0, source, __LINE__);
            out_of_memory = grown == nullptr;
            if (out_of_memory) return false;
            *list = static_cast<qx_long *>(grown);
        }
        return true;
    }

    Table *table;
    const char *source;
    bool links, out_of_memory = false;
    qx_long used, size;
};

// Where a box lies on the lattice, an axis a lane. Axes without extent, and those that the lattice does not
// have, come out as 0.
struct lattice_scale {
    lanes4 origin = {0, 0, 0, 0}, steps = {0, 0, 0, 0}, extent = {1, 1, 1, 1};

    // nsteps blocks from min to max.
    void set_axis(int d, float min, float max, qx_long nsteps)
    {
        const float length = max - min;
        if (!(static_cast<double>(length) > 1e-30)) return;
        origin[d] = min;
        steps[d] = static_cast<float>(nsteps);
        extent[d] = length;
    }

    lanes4 position(lanes4 x) const { return (x - origin) * steps / extent; }
};

// Whether there is a position at all: coordinates that are NaN, infinite or beyond reason have none.
inline bool is_position(double at)
{
    return at > -1e18 && at < 1e18;
}

enum class build_end { built, no_list, interrupted, no_memory };

inline bool build_interrupted(qx_long done, float step)
{
    const float percent = static_cast<float>(done) * step;
    return interrupted(percent < 100 ? static_cast<int>(percent) : 100, "building block table");
}

// Inserts the cells of all sets in order. insert(cell, box) gives false for want of memory.
template <int Nspace, typename Insert>
build_end insert_sets(mesh_info *mesh, const float *coords, Insert insert)
{
    const float step = static_cast<float>(100.0 / static_cast<double>(mesh->ncells));
    status_cadence cadence(400);
    qx_long done = 0;
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        if (!fetch_connect(mesh, set)) return build_end::no_list;
        const int nnodes = mesh->cell_nnodes[set];
        const qx_long *nodes = mesh->cell_connect[set], first = mesh->cell_first[set];
        for (qx_long local = 0; local < mesh->cell_count[set]; ++local, ++done, nodes += nnodes) {
            if (cadence.due() && build_interrupted(done, step)) return build_end::interrupted;
            if (!insert(first + local, box_of_nodes<Nspace>(coords, nodes, nnodes)))
                return build_end::no_memory;
        }
    }
    return build_end::built;
}

// Inserts the cells of a structured mesh, each under the number of its lowest node. Every axis has a layer of
// cells, one that is missing or has one node too.
template <int Nspace, typename Insert>
build_end insert_lattice(mesh_info *mesh, const float *coords, Insert insert)
{
    qx_long layers[3] = {1, 1, 1}, corners[8] = {};
    for (int d = 0; d < mesh->ndim; ++d)
        if (mesh->dims[d] != 1) layers[d] = mesh->dims[d] - 1;
    const int ncorners = std::min(mesh->cell_nnodes[0], 8);
    location_order_nodes(0, flat_steps_of(mesh->ndim, mesh->dims), ncorners, corners);
    const lattice_steps to = steps_of(mesh->ndim, mesh->dims);

    const float step = static_cast<float>(100.0 / static_cast<double>(layers[2]));
    for (qx_long k = 0; k < layers[2]; ++k) {
        if (k % 2 == 1 && build_interrupted(k, step)) return build_end::interrupted;
        for (qx_long j = 0; j < layers[1]; ++j) {
            const qx_long row = j * to.row + k * to.plane;
            for (qx_long cell = row; cell < row + layers[0]; ++cell)
                if (!insert(cell, box_of_nodes<Nspace>(coords + cell * Nspace, corners, ncorners)))
                    return build_end::no_memory;
        }
    }
    return build_end::built;
}

enum class cell_source { sets, lattice };

// By either walk, over coords of stride floats a node.
template <typename Insert>
build_end insert_cells(cell_source cells, mesh_info *mesh, int stride, const float *coords, Insert insert)
{
    return with_nspace(stride, [&](auto nspace) {
        constexpr int n = decltype(nspace)::value;
        return cells == cell_source::sets ? insert_sets<n>(mesh, coords, insert)
                                          : insert_lattice<n>(mesh, coords, insert);
    });
}

// Fills a table by insert_all(pool) under a status range of its own. A table whose cells could not all be
// fetched is left to the caller as it is; any other that is not complete is released.
template <typename Table, typename InsertAll>
int fill_table(Table *table, bool links, const char *source, Table **out, InsertAll insert_all)
{
    *out = table;
    const status_range range(0, 100);
    build_end end;
    {
        pool_writer<Table> pool(table, links, source);
        end = insert_all(&pool);
    }
    if (end == build_end::no_list) return 0;
    if (end == build_end::built) {
        interrupted(100); // too late to stop
        return 1;
    }
    release_table(table, source);
    *out = nullptr;
    return 0;
}
