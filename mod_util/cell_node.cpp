// Data of cells carried to their nodes, as a mean of the cells around each node, plain or by distance.
//
// Sums are held in the output itself, in the width of its type: those of narrow integers wrap round. The number
// or weight of the cells that a node has taken, and whether a null cell touches it, stand beside it and go from
// the call for one cell set to that for the next.

#include <skoklana/deriv.h>
#include <skoklana/host/fld.h>

#include "dtype.hpp"
#include "fetch.hpp"
#include "memory.hpp"
#include "rows.hpp"
#include "simd.hpp"

#include <algorithm>
#include <cmath>

namespace {

// ---- arithmetic of the element types -------------------------------------------------------------------------

// Through a 64-bit integer to an integer type, the low bits of it. Beyond 64 bits, and for NaN, the lowest
// integer stands in, which is what processors give.
template <typename T> T wrap_to(float value)
{
    if constexpr (std::is_integral_v<T>) {
        constexpr float beyond = 9223372036854775808.0f;
        const bool fits = value >= -beyond && value < beyond;
        return static_cast<T>(fits ? static_cast<qx_long>(value) : std::numeric_limits<qx_long>::min());
    } else {
        return static_cast<T>(value);
    }
}

template <typename T> T plain_sum(T sum, T value)
{
    if constexpr (std::is_integral_v<T>) {
        using bits = std::make_unsigned_t<std::common_type_t<T, int>>;
        return static_cast<T>(static_cast<bits>(sum) + static_cast<bits>(value));
    } else {
        return sum + value;
    }
}

template <typename T> T weighted_sum(T sum, T value, float weight)
{
    if constexpr (std::is_same_v<T, double>)
        return value * static_cast<double>(weight) + sum;
    else
        return wrap_to<T>(static_cast<float>(value) * weight + static_cast<float>(sum));
}

template <typename T> T quotient(T sum, float weight)
{
    if constexpr (std::is_same_v<T, double>)
        return sum / static_cast<double>(weight);
    else
        return wrap_to<T>(static_cast<float>(sum) / weight);
}

// ---- one set -------------------------------------------------------------------------------------------------

template <typename T> struct node_means {
    T *out; // sums, at the end means
    int veclen;
    bool has_null;
    T null;
    float *weights;       // of the cells that a node has taken
    unsigned char *marks; // 1: a null cell touches the node; null pointer: none can
};

// 1 / d^power.
struct distance_weight {
    const float *coords;
    int nspace, power;

    void centroid(const qx_long *nodes, int nnodes, float *centre) const
    {
        for (int d = 0; d < nspace; ++d) {
            float sum = 0;
            for (int k = 0; k < nnodes; ++k)
                sum += coords[nodes[k] * nspace + d];
            centre[d] = sum / static_cast<float>(nnodes);
        }
    }

    float distance(qx_long node, const float *centre) const
    {
        float sum = 0;
        for (int d = 0; d < nspace; ++d) {
            const float off = coords[node * nspace + d] - centre[d];
            sum += off * off;
        }
        return static_cast<float>(std::sqrt(static_cast<double>(sum)));
    }

