// Scattered points tesselated, against CGAL and VTK, and spread onto a grid, against VTK's Shepard method.
//
// Points are random, of a fixed seed. Ours are tesselated in their own box, which leaves thin cells at the rim out;
// in a box so large that the convex hull comes out, as it does from the peers, stands as a part. VTK's tesselators grow with the square of the points and have cases of a
// tenth of the points.
#include "bench.hpp"
#include "cgal_peer.hpp"

#include <skoklana.h>

#include <vtkCellArray.h>
#include <vtkDataArray.h>
#include <vtkDelaunay2D.h>
#include <vtkDelaunay3D.h>
#include <vtkFloatArray.h>
#include <vtkIdList.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkShepardMethod.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>

namespace bench {
namespace {

using coords_ptr = std::shared_ptr<std::vector<float>>;

coords_ptr random_points(int axes, int64_t count)
{
    std::mt19937 random(1);
    auto coords = std::make_shared<std::vector<float>>();
    for (int64_t i = 0; i < count * axes; ++i)
        coords->push_back(static_cast<float>(random() >> 8) / 16777216.0f);
    return coords;
}

using place = std::array<double, 3>;

place difference(const place &a, const place &b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

place cross(const place &a, const place &b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

double dot(const place &a, const place &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// The cells of a tesselation, for comparison with those of another.
class cell_figures {
  public:
    explicit cell_figures(int axes_) : axes(axes_) {}

    // Three coordinates a corner.
    void add(const double *corners)
    {
        place v[4];
        for (int c = 0; c <= axes; ++c)
            v[c] = {corners[3 * c], corners[3 * c + 1], corners[3 * c + 2]};
        for (int c = 1; c <= axes; ++c) // in one order, so that a cell gives the same digits from everyone
            for (int i = c; i > 0 && v[i] < v[i - 1]; --i)
                std::swap(v[i], v[i - 1]);
        const place a = difference(v[1], v[0]), b = difference(v[2], v[0]),
                    c = axes == 3 ? difference(v[3], v[0]) : place{0, 0, 1};
        const place bc = cross(b, c), ca = cross(c, a), ab = cross(a, b);
        const double det = dot(a, bc), cc = axes == 3 ? dot(c, c) : 0;
        ++count;
        content += std::fabs(det) / (axes == 2 ? 2 : 6);
        double centre[3], r2 = 0;
        for (int k = 0; k < axes; ++k) {
            centre[k] = (dot(a, a) * bc[k] + dot(b, b) * ca[k] + cc * ab[k]) / (2 * det);
            r2 += centre[k] * centre[k];
        }
        for (int k = 0; k < axes; ++k)
            if (!(v[0][k] + centre[k] - std::sqrt(r2) > 0.1 && v[0][k] + centre[k] + std::sqrt(r2) < 0.9))
                return;
        uint64_t name = 0;
        for (int i = 0; i <= axes; ++i)
            for (const double x : v[i])
                name = (name + static_cast<uint64_t>(x * (1 << 24)) + 1) * 0x9e3779b97f4a7c15u;
        inner.push_back(static_cast<double>(name >> 11));
    }

    // In the points' own box, thin cells at the rim are missing: the fewer the more points there are. Cells whose
    // circles or spheres are well inside are the same in every tesselation; inexact ones are asked for numbers alone.
    std::vector<check> checks(int64_t npoints, bool exact)
    {
        const double rim = 3 / std::sqrt(static_cast<double>(npoints));
        std::sort(inner.begin(), inner.end());
        std::vector<check> all = {{"count", {static_cast<double>(count)}, rim}, {"content", {content}, rim}};
        if (exact) all.push_back({"inner cells", inner, 0});
        return all;
    }

  private:
    int axes;
    int64_t count = 0;
    double content = 0;
    std::vector<double> inner; // a number for each
};

// of(cell) gives the ids of a cell's corners.
template <typename F>
std::vector<check> checks_of(int axes, const std::vector<float> &coords, int64_t count, bool exact, F of)
{
    cell_figures figures(axes);
    for (int64_t cell = 0; cell < count; ++cell) {
        const auto ids = of(cell);
        double corners[12] = {};
        for (int c = 0; c <= axes; ++c)
            for (int k = 0; k < axes; ++k)
                corners[3 * c + k] = static_cast<double>(coords[static_cast<size_t>(ids[c] * axes + k)]);
        figures.add(corners);
    }
    return figures.checks(static_cast<int64_t>(coords.size()) / axes, exact);
}

// Around the points, or so far away that the convex hull comes out.
made tesselated(int axes, const coords_ptr &coords, float far, bool exact)
{
    const float min[3] = {-far, -far, -far}, max[3] = {1 + far, 1 + far, 1 + far};
    const qx_long npts = static_cast<qx_long>(coords->size()) / axes;
    qx_long count = 0, *conn = nullptr;
    const int succeeded = axes == 2 ? UTILdelaun_tess_2D(npts, coords->data(), 2, min, max, 0, &count, &conn)
                                    : UTILdelaun_tess_3D(npts, coords->data(), min, max, 0, &count, &conn);
    if (succeeded != 1) {
        fprintf(stderr, "bench: tesselation failed\n");
        exit(2);
    }
    made output;
    output.written_bytes = static_cast<double>(count * (axes + 1)) * sizeof(qx_long);
    output.kept = std::shared_ptr<void>(conn, free);
    output.checks = [=] {
        return checks_of(axes, *coords, count, exact, [=](int64_t cell) { return conn + cell * (axes + 1); });
    };
    return output;
}

contender cgal(int axes, const coords_ptr &coords, double aim)
{
    const auto points = std::make_shared<cgal_points>(axes, *coords);
    contender c;
    c.name = "CGAL Delaunay";
    c.as = role::peer;
    c.aim = aim;
    c.run = [=] {
        made output;
        const auto kept = points->tesselate();
        output.kept = kept;
        output.checks = [=] {
            cell_figures figures(axes);
            points->for_each_cell(kept, [&](const double *corners) { figures.add(corners); });
            return figures.checks(static_cast<int64_t>(coords->size()) / axes, true);
        };
        return output;
    };
    return c;
}

vtkSmartPointer<vtkPolyData> vtk_points(int axes, const std::vector<float> &coords)
{
    auto points = vtkSmartPointer<vtkPoints>::New();
    for (size_t i = 0; i < coords.size(); i += static_cast<size_t>(axes))
        points->InsertNextPoint(static_cast<double>(coords[i]), static_cast<double>(coords[i + 1]),
                                axes == 3 ? static_cast<double>(coords[i + 2]) : 0);
    auto data = vtkSmartPointer<vtkPolyData>::New();
    data->SetPoints(points);
    return data;
}

contender vtk_delaunay(int axes, const coords_ptr &coords)
{
    const auto points = vtk_points(axes, *coords);
    contender c;
    c.name = axes == 2 ? "vtkDelaunay2D" : "vtkDelaunay3D";
    c.as = role::peer;
    c.aim = 1;
    c.run = [=] {
        vtkSmartPointer<vtkPointSet> result;
        if (axes == 2) {
            auto filter = vtkSmartPointer<vtkDelaunay2D>::New();
            filter->SetInputData(points);
            filter->SetOffset(100); // of its box, that the hull comes out
            filter->Update();
            result = filter->GetOutput();
        } else {
            auto filter = vtkSmartPointer<vtkDelaunay3D>::New();
            filter->SetInputData(points);
            filter->SetOffset(100); // of its box, that the hull comes out
            filter->Update();
            result = filter->GetOutput();
        }
        made output;
        output.kept = std::make_shared<vtkSmartPointer<vtkPointSet>>(result);
        output.checks = [=] {
            vtkNew<vtkIdList> ids;
            return checks_of(axes, *coords, result->GetNumberOfCells(), false, [&](int64_t cell) {
                result->GetCellPoints(cell, ids);
                return ids->GetPointer(0);
            });
        };
        return output;
    };
    return c;
}

bench_case tesselation_case(int axes, int64_t npoints, bool beside_vtk)
{
    const coords_ptr coords = random_points(axes, npoints);
    bench_case c;
    c.name = axes == 2 ? "triangles of points" : "tetrahedra of points";
    c.size = std::to_string(npoints) + " points";
    contender ours, hull;
    ours.name = "sweep";
    ours.run = [=] { return tesselated(axes, coords, 0, !beside_vtk); };
    hull.name = "sweep, large box";
    hull.as = role::part;
    hull.run = [=] { return tesselated(axes, coords, 1000, !beside_vtk); };
    c.contenders = {ours, hull,
                    beside_vtk ? vtk_delaunay(axes, coords)
                               : cgal(axes, coords, axes == 2 ? 1.0 / 2 : 1.0 / 3)};
    c.read_bytes = static_cast<double>(coords->size() * sizeof(float));
    return c;
}

// ---- onto a grid -------------------------------------------------------------------------------------------

constexpr int window = 4; // nodes to either side

std::vector<check> grid_checks(const float *values, int64_t count)
{
    const double mean = std::accumulate(values, values + count, 0.0) / static_cast<double>(count);
    // Their windows end at other nodes.
    return {{"values", std::vector<double>(values, values + count), 1}, {"mean", {mean}, 1e-2}};
}

made spread(const coords_ptr &coords, const coords_ptr &values, qx_long side)
{
    const float min[3] = {0, 0, 0}, max[3] = {1, 1, 1}, null_value = 0;
    const qx_long dims[3] = {side, side, side}, ngrid = side * side * side;
    int radius[3] = {window, window, window}, null_flag = 0;
    const auto out = std::shared_ptr<float>(
        static_cast<float *>(malloc(static_cast<size_t>(ngrid) * sizeof(float))), free);
    if (UTILscat_data_interp2(static_cast<qx_long>(values->size()), 3, coords->data(), DTYPE_FLOAT, 1,
                              values->data(), min, max, 3, dims, radius, 2, &null_flag, &null_value,
                              out.get()) != 1) {
        fprintf(stderr, "bench: values could not be spread\n");
        exit(2);
    }
    made output;
    output.written_bytes = static_cast<double>(ngrid) * sizeof(float);
    output.kept = out;
    output.checks = [=] { return grid_checks(out.get(), ngrid); };
    return output;
}

contender shepard(const coords_ptr &coords, const coords_ptr &values, qx_long side)
{
    const auto points = vtk_points(3, *coords);
    auto array = vtkSmartPointer<vtkFloatArray>::New();
    array->SetArray(values->data(), static_cast<vtkIdType>(values->size()), 1);
    points->GetPointData()->SetScalars(array);
    contender c;
    c.name = "Shepard method";
    c.as = role::peer;
    c.aim = 3;
    c.run = [=] {
        auto filter = vtkSmartPointer<vtkShepardMethod>::New();
        filter->SetInputData(points);
        filter->SetSampleDimensions(static_cast<int>(side), static_cast<int>(side), static_cast<int>(side));
        filter->SetModelBounds(0, 1, 0, 1, 0, 1);
        filter->SetMaximumDistance(window / static_cast<double>(side - 1));
        filter->SetNullValue(0);
        filter->Update();
        vtkSmartPointer<vtkDataArray> result = filter->GetOutput()->GetPointData()->GetScalars();
        made output;
        output.kept = std::make_shared<vtkSmartPointer<vtkDataArray>>(result);
        output.checks = [=] {
            return grid_checks(static_cast<const float *>(result->GetVoidPointer(0)),
                               result->GetNumberOfTuples());
        };
        return output;
    };
    return c;
}

bench_case grid_case(int64_t npoints, int64_t side)
{
    const coords_ptr coords = random_points(3, npoints);
    auto values = std::make_shared<std::vector<float>>();
    for (int64_t i = 0; i < npoints; ++i)
        values->push_back((*coords)[3 * i] + std::sin(9 * (*coords)[3 * i + 1]) + 2);
    bench_case c;
    c.name = "values onto a grid";
    c.size = std::to_string(npoints) + " points, " + std::to_string(side) + "^3";
    contender ours;
    ours.name = "spread";
    ours.run = [=] { return spread(coords, values, side); };
    c.contenders = {ours, shepard(coords, values, side)};
    c.read_bytes = static_cast<double>((coords->size() + values->size()) * sizeof(float));
    return c;
}

} // namespace

void add_scatter(suite *all, const sizes &of)
{
    const int64_t many = of.points, some = of.points / 10, few = std::max<int64_t>(of.points / 100, 500);
    const auto add = [&](const std::string &name, bool quick, std::function<bench_case()> make) {
        all->cases.push_back({"scattered", name, quick, std::move(make)});
    };
    add("triangles of points", true, [=] { return tesselation_case(2, some, false); });
    add("triangles of many points", false, [=] { return tesselation_case(2, many, false); });
    add("tetrahedra of points", true, [=] { return tesselation_case(3, some, false); });
    add("triangles of points, beside VTK", false, [=] { return tesselation_case(2, few, true); });
    add("tetrahedra of points, beside VTK", false, [=] { return tesselation_case(3, few, true); });
    add("values onto a grid", true, [=] { return grid_case(some, of.bytes); });

    for (const int axes : {2, 3}) {
        growth_entry g;
        g.name = axes == 2 ? "growth, triangles of points" : "growth, tetrahedra of points";
        const int64_t factor = axes == 2 ? 4 : 2,
                      first = (axes == 2 ? many : some) / (factor * factor * factor);
        int64_t npoints = first;
        for (int step = 0; step < 4; ++step, npoints *= factor) {
            g.sizes.push_back(std::to_string(npoints) + " points");
            g.elements.push_back(static_cast<double>(npoints));
        }
        g.prepare = [=](size_t step) {
            int64_t n = first;
            for (size_t s = 0; s < step; ++s)
                n *= factor;
            return tesselation_case(axes, n, false);
        };
        all->growth.push_back(g);
    }
}

} // namespace bench
