#include "support/fresh_host.hpp"
#include "support/levels.hpp"

#include "extract.hpp"

#include <skoklana/host/tool.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numeric>
#include <random>
#include <set>
#include <string>

using levels::operation;

namespace {

constexpr int volume_kinds[] = {CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX};

class IsoCells : public FreshHost {};

template <typename T> class IsoCellsTyped : public IsoCells {
};
using all_types = testing::Types<signed char, unsigned char, short, int, float, double, qx_long>;
TYPED_TEST_SUITE(IsoCellsTyped, all_types);

const std::array<float, 3> position_of(const meshes::test_mesh &mesh, const std::vector<float> &data,
                                       double level, const std::pair<qx_long, qx_long> &edge)
{
    const double a = data[static_cast<size_t>(edge.first)], b = data[static_cast<size_t>(edge.second)];
    const double t = (level - a) / (b - a);
    std::array<float, 3> p;
    for (int d = 0; d < 3; ++d)
        p[static_cast<size_t>(d)] =
            static_cast<float>(meshes::at(mesh, edge.first, d) +
                               t * (meshes::at(mesh, edge.second, d) - meshes::at(mesh, edge.first, d)));
    return p;
}

} // namespace

// ---- against the reference -------------------------------------------------------------------------------

TYPED_TEST(IsoCellsTyped, MixedSetsShareOneSequenceOfNewNodes)
{
    using T = TypeParam;
    const T null_value = 77, level = 40;
    const std::vector<int> kinds = {CELL_HEX,  CELL_QUAD, CELL_LINE, CELL_TET, CELL_TRI, CELL_PRISM,
                                    CELL_QUAD, CELL_PYR,  CELL_HEX,  CELL_TRI, CELL_LINE};
    const std::vector<int> orders = {1, 1, 1, 1, 2, 2, 2, 1, 2, 1, 2};
    const meshes::mesh_ptr mesh = levels::bind(meshes::mixed(kinds, orders, 3, 3));
    const std::vector<T> data = levels::rough_values<T>(9, mesh->nnodes(), level, null_value);
    for (bool nulls : {false, true}) {
        const levels::output got = levels::expect_reference<T>(operation::isosurface, *mesh, data, 40, nulls,
                                                               null_value, true, "mixed");
        EXPECT_GT(got.ntri, 50);
        EXPECT_GT(got.nline, 10);
        EXPECT_EQ(got.maps[2], std::vector<qx_long>{-7}) << "lines take no part, their entries stay";
    }
}

TEST_F(IsoCells, SetsOfManyBlocksAndListsOfManyGrowths)
{
    for (int kind : volume_kinds)
        for (int order : {1, 2}) {
            const int n = kind == CELL_HEX ? 14 : kind == CELL_PRISM ? 11 : 9;
            const meshes::mesh_ptr mesh = levels::bind(meshes::cells(kind, order, {n, n, n}, 1));
            ASSERT_GT(mesh->mesh->cell_count[0], 1024);
            const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
            const levels::output got = levels::expect_reference<float>(
                operation::isosurface, *mesh, data, 0.5, false, 0.0f, true,
                "kind " + std::to_string(kind) + " order " + std::to_string(order));
            EXPECT_GT(got.triangles.size(), 3u * 1024u * 3u);
            EXPECT_GT(got.nodes.size(), 2500u);
        }
}

// Cells and nodes in no order at all, as some mesh generators leave them: memory is then asked for ahead.
TEST_F(IsoCells, CellsAndNodesInRandomOrder)
{
    for (int kind : volume_kinds) {
        const meshes::mesh_ptr ordered = meshes::cells(kind, 1, {9, 9, 9}, 1);
        const int nnodes = cell_kinds[kind].ncorners;
        const qx_long ncells = static_cast<qx_long>(ordered->connect[0].size()) / nnodes;
        std::mt19937_64 random(7);
        std::vector<qx_long> node(static_cast<size_t>(ordered->nnodes())), cell(static_cast<size_t>(ncells));
        std::iota(node.begin(), node.end(), 0);
        std::iota(cell.begin(), cell.end(), 0);
        std::shuffle(node.begin(), node.end(), random);
        std::shuffle(cell.begin(), cell.end(), random);
        std::vector<qx_long> connect;
        for (qx_long c : cell)
            for (int corner = 0; corner < nnodes; ++corner)
                connect.push_back(
                    node[static_cast<size_t>(ordered->connect[0][static_cast<size_t>(c * nnodes + corner)])]);
        EXPECT_TRUE(are_scattered(connect.data(), ncells, nnodes, ordered->nnodes()));
        EXPECT_FALSE(are_scattered(ordered->connect[0].data(), ncells, nnodes, ordered->nnodes()));
        const meshes::mesh_ptr mesh =
            levels::bind(meshes::from_cells(3, ordered->coords, {kind}, {1}, {connect}));
        const std::vector<float> data = levels::rough_values<float>(3, mesh->nnodes(), 40, 77);
        for (bool nulls : {false, true}) {
            const levels::output got = levels::expect_reference<float>(
                operation::isosurface, *mesh, data, 40, nulls, 77, true, "kind " + std::to_string(kind));
            EXPECT_GT(got.ntri, 500);
        }
    }
}

