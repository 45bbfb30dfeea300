// The reduction of a height grid, told step by step: nothing is remembered but what the steps themselves keep, every
// test looks at the whole ring, and lines of edges stand in buffers by row.
#pragma once

#include <skoklana/types.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>
#include <vector>

namespace reference {

struct surface {
    std::vector<qx_long> places;  // i and j of each vertex
    std::vector<double> heights;  // as written, corrected ones included
    std::vector<qx_long> connect; // 3 a triangle
    std::vector<char> tested;     // a triangle each: 1 if it passed the test
    int boundary_splits = 0, inner_splits = 0, refined = 0, fanned = 0;
};

class surface_reduction {
  public:
    // heights as doubles; round brings a corrected height to the data's type.
    surface_reduction(std::vector<double> heights, qx_long nx, qx_long ny, double tolerance,
                      double (*round)(double))
        : data(std::move(heights)), dims{nx, ny}, tol(tolerance), to_type(round)
    {
    }

    surface run()
    {
        polygons.push_back(boundary());
        astray.push_back(false);
        while (!polygons.empty())
            if (!step()) {
                polygons.pop_back();
                astray.pop_back();
            }
        return out;
    }

  private:
    struct vertex {
        qx_long i, j;
        size_t vert;
        int kind;
        bool tested;
    };
    using ring = std::vector<vertex>; // the polygon's pointer is entry 0
    using row_buffer = std::vector<double>;

    std::vector<double> data;
    qx_long dims[2];
    double tol;
    double (*to_type)(double);
    std::vector<ring> polygons;
    int strays = 0;
    std::vector<bool> astray; // those that lie upon themselves only lose their ears
    surface out;

    double at(qx_long i, qx_long j) const { return data[static_cast<size_t>(j * dims[0] + i)]; }
    bool within(double h, double line) const { return h - tol <= line && line <= h + tol; }
    static bool same(const vertex &a, const vertex &b) { return a.i == b.i && a.j == b.j; }
    static const vertex &nth(const ring &r, size_t k) { return r[k % r.size()]; }

    size_t add_vertex(qx_long i, qx_long j)
    {
        out.places.insert(out.places.end(), {i, j});
        out.heights.push_back(at(i, j));
        return out.heights.size() - 1;
    }

    void add_triangle(size_t a, size_t b, size_t c, bool passed)
    {
        for (const size_t v : {a, b, c})
            out.connect.push_back(static_cast<qx_long>(v));
        out.tested.push_back(passed);
    }

    // ---- lines and triangles ------------------------------------------------------------------------------------

    bool line(vertex a, vertex b, row_buffer *rows) const
    {
        const double va = at(a.i, a.j), vb = at(b.i, b.j);
        if (rows != nullptr && a.j != b.j) {
            const bool up = a.j < b.j;
            double h = up ? va : vb;
            const double rise = ((up ? vb : va) - h) / static_cast<double>(std::abs(b.j - a.j));
            for (qx_long j = std::min(a.j, b.j); j <= std::max(a.j, b.j); ++j, h += rise)
                (*rows)[static_cast<size_t>(j)] = h;
        }
        if (a.i == b.i || a.j == b.j) {
            const bool forward = a.i + a.j <= b.i + b.j;
            const vertex &low = forward ? a : b, &high = forward ? b : a;
            const qx_long steps = high.i - low.i + high.j - low.j;
            double h = at(low.i, low.j);
            const double rise = (at(high.i, high.j) - h) / static_cast<double>(steps);
            for (qx_long k = 0; k <= steps; ++k, h += rise)
                if (!within(at(low.i + (a.j == b.j ? k : 0), low.j + (a.j == b.j ? 0 : k)), h)) return false;
            return true;
        }
        const vertex &low = a.i < b.i ? a : b, &high = a.i < b.i ? b : a;
        const double n = static_cast<double>(high.i - low.i);
        double h = at(low.i, low.j), y = static_cast<double>(low.j);
        const double rise = (at(high.i, high.j) - h) / n, slope = static_cast<double>(high.j - low.j) / n;
        for (qx_long i = low.i; i <= high.i; ++i, h += rise, y += slope) {
            if (i == low.i || i == high.i || y == std::floor(y)) continue;
            const qx_long row = static_cast<qx_long>(std::floor(y));
            if (row >= dims[1] - 1) continue;
            const double lower = at(i, row), upper = at(i, row + 1);
            if (!within(lower + (upper - lower) * (y - std::floor(y)), h)) return false;
        }
        return true;
    }

