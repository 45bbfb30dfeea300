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
//
// Blocks have spheres in single precision, rounded outwards: what is not found there holds the point by no means,
// and of what is found the owner tests the sphere itself. So a block of eight spheres is some two lines of memory.
#pragma once

#include "memory.hpp"
#include "simd.hpp"

#include <algorithm>
#include <array>
#include <cfloat>
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
        if (count <= capacity && data != nullptr) return true;
        const qx_long more = std::max(count, capacity + capacity / 2 + 16);
        void *grown = realloc(data, static_cast<size_t>(more) * sizeof(T));
        if (grown == nullptr) return false;
        data = static_cast<T *>(grown);
        capacity = more;
        return true;
    }
};

// Sorts items with distinct keys. Of few the ranks are counted, without a branch that can't be foretold.
template <typename T, typename Key> void sort_distinct(T *items, int count, Key key)
{
    constexpr int few = 16;
    if (count > few) {
        std::sort(items, items + count, [=](const T &a, const T &b) { return key(a) < key(b); });
        return;
    }
    T copy[few];
    for (int i = 0; i < count; ++i)
        copy[i] = items[i];
    for (int i = 0; i < count; ++i) {
        int rank = 0;
        for (int j = 0; j < count; ++j)
            rank += key(copy[j]) < key(copy[i]) ? 1 : 0;
        items[rank] = copy[i];
    }
}

constexpr int most_levels = 16;

// Some spheres of one bin, in units of the box and from its centre. Lanes from used on have no meaning.
template <int axes> struct sphere_block {
    static constexpr int lanes = axes == 2 ? 4 : 8; // bins of the plane hold fewer
    float centre[axes][lanes];
    float r2[lanes];
    int cell[lanes];
    int bin;
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
        if (!numbers.reach(wanted * (axes + 1 + nextra)) || !bins.reach(wanted * 2 * across) ||
            !rounded.reach(wanted * (axes + 1)))
            return false;
        length = wanted;
        return true;
    }

    double *centre(int axis) { return numbers.data + axis * length; }
    // Beyond it nothing is in the sphere.
    double *r2() { return numbers.data + axes * length; }
    double *extra(int column) { return numbers.data + (axes + 1 + column) * length; }
    // The bins that a sphere reaches, of the lowest level.
    int *lower(int k) { return bins.data + k * length; }
    int *upper(int k) { return bins.data + (across + k) * length; }
    // As in blocks.
    float *near_centre(int axis) { return rounded.data + axis * length; }
    float *near_r2() { return rounded.data + axes * length; }

  private:
    growing_array<double> numbers;
    growing_array<int> bins;
    growing_array<float> rounded;
    qx_long length = 0;
};

// A bit a lane: spheres that may hold p, which is in the blocks' units.
template <int axes> unsigned lanes_near_plain(const sphere_block<axes> &block, const float *p)
{
    unsigned bits = 0;
    for (int i = 0; i < sphere_block<axes>::lanes; ++i) {
        float d2 = 0;
        for (int k = 0; k < axes; ++k) {
            const float d = block.centre[k][i] - p[k];
            d2 = d2 + d * d;
        }
        bits |= static_cast<unsigned>(!(d2 > block.r2[i])) << i;
    }
    return bits;
}

#if SKOKLANA_HAVE_AVX2_FORM
// For each set of lanes, their numbers in order.
template <int lanes> struct lane_list {
    uint8_t lane[lanes];
};

template <int lanes> constexpr std::array<lane_list<lanes>, 1 << lanes> list_lanes()
{
    std::array<lane_list<lanes>, 1 << lanes> lists = {};
    for (unsigned bits = 0; bits < 1 << lanes; ++bits)
        for (unsigned lane = 0, n = 0; lane < lanes; ++lane)
            if ((bits >> lane & 1) != 0) lists[bits].lane[n++] = static_cast<uint8_t>(lane);
    return lists;
}

template <int lanes> constexpr std::array<lane_list<lanes>, 1 << lanes> lane_lists = list_lanes<lanes>();

