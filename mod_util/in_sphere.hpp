// Whether a point is strictly inside the sphere through four others, exactly.
//
// The answer is the sign of a determinant of fifth degree in the differences of coordinates. It is computed three
// times if need be: in double, with a bound on the error; in 128-bit integers, if the differences are small
// multiples of one power of two, as those of lattices are; and by expansions, sums of doubles that do not
// overlap, which hold any result short of overflow and underflow.
//
// Shewchuk. Adaptive precision floating-point arithmetic and fast robust geometric predicates. 1997
#pragma once

#include "cell_bins.hpp"

#include <cfloat>

// Sums of doubles by rising magnitude, without zeros: the terms and how many there are. The room for the terms of
// a result is given; so many at most are used: for a sum those of both, for a product twice the product of both.
struct expansion {
    double *term;
    int n;

    int sign() const { return n == 0 ? 0 : term[n - 1] > 0 ? 1 : -1; }
};

struct exact_pair {
    double high, low; // high + low is exact, high its rounding
};

inline exact_pair exact_sum(double a, double b)
{
    const double sum = a + b, b_part = sum - a;
    return {sum, (a - (sum - b_part)) + (b - b_part)};
}

inline exact_pair exact_product(double a, double b)
{
    constexpr double splitter = 134217729; // 2^27 + 1
    const double ca = splitter * a, cb = splitter * b;
    const double a_high = ca - (ca - a), b_high = cb - (cb - b);
    const double a_low = a - a_high, b_low = b - b_high, product = a * b;
    return {product, a_low * b_low - (((product - a_high * b_high) - a_low * b_high) - a_high * b_low)};
}

inline void append_term(expansion *e, double term)
{
    if (term != 0) e->term[e->n++] = term;
}

// out = a + sign b; out may be neither.
inline void add_expansions(const expansion &a, const expansion &b, double sign, expansion *out)
{
    out->n = 0;
    double carry = 0;
    for (int i = 0, j = 0; i < a.n || j < b.n;) {
        const bool from_a = j == b.n || (i < a.n && std::fabs(a.term[i]) < std::fabs(b.term[j]));
        const exact_pair sum = exact_sum(carry, from_a ? a.term[i++] : sign * b.term[j++]);
        append_term(out, sum.low);
        carry = sum.high;
    }
    append_term(out, carry);
}

// out = a b, for a double b.
inline void scale_expansion(const expansion &a, double b, expansion *out)
{
    out->n = 0;
    double carry = 0;
    for (int i = 0; i < a.n; ++i) {
        const exact_pair product = exact_product(a.term[i], b);
        const exact_pair low = exact_sum(carry, product.low);
        append_term(out, low.low);
        const exact_pair high = exact_sum(product.high, low.high);
        append_term(out, high.low);
        carry = high.high;
    }
    append_term(out, carry);
}

class sphere_test {
  public:
    bool start() { return store.reach(room); }

    // Whether p is inside the sphere through v[0] to v[3], whichever way round they are; false if they are in one
    // plane.
    bool holds(const double *const *v, const double *p)
    {
        for (int c = 0; c < 4; ++c)
            for (int k = 0; k < 3; ++k)
                d[c][k] = v[c][k] - p[k];
        int answer;
        if (by_doubles(&answer) || by_integers(v, p, &answer)) return answer > 0;
        return by_expansions(v, p) > 0;
    }

  private:
    static constexpr qx_long room = 1 << 18; // terms, of which those of the longest results use some 160000

    growing_array<double> store;
    qx_long used = 0;
    double d[4][3]; // the vertices less the point

    // The products of both determinants, that of the sphere and that of the tetrahedron, share the 3 x 3 minors;
    // [a b c] is written for that of the rows a, b, c:
    //     sphere       d.d [abc] - c.c [dab] + b.b [cda] - a.a [bcd]
    //     tetrahedron      [abc] -     [dab] +     [cda] -     [bcd]
    static constexpr int minor_rows[4][3] = {{0, 1, 2}, {3, 0, 1}, {2, 3, 0}, {1, 2, 3}};
    static constexpr int minor_lift[4] = {3, 2, 1, 0};
    static constexpr int minor_sign[4] = {1, -1, 1, -1};

    // Whether doubles can tell; answer 1: inside.
    bool by_doubles(int *answer) const
    {
        constexpr double unit = DBL_EPSILON / 2, sphere_bound = 32 * unit, tet_bound = 16 * unit;
        double sphere = 0, sphere_size = 0, tet = 0, tet_size = 0;
        for (int m = 0; m < 4; ++m) {
            const double *a = d[minor_rows[m][0]], *b = d[minor_rows[m][1]], *c = d[minor_rows[m][2]];
            const double minor = a[2] * (b[0] * c[1] - c[0] * b[1]) - b[2] * (a[0] * c[1] - c[0] * a[1]) +
                                 c[2] * (a[0] * b[1] - b[0] * a[1]);
            const double size = std::fabs(a[2]) * (std::fabs(b[0] * c[1]) + std::fabs(c[0] * b[1])) +
                                std::fabs(b[2]) * (std::fabs(a[0] * c[1]) + std::fabs(c[0] * a[1])) +
                                std::fabs(c[2]) * (std::fabs(a[0] * b[1]) + std::fabs(b[0] * a[1]));
            const double *l = d[minor_lift[m]];
            const double lift = l[0] * l[0] + l[1] * l[1] + l[2] * l[2];
            sphere += minor_sign[m] * (lift * minor);
            sphere_size += lift * size;
            tet += minor_sign[m] * minor;
            tet_size += size;
        }
        if (!(std::fabs(sphere) > sphere_bound * sphere_size) || !(std::fabs(tet) > tet_bound * tet_size))
            return false;
        *answer = (sphere > 0) == (tet > 0) ? 1 : -1;
        return true;
    }

