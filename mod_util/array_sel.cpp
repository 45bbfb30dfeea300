// Selection kernels: values clamped to bounds, rows copied by a list, components taken out of rows.
//
// All of these move data and do next to no arithmetic, so what counts is how few loads and stores an element
// takes. Loops over contiguous values have a wide form.

#include <skoklana/array.h>

#include "classify.hpp"
#include "dtype.hpp"
#include "row_copy.hpp"
#include "simd.hpp"

// ---- clamp -------------------------------------------------------------------------------------------------

namespace {

template <typename T> struct clamp_bounds {
    T lo, hi; // the lower one is applied first: with lo > hi a value below both becomes lo
    T null_value;
};

} // namespace

// Elements are read before they are written, each in its own slot, so that out may be in.
template <bool has_null, typename T>
FORCE_INLINE void clamp_body(qx_long count, const T *in, qx_long stride, const clamp_bounds<T> &to, T *out)
{
#pragma GCC ivdep
    for (qx_long i = 0; i < count; ++i) {
        const T v = in[i * stride];
        T clamped = v > to.hi ? to.hi : v; // NaN fails both tests and passes through
        clamped = v < to.lo ? to.lo : clamped;
        if (has_null) clamped = v == to.null_value ? to.null_value : clamped;
        out[i * stride] = clamped;
    }
}

template <bool has_null, typename T>
TARGET_AVX2 static void clamp_wide(qx_long count, const T *in, const clamp_bounds<T> &to, T *out)
{
    clamp_body<has_null>(count, in, 1, to, out);
}

template <bool has_null, typename T>
static void clamp_chosen(qx_long count, const T *in, qx_long stride, const clamp_bounds<T> &to, T *out)
{
    if (stride != 1)
        clamp_body<has_null>(count, in, stride, to, out);
    else if (have_avx2())
        clamp_wide<has_null>(count, in, to, out);
    else
        clamp_body<has_null>(count, in, 1, to, out);
}

template <typename T>
static int clamp_component(qx_long count, const T *in, int stride, int offset, int null_flag, T null_value,
                           int min_flag, T min, int max_flag, T max, T *out)
{
    const clamp_bounds<T> to = {min_flag != 0 ? min : no_lower_bound<T>(),
                                max_flag != 0 ? max : no_upper_bound<T>(), null_value};
    if (count < 1) return 1;
    if (null_flag != 0)
        clamp_chosen<true>(count, in + offset, stride, to, out + offset);
    else
        clamp_chosen<false>(count, in + offset, stride, to, out + offset);
    return 1;
}

// ---- copy by list ------------------------------------------------------------------------------------------

template <typename T>
static int copy_by_list(int veclen, const T *in, qx_long count, const qx_long *list, T *out)
{
    if (veclen > 0) copy_listed(veclen * static_cast<qx_long>(sizeof(T)), in, count, list, out);
    return 1;
}

// ---- extraction --------------------------------------------------------------------------------------------

template <typename T> static int extract_component(qx_long count, int stride, const T *in, int offset, T *out)
{
    if (count > 0) copy_every(stride, count, in + offset, out);
    return 1;
}

// The arrays come as pointers to T from typed callers, and to void from others.
template <int ncomp, typename T, typename A>
static void interleave(qx_long count, const int *strides, A *const *arrays, const int *offsets, T *out)
{
    const T *from[ncomp];
    qx_long stride[ncomp];
    for (int c = 0; c < ncomp; ++c) {
        from[c] = static_cast<const T *>(arrays[c]) + offsets[c];
        stride[c] = strides[c];
    }
    for (qx_long i = 0; i < count; ++i)
        for (int c = 0; c < ncomp; ++c)
            out[i * ncomp + c] = from[c][stride[c] * i];
}

