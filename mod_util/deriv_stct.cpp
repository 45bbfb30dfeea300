// Gradient, curl and divergence on lattices by finite differences, and the derivative at a point of a
// structured cell.
//
// On each axis a node takes the difference of the nodes beside it, at the ends that of the end and the node next
// to it. Differences are scaled on the way to floats, by a table a position of the axis:
//
//     uniform       1 / spacing, at inner positions half of it
//     rectilinear   1 / (coordinate behind - coordinate before)
//     curvilinear   1, at inner positions 1/2; coordinates are differenced likewise, and the derivatives
//                   follow through the inverse of the matrix that the coordinate differences make
//
// What depends on the element type is the differencing of a row alone. The work goes row by row in the order of
// memory, a row in pieces that stay in the nearest cache: differences of a piece along each axis, then the
// operator on them.
//
// Progress is reported as a walk along axis 0, before each eighth position, and a stop there leaves all nodes
// at earlier positions done. Rows are handed out in equal shares between the reports; a stop finishes the
// columns before it in the rest of them.

#include <skoklana/deriv.h>

#include "deriv.hpp"
#include "deriv_point.hpp"
#include "difference.hpp"
#include "dtype.hpp"
#include "fetch.hpp"
#include "lattice.hpp"
#include "status.hpp"
#include "triples.hpp"

namespace {

constexpr qx_long check_period = 8; // positions of axis 0 between status checks
constexpr qx_long piece_nodes = 128;

// ---- scales ------------------------------------------------------------------------------------------------

struct lattice_shape {
    qx_long n[3]; // axes that are not there have one node
    int ndim;

    lattice_shape(int ndim_, const qx_long *dims) : n{1, 1, 1}, ndim(ndim_) { std::copy_n(dims, ndim, n); }
    qx_long nrows() const { return n[1] * n[2]; }
    qx_long nnodes() const { return n[0] * nrows(); }
};

// A factor for each position of each axis. Along axis 0 they stand once for each element of a node, as the
// elements of a row are all differenced alike.
struct axis_scales {
    float *of[3];

    // make(axis, position) gives the factor.
    template <typename Make> axis_scales(const lattice_shape &shape, int veclen, scratch *work, Make make)
    {
        const qx_long first = shape.n[0] * veclen;
        of[0] = work->keep(insist_zeroed<float>(first + shape.n[1] + shape.n[2], "Cannot alloc scale array"));
        of[1] = of[0] + first;
        of[2] = of[1] + shape.n[1];
        for (int axis = 0; axis < shape.ndim; ++axis) {
            const int copies = axis == 0 ? veclen : 1;
            for (qx_long i = 0; i < shape.n[axis]; ++i)
                std::fill_n(of[axis] + i * copies, copies, make(axis, i));
        }
    }
};

// ---- differences -------------------------------------------------------------------------------------------

// count elements from high on, less those from low on, times one scale or one each.
template <typename T>
FORCE_INLINE void subtract_evenly(const void *high, const void *low, qx_long count, float scale, float *out)
{
    const T *h = static_cast<const T *>(high), *l = static_cast<const T *>(low);
    for (qx_long i = 0; i < count; ++i)
        out[i] = scaled_difference(h[i], l[i], scale);
}

template <typename T>
FORCE_INLINE void subtract_unevenly(const void *high, const void *low, qx_long count, const float *scales,
                                    float *out)
{
    const T *h = static_cast<const T *>(high), *l = static_cast<const T *>(low);
    for (qx_long i = 0; i < count; ++i)
        out[i] = scaled_difference(h[i], l[i], scales[i]);
}

template <typename T> struct subtraction {
    static void even(const void *h, const void *l, qx_long count, float scale, float *out)
    {
        subtract_evenly<T>(h, l, count, scale, out);
    }
    static void uneven(const void *h, const void *l, qx_long count, const float *scales, float *out)
    {
        subtract_unevenly<T>(h, l, count, scales, out);
    }
    TARGET_AVX2 static void even_wide(const void *h, const void *l, qx_long count, float scale, float *out)
    {
        subtract_evenly<T>(h, l, count, scale, out);
    }
    TARGET_AVX2 static void uneven_wide(const void *h, const void *l, qx_long count, const float *scales,
                                        float *out)
    {
        subtract_unevenly<T>(h, l, count, scales, out);
    }
};

struct difference_kernels {
    void (*even)(const void *high, const void *low, qx_long count, float scale, float *out);
    void (*uneven)(const void *high, const void *low, qx_long count, const float *scales, float *out);
    qx_long element_bytes;
};

template <typename T> difference_kernels kernels_of()
{
    using of = subtraction<T>;
    if (have_avx2()) return {of::even_wide, of::uneven_wide, sizeof(T)};
    return {of::even, of::uneven, sizeof(T)};
}

// Differences of rows of veclen elements a node, of data or of coordinates.
class differenced_rows {
  public:
    differenced_rows(const lattice_shape &shape_, const void *data_, int veclen_,
                     const difference_kernels &subtract_, const axis_scales &scales_)
        : shape(shape_), data(static_cast<const char *>(data_)), veclen(veclen_), subtract(subtract_),
          scales(scales_)
    {
    }

