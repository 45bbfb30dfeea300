// Cell data at the nodes: for each node the mean over the cells around it, in double.
#include "cells.hpp"
#include "lists.hpp"
#include "options.hpp"
#include "progress.hpp"
#include "report.hpp"
#include "values.hpp"

#include "mod_util/type_switch.hpp"

#include <skoklana_host.h>

#include <skoklana/host/tool.h>

#include <algorithm>

namespace {

constexpr qx_long cells_a_mean_check = 16384;
constexpr int most_mean_nodes = 20;
// A node this near to the middle of a cell stands in it.
constexpr double least_distance = 1e-30;

struct mean_request {
    host_field *field;
    mesh_info *mesh;
    const host_array *values;
    int weight;
    unsigned char *mask; // may be null
};

// The weight of a cell at each of its nodes.
void weigh_nodes_of(const mean_request &asked, const cell_view &cell, double *weights)
{
    std::fill_n(weights, cell.nnodes, 1.0);
    if (asked.weight == HOST_WEIGHT_NONE) return;
    const int nspace = asked.mesh->nspace;
    const float *coords = asked.mesh->coords;
    double middle[3] = {};
    for (int k = 0; k < cell.nnodes; ++k)
        for (int d = 0; d < nspace; ++d)
            middle[d] += coords[cell.nodes[k] * nspace + d] / static_cast<double>(cell.nnodes);
    for (int k = 0; k < cell.nnodes; ++k) {
        double square = 0;
        for (int d = 0; d < nspace; ++d) {
            const double off = coords[cell.nodes[k] * nspace + d] - middle[d];
            square += off * off;
        }
        weights[k] = 1 / std::max(std::sqrt(square), least_distance);
    }
}

template <typename T> int sum_cells(const mean_request &asked, double *sums, double *weights)
{
    const field_cells cells(asked.field);
    const int veclen = asked.values->veclen;
    const T *data = static_cast<const T *>(asked.values->data);
    for (qx_long c = 0; c < cells.size(); ++c) {
        if (c % cells_a_mean_check == 0 && is_stopped(c, cells.size(), "means at nodes")) return HOST_STOPPED;
        if (is_null_row<T>(*asked.values, c)) continue;
        cell_view cell;
        double weight[most_mean_nodes];
        cells.look_up(c, &cell);
        weigh_nodes_of(asked, cell, weight);
        for (int k = 0; k < cell.nnodes; ++k) {
            const qx_long node = cell.nodes[k];
            weights[node] += weight[k];
            for (int e = 0; e < veclen; ++e)
                sums[node * veclen + e] += weight[k] * static_cast<double>(data[c * veclen + e]);
        }
    }
    return HOST_DONE;
}

template <typename T> int carry_to_nodes(const mean_request &asked, T *out)
{
    const qx_long n = asked.mesh->nnodes;
    const int veclen = asked.values->veclen;
    const list_of<double> sums(allocate_zeroed<double>(n * veclen)), weights(allocate_zeroed<double>(n));
    if (sums == nullptr || weights == nullptr)
        return host_fail("host_cell_to_node: no memory for %lld nodes", static_cast<long long>(n));
    const int done = sum_cells<T>(asked, sums.get(), weights.get());
    if (done != HOST_DONE) return done;
    for (qx_long node = 0; node < n; ++node) {
        const bool has_value = weights[node] > 0;
        for (int e = 0; e < veclen; ++e)
            out[node * veclen + e] =
                has_value ? rounded_to<T>(sums[node * veclen + e] / weights[node]) : T{0};
        if (asked.mask != nullptr) asked.mask[node] = has_value ? 1 : 0;
    }
    return HOST_DONE;
}

} // namespace

extern "C" int host_cell_to_node(host_field *field, const host_array *values,
                                 const host_cell_to_node_options *options, void *out, unsigned char *mask)
{
    if (field == nullptr) return host_fail("host_cell_to_node: field is NULL");
    if (values == nullptr || values->data == nullptr) return host_fail("host_cell_to_node: values is NULL");
    if (values->veclen < 1)
        return host_fail("host_cell_to_node: a row has %d elements, but it has at least 1", values->veclen);
    if (DTYPEtype_size(values->type) == 0)
        return host_fail("host_cell_to_node: %d is no element type", values->type);
    if (out == nullptr) return host_fail("host_cell_to_node: out is NULL");
    const host_cell_to_node_options how = settled_options(options);
    if (how.weight != HOST_WEIGHT_NONE && how.weight != HOST_WEIGHT_DISTANCE)
        return host_fail("host_cell_to_node: there is no weight %d", how.weight);
    mesh_info *mesh = host_mesh(field);
    if (mesh == nullptr) return HOST_FAILED;
    if (how.weight != HOST_WEIGHT_NONE && mesh->coords == nullptr &&
        mesh->get_coords(mesh, &mesh->coords) != 1)
        return HOST_FAILED;
    return with_dtype_silent(values->type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        return carry_to_nodes(mean_request{field, mesh, values, how.weight, mask}, static_cast<T *>(out));
    });
}
