// Corners and edges of the cells of a lattice of two or three axes.
//
// A corner's place has bit d set where the corner stands at the upper end of axis d. Edges along an axis come
// one behind the other, by the places of their ends on the other axes:
//
//     2 axes     edge 0, 1      along i, at j                3 axes    edge 0 to 3     along i, at j + 2 k
//                     2, 3      along j, at i                          4 to 7     along j, at i + 2 k
//                                                                      8 to 11    along k, at i + 2 j
//
// The last edge along each axis ends in the corner that is uppermost on all axes. These are the cell's own: no
// cell that comes earlier in the order of the lattice has them.
#pragma once

template <int naxes> constexpr int edges_an_axis = 1 << (naxes - 1);
template <int naxes> constexpr int edges_of_cell = naxes *edges_an_axis<naxes>;

template <int naxes> constexpr int own_edge(int axis)
{
    return (axis + 1) * edges_an_axis<naxes> - 1;
}

template <int naxes> constexpr unsigned own_edge_bits()
{
    unsigned bits = 0;
    for (int axis = 0; axis < naxes; ++axis)
        bits |= 1u << own_edge<naxes>(axis);
    return bits;
}

template <int naxes> constexpr unsigned own_edges = own_edge_bits<naxes>();

template <int naxes> constexpr bool is_own_edge(int edge)
{
    return edge % edges_an_axis<naxes> == edges_an_axis<naxes> - 1;
}

// The place of a corner that is counted around the lower face and then around the upper one.
constexpr unsigned place_of_ring_corner(int corner)
{
    const unsigned c = static_cast<unsigned>(corner);
    return (c & 4) | ((c & 3) ^ (c >> 1 & 1));
}

// The bit of a corner, by its place, in the case index of a walk: bits along i, then along the last axis, then
// along j.
template <int naxes> constexpr unsigned walk_bit(unsigned place)
{
    return naxes == 2 ? place : (place & 1) | (place >> 2 & 1) << 1 | (place >> 1 & 1) << 2;
}

// The edge between two corners that differ on one axis, by their places.
template <int naxes> constexpr int edge_between(unsigned a, unsigned b)
{
    int axis = 0;
    while (((a ^ b) >> axis & 1) == 0)
        ++axis;
    int edge = axis * edges_an_axis<naxes>, bit = 0;
    for (int d = 0; d < naxes; ++d)
        if (d != axis) edge += static_cast<int>(a >> d & 1) << bit++;
    return edge;
}

// The crossed edges of a case in the order in which they get their numbers.
template <int naxes> struct edge_order {
    unsigned char nedges;
    unsigned char edges[edges_of_cell<naxes>];
    unsigned char nown;            // crossed edges among the cell's own
    unsigned char own_rank[naxes]; // places of the own edges among those; of edges not crossed, behind them

    constexpr void append(int edge)
    {
        edges[nedges++] = static_cast<unsigned char>(edge);
        if (is_own_edge<naxes>(edge)) ++nown;
    }

    // After the last edge.
    constexpr void rank_own()
    {
        unsigned char behind = nown;
        for (int axis = 0; axis < naxes; ++axis) {
            unsigned char before = 0;
            bool crossed = false;
            for (int e = 0; e < nedges && !crossed; ++e) {
                crossed = edges[e] == own_edge<naxes>(axis);
                if (!crossed && is_own_edge<naxes>(edges[e])) ++before;
            }
            own_rank[axis] = crossed ? before : behind++;
        }
    }
};
