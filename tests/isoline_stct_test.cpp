#include <skoklana/iso.h>

#include "support/arrays.hpp"
#include "support/host_calls.hpp"
#include "support/lattice_reference.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <string>

namespace {

using arrays::dtype_of;
using lattice_reference::lattice;
using lattice_reference::level_set;
using lattice_reference::numbers;

// The outputs of one call, as they were left.
struct line_call {
    int result = -7;
    qx_long nnodes = -7, nline = -7, nline_conn = -7, map_count = -7;
    qx_long *min_node, *max_node, *line_conn, *map;

    line_call() { min_node = max_node = line_conn = map = &nnodes; } // not null, not to be freed
    line_call(const line_call &) = delete;
    line_call &operator=(const line_call &) = delete;
    ~line_call() { release(); }

    void run(mesh_info *mesh, const void *data, int type, const void *null, double level, bool mapped)
    {
        result = UTILisoline_struct(mesh, data, type, null != nullptr, null, level, &nnodes, &min_node,
                                    &max_node, &nline, &line_conn, &nline_conn, mapped ? &map_count : nullptr,
                                    mapped ? &map : nullptr);
    }

    void release()
    {
        for (qx_long **list : {&min_node, &max_node, &line_conn, &map}) {
            if (*list != &nnodes) free(*list);
            *list = nullptr;
        }
    }

    bool is_empty() const
    {
        return nnodes == 0 && nline == 0 && nline_conn == 0 && map_count == 0 && min_node == nullptr &&
               max_node == nullptr && line_conn == nullptr && map == nullptr;
    }
};

numbers copied(const qx_long *list, qx_long count)
{
    return numbers(list, list + count);
}

template <typename T>
level_set lines_of(mesh_info *mesh, const std::vector<T> &data, double level, const T *null,
                   bool mapped = true)
{
    line_call call;
    call.run(mesh, data.data(), dtype_of<T>, null, level, mapped);
    EXPECT_EQ(call.result, 1);
    level_set out;
    if (call.result != 1) return out;
    EXPECT_EQ(call.nline_conn, 2 * call.nline);
    out.min_node = copied(call.min_node, call.nnodes);
    out.max_node = copied(call.max_node, call.nnodes);
    out.connect = copied(call.line_conn, call.nline_conn);
    if (mapped) {
        EXPECT_EQ(call.map_count, call.nline);
        out.cell = copied(call.map, call.map_count);
    }
    return out;
}

template <typename T>
level_set expect_as_reference(lattice &in, const std::vector<T> &data, double level, const T *null)
{
    level_set expected = lattice_reference::lines(in.dims, data, level, null);
    const level_set got = lines_of(&in.mesh, data, level, null);
    EXPECT_EQ(got.min_node, expected.min_node);
    EXPECT_EQ(got.max_node, expected.max_node);
    EXPECT_EQ(got.connect, expected.connect);
    EXPECT_EQ(got.cell, expected.cell);
    return expected;
}

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
    EXPECT_TRUE(lines_of<float>(&in.mesh, data, 1.0, &nan) == expected);
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
        EXPECT_TRUE(lines_of<int>(&in.mesh, complement, 1.0, nullptr) == out);
    }
}

