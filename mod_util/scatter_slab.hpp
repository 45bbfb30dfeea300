// Scattered values spread over a regular grid: the kernel, for the planes of a slab of the grid's last axis.
//
// Each point reaches the grid nodes in a window around it. A node adds up values weighted by an inverse power of
// their distance, and the weights:
//
//     weight   0             no point has reached the node
//              above 0       sums in progress; from 1e38 on the node takes no more
//              -1            a point lies on the node, which has its value and takes no other
//
// Nodes do not depend on each other, so that a grid can be cut into slabs, but a node's points come in their
// order. What depends on x alone is computed once a point and serves all rows of its window. A row is then one
// loop without branches.
#pragma once

#include "dtype.hpp"
#include "memory.hpp"
#include "simd.hpp"

#include <algorithm>
#include <cmath>

#if SKOKLANA_HAVE_AVX2_FORM
#include <immintrin.h>
#endif

constexpr double saturated_weight = 1e38, pinned_weight = -1;
constexpr double least_extent = 1e-38; // of a box along an axis; a smaller one has no inside

// The grid and what reaches it; all borrowed.
struct scatter_grid {
    qx_long nnodes; // points
    int nspace;
    const float *coords;
    int veclen;
    const float *min_extent, *max_extent;
    int ndim;
    const qx_long *dims;
    const int *radius;
    int power;
    double threshold; // squared distance below which a point is on a node
};

// Planes first to last of the last axis, and the arrays of their nodes alone.
struct scatter_slab {
    double *acc; // rows of veclen sums; of no meaning where weight is 0
    double *weight;
    qx_long first, last;
    qx_long offset; // grid nodes before the slab
};

// Beyond this a distance to the power is above 1e-38 too.
inline double near_threshold(int power)
{
    return power < 3 ? 1e-38 : std::pow(1e-38, 2.0 / power);
}

inline void mend_radius(int ndim, int *radius)
{
    for (int k = 0; k < ndim; ++k)
        if (radius[k] == 0) radius[k] = 1;
}

// Nodes of a grid; false: more than there are numbers.
inline bool count_grid_nodes(int ndim, const qx_long *dims, qx_long *count)
{
    *count = 1;
    for (int k = 0; k < ndim; ++k)
        if (__builtin_mul_overflow(*count, std::max<qx_long>(dims[k], 0), count)) return false;
    return true;
}

// Indices of an axis, last below first if there are none.
struct index_window {
    qx_long first, last;
};

// Where along axis k a point reaches. A grid with one axis takes one node less on the upper side, and takes points
// outside its box as ones at its ends.
inline index_window window_of(const scatter_grid &grid, const float *point, int k)
{
    const qx_long n = grid.dims[k] - 1, r = grid.radius[k];
    const float extent = grid.max_extent[k] - grid.min_extent[k];
    const bool flat = static_cast<double>(extent) <= least_extent;
    if (flat && grid.ndim > 1) return {0, std::min<qx_long>(0, n)};
    qx_long centre = 0;
    if (!flat) {
        constexpr float far = 4e18f; // within qx_long, whatever the radius
        const float at = (point[k] - grid.min_extent[k]) / extent * static_cast<float>(n);
        if (at != at) return {0, -1};
        centre = static_cast<qx_long>(std::min(std::max(at, -far), far));
    }
    if (grid.ndim > 1) return {std::max<qx_long>(0, centre - r), std::min(n, centre + r)};
    centre = std::max<qx_long>(0, std::min(centre, n));
    return {std::max<qx_long>(0, centre - r), std::min(n, centre + r - 1)};
}

// Steps between the nodes along each axis. An axis of one node has none: infinity or NaN, and its nodes are at NaN.
struct grid_steps {
    float step[3];

    explicit grid_steps(const scatter_grid &grid)
    {
        for (int k = 0; k < grid.ndim; ++k)
            step[k] = (grid.max_extent[k] - grid.min_extent[k]) / static_cast<float>(grid.dims[k] - 1);
    }
};

// A piece of a point's row: how far its nodes are along x, and what the rows of the window share.
constexpr int piece_nodes = 128;

struct window_piece {
    int count;               // the arrays are filled in whole vectors
    double dx2[piece_nodes]; // one axis: squared distances
    float fx2[piece_nodes];  // more axes: their part along x
};

// t = distance to the power, of squared distances.
struct square_power {
    FORCE_INLINE void operator()(int, const double *, double *) const {}
};

// Small powers by products, which are as exact as they need be: the sums are rounded to single precision.
struct small_power {
    int half;
    bool odd;

