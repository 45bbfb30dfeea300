// Height grids reduced to triangles within a tolerance, by cutting up a polygon.
//
// The grid's boundary, with the nodes that its heights need, is a polygon. Ears are cut from it as long as one is
// found whose triangle holds against the grid. Where none is left a triangle is put on one of the edges, with an apex
// inside that becomes a new corner, or one on the boundary, by which the polygon falls in two. Where that fails too an
// edge gets another node, and at the very end what is left is filled as it is.
//
// Each of these steps goes around the ring and takes the first that will do, so a round costs all the tests of all
// the corners, and there are as many rounds as nodes. But an outcome changes only where something near has changed:
//
//   ears     A corner is tried again when one of its neighbours is another, or when a corner comes to lie in its
//            triangle. One that was found barred stays so till an ear beside it is cut. (stale_ear; the ears found
//            not to hold are kept by their boxes, to be found by the new corner.)
//   apexes   Whether the triangle holds depends on its three places alone and is kept with the edge. An apex that a
//            polygon edge stands in the way of is tried again when that edge goes. (stale_edge; watchers of an edge.)
//
// So a round goes from one stale corner or edge to the next, in the order of the ring, and comes to the same as a full
// one. Corners in a triangle, edges in the way and what an apex lies on are found by boxes in the plane. All of these
// tests are exact, in whole numbers.
#include <skoklana/measure.h>

#include "height_test.hpp"
#include "memory.hpp"
#include "plane_boxes.hpp"

#include <cstring>
#include <numeric>

namespace {

constexpr qx_long output_step = 1024; // entries that an output array starts with and grows by

enum corner_kind : signed char {
    untried = 0,
    barred = 1, // no ear can be cut here
    failed = 2  // a corner of the grid, or one whose triangle does not hold
};

enum class known : signed char { nothing, holds, fails };

enum step_result { no_memory = -1, unchanged = 0, changed = 1 };

// An apex over the middle of an edge, as high as this many times its length.
constexpr double apex_factors[] = {2.0, 1.0, 0.5, 0.25, 0.125, 0.0};
constexpr int napexes = 6;
constexpr grid_place no_apex = {-9999, -9999};

struct surf_output {
    qx_long ncoords = 0;
    double dx, dy;
    float *coords = nullptr;
    char *vdata = nullptr;
    qx_long vcapacity = output_step;
    qx_long ntris = 0;
    qx_long *connect = nullptr;
    qx_long tcapacity = output_step;
};

// Membership in a list of corners or edges that are to be tried.
struct stale_link {
    int next = -1, prev = -1;
    bool is_in = false;
};

struct stale_list {
    int first = -1;
    qx_long count = 0;
};

// A corner of a polygon, with the edge to the next one.
struct ring_node {
    grid_place at = {0, 0};
    qx_long vert = 0;
    int next = -1, prev = -1;
    int polygon = -1; // on the stack; -1: a free record
    signed char kind = untried;
    known ear = known::nothing;               // whether the triangle of the two neighbours holds
    known line = known::nothing;              // the edge
    unsigned char looked_at = 0, holding = 0; // of the edge's apexes, a bit each
    int watchers = -1;                        // of the edge
    unsigned mark = 0;                        // changes with the edge
    uint64_t order = 0;                       // place in the ring, which runs once around all numbers
    stale_link stale_ear, stale_edge;
    box_link edge_box, ear_box;
};

// An edge that is to be told when the one that it watches goes; of another mark it is not that edge any more.
struct edge_watch {
    int edge, next;
    unsigned mark;
};

// A ring that lies upon itself can come out of a division, and such a one could go on for ever. One whose area is not
// above 0, or not less than that of the ring it came from once that has happened too often, only loses what ears it has.
constexpr int most_strays = 1024;

struct surf_polygon {
    qx_long count;
    stale_list ears, edges; // to be tried
    qx_long area;           // twice
    int node;
    bool astray;
};

template <typename T> struct pool {
    T *items = nullptr;
    int used = 0, capacity = 0, free_list = -1;

    pool() = default;
    pool(const pool &) = delete;
    pool &operator=(const pool &) = delete;
    ~pool() { free(items); }

    T &operator[](int i) { return items[i]; }
    const T &operator[](int i) const { return items[i]; }

    bool reserve(int count)
    {
        if (count <= capacity) return true;
        if (count > (1 << 30)) return false;
        const int wanted = std::max(count, capacity + capacity / 2 + 64);
        void *grown = realloc(static_cast<void *>(items), static_cast<size_t>(wanted) * sizeof(T));
        if (grown == nullptr) return false;
        items = static_cast<T *>(grown);
        capacity = wanted;
        return true;
    }

    // A new record behind the used ones; -1: no memory.
    int append(const T &item)
    {
        if (!reserve(used + 1)) return -1;
        items[used] = item;
        return used++;
    }
};

struct reduction {
    height_grid grid;
    int nspace, dtype;
    qx_long element_size;
    const float *points;
    surf_output out;
    pool<ring_node> node;
    pool<edge_watch> watch;
    pool<surf_polygon> polygon; // a stack; the top is worked on
    int strays = 0;             // divisions after which a part was no smaller than the whole
    plane_boxes<ring_node, &ring_node::edge_box> edges;
    plane_boxes<ring_node, &ring_node::ear_box> failed_ears;
};

} // namespace

