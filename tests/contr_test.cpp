#include "band_edges.hpp"

#include "support/arrays.hpp"
#include "support/contour_reference.hpp"
#include "support/fresh_host.hpp"
#include "support/levels.hpp"

#include <skoklana/host/tool.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <string>

namespace {

namespace reference = contour_reference;
using cut_reference::numbers;
using cut_reference::scalar;
using reference::band;

constexpr int band_kinds[] = {CELL_TRI, CELL_QUAD, CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX};

class BandCells : public FreshHost {};
template <typename T> class BandCellsTyped : public BandCells {
};
TYPED_TEST_SUITE(BandCellsTyped, arrays::all_types);

std::vector<int> dims_of(int kind, int n)
{
    return std::vector<int>(static_cast<size_t>(cell_kinds[kind].ndim), n);
}

template <typename T> scalar field_of(const std::vector<T> &data, const T *null_value = nullptr)
{
    return cut_reference::scalar_of(data, levels::code_of<T>(), null_value);
}

qx_long cells_in(const reference::result &of)
{
    return std::accumulate(of.ncells.begin(), of.ncells.end(), qx_long{0});
}

reference::result expect_reference(const meshes::test_mesh &mesh, const scalar &field, const band &of,
                                   const std::string &where)
{
    const reference::result got = reference::run(UTILcontour_cells, mesh.mesh, field, of);
    const reference::result wanted = reference::band_cells(mesh, field, of);
    EXPECT_TRUE(got == wanted) << where << ": " << difference(got, wanted);
    for (const numbers &list : got.conn)
        for (qx_long entry : list) {
            EXPECT_GE(entry, 0) << where;
            EXPECT_LT(entry, got.nold + static_cast<qx_long>(got.min_node.size())) << where;
        }
    return got;
}

// One call as any, with its outputs as they come.
struct raw_band {
    int status = -7;
    qx_long nold = -7, *node_map, nnodes_out = -7, *min_node, *max_node;
    unsigned char *level_list;
    qx_long ncells[6], nconn[6], *conn[6];
    float *coords = nullptr;
    qx_long nlines[2] = {1, 1}, *lines[2];

    static qx_long *nowhere() { return reinterpret_cast<qx_long *>(16); }

