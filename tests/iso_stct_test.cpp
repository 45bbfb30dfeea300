#include <skoklana/iso.h>

#include "support/arrays.hpp"
#include "support/fresh_host.hpp"
#include "support/lattice_calls.hpp"
#include "support/lattices.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <set>

namespace {

using arrays::dtype_of;
using namespace lattice_calls;

// A block that holds the values to the byte, so that a read past them is seen.
template <typename T> std::vector<T> exact(std::vector<T> values)
{
    values.shrink_to_fit();
    return values;
}

std::vector<float> marschner_lobb(qx_long n)
{
    std::vector<float> values;
    const double pi = 3.14159265358979323846;
    const auto at = [n](qx_long i) { return 2.0 * static_cast<double>(i) / static_cast<double>(n - 1) - 1; };
    for (qx_long k = 0; k < n; ++k)
        for (qx_long j = 0; j < n; ++j)
            for (qx_long i = 0; i < n; ++i) {
                const double r = std::sqrt(at(i) * at(i) + at(j) * at(j));
                const double wave = std::cos(2 * pi * 6 * std::cos(pi * r / 2));
                values.push_back(
                    static_cast<float>((1 - std::sin(pi * at(k) / 2) + 0.25 * (1 + wave)) / 2.5));
            }
    return values;
}

template <typename T> class SurfaceOfType : public testing::Test {
};
TYPED_TEST_SUITE(SurfaceOfType, arrays::all_types);

TYPED_TEST(SurfaceOfType, AgreesWithTheReferenceOnRandomData)
{
    using T = TypeParam;
    std::mt19937 random(41 + dtype_of<T>);
    const auto below = [&](unsigned n) { return random() % n; };
    const qx_long widths[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 31, 32, 33, 34, 63, 64, 65, 66, 127, 128, 129, 130};
    qx_long with_triangles = 0, with_nulls = 0, without_nulls = 0, grown = 0, level_on_values = 0;
    for (int pass = 0; pass < 250; ++pass) {
        SCOPED_TRACE("pass " + std::to_string(pass));
        lattice in(
            {widths[below(21)], 1 + static_cast<qx_long>(below(9)), 1 + static_cast<qx_long>(below(9))});
        const unsigned nvalues = 2 + below(7);
        std::vector<T> data;
        for (qx_long n = 0; n < in.nnodes(); ++n)
            data.push_back(static_cast<T>(below(nvalues)));
        const T null = static_cast<T>(below(nvalues + 3));
        const double level = below(2 * nvalues + 2) / 2.0 - 0.5;
        const T *null_value = below(2) != 0 ? &null : nullptr;
        const level_set expected = expect_as_reference(in, exact(data), level, null_value);
        with_triangles += !expected.connect.empty();
        with_nulls += expected.cells_with_null > 0 && !expected.connect.empty();
        without_nulls += null_value == nullptr && !expected.connect.empty();
        grown += expected.min_node.size() > 2500;
        level_on_values += level == std::floor(level) && !expected.connect.empty();
        if (testing::Test::HasFailure()) return;
    }
    EXPECT_GT(with_triangles, 75);
    EXPECT_GT(with_nulls, 20);
    EXPECT_GT(without_nulls, 30);
    EXPECT_GT(grown, 5);
    EXPECT_GT(level_on_values, 30);
}

// Sparse crossings, far apart nulls, and planes that differ: what dense noise has no room for.
TYPED_TEST(SurfaceOfType, AgreesWithTheReferenceOnSmoothDataWithHoles)
{
    using T = TypeParam;
    std::mt19937 random(97 + dtype_of<T>);
    for (int pass = 0; pass < 6; ++pass) {
        SCOPED_TRACE("pass " + std::to_string(pass));
        lattice in({70 + static_cast<qx_long>(random() % 70), 24, 17});
        std::vector<T> data;
        for (qx_long n = 0; n < in.nnodes(); ++n) {
            const double x = static_cast<double>(n % in.dims[0]),
                         y = static_cast<double>(n / in.dims[0] % 24),
                         z = static_cast<double>(n / in.dims[0] / 24);
            data.push_back(static_cast<T>(50 + 20 * std::sin(x / (4 + pass)) + 15 * std::cos(y / 5) + z));
        }
        const T null = 7;
        for (int hole = 0; hole < 60; ++hole)
            data[random() % data.size()] = null;
        expect_as_reference(in, data, 57.25, &null);
        expect_as_reference(in, data, 57.25, static_cast<const T *>(nullptr));
    }
}

TYPED_TEST(SurfaceOfType, LevelsAtAndBeyondTheEndsOfTheType)
{
    using T = TypeParam;
    using limits = std::numeric_limits<T>;
    const double lowest = static_cast<double>(limits::lowest()), highest = static_cast<double>(limits::max());
    const double infinity = std::numeric_limits<double>::infinity();
    lattice in({66, 3, 3});
    std::mt19937 random(3);
    const T values[] = {limits::lowest(),
                        limits::max(),
                        0,
                        1,
                        static_cast<T>(limits::lowest() + 1),
                        static_cast<T>(limits::max() - 1),
                        static_cast<T>(limits::max() / 2)};
    std::vector<T> data;
    for (qx_long n = 0; n < in.nnodes(); ++n)
        data.push_back(values[random() % 7]);
    qx_long crossed = 0;
    for (double level : {lowest,
                         highest,
                         2 * lowest - 1,
                         2 * highest,
                         std::nextafter(lowest, infinity),
                         std::nextafter(lowest, -infinity),
                         std::nextafter(highest, infinity),
                         std::nextafter(highest, -infinity),
                         lowest + 0.5,
                         highest - 0.5,
                         highest + 0.5,
                         0.0,
                         -0.0,
                         5e-324,
                         -5e-324,
                         0.5,
                         1e-30,
                         infinity,
                         -infinity,
                         std::nan("")}) {
        SCOPED_TRACE("level " + std::to_string(level));
        crossed += !expect_as_reference(in, data, level, static_cast<const T *>(nullptr)).connect.empty();
    }
    EXPECT_GT(crossed, 5);
}

// From 2^53 on, doubles are further apart than the values: many values compare as one.
TEST(Surface, LargeIntegersCompareByTheirDoubles)
{
    const qx_long base = qx_long(1) << 60;
    lattice in({65, 4, 4});
    std::mt19937 random(8);
    std::vector<qx_long> data;
    for (qx_long n = 0; n < in.nnodes(); ++n)
        data.push_back((random() % 2 != 0 ? base : -base) + static_cast<qx_long>(random() % 1024) - 512);
    data[0] = std::numeric_limits<qx_long>::max();
    data[5] = std::numeric_limits<qx_long>::min();
    for (double level :
         {std::ldexp(1.0, 60), std::ldexp(1.0, 60) + 256, std::ldexp(1.0, 60) - 128, -std::ldexp(1.0, 60),
          -std::ldexp(1.0, 60) + 128, std::ldexp(1.0, 63), -std::ldexp(1.0, 63)}) {
        SCOPED_TRACE(level);
        expect_as_reference(in, data, level, static_cast<const qx_long *>(nullptr));
        EXPECT_FALSE(lattice_reference::surface<qx_long>(in.dims, data, level, nullptr).connect.empty() &&
                     level != -std::ldexp(1.0, 63));
    }
}

template <typename T> class SurfaceOfReals : public testing::Test {
};
using real_types = testing::Types<float, double>;
TYPED_TEST_SUITE(SurfaceOfReals, real_types);

TYPED_TEST(SurfaceOfReals, NanIsBelowAndInfinitiesCount)
{
    using T = TypeParam;
    using limits = std::numeric_limits<T>;
    const T values[] = {
        limits::quiet_NaN(), limits::infinity(), -limits::infinity(), -1, 0, T(-0.0), 1, T(0.1),
        limits::denorm_min()};
    std::mt19937 random(17);
    lattice in({67, 4, 5});
    std::vector<T> data;
    for (qx_long n = 0; n < in.nnodes(); ++n)
        data.push_back(values[random() % 9]);
    const T infinite_null = limits::infinity(), zero_null = T(-0.0);
    for (double level : {0.0, -0.0, 0.1, static_cast<double>(T(0.1)),
                         std::nextafter(static_cast<double>(T(0.1)), 1.0), 1e300, -1e300, 1e-320,
                         std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
        SCOPED_TRACE(level);
        expect_as_reference(in, data, level, static_cast<const T *>(nullptr));
        expect_as_reference(in, data, level, &infinite_null);
        expect_as_reference(in, data, level, &zero_null); // equals 0 of either sign
    }
}

TYPED_TEST(SurfaceOfReals, NullThatIsNanMatchesNothing)
{
    using T = TypeParam;
    lattice in({9, 5, 4});
    std::mt19937 random(5);
    std::vector<T> data;
    for (qx_long n = 0; n < in.nnodes(); ++n)
        data.push_back(random() % 4 == 0 ? std::numeric_limits<T>::quiet_NaN()
                                         : static_cast<T>(random() % 3));
    const T nan = std::numeric_limits<T>::quiet_NaN();
    EXPECT_TRUE(extracted<T>(&in.mesh, data, 1.0, &nan) == extracted<T>(&in.mesh, data, 1.0, nullptr));
    EXPECT_FALSE(extracted<T>(&in.mesh, data, 1.0, nullptr).connect.empty());
}

TEST(Surface, RowsLongerThanAPieceAgreeWithTheReference)
{
    std::mt19937 random(23);
    for (qx_long width : {1023, 1024, 1025, 1026, 1090, 2048, 2049, 2500}) {
        SCOPED_TRACE(width);
        lattice in({width, 3, 3});
        std::vector<unsigned char> data;
        for (qx_long n = 0; n < in.nnodes(); ++n)
            data.push_back(static_cast<unsigned char>(random() % 5));
        const unsigned char null = 4;
        expect_as_reference(in, data, 1.5, &null);
        expect_as_reference(in, data, 1.5, static_cast<const unsigned char *>(nullptr));
    }
}

TEST(Surface, SmoothFieldAgreesWithTheReference)
{
    lattice in({64, 64, 64});
    const std::vector<float> data = marschner_lobb(64);
    expect_as_reference(in, data, 0.5, static_cast<const float *>(nullptr));
    EXPECT_GT(extracted<float>(&in.mesh, data, 0.5, nullptr).cell.size(), 20000u);
}

// Every edge of the surface that is not in the mesh's boundary is passed as often in one direction as in the
// other: once, but for the few cuts between triangles of one cell that lie in a face, where the neighbour may
// have one too. This holds on noise, where most cells have ambiguous faces.
TEST(Surface, IsClosedAndOrientedInsideTheMesh)
{
    std::mt19937 random(77);
    lattice in({12, 11, 10});
    std::vector<short> data;
    for (qx_long n = 0; n < in.nnodes(); ++n)
        data.push_back(static_cast<short>(random() % 100));
    const level_set out = extracted<short>(&in.mesh, data, 50, nullptr);

    std::map<std::pair<qx_long, qx_long>, int> directed;
    for (size_t t = 0; t < out.connect.size(); t += 3)
        for (size_t c = 0; c < 3; ++c)
            ++directed[{out.connect[t + c], out.connect[t + (c + 1) % 3]}];
    // The sides of the mesh that both ends of a new node's edge lie in.
    const auto sides = [&](qx_long new_node) {
        std::set<int> found;
        qx_long a = out.min_node[static_cast<size_t>(new_node)],
                b = out.max_node[static_cast<size_t>(new_node)];
        for (int axis = 0; axis < 3; ++axis) {
            const qx_long n = in.dims[static_cast<size_t>(axis)];
            for (qx_long side : {qx_long(0), n - 1})
                if (a % n == side && b % n == side) found.insert(2 * axis + (side != 0));
            a /= n;
            b /= n;
        }
        return found;
    };
    int inner = 0, passed_twice = 0;
    for (const auto &edge : directed) {
        const std::set<int> a = sides(edge.first.first), b = sides(edge.first.second);
        const bool on_boundary =
            std::any_of(a.begin(), a.end(), [&](int side) { return b.count(side) != 0; });
        if (on_boundary) continue;
        ++inner;
        passed_twice += edge.second != 1;
        const auto back = directed.find({edge.first.second, edge.first.first});
        EXPECT_TRUE(back != directed.end() && back->second == edge.second);
    }
    EXPECT_GT(inner, 2000);
    EXPECT_LT(passed_twice, inner / 100);
}

// In table order, with steps in i, j, k along x, y, z.
TEST(Surface, NormalsPointToLowerValues)
{
    const qx_long n = 20;
    lattice in({n, n, n});
    std::vector<double> data;
    const auto value = [](double x, double y, double z) {
        return 30 - (x - 9) * (x - 9) - (y - 10) * (y - 10) - (z - 8.5) * (z - 8.5);
    };
    for (qx_long node = 0; node < n * n * n; ++node)
        data.push_back(value(static_cast<double>(node % n), static_cast<double>(node / n % n),
                             static_cast<double>(node / n / n)));
    const level_set out = extracted<double>(&in.mesh, data, 4.0, nullptr);
    ASSERT_GT(out.connect.size(), 900u);
    for (size_t t = 0; t < out.connect.size(); t += 3) {
        std::array<std::array<double, 3>, 3> p;
        for (size_t c = 0; c < 3; ++c) {
            const size_t at = static_cast<size_t>(out.connect[t + c]);
            const qx_long a = out.min_node[at], b = out.max_node[at];
            const double va = data[static_cast<size_t>(a)], vb = data[static_cast<size_t>(b)],
                         w = (4.0 - va) / (vb - va);
            const double ca[3] = {double(a % n), double(a / n % n), double(a / n / n)};
            const double cb[3] = {double(b % n), double(b / n % n), double(b / n / n)};
            for (size_t d = 0; d < 3; ++d)
                p[c][d] = ca[d] + w * (cb[d] - ca[d]);
        }
        std::array<double, 3> u, v, middle;
        for (size_t d = 0; d < 3; ++d) {
            u[d] = p[1][d] - p[0][d];
            v[d] = p[2][d] - p[0][d];
            middle[d] = (p[0][d] + p[1][d] + p[2][d]) / 3;
        }
        const double outward = (u[1] * v[2] - u[2] * v[1]) * (middle[0] - 9) +
                               (u[2] * v[0] - u[0] * v[2]) * (middle[1] - 10) +
                               (u[0] * v[1] - u[1] * v[0]) * (middle[2] - 8.5);
        EXPECT_GE(outward, 0);
    }
}

TEST(Surface, EdgeInThePlaneOfTwoSlabsGetsOneNewNode)
{
    lattice in({2, 2, 3});
    std::vector<float> data(12, 0.0f);
    data[4] = 1; // a corner of the middle plane
    const level_set out = extracted<float>(&in.mesh, data, 0.5, nullptr);
    EXPECT_EQ(out.min_node, (numbers{4, 4, 0, 4}));
    EXPECT_EQ(out.max_node, (numbers{6, 5, 4, 8}));
    EXPECT_EQ(out.cell, (numbers{0, 1}));
    std::set<qx_long> shared(out.connect.begin(), out.connect.begin() + 3);
    std::set<qx_long> upper(out.connect.begin() + 3, out.connect.end());
    EXPECT_EQ(shared, (std::set<qx_long>{0, 1, 2}));
    EXPECT_EQ(upper, (std::set<qx_long>{0, 1, 3}));
}

TEST(Surface, NullCornerSkipsItsCellsOnly)
{
    lattice in({3, 2, 2});
    std::vector<int> data = {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9};
    const int null = 9;
    const level_set out = extracted<int>(&in.mesh, data, 0.5, &null);
    EXPECT_EQ(out.cell, numbers{0});
    const level_set all = extracted<int>(&in.mesh, data, 0.5, nullptr);
    EXPECT_EQ(all.cell, (numbers{0, 1}));
}

TEST(Surface, LevelThatEqualsAllValuesGivesNothing)
{
    lattice in({5, 5, 5});
    const std::vector<short> data(125, 3);
    EXPECT_TRUE(extracted<short>(&in.mesh, data, 3.0, nullptr).connect.empty());
}

TEST(Surface, NoCrossingHandsOverEmptyLists)
{
    lattice in({5, 5, 5});
    const std::vector<float> data(125, 0.0f);
    level_call call(operation::surface);
    call.run(&in.mesh, data.data(), DTYPE_FLOAT, nullptr, 1.0, true);
    EXPECT_EQ(call.result, 1);
    EXPECT_EQ(call.nnodes, 0);
    EXPECT_EQ(call.ntri, 0);
    EXPECT_EQ(call.ntri_conn, 0);
    EXPECT_EQ(call.map_count, 0);
    EXPECT_NE(call.tri_conn, nullptr);
    EXPECT_NE(call.min_node, nullptr);
    EXPECT_NE(call.max_node, nullptr);
    EXPECT_NE(call.map, nullptr);
}

TEST(Surface, OnePlaneOrRowOrColumnOfNodesOrNoneHasNoCells)
{
    for (const auto &dims : {numbers{7, 6, 1},
                             {7, 1, 6},
                             {1, 7, 6},
                             {1, 1, 1},
                             {2, 2, 1},
                             {0, 3, 3},
                             {3, 0, 3},
                             {3, 3, 0},
                             {0, 0, 0}}) {
        lattice in(dims);
        std::vector<unsigned char> data;
        for (qx_long n = 0; n < in.nnodes(); ++n)
            data.push_back(static_cast<unsigned char>(n % 2));
        host_calls::reset();
        const level_set out = extracted<unsigned char>(&in.mesh, data, 0.5, nullptr);
        EXPECT_TRUE(out.connect.empty() && out.min_node.empty() && out.cell.empty());
        ASSERT_FALSE(host_calls::seen().statuses.empty());
        EXPECT_EQ(host_calls::seen().statuses.back().percent, 100);
    }
}

TEST(Surface, WithoutAMapTheRestIsTheSame)
{
    lattice in({40, 9, 9});
    const std::vector<float> data = meshes::random_values<float>(6, in.nnodes(), -1, 1);
    level_set with_map = extracted<float>(&in.mesh, data, 0.0, nullptr, true);
    const level_set without = extracted<float>(&in.mesh, data, 0.0, nullptr, false);
    EXPECT_EQ(with_map.cell.size() * 3, with_map.connect.size());
    with_map.cell.clear();
    EXPECT_TRUE(with_map == without);
}

TEST(Surface, StructuredKindsAreAlike)
{
    const std::vector<qx_long> dims = {9, 8, 7};
    const std::vector<float> lo = {0, 0, 0}, hi = {1, 1, 1};
    const std::vector<double> data = meshes::random_values<double>(12, 9 * 8 * 7, 0, 1);
    lattice bare(dims);
    const level_set expected = extracted<double>(&bare.mesh, data, 0.4, nullptr);
    EXPECT_TRUE(extracted<double>(meshes::uniform(dims, 3, lo, hi)->mesh, data, 0.4, nullptr) == expected);
    EXPECT_TRUE(extracted<double>(meshes::rectilinear(dims, 3, lo, hi, 1)->mesh, data, 0.4, nullptr) ==
                expected);
    EXPECT_TRUE(extracted<double>(meshes::curvilinear(dims, 3, lo, hi, 1)->mesh, data, 0.4, nullptr) ==
                expected);
}

TEST(Surface, TwoCallsGiveTheSameBytes)
{
    lattice in({50, 20, 10});
    const std::vector<int> data = meshes::random_values<int>(99, in.nnodes(), 0, 10);
    EXPECT_TRUE(extracted<int>(&in.mesh, data, 5, nullptr) == extracted<int>(&in.mesh, data, 5, nullptr));
}

TEST(Surface, MeshOfTwoAxesYieldsLines)
{
    lattice in({3, 3});
    const std::vector<short> data = {0, 0, 0, 0, 1, 0, 0, 0, 0};
    level_call call(operation::surface);
    call.run(&in.mesh, data.data(), DTYPE_SHORT, nullptr, 0.5, true);
    EXPECT_EQ(call.result, 1);
    EXPECT_EQ(call.nnodes, 4);
    EXPECT_EQ(call.nline, 4);
    EXPECT_EQ(call.nline_conn, 8);
    EXPECT_EQ(call.map_count, 4);
    EXPECT_EQ(copied(call.map, 4), (numbers{0, 1, 2, 3}));
    EXPECT_EQ(call.ntri, 0);
    EXPECT_EQ(call.ntri_conn, 0);
    EXPECT_EQ(call.tri_conn, nullptr);
}

TEST(Surface, OtherNumbersOfAxesGiveNothing)
{
    const std::vector<double> data(16, 0.0);
    for (const numbers &dims : {numbers{16}, numbers{2, 2, 2, 2}})
        expect_silent_refusal(operation::surface, dims, data, DTYPE_DOUBLE);
}

TEST(Surface, UnknownTypeIsRefusedInSilence)
{
    for (int type : {-1, 7, 100})
        for (const numbers &dims : {numbers{3, 3, 3}, numbers{3, 3}})
            expect_silent_refusal(operation::surface, dims, std::vector<double>(27, 0.0), type);
}

TEST(Surface, ChecksTheStatusAtEveryEighthSlab)
{
    // 14 and 1175: percents that other precisions round otherwise.
    for (qx_long nslabs : {1, 7, 8, 14, 26, 1175}) {
        lattice in({3, 3, nslabs + 1});
        const std::vector<float> data(static_cast<size_t>(in.nnodes()), 0.0f);
        host_calls::reset();
        extracted<float>(&in.mesh, data, 0.5, nullptr);
        std::vector<int> wanted;
        const float factor = static_cast<float>(100.0 / static_cast<double>(nslabs));
        for (qx_long k = 7; k < nslabs; k += 8)
            wanted.push_back(static_cast<int>(static_cast<float>(k) * factor));
        wanted.push_back(100);
        host_calls::expect_checks(wanted);
    }
}

TEST(Surface, InterruptionReleasesEverything)
{
    lattice in({20, 20, 27});
    const std::vector<float> data = meshes::random_values<float>(1, in.nnodes(), 0, 1);
    for (int k = 0; k < 3; ++k) {
        host_calls::reset();
        level_call call(operation::surface);
        host_calls::watch watch;
        host_calls::interrupt_at(k);
        call.run(&in.mesh, data.data(), DTYPE_FLOAT, nullptr, 0.5, true);
        EXPECT_EQ(call.result, -1);
        EXPECT_TRUE(call.is_empty());
        EXPECT_EQ(watch.live_blocks(), 0);
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
    host_calls::reset();
    host_calls::interrupt_at(3); // the closing check
    level_call call(operation::surface);
    call.run(&in.mesh, data.data(), DTYPE_FLOAT, nullptr, 0.5, true);
    EXPECT_EQ(call.result, 1);
    host_calls::reset();
}

TEST(Surface, RefusedMemoryIsReportedAndNothingLeaks)
{
    lattice in({30, 12, 9});
    expect_clean_failures<short>(
        operation::surface, in, meshes::random_values<short>(4, in.nnodes(), 0, 100), 50, 3,
        {"UTILslice: realloc for cell list failed", "slice_struct: realloc for connect list failed"});
}

// A row of cells with one triangle each.
TEST(Surface, ListsGrowWhereACellLeavesTooLittle)
{
    const struct {
        qx_long ncells;
        bool mapped;
        std::vector<qx_long> sizes;   // of the list of triangles, and of the map
    } rows[] = {{333, false, {}},     // 999 entries of 1024, 25 are left
                {334, false, {2048}}, //
                {674, false, {2048}}, // 2022 of 2048
                {675, false, {3584}}, //
                {1024, true, {3584}}, // the map is full
                {1025, true, {3584, 2048}}};
    for (const auto &row : rows) {
        lattice in({row.ncells + 1, 2, 2});
        std::vector<unsigned char> data(static_cast<size_t>(in.nnodes()), 0);
        for (qx_long i = 1; i <= row.ncells; i += 2)
            data[static_cast<size_t>(i)] = 1;
        host_calls::reset();
        const level_set out = extracted<unsigned char>(&in.mesh, data, 0.5, nullptr, row.mapped);
        EXPECT_EQ(static_cast<qx_long>(out.connect.size()), 3 * row.ncells);
        std::vector<qx_long> sizes;
        for (const host_calls::array &array : host_calls::seen().arrays) {
            EXPECT_EQ(array.type, DTYPE_QX_LONG);
            if (!array.resized)
                EXPECT_TRUE(array.count == 1024 || array.count == 1000); // 1000: the new nodes
            else if (array.count % 1000 != 0 && array.count != 3500)
                sizes.push_back(array.count);
        }
        EXPECT_EQ(sizes, row.sizes) << row.ncells;
    }
}

// Random bytes that cross the level nearly everywhere in the slabs from first to last, and nowhere else.
std::vector<unsigned char> dense_slabs(const std::vector<qx_long> &dims, qx_long first, qx_long last)
{
    std::mt19937 random(7);
    std::vector<unsigned char> data;
    for (qx_long k = 0; k < dims[2]; ++k)
        for (qx_long n = 0; n < dims[0] * dims[1]; ++n)
            data.push_back(k >= first && k <= last ? random() % 256 : 0);
    return data;
}

// Large lists are grown ahead by what the slabs so far tell of the rest, rightly or wrongly.
TEST(Surface, LargeListsHoldTheSameWhereverTheSurfaceLies)
{
    const std::vector<qx_long> dims = {40, 40, 40};
    lattice in(dims);
    const std::pair<qx_long, qx_long> ranges[] = {{0, 39}, {0, 15}, {24, 39}};
    for (const auto &[first, last] : ranges) {
        SCOPED_TRACE(first);
        const auto data = dense_slabs(dims, first, last);
        const level_set expected = expect_as_reference<unsigned char>(in, data, 128, nullptr);
        EXPECT_GT(expected.connect.size(), 200000u);
    }
}

// Growth ahead is a wish: where it is refused, the list grows as far as it must.
TEST(Surface, LargeListsGrowAsFarAsTheyMustWhereMoreIsRefused)
{
    const std::vector<qx_long> dims = {40, 40, 40};
    lattice in(dims);
    const auto data = dense_slabs(dims, 0, 39);
    const level_set expected = extracted<unsigned char>(&in.mesh, data, 128, nullptr);
    int nallocations = 0;
    {
        level_call call(operation::surface);
        host_calls::watch watch;
        call.run(&in.mesh, data.data(), DTYPE_BYTE, nullptr, 128, true);
        nallocations = watch.allocations();
    }
    int refused_ahead = 0;
    for (int k = 0; k < nallocations; ++k) {
        SCOPED_TRACE(k);
        host_calls::reset();
        level_call call(operation::surface);
        host_calls::watch watch;
        host_calls::fail_allocation(k);
        call.run(&in.mesh, data.data(), DTYPE_BYTE, nullptr, 128, true);
        EXPECT_TRUE(host_calls::allocation_was_refused());
        if (call.result == 1 && host_calls::seen().out_of_memory.empty()) {
            ++refused_ahead;
            EXPECT_TRUE(host_calls::report_texts().empty());
            const level_set made = call.out();
            EXPECT_EQ(made.connect, expected.connect);
            EXPECT_EQ(made.min_node, expected.min_node);
            EXPECT_EQ(made.max_node, expected.max_node);
            EXPECT_EQ(made.cell, expected.cell);
        }
        call.release();
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    EXPECT_GE(refused_ahead, 4); // of each list
    EXPECT_LT(refused_ahead, 12);
    // Refused for good, the surface fails and leaves nothing.
    int failed = 0;
    for (int k = 6; k < nallocations; ++k) {
        host_calls::reset();
        level_call call(operation::surface);
        host_calls::watch watch;
        host_calls::fail_allocations_from(k);
        call.run(&in.mesh, data.data(), DTYPE_BYTE, nullptr, 128, true);
        failed += call.result == 0;
        EXPECT_TRUE(call.is_empty());
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    EXPECT_EQ(failed, nallocations - 6);
    host_calls::reset();
}

// The same grid as a set of hexahedra: the same new nodes, the same triangles, each turned round.
TEST(Surface, HexahedraOfTheSameGridGiveTheSameTriangles)
{
    const std::vector<qx_long> dims = {8, 7, 6};
    const auto grid = meshes::uniform(dims, 3, {0, 0, 0}, {1, 1, 1});
    std::vector<qx_long> connect(7 * 6 * 5 * 8);
    for (qx_long cell = 0, k = 0; k < 5; ++k)
        for (qx_long j = 0; j < 6; ++j)
            for (qx_long i = 0; i < 7; ++i, ++cell) {
                const qx_long b = i + 8 * j + 56 * k;
                const qx_long nodes[8] = {b, b + 1, b + 9, b + 8, b + 56, b + 57, b + 65, b + 64};
                std::copy(nodes, nodes + 8, connect.begin() + 8 * cell);
            }
    const auto cells = meshes::from_cells(3, grid->coords, {CELL_HEX}, {1}, {connect});
    const std::vector<float> data = meshes::random_values<float>(15, 8 * 7 * 6, 0, 1);
    const level_set structured = extracted<float>(grid->mesh, data, 0.6, nullptr);

    level_call call(operation::surface);
    call.result =
        UTILslice_cells(cells->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.6, &call.nnodes, &call.min_node,
                        &call.max_node, &call.nline, &call.line_conn, &call.nline_conn, &call.ntri,
                        &call.tri_conn, &call.ntri_conn, nullptr, nullptr);
    call.map = nullptr;
    ASSERT_EQ(call.result, 1);
    level_set of_cells;
    of_cells.min_node = copied(call.min_node, call.nnodes);
    of_cells.max_node = copied(call.max_node, call.nnodes);
    of_cells.connect = copied(call.tri_conn, call.ntri_conn);
    for (size_t t = 0; t < of_cells.connect.size(); t += 3)
        std::swap(of_cells.connect[t + 1], of_cells.connect[t + 2]);
    of_cells.cell = structured.cell;
    EXPECT_TRUE(of_cells == structured);
    EXPECT_GT(structured.cell.size(), 200u);
}

// A hexahedron of a cell set counts its corners in another sense than a cell of a lattice, and its triangles are
// turned round: in the end both surfaces have the same outline in every cell, the same way round.
TEST(Surface, MeshesDescribedInAllWaysHaveTheSameSurface)
{
    const auto ways = lattices::in_all_ways({{9, 8, 7}, 3});
    const std::vector<float> data = meshes::random_values<float>(21, 9 * 8 * 7, 0, 1);
    using corner = std::pair<qx_long, qx_long>;
    using outlines = std::map<qx_long, std::map<std::pair<corner, corner>, int>>;
    std::vector<outlines> all;
    for (const auto &way : ways) {
        level_call call(operation::surface);
        const auto extract = way->ndim == 0 ? UTILslice_cells : UTILslice_struct;
        qx_long *map = nullptr;
        call.result = extract(way->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.55, &call.nnodes,
                              &call.min_node, &call.max_node, &call.nline, &call.line_conn, &call.nline_conn,
                              &call.ntri, &call.tri_conn, &call.ntri_conn, &call.map_count, &map);
        call.map = map;
        ASSERT_EQ(call.result, 1);
        outlines made;
        for (qx_long t = 0; t < call.ntri; ++t)
            for (qx_long c = 0; c < 3; ++c) {
                const qx_long from = call.tri_conn[3 * t + c], to = call.tri_conn[3 * t + (c + 1) % 3];
                const corner a = {call.min_node[from], call.max_node[from]},
                             b = {call.min_node[to], call.max_node[to]};
                auto &of_cell = made[call.map[t]];
                if (++of_cell[{a, b}] > 0 && of_cell[{b, a}] > 0) { // a cut inside the cell
                    --of_cell[{a, b}];
                    --of_cell[{b, a}];
                }
            }
        for (auto &of_cell : made)
            for (auto edge = of_cell.second.begin(); edge != of_cell.second.end();)
                edge = edge->second == 0 ? of_cell.second.erase(edge) : std::next(edge);
        all.push_back(made);
    }
    ASSERT_EQ(all.size(), 4u);
    EXPECT_GT(all[0].size(), 200u);
    for (size_t way = 1; way < all.size(); ++way)
        EXPECT_TRUE(all[way] == all[0]) << way;
}

} // namespace
