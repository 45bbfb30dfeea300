// Isosurfaces, isolines and slices against VTK's filters on the same arrays.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>

#include <vtk3DLinearGridPlaneCutter.h>
#include <vtkCellArray.h>
#include <vtkContour3DLinearGrid.h>
#include <vtkContourFilter.h>
#include <vtkDataSet.h>
#include <vtkFlyingEdges2D.h>
#include <vtkFlyingEdges3D.h>
#include <vtkFlyingEdgesPlaneCutter.h>
#include <vtkImageData.h>
#include <vtkImageReslice.h>
#include <vtkMarchingCubes.h>
#include <vtkPlane.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <type_traits>

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

// Data on the new nodes.
check mean_of(const float *values, qx_long n)
{
    double sum = 0;
    for (qx_long i = 0; i < n; ++i)
        sum += values[i];
    return {"mean", {sum / static_cast<double>(n)}, 1e-5};
}

// ---- ours ---------------------------------------------------------------------------------------------------

struct surface {
    qx_long nnodes = 0, nline = 0, nline_conn = 0, ntri = 0, ntri_conn = 0;
    qx_long *min_node = nullptr, *max_node = nullptr, *line_conn = nullptr, *tri_conn = nullptr;
    float *t = nullptr, *coords = nullptr, *values = nullptr;

