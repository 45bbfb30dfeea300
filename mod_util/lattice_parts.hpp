// A walk over a structured mesh in parts, a thread each, that together make what one walk over the whole would.
//
// A first walk over each part lists its cells and counts what they will add. From the counts of the parts before it each
// part knows where its output begins: the lists are made as long as they have to be, and a second pass over the
// listed cells writes every entry once, in its place, with the number that it has in the end. Edges of the plane between
// two parts have their numbers from the part below. The part above walks over the slab below it by itself, for these
// numbers alone, so that no part waits for another.
//
// Values are looked at once, and so are the cells that add nothing. What is kept from the first walk to the second pass
// is 6 bytes for each crossed cell, and some for each row that has one.
#pragma once

#include "lattice_walk.hpp"
#include "threads.hpp"

// ---- lists ---------------------------------------------------------------------------------------------------

// A pointer that has the element of the block at index at. The block itself is nowhere near 0, so the address is one.
inline qx_long *with_index(qx_long *block, qx_long at)
{
    return reinterpret_cast<qx_long *>(reinterpret_cast<uintptr_t>(block) -
                                       static_cast<uintptr_t>(at) * sizeof(qx_long));
}

// A stretch of an array whose other stretches are written elsewhere at the same time, with the bookkeeping of a
// list: entries used to end - 1 are to come. Writers may store some entries behind what they use, and behind the
// stretch others write. So its end, once the margin may reach over it, is written in a block apart.
struct placed_list {
    qx_long *data = nullptr; // by index within the whole array; null: not wanted
    qx_long used = 0, end = 0;
    qx_long *place = nullptr; // the array, once data leads to the block
    qx_long *block = nullptr;
    qx_long block_first = 0;
};

inline placed_list stretch_of(qx_long *array, qx_long first, qx_long count)
{
    placed_list list;
    list.data = array;
    list.used = first;
    list.end = first + count;
    return list;
}

inline bool make_room_for(placed_list *list, qx_long more, qx_long margin, double, const char *, int)
{
    if (list->block != nullptr || list->used + more + margin <= list->end) return true;
    list->block = thread_numbers::alloc(list->end - list->used + margin, ALLOC_AT("lattice_parts"));
    if (list->block == nullptr) return false;
    list->place = list->data;
    list->block_first = list->used;
    list->data = with_index(list->block, list->used);
    return true;
}

inline void finish_list(placed_list *list)
{
    if (list->block == nullptr) return;
    std::copy(list->block, list->block + (list->used - list->block_first), list->place + list->block_first);
    free(list->block);
    list->block = nullptr;
    list->data = list->place;
}

inline void finish_nodes(edge_nodes_of<placed_list> *nodes)
{
    finish_list(&nodes->min_node);
    finish_list(&nodes->max_node);
}

inline void finish_cells(made_cells_of<placed_list> *cells)
{
    finish_list(&cells->connect);
    finish_list(&cells->map);
}

// ---- pieces --------------------------------------------------------------------------------------------------