TEST_F(IsoCells, TheSameCallTwiceGivesTheSame)
{
    const meshes::mesh_ptr mesh =
        levels::bind(meshes::mixed({CELL_HEX, CELL_TET, CELL_QUAD}, {1, 2, 1}, 5, 3));
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    const levels::call call = {mesh->mesh, data.data(), DTYPE_FLOAT,           0,
                               nullptr,    0.5,         operation::isosurface, true};
    const levels::output once = levels::run(call);
    EXPECT_GT(once.ntri, 100);
    EXPECT_TRUE(once == levels::run(call));
}

// ---- geometry --------------------------------------------------------------------------------------------

// A surface that stays off the boundary has no rim: each side of a triangle is met by as many sides the other
// way round, nearly always by one. Random data reaches all kinds of ambiguous faces. Of the second-order kinds
// only tetrahedra are split alike from both sides of a face.
TEST_F(IsoCells, SurfacesOffTheBoundaryAreClosed)
{
    const std::pair<int, int> kinds_and_orders[] = {
        {CELL_TET, 1}, {CELL_PYR, 1}, {CELL_PRISM, 1}, {CELL_HEX, 1}, {CELL_TET, 2}};
    for (const auto &[kind, order] : kinds_and_orders) {
        const meshes::mesh_ptr mesh = levels::bind(meshes::cells(kind, order, {7, 6, 5}, 1));
        for (uint64_t seed = 1; seed <= 5; ++seed) {
            std::vector<float> data = meshes::random_values<float>(seed, mesh->nnodes(), -1, 1);
            for (qx_long node = 0; node < mesh->nnodes(); ++node)
                for (int d = 0; d < 3; ++d) {
                    const double x = meshes::at(*mesh, node, d);
                    if (x < 1e-6 || x > 1 - 1e-6) data[static_cast<size_t>(node)] = -1;
                }
            const levels::output got = levels::run({mesh->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.0});
            std::map<std::pair<qx_long, qx_long>, int> sides;
            for (size_t t = 0; t < got.triangles.size(); t += 3)
                for (size_t i = 0; i < 3; ++i)
                    ++sides[{got.triangles[t + i], got.triangles[t + (i + 1) % 3]}];
            EXPECT_GT(sides.size(), 300u);
            size_t met_once = 0;
            for (const auto &side : sides) {
                ASSERT_NE(side.first.first, side.first.second);
                const auto met = sides.find({side.first.second, side.first.first});
                ASSERT_TRUE(met != sides.end() && met->second == side.second)
                    << "kind " << kind << " order " << order << " seed " << seed;
                met_once += side.second == 1;
            }
            // Where a polygon touches an ambiguous face twice, a split of it may run along the face and meet
            // that of the neighbour: four triangles on a side. Cells without such faces have none.
            if (kind == CELL_TET)
                EXPECT_EQ(met_once, sides.size());
            else
                EXPECT_GT(met_once, sides.size() * 9 / 10);
        }
    }
}

// Right-hand normals point to lower values, in all kinds. The pieces of a second-order prism are not all of
// one sense, so neither are their triangles.
TEST_F(IsoCells, NormalsPointToLowerValues)
{
    for (int kind : volume_kinds)
        for (int order : {1, 2}) {
            if (kind == CELL_PRISM && order == 2) continue;
            const meshes::mesh_ptr mesh = levels::bind(meshes::cells(kind, order, {4, 4, 4}, 1));
            const double g[3] = {0.7, -0.5, 0.3};
            const std::vector<float> data = meshes::field_of<float>(
                *mesh, [&](double x, double y, double z) { return g[0] * x + g[1] * y + g[2] * z; });
            const double level = 0.2345;
            const levels::output got = levels::run({mesh->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, level});
            EXPECT_GT(got.ntri, 20);
            for (size_t t = 0; t < got.triangles.size(); t += 3) {
                std::array<float, 3> p[3];
                for (size_t i = 0; i < 3; ++i)
                    p[i] =
                        position_of(*mesh, data, level, got.nodes[static_cast<size_t>(got.triangles[t + i])]);
                double normal[3], along = 0, size = 0;
                for (size_t d = 0; d < 3; ++d) {
                    const size_t e = (d + 1) % 3, f = (d + 2) % 3;
                    normal[d] = static_cast<double>(p[1][e] - p[0][e]) * (p[2][f] - p[0][f]) -
                                static_cast<double>(p[1][f] - p[0][f]) * (p[2][e] - p[0][e]);
                    along += normal[d] * g[d];
                    size += normal[d] * normal[d];
                }
                if (size < 1e-12) continue;
                ASSERT_LT(along, 0) << "kind " << kind << " order " << order;
            }
        }
}

