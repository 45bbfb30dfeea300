// Boundaries and measures, against VTK's surface filter, feature edges, extract edges and integrate attributes.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>

#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSetSurfaceFilter.h>
#include <vtkExtractEdges.h>
#include <vtkFeatureEdges.h>
#include <vtkIntegrateAttributes.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkUnstructuredGrid.h>

#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

constexpr char sample[] = "marschner-lobb";

void check_result(bool holds)
{
    if (holds) return;
    fprintf(stderr, "bench: an operation failed\n");
    exit(2);
}

std::shared_ptr<void> freed_later(void *block)
{
    return std::shared_ptr<void>(block, free);
}

contender as_role(const char *name, role as, double aim, std::function<made()> run)
{
    contender c;
    c.name = name;
    c.as = as;
    c.run = std::move(run);
    c.aim = aim;
    return c;
}

std::string cells_text(const input &in)
{
    return std::to_string(in.mesh->ncells) + " cells";
}

double connect_bytes(const input &in)
{
    return static_cast<double>(in.mesh->cell_count[0]) * in.mesh->cell_nnodes[0] * sizeof(qx_long);
}

// What only our side would do otherwise before the clock runs.
const qx_long *connect_of(const input &in)
{
    if (in.mesh->cell_connect[0] == nullptr)
        check_result(in.mesh->get_connect(in.mesh, 0, &in.mesh->cell_connect[0]) == 1);
    return in.mesh->cell_connect[0];
}

// ---- faces and edges of solids ------------------------------------------------------------------------------

made our_faces(const input_ptr &in, int kind)
{
    const cell_face_list &faces = cell_faces[0][kind];
    int nsets = 0, nnodes[2];
    qx_long ncells[2] = {0, 0}, size[2] = {0, 0}, *cells[2] = {}, *connect[2] = {};
    check_result(UTILexternal_faces(in->mesh->nnodes, in->mesh->cell_count[0], in->mesh->cell_nnodes[0],
                                    connect_of(*in), faces.nfaces, faces.nnodes, faces.ncorners, faces.node,
                                    2, &nsets, ncells, nnodes, cells, connect, size) == 1);
    made out;
    out.cells = ncells[0] + ncells[1];
    out.written_bytes = static_cast<double>(ncells[0] + ncells[1] + size[0] + size[1]) * sizeof(qx_long);
    struct lists {
        std::shared_ptr<void> list[4];
    };
    auto kept = std::make_shared<lists>();
    for (int s = 0; s < 2; ++s) {
        kept->list[2 * s] = freed_later(cells[s]);
        kept->list[2 * s + 1] = freed_later(connect[s]);
    }
    out.kept = kept;
    return out;
}

made their_faces(const input_ptr &in)
{
    auto filter = vtkSmartPointer<vtkDataSetSurfaceFilter>::New();
    filter->SetInputData(in->theirs);
    filter->PassThroughCellIdsOn();
    filter->Update();
    made out;
    out.cells = filter->GetOutput()->GetNumberOfCells();
    out.kept = std::make_shared<vtkSmartPointer<vtkDataSetSurfaceFilter>>(filter);
    return out;
}

bench_case faces_case(const std::string &what, const input_ptr &in, int kind)
{
    bench_case c;
    c.name = "external faces, " + what;
    c.size = cells_text(*in);
    c.contenders = {as_role("external faces", role::ours, 0, [=] { return our_faces(in, kind); }),
                    as_role("surface filter", role::peer, 1.7, [=] { return their_faces(in); })};
    c.read_bytes = connect_bytes(*in);
    return c;
}

made our_edges(const input_ptr &in, int kind)
{
    const cell_face_list &faces = cell_faces[0][kind];
    qx_long nedges = 0, *edges = nullptr;
    check_result(UTILedges_3D(in->mesh->nnodes, in->mesh->cell_count[0], in->mesh->cell_nnodes[0],
                              connect_of(*in), faces.nfaces, faces.nnodes, faces.ncorners, faces.node,
                              &nedges, &edges) == 1);
    made out;
    out.cells = nedges;
    out.written_bytes = 2.0 * static_cast<double>(nedges) * sizeof(qx_long);
    out.kept = freed_later(edges);
    return out;
}

