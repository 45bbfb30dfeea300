#include "support/arrays.hpp"
#include "support/cut_reference.hpp"
#include "support/fresh_host.hpp"
#include "support/levels.hpp"

#include <skoklana/cut.h>
#include <skoklana/host/tool.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <set>
#include <string>

namespace {

namespace reference = cut_reference;
using numbers = cut_reference::numbers;

constexpr int all_kinds[] = {CELL_LINE, CELL_TRI, CELL_QUAD, CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX};
constexpr cut_cell_func kernels[CELL_KINDS] = {UTILcut_line, UTILcut_tri,   UTILcut_quad, UTILcut_tet,
                                               UTILcut_pyr,  UTILcut_prism, UTILcut_hex};

class CutCells : public FreshHost {};
template <typename T> class CutCellsTyped : public CutCells {
};
TYPED_TEST_SUITE(CutCellsTyped, arrays::all_types);

std::vector<int> dims_of(int kind, int n)
{
    return std::vector<int>(static_cast<size_t>(cell_kinds[kind].ndim), n);
}

// One call as any, with its outputs as they come.
struct raw_cut {
    int status = -7;
    qx_long nold = -7, *node_map, nnodes_out = -7, *min_node, *max_node;
    qx_long ncells[7], nconn[7], *conn[7];
    numbers map_count;
    std::vector<qx_long *> maps;

    static qx_long *nowhere() { return reinterpret_cast<qx_long *>(16); }

    raw_cut(mesh_info *mesh, const reference::scalar &field, double level, int side, bool with_maps = true)
        : node_map(nowhere()), min_node(nowhere()), max_node(nowhere()),
          map_count(with_maps ? static_cast<size_t>(mesh->ncell_sets) * 7 + 1 : 0, -7), maps(map_count.size())
    {
        std::fill_n(ncells, 7, -7);
        std::fill_n(nconn, 7, -7);
        std::fill_n(conn, 7, nowhere());
        status = UTILcut_cells(mesh, field.data, field.data_type, field.null_flag, field.null_value, level,
                               side, &nold, &node_map, &nnodes_out, &min_node, &max_node, ncells, conn, nconn,
                               with_maps ? map_count.data() : nullptr, with_maps ? maps.data() : nullptr);
    }
    raw_cut(const raw_cut &) = delete;
    raw_cut &operator=(const raw_cut &) = delete;
    ~raw_cut()
    {
        free(node_map);
        if (status == 1) free(min_node);
        if (status == 1) free(max_node);
        for (qx_long *list : conn)
            free(list);
        for (qx_long *list : maps)
            free(list);
    }

    bool new_nodes_untouched() const
    {
        return nnodes_out == -7 && min_node == nowhere() && max_node == nowhere();
    }
};

// Both sides of a cut against the reference; gives the high side.
reference::result expect_reference(const meshes::test_mesh &mesh, const reference::scalar &field,
                                   double level, const std::string &where, bool with_maps = true)
{
    reference::result high;
    for (int side : {-1, 0}) {
        const reference::result got =
            reference::run(UTILcut_cells, mesh.mesh, field, level, side, with_maps ? mesh.kinds.size() : 0);
        const reference::result wanted = reference::cut_cells(mesh, field, level, side, with_maps);
        EXPECT_TRUE(got == wanted) << where << " side " << side << ": " << difference(got, wanted);
        high = got;
    }
    return high;
}

qx_long cells_in(const reference::result &of)
{
    return std::accumulate(of.ncells.begin(), of.ncells.end(), qx_long{0});
}

template <typename T> reference::scalar field_of(const std::vector<T> &data, const T *null_value = nullptr)
{
    return reference::scalar_of(data, levels::code_of<T>(), null_value);
}

// ---- against the reference -------------------------------------------------------------------------------

TYPED_TEST(CutCellsTyped, EveryKindAndOrderAgreesWithTheReference)
{
    using T = TypeParam;
    const T null_value = 77, level = 40;
    for (int kind : all_kinds)
        for (int order : {1, 2}) {
            const int ndim = cell_kinds[kind].ndim;
            const meshes::mesh_ptr mesh = meshes::cells(kind, order,
                                                        dims_of(kind, ndim == 3   ? 3
                                                                      : ndim == 2 ? 8
                                                                                  : 60),
                                                        1);
            const std::vector<T> data = levels::rough_values<T>(static_cast<uint64_t>(kind * 4 + order),
                                                                mesh->nnodes(), level, null_value);
            const std::string where = "kind " + std::to_string(kind) + " order " + std::to_string(order);
            for (double at : {40.0, 39.5, 40.1})
                for (bool nulls : {false, true})
                    for (bool with_maps : {false, true}) {
                        const auto got = expect_reference(
                            *mesh, field_of(data, nulls ? &null_value : nullptr), at, where, with_maps);
                        EXPECT_GT(cells_in(got), 10) << where;
                        EXPECT_GT(got.min_node.size(), 10u) << where;
                    }
        }
}

TYPED_TEST(CutCellsTyped, MixedSetsShareOneSequenceOfNodes)
{
    using T = TypeParam;
    const T null_value = 77, level = 40;
    const std::vector<int> kinds = {CELL_HEX,  CELL_QUAD, CELL_LINE, CELL_TET, CELL_TRI, CELL_PRISM,
                                    CELL_QUAD, CELL_PYR,  CELL_HEX,  CELL_TRI, CELL_LINE};
    const std::vector<int> orders = {1, 1, 1, 1, 2, 2, 2, 1, 2, 1, 2};
    const meshes::mesh_ptr mesh = meshes::mixed(kinds, orders, 3, 3);
    const std::vector<T> data = levels::rough_values<T>(9, mesh->nnodes(), level, null_value);
    for (bool nulls : {false, true}) {
        const auto got = expect_reference(*mesh, field_of(data, nulls ? &null_value : nullptr), 40, "mixed");
        for (qx_long ncells : got.ncells)
            EXPECT_GE(ncells, 0);
        EXPECT_GT(got.ncells[reference::tets], 100);
        EXPECT_GT(got.ncells[reference::triangles], 20);
        EXPECT_GT(got.ncells[reference::lines], 2);
    }
}

// Long lists, mostly of whole cells and mostly of pieces.
TEST_F(CutCells, SetsOfManyBlocksAndListsOfManyGrowths)
{
    for (int kind : all_kinds)
        for (int order : {1, 2}) {
            const int ndim = cell_kinds[kind].ndim;
            const int n = ndim == 1            ? 6000
                          : ndim == 2          ? 60
                          : kind == CELL_HEX   ? 13
                          : kind == CELL_PRISM ? 10
                                               : 9;
            const meshes::mesh_ptr mesh = meshes::cells(kind, order, dims_of(kind, n), 1);
            ASSERT_GT(mesh->mesh->cell_count[0], 1024);
            const std::string where = "kind " + std::to_string(kind) + " order " + std::to_string(order);
            const std::vector<float> noise = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
            const auto pieces = expect_reference(*mesh, field_of(noise), 0.5, where + " noise");
            EXPECT_GT(pieces.min_node.size(), 2000u) << where;
            const std::vector<float> slope = meshes::field_of<float>(
                *mesh, [](double x, double y, double z) { return x + y / 8 + z / 16; });
            const auto whole = expect_reference(*mesh, field_of(slope), 0.3, where + " slope");
            EXPECT_GT(cells_in(whole), mesh->mesh->cell_count[0] / 2) << where;
        }
}

TEST_F(CutCells, CellsAndNodesInRandomOrder)
{
    for (int kind : {CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX}) {
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
        const float null_value = 77;
        for (bool nulls : {false, true})
            expect_reference(*mesh, field_of(data, nulls ? &null_value : nullptr), 40,
                             "kind " + std::to_string(kind));
    }
}

TEST_F(CutCells, TheSameCallTwiceGivesTheSame)
{
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_HEX, CELL_TET, CELL_QUAD}, {1, 2, 1}, 5, 3);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    const auto once = reference::run(UTILcut_cells, mesh->mesh, field_of(data), 0.5, 0, 3);
    EXPECT_TRUE(once == reference::run(UTILcut_cells, mesh->mesh, field_of(data), 0.5, 0, 3));
    EXPECT_TRUE(once == reference::run(UTILcut, mesh->mesh, field_of(data), 0.5, 1000, 3))
        << "by the dispatcher";
}