    bool triangle(const vertex &a, const vertex &b, const vertex &c) const
    {
        const vertex corners[3] = {a, b, c};
        row_buffer rows[3];
        struct edge {
            vertex low, high;
            double x, slope;
        } edges[3];
        const qx_long bottom = std::min({a.j, b.j, c.j}), top = std::max({a.j, b.j, c.j});
        for (int e = 0; e < 3; ++e) {
            vertex low = corners[e], high = corners[(e + 1) % 3];
            if (low.j > high.j || (low.j == high.j && low.i > high.i)) std::swap(low, high);
            rows[e].resize(static_cast<size_t>(std::max(dims[0], dims[1])));
            if (!line(low, high, &rows[e])) return false;
            edges[e] = {low, high, static_cast<double>(low.i),
                        low.j == high.j
                            ? 0.0
                            : static_cast<double>(high.i - low.i) / static_cast<double>(high.j - low.j)};
        }
        for (qx_long j = bottom; j < top; ++j) {
            double x[2], h[2];
            int found = 0;
            for (int e = 0; e < 3; ++e)
                if (edges[e].low.j <= j && j < edges[e].high.j) {
                    x[found] = edges[e].x;
                    h[found++] = rows[e][static_cast<size_t>(j)];
                    edges[e].x += edges[e].slope;
                }
            if (x[1] < x[0]) {
                std::swap(x[0], x[1]);
                std::swap(h[0], h[1]);
            }
            const double first = std::ceil(x[0]), last = std::floor(x[1]);
            if (first >= last) continue;
            double h_line = h[0] + h[1] * (x[0] - first) / (x[1] - x[0]);
            const double end = h[1] - h[0] * (last - x[1]) / (x[1] - x[0]);
            const double rise = (end - h_line) / (last - first);
            for (qx_long i = static_cast<qx_long>(first); i <= static_cast<qx_long>(last);
                 ++i, h_line += rise)
                if (!within(at(i, j), h_line)) return false;
        }
        return true;
    }

    // ---- the boundary -------------------------------------------------------------------------------------------

    ring boundary()
    {
        ring made;
        const qx_long x = dims[0] - 1, y = dims[1] - 1;
        const qx_long corners[5][2] = {{0, 0}, {x, 0}, {x, y}, {0, y}, {0, 0}};
        for (int c = 0; c < 4; ++c) {
            const qx_long *from = corners[c], *to = corners[c + 1];
            made.push_back({from[0], from[1], add_vertex(from[0], from[1]), 2, false});
            vertex last = made.back(), pending = {};
            bool has_pending = false;
            const qx_long steps = std::abs(to[0] - from[0]) + std::abs(to[1] - from[1]);
            for (qx_long k = 1; k <= steps; ++k) {
                const vertex next = {from[0] + (to[0] - from[0]) / steps * k,
                                     from[1] + (to[1] - from[1]) / steps * k, 0, 1, false};
                if (!line(last, next, nullptr) && has_pending) {
                    pending.vert = add_vertex(pending.i, pending.j);
                    made.push_back(pending);
                    last = pending;
                }
                pending = next;
                has_pending = true;
            }
        }
        return made;
    }

    // ---- the loop -----------------------------------------------------------------------------------------------

    static qx_long turn(const vertex &o, const vertex &a, const vertex &b)
    {
        return (a.i - o.i) * (b.j - o.j) - (a.j - o.j) * (b.i - o.i);
    }

