// The library's sweep begins with one cell around a box, and what touches that cell's corners is left out: thin cells
// at the rim. The larger the box, the thinner are those that are missing, and the less exact are the tests of points
// against circles and spheres through its corners.
//
// In space tests that are in doubt are exact, and the box is so large that next to nothing is missing. In the plane
// they are not, and points in rows need a box that is not much larger than they are. Then the pockets between the
// outline and the convex hull are filled here.
#include "tesselate.hpp"

#include "failure.hpp"
#include "progress.hpp"

#include <skoklana/scatter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>

namespace {

// How many times larger than the points the box is. In the plane the next one is tried where points are so close to a
// line that the triangles at its rim do not hang together.
constexpr float stretch_in_space = 100000, stretches_in_plane[] = {20, 600, 20000};

using spot = std::array<double, 3>;

spot at(const std::vector<float> &xyz, qx_long point)
{
    const float *row = &xyz[static_cast<size_t>(3 * point)];
    return {static_cast<double>(row[0]), static_cast<double>(row[1]), static_cast<double>(row[2])};
}

struct point_box {
    float min[3] = {0, 0, 0}, max[3] = {0, 0, 0};
    double size(int axis) const { return static_cast<double>(max[axis]) - static_cast<double>(min[axis]); }
};

point_box box_of(const std::vector<float> &xyz)
{
    point_box box;
    for (size_t i = 0; i < xyz.size(); ++i) {
        float &lo = box.min[i % 3], &hi = box.max[i % 3];
        lo = i < 3 ? xyz[i] : std::min(lo, xyz[i]);
        hi = i < 3 ? xyz[i] : std::max(hi, xyz[i]);
    }
    return box;
}

// In the plane not evenly: a corner of the first triangle straight above the points would be in line with their columns.
point_box stretched(point_box box, int ndim, float times)
{
    const float size = times * static_cast<float>(std::max({box.size(0), box.size(1), box.size(2)}));
    const float to_left = ndim == 2 ? 0.5f : 1, to_right = ndim == 2 ? 1.7f : 1;
    for (int d = 0; d < 3; ++d) {
        box.min[d] -= (d == 0 ? to_left : 1) * size;
        box.max[d] += (d == 0 ? to_right : 1) * size;
    }
    return box;
}

// Twice the area of a triangle in the plane, above 0 counter-clockwise.
double turn_of(const spot &a, const spot &b, const spot &c)
{
    return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}

// Six times the volume of a tetrahedron, above 0 where d is on the right-hand side of a, b, c.
double volume_of(const spot &a, const spot &b, const spot &c, const spot &d)
{
    double m[3][3];
    for (int k = 0; k < 3; ++k) {
        m[0][k] = b[k] - a[k];
        m[1][k] = c[k] - a[k];
        m[2][k] = d[k] - a[k];
    }
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

// Points sorted by place.
std::vector<qx_long> by_place(int ndim, const std::vector<float> &xyz)
{
    std::vector<qx_long> order(xyz.size() / 3);
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](qx_long a, qx_long b) {
        const float *p = &xyz[static_cast<size_t>(3 * a)], *q = &xyz[static_cast<size_t>(3 * b)];
        return std::lexicographical_compare(p, p + ndim, q, q + ndim);
    });
    return order;
}

// Whether a place has a corner, for the first point of each place; the others are counted.
std::vector<qx_long> unused_places(const tesselation &made, const std::vector<float> &xyz, int64_t *doubled)
{
    std::vector<bool> used(xyz.size() / 3);
    for (const qx_long point : made.cells)
        used[static_cast<size_t>(point)] = true;
    const std::vector<qx_long> order = by_place(made.ndim, xyz);
    std::vector<qx_long> unused;
    *doubled = 0;
    for (size_t first = 0, end; first < order.size(); first = end) {
        const float *place = &xyz[static_cast<size_t>(3 * order[first])];
        bool any = false;
        for (end = first; end < order.size() &&
                          std::equal(place, place + made.ndim, &xyz[static_cast<size_t>(3 * order[end])]);
             ++end)
            any = any || used[static_cast<size_t>(order[end])];
        *doubled += static_cast<int64_t>(end - first) - 1;
        if (!any) unused.push_back(order[first]);
    }
    return unused;
}

} // namespace

