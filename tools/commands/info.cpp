#include "command.hpp"
#include "console.hpp"
#include "options.hpp"

#include <vtkCellData.h>
#include <vtkDataSet.h>
#include <vtkImageData.h>
#include <vtkPointData.h>
#include <vtkStringArray.h>

#include <cmath>
#include <cstdio>

namespace {

class info : public command {
  public:
    explicit info(CLI::App &app) : file(app) {}
    void run() override;

  private:
    void print_file(const input &in) const;
    void print_suggestion(const input &in) const;

    input_options file;
};

// What the arrays of cells are good for.
const char *const use_of_cells = "taken from cells by probe, carried along by the rest";

void print_arrays(const char *where, const std::vector<typed_array> &arrays, const std::string &use)
{
    for (const typed_array &array : arrays) {
        const value_range range = range_of(array);
        std::string type = array.widened.empty() ? name_of_type(array.type)
                                                 : array.widened + ", taken as " + name_of_type(array.type);
        if (array.veclen > 1) type += " x " + std::to_string(array.veclen);
        std::string values = !range.any ? "no values" : array.veclen > 1 ? "length " : "";
        if (range.any) values += in_words(range.lo) + " .. " + in_words(range.hi);
        if (range.nans > 0) values += ", " + std::to_string(range.nans) + " without a value (NaN)";
        printf("%-5s array %s: %s, %s%s\n", where, array.name.c_str(), type.c_str(), values.c_str(),
               use.c_str());
    }
}

// Texts, of which no command takes more than this.
void print_texts(const char *where, vtkFieldData *fields)
{
    for (int i = 0; fields != nullptr && i < fields->GetNumberOfArrays(); ++i) {
        auto *texts = vtkStringArray::SafeDownCast(fields->GetAbstractArray(i));
        if (texts == nullptr) continue;
        std::string first = texts->GetNumberOfValues() > 0 ? texts->GetValue(0) : "";
        if (first.size() > 60) first = first.substr(0, 57) + "...";
        for (char &c : first) // it may hold anything
            if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = ' ';
        printf("%-5s array %s: text, %lld entries, \"%s\"%s\n", where,
               texts->GetName() != nullptr ? texts->GetName() : "",
               static_cast<long long>(texts->GetNumberOfValues()), first.c_str(),
               texts->GetNumberOfValues() > 1 ? " first" : "");
    }
}

// In quotes where a shell would take it for something else, and never like an option.
std::string for_shell(std::string word, bool is_file)
{
    if (is_file && word[0] == '-') word = "./" + word;
    const char *const plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=./,:@%";
    if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) return word;
    std::string quoted = "'";
    for (const char c : word)
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
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

// The array most worth it among those that have levels, or one of cells to take values of.
void info::print_suggestion(const input &in) const
{
    const typed_array *best = nullptr;
    value_range best_range;
    for (const typed_array &array : in.node) {
        const value_range range = range_of(array);
        if (!range.any || !(range.lo < range.hi) || !std::isfinite(range.hi - range.lo)) continue;
        if (best != nullptr && rank_of(array) >= rank_of(*best)) continue;
        best = &array;
        best_range = range;
    }
    const int ndim = in.mesh->cell_ndim();
    const std::string name = for_shell(file.path(), true);
    if (best != nullptr && ndim >= 2) {
        printf("try:   skoklana %s %s --array%c%s", ndim == 3 ? "iso" : "isoline", name.c_str(),
               best->name[0] == '-' ? '=' : ' ', for_shell(best->name, false).c_str());
        const double width = best_range.hi - best_range.lo;
        for (const double share : {0.25, 0.5, 0.75}) {
            const double level = rounded(best_range.lo + share * width, width);
            printf(level < 0 ? " --level=%s" : " --level %s", in_words(level == 0 ? 0 : level).c_str());
        }
        puts(" -o out.vtp --picture out.png");
    } else if (ndim >= 1 && (!in.node.empty() || !in.cell.empty())) {
        printf("try:   skoklana probe %s --grid 32 32 %d -o out.vti\n", name.c_str(), ndim == 3 ? 32 : 1);
    }
}

// Steps, spacing and so on, as far as there are any.
void info::print_file(const input &in) const
{
    printf("file:  %s\n", file.path().c_str());
    if (in.file.nblocks > 1) printf("file:  %d blocks\n", in.file.nblocks);
    if (in.file.nsteps > 1) printf("file:  %d time steps\n", in.file.nsteps);
    if (in.file.nsteps > 1 && !in.file.times.empty()) {
        const size_t n = in.file.times.size(), shown = 8;
        std::string times;
        for (size_t i = 0; i < n; ++i) {
            if (i + 1 < n && i >= shown) continue;
            times += (i == 0                        ? ""
                      : i + 1 == n && n > shown + 1 ? ", ..., "
                                                    : ", ") +
                     in_words(in.file.times[i]);
        }
        printf("times: %s\n", times.c_str());
    }
}

void info::run()
{
    const input in = file.load(mesh_use::extract);
    stage_done("read");
    print_file(in);
    printf("mesh:  %s, %s\n", in.mesh->kind.c_str(), in.mesh->size_in_words().c_str());
    printf("nodes: %lld\n", static_cast<long long>(in.mesh->nnodes));
    printf("cells: %lld\n", static_cast<long long>(in.mesh->mesh->ncells));
    double box[6];
    in.file.data->GetBounds(box);
    printf("box:   %s .. %s, %s .. %s, %s .. %s\n", in_words(box[0]).c_str(), in_words(box[1]).c_str(),
           in_words(box[2]).c_str(), in_words(box[3]).c_str(), in_words(box[4]).c_str(),
           in_words(box[5]).c_str());
    if (auto *image = vtkImageData::SafeDownCast(in.file.data)) {
        double origin[3];
        image->GetPoint(0, origin);
        const double *spacing = image->GetSpacing();
        printf("grid:  origin %s, %s, %s; spacing %s, %s, %s\n", in_words(origin[0]).c_str(),
               in_words(origin[1]).c_str(), in_words(origin[2]).c_str(), in_words(spacing[0]).c_str(),
               in_words(spacing[1]).c_str(), in_words(spacing[2]).c_str());
    }
    print_arrays("node", in.node, "");
    print_texts("node", in.file.data->GetPointData());
    print_arrays("cell", in.cell, std::string("; ") + use_of_cells);
    print_texts("cell", in.file.data->GetCellData());
    print_texts("file", in.file.data->GetFieldData());
    print_suggestion(in);
}

} // namespace

extern const command_entry info_command{"info", "Tells what a file holds, and levels worth a try",
                                        make_command<info>};