// ---- output --------------------------------------------------------------------------------------------------

static bool open_output(reduction *s)
{
    surf_output &out = s->out;
    out.coords = static_cast<float *>(
        ARRalloc_f(nullptr, DTYPE_FLOAT, out.vcapacity * s->nspace, 0, ALLOC_AT("optm_srf")));
    out.vdata = static_cast<char *>(
        ARRalloc_f(nullptr, DTYPE_CHAR, out.vcapacity * s->element_size, 0, ALLOC_AT("optm_srf")));
    out.connect = alloc_numbers(3 * out.tcapacity, ALLOC_AT("optm_srf"));
    return out.coords != nullptr && out.vdata != nullptr && out.connect != nullptr;
}

static void release_output(surf_output *out)
{
    if (out->coords != nullptr) ARRfree_f(out->coords, ALLOC_AT("optm_srf"));
    if (out->vdata != nullptr) ARRfree_f(out->vdata, ALLOC_AT("optm_srf"));
    release_numbers(&out->connect, ALLOC_AT("optm_srf"));
}

static bool grow_vertices(reduction *s)
{
    surf_output &out = s->out;
    out.vcapacity += output_step;
    void *coords = ARRrealloc_f(out.coords, DTYPE_FLOAT, out.vcapacity * s->nspace, 0, ALLOC_AT("optm_srf"));
    if (coords == nullptr) return false;
    out.coords = static_cast<float *>(coords);
    void *vdata =
        ARRrealloc_f(out.vdata, DTYPE_CHAR, out.vcapacity * s->element_size, 0, ALLOC_AT("optm_srf"));
    if (vdata == nullptr) return false;
    out.vdata = static_cast<char *>(vdata);
    return true;
}

// The number of the new vertex; -1: no memory.
static qx_long write_vertex(reduction *s, grid_place at)
{
    surf_output &out = s->out;
    if (out.ncoords + 1 >= out.vcapacity && !grow_vertices(s)) return -1;
    float *xyz = out.coords + out.ncoords * s->nspace;
    xyz[0] = static_cast<float>(static_cast<double>(at.i) * out.dx + static_cast<double>(s->points[0]));
    xyz[1] = static_cast<float>(static_cast<double>(at.j) * out.dy + static_cast<double>(s->points[1]));
    if (s->nspace == 3) xyz[2] = 0;
    const qx_long from = at.j * s->grid.dims[0] + at.i, size = s->element_size;
    memcpy(out.vdata + out.ncoords * size, static_cast<const char *>(s->grid.data) + from * size,
           static_cast<size_t>(size));
    return out.ncoords++;
}

static bool write_triangle(reduction *s, qx_long a, qx_long b, qx_long c)
{
    surf_output &out = s->out;
    if (out.ntris + 1 >= out.tcapacity) {
        out.tcapacity += output_step;
        void *grown = ARRrealloc_f(out.connect, DTYPE_QX_LONG, 3 * out.tcapacity, 0, ALLOC_AT("optm_srf"));
        if (grown == nullptr) return false;
        out.connect = static_cast<qx_long *>(grown);
    }
    qx_long *tri = out.connect + 3 * out.ntris++;
    tri[0] = a;
    tri[1] = b;
    tri[2] = c;
    return true;
}

// A vertex on the edge from a to b gets the height of the edge, as written, so that the triangle on the other side,
// which does not know the vertex, meets those on this side without a crack.
static void write_edge_height(reduction *s, qx_long vert, grid_place at, const ring_node &a,
                              const ring_node &b)
{
    const qx_long size = s->element_size;
    double low, high;
    UTILtype_to_double(s->dtype, s->out.vdata + a.vert * size, &low);
    UTILtype_to_double(s->dtype, s->out.vdata + b.vert * size, &high);
    const double t = a.at.i != b.at.i
                         ? static_cast<double>(at.i - a.at.i) / static_cast<double>(b.at.i - a.at.i)
                         : static_cast<double>(at.j - a.at.j) / static_cast<double>(b.at.j - a.at.j);
    UTILdouble_to_type(s->dtype, low + (high - low) * t, s->out.vdata + vert * size);
}

// ---- rings ---------------------------------------------------------------------------------------------------

static const ring_node &next_of(const reduction &s, int v)
{
    return s.node[s.node[v].next];
}

static const ring_node &prev_of(const reduction &s, int v)
{
    return s.node[s.node[v].prev];
}

// A corner by itself; -1: no memory.
static int new_node(reduction *s, grid_place at, qx_long vert, corner_kind kind, int polygon)
{
    int v = s->node.free_list;
    if (v >= 0)
        s->node.free_list = s->node[v].next;
    else if ((v = s->node.append(ring_node())) < 0)
        return -1;
    ring_node &node = s->node[v];
    const unsigned mark = node.mark;
    node = ring_node();
    node.at = at;
    node.vert = vert;
    node.kind = kind;
    node.polygon = polygon;
    node.mark = mark;
    return v;
}

