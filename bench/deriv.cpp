// Derivatives at the nodes and cell data carried to them, against VTK's gradient filter and cell data to point
// data. Both take the same differences on lattices and the same plain mean over cells; only at the last plane of
// a rectilinear axis 0 does ours differ, which the checks leave out.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>

#include <vtkCellData.h>
#include <vtkCellDataToPointData.h>
#include <vtkDataSet.h>
#include <vtkFloatArray.h>
#include <vtkGradientFilter.h>
#include <vtkPointData.h>

#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

constexpr char sample[] = "marschner-lobb";
constexpr char vector_name[] = "vector", cell_name[] = "cells";

void require(bool holds)
{
    if (holds) return;
    fprintf(stderr, "bench: an operation failed\n");
    exit(2);
}

vtkSmartPointer<vtkFloatArray> new_array(const char *name, int ncomp, vtkIdType count)
{
    auto made = vtkSmartPointer<vtkFloatArray>::New();
    made->SetName(name);
    made->SetNumberOfComponents(ncomp);
    made->SetNumberOfTuples(count);
    return made;
}

// A vector at each node, of the sample's value f and the place: neither curl nor divergence vanish.
float *add_vectors(const input &in)
{
    const vtkIdType nnodes = in.theirs->GetNumberOfPoints();
    const auto vectors = new_array(vector_name, 3, nnodes);
    const float *f = static_cast<const float *>(in.data());
    for (vtkIdType node = 0; node < nnodes; ++node) {
        double x[3];
        in.theirs->GetPoint(node, x);
        for (int c = 0; c < 3; ++c)
            vectors->SetTypedComponent(node, c,
                                       static_cast<float>(f[node] * x[c] + (c + 1) * x[(c + 1) % 3]));
    }
    in.theirs->GetPointData()->AddArray(vectors);
    return vectors->GetPointer(0);
}

float *add_cell_values(const input &in)
{
    const vtkIdType ncells = in.theirs->GetNumberOfCells();
    const auto values = new_array(cell_name, 1, ncells);
    uint32_t state = 1;
    for (vtkIdType cell = 0; cell < ncells; ++cell) {
        state = state * 1664525u + 1013904223u;
        values->SetValue(cell, static_cast<float>(state >> 8));
    }
    in.theirs->GetCellData()->AddArray(values);
    return values->GetPointer(0);
}

// Rows of floats at the nodes, as both sides make them.
struct node_rows {
    const float *data;
    int64_t nnodes;
    int veclen;
    int64_t row; // nodes along axis 0 of which the last is left out; 0: none is
};

check compare(const char *what, const node_rows &rows, double within)
{
    check made = {what, {}, within};
    for (int64_t node = 0; node < rows.nnodes; ++node)
        if (rows.row == 0 || node % rows.row != rows.row - 1)
            made.figures.insert(made.figures.end(), rows.data + node * rows.veclen,
                                rows.data + (node + 1) * rows.veclen);
    return made;
}

using floats = std::shared_ptr<float>;

floats new_floats(int64_t count)
{
    return floats(static_cast<float *>(malloc(static_cast<size_t>(count) * sizeof(float))), free);
}

// Floats of derivatives of a sample that varies over some ten nodes.
constexpr double rounding = 1e-4;

int64_t left_out(const input &in)
{
    const bool rectilinear = !in.parts[0].axes.empty();
    return rectilinear ? in.parts[0].dims[0] : 0;
}

double node_bytes(const input &in, int veclen)
{
    return static_cast<double>(in.mesh->nnodes) * veclen * sizeof(float);
}

// ---- gradients ----------------------------------------------------------------------------------------------

made our_gradient(const input_ptr &in)
{
    const int64_t nnodes = in->mesh->nnodes;
    const floats out = new_floats(3 * nnodes);
    require(UTILgrad(in->mesh, in->data(), 1, in->type, 0, nullptr, out.get()) == 1);
    made output;
    output.nodes = nnodes;
    output.written_bytes = node_bytes(*in, 3);
    output.kept = out;
    output.checks = [=] {
        return std::vector<check>{compare("gradient", {out.get(), nnodes, 3, left_out(*in)}, rounding)};
    };
    return output;
}

