#include <skoklana/scatter.h>

#include "support/delaunay_reference.hpp"
#include "support/host_calls.hpp"
#include "support/point_clouds.hpp"

#include "in_sphere.hpp"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

using namespace point_clouds;

namespace {

qx_long *const untouched_3 = reinterpret_cast<qx_long *>(8);

struct tesselation_3 {
    int returned;
    qx_long count = -7;
    qx_long *conn = untouched_3;
    std::string said;

    tesselation_3(const cloud &c, const box &b, int check = 0)
    {
        testing::internal::CaptureStderr();
        returned = UTILdelaun_tess_3D(c.count(), c.coords.data(), b.min, b.max, check, &count, &conn);
        said = testing::internal::GetCapturedStderr();
    }
    tesselation_3(const tesselation_3 &) = delete;
    tesselation_3 &operator=(const tesselation_3 &) = delete;
    ~tesselation_3()
    {
        if (conn != untouched_3) free(conn);
    }

    std::vector<qx_long> rows() const { return {conn, conn + 4 * count}; }
};

void expect_same(const delaunay_reference::result &expected, const tesselation_3 &got,
                 const std::string &name)
{
    EXPECT_EQ(expected.returned, got.returned) << name;
    ASSERT_EQ(expected.count, got.count) << name;
    EXPECT_EQ(expected.conn, got.rows()) << name;
    EXPECT_EQ(expected.said, got.said) << name;
}

// Differences of the coordinates used here have 30 bits at most, so that these products are exact.
__extension__ typedef __float128 quad;

quad six_volumes(const cloud &c, const qx_long *v)
{
    quad d[3][3];
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 3; ++k)
            d[r][k] = quad(c.coords[3 * v[r + 1] + k]) - quad(c.coords[3 * v[0] + k]);
    return d[0][0] * (d[1][1] * d[2][2] - d[1][2] * d[2][1]) -
           d[0][1] * (d[1][0] * d[2][2] - d[1][2] * d[2][0]) +
           d[0][2] * (d[1][0] * d[2][1] - d[1][1] * d[2][0]);
}

// Right-handed volumes, faces shared by two cells at most, no point inside a sphere. Returns six times the volume.
double expect_valid(const cloud &c, const std::vector<qx_long> &rows)
{
    quad volume = 0;
    std::map<std::vector<qx_long>, int> faces;
    sphere_test exact;
    EXPECT_TRUE(exact.start());
    std::vector<double> wide(c.coords.begin(), c.coords.end());
    for (size_t t = 0; t < rows.size(); t += 4) {
        const quad six = six_volumes(c, &rows[t]);
        EXPECT_LT(static_cast<double>(six), 0) << "cell " << t / 4;
        volume -= six;
        const double *v[4];
        for (size_t k = 0; k < 4; ++k) {
            v[k] = &wide[static_cast<size_t>(3 * rows[t + k])];
            std::vector<qx_long> face(rows.begin() + static_cast<long>(t),
                                      rows.begin() + static_cast<long>(t) + 4);
            face.erase(face.begin() + static_cast<long>(k));
            std::sort(face.begin(), face.end());
            EXPECT_LE(++faces[face], 2);
        }
        for (qx_long p = 0; p < c.count(); ++p)
            EXPECT_FALSE(exact.holds(v, &wide[static_cast<size_t>(3 * p)])) << "cell " << t / 4 << ", " << p;
        if (testing::Test::HasFailure()) break;
    }
    return static_cast<double>(volume);
}

int sign_of(__int128 value)
{
    return value > 0 ? 1 : value < 0 ? -1 : 0;
}

__int128 det3_of(const qx_long *a, const qx_long *b, const qx_long *c)
{
    return __int128(a[0]) * (b[1] * c[2] - b[2] * c[1]) - __int128(a[1]) * (b[0] * c[2] - b[2] * c[0]) +
           __int128(a[2]) * (b[0] * c[1] - b[1] * c[0]);
}

// By expansion along the lifted column, for coordinates of 11 bits.
bool whole_holds(const qx_long v[4][3], const qx_long *p)
{
    qx_long d[4][3], lift[4];
    for (int r = 0; r < 4; ++r) {
        lift[r] = 0;
        for (int k = 0; k < 3; ++k) {
            d[r][k] = v[r][k] - p[k];
            lift[r] += d[r][k] * d[r][k];
        }
    }
    const __int128 sphere = -lift[0] * det3_of(d[1], d[2], d[3]) + lift[1] * det3_of(d[0], d[2], d[3]) -
                            lift[2] * det3_of(d[0], d[1], d[3]) + lift[3] * det3_of(d[0], d[1], d[2]);
    qx_long e[3][3];
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 3; ++k)
            e[r][k] = v[r][k] - v[3][k];
    return sign_of(sphere) * sign_of(det3_of(e[0], e[1], e[2])) > 0;
}

} // namespace

