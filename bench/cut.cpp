// Cuts and bands against VTK's clip filters on the same arrays.
//
// Both sides give a mesh with its points placed. What agrees whatever the pieces are is the volume, or area, that is
// kept; of tetrahedra and triangles also where the nodes are, as neither side adds any but on the edges.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>

#include <vtkBandedPolyDataContourFilter.h>
#include <vtkCell.h>
#include <vtkCellArray.h>
#include <vtkGenericCell.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkTableBasedClipDataSet.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

constexpr char sample[] = "marschner-lobb";
constexpr double cut_level = 0.5, band_low = 0.35, band_high = 0.65;

// ---- checks -------------------------------------------------------------------------------------------------

// The volume of a cell of straight faces, or the area of a flat one: simplices around its first corner.
double size_of_cell(int ncorners, int ndim, const double (*at)[3])
{
    const auto volume = [at](int a, int b, int c, int d) {
        double u[3], v[3], w[3];
        for (int i = 0; i < 3; ++i) {
            u[i] = at[b][i] - at[a][i];
            v[i] = at[c][i] - at[a][i];
            w[i] = at[d][i] - at[a][i];
        }
        return std::fabs(u[0] * (v[1] * w[2] - v[2] * w[1]) - u[1] * (v[0] * w[2] - v[2] * w[0]) +
                         u[2] * (v[0] * w[1] - v[1] * w[0])) /
               6;
    };
    const auto area = [at](int a, int b, int c) {
        double u[3], v[3];
        for (int i = 0; i < 3; ++i) {
            u[i] = at[b][i] - at[a][i];
            v[i] = at[c][i] - at[a][i];
        }
        const double n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
        return std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]) / 2;
    };
    if (ndim == 2) return ncorners == 3 ? area(0, 1, 2) : area(0, 1, 2) + area(0, 2, 3);
    switch (ncorners) {
    case 4: return volume(0, 1, 2, 3);
    case 5: return volume(0, 1, 2, 4) + volume(0, 2, 3, 4); // apex last
    case 6: return volume(0, 1, 2, 3) + volume(1, 2, 3, 4) + volume(2, 3, 4, 5);
    default:
        return volume(0, 1, 2, 6) + volume(0, 2, 3, 6) + volume(0, 3, 7, 6) + volume(0, 7, 4, 6) +
               volume(0, 4, 5, 6) + volume(0, 5, 1, 6);
    }
}

template <typename Position> check moments_of(qx_long nnodes, Position position)
{
    std::vector<double> moments(6); // means of x, y, z and of their squares
    for (qx_long node = 0; node < nnodes; ++node) {
        double at[3];
        position(node, at);
        for (size_t d = 0; d < 3; ++d) {
            moments[d] += at[d] / static_cast<double>(nnodes);
            moments[3 + d] += at[d] * at[d] / static_cast<double>(nnodes);
        }
    }
    return {"places", moments, 1e-6};
}

// How far a result may differ, by what cells it is made of.
struct tolerance {
    bool same_nodes;
    double size;
};

// ---- ours ---------------------------------------------------------------------------------------------------

void require(int result)
{
    if (result == 1) return;
    fprintf(stderr, "bench: an operation failed\n");
    exit(2);
}

struct kept_part {
    qx_long nold = 0, nnodes_out = 0, ncells[7] = {}, nconn[7] = {};
    qx_long *node_map = nullptr, *min_node = nullptr, *max_node = nullptr, *conn[7] = {};
    unsigned char *levels = nullptr;
    float *t = nullptr, *coords = nullptr;

    kept_part() = default;
    kept_part(const kept_part &) = delete;
    kept_part &operator=(const kept_part &) = delete;
    ~kept_part()
    {
        for (qx_long *list : {node_map, min_node, max_node})
            free(list);
        for (qx_long *list : conn)
            free(list);
        free(levels);
        free(t);
        free(coords);
    }

