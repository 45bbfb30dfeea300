// terrain and smith.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkCell.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDoubleArray.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPNGReader.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkStringArray.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace {

bool holds(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// ---- terrain ------------------------------------------------------------------------------------------------

double hills(double x, double y)
{
    return 3 * std::sin(0.31 * x) * std::cos(0.23 * y) + 0.02 * x * y;
}

// Nodes nx by ny in the plane of two axes, at -2 and by 0.5 along the first of them, at 7 and by 1 along the other.
std::string map_file(const char *name, int nx, int ny, int flat, double (*height)(double, double) = hills)
{
    vtkNew<vtkImageData> image;
    int dims[3] = {1, 1, 1};
    double origin[3] = {5, 5, 5}, spacing[3] = {1, 1, 1};
    const int u = flat == 0 ? 1 : 0, v = flat == 2 ? 1 : 2;
    dims[u] = nx;
    dims[v] = ny;
    origin[u] = -2;
    origin[v] = 7;
    spacing[u] = 0.5;
    image->SetDimensions(dims);
    image->SetOrigin(origin);
    image->SetSpacing(spacing);
    vtkNew<vtkDoubleArray> heights, number;
    heights->SetName("height");
    number->SetName("number");
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i) {
            heights->InsertNextValue(height(i, j));
            number->InsertNextValue(j * nx + i);
        }
    image->GetPointData()->AddArray(heights);
    image->GetPointData()->AddArray(number);
    write(scratch(name), image);
    return scratch(name);
}

struct fitted_map {
    double area = 0;    // over the plane
    double largest = 0; // error at a node
    size_t covered = 0; // nodes
    bool upwards = true;
};

// By the places and the array of a surface over the plane x, y.
fitted_map measured(vtkPolyData *made, int nx, int ny, const char *array = "height")
{
    fitted_map found;
    std::set<int> covered;
    vtkDataArray *heights = node_array(made, array);
    for (vtkIdType c = 0; c < made->GetNumberOfCells(); ++c) {
        double p[3][3], h[3];
        for (int k = 0; k < 3; ++k) {
            made->GetPoint(made->GetCell(c)->GetPointId(k), p[k]);
            h[k] = heights->GetTuple1(made->GetCell(c)->GetPointId(k));
            p[k][0] = (p[k][0] + 2) / 0.5;
            p[k][1] -= 7;
        }
        const double area =
            (p[1][0] - p[0][0]) * (p[2][1] - p[0][1]) - (p[1][1] - p[0][1]) * (p[2][0] - p[0][0]);
        found.upwards = found.upwards && area > 0;
        found.area += area / 2;
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i) {
                double weight[3];
                for (int k = 0; k < 3; ++k) {
                    const double *a = p[(k + 1) % 3], *b = p[(k + 2) % 3];
                    weight[k] = ((b[0] - a[0]) * (j - a[1]) - (b[1] - a[1]) * (i - a[0])) / area;
                }
                if (*std::min_element(weight, weight + 3) < -1e-9) continue;
                covered.insert(j * nx + i);
                const double at = weight[0] * h[0] + weight[1] * h[1] + weight[2] * h[2];
                found.largest = std::max(found.largest, std::fabs(at - hills(i, j)));
            }
    }
    found.covered = covered.size();
    return found;
}

double largest_told(const std::string &out)
{
    const size_t at = out.find("largest error ");
    return at == std::string::npos ? std::nan("") : std::stod(out.substr(at + 14));
}

} // namespace

TEST(Terrain, KeepsTheToleranceAtEveryNodeWithFewTriangles)
{
    const std::string map = map_file("hills.vti", 41, 33, 2), out = scratch("hills.vtp");
    vtkIdType before = 1 << 30;
    for (const double tolerance : {0.01, 0.1, 0.5, 2.0, 100.0}) {
        const ran told =
            run_well({"terrain", map, "-a", "height", "-t", std::to_string(tolerance), "-o", out});
        const auto made = read_surface(out);
        const fitted_map found = measured(made, 41, 33);
        EXPECT_LE(found.largest, tolerance * (1 + 1e-9));
        EXPECT_NEAR(found.largest, largest_told(told.out), 1e-5 * (1 + found.largest));
        EXPECT_NEAR(40 * 32, found.area, 1e-6);
        EXPECT_EQ(41u * 33u, found.covered);
        EXPECT_TRUE(found.upwards);
        EXPECT_LT(made->GetNumberOfCells(), before);
        before = made->GetNumberOfCells();
        EXPECT_TRUE(holds(told.out, std::to_string(before) + " triangles")) << told.out;
        EXPECT_TRUE(holds(told.out, "of the grid's 2560")) << told.out;
    }
    EXPECT_EQ(2, before);
}