// Whichever pair of corners is above, the lines cut off corners 0 and 2.
TEST(Lines, BothAmbiguousCasesCutOffCornersZeroAndTwo)
{
    lattice in({2, 2});
    for (const auto &data : {std::vector<int>{1, 0, 0, 1}, std::vector<int>{0, 1, 1, 0}}) {
        const level_set out = lines_of<int>(&in.mesh, data, 0.5, nullptr);
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
    EXPECT_EQ(lines_of<short>(&in.mesh, data, 0.5, &null).cell, numbers{0});
    EXPECT_EQ(lines_of<short>(&in.mesh, data, 0.5, nullptr).cell, (numbers{0, 1}));
}

// Every new node inside the mesh ends two lines, every one on the rim one.
TEST(Lines, AreClosedInsideTheMesh)
{
    lattice in({60, 50});
    const std::vector<float> data = meshes::random_values<float>(3, in.nnodes(), 0, 1);
    const level_set out = lines_of<float>(&in.mesh, data, 0.5, nullptr);
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
    line_call call;
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
    level_set with_map = lines_of<float>(&in.mesh, data, 0.0, nullptr, true);
    EXPECT_FALSE(with_map.cell.empty());
    with_map.cell.clear();
    EXPECT_TRUE(with_map == lines_of<float>(&in.mesh, data, 0.0, nullptr, false));
}

TEST(Lines, AreTheSameByWayOfTheSurfaceOperation)
{
    lattice in({70, 20});
    const std::vector<unsigned char> data = meshes::random_values<unsigned char>(8, in.nnodes(), 0, 9);
    const unsigned char null = 4;
    const level_set expected = lines_of<unsigned char>(&in.mesh, data, 5.5, &null);
    line_call call;
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
    const level_set structured = lines_of<double>(grid->mesh, data, 0.5, nullptr);
    EXPECT_GT(structured.cell.size(), 20u);

    line_call call;
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
    host_calls::reset();
    for (int type : {-1, 7, 100}) {
        lattice in({3, 3});
        line_call call;
        call.run(&in.mesh, data.data(), type, nullptr, 0.5, true);
        EXPECT_EQ(call.result, 0);
        EXPECT_TRUE(call.is_empty());
    }
    lattice in({9});
    line_call call;
    call.run(&in.mesh, data.data(), DTYPE_DOUBLE, nullptr, 0.5, true);
    EXPECT_EQ(call.result, 0);
    EXPECT_TRUE(call.is_empty());
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST(Lines, NeverCheckTheStatus)
{
    lattice in({40, 900});
    const std::vector<float> data = meshes::random_values<float>(1, in.nnodes(), 0, 1);
    host_calls::reset();
    lines_of<float>(&in.mesh, data, 0.5, nullptr);
    EXPECT_TRUE(host_calls::seen().statuses.empty());
    EXPECT_TRUE(host_calls::seen().pushes.empty());
}

TEST(Lines, RefusedMemoryIsReportedAndNothingLeaks)
{
    lattice in({130, 60});
    const std::vector<short> data = meshes::random_values<short>(4, in.nnodes(), 0, 100);
    const short null = 3;
    host_calls::reset();
    int nallocations = 0;
    {
        line_call call;
        host_calls::watch watch;
        call.run(&in.mesh, data.data(), DTYPE_SHORT, &null, 50, true);
        nallocations = watch.allocations();
        ASSERT_EQ(call.result, 1);
        ASSERT_GT(call.nline, 4000);
        EXPECT_EQ(watch.live_blocks(), 4);
        call.release();
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    std::map<std::vector<std::string>, int> reports_of_failures;
    int insisted = 0;
    for (int k = 0; k < nallocations; ++k) {
        SCOPED_TRACE(k);
        host_calls::reset();
        line_call call;
        host_calls::watch watch;
        host_calls::fail_allocation(k);
        call.run(&in.mesh, data.data(), DTYPE_SHORT, &null, 50, true);
        EXPECT_TRUE(host_calls::allocation_was_refused());
        if (call.result == 1) {
            EXPECT_EQ(host_calls::seen().out_of_memory, std::vector<std::string>{"Cannot alloc flags array"});
            EXPECT_GT(call.nline, 4000);
            ++insisted;
        } else {
            EXPECT_EQ(call.result, 0);
            EXPECT_TRUE(call.is_empty());
            EXPECT_EQ(watch.live_blocks(), 0);
            EXPECT_TRUE(host_calls::seen().out_of_memory.empty());
            ++reports_of_failures[host_calls::report_texts()];
        }
    }
    EXPECT_GE(insisted, 1);
    EXPECT_GE(reports_of_failures[{}], 4); // the lists at the start, and new nodes
    EXPECT_GE(reports_of_failures[{"UTILisoline: realloc for cell list failed"}], 2);
    EXPECT_GE(reports_of_failures[{"UTILisoline: realloc for connect list failed"}], 2);
    EXPECT_EQ(reports_of_failures.size(), 3u);
    host_calls::reset();
}

TEST(Lines, TwoCallsGiveTheSameBytes)
{
    lattice in({300, 40});
    const std::vector<int> data = meshes::random_values<int>(99, in.nnodes(), 0, 10);
    EXPECT_TRUE(lines_of<int>(&in.mesh, data, 5, nullptr) == lines_of<int>(&in.mesh, data, 5, nullptr));
}

} // namespace
