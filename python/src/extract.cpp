// Extractions: levels, cuts, bands, slices and parts of a mesh, as the parts that results are made of.
//
// All of them come to one form: nodes of the mesh that are in the result, new nodes between two of the mesh, and sets
// of cells over both, each cell with the number of the mesh's cell that it was made of. New nodes of bands may lie
// between a node and another new one; they have a third node. Rows of cells are handed out in VTK's order of nodes.
#include "core.hpp"

#include <skoklana/cut.h>
#include <skoklana/iso.h>
#include <skoklana/mesh.h>
#include <skoklana/thread.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace {

struct made_set {
    int kind, order;
    qx_long count;
    list_of<qx_long> connect;
    list_of<qx_long> cell; // null: not known
};

struct made_parts {
    qx_long nold = 0, nnew = 0;
    list_of<qx_long> old_node, first, second, third;
    list_of<float> t, s;
    list_of<float> coords;
    std::vector<made_set> sets;
};

// clang-format off
// Which of VTK's nodes is node k, by kind.
constexpr signed char vtk_node[CELL_KINDS][20] = {
    {0, 1, 2},
    {0, 1, 2, 3, 4, 5},
    {0, 1, 2, 3, 4, 5, 6, 7},
    {1, 2, 3, 0, 5, 8, 4, 9, 7, 6},
    {4, 2, 3, 0, 1, 11, 12, 9, 10, 7, 8, 5, 6},
    {4, 5, 3, 1, 2, 0, 10, 11, 9, 7, 8, 6, 14, 13, 12},
    {7, 4, 5, 6, 3, 0, 1, 2, 15, 12, 13, 14, 11, 8, 9, 10, 19, 16, 17, 18},
};
// clang-format on

int length_of(int kind, int order)
{
    return order == 1 ? cell_kinds[kind].ncorners : cell_kinds[kind].nnodes_2;
}

void reorder_rows(qx_long *rows, qx_long count, int kind, int order, bool to_vtk)
{
    const int length = length_of(kind, order);
    if (cell_kinds[kind].ndim < 3) return;
    qx_long row[20];
    for (qx_long cell = 0; cell < count; ++cell, rows += length) {
        std::copy_n(rows, length, row);
        for (int k = 0; k < length; ++k)
            if (to_vtk)
                rows[vtk_node[kind][k]] = row[k];
            else
                rows[k] = row[vtk_node[kind][k]];
    }
}

py::dict hand_out(made_parts *parts, int nspace)
{
    py::dict out;
    const qx_long nnew = parts->nnew, nnodes = parts->nold + nnew;
    out["old"] = adopt(std::move(parts->old_node), {parts->nold});
    out["first"] = adopt(std::move(parts->first), {nnew});
    out["second"] = adopt(std::move(parts->second), {nnew});
    out["t"] = adopt(std::move(parts->t), {nnew});
    if (parts->third != nullptr) {
        out["third"] = adopt(std::move(parts->third), {nnew});
        out["s"] = adopt(std::move(parts->s), {nnew});
    }
    if (parts->coords != nullptr) out["points"] = adopt(std::move(parts->coords), {nnodes, nspace});
    py::list sets;
    for (made_set &set : parts->sets) {
        py::object cell = py::none();
        if (set.cell != nullptr) cell = adopt(std::move(set.cell), {set.count});
        sets.append(py::make_tuple(set.kind, set.order,
                                   adopt(std::move(set.connect), {set.count, length_of(set.kind, set.order)}),
                                   cell));
    }
    out["sets"] = sets;
    return out;
}

void put_in_vtk_order(made_parts *parts)
{
    for (made_set &set : parts->sets)
        reorder_rows(set.connect.get(), set.count, set.kind, set.order, true);
}

// ---- what the extractions share -------------------------------------------------------------------------------

template <typename T> list_of<T> taken(T *&list)
{
    return list_of<T>(std::exchange(list, nullptr));
}

// Places in a list, kept in their order.
template <typename T>
list_of<T> chosen_rows(const list_of<T> &from, const std::vector<qx_long> &rows, int length = 1)
{
    if (from == nullptr) return nullptr;
    list_of<T> made = new_list<T>(static_cast<qx_long>(rows.size()) * length);
    T *to = made.get();
    for (const qx_long row : rows)
        to = std::copy_n(from.get() + row * length, length, to);
    return made;
}

// Takes out the nodes that no cell has.
void drop_unused(made_parts *parts, int nspace)
{
    std::vector<qx_long> number(static_cast<size_t>(parts->nold + parts->nnew), -1);
    for (const made_set &set : parts->sets) {
        const qx_long entries = set.count * length_of(set.kind, set.order);
        for (qx_long i = 0; i < entries; ++i)
            number[static_cast<size_t>(set.connect[i])] = 0;
    }
    std::vector<qx_long> old_rows, new_rows, all_rows;
    for (size_t node = 0; node < number.size(); ++node) {
        if (number[node] < 0) continue;
        const auto row = static_cast<qx_long>(node);
        number[node] = static_cast<qx_long>(all_rows.size());
        all_rows.push_back(row);
        if (row < parts->nold)
            old_rows.push_back(row);
        else
            new_rows.push_back(row - parts->nold);
    }
    if (all_rows.size() == number.size()) return;
    for (made_set &set : parts->sets) {
        const qx_long entries = set.count * length_of(set.kind, set.order);
        for (qx_long i = 0; i < entries; ++i)
            set.connect[i] = number[static_cast<size_t>(set.connect[i])];
    }
    parts->old_node = chosen_rows(parts->old_node, old_rows);
    for (list_of<qx_long> *list : {&parts->first, &parts->second, &parts->third})
        *list = chosen_rows(*list, new_rows);
    for (list_of<float> *list : {&parts->t, &parts->s})
        *list = chosen_rows(*list, new_rows);
    parts->coords = chosen_rows(parts->coords, all_rows, nspace);
    parts->nold = static_cast<qx_long>(old_rows.size());
    parts->nnew = static_cast<qx_long>(new_rows.size());
}