    // Squares of floats are exact in double.
    float of(float distance) const
    {
        const double d = distance;
        return static_cast<float>(1.0 / (power == 1 ? d : power == 2 ? d * d : std::pow(d, power)));
    }
};

// Veclen 0: as given.
template <typename T, int Veclen>
FORCE_INLINE void add_plainly(const node_means<T> &means, const T *row, const qx_long *nodes, int nnodes)
{
    const int veclen = Veclen > 0 ? Veclen : means.veclen;
    for (int k = 0; k < nnodes; ++k) {
        T *sum = means.out + nodes[k] * veclen;
        means.weights[nodes[k]] += 1.0f;
        for (int c = 0; c < veclen; ++c)
            sum[c] = plain_sum(sum[c], row[c]);
    }
}

template <typename T>
void add_by_distance(const node_means<T> &means, const T *row, const qx_long *nodes, int nnodes,
                     const distance_weight &weight)
{
    float centre[3];
    weight.centroid(nodes, nnodes, centre);
    for (int k = 0; k < nnodes; ++k) {
        const qx_long node = nodes[k];
        const float d = weight.distance(node, centre);
        T *sum = means.out + node * means.veclen;
        if (d != 0) {
            const float w = weight.of(d);
            means.weights[node] += w;
            for (int c = 0; c < means.veclen; ++c)
                sum[c] = weighted_sum(sum[c], row[c], w);
        } else {
            // The cell takes the node over, while what others gave stays in the sum.
            means.weights[node] = 1.0f;
            for (int c = 0; c < means.veclen; ++c)
                sum[c] = plain_sum(sum[c], row[c]);
        }
    }
}

// nodes_of(cell) gives the nodes of a cell.
template <typename T, typename NodesOf>
void add_cells(const node_means<T> &means, qx_long ncells, const T *rows, int nnodes,
               const distance_weight &weight, NodesOf nodes_of)
{
    with_constant<int, 1, 3>(means.veclen, [&](auto veclen) {
        const T *row = rows;
        for (qx_long cell = 0; cell < ncells; ++cell, row += means.veclen) {
            const qx_long *nodes = nodes_of(cell);
            if (means.has_null && row[0] == means.null) {
                for (int k = 0; k < nnodes; ++k)
                    means.marks[nodes[k]] = 1;
            } else if (weight.power == 0) {
                add_plainly<T, decltype(veclen)::value>(means, row, nodes, nnodes);
            } else {
                add_by_distance(means, row, nodes, nnodes, weight);
            }
        }
    });
}

template <typename T> void finish_means(const node_means<T> &means, qx_long nnodes)
{
    for (qx_long node = 0; node < nnodes; ++node) {
        T *row = means.out + node * means.veclen;
        if (means.marks != nullptr && means.marks[node] != 0)
            std::fill_n(row, means.veclen, means.null);
        else if (means.weights[node] != 0)
            for (int c = 0; c < means.veclen; ++c)
                row[c] = quotient(row[c], means.weights[node]);
    }
}

// ---- the forms -----------------------------------------------------------------------------------------------

struct cell_means_call {
    int set;
    const void *cell_data;
    int veclen, null_flag;
    const void *null_value;
    int weight_power;
    void *out;
    float **weights_slot;
    unsigned char **marks_slot;
};

float *new_weights(qx_long nnodes)
{
    return insist_zeroed<float>(nnodes, "Cannot alloc weights array");
}

unsigned char *new_marks(qx_long nnodes)
{
    return insist_zeroed<unsigned char>(nnodes, "Cannot alloc marks array");
}

template <typename T> node_means<T> begin_means(const mesh_info *mesh, const cell_means_call &call)
{
    T *out = static_cast<T *>(call.out);
    if (call.veclen > 0) std::fill_n(out, mesh->nnodes * call.veclen, T{0});
    return {out,     call.veclen, call.null_flag != 0, null_value_of<T>(call.null_flag, call.null_value),
            nullptr, nullptr};
}

template <typename T> int carry_set(mesh_info *mesh, const cell_means_call &call)
{
    const int set = call.set;
    if (set < 0 || set >= mesh->ncell_sets) return 0;
    if (!fetch_connect(mesh, set) || (call.weight_power != 0 && !fetch_coords(mesh))) return 0;
    const bool is_first = set == 0, is_last = set == mesh->ncell_sets - 1;
    node_means<T> means;
    if (is_first) {
        means = begin_means<T>(mesh, call);
        means.weights = new_weights(mesh->nnodes);
        means.marks = new_marks(mesh->nnodes);
    } else {
        means = {static_cast<T *>(call.out), call.veclen,
                 call.null_flag != 0,        null_value_of<T>(call.null_flag, call.null_value),
                 *call.weights_slot,         *call.marks_slot};
    }
    const int nnodes = mesh->cell_nnodes[set];
    const qx_long *connect = mesh->cell_connect[set];
    add_cells(means, mesh->cell_count[set], static_cast<const T *>(call.cell_data), nnodes,
              {mesh->coords, mesh->nspace, call.weight_power},
              [=](qx_long cell) { return connect + cell * nnodes; });
    if (is_last) {
        finish_means(means, mesh->nnodes);
        free(means.weights);
        free(means.marks);
    } else {
        *call.weights_slot = means.weights;
        *call.marks_slot = means.marks;
    }
    return 1;
}

template <typename T> int carry_lattice(mesh_info *mesh, const cell_means_call &call)
{
    constexpr int most_corners = 8;
    if (call.set < 0 || call.set >= mesh->ncell_sets) return 0;
    const int nnodes = mesh->cell_nnodes[call.set];
    if (call.weight_power != 0 && !fetch_coords(mesh)) return 0;
    if (nnodes < 1 || nnodes > most_corners) return 0;
    scratch work;
    node_means<T> means = begin_means<T>(mesh, call);
    means.weights = work.keep(new_weights(mesh->nnodes));
    if (means.has_null) means.marks = work.keep(new_marks(mesh->nnodes));
    qx_long nodes[most_corners] = {};
    add_cells(means, mesh->cell_count[call.set], static_cast<const T *>(call.cell_data), nnodes,
              {mesh->coords, mesh->nspace, call.weight_power}, [&](qx_long cell) -> const qx_long * {
                  get_connect_struct(mesh->ndim, mesh->dims, cell, cell + 1, nodes);
                  return nodes;
              });
    finish_means(means, mesh->nnodes);
    return 1;
}

} // namespace

int UTILcell_to_node_cells(mesh_info *mesh, int set, int data_type, const void *cell_data, int veclen,
                           int null_flag, const void *null_value, int weight_power, void *out,
                           float **weights_slot, unsigned char **marks_slot)
{
    const cell_means_call call = {set,          cell_data, veclen,       null_flag, null_value,
                                  weight_power, out,       weights_slot, marks_slot};
    return with_dtype(data_type, "UTILcell_to_node",
                      [&](auto type) { return carry_set<typename decltype(type)::type>(mesh, call); });
}

int UTILcell_to_node_struct(mesh_info *mesh, int set, int data_type, const void *cell_data, int veclen,
                            int null_flag, const void *null_value, int weight_power, void *out,
                            float **weights_slot, unsigned char **marks_slot)
{
    const cell_means_call call = {set,          cell_data, veclen,       null_flag, null_value,
                                  weight_power, out,       weights_slot, marks_slot};
    return with_dtype(data_type, "UTILcell_to_node",
                      [&](auto type) { return carry_lattice<typename decltype(type)::type>(mesh, call); });
}
