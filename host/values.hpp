// Values from several nodes by weight, in double.
//
// A value is that of the node with the largest weight plus the weighted differences of the others from it: a
// constant comes back as it is, whatever its type, and so does the value at a node. Nodes without weight take no
// part, null or not.
#pragma once

#include <skoklana_host.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

// Less than this is the rounding of a place.
constexpr double least_weight = 1e-9;

constexpr int most_weighted_nodes = 20;

// The nodes that take part.
struct weighted_nodes {
    int count = 0, largest = 0;
    double sum = 0;
    qx_long node[most_weighted_nodes];
    double weight[most_weighted_nodes];

    void clear()
    {
        count = largest = 0;
        sum = 0;
    }

    void add(qx_long node_, double weight_)
    {
        if (std::fabs(weight_) < least_weight) return;
        if (count == 0 || weight_ > weight[largest]) largest = count;
        node[count] = node_;
        weight[count++] = weight_;
        sum += weight_;
    }

    // The same for each of some, the first ones: without a branch where all take part, as nearly always.
    void add_all(int n, const qx_long *nodes, const double *weights)
    {
        bool all = true;
        for (int k = 0; k < n; ++k)
            all = all & !(std::fabs(weights[k]) < least_weight);
        if (!all) {
            for (int k = 0; k < n; ++k)
                add(nodes[k], weights[k]);
            return;
        }
        double top = weights[0];
        for (int k = 0; k < n; ++k) {
            const bool above = weights[k] > top;
            top = above ? weights[k] : top;
            largest = above ? k : largest;
            node[k] = nodes[k];
            weight[k] = weights[k];
            sum += weights[k];
        }
        count = n;
    }

    void make_sum_1()
    {
        for (int k = 0; k < count; ++k)
            weight[k] /= sum;
    }
};

// To the nearest whole number for integer types, and to an end of the type's range beyond it.
template <typename T> inline T rounded_to(double x)
{
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(x);
    } else {
        constexpr double beyond = -static_cast<double>(std::numeric_limits<T>::min());
        const double whole = std::nearbyint(x);
        if constexpr (std::is_unsigned_v<T>) {
            if (whole >= std::numeric_limits<T>::max()) return std::numeric_limits<T>::max();
            return whole > 0 ? static_cast<T>(whole) : T{0};
        } else {
            if (whole >= beyond) return std::numeric_limits<T>::max();
            return whole >= -beyond ? static_cast<T>(whole) : std::numeric_limits<T>::min();
        }
    }
}

// One component over the nodes; rows of veclen from values on.
template <typename T> T weighted_value(const weighted_nodes &nodes, const T *values, int veclen)
{
    const T base = values[nodes.node[nodes.largest] * veclen];
    if constexpr (std::is_integral_v<T>) {
        double sum = 0;
        for (int k = 0; k < nodes.count; ++k) {
            const T value = values[nodes.node[k] * veclen];
            qx_long difference;
            if (__builtin_sub_overflow(static_cast<qx_long>(value), static_cast<qx_long>(base), &difference))
                sum += nodes.weight[k] * (static_cast<double>(value) - static_cast<double>(base));
            else
                sum += nodes.weight[k] * static_cast<double>(difference);
        }
        if constexpr (sizeof(T) < sizeof(qx_long)) {
            return rounded_to<T>(static_cast<double>(base) + sum);
        } else {
            qx_long value;
            if (!__builtin_add_overflow(base, rounded_to<qx_long>(sum), &value)) return value;
            return sum > 0 ? std::numeric_limits<T>::max() : std::numeric_limits<T>::min();
        }
    } else {
        double differences = 0, sum = 0;
        for (int k = 0; k < nodes.count; ++k) {
            const double value = static_cast<double>(values[nodes.node[k] * veclen]);
            differences += nodes.weight[k] * (value - static_cast<double>(base));
            sum += nodes.weight[k] * value;
        }
        const double value = static_cast<double>(base) + differences;
        return static_cast<T>(std::isfinite(value) ? value
                                                   : sum); // differences may be too large for a double
    }
}

template <typename T> bool is_null_row(const host_array &of, qx_long row)
{
    if (of.null == nullptr) return false;
    T null;
    memcpy(&null, of.null, sizeof null);
    return static_cast<const T *>(of.data)[row * of.veclen] == null;
}

template <typename T> bool touches_null(const weighted_nodes &nodes, const host_array &of)
{
    for (int k = 0; k < nodes.count; ++k)
        if (is_null_row<T>(of, nodes.node[k])) return true;
    return false;
}
