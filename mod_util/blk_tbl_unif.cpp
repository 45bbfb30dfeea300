// Block tables for the nodes of one uniform lattice: the blocks are these nodes, and each lists the cells whose
// boxes cover it. What is looked up is known beforehand, so the lists are short: no cell stands in one whose
// node it cannot hold.
//
// A cell's range of nodes starts at the first node not below its box, by rounding up with a little slack, and
// ends at the last one not above it. In the single mode a node keeps the first cell that reaches it and its
// list no links.

#include "block_pool.hpp"

#include <skoklana/locate.h>

#include <cstddef>

static_assert(sizeof(blk_tbl_unif) == 112, "hosts and other languages read the record");
static_assert(offsetof(blk_tbl_unif, dims) == 16 && offsetof(blk_tbl_unif, min_ext) == 40 &&
                  offsetof(blk_tbl_unif, cell_list) == 64 && offsetof(blk_tbl_unif, owns_lists) == 104,
              "hosts and other languages read the record");

constexpr const char *blk_tbl_unif_source = "mod_util/blk_tbl_unif";

namespace {

// What the caller says of the table.
struct unif_request {
    const float *xform;
    int ndim;
    const qx_long *dims;
    int naxes;
    const float *min, *max;
    int single;
};

// The nodes of a table, and the insertion of cells into them.
struct node_lattice {
    lattice_scale scale;
    qx_long dims[3];
    bool single;

    // naxes axes of the cells' coordinates count; what lies beyond is not looked at.
    node_lattice(const blk_tbl_unif *table, int naxes, bool single_) : single(single_)
    {
        std::copy_n(table->dims, 3, dims);
        for (int d = 0; d < naxes; ++d)
            scale.set_axis(d, table->min_ext[d], table->max_ext[d], dims[d] - 1);
    }

    bool insert(pool_writer<blk_tbl_unif> *pool, qx_long *blocks, qx_long number, const lane_box &box) const
    {
        const lanes4 a = scale.position(box.min), b = scale.position(box.max);
        qx_long lo[3], hi[3];
        for (int d = 0; d < 3; ++d) {
            if (!is_position(a[d]) || !is_position(b[d])) return true;
            lo[d] = static_cast<qx_long>(std::min(a[d], b[d]) + 0.999999);
            hi[d] = static_cast<qx_long>(std::max(a[d], b[d]));
            lo[d] = std::max<qx_long>(lo[d], 0);
            hi[d] = std::min(hi[d], dims[d] - 1);
        }
        // Entries of these tables are 32 bits wide.
        const qx_long cell = static_cast<int>(static_cast<unsigned>(number));
        for (qx_long k = lo[2]; k <= hi[2]; ++k) {
            for (qx_long j = lo[1]; j <= hi[1]; ++j) {
                const qx_long row = (k * dims[1] + j) * dims[0];
                for (qx_long i = lo[0]; i <= hi[0]; ++i) {
                    if (single && blocks[row + i] != 0) continue;
                    if (!pool->reserve(1)) return false;
                    pool->add(row + i, cell);
                }
            }
        }
        return true;
    }
};

} // namespace

// All nodes with three coordinates each, moved by a matrix; null: no memory.
static float *transformed_coords(const mesh_info *mesh, const float *xform)
{
    qx_long bytes;
    if (__builtin_mul_overflow(mesh->nnodes, 3 * static_cast<qx_long>(sizeof(float)), &bytes)) return nullptr;
    float *moved = static_cast<float *>(malloc(bytes > 0 ? static_cast<size_t>(bytes) : 1));
    if (moved == nullptr) return nullptr;
    for (qx_long node = 0; node < mesh->nnodes; ++node) {
        float *to = moved + 3 * node;
        for (int d = 0; d < 3; ++d)
            to[d] = d < mesh->nspace ? mesh->coords[node * mesh->nspace + d] : 0;
        MATvec3_mat4_multiply(to, xform);
    }
    return moved;
}

static int build_blk_tbl_unif(mesh_info *mesh, cell_source cells, const unif_request &request,
                              blk_tbl_unif **out)
{
    if (!fetch_coords(mesh)) return 0;
    scratch moved;
    const float *coords = mesh->coords;
    int stride = mesh->nspace;
    if (request.xform != nullptr) {
        coords = moved.keep(transformed_coords(mesh, request.xform));
        if (coords == nullptr) return 0;
        stride = 3;
    }

    blk_tbl_unif *table;
    if (UTILinterp_init_alloc2(static_cast<int>(mesh->ncells), request.ndim, request.dims, &table) != 1)
        return 0;
    const int naxes = std::min(request.naxes, 3);
    for (int d = 0; d < naxes; ++d) {
        table->min_ext[d] = request.min[d];
        table->max_ext[d] = request.max[d];
    }
    const bool single = request.single != 0;
    return fill_table(table, !single, blk_tbl_unif_source, out, [&](pool_writer<blk_tbl_unif> *pool) {
        const node_lattice lattice(table, std::min(stride, naxes), single);
        return insert_cells(cells, mesh, stride, coords, [&](qx_long cell, const lane_box &box) {
            return lattice.insert(pool, table->blocks, cell, box);
        });
    });
}

int UTILinterp_init2(mesh_info *mesh, const float *xform, int ndim, const qx_long *dims, int naxes,
                     const float *min, const float *max, int single, blk_tbl_unif **out)
{
    return build_blk_tbl_unif(mesh, cell_source::sets, {xform, ndim, dims, naxes, min, max, single}, out);
}

int UTILinterp_init_struct2(mesh_info *mesh, const float *xform, int ndim, const qx_long *dims, int naxes,
                            const float *min, const float *max, int single, blk_tbl_unif **out)
{
    return build_blk_tbl_unif(mesh, cell_source::lattice, {xform, ndim, dims, naxes, min, max, single}, out);
}

int UTILinterp_init_alloc2(int ncells, int ndim, const qx_long *dims, blk_tbl_unif **out)
{
    if (ndim < 1 || ndim > 3) return 0;
    // Within this limit the bytes of a list are countable.
    constexpr qx_long most_blocks = std::numeric_limits<qx_long>::max() / sizeof(qx_long);
    qx_long nblocks = 1;
    for (int d = 0; d < ndim; ++d)
        if (dims[d] < 1 || __builtin_mul_overflow(nblocks, dims[d], &nblocks) || nblocks > most_blocks)
            return 0;
    blk_tbl_unif *table = new_table<blk_tbl_unif>(nblocks, first_pool_size(ncells), blk_tbl_unif_source);
    if (table == nullptr) return 0;
    for (int d = 0; d < 3; ++d)
        table->dims[d] = d < ndim ? dims[d] : 1;
    *out = table;
    return 1;
}

int UTILinterp_end2(blk_tbl_unif *t)
{
    if (t == nullptr) return 0;
    release_table(t, blk_tbl_unif_source);
    return 1;
}
