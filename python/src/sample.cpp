// Located points, samples, derivatives, cell data at nodes, measures: the host's exact forms, and beside each the
// library's own.
#include "core.hpp"

#include <skoklana/deriv.h>
#include <skoklana/locate.h>
#include <skoklana/measure.h>
#include <skoklana/mesh.h>
#include <skoklana/thread.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace {

py::array rows_like(const py::array &values, qx_long rows)
{
    std::vector<py::ssize_t> shape(values.shape(), values.shape() + values.ndim());
    shape[0] = rows;
    return py::array(values.dtype(), shape);
}

unsigned char *marks_in(py::array_t<bool> &mask)
{
    return reinterpret_cast<unsigned char *>(mask.mutable_data());
}

// ---- location ----------------------------------------------------------------------------------------------------

struct freed_locator {
    void operator()(host_locator *locator) const { host_free_locator(locator); }
};
struct freed_places {
    void operator()(host_places *places) const { host_free_places(places); }
};

// Both lean on the field, so they hold its mesh.
struct locator_object {
    py::object keep;
    mesh_object *mesh;
    std::unique_ptr<host_locator, freed_locator> locator;
};

using places_ptr = std::unique_ptr<host_places, freed_places>;

// Points in pieces, which are located and sampled one by one: small ones where that costs nothing, so that what is found
// in between stays in the caches; where the host sorts points, one for each thread, but none that it would divide.
qx_long points_of_piece(const mesh_object &mesh, qx_long npoints, int threads)
{
    constexpr qx_long in_caches = 8192, fewest = 16384, sorted_at_once = 1 << 20;
    if (mesh.compact) return in_caches;
    return std::min(std::max((npoints + threads - 1) / threads, fewest), sorted_at_once);
}

struct places_object {
    py::object keep;
    mesh_object *mesh;
    int threads;
    qx_long npoints, piece;         // points of a piece; the last one may be shorter
    std::vector<places_ptr> pieces; // in order
    list_of<qx_long> all_cells;     // of several pieces
    list_of<double> all_uvw;

    qx_long first(qx_long k) const { return k * piece; }
    const qx_long *cells()
    {
        if (pieces.size() == 1) return pieces[0]->cell;
        if (all_cells == nullptr) all_cells = joined(&host_places::cell, 1);
        return all_cells.get();
    }
    const double *uvw()
    {
        if (pieces.size() == 1) return pieces[0]->uvw;
        if (all_uvw == nullptr) all_uvw = joined(&host_places::uvw, 3);
        return all_uvw.get();
    }

  private:
    template <typename T> list_of<T> joined(const T *host_places::*list, qx_long row) const
    {
        list_of<T> made = new_list<T>(npoints * row);
        T *to = made.get();
        for (const places_ptr &of : pieces)
            to = std::copy_n((*of).*list, of->npoints * row, to);
        return made;
    }
};

std::unique_ptr<locator_object> make_locator(const py::object &self, double tolerance,
                                             const py::object &progress)
{
    auto made = std::make_unique<locator_object>();
    made->keep = self;
    made->mesh = &self.cast<mesh_object &>();
    host_locator_options options = {};
    options.size = sizeof options;
    options.tolerance = tolerance;
    run_call("locator", made->mesh, progress, [&] {
        made->mesh->is_leant_on = true;
        host_locator *locator = nullptr;
        const int done = host_make_locator(made->mesh->field(), &options, &locator);
        made->locator.reset(locator);
        return done;
    });
    return made;
}

// Some of the points of an array.
host_array from_row(const host_array &rows, qx_long row, qx_long item_size)
{
    host_array made = rows;
    made.data = static_cast<const char *>(rows.data) + row * rows.veclen * item_size;
    return made;
}

int locate_piece(const locator_object &locator, const rows_arg &points, qx_long first, qx_long count,
                 places_ptr *out)
{
    const qx_long size = points.array.type == DTYPE_FLOAT ? sizeof(float) : sizeof(double);
    const host_array rows = from_row(points.array, first, size);
    host_places *places = nullptr;
    const int done = host_locate(locator.locator.get(), &rows, count, &places);
    out->reset(places);
    return done;
}

