// The derivative matrix at one parametric position of one cell, by its shape derivatives and the inverse of its
// Jacobian. All products and inverses are the host's.
#pragma once

#include "cell_val.hpp"
#include "jacobian.hpp"
#include "memory.hpp"

#include <skoklana/cell.h>

#include <algorithm>

// Shape derivatives of a cell take 256 floats at most.
constexpr int slope_room = 256;
constexpr int most_derived_nodes = slope_room / 3;

// Zeroed floats: on the stack, or on the heap where they are many.
class float_room {
  public:
    explicit float_room(qx_long count)
    {
        if (count > stack_floats) {
            block = insist_zeroed<float>(count, "Cannot alloc derivative array");
            return;
        }
        std::fill_n(own, count, 0.0f);
        block = own;
    }
    float_room(const float_room &) = delete;
    float_room &operator=(const float_room &) = delete;
    ~float_room()
    {
        if (block != own) free(block);
    }
    float *data() { return block; }

  private:
    static constexpr qx_long stack_floats = 512;
    float own[stack_floats];
    float *block;
};

struct derived_cell {
    const qx_long *nodes;
    int nnodes;
    shape_deriv_func slopes;
};

// The node values as rows of floats, of one cell. False: there are none, because of a null node or a type that
// is none.
inline bool gather_for_derivative(const derived_cell &cell, const node_data &of, float *values)
{
    const valued_cell valued = {cell.nodes, cell.nnodes, nullptr};
    return with_dtype_or(
        of.data_type,
        [] {
            print_error("interpolate: unknown data type\n");
            return false;
        },
        [&](auto type) {
            using T = typename decltype(type)::type;
            if (of.null_flag != 0 && touches_null<T>(valued, of)) return false;
            gather_nodes<T>(valued, of, 0, of.veclen, values);
            return true;
        });
}

inline bool can_derive(const derived_cell &cell, const node_data &of)
{
    return of.data != nullptr && of.veclen >= 1 && cell.slopes != nullptr && cell.nnodes >= 1 &&
           cell.nnodes <= most_derived_nodes;
}

// place(xyz) fills the cell's nodes, nnodes rows of 3 floats.
template <typename Place>
int derive_in_solid(const derived_cell &cell, const node_data &of, const float *uvw, float *out, Place place)
{
    if (!can_derive(cell, of)) return 0;
    const int n = cell.nnodes;
    float_room values(static_cast<qx_long>(n) * of.veclen);
    if (!gather_for_derivative(cell, of, values.data())) return 0;

    float xyz[3 * most_derived_nodes], slopes[slope_room] = {}, inverse[9], along[slope_room];
    place(xyz);
    cell.slopes(uvw, slopes);
    if (UTILjacobian_3d_inv(n, slopes, xyz, inverse) == 0) return 0;
    MATvec_by_mat(inverse, slopes, along, 3, 3, n);
    MATvec_by_mat(along, values.data(), out, 3, n, of.veclen);
    return 1;
}

// A row of node values times the frame, read as a matrix of nnodes rows of veclen: what callers have always
// been given for more than one component. It is no rotation of the vectors. Frame entries past the ninth
// count as 0, and only the first row of the product is not 0.
inline void derive_turned_row(int n, int veclen, const float *along, const float *values, const float *frame,
                              float *out)
{
    const qx_long count = static_cast<qx_long>(n) * veclen;
    float_room padded(count), turned(count);
    std::copy_n(frame, std::min<qx_long>(9, count), padded.data());
    MATvec_by_mat(values, padded.data(), turned.data(), 1, n, veclen);
    MATvec_by_mat(along, turned.data(), out, 2, n, veclen);
}

template <typename Place>
int derive_in_surface(const derived_cell &cell, const node_data &of, const float *uvw, float *out,
                      float *frame, float *local_xyz, Place place)
{
    if (!can_derive(cell, of)) return 0;
    const int n = cell.nnodes;
    float_room values(static_cast<qx_long>(n) * of.veclen);
    if (!gather_for_derivative(cell, of, values.data())) return 0;

    float xyz[3 * most_derived_nodes], slopes[slope_room] = {}, inverse[4], along[slope_room];
    place(xyz);
    cell.slopes(uvw, slopes);
    if (UTILjacobian_2d_inv(n, slopes, xyz, inverse, frame, local_xyz) == 0) return 0;
    MATvec_by_mat(inverse, slopes, along, 2, 2, n);
    if (of.veclen == 1)
        MATvec_by_mat(along, values.data(), out, 2, n, 1);
    else
        derive_turned_row(n, of.veclen, along, values.data(), frame, out);
    return 1;
}

// One node as a row of 3 floats; coordinates that the mesh does not have are 0.
FORCE_INLINE void place_node(const float *coords, int nspace, qx_long node, float *xyz)
{
    for (int d = 0; d < 3; ++d)
        xyz[d] = d < nspace ? coords[node * nspace + d] : 0.0f;
}
