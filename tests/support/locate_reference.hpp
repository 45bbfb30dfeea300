// Block tables and point location once more, slowly: lists as vectors that grow one entry at a time, every block
// of a range looked at by its number, cells tested one by one with the mapping that stands in their row.
#pragma once

#include <skoklana.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

namespace locate_reference {

using triple = std::array<float, 3>;

struct cell {
    qx_long id;
    std::vector<qx_long> nodes;
    rev_par_func map_back;
};

inline const float *coords_of(mesh_info *mesh)
{
    float *coords = nullptr;
    mesh->get_coords(mesh, &coords);
    return coords;
}

inline rev_par_func mapping_of(const mesh_info *mesh, int set)
{
    return reinterpret_cast<rev_par_func>(mesh->cell_funcs[set * CELL_METHOD_SLOTS + SLOT_REV_PAR]);
}

// The cells of all sets in the order in which they are inserted.
inline std::vector<cell> cells_of_sets(mesh_info *mesh)
{
    std::vector<cell> cells;
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        qx_long *list = nullptr;
        mesh->get_connect(mesh, set, &list);
        for (qx_long c = 0; c < mesh->cell_count[set]; ++c, list += mesh->cell_nnodes[set])
            cells.push_back({mesh->cell_first[set] + c,
                             std::vector<qx_long>(list, list + mesh->cell_nnodes[set]),
                             mapping_of(mesh, set)});
    }
    return cells;
}

// A structured cell by the positions of its corners. On an axis of one node both sides are that node.
inline cell cell_of_lattice(const mesh_info *mesh, qx_long i, qx_long j, qx_long k)
{
    const qx_long corner[8][3] = {{1, 0, 0}, {0, 0, 0}, {0, 1, 0}, {1, 1, 0},
                                  {1, 0, 1}, {0, 0, 1}, {0, 1, 1}, {1, 1, 1}};
    const qx_long low[3] = {i, j, k};
    const auto node = [&](const qx_long *shift) {
        qx_long number = 0, step = 1;
        for (int d = 0; d < mesh->ndim; ++d) {
            number += std::min(low[d] + shift[d], mesh->dims[d] - 1) * step;
            step *= mesh->dims[d];
        }
        return number;
    };
    const qx_long none[3] = {0, 0, 0};
    cell made = {node(none), {}, mapping_of(mesh, 0)};
    for (int c = 0; c < mesh->cell_nnodes[0]; ++c)
        made.nodes.push_back(node(corner[c]));
    return made;
}

inline std::vector<cell> cells_of_lattice(const mesh_info *mesh)
{
    qx_long layers[3] = {1, 1, 1};
    for (int d = 0; d < mesh->ndim; ++d)
        layers[d] = std::max<qx_long>(mesh->dims[d], 2) - 1;
    std::vector<cell> cells;
    for (qx_long k = 0; k < layers[2]; ++k)
        for (qx_long j = 0; j < layers[1]; ++j)
            for (qx_long i = 0; i < layers[0]; ++i)
                cells.push_back(cell_of_lattice(mesh, i, j, k));
    return cells;
}

inline std::vector<cell> cells_of(mesh_info *mesh)
{
    return mesh->ndim > 0 ? cells_of_lattice(mesh) : cells_of_sets(mesh);
}

// The bounds of a cell along one axis; 0 beyond nspace.
inline void bounds(const cell &c, const float *coords, int nspace, int d, float *min, float *max)
{
    *min = *max = 0;
    if (d >= nspace) return;
    *min = *max = coords[c.nodes[0] * nspace + d];
    for (qx_long node : c.nodes) {
        *min = std::min(*min, coords[node * nspace + d]);
        *max = std::max(*max, coords[node * nspace + d]);
    }
}

// ---- the lists of a table ----------------------------------------------------------------------------------

struct lists {
    std::vector<qx_long> blocks, cells, links;
    qx_long size, grow, used = 1;

