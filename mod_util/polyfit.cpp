// Polynomials in one variable: fits by the normal equations, and values by Horner's rule.
//
// The solver takes its array by columns, looks for the largest element of a row and exchanges whole columns, so
// what it reorders is the unknowns. That order is handed out.
//
// Nothing scales the abscissae, and the smallest pivot allowed is an absolute number: fits want abscissae
// of about 1.
//
// Golub, Van Loan. Matrix Computations: Gaussian elimination with pivoting.
#include <skoklana/measure.h>

#include "dtype.hpp"
#include "memory.hpp"

#include <cmath>
#include <utility>

// ---- linear equations --------------------------------------------------------------------------------------

// Brings the largest element of row k, from column k on, to column k; gives its magnitude.
static double bring_pivot(double *a, qx_long *perm, qx_long n, qx_long k)
{
    qx_long largest = k;
    for (qx_long p = k + 1; p < n; ++p)
        if (std::fabs(a[p * n + k]) > std::fabs(a[largest * n + k])) largest = p;
    if (largest != k) {
        for (qx_long q = 0; q < n; ++q)
            std::swap(a[largest * n + q], a[k * n + q]);
        std::swap(perm[largest], perm[k]);
    }
    return std::fabs(a[k * n + k]);
}

int UTILgauss_solve(double *a, double *b, qx_long *perm, double *x, int unknowns, double eps)
{
    const qx_long n = unknowns;
    if (n < 1) return 0;
    for (qx_long i = 0; i < n; ++i)
        perm[i] = i;
    for (qx_long k = 0; k < n; ++k) {
        if (bring_pivot(a, perm, n, k) < eps) return 0;
        for (qx_long i = k + 1; i < n; ++i) {
            const double m = a[k * n + i] / a[k * n + k];
            for (qx_long j = k; j < n; ++j)
                a[j * n + i] -= m * a[j * n + k];
            b[i] -= m * b[k];
        }
    }
    if (!(std::fabs(a[n * n - 1]) > eps)) return 0;
    for (qx_long i = n - 1; i >= 0; --i) {
        double known = 0;
        for (qx_long j = i + 1; j < n; ++j)
            known += a[j * n + i] * x[j];
        x[i] = (b[i] - known) / a[i * n + i];
    }
    return 1;
}

// ---- fits --------------------------------------------------------------------------------------------------

// Sums of powers of x into moments, and of y times these into b, in the order of the samples.
template <typename T>
static void sum_powers(qx_long npts, const float *x, const T *y, int ncoef, double *power, double *moments,
                       double *b)
{
    moments[0] = static_cast<double>(npts);
    for (qx_long i = 0; i < npts; ++i) {
        power[i] = 1;
        b[0] += static_cast<double>(y[i]);
    }
    for (int k = 1; k < 2 * ncoef; ++k) {
        double moment = 0, product = 0;
        for (qx_long i = 0; i < npts; ++i) {
            power[i] *= static_cast<double>(x[i]);
            moment += power[i];
            if (k < ncoef) product += static_cast<double>(y[i]) * power[i];
        }
        moments[k] = moment;
        if (k < ncoef) b[k] = product;
    }
}

template <typename T>
static int fit_polynomial(qx_long npts, const float *x, const T *y, int ncoef, double *coefs)
{
    if (ncoef < 1) return 0;
    const qx_long n = ncoef;
    scratch memory;
    double *a = memory.borrow<double>(n * n), *b = memory.borrow<double>(n);
    double *solution = memory.borrow<double>(n), *moments = memory.borrow<double>(2 * n);
    double *power = memory.borrow<double>(npts > 0 ? npts : 0);
    qx_long *perm = memory.borrow<qx_long>(n);
    if (a == nullptr || b == nullptr || solution == nullptr || moments == nullptr || power == nullptr ||
        perm == nullptr)
        return 0;
    sum_powers(npts, x, y, ncoef, power, moments, b);
    for (qx_long i = 0; i < n; ++i)
        for (qx_long j = 0; j < n; ++j)
            a[i * n + j] = moments[i + j];
    if (UTILgauss_solve(a, b, perm, solution, ncoef, 1e-9) == 0) return 0;
    // Callers hold coefficients that were put back in this way, which undoes the solver's order only where that
    // is its own inverse.
    for (qx_long i = 0; i < n; ++i)
        coefs[i] = solution[perm[i]];
    return 1;
}

int UTILleast_squares(qx_long npts, const float *x, int dtype, const void *y, int ncoef, double *coefs)
{
    return with_dtype(dtype, "UTILleast_squares", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        return fit_polynomial(npts, x, static_cast<const T *>(y), ncoef, coefs);
    });
}

// ---- values ------------------------------------------------------------------------------------------------

// The narrow types take the low bits of 64.
template <typename T> static T wrapped_to(double value)
{
    if constexpr (sizeof(T) < sizeof(int))
        return static_cast<T>(truncate_to<qx_long>(value));
    else
        return truncate_to<T>(value);
}

int UTILeval_polynom(int ncoef, const double *coefs, qx_long npts, const float *x, void *out, int dtype)
{
    return with_dtype(dtype, "UTILeval_polynom", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        T *to = static_cast<T *>(out);
        for (qx_long i = 0; i < npts; ++i) {
            const double at = x[i];
            double value = ncoef > 0 ? coefs[ncoef - 1] : 0.0;
            for (int k = ncoef - 2; k >= 0; --k)
                value = value * at + coefs[k];
            to[i] = wrapped_to<T>(value);
        }
        return 1;
    });
}
