// Positions and data between pairs of nodes: what gives the new nodes of an extraction their place and data.
//
// One walk serves all of them: it goes along the two node lists, leaves out pairs with a negative number, and
// asks for the rows of a later pair while it works on this one. Null tests, element types and the usual row
// lengths are template arguments, so that nothing is decided inside the loop.
//
// Between two values a and b stands (b - a) * t + a. It is formed in float for the types up to float, and in
// double for double and qx_long; integer types truncate the result towards zero.

#include <skoklana/mesh.h>

#include "coord_block.hpp"
#include "dtype.hpp"
#include "fetch.hpp"
#include "memory.hpp"
#include "rows.hpp"

#include <algorithm>
#include <type_traits>

namespace {

// Two lists of nodes, an entry a pair.
struct node_pairs {
    qx_long count;
    const qx_long *first, *second;

    // Calls body(i, a, b) for the pairs from start to end - 1 that are nodes.
    template <typename Body> FORCE_INLINE void each(qx_long start, qx_long end, Body body) const
    {
        for (qx_long i = start; i < end; ++i)
            if ((first[i] | second[i]) >= 0) body(i, first[i], second[i]);
    }

    // The same for all pairs, with the rows of a later pair asked for ahead of their use.
    template <typename Body> FORCE_INLINE void each_row(const void *rows, size_t row_bytes, Body body) const
    {
        const qx_long last = std::max(count - rows_ahead, qx_long{0});
        for (qx_long i = 0; i < last; ++i) {
            ask_for_row(rows, row_bytes, first[i + rows_ahead]);
            ask_for_row(rows, row_bytes, second[i + rows_ahead]);
            if ((first[i] | second[i]) >= 0) body(i, first[i], second[i]);
        }
        each(last, count, body);
    }
};

// The type in which values of T are mixed.
template <typename T>
using mixing = std::conditional_t<std::is_same_v<T, double> || std::is_same_v<T, qx_long>, double, float>;

} // namespace

template <typename T> FORCE_INLINE T between(T a, T b, float t)
{
    using real = mixing<T>;
    const real from = static_cast<real>(a);
    return truncate_to<T>((static_cast<real>(b) - from) * static_cast<real>(t) + from);
}

// Rows of veclen elements between rows of data; a component that is null at either end comes out null. A
// constant of 0 stands for any veclen.
template <typename T, bool nulls, int constant>
static void eval_rows(const node_pairs pairs, int veclen_, const T *data, T null_value, const float *t,
                      T *out)
{
    const int veclen = constant != 0 ? constant : veclen_;
    pairs.each_row(data, sizeof(T) * static_cast<size_t>(veclen), [=](qx_long i, qx_long a, qx_long b) {
        const T *from = data + a * veclen, *to = data + b * veclen;
        T *row = out + i * veclen;
        const float at = t[i]; // read once: a store of bytes may be to anything
        for (int k = 0; k < veclen; ++k)
            row[k] = nulls && (from[k] == null_value || to[k] == null_value) ? null_value
                                                                             : between(from[k], to[k], at);
    });
}

template <typename T, bool nulls>
static void eval(const node_pairs &pairs, int veclen, const void *data, T null_value, const float *t,
                 void *out)
{
    expect_to_fill(out, pairs.count * veclen * static_cast<qx_long>(sizeof(T)));
    with_constant<int, 1, 2, 3>(veclen, [&](auto constant) {
        eval_rows<T, nulls, constant()>(pairs, veclen, static_cast<const T *>(data), null_value, t,
                                        static_cast<T *>(out));
    });
}