    // Those of the nodes at positions first to end - 1 of row (j, k) along one axis, by component.
    void along(int axis, qx_long j, qx_long k, qx_long first, qx_long end, float (*out)[piece_nodes]) const
    {
        float rows[3 * piece_nodes], *differences = veclen == 1 ? out[0] : rows;
        if (axis == 0)
            along_row(row_number(j, k), first, end, differences);
        else
            across_rows(axis, j, k, first, end, differences);
        if (veclen == 3) split_triples(rows, end - first, out[0], out[1], out[2]);
        if (veclen == 2)
            for (qx_long i = 0; i < end - first; ++i) {
                out[0][i] = rows[2 * i];
                out[1][i] = rows[2 * i + 1];
            }
    }

  private:
    qx_long row_number(qx_long j, qx_long k) const { return k * shape.n[1] + j; }

    // Beyond the last node the last one stands in: that is met on axes of one node only.
    const char *node(qx_long number) const
    {
        return data + std::min(number, shape.nnodes() - 1) * veclen * subtract.element_bytes;
    }

    void along_row(qx_long row, qx_long first, qx_long end, float *out) const
    {
        const qx_long base = row * shape.n[0], n = shape.n[0];
        const float *scale = scales.of[0];
        const auto at_end = [&](qx_long i) {
            const stencil s = stencil_at(i, n);
            subtract.uneven(node(base + s.high), node(base + s.low), veclen, scale + i * veclen,
                            out + (i - first) * veclen);
        };
        if (first == 0) at_end(0);
        const qx_long inner = std::max<qx_long>(first, 1), inner_end = std::min(end, n - 1);
        if (inner < inner_end)
            subtract.uneven(node(base + inner + 1), node(base + inner - 1), (inner_end - inner) * veclen,
                            scale + inner * veclen, out + (inner - first) * veclen);
        if (end == n && n > 1) at_end(n - 1);
    }

    void across_rows(int axis, qx_long j, qx_long k, qx_long first, qx_long end, float *out) const
    {
        const qx_long position = axis == 1 ? j : k, step = axis == 1 ? 1 : shape.n[1];
        const stencil s = stencil_at(position, shape.n[axis]);
        const qx_long row = row_number(j, k), low = row + (s.low - position) * step;
        qx_long high = row + (s.high - position) * step;
        if (high >= shape.nrows()) high = row;
        subtract.even(node(high * shape.n[0] + first), node(low * shape.n[0] + first), (end - first) * veclen,
                      scales.of[axis][position], out);
    }

