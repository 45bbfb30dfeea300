// Finding the cell that holds a point: what single searches and searches for many points share.
#pragma once

#include "cell_test.hpp"

#include <skoklana/locate.h>

#include <cmath>

inline bool is_place(const float *point)
{
    return std::isfinite(point[0]) && std::isfinite(point[1]) && std::isfinite(point[2]);
}

// ---- cell sets and curvilinear meshes: the list of one block ---------------------------------------------------

// A table as a search sees it.
struct block_finder {
    const blk_tbl *table;
    int naxes;
    float extent[3]; // of the table's box
    float tol;       // how far beyond that box, or a cell's, a point may lie

    explicit block_finder(const blk_tbl *table_) : table(table_), naxes(std::min(table_->nspace, 3))
    {
        for (int d = 0; d < 3; ++d)
            extent[d] = table->max_ext[d] - table->min_ext[d];
        // All three axes count, whatever the mesh has.
        tol = static_cast<float>(1e-6 * static_cast<double>(extent[0] + extent[1] + extent[2]));
    }

    bool reaches(const float *point) const
    {
        for (int d = 0; d < naxes; ++d)
            if (table->min_ext[d] - tol > point[d] || point[d] > table->max_ext[d] + tol) return false;
        return is_place(point);
    }

    // The block of a point that the table reaches, counted as in the build; -1: past all blocks, which happens
    // where one axis is shorter than the tolerance.
    qx_long block_of(const float *point) const
    {
        qx_long at[3] = {0, 0, 0};
        for (int d = 0; d < naxes; ++d) {
            if (!(static_cast<double>(extent[d]) > 1e-30)) continue;
            const float position =
                (point[d] - table->min_ext[d]) * static_cast<float>(table->nblk - 1) / extent[d];
            if (!(std::fabs(position) < 1e9f)) return -1;
            at[d] = static_cast<qx_long>(position);
        }
        const qx_long nblk = table->nblk, block = (at[2] * nblk + at[1]) * nblk + at[0];
        return block >= 0 && block < table->nblocks ? block : -1;
    }
};

// Tries the cells of a list in its order; try_cell(cell) gives more than 0 for the one that holds the point.
// -1 for a list with a bad entry. cell: the last one tried.
template <typename Table, typename TryCell>
FORCE_INLINE int search_list(const Table *table, qx_long entry, qx_long *cell, TryCell try_cell)
{
    for (; entry != 0; entry = table->next_list[entry]) {
        *cell = table->cell_list[entry];
        if (*cell < 0) {
            *cell = -1;
            return -1;
        }
        if (try_cell(*cell) > 0) return 1;
    }
    return 0;
}

// The same with the test that the library has itself, without a call for each cell. What a search waits for is
// memory: the cells of a list are looked at in groups, and what the tests of a group will read is asked for
// before the first of them.
template <int Nspace, typename Cells>
int search_cells(const Cells &cells, const float *coords, const blk_tbl *table, qx_long entry,
                 const float *point, double tol, qx_long *cell, float *uvw)
{
    const box_window window(point, tol);
    constexpr int most = 16; // a list has some tens of cells, and half of the last group is asked for in vain
    qx_long group[most];
    while (entry != 0) {
        int n = 0;
        for (; n < most && entry != 0; entry = table->next_list[entry], ++n) {
            group[n] = table->cell_list[entry];
            cells.template ask_for_cell<Nspace>(coords, group[n]);
        }
        for (int k = 0; k < n; ++k) {
            *cell = group[k];
            if (*cell < 0) {
                *cell = -1;
                return -1;
            }
            cell_view view;
            if (!cells.look_up(*cell, &view)) continue;
            const lane_box box = box_of_nodes<Nspace>(coords, view.nodes, view.nnodes);
            if (window.misses(box) || !box_holds(box, point, tol)) continue;
            if (map_into_cell<Nspace>(coords, view, point, uvw) > 0) return 1;
        }
    }
    return 0;
}

// ---- compact meshes ---------------------------------------------------------------------------------------------

// From the parameters along the axes to those of the cell, whose nodes are numbered in location order.
inline void turn_to_cell(int ndim, float *uvw)
{
    if (ndim == 3) {
        std::swap(uvw[0], uvw[1]);
        uvw[2] = -uvw[2];
    } else if (ndim == 1 || ndim == 2) {
        uvw[0] = -uvw[0];
    }
}

// With doubles; false also where one of them is NaN.
inline bool is_within(float low, float x, float high, double tol)
{
    return high + tol >= x && x >= low - tol;
}

// What a compact mesh has beyond its computational axes: the mesh is flat there.
inline bool is_within_flat_axes(const mesh_info *mesh, qx_long nrows, const float *point, double tol)
{
    for (int d = mesh->ndim; d < mesh->nspace; ++d) {
        const float low = mesh->points[d], high = nrows > 1 ? mesh->points[mesh->nspace + d] : low;
        if (!is_within(low, point[d], high, tol)) return false;
    }
    return true;
}

constexpr double compact_tol = 1e-30;

// Finds cells of a uniform mesh by arithmetic. Steps are worked out once.
struct uniform_finder {
    const mesh_info *mesh;
    float step[3];

