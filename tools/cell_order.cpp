#include "cell_order.hpp"

#include <vtkCellType.h>

#include <array>

// clang-format off
static const cell_order rows[] = {
    {VTK_LINE,                   CELL_LINE,  1,  2, {0, 1}},
    {VTK_QUADRATIC_EDGE,         CELL_LINE,  2,  3, {0, 1,  2}},
    {VTK_TRIANGLE,               CELL_TRI,   1,  3, {0, 1, 2}},
    {VTK_QUADRATIC_TRIANGLE,     CELL_TRI,   2,  6, {0, 1, 2,  3, 4, 5}},
    {VTK_QUAD,                   CELL_QUAD,  1,  4, {0, 1, 2, 3}},
    {VTK_QUADRATIC_QUAD,         CELL_QUAD,  2,  8, {0, 1, 2, 3,  4, 5, 6, 7}},
    {VTK_TETRA,                  CELL_TET,   1,  4, {1, 2, 3, 0}},
    {VTK_QUADRATIC_TETRA,        CELL_TET,   2, 10, {1, 2, 3, 0,  5, 8, 4, 9, 7, 6}},
    {VTK_PYRAMID,                CELL_PYR,   1,  5, {4, 2, 3, 0, 1}},
    {VTK_QUADRATIC_PYRAMID,      CELL_PYR,   2, 13, {4, 2, 3, 0, 1,  11, 12, 9, 10, 7, 8, 5, 6}},
    {VTK_WEDGE,                  CELL_PRISM, 1,  6, {4, 5, 3, 1, 2, 0}},
    {VTK_QUADRATIC_WEDGE,        CELL_PRISM, 2, 15, {4, 5, 3, 1, 2, 0,  10, 11, 9, 7, 8, 6, 13, 14, 12}},
    {VTK_HEXAHEDRON,             CELL_HEX,   1,  8, {7, 4, 5, 6, 3, 0, 1, 2}},
    {VTK_QUADRATIC_HEXAHEDRON,   CELL_HEX,   2, 20, {7, 4, 5, 6, 3, 0, 1, 2,
                                                     15, 12, 13, 14, 11, 8, 9, 10, 19, 16, 17, 18}},
    // lattice order: x first, then y, then z
    {VTK_PIXEL,                  CELL_QUAD,  1,  4, {0, 1, 3, 2}},
    {VTK_VOXEL,                  CELL_HEX,   1,  8, {6, 4, 5, 7, 2, 0, 1, 3}},
    // with nodes on faces and in cells, which come last
    {VTK_BIQUADRATIC_TRIANGLE,   CELL_TRI,   2,  7, {0, 1, 2,  3, 4, 5}},
    {VTK_BIQUADRATIC_QUAD,       CELL_QUAD,  2,  9, {0, 1, 2, 3,  4, 5, 6, 7}},
    {VTK_TRIQUADRATIC_PYRAMID,   CELL_PYR,   2, 19, {4, 2, 3, 0, 1,  11, 12, 9, 10, 7, 8, 5, 6}},
    {VTK_BIQUADRATIC_QUADRATIC_WEDGE,
                                 CELL_PRISM, 2, 18, {4, 5, 3, 1, 2, 0,  10, 11, 9, 7, 8, 6, 13, 14, 12}},
    {VTK_BIQUADRATIC_QUADRATIC_HEXAHEDRON,
                                 CELL_HEX,   2, 24, {7, 4, 5, 6, 3, 0, 1, 2,
                                                     15, 12, 13, 14, 11, 8, 9, 10, 19, 16, 17, 18}},
    {VTK_TRIQUADRATIC_HEXAHEDRON, CELL_HEX,  2, 27, {7, 4, 5, 6, 3, 0, 1, 2,
                                                     15, 12, 13, 14, 11, 8, 9, 10, 19, 16, 17, 18}},
};
// clang-format on

const cell_order *order_of_vtk(int vtk_type)
{
    for (const cell_order &row : rows)
        if (row.vtk == vtk_type) return &row;
    return nullptr;
}

const cell_order *order_of_kind(int kind, int order)
{
    for (const cell_order &row : rows) // whole kinds come before lattice and reduced ones
        if (row.kind == kind && row.order == order) return &row;
    return nullptr;
}

int place_in_list(int kind, int order, int i)
{
    return kind == CELL_PRISM && order == 2 && (i == 12 || i == 13) ? 25 - i : i;
}

// Every kind is symmetric in u and v, so each node has a partner.
static std::array<std::array<signed char, 20>, CELL_KINDS> make_mirrors()
{
    std::array<std::array<signed char, 20>, CELL_KINDS> mirrors{};
    for (int kind = 0; kind < CELL_KINDS; ++kind) {
        const cell_kind_nodes &nodes = cell_kinds[kind];
        for (int a = 0; a < nodes.nnodes_2; ++a)
            for (int b = 0; b < nodes.nnodes_2; ++b)
                if (nodes.position[a][0] == nodes.position[b][1] &&
                    nodes.position[a][1] == nodes.position[b][0] &&
                    nodes.position[a][2] == nodes.position[b][2])
                    mirrors[kind][a] = static_cast<signed char>(b);
    }
    return mirrors;
}

const signed char *mirror_of_kind(int kind)
{
    static const auto mirrors = make_mirrors();
    return mirrors[kind].data();
}