std::vector<qx_long> outside_of(const tesselation &made)
{
    static const int edges[3][3] = {{0, 1, -1}, {1, 2, -1}, {2, 0, -1}};
    static const int faces[4][3] = {{0, 1, 3}, {1, 2, 3}, {2, 0, 3}, {0, 2, 1}};
    using facet = std::array<qx_long, 3>; // of edges the last is unused
    constexpr qx_long unused = std::numeric_limits<qx_long>::max();
    const auto ndim = static_cast<size_t>(made.ndim), nfacets = made.cells.size();
    const auto row_of = [&](size_t number) { // number / (ndim + 1): its cell
        const size_t f = number % (ndim + 1);
        facet row = {unused, unused, unused};
        for (size_t k = 0; k < ndim; ++k)
            row[k] = made.cells[number - f + static_cast<size_t>(ndim == 2 ? edges[f][k] : faces[f][k])];
        return row;
    };
    const auto sorted_row_of = [&](size_t number) {
        facet row = row_of(number);
        for (const int k : {0, 1, 0})
            if (row[static_cast<size_t>(k)] > row[static_cast<size_t>(k) + 1])
                std::swap(row[static_cast<size_t>(k)], row[static_cast<size_t>(k) + 1]);
        return row;
    };

    // Facets by their least point: those of each are few.
    qx_long npoints = 0;
    for (const qx_long point : made.cells)
        npoints = std::max(npoints, point + 1);
    std::vector<size_t> start(static_cast<size_t>(npoints) + 1), by_least(nfacets);
    for (size_t number = 0; number < nfacets; ++number)
        ++start[static_cast<size_t>(sorted_row_of(number)[0]) + 1];
    std::partial_sum(start.begin(), start.end(), start.begin());
    std::vector<size_t> end(start.begin(), start.end() - 1);
    for (size_t number = 0; number < nfacets; ++number)
        by_least[end[static_cast<size_t>(sorted_row_of(number)[0])]++] = number;

    std::vector<qx_long> outside;
    std::vector<std::pair<facet, size_t>> of_point;
    for (size_t point = 0; point < end.size(); ++point) {
        of_point.clear();
        for (size_t i = start[point]; i < end[point]; ++i)
            of_point.emplace_back(sorted_row_of(by_least[i]), by_least[i]);
        std::sort(of_point.begin(), of_point.end());
        for (size_t i = 0, behind; i < of_point.size(); i = behind) {
            for (behind = i + 1; behind < of_point.size() && of_point[behind].first == of_point[i].first;)
                ++behind;
            if (behind - i > 1) continue;
            const facet row = row_of(of_point[i].second);
            outside.insert(outside.end(), row.begin(), row.begin() + made.ndim);
        }
    }
    return outside;
}

// ---// ---- hull ---------------------------------------------------------------------------------------------------

// The corners of the convex hull of some points by x and y, counter-clockwise. order: the points, sorted by place.
// Andrew. Another efficient algorithm for convex hulls in two dimensions. 1979
static std::vector<qx_long> hull_in_plane(const std::vector<qx_long> &order, const std::vector<float> &xyz)
{
    std::vector<qx_long> hull;
    const auto add_chain = [&](auto from, auto to) {
        const size_t start = hull.size();
        for (; from != to; ++from) {
            while (hull.size() > start + 1 &&
                   turn_of(at(xyz, hull[hull.size() - 2]), at(xyz, hull.back()), at(xyz, *from)) <= 0)
                hull.pop_back();
            hull.push_back(*from);
        }
        hull.pop_back();
    };
    add_chain(order.begin(), order.end());
    add_chain(order.rbegin(), order.rend());
    return hull;
}

// The points of the outline one after the other; empty where it is not one loop that meets no point twice.
static std::vector<qx_long> outline_of(const tesselation &made)
{
    const std::vector<qx_long> edges = outside_of(made);
    std::map<qx_long, qx_long> next;
    for (size_t e = 0; e < edges.size(); e += 2)
        next[edges[e]] = edges[e + 1];
    std::vector<qx_long> loop;
    if (edges.empty() || 2 * next.size() != edges.size()) return loop;
    qx_long point = edges[0];
    do {
        loop.push_back(point);
        const auto behind = next.find(point);
        if (behind == next.end() || loop.size() > next.size()) return {};
        point = behind->second;
    } while (point != edges[0]);
    return loop.size() == next.size() ? loop : std::vector<qx_long>();
}

// Above 0 where d is inside the circle through a, b and c, which are counter-clockwise.
static long double in_circle(const spot &a, const spot &b, const spot &c, const spot &d)
{
    using wide = long double;
    const wide ax = a[0] - d[0], ay = a[1] - d[1], bx = b[0] - d[0], by = b[1] - d[1], cx = c[0] - d[0],
               cy = c[1] - d[1];
    return (ax * ax + ay * ay) * (bx * cy - cx * by) - (bx * bx + by * by) * (ax * cy - cx * ay) +
           (cx * cx + cy * cy) * (ax * by - bx * ay);
}

