// Typed arrays for tests of kernels: the seven types, values and levels at which kernels go wrong, buffers
// that end where their last element ends.
#pragma once

#include <skoklana/types.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace arrays {

using all_types = testing::Types<signed char, unsigned char, short, int, float, double, qx_long>;

template <typename T> constexpr int dtype_of = -1;
template <> inline constexpr int dtype_of<signed char> = DTYPE_CHAR;
template <> inline constexpr int dtype_of<unsigned char> = DTYPE_BYTE;
template <> inline constexpr int dtype_of<short> = DTYPE_SHORT;
template <> inline constexpr int dtype_of<int> = DTYPE_INT;
template <> inline constexpr int dtype_of<float> = DTYPE_FLOAT;
template <> inline constexpr int dtype_of<double> = DTYPE_DOUBLE;
template <> inline constexpr int dtype_of<qx_long> = DTYPE_QX_LONG;

// Every count to beyond twice the width of a vector of bytes, and some that end inside a later block.
inline std::vector<qx_long> counts()
{
    std::vector<qx_long> all;
    for (qx_long count = 0; count <= 70; ++count)
        all.push_back(count);
    for (qx_long count : {511, 512, 513, 2047, 2048, 2049, 5000})
        all.push_back(count);
    return all;
}

// Values of a type where comparisons and conversions turn: its limits, zeros of both signs, NaN, infinities,
// neighbours of powers of two.
template <typename T> std::vector<T> edge_values()
{
    using limits = std::numeric_limits<T>;
    std::vector<T> values = {
        limits::lowest(), limits::max(), T(limits::max() - 1), T(0), T(1), T(2), T(3), T(100)};
    if constexpr (limits::is_integer) {
        values.push_back(T(limits::lowest() + 1));
        if constexpr (sizeof(T) == 8)
            for (int power : {24, 31, 32, 52, 53, 54, 62})
                for (int by : {-3, -2, -1, 0, 1, 2, 3}) {
                    values.push_back((T(1) << power) + by);
                    values.push_back(-(T(1) << power) + by);
                }
    } else {
        for (T value :
             {limits::quiet_NaN(), limits::infinity(), -limits::infinity(), T(-0.0), limits::denorm_min(),
              -limits::denorm_min(), limits::min(), T(0.1), T(16777216), T(16777218), T(-2.5)})
            values.push_back(value);
    }
    if constexpr (limits::is_signed) values.push_back(T(-1));
    return values;
}

// Levels against which values of any type are compared.
inline std::vector<double> edge_levels()
{
    std::vector<double> levels = {0.0,
                                  -0.0,
                                  0.5,
                                  -0.5,
                                  1,
                                  2,
                                  2.5,
                                  3,
                                  99.999,
                                  0.1,
                                  1e300,
                                  -1e300,
                                  1e-320,
                                  std::numeric_limits<double>::infinity(),
                                  -std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<float>::max()};
    for (double limit : {127.0, 128.0, 255.0, 256.0, 32767.0, 32768.0, 2147483647.0, 2147483648.0, 16777217.0,
                         9007199254740991.0, 9007199254740992.0, 9007199254740994.0, 4611686018427387904.0,
                         9223372036854775808.0, 9223372036854774784.0, 1.8446744073709552e19})
        for (double shift : {-0.5, 0.0, 0.5})
            for (double sign : {-1.0, 1.0})
                levels.push_back(sign * limit + shift);
    return levels;
}

// count values, many of them small and so often equal, some at the edges, about one in six equal to null_value.
template <typename T> std::vector<T> mixed_values(uint64_t seed, qx_long count, T null_value)
{
    std::mt19937_64 random(seed);
    const std::vector<T> edges = edge_values<T>();
    std::vector<T> values;
    for (qx_long i = 0; i < count; ++i) {
        const uint64_t kind = random() % 6;
        if (kind == 0)
            values.push_back(null_value);
        else if (kind == 1)
            values.push_back(edges[random() % edges.size()]);
        else
            values.push_back(T(random() % 6));
    }
    return values;
}

// A bound as an element, by its definition: the whole part of the real number, then the low
// bits of the 32-bit or 64-bit integer. Bounds beyond those integers are beyond every element.
template <typename T> T slow_bound(double bound)
{
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(bound);
    } else {
        const double end = sizeof(T) == 8 ? 9223372036854775808.0 : 2147483648.0;
        if (bound >= end) return std::numeric_limits<T>::max();
        if (std::trunc(bound) < -end) return std::numeric_limits<T>::min();
        return static_cast<T>(static_cast<qx_long>(bound));
    }
}

// The same bytes: NaN is itself, and zeros of different sign differ.
template <typename T> bool same_bytes(const std::vector<T> &a, const std::vector<T> &b)
{
    return a.size() == b.size() && (a.empty() || memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

} // namespace arrays