    static void move_on(ring *r, size_t by)
    {
        std::rotate(r->begin(), r->begin() + static_cast<long>(by), r->end());
    }

    static void clear_tested(ring *r)
    {
        for (vertex &v : *r)
            v.tested = false;
    }

    static qx_long area(const ring &r)
    {
        qx_long sum = 0;
        for (size_t k = 0; k < r.size(); ++k)
            sum += turn(r[0], r[k], nth(r, k + 1));
        return sum;
    }

    bool goes_astray(qx_long part, qx_long whole) { return part >= whole && ++strays > 1024; }
    bool is_astray(const ring &r) const { return astray.back() || area(r) <= 0; }

    static bool coincide(const ring &r)
    {
        return std::all_of(r.begin(), r.end(), [&](const vertex &v) { return same(v, r[0]); });
    }

    // False: the polygon on top is done with.
    bool step()
    {
        ring r = polygons.back();
        if (r.size() < 3) return false;
        if (coincide(r)) {
            fan(r);
            return false;
        }
        if (r.size() == 3) {
            const bool passes = triangle(r[2], r[0], r[1]);
            if (!passes && !is_astray(r) && refine(&r)) {
                polygons.back() = r;
                return true;
            }
            add_triangle(r[2].vert, r[0].vert, r[1].vert, passes);
            return false;
        }
        bool none_left = false;
        while (r.size() > 3 && !none_left) {
            const int result = ear(&r);
            if (result == -1) {
                none_left = true;
            } else if (result == 0) {
                move_on(&r, 1);
            } else {
                const size_t n = r.size();
                add_triangle(r[n - 1].vert, r[0].vert, r[1].vert, true);
                r[n - 1].kind = r[1].kind = 0;
                r.erase(r.begin());
                clear_tested(&r);
                move_on(&r, r.size() - 1); // back to the one before
            }
        }
        polygons.back() = r;
        if (!none_left) return true;
        if (coincide(r)) {
            fan(r);
            return false;
        }
        if (is_astray(r)) {
            fan(r);
            return false;
        }
        if (split(&r)) return true;
        if (refine(&r)) {
            polygons.back() = r;
            return true;
        }
        fan(r);
        return false;
    }

    int ear(ring *r) const
    {
        vertex &v = r->front();
        const vertex &p = r->back(), &n = (*r)[1];
        if (v.tested) return -1;
        v.tested = true;
        if (v.kind == 1) return 0;
        const qx_long det = (n.i - v.i) * (p.j - v.j) - (n.j - v.j) * (p.i - v.i);
        if (static_cast<double>(det) < 1e-05) {
            v.kind = 1;
            return 0;
        }
        for (size_t k = 2; k + 1 < r->size(); ++k) {
            const qx_long s = turn(v, (*r)[k], p), t = turn(v, n, (*r)[k]);
            if (s >= 0 && s <= det && t >= 0 && t <= det && s + t < det) {
                v.kind = 1;
                return 0;
            }
        }
        if (triangle(p, v, n)) return 1;
        v.kind = 2;
        return 0;
    }

    // ---- splits -------------------------------------------------------------------------------------------------

    static bool on_segment(const vertex &a, const vertex &b, const vertex &v)
    {
        return turn(a, b, v) == 0 && v.i >= std::min(a.i, b.i) && v.i <= std::max(a.i, b.i) &&
               v.j >= std::min(a.j, b.j) && v.j <= std::max(a.j, b.j);
    }

