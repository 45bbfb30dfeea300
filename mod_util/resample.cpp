// Grids brought to another size: every n-th sample, or the nearest sample of a finer or coarser grid.
//
// Every n-th sample. Leading axes of which all samples stay are contiguous: they become one block, and what is
// left is a nest of strided loops over blocks.
//
// Nearest sample. Along x the source columns are the same in every row, so they are worked out once for a
// stretch of columns and all rows of it are copied by that list; the other axes cost a multiplication a row.
//
// Both move data and do no arithmetic on it.
#include <skoklana/array.h>

#include "dtype.hpp"
#include "row_copy.hpp"

#include <algorithm>

namespace {

constexpr int most_axes = 16;

// What is left of a grid when its contiguous leading axes are one block: sizes and steps in elements, and the
// elements copied for each sample of the first axis.
struct sample_axes {
    int count = 0;
    qx_long dims[most_axes], steps[most_axes], blocks[most_axes];
};

// Columns that are looked up together.
constexpr qx_long columns_at_a_time = 1024;

struct nearest_axis {
    double scale;

    nearest_axis(qx_long in, qx_long out)
        : scale((static_cast<double>(in) - 1.0) / (static_cast<double>(out) - 1.0))
    {
    }

    // The constant keeps a sample that lies exactly between two from rounding up. An output of one sample has
    // no scale and takes the first.
    qx_long source(qx_long i) const
    {
        return i == 0 ? 0 : static_cast<qx_long>(static_cast<double>(i) * scale + 0.4999999999999);
    }
};

} // namespace

// ---- every n-th sample -------------------------------------------------------------------------------------

template <typename T>
static void downsize(int ndim, const qx_long *dims, const qx_long *steps, const qx_long *blocks, const T *in,
                     T *out, qx_long *offset)
{
    const int last = ndim - 1;
    if (last > 0) {
        qx_long stride = 1;
        for (int d = 0; d < last; ++d)
            stride *= dims[d];
        for (qx_long i = 0; i < dims[last]; i += steps[last])
            downsize(last, dims, steps, blocks, in + i * stride, out, offset);
        return;
    }
    const qx_long nsamples = dims[0] > 0 ? (dims[0] - 1) / steps[0] + 1 : 0;
    if (blocks[0] == 1) {
        copy_every(steps[0], nsamples, in, out + *offset);
    } else {
        const size_t block_bytes = static_cast<size_t>(blocks[0]) * sizeof(T);
        for (qx_long i = 0; i < nsamples; ++i)
            memcpy(out + *offset + i * blocks[0], in + i * steps[0], block_bytes);
    }
    *offset += nsamples * blocks[0];
}

template <typename T>
static int downsize_axes(int ndim, const qx_long *dims, const qx_long *steps, const qx_long *blocks,
                         const T *in, T *out, qx_long *offset)
{
    for (int d = 0; d < ndim; ++d)
        if (steps[d] < 1) return 0;
    if (ndim > 0) downsize(ndim, dims, steps, blocks, in, out, offset);
    return 1;
}

// Axes of one sample are dropped; if all are, one is left.
static sample_axes fold_axes(int ndim, const qx_long *dims, const int *steps)
{
    sample_axes left;
    qx_long block = 1;
    int d = 0;
    for (; d < ndim && steps[d] == 1; ++d)
        block *= dims[d];
    for (qx_long folded = block; d < ndim; ++d, folded = 1) {
        const qx_long dim = dims[d] * folded;
        if (dims[d] == 1 && folded == 1) continue;
        left.dims[left.count] = dim;
        left.steps[left.count] = steps[d] * folded;
        left.blocks[left.count] = folded;
        ++left.count;
    }
    if (left.count == 0) {
        left.count = 1;
        left.dims[0] = left.steps[0] = left.blocks[0] = block;
        if (block == 0) left.steps[0] = 1;
    }
    return left;
}

