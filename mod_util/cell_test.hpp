// Whether a cell holds a point, for cells of sets and of curvilinear meshes: the box of its nodes first, then the
// reverse mapping of its kind.
//
// Of the cells that a search tries most fail by the box. So the nodes are read once for the box, straight into
// registers, and gathered for the mapping only where the box holds the point.
#pragma once

#include "cell_set.hpp"
#include "fetch.hpp"
#include "lane_box.hpp"
#include "lattice.hpp"

#include <skoklana/cell.h>

#include <algorithm>
#include <cmath>
#include <cstring>

// Cells of this library have 20 nodes at most; a host's own may have more.
constexpr int most_mapped_nodes = 256;

// A cell as location sees it.
struct cell_view {
    const qx_long *nodes;
    int nnodes;
    rev_par_func rev_par;
    qx_long corners[8]; // nodes of a cell that has no list of them
};

// look_up gives false where no point can be in the cell: there is no such cell, its kind has no mapping, or its
// connect list can't be had.
struct set_cells {
    mesh_info *mesh;

    // The nodes of a cell whose connect list is there.
    static FORCE_INLINE void nodes_of(const mesh_info *mesh, const cell_place &place, cell_view *view)
    {
        view->nodes = cell_nodes(mesh, place);
        view->nnodes = mesh->cell_nnodes[place.set];
    }

    FORCE_INLINE bool look_up(qx_long cell, cell_view *view) const
    {
        const cell_place place = find_set(mesh, cell);
        if (!is_cell(place) || !fetch_connect(mesh, place.set)) return false;
        nodes_of(mesh, place, view);
        view->rev_par = set_function<rev_par_func>(mesh, place.set, SLOT_REV_PAR);
        return view->rev_par != nullptr && view->nnodes <= most_mapped_nodes;
    }

    // Asks for what look_up reads of a cell whose connect list is there.
    template <int Nspace> FORCE_INLINE void ask_for_cell(const float *, qx_long cell) const
    {
        const cell_place place = find_set(mesh, cell);
        if (!is_cell(place) || mesh->cell_connect[place.set] == nullptr) return;
        const qx_long *row = cell_nodes(mesh, place);
        __builtin_prefetch(row);
        __builtin_prefetch(row + mesh->cell_nnodes[place.set] - 1);
    }
};

struct lattice_cells {
    qx_long ncells; // one more than the highest number that can begin a cell
    qx_long offsets[8];
    int ncorners;
    rev_par_func rev_par;

    explicit lattice_cells(const mesh_info *mesh)
        : offsets{}, ncorners(std::min(mesh->cell_nnodes[0], 8)),
          rev_par(set_function<rev_par_func>(mesh, 0, SLOT_REV_PAR))
    {
        location_order_nodes(0, flat_steps_of(mesh->ndim, mesh->dims), ncorners, offsets);
        ncells = mesh->nnodes - *std::max_element(offsets, offsets + 8);
    }

    FORCE_INLINE bool nodes_of(qx_long cell, cell_view *view) const
    {
        if (cell < 0 || cell >= ncells) return false;
        for (int corner = 0; corner < ncorners; ++corner)
            view->corners[corner] = cell + offsets[corner];
        view->nodes = view->corners;
        view->nnodes = ncorners;
        return true;
    }

    FORCE_INLINE bool look_up(qx_long cell, cell_view *view) const
    {
        view->rev_par = rev_par;
        return rev_par != nullptr && nodes_of(cell, view);
    }

    // look_up reads nothing; the coordinates can be asked for at once.
    template <int Nspace> FORCE_INLINE void ask_for_cell(const float *coords, qx_long cell) const
    {
        if (cell < 0 || cell >= ncells) return;
        for (int corner = 0; corner < ncorners; ++corner)
            __builtin_prefetch(coords + (cell + offsets[corner]) * Nspace);
    }
};

// With doubles, and so that NaN fails no comparison.
FORCE_INLINE bool box_holds(const lane_box &box, const float *point, double tol)
{
    for (int d = 0; d < 3; ++d)
        if (box.min[d] - tol > point[d] || point[d] > box.max[d] + tol) return false;
    return true;
}

// A first look at a box in float: limits a little wider than those of box_holds, so that what lies past them
// would fail there too. The margin is far above the rounding of either test.
struct box_window {
    lanes4 low = {0, 0, 0, 0}, high = {0, 0, 0, 0};

    box_window(const float *point, double tol)
    {
        for (int d = 0; d < 3; ++d) {
            const double at = point[d], margin = 1e-6 * (std::fabs(at) + std::fabs(tol));
            low[d] = static_cast<float>(at - tol - margin);
            high[d] = static_cast<float>(at + tol + margin);
        }
    }

    FORCE_INLINE bool misses(const lane_box &box) const
    {
        typedef long long pair __attribute__((vector_size(16)));
        const auto outside = (pair)((box.min > high) | (box.max < low));
        return (outside[0] | outside[1]) != 0;
    }
};

template <int Nspace>
FORCE_INLINE int map_into_cell(const float *coords, const cell_view &view, const float *point, float *uvw)
{
    float gathered[3 * most_mapped_nodes + 1]; // rows are stored four floats at a time
    for (int k = 0; k < view.nnodes; ++k) {
        const lanes4 node = load_node<Nspace>(coords, view.nodes[k]);
        memcpy(gathered + 3 * k, &node, sizeof node);
    }
    return view.rev_par(gathered, point, uvw);
}

// The test of one cell: what its mapping gives, or 0.
template <int Nspace, typename Cells>
int test_cell(const Cells &cells, const float *coords, qx_long cell, const float *point, bool check_box,
              double tol, float *uvw)
{
    cell_view view;
    if (!cells.look_up(cell, &view)) return 0;
    if (check_box && !box_holds(box_of_nodes<Nspace>(coords, view.nodes, view.nnodes), point, tol)) return 0;
    return map_into_cell<Nspace>(coords, view, point, uvw);
}
