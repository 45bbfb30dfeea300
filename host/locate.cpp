// Exact location: the cell of lowest number that holds a point, and where in it.
//
// Cells of sets and of curvilinear meshes come from a block table of the library. It is not built from the mesh
// but from the boxes of its cells, two nodes a cell: these boxes are a little larger, by the tolerance and the
// rounding of coordinates, so that every cell that a point can belong to stands in the list of the point's own
// block, and boxes of second-order cells hold what bulges out of their nodes.
//
// Points are taken by block. A block's cells and boxes are gathered once, lowest number first, and each of its
// points is held against the boxes four at a time. The first cell that holds the point is the answer; where none
// does it is the nearest of those within the tolerance.
//
// Uniform and rectilinear meshes are looked up axis by axis.
#include "locate.hpp"

#include "axis_index.hpp"
#include "cell_map.hpp"
#include "lists.hpp"
#include "options.hpp"
#include "progress.hpp"
#include "registry.hpp"
#include "report.hpp"
#include "workers.hpp"

#include <skoklana/host/om.h>
#include <skoklana/locate.h>

#include "mod_util/type_switch.hpp"

#include <limits>
#include <new>

namespace {

struct box {
    float low[3], high[3];
};

} // namespace

struct host_locator {
    const host_field *field;
    field_cells cells;
    double tolerance;
    int threads = 0;
    axis_index axis[3]; // of uniform and rectilinear meshes

    list_of<box> boxes; // of all others, one a cell
    blk_tbl *table = nullptr;

    host_locator(const host_field *field_) : field(field_), cells(field_), tolerance(0) {}
    ~host_locator() { host_free_table(table); }
    host_locator(const host_locator &) = delete;
    host_locator &operator=(const host_locator &) = delete;

    bool is_compact() const { return field->kind == KIND_UNIF || field->kind == KIND_RECT; }
};

