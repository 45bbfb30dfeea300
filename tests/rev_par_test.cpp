#include "support/cell_reference.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <limits>
#include <set>

using namespace cell_reference;

namespace {

constexpr float unwritten = 77;
using triple = std::array<float, 3>;

mapping map_point(const cell_functions &cell, const std::vector<float> &coords, const triple &point)
{
    mapping out = {0, {unwritten, unwritten, unwritten}, 0};
    out.result = cell.map_back(coords.data(), point.data(), out.uvw.data());
    for (int d = cell.ndim(); d < 3; ++d)
        EXPECT_EQ(out.uvw[static_cast<size_t>(d)], unwritten) << cell.name << " writes past its dimension";
    return out;
}

triple narrowed(const position &x)
{
    return {static_cast<float>(x[0]), static_cast<float>(x[1]), static_cast<float>(x[2])};
}

bool same_float(float a, float b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

// The largest error of the parameters.
double error_of(const cell_functions &cell, const triple &uvw, const position &at)
{
    double worst = 0;
    for (size_t d = 0; d < static_cast<size_t>(cell.ndim()); ++d)
        worst = std::max(worst, std::fabs(uvw[d] - at[d]));
    return worst;
}

// A position and what the limits say of it: on axes that are not barycentric the rims are -1 and 1.
struct rim {
    position at;
    bool inside;
};

// A little inside and a little outside of every limit of the kind.
std::vector<rim> rims_of(const cell_functions &cell)
{
    const int nbary = barycentric_axes(cell);
    std::vector<rim> rims;
    position middle = {0, 0, 0};
    for (size_t d = 0; d < static_cast<size_t>(nbary); ++d)
        middle[d] = nbary == 3 ? 0.25 : 0.3;
    for (int axis = 0; axis < cell.ndim(); ++axis) {
        const size_t d = static_cast<size_t>(axis);
        for (double beyond : {0.0, 0.04, 0.049, 0.051, 0.06}) {
            position low = middle, high = middle;
            if (axis < nbary) {
                low[d] = -beyond;
                for (size_t k = 0; k < static_cast<size_t>(nbary); ++k)
                    high[k] = (1 + beyond) / nbary; // the sum is at its limit
            } else {
                low[d] = -1 - beyond;
                high[d] = 1 + beyond;
            }
            rims.push_back({low, beyond < 0.05});
            rims.push_back({high, beyond < 0.05});
        }
    }
    return rims;
}

// Cells whose node 7 is at the origin: its weight does not matter then.
std::vector<float> with_node_7_at_the_origin(std::vector<float> coords)
{
    const triple origin = {coords[21], coords[22], coords[23]};
    for (size_t i = 0; i < coords.size(); ++i)
        coords[i] -= origin[i % 3];
    return coords;
}

} // namespace

// ---- points that are there -----------------------------------------------------------------------------------------

TEST(ReverseMapping, FindsPointsOfDistortedCellsOfEveryKind)
{
    for (const cell_functions &cell : cells) {
        SCOPED_TRACE(cell.name);
        std::mt19937_64 random(11);
        double worst = 0;
        for (int i = 0; i < 2000; ++i) {
            cell_shape_options options;
            options.inside_out = i % 2 == 1;
            options.bend = i % 3 == 0 ? 0.03 : 0;
            options.size = i % 5 == 0 ? 0.3 : 1.5;
            options.offset = {i % 7 * 0.5, 1, -0.25 * (i % 4)};
            std::vector<float> coords = random_cell(cell, random, options);
            if (has_odd_weights(cell)) coords = with_node_7_at_the_origin(coords);
            const position at = random_position(cell, random);
            const mapping got = map_point(cell, coords, narrowed(map_forward(cell, coords, at)));
            ASSERT_EQ(got.result, 1) << "cell " << i;
            worst = std::max(worst, error_of(cell, got.uvw, at));
        }
        EXPECT_LT(worst, 0.06) << "a step below 0.05 stays undone, and is about the error";
        if (has_closed_form(cell)) {
            EXPECT_LT(worst, 1e-4) << "closed form";
        } else {
            EXPECT_GT(worst, 1e-4) << "the step that is left out should show";
        }
    }
}

TEST(ReverseMapping, NeverFindsPointsBeyondTheTolerance)
{
    for (const cell_functions &cell : cells) {
        SCOPED_TRACE(cell.name);
        std::mt19937_64 random(12);
        int tried = 0;
        for (int i = 0; i < 2000; ++i) {
            cell_shape_options options;
            options.jitter = 0.05;
            options.inside_out = i % 2 == 1;
            std::vector<float> coords = random_cell(cell, random, options);
            if (has_odd_weights(cell)) coords = with_node_7_at_the_origin(coords);
            const position at = random_position(cell, random, 0.6);
            if (distance_beyond(cell, at) < 0.12)
                continue; // 0.05, the step that is left out, and some distortion
            ++tried;
            EXPECT_NE(map_point(cell, coords, narrowed(map_forward(cell, coords, at))).result, 1)
                << "cell " << i << " at " << at[0] << " " << at[1] << " " << at[2];
        }
        EXPECT_GT(tried, 300);
    }
}

TEST(ReverseMapping, AcceptsFivePercentBeyondEachRimAndNoMore)
{
    for (const cell_functions &cell : cells) {
        if (cell.kind == CELL_LINE && cell.order == 1) continue; // has its own rule, below
        std::vector<float> coords = unit_cell(cell);
        if (has_odd_weights(cell)) coords = with_node_7_at_the_origin(coords);
        for (const rim &limit : rims_of(cell)) {
            if (cell.kind == CELL_PYR && limit.at[2] == 1) continue; // the apex, see below
            const mapping got = map_point(cell, coords, narrowed(map_forward(cell, coords, limit.at)));
            EXPECT_EQ(got.result, limit.inside ? 1 : 0)
                << cell.name << " at " << limit.at[0] << " " << limit.at[1] << " " << limit.at[2];
            EXPECT_TRUE(got.result == 0 || error_of(cell, got.uvw, limit.at) < 1e-3) << "not clamped";
        }
    }
}

TEST(ReverseMapping, PointsOnFacesBelongToTheCell)
{
    for (const cell_functions &cell : cells) {
        std::vector<float> coords = unit_cell(cell);
        if (has_odd_weights(cell)) coords = with_node_7_at_the_origin(coords);
        for (int node = 0; node < cell.nnodes(); ++node) {
            const position at = node_position(cell, node);
            if (cell.kind == CELL_PYR && node == 0) continue; // degenerate there
            const mapping got = map_point(cell, coords, narrowed(map_forward(cell, coords, at)));
            EXPECT_EQ(got.result, 1) << cell.name << " node " << node;
            EXPECT_LT(error_of(cell, got.uvw, at), 1e-3) << cell.name << " node " << node;
        }
    }
}

TEST(ReverseMapping, PyramidsAreDegenerateAtTheirApex)
{
    const cell_functions &pyramid = cell_of(CELL_PYR, 1);
    EXPECT_EQ(map_point(pyramid, unit_cell(pyramid), {0, 0, 0.99f}).result, 1);
    EXPECT_EQ(map_point(pyramid, unit_cell(pyramid), {0, 0, 1}).result, -1);
    EXPECT_EQ(map_point(pyramid, unit_cell(pyramid), {0, 0, 1.04f}).result, 1)
        << "beyond it, but in the slack";
}

TEST(ReverseMapping, KeepsTheParametersOfAPointALittleOutside)
{
    const cell_functions &hex = cell_of(CELL_HEX, 1);
    const mapping got = map_point(hex, unit_cell(hex), {1.04f, 0, 0});
    EXPECT_EQ(got.result, 1);
    EXPECT_EQ(got.uvw, (triple{1.04f, 0, 0}));
    EXPECT_EQ(map_point(hex, unit_cell(hex), {1.06f, 0, 0}).result, 0);
}

TEST(ReverseMapping, LeavesAStepBelowFiveHundredthsUndone)
{
    for (const cell_functions &cell : cells) {
        if (has_closed_form(cell) || has_odd_weights(cell)) continue;
        const int nbary = barycentric_axes(cell);
        position start = {0, 0, 0};
        for (size_t d = 0; d < static_cast<size_t>(nbary); ++d)
            start[d] = static_cast<float>(1.0 / (nbary + 1));
        position near = start, off = start;
        near[0] += 0.049;
        off[0] += 0.051;
        const std::vector<float> coords = unit_cell(cell);
        const mapping kept = map_point(cell, coords, narrowed(map_forward(cell, coords, near)));
        const mapping moved = map_point(cell, coords, narrowed(map_forward(cell, coords, off)));
        EXPECT_EQ(kept.result, 1) << cell.name;
        EXPECT_EQ(error_of(cell, kept.uvw, start), 0) << cell.name << " keeps its first estimate";
        EXPECT_NEAR(moved.uvw[0], off[0], 2e-3) << cell.name;
    }
}

TEST(ReverseMapping, CellsGivenInsideOutAreMapped)
{
    const cell_functions &hex = cell_of(CELL_HEX, 1);
    std::vector<float> coords = unit_cell(hex);
    for (size_t i = 0; i < coords.size(); i += 3)
        coords[i] = -coords[i];
    const mapping got = map_point(hex, coords, {-0.5f, 0.25f, 0.75f});
    EXPECT_EQ(got.result, 1);
    EXPECT_EQ(got.uvw, (triple{0.5f, 0.25f, 0.75f}));
}

// ---- the same bits as the plain form -------------------------------------------------------------------------------

TEST(ReverseMapping, AgreesBitForBitWithThePlainForm)
{
    std::set<int> results;
    int most_steps = 0;
    for (const cell_functions &cell : cells) {
        SCOPED_TRACE(cell.name);
        std::mt19937_64 random(13);
        for (int i = 0; i < 3000; ++i) {
            cell_shape_options options;
            options.jitter = 0.1 * (i % 12); // up to cells that are folded all over
            options.bend = 0.05 * (i % 7);
            options.warp = 0.02 * (i % 5);
            options.inside_out = i % 2 == 1;
            options.size = std::pow(10.0, i % 9 - 4);
            options.offset = {i % 3 * options.size, 0, i % 11 * options.size};
            const std::vector<float> coords = random_cell(cell, random, options);
            triple point = narrowed(map_forward(cell, coords, random_position(cell, random, 0.2 * (i % 4))));
            if (i % 10 == 0) point[2] += static_cast<float>(0.2 * options.size);
            const mapping got = map_point(cell, coords, point);
            const mapping expected = map_back(cell, coords, point, {unwritten, unwritten, unwritten});
            ASSERT_EQ(got.result, expected.result) << "cell " << i;
            for (size_t d = 0; d < 3; ++d)
                ASSERT_TRUE(same_float(got.uvw[d], expected.uvw[d]))
                    << "cell " << i << ": " << got.uvw[d] << ", " << expected.uvw[d];
            results.insert(expected.result);
            most_steps = std::max(most_steps, expected.steps);
        }
    }
    EXPECT_EQ(results, (std::set<int>{-1, 0, 1}));
    EXPECT_EQ(most_steps, 20) << "the generator no longer makes cells that the iteration gets lost in";
}

TEST(ReverseMapping, ASecondOrderPrismIsSeldomFoundAwayFromTheOrigin)
{
    // Positions formed with its weights move with the origin, so the mapping of one cell depends on where
    // the cell stands.
    const cell_functions &prism = cell_of(CELL_PRISM, 2);
    std::mt19937_64 random(14);
    int at_home = 0, away = 0;
    for (int i = 0; i < 500; ++i) {
        std::vector<float> coords = with_node_7_at_the_origin(random_cell(prism, random, {}));
        const position at = random_position(prism, random);
        position x = map_forward(prism, coords, at);
        at_home += map_point(prism, coords, narrowed(x)).result == 1;
        for (float &c : coords)
            c += 20;
        for (double &c : x)
            c += 20;
        away += map_point(prism, coords, narrowed(x)).result == 1;
    }
    EXPECT_EQ(at_home, 500);
    EXPECT_LT(away, 100);
}

// ---- cells without extent, folds, endless iterations ------------------------------------------------------------------

TEST(ReverseMapping, CellsWithoutExtent)
{
    for (const cell_functions &cell : cells) {
        const std::vector<float> coords(static_cast<size_t>(3 * cell.nnodes()),
                                        0.5f); // all nodes in one point
        const mapping got = map_point(cell, coords, {0.5f, 0.5f, 0.5f});
        const bool by_measure = cell.order == 1 && (cell.kind == CELL_TRI || cell.kind == CELL_TET);
        EXPECT_EQ(got.result, by_measure ? 0 : -1) << cell.name;
        EXPECT_TRUE(!by_measure || error_of(cell, got.uvw, {0, 0, 0}) == 0) << cell.name;
    }
    float u = unwritten;
    const float line[6] = {1, 2, 3, 1, 2, 3}, point[3] = {1, 2, 3};
    EXPECT_EQ(UTILrev_par_line_1(line, point, &u), -1);
    EXPECT_EQ(u, unwritten);
}

TEST(ReverseMapping, FlatSolidsAndNarrowSurfaces)
{
    for (const cell_functions &cell : cells) {
        if (cell.ndim() == 1) continue;
        std::vector<float> coords = unit_cell(cell); // squeezed flat along the last axis of the cell
        for (size_t i = static_cast<size_t>(cell.ndim() - 1); i < coords.size(); i += 3)
            coords[i] = 0;
        const bool by_measure = cell.order == 1 && (cell.kind == CELL_TRI || cell.kind == CELL_TET);
        EXPECT_EQ(map_point(cell, coords, {0.1f, 0, 0}).result, by_measure ? 0 : -1) << cell.name;
    }
}

TEST(ReverseMapping, AFoldMetOnTheWayIsDegenerate)
{
    // y = v (1 + 2 u): the determinant is 1 at the start and negative below u = -0.5.
    const cell_functions &hex = cell_of(CELL_HEX, 1);
    std::vector<float> coords = unit_cell(hex);
    for (size_t i = 0; i < coords.size(); i += 3)
        coords[i + 1] *= 1 + 2 * coords[i];
    const mapping folded = map_point(hex, coords, {-0.9f, 0, 0});
    EXPECT_EQ(folded.result, -1);
    EXPECT_NEAR(folded.uvw[0], -0.9, 1e-6) << "the estimate at which it turned over";
    const mapping sound = map_point(hex, coords, {0.5f, 0.4f, 0});
    EXPECT_EQ(sound.result, 1);
    EXPECT_NEAR(sound.uvw[1], 0.2, 1e-3);
}

TEST(ReverseMapping, WhatDoesNotConvergeIsTestedAtTheLastEstimate)
{
    // A curve that turns back before the point is reached: the iteration leaps about its turning point.
    const cell_functions &line = cell_of(CELL_LINE, 2);
    int endless = 0, found = 0;
    for (int i = 0; i < 200; ++i) {
        const float tip = 1 + 0.005f * static_cast<float>(i);
        const std::vector<float> coords = {0, 0, 0, 0.2f, 0, 0, 1, 0, 0};
        const mapping got = map_point(line, coords, {tip, 0, 0});
        const mapping expected = map_back(line, coords, {tip, 0, 0}, {unwritten, unwritten, unwritten});
        EXPECT_EQ(got.result, expected.result);
        EXPECT_TRUE(same_float(got.uvw[0], expected.uvw[0]));
        endless += expected.steps == 20;
        found += expected.steps == 20 && got.result == 1;
    }
    EXPECT_GT(endless, 0);
    EXPECT_LT(found, endless);
}

// ---- surfaces and curves: the distance to them ---------------------------------------------------------------------------

namespace {

std::vector<float> square(float half_side)
{
    std::vector<float> coords = unit_cell(cell_of(CELL_QUAD, 1));
    for (float &x : coords)
        x *= half_side;
    return coords;
}

} // namespace

TEST(ReverseMapping, APointFarOffAQuadrilateralIsLeftBeforeAnyStep)
{
    const cell_functions &quad = cell_of(CELL_QUAD, 1);
    const mapping got = map_point(quad, square(8), {4, 4, 3});
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.uvw[0], 0);
    EXPECT_EQ(got.uvw[1], 0);
}

