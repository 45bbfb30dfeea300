// All edges of a cell list, each once.
//
// Every edge is looked up by its two nodes and put in if it is not there. Faces of a volume cell share their
// edges, so a kind's list of faces is brought down to its distinct pairs of corners first, in the order in
// which they come up: a hexahedron looks up 12 edges in place of 24.
#include <skoklana/boundary.h>

#include "edge_pairs.hpp"
#include "memory.hpp"
#include "status.hpp"

#include <algorithm>

namespace {

struct edge_entry {
    qx_long high;
    uint32_t next;
};

// Corners of a cell, in either order.
struct corner_pair {
    qx_long a, b;
};

// The edges of a kind of cell.
struct edge_kind {
    corner_pair *pairs; // room for every ring edge
    int count = 0;

    void add(qx_long a, qx_long b)
    {
        for (int p = 0; p < count; ++p)
            if ((pairs[p].a == a && pairs[p].b == b) || (pairs[p].a == b && pairs[p].b == a)) return;
        pairs[count++] = {a, b};
    }
};

} // namespace

static int list_edges(qx_long nnodes, qx_long ncells, int stride, const qx_long *connect,
                      const edge_kind &kind, qx_long *out_nedges, qx_long **out_edges)
{
    node_buckets<edge_entry> edges;
    if (!edges.open(nnodes, ncells)) return 0;
    const float percent = static_cast<float>(100.0 / static_cast<double>(ncells));
    status_cadence cadence(256);
    for (qx_long cell = 0; cell < ncells; ++cell) {
        if (cadence.due() && interrupted(static_cast<int>(static_cast<float>(cell) * percent))) return 0;
        edges.ask_ahead(connect, stride, cell, ncells);
        const qx_long *nodes = connect + cell * stride;
        for (int p = 0; p < kind.count; ++p) {
            const edge_pair pair = edge_between(nodes[kind.pairs[p].a], nodes[kind.pairs[p].b]);
            const uint32_t *found =
                edges.find(pair.low, [&pair](const edge_entry &entry) { return entry.high == pair.high; });
            if (*found != 0) continue;
            edge_entry *entry = edges.add(pair.low);
            if (entry == nullptr) return 0;
            entry->high = pair.high;
        }
    }
    return hand_over_edges(edges, out_nedges, out_edges, ALLOC_AT("edge"));
}

int UTILedges_2D(qx_long nnodes, qx_long ncells, int stride, const qx_long *connect, int ncorners,
                 qx_long *out_nedges, qx_long **out_edges)
{
    scratch memory;
    edge_kind kind = {memory.borrow<corner_pair>(std::max(ncorners, 0))};
    if (kind.pairs == nullptr) return 0;
    for (int c = 0; c < ncorners; ++c)
        kind.add(c, c + 1 < ncorners ? c + 1 : 0);
    return list_edges(nnodes, ncells, stride, connect, kind, out_nedges, out_edges);
}

int UTILedges_3D(qx_long nnodes, qx_long ncells, int stride, const qx_long *connect, int nfaces,
                 const int *face_nnodes, const int *face_ncorners, const qx_long *face_list,
                 qx_long *out_nedges, qx_long **out_edges)
{
    qx_long nring = 0;
    for (int face = 0; face < nfaces; ++face)
        nring += std::max(face_ncorners[face], 0);
    scratch memory;
    edge_kind kind = {memory.borrow<corner_pair>(nring)};
    if (kind.pairs == nullptr) return 0;
    const qx_long *ring = face_list;
    for (int face = 0; face < nfaces; ring += face_nnodes[face], ++face)
        for (int c = 0; c < face_ncorners[face]; ++c)
            kind.add(ring[c], ring[c + 1 < face_ncorners[face] ? c + 1 : 0]);
    return list_edges(nnodes, ncells, stride, connect, kind, out_nedges, out_edges);
}