// The pieces of rows that a walk has listed, in its order, with their lists. Begins as zeros.
template <class Tally, bool wants_whole> class kept_pieces {
    // Pieces follow on it: a head, words and cells of each.
    struct block {
        block *next;
        qx_long used, end; // bytes
    };
    struct head {
        qx_long row, first_cell;
        int nwords, ncells, nwhole, nnodes;
        Tally tally;
    };
    block *first, *last;

  public:
    using piece_type = row_piece<1, Tally>;

    // Room for the lists of a piece of nwords words, behind all that is kept. False: no memory.
    bool open(int nwords, piece_type *piece)
    {
        const qx_long needed = bytes_of(nwords, nwords * word_bits);
        if ((last == nullptr || last->end - last->used < needed) && !add_block(needed)) return false;
        set_lists(head_at(last, last->used), nwords, piece);
        return true;
    }

    // Keeps the piece that was opened last. row: of cells, within the mesh; first_cell: within the row.
    void keep(const piece_type &piece, qx_long row, qx_long first_cell)
    {
        *head_at(last, last->used) = {row,          first_cell,   piece.nwords, piece.ncells,
                                      piece.nwhole, piece.nnodes, piece.tally};
        last->used += bytes_of(piece.nwords, piece.ncells);
    }

    void release()
    {
        while (first != nullptr) {
            block *const next = first->next;
            free(first);
            first = next;
        }
        last = nullptr;
    }

    // Reads from the beginning what is kept.
    class reader {
        block *at;
        qx_long done = 0; // bytes of it

      public:
        explicit reader(const kept_pieces &of) : at(of.first) {}

        // The next piece, if it is one of this row. Rows are asked for in the order in which they were kept.
        bool next_of_row(qx_long row, piece_type *piece, qx_long *first_cell)
        {
            if (at != nullptr && done == at->used) {
                at = at->next;
                done = 0;
            }
            if (at == nullptr) return false;
            head *const kept = head_at(at, done);
            if (kept->row != row) return false;
            piece->nwords = kept->nwords;
            piece->ncells = kept->ncells;
            piece->nwhole = kept->nwhole;
            piece->nnodes = kept->nnodes;
            piece->tally = kept->tally;
            set_lists(kept, kept->nwords, piece);
            *first_cell = kept->first_cell;
            done += bytes_of(kept->nwords, kept->ncells);
            return true;
        }
    };

  private:
    static_assert(sizeof(head) % sizeof(bit_word) == 0 && sizeof(block) % sizeof(bit_word) == 0);

    static qx_long bytes_of(qx_long nwords, qx_long ncells)
    {
        constexpr qx_long word = sizeof(bit_word);
        const qx_long lists = (wants_whole ? nwords * word : 0) + ncells * qx_long{sizeof(lattice_cell<1>)};
        return qx_long{sizeof(head)} + (lists + word - 1) / word * word;
    }

    static head *head_at(block *of, qx_long bytes)
    {
        return reinterpret_cast<head *>(reinterpret_cast<char *>(of + 1) + bytes);
    }

    static void set_lists(head *kept, int nwords, piece_type *piece)
    {
        piece->whole = reinterpret_cast<bit_word *>(kept + 1);
        piece->cells = reinterpret_cast<lattice_cell<1> *>(piece->whole + (wants_whole ? nwords : 0));
    }

    // A block twice as long as the last one, within bounds.
    bool add_block(qx_long needed)
    {
        constexpr qx_long least = qx_long{1} << 16, most = qx_long{4} << 20;
        const qx_long end = std::max(needed, last == nullptr ? least : std::min(2 * last->end, most));
        const qx_long bytes = end + qx_long{sizeof(block)};
        block *const added = static_cast<block *>(malloc(static_cast<size_t>(bytes)));
        if (added == nullptr) return false;
        expect_to_fill(added, bytes);
        *added = {nullptr, 0, end};
        (last != nullptr ? last->next : first) = added;
        last = added;
        return true;
    }
};

// ---- parts ---------------------------------------------------------------------------------------------------