    raw_band(mesh_info *mesh, const scalar &field, double low, double high)
        : node_map(nowhere()), min_node(nowhere()), max_node(nowhere()),
          level_list(reinterpret_cast<unsigned char *>(16)), lines{nowhere(), nowhere()}
    {
        std::fill_n(ncells, 6, -7);
        std::fill_n(nconn, 6, -7);
        std::fill_n(conn, 6, nowhere());
        status =
            UTILcontour_cells(mesh, field.data, field.data_type, field.null_flag, field.null_value, low, high,
                              &nold, &node_map, &nnodes_out, &min_node, &max_node, &level_list, ncells, conn,
                              nconn, mesh->nspace, &coords, &nlines[0], &lines[0], &nlines[1], &lines[1]);
    }
    raw_band(const raw_band &) = delete;
    raw_band &operator=(const raw_band &) = delete;
    ~raw_band()
    {
        free(node_map);
        free(coords);
        if (status == 1) {
            free(min_node);
            free(max_node);
            free(level_list);
        }
        for (qx_long *list : conn)
            free(list);
        for (qx_long *list : lines)
            free(list);
    }
    bool new_nodes_untouched() const
    {
        return nnodes_out == -7 && min_node == nowhere() && max_node == nowhere() &&
               level_list == reinterpret_cast<unsigned char *>(16);
    }
};

// ---- against the reference -------------------------------------------------------------------------------

TYPED_TEST(BandCellsTyped, EveryKindAndOrderAgreesWithTheReference)
{
    using T = TypeParam;
    const T null_value = 77, level = 40;
    for (int kind : band_kinds)
        for (int order : {1, 2}) {
            const meshes::mesh_ptr mesh =
                meshes::cells(kind, order, dims_of(kind, cell_kinds[kind].ndim == 3 ? 3 : 8), 1);
            const std::vector<T> data = levels::rough_values<T>(static_cast<uint64_t>(kind * 4 + order),
                                                                mesh->nnodes(), level, null_value);
            for (const band &of : {band{20, 60}, band{40, 70.5, true, false}, band{30.5, 40, false, true},
                                   band{38, 41, false, false}})
                for (bool nulls : {false, true}) {
                    const std::string where = "kind " + std::to_string(kind) + " order " +
                                              std::to_string(order) + " from " + std::to_string(of.low);
                    const auto got =
                        expect_reference(*mesh, field_of(data, nulls ? &null_value : nullptr), of, where);
                    EXPECT_GT(cells_in(got), 10) << where;
                    EXPECT_GT(std::count(got.levels.begin(), got.levels.end(), 0), 5) << where;
                    EXPECT_GT(std::count(got.levels.begin(), got.levels.end(), 1), 5) << where;
                }
        }
}

TEST_F(BandCells, MixedSetsAndTheLinesThatAreLeft)
{
    const struct {
        std::vector<int> kinds, orders;
        bool keeps_lines;
    } meshes_of[] = {{{CELL_HEX, CELL_QUAD, CELL_LINE, CELL_TET, CELL_TRI, CELL_PRISM, CELL_PYR},
                      {1, 1, 1, 2, 2, 1, 1},
                      false},
                     {{CELL_QUAD, CELL_TET, CELL_TRI}, {1, 1, 1}, false},
                     {{CELL_QUAD, CELL_TRI, CELL_LINE, CELL_QUAD}, {1, 1, 2, 2}, true},
                     {{CELL_TRI, CELL_TRI}, {2, 1}, true},
                     {{CELL_LINE, CELL_QUAD}, {1, 1}, false}};
    for (const auto &made : meshes_of) {
        const meshes::mesh_ptr mesh = meshes::mixed(made.kinds, made.orders, 4, 3);
        const std::vector<double> data = levels::rough_values<double>(9, mesh->nnodes(), 40, 77);
        const auto got = expect_reference(*mesh, field_of(data), {25, 55}, "mixed");
        EXPECT_EQ(got.has_lines[0], made.keeps_lines);
        EXPECT_EQ(got.lines[0].size() > 4, made.keeps_lines);
        const auto by_dispatcher = reference::run(UTILcontour, mesh->mesh, field_of(data), {25, 55});
        EXPECT_TRUE(by_dispatcher == got);
    }
}

// Long lists of cells, of lines, and of new nodes, over many blocks.
TEST_F(BandCells, SetsOfManyBlocksAndListsOfManyGrowths)
{
    for (int kind : band_kinds)
        for (int order : {1, 2}) {
            const int n = cell_kinds[kind].ndim == 2 ? 50
                          : kind == CELL_HEX         ? 11
                          : kind == CELL_PRISM       ? 9
                                                     : 7;
            const meshes::mesh_ptr mesh = meshes::cells(kind, order, dims_of(kind, n), 1);
            ASSERT_GT(mesh->mesh->cell_count[0], 1024);
            const std::string where = "kind " + std::to_string(kind) + " order " + std::to_string(order);
            const std::vector<float> noise = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
            const auto pieces = expect_reference(*mesh, field_of(noise), {0.4, 0.7}, where + " noise");
            EXPECT_GT(pieces.min_node.size(), 4000u) << where;
            EXPECT_TRUE(cell_kinds[kind].ndim == 3 || pieces.lines[0].size() > 2u * 2048u) << where;
            const std::vector<float> slope = meshes::field_of<float>(
                *mesh, [](double x, double y, double z) { return x + y / 8 + z / 16; });
            const auto whole = expect_reference(*mesh, field_of(slope), {0.2, 0.9}, where + " slope");
            EXPECT_GT(cells_in(whole), mesh->mesh->cell_count[0] / 2) << where;
        }
}

TEST_F(BandCells, CellsAndNodesInRandomOrder)
{
    for (int kind : {CELL_TET, CELL_HEX}) {
        const meshes::mesh_ptr ordered = meshes::cells(kind, 1, {8, 8, 8}, 1);
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
        const meshes::mesh_ptr mesh = meshes::from_cells(3, ordered->coords, {kind}, {1}, {connect});
        const std::vector<float> data = levels::rough_values<float>(3, mesh->nnodes(), 40, 77);
        expect_reference(*mesh, field_of(data), {35, 60}, "kind " + std::to_string(kind));
    }
}

TEST_F(BandCells, FlatMeshesHaveFlatCoordinates)
{
    for (int nspace : {2, 3}) {
        const meshes::mesh_ptr mesh = meshes::cells(CELL_QUAD, 1, {5, 5}, 1, 0.1, nspace);
        const std::vector<short> data = levels::rough_values<short>(3, mesh->nnodes(), 40, 77);
        const auto got = expect_reference(*mesh, field_of(data), {30, 60}, "nspace");
        EXPECT_EQ(got.coords.size(),
                  (static_cast<size_t>(got.nold) + got.min_node.size()) * static_cast<size_t>(nspace));
    }
}

// ---- levels ----------------------------------------------------------------------------------------------

TEST_F(BandCells, ValuesAtTheLevelsAreInside)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    std::vector<double> data = {2, 5, 2, 5, 5, 2, 5, 2};
    auto got = expect_reference(*mesh, field_of(data), {2, 5}, "at both levels");
    EXPECT_EQ(got.conn[cut_reference::hexes], mesh->connect[0]);
    EXPECT_TRUE(got.min_node.empty());
    for (const band &of : {band{5.5, 7}, band{-3, 1.9}}) {
        got = expect_reference(*mesh, field_of(data), of, "beside");
        EXPECT_EQ(cells_in(got), 0);
        EXPECT_EQ(got.nold, 0);
    }
}

