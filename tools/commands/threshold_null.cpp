#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "without_null.hpp"

#include <vtkUnstructuredGrid.h>

namespace {

class threshold_null : public command {
  public:
    explicit threshold_null(CLI::App &app)
        : file(app, input_options::in_pieces::yes), array(app), with(app), result(app, "result: .vtu")
    {
    }
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    [[noreturn]] void refuse(const std::string &name) const;

    input_options file;
    array_options array;
    with_options with;
    result_options result;
};

void threshold_null::refuse(const std::string &name) const
{
    throw failure(file.path() + ": " + name +
                  " has no nodes without a value; --null X tells which value means that");
}

void threshold_null::run()
{
    result.check(" .vtu ", "a mesh of cells", file);
    pieces parts = file.split(result, array.mean(), mesh_use::extract, piece_with::numbers);
    piece_results made = result.results_of(parts);
    std::string name;
    bool any_null = false;
    parts.each([&](const input &in) {
        const typed_array of = array.choose(in).array;
        const scalar_array scalar = array.scalar(in, of);
        const carried_arrays carried = with.choose(in);
        const bool has_null = scalar.null_flag != 0;
        if (!has_null && !parts.several()) refuse(of.name);
        name = of.name;
        any_null = any_null || has_null;
        stage_done("read");

        made.add(in, without_null(file.path(), *in.mesh, scalar, carried));
        stage_done("compute");
    });
    if (!processes::any(any_null)) refuse(agreed(name));
    made.join();
    result.write(made, parts,
                 std::to_string(made.nnodes()) +
                     (made.listed() ? "" : " of " + std::to_string(parts.whole().nnodes)) + " nodes, " +
                     std::to_string(made.ncells()) + " of " + std::to_string(parts.whole().ncells) +
                     " cells");
}

} // namespace

extern const command_entry threshold_null_command{"threshold-null",
                                                  "Removes the nodes without a value and the cells at them",
                                                  make_command<threshold_null>};