template <stale_link ring_node::*link, stale_list surf_polygon::*list>
static void set_stale(reduction *s, int v)
{
    stale_link &of = s->node[v].*link;
    if (of.is_in) return;
    stale_list &all = s->polygon[s->node[v].polygon].*list;
    of = {all.first, -1, true};
    if (all.first >= 0) (s->node[all.first].*link).prev = v;
    all.first = v;
    ++all.count;
}

// One that is not stale is taken too.
template <stale_link ring_node::*link, stale_list surf_polygon::*list>
static void set_settled(reduction *s, int v)
{
    stale_link &of = s->node[v].*link;
    if (!of.is_in) return;
    stale_list &all = s->polygon[s->node[v].polygon].*list;
    if (of.next >= 0) (s->node[of.next].*link).prev = of.prev;
    (of.prev >= 0 ? (s->node[of.prev].*link).next : all.first) = of.next;
    of.is_in = false;
    --all.count;
}

// The first stale one from a corner on, in the order of the ring; there is one. Of many the next is not far, of few
// the order tells.
template <stale_link ring_node::*link, stale_list surf_polygon::*list>
static int first_stale(const reduction &s, int p, int from)
{
    constexpr qx_long few = 16;
    const stale_list &all = s.polygon[p].*list;
    int v = from;
    if (all.count > few) {
        while (!(s.node[v].*link).is_in)
            v = s.node[v].next;
        return v;
    }
    int found = all.first;
    for (v = (s.node[found].*link).next; v >= 0; v = (s.node[v].*link).next)
        if (s.node[v].order - s.node[from].order < s.node[found].order - s.node[from].order) found = v;
    return found;
}

static void set_stale_ear(reduction *s, int v)
{
    s->failed_ears.remove(s->node.items, v);
    set_stale<&ring_node::stale_ear, &surf_polygon::ears>(s, v);
}

static void set_stale_edge(reduction *s, int v)
{
    set_stale<&ring_node::stale_edge, &surf_polygon::edges>(s, v);
}

static void settle_ear(reduction *s, int v)
{
    set_settled<&ring_node::stale_ear, &surf_polygon::ears>(s, v);
}

static void settle_edge(reduction *s, int v)
{
    set_settled<&ring_node::stale_edge, &surf_polygon::edges>(s, v);
}

// The order of a ring's corners, from one on, with room between them.
static void number_ring(reduction *s, int first, qx_long count)
{
    const uint64_t step = ~uint64_t{0} / static_cast<uint64_t>(count);
    uint64_t order = 0;
    int v = first;
    for (qx_long k = 0; k < count; ++k, v = s->node[v].next, order += step)
        s->node[v].order = order;
}

static void drop_watchers(reduction *s, int v, bool tell)
{
    for (int w = s->node[v].watchers; w >= 0;) {
        edge_watch &entry = s->watch[w];
        const int next = entry.next;
        if (tell && s->node[entry.edge].mark == entry.mark) set_stale_edge(s, entry.edge);
        entry.next = s->watch.free_list;
        s->watch.free_list = w;
        w = next;
    }
    s->node[v].watchers = -1;
}

// The edge from v to its next is another one, of which this is known.
static void edge_changed(reduction *s, int v, known line)
{
    drop_watchers(s, v, true);
    ring_node &node = s->node[v];
    s->edges.remove(s->node.items, v);
    s->edges.insert(s->node.items, v, box_of(node.at, next_of(*s, v).at));
    ++node.mark;
    node.line = line;
    node.looked_at = node.holding = 0;
    set_stale_edge(s, v);
}

// A neighbour of v is another one.
static void ear_changed(reduction *s, int v)
{
    s->node[v].ear = known::nothing;
    if (s->node[v].kind != barred) set_stale_ear(s, v);
}

static void drop_node(reduction *s, int v, bool tell)
{
    ring_node &node = s->node[v];
    surf_polygon &of = s->polygon[node.polygon];
    s->edges.remove(s->node.items, v);
    s->failed_ears.remove(s->node.items, v);
    settle_ear(s, v);
    settle_edge(s, v);
    ++node.mark;
    drop_watchers(s, v, tell);
    --of.count;
    node.polygon = -1;
    node.next = s->node.free_list;
    s->node.free_list = v;
}

static void release_ring(reduction *s, int p)
{
    int v = s->polygon[p].node;
    while (s->polygon[p].count > 0) {
        const int next = s->node[v].next;
        drop_node(s, v, false);
        v = next;
    }
}

static void unlink_node(reduction *s, int v)
{
    const int p = s->node[v].prev, n = s->node[v].next;
    s->node[p].next = n;
    s->node[n].prev = p;
    drop_node(s, v, true);
}

// The first edge of the polygon for which visit(v) is true, of those whose boxes meet the box and perhaps of others;
// -1: none.
template <typename Visit> static int find_edge(const reduction &s, int p, const plane_box &box, Visit visit)
{
    if (s.edges.cells_of(box) < s.polygon[p].count)
        return s.edges.find(s.node.items, box, [&](int v) { return s.node[v].polygon == p && visit(v); });
    int v = s.polygon[p].node;
    for (qx_long k = s.polygon[p].count; k > 0; --k, v = s.node[v].next)
        if (visit(v)) return v;
    return -1;
}