// The places of all nodes. False: the mesh could not tell.
bool place(mesh_info *mesh, made_parts *parts)
{
    const int nspace = mesh->nspace;
    parts->coords = new_list<float>((parts->nold + parts->nnew) * nspace);
    float *to = parts->coords.get();
    if (mesh->ndim != 0) {
        if (parts->nold > 0 && UTILget_coord_list(mesh, parts->nold, parts->old_node.get(), to) != 1)
            return false;
    } else {
        if (mesh->coords == nullptr && mesh->get_coords(mesh, &mesh->coords) != 1) return false;
        for (qx_long i = 0; i < parts->nold; ++i)
            std::copy_n(mesh->coords + parts->old_node[i] * nspace, nspace, to + i * nspace);
    }
    return parts->nnew == 0 || UTILeval_coord(mesh, parts->nnew, parts->first.get(), parts->second.get(),
                                              parts->t.get(), to + parts->nold * nspace) == 1;
}

// The nodes of the mesh that a node map keeps, or the list of them that lattices have.
list_of<qx_long> kept_nodes(const mesh_info *mesh, list_of<qx_long> map, qx_long nold)
{
    if (mesh->ndim != 0) return map;
    list_of<qx_long> made = new_list<qx_long>(nold);
    qx_long filled = 0;
    for (qx_long node = 0; node < mesh->nnodes; ++node)
        if (map[node] >= 0) made[filled++] = node;
    return made;
}

// The lists of the library, released whatever happens.
struct owned_maps {
    std::vector<qx_long> count;
    std::vector<qx_long *> map;

    explicit owned_maps(size_t n) : count(n), map(n) {}
    ~owned_maps()
    {
        for (qx_long *list : map)
            host_free(list);
    }
    owned_maps(const owned_maps &) = delete;
    owned_maps &operator=(const owned_maps &) = delete;
};

qx_long first_cell(const mesh_info *mesh, size_t set)
{
    return mesh->ndim == 0 ? mesh->cell_first[set] : 0;
}

size_t sets_of(const mesh_info *mesh)
{
    return mesh->ndim == 0 ? static_cast<size_t>(mesh->ncell_sets) : 1;
}

// ---- levels -----------------------------------------------------------------------------------------------------

void take_result(host_result *made, made_parts *parts)
{
    const std::unique_ptr<host_result, void (*)(host_result *)> held(made, host_free_result);
    parts->nold = made->nold;
    parts->nnew = made->nnodes - made->nold;
    parts->old_node = taken(made->old_node);
    parts->first = taken(made->first_node);
    parts->second = taken(made->second_node);
    parts->t = taken(made->t);
    parts->coords = taken(made->coords);
    for (int s = 0; s < made->nsets; ++s) {
        host_set &set = made->sets[s];
        parts->sets.push_back({set.kind, set.order, set.ncells, taken(set.connect), taken(set.cell)});
    }
}

int extract_level(host_field *field, const host_array &array, double level, bool lines, bool cells,
                  made_parts *parts)
{
    host_level_options options = {};
    options.size = sizeof options;
    options.without_cells = cells ? 0 : 1;
    host_result *made = nullptr;
    const int done = lines ? host_isoline(field, &array, level, &options, &made)
                           : host_isosurf(field, &array, level, &options, &made);
    if (done == HOST_DONE) take_result(made, parts);
    return done;
}

// Threads take slabs along the last axis of a lattice of three axes, one plane of cells each at the least; 1 for others.
int threads_for(const mesh_info *mesh, int threads)
{
    if (mesh->ndim != 3 || threads < 2) return 1;
    return static_cast<int>(std::min<qx_long>(threads, std::max<qx_long>(mesh->dims[2] - 1, 1)));
}

// The same lists, slab by slab.
int extract_level_by_threads(mesh_info *mesh, const rows_arg &values, double level, bool cells, int threads,
                             made_parts *parts)
{
    qx_long nnew = 0, *first = nullptr, *second = nullptr, nline = 0, *line = nullptr, nline_conn = 0,
            ntri = 0, *tri = nullptr, ntri_conn = 0;
    owned_maps maps(1);
    const host_array &data = values.array;
    if (UTILmt_slice_struct(threads, mesh, data.data, data.type, values.null_flag(), data.null, level, &nnew,
                            &first, &second, &nline, &line, &nline_conn, &ntri, &tri, &ntri_conn,
                            cells ? maps.count.data() : nullptr, cells ? maps.map.data() : nullptr) != 1)
        return library_failed;
    host_free(line);
    list_of<qx_long> rows(tri);
    parts->nnew = nnew;
    parts->first.reset(first);
    parts->second.reset(second);
    if (ntri > 0) parts->sets.push_back({CELL_TRI, 1, ntri, std::move(rows), taken(maps.map[0])});
    parts->t = new_list<float>(nnew);
    return of_library(UTILget_param(nnew, data.type, data.data, level, first, second, parts->t.get()) == 1 &&
                      place(mesh, parts));
}