    lattice_shape shape;
    const char *data;
    qx_long veclen;
    difference_kernels subtract;
    axis_scales scales;
};

// ---- operators on a piece ----------------------------------------------------------------------------------

// Differences of a piece of a row: [axis][component][node].
struct piece {
    float along[3][3][piece_nodes];
};

// The rows of an operator: [entry][node].
struct piece_rows {
    float entry[3][piece_nodes];
};

using combine_kernel = void (*)(const piece &data, const piece &coords, qx_long count, piece_rows *out);

// Differences that are derivatives already.
template <typename Operator> struct from_derivatives {
    static FORCE_INLINE void combine(const piece &data, const piece &, qx_long count, piece_rows *out)
    {
#pragma GCC ivdep
        for (qx_long i = 0; i < count; ++i) {
            float row[3] = {};
            Operator::combine([&](int axis, int c) { return data.along[axis][c][i]; }, row);
            for (int e = 0; e < Operator::out_veclen; ++e)
                out->entry[e][i] = row[e];
        }
    }
};

// Differences along the axes of the lattice: the derivatives of i, j and k in space make derivatives in space of
// them. Where the node's coordinate differences span no volume these count as 0.
template <typename Operator> struct through_metric {
    static FORCE_INLINE void combine(const piece &data, const piece &coords, qx_long count, piece_rows *out)
    {
#pragma GCC ivdep
        for (qx_long i = 0; i < count; ++i) {
            float x[3][3], metric[3][3]; // [lattice axis][axis in space]
            for (int a = 0; a < 3; ++a)
                for (int d = 0; d < 3; ++d)
                    x[a][d] = coords.along[a][d][i];
            for (int a = 0; a < 3; ++a)
                for (int d = 0; d < 3; ++d) {
                    const int b = (a + 1) % 3, c = (a + 2) % 3, e = (d + 1) % 3, f = (d + 2) % 3;
                    metric[a][d] = x[b][e] * x[c][f] - x[b][f] * x[c][e];
                }
            const float det = x[0][0] * metric[0][0] + x[0][1] * metric[0][1] + x[0][2] * metric[0][2];
            const float reciprocal = 1.0f / det, factor = det != 0.0f ? reciprocal : 0.0f;
            for (int a = 0; a < 3; ++a)
                for (int d = 0; d < 3; ++d)
                    metric[a][d] *= factor;
            const auto derivative = [&](int axis, int c) {
                return data.along[0][c][i] * metric[0][axis] + data.along[1][c][i] * metric[1][axis] +
                       data.along[2][c][i] * metric[2][axis];
            };
            float row[3] = {};
            Operator::combine(derivative, row);
            for (int e = 0; e < Operator::out_veclen; ++e)
                out->entry[e][i] = row[e];
        }
    }
};

// The gradient in a plane.
struct through_plane_metric {
    static FORCE_INLINE void combine(const piece &data, const piece &coords, qx_long count, piece_rows *out)
    {
#pragma GCC ivdep
        for (qx_long i = 0; i < count; ++i) {
            const float xi = coords.along[0][0][i], yi = coords.along[0][1][i];
            const float xj = coords.along[1][0][i], yj = coords.along[1][1][i];
            const float fi = data.along[0][0][i], fj = data.along[1][0][i];
            const float det = xi * yj - yi * xj;
            const float reciprocal = 1.0f / det, factor = det != 0.0f ? reciprocal : 0.0f;
            out->entry[0][i] = factor * (yj * fi - yi * fj);
            out->entry[1][i] = factor * (xi * fj - xj * fi);
            out->entry[2][i] = 0;
        }
    }
};

template <typename Way>
TARGET_AVX2 void combine_wide(const piece &data, const piece &coords, qx_long count, piece_rows *out)
{
    Way::combine(data, coords, count, out);
}

template <typename Way>
void combine_plain(const piece &data, const piece &coords, qx_long count, piece_rows *out)
{
    Way::combine(data, coords, count, out);
}

template <typename Way> combine_kernel kernel_of()
{
    return have_avx2() ? combine_wide<Way> : combine_plain<Way>;
}

// ---- the walk ----------------------------------------------------------------------------------------------

struct lattice_operation {
    lattice_shape shape;
    const differenced_rows *data, *coords; // coords: null where differences are derivatives already
    combine_kernel combine;
    int out_veclen;
    float *out;
};

// Rows first to end - 1, positions below columns in each.
void derive_rows(const lattice_operation &op, qx_long first, qx_long end, qx_long columns)
{
    piece data, coords;
    piece_rows made;
    std::fill_n(data.along[2][0], piece_nodes, 0.0f); // stands where there is no third axis
    for (qx_long row = first; row < end; ++row) {
        const qx_long j = row % op.shape.n[1], k = row / op.shape.n[1];
        for (qx_long i = 0; i < columns; i += piece_nodes) {
            const qx_long count = std::min(piece_nodes, columns - i);
            for (int axis = 0; axis < op.shape.ndim; ++axis) {
                op.data->along(axis, j, k, i, i + count, data.along[axis]);
                if (op.coords != nullptr) op.coords->along(axis, j, k, i, i + count, coords.along[axis]);
            }
            op.combine(data, coords, count, &made);
            float *out = op.out + (row * op.shape.n[0] + i) * op.out_veclen;
            if (op.out_veclen == 3)
                join_triples(made.entry[0], made.entry[1], made.entry[2], count, out);
            else
                std::copy_n(made.entry[0], count, out);
        }
    }
}

int walk_lattice_rows(const lattice_operation &op)
{
    const qx_long n = op.shape.n[0], nrows = op.shape.nrows(), nshares = n / check_period + 1;
    const float percent_a_position = static_cast<float>(100.0 / (static_cast<double>(n) - 1.0));
    for (qx_long share = 0; share < nshares; ++share) {
        const qx_long begin = nrows * share / nshares, end = nrows * (share + 1) / nshares;
        if (share > 0) {
            const qx_long position = share * check_period - 1;
            if (interrupted(static_cast<int>(static_cast<float>(position) * percent_a_position))) {
                derive_rows(op, begin, nrows, position);
                return 0;
            }
        }
        derive_rows(op, begin, end, n);
    }
    return 1;
}

// ---- kernels by mesh kind ----------------------------------------------------------------------------------

template <typename Operator, typename Make>
int derive_scaled(const lattice_shape &shape, const void *data, int data_type, float *out, Make make)
{
    return with_dtype(data_type, Operator::name, [&](auto type) -> int {
        const difference_kernels subtract = kernels_of<typename decltype(type)::type>();
        float scale_of_axis[3];
        if (!make.prepare(scale_of_axis)) return 0;
        scratch work;
        const axis_scales scales(shape, Operator::ncomp, &work,
                                 [&](int axis, qx_long i) { return make(scale_of_axis, axis, i); });
        const differenced_rows rows(shape, data, Operator::ncomp, subtract, scales);
        return walk_lattice_rows(
            {shape, &rows, nullptr, kernel_of<from_derivatives<Operator>>(), Operator::out_veclen, out});
    });
}

// Of a uniform mesh: 1 / spacing an axis. False where an axis has no spacing.
struct uniform_scales {
    const lattice_shape &shape;
    const float *points;
    int stride;

