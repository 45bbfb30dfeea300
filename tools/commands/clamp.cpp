#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "to_vtk.hpp"

#include <skoklana/array.h>

#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkPointData.h>

#include <cmath>

namespace {

class clamp : public command {
  public:
    explicit clamp(CLI::App &app);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    qx_long limit(const input &in, const typed_array &from, const typed_array &to) const;

    input_options file;
    array_options array;
    std::optional<double> min, max;
    result_options result;
};

clamp::clamp(CLI::App &app)
    : file(app, input_options::in_pieces::yes), array(app, array_place::node, component_kind::all),
      result(app, "result: .vti, .vtr, .vts, .vtu or .vtp, as the input")
{
    app.add_option("--min", min, "values below become this")->check(finite_number());
    app.add_option("--max", max, "values above become this")->check(finite_number());
}

// A bound as the type holds it. Beyond its range it limits nothing, and is none, or everything; between whole
// numbers it becomes the next inner one.
std::optional<double> held_bound(const typed_array &of, std::optional<double> bound, bool lower)
{
    if (!bound) return bound;
    const bool whole = of.type != DTYPE_FLOAT && of.type != DTYPE_DOUBLE;
    double held = whole ? (lower ? std::ceil(*bound) : std::floor(*bound)) : *bound;
    const bool beyond = limit_to_type(of.type, &held);
    if (beyond && (held > *bound) == lower) return std::nullopt;
    if (beyond || (whole && held != *bound))
        say_note(std::string(lower ? "--min" : "--max") + ": " + of.name + " cannot hold " +
                 in_words(*bound) + "; " + in_words(held) + " is taken");
    return held;
}

// Every component that is asked for; nulls stay. Gives how many values changed.
qx_long clamp::limit(const input &in, const typed_array &from, const typed_array &to) const
{
    const int component = array.component_of(in, from);
    const auto lo = held_bound(from, min, true), hi = held_bound(from, max, false);
    if (lo && hi && *lo > *hi)
        throw failure(file.path() + ": " + from.name + " can hold no value between --min and --max");
    double null_bits = 0;
    const int null_flag = array.null && value_in_type(from.type, *array.null, &null_bits) ? 1 : 0;
    for (int c = component < 0 ? 0 : component; c < (component < 0 ? from.veclen : component + 1); ++c)
        if (UTILclamp(from.count, from.values, from.veclen, c, from.type, null_flag, &null_bits, lo ? 1 : 0,
                      lo.value_or(0), hi ? 1 : 0, hi.value_or(0), to.values) != 1)
            throw failure(file.path() + ": " + from.name + " could not be limited");
    qx_long changed = 0;
    with_values(from, [&](const auto *before) {
        const auto *after = static_cast<decltype(before)>(to.values);
        for (qx_long node = 0; node < from.count; ++node)
            for (qx_long i = node * from.veclen; i < (node + 1) * from.veclen;
                 ++i) // NaN stay, and equal nothing
                if (before[i] < after[i] || before[i] > after[i])
                    changed += in.counts(static_cast<size_t>(node)) ? 1 : 0;
    });
    return changed;
}

void clamp::run()
{
    if (!min && !max) throw failure("give --min X, --max X or both", exit_usage);
    if (min && max && *min > *max)
        throw failure("--min " + in_words(*min) + " is above --max " + in_words(*max), exit_usage);
    pieces parts = file.split(result, array.mean(), mesh_use::extract, piece_with::numbers);
    piece_results made = result.results_of(parts);
    std::string name;
    qx_long changed = 0;
    parts.each_unmeshed([&](const input &in) {
        vtkDataSet *data = in.file.data;
        result.check(ending_of_data(data), "this mesh", file);
        const typed_array from = array.choose(in).array;
        stage_done("read");

        const typed_array to = like(from, from.count);
        to.kept->DeepCopy(from.kept);
        to.kept->SetName(from.name.c_str());
        changed += limit(in, from, to);
        const auto one = vtkSmartPointer<vtkDataSet>::Take(data->NewInstance());
        one->ShallowCopy(data);
        one->GetPointData()->AddArray(to.kept);
        made.add(in, one);
        name = from.name;
        stage_done("compute");
    });
    made.join();
    changed = processes::sum(static_cast<int64_t>(changed));
    result.write(made, parts, std::to_string(changed) + " values of " + agreed(name) + " limited");
}

} // namespace

extern const command_entry clamp_command{"clamp", "Limits the values of an array, and copies the rest",
                                         make_command<clamp>};