py::dict level_of(mesh_object &mesh, const py::array &values, const py::object &null, double level,
                  bool lines, bool cells, int threads, const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    made_parts parts;
    run_call(lines ? "isoline" : "isosurface", &mesh, progress, [&] {
        host_field *field = mesh.field_of_extractions();
        mesh_info *record = host_mesh(field);
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        const int shares = lines ? 1 : threads_for(record, threads);
        return shares > 1 ? extract_level_by_threads(record, rows, level, cells, shares, &parts)
                          : extract_level(field, rows.array, level, lines, cells, &parts);
    });
    return hand_out(&parts, mesh.nspace);
}

// The level through a seed, followed from cell to cell.
py::tuple trace_of(mesh_object &mesh, const py::array &values, const py::object &null, const py::array &seed,
                   bool lines, const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    const float *at = elements<float>("seed", seed, 3);
    made_parts parts;
    double level = std::numeric_limits<double>::quiet_NaN();
    bool found = true;
    run_call("trace", &mesh, progress, [&] {
        mesh_info *record = mesh.record();
        qx_long nnew = 0, *first = nullptr, *second = nullptr, nprim = 0, *conn = nullptr, nconn = 0;
        const blk_tbl *table = mesh.table();
        const auto trace = lines ? UTILisoline_trace : UTILiso_trace;
        const int done = trace(record, at, rows.array.data, rows.array.type, rows.null_flag(),
                               rows.array.null, table, &level, &nnew, &first, &second, &nprim, &conn, &nconn);
        if (done == -1) return static_cast<int>(HOST_STOPPED);
        if (done != 1) {
            found = false; // not in the mesh, or without a value there
            return host_last_report(0, nullptr, nullptr) == 1 ? library_failed : static_cast<int>(HOST_DONE);
        }
        parts.nnew = nnew;
        parts.first.reset(first);
        parts.second.reset(second);
        parts.t = new_list<float>(nnew);
        if (nprim > 0)
            parts.sets.push_back({lines ? CELL_LINE : CELL_TRI, 1, nprim, list_of<qx_long>(conn), nullptr});
        else
            host_free(conn);
        return of_library(
            UTILget_param(nnew, rows.array.type, rows.array.data, level, first, second, parts.t.get()) == 1 &&
            place(record, &parts));
    });
    return py::make_tuple(found, level, hand_out(&parts, mesh.nspace));
}

// ---- chains of lines ----------------------------------------------------------------------------------------------

// Which lines have a node: those from first[node] to first[node + 1] - 1 of line, line i as 2 i or, from its other end,
// 2 i + 1.
struct line_ends {
    std::vector<qx_long> first, line;

    line_ends(const qx_long *lines, qx_long count, qx_long nnodes)
        : first(static_cast<size_t>(nnodes) + 2), line(static_cast<size_t>(2 * count))
    {
        for (qx_long i = 0; i < 2 * count; ++i)
            ++first[static_cast<size_t>(lines[i]) + 2];
        for (size_t node = 2; node < first.size(); ++node)
            first[node] += first[node - 1];
        for (qx_long i = 0; i < 2 * count; ++i)
            line[static_cast<size_t>(first[static_cast<size_t>(lines[i]) + 1]++)] = i;
    }
};

// Chains run from ends and forks first, then around rings; each line is in one chain once.
struct chained_lines {
    std::vector<qx_long> path, begin;

    chained_lines(const qx_long *lines_, qx_long count, qx_long nnodes)
        : lines(lines_), ends(lines_, count, nnodes), used(static_cast<size_t>(count))
    {
        const auto size = [&](qx_long node) {
            const auto n = static_cast<size_t>(node);
            return ends.first[n + 1] - ends.first[n];
        };
        for (const bool rings : {false, true})
            for (qx_long node = 0; node < nnodes; ++node)
                if (rings || size(node) != 2)
                    while (follow(node, size)) {
                    }
        begin.push_back(static_cast<qx_long>(path.size()));
    }

  private:
    qx_long unused_end(qx_long node) const
    {
        const auto n = static_cast<size_t>(node);
        for (qx_long i = ends.first[n]; i < ends.first[n + 1]; ++i) {
            const qx_long end = ends.line[static_cast<size_t>(i)];
            if (used[static_cast<size_t>(end / 2)] == 0) return end;
        }
        return -1;
    }

    // The chain along the first line of a node that none has; false: there is none.
    template <typename Size> bool follow(qx_long node, const Size &size)
    {
        qx_long end = unused_end(node);
        if (end < 0) return false;
        begin.push_back(static_cast<qx_long>(path.size()));
        path.push_back(node);
        while (end >= 0) {
            used[static_cast<size_t>(end / 2)] = 1;
            const qx_long next = lines[end ^ 1];
            path.push_back(next);
            end = size(next) == 2 ? unused_end(next) : -1;
        }
        return true;
    }

    const qx_long *lines;
    line_ends ends;
    std::vector<char> used;
};

list_of<qx_long> copied(const std::vector<qx_long> &from)
{
    list_of<qx_long> made = new_list<qx_long>(static_cast<qx_long>(from.size()));
    std::copy(from.begin(), from.end(), made.get());
    return made;
}

