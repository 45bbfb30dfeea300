// The boundary of a cavity: the facets (edges of triangles, faces of tetrahedra) that an odd number of its cells
// has, in the order in which a Delaunay sweep builds on them: by lowest vertex id, then the newest first.
//
// Facets come in cell by cell. One that is there already, whichever way round, cancels the other. They are found
// through an open-addressed table of the facets met so far, live and cancelled, that is cleared where it was used.
#pragma once

#include "cell_bins.hpp"

template <int corners> struct facet {
    qx_long vertex[corners]; // in the order of the cell that brought it
    int slot;
    bool live;
};

template <int corners> class facet_set {
  public:
    int nboundary = 0; // live ones

    // Empty, with room for count facets. false: no memory.
    bool clear(qx_long count)
    {
        for (int f = 0; f < nmet; ++f)
            slots[met[f].slot] = -1;
        nmet = nboundary = 0;
        if (count > INT_MAX / 4 || !met.reach(count) || !boundary.reach(count)) return false;
        if (2 * count <= nslots) return true;
        qx_long wanted = 256;
        while (wanted < 2 * count)
            wanted *= 2;
        if (!slots.reach(wanted)) return false;
        nslots = wanted;
        memset(slots.data, -1, static_cast<size_t>(wanted) * sizeof(int));
        return true;
    }

    void toggle(const qx_long *vertex)
    {
        int slot = first_slot(vertex);
        for (; slots[slot] >= 0; slot = next_slot(slot)) {
            facet<corners> &old = met[slots[slot]];
            if (!same(old.vertex, vertex)) continue;
            if (!old.live) break;
            old.live = false;
            --nboundary;
            return;
        }
        facet<corners> &fresh = met[nmet];
        memcpy(fresh.vertex, vertex, sizeof fresh.vertex);
        fresh.slot = slot;
        fresh.live = true;
        slots[slot] = nmet++;
        ++nboundary;
    }

    // Puts the boundary in order. turn brings a facet's vertices into the order in which it is kept and returns
    // the lowest id among them.
    template <typename Turn> void sort(Turn turn)
    {
        int n = 0;
        for (int f = nmet - 1; f >= 0; --f)
            if (met[f].live) boundary[n++] = {turn(met[f].vertex), f};
        std::sort(boundary.data, boundary.data + n, [](const entry &a, const entry &b) {
            return a.least < b.least || (a.least == b.least && a.number > b.number);
        });
    }

    // The vertices of a facet of the boundary, after sort.
    const qx_long *operator[](int i) const { return met[boundary[i].number].vertex; }

  private:
    struct entry {
        qx_long least;
        int number;
    };

    growing_array<facet<corners>> met;
    growing_array<entry> boundary;
    growing_array<int> slots; // the newest facet with these vertices; -1: none
    int nmet = 0;
    qx_long nslots = 0;

    int first_slot(const qx_long *vertex) const
    {
        // Symmetric in the vertices, so that a facet is found whichever way round it comes.
        uint64_t sum = 0, product = 1;
        for (int k = 0; k < corners; ++k) {
            sum += static_cast<uint64_t>(vertex[k]);
            product *= static_cast<uint64_t>(vertex[k]) * 2 + 1;
        }
        const uint64_t mixed = (sum ^ product) * 0x9e3779b97f4a7c15u;
        return static_cast<int>((mixed >> 32) & static_cast<uint64_t>(nslots - 1));
    }

    int next_slot(int slot) const { return static_cast<int>((slot + 1) & (nslots - 1)); }

    static bool same(const qx_long *a, const qx_long *b)
    {
        if constexpr (corners == 2) {
            return (a[0] == b[0] && a[1] == b[1]) || (a[0] == b[1] && a[1] == b[0]);
        } else { // each cyclic turn, either way round
            for (int turn = 0; turn < 3; ++turn) {
                const qx_long x = b[turn], y = b[(turn + 1) % 3], z = b[(turn + 2) % 3];
                if (a[0] == x && ((a[1] == y && a[2] == z) || (a[1] == z && a[2] == y))) return true;
            }
            return false;
        }
    }
};
