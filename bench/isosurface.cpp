// Isosurfaces and isolines against VTK's filters on the same arrays.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>

#include <vtkCellArray.h>
#include <vtkContour3DLinearGrid.h>
#include <vtkContourFilter.h>
#include <vtkFlyingEdges2D.h>
#include <vtkFlyingEdges3D.h>
#include <vtkMarchingCubes.h>
#include <vtkPolyData.h>
#include <vtkUnstructuredGrid.h>

#include <cmath>
#include <cstdlib>

namespace bench {
namespace {

constexpr double pi = 3.14159265358979323846;

// Marschner and Lobb. An evaluation of reconstruction filters for volume rendering. 1994. In [0, 1].
double marschner_lobb(double x, double y, double z)
{
    const double alpha = 0.25, frequency = 6;
    const double r = std::sqrt(x * x + y * y);
    const double rho = std::cos(2 * pi * frequency * std::cos(pi * r / 2));
    return (1 - std::sin(pi * z / 2) + alpha * (1 + rho)) / (2 * (1 + alpha));
}

// sin(ax) + sin(ay) + sin(az): an even spread of crossed cells; level 0 crosses about 7 in 100 of 100^3.
double waves(double x, double y, double z)
{
    return std::sin(6 * x) + std::sin(6 * y) + std::sin(6 * z);
}

// Concentric rings and a slope, for images.
double rings(double x, double y, double)
{
    return std::sin(60 * (x * x + y * y)) + 0.3 * x;
}

struct surface {
    qx_long nnodes = 0, nline = 0, nline_conn = 0, ntri = 0, ntri_conn = 0;
    qx_long *min_node = nullptr, *max_node = nullptr, *line_conn = nullptr, *tri_conn = nullptr;
    float *t = nullptr, *coords = nullptr;