// The nodes of all chains, one chain after the other, and where each begins.
py::tuple chains_of(const py::array &lines, qx_long nnodes)
{
    const qx_long count = lines.size() / 2;
    const qx_long *given = elements<qx_long>("lines", lines, 2 * count);
    for (qx_long i = 0; i < 2 * count; ++i)
        if (given[i] < 0 || given[i] >= nnodes)
            throw py::index_error("lines: line " + std::to_string(i / 2) + " names node " +
                                  std::to_string(given[i]) + ", but there are " + std::to_string(nnodes));
    list_of<qx_long> path, begin;
    qx_long npath = 0, nbegin = 0;
    run_call("chains", nullptr, py::none(), [&] {
        const chained_lines chains(given, count, nnodes);
        npath = static_cast<qx_long>(chains.path.size());
        nbegin = static_cast<qx_long>(chains.begin.size());
        path = copied(chains.path);
        begin = copied(chains.begin);
        return static_cast<int>(HOST_DONE);
    });
    return py::make_tuple(adopt(std::move(path), {npath}), adopt(std::move(begin), {nbegin}));
}

// The library's own chains, in the place of the lines.
void join_lines(const py::array &lines, qx_long nnodes)
{
    const qx_long count = lines.size();
    auto *given = const_cast<qx_long *>(elements<qx_long>("lines", lines, count));
    for (qx_long i = 0; i < count; ++i)
        if (given[i] < 0 || given[i] >= nnodes)
            throw py::index_error("lines: a line names a node that there is not");
    run_call("join_lines", nullptr, py::none(),
             [&] { return of_library(UTILlines_to_chains(given, count, nnodes) == 1); });
}

// ---- cuts and bands -------------------------------------------------------------------------------------------------

constexpr size_t ncut_lists = 7, nband_lists = 6;
constexpr int kind_of_list[ncut_lists] = {CELL_TET, CELL_PRISM, CELL_PYR, CELL_HEX,
                                          CELL_TRI, CELL_QUAD,  CELL_LINE};

// The maps of one output list, set by set, as numbers of the mesh's cells.
list_of<qx_long> joined_cells(const mesh_info *mesh, const owned_maps &maps, size_t list, qx_long count)
{
    list_of<qx_long> all = new_list<qx_long>(count);
    qx_long filled = 0;
    for (size_t set = 0; set < sets_of(mesh); ++set) {
        const size_t at = set * ncut_lists + list;
        for (qx_long i = 0; i < maps.count[at]; ++i)
            all[filled++] = maps.map[at][i] + first_cell(mesh, set);
    }
    return all;
}

int cut(mesh_info *mesh, const rows_arg &values, double level, int side, bool all_nodes, int threads,
        made_parts *parts)
{
    owned_maps maps(std::max<size_t>(sets_of(mesh), 1) * ncut_lists);
    qx_long nold = 0, *nodes = nullptr, nnew = 0, *first = nullptr, *second = nullptr;
    qx_long ncells[ncut_lists] = {}, *connect[ncut_lists] = {}, nconnect[ncut_lists] = {};
    const host_array &data = values.array;
    const int shares = threads_for(mesh, threads);
    // By threads nulls beside the plane between two slabs may be refused; one thread takes them.
    bool done =
        shares > 1 && UTILmt_cut_struct_3d(shares, mesh, data.data, data.type, values.null_flag(), data.null,
                                           level, side, &nold, &nodes, &nnew, &first, &second, ncells,
                                           connect, nconnect, maps.count.data(), maps.map.data()) == 1;
    if (!done && (shares < 2 || values.null_flag() != 0))
        done = UTILcut(mesh, data.data, data.type, values.null_flag(), data.null, level, side, &nold, &nodes,
                       &nnew, &first, &second, ncells, connect, nconnect, maps.count.data(),
                       maps.map.data()) == 1;
    if (!done) {
        for (qx_long *list : connect)
            host_free(list);
        return library_failed;
    }
    list_of<qx_long> kept(nodes);
    parts->first.reset(first);
    parts->second.reset(second);
    list_of<qx_long> held[ncut_lists];
    for (size_t list = 0; list < ncut_lists; ++list)
        held[list].reset(connect[list]);
    parts->nold = nold;
    parts->nnew = nnew;
    parts->old_node = kept_nodes(mesh, std::move(kept), nold);
    for (size_t list = 0; list < ncut_lists; ++list)
        if (ncells[list] > 0)
            parts->sets.push_back({kind_of_list[list], 1, ncells[list], std::move(held[list]),
                                   joined_cells(mesh, maps, list, ncells[list])});
    parts->t = new_list<float>(nnew);
    if (UTILget_param(nnew, data.type, data.data, level, first, second, parts->t.get()) != 1)
        return library_failed;
    if (!all_nodes) drop_unused(parts, mesh->nspace);
    return of_library(place(mesh, parts));
}

py::dict cut_of(mesh_object &mesh, const py::array &values, const py::object &null, double level, int side,
                bool all_nodes, int threads, const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    made_parts parts;
    run_call("cut", &mesh, progress, [&] {
        mesh_info *record = host_mesh(mesh.field_of_extractions());
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        if (record->ndim == 1)
            throw std::invalid_argument("cut: the library has none for meshes of one axis");
        const int done = cut(record, rows, level, side, all_nodes, threads, &parts);
        put_in_vtk_order(&parts);
        return done;
    });
    return hand_out(&parts, mesh.nspace);
}

