// Threaded forms against the same work by one thread: peer / ours is how many times as fast they are. Where VTK has a
// filter that works in threads it takes part, with as many of them.
//
// Threads are worth their while where the aim of nine tenths of their number is met; one thread through a threaded form
// may cost a twentieth.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>

#include <vtkContour3DLinearGrid.h>
#include <vtkDataSet.h>
#include <vtkFlyingEdges3D.h>
#include <vtkPolyData.h>
#include <vtkTableBasedClipDataSet.h>
#include <vtkUnstructuredGrid.h>

#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <thread>

namespace bench {
namespace {

constexpr char sample[] = "marschner-lobb";
constexpr double level = 0.5;

void require(int result)
{
    if (result == 1) return;
    fprintf(stderr, "bench: an operation failed\n");
    exit(2);
}

double aim_of(int threads)
{
    return threads == 1 ? 0.95 : 0.9 * threads;
}

contender peer(contender c, double aim)
{
    c.as = role::peer;
    c.aim = aim;
    return c;
}

// ---- extractions --------------------------------------------------------------------------------------------

struct lists {
    qx_long nnodes = 0, ncells = 0;
    std::vector<qx_long *> all;
    std::vector<qx_long> sizes;

    lists() = default;
    lists(const lists &) = delete;
    lists &operator=(const lists &) = delete;
    ~lists()
    {
        for (qx_long *list : all)
            free(list);
    }

