#include "support/arrays.hpp"
#include "support/fresh_host.hpp"
#include "support/host_calls.hpp"

#include <skoklana/cut.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using numbers = std::vector<qx_long>;
using bytes = std::vector<unsigned char>;

class EvalContour : public FreshHost {};

// A band's new nodes, its contoured variable and rows to carry, all as numbers that every type can hold.
struct band {
    qx_long nnodes;
    std::vector<double> contour;
    double level[2];
    numbers a, b;
    bytes sel;

    qx_long count() const { return static_cast<qx_long>(a.size()); }
};

// New nodes of the first cut, then such with one of them at an end, on either side. Values are small and
// whole, so that many are equal.
band random_band(uint64_t seed, qx_long nnodes, qx_long count)
{
    std::mt19937_64 random(seed);
    band made = {nnodes, {}, {2.5, 6.25}, {}, {}, {}};
    const auto below = [&](qx_long end) {
        return static_cast<qx_long>(random() % static_cast<uint64_t>(end));
    };
    for (qx_long n = 0; n < nnodes; ++n)
        made.contour.push_back(static_cast<double>(below(10)));
    for (qx_long i = 0; i < count; ++i) {
        const qx_long plain = count / 3;
        qx_long a = below(nnodes), b = below(nnodes);
        if (i >= plain && i % 4 == 1) a = nnodes + below(plain);
        if (i >= plain && i % 4 == 2) b = nnodes + below(plain);
        if (i >= plain && i % 11 == 3) a = -1 - below(5);
        if (i >= plain && i % 13 == 4) b = std::numeric_limits<qx_long>::min();
        made.a.push_back(a);
        made.b.push_back(b);
        made.sel.push_back(static_cast<unsigned char>(i < plain ? 0 : i % 3 == 0 ? 0 : 1 + i % 200));
    }
    return made;
}

// ---- reference: a component at a time, by the definition
// -----------------------------------------------------

template <typename D> D stored(double value)
{
    if constexpr (std::is_floating_point_v<D>) return static_cast<D>(value);
    if constexpr (sizeof(D) < 4) return static_cast<D>(static_cast<int64_t>(value));
    return static_cast<D>(value);
}

template <typename C, typename D> struct slow_evaluation {
    const band &of;
    const std::vector<C> &contour;
    const std::vector<D> &rows;
    int veclen;
    const D *null; // nullptr: none
    mutable int nnulls = 0, npoints = 0, ncopies = 0;

    double c(qx_long node) const { return static_cast<double>(contour[static_cast<size_t>(node)]); }
    D value(qx_long node, int k) const { return rows[static_cast<size_t>(node * veclen + k)]; }
    double row(qx_long node, int k) const { return static_cast<double>(value(node, k)); }
    double level(qx_long entry) const { return of.level[of.sel[static_cast<size_t>(entry)] != 0]; }
    bool is_null(qx_long node, int k) const { return null != nullptr && value(node, k) == *null; }

    double point(qx_long new_node, int k) const
    {
        ++npoints;
        const qx_long m = new_node - of.nnodes;
        const qx_long a2 = of.a[static_cast<size_t>(m)], b2 = of.b[static_cast<size_t>(m)];
        if (c(a2) == c(b2)) return row(a2, k);
        if (is_null(a2, k) || is_null(b2, k)) return static_cast<double>(*null);
        const double step = row(b2, k) - row(a2, k);
        return row(a2, k) + step * (level(m) - c(a2)) / (c(b2) - c(a2));
    }

    D component(qx_long entry, int k, D before) const
    {
        const qx_long a = of.a[static_cast<size_t>(entry)], b = of.b[static_cast<size_t>(entry)];
        const double L = level(entry);
        if (a < 0 || b < 0) return before;
        if (a >= of.nnodes) {
            const double L2 = level(a - of.nnodes), d = c(b) - L2, t = d == 0.0 ? 0.0 : (L - L2) / d;
            if (is_null(b, k)) return *null;
            const double p = point(a, k);
            return stored<D>(p + (row(b, k) - p) * t);
        }
        if (b >= of.nnodes) {
            const double d = level(b - of.nnodes) - c(a), t = d == 0.0 ? 0.0 : (L - c(a)) / d;
            if (is_null(a, k)) return *null;
            return stored<D>(row(a, k) + (point(b, k) - row(a, k)) * t);
        }
        if (c(a) == c(b)) {
            ++ncopies;
            return value(a, k);
        }
        if (is_null(a, k) || is_null(b, k)) {
            ++nnulls;
            return *null;
        }
        const double t = (L - c(a)) / (c(b) - c(a));
        return stored<D>(row(a, k) + (row(b, k) - row(a, k)) * t);
    }
};