// ---- sides and levels ------------------------------------------------------------------------------------

TEST_F(CutCells, CornersAtTheLevelAreOnTheHighSide)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    std::vector<double> data(8, 3.0);
    for (int side : {0, 1, 7}) {
        const auto got = reference::run(UTILcut_cells, mesh->mesh, field_of(data), 3, side, 1);
        EXPECT_EQ(got.ncells[reference::hexes], 1);
        EXPECT_EQ(got.conn[reference::hexes], mesh->connect[0]);
        EXPECT_EQ(got.nold, 8);
        EXPECT_TRUE(got.min_node.empty());
    }
    // On the low side they are retained, and nothing refers to them.
    auto got = reference::run(UTILcut_cells, mesh->mesh, field_of(data), 3, -1, 1);
    EXPECT_EQ(got.nold, 8);
    EXPECT_EQ(cells_in(got), 0);
    data[2] = 1;
    got = reference::run(UTILcut_cells, mesh->mesh, field_of(data), 3, -1, 1);
    EXPECT_EQ(got.nold, 8);
    EXPECT_EQ(got.ncells[reference::tets], 1);
    EXPECT_EQ(got.min_node.size(), 3u);
    for (qx_long entry : got.conn[reference::tets])
        EXPECT_TRUE(entry == got.node_map[2] || entry >= 8);
}

TEST_F(CutCells, AHexWithOneKeptCornerIsATetrahedron)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    std::vector<int> data(8, 0);
    data[5] = 9;
    const auto got = reference::run(UTILcut_cells, mesh->mesh, field_of(data), 4, 0, 1);
    EXPECT_EQ(got.nold, 1);
    EXPECT_EQ(got.min_node.size(), 3u);
    EXPECT_EQ(cells_in(got), 1);
    numbers entries = got.conn[reference::tets];
    std::sort(entries.begin(), entries.end());
    EXPECT_EQ(entries, (numbers{0, 1, 2, 3}));
}

