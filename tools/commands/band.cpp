#include "bands.hpp"

#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"

#include <vtkCellData.h>
#include <vtkDataSet.h>
#include <vtkPointSet.h>

#include <cmath>

namespace {

class band : public command {
  public:
    explicit band(CLI::App &app);
    void run() override;

  private:
    void check_levels() const;
    drawing picture_of(const input &in, const typed_array &of, vtkPointSet *made) const;

    input_options file;
    array_options array;
    std::vector<double> levels;
    result_options result;
    with_options with;
};

band::band(CLI::App &app)
    : file(app), array(app), result(app, "result: .vtu; .vtp of flat cells", result_options::drawn::yes),
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
drawing band::picture_of(const input &in, const typed_array &of, vtkPointSet *made) const
{
    drawing picture;
    const auto named = vtkSmartPointer<vtkDataSet>::Take(made->NewInstance());
    named->ShallowCopy(made);
    const auto lower =
        vtkSmartPointer<vtkDataArray>::Take(made->GetCellData()->GetArray("band_lower")->NewInstance());
    lower->DeepCopy(made->GetCellData()->GetArray("band_lower"));
    lower->SetName(of.name.c_str());
    named->GetCellData()->AddArray(lower);
    picture.data = named;
    picture.colour_by = of.name;
    picture.colour_cells = true;
    picture.limits = levels;
    in.file.data->GetBounds(picture.box);
    return picture;
}

void band::run()
{
    check_levels();
    result.check(" .vtu .vtp ", "bands");
    const input in = file.load(mesh_use::extract);
    const typed_array of = array.choose(in).array;
    const scalar_array scalar = array.scalar(in, of);
    const carried_arrays carried = with.choose(in);
    const bool flat = in.mesh->cell_ndim() == 2;
    if (in.mesh->cell_ndim() < 2)
        throw failure(file.path() + ": has no cells that a band could be of, only " +
                      in.mesh->size_in_words());
    if (!flat && result.ends_in(".vtp"))
        throw failure(file.path() + ": has solid cells, and bands of them go into a .vtu", exit_usage);
    if (!with.names().empty() && !carried.cell.empty())
        say_note("arrays of cells are not carried into bands");
    stage_done("read");

    const made_bands made =
        extract_bands(file.path(), *in.mesh, scalar, levels, carried.node, flat && !result.ends_in(".vtu"));
    stage_done("compute");
    qx_long ncells = 0;
    for (const qx_long one : made.ncells)
        ncells += one;
    if (ncells == 0) {
        const value_range range = range_of(scalar.array);
        say_note("nothing is between the levels: " + of.name + " runs from " + in_words(range.lo) + " to " +
                 in_words(range.hi));
    }
    const std::string counts = std::to_string(made.ncells.size()) + " bands, " + std::to_string(ncells) +
                               " cells, " + std::to_string(made.data->GetNumberOfPoints()) + " nodes";
    result.write(made.data, counts);
    if (result.pictured()) result.draw(picture_of(in, of, made.data), counts);
}

} // namespace

extern const command_entry band_command{"band", "Divides a mesh into bands between levels of an array",
                                        make_command<band>};
