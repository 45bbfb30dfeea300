// Sampling once more, slowly: point by point through the functions in the mesh's own table, each step as it
// comes. With the meshes, points and fields to try it on.
#pragma once

#include "support/arrays.hpp"
#include "support/lattices.hpp"

#include <skoklana/host/tool.h>
#include <skoklana/locate.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace sample_reference {

// ---- tables ------------------------------------------------------------------------------------------------

struct free_table {
    void operator()(blk_tbl *table) const { host_free_table(table); }
    void operator()(blk_tbl_unif *table) const { UTILinterp_end2(table); }
};
using table_ptr = std::unique_ptr<blk_tbl, free_table>;
using unif_table_ptr = std::unique_ptr<blk_tbl_unif, free_table>;

inline table_ptr table_of(mesh_info *mesh)
{
    blk_tbl *table = nullptr;
    EXPECT_EQ(mesh->methods->interp_init_func(mesh, &table), 1);
    return table_ptr(table);
}

// ---- requests and results ------------------------------------------------------------------------------------

// Null values: 8 bytes a component, the value at their start.
using slots = std::vector<uint64_t>;

template <typename T> void put(slots *all, size_t component, T value)
{
    memcpy(&(*all)[component], &value, sizeof value);
}

template <typename T> T get(const slots &all, size_t component)
{
    T value;
    memcpy(&value, &all[component], sizeof value);
    return value;
}

// What all operations are told. Of the two tables an operation reads one.
struct where {
    const meshes::test_mesh *made = nullptr;
    mesh_info *mesh = nullptr;
    const blk_tbl *table = nullptr;
    const blk_tbl_unif *unif_table = nullptr;
    std::vector<float> points;
    int nspace = 3;
    const float *xform = nullptr;
    int single = 0;

    qx_long npts() const { return static_cast<qx_long>(points.size()) / nspace; }
};

template <typename T> struct node_request : where {
    std::vector<int> veclens;
    std::vector<std::vector<T>> data;
    std::vector<T> max_values;
    std::vector<int> null_flags;
    slots null_values;
    int set_null = 0;
    double null_fill = 0;
};

template <typename T> struct cell_request : where {
    std::vector<int> set_map;
    int veclen = 1;
    std::vector<std::vector<T>> data;
    T max_value = 0;
    int null_flag = 0;
    slots null_value = {0};
};

// Rows that were not written keep this.
template <typename T> constexpr T unwritten = static_cast<T>(33);

template <typename T> struct samples {
    int result = -7;
    std::vector<int> null_flags;
    slots null_values;
    std::vector<std::vector<T>> rows; // by component
};

template <typename T> samples<T> before(const node_request<T> &request)
{
    samples<T> s;
    s.null_flags = request.null_flags;
    s.null_values = request.null_values;
    for (int veclen : request.veclens)
        s.rows.emplace_back(static_cast<size_t>(request.npts() * veclen), unwritten<T>);
    return s;
}

template <typename T> samples<T> before(const cell_request<T> &request)
{
    samples<T> s;
    s.null_flags = {request.null_flag};
    s.null_values = request.null_value;
    s.rows.emplace_back(static_cast<size_t>(request.npts() * request.veclen), unwritten<T>);
    return s;
}

// Bit for bit, save for the unused bytes of null values.
template <typename T> void expect_same(const samples<T> &seen, const samples<T> &expected)
{
    EXPECT_EQ(seen.result, expected.result);
    EXPECT_EQ(seen.null_flags, expected.null_flags);
    ASSERT_EQ(seen.rows.size(), expected.rows.size());
    for (size_t j = 0; j < seen.rows.size(); ++j) {
        const T a = get<T>(seen.null_values, j), b = get<T>(expected.null_values, j);
        EXPECT_EQ(memcmp(&a, &b, sizeof a), 0) << "null value " << j;
        if (!arrays::same_bytes(seen.rows[j], expected.rows[j])) {
            EXPECT_EQ(seen.rows[j], expected.rows[j]) << "component " << j;
            ADD_FAILURE() << "bytes of component " << j << " differ";
        }
    }
}