    bool prepare(float *scale) const
    {
        for (int a = 0; a < shape.ndim; ++a)
            if (shape.n[a] < 2) return false;
        for (int a = 0; a < shape.ndim; ++a) {
            const float h = (points[stride + a] - points[a]) / static_cast<float>(shape.n[a] - 1);
            if (h == 0) return false;
            scale[a] = 1.0f / h;
        }
        return true;
    }

    float operator()(const float *scale, int axis, qx_long i) const
    {
        return scale[axis] * stencil_at(i, shape.n[axis]).factor;
    }
};

// Of a rectilinear mesh, from the coordinates of the nodes that are subtracted.
struct rectilinear_scales {
    const lattice_shape &shape;
    const float *points;
    int stride;
    bool inverted; // hosts have always been given products with the interval in two dimensions

    bool prepare(float *) const { return true; }

    float operator()(const float *, int axis, qx_long i) const
    {
        const stencil s = stencil_at(i, shape.n[axis]);
        // At the end of axis 0 the coordinate before is the other component of its row. Results that are
        // kept were made so.
        const int other = axis == 0 && i == shape.n[0] - 1 && i > 0 ? 1 : axis;
        const float interval = coordinate(axis, s.high, axis) - coordinate(axis, s.low, other);
        return inverted ? 1.0f / interval : interval;
    }

