// A weighted window run along an array, and the blend of two arrays. Sums are in double and are brought into the
// element's type once.
//
// The window. Away from the ends all weights meet a sample, and a sum is the same for each component: elements
// are taken as one flat array in which neighbours are veclen apart, and a group of elements is summed side by
// side, each in the order of the weights. At the ends the weights that meet no sample drop out and the others
// are divided by their sum.
#include <skoklana/array.h>

#include "dtype.hpp"
#include "memory.hpp"
#include "simd.hpp"

#include <algorithm>

namespace {

// Weights that sum to 1, or that were made to.
struct filter_window {
    int nweights;
    int half;
    const double *weights;
};

// Elements summed side by side.
constexpr int sums_at_a_time = 16;

} // namespace

// One sample near an end: weights first to last - 1 are those that meet a sample.
template <typename T>
static void filter_end(const filter_window &window, qx_long sample, int first, int last, int veclen,
                       const T *in, T *out)
{
    double partial = 0;
    for (int k = first; k < last; ++k)
        partial += window.weights[k];
    for (int c = 0; c < veclen; ++c) {
        double sum = 0;
        for (int k = first; k < last; ++k)
            sum += window.weights[k] / partial *
                   static_cast<double>(in[(sample + k - window.half) * veclen + c]);
        out[sample * veclen + c] = truncate_to<T>(sum);
    }
}

// count elements from out on; in is where the first weight meets the first of them.
template <typename T>
FORCE_INLINE void filter_flat(const filter_window &window, qx_long count, int veclen, const T *in, T *out)
{
    qx_long e = 0;
    for (; e + sums_at_a_time <= count; e += sums_at_a_time) {
        double sum[sums_at_a_time] = {};
        for (int k = 0; k < window.nweights; ++k) {
            const T *from = in + e + static_cast<qx_long>(k) * veclen;
            for (int s = 0; s < sums_at_a_time; ++s)
                sum[s] += window.weights[k] * static_cast<double>(from[s]);
        }
        for (int s = 0; s < sums_at_a_time; ++s)
            out[e + s] = truncate_to<T>(sum[s]);
    }
    for (; e < count; ++e) {
        double sum = 0;
        for (int k = 0; k < window.nweights; ++k)
            sum += window.weights[k] * static_cast<double>(in[e + static_cast<qx_long>(k) * veclen]);
        out[e] = truncate_to<T>(sum);
    }
}

template <typename T>
TARGET_AVX2 static void filter_flat_wide(const filter_window &window, qx_long count, int veclen, const T *in,
                                         T *out)
{
    filter_flat(window, count, veclen, in, out);
}

template <typename T>
static void filter_samples(const filter_window &window, qx_long count, int veclen, const T *in, T *out)
{
    const qx_long half = window.half;
    const qx_long inner_first = std::min(half, count);
    const qx_long inner_last = std::max(half - window.nweights + 1 + count, inner_first);
    const auto end = [&](qx_long sample) {
        filter_end(window, sample, static_cast<int>(std::max<qx_long>(half - sample, 0)),
                   static_cast<int>(std::min<qx_long>(window.nweights, count - sample + half)), veclen, in,
                   out);
    };
    for (qx_long sample = 0; sample < inner_first; ++sample)
        end(sample);
    const qx_long inner = (inner_last - inner_first) * veclen;
    if (inner > 0) {
        const T *from = in + (inner_first - half) * veclen;
        T *to = out + inner_first * veclen;
        if (have_avx2())
            filter_flat_wide(window, inner, veclen, from, to);
        else
            filter_flat(window, inner, veclen, from, to);
    }
    for (qx_long sample = inner_last; sample < count; ++sample)
        end(sample);
}

template <typename T>
static int filter_1d(int nweights, const float *weights, qx_long count, int veclen, const T *in, T *out)
{
    if (nweights < 1) return 0;
    scratch memory;
    double *normalised = memory.borrow<double>(nweights);
    if (normalised == nullptr) return 0;
    double sum = 0;
    for (int k = 0; k < nweights; ++k) {
        normalised[k] = weights[k];
        sum += normalised[k];
    }
    if (sum == 0.0) return 0;
    if (sum != 1.0)
        for (int k = 0; k < nweights; ++k)
            normalised[k] /= sum;
    if (count > 0 && veclen > 0) filter_samples({nweights, nweights / 2, normalised}, count, veclen, in, out);
    return 1;
}

// ---- blend -------------------------------------------------------------------------------------------------

// The difference of bytes is exact in either arithmetic; the widest integers are rounded before they are
// subtracted.
template <typename T> FORCE_INLINE void blend(qx_long count, double t, const T *a, const T *b, T *out)
{
#pragma GCC ivdep
    for (qx_long i = 0; i < count; ++i) {
        const double from = static_cast<double>(a[i]);
        out[i] = truncate_to<T>((static_cast<double>(b[i]) - from) * t + from);
    }
}

template <typename T>
TARGET_AVX2 static void blend_wide(qx_long count, double t, const T *a, const T *b, T *out)
{
    blend(count, t, a, b, out);
}

template <typename T> static int interpolate(qx_long count, double t, const T *a, const T *b, T *out)
{
    if (have_avx2())
        blend_wide(count, t, a, b, out);
    else
        blend(count, t, a, b, out);
    return 1;
}

// ---- exported ----------------------------------------------------------------------------------------------

extern "C" {

int UTILfilter_1d(int nweights, const float *weights, qx_long count, int veclen, int dtype, const void *in,
                  void *out)
{
    return with_dtype(dtype, "UTILfilter", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        return filter_1d(nweights, weights, count, veclen, static_cast<const T *>(in), static_cast<T *>(out));
    });
}

int UTILinterpolate(qx_long count, double t, int dtype, const void *a, const void *b, void *out)
{
    return with_dtype(dtype, "UTILinterpolate", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        return interpolate(count, t, static_cast<const T *>(a), static_cast<const T *>(b),
                           static_cast<T *>(out));
    });
}

#define EXPORT_FILTER(code, T, suffix)                                                                     \
    int UTILfilter_1d_##suffix(int nweights, const float *weights, qx_long count, int veclen, const T *in, \
                               T *out)                                                                     \
    {                                                                                                      \
        return filter_1d(nweights, weights, count, veclen, in, out);                                       \
    }
FOR_EACH_DTYPE(EXPORT_FILTER)
#undef EXPORT_FILTER

#define EXPORT_INTERPOLATE(code, T, suffix)                                               \
    int UTILinterpolate_##suffix(qx_long count, double t, const T *a, const T *b, T *out) \
    {                                                                                     \
        return interpolate(count, t, a, b, out);                                          \
    }
FOR_EACH_DTYPE(EXPORT_INTERPOLATE)
#undef EXPORT_INTERPOLATE

} // extern "C"
