#include <skoklana/scatter.h>

#include "support/delaunay_reference.hpp"
#include "support/host_calls.hpp"
#include "support/point_clouds.hpp"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

using namespace point_clouds;

namespace {

qx_long *const untouched_2 = reinterpret_cast<qx_long *>(8);

struct tesselation_2 {
    int returned;
    qx_long count = -7;
    qx_long *conn = untouched_2;
    std::string said;

    tesselation_2(const cloud &c, const box &b, int check = 0)
    {
        testing::internal::CaptureStderr();
        returned = UTILdelaun_tess_2D(c.count(), c.coords.data(), 2, b.min, b.max, check, &count, &conn);
        said = testing::internal::GetCapturedStderr();
    }
    tesselation_2(const tesselation_2 &) = delete;
    tesselation_2 &operator=(const tesselation_2 &) = delete;
    ~tesselation_2()
    {
        if (conn != untouched_2) free(conn);
    }

    std::vector<qx_long> rows() const { return {conn, conn + 3 * count}; }
};

struct named_cloud {
    std::string name;
    cloud points;
};

std::vector<named_cloud> clouds_2()
{
    std::vector<named_cloud> all;
    for (int n : {1, 2, 3, 4, 5, 9, 40, 300, 1500})
        all.push_back({"spread " + std::to_string(n), spread(2, n, static_cast<unsigned>(n))});
    for (unsigned seed : {1u, 2u, 3u}) {
        all.push_back({"clustered", clustered(2, 700, seed)});
        all.push_back({"whole numbers", whole(2, 400, 9, seed)});
        all.push_back({"few whole numbers", whole(2, 60, 4, seed)});
        all.push_back({"round", round(2, 150, seed)});
        all.push_back({"NaN", spoilt(2, 200, seed, std::numeric_limits<float>::quiet_NaN())});
        all.push_back({"infinity", spoilt(2, 200, seed, std::numeric_limits<float>::infinity())});
        all.push_back({"-infinity", spoilt(2, 200, seed, -std::numeric_limits<float>::infinity())});
    }
    all.push_back({"tiny", moved(clustered(2, 400, 7), 1e-30f, 0)});
    all.push_back({"huge", moved(clustered(2, 400, 8), 1e15f, 0)});
    all.push_back({"far off", moved(spread(2, 400, 9), 1, 5000)});
    all.push_back({"lattice", lattice(2, 30, 1)});
    all.push_back({"lattice of tenths", lattice(2, 25, 0.1f)});
    all.push_back({"circle of whole numbers", whole_circle()});
    all.push_back({"slanted line", slanted_line(2, 50)});
    return all;
}

// A box of extent 5 has its cell around everything at (-6, -1), (11, -1), (2.5, 10): points with y -1 and
// whole x are on a side of it.
cloud points_on_the_side(unsigned seed)
{
    std::mt19937 random(seed);
    cloud c = {2, {}};
    for (int i = 0; i < 60; ++i) {
        c.coords.push_back(static_cast<float>(static_cast<int>(random() % 16) - 5));
        c.coords.push_back(random() % 3 == 0 ? -1.0f : static_cast<float>(random() % 4));
    }
    return c;
}

const box side_box = {{0, 0, 0}, {5, 5, 0}};

// The same far up and in a narrow box: what is a 1000th of an edge along x changes no y.
cloud points_that_steps_leave_in_place(unsigned seed)
{
    cloud c = points_on_the_side(seed);
    for (size_t i = 0; i < c.coords.size(); i += 2) {
        c.coords[i] = std::ldexp(c.coords[i], -18);
        c.coords[i + 1] = std::ldexp(1.0f, 30) + 128 * c.coords[i + 1];
    }
    return c;
}

const box narrow_box = {{0, std::ldexp(1.0f, 30), 0},
                        {std::ldexp(5.0f, -18), std::ldexp(1.0f, 30) + 128 * 5, 0}};

void expect_same(const delaunay_reference::result &expected, const tesselation_2 &got,
                 const std::string &name)
{
    EXPECT_EQ(expected.returned, got.returned) << name;
    ASSERT_EQ(expected.count, got.count) << name;
    EXPECT_EQ(expected.conn, got.rows()) << name;
    EXPECT_EQ(expected.said, got.said) << name;
}

// ---- exact arithmetic on whole numbers ----------------------------------------------------------------

struct whole_point {
    qx_long x, y;
};

std::vector<whole_point> whole_points(const cloud &c)
{
    std::vector<whole_point> all;
    for (qx_long i = 0; i < c.count(); ++i)
        all.push_back({static_cast<qx_long>(c.coords[2 * i]), static_cast<qx_long>(c.coords[2 * i + 1])});
    return all;
}

qx_long twice_area(const whole_point &a, const whole_point &b, const whole_point &c)
{
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

// Above 0: p is inside the circle of a counter-clockwise triangle.
qx_long in_circle(const whole_point &a, const whole_point &b, const whole_point &c, const whole_point &p)
{
    const qx_long ax = a.x - p.x, ay = a.y - p.y, bx = b.x - p.x, by = b.y - p.y, cx = c.x - p.x,
                  cy = c.y - p.y;
    return (ax * ax + ay * ay) * (bx * cy - by * cx) - (bx * bx + by * by) * (ax * cy - ay * cx) +
           (cx * cx + cy * cy) * (ax * by - ay * bx);
}

} // namespace

TEST(Delaunay2D, RowsAndWordsAreThoseOfTheLists)
{
    qx_long empty = 0;
    for (const named_cloud &c : clouds_2())
        for (const auto &[shift, stretch] :
             std::vector<std::pair<float, float>>{{0, 0}, {0, 5}, {0.4f, 0}, {0, -0.3f}}) {
            const box b = box_of(c.points, shift, stretch);
            const auto expected = delaunay_reference::tesselate<2>(c.points.coords, 2, b.min, b.max);
            const tesselation_2 got(c.points, b);
            expect_same(expected, got,
                        c.name + ", box " + std::to_string(shift) + " " + std::to_string(stretch));
            empty += expected.empty_cavities;
        }
    EXPECT_GT(empty, 0);
}

TEST(Delaunay2D, MovedAndSkippedPointsAreThoseOfTheLists)
{
    qx_long moved = 0, skipped = 0, cells = 0;
    for (unsigned seed = 0; seed < 80; ++seed) {
        const bool narrow = seed % 2 != 0;
        const cloud c = narrow ? points_that_steps_leave_in_place(seed) : points_on_the_side(seed);
        const box b = narrow ? narrow_box : side_box;
        const auto expected = delaunay_reference::tesselate<2>(c.coords, 2, b.min, b.max, true);
        const tesselation_2 got(c, b, 1);
        expect_same(expected, got, "seed " + std::to_string(seed));
        moved += expected.moved;
        skipped += expected.skipped;
        cells += expected.count;
    }
    EXPECT_GT(moved, 50);
    EXPECT_GT(skipped, 10);
    EXPECT_GT(cells, 100);
}

TEST(Delaunay2D, SkippedPointIsToldByTwiceItsId)
{
    int told = 0;
    for (unsigned seed = 0; seed < 10; ++seed) {
        const tesselation_2 got(points_that_steps_leave_in_place(seed), narrow_box);
        const std::vector<qx_long> rows = got.rows();
        std::istringstream lines(got.said);
        for (std::string line; std::getline(lines, line); ++told) {
            qx_long number;
            ASSERT_EQ(1, sscanf(line.c_str(), "scat_to_tri: skip point %" SCNd64, &number)) << line;
            ASSERT_EQ(0, number % 2);
            EXPECT_EQ(rows.end(), std::find(rows.begin(), rows.end(), number / 2));
        }
    }
    EXPECT_GT(told, 3);
}

TEST(Delaunay2D, CheckTellsThePointsInsideCircles)
{
    // A box that is too small spoils the cells around the points outside it.
    size_t longest = 0;
    for (unsigned seed = 0; seed < 20; ++seed) {
        const cloud c = points_on_the_side(seed);
        const auto expected = delaunay_reference::tesselate<2>(c.coords, 2, side_box.min, side_box.max, true);
        const tesselation_2 got(c, side_box, 1);
        EXPECT_EQ(expected.said, got.said) << seed;
        longest = std::max(longest, static_cast<size_t>(std::count(got.said.begin(), got.said.end(), '\n')));
    }
    EXPECT_GT(longest, 3u);
    const cloud c = spread(2, 500, 1);
    EXPECT_EQ("ucd_scat_to_tet: 0 bad tetras found\n", tesselation_2(c, box_of(c), 1).said);
}

TEST(Delaunay2D, HitLineOfTheCheckBeginsWithABlank)
{
    for (unsigned seed = 0; seed < 40; ++seed) {
        const tesselation_2 got(points_on_the_side(seed), side_box, 1);
        const size_t at = got.said.find("includes point");
        if (at == std::string::npos) continue;
        EXPECT_NE(std::string::npos, got.said.find(" tri ("));
        EXPECT_NE(std::string::npos, got.said.find("  r="));
        return;
    }
    FAIL() << "no triangle with a point inside";
}

TEST(Delaunay2D, TrianglesOfWholeNumbersHoldNoPointAndCoverTheSquare)
{
    for (unsigned seed = 0; seed < 6; ++seed) {
        cloud c = whole(2, 150, 30, seed);
        for (float x : {0.0f, 29.0f})
            for (float y : {0.0f, 29.0f}) {
                c.coords.push_back(x);
                c.coords.push_back(y);
            }
        const std::vector<whole_point> p = whole_points(c);
        const tesselation_2 got(c, box_of(c, 0, 1000));
        const std::vector<qx_long> rows = got.rows();
        qx_long area = 0;
        std::map<std::pair<qx_long, qx_long>, int> edges;
        std::set<qx_long> used;
        for (size_t t = 0; t < rows.size(); t += 3) {
            const whole_point &a = p[rows[t]], &b = p[rows[t + 1]], &d = p[rows[t + 2]];
            ASSERT_GT(twice_area(a, b, d), 0);
            area += twice_area(a, b, d);
            for (const whole_point &q : p)
                ASSERT_LE(in_circle(a, b, d, q), 0);
            EXPECT_LE(std::max(a.x, b.x), d.x) << "the last vertex is the last by x";
            for (size_t k = 0; k < 3; ++k) {
                used.insert(rows[t + k]);
                ++edges[{rows[t + k], rows[t + (k + 1) % 3]}];
            }
        }
        EXPECT_EQ(2 * 29 * 29, area);
        std::set<std::pair<qx_long, qx_long>> sides;
        for (const auto &[edge, times] : edges) {
            EXPECT_EQ(1, times);
            sides.insert({std::min(edge.first, edge.second), std::max(edge.first, edge.second)});
        }
        EXPECT_EQ(1, static_cast<int>(used.size()) - static_cast<int>(sides.size()) +
                         static_cast<int>(rows.size() / 3));
    }
}

TEST(Delaunay2D, NoPointsGiveAnEmptyListThatIsThere)
{
    host_calls::reset();
    const tesselation_2 got({2, {}}, {{0, 0, 0}, {1, 1, 0}});
    EXPECT_EQ(1, got.returned);
    EXPECT_EQ(0, got.count);
    EXPECT_NE(nullptr, got.conn);
    ASSERT_EQ(1u, host_calls::seen().arrays.size());
    EXPECT_EQ(DTYPE_QX_LONG, host_calls::seen().arrays[0].type);
    EXPECT_EQ(3, host_calls::seen().arrays[0].count);
    EXPECT_EQ("", got.said);
}

TEST(Delaunay2D, ListHasRoomForEveryLiveTriangle)
{
    for (const named_cloud &c : clouds_2()) {
        const box b = box_of(c.points);
        host_calls::reset();
        const tesselation_2 got(c.points, b);
        const auto expected = delaunay_reference::tesselate<2>(c.points.coords, 2, b.min, b.max);
        ASSERT_EQ(1u, host_calls::seen().arrays.size()) << c.name;
        EXPECT_EQ(expected.allocated, host_calls::seen().arrays[0].count) << c.name;
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
}

TEST(Delaunay2D, FlatBoxLeavesTheOutputsAsTheyWere)
{
    const cloud c = spread(2, 20, 1);
    for (int axis = 0; axis < 2; ++axis) {
        box b = box_of(c);
        b.max[axis] = b.min[axis];
        const tesselation_2 got(c, b, 1);
        EXPECT_EQ(1, got.returned);
        EXPECT_EQ(-7, got.count);
        EXPECT_EQ(untouched_2, got.conn);
        EXPECT_EQ("", got.said);
    }
}

TEST(Delaunay2D, PointsOnALineGiveNoTriangles)
{
    const cloud c = slanted_line(2, 40);
    const tesselation_2 got(c, box_of(c), 1);
    EXPECT_EQ(1, got.returned);
    EXPECT_EQ(0, got.count);
    EXPECT_NE(nullptr, got.conn);
    EXPECT_EQ("ucd_scat_to_tet: 0 bad tetras found\n", got.said);
}

TEST(Delaunay2D, PointsInOnePlaceCountOnce)
{
    cloud c = spread(2, 100, 4);
    const box b = box_of(c);
    const std::vector<qx_long> once = tesselation_2(c, b).rows();
    const std::vector<float> coords = c.coords;
    c.coords.insert(c.coords.end(), coords.begin(), coords.end());
    c.coords.insert(c.coords.end(), coords.begin(), coords.end());
    const tesselation_2 got(c, b);
    EXPECT_EQ(once, got.rows()) << "the first of each place is taken";
    EXPECT_EQ("", got.said);
}

TEST(Delaunay2D, PointInfinitelyFarToTheRightLeavesNothing)
{
    cloud c = spread(2, 100, 4);
    const box b = box_of(c);
    c.coords.push_back(std::numeric_limits<float>::infinity());
    c.coords.push_back(0.5f);
    const tesselation_2 got(c, b, 1);
    EXPECT_EQ(1, got.returned);
    EXPECT_EQ(0, got.count);
    EXPECT_NE(nullptr, got.conn);
    EXPECT_EQ("ucd_scat_to_tet: 0 bad tetras found\n", got.said);
}

TEST(Delaunay2D, FurtherComponentsAreNotRead)
{
    const cloud c = spread(2, 200, 9);
    const box b = box_of(c);
    const std::vector<qx_long> expected = tesselation_2(c, b).rows();
    for (int nspace : {3, 5}) {
        std::vector<float> wide;
        for (qx_long i = 0; i < c.count(); ++i)
            for (int k = 0; k < nspace; ++k)
                wide.push_back(k < 2 ? c.coords[2 * i + k] : std::numeric_limits<float>::quiet_NaN());
        qx_long count = 0, *conn = nullptr;
        EXPECT_EQ(1, UTILdelaun_tess_2D(c.count(), wide.data(), nspace, b.min, b.max, 0, &count, &conn));
        EXPECT_EQ(expected, std::vector<qx_long>(conn, conn + 3 * count));
        free(conn);
    }
}

TEST(Delaunay2D, BoxTurnedRoundIsTakenAsItIs)
{
    const cloud c = spread(2, 300, 5);
    box b = box_of(c);
    std::swap(b.min[0], b.max[0]);
    expect_same(delaunay_reference::tesselate<2>(c.coords, 2, b.min, b.max), tesselation_2(c, b), "x");
    std::swap(b.min[1], b.max[1]);
    expect_same(delaunay_reference::tesselate<2>(c.coords, 2, b.min, b.max), tesselation_2(c, b), "x, y");
}

TEST(Delaunay2D, StatusIsCheckedAtEvery129thPoint)
{
    for (int n : {128, 129, 257, 258, 1000}) {
        cloud c = spread(2, n / 2, 3);
        c.coords.insert(c.coords.end(), c.coords.begin(), c.coords.end()); // rounds of doubles count
        const box b = box_of(c);
        const auto expected = delaunay_reference::tesselate<2>(c.coords, 2, b.min, b.max);
        host_calls::reset();
        const tesselation_2 got(c, b);
        std::vector<int> percents;
        for (const host_calls::status &status : host_calls::seen().statuses) {
            percents.push_back(status.percent);
            EXPECT_EQ(0, status.depth);
            EXPECT_EQ("", status.message);
        }
        EXPECT_EQ(expected.percents, percents) << n;
        EXPECT_TRUE(host_calls::seen().pushes.empty());
    }
}

TEST(Delaunay2D, InterruptionLeavesTheListAndTellsTheLiveTriangles)
{
    const cloud c = spread(2, 700, 3);
    const box b = box_of(c);
    for (int k = 0; k < 5; ++k) {
        host_calls::reset();
        host_calls::interrupt_at(k);
        const host_calls::watch watch;
        qx_long count = -7, *conn = untouched_2;
        EXPECT_EQ(0, UTILdelaun_tess_2D(700, c.coords.data(), 2, b.min, b.max, 1, &count, &conn));
        EXPECT_EQ(untouched_2, conn);
        EXPECT_EQ(1 + 2 * (128 + 129 * k), count);
        EXPECT_EQ(0, watch.live_blocks());
        EXPECT_EQ(static_cast<size_t>(k) + 1, host_calls::seen().statuses.size());
    }
    host_calls::reset();
}

TEST(Delaunay2D, NoMemoryIsSilentAndLeavesNothing)
{
    const cloud c = spread(2, 400, 3);
    const box b = box_of(c);
    bool all_failed = false;
    for (int k = 0; !all_failed; ++k) {
        host_calls::reset();
        const host_calls::watch watch;
        host_calls::fail_allocation(k);
        qx_long count = -7, *conn = untouched_2;
        testing::internal::CaptureStderr();
        const int returned = UTILdelaun_tess_2D(400, c.coords.data(), 2, b.min, b.max, 1, &count, &conn);
        const std::string said = testing::internal::GetCapturedStderr();
        if (host_calls::allocation_was_refused()) {
            EXPECT_EQ(0, returned) << k;
            EXPECT_EQ(0, count) << k;
            EXPECT_EQ(nullptr, conn) << k;
            EXPECT_EQ("", said);
        } else {
            all_failed = true;
            EXPECT_GT(k, 10);
            EXPECT_EQ(1, returned);
            free(conn);
        }
        EXPECT_EQ(0, watch.live_blocks()) << k;
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
    host_calls::reset();
}

TEST(Delaunay2D, CallerCoordinatesAreOnlyRead)
{
    const cloud c = points_on_the_side(3);
    const std::vector<float> before = c.coords;
    const tesselation_2 got(c, side_box);
    EXPECT_EQ(before, c.coords);
}

TEST(Delaunay2D, TesselationsMayRunSideBySide)
{
    const cloud a = spread(2, 2000, 1), b = clustered(2, 2000, 2);
    const auto run = [](const cloud &c) {
        const box around = box_of(c);
        qx_long count, *conn;
        UTILdelaun_tess_2D(c.count(), c.coords.data(), 2, around.min, around.max, 0, &count, &conn);
        std::vector<qx_long> rows(conn, conn + 3 * count);
        free(conn);
        return rows;
    };
    const std::vector<qx_long> alone_a = run(a), alone_b = run(b);
    std::vector<qx_long> beside;
    std::thread other([&] { beside = run(b); });
    EXPECT_EQ(alone_a, run(a));
    other.join();
    EXPECT_EQ(alone_b, beside);
}