  private:
    float coordinate(int axis, qx_long position, int component) const
    {
        qx_long row = position, rows = 0;
        for (int a = 0; a < shape.ndim; ++a) {
            if (a < axis) row += shape.n[a];
            rows += shape.n[a];
        }
        return points[std::min(row, rows - 1) * stride + component];
    }
};

template <typename Operator>
int derive_uniform(int ndim, const qx_long *dims, int stride, const float *points, const void *data,
                   int data_type, float *out)
{
    const lattice_shape shape(ndim, dims);
    return derive_scaled<Operator>(shape, data, data_type, out, uniform_scales{shape, points, stride});
}

template <typename Operator>
int derive_rectilinear(int ndim, const qx_long *dims, int stride, const float *points, const void *data,
                       int data_type, float *out)
{
    const lattice_shape shape(ndim, dims);
    return derive_scaled<Operator>(shape, data, data_type, out,
                                   rectilinear_scales{shape, points, stride, ndim == 3});
}

template <typename Operator>
int derive_curvilinear(int ndim, const qx_long *dims, int stride, const float *coords, const void *data,
                       int data_type, combine_kernel combine, float *out)
{
    const lattice_shape shape(ndim, dims);
    return with_dtype(data_type, Operator::name, [&](auto type) -> int {
        const auto factor = [&](int axis, qx_long i) { return stencil_at(i, shape.n[axis]).factor; };
        scratch work;
        const axis_scales data_scales(shape, Operator::ncomp, &work, factor);
        const axis_scales coord_scales(shape, stride, &work, factor);
        const differenced_rows data_rows(shape, data, Operator::ncomp,
                                         kernels_of<typename decltype(type)::type>(), data_scales);
        const differenced_rows coord_rows(shape, coords, stride, kernels_of<float>(), coord_scales);
        return walk_lattice_rows({shape, &data_rows, &coord_rows, combine, Operator::out_veclen, out});
    });
}

// ---- the forms of a mesh -----------------------------------------------------------------------------------

bool refuse_operator(const char *name, const char *message)
{
    report_error(name, message);
    return false;
}

template <typename Operator> bool accepts_ndim(const mesh_info *mesh)
{
    return mesh->ndim >= Operator::least_ndim || refuse_operator(Operator::name, Operator::wrong_ndim);
}

// The gradient asks the host before it looks at the number of axes, the others after.
template <typename Operator> bool accepts(mesh_info *mesh, int veclen, bool (*fetch)(mesh_info *))
{
    if (!Operator::takes_on_lattice(veclen)) return refuse_operator(Operator::name, Operator::wrong_veclen);
    if constexpr (std::is_same_v<Operator, grad_operator>)
        return fetch(mesh) && accepts_ndim<Operator>(mesh);
    else
        return accepts_ndim<Operator>(mesh) && fetch(mesh);
}

struct form_data {
    const void *data;
    int veclen, data_type, null_flag;
    const void *null_value;
};

template <typename Operator> int pass_null(mesh_info *mesh, const form_data &of, float *out)
{
    if (of.null_flag == 0) return 1;
    return UTILderiv_null_struct(mesh, of.data, of.veclen, of.data_type, of.null_value, Operator::out_veclen,
                                 out) != 0;
}

// ---- at a point of a cell ----------------------------------------------------------------------------------

constexpr int corners_in_space = 8, corners_in_plane = 4;

// The corners of the cell at node, in the order of the shape functions. False: there is no such cell.
bool see_lattice_cell(const mesh_info *mesh, qx_long node, int most_corners, qx_long *corners,
                      derived_cell *seen)
{
    const int n = mesh->cell_nnodes[0];
    if (node < 0 || node >= mesh->nnodes || n < 1 || n > most_corners) return false;
    // Cells along an axis of one node have no thickness: rounding must not give them one.
    if (*std::min_element(mesh->dims, mesh->dims + mesh->ndim) < 2) return false;
    location_order_nodes(node, steps_of(mesh->ndim, mesh->dims), n, corners);
    *seen = {corners, n, set_function<shape_deriv_func>(mesh, 0, SLOT_SHAPE_DERIV)};
    return *std::max_element(corners, corners + n) < mesh->nnodes;
}

auto corners_by_coords(const mesh_info *mesh, const derived_cell &cell)
{
    return [mesh, &cell](float *xyz) {
        for (int k = 0; k < cell.nnodes; ++k)
            place_node(mesh->coords, mesh->nspace, cell.nodes[k], xyz + 3 * k);
    };
}

template <typename Axes> auto corners_by_axes(const mesh_info *mesh, const derived_cell &cell)
{
    return [mesh, &cell](float *xyz) {
        const Axes axes(mesh->ndim, mesh->dims, mesh->nspace, mesh->points);
        for (int k = 0; k < cell.nnodes; ++k) {
            const lattice_position at = split_node(cell.nodes[k], mesh->ndim, mesh->dims);
            for (int d = 0; d < 3; ++d, ++xyz)
                *xyz = d >= mesh->nspace ? 0 : d < mesh->ndim ? axes.coordinate(d, at.at[d]) : axes.points[d];
        }
    };
}

template <typename Corners>
int derive_in_lattice_solid(mesh_info *mesh, bool (*fetch)(mesh_info *), Corners corners_of, qx_long node,
                            const node_data &of, const float *uvw, float *out)
{
    qx_long corners[corners_in_space];
    derived_cell seen;
    if (!see_lattice_cell(mesh, node, corners_in_space, corners, &seen) || !fetch(mesh)) return 0;
    return derive_in_solid(seen, of, uvw, out, corners_of(mesh, seen));
}

template <typename Corners>
int derive_in_lattice_plane(mesh_info *mesh, bool (*fetch)(mesh_info *), Corners corners_of, qx_long node,
                            const node_data &of, const float *uvw, float *out, float *frame, float *local_xyz)
{
    qx_long corners[corners_in_plane];
    derived_cell seen;
    if (!see_lattice_cell(mesh, node, corners_in_plane, corners, &seen) || !fetch(mesh)) return 0;
    return derive_in_surface(seen, of, uvw, out, frame, local_xyz, corners_of(mesh, seen));
}

} // namespace

