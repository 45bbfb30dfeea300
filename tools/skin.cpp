// A set's own external faces come from the library. Where solids of several sets meet, what is left of each is
// matched once more, as cells of a single face: faces that two sets share cancel each other.
#include "skin.hpp"

#include "carry.hpp"
#include "cell_order.hpp"
#include "progress.hpp"

#include <skoklana/boundary.h>
#include <skoklana/cell_faces.h>
#include <skoklana/iso.h>

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

namespace {

constexpr int longest_face = 8; // nodes

// Faces in rows of one length: corners first, then the middles of edges; unused places repeat the first corner.
struct face_rows {
    std::vector<qx_long> node;
    std::vector<int> nnodes, ncorners;
    std::vector<qx_long> cell; // VTK's number

    size_t count() const { return nnodes.size(); }
    const qx_long *row(size_t f) const { return &node[f * longest_face]; }

    void add(const qx_long *nodes, int nnodes_, int ncorners_, qx_long vtk_cell)
    {
        for (int n = 0; n < longest_face; ++n)
            node.push_back(nodes[n < nnodes_ ? n : 0]);
        nnodes.push_back(nnodes_);
        ncorners.push_back(ncorners_);
        cell.push_back(vtk_cell);
    }
};

// What the library hands over, by set of faces.
struct handed_faces {
    int nsets = 0;
    qx_long ncells[2] = {}, size[2] = {};
    int nnodes[2] = {};
    owned_list cells[2], connect[2];
};

} // namespace

static bool find_faces(qx_long nnodes, qx_long ncells, int stride, const qx_long *connect,
                       const cell_face_list &kind, handed_faces *out)
{
    qx_long *cells[2] = {}, *lists[2] = {};
    const int done =
        UTILexternal_faces(nnodes, ncells, stride, connect, kind.nfaces, kind.nnodes, kind.ncorners,
                           kind.node, 2, &out->nsets, out->ncells, out->nnodes, cells, lists, out->size);
    for (int s = 0; s < 2; ++s) {
        out->cells[s].reset(cells[s]);
        out->connect[s].reset(lists[s]);
    }
    return done == 1;
}

// The faces of a kind as they stand in connect lists of the command.
static cell_face_list faces_in_list(int kind, int order)
{
    cell_face_list faces = cell_faces[order - 1][kind];
    for (qx_long &node : faces.node)
        node = place_in_list(kind, order, static_cast<int>(node));
    return faces;
}

static face_rows faces_of_sets(input_mesh &mesh, const operation &work, const std::string &path)
{
    face_rows faces;
    const int nsets = static_cast<int>(mesh.sets.size());
    for (int set = 0; set < nsets; ++set) {
        const input_set &from = mesh.sets[static_cast<size_t>(set)];
        if (cell_kinds[from.kind].ndim != 3) continue;
        const status_part part(set, nsets);
        const int stride = from.order == 1 ? cell_kinds[from.kind].ncorners : cell_kinds[from.kind].nnodes_2;
        handed_faces found;
        work.check(find_faces(mesh.nnodes, from.ncells, stride, from.connect,
                              faces_in_list(from.kind, from.order), &found),
                   path + ": its boundary could not be found");
        for (int s = 0; s < found.nsets; ++s)
            for (qx_long f = 0; f < found.ncells[s]; ++f)
                faces.add(&found.connect[s][static_cast<size_t>(f * found.nnodes[s])], found.nnodes[s],
                          found.nnodes[s] / from.order,
                          from.vtk_cell(found.cells[s][static_cast<size_t>(f)]));
    }
    return faces;
}

// The rows whose corners no other row has.
static face_rows unshared(const face_rows &faces, qx_long nnodes, const operation &work,
                          const std::string &path)
{
    face_rows left;
    for (int ncorners : {3, 4}) {
        std::vector<size_t> rows;
        std::vector<qx_long> connect;
        for (size_t f = 0; f < faces.count(); ++f) {
            if (faces.ncorners[f] != ncorners) continue;
            rows.push_back(f);
            connect.insert(connect.end(), faces.row(f), faces.row(f) + ncorners);
        }
        if (rows.empty()) continue;
        const cell_face_list itself = {1, {ncorners}, {ncorners}, {0, 1, 2, 3}};
        handed_faces found;
        work.check(
            find_faces(nnodes, static_cast<qx_long>(rows.size()), ncorners, connect.data(), itself, &found),
            path + ": its boundary could not be found");
        for (qx_long r = 0; found.nsets > 0 && r < found.ncells[0]; ++r) {
            const size_t f = rows[static_cast<size_t>(found.cells[0][static_cast<size_t>(r)])];
            left.add(faces.row(f), faces.nnodes[f], faces.ncorners[f], faces.cell[f]);
        }
    }
    return left;
}

