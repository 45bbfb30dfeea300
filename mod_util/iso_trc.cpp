// Isosurfaces and isolines of structured meshes traced outward from a seed point.
//
// The seed picks the level: it is the value at the seed. From the cell that holds it the trace goes on to the
// neighbours that a crossed cell points to, depth first, until none is left; so it finds the sheet through
// the seed and looks at no cell elsewhere. The cells seen are kept in a small hash table, the cells to visit
// on a stack, and flags are computed a cell at a time. A cell is named by the node of its lowest corner.
//
// Cells without a crossing end the walk and are not remembered: they may be reached, and left, again.
#include <skoklana/iso.h>

#include "dtype.hpp"
#include "grow.hpp"
#include "iso_cases.hpp"
#include "lattice.hpp"
#include "memory.hpp"
#include "status.hpp"

#include <algorithm>

namespace {

constexpr qx_long first_connect_entries = 1024;
constexpr int first_cells_to_visit = 1024;
constexpr int visits_a_check = 400;
// The trace is expected to visit about a quarter of the cells.
constexpr double percent_of_quarter = 400.0;

// Table sizes: a bucket a node in small meshes, far fewer in large ones.
constexpr qx_long nodes_with_own_bucket = 1024;
constexpr qx_long nodes_a_bucket = 256;
constexpr qx_long most_buckets = 100000;

enum class trace_state { nothing_here, crossed, interrupted, no_memory, no_connect_memory };

// The scalar that is traced.
template <typename T> struct traced_data {
    const T *values;
    double level;
    bool nulls;
    T null_value;
};

struct trace_walk {
    const mesh_info *mesh;
    lattice_steps step;
    edge_table *edges = nullptr;
    cell_table *visited = nullptr;
    cell_list *to_visit = nullptr;
    batch_list connect;
    qx_long nprimitives = 0;
    qx_long next_cells[6]; // where to go from the crossed cell in hand
    int nnext = 0;

    trace_walk(const mesh_info *mesh_, int naxes) : mesh(mesh_), step(steps_of(naxes, mesh_->dims)) {}
};

// Which faces of a cell the surface crosses, by case index: 1 and 2 for the two faces across the first axis
// of the index, 4 and 8, 16 and 32 for the next two. A face is crossed unless its four bits are alike.
struct face_masks {
    unsigned char of_case[256];
};

constexpr face_masks derive_face_masks()
{
    face_masks masks = {};
    for (int index = 0; index < 256; ++index) {
        for (int face = 0; face < 6; ++face) {
            int nbits = 0;
            for (int b = 0; b < 8; ++b)
                if ((b >> face / 2 & 1) == face % 2) nbits += index >> b & 1;
            if (nbits % 4 != 0)
                masks.of_case[index] = static_cast<unsigned char>(masks.of_case[index] | 1 << face);
        }
    }
    return masks;
}

constexpr face_masks crossed_faces = derive_face_masks();
static_assert(crossed_faces.of_case[1] == 21 && crossed_faces.of_case[4] == 25, "face masks");

} // namespace

static qx_long buckets_for(qx_long nnodes)
{
    const qx_long buckets =
        nnodes <= nodes_with_own_bucket ? nnodes : nnodes / nodes_a_bucket + nodes_with_own_bucket;
    return std::min(buckets, most_buckets);
}

static void release_trace(trace_walk *walk)
{
    UTILedge_table_delete(walk->edges);
    UTILcell_table_delete(walk->visited);
    if (walk->to_visit != nullptr) UTILdelete_cell_list(walk->to_visit);
    release_list(&walk->connect, ALLOC_AT("iso_trc"));
}