TEST(Terrain, OfToleranceZeroIsTheMapItself)
{
    const std::string map = map_file("exact.vti", 9, 8, 2), out = scratch("exact.vtp");
    const ran told = run_well({"terrain", map, "-a", "height", "-t", "0", "-o", out});
    EXPECT_EQ(0, largest_told(told.out)) << told.out;
    EXPECT_GT(read_surface(out)->GetNumberOfPoints(), 60); // some stand on the line of their neighbours
    const std::string flat = map_file("flat.vti", 9, 8, 2, [](double, double) { return 7.5; });
    run_well({"terrain", flat, "-a", "height", "-t", "0", "-o", out});
    EXPECT_EQ(2, read_surface(out)->GetNumberOfCells());
}

TEST(Terrain, PercentAreOfTheRange)
{
    const std::string map =
        map_file("percent.vti", 20, 20, 2, [](double x, double) { return 50 * (x / 19); });
    const std::string bumpy = map_file("bumpy.vti", 20, 20, 2, [](double x, double y) {
        return x == 7 && y == 9 ? 1.0 : x == 0 && y == 0 ? 50.0 : 0.0;
    });
    const std::string out = scratch("percent.vtp");
    run_well({"terrain", map, "-a", "height", "-t", "1%", "-o", out});
    EXPECT_EQ(2, read_surface(out)->GetNumberOfCells());
    const double above =
        largest_told(run_well({"terrain", bumpy, "-a", "height", "-t", "2.1%", "-o", out}).out);
    EXPECT_GE(above, 1);
    EXPECT_LE(above, 1.05);
    EXPECT_LT(largest_told(run_well({"terrain", bumpy, "-a", "height", "-t", "1.9%", "-o", out}).out),
              0.95 + 1e-9);
}

TEST(Terrain, RisesOutOfItsPlaneWithItsArrays)
{
    for (const int flat : {0, 1, 2}) {
        const std::string map = map_file("raised.vti", 12, 10, flat), out = scratch("raised.vtp");
        run_well({"terrain", map, "-a", "height", "-t", "0.2", "--scale", "-2", "-o", out});
        const auto image = read(map);
        const auto made = read_surface(out);
        ASSERT_GT(made->GetNumberOfPoints(), 4);
        for (vtkIdType v = 0; v < made->GetNumberOfPoints(); ++v) {
            const vtkIdType node = static_cast<vtkIdType>(node_array(made, "number")->GetTuple1(v));
            double at[3], expected[3];
            made->GetPoint(v, at);
            image->GetPoint(node, expected);
            const double height = node_array(image, "height")->GetTuple1(node);
            EXPECT_EQ(height, node_array(made, "height")->GetTuple1(v));
            expected[flat] -= 2 * height;
            for (int d = 0; d < 3; ++d)
                EXPECT_NEAR(expected[d], at[d], 1e-5);
        }
        // Anticlockwise seen from where heights rise to.
        double p[3][3];
        for (int k = 0; k < 3; ++k)
            made->GetPoint(made->GetCell(0)->GetPointId(k), p[k]);
        const int u = (flat + 1) % 3, v = (flat + 2) % 3;
        EXPECT_GT((p[1][u] - p[0][u]) * (p[2][v] - p[0][v]) - (p[1][v] - p[0][v]) * (p[2][u] - p[0][u]), 0)
            << flat;
    }
}

TEST(Terrain, OfTheLibraryIsMeasuredToo)
{
    const std::string map = map_file("library.vti", 41, 33, 2), out = scratch("library.vtp");
    const ran ours = run_well({"terrain", map, "-a", "height", "-t", "0.3", "-o", out});
    const ran told = run_well({"terrain", map, "-a", "height", "-t", "0.3", "--library", "-o", out});
    EXPECT_NE(ours.out, told.out);
    const auto made = read_surface(out);
    EXPECT_GT(made->GetNumberOfCells(), 2);
    EXPECT_GT(largest_told(told.out), 0.3) << "it makes no promise, which this map shows";
    const double *box = made->GetBounds();
    EXPECT_EQ(-2, box[0]);
    EXPECT_EQ(18, box[1]);
    EXPECT_EQ(7, box[2]);
    EXPECT_EQ(39, box[3]);
}