TEST_F(CutCells, AllNodesOrNone)
{
    const std::vector<int> kinds = {CELL_LINE, CELL_TRI, CELL_QUAD, CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX};
    const meshes::mesh_ptr mesh = meshes::mixed(kinds, std::vector<int>(7, 1), 3, 1);
    const std::vector<float> data(static_cast<size_t>(mesh->nnodes()), 2.0f);
    const auto all = reference::run(UTILcut_cells, mesh->mesh, field_of(data), 1, 0, 7);
    EXPECT_EQ(all.nold, mesh->nnodes());
    EXPECT_TRUE(all.min_node.empty());
    for (size_t set = 0; set < kinds.size(); ++set)
        EXPECT_EQ(all.conn[reference::whole_list(kinds[set])], mesh->connect[set]);

    host_calls::watch watch;
    {
        const raw_cut none(mesh->mesh, field_of(data), 1, -1);
        EXPECT_EQ(none.status, 1);
        EXPECT_EQ(none.nold, 0);
        EXPECT_EQ(none.nnodes_out, 0);
        EXPECT_NE(none.min_node, nullptr);
        for (int list = 0; list < 7; ++list) {
            EXPECT_EQ(none.ncells[list], 0);
            EXPECT_EQ(none.nconn[list], 0);
            EXPECT_EQ(none.conn[list], nullptr);
        }
        for (size_t l = 0; l < 49; ++l) {
            EXPECT_EQ(none.map_count[l], 0);
            ASSERT_NE(none.maps[l], nullptr);
            none.maps[l][1023] = 0; // there is room for 1024 entries
        }
        EXPECT_EQ(none.map_count[49], -7);
    }
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST_F(CutCells, ANullCornerRemovesACellWhateverItsCase)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {2, 1, 1}, 1);
    std::vector<short> data(12, 5);
    const short null_value = 9;
    for (size_t corner = 0; corner < 12; ++corner) {
        data[corner] = null_value;
        const auto got = expect_reference(*mesh, field_of(data, &null_value), 2, "null");
        const bool shared = std::count(mesh->connect[0].begin(), mesh->connect[0].end(), corner) == 2;
        EXPECT_EQ(got.ncells[reference::hexes], shared ? 0 : 1);
        EXPECT_EQ(got.nold, 11);
        data[corner] = 5;
    }
}

// No entry is ever -1: nodes that the two tests tell apart count as not kept.
TEST_F(CutCells, NodesThatTheTestsTellApartAreNotKept)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_TET, 1, {4, 4, 4}, 1);
    std::vector<float> rounded = meshes::random_values<float>(3, mesh->nnodes(), 0, 1);
    for (size_t i = 0; i < rounded.size(); i += 3)
        rounded[i] = 0.7f;
    ASSERT_LT(static_cast<double>(0.7f), 0.7);
    ASSERT_GT(static_cast<double>(0.1f), 0.1);
    const auto expect_numbered = [&](const reference::scalar &field, double level) {
        const auto got = expect_reference(*mesh, field, level, "level " + std::to_string(level));
        for (int side : {-1, 0}) {
            const auto cut = reference::run(UTILcut_cells, mesh->mesh, field, level, side, 0);
            for (const numbers &list : cut.conn)
                for (qx_long entry : list) {
                    EXPECT_GE(entry, 0);
                    EXPECT_LT(entry, cut.nold + static_cast<qx_long>(cut.min_node.size()));
                }
        }
        return cells_in(got);
    };
    EXPECT_GT(expect_numbered(field_of(rounded), 0.7), 0);
    std::replace(rounded.begin(), rounded.end(), 0.7f, 0.1f);
    EXPECT_GT(expect_numbered(field_of(rounded), 0.1), 0);

    std::vector<double> with_nan = meshes::random_values<double>(3, mesh->nnodes(), 0, 1);
    for (size_t i = 0; i < with_nan.size(); i += 5)
        with_nan[i] = std::nan("");
    EXPECT_GT(expect_numbered(field_of(with_nan), 0.5), 0);
    const std::vector<float> floats_with_nan(with_nan.begin(), with_nan.end());
    EXPECT_GT(expect_numbered(field_of(floats_with_nan), 0.5), 0);

    std::vector<qx_long> large;
    for (qx_long i = 0; i < mesh->nnodes(); ++i)
        large.push_back((qx_long{1} << 53) + i % 9);
    for (int above : {2, 3, 4, 5, 6})
        expect_numbered(field_of(large), 9007199254740992.0 + above);

    const std::vector<int> whole = meshes::random_values<int>(3, mesh->nnodes(), -5, 5);
    const double infinity = std::numeric_limits<double>::infinity();
    for (double level : {std::nan(""), infinity, -infinity, 1e300, -1e300})
        for (const auto &field :
             {field_of(whole), field_of(with_nan), field_of(floats_with_nan), field_of(large)})
            expect_numbered(field, level);
}

// ---- geometry --------------------------------------------------------------------------------------------

// The size of pieces and whole simplices: both sides of a level together are the mesh.
TEST_F(CutCells, BothSidesOfSimplicesAreTheMesh)
{
    for (const auto &[kind, order] :
         {std::pair{CELL_TET, 1}, {CELL_TET, 2}, {CELL_TRI, 1}, {CELL_TRI, 2}, {CELL_LINE, 1}}) {
        const meshes::mesh_ptr mesh = meshes::cells(kind, order, dims_of(kind, 4), 3);
        const std::vector<double> data = meshes::random_values<double>(8, mesh->nnodes(), 0, 1);
        const double level = 0.5;
        double sum = 0;
        const size_t n = static_cast<size_t>(cell_kinds[kind].ncorners);
        for (int side : {-1, 0}) {
            const auto cut = reference::run(UTILcut_cells, mesh->mesh, field_of(data), level, side, 0);
            std::vector<std::array<double, 3>> at;
            for (qx_long node : cut.old_nodes)
                at.push_back(
                    {meshes::at(*mesh, node, 0), meshes::at(*mesh, node, 1), meshes::at(*mesh, node, 2)});
            for (size_t e = 0; e < cut.min_node.size(); ++e) {
                const qx_long a = cut.min_node[e], b = cut.max_node[e];
                const double va = data[static_cast<size_t>(a)],
                             t = (level - va) / (data[static_cast<size_t>(b)] - va);
                at.emplace_back();
                for (int d = 0; d < 3; ++d)
                    at.back()[static_cast<size_t>(d)] =
                        meshes::at(*mesh, a, d) + t * (meshes::at(*mesh, b, d) - meshes::at(*mesh, a, d));
            }
            for (size_t list : {reference::tets, reference::triangles, reference::lines})
                for (size_t i = 0; i + n <= cut.conn[list].size(); i += n) {
                    double edges[3][3] = {};
                    for (size_t c = 1; c < n; ++c)
                        for (size_t d = 0; d < 3; ++d)
                            edges[c - 1][d] = at[static_cast<size_t>(cut.conn[list][i + c])][d] -
                                              at[static_cast<size_t>(cut.conn[list][i])][d];
                    const auto cross = [&](size_t d) {
                        const size_t e = (d + 1) % 3, f = (d + 2) % 3;
                        return edges[0][e] * edges[1][f] - edges[0][f] * edges[1][e];
                    };
                    if (n == 4)
                        sum += std::fabs(cross(0) * edges[2][0] + cross(1) * edges[2][1] +
                                         cross(2) * edges[2][2]) /
                               6;
                    else if (n == 3)
                        sum += std::sqrt(cross(0) * cross(0) + cross(1) * cross(1) + cross(2) * cross(2)) / 2;
                    else
                        sum += std::sqrt(edges[0][0] * edges[0][0] + edges[0][1] * edges[0][1] +
                                         edges[0][2] * edges[0][2]);
                }
        }
        EXPECT_NEAR(sum, 1, 1e-5) << "kind " << kind << " order " << order;
    }
}

