// Scattered values spread over a regular grid: the kernel, for the planes of a slab of the grid's last axis.
//
// Each point reaches the grid nodes in a window around it. A node adds up values weighted by an inverse power of
// their distance, and the weights:
//
//     weight   0             no point has reached the node
//              above 0       sums in progress; from 1e38 on the node takes no more
//              -1            a point lies on the node, which has its value and takes no other
//
// Nodes do not depend on each other, so that a grid can be cut into slabs for threads and into tiles for caches, but a
// node's points come in their order. What depends on x alone is computed once for all rows of a point's window.
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

    qx_long count() const { return last - first + 1; }
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

// A piece of a point's row: how far its nodes are along x, which all rows of the window share.
constexpr int piece_nodes = 128;

struct window_piece {
    int count;
    double dx2[piece_nodes]; // one axis: squared distances
    float fx2[piece_nodes];  // more axes: their part along x
};

// The rows of one piece of a window, one after the other.
template <int ndim> class window_rows {
  public:
    float beside[2] = {0, 0}; // the row's squared distances along y and z
    qx_long node = 0;         // where the piece begins in it, among the nodes of the slab

    FORCE_INLINE window_rows(const scatter_grid &of, const float *steps, const scatter_slab &slab,
                             const float *from, const index_window *window, qx_long x)
        : grid(of), step(steps), point(from), rows(window[1]), planes(window[2]), start(x - slab.offset),
          y(rows.last), z(planes.first - 1)
    {
    }

    FORCE_INLINE bool next()
    {
        if (y == rows.last) {
            if (z == planes.last) return false;
            y = rows.first;
            ++z;
            if (ndim > 2) beside[1] = beside2(2, z);
        } else {
            ++y;
        }
        if (ndim > 1) beside[0] = beside2(1, y);
        node = start;
        if (ndim > 1) node += (ndim > 2 ? z * grid.dims[1] + y : y) * grid.dims[0];
        return true;
    }

  private:
    const scatter_grid &grid;
    const float *step, *point;
    index_window rows, planes;
    qx_long start, y, z;

    FORCE_INLINE float beside2(int k, qx_long i) const
    {
        const float d = static_cast<float>(i) * step[k] + grid.min_extent[k] - point[k];
        return d * d;
    }
};

// Distance to the power, of squared distances.
struct square_power {
    FORCE_INLINE double operator()(double d2) const { return d2; }
#if SKOKLANA_HAVE_AVX2_FORM
    TARGET_AVX2 FORCE_INLINE __m256d operator()(__m256d d2) const
    {
        return d2;
    }
#endif
};

// Small powers by products, which are as exact as they need be: the sums are rounded to single precision.
struct small_power {
    int half;
    bool odd;

    FORCE_INLINE double operator()(double d2) const
    {
        double t = odd ? std::sqrt(d2) : 1.0;
        for (int k = 0; k < half; ++k)
            t *= d2;
        return t;
    }
#if SKOKLANA_HAVE_AVX2_FORM
    TARGET_AVX2 FORCE_INLINE __m256d operator()(__m256d d2) const
    {
        __m256d t = odd ? _mm256_sqrt_pd(d2) : _mm256_set1_pd(1);
        for (int k = 0; k < half; ++k)
            t = _mm256_mul_pd(t, d2);
        return t;
    }
#endif
};

struct any_power {
    double power;

    FORCE_INLINE double operator()(double d2) const { return std::pow(std::sqrt(d2), power); }
#if SKOKLANA_HAVE_AVX2_FORM
    TARGET_AVX2 FORCE_INLINE __m256d operator()(__m256d d2) const
    {
        double t[4];
        _mm256_storeu_pd(t, d2);
        for (double &one : t)
            one = (*this)(one);
        return _mm256_loadu_pd(t);
    }
#endif
};

// A point's part in one node.
template <class Power, typename T>
FORCE_INLINE void add_to_node(double d2, const Power &power, double threshold, const T *value, int veclen,
                              double *weight, double *acc)
{
    const double w = *weight;
    if (!(w >= 0 && w < saturated_weight)) return;
    if (d2 >= threshold) {
        const double wt = 1.0 / power(d2);
        *weight = w + wt;
        for (int c = 0; c < veclen; ++c)
            acc[c] = (w == 0.0 ? 0.0 : acc[c]) + static_cast<double>(value[c]) * wt;
    } else {
        *weight = pinned_weight;
        for (int c = 0; c < veclen; ++c)
            acc[c] = static_cast<double>(value[c]);
    }
}

