// Level surfaces and lines over cell sets: a slow reference, and calls with their outputs at hand.
//
// The reference walks the cells one by one, numbers new nodes by a map, and reads the exported case tables as
// a newcomer would. Second-order cells are tesselated one at a time, so that nothing of the library's blocks
// is in it.
#pragma once

#include "support/meshes.hpp"

#include <skoklana/cell.h>
#include <skoklana/iso.h>
#include <skoklana/tables.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

namespace levels {

inline const tesselate_func tesselators[CELL_KINDS] = {
    UTILtesselate_line_2, UTILtesselate_tri_2,   UTILtesselate_quad_2, UTILtesselate_tet_2,
    UTILtesselate_pyr_2,  UTILtesselate_prism_2, UTILtesselate_hex_2};

// What an extraction gives.
struct output {
    int status = -7;
    std::vector<std::pair<qx_long, qx_long>> nodes;
    std::vector<qx_long> triangles, lines;
    qx_long ntri = 0, nline = 0;
    bool has_triangles = false, has_lines = false; // a list was handed over, maybe an empty one
    std::vector<std::vector<qx_long>> maps;        // an entry a set; of sets that take no part: {-7}
};

inline bool operator==(const output &a, const output &b)
{
    return a.status == b.status && a.nodes == b.nodes && a.triangles == b.triangles && a.lines == b.lines &&
           a.ntri == b.ntri && a.nline == b.nline && a.has_triangles == b.has_triangles &&
           a.has_lines == b.has_lines && a.maps == b.maps;
}

// ---- the reference -----------------------------------------------------------------------------------------

// Flags as the operations form them: 1 at or above the level, 0 below it, 2 null.
template <typename T>
std::vector<unsigned char> classify(const std::vector<T> &data, double level, const T *null_value)
{
    std::vector<unsigned char> flags;
    for (T value : data) {
        const bool above =
            std::is_same_v<T, float> ? value >= static_cast<T>(level) : static_cast<double>(value) >= level;
        flags.push_back(null_value != nullptr && value == *null_value ? 2 : above ? 1 : 0);
    }
    return flags;
}

class reference {
  public:
    output result;

    explicit reference(const std::vector<unsigned char> &node_flags) : flags(node_flags)
    {
        result.status = 1;
    }

    // One cell; adds its primitives' count to made.
    void add_cell(int kind, const qx_long *nodes, bool check_nulls, qx_long *made)
    {
        const int ncorners = cell_kinds[kind].ncorners;
        if (check_nulls)
            for (int c = 0; c < ncorners; ++c)
                if (flag(nodes[c]) == 2) return;
        switch (kind) {
        case CELL_HEX:
            surface(index(nodes, {0, 1, 4, 5, 3, 2, 7, 6}), nodes, ISOninter_pts_hex, ISOninter_polys_hex,
                    ISOnppoly_hex, ISOleft_vert_hex, ISOright_vert_hex, ISOncell_hex, ISOnpcel_hex, made);
            break;
        case CELL_PRISM:
            surface(index(nodes, {5, 2, 0, 3, 1, 4}), nodes, ISOninter_pts_prism, ISOninter_polys_prism,
                    ISOnppoly_prism, ISOleft_vert_prism, ISOright_vert_prism, ISOncell_prism, ISOnpcel_prism,
                    made);
            break;
        case CELL_PYR:
            surface(index(nodes, {1, 2, 3, 4, 0}), nodes, ISOninter_pts_pyr, ISOninter_polys_pyr,
                    ISOnppoly_pyr, ISOleft_vert_pyr, ISOright_vert_pyr, ISOncell_pyr, ISOnpcel_pyr, made);
            break;
        case CELL_TET:
            surface(index(nodes, {0, 1, 2, 3}), nodes, ISOninter_pts_tet, ISOninter_polys_tet, ISOnppoly_tet,
                    ISOleft_vert_tet, ISOright_vert_tet, ISOncell_tet, ISOnpcel_tet, made);
            break;
        case CELL_QUAD: {
            static const std::vector<std::vector<int>> rows = {{},           {0, 1, 3, 0},
                                                               {0, 1, 1, 2}, {1, 2, 3, 0},
                                                               {1, 2, 2, 3}, {0, 1, 3, 0, 1, 2, 2, 3},
                                                               {0, 1, 2, 3}, {2, 3, 3, 0}};
            const int i = index(nodes, {0, 1, 2, 3});
            line(rows[static_cast<size_t>(i > 7 ? 15 - i : i)], nodes, made);
            break;
        }
        case CELL_TRI: {
            static const std::vector<std::vector<int>> rows = {{}, {0, 1, 2, 0}, {0, 1, 1, 2}, {1, 2, 2, 0}};
            const int i = index(nodes, {0, 1, 2});
            line(rows[static_cast<size_t>(i > 3 ? 7 - i : i)], nodes, made);
            break;
        }
        default: break;
        }
    }

