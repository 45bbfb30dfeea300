// The walk over the cells of a structured mesh of two or three axes, one slab of cells between two planes of
// nodes at a time. On two axes a plane is one row of nodes.
//
// Node flags hold one bit a node (level_bits.hpp). Of the node rows around a row of cells take the or and the
// and, and join each bit with its upper neighbour:
//     any = or  | or  << 1 side      a corner passes the test
//     all = and & and << 1 side      all corners do
// The crossed cells are any & ~all, 64 at a time, the whole ones all, and nothing is done for a cell that is
// neither. With two tests, of a lower and an upper level, whole are the cells that all pass the first and none
// the second, and crossed are those that are neither whole nor all below nor all above. Cells with a null
// corner are taken out by a second set of bits.
//
// New nodes get their numbers in order of first sight: cells by i, then j, then k, a cell's crossed edges in
// the order that its case gives. Every edge of the two live planes has a slot that holds its number. Whether an
// edge is new is known from the place alone: it is, if no earlier cell that was walked has it. All but the own
// edges of a cell have such earlier cells (lattice_edges.hpp), and where these are in the range and not null a
// cell makes its own edges only, by stores without a test. Slots are never cleared: one is read only after it
// was written.
//
// A row of cells is taken a piece at a time, in two passes: the first lists the crossed cells with their cases
// and counts what they will add, then the lists grow if they must, and the second pass writes without a test.
// Memory: bits and slots of two planes. Time: nodes / 64, and the crossed cells.
//
// What becomes of the cells is for a sink to say. A sink is a record derived from lattice_sink with
//
//     struct tally                     what the cells of a piece will add; add(cell) counts one of them
//     order(index)                     the crossed edges of a case, for sinks of one test
//     make_room(tally, nwhole, done)   lets its lists grow; done: the share of the walk behind it after this slab
//     begin(place), end(writer)        the second pass over a piece: a writer lives in registers in between, and
//         writer.take(cell, edges, nodes)   writes a crossed cell; of one test its edges have their numbers,
//                                           of two tests the writer calls number_edges itself
//     take_whole(place, words, nwords) writes the whole cells of a piece, bits from place.i on
//
// A walk takes a range of cell planes as it takes all: cells and nodes keep the numbers that they have in the
// mesh, new nodes count from 0. lattice_parts.hpp has walks over parts that together are the walk over the whole.
#pragma once

#include "lattice_edges.hpp"
#include "lattice_lists.hpp"
#include "level_bits.hpp"
#include "memory.hpp"
#include "status.hpp"

#include <algorithm>
#include <cstdint>
#include <utility>

// Words of a row of cells that are taken at a time: what their cells add is counted before any of it is
// written.
constexpr int words_a_piece = 16;

// Planes of cells.
struct plane_range {
    qx_long first, end;
};

template <int naxes> plane_range all_planes(const qx_long *dims)
{
    return {0, std::max<qx_long>(dims[naxes - 1] - 1, 0)};
}

template <int ntests> struct lattice_cell {
    uint16_t i;     // from the start of the piece
    uint16_t fresh; // edges that get a new number where they are crossed
    // Which corners pass each test: bits along i, then along the axis from plane to plane, then along j.
    unsigned char index[ntests];
};

// The first cell of a piece.
struct piece_place {
    qx_long i, j, k;
    qx_long node; // its lowest corner
    qx_long cell; // its number in the mesh
};

template <int naxes_, int ntests_, class List = batch_list> struct lattice_sink {
    static constexpr int naxes = naxes_, ntests = ntests_;
    static constexpr bool wants_whole = false;
    using nodes_type = edge_nodes_of<List>;

    // Called when the nodes of plane k have been flagged, and when the cells of slab k have been taken.
    lattice_end enter_plane(qx_long) { return lattice_end::done; }
    lattice_end leave_slab(qx_long) { return lattice_end::done; }
};

template <int naxes> qx_long plane_size(const qx_long *dims)
{
    return naxes == 3 ? dims[0] * dims[1] : dims[0];
}

