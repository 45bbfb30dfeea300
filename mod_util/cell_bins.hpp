// The live cells of a Delaunay sweep by place, for the question which of their circles or spheres hold a point.
//
// While the sweep is in a slab from one x to another, what matters of a sphere is where it reaches inside the
// slab: about its centre in y (and z) by a half-width that is small where the sphere only begins to reach in.
// Bins divide the box across the sweep axis, in levels: each level has half as many bins along an axis as the one
// below, and a cell lies in the lowest level where it reaches into one bin and its upper neighbours at most. A
// point's candidates are then the cells of its bin and the lower neighbours, level by level. A sphere is never
// out of its bins, as its half-width is rounded up and as places become bins by a function that never falls;
// places outside the box are in the outermost bins.
//
// Bins are chains of small blocks, whose spheres are tested in lanes. All blocks of a chain are full but the
// first. When a slab ends all cells are put into new bins, for the next one: a slab is made as long as that
// costs little a point.
#pragma once

#include "memory.hpp"
#include "simd.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>

#if SKOKLANA_HAVE_AVX2_FORM
#include <immintrin.h>
#endif

// A C array that grows and is freed with its owner. Elements are moved as bytes.
template <typename T> struct growing_array {
    T *data = nullptr;
    qx_long capacity = 0;

    growing_array() = default;
    growing_array(const growing_array &) = delete;
    growing_array &operator=(const growing_array &) = delete;
    ~growing_array() { free(data); }

    T &operator[](qx_long i) { return data[i]; }
    const T &operator[](qx_long i) const { return data[i]; }

    // Room for count elements; false: no memory, and the array is as it was.
    bool reach(qx_long count)
    {
        if (count <= capacity) return true;
        const qx_long more = std::max(count, capacity + capacity / 2 + 16);
        void *grown = realloc(data, static_cast<size_t>(more) * sizeof(T));
        if (grown == nullptr) return false;
        data = static_cast<T *>(grown);
        capacity = more;
        return true;
    }
};

constexpr int most_levels = 16;

// In space a test of a point against a sphere may be in doubt: r2 is then what no point of the sphere is beyond,
// and sure_r2 what all points within are surely in it.
template <int axes> constexpr bool has_doubt = axes == 3;

// Some spheres of one bin. Lanes that are not in use have r2 -1, which holds nothing.
template <int axes> struct sphere_block {
    static constexpr int lanes = axes == 2 ? 4 : 8; // bins of the plane hold fewer
    double centre[axes][lanes];
    double r2[lanes];
    double sure_r2[has_doubt<axes> ? lanes : 1];
    int cell[lanes];
    int next; // the chain's next block, -1 at the end
    int used; // lanes
};

// Spheres in columns: an array a coordinate, a row a sphere. Rows are behind each other in whole vectors.
template <int axes> class sphere_columns {
  public:
    static constexpr int across = axes - 1;

    // Room for count rows, with nextra columns besides; false: no memory. Contents are lost.
    bool reach(qx_long count, int nextra = 0)
    {
        if (count <= length) return true;
        const qx_long wanted = (count + count / 2 + 15) / 8 * 8;
        length = 0;
        if (!numbers.reach(wanted * (axes + 2 + nextra)) || !bins.reach(wanted * 2 * across)) return false;
        length = wanted;
        return true;
    }

    double *centre(int axis) { return numbers.data + axis * length; }
    double *r2() { return numbers.data + axes * length; }
    double *sure_r2() { return numbers.data + (axes + 1) * length; }
    double *extra(int column) { return numbers.data + (axes + 2 + column) * length; }
    // The bins that a sphere reaches, of the lowest level.
    int *lower(int k) { return bins.data + k * length; }
    int *upper(int k) { return bins.data + (across + k) * length; }

  private:
    growing_array<double> numbers;
    growing_array<int> bins;
    qx_long length = 0;
};

struct bin_place {
    int bin, block, lane;
};

// A bit a lane: spheres that hold p strictly inside or may do so, and those that surely do.
struct holding_lanes {
    unsigned near, sure;
};

