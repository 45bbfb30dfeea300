#include "support/fresh_host.hpp"
#include "support/levels.hpp"

#include <skoklana/host/tool.h>

#include <gtest/gtest.h>

#include <string>

using levels::operation;

namespace {

constexpr int surface_kinds[] = {CELL_TRI, CELL_QUAD};

class Isolines : public FreshHost {};

template <typename T> class IsolinesTyped : public Isolines {
};
using all_types = testing::Types<signed char, unsigned char, short, int, float, double, qx_long>;
TYPED_TEST_SUITE(IsolinesTyped, all_types);

levels::call isolines(const meshes::test_mesh &mesh, const std::vector<float> &data, double level)
{
    return {mesh.mesh, data.data(), DTYPE_FLOAT, 0, nullptr, level, operation::isoline, true};
}

std::string name_of(int kind, int order)
{
    return "kind " + std::to_string(kind) + " order " + std::to_string(order);
}

std::vector<std::pair<int, int>> pushed_ranges()
{
    std::vector<std::pair<int, int>> ranges;
    for (const host_calls::range &range : host_calls::seen().pushes)
        ranges.push_back({range.low, range.high});
    return ranges;
}

// A quad with corner 0 above: one line. With corners 0 and 2 above: two lines.
const std::vector<qx_long> quad_nodes = {0, 1, 2, 3};
const std::vector<unsigned char> one_above = {1, 0, 0, 0}, diagonal_above = {1, 0, 1, 0};

} // namespace

// ---- against the reference -------------------------------------------------------------------------------

TYPED_TEST(IsolinesTyped, SurfaceSetsAmongOthersShareOneSequenceOfNewNodes)
{
    using T = TypeParam;
    const T null_value = 77, level = 40;
    const std::vector<int> kinds = {CELL_HEX, CELL_QUAD, CELL_LINE, CELL_TRI, CELL_TET,
                                    CELL_TRI, CELL_QUAD, CELL_PYR,  CELL_QUAD};
    const std::vector<int> orders = {1, 1, 1, 1, 2, 2, 2, 1, 1};
    const meshes::mesh_ptr mesh = levels::bind(meshes::mixed(kinds, orders, 4, 3));
    const std::vector<T> data = levels::rough_values<T>(9, mesh->nnodes(), level, null_value);
    for (bool nulls : {false, true}) {
        const levels::output got = levels::expect_reference<T>(operation::isoline, *mesh, data, 40, nulls,
                                                               null_value, true, "mixed");
        EXPECT_GT(got.nline, 50);
        for (size_t volume : {0u, 4u, 7u})
            EXPECT_EQ(got.maps[volume], std::vector<qx_long>{-7}) << "entries of others stay";
    }
}

TEST_F(Isolines, SetsOfManyBlocksAndListsOfManyGrowths)
{
    for (int kind : surface_kinds)
        for (int order : {1, 2}) {
            const int n = kind == CELL_QUAD ? 72 : 51;
            const meshes::mesh_ptr mesh = levels::bind(meshes::cells(kind, order, {n, n}, 1));
            ASSERT_GT(mesh->mesh->cell_count[0], 5000);
            const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
            const levels::output got = levels::expect_reference<float>(
                operation::isoline, *mesh, data, 0.5, false, 0.0f, true, name_of(kind, order));
            EXPECT_GT(got.nline, 3500); // seven growths
            EXPECT_GT(got.nodes.size(), 3500u);
        }
}

TEST_F(Isolines, TheSameLinesAsInAnIsosurfaceOfSurfaceCells)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::mixed({CELL_QUAD, CELL_TRI}, {1, 2}, 9, 3));
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    levels::call call = isolines(*mesh, data, 0.5);
    const levels::output lines = levels::run(call);
    call.what = operation::isosurface;
    EXPECT_GT(lines.nline, 100);
    EXPECT_TRUE(lines == levels::run(call));
}

// ---- geometry --------------------------------------------------------------------------------------------