namespace {

// ---- boxes -----------------------------------------------------------------------------------------------------

// What the functions of a second-order cell's further nodes sum to at most.
constexpr double most_bulge[CELL_KINDS] = {1, 4.0 / 3, 2, 1.5, 2, 2.5, 3};

// The corners on whose edge a further node stands.
struct edge_ends {
    signed char of[CELL_KINDS][20][2];
};

edge_ends make_edge_ends()
{
    edge_ends ends = {};
    for (int kind = 0; kind < CELL_KINDS; ++kind) {
        const cell_kind_nodes &nodes = cell_kinds[kind];
        for (int m = nodes.ncorners; m < nodes.nnodes_2; ++m)
            for (int a = 0; a < nodes.ncorners; ++a)
                for (int b = a + 1; b < nodes.ncorners; ++b) {
                    bool halfway = true;
                    for (int d = 0; d < 3; ++d)
                        halfway = halfway &&
                                  nodes.position[a][d] + nodes.position[b][d] == 2 * nodes.position[m][d];
                    if (!halfway) continue;
                    ends.of[kind][m][0] = static_cast<signed char>(a);
                    ends.of[kind][m][1] = static_cast<signed char>(b);
                }
    }
    return ends;
}

float rounded_down(double x)
{
    const float nearest = static_cast<float>(x);
    return static_cast<double>(nearest) <= x
               ? nearest
               : std::nextafter(nearest, -std::numeric_limits<float>::infinity());
}

float rounded_up(double x)
{
    return -rounded_down(-x);
}

// The box of a cell, made wider all round by margin and the rounding of its coordinates. Of a cell of second order:
// the cell is that of its corners, and each further node adds its offset from the middle of its edge times its
// function. A cell with coordinates that are not finite gets a box that holds nothing.
box box_of_cell(const host_field *field, const cell_view &cell, const edge_ends &ends, double margin)
{
    box made;
    const int nspace = field->nspace, ncorners = cell_kinds[cell.kind].ncorners;
    for (int d = 0; d < 3; ++d) {
        double low = 0, high = 0, in = 0, out = 0;
        bool finite = true;
        if (d < nspace) {
            const float *coords = field->coords + d;
            const auto at = [&](int k) { return static_cast<double>(coords[cell.nodes[k] * nspace]); };
            low = high = at(0);
            for (int k = 0; k < cell.nnodes; ++k) {
                const double x = at(k);
                finite = finite && std::isfinite(x);
                if (k < ncorners) {
                    low = std::min(low, x);
                    high = std::max(high, x);
                } else {
                    const signed char *edge = ends.of[cell.kind][k];
                    const double bulge = x - (at(edge[0]) + at(edge[1])) / 2;
                    in = std::min(in, bulge);
                    out = std::max(out, bulge);
                }
            }
            low += in * most_bulge[cell.kind];
            high += out * most_bulge[cell.kind];
        }
        const double wider = margin + rounding_of(std::max(std::fabs(low), std::fabs(high)));
        made.low[d] = finite ? rounded_down(low - wider) : std::numeric_limits<float>::quiet_NaN();
        made.high[d] = finite ? rounded_up(high + wider) : std::numeric_limits<float>::quiet_NaN();
    }
    return made;
}

bool is_box(const box &b)
{
    return b.low[0] <= b.high[0] && b.low[1] <= b.high[1] && b.low[2] <= b.high[2];
}

constexpr qx_long cells_a_check = 4096;

// False: no memory, or asked to stop.
int make_boxes(host_locator *locator)
{
    const qx_long ncells = locator->cells.size();
    locator->boxes = allocate_list<box>(ncells);
    if (locator->boxes == nullptr)
        return host_fail("host_make_locator: no memory for the boxes of %lld cells",
                         static_cast<long long>(ncells));
    const edge_ends ends = make_edge_ends();
    for (qx_long cell = 0; cell < ncells; ++cell) {
        if (cell % cells_a_check == 0 && is_stopped(cell, 2 * ncells, "boxes of cells")) return HOST_STOPPED;
        cell_view view;
        locator->cells.look_up(cell, &view);
        locator->boxes[cell] = box_of_cell(locator->field, view, ends, locator->tolerance);
    }
    return HOST_DONE;
}

// The box of all boxes. An axis along which the mesh is hardly thicker than they were made gets a single layer of
// blocks: a cell would stand in all of them.
box box_of_table(const host_locator *locator)
{
    const float far = std::numeric_limits<float>::infinity();
    box all = {{far, far, far}, {-far, -far, -far}};
    for (qx_long cell = 0; cell < locator->cells.size(); ++cell) {
        const box &b = locator->boxes[cell];
        if (!is_box(b)) continue;
        for (int d = 0; d < 3; ++d) {
            all.low[d] = std::min(all.low[d], b.low[d]);
            all.high[d] = std::max(all.high[d], b.high[d]);
        }
    }
    return all;
}

// Builds the table from boxes, as if each were a cell of two nodes.
int make_table(host_locator *locator)
{
    const auto build =
        reinterpret_cast<int (*)(mesh_info *, blk_tbl **)>(find_named_func("interp_init_func"));
    if (build == nullptr) return host_fail("host_make_locator: the library has no block tables");
    qx_long ncells = locator->cells.size(), first = 0;
    const list_of<qx_long> nodes = allocate_list<qx_long>(2 * ncells);
    if (nodes == nullptr)
        return host_fail("host_make_locator: no memory for the table of %lld cells",
                         static_cast<long long>(ncells));
    for (qx_long i = 0; i < 2 * ncells; ++i)
        nodes[i] = i;
    qx_long *connect = nodes.get();
    int two = 2, one = 1;
    mesh_info mesh = locator->field->made;
    mesh.ndim = 0;
    mesh.dims = nullptr;
    mesh.nspace = 3;
    mesh.nnodes = 2 * ncells;
    mesh.coords = reinterpret_cast<float *>(locator->boxes.get());
    mesh.ncell_sets = 1;
    mesh.ncells = ncells;
    mesh.cell_first = &first;
    mesh.cell_count = &ncells;
    mesh.cell_nnodes = &two;
    mesh.cell_ndim = mesh.cell_order = &one;
    mesh.cell_connect = &connect;
    const box all = box_of_table(locator);
    for (int d = 0; d < 3; ++d) {
        mesh.min_ext[d] = all.low[d];
        mesh.max_ext[d] = all.high[d];
        const double size =
            std::max(std::fabs(static_cast<double>(all.low[d])), std::fabs(static_cast<double>(all.high[d])));
        const double margin = locator->tolerance + rounding_of(size);
        const bool is_flat =
            !(static_cast<double>(all.high[d]) - static_cast<double>(all.low[d]) > 100 * margin);
        if (is_flat) mesh.max_ext[d] = mesh.min_ext[d];
    }
    OMpush_status_range(50, 100);
    const operation_watch watch;
    const int built = build(&mesh, &locator->table);
    OMpop_status_range();
    if (built == 1) return HOST_DONE;
    locator->table = nullptr;
    return watch.failed("host_make_locator");
}

// ---- points ------------------------------------------------------------------------------------------------------

// Rows of 1 to 3 coordinates; those that are missing are 0.
template <typename Real> struct point_rows {
    const Real *data;
    int row;

    FORCE_INLINE void read(qx_long i, Real *point) const
    {
        for (int d = 0; d < 3; ++d)
            point[d] = d < row ? data[i * row + d] : 0;
    }
};

void set_outside(located_points *places, qx_long i)
{
    const_cast<qx_long *>(places->cell)[i] = -1;
    double *uvw = const_cast<double *>(places->uvw) + 3 * i;
    uvw[0] = uvw[1] = uvw[2] = 0;
}

// ---- uniform and rectilinear meshes ----------------------------------------------------------------------------

// Coordinates along which the mesh is flat.
bool is_in_plane(const host_locator &locator, const double *point)
{
    for (int d = 0; d < 3; ++d) {
        if (d < locator.field->ndim && locator.field->dims[d] > 1) continue;
        const double at =
            d < locator.field->nspace ? static_cast<double>(axis_coordinate(locator.field, d, 0)) : 0;
        if (!(std::fabs(point[d] - at) <= std::max(locator.tolerance, rounding_of(at)))) return false;
    }
    return true;
}

bool find_compact(const host_locator &locator, const double *point, qx_long *cell, double *uvw)
{
    if (locator.cells.size() == 0 || !is_in_plane(locator, point)) return false;
    const int naxes = locator.cells.naxes;
    double along[3] = {0, 0, 0};
    qx_long number = 0, stride = 1;
    for (int a = 0; a < naxes; ++a) {
        qx_long interval;
        if (!locator.axis[a].find(point[locator.cells.axis[a]], locator.tolerance, &interval, &along[a]))
            return false;
        number += interval * stride;
        stride *= locator.cells.dims[a] - 1;
    }
    *cell = number;
    // From the axes to the cell's own coordinates, whose nodes are numbered in location order.
    uvw[0] = naxes == 3 ? along[1] : -along[0];
    uvw[1] = naxes == 3 ? along[0] : along[1];
    uvw[2] = -along[2];
    return true;
}

// ---- cell sets and curvilinear meshes ----------------------------------------------------------------------------

typedef float lanes4 __attribute__((vector_size(16)));
typedef int mask4 __attribute__((vector_size(16)));

FORCE_INLINE bool any(const mask4 &mask)
{
    typedef long long pair __attribute__((vector_size(16)));
    const pair halves = (pair)mask;
    return (halves[0] | halves[1]) != 0;
}

// The cells of one block, lowest number first, and their boxes, an end of an axis a row.
class block_cells {
  public:
    // False: no memory.
    bool fill(const host_locator &locator, qx_long block)
    {
        const blk_tbl *table = locator.table;
        n = 0;
        for (qx_long entry = table->blocks[block]; entry != 0; entry = table->next_list[entry]) {
            if (n == capacity && !grow()) return false;
            const qx_long cell = table->cell_list[entry];
            __builtin_prefetch(&locator.boxes[cell]);
            cells[n++] = cell;
        }
        std::reverse(cells.get(), cells.get() + n);
        const qx_long whole = (n + 3) / 4 * 4;
        for (qx_long k = 0; k < whole; ++k)
            for (int d = 0; d < 3; ++d) {
                const float none = std::numeric_limits<float>::quiet_NaN();
                low(d)[k] = k < n ? locator.boxes[cells[k]].low[d] : none;
                high(d)[k] = k < n ? locator.boxes[cells[k]].high[d] : none;
            }
        return true;
    }

