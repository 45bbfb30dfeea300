// Isosurface over structured meshes, one slab of cells between two planes of nodes at a time.
//
// Node flags hold one bit a node (level_bits.hpp). Of the four node rows around a row of cells take the or
// and the and, and join each bit with its upper neighbour:
//     any = or  | or  << 1 side      a corner is above
//     all = and & and << 1 side      all corners are
// The crossed cells are any & ~all, 64 at a time, and nothing is done for a cell that is not. Cells with a
// null corner are taken out by a second set of bits.
//
// New nodes get their numbers in order of first sight: cells by i, then j, then k, a cell's crossings in the
// order of its case row. Every edge of the two live planes has a slot that holds its number. Whether an edge
// is new is known from the place alone: it is, if no earlier cell that was walked has it. All but three edges
// of a cell have such earlier cells (lattice_cases.hpp), and where these are in the mesh and not null a cell
// makes its own edges only, by stores without a test. Slots are never cleared: one is read only after it was
// written.
//
// A row of cells is taken in two passes: the first lists the crossed cells with their cases and counts what
// they will add, then the lists grow if they must, and the second pass writes without a test.
// Memory: bits and slots of two planes. Time: nodes / 64, and the crossed cells.
//
// Lorensen and Cline. Marching cubes: a high resolution 3D surface construction algorithm. 1987
#include <skoklana/iso.h>

#include "dtype.hpp"
#include "grow.hpp"
#include "lattice_cases.hpp"
#include "level_bits.hpp"
#include "memory.hpp"
#include "status.hpp"

#include <utility>

namespace {

constexpr qx_long first_triangle_entries = 1024;
constexpr qx_long first_map_entries = 1024;
constexpr qx_long first_nodes = 1000;
// A cell adds at most 5 triangles, 15 entries; all 15 are stored whatever the count.
constexpr qx_long triangle_margin = 25;
// A cell stores its three own edges whether or not they are crossed.
constexpr qx_long node_margin = 3;

struct surface {
    batch_list min_node, max_node; // new nodes; used and capacity stand in the first
    batch_list triangles;          // new nodes, three a triangle
    batch_list map;                // the cell of each triangle; no data: not wanted
};

// The two live planes.
struct slab {
    qx_long nx, ny, plane;
    bit_plane above[2];  // nodes of the lower and the upper plane
    bit_plane null[2];   // the same; in use only where nodes may be null
    bit_plane walked[2]; // cells without a null corner, of the slab below and of this one; likewise
    bit_plane constant;  // row 0: no cell, row 1: all cells
    qx_long *x_slots[2]; // edges along i in the lower and the upper plane, by in-plane node
    qx_long *y_slots[2]; // along j, likewise
    qx_long *z_slots[2]; // along k, at the lower and the upper row of nodes, by i
};

// A row of cells as bits.
struct cell_row {
    const bit_word *corners[4]; // nodes above, at the corners k + 2 j: in the bit order of a case index
    const bit_word *cells;      // cells to walk
    // Cells walked before, in the rows one step back on the axes named; none beyond the mesh.
    const bit_word *back_j, *back_k, *back_jk, *back_k_next_j;
};

struct crossed_cell {
    uint16_t i;     // from the start of the piece
    uint16_t fresh; // edges that get a new number where they are crossed
    unsigned char index;
};

// The crossed cells of a piece of a row, and what they will add.
struct row_piece {
    int ncells, ntriangles, nnodes;
    crossed_cell cells[words_a_piece * word_bits];
};

} // namespace

static unsigned bit_at(const bit_word *row, qx_long i)
{
    return static_cast<unsigned>(row[i >> 6] >> (i & 63) & 1);
}