static bool open_trace(trace_walk *walk)
{
    const qx_long nnodes = walk->mesh->nnodes;
    if (open_list(&walk->connect, first_connect_entries, ALLOC_AT("iso_trc"))) {
        walk->edges = UTILedge_table_create(buckets_for(nnodes));
        walk->visited = UTILcell_table_create(buckets_for(nnodes), nnodes);
        walk->to_visit = UTILinit_cell_list(first_cells_to_visit);
        if (walk->edges != nullptr && walk->visited != nullptr && walk->to_visit != nullptr) return true;
    }
    release_trace(walk);
    return false;
}

// Goes on to the cells next to a cell along an axis, below it and above it, where asked for and in the mesh.
static void go_along(trace_walk *walk, qx_long cell, qx_long position, qx_long nnodes, qx_long step,
                     bool down, bool up)
{
    if (down && position >= 1) walk->next_cells[walk->nnext++] = cell - step;
    if (up && position < nnodes - 2) walk->next_cells[walk->nnext++] = cell + step;
}

template <typename T> static bool any_null(const traced_data<T> &data, const qx_long *nodes, int nnodes)
{
    if (!data.nulls) return false;
    for (int n = 0; n < nnodes; ++n)
        if (data.values[nodes[n]] == data.null_value) return true;
    return false;
}

// The triangles of a cell.
template <typename T>
static trace_state trace_surface_cell(trace_walk *walk, const traced_data<T> &data, qx_long cell)
{
    qx_long nodes[8];
    connect_order_nodes(cell, walk->step, 8, nodes);
    if (any_null(data, nodes, 8)) return trace_state::nothing_here;
    int index = 0;
    for (int bit = 0; bit < 8; ++bit)
        index |= (static_cast<double>(data.values[nodes[hex_cases::corner_of_bit[bit]]]) >= data.level)
                 << bit;
    if (index == 0 || index == hex_cases::last_case) return trace_state::nothing_here;

    const iso_case &row = hex_cases::row(index);
    qx_long left[12], right[12];
    int numbers[12];
    for (int p = 0; p < row.npoints; ++p) {
        left[p] = nodes[row.left[p]];
        right[p] = nodes[row.right[p]];
    }
    if (UTILedge_table_add_hash_points(walk->edges, left, right, walk->mesh->nnodes, row.npoints, numbers) <
        1)
        return trace_state::no_memory;
    for (int t = 0; t < 3 * row.ntriangles; ++t)
        walk->connect.data[walk->connect.used++] = numbers[row.points[t]];
    walk->nprimitives += row.ntriangles;

    // The index counts k before j, and its faces are taken for j before k: the walk steps in j where the
    // surface crosses a k face and in k where it crosses a j face. Which cells a trace reaches, and in which
    // order, follows from this; callers have the results of it.
    const unsigned faces = crossed_faces.of_case[index];
    const qx_long *dims = walk->mesh->dims;
    const lattice_position at = split_node(cell, 3, dims);
    go_along(walk, cell, at.at[0], dims[0], 1, (faces & 1) != 0, (faces & 2) != 0);
    go_along(walk, cell, at.at[1], dims[1], walk->step.row, (faces & 4) != 0, (faces & 8) != 0);
    go_along(walk, cell, at.at[2], dims[2], walk->step.plane, (faces & 16) != 0, (faces & 32) != 0);
    return trace_state::crossed;
}

