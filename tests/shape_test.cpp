#include "support/cell_reference.hpp"

#include <gtest/gtest.h>

#include <cfloat>

using namespace cell_reference;

namespace {

std::vector<float> floats_of(const cell_functions &cell, const position &at)
{
    std::vector<float> uvw; // as long as the cell has dimensions: a sanitizer sees a read past the end
    for (int d = 0; d < cell.ndim(); ++d)
        uvw.push_back(static_cast<float>(at[static_cast<size_t>(d)]));
    return uvw;
}

position widened(const std::vector<float> &uvw)
{
    position at = {0, 0, 0};
    for (size_t d = 0; d < uvw.size(); ++d)
        at[d] = uvw[d];
    return at;
}

std::vector<float> values_at(const cell_functions &cell, const std::vector<float> &uvw)
{
    std::vector<float> n(static_cast<size_t>(cell.nnodes()));
    cell.values(uvw.data(), n.data());
    return n;
}

std::vector<float> slopes_at(const cell_functions &cell, const std::vector<float> &uvw)
{
    std::vector<float> d(static_cast<size_t>(cell.nnodes() * cell.ndim()));
    cell.slopes(uvw.data(), d.data());
    return d;
}

// One unit in the last place of a float of this size.
double float_unit(double x)
{
    return std::fabs(x) * FLT_EPSILON + DBL_EPSILON;
}

template <typename Body> void at_random_positions(const cell_functions &cell, Body body)
{
    SCOPED_TRACE(cell.name);
    std::mt19937_64 random(17);
    for (int i = 0; i < 300; ++i) // in the cell, and well beyond it
        body(floats_of(cell, random_position(cell, random, i % 2 == 0 ? 0.0 : 1.5)));
}

// Node positions and their exceptions: a node stands where it should, or takes the weight of another.
double weight_at_node(const cell_functions &cell, int weight_of, int at_node)
{
    if (has_odd_weights(cell) && weight_of == 7) return at_node == 6;
    return weight_of == at_node;
}

} // namespace

TEST(ShapeFunctions, AreOneAtTheirOwnNodeAndZeroAtTheOthers)
{
    for (const cell_functions &cell : cells)
        for (int node = 0; node < cell.nnodes(); ++node) {
            position at = node_position(cell, node);
            const std::vector<float> n = values_at(cell, floats_of(cell, at));
            for (int k = 0; k < cell.nnodes(); ++k)
                EXPECT_EQ(n[static_cast<size_t>(k)], weight_at_node(cell, k, node))
                    << cell.name << " node " << k << " at node " << node;
        }
}

TEST(ShapeFunctions, AgreeWithTheFormulasInDouble)
{
    for (const cell_functions &cell : cells)
        at_random_positions(cell, [&](const std::vector<float> &uvw) {
            const std::vector<float> n = values_at(cell, uvw);
            const std::vector<double> expected = shape(cell, widened(uvw));
            ASSERT_EQ(n.size(), expected.size());
            for (size_t k = 0; k < n.size(); ++k)
                EXPECT_NEAR(n[k], expected[k], float_unit(expected[k]) + 1e-15) << "node " << k;
        });
}

TEST(ShapeFunctions, SumToOneInsideAndOutsideTheCell)
{
    for (const cell_functions &cell : cells) {
        if (has_odd_weights(cell)) continue;
        at_random_positions(cell, [&](const std::vector<float> &uvw) {
            double sum = 0, size = 0;
            for (float n : values_at(cell, uvw)) {
                sum += n;
                size += std::fabs(n);
            }
            EXPECT_NEAR(sum, 1, size * FLT_EPSILON);
        });
    }
}

TEST(ShapeFunctions, OfTheSecondOrderPrismDoNotSumToOne)
{
    const cell_functions &prism = cell_of(CELL_PRISM, 2);
    const std::vector<float> n = values_at(prism, {0.2f, 0.3f, 0.4f});
    double sum = 0;
    for (float x : n)
        sum += x;
    EXPECT_NEAR(sum, 0.748, 1e-6);
    at_random_positions(prism, [&](const std::vector<float> &uvw) {
        const std::vector<float> at = values_at(prism, uvw);
        EXPECT_EQ(at[6], at[7]);
    });
    // What is missing is the function that node 7 would have, less the one that it has.
    const double v = 0.3, u = 0.2, t = 0.5, w = 0.4;
    EXPECT_NEAR(1 - sum, 2 * v * t * (1 + w) - 2 * u * v * (1 + w), 1e-6);
}

TEST(ShapeFunctions, OfSecondOrderPrismNodes6And7AreOneAtNode6AndZeroAtNode7)
{
    const cell_functions &prism = cell_of(CELL_PRISM, 2);
    const std::vector<float> at_6 = values_at(prism, {0.5f, 0.5f, 1}), at_7 = values_at(prism, {0, 0.5f, 1});
    EXPECT_EQ(at_6[6], 1);
    EXPECT_EQ(at_6[7], 1);
    EXPECT_EQ(at_7[6], 0);
    EXPECT_EQ(at_7[7], 0);
}

TEST(ShapeFunctions, VerticalEdgesOfTheSecondOrderPrismRunVThenUThenT)
{
    const std::vector<float> n = values_at(cell_of(CELL_PRISM, 2), {0.5f, 0.125f, 0});
    EXPECT_EQ(n[12], 0.125f);
    EXPECT_EQ(n[13], 0.5f);
    EXPECT_EQ(n[14], 0.375f);
}