TEST(Terrain, GoesIntoEveryFormatAndPictures)
{
    const std::string map = map_file("formats.vti", 20, 20, 2);
    for (const char *name : {"formats.stl", "formats.ply"}) {
        run_well({"terrain", map, "-a", "height", "-t", "0.2", "-o", scratch(name)});
        EXPECT_GT(read_surface(scratch(name))->GetNumberOfCells(), 10) << name;
    }
    run_well(
        {"terrain", map, "-a", "height", "-t", "0.2", "-p", scratch("formats.png"), "--size", "300x200"});
    vtkNew<vtkPNGReader> picture;
    picture->SetFileName(scratch("formats.png").c_str());
    picture->Update();
    EXPECT_EQ(300, picture->GetOutput()->GetDimensions()[0]);
}

TEST(Terrain, OfRealMountains)
{
    const std::string map = real_data("SainteHelens.dem"), out = scratch("mountain.vtp");
    if (map.empty()) GTEST_SKIP();
    const ran told = run_well({"terrain", map, "--tolerance", "1%", "-o", out});
    EXPECT_LE(largest_told(told.out), 18.64);
    EXPECT_LT(read_surface(out)->GetNumberOfCells(), 10000);
}

TEST(Terrain, TellsWhatIsNoHeightMap)
{
    const std::string map = map_file("good.vti", 5, 5, 2), out = scratch("never.vtp");
    const auto wrong = [&](const std::vector<std::string> &arguments, int code, const std::string &text) {
        const ran result = run(arguments);
        EXPECT_EQ(code, result.code) << shown(result);
        EXPECT_TRUE(holds(result.err, text)) << shown(result);
    };
    run_well({"sample", "noisy-sphere", "--size", "5", "-o", scratch("solid.vti")});
    wrong({"terrain", scratch("solid.vti"), "-t", "1", "-o", out}, 1, "is no height map");
    run_well({"sample", "noisy-sphere", "--mesh", "tri", "--size", "5", "-o", scratch("cells.vtu")});
    wrong({"terrain", scratch("cells.vtu"), "-t", "1", "-o", out}, 1, "is no height map");
    for (const char *text : {"-1", "nan", "x", "", "%", "1 %x"})
        wrong({"terrain", map, "-a", "height", "-t", text, "-o", out}, 2, "--tolerance");
    wrong({"terrain", map, "-a", "height", "-o", out}, 2, "--tolerance");
    wrong({"terrain", map, "-a", "height", "-t", "1", "-o", scratch("never.vtu")}, 2, ".vtp .stl .ply");
    wrong({"terrain", map, "-a", "height", "-t", "1"}, 2, "nowhere to put the result");
    const std::string lost = map_file(
        "lost.vti", 5, 5, 2, [](double x, double y) { return x == 3 && y == 2 ? std::nan("") : 0.0; });
    wrong({"terrain", lost, "-a", "height", "-t", "1", "-o", out}, 1, "node 13 of height has no height");
}

// ---- smith --------------------------------------------------------------------------------------------------

namespace {

struct read_chart {
    std::map<int, int> parts; // lines of each
    std::vector<std::string> labels;
    std::vector<std::pair<double, double>> curve;
    std::vector<double> frequencies;
    double furthest = 0; // of grid and rim
};

read_chart chart_in(const std::string &path)
{
    const auto made = read_surface(path);
    read_chart found;
    auto *label = vtkStringArray::SafeDownCast(made->GetPointData()->GetAbstractArray("label"));
    EXPECT_NE(nullptr, label);
    vtkDataArray *part = cell_array(made, "part"), *frequency = made->GetPointData()->GetArray("frequency");
    for (vtkIdType c = 0; c < made->GetNumberOfCells(); ++c) {
        vtkCell *cell = made->GetCell(c);
        if (cell->GetCellDimension() == 0) {
            found.labels.push_back(label->GetValue(cell->GetPointId(0)));
            continue;
        }
        const int which = static_cast<int>(part->GetTuple1(c));
        ++found.parts[which];
        for (vtkIdType k = 0; k < cell->GetNumberOfPoints(); ++k) {
            double at[3];
            made->GetPoint(cell->GetPointId(k), at);
            if (which < 2) found.furthest = std::max(found.furthest, std::hypot(at[0], at[1]));
            if (which != 2) continue;
            found.curve.emplace_back(at[0], at[1]);
            found.frequencies.push_back(frequency->GetTuple1(cell->GetPointId(k)));
        }
    }
    return found;
}

read_chart chart_with(const std::string &touchstone)
{
    write_bytes(scratch("curve.s1p"), touchstone);
    run_well({"smith", "--data", scratch("curve.s1p"), "-o", scratch("curve.vtp")});
    return chart_in(scratch("curve.vtp"));
}

} // namespace

