#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "to_vtk.hpp"

#include <skoklana/array.h>

#include <vtkCellData.h>
#include <vtkDoubleArray.h>
#include <vtkFloatArray.h>
#include <vtkImageData.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkRectilinearGrid.h>
#include <vtkStructuredGrid.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace {

using sizes = std::array<qx_long, 3>;

class resample : public command {
  public:
    explicit resample(CLI::App &app);
    void run() override;

  private:
    sizes wanted(const sizes &from) const;

    input_options file;
    with_options with;
    std::vector<int64_t> size;
    result_options result;
};

resample::resample(CLI::App &app)
    : file(app), with(app), result(app, "result: .vti, .vtr or .vts, as the input")
{
    app.add_option("--size", size, "nodes along each axis: NX,NY,NZ")
        ->required()
        ->delimiter(',')
        ->expected(1, 3);
    app.footer(
        "The new lattice has its corners on the old one's, and its nodes as far along each axis as their\n"
        "numbers tell. A node has the values of the nearest old node by number, a cell those of the old\n"
        "cell that holds its middle. For values in between, and for other meshes, see probe --grid.");
}

sizes dims_of(vtkDataSet *data)
{
    int dims[3] = {0, 0, 0};
    if (auto *image = vtkImageData::SafeDownCast(data)) image->GetDimensions(dims);
    if (auto *grid = vtkRectilinearGrid::SafeDownCast(data)) grid->GetDimensions(dims);
    if (auto *grid = vtkStructuredGrid::SafeDownCast(data)) grid->GetDimensions(dims);
    return {dims[0], dims[1], dims[2]};
}

qx_long nodes_in(const sizes &dims)
{
    return dims[0] * dims[1] * dims[2];
}

// Cells along each axis; a flat axis counts as one.
sizes cells_of(const sizes &dims)
{
    return {std::max<qx_long>(dims[0] - 1, 1), std::max<qx_long>(dims[1] - 1, 1),
            std::max<qx_long>(dims[2] - 1, 1)};
}

sizes resample::wanted(const sizes &from) const
{
    sizes to = {1, 1, 1};
    for (size_t d = 0; d < size.size(); ++d) {
        if (size[d] < 1 || size[d] > INT32_MAX)
            throw failure("--size takes numbers of nodes from 1 on", exit_usage);
        to[d] = size[d];
    }
    for (size_t d = 0; d < 3; ++d)
        if ((from[d] > 1) != (to[d] > 1))
            throw failure("--size: axis " + std::to_string(d + 1) + " has " + std::to_string(from[d]) +
                              (from[d] > 1 ? " nodes; give at least 2" : " node, and keeps it"),
                          exit_usage);
    if (static_cast<double>(to[0]) * static_cast<double>(to[1]) * static_cast<double>(to[2]) > 1e12)
        throw failure("--size: that is more than 10^12 nodes", exit_usage);
    return to;
}

// Where an output node stands between input nodes.
struct between {
    qx_long low;
    double t;
};

between place_of(qx_long i, qx_long from, qx_long to)
{
    if (to == 1 || from == 1) return {0, 0};
    const double at = static_cast<double>(i) * static_cast<double>(from - 1) / static_cast<double>(to - 1);
    const qx_long low = std::min(static_cast<qx_long>(at), from - 2);
    return {low, at - static_cast<double>(low)};
}

vtkSmartPointer<vtkDataSet> resampled(vtkImageData *image, const sizes &from, const sizes &to)
{
    auto made = vtkSmartPointer<vtkImageData>::New();
    double spacing[3], origin[3];
    int extent[6];
    image->GetSpacing(spacing);
    image->GetExtent(extent);
    // an extent need not start at 0
    image->TransformIndexToPhysicalPoint(extent[0], extent[2], extent[4], origin);
    for (size_t d = 0; d < 3; ++d)
        if (to[d] > 1) spacing[d] *= static_cast<double>(from[d] - 1) / static_cast<double>(to[d] - 1);
    made->SetOrigin(origin);
    made->SetSpacing(spacing);
    made->SetDirectionMatrix(image->GetDirectionMatrix());
    made->SetDimensions(static_cast<int>(to[0]), static_cast<int>(to[1]), static_cast<int>(to[2]));
    return made;
}

vtkSmartPointer<vtkDataArray> axis_between(vtkDataArray *axis, qx_long to)
{
    auto made = vtkSmartPointer<vtkDataArray>::Take(axis->NewInstance());
    made->SetNumberOfTuples(static_cast<vtkIdType>(to));
    for (qx_long i = 0; i < to; ++i) {
        const between at = place_of(i, axis->GetNumberOfTuples(), to);
        const double low = axis->GetComponent(static_cast<vtkIdType>(at.low), 0);
        const double high = at.t > 0 ? axis->GetComponent(static_cast<vtkIdType>(at.low) + 1, 0) : low;
        made->SetComponent(static_cast<vtkIdType>(i), 0, low + at.t * (high - low));
    }
    return made;
}