    // Calls body(cell) for the cells whose boxes hold a point, until one gives true.
    template <typename Body> FORCE_INLINE void for_each_around(const float *point, Body body) const
    {
        const lanes4 x = {point[0], point[0], point[0], point[0]},
                     y = {point[1], point[1], point[1], point[1]},
                     z = {point[2], point[2], point[2], point[2]};
        for (qx_long k = 0; k < n; k += 4) {
            const mask4 inside = (row(low(0), k) <= x) & (row(high(0), k) >= x) & (row(low(1), k) <= y) &
                                 (row(high(1), k) >= y) & (row(low(2), k) <= z) & (row(high(2), k) >= z);
            if (!any(inside)) continue;
            for (int lane = 0; lane < 4; ++lane)
                if (inside[lane] != 0 && body(cells[k + lane])) return;
        }
    }

  private:
    static FORCE_INLINE lanes4 row(const float *from, qx_long k)
    {
        lanes4 values;
        __builtin_memcpy(&values, from + k, sizeof values);
        return values;
    }

    float *low(int d) const { return ends.get() + 2 * d * capacity; }
    float *high(int d) const { return ends.get() + (2 * d + 1) * capacity; }

    bool grow()
    {
        const qx_long larger = capacity > 0 ? 2 * capacity : 256; // always whole fours
        list_of<qx_long> more = allocate_list<qx_long>(larger);
        list_of<float> more_ends = allocate_list<float>(6 * larger);
        if (more == nullptr || more_ends == nullptr) return false;
        std::copy_n(cells.get(), n, more.get());
        cells = std::move(more);
        ends = std::move(more_ends);
        capacity = larger;
        return true;
    }

