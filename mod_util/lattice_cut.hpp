// Cuts of structured meshes: a sink of the walk over lattices (lattice_walk.hpp). Whole cells are copied, crossed
// ones are split by their cut cases (lattice_split.hpp).
//
// The nodes that a cut retains are counted before anything is written, since new nodes are numbered behind them:
// so each connect entry is final when it is written.
//
// A node is retained where its value, in double, is on the kept side of the level or at it. A cell keeps a corner
// where besides the flags of UTILthreshold_scalar say so, whose comparison is in the data's precision and puts
// values at the level on the high side. Both are tests of one bound, and so are they together.
#pragma once

#include "dtype.hpp"
#include "lattice_split.hpp"

#include <skoklana/cut.h>

constexpr qx_long first_cut_entries = 1024; // of every list
constexpr qx_long first_cut_nodes = 1024;

// What a cut is asked for.
struct cut_request {
    const mesh_info *mesh;
    const void *data;
    int data_type, null_flag;
    const void *null_value;
    double level;
    int side;
    bool mapped;
};

// What a piece of a row adds.
template <int naxes> struct lattice_cut_tally {
    using cases = std::conditional_t<naxes == 3, hex_cut_cases, quad_cut_cases>;
    int npieces = 0;
    void add(const lattice_cell<1> &cell)
    {
        npieces += cases::row(lattice_cut<naxes>(cell.index[0]).index).ncells;
    }
};

template <int naxes_, class List> struct lattice_cut_sink : split_sink<naxes_, 1, List> {
    using base = split_sink<naxes_, 1, List>;
    static constexpr int naxes = naxes_;
    using typename base::cases;
    using tally = lattice_cut_tally<naxes>;

    const cut_request *asked;
    size_t element_bytes;

    static const edge_order<naxes> &order(unsigned index) { return lattice_cut<naxes>(index).crossed; }

    lattice_end enter_plane(qx_long k)
    {
        const qx_long first = this->plane * k;
        UTILnode_thresh_struct(
            this->plane, static_cast<const char *>(asked->data) + static_cast<size_t>(first) * element_bytes,
            asked->data_type, asked->null_flag, asked->null_value, asked->level, asked->side, first,
            &this->nlisted, this->old_nodes, this->next_map());
        return lattice_end::done;
    }

    lattice_end make_room(const tally &adds, int nwhole, double done)
    {
        return this->make_room_for_split(adds.npieces, nwhole, done);
    }

    struct writer {
        qx_long *entry, *map;
        qx_long *retained[2];
        qx_long nx, nold, first_in_plane, first_cell;

        FORCE_INLINE void take(const lattice_cell<1> &cell, const piece_edges<naxes, 1> &edges, node_writer *)
        {
            const lattice_cut_case<naxes> &at = lattice_cut<naxes>(cell.index[0]);
            const cut_case &row = cases::row(at.index);
            const qx_long i = cell.i;
            qx_long numbers[most_cut_local];
            number_corners<naxes>(retained, nx, first_in_plane + i, numbers);
            for (int p = 0; p < row.npoints; ++p)
                numbers[base::ncorners + p] = nold + edges.slot[0][at.crossed.edges[p]][i];
            entry = write_pieces(row.nodes, base::piece_nnodes * row.ncells, numbers, entry);
            if (map != nullptr)
                for (int piece = 0; piece < row.ncells; ++piece)
                    *map++ = first_cell + i;
        }
    };

    writer begin(const piece_place &place)
    {
        const made_cells_of<List> &out = this->pieces;
        return {out.connect.data + out.connect.used,
                out.map.data != nullptr ? out.map.data + out.map.used : nullptr,
                {this->map[0], this->map[1]},
                this->nx,
                this->nold,
                this->in_plane(place),
                place.cell};
    }

    void end(const writer &, const tally &added)
    {
        this->pieces.connect.used += base::piece_nnodes * static_cast<qx_long>(added.npieces);
        this->pieces.map.used += added.npieces;
    }
};

// Calls body with the test for the corners that cells keep.
template <typename T, typename Body> auto with_kept_test(double level, int side, Body body)
{
    if constexpr (std::is_integral_v<T>) {
        const auto flagged = [=](T v) {
            return with_level_test<T>(level, true, [v](const auto &above) { return above.one(v); });
        };
        constexpr T greatest = std::numeric_limits<T>::max(), least = std::numeric_limits<T>::min();
        if (side >= 0) {
            const auto kept = [=](T v) { return flagged(v) && static_cast<double>(v) >= level; };
            if (!kept(greatest)) return body(nothing<T>);
            return body(at_least<T>{least_that<T>(kept)});
        }
        const auto dropped = [=](T v) { return flagged(v) || !(level >= static_cast<double>(v)); };
        if (!dropped(greatest)) return body(at_most<T>{greatest});
        if (dropped(least)) return body(nothing<T>);
        return body(at_most<T>{static_cast<T>(least_that<T>(dropped) - 1)});
    } else {
        // Of a level that is no number of the type the flags take the one that it is rounded to. Above the level
        // the next number is that one itself; below it comes after all that are at or below the level.
        if (side >= 0) return with_widened_level_test<T>(level, side, body);
        return body(less_than<T>{static_cast<T>(level)});
    }
}

// Where a cut of a structured mesh puts what it has made.
struct cut_outputs {
    qx_long *nold, **old_nodes, *nnodes, **min_node, **max_node;
    qx_long *ncells, **connect, *nconnect; // an entry a list
    qx_long *map_count, **map;             // the same; null: not wanted

    void clear() const
    {
        *nold = *nnodes = 0;
        *old_nodes = *min_node = *max_node = nullptr;
        for (int list = 0; list < CUT_LISTS; ++list) {
            ncells[list] = nconnect[list] = 0;
            connect[list] = nullptr;
            if (map_count == nullptr) continue;
            map_count[list] = 0;
            map[list] = nullptr;
        }
    }
};

// Cuts a mesh of three axes by the thread that was called. Tells how it has ended and reports nothing, an unknown
// type aside; outputs are empty where it is not done.
lattice_end cut_volume(const cut_request &asked, lattice_checks checks, const cut_outputs &to);
