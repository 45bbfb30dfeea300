// Isosurfaces and isolines against VTK's filters on the same arrays.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>

#include <vtkCellArray.h>
#include <vtkContour3DLinearGrid.h>
#include <vtkContourFilter.h>
#include <vtkDataSet.h>
#include <vtkFlyingEdges2D.h>
#include <vtkFlyingEdges3D.h>
#include <vtkMarchingCubes.h>
#include <vtkPolyData.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

// Its rings cross the whole cube: 983,434 triangles on 256^3, 148,576 on 100^3 cubes.
constexpr char sample[] = "marschner-lobb";

// ---- checks -------------------------------------------------------------------------------------------------

// Places lie on crossed edges and must be the same whichever way a cell's polygon is cut into triangles; its
// area depends on that cut: by 2 in 10,000 on 256^3, and by 4 in 100 on grids too coarse for the sample.
template <typename Position> std::vector<check> checks_of(qx_long nnodes, Position position, double extent)
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
    return {{"places", moments, 1e-6}, {"extent", {extent}, 0.05}};
}

// ---- ours ---------------------------------------------------------------------------------------------------

struct surface {
    qx_long nnodes = 0, nline = 0, nline_conn = 0, ntri = 0, ntri_conn = 0;
    qx_long *min_node = nullptr, *max_node = nullptr, *line_conn = nullptr, *tri_conn = nullptr;
    float *t = nullptr, *coords = nullptr;

    ~surface()
    {
        for (qx_long *list : {min_node, max_node, line_conn, tri_conn})
            free(list);
        free(t);
        free(coords);
    }
    double bytes() const
    {
        return static_cast<double>(nnodes) * (2 * sizeof(qx_long) + (t != nullptr ? 4 : 0) * sizeof(float)) +
               static_cast<double>(2 * nline + 3 * ntri) * sizeof(qx_long);
    }
};

void require(int result)
{
    if (result == 1) return;
    fprintf(stderr, "bench: an operation failed\n");
    exit(2);
}

enum class kind { surfaces, lines };

void extract(const input &in, kind of, double level, surface *out)
{
    if (of == kind::surfaces)
        require(UTILisosurf(in.mesh, in.data(), in.type, 0, nullptr, level, &out->nnodes, &out->min_node,
                            &out->max_node, &out->nline, &out->line_conn, &out->nline_conn, &out->ntri,
                            &out->tri_conn, &out->ntri_conn, nullptr, nullptr));
    else
        require(UTILisoline(in.mesh, in.data(), in.type, 0, nullptr, level, &out->nnodes, &out->min_node,
                            &out->max_node, &out->nline, &out->line_conn, &out->nline_conn, nullptr,
                            nullptr));
}

// The new nodes' places between their mesh nodes, and their positions.
void place(const input &in, double level, qx_long nnodes, const qx_long *min_node, const qx_long *max_node,
           surface *out)
{
    const size_t n = static_cast<size_t>(nnodes);
    out->t = static_cast<float *>(malloc(sizeof(float) * n));
    out->coords = static_cast<float *>(malloc(3 * sizeof(float) * n));
    require(UTILget_param(nnodes, in.type, in.data(), level, min_node, max_node, out->t));
    require(UTILeval_coord(in.mesh, nnodes, min_node, max_node, out->t, out->coords));
}

double distance(const double *a, const double *b)
{
    return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) +
                     (a[2] - b[2]) * (a[2] - b[2]));
}

double triangle_area(const double *a, const double *b, const double *c)
{
    const double u[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]},
                 v[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
    const double n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
    const double origin[3] = {0, 0, 0};
    return distance(n, origin) / 2;
}

// The length of all lines plus the area of all triangles.
double extent_of(const surface &s)
{
    double sum = 0, p[3][3];
    const auto load = [&](const qx_long *nodes, int n) {
        for (int i = 0; i < n; ++i)
            for (int d = 0; d < 3; ++d)
                p[i][d] = s.coords[3 * nodes[i] + d];
    };
    for (qx_long i = 0; i < s.nline; ++i) {
        load(s.line_conn + 2 * i, 2);
        sum += distance(p[0], p[1]);
    }
    for (qx_long i = 0; i < s.ntri; ++i) {
        load(s.tri_conn + 3 * i, 3);
        sum += triangle_area(p[0], p[1], p[2]);
    }
    return sum;
}