    qx_long n = 0, capacity = 0;
    list_of<qx_long> cells;
    list_of<float> ends;
};

// Tries one cell.
template <typename Shape>
__attribute__((noinline)) cell_holds try_cell(const host_field *field, const cell_view &cell, const box &b,
                                              const double *point, double tolerance, double *distance,
                                              double *uvw)
{
    node_map<Shape> map;
    const vec3d p = vec3d::of(point[0], point[1], point[2]);
    const int nspace = field->nspace;
    for (int k = 0; k < Shape::nnodes; ++k) {
        const float *node = field->coords + cell.nodes[k] * nspace;
        map.row[k] = vec3d::of(node[0], nspace > 1 ? node[1] : 0, nspace > 2 ? node[2] : 0) - p;
    }
    const auto round = [&](int d) {
        return rounding_of(std::max(std::fabs(b.low[d]), std::fabs(b.high[d])));
    };
    const vec3d rounding = vec3d::of(round(0), round(1), round(2));
    return find_in_cell<Shape>(&map, rounding, tolerance, distance, uvw);
}

bool find_among(const host_locator &locator, const block_cells &among, const float *window,
                const double *point, qx_long *found, double *uvw)
{
    cell_holds best = cell_holds::no;
    double nearest = 0;
    among.for_each_around(window, [&](qx_long cell) {
        cell_view view;
        locator.cells.look_up(cell, &view);
        double distance = 0, at[3];
        const cell_holds holds = with_shape(view.kind, view.order, [&](auto shape) {
            return try_cell<decltype(shape)>(locator.field, view, locator.boxes[cell], point,
                                             locator.tolerance, &distance, at);
        });
        if (holds == cell_holds::no || (holds == best && distance >= nearest)) return false;
        best = holds;
        nearest = distance;
        *found = cell;
        std::copy_n(at, 3, uvw);
        return holds == cell_holds::yes;
    });
    return best != cell_holds::no;
}

// The block of a point, as the table was filled; -1: none.
template <typename Real> int block_of(const blk_tbl *table, const Real *point)
{
    qx_long at[3] = {0, 0, 0};
    for (int d = 0; d < 3; ++d) {
        const float x = static_cast<float>(point[d]), extent = table->max_ext[d] - table->min_ext[d];
        if (!(static_cast<double>(extent) > 1e-30)) continue; // the boxes decide
        if (!(x >= table->min_ext[d] && x <= table->max_ext[d])) return -1;
        at[d] = static_cast<qx_long>((x - table->min_ext[d]) * static_cast<float>(table->nblk - 1) / extent);
    }
    const qx_long nblk = table->nblk;
    return static_cast<int>((at[2] * nblk + at[1]) * nblk + at[0]);
}

// A point that waits for its block.
template <typename Real> struct queued_point {
    Real at[3];
    unsigned index;
};

// The points of a worker.
struct point_range {
    qx_long first, end;

