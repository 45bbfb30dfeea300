// Values in one cell, by the weights of its nodes: what single interpolations and sampling share.
//
// The node values are gathered as floats, whatever their type, and multiplied by a row of shape values for
// each point. Nothing is allocated: the gather has a fixed room on the stack, enough for 100 components of
// the largest cell. Longer rows go through it in blocks of components, each with its own product.
#pragma once

#include "cell_test.hpp"
#include "dtype.hpp"
#include "own_methods.hpp"
#include "shape.hpp"

#include <optional>

// Shape functions of this library have 20 nodes at most; a caller's own may have more.
constexpr int most_valued_nodes = 256;
constexpr int gather_room = 2048; // floats
static_assert(gather_room >= most_valued_nodes, "a block holds one component at least");

// A cell as interpolation sees it.
struct valued_cell {
    const qx_long *nodes;
    int nnodes;
    shape_func shape;
};

// Data of all nodes.
struct node_data {
    int veclen;
    const void *data;
    int data_type;
    int null_flag;
    const void *null_value;
};

// Only the first component tells whether a row is null.
template <typename T> bool touches_null(const valued_cell &cell, const node_data &of)
{
    const T *data = static_cast<const T *>(of.data), null = null_value_of<T>(of.null_flag, of.null_value);
    for (int k = 0; k < cell.nnodes; ++k)
        if (data[cell.nodes[k] * of.veclen] == null) return true;
    return false;
}

// Components first to first + count - 1 of each node, as rows of count floats.
template <typename T>
void gather_nodes(const valued_cell &cell, const node_data &of, int first, int count, float *values)
{
    const T *data = static_cast<const T *>(of.data);
    for (int k = 0; k < cell.nnodes; ++k) {
        const T *from = data + cell.nodes[k] * of.veclen + first;
        for (int c = 0; c < count; ++c)
            *values++ = static_cast<float>(from[c]);
    }
}

inline void fill_with_null(const node_data &of, float *row)
{
    float null = 0;
    UTILtype_to_float(of.data_type, of.null_value, &null);
    std::fill(row, row + of.veclen, null);
}

// The row of Veclen values at one point of a cell of Nnodes, where shape(uvw, n) gives the weights. Summed from 0
// in the order of the nodes, as the host's product does.
template <typename T, int Nnodes, int Veclen, typename Shape>
FORCE_INLINE void weigh_nodes(const valued_cell &cell, const T *data, const float *uvw, Shape shape,
                              float *out)
{
    float n[Nnodes], sum[Veclen] = {};
    shape(uvw, n);
    for (int k = 0; k < Nnodes; ++k)
        for (int c = 0; c < Veclen; ++c)
            sum[c] += n[k] * static_cast<float>(data[cell.nodes[k] * Veclen + c]);
    for (int c = 0; c < Veclen; ++c)
        out[c] = sum[c];
}

// The same in one of the cells that most meshes have; false: the cell is none of them.
template <typename T, int Veclen>
FORCE_INLINE bool weigh_usual_cell(const valued_cell &cell, const void *data, const float *uvw, float *out)
{
    const T *rows = static_cast<const T *>(data);
    const int kind = own_shape(cell.shape);
    if (kind == CELL_HEX && cell.nnodes == 8) {
        weigh_nodes<T, 8, Veclen>(cell, rows, uvw, cell_shape<CELL_HEX, 1>::values, out);
        return true;
    }
    if (kind == CELL_TET && cell.nnodes == 4) {
        weigh_nodes<T, 4, Veclen>(cell, rows, uvw, cell_shape<CELL_TET, 1>::values, out);
        return true;
    }
    return false;
}

// 1, or 0 where there is no value; what is written then is the null value, or nothing.
template <typename T>
int interpolate_in_cell(const valued_cell &cell, const node_data &of, int npts, const float *uvw, float *out)
{
    if (cell.shape == nullptr || of.data == nullptr || of.veclen < 1) return 0;
    if (cell.nnodes < 1 || cell.nnodes > most_valued_nodes) return 0;
    if (of.null_flag != 0 && touches_null<T>(cell, of)) {
        fill_with_null(of, out);
        return 0;
    }
    // A scalar or a vector, at one point.
    if (npts == 1 && of.veclen == 1 && weigh_usual_cell<T, 1>(cell, of.data, uvw, out)) return 1;
    if (npts == 1 && of.veclen == 3 && weigh_usual_cell<T, 3>(cell, of.data, uvw, out)) return 1;
    float values[gather_room], n[most_valued_nodes];
    const int block = std::min(of.veclen, gather_room / cell.nnodes);
    for (int first = 0, count = block; count > 0;
         first += count, count = std::min(block, of.veclen - first)) {
        gather_nodes<T>(cell, of, first, count, values);
        for (qx_long i = 0; i < npts; ++i) {
            cell.shape(uvw + 3 * i, n);
            MATvec_by_mat(n, values, out + i * of.veclen + first, 1, cell.nnodes, count);
        }
    }
    return 1;
}

// The same for a type that is only known by its code; "unknown data type" under "UTILinterp" for one that is none.
int interpolate_any_type(const valued_cell &cell, const node_data &of, int npts, const float *uvw,
                         float *out);

// The cells of a mesh whose function for values is the library's own, and whose connect lists are there; of
// others look_up finds none, and the mesh's function is to be called.
class valued_cells {
  public:
    explicit valued_cells(mesh_info *mesh_) : mesh(mesh_), own(own_cell_value(mesh_)) {}

    // The view may lean on the record room.
    FORCE_INLINE bool look_up(qx_long cell, cell_view *room, valued_cell *view)
    {
        if (own == own_form::cells) {
            const cell_place place = find_set(mesh, cell);
            if (!is_cell(place) || mesh->cell_connect[place.set] == nullptr) return false;
            *view = {cell_nodes(mesh, place), mesh->cell_nnodes[place.set],
                     set_function<shape_func>(mesh, place.set, SLOT_SHAPE_FUNC)};
            return true;
        }
        if (own != own_form::structured || mesh->cell_nnodes[0] > 8) return false;
        if (!lattice) lattice.emplace(mesh);
        if (!lattice->nodes_of(cell, room)) return false;
        *view = {room->nodes, room->nnodes, set_function<shape_func>(mesh, 0, SLOT_SHAPE_FUNC)};
        return true;
    }

    // Asks for the nodes of a cell that is to be looked up.
    FORCE_INLINE void ask_for_nodes(qx_long cell) const
    {
        if (own == own_form::cells) set_cells{mesh}.ask_for_cell<1>(nullptr, cell);
    }

  private:
    mesh_info *mesh;
    own_form own;
    std::optional<lattice_cells> lattice; // once it is needed
};