made their_edges(const input_ptr &in)
{
    auto filter = vtkSmartPointer<vtkExtractEdges>::New();
    filter->SetInputData(in->theirs);
    filter->UseAllPointsOn();
    filter->Update();
    made out;
    out.cells = filter->GetOutput()->GetNumberOfLines();
    out.kept = std::make_shared<vtkSmartPointer<vtkExtractEdges>>(filter);
    return out;
}

bench_case edges_case(const std::string &what, const input_ptr &in, int kind)
{
    bench_case c;
    c.name = "all edges, " + what;
    c.size = cells_text(*in);
    c.contenders = {as_role("edges", role::ours, 0, [=] { return our_edges(in, kind); }),
                    as_role("extract edges", role::peer, 1.7, [=] { return their_edges(in); })};
    c.read_bytes = connect_bytes(*in);
    return c;
}

// ---- creases of surfaces ------------------------------------------------------------------------------------

constexpr double crease_angle = 30; // degrees

// A height field of triangles with ridges and valleys.
struct surface {
    qx_long nnodes = 0, ntri = 0;
    std::vector<float> coords;
    std::vector<qx_long> tri;
    vtkSmartPointer<vtkPolyData> theirs;
};
using surface_ptr = std::shared_ptr<surface>;

surface_ptr folded_surface(int64_t squares)
{
    auto made = std::make_shared<surface>();
    const qx_long n = squares + 1;
    made->nnodes = n * n;
    for (qx_long j = 0; j < n; ++j)
        for (qx_long i = 0; i < n; ++i)
            for (const float x : {static_cast<float>(i), static_cast<float>(j),
                                  static_cast<float>((i / 8 % 2 == 0 ? i % 8 : 8 - i % 8) + j % 3 / 4.0)})
                made->coords.push_back(x);
    for (qx_long j = 0; j < squares; ++j)
        for (qx_long i = 0; i < squares; ++i) {
            const qx_long a = j * n + i;
            for (const qx_long node : {a, a + 1, a + 1 + n, a, a + 1 + n, a + n})
                made->tri.push_back(node);
        }
    made->ntri = static_cast<qx_long>(made->tri.size()) / 3;
    made->theirs = vtkSmartPointer<vtkPolyData>::New();
    auto points = vtkSmartPointer<vtkPoints>::New();
    points->SetNumberOfPoints(made->nnodes);
    for (qx_long node = 0; node < made->nnodes; ++node)
        points->SetPoint(node, &made->coords[static_cast<size_t>(3 * node)]);
    auto cells = vtkSmartPointer<vtkCellArray>::New();
    for (size_t t = 0; t < made->tri.size(); t += 3) {
        const vtkIdType nodes[3] = {made->tri[t], made->tri[t + 1], made->tri[t + 2]};
        cells->InsertNextCell(3, nodes);
    }
    made->theirs->SetPoints(points);
    made->theirs->SetPolys(cells);
    return made;
}

