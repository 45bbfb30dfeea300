#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "without_null.hpp"

#include <vtkUnstructuredGrid.h>

namespace {

class threshold_null : public command {
  public:
    explicit threshold_null(CLI::App &app) : file(app), array(app), with(app), result(app, "result: .vtu") {}
    void run() override;

  private:
    input_options file;
    array_options array;
    with_options with;
    result_options result;
};

void threshold_null::run()
{
    result.check(" .vtu ", "a mesh of cells");
    const input in = file.load(mesh_use::extract);
    const typed_array of = array.choose(in).array;
    const scalar_array scalar = array.scalar(in, of);
    const carried_arrays carried = with.choose(in);
    if (scalar.null_flag == 0)
        throw failure(file.path() + ": " + of.name +
                      " has no nodes without a value; --null X tells which value means that");
    stage_done("read");

    const auto made = without_null(file.path(), *in.mesh, scalar, carried);
    stage_done("compute");
    result.write(made, std::to_string(made->GetNumberOfPoints()) + " of " + std::to_string(in.mesh->nnodes) +
                           " nodes, " + std::to_string(made->GetNumberOfCells()) + " of " +
                           std::to_string(in.mesh->mesh->ncells) + " cells");
}

} // namespace

extern const command_entry threshold_null_command{"threshold-null",
                                                  "Removes the nodes without a value and the cells at them",
                                                  make_command<threshold_null>};
