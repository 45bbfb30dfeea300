// Levels, the level through a seed, and slices.
#include "parts.hpp"

#include <skoklana/iso.h>
#include <skoklana/mesh.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// ---- levels -----------------------------------------------------------------------------------------------------

int extract_level(host_field *field, const host_array &array, double level, bool lines, bool cells,
                  int threads, made_parts *parts)
{
    host_level_options options = {};
    options.size = sizeof options;
    options.without_cells = cells ? 0 : 1;
    options.threads = threads;
    host_result *made = nullptr;
    const int done = lines ? host_isoline(field, &array, level, &options, &made)
                           : host_isosurf(field, &array, level, &options, &made);
    if (done == HOST_DONE) take_result(made, parts);
    return done;
}

py::dict level_of(mesh_object &mesh, const py::array &values, const py::object &null, double level,
                  bool lines, bool cells, int threads, const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    made_parts parts;
    run_call(lines ? "isoline" : "isosurface", &mesh, progress, [&] {
        return extract_level(mesh.field_of_extractions(), rows.array, level, lines, cells, threads, &parts);
    });
    return hand_out(&parts, mesh.nspace);
}

// The level through a seed, followed from cell to cell.
py::tuple trace_of(mesh_object &mesh, const py::array &values, const py::object &null, const py::array &seed,
                   bool lines, const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    const float *at = elements<float>("seed", seed, 3);
    made_parts parts;
    double level = std::numeric_limits<double>::quiet_NaN();
    bool found = true;
    run_call("trace", &mesh, progress, [&] {
        mesh_info *record = mesh.record();
        qx_long nnew = 0, *first = nullptr, *second = nullptr, nprim = 0, *conn = nullptr, nconn = 0;
        const blk_tbl *table = mesh.table();
        const auto trace = lines ? UTILisoline_trace : UTILiso_trace;
        const int done = trace(record, at, rows.array.data, rows.array.type, rows.null_flag(),
                               rows.array.null, table, &level, &nnew, &first, &second, &nprim, &conn, &nconn);
        if (done == -1) return static_cast<int>(HOST_STOPPED);
        if (done != 1) {
            found = false; // not in the mesh, or without a value there
            return host_last_report(0, nullptr, nullptr) == 1 ? library_failed : static_cast<int>(HOST_DONE);
        }
        parts.nnew = nnew;
        parts.first.reset(first);
        parts.second.reset(second);
        parts.t = new_list<float>(nnew);
        if (nprim > 0)
            parts.sets.push_back({lines ? CELL_LINE : CELL_TRI, 1, nprim, list_of<qx_long>(conn), nullptr});
        else
            host_free(conn);
        return of_library(
            UTILget_param(nnew, rows.array.type, rows.array.data, level, first, second, parts.t.get()) == 1 &&
            place(record, &parts));
    });
    return py::make_tuple(found, level, hand_out(&parts, mesh.nspace));
}

// ---- slices -----------------------------------------------------------------------------------------------------------

// The distances of the nodes from a plane, 0 within the rounding of coordinates. A node in the plane counts as above
// it, so that a side of a cell in the plane comes from the cell below it; where no cell is below, it is moved below by
// next to nothing, and the side comes from the cell above.
std::vector<double> distances_to(mesh_info *mesh, const double *origin, const double *normal)
{
    const int nspace = mesh->nspace;
    const double length = std::hypot(normal[0], normal[1], normal[2]);
    double largest = 0;
    for (int d = 0; d < 3; ++d) {
        largest = std::max(largest, std::fabs(origin[d]));
        if (d < nspace)
            largest = std::max({largest, std::fabs(static_cast<double>(mesh->min_ext[d])),
                                std::fabs(static_cast<double>(mesh->max_ext[d]))});
    }
    const double rounding = 2 * largest * static_cast<double>(std::numeric_limits<float>::epsilon());
    std::vector<double> distance(static_cast<size_t>(mesh->nnodes));
    for (qx_long node = 0; node < mesh->nnodes; ++node) {
        stop_if_asked_at(node);
        double at = 0;
        for (int d = 0; d < 3; ++d) {
            const double x = d < nspace ? static_cast<double>(mesh->coords[node * nspace + d]) : 0;
            at += (x - origin[d]) * (normal[d] / length);
        }
        distance[static_cast<size_t>(node)] = std::fabs(at) <= rounding ? 0 : at;
    }
    return distance;
}