bench_case crease_case(const surface_ptr &of)
{
    bench_case c;
    c.name = "feature edges";
    c.size = std::to_string(of->ntri) + " triangles";
    c.contenders = {as_role("external edges", role::ours, 0,
                            [=] {
                                qx_long nedges = 0, *edges = nullptr;
                                check_result(UTILexternal_edges(of->nnodes, 3, of->coords.data(), of->ntri, 3,
                                                                3, of->tri.data(), &nedges, &edges,
                                                                crease_angle * 3.14159265358979 / 180) == 1);
                                made out;
                                out.cells = nedges;
                                out.written_bytes = 2.0 * static_cast<double>(nedges) * sizeof(qx_long);
                                out.kept = freed_later(edges);
                                return out;
                            }),
                    as_role("feature edges", role::peer, 1.7, [=] {
                        auto filter = vtkSmartPointer<vtkFeatureEdges>::New();
                        filter->SetInputData(of->theirs);
                        filter->SetFeatureAngle(crease_angle);
                        filter->ColoringOff();
                        filter->Update();
                        made out;
                        out.cells = filter->GetOutput()->GetNumberOfLines();
                        out.kept = std::make_shared<vtkSmartPointer<vtkFeatureEdges>>(filter);
                        return out;
                    })};
    c.read_bytes = static_cast<double>(of->tri.size()) * sizeof(qx_long) +
                   static_cast<double>(of->coords.size()) * sizeof(float);
    return c;
}

// ---- integrals ----------------------------------------------------------------------------------------------

bench_case integral_case(const std::string &what, const input_ptr &in)
{
    const auto checks = [](double volume, double integral) {
        // single precision sums a million cells one by one
        return std::vector<check>{{"volume", {volume}, 1e-2}, {"integral", {integral}, 1e-2}};
    };
    bench_case c;
    c.name = "integral, " + what;
    c.size = cells_text(*in);
    c.contenders = {as_role("volume integral", role::ours, 0,
                            [=] {
                                float volume = 0, integral = 0;
                                check_result(UTILvol_integr(in->mesh, 3, in->data(), in->type, 0, nullptr,
                                                            &volume, &integral) == 1);
                                made out;
                                out.checks = [=] { return checks(volume, integral); };
                                return out;
                            }),
                    as_role("exact, by the host", role::part, 0,
                            [=] {
                                host_measure of[3];
                                const host_array values = {in->data(), in->type, 1, nullptr};
                                check_result(host_measure_field(in->field, &values, 0, of) == HOST_DONE);
                                made out;
                                const double volume = of[2].measure, integral = of[2].integral;
                                out.checks = [=] { return checks(volume, integral); };
                                return out;
                            }),
                    as_role("integrate attributes", role::peer, 3, [=] {
                        auto filter = vtkSmartPointer<vtkIntegrateAttributes>::New();
                        filter->SetInputData(in->theirs);
                        filter->Update();
                        auto *result = vtkUnstructuredGrid::SafeDownCast(filter->GetOutput());
                        const double volume = result->GetCellData()->GetArray("Volume")->GetComponent(0, 0);
                        const double integral =
                            result->GetPointData()->GetArray(in->scalars->GetName())->GetComponent(0, 0);
                        made out;
                        out.kept = std::make_shared<vtkSmartPointer<vtkIntegrateAttributes>>(filter);
                        out.checks = [=] { return checks(volume, integral); };
                        return out;
                    })};
    c.read_bytes = in->mesh_bytes() + in->data_bytes();
    return c;
}

} // namespace

void add_boundary(suite *all, const sizes &of)
{
    const auto hexes = [=] { return cells_input({CELL_HEX}, of.hexes, sample); };
    const auto tets = [=] { return cells_input({CELL_TET}, of.tets, sample); };
    all->cases.push_back(
        {"boundary", "external faces, hexes", true, [=] { return faces_case("hexes", hexes(), CELL_HEX); }});
    all->cases.push_back(
        {"boundary", "external faces, tets", false, [=] { return faces_case("tets", tets(), CELL_TET); }});
    all->cases.push_back(
        {"boundary", "all edges, hexes", true, [=] { return edges_case("hexes", hexes(), CELL_HEX); }});
    all->cases.push_back(
        {"boundary", "feature edges", true, [=] { return crease_case(folded_surface(of.squares)); }});
    all->cases.push_back(
        {"measure", "integral, hexes", true, [=] { return integral_case("hexes", hexes()); }});
    all->cases.push_back({"measure", "integral, tets", false, [=] { return integral_case("tets", tets()); }});
}

} // namespace bench