TEST_F(CutCells, NewNodesAreThoseOfTheLevelSurface)
{
    for (int kind : {CELL_TRI, CELL_QUAD, CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX})
        for (int order : {1, 2}) {
            const meshes::mesh_ptr mesh = levels::bind(meshes::cells(kind, order, dims_of(kind, 4), 1));
            const std::vector<double> data = levels::rough_values<double>(2, mesh->nnodes(), 40, 77);
            const auto surface = levels::run({mesh->mesh, data.data(), DTYPE_DOUBLE, 0, nullptr, 40.5});
            const std::set<std::pair<qx_long, qx_long>> of_surface(surface.nodes.begin(),
                                                                   surface.nodes.end());
            const auto cut = reference::run(UTILcut_cells, mesh->mesh, field_of(data), 40.5, 0, 0);
            std::set<std::pair<qx_long, qx_long>> of_cut;
            for (size_t e = 0; e < cut.min_node.size(); ++e)
                of_cut.insert({cut.min_node[e], cut.max_node[e]});
            EXPECT_GT(of_cut.size(), 12u);
            EXPECT_EQ(of_cut.size(), cut.min_node.size());
            EXPECT_TRUE(of_cut == of_surface) << "kind " << kind << " order " << order;
        }
}

// ---- sets that take no part ------------------------------------------------------------------------------

TEST_F(CutCells, ASetWithoutAFunctionIsPassedOver)
{
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_HEX, CELL_TET, CELL_QUAD}, {1, 1, 2}, 2, 1);
    mesh->mesh->cell_funcs[CELL_METHOD_SLOTS + SLOT_CUT] = nullptr;
    mesh->mesh->cell_funcs[CELL_METHOD_SLOTS + SLOT_SUB_CUT] = nullptr;
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    const raw_cut got(mesh->mesh, field_of(data), 0.5, 0);
    EXPECT_EQ(got.status, 1);
    for (size_t l = 7; l < 14; ++l) {
        EXPECT_EQ(got.map_count[l], 0);
        EXPECT_EQ(got.maps[l], nullptr);
    }
    EXPECT_EQ(host_calls::seen().depth, 0);
    EXPECT_EQ(host_calls::seen().pushes.size(), 3u) << "two sets and a block";
    EXPECT_EQ(host_calls::seen().pushes[0].high, 33);
    EXPECT_EQ(host_calls::seen().pushes[1].low, 66);
    const auto wanted = reference::cut_cells(*mesh, field_of(data), 0.5, 0, true, {true, false, true});
    EXPECT_TRUE(reference::run(UTILcut_cells, mesh->mesh, field_of(data), 0.5, 0, 3) == wanted);

    const raw_cut without(mesh->mesh, field_of(data), 0.5, 0, false);
    EXPECT_EQ(without.status, 1);
}

TEST_F(CutCells, ASetWithoutATesselatorLeavesItsRangeOpen)
{
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_HEX, CELL_TET}, {2, 1}, 2, 1);
    mesh->mesh->cell_funcs[SLOT_TESSELATE] = nullptr;
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    const raw_cut got(mesh->mesh, field_of(data), 0.5, 0);
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(host_calls::seen().depth, 1);
    for (size_t l = 0; l < 7; ++l) {
        EXPECT_EQ(got.map_count[l], 0);
        EXPECT_NE(got.maps[l], nullptr);
    }
    EXPECT_GT(got.map_count[7], 0);
    const auto wanted = reference::cut_cells(*mesh, field_of(data), 0.5, 0, true, {false, true});
    EXPECT_TRUE(reference::run(UTILcut_cells, mesh->mesh, field_of(data), 0.5, 0, 2) == wanted);
}

TEST_F(CutCells, AMeshOfNothing)
{
    const meshes::mesh_ptr mesh = meshes::from_cells(3, {}, {}, {}, {});
    const float none = 0;
    host_calls::watch watch;
    {
        const raw_cut got(mesh->mesh, {&none, DTYPE_FLOAT, 0, nullptr}, 0.5, 0);
        EXPECT_EQ(got.status, 1);
        EXPECT_EQ(got.nold, 0);
        EXPECT_EQ(got.nnodes_out, 0);
        for (int list = 0; list < 7; ++list)
            EXPECT_EQ(got.conn[list], nullptr);
    }
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST_F(CutCells, AnUnknownTypeFails)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    const std::vector<double> data(8, 0.0);
    for (int type : {-1, 7})
        for (int side : {-1, 0}) {
            host_calls::reset();
            host_calls::watch watch;
            const raw_cut got(mesh->mesh, {data.data(), type, 0, nullptr}, 0.5, side);
            EXPECT_EQ(got.status, 0);
            EXPECT_EQ(got.node_map, nullptr);
            EXPECT_TRUE(got.new_nodes_untouched());
            EXPECT_EQ(host_calls::report_texts(),
                      std::vector<std::string>{"UTILnode_thresh: unknown data type"});
            EXPECT_EQ(watch.live_blocks(), 0);
        }
}

