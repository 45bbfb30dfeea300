// Gradient, curl and divergence at every node of every mesh, right for linear fields.
//
// The library's own forms are taken where they are that: on lattices of three axes and on flat ones in the x-y
// plane (rectilinear ones by the curvilinear form over the same nodes), and on sets of solid cells, and for the
// gradient of flat ones. Everything else goes cell by cell here, in double: at each node of a cell the tangents of
// the cell's map give the gradients of its own coordinates, by least squares on surfaces and curves, and the
// derivatives follow. A node gets the mean over the cells around it that have a derivative there. Cells with a null
// node take no part. Where cells of several dimensions meet, those of the highest count.
#include "cell_map.hpp"
#include "cells.hpp"
#include "lists.hpp"
#include "progress.hpp"
#include "registry.hpp"
#include "report.hpp"

#include "mod_util/deriv.hpp"
#include "mod_util/difference.hpp"
#include "mod_util/type_switch.hpp"

#include <skoklana_host.h>

#include <skoklana/host/tool.h>

#include <cstring>
#include <limits>

namespace {

constexpr qx_long cells_a_check = 4096;

enum class derivative { gradient, curl, divergence };

struct request {
    const char *call;
    derivative of;
    host_field *field;
    mesh_info *mesh;
    const host_array *values;
    float *out;
    unsigned char *mask; // may be null

