#include "in_range.hpp"

#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"

#include <vtkDataSet.h>
#include <vtkUnstructuredGrid.h>

#include <limits>
#include <optional>

namespace {

class threshold : public command {
  public:
    explicit threshold(CLI::App &app);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    input_options file;
    array_options array;
    std::optional<double> min, max;
    bool any = false;
    result_options result;
    with_options with;
};

threshold::threshold(CLI::App &app)
    : file(app, input_options::in_pieces::yes), array(app, array_place::either),
      result(app, "result: .vtu", result_options::drawn::yes),
      with(app, "carry only this array along, and colour the picture by it; may be repeated")
{
    app.footer(
        "\nCells are kept or dropped whole; cut splits them at a value. Both ends belong to the range.");
    app.add_option("--min", min, "the least value to keep");
    app.add_option("--max", max, "the greatest value to keep");
    app.add_flag("--any", any,
                 "of a node array: one node of a cell in the range is enough; else all are wanted");
}

void threshold::run()
{
    constexpr double endless = std::numeric_limits<double>::infinity();
    if (!min && !max) throw failure("give --min X, --max X or both", exit_usage);
    const wanted_range range = {min.value_or(-endless), max.value_or(endless), any};
    if (!(range.lo <= range.hi))
        throw failure("--min " + in_words(range.lo) + " is above --max " + in_words(range.hi), exit_usage);
    result.check(" .vtu ", "a mesh of cells", file);
    pieces parts = file.split(result, array.mean(), mesh_use::extract, piece_with::numbers);
    piece_results made = result.results_of(parts);
    std::string name;
    value_range seen; // where nothing came out
    drawing picture;
    parts.each([&](const input &in) {
        const chosen_array of = array.choose(in);
        if (of.cell && any)
            throw failure("--any is about the nodes of a cell, and " + of.array.name +
                              " holds a value a cell",
                          exit_usage);
        const scalar_array scalar = array.scalar(in, of.array);
        const carried_arrays carried = with.choose(in);
        stage_done("read");

        const auto one = cells_in_range(file.path(), *in.mesh, scalar,
                                        of.cell ? array_place::cell : array_place::node, range, carried);
        made.add(in, one);
        name = of.array.name;
        if (one->GetNumberOfCells() == 0) widen(&seen, range_of(scalar.array));
        picture.colour_by = with.names().empty() ? of.array.name : with.names().front();
        picture.colour_cells = find_array(carried.node, picture.colour_by) == nullptr;
        stage_done("compute");
    });
    made.join();
    if (made.ncells() == 0) {
        const value_range values = agreed(seen);
        say_note("no cell is in that range: " + agreed(name) + " runs from " + in_words(values.lo) + " to " +
                 in_words(values.hi));
    }
    const std::string counts = std::to_string(made.ncells()) + " of " + std::to_string(parts.whole().ncells) +
                               " cells, " + std::to_string(made.nnodes()) +
                               (made.listed() ? "" : " of " + std::to_string(parts.whole().nnodes)) +
                               " nodes";
    result.write(made, parts, counts);
    result.draw(picture, made, parts, counts);
}

} // namespace

extern const command_entry threshold_command{"threshold", "Keeps the cells whose values are in a range",
                                             make_command<threshold>};
