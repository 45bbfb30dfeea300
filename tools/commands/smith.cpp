#include "chart_drawing.hpp"
#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "touchstone.hpp"
#include "write.hpp"

#include <skoklana/chart.h>

#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkDoubleArray.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkStringArray.h>
#include <vtkUnsignedCharArray.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>

namespace {

constexpr double degrees = 180 / 3.14159265358979323846;

// Of runs that are as good as each other the first is taken: the round ones come first. From each tick there is a way
// on to 10, close and wide.
const std::vector<int> usual_ticks = {1,  2,  3, 4,  5,  6,  7,  8,  9, 10, 2, 4,  6,  8, 10, 5, 10,
                                      1,  2,  5, 10, 2,  5,  10, 1,  2, 3,  4, 5,  10, 2, 3,  4, 5,
                                      10, 4,  6, 8,  10, 6,  8,  10, 3, 4,  5, 10, 3,  5, 10, 4, 10,
                                      8,  10, 6, 10, 2,  10, 7,  10, 9, 10, 3, 10, 1,  10};

struct release_chart {
    void operator()(GraticuleMeshInfo *info) const { DestroyGraticuleMeshInfo(info); }
};
using smith_chart = std::unique_ptr<GraticuleMeshInfo, release_chart>;

class smith : public command {
  public:
    explicit smith(CLI::App &app);
    void run() override;

  private:
    void check() const;
    smith_chart make_chart() const;
    vtkSmartPointer<vtkPolyData> as_data(const chart_drawing &drawn, const reflection_curve &curve) const;