// ---- ears ----------------------------------------------------------------------------------------------------

// Inside the corner's triangle or on one of its two edges, the ends of which are no part of it.
static bool is_in_ear(grid_place prev, grid_place corner, grid_place next, grid_place at)
{
    const qx_long s = turn_of(corner, at, prev), t = turn_of(corner, next, at);
    return s >= 0 && t >= 0 && s + t < turn_of(corner, next, prev);
}

static plane_box box_of_three(grid_place a, grid_place b, grid_place c)
{
    const plane_box ab = box_of(a, b), bc = box_of(b, c);
    return {{std::min(ab.low.i, bc.low.i), std::min(ab.low.j, bc.low.j)},
            {std::max(ab.high.i, bc.high.i), std::max(ab.high.j, bc.high.j)}};
}

static bool edge_holds(reduction *s, int v)
{
    ring_node &node = s->node[v];
    if (node.line == known::nothing)
        node.line = s->grid.line_holds(s->grid, node.at, next_of(*s, v).at) ? known::holds : known::fails;
    return node.line == known::holds;
}

static bool ear_holds(reduction *s, int v)
{
    if (!edge_holds(s, s->node[v].prev) || !edge_holds(s, v)) return false;
    const grid_place corners[3] = {prev_of(*s, v).at, s->node[v].at, next_of(*s, v).at};
    return s->grid.line_holds(s->grid, corners[0], corners[2]) && s->grid.rows_hold(s->grid, corners);
}

// Whether an ear may be cut at v; if not its kind tells why, and it need not be tried again as things are.
static bool try_ear(reduction *s, int v)
{
    ring_node &node = s->node[v];
    settle_ear(s, v);
    const grid_place prev = prev_of(*s, v).at, next = next_of(*s, v).at;
    const auto bars = [&](int u) {
        return u != v && u != node.prev && u != node.next && is_in_ear(prev, node.at, next, s->node[u].at);
    };
    const plane_box box = box_of_three(prev, node.at, next);
    if (turn_of(node.at, next, prev) <= 0 || find_edge(*s, node.polygon, box, bars) >= 0) {
        node.kind = barred;
        return false;
    }
    if (node.ear == known::nothing) node.ear = ear_holds(s, v) ? known::holds : known::fails;
    if (node.ear == known::holds) return true;
    node.kind = failed;
    s->failed_ears.insert(s->node.items, v, box);
    return false;
}

static bool cut_ear(reduction *s, int p, int v)
{
    const int prev = s->node[v].prev, next = s->node[v].next;
    if (!write_triangle(s, s->node[prev].vert, s->node[v].vert, s->node[next].vert)) return false;
    s->polygon[p].area -= turn_of(s->node[prev].at, s->node[v].at, s->node[next].at);
    unlink_node(s, v);
    edge_changed(s, prev, known::holds);
    for (const int beside : {prev, next}) {
        s->node[beside].kind = untried;
        ear_changed(s, beside);
    }
    s->polygon[p].node = prev;
    return true;
}

// Till three corners are left: changed; or no corner has an ear: unchanged.
static step_result cut_ears(reduction *s, int p)
{
    while (s->polygon[p].count > 3) {
        int v = s->polygon[p].node;
        for (;; v = s->node[v].next) {
            if (s->polygon[p].ears.count == 0) return unchanged;
            v = first_stale<&ring_node::stale_ear, &surf_polygon::ears>(*s, p, v);
            if (try_ear(s, v)) break;
        }
        if (!cut_ear(s, p, v)) return no_memory;
    }
    return changed;
}

// Ears that were found not to hold are barred from now on if the new corner lies in them and they are tried before it
// goes.
static void tell_ears(reduction *s, int corner)
{
    const grid_place at = s->node[corner].at;
    s->failed_ears.find(s->node.items, {at, at}, [&](int v) {
        if (s->node[v].polygon == s->node[corner].polygon &&
            is_in_ear(prev_of(*s, v).at, s->node[v].at, next_of(*s, v).at, at))
            set_stale_ear(s, v);
        return false;
    });
}

// Puts a corner on the edge from a, or beside it; of the two new edges this is known.
static int insert_corner(reduction *s, int a, grid_place at, qx_long vert, corner_kind kind, known first,
                         known second)
{
    const int p = s->node[a].polygon, v = new_node(s, at, vert, kind, p);
    if (v < 0) return -1;
    const int b = s->node[a].next;
    if (s->node[b].order - s->node[a].order < 2) number_ring(s, a, s->polygon[p].count);
    s->node[v].order = s->node[a].order + (s->node[b].order - s->node[a].order) / 2;
    s->node[v].prev = a;
    s->node[v].next = b;
    s->node[a].next = v;
    s->node[b].prev = v;
    ++s->polygon[p].count;
    edge_changed(s, a, first);
    edge_changed(s, v, second);
    for (const int corner : {a, v, b})
        ear_changed(s, corner);
    tell_ears(s, v);
    return v;
}

// ---- apexes --------------------------------------------------------------------------------------------------

