#include "cut_mesh.hpp"

#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"

#include <vtkDataSet.h>
#include <vtkUnstructuredGrid.h>

#include <cmath>

namespace {

class cut : public command {
  public:
    explicit cut(CLI::App &app);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    input_options file;
    array_options array;
    double level = 0;
    std::string side = "high";
    result_options result;
    with_options with;
};

cut::cut(CLI::App &app)
    : file(app, input_options::in_pieces::yes), array(app),
      result(app, "result: .vtu", result_options::drawn::yes),
      with(app, "carry only this array along, and colour the picture by it; may be repeated")
{
    app.footer(
        "\nCells on the chosen side stay as they are; cells that the level crosses become tetrahedra, or\n"
        "triangles of flat cells. A cell with all nodes at the level belongs to the high side. In "
        "tetrahedra,\n"
        "and in any straight cell where the array is linear, the two sides together fill the cell. In\n"
        "hexahedra, prisms and pyramids with kept corners across the diagonal of a side they may leave a "
        "gap.");
    app.add_option("--level,-l", level, "where to cut")->required();
    app.add_option("--side", side, "the side to keep: high (the default) or low")
        ->check(CLI::IsMember({"high", "low"}));
}

void cut::run()
{
    result.check(" .vtu ", "a mesh of cells", file);
    if (std::isnan(level)) throw failure("--level: NaN is no level", exit_usage);
    pieces parts = file.split(result, array.mean());
    piece_results made = result.results_of(parts);
    std::string name;
    value_range seen; // where nothing came out
    drawing picture;
    parts.each([&](const input &in) {
        const typed_array of = array.choose(in).array;
        const scalar_array scalar = array.scalar(in, of);
        const carried_arrays carried = with.choose(in);
        stage_done("read");

        const auto one = cut_mesh(file.path(), *in.mesh, scalar, level,
                                  side == "low" ? cut_side::low : cut_side::high, carried);
        made.add(in, one);
        name = of.name;
        if (one->GetNumberOfCells() == 0) widen(&seen, range_of(scalar.array));
        picture.colour_by = with.names().empty() ? of.name : with.names().front();
        picture.colour_cells = find_array(carried.node, picture.colour_by) == nullptr;
        stage_done("compute");
    });
    made.join();
    if (made.ncells() == 0) {
        const value_range range = agreed(seen);
        say_note("nothing is on that side: " + agreed(name) + " runs from " + in_words(range.lo) + " to " +
                 in_words(range.hi));
    }
    const std::string counts =
        std::to_string(made.ncells()) + " cells, " + std::to_string(made.nnodes()) + " nodes";
    result.write(made, parts, counts);
    result.draw(picture, made, parts, counts);
}

} // namespace

extern const command_entry cut_command{"cut", "Keeps the part of a mesh on one side of a level",
                                       make_command<cut>};
