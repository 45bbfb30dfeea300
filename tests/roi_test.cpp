// Closed outlines: their start, their parameters, and the strip between two of them.
#include <skoklana/chart.h>

#include "support/fresh_host.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>

namespace {

using floats = std::vector<float>;
using numbers = std::vector<qx_long>;

struct sorted_outline {
    int result;
    numbers nodes;
    floats params;
};

sorted_outline sort_outline(const floats &xy, int side, qx_long first = 0, int stride = 2)
{
    const qx_long n = static_cast<qx_long>(xy.size()) / stride, range[2] = {first, first + n - 1};
    sorted_outline out = {0, numbers(static_cast<size_t>(n) + 1, -7), floats(static_cast<size_t>(n) + 1, -7)};
    out.result = UTILroi_sort_verts(stride, xy.data(), range, side, out.nodes.data(), out.params.data());
    return out;
}

struct strip {
    int result;
    numbers conn; // with the pair of the triangle that was not made
};

// The walk, told anew with lists: entries are pushed as they come.
strip walk_strip(const numbers &nodes1, const numbers &nodes2, const floats &params1, const floats &params2,
                 size_t n1, size_t n2, qx_long ntri)
{
    strip out = {0, {nodes1[0], nodes2[0]}};
    size_t i = 0, j = 0;
    qx_long count = 0;
    while (i < n1 && j < n2) {
        if (count >= ntri) {
            out.result = count == ntri;
            return out;
        }
        ++count;
        qx_long third;
        if (i + 1 < n1 && params2[j + 1] >= params1[i + 1]) {
            third = nodes1[++i];
        } else {
            ++j;
            if (j == n2) break;
            third = nodes2[j];
        }
        for (const qx_long node : {third, nodes1[i], nodes2[j]})
            out.conn.push_back(node);
    }
    out.result = count == ntri;
    return out;
}

strip connect(const sorted_outline &a, const sorted_outline &b, qx_long ntri, qx_long n1 = -1)
{
    if (n1 < 0) n1 = static_cast<qx_long>(a.nodes.size()) - 1;
    const qx_long n2 = static_cast<qx_long>(b.nodes.size()) - 1;
    const size_t room = 3 * static_cast<size_t>(std::max<qx_long>(ntri, 0)) + 2;
    strip out = {0, numbers(room, -7)};
    qx_long expected = ntri;
    out.result = UTILroi_connect_verts(n1, n2, a.nodes.data(), b.nodes.data(), a.params.data(),
                                       b.params.data(), &expected, out.conn.data());
    EXPECT_EQ(ntri, expected);
    return out;
}

// Star-shaped about the origin, anticlockwise.
floats star(std::mt19937_64 &random, int n, double size)
{
    std::uniform_real_distribution<double> part(0.3, 1);
    floats xy;
    for (int i = 0; i < n; ++i) {
        const double angle = 6.283185307179586 * (i + part(random) / 2) / n, radius = size * part(random);
        xy.push_back(static_cast<float>(radius * std::cos(angle)));
        xy.push_back(static_cast<float>(radius * std::sin(angle)));
    }
    return xy;
}

const floats square = {0, 0, 2, 0, 2, 2, 0, 2}; // anticlockwise

class Outline : public FreshHost {};

} // namespace

TEST_F(Outline, ASquareStartsAtTheCrossingOfEachSide)
{
    EXPECT_EQ((numbers{11, 12, 13, 10, 11}), sort_outline(square, 0, 10).nodes); // rising x: into vertex 1
    EXPECT_EQ((numbers{10, 11, 12, 13, 10}), sort_outline(square, 1, 10).nodes); // falling y: into vertex 0
    EXPECT_EQ((numbers{13, 10, 11, 12, 13}), sort_outline(square, 2, 10).nodes); // falling x: into vertex 3
    EXPECT_EQ((numbers{12, 13, 10, 11, 12}), sort_outline(square, 3, 10).nodes); // rising y: into vertex 2
    EXPECT_EQ((floats{0, 0.25f, 0.5f, 0.75f, 1}), sort_outline(square, 0).params);
}

TEST_F(Outline, AnEndOnTheCentreLineIsACrossing)
{
    // The centre is (1, 1); vertex 1 stands below it, and the edge into it ends there.
    const floats xy = {0, 0, 1, 0, 2, 0, 2, 2, 1, 2, 0, 2};
    EXPECT_EQ(1, sort_outline(xy, 0).nodes[0]);
    EXPECT_EQ(4, sort_outline(xy, 2).nodes[0]);
    // All on one line: each edge crosses it in every direction, and the first vertex wins.
    EXPECT_EQ(0, sort_outline({1, 0, 1, 3, 1, 5}, 0).nodes[0]);
    EXPECT_EQ(0, sort_outline({1, 0, 1, 3, 1, 5}, 2).nodes[0]);
}