// The edges of cell i that no cell walked before it has.
static unsigned fresh_edges(const cell_row &row, qx_long i)
{
    const unsigned back_i = bit_at(row.cells, i - 1);
    const unsigned back_j = bit_at(row.back_j, i);
    const unsigned back_k = bit_at(row.back_k, i);
    const unsigned known = (back_j | back_k | bit_at(row.back_jk, i)) << 0 |    //
                           (back_k | bit_at(row.back_k_next_j, i)) << 1 |       //
                           back_j << 2 |                                        //
                           (back_i | back_k | bit_at(row.back_k, i - 1)) << 4 | //
                           (back_k | bit_at(row.back_k, i + 1)) << 5 |          //
                           back_i << 6 |                                        //
                           (back_i | back_j | bit_at(row.back_j, i - 1)) << 8 | //
                           (back_j | bit_at(row.back_j, i + 1)) << 9 |          //
                           back_i << 10;
    return ~known & 0xFFF;
}

// First pass over the words from first_word on.
static void list_crossed(const cell_row &row, qx_long first_word, int nwords, row_piece *piece)
{
    const bit_word *r0 = row.corners[0], *r1 = row.corners[1], *r2 = row.corners[2], *r3 = row.corners[3];
    crossed_cell *next = piece->cells;
    int ntriangles = 0, nnodes = 0;
    qx_long w = first_word;
    bit_word any = r0[w] | r1[w] | r2[w] | r3[w], all = r0[w] & r1[w] & r2[w] & r3[w];
    for (int p = 0; p < nwords; ++p, ++w) {
        const bit_word next_any = r0[w + 1] | r1[w + 1] | r2[w + 1] | r3[w + 1];
        const bit_word next_all = r0[w + 1] & r1[w + 1] & r2[w + 1] & r3[w + 1];
        const bit_word crossed =
            (any | from_next(any, next_any)) & ~(all & from_next(all, next_all)) & row.cells[w];
        any = next_any;
        all = next_all;
        if (crossed == 0) continue;

        // Where no edge but the cell's own can be fresh: each other one has a walked cell further back.
        const bit_word back_i = from_previous(row.cells[w], row.cells[w - 1]);
        const bit_word back_k = row.back_k[w];
        const bit_word plain =
            back_i & row.back_j[w] & (back_k | (row.back_k_next_j[w] & from_next(back_k, row.back_k[w + 1])));

        // Half a word of cells at a time, so that both nodes of a cell's edge along i are in one word.
        for (int half = 0; half < word_bits; half += word_bits / 2) {
            uint32_t cells = static_cast<uint32_t>(crossed >> half);
            if (cells == 0) continue;
            const bit_word h0 = r0[w] >> half | r0[w + 1] << 1 << (63 - half);
            const bit_word h1 = r1[w] >> half | r1[w + 1] << 1 << (63 - half);
            const bit_word h2 = r2[w] >> half | r2[w + 1] << 1 << (63 - half);
            const bit_word h3 = r3[w] >> half | r3[w + 1] << 1 << (63 - half);
            const uint32_t plain_half = static_cast<uint32_t>(plain >> half);
            do {
                const int s = __builtin_ctz(cells);
                cells &= cells - 1;
                const unsigned index = static_cast<unsigned>((h0 >> s & 3) | (h1 >> s & 3) << 2 |
                                                             (h2 >> s & 3) << 4 | (h3 >> s & 3) << 6);
                const int at = p * word_bits + half + s;
                unsigned fresh = own_edges;
                int added = lattice_cases.row[index].nown;
                if ((plain_half >> s & 1) == 0) {
                    fresh = fresh_edges(row, first_word * word_bits + at);
                    added = 0;
                    for (int e = 0; e < lattice_cases.row[index].nedges; ++e)
                        added += fresh >> lattice_cases.row[index].edges[e] & 1;
                }
                *next++ = {static_cast<uint16_t>(at), static_cast<uint16_t>(fresh),
                           static_cast<unsigned char>(index)};
                ntriangles += lattice_cases.row[index].ntriangles;
                nnodes += added;
            } while (cells != 0);
        }
    }
    piece->ncells = static_cast<int>(next - piece->cells);
    piece->ntriangles = ntriangles;
    piece->nnodes = nnodes;
}

// Where the edges of a row's cells have their slots, and their lower nodes, both for the piece's first cell.
struct row_edges {
    qx_long *slot[12];
    qx_long low_node[12];
    qx_long step[3]; // from the lower node to the upper one
};