    FORCE_INLINE void operator()(int count, const double *d2, double *t) const
    {
        for (int i = 0; i < count; ++i)
            t[i] = odd ? std::sqrt(d2[i]) : 1.0;
        for (int k = 0; k < half; ++k)
            for (int i = 0; i < count; ++i)
                t[i] *= d2[i];
    }
};

struct any_power {
    double power;

    FORCE_INLINE void operator()(int count, const double *d2, double *t) const
    {
        for (int i = 0; i < count; ++i)
            t[i] = std::pow(std::sqrt(d2[i]), power);
    }
};

// Nodes of one row of a window, from start on. beside2: the squared distances along y and z, in that order.
template <int ndim, class Power, typename T>
FORCE_INLINE void add_to_row_body(int start, const window_piece &piece, const float *beside2,
                                  const Power &power, double threshold, const T *value, int veclen,
                                  double *weight, double *acc)
{
    const int count = piece.count - start;
    weight += start;
    acc += start * veclen;
    double d2[piece_nodes], wt[piece_nodes], before[piece_nodes];
    for (int i = 0; i < count; ++i) {
        if (ndim == 1) {
            d2[i] = piece.dx2[start + i];
        } else {
            float sum = piece.fx2[start + i] + beside2[0];
            if (ndim == 3) sum += beside2[1];
            d2[i] = static_cast<double>(sum);
        }
    }
    if (!std::is_same_v<Power, square_power>) power(count, d2, wt);
    for (int i = 0; i < count; ++i) {
        wt[i] = 1.0 / (std::is_same_v<Power, square_power> ? d2[i] : wt[i]);
        const double w = before[i] = weight[i];
        const double now = d2[i] >= threshold ? w + wt[i] : pinned_weight;
        weight[i] = w >= 0 ? (w < saturated_weight ? now : w) : w;
    }
    for (int c = 0; c < veclen; ++c) {
        const double v = static_cast<double>(value[c]);
        for (int i = 0; i < count; ++i) {
            const double w = before[i], sum = acc[i * veclen + c];
            const double added = (w == 0.0 ? 0.0 : sum) + v * wt[i];
            const double now = d2[i] >= threshold ? added : v;
            acc[i * veclen + c] = w >= 0 ? (w < saturated_weight ? now : sum) : sum;
        }
    }
}

template <int ndim, class Power, typename T>
void add_to_row_plain(const window_piece &piece, const float *beside2, const Power &power, double threshold,
                      const T *value, int veclen, double *weight, double *acc)
{
    add_to_row_body<ndim>(0, piece, beside2, power, threshold, value, veclen, weight, acc);
}

#if SKOKLANA_HAVE_AVX2_FORM

// Four nodes at a time, one component, as far as there are whole vectors. Returns how many nodes that were. (Masked
// stores for the rest take longer than the plain form does.)
template <int ndim, class Power>
TARGET_AVX2 FORCE_INLINE int add_value_wide(const window_piece &piece, const float *beside2,
                                            const Power &power, double threshold, double value,
                                            double *weight, double *acc)
{
    const __m256d zero = _mm256_setzero_pd(), one = _mm256_set1_pd(1), v = _mm256_set1_pd(value);
    const __m256d saturated = _mm256_set1_pd(saturated_weight), pinned = _mm256_set1_pd(pinned_weight);
    const __m256d near = _mm256_set1_pd(threshold);
    int i = 0;
    for (; i + 4 <= piece.count; i += 4) {
        __m256d d2;
        if (ndim == 1) {
            d2 = _mm256_loadu_pd(piece.dx2 + i);
        } else {
            __m128 sum = _mm_add_ps(_mm_loadu_ps(piece.fx2 + i), _mm_set1_ps(beside2[0]));
            if (ndim == 3) sum = _mm_add_ps(sum, _mm_set1_ps(beside2[1]));
            d2 = _mm256_cvtps_pd(sum);
        }
        __m256d t = d2;
        if (!std::is_same_v<Power, square_power>) {
            double from[4], to[4];
            _mm256_storeu_pd(from, d2);
            power(4, from, to);
            t = _mm256_loadu_pd(to);
        }
        const __m256d w = _mm256_loadu_pd(weight + i), sum = _mm256_loadu_pd(acc + i);
        const __m256d open =
            _mm256_and_pd(_mm256_cmp_pd(w, zero, _CMP_GE_OQ), _mm256_cmp_pd(w, saturated, _CMP_LT_OQ));
        const __m256d apart = _mm256_cmp_pd(d2, near, _CMP_GE_OQ);
        const __m256d wt = _mm256_div_pd(one, t);
        const __m256d started = _mm256_andnot_pd(_mm256_cmp_pd(w, zero, _CMP_EQ_OQ), sum);
        const __m256d added = _mm256_add_pd(started, _mm256_mul_pd(v, wt));
        const __m256d new_w = _mm256_blendv_pd(pinned, _mm256_add_pd(w, wt), apart);
        const __m256d new_sum = _mm256_blendv_pd(v, added, apart);
        _mm256_storeu_pd(weight + i, _mm256_blendv_pd(w, new_w, open));
        _mm256_storeu_pd(acc + i, _mm256_blendv_pd(sum, new_sum, open));
    }
    return i;
}