template <int ndim> FORCE_INLINE double distance2(const window_piece &piece, int i, const float *beside)
{
    if (ndim == 1) return piece.dx2[i];
    float sum = piece.fx2[i] + beside[0];
    if (ndim == 3) sum += beside[1];
    return static_cast<double>(sum);
}

template <int ndim, class Power, typename T>
void add_to_window_plain(const window_piece &piece, window_rows<ndim> rows, const Power &power,
                         double threshold, const T *value, int veclen, const scatter_slab &slab)
{
    while (rows.next()) {
        double *weight = slab.weight + rows.node, *acc = slab.acc + rows.node * veclen;
        for (int i = 0; i < piece.count; ++i)
            add_to_node(distance2<ndim>(piece, i, rows.beside), power, threshold, value, veclen, weight + i,
                        acc + qx_long{i} * veclen);
    }
}

#if SKOKLANA_HAVE_AVX2_FORM

// One component, four nodes at a time as far as there are whole vectors. (Masked stores for the rest take longer than
// single nodes do.)
template <int ndim, class Power, typename T>
TARGET_AVX2 void add_to_window_wide(const window_piece &piece, window_rows<ndim> rows, const Power &power,
                                    double threshold, const T *value, const scatter_slab &slab)
{
    const __m256d zero = _mm256_setzero_pd(), one = _mm256_set1_pd(1);
    const __m256d v = _mm256_set1_pd(static_cast<double>(*value));
    const __m256d saturated = _mm256_set1_pd(saturated_weight), pinned = _mm256_set1_pd(pinned_weight);
    const __m256d near = _mm256_set1_pd(threshold);
    while (rows.next()) {
        double *weight = slab.weight + rows.node, *acc = slab.acc + rows.node;
        const __m128 y2 = _mm_set1_ps(rows.beside[0]), z2 = _mm_set1_ps(rows.beside[1]);
        int i = 0;
        for (; i + 4 <= piece.count; i += 4) {
            __m256d d2;
            if (ndim == 1) {
                d2 = _mm256_loadu_pd(piece.dx2 + i);
            } else {
                __m128 sum = _mm_add_ps(_mm_loadu_ps(piece.fx2 + i), y2);
                if (ndim == 3) sum = _mm_add_ps(sum, z2);
                d2 = _mm256_cvtps_pd(sum);
            }
            const __m256d w = _mm256_loadu_pd(weight + i), sum = _mm256_loadu_pd(acc + i);
            const __m256d open =
                _mm256_and_pd(_mm256_cmp_pd(w, zero, _CMP_GE_OQ), _mm256_cmp_pd(w, saturated, _CMP_LT_OQ));
            const __m256d apart = _mm256_cmp_pd(d2, near, _CMP_GE_OQ);
            const __m256d wt = _mm256_div_pd(one, power(d2));
            const __m256d started = _mm256_andnot_pd(_mm256_cmp_pd(w, zero, _CMP_EQ_OQ), sum);
            __m256d new_w = _mm256_add_pd(w, wt);
            __m256d new_sum = _mm256_add_pd(started, _mm256_mul_pd(v, wt));
            if (_mm256_movemask_pd(_mm256_and_pd(open, apart)) != 15) {
                new_w = _mm256_blendv_pd(w, _mm256_blendv_pd(pinned, new_w, apart), open);
                new_sum = _mm256_blendv_pd(sum, _mm256_blendv_pd(v, new_sum, apart), open);
            }
            _mm256_storeu_pd(weight + i, new_w);
            _mm256_storeu_pd(acc + i, new_sum);
        }
        for (; i < piece.count; ++i)
            add_to_node(distance2<ndim>(piece, i, rows.beside), power, threshold, value, 1, weight + i,
                        acc + i);
    }
}

#endif

// The rows of one piece of a window, by the widest form that the machine has.
template <int ndim, class Power, typename T>
void add_to_window(const window_piece &piece, const window_rows<ndim> &rows, const Power &power,
                   double threshold, const T *value, int veclen, const scatter_slab &slab)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (veclen == 1 && have_avx2())
        return add_to_window_wide<ndim>(piece, rows, power, threshold, value, slab);
