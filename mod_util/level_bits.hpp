// Node flags of structured meshes as bits: 64 nodes a word, each row of nodes from a word of its own.
//
// A node is above the level where (double)value >= level, whatever its type; the test is made in the type
// itself (classify.hpp). Null nodes are those that equal the null value in the type, so NaN is neither.
//
//     |zero|row 0, word 0|word 1|...|zero|row 1, word 0|word 1|...|zero|
//
// Between the rows stands a word of zeros: bit -1 of a row and the word behind its last are there and 0. What
// node rows hold behind their last bit is of no meaning: the rows of cells to walk end one bit earlier.
#pragma once

#include "classify.hpp"
#include "simd.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

using bit_word = uint64_t;
constexpr int word_bits = 64;

inline qx_long words_for(qx_long nbits)
{
    return (nbits + word_bits - 1) / word_bits;
}

// A word's bits moved to the neighbour below or above, its end bit taken from the word on that side.
FORCE_INLINE bit_word from_next(bit_word word, bit_word next)
{
    return word >> 1 | next << (word_bits - 1);
}

FORCE_INLINE bit_word from_previous(bit_word word, bit_word previous)
{
    return word << 1 | previous >> (word_bits - 1);
}

// Rows of bits in a block of zeroed words that someone else owns.
struct bit_plane {
    bit_word *words;
    qx_long stride; // words from a row to the next

    static qx_long stride_of(qx_long ncols) { return words_for(ncols) + 1; }
    static qx_long length(qx_long ncols, qx_long nrows) { return 1 + stride_of(ncols) * nrows; }

    // NULL where there are no bits: planes of nulls are left out of meshes without them.
    bit_word *row(qx_long j) const { return words == nullptr ? nullptr : words + 1 + j * stride; }
};

// The other test beside those of classify.hpp.
template <typename T> struct equal_to {
    T value;
    FORCE_INLINE bool one(T v) const { return v == value; }
#if SKOKLANA_HAVE_AVX2_FORM
    template <typename V> TARGET_AVX2 FORCE_INLINE auto each(V v) const
    {
        return v == value;
    }
#endif
};

// ---- values to bits ----------------------------------------------------------------------------------------

template <typename T, typename Test> bit_word bits_plain(const T *values, qx_long count, const Test &test)
{
    bit_word bits = 0;
    for (qx_long i = 0; i < count; ++i)
        bits |= static_cast<bit_word>(test.one(values[i])) << i;
    return bits;
}

// Rows of ncols values one behind the other.
template <typename T, typename Test>
void test_rows_plain(const T *values, qx_long ncols, qx_long nrows, const Test &test, const bit_plane &out)
{
    for (qx_long j = 0; j < nrows; ++j, values += ncols)
        for (qx_long i = 0; i < ncols; i += word_bits)
            out.row(j)[i / word_bits] = bits_plain(values + i, std::min<qx_long>(ncols - i, word_bits), test);
}

#if SKOKLANA_HAVE_AVX2_FORM

// 64 values: the masks of the compares, one bit a lane.
template <typename T, typename Test> TARGET_AVX2 inline bit_word bits_of_64(const T *values, const Test &test)
{
    typedef T vector __attribute__((vector_size(32)));
    constexpr int nlanes = 32 / static_cast<int>(sizeof(T));
    __m256i mask[2 * sizeof(T)];
    for (size_t p = 0; p < 2 * sizeof(T); ++p) {
        vector v;
        memcpy(&v, values + p * nlanes, sizeof v);
        mask[p] = reinterpret_cast<__m256i>(test.each(v));
    }
    bit_word bits = 0;
    for (int p = 0; p < word_bits / nlanes; ++p) {
        int passed = 0;
        if constexpr (sizeof(T) == 1) passed = _mm256_movemask_epi8(mask[p]);
        if constexpr (sizeof(T) == 2) // to bytes first; packing interleaves the halves of two vectors
            passed = p % 2 != 0 ? 0
                                : _mm256_movemask_epi8(_mm256_permute4x64_epi64(
                                      _mm256_packs_epi16(mask[p], mask[p + 1]), 0xd8));
        if constexpr (sizeof(T) == 4) passed = _mm256_movemask_ps(_mm256_castsi256_ps(mask[p]));
        if constexpr (sizeof(T) == 8) passed = _mm256_movemask_pd(_mm256_castsi256_pd(mask[p]));
        bits |= static_cast<bit_word>(static_cast<unsigned>(passed)) << (p * nlanes);
    }
    return bits;
}

