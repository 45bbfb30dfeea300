#include "stream_lines.hpp"

#include "csv.hpp"
#include "failure.hpp"
#include "line_tracer.hpp"
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
    case line_end::goes_on: break;
    case line_end::left_mesh: return "left the mesh";
    case line_end::no_value: return "came to nodes without a value";
    case line_end::slow: return "came to rest";
    case line_end::max_steps: return "took all steps";
    case line_end::max_length: return "reached their length";
    case line_end::too_fast: return "came to where no step is short enough";
    }
    return "";
}

// ---- results --------------------------------------------------------------------------------------------------------

namespace {

// Collects lines into polygonal data. VTK's cells come lines first, then strips: rows of cell arrays wait for both.
class line_collector {
  public:
    line_collector(const double *offset_, const std::string &field, int veclen_, bool both_)
        : veclen(veclen_), name(field == "speed" || field == "time" ? field + "_vector" : field), both(both_)
    {
        std::copy_n(offset_, 3, offset);
        if (offset[0] != 0 || offset[1] != 0 || offset[2] != 0) points->SetDataTypeToDouble();
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

bool put_into_plane(const double box[6], scalar_array *vectors)
{
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

// Nodes in one place make no ribbon.
void drop_equal_nodes(traced_line *line)
{
    line->nodes.erase(
        std::unique(line->nodes.begin(), line->nodes.end(),
                    [](const line_node &a, const line_node &b) { return std::equal(a.at, a.at + 3, b.at); }),
        line->nodes.end());
}

} // namespace

static int curl_as_slopes(mesh_info *, qx_long node, int, const void *curls, int, int, const void *,
                          const float *, float *slopes)
{
    const float *curl = static_cast<const float *>(curls) + 3 * node;
    std::fill_n(slopes, 9, 0.0f);
    slopes[5] = curl[0]; // the third component along the second axis, and so on
    slopes[6] = curl[1];
    slopes[1] = curl[2];
    return 1;
}

// The other edge of a ribbon along a line, rows of 3; false where the field has no derivatives all along. Of the field
// the library sees the curl that each node brings, as its mesh may be in memory no more.
//
// The library's first row is beside the line by less than the width, and has no rate of turning. So the line gets a node
// ahead of its first, from which it comes straight in no time.
static bool make_edge(const std::vector<line_node> &nodes, double width, std::vector<float> *edge)
{
    std::vector<float> places, vecs, curls, params, speeds, times;
    std::vector<qx_long> numbers;
    const auto add_row = [&](const line_node &node, const float *at, double time) {
        places.insert(places.end(), at, at + 3);
        vecs.insert(vecs.end(), node.vector, node.vector + 3);
        curls.insert(curls.end(), node.curl, node.curl + 3);
        params.insert(params.end(), node.uvw, node.uvw + 3);
        speeds.push_back(node.speed);
        numbers.push_back(static_cast<qx_long>(numbers.size()));
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
    mesh_methods methods = {};
    methods.deriv3d_func = curl_as_slopes;
    int solid = 3;
    mesh_info mesh = {};
    mesh.methods = &methods;
    mesh.cell_ndim = &solid;
    float width_there, angle;
    if (UTILribbon(&mesh, static_cast<int>(numbers.size()), 3, places.data(), vecs.data(), numbers.data(),
                   params.data(), speeds.data(), times.data(), 3, curls.data(), DTYPE_FLOAT, 0, nullptr, 1,
                   width, 0, &width_there, &angle) != 1)
        return false;
    edge->assign(places.begin() + static_cast<long>(n) + 3, places.end());
    return std::all_of(edge->begin(), edge->end(), [](float x) { return std::isfinite(x); });
}

stream_lines collect_lines(const double offset[3], const std::string &field, int veclen,
                           const line_options &options, std::vector<traced_line> lines)
{
    stream_lines made;
    line_collector collected(offset, field, veclen, options.both);
    for (size_t i = 0; i < lines.size(); ++i) {
        traced_line &line = lines[i];
        const auto seed = static_cast<int64_t>(i);
        if (line.nodes.empty()) {
            ++(line.in_cell ? made.still : made.outside);
            continue;
        }
        drop_equal_nodes(&line);
        if (line.nodes.size() < 2) {
            ++made.pointlike;
            continue;
        }
        ++made.ends[static_cast<int>(line.ended)];
        if (options.both) ++made.ends[static_cast<int>(line.began)];
        std::vector<float> edge;
        if (options.ribbon_width > 0 && make_edge(line.nodes, options.ribbon_width, &edge)) {
            collected.add_ribbon(line, edge, seed);
        } else {
            collected.add_line(line, seed);
            made.plain += options.ribbon_width > 0 ? 1 : 0;
        }
        line.nodes = {};
    }
    host_clear_reports(); // derivatives that can't be had leave some
    collected.finish(&made);
    return made;
}

stream_lines trace_lines(const std::string &path, const input_mesh &mesh, scalar_array vectors,
                         const std::vector<double> &seeds, const line_options &options)
{
    const std::string what = path + ": tracing";
    const operation run("tracing");
    double box[6];
    mesh.data->GetBounds(box);
    const bool flattened = put_into_plane(box, &vectors);
    const int64_t nseeds = static_cast<int64_t>(seeds.size()) / 3;
    // A line takes about as long as a thousand points. A mesh that is searched by the library serves one thread.
    const bool by_library = options.by_library || is_curved(mesh);
    const auto nthreads =
        static_cast<size_t>(by_library ? 1 : std::min<int64_t>(threads_for(nseeds * 1000), nseeds));
    std::unique_ptr<host_locator, freed_locator> locator;
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
    std::vector<traced_line> lines(static_cast<size_t>(nseeds));
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
            lines[static_cast<size_t>(i)] = tracers[static_cast<size_t>(k)]->trace(seed);
        }
    });
    if (stopped) run.check(false, what);
    stream_lines made =
        collect_lines(mesh.offset, vectors.array.name, vectors.array.veclen, options, std::move(lines));
    made.flattened = flattened;
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
