// Sampling at located points.
#include "cell_map.hpp"
#include "locate.hpp"
#include "progress.hpp"
#include "report.hpp"
#include "values.hpp"
#include "workers.hpp"

#include "mod_util/type_switch.hpp"

#include <skoklana/host/tool.h>

#include <algorithm>

namespace {

void weigh(const field_cells &cells, const host_places &places, qx_long i, weighted_nodes *out)
{
    cell_view cell;
    double weights[most_cell_nodes];
    cells.look_up(places.cell[i], &cell);
    with_shape(cell.kind, cell.order, [&](auto shape) {
        decltype(shape)::values(places.uvw + 3 * i, weights);
        return 0;
    });
    out->clear();
    for (int k = 0; k < cell.nnodes; ++k)
        out->add(cell.nodes[k], weights[k]);
    out->make_sum_1();
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

// Asks for the data of a point that is to be sampled. Only lattices are worth it: where points come by block, what their
// cells hold is near already.
template <typename T> void ask_for_data(const field_cells &cells, const host_array &of, qx_long cell)
{
    cell_view view;
    cells.look_up(cell, &view);
    for (int k = 0; k < view.nnodes; k += 2) // two neighbours along axis 0
        __builtin_prefetch(static_cast<const T *>(of.data) + view.nodes[k] * of.veclen);
}

// Writes rows first to end - 1 of the order in which points lie near each other, and whether they have values.
template <typename T, typename WriteRow>
int sample_range(const located_points &places, qx_long first, qx_long end, const host_array &of, T *out,
                 unsigned char *mask, WriteRow write)
{
    constexpr qx_long points_a_check = 4096, ahead = 16;
    const field_cells cells(places.field);
    for (qx_long turn = first; turn < end; ++turn) {
        if ((turn - first) % points_a_check == 0 && is_stopped(turn - first, end - first, "sampling"))
            return HOST_STOPPED;
        if (turn + ahead < end) {
            const qx_long next = places.in_order(turn + ahead);
            __builtin_prefetch(places.cell + next);
            __builtin_prefetch(places.uvw + 3 * next);
            __builtin_prefetch(out + next * of.veclen, 1);
            if (places.order == nullptr && places.cell[next] >= 0)
                ask_for_data<T>(cells, of, places.cell[next]);
        }
        const qx_long i = places.in_order(turn);
        T *row = out + i * of.veclen;
        const bool has_value = write(cells, places, of, i, row);
        if (!has_value) std::fill_n(row, of.veclen, T{0});
        if (mask != nullptr) mask[i] = has_value ? 1 : 0;
    }
    return HOST_DONE;
}

template <typename T, typename WriteRow>
int sample_all(const host_places &given, const host_array &of, T *out, unsigned char *mask, WriteRow write)
{
    const located_points &places = static_cast<const located_points &>(given);
    const qx_long npoints = places.npoints;
    const int nworkers = workers_for(places.threads, npoints);
    if (nworkers == 1) return sample_range(places, 0, npoints, of, out, mask, write);
    int done[most_workers];
    auto sample_share = [&](int k) {
        done[k] = sample_range(places, share_begin(npoints, k, nworkers),
                               share_begin(npoints, k + 1, nworkers), of, out, mask, write);
    };
    run_workers(nworkers, sample_share);
    return *std::min_element(done, done + nworkers); // HOST_STOPPED is the least
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