void close_lower_rim(mesh_info *mesh, std::vector<double> *distance)
{
    constexpr double next_to_nothing = 1e-300;
    std::vector<char> has_below(distance->size());
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        if (mesh->cell_connect[set] == nullptr && mesh->get_connect(mesh, set, &mesh->cell_connect[set]) != 1)
            throw std::bad_alloc();
        const qx_long *row = mesh->cell_connect[set];
        const int length = mesh->cell_nnodes[set];
        for (qx_long cell = 0; cell < mesh->cell_count[set]; ++cell, row += length) {
            stop_if_asked_at(cell);
            const bool below = std::any_of(
                row, row + length, [&](qx_long node) { return (*distance)[static_cast<size_t>(node)] < 0; });
            for (int k = 0; below && k < length; ++k)
                has_below[static_cast<size_t>(row[k])] = 1;
        }
    }
    for (size_t node = 0; node < distance->size(); ++node)
        if ((*distance)[node] == 0 && has_below[node] == 0) (*distance)[node] = -next_to_nothing;
}

py::dict slice_of(mesh_object &mesh, const py::array &origin, const py::array &normal, bool cells,
                  int threads, const py::object &progress)
{
    const double *at = elements<double>("origin", origin, 3), *across = elements<double>("normal", normal, 3);
    made_parts parts;
    run_call("slice", &mesh, progress, [&] {
        host_field *field = mesh.field_of_extractions();
        mesh_info *record = host_mesh(field);
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        if (record->coords == nullptr && record->get_coords(record, &record->coords) != 1)
            return library_failed;
        std::vector<double> distance = distances_to(record, at, across);
        if (std::find(distance.begin(), distance.end(), 0.0) != distance.end())
            close_lower_rim(record, &distance);
        const host_array array = {distance.data(), DTYPE_DOUBLE, 1, nullptr};
        return extract_level(field, array, 0, false, cells, threads, &parts);
    });
    return hand_out(&parts, mesh.nspace);
}

// The library's own slice of uniform and rectilinear meshes of three axes: a grid on the plane.
py::tuple plane_grid_of(mesh_object &mesh, const py::array &normal, double distance)
{
    const float *across = elements<float>("normal", normal, 3);
    list_of<qx_long> low, high;
    list_of<float> weight, points;
    list_of<unsigned char> valid;
    qx_long dims[2] = {};
    float xform[16] = {};
    run_call("plane_grid", &mesh, py::none(), [&] {
        mesh_info *record = mesh.record();
        if (record->ndim != 3 || record->nspace != 3 || record->methods->rslice_func == nullptr)
            throw std::invalid_argument("plane_grid: the library has none for this kind of mesh");
        if (record->points == nullptr && record->get_points(record, &record->points) != 1)
            return library_failed;
        points = new_list<float>(3 * (record->dims[0] + record->dims[1] + record->dims[2]));
        qx_long *lo = nullptr, *hi = nullptr;
        float *part = nullptr;
        unsigned char *in = nullptr;
        UTILrslice(record, record->dims, record->points, across, distance, dims, points.get(), 3, xform, &lo,
                   &hi, &part, &in);
        low.reset(lo);
        high.reset(hi);
        weight.reset(part);
        valid.reset(in);
        return of_library(lo != nullptr);
    });
    const py::array_t<float> matrix(std::vector<py::ssize_t>{4, 4}, xform);
    return py::make_tuple(
        matrix, adopt(std::move(low), {dims[1], dims[0]}), adopt(std::move(high), {dims[1], dims[0]}),
        adopt(std::move(weight), {dims[1], dims[0]}), adopt(std::move(valid), {dims[1], dims[0]}));
}

} // namespace

void bind_levels(py::module_ &m)
{
    m.def("level", &level_of);
    m.def("trace", &trace_of);
    m.def("slice", &slice_of);
    m.def("plane_grid", &plane_grid_of);
}