// ---- the operations ------------------------------------------------------------------------------------------

template <typename T> struct pointers {
    std::vector<void *> all;

    // data and out are arrays of pointers to void; what data points to is only read.
    explicit pointers(const std::vector<std::vector<T>> &arrays)
    {
        for (const std::vector<T> &array : arrays)
            all.push_back(const_cast<T *>(array.data()));
    }
};

template <typename T> samples<T> sample(const node_request<T> &r, int type = arrays::dtype_of<T>)
{
    samples<T> s = before(r);
    pointers<T> data(r.data), out(s.rows);
    s.result = UTILinterpolate_data(
        r.npts(), r.points.data(), r.nspace, r.xform, r.mesh, r.table, static_cast<int>(r.veclens.size()),
        type, r.veclens.data(), data.all.data(), nullptr, const_cast<T *>(r.max_values.data()),
        s.null_flags.data(), s.null_values.data(), r.set_null, r.null_fill, out.all.data());
    return s;
}

template <typename T> samples<T> sample_to_unif(const node_request<T> &r, int type = arrays::dtype_of<T>)
{
    samples<T> s = before(r);
    pointers<T> data(r.data), out(s.rows);
    s.result = UTILinterpolate_data_to_unif(r.npts(), r.points.data(), r.nspace, r.xform, r.mesh,
                                            r.unif_table, static_cast<int>(r.veclens.size()), type,
                                            r.veclens.data(), data.all.data(), s.null_values.data(),
                                            s.null_flags.data(), r.single, out.all.data());
    return s;
}

template <typename T> samples<T> sample(const cell_request<T> &r, int type = arrays::dtype_of<T>)
{
    samples<T> s = before(r);
    pointers<T> data(r.data);
    s.result = UTILinterpolate_cell_data(r.npts(), r.points.data(), r.nspace, r.xform, r.mesh, r.table,
                                         r.set_map.data(), type, r.veclen, data.all.data(), nullptr,
                                         const_cast<T *>(&r.max_value), s.null_flags.data(),
                                         s.null_values.data(), s.rows[0].data());
    return s;
}

template <typename T> samples<T> sample_to_unif(const cell_request<T> &r, int type = arrays::dtype_of<T>)
{
    samples<T> s = before(r);
    pointers<T> data(r.data);
    s.result = UTILinterpolate_cell_data_to_unif(
        r.npts(), r.points.data(), r.nspace, r.xform, r.mesh, r.unif_table, r.set_map.data(), type, r.veclen,
        data.all.data(), s.null_flags.data(), s.null_values.data(), r.single, s.rows[0].data());
    return s;
}

// ---- the same, slowly ------------------------------------------------------------------------------------------

struct work_point {
    float given[3] = {0, 0, 0}, moved[3];

    work_point(const where &w, qx_long i)
    {
        for (int d = 0; d < w.nspace && d < 3; ++d)
            given[d] = w.points[static_cast<size_t>(i * w.nspace + d)];
        std::copy_n(given, 3, moved);
        if (w.xform != nullptr) MATvec3_mat4_multiply(moved, w.xform);
    }
};

template <typename T> T one_more(T value)
{
    if constexpr (std::is_floating_point_v<T>) return static_cast<T>(value + 1);
    if (value == std::numeric_limits<T>::max()) return std::numeric_limits<T>::lowest();
    return static_cast<T>(value + 1);
}

inline int slow_find(const where &w, const work_point &at, qx_long *cell, float *uvw)
{
    return w.mesh->methods->find_cell_func(w.mesh, w.table, at.moved, cell, uvw);
}

