// Length, area and volume of the cells of one dimension, and the integral of a scalar over them: a small
// quadrature rule a cell kind, the same for any shape functions.
//
// Cells are measured one at a time through a slot of their set, so that hosts can put in rules of their own. A
// set with one of the rules here is taken some cells at a time: shape functions at the few fixed points are
// evaluated once, and cells lie side by side in lanes. Each lane does what the function of a single cell does, so
// the bits are the same, and the sums run in the order of the cells.
//
// Abramowitz, Stegun. Handbook of Mathematical Functions, 25.4: Gauss quadrature.
#include <skoklana/cell.h>
#include <skoklana/measure.h>

#include "cell_set.hpp"
#include "dtype.hpp"
#include "fetch.hpp"
#include "memory.hpp"
#include "simd.hpp"

#include <algorithm>
#include <cmath>

namespace {

using integrate_cell_func = int (*)(mesh_info *mesh, int set, qx_long cell, const void *data, int dtype,
                                    int null_flag, const void *null_value, float *out_vol,
                                    float *out_integral);

constexpr int most_points = 8;
constexpr int usual_nodes = 20; // of the largest cell kind

struct quadrature {
    int npoints;
    float weight; // the same for all points
    float point[most_points][3];
};

constexpr float g = 0.57735026f; // 1 / sqrt(3)
constexpr float third = 1.0f / 3, sixth = 1.0f / 6, two_thirds = 2.0f / 3;

// Both points of a line stand at its middle: its measure is right where the shape functions are linear.
constexpr quadrature line_rule = {2, 1, {{0, 0, 0}, {0, 0, 0}}};
constexpr quadrature tri_rule = {1, 0.5f, {{third, third, 0}}};
constexpr quadrature quad_rule = {4, 1, {{-g, -g, 0}, {g, -g, 0}, {g, g, 0}, {-g, g, 0}}};
constexpr quadrature tet_rule = {1, sixth, {{0.25f, 0.25f, 0.25f}}};
constexpr quadrature prism_rule = {6,
                                   sixth,
                                   {{two_thirds, sixth, -g},
                                    {sixth, two_thirds, -g},
                                    {sixth, sixth, -g},
                                    {two_thirds, sixth, g},
                                    {sixth, two_thirds, g},
                                    {sixth, sixth, g}}};
constexpr quadrature hex_rule = {
    8,
    1,
    {{g, -g, -g}, {g, g, -g}, {-g, g, -g}, {-g, -g, -g}, {g, -g, g}, {g, g, g}, {-g, g, g}, {-g, -g, g}}};

// Scalars at the nodes of a mesh, and which of them are null.
struct node_scalars {
    const void *data; // NULL: none
    int dtype;
    int null_flag;
    const void *null_value;
};

struct cell_measure {
    float measure = 0, integral = 0;
};

} // namespace

// ---- one cell ----------------------------------------------------------------------------------------------

// A cell's scalars as floats; false: one of its nodes is null. Nulls are told in the data's own type.
template <typename T>
static bool gather_scalars(const node_scalars &scalars, const qx_long *nodes, int nnodes, float *values)
{
    const T *data = static_cast<const T *>(scalars.data);
    const T null_value = null_value_of<T>(scalars.null_flag, scalars.null_value);
    for (int n = 0; n < nnodes; ++n) {
        const T value = data[nodes[n]];
        if (scalars.null_flag != 0 && value == null_value) return false;
        values[n] = static_cast<float>(value);
    }
    return true;
}

static float determinant_of(int ndim, int nnodes, const float *deriv, const float *coords)
{
    switch (ndim) {
    case 1: return UTILjacobian_1d_det(nnodes, deriv, coords);
    case 2: return UTILjacobian_2d_det(nnodes, deriv, coords);
    case 3: return UTILjacobian_3d_det(nnodes, deriv, coords);
    default: return 0;
    }
}