TEST(ReverseMapping, TheEarlyLimitOfAQuadrilateralGrowsWithItAndTheLateOneDoesNot)
{
    const cell_functions &quad = cell_of(CELL_QUAD, 1);
    // determinant 64, early limit 0.064
    const mapping late = map_point(quad, square(8), {4, -4, 0.06f});
    EXPECT_EQ(late.result, 0);
    EXPECT_NEAR(late.uvw[0], 0.5, 1e-5) << "inside, but for its distance";
    EXPECT_NEAR(late.uvw[1], -0.5, 1e-5);
    EXPECT_EQ(map_point(quad, square(8), {4, -4, 0.04f}).result, 1);
    EXPECT_EQ(map_point(quad, square(8), {4, -4, -0.04f}).result, 1);
    EXPECT_EQ(map_point(quad, square(8), {4, -4, -0.06f}).result, 0);
    // determinant 1, early limit 0.001
    const mapping early = map_point(quad, square(1), {0.5f, -0.5f, 0.04f});
    EXPECT_EQ(early.result, 0);
    EXPECT_EQ(early.uvw[0], 0);
    EXPECT_EQ(map_point(quad, square(1), {0.5f, -0.5f, 0.0009f}).result, 1);
    EXPECT_EQ(map_point(quad, square(1), {0.5f, -0.5f, 0.0011f}).result, 0);
}