// A row's last word is made of 64 values too, the next row's first ones with it, as far as there are readable
// ones.
template <typename T, typename Test>
TARGET_AVX2 void test_rows_wide(const T *values, qx_long ncols, qx_long nrows, qx_long readable,
                                const Test &test, const bit_plane &out)
{
    for (qx_long j = 0; j < nrows; ++j, values += ncols, readable -= ncols) {
        bit_word *row = out.row(j);
        for (qx_long i = 0; i < ncols; i += word_bits, ++row) {
            if (readable - i < word_bits)
                *row = bits_plain(values + i, ncols - i, test);
            else
                *row = bits_of_64(values + i, test);
        }
    }
}

#endif

template <typename T, typename Test>
void test_rows(const T *values, qx_long ncols, qx_long nrows, qx_long readable, const Test &test,
               const bit_plane &out)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (have_avx2()) return test_rows_wide(values, ncols, nrows, readable, test, out);
#else
    (void)readable;
#endif
    test_rows_plain(values, ncols, nrows, test, out);
}

// ---- flags of a mesh ---------------------------------------------------------------------------------------

// Scalar data of a structured mesh, the test for above, and what is null.
template <typename T, typename Test> struct tested_data {
    const T *values;
    qx_long nnodes;
    Test above;
    equal_to<T> null;
};

// The same with its type left behind, so that a walk over the mesh is compiled once and not once a type.
struct flag_source {
    const void *data; // tested_data, borrowed
    bool nulls;       // whether nodes may be null
    // Flags nrows rows of ncols nodes from first_node on; null is written only where nodes may be null.
    void (*flag_rows)(const flag_source &source, qx_long first_node, qx_long ncols, qx_long nrows,
                      const bit_plane &above, const bit_plane &null);
};

template <typename T, typename Test>
void flag_rows_of(const flag_source &source, qx_long first_node, qx_long ncols, qx_long nrows,
                  const bit_plane &above, const bit_plane &null)
{
    const tested_data<T, Test> &data = *static_cast<const tested_data<T, Test> *>(source.data);
    const T *values = data.values + first_node;
    const qx_long readable = data.nnodes - first_node;
    test_rows(values, ncols, nrows, readable, data.above, above);
    if (source.nulls) test_rows(values, ncols, nrows, readable, data.null, null);
}

// Calls body with the flags of a mesh's data.
template <typename T, typename Body>
auto with_flags(const T *values, qx_long nnodes, double level, int null_flag, T null_value, Body body)
{
    return with_widened_level_test<T>(level, 1, [&](auto above) {
        const tested_data<T, decltype(above)> data = {values, nnodes, above, {null_value}};
        return body(flag_source{&data, null_flag != 0, flag_rows_of<T, decltype(above)>});
    });
}

// ---- walks over the cells ----------------------------------------------------------------------------------

// Words of a row of cells that are taken at a time: what their cells add is counted before any of it is
// written.
constexpr int words_a_piece = 16;

enum class walk_result { done, interrupted, no_node_memory, no_map_memory, no_connect_memory };

inline void set_first_bits(bit_word *row, qx_long nbits)
{
    for (; nbits > 0; ++row, nbits -= word_bits)
        *row = nbits < word_bits ? (bit_word(1) << nbits) - 1 : ~bit_word(0);
}

// The cells of a row that have no null corner, by the bits of the node rows around it.
inline void find_walked(const bit_word *cells, const bit_word *const *null_rows, int nrows, qx_long nwords,
                        bit_word *walked)
{
    for (qx_long w = 0; w < nwords; ++w) {
        bit_word null = 0;
        for (int r = 0; r < nrows; ++r)
            null |= null_rows[r][w] | from_next(null_rows[r][w], null_rows[r][w + 1]);
        walked[w] = cells[w] & ~null;
    }
}