#endif
    add_to_window_plain<ndim>(piece, rows, power, threshold, value, veclen, slab);
}

// Where a point reaches: nodes along x, y and z, or whatever axes there are.
struct node_window {
    index_window along[3];

    bool is_empty() const
    {
        return along[0].last < along[0].first || along[1].last < along[1].first ||
               along[2].last < along[2].first;
    }

    void clip(int k, const index_window &to)
    {
        along[k] = {std::max(along[k].first, to.first), std::min(along[k].last, to.last)};
    }
};

template <int ndim, class Power, typename T> class point_spreader {
  public:
    point_spreader(const scatter_grid &of, const scatter_slab &into, const Power &with)
        : grid(of), slab(into), power(with), steps(of)
    {
    }

    // What a point reaches of the slab.
    node_window window(const float *point) const
    {
        node_window window = {{{0, 0}, {0, 0}, {0, 0}}};
        for (int k = 0; k < ndim; ++k)
            window.along[k] = window_of(grid, point, k);
        window.clip(ndim - 1, {slab.first, slab.last});
        return window;
    }

    // Into the nodes of a window, which is the point's or a part of it.
    void spread(const float *point, const T *value, const node_window &window) const
    {
        if (window.is_empty()) return;
        // x starts anew for each point and goes on by steps, also through nodes that the slab cuts off.
        const index_window &row = window.along[0];
        qx_long i = ndim == 1 ? window_of(grid, point, 0).first : row.first;
        float x = static_cast<float>(i) * steps.step[0] + grid.min_extent[0];
        for (; i < row.first; ++i)
            x += steps.step[0];
        window_piece piece;
        for (; i <= row.last; i += piece.count) {
            piece.count = static_cast<int>(std::min<qx_long>(piece_nodes, row.last - i + 1));
            for (int n = 0; n < piece.count; ++n, x += steps.step[0]) {
                const float dx = x - point[0];
                if (ndim == 1)
                    piece.dx2[n] = static_cast<double>(dx) * static_cast<double>(dx);
                else
                    piece.fx2[n] = dx * dx;
            }
            const window_rows<ndim> rows(grid, steps.step, slab, point, window.along, i);
            add_to_window(piece, rows, power, grid.threshold, value, grid.veclen, slab);
        }
    }

  private:
    const scatter_grid &grid;
    const scatter_slab &slab;
    Power power;
    grid_steps steps;
};

// A slab in tiles, which are filled one after the other by many points: a point's rows lie far apart, and if points
// were spread one by one, each row would be waited for. A tile stays in a cache that is near. It is some planes of
// the last axis or, where a plane is larger than that, some rows of one.
template <int ndim> class slab_tiles {
  public:
    static constexpr qx_long tile_bytes = qx_long{512} << 10;
    qx_long count;

    slab_tiles(const scatter_grid &grid, const scatter_slab &slab)
    {
        const double node = static_cast<double>(sizeof(double)) * (1 + std::max(grid.veclen, 0));
        const double row = ndim > 1 ? node * static_cast<double>(grid.dims[0]) : node;
        const qx_long nrows = ndim > 2 ? std::max<qx_long>(1, grid.dims[1]) : 1;
        planes = {slab.first, std::max<qx_long>(1, slab.last - slab.first + 1),
                  as_many_as_fit(row * static_cast<double>(nrows))};
        rows = {0, nrows, as_many_as_fit(row)};
        count = planes.tiles() * rows.tiles();
    }

    // How many tiles hold a part of a window of the slab, which is not empty.
    qx_long count_at(const node_window &window) const
    {
        qx_long n = planes.tiles_at(window.along[ndim - 1]).count();
        if (ndim > 2) n *= rows.tiles_at(window.along[1]).count();
        return n;
    }

    // Calls what(tile) for each tile that holds a part of a window of the slab, which is not empty.
    template <typename F> void for_each_at(const node_window &window, F what) const
    {
        const qx_long across = rows.tiles();
        const index_window z = planes.tiles_at(window.along[ndim - 1]);
        const index_window y = ndim > 2 ? rows.tiles_at(window.along[1]) : index_window{0, 0};
        for (qx_long i = z.first; i <= z.last; ++i)
            for (qx_long j = y.first; j <= y.last; ++j)
                what(i * across + j);
    }

    // The part of a window that a tile holds.
    node_window part(node_window window, qx_long tile) const
    {
        const qx_long across = rows.tiles();
        window.clip(ndim - 1, planes.of_tile(tile / across));
        if (ndim > 2) window.clip(1, rows.of_tile(tile % across));
        return window;
    }

  private:
    struct cut_axis {
        qx_long first, n, a_tile;

        qx_long tiles() const { return (n - 1) / a_tile + 1; }
        index_window tiles_at(const index_window &of) const
        {
            return {(of.first - first) / a_tile, (of.last - first) / a_tile};
        }
        index_window of_tile(qx_long tile) const
        {
            return {first + tile * a_tile, first + (tile + 1) * a_tile - 1};
        }
    };
    cut_axis planes, rows;

    static qx_long as_many_as_fit(double bytes)
    {
        return bytes < tile_bytes ? tile_bytes / std::max<qx_long>(1, static_cast<qx_long>(bytes)) : 1;
    }
};

