// A walk over a structured mesh in parts, a thread each, that together make what one walk over the whole would.
//
// A first walk over each part only counts. From the counts of the parts before it each part knows where its output
// begins: the lists are made as long as they have to be, and a second walk writes every entry once, in its place,
// with the number that it has in the end. Edges of the plane between two parts have their numbers from the part
// below. The part above walks over the slab below it by itself, for these numbers alone, so that no part waits for
// another.
//
// Values are looked at once: the bits of the first walk are kept for the second.
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

// ---- bits ----------------------------------------------------------------------------------------------------

// The flags of the planes of a part, by one test and of nulls, kept as they are made.
class kept_flags {
  public:
    kept_flags(const flag_source &source, qx_long nodes_a_plane, qx_long words_a_plane, qx_long first_plane,
               bit_word *to)
        : from(source), plane_nodes(nodes_a_plane), plane_words(words_a_plane), first(first_plane), words(to)
    {
    }

    // The planes that a walk over a part looks at: those of the slab below, and for nulls one more.
    static qx_long first_plane(plane_range range, bool nulls)
    {
        return std::max<qx_long>(range.first - (nulls ? 2 : 1), 0);
    }
    static qx_long words_needed(plane_range range, bool nulls, qx_long words_a_plane)
    {
        return (range.end + 1 - first_plane(range, nulls)) * words_a_plane * (nulls ? 2 : 1);
    }

    flag_source making() const { return {this, from.nulls, make_rows}; }
    flag_source made() const { return {this, from.nulls, read_rows}; }

  private:
    const flag_source &from;
    const qx_long plane_nodes, plane_words, first;
    bit_word *const words;

    bit_word *of_plane(qx_long first_node) const
    {
        return words + (first_node / plane_nodes - first) * plane_words * (from.nulls ? 2 : 1);
    }

    static void make_rows(const flag_source &source, qx_long first_node, qx_long ncols, qx_long nrows,
                          const bit_plane *passed, const bit_plane &null)
    {
        const kept_flags &kept = *static_cast<const kept_flags *>(source.data);
        kept.from.flag_rows(kept.from, first_node, ncols, nrows, passed, null);
        bit_word *to = kept.of_plane(first_node);
        std::copy_n(passed->words, kept.plane_words, to);
        if (source.nulls) std::copy_n(null.words, kept.plane_words, to + kept.plane_words);
    }

    static void read_rows(const flag_source &source, qx_long first_node, qx_long, qx_long,
                          const bit_plane *passed, const bit_plane &null)
    {
        const kept_flags &kept = *static_cast<const kept_flags *>(source.data);
        const bit_word *bits = kept.of_plane(first_node);
        std::copy_n(bits, kept.plane_words, passed->words);
        if (source.nulls) std::copy_n(bits + kept.plane_words, kept.plane_words, null.words);
    }
};

// ---- parts ---------------------------------------------------------------------------------------------------

// What the two walks over a part have in common. Filled by the thread that starts them; counts and end are the
// thread's own.
struct lattice_part {
    const qx_long *dims;
    const flag_source *flags;
    plane_range range;
    bit_word *words;        // of the live planes, then of the kept ones
    qx_long numbered_below; // edges that the slab below numbers
    qx_long nnodes;         // new nodes of the part
    lattice_end end;

    // The memory that walks can't do without; to be called on the thread that was called.
    void open(const qx_long *mesh_dims, const flag_source &source, plane_range planes)
    {
        dims = mesh_dims;
        flags = &source;
        range = planes;
        words = live::insist_on(live::words_needed(dims, source.nulls) +
                                kept_flags::words_needed(range, source.nulls, live::plane_words(dims)));
    }
    void close() { free(words); }

    template <class Counter> void count(Counter *sink)
    {
        const kept_flags kept = of_planes();
        const flag_source making = kept.making();
        live planes(dims, making.nulls, words);
        const lattice_walk<Counter> walk = {dims, making, nullptr, nullptr, sink};
        end = walk.take_part(&planes, range, &numbered_below);
    }

    template <class Sink> void write(Sink *sink, edge_nodes_of<placed_list> *nodes)
    {
        edge_slots<3, 1> slots;
        end = lattice_end::no_node_memory;
        if (!slots.open(dims)) return;
        const kept_flags kept = of_planes();
        const flag_source made = kept.made();
        live planes(dims, made.nulls, words);
        const lattice_walk<Sink> walk = {dims, made, &slots, nodes, sink};
        end = walk.take_part(&planes, range, &numbered_below);
    }

  private:
    using live = live_planes<3, 1>;

    kept_flags of_planes() const
    {
        return {*flags, dims[0] * dims[1], live::plane_words(dims),
                kept_flags::first_plane(range, flags->nulls), words + live::words_needed(dims, flags->nulls)};
    }
};