vtkSmartPointer<vtkDataSet> resampled(vtkRectilinearGrid *grid, const sizes &to)
{
    auto made = vtkSmartPointer<vtkRectilinearGrid>::New();
    made->SetDimensions(static_cast<int>(to[0]), static_cast<int>(to[1]), static_cast<int>(to[2]));
    made->SetXCoordinates(axis_between(grid->GetXCoordinates(), to[0]));
    made->SetYCoordinates(axis_between(grid->GetYCoordinates(), to[1]));
    made->SetZCoordinates(axis_between(grid->GetZCoordinates(), to[2]));
    return made;
}

vtkSmartPointer<vtkDataSet> resampled(vtkStructuredGrid *grid, const sizes &from, const sizes &to)
{
    auto made = vtkSmartPointer<vtkStructuredGrid>::New();
    auto points = vtkSmartPointer<vtkPoints>::New();
    points->SetDataType(grid->GetPoints()->GetDataType());
    points->SetNumberOfPoints(static_cast<vtkIdType>(nodes_in(to)));
    for (qx_long k = 0; k < to[2]; ++k)
        for (qx_long j = 0; j < to[1]; ++j)
            for (qx_long i = 0; i < to[0]; ++i) {
                const between at[3] = {place_of(i, from[0], to[0]), place_of(j, from[1], to[1]),
                                       place_of(k, from[2], to[2])};
                double x[3] = {0, 0, 0};
                for (int corner = 0; corner < 8; ++corner) {
                    double weight = 1;
                    qx_long node = 0, stride = 1;
                    for (int d = 0; d < 3; ++d) {
                        const bool upper = (corner >> d & 1) != 0;
                        weight *= upper ? at[d].t : 1 - at[d].t;
                        node += (at[d].low + (upper && at[d].t > 0 ? 1 : 0)) * stride;
                        stride *= from[static_cast<size_t>(d)];
                    }
                    if (weight == 0) continue;
                    double p[3];
                    grid->GetPoint(static_cast<vtkIdType>(node), p);
                    for (int d = 0; d < 3; ++d)
                        x[d] += weight * p[d];
                }
                const qx_long node = (k * to[1] + j) * to[0] + i;
                points->SetPoint(static_cast<vtkIdType>(node), x);
            }
    made->SetDimensions(static_cast<int>(to[0]), static_cast<int>(to[1]), static_cast<int>(to[2]));
    made->SetPoints(points);
    return made;
}

// The old cell that holds the middle of each new one.
std::vector<qx_long> cells_at_middles(const sizes &from, const sizes &to)
{
    std::array<std::vector<qx_long>, 3> along;
    for (size_t d = 0; d < 3; ++d)
        for (qx_long i = 0; i < to[d]; ++i)
            along[d].push_back((2 * i + 1) * from[d] / (2 * to[d]));
    std::vector<qx_long> list;
    for (const qx_long k : along[2])
        for (const qx_long j : along[1])
            for (const qx_long i : along[0])
                list.push_back((k * from[1] + j) * from[0] + i);
    return list;
}

void resample::run()
{
    const input in = file.read();
    vtkDataSet *data = in.file.data;
    const sizes from = dims_of(data);
    if (from[0] < 1)
        throw failure(file.path() + ": is no lattice; probe --grid samples any mesh at the nodes of one");
    const sizes to = wanted(from);
    result.check(ending_of_data(data), "this mesh");
    const carried_arrays carried = with.choose(in);
    stage_done("read");

    vtkSmartPointer<vtkDataSet> made;
    if (auto *image = vtkImageData::SafeDownCast(data)) made = resampled(image, from, to);
    if (auto *grid = vtkRectilinearGrid::SafeDownCast(data)) made = resampled(grid, to);
    if (auto *grid = vtkStructuredGrid::SafeDownCast(data)) made = resampled(grid, from, to);
    for (const typed_array &array : carried.node) {
        const typed_array out = like(array, nodes_in(to));
        UTILresample(3, from.data(), to.data(), array.veclen, array.type, array.values, out.values);
        made->GetPointData()->AddArray(out.kept);
    }
    if (!carried.cell.empty()) {
        const std::vector<qx_long> list = cells_at_middles(cells_of(from), cells_of(to));
        for (const typed_array &array : carried.cell) {
            const typed_array out = like(array, static_cast<qx_long>(list.size()));
            UTILcopy_array_list(array.count, array.veclen, array.type, array.values, out.count, list.data(),
                                out.values);
            made->GetCellData()->AddArray(out.kept);
        }
    }
    stage_done("compute");
    result.write(made, std::to_string(to[0]) + " x " + std::to_string(to[1]) + " x " + std::to_string(to[2]) +
                           " nodes from " + std::to_string(from[0]) + " x " + std::to_string(from[1]) +
                           " x " + std::to_string(from[2]));
}

} // namespace

extern const command_entry resample_command{"resample", "Brings a lattice to another number of nodes",
                                            make_command<resample>};