// ---- connect lists from the host -------------------------------------------------------------------------

qx_long *list_to_fetch = nullptr;
int fetches = 0;

int fetch(mesh_info *, int, qx_long **connect)
{
    ++fetches;
    if (list_to_fetch == nullptr) return 0;
    *connect = list_to_fetch;
    return 1;
}

const std::vector<std::string> no_list = {"fld_info: unable to get cell set connect list"};

TEST_F(CutCells, AConnectListThatCannotBeHad)
{
    for (int order : {1, 2}) {
        host_calls::reset();
        const meshes::mesh_ptr mesh = meshes::mixed({CELL_HEX, CELL_TET}, {1, order}, 2, 1);
        const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
        qx_long **const fetched = mesh->mesh->cell_connect;
        fetched[0] = mesh->connect[0].data();
        fetched[1] = nullptr;
        mesh->mesh->get_connect = fetch;
        list_to_fetch = nullptr;
        fetches = 0;
        host_calls::watch watch;
        {
            const raw_cut got(mesh->mesh, field_of(data), 0.5, 0);
            EXPECT_EQ(got.status, 0);
            EXPECT_EQ(got.node_map != nullptr, order == 2)
                << "the map stays with the caller in one case alone";
            EXPECT_TRUE(got.new_nodes_untouched());
            EXPECT_GT(got.map_count[0], 0) << "maps of the set before are the caller's";
            EXPECT_EQ(host_calls::report_texts(), no_list);
            EXPECT_EQ(host_calls::seen().depth, 0);
            EXPECT_EQ(fetches, 1);
        }
        EXPECT_EQ(watch.live_blocks(), 0);
        list_to_fetch = mesh->connect[1].data();
        expect_reference(*mesh, field_of(data), 0.5, "the next call");
        EXPECT_EQ(fetched[1], list_to_fetch);
        EXPECT_EQ(fetches, 2);
    }
}

// ---- kernels ---------------------------------------------------------------------------------------------

// A kernel's call over one set made by hand, with all that it appends to.
struct kernel_call {
    levels::bare_set set;
    cut_cell_func kernel;
    std::vector<qx_long> node_map;
    qx_long nold = 0;
    edge_table *table;
    unsigned char *flags;
    qx_long ncells[7] = {}, *conn[7] = {}, nconn[7] = {}, capacity[7] = {}, step[7] = {};
    std::vector<qx_long> map_count = std::vector<qx_long>(7, 0);
    std::vector<qx_long *> maps = std::vector<qx_long *>(7, nullptr);
    bool owned = true; // table and flags are still ours

    kernel_call(int kind, const std::vector<qx_long> &cells, const std::vector<unsigned char> &node_flags,
                int side = 0)
        : set(cell_kinds[kind].ncorners, cell_kinds[kind].ndim, cells), kernel(kernels[kind]),
          table(UTILedge_table_create(static_cast<qx_long>(node_flags.size()))),
          flags(static_cast<unsigned char *>(malloc(node_flags.size() + 1)))
    {
        std::copy(node_flags.begin(), node_flags.end(), flags);
        for (unsigned char flag : node_flags)
            node_map.push_back(flag == (side < 0 ? 0 : 1) ? nold++ : -1);
    }
    kernel_call(const kernel_call &) = delete;
    kernel_call &operator=(const kernel_call &) = delete;
    ~kernel_call()
    {
        if (owned) UTILedge_table_delete(table);
        if (owned) free(flags);
        for (qx_long *list : conn)
            free(list);
        for (qx_long *list : maps)
            free(list);
    }
    void want_maps()
    {
        for (qx_long *&list : maps)
            list = static_cast<qx_long *>(ARRalloc_f(nullptr, DTYPE_QX_LONG, 1024, 0, "test", 0));
    }
    int run(int null_flag = 0, int side = 0)
    {
        return kernel(&set.mesh, 0, null_flag, flags, side, nold, node_map.data(), table, ncells, conn, nconn,
                      capacity, step, maps[0] != nullptr ? map_count.data() : nullptr,
                      maps[0] != nullptr ? maps.data() : nullptr);
    }
};

std::vector<qx_long> corners_of(int kind)
{
    std::vector<qx_long> corners(static_cast<size_t>(cell_kinds[kind].ncorners));
    std::iota(corners.begin(), corners.end(), 0);
    return corners;
}