// ---- faces as linear cells ----------------------------------------------------------------------------------

static void add_triangle(mesh_surface *to, qx_long a, qx_long b, qx_long c, qx_long cell)
{
    to->tri.insert(to->tri.end(), {a, b, c});
    to->tri_cell.push_back(cell);
}

// nodes: corners around the cell, then the middles of its edges, the one of corners 0 and 1 first.
static void add_cell(mesh_surface *to, const qx_long *n, int nnodes, qx_long cell)
{
    switch (nnodes) {
    case 3: return add_triangle(to, n[0], n[1], n[2], cell);
    case 4:
        to->quad.insert(to->quad.end(), n, n + 4);
        to->quad_cell.push_back(cell);
        return;
    case 6:
        add_triangle(to, n[0], n[3], n[5], cell);
        add_triangle(to, n[3], n[1], n[4], cell);
        add_triangle(to, n[5], n[4], n[2], cell);
        return add_triangle(to, n[3], n[4], n[5], cell);
    default:
        for (int c = 0; c < 4; ++c)
            add_triangle(to, n[c], n[4 + c], n[4 + (c + 3) % 4], cell);
        add_triangle(to, n[4], n[5], n[6], cell);
        return add_triangle(to, n[4], n[6], n[7], cell);
    }
}

void cut_into_triangles(mesh_surface *surface)
{
    for (size_t q = 0; q < surface->quad_cell.size(); ++q) {
        const qx_long *n = &surface->quad[4 * q];
        add_triangle(surface, n[0], n[1], n[2], surface->quad_cell[q]);
        add_triangle(surface, n[0], n[2], n[3], surface->quad_cell[q]);
    }
    surface->quad.clear();
    surface->quad_cell.clear();
}

// From numbers of the mesh to places among the nodes in use.
static void number_used_nodes(mesh_surface *surface)
{
    std::vector<qx_long> &nodes = surface->nodes;
    nodes = surface->tri;
    nodes.insert(nodes.end(), surface->quad.begin(), surface->quad.end());
    std::sort(nodes.begin(), nodes.end());
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    for (std::vector<qx_long> *list : {&surface->tri, &surface->quad})
        for (qx_long &node : *list)
            node = std::lower_bound(nodes.begin(), nodes.end(), node) - nodes.begin();
}

static std::vector<float> coords_of(input_mesh &mesh, const std::vector<qx_long> &nodes)
{
    const std::vector<typed_array> none; // the results keep no copy
    node_results at(mesh, none, static_cast<qx_long>(nodes.size()));
    at.add(static_cast<qx_long>(nodes.size()), nodes.data());
    const float *xyz = at.coords(0);
    return std::vector<float>(xyz, xyz + 3 * nodes.size());
}

// ---- faces of lattices --------------------------------------------------------------------------------------

// The six sides of a lattice, their cells around seen from outside if its axes are right-handed.
static mesh_surface sides_of_lattice(const std::vector<qx_long> &dims)
{
    mesh_surface out;
    const qx_long step[3] = {1, dims[0], dims[0] * dims[1]};
    const qx_long cell_step[3] = {1, dims[0] - 1, (dims[0] - 1) * (dims[1] - 1)};
    for (int axis = 0; axis < 3; ++axis) {
        const size_t u = static_cast<size_t>((axis + 1) % 3), v = static_cast<size_t>((axis + 2) % 3);
        const size_t w = static_cast<size_t>(axis);
        for (bool upper : {false, true}) {
            const qx_long base = upper ? (dims[w] - 1) * step[w] : 0;
            const qx_long cell_base = upper ? (dims[w] - 2) * cell_step[w] : 0;
            for (qx_long j = 0; j < dims[v] - 1; ++j)
                for (qx_long i = 0; i < dims[u] - 1; ++i) {
                    const qx_long a = base + i * step[u] + j * step[v];
                    const qx_long b = a + step[u], c = b + step[v], d = a + step[v];
                    const std::array<qx_long, 4> outward = {a, b, c, d}, inward = {a, d, c, b};
                    const auto &row = upper ? outward : inward;
                    out.quad.insert(out.quad.end(), row.begin(), row.end());
                    out.quad_cell.push_back(cell_base + i * cell_step[u] + j * cell_step[v]);
                }
        }
    }
    return out;
}