template <int axes> holding_lanes lanes_holding_plain(const sphere_block<axes> &block, const double *p)
{
    holding_lanes bits = {0, 0};
    for (int i = 0; i < sphere_block<axes>::lanes; ++i) {
        const double dx = block.centre[0][i] - p[0];
        double d2 = dx * dx;
        for (int k = 1; k < axes; ++k) {
            const double d = block.centre[k][i] - p[k];
            d2 = d2 + d * d;
        }
        bits.near |= static_cast<unsigned>(block.r2[i] > d2) << i;
        if constexpr (has_doubt<axes>) bits.sure |= static_cast<unsigned>(block.sure_r2[i] > d2) << i;
    }
    if (!has_doubt<axes>) bits.sure = bits.near;
    return bits;
}

#if SKOKLANA_HAVE_AVX2_FORM
template <int axes>
TARGET_AVX2 FORCE_INLINE holding_lanes lanes_holding_wide(const sphere_block<axes> &block, const double *p)
{
    holding_lanes bits = {0, 0};
    for (int i = 0; i < sphere_block<axes>::lanes; i += 4) {
        const __m256d dx = _mm256_sub_pd(_mm256_loadu_pd(block.centre[0] + i), _mm256_set1_pd(p[0]));
        __m256d d2 = _mm256_mul_pd(dx, dx);
        for (int k = 1; k < axes; ++k) {
            const __m256d d = _mm256_sub_pd(_mm256_loadu_pd(block.centre[k] + i), _mm256_set1_pd(p[k]));
            d2 = _mm256_add_pd(d2, _mm256_mul_pd(d, d));
        }
        const auto bits_above = [=](const double *r2) TARGET_AVX2 {
            const __m256d above = _mm256_cmp_pd(_mm256_loadu_pd(r2 + i), d2, _CMP_GT_OQ);
            return static_cast<unsigned>(_mm256_movemask_pd(above)) << i;
        };
        bits.near |= bits_above(block.r2);
        if constexpr (has_doubt<axes>) bits.sure |= bits_above(block.sure_r2);
    }
    if (!has_doubt<axes>) bits.sure = bits.near;
    return bits;
}
#endif

