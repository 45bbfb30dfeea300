#include "carry.hpp"
#include "command.hpp"
#include "console.hpp"
#include "options.hpp"

#include <vtkCellData.h>
#include <vtkDataSet.h>
#include <vtkImageData.h>
#include <vtkPointData.h>
#include <vtkStringArray.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// An array over all pieces.
struct array_summary {
    std::string name, type; // in words
    int code = 0, veclen = 1;
    value_range range;
};

class info : public command {
  public:
    explicit info(CLI::App &app) : file(app, input_options::in_pieces::yes) {}
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    std::string about_file(const input &in) const;
    void print_suggestion(const std::vector<array_summary> &node, bool any_cell, int ndim) const;

    input_options file;
};

// What the arrays of cells are good for.
const char *const use_of_cells = "taken from cells by probe, carried along by the rest";

// Rows that are another piece's are not counted there and here.
void take_in(std::vector<array_summary> *to, const std::vector<typed_array> &arrays,
             const std::vector<qx_long> &counted)
{
    for (const typed_array &all : arrays) {
        const typed_array array =
            counted.size() < static_cast<size_t>(all.count) ? rows_of({all}, counted).front() : all;
        const auto found = std::find_if(to->begin(), to->end(),
                                        [&](const array_summary &one) { return one.name == array.name; });
        if (found != to->end()) {
            widen(&found->range, range_of(array));
            continue;
        }
        array_summary one;
        one.name = array.name;
        one.type = array.widened.empty() ? name_of_type(array.type)
                                         : array.widened + ", taken as " + name_of_type(array.type);
        one.code = array.type;
        one.veclen = array.veclen;
        one.range = range_of(array);
        to->push_back(one);
    }
}

// As all processes have them; some may have no piece. all.
std::vector<array_summary> agreed_summaries(const std::vector<array_summary> &own)
{
    std::string names;
    for (const array_summary &one : own)
        names += one.name + '\0' + one.type + '\0' + std::to_string(one.code) + '\0' +
                 std::to_string(one.veclen) + '\0';
    const std::string all = agreed(names);
    std::vector<array_summary> out;
    for (size_t at = 0; at < all.size();) {
        const auto next = [&] {
            std::string text = all.c_str() + at;
            at += text.size() + 1;
            return text;
        };
        array_summary one;
        one.name = next();
        one.type = next();
        one.code = std::stoi(next());
        one.veclen = std::stoi(next());
        const auto found = std::find_if(own.begin(), own.end(),
                                        [&](const array_summary &other) { return other.name == one.name; });
        one.range = agreed(found != own.end() ? found->range : value_range());
        out.push_back(one);
    }
    return out;
}

// Whole numbers with all their digits.
std::string value_in_words(const array_summary &array, double value)
{
    const bool whole = array.code != DTYPE_FLOAT && array.code != DTYPE_DOUBLE && array.veclen == 1;
    char text[40];
    snprintf(text, sizeof text, "%.0f", value);
    return whole ? text : in_words(value);
}

void print_arrays(const char *where, const std::vector<array_summary> &arrays, const std::string &use)
{
    for (const array_summary &array : arrays) {
        const value_range &range = array.range;
        std::string type = array.type;
        if (array.veclen > 1) type += " x " + std::to_string(array.veclen);
        std::string values = !range.any ? "no values" : array.veclen > 1 ? "length " : "";
        if (range.any) values += value_in_words(array, range.lo) + " .. " + value_in_words(array, range.hi);
        if (range.nans > 0) values += ", " + std::to_string(range.nans) + " without a value (NaN)";
        printf("%-5s array %s: %s, %s%s\n", where, array.name.c_str(), type.c_str(), values.c_str(),
               use.c_str());
    }
}