    ~surface()
    {
        for (qx_long *list : {min_node, max_node, line_conn, tri_conn})
            free(list);
        for (float *list : {t, coords, values})
            free(list);
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

// A scalar at the nodes: the input's own, or one made for the purpose.
struct scalar {
    void *values;
    int type;
};

void extract(const input &in, const scalar &data, kind of, double level, surface *out)
{
    if (of == kind::surfaces)
        require(UTILisosurf(in.mesh, data.values, data.type, 0, nullptr, level, &out->nnodes, &out->min_node,
                            &out->max_node, &out->nline, &out->line_conn, &out->nline_conn, &out->ntri,
                            &out->tri_conn, &out->ntri_conn, nullptr, nullptr));
    else
        require(UTILisoline(in.mesh, data.values, data.type, 0, nullptr, level, &out->nnodes, &out->min_node,
                            &out->max_node, &out->nline, &out->line_conn, &out->nline_conn, nullptr,
                            nullptr));
}

// The new nodes' places between their mesh nodes, and their positions.
void place(const input &in, const scalar &data, double level, qx_long nnodes, const qx_long *min_node,
           const qx_long *max_node, surface *out)
{
    const size_t n = static_cast<size_t>(nnodes);
    out->t = static_cast<float *>(malloc(sizeof(float) * n));
    out->coords = static_cast<float *>(malloc(3 * sizeof(float) * n));
    require(UTILget_param(nnodes, data.type, data.values, level, min_node, max_node, out->t));
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

made result_of(const std::shared_ptr<surface> &s)
{
    made output;
    output.nodes = s->nnodes;
    output.cells = s->ntri + s->nline;
    output.written_bytes = s->bytes();
    output.kept = s;
    output.checks = [s] {
        std::vector<check> checks = checks_of(
            s->nnodes, [s](qx_long node, double *at) { std::copy_n(s->coords + 3 * node, 3, at); },
            extent_of(*s));
        if (s->values != nullptr) checks.push_back(mean_of(s->values, s->nnodes));
        return checks;
    };
    return output;
}

contender ours_placed(const input_ptr &in, kind of, double level)
{
    contender c;
    c.name = "extract, place";
    c.run = [=] {
        auto s = std::make_shared<surface>();
        extract(*in, {in->data(), in->type}, of, level, s.get());
        place(*in, {in->data(), in->type}, level, s->nnodes, s->min_node, s->max_node, s.get());
        return result_of(s);
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
        extract(*in, {in->data(), in->type}, of, level, s.get());
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
    extract(*in, {in->data(), in->type}, of, level, extracted.get());
    contender c;
    c.name = "place";
    c.as = role::part;
    c.run = [=] {
        auto s = std::make_shared<surface>();
        place(*in, {in->data(), in->type}, level, extracted->nnodes, extracted->min_node, extracted->max_node,
              s.get());
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

const float *values_of(vtkDataSet *data)
{
    return static_cast<const float *>(data->GetPointData()->GetArray(sample)->GetVoidPointer(0));
}

made result_of(const vtkSmartPointer<vtkPolyData> &data, bool carried)
{
    made output;
    output.nodes = data->GetNumberOfPoints();
    output.cells = data->GetNumberOfCells();
    output.kept = std::make_shared<vtkSmartPointer<vtkPolyData>>(data);
    output.checks = [data, carried] {
        std::vector<check> checks = checks_of(
            data->GetNumberOfPoints(), [data](qx_long node, double *at) { data->GetPoint(node, at); },
            extent_of(data.Get()));
        if (carried) checks.push_back(mean_of(values_of(data), data->GetNumberOfPoints()));
        return checks;
    };
    return output;
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
        return result_of(data, false);
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

// ---- slices -------------------------------------------------------------------------------------------------

// Through the middle of the cube, near no node.
constexpr double plane_origin[3] = {0.011, 0.007, 0.013}, plane_normal[3] = {0.36, 0.48, 0.8};

// The distance of each node to the plane: the scalar of which the slice is the level 0.
std::vector<float> distances(const input &in)
{
    const samples::mesh &mesh = in.parts[0];
    double offset = 0;
    for (int d = 0; d < 3; ++d)
        offset += plane_origin[d] * plane_normal[d];
    std::vector<float> out(static_cast<size_t>(in.mesh->nnodes));
    if (mesh.kind == samples::layout::cells) {
        const float *at = mesh.coords.data();
        for (float &distance : out) {
            distance = static_cast<float>(at[0] * plane_normal[0] + at[1] * plane_normal[1] +
                                          at[2] * plane_normal[2] - offset);
            at += 3;
        }
        return out;
    }
    double step[3], first = -offset;
    for (size_t d = 0; d < 3; ++d) {
        first += mesh.corners[d] * plane_normal[d];
        step[d] = (static_cast<double>(mesh.corners[3 + d]) - mesh.corners[d]) /
                  static_cast<double>(mesh.dims[d] - 1) * plane_normal[d];
    }
    float *node = out.data();
    for (int64_t k = 0; k < mesh.dims[2]; ++k)
        for (int64_t j = 0; j < mesh.dims[1]; ++j) {
            const double row = first + static_cast<double>(j) * step[1] + static_cast<double>(k) * step[2];
            for (int64_t i = 0; i < mesh.dims[0]; ++i)
                *node++ = static_cast<float>(row + static_cast<double>(i) * step[0]);
        }
    return out;
}

void carry(const input &in, qx_long count, const qx_long *a, const qx_long *b, const float *t, float **out)
{
    *out = static_cast<float *>(malloc(sizeof(float) * static_cast<size_t>(count)));
    require(UTILeval_param(count, 1, in.type, in.data(), 0, nullptr, a, b, t, *out));
}

contender ours_plane(const input_ptr &in)
{
    contender c;
    c.name = "distance, extract, place, carry";
    c.run = [=] {
        std::vector<float> distance = distances(*in);
        const scalar data = {distance.data(), DTYPE_FLOAT};
        auto s = std::make_shared<surface>();
        extract(*in, data, kind::surfaces, 0, s.get());
        place(*in, data, 0, s->nnodes, s->min_node, s->max_node, s.get());
        carry(*in, s->nnodes, s->min_node, s->max_node, s->t, &s->values);
        return result_of(s);
    };
    return c;
}

// A slice as a lattice of nodes, with what it was made of.
struct grid {
    qx_long dims[2] = {}, count = 0, *lo = nullptr, *hi = nullptr;
    float *weight = nullptr, *values = nullptr, xform[16] = {};
    unsigned char *valid = nullptr;

    ~grid()
    {
        free(lo);
        free(hi);
        free(weight);
        free(values);
        free(valid);
    }
};

std::shared_ptr<grid> grid_on(const input &in, const float *normal, double distance)
{
    auto g = std::make_shared<grid>();
    const samples::mesh &mesh = in.parts[0];
    float corners[6];
    g->count = UTILrslice_unif(mesh.dims.data(), mesh.corners.data(), normal, distance, g->dims, corners, 3,
                               g->xform, &g->lo, &g->hi, &g->weight, &g->valid);
    require(g->lo != nullptr && g->count > 0 ? 1 : 0);
    const qx_long n = g->dims[0] * g->dims[1];
    if (g->count < n) // a node outside has no data of its own
        for (qx_long node = 0; node < n; ++node)
            if (g->valid[node] == 0) {
                g->lo[node] = g->hi[node] = 0;
                g->weight[node] = 0;
            }
    carry(in, n, g->lo, g->hi, g->weight, &g->values);
    return g;
}

contender grid_on_plane(const input_ptr &in)
{
    contender c;
    c.name = "slice as a grid, carry";
    c.as = role::part;
    c.run = [=] {
        double distance = 0;
        float normal[3];
        for (int d = 0; d < 3; ++d) {
            distance += plane_origin[d] * plane_normal[d];
            normal[d] = static_cast<float>(plane_normal[d]);
        }
        made output;
        output.kept = grid_on(*in, normal, distance);
        return output;
    };
    return c;
}

template <typename Filter> contender their_plane(const char *name, const input_ptr &in)
{
    contender c;
    c.name = name;
    c.as = role::peer;
    c.run = [=] {
        auto plane = vtkSmartPointer<vtkPlane>::New();
        plane->SetOrigin(plane_origin);
        plane->SetNormal(plane_normal);
        auto cutter = vtkSmartPointer<Filter>::New();
        cutter->SetInputData(in->theirs);
        cutter->SetPlane(plane);
        cutter->ComputeNormalsOff();
        cutter->InterpolateAttributesOn();
        if constexpr (std::is_same_v<Filter, vtk3DLinearGridPlaneCutter>) cutter->MergePointsOn();
        cutter->Update();
        return result_of(
            vtkSmartPointer<vtkPolyData>(vtkPolyData::SafeDownCast(cutter->GetOutputDataObject(0))), true);
    };
    return c;
}

bench_case plane_case(int64_t n)
{
    const int64_t dims[3] = {n, n, n};
    const input_ptr in = structured_input(samples::layout::uniform, dims, sample);
    bench_case c;
    c.name = "slice, uniform float";
    c.size = std::to_string(n) + "^3";
    c.contenders = {ours_plane(in), grid_on_plane(in),
                    their_plane<vtkFlyingEdgesPlaneCutter>("flying edges plane cutter", in)};
    return c;
}

bench_case plane_of_cells_case(int64_t cubes)
{
    const input_ptr in = cells_input({CELL_HEX}, cubes, sample);
    bench_case c;
    c.name = "slice, hexes";
    c.size = std::to_string(in->mesh->ncells) + " cells";
    c.contenders = {ours_plane(in),
                    their_plane<vtk3DLinearGridPlaneCutter>("linear grid plane cutter, merged points", in)};
    c.read_bytes = in->mesh_bytes();
    return c;
}

// Across z, between two layers of nodes.
bench_case axis_case(int64_t n)
{
    const int64_t dims[3] = {n, n, n};
    const input_ptr in = structured_input(samples::layout::uniform, dims, sample);
    const float *corners = in->parts[0].corners.data();
    const double z = corners[2] + 0.3141 * (static_cast<double>(corners[5]) - corners[2]);
    contender ours;
    ours.name = "slice as a grid, carry";
    ours.run = [=] {
        const float normal[3] = {0, 0, 1};
        const std::shared_ptr<grid> g = grid_on(*in, normal, z);
        made output;
        output.nodes = g->dims[0] * g->dims[1];
        output.written_bytes = static_cast<double>(output.nodes) * 25;
        output.kept = g;
        output.checks = [g] { return std::vector<check>{mean_of(g->values, g->dims[0] * g->dims[1])}; };
        return output;
    };
    contender peer;
    peer.name = "image reslice";
    peer.as = role::peer;
    peer.run = [=] {
        const auto whole = vtkImageData::SafeDownCast(in->theirs);
        auto slice = vtkSmartPointer<vtkImageReslice>::New();
        slice->SetInputData(whole);
        slice->SetOutputDimensionality(2);
        slice->SetResliceAxesOrigin(0, 0, z);
        slice->SetInterpolationModeToLinear();
        slice->SetOutputSpacing(whole->GetSpacing());
        slice->SetOutputOrigin(corners[0], corners[1], 0);
        slice->SetOutputExtent(0, static_cast<int>(n) - 1, 0, static_cast<int>(n) - 1, 0, 0);
        slice->SetNumberOfThreads(1);
        slice->Update();
        vtkSmartPointer<vtkImageData> data = slice->GetOutput();
        made output;
        output.nodes = data->GetNumberOfPoints();
        output.kept = std::make_shared<vtkSmartPointer<vtkImageData>>(data);
        output.checks = [data] {
            return std::vector<check>{
                mean_of(static_cast<const float *>(data->GetPointData()->GetScalars()->GetVoidPointer(0)),
                        data->GetNumberOfPoints())};
        };
        return output;
    };
    bench_case c;
    c.name = "axis slice, uniform float";
    c.size = std::to_string(n) + "^3";
    c.contenders = {ours, peer};
    c.read_bytes = static_cast<double>(2 * n * n) * sizeof(float);
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
    all->cases.push_back({"slice", "slice, uniform float", true, [=] { return plane_case(of.volume); }});
    all->cases.push_back({"slice", "slice, hexes", true, [=] { return plane_of_cells_case(of.hexes); }});
    all->cases.push_back({"slice", "axis slice, uniform float", true, [=] { return axis_case(of.volume); }});
    all->growth.push_back(cubes_growth("growth, isosurface of a uniform mesh", of.growth_volume,
                                       [](int64_t n) { return volume_case(n, false); }));
    all->growth.push_back(cubes_growth("growth, isosurface of hexes", of.growth_cells, [=](int64_t n) {
        return cells_case("isosurface, hexes", {CELL_HEX}, n, threads);
    }));
}

} // namespace bench
