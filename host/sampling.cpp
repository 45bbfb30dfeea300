// Sampling at located points: values by the weights of a cell's nodes, in double.
//
// A value is that of the node with the largest weight plus the weighted differences of the others from it: a
// constant comes back as it is, whatever its type, and so does the value at a node. Nodes without weight take no
// part, null or not.
#include "cell_map.hpp"
#include "locate.hpp"
#include "progress.hpp"
#include "report.hpp"

#include "mod_util/type_switch.hpp"

#include <skoklana/host/tool.h>

#include <cstring>
#include <limits>
#include <type_traits>

namespace {

// Less than this is the rounding of a place.
constexpr double least_weight = 1e-9;

// The nodes of a point's cell that take part.
struct weighted_nodes {
    int count, largest;
    qx_long node[most_cell_nodes];
    double weight[most_cell_nodes];
};

void weigh(const field_cells &cells, const host_places &places, qx_long i, weighted_nodes *out)
{
    cell_view cell;
    double weights[most_cell_nodes];
    cells.look_up(places.cell[i], &cell);
    with_shape(cell.kind, cell.order, [&](auto shape) {
        decltype(shape)::values(places.uvw + 3 * i, weights);
        return 0;
    });
    out->count = out->largest = 0;
    double sum = 0;
    for (int k = 0; k < cell.nnodes; ++k) {
        if (std::fabs(weights[k]) < least_weight) continue;
        out->node[out->count] = cell.nodes[k];
        out->weight[out->count] = weights[k];
        if (weights[k] > out->weight[out->largest]) out->largest = out->count;
        sum += weights[k];
        ++out->count;
    }
    for (int k = 0; k < out->count; ++k)
        out->weight[k] /= sum;
}

// To the nearest whole number for integer types, and to an end of the type's range beyond it.
template <typename T> T rounded_to(double x)
{
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(x);
    } else {
        constexpr double beyond = -2.0 * static_cast<double>(std::numeric_limits<T>::min() / 2);
        const double whole = std::nearbyint(x);
        if constexpr (std::is_unsigned_v<T>) {
            if (whole >= std::numeric_limits<T>::max()) return std::numeric_limits<T>::max();
            return whole > 0 ? static_cast<T>(whole) : T{0};
        } else {
            if (whole >= beyond) return std::numeric_limits<T>::max();
            return whole >= -beyond ? static_cast<T>(whole) : std::numeric_limits<T>::min();
        }
    }
}

// One component over the nodes; rows of veclen from values on.
template <typename T> T weighted_value(const weighted_nodes &nodes, const T *values, int veclen)
{
    const T base = values[nodes.node[nodes.largest] * veclen];
    if constexpr (std::is_integral_v<T>) {
        double sum = 0;
        for (int k = 0; k < nodes.count; ++k) {
            const T value = values[nodes.node[k] * veclen];
            qx_long difference;
            if (__builtin_sub_overflow(static_cast<qx_long>(value), static_cast<qx_long>(base), &difference))
                sum += nodes.weight[k] * (static_cast<double>(value) - static_cast<double>(base));
            else
                sum += nodes.weight[k] * static_cast<double>(difference);
        }
        if constexpr (sizeof(T) < sizeof(qx_long)) {
            return rounded_to<T>(static_cast<double>(base) + sum);
        } else {
            qx_long value;
            if (!__builtin_add_overflow(base, rounded_to<qx_long>(sum), &value)) return value;
            return sum > 0 ? std::numeric_limits<T>::max() : std::numeric_limits<T>::min();
        }
    } else {
        double differences = 0, sum = 0;
        for (int k = 0; k < nodes.count; ++k) {
            const double value = static_cast<double>(values[nodes.node[k] * veclen]);
            differences += nodes.weight[k] * (value - static_cast<double>(base));
            sum += nodes.weight[k] * value;
        }
        const double value = static_cast<double>(base) + differences;
        return static_cast<T>(std::isfinite(value) ? value
                                                   : sum); // differences may be too large for a double
    }
}

template <typename T> bool is_null_row(const host_array &of, qx_long row)
{
    if (of.null == nullptr) return false;
    T null;
    memcpy(&null, of.null, sizeof null);
    return static_cast<const T *>(of.data)[row * of.veclen] == null;
}