// The lines of a cell. Its edges are a ring, edge e from corner e to the next one.
template <typename T>
static trace_state trace_line_cell(trace_walk *walk, const traced_data<T> &data, qx_long cell)
{
    qx_long nodes[4];
    connect_order_nodes(cell, walk->step, 4, nodes);
    if (any_null(data, nodes, 4)) return trace_state::nothing_here;
    qx_long left[4], right[4];
    bool crossed[4];
    int ncrossed = 0;
    for (int e = 0; e < 4; ++e) {
        const qx_long from = nodes[e], to = nodes[(e + 1) & 3];
        const double a = static_cast<double>(data.values[from]), b = static_cast<double>(data.values[to]);
        const double level = data.level;
        crossed[e] = (level >= a && b > level) || (a >= level && level > b) || (a == level && b == level);
        if (!crossed[e]) continue;
        left[ncrossed] = from;
        right[ncrossed] = to;
        ++ncrossed;
    }
    if (ncrossed == 0) return trace_state::nothing_here;

    int numbers[4];
    if (UTILedge_table_add_hash_points(walk->edges, left, right, walk->mesh->nnodes, ncrossed, numbers) < 1)
        return trace_state::no_memory;
    const auto add_line = [walk, &numbers](int from, int to) {
        walk->connect.data[walk->connect.used++] = numbers[from];
        walk->connect.data[walk->connect.used++] = numbers[to];
        ++walk->nprimitives;
    };
    if (ncrossed == 1) {
        add_line(0, 0);
    } else if (ncrossed < 4) {
        add_line(0, 1);
    } else if (data.values[nodes[0]] >= data.values[nodes[1]]) {
        add_line(0, 3);
        add_line(2, 1);
    } else {
        add_line(0, 1);
        add_line(2, 3);
    }

    const qx_long *dims = walk->mesh->dims;
    const lattice_position at = split_node(cell, 2, dims);
    go_along(walk, cell, at.at[0], dims[0], 1, crossed[3], crossed[1]);
    go_along(walk, cell, at.at[1], dims[1], walk->step.row, crossed[0], crossed[2]);
    return trace_state::crossed;
}

namespace {

// What tells a trace of surfaces from one of lines.
struct surface_trace {
    static constexpr int naxes = 3;
    static constexpr qx_long margin = 25; // a cell makes at most 5 triangles, 15 entries
    static constexpr bool checks_status = true;
    template <typename T> static trace_state visit(trace_walk *walk, const traced_data<T> &data, qx_long cell)
    {
        return trace_surface_cell(walk, data, cell);
    }
};

struct line_trace {
    static constexpr int naxes = 2;
    static constexpr qx_long margin = 10; // at most 2 lines, 4 entries
    static constexpr bool checks_status = false;
    template <typename T> static trace_state visit(trace_walk *walk, const traced_data<T> &data, qx_long cell)
    {
        return trace_line_cell(walk, data, cell);
    }
};

} // namespace

// Visits the seed's cell and all that can be reached from it; nothing_here: they are done.
template <typename Kind, typename T>
static trace_state walk_from(trace_walk *walk, const traced_data<T> &data, qx_long seed_cell)
{
    // A find function may name a cell at the mesh's rim, whose corners are not all there.
    const qx_long last_cell = walk->mesh->nnodes - 1 - (1 + walk->step.row + walk->step.plane);
    const list_growth growth = {&walk->connect.capacity, &walk->connect.step, true};
    const float factor =
        Kind::checks_status
            ? static_cast<float>(percent_of_quarter / static_cast<double>(walk->mesh->cell_count[0]))
            : 0;
    status_cadence cadence(visits_a_check);
    qx_long nvisits = 0;
    if (UTILadd_cell_to_list(walk->to_visit, 1, &seed_cell) < 1) return trace_state::no_memory;
    while (walk->to_visit->top != nullptr) {
        const qx_long cell = walk->to_visit->top->cell;
        trace_state state = trace_state::nothing_here;
        if (cell >= 0 && cell <= last_cell && UTILcell_in_table(walk->visited, cell) == 0) {
            if (Kind::checks_status && cadence.due() &&
                interrupted(static_cast<int>(static_cast<float>(nvisits) * factor)))
                return trace_state::interrupted;
            ++nvisits;
            walk->nnext = 0;
            state = Kind::visit(walk, data, cell);
        }
        if (state == trace_state::crossed) {
            if (!make_room(&walk->connect.data, walk->connect.used, Kind::margin, growth,
                           ALLOC_AT("iso_trc")))
                return trace_state::no_connect_memory;
            if (UTILcell_table_add(walk->visited, cell) < 1) return trace_state::no_memory;
            UTILrm_cell_from_list(walk->to_visit);
            if (UTILadd_cell_to_list(walk->to_visit, walk->nnext, walk->next_cells) < 1)
                return trace_state::no_memory;
        } else if (state == trace_state::nothing_here) {
            UTILrm_cell_from_list(walk->to_visit);
        } else {
            return state;
        }
    }
    return trace_state::nothing_here;
}

