// Polynomials: values, fits, and the solver behind them.
#include <skoklana/measure.h>

#include "support/arrays.hpp"
#include "support/fresh_host.hpp"
#include "support/meshes.hpp"

#include <algorithm>
#include <cmath>
#include <tuple>

using namespace arrays;

namespace {

using reals = std::vector<double>;

double horner(const reals &coefs, double x)
{
    double value = 0;
    for (size_t k = coefs.size(); k-- > 0;)
        value = value * x + coefs[k];
    return value;
}

// The normal equations of a fit.
void normal_equations(const std::vector<float> &x, const reals &y, int ncoef, reals *a, reals *b)
{
    const size_t n = static_cast<size_t>(ncoef);
    reals moments(2 * n, 0.0);
    b->assign(n, 0.0);
    for (size_t i = 0; i < x.size(); ++i) {
        double power = 1;
        for (size_t k = 0; k < 2 * n; ++k, power *= static_cast<double>(x[i])) {
            moments[k] += power;
            if (k < n) (*b)[k] += y[i] * power;
        }
    }
    a->resize(n * n);
    for (size_t i = 0; i < n; ++i)
        for (size_t j = 0; j < n; ++j)
            (*a)[i * n + j] = moments[i + j];
}

template <typename T> class Fit : public FreshHost {
};
TYPED_TEST_SUITE(Fit, all_types);

class Polynomial : public FreshHost {};

} // namespace

TYPED_TEST(Fit, OneCoefficientIsTheMean)
{
    using T = TypeParam;
    const std::vector<T> y = {T(1), T(2), T(6)};
    const std::vector<float> x = {5, 5, 5};
    double mean = 0;
    EXPECT_EQ(1, UTILleast_squares(3, x.data(), dtype_of<T>, y.data(), 1, &mean));
    EXPECT_DOUBLE_EQ(3, mean);
}

TYPED_TEST(Fit, TwoCoefficientsAreTheLine)
{
    using T = TypeParam;
    std::vector<float> x;
    std::vector<T> y;
    for (int i = 0; i < 10; ++i) {
        x.push_back(static_cast<float>(i));
        y.push_back(T(7 + 3 * i));
    }
    double coefs[2];
    EXPECT_EQ(1, UTILleast_squares(10, x.data(), dtype_of<T>, y.data(), 2, coefs));
    EXPECT_NEAR(7, coefs[0], 1e-9);
    EXPECT_NEAR(3, coefs[1], 1e-9);
}

TYPED_TEST(Fit, ValuesAreTruncatedAndNarrowTypesTakeTheLowBits)
{
    using T = TypeParam;
    const double coefs[3] = {1.9, 0, -0.5};
    const std::vector<float> x = {0, 1, 2, 3};
    std::vector<T> out(4);
    EXPECT_EQ(1, UTILeval_polynom(3, coefs, 4, x.data(), out.data(), dtype_of<T>));
    for (size_t i = 0; i < 4; ++i) {
        const double value = horner({1.9, 0, -0.5}, x[i]);
        if constexpr (std::is_integral_v<T>)
            EXPECT_EQ(static_cast<T>(static_cast<qx_long>(value)), out[i]);
        else
            EXPECT_EQ(static_cast<T>(value), out[i]);
    }
    const double large[1] = {300.7};
    EXPECT_EQ(1, UTILeval_polynom(1, large, 1, x.data(), out.data(), dtype_of<T>));
    if (sizeof(T) == 1) {
        EXPECT_EQ(T(44), out[0]);
    }
}

TEST_F(Polynomial, NarrowIntegersWrapThrough64Bits)
{
    const double coefs[1] = {-1.9}, huge[1] = {4294967296.0 + 7};
    const float x = 0;
    unsigned char byte;
    short half;
    UTILeval_polynom(1, coefs, 1, &x, &byte, DTYPE_BYTE);
    EXPECT_EQ(255, byte);
    UTILeval_polynom(1, huge, 1, &x, &half, DTYPE_SHORT);
    EXPECT_EQ(7, half);
}

