// Isolines over structured meshes of two axes, one row of cells between two rows of nodes at a time.
//
// The idea is that of the structured isosurface (iso_stct.cpp) one dimension down: node flags as bits,
// crossed cells found 64 at a time, a slot for each edge of the two live rows. Here each crossed edge is an
// entry of a line as it comes, and a cell has only two edges that an earlier cell may have numbered: the one
// at its lower row and the one at its lower column.
// Memory: bits and slots of two rows. Time: nodes / 64, and the crossed cells.
#include <skoklana/iso.h>

#include "dtype.hpp"
#include "grow.hpp"
#include "isoline_cases.hpp"
#include "level_bits.hpp"
#include "memory.hpp"

#include <utility>

namespace {

constexpr qx_long first_line_capacity = 1000; // of every list
// A cell makes at most 2 lines, 4 entries, and as many new nodes.
constexpr qx_long line_margin = 8;
constexpr qx_long line_node_margin = 2;

enum cell_edge {
    low_i_edge,
    high_i_edge,
    low_j_edge,
    high_j_edge
}; // along i at row j, j + 1; along j at i, i + 1

struct ring_case {
    unsigned char nedges, edges[4]; // crossed, in the order in which they get their numbers, two a line
};

struct ring_case_table {
    ring_case row[16];
};

// By the bits of the lower and the upper node row: corners 0, 1, 3, 2 of the ring.
constexpr ring_case_table derive_ring_cases()
{
    constexpr unsigned char edge_from_corner[4] = {low_i_edge, high_j_edge, high_i_edge, low_j_edge};
    ring_case_table table = {};
    for (int index = 0; index < 16; ++index) {
        const int ring_index = (index & 3) | (index & 4) << 1 | (index & 8) >> 1;
        const isoline_case &from = isoline_quad_table.row[ring_index];
        table.row[index].nedges = from.npoints;
        for (int p = 0; p < from.npoints; ++p)
            table.row[index].edges[p] = edge_from_corner[from.left[p]];
    }
    return table;
}

constexpr ring_case_table ring_cases = derive_ring_cases();

struct line_set {
    batch_list min_node, max_node; // new nodes
    batch_list lines;              // new nodes, two a line
    batch_list map;                // the cell of each line; no data: not wanted
};

// The two live rows of nodes and the rows of cells between and below them.
struct strip {
    qx_long nx;
    bit_plane above[2];  // nodes of row j and row j + 1
    bit_plane null[2];   // the same; in use only where nodes may be null
    bit_plane walked[2]; // cells of row j - 1 and row j that are walked
    bit_plane all_cells;
    qx_long *slots[4]; // by edge, then i
};

struct crossed_ring {
    uint16_t i; // from the start of the piece
    unsigned char index;
    unsigned char fresh; // edges that get a new number where they are crossed
};

// The crossed cells of a piece of a row, and what they will add.
struct strip_piece {
    int ncells, nentries, nnodes;
    crossed_ring cells[words_a_piece * word_bits];
};

} // namespace

// First pass over the words from first_word on.
static void list_crossed_rings(const strip &strip, qx_long first_word, int nwords, strip_piece *piece)
{
    const bit_word *low = strip.above[0].row(0), *high = strip.above[1].row(0);
    const bit_word *cells_to_walk = strip.walked[1].row(0), *back_j = strip.walked[0].row(0);
    crossed_ring *next = piece->cells;
    int nentries = 0, nnodes = 0;
    for (int p = 0; p < nwords; ++p) {
        const qx_long w = first_word + p;
        const bit_word low_right = from_next(low[w], low[w + 1]),
                       high_right = from_next(high[w], high[w + 1]);
        const bit_word any = low[w] | high[w] | low_right | high_right;
        const bit_word all = low[w] & high[w] & low_right & high_right;
        const bit_word back_i = from_previous(cells_to_walk[w], cells_to_walk[w - 1]);
        for (bit_word cells = any & ~all & cells_to_walk[w]; cells != 0; cells &= cells - 1) {
            const int s = __builtin_ctzll(cells);
            const unsigned index =
                static_cast<unsigned>((low[w] >> s & 1) | (low_right >> s & 1) << 1 |
                                      (high[w] >> s & 1) << 2 | (high_right >> s & 1) << 3);
            const unsigned known =
                static_cast<unsigned>((back_j[w] >> s & 1) << low_i_edge | (back_i >> s & 1) << low_j_edge);
            const ring_case &ring = ring_cases.row[index];
            for (int e = 0; e < ring.nedges; ++e)
                nnodes += (known >> ring.edges[e] & 1) == 0;
            nentries += ring.nedges;
            *next++ = {static_cast<uint16_t>(p * word_bits + s), static_cast<unsigned char>(index),
                       static_cast<unsigned char>(~known & 15)};
        }
    }
    piece->ncells = static_cast<int>(next - piece->cells);
    piece->nentries = nentries;
    piece->nnodes = nnodes;
}