// Interpolation goes beyond both ends, by several times the difference: results stay within 32 bits, of which
// the narrow types take the low ones.
template <typename D> std::vector<D> rows_for(uint64_t seed, qx_long count)
{
    std::mt19937_64 random(seed);
    std::vector<D> rows;
    for (qx_long i = 0; i < count; ++i)
        rows.push_back(std::is_floating_point_v<D>
                           ? static_cast<D>(static_cast<double>(random() % 1000003) / 7)
                       : sizeof(D) > 2 ? static_cast<D>(random() % 100000)
                                       : static_cast<D>(60 + random() % 4));
    return rows;
}

template <typename C, typename D> void expect_reference(uint64_t seed, int veclen, bool nulls, qx_long count)
{
    const band of = random_band(seed, 40, count);
    const std::vector<C> contour(of.contour.begin(), of.contour.end());
    std::vector<D> rows = rows_for<D>(seed, of.nnodes * veclen);
    const D null = rows[7];
    for (size_t i = 0; i < rows.size() && nulls; i += 5)
        rows[i] = null;
    const slow_evaluation<C, D> slow = {of, contour, rows, veclen, nulls ? &null : nullptr};
    for (qx_long first : {qx_long{0}, count / 2}) {
        const qx_long n = count - first;
        std::vector<D> out(static_cast<size_t>(n * veclen), D(5)), expected = out;
        for (qx_long i = 0; i < n; ++i)
            for (int k = 0; k < veclen; ++k) {
                D &at = expected[static_cast<size_t>(i * veclen + k)];
                at = slow.component(first + i, k, at);
            }
        // A part of the rows as a caller may hold it: 6 elements less at the front, which nothing reads then.
        ASSERT_EQ(UTILeval_contour(of.nnodes, n, first, arrays::dtype_of<C>, contour.data(), of.level[0],
                                   of.level[1], of.a.data(), of.b.data(), of.sel.data(), veclen,
                                   arrays::dtype_of<D>, nulls, nulls ? &null : nullptr, 6, rows.data() + 6,
                                   out.data()),
                  1);
        EXPECT_TRUE(arrays::same_bytes(out, expected)) << "seed " << seed << " veclen " << veclen;
    }
    if (count > 50) {
        EXPECT_GT(slow.npoints, 0);
        EXPECT_GT(slow.ncopies, 0);
        EXPECT_EQ(slow.nnulls > 0, nulls);
    }
}

template <typename C> void expect_reference_for_all_data(bool nulls)
{
    for (int veclen : {1, 2, 3, 4})
        for (qx_long count : {0, 1, 63, 64, 65, 300}) {
            const uint64_t seed = static_cast<uint64_t>(veclen * 1000 + count);
            expect_reference<C, signed char>(seed, veclen, nulls, count);
            expect_reference<C, unsigned char>(seed, veclen, nulls, count);
            expect_reference<C, short>(seed, veclen, nulls, count);
            expect_reference<C, int>(seed, veclen, nulls, count);
            expect_reference<C, float>(seed, veclen, nulls, count);
            expect_reference<C, double>(seed, veclen, nulls, count);
            expect_reference<C, qx_long>(seed, veclen, nulls, count);
        }
}

template <typename T> class EvalContourTyped : public EvalContour {
};
TYPED_TEST_SUITE(EvalContourTyped, arrays::all_types);

// One call on few nodes.
template <typename C, typename D>
std::vector<D> eval(std::vector<C> contour, double lo, double hi, numbers a, numbers b, bytes sel, int veclen,
                    std::vector<D> rows, const D *null, std::vector<D> out)
{
    EXPECT_EQ(UTILeval_contour(static_cast<qx_long>(contour.size()), static_cast<qx_long>(sel.size()), 0,
                               arrays::dtype_of<C>, contour.data(), lo, hi, a.data(), b.data(), sel.data(),
                               veclen, arrays::dtype_of<D>, null != nullptr, null, 0, rows.data(),
                               out.data()),
              1);
    return out;
}

} // namespace

TYPED_TEST(EvalContourTyped, AgreesWithTheReferenceForEveryTypeOfData)
{
    expect_reference_for_all_data<TypeParam>(false);
}

TYPED_TEST(EvalContourTyped, AgreesWithTheReferenceWithNulls)
{
    expect_reference_for_all_data<TypeParam>(true);
}