// ---- single cells ----------------------------------------------------------------------------------------

TEST_F(IsoCells, ANodeAtTheLevelIsAbove)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1));
    std::vector<double> data(8, 3.0);
    levels::output got = levels::run({mesh->mesh, data.data(), DTYPE_DOUBLE, 0, nullptr, 3.0});
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.ntri, 0) << "all corners at the level";

    std::fill(data.begin(), data.end(), 1.0);
    data[5] = 3.0;
    got = levels::run({mesh->mesh, data.data(), DTYPE_DOUBLE, 0, nullptr, 3.0});
    EXPECT_EQ(got.ntri, 1);
    ASSERT_EQ(got.nodes.size(), 3u);
    for (const auto &edge : got.nodes)
        EXPECT_TRUE(edge.first == 5 || edge.second == 5);
}

TEST_F(IsoCells, NoCrossingGivesAnEmptyList)
{
    host_calls::watch watch;
    const meshes::mesh_ptr mesh = levels::bind(meshes::cells(CELL_TET, 1, {2, 2, 2}, 1));
    const std::vector<float> data(static_cast<size_t>(mesh->nnodes()), 1.0f);
    const long before = watch.live_blocks();
    levels::raw_output raw = levels::run_raw({mesh->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 5.0});
    EXPECT_EQ(raw.status, 1);
    EXPECT_EQ(raw.nnodes, 0);
    EXPECT_EQ(raw.ntri, 0);
    EXPECT_EQ(raw.ntri_conn, 0);
    ASSERT_NE(raw.tri_conn, nullptr);
    for (qx_long i = 0; i < 1024; ++i)
        raw.tri_conn[i] = i; // there is room for 1024 entries
    EXPECT_EQ(raw.line_conn, nullptr);
    EXPECT_NE(raw.min_node, nullptr);
    EXPECT_NE(raw.max_node, nullptr);
    raw.release();
    EXPECT_EQ(watch.live_blocks(), before);
}

TEST_F(IsoCells, NeighboursShareTheirNewNodes)
{
    // Two hexes on a face; its four corners are above, so the surface crosses four edges of each hex, none of
    // the face. Then one corner of the face alone: its two edges in the face are shared.
    const meshes::mesh_ptr mesh = levels::bind(meshes::cells(CELL_HEX, 1, {2, 1, 1}, 1));
    ASSERT_EQ(mesh->nnodes(), 12);
    std::set<qx_long> a(mesh->connect[0].begin(), mesh->connect[0].begin() + 8), common;
    for (size_t i = 8; i < 16; ++i)
        if (a.count(mesh->connect[0][i]) == 1) common.insert(mesh->connect[0][i]);
    ASSERT_EQ(common.size(), 4u);
    std::vector<float> data(12, 0.0f);
    data[static_cast<size_t>(*common.begin())] = 1.0f;
    const levels::output got = levels::run({mesh->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5});
    EXPECT_EQ(got.ntri, 2);
    EXPECT_EQ(got.nodes.size(), 4u) << "two shared, one for each cell";
}

// ---- nulls -----------------------------------------------------------------------------------------------

TEST_F(IsoCells, ANullCornerTakesItsCellsOutAndNoOthers)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::cells(CELL_HEX, 1, {2, 1, 1}, 1));
    std::vector<int> data;
    for (qx_long node = 0; node < 12; ++node)
        data.push_back(meshes::at(*mesh, node, 2) > 0.5 ? 10 : 0);
    const std::vector<qx_long> &connect = mesh->connect[0];
    qx_long lonely = -1; // a node of cell 0 alone
    for (size_t i = 0; i < 8; ++i)
        if (std::count(connect.begin() + 8, connect.end(), connect[i]) == 0) lonely = connect[i];
    ASSERT_GE(lonely, 0);
    data[static_cast<size_t>(lonely)] = -99;
    const int null_value = -99;
    levels::output got =
        levels::run({mesh->mesh, data.data(), DTYPE_INT, 1, &null_value, 5.0, operation::isosurface, true});
    EXPECT_EQ(got.ntri, 2);
    EXPECT_EQ(got.maps[0], (std::vector<qx_long>{1, 1}));
    // With no null flag the value is a value, and no pointer to a null value is needed.
    got = levels::run({mesh->mesh, data.data(), DTYPE_INT, 0, nullptr, 5.0, operation::isosurface, true});
    EXPECT_GT(got.ntri, 2);
    EXPECT_EQ(got.maps[0].front(), 0);
}

// ---- a kernel's lists ------------------------------------------------------------------------------------

namespace {

// A hex with one corner above: one triangle.
const std::vector<qx_long> hex_nodes = {0, 1, 2, 3, 4, 5, 6, 7};
const std::vector<unsigned char> one_above = {1, 0, 0, 0, 0, 0, 0, 0};

// A hex case of five triangles, 15 entries.
std::vector<unsigned char> five_triangles()
{
    for (int mask = 0; mask < 256; ++mask) {
        std::vector<unsigned char> flags;
        for (int c = 0; c < 8; ++c)
            flags.push_back(mask >> c & 1);
        levels::reference cell(flags);
        qx_long made = 0;
        cell.add_cell(CELL_HEX, hex_nodes.data(), false, &made);
        if (made == 5) return flags;
    }
    return {};
}

} // namespace