namespace {

enum class apex_side { outside, inside, on_corner, on_edge };

struct apex_place {
    apex_side side;
    int node; // the corner, or the one that the edge starts at
};

} // namespace

static bool is_on_edge(grid_place a, grid_place b, grid_place at)
{
    const plane_box box = box_of(a, b);
    return at.i >= box.low.i && at.i <= box.high.i && at.j >= box.low.j && at.j <= box.high.j &&
           turn_of(a, b, at) == 0;
}

static grid_place apex_of(grid_place a, grid_place b, double factor)
{
    return {
        static_cast<qx_long>(factor * -static_cast<double>(b.j - a.j) + static_cast<double>(a.i + b.i) * 0.5),
        static_cast<qx_long>(factor * static_cast<double>(b.i - a.i) + static_cast<double>(a.j + b.j) * 0.5)};
}

static bool apex_holds(reduction *s, int a, int which, grid_place apex)
{
    ring_node &node = s->node[a];
    const unsigned char bit = static_cast<unsigned char>(1 << which);
    if ((node.looked_at & bit) == 0) {
        const grid_place corners[3] = {node.at, next_of(*s, a).at, apex};
        node.looked_at |= bit;
        if (edge_holds(s, a) && s->grid.line_holds(s->grid, corners[0], apex) &&
            s->grid.line_holds(s->grid, corners[1], apex) && s->grid.rows_hold(s->grid, corners))
            node.holding |= bit;
    }
    return (node.holding & bit) != 0;
}

// Whether the segment from a meets the edge from c to d before its end. Parallel ones never do.
static bool segment_meets(grid_place a, grid_place end, grid_place c, grid_place d)
{
    const qx_long ui = end.i - a.i, uj = end.j - a.j, wi = d.i - c.i, wj = d.j - c.j;
    qx_long det = ui * wj - uj * wi;
    if (det == 0) return false;
    qx_long along = (c.i - a.i) * wj - (c.j - a.j) * wi, across = (c.i - a.i) * uj - (c.j - a.j) * ui;
    if (det < 0) {
        det = -det;
        along = -along;
        across = -across;
    }
    return along >= 0 && along < det && across >= 0 && across <= det;
}

// An edge of the polygon that stands between the corner at from and the apex; -1: none. Edges that share the corner's
// place do not.
static int edge_between(const reduction &s, int p, grid_place from, grid_place apex)
{
    return find_edge(s, p, box_of(from, apex), [&](int v) {
        const grid_place c = s.node[v].at, d = next_of(s, v).at;
        return !same_place(c, from) && !same_place(d, from) && segment_meets(from, apex, c, d);
    });
}

// Whether a place off the boundary is inside, by the crossings on the way to the nearest side of the grid. An edge's
// end belongs to it if it stands at or below the way.
static bool is_inside(const reduction &s, int p, grid_place at)
{
    const qx_long right = s.grid.dims[0] - 1, top = s.grid.dims[1] - 1;
    const bool by_row = std::min(at.i, right - at.i) <= std::min(at.j, top - at.j);
    const bool forward = by_row ? right - at.i < at.i : top - at.j < at.j;
    plane_box way = {at, at};
    if (by_row)
        (forward ? way.high.i : way.low.i) = forward ? right : 0;
    else
        (forward ? way.high.j : way.low.j) = forward ? top : 0;
    bool inside = false;
    find_edge(s, p, way, [&](int v) {
        grid_place c = s.node[v].at, d = next_of(s, v).at;
        const bool c_above = by_row ? c.j > at.j : c.i > at.i, d_above = by_row ? d.j > at.j : d.i > at.i;
        if (c_above == d_above) return false;
        if (c_above) std::swap(c, d);
        // The place is left of the rising edge where a row is the way, right of it where a column is.
        const bool before = by_row ? turn_of(c, d, at) > 0 : turn_of(c, d, at) < 0;
        if (before == forward) inside = !inside;
        return false;
    });
    return inside;
}

// Whether the direction from a corner to a place goes into the polygon or along its edges.
static bool faces_inside(const reduction &s, int v, grid_place to)
{
    const grid_place prev = prev_of(s, v).at, at = s.node[v].at, next = next_of(s, v).at;
    const bool left_of_next = turn_of(at, next, to) >= 0, left_of_prev = turn_of(prev, at, to) >= 0;
    return turn_of(prev, at, next) >= 0 ? left_of_next && left_of_prev : left_of_next || left_of_prev;
}

// Where polygon parts touch, several corners or edges share a place: the one is taken whose inside faces the edge from
// a, if there is one.
static apex_place place_apex(const reduction &s, int p, int a, grid_place apex)
{
    const grid_place from = s.node[a].at, to = next_of(s, a).at;
    apex_place found = {apex_side::outside, -1};
    bool found_facing = false;
    find_edge(s, p, {apex, apex}, [&](int v) {
        const grid_place c = s.node[v].at, d = next_of(s, v).at;
        if (same_place(c, apex)) {
            const bool facing = faces_inside(s, v, from) && faces_inside(s, v, to);
            if (found.side != apex_side::on_corner || (facing && !found_facing)) {
                found = {apex_side::on_corner, v};
                found_facing = facing;
            }
        } else if (found.side != apex_side::on_corner && !same_place(d, apex) && is_on_edge(c, d, apex)) {
            const bool facing = turn_of(c, d, from) >= 0 && turn_of(c, d, to) >= 0;
            if (found.side == apex_side::outside || (facing && !found_facing)) {
                found = {apex_side::on_edge, v};
                found_facing = facing;
            }
        }
        return false;
    });
    if (found.side == apex_side::outside && is_inside(s, p, apex)) found.side = apex_side::inside;
    return found;
}