// What the two passes over a part have in common. Zeroed and opened by the thread that starts them; the rest is the
// thread's own.
template <class Tally, bool wants_whole> struct lattice_part {
    const qx_long *dims;
    const flag_source *flags;
    plane_range range;
    bit_word *words; // of the live planes
    kept_pieces<Tally, wants_whole> pieces;
    qx_long numbered_below; // edges that the slab below numbers
    qx_long nnodes;         // new nodes of the part
    lattice_end end;

    // The memory that walks can't do without; to be called on the thread that was called.
    void open(const qx_long *mesh_dims, const flag_source &source, plane_range planes)
    {
        dims = mesh_dims;
        flags = &source;
        range = planes;
        words = live::insist_on(live::words_needed(dims, source.nulls));
    }

    void close()
    {
        pieces.release();
        free(words);
    }

    // Tells sink->count(piece, k) of each piece of the part, and keeps it.
    template <class Counter> void count(Counter *sink)
    {
        const lattice_walk<Counter> walk = {dims, *flags, nullptr, nullptr, sink};
        live planes(dims, flags->nulls, words);
        end = lattice_end::done;
        if (range.first > 0)
            count_below(walk, &planes);
        else
            walk.flag_plane(&planes, 0, 0);
        if (end == lattice_end::done) end = sink->enter_plane(range.first);
        for (qx_long k = range.first; k < range.end && end == lattice_end::done; ++k) {
            end = walk.enter_plane(&planes, 1, k + 1);
            if (end == lattice_end::done)
                end = keep_slab(walk, planes, k, [&](const auto &piece) { sink->count(piece, k); });
            planes.next_plane();
        }
    }

    // Writes what was counted; nodes has the number that the part's first new node gets.
    template <class Sink> void write(Sink *sink, edge_nodes_of<placed_list> *nodes)
    {
        edge_slots<3, 1> slots;
        end = lattice_end::no_node_memory;
        if (!slots.open(dims)) return;
        const lattice_walk<Sink> walk = {dims, *flags, &slots, nodes, sink};
        reader kept(pieces);
        if (range.first > 0) number_below<Sink>(&kept, nodes->min_node.used - numbered_below, &slots);
        end = sink->enter_plane(range.first);
        for (qx_long k = range.first; k < range.end && end == lattice_end::done; ++k) {
            end = sink->enter_plane(k + 1);
            for (qx_long j = 0; j < nrows() && end == lattice_end::done; ++j) {
                end = for_each_kept(&kept, j, k, [&](const piece_type &piece, const piece_place &place) {
                    return walk.take_piece(piece, place, 1);
                });
                slots.next_row();
            }
            slots.next_plane();
        }
    }

  private:
    using live = live_planes<3, 1>;
    using reader = typename kept_pieces<Tally, wants_whole>::reader;
    using piece_type = row_piece<1, Tally>;

    qx_long nrows() const { return dims[1] - 1; }

    // Tells body of each piece of a slab between the live planes.
    template <class Walk, class Body>
    lattice_end keep_slab(const Walk &walk, live &planes, qx_long k, Body body)
    {
        lattice_end ended = lattice_end::done;
        walk.find_walked_rows(&planes);
        for (qx_long j = 0; j < nrows() && ended == lattice_end::done; ++j)
            ended = walk.for_each_piece(planes, j, k, k == 0, &pieces,
                                        [&](const piece_type &piece, const piece_place &place) {
                                            pieces.keep(piece, nrows() * k + j, place.i);
                                            body(piece);
                                            return lattice_end::done;
                                        });
        return ended;
    }

    // The slab below the part, for the edges that it numbers. What is fresh in it may depend, where there are nulls, on
    // the cells of the one under it.
    template <class Walk> void count_below(const Walk &walk, live *planes)
    {
        const qx_long below = range.first - 1;
        if (flags->nulls && below > 0) {
            walk.flag_plane(planes, 0, below - 1);
            walk.flag_plane(planes, 1, below);
            walk.find_walked_rows(planes);
            planes->next_plane();
        } else {
            walk.flag_plane(planes, 0, below);
        }
        walk.flag_plane(planes, 1, range.first);
        end = keep_slab(walk, *planes, below,
                        [this](const piece_type &piece) { numbered_below += piece.nnodes; });
        planes->next_plane();
    }

    // Calls body(piece, place) for each piece that is kept of a row, until one fails.
    template <class Body> lattice_end for_each_kept(reader *kept, qx_long j, qx_long k, Body body) const
    {
        piece_type piece;
        qx_long first_cell;
        lattice_end ended = lattice_end::done;
        while (ended == lattice_end::done && kept->next_of_row(nrows() * k + j, &piece, &first_cell))
            ended = body(piece, place_of<3>(dims, first_cell / word_bits, j, k));
        return ended;
    }

    // Gives the edges of the slab below the numbers that they have in the walk over it, from first_number on.
    template <class Sink> void number_below(reader *kept, qx_long first_number, edge_slots<3, 1> *slots) const
    {
        node_counter numbered = {first_number};
        for (qx_long j = 0; j < nrows(); ++j) {
            for_each_kept(kept, j, range.first - 1, [&](const piece_type &piece, const piece_place &place) {
                const auto edges = edges_of_piece(*slots, place, dims[0], plane_size<3>(dims));
                for (int n = 0; n < piece.ncells; ++n) {
                    const lattice_cell<1> cell = piece.cells[n];
                    number_edges(edges, 0, cell.i, Sink::order(cell.index[0]), cell.fresh, &numbered);
                }
                return lattice_end::done;
            });
            slots->next_row();
        }
        slots->next_plane();
    }
};
