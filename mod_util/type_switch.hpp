// The embedded host includes this header too.
//
// The seven element types: one list, one switch.
//
// Typed kernels are templates over the element type. FOR_EACH_DTYPE stamps out what must exist once a
// type, such as exported names; with_dtype_or turns a run-time type code into the C type, once, before any
// loop. No other place switches on a type code.
#pragma once

#include <skoklana/types.h>

#define FOR_EACH_DTYPE(X)              \
    X(DTYPE_CHAR, signed char, char)   \
    X(DTYPE_BYTE, unsigned char, byte) \
    X(DTYPE_SHORT, short, short)       \
    X(DTYPE_INT, int, int)             \
    X(DTYPE_FLOAT, float, float)       \
    X(DTYPE_DOUBLE, double, double)    \
    X(DTYPE_QX_LONG, qx_long, qx_long)

template <typename T> struct of_type {
    using type = T;
};

// Calls body(of_type<T>{}) with the type of the code; unknown() stands in for a code that is none.
template <typename Body, typename Unknown>
auto with_dtype_or(int code, Unknown unknown, Body body) -> decltype(body(of_type<signed char>{}))
{
    switch (code) {
#define ONE_TYPE(type_code, T, suffix) \
    case type_code: return body(of_type<T>{});
        FOR_EACH_DTYPE(ONE_TYPE)
#undef ONE_TYPE
    default: return unknown();
    }
}

// The same for an operation that gives 0 without a word.
template <typename Body> auto with_dtype_silent(int code, Body body) -> decltype(body(of_type<signed char>{}))
{
    return with_dtype_or(
        code, [] { return decltype(body(of_type<signed char>{})){0}; }, body);
}