// Away from the rim of the mesh a line has no end: each new node lies on exactly two. Random data makes many
// ambiguous quads.
TEST_F(Isolines, LinesOffTheBoundaryAreClosed)
{
    for (int kind : surface_kinds)
        for (int order : {1, 2}) {
            const meshes::mesh_ptr mesh = levels::bind(meshes::cells(kind, order, {12, 11}, 1));
            for (uint64_t seed = 1; seed <= 5; ++seed) {
                std::vector<float> data = meshes::random_values<float>(seed, mesh->nnodes(), -1, 1);
                for (qx_long node = 0; node < mesh->nnodes(); ++node)
                    for (int d = 0; d < 2; ++d) {
                        const double x = meshes::at(*mesh, node, d);
                        if (x < 1e-6 || x > 1 - 1e-6) data[static_cast<size_t>(node)] = -1;
                    }
                const levels::output got = levels::run(isolines(*mesh, data, 0.0));
                EXPECT_GT(got.nline, 50);
                std::vector<int> ends(got.nodes.size(), 0);
                for (qx_long node : got.lines)
                    ++ends[static_cast<size_t>(node)];
                EXPECT_EQ(ends, std::vector<int>(got.nodes.size(), 2)) << name_of(kind, order);
                for (size_t line = 0; line < got.lines.size(); line += 2)
                    EXPECT_NE(got.lines[line], got.lines[line + 1]);
            }
        }
}

// ---- single cells ----------------------------------------------------------------------------------------

namespace {

// The edges that the lines of one cell join, as pairs of its corners, in order and direction.
std::vector<std::pair<qx_long, qx_long>> ends_of_lines(slice_cell_func kernel, int ncorners, int mask)
{
    std::vector<qx_long> nodes;
    std::vector<unsigned char> flags;
    for (int c = 0; c < ncorners; ++c) {
        nodes.push_back(c);
        flags.push_back(mask >> c & 1);
    }
    levels::bare_set set(ncorners, 2, nodes);
    levels::kernel_call call(kernel, flags);
    const qx_long made = call.run(&set.mesh);
    EXPECT_EQ(2 * made, call.used);
    std::vector<std::pair<qx_long, qx_long>> ends;
    const auto edges = call.nodes();
    for (qx_long p : call.list())
        ends.push_back(edges[static_cast<size_t>(p)]);
    return ends;
}

using edge_ends = std::vector<std::pair<qx_long, qx_long>>;

} // namespace

TEST_F(Isolines, ACaseAndItsComplementGiveTheSameLinesInTheSameDirection)
{
    for (int mask = 1; mask < 8; ++mask)
        EXPECT_EQ(ends_of_lines(UTILisoline_quad, 4, mask), ends_of_lines(UTILisoline_quad, 4, 15 - mask));
    for (int mask = 1; mask < 4; ++mask)
        EXPECT_EQ(ends_of_lines(UTILisoline_tri, 3, mask), ends_of_lines(UTILisoline_tri, 3, 7 - mask));
}

// Corners 1 and 3 are joined across the quad whether they are the ones above or the ones below.
TEST_F(Isolines, AmbiguousQuadsAlwaysCutOffCorners0And2)
{
    const edge_ends cut_off = {{0, 1}, {0, 3}, {1, 2}, {2, 3}};
    EXPECT_EQ(ends_of_lines(UTILisoline_quad, 4, 5), cut_off);
    EXPECT_EQ(ends_of_lines(UTILisoline_quad, 4, 10), cut_off);
}

TEST_F(Isolines, ATriangleAboveTheLevelGivesNothing)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::cells(CELL_TRI, 1, {1, 1}, 1));
    std::vector<float> data(4, 2.0f);
    levels::output got = levels::run(isolines(*mesh, data, 1.0));
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.nline, 0);
    got = levels::run(isolines(*mesh, data, 2.0));
    EXPECT_EQ(got.nline, 0) << "at the level is above";
    EXPECT_TRUE(got.has_lines);
    EXPECT_TRUE(got.nodes.empty());
    EXPECT_EQ(got.maps, (std::vector<std::vector<qx_long>>{{}}));
    data[0] = 1.0f;
    got = levels::run(isolines(*mesh, data, 2.0));
    EXPECT_GT(got.nline, 0);
}

