// One extraction a level gives pairs of mesh nodes, connect lists over them and the cell of each piece. All
// levels are extracted first, so that the output is allocated once at its full size and each level writes its
// stretch of it. A single level's connect list becomes VTK's without a copy.
#include "extract.hpp"

#include "failure.hpp"
#include "progress.hpp"

#include <skoklana/array.h>
#include <skoklana/host/tool.h>
#include <skoklana/iso.h>

#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkFloatArray.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkTypeInt64Array.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace {

struct freed {
    void operator()(void *list) const { free(list); }
};
using list = std::unique_ptr<qx_long, freed>;

// What one level gave.
struct level_set {
    qx_long nnodes = 0;
    list min_node, max_node;
    qx_long nline = 0, ntri = 0;
    list line_conn, tri_conn;
    std::vector<qx_long> line_cell, tri_cell; // VTK's cell that each piece lies in
};

// Calls the operation for one level; false: it failed or was stopped, and what it left is not to be read.
bool run(input_mesh &mesh, level_kind kind, const scalar_array &scalar, double level, level_set *out)
{
    const size_t nmaps = std::max<size_t>(mesh.sets.size(), 1);
    std::vector<qx_long> map_count(nmaps);
    std::vector<qx_long *> map(nmaps);
    qx_long *min_node = nullptr, *max_node = nullptr, *line_conn = nullptr, *tri_conn = nullptr;
    qx_long nline_conn = 0, ntri_conn = 0;
    const typed_array &data = scalar.array;
    int result;
    if (kind == level_kind::surfaces)
        result = UTILisosurf(mesh.mesh, data.values, data.type, scalar.null_flag, scalar.null_value(), level,
                             &out->nnodes, &min_node, &max_node, &out->nline, &line_conn, &nline_conn,
                             &out->ntri, &tri_conn, &ntri_conn, map_count.data(), map.data());
    else
        result = UTILisoline(mesh.mesh, data.values, data.type, scalar.null_flag, scalar.null_value(), level,
                             &out->nnodes, &min_node, &max_node, &out->nline, &line_conn, &nline_conn,
                             map_count.data(), map.data());
    if (result != 1) return false;

    out->min_node.reset(min_node);
    out->max_node.reset(max_node);
    out->line_conn.reset(line_conn);
    out->tri_conn.reset(tri_conn);
    for (size_t s = 0; s < nmaps; ++s) {
        const bool lines = mesh.structured() ? mesh.ndim == 2 : cell_kinds[mesh.sets[s].kind].ndim == 2;
        auto &cells = lines ? out->line_cell : out->tri_cell;
        for (qx_long i = 0; i < map_count[s]; ++i)
            cells.push_back(mesh.structured() ? map[s][i] : mesh.sets[s].vtk_cell(map[s][i]));
        free(map[s]);
    }
    return true;
}

vtkSmartPointer<vtkTypeInt64Array> joined(std::vector<level_set> &sets, list level_set::*conn,
                                          qx_long level_set::*count, int corners)
{
    auto all = vtkSmartPointer<vtkTypeInt64Array>::New();
    if (sets.size() == 1 && sets[0].*count > 0) {
        all->SetArray(vtk_list((sets[0].*conn).release()), sets[0].*count * corners, 0,
                      vtkTypeInt64Array::VTK_DATA_ARRAY_FREE);
        return all;
    }
    qx_long entries = 0, first_node = 0;
    for (const level_set &set : sets)
        entries += set.*count * corners;
    all->SetNumberOfValues(entries);
    qx_long *to = entries > 0 ? our_list(all->GetPointer(0)) : nullptr;
    for (const level_set &set : sets) {
        const qx_long *from = (set.*conn).get();
        to = std::transform(from, from + set.*count * corners, to,
                            [=](qx_long node) { return node + first_node; });
        first_node += set.nnodes;
    }
    return all;
}

