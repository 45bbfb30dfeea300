#include "support/contour_reference.hpp"

#include <skoklana/cut.h>
#include <skoklana/host/tool.h>
#include <skoklana/tables.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace contour_reference {

bool operator==(const result &a, const result &b)
{
    return difference(a, b) == "nothing";
}

std::string difference(const result &got, const result &expected)
{
    if (got.status != expected.status) return "status";
    if (got.nold != expected.nold) return "nold";
    if (got.old_nodes != expected.old_nodes) return "old nodes";
    if (got.node_map != expected.node_map) return "node map";
    if (got.min_node != expected.min_node) return "lower nodes of the new nodes";
    if (got.max_node != expected.max_node) return "upper nodes of the new nodes";
    if (got.levels != expected.levels) return "levels of the new nodes";
    for (size_t list = 0; list < list_count; ++list) {
        const std::string which = " of list " + std::to_string(list);
        if (got.ncells[list] != expected.ncells[list]) return "cells" + which;
        if (got.conn[list] != expected.conn[list]) return "connect entries" + which;
    }
    for (size_t level : {0, 1}) {
        const std::string which = level == 0 ? "lower" : "upper";
        if (got.has_lines[level] != expected.has_lines[level])
            return "whether there is a list of " + which + " lines";
        if (got.lines[level] != expected.lines[level]) return which + " lines";
    }
    if (got.coords.size() != expected.coords.size()) return "count of coordinates";
    // Bit for bit, NaN as itself.
    for (size_t i = 0; i < got.coords.size(); ++i)
        if (memcmp(&got.coords[i], &expected.coords[i], sizeof(float)) != 0)
            return "coordinate " + std::to_string(i) + ": " + std::to_string(got.coords[i]) + " instead of " +
                   std::to_string(expected.coords[i]);
    return "nothing";
}

namespace {

size_t at(qx_long i)
{
    return static_cast<size_t>(i);
}

class banding {
  public:
    result out;

    banding(qx_long node_count, const scalar &field, const band &levels)
        : nnodes(node_count),
          check_nulls(field.null_flag != 0), level{levels.low, levels.high}, asked{levels.low_lines,
                                                                                   levels.high_lines}
    {
        out.node_map.resize(at(nnodes));
        out.nold = UTILnode_thresh2(nnodes, field.data_type, field.data, field.null_flag, field.null_value,
                                    level[0], level[1], out.node_map.data());
        for (qx_long node = 0; node < nnodes; ++node)
            if (out.node_map[at(node)] >= 0) out.old_nodes.push_back(node);
        const size_t size = at(DTYPEtype_size(field.data_type));
        for (qx_long node = 0; node < nnodes; ++node) {
            value.push_back(0);
            UTILtype_to_double(field.data_type, static_cast<const char *>(field.data) + at(node) * size,
                               &value.back());
        }
        if (check_nulls) UTILtype_to_double(field.data_type, field.null_value, &null);
    }

    // Before the cells of a set, or of the lattice. Volume cells do away with the lines; surface cells begin
    // them in set 0 alone.
    void begin_set(size_t set, int ndim)
    {
        for (int l = 0; l < 2; ++l) {
            if (ndim == 3) {
                out.has_lines[l] = false;
                out.lines[l].clear();
            } else if (set == 0) {
                out.has_lines[l] = asked[l];
            }
        }
    }

    void add_cell(int kind, const numbers &nodes)
    {
        for (qx_long node : nodes)
            if (check_nulls && value[at(node)] == null) return;
        const int ncorners = cell_kinds[kind].ncorners, full = (1 << ncorners) - 1;
        int lo_mask = 0, hi_mask = 0;
        for (int c = 0; c < ncorners; ++c) {
            const double v = value[at(nodes[at(c)])];
            if (v >= level[0]) lo_mask |= 1 << c;
            if (v > level[1]) hi_mask |= 1 << c;
        }
        const int in_mask = full - hi_mask;
        if (lo_mask == 0 || in_mask == 0) return;
        for (int c = 0; c < ncorners; ++c)
            if ((lo_mask & in_mask & 1 << c) != 0 && out.node_map[at(nodes[at(c)])] < 0) return;
        if (lo_mask == full && in_mask == full) {
            numbers whole;
            for (qx_long node : nodes)
                whole.push_back(numbered(node));
            append(cut_reference::whole_list(kind), whole);
        } else if (lo_mask == full) {
            cut_once(kind, nodes, in_mask, 1);
        } else if (in_mask == full) {
            cut_once(kind, nodes, lo_mask, 0);
        } else if (cell_kinds[kind].ndim == 3) {
            cut_twice(kind, nodes, lo_mask);
        } else {
            use_row(kind, nodes, hi_mask, lo_mask);
        }
    }

