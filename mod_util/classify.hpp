// Tests of values against bounds, and the kernel that turns an array into one byte a value.
//
// Flags, node maps, counts and thresholds all compare each value of an array with a bound or two, and with
// the null value. A test is a record of bounds in the element's own type: whatever precision a comparison
// is defined in, its bounds are brought into that type once, before the loop, so that the loop widens
// nothing. Two forms of each test stand side by side, for one value and for a vector of them.
//
// classify() writes a code for "fails", "passes" or "null". Its wide form takes 32 values a step: each
// vector of values becomes a vector of small numbers as wide as the values (0 fails, 1 passes, 2 and 3
// null), those are packed to 32 bytes, and one shuffle looks all 32 codes up.
//
// NaN fails every comparison. It passes the tests that ask whether a value is not outside.
#pragma once

#include "simd.hpp"

#include <skoklana/types.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#if SKOKLANA_HAVE_AVX2_FORM
#include <immintrin.h>
#define VECTOR_FORM template <typename V> TARGET_AVX2 FORCE_INLINE auto
#endif

// ---- tests -------------------------------------------------------------------------------------------------

template <typename T> struct at_least {
    T bound;
    FORCE_INLINE bool one(T v) const { return v >= bound; }
#if SKOKLANA_HAVE_AVX2_FORM
    VECTOR_FORM each(V v) const
    {
        return v >= bound;
    }
#endif
};

template <typename T> struct greater_than {
    T bound;
    FORCE_INLINE bool one(T v) const { return v > bound; }
#if SKOKLANA_HAVE_AVX2_FORM
    VECTOR_FORM each(V v) const
    {
        return v > bound;
    }
#endif
};

template <typename T> struct less_than {
    T bound;
    FORCE_INLINE bool one(T v) const { return v < bound; }
#if SKOKLANA_HAVE_AVX2_FORM
    VECTOR_FORM each(V v) const
    {
        return v < bound;
    }
#endif
};

template <typename T> struct at_most {
    T bound;
    FORCE_INLINE bool one(T v) const { return v <= bound; }
#if SKOKLANA_HAVE_AVX2_FORM
    VECTOR_FORM each(V v) const
    {
        return v <= bound;
    }
#endif
};

// NaN is not in range.
template <typename T> struct in_range {
    T lo, hi;
    FORCE_INLINE bool one(T v) const { return (v >= lo) & (v <= hi); }
#if SKOKLANA_HAVE_AVX2_FORM
    VECTOR_FORM each(V v) const
    {
        return (v >= lo) & (v <= hi);
    }
#endif
};

// NaN is not outside.
template <typename T> struct not_outside {
    T lo, hi;
    FORCE_INLINE bool one(T v) const { return !((v < lo) | (v > hi)); }
#if SKOKLANA_HAVE_AVX2_FORM
    VECTOR_FORM each(V v) const
    {
        return ~((v < lo) | (v > hi));
    }
#endif
};

template <typename T> struct anything {
    FORCE_INLINE bool one(T) const { return true; }
#if SKOKLANA_HAVE_AVX2_FORM
    VECTOR_FORM each(V v) const
    {
        return (v == v) | (v != v);
    }
#endif
};

#undef VECTOR_FORM

// No integer is above the largest.
template <typename T> constexpr greater_than<T> nothing = {std::numeric_limits<T>::max()};

// Bounds that no value lies outside of.
template <typename T> constexpr T no_lower_bound()
{
    using limits = std::numeric_limits<T>;
    return limits::has_infinity ? -limits::infinity() : limits::min();
}

template <typename T> constexpr T no_upper_bound()
{
    using limits = std::numeric_limits<T>;
    return limits::has_infinity ? limits::infinity() : limits::max();
}

// ---- from a level in double to a test in the element's type ----------------------------------------------