TYPED_TEST(EvalContourTyped, TheContouredVariableItselfTakesItsLevels)
{
    const std::vector<TypeParam> contour = {0, 10, 20};
    const numbers a = {0, -1, 1}, b = {1, 2, -5};
    const bytes sel = {0, 255, 1};
    std::vector<TypeParam> out(6, 77);
    EXPECT_EQ(UTILeval_contour(3, 2, 1, arrays::dtype_of<TypeParam>, contour.data(), -3.75, 12.75, a.data(),
                               b.data(), sel.data(), 3, arrays::dtype_of<TypeParam>, 1, contour.data(), 0,
                               contour.data(), out.data()),
              1);
    const TypeParam high = static_cast<TypeParam>(12.75);
    EXPECT_EQ(out, (std::vector<TypeParam>{high, high, 77, 77, 77, 77}))
        << "one element a node, negative ends too";
}

TEST_F(EvalContour, EqualValuesTakeTheFirstRow)
{
    EXPECT_EQ(
        (eval<float, float>({4, 4}, 1, 2, {1, 0}, {0, 1}, {0, 1}, 2, {1, 2, 3, 4}, nullptr, {0, 0, 0, 0})),
        (std::vector<float>{3, 4, 1, 2}));
}

TEST_F(EvalContour, EqualValuesAreEqualAsDoubles)
{
    const qx_long big = qx_long{1} << 60;
    EXPECT_EQ((eval<qx_long, double>({big, big + 1}, 1, 2, {0}, {1}, {0}, 1, {5, 9}, nullptr, {0})),
              (std::vector<double>{5}));
}

TEST_F(EvalContour, ChainedNodeAtTheValueOfItsEndTakesTheEndsRow)
{
    // New node 0 is at level 4, as high as node 2.
    EXPECT_EQ((eval<float, float>({0, 8, 4}, 4, 6, {0, 2}, {1, 3}, {0, 1}, 1, {10, 20, 99}, nullptr, {0, 0})),
              (std::vector<float>{15, 99}));
    // The other way round it takes the point's row.
    EXPECT_EQ((eval<float, float>({0, 8, 4}, 4, 6, {0, 3}, {1, 2}, {0, 1}, 1, {10, 20, 99}, nullptr, {0, 0})),
              (std::vector<float>{15, 15}));
}

TEST_F(EvalContour, ChainedNodesAreNotRoundedInBetween)
{
    // A third of the way, then half of what is left: in float the point would have been 0.333333343.
    const std::vector<double> contour = {0, 3, 5};
    const std::vector<float> rows = {0, 1, 16777216};
    const double point = 0 + (1.0 - 0.0) * (1.0 - 0.0) / (3.0 - 0.0), t = (3.0 - 1.0) / (5.0 - 1.0);
    const float expected = static_cast<float>(point + (16777216.0 - point) * t);
    EXPECT_EQ((eval<double, float>(contour, 1, 3, {0, 3}, {1, 2}, {0, 1}, 1, rows, nullptr, {0, 0}))[1],
              expected);
}

// The point multiplies by the part of the level before it divides by the whole, an edge divides first.
TEST_F(EvalContour, OrderOfRounding)
{
    bool differs = false;
    std::mt19937 random(3);
    std::uniform_real_distribution<double> any(0, 1);
    for (int trial = 0; trial < 100; ++trial) {
        const double c1 = 2 + any(random), r0 = any(random), r1 = any(random);
        const std::vector<double> out =
            eval<double, double>({0, c1, 1}, 1, 1.5, {0, 2}, {1, 3}, {0, 1}, 1, {r0, r1, 0}, nullptr, {0, 0});
        const double t = (1.0 - 0.0) / (c1 - 0.0);
        EXPECT_EQ(out[0], r0 + (r1 - r0) * t);
        // t of the second is 0 over 0: its level is that of node 2.
        EXPECT_EQ(out[1], 0);
        const std::vector<double> whole = eval<double, double>({0, c1, 0.5}, 1, 1.0, {0, 2}, {1, 3}, {0, 1},
                                                               1, {r0, r1, 0}, nullptr, {0, 0});
        const double point = r0 + (r1 - r0) * (1.0 - 0.0) / (c1 - 0.0);
        EXPECT_EQ(whole[1], 0 + (point - 0) * ((1.0 - 0.5) / (1.0 - 0.5)));
        differs = differs || point != out[0];
    }
    EXPECT_TRUE(differs);
}

TEST_F(EvalContour, NegativeEndsLeaveTheRow)
{
    EXPECT_EQ((eval<float, int>({0, 10}, 5, 6, {0, -1, 0}, {1, 1, -2}, {0, 0, 1}, 2, {0, 0, 10, 20}, nullptr,
                                {7, 7, 8, 8, 9, 9})),
              (std::vector<int>{5, 10, 8, 8, 9, 9}));
}

