// Ribbons: the second edge of a stream line, which turns and widens as the field around the line does.
//
// Of the field's derivatives at a node, half the part of the curl along the line is the rate at which the field
// turns about it, and the divergence less the line's own stretching the rate at which it spreads across it. Both
// are integrated along the line by the trapezium rule, the spreading in its exponent. The edge is carried from
// node to node by projection into the plane across the line, which does not turn it, and then turned by the
// angle between the two nodes.
//
// Running values are in double, arrays in float.

#include <skoklana/deriv.h>
#include <skoklana/trace.h>

#include "jacobian.hpp"
#include "memory.hpp"

#include <algorithm>
#include <cmath>

namespace {

constexpr double shortest_vector = 1e-16; // anything shorter has no direction
constexpr double fastest_growth = 10.0;   // of the exponent of the width, a step
constexpr int most_surface_nodes = 256;   // of a surface cell, in its local coordinates

// The field that the line was traced in.
struct ribbon_field {
    mesh_info *mesh;
    int veclen;
    const void *data;
    int data_type, null_flag;
    const void *null_value;
};

// What derivatives tell about a place.
struct local_rates {
    float divergence;
    float curl[3];
};

// The traced line, an entry or row a node.
struct ribbon_line {
    int npts, nspace;
    const float *points;
    int veclen;
    const float *vecs;

    vec3 point(int i) const { return padded(points + static_cast<qx_long>(i) * nspace, nspace); }
    vec3 vector(int i) const { return padded(vecs + static_cast<qx_long>(i) * veclen, veclen); }

  private:
    static vec3 padded(const float *row, int n)
    {
        vec3 v = {0, 0, 0, 0};
        for (int d = 0; d < n; ++d)
            v[d] = row[d];
        return v;
    }
};

} // namespace

static vec3 unit_if_long(const vec3 &v)
{
    const float len = length(v);
    return len > shortest_vector ? v / len : v;
}

// The vector at an angle from b towards c in a frame with the rows a, b, c, where a is the axis.
static vec3 turned_in_frame(const vec3 &a, const vec3 &b, const vec3 &c, double angle)
{
    const float in_frame[3] = {0, static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle))};
    const float frame[9] = {a[0], a[1], a[2], b[0], b[1], b[2], c[0], c[1], c[2]};
    float out[3];
    MATvec_by_mat(in_frame, frame, out, 1, 3, 3);
    return vec3_at(out);
}

static bool rates_in_solid(const ribbon_field &field, qx_long cell, const float *uvw, local_rates *rates)
{
    // J[r][c] is entry r * veclen + c: of shorter rows than three the entries at the end stay 0.
    float J[9] = {};
    if (UTILderiv_3d(field.mesh, cell, field.veclen, field.data, field.data_type, field.null_flag,
                     field.null_value, uvw, J) == 0)
        return false;
    const auto at = [&](int r, int c) { return J[r * field.veclen + c]; };
    rates->divergence = at(0, 0) + at(1, 1) + at(2, 2);
    rates->curl[0] = at(1, 2) - at(2, 1);
    rates->curl[1] = at(2, 0) - at(0, 2);
    rates->curl[2] = at(0, 1) - at(1, 0);
    return true;
}

// In the cell's tangent frame, where the curl is along the normal.
static bool rates_in_surface(const ribbon_field &field, qx_long cell, const float *uvw, local_rates *rates)
{
    float J[9] = {}, frame[9] = {}, transposed[9], local_xyz[3 * most_surface_nodes];
    if (UTILderiv_2d(field.mesh, cell, field.veclen, field.data, field.data_type, field.null_flag,
                     field.null_value, uvw, J, frame, local_xyz) == 0)
        return false;
    const auto at = [&](int r, int c) { return J[r * field.veclen + c]; };
    const float along_normal[3] = {0, 0, at(0, 1) - at(1, 0)};
    rates->divergence = at(0, 0) + at(1, 1);
    MATmat3_transpose(transposed, frame);
    MATvec_by_mat(along_normal, transposed, rates->curl, 1, 3, 3);
    return true;
}

