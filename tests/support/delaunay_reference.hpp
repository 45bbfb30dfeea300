// The sweep of the Delaunay tesselations as it is told: every cell a block of its own on one of four lists, each
// point tested against every live cell, the boundary of a cavity by a map of chains. Slow and plain.
#pragma once

#include <skoklana/types.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace delaunay_reference {

struct result {
    int returned = 1;
    bool wrote_count = false, has_conn = false;
    qx_long count = 0;      // cells handed over, or the live count after an interruption
    qx_long allocated = -1; // entries asked for
    std::vector<qx_long> conn;
    std::string said;
    std::vector<int> percents; // of the status checks
    qx_long moved = 0, skipped = 0, empty_cavities = 0;
};

template <int axes> struct cell {
    std::array<qx_long, axes + 1> v;
    std::array<double, axes> centre;
    double r2;
    cell *next;
};

template <int axes> struct cell_list {
    cell<axes> *head = nullptr;
    void push(cell<axes> *c)
    {
        c->next = head;
        head = c;
    }
    cell<axes> *pop()
    {
        cell<axes> *c = head;
        head = c->next;
        return c;
    }
    void clear()
    {
        while (head != nullptr)
            delete pop();
    }
    ~cell_list() { clear(); }
};

template <int axes> struct sweep {
    using point = std::array<double, axes>;
    using facet = std::array<qx_long, axes>;

    qx_long nnodes;
    std::vector<point> work;
    std::array<point, axes + 1> enclosing;
    cell_list<axes> active, finished, cavity, made;
    std::array<qx_long, axes + 1> last;
    result out;

    point &vertex(qx_long id) { return id >= nnodes ? enclosing[id - nnodes] : work[id]; }

    template <typename... Args> void say(const char *format, Args... args)
    {
        char text[400];
        snprintf(text, sizeof text, format, args...);
        out.said += text;
    }

    bool sphere(cell<axes> *c)
    {
        const point p0 = vertex(c->v[0]), p1 = vertex(c->v[1]), p2 = vertex(c->v[2]);
        if constexpr (axes == 2) {
            const double a1 = p1[0] - p0[0], b1 = p1[1] - p0[1];
            const double c1 = -0.5 * ((p0[1] + p1[1]) * b1 + (p0[0] + p1[0]) * a1);
            const double a2 = p2[0] - p1[0], b2 = p2[1] - p1[1];
            const double c2 = -0.5 * ((p1[1] + p2[1]) * b2 + (p1[0] + p2[0]) * a2);
            const double det = b2 * a1 - a2 * b1;
            if (det == 0.0) return false;
            c->centre = {(c2 * b1 - b2 * c1) / det, (a2 * c1 - c2 * a1) / det};
            const double dx = c->centre[0] - p2[0], dy = c->centre[1] - p2[1];
            c->r2 = dx * dx + dy * dy;
        } else {
            const point *p[4] = {&p0, &p1, &p2, &vertex(c->v[3])};
            double e[3][3], d[3];
            for (int i = 0; i < 3; ++i) {
                for (int k = 0; k < 3; ++k)
                    e[i][k] = (*p[i + 1])[k] - (*p[i])[k];
                d[i] = -0.5 *
                       (((*p[i])[0] + (*p[i + 1])[0]) * e[i][0] + ((*p[i])[1] + (*p[i + 1])[1]) * e[i][1] +
                        ((*p[i])[2] + (*p[i + 1])[2]) * e[i][2]);
            }
            const auto det3 = [](const double *a, const double *b, const double *m) {
                return a[0] * (b[1] * m[2] - b[2] * m[1]) - a[1] * (b[0] * m[2] - b[2] * m[0]) +
                       a[2] * (b[0] * m[1] - b[1] * m[0]);
            };
            const double det = det3(e[0], e[1], e[2]);
            if (det == 0.0) return false;
            for (int k = 0; k < 3; ++k) {
                double m[3][3];
                for (int i = 0; i < 3; ++i)
                    for (int j = 0; j < 3; ++j)
                        m[i][j] = j == k ? -d[i] : e[i][j];
                c->centre[k] = det3(m[0], m[1], m[2]) / det;
            }
            c->r2 = 0;
            for (int k = 0; k < 3; ++k)
                c->r2 += (c->centre[k] - (*p[3])[k]) * (c->centre[k] - (*p[3])[k]);
        }
        return true;
    }

    cell<axes> *make(const facet &f, qx_long p)
    {
        cell<axes> *c = new cell<axes>;
        for (int k = 0; k < axes; ++k)
            c->v[k] = f[k];
        c->v[axes] = p;
        last = c->v;
        if (sphere(c)) return c;
        const point p0 = vertex(f[0]), p1 = vertex(f[1]);
        point step;
        if constexpr (axes == 2) {
            step = {(p1[1] - p0[1]) * 0.001, (p1[0] - p0[0]) * -0.001};
        } else {
            const point p2 = vertex(f[2]);
            const point a = {p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]};
            const point b = {p2[0] - p0[0], p2[1] - p0[1], p2[2] - p0[2]};
            point n = {b[1] * a[2] - b[2] * a[1], b[2] * a[0] - b[0] * a[2], b[0] * a[1] - b[1] * a[0]};
            const float length = static_cast<float>(
                std::sqrt(static_cast<double>(static_cast<float>(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]))));
            const double both = std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]) +
                                std::sqrt(b[0] * b[0] + b[1] * b[1] + b[2] * b[2]);
            for (int k = 0; k < 3; ++k) {
                if (static_cast<double>(length) > 1e-24) n[k] /= static_cast<double>(length);
                step[k] = n[k] * both * 1e-5;
            }
        }
        for (int tries = 0; tries < 6; ++tries) {
            for (int k = 0; k < axes; ++k)
                work[p][k] += step[k];
            if (sphere(c)) break;
        }
        ++out.moved;
        delete c;
        return nullptr;
    }

    std::vector<facet> boundary()
    {
        static const int edges[3][3] = {{0, 1, 0}, {1, 2, 0}, {2, 0, 0}};
        static const int faces[4][3] = {{1, 2, 0}, {2, 3, 0}, {3, 1, 0}, {1, 3, 2}};
        std::map<qx_long, std::vector<facet>> buckets; // newest last
        for (cell<axes> *c = cavity.head; c != nullptr; c = c->next)
            for (int f = 0; f <= axes; ++f) {
                facet ids;
                for (int k = 0; k < axes; ++k)
                    ids[k] = c->v[axes == 2 ? edges[f][k] : faces[f][k]];
                qx_long least = *std::min_element(ids.begin(), ids.end());
                if (axes == 3)
                    while (ids[1] != least)
                        std::rotate(ids.begin(), ids.begin() + 1, ids.end());
                facet sorted = ids;
                std::sort(sorted.begin(), sorted.end());
                std::vector<facet> &chain = buckets[least];
                size_t at = chain.size();
                while (at > 0) {
                    facet other = chain[at - 1];
                    std::sort(other.begin(), other.end());
                    if (other == sorted) break;
                    --at;
                }
                if (at > 0)
                    chain.erase(chain.begin() + static_cast<long>(at) - 1);
                else
                    chain.push_back(ids);
            }
        std::vector<facet> all;
        for (auto &bucket : buckets)
            all.insert(all.end(), bucket.second.rbegin(), bucket.second.rend());
        return all;
    }

    void search(const point &p)
    {
        for (cell<axes> **link = &active.head; *link != nullptr;) {
            cell<axes> *c = *link;
            const double dx = p[0] - c->centre[0];
            if (dx * dx > c->r2) {
                *link = c->next;
                finished.push(c);
                continue;
            }
            double d2 = 0;
            for (int k = 0; k < axes; ++k)
                d2 = k == 0 ? (c->centre[k] - p[k]) * (c->centre[k] - p[k])
                            : d2 + (c->centre[k] - p[k]) * (c->centre[k] - p[k]);
            if (c->r2 > d2) {
                *link = c->next;
                cavity.push(c);
                --out.count;
                continue;
            }
            link = &c->next;
        }
    }

    bool attempt(qx_long id)
    {
        const point p = work[id];
        search(p);
        const std::vector<facet> edges = boundary();
        if (edges.empty()) ++out.empty_cavities;
        for (const facet &edge : edges) {
            cell<axes> *c = make(edge, id);
            if (c == nullptr) {
                while (cavity.head != nullptr) {
                    active.push(cavity.pop());
                    ++out.count;
                }
                made.clear();
                return false;
            }
            made.push(c);
        }
        cavity.clear();
        while (made.head != nullptr) {
            active.push(made.pop());
            ++out.count;
        }
        return true;
    }

    void enclose(const float *lo, const float *hi)
    {
        double min[axes], d[axes];
        float df[axes];
        for (int k = 0; k < axes; ++k) {
            min[k] = static_cast<double>(lo[k]);
            df[k] = hi[k] - lo[k];
            d[k] = static_cast<double>(df[k]);
        }
        if constexpr (axes == 2) {
            const double low = min[1] - (0.2 * d[0]) * d[1] / d[0];
            enclosing[0] = {min[0] - d[0] - 0.2 * d[0], low};
            enclosing[1] = {static_cast<double>(hi[0]) + d[0] + 0.2 * d[0], low};
            enclosing[2] = {min[0] + 0.5 * d[0], static_cast<double>(df[1] * 2.0f + lo[1])};
        } else {
            const double x = min[0] - 0.5 * d[0], y = min[1] - 0.5 * d[1], z = min[2] - 0.5 * d[2];
            enclosing[0] = {x, y, z};
            enclosing[1] = {x + static_cast<double>(df[0] * 4.0f), y, z};
            enclosing[2] = {x, y, z + 12.0 * d[2]};
            enclosing[3] = {x, y + static_cast<double>(df[1] * 6.0f), z};
        }
    }

    void hand_over(bool check)
    {
        out.allocated = (axes + 1) * out.count;
        out.has_conn = true;
        out.count = 0;
        int bad = 0;
        if (active.head != nullptr)
            for (cell<axes> *list : {active.head, finished.head})
                for (cell<axes> *c = list; c != nullptr; c = c->next) {
                    if (*std::max_element(c->v.begin(), c->v.end()) >= nnodes) continue;
                    out.conn.insert(out.conn.end(), c->v.begin(), c->v.end());
                    ++out.count;
                    if (!check) continue;
                    for (qx_long j = 0; j < nnodes; ++j) {
                        if (std::find(last.begin(), last.end(), j) != last.end()) continue;
                        double d2 = 0;
                        for (int k = 0; k < axes; ++k)
                            d2 += (c->centre[k] - work[j][k]) * (c->centre[k] - work[j][k]);
                        if (!(1.0 - d2 / c->r2 > 1e-5)) continue;
                        ++bad;
                        const double r = static_cast<double>(static_cast<float>(c->r2));
                        const double d = static_cast<double>(static_cast<float>(d2));
                        if constexpr (axes == 2)
                            say(" tri (%" PRId64 " %" PRId64 " %" PRId64 ") includes point %" PRId64
                                "  r=%f d=%f\n",
                                c->v[0], c->v[1], c->v[2], j, r, d);
                        else
                            say("tet (%" PRId64 " %" PRId64 " %" PRId64 " %" PRId64
                                ") includes point %" PRId64 "  r=%f d=%f\n",
                                c->v[0], c->v[1], c->v[2], c->v[3], j, r, d);
                    }
                }
        if (check) say("ucd_scat_to_tet: %d bad tetras found\n", bad);
    }

    // stop_at: the number of the status check that asks to stop.
    void run(const float *coords, int nspace, const float *lo, const float *hi, bool check, int stop_at)
    {
        for (qx_long i = 0; i < nnodes; ++i) {
            point p;
            for (int k = 0; k < axes; ++k)
                p[k] = static_cast<double>(coords[i * nspace + k]);
            work.push_back(p);
        }
        for (int k = 0; k < axes; ++k)
            if (axes == 2 ? static_cast<double>(hi[k] - lo[k]) == 0.0 : hi[k] == lo[k]) {
                out.wrote_count = axes == 3;
                return;
            }
        out.wrote_count = true;
        enclose(lo, hi);
        cell<axes> *first = new cell<axes>;
        for (int k = 0; k <= axes; ++k)
            first->v[k] = nnodes + k;
        last = first->v;
        sphere(first);
        active.push(first);
        out.count = 1;

        std::vector<qx_long> order;
        for (qx_long i = 0; i < nnodes; ++i)
            order.push_back(i);
        const auto before = [](double a, double b) { return a < b || (std::isnan(b) && !std::isnan(a)); };
        std::sort(order.begin(), order.end(), [&](qx_long a, qx_long b) {
            for (int k = 0; k < axes; ++k) {
                if (before(work[a][k], work[b][k])) return true;
                if (before(work[b][k], work[a][k])) return false;
            }
            return a < b;
        });
        const float factor = static_cast<float>(100.0 / static_cast<double>(nnodes));
        const int period = axes == 2 ? 128 : 64;
        int counter = 0;
        for (qx_long i = 0; i < nnodes; ++i) {
            if (counter == period) {
                out.percents.push_back(static_cast<int>(static_cast<float>(i) * factor));
                if (static_cast<int>(out.percents.size()) > stop_at) {
                    out.returned = 0;
                    return;
                }
                counter = 0;
            } else
                ++counter;
            if (i > 0 && work[order[i]] == work[order[i - 1]]) continue;
            bool in = false;
            for (int tries = 0; tries < 5 && !in; ++tries)
                in = attempt(order[i]);
            if (!in) {
                ++out.skipped;
                say(axes == 2 ? "scat_to_tri: skip point %" PRId64 "\n"
                              : "scat_to_tet: skip point %" PRId64 "\n",
                    axes * order[i]);
            }
        }
        hand_over(check);
    }
};

template <int axes>
result tesselate(const std::vector<float> &coords, int nspace, const float *lo, const float *hi,
                 bool check = false, int stop_at = 1 << 30)
{
    sweep<axes> s;
    s.nnodes = static_cast<qx_long>(coords.size()) / nspace;
    s.run(coords.data(), nspace, lo, hi, check, stop_at);
    return s.out;
}

} // namespace delaunay_reference