// v >= level, or v > level if not inclusive, in the element's precision: a float level is rounded to single.
// Integers compare with the level's ceiling, or with its floor if strict; a level outside the type's range has
// every value on one side. Calls body with the test.
template <typename T, typename Body> auto with_level_test(double level, bool inclusive, Body body)
{
    using limits = std::numeric_limits<T>;
    T bound;
    if constexpr (std::is_integral_v<T>) {
        const double whole = inclusive ? std::ceil(level) : std::floor(level);
        if (!(whole < static_cast<double>(limits::max()) + 1)) return body(nothing<T>); // NaN too
        if (whole < static_cast<double>(limits::min())) return body(at_least<T>{limits::min()});
        bound = static_cast<T>(whole);
    } else {
        bound = static_cast<T>(level);
    }
    if (inclusive) return body(at_least<T>{bound});
    return body(greater_than<T>{bound});
}

// The least integer of a type for which a test holds that holds for all larger ones too and for the largest.
template <typename T, typename Holds> T least_that(Holds holds)
{
    T lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    while (lo < hi) {
        const T middle = static_cast<T>((lo & hi) + ((lo ^ hi) >> 1)); // rounded down, never overflows
        if (holds(middle))
            hi = middle;
        else
            lo = static_cast<T>(middle + 1);
    }
    return hi;
}

// Both sides widened to double: level >= v for a negative direction, v >= level for others. The widening
// keeps the order of values, so the values that pass are those from one bound of the type on. It rounds
// large 64-bit integers, which is why the bound is searched for by the comparison itself.
template <typename T, typename Body> auto with_widened_level_test(double level, int direction, Body body)
{
    using limits = std::numeric_limits<T>;
    if constexpr (std::is_integral_v<T>) {
        const auto above = [=](T v) { return static_cast<double>(v) > level; };
        const auto reaches = [=](T v) { return static_cast<double>(v) >= level; };
        if (direction < 0) {
            if (!(level >= static_cast<double>(limits::min()))) return body(nothing<T>);
            if (!above(limits::max())) return body(at_most<T>{limits::max()});
            return body(at_most<T>{static_cast<T>(least_that<T>(above) - 1)});
        }
        if (!reaches(limits::max())) return body(nothing<T>);
        return body(at_least<T>{least_that<T>(reaches)});
    } else {
        T bound = static_cast<T>(level);
        if (direction < 0) {
            if (bound > level) bound = std::nextafter(bound, -limits::infinity());
            return body(at_most<T>{bound});
        }
        if (bound < level) bound = std::nextafter(bound, limits::infinity());
        return body(at_least<T>{bound});
    }
}

// ---- codes -------------------------------------------------------------------------------------------------

struct outcome_codes {
    unsigned char fails, passes, null;
};

// With these a byte is 1 for each value that passes and is not null.
constexpr outcome_codes survivor_flags = {0, 1, 0};

// Kernels are kept apart from their callers: they serve many, and would be copied into each.
#define KEPT_APART __attribute__((noinline))

template <bool has_null, typename T, typename Test>
FORCE_INLINE unsigned char outcome_of(T v, const Test &test, T null_value, outcome_codes codes)
{
    // Masks, so that no branch is left for unpredictable data to defeat.
    const int passes = -static_cast<int>(test.one(v));
    int code = codes.fails ^ (passes & (codes.fails ^ codes.passes));
    if (has_null) {
        const int is_null = -static_cast<int>(v == null_value);
        code ^= is_null & (code ^ codes.null);
    }
    return static_cast<unsigned char>(code);
}

template <bool has_null, typename T, typename Test>
KEPT_APART void classify_plain(const T *data, qx_long count, Test test, T null_value, outcome_codes codes,
                               unsigned char *out)
{
    for (qx_long i = 0; i < count; ++i)
        out[i] = outcome_of<has_null>(data[i], test, null_value, codes);
}

#if SKOKLANA_HAVE_AVX2_FORM

