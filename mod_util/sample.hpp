// Sampling: what the operations that take data at points have in common.
//
// The bodies here work on a range of points and make no status calls, so that an operation can check between
// two ranges for interruption, and threads can share the points. Each point's rows are written once, with the
// sampled data or with the null value of its component; nothing else is written but flags of the caller.
#pragma once

#include "cell_set.hpp"
#include "dtype.hpp"
#include "locator.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

// Points as an operation is given them: rows of nspace floats, and the matrix that takes them into the space of
// the mesh, or null.
struct sample_points {
    const float *points;
    int nspace;
    const float *xform;

    // Row i as it stands, with zeros beyond nspace.
    void read(qx_long i, float *point) const
    {
        for (int d = 0; d < 3; ++d)
            point[d] = d < nspace ? points[i * nspace + d] : 0;
    }

    // Row i in the space of the mesh.
    void place(qx_long i, float *point) const
    {
        read(i, point);
        if (xform != nullptr) MATvec3_mat4_multiply(point, xform);
    }
};

// Calls take(i, place) for each of the points first to end - 1, located.
template <typename Take>
void locate_range(point_locator *locator, const sample_points &points, qx_long first, qx_long end, Take take)
{
    float places[point_locator::most_points][3];
    located found[point_locator::most_points];
    while (first < end) {
        const int n = static_cast<int>(std::min<qx_long>(locator->batch(), end - first));
        for (int k = 0; k < n; ++k)
            points.place(first + k, places[k]);
        locator->locate(n, places, found);
        for (int k = 0; k < n; ++k)
            take(first + k, found[k]);
        first += n;
    }
}

// ---- values ------------------------------------------------------------------------------------------------

// The value one above, wrapping round at the end of an integer type.
template <typename T> T one_above(T value)
{
    if constexpr (std::is_floating_point_v<T>) {
        return value + 1;
    } else {
        using bits = std::make_unsigned_t<T>;
        return static_cast<T>(static_cast<bits>(static_cast<bits>(value) + 1));
    }
}

// Null values stand in slots of 8 bytes, one a component, each at the start of its slot.
constexpr int null_slot_bytes = 8;

inline void *null_slot(void *null_values, int component)
{
    return static_cast<char *>(null_values) + static_cast<qx_long>(component) * null_slot_bytes;
}

template <typename T> T null_in_slot(void *null_values, int component)
{
    return null_value_of<T>(1, null_slot(null_values, component));
}

template <typename T> void put_null_in_slot(void *null_values, int component, T null)
{
    memcpy(null_slot(null_values, component), &null, sizeof null);
}

// The null value of a component that has none of its own: one above the largest value for a scalar, 0 for a
// vector.
template <typename T> T null_for_range(int veclen, const void *max_values, int component)
{
    return veclen < 2 ? one_above(static_cast<const T *>(max_values)[component]) : T{0};
}

// ---- node data ---------------------------------------------------------------------------------------------

// ncomp components of one type, each with its rows of data, its row length, null value and output rows.
struct node_fields {
    int ncomp;
    int data_type;
    const int *veclens;
    void *const *data;
    const int *null_flags; // as the caller gave them: they say which data may hold null
    void *null_values;
    void *const *out;

    int longest_row() const
    {
        return ncomp > 0 ? std::max(0, *std::max_element(veclens, veclens + ncomp)) : 0;
    }
};

template <typename T> T *row_of(const node_fields &fields, int component, qx_long i)
{
    return static_cast<T *>(fields.out[component]) + i * fields.veclens[component];
}

// The null value in row i of one component, whose flag says so.
template <typename T> void write_null_row(const node_fields &fields, int component, qx_long i, int *flags)
{
    std::fill_n(row_of<T>(fields, component, i), fields.veclens[component],
                null_in_slot<T>(fields.null_values, component));
    flags[component] = 1;
}

// Row i of one component from a located cell. values: room for the longest row.
template <typename T>
void write_node_row(const node_fields &fields, mesh_info *mesh, const located &at, int component, qx_long i,
                    int *flags, float *values)
{
    const int veclen = fields.veclens[component];
    T *row = row_of<T>(fields, component, i);
    float *sampled = values;
    if constexpr (std::is_same_v<T, float>) sampled = row;
    const int result = mesh->methods->interp_data_func(
        mesh, at.cell, veclen, fields.data[component], fields.data_type, fields.null_flags[component],
        null_slot(fields.null_values, component), 1, at.uvw, sampled);
    if (result != 1) {
        write_null_row<T>(fields, component, i, flags);
        return;
    }
    if constexpr (!std::is_same_v<T, float>)
        for (int c = 0; c < veclen; ++c)
            row[c] = truncate_to<T>(sampled[c]);
}

// Samples node data at the points first to end - 1. flags: ncomp entries, raised where a component gets a null
// row.
template <typename T>
void sample_nodes(mesh_info *mesh, point_locator *locator, const sample_points &points,
                  const node_fields &fields, qx_long first, qx_long end, int *flags, float *values)
{
    locate_range(locator, points, first, end, [&](qx_long i, const located &at) {
        for (int j = 0; j < fields.ncomp; ++j) {
            if (at.found)
                write_node_row<T>(fields, mesh, at, j, i, flags, values);
            else
                write_null_row<T>(fields, j, i, flags);
        }
    });
}

// ---- cell data ---------------------------------------------------------------------------------------------

// One array of rows for each cell set that has one.
struct cell_fields {
    const int *set_map; // by set: the index of its array; negative: none
    int veclen;
    void *const *data;
    void *null_value;
    void *out;
};

// Row i from a located cell, as it stands; the null value where the cell has no row.
template <typename T>
void write_cell_row(const cell_fields &fields, const mesh_info *mesh, const located &at, qx_long i, int *flag)
{
    T *row = static_cast<T *>(fields.out) + i * fields.veclen;
    const cell_place place = at.found ? find_set(mesh, at.cell) : cell_place();
    const int array = is_cell(place) ? fields.set_map[place.set] : -1;
    if (array < 0) {
        std::fill_n(row, fields.veclen, null_in_slot<T>(fields.null_value, 0));
        *flag = 1;
        return;
    }
    std::copy_n(static_cast<const T *>(fields.data[array]) + place.local * fields.veclen, fields.veclen, row);
}

// Samples cell data at the points first to end - 1.
template <typename T>
void sample_cells(mesh_info *mesh, point_locator *locator, const sample_points &points,
                  const cell_fields &fields, qx_long first, qx_long end, int *flag)
{
    locate_range(locator, points, first, end,
                 [&](qx_long i, const located &at) { write_cell_row<T>(fields, mesh, at, i, flag); });
}