// The piece from word w of the row of cells j of slab k on; j is 0 on two axes.
template <int naxes> piece_place place_of(const qx_long *dims, qx_long w, qx_long j, qx_long k)
{
    const qx_long i = w * word_bits, nrows = naxes == 3 ? dims[1] - 1 : 1;
    return {i, j, k, plane_size<naxes>(dims) * k + dims[0] * j + i, (nrows * k + j) * (dims[0] - 1) + i};
}

// ---- slots -------------------------------------------------------------------------------------------------

// Numbers of edges, a set for each level. Edges in a plane stand by their lower node in it, those across from
// plane to plane by the i of theirs.
template <int naxes, int nlevels> struct edge_slots {
    struct level_slots {
        qx_long *along_i[2], *along_j[2]; // in the lower and the upper plane; no j on two axes
        qx_long *across[2];               // at the lower and the upper row of nodes; on two axes there is one
    };
    level_slots of_level[nlevels];
    scratch memory;

    bool open(const qx_long *dims)
    {
        const qx_long nx = dims[0], plane = plane_size<naxes>(dims);
        const qx_long a_level = naxes == 3 ? 4 * plane + 2 * nx : 3 * nx;
        qx_long *slots = memory.borrow<qx_long>(nlevels * a_level);
        if (slots == nullptr) return false;
        for (level_slots &level : of_level) {
            for (int side = 0; side < 2; ++side) {
                level.along_i[side] = slots + side * plane;
                level.along_j[side] = naxes == 3 ? slots + (2 + side) * plane : nullptr;
                level.across[side] = slots + (naxes == 3 ? 4 * plane + side * nx : 2 * nx);
            }
            slots += a_level;
        }
        return true;
    }

    void next_row()
    {
        for (level_slots &level : of_level)
            std::swap(level.across[0], level.across[1]);
    }

    void next_plane()
    {
        for (level_slots &level : of_level) {
            std::swap(level.along_i[0], level.along_i[1]);
            std::swap(level.along_j[0], level.along_j[1]);
        }
    }
};

// Where the edges of the cells of a piece have their slots, and their lower nodes, both for its first cell.
template <int naxes, int nlevels> struct piece_edges {
    qx_long *slot[nlevels][edges_of_cell<naxes>];
    qx_long low_node[edges_of_cell<naxes>];
    qx_long step[naxes]; // from the lower node to the upper one
};

template <int naxes, int nlevels>
piece_edges<naxes, nlevels> edges_of_piece(const edge_slots<naxes, nlevels> &slots, const piece_place &place,
                                           qx_long nx, qx_long plane)
{
    piece_edges<naxes, nlevels> edges;
    const qx_long in_plane = nx * place.j + place.i;
    edges.step[0] = 1;
    if constexpr (naxes == 3) {
        edges.step[1] = nx;
        edges.step[2] = plane;
        for (int fast = 0; fast < 2; ++fast) {
            for (int slow = 0; slow < 2; ++slow) {
                const int e = fast + 2 * slow;
                for (int level = 0; level < nlevels; ++level) {
                    const auto &of_level = slots.of_level[level];
                    edges.slot[level][e] = of_level.along_i[slow] + in_plane + fast * nx;
                    edges.slot[level][4 + e] = of_level.along_j[slow] + in_plane + fast;
                    edges.slot[level][8 + e] = of_level.across[slow] + place.i + fast;
                }
                edges.low_node[e] = place.node + fast * nx + slow * plane;
                edges.low_node[4 + e] = place.node + fast + slow * plane;
                edges.low_node[8 + e] = place.node + fast + slow * nx;
            }
        }
    } else {
        edges.step[1] = plane;
        for (int end = 0; end < 2; ++end) {
            for (int level = 0; level < nlevels; ++level) {
                edges.slot[level][end] = slots.of_level[level].along_i[end] + in_plane;
                edges.slot[level][2 + end] = slots.of_level[level].across[0] + place.i + end;
            }
            edges.low_node[end] = place.node + end * plane;
            edges.low_node[2 + end] = place.node + end;
        }
    }
    return edges;
}

