// Points located and data sampled there, against VTK's probe with its static cell locator.
//
// The peer builds its locator in each update, so the whole of ours is table and query too; both halves also
// stand as cases of their own.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>
#include <skoklana_host.h>

#include <vtkCellLocatorStrategy.h>
#include <vtkDataSet.h>
#include <vtkFloatArray.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkProbeFilter.h>
#include <vtkStaticCellLocator.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numeric>

namespace bench {
namespace {

constexpr char sample[] = "marschner-lobb";

// ---- ours ---------------------------------------------------------------------------------------------------

using table_ptr = std::shared_ptr<blk_tbl>;

table_ptr table_of(const input &in)
{
    blk_tbl *table = nullptr;
    if (in.mesh->methods->interp_init_func(in.mesh, &table) != 1) {
        fprintf(stderr, "bench: no block table\n");
        exit(2);
    }
    return table_ptr(table, host_free_table);
}

constexpr float outside = -1; // the sample's values are 0 to 1

// Values differ in two ways. Our search leaves a last Newton step below 0.05 unapplied, and takes a cell for a
// point up to 0.05 outside it; parameters run over [-1, 1] or [0, 1]. Both come to at most a twentieth of a
// cell along each axis, over which the sample, of gradient 6 within its cube of size 2, varies by
// 6 * sqrt(3) / 20 cells, and twice that across a face where the gradient turns.
std::vector<check> checks_of(const input &in, const float *values, qx_long count)
{
    const bool iterated = in.parts[0].coords.size() > 0;
    const double within =
        iterated ? 2 * 2 * 6 * std::sqrt(3.0) / 20 / static_cast<double>(in.cubes_an_axis) : 1e-5;
    const double mean = std::accumulate(values, values + count, 0.0) / static_cast<double>(count);
    return {{"values", std::vector<double>(values, values + count), within}, {"mean", {mean}, 1e-3}};
}

made sampled(const input &in, std::vector<float> *places, const blk_tbl *table)
{
    const qx_long npts = static_cast<qx_long>(places->size()) / 3;
    const auto values =
        std::shared_ptr<float>(static_cast<float *>(malloc(static_cast<size_t>(npts) * sizeof(float))), free);
    const int veclen = 1;
    int null_flag = 0;
    float null_value = 0, largest = 1;
    void *data = in.data(), *out = values.get();
    if (UTILinterpolate_data(npts, places->data(), 3, nullptr, in.mesh, table, 1, DTYPE_FLOAT, &veclen, &data,
                             nullptr, &largest, &null_flag, &null_value, 1, outside, &out) != 1) {
        fprintf(stderr, "bench: sampling failed\n");
        exit(2);
    }
    made output;
    output.cells = npts - std::count(values.get(), values.get() + npts, outside);
    output.written_bytes = static_cast<double>(npts) * sizeof(float);
    output.kept = values;
    output.checks = [=, &in] { return checks_of(in, values.get(), npts); };
    return output;
}

// ---- ours, exact -------------------------------------------------------------------------------------------

using locator_ptr = std::shared_ptr<host_locator>;

locator_ptr exact_locator_of(const input &in)
{
    host_locator *locator = nullptr;
    if (host_make_locator(in.field, nullptr, &locator) != HOST_DONE) {
        fprintf(stderr, "bench: %s\n", host_error());
        exit(2);
    }
    return locator_ptr(locator, host_free_locator);
}

// Both sides end within rounding of the place, in double and in float.
std::vector<check> exact_checks_of(const float *values, qx_long count)
{
    return {{"values", std::vector<double>(values, values + count), 1e-3}};
}

made sampled_exactly(const input &in, const std::vector<float> &places, const host_locator *locator)
{
    const qx_long npts = static_cast<qx_long>(places.size()) / 3;
    const auto values =
        std::shared_ptr<float>(static_cast<float *>(malloc(static_cast<size_t>(npts) * sizeof(float))), free);
    std::vector<unsigned char> mask(static_cast<size_t>(npts));
    const host_array points = {places.data(), DTYPE_FLOAT, 3, nullptr},
                     data = {in.data(), DTYPE_FLOAT, 1, nullptr};
    host_places *located = nullptr;
    if (host_locate(locator, &points, npts, &located) != HOST_DONE ||
        host_sample_nodes(located, &data, values.get(), mask.data()) != HOST_DONE) {
        fprintf(stderr, "bench: %s\n", host_error());
        exit(2);
    }
    host_free_places(located);
    made output;
    output.cells = std::count(mask.begin(), mask.end(), 1);
    output.written_bytes = static_cast<double>(npts) * sizeof(float);
    output.kept = values;
    output.checks = [=] { return exact_checks_of(values.get(), npts); };
    return output;
}

// ---- theirs -------------------------------------------------------------------------------------------------

vtkSmartPointer<vtkStaticCellLocator> locator_of(const input &in)
{
    auto locator = vtkSmartPointer<vtkStaticCellLocator>::New();
    locator->SetDataSet(in.theirs);
    locator->BuildLocator();
    return locator;
}

enum class search { data_set, new_locator, given_locator };

made probed(const input &in, std::vector<float> *places, search how, vtkStaticCellLocator *locator,
            bool exact = false)
{
    auto array = vtkSmartPointer<vtkFloatArray>::New();
    array->SetNumberOfComponents(3);
    array->SetArray(places->data(), static_cast<vtkIdType>(places->size()), 1);
    auto points = vtkSmartPointer<vtkPoints>::New();
    points->SetData(array);
    auto at = vtkSmartPointer<vtkPolyData>::New();
    at->SetPoints(points);
    auto probe = vtkSmartPointer<vtkProbeFilter>::New();
    if (how == search::new_locator)
        probe->SetCellLocatorPrototype(vtkSmartPointer<vtkStaticCellLocator>::New());
    if (how == search::given_locator) {
        auto strategy = vtkSmartPointer<vtkCellLocatorStrategy>::New();
        strategy->SetCellLocator(locator);
        probe->SetFindCellStrategy(strategy);
    }
    probe->SetInputData(at);
    probe->SetSourceData(in.theirs);
    probe->Update();
    vtkSmartPointer<vtkDataArray> values = probe->GetOutput()->GetPointData()->GetArray(sample);
    made output;
    output.cells = probe->GetValidPoints()->GetNumberOfValues();
    output.kept = std::make_shared<vtkSmartPointer<vtkDataArray>>(values);
    output.checks = [=, &in] {
        const float *first = static_cast<const float *>(values->GetVoidPointer(0));
        const qx_long count = values->GetNumberOfTuples();
        return exact ? exact_checks_of(first, count) : checks_of(in, first, count);
    };
    return output;
}

// ---- cases --------------------------------------------------------------------------------------------------

contender their_probe(const char *name, std::function<made()> run)
{
    contender c;
    c.name = name;
    c.as = role::peer;
    c.run = std::move(run);
    c.aim = 1;
    return c;
}

contender ours(const char *name, std::function<made()> run)
{
    contender c;
    c.name = name;
    c.run = std::move(run);
    return c;
}

std::string points_text(int64_t npoints)
{
    return std::to_string(npoints) + " points";
}

// Points and data of the whole mesh are read: there are about as many points as cells.
double bytes_read(const input &in, const std::vector<float> &places)
{
    return in.data_bytes() + in.mesh_bytes() + static_cast<double>(places.size() * sizeof(float));
}

bench_case whole_case(const std::string &what, const input_ptr &in, int64_t npoints, bool locator)
{
    const auto places = std::make_shared<std::vector<float>>(random_places(*in, npoints));
    bench_case c;
    c.name = "sample, " + what;
    c.size = points_text(npoints);
    c.contenders = {ours(locator ? "table, query" : "query",
                         [=] { return sampled(*in, places.get(), table_of(*in).get()); }),
                    their_probe(locator ? "probe, static cell locator" : "probe", [=] {
                        return probed(*in, places.get(), locator ? search::new_locator : search::data_set,
                                      nullptr);
                    })};
    c.read_bytes = bytes_read(*in, *places);
    return c;
}

bench_case exact_case(const std::string &what, const input_ptr &in, int64_t npoints, bool locator)
{
    const auto places = std::make_shared<std::vector<float>>(random_places(*in, npoints));
    bench_case c;
    c.name = "sample exactly, " + what;
    c.size = points_text(npoints);
    contender peer = their_probe(locator ? "probe, static cell locator" : "probe", [=] {
        return probed(*in, places.get(), locator ? search::new_locator : search::data_set, nullptr, true);
    });
    if (locator) peer.aim = 3;
    c.contenders = {ours(locator ? "table, places, values" : "places, values",
                         [=] { return sampled_exactly(*in, *places, exact_locator_of(*in).get()); }),
                    peer};
    c.read_bytes = bytes_read(*in, *places);
    return c;
}

bench_case query_case(const std::string &what, const input_ptr &in, int64_t npoints)
{
    const auto places = std::make_shared<std::vector<float>>(random_places(*in, npoints));
    const table_ptr table = table_of(*in);
    const auto locator = locator_of(*in);
    bench_case c;
    c.name = "query alone, " + what;
    c.size = points_text(npoints);
    c.contenders = {ours("query", [=] { return sampled(*in, places.get(), table.get()); }),
                    their_probe("probe, given locator", [=] {
                        return probed(*in, places.get(), search::given_locator, locator.Get());
                    })};
    c.read_bytes = bytes_read(*in, *places);
    return c;
}

bench_case build_case(const std::string &what, const input_ptr &in)
{
    bench_case c;
    c.name = "build alone, " + what;
    c.size = std::to_string(in->theirs->GetNumberOfCells()) + " cells";
    c.contenders = {ours("block table",
                         [=] {
                             made output;
                             output.kept = table_of(*in);
                             return output;
                         }),
                    their_probe("static cell locator", [=] {
                        made output;
                        output.kept =
                            std::make_shared<vtkSmartPointer<vtkStaticCellLocator>>(locator_of(*in));
                        return output;
                    })};
    c.read_bytes = in->mesh_bytes();
    return c;
}

} // namespace

void add_sampling(suite *all, const sizes &of)
{
    struct mesh_case {
        const char *what;
        bool locator;
        std::function<input_ptr()> make;
    };
    const auto structured = [=](samples::layout layout) {
        return [=] {
            const int64_t dims[3] = {of.lattice, of.lattice, of.lattice};
            return structured_input(layout, dims, sample);
        };
    };
    const mesh_case meshes[] = {
        {"hexes", true, [=] { return cells_input({CELL_HEX}, of.hexes, sample); }},
        {"tets", true, [=] { return cells_input({CELL_TET}, of.tets, sample); }},
        {"curvilinear", true, structured(samples::layout::curvilinear)},
        {"rectilinear", false, structured(samples::layout::rectilinear)},
        {"uniform", false, structured(samples::layout::uniform)},
    };
    for (const mesh_case &m : meshes) {
        const std::string what = m.what;
        const auto add = [&](const std::string &name, std::function<bench_case()> make) {
            all->cases.push_back({"sampling", name, true, make});
        };
        add("sample, " + what, [=] { return whole_case(what, m.make(), of.points, m.locator); });
        add("sample exactly, " + what, [=] { return exact_case(what, m.make(), of.points, m.locator); });
        if (!m.locator) continue;
        add("query alone, " + what, [=] { return query_case(what, m.make(), of.points); });
        add("build alone, " + what, [=] { return build_case(what, m.make()); });
    }

    growth_entry points, cells;
    points.name = "growth, hexes sampled, by points";
    cells.name = "growth, hexes sampled, by cells";
    for (int step = 0; step < 4; ++step) {
        const int64_t npoints = of.growth_points << step, cubes = of.growth_cells << step;
        points.sizes.push_back(points_text(npoints));
        points.elements.push_back(static_cast<double>(npoints));
        cells.sizes.push_back(std::to_string(cubes) + "^3");
        cells.elements.push_back(static_cast<double>(cubes * cubes * cubes));
    }
    points.prepare = [=](size_t step) {
        return whole_case("hexes", meshes[0].make(), of.growth_points << step, true);
    };
    cells.prepare = [=](size_t step) {
        const int64_t cubes = of.growth_cells << step;
        return whole_case("hexes", cells_input({CELL_HEX}, cubes, sample), of.growth_points, true);
    };
    all->growth.push_back(points);
    all->growth.push_back(cells);
}

} // namespace bench
