// Clouds of points for tesselations and scattered data: spread, heaped, in rows, on curves, in the same place.
#pragma once

#include <skoklana/types.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace point_clouds {

struct cloud {
    int axes;
    std::vector<float> coords; // rows of axes floats
    qx_long count() const { return static_cast<qx_long>(coords.size()) / axes; }
};

struct box {
    float min[3], max[3];
};

inline float uniform(std::mt19937 &random)
{
    return static_cast<float>(random() >> 8) / 16777216.0f;
}

inline cloud spread(int axes, int count, unsigned seed)
{
    std::mt19937 random(seed);
    cloud c = {axes, {}};
    for (int i = 0; i < count * axes; ++i)
        c.coords.push_back(uniform(random));
    return c;
}

// The same cloud elsewhere and of another size.
inline cloud moved(cloud c, float factor, float shift)
{
    for (float &x : c.coords)
        x = x * factor + shift;
    return c;
}

// Heaps of points, of one size in eight places.
inline cloud clustered(int axes, int count, unsigned seed)
{
    std::mt19937 random(seed);
    float place[8][3];
    for (auto &row : place)
        for (float &x : row)
            x = uniform(random);
    cloud c = {axes, {}};
    for (int i = 0; i < count; ++i) {
        const float *at = place[random() % 8];
        for (int k = 0; k < axes; ++k)
            c.coords.push_back(at[k] + 0.02f * (uniform(random) + uniform(random) + uniform(random) - 1.5f));
    }
    return c;
}

// side points along each axis.
inline cloud lattice(int axes, int side, float spacing)
{
    cloud c = {axes, {}};
    for (int k = 0; k < (axes == 3 ? side : 1); ++k)
        for (int j = 0; j < side; ++j)
            for (int i = 0; i < side; ++i) {
                c.coords.push_back(static_cast<float>(i) * spacing);
                c.coords.push_back(static_cast<float>(j) * spacing);
                if (axes == 3) c.coords.push_back(static_cast<float>(k) * spacing);
            }
    return c;
}

// Whole numbers below side, many of them more than once.
inline cloud whole(int axes, int count, int side, unsigned seed)
{
    std::mt19937 random(seed);
    cloud c = {axes, {}};
    for (int i = 0; i < count * axes; ++i)
        c.coords.push_back(static_cast<float>(random() % static_cast<unsigned>(side)));
    return c;
}

// On a circle or sphere, as nearly as floats can be.
inline cloud round(int axes, int count, unsigned seed)
{
    std::mt19937 random(seed);
    cloud c = {axes, {}};
    while (c.count() < count) {
        float p[3] = {0, 0, 0}, length2 = 0;
        for (int k = 0; k < axes; ++k) {
            p[k] = 2 * uniform(random) - 1;
            length2 += p[k] * p[k];
        }
        if (length2 < 0.1f || length2 > 1) continue;
        for (int k = 0; k < axes; ++k)
            c.coords.push_back(p[k] / std::sqrt(length2));
    }
    return c;
}

// The circle of radius 65 has 36 points with whole coordinates; rings of it, some points more than once.
inline cloud whole_circle()
{
    cloud c = {2, {}};
    for (int centre : {0, 40})
        for (int x = -65; x <= 65; ++x)
            for (int y = -65; y <= 65; ++y)
                if (x * x + y * y == 65 * 65) {
                    c.coords.push_back(static_cast<float>(x + centre));
                    c.coords.push_back(static_cast<float>(y));
                }
    return c;
}

inline cloud slanted_line(int axes, int count)
{
    cloud c = {axes, {}};
    for (int i = 0; i < count; ++i)
        for (int k = 0; k < axes; ++k)
            c.coords.push_back(static_cast<float>(i * (k + 1)) * 0.125f);
    return c;
}

// With NaN and infinities in some places.
inline cloud spoilt(int axes, int count, unsigned seed, float bad)
{
    cloud c = spread(axes, count, seed);
    std::mt19937 random(seed + 1);
    for (int i = 0; i < 5; ++i)
        c.coords[random() % c.coords.size()] = bad;
    return c;
}

// The box of the numbers among the coordinates, never flat, moved and stretched by parts of its size.
inline box box_of(const cloud &c, float shift = 0, float stretch = 0)
{
    box b;
    for (int k = 0; k < c.axes; ++k) {
        b.min[k] = std::numeric_limits<float>::infinity();
        b.max[k] = -b.min[k];
        for (size_t i = static_cast<size_t>(k); i < c.coords.size(); i += static_cast<size_t>(c.axes))
            if (std::isfinite(c.coords[i])) {
                b.min[k] = std::min(b.min[k], c.coords[i]);
                b.max[k] = std::max(b.max[k], c.coords[i]);
            }
        if (!(b.min[k] <= b.max[k])) b.min[k] = b.max[k] = 0;
        if (b.min[k] == b.max[k]) b.max[k] += 1;
        const float size = b.max[k] - b.min[k];
        b.min[k] += (shift - stretch) * size;
        b.max[k] += (shift + stretch) * size;
    }
    return b;
}

} // namespace point_clouds
