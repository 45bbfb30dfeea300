// Differential operators once more, slowly: one node, corner or cell at a time, with arithmetic of its own.
#pragma once

#include "dtype.hpp"

#include <skoklana/cell.h>
#include <skoklana/mesh.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace deriv_reference {

// ---- typed data ----------------------------------------------------------------------------------------------

struct array {
    int type;
    const void *data;
};

template <typename Body> auto with_elements(const array &a, Body body)
{
    return with_dtype_silent(
        a.type, [&](auto type) { return body(static_cast<const typename decltype(type)::type *>(a.data)); });
}

inline float as_float(const array &a, qx_long i)
{
    return with_elements(a, [i](const auto *data) { return static_cast<float>(data[i]); });
}

inline bool equals(const array &a, qx_long i, const void *value)
{
    return with_elements(a, [=](const auto *data) {
        auto v = data[i];
        memcpy(&v, value, sizeof v);
        return data[i] == v;
    });
}

inline float subtract(const double *data, qx_long high, qx_long low, float factor)
{
    return static_cast<float>((data[high] - data[low]) * static_cast<double>(factor));
}
inline float subtract(const float *data, qx_long high, qx_long low, float factor)
{
    return (data[high] - data[low]) * factor;
}
inline float subtract(const qx_long *data, qx_long high, qx_long low, float factor)
{
    const uint64_t d = static_cast<uint64_t>(data[high]) - static_cast<uint64_t>(data[low]);
    return static_cast<float>(static_cast<int64_t>(d)) * factor;
}
template <typename T> float subtract(const T *data, qx_long high, qx_long low, float factor)
{
    const uint32_t d = static_cast<uint32_t>(data[high]) - static_cast<uint32_t>(data[low]);
    return static_cast<float>(static_cast<int32_t>(d)) * factor;
}

inline float difference(const array &a, qx_long high, qx_long low, float factor)
{
    return with_elements(a, [=](const auto *data) { return subtract(data, high, low, factor); });
}

// ---- small matrices ------------------------------------------------------------------------------------------

using matrix = std::vector<float>; // row-major

inline matrix times(const matrix &a, const matrix &b, int rows, int inner, int cols)
{
    matrix out;
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) {
            float sum = 0;
            for (int k = 0; k < inner; ++k)
                sum += a[static_cast<size_t>(r * inner + k)] * b[static_cast<size_t>(k * cols + c)];
            out.push_back(sum);
        }
    return out;
}

inline matrix transposed(const matrix &m)
{
    return {m[0], m[3], m[6], m[1], m[4], m[7], m[2], m[5], m[8]};
}

// The determinant; the inverse in place where it is not 0.
inline float invert_3(matrix *matrix_)
{
    matrix &m = *matrix_;
    const matrix adjugate = {m[4] * m[8] - m[5] * m[7], m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
                             m[5] * m[6] - m[3] * m[8], m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
                             m[3] * m[7] - m[4] * m[6], m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]};
    const float det = m[0] * adjugate[0] + m[1] * adjugate[3] + m[2] * adjugate[6];
    if (det == 0) return 0;
    for (size_t i = 0; i < 9; ++i)
        m[i] = adjugate[i] * (1 / det);
    return det;
}

inline float invert_2(matrix *matrix_)
{
    matrix &m = *matrix_;
    const float det = m[0] * m[3] - m[1] * m[2];
    if (det == 0) return 0;
    m = {m[3] * (1 / det), -m[1] * (1 / det), -m[2] * (1 / det), m[0] * (1 / det)};
    return det;
}

