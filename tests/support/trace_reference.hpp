// Tracing once more, slowly: every point through the functions in the mesh's own table, each sum as it comes. With
// the fields and the stand-ins for a mesh's functions to try it on.
#pragma once

#include "support/meshes.hpp"

#include <skoklana.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace trace_reference {

// ---- fields ------------------------------------------------------------------------------------------------------

using bytes = std::vector<unsigned char>;

// Values as elements of a type.
inline bytes as_type(int type, const std::vector<double> &values)
{
    const size_t size = static_cast<size_t>(DTYPEtype_size(type));
    bytes out(values.size() * size);
    for (size_t i = 0; i < values.size(); ++i)
        UTILdouble_to_type(type, values[i], out.data() + i * size);
    return out;
}

struct field {
    mesh_info *mesh = nullptr;
    const blk_tbl *table = nullptr;
    int veclen = 3, type = DTYPE_FLOAT;
    bytes data;
    int null_flag = 0;
    bytes null_value;

    const void *null() const { return null_flag != 0 ? null_value.data() : nullptr; }
};

// A vector field of a position, over the nodes of a mesh.
template <typename F>
field vectors_of(const meshes::test_mesh &m, F f, int veclen = 3, int type = DTYPE_FLOAT)
{
    std::vector<double> values;
    for (qx_long node = 0; node < m.nnodes(); ++node) {
        const std::array<double, 3> v =
            f(meshes::at(m, node, 0), meshes::at(m, node, 1), meshes::at(m, node, 2));
        values.insert(values.end(), v.begin(), v.begin() + veclen);
    }
    field made;
    made.mesh = m.mesh;
    made.veclen = veclen;
    made.type = type;
    made.data = as_type(type, values);
    return made;
}

// ---- functions of a mesh -----------------------------------------------------------------------------------------

// A mesh's table of functions, to be changed until the end of the scope.
struct own_methods {
    mesh_methods table;

    explicit own_methods(mesh_info *mesh_) : table(*mesh_->methods), mesh(mesh_), before(mesh_->methods)
    {
        mesh->methods = &table;
    }
    own_methods(const own_methods &) = delete;
    own_methods &operator=(const own_methods &) = delete;
    ~own_methods() { mesh->methods = before; }

  private:
    mesh_info *mesh;
    mesh_methods *before;
};

// ---- one step ----------------------------------------------------------------------------------------------------

struct step {
    int result = -9;
    std::array<float, 3> x1 = {77, 77, 77}, vel1 = {77, 77, 77};
    float speed_out = 77;
};

inline float speed_of(const float *v, int veclen)
{
    float sum = 0;
    for (int c = 0; c < veclen; ++c) {
        const float square = v[c] * v[c];
        sum = sum + square;
    }
    return static_cast<float>(std::sqrt(static_cast<double>(sum)));
}

