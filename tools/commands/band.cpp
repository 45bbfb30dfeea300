#include "bands.hpp"

#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"

#include <vtkCellData.h>
#include <vtkDataSet.h>
#include <vtkPointSet.h>

#include <algorithm>
#include <cmath>

namespace {

class band : public command {
  public:
    explicit band(CLI::App &app);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    void check_levels() const;
    void check_cells(const pieces::totals &whole) const;
    drawing picture_of(const std::string &name, vtkDataSet *made) const;

    input_options file;
    array_options array;
    std::vector<double> levels;
    result_options result;
    with_options with;
};

band::band(CLI::App &app)
    : file(app, input_options::in_pieces::yes), array(app),
      result(app, "result: .vtu; .vtp of flat cells", result_options::drawn::yes),
      with(app, "carry only this array along; may be repeated")
{
    app.footer("\nA band holds the values from its lower level up to, and without, its upper one; the last "
               "band holds\n"
               "that too. Values below the first level and above the last are left out. Cells have the "
               "arrays band,\n"
               "from 0, band_lower and band_upper; other arrays of cells are not carried.");
    app.add_option("--levels,-l", levels, "the limits of the bands, ascending: X,Y,Z makes two")
        ->required()
        ->delimiter(',')
        ->allow_extra_args(false);
}

void band::check_levels() const
{
    if (levels.size() < 2) throw failure("--levels: two at least, between which there is a band", exit_usage);
    for (size_t i = 0; i < levels.size(); ++i)
        if (std::isnan(levels[i]) || (i > 0 && !(levels[i - 1] < levels[i])))
            throw failure("--levels: " + in_words(levels[i]) + " is not above the level before it",
                          exit_usage);
}

// A map in one colour a band.
drawing band::picture_of(const std::string &name, vtkDataSet *made) const
{
    drawing picture;
    picture.colour_by = name;
    picture.colour_cells = true;
    picture.limits = levels;
    if (made == nullptr) return picture; // another process draws
    const auto named = vtkSmartPointer<vtkDataSet>::Take(made->NewInstance());
    named->ShallowCopy(made);
    const auto lower =
        vtkSmartPointer<vtkDataArray>::Take(made->GetCellData()->GetArray("band_lower")->NewInstance());
    lower->DeepCopy(made->GetCellData()->GetArray("band_lower"));
    lower->SetName(name.c_str());
    named->GetCellData()->AddArray(lower);
    picture.data = named;
    return picture;
}

void band::check_cells(const pieces::totals &whole) const
{
    if (whole.cell_ndim < 2)
        throw failure(file.path() + ": has no cells that a band could be of, only " + whole.size_in_words);
    if (whole.cell_ndim != 2 && (result.ending() == ".vtp"))
        throw failure(file.path() + ": has solid cells, and bands of them go into a .vtu", exit_usage);
}

void band::run()
{
    check_levels();
    result.check(" .vtu .vtp ", "bands", file);
    pieces parts = file.split(result, array.mean(), mesh_use::divide);
    piece_results made = result.results_of(parts);
    std::string name;
    value_range seen; // where nothing came out
    qx_long ncells = 0;
    bool left_out = false;
    parts.each([&](const input &in) {
        const typed_array of = array.choose(in).array;
        const scalar_array scalar = array.scalar(in, of);
        const carried_arrays carried = with.choose(in);
        check_cells(parts.whole());
        left_out = !with.names().empty() && !carried.cell.empty();
        if (left_out && !parts.several()) say_note("arrays of cells are not carried into bands");
        stage_done("read");

        const bool surface = parts.whole().cell_ndim == 2 && result.ending() != ".vtu";
        const made_bands one = extract_bands(file.path(), *in.mesh, scalar, levels, carried.node, surface);
        made.add(in, one.data);
        name = of.name;
        const qx_long before = ncells;
        for (const qx_long of_band : one.ncells)
            ncells += of_band;
        if (ncells == before) widen(&seen, range_of(scalar.array));
        stage_done("compute");
    });
    made.join();
    if (parts.several() && processes::any(left_out)) say_note("arrays of cells are not carried into bands");
    ncells = processes::sum(static_cast<int64_t>(ncells));
    name = agreed(name);
    if (ncells == 0) {
        const value_range range = agreed(seen);
        say_note("nothing is between the levels: " + name + " runs from " + in_words(range.lo) + " to " +
                 in_words(range.hi));
    }
    const std::string counts = std::to_string(levels.size() - 1) + " bands, " + std::to_string(ncells) +
                               " cells, " + std::to_string(made.nnodes()) + " nodes";
    result.write(made, parts, counts);
    if (!result.pictured()) return;
    drawing picture = picture_of(name, made.whole());
    std::copy_n(parts.whole().box, 6, picture.box);
    result.draw(picture, counts);
}

} // namespace

extern const command_entry band_command{"band", "Divides a mesh into bands between levels of an array",
                                        make_command<band>};
