// Cuts and bands on any mesh: what comes out names nodes and cells that there are, and is the same again.

#include "any_mesh.hpp"

#include <algorithm>
#include <array>
#include <set>

using namespace fuzz;

namespace {

constexpr size_t nlists = 7;
constexpr qx_long nodes_of_list[nlists] = {4, 6, 5, 8, 3, 4, 2};

std::vector<qx_long> take(qx_long *list, qx_long count)
{
    std::vector<qx_long> taken;
    if (list != nullptr && count > 0) taken.assign(list, list + count);
    std::free(list);
    return taken;
}

// What a cut or a band hands over, in one form.
struct part {
    int result = 0;
    qx_long nold = 0, nnew = 0;
    std::vector<qx_long> nodes, min_node, max_node; // nodes: the map of cell sets, the list of others
    std::vector<unsigned char> levels;
    std::array<std::vector<qx_long>, nlists> conn;
    std::vector<std::vector<qx_long>> maps;
    std::vector<float> coords;
    std::vector<qx_long> lines[2];
};

bool same(const part &a, const part &b)
{
    return a.result == b.result && a.nold == b.nold && a.nodes == b.nodes && a.min_node == b.min_node &&
           a.max_node == b.max_node && a.levels == b.levels && a.conn == b.conn && a.maps == b.maps &&
           a.lines[0] == b.lines[0] && a.lines[1] == b.lines[1] && a.coords.size() == b.coords.size() &&
           (a.coords.empty() ||
            std::memcmp(a.coords.data(), b.coords.data(), a.coords.size() * sizeof(float)) == 0);
}

void insist_range(const std::vector<qx_long> &numbers, qx_long begin, qx_long end, const char *what)
{
    for (qx_long number : numbers)
        insist(number >= begin && number < end, what);
}

void check(const part &made, const mesh_info *mesh, qx_long upper_nodes)
{
    const qx_long nodes = made.nold + made.nnew;
    if (mesh->ndim == 0) {
        insist_range(made.nodes, -1, made.nold, "number of a node that is kept");
        qx_long next = 0;
        for (qx_long number : made.nodes)
            if (number >= 0) insist(number == next++, "nodes are numbered in order");
        insist(next == made.nold, "count of nodes that are kept");
    } else {
        insist_range(made.nodes, 0, mesh->nnodes, "a node that is kept");
        for (size_t i = 1; i < made.nodes.size(); ++i)
            insist(made.nodes[i - 1] < made.nodes[i], "nodes in order");
    }
    insist_range(made.min_node, 0, mesh->nnodes, "lower node of an edge");
    insist_range(made.max_node, 0, upper_nodes, "upper node of an edge");
    for (size_t e = 0; e < made.min_node.size(); ++e)
        insist(made.min_node[e] <= made.max_node[e], "lower node first");
    for (unsigned char level : made.levels)
        insist(level <= 1, "a level");
    for (const auto &list : made.conn)
        insist_range(list, 0, nodes, "node of a cell");
    for (const auto &list : made.lines)
        insist_range(list, made.nold, nodes, "node of a line");
}

size_t sets_of(const mesh_info *mesh)
{
    return mesh->ndim > 0 ? 1 : static_cast<size_t>(mesh->ncell_sets);
}

part run_cut(mesh_info *mesh, const any_data &data, int side)
{
    part out;
    qx_long *nodes = nullptr, *min_node = nullptr, *max_node = nullptr;
    qx_long ncells[nlists] = {}, nconn[nlists] = {}, *conn[nlists] = {};
    std::vector<qx_long> map_count(sets_of(mesh) * nlists + 1);
    std::vector<qx_long *> maps(map_count.size());
    out.result = UTILcut(mesh, data.values.data(), data.type, data.null_flag, data.null_value, data.level,
                         side, &out.nold, &nodes, &out.nnew, &min_node, &max_node, ncells, conn, nconn,
                         map_count.data(), maps.data());
    const bool good = out.result == 1;
    out.nodes = take(nodes, good ? mesh->ndim > 0 ? out.nold : mesh->nnodes : 0);
    out.min_node = take(min_node, good ? out.nnew : 0);
    out.max_node = take(max_node, good ? out.nnew : 0);
    std::array<qx_long, nlists> mapped = {};
    for (size_t l = 0; l < map_count.size(); ++l) {
        out.maps.push_back(take(maps[l], good ? map_count[l] : 0));
        if (!good || l + 1 == map_count.size()) continue;
        mapped[l % nlists] += map_count[l];
        const int set = static_cast<int>(l / nlists);
        insist_range(out.maps.back(), 0, mesh->ndim > 0 ? mesh->nnodes : mesh->cell_count[set],
                     "cell of a piece");
    }
    for (size_t list = 0; list < nlists; ++list) {
        out.conn[list] = take(conn[list], good ? nconn[list] : 0);
        if (!good) continue;
        insist(nconn[list] == ncells[list] * nodes_of_list[list], "length of a list");
        insist(mapped[list] == ncells[list], "a cell for each piece");
    }
    if (good) check(out, mesh, mesh->nnodes);
    return out;
}

part run_band(mesh_info *mesh, const any_data &data, double upper, bool lines)
{
    part out;
    qx_long *nodes = nullptr, *min_node = nullptr, *max_node = nullptr;
    unsigned char *levels = nullptr;
    qx_long ncells[nlists] = {}, nconn[nlists] = {}, *conn[nlists] = {};
    qx_long count[2] = {lines, lines}, *list[2] = {};
    float *coords = nullptr;
    out.result = UTILcontour(mesh, data.values.data(), data.type, data.null_flag, data.null_value, data.level,
                             upper, &out.nold, &nodes, &out.nnew, &min_node, &max_node, &levels, ncells, conn,
                             nconn, mesh->nspace, &coords, &count[0], &list[0], &count[1], &list[1]);
    const bool good = out.result == 1;
    out.nodes = take(nodes, good ? mesh->ndim > 0 ? out.nold : mesh->nnodes : 0);
    out.min_node = take(min_node, good ? out.nnew : 0);
    out.max_node = take(max_node, good ? out.nnew : 0);
    if (good && levels != nullptr) out.levels.assign(levels, levels + out.nnew);
    if (good && coords != nullptr) out.coords.assign(coords, coords + (out.nold + out.nnew) * mesh->nspace);
    if (good) insist((coords != nullptr) == (out.nold + out.nnew > 0), "places of nodes");
    std::free(levels);
    std::free(coords);
    for (size_t l = 0; l < nlists; ++l) {
        out.conn[l] = take(conn[l], good ? nconn[l] : 0);
        if (good) insist(nconn[l] == ncells[l] * nodes_of_list[l], "length of a list");
    }
    for (size_t level = 0; level < 2; ++level) {
        insist(!good || list[level] != nullptr || count[level] == 0, "lines without a list");
        insist(!good || lines || list[level] == nullptr, "lines that nobody asked for");
        out.lines[level] = take(list[level], good ? 2 * count[level] : 0);
    }
    if (good) check(out, mesh, mesh->nnodes + out.nnew);
    return out;
}

using edge_set = std::set<std::pair<qx_long, qx_long>>;

edge_set edges_of(const std::vector<qx_long> &lower, const std::vector<qx_long> &upper)
{
    edge_set edges;
    for (size_t e = 0; e < lower.size(); ++e)
        edges.insert({lower[e], upper[e]});
    return edges;
}

// The new nodes of a cut are those of the level surface, and of the lines that are cut; of integers, whose levels
// are the same to both.
void compare_with_surface(mesh_info *mesh, const any_data &data, const part &cut)
{
    if (data.type == DTYPE_FLOAT || data.type == DTYPE_DOUBLE || data.type == DTYPE_QX_LONG) return;
    qx_long nnew = 0, *min_node = nullptr, *max_node = nullptr, nlines = 0, *lines = nullptr, size = 0,
            ntriangles = 0, *triangles = nullptr, triangle_size = 0;
    const int result = UTILisosurf(mesh, data.values.data(), data.type, data.null_flag, data.null_value,
                                   data.level, &nnew, &min_node, &max_node, &nlines, &lines, &size,
                                   &ntriangles, &triangles, &triangle_size, nullptr, nullptr);
    std::free(lines);
    std::free(triangles);
    const std::vector<qx_long> lower = take(min_node, nnew), upper = take(max_node, nnew);
    if (result != 1) return;
    const edge_set of_cut = edges_of(cut.min_node, cut.max_node), of_surface = edges_of(lower, upper);
    insist(of_cut.size() == cut.min_node.size(), "an edge has one new node");
    insist(std::includes(of_cut.begin(), of_cut.end(), of_surface.begin(), of_surface.end()),
           "new nodes of the surface are those of the cut");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size)
{
    hush();
    FuzzedDataProvider bytes(input, size);
    const bool band = bytes.ConsumeBool(), lines = bytes.ConsumeBool();
    const int side = bytes.ConsumeIntegralInRange(-1, 1);
    const double width = 0.25 * bytes.ConsumeIntegralInRange(-2, 12);
    any_mesh made;
    make_mesh(bytes, &made);
    if (made.mesh == nullptr) return 0;
    part first;
    {
        const any_interruption interruption(bytes);
        const any_data data = make_data(bytes, made.mesh->nnodes, 1);
        first = band ? run_band(made.mesh, data, data.level + width, lines) : run_cut(made.mesh, data, side);
        if (first.result != 1) return 0;
        if (interruption.armed()) return 0;
        const part again =
            band ? run_band(made.mesh, data, data.level + width, lines) : run_cut(made.mesh, data, side);
        insist(same(first, again), "the same again");
        if (!band && made.mesh->ndim != 1) compare_with_surface(made.mesh, data, first);
    }
    return 0;
}