    void keep(qx_long *list, qx_long size)
    {
        all.push_back(list);
        sizes.push_back(size);
    }
};

// Two results are the same if their lists are: told by a sum over each in which places count.
made made_of(const std::shared_ptr<lists> &out, bool one_numbering)
{
    made output;
    output.cells = out->ncells;
    if (one_numbering) output.nodes = out->nnodes;
    output.kept = out;
    for (qx_long size : out->sizes)
        output.written_bytes += static_cast<double>(size) * sizeof(qx_long);
    if (one_numbering)
        output.checks = [out] {
            std::vector<double> sums;
            for (size_t l = 0; l < out->all.size(); ++l) {
                uint64_t sum = 0;
                for (qx_long i = 0; i < out->sizes[l]; ++i)
                    sum = sum * 31 + static_cast<uint64_t>(out->all[l][i]);
                sums.push_back(static_cast<double>(sum >> 12));
            }
            return std::vector<check>{{"lists", sums, 0}};
        };
    return output;
}

// threads 0: the plain form
contender surface(const char *name, const input_ptr &in, int threads, bool one_numbering)
{
    contender c;
    c.name = name;
    c.run = [=] {
        const auto out = std::make_shared<lists>();
        qx_long nline = 0, nline_conn = 0, ntri_conn = 0, *lo = nullptr, *hi = nullptr, *lines = nullptr,
                *triangles = nullptr;
        require(threads == 0 ? UTILisosurf(in->mesh, in->data(), in->type, 0, nullptr, level, &out->nnodes,
                                           &lo, &hi, &nline, &lines, &nline_conn, &out->ncells, &triangles,
                                           &ntri_conn, nullptr, nullptr)
                             : UTILmt_isosurf(threads, in->mesh, in->data(), in->type, 0, nullptr, level,
                                              &out->nnodes, &lo, &hi, &nline, &lines, &nline_conn,
                                              &out->ncells, &triangles, &ntri_conn, nullptr, nullptr));
        out->keep(lo, out->nnodes);
        out->keep(hi, out->nnodes);
        out->keep(lines, nline_conn);
        out->keep(triangles, ntri_conn);
        return made_of(out, one_numbering);
    };
    return c;
}

contender part_of(const char *name, const input_ptr &in, int threads)
{
    contender c;
    c.name = name;
    c.run = [=] {
        const auto out = std::make_shared<lists>();
        qx_long nold = 0, ncells[7], nconn[7], *old_nodes = nullptr, *lo = nullptr, *hi = nullptr, *conn[7];
        require(threads == 0
                    ? UTILcut(in->mesh, in->data(), in->type, 0, nullptr, level, 0, &nold, &old_nodes,
                              &out->nnodes, &lo, &hi, ncells, conn, nconn, nullptr, nullptr)
                    : UTILmt_cut(threads, in->mesh, in->data(), in->type, 0, nullptr, level, 0, &nold,
                                 &old_nodes, &out->nnodes, &lo, &hi, ncells, conn, nconn, nullptr, nullptr));
        out->keep(old_nodes, nold);
        out->keep(lo, out->nnodes);
        out->keep(hi, out->nnodes);
        for (int list = 0; list < 7; ++list) {
            out->keep(conn[list], nconn[list]);
            out->ncells += ncells[list];
        }
        return made_of(out, true);
    };
    return c;
}

template <typename Filter, typename Settings>
contender filtered(const char *name, const input_ptr &in, Settings settings)
{
    contender c;
    c.name = name;
    c.run = [=] {
        auto filter = vtkSmartPointer<Filter>::New();
        filter->SetInputData(in->theirs);
        filter->SetValue(0, level);
        filter->ComputeNormalsOff();
        filter->InterpolateAttributesOff();
        settings(filter.Get());
        filter->Update();
        vtkSmartPointer<vtkPolyData> data = vtkPolyData::SafeDownCast(filter->GetOutputDataObject(0));
        made output;
        output.cells = data->GetNumberOfCells();
        output.kept = std::make_shared<vtkSmartPointer<vtkPolyData>>(data);
        return output;
    };
    return peer(c, 1);
}

// ---- the host's extractions ---------------------------------------------------------------------------------------

made made_of(host_result *result)
{
    const std::shared_ptr<host_result> kept(result, host_free_result);
    made output;
    output.nodes = kept->nnodes;
    output.cells = kept->ncells;
    output.kept = kept;
    output.written_bytes =
        static_cast<double>(kept->nold) * sizeof(qx_long) +
        static_cast<double>(kept->nnodes - kept->nold) * (2 * sizeof(qx_long) + sizeof(float)) +
        static_cast<double>(kept->nnodes) * 3 * sizeof(float);
    for (int s = 0; s < kept->nsets; ++s)
        output.written_bytes += static_cast<double>(kept->sets[s].ncells) *
                                (cell_kinds[kept->sets[s].kind].ncorners + 1) * sizeof(qx_long);
    output.checks = [kept] {
        std::vector<double> sums;
        const auto add = [&](const auto *list, qx_long count) {
            uint64_t sum = 0;
            for (qx_long i = 0; i < count; ++i)
                sum = sum * 31 + static_cast<uint64_t>(static_cast<int64_t>(list[i] * 1048576));
            sums.push_back(static_cast<double>(sum >> 12));
        };
        const qx_long nnew = kept->nnodes - kept->nold;
        add(kept->first_node, nnew);
        add(kept->second_node, nnew);
        add(kept->coords, 3 * kept->nnodes);
        for (int s = 0; s < kept->nsets; ++s) {
            add(kept->sets[s].connect, kept->sets[s].ncells * cell_kinds[kept->sets[s].kind].ncorners);
            add(kept->sets[s].cell, kept->sets[s].ncells);
        }
        return std::vector<check>{{"lists", sums, 0}};
    };
    return output;
}

// A surface, or the part above it, with places and cells. threads 0: one.
contender host_extraction(const char *name, const input_ptr &in, bool surface, int threads)
{
    contender c;
    c.name = name;
    c.run = [=] {
        const host_array array = {in->data(), in->type, 1, nullptr};
        const host_level_options level_options = {sizeof level_options, 0, 0, threads};
        const host_cut_options cut_options = {sizeof cut_options, 0, 0, threads};
        host_result *result = nullptr;
        require(surface ? host_isosurf(in->field, &array, level, &level_options, &result)
                        : host_cut(in->field, &array, level, HOST_ABOVE, &cut_options, &result));
        return made_of(result);
    };
    return c;
}

contender clip(const input_ptr &in)
{
    contender c;
    c.name = "table-based clip";
    c.run = [=] {
        auto filter = vtkSmartPointer<vtkTableBasedClipDataSet>::New();
        filter->SetInputData(in->theirs);
        filter->SetValue(level);
        filter->Update();
        const vtkSmartPointer<vtkUnstructuredGrid> data = filter->GetOutput();
        made output;
        output.kept = std::make_shared<vtkSmartPointer<vtkUnstructuredGrid>>(data);
        return output;
    };
    return peer(c, 1);
}

// VTK's surface too comes with places, and merged nodes, but without the cells.
bench_case host_case(const char *name, const input_ptr &in, const std::string &size, bool surface,
                     int threads)
{
    bench_case c;
    c.name = name;
    c.size = size;
    c.contenders = {host_extraction("host", in, surface, threads),
                    peer(host_extraction("one thread", in, surface, 0), aim_of(threads))};
    const bool of_cells = in->mesh->ndim == 0;
    if (!surface)
        c.contenders.push_back(clip(in));
    else if (of_cells)
        c.contenders.push_back(
            filtered<vtkContour3DLinearGrid>("linear grid", in, [=](vtkContour3DLinearGrid *f) {
                f->MergePointsOn();
                f->SetSequentialProcessing(threads == 1);
            }));
    else
        c.contenders.push_back(filtered<vtkFlyingEdges3D>("flying edges", in, [](vtkFlyingEdges3D *f) {
            f->ComputeScalarsOff();
            f->ComputeGradientsOff();
        }));
    c.read_bytes = in->data_bytes() + (of_cells ? in->mesh_bytes() : 0);
    return c;
}

bench_case host_cells_case(int kind, const char *name, int64_t cubes, bool surface, int threads)
{
    const input_ptr in = cells_input({kind}, cubes, sample);
    return host_case(name, in, std::to_string(in->mesh->ncells) + " cells", surface, threads);
}

bench_case host_volume_case(const char *name, int64_t n, bool surface, int threads)
{
    const int64_t dims[3] = {n, n, n};
    const input_ptr in = structured_input(samples::layout::uniform, dims, sample);
    return host_case(name, in, std::to_string(n) + "^3", surface, threads);
}

// ---- the library's ------------------------------------------------------------------------------------------------

bench_case volume_case(int64_t n, int threads)
{
    const int64_t dims[3] = {n, n, n};
    const input_ptr in = structured_input(samples::layout::uniform, dims, sample);
    bench_case c;
    c.name = "threads, isosurface";
    c.size = std::to_string(n) + "^3";
    c.contenders = {surface("extract", in, threads, true),
                    peer(surface("one thread", in, 0, true), aim_of(threads)),
                    filtered<vtkFlyingEdges3D>("flying edges", in, [](vtkFlyingEdges3D *f) {
                        f->ComputeScalarsOff();
                        f->ComputeGradientsOff();
                    })};
    c.read_bytes = in->data_bytes();
    return c;
}

bench_case cut_case(int64_t n, int threads)
{
    const int64_t dims[3] = {n, n, n};
    const input_ptr in = structured_input(samples::layout::uniform, dims, sample);
    bench_case c;
    c.name = "threads, cut";
    c.size = std::to_string(n) + "^3";
    c.contenders = {part_of("cut", in, threads), peer(part_of("one thread", in, 0), aim_of(threads))};
    c.read_bytes = in->data_bytes();
    return c;
}

bench_case cells_case(int64_t cubes, int threads)
{
    const input_ptr in = cells_input({CELL_HEX}, cubes, sample);
    bench_case c;
    c.name = "threads, isosurface of hexes";
    c.size = std::to_string(in->mesh->ncells) + " cells";
    c.contenders = {surface("extract", in, threads, threads == 1),
                    peer(surface("one thread", in, 0, threads == 1), aim_of(threads)),
                    filtered<vtkContour3DLinearGrid>("linear grid", in, [=](vtkContour3DLinearGrid *f) {
                        f->MergePointsOn();
                        f->SetSequentialProcessing(threads == 1);
                    })};
    c.read_bytes = in->data_bytes() + static_cast<double>(in->mesh->ncells) * 8 * sizeof(qx_long);
    return c;
}

// ---- points -------------------------------------------------------------------------------------------------

bench_case scatter_case(int64_t npoints, int64_t n, int threads)
{
    struct scattered {
        std::vector<float> coords, values;
    };
    const auto in = std::make_shared<scattered>();
    std::mt19937 random(5);
    std::uniform_real_distribution<float> spread(0, 1);
    for (int64_t i = 0; i < 3 * npoints; ++i)
        in->coords.push_back(spread(random));
    for (int64_t i = 0; i < npoints; ++i)
        in->values.push_back(spread(random));
    const auto by = [=](const char *name, int nthreads) {
        contender c;
        c.name = name;
        c.run = [=] {
            const auto out = std::make_shared<std::vector<float>>(static_cast<size_t>(n * n * n));
            const qx_long dims[3] = {n, n, n};
            const float lo[3] = {0, 0, 0}, hi[3] = {1, 1, 1}, null_value = -1;
            int radius[3] = {3, 3, 3}, null_flag = 0;
            require(nthreads == 0
                        ? UTILscat_data_interp2(npoints, 3, in->coords.data(), DTYPE_FLOAT, 1,
                                                in->values.data(), lo, hi, 3, dims, radius, 2, &null_flag,
                                                &null_value, out->data())
                        : UTILmt_scat_data_interp2(nthreads, npoints, 3, in->coords.data(), DTYPE_FLOAT, 1,
                                                   in->values.data(), lo, hi, 3, dims, radius, 2, &null_flag,
                                                   &null_value, out->data()));
            made output;
            output.nodes = static_cast<int64_t>(out->size());
            output.written_bytes = static_cast<double>(out->size()) * sizeof(float);
            output.kept = out;
            output.checks = [out] {
                return std::vector<check>{{"values", std::vector<double>(out->begin(), out->end()), 0}};
            };
            return output;
        };
        return c;
    };
    bench_case c;
    c.name = "threads, scattered data";
    c.size = std::to_string(npoints) + " points, " + std::to_string(n) + "^3";
    c.contenders = {by("spread", threads), peer(by("one thread", 0), aim_of(threads))};
    c.read_bytes = static_cast<double>(npoints) * 4 * sizeof(float);
    return c;
}

using sampler = decltype(UTILinterpolate_data);

// A slice of the points; its rows of values in place.
void sample_slice(sampler *operation, const input &in, const blk_tbl *table, const float *places,
                  qx_long count, float *values)
{
    const int veclen = 1;
    int null_flag = 0;
    float largest = 1;
    double null_value = 0; // a slot of 8 bytes
    void *data = in.data(), *out = values;
    require(operation(count, places, 3, nullptr, in.mesh, table, 1, DTYPE_FLOAT, &veclen, &data, nullptr,
                      &largest, &null_flag, &null_value, 1, -1, &out));
}

bench_case sampling_case(int64_t cubes, int64_t npoints, int threads)
{
    const input_ptr in = cells_input({CELL_HEX}, cubes, sample);
    blk_tbl *made_table = nullptr;
    require(in->mesh->methods->interp_init_func(in->mesh, &made_table));
    const std::shared_ptr<blk_tbl> table(made_table, host_free_table);
    const auto places = std::make_shared<std::vector<float>>(random_places(*in, npoints));
    const auto by = [=](const char *name, int nthreads) {
        contender c;
        c.name = name;
        c.run = [=] {
            const auto values = std::make_shared<std::vector<float>>(static_cast<size_t>(npoints));
            if (nthreads == 0) {
                sample_slice(UTILinterpolate_data, *in, table.get(), places->data(), npoints, values->data());
            } else {
                std::vector<qx_long> shares(static_cast<size_t>(nthreads));
                UTILmt_divide_number(nthreads, npoints, shares.data());
                std::vector<std::thread> started;
                qx_long first = 0;
                for (const qx_long share : shares) {
                    started.emplace_back(sample_slice, UTILmt_interpolate_data, std::cref(*in), table.get(),
                                         places->data() + 3 * first, share, values->data() + first);
                    first += share;
                }
                for (std::thread &one : started)
                    one.join();
            }
            made output;
            output.nodes = npoints;
            output.written_bytes = static_cast<double>(npoints) * sizeof(float);
            output.kept = values;
            output.checks = [values] {
                return std::vector<check>{{"values", std::vector<double>(values->begin(), values->end()), 0}};
            };
            return output;
        };
        return c;
    };
    bench_case c;
    c.name = "threads, sample hexes";
    c.size = std::to_string(npoints) + " points";
    c.contenders = {by("query", threads), peer(by("one thread", 0), aim_of(threads))};
    c.read_bytes = in->data_bytes() + static_cast<double>(places->size()) * sizeof(float);
    return c;
}

} // namespace

void add_threads(suite *all, const sizes &of, int threads)
{
    const auto add = [&](const char *name, std::function<bench_case()> make) {
        all->cases.push_back({"threads", name, false, make});
    };
    add("threads, isosurface", [=] { return volume_case(of.volume, threads); });
    add("threads, cut", [=] { return cut_case(of.volume, threads); });
    add("threads, isosurface of hexes", [=] { return cells_case(of.hexes, threads); });
    add("threads, host's surface of hexes", [=] {
        return host_cells_case(CELL_HEX, "threads, host's surface of hexes", of.hexes, true, threads);
    });
    add("threads, host's surface of tets",
        [=] { return host_cells_case(CELL_TET, "threads, host's surface of tets", of.tets, true, threads); });
    add("threads, host's cut of hexes",
        [=] { return host_cells_case(CELL_HEX, "threads, host's cut of hexes", of.hexes, false, threads); });
    add("threads, host's surface",
        [=] { return host_volume_case("threads, host's surface", of.volume, true, threads); });
    add("threads, host's cut",
        [=] { return host_volume_case("threads, host's cut", of.volume / 2, false, threads); });
    add("threads, scattered data", [=] { return scatter_case(of.points / 5, of.lattice, threads); });
    add("threads, sample hexes", [=] { return sampling_case(of.hexes, of.points, threads); });
}

} // namespace bench