static row_edges edges_of_row(const slab &slab, qx_long first_node, qx_long j, qx_long i)
{
    row_edges row;
    row.step[0] = 1;
    row.step[1] = slab.nx;
    row.step[2] = slab.plane;
    const qx_long at = slab.nx * j + i;
    for (int fast = 0; fast < 2; ++fast) {
        for (int slow = 0; slow < 2; ++slow) {
            const int e = fast + 2 * slow;
            row.slot[e] = slab.x_slots[slow] + at + fast * slab.nx;
            row.slot[4 + e] = slab.y_slots[slow] + at + fast;
            row.slot[8 + e] = slab.z_slots[slow] + i + fast;
            row.low_node[e] = first_node + at + fast * slab.nx + slow * slab.plane;
            row.low_node[4 + e] = first_node + at + fast + slow * slab.plane;
            row.low_node[8 + e] = first_node + at + fast + slow * slab.nx;
        }
    }
    return row;
}

// Second pass: new nodes and triangles of the listed cells. The lists have room.
static void write_cells(const row_piece &piece, const row_edges &row, qx_long first_cell, surface *out)
{
    const qx_long upper_corner = row.low_node[own_edge[0]] + 1;
    qx_long *min_node = out->min_node.data, *max_node = out->max_node.data;
    qx_long nnodes = out->min_node.used;
    qx_long *triangles = out->triangles.data + out->triangles.used;
    qx_long *map = out->map.data != nullptr ? out->map.data + out->map.used : nullptr;

    for (int n = 0; n < piece.ncells; ++n) {
        const crossed_cell &cell = piece.cells[n];
        const lattice_case &cell_case = lattice_cases.row[cell.index];
        const qx_long i = cell.i;
        if (cell.fresh == own_edges) {
            for (int axis = 0; axis < 3; ++axis) {
                const qx_long number = nnodes + cell_case.own_rank[axis];
                row.slot[own_edge[axis]][i] = number;
                min_node[number] = upper_corner + i - row.step[axis];
                max_node[nnodes + axis] = upper_corner + i;
            }
            nnodes += cell_case.nown;
        } else {
            for (int e = 0; e < cell_case.nedges; ++e) {
                const int edge = cell_case.edges[e];
                if ((cell.fresh >> edge & 1) == 0) continue;
                row.slot[edge][i] = nnodes;
                min_node[nnodes] = row.low_node[edge] + i;
                max_node[nnodes] = row.low_node[edge] + i + row.step[edge >> 2];
                ++nnodes;
            }
        }
        const int nentries = 3 * cell_case.ntriangles;
        for (int t = 0; t < 6; ++t)
            triangles[t] = row.slot[cell_case.triangles[t]][i];
        if (nentries > 6)
            for (int t = 6; t < 15; ++t)
                triangles[t] = row.slot[cell_case.triangles[t]][i];
        triangles += nentries;
        if (map != nullptr)
            for (int t = 0; t < cell_case.ntriangles; ++t)
                *map++ = first_cell + i;
    }
    out->min_node.used = out->max_node.used = nnodes;
    out->triangles.used += 3 * static_cast<qx_long>(piece.ntriangles);
    out->map.used += piece.ntriangles;
}

static cell_row bits_of_row(const slab &slab, bool nulls, qx_long k, qx_long j)
{
    const bit_word *none = slab.constant.row(0), *all = slab.constant.row(1);
    // The cells walked in row j + dj of this slab or of the one below.
    const auto walked = [&](bool here, qx_long dj) {
        const bool in_mesh = (here || k > 0) && j + dj >= 0 && j + dj < slab.ny - 1;
        return !in_mesh ? none : nulls ? slab.walked[here].row(j + dj) : all;
    };
    return {{slab.above[0].row(j), slab.above[1].row(j), slab.above[0].row(j + 1), slab.above[1].row(j + 1)},
            walked(true, 0),
            walked(true, -1),
            walked(false, 0),
            walked(false, -1),
            walked(false, 1)};
}