// The lists of new nodes while a piece is written.
struct node_writer {
    qx_long *min_node, *max_node, next;

    FORCE_INLINE void put_low(qx_long number, qx_long node) { min_node[number] = node; }
    FORCE_INLINE void put_high(qx_long number, qx_long node) { max_node[number] = node; }
};

// The same where someone else writes the lists.
struct node_counter {
    qx_long next;

    FORCE_INLINE void put_low(qx_long, qx_long) {}
    FORCE_INLINE void put_high(qx_long, qx_long) {}
};

// Numbers the crossed edges of a cell that are fresh. Its own edges are stored whether or not they are crossed.
template <int naxes, int nlevels, class Nodes>
FORCE_INLINE void number_edges(const piece_edges<naxes, nlevels> &edges, int level, qx_long i,
                               const edge_order<naxes> &crossed, unsigned fresh, Nodes *nodes)
{
    if (fresh == own_edges<naxes>) {
        const qx_long upper_corner = edges.low_node[own_edge<naxes>(0)] + 1 + i;
        for (int axis = 0; axis < naxes; ++axis) {
            const qx_long number = nodes->next + crossed.own_rank[axis];
            edges.slot[level][own_edge<naxes>(axis)][i] = number;
            nodes->put_low(number, upper_corner - edges.step[axis]);
            nodes->put_high(nodes->next + axis, upper_corner);
        }
        nodes->next += crossed.nown;
        return;
    }
    for (int e = 0; e < crossed.nedges; ++e) {
        const int edge = crossed.edges[e];
        if ((fresh >> edge & 1) == 0) continue;
        edges.slot[level][edge][i] = nodes->next;
        nodes->put_low(nodes->next, edges.low_node[edge] + i);
        nodes->put_high(nodes->next, edges.low_node[edge] + i + edges.step[edge / edges_an_axis<naxes>]);
        ++nodes->next;
    }
}

// ---- bits --------------------------------------------------------------------------------------------------

// The two live planes of nodes, and the slabs of cells below and between them.
template <int naxes, int ntests> struct live_planes {
    qx_long nx, plane;           // nodes of a row and of a plane
    qx_long nrows;               // rows of cells of a slab
    bit_plane passed[2][ntests]; // nodes of the lower and the upper plane, by test
    bit_plane null[2];           // the same; in use only where nodes may be null
    bit_plane walked[2];         // cells without a null corner, of the slab below and of this one; likewise
    bit_plane constant;          // row 0: no cell, row 1: all cells
    scratch memory;

    static qx_long plane_words(const qx_long *dims)
    {
        return bit_plane::length(dims[0], naxes == 3 ? dims[1] : 1);
    }
    static qx_long words_needed(const qx_long *dims, bool nulls)
    {
        return bit_plane::length(dims[0], 2) + plane_words(dims) * 2 * (ntests + (nulls ? 2 : 0));
    }
    static bit_word *insist_on(qx_long nwords)
    {
        return insist_zeroed<bit_word>(nwords, "Cannot alloc flags array");
    }

    live_planes(const qx_long *dims, bool nulls) : live_planes(dims, nulls, nullptr) {}

    // Upon words_needed words that are zeroed, or have served for the same planes; NULL: upon words of its own.
    live_planes(const qx_long *dims, bool nulls, bit_word *words)
    {
        nx = dims[0];
        plane = plane_size<naxes>(dims);
        nrows = naxes == 3 ? dims[1] - 1 : 1;
        const qx_long in_plane = plane_words(dims);
        if (words == nullptr) words = memory.keep(insist_on(words_needed(dims, nulls)));
        constant = {words, bit_plane::stride_of(nx)};
        words += bit_plane::length(nx, 2);
        set_first_bits(constant.row(1), nx - 1);
        const auto next = [&](bool in_use) {
            const bit_plane made = {in_use ? words : nullptr, constant.stride};
            if (in_use) words += in_plane;
            return made;
        };
        for (int side = 0; side < 2; ++side) {
            for (bit_plane &of_test : passed[side])
                of_test = next(true);
            null[side] = next(nulls);
            walked[side] = next(nulls);
        }
    }

    void next_plane()
    {
        std::swap(passed[0], passed[1]);
        std::swap(null[0], null[1]);
        std::swap(walked[0], walked[1]);
    }
};

