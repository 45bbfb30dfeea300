// Stream lines against VTK's stream tracer, and glyphs against its glyph filter.
//
// The field turns about a slanted axis through the middle of the mesh, so lines are circles that no mesh cuts, and
// every contender takes all of its steps: the times compare step by step. Steps are of the same length, a third of
// a cell, and of the fourth order. VTK takes them as they come; ours tries a step again, a little shorter, where a
// stage is faster than the node that it set out from.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>

#include <vtkArrowSource.h>
#include <vtkCellArray.h>
#include <vtkDataSet.h>
#include <vtkFloatArray.h>
#include <vtkGlyph3D.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkStreamTracer.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

namespace bench {
namespace {

constexpr char sample[] = "marschner-lobb", vector_name[] = "velocity";

void require_done(bool holds)
{
    if (holds) return;
    fprintf(stderr, "bench: an operation failed\n");
    exit(2);
}

vtkSmartPointer<vtkFloatArray> as_vtk(float *values, int ncomp, size_t count)
{
    auto array = vtkSmartPointer<vtkFloatArray>::New();
    array->SetNumberOfComponents(ncomp);
    array->SetArray(values, static_cast<vtkIdType>(count) * ncomp, 1);
    return array;
}

// ---- a field that turns -----------------------------------------------------------------------------------------

constexpr double axis[3] = {1 / 3.0, 2 / 3.0, 2 / 3.0};

struct turning_field {
    double middle[3], radius; // of the ball that every mesh holds

    explicit turning_field(const input &in)
    {
        const double *box = in.theirs->GetBounds();
        radius = 1e300;
        for (int d = 0; d < 3; ++d)
            radius = std::min(radius, (box[2 * d + 1] - box[2 * d]) / 2);
        for (int d = 0; d < 3; ++d)
            middle[d] = (box[2 * d] + box[2 * d + 1]) / 2;
        if (in.parts[0].kind == samples::layout::curvilinear)
            radius = (box[5] - box[4]) / 2; // a twisted column
        radius *= 0.95;
    }

    void velocity(const double *x, double *v) const
    {
        for (int d = 0; d < 3; ++d) {
            const int e = (d + 1) % 3, f = (d + 2) % 3;
            v[d] = axis[e] * (x[f] - middle[f]) - axis[f] * (x[e] - middle[e]);
        }
    }

    // What a turn leaves as it is: the place along the axis, and the distance from it.
    void add_invariants(const float *x, std::vector<double> *along, std::vector<double> *away) const
    {
        double r[3], height = 0, square = 0;
        for (int d = 0; d < 3; ++d) {
            r[d] = x[d] - middle[d];
            height += r[d] * axis[d];
        }
        for (int d = 0; d < 3; ++d)
            square += (r[d] - height * axis[d]) * (r[d] - height * axis[d]);
        along->push_back(height);
        away->push_back(std::sqrt(square));
    }
};

// In place of the sample's values.
const float *add_velocity(const input &in, const turning_field &field)
{
    const vtkIdType nnodes = in.theirs->GetNumberOfPoints();
    auto velocity = vtkSmartPointer<vtkFloatArray>::New();
    velocity->SetName(vector_name);
    velocity->SetNumberOfComponents(3);
    velocity->SetNumberOfTuples(nnodes);
    for (vtkIdType node = 0; node < nnodes; ++node) {
        double x[3], v[3];
        in.theirs->GetPoint(node, x);
        field.velocity(x, v);
        velocity->SetTuple(node, v);
    }
    in.theirs->GetPointData()->Initialize();
    in.theirs->GetPointData()->SetVectors(velocity);
    return velocity->GetPointer(0);
}

std::vector<float> seeds_in(const turning_field &field, int64_t count)
{
    std::mt19937_64 random(20260102);
    std::uniform_real_distribution<double> spread(-1, 1);
    std::vector<float> seeds;
    while (static_cast<int64_t>(seeds.size()) < 3 * count) {
        const double x[3] = {spread(random), spread(random), spread(random)};
        if (x[0] * x[0] + x[1] * x[1] + x[2] * x[2] > 1) continue;
        for (int d = 0; d < 3; ++d)
            seeds.push_back(static_cast<float>(field.middle[d] + field.radius * x[d]));
    }
    return seeds;
}

// ---- lines ------------------------------------------------------------------------------------------------------

struct trace_setup {
    input_ptr in;
    turning_field field;
    const float *velocity;
    std::vector<float> seeds;
    int nsteps;