inline int slow_find_by_lattice(const where &w, const work_point &at, qx_long *cell, float *uvw)
{
    const auto test = w.mesh->methods->interp_cell_func;
    if (w.single == 0 && test == nullptr) {
        fputs("UTILfind_cell: unable to find interp_cell function\n", stderr);
        return -1;
    }
    const blk_tbl_unif &t = *w.unif_table;
    const float extent[3] = {t.max_ext[0] - t.min_ext[0], t.max_ext[1] - t.min_ext[1],
                             t.max_ext[2] - t.min_ext[2]};
    const float tol = 1e-6f * (extent[0] + extent[1] + extent[2]);
    qx_long index[3] = {0, 0, 0};
    for (int d = 0; d < w.mesh->nspace; ++d) {
        if (!std::isfinite(at.given[d])) return 0;
        if (!(static_cast<double>(extent[d]) > 1e-30)) continue;
        const float position = (at.given[d] - t.min_ext[d]) * static_cast<float>(t.dims[d] - 1) / extent[d];
        const double node = std::trunc(static_cast<double>(position) + 0.4999999);
        if (node < 0 || node >= static_cast<double>(t.dims[d])) return 0;
        index[d] = static_cast<qx_long>(node);
    }
    *cell = -1;
    for (qx_long entry = t.blocks[(index[2] * t.dims[1] + index[1]) * t.dims[0] + index[0]]; entry != 0;
         entry = t.next_list[entry]) {
        *cell = t.cell_list[entry];
        if (*cell < 0) return -1;
        if (w.single != 0 || test(w.mesh, *cell, at.moved, 0, static_cast<double>(tol), uvw) > 0) return 1;
    }
    return 0;
}

// Empty: there is no such cell.
inline std::vector<qx_long> nodes_of_cell(const where &w, qx_long cell)
{
    std::vector<qx_long> nodes;
    const meshes::test_mesh &m = *w.made;
    if (m.ndim > 0) {
        const int order[8][3] = {{1, 0, 0}, {0, 0, 0}, {0, 1, 0}, {1, 1, 0},
                                 {1, 0, 1}, {0, 0, 1}, {0, 1, 1}, {1, 1, 1}};
        for (int corner = 0; corner < 1 << m.ndim; ++corner) {
            qx_long node = cell, step = 1;
            for (int d = 0; d < m.ndim; ++d) {
                const qx_long n = m.dims[static_cast<size_t>(d)];
                if (n > 1) node += order[corner][d] * step;
                step *= n;
            }
            nodes.push_back(node);
        }
        for (qx_long node : nodes)
            if (node >= m.nnodes()) return {};
        return nodes;
    }
    for (int set = 0; set < w.mesh->ncell_sets; ++set) {
        const qx_long local = cell - w.mesh->cell_first[set], n = w.mesh->cell_nnodes[set];
        if (local >= w.mesh->cell_count[set]) continue;
        const qx_long *row = m.connect[static_cast<size_t>(set)].data() + local * n;
        return std::vector<qx_long>(row, row + n);
    }
    return nodes;
}

inline qx_long slow_nearest(const where &w, const std::vector<qx_long> &nodes, const float *place)
{
    float least = std::numeric_limits<float>::max();
    qx_long nearest = nodes[0];
    for (qx_long node : nodes) {
        float sum = 0;
        for (int d = 0; d < 3; ++d) {
            const float apart = static_cast<float>(meshes::at(*w.made, node, d)) - place[d];
            sum += apart * apart;
        }
        if (sum < least) {
            least = sum;
            nearest = node;
        }
    }
    return nearest;
}

// What became of the points, so that a test can tell that it reached what it is for.
struct tally {
    qx_long found = 0, missed = 0, null_rows = 0;
};