static walk_result grow_surface(surface *out, const row_piece &piece, double done)
{
    if (!make_room_for(&out->max_node, piece.nnodes, node_margin, done, ALLOC_AT("iso_stct")) ||
        !make_room_for(&out->min_node, piece.nnodes, node_margin, done, ALLOC_AT("iso_stct")))
        return walk_result::no_node_memory;
    if (out->map.data != nullptr &&
        !make_room_for(&out->map, piece.ntriangles, 0, done, ALLOC_AT("iso_stct")))
        return walk_result::no_map_memory;
    if (!make_room_for(&out->triangles, 3 * piece.ntriangles, triangle_margin, done, ALLOC_AT("iso_stct")))
        return walk_result::no_connect_memory;
    return walk_result::done;
}

// done: the share of the mesh's slabs that is behind the walk after this one.
static walk_result walk_row(const slab &slab, bool nulls, qx_long k, qx_long j, double done, surface *out)
{
    const cell_row row = bits_of_row(slab, nulls, k, j);
    const qx_long nwords = words_for(slab.nx - 1);
    row_piece piece;
    for (qx_long w = 0; w < nwords; w += words_a_piece) {
        list_crossed(row, w, static_cast<int>(std::min<qx_long>(nwords - w, words_a_piece)), &piece);
        if (piece.ncells == 0) continue;
        const walk_result grown = grow_surface(out, piece, done);
        if (grown != walk_result::done) return grown;
        const qx_long first = w * word_bits;
        write_cells(piece, edges_of_row(slab, slab.plane * k, j, first),
                    ((slab.ny - 1) * k + j) * (slab.nx - 1) + first, out);
    }
    return walk_result::done;
}

static walk_result walk_slabs(slab *slab, const flag_source &source, qx_long nplanes, surface *out)
{
    if (nplanes < 2) return walk_result::done;
    const float factor = static_cast<float>(100.0 / static_cast<double>(nplanes - 1));
    source.flag_rows(source, 0, slab->nx, slab->ny, slab->above[0], slab->null[0]);
    for (qx_long k = 0; k < nplanes - 1; ++k) {
        if (k % 8 == 7 && interrupted(static_cast<int>(static_cast<float>(k) * factor)))
            return walk_result::interrupted;
        source.flag_rows(source, slab->plane * (k + 1), slab->nx, slab->ny, slab->above[1], slab->null[1]);
        const double done = static_cast<double>(k + 1) / static_cast<double>(nplanes - 1);
        for (qx_long j = 0; j < slab->ny - 1; ++j) {
            const bit_word *null_rows[4] = {slab->null[0].row(j), slab->null[1].row(j),
                                            slab->null[0].row(j + 1), slab->null[1].row(j + 1)};
            if (source.nulls)
                find_walked(slab->constant.row(1), null_rows, 4, words_for(slab->nx - 1),
                            slab->walked[1].row(j));
            const walk_result walked = walk_row(*slab, source.nulls, k, j, done, out);
            if (walked != walk_result::done) return walked;
            std::swap(slab->z_slots[0], slab->z_slots[1]);
        }
        std::swap(slab->above[0], slab->above[1]);
        std::swap(slab->null[0], slab->null[1]);
        std::swap(slab->walked[0], slab->walked[1]);
        std::swap(slab->x_slots[0], slab->x_slots[1]);
        std::swap(slab->y_slots[0], slab->y_slots[1]);
    }
    return walk_result::done;
}

static void release_surface(surface *out)
{
    for (batch_list *list : {&out->min_node, &out->max_node, &out->triangles, &out->map})
        release_list(list, ALLOC_AT("iso_stct"));
}

static bool open_surface(surface *out, bool mapped)
{
    if (open_list(&out->triangles, first_triangle_entries, ALLOC_AT("iso_stct")) &&
        open_list(&out->max_node, first_nodes, ALLOC_AT("iso_stct")) &&
        open_list(&out->min_node, first_nodes, ALLOC_AT("iso_stct")) &&
        (!mapped || open_list(&out->map, first_map_entries, ALLOC_AT("iso_stct"))))
        return true;
    release_surface(out);
    return false;
}