TEST_F(IsoCells, ConnectListsGrowWhenLessThan25EntriesAreLeft)
{
    const struct {
        qx_long ncells, capacity;
    } points[] = {{0, 1024}, {333, 1024}, {334, 2048}, {674, 2048}, {675, 3584}, {1186, 3584}, {1187, 5888}};
    for (const auto &point : points) { // used: 999 of 1024, 1002; 2022 of 2048, 2025; 3558 of 3584, 3561
        levels::bare_set set(8, 3, levels::repeated(hex_nodes, point.ncells));
        set.mesh.nnodes = 8;
        levels::kernel_call call(UTILslice_hex, one_above);
        EXPECT_EQ(call.run(&set.mesh), point.ncells);
        EXPECT_EQ(call.used, 3 * point.ncells);
        EXPECT_EQ(call.capacity, point.capacity) << point.ncells;
    }
}

TEST_F(IsoCells, TheLargestCaseFitsBesideTheMargin)
{
    const std::vector<unsigned char> flags = five_triangles();
    ASSERT_EQ(flags.size(), 8u);
    for (qx_long ncells : {66, 67, 68, 135, 136, 1000}) {
        levels::bare_set set(8, 3, levels::repeated(hex_nodes, ncells));
        levels::kernel_call call(UTILslice_hex, flags);
        call.map = static_cast<qx_long *>(ARRalloc_f(nullptr, DTYPE_QX_LONG, 1024, 0, "test", 0));
        EXPECT_EQ(call.run(&set.mesh), 5 * ncells);
        EXPECT_EQ(call.used, 15 * ncells);
        EXPECT_GE(call.capacity, call.used + 25);
        for (qx_long t = 0; t < 5 * ncells; ++t)
            ASSERT_EQ(call.map[t], t / 5);
    }
}

TEST_F(IsoCells, AppendsToWhatIsThereAndGrowsAfreshInEachCall)
{
    levels::bare_set set(8, 3, levels::repeated(hex_nodes, 675));
    levels::kernel_call call(UTILslice_hex, one_above);
    EXPECT_EQ(call.run(&set.mesh), 675);
    EXPECT_EQ(call.capacity, 1024 + 1024 + 1536);
    EXPECT_EQ(call.run(&set.mesh), 675) << "the count is of this call";
    EXPECT_EQ(call.used, 2 * 3 * 675);
    EXPECT_EQ(call.capacity, 3584 + 1024) << "the step starts at 1024 again";
    EXPECT_EQ(call.table->nedges, 3);
    const std::vector<qx_long> list = call.list();
    EXPECT_TRUE(std::equal(list.begin(), list.begin() + 3 * 675, list.begin() + 3 * 675));
}

// ---- sets that take no part ------------------------------------------------------------------------------

TEST_F(IsoCells, SetsOfOtherDimensionsAndSetsWithoutKernelsAreSkipped)
{
    const meshes::mesh_ptr mesh =
        levels::bind(meshes::mixed({CELL_LINE, CELL_HEX, CELL_TET}, {1, 1, 1}, 2, 1));
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    cell_func *rows = mesh->mesh->cell_funcs;
    rows[SLOT_SLICE] = rows[SLOT_ISOLINE] = rows[CELL_METHOD_SLOTS + SLOT_SLICE];
    rows[CELL_METHOD_SLOTS + SLOT_SLICE] = nullptr;
    const levels::output got =
        levels::run({mesh->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5, operation::isosurface, true});
    EXPECT_EQ(got.status, 1);
    EXPECT_GT(got.ntri, 0);
    EXPECT_EQ(got.maps[0], std::vector<qx_long>{-7});
    EXPECT_EQ(got.maps[1], std::vector<qx_long>{-7});
    EXPECT_EQ(static_cast<qx_long>(got.maps[2].size()), got.ntri);
    ASSERT_EQ(host_calls::seen().pushes.size(), 1u) << "no range for what is skipped";
    EXPECT_EQ(host_calls::seen().pushes[0].low, 66);
    EXPECT_EQ(host_calls::seen().pushes[0].high, 100);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(IsoCells, ASecondSlotServesWhereTheFirstIsEmpty)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::mixed({CELL_HEX, CELL_QUAD}, {1, 1}, 2, 1));
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    cell_func *rows = mesh->mesh->cell_funcs;
    std::swap(rows[SLOT_SLICE], rows[SLOT_SUB_SLICE]);
    std::swap(rows[CELL_METHOD_SLOTS + SLOT_ISOLINE], rows[CELL_METHOD_SLOTS + SLOT_SUB_ISOLINE]);
    const levels::output got = levels::expect_reference<float>(operation::isosurface, *mesh, data, 0.5, false,
                                                               0.0f, true, "second slots");
    EXPECT_GT(got.ntri, 0);
    EXPECT_GT(got.nline, 0);
}