// Adds the Delaunay triangles between the outline and the convex hull. Those of a pocket, which is closed by one edge,
// have its points alone: the triangle of that edge is the one whose circle holds none of them, and leaves two pockets.
static void fill_pockets(const std::vector<qx_long> &outline, const std::vector<float> &xyz,
                         tesselation *made)
{
    std::vector<qx_long> order = outline;
    std::sort(order.begin(), order.end(), [&](qx_long p, qx_long q) { return at(xyz, p) < at(xyz, q); });
    const std::vector<qx_long> hull = hull_in_plane(order, xyz);
    if (hull.size() < 3) return;
    std::vector<qx_long> loop = outline;
    std::rotate(loop.begin(), std::find(loop.begin(), loop.end(), hull[0]), loop.end());
    loop.push_back(hull[0]);
    struct pocket {
        size_t first, last; // in loop: the ends of the edge that closes it
    };
    std::vector<pocket> pockets;
    pockets.reserve(hull.size());
    for (size_t first = 0, last = 0, corner = 1; corner <= hull.size(); ++corner, first = last) {
        while (last + 1 < loop.size() && (last == first || loop[last] != hull[corner % hull.size()]))
            ++last;
        pockets.push_back({first, last});
    }
    while (!pockets.empty()) {
        const pocket one = pockets.back();
        pockets.pop_back();
        if (one.last - one.first < 2) continue;
        const spot a = at(xyz, loop[one.first]), b = at(xyz, loop[one.last]);
        size_t best = one.first + 1;
        for (size_t i = best; i < one.last; ++i) {
            const spot p = at(xyz, loop[i]);
            const bool on_edge = turn_of(a, b, p) <= 0; // there is no triangle then
            if (on_edge || in_circle(a, b, at(xyz, loop[best]), p) > 0) best = i;
            if (on_edge) break;
        }
        if (turn_of(a, b, at(xyz, loop[best])) > 0)
            made->cells.insert(made->cells.end(), {loop[one.first], loop[one.last], loop[best]});
        pockets.push_back({one.first, best});
        pockets.push_back({best, one.last});
    }
}

// ---- the whole ----------------------------------------------------------------------------------------------

static tesselation tesselate_in_box(const std::string &path, int ndim, const std::vector<float> &xyz,
                                    const point_box &box)
{
    tesselation made;
    made.ndim = ndim;
    const auto npoints = static_cast<qx_long>(xyz.size()) / 3;
    qx_long count = 0, *list = nullptr;
    const operation working(ndim == 2 ? "triangles" : "tetrahedra");
    const int result = ndim == 2
                           ? UTILdelaun_tess_2D(npoints, xyz.data(), 3, box.min, box.max, 0, &count, &list)
                           : UTILdelaun_tess_3D(npoints, xyz.data(), box.min, box.max, 0, &count, &list);
    const owned_list cells(list);
    working.check(result == 1, path + ": there was not enough memory to tesselate its points");
    if (list != nullptr) made.cells.assign(list, list + count * (ndim + 1));
    if (ndim == 3) // the library's run the other way round
        for (size_t t = 0; t < made.cells.size(); t += 4)
            std::swap(made.cells[t], made.cells[t + 1]);
    made.skipped = static_cast<int64_t>(unused_places(made, xyz, &made.doubled).size());
    return made;
}

tesselation tesselate_points(const std::string &path, int ndim, const std::vector<float> &xyz,
                             tesselated_in where)
{
    const point_box box = box_of(xyz);
    if (where == tesselated_in::own_box) return tesselate_in_box(path, ndim, xyz, box);
    if (ndim == 3) return tesselate_in_box(path, ndim, xyz, stretched(box, ndim, stretch_in_space));
    tesselation best;
    for (const float times : stretches_in_plane) {
        tesselation made = tesselate_in_box(path, ndim, xyz, stretched(box, ndim, times));
        const std::vector<qx_long> outline = outline_of(made);
        if (!outline.empty() && made.skipped == 0) {
            fill_pockets(outline, xyz, &made);
            return made;
        }
        if (best.cells.empty() || made.skipped < best.skipped) best = std::move(made);
    }
    return best;
}