TEST_F(CutCells, EveryCaseOfASingleCell)
{
    for (int kind : all_kinds)
        for (int mask = 0; mask < 1 << cell_kinds[kind].ncorners; ++mask)
            for (int side : {0, -1}) {
                // Node numbers that don't rise with the corners, so that pairs need ordering.
                std::vector<qx_long> nodes;
                std::vector<unsigned char> flags(11, side < 0 ? 1 : 0);
                for (int c = 0; c < cell_kinds[kind].ncorners; ++c) {
                    nodes.push_back((5 * c + 3) % 11);
                    if ((mask >> c & 1) != 0) flags[static_cast<size_t>(nodes.back())] = side < 0 ? 0 : 1;
                }
                kernel_call call(kind, nodes, flags, side);
                ASSERT_EQ(call.run(0, side), 1);
                const auto row = reference::row_of(kind, mask);
                numbers entries;
                if (mask == (1 << cell_kinds[kind].ncorners) - 1) {
                    for (qx_long node : nodes)
                        entries.push_back(call.node_map[static_cast<size_t>(node)]);
                    const size_t list = reference::whole_list(kind);
                    EXPECT_EQ(numbers(call.conn[list], call.conn[list] + call.nconn[list]), entries);
                    EXPECT_EQ(call.table->nedges, 0);
                    continue;
                }
                for (const auto &piece : row.pieces)
                    for (const auto &local : piece)
                        entries.push_back(local.is_new ? call.nold + local.number
                                                       : call.node_map[static_cast<size_t>(
                                                             nodes[static_cast<size_t>(local.number)])]);
                const size_t list = static_cast<size_t>(row.piece_list);
                ASSERT_EQ(call.nconn[list], static_cast<qx_long>(entries.size())) << kind << " " << mask;
                EXPECT_EQ(numbers(call.conn[list], call.conn[list] + call.nconn[list]), entries);
                ASSERT_EQ(call.table->nedges, static_cast<int>(row.points.size()));
                for (size_t p = 0; p < row.points.size(); ++p) {
                    const qx_long a = nodes[static_cast<size_t>(row.points[p].first)];
                    const qx_long b = nodes[static_cast<size_t>(row.points[p].second)];
                    EXPECT_EQ(call.table->min_list[p], std::min(a, b));
                    EXPECT_EQ(call.table->max_list[p], std::max(a, b));
                }
            }
}

// What a list has room for, and its next step, after cells of n nodes one by one.
std::pair<qx_long, qx_long> grown(qx_long ncells, qx_long n)
{
    qx_long capacity = 1024, step = 1024;
    for (qx_long used = 0; ncells > 0; --ncells, used += n)
        if (used > capacity - 10) {
            capacity += step;
            step = step * 3 / 2;
        }
    return {capacity, step};
}

TEST_F(CutCells, ListsGrowBeforeACellThatLeavesLessThanTenEntries)
{
    for (int kind : all_kinds) {
        const qx_long n = cell_kinds[kind].ncorners;
        const size_t list = reference::whole_list(kind);
        const std::vector<unsigned char> flags(8, 1);
        const qx_long last = (1024 - 10) / n; // the cell whose test is the last to be passed
        for (qx_long ncells : {last, last + 1, last + 2, qx_long{300}, qx_long{1000}, qx_long{5000}}) {
            kernel_call call(kind, levels::repeated(corners_of(kind), ncells), flags);
            call.want_maps();
            ASSERT_EQ(call.run(), 1);
            EXPECT_EQ(call.ncells[list], ncells);
            EXPECT_EQ(call.nconn[list], n * ncells);
            const auto [capacity, step] = grown(ncells, n);
            EXPECT_EQ(call.capacity[list], capacity) << "kind " << kind << " cells " << ncells;
            EXPECT_EQ(call.step[list], step);
            EXPECT_EQ(call.map_count[list], ncells);
            for (qx_long c = 0; c < ncells; ++c)
                ASSERT_EQ(call.maps[list][c], c);
            for (size_t other = 0; other < 7; ++other)
                EXPECT_EQ(call.capacity[other], other == list ? capacity : 1024);
        }
    }
}