contender ours_placed(const input_ptr &in, kind of, double level)
{
    contender c;
    c.name = "extract, place";
    c.run = [=] {
        auto s = std::make_shared<surface>();
        extract(*in, of, level, s.get());
        place(*in, level, s->nnodes, s->min_node, s->max_node, s.get());
        made output;
        output.nodes = s->nnodes;
        output.cells = s->ntri + s->nline;
        output.written_bytes = s->bytes();
        output.kept = s;
        output.checks = [s] {
            return checks_of(
                s->nnodes, [s](qx_long node, double *at) { std::copy_n(s->coords + 3 * node, 3, at); },
                extent_of(*s));
        };
        return output;
    };
    return c;
}

contender extract_alone(const input_ptr &in, kind of, double level)
{
    contender c;
    c.name = "extract";
    c.as = role::part;
    c.run = [=] {
        auto s = std::make_shared<surface>();
        extract(*in, of, level, s.get());
        made output;
        output.cells = s->ntri + s->nline;
        output.kept = s;
        return output;
    };
    return c;
}

contender place_alone(const input_ptr &in, kind of, double level)
{
    const auto extracted = std::make_shared<surface>();
    extract(*in, of, level, extracted.get());
    contender c;
    c.name = "place";
    c.as = role::part;
    c.run = [=] {
        auto s = std::make_shared<surface>();
        place(*in, level, extracted->nnodes, extracted->min_node, extracted->max_node, s.get());
        made output;
        output.kept = s;
        return output;
    };
    return c;
}

// ---- theirs -------------------------------------------------------------------------------------------------

double extent_of(vtkPolyData *data)
{
    double sum = 0;
    vtkIdType n;
    const vtkIdType *ids;
    for (vtkCellArray *cells : {data->GetLines(), data->GetPolys()})
        for (cells->InitTraversal(); cells->GetNextCell(n, ids);) {
            double p[3][3];
            for (vtkIdType i = 0; i < n && i < 3; ++i)
                data->GetPoint(ids[i], p[i]);
            sum += n == 2 ? distance(p[0], p[1]) : triangle_area(p[0], p[1], p[2]);
        }
    return sum;
}

template <typename Filter, typename Settings>
contender theirs(const char *name, const input_ptr &in, double level, double aim, Settings settings)
{
    contender c;
    c.name = name;
    c.as = role::peer;
    c.aim = aim;
    c.run = [=] {
        auto filter = vtkSmartPointer<Filter>::New();
        filter->SetInputData(in->theirs);
        filter->SetValue(0, level);
        settings(filter.Get());
        filter->Update();
        vtkSmartPointer<vtkPolyData> data = vtkPolyData::SafeDownCast(filter->GetOutputDataObject(0));
        made output;
        output.nodes = data->GetNumberOfPoints();
        output.cells = data->GetNumberOfCells();
        output.kept = std::make_shared<vtkSmartPointer<vtkPolyData>>(data);
        output.checks = [data] {
            return checks_of(
                data->GetNumberOfPoints(), [data](qx_long node, double *at) { data->GetPoint(node, at); },
                extent_of(data.Get()));
        };
        return output;
    };
    return c;
}

// Points and triangles alone, as ours.
constexpr auto no_attributes = [](auto *filter) {
    filter->ComputeNormalsOff();
    filter->ComputeScalarsOff();
};

constexpr auto no_gradients = [](auto *filter) {
    no_attributes(filter);
    filter->ComputeGradientsOff();
};

// ---- cases --------------------------------------------------------------------------------------------------

// Placed first: that is what the peers do.
bench_case extraction(const char *name, const std::string &size, const input_ptr &in, kind of, double level)
{
    bench_case c;
    c.name = name;
    c.size = size;
    c.contenders = {ours_placed(in, of, level), extract_alone(in, of, level), place_alone(in, of, level)};
    c.read_bytes = in->data_bytes();
    return c;
}

