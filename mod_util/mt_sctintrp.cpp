// Scattered data on regular grids by several threads: each has a slab of the grid's last axis and goes through all
// points, so that the nodes of the grid get what they get from one thread, in the same order (scatter_slab.hpp). Point
// data is brought to double before, so that one kernel serves all types; turning the sums into elements is shared out
// like the rest.
#include <skoklana/scatter.h>
#include <skoklana/thread.h>

#include "scatter_slab.hpp"
#include "threads.hpp"

#include <cstddef>

static_assert(sizeof(thread_scat_arg) == 152 && offsetof(thread_scat_arg, data) == 32 &&
                  offsetof(thread_scat_arg, power) == 80 && offsetof(thread_scat_arg, null_value) == 120 &&
                  offsetof(thread_scat_arg, offset) == 144,
              "layout of thread_scat_arg");

static const char *const threaded_scatter_module = "UTILmt_scat_interp";

namespace {

// A share of what comes before and after the sums.
template <typename T> struct scatter_share {
    const T *from; // values to widen
    double *to;
    qx_long count;

    qx_long nnodes; // of the grid, to turn into elements
    int veclen;
    const double *acc, *weight;
    T null_value;
    T *out;
    bool any_empty;
};

template <typename T> void *widen_share(void *arg)
{
    scatter_share<T> *share = static_cast<scatter_share<T> *>(arg);
    for (qx_long i = 0; i < share->count; ++i)
        share->to[i] = static_cast<double>(share->from[i]);
    return arg;
}

template <typename T> void *finish_share(void *arg)
{
    scatter_share<T> *share = static_cast<scatter_share<T> *>(arg);
    share->any_empty = finish_scatter(share->nnodes, share->veclen, share->acc, share->weight,
                                      share->null_value, share->out);
    return arg;
}

template <typename T> struct threaded_scatter {
    int nthreads;
    qx_long nsums = 0, ngrid = 0;
    thread_scat_arg *args = nullptr;
    scatter_share<T> *shares = nullptr;
    qx_long *planes = nullptr, *values = nullptr; // of each thread
    double *widened = nullptr, *acc = nullptr, *weight = nullptr;
    thread_team threads;

    explicit threaded_scatter(int n) : nthreads(n) {}

    // memory: what the pointers above are released with. False: there is none.
    bool open(const scatter_grid &grid, scratch *memory)
    {
        qx_long nvalues = 0;
        const qx_long veclen = std::max(grid.veclen, 0);
        if (!count_grid_nodes(grid.ndim, grid.dims, &ngrid) ||
            __builtin_mul_overflow(ngrid, veclen, &nsums) ||
            __builtin_mul_overflow(std::max<qx_long>(grid.nnodes, 0), veclen, &nvalues))
            return false;
        args = memory->borrow<thread_scat_arg>(nthreads);
        shares = memory->borrow<scatter_share<T>>(nthreads);
        planes = memory->borrow<qx_long>(nthreads);
        values = memory->borrow<qx_long>(nthreads);
        widened = memory->borrow<double>(nvalues);
        acc = memory->borrow<double>(nsums);
        weight = memory->borrow<double>(ngrid);
        if (args == nullptr || shares == nullptr || planes == nullptr || values == nullptr ||
            widened == nullptr || acc == nullptr || weight == nullptr || !threads.open(nthreads))
            return false;
        expect_to_fill(acc, nsums * static_cast<qx_long>(sizeof(double)));
        expect_to_fill(weight, ngrid * static_cast<qx_long>(sizeof(double)));
        UTILmt_divide_number(nthreads, grid.dims[grid.ndim - 1], planes);
        UTILmt_divide_number(nthreads, nvalues, values);
        return true;
    }

    void widen(const T *data)
    {
        qx_long done = 0;
        for (int k = 0; k < nthreads; ++k) {
            shares[k].from = data + done;
            shares[k].to = widened + done;
            shares[k].count = values[k];
            done += values[k];
        }
        threads.run_if_worthwhile(done, nthreads, shares, widen_share<T>);
    }

    void spread(const scatter_grid &grid, const int *null_flag, T null_value)
    {
        const qx_long nplanes = std::max<qx_long>(grid.dims[grid.ndim - 1], 1);
        qx_long first = 0;
        for (int k = 0; k < nthreads; ++k) {
            thread_scat_arg &arg = args[k];
            arg.nnodes = grid.nnodes;
            arg.nspace = grid.nspace;
            arg.coords = grid.coords;
            arg.veclen = grid.veclen;
            arg.data = widened;
            arg.min_extent = grid.min_extent;
            arg.max_extent = grid.max_extent;
            arg.ndim = grid.ndim;
            arg.dims = grid.dims;
            arg.radius = grid.radius;
            arg.power = grid.power;
            arg.threshold = grid.threshold;
            arg.null_flag = null_flag;
            arg.null_value = static_cast<double>(null_value);
            arg.first = first;
            arg.last = first + planes[k] - 1;
            arg.offset = ngrid / nplanes * first;
            arg.acc = acc + arg.offset * grid.veclen;
            arg.weight = weight + arg.offset;
            first += planes[k];
        }
        threads.run(nthreads, args, thread_func_scat_data_interp);
    }

    // Whether any node was left empty.
    bool finish(T null_value, T *out)
    {
        for (int k = 0; k < nthreads; ++k) {
            const qx_long end = k + 1 < nthreads ? args[k + 1].offset : ngrid;
            shares[k].nnodes = end - args[k].offset;
            shares[k].veclen = args[k].veclen;
            shares[k].acc = args[k].acc;
            shares[k].weight = args[k].weight;
            shares[k].null_value = null_value;
            shares[k].out = out + args[k].offset * args[k].veclen;
        }
        threads.run_if_worthwhile(nsums, nthreads, shares, finish_share<T>);
        bool any_empty = false;
        for (int k = 0; k < nthreads; ++k)
            any_empty = any_empty || shares[k].any_empty;
        return any_empty;
    }
};

} // namespace

