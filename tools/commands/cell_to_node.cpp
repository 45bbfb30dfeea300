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

  private:
    input_options file;
    array_options array;
    result_options result;
    std::string weight = "none";
};

cell_to_node::cell_to_node(CLI::App &app)
    : file(app), array(app, array_place::cell, component_kind::none),
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
    const input in = file.load(mesh_use::locate);
    vtkDataSet *data = in.file.data;
    result.check(ending_of_data(data), "this mesh");
    const typed_array of = array.choose(in).array;
    if (find_array(in.node, of.name) != nullptr)
        say_note("the node array " + of.name + " is replaced by the means of the cell array of that name");
    stage_done("read");

    const node_mean made = means_at_nodes(file.path(), *in.mesh, of,
                                          weight == "none" ? mean_weight::none : mean_weight::distance,
                                          array.null.has_value(), array.null.value_or(0));
    if (made.without_value > 0)
        say_note(std::to_string(made.without_value) + " nodes are in no cell with a value");
    const auto out = vtkSmartPointer<vtkDataSet>::Take(data->NewInstance());
    out->ShallowCopy(data);
    out->GetPointData()->AddArray(made.array.kept);
    stage_done("compute");

    const std::string counts = of.name + " at " + std::to_string(in.mesh->nnodes) + " nodes";
    result.write(out, counts);
    if (!result.pictured()) return;
    drawing picture;
    picture.data = out;
    picture.colour_by = of.name;
    data->GetBounds(picture.box);
    result.draw(picture, counts);
}

} // namespace

extern const command_entry cell_to_node_command{
    "cell-to-node", "Carries a cell array to the nodes, as means of the cells around them",
    make_command<cell_to_node>};