    lists(qx_long nblocks, qx_long ncells)
        : blocks(static_cast<size_t>(nblocks)), size(ncells < 1000   ? 500
                                                     : ncells < 2000 ? 1000
                                                                     : 2000),
          grow(size)
    {
        cells.resize(static_cast<size_t>(size));
        links.resize(static_cast<size_t>(size));
    }

    void add(qx_long block, qx_long cell_id, bool linked = true)
    {
        if (used >= size) {
            size += grow;
            grow = static_cast<qx_long>(static_cast<double>(grow) * 1.5);
            cells.resize(static_cast<size_t>(size));
            if (linked) links.resize(static_cast<size_t>(size));
        }
        cells[static_cast<size_t>(used)] = cell_id;
        if (linked) links[static_cast<size_t>(used)] = blocks[static_cast<size_t>(block)];
        blocks[static_cast<size_t>(block)] = used++;
    }
};

// ---- tables for points anywhere -------------------------------------------------------------------------------

struct table {
    int nblk, nspace;
    float min[3] = {0, 0, 0}, max[3] = {0, 0, 0};
    lists entries;
};

inline int blocks_an_axis(qx_long ncells)
{
    if (ncells < 1000) return 7;
    if (ncells < 2000) return 10;
    if (ncells < 20000) return 16;
    return ncells < 200000 ? 22 : 30;
}

inline qx_long power(qx_long base, int exponent)
{
    return exponent == 0 ? 1 : base * power(base, exponent - 1);
}

inline qx_long block_position(const table &t, int d, float x)
{
    const float extent = t.max[d] - t.min[d];
    if (!(static_cast<double>(extent) > 1e-30)) return 0;
    const float shifted = x - t.min[d];
    const float scaled = shifted * static_cast<float>(t.nblk - 1);
    const float position = scaled / extent;
    return static_cast<qx_long>(position);
}

// Blocks that a range names but the table does not have are left out.
inline table build(mesh_info *mesh)
{
    const int nblk = blocks_an_axis(mesh->ncells);
    table t = {nblk, mesh->nspace, {0, 0, 0}, {0, 0, 0}, lists(power(nblk, mesh->nspace), mesh->ncells)};
    for (int d = 0; d < mesh->nspace; ++d) {
        t.min[d] = mesh->min_ext[d];
        t.max[d] = mesh->max_ext[d];
    }
    const float *coords = coords_of(mesh);
    for (const cell &c : cells_of(mesh)) {
        qx_long lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
        for (int d = 0; d < mesh->nspace; ++d) {
            float min, max;
            bounds(c, coords, mesh->nspace, d, &min, &max);
            lo[d] = block_position(t, d, min);
            hi[d] = std::min<qx_long>(block_position(t, d, max), nblk);
        }
        for (qx_long k = lo[2]; k <= hi[2]; ++k)
            for (qx_long j = lo[1]; j <= hi[1]; ++j)
                for (qx_long i = lo[0]; i <= hi[0]; ++i) {
                    const qx_long block = (k * nblk + j) * nblk + i;
                    if (block >= 0 && block < power(nblk, mesh->nspace)) t.entries.add(block, c.id);
                }
    }
    return t;
}

// ---- tables for the nodes of a uniform lattice ----------------------------------------------------------------

struct lattice_request {
    std::vector<float> xform; // empty: none
    std::vector<qx_long> dims;
    std::vector<float> min, max;
    bool single;
};