// Texts, of which no command takes more than this.
std::string texts_of(const char *where, vtkFieldData *fields)
{
    std::string lines;
    for (int i = 0; fields != nullptr && i < fields->GetNumberOfArrays(); ++i) {
        auto *texts = vtkStringArray::SafeDownCast(fields->GetAbstractArray(i));
        if (texts == nullptr) continue;
        std::string first = texts->GetNumberOfValues() > 0 ? texts->GetValue(0) : "";
        if (first.size() > 60) first = first.substr(0, 57) + "...";
        for (char &c : first) // it may hold anything
            if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = ' ';
        lines.append(where).append(" array ").append(texts->GetName() != nullptr ? texts->GetName() : "");
        lines.append(": text, ").append(std::to_string(texts->GetNumberOfValues())).append(" entries, \"");
        lines.append(first).append(texts->GetNumberOfValues() > 1 ? "\" first\n" : "\"\n");
    }
    return lines;
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
int rank_of(const array_summary &array)
{
    const bool floating = array.code == DTYPE_FLOAT || array.code == DTYPE_DOUBLE;
    const bool narrow = array.code <= DTYPE_SHORT;
    return array.veclen == 1 ? (floating ? 0 : narrow ? 1 : 3) : floating ? 2 : 4;
}

// The array most worth it among those that have levels, or one of cells to take values of.
void info::print_suggestion(const std::vector<array_summary> &node, bool any_cell, int ndim) const
{
    const array_summary *best = nullptr;
    value_range best_range;
    for (const array_summary &array : node) {
        const value_range &range = array.range;
        if (!range.any || !(range.lo < range.hi) || !std::isfinite(range.hi - range.lo)) continue;
        if (best != nullptr && rank_of(array) >= rank_of(*best)) continue;
        best = &array;
        best_range = range;
    }
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
    } else if (ndim >= 1 && (!node.empty() || any_cell)) {
        printf("try:   skoklana probe %s --grid 32 32 %d -o out.vti\n", name.c_str(), ndim == 3 ? 32 : 1);
    }
}

// Blocks and steps, as far as there are any.
std::string info::about_file(const input &in) const
{
    std::string about;
    if (in.file.nblocks > 1) about += "file:  " + std::to_string(in.file.nblocks) + " blocks\n";
    if (in.file.nsteps > 1) about += "file:  " + std::to_string(in.file.nsteps) + " time steps\n";
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
        about += "times: " + times + "\n";
    }
    return about;
}

// Of an image, or of the one that it is a piece of.
std::string about_steps(const input &in)
{
    vtkDataSet *data = in.mesh->whole != nullptr ? in.mesh->whole->lattice.Get() : in.file.data.Get();
    auto *image = vtkImageData::SafeDownCast(data);
    if (image == nullptr) return "";
    double origin[3];
    image->GetPoint(0, origin);
    const double *spacing = image->GetSpacing();
    return "grid:  origin " + in_words(origin[0]) + ", " + in_words(origin[1]) + ", " + in_words(origin[2]) +
           "; spacing " + in_words(spacing[0]) + ", " + in_words(spacing[1]) + ", " + in_words(spacing[2]) +
           "\n";
}

void info::run()
{
    std::string about, steps, node_texts, cell_texts, file_texts;
    std::vector<array_summary> node, cell;
    pieces parts = file.split(mesh_use::extract, piece_with::numbers);
    parts.each([&](const input &in) {
        stage_done("read");
        about = about_file(in);
        steps = about_steps(in);
        std::vector<qx_long> nodes, cells;
        for (vtkIdType i = 0; i < in.file.data->GetNumberOfPoints(); ++i)
            if (in.counts(static_cast<size_t>(i))) nodes.push_back(i);
        for (vtkIdType i = 0; i < in.file.data->GetNumberOfCells(); ++i)
            cells.push_back(i);
        take_in(&node, in.node, nodes);
        take_in(&cell, in.cell, cells);
        if (node_texts.empty()) node_texts = texts_of("node ", in.file.data->GetPointData());
        if (cell_texts.empty()) cell_texts = texts_of("cell ", in.file.data->GetCellData());
        if (file_texts.empty()) file_texts = texts_of("file ", in.file.data->GetFieldData());
    });
    const pieces::totals &whole = parts.whole();
    printf("file:  %s\n%s", file.path().c_str(), agreed(about).c_str());
    printf("mesh:  %s, %s\n", whole.kind.c_str(), whole.size_in_words.c_str());
    printf("nodes: %lld\n", static_cast<long long>(whole.nnodes));
    printf("cells: %lld\n", static_cast<long long>(whole.ncells));
    const double *box = whole.box;
    printf("box:   %s .. %s, %s .. %s, %s .. %s\n", in_words(box[0]).c_str(), in_words(box[1]).c_str(),
           in_words(box[2]).c_str(), in_words(box[3]).c_str(), in_words(box[4]).c_str(),
           in_words(box[5]).c_str());
    fputs(agreed(steps).c_str(), stdout);
    node = agreed_summaries(node);
    cell = agreed_summaries(cell);
    print_arrays("node", node, "");
    fputs(agreed(node_texts).c_str(), stdout);
    print_arrays("cell", cell, std::string("; ") + use_of_cells);
    fputs(agreed(cell_texts).c_str(), stdout);
    fputs(agreed(file_texts).c_str(), stdout);
    print_suggestion(node, !cell.empty(), whole.cell_ndim);
}

} // namespace

extern const command_entry info_command{"info", "Tells what a file holds, and levels worth a try",
                                        make_command<info>};
