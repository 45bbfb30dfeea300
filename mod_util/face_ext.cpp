// The faces of volume cells that belong to one cell.
//
// Every face of every cell is looked up by three of its corners: the lowest, and the two beside it in the ring,
// which determine a face of a conforming mesh whatever its starting corner and winding. One that is there is
// taken out with its twin, one that is not is put in, so that in the end the boundary is left. A face met a
// third time stays, therefore, and two faces that differ in their other corners alone cancel each other.
//
// Time: the faces of the cells; memory: a number a node, and the boundary at its largest.
#include <skoklana/boundary.h>
#include <skoklana/host/tool.h>

#include "memory.hpp"
#include "node_buckets.hpp"
#include "status.hpp"

#include <initializer_list>

namespace {

struct face_entry {
    qx_long low, high; // the neighbours of the lowest corner in the ring, lower first
    qx_long cell;
    uint32_t next;
    int face; // within the cell
};

// The faces of a kind of cell.
struct face_kind {
    int nfaces;
    const int *nnodes;     // by face: nodes, and entries of the list
    const int *ncorners;   // by face
    const qx_long *corner; // the list: nodes of the cell, corners of each face first
};

struct face_key {
    qx_long lowest, low, high;
};

// The faces handed over, by their number of nodes.
struct face_sets {
    int count = 0;
    int max_sets;
    qx_long *ncells; // from here on max_sets entries
    int *nnodes;
    qx_long **cells, **connect, *connect_size;

    int set_of(int face_nnodes) const
    {
        int set = 0;
        while (set < count && nnodes[set] != face_nnodes)
            ++set;
        return set;
    }
};

} // namespace

static face_key key_of_face(const qx_long *cell, const qx_long *ring, int ncorners)
{
    int at = 0;
    for (int c = 1; c < ncorners; ++c)
        if (cell[ring[c]] < cell[ring[at]]) at = c;
    const qx_long before = cell[ring[at == 0 ? ncorners - 1 : at - 1]];
    const qx_long after = cell[ring[at == ncorners - 1 ? 0 : at + 1]];
    return before < after ? face_key{cell[ring[at]], before, after} : face_key{cell[ring[at]], after, before};
}

// live: by face number, how many such faces are in the buckets.
static bool match_faces(node_buckets<face_entry> *faces, const qx_long *nodes, qx_long cell,
                        const face_kind &kind, qx_long *live)
{
    const qx_long *ring = kind.corner;
    for (int face = 0; face < kind.nfaces; ring += kind.nnodes[face], ++face) {
        if (kind.ncorners[face] < 1) continue;
        const face_key key = key_of_face(nodes, ring, kind.ncorners[face]);
        uint32_t *twin = faces->find(key.lowest, [&key](const face_entry &entry) {
            return entry.low == key.low && entry.high == key.high;
        });
        if (*twin != 0) {
            --live[faces->entry[*twin].face];
            faces->remove(twin);
            continue;
        }
        face_entry *entry = faces->add(key.lowest);
        if (entry == nullptr) return false;
        entry->low = key.low;
        entry->high = key.high;
        entry->cell = cell;
        entry->face = face;
        ++live[face];
    }
    return true;
}

// Sets in the order in which their sizes come up among the faces; false: more of them than there is room for.
static bool group_faces(const face_kind &kind, const qx_long *live, face_sets *sets)
{
    for (int face = 0; face < kind.nfaces; ++face) {
        const int set = sets->set_of(kind.nnodes[face]);
        if (set == sets->count) {
            if (set >= sets->max_sets) return false;
            ++sets->count;
            sets->nnodes[set] = kind.nnodes[face];
            sets->ncells[set] = 0;
        }
        sets->ncells[set] += live[face];
    }
    return true;
}

