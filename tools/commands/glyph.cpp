#include "glyphs.hpp"

#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"

#include <vtkDataSet.h>
#include <vtkPolyData.h>

#include <algorithm>
#include <cmath>

namespace {

class glyph : public command {
  public:
    explicit glyph(CLI::App &app);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    const typed_array *chosen_sizes(const input &in) const;
    std::vector<double> lengths_of_glyphs(const std::vector<double> &sizes, double longest,
                                          double diagonal) const;
    void choose_nodes(const input &in, const std::vector<double> &lengths, const std::vector<double> &sizes,
                      glyph_options *options, int64_t *left_out) const;
    double longest_size(pieces &parts);

    input_options file;
    vectors_options vectors;
    result_options result;
    std::string shape = "arrow", scale_array;
    double scale = 0, fixed = 0;
    int64_t every = 1;
};

glyph::glyph(CLI::App &app)
    : file(app, input_options::in_pieces::yes), vectors(app),
      result(app, "result: .vtp", result_options::drawn::yes)
{
    app.footer("\nShapes are made for a length of 1 along x: arrow and cone begin at the node, sphere and "
               "cube lie around "
               "it.\nNodes with no vector (NaN) or one of length 0 have no glyph.");
    app.add_option("--shape", shape,
                   "arrow (the default), cone, sphere, cube, or a file of polygons or lines");
    CLI::Option *by =
        app.add_option("--scale", scale,
                       "length of a glyph for a vector of length 1; else such that the longest is a "
                       "twentieth of the mesh's diagonal");
    by->check(positive_number())->type_name("F");
    app.add_option("--scale-array", scale_array, "node array whose length is taken in place of the vector's");
    app.add_option("--fixed", fixed, "all glyphs of this length")
        ->check(positive_number())
        ->type_name("F")
        ->excludes(by);
    app.add_option("--every", every, "glyphs at every Nth node only")->check(whole_number(1))->type_name("N");
}

std::vector<double> glyph::lengths_of_glyphs(const std::vector<double> &sizes, double longest,
                                             double diagonal) const
{
    if (fixed > 0) return std::vector<double>(sizes.size(), fixed);
    std::vector<double> lengths = sizes;
    for (double &length : lengths)
        length = scale > 0 ? length * scale : longest > 0 ? length / longest * (diagonal / 20) : 0;
    return lengths;
}

const typed_array *glyph::chosen_sizes(const input &in) const
{
    if (scale_array.empty()) return nullptr;
    const typed_array *array = find_array(in.node, scale_array);
    if (array == nullptr)
        throw failure(file.path() + ": has no node array " + scale_array +
                      " for --scale-array; its node arrays: " + names_of(in.node));
    return array;
}

// A node on a seam has its glyph in one piece.
void glyph::choose_nodes(const input &in, const std::vector<double> &lengths,
                         const std::vector<double> &sizes, glyph_options *options, int64_t *left_out) const
{
    for (size_t node = 0; node < lengths.size(); ++node) {
        const auto number = static_cast<vtkIdType>(node);
        if (!in.counts(node) || (in.node_number.empty() ? number : in.node_number[node]) % every != 0)
            continue;
        const bool has_one = std::isfinite(lengths[node]) && lengths[node] > 0 && std::isfinite(sizes[node]);
        if (has_one) {
            options->nodes.push_back(number);
            options->values.push_back(sizes[node]);
        } else {
            ++*left_out;
        }
    }
}

double glyph::longest_size(pieces &parts)
{
    double longest = 0;
    parts.each_unmeshed([&](const input &in) {
        const std::vector<double> lengths = lengths_of(vectors.choose_rows(in));
        const typed_array *size_array = chosen_sizes(in);
        const std::vector<double> sizes =
            size_array != nullptr ? lengths_of(rows_with_null(*size_array, false, 0)) : lengths;
        glyph_options options = {};
        int64_t left_out = 0;
        choose_nodes(in, lengths, sizes, &options, &left_out);
        for (const double size : options.values)
            longest = std::max(longest, size);
    });
    return processes::greatest(longest);
}

void glyph::run()
{
    result.check(" .vtp ", "a set of glyphs", file);
    const glyph_shape copied = shape_named(shape);
    pieces parts = file.split(result, vectors.mean(), mesh_use::extract, piece_with::numbers);
    piece_results made = result.results_of(parts);
    const bool by_longest = scale == 0 && fixed == 0;
    double longest = parts.several() && by_longest ? longest_size(parts) : 0;
    int64_t left_out = 0, nglyphs = 0;
    drawing picture;
    parts.each_unmeshed([&](const input &in) {
        const scalar_array rows = vectors.choose_rows(in);
        const typed_array *size_array = chosen_sizes(in);
        stage_done("read");

        const std::vector<double> lengths = lengths_of(rows),
                                  sizes = size_array != nullptr
                                              ? lengths_of(rows_with_null(*size_array, false, 0))
                                              : lengths;
        glyph_options options = {};
        options.vectors = &rows.array;
        options.value_name = rows.array.name != "magnitude" ? "magnitude" : "length";
        if (size_array != nullptr && size_array->name != rows.array.name)
            options.value_name = size_array->name;
        choose_nodes(in, lengths, sizes, &options, &left_out);
        if (!parts.several() && !options.values.empty())
            longest = *std::max_element(options.values.begin(), options.values.end());
        const double *box = parts.whole().box;
        std::copy_n(box, 6, options.box);
        options.lengths = lengths_of_glyphs(options.values, longest,
                                            std::hypot(box[1] - box[0], box[3] - box[2], box[5] - box[4]));
        made.add(in, place_glyphs(file.path(), in.file.data, copied, options));
        nglyphs += static_cast<int64_t>(options.nodes.size());
        picture.colour_by = options.value_name;
        stage_done("compute");
    });
    made.join();
    left_out = processes::sum(left_out);
    if (left_out > 0)
        say_note(std::to_string(left_out) + " nodes have no glyph: they have no vector, or one of length 0");
    const std::string counts =
        std::to_string(processes::sum(nglyphs)) + " glyphs, " + std::to_string(made.nnodes()) + " nodes";
    result.write(made, parts, counts);
    result.draw(picture, made, parts, counts);
}

} // namespace

extern const command_entry glyph_command{"glyph", "Draws a shape at each node, turned and sized by a vector",
                                         make_command<glyph>};