TEST(ReverseMapping, SecondOrderSurfacesAndCurvesAcceptAnAbsoluteDistance)
{
    for (float size : {1.0f, 100.0f}) {
        for (int kind : {CELL_TRI, CELL_LINE}) {
            const cell_functions &cell = cell_of(kind, 2);
            std::vector<float> coords = unit_cell(cell);
            for (float &x : coords)
                x *= size;
            const float x = 0.25f * size, y = kind == CELL_TRI ? 0.25f * size : 0;
            EXPECT_EQ(map_point(cell, coords, {x, y, 0.04f}).result, 1) << cell.name << " " << size;
            EXPECT_EQ(map_point(cell, coords, {x, y, -0.06f}).result, 0) << cell.name << " " << size;
            if (kind == CELL_LINE) {
                EXPECT_EQ(map_point(cell, coords, {x, -0.04f, 0}).result, 1) << size;
                EXPECT_EQ(map_point(cell, coords, {x, 0.06f, 0}).result, 0) << size;
            }
        }
    }
}

// ---- closed forms -----------------------------------------------------------------------------------------------------------

TEST(ReverseMapping, LinearLineAcceptsByTheSumOfDistances)
{
    const cell_functions &line = cell_of(CELL_LINE, 1);
    const std::vector<float> coords = {0, 0, 0, 2, 0, 0};
    const auto at = [&](float x, float y) { return map_point(line, coords, {x, y, 0}); };
    EXPECT_EQ(at(0.5f, 0).result, 1);
    EXPECT_EQ(at(0.5f, 0).uvw[0], -0.5f);
    EXPECT_EQ(at(0, 0).uvw[0], -1);
    EXPECT_EQ(at(2, 0).uvw[0], 1);
    // Beyond an end the distances sum to 1 and twice the excess, so that 2.5 percent are left.
    EXPECT_EQ(at(2.048f, 0).result, 1);
    EXPECT_EQ(at(2.052f, 0).result, 0);
    EXPECT_EQ(at(-0.048f, 0).result, 1);
    EXPECT_GT(at(-0.048f, 0).uvw[0], -1) << "a distance is not signed";
    EXPECT_EQ(at(-0.052f, 0).result, 0);
    // Beside the line: an ellipse about the two ends.
    EXPECT_EQ(at(1, 0.31f).result, 1);
    EXPECT_EQ(at(1, 0.33f).result, 0);
    EXPECT_EQ(at(50, 0).result, 0);
    EXPECT_EQ(at(50, 0).uvw[0], 49) << "written before the test";
}