// Orders and rows that the integrator takes.
inline step slow_step(const field &f, double h, int order, const std::array<float, 3> &x0, const float *vel0,
                      float max_speed)
{
    step s;
    const size_t n = static_cast<size_t>(std::min(f.mesh->nspace, f.veclen));
    const size_t veclen = static_cast<size_t>(f.veclen);
    const float limit = static_cast<float>(static_cast<double>(max_speed) + 1e-6);
    float k[5][3] = {};
    for (size_t c = 0; c < veclen; ++c) {
        k[1][c] = vel0[c];
        s.vel1[c] = 0;
    }

    const auto evaluate = [&](int stage) {
        for (size_t d = n; d < 3; ++d)
            s.x1[d] = x0[d];
        qx_long cell = -1;
        float uvw[3] = {0, 0, 0};
        s.result = f.mesh->methods->find_cell_func(f.mesh, f.table, s.x1.data(), &cell, uvw);
        if (s.result != 1) return false;
        if (f.mesh->methods->interp_data_func(f.mesh, cell, f.veclen, f.data.data(), f.type, f.null_flag,
                                              f.null(), 1, uvw, k[stage]) == 0) {
            s.result = 0;
            return false;
        }
        const float speed = speed_of(k[stage], f.veclen);
        if (speed > limit) {
            s.speed_out = speed;
            s.result = -1;
            return false;
        }
        return true;
    };
    const auto narrow = [&](float step_size, const float *v) {
        for (size_t d = 0; d < n; ++d) {
            const float way = step_size * v[d];
            s.x1[d] = x0[d] + way;
        }
    };
    const auto wide = [&](const float *v) {
        for (size_t d = 0; d < n; ++d)
            s.x1[d] = static_cast<float>(static_cast<double>(x0[d]) + h * static_cast<double>(v[d]));
    };
    const float half = static_cast<float>(h * 0.5);
    double blend[3] = {0, 0, 0};

    if (order == 1) {
        wide(k[1]);
        if (!evaluate(2)) return s;
        for (size_t c = 0; c < veclen; ++c)
            s.vel1[c] = k[1][c];
        return s;
    }
    if (order == 2) {
        narrow(static_cast<float>(0.75 * h), k[1]);
        if (!evaluate(2)) return s;
        const double third = 1.0 / 3.0, two_thirds = 2.0 / 3.0;
        for (size_t c = 0; c < veclen; ++c)
            blend[c] = third * static_cast<double>(k[1][c]) + two_thirds * static_cast<double>(k[2][c]);
    }
    if (order == 3) {
        narrow(half, k[1]);
        if (!evaluate(2)) return s;
        const float twice = static_cast<float>(2.0 * h);
        for (size_t d = 0; d < n; ++d) {
            const double along_k2 = static_cast<double>(twice) * 2.0 * static_cast<double>(k[2][d]);
            const double along_k1 = h * static_cast<double>(k[1][d]);
            s.x1[d] = static_cast<float>(static_cast<double>(x0[d]) + along_k2 - along_k1);
        }
        if (!evaluate(3)) return s;
        for (size_t c = 0; c < veclen; ++c)
            blend[c] = (static_cast<double>(k[1][c]) + 4.0 * static_cast<double>(k[2][c]) +
                        static_cast<double>(k[3][c])) /
                       6.0;
    }
    if (order == 4) {
        narrow(half, k[1]);
        if (!evaluate(2)) return s;
        narrow(half, k[2]);
        if (!evaluate(3)) return s;
        wide(k[3]);
        if (!evaluate(4)) return s;
        for (size_t c = 0; c < veclen; ++c)
            blend[c] = (static_cast<double>(k[1][c]) +
                        2.0 * (static_cast<double>(k[2][c]) + static_cast<double>(k[3][c])) +
                        static_cast<double>(k[4][c])) /
                       6.0;
    }
    for (size_t c = 0; c < veclen; ++c)
        s.vel1[c] = static_cast<float>(blend[c]);
    wide(s.vel1.data());
    return s;
}

inline step run_step(const field &f, double h, int order, const std::array<float, 3> &x0, const float *vel0,
                     float max_speed)
{
    step s;
    s.result = UTILintegrate(f.mesh, f.table, 0, f.data.data(), f.type, f.veclen, f.null_flag, f.null(), h,
                             order, x0.data(), s.x1.data(), vel0, s.vel1.data(), max_speed, &s.speed_out);
    return s;
}

// ---- stream lines --------------------------------------------------------------------------------------------------

struct line_request {
    field of;
    int order = 4, direction = 1, nseg = 2;
    double min_speed = 0;
    std::vector<float> start;
    int max_nodes = 100;
    bool record = true;
};

// Entries that were not written keep 55.
struct line {
    int result = -9, count = -9;
    std::vector<float> coords, vecs, uvws, speeds, steps, work;
    std::vector<qx_long> cells;

    explicit line(const line_request &r)
    {
        const size_t n = static_cast<size_t>(std::max(r.max_nodes, 0));
        coords.assign(n * static_cast<size_t>(r.of.mesh->nspace), 55);
        vecs.assign(n * static_cast<size_t>(std::max(r.of.veclen, 0)), 55);
        uvws.assign(n * 3, 55);
        speeds.assign(n, 55);
        steps.assign(n, 55);
        cells.assign(n, 55);
        work.assign(static_cast<size_t>(r.of.mesh->nspace), 55);
    }
};

// Why a line ended, of those that were traced.
struct line_tally {
    int outside = 0, no_value = 0, slow = 0, stage = 0, too_fast = 0, full = 0;
    int retried = 0, leaps = 0, adapted = 0, kept = 0, entered = 0;
};