TEST(Delaunay3D, RowsAndWordsAreThoseOfTheListsInGeneralPosition)
{
    for (int n : {1, 2, 3, 4, 5, 8, 30, 200, 900})
        for (const auto &[shift, stretch] :
             std::vector<std::pair<float, float>>{{0, 0}, {0, 4}, {0.3f, 0}, {0, -0.3f}})
            for (const bool heaped : {false, true}) {
                const unsigned seed = static_cast<unsigned>(n);
                const cloud c = heaped ? clustered(3, n, seed) : spread(3, n, seed);
                const box b = box_of(c, shift, stretch);
                expect_same(delaunay_reference::tesselate<3>(c.coords, 3, b.min, b.max), tesselation_3(c, b),
                            std::to_string(n) + ", box " + std::to_string(shift) + " " +
                                std::to_string(stretch));
            }
    for (const auto &[factor, shift] :
         std::vector<std::pair<float, float>>{{1e-12f, 0}, {1e12f, 0}, {1, 1000}}) {
        const cloud c = moved(clustered(3, 400, 6), factor, shift);
        const box b = box_of(c);
        expect_same(delaunay_reference::tesselate<3>(c.coords, 3, b.min, b.max), tesselation_3(c, b),
                    "factor " + std::to_string(factor) + ", shift " + std::to_string(shift));
    }
    for (float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                      -std::numeric_limits<float>::infinity()}) {
        const cloud c = spoilt(3, 150, 5, bad);
        const box b = box_of(c);
        expect_same(delaunay_reference::tesselate<3>(c.coords, 3, b.min, b.max), tesselation_3(c, b),
                    std::to_string(bad));
    }
}

TEST(Delaunay3D, LatticesAreFilledByProperTetrahedra)
{
    for (float spacing : {1.0f, 0.1f, 0.7f})
        for (int side : {2, 3, 4, 6}) {
            const cloud c = lattice(3, side, spacing);
            const tesselation_3 got(c, box_of(c, 0, 100));
            const double edge = static_cast<double>(static_cast<float>(side - 1) * spacing);
            EXPECT_NEAR(1, expect_valid(c, got.rows()) / (6 * edge * edge * edge), 1e-12)
                << side << " of " << spacing;
            EXPECT_EQ("", got.said);
        }
}

TEST(Delaunay3D, WholeNumbersAndSpheresGiveProperTetrahedra)
{
    qx_long cells = 0;
    for (unsigned seed = 0; seed < 5; ++seed)
        for (const cloud &c : {whole(3, 120, 5, seed), whole(3, 200, 12, seed), round(3, 120, seed)}) {
            const tesselation_3 got(c, box_of(c));
            expect_valid(c, got.rows());
            EXPECT_EQ("", got.said);
            cells += got.count;
        }
    EXPECT_GT(cells, 3000);
}

TEST(Delaunay3D, LastVertexIsLastByXAndTheSecondHasTheLowestIdOfTheOthers)
{
    for (const cloud &c : {spread(3, 300, 1), lattice(3, 5, 0.1f)}) {
        const std::vector<qx_long> rows = tesselation_3(c, box_of(c)).rows();
        ASSERT_GT(rows.size(), 100u);
        for (size_t t = 0; t < rows.size(); t += 4) {
            EXPECT_LT(rows[t + 1], std::min(rows[t], rows[t + 2]));
            for (size_t k = 0; k < 3; ++k)
                EXPECT_LE(c.coords[static_cast<size_t>(3 * rows[t + k])],
                          c.coords[static_cast<size_t>(3 * rows[t + 3])]);
        }
    }
}

TEST(Delaunay3D, FlatBoxClearsTheOutputs)
{
    const cloud c = spread(3, 20, 1);
    for (int axis = 0; axis < 3; ++axis) {
        box b = box_of(c);
        b.max[axis] = b.min[axis];
        host_calls::reset();
        const tesselation_3 got(c, b, 1);
        EXPECT_EQ(1, got.returned);
        EXPECT_EQ(0, got.count);
        EXPECT_EQ(nullptr, got.conn);
        EXPECT_EQ("", got.said);
        EXPECT_TRUE(host_calls::seen().arrays.empty());
    }
}

