#include "support/fresh_host.hpp"
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <skoklana/iso.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using numbers = std::vector<qx_long>;
using floats = std::vector<float>;
using normal_of = std::array<float, 3>;

constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

struct grid {
    qx_long count = -7;
    qx_long dims[2] = {-7, -7};
    floats points, xform = floats(16, -7);
    numbers lo, hi;
    floats weight; // 0 outside
    std::vector<unsigned char> valid;
};

using form = decltype(&UTILrslice_unif);

grid slice(form func, const numbers &dims, const floats &points, normal_of normal, double d, int nspace = 3)
{
    grid out;
    qx_long *lo = nullptr, *hi = nullptr;
    float *weight = nullptr;
    unsigned char *valid = nullptr;
    out.points.assign(static_cast<size_t>(nspace * (dims[0] + dims[1] + dims[2])), -7);
    out.count = func(dims.data(), points.data(), normal.data(), d, out.dims, out.points.data(), nspace,
                     out.xform.data(), &lo, &hi, &weight, &valid);
    const qx_long n = out.dims[0] * out.dims[1];
    EXPECT_NE(lo, nullptr);
    out.lo.assign(lo, lo + n);
    out.hi.assign(hi, hi + n);
    out.valid.assign(valid, valid + n);
    for (qx_long i = 0; i < n; ++i)
        out.weight.push_back(valid[i] == 1 ? weight[i] : 0);
    free(lo);
    free(hi);
    free(weight);
    free(valid);
    return out;
}

// ---- reference: one rounding a line ---------------------------------------------------------------------

float minus(float a, float b)
{
    volatile float r = a - b;
    return r;
}
float times(float a, float b)
{
    volatile float r = a * b;
    return r;
}
float over(float a, float b)
{
    volatile float r = a / b;
    return r;
}
float plus(float a, float b)
{
    volatile float r = a + b;
    return r;
}

struct slow_slice {
    bool rect;
    numbers dims;
    floats points;
    normal_of a;
    float d;
    int nspace;
    int u, v, w;
    grid out;

    slow_slice(bool is_rect, numbers dims_, floats points_, normal_of normal, double distance, int nspace_)
        : rect(is_rect), dims(std::move(dims_)), points(std::move(points_)), a(normal),
          d(static_cast<float>(distance)), nspace(nspace_)
    {
        w = 0;
        if (std::fabs(a[1]) > std::fabs(a[0])) w = 1;
        if (std::fabs(a[2]) > std::fabs(at(w))) w = 2;
        u = w == 2 ? 0 : w == 0 ? 1 : 2;
        v = w == 2 ? 1 : w == 0 ? 2 : 0;
        out.count = 0;
        out.dims[0] = n(u);
        out.dims[1] = n(v);
        frame();
        out.points.assign(static_cast<size_t>(nspace * (dims[0] + dims[1] + dims[2])), -7);
        if (rect)
            walk_rect();
        else
            walk_unif();
    }

    float at(int axis) const { return a[static_cast<size_t>(axis)]; }
    qx_long n(int axis) const { return dims[static_cast<size_t>(axis)]; }
    float x(int axis, qx_long i) const
    {
        qx_long before = 0;
        for (int k = 0; k < axis; ++k)
            before += n(k);
        return points[static_cast<size_t>(3 * (before + i) + axis)];
    }
    float min(int axis) const { return rect ? x(axis, 0) : points[static_cast<size_t>(axis)]; }
    float max(int axis) const { return rect ? x(axis, n(axis) - 1) : points[static_cast<size_t>(3 + axis)]; }
    float solved(float at_u, float at_v) const
    {
        return over(minus(minus(d, times(at(u), at_u)), times(at(v), at_v)), at(w));
    }