template <typename T>
static int scatter_in_threads(int nthreads, const scatter_grid &grid, const T *data, int *radius,
                              int *null_flag, T null_value, T *out)
{
    if (grid.ndim < 1 || grid.ndim > 3) {
        report_error(threaded_scatter_module, "illegal ndim");
        return 0;
    }
    // No thread without a plane.
    threaded_scatter<T> work(
        static_cast<int>(std::max<qx_long>(std::min<qx_long>(nthreads, grid.dims[grid.ndim - 1]), 1)));
    scratch memory;
    if (!work.open(grid, &memory)) {
        report_error(threaded_scatter_module, "cannot allocate arrays");
        return 0;
    }
    work.widen(data);
    mend_radius(grid.ndim, radius);
    work.spread(grid, null_flag, null_value);
    const bool any_empty = work.finish(null_value, out);
    if (*null_flag == 0) *null_flag = any_empty ? 1 : 0;
    return 1;
}

extern "C" {

void *thread_func_scat_data_interp(void *record)
{
    const thread_scat_arg &arg = *static_cast<const thread_scat_arg *>(record);
    const scatter_grid grid = {arg.nnodes, arg.nspace, arg.coords, arg.veclen, arg.min_extent, arg.max_extent,
                               arg.ndim,   arg.dims,   arg.radius, arg.power,  arg.threshold};
    const scatter_slab slab = {arg.acc, arg.weight, arg.first, arg.last, arg.offset};
    spread_points(grid, slab, arg.data, *arg.null_flag != 0, arg.null_value, [](qx_long) { return false; });
    return record;
}

int UTILmt_scat_data_interp2(int nthreads, qx_long nnodes, int nspace, const float *coords, int dtype,
                             int veclen, const void *data, const float *min_extent, const float *max_extent,
                             int ndim, const qx_long *dims, int *radius, int power, int *null_flag,
                             const void *null_value, void *out)
{
    return with_dtype_silent(dtype, [&](auto type) -> int {
        using T = typename decltype(type)::type;
        const scatter_grid grid = {nnodes, nspace, coords, veclen, min_extent,           max_extent,
                                   ndim,   dims,   radius, power,  near_threshold(power)};
        return scatter_in_threads(nthreads, grid, static_cast<const T *>(data), radius, null_flag,
                                  null_value_of<T>(1, null_value), static_cast<T *>(out));
    });
}

} // extern "C"