// Up to point number end, as if interrupted there.
template <typename T>
samples<T> slow_sample(const node_request<T> &r, bool to_unif, tally *seen = nullptr, qx_long end = -1)
{
    tally unused;
    if (seen == nullptr) seen = &unused;
    samples<T> s = before(r);
    const size_t ncomp = r.veclens.size();
    for (size_t j = 0; j < ncomp; ++j) {
        if (to_unif || r.null_flags[j] != 0) continue;
        if (r.veclens[j] >= 2)
            put<T>(&s.null_values, j, 0);
        else if (r.set_null != 0)
            put<T>(&s.null_values, j, static_cast<T>(r.null_fill));
        else
            put<T>(&s.null_values, j, one_more(r.max_values[j]));
    }
    std::vector<int> flags = r.null_flags;
    const auto write_null = [&](size_t j, qx_long i) {
        for (qx_long c = 0; c < r.veclens[j]; ++c)
            s.rows[j][static_cast<size_t>(i * r.veclens[j] + c)] = get<T>(s.null_values, j);
        flags[j] = 1;
        ++seen->null_rows;
    };
    const qx_long last = end < 0 ? r.npts() : end;
    for (qx_long i = 0; i < last; ++i) {
        const work_point at(r, i);
        qx_long cell = -1;
        float uvw[3] = {0, 0, 0};
        const int found = to_unif ? slow_find_by_lattice(r, at, &cell, uvw) : slow_find(r, at, &cell, uvw);
        ++(found == 1 ? seen->found : seen->missed);
        for (size_t j = 0; j < ncomp; ++j) {
            if (found != 1) {
                write_null(j, i);
                continue;
            }
            const qx_long veclen = r.veclens[j];
            T *row = s.rows[j].data() + i * veclen;
            if (to_unif && r.single != 0) {
                const std::vector<qx_long> nodes = nodes_of_cell(r, cell);
                if (nodes.empty())
                    write_null(j, i);
                else
                    std::copy_n(r.data[j].data() + slow_nearest(r, nodes, at.moved) * veclen, veclen, row);
                continue;
            }
            std::vector<float> value(static_cast<size_t>(veclen));
            if (r.mesh->methods->interp_data_func(r.mesh, cell, r.veclens[j], r.data[j].data(),
                                                  arrays::dtype_of<T>, r.null_flags[j], &s.null_values[j], 1,
                                                  uvw, value.data()) != 1) {
                write_null(j, i);
                continue;
            }
            for (float x : value)
                *row++ = static_cast<T>(x);
        }
    }
    s.result = end < 0 ? 1 : 0;
    if (end < 0) s.null_flags = flags;
    return s;
}

template <typename T> samples<T> slow_sample(const cell_request<T> &r, bool to_unif, tally *seen = nullptr)
{
    tally unused;
    if (seen == nullptr) seen = &unused;
    samples<T> s = before(r);
    if (!to_unif && r.null_flag == 0)
        put<T>(&s.null_values, 0, r.veclen < 2 ? one_more(r.max_value) : static_cast<T>(0));
    for (qx_long i = 0; i < r.npts(); ++i) {
        const work_point at(r, i);
        qx_long cell = -1;
        float uvw[3];
        const int found = to_unif ? slow_find_by_lattice(r, at, &cell, uvw) : slow_find(r, at, &cell, uvw);
        ++(found == 1 ? seen->found : seen->missed);
        int set = found == 1 ? 0 : r.mesh->ncell_sets;
        while (set < r.mesh->ncell_sets && cell - r.mesh->cell_first[set] >= r.mesh->cell_count[set])
            ++set;
        const bool has_row = set < r.mesh->ncell_sets && cell >= r.mesh->cell_first[set] &&
                             r.set_map[static_cast<size_t>(set)] >= 0;
        for (qx_long c = 0; c < r.veclen; ++c) {
            T *to = &s.rows[0][static_cast<size_t>(i * r.veclen + c)];
            if (has_row)
                *to = r.data[static_cast<size_t>(r.set_map[static_cast<size_t>(set)])]
                            [static_cast<size_t>((cell - r.mesh->cell_first[set]) * r.veclen + c)];
            else
                *to = get<T>(s.null_values, 0);
        }
        if (!has_row) {
            s.null_flags[0] = 1;
            ++seen->null_rows;
        }
    }
    s.result = 1;
    return s;
}

// ---- meshes, points, fields ----------------------------------------------------------------------------------------

struct named_mesh {
    std::string name;
    meshes::mesh_ptr made;
    bool can_locate = true;
};

// Every kind and order of cells, in every space that holds it, and several kinds together.
inline std::vector<named_mesh> set_meshes()
{
    std::vector<named_mesh> all;
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (int order : {1, 2})
            for (int nspace = cell_kinds[kind].ndim; nspace <= 3; ++nspace)
                all.push_back({"kind " + std::to_string(kind) + ", order " + std::to_string(order) +
                                   ", coordinates " + std::to_string(nspace),
                               meshes::cells(kind, order, {3, 2, 2}, 11, 0.12, nspace),
                               order == 1 || (kind != CELL_PYR && kind != CELL_PRISM)});
    all.push_back(
        {"mixed kinds", meshes::mixed({CELL_HEX, CELL_TET, CELL_PRISM, CELL_PYR, CELL_QUAD, CELL_TET},
                                      {1, 2, 1, 1, 1, 1}, 2, 3, 0.1)});
    return all;
}