    void frame()
    {
        float p[3][3];
        for (int corner = 0; corner < 3; ++corner) {
            p[corner][u] = corner == 1 ? max(u) : min(u);
            p[corner][v] = corner == 2 ? max(v) : min(v);
            p[corner][w] = solved(p[corner][u], p[corner][v]);
        }
        floats &m = out.xform;
        m.assign(16, 0);
        float r[3][3];
        for (int k = 0; k < 3; ++k) {
            r[0][k] = minus(p[1][k], p[0][k]);
            r[1][k] = minus(p[2][k], p[0][k]);
        }
        r[2][0] = minus(times(r[0][1], r[1][2]), times(r[0][2], r[1][1]));
        r[2][1] = minus(times(r[0][2], r[1][0]), times(r[0][0], r[1][2]));
        r[2][2] = minus(times(r[0][0], r[1][1]), times(r[0][1], r[1][0]));
        const float squares =
            plus(plus(times(r[2][0], r[2][0]), times(r[2][1], r[2][1])), times(r[2][2], r[2][2]));
        const float length = static_cast<float>(std::sqrt(static_cast<double>(squares)));
        for (int k = 0; k < 3; ++k) {
            if (length > 1e-32) r[2][k] = over(r[2][k], length);
            for (int row = 0; row < 3; ++row)
                m[static_cast<size_t>(4 * row + k)] = r[row][k];
            m[static_cast<size_t>(12 + k)] = p[0][k];
        }
        m[15] = 1;
    }

    void add(bool inside, qx_long i, qx_long j, qx_long k, float weight)
    {
        out.valid.push_back(inside);
        out.weight.push_back(inside ? weight : 0);
        qx_long lo[3] = {}, hi[3] = {};
        lo[u] = hi[u] = i;
        lo[v] = hi[v] = j;
        lo[w] = k;
        hi[w] = k + 1;
        out.lo.push_back(inside ? lo[2] * dims[0] * dims[1] + dims[0] * lo[1] + lo[0] : -1);
        out.hi.push_back(inside ? hi[2] * dims[0] * dims[1] + dims[0] * hi[1] + hi[0] : -1);
        out.count += inside;
    }

    void walk_unif()
    {
        for (int k = 0; k < nspace; ++k) {
            out.points[static_cast<size_t>(k)] = 0;
            out.points[static_cast<size_t>(nspace + k)] = 1;
        }
        float s[3];
        for (int k = 0; k < 3; ++k)
            s[k] = n(k) == 1 ? 0 : over(minus(max(k), min(k)), static_cast<float>(n(k) - 1));
        const float t0 = over(minus(out.xform[static_cast<size_t>(12 + w)], min(w)), s[w]);
        const float du = over(times(s[u], at(u)), times(s[w], at(w)));
        const float dv = over(times(s[v], at(v)), times(s[w], at(w)));
        for (qx_long j = 0; j < n(v); ++j) {
            float t = minus(t0, times(static_cast<float>(j), dv));
            for (qx_long i = 0; i < n(u); ++i) {
                const bool inside = t >= 0 && t <= static_cast<float>(n(w) - 1) && n(w) > 1;
                if (!inside) {
                    add(false, i, j, 0, 0);
                } else {
                    const qx_long k = static_cast<qx_long>(t);
                    if (k == n(w) - 1)
                        add(true, i, j, k - 1, 1);
                    else
                        add(true, i, j, k, minus(t, static_cast<float>(k)));
                }
                t = minus(t, du);
            }
        }
    }

    void walk_rect()
    {
        size_t row = 0;
        for (int axis : {u, v})
            for (qx_long i = 0; i < n(axis); ++i, ++row)
                for (int k = 0; k < nspace; ++k) {
                    const float length = minus(max(axis), min(axis));
                    const bool own = k == (axis == u ? 0 : 1);
                    out.points[row * static_cast<size_t>(nspace) + static_cast<size_t>(k)] =
                        own && length != 0 ? over(minus(x(axis, i), min(axis)), length) : 0;
                }
        for (qx_long j = 0; j < n(v); ++j)
            for (qx_long i = 0; i < n(u); ++i) {
                const float at_w = over(minus(minus(d, times(at(v), x(v, j))), times(at(u), x(u, i))), at(w));
                qx_long found = -1;
                for (qx_long m = 0; m + 1 < n(w) && found < 0; ++m)
                    if ((x(w, m) <= at_w && at_w <= x(w, m + 1)) || (x(w, m) >= at_w && at_w >= x(w, m + 1)))
                        found = m;
                add(found >= 0, i, j, found,
                    found < 0 ? 0 : over(minus(at_w, x(w, found)), minus(x(w, found + 1), x(w, found))));
            }
    }
};

bool same_numbers(const floats &a, const floats &b)
{
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (!(a[i] == b[i] || (std::isnan(a[i]) && std::isnan(b[i])))) return false;
    return true;
}