static missing_part missing_in_plane(const tesselation &made, const std::vector<float> &xyz)
{
    missing_part missing;
    const std::vector<qx_long> hull = hull_in_plane(by_place(2, xyz), xyz);
    double whole = 0, covered = 0;
    for (size_t k = 1; k + 1 < hull.size(); ++k)
        whole += turn_of(at(xyz, hull[0]), at(xyz, hull[k]), at(xyz, hull[k + 1]));
    for (size_t t = 0; t < made.cells.size(); t += 3)
        covered += turn_of(at(xyz, made.cells[t]), at(xyz, made.cells[t + 1]), at(xyz, made.cells[t + 2]));
    missing.share = whole > 0 ? std::max(0.0, 1 - covered / whole) : 0;
    missing.overlaps = covered > whole * (1 + 1e-6);

    std::map<qx_long, qx_long> next, before;
    const std::vector<qx_long> outline = outside_of(made);
    for (size_t e = 0; e < outline.size(); e += 2) {
        next[outline[e]] = outline[e + 1];
        before[outline[e + 1]] = outline[e];
    }
    for (const auto &[point, behind] : next)
        if (turn_of(at(xyz, before[point]), at(xyz, point), at(xyz, behind)) < 0) ++missing.dents;
    // points at one place count as one: the corner may be another of them
    std::vector<std::array<float, 2>> places;
    places.reserve(next.size());
    for (const auto &[point, behind] : next)
        places.push_back({xyz[static_cast<size_t>(3 * point)], xyz[static_cast<size_t>(3 * point) + 1]});
    std::sort(places.begin(), places.end());
    if (whole > 0)
        for (const qx_long corner : hull)
            if (!std::binary_search(places.begin(), places.end(),
                                    std::array<float, 2>{xyz[static_cast<size_t>(3 * corner)],
                                                         xyz[static_cast<size_t>(3 * corner) + 1]}))
                ++missing.points;
    return missing;
}

// A closed surface without a dent is convex.
static missing_part missing_in_space(const tesselation &made, const std::vector<float> &xyz)
{
    missing_part missing;
    const point_box box = box_of(xyz);
    const double flat = 1e-12 * box.size(0) * box.size(1) * box.size(2);
    double covered = 0, dents = 0;
    for (size_t t = 0; t < made.cells.size(); t += 4)
        covered += volume_of(at(xyz, made.cells[t]), at(xyz, made.cells[t + 1]), at(xyz, made.cells[t + 2]),
                             at(xyz, made.cells[t + 3]));
    const std::vector<qx_long> faces = outside_of(made);
    std::map<std::pair<qx_long, qx_long>, qx_long> opposite; // of each edge of a face, the way it runs
    for (size_t f = 0; f < faces.size(); f += 3)
        for (size_t k = 0; k < 3; ++k)
            opposite[{faces[f + k], faces[f + (k + 1) % 3]}] = faces[f + (k + 2) % 3];
    for (const auto &[edge, corner] : opposite) {
        const auto other = opposite.find({edge.second, edge.first});
        if (edge.first > edge.second || other == opposite.end()) continue;
        const double dent =
            volume_of(at(xyz, edge.first), at(xyz, edge.second), at(xyz, corner), at(xyz, other->second));
        if (dent <= flat) continue;
        ++missing.dents;
        dents += dent;
    }
    missing.share = covered > 0 ? dents / (covered + dents) : 0;

    int64_t doubled;
    for (const qx_long point : unused_places(made, xyz, &doubled)) {
        bool out = false;
        for (size_t f = 0; f < faces.size() && !out; f += 3)
            out = volume_of(at(xyz, faces[f]), at(xyz, faces[f + 1]), at(xyz, faces[f + 2]), at(xyz, point)) >
                  flat;
        missing.points += out ? 1 : 0;
    }
    return missing;
}

bool is_flat(const tesselation &made, const std::vector<float> &xyz)
{
    constexpr double flat = 1e-7; // what single precision makes of a line or plane is thinner
    const point_box box = box_of(xyz);
    const double wide = std::hypot(box.size(0), box.size(1), made.ndim == 3 ? box.size(2) : 0);
    double content = 0;
    const auto corners = static_cast<size_t>(made.ndim) + 1;
    for (size_t i = 0; i < made.cells.size(); i += corners) {
        const spot a = at(xyz, made.cells[i]), b = at(xyz, made.cells[i + 1]), c = at(xyz, made.cells[i + 2]);
        content += made.ndim == 2 ? turn_of(a, b, c) : volume_of(a, b, c, at(xyz, made.cells[i + 3]));
    }
    return content <= flat * std::pow(wide, made.ndim);
}

missing_part missing_from_hull(const tesselation &made, const std::vector<float> &xyz)
{
    if (made.cells.empty()) return {};
    return made.ndim == 2 ? missing_in_plane(made, xyz) : missing_in_space(made, xyz);
}
