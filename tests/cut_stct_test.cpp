#include <skoklana/cut.h>
#include <skoklana/iso.h>

#include "support/arrays.hpp"
#include "support/cut_reference.hpp"
#include "support/fresh_host.hpp"
#include "support/host_calls.hpp"
#include "support/lattice_calls.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <string>

namespace {

using arrays::dtype_of;
using lattice_calls::copied;
using lattice_reference::lattice;
using lattice_reference::numbers;

constexpr qx_long poison = -77;

struct cut_set {
    numbers old_nodes;
    numbers min_node, max_node;     // of each new node
    std::array<numbers, 7> connect; // by list, in output nodes
    std::array<numbers, 7> cell;    // by list, of each cell
};

bool operator==(const cut_set &a, const cut_set &b)
{
    return a.old_nodes == b.old_nodes && a.min_node == b.min_node && a.max_node == b.max_node &&
           a.connect == b.connect && a.cell == b.cell;
}

template <typename T>
cut_set reference_cut(const numbers &dims, const std::vector<T> &data, double level, int side, const T *null)
{
    const cut_reference::result made =
        cut_reference::cut_lattice(dims, cut_reference::scalar_of(data, dtype_of<T>, null), level, side);
    return {made.old_nodes, made.min_node, made.max_node, made.conn, made.maps.at(0)};
}

// The outputs of one cut, as they were left.
struct cut_call {
    int result = -7;
    qx_long nold = poison, nnodes = poison;
    qx_long *old_nodes = &nold, *min_node = &nold, *max_node = &nold;
    qx_long ncells[7], nconn[7], map_count[7];
    qx_long *conn[7], *map[7];

    cut_call()
    {
        for (int list = 0; list < 7; ++list) {
            ncells[list] = nconn[list] = map_count[list] = poison;
            conn[list] = map[list] = &nold;
        }
    }
    cut_call(const cut_call &) = delete;
    cut_call &operator=(const cut_call &) = delete;
    ~cut_call() { release(); }

    void run(mesh_info *mesh, const void *data, int type, const void *null, double level, int side,
             bool mapped = true, decltype(UTILcut_struct) *cut = UTILcut_struct)
    {
        result =
            cut(mesh, data, type, null != nullptr, null, level, side, &nold, &old_nodes, &nnodes, &min_node,
                &max_node, ncells, conn, nconn, mapped ? map_count : nullptr, mapped ? map : nullptr);
    }

    std::vector<qx_long **> lists()
    {
        std::vector<qx_long **> all = {&old_nodes, &min_node, &max_node};
        for (int list = 0; list < 7; ++list) {
            all.push_back(&conn[list]);
            all.push_back(&map[list]);
        }
        return all;
    }

    void release()
    {
        for (qx_long **list : lists()) {
            if (*list != &nold) free(*list);
            *list = nullptr;
        }
    }

    bool untouched() const
    {
        bool is = nold == poison && nnodes == poison && old_nodes == &nold && min_node == &nold &&
                  max_node == &nold;
        for (int list = 0; list < 7; ++list)
            is = is && ncells[list] == poison && nconn[list] == poison && map_count[list] == poison &&
                 conn[list] == &nold && map[list] == &nold;
        return is;
    }

    bool is_empty() const
    {
        bool is =
            nold == 0 && nnodes == 0 && old_nodes == nullptr && min_node == nullptr && max_node == nullptr;
        for (int list = 0; list < 7; ++list)
            is = is && ncells[list] == 0 && nconn[list] == 0 && map_count[list] == 0 &&
                 conn[list] == nullptr && map[list] == nullptr;
        return is;
    }

