// Surfaces of structured meshes: the sink of the walk over lattices (lattice_walk.hpp). Crossed cells give the
// triangles of their cases, whole cells nothing.
#pragma once

#include "lattice_cases.hpp"
#include "lattice_walk.hpp"

constexpr qx_long first_triangle_entries = 1024;
constexpr qx_long first_surface_nodes = 1000;
// A cell adds at most 5 triangles, 15 entries; all 15 are stored whatever the count.
constexpr qx_long triangle_margin = 25;

struct triangle_tally {
    int ntriangles = 0;
    void add(const lattice_cell<1> &cell) { ntriangles += lattice_cases.row[cell.index[0]].ntriangles; }
};

template <class List> struct triangle_sink : lattice_sink<3, 1, List> {
    made_cells_of<List> triangles;

    using tally = triangle_tally;

    static const edge_order<3> &order(unsigned index) { return lattice_cases.row[index].crossed; }

    lattice_end make_room(const tally &adds, int, double done)
    {
        return make_room_for_cells(&triangles, adds.ntriangles, 3, triangle_margin, done);
    }

    struct writer {
        qx_long *entry, *map;
        qx_long first_cell;

        FORCE_INLINE void take(const lattice_cell<1> &cell, const piece_edges<3, 1> &edges, node_writer *)
        {
            const lattice_case &row = lattice_cases.row[cell.index[0]];
            const qx_long i = cell.i;
            const int nentries = 3 * row.ntriangles;
            for (int t = 0; t < 6; ++t)
                entry[t] = edges.slot[0][row.triangles[t]][i];
            if (nentries > 6)
                for (int t = 6; t < 15; ++t)
                    entry[t] = edges.slot[0][row.triangles[t]][i];
            entry += nentries;
            if (map != nullptr)
                for (int t = 0; t < row.ntriangles; ++t)
                    *map++ = first_cell + i;
        }
    };

    writer begin(const piece_place &place)
    {
        const made_cells_of<List> &out = triangles;
        return {out.connect.data + out.connect.used,
                out.map.data != nullptr ? out.map.data + out.map.used : nullptr, place.cell};
    }

    void end(const writer &, const tally &added)
    {
        triangles.connect.used += 3 * static_cast<qx_long>(added.ntriangles);
        triangles.map.used += added.ntriangles;
    }
};

struct surface {
    edge_nodes nodes;
    triangle_sink<batch_list> made;
};

inline void release_surface(surface *out)
{
    release_nodes(&out->nodes);
    release_cells(&out->made.triangles);
}
