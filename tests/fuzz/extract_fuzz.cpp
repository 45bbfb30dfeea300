// Isosurface, isoline and null removal on any mesh: what comes out names nodes and cells that there are.

#include "any_mesh.hpp"

#include <algorithm>

using namespace fuzz;

// A list that an operation hands over.
struct owned {
    qx_long *list = nullptr;
    owned() = default;
    owned(const owned &) = delete;
    owned &operator=(const owned &) = delete;
    ~owned() { std::free(list); }
};

static void insist_range(const owned &numbers, qx_long count, qx_long end, const char *what)
{
    for (qx_long i = 0; i < count; ++i)
        insist(numbers.list[i] >= 0 && numbers.list[i] < end, what);
}

// Cells go by a number within their set, those of structured meshes by their lowest node.
static qx_long cell_numbers(const mesh_info *mesh, int set)
{
    return mesh->ndim > 0 ? mesh->nnodes : mesh->cell_count[set];
}

struct surface {
    owned low, high, lines, triangles;
    qx_long nnodes = 0, nlines = 0, line_size = 0, ntriangles = 0, triangle_size = 0;
    std::vector<qx_long> map_sizes;
    std::vector<owned> maps; // a set each, and one more so that there is one
    std::vector<qx_long *> map_lists;

    explicit surface(const mesh_info *mesh)
        : map_sizes(static_cast<size_t>(mesh->ncell_sets) + 1), maps(map_sizes.size()),
          map_lists(map_sizes.size())
    {
    }

    void take_maps()
    {
        for (size_t set = 0; set < maps.size(); ++set)
            maps[set].list = map_lists[set];
    }

    void check(const mesh_info *mesh) const
    {
        insist_range(low, nnodes, mesh->nnodes, "lower node of an edge");
        insist_range(high, nnodes, mesh->nnodes, "upper node of an edge");
        insist(line_size == 2 * nlines && triangle_size == 3 * ntriangles, "lengths of connect lists");
        insist_range(lines, line_size, nnodes, "node of a line");
        insist_range(triangles, triangle_size, nnodes, "node of a triangle");
        qx_long mapped = 0;
        for (int set = 0; set < mesh->ncell_sets; ++set) {
            const auto s = static_cast<size_t>(set);
            mapped += map_sizes[s];
            insist_range(maps[s], map_sizes[s], cell_numbers(mesh, set), "cell of a primitive");
        }
        insist(mapped == nlines + ntriangles, "a cell for each line and triangle");
    }
};

static void try_isosurface(mesh_info *mesh, const any_data &data)
{
    surface out(mesh);
    const int result = UTILisosurf(mesh, data.values.data(), data.type, data.null_flag, data.null_value,
                                   data.level, &out.nnodes, &out.low.list, &out.high.list, &out.nlines,
                                   &out.lines.list, &out.line_size, &out.ntriangles, &out.triangles.list,
                                   &out.triangle_size, out.map_sizes.data(), out.map_lists.data());
    out.take_maps();
    if (result == 1)
        out.check(mesh);
    else
        insist(out.nnodes == 0 && out.nlines == 0 && out.ntriangles == 0, "nothing from a failure");
}

// The lines in an order that does not depend on theirs.
static std::vector<std::pair<qx_long, qx_long>> lines_of(const qx_long *list, qx_long size)
{
    std::vector<std::pair<qx_long, qx_long>> lines;
    for (qx_long i = 0; i + 1 < size; i += 2)
        lines.push_back(std::minmax(list[i], list[i + 1]));
    std::sort(lines.begin(), lines.end());
    return lines;
}

// Whether no more than two lines meet in a node, and no line is there twice or leads back to its node: chains
// of others lose some.
static bool are_simple(const qx_long *list, qx_long size, qx_long nnodes)
{
    std::vector<int> meet(static_cast<size_t>(nnodes));
    for (qx_long i = 0; i < size; ++i)
        if (++meet[static_cast<size_t>(list[i])] > 2) return false;
    const auto lines = lines_of(list, size);
    for (size_t i = 0; i < lines.size(); ++i)
        if (lines[i].first == lines[i].second || (i > 0 && lines[i] == lines[i - 1])) return false;
    return true;
}

static void try_isoline(mesh_info *mesh, const any_data &data)
{
    surface out(mesh);
    const int result =
        UTILisoline(mesh, data.values.data(), data.type, data.null_flag, data.null_value, data.level,
                    &out.nnodes, &out.low.list, &out.high.list, &out.nlines, &out.lines.list, &out.line_size,
                    out.map_sizes.data(), out.map_lists.data());
    out.take_maps();
    if (result != 1) return;
    out.check(mesh);
    const bool simple = are_simple(out.lines.list, out.line_size, out.nnodes);
    const std::vector<std::pair<qx_long, qx_long>> before = lines_of(out.lines.list, out.line_size);
    insist(UTILlines_to_chains(out.lines.list, out.line_size, out.nnodes) == 1, "chains of lines");
    insist_range(out.lines, out.line_size, out.nnodes, "node of a chain");
    insist(!simple || lines_of(out.lines.list, out.line_size) == before,
           "chains have the lines they are made of");
}

static void try_null_removal(mesh_info *mesh, const any_data &data)
{
    qx_long nkept = 0;
    if (mesh->ndim > 0) {
        qx_long ncells = 0, size = 0;
        owned nodes, connect;
        if (UTILthresh_null(mesh, data.values.data(), data.type, data.null_value, &nkept, &nodes.list,
                            &connect.list, &ncells, &size, nullptr) != 1)
            return;
        insist_range(nodes, nkept, mesh->nnodes, "kept node");
        insist_range(connect, size, nkept, "node of a kept cell");
        return;
    }
    const auto nsets = static_cast<size_t>(mesh->ncell_sets);
    std::vector<qx_long *> cells(nsets + 1), connect(nsets + 1);
    std::vector<qx_long> ncells(nsets + 1), sizes(nsets + 1);
    owned map;
    if (UTILthresh_null(mesh, data.values.data(), data.type, data.null_value, &nkept, &map.list, cells.data(),
                        ncells.data(), connect.data(), sizes.data()) == 1) {
        for (qx_long node = 0; map.list != nullptr && node < mesh->nnodes; ++node)
            insist(map.list[node] >= -1 && map.list[node] < nkept, "place of a node");
        for (size_t s = 0; s < nsets; ++s)
            for (qx_long i = 0; connect[s] != nullptr && i < sizes[s]; ++i)
                insist(connect[s][i] >= 0 && connect[s][i] < nkept, "node of a kept cell");
    }
    for (size_t s = 0; s < nsets; ++s) {
        std::free(cells[s]);
        std::free(connect[s]);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size)
{
    hush();
    FuzzedDataProvider bytes(input, size);
    const int operation = bytes.ConsumeIntegralInRange(0, 2);
    any_mesh made;
    make_mesh(bytes, &made);
    if (made.mesh == nullptr) return 0;
    const any_interruption interruption(bytes);
    const any_data data = make_data(bytes, made.mesh->nnodes, 1);
    if (operation == 0)
        try_isosurface(made.mesh, data);
    else if (operation == 1)
        try_isoline(made.mesh, data);
    else
        try_null_removal(made.mesh, data);
    return 0;
}
