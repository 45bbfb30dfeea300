// Smith charts, outlines, and height grids as triangles.
#include "core.hpp"

#include <skoklana/chart.h>
#include <skoklana/measure.h>

#include <string>

namespace {

struct freed_chart {
    void operator()(GraticuleMeshInfo *chart) const { DestroyGraticuleMeshInfo(chart); }
};

// Points, first and last point of each line, places of the labels (axis, upper, lower), and their texts.
py::tuple smith_chart(float density, float min_spacing, const py::array &ticks)
{
    const int nticks = static_cast<int>(ticks.size());
    const int *tick = elements<int>("ticks", ticks, nticks);
    std::unique_ptr<GraticuleMeshInfo, freed_chart> chart;
    qx_long npoints = 0, nlines = 0, nlabels = 0, ntext = 0;
    list_of<float> points, axis, upper, lower;
    list_of<qx_long> lines;
    list_of<char> text;
    run_call("smith_chart", nullptr, py::none(), [&] {
        chart.reset(CreateGraticuleMeshInfo(density, min_spacing, tick, nticks));
        if (chart == nullptr) throw std::bad_alloc();
        GetGraticuleMeshPoints(chart.get(), &npoints, nullptr, &nlines, nullptr);
        GetAnnotationMeshPoints(chart.get(), &nlabels, nullptr, nullptr, nullptr, &ntext, nullptr);
        points = new_list<float>(3 * npoints);
        lines = new_list<qx_long>(2 * nlines);
        for (list_of<float> *of : {&axis, &upper, &lower})
            *of = new_list<float>(3 * nlabels);
        text = new_list<char>(ntext);
        GetGraticuleMeshPoints(chart.get(), nullptr, points.get(), nullptr, lines.get());
        GetAnnotationMeshPoints(chart.get(), nullptr, axis.get(), upper.get(), lower.get(), nullptr,
                                text.get());
        return static_cast<int>(HOST_DONE);
    });
    py::list labels;
    const char *label = text.get();
    for (qx_long i = 0; i < nlabels; ++i) {
        const std::string one = label;
        labels.append(one);
        label += one.size() + 1;
    }
    return py::make_tuple(adopt(std::move(points), {npoints, 3}), adopt(std::move(lines), {nlines, 2}),
                          adopt(std::move(axis), {nlabels, 3}), adopt(std::move(upper), {nlabels, 3}),
                          adopt(std::move(lower), {nlabels, 3}), labels);
}

// The order of an outline's points from one side on, the first once more at the end, and how far along each is. None:
// it has no such side.
py::object sort_outline(const py::array &points, int side)
{
    if (points.ndim() != 2 || points.shape(1) < 2) throw py::value_error("points: has the wrong shape");
    const qx_long count = points.shape(0), range[2] = {0, count - 1};
    const float *at = elements<float>("points", points, points.size());
    list_of<qx_long> nodes = new_list<qx_long>(count + 1);
    list_of<float> places = new_list<float>(count + 1);
    bool found = false;
    run_call("sort_outline", nullptr, py::none(), [&] {
        found = UTILroi_sort_verts(static_cast<int>(points.shape(1)), at, range, side, nodes.get(),
                                   places.get()) == 1;
        return static_cast<int>(HOST_DONE);
    });
    if (!found) return py::none();
    return py::make_tuple(adopt(std::move(nodes), {count + 1}), adopt(std::move(places), {count + 1}));
}

// The triangles between two outlines, those that have all three corners.
py::array join_outlines(const py::array &nodes1, const py::array &places1, const py::array &nodes2,
                        const py::array &places2)
{
    const qx_long n1 = nodes1.size() - 1, n2 = nodes2.size() - 1;
    if (n1 < 1 || n2 < 1) throw py::value_error("outlines: have a step at least");
    const qx_long *first = elements<qx_long>("nodes", nodes1, n1 + 1),
                  *second = elements<qx_long>("nodes", nodes2, n2 + 1);
    const float *at_first = elements<float>("places", places1, n1 + 1),
                *at_second = elements<float>("places", places2, n2 + 1);
    qx_long count = n1 + n2 - 1;
    list_of<qx_long> rows = new_list<qx_long>(3 * count + 2);
    run_call("join_outlines", nullptr, py::none(), [&] {
        UTILroi_connect_verts(n1, n2, first, second, at_first, at_second, &count, rows.get());
        return static_cast<int>(HOST_DONE);
    });
    return adopt(std::move(rows), {count - 1, 3}); // the step that ends the walk has no third corner
}

// Vertices, triangles, and the height of each vertex.
py::tuple reduce_heights(const py::array &values, const py::array &corners, double tolerance)
{
    const int type = type_code(values.dtype());
    if (values.ndim() != 2 || type < 0 || (values.flags() & py::array::c_style) == 0)
        throw py::value_error("values: has the wrong shape, type or layout");
    const qx_long dims[2] = {values.shape(1), values.shape(0)};
    const float *box = elements<float>("corners", corners, 4);
    const void *data = values.data();
    qx_long ncoords = 0, ntriangles = 0;
    list_of<float> coords;
    list_of<qx_long> triangles;
    list_of<char> heights;
    run_call("reduce_heights", nullptr, py::none(), [&] {
        float *points = nullptr;
        qx_long *connect = nullptr;
        void *at = nullptr;
        const int done = UTILoptimize_surface(dims, 2, box, type, data, tolerance, &ncoords, &points,
                                              &ntriangles, &connect, &at);
        coords.reset(points);
        triangles.reset(connect);
        heights.reset(static_cast<char *>(at));
        return of_library(done == 1);
    });
    return py::make_tuple(adopt(std::move(coords), {ncoords, 2}),
                          adopt(std::move(triangles), {ntriangles, 3}),
                          adopt_list(heights.release(), values.dtype(), {ncoords}));
}

} // namespace

void bind_charts(py::module_ &m)
{
    m.def("smith_chart", &smith_chart);
    m.def("sort_outline", &sort_outline);
    m.def("join_outlines", &join_outlines);
    m.def("reduce_heights", &reduce_heights);
}