std::unique_ptr<places_object> locate(const locator_object &locator, const py::array &points, int threads,
                                      const py::object &progress)
{
    const rows_arg rows("points", points, points.ndim() > 0 ? points.shape(0) : 0);
    auto made = std::make_unique<places_object>();
    made->keep = locator.keep;
    made->mesh = locator.mesh;
    made->threads = std::max(threads, 1);
    made->npoints = rows.count;
    made->piece = std::max<qx_long>((rows.count + made->threads - 1) / made->threads, 1);
    run_call("locate", made->mesh, progress, [&] {
        const qx_long npieces = std::max<qx_long>((rows.count + made->piece - 1) / made->piece, 1);
        made->pieces.resize(static_cast<size_t>(npieces));
        return run_tasks(made->threads, npieces, "locating points", [&](qx_long k) {
            const qx_long first = made->first(k);
            return locate_piece(locator, rows, first, std::min(made->piece, rows.count - first),
                                &made->pieces[static_cast<size_t>(k)]);
        });
    });
    return made;
}

py::array cells_of_places(const py::object &self)
{
    auto &at = self.cast<places_object &>();
    py::array cells(py::dtype::of<qx_long>(), {at.npoints}, at.cells(), self);
    cells.attr("setflags")(py::arg("write") = false);
    return cells;
}

py::array uvw_of_places(const py::object &self)
{
    auto &at = self.cast<places_object &>();
    py::array uvw(py::dtype::of<double>(), {at.npoints, qx_long{3}}, at.uvw(), self);
    uvw.attr("setflags")(py::arg("write") = false);
    return uvw;
}

// Values that are sampled, and where they go.
struct sampled_rows {
    const rows_arg rows;
    const bool of_cells;
    py::array out;
    py::array_t<bool> mask;

    sampled_rows(const mesh_object &mesh, const py::array &values, const py::object &null, bool of_cells_,
                 qx_long npoints)
        : rows("values", values, of_cells_ ? (values.ndim() > 0 ? values.shape(0) : 0) : mesh.nnodes, null),
          of_cells(of_cells_), out(rows_like(values, npoints)), mask(npoints),
          to(static_cast<char *>(out.mutable_data())), marks(marks_in(mask)),
          row_size(rows.array.veclen * values.itemsize())
    {
    }

    // At the places of points from first on.
    int sample(const host_places *places, qx_long first) const
    {
        const qx_long *cell = places->cell;
        if (!of_cells) return host_sample_nodes(places, &rows.array, to + first * row_size, marks + first);
        if (std::any_of(cell, cell + places->npoints, [&](qx_long c) { return c >= rows.count; }))
            throw std::out_of_range("values: has fewer rows than the mesh has cells");
        return host_sample_cells(places, &rows.array, to + first * row_size, marks + first);
    }

  private:
    char *to;
    unsigned char *marks;
    qx_long row_size;
};

// Rows at the points, and a mark each.
py::tuple sample_at(const places_object &at, const py::array &values, const py::object &null, bool of_cells,
                    const py::object &progress)
{
    const sampled_rows sampled(*at.mesh, values, null, of_cells, at.npoints);
    run_call(of_cells ? "sample_cells" : "sample", at.mesh, progress, [&] {
        return run_tasks(at.threads, static_cast<qx_long>(at.pieces.size()), "sampling", [&](qx_long k) {
            return sampled.sample(at.pieces[static_cast<size_t>(k)].get(), at.first(k));
        });
    });
    return py::make_tuple(sampled.out, sampled.mask);
}

// The same without places that are kept.
py::tuple sample_points(const locator_object &locator, const py::array &points, const py::array &values,
                        const py::object &null, bool of_cells, int threads, const py::object &progress)
{
    const rows_arg at("points", points, points.ndim() > 0 ? points.shape(0) : 0);
    const sampled_rows sampled(*locator.mesh, values, null, of_cells, at.count);
    run_call(of_cells ? "sample_cells" : "sample", locator.mesh, progress, [&] {
        const qx_long piece = points_of_piece(*locator.mesh, at.count, std::max(threads, 1));
        return run_tasks(threads, (at.count + piece - 1) / piece, "sampling", [&](qx_long k) {
            places_ptr places;
            const qx_long first = k * piece;
            {
                const progress_part part(0, 80);
                const int done = locate_piece(locator, at, first, std::min(piece, at.count - first), &places);
                if (done != HOST_DONE) return done;
            }
            const progress_part part(80, 100);
            return sampled.sample(places.get(), first);
        });
    });
    return py::make_tuple(sampled.out, sampled.mask);
}