// Where the new nodes of a band lie. What lies between a node and another new node has a third one.
template <typename T>
void find_places(const mesh_info *mesh, const T *values, const double *levels, const unsigned char *level_of,
                 made_parts *parts)
{
    const qx_long nnew = parts->nnew, nnodes = mesh->nnodes;
    const qx_long *second = parts->second.get();
    const bool nested = std::any_of(second, second + nnew, [=](qx_long node) { return node >= nnodes; });
    parts->t = new_list<float>(nnew);
    if (nested) {
        parts->third = new_list<qx_long>(nnew);
        parts->s = new_list<float>(nnew);
    }
    for (qx_long e = 0; e < nnew; ++e) {
        const qx_long end = parts->second[e];
        const auto a = static_cast<double>(values[parts->first[e]]);
        const double b = end < nnodes ? static_cast<double>(values[end]) : levels[level_of[end - nnodes]];
        parts->t[e] = a == b ? 0 : static_cast<float>((levels[level_of[e]] - a) / (b - a));
    }
    for (qx_long e = 0; nested && e < nnew; ++e) {
        const qx_long end = parts->second[e] - nnodes;
        parts->third[e] = -1;
        parts->s[e] = 0;
        if (end < 0) continue;
        parts->third[e] = parts->second[end];
        parts->s[e] = parts->t[end];
    }
    for (qx_long e = 0; nested && e < nnew; ++e)
        if (parts->third[e] >= 0) parts->second[e] = parts->first[parts->second[e] - nnodes];
}

int band(mesh_info *mesh, const rows_arg &values, const double *levels, bool lines, made_parts *parts)
{
    qx_long nold = 0, *nodes = nullptr, nnew = 0, *first = nullptr, *second = nullptr;
    qx_long ncells[nband_lists] = {}, *connect[nband_lists] = {}, nconnect[nband_lists] = {};
    qx_long nlow = lines ? 1 : 0, nhigh = nlow, *low = nullptr, *high = nullptr;
    unsigned char *level_list = nullptr;
    float *coords = nullptr;
    const host_array &data = values.array;
    if (UTILcontour(mesh, data.data, data.type, values.null_flag(), data.null, levels[0], levels[1], &nold,
                    &nodes, &nnew, &first, &second, &level_list, ncells, connect, nconnect, mesh->nspace,
                    &coords, &nlow, &low, &nhigh, &high) != 1) {
        for (qx_long *list : connect)
            host_free(list);
        host_free(low);
        host_free(high);
        return library_failed;
    }
    list_of<qx_long> kept(nodes), low_lines(low), high_lines(high), held[nband_lists];
    parts->first.reset(first);
    parts->second.reset(second);
    parts->coords.reset(coords);
    const list_of<unsigned char> level_of(level_list);
    for (size_t list = 0; list < nband_lists; ++list)
        held[list].reset(connect[list]);
    parts->nold = nold;
    parts->nnew = nnew;
    parts->old_node = kept_nodes(mesh, std::move(kept), nold);
    for (size_t list = 0; list < nband_lists; ++list)
        if (ncells[list] > 0)
            parts->sets.push_back({kind_of_list[list], 1, ncells[list], std::move(held[list]), nullptr});
    if (low_lines != nullptr && nlow > 0)
        parts->sets.push_back({CELL_LINE, 1, nlow, std::move(low_lines), nullptr});
    if (high_lines != nullptr && nhigh > 0)
        parts->sets.push_back({CELL_LINE, 1, nhigh, std::move(high_lines), nullptr});
    switch (data.type) {
#define PLACES_OF(code, T) \
    case code: find_places(mesh, static_cast<const T *>(data.data), levels, level_of.get(), parts); break;
        PLACES_OF(DTYPE_CHAR, signed char)
        PLACES_OF(DTYPE_BYTE, unsigned char)
        PLACES_OF(DTYPE_SHORT, short)
        PLACES_OF(DTYPE_INT, int)
        PLACES_OF(DTYPE_FLOAT, float)
        PLACES_OF(DTYPE_DOUBLE, double)
        PLACES_OF(DTYPE_QX_LONG, qx_long)
#undef PLACES_OF
    default: return library_failed;
    }
    drop_unused(parts, mesh->nspace);
    return HOST_DONE;
}

py::dict band_of(mesh_object &mesh, const py::array &values, const py::object &null, double low, double high,
                 bool lines, const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    const double levels[2] = {low, high};
    made_parts parts;
    run_call("band", &mesh, progress, [&] {
        mesh_info *record = host_mesh(mesh.field_of_extractions());
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        if (record->ndim == 1)
            throw std::invalid_argument("band: the library has none for meshes of one axis");
        const int done = band(record, rows, levels, lines, &parts);
        put_in_vtk_order(&parts);
        return done;
    });
    return hand_out(&parts, mesh.nspace);
}

// ---- slices -----------------------------------------------------------------------------------------------------------

