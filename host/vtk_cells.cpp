// Cells in VTK's node order: sorted into sets by type, each row put into the order of cell_nodes.h.
#include "field.hpp"
#include "lists.hpp"
#include "report.hpp"

#include <skoklana_host.h>

namespace {

// node[k]: which of VTK's nodes is the cell's node k.
struct vtk_type {
    int vtk, kind, order;
    signed char node[20];
};

// clang-format off
constexpr vtk_type vtk_types[] = {
    {3,  CELL_LINE,  1, {0, 1}},
    {5,  CELL_TRI,   1, {0, 1, 2}},
    {8,  CELL_QUAD,  1, {0, 1, 3, 2}},             // pixel
    {9,  CELL_QUAD,  1, {0, 1, 2, 3}},
    {10, CELL_TET,   1, {1, 2, 3, 0}},
    {14, CELL_PYR,   1, {4, 2, 3, 0, 1}},
    {13, CELL_PRISM, 1, {4, 5, 3, 1, 2, 0}},
    {11, CELL_HEX,   1, {6, 4, 5, 7, 2, 0, 1, 3}}, // voxel
    {12, CELL_HEX,   1, {7, 4, 5, 6, 3, 0, 1, 2}},
    {21, CELL_LINE,  2, {0, 1,  2}},
    {22, CELL_TRI,   2, {0, 1, 2,  3, 4, 5}},
    {23, CELL_QUAD,  2, {0, 1, 2, 3,  4, 5, 6, 7}},
    {24, CELL_TET,   2, {1, 2, 3, 0,  5, 8, 4, 9, 7, 6}},
    {27, CELL_PYR,   2, {4, 2, 3, 0, 1,  11, 12, 9, 10, 7, 8, 5, 6}},
    {26, CELL_PRISM, 2, {4, 5, 3, 1, 2, 0,  10, 11, 9, 7, 8, 6, 14, 13, 12}},
    {25, CELL_HEX,   2, {7, 4, 5, 6, 3, 0, 1, 2,  15, 12, 13, 14, 11, 8, 9, 10, 19, 16, 17, 18}},
};
// clang-format on
constexpr int ntypes = sizeof vtk_types / sizeof *vtk_types;

// The row of a type; -1: it is not taken.
int row_of_type(int vtk)
{
    for (int row = 0; row < ntypes; ++row)
        if (vtk_types[row].vtk == vtk) return row;
    return -1;
}

int nnodes_of(const vtk_type &type)
{
    const cell_kind_nodes &nodes = cell_kinds[type.kind];
    return type.order == 1 ? nodes.ncorners : nodes.nnodes_2;
}

struct vtk_cells {
    qx_long count;
    const unsigned char *types;
    const qx_long *offsets, *nodes;
};

// Counts the cells of each row of the table, and checks each cell.
bool count_cells(const host_field *field, const vtk_cells &cells, qx_long *counts)
{
    for (qx_long cell = 0; cell < cells.count; ++cell) {
        const qx_long begin = cells.offsets[cell], end = cells.offsets[cell + 1];
        const long long number = cell, length = begin >= 0 && end >= begin ? end - begin : 0;
        const int vtk = cells.types[cell], row = row_of_type(vtk);
        if (row < 0)
            return host_fail(
                "host_add_cells_vtk: cell %lld has VTK's type %d, which is none of 3, 5, 8 to 14 and 21 "
                "to 27",
                number, vtk);
        const vtk_type &type = vtk_types[row];
        if (length != nnodes_of(type))
            return host_fail(
                "host_add_cells_vtk: cell %lld has %lld nodes, but a cell of VTK's type %d has %d", number,
                length, vtk, nnodes_of(type));
        if (cell_kinds[type.kind].ndim > field->nspace)
            return host_fail(
                "host_add_cells_vtk: cell %lld is a %s, which needs %d coordinates a node, but the field "
                "has %d",
                number, cell_kind_names[type.kind], cell_kinds[type.kind].ndim, field->nspace);
        for (qx_long i = begin; i < end; ++i)
            if (cells.nodes[i] < 0 || cells.nodes[i] >= field->nnodes)
                return host_fail(
                    "host_add_cells_vtk: cell %lld names node %lld, but the field has %lld nodes", number,
                    static_cast<long long>(cells.nodes[i]), static_cast<long long>(field->nnodes));
        ++counts[row];
    }
    return true;
}

} // namespace

extern "C" int host_add_cells_vtk(host_field *field, qx_long ncells, const unsigned char *types,
                                  const qx_long *offsets, const qx_long *nodes, qx_long *numbers)
{
    if (!takes_cells("host_add_cells_vtk", field, ncells)) return 0;
    if (ncells > 0 && (types == nullptr || offsets == nullptr || nodes == nullptr))
        return host_fail("host_add_cells_vtk: %s is NULL", types == nullptr     ? "types"
                                                           : offsets == nullptr ? "offsets"
                                                                                : "nodes");
    const vtk_cells cells = {ncells, types, offsets, nodes};
    qx_long counts[ntypes] = {}, first[ntypes], filled[ntypes] = {};
    if (!count_cells(field, cells, counts)) return 0;

    // Types of one kind and order share a set: the later one of them in the table fills up after the other.
    int set_of[ntypes];
    list_of<qx_long> connect[ntypes];
    qx_long next = 0, size[ntypes] = {};
    for (int s = 0; s < field->nsets; ++s)
        next += field->sets[s].count;
    const int nsets_before = field->nsets;
    for (int row = 0; row < ntypes; ++row) {
        set_of[row] = row;
        for (int other = 0; other < row; ++other)
            if (vtk_types[other].kind == vtk_types[row].kind &&
                vtk_types[other].order == vtk_types[row].order)
                set_of[row] = other;
        size[set_of[row]] += counts[row];
    }
    bool good = true;
    for (int row = 0; good && row < ntypes; ++row) {
        if (set_of[row] != row || size[row] == 0) continue;
        connect[row] = allocate_list<qx_long>(size[row] * nnodes_of(vtk_types[row]));
        good = connect[row] != nullptr && add_set(field, {vtk_types[row].kind, vtk_types[row].order,
                                                          size[row], connect[row].get(), connect[row].get()});
        first[row] = next;
        next += size[row];
    }
    if (!good) {
        field->nsets = nsets_before;
        return host_fail("host_add_cells_vtk: no memory for the cells");
    }
    for (qx_long cell = 0; cell < ncells; ++cell) {
        const int row = row_of_type(types[cell]), set = set_of[row], length = nnodes_of(vtk_types[row]);
        const qx_long place = filled[set]++, *from = nodes + offsets[cell];
        qx_long *to = connect[set].get() + place * length;
        for (int k = 0; k < length; ++k)
            to[k] = from[vtk_types[row].node[k]];
        if (numbers != nullptr) numbers[cell] = first[set] + place;
    }
    for (list_of<qx_long> &list : connect)
        list.release(); // the field's now
    return 1;
}