TEST(Delaunay3D, FewPointsOrPointsInAPlaneGiveAnEmptyListThatIsThere)
{
    cloud flat = {3, {}};
    std::mt19937 random(1);
    for (int i = 0; i < 60; ++i) {
        const float x = static_cast<float>(random() % 64), y = static_cast<float>(random() % 64);
        flat.coords.insert(flat.coords.end(), {x, y, x + y});
    }
    for (const cloud &c : {cloud{3, {}}, spread(3, 1, 1), spread(3, 3, 1), slanted_line(3, 30), flat}) {
        host_calls::reset();
        const tesselation_3 got(c, box_of(c), 1);
        EXPECT_EQ(1, got.returned);
        EXPECT_EQ(0, got.count);
        EXPECT_NE(nullptr, got.conn);
        EXPECT_EQ("ucd_scat_to_tet: 0 bad tetras found\n", got.said);
        ASSERT_EQ(1u, host_calls::seen().arrays.size());
        EXPECT_EQ(DTYPE_QX_LONG, host_calls::seen().arrays[0].type);
        EXPECT_EQ(0, host_calls::seen().arrays[0].count % 4);
        EXPECT_GE(host_calls::seen().arrays[0].count, 4);
    }
}

TEST(Delaunay3D, PointsOnTheSidesOfTheCellAroundEverythingAreMovedOrSkipped)
{
    // A box from (1, 1, 1) to (3, 3, 3) has the cell's first corner at the origin: points with a coordinate 0 are
    // on its sides.
    std::mt19937 random(7);
    cloud c = {3, {}};
    for (int i = 0; i < 80; ++i)
        for (int k = 0; k < 3; ++k)
            c.coords.push_back(static_cast<float>(random() % 4));
    const box b = {{1, 1, 1}, {3, 3, 3}};
    const auto expected = delaunay_reference::tesselate<3>(c.coords, 3, b.min, b.max);
    EXPECT_GT(expected.moved, 0);
    const tesselation_3 got(c, b);
    EXPECT_EQ(1, got.returned);
    for (qx_long id : got.rows()) {
        EXPECT_GE(id, 0);
        EXPECT_LT(id, c.count());
    }
}

TEST(Delaunay3D, SkippedPointIsToldByThreeTimesItsId)
{
    // The lowest side is at z 1, and steps are too short to change that.
    std::mt19937 random(2);
    const float little = std::ldexp(1.0f, -60);
    cloud c = {3, {}};
    for (int i = 0; i < 40; ++i)
        c.coords.insert(c.coords.end(), {static_cast<float>(1 + random() % 5) * little,
                                         static_cast<float>(1 + random() % 5) * little,
                                         i % 4 == 0 ? 1.0f : static_cast<float>(2 + random() % 3)});
    const box b = {{little, little, 2}, {5 * little, 5 * little, 4}};
    const tesselation_3 got(c, b);
    std::istringstream lines(got.said);
    int told = 0;
    for (std::string line; std::getline(lines, line); ++told) {
        qx_long number;
        ASSERT_EQ(1, sscanf(line.c_str(), "scat_to_tet: skip point %" SCNd64, &number)) << line;
        ASSERT_EQ(0, number % 3);
        EXPECT_EQ(1.0f, c.coords[static_cast<size_t>(number + 2)]) << "on the side";
    }
    EXPECT_GT(told, 3);
}

TEST(Delaunay3D, CheckFindsNothingInAProperTesselation)
{
    const cloud c = spread(3, 300, 1);
    EXPECT_EQ("ucd_scat_to_tet: 0 bad tetras found\n", tesselation_3(c, box_of(c), 1).said);
}

TEST(Delaunay3D, CheckTellsThePointsInsideSpheres)
{
    size_t lines = 0;
    for (unsigned seed = 0; seed < 30; ++seed) {
        const cloud c = spread(3, 60, seed);
        const box b = box_of(c, 0.45f, -0.3f);
        const auto expected = delaunay_reference::tesselate<3>(c.coords, 3, b.min, b.max, true);
        const tesselation_3 got(c, b, 1);
        const auto count = [](const std::string &text) { return std::count(text.begin(), text.end(), '\n'); };
        EXPECT_EQ(count(expected.said), count(got.said)) << seed;
        lines += static_cast<size_t>(count(got.said)) - 1;
        if (count(got.said) > 1) {
            EXPECT_EQ(0u, got.said.find("tet (")) << got.said;
        }
    }
    EXPECT_GT(lines, 0u);
}