TEST_F(BandCells, AnEdgeThatBothLevelsCrossHasTwoNewNodes)
{
    const meshes::mesh_ptr mesh =
        meshes::from_cells(3, {0, 0, 0, 1, 0, 0, 0, 1, 0}, {CELL_TRI}, {1}, {{0, 1, 2}});
    const std::vector<float> data = {9, 1, 1};
    const auto got = expect_reference(*mesh, field_of(data), {3, 5}, "triangle");
    EXPECT_EQ(got.min_node, (numbers{0, 0, 0, 0}));
    EXPECT_EQ(got.max_node, (numbers{1, 2, 2, 1}));
    EXPECT_EQ(got.levels, (std::vector<unsigned char>{0, 0, 1, 1}));
    EXPECT_EQ(got.nold, 0);
    EXPECT_EQ(got.conn[cut_reference::triangles], (numbers{1, 3, 0, 1, 2, 3}));
    EXPECT_EQ(got.lines[0], (numbers{0, 1}));
    EXPECT_EQ(got.lines[1], (numbers{2, 3}));
}

TEST_F(BandCells, ATetrahedronIsCutOnceOrTwice)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_TET, 1, {1, 1, 1}, 1);
    std::vector<float> data(8, 4.0f);
    data[static_cast<size_t>(mesh->connect[0][0])] = 9;
    auto got = expect_reference(*mesh, field_of(data), {3, 5}, "one corner above");
    EXPECT_TRUE(
        std::all_of(got.levels.begin(), got.levels.end(), [](unsigned char level) { return level == 1; }));
    EXPECT_FALSE(got.levels.empty());
    data[static_cast<size_t>(mesh->connect[0][1])] = 1;
    got = expect_reference(*mesh, field_of(data), {3, 5}, "and one below");
    EXPECT_TRUE(std::any_of(got.max_node.begin(), got.max_node.end(), [&](qx_long node) {
        return node >= mesh->nnodes();
    })) << "an edge to a new node";
}

TEST_F(BandCells, LevelsInTheWrongOrder)
{
    for (int kind : band_kinds) {
        const meshes::mesh_ptr mesh = meshes::cells(kind, 1, dims_of(kind, 4), 1);
        const std::vector<double> data = levels::rough_values<double>(3, mesh->nnodes(), 40, 77);
        const auto got = expect_reference(*mesh, field_of(data), {60, 30}, "kind " + std::to_string(kind));
        EXPECT_EQ(got.nold, 0);
    }
}