grid expect_reference(bool rect, const numbers &dims, const floats &points, normal_of normal, double d,
                      int nspace = 3)
{
    const grid got = slice(rect ? UTILrslice_rect : UTILrslice_unif, dims, points, normal, d, nspace);
    const slow_slice expected(rect, dims, points, normal, d, nspace);
    EXPECT_EQ(got.count, expected.out.count);
    EXPECT_EQ(got.dims[0], expected.out.dims[0]);
    EXPECT_EQ(got.dims[1], expected.out.dims[1]);
    EXPECT_TRUE(same_numbers(got.points, expected.out.points));
    EXPECT_TRUE(same_numbers(got.xform, expected.out.xform));
    EXPECT_EQ(got.lo, expected.out.lo);
    EXPECT_EQ(got.hi, expected.out.hi);
    EXPECT_EQ(got.valid, expected.out.valid);
    EXPECT_TRUE(same_numbers(got.weight, expected.out.weight));
    return got;
}

// Rows of three for each node of each axis; the entries of other axes are never read.
floats rect_points(const std::vector<floats> &axes)
{
    floats points;
    for (size_t a = 0; a < 3; ++a)
        for (float x : axes[a]) {
            floats row(3, not_a_number);
            row[a] = x;
            points.insert(points.end(), row.begin(), row.end());
        }
    return points;
}

const floats unit_box = {0, 0, 0, 1, 1, 1};
const numbers cube = {3, 3, 3};

class Rslice : public FreshHost {};

} // namespace

// ---- uniform meshes -------------------------------------------------------------------------------------

TEST_F(Rslice, PlaneThroughALayerOfNodesTakesTheEdgeAbove)
{
    const grid got = expect_reference(false, cube, unit_box, {0, 0, 1}, 0.5);
    EXPECT_EQ(got.count, 9);
    EXPECT_EQ(got.lo, (numbers{9, 10, 11, 12, 13, 14, 15, 16, 17}));
    EXPECT_EQ(got.hi, (numbers{18, 19, 20, 21, 22, 23, 24, 25, 26}));
    EXPECT_EQ(got.weight, floats(9, 0));
    EXPECT_EQ(got.xform, (floats{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0.5f, 1}));
    EXPECT_EQ(floats(got.points.begin(), got.points.begin() + 6), (floats{0, 0, 0, 1, 1, 1}));
}

TEST_F(Rslice, PlaneThroughTheLastLayerTakesTheEdgeBelow)
{
    const grid got = expect_reference(false, cube, unit_box, {0, 0, 2}, 2);
    EXPECT_EQ(got.count, 9);
    EXPECT_EQ(got.lo[0], 9);
    EXPECT_EQ(got.hi[0], 18);
    EXPECT_EQ(got.weight, floats(9, 1));
}

TEST_F(Rslice, PlaneOutsideHasListsAndNoValidNode)
{
    for (double d : {-0.25, 1.25}) {
        const grid got = expect_reference(false, cube, unit_box, {0, 0, 1}, d);
        EXPECT_EQ(got.count, 0);
        EXPECT_EQ(got.lo, numbers(9, -1));
        EXPECT_EQ(got.hi, numbers(9, -1));
        EXPECT_EQ(got.valid, std::vector<unsigned char>(9, 0));
        EXPECT_EQ(got.xform[14], static_cast<float>(d)) << "the plane is placed all the same";
    }
}

TEST_F(Rslice, TiltedPlaneLeavesTheMesh)
{
    const grid got = expect_reference(false, {5, 5, 5}, {0, 0, 0, 4, 4, 4}, {1, 0, 1}, 4);
    EXPECT_EQ(got.count, 25);
    const grid half = expect_reference(false, {5, 5, 5}, {0, 0, 0, 4, 4, 4}, {1, 0, 1}, 2);
    EXPECT_EQ(half.dims[0], 5);
    EXPECT_EQ(half.count, 15) << "ties go to x, and above z 3 and 4 it is outside";
}