// Second pass: new nodes and lines of the listed cells, the first of them at node first. The lists have room.
static void write_rings(const strip &strip, const strip_piece &piece, qx_long first_column,
                        qx_long first_node, qx_long first_cell, line_set *out)
{
    const qx_long low_node[4] = {first_node, first_node + strip.nx, first_node, first_node + 1};
    const qx_long step[4] = {1, 1, strip.nx, strip.nx};
    qx_long nnodes = out->min_node.used;
    qx_long *entry = out->lines.data + out->lines.used;
    for (int n = 0; n < piece.ncells; ++n) {
        const crossed_ring &cell = piece.cells[n];
        const ring_case &ring = ring_cases.row[cell.index];
        for (int e = 0; e < ring.nedges; ++e) {
            const int edge = ring.edges[e];
            qx_long *slot = &strip.slots[edge][first_column + cell.i];
            if ((cell.fresh >> edge & 1) != 0) {
                out->min_node.data[nnodes] = low_node[edge] + cell.i;
                out->max_node.data[nnodes] = low_node[edge] + cell.i + step[edge];
                *slot = nnodes++;
            }
            *entry++ = *slot;
        }
        if (out->map.data != nullptr)
            for (int line = 0; line < ring.nedges / 2; ++line)
                out->map.data[out->map.used++] = first_cell + cell.i;
    }
    out->min_node.used = out->max_node.used = nnodes;
    out->lines.used += piece.nentries;
}

static walk_result grow_lines(line_set *out, const strip_piece &piece, double done)
{
    if (!make_room_for(&out->max_node, piece.nnodes, line_node_margin, done, ALLOC_AT("isoline_stct")) ||
        !make_room_for(&out->min_node, piece.nnodes, line_node_margin, done, ALLOC_AT("isoline_stct")))
        return walk_result::no_node_memory;
    if (out->map.data != nullptr &&
        !make_room_for(&out->map, piece.nentries / 2, 0, done, ALLOC_AT("isoline_stct")))
        return walk_result::no_map_memory;
    if (!make_room_for(&out->lines, piece.nentries, line_margin, done, ALLOC_AT("isoline_stct")))
        return walk_result::no_connect_memory;
    return walk_result::done;
}

static walk_result walk_strips(strip *strip, const flag_source &source, qx_long nrows, line_set *out)
{
    const qx_long nx = strip->nx, nwords = words_for(nx - 1);
    if (nrows < 2) return walk_result::done;
    strip_piece piece;
    source.flag_rows(source, 0, nx, 1, strip->above[0], strip->null[0]);
    for (qx_long j = 0; j < nrows - 1; ++j) {
        source.flag_rows(source, nx * (j + 1), nx, 1, strip->above[1], strip->null[1]);
        const bit_word *null_rows[2] = {strip->null[0].row(0), strip->null[1].row(0)};
        find_walked(strip->all_cells.row(0), null_rows, source.nulls ? 2 : 0, nwords,
                    strip->walked[1].row(0));
        const double done = static_cast<double>(j + 1) / static_cast<double>(nrows - 1);
        for (qx_long w = 0; w < nwords; w += words_a_piece) {
            list_crossed_rings(*strip, w, static_cast<int>(std::min<qx_long>(nwords - w, words_a_piece)),
                               &piece);
            if (piece.ncells == 0) continue;
            const walk_result grown = grow_lines(out, piece, done);
            if (grown != walk_result::done) return grown;
            const qx_long i = w * word_bits;
            write_rings(*strip, piece, i, nx * j + i, (nx - 1) * j + i, out);
        }
        std::swap(strip->above[0], strip->above[1]);
        std::swap(strip->null[0], strip->null[1]);
        std::swap(strip->walked[0], strip->walked[1]);
        std::swap(strip->slots[low_i_edge], strip->slots[high_i_edge]);
    }
    return walk_result::done;
}

