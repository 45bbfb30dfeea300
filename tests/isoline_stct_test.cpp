#include <skoklana/iso.h>

#include "support/arrays.hpp"
#include "support/host_calls.hpp"
#include "support/lattice_calls.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <string>

namespace {

using arrays::dtype_of;
using namespace lattice_calls;

template <typename T> class LinesOfType : public testing::Test {
};
TYPED_TEST_SUITE(LinesOfType, arrays::all_types);

// Widths around those of words and vectors, axes without cells, and lists that grow several times.
TYPED_TEST(LinesOfType, AgreeWithTheReferenceOnRandomData)
{
    using T = TypeParam;
    std::mt19937 random(61 + dtype_of<T>);
    const auto below = [&](unsigned n) { return random() % n; };
    const qx_long widths[] = {1,  2,  3,  4,  5,  7,  8,   9,   15,  16,  17,   31,
                              32, 33, 63, 64, 65, 66, 127, 128, 129, 130, 1025, 1026};
    qx_long crossed = 0, with_nulls = 0, grown = 0, on_values = 0, without_cells = 0;
    for (int pass = 0; pass < 400; ++pass) {
        SCOPED_TRACE("pass " + std::to_string(pass));
        lattice in({widths[below(24)], 1 + static_cast<qx_long>(below(14))});
        const unsigned nvalues = 2 + below(7);
        std::vector<T> data;
        for (qx_long n = 0; n < in.nnodes(); ++n)
            data.push_back(static_cast<T>(below(nvalues)));
        data.shrink_to_fit();
        const T null = static_cast<T>(below(nvalues + 3));
        const double level = below(2 * nvalues + 2) / 2.0 - 0.5;
        const level_set expected = expect_as_reference(in, data, level, below(2) != 0 ? &null : nullptr);
        if (testing::Test::HasFailure()) return;
        const bool has_lines = !expected.cell.empty();
        crossed += has_lines;
        with_nulls += has_lines && expected.cells_with_null > 0;
        grown += expected.cell.size() > 2500;
        on_values += has_lines && level == std::floor(level);
        without_cells += in.dims[0] == 1 || in.dims[1] == 1;
    }
    EXPECT_GT(crossed, 150);
    EXPECT_GT(with_nulls, 30);
    EXPECT_GT(grown, 5);
    EXPECT_GT(on_values, 50);
    EXPECT_GT(without_cells, 15);
}

TYPED_TEST(LinesOfType, LevelsAtAndBeyondTheEndsOfTheType)
{
    using T = TypeParam;
    lattice in({67, 9});
    const T null = T(3);
    const std::vector<T> data = arrays::mixed_values<T>(12, in.nnodes(), null);
    int crossed = 0;
    for (double level : arrays::edge_levels()) {
        SCOPED_TRACE("level " + std::to_string(level));
        crossed += !expect_as_reference(in, data, level, static_cast<const T *>(nullptr)).cell.empty();
        expect_as_reference(in, data, level, &null);
    }
    EXPECT_GT(crossed, 5);
}

TEST(Lines, NanIsBelowAndAsANullMatchesNothing)
{
    lattice in({129, 7});
    std::mt19937 random(2);
    const float nan = std::nanf("");
    std::vector<float> data;
    for (qx_long n = 0; n < in.nnodes(); ++n)
        data.push_back(random() % 4 == 0 ? nan : static_cast<float>(random() % 3));
    const level_set expected = expect_as_reference(in, data, 1.0, static_cast<const float *>(nullptr));
    EXPECT_FALSE(expected.cell.empty());
    EXPECT_TRUE(extracted<float>(&in.mesh, data, 1.0, &nan) == expected);
}

TEST(Lines, SmoothFieldGrowsTheListsManyTimes)
{
    lattice in({700, 300});
    std::vector<double> data;
    for (qx_long n = 0; n < in.nnodes(); ++n)
        data.push_back(std::sin(static_cast<double>(n % 700) / 5) *
                       std::cos(static_cast<double>(n / 700) / 4));
    const level_set expected = expect_as_reference(in, data, 0.25, static_cast<const double *>(nullptr));
    EXPECT_GT(expected.cell.size(), 20000u);
}

// Case by case on a single cell: corners 0 to 3 are the nodes 0, 1, 3, 2.
TEST(Lines, OneCellGivesTheLinesOfItsCase)
{
    const qx_long node_of_corner[4] = {0, 1, 3, 2};
    for (int index = 0; index < 16; ++index) {
        SCOPED_TRACE(index);
        lattice in({2, 2});
        std::vector<int> data(4);
        for (int corner = 0; corner < 4; ++corner)
            data[static_cast<size_t>(node_of_corner[corner])] = index >> corner & 1;
        const level_set out = expect_as_reference(in, data, 1.0, static_cast<const int *>(nullptr));
        std::vector<int> complement;
        for (int value : data)
            complement.push_back(1 - value);
        EXPECT_TRUE(extracted<int>(&in.mesh, complement, 1.0, nullptr) == out);
    }
}

// Whichever pair of corners is above, the lines cut off corners 0 and 2.
TEST(Lines, BothAmbiguousCasesCutOffCornersZeroAndTwo)
{
    lattice in({2, 2});
    for (const auto &data : {std::vector<int>{1, 0, 0, 1}, std::vector<int>{0, 1, 1, 0}}) {
        const level_set out = extracted<int>(&in.mesh, data, 0.5, nullptr);
        EXPECT_EQ(out.min_node, (numbers{0, 0, 1, 2}));
        EXPECT_EQ(out.max_node, (numbers{1, 2, 3, 3}));
        EXPECT_EQ(out.connect, (numbers{0, 1, 2, 3}));
        EXPECT_EQ(out.cell, (numbers{0, 0}));
    }
}

TEST(Lines, NullCornerSkipsItsCellsOnly)
{
    lattice in({3, 2});
    const std::vector<short> data = {0, 1, 9, 0, 0, 0};
    const short null = 9;
    EXPECT_EQ(extracted<short>(&in.mesh, data, 0.5, &null).cell, numbers{0});
    EXPECT_EQ(extracted<short>(&in.mesh, data, 0.5, nullptr).cell, (numbers{0, 1}));
}

// Every new node inside the mesh ends two lines, every one on the rim one.
TEST(Lines, AreClosedInsideTheMesh)
{
    lattice in({60, 50});
    const std::vector<float> data = meshes::random_values<float>(3, in.nnodes(), 0, 1);
    const level_set out = extracted<float>(&in.mesh, data, 0.5, nullptr);
    std::map<qx_long, int> ends;
    for (qx_long node : out.connect)
        ++ends[node];
    int inner = 0;
    for (const auto &node : ends) {
        const qx_long a = out.min_node[static_cast<size_t>(node.first)],
                      b = out.max_node[static_cast<size_t>(node.first)];
        const auto same_side = [&](qx_long at_a, qx_long at_b, qx_long last) {
            return at_a == at_b && (at_a == 0 || at_a == last);
        };
        const bool on_rim = same_side(a % 60, b % 60, 59) || same_side(a / 60, b / 60, 49);
        EXPECT_EQ(node.second, on_rim ? 1 : 2);
        inner += !on_rim;
    }
    EXPECT_GT(inner, 1000);
}

TEST(Lines, NoCrossingHandsOverEmptyLists)
{
    lattice in({5, 5});
    const std::vector<float> data(25, 0.0f);
    level_call call(operation::lines);
    call.run(&in.mesh, data.data(), DTYPE_FLOAT, nullptr, 1.0, true);
    EXPECT_EQ(call.result, 1);
    EXPECT_EQ(call.nnodes, 0);
    EXPECT_EQ(call.nline, 0);
    EXPECT_EQ(call.nline_conn, 0);
    EXPECT_EQ(call.map_count, 0);
    for (const qx_long *list : {call.min_node, call.max_node, call.line_conn, call.map}) {
        EXPECT_NE(list, nullptr);
        EXPECT_NE(list, &call.nnodes);
    }
}

TEST(Lines, WithoutAMapTheRestIsTheSame)
{
    lattice in({140, 9});
    const std::vector<float> data = meshes::random_values<float>(6, in.nnodes(), -1, 1);
    level_set with_map = extracted<float>(&in.mesh, data, 0.0, nullptr, true);
    EXPECT_FALSE(with_map.cell.empty());
    with_map.cell.clear();
    EXPECT_TRUE(with_map == extracted<float>(&in.mesh, data, 0.0, nullptr, false));
}

TEST(Lines, AreTheSameByWayOfTheSurfaceOperation)
{
    lattice in({70, 20});
    const std::vector<unsigned char> data = meshes::random_values<unsigned char>(8, in.nnodes(), 0, 9);
    const unsigned char null = 4;
    const level_set expected = extracted<unsigned char>(&in.mesh, data, 5.5, &null);
    level_call call(operation::lines);
    qx_long ntri = -7, ntri_conn = -7, *tri_conn = &ntri;
    call.result =
        UTILslice_struct(&in.mesh, data.data(), DTYPE_BYTE, 1, &null, 5.5, &call.nnodes, &call.min_node,
                         &call.max_node, &call.nline, &call.line_conn, &call.nline_conn, &ntri, &tri_conn,
                         &ntri_conn, &call.map_count, &call.map);
    ASSERT_EQ(call.result, 1);
    EXPECT_EQ(ntri, 0);
    EXPECT_EQ(ntri_conn, 0);
    EXPECT_EQ(tri_conn, nullptr);
    EXPECT_EQ(copied(call.min_node, call.nnodes), expected.min_node);
    EXPECT_EQ(copied(call.max_node, call.nnodes), expected.max_node);
    EXPECT_EQ(copied(call.line_conn, call.nline_conn), expected.connect);
    EXPECT_EQ(copied(call.map, call.map_count), expected.cell);
}

// The same grid as a set of quadrilaterals: the same new nodes, lines and cells.
TEST(Lines, QuadrilateralsOfTheSameGridGiveTheSame)
{
    const std::vector<qx_long> dims = {9, 8};
    const auto grid = meshes::uniform(dims, 2, {0, 0, 0}, {1, 1, 1});
    std::vector<qx_long> connect;
    for (qx_long j = 0; j < 7; ++j)
        for (qx_long i = 0; i < 8; ++i)
            for (qx_long node : {i + 9 * j, i + 1 + 9 * j, i + 10 + 9 * j, i + 9 + 9 * j})
                connect.push_back(node);
    const auto cells = meshes::from_cells(2, grid->coords, {CELL_QUAD}, {1}, {connect});
    const std::vector<double> data = meshes::random_values<double>(15, 72, 0, 1);
    const level_set structured = extracted<double>(grid->mesh, data, 0.5, nullptr);
    EXPECT_GT(structured.cell.size(), 20u);

    level_call call(operation::lines);
    call.result = UTILisoline_cells(cells->mesh, data.data(), DTYPE_DOUBLE, 0, nullptr, 0.5, &call.nnodes,
                                    &call.min_node, &call.max_node, &call.nline, &call.line_conn,
                                    &call.nline_conn, &call.map_count, &call.map);
    ASSERT_EQ(call.result, 1);
    level_set of_cells;
    of_cells.min_node = copied(call.min_node, call.nnodes);
    of_cells.max_node = copied(call.max_node, call.nnodes);
    of_cells.connect = copied(call.line_conn, call.nline_conn);
    of_cells.cell = copied(call.map, call.map_count);
    EXPECT_TRUE(of_cells == structured);
}

TEST(Lines, UnknownTypesAndTooFewAxesAreRefusedInSilence)
{
    const std::vector<double> data(9, 0.0);
    for (int type : {-1, 7, 100})
        expect_silent_refusal(operation::lines, {3, 3}, data, type);
    expect_silent_refusal(operation::lines, {9}, data, DTYPE_DOUBLE);
}

TEST(Lines, AxesWithoutCellsGiveNothing)
{
    for (const numbers &dims : {numbers{5, 1}, {1, 5}, {1, 1}, {0, 5}, {5, 0}, {0, 0}}) {
        lattice in(dims);
        std::vector<float> data;
        for (qx_long n = 0; n < in.nnodes(); ++n)
            data.push_back(static_cast<float>(n % 2));
        const level_set out = extracted<float>(&in.mesh, data, 0.5, nullptr);
        EXPECT_TRUE(out.connect.empty() && out.min_node.empty() && out.cell.empty());
    }
}

// A row of cells with one line each, and three new nodes for two of them.
TEST(Lines, ListsGrowWhereACellLeavesTooLittle)
{
    const struct {
        qx_long ncells;
        bool mapped;
        std::vector<qx_long> sizes;                     // of all lists
    } rows[] = {{496, false, {}},                       // 992 entries of 1000, 8 are left
                {497, false, {2000}},                   // new nodes: still less than 1000
                {996, false, {2000, 2000, 2000}},       // both lists of new nodes, and 1992 entries of 2000
                {997, false, {2000, 2000, 3500}},       //
                {1000, true, {2000, 2000, 3500}},       // the map is full
                {1001, true, {2000, 2000, 2000, 3500}}, //
                {1024, false, {2000, 2000, 3500}}};
    for (const auto &row : rows) {
        lattice in({row.ncells + 1, 2});
        std::vector<unsigned char> data(static_cast<size_t>(in.nnodes()), 0);
        for (qx_long i = 1; i <= row.ncells; i += 2)
            data[static_cast<size_t>(i)] = 1;
        host_calls::reset();
        const level_set out = extracted<unsigned char>(&in.mesh, data, 0.5, nullptr, row.mapped);
        EXPECT_EQ(static_cast<qx_long>(out.connect.size()), 2 * row.ncells);
        EXPECT_EQ(host_calls::resized_counts(), row.sizes) << row.ncells;
        for (const host_calls::array &array : host_calls::seen().arrays) {
            EXPECT_EQ(array.type, DTYPE_QX_LONG);
            EXPECT_TRUE(array.resized || array.count == 1000);
        }
    }
}

TEST(Lines, NeverCheckTheStatus)
{
    lattice in({40, 900});
    const std::vector<float> data = meshes::random_values<float>(1, in.nnodes(), 0, 1);
    host_calls::reset();
    extracted<float>(&in.mesh, data, 0.5, nullptr);
    EXPECT_TRUE(host_calls::seen().statuses.empty());
    EXPECT_TRUE(host_calls::seen().pushes.empty());
}

TEST(Lines, RefusedMemoryIsReportedAndNothingLeaks)
{
    lattice in({130, 60});
    expect_clean_failures<short>(
        operation::lines, in, meshes::random_values<short>(4, in.nnodes(), 0, 100), 50, 3,
        {"UTILisoline: realloc for cell list failed", "UTILisoline: realloc for connect list failed"});
}

TEST(Lines, TwoCallsGiveTheSameBytes)
{
    lattice in({300, 40});
    const std::vector<int> data = meshes::random_values<int>(99, in.nnodes(), 0, 10);
    EXPECT_TRUE(extracted<int>(&in.mesh, data, 5, nullptr) == extracted<int>(&in.mesh, data, 5, nullptr));
}

} // namespace