TEST_F(Rslice, TheLargestComponentChoosesTheAxisAndTiesGoToTheLower)
{
    const numbers dims = {2, 3, 4};
    const struct {
        normal_of normal;
        qx_long u, v;
    } cases[] = {{{1, 1, 1}, 3, 4},
                 {{0, 1, 1}, 4, 2},
                 {{1, 0, 1}, 3, 4},
                 {{-1, 1, 0}, 3, 4},
                 {{0, -2, 1}, 4, 2},
                 {{0, 1, -2}, 2, 3},
                 {{not_a_number, 1, 0}, 3, 4},
                 {{1, not_a_number, 2}, 2, 3},
                 {{1, -infinite, 2}, 4, 2},
                 {{0, 0, 0}, 3, 4},
                 {{1, 2, -2}, 4, 2}};
    for (const auto &c : cases) {
        const grid got = expect_reference(false, dims, unit_box, c.normal, 0.5);
        EXPECT_EQ(got.dims[0], c.u);
        EXPECT_EQ(got.dims[1], c.v);
    }
}

TEST_F(Rslice, NormalRowIsThatOfTheSidesNotTheOneGiven)
{
    for (float sign : {1.0f, -1.0f}) {
        const grid got =
            expect_reference(false, cube, unit_box, {0, 0, sign}, 0.5 * static_cast<double>(sign));
        EXPECT_EQ(got.xform[10], 1);
        EXPECT_EQ(got.count, 9);
    }
    const grid descending = expect_reference(false, cube, {1, 0, 0, 0, 1, 1}, {0, 0, 1}, 0.5);
    EXPECT_EQ(descending.xform[10], -1);
    EXPECT_EQ(descending.count, 9);
}

TEST_F(Rslice, PositionsBuildUpBySubtractionInEachRow)
{
    // A slope that is not exact in float: the last node of a row is off by more than a rounding.
    const numbers dims = {1000, 3, 3};
    const floats box = {0, 0, 0, 1, 1, 1};
    const normal_of normal = {0.1f, 0.3f, 1};
    const grid got = expect_reference(false, dims, box, normal, 0.7);
    const float exact = static_cast<float>((0.7 - static_cast<double>(0.1f)) * 2);
    ASSERT_EQ(got.valid[999], 1);
    EXPECT_NE(got.weight[999] + 1, exact);
    EXPECT_NEAR(got.weight[999] + 1, exact, 1e-3);
}

TEST_F(Rslice, OneNodeAlongAnAxis)
{
    EXPECT_EQ(expect_reference(false, {3, 3, 1}, unit_box, {0, 0, 1}, 0).count, 0) << "no edge along w";
    EXPECT_EQ(expect_reference(false, {1, 3, 3}, unit_box, {0, 0, 1}, 0.5).count, 3);
    EXPECT_EQ(expect_reference(false, {3, 1, 3}, unit_box, {0, 0, 1}, 0.5).count, 3);
    EXPECT_EQ(expect_reference(false, {1, 1, 3}, unit_box, {0.5f, 0.25f, 1}, 0.5).count, 1);
}

TEST_F(Rslice, WhatIsNoPlaneIsNowhere)
{
    for (normal_of normal :
         {normal_of{0, 0, 0}, normal_of{not_a_number, not_a_number, not_a_number}, normal_of{infinite, 0, 0}})
        for (double d : {0.0, 0.5, static_cast<double>(not_a_number), static_cast<double>(infinite)})
            for (bool rect : {false, true}) {
                const floats points = rect ? rect_points({{0, 1, 2}, {0, 1, 2}, {0, 1, 2}}) : unit_box;
                const grid got = expect_reference(rect, cube, points, normal, d);
                for (qx_long node : got.hi)
                    EXPECT_LT(node, 27);
            }
}

TEST_F(Rslice, TwoColumns)
{
    const grid unif = expect_reference(false, cube, unit_box, {0, 0, 1}, 0.5, 2);
    EXPECT_EQ(floats(unif.points.begin(), unif.points.begin() + 5), (floats{0, 0, 1, 1, -7}));
    const grid rect =
        expect_reference(true, {2, 2, 2}, rect_points({{0, 4}, {0, 2}, {0, 1}}), {0, 0, 1}, 0.5, 2);
    EXPECT_EQ(floats(rect.points.begin(), rect.points.begin() + 9), (floats{0, 0, 1, 0, 0, 0, 0, 1, -7}));
}

