// Stream lines, ribbons along them, and glyphs.
#include "core.hpp"

#include <skoklana/glyph.h>
#include <skoklana/trace.h>

#include <algorithm>
#include <string>

namespace {

// ---- stream lines --------------------------------------------------------------------------------------------------

struct line_options {
    int order, direction, steps_a_cell;
    double min_speed;
    int max_nodes;
};

// Lines, one after the other.
struct traced_lines {
    std::vector<float> points, vectors, uvw, speeds, steps;
    std::vector<qx_long> cells, counts; // counts: nodes of each line
};

// Room for one line; what is never written takes no memory.
struct line_room {
    list_of<float> points, vectors, uvw, speeds, steps;
    list_of<qx_long> cells;

    line_room(qx_long nodes, int nspace, int veclen)
        : points(new_list<float>(nodes * nspace)), vectors(new_list<float>(nodes * veclen)),
          uvw(new_list<float>(nodes * 3)), speeds(new_list<float>(nodes)), steps(new_list<float>(nodes)),
          cells(new_list<qx_long>(nodes))
    {
    }
};

template <typename T> void append(std::vector<T> *to, const list_of<T> &from, qx_long count)
{
    to->insert(to->end(), from.get(), from.get() + count);
}

int trace_lines(mesh_object &mesh, const rows_arg &vectors, const float *seeds, qx_long nseeds,
                const line_options &how, traced_lines *out)
{
    mesh_info *record = mesh.record();
    const blk_tbl *table = mesh.table();
    const int nspace = record->nspace, veclen = vectors.array.veclen;
    line_room room(how.max_nodes, nspace, veclen);
    float work[3];
    for (qx_long seed = 0; seed < nseeds; ++seed) {
        if (asked_to_stop(seed, nseeds, "stream lines")) return HOST_STOPPED;
        int count = 0;
        if (UTILstream_line(record, table, vectors.array.data, vectors.array.type, veclen,
                            vectors.null_flag(), vectors.array.null, how.order, how.direction,
                            how.steps_a_cell, how.min_speed, seeds + seed * nspace, how.max_nodes, &count,
                            room.points.get(), room.vectors.get(), 1, room.cells.get(), room.uvw.get(),
                            room.speeds.get(), room.steps.get(), work) != 1)
            return library_failed;
        append(&out->points, room.points, static_cast<qx_long>(count) * nspace);
        append(&out->vectors, room.vectors, static_cast<qx_long>(count) * veclen);
        append(&out->uvw, room.uvw, static_cast<qx_long>(count) * 3);
        append(&out->speeds, room.speeds, count);
        append(&out->steps, room.steps, count);
        append(&out->cells, room.cells, count);
        out->counts.push_back(count);
    }
    return HOST_DONE;
}

// One list of all parts. row: elements of a row; 0: it has no rows.
template <typename T>
py::array joined(const std::vector<traced_lines> &parts, std::vector<T> traced_lines::*list, py::ssize_t row)
{
    py::ssize_t size = 0;
    for (const traced_lines &part : parts)
        size += static_cast<py::ssize_t>((part.*list).size());
    const std::vector<py::ssize_t> shape =
        row > 0 ? std::vector<py::ssize_t>{size / row, row} : std::vector<py::ssize_t>{size};
    py::array_t<T> made(shape);
    T *to = made.mutable_data();
    for (const traced_lines &part : parts)
        to = std::copy((part.*list).begin(), (part.*list).end(), to);
    return std::move(made);
}

py::dict stream_lines_of(mesh_object &mesh, const py::array &vectors, const py::object &null,
                         const py::array &seeds, int order, int direction, int steps_a_cell, double min_speed,
                         int max_nodes, int threads, const py::object &progress)
{
    const rows_arg rows("vectors", vectors, mesh.nnodes, null);
    const qx_long nspace = mesh.nspace, nseeds = seeds.size() / nspace;
    if (rows.array.veclen > 3) throw py::value_error("vectors: has more than three components");
    if (max_nodes < 1 || steps_a_cell < 1 || order < 1 || order > 4)
        throw py::value_error("max_nodes, steps_per_cell or order: out of range");
    const float *at = elements<float>("seeds", seeds, nseeds * nspace);
    const line_options how = {order, direction, steps_a_cell, min_speed, max_nodes};
    std::vector<traced_lines> parts;
    run_call("stream_lines", &mesh, progress, [&] {
        constexpr qx_long most = 32;
        const qx_long piece = threads < 2 ? std::max<qx_long>(nseeds, 1) : most;
        const qx_long nparts = (nseeds + piece - 1) / piece;
        parts.resize(static_cast<size_t>(nparts));
        const progress_part part(mesh.make_ready(), 100);
        return run_tasks(threads, nparts, "stream lines", [&](qx_long k) {
            const qx_long first = k * piece;
            return trace_lines(mesh, rows, at + first * nspace, std::min(piece, nseeds - first), how,
                               &parts[static_cast<size_t>(k)]);
        });
    });
    py::dict out;
    out["points"] = joined(parts, &traced_lines::points, nspace);
    out["vectors"] = joined(parts, &traced_lines::vectors, rows.array.veclen);
    out["uvw"] = joined(parts, &traced_lines::uvw, 3);
    out["speeds"] = joined(parts, &traced_lines::speeds, 0);
    out["steps"] = joined(parts, &traced_lines::steps, 0);
    out["cells"] = joined(parts, &traced_lines::cells, 0);
    py::array_t<qx_long> begin(nseeds + 1);
    qx_long *next = begin.mutable_data(), nodes = *next++ = 0;
    for (const traced_lines &part : parts)
        for (const qx_long count : part.counts)
            *next++ = nodes += count;
    out["begin"] = begin;
    return out;
}

// ---- ribbons ---------------------------------------------------------------------------------------------------------

// The other edge of each line's ribbon; a mark a line says whether there is one.
py::tuple ribbons_of(mesh_object &mesh, const py::array &field, const py::object &null, const py::dict &lines,
                     double width, double angle, bool fixed_width, const py::object &progress)
{
    const rows_arg rows("vectors", field, mesh.nnodes, null);
    const int nspace = mesh.nspace, veclen = rows.array.veclen;
    const auto list = [&](const char *name) { return lines[name].cast<py::array>(); };
    const py::array begin = list("begin"), points = list("points"), vectors = list("vectors"),
                    uvw = list("uvw"), speeds = list("speeds"), steps = list("steps"), cells = list("cells");
    const qx_long n = cells.size(), nlines = begin.size() - 1;
    const qx_long *first = elements<qx_long>("begin", begin, nlines + 1),
                  *cell = elements<qx_long>("cells", cells, n);
    const float *at = elements<float>("points", points, n * nspace),
                *vector = elements<float>("vectors", vectors, n * veclen),
                *place = elements<float>("uvw", uvw, 3 * n), *speed = elements<float>("speeds", speeds, n),
                *step = elements<float>("steps", steps, n);
    py::array_t<float> edge(std::vector<py::ssize_t>{n, nspace});
    py::array_t<bool> made(nlines);
    float *to = edge.mutable_data();
    bool *done = made.mutable_data();
    run_call("ribbons", &mesh, progress, [&] {
        std::vector<float> room;
        for (qx_long line = 0; line < nlines; ++line) {
            if (asked_to_stop(line, nlines, "ribbons")) return static_cast<int>(HOST_STOPPED);
            const qx_long from = first[line], count = first[line + 1] - from;
            if (from < 0 || count < 0 || from + count > n)
                throw std::out_of_range("begin: is not of these lines");
            room.assign(static_cast<size_t>(2 * count * nspace), 0.0f);
            std::copy_n(at + from * nspace, count * nspace, room.data());
            float last_width = 0, last_angle = 0;
            done[line] =
                UTILribbon(mesh.record(), static_cast<int>(count), nspace, room.data(),
                           vector + from * veclen, cell + from, place + 3 * from, speed + from, step + from,
                           veclen, rows.array.data, rows.array.type, rows.null_flag(), rows.array.null,
                           fixed_width ? 1 : 0, width, angle, &last_width, &last_angle) == 1;
            std::copy_n(room.data() + (done[line] ? count * nspace : 0), count * nspace, to + from * nspace);
        }
        return static_cast<int>(HOST_DONE);
    });
    return py::make_tuple(edge, made);
}

// ---- glyphs ------------------------------------------------------------------------------------------------------------

py::tuple glyphs_of(mesh_object &mesh, const py::array &data, const py::object &null,
                    const py::object &scale_data, const py::object &map_data, const py::array &glyph,
                    double scale, const py::array &scale_axes, bool orient, bool by_component, bool normalize,
                    const py::object &progress)
{
    const qx_long nnodes = mesh.nnodes;
    const rows_arg rows("values", data, nnodes, null);
    const rows_arg sizes("scale_by", scale_data.is_none() ? data : scale_data.cast<py::array>(), nnodes);
    const rows_arg colours("colour_by", map_data.is_none() ? data : map_data.cast<py::array>(), nnodes);
    if (sizes.array.type != rows.array.type || colours.array.type != rows.array.type)
        throw py::type_error("scale_by and colour_by: must have the type of values");
    for (const rows_arg *of : {&rows, &sizes, &colours})
        if (of->array.veclen > 3) throw py::value_error("values: has more than three components");
    if (glyph.ndim() != 2 || glyph.shape(1) < 1 || glyph.shape(1) > 3)
        throw py::value_error("glyph: is not rows of one to three coordinates");
    const qx_long ncopy = glyph.shape(0);
    const int glyph_nspace = static_cast<int>(glyph.shape(1));
    const float *at = elements<float>("glyph", glyph, glyph.size());
    const int *axes = elements<int>("scale_axes", scale_axes, 3);
    list_of<float> coords = new_list<float>(3 * nnodes * ncopy);
    list_of<char> values(
        static_cast<char *>(new_bytes(nnodes * ncopy, static_cast<size_t>(data.itemsize()))));
    run_call("glyphs", &mesh, progress, [&] {
        return of_library(UTILglyph_func(mesh.record(), rows.array.type, rows.array.veclen, rows.array.data,
                                         rows.null_flag(), rows.array.null, sizes.array.veclen,
                                         colours.array.veclen, sizes.array.data, colours.array.data,
                                         orient ? 1 : 0, by_component ? 1 : 0, normalize ? 1 : 0, scale, axes,
                                         nullptr, ncopy, glyph_nspace, at, nullptr, 3, coords.get(),
                                         values.get()) == 1);
    });
    return py::make_tuple(adopt(std::move(coords), {nnodes * ncopy, 3}),
                          adopt_list(values.release(), data.dtype(), {nnodes * ncopy}));
}

} // namespace

void bind_tracing(py::module_ &m)
{
    m.def("stream_lines", &stream_lines_of);
    m.def("ribbons", &ribbons_of);
    m.def("glyphs", &glyphs_of);
}
