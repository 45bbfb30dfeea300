#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "to_vtk.hpp"

#include <skoklana/array.h>
#include <skoklana/host/tool.h>

#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkPointData.h>

namespace {

class clamp : public command {
  public:
    explicit clamp(CLI::App &app);
    void run() override;

  private:
    qx_long limit(const input &in, const typed_array &from, const typed_array &to) const;

    input_options file;
    array_options array;
    std::optional<double> min, max;
    result_options result;
};

clamp::clamp(CLI::App &app)
    : file(app), array(app), result(app, "result: .vti, .vtr, .vts, .vtu or .vtp, as the input")
{
    app.add_option("--min", min, "values below become this");
    app.add_option("--max", max, "values above become this");
}

// Every component that is asked for; nulls stay. Gives how many values changed.
qx_long clamp::limit(const input &in, const typed_array &from, const typed_array &to) const
{
    const int component = array.component_of(in, from);
    double null_bits = 0;
    if (array.null) UTILdouble_to_type(from.type, *array.null, &null_bits);
    qx_long changed = 0;
    for (int c = component < 0 ? 0 : component; c < (component < 0 ? from.veclen : component + 1); ++c)
        if (UTILclamp(from.count, from.values, from.veclen, c, from.type, array.null ? 1 : 0, &null_bits,
                      min ? 1 : 0, min.value_or(0), max ? 1 : 0, max.value_or(0), to.values) != 1)
            throw failure(file.path() + ": " + from.name + " could not be limited");
    for (qx_long i = 0; i < from.count; ++i)
        for (int c = 0; c < from.veclen; ++c)
            changed += to.kept->GetComponent(i, c) != from.kept->GetComponent(i, c) ? 1 : 0;
    return changed;
}

void clamp::run()
{
    if (!min && !max) throw failure("give --min X, --max X or both", exit_usage);
    if (min && max && *min > *max)
        throw failure("--min " + in_words(*min) + " is above --max " + in_words(*max), exit_usage);
    const input in = file.read();
    vtkDataSet *data = in.file.data;
    result.check(ending_of_data(data), "this mesh");
    const typed_array from = array.choose(in).array;
    stage_done("read");

    const typed_array to = like(from, from.count);
    to.kept->DeepCopy(from.kept);
    to.kept->SetName(from.name.c_str());
    const qx_long changed = limit(in, from, to);
    const auto made = vtkSmartPointer<vtkDataSet>::Take(data->NewInstance());
    made->ShallowCopy(data);
    made->GetPointData()->AddArray(to.kept);
    stage_done("compute");
    result.write(made, std::to_string(changed) + " values of " + from.name + " limited");
}

} // namespace

extern const command_entry clamp_command{"clamp", "Limits the values of an array, and copies the rest",
                                         make_command<clamp>};
