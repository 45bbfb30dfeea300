// The embedded host includes this header too.
//
// What gradient, curl and divergence differ in: one table for cell sets and lattices, for a cell and for whole
// meshes.
//
// An operator turns the derivatives at a place, d(axis, component), into a row of output. On a surface cell
// there are derivatives along two tangents only, and each operator makes of them what it promises.
#pragma once

#include "simd.hpp"

struct grad_operator {
    static constexpr const char *name = "UTILgrad";
    static constexpr const char *wrong_cell = "no grad function for cell_ndim=1";
    static constexpr const char *wrong_veclen = "veclen must be 1";
    static constexpr const char *wrong_ndim = "no grad function for ndim=1";
    static constexpr int ncomp = 1, out_veclen = 3, least_ndim = 2;
    // A place without derivatives gives a row of 0; with false, the row of the place before it.
    static constexpr bool zero_on_failure = true;

    static constexpr bool takes_on_cells(int veclen) { return veclen <= 1; }
    static constexpr bool takes_on_lattice(int veclen) { return veclen <= 1; }
    // Whether a cell's data is read as rows of one, whatever the caller says.
    static constexpr bool scalar_in_solids = true, scalar_on_surfaces = true;

    template <typename Value, typename Derivatives>
    static FORCE_INLINE void combine(const Derivatives &d, Value *row)
    {
        row[0] = d(0, 0);
        row[1] = d(1, 0);
        row[2] = d(2, 0);
    }
};

struct curl_operator {
    static constexpr const char *name = "UTILcurl";
    static constexpr const char *wrong_cell = "no curl function for cell_ndim=1";
    static constexpr const char *wrong_veclen = "veclen must be 3";
    static constexpr const char *wrong_ndim = "no curl function for ndim=2";
    static constexpr int ncomp = 3, out_veclen = 3, least_ndim = 3;
    static constexpr bool zero_on_failure = false;

    static constexpr bool takes_on_cells(int veclen) { return veclen >= 2; }
    static constexpr bool takes_on_lattice(int veclen) { return veclen == 3; }
    static constexpr bool scalar_in_solids = false, scalar_on_surfaces = false;

    template <typename Value, typename Derivatives>
    static FORCE_INLINE void combine(const Derivatives &d, Value *row)
    {
        row[0] = d(1, 2) - d(2, 1);
        row[1] = d(2, 0) - d(0, 2);
        row[2] = d(0, 1) - d(1, 0);
    }
};

struct div_operator {
    static constexpr const char *name = "UTILdiv";
    static constexpr const char *wrong_cell = "no div function for cell_ndim=1";
    static constexpr const char *wrong_veclen = "veclen must be 3";
    static constexpr const char *wrong_ndim = "no div function for ndim=2";
    static constexpr int ncomp = 3, out_veclen = 1, least_ndim = 3;
    static constexpr bool zero_on_failure = false;

    static constexpr bool takes_on_cells(int veclen) { return veclen >= 2; }
    static constexpr bool takes_on_lattice(int veclen) { return veclen == 3; }
    static constexpr bool scalar_in_solids = false, scalar_on_surfaces = true; // callers hold this to be so

    template <typename Value, typename Derivatives>
    static FORCE_INLINE void combine(const Derivatives &d, Value *row)
    {
        row[0] = d(0, 0) + d(1, 1) + d(2, 2);
    }
};