TEST_F(Isolines, NeighboursShareTheirNewNode)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::from_cells(
        2, {0, 0, 1, 0, 2, 0, 0, 1, 1, 1, 2, 1}, {CELL_QUAD}, {1}, {{0, 1, 4, 3, 1, 2, 5, 4}}));
    const std::vector<float> data = {0, 0, 0, 1, 1, 1};
    const levels::output got = levels::run(isolines(*mesh, data, 0.5));
    EXPECT_EQ(got.nodes, (edge_ends{{1, 4}, {0, 3}, {2, 5}}));
    EXPECT_EQ(got.lines, (std::vector<qx_long>{0, 1, 2, 0}));
    EXPECT_EQ(got.maps[0], (std::vector<qx_long>{0, 1}));
}

// ---- a kernel's lists ------------------------------------------------------------------------------------

TEST_F(Isolines, ConnectListsGrowBy1000WhenLessThan8EntriesAreLeft)
{
    const struct {
        qx_long ncells, capacity;
    } points[] = {{0, 1000},   {1, 1000},    {496, 1000},  {497, 2000},  {996, 2000},
                  {997, 3000}, {1496, 3000}, {1497, 4000}, {1996, 4000}, {1997, 5000}}; // the step stays
    for (const auto &point : points) {
        levels::bare_set set(4, 2, levels::repeated(quad_nodes, point.ncells));
        levels::kernel_call call(UTILisoline_quad, one_above);
        EXPECT_EQ(call.run(&set.mesh), point.ncells);
        EXPECT_EQ(call.used, 2 * point.ncells);
        EXPECT_EQ(call.capacity, point.capacity) << point.ncells;
    }
}

TEST_F(Isolines, QuadsOfTwoLinesFitBesideTheMargin)
{
    for (qx_long ncells : {248, 249, 498, 499, 500, 501, 3000}) {
        levels::bare_set set(4, 2, levels::repeated(quad_nodes, ncells));
        levels::kernel_call call(UTILisoline_quad, diagonal_above);
        call.map = static_cast<qx_long *>(ARRalloc_f(nullptr, DTYPE_QX_LONG, 1000, 0, "test", 0));
        EXPECT_EQ(call.run(&set.mesh), 2 * ncells);
        EXPECT_EQ(call.used, 4 * ncells);
        EXPECT_GE(call.capacity, call.used + 8);
        for (qx_long line = 0; line < 2 * ncells; ++line)
            ASSERT_EQ(call.map[line], line / 2);
    }
}

TEST_F(Isolines, AppendToWhatIsThere)
{
    levels::bare_set set(3, 2, levels::repeated({0, 1, 2}, 600));
    levels::kernel_call call(UTILisoline_tri, {1, 0, 0});
    EXPECT_EQ(call.run(&set.mesh), 600);
    EXPECT_EQ(call.run(&set.mesh), 600) << "the count is of this call";
    EXPECT_EQ(call.used, 2 * 1200);
    EXPECT_EQ(call.capacity, 3000);
    EXPECT_EQ(call.table->nedges, 2);
    const std::vector<qx_long> list = call.list();
    EXPECT_TRUE(std::equal(list.begin(), list.begin() + 1200, list.begin() + 1200));
}

// ---- sets that take no part ------------------------------------------------------------------------------

TEST_F(Isolines, TheDimensionOfASetIsNotRead)
{
    levels::bare_set set(4, 1, quad_nodes);
    set.row[SLOT_ISOLINE] = reinterpret_cast<cell_func>(UTILisoline_quad);
    const std::vector<float> data = {1, 0, 0, 0};
    EXPECT_EQ(levels::run({&set.mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5, operation::isoline}).nline,
              1);
    EXPECT_EQ(levels::run({&set.mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5}).nline, 0);
    // The later slot serves where the first is empty.
    std::swap(set.row[SLOT_ISOLINE], set.row[SLOT_SUB_ISOLINE]);
    EXPECT_EQ(levels::run({&set.mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5, operation::isoline}).nline,
              1);
}

