// Scattered points, and the boundary of cell lists.
#include "core.hpp"

#include <skoklana/boundary.h>
#include <skoklana/cell_faces.h>
#include <skoklana/scatter.h>
#include <skoklana/thread.h>

#include <algorithm>
#include <string>

namespace {

// ---- tesselations ----------------------------------------------------------------------------------------------------

py::array delaunay(const py::array &points, const py::array &box, const py::object &progress)
{
    if (points.ndim() != 2 || points.shape(1) < 2 || points.shape(1) > 3)
        throw py::value_error("points: are rows of two or three coordinates");
    const qx_long count = points.shape(0);
    const int nspace = static_cast<int>(points.shape(1));
    const float *at = elements<float>("points", points, count * nspace),
                *corners = elements<float>("box", box, 2 * nspace);
    qx_long ncells = 0;
    list_of<qx_long> rows;
    run_call("delaunay", nullptr, progress, [&] {
        qx_long *connect = nullptr;
        const int done =
            nspace == 2 ? UTILdelaun_tess_2D(count, at, nspace, corners, corners + 2, 0, &ncells, &connect)
                        : UTILdelaun_tess_3D(count, at, corners, corners + 3, 0, &ncells, &connect);
        rows.reset(connect);
        return of_library(done == 1);
    });
    return adopt(std::move(rows), {ncells, nspace + 1});
}

// The values on a grid, and whether a node has none. shape: numpy's order.
py::tuple scatter(const py::array &points, const py::array &values, const py::array &box,
                  const py::sequence &shape_, const py::sequence &radius_, int power, const py::object &null,
                  const py::object &fill, int threads, const py::object &progress)
{
    if (points.ndim() != 2) throw py::value_error("points: has the wrong shape");
    const qx_long count = points.shape(0);
    const int nspace = static_cast<int>(points.shape(1));
    const rows_arg rows("values", values, count, null), filled("values", values, count, fill);
    const float *at = elements<float>("points", points, count * nspace);
    std::vector<py::ssize_t> shape;
    for (const py::handle &n : shape_)
        shape.push_back(n.cast<py::ssize_t>());
    const std::vector<qx_long> dims(shape.rbegin(), shape.rend());
    const int ndim = static_cast<int>(dims.size());
    if (ndim < 1 || ndim > 3 || ndim > nspace || filled.array.null == nullptr)
        throw py::value_error("shape: has one to three axes, and no more than points have coordinates");
    if (!std::all_of(dims.begin(), dims.end(), [](qx_long n) { return n > 0; }))
        throw py::value_error("shape: has an axis without nodes");
    std::vector<int> radius;
    for (const py::handle &n : radius_)
        radius.push_back(n.cast<int>());
    if (radius.size() != dims.size() ||
        std::any_of(radius.begin(), radius.end(), [](int n) { return n < 0; }))
        throw py::value_error("radius: is one number of nodes an axis");
    const float *corners = elements<float>("box", box, 2 * ndim);
    if (values.ndim() > 1) shape.push_back(values.shape(1));
    py::array out(values.dtype(), shape);
    void *to = out.mutable_data();
    int null_flag = rows.null_flag();
    run_call("scatter", nullptr, progress, [&] {
        const auto spread = [&](const auto &by, auto... nthreads) {
            return by(nthreads..., count, nspace, at, rows.array.type, rows.array.veclen, rows.array.data,
                      corners, corners + ndim, ndim, dims.data(), radius.data(), power, &null_flag,
                      filled.array.null, to);
        };
        return of_library(
            (threads > 1 ? spread(UTILmt_scat_data_interp2, threads) : spread(UTILscat_data_interp2)) == 1);
    });
    return py::make_tuple(out, null_flag != 0);
}

// The points of each bin of a grid: numbers of points, bin by bin, and where each bin begins.
py::tuple bins(const py::array &points, const py::array &box, const py::sequence &shape_)
{
    if (points.ndim() != 2) throw py::value_error("points: has the wrong shape");
    const qx_long count = points.shape(0);
    const int nspace = static_cast<int>(points.shape(1));
    const float *at = elements<float>("points", points, count * nspace);
    std::vector<qx_long> dims;
    for (const py::handle &n : shape_)
        dims.push_back(n.cast<qx_long>());
    std::reverse(dims.begin(), dims.end());
    const int ndim = static_cast<int>(dims.size());
    if (ndim < 1 || ndim > 3 || ndim > nspace ||
        !std::all_of(dims.begin(), dims.end(), [](qx_long n) { return n > 1; }))
        throw py::value_error("shape: has one to three axes of two nodes and more");
    const float *corners = elements<float>("box", box, 2 * ndim);
    list_of<qx_long> order, begin;
    qx_long nbins = 0, norder = 0;
    run_call("bins", nullptr, py::none(), [&] {
        scat_interp_bins *made = nullptr;
        if (UTILscat_interp_init(count, nspace, at, corners, corners + ndim, ndim, dims.data(), &made) != 1)
            return library_failed;
        const std::unique_ptr<scat_interp_bins, int (*)(scat_interp_bins *)> held(made, UTILscat_interp_end);
        nbins = made->nbins;
        order = new_list<qx_long>(made->free_entry);
        begin = new_list<qx_long>(nbins + 1);
        for (qx_long bin = 0; bin < nbins; ++bin) {
            stop_if_asked_at(bin);
            begin[bin] = norder;
            for (qx_long entry = made->bins[bin]; entry != 0; entry = made->next[entry]) {
                stop_if_asked_at(norder);
                order[norder++] = made->nodes[entry];
            }
            std::reverse(order.get() + begin[bin], order.get() + norder); // the newest is first in a bin
        }
        begin[nbins] = norder;
        return static_cast<int>(HOST_DONE);
    });
    return py::make_tuple(adopt(std::move(order), {norder}), adopt(std::move(begin), {nbins + 1}));
}

// ---- boundary ----------------------------------------------------------------------------------------------------------

const cell_face_list &faces_of(int kind, int order)
{
    if (kind < 0 || kind >= CELL_KINDS || (order != 1 && order != 2) || cell_kinds[kind].ndim != 3)
        throw py::value_error("kind: is no solid cell");
    return cell_faces[order - 1][kind];
}

const qx_long *rows_within(const py::array &rows, qx_long nnodes)
{
    if (rows.ndim() != 2) throw py::value_error("cells: has the wrong shape");
    const qx_long *connect = elements<qx_long>("cells", rows, rows.size());
    for (qx_long i = 0; i < rows.size(); ++i)
        if (connect[i] < 0 || connect[i] >= nnodes)
            throw py::index_error("cells: name node " + std::to_string(connect[i]) + ", but there are " +
                                  std::to_string(nnodes));
    return connect;
}

int corners_of(const py::array &rows, int ncorners)
{
    if (ncorners < 2 || ncorners > rows.shape(1)) throw py::value_error("cells: have fewer corners");
    return ncorners;
}

// The faces of cells of a kind (in the library's order of nodes) that no second one shares, by their number of nodes:
// (cell of each, rows of nodes).
py::list external_faces(const py::array &rows, qx_long nnodes, int kind, int order,
                        const py::object &progress)
{
    const cell_face_list &faces = faces_of(kind, order);
    const qx_long *connect = rows_within(rows, nnodes);
    const qx_long ncells = rows.shape(0);
    const int stride = static_cast<int>(rows.shape(1));
    if (stride != (order == 1 ? cell_kinds[kind].ncorners : cell_kinds[kind].nnodes_2))
        throw py::value_error("cells: has the wrong shape");
    int nsets = 0, length[2] = {};
    qx_long count[2] = {}, entries[2] = {}, *cell[2] = {}, *list[2] = {};
    list_of<qx_long> cells[2], lists[2];
    run_call("boundary", nullptr, progress, [&] {
        const int done =
            UTILexternal_faces(nnodes, ncells, stride, connect, faces.nfaces, faces.nnodes, faces.ncorners,
                               faces.node, 2, &nsets, count, length, cell, list, entries);
        for (int s = 0; s < 2; ++s) {
            cells[s].reset(cell[s]);
            lists[s].reset(list[s]);
        }
        return of_library(done == 1);
    });
    py::list out;
    for (int s = 0; s < nsets; ++s)
        if (count[s] > 0)
            out.append(py::make_tuple(adopt(std::move(cells[s]), {count[s]}),
                                      adopt(std::move(lists[s]), {count[s], length[s]})));
    return out;
}

// Which of faces, rows of corners, no other one of them is.
py::array unshared_faces(const py::array &rows, qx_long nnodes, int ncorners, const py::object &progress)
{
    const qx_long *connect = rows_within(rows, nnodes);
    const int n = corners_of(rows, ncorners), stride = static_cast<int>(rows.shape(1));
    const cell_face_list itself = {1, {n}, {n}, {0, 1, 2, 3}};
    const qx_long ncells = rows.shape(0);
    int nsets = 0, length[1] = {};
    qx_long count[1] = {}, entries[1] = {}, *cell[1] = {}, *list[1] = {};
    list_of<qx_long> cells;
    run_call("boundary", nullptr, progress, [&] {
        const int done =
            UTILexternal_faces(nnodes, ncells, stride, connect, 1, itself.nnodes, itself.ncorners,
                               itself.node, 1, &nsets, count, length, cell, list, entries);
        cells.reset(cell[0]);
        host_free(list[0]);
        return of_library(done == 1);
    });
    return adopt(std::move(cells), {nsets > 0 ? count[0] : 0});
}

py::array external_edges(const py::array &points, const py::array &rows, int ncorners, double angle,
                         const py::object &progress)
{
    if (points.ndim() != 2 || points.shape(1) < 1 || points.shape(1) > 3)
        throw py::value_error("points: has the wrong shape");
    const float *at = elements<float>("points", points, points.size());
    const qx_long nnodes = points.shape(0), *connect = rows_within(rows, nnodes), ncells = rows.shape(0);
    const int n = corners_of(rows, ncorners), stride = static_cast<int>(rows.shape(1)),
              nspace = static_cast<int>(points.shape(1));
    qx_long nedges = 0;
    list_of<qx_long> edges;
    run_call("edges", nullptr, progress, [&] {
        qx_long *list = nullptr;
        const int done =
            UTILexternal_edges(nnodes, nspace, at, ncells, stride, n, connect, &nedges, &list, angle);
        edges.reset(list);
        return of_library(done == 1);
    });
    return adopt(std::move(edges), {nedges, 2});
}

// All edges of surface cells of so many corners, or with a solid kind those of its cells.
py::array all_edges(const py::array &rows, qx_long nnodes, int kind, int order, const py::object &progress)
{
    const qx_long *connect = rows_within(rows, nnodes), ncells = rows.shape(0);
    const int stride = static_cast<int>(rows.shape(1));
    const bool solid = kind >= 0 && kind < CELL_KINDS && cell_kinds[kind].ndim == 3;
    if (kind < 0 || kind >= CELL_KINDS || (order != 1 && order != 2) ||
        stride != (order == 1 ? cell_kinds[kind].ncorners : cell_kinds[kind].nnodes_2) ||
        cell_kinds[kind].ndim < 2)
        throw py::value_error("cells: has the wrong shape");
    qx_long nedges = 0;
    list_of<qx_long> edges;
    run_call("edges", nullptr, progress, [&] {
        qx_long *list = nullptr;
        int done;
        if (solid) {
            const cell_face_list &faces = cell_faces[order - 1][kind];
            done = UTILedges_3D(nnodes, ncells, stride, connect, faces.nfaces, faces.nnodes, faces.ncorners,
                                faces.node, &nedges, &list);
        } else {
            done = UTILedges_2D(nnodes, ncells, stride, connect, cell_kinds[kind].ncorners, &nedges, &list);
        }
        edges.reset(list);
        return of_library(done == 1);
    });
    return adopt(std::move(edges), {nedges, 2});
}

} // namespace

void bind_scatter(py::module_ &m)
{
    m.def("delaunay", &delaunay);
    m.def("scatter", &scatter);
    m.def("bins", &bins);
    m.def("external_faces", &external_faces);
    m.def("unshared_faces", &unshared_faces);
    m.def("external_edges", &external_edges);
    m.def("all_edges", &all_edges);
}