inline line slow_line(const line_request &r, line_tally *tally)
{
    const field &f = r.of;
    const mesh_methods *methods = f.mesh->methods;
    line out(r);
    out.result = 1;
    out.count = 0;
    if (r.max_nodes < 1) return out;
    const size_t nspace = static_cast<size_t>(f.mesh->nspace), veclen = static_cast<size_t>(f.veclen);
    std::array<float, 3> p = {0, 0, 0};
    for (size_t d = 0; d < nspace; ++d)
        p[d] = r.start[d];
    qx_long last_cell = -1, cell = -1;
    float size = 0, uvw[3] = {0, 0, 0}, last_uvw[3] = {0, 0, 0}, lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
    double h = 0;
    for (;;) {
        if (methods->find_cell_func(f.mesh, f.table, p.data(), &cell, uvw) != 1) {
            ++tally->outside;
            return out;
        }
        float vec[3] = {0, 0, 0};
        if (methods->interp_data_func(f.mesh, cell, f.veclen, f.data.data(), f.type, f.null_flag, f.null(), 1,
                                      uvw, vec) != 1) {
            ++tally->no_value;
            return out;
        }
        const float speed = speed_of(vec, f.veclen);
        if (r.min_speed > static_cast<double>(speed) || speed == 0.0f) {
            ++tally->slow;
            return out;
        }
        const auto for_speed = [&](float v) {
            return r.direction * 0.7 * static_cast<double>(size) /
                   (static_cast<double>(r.nseg) * static_cast<double>(v));
        };
        if (cell != last_cell) {
            methods->cell_extent_func(f.mesh, cell, lo, hi);
            size = hi[0] - lo[0];
            if (size == 0.0f) size = 1e10f;
            for (size_t d = 1; d < nspace; ++d)
                if (hi[d] - lo[d] != 0.0f && hi[d] - lo[d] < size) size = hi[d] - lo[d];
            last_cell = cell;
            h = for_speed(speed);
            ++tally->entered;
        } else {
            float sum = 0;
            for (int d = 0; d < 3; ++d)
                sum += (uvw[d] - last_uvw[d]) * (uvw[d] - last_uvw[d]);
            const float way = static_cast<float>(r.nseg * std::sqrt(static_cast<double>(sum)));
            const double w = static_cast<double>(way);
            if (w < 0.01) {
                h = h * 10;
                ++tally->leaps;
            } else if (w < 0.7 || w > 2.0) {
                h = h / w;
                ++tally->adapted;
            } else {
                ++tally->kept;
            }
        }
        const size_t i = static_cast<size_t>(out.count++);
        std::copy_n(p.begin(), nspace, out.coords.begin() + static_cast<long>(i * nspace));
        std::copy_n(vec, veclen, out.vecs.begin() + static_cast<long>(i * veclen));
        if (r.record) {
            out.cells[i] = cell;
            std::copy_n(uvw, 3, out.uvws.begin() + static_cast<long>(3 * i));
            out.speeds[i] = speed;
            out.steps[i] = static_cast<float>(h);
        }
        std::copy_n(uvw, 3, last_uvw);

        float limit = speed, over = speed;
        step s;
        int attempt = 0;
        for (; attempt < 100; ++attempt) {
            s = slow_step(f, h, r.order, p, vec, limit);
            if (s.result != -1) break;
            if (s.speed_out != 77.0f) over = s.speed_out;
            limit = over;
            h = for_speed(over);
            ++tally->retried;
        }
        std::copy_n(s.x1.begin(), nspace, out.work.begin());
        if (attempt == 100) {
            ++tally->too_fast;
            return out;
        }
        if (s.result == 0) {
            ++tally->stage;
            return out;
        }
        p = s.x1;
        if (out.count == r.max_nodes) {
            ++tally->full;
            return out;
        }
    }
}

inline line run_line(const line_request &r)
{
    line out(r);
    const field &f = r.of;
    const auto recorded = [&](auto *array) { return r.record ? array : nullptr; };
    out.result = UTILstream_line(f.mesh, f.table, f.data.data(), f.type, f.veclen, f.null_flag, f.null(),
                                 r.order, r.direction, r.nseg, r.min_speed, r.start.data(), r.max_nodes,
                                 &out.count, out.coords.data(), out.vecs.data(), r.record ? 1 : 0,
                                 recorded(out.cells.data()), recorded(out.uvws.data()),
                                 recorded(out.speeds.data()), recorded(out.steps.data()), out.work.data());
    return out;
}