    // Coordinates of the mesh's nodes, and of the retained ones.
    void place(const std::vector<float> &coords, int nspace, const std::vector<float> &retained)
    {
        out.coords = retained;
        for (size_t e = 0; e < out.min_node.size(); ++e)
            for (int d = 0; d < nspace; ++d)
                out.coords.push_back(static_cast<float>(position(e, coords, nspace, d)));
    }

  private:
    qx_long nnodes;
    bool check_nulls;
    double level[2];
    bool asked[2];
    double null = 0;
    std::vector<double> value;
    std::map<std::tuple<qx_long, qx_long, int>, qx_long> edges;

    // Output number of a node of the mesh, or of new node e, written as nnodes + e.
    qx_long numbered(qx_long node) const
    {
        return node >= nnodes ? out.nold + (node - nnodes) : out.node_map[at(node)];
    }

    // As nnodes + e.
    qx_long new_node(qx_long a, qx_long b, int which)
    {
        const auto added =
            edges.insert({{std::min(a, b), std::max(a, b), which}, static_cast<qx_long>(edges.size())});
        if (added.second) {
            out.min_node.push_back(std::min(a, b));
            out.max_node.push_back(std::max(a, b));
            out.levels.push_back(static_cast<unsigned char>(which));
        }
        return nnodes + added.first->second;
    }

    void append(size_t list, const numbers &entries)
    {
        ++out.ncells[list];
        out.conn[list].insert(out.conn[list].end(), entries.begin(), entries.end());
    }

    void append_line(int which, qx_long a, qx_long b)
    {
        if (!out.has_lines[which]) return;
        out.lines[which].push_back(numbered(a));
        out.lines[which].push_back(numbered(b));
    }

    // The new nodes of a row over local nodes, as nnodes + e.
    numbers new_nodes_of(const cut_reference::case_row &row, const numbers &nodes, int which)
    {
        numbers made;
        for (const auto &point : row.points)
            made.push_back(new_node(nodes[at(point.first)], nodes[at(point.second)], which));
        return made;
    }

    static numbers resolved(const std::vector<cut_reference::local_node> &piece, const numbers &nodes,
                            const numbers &made)
    {
        numbers result;
        for (const cut_reference::local_node &local : piece)
            result.push_back(local.is_new ? made[at(local.number)] : nodes[at(local.number)]);
        return result;
    }

    void append_nodes(size_t list, const numbers &nodes)
    {
        numbers entries;
        for (qx_long node : nodes)
            entries.push_back(numbered(node));
        append(list, entries);
    }

    void cut_once(int kind, const numbers &nodes, int index, int which)
    {
        const cut_reference::case_row row = cut_reference::row_of(kind, index);
        const numbers made = new_nodes_of(row, nodes, which);
        for (const auto &piece : row.pieces)
            append_nodes(static_cast<size_t>(row.piece_list), resolved(piece, nodes, made));
        for (const auto &line : row.lines)
            append_line(which, made[at(line.first)], made[at(line.second)]);
    }

    void cut_twice(int kind, const numbers &nodes, int lo_mask)
    {
        const cut_reference::case_row row = cut_reference::row_of(kind, lo_mask);
        const numbers made = new_nodes_of(row, nodes, 0);
        for (const auto &piece : row.pieces) {
            const numbers local = resolved(piece, nodes, made);
            int in_mask = 0;
            for (size_t i = 0; i < local.size(); ++i)
                if (!((local[i] >= nnodes ? level[0] : value[at(local[i])]) > level[1])) in_mask |= 1 << i;
            if (in_mask == 0) continue;
            if (in_mask == 15)
                append_nodes(cut_reference::tets, local);
            else
                cut_once(CELL_TET, local, in_mask, 1);
        }
    }