    trace_setup(input_ptr in_, int64_t nseeds, int nsteps_)
        : in(std::move(in_)), field(*in), velocity(add_velocity(*in, field)), seeds(seeds_in(field, nseeds)),
          nsteps(nsteps_)
    {
    }
};
using setup_ptr = std::shared_ptr<trace_setup>;

// Ours stops up to a fortieth of a cell from where a value is taken, in cells that are no boxes, which comes to less
// than this over all steps; the scheme's own error is smaller by far.
std::vector<check> line_checks(const turning_field &field, const std::vector<float> &ends)
{
    check along = {"along the axis", {}, 2e-2}, away = {"from the axis", {}, 2e-2};
    for (size_t i = 0; i < ends.size(); i += 3)
        field.add_invariants(&ends[i], &along.figures, &away.figures);
    return {along, away};
}

std::shared_ptr<blk_tbl> new_table(const input &in)
{
    blk_tbl *table = nullptr;
    require_done(in.mesh->methods->interp_init_func(in.mesh, &table) == 1);
    return std::shared_ptr<blk_tbl>(table, host_free_table);
}

made our_lines(const setup_ptr &setup, const blk_tbl *table)
{
    struct lines {
        std::vector<float> points, vectors;
    };
    const auto all = std::make_shared<lines>();
    const int nnodes = setup->nsteps + 1;
    const size_t row = 3 * static_cast<size_t>(nnodes), nseeds = setup->seeds.size() / 3;
    all->points.resize(row * nseeds);
    all->vectors.resize(row * nseeds);
    std::vector<qx_long> cells(static_cast<size_t>(nnodes));
    std::vector<float> uvws(row), speeds(cells.size()), steps(cells.size()), ends;
    float work[3];
    int64_t longest = 0;
    for (size_t i = 0; i < nseeds; ++i) {
        int count = 0;
        float *points = &all->points[i * row];
        require_done(UTILstream_line(setup->in->mesh, table, setup->velocity, DTYPE_FLOAT, 3, 0, nullptr, 4,
                                     1, 2, 0.0, &setup->seeds[3 * i], nnodes, &count, points,
                                     &all->vectors[i * row], 1, cells.data(), uvws.data(), speeds.data(),
                                     steps.data(), work) == 1 &&
                     count > 0);
        longest += count == nnodes ? 1 : 0;
        ends.insert(ends.end(), points + 3 * (count - 1), points + 3 * count);
    }
    made output;
    output.cells = longest;
    output.written_bytes = static_cast<double>(2 * row * nseeds * sizeof(float));
    output.kept = all;
    output.checks = [=] { return line_checks(setup->field, ends); };
    return output;
}

made their_lines(const setup_ptr &setup)
{
    auto points = vtkSmartPointer<vtkPoints>::New();
    points->SetData(as_vtk(setup->seeds.data(), 3, setup->seeds.size() / 3));
    auto seeds = vtkSmartPointer<vtkPolyData>::New();
    seeds->SetPoints(points);
    auto tracer = vtkSmartPointer<vtkStreamTracer>::New();
    tracer->SetInputData(setup->in->theirs);
    tracer->SetSourceData(seeds);
    tracer->SetIntegratorTypeToRungeKutta4();
    tracer->SetIntegrationDirectionToForward();
    tracer->SetComputeVorticity(false);
    tracer->SetIntegrationStepUnit(vtkStreamTracer::CELL_LENGTH_UNIT);
    tracer->SetInitialIntegrationStep(0.35 / std::sqrt(3.0)); // of a cell's diagonal
    tracer->SetMaximumNumberOfSteps(setup->nsteps);
    tracer->SetMaximumPropagation(1e9);
    tracer->Update();
    const vtkSmartPointer<vtkPolyData> result = tracer->GetOutput();
    made output;
    vtkCellArray *lines = result->GetLines();
    vtkIdType count;
    const vtkIdType *nodes;
    std::vector<float> ends;
    output.cells = 0;
    for (lines->InitTraversal(); lines->GetNextCell(count, nodes) != 0;) {
        double x[3];
        result->GetPoint(nodes[count - 1], x);
        ends.insert(ends.end(), x, x + 3);
        output.cells += count >= setup->nsteps ? 1 : 0;
    }
    output.kept = std::make_shared<vtkSmartPointer<vtkPolyData>>(result);
    output.checks = [=] { return line_checks(setup->field, ends); };
    return output;
}

contender as_role(const char *name, role as, double aim, std::function<made()> run)
{
    contender c;
    c.name = name;
    c.as = as;
    c.aim = aim;
    c.run = std::move(run);
    return c;
}

bench_case line_case(const std::string &what, const input_ptr &in, int64_t nseeds, int nsteps)
{
    const auto setup = std::make_shared<trace_setup>(in, nseeds, nsteps);
    const auto table = new_table(*in);
    bench_case c;
    c.name = "stream lines, " + what;
    c.size = std::to_string(nseeds) + " x " + std::to_string(nsteps) + " steps";
    c.contenders = {
        as_role("table, lines", role::ours, 0, [=] { return our_lines(setup, new_table(*in).get()); }),
        as_role("lines", role::part, 0, [=] { return our_lines(setup, table.get()); }),
        as_role("stream tracer", role::peer, 2, [=] { return their_lines(setup); })};
    c.read_bytes = static_cast<double>(in->mesh->nnodes) * 3 * sizeof(float) + in->mesh_bytes();
    return c;
}

// ---- glyphs -------------------------------------------------------------------------------------------------------

// The peer's arrow, of 31 nodes; normals left out.
struct arrow {
    vtkSmartPointer<vtkPolyData> data = vtkSmartPointer<vtkPolyData>::New();
    std::vector<float> coords;
    std::vector<vtkIdType> sizes, connect;