    bool is_stopped_at(qx_long point) const
    {
        return is_stopped(point - first, end - first, "locating points");
    }
};

// Points by block, a batch at a time; what a worker has of a batch is one to itself.
template <typename Real> class block_queue {
  public:
    static constexpr qx_long longest = located_points::batch;

    block_queue(const host_locator &locator_, const point_rows<Real> &points_, located_points *places_)
        : locator(locator_), table(locator_.table), points(points_), places(places_)
    {
    }

    int run(point_range share)
    {
        const qx_long room = std::min(share.end - share.first, longest);
        queue = allocate_list<queued_point<Real>>(room);
        blocks = allocate_list<int>(room);
        ends = allocate_list<unsigned>(table->nblocks);
        if (queue == nullptr || blocks == nullptr || ends == nullptr)
            return host_fail("host_locate: no memory for the order of the points");
        range = share;
        for (qx_long first = share.first, end; first < share.end; first = end) {
            end = std::min(share.end, (first / longest + 1) * longest);
            const int done = locate(first, end);
            if (done != HOST_DONE) return done;
        }
        return HOST_DONE;
    }

  private:
    // Sorts by counting.
    void sort(qx_long first, qx_long end)
    {
        std::fill_n(ends.get(), table->nblocks, 0u);
        for (qx_long i = first; i < end; ++i) {
            Real point[3];
            points.read(i, point);
            const int block = blocks[i - first] = block_of(table, point);
            if (block >= 0)
                ++ends[block];
            else
                set_outside(places, i);
        }
        unsigned before = 0;
        for (qx_long block = 0; block < table->nblocks; ++block) {
            const unsigned count = ends[block];
            ends[block] = before;
            before += count;
        }
        const unsigned in_batch = static_cast<unsigned>(first % longest);
        for (qx_long i = first; i < end; ++i) {
            const unsigned index = static_cast<unsigned>(i - first);
            if (blocks[index] < 0) {
                places->order[first + before++] = in_batch + index; // behind all blocks
                continue;
            }
            const unsigned turn = ends[blocks[index]]++;
            places->order[first + turn] = in_batch + index;
            points.read(i, queue[turn].at);
            queue[turn].index = index;
        }
    }

    int locate(qx_long first, qx_long end)
    {
        constexpr unsigned points_a_check = 1024;
        if (range.is_stopped_at(first)) return HOST_STOPPED;
        sort(first, end);
        unsigned i = 0, check = points_a_check;
        for (qx_long block = 0; block < table->nblocks; ++block) {
            if (i == ends[block]) continue;
            if (!among.fill(locator, block))
                return host_fail("host_locate: no memory for the cells of a block");
            for (; i < ends[block]; ++i) {
                if (i >= check) {
                    if (range.is_stopped_at(first + i)) return HOST_STOPPED;
                    check = i + points_a_check;
                }
                locate_one(first, queue[i]);
            }
        }
        return HOST_DONE;
    }

    void locate_one(qx_long first, const queued_point<Real> &queued)
    {
        const qx_long i = first + queued.index;
        const double point[3] = {queued.at[0], queued.at[1], queued.at[2]};
        const float window[3] = {static_cast<float>(queued.at[0]), static_cast<float>(queued.at[1]),
                                 static_cast<float>(queued.at[2])};
        qx_long cell;
        double uvw[3];
        if (!find_among(locator, among, window, point, &cell, uvw)) return set_outside(places, i);
        const_cast<qx_long *>(places->cell)[i] = cell;
        std::copy_n(uvw, 3, const_cast<double *>(places->uvw) + 3 * i);
    }

    const host_locator &locator;
    const blk_tbl *table;
    point_rows<Real> points;
    located_points *places;
    point_range range = {0, 0};
    block_cells among;
    list_of<queued_point<Real>> queue;
    list_of<int> blocks;
    list_of<unsigned> ends; // by block
};

// ---- all meshes ----------------------------------------------------------------------------------------------------

template <typename Real>
int locate_range(const host_locator &locator, const point_rows<Real> &points, point_range range,
                 located_points *places)
{
    if (range.first == range.end) return HOST_DONE;
    if (!locator.is_compact() && locator.table != nullptr)
        return block_queue<Real>(locator, points, places).run(range);
    for (qx_long i = range.first; i < range.end; ++i) {
        if ((i - range.first) % 4096 == 0 && range.is_stopped_at(i)) return HOST_STOPPED;
        Real row[3];
        points.read(i, row);
        const double point[3] = {row[0], row[1], row[2]};
        if (!locator.is_compact() || !find_compact(locator, point, const_cast<qx_long *>(places->cell) + i,
                                                   const_cast<double *>(places->uvw) + 3 * i))
            set_outside(places, i);
    }
    return HOST_DONE;
}

// Each worker takes some of the points.
template <typename Real>
int locate_points(const host_locator &locator, const point_rows<Real> &points, located_points *places)
{
    const qx_long npoints = places->npoints;
    const int nworkers = workers_for(locator.threads, npoints);
    if (nworkers == 1) return locate_range(locator, points, {0, npoints}, places);
    int done[most_workers];
    auto locate_share = [&](int k) {
        done[k] =
            locate_range(locator, points,
                         {share_begin(npoints, k, nworkers), share_begin(npoints, k + 1, nworkers)}, places);
    };
    run_workers(nworkers, locate_share);
    const int least = *std::min_element(done, done + nworkers); // HOST_STOPPED is less than HOST_FAILED
    return least == HOST_FAILED ? host_fail("host_locate: no memory to find the points") : least;
}

located_points *new_places(const host_locator &locator, qx_long npoints)
{
    located_points *places = allocate_zeroed<located_points>(1);
    list_of<qx_long> cell = allocate_list<qx_long>(npoints);
    list_of<double> uvw = allocate_list<double>(3 * npoints);
    list_of<uint32_t> order = allocate_list<uint32_t>(locator.table != nullptr ? npoints : 0);
    if (places == nullptr || cell == nullptr || uvw == nullptr || order == nullptr) {
        free(places);
        return nullptr;
    }
    places->npoints = npoints;
    places->cell = cell.release();
    places->uvw = uvw.release();
    places->field = locator.field;
    places->threads = locator.threads;
    if (locator.table != nullptr) places->order = order.release();
    return places;
}

double default_tolerance(const mesh_info &mesh)
{
    double sum = 0;
    for (int d = 0; d < mesh.nspace; ++d) {
        const double length = static_cast<double>(mesh.max_ext[d]) - static_cast<double>(mesh.min_ext[d]);
        if (std::isfinite(length)) sum += length * length;
    }
    return 1e-6 * std::sqrt(sum);
}

} // namespace