TEST_F(Rslice, RandomPlanesThroughUniformMeshes)
{
    std::mt19937 random(11);
    std::uniform_real_distribution<float> any(-1, 1);
    qx_long inside = 0, outside = 0;
    for (int trial = 0; trial < 500; ++trial) {
        const numbers dims = {1 + qx_long(random() % 9), 1 + qx_long(random() % 9),
                              1 + qx_long(random() % 9)};
        const floats box = {any(random), any(random), any(random), any(random), any(random), any(random)};
        const grid got = expect_reference(false, dims, box, {any(random), any(random), any(random)},
                                          static_cast<double>(any(random)) / 2);
        inside += got.count;
        outside += got.dims[0] * got.dims[1] - got.count;
    }
    EXPECT_GT(inside, 1000);
    EXPECT_GT(outside, 1000);
}

// ---- rectilinear meshes ---------------------------------------------------------------------------------

TEST_F(Rslice, RectilinearPlaneThroughNodesTakesTheEdgeBelow)
{
    const grid got =
        expect_reference(true, cube, rect_points({{0, 1, 4}, {0, 3, 4}, {0, 0.5f, 1}}), {0, 0, 1}, 0.5);
    EXPECT_EQ(got.count, 9);
    EXPECT_EQ(got.lo[0], 0);
    EXPECT_EQ(got.hi[0], 9);
    EXPECT_EQ(got.weight, floats(9, 1));
    EXPECT_EQ(floats(got.points.begin(), got.points.begin() + 18),
              (floats{0, 0, 0, 0.25f, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0.75f, 0, 0, 1, 0}));
}

TEST_F(Rslice, AxesMayDescend)
{
    const grid got =
        expect_reference(true, cube, rect_points({{4, 1, 0}, {0, 3, 4}, {1, 0.75f, 0}}), {0, 0, 1}, 0.5);
    EXPECT_EQ(got.count, 9);
    EXPECT_EQ(got.lo[0], 9);
    EXPECT_FLOAT_EQ(got.weight[0], 1.0f / 3);
    EXPECT_EQ(got.xform[10], -1);
}

TEST_F(Rslice, RectilinearOneNodeAlongAnAxis)
{
    EXPECT_EQ(expect_reference(true, {3, 3, 1}, rect_points({{0, 1, 2}, {0, 1, 2}, {5}}), {0, 0, 1}, 5).count,
              0);
    const grid thin =
        expect_reference(true, {1, 2, 3}, rect_points({{7}, {0, 1}, {0, 1, 2}}), {0, 0, 1}, 1.5);
    EXPECT_EQ(thin.count, 2);
    EXPECT_EQ(thin.points[0], 0) << "an axis without length is at 0";
}

TEST_F(Rslice, RandomPlanesThroughRectilinearMeshes)
{
    std::mt19937 random(12);
    std::uniform_real_distribution<float> any(-1, 1), step(0.01f, 1);
    qx_long inside = 0, outside = 0;
    for (int trial = 0; trial < 500; ++trial) {
        numbers dims;
        std::vector<floats> axes(3);
        for (floats &axis : axes) {
            dims.push_back(1 + qx_long(random() % 9));
            const float sign = random() % 3 == 0 ? -1.0f : 1.0f;
            for (float x = any(random); axis.size() < static_cast<size_t>(dims.back());
                 x += sign * step(random))
                axis.push_back(x);
        }
        // Now and then straight through a node.
        normal_of normal = {any(random), any(random), any(random)};
        double d = static_cast<double>(any(random)) / 2;
        if (trial % 4 == 0) {
            normal = {0, 0, 1};
            d = static_cast<double>(axes[2][random() % axes[2].size()]);
        }
        const grid got = expect_reference(true, dims, rect_points(axes), normal, d);
        inside += got.count;
        outside += got.dims[0] * got.dims[1] - got.count;
    }
    EXPECT_GT(inside, 1000);
    EXPECT_GT(outside, 1000);
}

// Out of order an axis is still searched from its start, and nothing outside the mesh is named.
TEST_F(Rslice, UnorderedAxesAreSearchedFromTheStart)
{
    std::mt19937 random(13);
    std::uniform_real_distribution<float> any(-1, 1);
    for (int trial = 0; trial < 200; ++trial) {
        std::vector<floats> axes(3, floats(6));
        for (floats &axis : axes)
            for (float &x : axis)
                x = random() % 9 == 0 ? not_a_number : any(random);
        const grid got = expect_reference(true, {6, 6, 6}, rect_points(axes), {0.2f, -0.3f, 1}, 0.1);
        for (qx_long node : got.hi)
            EXPECT_LT(node, 216);
    }
}