// 0, 1, 2 or 3 for each of the values that fill a vector, as wide as the values.
template <bool has_null, typename T, typename Test>
TARGET_AVX2 FORCE_INLINE __m256i outcome_numbers(const T *values, const Test &test, T null_value)
{
    typedef T vector __attribute__((vector_size(32)));
    vector v;
    memcpy(&v, values, sizeof v);
    auto numbers = test.each(v) & 1;
    if (has_null) numbers |= (v == null_value) & 2;
    return reinterpret_cast<__m256i>(numbers);
}

// The same for 32 values, a byte each. Packing works within the two halves of a vector, so that the parts
// come out interleaved: the permutations at the end put them in order.
template <bool has_null, typename T, typename Test>
TARGET_AVX2 FORCE_INLINE __m256i outcome_bytes(const T *values, const Test &test, T null_value)
{
    constexpr int lanes = 32 / sizeof(T);
    __m256i part[sizeof(T)];
    for (size_t i = 0; i < sizeof(T); ++i)
        part[i] = outcome_numbers<has_null>(values + i * lanes, test, null_value);
    if constexpr (sizeof(T) == 8)
        for (int i = 0; i < 4; ++i)
            part[i] = _mm256_packs_epi32(part[2 * i], part[2 * i + 1]);
    if constexpr (sizeof(T) >= 4)
        for (int i = 0; i < 2; ++i)
            part[i] = _mm256_packs_epi32(part[2 * i], part[2 * i + 1]);
    if constexpr (sizeof(T) >= 2) part[0] = _mm256_packs_epi16(part[0], part[1]);

    if constexpr (sizeof(T) == 2) return _mm256_permute4x64_epi64(part[0], 0xd8);
    if constexpr (sizeof(T) == 4)
        return _mm256_permutevar8x32_epi32(part[0], _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    if constexpr (sizeof(T) == 8) {
        const __m256i pairs =
            _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15));
        return _mm256_shuffle_epi8(_mm256_permute4x64_epi64(part[0], 0xd8), pairs);
    }
    return part[0];
}

// The codes of 32 values; table holds the code of each outcome number, twice.
template <bool has_null, typename T, typename Test>
TARGET_AVX2 FORCE_INLINE void store_codes(const T *values, const Test &test, T null_value, __m256i table,
                                          unsigned char *out)
{
    const __m256i numbers = outcome_bytes<has_null>(values, test, null_value);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), _mm256_shuffle_epi8(table, numbers));
}

template <bool has_null, typename T, typename Test>
TARGET_AVX2 KEPT_APART void classify_wide(const T *data, qx_long count, Test test, T null_value,
                                          outcome_codes codes, unsigned char *out)
{
    const unsigned char by_number[16] = {codes.fails, codes.passes, codes.null, codes.null};
    const __m256i table =
        _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(by_number)));
    qx_long i = 0;
    for (; i + 32 <= count; i += 32)
        store_codes<has_null>(data + i, test, null_value, table, out + i);
    if (i < count) {
        const size_t rest = static_cast<size_t>(count - i);
        T values[32] = {};
        unsigned char rest_codes[32];
        memcpy(values, data + i, rest * sizeof(T));
        store_codes<has_null>(values, test, null_value, table, rest_codes);
        memcpy(out + i, rest_codes, rest);
    }
}

#endif

template <bool has_null, typename T, typename Test>
void classify_chosen(const T *data, qx_long count, const Test &test, T null_value, outcome_codes codes,
                     unsigned char *out)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (have_avx2()) return classify_wide<has_null>(data, count, test, null_value, codes, out);
#endif
    classify_plain<has_null>(data, count, test, null_value, codes, out);
}

// A code for each of count values. With has_null set, a value that equals null_value is null whatever the
// test says of it.
template <typename T, typename Test>
void classify(const T *data, qx_long count, const Test &test, bool has_null, T null_value,
              outcome_codes codes, unsigned char *out)
{
    if (has_null)
        classify_chosen<true>(data, count, test, null_value, codes, out);
    else
        classify_chosen<false>(data, count, test, null_value, codes, out);
}