template <typename T, typename A>
static int extract_rows(qx_long count, const int *strides, A *const *arrays, int ncomp, const int *offsets,
                        T *out)
{
    if (count < 1) return 1;
    switch (ncomp) {
    case 1: interleave<1>(count, strides, arrays, offsets, out); break;
    case 2: interleave<2>(count, strides, arrays, offsets, out); break;
    case 3: interleave<3>(count, strides, arrays, offsets, out); break;
    case 4: interleave<4>(count, strides, arrays, offsets, out); break;
    default:
        for (qx_long i = 0; i < count; ++i)
            for (int c = 0; c < ncomp; ++c)
                out[i * ncomp + c] = static_cast<const T *>(arrays[c])[strides[c] * i + offsets[c]];
    }
    return 1;
}

// ---- exported ----------------------------------------------------------------------------------------------

extern "C" {

int UTILclamp(qx_long count, const void *in, int stride, int offset, int data_type, int null_flag,
              const void *null_value, int min_flag, double min, int max_flag, double max, void *out)
{
    return with_dtype(data_type, "UTILclamp", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        return clamp_component(count, static_cast<const T *>(in), stride, offset, null_flag,
                               null_value_of<T>(null_flag, null_value), min_flag, truncate_to<T>(min),
                               max_flag, truncate_to<T>(max), static_cast<T *>(out));
    });
}

int UTILcopy_array_list(qx_long, int veclen, int data_type, const void *in, qx_long count,
                        const qx_long *list, void *out)
{
    return with_dtype(data_type, "UTILcopy_array_list", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        return copy_by_list(veclen, static_cast<const T *>(in), count, list, static_cast<T *>(out));
    });
}

int UTILextract_scalar(qx_long count, int stride, const void *in, int data_type, int offset, void *out)
{
    return with_dtype(data_type, "UTILextract_scalar", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        return extract_component(count, stride, static_cast<const T *>(in), offset, static_cast<T *>(out));
    });
}

int UTILextract_vector(qx_long count, const int *strides, void **arrays, int data_type, int ncomp,
                       const int *offsets, void *out)
{
    return with_dtype(data_type, "UTILextract_vector", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        return extract_rows(count, strides, arrays, ncomp, offsets, static_cast<T *>(out));
    });
}

#define EXPORT_CLAMP(code, T, suffix)                                                                        \
    int UTILclamp_##suffix(qx_long count, const T *in, int stride, int offset, int null_flag, T null_value,  \
                           int min_flag, T min, int max_flag, T max, T *out)                                 \
    {                                                                                                        \
        return clamp_component<T>(count, in, stride, offset, null_flag, null_value, min_flag, min, max_flag, \
                                  max, out);                                                                 \
    }
FOR_EACH_DTYPE(EXPORT_CLAMP)
#undef EXPORT_CLAMP

#define EXPORT_COPY_ARRAY_LIST(code, T, suffix)                                                           \
    int UTILcopy_array_list_##suffix(int veclen, const T *in, qx_long count, const qx_long *list, T *out) \
    {                                                                                                     \
        return copy_by_list(veclen, in, count, list, out);                                                \
    }
FOR_EACH_DTYPE(EXPORT_COPY_ARRAY_LIST)
#undef EXPORT_COPY_ARRAY_LIST

#define EXPORT_EXTRACT_SCALAR(T, suffix)                                                        \
    int UTILextract_scalar_##suffix(qx_long count, int stride, const T *in, int offset, T *out) \
    {                                                                                           \
        return extract_component(count, stride, in, offset, out);                               \
    }
EXPORT_EXTRACT_SCALAR(signed char, char)
EXPORT_EXTRACT_SCALAR(unsigned char, byte)
EXPORT_EXTRACT_SCALAR(short, short)
EXPORT_EXTRACT_SCALAR(float, float)
EXPORT_EXTRACT_SCALAR(double, double)
EXPORT_EXTRACT_SCALAR(qx_long, qx_long)
#undef EXPORT_EXTRACT_SCALAR

#define EXPORT_EXTRACT_VECTOR(code, T, suffix)                                                \
    int UTILextract_vector_##suffix(qx_long count, const int *strides, T **arrays, int ncomp, \
                                    const int *offsets, T *out)                               \
    {                                                                                         \
        return extract_rows(count, strides, arrays, ncomp, offsets, out);                     \
    }
FOR_EACH_DTYPE(EXPORT_EXTRACT_VECTOR)
#undef EXPORT_EXTRACT_VECTOR

} // extern "C"