// ---- one point after another --------------------------------------------------------------------------------------

// The cells of two blocks are kept: along the face between two a trace changes sides at every step.
struct host_point_search {
    const host_locator *locator;
    block_cells among[2];
    qx_long block[2] = {-1, -1};
    int newest = 0;

    explicit host_point_search(const host_locator *locator_) : locator(locator_) {}

    // The cells of a block; null: no memory.
    const block_cells *cells_of(qx_long wanted)
    {
        if (block[newest] == wanted) return &among[newest];
        newest = 1 - newest;
        if (block[newest] == wanted) return &among[newest];
        block[newest] = -1;
        if (!among[newest].fill(*locator, wanted)) return nullptr;
        block[newest] = wanted;
        return &among[newest];
    }
};

host_point_search *start_search(const host_locator *locator)
{
    void *room = malloc(sizeof(host_point_search));
    return room != nullptr ? new (room) host_point_search(locator) : nullptr;
}

void end_search(host_point_search *search)
{
    if (search == nullptr) return;
    search->~host_point_search();
    free(search);
}

int find_point(host_point_search *search, const double *point, qx_long *cell, double *uvw)
{
    const host_locator &locator = *search->locator;
    if (locator.is_compact()) return find_compact(locator, point, cell, uvw) ? 1 : 0;
    const qx_long block = locator.table != nullptr ? block_of(locator.table, point) : -1;
    if (block < 0) return 0;
    const block_cells *among = search->cells_of(block);
    if (among == nullptr) return -1;
    const float window[3] = {static_cast<float>(point[0]), static_cast<float>(point[1]),
                             static_cast<float>(point[2])};
    return find_among(locator, *among, window, point, cell, uvw) ? 1 : 0;
}

