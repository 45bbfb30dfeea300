// Scattered data on regular grids: values spread by inverse distance, and points put into the cells they lie in.
//
// Spreading goes from point to point and not from node to node: no search is needed, and what it costs follows from
// the points and their windows, whatever the size of the grid. The kernel is in scatter_slab.hpp; here the slab is
// the whole grid.

#include <skoklana/scatter.h>

#include "scatter_slab.hpp"
#include "status.hpp"

#include <cstddef>

static_assert(sizeof(scat_interp_bins) == 80 && offsetof(scat_interp_bins, reserved_b) == 32 &&
                  offsetof(scat_interp_bins, nodes) == 48 && offsetof(scat_interp_bins, free_entry) == 72,
              "layout of scat_interp_bins");

static const char *const scatter_module = "UTILscat_interp";

template <typename T>
static int scatter_onto_grid(scatter_grid grid, const T *data, int *radius, int *null_flag, T null_value,
                             T *out)
{
    qx_long ngrid = 0, nsums = 0;
    scratch memory;
    double *acc = nullptr, *weight = nullptr;
    if (count_grid_nodes(grid.ndim, grid.dims, &ngrid) &&
        !__builtin_mul_overflow(ngrid, std::max<qx_long>(grid.veclen, 0), &nsums)) {
        acc = memory.borrow<double>(nsums);
        weight = memory.borrow<double>(ngrid);
    }
    if (acc == nullptr || weight == nullptr) {
        report_error(scatter_module, "cannot allocate arrays");
        return 0;
    }
    // Windows are all over the grid: large pages save most of the lookups of addresses.
    expect_to_fill(acc, nsums * static_cast<qx_long>(sizeof(double)));
    expect_to_fill(weight, ngrid * static_cast<qx_long>(sizeof(double)));
    mend_radius(grid.ndim, radius);
    if (grid.ndim < 1 || grid.ndim > 3) {
        report_error(scatter_module, "illegal ndim");
        return 0;
    }

    const float percent = static_cast<float>(100.0 / static_cast<double>(grid.nnodes));
    status_cadence cadence(128);
    const auto stop = [&](qx_long i) {
        return grid.ndim > 1 && cadence.due() &&
               interrupted(static_cast<int>(static_cast<float>(i) * percent));
    };
    const scatter_slab whole = {acc, weight, 0, grid.dims[grid.ndim - 1] - 1, 0};
    if (!spread_points(grid, whole, data, *null_flag != 0, null_value, stop)) return 0;
    const bool any_empty = finish_scatter(ngrid, grid.veclen, acc, weight, null_value, out);
    if (*null_flag == 0) *null_flag = any_empty ? 1 : 0;
    return 1;
}

static void release_bins(scat_interp_bins *bins)
{
    for (qx_long *list : {bins->bins, bins->nodes, bins->next})
        if (list != nullptr) ARRfree_f(list, ALLOC_AT("sctintrp"));
    free(bins);
}

// The bin of a point along an axis; -1: it is outside the box.
static qx_long bin_along(float at, float min, float max, qx_long ncells)
{
    const float extent = max - min;
    if (!(static_cast<double>(extent) > least_extent)) return 0;
    float t = (at - min) / extent;
    if (!(t >= 0 && t <= 1)) return -1;
    if (t == 1.0f) t = 0.9999f; // the far side belongs to the last bin, of axes up to some 10000
    return std::min(static_cast<qx_long>(static_cast<float>(ncells) * t), ncells - 1);
}

static void bin_points(scat_interp_bins *to, qx_long nnodes, int nspace, const float *coords,
                       const float *min_extent, const float *max_extent, const qx_long *dims)
{
    for (qx_long i = 0; i < nnodes; ++i) {
        qx_long bin = 0;
        bool inside = true;
        for (int k = to->ndim - 1; k >= 0; --k) {
            const qx_long at = bin_along(coords[i * nspace + k], min_extent[k], max_extent[k], dims[k] - 1);
            inside = inside && at >= 0;
            bin = bin * (dims[k] - 1) + at;
        }
        if (!inside) continue;
        const qx_long entry = to->free_entry++;
        to->nodes[entry] = i;
        to->next[entry] = to->bins[bin];
        to->bins[bin] = entry;
    }
}

extern "C" {

int UTILscat_data_interp2(qx_long nnodes, int nspace, const float *coords, int dtype, int veclen,
                          const void *data, const float *min_extent, const float *max_extent, int ndim,
                          const qx_long *dims, int *radius, int power, int *null_flag, const void *null_value,
                          void *out)
{
    return with_dtype(dtype, scatter_module, [&](auto type) -> int {
        using T = typename decltype(type)::type;
        const scatter_grid grid = {nnodes, nspace, coords, veclen, min_extent,           max_extent,
                                   ndim,   dims,   radius, power,  near_threshold(power)};
        return scatter_onto_grid(grid, static_cast<const T *>(data), radius, null_flag,
                                 null_value_of<T>(1, null_value), static_cast<T *>(out));
    });
}

int UTILscat_interp_alloc(qx_long nnodes, int ndim, const qx_long *dims, scat_interp_bins **handle)
{
    if (ndim < 1) return 0;
    qx_long nbins = 1;
    for (int k = 0; k < ndim; ++k)
        if (__builtin_mul_overflow(nbins, dims[k] - 1, &nbins)) return 0;
    scat_interp_bins *bins = static_cast<scat_interp_bins *>(calloc(1, sizeof(scat_interp_bins)));
    if (bins == nullptr) return 0;
    bins->nentries = nnodes + 1;
    bins->free_entry = 1;
    bins->nbins = nbins;
    bins->ndim = ndim;
    bins->nodes = alloc_numbers(bins->nentries, ALLOC_AT("sctintrp"));
    bins->next = alloc_numbers(bins->nentries, ALLOC_AT("sctintrp"));
    bins->bins = alloc_numbers(nbins, ALLOC_AT("sctintrp"));
    if (bins->nodes == nullptr || bins->next == nullptr || bins->bins == nullptr) {
        release_bins(bins);
        return 0;
    }
    std::fill_n(bins->next, bins->nentries, 0);
    std::fill_n(bins->bins, nbins, 0);
    *handle = bins;
    return 1;
}

int UTILscat_interp_init(qx_long nnodes, int nspace, const float *coords, const float *min_extent,
                         const float *max_extent, int ndim, const qx_long *dims, scat_interp_bins **handle)
{
    *handle = nullptr;
    if (nspace < ndim || ndim > 3) return 0;
    if (UTILscat_interp_alloc(nnodes, ndim, dims, handle) == 0) return 0;
    if ((*handle)->nbins > 0) bin_points(*handle, nnodes, nspace, coords, min_extent, max_extent, dims);
    return 1;
}

int UTILscat_interp_end(scat_interp_bins *handle)
{
    if (handle == nullptr) return 0;
    release_bins(handle);
    return 1;
}

} // extern "C"