static int integrate_cell(const quadrature &rule, mesh_info *mesh, int set, qx_long cell,
                          const node_scalars &scalars, float *out_vol, float *out_integral)
{
    if (!fetch_coords(mesh) || !fetch_connect(mesh, set)) return 0;
    *out_vol = *out_integral = 0;
    const shape_func shape = set_function<shape_func>(mesh, set, SLOT_SHAPE_FUNC);
    const shape_deriv_func shape_deriv = set_function<shape_deriv_func>(mesh, set, SLOT_SHAPE_DERIV);
    if (shape == nullptr || shape_deriv == nullptr) return 0;

    const int nnodes = mesh->cell_nnodes[set], nspace = mesh->nspace, ndim = mesh->cell_ndim[set];
    float usual[8 * usual_nodes] = {};
    scratch memory;
    const int room = std::max(nnodes, usual_nodes);
    float *coords = room == usual_nodes ? usual : memory.borrow<float>(8 * static_cast<qx_long>(room));
    if (coords == nullptr) return 0;
    float *values = coords + 3 * room, *weights = values + room, *deriv = weights + room;

    const qx_long *nodes = mesh->cell_connect[set] + cell * nnodes;
    for (int n = 0; n < nnodes; ++n)
        for (int d = 0; d < nspace; ++d)
            coords[3 * n + d] = mesh->coords[nodes[n] * nspace + d];
    if (scalars.data != nullptr) {
        const int found = with_dtype_or(
            scalars.dtype,
            [] {
                print_error("UTILvol_integr: unknown data type\n");
                return -1;
            },
            [&](auto type) -> int {
                return gather_scalars<typename decltype(type)::type>(scalars, nodes, nnodes, values);
            });
        if (found < 1) return found + 1;
    }
    for (int q = 0; q < rule.npoints; ++q) {
        shape(rule.point[q], weights);
        shape_deriv(rule.point[q], deriv);
        const float det = std::fabs(determinant_of(ndim, nnodes, deriv, coords));
        *out_vol += det * rule.weight;
        if (scalars.data == nullptr) continue;
        float value = 0;
        for (int n = 0; n < nnodes; ++n)
            value += weights[n] * values[n];
        *out_integral += value * rule.weight * det;
    }
    return 1;
}

// ---- many cells --------------------------------------------------------------------------------------------

// Vectors are handed on between functions in line only, so that no calling convention comes in.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace {

constexpr int lanes = 8;
typedef float lane_floats __attribute__((vector_size(lanes * sizeof(float))));

// A set whose functions have been evaluated at the points of its rule.
struct cell_batch {
    const quadrature *rule;
    int ndim, nnodes, nspace;
    const float *coords;
    const qx_long *connect;
    node_scalars scalars;
    float weights[most_points][usual_nodes];
    float deriv[most_points][3 * usual_nodes];
};

// Cells side by side.
struct integral_lanes {
    float coords[usual_nodes][3][lanes];
    float values[usual_nodes][lanes];
    bool null[lanes];
};

struct lane_vector {
    lane_floats x, y, z;
};

} // namespace

FORCE_INLINE lane_floats loaded(const float *from)
{
    lane_floats v;
    memcpy(&v, from, sizeof v);
    return v;
}

