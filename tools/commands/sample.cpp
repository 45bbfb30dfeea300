#include "samples.hpp"

#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "to_vtk.hpp"
#include "write.hpp"

#include <skoklana/cell_nodes.h>

#include <vtkDataSet.h>

#include <algorithm>

namespace {

struct mesh_choice {
    const char *name;
    samples::layout layout;
    int kind;
    const char *ending;
};

const mesh_choice mesh_choices[] = {{"uniform", samples::layout::uniform, -1, " .vti "},
                                    {"rectilinear", samples::layout::rectilinear, -1, " .vtr "},
                                    {"curvilinear", samples::layout::curvilinear, -1, " .vts "},
                                    {"hex", samples::layout::cells, CELL_HEX, " .vtu "},
                                    {"prism", samples::layout::cells, CELL_PRISM, " .vtu "},
                                    {"pyramid", samples::layout::cells, CELL_PYR, " .vtu "},
                                    {"tet", samples::layout::cells, CELL_TET, " .vtu "},
                                    {"quad", samples::layout::cells, CELL_QUAD, " .vtu "},
                                    {"tri", samples::layout::cells, CELL_TRI, " .vtu "}};

class sample : public command {
  public:
    explicit sample(CLI::App &app);
    void run() override;

  private:
    std::vector<int64_t> checked_size(const mesh_choice &mesh) const;

    std::string name, mesh_name = "uniform";
    std::vector<int64_t> size = {64};
    int order = 1;
    std::string out;
};

// "hydrogen  the 4f orbital ..." a line each.
std::string list_of_samples()
{
    std::string list;
    for (const samples::field &field : samples::fields()) {
        char line[200];
        snprintf(line, sizeof line, "  %-16s%s; try level %g\n", field.name, field.about, field.level);
        list += line;
    }
    return list;
}

sample::sample(CLI::App &app)
{
    app.footer("\nSamples:\n" + list_of_samples());
    app.add_option("NAME", name, "which one, see below")->required();
    app.add_option(
        "--mesh", mesh_name,
        "uniform (the default), rectilinear, curvilinear, or cells: hex, prism, pyramid, tet, quad, tri");
    app.add_option("--size,-n", size, "nodes along each axis, one number or three; NZ 1 makes a flat mesh")
        ->expected(1, 3)
        ->check(whole_number(1));
    app.add_option("--order", order, "of cells: 1, or 2 with nodes in the middle of edges")
        ->check(CLI::Range(1, 2));
    app.add_option("--out,-o", out, "result: .vti, .vtr, .vts or .vtu, by the mesh")->required();
}

std::vector<int64_t> sample::checked_size(const mesh_choice &mesh) const
{
    std::vector<int64_t> dims = size;
    if (dims.size() == 2) throw failure("--size: one number or three are wanted", exit_usage);
    if (dims.size() == 1) dims = {dims[0], dims[0], dims[0]};
    const bool flat_kind = mesh.kind >= 0 && cell_kinds[mesh.kind].ndim == 2;
    if (flat_kind && size.size() == 1) dims[2] = 1;
    int64_t nodes = 1;
    for (size_t d = 0; d < 3; ++d) {
        if (__builtin_mul_overflow(nodes, dims[d], &nodes) || nodes > int64_t{1} << 40)
            throw failure("--size: all nodes together can be 10^12", exit_usage);
        if (mesh.kind >= 0 && dims[d] < 2 && !(d == 2 && flat_kind))
            throw failure("--size: cells need 2 nodes along each axis", exit_usage);
    }
    if (flat_kind && dims[2] != 1)
        throw failure("--size: a mesh of flat cells has 1 node along z", exit_usage);
    if (order == 2 && mesh.kind < 0) throw failure("--order 2 is for cells only", exit_usage);
    return dims;
}

void sample::run()
{
    const samples::field *field = samples::find(name);
    if (field == nullptr)
        throw failure("there is no sample " + name + "; there are:\n" + list_of_samples(), exit_usage);
    const auto *mesh = std::find_if(std::begin(mesh_choices), std::end(mesh_choices),
                                    [&](const mesh_choice &one) { return mesh_name == one.name; });
    if (mesh == std::end(mesh_choices))
        throw failure("there is no mesh " + mesh_name +
                          "; there are uniform, rectilinear, curvilinear, hex, prism, "
                          "pyramid, tet, quad and tri",
                      exit_usage);
    check_ending(out, mesh->ending, "this mesh");
    const std::vector<int64_t> dims = checked_size(*mesh);

    const samples::mesh lattice = mesh->kind < 0
                                      ? samples::structured(mesh->layout, dims.data(), field->lo, field->hi)
                                      : samples::cells(mesh->kind, order, dims.data(), field->lo, field->hi);
    const auto made = sample_to_vtk(lattice, *field);
    stage_done("compute");
    write_data_set(out, made);
    stage_done("write");
    say("%s: %lld nodes, %lld cells; try --array %s --level %g", out.c_str(),
        static_cast<long long>(made->GetNumberOfPoints()), static_cast<long long>(made->GetNumberOfCells()),
        field->array, field->level);
}

} // namespace

extern const command_entry sample_command{"sample", "Makes an analytic data set of any size",
                                          make_command<sample>};