// Bounds as elements that are others than the levels.
TEST_F(BandCells, BoundsBeyondTheType)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_TET, 1, {4, 4, 4}, 1);
    const auto bytes = meshes::random_values<unsigned char>(3, mesh->nnodes(), 0, 255);
    EXPECT_EQ(cells_in(expect_reference(*mesh, field_of(bytes), {-10, 100}, "below the range")), 0);
    EXPECT_EQ(cells_in(expect_reference(*mesh, field_of(bytes), {50, 300}, "above the range")), 0);
    expect_reference(*mesh, field_of(bytes), {-300, 300}, "both");
    EXPECT_GT(cells_in(expect_reference(*mesh, field_of(bytes), {0, 255}, "the range")), 100);

    const auto ints = meshes::random_values<int>(3, mesh->nnodes(), -5, 5);
    for (const band &of : {band{2.5, 4}, band{-4, -2.5}, band{-1.5, 1.5}}) {
        const auto got = expect_reference(*mesh, field_of(ints), of, "fractions");
        std::vector<bool> used(static_cast<size_t>(got.nold));
        for (qx_long entry : got.conn[cut_reference::tets])
            if (entry < got.nold) used[static_cast<size_t>(entry)] = true;
        EXPECT_EQ(std::count(used.begin(), used.end(), false) > 0, of.low != -1.5)
            << "nodes that are retained and not used";
    }
    std::vector<qx_long> large;
    for (qx_long i = 0; i < mesh->nnodes(); ++i)
        large.push_back((qx_long{1} << 53) + i % 9);
    const qx_long null_value = (qx_long{1} << 53) + 3;
    for (double above : {0.0, 2.0, 4.0}) {
        const double low = 9007199254740992.0 + above;
        expect_reference(*mesh, field_of(large), {low, low + 2}, "large");
        expect_reference(*mesh, field_of(large, &null_value), {low, low + 2}, "large, with nulls");
    }
    std::vector<float> with_nan = meshes::random_values<float>(3, mesh->nnodes(), 0, 1);
    for (size_t i = 0; i < with_nan.size(); i += 3)
        with_nan[i] = std::nanf("");
    const float nan = std::nanf("");
    expect_reference(*mesh, field_of(with_nan), {0.1, 0.7}, "NaN");
    expect_reference(*mesh, field_of(with_nan, &nan), {0.1, 0.7}, "NaN as null");
    for (double low : {std::nan(""), -HUGE_VAL, HUGE_VAL, -1e300})
        for (double high : {std::nan(""), -HUGE_VAL, HUGE_VAL, 1e300})
            for (const scalar &field : {field_of(with_nan), field_of(ints)})
                expect_reference(*mesh, field, {low, high}, "no numbers");
}

// ---- geometry --------------------------------------------------------------------------------------------

TEST_F(BandCells, BandsOfSimplicesAddUp)
{
    for (int kind : {CELL_TET, CELL_TRI}) {
        const meshes::mesh_ptr mesh = meshes::cells(kind, 1, dims_of(kind, 4), 3);
        const std::vector<double> data = meshes::random_values<double>(8, mesh->nnodes(), 0, 1);
        const size_t n = static_cast<size_t>(cell_kinds[kind].ncorners);
        double sum = 0;
        const double level[] = {-1, 0.2, 0.45, 0.6, 2};
        for (int b = 0; b < 4; ++b) {
            const auto got =
                reference::run(UTILcontour_cells, mesh->mesh, field_of(data), {level[b], level[b + 1]});
            const numbers &list = got.conn[kind == CELL_TET ? cut_reference::tets : cut_reference::triangles];
            for (size_t i = 0; i < list.size(); i += n) {
                double edges[3][3] = {};
                for (size_t c = 1; c < n; ++c)
                    for (size_t d = 0; d < 3; ++d)
                        edges[c - 1][d] =
                            static_cast<double>(got.coords[static_cast<size_t>(list[i + c]) * 3 + d]) -
                            got.coords[static_cast<size_t>(list[i]) * 3 + d];
                const auto cross = [&](size_t d) {
                    const size_t e = (d + 1) % 3, f = (d + 2) % 3;
                    return edges[0][e] * edges[1][f] - edges[0][f] * edges[1][e];
                };
                if (kind == CELL_TET)
                    sum +=
                        std::fabs(cross(0) * edges[2][0] + cross(1) * edges[2][1] + cross(2) * edges[2][2]) /
                        6;
                else
                    sum += std::sqrt(cross(0) * cross(0) + cross(1) * cross(1) + cross(2) * cross(2)) / 2;
            }
        }
        EXPECT_NEAR(sum, 1, 1e-5);
    }
}

// Each line at a level is the side of one triangle more on this side than lines are: together they bound the band.
TEST_F(BandCells, LinesBoundTheBand)
{
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_TRI, CELL_QUAD}, {1, 1}, 6, 1);
    const std::vector<double> data = meshes::random_values<double>(8, mesh->nnodes(), 0, 1);
    const auto got = reference::run(UTILcontour_cells, mesh->mesh, field_of(data), {0.3, 0.6});
    std::map<std::pair<qx_long, qx_long>, int> sides;
    const numbers &triangles = got.conn[cut_reference::triangles];
    for (size_t t = 0; t < triangles.size(); t += 3)
        for (size_t i = 0; i < 3; ++i)
            ++sides[std::minmax(triangles[t + i], triangles[t + (i + 1) % 3])];
    for (const numbers &lines : got.lines) {
        EXPECT_GT(lines.size(), 20u);
        for (size_t l = 0; l < lines.size(); l += 2)
            EXPECT_EQ(sides[std::minmax(lines[l], lines[l + 1])], 1);
    }
}