TEST_F(Outline, WithoutLengthOrCrossingOrSideThereIsNone)
{
    const auto untouched = [](const sorted_outline &out) {
        return out.result == 0 && out.nodes == numbers(out.nodes.size(), -7) &&
               out.params == floats(out.params.size(), -7);
    };
    EXPECT_TRUE(untouched(sort_outline({3, 4}, 0)));
    EXPECT_TRUE(untouched(sort_outline({3, 4, 3, 4, 3, 4}, 0)));
    EXPECT_TRUE(untouched(sort_outline(square, 4)));
    EXPECT_TRUE(untouched(sort_outline(square, -1)));
    floats lost = square;
    lost[3] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(untouched(sort_outline(lost, 1)));
    const qx_long none[2] = {5, 4};
    EXPECT_EQ(0, UTILroi_sort_verts(2, square.data(), none, 0, nullptr, nullptr));
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(Outline, TheCentreIsThatOfThePerimeter)
{
    // Many vertices on the left side do not pull the centre there: by length it is (1, 1), by vertices x = 2 / 7.
    const floats xy = {0, 2, 0, 1.5f, 0, 1, 0, 0.5f, 0, 0, 2, 0, 2, 2};
    EXPECT_EQ(5, sort_outline(xy, 0).nodes[0]);
    // The edge from (0.25, 0) to (0.5, 0) would cross the centre of the vertices.
    const floats bent = {0, 2, 0, 1.5f, 0, 1, 0, 0.5f, 0, 0, 0.25f, 0, 0.5f, 0, 2, 0, 2, 2};
    EXPECT_EQ(7, sort_outline(bent, 0).nodes[0]);
}

TEST_F(Outline, RandomOutlinesAreTurnedAndMeasured)
{
    std::mt19937_64 random(14);
    std::set<qx_long> starts;
    for (int trial = 0; trial < 200; ++trial) {
        const int n = 3 + trial % 40, stride = 2 + trial % 3, side = trial % 4;
        const floats flat = star(random, n, 10);
        floats xy(static_cast<size_t>(n * stride), 1e9f);
        for (size_t i = 0; i < static_cast<size_t>(n); ++i)
            for (size_t d = 0; d < 2; ++d)
                xy[i * static_cast<size_t>(stride) + d] = flat[2 * i + d];
        const sorted_outline out = sort_outline(xy, side, 100, stride);
        ASSERT_EQ(1, out.result) << trial;
        std::vector<double> length;
        double total = 0, mean[2] = {0, 0};
        const auto before = [&](size_t i) { return i > 0 ? i - 1 : static_cast<size_t>(n) - 1; };
        for (size_t i = 0; i < static_cast<size_t>(n); ++i) {
            const float *a = &flat[2 * before(i)], *b = &flat[2 * i];
            length.push_back(std::hypot(static_cast<double>(b[0]) - a[0], static_cast<double>(b[1]) - a[1]));
            total += length.back();
            for (int d = 0; d < 2; ++d)
                mean[d] += (static_cast<double>(a[d]) + b[d]) / 2 * length.back();
        }
        const size_t axis = side % 2 == 0 ? 0 : 1;
        const bool rising = side == 0 || side == 3;
        const double line = mean[axis] / total;
        size_t start = 0;
        for (;; ++start) {
            ASSERT_LT(start, static_cast<size_t>(n));
            const double a = flat[2 * before(start) + axis], b = flat[2 * start + axis];
            if (rising ? a <= line && line <= b : a >= line && line >= b) break;
        }
        starts.insert(static_cast<qx_long>(start));
        double along = 0;
        for (size_t k = 0; k <= static_cast<size_t>(n); ++k) {
            const size_t i = (start + k) % static_cast<size_t>(n);
            if (k > 0) along += length[i] / total;
            EXPECT_EQ(100 + static_cast<qx_long>(i), out.nodes[k]) << trial << " " << k;
            EXPECT_NEAR(along, out.params[k], 1e-5) << trial << " " << k;
        }
        EXPECT_EQ(0, out.params[0]);
    }
    EXPECT_GT(starts.size(), 3u);
}

TEST_F(Outline, ParametersAreSummedAsTheyAreStored)
{
    floats xy;
    for (int i = 0; i < 1000; ++i) {
        xy.push_back(static_cast<float>(std::cos(i * 0.0062831853)));
        xy.push_back(static_cast<float>(std::sin(i * 0.0062831853)));
    }
    const sorted_outline out = sort_outline(xy, 0);
    EXPECT_NE(1.0f, out.params.back());
    EXPECT_NEAR(1.0, out.params.back(), 1e-4);
}

TEST_F(Outline, NothingIsLeftBehind)
{
    const qx_long range[2] = {0, 3};
    qx_long nodes[5];
    float params[5];
    const host_calls::watch watch;
    EXPECT_EQ(1, UTILroi_sort_verts(2, square.data(), range, 0, nodes, params));
    EXPECT_EQ(0, UTILroi_sort_verts(2, square.data(), range, 9, nodes, params));
    EXPECT_EQ(2, watch.allocations());
    EXPECT_EQ(0, watch.live_blocks());
    host_calls::fail_allocation(0);
    nodes[0] = -7;
    EXPECT_EQ(0, UTILroi_sort_verts(2, square.data(), range, 0, nodes, params));
    EXPECT_EQ(-7, nodes[0]);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(Outline, ATieStepsAlongTheFirstOne)
{
    const sorted_outline a = sort_outline(square, 0, 0), b = sort_outline(square, 0, 10);
    // Steps of a before b at 0.25, 0.5 and 0.75; the fourth step of a is never taken.
    const strip made = connect(a, b, 6);
    EXPECT_EQ(1, made.result);
    EXPECT_EQ((numbers{1, 11, 2, 2, 11, 12, 2, 12, 3, 3, 12, 13, 3, 13, 0, 0, 13, 10, 0, 10}), made.conn);
}

TEST_F(Outline, TheUnfinishedTriangleIsCounted)
{
    const sorted_outline a = sort_outline(square, 0, 0), b = sort_outline(square, 0, 10);
    const strip whole = connect(a, b, 7);
    EXPECT_EQ(1, whole.result);
    EXPECT_EQ((numbers{0, 10, -7}), (numbers{whole.conn.end() - 5, whole.conn.end() - 2}));
    EXPECT_EQ(0, connect(a, b, 8).result);
    EXPECT_EQ(1, connect(a, b, 3).result);
}

TEST_F(Outline, EmptyAndNegativeRequests)
{
    const sorted_outline a = sort_outline(square, 0, 0), b = sort_outline(square, 0, 10);
    for (const qx_long n1 : {0, 4}) {
        EXPECT_EQ(1, connect(a, b, 0, n1).result);
        EXPECT_EQ((numbers{1, 11}), connect(a, b, 0, n1).conn);
        EXPECT_EQ(0, connect(a, b, -1, n1).result);
        EXPECT_EQ((numbers{1, 11}), connect(a, b, -1, n1).conn);
    }
    EXPECT_EQ(0, connect(a, b, 1, 0).result);
    EXPECT_EQ((numbers{1, 11, -7, -7, -7}), connect(a, b, 1, 0).conn);
}

TEST_F(Outline, StarsAreJoinedWithoutAGap)
{
    std::mt19937_64 random(15);
    for (int trial = 0; trial < 100; ++trial) {
        const int n1 = 3 + trial % 17, n2 = 3 + trial % 23;
        const sorted_outline a = sort_outline(star(random, n1, 1), trial % 4, 0);
        const sorted_outline b = sort_outline(star(random, n2, 2), trial % 4, 1000);
        ASSERT_EQ(1, a.result & b.result);
        const qx_long ntri = n1 + n2 - 2;
        const strip made = connect(a, b, ntri);
        ASSERT_EQ(1, made.result) << trial;
        EXPECT_EQ(walk_strip(a.nodes, b.nodes, a.params, b.params, static_cast<size_t>(n1),
                             static_cast<size_t>(n2), ntri)
                      .conn,
                  made.conn);
        // Each triangle stands on the pair before it and takes one step along one outline.
        size_t i = 0, j = 0;
        for (size_t t = 0; t < static_cast<size_t>(ntri); ++t) {
            const qx_long *tri = &made.conn[3 * t];
            EXPECT_EQ(a.nodes[i], tri[0]);
            EXPECT_EQ(b.nodes[j], tri[1]);
            if (tri[2] < 1000) {
                EXPECT_LE(a.params[i + 1], b.params[j + 1]) << "the one behind moves";
                EXPECT_EQ(a.nodes[++i], tri[2]);
            } else {
                EXPECT_TRUE(i + 1 == static_cast<size_t>(n1) || b.params[j + 1] < a.params[i + 1]);
                EXPECT_EQ(b.nodes[++j], tri[2]);
            }
        }
        EXPECT_EQ(static_cast<size_t>(n1) - 1, i);
        EXPECT_EQ(static_cast<size_t>(n2) - 1, j);
        for (qx_long wanted = -1; wanted <= ntri + 2; ++wanted) {
            const strip expected = walk_strip(a.nodes, b.nodes, a.params, b.params, static_cast<size_t>(n1),
                                              static_cast<size_t>(n2), wanted);
            const strip got = connect(a, b, wanted);
            EXPECT_EQ(expected.result, got.result) << wanted;
            EXPECT_EQ(wanted >= 0 && wanted <= ntri + 1, got.result == 1);
            EXPECT_TRUE(std::equal(expected.conn.begin(), expected.conn.end(), got.conn.begin()));
        }
    }
}