    int row_length() const { return of == derivative::divergence ? 1 : 3; }
};

template <typename T> list_of<T> zeroed_list(qx_long count)
{
    return list_of<T>(allocate_zeroed<T>(count));
}

int no_memory(const request &asked)
{
    return host_fail("%s: no memory for %lld nodes", asked.call, static_cast<long long>(asked.mesh->nnodes));
}

// ---- by the library ------------------------------------------------------------------------------------------

using mesh_operator = decltype(mesh_methods::grad_func);

bool is_level(const host_field *field)
{
    if (field->nspace < 3 || field->kind != KIND_STRUCT) return true;
    for (qx_long node = 1; node < field->nnodes; ++node)
        if (field->coords[3 * node + 2] != field->coords[2]) return false;
    return true;
}

// The form whose results are right here; null: there is none.
mesh_operator right_form(const request &asked)
{
    const host_field *field = asked.field;
    const mesh_methods &methods = *asked.mesh->methods;
    const mesh_operator own = asked.of == derivative::gradient ? methods.grad_func
                              : asked.of == derivative::curl   ? methods.curl_func
                                                               : methods.div_func;
    const bool is_scalar = asked.of == derivative::gradient;
    if (asked.values->null != nullptr || asked.values->veclen != (is_scalar ? 1 : 3)) return nullptr;
    if (field->kind != KIND_CELLS) {
        if (field_cells(field).naxes != field->ndim || field->ndim < (is_scalar ? 2 : 3)) return nullptr;
        if (field->ndim == 2 && !is_level(field)) return nullptr;
        if (field->kind != KIND_RECT) return own;
        const char *curved = asked.of == derivative::gradient ? "grad_func_struct"
                             : asked.of == derivative::curl   ? "curl_func_struct"
                                                              : "div_func_struct";
        return reinterpret_cast<mesh_operator>(find_named_func(curved));
    }
    if (field->nsets == 0) return nullptr;
    const int ndim = cell_kinds[field->sets[0].kind].ndim;
    for (int s = 0; s < field->nsets; ++s)
        if (cell_kinds[field->sets[s].kind].ndim != ndim || field->sets[s].kind == CELL_PYR) return nullptr;
    return ndim == 3 || (ndim == 2 && is_scalar) ? own : nullptr;
}

// Nodes that no cell uses have NaN there already.
void mark_nodes_of_cells(const request &asked)
{
    if (asked.mask == nullptr) return;
    const host_field *field = asked.field;
    memset(asked.mask, field->kind == KIND_CELLS ? 0 : 1, static_cast<size_t>(field->nnodes));
    for (int s = 0; s < field->nsets; ++s) {
        const qx_long entries = field->sets[s].count * asked.mesh->cell_nnodes[s];
        for (qx_long i = 0; field->kind == KIND_CELLS && i < entries; ++i)
            asked.mask[field->sets[s].connect[i]] = 1;
    }
}

int derive_by_library(const request &asked, mesh_operator run)
{
    const operation_watch watch;
    const int done =
        run(asked.mesh, asked.values->data, asked.values->veclen, asked.values->type, 0, nullptr, asked.out);
    if (done != 1 || watch.was_stopped()) return watch.failed(asked.call);
    mark_nodes_of_cells(asked);
    return HOST_DONE;
}

// ---- parts of uniform meshes ---------------------------------------------------------------------------------

// As the library differences the whole: by its step. At the part's own ends the nodes there are differenced.
template <typename Operator, typename T> int derive_rows(const request &asked, const float *scales)
{
    constexpr int ncomp = Operator::ncomp, length = Operator::out_veclen;
    constexpr qx_long rows_a_check = 1024;
    const qx_long *n = asked.field->dims;
    const int ndim = asked.field->ndim;
    const qx_long nrows = n[1] * n[2];
    const T *data = static_cast<const T *>(asked.values->data);
    for (qx_long row = 0; row < nrows; ++row) {
        if (row % rows_a_check == 0 && is_stopped(row, nrows, "derivatives")) return HOST_STOPPED;
        const qx_long at[3] = {0, row % n[1], row / n[1]}, step[3] = {1, n[0], n[0] * n[1]};
        qx_long up[3] = {}, down[3] = {};
        float scale[3] = {};
        const auto look_at = [&](int axis, qx_long position) {
            const stencil s = stencil_at(position, n[axis]);
            up[axis] = (s.high - position) * step[axis] * ncomp;
            down[axis] = (s.low - position) * step[axis] * ncomp;
            scale[axis] = scales[axis] * s.factor;
        };
        for (int axis = 1; axis < ndim; ++axis)
            look_at(axis, at[axis]);
        const auto derive_nodes = [&](qx_long first, qx_long end) {
            look_at(0, first); // all of them are alike
            const T *values = data + (row * n[0] + first) * ncomp;
            float *out = asked.out + (row * n[0] + first) * length;
            for (qx_long i = first; i < end; ++i, values += ncomp, out += length) {
                const auto d = [&](int axis, int c) {
                    return axis < ndim
                               ? scaled_difference(values[up[axis] + c], values[down[axis] + c], scale[axis])
                               : 0.0f;
                };
                Operator::combine(d, out);
            }
        };
        derive_nodes(0, 1);
        derive_nodes(1, n[0] - 1);
        derive_nodes(n[0] - 1, n[0]);
    }
    return HOST_DONE;
}

// Whether a part has a derivative at each node by differences alone.
bool is_differenced_part(const request &asked)
{
    const host_field *field = asked.field;
    if (field->whole == nullptr) return false;
    for (int d = 0; d < field->ndim; ++d)
        if (field->whole->step[d] == 0) return false;
    return true;
}

int derive_part(const request &asked)
{
    float scales[3] = {};
    for (int d = 0; d < asked.field->ndim; ++d)
        scales[d] = 1.0f / asked.field->whole->step[d];
    const int done = with_dtype_silent(asked.values->type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        switch (asked.of) {
        case derivative::gradient: return derive_rows<grad_operator, T>(asked, scales);
        case derivative::curl: return derive_rows<curl_operator, T>(asked, scales);
        default: return derive_rows<div_operator, T>(asked, scales);
        }
    });
    if (done == HOST_DONE) mark_nodes_of_cells(asked);
    return done;
}

// ---- cell by cell --------------------------------------------------------------------------------------------

struct node_sums {
    list_of<double> rows;
    list_of<int> counts;
    list_of<unsigned char> ndim; // of the cells that a node has taken; 0: none
};

// The slopes of a kind's shape functions at its own nodes.
template <typename Shape> struct slopes_at_nodes {
    double at[Shape::nnodes][Shape::ndim * Shape::nnodes];

    slopes_at_nodes()
    {
        for (int k = 0; k < Shape::nnodes; ++k) {
            double u[3], unused[Shape::nnodes];
            for (int d = 0; d < 3; ++d)
                u[d] = cell_kinds[Shape::kind].position[k][d];
            Shape::at_chart(u, unused, at[k]);
        }
    }
};

