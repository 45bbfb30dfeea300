// A plane through a uniform or rectilinear mesh, as a regular grid on the plane.
//
// The grid has a node above every node of the two axes, u and v, that lie most nearly in the plane. Its third
// coordinate solves the plane's equation, and falls on one edge of the mesh along the third axis, w: so no
// cell is visited, and data come from the two ends of that edge. Even steps along w give the edge by a
// division, of which a step along u or v subtracts a constant; an axis of listed coordinates is searched.
//
// All arithmetic is in float, each operation rounded, and the subtractions along a row of a uniform mesh
// build up: both are part of the result. The two forms differ where the plane runs through nodes of the mesh:
// the uniform one takes the edge above with weight 0, the rectilinear one the edge below with weight 1.
#include <skoklana/iso.h>

#include <skoklana/host/tool.h>

#include "memory.hpp"

#include <cmath>

namespace {

struct slice_axes {
    int u, v, w;
};

// Coordinates of a mesh's axes, whatever form they are in.
struct axis_ends {
    float first[3], last[3];
};

// Where the plane is above the first node of u and v, the last of u, the last of v: at first[u], last[u],
// first[v], last[v] and these.
struct slice_corners {
    float w[3];
};

// The lists that are handed over: all of them or none.
struct slice_lists {
    qx_long *lo_node = nullptr, *hi_node = nullptr;
    float *weight = nullptr;
    unsigned char *valid = nullptr;

    bool allocate(qx_long count)
    {
        lo_node = alloc_numbers(count, ALLOC_AT("slice"));
        hi_node = alloc_numbers(count, ALLOC_AT("slice"));
        weight = static_cast<float *>(ARRalloc_f(nullptr, DTYPE_FLOAT, count, 0, ALLOC_AT("slice")));
        valid = static_cast<unsigned char *>(ARRalloc_f(nullptr, DTYPE_CHAR, count, 0, ALLOC_AT("slice")));
        if (lo_node != nullptr && hi_node != nullptr && weight != nullptr && valid != nullptr) return true;
        release(lo_node);
        release(hi_node);
        release(weight);
        release(valid);
        *this = {};
        return false;
    }

  private:
    static void release(void *list)
    {
        if (list != nullptr) ARRfree_f(list, ALLOC_AT("slice"));
    }
};

// Writes the grid's nodes one after the other.
struct slice_writer {
    const qx_long *dims;
    slice_axes axes;
    slice_lists lists;
    qx_long stride; // from a node of the mesh to the next one along w
    qx_long at = 0, nvalid = 0;

    slice_writer(const qx_long *mesh_dims, slice_axes mesh_axes, const slice_lists &out)
        : dims(mesh_dims), axes(mesh_axes), lists(out), stride(axes.w == 0   ? 1
                                                               : axes.w == 1 ? dims[0]
                                                                             : dims[0] * dims[1])
    {
    }

    void leave_out()
    {
        lists.lo_node[at] = lists.hi_node[at] = -1;
        lists.valid[at++] = 0;
    }

    // Between positions k and k + 1 of w, above positions i and j of u and v.
    void put(qx_long i, qx_long j, qx_long k, float weight)
    {
        qx_long position[3] = {};
        position[axes.u] = i;
        position[axes.v] = j;
        position[axes.w] = k;
        lists.lo_node[at] = (position[2] * dims[1] + position[1]) * dims[0] + position[0];
        lists.hi_node[at] = lists.lo_node[at] + stride;
        lists.weight[at] = weight;
        lists.valid[at++] = 1;
        ++nvalid;
    }
};

} // namespace

// Ties go to the lower axis. The other two follow in the sense of a screw.
static slice_axes axes_of(const float *normal)
{
    int w = 0;
    if (fabsf(normal[1]) > fabsf(normal[0])) w = 1;
    if (fabsf(normal[2]) > fabsf(normal[w])) w = 2;
    return {(w + 1) % 3, (w + 2) % 3, w};
}