// ---- sets, lists, data that cannot be had ----------------------------------------------------------------

TEST_F(BandCells, SetsThatTakeNoPart)
{
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_QUAD, CELL_TET, CELL_TRI}, {1, 1, 2}, 3, 1);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    mesh->mesh->cell_funcs[CELL_METHOD_SLOTS + SLOT_CONTOUR] = nullptr;
    const auto wanted = reference::band_cells(*mesh, field_of(data), {0.3, 0.6}, {true, false, true});
    auto got = reference::run(UTILcontour_cells, mesh->mesh, field_of(data), {0.3, 0.6});
    EXPECT_TRUE(got == wanted) << difference(got, wanted);
    EXPECT_EQ(host_calls::seen().depth, 0);
    EXPECT_EQ(host_calls::seen().pushes.size(), 3u);

    host_calls::reset();
    mesh->mesh->cell_funcs[2 * CELL_METHOD_SLOTS + SLOT_TESSELATE] = nullptr;
    got = reference::run(UTILcontour_cells, mesh->mesh, field_of(data), {0.3, 0.6});
    EXPECT_TRUE(got == reference::band_cells(*mesh, field_of(data), {0.3, 0.6}, {true, false, false}));
    EXPECT_EQ(host_calls::seen().depth, 1) << "a range that stays open";
}

TEST_F(BandCells, AMeshOfNothing)
{
    const meshes::mesh_ptr mesh = meshes::from_cells(3, {}, {}, {}, {});
    float none = 0;
    mesh->mesh->coords = &none;
    host_calls::watch watch;
    {
        const raw_band got(mesh->mesh, {&none, DTYPE_FLOAT, 0, nullptr}, 0, 1);
        EXPECT_EQ(got.status, 1);
        EXPECT_EQ(got.nnodes_out, 0);
        EXPECT_EQ(got.coords, nullptr);
        EXPECT_EQ(got.nlines[0], 0);
        EXPECT_EQ(got.lines[1], nullptr);
    }
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST_F(BandCells, AnUnknownTypeFails)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    const std::vector<double> data(8, 0.0);
    for (int type : {-1, 7}) {
        host_calls::reset();
        host_calls::watch watch;
        const raw_band got(mesh->mesh, {data.data(), type, 0, nullptr}, 0, 1);
        EXPECT_EQ(got.status, 0);
        EXPECT_EQ(got.node_map, nullptr);
        EXPECT_TRUE(got.new_nodes_untouched());
        EXPECT_EQ(host_calls::report_texts(),
                  std::vector<std::string>{"UTILnode_thresh2: unknown data type"});
        EXPECT_EQ(watch.live_blocks(), 0);
    }
}

int no_connect(mesh_info *, int, qx_long **)
{
    return 0;
}
int no_coords(mesh_info *, float **)
{
    return 0;
}

TEST_F(BandCells, WhatCannotBeFetched)
{
    for (int order : {1, 2}) {
        host_calls::reset();
        const meshes::mesh_ptr mesh = meshes::mixed({CELL_TRI, CELL_TET}, {1, order}, 2, 1);
        const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
        mesh->mesh->cell_connect[0] = mesh->connect[0].data();
        mesh->mesh->cell_connect[1] = nullptr;
        mesh->mesh->get_connect = no_connect;
        if (mesh->mesh->coords == nullptr) mesh->mesh->coords = mesh->coords.data();
        host_calls::watch watch;
        {
            const raw_band got(mesh->mesh, field_of(data), 0.3, 0.6);
            EXPECT_EQ(got.status, 0);
            EXPECT_EQ(got.node_map, nullptr);
            EXPECT_EQ(got.coords, nullptr);
            EXPECT_TRUE(got.new_nodes_untouched());
            EXPECT_EQ(host_calls::report_texts(),
                      std::vector<std::string>{"fld_info: unable to get cell set connect list"});
            EXPECT_EQ(host_calls::seen().depth, 0);
        }
        host_calls::reset();
        mesh->mesh->coords = nullptr;
        mesh->mesh->get_coords = no_coords;
        {
            const raw_band got(mesh->mesh, field_of(data), 0.3, 0.6);
            EXPECT_EQ(got.status, 0);
            EXPECT_EQ(got.node_map, nullptr);
            EXPECT_EQ(host_calls::report_texts(),
                      std::vector<std::string>{"fld_info: unable to get field coordinates"});
            EXPECT_TRUE(host_calls::seen().pushes.empty());
        }
        EXPECT_EQ(watch.live_blocks(), 0);
    }
}