TEST_F(IsoCells, ASecondOrderSetWithoutTesselatorIsSkippedWithItsRangeOpen)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::mixed({CELL_HEX, CELL_TET}, {2, 1}, 2, 1));
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    mesh->mesh->cell_funcs[SLOT_TESSELATE] = nullptr;
    host_calls::watch watch;
    levels::raw_output raw =
        levels::run_raw({mesh->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5, operation::isosurface, true});
    EXPECT_EQ(raw.status, 1);
    EXPECT_GT(raw.ntri, 0);
    EXPECT_EQ(raw.map_count[0], 0);
    EXPECT_EQ(raw.map[0], nullptr);
    EXPECT_EQ(raw.map_count[1], raw.ntri);
    EXPECT_EQ(host_calls::seen().pushes.size(), 2u);
    EXPECT_EQ(host_calls::seen().depth, 1);
    EXPECT_TRUE(host_calls::seen().reports.empty());
    raw.release();
    EXPECT_EQ(watch.live_blocks(), 0);
    OMpop_status_range();
}

TEST_F(IsoCells, AMeshWithoutSetsOrCells)
{
    levels::bare_set set(8, 3, {});
    set.row[SLOT_SLICE] = reinterpret_cast<cell_func>(UTILslice_hex);
    const float value = 0;
    levels::output got =
        levels::run({&set.mesh, &value, DTYPE_FLOAT, 0, nullptr, 0.5, operation::isosurface, true});
    EXPECT_EQ(got.status, 1);
    EXPECT_TRUE(got.has_triangles);
    EXPECT_EQ(got.maps, (std::vector<std::vector<qx_long>>{{}}));
    ASSERT_EQ(host_calls::seen().statuses.size(), 1u);
    EXPECT_EQ(host_calls::seen().statuses[0].percent, 100);

    // In second order there is no block, and no kernel runs.
    set.order = 2;
    set.row[SLOT_TESSELATE] = reinterpret_cast<cell_func>(UTILtesselate_hex_2);
    got = levels::run({&set.mesh, &value, DTYPE_FLOAT, 0, nullptr, 0.5, operation::isosurface, true});
    EXPECT_EQ(got.status, 1);
    EXPECT_FALSE(got.has_triangles);
    EXPECT_EQ(got.maps, (std::vector<std::vector<qx_long>>{{}}));

    set.mesh.ncell_sets = 0;
    got = levels::run({&set.mesh, &value, DTYPE_FLOAT, 0, nullptr, 0.5});
    EXPECT_EQ(got.status, 1);
    EXPECT_FALSE(got.has_triangles);
    EXPECT_EQ(host_calls::seen().depth, 0);
}

// ---- second order ----------------------------------------------------------------------------------------

TEST_F(IsoCells, MapsOfSecondOrderSetsNameTheCellAndNotItsPieces)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::cells(CELL_HEX, 2, {11, 10, 10}, 1));
    ASSERT_EQ(mesh->mesh->cell_count[0], 1100);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    const levels::output got =
        levels::run({mesh->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5, operation::isosurface, true});
    ASSERT_EQ(static_cast<qx_long>(got.maps[0].size()), got.ntri);
    EXPECT_TRUE(std::is_sorted(got.maps[0].begin(), got.maps[0].end()));
    EXPECT_EQ(got.maps[0].back(), 1099);
    for (size_t t = 0; t < got.maps[0].size(); ++t) {
        // Each corner of the triangle lies between two nodes of the cell.
        const qx_long *row = &mesh->connect[0][static_cast<size_t>(got.maps[0][t]) * 20];
        for (size_t i = 0; i < 3; ++i) {
            const auto &edge = got.nodes[static_cast<size_t>(got.triangles[3 * t + i])];
            ASSERT_TRUE(std::count(row, row + 20, edge.first) == 1 &&
                        std::count(row, row + 20, edge.second) == 1);
        }
    }
}

namespace {

int no_tesselation(qx_long, const qx_long *, qx_long *, qx_long **, int *)
{
    return 0;
}

} // namespace

TEST_F(IsoCells, ATesselationThatFailsEndsTheCall)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::cells(CELL_TET, 2, {3, 3, 3}, 1));
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    mesh->mesh->cell_funcs[SLOT_TESSELATE] = reinterpret_cast<cell_func>(no_tesselation);
    host_calls::watch watch;
    const levels::raw_output raw =
        levels::run_raw({mesh->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5, operation::isosurface, true});
    EXPECT_EQ(raw.status, 0);
    EXPECT_TRUE(raw.all_zero());
    EXPECT_EQ(host_calls::report_texts(), std::vector<std::string>{"UTILslice: tesselation failed"});
    EXPECT_EQ(host_calls::seen().depth, 0);
    EXPECT_EQ(watch.live_blocks(), 0);
}