// The edge from a is to be tried again when this one goes.
static bool watch_edge(reduction *s, int a, int watched)
{
    int w = s->watch.free_list;
    if (w >= 0)
        s->watch.free_list = s->watch[w].next;
    else if ((w = s->watch.append(edge_watch())) < 0)
        return false;
    s->watch[w] = {a, s->node[watched].watchers, s->node[a].mark};
    s->node[watched].watchers = w;
    return true;
}

// ---- polygons falling in two ---------------------------------------------------------------------------------

static qx_long area_of_ring(const reduction &s, int first)
{
    qx_long area = 0;
    for (int v = s.node[first].next; v != first; v = s.node[v].next)
        area += turn_of(s.node[first].at, s.node[v].at, next_of(s, v).at);
    return area;
}

// A ring that has been cut off becomes a polygon of its own, on top of the stack, with everything to be tried anew.
static bool push_ring(reduction *s, int first, qx_long count, qx_long area, bool astray)
{
    const int p = s->polygon.append({count, {}, {}, area, first, astray});
    if (p < 0) return false;
    number_ring(s, first, count);
    int v = first;
    for (qx_long k = 0; k < count; ++k, v = s->node[v].next) {
        settle_ear(s, v);
        settle_edge(s, v);
        s->node[v].polygon = p;
        s->node[v].kind = untried;
        drop_watchers(s, v, true);
        set_stale_ear(s, v);
        set_stale_edge(s, v);
    }
    return true;
}

static bool goes_astray(reduction *s, qx_long area, qx_long whole)
{
    return area >= whole && ++s->strays > most_strays;
}

// How many corners there are from b to the corner, or from there to a, whichever is less or, if they are equal, the
// second; both ends count. Both ways are gone together, so that it costs no more than the smaller part.
static qx_long count_smaller_part(const reduction &s, int a, int b, int corner, bool *is_first)
{
    qx_long count = 1;
    int u = b, w = corner;
    for (; u != corner && w != a; ++count) {
        u = s.node[u].next;
        w = s.node[w].next;
    }
    *is_first = w != a;
    return count;
}

// The ring falls in two at a corner that the edge from a has a triangle with: from its end to the corner, and from
// there to its start. The smaller part, or the second one if they are equal, becomes a polygon of its own.
static bool divide_ring(reduction *s, int p, int a, int corner)
{
    bool first_is_small;
    const int b = s->node[a].next, behind = s->node[corner].next;
    const qx_long small_count = count_smaller_part(*s, a, b, corner, &first_is_small);
    const qx_long rest = s->polygon[p].area - turn_of(s->node[a].at, s->node[b].at, s->node[corner].at);
    const int twin = new_node(s, s->node[corner].at, s->node[corner].vert, untried, p);
    if (twin < 0) return false;
    ++s->polygon[p].count;
    s->node[corner].kind = untried;
    s->node[twin].order = s->node[corner].order;
    const auto join = [&](int from, int to) {
        s->node[from].next = to;
        s->node[to].prev = from;
    };
    join(twin, behind);
    join(corner, b);
    join(a, twin);
    edge_changed(s, twin, s->node[corner].line);
    edge_changed(s, corner, known::holds);
    edge_changed(s, a, known::holds);
    for (const int v : {a, b, corner, twin})
        ear_changed(s, v);

    const int small = first_is_small ? b : twin;
    const qx_long whole = s->polygon[p].area, small_area = area_of_ring(*s, small);
    s->polygon[p].node = first_is_small ? twin : b;
    s->polygon[p].area = rest - small_area;
    s->polygon[p].astray = goes_astray(s, s->polygon[p].area, whole) || s->polygon[p].astray;
    if (small_count >= 3) {
        s->polygon[p].count -= small_count;
        return push_ring(s, small, small_count, small_area, goes_astray(s, small_area, whole));
    }
    int v = small;
    for (qx_long k = 0; k < small_count; ++k) {
        const int next = s->node[v].next;
        drop_node(s, v, true);
        v = next;
    }
    return true;
}

// ---- splits --------------------------------------------------------------------------------------------------

static bool split_inside(reduction *s, int a, grid_place apex)
{
    const qx_long vert = write_vertex(s, apex);
    if (vert < 0 || !write_triangle(s, s->node[a].vert, next_of(*s, a).vert, vert)) return false;
    s->polygon[s->node[a].polygon].area -= turn_of(s->node[a].at, next_of(*s, a).at, apex);
    return insert_corner(s, a, apex, vert, untried, known::holds, known::holds) >= 0;
}