// ---- both -----------------------------------------------------------------------------------------------

TEST_F(Rslice, GridNodesAreOnTheirEdges)
{
    const numbers dims = {4, 5, 6};
    const floats box = {-1, 0, 2, 1, 3, 4};
    const grid got = expect_reference(false, dims, box, {0.3f, -0.2f, 1}, 3);
    ASSERT_GT(got.count, 10);
    for (qx_long j = 0; j < got.dims[1]; ++j)
        for (qx_long i = 0; i < got.dims[0]; ++i) {
            const size_t at = static_cast<size_t>(j * got.dims[0] + i);
            if (got.valid[at] == 0) continue;
            const qx_long layer = got.lo[at] / 20;
            const float s = static_cast<float>(i) / 3, t = static_cast<float>(j) / 4;
            const float z = 2 + 0.4f * (static_cast<float>(layer) + got.weight[at]);
            for (size_t k = 0; k < 3; ++k) {
                const float placed = s * got.xform[k] + t * got.xform[4 + k] + got.xform[12 + k];
                const float expected[3] = {-1 + 2 * s, 3 * t, z};
                EXPECT_NEAR(placed, expected[k], 1e-5);
            }
        }
}

TEST_F(Rslice, TheMeshHandsOnItsOwnDimsAndPoints)
{
    const meshes::mesh_ptr mesh = meshes::uniform({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1});
    ASSERT_EQ(mesh->mesh->methods->rslice_func, UTILrslice_unif);
    const normal_of normal = {0, 0, 1};
    qx_long out_dims[2], *lo = nullptr, *hi = nullptr;
    float points[27], xform[16], *weight = nullptr;
    unsigned char *valid = nullptr;
    EXPECT_EQ(UTILrslice(mesh->mesh, cube.data(), unit_box.data(), normal.data(), 0.25, out_dims, points, 3,
                         xform, &lo, &hi, &weight, &valid),
              9);
    EXPECT_EQ(weight[4], 0.5f);
    EXPECT_EQ(mesh->mesh->points, nullptr) << "nothing is fetched";
    free(lo);
    free(hi);
    free(weight);
    free(valid);
    const meshes::mesh_ptr rect = meshes::rectilinear({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}, 1);
    EXPECT_EQ(rect->mesh->methods->rslice_func, UTILrslice_rect);
}

TEST_F(Rslice, FailedAllocationsLeaveNoList)
{
    for (form func : {form(UTILrslice_unif), form(UTILrslice_rect)}) {
        const floats points =
            func == UTILrslice_unif ? unit_box : rect_points({{0, 1, 2}, {0, 1, 2}, {0, 1, 2}});
        for (int k = 0; k < 5; ++k) {
            host_calls::reset();
            qx_long mark = 0, out_dims[2], *lo = &mark, *hi = &mark;
            float out_points[27], xform[16], mark_f = 0, *weight = &mark_f;
            unsigned char mark_b = 0, *valid = &mark_b;
            const normal_of normal = {0, 0, 1};
            host_calls::watch watch;
            host_calls::fail_allocation(k);
            const qx_long count = func(cube.data(), points.data(), normal.data(), 0.5, out_dims, out_points,
                                       3, xform, &lo, &hi, &weight, &valid);
            EXPECT_EQ(host_calls::allocation_was_refused(), k < 4);
            EXPECT_EQ(count, k < 4 ? 0 : 9);
            EXPECT_EQ(lo == nullptr && hi == nullptr && weight == nullptr && valid == nullptr, k < 4);
            EXPECT_EQ(watch.live_blocks(), k < 4 ? 0 : 4);
            EXPECT_TRUE(host_calls::seen().reports.empty());
            EXPECT_TRUE(host_calls::seen().statuses.empty());
            if (k == 4) {
                std::vector<int> types;
                for (const host_calls::array &made : host_calls::seen().arrays)
                    types.push_back(made.type);
                EXPECT_EQ(types, (std::vector<int>{6, 6, 4, 0}));
                free(lo);
                free(hi);
                free(weight);
                free(valid);
            }
        }
    }
}