// ---- kernels -----------------------------------------------------------------------------------------------

int UTILgrad_struct_2d(const qx_long *dims, int nspace, const float *coords, const void *data, int data_type,
                       float *out)
{
    if (nspace < 2 || nspace > 3) return 0;
    return derive_curvilinear<grad_operator>(2, dims, nspace, coords, data, data_type,
                                             kernel_of<through_plane_metric>(), out);
}

int UTILgrad_unif_2d(const qx_long *dims, int nspace, const float *points, const void *data, int data_type,
                     float *out)
{
    return derive_uniform<grad_operator>(2, dims, nspace, points, data, data_type, out);
}

int UTILgrad_rect_2d(const qx_long *dims, int nspace, const float *points, const void *data, int data_type,
                     float *out)
{
    return derive_rectilinear<grad_operator>(2, dims, nspace, points, data, data_type, out);
}

#define EXPORT_KERNELS(op)                                                                              \
    int UTIL##op##_struct_3d(const qx_long *dims, const float *coords, const void *data, int data_type, \
                             float *out)                                                                \
    {                                                                                                   \
        return derive_curvilinear<op##_operator>(3, dims, 3, coords, data, data_type,                   \
                                                 kernel_of<through_metric<op##_operator>>(), out);      \
    }                                                                                                   \
    int UTIL##op##_unif_3d(const qx_long *dims, const float *points, const void *data, int data_type,   \
                           float *out)                                                                  \
    {                                                                                                   \
        return derive_uniform<op##_operator>(3, dims, 3, points, data, data_type, out);                 \
    }                                                                                                   \
    int UTIL##op##_rect_3d(const qx_long *dims, const float *points, const void *data, int data_type,   \
                           float *out)                                                                  \
    {                                                                                                   \
        return derive_rectilinear<op##_operator>(3, dims, 3, points, data, data_type, out);             \
    }