// The points of each tile, in their order. Points are numbered from the first one of a batch.
class tile_lists {
  public:
    static constexpr int most_points = 1 << 16, most_entries = 1 << 18;

    // false: no memory.
    bool start(qx_long ntiles)
    {
        if (ntiles > INT32_MAX) return false;
        ends = memory.keep(static_cast<chain *>(malloc(static_cast<size_t>(ntiles) * sizeof(chain))));
        entries = memory.keep(static_cast<entry *>(malloc(most_entries * sizeof(entry))));
        if (ends == nullptr || entries == nullptr) return false;
        std::fill_n(ends, ntiles, chain{-1, -1});
        return true;
    }

    bool has_room(qx_long count) const { return count <= most_entries - nentries; }

    void add(qx_long tile, int point)
    {
        chain &of = ends[tile];
        entries[nentries] = {point, -1};
        (of.first < 0 ? of.first : entries[of.last].next) = nentries;
        of.last = nentries++;
    }

    // Calls what(tile, point) for the points of each tile, and forgets them.
    template <typename F> void take_all(qx_long ntiles, F what)
    {
        for (qx_long tile = 0; tile < ntiles; ++tile) {
            for (int e = ends[tile].first; e >= 0; e = entries[e].next)
                what(tile, entries[e].point);
            ends[tile] = {-1, -1};
        }
        nentries = 0;
    }

  private:
    struct chain {
        int first, last; // entries, -1: none
    };
    struct entry {
        int point, next;
    };
    scratch memory;
    chain *ends = nullptr;
    entry *entries = nullptr;
    int nentries = 0;
};

// Spreads all points into a slab, those left out whose first component is null. stop(i) is asked for each point i in
// turn, before anything is done for it; true ends it. Returns whether all points were gone through.
template <int ndim, class Power, typename T, class Stop>
bool spread_points_by(const scatter_grid &grid, const scatter_slab &slab, const Power &power, const T *data,
                      bool has_null, T null_value, Stop stop)
{
    const point_spreader<ndim, Power, T> spreader(grid, slab, power);
    const slab_tiles<ndim> tiles(grid, slab);
    tile_lists lists;
    const bool has_lists = tiles.count > 1 && lists.start(tiles.count);
    const auto point = [&](qx_long i) { return grid.coords + i * grid.nspace; };
    const auto value = [&](qx_long i) { return data + i * grid.veclen; };
    qx_long batch = 0; // its first point
    const auto spread_batch = [&](qx_long next) {
        lists.take_all(tiles.count, [&](qx_long tile, int k) {
            const qx_long i = batch + k;
            spreader.spread(point(i), value(i), tiles.part(spreader.window(point(i)), tile));
        });
        batch = next;
    };
    for (qx_long i = 0; i < grid.nnodes; ++i) {
        if (stop(i)) return false;
        if (has_null && *value(i) == null_value) continue;
        const node_window window = spreader.window(point(i));
        if (window.is_empty()) continue;
        const qx_long ntiles = tiles.count_at(window);
        if (has_lists && (!lists.has_room(ntiles) || i - batch >= tile_lists::most_points)) spread_batch(i);
        if (has_lists && lists.has_room(ntiles))
            tiles.for_each_at(window, [&](qx_long tile) { lists.add(tile, static_cast<int>(i - batch)); });
        else
            spreader.spread(point(i), value(i), window);
    }
    if (has_lists) spread_batch(grid.nnodes);
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