static void release_lines(line_set *out)
{
    for (batch_list *list : {&out->min_node, &out->max_node, &out->lines, &out->map})
        release_list(list, ALLOC_AT("isoline_stct"));
}

static bool open_lines(line_set *out, bool mapped)
{
    for (batch_list *list : {&out->lines, &out->max_node, &out->min_node, &out->map}) {
        if (list == &out->map && !mapped) continue;
        if (open_list(list, first_line_capacity, ALLOC_AT("isoline_stct"))) continue;
        release_lines(out);
        return false;
    }
    return true;
}

static walk_result extract_lines(const mesh_info *mesh, const flag_source &source, line_set *out)
{
    strip strip = {};
    strip.nx = mesh->dims[0];

    scratch memory;
    qx_long *slots =
        memory.keep(static_cast<qx_long *>(malloc(3 * static_cast<size_t>(strip.nx) * sizeof(qx_long))));
    if (slots == nullptr) return walk_result::no_node_memory;
    strip.slots[low_i_edge] = slots;
    strip.slots[high_i_edge] = slots + strip.nx;
    strip.slots[low_j_edge] = slots + 2 * strip.nx;
    strip.slots[high_j_edge] = slots + 2 * strip.nx + 1;

    const qx_long in_row = bit_plane::length(strip.nx, 1);
    bit_word *flags = memory.keep(insist_zeroed<bit_word>(7 * in_row, "Cannot alloc flags array"));
    for (bit_plane *plane : {&strip.above[0], &strip.above[1], &strip.null[0], &strip.null[1],
                             &strip.walked[0], &strip.walked[1], &strip.all_cells}) {
        *plane = {flags, bit_plane::stride_of(strip.nx)};
        flags += in_row;
    }
    set_first_bits(strip.all_cells.row(0), strip.nx - 1);
    return walk_strips(&strip, source, mesh->dims[1], out);
}

template <typename T>
static int isoline_str(const mesh_info *mesh, const T *data, int null_flag, T null_value, double level,
                       qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, qx_long *nline,
                       qx_long **line_conn, qx_long *nline_conn, qx_long *cell_map_count, qx_long **cell_map)
{
    line_set out;
    if (!open_lines(&out, cell_map_count != nullptr)) return 0;
    const walk_result result =
        with_flags(data, mesh->nnodes, level, null_flag, null_value,
                   [mesh, &out](const flag_source &source) { return extract_lines(mesh, source, &out); });
    if (result != walk_result::done) {
        release_lines(&out);
        if (result == walk_result::no_map_memory) report_error("UTILisoline", "realloc for cell list failed");
        if (result == walk_result::no_connect_memory)
            report_error("UTILisoline", "realloc for connect list failed");
        return 0;
    }
    *nnodes_out = out.min_node.used;
    *min_node = out.min_node.data;
    *max_node = out.max_node.data;
    *nline = out.lines.used / 2;
    *nline_conn = out.lines.used;
    *line_conn = out.lines.data;
    if (cell_map_count != nullptr) {
        *cell_map_count = out.map.used;
        *cell_map = out.map.data;
    }
    return 1;
}

int UTILisoline_struct(mesh_info *mesh, const void *data, int data_type, int null_flag,
                       const void *null_value, double level, qx_long *nnodes_out, qx_long **min_node,
                       qx_long **max_node, qx_long *nline, qx_long **line_conn, qx_long *nline_conn,
                       qx_long *cell_map_count, qx_long **cell_map)
{
    *nnodes_out = *nline = *nline_conn = 0;
    *min_node = *max_node = *line_conn = nullptr;
    if (cell_map_count != nullptr) {
        *cell_map_count = 0;
        *cell_map = nullptr;
    }
    if (mesh->ndim < 2) return 0;
    return with_dtype_silent(data_type, [=](auto type) {
        using T = typename decltype(type)::type;
        return isoline_str(mesh, static_cast<const T *>(data), null_flag,
                           null_value_of<T>(null_flag, null_value), level, nnodes_out, min_node, max_node,
                           nline, line_conn, nline_conn, cell_map_count, cell_map);
    });
}