static bool alloc_sets(face_sets *sets)
{
    for (int set = 0; set < sets->count; ++set) {
        sets->cells[set] = sets->connect[set] = nullptr;
        sets->connect_size[set] = sets->ncells[set] * sets->nnodes[set];
    }
    for (int set = 0; set < sets->count; ++set) {
        if (sets->ncells[set] == 0) continue;
        sets->cells[set] = alloc_numbers(sets->ncells[set], ALLOC_AT("face_ext"));
        sets->connect[set] = alloc_numbers(sets->connect_size[set], ALLOC_AT("face_ext"));
        if (sets->cells[set] == nullptr || sets->connect[set] == nullptr) return false;
    }
    return true;
}

static void release_sets(face_sets *sets)
{
    for (int set = 0; set < sets->count; ++set) {
        for (qx_long **list : {&sets->cells[set], &sets->connect[set]}) {
            if (*list != nullptr) ARRfree_f(*list, ALLOC_AT("face_ext"));
            *list = nullptr;
        }
    }
}

// place: by face, where its nodes stand in the list of corners, and its set.
static void write_sets(const node_buckets<face_entry> &faces, const qx_long *connect, int stride,
                       const face_kind &kind, const qx_long *place, const int *set_of, face_sets *sets,
                       qx_long *written)
{
    faces.for_each([&](qx_long, const face_entry &entry) {
        const int set = set_of[entry.face], nnodes = sets->nnodes[set];
        const qx_long at = written[set]++;
        const qx_long *cell = connect + entry.cell * stride, *local = kind.corner + place[entry.face];
        sets->cells[set][at] = entry.cell;
        for (int n = 0; n < nnodes; ++n)
            sets->connect[set][at * nnodes + n] = cell[local[n]];
    });
}

int UTILexternal_faces(qx_long nnodes, qx_long ncells, int stride, const qx_long *connect, int nfaces,
                       const int *face_nnodes, const int *face_ncorners, const qx_long *face_list,
                       int max_sets, int *out_nsets, qx_long *out_ncells, int *out_set_nnodes,
                       qx_long **out_cells, qx_long **out_connect, qx_long *out_connect_size)
{
    const face_kind kind = {nfaces, face_nnodes, face_ncorners, face_list};
    node_buckets<face_entry> faces;
    scratch memory;
    qx_long *live = memory.borrow<qx_long>(nfaces > 0 ? nfaces : 0);
    qx_long *place = memory.borrow<qx_long>(nfaces > 0 ? nfaces : 0);
    int *set_of = memory.borrow<int>(nfaces > 0 ? nfaces : 0);
    qx_long *written = memory.borrow<qx_long>(nfaces > 0 ? nfaces : 0); // no more sets than faces
    if (live == nullptr || place == nullptr || set_of == nullptr || written == nullptr ||
        !faces.open(nnodes, ncells))
        return 0;

    status_cadence cadence(256);
    const float percent = static_cast<float>(100.0 / static_cast<double>(ncells));
    for (qx_long cell = 0; cell < ncells; ++cell) {
        if (cadence.due() && interrupted(static_cast<int>(static_cast<float>(cell) * percent))) return 0;
        faces.ask_ahead(connect, stride, cell, ncells);
        if (!match_faces(&faces, connect + cell * stride, cell, kind, live)) return 0;
    }

    *out_nsets = 0;
    if (faces.count == 0) return 1;
    face_sets sets = {0, max_sets, out_ncells, out_set_nnodes, out_cells, out_connect, out_connect_size};
    if (!group_faces(kind, live, &sets)) return 0;
    if (!alloc_sets(&sets)) {
        release_sets(&sets);
        return 0;
    }
    for (int face = 0; face < nfaces; ++face) {
        if (face > 0) place[face] = place[face - 1] + face_nnodes[face - 1];
        set_of[face] = sets.set_of(face_nnodes[face]);
    }
    write_sets(faces, connect, stride, kind, place, set_of, &sets, written);
    *out_nsets = sets.count;
    return 1;
}