// The distances of the nodes from a plane, 0 within the rounding of coordinates. A node in the plane counts as above
// it, so that a side of a cell in the plane comes from the cell below it; where no cell is below, it is moved below by
// next to nothing, and the side comes from the cell above.
std::vector<double> distances_to(mesh_info *mesh, const double *origin, const double *normal)
{
    const int nspace = mesh->nspace;
    const double length = std::hypot(normal[0], normal[1], normal[2]);
    double largest = 0;
    for (int d = 0; d < 3; ++d) {
        largest = std::max(largest, std::fabs(origin[d]));
        if (d < nspace)
            largest = std::max({largest, std::fabs(static_cast<double>(mesh->min_ext[d])),
                                std::fabs(static_cast<double>(mesh->max_ext[d]))});
    }
    const double rounding = 2 * largest * static_cast<double>(std::numeric_limits<float>::epsilon());
    std::vector<double> distance(static_cast<size_t>(mesh->nnodes));
    for (qx_long node = 0; node < mesh->nnodes; ++node) {
        double at = 0;
        for (int d = 0; d < 3; ++d) {
            const double x = d < nspace ? static_cast<double>(mesh->coords[node * nspace + d]) : 0;
            at += (x - origin[d]) * (normal[d] / length);
        }
        distance[static_cast<size_t>(node)] = std::fabs(at) <= rounding ? 0 : at;
    }
    return distance;
}

void close_lower_rim(mesh_info *mesh, std::vector<double> *distance)
{
    constexpr double next_to_nothing = 1e-300;
    std::vector<char> has_below(distance->size());
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        if (mesh->cell_connect[set] == nullptr && mesh->get_connect(mesh, set, &mesh->cell_connect[set]) != 1)
            throw std::bad_alloc();
        const qx_long *row = mesh->cell_connect[set];
        const int length = mesh->cell_nnodes[set];
        for (qx_long cell = 0; cell < mesh->cell_count[set]; ++cell, row += length) {
            const bool below = std::any_of(
                row, row + length, [&](qx_long node) { return (*distance)[static_cast<size_t>(node)] < 0; });
            for (int k = 0; below && k < length; ++k)
                has_below[static_cast<size_t>(row[k])] = 1;
        }
    }
    for (size_t node = 0; node < distance->size(); ++node)
        if ((*distance)[node] == 0 && has_below[node] == 0) (*distance)[node] = -next_to_nothing;
}

py::dict slice_of(mesh_object &mesh, const py::array &origin, const py::array &normal, bool cells,
                  const py::object &progress)
{
    const double *at = elements<double>("origin", origin, 3), *across = elements<double>("normal", normal, 3);
    made_parts parts;
    run_call("slice", &mesh, progress, [&] {
        host_field *field = mesh.field_of_extractions();
        mesh_info *record = host_mesh(field);
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        if (record->coords == nullptr && record->get_coords(record, &record->coords) != 1)
            return library_failed;
        std::vector<double> distance = distances_to(record, at, across);
        if (std::find(distance.begin(), distance.end(), 0.0) != distance.end())
            close_lower_rim(record, &distance);
        const host_array array = {distance.data(), DTYPE_DOUBLE, 1, nullptr};
        return extract_level(field, array, 0, false, cells, &parts);
    });
    return hand_out(&parts, mesh.nspace);
}

// The library's own slice of uniform and rectilinear meshes of three axes: a grid on the plane.
py::tuple plane_grid_of(mesh_object &mesh, const py::array &normal, double distance)
{
    const float *across = elements<float>("normal", normal, 3);
    list_of<qx_long> low, high;
    list_of<float> weight, points;
    list_of<unsigned char> valid;
    qx_long dims[2] = {};
    float xform[16] = {};
    run_call("plane_grid", &mesh, py::none(), [&] {
        mesh_info *record = mesh.record();
        if (record->ndim != 3 || record->nspace != 3 || record->methods->rslice_func == nullptr)
            throw std::invalid_argument("plane_grid: the library has none for this kind of mesh");
        if (record->points == nullptr && record->get_points(record, &record->points) != 1)
            return library_failed;
        points = new_list<float>(3 * (record->dims[0] + record->dims[1] + record->dims[2]));
        qx_long *lo = nullptr, *hi = nullptr;
        float *part = nullptr;
        unsigned char *in = nullptr;
        UTILrslice(record, record->dims, record->points, across, distance, dims, points.get(), 3, xform, &lo,
                   &hi, &part, &in);
        low.reset(lo);
        high.reset(hi);
        weight.reset(part);
        valid.reset(in);
        return of_library(lo != nullptr);
    });
    const py::array_t<float> matrix(std::vector<py::ssize_t>{4, 4}, xform);
    return py::make_tuple(
        matrix, adopt(std::move(low), {dims[1], dims[0]}), adopt(std::move(high), {dims[1], dims[0]}),
        adopt(std::move(weight), {dims[1], dims[0]}), adopt(std::move(valid), {dims[1], dims[0]}));
}

// ---- parts of a mesh ----------------------------------------------------------------------------------------------------