inline matrix cross_of(const matrix &a, const matrix &b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

inline void make_unit(matrix *v)
{
    const float square = (*v)[0] * (*v)[0] + (*v)[1] * (*v)[1] + (*v)[2] * (*v)[2];
    const float len = static_cast<float>(std::sqrt(static_cast<double>(square)));
    if (len > 1e-5f)
        for (float &x : *v)
            x /= len;
}

// ---- at a point ----------------------------------------------------------------------------------------------

struct node_values {
    array of;
    int veclen;
    int null_flag;
    const void *null_value;
};

struct cell {
    std::vector<qx_long> nodes;
    matrix xyz; // rows of 3
    shape_deriv_func slopes;
};

inline bool gather(const cell &c, const node_values &values, matrix *out)
{
    if (c.slopes == nullptr || values.of.data == nullptr || values.veclen == 0) return false;
    if (values.of.type < 0 || values.of.type > 6) return false;
    for (qx_long node : c.nodes) {
        if (values.null_flag != 0 && equals(values.of, node * values.veclen, values.null_value)) return false;
        for (int k = 0; k < values.veclen; ++k)
            out->push_back(as_float(values.of, node * values.veclen + k));
    }
    return true;
}

// 3 rows of veclen; empty: none.
inline matrix at_solid_point(const cell &c, const node_values &values, const float *uvw)
{
    matrix data, slopes(256);
    if (!gather(c, values, &data)) return {};
    const int n = static_cast<int>(c.nodes.size());
    c.slopes(uvw, slopes.data());
    matrix jacobian = times(slopes, c.xyz, 3, n, 3);
    if (invert_3(&jacobian) == 0) return {};
    return times(times(jacobian, slopes, 3, 3, n), data, 3, n, values.veclen);
}

// 2 rows of veclen.
inline matrix at_surface_point(const cell &c, const node_values &values, const float *uvw, matrix *frame)
{
    matrix data, slopes(256);
    if (!gather(c, values, &data)) return {};
    const int n = static_cast<int>(c.nodes.size());
    c.slopes(uvw, slopes.data());
    const matrix tangents = times(slopes, c.xyz, 2, n, 3);
    matrix e1(tangents.begin(), tangents.begin() + 3);
    make_unit(&e1);
    matrix normal = cross_of(e1, {tangents[3], tangents[4], tangents[5]});
    make_unit(&normal);
    const matrix m = cross_of(normal, e1);
    *frame = {e1[0], m[0], normal[0], e1[1], m[1], normal[1], e1[2], m[2], normal[2]};
    const matrix block = times(slopes, times(c.xyz, *frame, n, 3, 3), 2, n, 3);
    matrix inverse = {block[0], block[1], block[3], block[4]};
    if (invert_2(&inverse) == 0) return {};
    const matrix along = times(inverse, slopes, 2, 2, n);
    if (values.veclen == 1) return times(along, data, 2, n, 1);
    matrix padded = *frame, turned(data.size());
    padded.resize(std::max(data.size(), size_t{9}));
    const matrix first = times(data, padded, 1, n, values.veclen);
    std::copy(first.begin(), first.end(), turned.begin());
    return times(along, turned, 2, n, values.veclen);
}

enum operation { grad, curl, divergence };

inline int entries_of(operation op)
{
    return op == divergence ? 1 : 3;
}

// The rows of an operator at points of one cell.
inline std::vector<float> at_points(operation op, int cell_ndim, const cell &c, node_values values, int npts,
                                    const float *uvw)
{
    std::vector<float> out;
    matrix d(static_cast<size_t>(std::max(9, 3 * values.veclen)));
    if (op == grad || (op == divergence && cell_ndim == 2)) values.veclen = 1;
    for (int p = 0; p < npts; ++p, uvw += 3) {
        matrix frame;
        const matrix made =
            cell_ndim == 3 ? at_solid_point(c, values, uvw) : at_surface_point(c, values, uvw, &frame);
        std::copy(made.begin(), made.end(), d.begin());
        matrix row(static_cast<size_t>(entries_of(op)));
        if (cell_ndim == 3) {
            if (op == grad && !made.empty()) row = made;
            if (op == curl) row = {d[5] - d[7], d[6] - d[2], d[1] - d[3]};
            if (op == divergence) row = {d[4] + d[0] + d[8]};
        } else if (!made.empty()) {
            if (op == grad) row = times({d[0], d[1], 0}, transposed(frame), 1, 3, 3);
            if (op == curl) row = times({0, 0, d[1] - d[2]}, transposed(frame), 1, 3, 3);
            if (op == divergence) row = {d[3] + d[0]};
        }
        out.insert(out.end(), row.begin(), row.end());
    }
    return out;
}

// ---- over cell sets ------------------------------------------------------------------------------------------

inline cell cell_of_set(const mesh_info *mesh, int set, qx_long local, const std::vector<float> &coords)
{
    cell c;
    const int n = mesh->cell_nnodes[set];
    c.nodes.assign(mesh->cell_connect[set] + local * n, mesh->cell_connect[set] + (local + 1) * n);
    for (qx_long node : c.nodes)
        for (int d = 0; d < 3; ++d)
            c.xyz.push_back(d < mesh->nspace ? coords[static_cast<size_t>(node * mesh->nspace + d)] : 0.0f);
    c.slopes = reinterpret_cast<shape_deriv_func>(mesh->cell_funcs[set * 256 + 1]);
    return c;
}

inline void blank_around_null(const mesh_info *mesh, const node_values &values, int entries,
                              std::vector<float> *out)
{
    for (int set = 0; set < mesh->ncell_sets; ++set)
        for (qx_long c = 0; c < mesh->cell_count[set]; ++c) {
            const int n = mesh->cell_nnodes[set];
            const qx_long *nodes = mesh->cell_connect[set] + c * n;
            bool null = false;
            for (int k = 0; k < n; ++k)
                null = null || equals(values.of, nodes[k] * values.veclen, values.null_value);
            for (int k = 0; null && k < n; ++k)
                for (int e = 0; e < entries; ++e)
                    (*out)[static_cast<size_t>(nodes[k] * entries + e)] = 0;
        }
}

// Sums of the first ncells cells of the mesh; all of them: the means, with the null pass.
inline std::vector<float> over_cells(operation op, const mesh_info *mesh, const std::vector<float> &coords,
                                     const node_values &values, qx_long ncells = -1)
{
    const int entries = entries_of(op);
    std::vector<float> out(static_cast<size_t>(mesh->nnodes * entries));
    std::vector<int> counts(static_cast<size_t>(mesh->nnodes));
    node_values read = values;
    if (op == grad) read.veclen = 1;
    qx_long seen = 0;
    for (int set = 0; set < mesh->ncell_sets; ++set)
        for (qx_long c = 0; c < mesh->cell_count[set] && seen != ncells; ++c, ++seen) {
            const cell from = cell_of_set(mesh, set, c, coords);
            const int n = mesh->cell_nnodes[set];
            const std::vector<float> rows =
                at_points(op, mesh->cell_ndim[set], from, read, n, mesh->cell_aux[set]);
            for (int k = 0; k < n; ++k) {
                const qx_long node = from.nodes[static_cast<size_t>(k)];
                ++counts[static_cast<size_t>(node)];
                for (int e = 0; e < entries; ++e)
                    out[static_cast<size_t>(node * entries + e)] +=
                        rows[static_cast<size_t>(k * entries + e)];
            }
        }
    if (ncells >= 0) return out;
    for (size_t i = 0; i < out.size(); ++i)
        out[i] /= static_cast<float>(counts[i / static_cast<size_t>(entries)]);
    if (values.null_flag != 0) blank_around_null(mesh, values, entries, &out);
    return out;
}

// ---- on lattices ---------------------------------------------------------------------------------------------

enum lattice_kind { curved, uniform, rectilinear };

struct lattice {
    lattice_kind kind;
    std::vector<qx_long> dims; // 2 or 3
    int stride;                // floats a row of coords or points
    std::vector<float> places; // coords or points
};

struct stencil {
    qx_long low, high;
    float factor;
};

inline stencil stencil_at(qx_long p, qx_long n)
{
    if (p == 0) return {0, 1, 1.0f};
    if (p == n - 1) return {p - 1, p, 1.0f};
    return {p - 1, p + 1, 0.5f};
}

inline bool is_refused(const lattice &l)
{
    if (l.kind != uniform) return false;
    for (size_t a = 0; a < l.dims.size(); ++a)
        if (l.dims[a] < 2 || l.places[a] == l.places[static_cast<size_t>(l.stride) + a]) return true;
    return false;
}

// One node: its place on each axis. False where a stencil leaves the arrays; nothing is promised there.
inline bool at_node(operation op, const lattice &l, const array &data, const std::vector<qx_long> &at,
                    float *row)
{
    const size_t ndim = l.dims.size();
    const int ncomp = op == grad ? 1 : 3;
    qx_long steps[3] = {1, l.dims[0], ndim > 2 ? l.dims[0] * l.dims[1] : 0}, node = 0, nnodes = 1, nrows = 0;
    for (size_t a = 0; a < ndim; ++a) {
        node += at[a] * steps[a];
        nnodes *= l.dims[a];
        nrows += l.dims[a];
    }
    float d[3][3] = {}, x[3][3] = {}; // [axis][component]
    qx_long offset = 0;
    for (size_t a = 0; a < ndim; ++a) {
        const stencil s = stencil_at(at[a], l.dims[a]);
        const qx_long low = node + (s.low - at[a]) * steps[a], high = node + (s.high - at[a]) * steps[a];
        if (high >= nnodes) return false;
        float scale = s.factor;
        const auto place = [&](qx_long index, size_t component) {
            return l.places[static_cast<size_t>(index * l.stride) + component];
        };
        if (l.kind == uniform) {
            const float h = (place(1, a) - place(0, a)) / static_cast<float>(l.dims[a] - 1);
            const float r = static_cast<float>(1.0 / h);
            scale = s.factor == 1.0f ? r : r * 0.5f;
        } else if (l.kind == rectilinear) {
            if (offset + s.high >= nrows) return false;
            float width = place(offset + s.high, a) - place(offset + s.low, a);
            if (a == 0 && at[0] != 0 && at[0] == l.dims[0] - 1)
                width = place(l.dims[0] - 1, 0) - place(l.dims[0] - 2, 1);
            scale = ndim == 2 ? width : static_cast<float>(1.0 / width);
        } else {
            for (size_t c = 0; c < (ndim == 2 ? 2 : 3); ++c)
                x[a][c] = (place(high, c) - place(low, c)) * s.factor;
        }
        for (int c = 0; c < ncomp; ++c)
            d[a][c] = difference(data, high * ncomp + c, low * ncomp + c, scale);
        offset += l.dims[a];
    }
    if (l.kind == curved && ndim == 2) {
        const float det = x[0][0] * x[1][1] - x[0][1] * x[1][0];
        const float inverse = det != 0 ? static_cast<float>(1.0 / det) : 0.0f;
        row[0] = inverse * (x[1][1] * d[0][0] - x[0][1] * d[1][0]);
        row[1] = inverse * (x[0][0] * d[1][0] - x[1][0] * d[0][0]);
        row[2] = 0;
        return true;
    }
    if (l.kind == curved) {
        const matrix i = {x[0][0], x[0][1], x[0][2]}, j = {x[1][0], x[1][1], x[1][2]},
                     k = {x[2][0], x[2][1], x[2][2]};
        const matrix metric[3] = {cross_of(j, k), cross_of(k, i), cross_of(i, j)};
        const float det = i[0] * metric[0][0] + i[1] * metric[0][1] + i[2] * metric[0][2];
        const float factor = det != 0 ? static_cast<float>(1.0 / det) : 0.0f;
        float made[3][3] = {};
        for (size_t axis = 0; axis < 3; ++axis)
            for (int c = 0; c < ncomp; ++c)
                made[axis][c] = d[0][c] * (metric[0][axis] * factor) + d[1][c] * (metric[1][axis] * factor) +
                                d[2][c] * (metric[2][axis] * factor);
        memcpy(d, made, sizeof d);
    }
    if (op == grad)
        for (int a = 0; a < 3; ++a)
            row[a] = d[a][0];
    if (op == curl) {
        row[0] = d[1][2] - d[2][1];
        row[1] = d[2][0] - d[0][2];
        row[2] = d[0][1] - d[1][0];
    }
    if (op == divergence) row[0] = d[0][0] + d[1][1] + d[2][2];
    return true;
}

} // namespace deriv_reference