// The nodes and weights of one place.
py::tuple weights_at(const places_object &at, qx_long point)
{
    if (point < 0 || point >= at.npoints) throw py::index_error("point: there is no such point");
    if (at.mesh->record() == nullptr) throw py::value_error("the mesh was closed");
    qx_long nodes[20];
    double weights[20];
    const places_ptr &piece = at.pieces[static_cast<size_t>(point / at.piece)];
    const int count = host_place_weights(piece.get(), point % at.piece, nodes, weights);
    return py::make_tuple(py::array_t<qx_long>(count, nodes), py::array_t<double>(count, weights));
}

// The library's own sampling, made for drawing: in single precision, up to a twentieth of a cell outside.
py::array library_sample(mesh_object &mesh, const py::array &values, const py::object &null,
                         const py::array &points, double fill, int threads, const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    if (points.ndim() != 2) throw py::value_error("points: has the wrong shape");
    const qx_long npoints = points.shape(0), row_size = rows.array.veclen * values.itemsize();
    const int nspace = static_cast<int>(points.shape(1));
    const float *at = elements<float>("points", points, npoints * nspace);
    py::array out = rows_like(values, npoints);
    auto *to = static_cast<char *>(out.mutable_data());
    const auto sample = [&](const auto &interpolate, qx_long first, qx_long count) {
        int veclen = rows.array.veclen, null_flag = rows.null_flag();
        alignas(8) unsigned char slot[8] = {}, largest[8] = {};
        if (rows.array.null != nullptr) memcpy(slot, rows.array.null, static_cast<size_t>(values.itemsize()));
        void *data = const_cast<void *>(rows.array.data), *rows_out = to + first * row_size;
        return of_library(interpolate(count, at + first * nspace, nspace, nullptr, mesh.record(),
                                      mesh.table(), 1, rows.array.type, &veclen, &data, nullptr, largest,
                                      &null_flag, slot, 1, fill, &rows_out) == 1);
    };
    run_call("sample", &mesh, progress, [&] {
        const progress_part part(mesh.make_ready(), 100);
        if (threads < 2) return sample(UTILinterpolate_data, 0, npoints);
        constexpr qx_long piece = 16384;
        return run_tasks(threads, (npoints + piece - 1) / piece, "sampling", [&](qx_long k) {
            return sample(UTILmt_interpolate_data, k * piece, std::min(piece, npoints - k * piece));
        });
    });
    return out;
}

// ---- derivatives --------------------------------------------------------------------------------------------------

enum derivative { GRADIENT, CURL, DIVERGENCE };

// Rows at the nodes, and a mark each.
py::tuple derivative_of(mesh_object &mesh, int which, const py::array &values, const py::object &null,
                        const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    const qx_long nnodes = rows.count;
    py::array_t<float> out(which == DIVERGENCE ? std::vector<py::ssize_t>{nnodes}
                                               : std::vector<py::ssize_t>{nnodes, 3});
    py::array_t<bool> mask(nnodes);
    float *to = out.mutable_data();
    unsigned char *marks = marks_in(mask);
    const char *const names[] = {"gradient", "curl", "divergence"};
    run_call(names[which], &mesh, progress, [&] {
        switch (which) {
        case GRADIENT: return host_gradient(mesh.field(), &rows.array, to, marks);
        case CURL: return host_curl(mesh.field(), &rows.array, to, marks);
        default: return host_divergence(mesh.field(), &rows.array, to, marks);
        }
    });
    return py::make_tuple(out, mask);
}

py::array library_derivative_of(mesh_object &mesh, int which, const py::array &values, const py::object &null,
                                const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    py::array_t<float> out(which == DIVERGENCE ? std::vector<py::ssize_t>{rows.count}
                                               : std::vector<py::ssize_t>{rows.count, 3});
    float *to = out.mutable_data();
    std::fill_n(to, out.size(), 0.0f);
    const char *const names[] = {"gradient", "curl", "divergence"};
    run_call(names[which], &mesh, progress, [&] {
        const auto derive = which == GRADIENT ? UTILgrad : which == CURL ? UTILcurl : UTILdiv;
        // the curvilinear forms of three axes take rows of three coordinates
        const mesh_info *record = mesh.record();
        if (record->ndim == 3 && record->nspace != 3)
            throw std::invalid_argument("the library's form takes three coordinates a node");
        return of_library(derive(mesh.record(), rows.array.data, rows.array.veclen, rows.array.type,
                                 rows.null_flag(), rows.array.null, to) == 1);
    });
    return out;
}

// ---- cell data at nodes ---------------------------------------------------------------------------------------------