// Whole cells, chosen by a mark each.
py::dict cells_by_mark(mesh_object &mesh, const py::array &marks, const py::object &progress)
{
    const qx_long ncells = marks.size();
    const unsigned char *mark = elements<unsigned char>("marks", marks, ncells);
    made_parts parts;
    run_call("threshold", &mesh, progress, [&] {
        mesh_info *record = host_mesh(mesh.lattice ? mesh.field_of_extractions() : mesh.field());
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        if (record->ncells != ncells) throw std::invalid_argument("marks: has the wrong length");
        qx_long before = 0;
        const unsigned char out = 0;
        for (size_t set = 0; set < sets_of(record); ++set) {
            const qx_long count = record->ndim == 0 ? record->cell_count[set] : record->ncells;
            qx_long left = 0, *connect = nullptr, entries = 0;
            if (UTILthresh_null_from_cells(record, static_cast<int>(set), mark + before, DTYPE_BYTE, &out,
                                           &left, &connect, &entries) != 1)
                return library_failed;
            list_of<qx_long> rows(connect);
            if (left > 0) {
                list_of<qx_long> cell = new_list<qx_long>(left);
                qx_long filled = 0;
                for (qx_long c = 0; c < count; ++c)
                    if (mark[before + c] != 0) cell[filled++] = before + c;
                int kind = record->ndim == 0 ? mesh.sets[set].kind : -1, order = 1;
                if (kind < 0)
                    kind = record->ndim == 3 ? CELL_HEX : record->ndim == 2 ? CELL_QUAD : CELL_LINE;
                else
                    order = mesh.sets[set].order;
                parts.sets.push_back({kind, order, left, std::move(rows), std::move(cell)});
            }
            before += count;
        }
        parts.nold = record->nnodes;
        parts.old_node = new_list<qx_long>(parts.nold);
        for (qx_long node = 0; node < parts.nold; ++node)
            parts.old_node[node] = node;
        drop_unused(&parts, record->nspace);
        if (!place(record, &parts)) return library_failed;
        put_in_vtk_order(&parts);
        return static_cast<int>(HOST_DONE);
    });
    return hand_out(&parts, mesh.nspace);
}

// A mark a cell by marks of nodes: whether all of its nodes have one, or any.
py::array marks_of_cells(mesh_object &mesh, const py::array &node_marks, bool any)
{
    const qx_long nnodes = mesh.nnodes;
    const unsigned char *of_node = elements<unsigned char>("marks", node_marks, nnodes);
    list_of<unsigned char> made;
    qx_long ncells = 0;
    run_call("threshold", &mesh, py::none(), [&] {
        mesh_info *record = host_mesh(mesh.lattice ? mesh.field_of_extractions() : mesh.field());
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        ncells = record->ncells;
        made = new_list<unsigned char>(ncells);
        qx_long filled = 0;
        for (int set = 0; set < record->ncell_sets; ++set) {
            if (record->cell_connect[set] == nullptr &&
                record->get_connect(record, set, &record->cell_connect[set]) != 1)
                return library_failed;
            const int length = record->cell_nnodes[set];
            const qx_long *row = record->cell_connect[set];
            for (qx_long cell = 0; cell < record->cell_count[set]; ++cell, row += length) {
                const auto is_marked = [&](qx_long node) { return of_node[node] != 0; };
                made[filled++] = (any ? std::any_of(row, row + length, is_marked)
                                      : std::all_of(row, row + length, is_marked))
                                     ? 1
                                     : 0;
            }
        }
        return static_cast<int>(HOST_DONE);
    });
    return adopt(std::move(made), {ncells});
}

// Nodes that are not null, and the cells that have only such nodes.
int remove_null(const mesh_object &mesh, mesh_info *record, const host_array &data, made_parts *parts)
{
    qx_long nkept = 0, *nodes = nullptr;
    if (record->ndim != 0) {
        qx_long *connect = nullptr, ncells = 0, size = 0;
        if (UTILthresh_null(record, data.data, data.type, data.null, &nkept, &nodes, &connect, &ncells, &size,
                            nullptr) != 1)
            return library_failed;
        parts->old_node.reset(nodes);
        list_of<qx_long> rows(connect);
        const int kind = record->ndim == 3 ? CELL_HEX : record->ndim == 2 ? CELL_QUAD : CELL_LINE;
        if (ncells > 0) parts->sets.push_back({kind, 1, ncells, std::move(rows), nullptr});
    } else {
        const size_t n = sets_of(record);
        owned_maps cells(n), connect(n);
        std::vector<qx_long> sizes(n);
        if (UTILthresh_null(record, data.data, data.type, data.null, &nkept, &nodes, cells.map.data(),
                            cells.count.data(), connect.map.data(), sizes.data()) != 1)
            return library_failed;
        parts->old_node = kept_nodes(record, list_of<qx_long>(nodes), nkept);
        for (size_t set = 0; set < n; ++set) {
            const qx_long count = cells.count[set];
            if (count == 0) continue;
            for (qx_long i = 0; i < count; ++i)
                cells.map[set][i] += first_cell(record, set);
            parts->sets.push_back({mesh.sets[set].kind, mesh.sets[set].order, count, taken(connect.map[set]),
                                   taken(cells.map[set])});
        }
    }
    parts->nold = nkept;
    return of_library(place(record, parts));
}

py::dict without_null(mesh_object &mesh, const py::array &values, const py::object &null,
                      const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    if (rows.null_flag() == 0) throw py::value_error("null: is needed");
    made_parts parts;
    run_call("without_null", &mesh, progress, [&] {
        mesh_info *record = host_mesh(mesh.lattice ? mesh.field_of_extractions() : mesh.field());
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        const int done = remove_null(mesh, record, rows.array, &parts);
        put_in_vtk_order(&parts);
        return done;
    });
    return hand_out(&parts, mesh.nspace);
}

// ---- data carried onto results ------------------------------------------------------------------------------------------

// The lists of a result, from arrays of Python.
struct carried_onto {
    host_result lists = {};
    std::vector<py::array> keep;