TEST_F(CutCells, ListsAreAppendedToAndOnesOfNoCapacityReplaced)
{
    host_calls::watch watch;
    {
        kernel_call call(CELL_HEX, levels::repeated(corners_of(CELL_HEX), 200),
                         std::vector<unsigned char>(8, 1));
        call.conn[2] = static_cast<qx_long *>(ARRalloc_f(nullptr, DTYPE_QX_LONG, 4, 0, "test", 0));
        call.nconn[2] = 3;
        call.capacity[5] = 500; // of a list that is not there
        call.nconn[5] = 77;
        ASSERT_EQ(call.run(), 1);
        EXPECT_EQ(call.nconn[2], 0);
        EXPECT_EQ(call.nconn[5], 0);
        for (int list = 0; list < 7; ++list) {
            EXPECT_NE(call.conn[list], nullptr);
            EXPECT_EQ(call.capacity[list], list == 3 ? 2048 : 1024);
            EXPECT_EQ(call.step[list], list == 3 ? 1536 : 1024);
        }
        ASSERT_EQ(call.run(), 1);
        EXPECT_EQ(call.ncells[3], 400);
        EXPECT_EQ(call.nconn[3], 3200);
        EXPECT_EQ(call.capacity[3], 2048 + 1536) << "steps go on over the calls";
        for (qx_long i = 0; i < 3200; ++i)
            ASSERT_EQ(call.conn[3][i], i % 8);
    }
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST_F(CutCells, NullsCountInAllNodesOfARowNotOnlyTheCorners)
{
    std::vector<qx_long> cells = corners_of(CELL_TET);
    cells.push_back(4);
    const std::vector<qx_long> more = corners_of(CELL_TET);
    cells.insert(cells.end(), more.begin(), more.end());
    cells.push_back(5);
    std::vector<unsigned char> flags = {1, 1, 1, 1, 2, 1};
    kernel_call call(CELL_TET, cells, flags);
    call.set.nnodes = 5;
    call.set.count = 2;
    call.want_maps();
    EXPECT_EQ(call.run(1), 1);
    EXPECT_EQ(call.ncells[0], 1);
    EXPECT_EQ(call.maps[0][0], 1);
    EXPECT_EQ(numbers(call.conn[0], call.conn[0] + 4), (numbers{0, 1, 2, 3}));
    EXPECT_EQ(call.run(0), 1);
    EXPECT_EQ(call.ncells[0], 3);
}

TEST_F(CutCells, AKernelWithoutAConnectListLeavesEverything)
{
    kernel_call call(CELL_PYR, corners_of(CELL_PYR), std::vector<unsigned char>(5, 1));
    call.set.fetched = nullptr;
    call.set.mesh.get_connect = fetch;
    list_to_fetch = nullptr;
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(host_calls::report_texts(), no_list);
    EXPECT_EQ(call.flags[0], 1);
    EXPECT_EQ(call.table->nedges, 0);
    EXPECT_EQ(call.conn[0], nullptr);
    list_to_fetch = call.set.connect.data();
    EXPECT_EQ(call.run(), 1);
    EXPECT_EQ(call.set.fetched, list_to_fetch);
}

TEST_F(CutCells, AKernelThatCannotGrowReleasesTableAndFlagsAlone)
{
    const struct {
        int skipped;
        const char *text;
    } growths[] = {{0, "UTILcut: realloc for connect list failed"},
                   {1, "UTILcut: realloc for cell list failed"}};
    host_calls::watch watch;
    for (const auto &growth : growths) {
        host_calls::reset();
        {
            // Room for the connect entries, where the map is what has to grow.
            kernel_call call(CELL_LINE, levels::repeated({0, 1}, 2000), {1, 1});
            call.want_maps();
            for (int list = 0; list < 7; ++list) {
                call.capacity[list] = growth.skipped == 1 ? 6000 : 1024;
                call.step[list] = 1024;
                call.conn[list] = static_cast<qx_long *>(
                    ARRalloc_f(nullptr, DTYPE_QX_LONG, call.capacity[list], 0, "test", 0));
            }
            host_calls::fail_allocation(0);
            EXPECT_EQ(call.run(), 0);
            call.owned = false;
            EXPECT_EQ(host_calls::report_texts(), std::vector<std::string>{growth.text});
            for (qx_long i = 0; i < call.nconn[6]; ++i)
                ASSERT_EQ(call.conn[6][i], i % 2) << "lists are kept";
            EXPECT_NE(call.maps[6], nullptr);
        }
        EXPECT_EQ(watch.live_blocks(), 0);
    }
}

TEST_F(CutCells, AKernelThatIsStoppedReleasesTheListsToo)
{
    host_calls::watch watch;
    {
        kernel_call call(CELL_QUAD, levels::repeated(corners_of(CELL_QUAD), 300), {1, 1, 1, 1});
        call.want_maps();
        host_calls::interrupt_at(0);
        EXPECT_EQ(call.run(), 0);
        call.owned = false;
        for (int list = 0; list < 7; ++list) {
            EXPECT_EQ(call.conn[list], nullptr);
            EXPECT_EQ(call.maps[static_cast<size_t>(list)], nullptr);
            EXPECT_EQ(call.capacity[list], 0);
        }
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
    EXPECT_EQ(watch.live_blocks(), 0);
}

// ---- status ----------------------------------------------------------------------------------------------

TEST_F(CutCells, StatusIsCheckedEvery257thCellAndNotAtTheEnd)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {10, 10, 10}, 1);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    reference::run(UTILcut_cells, mesh->mesh, field_of(data), 0.5, 0, 0);
    std::vector<int> percents;
    for (const auto &check : host_calls::seen().statuses) {
        percents.push_back(check.percent);
        EXPECT_EQ(check.depth, 1);
    }
    EXPECT_EQ(percents, (std::vector<int>{25, 51, 77}));
}

TEST_F(CutCells, StoppedAtEachStatusCheck)
{
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_TET, CELL_HEX, CELL_TRI, CELL_TET}, {1, 2, 2, 1}, 5, 1);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    const auto clean = reference::run(UTILcut_cells, mesh->mesh, field_of(data), 0.5, 0, 4);
    const int nchecks = static_cast<int>(host_calls::seen().statuses.size());
    ASSERT_GT(nchecks, 8);
    for (int k = 0; k < nchecks; ++k) {
        host_calls::reset();
        host_calls::interrupt_at(k);
        host_calls::watch watch;
        {
            const raw_cut got(mesh->mesh, field_of(data), 0.5, 0);
            EXPECT_EQ(got.status, 0) << k;
            EXPECT_EQ(got.node_map, nullptr) << k;
            EXPECT_TRUE(got.new_nodes_untouched()) << k;
            for (int list = 0; list < 7; ++list)
                EXPECT_EQ(got.conn[list], nullptr) << k;
            EXPECT_TRUE(host_calls::seen().reports.empty()) << k;
            EXPECT_EQ(host_calls::seen().depth, 0) << k;
            EXPECT_EQ(mesh->mesh->cell_connect[1], mesh->connect[1].data()) << k;
        }
        EXPECT_EQ(watch.live_blocks(), 0) << k;
    }
    host_calls::reset();
    EXPECT_TRUE(reference::run(UTILcut_cells, mesh->mesh, field_of(data), 0.5, 0, 4) == clean);
}

// ---- memory ----------------------------------------------------------------------------------------------

cut_cell_func handed_on_to = nullptr;
const meshes::test_mesh *cut_inside = nullptr;

// A host's own function around a kernel of the library.
int hand_on(mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side, qx_long nold,
            const qx_long *node_map, edge_table *table, qx_long *ncells, qx_long **conn, qx_long *nconn,
            qx_long *capacity, qx_long *step, qx_long *map_count, qx_long **maps)
{
    const int result = handed_on_to(mesh, set, null_flag, flags, side, nold, node_map, table, ncells, conn,
                                    nconn, capacity, step, map_count, maps);
    if (cut_inside != nullptr) {
        const std::vector<float> data(static_cast<size_t>(cut_inside->nnodes()), 1.0f);
        raw_cut(cut_inside->mesh, field_of(data), 0.5, 0);
    }
    return result;
}