TEST_F(Polynomial, WithoutCoefficientsItIsZeroAndWithoutPointsNothing)
{
    const float x[2] = {1, 2};
    float out[2] = {7, 7};
    EXPECT_EQ(1, UTILeval_polynom(0, nullptr, 1, x, out, DTYPE_FLOAT));
    EXPECT_EQ(0, out[0]);
    EXPECT_EQ(7, out[1]);
    const double coefs[1] = {3};
    EXPECT_EQ(1, UTILeval_polynom(1, coefs, 0, x, out, DTYPE_FLOAT));
    EXPECT_EQ(0, out[0]);
}

TEST_F(Polynomial, UnknownTypesComeFirst)
{
    EXPECT_EQ(0, UTILeval_polynom(1, nullptr, 0, nullptr, nullptr, 7));
    EXPECT_EQ(0, UTILleast_squares(0, nullptr, -1, nullptr, 0, nullptr));
    EXPECT_EQ((std::vector<std::string>{"UTILeval_polynom: unknown data type",
                                        "UTILleast_squares: unknown data type"}),
              host_calls::report_texts());
}

TEST_F(Polynomial, TheCubicOnOneToEightComesBackInTheWrongOrder)
{
    std::vector<float> x;
    reals y;
    for (int i = 1; i <= 8; ++i) {
        x.push_back(static_cast<float>(i));
        y.push_back(horner({1, 2, 3, 4}, i));
    }
    double coefs[4];
    ASSERT_EQ(1, UTILleast_squares(8, x.data(), DTYPE_DOUBLE, y.data(), 4, coefs));
    const double scrambled[4] = {2, 1, 4, 3};
    for (int k = 0; k < 4; ++k)
        EXPECT_NEAR(scrambled[k], coefs[k], 1e-4);

    reals a, b, solution(4);
    std::vector<qx_long> perm(4);
    normal_equations(x, y, 4, &a, &b);
    ASSERT_EQ(1, UTILgauss_solve(a.data(), b.data(), perm.data(), solution.data(), 4, 1e-9));
    EXPECT_EQ((std::vector<qx_long>{3, 2, 0, 1}), perm);
    for (size_t k = 0; k < 4; ++k)
        EXPECT_NEAR(static_cast<double>(perm[k] + 1), solution[k], 1e-4);
}

TEST_F(Polynomial, DegreesZeroToEightComeBackThroughTheSolver)
{
    std::vector<float> x;
    for (int i = 0; i <= 60; ++i)
        x.push_back(static_cast<float>(i) / 30 - 1);
    for (int ncoef = 1; ncoef <= 9; ++ncoef) {
        const auto coefs = meshes::random_values<double>(static_cast<uint64_t>(ncoef), ncoef, -3, 3);
        reals y, a, b, solution(static_cast<size_t>(ncoef)), direct(static_cast<size_t>(ncoef));
        for (float at : x)
            y.push_back(horner(coefs, static_cast<double>(at)));
        normal_equations(x, y, ncoef, &a, &b);
        std::vector<qx_long> perm(static_cast<size_t>(ncoef));
        ASSERT_EQ(1, UTILgauss_solve(a.data(), b.data(), perm.data(), solution.data(), ncoef, 1e-9));
        for (size_t k = 0; k < solution.size(); ++k)
            EXPECT_NEAR(coefs[static_cast<size_t>(perm[k])], solution[k], 1e-7) << "degree " << ncoef - 1;
        // The fit puts the same numbers back by the same order the other way round.
        ASSERT_EQ(1, UTILleast_squares(61, x.data(), DTYPE_DOUBLE, y.data(), ncoef, direct.data()));
        for (size_t k = 0; k < solution.size(); ++k)
            EXPECT_NEAR(solution[static_cast<size_t>(perm[k])], direct[k], 1e-9);
    }
}