// gradient, vorticity, divergence: which of them.
vtkSmartPointer<vtkDataSet> differentiated(const input &in, const char *array, bool of_vector)
{
    auto filter = vtkSmartPointer<vtkGradientFilter>::New();
    filter->SetInputData(in.theirs);
    filter->SetInputArrayToProcess(0, 0, 0, vtkDataObject::FIELD_ASSOCIATION_POINTS, array);
    filter->SetResultArrayName("gradient");
    filter->SetComputeGradient(of_vector ? 0 : 1);
    filter->SetComputeVorticity(of_vector ? 1 : 0);
    filter->SetComputeDivergence(of_vector ? 1 : 0);
    filter->Update();
    return vtkDataSet::SafeDownCast(filter->GetOutput());
}

node_rows rows_of(const input &in, vtkDataSet *from, const char *name)
{
    const auto *array = vtkFloatArray::SafeDownCast(from->GetPointData()->GetArray(name));
    require(array != nullptr);
    return {const_cast<vtkFloatArray *>(array)->GetPointer(0), from->GetNumberOfPoints(),
            array->GetNumberOfComponents(), left_out(in)};
}

made their_derivatives(const input_ptr &in, bool of_vector)
{
    const auto result = differentiated(*in, of_vector ? vector_name : sample, of_vector);
    made output;
    output.nodes = result->GetNumberOfPoints();
    output.kept = std::make_shared<vtkSmartPointer<vtkDataSet>>(result);
    output.checks = [=] {
        if (!of_vector)
            return std::vector<check>{compare("gradient", rows_of(*in, result, "gradient"), rounding)};
        return std::vector<check>{compare("curl", rows_of(*in, result, "Vorticity"), rounding),
                                  compare("divergence", rows_of(*in, result, "Divergence"), rounding)};
    };
    return output;
}

// ---- curl and divergence ------------------------------------------------------------------------------------

made our_curl_and_divergence(const input_ptr &in, const float *vectors)
{
    const int64_t nnodes = in->mesh->nnodes;
    const floats curl = new_floats(3 * nnodes), divergence = new_floats(nnodes);
    require(UTILcurl(in->mesh, vectors, 3, DTYPE_FLOAT, 0, nullptr, curl.get()) == 1);
    require(UTILdiv(in->mesh, vectors, 3, DTYPE_FLOAT, 0, nullptr, divergence.get()) == 1);
    made output;
    output.nodes = nnodes;
    output.written_bytes = node_bytes(*in, 4);
    output.kept = std::make_shared<std::pair<floats, floats>>(curl, divergence);
    output.checks = [=] {
        return std::vector<check>{
            compare("curl", {curl.get(), nnodes, 3, left_out(*in)}, rounding),
            compare("divergence", {divergence.get(), nnodes, 1, left_out(*in)}, rounding)};
    };
    return output;
}

// ---- cell data ----------------------------------------------------------------------------------------------

made our_node_means(const input_ptr &in, const float *values)
{
    const int64_t nnodes = in->mesh->nnodes;
    const floats out = new_floats(nnodes);
    require(UTILcell_to_node(in->mesh, 0, DTYPE_FLOAT, values, 1, 0, nullptr, 0, out.get(), nullptr,
                             nullptr) == 1);
    made output;
    output.nodes = nnodes;
    output.written_bytes = node_bytes(*in, 1);
    output.kept = out;
    output.checks = [=] { return std::vector<check>{compare("means", {out.get(), nnodes, 1, 0}, 1e-6)}; };
    return output;
}