TEST_F(Isolines, SetsWithoutKernelOrTesselatorAreSkippedWithNothingPending)
{
    const meshes::mesh_ptr mesh =
        levels::bind(meshes::mixed({CELL_QUAD, CELL_QUAD, CELL_TRI}, {2, 1, 1}, 5, 1));
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    mesh->mesh->cell_funcs[SLOT_TESSELATE] = nullptr;
    mesh->mesh->cell_funcs[CELL_METHOD_SLOTS + SLOT_ISOLINE] = nullptr;
    host_calls::watch watch;
    const levels::output got = levels::run(isolines(*mesh, data, 0.5));
    EXPECT_EQ(watch.live_blocks(), 0);
    EXPECT_EQ(got.status, 1);
    EXPECT_GT(got.nline, 0);
    EXPECT_EQ(got.maps[0], std::vector<qx_long>{-7});
    EXPECT_EQ(got.maps[1], std::vector<qx_long>{-7});
    EXPECT_EQ(static_cast<qx_long>(got.maps[2].size()), got.nline);
    EXPECT_TRUE(host_calls::seen().pushes.empty());
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(Isolines, SetsWithoutCells)
{
    levels::bare_set set(4, 2, {});
    set.row[SLOT_ISOLINE] = reinterpret_cast<cell_func>(UTILisoline_quad);
    const float value = 0;
    levels::call call = {&set.mesh, &value, DTYPE_FLOAT, 0, nullptr, 0.5, operation::isoline, true};
    levels::output got = levels::run(call);
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.nline, 0);
    EXPECT_EQ(got.maps, (std::vector<std::vector<qx_long>>{{}}));
    set.order = 2;
    set.row[SLOT_TESSELATE] = reinterpret_cast<cell_func>(UTILtesselate_quad_2);
    got = levels::run(call);
    EXPECT_EQ(got.status, 1);
    EXPECT_FALSE(got.has_lines) << "there is no block";
    EXPECT_TRUE(host_calls::seen().pushes.empty());
}

// ---- second order ----------------------------------------------------------------------------------------

// A range a block and none a set; the last block holds up to 1000 cells.
TEST_F(Isolines, BlocksHold1000Cells)
{
    const struct {
        int nx, ny;
        std::vector<std::pair<int, int>> ranges;
    } sets[] = {{37, 27, {{0, 100}}}, // 999
                {40, 25, {{0, 100}}}, // 1000
                {77, 13, {{0, 99}, {99, 100}}},
                {50, 40, {{0, 50}, {50, 100}}},
                {87, 23, {{0, 49}, {49, 99}, {99, 100}}}}; // 2001
    for (const auto &set : sets) {
        host_calls::reset();
        const meshes::mesh_ptr mesh = levels::bind(meshes::cells(CELL_QUAD, 2, {set.nx, set.ny}, 1));
        ASSERT_EQ(mesh->mesh->cell_count[0], set.nx * set.ny);
        const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
        const levels::output got = levels::expect_reference<float>(operation::isoline, *mesh, data, 0.5,
                                                                   false, 0.0f, true, "blocks");
        EXPECT_EQ(got.maps[0].back(), set.nx * set.ny - 1);
        EXPECT_EQ(pushed_ranges(), set.ranges);
        EXPECT_EQ(host_calls::seen().depth, 0);
        EXPECT_EQ(host_calls::seen().lowest_depth, 0);
    }
}

TEST_F(Isolines, FirstOrderSetsOpenNoRange)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::mixed({CELL_QUAD, CELL_TRI}, {1, 1}, 20, 1));
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    host_calls::interrupt_at(0); // nobody asks
    const levels::output got = levels::run(isolines(*mesh, data, 0.5));
    EXPECT_EQ(got.status, 1);
    EXPECT_GT(got.nline, 100);
    EXPECT_TRUE(host_calls::seen().pushes.empty());
    EXPECT_TRUE(host_calls::seen().statuses.empty());
}