  private:
    const std::vector<unsigned char> &flags;
    std::map<std::pair<qx_long, qx_long>, qx_long> numbers;

    int flag(qx_long node) const { return flags[static_cast<size_t>(node)]; }

    int index(const qx_long *nodes, const std::vector<int> &corner_of_bit) const
    {
        int i = 0;
        for (size_t bit = 0; bit < corner_of_bit.size(); ++bit)
            i |= (flag(nodes[corner_of_bit[bit]]) == 1 ? 1 : 0) << bit;
        return i;
    }

    qx_long number(qx_long a, qx_long b)
    {
        const std::pair<qx_long, qx_long> edge = {std::min(a, b), std::max(a, b)};
        const auto added = numbers.emplace(edge, static_cast<qx_long>(result.nodes.size()));
        if (added.second) result.nodes.push_back(edge);
        return added.first->second;
    }

    template <typename Size, typename Corner, size_t Width>
    void surface(int i, const qx_long *nodes, const int *npoints, const int *npolygons,
                 const Size (*sizes)[4], const Corner (*left)[Width], const Corner (*right)[Width],
                 const iso_pair *splits, const iso_triple *triples, qx_long *made)
    {
        std::vector<qx_long> p;
        for (int c = 0; c < npoints[i]; ++c)
            p.push_back(number(nodes[left[i][c]], nodes[right[i][c]]));
        size_t first = 0;
        for (int polygon = 0; polygon < npolygons[i]; ++polygon) {
            const int size = sizes[i][polygon];
            const iso_pair split = splits[size - 1];
            for (int t = split.first; t < split.first + split.ntri; ++t) {
                for (int corner : {0, 2, 1})
                    result.triangles.push_back(p[first + static_cast<size_t>(triples[t].p[corner])]);
                ++result.ntri;
                ++*made;
            }
            first += static_cast<size_t>(size);
        }
    }

    void line(const std::vector<int> &row, const qx_long *nodes, qx_long *made)
    {
        for (size_t c = 0; c < row.size(); c += 2)
            result.lines.push_back(number(nodes[row[c]], nodes[row[c + 1]]));
        result.nline += static_cast<qx_long>(row.size() / 4);
        *made += static_cast<qx_long>(row.size() / 4);
    }
};

enum class operation { isosurface, isoline };

inline output expected(const meshes::test_mesh &mesh, const std::vector<unsigned char> &flags,
                       bool check_nulls, operation what, bool with_maps)
{
    reference cells(flags);
    output &result = cells.result;
    for (size_t set = 0; set < mesh.kinds.size(); ++set) {
        const int kind = mesh.kinds[set], order = mesh.orders[set], ndim = cell_kinds[kind].ndim;
        if (with_maps) result.maps.push_back({-7});
        if (ndim == 1 || (ndim == 3 && what == operation::isoline)) continue;
        (ndim == 3 ? result.has_triangles : result.has_lines) = true;
        if (with_maps) result.maps.back().clear();
        const int nnodes = order == 1 ? cell_kinds[kind].ncorners : cell_kinds[kind].nnodes_2;
        const std::vector<qx_long> &connect = mesh.connect[set];
        for (size_t row = 0; row < connect.size(); row += static_cast<size_t>(nnodes)) {
            qx_long made = 0;
            if (order == 1) {
                cells.add_cell(kind, &connect[row], check_nulls, &made);
            } else {
                qx_long npieces = 0, *pieces = nullptr;
                int piece_nnodes = 0;
                if (tesselators[kind](1, &connect[row], &npieces, &pieces, &piece_nnodes) != 1) abort();
                for (qx_long p = 0; p < npieces; ++p)
                    cells.add_cell(piece_nnodes == 4 ? CELL_TET : CELL_TRI, pieces + p * piece_nnodes,
                                   check_nulls, &made);
                free(pieces);
            }
            if (with_maps)
                result.maps.back().insert(result.maps.back().end(), static_cast<size_t>(made),
                                          static_cast<qx_long>(row) / nnodes);
        }
    }
    return result;
}

// ---- meshes ----------------------------------------------------------------------------------------------

// Puts the extraction kernels of each set's kind in its row, whatever the host has bound.
inline meshes::mesh_ptr bind(meshes::mesh_ptr made)
{
    static const slice_cell_func own[CELL_KINDS] = {nullptr,       UTILisoline_tri, UTILisoline_quad,
                                                    UTILslice_tet, UTILslice_pyr,   UTILslice_prism,
                                                    UTILslice_hex};
    for (size_t set = 0; set < made->kinds.size(); ++set) {
        const int kind = made->kinds[set];
        if (kind == CELL_LINE) continue;
        const bool volume = cell_kinds[kind].ndim == 3;
        cell_func *row = made->mesh->cell_funcs + set * CELL_METHOD_SLOTS;
        if (made->orders[set] == 1) {
            row[volume ? SLOT_SLICE : SLOT_ISOLINE] = reinterpret_cast<cell_func>(own[kind]);
        } else {
            row[SLOT_TESSELATE] = reinterpret_cast<cell_func>(tesselators[kind]);
            row[volume ? SLOT_SUB_SLICE : SLOT_SUB_ISOLINE] =
                reinterpret_cast<cell_func>(volume ? UTILslice_tet : UTILisoline_tri);
        }
    }
    return made;
}

// A mesh record of one set, put together by hand for calls of single kernels.
struct bare_set {
    mesh_info mesh = {};
    std::vector<qx_long> connect;
    qx_long first = 0, count = 0;
    int nnodes, ndim, order = 1;
    qx_long *fetched = nullptr;
    std::vector<cell_func> row = std::vector<cell_func>(CELL_METHOD_SLOTS);