// ---- ribbons -------------------------------------------------------------------------------------------------------

struct ribbon_request {
    mesh_info *mesh = nullptr;
    int nspace = 3, veclen = 3;
    std::vector<float> points; // of the line
    std::vector<float> vecs, uvws, speeds, steps;
    std::vector<qx_long> cells;
    int fixed_width = 0;
    double width = 0.25, angle = 0;

    int npts() const { return static_cast<int>(speeds.size()); }
};

// What was not written keeps 55.
struct ribbon {
    int result = -9;
    std::vector<float> edge;
    float width = 55, angle = 55;
};

inline ribbon run_ribbon(const ribbon_request &r)
{
    ribbon out;
    std::vector<float> points = r.points;
    points.resize(2 * r.points.size(), 55);
    const char data = 0;
    out.result = UTILribbon(r.mesh, r.npts(), r.nspace, points.data(), r.vecs.data(), r.cells.data(),
                            r.uvws.data(), r.speeds.data(), r.steps.data(), r.veclen, &data, DTYPE_CHAR, 0,
                            nullptr, r.fixed_width, r.width, r.angle, &out.width, &out.angle);
    out.edge.assign(points.begin() + static_cast<long>(r.points.size()), points.end());
    return out;
}

using triple = std::array<float, 3>;

inline float dot(const triple &a, const triple &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

inline float length(const triple &a)
{
    return static_cast<float>(std::sqrt(static_cast<double>(dot(a, a))));
}

inline triple cross(const triple &a, const triple &b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

inline triple unit(const triple &a)
{
    const float len = length(a);
    if (!(static_cast<double>(len) > 1e-16)) return a;
    return {a[0] / len, a[1] / len, a[2] / len};
}

// (0, cos, sin) times the matrix with rows a, b, c.
inline triple in_frame(double angle, const triple &a, const triple &b, const triple &c)
{
    const float row[3] = {0, static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle))};
    float frame[9];
    for (size_t d = 0; d < 3; ++d) {
        frame[d] = a[d];
        frame[3 + d] = b[d];
        frame[6 + d] = c[d];
    }
    triple out;
    MATvec_by_mat(row, frame, out.data(), 1, 3, 3);
    return out;
}

