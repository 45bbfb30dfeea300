// The cells of a field of any kind, by number: what their nodes are.
//
// Cells of structured meshes are numbered with axis 0 fastest, and axes of one node are passed over: a lattice of
// dims (4, 1, 3) is one of quadrilaterals. Their nodes stand in location order, so that shape functions can be
// used on them. Cells of sets are numbered through all sets.
#pragma once

#include "field.hpp"

#include "mod_util/cell_set.hpp"
#include "mod_util/lattice.hpp"

struct cell_view {
    int kind, order, nnodes;
    const qx_long *nodes;
    qx_long corners[8]; // of cells that have no list of nodes
};

class field_cells {
  public:
    // The field's mesh has been made.
    explicit field_cells(const host_field *field_) : field(field_), count(0)
    {
        if (field->kind == KIND_CELLS) {
            count = field->made.ncells;
            return;
        }
        qx_long ncells = 1;
        for (int d = 0; d < field->ndim; ++d) {
            if (field->dims[d] == 1) continue;
            axis[naxes] = d;
            dims[naxes++] = field->dims[d];
            ncells *= field->dims[d] - 1;
        }
        steps = steps_of(naxes, dims);
        if (naxes > 0) count = ncells;
    }

    qx_long size() const { return count; }

    // A cell's nodes; the view leans on the field, or on itself.
    void look_up(qx_long cell, cell_view *view) const
    {
        if (field->kind == KIND_CELLS) {
            const cell_place place = find_set(&field->made, cell);
            const cell_set &set = field->sets[place.set];
            view->kind = set.kind;
            view->order = set.order;
            view->nnodes = field->made.cell_nnodes[place.set];
            view->nodes = set.connect + place.local * view->nnodes;
            return;
        }
        view->kind = lattice_cell[naxes];
        view->order = 1;
        view->nnodes = 1 << naxes;
        view->nodes = view->corners;
        location_order_nodes(lowest_node(cell), steps, view->nnodes, view->corners);
    }

    // The number of a cell in the mesh record, where a structured cell goes by its lowest node.
    qx_long mesh_number(qx_long cell) const { return field->kind == KIND_CELLS ? cell : lowest_node(cell); }

    // The cell of such a number; -1: there is none.
    qx_long from_mesh_number(qx_long number) const
    {
        if (number < 0) return -1;
        if (field->kind == KIND_CELLS) return number < count ? number : -1;
        qx_long rest = number, cell = 0, stride = 1;
        for (int a = 0; a < naxes; ++a) {
            const qx_long at = rest % dims[a];
            if (at == dims[a] - 1) return -1;
            cell += at * stride;
            stride *= dims[a] - 1;
            rest /= dims[a];
        }
        return rest == 0 && cell < count ? cell : -1;
    }

    const host_field *field;
    int naxes = 0;               // of a lattice: axes of more than one node
    int axis[3] = {0, 0, 0};     // which they are
    qx_long dims[3] = {1, 1, 1}; // their nodes

  private:
    qx_long lowest_node(qx_long cell) const
    {
        if (naxes == 1) return cell;
        if (count <= UINT32_MAX) // shorter divisions
            return lowest_node_of(static_cast<uint32_t>(cell), static_cast<uint32_t>(dims[0] - 1),
                                  static_cast<uint32_t>(dims[1] - 1));
        return lowest_node_of(cell, dims[0] - 1, dims[1] - 1);
    }

    template <typename Number> qx_long lowest_node_of(Number cell, Number across, Number up) const
    {
        const Number rows = cell / across, i = cell - rows * across;
        if (naxes == 2) return rows * steps.row + i;
        const Number k = rows / up, j = rows - k * up;
        return k * steps.plane + j * steps.row + i;
    }

    qx_long count;
    lattice_steps steps = {0, 0};
};