void combine(derivative of, const vec3d *gradient, double *row)
{
    if (of == derivative::gradient)
        for (int d = 0; d < 3; ++d)
            row[d] = gradient[0][d];
    if (of == derivative::curl) {
        row[0] = gradient[2][1] - gradient[1][2];
        row[1] = gradient[0][2] - gradient[2][0];
        row[2] = gradient[1][0] - gradient[0][1];
    }
    if (of == derivative::divergence) row[0] = gradient[0][0] + gradient[1][1] + gradient[2][2];
}

// One cell: f holds its node values, a component after the other.
template <typename Shape>
void add_cell(const request &asked, const cell_view &cell, const vec3d *x, const double (*f)[most_cell_nodes],
              int ncomp, const node_sums &sums)
{
    static const slopes_at_nodes<Shape> slopes;
    constexpr int n = Shape::nnodes, ndim = Shape::ndim;
    for (int corner = 0; corner < n; ++corner) {
        const qx_long node = cell.nodes[corner];
        if (sums.ndim[node] != 0 && sums.ndim[node] != ndim) continue;
        const double *d = slopes.at[corner];
        vec3d tangent[ndim], along[ndim], gradient[3] = {};
        for (int axis = 0; axis < ndim; ++axis) {
            tangent[axis] = vec3d::of(0, 0, 0);
            for (int k = 0; k < n; ++k)
                tangent[axis] += d[axis * n + k] * x[k];
        }
        const double det = invert<ndim>(tangent, along);
        if (!(det != 0) || !std::isfinite(det)) continue;
        for (int c = 0; c < ncomp; ++c)
            for (int axis = 0; axis < ndim; ++axis) {
                double slope = 0;
                for (int k = 0; k < n; ++k)
                    slope += d[axis * n + k] * f[c][k];
                gradient[c] += slope * along[axis];
            }
        double row[3];
        combine(asked.of, gradient, row);
        for (int e = 0; e < asked.row_length(); ++e)
            sums.rows[node * asked.row_length() + e] += row[e];
        ++sums.counts[node];
        sums.ndim[node] = static_cast<unsigned char>(ndim);
    }
}

// The cell's values as differences from its first node's, so that no digits are lost to a large constant. False: a
// node is null.
template <typename T>
bool gather_values(const host_array &of, const cell_view &cell, int ncomp, double (*f)[most_cell_nodes])
{
    const T *data = static_cast<const T *>(of.data);
    T null = 0;
    if (of.null != nullptr) memcpy(&null, of.null, sizeof null);
    for (int k = 0; k < cell.nnodes; ++k) {
        const T *row = data + cell.nodes[k] * of.veclen;
        if (of.null != nullptr && row[0] == null) return false;
        for (int c = 0; c < ncomp; ++c)
            f[c][k] = static_cast<double>(row[c]) - static_cast<double>(data[cell.nodes[0] * of.veclen + c]);
    }
    return true;
}

void gather_places(const mesh_info *mesh, const cell_view &cell, vec3d *x)
{
    double first[3] = {}, at[3] = {};
    for (int k = 0; k < cell.nnodes; ++k) {
        for (int d = 0; d < mesh->nspace; ++d) {
            const double coord = mesh->coords[cell.nodes[k] * mesh->nspace + d];
            if (k == 0) first[d] = coord;
            at[d] = coord - first[d];
        }
        x[k] = vec3d::of(at[0], at[1], at[2]);
    }
}

template <typename T>
int add_cells_of_dimension(const request &asked, int ndim, const field_cells &cells, qx_long first,
                           qx_long end, const node_sums &sums)
{
    const int ncomp = std::min(asked.values->veclen, 3);
    for (qx_long c = first; c < end; ++c) {
        if (c % cells_a_check == 0 && is_stopped(c, cells.size(), "derivatives")) return HOST_STOPPED;
        cell_view cell;
        double f[3][most_cell_nodes];
        vec3d x[most_cell_nodes];
        cells.look_up(c, &cell);
        if (cell_kinds[cell.kind].ndim != ndim) return HOST_DONE;
        if (!gather_values<T>(*asked.values, cell, ncomp, f)) continue;
        gather_places(asked.mesh, cell, x);
        with_shape(cell.kind, cell.order, [&](auto shape) {
            add_cell<decltype(shape)>(asked, cell, x, f, ncomp, sums);
            return 0;
        });
    }
    return HOST_DONE;
}