// ---- status ----------------------------------------------------------------------------------------------

TEST_F(BandCells, StatusIsCheckedEvery257thCellThatALevelCrosses)
{
    // One set without crossings, and one of which every third cell is crossed.
    const meshes::mesh_ptr mesh = meshes::cells(CELL_QUAD, 1, {1500, 1}, 1);
    std::vector<float> data(static_cast<size_t>(mesh->nnodes()), 0.5f);
    reference::run(UTILcontour_cells, mesh->mesh, field_of(data), {0, 1});
    EXPECT_TRUE(host_calls::seen().statuses.empty()) << "whole cells make no status calls";
    std::vector<int> wanted;
    int ncrossed = 0, counter = 0;
    for (size_t cell = 0; cell < 1500; ++cell) {
        const qx_long *row = &mesh->connect[0][4 * cell];
        if (cell % 3 == 0) data[static_cast<size_t>(row[0])] = 3;
    }
    for (size_t cell = 0; cell < 1500; ++cell) {
        int nabove = 0;
        for (size_t c = 0; c < 4; ++c)
            nabove += data[static_cast<size_t>(mesh->connect[0][4 * cell + c])] > 1;
        if (nabove == 0) continue;
        ++ncrossed;
        if (counter == 256) {
            wanted.push_back(static_cast<int>(static_cast<float>(cell) * static_cast<float>(100.0 / 1500)));
            counter = 0;
        } else {
            ++counter;
        }
    }
    host_calls::reset();
    reference::run(UTILcontour_cells, mesh->mesh, field_of(data), {0, 1});
    std::vector<int> percents;
    for (const auto &check : host_calls::seen().statuses)
        percents.push_back(check.percent);
    EXPECT_GT(ncrossed, 600);
    EXPECT_EQ(percents, wanted);
}

TEST_F(BandCells, StoppedAtEachStatusCheck)
{
    const meshes::mesh_ptr mesh =
        meshes::mixed({CELL_TRI, CELL_QUAD, CELL_TRI, CELL_TET, CELL_HEX}, {2, 1, 1, 1, 2}, 6, 1);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    const auto clean = reference::run(UTILcontour_cells, mesh->mesh, field_of(data), {0.3, 0.6});
    const int nchecks = static_cast<int>(host_calls::seen().statuses.size());
    ASSERT_GT(nchecks, 8);
    for (int k = 0; k < nchecks; ++k) {
        host_calls::reset();
        host_calls::interrupt_at(k);
        host_calls::watch watch;
        {
            const raw_band got(mesh->mesh, field_of(data), 0.3, 0.6);
            EXPECT_EQ(got.status, 0) << k;
            EXPECT_EQ(got.node_map, nullptr) << k;
            EXPECT_EQ(got.coords, nullptr) << k;
            EXPECT_TRUE(got.new_nodes_untouched()) << k;
            for (qx_long *list : got.conn)
                EXPECT_EQ(list, nullptr) << k;
            for (qx_long *list : got.lines)
                EXPECT_EQ(list, nullptr) << k;
            EXPECT_TRUE(host_calls::seen().reports.empty()) << k;
            EXPECT_EQ(host_calls::seen().depth, 0) << k;
        }
        EXPECT_EQ(watch.live_blocks(), 0) << k;
    }
    host_calls::reset();
    EXPECT_TRUE(reference::run(UTILcontour_cells, mesh->mesh, field_of(data), {0.3, 0.6}) == clean);
}

// ---- memory, and functions of the host's own -------------------------------------------------------------

contour_cell_func handed_on_to = nullptr;
bool shrugs = false;

int hand_on(mesh_info *mesh, int set, int data_type, const void *data, int null_flag, const void *null_value,
            double low, double high, qx_long nold, const qx_long *node_map, contour_edge_table *table,
            qx_long *ncells, qx_long **conn, qx_long *nconn, qx_long *capacity, qx_long *step, qx_long *nlow,
            qx_long **low_lines, qx_long *nhigh, qx_long **high_lines)
{
    const int result =
        handed_on_to(mesh, set, data_type, data, null_flag, null_value, low, high, nold, node_map, table,
                     ncells, conn, nconn, capacity, step, nlow, low_lines, nhigh, high_lines);
    return shrugs ? 1 : result;
}