static double volume_inside(const mesh_surface &surface, const std::vector<float> &xyz)
{
    double volume = 0;
    for (size_t q = 0; q < surface.quad_cell.size(); ++q)
        for (size_t t = 1; t < 3; ++t) {
            const float *p[3];
            const size_t corner[3] = {0, t, t + 1};
            for (size_t c = 0; c < 3; ++c)
                p[c] = &xyz[3 * static_cast<size_t>(surface.quad[4 * q + corner[c]])];
            for (int d = 0; d < 3; ++d) {
                const int e = (d + 1) % 3, f = (d + 2) % 3;
                volume += static_cast<double>(p[0][d]) *
                          (static_cast<double>(p[1][e]) * p[2][f] - static_cast<double>(p[1][f]) * p[2][e]);
            }
        }
    return volume;
}

mesh_surface faces_of_solids(input_mesh &mesh, const operation &work, const std::string &path)
{
    mesh_surface out;
    if (mesh.structured()) {
        if (mesh.kind_of_set(0) != CELL_HEX) return out;
        out = sides_of_lattice(mesh.dims);
        number_used_nodes(&out);
        if (volume_inside(out, coords_of(mesh, out.nodes)) < 0)
            for (size_t q = 0; q < out.quad.size(); q += 4)
                std::swap(out.quad[q + 1], out.quad[q + 3]);
        return out;
    }
    face_rows faces = faces_of_sets(mesh, work, path);
    const auto solids = std::count_if(mesh.sets.begin(), mesh.sets.end(),
                                      [](const input_set &set) { return cell_kinds[set.kind].ndim == 3; });
    if (solids > 1) faces = unshared(faces, mesh.nnodes, work, path);
    for (size_t f = 0; f < faces.count(); ++f)
        add_cell(&out, faces.row(f), faces.nnodes[f], faces.cell[f]);
    number_used_nodes(&out);
    return out;
}

// ---- surfaces -----------------------------------------------------------------------------------------------

namespace {

// Cells of three or four corners, by one number: triangles first.
struct surface_rings {
    explicit surface_rings(mesh_surface &of) : surface(of), ntri(of.tri_cell.size()) {}
    size_t count() const { return ntri + surface.quad_cell.size(); }
    int ncorners(size_t cell) const { return cell < ntri ? 3 : 4; }
    qx_long *ring(size_t cell) const
    {
        return cell < ntri ? &surface.tri[3 * cell] : &surface.quad[4 * (cell - ntri)];
    }

    mesh_surface &surface;
    size_t ntri;
};

// An edge of one cell: along tells whether it runs from the lower node to the higher.
struct half_edge {
    qx_long low, high;
    size_t cell;
    bool along;
};

} // namespace

static std::vector<half_edge> half_edges(const surface_rings &cells)
{
    std::vector<half_edge> edges;
    for (size_t cell = 0; cell < cells.count(); ++cell) {
        const qx_long *ring = cells.ring(cell);
        const int n = cells.ncorners(cell);
        for (int c = 0; c < n; ++c) {
            const qx_long a = ring[c], b = ring[(c + 1) % n];
            edges.push_back({std::min(a, b), std::max(a, b), cell, a < b});
        }
    }
    std::sort(edges.begin(), edges.end(), [](const half_edge &a, const half_edge &b) {
        return std::tie(a.low, a.high, a.cell) < std::tie(b.low, b.high, b.cell);
    });
    return edges;
}