    qx_long count() const
    {
        qx_long sum = 0;
        for (qx_long n : ncells)
            sum += n;
        return sum;
    }
    double bytes(qx_long mesh_nodes) const
    {
        double sum = static_cast<double>(nnodes_out * 2 + mesh_nodes) * sizeof(qx_long) +
                     static_cast<double>(nold + nnodes_out) * 3 * sizeof(float);
        for (qx_long n : nconn)
            sum += static_cast<double>(n) * sizeof(qx_long);
        return sum;
    }
    double size() const
    {
        constexpr int corners[7] = {4, 6, 5, 8, 3, 4, 2}, ndim[7] = {3, 3, 3, 3, 2, 2, 1};
        double sum = 0, at[8][3];
        for (int list = 0; list < 6; ++list)
            for (qx_long cell = 0; cell < ncells[list]; ++cell) {
                for (int c = 0; c < corners[list]; ++c) {
                    // The library's pyramids have their apex first.
                    const int from = list == 2 ? (c + 1) % 5 : c;
                    for (int d = 0; d < 3; ++d)
                        at[c][d] = coords[3 * conn[list][cell * corners[list] + from] + d];
                }
                sum += size_of_cell(corners[list], ndim[list], at);
            }
        return sum;
    }
};

void cut(const input &in, double level, kept_part *out)
{
    require(UTILcut(in.mesh, in.data(), in.type, 0, nullptr, level, 0, &out->nold, &out->node_map,
                    &out->nnodes_out, &out->min_node, &out->max_node, out->ncells, out->conn, out->nconn,
                    nullptr, nullptr));
}

void place(const input &in, double level, const kept_part &cut_part, kept_part *out)
{
    const size_t nnew = static_cast<size_t>(cut_part.nnodes_out);
    out->t = static_cast<float *>(malloc(sizeof(float) * nnew));
    out->coords =
        static_cast<float *>(malloc(3 * sizeof(float) * (static_cast<size_t>(cut_part.nold) + nnew)));
    require(UTILget_coord_list(in.mesh, cut_part.nold, cut_part.node_map, out->coords));
    require(UTILget_param(cut_part.nnodes_out, in.type, in.data(), level, cut_part.min_node,
                          cut_part.max_node, out->t));
    require(UTILeval_coord(in.mesh, cut_part.nnodes_out, cut_part.min_node, cut_part.max_node, out->t,
                           out->coords + 3 * cut_part.nold));
}

void make_band(const input &in, kept_part *out)
{
    qx_long nlow = 0, nhigh = 0, *low = nullptr, *high = nullptr;
    require(UTILcontour(in.mesh, in.data(), in.type, 0, nullptr, band_low, band_high, &out->nold,
                        &out->node_map, &out->nnodes_out, &out->min_node, &out->max_node, &out->levels,
                        out->ncells, out->conn, out->nconn, 3, &out->coords, &nlow, &low, &nhigh, &high));
}

made result_of(const input_ptr &in, const std::shared_ptr<kept_part> &part, tolerance within)
{
    made output;
    output.written_bytes = part->bytes(in->mesh->nnodes);
    output.kept = part;
    if (within.same_nodes) {
        output.nodes = part->nold + part->nnodes_out;
        output.cells = part->count();
    }
    output.checks = [part, within] {
        std::vector<check> checks = {{"size", {part->size()}, within.size}};
        if (within.same_nodes)
            checks.push_back(moments_of(part->nold + part->nnodes_out, [&](qx_long node, double *at) {
                std::copy_n(part->coords + 3 * node, 3, at);
            }));
        return checks;
    };
    return output;
}

contender ours_cut(const input_ptr &in, tolerance within)
{
    contender c;
    c.name = "cut, place";
    c.run = [=] {
        auto part = std::make_shared<kept_part>();
        cut(*in, cut_level, part.get());
        place(*in, cut_level, *part, part.get());
        return result_of(in, part, within);
    };
    return c;
}