static walk_result extract(const mesh_info *mesh, const flag_source &source, surface *out)
{
    slab slab = {};
    slab.nx = mesh->dims[0];
    slab.ny = mesh->dims[1];
    slab.plane = slab.nx * slab.ny;

    scratch memory;
    qx_long *slots = memory.keep(
        static_cast<qx_long *>(malloc(static_cast<size_t>(4 * slab.plane + 2 * slab.nx) * sizeof(qx_long))));
    if (slots == nullptr) return walk_result::no_node_memory;
    const qx_long in_plane = bit_plane::length(slab.nx, slab.ny);
    bit_word *flags = memory.keep(insist_zeroed<bit_word>(
        bit_plane::length(slab.nx, 2) + in_plane * (source.nulls ? 6 : 2), "Cannot alloc flags array"));

    slab.constant = {flags, bit_plane::stride_of(slab.nx)};
    flags += bit_plane::length(slab.nx, 2);
    set_first_bits(slab.constant.row(1), slab.nx - 1);
    for (int side = 0; side < 2; ++side) {
        bit_plane *planes[3] = {&slab.above[side], &slab.null[side], &slab.walked[side]};
        for (int p = 0; p < (source.nulls ? 3 : 1); ++p, flags += in_plane)
            *planes[p] = {flags, slab.constant.stride};
        slab.x_slots[side] = slots + side * slab.plane;
        slab.y_slots[side] = slots + (2 + side) * slab.plane;
        slab.z_slots[side] = slots + 4 * slab.plane + side * slab.nx;
    }
    return walk_slabs(&slab, source, mesh->dims[2], out);
}

template <typename T>
static int slice_str(const mesh_info *mesh, const T *data, int null_flag, T null_value, double level,
                     qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *ntri,
                     qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map)
{
    if (mesh->ndim != 3) return 0;
    surface out;
    if (!open_surface(&out, cell_map_count != nullptr)) return 0;
    const walk_result result =
        with_flags(data, mesh->nnodes, level, null_flag, null_value,
                   [mesh, &out](const flag_source &source) { return extract(mesh, source, &out); });
    if (result != walk_result::done) {
        release_surface(&out);
        if (result == walk_result::interrupted) return -1;
        if (result == walk_result::no_map_memory) report_error("UTILslice", "realloc for cell list failed");
        if (result == walk_result::no_connect_memory)
            report_error("slice_struct", "realloc for connect list failed");
        return 0;
    }
    *nnodes_out = out.min_node.used;
    *min_node = out.min_node.data;
    *max_node = out.max_node.data;
    *ntri_conn = out.triangles.used;
    *ntri = out.triangles.used / 3;
    *tri_conn = out.triangles.data;
    if (cell_map_count != nullptr) {
        *cell_map_count = out.map.used;
        *cell_map = out.map.data;
    }
    interrupted(100);
    return 1;
}

int UTILslice_struct(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                     double level, qx_long *nnodes_out, qx_long **min_node, qx_long **max_node,
                     qx_long *nline, qx_long **line_conn, qx_long *nline_conn, qx_long *ntri,
                     qx_long **tri_conn, qx_long *ntri_conn, qx_long *cell_map_count, qx_long **cell_map)
{
    *nnodes_out = *nline = *nline_conn = *ntri = *ntri_conn = 0;
    *min_node = *max_node = *line_conn = *tri_conn = nullptr;
    if (cell_map_count != nullptr) {
        *cell_map_count = 0;
        *cell_map = nullptr;
    }
    if (mesh->ndim < 2) return 0;
    if (mesh->ndim == 2)
        return UTILisoline_struct(mesh, data, data_type, null_flag, null_value, level, nnodes_out, min_node,
                                  max_node, nline, line_conn, nline_conn, cell_map_count, cell_map);
    return with_dtype_silent(data_type, [=](auto type) {
        using T = typename decltype(type)::type;
        return slice_str(mesh, static_cast<const T *>(data), null_flag,
                         null_value_of<T>(null_flag, null_value), level, nnodes_out, min_node, max_node, ntri,
                         tri_conn, ntri_conn, cell_map_count, cell_map);
    });
}
