#include "support/cut_reference.hpp"

#include <skoklana/array.h>
#include <skoklana/cell.h>
#include <skoklana/cut.h>
#include <skoklana/tables.h>

#include <algorithm>
#include <cstdlib>

namespace cut_reference {

bool operator==(const result &a, const result &b)
{
    return a.status == b.status && a.nold == b.nold && a.old_nodes == b.old_nodes &&
           a.node_map == b.node_map && a.min_node == b.min_node && a.max_node == b.max_node &&
           a.ncells == b.ncells && a.conn == b.conn && a.maps == b.maps;
}

std::string difference(const result &got, const result &expected)
{
    if (got.status != expected.status) return "status";
    if (got.nold != expected.nold) return "nold";
    if (got.old_nodes != expected.old_nodes) return "old nodes";
    if (got.node_map != expected.node_map) return "node map";
    if (got.min_node != expected.min_node) return "lower nodes of the new nodes";
    if (got.max_node != expected.max_node) return "upper nodes of the new nodes";
    for (size_t list = 0; list < list_count; ++list) {
        const std::string which = " of list " + std::to_string(list);
        if (got.ncells[list] != expected.ncells[list]) return "cells" + which;
        if (got.conn[list] != expected.conn[list]) return "connect entries" + which;
    }
    return got.maps == expected.maps ? "nothing" : "maps";
}

// ---- tables -----------------------------------------------------------------------------------------------

case_row row_of(int kind, int index)
{
    case_row row;
    if (index == (1 << cell_kinds[kind].ncorners) - 1) return row; // all kept: not every table has the row
#define READ_ROW(k, n)                                                                             \
    for (int p = 0; p < CUTnnew_nodes_##k[index]; ++p)                                             \
        row.points.push_back(                                                                      \
            {CUTmin_node_##k[CUTm_ind_##k[index] + p], CUTmax_node_##k[CUTm_ind_##k[index] + p]}); \
    for (int c = 0, at = CUTc_ind_##k[index]; c < CUTncell_##k[index]; ++c) {                      \
        row.piece_list = CUTcell_type_##k[CUTt_ind_##k[index] + c];                                \
        row.pieces.emplace_back();                                                                 \
        for (int i = 0; i < CUTcell_nnode_##k[CUTt_ind_##k[index] + c]; ++i, ++at)                 \
            row.pieces.back().push_back({CUTnew_flag_list_##k[at] == 1, CUTconnect_list_##k[at]}); \
    }
#define READ_LINES(k)                                                                   \
    for (int l = 0; l < CUTedge_nline_##k[index]; ++l)                                  \
        row.lines.push_back({CUTedge_connect_list_##k[CUTedge_cind_##k[index] + 2 * l], \
                             CUTedge_connect_list_##k[CUTedge_cind_##k[index] + 2 * l + 1]});
    switch (kind) {
    case CELL_HEX: READ_ROW(hex, 8) break;
    case CELL_PRISM: READ_ROW(prism, 6) break;
    case CELL_PYR: READ_ROW(pyr, 5) break;
    case CELL_TET: READ_ROW(tet, 4) break;
    case CELL_QUAD: READ_ROW(quad, 4) READ_LINES(quad) break;
    case CELL_TRI: READ_ROW(tri, 3) READ_LINES(tri) break;
    case CELL_LINE: READ_ROW(line, 2) break;
    }
#undef READ_ROW
#undef READ_LINES
    return row;
}

size_t whole_list(int kind)
{
    switch (kind) {
    case CELL_TET: return tets;
    case CELL_PRISM: return prisms;
    case CELL_PYR: return pyramids;
    case CELL_HEX: return hexes;
    case CELL_TRI: return triangles;
    case CELL_QUAD: return quads;
    default: return lines;
    }
}

// ---- cells ------------------------------------------------------------------------------------------------

void each_cell(const meshes::test_mesh &mesh, size_t set,
               const std::function<void(int kind, const numbers &nodes, qx_long cell)> &take)
{
    static const tesselate_func tesselators[CELL_KINDS] = {
        UTILtesselate_line_2, UTILtesselate_tri_2,   UTILtesselate_quad_2, UTILtesselate_tet_2,
        UTILtesselate_pyr_2,  UTILtesselate_prism_2, UTILtesselate_hex_2};
    const int kind = mesh.kinds[set], order = mesh.orders[set];
    const int nnodes = order == 1 ? cell_kinds[kind].ncorners : cell_kinds[kind].nnodes_2;
    const numbers &connect = mesh.connect[set];
    const qx_long ncells = static_cast<qx_long>(connect.size()) / nnodes;
    for (qx_long cell = 0; cell < ncells; ++cell) {
        const qx_long *row = connect.data() + cell * nnodes;
        if (order == 1) {
            take(kind, {row, row + nnodes}, cell);
            continue;
        }
        qx_long npieces = 0, *pieces = nullptr;
        int piece_nnodes = 0;
        if (tesselators[kind](1, row, &npieces, &pieces, &piece_nnodes) != 1) abort();
        const int piece_kind = piece_nnodes == 4 ? CELL_TET : piece_nnodes == 3 ? CELL_TRI : CELL_LINE;
        for (qx_long p = 0; p < npieces; ++p)
            take(piece_kind, {pieces + p * piece_nnodes, pieces + (p + 1) * piece_nnodes}, cell);
        free(pieces);
    }
}

void each_lattice_cell(const numbers &dims,
                       const std::function<void(int kind, const numbers &nodes, qx_long cell)> &take)
{
    qx_long cell = 0;
    const qx_long row = dims[0];
    const auto ring = [&](qx_long n) { return numbers{n, n + 1, n + 1 + row, n + row}; };
    if (dims.size() == 2) {
        for (qx_long j = 0; j + 1 < dims[1]; ++j)
            for (qx_long i = 0; i + 1 < dims[0]; ++i)
                take(CELL_QUAD, ring(i + row * j), cell++);
        return;
    }
    const qx_long plane = dims[0] * dims[1];
    for (qx_long k = 0; k + 1 < dims[2]; ++k)
        for (qx_long j = 0; j + 1 < dims[1]; ++j)
            for (qx_long i = 0; i + 1 < dims[0]; ++i) {
                const qx_long n = k * plane + j * row + i;
                numbers nodes = ring(n + plane);
                for (qx_long low : ring(n))
                    nodes.push_back(low);
                take(CELL_HEX, nodes, cell++);
            }
}

// ---- the cut ----------------------------------------------------------------------------------------------

namespace {

class cutter {
  public:
    result out;

    cutter(qx_long nnodes, const scalar &field, double level, int side)
        : check_nulls(field.null_flag != 0), flags(static_cast<size_t>(nnodes) + 1)
    {
        out.node_map.resize(static_cast<size_t>(nnodes));
        out.nold = UTILnode_thresh(nnodes, field.data_type, field.data, field.null_flag, field.null_value,
                                   level, side, out.node_map.data());
        UTILthreshold_scalar(nnodes, field.data, field.data_type, field.null_flag, field.null_value, 1, level,
                             0, 1, 2, flags.data());
        for (qx_long node = 0; node < nnodes; ++node) {
            const bool retained = out.node_map[at(node)] >= 0;
            if (retained) out.old_nodes.push_back(node);
            // A retained node whose value is at the level is on the upper side all the same.
            kept.push_back(retained && flags[at(node)] == (side < 0 ? 0 : 1));
        }
    }

    // maps: null for none.
    void add_cell(int kind, const numbers &nodes, qx_long cell, std::array<numbers, list_count> *maps)
    {
        int index = 0;
        const int ncorners = cell_kinds[kind].ncorners;
        for (qx_long node : nodes)
            if (check_nulls && flags[at(node)] == 2) return;
        for (int c = 0; c < ncorners; ++c)
            if (kept[at(nodes[at(c)])]) index |= 1 << c;
        if (index == 0) return;
        if (index == (1 << ncorners) - 1) {
            numbers whole;
            for (qx_long node : nodes)
                whole.push_back(out.node_map[at(node)]);
            append(whole_list(kind), whole, cell, maps);
            return;
        }
        const case_row row = row_of(kind, index);
        numbers new_nodes;
        for (const auto &point : row.points)
            new_nodes.push_back(out.nold + number_of(nodes[at(point.first)], nodes[at(point.second)]));
        for (const auto &piece : row.pieces) {
            numbers entries;
            for (const local_node &local : piece)
                entries.push_back(local.is_new ? new_nodes[at(local.number)]
                                               : out.node_map[at(nodes[at(local.number)])]);
            append(static_cast<size_t>(row.piece_list), entries, cell, maps);
        }
    }

  private:
    bool check_nulls;
    std::vector<unsigned char> flags;
    std::vector<bool> kept;
    std::map<std::pair<qx_long, qx_long>, qx_long> edges;

    static size_t at(qx_long i) { return static_cast<size_t>(i); }

    qx_long number_of(qx_long a, qx_long b)
    {
        const std::pair<qx_long, qx_long> edge = std::minmax(a, b);
        const auto added = edges.insert({edge, static_cast<qx_long>(edges.size())});
        if (added.second) {
            out.min_node.push_back(edge.first);
            out.max_node.push_back(edge.second);
        }
        return added.first->second;
    }

    void append(size_t list, const numbers &entries, qx_long cell, std::array<numbers, list_count> *maps)
    {
        ++out.ncells[list];
        out.conn[list].insert(out.conn[list].end(), entries.begin(), entries.end());
        if (maps != nullptr) (*maps)[list].push_back(cell);
    }
};

} // namespace

result cut_cells(const meshes::test_mesh &mesh, const scalar &field, double level, int side, bool with_maps,
                 const std::vector<bool> &takes_part)
{
    cutter cut(mesh.nnodes(), field, level, side);
    if (with_maps) cut.out.maps.resize(mesh.kinds.size());
    for (size_t set = 0; set < mesh.kinds.size(); ++set) {
        if (!takes_part.empty() && !takes_part[set]) continue;
        each_cell(mesh, set, [&](int kind, const numbers &nodes, qx_long cell) {
            cut.add_cell(kind, nodes, cell, with_maps ? &cut.out.maps[set] : nullptr);
        });
    }
    return cut.out;
}

result cut_lattice(const numbers &dims, const scalar &field, double level, int side, bool with_maps)
{
    qx_long nnodes = 1;
    for (qx_long n : dims)
        nnodes *= n;
    cutter cut(nnodes, field, level, side);
    if (with_maps) cut.out.maps.resize(1);
    each_lattice_cell(dims, [&](int kind, const numbers &nodes, qx_long cell) {
        cut.add_cell(kind, nodes, cell, with_maps ? &cut.out.maps[0] : nullptr);
    });
    cut.out.node_map.clear();
    return cut.out;
}

// ---- calls ------------------------------------------------------------------------------------------------

numbers take_list(qx_long *list, qx_long count)
{
    numbers taken;
    if (list != nullptr) taken.assign(list, list + count);
    free(list);
    return taken;
}

result run(cut_func operation, mesh_info *mesh, const scalar &field, double level, int side, size_t nmaps)
{
    result out;
    qx_long nnodes_out = -7, *nodes = nullptr, *min_node = nullptr, *max_node = nullptr;
    qx_long ncells[list_count], nconn[list_count], *conn[list_count] = {};
    std::vector<qx_long> map_count(nmaps * list_count, -7);
    std::vector<qx_long *> maps(nmaps * list_count, nullptr);
    out.status = operation(mesh, field.data, field.data_type, field.null_flag, field.null_value, level, side,
                           &out.nold, &nodes, &nnodes_out, &min_node, &max_node, ncells, conn, nconn,
                           nmaps > 0 ? map_count.data() : nullptr, nmaps > 0 ? maps.data() : nullptr);
    if (out.status != 1) {
        const int status = out.status;
        out = {};
        out.status = status;
        return out;
    }
    if (mesh->ndim == 0) {
        out.node_map = take_list(nodes, mesh->nnodes);
        out.old_nodes.resize(static_cast<size_t>(out.nold), -7);
        for (size_t node = 0; node < out.node_map.size(); ++node)
            if (out.node_map[node] >= 0 && out.node_map[node] < out.nold)
                out.old_nodes[static_cast<size_t>(out.node_map[node])] = static_cast<qx_long>(node);
    } else {
        out.old_nodes = take_list(nodes, out.nold);
    }
    out.min_node = take_list(min_node, nnodes_out);
    out.max_node = take_list(max_node, nnodes_out);
    for (size_t list = 0; list < list_count; ++list) {
        out.ncells[list] = ncells[list];
        if (ncells[list] > 0) out.conn[list] = take_list(conn[list], nconn[list]);
    }
    for (size_t set = 0; set < nmaps; ++set) {
        out.maps.emplace_back();
        for (size_t list = 0; list < list_count; ++list)
            out.maps[set][list] =
                take_list(maps[set * list_count + list], map_count[set * list_count + list]);
    }
    return out;
}

} // namespace cut_reference