    bare_set(int cell_nnodes, int cell_ndim, std::vector<qx_long> cells)
        : connect(std::move(cells)), nnodes(cell_nnodes), ndim(cell_ndim)
    {
        count = static_cast<qx_long>(connect.size()) / nnodes;
        connect.reserve(1); // a list of no cells is a list still
        fetched = connect.data();
        mesh.nspace = 3;
        mesh.nnodes = connect.empty() ? 0 : *std::max_element(connect.begin(), connect.end()) + 1;
        mesh.ncell_sets = 1;
        mesh.ncells = count;
        mesh.cell_first = &first;
        mesh.cell_count = &count;
        mesh.cell_nnodes = &nnodes;
        mesh.cell_ndim = &ndim;
        mesh.cell_order = &order;
        mesh.cell_connect = &fetched;
        mesh.cell_funcs = row.data();
    }
    bare_set(const bare_set &) = delete;
    bare_set &operator=(const bare_set &) = delete;
};

// The same cell, count times.
inline std::vector<qx_long> repeated(std::vector<qx_long> cell, qx_long count)
{
    std::vector<qx_long> cells;
    for (qx_long c = 0; c < count; ++c)
        cells.insert(cells.end(), cell.begin(), cell.end());
    return cells;
}

// A kernel's call, with all that it appends to.
struct kernel_call {
    slice_cell_func kernel;
    edge_table *table;
    unsigned char *flags;
    qx_long *connect = nullptr, used = -7, capacity = 0;
    qx_long *map = nullptr;
    bool owned = true; // table and flags are still ours

    kernel_call(slice_cell_func func, const std::vector<unsigned char> &node_flags)
        : kernel(func), table(UTILedge_table_create(static_cast<qx_long>(node_flags.size()))),
          flags(static_cast<unsigned char *>(malloc(node_flags.size() + 1)))
    {
        std::copy(node_flags.begin(), node_flags.end(), flags);
    }
    kernel_call(const kernel_call &) = delete;
    kernel_call &operator=(const kernel_call &) = delete;
    ~kernel_call()
    {
        if (owned) UTILedge_table_delete(table);
        if (owned) free(flags);
        free(connect);
        free(map);
    }

    qx_long run(mesh_info *mesh, int null_flag = 0)
    {
        return kernel(mesh, 0, null_flag, flags, table, &connect, &used, &capacity,
                      map != nullptr ? &map : nullptr);
    }

    std::vector<qx_long> list() const { return {connect, connect + used}; }
    std::vector<std::pair<qx_long, qx_long>> nodes() const
    {
        std::vector<std::pair<qx_long, qx_long>> pairs;
        for (int e = 0; e < table->nedges; ++e)
            pairs.push_back({table->min_list[e], table->max_list[e]});
        return pairs;
    }
};

// ---- calls -----------------------------------------------------------------------------------------------

inline std::vector<qx_long> take(qx_long *list, qx_long count)
{
    std::vector<qx_long> taken;
    if (list != nullptr) taken.assign(list, list + count);
    free(list);
    return taken;
}

// What the outputs of a call held afterwards, for tests that look at pointers.
struct raw_output {
    int status = -7;
    qx_long nnodes = -7, nline = -7, nline_conn = -7, ntri = -7, ntri_conn = -7;
    qx_long *min_node = nullptr, *max_node = nullptr, *line_conn = nullptr, *tri_conn = nullptr;
    std::vector<qx_long> map_count;
    std::vector<qx_long *> map;

    raw_output()
    {
        qx_long *const nowhere = reinterpret_cast<qx_long *>(16); // every pointer is written
        min_node = max_node = line_conn = tri_conn = nowhere;
    }

    bool all_zero() const
    {
        return nnodes == 0 && nline == 0 && nline_conn == 0 && ntri == 0 && ntri_conn == 0 &&
               min_node == nullptr && max_node == nullptr && line_conn == nullptr && tri_conn == nullptr;
    }