template <typename T> bool touches_null(const weighted_nodes &nodes, const host_array &of)
{
    for (int k = 0; k < nodes.count; ++k)
        if (is_null_row<T>(of, nodes.node[k])) return true;
    return false;
}

template <typename T>
bool sample_row(const field_cells &cells, const host_places &places, const host_array &of, qx_long i, T *row)
{
    if (places.cell[i] < 0) return false;
    weighted_nodes nodes;
    weigh(cells, places, i, &nodes);
    if (nodes.count == 0 || touches_null<T>(nodes, of)) return false;
    for (int c = 0; c < of.veclen; ++c)
        row[c] = weighted_value<T>(nodes, static_cast<const T *>(of.data) + c, of.veclen);
    return true;
}

template <typename T>
bool copy_row(const field_cells &, const host_places &places, const host_array &of, qx_long i, T *row)
{
    const qx_long cell = places.cell[i];
    if (cell < 0 || is_null_row<T>(of, cell)) return false;
    std::copy_n(static_cast<const T *>(of.data) + cell * of.veclen, of.veclen, row);
    return true;
}

// Writes each row, and whether it has a value, in the order in which points lie near each other.
template <typename T, typename WriteRow>
int sample_all(const host_places &given, const host_array &of, T *out, unsigned char *mask, WriteRow write)
{
    constexpr qx_long points_a_check = 4096, ahead = 16;
    const located_points &places = static_cast<const located_points &>(given);
    const field_cells cells(places.field);
    const qx_long npoints = places.npoints;
    for (qx_long turn = 0; turn < npoints; ++turn) {
        if (turn % points_a_check == 0 && is_stopped(turn, npoints, "sampling")) return HOST_STOPPED;
        if (turn + ahead < npoints) {
            const qx_long next = places.in_order(turn + ahead);
            __builtin_prefetch(places.cell + next);
            __builtin_prefetch(places.uvw + 3 * next);
            __builtin_prefetch(out + next * of.veclen, 1);
        }
        const qx_long i = places.in_order(turn);
        T *row = out + i * of.veclen;
        const bool has_value = write(cells, places, of, i, row);
        if (!has_value) std::fill_n(row, of.veclen, T{0});
        if (mask != nullptr) mask[i] = has_value ? 1 : 0;
    }
    return HOST_DONE;
}

bool is_sound(const char *call, const host_places *places, const host_array *values, const void *out)
{
    if (places == nullptr) return host_fail("%s: places is NULL", call) != 0;
    if (values == nullptr || values->data == nullptr) return host_fail("%s: values is NULL", call) != 0;
    if (values->veclen < 1)
        return host_fail("%s: a row has %d elements, but it has at least 1", call, values->veclen) != 0;
    if (DTYPEtype_size(values->type) == 0)
        return host_fail("%s: %d is no element type", call, values->type) != 0;
    return (out != nullptr || places->npoints == 0) || host_fail("%s: out is NULL", call) != 0;
}

} // namespace

extern "C" {

int host_sample_nodes(const host_places *places, const host_array *values, void *out, unsigned char *mask)
{
    if (!is_sound("host_sample_nodes", places, values, out)) return HOST_FAILED;
    return with_dtype_silent(values->type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        return sample_all(*places, *values, static_cast<T *>(out), mask, sample_row<T>);
    });
}

int host_sample_cells(const host_places *places, const host_array *values, void *out, unsigned char *mask)
{
    if (!is_sound("host_sample_cells", places, values, out)) return HOST_FAILED;
    return with_dtype_silent(values->type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        return sample_all(*places, *values, static_cast<T *>(out), mask, copy_row<T>);
    });
}

int host_place_weights(const host_places *places, qx_long point, qx_long *nodes, double *weights)
{
    if (point < 0 || point >= places->npoints || places->cell[point] < 0) return 0;
    weighted_nodes found;
    weigh(field_cells(field_of(places)), *places, point, &found);
    std::copy_n(found.node, found.count, nodes);
    std::copy_n(found.weight, found.count, weights);
    return found.count;
}

} // extern "C"