template <int ndim, class Power, typename T>
TARGET_AVX2 void add_to_row_wide(const window_piece &piece, const float *beside2, const Power &power,
                                 double threshold, const T *value, int veclen, double *weight, double *acc)
{
    if (veclen != 1)
        return add_to_row_body<ndim>(0, piece, beside2, power, threshold, value, veclen, weight, acc);
    const int done =
        add_value_wide<ndim>(piece, beside2, power, threshold, static_cast<double>(value[0]), weight, acc);
    if (done < piece.count)
        add_to_row_body<ndim>(done, piece, beside2, power, threshold, value, 1, weight, acc);
}

#endif

// The rows of one piece of a window, by the widest form that the machine has.
template <int ndim, class Power, typename T>
void add_to_row(const window_piece &piece, const float *beside2, const Power &power, double threshold,
                const T *value, int veclen, double *weight, double *acc)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (have_avx2())
        return add_to_row_wide<ndim>(piece, beside2, power, threshold, value, veclen, weight, acc);
#endif
    add_to_row_plain<ndim>(piece, beside2, power, threshold, value, veclen, weight, acc);
}

template <int ndim, class Power, typename T> class point_spreader {
  public:
    point_spreader(const scatter_grid &of, const scatter_slab &into, const Power &with)
        : grid(of), slab(into), power(with), steps(of)
    {
    }

    // Into the planes of the slab from first to last.
    void spread(const float *point, const T *value, qx_long first, qx_long last)
    {
        index_window window[3] = {{0, 0}, {0, 0}, {0, 0}};
        for (int k = 0; k < ndim; ++k)
            window[k] = window_of(grid, point, k);
        const qx_long chain_start = window[0].first;
        index_window &planes = window[ndim - 1];
        planes = {std::max(planes.first, first), std::min(planes.last, last)};
        for (int k = 0; k < ndim; ++k)
            if (window[k].last < window[k].first) return;

        // x starts anew for each point and goes on by steps, also through nodes that the slab cuts off.
        float x = static_cast<float>(chain_start) * steps.step[0] + grid.min_extent[0];
        for (qx_long i = chain_start; i < window[0].first; ++i)
            x += steps.step[0];
        window_piece piece;
        for (qx_long i = window[0].first; i <= window[0].last; i += piece.count) {
            piece.count = static_cast<int>(std::min<qx_long>(piece_nodes, window[0].last - i + 1));
            for (int n = 0; n < piece.count; ++n, x += steps.step[0]) {
                const float dx = x - point[0];
                piece.dx2[n] = static_cast<double>(dx) * static_cast<double>(dx);
                piece.fx2[n] = dx * dx;
            }
            spread_piece(point, value, window, i, piece);
        }
    }

  private:
    const scatter_grid &grid;
    const scatter_slab &slab;
    Power power;
    grid_steps steps;

    float beside2(const float *point, int k, qx_long i) const
    {
        const float d = static_cast<float>(i) * steps.step[k] + grid.min_extent[k] - point[k];
        return d * d;
    }

    void spread_piece(const float *point, const T *value, const index_window *window, qx_long i,
                      const window_piece &piece)
    {
        float beside[2] = {0, 0};
        for (qx_long z = window[2].first; z <= window[2].last; ++z) {
            if (ndim > 2) beside[1] = beside2(point, 2, z);
            for (qx_long y = window[1].first; y <= window[1].last; ++y) {
                if (ndim > 1) beside[0] = beside2(point, 1, y);
                const qx_long row = ndim > 2   ? (z * grid.dims[1] + y) * grid.dims[0]
                                    : ndim > 1 ? y * grid.dims[0]
                                               : 0;
                const qx_long node = row + i - slab.offset;
                add_to_row<ndim>(piece, beside, power, grid.threshold, value, grid.veclen, slab.weight + node,
                                 slab.acc + node * grid.veclen);
            }
        }
    }
};