inline ribbon slow_ribbon(const ribbon_request &r)
{
    ribbon out;
    const size_t n = r.speeds.size(), nspace = static_cast<size_t>(r.nspace),
                 veclen = static_cast<size_t>(r.veclen);
    out.edge.assign(n * nspace, 55);
    const auto padded = [](const std::vector<float> &rows, size_t i, size_t len) {
        triple t = {0, 0, 0};
        std::copy_n(rows.begin() + static_cast<long>(i * len), len, t.begin());
        return t;
    };
    const auto minus = [](const triple &a, const triple &b) {
        return triple{a[0] - b[0], a[1] - b[1], a[2] - b[2]};
    };
    std::vector<float> rate(n), spin(n);
    for (size_t i = 1; i < n; ++i) {
        std::vector<float> J(std::max<size_t>(9, 3 * veclen), 0.0f);
        const auto at = [&](size_t row, size_t column) { return J[row * veclen + column]; };
        float divergence;
        triple curl;
        const char data = 0;
        if (r.mesh->cell_ndim[0] == 3) {
            if (UTILderiv_3d(r.mesh, r.cells[i], r.veclen, &data, DTYPE_CHAR, 0, nullptr, &r.uvws[3 * i],
                             J.data()) == 0)
                return out;
            divergence = at(0, 0) + at(1, 1) + at(2, 2);
            curl = {at(1, 2) - at(2, 1), at(2, 0) - at(0, 2), at(0, 1) - at(1, 0)};
        } else {
            float frame[9], transposed[9], local_xyz[300];
            if (UTILderiv_2d(r.mesh, r.cells[i], r.veclen, &data, DTYPE_CHAR, 0, nullptr, &r.uvws[3 * i],
                             J.data(), frame, local_xyz) == 0)
                return out;
            divergence = at(0, 0) + at(1, 1);
            const float normal[3] = {0, 0, at(0, 1) - at(1, 0)};
            MATmat3_transpose(transposed, frame);
            MATvec_by_mat(normal, transposed, curl.data(), 1, 3, 3);
        }
        const float dist = length(minus(padded(r.points, i, nspace), padded(r.points, i - 1, nspace)));
        rate[i] = divergence - (r.speeds[i] - r.speeds[i - 1]) / dist;
        spin[i] = dot(curl, unit(padded(r.vecs, i, veclen))) * 0.5f;
    }
    spin[0] = static_cast<float>(r.angle);
    rate[0] = 0;
    std::vector<float> twist = spin, widths = rate;
    widths[0] = 1;
    double a = r.angle, w = 1;
    for (size_t i = 0; i + 1 < n; ++i) {
        a = (static_cast<double>(spin[i]) + static_cast<double>(spin[i + 1])) * 0.5 *
                static_cast<double>(r.steps[i + 1]) +
            a;
        twist[i + 1] = static_cast<float>(a);
        double e = (static_cast<double>(rate[i]) + static_cast<double>(rate[i + 1])) * 0.25 *
                   static_cast<double>(r.steps[i + 1]);
        if (e > 10.0) e = 10.0;
        w = w * std::exp(e);
        widths[i + 1] = static_cast<float>(w);
    }
    const auto write = [&](size_t i, const triple &edge, double width) {
        for (size_t d = 0; d < nspace; ++d)
            out.edge[i * nspace + d] = static_cast<float>(static_cast<double>(r.points[i * nspace + d]) +
                                                          static_cast<double>(edge[d]) * width);
    };
    const triple t = unit(minus(padded(r.points, 1, nspace), padded(r.points, 0, nspace)));
    triple side = {t[1], -t[0], 0};
    if (static_cast<double>(length(side)) < 1e-16) side = {-t[2], 0, t[0]};
    triple edge = in_frame(r.angle, t, cross(side, t), side);
    write(0, edge, r.width);
    for (size_t i = 1; i < n; ++i) {
        const size_t next = i + 1 < n ? i + 1 : i;
        const triple T = unit(minus(padded(r.points, next, nspace), padded(r.points, i - 1, nspace)));
        const float along = dot(T, edge);
        const triple p = unit(minus(edge, {T[0] * along, T[1] * along, T[2] * along}));
        edge = in_frame(static_cast<double>(twist[i]) - static_cast<double>(twist[i - 1]), T, p, cross(T, p));
        write(i, edge, r.fixed_width != 0 ? r.width : static_cast<double>(widths[i]) * r.width);
    }
    out.width =
        static_cast<float>(r.fixed_width != 0 ? r.width : r.width * static_cast<double>(widths[n - 1]));
    out.angle = twist[n - 1];
    out.result = 1;
    return out;
}

// ---- comparison ------------------------------------------------------------------------------------------------------

// NaN agrees with NaN whatever its bits: its sign and payload depend on the order of operands.
inline bool same_floats(const float *a, const float *b, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        if (!(std::isnan(a[i]) && std::isnan(b[i])) && memcmp(a + i, b + i, sizeof(float)) != 0) return false;
    return true;
}

inline bool same_floats(const std::vector<float> &a, const std::vector<float> &b)
{
    return a.size() == b.size() && same_floats(a.data(), b.data(), a.size());
}

inline bool same(const step &a, const step &b)
{
    return a.result == b.result && same_floats(a.x1.data(), b.x1.data(), 3) &&
           same_floats(a.vel1.data(), b.vel1.data(), 3) && same_floats(&a.speed_out, &b.speed_out, 1);
}

// What differs; "" for nothing.
inline std::string difference(const line &a, const line &b)
{
    if (a.result != b.result) return "result";
    if (a.count != b.count) return "count " + std::to_string(a.count) + " and " + std::to_string(b.count);
    if (a.cells != b.cells) return "cells";
    if (!same_floats(a.coords, b.coords)) return "coords";
    if (!same_floats(a.vecs, b.vecs)) return "vecs";
    if (!same_floats(a.uvws, b.uvws)) return "uvws";
    if (!same_floats(a.speeds, b.speeds)) return "speeds";
    if (!same_floats(a.steps, b.steps)) return "steps";
    if (!same_floats(a.work, b.work)) return "work";
    return "";
}

} // namespace trace_reference