inline lists build_unif(mesh_info *mesh, const lattice_request &request)
{
    qx_long dims[3] = {1, 1, 1}, nblocks = 1;
    for (size_t d = 0; d < request.dims.size(); ++d) {
        dims[d] = request.dims[d];
        nblocks *= dims[d];
    }
    std::vector<float> coords(coords_of(mesh), coords_of(mesh) + mesh->nnodes * mesh->nspace);
    int stride = mesh->nspace;
    if (!request.xform.empty()) {
        std::vector<float> moved;
        for (qx_long node = 0; node < mesh->nnodes; ++node) {
            float x[3] = {0, 0, 0}, y[3];
            for (int d = 0; d < stride; ++d)
                x[d] = coords[static_cast<size_t>(node * stride + d)];
            for (size_t c = 0; c < 3; ++c) {
                const std::vector<float> &m = request.xform;
                y[c] = x[0] * m[c] + x[1] * m[4 + c] + x[2] * m[8 + c] + m[12 + c];
            }
            moved.insert(moved.end(), y, y + 3);
        }
        coords = moved;
        stride = 3;
    }
    lists entries(nblocks, mesh->ncells);
    for (const cell &c : cells_of(mesh)) {
        qx_long lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
        for (int d = 0; d < stride && d < static_cast<int>(request.min.size()); ++d) {
            const float first = request.min[static_cast<size_t>(d)];
            const float extent = request.max[static_cast<size_t>(d)] - first;
            if (!(static_cast<double>(extent) > 1e-30)) continue;
            float min, max;
            bounds(c, coords.data(), stride, d, &min, &max);
            const float steps = static_cast<float>(dims[d] - 1);
            const float a = (min - first) * steps / extent, b = (max - first) * steps / extent;
            hi[d] = static_cast<qx_long>(a > b ? a : b);
            lo[d] = static_cast<qx_long>(static_cast<double>(a > b ? b : a) + 0.999999);
            if (lo[d] < 0) lo[d] = 0;
            if (hi[d] >= dims[d]) hi[d] = dims[d] - 1;
        }
        for (qx_long k = lo[2]; k <= hi[2]; ++k)
            for (qx_long j = lo[1]; j <= hi[1]; ++j)
                for (qx_long i = lo[0]; i <= hi[0]; ++i) {
                    const qx_long node = (k * dims[1] + j) * dims[0] + i;
                    if (!request.single || entries.blocks[static_cast<size_t>(node)] == 0)
                        entries.add(node, static_cast<int32_t>(c.id), !request.single);
                }
    }
    return entries;
}

// ---- location -----------------------------------------------------------------------------------------------

struct found {
    int result;
    qx_long cell;
    triple uvw;
};

inline bool box_holds(const cell &c, const float *coords, int nspace, const float *point, double tol)
{
    for (int d = 0; d < 3; ++d) {
        float min, max;
        bounds(c, coords, nspace, d, &min, &max);
        if (min - tol > point[d] || point[d] > max + tol) return false;
    }
    return true;
}

inline int test_cell(const cell &c, const float *coords, int nspace, const float *point, bool check_box,
                     double tol, float *uvw)
{
    if (c.map_back == nullptr) return 0;
    if (check_box && !box_holds(c, coords, nspace, point, tol)) return 0;
    std::vector<float> gathered;
    for (qx_long node : c.nodes)
        for (int d = 0; d < 3; ++d)
            gathered.push_back(d < nspace ? coords[node * nspace + d] : 0.0f);
    return c.map_back(gathered.data(), point, uvw);
}

inline float tolerance_of(const blk_tbl *t)
{
    float sum = 0;
    for (int d = 0; d < 3; ++d)
        sum += t->max_ext[d] - t->min_ext[d];
    return static_cast<float>(1e-6 * static_cast<double>(sum));
}