static slice_corners corners_of(const axis_ends &ends, slice_axes axes, const float *normal, float d)
{
    const auto above = [=](float u, float v) {
        return (d - normal[axes.u] * u - normal[axes.v] * v) / normal[axes.w];
    };
    const float u = ends.first[axes.u], v = ends.first[axes.v];
    return {{above(u, v), above(ends.last[axes.u], v), above(u, ends.last[axes.v])}};
}

// The unit square onto the plane: rows for its two sides, for the normal, and for its first corner. The
// normal is that of the sides, whatever way the given one points.
static void place_grid(const axis_ends &ends, slice_axes axes, const slice_corners &corners, float *xform)
{
    float corner[3][3], side_u[3], side_v[3];
    for (int c = 0; c < 3; ++c) {
        corner[c][axes.u] = c == 1 ? ends.last[axes.u] : ends.first[axes.u];
        corner[c][axes.v] = c == 2 ? ends.last[axes.v] : ends.first[axes.v];
        corner[c][axes.w] = corners.w[c];
    }
    for (int k = 0; k < 3; ++k) {
        side_u[k] = corner[1][k] - corner[0][k];
        side_v[k] = corner[2][k] - corner[0][k];
    }

    float normal[3];
    for (int k = 0; k < 3; ++k) {
        const int l = (k + 1) % 3, m = (k + 2) % 3;
        normal[k] = side_u[l] * side_v[m] - side_u[m] * side_v[l];
    }
    const float length = sqrtf(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]);
    if (static_cast<double>(length) > 1e-32)
        for (float &component : normal)
            component /= length;

    MATmat4_translate(xform, corner[0]);
    for (int k = 0; k < 3; ++k) {
        xform[k] = side_u[k];
        xform[4 + k] = side_v[k];
        xform[8 + k] = normal[k];
    }
}

static void hand_over(const slice_lists &lists, qx_long **lo_node, qx_long **hi_node, float **weight,
                      unsigned char **valid)
{
    *lo_node = lists.lo_node;
    *hi_node = lists.hi_node;
    *weight = lists.weight;
    *valid = lists.valid;
}

qx_long UTILrslice_unif(const qx_long *dims, const float *points, const float *normal, double distance,
                        qx_long *out_dims, float *out_points, int out_nspace, float *xform, qx_long **lo_node,
                        qx_long **hi_node, float **weight, unsigned char **valid)
{
    const slice_axes axes = axes_of(normal);
    const auto [u, v, w] = axes;
    const float d = static_cast<float>(distance);
    slice_lists lists;
    const bool allocated = lists.allocate(dims[u] * dims[v]);
    hand_over(lists, lo_node, hi_node, weight, valid);
    if (!allocated) return 0;

    out_dims[0] = dims[u];
    out_dims[1] = dims[v];
    for (int k = 0; k < out_nspace; ++k) {
        out_points[k] = 0;
        out_points[out_nspace + k] = 1;
    }
    axis_ends ends;
    float step[3];
    for (int a = 0; a < 3; ++a) {
        ends.first[a] = points[a];
        ends.last[a] = points[3 + a];
        step[a] = dims[a] > 1 ? (ends.last[a] - ends.first[a]) / static_cast<float>(dims[a] - 1) : 0;
    }
    const slice_corners corners = corners_of(ends, axes, normal, d);
    place_grid(ends, axes, corners, xform);

    // Positions along w, in steps.
    const float start = (corners.w[0] - ends.first[w]) / step[w];
    const float du = step[u] * normal[u] / (step[w] * normal[w]),
                dv = step[v] * normal[v] / (step[w] * normal[w]);
    const float end = static_cast<float>(dims[w] - 1);
    slice_writer writer(dims, axes, lists);
    for (qx_long j = 0; j < dims[v]; ++j) {
        float t = start - static_cast<float>(j) * dv;
        for (qx_long i = 0; i < dims[u]; ++i, t -= du) {
            // NaN is nowhere; a single layer of nodes has no edge.
            if (!(t >= 0 && t <= end) || dims[w] < 2) {
                writer.leave_out();
                continue;
            }
            const qx_long k = static_cast<qx_long>(t);
            if (k >= dims[w] - 1)
                writer.put(i, j, dims[w] - 2, 1);
            else
                writer.put(i, j, k, t - static_cast<float>(k));
        }
    }
    return writer.nvalid;
}