// Turns cells over so that neighbours run along their common edge in opposite directions; of each piece of the
// surface the first cell stays as it is.
static void bring_to_one_winding(mesh_surface *surface)
{
    const surface_rings cells(*surface);
    const std::vector<half_edge> edges = half_edges(cells);
    struct neighbour {
        size_t cell, other;
        bool same_way;
    };
    std::vector<neighbour> pairs;
    for (size_t e = 0, next; e < edges.size(); e = next) {
        for (next = e + 1;
             next < edges.size() && edges[next].low == edges[e].low && edges[next].high == edges[e].high;)
            ++next;
        if (next - e != 2) continue;
        const bool same_way = edges[e].along == edges[e + 1].along;
        pairs.push_back({edges[e].cell, edges[e + 1].cell, same_way});
        pairs.push_back({edges[e + 1].cell, edges[e].cell, same_way});
    }
    if (std::none_of(pairs.begin(), pairs.end(), [](const neighbour &p) { return p.same_way; })) return;
    std::sort(pairs.begin(), pairs.end(), [](const neighbour &a, const neighbour &b) {
        return std::tie(a.cell, a.other) < std::tie(b.cell, b.other);
    });
    std::vector<char> seen(cells.count()), turned(cells.count());
    std::vector<size_t> open;
    for (size_t start = 0; start < cells.count(); ++start) {
        if (seen[start] != 0) continue;
        seen[start] = 1;
        open.push_back(start);
        while (!open.empty()) {
            const size_t cell = open.back();
            open.pop_back();
            auto p = std::lower_bound(pairs.begin(), pairs.end(), cell,
                                      [](const neighbour &a, size_t b) { return a.cell < b; });
            for (; p != pairs.end() && p->cell == cell; ++p) {
                if (seen[p->other] != 0) continue;
                seen[p->other] = 1;
                turned[p->other] = p->same_way ? turned[cell] == 0 : turned[cell] != 0;
                open.push_back(p->other);
            }
        }
        open.clear();
    }
    for (size_t cell = 0; cell < cells.count(); ++cell)
        if (turned[cell] != 0) std::reverse(cells.ring(cell) + 1, cells.ring(cell) + cells.ncorners(cell));
}

mesh_surface surface_cells(input_mesh &mesh)
{
    mesh_surface out;
    if (mesh.structured()) {
        if (mesh.kind_of_set(0) != CELL_QUAD) return out;
        const qx_long nx = mesh.dims[0], ny = mesh.dims[1];
        for (qx_long j = 0; j < ny - 1; ++j)
            for (qx_long i = 0; i < nx - 1; ++i) {
                const qx_long a = j * nx + i;
                out.quad.insert(out.quad.end(), {a, a + 1, a + 1 + nx, a + nx});
                out.quad_cell.push_back(j * (nx - 1) + i);
            }
    }
    for (const input_set &set : mesh.sets) {
        if (cell_kinds[set.kind].ndim != 2) continue;
        const int nnodes = set.order == 1 ? cell_kinds[set.kind].ncorners : cell_kinds[set.kind].nnodes_2;
        for (qx_long cell = 0; cell < set.ncells; ++cell)
            add_cell(&out, set.connect + cell * nnodes, nnodes, set.vtk_cell(cell));
    }
    number_used_nodes(&out);
    bring_to_one_winding(&out);
    return out;
}

namespace {

using edge_nodes = std::pair<qx_long, qx_long>; // the lower first

// Edges of which the library's answer goes by the order of the cells, or by which of them was turned over first.
struct odd_edges {
    std::vector<edge_nodes> of_many;  // of three cells or more
    std::vector<edge_nodes> same_way; // of two that run along it in one direction: of a one-sided surface
    std::vector<std::pair<size_t, size_t>> cells; // of the latter
};

} // namespace

static odd_edges find_odd_edges(const surface_rings &cells)
{
    odd_edges odd;
    const std::vector<half_edge> edges = half_edges(cells);
    for (size_t e = 0, next; e < edges.size(); e = next) {
        for (next = e + 1;
             next < edges.size() && edges[next].low == edges[e].low && edges[next].high == edges[e].high;)
            ++next;
        const edge_nodes nodes = {edges[e].low, edges[e].high};
        if (nodes.first == nodes.second) continue;
        if (next - e > 2) odd.of_many.push_back(nodes);
        if (next - e != 2 || edges[e].cell == edges[e + 1].cell || edges[e].along != edges[e + 1].along)
            continue;
        odd.same_way.push_back(nodes);
        odd.cells.emplace_back(edges[e].cell, edges[e + 1].cell);
    }
    return odd;
}