// The search of a block's list. cells: of the mesh, in the order of their ids.
inline found find(mesh_info *mesh, const std::vector<cell> &cells, const blk_tbl *tbl, const float *point,
                  qx_long before)
{
    found at = {0, before, {0, 0, 0}};
    const float tol = tolerance_of(tbl);
    table t = {tbl->nblk, tbl->nspace, {0, 0, 0}, {0, 0, 0}, lists(0, 0)};
    std::copy_n(tbl->min_ext, 3, t.min);
    std::copy_n(tbl->max_ext, 3, t.max);
    qx_long place[3] = {0, 0, 0};
    for (int d = 0; d < tbl->nspace; ++d)
        if (t.min[d] - tol > point[d] || point[d] > t.max[d] + tol) return at;
    for (int d = 0; d < tbl->nspace; ++d)
        place[d] = block_position(t, d, point[d]);
    const qx_long block = (place[2] * t.nblk + place[1]) * t.nblk + place[0];
    at.cell = -1;
    for (qx_long e = tbl->blocks[block]; e != 0; e = tbl->next_list[e]) {
        at.cell = tbl->cell_list[e];
        const auto c = std::lower_bound(cells.begin(), cells.end(), at.cell,
                                        [](const cell &x, qx_long id) { return x.id < id; });
        if (test_cell(*c, coords_of(mesh), mesh->nspace, point, true, tol, at.uvw.data()) > 0) {
            at.result = 1;
            return at;
        }
    }
    return at;
}

// Without a table: of all cells that take the point, the one that is inserted last.
inline found find_in_all(mesh_info *mesh, const std::vector<cell> &cells, const float *point, float tol)
{
    found at = {0, -1, {0, 0, 0}};
    for (auto c = cells.rbegin(); c != cells.rend(); ++c)
        if (test_cell(*c, coords_of(mesh), mesh->nspace, point, true, tol, at.uvw.data()) > 0)
            return {1, c->id, at.uvw};
    return at;
}

// ---- compact meshes -----------------------------------------------------------------------------------------

// uvw as an axis-by-axis position, turned to the cell's parameters.
inline triple turned(int ndim, const triple &u)
{
    if (ndim == 3) return {u[1], u[0], -u[2]};
    return {-u[0], u[1], u[2]};
}

inline bool between(float lo, float x, float hi, double tol)
{
    return static_cast<double>(hi) + tol >= static_cast<double>(x) &&
           static_cast<double>(x) >= static_cast<double>(lo) - tol;
}

// A mesh may have one row of points in all.
inline bool on_flat_axes(const mesh_info *mesh, const float *points, bool one_row, const float *point,
                         double tol)
{
    for (int d = mesh->ndim; d < mesh->nspace; ++d)
        if (!between(points[d], point[d], points[one_row ? d : mesh->nspace + d], tol)) return false;
    return true;
}

inline found find_rect(const mesh_info *mesh, const float *points, const float *point)
{
    qx_long idx[3] = {0, 0, 0}, off = 0;
    triple u = {0, 0, 0};
    for (int d = 0; d < mesh->ndim; ++d) {
        const qx_long n = mesh->dims[d];
        const auto x = [&](qx_long i) { return points[(off + i) * mesh->nspace + d]; };
        if (!between(x(0), point[d], x(n - 1), 1e-30)) return {0, -1, u};
        idx[d] = n - 1;
        for (qx_long i = 0; i <= n - 2; ++i) {
            if (x(i + 1) >= point[d] && point[d] >= x(i)) {
                idx[d] = i;
                u[static_cast<size_t>(d)] = 2 * (point[d] - x(i)) / (x(i + 1) - x(i)) - 1;
                break;
            }
        }
        off += n;
    }
    if (!on_flat_axes(mesh, points, off == 1, point, 1e-30)) return {0, -1, u};
    qx_long number = 0;
    for (int d = mesh->ndim - 1; d >= 0; --d)
        number = number * mesh->dims[d] + idx[d];
    return {1, number, turned(mesh->ndim, u)};
}

