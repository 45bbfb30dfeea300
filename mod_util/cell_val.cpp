// Values in one cell: the values of its nodes, weighted by its shape function.
//
// The node values are gathered as floats, whatever their type, and multiplied by a row of shape values for
// each point. Nothing is allocated: the gather has a fixed room on the stack, enough for 100 components of
// the largest cell. Longer rows go through it in blocks of components, each with its own product.

#include "cell_set.hpp"
#include "dtype.hpp"
#include "fetch.hpp"
#include "lattice.hpp"

#include <skoklana/cell.h>

#include <algorithm>

// Shape functions of this library have 20 nodes at most; a caller's own may have more.
constexpr int most_nodes = 256;
constexpr int gather_room = 2048; // floats
static_assert(gather_room >= most_nodes, "a block holds one component at least");

// The cell's part of a field.
struct cell_field {
    const qx_long *nodes;
    int nnodes;
    shape_func shape;
    int veclen;
    const void *data;
    int data_type;
    int null_flag;
    const void *null_value;
};

// Only the first component tells whether a row is null.
template <typename T> static bool touches_null(const cell_field &field)
{
    const T *data = static_cast<const T *>(field.data),
            null = null_value_of<T>(field.null_flag, field.null_value);
    for (int k = 0; k < field.nnodes; ++k)
        if (data[field.nodes[k] * field.veclen] == null) return true;
    return false;
}

// Components first to first + count - 1 of each node, as rows of count floats.
template <typename T> static void gather_nodes(const cell_field &field, int first, int count, float *values)
{
    const T *data = static_cast<const T *>(field.data);
    for (int k = 0; k < field.nnodes; ++k) {
        const T *from = data + field.nodes[k] * field.veclen + first;
        for (int c = 0; c < count; ++c)
            *values++ = static_cast<float>(from[c]);
    }
}

static void fill_with_null(const cell_field &field, float *row)
{
    float null = 0;
    UTILtype_to_float(field.data_type, field.null_value, &null);
    std::fill(row, row + field.veclen, null);
}

static int interpolate_in_cell(const cell_field &field, int npts, const float *uvw, float *out)
{
    if (field.shape == nullptr || field.data == nullptr || field.veclen < 1) return 0;
    if (field.nnodes < 1 || field.nnodes > most_nodes) return 0;
    float values[gather_room], n[most_nodes];
    const int block = std::min(field.veclen, gather_room / field.nnodes);
    for (int first = 0, count = block; count > 0;
         first += count, count = std::min(block, field.veclen - first)) {
        const int gathered = with_dtype(field.data_type, "UTILinterp", [&](auto tag) {
            using T = typename decltype(tag)::type;
            if (field.null_flag != 0 && first == 0 && touches_null<T>(field)) {
                fill_with_null(field, out);
                return 0;
            }
            gather_nodes<T>(field, first, count, values);
            return 1;
        });
        if (gathered == 0) return 0;
        for (qx_long i = 0; i < npts; ++i) {
            field.shape(uvw + 3 * i, n);
            MATvec_by_mat(n, values, out + i * field.veclen + first, 1, field.nnodes, count);
        }
    }
    return 1;
}

int UTILinterp_cell_val(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                        int null_flag, const void *null_value, int npts, const float *uvw, float *out)
{
    const cell_place place = find_set(mesh, cell);
    if (!is_cell(place) || !fetch_connect(mesh, place.set)) return 0;
    const cell_field field = {cell_nodes(mesh, place),
                              mesh->cell_nnodes[place.set],
                              set_function<shape_func>(mesh, place.set, SLOT_SHAPE_FUNC),
                              veclen,
                              data,
                              data_type,
                              null_flag,
                              null_value};
    return interpolate_in_cell(field, npts, uvw, out);
}

int UTILinterp_cell_val_struct(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                               int null_flag, const void *null_value, int npts, const float *uvw, float *out)
{
    constexpr int most_corners = 8;
    const int ncorners = mesh->cell_nnodes[0];
    if (cell < 0 || cell >= mesh->nnodes || ncorners > most_corners) return 0;
    qx_long nodes[most_corners];
    location_order_nodes(cell, flat_steps_of(mesh->ndim, mesh->dims), ncorners, nodes);
    // The last position of an axis starts no cell.
    if (*std::max_element(nodes, nodes + ncorners) >= mesh->nnodes) return 0;
    const cell_field field = {nodes,     ncorners,  set_function<shape_func>(mesh, 0, SLOT_SHAPE_FUNC),
                              veclen,    data,      data_type,
                              null_flag, null_value};
    return interpolate_in_cell(field, npts, uvw, out);
}

int UTILtesselate_cell_val(const qx_long *nodes, int nnodes, shape_func shape, int veclen, const void *data,
                           int data_type, int null_flag, const void *null_value, int npts, const float *uvw,
                           float *out)
{
    return interpolate_in_cell({nodes, nnodes, shape, veclen, data, data_type, null_flag, null_value}, npts,
                               uvw, out);
}
