#include "support/arrays.hpp"
#include "support/fetches.hpp"
#include "support/host_calls.hpp"
#include "support/lattices.hpp"
#include "support/meshes.hpp"

#include <skoklana/deriv.h>
#include <skoklana/host/fld.h>

#include <gtest/gtest.h>

namespace {

class CellToNode : public testing::Test {
  protected:
    void SetUp() override { host_calls::reset(); }
};

template <typename T> class CellToNodeOfType : public CellToNode {
};
TYPED_TEST_SUITE(CellToNodeOfType, arrays::all_types);

// ---- the reference -------------------------------------------------------------------------------------------

template <typename T> T through_64_bits(float x)
{
    if (std::is_floating_point_v<T>) return static_cast<T>(x);
    if (!(x >= -9223372036854775808.0f && x < 9223372036854775808.0f))
        return static_cast<T>(std::numeric_limits<int64_t>::min());
    return static_cast<T>(static_cast<int64_t>(x));
}

template <typename T> T added(T a, T b)
{
    if constexpr (std::is_floating_point_v<T>)
        return a + b;
    else
        return static_cast<T>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

struct node_list {
    std::vector<std::vector<qx_long>> cells;
};

// lists: the cells of each set. data: theirs.
template <typename T>
std::vector<T> slow_means(const std::vector<node_list> &lists, qx_long nnodes, int nspace,
                          const std::vector<float> &coords, const std::vector<std::vector<T>> &data,
                          int veclen, const T *null, int power)
{
    std::vector<T> out(static_cast<size_t>(nnodes * veclen));
    std::vector<float> weights(static_cast<size_t>(nnodes));
    std::vector<bool> marks(static_cast<size_t>(nnodes));
    const auto x = [&](qx_long node, int d) { return coords[static_cast<size_t>(node * nspace + d)]; };
    for (size_t set = 0; set < lists.size(); ++set)
        for (size_t c = 0; c < lists[set].cells.size(); ++c) {
            const std::vector<qx_long> &nodes = lists[set].cells[c];
            const T *row = &data[set][c * static_cast<size_t>(veclen)];
            float centre[3] = {};
            for (int d = 0; d < nspace; ++d) {
                for (qx_long node : nodes)
                    centre[d] += x(node, d);
                centre[d] /= static_cast<float>(nodes.size());
            }
            for (qx_long node : nodes) {
                const size_t n = static_cast<size_t>(node);
                if (null != nullptr && row[0] == *null) {
                    marks[n] = true;
                    continue;
                }
                float square = 0;
                for (int d = 0; d < nspace; ++d)
                    square += (x(node, d) - centre[d]) * (x(node, d) - centre[d]);
                const float distance = static_cast<float>(std::sqrt(static_cast<double>(square)));
                const bool weighs = power != 0 && distance != 0;
                const float w =
                    weighs ? static_cast<float>(1.0 / std::pow(static_cast<double>(distance), power)) : 1.0f;
                weights[n] = power != 0 && distance == 0 ? 1.0f : weights[n] + w;
                for (int k = 0; k < veclen; ++k) {
                    T &sum = out[n * static_cast<size_t>(veclen) + static_cast<size_t>(k)];
                    if (!weighs)
                        sum = added(sum, row[k]);
                    else if constexpr (std::is_same_v<T, double>)
                        sum = row[k] * static_cast<double>(w) + sum;
                    else
                        sum = through_64_bits<T>(static_cast<float>(row[k]) * w + static_cast<float>(sum));
                }
            }
        }
    for (size_t n = 0; n < weights.size(); ++n)
        for (int k = 0; k < veclen; ++k) {
            T &sum = out[n * static_cast<size_t>(veclen) + static_cast<size_t>(k)];
            if (marks[n])
                sum = *null;
            else if (weights[n] == 0)
                continue;
            else if constexpr (std::is_same_v<T, double>)
                sum = sum / static_cast<double>(weights[n]);
            else
                sum = through_64_bits<T>(static_cast<float>(sum) / weights[n]);
        }
    return out;
}

template <typename T> std::vector<T> cell_values(qx_long count, uint64_t seed, bool nulls)
{
    std::mt19937_64 random(seed);
    const std::vector<T> edges = arrays::edge_values<T>();
    std::vector<T> values;
    for (qx_long i = 0; i < count; ++i) {
        const uint64_t x = random();
        T value = static_cast<T>(x % 201);
        if (std::is_floating_point_v<T>) value = static_cast<T>(static_cast<double>(x % 20001) / 100.0 - 50);
        if (x % 23 == 0) value = edges[x / 23 % edges.size()];
        if (nulls && x % 29 == 0) value = static_cast<T>(99);
        values.push_back(value);
    }
    return values;
}

template <typename T> void expect_same(const std::vector<T> &got, const std::vector<T> &expected)
{
    ASSERT_EQ(got.size(), expected.size());
    for (size_t i = 0; i < got.size(); ++i) {
        if (got[i] != got[i] && expected[i] != expected[i]) continue;
        ASSERT_EQ(memcmp(&got[i], &expected[i], sizeof(T)), 0)
            << "entry " << i << ": " << +got[i] << " for " << +expected[i];
    }
}

std::vector<node_list> lists_of(const meshes::test_mesh &made)
{
    std::vector<node_list> lists(made.connect.size());
    for (size_t set = 0; set < lists.size(); ++set) {
        const long n = made.mesh->cell_nnodes[set];
        for (auto row = made.connect[set].begin(); row != made.connect[set].end(); row += n)
            lists[set].cells.emplace_back(row, row + n);
    }
    return lists;
}

} // namespace

// ---- against the reference -----------------------------------------------------------------------------------

TYPED_TEST(CellToNodeOfType, SetsOfCellsAgreeWithTheReference)
{
    using T = TypeParam;
    const meshes::mesh_ptr made =
        meshes::mixed({CELL_TET, CELL_QUAD, CELL_HEX, CELL_LINE}, {1, 1, 2, 1}, 2, 1, 0.1);
    for (auto &connect : made->connect)
        for (size_t i = 0; i < connect.size(); i += 5)
            connect[i] = static_cast<qx_long>(i % 11); // shared nodes, some twice in a cell
    const T null = static_cast<T>(99);
    for (int power : {0, 1, 2, 3, -1})
        for (int veclen : {1, 2, 3})
            for (int null_flag : {0, 1}) {
                SCOPED_TRACE(testing::Message()
                             << "power " << power << " veclen " << veclen << " null " << null_flag);
                std::vector<std::vector<T>> data;
                std::vector<T> out(static_cast<size_t>(made->nnodes() * veclen), T{7});
                float *weights = nullptr;
                unsigned char *marks = nullptr;
                host_calls::watch watch;
                for (int set = 0; set < 4; ++set) {
                    data.push_back(cell_values<T>(made->mesh->cell_count[set] * veclen,
                                                  static_cast<uint64_t>(100 * set + veclen), true));
                    ASSERT_EQ(UTILcell_to_node_cells(made->mesh, set, arrays::dtype_of<T>, data.back().data(),
                                                     veclen, null_flag, null_flag != 0 ? &null : nullptr,
                                                     power, out.data(), &weights, &marks),
                              1);
                    EXPECT_NE(weights, nullptr);
                    EXPECT_NE(marks, nullptr);
                }
                EXPECT_EQ(watch.live_blocks(), 0);
                expect_same(out, slow_means<T>(lists_of(*made), made->nnodes(), 3, made->coords, data, veclen,
                                               null_flag != 0 ? &null : nullptr, power));
            }
    EXPECT_TRUE(host_calls::seen().reports.empty());
    EXPECT_TRUE(host_calls::seen().statuses.empty());
}

TYPED_TEST(CellToNodeOfType, LatticesAgreeWithTheReference)
{
    using T = TypeParam;
    const T null = static_cast<T>(99);
    for (const lattices::shape &shape : {lattices::shape{{4, 3, 5}, 3}, lattices::shape{{4, 6}, 2},
                                         lattices::shape{{9}, 1}, lattices::shape{{2, 2, 2}, 3}}) {
        const int ndim = static_cast<int>(shape.dims.size());
        const meshes::mesh_ptr kinds[3] = {lattices::uniform(shape), lattices::rectilinear(shape),
                                           lattices::curvilinear(shape)};
        for (const meshes::mesh_ptr &made : kinds)
            for (int power : {0, 2})
                for (int null_flag : {0, 1}) {
                    const qx_long ncells = made->mesh->cell_count[0];
                    std::vector<node_list> lists(1);
                    for (qx_long c = 0; c < ncells; ++c) {
                        std::vector<qx_long> row(size_t{1} << ndim);
                        get_connect_struct(ndim, shape.dims.data(), c, c + 1, row.data());
                        lists[0].cells.push_back(row);
                    }
                    const int veclen = power == 0 ? 3 : 1;
                    const std::vector<T> data = cell_values<T>(ncells * veclen, 5, true);
                    std::vector<T> out(static_cast<size_t>(made->nnodes() * veclen), T{7});
                    host_calls::watch watch;
                    ASSERT_EQ(UTILcell_to_node(made->mesh, 0, arrays::dtype_of<T>, data.data(), veclen,
                                               null_flag, null_flag != 0 ? &null : nullptr, power, out.data(),
                                               nullptr, nullptr),
                              1);
                    EXPECT_EQ(watch.live_blocks(), 0);
                    expect_same(out, slow_means<T>(lists, made->nnodes(), shape.nspace, made->coords, {data},
                                                   veclen, null_flag != 0 ? &null : nullptr, power));
                }
    }
}

// ---- single rules --------------------------------------------------------------------------------------------

namespace {

// Segments of a line along x: node i at x[i], cell i from node i to node i + 1.
meshes::mesh_ptr line_of(const std::vector<float> &x)
{
    std::vector<qx_long> connect;
    for (qx_long i = 0; i + 1 < static_cast<qx_long>(x.size()); ++i)
        connect.insert(connect.end(), {i, i + 1});
    return meshes::from_cells(1, x, {CELL_LINE}, {1}, {connect});
}

template <typename T>
std::vector<T> means(const meshes::test_mesh &made, const std::vector<T> &data, int power,
                     const T *null = nullptr)
{
    std::vector<T> out(static_cast<size_t>(made.nnodes()), T{7});
    EXPECT_EQ(UTILcell_to_node_cells(made.mesh, 0, arrays::dtype_of<T>, data.data(), 1, null != nullptr, null,
                                     power, out.data(), nullptr, nullptr),
              1);
    return out;
}

using texts = std::vector<std::string>;

} // namespace

TEST_F(CellToNode, SumsOfBytesWrapRound)
{
    const meshes::mesh_ptr made = line_of({0, 1, 2});
    EXPECT_EQ(means<unsigned char>(*made, {200, 200}, 0), (std::vector<unsigned char>{200, 72, 200}));
    EXPECT_EQ(means<signed char>(*made, {100, 100}, 0), (std::vector<signed char>{100, -28, 100}));
    EXPECT_EQ(means<short>(*made, {30000, 30000}, 0), (std::vector<short>{30000, -2768, 30000}));
}

TEST_F(CellToNode, LargeIntegersAreRoundedThroughFloat)
{
    const meshes::mesh_ptr made = line_of({0, 1, 2});
    EXPECT_EQ(means<int>(*made, {16777217, 1}, 0), (std::vector<int>{16777216, 8388609, 1}));
    const qx_long big = std::numeric_limits<qx_long>::max();
    EXPECT_EQ(means<qx_long>(*made, {big, 0}, 0)[0], std::numeric_limits<qx_long>::min());
}

TEST_F(CellToNode, NullCellsMarkAllTheirNodes)
{
    const meshes::mesh_ptr made = line_of({0, 1, 2, 3});
    const float null = -5;
    EXPECT_EQ(means<float>(*made, {1, -5, 3}, 0, &null), (std::vector<float>{1, -5, -5, 3}));
    EXPECT_EQ(means<float>(*made, {1, -5, 3}, 0), (std::vector<float>{1, -2, -1, 3}));
}

TEST_F(CellToNode, LaterComponentsDoNotMakeACellNull)
{
    const meshes::mesh_ptr made = line_of({0, 1});
    const int data[2] = {4, 9}, null = 9;
    int out[4];
    ASSERT_EQ(UTILcell_to_node_cells(made->mesh, 0, DTYPE_INT, data, 2, 1, &null, 0, out, nullptr, nullptr),
              1);
    EXPECT_EQ(out[0], 4);
    EXPECT_EQ(out[1], 9);
}

TEST_F(CellToNode, NodeWithoutCellsIsZero)
{
    const meshes::mesh_ptr made = meshes::from_cells(1, {0, 1, 2}, {CELL_LINE}, {1}, {{0, 1}});
    for (int power : {0, 2})
        EXPECT_EQ(means<double>(*made, {5}, power), (std::vector<double>{5, 5, 0}));
}

TEST_F(CellToNode, WeightsAreInverseDistances)
{
    const meshes::mesh_ptr made = line_of({0, 2, 6});
    // Node 1 is 1 from the first middle and 2 from the second.
    EXPECT_FLOAT_EQ(means<float>(*made, {0, 30}, 1)[1], 10);
    EXPECT_FLOAT_EQ(means<float>(*made, {0, 30}, 2)[1], 6);
    EXPECT_FLOAT_EQ(means<float>(*made, {0, 30}, -1)[1], 20);
    // Equal cells: the plain mean.
    const meshes::mesh_ptr even = line_of({0, 1, 2, 3});
    EXPECT_EQ(means<float>(*even, {1, 2, 5}, 2), means<float>(*even, {1, 2, 5}, 0));
}

TEST_F(CellToNode, NodeInTheMiddleOfItsCellLosesItsDenominator)
{
    // The second cell is folded onto node 1: its middle is there.
    const meshes::mesh_ptr made = meshes::from_cells(1, {0, 4}, {CELL_LINE}, {1}, {{0, 1, 1, 1}});
    // 1/2 of 8 stays in the sum, and 10 comes in once for each mention; the weight is 1.
    EXPECT_EQ(means<float>(*made, {8, 10}, 1)[1], 8.0f / 2 + 20);
}

TEST_F(CellToNode, SlotsCarryFromSetToSet)
{
    const meshes::mesh_ptr made = meshes::from_cells(1, {0, 1, 2, 3}, {CELL_LINE, CELL_LINE, CELL_LINE},
                                                     {1, 1, 1}, {{0, 1}, {1, 2}, {2, 3}});
    const int data[3] = {2, 4, 6};
    int out[4] = {9, 9, 9, 9};
    float *weights = nullptr;
    unsigned char *marks = nullptr;
    host_calls::watch watch;
    ASSERT_EQ(UTILcell_to_node(made->mesh, 0, DTYPE_INT, data, 1, 0, nullptr, 0, out, &weights, &marks), 1);
    EXPECT_EQ(watch.live_blocks(), 2);
    EXPECT_EQ(std::vector<float>(weights, weights + 4), (std::vector<float>{1, 1, 0, 0}));
    EXPECT_EQ(std::vector<int>(out, out + 4), (std::vector<int>{2, 2, 0, 0}));
    ASSERT_EQ(UTILcell_to_node(made->mesh, 1, DTYPE_INT, data + 1, 1, 0, nullptr, 0, out, &weights, &marks),
              1);
    EXPECT_EQ(std::vector<int>(out, out + 4), (std::vector<int>{2, 6, 4, 0}));
    const float *held = weights;
    ASSERT_EQ(UTILcell_to_node(made->mesh, 2, DTYPE_INT, data + 2, 1, 0, nullptr, 0, out, &weights, &marks),
              1);
    EXPECT_EQ(std::vector<int>(out, out + 4), (std::vector<int>{2, 3, 5, 6}));
    EXPECT_EQ(weights, held); // the slots stay as they were; what they name is gone
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST_F(CellToNode, WhoeverStopsEarlyReleasesTheSlots)
{
    const meshes::mesh_ptr made =
        meshes::from_cells(1, {0, 1, 2}, {CELL_LINE, CELL_LINE}, {1, 1}, {{0, 1}, {1, 2}});
    const float data[1] = {1};
    float out[3], *weights = nullptr;
    unsigned char *marks = nullptr;
    host_calls::watch watch;
    ASSERT_EQ(UTILcell_to_node(made->mesh, 0, DTYPE_FLOAT, data, 1, 0, nullptr, 0, out, &weights, &marks), 1);
    free(weights);
    free(marks);
    EXPECT_EQ(watch.live_blocks(), 0);
}

// ---- failures ------------------------------------------------------------------------------------------------

TEST_F(CellToNode, WhatCannotBeHadLeavesEverythingAsItWas)
{
    const meshes::mesh_ptr made = line_of({0, 1, 2});
    const meshes::mesh_ptr lattice = lattices::uniform({{3, 3}, 2});
    const float data[4] = {1, 2, 3, 4};
    float out[9] = {5, 5, 5}, *weights = out;
    unsigned char mark = 3, *marks = &mark;
    for (int power : {0, 1}) {
        host_calls::reset();
        host_calls::watch watch;
        failing_fetches fetches(made->mesh);
        made->mesh->cell_connect[0] = nullptr;
        made->mesh->coords = nullptr;
        fetches.fail_connect_of_set = power == 0 ? 0 : -1;
        fetches.fail_coords = power;
        EXPECT_EQ(
            UTILcell_to_node(made->mesh, 0, DTYPE_FLOAT, data, 1, 0, nullptr, power, out, &weights, &marks),
            0);
        EXPECT_EQ(host_calls::report_texts(),
                  texts{power == 0 ? "fld_info: unable to get cell set connect list"
                                   : "fld_info: unable to get field coordinates"});
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    host_calls::reset();
    failing_fetches fetches(lattice->mesh);
    fetches.fail_coords = 1;
    EXPECT_EQ(UTILcell_to_node(lattice->mesh, 0, DTYPE_FLOAT, data, 1, 0, nullptr, 1, out, &weights, &marks),
              0);
    EXPECT_EQ(host_calls::report_texts(), texts{"fld_info: unable to get field coordinates"});
    EXPECT_EQ(out[0], 5);
    EXPECT_EQ(weights, out);
    EXPECT_EQ(marks, &mark);
}

TEST_F(CellToNode, UnknownTypesAreReported)
{
    const meshes::mesh_ptr made[2] = {line_of({0, 1, 2}), lattices::uniform({{3, 3}, 2})};
    const float data[4] = {};
    float out[9] = {5};
    for (const meshes::mesh_ptr &m : made)
        for (int type : {-1, 7}) {
            host_calls::reset();
            EXPECT_EQ(UTILcell_to_node(m->mesh, 0, type, data, 1, 0, nullptr, 0, out, nullptr, nullptr), 0);
            EXPECT_EQ(host_calls::report_texts(), texts{"UTILcell_to_node: unknown data type"});
        }
    EXPECT_EQ(out[0], 5);
}

TEST_F(CellToNode, RefusedMemoryIsAskedForAgain)
{
    const meshes::mesh_ptr made[2] = {line_of({0, 1, 2}), lattices::uniform({{3, 3}, 2})};
    const double data[4] = {1, 2, 3, 4}, null = 9;
    for (const meshes::mesh_ptr &m : made) {
        double expected[9], out[9];
        ASSERT_EQ(
            UTILcell_to_node(m->mesh, 0, DTYPE_DOUBLE, data, 1, 1, &null, 1, expected, nullptr, nullptr), 1);
        for (int k = 0; k < 2; ++k) {
            host_calls::reset();
            host_calls::watch watch;
            host_calls::fail_allocation(k);
            ASSERT_EQ(UTILcell_to_node(m->mesh, 0, DTYPE_DOUBLE, data, 1, 1, &null, 1, out, nullptr, nullptr),
                      1);
            EXPECT_EQ(memcmp(out, expected, static_cast<size_t>(m->nnodes()) * sizeof(double)), 0);
            EXPECT_EQ(host_calls::seen().out_of_memory.size(), 1u);
            EXPECT_EQ(watch.live_blocks(), 0);
        }
    }
}