TARGET_AVX2 FORCE_INLINE unsigned lanes_near_wide(const sphere_block<2> &block, const float *p)
{
    const __m128 dx = _mm_sub_ps(_mm_loadu_ps(block.centre[0]), _mm_set1_ps(p[0]));
    const __m128 dy = _mm_sub_ps(_mm_loadu_ps(block.centre[1]), _mm_set1_ps(p[1]));
    const __m128 d2 = _mm_add_ps(_mm_mul_ps(dx, dx), _mm_mul_ps(dy, dy));
    return static_cast<unsigned>(_mm_movemask_ps(_mm_cmp_ps(d2, _mm_loadu_ps(block.r2), _CMP_NGT_UQ)));
}

TARGET_AVX2 FORCE_INLINE unsigned lanes_near_wide(const sphere_block<3> &block, const float *p)
{
    __m256 d2 = _mm256_setzero_ps();
    for (int k = 0; k < 3; ++k) {
        const __m256 d = _mm256_sub_ps(_mm256_loadu_ps(block.centre[k]), _mm256_set1_ps(p[k]));
        d2 = _mm256_add_ps(d2, _mm256_mul_ps(d, d));
    }
    return static_cast<unsigned>(
        _mm256_movemask_ps(_mm256_cmp_ps(d2, _mm256_loadu_ps(block.r2), _CMP_NGT_UQ)));
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
        double extent = 0;
        for (int k = 0; k < axes; ++k)
            extent = std::max(extent, max[k] - min[k]);
        // Without a box all spheres are at one place, and near.
        per_unit = extent > 0 && 1 / extent < DBL_MAX ? 1 / extent : 0;
        for (int k = 0; k < axes; ++k)
            middle[k] = per_unit > 0 ? min[k] / 2 + max[k] / 2 : 0;
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
    bool add(int cell, sphere_columns<axes> &spheres, qx_long row, int *place)
    {
        const int bin = bin_of(spheres, row);
        int head = heads[bin];
        if (head < 0 || blocks[head].used == block_type::lanes) {
            const int fresh = take_block();
            if (fresh < 0) return false;
            blocks[fresh].next = head;
            blocks[fresh].bin = bin;
            heads[bin] = head = fresh;
        }
        block_type &block = blocks[head];
        *place = head * block_type::lanes + block.used;
        for (int k = 0; k < axes; ++k)
            block.centre[k][block.used] = spheres.near_centre(k)[row];
        block.r2[block.used] = spheres.near_r2()[row];
        block.cell[block.used++] = cell;
        ++ncells;
        return true;
    }

    // Takes a cell out. Returns the cell that has moved to its place, which may be itself.
    int remove(int place)
    {
        constexpr unsigned lanes = block_type::lanes;
        const int number = static_cast<int>(static_cast<unsigned>(place) / lanes);
        const int lane = static_cast<int>(static_cast<unsigned>(place) % lanes);
        block_type &to = blocks[number];
        const int head = heads[to.bin];
        block_type &from = blocks[head];
        const int last = --from.used;
        for (int k = 0; k < axes; ++k)
            to.centre[k][lane] = from.centre[k][last];
        to.r2[lane] = from.r2[last];
        const int moved = to.cell[lane] = from.cell[last];
        if (last == 0) {
            heads[from.bin] = from.next;
            from.next = free_block;
            free_block = head;
        }
        --ncells;
        return moved;
    }

    // Lists in found those cells whose spheres may hold p, and returns how many. found has room for all cells and
    // a block more.
    int find(const double *p, int *found)
    {
        int chains[most_levels << across];
        const int nchains = chains_at(p, chains);
        float at[axes];
        for (int k = 0; k < axes; ++k)
            at[k] = static_cast<float>((p[k] - middle[k]) * per_unit);
#if SKOKLANA_HAVE_AVX2_FORM
        if (have_avx2()) return test_chains_wide(chains, nchains, at, found);
#endif
        return test_chains_plain(chains, nchains, at, found);
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
    double middle[axes], per_unit = 0; // of the box, for what is in single precision

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
        const int up = 31 - __builtin_clz(static_cast<unsigned>(spread) << 1 | 1); // levels
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
            const double lowest = low[k], bins_a_unit = scale[k];
            int *lower = spheres->lower(k), *upper = spheres->upper(k);
#pragma GCC ivdep
            for (qx_long i = 0; i < count; ++i) {
                const double behind = x[i] - to, before = from - x[i];
                double away = behind > 0 ? behind : 0;
                away = before > away ? before : away;
                const double h2 = r2[i] * (1 + slack) - away * away * (1 - slack);
                const double half = std::sqrt(h2 < 0 ? 0 : h2);
                const double h = half + slack * (std::fabs(c[i]) + half);
                double t = (c[i] - h - lowest) * bins_a_unit;
                t = t >= 0 ? t : 0;
                lower[i] = static_cast<int>(t < top ? t : top);
                t = (c[i] + h - lowest) * bins_a_unit;
                t = t < top ? t : top;
                upper[i] = static_cast<int>(t >= 0 ? t : 0);
            }
        }
    }

    // With centre c and radius r in units of the box, a point's place and c err by less than e, in single precision,
    // and squared distances by less than 2^-20 of themselves: those of points inside are at most (r + e)^2 (1 + 2^-20).
    FORCE_INLINE void round_body(qx_long count, sphere_columns<axes> *spheres) const
    {
        constexpr double more = 1.0 / (1 << 20), unit = more / 8, least = 1e-30;
        const double *r2 = spheres->r2();
        float *out = spheres->near_r2();
#pragma GCC ivdep
        for (qx_long i = 0; i < count; ++i) {
            double away = axes;
            for (int k = 0; k < axes; ++k) {
                const double c = (spheres->centre(k)[i] - middle[k]) * per_unit;
                spheres->near_centre(k)[i] = static_cast<float>(c);
                away += std::fabs(c);
            }
            const double r = std::sqrt(r2[i]) * per_unit * (1 + more) + away * unit;
            out[i] = static_cast<float>(r * r * (1 + 2 * more) + least);
        }
    }

    void place_plain(qx_long count, sphere_columns<axes> *spheres) const
    {
        place_body(count, spheres);
        round_body(count, spheres);
    }

    TARGET_AVX2 void place_wide(qx_long count, sphere_columns<axes> *spheres) const
    {
        place_body(count, spheres);
        round_body(count, spheres);
    }

    int take_block()
    {
        int fresh = free_block;
        if (fresh >= 0) {
            free_block = blocks[fresh].next;
        } else {
            if (nblocks == INT_MAX / block_type::lanes || !blocks.reach(nblocks + 1)) return -1;
            fresh = nblocks++;
            blocks[fresh].used = 0;
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

    static unsigned lanes_in_use(const block_type &block)
    {
        return (1u << block.used) - 1;
    }

    int test_chains_plain(const int *chains, int nchains, const float *p, int *found) const
    {
        int n = 0;
        for (int c = 0; c < nchains; ++c)
            for (int b = chains[c]; b >= 0; b = blocks[b].next)
                for (unsigned near = lanes_near_plain(blocks[b], p) & lanes_in_use(blocks[b]); near != 0;
                     near &= near - 1)
                    found[n++] = blocks[b].cell[__builtin_ctz(near)];
        return n;
    }

#if SKOKLANA_HAVE_AVX2_FORM
    // Writes a whole block, the lanes whose bits are set first.
    static TARGET_AVX2 FORCE_INLINE void store_lanes(const block_type &block, unsigned bits, int *out)
    {
        const uint8_t *lanes = lane_lists<block_type::lanes>[bits].lane;
        if constexpr (block_type::lanes == 8) {
            const __m256i cells = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(block.cell));
            const __m256i from = _mm256_cvtepu8_epi32(_mm_loadu_si64(lanes));
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), _mm256_permutevar8x32_epi32(cells, from));
        } else {
            const __m128 cells = _mm_loadu_ps(reinterpret_cast<const float *>(block.cell));
            const __m128i from = _mm_cvtepu8_epi32(_mm_loadu_si32(lanes));
            _mm_storeu_ps(reinterpret_cast<float *>(out), _mm_permutevar_ps(cells, from));
        }
    }

    TARGET_AVX2 int test_chains_wide(const int *chains, int nchains, const float *p, int *found) const
    {
        int n = 0;
        for (int c = 0; c < nchains; ++c)
            for (int b = chains[c]; b >= 0; b = blocks[b].next) {
                const block_type &block = blocks[b];
                const unsigned near = lanes_near_wide(block, p) & lanes_in_use(block);
                store_lanes(block, near, found + n);
                n += __builtin_popcount(near);
            }
        return n;
    }
#endif
};
