// Cells of a structured mesh that are kept whole or split, as cuts and bands make them: what their sinks share.
//
// Output nodes are the retained nodes, numbered plane by plane as the walk reaches them, and the new nodes behind
// them. The numbers of the two live planes wait in maps. In a run of whole cells all nodes are retained, and their
// numbers in a row of nodes follow on each other: the run is written from the numbers of its first cell, without
// another look at the maps.
#pragma once

#include "lattice_cut_cases.hpp"
#include "lattice_walk.hpp"

#include <type_traits>

// The numbers of the corners of a cell in the order of the cut tables, from the maps of the lower and the upper
// plane.
template <int naxes>
FORCE_INLINE void number_corners(qx_long *const *map, qx_long nx, qx_long in_plane, qx_long *numbers)
{
    for (int corner = 0; corner < 1 << naxes; ++corner) {
        const unsigned place = place_of_cut_corner<naxes>(corner);
        const qx_long row = naxes == 3 ? (place >> 1 & 1) * nx : 0;
        numbers[corner] = map[place >> (naxes - 1)][in_plane + row + (place & 1)];
    }
}

// Rows of corners that all rise by one from cell to cell. No counters that are kept from cell to cell: GCC 12
// makes vectors of eight such ones wrongly.
template <int ncorners>
FORCE_INLINE void write_rising_rows(const qx_long *__restrict first, qx_long count, qx_long *__restrict out)
{
    for (qx_long c = 0; c < count; ++c, out += ncorners)
        for (int corner = 0; corner < ncorners; ++corner)
            out[corner] = first[corner] + c;
}

template <int ncorners> void write_rising_plain(const qx_long *first, qx_long count, qx_long *out)
{
    write_rising_rows<ncorners>(first, count, out);
}

template <int ncorners> TARGET_AVX2 void write_rising_wide(const qx_long *first, qx_long count, qx_long *out)
{
    write_rising_rows<ncorners>(first, count, out);
}

template <int naxes_, int ntests_, class List = batch_list>
struct split_sink : lattice_sink<naxes_, ntests_, List> {
    static constexpr int naxes = naxes_, ncorners = 1 << naxes;
    static constexpr bool wants_whole = true;
    using cases = std::conditional_t<naxes == 3, hex_cut_cases, quad_cut_cases>;
    static constexpr int piece_nnodes = cut_list_nnodes[cases::piece_list];

    qx_long nx, plane;  // nodes of a row and of a plane
    qx_long nold;       // nodes that are retained in all
    qx_long *map[2];    // numbers of the nodes of the lower and the upper live plane, where they are retained
    qx_long *old_nodes; // the retained nodes; NULL where there is none
    qx_long nlisted;    // of them, so far
    made_cells_of<List> whole, pieces;

    // What a sink holds for the length of a walk. False: no memory.
    bool open_retained(const qx_long *dims, qx_long nretained, scratch *memory)
    {
        nx = dims[0];
        plane = naxes == 3 ? nx * dims[1] : nx;
        nold = nretained;
        nlisted = 0;
        map[0] = memory->borrow<qx_long>(2 * plane);
        map[1] = map[0] + plane;
        const qx_long bytes = nold * static_cast<qx_long>(sizeof(qx_long));
        old_nodes = nold != 0 ? static_cast<qx_long *>(malloc(static_cast<size_t>(bytes))) : nullptr;
        if (map[0] == nullptr || (nold != 0 && old_nodes == nullptr)) return false;
        expect_to_fill(old_nodes, bytes);
        return true;
    }

    // The plane that was the upper one is the lower one now; the map of the new upper one is to be filled.
    qx_long *next_map()
    {
        std::swap(map[0], map[1]);
        return map[1];
    }

    lattice_end make_room_for_split(qx_long npieces, int nwhole, double done)
    {
        const lattice_end end = make_room_for_cells(&pieces, npieces, piece_nnodes, 0, done);
        return end != lattice_end::done ? end : make_room_for_cells(&whole, nwhole, ncorners, 0, done);
    }

    qx_long in_plane(const piece_place &place) const { return nx * place.j + place.i; }

    void take_whole(const piece_place &place, const bit_word *words, int nwords)
    {
        const auto write_run = have_avx2() ? write_rising_wide<ncorners> : write_rising_plain<ncorners>;
        for_each_run(words, nwords, [&](int first, int count) {
            qx_long numbers[ncorners];
            number_corners<naxes>(map, nx, in_plane(place) + first, numbers);
            write_run(numbers, count, whole.connect.data + whole.connect.used);
            whole.connect.used += ncorners * static_cast<qx_long>(count);
            if (whole.map.data != nullptr)
                for (int c = 0; c < count; ++c)
                    whole.map.data[whole.map.used + c] = place.cell + first + c;
            whole.map.used += count;
        });
    }
};

// Appends the pieces of a case over the numbers of the cell's corners and, behind them, its new nodes.
FORCE_INLINE qx_long *write_pieces(const unsigned char *nodes, int nentries, const qx_long *numbers,
                                   qx_long *entry)
{
    for (int n = 0; n < nentries; ++n)
        *entry++ = numbers[nodes[n]];
    return entry;
}