    // Crossings in all four directions, an end counting when it is at or below the ray; 0 on an edge, 1 inside, -1.
    static int locate(const ring &r, const vertex &v)
    {
        int count[4] = {0, 0, 0, 0};
        for (size_t k = 0; k < r.size(); ++k) {
            const vertex &a = r[k], &b = nth(r, k + 1);
            if (on_segment(a, b, v)) return 0;
            if ((a.j > v.j) != (b.j > v.j)) {
                const double x = static_cast<double>(a.i) + static_cast<double>((v.j - a.j) * (b.i - a.i)) /
                                                                static_cast<double>(b.j - a.j);
                ++count[x > static_cast<double>(v.i) ? 0 : 1];
            }
            if ((a.i > v.i) != (b.i > v.i)) {
                const double y = static_cast<double>(a.j) + static_cast<double>((v.i - a.i) * (b.j - a.j)) /
                                                                static_cast<double>(b.i - a.i);
                ++count[y > static_cast<double>(v.j) ? 2 : 3];
            }
        }
        return count[0] % 2 == 1 && count[1] % 2 == 1 && count[2] % 2 == 1 && count[3] % 2 == 1 ? 1 : -1;
    }

    static bool crosses_any(const ring &r, const vertex &a, const vertex &apex)
    {
        for (size_t k = 0; k < r.size(); ++k) {
            const vertex &c = r[k], &d = nth(r, k + 1);
            if (same(c, a) || same(d, a)) continue;
            const qx_long ui = apex.i - a.i, uj = apex.j - a.j, wi = d.i - c.i, wj = d.j - c.j;
            const qx_long det = ui * wj - uj * wi, sign = det < 0 ? -1 : 1;
            if (det == 0) continue;
            const qx_long s = sign * ((c.i - a.i) * wj - (c.j - a.j) * wi);
            const qx_long t = sign * ((c.i - a.i) * uj - (c.j - a.j) * ui);
            if (s >= 0 && s < sign * det && t >= 0 && t <= sign * det) return true;
        }
        return false;
    }

    bool split(ring *r)
    {
        for (size_t k = 0; k < r->size(); ++k) {
            const vertex a = (*r)[k], b = nth(*r, k + 1);
            vertex before = {-9999, -9999, 0, 0, false};
            for (const double f : {2.0, 1.0, 0.5, 0.25, 0.125, 0.0}) {
                vertex apex = {0, 0, 0, 0, false};
                apex.i = static_cast<qx_long>(f * static_cast<double>(-(b.j - a.j)) +
                                              static_cast<double>(a.i + b.i) * 0.5);
                apex.j = static_cast<qx_long>(f * static_cast<double>(b.i - a.i) +
                                              static_cast<double>(a.j + b.j) * 0.5);
                if (same(apex, before) || same(apex, a) || same(apex, b)) break;
                before = apex;
                const int where = locate(*r, apex);
                if (where < 0) continue;
                if (where == 0 && on_segment(a, b, apex)) break;
                if (crosses_any(*r, a, apex) || crosses_any(*r, b, apex)) continue;
                if (!triangle(a, b, apex)) continue;
                if (where > 0)
                    split_inside(r, k, apex);
                else
                    split_boundary(r, k, apex);
                return true;
            }
        }
        return false;
    }

    void split_inside(ring *r, size_t k, vertex apex)
    {
        apex.vert = add_vertex(apex.i, apex.j);
        add_triangle((*r)[k].vert, nth(*r, k + 1).vert, apex.vert, true);
        r->insert(r->begin() + static_cast<long>(k) + 1, apex);
        clear_tested(r);
        polygons.back() = *r;
        ++out.inner_splits;
    }

    // Whether the direction from entry v of the ring to a place goes inwards or along an edge.
    static bool faces(const ring &r, size_t v, const vertex &to)
    {
        const vertex &p = nth(r, v + r.size() - 1), &n = nth(r, v + 1);
        const bool of_next = turn(r[v], n, to) >= 0, of_prev = turn(p, r[v], to) >= 0;
        return turn(p, r[v], n) >= 0 ? of_next && of_prev : of_next || of_prev;
    }

    void correct(size_t vert, const vertex &v, const vertex &a, const vertex &b)
    {
        const double low = out.heights[a.vert], high = out.heights[b.vert];
        const double t = a.i != b.i ? static_cast<double>(v.i - a.i) / static_cast<double>(b.i - a.i)
                                    : static_cast<double>(v.j - a.j) / static_cast<double>(b.j - a.j);
        out.heights[vert] = to_type(low + (high - low) * t);
    }