    void release()
    {
        for (qx_long *list : {min_node, max_node, line_conn, tri_conn})
            free(list);
        for (qx_long *list : map)
            free(list);
    }
};

struct call {
    mesh_info *mesh;
    const void *data;
    int data_type;
    int null_flag = 0;
    const void *null_value = nullptr;
    double level = 0;
    operation what = operation::isosurface;
    bool with_maps = false;
};

inline raw_output run_raw(const call &c)
{
    raw_output out;
    qx_long *map_count = nullptr, **map = nullptr;
    if (c.with_maps) {
        out.map_count.assign(static_cast<size_t>(c.mesh->ncell_sets), -7);
        out.map.assign(static_cast<size_t>(c.mesh->ncell_sets), nullptr);
        map_count = out.map_count.data();
        map = out.map.data();
    }
    if (c.what == operation::isosurface) {
        out.status =
            UTILslice_cells(c.mesh, c.data, c.data_type, c.null_flag, c.null_value, c.level, &out.nnodes,
                            &out.min_node, &out.max_node, &out.nline, &out.line_conn, &out.nline_conn,
                            &out.ntri, &out.tri_conn, &out.ntri_conn, map_count, map);
    } else {
        out.ntri = out.ntri_conn = 0;
        out.tri_conn = nullptr;
        out.status = UTILisoline_cells(c.mesh, c.data, c.data_type, c.null_flag, c.null_value, c.level,
                                       &out.nnodes, &out.min_node, &out.max_node, &out.nline, &out.line_conn,
                                       &out.nline_conn, map_count, map);
    }
    return out;
}

inline output taken(raw_output raw)
{
    output out;
    out.status = raw.status;
    out.ntri = raw.ntri;
    out.nline = raw.nline;
    out.has_triangles = raw.tri_conn != nullptr;
    out.has_lines = raw.line_conn != nullptr;
    out.triangles = take(raw.tri_conn, raw.ntri_conn);
    out.lines = take(raw.line_conn, raw.nline_conn);
    const std::vector<qx_long> lo = take(raw.min_node, raw.nnodes), hi = take(raw.max_node, raw.nnodes);
    for (size_t i = 0; i < lo.size(); ++i)
        out.nodes.push_back({lo[i], hi[i]});
    for (size_t set = 0; set < raw.map.size(); ++set)
        out.maps.push_back(raw.map[set] != nullptr ? take(raw.map[set], raw.map_count[set])
                                                   : std::vector<qx_long>{raw.map_count[set]});
    return out;
}

inline output run(const call &c)
{
    return taken(run_raw(c));
}

// ---- comparison ------------------------------------------------------------------------------------------

template <typename T> constexpr int code_of()
{
    return std::is_same_v<T, signed char>     ? DTYPE_CHAR
           : std::is_same_v<T, unsigned char> ? DTYPE_BYTE
           : std::is_same_v<T, short>         ? DTYPE_SHORT
           : std::is_same_v<T, int>           ? DTYPE_INT
           : std::is_same_v<T, float>         ? DTYPE_FLOAT
           : std::is_same_v<T, double>        ? DTYPE_DOUBLE
                                              : DTYPE_QX_LONG;
}

// Random values with some on the level, some null and, where the type has it, some NaN.
template <typename T> std::vector<T> rough_values(uint64_t seed, qx_long count, T level, T null_value)
{
    std::vector<T> values = meshes::random_values<T>(seed, count, 0, 100);
    for (size_t i = 0; i < values.size(); ++i) {
        if (i % 7 == 3) values[i] = level;
        if (i % 31 == 5) values[i] = null_value;
        if (std::numeric_limits<T>::has_quiet_NaN && i % 41 == 9)
            values[i] = std::numeric_limits<T>::quiet_NaN();
    }
    return values;
}

// Runs one call on any mesh against the reference.
template <typename T>
output expect_reference(operation what, const meshes::test_mesh &mesh, const std::vector<T> &data,
                        double level, bool nulls, T null_value, bool with_maps, const std::string &where)
{
    const call request = {mesh.mesh, data.data(), code_of<T>(), nulls ? 1 : 0, nulls ? &null_value : nullptr,
                          level,     what,        with_maps};
    const output got = run(request);
    const output wanted =
        expected(mesh, classify(data, level, nulls ? &null_value : nullptr), nulls, what, with_maps);
    EXPECT_EQ(got.status, 1) << where;
    EXPECT_EQ(got.nodes, wanted.nodes) << where;
    EXPECT_EQ(got.triangles, wanted.triangles) << where;
    EXPECT_EQ(got.lines, wanted.lines) << where;
    EXPECT_EQ(got.maps, wanted.maps) << where;
    EXPECT_TRUE(got == wanted) << where;
    return got;
}

} // namespace levels