inline std::vector<named_mesh> structured_meshes(const std::vector<lattices::shape> &shapes)
{
    std::vector<named_mesh> all;
    for (const lattices::shape &s : shapes) {
        const std::vector<float> lo = {0.1f, -2.3f, 7.7f}, hi = {1.9f, -0.4f, 8.1f};
        all.push_back({"uniform, " + text(s), meshes::uniform(s.dims, s.nspace, lo, hi)});
        all.push_back({"rectilinear, " + text(s), meshes::rectilinear(s.dims, s.nspace, lo, hi, 5)});
        all.push_back({"curvilinear, " + text(s), meshes::curvilinear(s.dims, s.nspace, lo, hi, 6)});
    }
    return all;
}

inline std::vector<named_mesh> all_meshes()
{
    std::vector<named_mesh> all = set_meshes();
    for (named_mesh &m : structured_meshes(lattices::in_every_space({{6}, {5, 4}, {5, 4, 3}})))
        all.push_back(std::move(m));
    return all;
}

// The box of all nodes, 3 entries each, 0 beyond the mesh's space.
struct box {
    float lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};

    explicit box(const meshes::test_mesh &m)
    {
        for (int d = 0; d < m.nspace; ++d) {
            lo[d] = hi[d] = m.coords[static_cast<size_t>(d)];
            for (qx_long node = 0; node < m.nnodes(); ++node) {
                lo[d] = std::min(lo[d], static_cast<float>(meshes::at(m, node, d)));
                hi[d] = std::max(hi[d], static_cast<float>(meshes::at(m, node, d)));
            }
        }
    }
};

// npts rows of nspace floats in and around a mesh, one in eight at a node. Where the mesh is flat most are in
// its plane.
inline std::vector<float> points_about(const meshes::test_mesh &m, uint64_t seed, qx_long npts, int nspace)
{
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<float> spread(-0.1f, 1.1f);
    const box about(m);
    std::vector<float> points;
    for (qx_long i = 0; i < npts; ++i) {
        const qx_long node =
            random() % 8 == 0 ? static_cast<qx_long>(random() % m.coords.size()) / m.nspace : -1;
        for (int d = 0; d < nspace; ++d) {
            const float length = about.hi[d] - about.lo[d];
            float x = about.lo[d] + spread(random) * length;
            if (node >= 0) x = static_cast<float>(meshes::at(m, node, d));
            if (length == 0 && random() % 8 == 0) x += 0.01f;
            points.push_back(x);
        }
    }
    return points;
}

// Components of both lengths with and without null data. What a type's rows of null data hold is 60; data
// without null holds it as well, where it means nothing. The values are such that sampling a little beyond a
// cell stays in the range of every type.
template <typename T> void fill_node_data(node_request<T> *r, uint64_t seed)
{
    const T null = static_cast<T>(60);
    r->veclens = {1, 3, 1, 3, 2};
    r->null_flags = {0, 0, 1, 1, 0};
    r->null_values.assign(r->veclens.size(), 0);
    r->data.clear();
    r->max_values.clear();
    for (size_t j = 0; j < r->veclens.size(); ++j) {
        std::vector<T> values = meshes::random_values<T>(seed + j, r->made->nnodes() * r->veclens[j], 58, 74);
        std::mt19937_64 random(seed + 100 + j);
        for (size_t k = 0; k < values.size(); ++k) {
            if (values[k] == null) values[k] = static_cast<T>(61);
            if (random() % 25 == 0) values[k] = null;
        }
        r->data.push_back(values);
        r->max_values.push_back(static_cast<T>(74 + j));
        if (r->null_flags[j] != 0) put<T>(&r->null_values, j, null);
    }
}

} // namespace sample_reference
