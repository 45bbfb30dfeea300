// What the commands share, called directly.
#include "colours.hpp"
#include "failure.hpp"
#include "memory_limit.hpp"
#include "messages.hpp"
#include "parse.hpp"
#include "picture.hpp"
#include "process_group.hpp"
#include "samples.hpp"
#include "table.hpp"
#include "to_vtk.hpp"
#include "write.hpp"

#include <skoklana/cell_nodes.h>

#include <gtest/gtest.h>

#include <vtkCellData.h>
#include <vtkColorTransferFunction.h>
#include <vtkDoubleArray.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPNGReader.h>
#include <vtkPointData.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <new>
#include <set>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

class Writing : public testing::Test {
  protected:
    void SetUp() override { fs::create_directories(folder); }
    void TearDown() override { fs::remove_all(folder); }
    std::vector<std::string> left() const
    {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(folder))
            names.push_back(entry.path().filename().string());
        return names;
    }
    const fs::path folder = fs::temp_directory_path() / ("skoklana_parts" + std::to_string(getpid()));
    const std::string target = (folder / "result.vtu").string();
};

void start(const std::string &path)
{
    std::ofstream(path) << "half of it";
}

TEST_F(Writing, LeavesNothingBesideWhateverIsThrown)
{
    EXPECT_THROW(write_beside(target,
                              [](const std::string &beside) {
                                  start(beside);
                                  throw std::bad_alloc();
                              }),
                 std::bad_alloc);
    EXPECT_TRUE(left().empty());
    try {
        write_beside(target, [](const std::string &beside) {
            start(beside);
            throw fs::filesystem_error("x", std::make_error_code(std::errc::no_space_on_device));
        });
        ADD_FAILURE() << "nothing was thrown";
    } catch (const failure &wrong) {
        EXPECT_EQ(std::string(wrong.what()), target + ": cannot be written: No space left on device");
    }
    EXPECT_TRUE(left().empty());
    EXPECT_THROW(write_beside(target,
                              [](const std::string &beside) {
                                  start(beside);
                                  throw failure("no");
                              }),
                 failure);
    EXPECT_TRUE(left().empty());
}

TEST_F(Writing, PutsTextsIntoPlace)
{
    write_text(target, "a,b\n");
    ASSERT_EQ(left(), std::vector<std::string>{"result.vtu"});
    std::string text;
    std::getline(std::ifstream(target), text);
    EXPECT_EQ(text, "a,b");
}

// ---- arguments ----------------------------------------------------------------------------------------------

void expect_usage(const std::function<void()> &call, const std::string &words)
{
    try {
        call();
        ADD_FAILURE() << "taken: " << words;
    } catch (const failure &wrong) {
        EXPECT_EQ(wrong.code, exit_usage);
        EXPECT_EQ(wrong.what(), words);
    }
}

TEST(Arguments, AreTakenAsAWholeOrNotAtAll)
{
    EXPECT_EQ(parse_point("--line", "1,-2.5,3e2"), (std::vector<double>{1, -2.5, 300}));
    EXPECT_EQ(parse_point("--line", "+1,.5,0"), (std::vector<double>{1, 0.5, 0}));
    for (const char *text :
         {"0,0,0x", "0,0", "0,0,0,", "0,0,0,0", ",0,0", "", "0;0;0", "0,0,nan", "inf,0,0", "0,0,0 "})
        expect_usage([&] { parse_point("--line", text); },
                     "--line: " + std::string(text) + " is no point; three numbers x,y,z are wanted");
    EXPECT_EQ(parse_count("--line", "10"), 10);
    for (const char *text : {"10abc", "0", "-3", "", "1.5", "99999999999999999999"})
        expect_usage([&] { parse_count("--line", text); },
                     "--line: " + std::string(text) + " is no count; a whole number from 1 is wanted");
    EXPECT_EQ(parse_number("--min", "-1e-3"), -1e-3);
    expect_usage([] { parse_number("--min", "1e"); }, "--min: 1e is no number");
}

// ---- tables -------------------------------------------------------------------------------------------------