template <int axes> class cell_bins {
  public:
    static constexpr int across = axes - 1;
    using block_type = sphere_block<axes>;

    growing_array<block_type> blocks;
    int nblocks = 0; // that were ever in use since the last clear
    int ncells = 0;

    // The box of the points.
    void set_box(const double *min, const double *max)
    {
        for (int k = 0; k < across; ++k) {
            low[k] = min[k + 1];
            inverse[k] = 1 / (max[k + 1] - min[k + 1]);
        }
    }

    // Empties the bins and divides them anew, for some number of cells while the sweep goes from x to x_end.
    bool clear(int expected, double x, double x_end)
    {
        depth = 0;
        while (depth + 1 < most_levels && (expected >> ((depth + 1) * across)) > cells_a_bin)
            ++depth;
        qx_long nbins = 0;
        for (int level = 0; level <= depth; ++level) {
            first_bin[level] = nbins;
            nbins += qx_long{1} << (level * across);
        }
        if (!heads.reach(nbins)) return false;
        memset(heads.data, -1, static_cast<size_t>(nbins) * sizeof(int));
        top_bin = (1 << depth) - 1;
        for (int k = 0; k < across; ++k)
            scale[k] = inverse[k] * (1 << depth);
        levels_used = 0;
        nblocks = ncells = 0;
        free_block = -1;
        slab[0] = x;
        slab[1] = x_end;
        return true;
    }

    // Finds the bins that count spheres reach. What can't be told reaches everywhere.
    void place(qx_long count, sphere_columns<axes> *spheres) const
    {
#if SKOKLANA_HAVE_AVX2_FORM
        if (have_avx2()) return place_wide(count, spheres);
#endif
        place_plain(count, spheres);
    }

    // Puts a cell into its bin, its sphere placed in some row. false: no memory.
    bool add(int cell, sphere_columns<axes> &spheres, qx_long row, bin_place *place)
    {
        const int bin = bin_of(spheres, row);
        int head = heads[bin];
        if (head < 0 || blocks[head].used == block_type::lanes) {
            const int fresh = take_block();
            if (fresh < 0) return false;
            blocks[fresh].next = head;
            heads[bin] = head = fresh;
        }
        block_type &block = blocks[head];
        *place = {bin, head, block.used};
        for (int k = 0; k < axes; ++k)
            block.centre[k][block.used] = spheres.centre(k)[row];
        block.r2[block.used] = spheres.r2()[row];
        if (has_doubt<axes>) block.sure_r2[block.used] = spheres.sure_r2()[row];
        block.cell[block.used++] = cell;
        ++ncells;
        return true;
    }

    // Takes a cell out. Returns the cell that has moved to its place, -1 for none.
    int remove(const bin_place &place)
    {
        const int head = heads[place.bin];
        block_type &from = blocks[head], &to = blocks[place.block];
        const int last = --from.used;
        int moved = -1;
        if (&from != &to || last != place.lane) {
            for (int k = 0; k < axes; ++k)
                to.centre[k][place.lane] = from.centre[k][last];
            to.r2[place.lane] = from.r2[last];
            if (has_doubt<axes>) to.sure_r2[place.lane] = from.sure_r2[last];
            moved = to.cell[place.lane] = from.cell[last];
        }
        from.r2[last] = -1;
        if (has_doubt<axes>) from.sure_r2[last] = -1;
        if (last == 0) {
            heads[place.bin] = from.next;
            from.next = free_block;
            free_block = head;
        }
        --ncells;
        return moved;
    }

    // Whether the sphere of one cell holds p: neither bit, near, or near and sure.
    holding_lanes holds(const bin_place &place, const double *p) const
    {
        const holding_lanes bits = lanes_holding_plain(blocks[place.block], p);
        return {bits.near >> place.lane & 1, bits.sure >> place.lane & 1};
    }

    // Lists in found, which has room for all cells, those whose spheres hold p, and by ~cell those of which that is
    // in doubt. Returns how many.
    int find(const double *p, int *found)
    {
        int chains[most_levels << across];
        const int nchains = chains_at(p, chains);
#if SKOKLANA_HAVE_AVX2_FORM
        if (have_avx2()) return test_chains_wide(chains, nchains, p, found);
#endif
        return test_chains_plain(chains, nchains, p, found);
    }

  private:
    static constexpr int cells_a_bin = 3;

    growing_array<int> heads;
    qx_long first_bin[most_levels];
    int depth = 0; // the lowest level; level 0 is one bin
    unsigned levels_used = 0;
    int free_block = -1;
    double low[across], inverse[across]; // the box
    double scale[across], top_bin = 0;   // bins of the lowest level: how many a unit, the last one's number
    double slab[2];

    int bin_at(double place, int k) const
    {
        const double t = (place - low[k]) * scale[k];
        return static_cast<int>(std::min(t >= 0 ? t : 0, top_bin));
    }

    // The bin for what reaches from lower to upper, among the bins of the lowest level.
    int bin_of(sphere_columns<axes> &spheres, qx_long row)
    {
        int spread = 0;
        for (int k = 0; k < across; ++k)
            spread |= spheres.upper(k)[row] - spheres.lower(k)[row];
        const int up = spread == 0 ? 0 : 32 - __builtin_clz(static_cast<unsigned>(spread)); // levels
        const int level = depth - up;
        levels_used |= 1u << level;
        int bin = 0;
        for (int k = across - 1; k >= 0; --k)
            bin = (bin << level) + (spheres.lower(k)[row] >> up);
        return static_cast<int>(first_bin[level]) + bin;
    }

    FORCE_INLINE void place_body(qx_long count, sphere_columns<axes> *spheres) const
    {
        // The tests against points round each step, relative to r2; this is far more than they err by.
        constexpr double slack = 1e-14;
        const double from = slab[0], to = slab[1], top = top_bin;
        for (int k = 0; k < across; ++k) {
            const double *x = spheres->centre(0), *c = spheres->centre(k + 1), *r2 = spheres->r2();
            const double lowest = low[k], a_unit = scale[k];
            int *lower = spheres->lower(k), *upper = spheres->upper(k);
#pragma GCC ivdep
            for (qx_long i = 0; i < count; ++i) {
                const double behind = x[i] - to, before = from - x[i];
                double away = behind > 0 ? behind : 0;
                away = before > away ? before : away;
                const double h2 = r2[i] * (1 + slack) - away * away * (1 - slack);
                const double half = std::sqrt(h2 < 0 ? 0 : h2);
                const double h = half + slack * (std::fabs(c[i]) + half);
                double t = (c[i] - h - lowest) * a_unit;
                t = t >= 0 ? t : 0;
                lower[i] = static_cast<int>(t < top ? t : top);
                t = (c[i] + h - lowest) * a_unit;
                t = t < top ? t : top;
                upper[i] = static_cast<int>(t >= 0 ? t : 0);
            }
        }
    }

    void place_plain(qx_long count, sphere_columns<axes> *spheres) const
    {
        place_body(count, spheres);
    }

    TARGET_AVX2 void place_wide(qx_long count, sphere_columns<axes> *spheres) const
    {
        place_body(count, spheres);
    }

    int take_block()
    {
        int fresh = free_block;
        if (fresh >= 0) {
            free_block = blocks[fresh].next;
        } else {
            if (nblocks == INT_MAX || !blocks.reach(nblocks + 1)) return -1;
            fresh = nblocks++;
            block_type &block = blocks[fresh];
            for (int k = 0; k < axes; ++k)
                std::fill_n(block.centre[k], block_type::lanes, 0.0);
            std::fill_n(block.r2, block_type::lanes, -1.0);
            if (has_doubt<axes>) std::fill_n(block.sure_r2, block_type::lanes, -1.0);
            block.used = 0;
        }
        return fresh;
    }

    // The first blocks of the bins that can hold spheres around p.
    int chains_at(const double *p, int *chains) const
    {
        int at[across], n = 0;
        for (int k = 0; k < across; ++k)
            at[k] = bin_at(p[k + 1], k);
        for (int up = 0; up <= depth; ++up) {
            const int level = depth - up;
            if ((levels_used >> level & 1) == 0) continue;
            const int *bins = heads.data + first_bin[level];
            for (int corner = 0; corner < 1 << across; ++corner) {
                int bin = 0;
                bool inside = true;
                for (int k = across - 1; k >= 0; --k) {
                    const int b = (at[k] >> up) - (corner >> k & 1);
                    inside = inside && b >= 0;
                    bin = bin * (1 << level) + b;
                }
                if (inside && bins[bin] >= 0) chains[n++] = bins[bin];
            }
        }
        return n;
    }

    static FORCE_INLINE int list_lanes(const block_type &block, const holding_lanes &bits, int *found)
    {
        int n = 0;
        for (unsigned near = bits.near; near != 0; near &= near - 1) {
            const int lane = __builtin_ctz(near), cell = block.cell[lane];
            found[n++] = !has_doubt<axes> || (bits.sure >> lane & 1) != 0 ? cell : ~cell;
        }
        return n;
    }

    int test_chains_plain(const int *chains, int nchains, const double *p, int *found) const
    {
        int n = 0;
        for (int c = 0; c < nchains; ++c)
            for (int b = chains[c]; b >= 0; b = blocks[b].next)
                n += list_lanes(blocks[b], lanes_holding_plain(blocks[b], p), found + n);
        return n;
    }

#if SKOKLANA_HAVE_AVX2_FORM
    TARGET_AVX2 int test_chains_wide(const int *chains, int nchains, const double *p, int *found) const
    {
        int n = 0;
        for (int c = 0; c < nchains; ++c)
            for (int b = chains[c]; b >= 0; b = blocks[b].next)
                n += list_lanes(blocks[b], lanes_holding_wide(blocks[b], p), found + n);
        return n;
    }
#endif
};
