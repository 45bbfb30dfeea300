// Second-order sets in blocks.
//
// The extractions only know first-order cells. A second-order set is taken a block at a time: its tesselator
// turns the block's cells into first-order cells over the same mesh nodes, a copy of the mesh record gets
// these in place of the set, and the set's function runs on the copy. Edge tables and node flags serve all
// blocks alike, so that cells on both sides of a block's end share their new nodes.
//
// The copy shares the per-set arrays with its source: the source shows the block too until the set is put
// back, which happens on every way out.
#pragma once

#include "fetch.hpp"
#include "memory.hpp"

#include <skoklana/cell.h>
#include <skoklana/host/om.h>

#include <algorithm>

struct cell_block {
    mesh_info *mesh; // its set holds the pieces
    qx_long done;    // cells of the set before the block
    qx_long pieces;  // first-order cells of each second-order cell
};

// Both ends of a block's status range. The upper one's product is formed in 32 bits, so the range of a set of
// more than 21 million cells is out of order; progress is all that depends on it.
inline void push_block_range(qx_long done, qx_long ncells_block, qx_long count)
{
    const int wrapped = static_cast<int>(static_cast<unsigned>((done + ncells_block) * 100));
    OMpush_status_range(static_cast<int>(done * 100 / count), static_cast<int>(wrapped / count));
}

// Calls body(block) for each block of at most block_size cells, under the block's status range, as long as
// it returns true. False: a body did not, or the failure has been reported, under module where it is one of
// the blocks' own.
template <typename Body>
bool for_each_block(mesh_info *mesh, int set, tesselate_func tesselate, qx_long block_size,
                    const char *module, Body body)
{
    if (!fetch_connect(mesh, set)) return false;
    const qx_long count = mesh->cell_count[set];
    const int nnodes = mesh->cell_nnodes[set];
    qx_long *const connect = mesh->cell_connect[set];

    bool good = true;
    for (qx_long done = 0; good && done < count; done += block_size) {
        const qx_long ncells = std::min(count - done, block_size);
        qx_long npieces = 0, *pieces = nullptr;
        int piece_nnodes = 0;
        mesh_info *copy = nullptr;
        if (tesselate(ncells, connect + done * nnodes, &npieces, &pieces, &piece_nnodes) != 1) {
            report_error(module, "tesselation failed");
            good = false;
        } else if (UTILcopy_mesh_info(mesh, &copy) != 1) {
            report_error(module, "alloc for mesh copy failed");
            good = false;
        } else {
            UTILreplace_cell_set(copy, set, npieces, pieces, piece_nnodes);
            push_block_range(done, ncells, count);
            good = body(cell_block{copy, done, std::max<qx_long>(npieces / ncells, 1)});
            OMpop_status_range();
            UTILreplace_cell_set(copy, set, count, connect, nnodes);
        }
        free(copy);
        if (pieces != nullptr) ARRfree_f(pieces, ALLOC_AT("blocks"));
    }
    return good;
}