    void use_row(int kind, const numbers &nodes, int hi_mask, int lo_mask)
    {
        numbers made;
#define USE_ROW(k, ncorners)                                                                                 \
    const int row = CONTtable_index_##k[(hi_mask << ncorners) + lo_mask];                                    \
    if (row < 0) return;                                                                                     \
    for (int p = CONTm_ind_##k[row]; p < CONTm_ind_##k[row] + CONTnnew_nodes_##k[row]; ++p)                  \
        made.push_back(new_node(nodes[CONTmin_node_##k[p]], nodes[CONTmax_node_##k[p]], CONTvalues_##k[p])); \
    for (int c = 0, entry = CONTc_ind_##k[row]; c < CONTncell_##k[row]; ++c) {                               \
        numbers cell;                                                                                        \
        for (int i = 0; i < CONTcell_nnode_##k[CONTt_ind_##k[row] + c]; ++i, ++entry)                        \
            cell.push_back(CONTnew_flag_list_##k[entry] == 1 ? made[CONTconnect_list_##k[entry]]             \
                                                             : nodes[CONTconnect_list_##k[entry]]);          \
        append_nodes(CONTcell_type_##k[CONTt_ind_##k[row] + c], cell);                                       \
    }                                                                                                        \
    for (int l = 0; l < CONTnedge1_##k[row]; ++l)                                                            \
        append_line(0, made[CONTconnect_edge1_##k[CONTedge_ind1_##k[row] + 2 * l]],                          \
                    made[CONTconnect_edge1_##k[CONTedge_ind1_##k[row] + 2 * l + 1]]);                        \
    for (int l = 0; l < CONTnedge2_##k[row]; ++l)                                                            \
        append_line(1, made[CONTconnect_edge2_##k[CONTedge_ind2_##k[row] + 2 * l]],                          \
                    made[CONTconnect_edge2_##k[CONTedge_ind2_##k[row] + 2 * l + 1]]);
        if (kind == CELL_QUAD) {
            USE_ROW(quad, 4)
        } else {
            USE_ROW(tri, 3)
        }
#undef USE_ROW
    }

    // Coordinate d of a new node between nodes of the mesh, not rounded.
    double on_edge(size_t e, const std::vector<float> &coords, int nspace, int d, bool multiply_first) const
    {
        const size_t a = at(out.min_node[e]), b = at(out.max_node[e]);
        const double from = coords[a * at(nspace) + at(d)], to = coords[b * at(nspace) + at(d)];
        const double part = level[out.levels[e]] - value[a], whole = value[b] - value[a];
        if (value[a] == value[b]) return from;
        return multiply_first ? from + (to - from) * part / whole : from + (to - from) * (part / whole);
    }

    double position(size_t e, const std::vector<float> &coords, int nspace, int d) const
    {
        const qx_long a = out.min_node[e], b = out.max_node[e];
        if (b < nnodes) return on_edge(e, coords, nspace, d, false);
        const double end = level[out.levels[at(b - nnodes)]], whole = end - value[at(a)];
        const double t = whole == 0 ? 0 : (level[out.levels[e]] - value[at(a)]) / whole;
        const double from = coords[at(a * nspace + d)];
        return from + (on_edge(at(b - nnodes), coords, nspace, d, true) - from) * t;
    }
};

// Of a structured mesh, through a copy of the record, so that its lazy fields stay as they are.
std::vector<float> retained_coords(const mesh_info *mesh, const numbers &nodes)
{
    mesh_info copy = *mesh;
    std::vector<float> coords(nodes.size() * at(mesh->nspace));
    if (copy.coords == nullptr) copy.get_coords(&copy, &copy.coords);
    if (!nodes.empty())
        UTILget_coord_list(&copy, static_cast<qx_long>(nodes.size()), nodes.data(), coords.data());
    return coords;
}

} // namespace

result band_cells(const meshes::test_mesh &mesh, const scalar &field, const band &of,
                  const std::vector<bool> &takes_part)
{
    banding bands(mesh.nnodes(), field, of);
    for (size_t set = 0; set < mesh.kinds.size(); ++set) {
        const int ndim = cell_kinds[mesh.kinds[set]].ndim;
        if (ndim == 1 || (!takes_part.empty() && !takes_part[set])) continue;
        bands.begin_set(set, ndim);
        cut_reference::each_cell(
            mesh, set, [&](int kind, const numbers &nodes, qx_long) { bands.add_cell(kind, nodes); });
    }
    std::vector<float> retained;
    for (qx_long node : bands.out.old_nodes)
        retained.insert(retained.end(), &mesh.coords[at(node * mesh.nspace)],
                        &mesh.coords[at(node * mesh.nspace)] + mesh.nspace);
    bands.place(mesh.coords, mesh.nspace, retained);
    return bands.out;
}

result band_lattice(mesh_info *mesh, const scalar &field, const band &of)
{
    const numbers dims(mesh->dims, mesh->dims + mesh->ndim);
    banding bands(mesh->nnodes, field, of);
    bands.begin_set(0, mesh->ndim);
    cut_reference::each_lattice_cell(
        dims, [&](int kind, const numbers &nodes, qx_long) { bands.add_cell(kind, nodes); });
    std::vector<float> coords(at(mesh->nnodes * mesh->nspace));
    qx_long lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
    for (size_t d = 0; d < dims.size(); ++d)
        hi[d] = dims[d] - 1;
    mesh->get_coords_range(mesh, lo, hi, coords.data());
    bands.place(coords, mesh->nspace, retained_coords(mesh, bands.out.old_nodes));
    bands.out.node_map.clear();
    return bands.out;
}

result run(contour_func operation, mesh_info *mesh, const scalar &field, const band &of)
{
    result out;
    qx_long nnodes_out = -7, *nodes = nullptr, *min_node = nullptr, *max_node = nullptr;
    qx_long ncells[list_count], nconn[list_count], *conn[list_count] = {};
    qx_long nlines[2] = {of.low_lines, of.high_lines}, *lines[2] = {nullptr, nullptr};
    unsigned char *levels = nullptr;
    float *coords = nullptr;
    out.status = operation(mesh, field.data, field.data_type, field.null_flag, field.null_value, of.low,
                           of.high, &out.nold, &nodes, &nnodes_out, &min_node, &max_node, &levels, ncells,
                           conn, nconn, mesh->nspace, &coords, &nlines[0], &lines[0], &nlines[1], &lines[1]);
    if (out.status != 1) {
        const int status = out.status;
        out = {};
        out.status = status;
        return out;
    }
    if (mesh->ndim == 0) {
        out.node_map = cut_reference::take_list(nodes, mesh->nnodes);
        out.old_nodes.resize(at(out.nold), -7);
        for (size_t node = 0; node < out.node_map.size(); ++node)
            if (out.node_map[node] >= 0 && out.node_map[node] < out.nold)
                out.old_nodes[at(out.node_map[node])] = static_cast<qx_long>(node);
    } else {
        out.old_nodes = cut_reference::take_list(nodes, out.nold);
    }
    out.min_node = cut_reference::take_list(min_node, nnodes_out);
    out.max_node = cut_reference::take_list(max_node, nnodes_out);
    if (levels != nullptr) out.levels.assign(levels, levels + nnodes_out);
    free(levels);
    if (coords != nullptr) out.coords.assign(coords, coords + (out.nold + nnodes_out) * mesh->nspace);
    free(coords);
    for (size_t list = 0; list < list_count; ++list) {
        out.ncells[list] = ncells[list];
        if (ncells[list] > 0) out.conn[list] = cut_reference::take_list(conn[list], nconn[list]);
    }
    for (int l = 0; l < 2; ++l) {
        out.has_lines[l] = lines[l] != nullptr;
        out.lines[l] = cut_reference::take_list(lines[l], 2 * nlines[l]);
    }
    return out;
}

} // namespace contour_reference