bench_case volume_case(int64_t n, bool bytes)
{
    const int64_t dims[3] = {n, n, n};
    const input_ptr in = structured_input(samples::layout::uniform, dims, sample, bytes);
    const double level = bytes ? 127.5 : 0.5;
    bench_case c = extraction(bytes ? "isosurface, uniform byte" : "isosurface, uniform float",
                              std::to_string(n) + "^3", in, kind::surfaces, level);
    c.contenders.push_back(theirs<vtkFlyingEdges3D>("flying edges", in, level, 1.5, [](vtkFlyingEdges3D *f) {
        no_gradients(f);
        f->InterpolateAttributesOff();
    }));
    c.contenders.push_back(theirs<vtkMarchingCubes>("marching cubes", in, level, 0, no_gradients));
    return c;
}

bench_case curvilinear_case(int64_t n)
{
    const int64_t dims[3] = {n, n, n};
    const input_ptr in = structured_input(samples::layout::curvilinear, dims, sample);
    bench_case c = extraction("isosurface, curvilinear", std::to_string(n) + "^3", in, kind::surfaces, 0.5);
    c.contenders.push_back(theirs<vtkContourFilter>("contour filter", in, 0.5, 2.5, no_attributes));
    return c;
}

bench_case cells_case(const char *name, const std::vector<int> &kinds, int64_t cubes, int threads)
{
    const input_ptr in = cells_input(kinds, cubes, sample);
    bench_case c = extraction(name, std::to_string(in->mesh->ncells) + " cells", in, kind::surfaces, 0.5);
    c.contenders.push_back(theirs<vtkContour3DLinearGrid>("linear grid, merged points", in, 0.5, 1,
                                                          [=](vtkContour3DLinearGrid *f) {
                                                              f->MergePointsOn();
                                                              f->InterpolateAttributesOff();
                                                              f->ComputeNormalsOff();
                                                              f->SetSequentialProcessing(threads == 1);
                                                          }));
    c.contenders.push_back(theirs<vtkContourFilter>("contour filter", in, 0.5, 5, no_attributes));
    for (const samples::mesh &set : in->parts)
        c.read_bytes += static_cast<double>(set.connect.size() * sizeof(qx_long));
    return c;
}

bench_case image_case(int64_t n)
{
    const int64_t dims[3] = {n, n, 1};
    const input_ptr in = structured_input(samples::layout::uniform, dims, sample);
    bench_case c = extraction("isoline, uniform float", std::to_string(n) + "^2", in, kind::lines, 0.5);
    c.contenders.push_back(theirs<vtkFlyingEdges2D>("flying edges 2-D", in, 0.5, 2,
                                                    [](vtkFlyingEdges2D *f) { f->ComputeScalarsOff(); }));
    return c;
}

growth_entry cubes_growth(const char *name, int64_t first, std::function<bench_case(int64_t)> make)
{
    growth_entry g;
    g.name = name;
    for (int step = 0; step < 4; ++step) {
        g.sizes.push_back(std::to_string(first << step) + "^3");
        g.elements.push_back(std::pow(static_cast<double>(first << step), 3));
    }
    g.prepare = [=](size_t step) { return make(first << step); };
    return g;
}

} // namespace

void add_isosurface(suite *all, const sizes &of, int threads)
{
    const auto add = [&](const char *name, std::function<bench_case()> make) {
        all->cases.push_back({"isosurface", name, true, make});
    };
    const std::vector<int> mix = {CELL_HEX, CELL_PRISM, CELL_PYR, CELL_TET};
    add("isosurface, uniform float", [=] { return volume_case(of.volume, false); });
    add("isosurface, uniform byte", [=] { return volume_case(of.bytes, true); });
    add("isosurface, curvilinear", [=] { return curvilinear_case(of.lattice); });
    add("isosurface, hexes", [=] { return cells_case("isosurface, hexes", {CELL_HEX}, of.hexes, threads); });
    add("isosurface, tets", [=] { return cells_case("isosurface, tets", {CELL_TET}, of.tets, threads); });
    add("isosurface, all solids", [=] { return cells_case("isosurface, all solids", mix, of.mix, threads); });
    add("isoline, uniform float", [=] { return image_case(of.image); });
    all->growth.push_back(cubes_growth("growth, isosurface of a uniform mesh", of.growth_volume,
                                       [](int64_t n) { return volume_case(n, false); }));
    all->growth.push_back(cubes_growth("growth, isosurface of hexes", of.growth_cells, [=](int64_t n) {
        return cells_case("isosurface, hexes", {CELL_HEX}, n, threads);
    }));
}

} // namespace bench