// The same, and it takes every failure for a success.
int hand_on_and_shrug(mesh_info *mesh, int set, int null_flag, unsigned char *flags, int side, qx_long nold,
                      const qx_long *node_map, edge_table *table, qx_long *ncells, qx_long **conn,
                      qx_long *nconn, qx_long *capacity, qx_long *step, qx_long *map_count, qx_long **maps)
{
    hand_on(mesh, set, null_flag, flags, side, nold, node_map, table, ncells, conn, nconn, capacity, step,
            map_count, maps);
    return 1;
}

// Releases nothing, and wants no more.
int give_up(mesh_info *, int, int, unsigned char *, int, qx_long, const qx_long *, edge_table *, qx_long *,
            qx_long **, qx_long *, qx_long *, qx_long *, qx_long *, qx_long **)
{
    return -1;
}

void expect_clean_failures(const meshes::test_mesh &mesh, const std::vector<float> &data,
                           std::set<std::string> *texts)
{
    host_calls::reset();
    int nallocations = 0;
    reference::result clean;
    {
        host_calls::watch watch;
        clean = reference::run(UTILcut_cells, mesh.mesh, field_of(data), 0.5, 0, mesh.kinds.size());
        nallocations = watch.allocations();
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    int retried = 0;
    for (int k = 0; k < nallocations; ++k) {
        host_calls::reset();
        host_calls::watch watch;
        host_calls::fail_allocation(k);
        {
            const raw_cut got(mesh.mesh, field_of(data), 0.5, 0);
            ASSERT_TRUE(host_calls::allocation_was_refused()) << k;
            if (got.status == 1) { // asked again, or refused to the call inside
                EXPECT_EQ(host_calls::seen().out_of_memory.size() + host_calls::seen().reports.size(), 1u)
                    << k;
                EXPECT_EQ(got.nnodes_out, static_cast<qx_long>(clean.min_node.size())) << k;
                for (size_t list = 0; list < 7; ++list)
                    EXPECT_EQ(got.ncells[list], clean.ncells[list]) << k;
                ++retried;
            } else {
                EXPECT_EQ(got.status, 0) << k;
                EXPECT_EQ(got.node_map, nullptr) << k;
                EXPECT_TRUE(got.new_nodes_untouched()) << k;
                ASSERT_EQ(host_calls::seen().reports.size(), 1u) << k;
                EXPECT_EQ(host_calls::seen().reports[0].severity, 2);
                texts->insert(host_calls::report_texts()[0]);
            }
        }
        ASSERT_EQ(watch.live_blocks(), 0) << k;
        EXPECT_EQ(host_calls::seen().depth, 0) << k;
        for (size_t set = 0; set < mesh.kinds.size(); ++set)
            EXPECT_EQ(mesh.mesh->cell_connect[set], mesh.connect[set].data()) << k;
    }
    EXPECT_GE(retried, 1);
    host_calls::reset();
    EXPECT_TRUE(reference::run(UTILcut_cells, mesh.mesh, field_of(data), 0.5, 0, mesh.kinds.size()) == clean);
}

TEST_F(CutCells, EachAllocationRefusedInTurn)
{
    const meshes::mesh_ptr mesh =
        meshes::mixed({CELL_HEX, CELL_QUAD, CELL_TET, CELL_TRI}, {1, 1, 2, 2}, 8, 1);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    std::set<std::string> texts;
    expect_clean_failures(*mesh, data, &texts);
    std::set<std::string> wanted;
    for (const char *text :
         {"alloc for node map failed", "alloc for edge table failed", "alloc for cell list failed",
          "alloc for connect list failed", "alloc for mesh copy failed", "tesselation failed",
          "realloc for edge table failed", "realloc for cell list failed", "realloc for connect list failed"})
        wanted.insert("UTILcut: " + std::string(text));
    EXPECT_EQ(texts, wanted);
}

TEST_F(CutCells, AFailureInsideAHostsOwnFunctionEndsTheCut)
{
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_HEX, CELL_TET}, {1, 2}, 5, 1);
    const meshes::mesh_ptr inside = meshes::cells(CELL_TET, 1, {1, 1, 1}, 1);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    for (int set : {0, 1})
        for (const cut_cell_func wrapper : {hand_on, hand_on_and_shrug}) {
            cell_func *bound =
                mesh->mesh->cell_funcs + set * CELL_METHOD_SLOTS + (set == 0 ? SLOT_CUT : SLOT_SUB_CUT);
            const cell_func own = *bound;
            handed_on_to = reinterpret_cast<cut_cell_func>(own);
            *bound = reinterpret_cast<cell_func>(wrapper);
            for (bool nested : {false, true}) {
                cut_inside = nested ? inside.get() : nullptr;
                std::set<std::string> texts;
                expect_clean_failures(*mesh, data, &texts);
                host_calls::interrupt_at(0);
                host_calls::watch watch;
                {
                    const raw_cut got(mesh->mesh, field_of(data), 0.5, 0);
                    EXPECT_EQ(got.status, 0);
                }
                EXPECT_EQ(watch.live_blocks(), 0);
            }
            *bound = own;
        }
    cut_inside = nullptr;
}

TEST_F(CutCells, AHostsOwnFunctionThatGivesUpEndsTheCut)
{
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_HEX, CELL_TET}, {1, 2}, 2, 1);
    const std::vector<float> data = meshes::random_values<float>(5, mesh->nnodes(), 0, 1);
    mesh->mesh->cell_funcs[CELL_METHOD_SLOTS + SLOT_SUB_CUT] = reinterpret_cast<cell_func>(give_up);
    host_calls::watch watch;
    {
        const raw_cut got(mesh->mesh, field_of(data), 0.5, 0);
        EXPECT_EQ(got.status, 0);
        EXPECT_EQ(got.node_map, nullptr);
        EXPECT_EQ(host_calls::seen().depth, 0);
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
    EXPECT_EQ(watch.live_blocks(), 0);
}

} // namespace
