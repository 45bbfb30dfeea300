// The embedded host includes this header too.
//
// Finite differences on an axis of a lattice: between which nodes, and how they are rounded.
#pragma once

#include "simd.hpp"

#include <skoklana/types.h>

#include <type_traits>

// The nodes that are subtracted at a position, and by what their difference over the spacing is scaled.
struct stencil {
    qx_long low, high;
    float factor;
};

// On an axis of one node high lies beyond it: users of such axes get what is there in memory.
inline stencil stencil_at(qx_long position, qx_long n)
{
    if (position == 0) return {0, 1, 1.0f};
    if (position == n - 1) return {position - 1, position, 1.0f};
    return {position - 1, position + 1, 0.5f};
}

// Integers are subtracted in 32 bits, qx_long in 64, and wrap round.
template <typename T> FORCE_INLINE float scaled_difference(T high, T low, float scale)
{
    if constexpr (std::is_same_v<T, double>) {
        return static_cast<float>((high - low) * static_cast<double>(scale));
    } else if constexpr (std::is_same_v<T, float>) {
        return (high - low) * scale;
    } else {
        using whole = std::conditional_t<sizeof(T) == 8, qx_long, int>;
        using bits = std::make_unsigned_t<whole>;
        const bits difference = static_cast<bits>(high) - static_cast<bits>(low);
        return static_cast<float>(static_cast<whole>(difference)) * scale;
    }
}