    arrow()
    {
        auto source = vtkSmartPointer<vtkArrowSource>::New();
        source->Update();
        data->DeepCopy(source->GetOutput());
        data->GetPointData()->Initialize();
        for (vtkIdType node = 0; node < data->GetNumberOfPoints(); ++node) {
            double x[3];
            data->GetPoint(node, x);
            coords.insert(coords.end(), x, x + 3);
        }
        vtkIdType count;
        const vtkIdType *nodes;
        for (data->GetPolys()->InitTraversal(); data->GetPolys()->GetNextCell(count, nodes) != 0;) {
            sizes.push_back(count);
            connect.insert(connect.end(), nodes, nodes + count);
        }
    }
};

struct glyph_setup {
    input_ptr in;
    std::vector<float> vectors;
    arrow shape;

    explicit glyph_setup(input_ptr in_) : in(std::move(in_))
    {
        std::mt19937_64 random(20260103);
        std::uniform_real_distribution<float> spread(-1, 1);
        vectors.resize(3 * static_cast<size_t>(in->mesh->nnodes));
        for (float &x : vectors)
            x = spread(random);
        auto array = as_vtk(vectors.data(), 3, vectors.size() / 3);
        array->SetName(vector_name);
        in->theirs->GetPointData()->Initialize();
        in->theirs->GetPointData()->SetVectors(array);
    }
};

// Which way the template's y axis turns is each one's own affair: compared are how far a row is from its glyph's
// node, and how far along the vector there, for some of the rows.
std::vector<check> glyph_checks(const glyph_setup &setup, const float *coords, const float *values,
                                int64_t rows)
{
    check away = {"from the node", {}, 1e-4}, along = {"along the vector", {}, 1e-4},
          sizes = {"values", {}, 1e-5};
    const int64_t each = static_cast<int64_t>(setup.shape.coords.size()) / 3;
    for (int64_t row = 0; row < rows; row += 997) {
        const vtkIdType node = row / each;
        double x[3], square = 0, dot = 0;
        setup.in->theirs->GetPoint(node, x);
        for (int d = 0; d < 3; ++d) {
            const double r = coords[3 * row + d] - x[d];
            square += r * r;
            dot += r * setup.vectors[static_cast<size_t>(3 * node + d)];
        }
        away.figures.push_back(std::sqrt(square));
        along.figures.push_back(dot);
        sizes.figures.push_back(values[row]);
    }
    return {away, along, sizes};
}

constexpr double glyph_scale = 0.02;

made our_glyphs(const std::shared_ptr<glyph_setup> &setup)
{
    struct glyphs {
        float *coords, *values;
        qx_long *connect, *offsets;
        ~glyphs()
        {
            for (void *block : {static_cast<void *>(coords), static_cast<void *>(values),
                                static_cast<void *>(connect), static_cast<void *>(offsets)})
                free(block);
        }
    };
    const arrow &shape = setup->shape;
    const qx_long nnodes = setup->in->mesh->nnodes, each = static_cast<qx_long>(shape.coords.size()) / 3;
    const size_t rows = static_cast<size_t>(nnodes * each);
    const size_t nconnect = static_cast<size_t>(nnodes) * shape.connect.size();
    const size_t npolys = static_cast<size_t>(nnodes) * shape.sizes.size();
    const auto all = std::make_shared<glyphs>();
    all->coords = static_cast<float *>(malloc(3 * rows * sizeof(float)));
    all->values = static_cast<float *>(malloc(rows * sizeof(float)));
    all->connect = static_cast<qx_long *>(malloc(nconnect * sizeof(qx_long)));
    all->offsets = static_cast<qx_long *>(malloc((npolys + 1) * sizeof(qx_long)));
    const int axes[3] = {1, 1, 1};
    const float *vectors = setup->vectors.data();
    require_done(UTILglyph_func(setup->in->mesh, DTYPE_FLOAT, 3, vectors, 0, nullptr, 3, 3, vectors, vectors,
                                1, 0, 0, glyph_scale, axes, nullptr, each, 3, shape.coords.data(), nullptr, 3,
                                all->coords, all->values) == 1);
    qx_long *to = all->connect, *offset = all->offsets, end = 0;
    *offset++ = 0;
    for (qx_long node = 0; node < nnodes; ++node) {
        for (const vtkIdType corner : shape.connect)
            *to++ = node * each + corner;
        for (const vtkIdType size : shape.sizes)
            *offset++ = end += size;
    }
    made output;
    output.nodes = static_cast<int64_t>(rows);
    output.cells = static_cast<int64_t>(npolys);
    output.written_bytes =
        static_cast<double>(4 * rows * sizeof(float) + (nconnect + npolys) * sizeof(qx_long));
    output.kept = all;
    output.checks = [=] {
        return glyph_checks(*setup, all->coords, all->values, static_cast<int64_t>(rows));
    };
    return output;
}

made their_glyphs(const std::shared_ptr<glyph_setup> &setup)
{
    auto filter = vtkSmartPointer<vtkGlyph3D>::New();
    filter->SetInputData(setup->in->theirs);
    filter->SetSourceData(setup->shape.data);
    filter->SetVectorModeToUseVector();
    filter->SetScaleModeToScaleByVector();
    filter->SetColorModeToColorByVector();
    filter->SetScaleFactor(glyph_scale);
    filter->OrientOn();
    filter->Update();
    const vtkSmartPointer<vtkPolyData> result = filter->GetOutput();
    made output;
    output.nodes = result->GetNumberOfPoints();
    output.cells = result->GetNumberOfCells();
    output.kept = std::make_shared<vtkSmartPointer<vtkPolyData>>(result);
    output.checks = [=] {
        const auto *coords = vtkFloatArray::SafeDownCast(result->GetPoints()->GetData());
        const auto *values = vtkFloatArray::SafeDownCast(result->GetPointData()->GetScalars());
        require_done(coords != nullptr && values != nullptr);
        return glyph_checks(*setup, const_cast<vtkFloatArray *>(coords)->GetPointer(0),
                            const_cast<vtkFloatArray *>(values)->GetPointer(0), result->GetNumberOfPoints());
    };
    return output;
}

bench_case glyph_case(const input_ptr &in)
{
    const auto setup = std::make_shared<glyph_setup>(in);
    bench_case c;
    c.name = "glyphs, uniform";
    c.size =
        std::to_string(in->mesh->nnodes) + " x " + std::to_string(setup->shape.coords.size() / 3) + " nodes";
    c.contenders = {as_role("glyphs, polygons", role::ours, 0, [=] { return our_glyphs(setup); }),
                    as_role("glyph filter", role::peer, 5, [=] { return their_glyphs(setup); })};
    c.read_bytes = static_cast<double>(setup->vectors.size() * sizeof(float));
    return c;
}

} // namespace

void add_trace(suite *all, const sizes &of)
{
    struct mesh_case {
        const char *what;
        std::function<input_ptr()> make;
    };
    const auto structured = [=](samples::layout layout) {
        return [=] {
            const int64_t dims[3] = {of.lattice, of.lattice, of.lattice};
            return structured_input(layout, dims, sample);
        };
    };
    const mesh_case meshes[] = {
        {"uniform", structured(samples::layout::uniform)},
        {"rectilinear", structured(samples::layout::rectilinear)},
        {"curvilinear", structured(samples::layout::curvilinear)},
        {"hexes", [=] { return cells_input({CELL_HEX}, of.hexes, sample); }},
        {"tets", [=] { return cells_input({CELL_TET}, of.tets, sample); }},
    };
    for (const mesh_case &m : meshes) {
        const std::string what = m.what;
        const auto make = m.make;
        all->cases.push_back({"tracing", "stream lines, " + what, true, [=] {
                                  return line_case(what, make(), of.seeds, static_cast<int>(of.line_steps));
                              }});
    }
    all->cases.push_back({"tracing", "glyphs, uniform", true, [=] {
                              const int64_t dims[3] = {of.glyph_nodes, of.glyph_nodes, of.glyph_nodes};
                              return glyph_case(structured_input(samples::layout::uniform, dims, sample));
                          }});
}

} // namespace bench