TEST_F(Polynomial, SingularFitsLeaveTheCoefficientsAlone)
{
    const std::vector<float> x = {1, 1, 2, 2}, small = {1e-6f, 2e-6f, 3e-6f};
    const reals y = {1, 2, 3, 4};
    double coefs[3] = {7, 7, 7};
    EXPECT_EQ(0, UTILleast_squares(4, x.data(), DTYPE_DOUBLE, y.data(), 3, coefs)); // two abscissae
    EXPECT_EQ(0, UTILleast_squares(0, x.data(), DTYPE_DOUBLE, y.data(), 1, coefs));
    EXPECT_EQ(0, UTILleast_squares(4, x.data(), DTYPE_DOUBLE, y.data(), 0, coefs));
    EXPECT_EQ(0, UTILleast_squares(3, small.data(), DTYPE_DOUBLE, y.data(), 2, coefs)); // nothing scales x
    for (double c : coefs)
        EXPECT_EQ(7, c);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(Polynomial, SolverFindsTheUnknownsOfRandomSystemsInTheOrderItTells)
{
    int reordered = 0;
    for (int n = 1; n <= 12; ++n) {
        const size_t size = static_cast<size_t>(n);
        const auto columns = meshes::random_values<double>(static_cast<uint64_t>(n), n * n, -1, 1);
        const auto unknowns = meshes::random_values<double>(static_cast<uint64_t>(n) + 50, n, -9, 9);
        reals a = columns, b(size, 0.0), x(size);
        for (size_t i = 0; i < size; ++i)
            for (size_t j = 0; j < size; ++j)
                b[i] += columns[j * size + i] * unknowns[j];
        std::vector<qx_long> perm(size);
        ASSERT_EQ(1, UTILgauss_solve(a.data(), b.data(), perm.data(), x.data(), n, 1e-9));
        for (size_t k = 0; k < size; ++k)
            EXPECT_NEAR(unknowns[static_cast<size_t>(perm[k])], x[k], 1e-8) << n;
        reordered += !std::is_sorted(perm.begin(), perm.end());
    }
    EXPECT_GT(reordered, 5);
}

TEST_F(Polynomial, ThePivotTestIsAbsoluteAndTheLastPivotMustExceedIt)
{
    for (const auto &[first, last, result] :
         std::vector<std::tuple<double, double, int>>{{0.5, 1, 1},  // an earlier pivot may equal it
                                                      {0.49, 1, 0}, // or not fall below it
                                                      {1, 0.5, 0},  // the last one must be above
                                                      {1, 0.51, 1},
                                                      {1, 0.25, 0},
                                                      {1, std::nan(""), 0}}) {
        double a[4] = {first, 0, 0, last}, b[2] = {1, 1}, x[2] = {7, 7};
        qx_long perm[2];
        EXPECT_EQ(result, UTILgauss_solve(a, b, perm, x, 2, 0.5)) << first << " " << last;
        EXPECT_EQ(result == 0, x[0] == 7);
    }
    double x = 7;
    EXPECT_EQ(0, UTILgauss_solve(nullptr, nullptr, nullptr, &x, 0, 0.5));
}

TEST_F(Polynomial, OfEqualMagnitudesTheFirstColumnStaysAndTheRightSideIsNotReordered)
{
    double a[4] = {1, 3, -1, 5}, b[2] = {2, 4}, x[2]; // u0 - u1 = 2, 3 u0 + 5 u1 = 4
    qx_long perm[2];
    ASSERT_EQ(1, UTILgauss_solve(a, b, perm, x, 2, 1e-9));
    EXPECT_EQ(0, perm[0]);
    EXPECT_DOUBLE_EQ(1.75, x[0]);
    EXPECT_DOUBLE_EQ(-0.25, x[1]);
    double c[4] = {1, 3, -2, 5}, d[2] = {2, 4}; // u0 - 2 u1 = 2: the larger factor comes first
    ASSERT_EQ(1, UTILgauss_solve(c, d, perm, x, 2, 1e-9));
    EXPECT_EQ(1, perm[0]);
    EXPECT_DOUBLE_EQ(-2.0 / 11, x[0]);
    EXPECT_DOUBLE_EQ(18.0 / 11, x[1]);
}

TEST_F(Polynomial, AFitWithoutMemoryGivesZero)
{
    const std::vector<float> x = {1, 2, 3}, y = {1, 2, 3};
    double coefs[2] = {7, 7};
    for (int k = 0;; ++k) {
        const host_calls::watch watch;
        host_calls::fail_allocation(k);
        const int result = UTILleast_squares(3, x.data(), DTYPE_FLOAT, y.data(), 2, coefs);
        EXPECT_EQ(0, watch.live_blocks());
        if (!host_calls::allocation_was_refused()) {
            EXPECT_EQ(1, result);
            EXPECT_GE(k, 6);
            break;
        }
        EXPECT_EQ(0, result);
        EXPECT_EQ(7, coefs[0]);
        host_calls::reset();
    }
}
