// The library traces a line as far as its steps go. What a user wants to know beyond that, when each node was reached
// and why the line ended, follows from taking each step once more: what the library records of a step is its size
// before it was shortened.
#include "stream_lines.hpp"

#include "csv.hpp"
#include "failure.hpp"
#include "progress.hpp"
#include "read.hpp"
#include "threads.hpp"

#include <skoklana.h>
#include <skoklana/host/om.h>
#include <skoklana_host.h>

#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <type_traits>

const char *in_words(line_end end)
{
    switch (end) {
    case line_end::left_mesh: return "left the mesh";
    case line_end::no_value: return "came to nodes without a value";
    case line_end::slow: return "came to rest";
    case line_end::max_steps: return "took all steps";
    case line_end::max_length: return "reached their length";
    case line_end::too_fast: return "came to where no step is short enough";
    }
    return "";
}

namespace {

constexpr int steps_a_cell = 4;

struct freed {
    void operator()(blk_tbl *table) const { host_free_table(table); }
    void operator()(host_locator *locator) const { host_free_locator(locator); }
    void operator()(mesh_info *mesh) const { host_free_exact_mesh(mesh); }
};

// A node of a line.
struct line_node {
    float at[3], vector[3], uvw[3];
    qx_long cell;
    float speed;
    double time;
};

struct traced_line {
    std::vector<line_node> nodes;
    line_end ended = line_end::left_mesh, began = line_end::left_mesh;
};

double distance(const float *a, const float *b)
{
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

class line_tracer {
  public:
    line_tracer(const input_mesh &mesh_, const scalar_array &vectors_, const line_options &options_)
        : is_flat(mesh_.cell_ndim() < 3), mesh(mesh_.mesh), vectors(vectors_), options(options_),
          room(static_cast<size_t>(options.max_steps) + 1), points(3 * room),
          rows(static_cast<size_t>(vectors.array.veclen) * room), uvws(3 * room), speeds(room), steps(room),
          cells(room)
    {
    }

    // By the library's own places, to a twentieth of a cell.
    bool open_by_library()
    {
        blk_tbl *made = nullptr;
        if (mesh->methods->interp_init_func(mesh, &made) != 1) return false;
        table.reset(made);
        return true;
    }

    // By a locator that outlives the tracer, and may serve others.
    bool open_exactly(const host_locator *locator)
    {
        exact.reset(host_exact_mesh(locator));
        mesh = exact.get();
        return mesh != nullptr;
    }

    // The line from a seed; without nodes where the seed has none.
    traced_line trace(const float *seed)
    {
        traced_line line;
        if (options.both) {
            line.began = trace_one_way(seed, -1, &line.nodes);
            std::reverse(line.nodes.begin(), line.nodes.end());
            if (!line.nodes.empty()) line.nodes.pop_back(); // the seed, which the other way begins with
        }
        line.ended = trace_one_way(seed, 1, &line.nodes);
        return line;
    }

    bool is_in_cell(const float *point)
    {
        line_node node;
        return locate(point, &node);
    }

    // The other edge of a ribbon along a line, rows of 3; false where the field's derivatives can't be had.
    bool make_edge(const std::vector<line_node> &nodes, std::vector<float> *edge);

  private:
    // The field as arguments of the library.
    const void *data() const { return vectors.array.values; }
    int type() const { return vectors.array.type; }
    int veclen() const { return vectors.array.veclen; }

    bool locate(const float *point, line_node *node)
    {
        std::copy_n(point, 3, node->at);
        return mesh->methods->find_cell_func(mesh, table.get(), point, &node->cell, node->uvw) == 1;
    }

    bool sample(line_node *node)
    {
        std::fill_n(node->vector, 3, 0.0f);
        if (mesh->methods->interp_data_func(mesh, node->cell, veclen(), data(), type(), vectors.null_flag,
                                            vectors.null_value(), 1, node->uvw, node->vector) != 1)
            return false;
        node->speed = std::hypot(node->vector[0], node->vector[1], node->vector[2]);
        return true;
    }

    float cell_size(qx_long cell)
    {
        float lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
        mesh->methods->cell_extent_func(mesh, cell, lo, hi);
        float size = hi[0] - lo[0] == 0 ? 1e10f : hi[0] - lo[0];
        for (int d = 1; d < mesh->nspace; ++d)
            if (hi[d] - lo[d] != 0) size = std::min(size, hi[d] - lo[d]);
        return size;
    }

    // Takes a step as the library took it: from what was chosen, shortened as often as it is too fast.
    int repeat_step(const line_node &node, int direction, double *h, float *end)
    {
        float blended[3], limit = node.speed, over = node.speed;
        int result = -1;
        for (int attempt = 0; attempt < 100; ++attempt) {
            result = UTILintegrate(mesh, table.get(), node.cell, data(), type(), veclen(), vectors.null_flag,
                                   vectors.null_value(), *h, options.order, node.at, end, node.vector,
                                   blended, limit, &over);
            if (result != -1) break;
            limit = over;
            *h = direction * 0.7 * cell_size(node.cell) / (static_cast<double>(steps_a_cell) * over);
        }
        return result;
    }

    // Why no node follows the last one, from whose step this is.
    line_end why(int result, const float *end)
    {
        if (result == -1) return line_end::too_fast;
        line_node node;
        if (!locate(end, &node)) return line_end::left_mesh;
        if (result == 0 || !sample(&node)) return line_end::no_value;
        return node.speed < options.min_speed || node.speed == 0 ? line_end::slow : line_end::left_mesh;
    }

    // A step goes out of the mesh, or to where there is no value: the end of as much of it as does not, found by
    // halving; false: none of it.
    bool find_rim(const line_node &from, double h, line_node *rim)
    {
        bool found = false;
        double inside = 0, outside = 1;
        for (int i = 0; i < 16; ++i) {
            const double middle = (inside + outside) / 2;
            float end[3] = {0, 0, 0}, blended[3], over;
            line_node node;
            if (UTILintegrate(mesh, table.get(), from.cell, data(), type(), veclen(), vectors.null_flag,
                              vectors.null_value(), middle * h, options.order, from.at, end, from.vector,
                              blended, std::numeric_limits<float>::max(), &over) == 1 &&
                locate(end, &node) && sample(&node) && node.speed > 0) {
                *rim = node;
                rim->time = from.time + middle * h;
                found = true;
                inside = middle;
            } else {
                outside = middle;
            }
        }
        return found;
    }

    // Ends the line between a and the node that follows it.
    line_node between(const line_node &a, const line_node &b, double t)
    {
        line_node node;
        float at[3];
        for (int d = 0; d < 3; ++d)
            at[d] = static_cast<float>(a.at[d] + t * (static_cast<double>(b.at[d]) - a.at[d]));
        if (!locate(at, &node) || !sample(&node)) {
            node = a;
            std::copy_n(at, 3, node.at);
        }
        node.time = a.time + t * (b.time - a.time);
        return node;
    }

    // Adds a node that follows the last one, or the place on the way there at which the line has its length; false
    // for the latter.
    bool add(const line_node &node, double *length, std::vector<line_node> *nodes)
    {
        const line_node last = nodes->back();
        const double step = distance(last.at, node.at), rest = options.max_length - *length;
        const bool goes_on = options.max_length == 0 || step < rest;
        nodes->push_back(goes_on ? node : between(last, node, step > 0 ? rest / step : 0));
        *length += step;
        return goes_on;
    }

    line_end trace_one_way(const float *seed, int direction, std::vector<line_node> *nodes)
    {
        int count = 0;
        float work[3];
        const int done = UTILstream_line(
            mesh, table.get(), data(), type(), veclen(), vectors.null_flag, vectors.null_value(),
            options.order, direction, steps_a_cell, options.min_speed, seed, static_cast<int>(room), &count,
            points.data(), rows.data(), 1, cells.data(), uvws.data(), speeds.data(), steps.data(), work);
        if (done != 1 || count == 0) return line_end::left_mesh;
        double time = 0, length = 0;
        for (int i = 0; i < count; ++i) {
            line_node node;
            const auto row = static_cast<size_t>(i);
            std::copy_n(&points[3 * row], 3, node.at);
            std::fill_n(node.vector, 3, 0.0f);
            std::copy_n(&rows[static_cast<size_t>(veclen()) * row], veclen(), node.vector);
            std::copy_n(&uvws[3 * row], 3, node.uvw);
            node.cell = cells[row];
            node.speed = speeds[row];
            node.time = time;
            if (i == 0)
                nodes->push_back(node);
            else if (!add(node, &length, nodes))
                return line_end::max_length;
            if (i + 1 == static_cast<int>(room)) return line_end::max_steps;
            double h = steps[row];
            float end[3] = {0, 0, 0};
            const int result = repeat_step(node, direction, &h, end);
            time += h;
            if (i + 1 < count) continue;
            const line_end ended = why(result, end);
            line_node rim;
            const bool has_rim = ended == line_end::left_mesh || ended == line_end::no_value;
            if (has_rim && find_rim(node, h, &rim) && !add(rim, &length, nodes)) return line_end::max_length;
            return ended;
        }
        return line_end::left_mesh;
    }

    bool is_flat; // no cell is a solid
    std::vector<char> zeros;
    mesh_info *mesh;
    const scalar_array &vectors;
    line_options options;
    std::unique_ptr<blk_tbl, freed> table;   // by the library's places
    std::unique_ptr<mesh_info, freed> exact; // exactly
    size_t room;                             // nodes
    std::vector<float> points, rows, uvws, speeds, steps;
    std::vector<qx_long> cells;
};

// The library's first row is beside the line by less than the width, and has no rate of turning. So the line gets a node
// ahead of its first, from which it comes straight in no time.
bool line_tracer::make_edge(const std::vector<line_node> &nodes, std::vector<float> *edge)
{
    if (nodes.size() < 2) return false;
    std::vector<float> places, vecs, params, lengths, times;
    std::vector<qx_long> in;
    const auto add_row = [&](const line_node &node, const float *at, double time) {
        places.insert(places.end(), at, at + 3);
        vecs.insert(vecs.end(), node.vector, node.vector + veclen());
        params.insert(params.end(), node.uvw, node.uvw + 3);
        lengths.push_back(node.speed);
        in.push_back(node.cell);
        times.push_back(static_cast<float>(time)); // of the step to the node
    };
    float ahead[3];
    for (int d = 0; d < 3; ++d)
        ahead[d] = 2 * nodes[0].at[d] - nodes[1].at[d];
    add_row(nodes[0], ahead, 0);
    for (size_t i = 0; i < nodes.size(); ++i)
        add_row(nodes[i], nodes[i].at, i == 0 ? 0 : nodes[i].time - nodes[i - 1].time);
    const size_t n = places.size();
    places.resize(2 * n);
    // A field in a surface turns about its normal, and so never about a line in it. There the derivatives are those of
    // zeros: the library's are no use for vectors on surfaces.
    if (is_flat && zeros.empty()) zeros.resize(static_cast<size_t>(mesh->nnodes * veclen()));
    const void *field = is_flat ? zeros.data() : data();
    float width, angle;
    if (UTILribbon(mesh, static_cast<int>(in.size()), 3, places.data(), vecs.data(), in.data(), params.data(),
                   lengths.data(), times.data(), veclen(), field, is_flat ? DTYPE_CHAR : type(),
                   is_flat ? 0 : vectors.null_flag, vectors.null_value(), 1, options.ribbon_width, 0, &width,
                   &angle) != 1)
        return false;
    edge->assign(places.begin() + static_cast<long>(n) + 3, places.end());
    return std::all_of(edge->begin(), edge->end(), [](float x) { return std::isfinite(x); });
}

// ---- results --------------------------------------------------------------------------------------------------------

// Collects lines into polygonal data. VTK's cells come lines first, then strips: rows of cell arrays wait for both.
class line_collector {
  public:
    line_collector(const input_mesh &mesh, const typed_array &field, bool both_)
        : veclen(field.veclen),
          name(field.name == "speed" || field.name == "time" ? field.name + "_vector" : field.name),
          both(both_)
    {
        std::copy_n(mesh.offset, 3, offset);
        if (mesh.shifted()) points->SetDataTypeToDouble();
    }

    void add_line(const traced_line &line, int64_t seed)
    {
        lines->InsertNextCell(static_cast<int>(line.nodes.size()));
        for (const line_node &node : line.nodes)
            lines->InsertCellPoint(add_node(node, node.at));
        line_rows.push_back({seed, line.ended, line.began});
    }

    // Half of the width on each side of the line.
    void add_ribbon(const traced_line &line, const std::vector<float> &edge, int64_t seed)
    {
        strips->InsertNextCell(static_cast<int>(2 * line.nodes.size()));
        vtkIdType first[2] = {0, 0};
        for (size_t i = 0; i < line.nodes.size(); ++i) {
            const line_node &node = line.nodes[i];
            vtkIdType ends[2];
            for (int side = 0; side < 2; ++side) {
                float at[3];
                for (size_t d = 0; d < 3; ++d)
                    at[d] = node.at[d] + (side == 0 ? -0.5f : 0.5f) * (edge[3 * i + d] - node.at[d]);
                ends[side] = add_node(node, at);
                strips->InsertCellPoint(ends[side]);
            }
            if (i > 0) {
                triangles->InsertNextCell({first[0], first[1], ends[0]});
                triangles->InsertNextCell({first[1], ends[1], ends[0]});
            }
            first[0] = ends[0];
            first[1] = ends[1];
        }
        strip_rows.push_back({seed, line.ended, line.began});
    }

    void finish(stream_lines *made) const
    {
        made->nlines = static_cast<int64_t>(line_rows.size() + strip_rows.size());
        made->nnodes = points->GetNumberOfPoints();
        made->data = vtkSmartPointer<vtkPolyData>::New();
        made->drawn = vtkSmartPointer<vtkPolyData>::New();
        for (vtkPolyData *data : {made->data.Get(), made->drawn.Get()}) {
            data->SetPoints(points);
            data->SetLines(lines);
            put(data->GetPointData(), "speed", DTYPE_FLOAT, 1, speeds);
            put(data->GetPointData(), "time", DTYPE_DOUBLE, 1, times);
            put(data->GetPointData(), name.c_str(), DTYPE_FLOAT, veclen, vectors);
            data->GetPointData()->SetActiveScalars("speed");
        }
        made->data->SetStrips(strips);
        made->drawn->SetPolys(triangles);
        std::vector<qx_long> seeds;
        std::vector<signed char> ended, began;
        for (const auto *rows : {&line_rows, &strip_rows})
            for (const row &r : *rows) {
                seeds.push_back(r.seed);
                ended.push_back(static_cast<signed char>(r.ended));
                began.push_back(static_cast<signed char>(r.began));
            }
        put(made->data->GetCellData(), "seed", DTYPE_QX_LONG, 1, seeds);
        put(made->data->GetCellData(), "ended", DTYPE_CHAR, 1, ended);
        if (both) put(made->data->GetCellData(), "began", DTYPE_CHAR, 1, began);
    }

  private:
    struct row {
        int64_t seed;
        line_end ended, began;
    };

    vtkIdType add_node(const line_node &node, const float *at)
    {
        speeds.push_back(node.speed);
        times.push_back(node.time);
        vectors.insert(vectors.end(), node.vector, node.vector + veclen);
        return points->InsertNextPoint(at[0] + offset[0], at[1] + offset[1], at[2] + offset[2]);
    }

    template <typename T>
    static void put(vtkDataSetAttributes *to, const char *array_name, int type, int ncomp,
                    const std::vector<T> &values)
    {
        const auto array =
            new_vtk_array(type, ncomp, static_cast<qx_long>(values.size()) / ncomp, array_name);
        if (!values.empty()) memcpy(values_of(array), values.data(), values.size() * sizeof(T));
        to->AddArray(array);
    }

    int veclen;
    std::string name;
    bool both;
    double offset[3]; // from the coordinates of the mesh to those of the data set
    vtkSmartPointer<vtkPoints> points = vtkSmartPointer<vtkPoints>::New();
    vtkSmartPointer<vtkCellArray> lines = vtkSmartPointer<vtkCellArray>::New(),
                                  strips = vtkSmartPointer<vtkCellArray>::New(),
                                  triangles = vtkSmartPointer<vtkCellArray>::New();
    std::vector<float> speeds, vectors;
    std::vector<double> times;
    std::vector<row> line_rows, strip_rows;
};

} // namespace

// Lines on a surface that is not flat leave its plane little by little, and the library's places go along for a while.
static bool is_curved(const input_mesh &mesh)
{
    if (mesh.cell_ndim() == 3) return false;
    double box[6];
    mesh.data->GetBounds(box);
    return box[0] != box[1] && box[2] != box[3] && box[4] != box[5];
}

// On a mesh that is flat across an axis vectors count as far as they lie within it. False: they all do.
static bool put_into_plane(const input_mesh &mesh, scalar_array *vectors)
{
    double box[6];
    mesh.data->GetBounds(box);
    const int veclen = vectors->array.veclen;
    bool changed = false;
    for (int d = 0; d < veclen; ++d) {
        if (box[2 * d] != box[2 * d + 1]) continue;
        with_values(vectors->array, [&](auto *from) {
            using T = std::remove_pointer_t<decltype(from)>;
            T null = 0;
            if (vectors->null_flag != 0) memcpy(&null, vectors->null_value(), sizeof null);
            const auto lies_across = [&](const T *row) {
                return row[d] != 0 && (vectors->null_flag == 0 || row[0] != null);
            };
            const qx_long count = vectors->array.count;
            qx_long first = 0;
            while (first < count && !lies_across(from + first * veclen))
                ++first;
            if (first == count) return;
            const typed_array flat = like(vectors->array, count);
            T *to = static_cast<T *>(flat.values);
            std::copy_n(from, count * veclen, to);
            for (qx_long i = first; i < count; ++i)
                if (lies_across(to + i * veclen)) to[i * veclen + d] = 0;
            vectors->array = flat;
            changed = true;
        });
    }
    return changed;
}

namespace {

// What a seed gave.
struct seed_result {
    enum { line, outside, still, pointlike } what = outside;
    traced_line traced;
    std::vector<float> edge; // of a ribbon, empty where there is none
};

seed_result follow(line_tracer *tracer, const float *seed, const line_options &options)
{
    seed_result made;
    traced_line &line = made.traced;
    line = tracer->trace(seed);
    if (line.nodes.empty()) {
        made.what = tracer->is_in_cell(seed) ? seed_result::still : seed_result::outside;
        return made;
    }
    // Nodes in one place make no ribbon.
    line.nodes.erase(
        std::unique(line.nodes.begin(), line.nodes.end(),
                    [](const line_node &a, const line_node &b) { return std::equal(a.at, a.at + 3, b.at); }),
        line.nodes.end());
    made.what = line.nodes.size() < 2 ? seed_result::pointlike : seed_result::line;
    if (made.what == seed_result::line && options.ribbon_width > 0 &&
        !tracer->make_edge(line.nodes, &made.edge))
        made.edge.clear();
    return made;
}

} // namespace

stream_lines trace_lines(const std::string &path, const input_mesh &mesh, scalar_array vectors,
                         const std::vector<double> &seeds, const line_options &options)
{
    const std::string what = path + ": tracing";
    const operation run("tracing");
    stream_lines made;
    made.flattened = put_into_plane(mesh, &vectors);
    const int64_t nseeds = static_cast<int64_t>(seeds.size()) / 3;
    // A line takes about as long as a thousand points. A mesh that is searched by the library serves one thread.
    const bool by_library = options.by_library || is_curved(mesh);
    const auto nthreads =
        static_cast<size_t>(by_library ? 1 : std::min<int64_t>(threads_for(nseeds * 1000), nseeds));
    std::unique_ptr<host_locator, freed> locator;
    std::vector<std::unique_ptr<line_tracer>> tracers(std::max<size_t>(nthreads, 1));
    if (!by_library) {
        host_locator *located = nullptr;
        if (host_make_locator(mesh.field, nullptr, &located) != HOST_DONE) {
            stop_if_asked();
            throw failure(path + ": " + host_error());
        }
        locator.reset(located);
    }
    for (auto &tracer : tracers) {
        tracer = std::make_unique<line_tracer>(mesh, vectors, options);
        if (by_library)
            run.check(tracer->open_by_library(), what);
        else if (!tracer->open_exactly(locator.get()))
            throw failure(path + ": " + host_error());
    }
    std::vector<seed_result> results(static_cast<size_t>(nseeds));
    std::atomic<bool> stopped{false};
    const auto step = static_cast<int64_t>(tracers.size());
    run_side_by_side(static_cast<int>(step), [&](int k) {
        for (int64_t i = k; i < nseeds && !stopped; i += step) { // long lines often begin side by side
            int stop = 0;
            OMstatus_check(static_cast<int>(i * 100 / nseeds), nullptr, &stop);
            if (stop != 0) stopped = true;
            float seed[3]; // in the coordinates of the mesh
            for (int d = 0; d < 3; ++d)
                seed[d] = static_cast<float>(seeds[static_cast<size_t>(3 * i + d)] - mesh.offset[d]);
            results[static_cast<size_t>(i)] = follow(tracers[static_cast<size_t>(k)].get(), seed, options);
        }
    });
    if (stopped) run.check(false, what);
    line_collector collected(mesh, vectors.array, options.both);
    for (int64_t i = 0; i < nseeds; ++i) {
        const seed_result &one = results[static_cast<size_t>(i)];
        made.outside += one.what == seed_result::outside ? 1 : 0;
        made.still += one.what == seed_result::still ? 1 : 0;
        made.pointlike += one.what == seed_result::pointlike ? 1 : 0;
        if (one.what != seed_result::line) continue;
        ++made.ends[static_cast<int>(one.traced.ended)];
        if (options.both) ++made.ends[static_cast<int>(one.traced.began)];
        if (!one.edge.empty()) {
            collected.add_ribbon(one.traced, one.edge, i);
        } else {
            collected.add_line(one.traced, i);
            made.plain += options.ribbon_width > 0 ? 1 : 0;
        }
    }
    host_clear_reports(); // derivatives that can't be had leave some
    collected.finish(&made);
    return made;
}

// ---- seeds --------------------------------------------------------------------------------------------------------

std::vector<double> seeds_on_plane(const double origin[3], const double a[3], const double b[3], int64_t na,
                                   int64_t nb)
{
    std::vector<double> seeds;
    const auto share = [](int64_t i, int64_t n) {
        return static_cast<double>(i) / static_cast<double>(std::max<int64_t>(n - 1, 1));
    };
    for (int64_t j = 0; j < nb; ++j)
        for (int64_t i = 0; i < na; ++i)
            for (int d = 0; d < 3; ++d)
                seeds.push_back(origin[d] + (a[d] - origin[d]) * share(i, na) +
                                (b[d] - origin[d]) * share(j, nb));
    return seeds;
}

std::vector<double> seeds_in_file(const std::string &path)
{
    if (path.size() > 4 && path.compare(path.size() - 4, 4, ".csv") == 0) return read_point_table(path).xyz;
    std::vector<double> seeds;
    const input_file file = read_file(path, {});
    for (vtkIdType i = 0; i < file.data->GetNumberOfPoints(); ++i) {
        double at[3];
        file.data->GetPoint(i, at);
        seeds.insert(seeds.end(), at, at + 3);
    }
    return seeds;
}

std::vector<double> random_seeds(const input_mesh &mesh, int64_t count)
{
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> share(0, 1);
    const auto below = [&](qx_long n) { return std::uniform_int_distribution<qx_long>(0, n - 1)(random); };
    std::vector<double> seeds;
    for (int64_t i = 0; i < count; ++i) {
        double place[3] = {0, 0, 0};
        const auto add = [&](vtkIdType node, double weight) {
            double at[3];
            mesh.data->GetPoint(node, at);
            for (int d = 0; d < 3; ++d)
                place[d] += weight * at[d];
        };
        if (mesh.structured()) {
            qx_long base[3] = {0, 0, 0};
            double t[3] = {0, 0, 0};
            for (size_t d = 0; d < mesh.dims.size(); ++d) {
                base[d] = below(std::max<qx_long>(mesh.dims[d] - 1, 1));
                t[d] = mesh.dims[d] > 1 ? share(random) : 0;
            }
            for (int corner = 0; corner < 8; ++corner) {
                qx_long node = 0, stride = 1;
                double weight = 1;
                for (size_t d = 0; d < 3; ++d) {
                    const bool far = (corner >> d & 1) != 0;
                    weight *= far ? t[d] : 1 - t[d];
                    if (d >= mesh.dims.size()) continue;
                    node += (base[d] + (far && mesh.dims[d] > 1 ? 1 : 0)) * stride;
                    stride *= mesh.dims[d];
                }
                if (weight > 0) add(node, weight);
            }
        } else {
            qx_long cell = below(mesh.mesh->ncells);
            size_t set = 0;
            while (cell >= mesh.sets[set].ncells)
                cell -= mesh.sets[set++].ncells;
            const cell_kind_nodes &kind = cell_kinds[mesh.sets[set].kind];
            const int nnodes = mesh.sets[set].order == 1 ? kind.ncorners : kind.nnodes_2;
            double weights[8], sum = 0;
            for (int k = 0; k < kind.ncorners; ++k)
                sum += weights[k] = -std::log(1 - share(random)); // evenly over a simplex
            for (int k = 0; k < kind.ncorners; ++k)
                add(mesh.sets[set].connect[cell * nnodes + k], weights[k] / sum);
        }
        seeds.insert(seeds.end(), place, place + 3);
    }
    return seeds;
}
