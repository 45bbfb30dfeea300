#include "stream_lines.hpp"

#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "parse.hpp"
#include "probe.hpp"
#include "stream_pieces.hpp"

#include <vtkDataSet.h>
#include <vtkPolyData.h>

namespace {

constexpr int64_t most_seeds = 100000000;

class stream : public command {
  public:
    explicit stream(CLI::App &app);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    void check();
    std::vector<double> chosen_seeds(const input *in, pieces &parts) const;
    void finish(const stream_lines &made, size_t nseeds, const double *box);
    void run_in_pieces(pieces &parts);
    void tell(const stream_lines &made, size_t nseeds) const;

    input_options file;
    vectors_options vectors;
    result_options result;
    std::vector<std::string> line, plane; // A B N; ORIGIN A B NA NB
    int64_t random = 0;
    std::string seeds;
    line_options options;
};

stream::stream(CLI::App &app)
    : file(app, input_options::in_pieces::yes), vectors(app),
      result(app, "result: .vtp", result_options::drawn::yes)
{
    app.footer(
        "\nNodes have speed, time (from the seed, negative against the field) and the vector. Each line has "
        "its\nseed's number and, in ended, why it ended: 1 it left the mesh, 2 it came to nodes without a "
        "value,\n3 it was slower than --min-speed or at rest, 4 --max-steps, 5 --max-length, 6 no step is "
        "short enough\n"
        "for the field. With --both, began tells the same of its other end. Lines in pieces are those of "
        "one\n"
        "process, but where cells overlap: there it counts which of them come first.");
    app.add_option("--seeds-line", line, "seeds on the line from A to B, N of them; A and B as x,y,z")
        ->expected(3)
        ->type_name("A B N");
    app.add_option("--seeds-plane", plane, "seeds on a lattice of NA by NB, from ORIGIN to A and to B")
        ->expected(5)
        ->type_name("ORIGIN A B NA NB");
    app.add_option("--seeds-random", random, "N seeds in cells taken at random, the same each time")
        ->check(CLI::Range(int64_t{1}, most_seeds))
        ->type_name("N");
    app.add_option("--seeds", seeds,
                   "seeds at the points of a .csv file (x,y,z) or of any mesh that VTK reads");
    app.add_flag("--both", options.both, "trace against the field too");
    app.add_option("--order", options.order,
                   "of the method: 1, 2 or 4 (the default); 3 is a variant whose error is that of 1")
        ->check(CLI::Range(1, 4));
    app.add_option("--ribbon", options.ribbon_width,
                   "ribbons of this width in place of lines; they turn as the field does around the line")
        ->check(positive_number())
        ->type_name("WIDTH");
    app.add_option("--max-steps", options.max_steps, "end a line after N steps each way; else 2000")
        ->check(CLI::Range(1, 10000000))
        ->type_name("N");
    app.add_option("--max-length", options.max_length, "end a line at this length each way")
        ->check(positive_number())
        ->type_name("L");
    app.add_option("--min-speed", options.min_speed, "end a line where the field is slower")
        ->check(positive_number())
        ->type_name("S");
    app.add_flag("--library", options.by_library,
                 "by the library's own places, which are exact to a twentieth of a cell");
}

// A count of seeds, times that of the other direction.
static int64_t few_enough(const char *option, const std::string &text, int64_t times)
{
    const int64_t count = parse_count(option, text);
    if (count > most_seeds / times)
        throw failure(option + (": " + text) + " makes more than " + std::to_string(most_seeds) + " seeds",
                      exit_usage);
    return count;
}

void stream::check()
{
    const int ways =
        (line.empty() ? 0 : 1) + (plane.empty() ? 0 : 1) + (random == 0 ? 0 : 1) + (seeds.empty() ? 0 : 1);
    if (ways != 1)
        throw failure("give one of --seeds-line A B N, --seeds-plane ORIGIN A B NA NB, --seeds-random N and "
                      "--seeds FILE",
                      exit_usage);
    result.check(" .vtp ", "a set of lines");
}

// in: the one piece of a plain start.
std::vector<double> stream::chosen_seeds(const input *in, pieces &parts) const
{
    if (!line.empty()) {
        const std::vector<double> a = parse_point("--seeds-line", line[0]),
                                  b = parse_point("--seeds-line", line[1]);
        return points_on_line(a.data(), b.data(), few_enough("--seeds-line", line[2], 1)).xyz;
    }
    if (!plane.empty()) {
        std::vector<double> corners[3];
        for (size_t i = 0; i < 3; ++i)
            corners[i] = parse_point("--seeds-plane", plane[i]);
        const int64_t na = few_enough("--seeds-plane", plane[3], 1),
                      nb = few_enough("--seeds-plane", plane[4], na);
        return seeds_on_plane(corners[0].data(), corners[1].data(), corners[2].data(), na, nb);
    }
    if (random == 0) return seeds_in_file(seeds);
    return in != nullptr ? random_seeds(*in->mesh, random) : random_seeds_in_pieces(parts, random);
}

void stream::tell(const stream_lines &made, size_t nseeds) const
{
    const std::string of = " of " + std::to_string(nseeds) + " seeds ";
    if (made.outside > 0) say_note(std::to_string(made.outside) + of + "are outside the mesh");
    if (made.still > 0)
        say_note(std::to_string(made.still) + of +
                 "have no value, or are at rest or slower than --min-speed");
    if (made.pointlike > 0) say_note(std::to_string(made.pointlike) + of + "have lines without length");
    if (made.flattened) say_note("the mesh is flat: vectors count as far as they lie within it");
    if (made.plain > 0)
        say_note(std::to_string(made.plain) +
                 " lines have no ribbon: the field has no derivatives all along");
    for (int end = 1; end < line_ends; ++end)
        if (made.ends[end] > 0)
            say("%8lld %s", static_cast<long long>(made.ends[end]), in_words(static_cast<line_end>(end)));
}

// All.
void stream::finish(const stream_lines &made, size_t nseeds, const double *box)
{
    std::string counts;
    processes::agree([&] {
        if (!processes::is_first()) return;
        const bool ribbons = made.data->GetNumberOfStrips() > 0;
        counts = std::to_string(made.nlines) + (ribbons ? " ribbons, " : " lines, ") +
                 std::to_string(made.nnodes) + " nodes";
        result.write(made.data, counts);
        tell(made, nseeds);
    });
    if (!result.pictured()) return;
    drawing picture;
    picture.data = made.drawn;
    picture.colour_by = "speed";
    std::copy_n(box, 6, picture.box);
    result.draw(picture, counts);
}

// Lines of all pieces are one result, which the first process writes.
void stream::run_in_pieces(pieces &parts)
{
    const std::vector<double> from = chosen_seeds(nullptr, parts);
    stage_done("read");
    const stream_lines made = trace_lines_in_pieces(
        parts, [this](const input &in) { return vectors.choose_rows(in); }, from, options);
    stage_done("compute");
    finish(made, from.size() / 3, parts.whole().box);
}

void stream::run()
{
    check();
    pieces parts = file.split(mesh_use::trace, piece_with::ghosts, vectors.mean());
    if (parts.several()) return run_in_pieces(parts);
    parts.each([&](const input &in) {
        if (in.mesh->mesh->ncells == 0) throw failure(file.path() + ": has no cells to trace lines in");
        const scalar_array rows = vectors.choose_rows(in);
        const std::vector<double> from = chosen_seeds(&in, parts);
        stage_done("read");

        const stream_lines made = trace_lines(file.path(), *in.mesh, rows, from, options);
        stage_done("compute");
        finish(made, from.size() / 3, parts.whole().box);
    });
}

} // namespace

extern const command_entry stream_command{"stream", "Traces stream lines and ribbons of a vector field",
                                          make_command<stream>};
