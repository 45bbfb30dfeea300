// Length, area and volume of a field, and integrals over it, in double and for every kind and order of cells.
//
// Quadrature is Gauss's along each axis of a cell's own coordinates. Triangles, and what has triangles, are squares
// with one side drawn together: u = r, v = (1 - r) s, and so on, whose Jacobian takes part. Pyramids are squares that
// shrink towards the apex. Rules are exact for first-order shape functions on straight cells, and where the map is
// curved have a point more along each axis than its polynomials need on solids; areas and lengths of curved cells are
// roots and come out to that order.
//
// Stroud, Secrest. Gaussian Quadrature Formulas. 1966
#include "cell_map.hpp"
#include "cells.hpp"
#include "progress.hpp"
#include "report.hpp"

#include "mod_util/type_switch.hpp"

#include <skoklana_host.h>

#include <cstring>

namespace {

struct gauss_rule {
    int npoints;
    double at[4], weight[4]; // on [-1, 1]
};

constexpr gauss_rule gauss[] = {
    {1, {0}, {2}},
    {2, {-0.57735026918962576451, 0.57735026918962576451}, {1, 1}},
    {3, {-0.77459666924148337704, 0, 0.77459666924148337704}, {5.0 / 9, 8.0 / 9, 5.0 / 9}},
    {4,
     {-0.86113631159405257522, -0.33998104358485626480, 0.33998104358485626480, 0.86113631159405257522},
     {0.34785484513745385737, 0.65214515486254614263, 0.65214515486254614263, 0.34785484513745385737}}};

// Points along each axis that are enough for a kind.
constexpr int points_along(int kind, int order)
{
    if (order == 2) return 4;
    return kind == CELL_LINE ? 1 : kind == CELL_QUAD ? 3 : 2;
}

struct cell_point {
    double u[3]; // as at_chart takes it
    double weight;
};

template <int Npoints> struct cell_rule {
    cell_point point[Npoints];
};

// From a point of the unit cube [-1, 1]^ndim, with its weight, to one of the cell.
template <int Kind> constexpr cell_point drawn_together(const double *cube, double weight)
{
    if constexpr (Kind == CELL_PYR) {
        const double s = (1 - cube[2]) / 2;
        return {{cube[0] * s, cube[1] * s, cube[2]}, weight * s * s};
    } else if constexpr (Kind == CELL_TRI || Kind == CELL_PRISM) {
        const double r = (1 + cube[0]) / 2, s = (1 + cube[1]) / 2;
        return {{r, (1 - r) * s, Kind == CELL_PRISM ? cube[2] : 0}, weight * (1 - r) / 4};
    } else if constexpr (Kind == CELL_TET) {
        const double r = (1 + cube[0]) / 2, s = (1 + cube[1]) / 2, t = (1 + cube[2]) / 2;
        return {{r, (1 - r) * s, (1 - r) * (1 - s) * t}, weight * (1 - r) * (1 - r) * (1 - s) / 8};
    } else {
        return {{cube[0], cube[1], cube[2]}, weight};
    }
}

constexpr int power(int base, int exponent)
{
    return exponent == 0 ? 1 : base * power(base, exponent - 1);
}

template <int Kind, int Order> constexpr auto make_rule()
{
    constexpr int ndim = cell_kinds[Kind].ndim;
    if constexpr (Order == 1 && (Kind == CELL_TRI || Kind == CELL_TET)) { // the middle is enough
        cell_rule<1> rule = {};
        for (int d = 0; d < ndim; ++d)
            rule.point[0].u[d] = 1.0 / (ndim + 1);
        rule.point[0].weight = Kind == CELL_TRI ? 1.0 / 2 : 1.0 / 6;
        return rule;
    } else {
        constexpr int n = points_along(Kind, Order);
        cell_rule<power(n, ndim)> rule = {};
        for (int q = 0; q < power(n, ndim); ++q) {
            double cube[3] = {0, 0, 0}, weight = 1;
            for (int d = 0, rest = q; d < ndim; ++d, rest /= n) {
                cube[d] = gauss[n - 1].at[rest % n];
                weight *= gauss[n - 1].weight[rest % n];
            }
            rule.point[q] = drawn_together<Kind>(cube, weight);
        }
        return rule;
    }
}

template <typename Shape> struct order_of_shape;
template <int Kind, int Order> struct order_of_shape<exact_shape<Kind, Order>> {
    static constexpr int value = Order;
};

// The shape functions at the points of a kind's rule.
template <typename Shape> struct tabulated {
    static constexpr auto rule = make_rule<Shape::kind, order_of_shape<Shape>::value>();
    static constexpr int npoints = static_cast<int>(sizeof rule / sizeof(cell_point));
    double value[npoints][Shape::nnodes];
    double slope[npoints][Shape::ndim * Shape::nnodes];

    tabulated()
    {
        for (int q = 0; q < npoints; ++q)
            Shape::at_chart(rule.point[q].u, value[q], slope[q]);
    }
};

// Node values as doubles.
struct node_values {
    const host_array *array; // NULL: none
    int component;
    bool (*read)(const node_values &from, qx_long node, double *value); // false: the node is null
};

template <typename T> bool read_value(const node_values &from, qx_long node, double *value)
{
    const T *row = static_cast<const T *>(from.array->data) + node * from.array->veclen;
    *value = static_cast<double>(row[from.component]);
    if (from.array->null == nullptr) return true;
    T null_value;
    memcpy(&null_value, from.array->null, sizeof null_value);
    return !(row[0] == null_value);
}

// The place of a node, whatever the kind of mesh.
vec3d node_place(const host_field *field, qx_long node)
{
    double x[3] = {0, 0, 0};
    if (field->coords != nullptr) {
        for (int d = 0; d < field->nspace; ++d)
            x[d] = field->coords[node * field->nspace + d];
    } else {
        for (int d = 0; d < field->nspace; ++d) {
            const qx_long position = d < field->ndim ? node % field->dims[d] : 0;
            if (d < field->ndim) node /= field->dims[d];
            x[d] = axis_coordinate(field, d, position);
        }
    }
    return vec3d::of(x[0], x[1], x[2]);
}

template <int Ndim> double extent_of(const vec3d *tangent)
{
    if constexpr (Ndim == 1) return length(tangent[0]);
    if constexpr (Ndim == 2) return length(cross(tangent[0], tangent[1]));
    if constexpr (Ndim == 3) return std::fabs(dot(tangent[0], cross(tangent[1], tangent[2])));
}

template <typename Shape>
void measure_cell(const tabulated<Shape> &at, const host_field *field, const cell_view &cell,
                  const node_values &values, host_measure *out)
{
    vec3d place[Shape::nnodes];
    double value[Shape::nnodes] = {};
    bool valued = true;
    const vec3d origin = node_place(field, cell.nodes[0]); // small differences of large coordinates
    for (int k = 0; k < Shape::nnodes; ++k) {
        place[k] = node_place(field, cell.nodes[k]) - origin;
        if (values.array != nullptr && !values.read(values, cell.nodes[k], &value[k])) valued = false;
    }
    double measure = 0, integral = 0;
    for (int q = 0; q < at.npoints; ++q) {
        vec3d tangent[Shape::ndim];
        for (int axis = 0; axis < Shape::ndim; ++axis) {
            const double *slope = at.slope[q] + axis * Shape::nnodes;
            tangent[axis] = slope[0] * place[0];
            for (int k = 1; k < Shape::nnodes; ++k)
                tangent[axis] += slope[k] * place[k];
        }
        const double share = extent_of<Shape::ndim>(tangent) * at.rule.point[q].weight;
        double mean = 0;
        for (int k = 0; k < Shape::nnodes; ++k)
            mean += at.value[q][k] * value[k];
        measure += share;
        integral += mean * share;
    }
    ++out->ncells;
    out->measure += measure;
    if (valued) {
        out->integral += integral;
        out->valued += measure;
    } else {
        ++out->null_cells;
    }
}

constexpr qx_long cells_a_check = 65536;

// Cells first to end - 1, all of one kind and order. False: the program asks to stop.
bool measure_cells(const field_cells &cells, qx_long first, qx_long end, const node_values &values,
                   host_measure *out)
{
    cell_view cell;
    cells.look_up(first, &cell);
    return with_shape(cell.kind, cell.order, [&](auto shape) {
        const tabulated<decltype(shape)> at;
        for (qx_long c = first; c < end; ++c) {
            if (c % cells_a_check == 0 && is_stopped(c, cells.size(), nullptr)) return false;
            cells.look_up(c, &cell);
            measure_cell(at, cells.field, cell, values, &out[cell_kinds[cell.kind].ndim - 1]);
        }
        return true;
    });
}

} // namespace

int host_measure_field(host_field *field, const host_array *values, int component, host_measure *out)
{
    memset(out, 0, 3 * sizeof *out);
    if (host_mesh(field) == nullptr) return HOST_FAILED;
    node_values from = {values, component, nullptr};
    if (values != nullptr) {
        if (component < 0 || component >= values->veclen)
            return host_fail("host_measure_field: component is %d, but rows have %d", component,
                             values->veclen);
        from.read = with_dtype_or(
            values->type, [] { return decltype(from.read){nullptr}; },
            [](auto type) { return decltype(from.read){read_value<typename decltype(type)::type>}; });
        if (from.read == nullptr)
            return host_fail("host_measure_field: values have the type %d, which there is not", values->type);
    }
    const field_cells cells(field);
    const int nsets = field->kind == KIND_CELLS ? field->nsets : cells.size() > 0 ? 1 : 0;
    qx_long first = 0;
    for (int set = 0; set < nsets; ++set) {
        const qx_long end = field->kind == KIND_CELLS ? first + field->sets[set].count : cells.size();
        if (end > first && !measure_cells(cells, first, end, from, out)) {
            memset(out, 0, 3 * sizeof *out);
            return HOST_STOPPED;
        }
        first = end;
    }
    return HOST_DONE;
}
