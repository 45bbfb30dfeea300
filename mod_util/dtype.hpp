// Element types in operations: the type switch with the library's report, null values, and computed values as
// elements.
#pragma once

#include "report.hpp"
#include "type_switch.hpp"

#include <cstring>
#include <limits>
#include <type_traits>

// with_dtype_or for an operation that reports "unknown data type" under its own name and gives 0.
template <typename Body>
auto with_dtype(int code, const char *operation, Body body) -> decltype(body(of_type<signed char>{}))
{
    return with_dtype_or(
        code,
        [=] {
            report_error(operation, "unknown data type");
            return decltype(body(of_type<signed char>{})){0};
        },
        body);
}

// The null value of a typed operation; 0, and the pointer not read, where null_flag is 0.
template <typename T> T null_value_of(int null_flag, const void *null_value)
{
    T value = 0;
    if (null_flag != 0) memcpy(&value, null_value, sizeof value);
    return value;
}

// A computed value as an element: kept as it is for the real types, truncated towards zero for the integer
// ones. The narrow types take the low bits of 32. Beyond 32 bits, or 64 for qx_long, a value becomes the end of
// the element's range, so that a bound beyond all data stays one; NaN the lower end.
template <typename T, typename Real> T truncate_to(Real value)
{
    if constexpr (std::is_integral_v<T>) {
        using whole = std::conditional_t<sizeof(T) == 8, qx_long, int>;
        constexpr Real beyond = -static_cast<Real>(std::numeric_limits<whole>::min());
        // Fractions below the least whole number are truncated up to it, where Real has any.
        constexpr bool has_fractions = -beyond - 1 != -beyond;
        const bool reaches_least = has_fractions ? value > -beyond - 1 : value >= -beyond;
        if (reaches_least && value < beyond) return static_cast<T>(static_cast<whole>(value));
        return value >= beyond ? std::numeric_limits<T>::max() : std::numeric_limits<T>::min();
    } else {
        return static_cast<T>(value);
    }
}
