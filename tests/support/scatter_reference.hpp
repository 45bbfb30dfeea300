// Scattered values spread over a grid, point by point and node by node, by the definition.
#pragma once

#include <skoklana/types.h>

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <vector>

namespace scatter_reference {

struct grid {
    int ndim;
    qx_long dims[3];
    float min[3], max[3];
    int radius[3];
    int power;
};

template <typename T> T converted(double value)
{
    if (value < -1e38)
        value = -1e38;
    else if (value > 1e38)
        value = 1e38;
    else
        value = static_cast<double>(static_cast<float>(value));
    return static_cast<T>(value);
}

// seen: which branches were taken.
struct branches {
    int pinned = 0, refused = 0, empty = 0, summed = 0, null = 0;
};

template <typename T>
std::vector<T> spread(const grid &g, qx_long nnodes, int nspace, const float *coords, int veclen,
                      const T *data, bool has_null, T null_value, bool *any_empty, branches *seen)
{
    qx_long ngrid = 1, dims[3] = {1, 1, 1};
    float step[3];
    for (int k = 0; k < g.ndim; ++k) {
        dims[k] = g.dims[k];
        ngrid *= g.dims[k];
        step[k] = (g.max[k] - g.min[k]) / static_cast<float>(g.dims[k] - 1);
    }
    std::vector<double> acc(static_cast<size_t>(ngrid * veclen), static_cast<double>(null_value));
    std::vector<double> weight(static_cast<size_t>(ngrid), 0.0);
    const double threshold = g.power < 3 ? 1e-38 : std::pow(1e-38, 2.0 / g.power);
    for (qx_long p = 0; p < nnodes; ++p) {
        const float *at = coords + p * nspace;
        qx_long lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
        for (int k = 0; k < g.ndim; ++k) {
            const qx_long n = dims[k] - 1, r = g.radius[k] == 0 ? 1 : g.radius[k];
            const float ext = g.max[k] - g.min[k];
            qx_long c = 0;
            if (!(static_cast<double>(ext) <= 1e-38))
                c = static_cast<qx_long>(((at[k] - g.min[k]) / ext) * static_cast<float>(n));
            else if (g.ndim > 1)
                continue;
            if (g.ndim == 1) {
                c = std::min(std::max<qx_long>(c, 0), n);
                lo[k] = std::max<qx_long>(0, c - r);
                hi[k] = std::min(n, c + r - 1);
            } else {
                lo[k] = std::max<qx_long>(0, c - r);
                hi[k] = std::min(n, c + r);
            }
        }
        for (qx_long z = lo[2]; z <= hi[2]; ++z)
            for (qx_long y = lo[1]; y <= hi[1]; ++y) {
                float x = static_cast<float>(lo[0]) * step[0] + g.min[0];
                for (qx_long i = lo[0]; i <= hi[0]; ++i, x += step[0]) {
                    const qx_long node = (z * dims[1] + y) * dims[0] + i;
                    double &w = weight[node];
                    if (!(0 <= w && w < 1e38)) {
                        ++seen->refused;
                        continue;
                    }
                    if (has_null && data[p * veclen] == null_value) {
                        ++seen->null;
                        continue;
                    }
                    double d2;
                    const float dx = x - at[0];
                    if (g.ndim == 1) {
                        d2 = static_cast<double>(dx) * static_cast<double>(dx);
                    } else {
                        const float dy = static_cast<float>(y) * step[1] + g.min[1] - at[1];
                        float sum = dx * dx + dy * dy;
                        if (g.ndim == 3) {
                            const float dz = static_cast<float>(z) * step[2] + g.min[2] - at[2];
                            sum = sum + dz * dz;
                        }
                        d2 = static_cast<double>(sum);
                    }
                    if (d2 >= threshold) {
                        ++seen->summed;
                        if (w == 0.0)
                            for (int c = 0; c < veclen; ++c)
                                acc[node * veclen + c] = 0;
                        const double t = g.power != 2 ? std::pow(std::sqrt(d2), g.power) : d2;
                        const double wt = 1.0 / t;
                        w += wt;
                        for (int c = 0; c < veclen; ++c)
                            acc[node * veclen + c] += static_cast<double>(data[p * veclen + c]) * wt;
                    } else {
                        ++seen->pinned;
                        for (int c = 0; c < veclen; ++c)
                            acc[node * veclen + c] = static_cast<double>(data[p * veclen + c]);
                        w = -1;
                    }
                }
            }
    }
    std::vector<T> out(acc.size());
    *any_empty = false;
    for (qx_long node = 0; node < ngrid; ++node)
        for (int c = 0; c < veclen; ++c) {
            const qx_long i = node * veclen + c;
            if (weight[node] == 0.0) {
                *any_empty = true;
                ++seen->empty;
                out[i] = null_value;
            } else
                out[i] = converted<T>(weight[node] < 0 ? acc[i] : acc[i] / weight[node]);
        }
    return out;
}

} // namespace scatter_reference