TEST(Tables, AreReadableInEveryForm)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const table figures = {
        {"name", "area", "cells"},
        {{std::string("a, \"b\""), 0.1, int64_t{12}}, {std::string("c"), nan, int64_t{3}}}};
    EXPECT_EQ(as_text(figures), "name    area  cells\na, \"b\"   0.1     12\nc        nan      3\n");
    EXPECT_EQ(as_csv(figures), "name,area,cells\n\"a, \"\"b\"\"\",0.1,12\nc,,3\n");
    EXPECT_EQ(as_json(figures), "[\n {\"name\": \"a, \\\"b\\\"\", \"area\": 0.1, \"cells\": 12},\n"
                                " {\"name\": \"c\", \"area\": null, \"cells\": 3}\n]\n");
    EXPECT_EQ(as_json({{"a"}, {}}), "[\n]\n");
    EXPECT_EQ(as_text({{"a", "b"}, {}}), "a  b\n");
}

TEST(Tables, HaveTheDigitsOfTheirType)
{
    EXPECT_EQ(csv_number(0.1f), "0.1");
    EXPECT_EQ(csv_number(0.1), "0.1");
    EXPECT_EQ(csv_number(static_cast<double>(0.1f)), "0.10000000149011612");
    EXPECT_EQ(csv_number(std::nanf("")), "");
    EXPECT_EQ(csv_field("plain"), "plain");
    EXPECT_EQ(csv_field("a\nb"), "\"a\nb\"");
}

// ---- memory -------------------------------------------------------------------------------------------------