    explicit uniform_finder(const mesh_info *mesh_) : mesh(mesh_), step{0, 0, 0}
    {
        for (int d = 0; d < mesh->ndim; ++d) {
            const float length = mesh->points[mesh->nspace + d] - mesh->points[d];
            if (mesh->dims[d] != 1)
                step[d] = static_cast<float>(length / static_cast<double>(mesh->dims[d] - 1));
        }
    }

    FORCE_INLINE int find(const float *point, qx_long *cell, float *uvw) const
    {
        *cell = -1;
        uvw[0] = uvw[1] = uvw[2] = 0;
        qx_long number = 0, stride = 1;
        for (int d = 0; d < mesh->ndim; stride *= mesh->dims[d], ++d) {
            const float first = mesh->points[d], last = mesh->points[mesh->nspace + d];
            if (!is_within(first, point[d], last, compact_tol)) return 0;
            if (first == last || mesh->dims[d] <= 1) continue;
            const float t = (point[d] - first) / step[d];
            const qx_long highest = mesh->dims[d] - 2;
            const qx_long at = !(t > 0)    ? 0
                               : t < 1e18f ? std::min(static_cast<qx_long>(t), highest)
                                           : highest;
            uvw[d] = 2 * (t - static_cast<float>(at)) - 1;
            number += at * stride;
        }
        if (!is_within_flat_axes(mesh, 2, point, compact_tol)) return 0;
        *cell = number;
        turn_to_cell(mesh->ndim, uvw);
        return 1;
    }
};

// Finds cells of a rectilinear mesh. On each axis the first interval that holds the value counts, whatever
// the order of the axis's positions.
struct rectilinear_finder {
    const mesh_info *mesh;
    qx_long nrows;
    const float *sorted[3]; // an axis's positions alone, where they are known to ascend; else null

    explicit rectilinear_finder(const mesh_info *mesh_) : mesh(mesh_), nrows(0), sorted{}
    {
        for (int d = 0; d < mesh->ndim; ++d)
            nrows += mesh->dims[d];
    }

    FORCE_INLINE int find(const float *point, qx_long *cell, float *uvw) const
    {
        return find_by(point, cell, uvw, [this](int d, const float *x, qx_long n, float p) {
            return sorted[d] != nullptr ? lookup(sorted[d], n, p) : scan(x, n, mesh->nspace, p);
        });
    }

    // interval_of(d, x, n, p): the first interval of axis d that holds p, n - 1 if none; x the axis's n
    // positions, in steps of nspace.
    template <typename Interval>
    FORCE_INLINE int find_by(const float *point, qx_long *cell, float *uvw, Interval interval_of) const
    {
        *cell = -1;
        uvw[0] = uvw[1] = uvw[2] = 0;
        qx_long number = 0, stride = 1;
        const float *row = mesh->points;
        for (int d = 0; d < mesh->ndim; ++d) {
            const qx_long n = mesh->dims[d];
            const float *x = row + d, p = point[d];
            if (n < 1 || !is_within(x[0], p, x[(n - 1) * mesh->nspace], compact_tol)) return 0;
            const qx_long interval = interval_of(d, x, n, p);
            if (interval < n - 1) {
                const float low = x[interval * mesh->nspace], high = x[(interval + 1) * mesh->nspace];
                uvw[d] = 2 * (p - low) / (high - low) - 1;
            }
            number += interval * stride;
            stride *= n;
            row += n * mesh->nspace;
        }
        if (!is_within_flat_axes(mesh, nrows, point, compact_tol)) return 0;
        *cell = number;
        turn_to_cell(mesh->ndim, uvw);
        return 1;
    }

    // Whether the positions of an axis ascend, which NaN does to nothing.
    static bool ascends(const float *x, qx_long n, int stride)
    {
        if (n > 0 && !(x[0] == x[0])) return false;
        for (qx_long i = 1; i < n; ++i)
            if (!(x[(i - 1) * stride] <= x[i * stride])) return false;
        return true;
    }

    // The first interval that holds p; n - 1: none. The upper end is looked at first: on most axes that fails
    // up to the interval that is sought.
    static FORCE_INLINE qx_long scan(const float *x, qx_long n, int stride, float p)
    {
        for (qx_long i = 0; i < n - 1; ++i)
            if (x[(i + 1) * stride] >= p && p >= x[i * stride]) return i;
        return n - 1;
    }

    // The same on ascending positions, from an interval that may be near the one sought.
    static FORCE_INLINE qx_long walk(const float *x, qx_long n, int stride, float p, qx_long from)
    {
        if (n < 2 || !(x[0] <= p)) return n - 1;
        qx_long i = from;
        while (i > 0 && !(x[i * stride] < p))
            --i;
        while (i < n - 1 && x[(i + 1) * stride] < p)
            ++i;
        return i;
    }

  private:
    // The same on ascending positions that stand one after another: the interval that ends at the first position from x[1] on that is not
    // below p. Every interval before it ends below p; its own start is below p unless that is x[0].
    static FORCE_INLINE qx_long lookup(const float *x, qx_long n, float p)
    {
        if (n < 2 || !(x[0] <= p)) return n - 1;
        const float *first = x + 1;
        qx_long rest = n - 1;
        while (rest > 1) {
            const qx_long half = rest / 2;
            first += first[half - 1] < p ? half : 0;
            rest -= half;
        }
        const qx_long end = first - x + (*first < p ? 1 : 0);
        return end - 1;
    }
};