static bool split_at_boundary(reduction *s, int p, int a, apex_place at, grid_place apex)
{
    int corner = at.node;
    if (at.side == apex_side::on_edge) {
        const qx_long vert = write_vertex(s, apex);
        if (vert < 0) return false;
        write_edge_height(s, vert, apex, s->node[at.node], next_of(*s, at.node));
        corner = insert_corner(s, at.node, apex, vert, untried, known::nothing, known::nothing);
        if (corner < 0) return false;
    }
    return write_triangle(s, s->node[a].vert, next_of(*s, a).vert, s->node[corner].vert) &&
           divide_ring(s, p, a, corner);
}

// A triangle on the edge from a, if an apex is found for it.
static step_result try_edge(reduction *s, int p, int a)
{
    settle_edge(s, a);
    const grid_place from = s->node[a].at, to = next_of(*s, a).at;
    grid_place before = no_apex;
    bool try_again = false;
    for (int which = 0; which < napexes; ++which) {
        const grid_place apex = apex_of(from, to, apex_factors[which]);
        if (same_place(apex, before) || same_place(apex, from) || same_place(apex, to)) break;
        before = apex;
        const bool on_grid =
            apex.i >= 0 && apex.i < s->grid.dims[0] && apex.j >= 0 && apex.j < s->grid.dims[1];
        if (!on_grid) continue; // so it is outside
        if (is_on_edge(from, to, apex)) break;
        if (!apex_holds(s, a, which, apex)) continue;
        int between = edge_between(*s, p, from, apex);
        if (between < 0) between = edge_between(*s, p, to, apex);
        if (between >= 0) {
            if (!watch_edge(s, a, between)) return no_memory;
            continue;
        }
        const apex_place at = place_apex(*s, p, a, apex);
        if (at.side == apex_side::outside) {
            try_again = true; // the whole ring is inside the triangle: rare
            continue;
        }
        const bool done =
            at.side == apex_side::inside ? split_inside(s, a, apex) : split_at_boundary(s, p, a, at, apex);
        return done ? changed : no_memory;
    }
    if (try_again) set_stale_edge(s, a);
    return unchanged;
}

static step_result split_ring(reduction *s, int p)
{
    int v = s->polygon[p].node;
    for (qx_long k = s->polygon[p].edges.count; k > 0; --k) {
        v = first_stale<&ring_node::stale_edge, &surf_polygon::edges>(*s, p, v);
        const int next = s->node[v].next;
        const step_result result = try_edge(s, p, v);
        if (result != unchanged) return result;
        v = next;
    }
    return unchanged;
}

// ---- more nodes on edges -------------------------------------------------------------------------------------

static bool has_corner_at(const reduction &s, int p, grid_place at)
{
    return find_edge(s, p, {at, at}, [&](int v) { return same_place(s.node[v].at, at); }) >= 0;
}

// The first node on the edge, from its lower end on, to which the line from there holds.
static bool find_edge_node(const reduction &s, int p, int a, grid_place *found)
{
    const grid_place from = s.node[a].at, to = next_of(s, a).at;
    const qx_long di = to.i - from.i, dj = to.j - from.j, steps = std::gcd(di, dj);
    if (steps < 2) return false;
    const qx_long walked = std::max(di, -di) >= std::max(dj, -dj) ? di : dj;
    const grid_place low = walked > 0 ? from : to;
    const qx_long sign = walked > 0 ? 1 : -1, step_i = sign * di / steps, step_j = sign * dj / steps;
    for (qx_long k = 1; k < steps; ++k) {
        *found = {low.i + k * step_i, low.j + k * step_j};
        if (!has_corner_at(s, p, *found) && s.grid.line_holds(s.grid, *found, low)) return true;
    }
    return false;
}

static step_result refine_ring(reduction *s, int p)
{
    int a = s->polygon[p].node;
    for (qx_long k = s->polygon[p].count; k > 0; --k, a = s->node[a].next) {
        grid_place at;
        if (!find_edge_node(*s, p, a, &at)) continue;
        const qx_long vert = write_vertex(s, at);
        if (vert < 0) return no_memory;
        write_edge_height(s, vert, at, s->node[a], next_of(*s, a));
        return insert_corner(s, a, at, vert, barred, known::nothing, known::nothing) >= 0 ? changed
                                                                                          : no_memory;
    }
    return unchanged;
}

// ---- what is left --------------------------------------------------------------------------------------------

// Triangles at all corners that do not turn back, whether they hold or not.
static bool fan_ring(reduction *s, int p)
{
    int v = s->polygon[p].node;
    for (qx_long idle = 0; s->polygon[p].count >= 3 && idle < s->polygon[p].count;) {
        const int prev = s->node[v].prev, next = s->node[v].next;
        if (turn_of(s->node[v].at, s->node[next].at, s->node[prev].at) >= 0) {
            if (!write_triangle(s, s->node[prev].vert, s->node[v].vert, s->node[next].vert)) return false;
            unlink_node(s, v);
            s->polygon[p].node = next;
            idle = 0;
        } else {
            ++idle;
        }
        v = next;
    }
    return true;
}

static bool in_one_place(const reduction &s, int p)
{
    const int first = s.polygon[p].node;
    for (int v = s.node[first].next; v != first; v = s.node[v].next)
        if (!same_place(s.node[v].at, s.node[first].at)) return false;
    return true;
}