made their_node_means(const input_ptr &in)
{
    auto filter = vtkSmartPointer<vtkCellDataToPointData>::New();
    filter->SetInputData(in->theirs);
    filter->Update();
    const auto result = vtkSmartPointer<vtkDataSet>(vtkDataSet::SafeDownCast(filter->GetOutput()));
    made output;
    output.nodes = result->GetNumberOfPoints();
    output.kept = std::make_shared<vtkSmartPointer<vtkDataSet>>(result);
    output.checks = [=] {
        node_rows rows = rows_of(*in, result, cell_name);
        rows.row = 0;
        return std::vector<check>{compare("means", rows, 1e-6)};
    };
    return output;
}

// ---- cases --------------------------------------------------------------------------------------------------

contender of_role(const char *name, role as, double aim, std::function<made()> run)
{
    contender c;
    c.name = name;
    c.as = as;
    c.aim = aim;
    c.run = std::move(run);
    return c;
}

std::string nodes_text(const input &in)
{
    return std::to_string(in.mesh->nnodes) + " nodes";
}

bench_case gradient_case(const std::string &what, const input_ptr &in)
{
    bench_case c;
    c.name = "gradient, " + what;
    c.size = nodes_text(*in);
    c.contenders = {of_role("gradient", role::ours, 0, [=] { return our_gradient(in); }),
                    of_role("gradient filter", role::peer, 5, [=] { return their_derivatives(in, false); })};
    c.read_bytes = in->data_bytes() + in->mesh_bytes();
    return c;
}

bench_case vector_case(const std::string &what, const input_ptr &in)
{
    const float *vectors = add_vectors(*in);
    bench_case c;
    c.name = "curl, divergence, " + what;
    c.size = nodes_text(*in);
    c.contenders = {
        of_role("curl, divergence", role::ours, 0, [=] { return our_curl_and_divergence(in, vectors); }),
        of_role("gradient filter", role::peer, 5, [=] { return their_derivatives(in, true); })};
    // Each of the two operations reads it all.
    c.read_bytes = 2 * (node_bytes(*in, 3) + in->mesh_bytes());
    return c;
}

bench_case mean_case(const std::string &what, const input_ptr &in)
{
    in->theirs->GetPointData()->Initialize();
    const float *values = add_cell_values(*in);
    bench_case c;
    c.name = "cells to nodes, " + what;
    c.size = std::to_string(in->theirs->GetNumberOfCells()) + " cells";
    c.contenders = {of_role("means", role::ours, 0, [=] { return our_node_means(in, values); }),
                    of_role("cell data to point data", role::peer, 1, [=] { return their_node_means(in); })};
    c.read_bytes = static_cast<double>(in->theirs->GetNumberOfCells()) * sizeof(float);
    if (in->mesh->ndim == 0)
        c.read_bytes += static_cast<double>(in->parts[0].connect.size() * sizeof(qx_long));
    return c;
}

struct named_input {
    const char *name;
    std::function<input_ptr()> make;
};

} // namespace

void add_deriv(suite *all, const sizes &of)
{
    const auto lattice = [=](samples::layout layout) {
        return [=] {
            const int64_t dims[3] = {of.lattice, of.lattice, of.lattice};
            return structured_input(layout, dims, sample);
        };
    };
    const auto cells = [=](int kind, int64_t cubes) {
        return [=] { return cells_input({kind}, cubes, sample); };
    };
    const named_input inputs[] = {{"uniform", lattice(samples::layout::uniform)},
                                  {"rectilinear", lattice(samples::layout::rectilinear)},
                                  {"curvilinear", lattice(samples::layout::curvilinear)},
                                  {"hexes", cells(CELL_HEX, of.hexes)},
                                  {"tets", cells(CELL_TET, of.tets)}};
    for (const named_input &in : inputs) {
        const std::string name = in.name;
        const auto make = in.make;
        all->cases.push_back(
            {"derivative", "gradient, " + name, true, [=] { return gradient_case(name, make()); }});
        all->cases.push_back({"derivative", "curl, divergence, " + name, name == "uniform" || name == "hexes",
                              [=] { return vector_case(name, make()); }});
        all->cases.push_back({"derivative", "cells to nodes, " + name, name == "uniform" || name == "hexes",
                              [=] { return mean_case(name, make()); }});
    }
}

} // namespace bench
