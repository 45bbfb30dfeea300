// The boundary of a cavity: the facets (edges of triangles, faces of tetrahedra) that an odd number of its cells
// has, in the order in which a Delaunay sweep builds on them: by lowest vertex id, then the newest first.
//
// Facets come in cell by cell. One that is there already, whichever way round, cancels the other. They are found
// through an open-addressed table of the facets met so far, live and cancelled, that is cleared where it was used.
#pragma once

#include "cell_bins.hpp"

#include <type_traits>

template <int corners, typename Id> struct facet {
    Id vertex[corners]; // in the order of the cell that brought it
    int slot;
    bool live;
};

// Id: an unsigned number of a vertex.
template <int corners, typename Id> class facet_set {
  public:
    using facet_type = facet<corners, Id>;

    int nboundary = 0; // live ones

    // Empty, with room for count facets. false: no memory.
    bool clear(qx_long count)
    {
        for (int f = 0; f < nmet; ++f)
            slots[met[f].slot] = -1;
        nmet = nboundary = 0;
        if (count > INT_MAX / 4 || !met.reach(count) || !boundary.reach(count + 1)) return false;
        if (2 * count <= nslots) return true;
        qx_long wanted = 256;
        while (wanted < 2 * count)
            wanted *= 2;
        if (!slots.reach(wanted)) return false;
        nslots = wanted;
        memset(slots.data, -1, static_cast<size_t>(wanted) * sizeof(int));
        return true;
    }

    void toggle(const Id *vertex)
    {
        int slot = first_slot(vertex);
        for (; slots[slot] >= 0; slot = next_slot(slot)) {
            facet_type &old = met[slots[slot]];
            if (!same(old.vertex, vertex)) continue;
            if (!old.live) break;
            old.live = false;
            --nboundary;
            return;
        }
        facet_type &fresh = met[nmet];
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
        for (int f = nmet - 1; f >= 0; --f) { // without a branch on what is hard to tell
            boundary[n] = static_cast<entry>(f);
            n += met[f].live ? 1 : 0;
        }
        for (int i = 0; i < n; ++i) {
            const auto f = static_cast<uint32_t>(boundary[i]);
            boundary[i] = static_cast<entry>(turn(met[f].vertex)) << 32 | newness(f);
        }
        sort_distinct(boundary.data, n, [](entry key) { return key; });
    }

    // The vertices of a facet of the boundary, after sort.
    const Id *operator[](int i) const { return met[newness(static_cast<uint32_t>(boundary[i]))].vertex; }

  private:
    // The lowest vertex id, and below it a number that is lower the later the facet was met.
    using entry = std::conditional_t<sizeof(Id) == 4, uint64_t, unsigned __int128>;
    static constexpr uint32_t newness(uint32_t number) { return UINT32_MAX - number; }

    growing_array<facet_type> met;
    growing_array<entry> boundary;
    growing_array<int> slots; // the newest facet with these vertices; -1: none
    int nmet = 0;
    qx_long nslots = 0;

    int first_slot(const Id *vertex) const
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

    // Vertices of one facet are different ones.
    static bool same(const Id *a, const Id *b)
    {
        if constexpr (corners == 2) {
            return (a[0] == b[0] && a[1] == b[1]) || (a[0] == b[1] && a[1] == b[0]);
        } else {
            const auto has = [=](Id v) { return v == b[0] || v == b[1] || v == b[2]; };
            return has(a[0]) && has(a[1]) && has(a[2]);
        }
    }
};