// ---- progress and interruption ---------------------------------------------------------------------------

TEST_F(IsoCells, StatusIsCheckedOnEvery257thCellAndAtTheEnd)
{
    // 540 and 8025: percents that other precisions round otherwise.
    for (qx_long ncells : {0, 1, 256, 257, 513, 514, 540, 770, 771, 2000, 8025}) {
        host_calls::reset();
        levels::bare_set set(8, 3, levels::repeated(hex_nodes, ncells));
        set.mesh.nnodes = 8;
        levels::kernel_call call(UTILslice_hex, one_above);
        EXPECT_EQ(call.run(&set.mesh), ncells);
        std::vector<int> wanted;
        const float percent = static_cast<float>(100.0 / static_cast<double>(ncells));
        for (qx_long cell = 256; cell < ncells; cell += 257)
            wanted.push_back(static_cast<int>(static_cast<float>(cell) * percent));
        wanted.push_back(100);
        SCOPED_TRACE(ncells);
        host_calls::expect_checks(wanted);
    }
}

TEST_F(IsoCells, CellsThatAreSkippedCountForTheStatus)
{
    levels::bare_set set(8, 3, levels::repeated(hex_nodes, 600));
    levels::kernel_call null_cells(UTILslice_hex, {2, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(null_cells.run(&set.mesh, 1), 0);
    EXPECT_EQ(host_calls::seen().statuses.size(), 3u);
    levels::kernel_call below(UTILslice_hex, std::vector<unsigned char>(8, 0));
    EXPECT_EQ(below.run(&set.mesh), 0);
    EXPECT_EQ(host_calls::seen().statuses.size(), 6u);
}

TEST_F(IsoCells, RangesOfSetsAndBlocks)
{
    const meshes::mesh_ptr mesh =
        levels::bind(meshes::mixed({CELL_HEX, CELL_LINE, CELL_QUAD}, {2, 1, 1}, 11, 1));
    ASSERT_EQ(mesh->mesh->cell_count[0], 1331);
    const std::vector<float> data(static_cast<size_t>(mesh->nnodes()), 0.0f);
    EXPECT_EQ(levels::run({mesh->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5}).status, 1);
    const std::vector<std::pair<int, int>> wanted = {
        {0, 33}, {0, 1024 * 100 / 1331}, {1024 * 100 / 1331, 100}, {66, 100}};
    std::vector<std::pair<int, int>> pushes;
    for (const host_calls::range &range : host_calls::seen().pushes)
        pushes.push_back({range.low, range.high});
    EXPECT_EQ(pushes, wanted);
    EXPECT_EQ(host_calls::seen().depth, 0);
    EXPECT_EQ(host_calls::seen().lowest_depth, 0);
    for (const host_calls::status &status : host_calls::seen().statuses)
        EXPECT_EQ(status.depth, 2) << "a kernel of a block works within the set's and the block's range";
}

namespace {

// Stand-ins for a set of more cells than a test can hold.
int one_cell_each(qx_long ncells, const qx_long *, qx_long *new_ncells, qx_long **new_connect,
                  int *new_nnodes)
{
    *new_ncells = ncells;
    *new_connect = nullptr;
    *new_nnodes = 4;
    return 1;
}

qx_long no_primitives(mesh_info *, int, int, unsigned char *, edge_table *, qx_long **, qx_long *, qx_long *,
                      qx_long **)
{
    return 0;
}

} // namespace

TEST_F(IsoCells, UpperEndsOfBlockRangesAreFormedIn32Bits)
{
    levels::bare_set set(10, 3, {});
    set.order = 2;
    set.count = 30000000;
    set.row[SLOT_TESSELATE] = reinterpret_cast<cell_func>(one_cell_each);
    set.row[SLOT_SUB_SLICE] = reinterpret_cast<cell_func>(no_primitives);
    const float value = 0;
    EXPECT_EQ(levels::run({&set.mesh, &value, DTYPE_FLOAT, 0, nullptr, 0.5}).status, 1);
    const std::vector<host_calls::range> &pushes = host_calls::seen().pushes;
    ASSERT_EQ(pushes.size(), 1u + (30000000 + 1023) / 1024);
    bool wrapped = false;
    for (size_t block = 1; block < pushes.size(); ++block) {
        const qx_long done = 1024 * static_cast<qx_long>(block - 1),
                      upto = std::min<qx_long>(done + 1024, set.count);
        ASSERT_EQ(pushes[block].low, done * 100 / set.count);
        ASSERT_EQ(pushes[block].high, static_cast<int32_t>(upto * 100) / set.count);
        wrapped = wrapped || pushes[block].high < 0;
    }
    EXPECT_TRUE(wrapped);
}

TEST_F(IsoCells, InterruptionAtEachStatusCheckLeavesNothing)
{
    const meshes::mesh_ptr mesh =
        levels::bind(meshes::mixed({CELL_HEX, CELL_QUAD, CELL_TET, CELL_HEX}, {1, 1, 2, 2}, 7, 1));
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    const levels::call call = {mesh->mesh, data.data(), DTYPE_FLOAT,           0,
                               nullptr,    0.5,         operation::isosurface, true};
    const levels::output clean = levels::run(call);
    const int nchecks = static_cast<int>(host_calls::seen().statuses.size());
    ASSERT_GT(nchecks, 10);
    int interrupted = 0;
    for (int k = 0; k < nchecks; ++k) {
        host_calls::reset();
        host_calls::interrupt_at(k);
        host_calls::watch watch;
        const levels::raw_output raw = levels::run_raw(call);
        if (raw.status == 1) { // the last check of all is not heeded
            EXPECT_EQ(k, nchecks - 1);
            EXPECT_TRUE(levels::taken(raw) == clean);
            continue;
        }
        ++interrupted;
        EXPECT_EQ(raw.status, 0) << k;
        EXPECT_TRUE(raw.all_zero()) << k;
        for (qx_long *map : raw.map)
            EXPECT_EQ(map, nullptr) << k;
        EXPECT_EQ(watch.live_blocks(), 0) << k;
        EXPECT_EQ(host_calls::seen().depth, 0) << k;
        EXPECT_TRUE(host_calls::seen().reports.empty()) << k;
        for (size_t set = 0; set < mesh->kinds.size(); ++set)
            EXPECT_EQ(mesh->mesh->cell_connect[set], mesh->connect[set].data()) << k;
    }
    EXPECT_EQ(interrupted, nchecks - 1);
    host_calls::reset();
    EXPECT_TRUE(levels::run(call) == clean);
}

TEST_F(IsoCells, AnInterruptedKernelReleasesWhatItWasGiven)
{
    host_calls::watch watch;
    {
        levels::bare_set set(8, 3, levels::repeated(hex_nodes, 600));
        levels::kernel_call call(UTILslice_hex, one_above);
        host_calls::interrupt_at(1);
        EXPECT_EQ(call.run(&set.mesh), -1);
        call.owned = false;
        EXPECT_EQ(call.connect, nullptr);
        EXPECT_EQ(call.used, 0);
        EXPECT_EQ(call.capacity, 0);
        EXPECT_EQ(host_calls::seen().statuses.size(), 2u);
    }
    EXPECT_EQ(watch.live_blocks(), 0);
    // The check at the end tells progress and stops nothing.
    levels::bare_set set(8, 3, hex_nodes);
    levels::kernel_call call(UTILslice_hex, one_above);
    host_calls::reset();
    host_calls::interrupt_at(0);
    EXPECT_EQ(call.run(&set.mesh), 1);
}

// ---- kernels of other makers -----------------------------------------------------------------------------

namespace {

struct foreign_call {
    mesh_info *mesh;
    int set, null_flag;
    qx_long count, capacity, used;
    int nnodes;
    bool has_map;
};
std::vector<foreign_call> foreign_calls;
int foreign_gives_up_at = -1;

// Makes a triangle over the first edge of each cell, thrice, by the public means.
qx_long foreign_kernel(mesh_info *mesh, int set, int null_flag, unsigned char *flags, edge_table *table,
                       qx_long **connect, qx_long *used, qx_long *capacity, qx_long **cell_map)
{
    const int number = static_cast<int>(foreign_calls.size());
    if (mesh->cell_connect[set] == nullptr) mesh->get_connect(mesh, set, &mesh->cell_connect[set]);
    foreign_calls.push_back({mesh, set, null_flag, mesh->cell_count[set], *capacity, *used,
                             mesh->cell_nnodes[set], cell_map != nullptr});
    if (number == foreign_gives_up_at) {
        UTILedge_table_delete(table);
        free(flags);
        ARRfree_f(*connect, "foreign", 0);
        return -1;
    }
    const qx_long ncells = mesh->cell_count[set];
    if (*capacity == 0) *used = 0;
    *capacity = *used + 3 * ncells + 25;
    *connect = static_cast<qx_long *>(ARRrealloc_f(*connect, DTYPE_QX_LONG, *capacity, 0, "foreign", 0));
    if (cell_map != nullptr)
        *cell_map = static_cast<qx_long *>(ARRrealloc_f(*cell_map, DTYPE_QX_LONG, ncells, 0, "foreign", 0));
    for (qx_long c = 0; c < ncells; ++c) {
        const qx_long *nodes = mesh->cell_connect[set] + c * mesh->cell_nnodes[set];
        int edge;
        UTILedge_table_add_points(table, nodes, nodes + 1, 1, &edge);
        for (int i = 0; i < 3; ++i)
            (*connect)[(*used)++] = edge;
        if (cell_map != nullptr) (*cell_map)[c] = c;
    }
    return ncells;
}

class ForeignKernels : public IsoCells {
  protected:
    void SetUp() override
    {
        IsoCells::SetUp();
        foreign_calls.clear();
        foreign_gives_up_at = -1;
    }
};

} // namespace

TEST_F(ForeignKernels, WorkBesideOurOwn)
{
    const meshes::mesh_ptr mesh =
        levels::bind(meshes::mixed({CELL_HEX, CELL_TET, CELL_TET, CELL_HEX}, {1, 1, 2, 1}, 6, 1));
    cell_func *rows = mesh->mesh->cell_funcs;
    rows[CELL_METHOD_SLOTS + SLOT_SLICE] = reinterpret_cast<cell_func>(foreign_kernel);
    rows[2 * CELL_METHOD_SLOTS + SLOT_SUB_SLICE] = reinterpret_cast<cell_func>(foreign_kernel);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    const float null_value = 0.75f;
    host_calls::watch watch;
    const levels::output got =
        levels::run({mesh->mesh, data.data(), DTYPE_FLOAT, 3, &null_value, 0.5, operation::isosurface, true});
    EXPECT_EQ(watch.live_blocks(), 0);

    const std::vector<unsigned char> flags = levels::classify(data, 0.5, &null_value);
    levels::reference wanted(flags);
    std::vector<std::vector<qx_long>> maps(4);
    const qx_long ncells[4] = {216, 1296, 1296, 216};
    const int nnodes[4] = {8, 4, 10, 8};
    for (size_t set : {0u, 3u}) {
        // What our own kernels make goes round the foreign triangles in the same lists.
        levels::reference own(flags);
        for (qx_long c = 0; c < ncells[set]; ++c) {
            qx_long made = 0;
            own.add_cell(CELL_HEX, &mesh->connect[set][static_cast<size_t>(c * nnodes[set])], true, &made);
            maps[set].insert(maps[set].end(), static_cast<size_t>(made), c);
        }
    }
    for (qx_long c = 0; c < 1296; ++c)
        maps[1].push_back(c);
    for (qx_long c = 0; c < 8 * 1296; ++c)
        maps[2].push_back(c / 8);
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.maps, maps);
    EXPECT_EQ(got.ntri, static_cast<qx_long>(maps[0].size() + maps[3].size()) + 1296 + 8 * 1296);
    EXPECT_EQ(static_cast<qx_long>(got.triangles.size()), 3 * got.ntri);

    ASSERT_EQ(foreign_calls.size(), 3u) << "a whole set and two blocks";
    EXPECT_EQ(foreign_calls[0].mesh, mesh->mesh);
    EXPECT_EQ(foreign_calls[0].set, 1);
    EXPECT_EQ(foreign_calls[0].null_flag, 3);
    EXPECT_GT(foreign_calls[0].used, 0);
    EXPECT_TRUE(foreign_calls[0].has_map);
    EXPECT_NE(foreign_calls[1].mesh, mesh->mesh) << "blocks come in a copy";
    EXPECT_EQ(foreign_calls[1].count, 1024 * 8);
    EXPECT_EQ(foreign_calls[1].nnodes, 4);
    EXPECT_EQ(foreign_calls[2].count, 272 * 8);
}

TEST_F(ForeignKernels, GetNoMapWhereNoneIsWanted)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::cells(CELL_TET, 1, {1, 1, 1}, 1));
    mesh->mesh->cell_funcs[SLOT_SLICE] = reinterpret_cast<cell_func>(foreign_kernel);
    const std::vector<float> data(8, 0.0f);
    EXPECT_EQ(levels::run({mesh->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5}).ntri, 6);
    ASSERT_EQ(foreign_calls.size(), 1u);
    EXPECT_FALSE(foreign_calls[0].has_map);
}

