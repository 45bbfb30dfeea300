// The null pass of the derivative operations: results are 0 wherever a null value may have entered them.

#include <skoklana/deriv.h>

#include "dtype.hpp"
#include "fetch.hpp"

#include <algorithm>

namespace {

// The first component of a row tells whether it is null. NaN is no null value: nothing equals it.
template <typename T> struct null_test {
    const T *data;
    qx_long veclen;
    T null;

    null_test(const void *data_, int veclen_, const void *null_value)
        : data(static_cast<const T *>(data_)), veclen(std::max(veclen_, 0)),
          null(null_value_of<T>(1, null_value))
    {
    }

    bool operator()(qx_long node) const { return data[node * veclen] == null; }

    bool any(qx_long nnodes) const
    {
        constexpr qx_long block = 256; // looked at without a branch
        for (qx_long first = 0; first < nnodes; first += block) {
            int found = 0;
            for (qx_long node = first; node < std::min(first + block, nnodes); ++node)
                found |= (*this)(node);
            if (found != 0) return true;
        }
        return false;
    }
};

struct row_blanker {
    float *out;
    qx_long veclen;

    void operator()(qx_long first, qx_long count) const
    {
        if (veclen > 0) std::fill_n(out + first * veclen, count * veclen, 0.0f);
    }
};

template <typename T>
void blank_cells(const mesh_info *mesh, int set, const null_test<T> &is_null, const row_blanker &blank)
{
    const int nnodes = mesh->cell_nnodes[set];
    const qx_long *nodes = mesh->cell_connect[set];
    for (qx_long c = 0; c < mesh->cell_count[set]; ++c, nodes += nnodes)
        if (std::any_of(nodes, nodes + nnodes, is_null))
            for (int k = 0; k < nnodes; ++k)
                blank(nodes[k], 1);
}

struct box_of_rows {
    qx_long n[3];

    // Rows from one below to one above row (j, k), columns first to end - 1, clamped to the lattice.
    template <typename Body> void around(qx_long first, qx_long end, qx_long j, qx_long k, Body body) const
    {
        const qx_long i0 = std::max<qx_long>(first, 0), i1 = std::min(end, n[0]);
        for (qx_long z = std::max<qx_long>(k - 1, 0); z <= std::min(k + 1, n[2] - 1); ++z)
            for (qx_long y = std::max<qx_long>(j - 1, 0); y <= std::min(j + 1, n[1] - 1); ++y)
                body((z * n[1] + y) * n[0] + i0, i1 - i0);
    }
};

// Runs of null nodes along a row share their boxes.
template <typename T>
void blank_boxes(const box_of_rows &lattice, const null_test<T> &is_null, const row_blanker &blank)
{
    const qx_long *n = lattice.n;
    for (qx_long k = 0; k < n[2]; ++k)
        for (qx_long j = 0; j < n[1]; ++j) {
            const qx_long row = (k * n[1] + j) * n[0];
            for (qx_long i = 0; i < n[0]; ++i) {
                if (!is_null(row + i)) continue;
                const qx_long first = i;
                while (i + 1 < n[0] && is_null(row + i + 1))
                    ++i;
                lattice.around(first - 1, i + 2, j, k, blank);
            }
        }
}

} // namespace

int UTILderiv_null(mesh_info *mesh, const void *data, int veclen, int data_type, const void *null_value,
                   int out_veclen, float *out)
{
    bool may_be_null = true;
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        if (!fetch_connect(mesh, set)) return 0;
        const int done = with_dtype(data_type, "UTILderiv_null", [&](auto type) -> int {
            const null_test<typename decltype(type)::type> is_null(data, veclen, null_value);
            if (set == 0) may_be_null = is_null.any(mesh->nnodes);
            if (may_be_null) blank_cells(mesh, set, is_null, {out, out_veclen});
            return 1;
        });
        if (done == 0) return 0;
    }
    return 1;
}

int UTILderiv_null_struct(mesh_info *mesh, const void *data, int veclen, int data_type,
                          const void *null_value, int out_veclen, float *out)
{
    box_of_rows lattice = {{1, 1, 1}};
    std::copy_n(mesh->dims, std::min(mesh->ndim, 3), lattice.n);
    return with_dtype(data_type, "UTILderiv_null", [&](auto type) -> int {
        const null_test<typename decltype(type)::type> is_null(data, veclen, null_value);
        if (is_null.any(mesh->nnodes)) blank_boxes(lattice, is_null, {out, out_veclen});
        return 1;
    });
}
