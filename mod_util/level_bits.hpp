// Node flags of structured meshes as bits: values tested against a level or two, and against the null value.
//
// A node is above a level where (double)value >= level, whatever its type; the test is made in the type itself
// (classify.hpp). Null nodes are those that equal the null value in the type, so NaN is neither. What node
// rows hold behind their last bit is of no meaning: whoever walks over cells ends one bit earlier.
#pragma once

#include "bit_plane.hpp"
#include "classify.hpp"

#include <algorithm>
#include <cstring>
#include <tuple>

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

// Scalar data of a structured mesh, the tests of its nodes, and which nodes are null.
template <typename T, typename Null, typename... Tests> struct tested_data {
    const T *values;
    qx_long nnodes;
    Null null;
    std::tuple<Tests...> tests;
};

// The same with its type left behind, so that a walk over the mesh is compiled once and not once a type.
struct flag_source {
    const void *data; // tested_data, borrowed
    bool nulls;       // whether nodes may be null
    // Flags nrows rows of ncols nodes from first_node on, in a plane for each test; null is written only where
    // nodes may be null.
    void (*flag_rows)(const flag_source &source, qx_long first_node, qx_long ncols, qx_long nrows,
                      const bit_plane *passed, const bit_plane &null);
};

template <typename T, typename Null, typename... Tests>
void flag_rows_of(const flag_source &source, qx_long first_node, qx_long ncols, qx_long nrows,
                  const bit_plane *passed, const bit_plane &null)
{
    const auto &data = *static_cast<const tested_data<T, Null, Tests...> *>(source.data);
    const T *values = data.values + first_node;
    const qx_long readable = data.nnodes - first_node;
    std::apply(
        [&](const auto &...test) { (test_rows(values, ncols, nrows, readable, test, *passed++), ...); },
        data.tests);
    if (source.nulls) test_rows(values, ncols, nrows, readable, data.null, null);
}

// Calls body with the flags of a mesh's data by the given tests.
template <typename T, typename Body, typename Null, typename... Tests>
auto with_tested_flags(const T *values, qx_long nnodes, bool nulls, Null null, Body body, Tests... tests)
{
    const tested_data<T, Null, Tests...> data = {values, nnodes, null, {tests...}};
    return body(flag_source{&data, nulls, flag_rows_of<T, Null, Tests...>});
}

// The same for nodes at or above a level.
template <typename T, typename Body>
auto with_level_flags(const T *values, qx_long nnodes, double level, int null_flag, T null_value, Body body)
{
    return with_widened_level_test<T>(level, 1, [&](auto above) {
        return with_tested_flags(values, nnodes, null_flag != 0, equal_to<T>{null_value}, body, above);
    });
}