TEST(ReverseMapping, LinearTriangleRejectsPointsOffItsPlaneByTheirAreas)
{
    const cell_functions &tri = cell_of(CELL_TRI, 1);
    const std::vector<float> coords = unit_cell(tri);
    EXPECT_EQ(map_point(tri, coords, {0.25f, 0.5f, 0}).uvw[0], 0.25f);
    EXPECT_EQ(map_point(tri, coords, {0.25f, 0.5f, 0}).uvw[1], 0.5f);
    EXPECT_EQ(map_point(tri, coords, {0.3f, 0.3f, 0.05f}).result, 1);
    EXPECT_EQ(map_point(tri, coords, {0.3f, 0.3f, 0.8f}).result, 0);
}

TEST(ReverseMapping, SimplicesLeaveLaterParametersAtZeroOnceOneIsOut)
{
    const cell_functions &tri = cell_of(CELL_TRI, 1), &tet = cell_of(CELL_TET, 1);
    EXPECT_EQ(map_point(tri, unit_cell(tri), {-1, 0.5f, 0}).uvw, (triple{-1, 0, unwritten}));
    EXPECT_EQ(map_point(tri, unit_cell(tri), {0.5f, 3, 0}).uvw, (triple{0.5f, 3, unwritten}));
    EXPECT_EQ(map_point(tet, unit_cell(tet), {2, 0.5f, 0.5f}).uvw, (triple{2, 0, 0}));
    EXPECT_EQ(map_point(tet, unit_cell(tet), {0.5f, -2, 0.5f}).uvw, (triple{0.5f, -2, 0}));
    EXPECT_EQ(map_point(tet, unit_cell(tet), {0.5f, 0.25f, -2}).uvw, (triple{0.5f, 0.25f, -2}));
    const mapping beyond_the_sum = map_point(tet, unit_cell(tet), {0.5f, 0.5f, 0.5f});
    EXPECT_EQ(beyond_the_sum.result, 0);
    EXPECT_EQ(beyond_the_sum.uvw, (triple{0.5f, 0.5f, 0.5f}));
}

// ---- what is no number ----------------------------------------------------------------------------------------------------------

TEST(ReverseMapping, NaNAndInfinityAreNeverInACell)
{
    const float infinity = std::numeric_limits<float>::infinity();
    for (const cell_functions &cell : cells)
        for (float odd : {std::numeric_limits<float>::quiet_NaN(), infinity, -infinity, FLT_MAX}) {
            const std::vector<float> sound = unit_cell(cell);
            for (size_t d = 0; d < 3; ++d) {
                triple point = {0.3f, 0.3f, 0};
                point[d] = odd;
                EXPECT_NE(map_point(cell, sound, point).result, 1) << cell.name << " point " << odd;
            }
            for (size_t i = 0; i < sound.size(); ++i) {
                std::vector<float> coords = sound;
                coords[i] = odd;
                // A node that carries no weight where the point is leaves a finite cell: not asked of FLT_MAX.
                if (odd != FLT_MAX)
                    EXPECT_NE(map_point(cell, coords, {0.3f, 0.3f, 0}).result, 1)
                        << cell.name << " " << i << " " << odd;
                else
                    map_point(cell, coords, {0.3f, 0.3f, 0});
            }
        }
}