// Points that are taken together, and the planes that they are spread into one tile after the other. A point's rows
// lie far apart: were the points taken one by one, each row would be waited for. A tile stays in a cache that is near.
constexpr int batch_points = 4096;
constexpr qx_long tile_bytes = qx_long{256} << 10;

inline qx_long planes_of_tile(const scatter_grid &grid)
{
    qx_long bytes = static_cast<qx_long>(sizeof(double)) * (1 + grid.veclen);
    for (int k = 0; k + 1 < grid.ndim && bytes < tile_bytes; ++k)
        bytes *= std::max<qx_long>(1, grid.dims[k]);
    return std::max<qx_long>(1, tile_bytes / std::max<qx_long>(1, bytes));
}

// Spreads all points into a slab, those left out whose first component is null. stop(i) is asked for each point i in
// turn, before anything is done for it; true ends it. Returns whether all points were gone through.
template <int ndim, class Power, typename T, class Stop>
bool spread_points_by(const scatter_grid &grid, const scatter_slab &slab, const Power &power, const T *data,
                      bool has_null, T null_value, Stop stop)
{
    point_spreader<ndim, Power, T> spreader(grid, slab, power);
    const qx_long tile = planes_of_tile(grid);
    index_window planes[batch_points];
    for (qx_long done = 0; done < grid.nnodes; done += batch_points) {
        const int count = static_cast<int>(std::min<qx_long>(batch_points, grid.nnodes - done));
        const float *coords = grid.coords + done * grid.nspace;
        const T *values = data + done * grid.veclen;
        for (int i = 0; i < count; ++i) {
            if (stop(done + i)) return false;
            planes[i] = window_of(grid, coords + qx_long{i} * grid.nspace, ndim - 1);
            if (has_null && values[qx_long{i} * grid.veclen] == null_value) planes[i] = {0, -1};
        }
        for (qx_long first = slab.first; first <= slab.last; first += tile) {
            const qx_long last = std::min(slab.last, first + tile - 1);
            for (int i = 0; i < count; ++i)
                if (planes[i].first <= last && planes[i].last >= first)
                    spreader.spread(coords + qx_long{i} * grid.nspace, values + qx_long{i} * grid.veclen,
                                    first, last);
        }
    }
    return true;
}

template <int ndim, typename T, class Stop>
bool spread_points_along(const scatter_grid &grid, const scatter_slab &slab, const T *data, bool has_null,
                         T null_value, Stop stop)
{
    constexpr int most_products = 8;
    const int p = grid.power;
    if (p == 2) return spread_points_by<ndim>(grid, slab, square_power(), data, has_null, null_value, stop);
    if (p > 0 && p <= 2 * most_products)
        return spread_points_by<ndim>(grid, slab, small_power{p / 2, p % 2 != 0}, data, has_null, null_value,
                                      stop);
    return spread_points_by<ndim>(grid, slab, any_power{static_cast<double>(p)}, data, has_null, null_value,
                                  stop);
}

// The same for any number of axes from 1 to 3.
template <typename T, class Stop>
bool spread_points(const scatter_grid &grid, const scatter_slab &slab, const T *data, bool has_null,
                   T null_value, Stop stop)
{
    switch (grid.ndim) {
    case 1: return spread_points_along<1>(grid, slab, data, has_null, null_value, stop);
    case 2: return spread_points_along<2>(grid, slab, data, has_null, null_value, stop);
    default: return spread_points_along<3>(grid, slab, data, has_null, null_value, stop);
    }
}

// A sum as an element: within bounds, in single precision.
template <typename T> T element_of_sum(double value)
{
    constexpr double most = 1e38;
    if (value < -most)
        value = -most;
    else if (value > most)
        value = most;
    else
        value = static_cast<double>(static_cast<float>(value));
    return truncate_to<T>(value);
}

// Turns sums into elements. Returns whether any node was left empty; those get the null value as it is.
template <typename T>
bool finish_scatter(qx_long ngrid, int veclen, const double *acc, const double *weight, T null_value, T *out)
{
    bool any_empty = false;
    for (qx_long node = 0; node < ngrid; ++node) {
        const double w = weight[node];
        any_empty = any_empty || w == 0.0;
        for (int c = 0; c < veclen; ++c) {
            const qx_long i = node * veclen + c;
            out[i] = w == 0.0 ? null_value : element_of_sum<T>(w < 0 ? acc[i] : acc[i] / w);
        }
    }
    return any_empty;
}