FORCE_INLINE lane_vector cross_of(const lane_vector &a, const lane_vector &b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

FORCE_INLINE lane_floats dot_of(const lane_vector &a, const lane_vector &b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

FORCE_INLINE lane_floats length_of(const lane_vector &a)
{
    lane_floats square = dot_of(a, a);
    for (int l = 0; l < lanes; ++l)
        square[l] = std::sqrt(square[l]);
    return square;
}

template <int ndim>
FORCE_INLINE lane_floats determinants(const cell_batch &batch, const integral_lanes &cells,
                                      const float *deriv)
{
    lane_vector tangent[ndim];
    for (int r = 0; r < ndim; ++r) {
        lane_vector sum = {};
        for (int n = 0; n < batch.nnodes; ++n) {
            const float slope = deriv[r * batch.nnodes + n];
            sum.x += slope * loaded(cells.coords[n][0]);
            sum.y += slope * loaded(cells.coords[n][1]);
            sum.z += slope * loaded(cells.coords[n][2]);
        }
        tangent[r] = sum;
    }
    if constexpr (ndim == 1) return length_of(tangent[0]);
    if constexpr (ndim == 2) return length_of(cross_of(tangent[0], tangent[1]));
    if constexpr (ndim == 3) return dot_of(tangent[0], cross_of(tangent[1], tangent[2]));
}

template <int ndim>
FORCE_INLINE void integrate_lanes(const cell_batch &batch, const integral_lanes &cells, cell_measure *out)
{
    lane_floats measure = {}, integral = {};
    for (int q = 0; q < batch.rule->npoints; ++q) {
        lane_floats det = determinants<ndim>(batch, cells, batch.deriv[q]);
        for (int l = 0; l < lanes; ++l)
            det[l] = std::fabs(det[l]);
        measure += det * batch.rule->weight;
        if (batch.scalars.data == nullptr) continue;
        lane_floats value = {};
        for (int n = 0; n < batch.nnodes; ++n)
            value += batch.weights[q][n] * loaded(cells.values[n]);
        integral += value * batch.rule->weight * det;
    }
    for (int l = 0; l < lanes; ++l)
        out[l] = cells.null[l] ? cell_measure{} : cell_measure{measure[l], integral[l]};
}

FORCE_INLINE void integrate_any(const cell_batch &batch, const integral_lanes &cells, cell_measure *out)
{
    switch (batch.ndim) {
    case 1: return integrate_lanes<1>(batch, cells, out);
    case 2: return integrate_lanes<2>(batch, cells, out);
    default: return integrate_lanes<3>(batch, cells, out);
    }
}

TARGET_AVX2 static void integrate_any_wide(const cell_batch &batch, const integral_lanes &cells,
                                           cell_measure *out)
{
    integrate_any(batch, cells, out);
}

// Lanes behind the last cell hold what they held.
template <typename T>
static void fill_lanes(const cell_batch &batch, qx_long first, int ncells, integral_lanes *cells)
{
    for (int l = 0; l < ncells; ++l) {
        const qx_long *nodes = batch.connect + (first + l) * batch.nnodes;
        for (int n = 0; n < batch.nnodes; ++n) {
            const float *from = batch.coords + nodes[n] * batch.nspace;
            for (int d = 0; d < batch.nspace; ++d)
                cells->coords[n][d][l] = from[d];
        }
        cells->null[l] = false;
        if (batch.scalars.data == nullptr) continue;
        float values[usual_nodes];
        cells->null[l] = !gather_scalars<T>(batch.scalars, nodes, batch.nnodes, values);
        if (cells->null[l]) continue;
        for (int n = 0; n < batch.nnodes; ++n)
            cells->values[n][l] = values[n];
    }
}

template <typename T>
static void integrate_batch(const cell_batch &batch, qx_long first, qx_long end, float *out_vol,
                            float *out_integral)
{
    integral_lanes cells = {};
    for (; first < end; first += lanes) {
        const int ncells = static_cast<int>(std::min<qx_long>(lanes, end - first));
        fill_lanes<T>(batch, first, ncells, &cells);
        cell_measure of_cell[lanes];
        if (have_avx2())
            integrate_any_wide(batch, cells, of_cell);
        else
            integrate_any(batch, cells, of_cell);
        for (int l = 0; l < ncells; ++l) {
            *out_vol += of_cell[l].measure;
            *out_integral += of_cell[l].integral;
        }
    }
}

static const quadrature *own_rule(integrate_cell_func func)
{
    if (func == UTILvol_integr_cell_line) return &line_rule;
    if (func == UTILvol_integr_cell_tri) return &tri_rule;
    if (func == UTILvol_integr_cell_quad) return &quad_rule;
    if (func == UTILvol_integr_cell_tet) return &tet_rule;
    if (func == UTILvol_integr_cell_prism) return &prism_rule;
    if (func == UTILvol_integr_cell_hex) return &hex_rule;
    return nullptr;
}

// Cells from first on; false: they are to be taken one at a time. What the first cell fetched is there.
static bool integrate_rest(mesh_info *mesh, int set, integrate_cell_func func, const node_scalars &scalars,
                           qx_long first, float *out_vol, float *out_integral)
{
    const quadrature *rule = own_rule(func);
    const int nnodes = mesh->cell_nnodes[set], ndim = mesh->cell_ndim[set];
    if (rule == nullptr || nnodes > usual_nodes || ndim < 1 || ndim > 3 || mesh->coords == nullptr ||
        mesh->cell_connect[set] == nullptr)
        return false;
    cell_batch batch = {};
    batch.rule = rule;
    batch.ndim = ndim;
    batch.nnodes = nnodes;
    batch.nspace = mesh->nspace;
    batch.coords = mesh->coords;
    batch.connect = mesh->cell_connect[set];
    batch.scalars = scalars;
    for (int q = 0; q < rule->npoints; ++q) {
        set_function<shape_func>(mesh, set, SLOT_SHAPE_FUNC)(rule->point[q], batch.weights[q]);
        set_function<shape_deriv_func>(mesh, set, SLOT_SHAPE_DERIV)(rule->point[q], batch.deriv[q]);
    }
    const qx_long end = mesh->cell_count[set];
    if (scalars.data == nullptr) {
        integrate_batch<float>(batch, first, end, out_vol, out_integral);
        return true;
    }
    return with_dtype_silent(scalars.dtype, [&](auto type) -> int {
               integrate_batch<typename decltype(type)::type>(batch, first, end, out_vol, out_integral);
               return 1;
           }) != 0;
}

static void integrate_set(mesh_info *mesh, int set, integrate_cell_func func, const node_scalars &scalars,
                          float *out_vol, float *out_integral)
{
    for (qx_long cell = 0; cell < mesh->cell_count[set]; ++cell) {
        if (cell == 1 && integrate_rest(mesh, set, func, scalars, cell, out_vol, out_integral)) return;
        cell_measure of_cell; // stays 0 where the cell's function fails before it begins
        func(mesh, set, cell, scalars.data, scalars.dtype, scalars.null_flag, scalars.null_value,
             &of_cell.measure, &of_cell.integral);
        *out_vol += of_cell.measure;
        *out_integral += of_cell.integral;
    }
}

int UTILvol_integr(mesh_info *mesh, int ndim, const void *data, int dtype, int null_flag,
                   const void *null_value, float *out_vol, float *out_integral)
{
    *out_vol = *out_integral = 0;
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        const integrate_cell_func func = set_function<integrate_cell_func>(mesh, set, SLOT_VOL_INTEGR);
        if (mesh->cell_ndim[set] != ndim || func == nullptr ||
            set_function<cell_func>(mesh, set, SLOT_SHAPE_FUNC) == nullptr ||
            set_function<cell_func>(mesh, set, SLOT_SHAPE_DERIV) == nullptr)
            continue;
        integrate_set(mesh, set, func, {data, dtype, null_flag, null_value}, out_vol, out_integral);
    }
    return 1;
}

extern "C" {

#define EXPORT_CELL_INTEGRAL(kind)                                                                         \
    int UTILvol_integr_cell_##kind(mesh_info *mesh, int set, qx_long cell, const void *data, int dtype,    \
                                   int null_flag, const void *null_value, float *out_vol,                  \
                                   float *out_integral)                                                    \
    {                                                                                                      \
        return integrate_cell(kind##_rule, mesh, set, cell, {data, dtype, null_flag, null_value}, out_vol, \
                              out_integral);                                                               \
    }
EXPORT_CELL_INTEGRAL(line)
EXPORT_CELL_INTEGRAL(tri)
EXPORT_CELL_INTEGRAL(quad)
EXPORT_CELL_INTEGRAL(tet)
EXPORT_CELL_INTEGRAL(prism)
EXPORT_CELL_INTEGRAL(hex)
#undef EXPORT_CELL_INTEGRAL

} // extern "C"