contender cut_alone(const input_ptr &in)
{
    contender c;
    c.name = "cut";
    c.as = role::part;
    c.run = [=] {
        auto part = std::make_shared<kept_part>();
        cut(*in, cut_level, part.get());
        made output;
        output.kept = part;
        return output;
    };
    return c;
}

contender ours_band(const input_ptr &in, tolerance within)
{
    contender c;
    c.name = "band";
    c.run = [=] {
        auto part = std::make_shared<kept_part>();
        make_band(*in, part.get());
        return result_of(in, part, within);
    };
    return c;
}

// ---- theirs -------------------------------------------------------------------------------------------------

double size_of(vtkDataSet *data)
{
    double sum = 0, at[8][3];
    auto cell = vtkSmartPointer<vtkGenericCell>::New();
    for (vtkIdType c = 0; c < data->GetNumberOfCells(); ++c) {
        data->GetCell(c, cell);
        const int n = static_cast<int>(cell->GetNumberOfPoints());
        if (cell->GetCellDimension() == 2 && n > 4) { // a polygon, as a fan
            for (int i = 1; i + 1 < n; ++i) {
                data->GetPoint(cell->GetPointId(0), at[0]);
                data->GetPoint(cell->GetPointId(i), at[1]);
                data->GetPoint(cell->GetPointId(i + 1), at[2]);
                sum += size_of_cell(3, 2, at);
            }
            continue;
        }
        if (cell->GetCellDimension() < 2) continue;
        for (int i = 0; i < n; ++i)
            data->GetPoint(cell->GetPointId(i), at[i]);
        sum += size_of_cell(n, cell->GetCellDimension(), at);
    }
    return sum;
}

template <typename Data> made result_of(const vtkSmartPointer<Data> &data, tolerance within)
{
    made output;
    if (within.same_nodes) output.nodes = data->GetNumberOfPoints();
    output.kept = std::make_shared<vtkSmartPointer<Data>>(data);
    output.checks = [data, within] {
        std::vector<check> checks = {{"size", {size_of(data)}, within.size}};
        if (within.same_nodes)
            checks.push_back(moments_of(data->GetNumberOfPoints(),
                                        [&](qx_long node, double *at) { data->GetPoint(node, at); }));
        return checks;
    };
    return output;
}

vtkSmartPointer<vtkUnstructuredGrid> clipped(vtkDataSet *data, double level, bool below)
{
    auto clip = vtkSmartPointer<vtkTableBasedClipDataSet>::New();
    clip->SetInputData(data);
    clip->SetValue(level);
    clip->SetInsideOut(below);
    clip->Update();
    return clip->GetOutput();
}

contender clip_once(const input_ptr &in, double aim, tolerance within)
{
    contender c;
    c.name = "table-based clip";
    c.as = role::peer;
    c.aim = aim;
    c.run = [=] { return result_of(clipped(in->theirs, cut_level, false), within); };
    return c;
}

contender clip_twice(const input_ptr &in, double aim, tolerance within)
{
    contender c;
    c.name = "table-based clip, twice";
    c.as = role::peer;
    c.aim = aim;
    c.run = [=] { return result_of(clipped(clipped(in->theirs, band_low, false), band_high, true), within); };
    return c;
}

contender banded(const input_ptr &in, double aim, tolerance within)
{
    auto surface = vtkSmartPointer<vtkPolyData>::New();
    vtkUnstructuredGrid *cells = vtkUnstructuredGrid::SafeDownCast(in->theirs);
    surface->SetPoints(cells->GetPoints());
    surface->SetPolys(cells->GetCells());
    surface->GetPointData()->SetScalars(in->scalars);
    contender c;
    c.name = "banded contours";
    c.as = role::peer;
    c.aim = aim;
    c.run = [=] {
        auto bands = vtkSmartPointer<vtkBandedPolyDataContourFilter>::New();
        bands->SetInputData(surface);
        bands->SetValue(0, band_low);
        bands->SetValue(1, band_high);
        bands->ClippingOn();
        bands->Update();
        return result_of(vtkSmartPointer<vtkPolyData>(bands->GetOutput()), within);
    };
    return c;
}