TEST_F(ForeignKernels, BelowZeroEndsTheCallWithEverythingReleased)
{
    const meshes::mesh_ptr mesh =
        levels::bind(meshes::mixed({CELL_HEX, CELL_TET, CELL_TET, CELL_QUAD}, {1, 1, 2, 1}, 6, 1));
    cell_func *rows = mesh->mesh->cell_funcs;
    rows[CELL_METHOD_SLOTS + SLOT_SLICE] = reinterpret_cast<cell_func>(foreign_kernel);
    rows[2 * CELL_METHOD_SLOTS + SLOT_SUB_SLICE] = reinterpret_cast<cell_func>(foreign_kernel);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    for (int k = 0; k < 3; ++k) {
        host_calls::reset();
        foreign_calls.clear();
        foreign_gives_up_at = k;
        host_calls::watch watch;
        const levels::raw_output raw = levels::run_raw(
            {mesh->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5, operation::isosurface, true});
        EXPECT_EQ(raw.status, 0);
        EXPECT_TRUE(raw.all_zero());
        EXPECT_EQ(watch.live_blocks(), 0) << k;
        EXPECT_EQ(host_calls::seen().depth, 0);
        EXPECT_EQ(foreign_calls.size(), static_cast<size_t>(k + 1)) << "nothing runs after it";
        if (k > 0) {
            EXPECT_EQ(mesh->mesh->cell_connect[2], mesh->connect[2].data());
        }
    }
}
