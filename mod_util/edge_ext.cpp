// The edges of surface cells that belong to one cell, or whose two cells meet at a crease.
//
// Every edge is looked up by its two nodes. One that is not there is put in with the cell's normal. One that is
// there is taken out if its two normals meet at less than the angle; otherwise it stays as the first cell
// left it, and a third cell is held against the first one again.
//
// The angle is compared with the arc cosine of the normals' dot product, rounded to float. That falls with the
// product, so there is one float up to which an edge is a crease: it is searched once a call, and an edge
// costs a comparison.
#include <skoklana/boundary.h>
#include <skoklana/host/tool.h>

#include "edge_pairs.hpp"
#include "memory.hpp"
#include "status.hpp"

#include <cmath>
#include <cstring>
#include <limits>

namespace {

struct crease_entry {
    qx_long high;
    float normal[3];
    uint32_t next;
};

} // namespace

static bool meets_at(float dot, double angle)
{
    return angle <= std::fabs(static_cast<double>(static_cast<float>(std::acos(static_cast<double>(dot)))));
}

// Floats between -1 and 1 as whole numbers in the same order.
static int32_t order_of(float v)
{
    int32_t bits;
    memcpy(&bits, &v, sizeof bits);
    return bits >= 0 ? bits : std::numeric_limits<int32_t>::min() - bits;
}

static float float_of_order(int32_t order)
{
    const int32_t bits = order >= 0 ? order : std::numeric_limits<int32_t>::min() - order;
    float v;
    memcpy(&v, &bits, sizeof v);
    return v;
}

// The largest dot product of unit normals at a crease; -2 where none is one.
static float crease_limit(double angle)
{
    if (!meets_at(-1, angle)) return -2;
    if (meets_at(1, angle)) return 1;
    int32_t crease = order_of(-1), smooth = order_of(1);
    while (smooth - static_cast<int64_t>(crease) > 1) {
        const int32_t middle = static_cast<int32_t>((static_cast<int64_t>(crease) + smooth) / 2);
        (meets_at(float_of_order(middle), angle) ? crease : smooth) = middle;
    }
    return float_of_order(crease);
}

// Of a cell, by its corners 0, 1 and the last; a cell of next to no area keeps what length it has.
static void normal_of(const float *coords, int nspace, const qx_long *nodes, int ncorners, float *normal)
{
    const float *origin = coords + nodes[0] * nspace;
    const float *second = coords + nodes[ncorners > 1 ? 1 : 0] * nspace;
    const float *last = coords + nodes[ncorners - 1] * nspace;
    float e1[3] = {0, 0, 0}, e2[3] = {0, 0, 0};
    for (int d = 0; d < nspace; ++d) {
        e1[d] = second[d] - origin[d];
        e2[d] = last[d] - origin[d];
    }
    normal[0] = e2[1] * e1[2] - e2[2] * e1[1];
    normal[1] = e2[2] * e1[0] - e2[0] * e1[2];
    normal[2] = e2[0] * e1[1] - e2[1] * e1[0];
    const float length = std::sqrt(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]);
    if (static_cast<double>(length) > 1e-29)
        for (int d = 0; d < 3; ++d)
            normal[d] /= length;
}

static bool is_crease(const float *a, const float *b, float limit)
{
    float dot = a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    if (dot < -1) dot = -1;
    if (dot > 1) dot = 1;
    return dot <= limit; // never with NaN
}

static bool match_edges(node_buckets<crease_entry> *edges, const qx_long *nodes, int ncorners,
                        const float *normal, float limit)
{
    for (int c = 0; c < ncorners; ++c) {
        const edge_pair pair = edge_between(nodes[c], nodes[c + 1 < ncorners ? c + 1 : 0]);
        uint32_t *twin =
            edges->find(pair.low, [&pair](const crease_entry &entry) { return entry.high == pair.high; });
        if (*twin == 0) {
            crease_entry *entry = edges->add(pair.low);
            if (entry == nullptr) return false;
            entry->high = pair.high;
            memcpy(entry->normal, normal, sizeof entry->normal);
        } else if (!is_crease(normal, edges->entry[*twin].normal, limit)) {
            edges->remove(twin);
        }
    }
    return true;
}

int UTILexternal_edges(qx_long nnodes, int nspace, const float *coords, qx_long ncells, int stride,
                       int ncorners, const qx_long *connect, qx_long *out_nedges, qx_long **out_edges,
                       double angle)
{
    node_buckets<crease_entry> edges;
    if (!edges.open(nnodes, ncells)) return 0;
    MATbuild_sqrt_table();
    const float limit = crease_limit(angle);
    const float percent = static_cast<float>(100.0 / static_cast<double>(ncells));
    status_cadence cadence(256);
    for (qx_long cell = 0; cell < ncells; ++cell) {
        if (cadence.due() && interrupted(static_cast<int>(static_cast<float>(cell) * percent))) return 0;
        edges.ask_ahead(connect, stride, cell, ncells);
        if (ncorners < 1) continue;
        const qx_long *nodes = connect + cell * stride;
        float normal[3];
        normal_of(coords, nspace, nodes, ncorners, normal);
        if (!match_edges(&edges, nodes, ncorners, normal, limit)) return 0;
    }
    return hand_over_edges(edges, out_nedges, out_edges, ALLOC_AT("edge_ext"));
}
