// A bound, level or fill value that a caller gave in double, in the type of the elements it applies to.
#pragma once

#include <skoklana/types.h>

#include <limits>
#include <type_traits>

// Integers: the value is truncated to 32 bits and from there to the type, keeping the low bits; to 64 bits
// for qx_long. What does not fit in so many bits becomes the type's own limit, so that a bound beyond all
// data stays one; NaN becomes 0. Floats are rounded, to infinity where they are too large.
template <typename T> T narrow(double value)
{
    static_assert(std::numeric_limits<float>::is_iec559, "conversion to float must round to infinity");
    if constexpr (std::is_integral_v<T>) {
        using wide = std::conditional_t<sizeof(T) == 8, qx_long, int>;
        constexpr double top = -static_cast<double>(std::numeric_limits<wide>::min()); // a power of two
        if (value >= top) return std::numeric_limits<T>::max();
        if (value <= -top - 1) return std::numeric_limits<T>::min(); // 64 bits: -top - 1 is -top
        return value == value ? static_cast<T>(static_cast<wide>(value)) : T{0};
    } else {
        return static_cast<T>(value);
    }
}
