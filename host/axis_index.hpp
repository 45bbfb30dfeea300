// Positions on an axis of a uniform or rectilinear mesh: between which two nodes a coordinate lies.
//
// Nodes are where the mesh has them, in float. A coordinate within rounding of a node is at it, and belongs to the
// interval below; so does one that is beyond an end by no more than a tolerance. An axis of a part is looked at as that
// of the whole: of two parts, one has the point.
#pragma once

#include "field.hpp"

#include <algorithm>
#include <cmath>

// Coordinates carry a rounding of their own: one unit in the last place of a float of this size.
inline double rounding_of(double size)
{
    return std::fabs(size) * 0x1p-23;
}

class axis_index {
  public:
    axis_index() = default;
    axis_index(const host_field *field_, int d_)
        : field(searched_field(field_)), d(d_), n(field->dims[d_]), begin(field_->first[d_]),
          end(begin + field_->dims[d_] - 1)
    {
        if (n > 1 && node(n - 1) < node(0)) sign = -1;
        if (field->kind == KIND_RECT)
            for (qx_long i = 1; i < n && monotonous; ++i)
                monotonous = signed_node(i - 1) <= signed_node(i);
    }

    // u: -1 at the interval's first node, 1 at the second. False: outside.
    bool find(double x, double tolerance, qx_long *interval, double *u) const
    {
        const double p = sign * x;
        qx_long i = 0;
        if (!(monotonous ? bracket(p, tolerance, &i) : scan(p, tolerance, &i))) return false;
        const double low = signed_node(i), high = signed_node(i + 1), length = std::fabs(high - low);
        const double rounding = std::min(rounding_of(std::max(std::fabs(low), std::fabs(high))), length / 2);
        *interval = i;
        if (monotonous && p - low <= rounding) {
            *u = i > 0 ? 1 : -1;
            *interval = i > 0 ? i - 1 : 0;
        } else if (std::fabs(high - p) <= rounding) {
            *u = 1;
        } else {
            *u = length > 0 ? std::clamp(2 * (p - low) / (high - low) - 1, -1.0, 1.0) : -1;
        }
        if (*interval < begin || *interval >= end) return false;
        *interval -= begin;
        return true;
    }

  private:
    double node(qx_long i) const { return static_cast<double>(axis_coordinate(field, d, i)); }
    double signed_node(qx_long i) const { return sign * node(i); }

    // The first interval that ends at p or above.
    bool bracket(double p, double tolerance, qx_long *interval) const
    {
        const double first = signed_node(0), last = signed_node(n - 1);
        const double beyond = std::max(tolerance, rounding_of(std::max(std::fabs(first), std::fabs(last))));
        if (!(p >= first - beyond && p <= last + beyond)) return false;
        qx_long i = 0;
        if (field->kind == KIND_UNIF) {
            const double at = last > first ? (p - first) / (last - first) * static_cast<double>(n - 1) : 0;
            i = std::clamp(static_cast<qx_long>(at), qx_long{0}, n - 2);
            while (i > 0 && signed_node(i) >= p)
                --i;
            while (i < n - 2 && signed_node(i + 1) < p)
                ++i;
        } else {
            qx_long rest = n - 1; // intervals
            while (rest > 1) {
                const qx_long half = rest / 2;
                if (signed_node(i + half) < p) {
                    i += half;
                    rest -= half;
                } else {
                    rest = half;
                }
            }
        }
        *interval = i;
        return true;
    }

    // The first interval that holds p, in either direction.
    bool scan(double p, double tolerance, qx_long *interval) const
    {
        for (const double beyond : {0.0, tolerance})
            for (qx_long i = 0; i + 1 < n; ++i) {
                const double low = signed_node(i), high = signed_node(i + 1);
                const double slack = std::max(beyond, rounding_of(std::max(std::fabs(low), std::fabs(high))));
                if (p < std::min(low, high) - slack || p > std::max(low, high) + slack || std::isnan(p))
                    continue;
                *interval = i;
                return true;
            }
        return false;
    }

    const host_field *field = nullptr;
    int d = 0;
    qx_long n = 1;
    qx_long begin = 0, end = 0; // intervals that count
    double sign = 1;
    bool monotonous = true;
};
