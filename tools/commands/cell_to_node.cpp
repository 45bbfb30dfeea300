#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "node_means.hpp"
#include "options.hpp"
#include "to_vtk.hpp"

#include <vtkDataSet.h>
#include <vtkPointData.h>

namespace {

class cell_to_node : public command {
  public:
    explicit cell_to_node(CLI::App &app);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    input_options file;
    array_options array;
    result_options result;
    std::string weight = "none";
};

cell_to_node::cell_to_node(CLI::App &app)
    : file(app, input_options::in_pieces::yes), array(app, array_place::cell, component_kind::none),
      result(app, "result: .vti, .vtr, .vts, .vtu or .vtp, as the input", result_options::drawn::yes)
{
    app.footer("\nEach node gets the mean of the cells around it, as a node array of the same name and type: "
               "summed in double,\nintegers rounded to the nearest. Cells without a value take no part. "
               "Other commands do the same on the way\nwith --cell-to-node.");
    app.add_option("--weight", weight, "none: cells count alike (the default); distance: nearer ones more")
        ->check(CLI::IsMember({"none", "distance"}));
}

void cell_to_node::run()
{
    pieces parts = file.split(result, {}, mesh_use::locate, piece_with::ghosts_and_numbers);
    piece_results made = result.results_of(parts);
    drawing picture;
    qx_long without = 0;
    bool replaced = false;
    parts.each([&](const input &in) {
        result.check(ending_of_data(in.file.data), "this mesh", file);
        const typed_array of = array.choose(in).array;
        picture.colour_by = of.name;
        replaced = replaced || find_array(in.node, of.name) != nullptr;
        stage_done("read");
        const node_mean means = means_at_nodes(file.path(), *in.mesh, of,
                                               weight == "none" ? mean_weight::none : mean_weight::distance,
                                               array.null.has_value(), array.null.value_or(0));
        for (size_t node = 0; node < means.has_value.size(); ++node)
            without += means.has_value[node] == 0 && in.counts(node) ? 1 : 0;
        const auto out = vtkSmartPointer<vtkDataSet>::Take(in.file.data->NewInstance());
        out->ShallowCopy(in.file.data);
        out->GetPointData()->AddArray(means.array.kept);
        made.add(in, without_ghosts(in, out));
        stage_done("compute");
    });
    made.join();
    picture.colour_by = agreed(picture.colour_by);
    if (processes::any(replaced))
        say_note("the node array " + picture.colour_by +
                 " is replaced by the means of the cell array of that name");
    without = processes::sum(static_cast<int64_t>(without));
    if (without > 0) say_note(std::to_string(without) + " nodes are in no cell with a value");
    const std::string counts = picture.colour_by + " at " + std::to_string(made.nnodes()) + " nodes";
    result.write(made, parts, counts);
    result.draw(picture, made, parts, counts);
}

} // namespace

extern const command_entry cell_to_node_command{
    "cell-to-node", "Carries a cell array to the nodes, as means of the cells around them",
    make_command<cell_to_node>};