// A row of cells as bits.
template <int naxes, int ntests> struct cell_row {
    // Nodes that pass each test, by the corners' places from plane to plane and then along j.
    const bit_word *corners[ntests][edges_an_axis<naxes>];
    const bit_word *cells; // cells to walk
    // Cells walked before, in the rows one step back on the axes named; none beyond the range.
    const bit_word *back_plane, *back_j, *back_plane_and_j, *back_plane_next_j;
};

// The cells of a row that have no null corner.
template <int naxes, int ntests> void find_walked(const live_planes<naxes, ntests> &live, qx_long j)
{
    const bit_word *cells = live.constant.row(1);
    const qx_long nwords = words_for(live.nx - 1);
    for (qx_long w = 0; w < nwords; ++w) {
        bit_word null = 0;
        for (int side = 0; side < 2; ++side)
            for (int dj = 0; dj < edges_an_axis<naxes> / 2; ++dj) {
                const bit_word *row = live.null[side].row(j + dj);
                null |= row[w] | from_next(row[w], row[w + 1]);
            }
        live.walked[1].row(j)[w] = cells[w] & ~null;
    }
}

template <int naxes, int ntests>
cell_row<naxes, ntests> bits_of_row(const live_planes<naxes, ntests> &live, qx_long j, bool in_first_slab)
{
    cell_row<naxes, ntests> row;
    for (int test = 0; test < ntests; ++test)
        for (int c = 0; c < edges_an_axis<naxes>; ++c)
            row.corners[test][c] = live.passed[c & 1][test].row(j + (c >> 1));
    // The cells walked in row j + dj of this slab or of the one below.
    const auto walked = [&](bool here, qx_long dj) -> const bit_word * {
        const bool in_range = (here || !in_first_slab) && j + dj >= 0 && j + dj < live.nrows;
        if (!in_range) return live.constant.row(0);
        return live.walked[here].words != nullptr ? live.walked[here].row(j + dj) : live.constant.row(1);
    };
    row.cells = walked(true, 0);
    row.back_plane = walked(false, 0);
    row.back_j = walked(true, -1);
    row.back_plane_and_j = walked(false, -1);
    row.back_plane_next_j = walked(false, 1);
    return row;
}

// The edges of cell i that no cell walked before it has.
template <int naxes, int ntests> unsigned fresh_edges(const cell_row<naxes, ntests> &row, qx_long i)
{
    const unsigned back_i = bit_at(row.cells, i - 1);
    const unsigned back_k = bit_at(row.back_plane, i);
    if constexpr (naxes == 2) return ~(back_k << 0 | back_i << 2) & 0xF;
    const unsigned back_j = bit_at(row.back_j, i);
    const unsigned known = (back_j | back_k | bit_at(row.back_plane_and_j, i)) << 0 | //
                           (back_k | bit_at(row.back_plane_next_j, i)) << 1 |         //
                           back_j << 2 |                                              //
                           (back_i | back_k | bit_at(row.back_plane, i - 1)) << 4 |   //
                           (back_k | bit_at(row.back_plane, i + 1)) << 5 |            //
                           back_i << 6 |                                              //
                           (back_i | back_j | bit_at(row.back_j, i - 1)) << 8 |       //
                           (back_j | bit_at(row.back_j, i + 1)) << 9 |                //
                           back_i << 10;
    return ~known & 0xFFF;
}