void expect_clean_failures(const meshes::test_mesh &mesh, const std::vector<float> &data,
                           std::set<std::string> *texts)
{
    host_calls::reset();
    int nallocations = 0;
    reference::result clean;
    {
        host_calls::watch watch;
        clean = reference::run(UTILcontour_cells, mesh.mesh, field_of(data), {0.3, 0.6});
        nallocations = watch.allocations();
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    EXPECT_EQ(clean.status, 1);
    EXPECT_GT(nallocations, 30);
    for (int k = 0; k < nallocations; ++k) {
        host_calls::reset();
        host_calls::watch watch;
        host_calls::fail_allocation(k);
        {
            const raw_band got(mesh.mesh, field_of(data), 0.3, 0.6);
            ASSERT_TRUE(host_calls::allocation_was_refused()) << k;
            EXPECT_EQ(got.status, 0) << k;
            EXPECT_EQ(got.node_map, nullptr) << k;
            EXPECT_EQ(got.coords, nullptr) << k;
            EXPECT_TRUE(got.new_nodes_untouched()) << k;
            for (const std::string &text : host_calls::report_texts())
                texts->insert(text);
        }
        ASSERT_EQ(watch.live_blocks(), 0) << k;
        EXPECT_EQ(host_calls::seen().depth, 0) << k;
        for (size_t set = 0; set < mesh.kinds.size(); ++set)
            EXPECT_EQ(mesh.mesh->cell_connect[set], mesh.connect[set].data()) << k;
    }
    host_calls::reset();
    EXPECT_TRUE(reference::run(UTILcontour_cells, mesh.mesh, field_of(data), {0.3, 0.6}) == clean);
}

TEST_F(BandCells, EachAllocationRefusedInTurn)
{
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_QUAD, CELL_TRI}, {1, 2}, 24, 1);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    std::set<std::string> texts;
    expect_clean_failures(*mesh, data, &texts);
    const meshes::mesh_ptr solid = meshes::mixed({CELL_TET, CELL_HEX}, {2, 1}, 6, 1);
    expect_clean_failures(*solid, meshes::random_values<float>(5, solid->nnodes(), 0, 1), &texts);
    EXPECT_EQ(texts, (std::set<std::string>{"UTILcontour: alloc for mesh copy failed",
                                            "UTILcontour: tesselation failed"}));
}

TEST_F(BandCells, AFailureInsideAHostsOwnFunctionEndsTheBand)
{
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_HEX, CELL_TET}, {1, 2}, 5, 1);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    for (int set : {0, 1})
        for (bool shrug : {false, true}) {
            shrugs = shrug;
            cell_func *bound = mesh->mesh->cell_funcs + set * CELL_METHOD_SLOTS +
                               (set == 0 ? SLOT_CONTOUR : SLOT_SUB_CONTOUR);
            const cell_func own = *bound;
            handed_on_to = reinterpret_cast<contour_cell_func>(own);
            *bound = reinterpret_cast<cell_func>(hand_on);
            std::set<std::string> texts;
            expect_clean_failures(*mesh, data, &texts);
            host_calls::interrupt_at(0);
            host_calls::watch watch;
            {
                const raw_band got(mesh->mesh, field_of(data), 0.3, 0.6);
                EXPECT_EQ(got.status, 0);
            }
            EXPECT_EQ(watch.live_blocks(), 0);
            *bound = own;
        }
}