    void split_boundary(ring *r, size_t k, vertex apex)
    {
        ++out.boundary_splits;
        const qx_long whole = area(*r);
        move_on(r, k); // the edge runs from entry 0 to entry 1
        const vertex a = r->front(), b = (*r)[1];
        size_t found = r->size();
        for (size_t v = 0; v < r->size(); ++v)
            if (same((*r)[v], apex) &&
                (found == r->size() ||
                 (faces(*r, v, a) && faces(*r, v, b) && !(faces(*r, found, a) && faces(*r, found, b)))))
                found = v;
        if (found == r->size()) {
            size_t edge = r->size();
            const auto facing = [&](size_t e) {
                return turn((*r)[e], nth(*r, e + 1), a) >= 0 && turn((*r)[e], nth(*r, e + 1), b) >= 0;
            };
            for (size_t e = 0; e < r->size(); ++e)
                if (on_segment((*r)[e], nth(*r, e + 1), apex) &&
                    (edge == r->size() || (facing(e) && !facing(edge))))
                    edge = e;
            apex.vert = add_vertex(apex.i, apex.j);
            correct(apex.vert, apex, (*r)[edge], nth(*r, edge + 1));
            r->insert(r->begin() + static_cast<long>(edge) + 1, apex);
            found = edge + 1;
        }
        (*r)[found].kind = 0;
        add_triangle(a.vert, b.vert, (*r)[found].vert, true);
        clear_tested(r);
        // From b to the apex, and from there round to a.
        ring to_apex(r->begin() + 1, r->begin() + static_cast<long>(found) + 1);
        ring from_apex(r->begin() + static_cast<long>(found), r->end());
        from_apex.push_back(r->front());
        ring first = from_apex.size() > to_apex.size() ? from_apex : to_apex;
        ring second = from_apex.size() > to_apex.size() ? to_apex : from_apex;
        const bool was_astray = astray.back();
        polygons.back() = first;
        astray.back() = goes_astray(area(first), whole) || was_astray;
        if (second.size() < 3) return;
        for (vertex &v : second)
            v.kind = 0;
        polygons.push_back(second);
        astray.push_back(goes_astray(area(second), whole));
    }

    // ---- refinement and what is left ----------------------------------------------------------------------------

    bool refine(ring *r)
    {
        for (size_t k = 0; k < r->size(); ++k) {
            const vertex a = (*r)[k], b = nth(*r, k + 1);
            const qx_long di = std::abs(b.i - a.i), dj = std::abs(b.j - a.j), n = std::gcd(di, dj);
            if (di <= 1 && dj <= 1) continue;
            const bool along_i = di >= dj;
            const bool a_low = along_i ? a.i < b.i : a.j < b.j;
            const vertex &low = a_low ? a : b, &high = a_low ? b : a;
            for (qx_long step = 1; step < n; ++step) {
                vertex v = {low.i + (high.i - low.i) / n * step, low.j + (high.j - low.j) / n * step, 0, 1,
                            false};
                if (std::any_of(r->begin(), r->end(), [&](const vertex &other) { return same(v, other); }))
                    continue;
                if (!line(v, low, nullptr)) continue;
                v.vert = add_vertex(v.i, v.j);
                correct(v.vert, v, a, b);
                r->insert(r->begin() + static_cast<long>(k) + 1, v);
                clear_tested(r);
                ++out.refined;
                return true;
            }
        }
        return false;
    }

    void fan(ring r)
    {
        for (size_t idle = 0; r.size() >= 3 && idle < r.size();) {
            const vertex &p = r.back(), &v = r[0], &n = r[1];
            if ((n.i - v.i) * (p.j - v.j) - (n.j - v.j) * (p.i - v.i) >= 0) {
                add_triangle(p.vert, v.vert, n.vert, false);
                ++out.fanned;
                r.erase(r.begin());
                idle = 0;
            } else {
                move_on(&r, 1);
                ++idle;
            }
        }
    }
};

} // namespace reference