EXPORT_KERNELS(grad)
EXPORT_KERNELS(curl)
EXPORT_KERNELS(div)
#undef EXPORT_KERNELS

// ---- whole meshes ------------------------------------------------------------------------------------------

// Only the curvilinear gradient gives its kernel's refusal or stop on. The other forms go on to the null pass
// and give 1: so hosts have always seen it.

int UTILgrad_struct(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                    const void *null_value, float *out)
{
    if (!accepts<grad_operator>(mesh, veclen, fetch_coords)) return 0;
    const int done = mesh->ndim == 2
                         ? UTILgrad_struct_2d(mesh->dims, mesh->nspace, mesh->coords, data, data_type, out)
                         : UTILgrad_struct_3d(mesh->dims, mesh->coords, data, data_type, out);
    if (done == 0) return 0;
    return pass_null<grad_operator>(mesh, {data, veclen, data_type, null_flag, null_value}, out);
}

#define EXPORT_COMPACT_GRAD(kind)                                                                     \
    int UTILgrad_##kind(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,  \
                        const void *null_value, float *out)                                           \
    {                                                                                                 \
        if (!accepts<grad_operator>(mesh, veclen, fetch_points)) return 0;                            \
        if (mesh->ndim == 2)                                                                          \
            UTILgrad_##kind##_2d(mesh->dims, mesh->nspace, mesh->points, data, data_type, out);       \
        else                                                                                          \
            UTILgrad_##kind##_3d(mesh->dims, mesh->points, data, data_type, out);                     \
        return pass_null<grad_operator>(mesh, {data, veclen, data_type, null_flag, null_value}, out); \
    }
EXPORT_COMPACT_GRAD(unif)
EXPORT_COMPACT_GRAD(rect)
#undef EXPORT_COMPACT_GRAD

#define EXPORT_FORM(op, kind, field)                                                                   \
    int UTIL##op##_##kind(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag, \
                          const void *null_value, float *out)                                          \
    {                                                                                                  \
        if (!accepts<op##_operator>(mesh, veclen, fetch_##field)) return 0;                            \
        UTIL##op##_##kind##_3d(mesh->dims, mesh->field, data, data_type, out);                         \
        return pass_null<op##_operator>(mesh, {data, veclen, data_type, null_flag, null_value}, out);  \
    }
EXPORT_FORM(curl, struct, coords)
EXPORT_FORM(curl, unif, points)
EXPORT_FORM(curl, rect, points)
EXPORT_FORM(div, struct, coords)
EXPORT_FORM(div, unif, points)
EXPORT_FORM(div, rect, points)
#undef EXPORT_FORM

// ---- points of cells ---------------------------------------------------------------------------------------

#define EXPORT_POINT_FORMS(kind, fetch, corners)                                                          \
    int UTILderiv_##kind##_3d(mesh_info *mesh, qx_long node, int veclen, const void *data, int data_type, \
                              int null_flag, const void *null_value, const float *uvw, float *out)        \
    {                                                                                                     \
        return derive_in_lattice_solid(mesh, fetch, corners, node,                                        \
                                       {veclen, data, data_type, null_flag, null_value}, uvw, out);       \
    }                                                                                                     \
    int UTILderiv_##kind##_2d(mesh_info *mesh, qx_long node, int veclen, const void *data, int data_type, \
                              int null_flag, const void *null_value, const float *uvw, float *out,        \
                              float *frame, float *local_xyz)                                             \
    {                                                                                                     \
        return derive_in_lattice_plane(mesh, fetch, corners, node,                                        \
                                       {veclen, data, data_type, null_flag, null_value}, uvw, out, frame, \
                                       local_xyz);                                                        \
    }
EXPORT_POINT_FORMS(struct, fetch_coords, corners_by_coords)
EXPORT_POINT_FORMS(unif, fetch_points, corners_by_axes<uniform_axes>)
EXPORT_POINT_FORMS(rect, fetch_points, corners_by_axes<rectilinear_axes>)
#undef EXPORT_POINT_FORMS