// Positions and node arrays of one level's nodes, written from row first on.
bool evaluate(input_mesh &mesh, const scalar_array &scalar, double level, const level_set &set, qx_long first,
              float *coords, const std::vector<typed_array> &from, std::vector<typed_array> *to)
{
    const qx_long *a = set.min_node.get(), *b = set.max_node.get();
    const auto t = std::make_unique<float[]>(static_cast<size_t>(std::max<qx_long>(set.nnodes, 1)));
    const typed_array &data = scalar.array;
    if (UTILget_param(set.nnodes, data.type, data.values, level, a, b, t.get()) != 1) return false;
    if (UTILeval_coord(mesh.mesh, set.nnodes, a, b, t.get(), coords + first * 3) != 1) return false;
    for (size_t i = 0; i < from.size(); ++i) {
        const qx_long bytes = first * from[i].veclen * DTYPEtype_size(from[i].type);
        if (UTILeval_param(set.nnodes, from[i].veclen, from[i].type, from[i].values, 0, nullptr, a, b,
                           t.get(), static_cast<char *>((*to)[i].values) + bytes) != 1)
            return false;
    }
    return true;
}

} // namespace

extracted extract_levels(const std::string &path, input_mesh &mesh, level_kind kind,
                         const scalar_array &scalar, const std::vector<double> &levels,
                         const carried_arrays &carried)
{
    const int nlevels = static_cast<int>(levels.size());
    const std::string what = path + (kind == level_kind::surfaces ? ": isosurface" : ": isolines");
    std::vector<level_set> sets(levels.size());
    qx_long nnodes = 0;
    std::vector<qx_long> cells; // VTK's cell of each piece of the output: lines come first there
    extracted made;
    auto out = made.data = vtkSmartPointer<vtkPolyData>::New();

    operation run_all(kind == level_kind::surfaces ? "isosurface" : "isolines");
    for (int i = 0; i < nlevels; ++i) {
        const status_part part(i, nlevels);
        run_all.check(run(mesh, kind, scalar, levels[static_cast<size_t>(i)], &sets[static_cast<size_t>(i)]),
                      what);
        nnodes += sets[static_cast<size_t>(i)].nnodes;
        made.ntri.push_back(sets[static_cast<size_t>(i)].ntri);
    }
    for (const auto member : {&level_set::line_cell, &level_set::tri_cell})
        for (const level_set &set : sets)
            cells.insert(cells.end(), (set.*member).begin(), (set.*member).end());

    auto coords = vtkSmartPointer<vtkFloatArray>::New();
    coords->SetNumberOfComponents(3);
    coords->SetNumberOfTuples(nnodes);
    std::vector<typed_array> node_arrays;
    for (const typed_array &array : carried.node) {
        node_arrays.push_back(like(array, nnodes));
        out->GetPointData()->AddArray(node_arrays.back().kept);
    }
    for (qx_long first = 0, i = 0; i < nlevels; first += sets[static_cast<size_t>(i)].nnodes, ++i) {
        if (sets[static_cast<size_t>(i)].nnodes == 0) continue;
        run_all.check(evaluate(mesh, scalar, levels[static_cast<size_t>(i)], sets[static_cast<size_t>(i)],
                               first, coords->GetPointer(0), carried.node, &node_arrays),
                      what);
    }
    for (const typed_array &array : carried.cell) {
        const typed_array copy = like(array, static_cast<qx_long>(cells.size()));
        UTILcopy_array_list(0, array.veclen, array.type, array.values, copy.count, cells.data(), copy.values);
        out->GetCellData()->AddArray(copy.kept);
    }

    auto points = vtkSmartPointer<vtkPoints>::New();
    points->SetData(coords);
    out->SetPoints(points);
    auto lines = vtkSmartPointer<vtkCellArray>::New(), polys = vtkSmartPointer<vtkCellArray>::New();
    lines->SetData(2, joined(sets, &level_set::line_conn, &level_set::nline, 2));
    polys->SetData(3, joined(sets, &level_set::tri_conn, &level_set::ntri, 3));
    if (lines->GetNumberOfCells() > 0) out->SetLines(lines);
    if (polys->GetNumberOfCells() > 0) out->SetPolys(polys);
    return made;
}
