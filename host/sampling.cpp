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

// How many points ahead of its turn a point's cell is looked up.
constexpr int ahead = 16;

void weigh(const cell_view &cell, const double *uvw, weighted_nodes *out)
{
    double weights[most_cell_nodes];
    with_shape(cell.kind, cell.order, [&](auto shape) {
        decltype(shape)::values(uvw, weights);
        return 0;
    });
    out->clear();
    out->add_all(cell.nnodes, cell.nodes, weights);
    out->make_sum_1();
}

// Rows of nodes, weighed. Of lattices the cells are looked up ahead, and their data is asked for; where points come by
// block, what their cells hold is near already.
template <typename T> class node_rows {
  public:
    node_rows(const located_points &places_, const host_array &of_)
        : places(places_), of(of_), cells(places_.field), looks_ahead(places_.order == nullptr)
    {
    }

    void expect(qx_long i, int slot)
    {
        if (!looks_ahead || places.cell[i] < 0) return;
        cell_view &view = expected[slot];
        cells.look_up(places.cell[i], &view);
        for (int k = 0; k < view.nnodes; k += 2) // two neighbours along axis 0
            __builtin_prefetch(static_cast<const T *>(of.data) + view.nodes[k] * of.veclen);
    }

    bool write(qx_long i, int slot, T *row)
    {
        if (places.cell[i] < 0) return false;
        cell_view *view = &expected[slot];
        if (!looks_ahead) cells.look_up(places.cell[i], view);
        weighted_nodes nodes;
        weigh(*view, places.uvw + 3 * i, &nodes);
        if (nodes.count == 0 || touches_null<T>(nodes, of)) return false;
        for (int c = 0; c < of.veclen; ++c)
            row[c] = weighted_value<T>(nodes, static_cast<const T *>(of.data) + c, of.veclen);
        return true;
    }

  private:
    const located_points &places;
    const host_array &of;
    const field_cells cells;
    const bool looks_ahead;
    cell_view expected[ahead];
};

// Rows of cells, as they are.
template <typename T> class cell_rows {
  public:
    cell_rows(const located_points &places_, const host_array &of_) : places(places_), of(of_) {}

    void expect(qx_long i, int)
    {
        if (places.cell[i] >= 0) __builtin_prefetch(row_of(places.cell[i]));
    }

    bool write(qx_long i, int, T *row)
    {
        const qx_long cell = places.cell[i];
        if (cell < 0 || is_null_row<T>(of, cell)) return false;
        std::copy_n(row_of(cell), of.veclen, row);
        return true;
    }

  private:
    const T *row_of(qx_long cell) const { return static_cast<const T *>(of.data) + cell * of.veclen; }

    const located_points &places;
    const host_array &of;
};

// Writes rows first to end - 1 of the order in which points lie near each other, and whether they have values.
template <typename Rows, typename T>
int sample_range(const located_points &places, qx_long first, qx_long end, const host_array &of, T *out,
                 unsigned char *mask)
{
    constexpr qx_long points_a_check = 4096;
    Rows rows(places, of);
    for (qx_long turn = first; turn < std::min(first + ahead, end); ++turn)
        rows.expect(places.in_order(turn), static_cast<int>(turn % ahead));
    for (qx_long turn = first; turn < end; ++turn) {
        if ((turn - first) % points_a_check == 0 && is_stopped(turn - first, end - first, "sampling"))
            return HOST_STOPPED;
        const int slot = static_cast<int>(turn % ahead);
        const qx_long i = places.in_order(turn);
        T *row = out + i * of.veclen;
        const bool has_value = rows.write(i, slot, row);
        if (!has_value) std::fill_n(row, of.veclen, T{0});
        if (mask != nullptr) mask[i] = has_value ? 1 : 0;
        if (turn + 2 * ahead < end) {
            const qx_long later = places.in_order(turn + 2 * ahead);
            __builtin_prefetch(places.cell + later);
            __builtin_prefetch(places.uvw + 3 * later);
            __builtin_prefetch(out + later * of.veclen, 1);
        }
        if (turn + ahead < end) rows.expect(places.in_order(turn + ahead), slot);
    }
    return HOST_DONE;
}

template <typename Rows, typename T>
int sample_all(const host_places &given, const host_array &of, T *out, unsigned char *mask)
{
    const located_points &places = static_cast<const located_points &>(given);
    const qx_long npoints = places.npoints;
    const int nworkers = workers_for(places.threads, npoints);
    if (nworkers == 1) return sample_range<Rows>(places, 0, npoints, of, out, mask);
    int done[most_workers];
    auto sample_share = [&](int k) {
        done[k] = sample_range<Rows>(places, share_begin(npoints, k, nworkers),
                                     share_begin(npoints, k + 1, nworkers), of, out, mask);
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
        return sample_all<node_rows<T>>(*places, *values, static_cast<T *>(out), mask);
    });
}

int host_sample_cells(const host_places *places, const host_array *values, void *out, unsigned char *mask)
{
    if (!is_sound("host_sample_cells", places, values, out)) return HOST_FAILED;
    return with_dtype_silent(values->type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        return sample_all<cell_rows<T>>(*places, *values, static_cast<T *>(out), mask);
    });
}

int host_place_weights(const host_places *places, qx_long point, qx_long *nodes, double *weights)
{
    if (point < 0 || point >= places->npoints || places->cell[point] < 0) return 0;
    cell_view cell;
    field_cells(field_of(places)).look_up(places->cell[point], &cell);
    weighted_nodes found;
    weigh(cell, places->uvw + 3 * point, &found);
    std::copy_n(found.node, found.count, nodes);
    std::copy_n(found.weight, found.count, weights);
    return found.count;
}

} // extern "C"