// The rates of spreading and turning from node 1 on; false where a derivative can't be had.
static bool measure_rates(const ribbon_field &field, const ribbon_line &line, const qx_long *cells,
                          const float *uvws, const float *speeds, float *spreading, float *turning)
{
    const int ndim = field.mesh->cell_ndim[0];
    if (ndim != 2 && ndim != 3) return false;
    const auto rates_at = ndim == 3 ? rates_in_solid : rates_in_surface;
    for (int i = 1; i < line.npts; ++i) {
        local_rates rates;
        if (!rates_at(field, cells[i], uvws + 3 * static_cast<qx_long>(i), &rates)) return false;
        const float dist = length(line.point(i) - line.point(i - 1));
        spreading[i] = rates.divergence - (speeds[i] - speeds[i - 1]) / dist;
        turning[i] = static_cast<float>(dot(vec3_at(rates.curl), unit_if_long(line.vector(i))) * 0.5);
    }
    return true;
}

// Rates become angles. Each rate is read before the angle at its node takes its place.
static void integrate_turning(int npts, const float *steps, double angle, float *turning)
{
    double running = angle;
    float rate = turning[0];
    for (int i = 0; i < npts - 1; ++i) {
        const float next = turning[i + 1];
        running += (static_cast<double>(rate) + next) * 0.5 * steps[i + 1];
        turning[i + 1] = static_cast<float>(running);
        rate = next;
    }
}

// Rates become widths, relative to that at the start.
static void integrate_spreading(int npts, const float *steps, float *spreading)
{
    double running = 1;
    float rate = spreading[0];
    for (int i = 0; i < npts - 1; ++i) {
        const float next = spreading[i + 1];
        const double exponent = (static_cast<double>(rate) + next) * 0.25 * steps[i + 1];
        running *= std::exp(exponent > fastest_growth ? fastest_growth : exponent);
        spreading[i + 1] = static_cast<float>(running);
        rate = next;
    }
    spreading[0] = 1;
}

// Neither vector across the line is of unit length where the line leaves the xy plane: the first row stands off
// by less than the width there.
static vec3 first_edge(const ribbon_line &line, double angle)
{
    const vec3 t = unit_if_long(line.point(1) - line.point(0));
    vec3 a = {t[1], -t[0], 0, 0};
    if (length(a) < shortest_vector) a = vec3{-t[2], 0, t[0], 0};
    return turned_in_frame(t, cross(a, t), a, angle);
}

static vec3 next_edge(const ribbon_line &line, int i, const vec3 &edge, double turn)
{
    const vec3 tangent = unit_if_long(line.point(i < line.npts - 1 ? i + 1 : i) - line.point(i - 1));
    const vec3 p = unit_if_long(edge - tangent * dot(tangent, edge));
    return turned_in_frame(tangent, p, cross(tangent, p), turn);
}

static void put_edge(const ribbon_line &line, int i, const vec3 &edge, double width, float *rows)
{
    float *row = rows + static_cast<qx_long>(i) * line.nspace;
    const vec3 from = line.point(i);
    for (int d = 0; d < line.nspace; ++d)
        row[d] = static_cast<float>(from[d] + edge[d] * width);
}

int UTILribbon(mesh_info *mesh, int npts, int nspace, float *points, const float *vecs, const qx_long *cells,
               const float *uvws, const float *speeds, const float *steps, int veclen, const void *data,
               int data_type, int null_flag, const void *null_value, int fixed_width, double width,
               double angle, float *width_out, float *angle_out)
{
    if (npts < 2 || nspace > 3 || veclen > 3) return 0;
    scratch room;
    const size_t bytes = static_cast<size_t>(npts) * sizeof(float);
    float *spreading = room.keep(static_cast<float *>(malloc(bytes)));
    float *turning = room.keep(static_cast<float *>(malloc(bytes)));
    if (spreading == nullptr || turning == nullptr) return 0;

    const ribbon_line line = {npts, nspace, points, veclen, vecs};
    const ribbon_field field = {mesh, veclen, data, data_type, null_flag, null_value};
    if (!measure_rates(field, line, cells, uvws, speeds, spreading, turning)) return 0;
    turning[0] = static_cast<float>(angle); // the angle at the start serves as the rate there too
    spreading[0] = 0;
    integrate_turning(npts, steps, angle, turning);
    integrate_spreading(npts, steps, spreading);

    float *edge_rows = points + static_cast<qx_long>(npts) * nspace;
    vec3 edge = first_edge(line, angle);
    put_edge(line, 0, edge, width, edge_rows);
    for (int i = 1; i < npts; ++i) {
        edge = next_edge(line, i, edge, static_cast<double>(turning[i]) - turning[i - 1]);
        put_edge(line, i, edge, fixed_width != 0 ? width : spreading[i] * width, edge_rows);
    }
    *width_out = static_cast<float>(fixed_width != 0 ? width : width * spreading[npts - 1]);
    *angle_out = turning[npts - 1];
    return 1;
}