// A kernel by itself, with what a driver would have given it; it looks at the nodes on its own.
TEST_F(BandCells, AKernelCalledByItself)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_QUAD, 1, {9, 9}, 1);
    const std::vector<double> data = levels::rough_values<double>(3, mesh->nnodes(), 40, 77);
    const double null_value = 77;
    const auto wanted = reference::band_cells(*mesh, field_of(data, &null_value), {30, 60});
    host_calls::watch watch;
    {
        contour_edge_table *table = contour_edge_create(mesh->nnodes());
        qx_long ncells[6] = {}, *conn[6] = {}, nconn[6] = {}, capacity[6] = {}, step[6] = {};
        qx_long nlines[2] = {1, 0}, *lines[2] = {};
        const auto run = [&](int set) {
            return UTILcontour_quad(mesh->mesh, set, DTYPE_DOUBLE, data.data(), 1, &null_value, 30, 60,
                                    wanted.nold, wanted.node_map.data(), table, ncells, conn, nconn, capacity,
                                    step, &nlines[0], &lines[0], &nlines[1], &lines[1]);
        };
        ASSERT_EQ(run(0), 1);
        EXPECT_EQ(numbers(table->min_list, table->min_list + table->nedges), wanted.min_node);
        EXPECT_EQ(std::vector<unsigned char>(table->level_list, table->level_list + table->nedges),
                  wanted.levels);
        EXPECT_EQ(table->nlow + table->nhigh, table->nedges);
        for (size_t list = 0; list < 6; ++list)
            EXPECT_EQ(numbers(conn[list], conn[list] + nconn[list]), wanted.conn[list]);
        EXPECT_EQ(numbers(lines[0], lines[0] + 2 * nlines[0]), wanted.lines[0]);
        EXPECT_EQ(lines[1], nullptr) << "not asked for";
        EXPECT_EQ(nlines[1], 0);
        // A second call goes on with the same new nodes and lists.
        const qx_long once = nlines[0];
        ASSERT_EQ(run(0), 1);
        EXPECT_EQ(nlines[0], 2 * once);
        EXPECT_EQ(table->nedges, static_cast<int>(wanted.min_node.size()));
        EXPECT_EQ(ncells[5], 2 * wanted.ncells[5]);
        contour_edge_delete(table);
        for (qx_long *list : conn)
            free(list);
        free(lines[0]);
    }
    EXPECT_EQ(watch.live_blocks(), 0);
}

// ---- the table -------------------------------------------------------------------------------------------

TEST(BandEdges, AnEdgeHasANumberForEachLevel)
{
    contour_edge_table *table = contour_edge_create(10);
    EXPECT_EQ(table->max_edges, 1000);
    EXPECT_EQ(find_or_add_edge_at(table, 3, 7, 0), 0);
    EXPECT_EQ(find_or_add_edge_at(table, 7, 3, 1), 1);
    EXPECT_EQ(find_or_add_edge_at(table, 7, 3, 0), 0);
    EXPECT_EQ(find_or_add_edge_at(table, 3, 7, 1), 1);
    EXPECT_EQ(find_or_add_edge_at(table, 3, 20, 1), 2);
    EXPECT_EQ(table->nlow, 1);
    EXPECT_EQ(table->nhigh, 2);
    contour_edge_delete(table);
    contour_edge_delete(nullptr);
}

TEST(BandEdges, GrowsByAThousandWithTheEdgeThatLeavesOneEntry)
{
    contour_edge_table *table = contour_edge_create(50000);
    for (int e = 0; e < 40000; ++e) {
        ASSERT_EQ(find_or_add_edge_at(table, e, 49999, static_cast<unsigned char>(e % 2)), e);
        ASSERT_EQ(table->max_edges, ((e + 2) / 1000 + 1) * 1000) << e;
        ASSERT_EQ(table->grow, 1000);
    }
    for (int e = 0; e < 40000; ++e) {
        ASSERT_EQ(find_or_add_edge_at(table, 49999, e, static_cast<unsigned char>(e % 2)), e);
        ASSERT_EQ(table->min_list[e], e);
        ASSERT_EQ(table->level_list[e], e % 2);
    }
    contour_edge_delete(table);
}

TEST(BandEdges, WithoutMemory)
{
    host_calls::watch watch;
    for (int k = 0; k < 6; ++k) {
        host_calls::fail_allocation(k);
        EXPECT_EQ(contour_edge_create(10), nullptr);
        EXPECT_TRUE(host_calls::allocation_was_refused());
    }
    for (int k = 0; k < 4; ++k) {
        contour_edge_table *table = contour_edge_create(2000);
        for (int e = 0; e < 998; ++e)
            find_or_add_edge_at(table, e, 1999, 0);
        host_calls::fail_allocation(k);
        EXPECT_EQ(find_or_add_edge_at(table, 1500, 1999, 0), -1);
        EXPECT_EQ(table->nedges, 998);
        EXPECT_EQ(table->max_edges, 1000);
        EXPECT_EQ(find_or_add_edge_at(table, 1500, 1999, 0), 998) << "it can be used on";
        contour_edge_delete(table);
    }
    EXPECT_EQ(watch.live_blocks(), 0);
}

} // namespace