    // Whether the differences are integers of at most 23 bits after scaling by a power of two.
    bool by_integers(const double *const *v, const double *p, int *answer) const
    {
        using wide = __int128;
        constexpr double limit = 1 << 23;
        double most = 0;
        for (int c = 0; c < 4; ++c)
            for (int k = 0; k < 3; ++k) {
                if (exact_sum(v[c][k], -p[k]).low != 0) return false;
                most = std::max(most, std::fabs(d[c][k]));
            }
        if (!(most > DBL_MIN * limit && most < DBL_MAX / limit)) return false;
        int exponent;
        frexp(most, &exponent);
        qx_long q[4][3];
        for (int c = 0; c < 4; ++c)
            for (int k = 0; k < 3; ++k) {
                const double scaled = ldexp(d[c][k], 23 - exponent);
                q[c][k] = static_cast<qx_long>(scaled);
                if (static_cast<double>(q[c][k]) != scaled) return false;
            }
        wide sphere = 0, tet = 0;
        for (int m = 0; m < 4; ++m) {
            const qx_long *a = q[minor_rows[m][0]], *b = q[minor_rows[m][1]], *c = q[minor_rows[m][2]];
            const wide minor = wide{a[2]} * (b[0] * c[1] - c[0] * b[1]) -
                               wide{b[2]} * (a[0] * c[1] - c[0] * a[1]) +
                               wide{c[2]} * (a[0] * b[1] - b[0] * a[1]);
            const qx_long *l = q[minor_lift[m]];
            sphere += minor_sign[m] * (wide{l[0] * l[0] + l[1] * l[1] + l[2] * l[2]} * minor);
            tet += minor_sign[m] * minor;
        }
        const int sphere_sign = (sphere > 0) - (sphere < 0), tet_sign = (tet > 0) - (tet < 0);
        *answer = sphere_sign * tet_sign;
        return true;
    }

    // ---- expansions --------------------------------------------------------------------------------------

    expansion take(int terms)
    {
        const expansion e = {store.data + used, 0};
        used += terms;
        assert(used <= room);
        return e;
    }

    expansion sum(const expansion &a, const expansion &b, double sign)
    {
        expansion out = take(a.n + b.n);
        add_expansions(a, b, sign, &out);
        return out;
    }

    expansion product(const expansion &a, const expansion &b)
    {
        // The sum goes to and fro between two places.
        expansion total = take(2 * a.n * b.n), other = take(2 * a.n * b.n);
        const qx_long keep = used;
        expansion part = take(2 * a.n);
        for (int j = 0; j < b.n; ++j) {
            scale_expansion(a, b.term[j], &part);
            add_expansions(total, part, 1, &other);
            std::swap(total, other);
        }
        used = keep;
        return total;
    }

    int by_expansions(const double *const *v, const double *p)
    {
        used = 0;
        expansion row[4][3];
        for (int c = 0; c < 4; ++c)
            for (int k = 0; k < 3; ++k) {
                const exact_pair difference = exact_sum(v[c][k], -p[k]);
                row[c][k] = take(2);
                append_term(&row[c][k], difference.low);
                append_term(&row[c][k], difference.high);
            }
        expansion sphere = take(0), tet = take(0);
        for (int m = 0; m < 4; ++m) {
            const expansion *a = row[minor_rows[m][0]], *b = row[minor_rows[m][1]],
                            *c = row[minor_rows[m][2]];
            const auto cross = [this](const expansion *r, const expansion *s) {
                return sum(product(r[0], s[1]), product(s[0], r[1]), -1);
            };
            const expansion ab_c = sum(product(a[2], cross(b, c)), product(b[2], cross(a, c)), -1);
            const expansion minor = sum(ab_c, product(c[2], cross(a, b)), 1);
            const expansion *l = row[minor_lift[m]];
            const expansion lift =
                sum(sum(product(l[0], l[0]), product(l[1], l[1]), 1), product(l[2], l[2]), 1);
            sphere = sum(sphere, product(lift, minor), minor_sign[m]);
            tet = sum(tet, minor, minor_sign[m]);
        }
        return sphere.sign() * tet.sign();
    }
};

constexpr int sphere_test::minor_rows[4][3];
constexpr int sphere_test::minor_lift[4];
constexpr int sphere_test::minor_sign[4];