// ---- cases --------------------------------------------------------------------------------------------------

// Nodes are the same on both sides where cells are simplices. The pieces of others are split along other
// diagonals, and faces whose corners are kept in turn are joined by one and parted by the other.
tolerance tolerance_of(const std::vector<int> &kinds)
{
    const bool simplices =
        std::all_of(kinds.begin(), kinds.end(), [](int k) { return k == CELL_TET || k == CELL_TRI; });
    return simplices ? tolerance{true, 1e-5} : tolerance{false, 0.04};
}

double list_bytes(const input &in)
{
    double sum = in.data_bytes();
    for (const samples::mesh &set : in.parts)
        sum += static_cast<double>(set.connect.size() * sizeof(qx_long));
    return sum;
}

bench_case cut_case(const char *name, const std::vector<int> &kinds, int64_t cubes)
{
    const input_ptr in = cells_input(kinds, cubes, sample);
    const tolerance within = tolerance_of(kinds);
    bench_case c;
    c.name = name;
    c.size = std::to_string(in->mesh->ncells) + " cells";
    c.contenders = {ours_cut(in, within), cut_alone(in), clip_once(in, 2.5, within)};
    c.read_bytes = list_bytes(*in);
    return c;
}

bench_case band_case(const char *name, const std::vector<int> &kinds, int64_t cubes)
{
    const input_ptr in = cells_input(kinds, cubes, sample);
    const tolerance within = {false, tolerance_of(kinds).size};
    bench_case c;
    c.name = name;
    c.size = std::to_string(in->mesh->ncells) + " cells";
    c.contenders = {ours_band(in, within), clip_twice(in, 2, within)};
    c.read_bytes = list_bytes(*in);
    return c;
}

// Hexahedra are split along other diagonals by the two sides, which tells most on coarse grids.
bench_case lattice_case(const char *name, int64_t n, bool band)
{
    const int64_t dims[3] = {n, n, n};
    const input_ptr in = structured_input(samples::layout::uniform, dims, sample);
    const tolerance within = {false, 0.05};
    bench_case c;
    c.name = name;
    c.size = std::to_string(n) + "^3";
    if (band)
        c.contenders = {ours_band(in, within), clip_twice(in, 2, within)};
    else
        c.contenders = {ours_cut(in, within), cut_alone(in), clip_once(in, 2.5, within)};
    c.read_bytes = in->data_bytes();
    return c;
}

bench_case surface_band_case(int64_t squares)
{
    const input_ptr in = surface_input(CELL_TRI, squares, sample);
    const tolerance within = {false, 1e-5};
    bench_case c;
    c.name = "band, triangles";
    c.size = std::to_string(in->mesh->ncells) + " cells";
    c.contenders = {ours_band(in, within), banded(in, 2, within)};
    c.read_bytes = list_bytes(*in);
    return c;
}

} // namespace

void add_cut(suite *all, const sizes &of)
{
    const auto add = [&](const char *name, std::function<bench_case()> make) {
        all->cases.push_back({"cut", name, true, make});
    };
    const std::vector<int> mix = {CELL_HEX, CELL_PRISM, CELL_PYR, CELL_TET};
    add("cut, uniform float", [=] { return lattice_case("cut, uniform float", of.lattice, false); });
    add("cut, hexes", [=] { return cut_case("cut, hexes", {CELL_HEX}, of.hexes); });
    add("cut, tets", [=] { return cut_case("cut, tets", {CELL_TET}, of.tets); });
    add("cut, all solids", [=] { return cut_case("cut, all solids", mix, of.mix); });
    add("band, uniform float", [=] { return lattice_case("band, uniform float", of.lattice, true); });
    add("band, hexes", [=] { return band_case("band, hexes", {CELL_HEX}, of.hexes); });
    add("band, tets", [=] { return band_case("band, tets", {CELL_TET}, of.tets); });
    add("band, triangles", [=] { return surface_band_case(of.squares); });
}

} // namespace bench