// The cells of word w for which no edge but their own can be fresh: each other one has a walked cell further
// back.
template <int naxes, int ntests>
FORCE_INLINE bit_word plain_cells(const cell_row<naxes, ntests> &row, qx_long w)
{
    const bit_word back_i = from_previous(row.cells[w], row.cells[w - 1]);
    const bit_word back_k = row.back_plane[w];
    if constexpr (naxes == 2) return back_i & back_k;
    return back_i & row.back_j[w] &
           (back_k | (row.back_plane_next_j[w] & from_next(back_k, row.back_plane[w + 1])));
}

// Ors and ands of the node rows around a row of cells.
template <int nrows> struct joined_rows {
    bit_word any, all;

    FORCE_INLINE joined_rows(const bit_word *const *rows, qx_long w)
    {
        any = all = rows[0][w];
        for (int r = 1; r < nrows; ++r) {
            any |= rows[r][w];
            all &= rows[r][w];
        }
    }
};

// ---- the two passes over a piece ---------------------------------------------------------------------------

// The crossed cells of a piece of a row, its whole ones, and what they will add.
template <int ntests, class Tally> struct row_piece {
    int nwords, ncells, nwhole;
    int nnodes; // of sinks of one test
    Tally tally;
    bit_word *whole; // a bit a cell, where whole cells are wanted
    lattice_cell<ntests> *cells;
};
template <typename Sink> using piece_for = row_piece<Sink::ntests, typename Sink::tally>;

// Room for the lists of one piece after the other, each of which is done with when the next begins.
template <typename Sink> struct piece_room {
    bit_word whole[Sink::wants_whole ? words_a_piece : 1];
    lattice_cell<Sink::ntests> cells[words_a_piece * word_bits];

    bool open(int, piece_for<Sink> *piece)
    {
        piece->whole = whole;
        piece->cells = cells;
        return true;
    }
};

// First pass over the words from first_word on. The lists of the piece have room.
template <typename Sink>
void list_cells(const cell_row<Sink::naxes, Sink::ntests> &row, qx_long first_word, int nwords,
                piece_for<Sink> *piece)
{
    constexpr int naxes = Sink::naxes, ntests = Sink::ntests, nrows = edges_an_axis<naxes>;
    lattice_cell<ntests> *next = piece->cells;
    typename Sink::tally tally = {};
    int nnodes = 0, nwhole = 0;
    qx_long w = first_word;
    using joined = joined_rows<nrows>;
    joined lower = {row.corners[0], w}, upper = {row.corners[ntests - 1], w};
    for (int p = 0; p < nwords; ++p, ++w) {
        const joined next_lower = {row.corners[0], w + 1}, next_upper = {row.corners[ntests - 1], w + 1};
        const bit_word any_lower = lower.any | from_next(lower.any, next_lower.any);
        const bit_word all_lower = lower.all & from_next(lower.all, next_lower.all);
        bit_word whole = all_lower, crossed = any_lower;
        if constexpr (ntests == 2) {
            whole &= ~(upper.any | from_next(upper.any, next_upper.any));
            crossed &= ~(upper.all & from_next(upper.all, next_upper.all));
            upper = next_upper;
        }
        lower = next_lower;
        crossed &= ~whole & row.cells[w];
        if constexpr (Sink::wants_whole) {
            piece->whole[p] = whole & row.cells[w];
            nwhole += count_set_bits(piece->whole[p]);
        }
        if (crossed == 0) continue;

        const bit_word plain = plain_cells(row, w);
        // Half a word of cells at a time, so that both nodes of a cell's edge along i are in one word.
        for (int half = 0; half < word_bits; half += word_bits / 2) {
            uint32_t cells = static_cast<uint32_t>(crossed >> half);
            if (cells == 0) continue;
            bit_word nodes[ntests][nrows];
            for (int test = 0; test < ntests; ++test)
                for (int r = 0; r < nrows; ++r) {
                    const bit_word *of_row = row.corners[test][r];
                    nodes[test][r] = of_row[w] >> half | of_row[w + 1] << 1 << (63 - half);
                }
            const uint32_t plain_half = static_cast<uint32_t>(plain >> half);
            do {
                const int s = __builtin_ctz(cells);
                cells &= cells - 1;
                const int at = p * word_bits + half + s;
                const bool is_plain = (plain_half >> s & 1) != 0;
                lattice_cell<ntests> cell;
                cell.i = static_cast<uint16_t>(at);
                for (int test = 0; test < ntests; ++test) {
                    bit_word index = 0;
                    for (int r = 0; r < nrows; ++r)
                        index |= (nodes[test][r] >> s & 3) << 2 * r;
                    cell.index[test] = static_cast<unsigned char>(index);
                }
                unsigned fresh = own_edges<naxes>;
                if (!is_plain) fresh = fresh_edges(row, first_word * word_bits + at);
                cell.fresh = static_cast<uint16_t>(fresh);
                if constexpr (ntests == 1) {
                    const edge_order<naxes> &order = Sink::order(cell.index[0]);
                    int added = order.nown;
                    if (!is_plain) {
                        added = 0;
                        for (int e = 0; e < order.nedges; ++e)
                            added += fresh >> order.edges[e] & 1;
                    }
                    nnodes += added;
                }
                tally.add(cell);
                *next++ = cell;
            } while (cells != 0);
        }
    }
    piece->nwords = nwords;
    piece->ncells = static_cast<int>(next - piece->cells);
    piece->nwhole = nwhole;
    piece->nnodes = nnodes;
    piece->tally = tally;
}