py::tuple cell_to_node_of(mesh_object &mesh, const py::array &values, qx_long ncells, const py::object &null,
                          bool by_distance, const py::object &progress)
{
    const rows_arg rows("values", values, ncells, null);
    const qx_long nnodes = mesh.nnodes;
    py::array out = rows_like(values, nnodes);
    py::array_t<bool> mask(nnodes);
    void *to = out.mutable_data();
    unsigned char *marks = marks_in(mask);
    host_cell_to_node_options options = {};
    options.size = sizeof options;
    options.weight = by_distance ? HOST_WEIGHT_DISTANCE : HOST_WEIGHT_NONE;
    run_call("cell_to_node", &mesh, progress,
             [&] { return host_cell_to_node(mesh.field(), &rows.array, &options, to, marks); });
    return py::make_tuple(out, mask);
}

py::array library_cell_to_node_of(mesh_object &mesh, const py::array &values, const py::object &null,
                                  int power)
{
    const qx_long ncells = mesh.ncells;
    const rows_arg rows("values", values, ncells, null);
    py::array out = rows_like(values, mesh.nnodes);
    auto *to = static_cast<char *>(out.mutable_data());
    memset(to, 0, static_cast<size_t>(out.nbytes()));
    const qx_long row = rows.array.veclen * values.itemsize();
    run_call("cell_to_node", &mesh, py::none(), [&] {
        mesh_info *record = mesh.record();
        float *weights = nullptr;
        unsigned char *marks = nullptr;
        bool done = true;
        for (int set = 0; done && set < record->ncell_sets; ++set) {
            const qx_long first = record->ndim == 0 ? record->cell_first[set] : 0;
            done =
                UTILcell_to_node(record, set, rows.array.type,
                                 static_cast<const char *>(rows.array.data) + first * row, rows.array.veclen,
                                 rows.null_flag(), rows.array.null, power, to, &weights, &marks) == 1;
        }
        if (!done) {
            host_free(weights);
            host_free(marks);
        }
        return of_library(done);
    });
    return out;
}

// ---- measures ---------------------------------------------------------------------------------------------------------

// By dimension: cells, measure, integral, measure of the cells that have values, cells that have none.
py::list measure_of(mesh_object &mesh, const py::object &values, const py::object &null, int component,
                    const py::object &progress)
{
    std::unique_ptr<rows_arg> rows;
    if (!values.is_none())
        rows = std::make_unique<rows_arg>("values", values.cast<py::array>(), mesh.nnodes, null);
    host_measure found[3] = {};
    run_call("measure", &mesh, progress, [&] {
        return host_measure_field(mesh.field(), rows != nullptr ? &rows->array : nullptr, component, found);
    });
    py::list out;
    for (const host_measure &of : found)
        out.append(py::make_tuple(of.ncells, of.measure, of.integral, of.valued, of.null_cells));
    return out;
}

py::tuple library_measure_of(mesh_object &mesh, int ndim, const py::object &values, const py::object &null)
{
    std::unique_ptr<rows_arg> rows;
    if (!values.is_none())
        rows = std::make_unique<rows_arg>("values", values.cast<py::array>(), mesh.nnodes, null);
    if (rows != nullptr && rows->array.veclen != 1)
        throw py::value_error("values: the library takes scalars");
    float measure = 0, integral = 0;
    run_call("measure", &mesh, py::none(), [&] {
        return of_library(UTILvol_integr(mesh.record(), ndim, rows != nullptr ? rows->array.data : nullptr,
                                         rows != nullptr ? rows->array.type : DTYPE_FLOAT,
                                         rows != nullptr ? rows->null_flag() : 0,
                                         rows != nullptr ? rows->array.null : nullptr, &measure,
                                         &integral) == 1);
    });
    return py::make_tuple(measure, integral);
}

} // namespace

void bind_sampling(py::module_ &m)
{
    const py::class_<locator_object> locators(m, "Locator");
    py::class_<places_object>(m, "Places")
        .def("cell", [](const py::object &self) { return cells_of_places(self); })
        .def("uvw", [](const py::object &self) { return uvw_of_places(self); })
        .def("weights", &weights_at);
    m.def("make_locator", &make_locator);
    m.def("locate", &locate);
    m.def("sample_at", &sample_at);
    m.def("sample_points", &sample_points);
    m.def("sample_by_library", &library_sample);
    m.def("derivative", &derivative_of);
    m.def("derivative_by_library", &library_derivative_of);
    m.def("cell_to_node", &cell_to_node_of);
    m.def("cell_to_node_by_library", &library_cell_to_node_of);
    m.def("measure", &measure_of);
    m.def("measure_by_library", &library_measure_of);
}