const host_field *field_of(const host_locator *locator)
{
    return locator->field;
}

extern "C" {

int host_make_locator(host_field *field, const host_locator_options *options, host_locator **out)
{
    *out = nullptr;
    if (host_mesh(field) == nullptr) return HOST_FAILED;
    const host_locator_options settled = settled_options(options);
    const double asked = settled.tolerance;
    if (std::isnan(asked) || std::isinf(asked))
        return host_fail("host_make_locator: the tolerance is %g, but it is finite", asked);
    void *room = malloc(sizeof(host_locator));
    if (room == nullptr) return host_fail("host_make_locator: no memory for the locator");
    host_locator *locator = new (room) host_locator(field);
    locator->threads = settled.threads;
    locator->tolerance = asked > 0 ? asked : asked < 0 ? 0 : default_tolerance(searched_field(field)->made);
    int done = HOST_DONE;
    if (locator->is_compact())
        for (int a = 0; a < locator->cells.naxes; ++a)
            locator->axis[a] = axis_index(field, locator->cells.axis[a]);
    else if (locator->cells.size() > 0)
        done = make_boxes(locator);
    if (done == HOST_DONE && locator->boxes != nullptr) done = make_table(locator);
    if (done == HOST_DONE)
        *out = locator;
    else
        host_free_locator(locator);
    return done;
}

void host_free_locator(host_locator *locator)
{
    if (locator == nullptr) return;
    locator->~host_locator();
    free(locator);
}

int host_locate(const host_locator *locator, const host_array *points, qx_long npoints, host_places **out)
{
    *out = nullptr;
    if (locator == nullptr) return host_fail("host_locate: locator is NULL");
    if (points == nullptr || (points->data == nullptr && npoints > 0))
        return host_fail("host_locate: points is NULL");
    if (points->type != DTYPE_FLOAT && points->type != DTYPE_DOUBLE)
        return host_fail("host_locate: points are float or double");
    if (points->veclen < 1 || points->veclen > 3)
        return host_fail("host_locate: points have %d coordinates, but a point has 1 to 3", points->veclen);
    if (npoints < 0) return host_fail("host_locate: npoints is negative");
    located_points *places = new_places(*locator, npoints);
    if (places == nullptr)
        return host_fail("host_locate: no memory for the places of %lld points",
                         static_cast<long long>(npoints));
    int done;
    if (points->type == DTYPE_FLOAT)
        done = locate_points<float>(*locator, {static_cast<const float *>(points->data), points->veclen},
                                    places);
    else
        done = locate_points<double>(*locator, {static_cast<const double *>(points->data), points->veclen},
                                     places);
    if (done == HOST_DONE)
        *out = places;
    else
        host_free_places(places);
    return done;
}

void host_free_places(host_places *places)
{
    if (places == nullptr) return;
    free(const_cast<qx_long *>(places->cell));
    free(const_cast<double *>(places->uvw));
    free(static_cast<located_points *>(places)->order);
    free(static_cast<located_points *>(places));
}

} // extern "C"
