// Sampling: what the operations that take data at points have in common.
//
// The bodies here work on a range of points and make no status calls, so that an operation can check between
// two ranges for interruption, and threads can share the points. Each point's rows are written once, with the
// sampled data or with the null value of its component; nothing else is written but flags of the caller.
#pragma once

#include "cell_set.hpp"
#include "cell_val.hpp"
#include "dtype.hpp"
#include "locator.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

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

// Row i of all components from located cells.
template <typename T> class node_rows_writer {
  public:
    // values: room for the longest row. flags: ncomp entries, raised where a component gets a null row.
    node_rows_writer(mesh_info *mesh_, const node_fields &fields_, float *values_, int *flags_)
        : mesh(mesh_), fields(fields_), values(values_), flags(flags_), cells(mesh_)
    {
    }

    void write(qx_long i, const located &at)
    {
        cell_view room;
        valued_cell cell = {};
        const bool is_seen = cells.look_up(at.cell, &room, &cell);
        for (int j = 0; j < fields.ncomp; ++j) {
            const int veclen = fields.veclens[j];
            const node_data of = {veclen, fields.data[j], fields.data_type, fields.null_flags[j],
                                  null_slot(fields.null_values, j)};
            T *row = row_of<T>(fields, j, i);
            float *sampled = values;
            if constexpr (std::is_same_v<T, float>) sampled = row;
            const int result =
                is_seen ? interpolate_in_cell<T>(cell, of, 1, at.uvw, sampled)
                        : mesh->methods->interp_data_func(mesh, at.cell, veclen, of.data, of.data_type,
                                                          of.null_flag, of.null_value, 1, at.uvw, sampled);
            if (result != 1) {
                write_null_row<T>(fields, j, i, flags);
                continue;
            }
            if constexpr (!std::is_same_v<T, float>)
                for (int c = 0; c < veclen; ++c)
                    row[c] = truncate_to<T>(sampled[c]);
        }
    }

    void write_null(qx_long i)
    {
        for (int j = 0; j < fields.ncomp; ++j)
            write_null_row<T>(fields, j, i, flags);
    }

    // Ask for what write reads, in two steps: the second one needs what the first one asks for.
    void ask_for_nodes(const located &at) const { cells.ask_for_nodes(at.cell); }
    void ask_for_data(const located &at)
    {
        cell_view room;
        valued_cell cell = {};
        if (!cells.look_up(at.cell, &room, &cell)) return;
        for (int j = 0; j < fields.ncomp; ++j) {
            if (fields.data[j] == nullptr) continue;
            for (int k = 0; k < cell.nnodes; ++k)
                __builtin_prefetch(static_cast<const T *>(fields.data[j]) +
                                   cell.nodes[k] * fields.veclens[j]);
        }
    }

  private:
    mesh_info *mesh;
    const node_fields &fields;
    float *values;
    int *flags;
    valued_cells cells;
};

// Samples node data at the points first to end - 1.
template <typename T>
void sample_nodes(located_points *points, qx_long first, qx_long end, node_rows_writer<T> *rows)
{
    constexpr qx_long ahead = 8; // points whose data is on its way
    for (qx_long i = first; i < end; ++i) {
        const located &at = points->at(i);
        if (const located *next = points->ahead(i + 2 * ahead)) rows->ask_for_nodes(*next);
        if (const located *next = points->ahead(i + ahead)) rows->ask_for_data(*next);
        if (at.found)
            rows->write(i, at);
        else
            rows->write_null(i);
    }
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
void sample_cells(const mesh_info *mesh, located_points *points, const cell_fields &fields, qx_long first,
                  qx_long end, int *flag)
{
    for (qx_long i = first; i < end; ++i)
        write_cell_row<T>(fields, mesh, points->at(i), i, flag);
}