TEST(ShapeFunctions, HexahedraStartAtATopCornerWithUNegative)
{
    EXPECT_EQ(values_at(cell_of(CELL_HEX, 1), {-1, 1, 1})[0], 1);
    EXPECT_EQ(values_at(cell_of(CELL_HEX, 1), {-1, -1, 1})[0], 0);
    EXPECT_EQ(values_at(cell_of(CELL_HEX, 2), {-1, 1, 1})[0], 1);
}

TEST(ShapeFunctions, PyramidBaseIsZeroAllOverTheLevelOfTheApex)
{
    const cell_functions &pyramid = cell_of(CELL_PYR, 1);
    for (float u : {-1.0f, 0.0f, 0.7f, 3.0f})
        for (float v : {-1.0f, 0.25f, 1.0f})
            EXPECT_EQ(values_at(pyramid, {u, v, 1}), (std::vector<float>{1, 0, 0, 0, 0}));
}

TEST(ShapeDerivatives, AgreeWithDifferencesOfTheFunctionsInDouble)
{
    for (const cell_functions &cell : cells)
        at_random_positions(cell, [&](const std::vector<float> &uvw) {
            const std::vector<float> d = slopes_at(cell, uvw);
            const std::vector<double> expected = shape_slopes(cell, widened(uvw));
            ASSERT_EQ(d.size(), expected.size());
            for (size_t k = 0; k < d.size(); ++k)
                EXPECT_NEAR(d[k], expected[k], float_unit(expected[k]) + 1e-12) << "entry " << k;
        });
}

TEST(ShapeDerivatives, RowsSumToZero)
{
    for (const cell_functions &cell : cells)
        at_random_positions(cell, [&](const std::vector<float> &uvw) {
            const std::vector<float> d = slopes_at(cell, uvw);
            const size_t nnodes = static_cast<size_t>(cell.nnodes());
            for (size_t row = 0; row < d.size(); row += nnodes) {
                double sum = 0, size = 0;
                for (size_t k = row; k < row + nnodes; ++k) {
                    sum += d[k];
                    size += std::fabs(d[k]);
                }
                EXPECT_NEAR(sum, 0, size * FLT_EPSILON);
            }
        });
}

TEST(ShapeDerivatives, OfSecondOrderPrismNode7AreThoseOfItsOwnFunction)
{
    const cell_functions &prism = cell_of(CELL_PRISM, 2);
    at_random_positions(prism, [&](const std::vector<float> &uvw) {
        const double u = uvw[0], v = uvw[1], w = uvw[2], t = 1 - u - v;
        const std::vector<float> d = slopes_at(prism, uvw);
        EXPECT_NEAR(d[7], -2 * v * (1 + w), 1e-5);
        EXPECT_NEAR(d[15 + 7], 2 * (t - v) * (1 + w), 1e-5);
        EXPECT_NEAR(d[30 + 7], 2 * v * t, 1e-5);
    });
}

TEST(ShapeDerivatives, OfLinearSimplicesAreConstantAndReadNoParameters)
{
    float line[2], tri[6], tet[12];
    UTILsh_deriv_line_1(nullptr, line);
    UTILsh_deriv_tri_1(nullptr, tri);
    UTILsh_deriv_tet_1(nullptr, tet);
    EXPECT_EQ(std::vector<float>(line, line + 2), (std::vector<float>{-0.5f, 0.5f}));
    EXPECT_EQ(std::vector<float>(tri, tri + 6), (std::vector<float>{1, 0, -1, 0, 1, -1}));
    EXPECT_EQ(std::vector<float>(tet, tet + 12), (std::vector<float>{1, 0, 0, -1, 0, 1, 0, -1, 0, 0, 1, -1}));
}

TEST(ShapeFunctions, WriteAFloatANodeAndNoMore)
{
    for (const cell_functions &cell : cells) {
        const std::vector<float> uvw(static_cast<size_t>(cell.ndim()), 0.3f);
        const size_t nnodes = static_cast<size_t>(cell.nnodes()), ndim = uvw.size();
        std::vector<float> n(nnodes + 1, 77), d(nnodes * ndim + 1, 77);
        cell.values(uvw.data(), n.data());
        cell.slopes(uvw.data(), d.data());
        EXPECT_EQ(n.back(), 77) << cell.name;
        EXPECT_EQ(d.back(), 77) << cell.name;
    }
}

TEST(CellNodes, FurtherNodesStandInTheMiddleOfDifferentEdges)
{
    for (const cell_kind_nodes &kind : cell_kinds) {
        std::vector<std::array<int, 2>> edges;
        for (int node = kind.ncorners; node < kind.nnodes_2; ++node)
            for (int a = 0; a < kind.ncorners; ++a)
                for (int b = a + 1; b < kind.ncorners; ++b) {
                    bool middle = true;
                    for (int d = 0; d < 3; ++d) {
                        middle = middle &&
                                 (kind.position[a][d] + kind.position[b][d]) / 2 == kind.position[node][d];
                    }
                    // The diagonals of a face share a middle, and no node stands there.
                    if (middle) edges.push_back({a, b});
                }
        EXPECT_EQ(edges.size(), static_cast<size_t>(kind.nnodes_2 - kind.ncorners));
    }
}