    carried_onto(const py::dict &parts)
    {
        lists.nold = length(parts["old"]);
        lists.nnodes = lists.nold + length(parts["first"]);
        const qx_long nnew = lists.nnodes - lists.nold;
        lists.old_node = numbers(parts["old"], lists.nold);
        lists.first_node = numbers(parts["first"], nnew);
        lists.second_node = numbers(parts["second"], nnew);
        lists.t = places(parts["t"], nnew);
        if (parts.contains("third")) {
            lists.third_node = numbers(parts["third"], nnew);
            lists.s = places(parts["s"], nnew);
        }
    }

    bool is_within(qx_long nnodes) const
    {
        const auto good = [=](const qx_long *list, qx_long count, qx_long lowest) {
            return list == nullptr || std::all_of(list, list + count, [=](qx_long node) {
                       return node >= lowest && node < nnodes;
                   });
        };
        const qx_long nnew = lists.nnodes - lists.nold;
        return good(lists.old_node, lists.nold, 0) && good(lists.first_node, nnew, 0) &&
               good(lists.second_node, nnew, 0) && good(lists.third_node, nnew, -1);
    }

  private:
    static qx_long length(const py::handle &list) { return list.cast<py::array>().size(); }
    qx_long *numbers(const py::handle &list, qx_long count)
    {
        keep.push_back(list.cast<py::array>());
        return const_cast<qx_long *>(elements<qx_long>("nodes", keep.back(), count));
    }
    float *places(const py::handle &list, qx_long count)
    {
        keep.push_back(list.cast<py::array>());
        return const_cast<float *>(elements<float>("t", keep.back(), count));
    }
};

py::array empty_like(const py::array &values, qx_long rows)
{
    std::vector<py::ssize_t> shape(values.shape(), values.shape() + values.ndim());
    shape[0] = rows;
    return py::array(values.dtype(), shape);
}

// Rows at the nodes of a result, and a mark each.
py::tuple carry_of(const py::dict &parts, const py::array &values, const py::object &null)
{
    const rows_arg rows("values", values, values.ndim() > 0 ? values.shape(0) : 0, null);
    const carried_onto result(parts);
    py::array out = empty_like(values, result.lists.nnodes);
    py::array_t<bool> mask(result.lists.nnodes);
    void *to = out.mutable_data();
    auto *marks = reinterpret_cast<unsigned char *>(mask.mutable_data());
    run_call("carry", nullptr, py::none(), [&] {
        if (!result.is_within(rows.count)) throw std::out_of_range("values: has too few rows");
        return host_carry_nodes(&result.lists, &rows.array, to, marks);
    });
    return py::make_tuple(out, mask);
}

// The library's own way, for new nodes between two of the mesh: truncated, in single precision for most types.
py::array library_carry_of(const py::dict &parts, const py::array &values, const py::object &null)
{
    const rows_arg rows("values", values, values.ndim() > 0 ? values.shape(0) : 0, null);
    const carried_onto result(parts);
    const host_result &lists = result.lists;
    if (lists.third_node != nullptr)
        throw py::value_error(
            "carry: new nodes of this band lie between three nodes, and the library's way is for two");
    py::array out = empty_like(values, lists.nnodes);
    auto *to = static_cast<char *>(out.mutable_data());
    const qx_long row = rows.array.veclen * values.itemsize();
    run_call("carry", nullptr, py::none(), [&] {
        if (!result.is_within(rows.count)) throw std::out_of_range("values: has too few rows");
        for (qx_long i = 0; i < lists.nold; ++i)
            memcpy(to + i * row, static_cast<const char *>(rows.array.data) + lists.old_node[i] * row,
                   static_cast<size_t>(row));
        return of_library(UTILeval_param(lists.nnodes - lists.nold, rows.array.veclen, rows.array.type,
                                         rows.array.data, rows.null_flag(), rows.array.null, lists.first_node,
                                         lists.second_node, lists.t, to + lists.nold * row) == 1);
    });
    return out;
}

// Rows of a kind of cells from VTK's order of nodes to that of the library.
py::array reordered(const py::array &rows, int kind, int order, bool to_vtk)
{
    if (kind < 0 || kind >= CELL_KINDS || (order != 1 && order != 2) || rows.ndim() != 2 ||
        rows.shape(1) != length_of(kind, order))
        throw py::value_error("cells: has the wrong shape");
    const qx_long *from = elements<qx_long>("cells", rows, rows.size());
    list_of<qx_long> made = new_list<qx_long>(rows.size());
    std::copy_n(from, rows.size(), made.get());
    reorder_rows(made.get(), rows.shape(0), kind, order, to_vtk);
    return adopt(std::move(made), {rows.shape(0), rows.shape(1)});
}

} // namespace

void bind_extractions(py::module_ &m)
{
    m.def("level", &level_of);
    m.def("trace", &trace_of);
    m.def("chains", &chains_of);
    m.def("join_lines", &join_lines);
    m.def("cut", &cut_of);
    m.def("band", &band_of);
    m.def("slice", &slice_of);
    m.def("plane_grid", &plane_grid_of);
    m.def("cells_by_mark", &cells_by_mark);
    m.def("marks_of_cells", &marks_of_cells);
    m.def("without_null", &without_null);
    m.def("carry", &carry_of);
    m.def("carry_by_library", &library_carry_of);
    m.def("reorder", &reordered);
}