// ---- the whole -----------------------------------------------------------------------------------------------

static bool append_corner(reduction *s, grid_place at, corner_kind kind)
{
    const qx_long vert = write_vertex(s, at);
    return vert >= 0 && new_node(s, at, vert, kind, 0) >= 0;
}

// One side of the grid, without the corners at its ends: as few nodes as the tolerance allows, each as far from the last
// one as the line between them holds.
static bool walk_side(reduction *s, grid_place from, grid_place to)
{
    const qx_long di = to.i > from.i   ? 1
                       : to.i < from.i ? -1
                                       : 0,
                  dj = to.j > from.j   ? 1
                       : to.j < from.j ? -1
                                       : 0;
    grid_place last = from, pending = from; // pending at from: none
    for (grid_place at = {from.i + di, from.j + dj};; at = {at.i + di, at.j + dj}) {
        if (!same_place(pending, from) && !s->grid.line_holds(s->grid, last, at)) {
            if (!append_corner(s, pending, barred)) return false;
            last = pending;
        }
        pending = at;
        if (same_place(at, to)) return true;
    }
}

// The boundary as the first polygon.
static bool push_boundary(reduction *s)
{
    const qx_long right = s->grid.dims[0] - 1, top = s->grid.dims[1] - 1;
    const grid_place corners[5] = {{0, 0}, {right, 0}, {right, top}, {0, top}, {0, 0}};
    for (int c = 0; c < 4; ++c)
        if (!append_corner(s, corners[c], failed) || !walk_side(s, corners[c], corners[c + 1])) return false;
    const int n = s->node.used;
    if (s->polygon.append({n, {}, {}, 2 * right * top, 0, false}) < 0) return false;
    for (int v = 0; v < n; ++v) {
        s->node[v].next = v + 1 < n ? v + 1 : 0;
        s->node[v].prev = v > 0 ? v - 1 : n - 1;
    }
    number_ring(s, 0, n);
    for (int v = 0; v < n; ++v) {
        edge_changed(s, v, known::nothing);
        ear_changed(s, v);
    }
    return true;
}

static bool is_astray(const surf_polygon &ring)
{
    return ring.astray || ring.area <= 0;
}

// One step of the polygon on top: whether it goes on, or is done with.
static step_result reduce_polygon(reduction *s, int p)
{
    if (s->polygon[p].count < 3) return unchanged;
    if (in_one_place(*s, p)) return fan_ring(s, p) ? unchanged : no_memory;
    if (s->polygon[p].count == 3) {
        const int v = s->polygon[p].node;
        if (!is_astray(s->polygon[p]) && !ear_holds(s, v)) {
            const step_result refined = refine_ring(s, p);
            if (refined != unchanged) return refined;
        }
        return write_triangle(s, prev_of(*s, v).vert, s->node[v].vert, next_of(*s, v).vert) ? unchanged
                                                                                            : no_memory;
    }
    const step_result cut = cut_ears(s, p);
    if (cut != unchanged || in_one_place(*s, p)) return cut == no_memory ? no_memory : changed;
    if (is_astray(s->polygon[p])) return fan_ring(s, p) ? unchanged : no_memory;
    const step_result split = split_ring(s, p);
    if (split != unchanged) return split;
    const step_result refined = refine_ring(s, p);
    if (refined != unchanged) return refined;
    return fan_ring(s, p) ? unchanged : no_memory;
}

static bool reduce_grid(reduction *s)
{
    if (!open_output(s) || !s->edges.open(s->grid.dims) || !s->failed_ears.open(s->grid.dims)) return false;
    if (!push_boundary(s)) return false;
    while (s->polygon.used > 0) {
        const int p = s->polygon.used - 1;
        const step_result result = reduce_polygon(s, p);
        if (result == no_memory) return false;
        if (result == unchanged) {
            release_ring(s, p);
            --s->polygon.used;
        }
    }
    return true;
}

int UTILoptimize_surface(const qx_long *dims, int nspace, const float *points, int dtype, const void *data,
                         double tolerance, qx_long *out_ncoords, float **out_coords, qx_long *out_ntris,
                         qx_long **out_connect, void **out_data)
{
    reduction s;
    s.grid = {data, {dims[0], dims[1]}, tolerance, nullptr, nullptr};
    if (dims[0] < 2 || dims[1] < 2 || nspace < 2 || nspace > 3 || !bind_heights(&s.grid, dtype)) return 0;
    s.nspace = nspace;
    s.dtype = dtype;
    s.element_size = DTYPEtype_size(dtype);
    s.points = points;
    const auto spacing = [&](int d) {
        return (static_cast<double>(points[nspace + d]) - static_cast<double>(points[d])) /
               static_cast<double>(dims[d] - 1);
    };
    s.out.dx = spacing(0);
    s.out.dy = spacing(1);
    if (!reduce_grid(&s)) {
        release_output(&s.out);
        return 0;
    }
    *out_ncoords = s.out.ncoords;
    *out_coords = s.out.coords;
    *out_ntris = s.out.ntris;
    *out_connect = s.out.connect;
    *out_data = s.out.vdata;
    return 1;
}