    ~surface()
    {
        for (void *block :
             {static_cast<void *>(min_node), static_cast<void *>(max_node), static_cast<void *>(line_conn),
              static_cast<void *>(tri_conn), static_cast<void *>(t), static_cast<void *>(coords)})
            free(block);
    }
};

const void *data_of(const input &in)
{
    return in.bytes.empty() ? static_cast<const void *>(in.data.data()) : in.bytes.data();
}
int type_of(const input &in)
{
    return in.bytes.empty() ? DTYPE_FLOAT : DTYPE_BYTE;
}

void place(const input &in, double level, surface *out)
{
    out->t = static_cast<float *>(malloc(sizeof(float) * static_cast<size_t>(out->nnodes)));
    out->coords = static_cast<float *>(malloc(3 * sizeof(float) * static_cast<size_t>(out->nnodes)));
    UTILget_param(out->nnodes, type_of(in), data_of(in), level, out->min_node, out->max_node, out->t);
    UTILeval_coord(in.mesh, out->nnodes, out->min_node, out->max_node, out->t, out->coords);
}

double distance(const float *a, const float *b)
{
    return std::sqrt(std::pow(a[0] - b[0], 2.0) + std::pow(a[1] - b[1], 2.0) + std::pow(a[2] - b[2], 2.0));
}

double size_of(const surface &s)
{
    double sum = 0;
    for (qx_long i = 0; i < s.nline; ++i)
        sum += distance(s.coords + 3 * s.line_conn[2 * i], s.coords + 3 * s.line_conn[2 * i + 1]);
    for (qx_long i = 0; i < s.ntri; ++i) {
        const float *p = s.coords + 3 * s.tri_conn[3 * i], *q = s.coords + 3 * s.tri_conn[3 * i + 1],
                    *r = s.coords + 3 * s.tri_conn[3 * i + 2];
        const double a = distance(p, q), b = distance(q, r), c = distance(r, p), half = (a + b + c) / 2;
        sum += std::sqrt(std::max(0.0, half * (half - a) * (half - b) * (half - c)));
    }
    return sum;
}

contender ours(const input_ptr &in, double level, bool placed)
{
    contender c;
    c.name = placed ? "extract, place" : "extract";
    c.run = [=] {
        auto s = std::make_shared<surface>();
        UTILisosurf(in->mesh, data_of(*in), type_of(*in), 0, nullptr, level, &s->nnodes, &s->min_node,
                    &s->max_node, &s->nline, &s->line_conn, &s->nline_conn, &s->ntri, &s->tri_conn,
                    &s->ntri_conn, nullptr, nullptr);
        if (placed) place(*in, level, s.get());
        made output;
        output.nodes = s->nnodes;
        output.cells = s->ntri + s->nline;
        output.kept = s;
        if (placed) output.measure = [s] { return size_of(*s); };
        return output;
    };
    return c;
}

double size_of(vtkPolyData *data)
{
    double sum = 0;
    vtkIdType n;
    const vtkIdType *ids;
    for (vtkCellArray *cells : {data->GetLines(), data->GetPolys()}) {
        for (cells->InitTraversal(); cells->GetNextCell(n, ids);) {
            double p[3][3];
            for (vtkIdType i = 0; i < n && i < 3; ++i)
                data->GetPoint(ids[i], p[i]);
            const auto between = [&](int a, int b) {
                return std::sqrt(std::pow(p[a][0] - p[b][0], 2) + std::pow(p[a][1] - p[b][1], 2) +
                                 std::pow(p[a][2] - p[b][2], 2));
            };
            if (n == 2) {
                sum += between(0, 1);
            } else {
                const double a = between(0, 1), b = between(1, 2), c = between(2, 0), half = (a + b + c) / 2;
                sum += std::sqrt(std::max(0.0, half * (half - a) * (half - b) * (half - c)));
            }
        }
    }
    return sum;
}

// Filters that cut ambiguous faces another way differ by some triangles: their counts are shown, not held.
template <typename Filter, typename Settings>
contender theirs(const char *name, const input_ptr &in, double level, Settings settings)
{
    contender c;
    c.name = name;
    c.same_cells = false;
    c.measure_within = 2e-3;
    c.run = [=] {
        vtkSmartPointer<Filter> filter = vtkSmartPointer<Filter>::New();
        filter->SetInputData(in->theirs);
        filter->SetValue(0, level);
        settings(filter.Get());
        filter->Update();
        vtkSmartPointer<vtkPolyData> data = vtkPolyData::SafeDownCast(filter->GetOutputDataObject(0));
        made output;
        output.nodes = data->GetNumberOfPoints();
        output.cells = data->GetNumberOfCells();
        output.kept = std::make_shared<vtkSmartPointer<vtkPolyData>>(data);
        output.measure = [data] { return size_of(data.Get()); };
        return output;
    };
    return c;
}

// No normals, no gradients; scalars as each filter has them: all peers place points.
const auto plain = [](auto *filter) {
    filter->ComputeNormalsOff();
    filter->ComputeScalarsOff();
};

bench_case structured_case(const std::string &name, const std::string &size, const input_ptr &in,
                           double level)
{
    bench_case c;
    c.name = name;
    c.size = size;
    // Placed first: that is what the peers do. The floor: the data is read once.
    c.ours = {ours(in, level, true), ours(in, level, false)};
    c.ours[1].same_cells = true;
    c.floor_bytes = static_cast<double>(in->data.size() * sizeof(float) + in->bytes.size());
    return c;
}

bench_case volume_case(qx_long n, bool bytes)
{
    const input_ptr in = uniform_input(n, n, n, marschner_lobb, bytes);
    const double level = bytes ? 127.5 : 0.5;
    bench_case c = structured_case(bytes ? "isosurface, uniform byte" : "isosurface, uniform float",
                                   std::to_string(n) + "^3", in, level);
    c.peers = {theirs<vtkFlyingEdges3D>("flying edges", in, level,
                                        [](vtkFlyingEdges3D *f) {
                                            plain(f);
                                            f->ComputeGradientsOff();
                                            f->InterpolateAttributesOff();
                                        }),
               theirs<vtkMarchingCubes>("marching cubes", in, level, [](vtkMarchingCubes *f) {
                   plain(f);
                   f->ComputeGradientsOff();
               })};
    c.aim = 1.5;
    return c;
}

bench_case curvilinear_case(qx_long n)
{
    const input_ptr in = curvilinear_input(n, marschner_lobb);
    bench_case c = structured_case("isosurface, curvilinear", std::to_string(n) + "^3", in, 0.5);
    c.peers = {theirs<vtkContourFilter>("contour filter", in, 0.5, plain)};
    c.aim = 2.5;
    return c;
}

bench_case cells_case(cut_into kinds, qx_long cubes, const char *what)
{
    const input_ptr in = cells_input(kinds, cubes, waves);
    bench_case c = structured_case(std::string("isosurface, ") + what,
                                   std::to_string(in->mesh->ncells) + " cells", in, 0);
    c.peers = {theirs<vtkContour3DLinearGrid>("linear grid, merged", in, 0,
                                              [](vtkContour3DLinearGrid *f) {
                                                  f->MergePointsOn();
                                                  f->InterpolateAttributesOff();
                                                  f->ComputeNormalsOff();
                                                  f->SequentialProcessingOn();
                                              }),
               theirs<vtkContourFilter>("contour filter", in, 0, plain)};
    c.floor_bytes = static_cast<double>(in->data.size() * sizeof(float));
    for (const auto &connect : in->connect)
        c.floor_bytes += static_cast<double>(connect.size() * sizeof(qx_long));
    c.aim = 1.0;
    return c;
}

bench_case image_case(qx_long n)
{
    const input_ptr in = uniform_input(n, n, 1, rings);
    bench_case c = structured_case("isoline, uniform float", std::to_string(n) + "^2", in, 0.2);
    c.peers = {theirs<vtkFlyingEdges2D>("flying edges 2-D", in, 0.2,
                                        [](vtkFlyingEdges2D *f) { f->ComputeScalarsOff(); })};
    c.aim = 2.0;
    return c;
}

} // namespace

void add_isosurface(suite &all)
{
    all.push_back({"isosurface", "isosurface, uniform float", true, [] { return volume_case(256, false); }});
    all.push_back({"isosurface", "isosurface, uniform byte", true, [] { return volume_case(128, true); }});
    all.push_back({"isosurface", "isosurface, curvilinear", true, [] { return curvilinear_case(128); }});
    all.push_back(
        {"isosurface", "isosurface, hexes", true, [] { return cells_case(cut_into::hexes, 100, "hexes"); }});
    all.push_back(
        {"isosurface", "isosurface, tets", true, [] { return cells_case(cut_into::tets, 55, "tets"); }});
    all.push_back({"isosurface", "isosurface, mix", true,
                   [] { return cells_case(cut_into::mix, 69, "hexes, prisms, tets"); }});
}

void add_isoline(suite &all)
{
    all.push_back({"isoline", "isoline, uniform float", true, [] { return image_case(4096); }});
}

void add_growth(std::vector<growth_entry> &all)
{
    growth_entry volume = {"isosurface, uniform float", {"64^3", "128^3", "256^3", "512^3"}, nullptr, {}};
    growth_entry hexes = {"isosurface, hexes", {"25^3", "50^3", "100^3", "200^3"}, nullptr, {}};
    for (int i = 0; i < 4; ++i) {
        volume.elements.push_back(std::pow(64.0 * (1 << i), 3));
        hexes.elements.push_back(std::pow(25.0 * (1 << i), 3));
    }
    volume.prepare = [](int i) { return volume_case(qx_long{64} << i, false); };
    hexes.prepare = [](int i) { return cells_case(cut_into::hexes, qx_long{25} << i, "hexes"); };
    all.push_back(volume);
    all.push_back(hexes);
    add_sampling_growth(all);
}

} // namespace bench
