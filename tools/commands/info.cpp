#include "command.hpp"
#include "console.hpp"
#include "options.hpp"

#include <vtkDataSet.h>

#include <cmath>
#include <cstdio>

namespace {

class info : public command {
  public:
    explicit info(CLI::App &app) : file(app) {}
    void run() override;

  private:
    void print_suggestion(const input &in) const;

    input_options file;
};

void print_arrays(const char *where, const std::vector<typed_array> &arrays)
{
    for (const typed_array &array : arrays) {
        const value_range range = range_of(array);
        std::string type = array.widened.empty() ? name_of_type(array.type)
                                                 : array.widened + ", taken as " + name_of_type(array.type);
        if (array.veclen > 1) type += " x " + std::to_string(array.veclen);
        std::string values = !range.any ? "no values" : array.veclen > 1 ? "length " : "";
        if (range.any) values += in_words(range.lo) + " .. " + in_words(range.hi);
        if (range.nans > 0) values += ", " + std::to_string(range.nans) + " without a value (NaN)";
        printf("%-5s array %s: %s, %s\n", where, array.name.c_str(), type.c_str(), values.c_str());
    }
}

// A round number near x, of a grain that suits the width of the range.
double rounded(double x, double width)
{
    const double grain = std::pow(10, std::floor(std::log10(width)) - 1);
    return std::round(x / grain) * grain;
}

// How likely an array is what a user wants levels of: wide integers are mostly numbers of things.
int rank_of(const typed_array &array)
{
    const bool floating = array.type == DTYPE_FLOAT || array.type == DTYPE_DOUBLE;
    const bool narrow = array.type <= DTYPE_SHORT;
    return array.veclen == 1 ? (floating ? 0 : narrow ? 1 : 3) : floating ? 2 : 4;
}

void info::print_suggestion(const input &in) const
{
    const typed_array *best = nullptr;
    for (const typed_array &array : in.node)
        if (best == nullptr || rank_of(array) < rank_of(*best)) best = &array;
    const int ndim = in.mesh->cell_ndim();
    if (best == nullptr || ndim < 2) return;
    const value_range range = range_of(*best);
    if (!range.any || !(range.lo < range.hi)) return;
    printf("try:   skoklana %s %s --array \"%s\"", ndim == 3 ? "iso" : "isoline", file.path().c_str(),
           best->name.c_str());
    for (const double share : {0.25, 0.5, 0.75})
        printf(" --level %s",
               in_words(rounded(range.lo + share * (range.hi - range.lo), range.hi - range.lo)).c_str());
    puts(" -o out.vtp --picture out.png");
}

void info::run()
{
    const input in = file.load(mesh_use::extract);
    stage_done("read");
    printf("file:  %s\n", file.path().c_str());
    if (in.file.nblocks > 1) printf("file:  %d blocks\n", in.file.nblocks);
    if (in.file.nsteps > 1) printf("file:  %d time steps\n", in.file.nsteps);
    printf("mesh:  %s, %s\n", in.mesh->kind.c_str(), in.mesh->size_in_words().c_str());
    printf("nodes: %lld\n", static_cast<long long>(in.mesh->nnodes));
    printf("cells: %lld\n", static_cast<long long>(in.mesh->mesh->ncells));
    double box[6];
    in.file.data->GetBounds(box);
    printf("box:   %s .. %s, %s .. %s, %s .. %s\n", in_words(box[0]).c_str(), in_words(box[1]).c_str(),
           in_words(box[2]).c_str(), in_words(box[3]).c_str(), in_words(box[4]).c_str(),
           in_words(box[5]).c_str());
    print_arrays("node", in.node);
    print_arrays("cell", in.cell);
    print_suggestion(in);
}

} // namespace

extern const command_entry info_command{"info", "Tells what a file holds, and levels worth a try",
                                        make_command<info>};