// The cell that holds the seed, as the mesh's find function names it, and the value there.
static bool locate_seed(mesh_info *mesh, const float *seed, const void *data, int data_type, int null_flag,
                        const void *null_value, const blk_tbl *tbl, qx_long *cell, double *level)
{
    const auto find_cell = mesh->methods->find_cell_func;
    const auto interp_data = mesh->methods->interp_data_func;
    if (find_cell == nullptr || interp_data == nullptr) {
        print_error("UTILfind_cell: unable to find interp_cell function\n");
        return false;
    }
    float uvw[3] = {0, 0, 0}, value = 0;
    if (find_cell(mesh, tbl, seed, cell, uvw) != 1) return false;
    if (interp_data(mesh, *cell, 1, data, data_type, null_flag, null_value, 1, uvw, &value) != 1)
        return false;
    *level = static_cast<double>(value);
    return true;
}

template <typename Kind>
static int trace_from_seed(mesh_info *mesh, const float *seed, const void *data, int data_type, int null_flag,
                           const void *null_value, const blk_tbl *tbl, double *level, qx_long *nnodes_out,
                           qx_long **min_node, qx_long **max_node, qx_long *nprim, qx_long **conn,
                           qx_long *nconn)
{
    *nnodes_out = *nprim = *nconn = 0;
    *min_node = *max_node = *conn = nullptr;
    if (mesh->ndim < Kind::naxes) return 0;
    return with_dtype_silent(data_type, [=](auto type) {
        using T = typename decltype(type)::type;
        qx_long seed_cell = -1;
        if (!locate_seed(mesh, seed, data, data_type, null_flag, null_value, tbl, &seed_cell, level))
            return 0;
        trace_walk walk(mesh, Kind::naxes);
        if (!open_trace(&walk)) return 0;
        const traced_data<T> traced = {static_cast<const T *>(data), *level, null_flag != 0,
                                       null_value_of<T>(null_flag, null_value)};
        const trace_state state = walk_from<Kind>(&walk, traced, seed_cell);
        if (state == trace_state::nothing_here) {
            UTILedge_table_get_free(walk.edges, min_node, max_node, nnodes_out);
            walk.edges = nullptr;
            *nprim = walk.nprimitives;
            *conn = walk.connect.data;
            *nconn = walk.connect.used;
            walk.connect.data = nullptr;
        }
        release_trace(&walk);
        if (state == trace_state::no_connect_memory) print_error("realloc for connect list failed\n");
        return state == trace_state::nothing_here ? 1 : state == trace_state::interrupted ? -1 : 0;
    });
}

int UTILiso_trace(mesh_info *mesh, const float *seed, const void *data, int data_type, int null_flag,
                  const void *null_value, const blk_tbl *tbl, double *level, qx_long *nnodes_out,
                  qx_long **min_node, qx_long **max_node, qx_long *nprim, qx_long **conn, qx_long *nconn)
{
    return trace_from_seed<surface_trace>(mesh, seed, data, data_type, null_flag, null_value, tbl, level,
                                          nnodes_out, min_node, max_node, nprim, conn, nconn);
}

int UTILisoline_trace(mesh_info *mesh, const float *seed, const void *data, int data_type, int null_flag,
                      const void *null_value, const blk_tbl *tbl, double *level, qx_long *nnodes_out,
                      qx_long **min_node, qx_long **max_node, qx_long *nprim, qx_long **conn, qx_long *nconn)
{
    return trace_from_seed<line_trace>(mesh, seed, data, data_type, null_flag, null_value, tbl, level,
                                       nnodes_out, min_node, max_node, nprim, conn, nconn);
}