    // With the outputs held against each other.
    cut_set out(bool mapped = true) const
    {
        constexpr int nnodes_of[7] = {4, 6, 5, 8, 3, 4, 2};
        cut_set made;
        EXPECT_EQ(old_nodes == nullptr, nold == 0);
        made.old_nodes = copied(old_nodes, nold);
        made.min_node = copied(min_node, nnodes);
        made.max_node = copied(max_node, nnodes);
        for (int list = 0; list < 7; ++list) {
            EXPECT_EQ(nconn[list], ncells[list] * nnodes_of[list]);
            EXPECT_EQ(conn[list] == nullptr, ncells[list] == 0);
            made.connect[static_cast<size_t>(list)] = copied(conn[list], nconn[list]);
            if (!mapped) {
                EXPECT_EQ(map[list], &nold);
                continue;
            }
            EXPECT_EQ(map_count[list], ncells[list]);
            EXPECT_NE(map[list], nullptr);
            made.cell[static_cast<size_t>(list)] = copied(map[list], map_count[list]);
        }
        return made;
    }
};

template <typename T>
cut_set cut_of(lattice &in, const std::vector<T> &data, double level, int side, const T *null = nullptr,
               bool mapped = true)
{
    cut_call call;
    call.run(&in.mesh, data.data(), dtype_of<T>, null, level, side, mapped);
    EXPECT_EQ(call.result, 1);
    return call.result == 1 ? call.out(mapped) : cut_set();
}

template <typename T>
cut_set expect_as_reference(lattice &in, const std::vector<T> &data, double level, int side, const T *null)
{
    const cut_set expected = reference_cut(in.dims, data, level, side, null);
    const cut_set got = cut_of(in, data, level, side, null);
    EXPECT_EQ(got.old_nodes, expected.old_nodes);
    EXPECT_EQ(got.min_node, expected.min_node);
    EXPECT_EQ(got.max_node, expected.max_node);
    EXPECT_TRUE(got.connect == expected.connect);
    EXPECT_TRUE(got.cell == expected.cell);
    for (const numbers &connect : got.connect)
        for (qx_long node : connect)
            if (node < 0) {
                ADD_FAILURE() << "an entry without a node";
                return expected;
            }
    return expected;
}

size_t whole_cells(const cut_set &made)
{
    return made.cell[3].size() + made.cell[5].size();
}

size_t pieces(const cut_set &made)
{
    return made.cell[0].size() + made.cell[4].size();
}

template <typename T> class LatticeCutOfType : public testing::Test {
};
TYPED_TEST_SUITE(LatticeCutOfType, arrays::all_types);

// Widths around those of words and vectors, axes without cells, and lists that grow several times.
TYPED_TEST(LatticeCutOfType, AgreesWithTheReferenceOnRandomData)
{
    using T = TypeParam;
    std::mt19937 random(31 + dtype_of<T>);
    const auto below = [&](unsigned n) { return random() % n; };
    const qx_long widths[] = {1, 2, 3, 4, 9, 17, 32, 33, 63, 64, 65, 66, 128, 129, 1030};
    qx_long with_whole = 0, with_pieces = 0, with_nulls = 0, grown = 0, on_values = 0, without_cells = 0;
    for (int pass = 0; pass < 160; ++pass) {
        SCOPED_TRACE("pass " + std::to_string(pass));
        const bool solid = below(2) != 0;
        numbers dims = {widths[below(solid ? 14 : 15)], 1 + static_cast<qx_long>(below(8))};
        if (solid) dims.push_back(1 + static_cast<qx_long>(below(6)));
        lattice in(dims);
        const unsigned nvalues = 2 + below(7);
        const bool smooth = below(2) != 0;
        std::vector<T> data;
        for (qx_long n = 0; n < in.nnodes(); ++n) {
            const unsigned wave = static_cast<unsigned>(n / 3) % (2 * nvalues);
            const unsigned value = smooth && below(50) != 0 ? wave % nvalues : below(nvalues);
            data.push_back(static_cast<T>(value));
        }
        data.shrink_to_fit();
        const T null = static_cast<T>(below(nvalues + 3));
        const double level = below(2 * nvalues + 2) / 2.0 - 0.5;
        const int side = static_cast<int>(below(3)) - 1;
        const bool has_null = below(2) != 0;
        const cut_set expected = expect_as_reference(in, data, level, side, has_null ? &null : nullptr);
        if (testing::Test::HasFailure()) return;
        with_whole += whole_cells(expected) > 0;
        with_pieces += pieces(expected) > 0;
        with_nulls +=
            pieces(expected) > 0 && has_null && std::find(data.begin(), data.end(), null) != data.end();
        grown += pieces(expected) > 5000 || whole_cells(expected) > 1500;
        on_values += pieces(expected) > 0 && level == std::floor(level);
        without_cells += whole_cells(expected) + pieces(expected) == 0;
    }
    EXPECT_GT(with_whole, 50);
    EXPECT_GT(with_pieces, 60);
    EXPECT_GT(with_nulls, 10);
    EXPECT_GT(grown, 1);
    EXPECT_GT(on_values, 20);
    EXPECT_GT(without_cells, 10);
}

TYPED_TEST(LatticeCutOfType, LevelsAtAndBeyondTheEndsOfTheType)
{
    using T = TypeParam;
    lattice in({35, 5, 3});
    const T null = T(3);
    const std::vector<T> data = arrays::mixed_values<T>(12, in.nnodes(), null);
    int cut = 0;
    for (double level : arrays::edge_levels()) {
        SCOPED_TRACE("level " + std::to_string(level));
        for (int side : {1, -1})
            cut += pieces(expect_as_reference(in, data, level, side, static_cast<const T *>(nullptr))) > 0;
        expect_as_reference(in, data, level, 0, &null);
    }
    EXPECT_GT(cut, 5);
}

// 0.7 lies above the float nearest to it: nodes of that value are below the level and flagged as if they were not.
TEST(LatticeCut, NodesThatTheTwoTestsDisagreeAboutAreNotKept)
{
    lattice in({2, 2, 2});
    const std::vector<float> all(8, 0.7f);
    const cut_set high = cut_of(in, all, 0.7, 1);
    EXPECT_TRUE(high.old_nodes.empty());
    EXPECT_TRUE(high == cut_set());
    const cut_set low = cut_of(in, all, 0.7, -1);
    EXPECT_EQ(low.old_nodes.size(), 8u);
    EXPECT_EQ(whole_cells(low) + pieces(low), 0u);

    lattice row({129, 3});
    std::mt19937 random(3);
    const float nan = std::nanf(""), choices[] = {0.7f, nan, 0.0f, 1.0f, -INFINITY, INFINITY};
    std::vector<float> data;
    for (qx_long n = 0; n < row.nnodes(); ++n)
        data.push_back(choices[random() % 8 < 6 ? random() % 6 : 3]);
    for (double level : {0.7, 0.1, 1.0, static_cast<double>(nan)})
        for (int side : {1, -1})
            expect_as_reference(row, data, level, side, static_cast<const float *>(nullptr));
    expect_as_reference(row, data, 0.7, -1, &nan);
}

TEST(LatticeCut, SixtyFourBitIntegersThatNoDoubleHolds)
{
    const qx_long big = qx_long{1} << 53;
    lattice in({40, 4, 3});
    std::mt19937 random(9);
    std::vector<qx_long> data;
    for (qx_long n = 0; n < in.nnodes(); ++n)
        data.push_back(big + static_cast<qx_long>(random() % 9));
    for (int by = 0; by <= 10; by += 2)
        for (int side : {1, -1})
            expect_as_reference(in, data, static_cast<double>(big + by), side,
                                static_cast<const qx_long *>(nullptr));
}

TEST(LatticeCut, WholeHexahedraHaveTheirUpperPlaneFirst)
{
    lattice in({3, 2, 2});
    const std::vector<int> data(12, 5);
    const cut_set made = cut_of(in, data, 5.0, 0);
    EXPECT_EQ(made.old_nodes, (numbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
    EXPECT_EQ(made.connect[3], (numbers{6, 7, 10, 9, 0, 1, 4, 3, 7, 8, 11, 10, 1, 2, 5, 4}));
    EXPECT_EQ(made.cell[3], (numbers{0, 1}));
    EXPECT_TRUE(made.min_node.empty());
    EXPECT_EQ(pieces(made), 0u);
}

TEST(LatticeCut, WholeQuadrilateralsGoRound)
{
    lattice in({3, 2});
    const std::vector<short> data(6, 5);
    const cut_set made = cut_of(in, data, 5.0, 0);
    EXPECT_EQ(made.connect[5], (numbers{0, 1, 4, 3, 1, 2, 5, 4}));
    EXPECT_EQ(made.cell[5], (numbers{0, 1}));
    EXPECT_EQ(pieces(made), 0u);
}

// Nodes at the level are retained on the low side, though no cell uses them.
TEST(LatticeCut, LowSideRetainsTheLevelAndKeepsWhatIsBelow)
{
    lattice flat({2, 2, 2});
    const cut_set at_level = cut_of(flat, std::vector<int>(8, 5), 5.0, -1);
    EXPECT_EQ(at_level.old_nodes.size(), 8u);
    EXPECT_EQ(whole_cells(at_level) + pieces(at_level), 0u);
    EXPECT_TRUE(at_level.min_node.empty());

    lattice row({3, 2});
    const cut_set mixed = cut_of(row, std::vector<int>{4, 5, 6, 4, 5, 6}, 5.0, -1);
    EXPECT_EQ(mixed.old_nodes, (numbers{0, 1, 3, 4}));
    EXPECT_EQ(mixed.min_node, (numbers{0, 3}));
    EXPECT_EQ(mixed.max_node, (numbers{1, 4}));
    EXPECT_EQ(pieces(mixed), 2u);
    for (qx_long node : mixed.connect[4])
        EXPECT_TRUE(node == 0 || node == 2 || node >= 4) << node;
}

TEST(LatticeCut, OneKeptCornerGivesOnePiece)
{
    for (qx_long kept = 0; kept < 8; ++kept) {
        lattice in({2, 2, 2});
        std::vector<unsigned char> data(8, 0);
        data[static_cast<size_t>(kept)] = 1;
        const cut_set made =
            expect_as_reference(in, data, 0.5, 1, static_cast<const unsigned char *>(nullptr));
        EXPECT_EQ(made.old_nodes, numbers{kept});
        EXPECT_EQ(made.connect[0].size(), 4u);
        EXPECT_EQ(made.min_node.size(), 3u);
        EXPECT_EQ(std::count(made.connect[0].begin(), made.connect[0].end(), 0), 1);
    }
}

// Every case of a cell alone, on both sides.
TEST(LatticeCut, AllCasesOfACell)
{
    for (int index = 0; index < 256; ++index) {
        lattice in(index < 16 ? numbers{2, 2} : numbers{2, 2, 2});
        std::vector<int> data;
        for (qx_long n = 0; n < in.nnodes(); ++n)
            data.push_back(index >> n & 1);
        for (int side : {1, -1}) {
            SCOPED_TRACE(index);
            expect_as_reference(in, data, 0.5, side, static_cast<const int *>(nullptr));
        }
    }
}

TEST(LatticeCut, NullCornerRemovesItsCellsOnly)
{
    lattice in({4, 2, 2});
    std::vector<short> data(16, 1);
    data[0] = 9;
    const short null = 9;
    const cut_set made = cut_of(in, data, 0.5, 1, &null);
    EXPECT_EQ(made.cell[3], (numbers{1, 2}));
    EXPECT_EQ(made.old_nodes.size(), 15u);
    EXPECT_EQ(cut_of<short>(in, data, 0.5, 1).cell[3], (numbers{0, 1, 2}));
}

TEST(LatticeCut, NothingKeptAndEverythingKept)
{
    lattice in({70, 5, 4});
    const std::vector<double> data(static_cast<size_t>(in.nnodes()), 2.0);
    EXPECT_TRUE(cut_of(in, data, 3.0, 1) == cut_set());
    const cut_set all = cut_of(in, data, 1.0, 1);
    EXPECT_EQ(static_cast<qx_long>(all.old_nodes.size()), in.nnodes());
    EXPECT_EQ(all.cell[3].size(), 69u * 4 * 3);
    EXPECT_TRUE(all.min_node.empty());
    expect_as_reference(in, data, 1.0, 1, static_cast<const double *>(nullptr));
}

TEST(LatticeCut, AxesWithoutCellsStillRetainNodes)
{
    for (const auto &dims : {numbers{7, 6, 1}, numbers{7, 1, 6}, numbers{1, 7, 6}, numbers{1, 1, 1},
                             numbers{0, 3, 3}, numbers{3, 0, 3}, numbers{3, 3, 0}, numbers{5, 1},
                             numbers{1, 5}, numbers{1, 1}, numbers{0, 4}, numbers{4, 0}}) {
        lattice in(dims);
        std::vector<int> data;
        for (qx_long n = 0; n < in.nnodes(); ++n)
            data.push_back(static_cast<int>(n % 2));
        const cut_set made = cut_of(in, data, 0.5, 1);
        EXPECT_EQ(static_cast<qx_long>(made.old_nodes.size()), in.nnodes() / 2);
        EXPECT_EQ(whole_cells(made) + pieces(made), 0u);
        EXPECT_TRUE(made == reference_cut<int>(dims, data, 0.5, 1, nullptr));
    }
}

TEST(LatticeCut, WithoutAMapTheRestIsTheSame)
{
    for (const numbers &dims : {numbers{40, 9, 9}, numbers{200, 50}}) {
        lattice in(dims);
        const std::vector<float> data = meshes::random_values<float>(6, in.nnodes(), -1, 1);
        cut_set with_map = cut_of<float>(in, data, 0.0, 1);
        EXPECT_GT(pieces(with_map), 1000u);
        with_map.cell = {};
        EXPECT_TRUE(with_map == cut_of<float>(in, data, 0.0, 1, nullptr, false));
    }
}

TEST(LatticeCut, TheFormsOfTwoAndThreeAxesAreTheSame)
{
    for (const numbers &dims : {numbers{20, 9, 9}, numbers{200, 5}}) {
        lattice in(dims);
        const std::vector<float> data = meshes::random_values<float>(6, in.nnodes(), -1, 1);
        cut_call call, other;
        const auto form = dims.size() == 3 ? UTILcut_struct_3d : UTILcut_struct_2d;
        const auto wrong = dims.size() == 3 ? UTILcut_struct_2d : UTILcut_struct_3d;
        call.run(&in.mesh, data.data(), DTYPE_FLOAT, nullptr, 0.1, 1, true, form);
        ASSERT_EQ(call.result, 1);
        EXPECT_TRUE(call.out() == cut_of<float>(in, data, 0.1, 1));
        other.run(&in.mesh, data.data(), DTYPE_FLOAT, nullptr, 0.1, 1, true, wrong);
        EXPECT_EQ(other.result, 0);
        EXPECT_TRUE(other.untouched());
    }
}

TEST(LatticeCut, StructuredKindsAreAlike)
{
    const std::vector<qx_long> dims = {9, 8, 7};
    const std::vector<float> lo = {0, 0, 0}, hi = {1, 1, 1};
    const std::vector<double> data = meshes::random_values<double>(12, 9 * 8 * 7, 0, 1);
    lattice bare(dims);
    const cut_set expected = cut_of(bare, data, 0.4, 1);
    for (const meshes::mesh_ptr &way :
         {meshes::uniform(dims, 3, lo, hi), meshes::rectilinear(dims, 3, lo, hi, 1),
          meshes::curvilinear(dims, 3, lo, hi, 1)}) {
        cut_call call;
        call.run(way->mesh, data.data(), DTYPE_DOUBLE, nullptr, 0.4, 1, true,
                 [](mesh_info *mesh, const void *values, int type, int null_flag, const void *null,
                    double level, int side, qx_long *nold, qx_long **old_nodes, qx_long *nnodes,
                    qx_long **min_node, qx_long **max_node, qx_long *ncells, qx_long **conn, qx_long *nconn,
                    qx_long *map_count, qx_long **map) {
                     return UTILcut(mesh, values, type, null_flag, null, level, side, nold, old_nodes, nnodes,
                                    min_node, max_node, ncells, conn, nconn, map_count, map);
                 });
        EXPECT_EQ(call.result, 1);
        EXPECT_TRUE(call.out() == expected);
    }
}

using node_pairs_of = std::set<std::pair<qx_long, qx_long>>;

node_pairs_of pairs_of(const numbers &min_node, const numbers &max_node)
{
    node_pairs_of pairs;
    for (size_t n = 0; n < min_node.size(); ++n)
        pairs.insert({min_node[n], max_node[n]});
    return pairs;
}

TEST(LatticeCut, BothSidesAndTheLevelSetHaveTheSameNewNodes)
{
    for (const numbers &dims : {numbers{30, 9, 9}, numbers{100, 20}}) {
        lattice in(dims);
        const std::vector<float> data = meshes::random_values<float>(16, in.nnodes(), -1, 1);
        const cut_set high = cut_of<float>(in, data, 0.1, 1), low = cut_of<float>(in, data, 0.1, -1);
        const auto level_set = lattice_calls::extracted<float>(&in.mesh, data, 0.1, nullptr);
        const node_pairs_of expected = pairs_of(level_set.min_node, level_set.max_node);
        EXPECT_GT(expected.size(), 1000u);
        EXPECT_EQ(expected.size(), high.min_node.size());
        EXPECT_EQ(pairs_of(high.min_node, high.max_node), expected);
        EXPECT_EQ(pairs_of(low.min_node, low.max_node), expected);
    }
}

// Six times the volume, or twice the area, of all cells, with each new node where a linear field takes the level.
double measure(const lattice &in, const cut_set &made, const std::vector<double> &data, double level)
{
    const auto place = [&](qx_long node, double *at) {
        const auto d = [&](size_t axis) { return axis < in.dims.size() ? in.dims[axis] : 1; };
        at[0] = static_cast<double>(node % d(0));
        at[1] = static_cast<double>(node / d(0) % d(1));
        at[2] = static_cast<double>(node / d(0) / d(1));
    };
    const size_t nold = made.old_nodes.size();
    std::vector<std::array<double, 3>> points;
    for (qx_long node : made.old_nodes) {
        points.push_back({});
        place(node, points.back().data());
    }
    for (size_t e = 0; e < made.min_node.size(); ++e) {
        double a[3], b[3];
        place(made.min_node[e], a);
        place(made.max_node[e], b);
        const double from = data[static_cast<size_t>(made.min_node[e])],
                     to = data[static_cast<size_t>(made.max_node[e])], t = (level - from) / (to - from);
        points.push_back({a[0] + (b[0] - a[0]) * t, a[1] + (b[1] - a[1]) * t, a[2] + (b[2] - a[2]) * t});
    }
    EXPECT_EQ(points.size(), nold + made.min_node.size());
    double sum = 0;
    const auto edge = [&](const qx_long *row, int n, int axis) {
        return points[static_cast<size_t>(row[n])][static_cast<size_t>(axis)] -
               points[static_cast<size_t>(row[0])][static_cast<size_t>(axis)];
    };
    for (size_t c = 0; c < made.connect[0].size(); c += 4) {
        const qx_long *row = &made.connect[0][c];
        double m[3][3];
        for (int n = 0; n < 3; ++n)
            for (int axis = 0; axis < 3; ++axis)
                m[n][axis] = edge(row, n + 1, axis);
        const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
        sum += std::abs(det);
    }
    for (size_t c = 0; c < made.connect[4].size(); c += 3) {
        const qx_long *row = &made.connect[4][c];
        sum += std::abs(edge(row, 1, 0) * edge(row, 2, 1) - edge(row, 1, 1) * edge(row, 2, 0));
    }
    return sum + 6 * static_cast<double>(made.cell[3].size()) + 2 * static_cast<double>(made.cell[5].size());
}

TEST(LatticeCut, SidesOfALinearFieldAddUpToTheMesh)
{
    for (const numbers &dims : {numbers{12, 9, 7}, numbers{20, 13}}) {
        lattice in(dims);
        std::vector<double> data;
        double cells = 1;
        for (qx_long n : dims)
            cells *= static_cast<double>(n - 1);
        for (qx_long n = 0; n < in.nnodes(); ++n)
            data.push_back(0.31 * static_cast<double>(n % dims[0]) -
                           0.47 * static_cast<double>(n / dims[0] % dims[1]) +
                           0.19 * static_cast<double>(n / dims[0] / dims[1]));
        for (double level : {0.123, 1.0, -2.0}) {
            const cut_set high = cut_of(in, data, level, 1), low = cut_of(in, data, level, -1);
            EXPECT_GT(pieces(high), 20u);
            EXPECT_NEAR(measure(in, high, data, level) + measure(in, low, data, level),
                        cells * (dims.size() == 3 ? 6 : 2), 1e-9 * cells);
        }
    }
}

TEST(LatticeCut, OtherNumbersOfAxesWriteNothing)
{
    const std::vector<double> data(16, 0.0);
    for (const numbers &dims : {numbers{}, numbers{16}, numbers{2, 2, 2, 2}}) {
        lattice in(dims);
        host_calls::reset();
        cut_call call;
        call.run(&in.mesh, data.data(), DTYPE_DOUBLE, nullptr, 0.5, 1);
        EXPECT_EQ(call.result, 0);
        EXPECT_TRUE(call.untouched());
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
}

TEST(LatticeCut, UnknownTypeIsReportedAndLeavesNothing)
{
    for (int type : {-1, 7, 100})
        for (const numbers &dims : {numbers{3, 3, 3}, numbers{3, 3}}) {
            lattice in(dims);
            const std::vector<double> data(27, 0.0);
            host_calls::reset();
            cut_call call;
            host_calls::watch watch;
            call.run(&in.mesh, data.data(), type, nullptr, 0.5, -1);
            EXPECT_EQ(call.result, 0);
            EXPECT_TRUE(call.is_empty());
            EXPECT_EQ(watch.live_blocks(), 0);
            EXPECT_EQ(host_calls::report_texts(),
                      std::vector<std::string>{"UTILnnode_thresh_struct: unknown data type"});
        }
}

TEST(LatticeCut, ChecksTheStatusAtEveryEighthSlabAndNotAtTheEnd)
{
    for (qx_long nslabs : {1, 7, 8, 14, 26, 1175})
        for (const numbers &dims : {numbers{3, 3, nslabs + 1}, numbers{3, nslabs + 1}}) {
            lattice in(dims);
            const std::vector<float> data(static_cast<size_t>(in.nnodes()), 0.0f);
            host_calls::reset();
            cut_of<float>(in, data, 0.5, 1);
            std::vector<int> wanted;
            const float factor = static_cast<float>(100.0 / static_cast<double>(nslabs));
            for (qx_long k = 7; k < nslabs; k += 8)
                wanted.push_back(static_cast<int>(static_cast<float>(k) * factor));
            host_calls::expect_checks(wanted);
        }
}

TEST(LatticeCut, InterruptionReleasesEverything)
{
    for (const numbers &dims : {numbers{20, 20, 27}, numbers{20, 27}}) {
        lattice in(dims);
        const std::vector<float> data = meshes::random_values<float>(1, in.nnodes(), 0, 1);
        for (int k = 0; k < 3; ++k) {
            host_calls::reset();
            cut_call call;
            host_calls::watch watch;
            host_calls::interrupt_at(k);
            call.run(&in.mesh, data.data(), DTYPE_FLOAT, nullptr, 0.5, 1);
            EXPECT_EQ(call.result, 0);
            EXPECT_TRUE(call.is_empty());
            EXPECT_EQ(watch.live_blocks(), 0);
            EXPECT_TRUE(host_calls::seen().reports.empty());
        }
        host_calls::reset();
    }
}

TEST(LatticeCut, RefusedMemoryIsReportedAndNothingLeaks)
{
    for (const numbers &dims : {numbers{40, 12, 9}, numbers{130, 60}}) {
        lattice in(dims);
        // The first half whole, the rest at random: both lists and their maps grow.
        std::vector<short> data = meshes::random_values<short>(4, in.nnodes(), 0, 100);
        std::fill(data.begin(), data.begin() + in.nnodes() / 2, short(99));
        const short null = 3;
        host_calls::reset();
        int nallocations = 0;
        cut_set clean;
        {
            cut_call call;
            host_calls::watch watch;
            call.run(&in.mesh, data.data(), DTYPE_SHORT, &null, 50, 1);
            nallocations = watch.allocations();
            ASSERT_EQ(call.result, 1);
            clean = call.out();
            ASSERT_GT(whole_cells(clean), 1500u);
            ASSERT_GT(pieces(clean), 2000u);
            EXPECT_EQ(watch.live_blocks(), 12); // seven maps, two connect lists, three node lists
            call.release();
            EXPECT_EQ(watch.live_blocks(), 0);
        }
        int silent = 0, maps = 0, insisted = 0;
        for (int k = 0; k < nallocations; ++k) {
            SCOPED_TRACE(k);
            host_calls::reset();
            cut_call call;
            host_calls::watch watch;
            host_calls::fail_allocation(k);
            call.run(&in.mesh, data.data(), DTYPE_SHORT, &null, 50, 1);
            EXPECT_TRUE(host_calls::allocation_was_refused());
            const std::vector<std::string> reports = host_calls::report_texts();
            if (call.result == 1) {
                EXPECT_EQ(host_calls::seen().out_of_memory,
                          std::vector<std::string>{"Cannot alloc flags array"});
                EXPECT_TRUE(call.out() == clean);
                ++insisted;
                continue;
            }
            EXPECT_EQ(call.result, 0);
            EXPECT_TRUE(call.is_empty());
            EXPECT_EQ(watch.live_blocks(), 0);
            if (reports.empty()) {
                ++silent;
            } else {
                EXPECT_EQ(reports, std::vector<std::string>{"UTILcut: realloc for cell list failed"});
                ++maps;
            }
        }
        EXPECT_EQ(insisted, 1);
        EXPECT_GE(silent, 12);
        EXPECT_GE(maps, 2);
        host_calls::reset();
    }
}

TEST(LatticeCut, TwoCallsGiveTheSameBytes)
{
    lattice in({50, 20, 10});
    const std::vector<int> data = meshes::random_values<int>(99, in.nnodes(), 0, 10);
    EXPECT_TRUE(cut_of<int>(in, data, 5, 1) == cut_of<int>(in, data, 5, 1));
}

} // namespace
