// Block tables for points anywhere: the box of the mesh is cut into nblk blocks an axis, and each block lists
// the cells whose boxes reach it. A search then tests the cells of one block.
//
// Blocks are counted so that the middle of a mesh has some tens of cells a block: few enough to test, and
// enough that a cell does not stand in many blocks. The position of a coordinate runs from 0 at the mesh's low
// end to nblk - 1 at its high end, so the last block of an axis holds what touches the high end.
//
// A position may be nblk where coordinates stand out of the mesh's box: then its block is the first one of the
// next row. Searches count the same way, so such cells are found; what lies past all blocks is left out.

#include "block_pool.hpp"

#include <skoklana/locate.h>

#include <cstddef>

static_assert(sizeof(blk_tbl) == 96, "hosts and other languages read the record");
static_assert(offsetof(blk_tbl, nblk) == 16 && offsetof(blk_tbl, min_ext) == 24 &&
                  offsetof(blk_tbl, cell_list) == 48 && offsetof(blk_tbl, owns_lists) == 88,
              "hosts and other languages read the record");

constexpr const char *blk_tbl_source = "mod_util/blk_tbl";

static int blocks_an_axis(qx_long ncells)
{
    return ncells < 1000 ? 7 : ncells < 2000 ? 10 : ncells < 20000 ? 16 : ncells < 200000 ? 22 : 30;
}

namespace {

// The lattice of a table, and the insertion of cells into it.
struct block_cube {
    lattice_scale scale;
    qx_long nblk, nblocks;

    explicit block_cube(const blk_tbl *table) : nblk(table->nblk), nblocks(table->nblocks)
    {
        for (int d = 0; d < table->nspace; ++d)
            scale.set_axis(d, table->min_ext[d], table->max_ext[d], nblk - 1);
    }

    bool insert(pool_writer<blk_tbl> *pool, qx_long cell, const lane_box &box) const
    {
        const lanes4 low = scale.position(box.min), high = scale.position(box.max);
        qx_long lo[3], hi[3];
        for (int d = 0; d < 3; ++d) {
            if (!is_position(low[d]) || !is_position(high[d])) return true;
            lo[d] = static_cast<qx_long>(low[d]);
            hi[d] = std::min(static_cast<qx_long>(high[d]), nblk); // not nblk - 1: see above
            if (lo[d] > hi[d]) return true;
        }
        const bool inside = lo[0] >= 0 && lo[1] >= 0 && lo[2] >= 0 && block_at(hi[0], hi[1], hi[2]) < nblocks;
        return inside ? insert_inside(pool, cell, lo, hi) : insert_across(pool, cell, lo, hi);
    }

  private:
    qx_long block_at(qx_long i, qx_long j, qx_long k) const { return (k * nblk + j) * nblk + i; }

    bool insert_inside(pool_writer<blk_tbl> *pool, qx_long cell, const qx_long *lo, const qx_long *hi) const
    {
        if (!pool->reserve((hi[0] - lo[0] + 1) * (hi[1] - lo[1] + 1) * (hi[2] - lo[2] + 1))) return false;
        for (qx_long k = lo[2]; k <= hi[2]; ++k)
            for (qx_long j = lo[1]; j <= hi[1]; ++j)
                for (qx_long i = lo[0]; i <= hi[0]; ++i)
                    pool->add(block_at(i, j, k), cell);
        return true;
    }

    // A range that stands out of the lattice: each of its positions that falls on a block counts. Lower starts
    // than these two reach none.
    bool insert_across(pool_writer<blk_tbl> *pool, qx_long cell, const qx_long *lo, const qx_long *hi) const
    {
        for (qx_long k = std::max<qx_long>(lo[2], -1); k <= hi[2]; ++k) {
            for (qx_long j = std::max(lo[1], -nblk * nblk - 1); j <= hi[1]; ++j) {
                const qx_long row = block_at(0, j, k);
                const qx_long from = std::max(lo[0], -row), to = std::min(hi[0], nblocks - 1 - row);
                if (from > to) continue;
                if (!pool->reserve(to - from + 1)) return false;
                for (qx_long i = from; i <= to; ++i)
                    pool->add(row + i, cell);
            }
        }
        return true;
    }
};

} // namespace

static int build_blk_tbl(mesh_info *mesh, cell_source cells, blk_tbl **out)
{
    blk_tbl *table;
    if (!fetch_coords(mesh) || UTILinterp_init_alloc(mesh->ncells, mesh->nspace, &table) != 1) return 0;
    std::copy_n(mesh->min_ext, mesh->nspace, table->min_ext);
    std::copy_n(mesh->max_ext, mesh->nspace, table->max_ext);
    return fill_table(table, true, blk_tbl_source, out, [&](pool_writer<blk_tbl> *pool) {
        const block_cube cube(table);
        return insert_cells(cells, mesh, mesh->nspace, mesh->coords,
                            [&](qx_long cell, const lane_box &box) { return cube.insert(pool, cell, box); });
    });
}

int UTILinterp_init(mesh_info *mesh, blk_tbl **out)
{
    return build_blk_tbl(mesh, cell_source::sets, out);
}

int UTILinterp_init_struct(mesh_info *mesh, blk_tbl **out)
{
    return build_blk_tbl(mesh, cell_source::lattice, out);
}

int UTILinterp_init_unif(mesh_info *, blk_tbl **out)
{
    *out = nullptr;
    return 1;
}

int UTILinterp_init_rect(mesh_info *, blk_tbl **out)
{
    *out = nullptr;
    return 1;
}

int UTILinterp_init_alloc(qx_long ncells, int nspace, blk_tbl **out)
{
    if (nspace < 1 || nspace > 3) return 0;
    const int nblk = blocks_an_axis(ncells);
    qx_long nblocks = nblk;
    for (int d = 1; d < nspace; ++d)
        nblocks *= nblk;
    blk_tbl *table = new_table<blk_tbl>(nblocks, first_pool_size(ncells), blk_tbl_source);
    if (table == nullptr) return 0;
    table->nblk = nblk;
    table->nspace = nspace;
    *out = table;
    return 1;
}