// Which of the edges of two cells are creases once the second is turned over: the library is asked of each pair alone.
static std::vector<edge_nodes> creases_of_pairs(const odd_edges &odd, const surface_rings &cells,
                                                const std::vector<float> &coords, double angle,
                                                const operation &work, const std::string &path)
{
    constexpr int ncorners = 4;
    std::vector<edge_nodes> creases;
    std::vector<float> places;
    std::vector<qx_long> connect;
    std::vector<edge_nodes> wanted; // in the numbers of the pairs
    for (size_t pair = 0; pair < odd.cells.size(); ++pair) {
        const auto first = static_cast<qx_long>(places.size() / 3);
        std::vector<qx_long> seen;
        const auto number = [&](qx_long node) {
            const auto at = std::find(seen.begin(), seen.end(), node);
            if (at == seen.end())
                places.insert(places.end(), &coords[3 * static_cast<size_t>(node)],
                              &coords[3 * static_cast<size_t>(node)] + 3);
            const auto place = at - seen.begin();
            if (at == seen.end()) seen.push_back(node);
            return first + place;
        };
        const auto add = [&](size_t cell, bool turned) {
            std::vector<qx_long> ring(cells.ring(cell), cells.ring(cell) + cells.ncorners(cell));
            if (turned) std::reverse(ring.begin() + 1, ring.end());
            ring.resize(ncorners, ring.back());
            for (const qx_long node : ring)
                connect.push_back(number(node));
        };
        add(odd.cells[pair].first, false);
        add(odd.cells[pair].second, true);
        wanted.push_back(std::minmax({number(odd.same_way[pair].first), number(odd.same_way[pair].second)}));
    }
    qx_long nedges = 0, *list = nullptr;
    const int done = UTILexternal_edges(static_cast<qx_long>(places.size() / 3), 3, places.data(),
                                        static_cast<qx_long>(connect.size()) / ncorners, ncorners, ncorners,
                                        connect.data(), &nedges, &list, angle);
    const owned_list edges(list);
    work.check(done == 1, path + ": its edges could not be found");
    std::vector<edge_nodes> found;
    for (qx_long e = 0; e < nedges; ++e)
        found.push_back(std::minmax({list[2 * e], list[2 * e + 1]}));
    std::sort(found.begin(), found.end());
    for (size_t pair = 0; pair < wanted.size(); ++pair)
        if (std::binary_search(found.begin(), found.end(), wanted[pair]))
            creases.push_back(odd.same_way[pair]);
    return creases;
}

std::vector<qx_long> feature_edges(input_mesh &mesh, mesh_surface &surface, double angle,
                                   const operation &work, const std::string &path)
{
    // One list of one kind: beside quadrilaterals a triangle is one that ends in the same corner twice, which has
    // the triangle's normal, and an edge more that is none.
    const bool mixed = !surface.tri.empty() && !surface.quad.empty();
    const int ncorners = surface.quad.empty() ? 3 : 4;
    std::vector<qx_long> padded;
    const std::vector<qx_long> *connect = ncorners == 3 ? &surface.tri : &surface.quad;
    if (mixed) {
        padded = surface.quad;
        for (size_t t = 0; t < surface.tri.size(); t += 3)
            padded.insert(padded.end(),
                          {surface.tri[t], surface.tri[t + 1], surface.tri[t + 2], surface.tri[t + 2]});
        connect = &padded;
    }
    const std::vector<float> coords = coords_of(mesh, surface.nodes);
    qx_long nedges = 0, *list = nullptr;
    const int done = UTILexternal_edges(static_cast<qx_long>(surface.nodes.size()), 3, coords.data(),
                                        static_cast<qx_long>(connect->size()) / ncorners, ncorners, ncorners,
                                        connect->data(), &nedges, &list, angle);
    const owned_list edges(list);
    work.check(done == 1, path + ": its edges could not be found");
    std::vector<qx_long> out;
    const surface_rings cells(surface);
    const odd_edges odd = find_odd_edges(cells);
    std::vector<edge_nodes> of_others = odd.of_many;
    of_others.insert(of_others.end(), odd.same_way.begin(), odd.same_way.end());
    std::sort(of_others.begin(), of_others.end());
    for (qx_long e = 0; e < nedges; ++e) {
        const edge_nodes nodes = std::minmax({list[2 * e], list[2 * e + 1]});
        if (nodes.first != nodes.second && !std::binary_search(of_others.begin(), of_others.end(), nodes))
            out.insert(out.end(), {list[2 * e], list[2 * e + 1]});
    }
    std::vector<edge_nodes> more = odd.of_many;
    if (!odd.cells.empty())
        for (const edge_nodes &crease : creases_of_pairs(odd, cells, coords, angle, work, path))
            more.push_back(crease);
    for (const edge_nodes &nodes : more)
        out.insert(out.end(), {nodes.first, nodes.second});
    return out;
}