inline found find_unif(const mesh_info *mesh, const float *points, const float *point)
{
    qx_long idx[3] = {0, 0, 0};
    triple u = {0, 0, 0};
    for (int d = 0; d < mesh->ndim; ++d) {
        const float first = points[d], last = points[mesh->nspace + d];
        if (!between(first, point[d], last, 1e-30)) return {0, -1, u};
        if (first == last || mesh->dims[d] == 1) continue;
        const float step =
            static_cast<float>(static_cast<double>(last - first) / static_cast<double>(mesh->dims[d] - 1));
        const float t = (point[d] - first) / step;
        idx[d] = std::min(std::max<qx_long>(static_cast<qx_long>(std::trunc(t)), 0), mesh->dims[d] - 2);
        u[static_cast<size_t>(d)] = 2 * (t - static_cast<float>(idx[d])) - 1;
    }
    if (!on_flat_axes(mesh, points, false, point, 1e-30)) return {0, -1, u};
    qx_long number = 0;
    for (int d = mesh->ndim - 1; d >= 0; --d)
        number = number * mesh->dims[d] + idx[d];
    return {1, number, turned(mesh->ndim, u)};
}

// The test of one cell of a compact mesh, cells of the last position of an axis left out.
inline found test_compact(const mesh_info *mesh, const float *points, bool uniform, qx_long number,
                          const float *point, bool check_box, double tol)
{
    triple u = {0, 0, 0};
    qx_long rest = number, off = 0;
    for (int d = 0; d < mesh->ndim; ++d) {
        const qx_long n = mesh->dims[d], i = d + 1 < mesh->ndim ? rest % n : rest;
        rest /= n;
        const auto x = [&](qx_long at) { return points[(off + at) * mesh->nspace + d]; };
        const float first = uniform ? points[d] : x(0), last = uniform ? points[mesh->nspace + d] : x(n - 1);
        off += n;
        if (n == 1) {
            if (check_box && !between(first, point[d], last, tol)) return {0, -1, u};
            continue;
        }
        float w;
        if (uniform) {
            const float t = (point[d] - first) / (last - first) * static_cast<float>(n - 1);
            w = 2 * (t - static_cast<float>(i)) - 1;
        } else {
            off -= n;
            w = 2 * (point[d] - x(i)) / (x(i + 1) - x(i)) - 1;
            off += n;
        }
        u[static_cast<size_t>(d)] = w;
        if (check_box && !(1 + tol >= static_cast<double>(w) && static_cast<double>(w) >= -1 - tol))
            return {0, -1, u};
    }
    if (check_box && !on_flat_axes(mesh, points, !uniform && off == 1, point, tol)) return {0, -1, u};
    return {1, number, turned(mesh->ndim, u)};
}

// ---- points to try -----------------------------------------------------------------------------------------

// Points of a mesh's box and a little around it, some at nodes and some between two nodes, three coordinates
// each: 0 beyond nspace, save some.
inline std::vector<triple> points_around(mesh_info *mesh, std::mt19937_64 &random, int count)
{
    const float *coords = coords_of(mesh);
    std::vector<triple> points;
    for (int i = 0; i < count; ++i) {
        triple p = {0, 0, 0};
        const qx_long a = static_cast<qx_long>(random() % static_cast<uint64_t>(mesh->nnodes));
        const qx_long b = static_cast<qx_long>(random() % static_cast<uint64_t>(mesh->nnodes));
        for (int d = 0; d < mesh->nspace; ++d) {
            const size_t at = static_cast<size_t>(d);
            const float lo = mesh->min_ext[d], hi = mesh->max_ext[d];
            const float xa = coords[a * mesh->nspace + d], xb = coords[b * mesh->nspace + d];
            if (i % 4 == 0)
                p[at] = xa;
            else if (i % 4 == 1)
                p[at] = (xa + xb) / 2;
            else
                p[at] = std::uniform_real_distribution<float>(lo - (hi - lo) * 0.05f,
                                                              hi + (hi - lo) * 0.05f + 1e-6f)(random);
        }
        if (mesh->nspace < 3 && i % 11 == 0) p[2] = 0.5f;
        points.push_back(p);
    }
    return points;
}

} // namespace locate_reference