TEST(Memory, BeyondWhatIsFreeIsRefused)
{
    const size_t room = free_memory();
    ASSERT_GT(room, 0u);
    // in a program of its own, which the limit holds for
    EXPECT_EXIT(
        {
            limit_memory();
            void *small = malloc(room / 8); // not touched: nothing is taken from anybody
            void *large = malloc(room + room / 8);
            _exit(small != nullptr && large == nullptr ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
}

// ---- pictures -----------------------------------------------------------------------------------------------

TEST(Ticks, AreRoundAndToldApart)
{
    EXPECT_EQ(round_ticks(0, 10, 5), (std::vector<double>{0, 2, 4, 6, 8, 10}));
    EXPECT_EQ(round_ticks(-1.5, 1.5, 3), (std::vector<double>{-1, 0, 1}));
    EXPECT_EQ(round_below(4.9), 2);
    EXPECT_EQ(round_below(0.05), 0.05);
    EXPECT_EQ(tick_texts({0.1, 0.5, 10}), (std::vector<std::string>{"0.1", "0.5", "10"}));
    EXPECT_EQ(tick_texts({5118000, 5120000}), (std::vector<std::string>{"5118000", "5120000"}));
    EXPECT_EQ(tick_texts({1.00001, 1.00002}), (std::vector<std::string>{"1.00001", "1.00002"}));
    EXPECT_EQ(tick_texts({1e-12}), (std::vector<std::string>{"1e-12"}));
}

TEST(Colours, ReadOnWhite)
{
    const auto colours = colours_between("", 0, 1);
    for (int i = 0; i <= 100; ++i) {
        double rgb[3], light = 0;
        colours->GetColor(i / 100.0, rgb);
        const double weight[3] = {0.2126, 0.7152, 0.0722};
        for (int c = 0; c < 3; ++c)
            light += weight[c] * std::pow(rgb[c], 2.2);
        EXPECT_GT(1.05 / (light + 0.05), 3) << "contrast at " << i;
    }
    EXPECT_TRUE(is_colours("viridis"));
    EXPECT_FALSE(is_colours("nonsense"));
}

// Coloured pixels of a picture of any data set: of which colours, in steps of 16.
std::set<int> hues_of(const drawing &what, const std::string &path)
{
    picture_look look;
    look.width = 300;
    look.height = 200;
    write_picture(path, what, look);
    vtkNew<vtkPNGReader> reader;
    reader->SetFileName(path.c_str());
    reader->Update();
    std::set<int> hues;
    auto *pixel = static_cast<unsigned char *>(reader->GetOutput()->GetScalarPointer());
    for (int i = 0; i < 300 * 200; ++i, pixel += 3)
        if (*std::max_element(pixel, pixel + 3) > *std::min_element(pixel, pixel + 3) + 60)
            hues.insert(pixel[0] >> 4 << 8 | pixel[1] >> 4 << 4 | pixel[2] >> 4);
    return hues;
}

class Drawing : public Writing {
  protected:
    drawing of(vtkDataSet *data) const
    {
        vtkNew<vtkDoubleArray> node, cell;
        node->SetName("node");
        cell->SetName("cell");
        for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i)
            node->InsertNextValue(data->GetPoint(i)[0]);
        for (vtkIdType i = 0; i < data->GetNumberOfCells(); ++i)
            cell->InsertNextValue(static_cast<double>(i));
        data->GetPointData()->AddArray(node);
        data->GetCellData()->AddArray(cell);
        drawing what = {};
        what.data = data;
        data->GetBounds(what.box);
        return what;
    }
    const std::string picture = (folder / "picture.png").string();
};

TEST_F(Drawing, TakesAnyDataSetByNodesOrCells)
{
    vtk_messages::install();
    const qx_long dims[3] = {5, 4, 3}, flat_dims[3] = {6, 5, 1};
    std::vector<vtkSmartPointer<vtkDataSet>> sets;
    for (const auto layout :
         {samples::layout::uniform, samples::layout::rectilinear, samples::layout::curvilinear})
        sets.push_back(sample_to_vtk(samples::structured(layout, dims, -1, 1), samples::fields()[0]));
    sets.push_back(
        sample_to_vtk(samples::structured(samples::layout::uniform, flat_dims, -1, 1), samples::fields()[0]));
    for (const int kind : {CELL_TRI, CELL_QUAD, CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX})
        for (const int order : {1, 2})
            sets.push_back(
                sample_to_vtk(samples::cells(kind, order, kind <= CELL_QUAD ? flat_dims : dims, -1, 1),
                              samples::fields()[0]));
    for (const auto &data : sets) {
        drawing what = of(data);
        EXPECT_LT(hues_of(what, picture).size(), 60u) << data->GetClassName() << " in one colour";
        what.colour_by = "node";
        const auto by_node = hues_of(what, picture);
        EXPECT_GT(by_node.size(), 30u) << data->GetClassName();
        what.colour_by = "cell";
        what.colour_cells = true;
        EXPECT_NE(hues_of(what, picture), by_node) << data->GetClassName();
    }
    const auto points = points_to_vtk({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 1});
    drawing what = of(points);
    what.colour_by = "node";
    EXPECT_GT(hues_of(what, picture).size(), 1u);
    vtkNew<vtkUnstructuredGrid> empty;
    what = of(empty);
    EXPECT_NO_THROW(write_picture(picture, what, {})) << "nothing but its outline";
}

TEST_F(Drawing, OfBandsHasAColourForEach)
{
    vtk_messages::install();
    const qx_long dims[3] = {40, 30, 1};
    drawing what =
        of(sample_to_vtk(samples::structured(samples::layout::uniform, dims, -1, 1), samples::fields()[0]));
    what.colour_by = "node";
    const size_t smooth = hues_of(what, picture).size();
    what.limits = {-1, -0.5, 0, 1};
    EXPECT_LT(hues_of(what, picture).size(), smooth / 2);
}

TEST(Titles, BreakBetweenWords)
{
    EXPECT_EQ(wrapped("wall shear stress", 12), (std::vector<std::string>{"wall shear ", "stress"}));
    EXPECT_EQ(wrapped("t", 3), (std::vector<std::string>{"t"}));
}

} // namespace

TEST(ProcessGroup, SharesProcessors)
{
    const processor_set all(0xffff), low(0xff), high(0xff00), one(1), none;
    EXPECT_EQ(share_of_processors({all, all, all}, 1), 5);
    EXPECT_EQ(share_of_processors({low, high, low, high}, 0), 4);
    EXPECT_EQ(share_of_processors({low, high, high, high}, 2), 2);
    EXPECT_EQ(share_of_processors({one, one, one}, 0), 1);
    EXPECT_EQ(share_of_processors({none, all}, 0), 1);
    EXPECT_EQ(share_of_processors({all}, 0), 16);
}