TEST_F(EvalContour, NullInOneComponentStaysInIt)
{
    const float null = -1;
    EXPECT_EQ((eval<int, float>({0, 10}, 5, 6, {0, 1}, {1, 0}, {0, 0}, 3, {1, -1, 3, 2, 4, 5}, &null,
                                {0, 0, 0, 0, 0, 0})),
              (std::vector<float>{1.5f, -1, 4, 1.5f, -1, 4}));
}

TEST_F(EvalContour, NullPointGoesOnAsANumber)
{
    const float null = -8;
    // The point between nodes 0 and 1 has a null end; half way between it and node 2 at 4.
    EXPECT_EQ((eval<float, float>({0, 8, 8}, 4, 6, {0, 3, 2}, {1, 2, 3}, {0, 1, 1}, 1, {-8, 20, 4}, &null,
                                  {0, 0, 0})),
              (std::vector<float>{-8, -2, -2}));
    // Node 2 null: so is the result.
    EXPECT_EQ((eval<float, float>({0, 8, 8}, 4, 6, {0, 3, 2}, {1, 2, 3}, {0, 1, 1}, 1, {10, 20, -8}, &null,
                                  {0, 0, 0})),
              (std::vector<float>{15, -8, -8}));
}

TEST_F(EvalContour, CopiedRowsKeepTheirNulls)
{
    const int null = 3;
    EXPECT_EQ((eval<float, int>({1, 1}, 5, 6, {0, 1}, {1, 0}, {0, 0}, 2, {3, 1, 2, 3}, &null, {0, 0, 0, 0})),
              (std::vector<int>{3, 1, 2, 3}));
}

TEST_F(EvalContour, NaNAsNullValueMatchesNothing)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> out = eval<float, float>({0, 10}, 5, 6, {0}, {1}, {0}, 1, {1, 2}, &nan, {0});
    EXPECT_EQ(out, std::vector<float>{1.5f});
}

TEST_F(EvalContour, IntegersAreTruncated)
{
    EXPECT_EQ((eval<float, unsigned char>({0, 10}, 9.5, 6, {0}, {1}, {0}, 1, {0, 2}, nullptr, {9})),
              (std::vector<unsigned char>{1}))
        << "1.9";
    EXPECT_EQ((eval<float, signed char>({0, 10}, 9.5, 6, {0}, {1}, {0}, 1, {0, -2}, nullptr, {9})),
              (std::vector<signed char>{-1}))
        << "-1.9";
    EXPECT_EQ((eval<float, qx_long>({0, 10}, 9.5, 6, {0}, {1}, {0}, 1, {0, -2}, nullptr, {9})),
              (numbers{-1}));
}

TEST_F(EvalContour, UnknownTypesAreReportedOnceAlsoForNoNodes)
{
    const float data[1] = {0};
    for (int bad : {-1, 7})
        for (qx_long count : {0, 1}) {
            const qx_long a[1] = {0};
            const unsigned char sel[1] = {0};
            float out[1] = {5};
            host_calls::reset();
            EXPECT_EQ(UTILeval_contour(1, count, 0, bad, data, 0, 1, a, a, sel, 1, DTYPE_FLOAT, 0, nullptr, 0,
                                       data, out),
                      0);
            EXPECT_EQ(UTILeval_contour(1, count, 0, DTYPE_FLOAT, data, 0, 1, a, a, sel, 1, bad, 0, nullptr, 0,
                                       data, out),
                      0);
            EXPECT_EQ(
                UTILeval_contour(1, count, 0, bad, data, 0, 1, a, a, sel, 1, bad, 0, nullptr, 0, data, out),
                0);
            EXPECT_EQ(host_calls::report_texts(),
                      std::vector<std::string>(3, "UTILeval_contour: unknown data type"));
            EXPECT_EQ(out[0], 5);
        }
}

TEST_F(EvalContour, AsksNothingOfTheHost)
{
    const std::vector<float> contour = {0, 10}, rows = {1, 2};
    std::vector<float> out(1);
    const qx_long a[] = {0}, b[] = {1};
    const unsigned char sel[] = {0};
    host_calls::reset();
    host_calls::watch watch;
    EXPECT_EQ(UTILeval_contour(2, 1, 0, DTYPE_FLOAT, contour.data(), 5, 6, a, b, sel, 1, DTYPE_FLOAT, 0,
                               nullptr, 0, rows.data(), out.data()),
              1);
    EXPECT_EQ(watch.allocations(), 0);
    EXPECT_TRUE(host_calls::seen().statuses.empty());
    EXPECT_TRUE(host_calls::seen().reports.empty());
}