template <typename Axes>
FORCE_INLINE void eval_compact(const compact_rows<Axes> &rows, const node_pairs &pairs, const float *t,
                               float *out)
{
    const int nspace = rows.axes.nspace;
    for (qx_long i = 0; i < pairs.count;) {
        const qx_long *a = pairs.first + i, *b = pairs.second + i;
        float *target = out + i * nspace;
        if (pairs.count - i >= block_nodes && rows.is_block(a) && rows.is_block(b)) {
            block_column from[3], to[3];
            rows.read_block(a, from);
            rows.read_block(b, to);
            for (int d = 0; d < nspace; ++d)
                for (int k = 0; k < block_nodes; ++k)
                    from[d].at[k] = between(from[d].at[k], to[d].at[k], t[i + k]);
            store_block(from, nspace, target);
            i += block_nodes;
        } else {
            if ((*a | *b) >= 0) {
                float from[3], to[3];
                rows.read(*a, from);
                rows.read(*b, to);
                for (int d = 0; d < nspace; ++d)
                    target[d] = between(from[d], to[d], t[i]);
            }
            ++i;
        }
    }
}

template <typename Axes>
static void eval_compact_plain(const compact_rows<Axes> &rows, const node_pairs &pairs, const float *t,
                               float *out)
{
    eval_compact(rows, pairs, t, out);
}

template <typename Axes>
TARGET_AVX2 static void eval_compact_avx2(const compact_rows<Axes> &rows, const node_pairs &pairs,
                                          const float *t, float *out)
{
    eval_compact(rows, pairs, t, out);
}

template <typename Axes>
static int eval_on_axes(const Axes &axes, const node_pairs &pairs, const float *t, float *out)
{
    const compact_rows<Axes> rows(axes);
    expect_to_fill(out, pairs.count * axes.nspace * static_cast<qx_long>(sizeof(float)));
    (have_avx2() ? eval_compact_avx2<Axes> : eval_compact_plain<Axes>)(rows, pairs, t, out);
    return 1;
}

int UTILeval_param_coord(mesh_info *mesh, qx_long count, const qx_long *list_a, const qx_long *list_b,
                         const float *t, float *out)
{
    if (!fetch_coords(mesh)) return 0;
    eval<float, false>({count, list_a, list_b}, mesh->nspace, mesh->coords, 0, t, out);
    return 1;
}

int UTILeval_param_coord_unif(mesh_info *mesh, qx_long count, const qx_long *list_a, const qx_long *list_b,
                              const float *t, float *out)
{
    if (!fetch_points(mesh)) return 0;
    return eval_on_axes(uniform_axes(mesh->ndim, mesh->dims, mesh->nspace, mesh->points),
                        {count, list_a, list_b}, t, out);
}

int UTILeval_param_coord_rect(mesh_info *mesh, qx_long count, const qx_long *list_a, const qx_long *list_b,
                              const float *t, float *out)
{
    if (!fetch_points(mesh)) return 0;
    return eval_on_axes(rectilinear_axes(mesh->ndim, mesh->dims, mesh->nspace, mesh->points),
                        {count, list_a, list_b}, t, out);
}

int UTILeval_param(qx_long count, int veclen, int data_type, const void *data, int null_flag,
                   const void *null_value, const qx_long *list_a, const qx_long *list_b, const float *t,
                   void *out)
{
    return with_dtype(data_type, "UTILeval_param", [=](auto type) {
        using T = typename decltype(type)::type;
        const node_pairs pairs = {count, list_a, list_b};
        const T null = null_value_of<T>(null_flag, null_value);
        if (null_flag != 0)
            eval<T, true>(pairs, veclen, data, null, t, out);
        else
            eval<T, false>(pairs, veclen, data, null, t, out);
        return 1;
    });
}

int UTILget_param(qx_long count, int data_type, const void *data, double value, const qx_long *list_a,
                  const qx_long *list_b, float *out)
{
    return with_dtype(data_type, "UTILget_param", [=](auto type) {
        using T = typename decltype(type)::type;
        const T *values = static_cast<const T *>(data);
        const node_pairs pairs = {count, list_a, list_b};
        expect_to_fill(out, count * static_cast<qx_long>(sizeof(float)));
        pairs.each_row(values, sizeof(T), [=](qx_long i, qx_long a, qx_long b) {
            const double from = static_cast<double>(values[a]), to = static_cast<double>(values[b]);
            // Equal in the data's own type: large qx_long values may differ and yet be one double.
            out[i] = values[a] == values[b] ? 0 : static_cast<float>((value - from) / (to - from));
        });
        return 1;
    });
}
