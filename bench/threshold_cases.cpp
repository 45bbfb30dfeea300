// Node classification against the machine's copy, removal of null nodes against VTK's threshold.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>

#include <vtkThreshold.h>
#include <vtkUnstructuredGrid.h>

#include <cmath>
#include <cstring>

namespace bench {
namespace {

double waves(double x, double y, double z)
{
    return std::sin(6 * x) + std::sin(6 * y) + std::sin(6 * z);
}

bench_case classify_case()
{
    const qx_long n = 256 * 256 * 256;
    const auto data = std::make_shared<std::vector<float>>(static_cast<size_t>(n));
    for (qx_long i = 0; i < n; ++i)
        (*data)[static_cast<size_t>(i)] = static_cast<float>((i * 7919) % 1000);
    const auto flags = std::make_shared<std::vector<unsigned char>>(static_cast<size_t>(n), 3);
    bench_case c;
    c.name = "classify nodes, float";
    c.size = "256^3";
    contender ours;
    ours.name = "threshold_scalar";
    ours.run = [=] {
        UTILthreshold_scalar(n, data->data(), DTYPE_FLOAT, 0, nullptr, 1, 500, 0, 1, 2, flags->data());
        made output;
        output.cells = n;
        return output;
    };
    c.ours = {ours};
    c.floor_bytes = static_cast<double>(n) * (sizeof(float) + 1);
    return c;
}

// Cells with a null node go, against cells with a node outside the range: the same cells.
bench_case removal_case()
{
    const input_ptr in = cells_input(cut_into::hexes, 100, waves);
    const float null_value = -9;
    for (float &value : in->data)
        if (value < 0) value = null_value;
    bench_case c;
    c.name = "remove null nodes, hexes";
    c.size = std::to_string(in->mesh->ncells) + " cells";
    contender ours;
    ours.name = "thresh_null";
    ours.run = [=] {
        qx_long nkept = 0, *map = nullptr, *cell_list[1] = {nullptr}, ncells[1] = {0}, *conn[1] = {nullptr},
                conn_size[1] = {0};
        UTILthresh_null(in->mesh, in->data.data(), DTYPE_FLOAT, &null_value, &nkept, &map, cell_list, ncells,
                        conn, conn_size);
        made output;
        output.nodes = nkept;
        output.cells = ncells[0];
        qx_long *blocks[3] = {map, cell_list[0], conn[0]};
        output.kept = std::shared_ptr<void>(nullptr, [=](void *) {
            for (qx_long *block : blocks)
                free(block);
        });
        return output;
    };
    contender theirs;
    theirs.name = "threshold";
    theirs.run = [=] {
        auto filter = vtkSmartPointer<vtkThreshold>::New();
        filter->SetInputData(in->theirs);
        filter->SetThresholdFunction(vtkThreshold::THRESHOLD_UPPER);
        filter->SetUpperThreshold(0);
        filter->AllScalarsOn();
        filter->Update();
        vtkSmartPointer<vtkUnstructuredGrid> grid = filter->GetOutput();
        made output;
        output.cells = grid->GetNumberOfCells();
        output.kept = std::make_shared<vtkSmartPointer<vtkUnstructuredGrid>>(grid);
        return output;
    };
    c.ours = {ours};
    c.peers = {theirs};
    c.floor_bytes =
        static_cast<double>(in->data.size() * sizeof(float) + in->connect[0].size() * sizeof(qx_long));
    c.aim = 1.0;
    return c;
}

} // namespace

void add_threshold(suite &all)
{
    all.push_back({"threshold", "classify nodes, float", true, classify_case});
    all.push_back({"threshold", "remove null nodes, hexes", true, removal_case});
}

} // namespace bench
