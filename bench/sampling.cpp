// Points located and data sampled there, against VTK's probe with its static cell locator.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>

#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkFloatArray.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkProbeFilter.h>
#include <vtkStaticCellLocator.h>

#include <cmath>
#include <numeric>

namespace bench {
namespace {

// A polynomial of second degree in each axis: smooth, so that both sides' sums agree closely.
double bowl(double x, double y, double z)
{
    return x * x + 0.5 * y * y - z * z + x * y;
}

using table_ptr = std::shared_ptr<blk_tbl>;

table_ptr table_of(const input_ptr &in)
{
    blk_tbl *table = nullptr;
    in->mesh->methods->interp_init_func(in->mesh, &table);
    return table_ptr(table, host_free_table);
}

contender our_table(const input_ptr &in)
{
    contender c;
    c.name = "block table alone";
    c.same_cells = false;
    c.run = [=] {
        made output;
        output.kept = table_of(in);
        return output;
    };
    return c;
}

struct samples {
    std::vector<float> values;
};

double mean(const std::vector<float> &values)
{
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

// Builds the table and samples: the whole of what the peer does in one update.
contender our_probe(const input_ptr &in, const std::shared_ptr<std::vector<float>> &places)
{
    contender c;
    c.name = "table, locate, sample";
    c.run = [=] {
        const qx_long npts = static_cast<qx_long>(places->size()) / 3;
        auto out = std::make_shared<samples>();
        out->values.resize(static_cast<size_t>(npts));
        const table_ptr table = table_of(in);
        const int veclen = 1;
        int null_flag = 0;
        double null_value = 0;
        void *data = in->data.data(), *values = out->values.data();
        const float largest = 0;
        UTILinterpolate_data(npts, places->data(), 3, nullptr, in->mesh, table.get(), 1, DTYPE_FLOAT, &veclen,
                             &data, nullptr, const_cast<float *>(&largest), &null_flag, &null_value, 1, -1e30,
                             &values);
        made output;
        output.cells = npts;
        output.kept = out;
        output.measure = [out] { return mean(out->values); };
        return output;
    };
    return c;
}

contender their_probe(const input_ptr &in, const std::shared_ptr<std::vector<float>> &places,
                      bool with_locator)
{
    contender c;
    c.name = with_locator ? "probe, static cell locator" : "probe";
    c.measure_within = 1e-2;
    c.run = [=] {
        auto points = vtkSmartPointer<vtkPoints>::New();
        auto array = vtkSmartPointer<vtkFloatArray>::New();
        array->SetNumberOfComponents(3);
        array->SetArray(places->data(), static_cast<vtkIdType>(places->size()), 1);
        points->SetData(array);
        auto at = vtkSmartPointer<vtkPolyData>::New();
        at->SetPoints(points);
        auto probe = vtkSmartPointer<vtkProbeFilter>::New();
        if (with_locator) {
            auto prototype = vtkSmartPointer<vtkStaticCellLocator>::New();
            probe->SetCellLocatorPrototype(prototype);
        }
        probe->SetInputData(at);
        probe->SetSourceData(in->theirs);
        probe->Update();
        vtkSmartPointer<vtkDataArray> values = probe->GetOutput()->GetPointData()->GetArray("data");
        made output;
        output.cells = values->GetNumberOfTuples();
        output.kept = std::make_shared<vtkSmartPointer<vtkDataArray>>(values);
        output.measure = [values] {
            double sum = 0;
            for (vtkIdType i = 0; i < values->GetNumberOfTuples(); ++i)
                sum += values->GetComponent(i, 0);
            return sum / static_cast<double>(values->GetNumberOfTuples());
        };
        return output;
    };
    return c;
}

bench_case probe_case(const char *what, const input_ptr &in, qx_long npoints, bool needs_locator)
{
    bench_case c;
    c.name = std::string("sample, ") + what;
    c.size = std::to_string(npoints) + " points";
    const auto places = std::make_shared<std::vector<float>>(random_places(npoints));
    c.ours = {our_probe(in, places)};
    if (needs_locator) c.ours.push_back(our_table(in));
    c.peers = {their_probe(in, places, needs_locator)};
    // Read the points, write the values, read the corners' data of the cell that holds each.
    c.floor_bytes = static_cast<double>(npoints) * (3 + 1 + 8) * sizeof(float);
    c.aim = 1.0;
    return c;
}

constexpr qx_long million = 1000000;

} // namespace

void add_sampling(suite &all)
{
    all.push_back({"sampling", "sample, hexes", true, [] {
                       return probe_case("hexes", cells_input(cut_into::hexes, 100, bowl), million, true);
                   }});
    all.push_back({"sampling", "sample, tets", true,
                   [] { return probe_case("tets", cells_input(cut_into::tets, 55, bowl), million, true); }});
    all.push_back({"sampling", "sample, uniform 128^3", true, [] {
                       return probe_case("uniform 128^3", uniform_input(128, 128, 128, bowl), million, false);
                   }});
    all.push_back({"sampling", "sample, rectilinear 128^3", true, [] {
                       return probe_case("rectilinear 128^3", rectilinear_input(128, bowl), million, false);
                   }});
    all.push_back({"sampling", "sample, curvilinear 128^3", true, [] {
                       return probe_case("curvilinear 128^3", curvilinear_input(128, bowl), million, true);
                   }});
}

void add_sampling_growth(std::vector<growth_entry> &all)
{
    growth_entry hexes = {"sample 100000 points, hexes", {"25^3", "50^3", "100^3", "200^3"}, nullptr, {}};
    for (int i = 0; i < 4; ++i)
        hexes.elements.push_back(std::pow(25.0 * (1 << i), 3));
    hexes.prepare = [](int i) {
        return probe_case("hexes", cells_input(cut_into::hexes, qx_long{25} << i, bowl), 100000, true);
    };
    all.push_back(hexes);
}

} // namespace bench