TEST(Delaunay3D, StatusIsCheckedAtEvery65thPoint)
{
    for (int n : {64, 65, 129, 130, 400}) {
        const cloud c = spread(3, n, 3);
        const box b = box_of(c);
        const auto expected = delaunay_reference::tesselate<3>(c.coords, 3, b.min, b.max);
        host_calls::reset();
        const tesselation_3 got(c, b);
        std::vector<int> percents;
        for (const host_calls::status &status : host_calls::seen().statuses)
            percents.push_back(status.percent);
        EXPECT_EQ(expected.percents, percents) << n;
        EXPECT_TRUE(host_calls::seen().pushes.empty());
    }
}

TEST(Delaunay3D, InterruptionClearsTheListAndTellsTheLiveTetrahedra)
{
    const cloud c = spread(3, 300, 3);
    const box b = box_of(c);
    for (int k = 0; k < 4; ++k) {
        const auto expected = delaunay_reference::tesselate<3>(c.coords, 3, b.min, b.max, false, k);
        host_calls::reset();
        host_calls::interrupt_at(k);
        const host_calls::watch watch;
        qx_long count = -7, *conn = untouched_3;
        EXPECT_EQ(0, UTILdelaun_tess_3D(300, c.coords.data(), b.min, b.max, 1, &count, &conn));
        EXPECT_EQ(nullptr, conn);
        EXPECT_EQ(0, expected.returned);
        EXPECT_EQ(expected.count, count);
        EXPECT_EQ(0, watch.live_blocks());
    }
    host_calls::reset();
}

TEST(Delaunay3D, NoMemoryIsSilentAndLeavesNothing)
{
    const cloud c = spread(3, 150, 3);
    const box b = box_of(c);
    bool all_failed = false;
    for (int k = 0; !all_failed; ++k) {
        host_calls::reset();
        const host_calls::watch watch;
        host_calls::fail_allocation(k);
        qx_long count = -7, *conn = untouched_3;
        testing::internal::CaptureStderr();
        const int returned = UTILdelaun_tess_3D(150, c.coords.data(), b.min, b.max, 1, &count, &conn);
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
    }
    host_calls::reset();
}

// ---- the exact test ------------------------------------------------------------------------------------

TEST(InSphere, AgreesWithWholeNumbersInEachOfItsForms)
{
    sphere_test exact;
    ASSERT_TRUE(exact.start());
    std::mt19937 random(3);
    int inside = 0, on_or_outside = 0;
    for (int round = 0; round < 4000; ++round) {
        // Few different numbers: many points on one sphere, and in one plane.
        const unsigned side = round % 3 == 0 ? 3 : round % 3 == 1 ? 6 : 1000;
        qx_long v[4][3], p[3];
        for (auto &row : v)
            for (qx_long &x : row)
                x = random() % side;
        for (qx_long &x : p)
            x = random() % side;
        const bool expected = whole_holds(v, p);
        ++(expected ? inside : on_or_outside);
        // Multiples of a large odd number are no small multiples of a power of two.
        for (double unit : {1.0, 0.125, 14348907.0}) {
            double wide[4][3], at[3];
            const double *rows[4];
            for (int k = 0; k < 3; ++k) {
                at[k] = static_cast<double>(p[k]) * unit;
                for (int r = 0; r < 4; ++r) {
                    wide[r][k] = static_cast<double>(v[r][k]) * unit;
                    rows[r] = wide[r];
                }
            }
            ASSERT_EQ(expected, exact.holds(rows, at)) << "round " << round << ", unit " << unit;
        }
    }
    EXPECT_GT(inside, 500);
    EXPECT_GT(on_or_outside, 500);
}

TEST(InSphere, TellsAPointThatIsInByLessThanADifferenceCanHold)
{
    sphere_test exact;
    ASSERT_TRUE(exact.start());
    const double r = 1048576, little = std::ldexp(1, -33);
    const double v[4][3] = {{r, 0, 0}, {-r, 0, 0}, {0, r, 0}, {0, 0, r}};
    const double *rows[4] = {v[0], v[1], v[2], v[3]}, *turned[4] = {v[1], v[0], v[2], v[3]};
    const double in[3] = {0, 0, -r + little}, on[3] = {0, 0, -r}, out[3] = {0, 0, -r - 2 * little};
    for (const double *const *way : {rows, turned}) {
        EXPECT_TRUE(exact.holds(way, in));
        EXPECT_FALSE(exact.holds(way, on));
        EXPECT_FALSE(exact.holds(way, out));
    }
}