template <typename T> int add_all_cells(const request &asked, const node_sums &sums)
{
    const field_cells cells(asked.field);
    for (int ndim = 3; ndim > 0; --ndim) {
        // Cells of a set are alike, and those of a lattice.
        const bool sets = asked.field->kind == KIND_CELLS;
        for (int s = 0; s < (sets ? asked.field->nsets : 1); ++s) {
            const qx_long first = sets ? asked.mesh->cell_first[s] : 0;
            const qx_long end = sets ? first + asked.mesh->cell_count[s] : cells.size();
            const int done = add_cells_of_dimension<T>(asked, ndim, cells, first, end, sums);
            if (done != HOST_DONE) return done;
        }
    }
    return HOST_DONE;
}

int derive_by_cells(const request &asked)
{
    mesh_info *mesh = asked.mesh;
    const qx_long n = mesh->nnodes;
    const int length = asked.row_length();
    if (mesh->coords == nullptr && mesh->get_coords(mesh, &mesh->coords) != 1) return HOST_FAILED;
    const node_sums sums = {zeroed_list<double>(n * length), zeroed_list<int>(n),
                            zeroed_list<unsigned char>(n)};
    if (sums.rows == nullptr || sums.counts == nullptr || sums.ndim == nullptr) return no_memory(asked);
    const int done = with_dtype_silent(asked.values->type, [&](auto tag) {
        return add_all_cells<typename decltype(tag)::type>(asked, sums);
    });
    if (done != HOST_DONE) return done;
    for (qx_long node = 0; node < n; ++node) {
        const int count = sums.counts[node];
        for (int e = 0; e < length; ++e)
            asked.out[node * length + e] = count > 0
                                               ? static_cast<float>(sums.rows[node * length + e] / count)
                                               : std::numeric_limits<float>::quiet_NaN();
        if (asked.mask != nullptr) asked.mask[node] = count > 0 ? 1 : 0;
    }
    return HOST_DONE;
} // NOLINT(clang-analyzer-unix.Malloc): the lists go with sums

// ---- calls ---------------------------------------------------------------------------------------------------

int differentiate(request asked)
{
    const host_array *values = asked.values;
    if (asked.field == nullptr) return host_fail("%s: field is NULL", asked.call);
    if (values == nullptr || values->data == nullptr) return host_fail("%s: values is NULL", asked.call);
    if (asked.out == nullptr) return host_fail("%s: out is NULL", asked.call);
    if (DTYPEtype_size(values->type) == 0)
        return host_fail("%s: %d is no element type", asked.call, values->type);
    if (asked.of == derivative::gradient && values->veclen != 1)
        return host_fail("%s: rows of 1 are wanted, and these have %d", asked.call, values->veclen);
    if (asked.of != derivative::gradient && values->veclen != 2 && values->veclen != 3)
        return host_fail("%s: rows of 2 or 3 are wanted, and these have %d", asked.call, values->veclen);
    asked.mesh = host_mesh(asked.field);
    if (asked.mesh == nullptr) return HOST_FAILED;
    if (const mesh_operator form = right_form(asked))
        return is_differenced_part(asked) ? derive_part(asked) : derive_by_library(asked, form);
    return derive_by_cells(asked);
}

} // namespace

extern "C" {

int host_gradient(host_field *field, const host_array *values, float *out, unsigned char *mask)
{
    return differentiate({"host_gradient", derivative::gradient, field, nullptr, values, out, mask});
}

int host_curl(host_field *field, const host_array *values, float *out, unsigned char *mask)
{
    return differentiate({"host_curl", derivative::curl, field, nullptr, values, out, mask});
}

int host_divergence(host_field *field, const host_array *values, float *out, unsigned char *mask)
{
    return differentiate({"host_divergence", derivative::divergence, field, nullptr, values, out, mask});
}

} // extern "C"