    double density = 90, spacing = 0.05;
    std::vector<int> ticks = usual_ticks;
    std::string data, out, picture;
    int size = 1000;
};

smith::smith(CLI::App &app)
{
    app.add_option("--density", density, "points of a line on half a circle as large as the chart")
        ->check(CLI::Range(1.0, 10000.0))
        ->capture_default_str();
    app.add_option("--spacing", spacing,
                   "least distance between neighbouring circles, of the chart's width of 2")
        ->check(CLI::Range(0.002, 1.0))
        ->capture_default_str();
    app.add_option(
           "--ticks", ticks,
           "runs of whole numbers from 1 to 10 for the values of a band: 1,2,5,10,5,10 are two runs, each "
           "beginning where numbers fall back")
        ->delimiter(',')
        ->check(CLI::Range(1, 10))
        ->default_str("");
    app.add_option("--data,-d", data, "draw a reflection curve: a Touchstone file of one port, .s1p");
    app.add_option("--out,-o", out, "the chart: .vtp, .svg or .pdf");
    app.add_option("--picture,-p", picture, "draw it into a .png or .jpg file; needs no display");
    app.add_option("--size", size, "of the picture in pixels")
        ->check(CLI::Range(100, 8000))
        ->capture_default_str();
    app.footer(
        "Circles of constant resistance and arcs of constant reactance, labelled by their values. The .vtp\n"
        "file has an array \"part\" (0 grid, 1 axis and rim, 2 curve) of its lines, and points with an "
        "array\n"
        "\"label\".\n"
        "\n"
        "  skoklana smith -o chart.pdf\n"
        "  skoklana smith --spacing 0.03 --data antenna.s1p -o antenna.svg -p antenna.png");
}

void smith::check() const
{
    if (out.empty() && picture.empty())
        throw failure("nowhere to put the chart: give -o OUT.svg, --picture OUT.png or both", exit_usage);
    if (!out.empty()) check_ending(out, " .vtp .svg .pdf ", "a chart");
    if (!picture.empty()) check_ending(picture, " .png .jpg .jpeg ", "a picture");
}

smith_chart smith::make_chart() const
{
    smith_chart chart(CreateGraticuleMeshInfo(static_cast<float>(density), static_cast<float>(spacing),
                                              ticks.data(), static_cast<int>(ticks.size())));
    if (chart == nullptr) throw std::bad_alloc();
    return chart;
}

// The chart's lines, each once: those of lower ticks come again with every level of a band.
void add_lines(const GraticuleMeshInfo *chart, chart_drawing *drawn)
{
    qx_long npoints = 0, nlines = 0;
    GetGraticuleMeshPoints(chart, &npoints, nullptr, &nlines, nullptr);
    std::vector<float> coords(static_cast<size_t>(3 * npoints));
    std::vector<qx_long> lines(static_cast<size_t>(2 * nlines));
    GetGraticuleMeshPoints(chart, nullptr, coords.data(), nullptr, lines.data());
    std::set<std::vector<double>> seen;
    for (size_t line = 0; 2 * line < lines.size(); ++line) {
        chart_line made = {line < 2 ? chart_part::frame : chart_part::grid, {}};
        for (qx_long i = lines[2 * line]; i <= lines[2 * line + 1]; ++i)
            for (size_t d = 0; d < 2; ++d)
                made.xy.push_back(coords[static_cast<size_t>(3 * i) + d]);
        if (seen.insert(made.xy).second) drawn->lines.push_back(made);
    }
}

// Resistances stand upright along the axis, reactances around the rim, those of the lower half below 0.
void add_labels(const GraticuleMeshInfo *chart, double spacing, chart_drawing *drawn)
{
    qx_long nlabels = 0, text_size = 0;
    GetAnnotationMeshPoints(chart, &nlabels, nullptr, nullptr, nullptr, &text_size, nullptr);
    std::vector<float> axis(static_cast<size_t>(3 * nlabels)), rim(axis.size());
    std::vector<char> text(static_cast<size_t>(text_size));
    GetAnnotationMeshPoints(chart, nullptr, axis.data(), rim.data(), nullptr, nullptr, text.data());
    const double height = std::min(0.04, 0.8 * spacing);
    const char *label = text.data();
    for (size_t i = 0; i < static_cast<size_t>(nlabels); ++i, label += strlen(label) + 1) {
        const double x = axis[3 * i], u = rim[3 * i], v = rim[3 * i + 1];
        if (i > 0)
            drawn->labels.push_back(
                {label, x - 0.5 * height, -0.3 * height, 90, height, chart_label::leftward});
        const double turn = std::atan2(v, u) * degrees, away = 1 + height;
        // Two of infinity's neighbours would lie upon each other.
        if (i > 0 && u > 0 && v < 0.4 * height * static_cast<double>(strlen(label) + 1)) continue;
        drawn->labels.push_back({label, u * away, v * away, turn - 90, height, chart_label::centred});
        if (i > 0)
            drawn->labels.push_back(
                {"-" + std::string(label), u * away, -v * away, 90 - turn, height, chart_label::centred});
    }
}

vtkSmartPointer<vtkPolyData> smith::as_data(const chart_drawing &drawn, const reflection_curve &curve) const
{
    vtkNew<vtkPoints> points;
    vtkNew<vtkCellArray> lines, verts;
    vtkNew<vtkUnsignedCharArray> part;
    part->SetName("part");
    vtkNew<vtkStringArray> label;
    label->SetName("label");
    vtkNew<vtkDoubleArray> frequency;
    frequency->SetName("frequency");
    for (const chart_label &text : drawn.labels) {
        const vtkIdType point = points->InsertNextPoint(text.x, text.y, 0);
        verts->InsertNextCell(1, &point);
        part->InsertNextValue(1);
        label->InsertNextValue(text.text);
        frequency->InsertNextValue(std::nan(""));
    }
    for (const chart_line &line : drawn.lines) {
        lines->InsertNextCell(static_cast<int>(line.xy.size() / 2));
        part->InsertNextValue(line.part == chart_part::grid ? 0 : line.part == chart_part::frame ? 1 : 2);
        for (size_t i = 0; i + 1 < line.xy.size(); i += 2) {
            lines->InsertCellPoint(points->InsertNextPoint(line.xy[i], line.xy[i + 1], 0));
            label->InsertNextValue("");
            frequency->InsertNextValue(
                line.part == chart_part::curve
                    ? curve.samples[std::min(i / 2, curve.samples.size() - 1)].frequency
                    : std::nan(""));
        }
    }
    auto made = vtkSmartPointer<vtkPolyData>::New();
    made->SetPoints(points);
    made->SetVerts(verts);
    made->SetLines(lines);
    made->GetCellData()->AddArray(part);
    made->GetPointData()->AddArray(label);
    if (!curve.samples.empty()) made->GetPointData()->AddArray(frequency);
    return made;
}

void smith::run()
{
    check();
    reflection_curve curve = {};
    if (!data.empty()) curve = read_touchstone(data);
    stage_done("read");

    const smith_chart chart = make_chart();
    chart_drawing drawn = {{}, {}, 1.12};
    add_lines(chart.get(), &drawn);
    add_labels(chart.get(), spacing, &drawn);
    size_t nlevels = 0;
    for (const graticule_level *level = chart->levels; level != nullptr; level = level->next)
        ++nlevels;
    std::string counts =
        std::to_string(drawn.lines.size()) + " lines, " + std::to_string(nlevels) + " values";
    if (!data.empty()) {
        chart_line line = {chart_part::curve, {}};
        for (const reflection_sample &sample : curve.samples) {
            line.xy.insert(line.xy.end(), {sample.real, sample.imaginary});
            drawn.reach = std::max(drawn.reach, 1.05 * std::hypot(sample.real, sample.imaginary));
        }
        if (curve.samples.size() == 1) line.xy.insert(line.xy.end(), {line.xy[0], line.xy[1]}); // a dot
        drawn.lines.push_back(line);
        counts += ", curve of " + std::to_string(curve.samples.size()) + " points at " +
                  in_words(curve.resistance) + " ohms";
    }
    stage_done("compute");

    if (!out.empty()) {
        const std::string ending = std::filesystem::path(out).extension().string();
        if (ending == ".svg")
            write_svg(out, drawn);
        else if (ending == ".pdf")
            write_pdf(out, drawn);
        else
            write_data_set(out, as_data(drawn, curve));
        stage_done("write");
        say("%s: %s", out.c_str(), counts.c_str());
    }
    if (picture.empty()) return;
    write_chart_picture(picture, drawn, size);
    stage_done("picture");
    say("%s: picture of %s", picture.c_str(), counts.c_str());
}

} // namespace

extern const command_entry smith_command{"smith", "A Smith chart, with a reflection curve",
                                         make_command<smith>};