// Second pass. The lists have room.
template <typename Sink>
void write_cells(const piece_for<Sink> &piece, const piece_place &place,
                 const piece_edges<Sink::naxes, Sink::ntests> &edges, typename Sink::nodes_type *nodes,
                 Sink *sink)
{
    node_writer numbered = {nodes->min_node.data, nodes->max_node.data, nodes->min_node.used};
    auto writer = sink->begin(place);
    for (int n = 0; n < piece.ncells; ++n) {
        const lattice_cell<Sink::ntests> cell = piece.cells[n];
        if constexpr (Sink::ntests == 1)
            number_edges(edges, 0, cell.i, Sink::order(cell.index[0]), cell.fresh, &numbered);
        writer.take(cell, edges, &numbered);
    }
    sink->end(writer, piece.tally);
    nodes->min_node.used = nodes->max_node.used = numbered.next;
}

// ---- the walk ----------------------------------------------------------------------------------------------

// How often a walk looks at the status: at every eighth slab of the mesh, or never.
enum class lattice_checks { never, every_eighth_slab };

template <typename Sink> struct lattice_walk {
    static constexpr int naxes = Sink::naxes, ntests = Sink::ntests;
    const qx_long *dims;
    const flag_source &flags;
    edge_slots<naxes, ntests> *slots; // open
    typename Sink::nodes_type *nodes;
    Sink *sink;

    // Calls body(piece, place) for each piece of a row that has cells for the sink, until one fails.
    template <typename Room, typename Body>
    lattice_end for_each_piece(const live_planes<naxes, ntests> &live, qx_long j, qx_long k,
                               bool in_first_slab, Room *room, Body body) const
    {
        const cell_row<naxes, ntests> row = bits_of_row(live, j, in_first_slab);
        const qx_long nwords = words_for(live.nx - 1);
        piece_for<Sink> piece;
        for (qx_long w = 0; w < nwords; w += words_a_piece) {
            const int of_piece = static_cast<int>(std::min<qx_long>(nwords - w, words_a_piece));
            if (!room->open(of_piece, &piece)) return lattice_end::no_connect_memory;
            list_cells<Sink>(row, w, of_piece, &piece);
            if (piece.ncells == 0 && piece.nwhole == 0) continue;
            const lattice_end end = body(piece, place_of<naxes>(dims, w, j, k));
            if (end != lattice_end::done) return end;
        }
        return lattice_end::done;
    }

    // done: the share of the range that is behind the walk after this slab.
    lattice_end take_piece(const piece_for<Sink> &piece, const piece_place &place, double done) const
    {
        lattice_end end = make_room_for_nodes(nodes, nodes_of(piece), naxes, done);
        if (end == lattice_end::done) end = sink->make_room(piece.tally, piece.nwhole, done);
        if (end != lattice_end::done) return end;
        if (piece.ncells != 0)
            write_cells<Sink>(piece, place, edges_of_piece(*slots, place, dims[0], plane_size<naxes>(dims)),
                              nodes, sink);
        if constexpr (Sink::wants_whole)
            if (piece.nwhole != 0) sink->take_whole(place, piece.whole, piece.nwords);
        return lattice_end::done;
    }

    lattice_end take_row(const live_planes<naxes, ntests> &live, qx_long j, qx_long k, bool in_first_slab,
                         double done) const
    {
        piece_room<Sink> room;
        return for_each_piece(live, j, k, in_first_slab, &room,
                              [&](const piece_for<Sink> &piece, const piece_place &place) {
                                  return take_piece(piece, place, done);
                              });
    }

    static qx_long nodes_of(const piece_for<Sink> &piece)
    {
        if constexpr (ntests == 1)
            return piece.nnodes;
        else
            return piece.tally.nnodes;
    }

    void flag_plane(live_planes<naxes, ntests> *live, int side, qx_long k) const
    {
        const qx_long nrows = naxes == 3 ? live->nrows + 1 : 1;
        flags.flag_rows(flags, live->plane * k, live->nx, nrows, live->passed[side], live->null[side]);
    }

    lattice_end enter_plane(live_planes<naxes, ntests> *live, int side, qx_long k) const
    {
        flag_plane(live, side, k);
        return sink->enter_plane(k);
    }

    void find_walked_rows(live_planes<naxes, ntests> *live) const
    {
        if (!flags.nulls) return;
        for (qx_long j = 0; j < live->nrows; ++j)
            find_walked(*live, j);
    }

    lattice_end take(plane_range range, lattice_checks checks) const
    {
        const qx_long nplanes = dims[naxes - 1];
        if (range.first >= nplanes) return lattice_end::done;
        const float factor = static_cast<float>(100.0 / static_cast<double>(nplanes - 1));
        live_planes<naxes, ntests> live(dims, flags.nulls);
        lattice_end end = enter_plane(&live, 0, range.first);
        if (end != lattice_end::done) return end;
        for (qx_long k = range.first; k < range.end; ++k) {
            if (checks == lattice_checks::every_eighth_slab && k % 8 == 7 &&
                interrupted(static_cast<int>(static_cast<float>(k) * factor)))
                return lattice_end::interrupted;
            end = enter_plane(&live, 1, k + 1);
            if (end != lattice_end::done) return end;
            const double done =
                static_cast<double>(k + 1 - range.first) / static_cast<double>(range.end - range.first);
            for (qx_long j = 0; j < live.nrows; ++j) {
                if (flags.nulls) find_walked(live, j);
                end = take_row(live, j, k, k == range.first, done);
                if (end != lattice_end::done) return end;
                slots->next_row();
            }
            end = sink->leave_slab(k);
            if (end != lattice_end::done) return end;
            live.next_plane();
            slots->next_plane();
        }
        return lattice_end::done;
    }
};

// Walks over a range of a mesh. The slots are left to a caller who stitches ranges together.
template <typename Sink>
lattice_end walk_range(const qx_long *dims, const flag_source &flags, plane_range range,
                       lattice_checks checks, edge_slots<Sink::naxes, Sink::ntests> *slots,
                       typename Sink::nodes_type *nodes, Sink *sink)
{
    if (!slots->open(dims)) return lattice_end::no_node_memory;
    return lattice_walk<Sink>{dims, flags, slots, nodes, sink}.take(range, checks);
}

// Walks over a whole mesh.
template <typename Sink>
lattice_end walk_lattice(const qx_long *dims, const flag_source &flags, lattice_checks checks,
                         typename Sink::nodes_type *nodes, Sink *sink)
{
    edge_slots<Sink::naxes, Sink::ntests> slots;
    return walk_range(dims, flags, all_planes<Sink::naxes>(dims), checks, &slots, nodes, sink);
}