int UTILdownsize(int ndim, const qx_long *dims, const int *steps, int dtype, const void *in, void *out)
{
    if (ndim > most_axes) return 0;
    return with_dtype(dtype, "UTILdownsize", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        if (ndim < 1) return 1;
        for (int d = 0; d < ndim; ++d)
            if (steps[d] < 1) return 0;
        const sample_axes axes = fold_axes(ndim, dims, steps);
        qx_long offset = 0;
        downsize(axes.count, axes.dims, axes.steps, axes.blocks, static_cast<const T *>(in),
                 static_cast<T *>(out), &offset);
        return 1;
    });
}

// ---- nearest sample ----------------------------------------------------------------------------------------

// Rows of row_bytes, whatever they hold.
static void resample_rows(int ndim, const qx_long *in_dims, const qx_long *out_dims, qx_long row_bytes,
                          const char *in, char *out)
{
    qx_long from[3] = {1, 1, 1}, to[3] = {1, 1, 1};
    std::copy(in_dims, in_dims + ndim, from);
    std::copy(out_dims, out_dims + ndim, to);
    const nearest_axis axis[3] = {{from[0], to[0]}, {from[1], to[1]}, {from[2], to[2]}};

    qx_long columns[columns_at_a_time];
    for (qx_long first = 0; first < to[0]; first += columns_at_a_time) {
        const qx_long ncolumns = std::min(columns_at_a_time, to[0] - first);
        bool side_by_side = true;
        for (qx_long i = 0; i < ncolumns; ++i) {
            columns[i] = axis[0].source(first + i);
            side_by_side &= columns[i] == columns[0] + i;
        }
        for (qx_long k = 0; k < to[2]; ++k) {
            for (qx_long j = 0; j < to[1]; ++j) {
                const qx_long row = (axis[2].source(k) * from[1] + axis[1].source(j)) * from[0];
                char *out_row = out + ((k * to[1] + j) * to[0] + first) * row_bytes;
                if (side_by_side)
                    memcpy(out_row, in + (row + columns[0]) * row_bytes,
                           static_cast<size_t>(ncolumns * row_bytes));
                else
                    copy_listed(row_bytes, in + row * row_bytes, ncolumns, columns, out_row);
            }
        }
    }
}

template <typename T>
static int resample(int ndim, const qx_long *in_dims, const qx_long *out_dims, int veclen, const T *in,
                    T *out)
{
    if (ndim < 1 || ndim > 3 || veclen < 1) return 1;
    resample_rows(ndim, in_dims, out_dims, veclen * static_cast<qx_long>(sizeof(T)),
                  reinterpret_cast<const char *>(in), reinterpret_cast<char *>(out));
    return 1;
}

int UTILresample(int ndim, const qx_long *in_dims, const qx_long *out_dims, int veclen, int dtype,
                 const void *in, void *out)
{
    return with_dtype(dtype, "UTILresample", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        return resample(ndim, in_dims, out_dims, veclen, static_cast<const T *>(in), static_cast<T *>(out));
    });
}

// ---- exported by type --------------------------------------------------------------------------------------

extern "C" {

#define EXPORT_DOWNSIZE(code, T, suffix)                                                                  \
    int UTILdownsize_##suffix(int ndim, const qx_long *dims, const qx_long *steps, const qx_long *blocks, \
                              const T *in, T *out, qx_long *offset)                                       \
    {                                                                                                     \
        return downsize_axes(ndim, dims, steps, blocks, in, out, offset);                                 \
    }
FOR_EACH_DTYPE(EXPORT_DOWNSIZE)
#undef EXPORT_DOWNSIZE

#define EXPORT_RESAMPLE(code, T, suffix)                                                             \
    int UTILresample_##suffix(int ndim, const qx_long *in_dims, const qx_long *out_dims, int veclen, \
                              const T *in, T *out)                                                   \
    {                                                                                                \
        return resample(ndim, in_dims, out_dims, veclen, in, out);                                   \
    }
FOR_EACH_DTYPE(EXPORT_RESAMPLE)
#undef EXPORT_RESAMPLE

} // extern "C"