namespace {

// Coordinates of one axis of a rectilinear mesh, a row of three floats each.
struct listed_axis {
    const float *first;
    qx_long count;

    float operator[](qx_long i) const { return first[3 * i]; }
};

// Finds the first two neighbours on an axis with a coordinate between them, the two included. Asked for near
// the last place it looks near the last place.
class bracket_search {
  public:
    explicit bracket_search(listed_axis of) : axis(of), steadily(true), upwards(of.count < 2 || of[1] > of[0])
    {
        for (qx_long m = 0; m + 1 < axis.count; ++m)
            steadily = steadily && is_before(axis[m], axis[m + 1]);
    }

    // -1: there are none.
    qx_long find(float x)
    {
        if (!steadily) {
            for (qx_long m = 0; m + 1 < axis.count; ++m)
                if (holds(m, x)) return m;
            return -1;
        }
        while (last > 0 && !is_before(axis[last], x))
            --last;
        while (last + 2 < axis.count && is_before(axis[last + 1], x))
            ++last;
        return last + 1 < axis.count && holds(last, x) ? last : -1;
    }

  private:
    listed_axis axis;
    bool steadily, upwards;
    qx_long last = 0;

    bool is_before(float a, float b) const { return upwards ? a < b : a > b; }
    bool holds(qx_long m, float x) const
    {
        return (axis[m] <= x && x <= axis[m + 1]) || (axis[m] >= x && x >= axis[m + 1]);
    }
};

} // namespace

qx_long UTILrslice_rect(const qx_long *dims, const float *points, const float *normal, double distance,
                        qx_long *out_dims, float *out_points, int out_nspace, float *xform, qx_long **lo_node,
                        qx_long **hi_node, float **weight, unsigned char **valid)
{
    const slice_axes axes = axes_of(normal);
    const auto [u, v, w] = axes;
    const float d = static_cast<float>(distance);
    slice_lists lists;
    const bool allocated = lists.allocate(dims[u] * dims[v]);
    hand_over(lists, lo_node, hi_node, weight, valid);
    if (!allocated) return 0;

    out_dims[0] = dims[u];
    out_dims[1] = dims[v];
    axis_ends ends;
    listed_axis listed[3];
    for (int a = 0; a < 3; ++a) {
        const qx_long before = a == 0 ? 0 : a == 1 ? dims[0] : dims[0] + dims[1];
        listed[a] = {points + 3 * before + a, dims[a]};
        ends.first[a] = listed[a][0];
        ends.last[a] = listed[a][dims[a] - 1];
    }
    place_grid(ends, axes, corners_of(ends, axes, normal, d), xform);

    // The two axes of the grid run from 0 to 1.
    float *row = out_points;
    for (int axis = 0; axis < 2; ++axis) {
        const int a = axis == 0 ? u : v;
        const float length = ends.last[a] - ends.first[a];
        for (qx_long i = 0; i < dims[a]; ++i, row += out_nspace)
            for (int k = 0; k < out_nspace; ++k)
                row[k] = k == axis && length != 0 ? (listed[a][i] - ends.first[a]) / length : 0;
    }

    bracket_search search(listed[w]);
    slice_writer writer(dims, axes, lists);
    for (qx_long j = 0; j < dims[v]; ++j) {
        const float rest = d - normal[v] * listed[v][j];
        for (qx_long i = 0; i < dims[u]; ++i) {
            const float x = (rest - normal[u] * listed[u][i]) / normal[w];
            const qx_long m = search.find(x);
            if (m < 0)
                writer.leave_out();
            else
                writer.put(i, j, m, (x - listed[w][m]) / (listed[w][m + 1] - listed[w][m]));
        }
    }
    return writer.nvalid;
}