TEST(Smith, HasCirclesAndLabelsOnce)
{
    run_well({"smith", "-o", scratch("chart.vtp")});
    const read_chart found = chart_in(scratch("chart.vtp"));
    EXPECT_GT(found.parts.at(0), 50);
    EXPECT_EQ(2, found.parts.at(1));
    EXPECT_EQ(0u, found.parts.count(2));
    EXPECT_NEAR(1, found.furthest, 1e-6);
    for (const char *text : {"0", "0.5", "-0.5", "1.0", "-1.0", "2.0", "10"})
        EXPECT_NE(found.labels.end(), std::find(found.labels.begin(), found.labels.end(), text)) << text;
    EXPECT_EQ(1, std::count(found.labels.begin(), found.labels.end(), "0"));
    EXPECT_EQ(2, std::count(found.labels.begin(), found.labels.end(), "0.5")); // axis and rim
}

TEST(Smith, SpacingDensityAndTicksCount)
{
    const auto lines = [](const std::vector<std::string> &more) {
        std::vector<std::string> arguments = {"smith", "-o", scratch("counts.vtp")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        run_well(arguments);
        const auto made = read_surface(scratch("counts.vtp"));
        return std::make_pair(made->GetNumberOfLines(), made->GetNumberOfPoints());
    };
    const auto usual = lines({}), close = lines({"--spacing", "0.02"}), fine = lines({"--density", "300"});
    EXPECT_GT(close.first, 2 * usual.first);
    EXPECT_EQ(usual.first, fine.first);
    EXPECT_GT(fine.second, 2 * usual.second);
    EXPECT_LT(lines({"--ticks", "1"}).first, usual.first);
}

TEST(Smith, IsDrawnInVectorsAndPixels)
{
    run_well({"smith", "-o", scratch("chart.svg"), "-p", scratch("chart.png"), "--size", "400"});
    const std::string svg = bytes_of(scratch("chart.svg"));
    EXPECT_EQ(0u, svg.find("<?xml"));
    EXPECT_TRUE(holds(svg, "<polyline points=\"")) << svg.substr(0, 400);
    EXPECT_TRUE(holds(svg, ">-0.5</text>"));
    EXPECT_TRUE(holds(svg, "</svg>"));
    vtkNew<vtkPNGReader> picture;
    picture->SetFileName(scratch("chart.png").c_str());
    picture->Update();
    EXPECT_EQ(400, picture->GetOutput()->GetDimensions()[0]);
    const auto dark = [&](double x, double y) {
        const int i = static_cast<int>((x / 1.12 + 1) * 200), j = static_cast<int>((y / 1.12 + 1) * 200);
        double least = 255;
        for (int dj = -2; dj <= 2; ++dj)
            for (int di = -2; di <= 2; ++di)
                least =
                    std::min(least, picture->GetOutput()->GetScalarComponentAsDouble(i + di, j + dj, 0, 0));
        return least < 200;
    };
    EXPECT_TRUE(dark(std::sqrt(0.5), std::sqrt(0.5)));
    EXPECT_TRUE(dark(-0.9, 0));
    EXPECT_FALSE(dark(-0.98, 0.98));

    run_well({"smith", "-o", scratch("chart.pdf")});
    const std::string pdf = bytes_of(scratch("chart.pdf"));
    EXPECT_EQ(0u, pdf.find("%PDF-1.4\n"));
    EXPECT_TRUE(holds(pdf, "(-0.5) Tj"));
    // Every object stands where the table says.
    const size_t table = std::stoul(pdf.substr(pdf.find("startxref\n") + 10));
    ASSERT_EQ("xref\n0 6\n", pdf.substr(table, 9));
    for (size_t k = 1; k < 6; ++k) {
        const size_t at = std::stoul(pdf.substr(table + 9 + 20 * k, 10));
        EXPECT_EQ(std::to_string(k) + " 0 obj", pdf.substr(at, 7));
    }
    const size_t begin = pdf.find("stream\n") + 7, length = std::stoul(pdf.substr(pdf.find("/Length ") + 8));
    EXPECT_EQ("endstream", pdf.substr(begin + length, 9));
}

TEST(Smith, DrawsReflectionsInEveryNotation)
{
    // One curve three times: 1 at 0 degrees, 0.5 at 90.
    for (const char *text :
         {"# MHZ S RI R 75\n10 1 0\n20 0 0.5\n", "! made up\n#mhz s ma r 75 ! units\n10 1 0\n\n20 .5 90 !x\n",
          "# DB MHZ\n10 0 0\n20 -6.0205999 9e1\n"}) {
        const read_chart found = chart_with(text);
        ASSERT_EQ(2u, found.curve.size()) << text;
        EXPECT_EQ(1, found.parts.at(2));
        EXPECT_NEAR(1, found.curve[0].first, 1e-6);
        EXPECT_NEAR(0, found.curve[0].second, 1e-6);
        EXPECT_NEAR(0, found.curve[1].first, 1e-6);
        EXPECT_NEAR(0.5, found.curve[1].second, 1e-6);
        EXPECT_EQ((std::vector<double>{1e7, 2e7}), found.frequencies);
    }
    // Without an option line: GHz, magnitude and angle, 50 ohms. A second such line does not count.
    EXPECT_EQ(3e9, chart_with("3 0.1 0\n#HZ S RI\n").frequencies.at(0));
    write_bytes(scratch("curve.s1p"), "# R 75\n1 0.5 0\n");
    EXPECT_TRUE(holds(run_well({"smith", "-d", scratch("curve.s1p"), "-o", scratch("curve.svg")}).out,
                      "curve of 1 points at 75 ohms"));
}

TEST(Smith, TellsWhatItCannotDraw)
{
    const auto refused = [](const std::string &text, const std::string &why, const char *name = "bad.s1p") {
        write_bytes(scratch(name), text);
        const ran result = run({"smith", "-d", scratch(name), "-o", scratch("never.svg")});
        EXPECT_EQ(1, result.code) << shown(result);
        EXPECT_TRUE(holds(result.err, name)) << shown(result);
        EXPECT_TRUE(holds(result.err, why)) << shown(result);
    };
    refused("1 0 0\n", "is of 2 ports", "bad.s2p");
    refused("# S MA\n1 1 2 3 4 5 6 7 8\n", "line 2: has 9 numbers");
    for (const char *kind : {"Y", "Z", "h", "G"})
        refused(std::string("# GHZ ") + kind + " RI\n", "parameters; the chart is of S parameters");
    refused("[Version] 2.0\n", "is of version 2");
    refused("# GHZ S XY R 50\n", "knows no XY");
    refused("# R\n", "R is followed by");
    refused("# R -5\n", "R is followed by");
    refused("1 0.5\n", "has 2 numbers");
    refused("1 0.5 x\n", "x is no number");
    refused("1 0.5 nan\n", "nan is no number");
    refused("2 0.5 0\n1 0.5 0\n", "line 2: is of a frequency that is not above");
    refused("! nothing\n", "has no data");
    refused("", "has no data");
    refused(std::string("1 0 \0 0\n", 8), "is no text");
    const ran missing = run({"smith", "-d", scratch("not_there.s1p"), "-o", scratch("never.svg")});
    EXPECT_EQ(1, missing.code);
    EXPECT_TRUE(holds(missing.err, "cannot be read: No such file")) << shown(missing);
    for (const std::vector<std::string> &wrong : {std::vector<std::string>{"smith"},
                                                  {"smith", "-o", scratch("chart.png")},
                                                  {"smith", "-p", scratch("chart.svg")},
                                                  {"smith", "--spacing", "0", "-o", scratch("a.svg")},
                                                  {"smith", "--ticks", "0,5", "-o", scratch("a.svg")},
                                                  {"smith", "--density", "0", "-o", scratch("a.svg")}}) {
        const ran result = run(wrong);
        EXPECT_EQ(2, result.code) << shown(result);
    }
}
