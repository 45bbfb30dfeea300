// Contour bands of cell sets: what of a mesh lies between two levels.
//
// Each node has two bits, at or above the lower level and above the upper one, from which follows all that a
// cell becomes: data is read once, node by node, whatever its type. The walk of cell_walk.hpp finds the cells
// between the levels, which are copied a stretch at a time, and those that a level crosses. A cell that one level
// crosses is cut by the cases of cut_cases.hpp. A surface cell that both cross has cases of its own; a volume
// cell is cut at the lower level, and its pieces at the upper one, where the new nodes of the first cut count
// with the lower level for their value. Such a node, as an end of an edge, has a number behind those of the mesh.
//
// A band is a finished mesh: new nodes get their places by eval_contr.cpp.
#include <skoklana/cut.h>

#include "band_cases.hpp"
#include "band_edges.hpp"
#include "blocks.hpp"
#include "cell_set.hpp"
#include "cell_walk.hpp"
#include "dtype.hpp"
#include "kernel_watch.hpp"
#include "piece_lists.hpp"

namespace {

constexpr const char *band_module = "UTILcontour";
constexpr qx_long band_block = 1024;   // second-order cells that are taken together
constexpr qx_long lines_a_step = 1024; // what a list of lines has room for at first, and grows by

// ---- nodes -----------------------------------------------------------------------------------------------

// Classes of nodes: bits of a byte.
enum node_class : unsigned char { reaches_lower = 1, above_upper = 2, left_out = 4 };

// What bands are made of: the arguments that a kernel and its driver have in common.
struct band_data {
    int data_type;
    const void *data;
    int null_flag;
    const void *null_value;
    double lower, upper;
    const qx_long *node_map;
};

// A node between the levels that has no number is left out, as a null one is. There are such where the bounds, as
// elements of the data's type, are others than the levels.
template <typename T>
void classify_nodes(const band_data &of, qx_long nnodes, double null, unsigned char *classes)
{
    const T *data = static_cast<const T *>(of.data);
    const bool nulls = of.null_flag != 0;
    for (qx_long node = 0; node < nnodes; ++node) {
        const double value = static_cast<double>(data[node]);
        const int reaches = value >= of.lower, above = value > of.upper;
        const int no_number = of.node_map[node] < 0;
        const int out = (nulls & (value == null)) | (reaches & ~above & no_number);
        classes[node] = static_cast<unsigned char>(reaches | above << 1 | out << 2);
    }
}

// False: the type is unknown.
bool classify_all_nodes(const band_data &of, qx_long nnodes, unsigned char *classes)
{
    double null = 0;
    if (of.null_flag != 0) UTILtype_to_double(of.data_type, of.null_value, &null);
    return with_dtype_silent(of.data_type, [&](auto type) -> int {
               classify_nodes<typename decltype(type)::type>(of, nnodes, null, classes);
               return 1;
           }) != 0;
}

// What a driver has prepared for its kernels, which get data and levels alone.
struct prepared_band {
    band_data of;
    const unsigned char *classes;
};

// Never with a level that is NaN: a kernel then makes the classes itself.
bool is_same(const band_data &a, const band_data &b)
{
    return a.data_type == b.data_type && a.data == b.data && a.null_flag == b.null_flag &&
           a.null_value == b.null_value && a.lower == b.lower && a.upper == b.upper &&
           a.node_map == b.node_map;
}

// ---- cases -----------------------------------------------------------------------------------------------

// What becomes of a cell: by a case of a cut at one level, or by one of a band.
struct band_row {
    int npoints;
    const unsigned char *left, *right;
    const unsigned char *levels; // of each new node; null: all at the same
    unsigned char level;         // of all of them
    const cut_case *cut;
    const band_case *band;
    int hi_mask; // corners above the upper level, where the pieces of a cut are to be cut again; 0: they are not
};

inline band_row row_of_cut(const cut_case &cut, unsigned char level, int hi_mask)
{
    return {cut.npoints, cut.left, cut.right, nullptr, level, &cut, nullptr, hi_mask};
}

// Keys of two levels: a bit a corner in the low byte, at or above the lower level, and in the next one, above the
// upper level.
template <typename Cuts> struct band_keys {
    static constexpr int ncorners = Cuts::ncorners;
    static constexpr int last_case = Cuts::last_case;
    static constexpr const auto &corner_of_bit = Cuts::corner_of_bit;
    static constexpr cut_list whole_list = Cuts::whole_list, piece_list = Cuts::piece_list;
    static constexpr int null_mark = left_out;
    static int bits_of(int node) { return (node & reaches_lower) | (node & above_upper) << 7; }
    static int lower_mask(int key) { return key & 0xFF; }
    static int upper_mask(int key) { return key >> 8; }
    static bool is_whole(int key) { return key == last_case; }
    static bool is_mixed(int key)
    {
        return ((key & 0xFF) != 0) & ((key >> 8) != last_case) & (key != last_case);
    }
};

// One cut where one level crosses the cell: by the smaller one of the two masks of corners that are kept.
template <typename Keys, typename Both> band_row row_of_key(int key, Both both)
{
    const int lower = Keys::lower_mask(key), upper = Keys::upper_mask(key);
    if (upper == 0) return row_of_cut(Keys::cuts::row(lower), 0, 0);
    if (lower == Keys::last_case) return row_of_cut(Keys::cuts::row(Keys::last_case ^ upper), 1, 0);
    return both(lower, upper);
}

template <typename Cuts> struct solid_bands : band_keys<Cuts> {
    using cuts = Cuts;
    static_assert(Cuts::piece_list == TET_LIST, "pieces of volume cells are cut again as tetrahedra");
    static band_row row(int key)
    {
        return row_of_key<solid_bands>(
            key, [](int lower, int upper) { return row_of_cut(Cuts::row(lower), 0, upper); });
    }
};

template <typename Bands> struct surface_bands : band_keys<typename Bands::cuts> {
    using cuts = typename Bands::cuts;
    static band_row row(int key)
    {
        return row_of_key<surface_bands>(key, [](int lower, int upper) -> band_row {
            const band_case *band = Bands::row(upper, lower);
            if (band == nullptr) return {};
            return {band->npoints, band->left, band->right, band->level, 0, nullptr, band, 0};
        });
    }
};

FORCE_INLINE bool number_edges(contour_edge_table *table, const qx_long *corners, const band_row &row,
                               int *number)
{
    for (int p = 0; p < row.npoints; ++p) {
        const unsigned char level = row.levels != nullptr ? row.levels[p] : row.level;
        number[p] = find_or_add_edge_at(table, corners[row.left[p]], corners[row.right[p]], level);
        if (number[p] < 0) return false;
    }
    return true;
}

// ---- lines -----------------------------------------------------------------------------------------------

// The boundary lines at one level; the caller's count and list.
struct band_lines {
    qx_long *count;
    qx_long **list;
    qx_long capacity = 0; // lines
    bool in_use = false;

    void drop()
    {
        release_numbers(list, ALLOC_AT("contr"));
        *count = 0;
        in_use = false;
    }

    // A surface set goes on with a list that is there. Set 0 begins one where a count asks for it. False: no
    // memory.
    bool begin(int set)
    {
        in_use = *list != nullptr;
        if (in_use) {
            capacity = (*count + lines_a_step - 1) / lines_a_step * lines_a_step;
            return true;
        }
        if (set != 0 || *count == 0) return true;
        *count = 0;
        *list = alloc_numbers(2 * lines_a_step, ALLOC_AT("contr"));
        capacity = lines_a_step;
        in_use = *list != nullptr;
        return in_use;
    }

    // Lines by new nodes, two a line.
    bool append(int nlines, const unsigned char *places, const int *number, qx_long nold)
    {
        if (!in_use) return true;
        if (*count + nlines >= capacity) {
            void *grown =
                ARRrealloc_f(*list, DTYPE_QX_LONG, 2 * (capacity + lines_a_step), 0, ALLOC_AT("contr"));
            if (grown == nullptr) return false;
            *list = static_cast<qx_long *>(grown);
            capacity += lines_a_step;
        }
        for (int i = 0; i < 2 * nlines; ++i)
            (*list)[2 * *count + i] = nold + number[places[i]];
        *count += nlines;
        return true;
    }
};

// ---- a kernel --------------------------------------------------------------------------------------------

// What a kernel is given.
struct band_call {
    mesh_info *mesh;
    int set;
    band_data of;
    qx_long nold;
    contour_edge_table *table;
    piece_lists lists;
    band_lines lines[2];
};

template <typename Cases> class band_sink {
  public:
    static constexpr bool checks_status = false; // by itself, and only for cells that a level crosses
    static constexpr bool takes_whole = true;
    static constexpr bool is_solid = Cases::piece_list == TET_LIST;

    explicit band_sink(band_call *of_kernel)
        : call(*of_kernel), nnodes(call.mesh->cell_nnodes[call.set]),
          percent(static_cast<float>(100.0 / static_cast<double>(call.mesh->cell_count[call.set])))
    {
    }

    walk_end take(qx_long cell, const qx_long *corners, const band_row &row, const int *number)
    {
        if (cadence.due() && interrupted(static_cast<int>(static_cast<float>(cell) * percent)))
            return walk_end::interrupted;
        qx_long local[most_cut_local];
        local_nodes<Cases::ncorners>(corners, call.of.node_map, row.npoints, number, call.nold, local);
        if constexpr (is_solid) {
            if (row.hi_mask != 0) return cut_again(corners, row, number, local);
        } else if (row.cut == nullptr) {
            if (row.band == nullptr) return walk_end::complete;
            if (!append_pieces(call.lists, TRI_LIST, row.band->ncells, row.band->nodes, local))
                return walk_end::no_connect;
            for (int level = 0; level < 2; ++level)
                if (!call.lines[level].append(row.band->nlines[level], row.band->lines[level], number,
                                              call.nold))
                    return walk_end::no_connect;
            return walk_end::complete;
        }
        if (!append_pieces(call.lists, Cases::piece_list, row.cut->ncells, row.cut->nodes, local))
            return walk_end::no_connect;
        if (!is_solid && !call.lines[row.level].append(row.cut->nlines, row.cut->lines, number, call.nold))
            return walk_end::no_connect;
        return walk_end::complete;
    }

    walk_end take_whole(qx_long, const qx_long *corners, qx_long ncells)
    {
        return append_whole_cells<Cases>(call.lists, corners, nnodes, ncells, call.of.node_map)
                   ? walk_end::complete
                   : walk_end::no_connect;
    }

  private:
    band_call &call;
    const int nnodes;
    const float percent;
    status_cadence cadence{256};

    // The pieces of a volume cell at the upper level.
    walk_end cut_again(const qx_long *corners, const band_row &row, const int *number, const qx_long *local)
    {
        // Ends of edges, as local, and which of them are above.
        qx_long ends[most_cut_local];
        unsigned above = static_cast<unsigned>(row.hi_mask);
        for (int corner = 0; corner < Cases::ncorners; ++corner)
            ends[corner] = corners[corner];
        for (int p = 0; p < row.npoints; ++p)
            ends[Cases::ncorners + p] = call.mesh->nnodes + number[p];
        if (call.of.lower > call.of.upper) above |= ~0u << Cases::ncorners;

        for (int piece = 0; piece < row.cut->ncells; ++piece) {
            const unsigned char *places = row.cut->nodes + 4 * piece;
            int inside = 0;
            for (int i = 0; i < 4; ++i)
                inside |= static_cast<int>(~above >> places[i] & 1) << i;
            if (inside == 0) continue;
            if (inside == tet_cut_cases::last_case) {
                if (!append_pieces(call.lists, TET_LIST, 1, places, local)) return walk_end::no_connect;
                continue;
            }
            const cut_case &again = tet_cut_cases::row(inside);
            qx_long of_piece[4 + most_cut_points];
            for (int i = 0; i < 4; ++i)
                of_piece[i] = local[places[i]];
            for (int p = 0; p < again.npoints; ++p) {
                const int edge = find_or_add_edge_at(call.table, ends[places[again.left[p]]],
                                                     ends[places[again.right[p]]], 1);
                if (edge < 0) return walk_end::no_edges;
                of_piece[4 + p] = call.nold + edge;
            }
            if (!append_pieces(call.lists, TET_LIST, again.ncells, again.nodes, of_piece))
                return walk_end::no_connect;
        }
        return walk_end::complete;
    }
};

template <typename Cases> walk_end band_set(band_call *call)
{
    mesh_info *mesh = call->mesh;
    if (!fetch_connect(mesh, call->set)) return walk_end::no_rows;
    for (band_lines &lines : call->lines) {
        if (Cases::piece_list == TET_LIST)
            lines.drop();
        else if (!lines.begin(call->set))
            return walk_end::no_list;
    }
    if (!begin_piece_lists(call->lists, BAND_LISTS)) return walk_end::no_list;

    // A kernel that is called by itself has to look at all nodes first.
    const auto *prepared = static_cast<const prepared_band *>(kernel_watch::prepared_for(call->table));
    const unsigned char *classes = nullptr;
    scratch memory;
    if (prepared != nullptr && is_same(prepared->of, call->of)) {
        classes = prepared->classes;
    } else {
        unsigned char *own = memory.borrow<unsigned char>(mesh->nnodes);
        if (own == nullptr || !classify_all_nodes(call->of, mesh->nnodes, own)) return walk_end::no_list;
        classes = own;
    }
    const cell_rows rows = {
        mesh->cell_connect[call->set], mesh->cell_nnodes[call->set], classes, true, 0, mesh->nnodes};
    band_sink<Cases> sink(call);
    return walk_cells<Cases>(rows, {call->set, 0, mesh->cell_count[call->set]}, call->table, &sink);
}

// The result of an exported kernel. Where it is stopped it releases what it was given.
int end_band_kernel(band_call *call, walk_end end)
{
    if (end == walk_end::complete) return 1;
    if (end != walk_end::interrupted) {
        kernel_watch::mark(call->table, kernel_failure::kept);
        return 0;
    }
    kernel_watch::mark(call->table, kernel_failure::released);
    contour_edge_delete(call->table);
    release_piece_lists(call->lists, BAND_LISTS);
    for (band_lines &lines : call->lines)
        lines.drop();
    return 0;
}

// ---- a whole mesh ----------------------------------------------------------------------------------------

struct band_run {
    mesh_info *mesh;
    band_data of;
    qx_long nold;
    contour_edge_table *table;
    prepared_band prepared;
    piece_lists lists;
    qx_long *nlines[2], **lines[2];
};

bool run_band(band_run *run, mesh_info *mesh, int set, contour_cell_func kernel)
{
    const kernel_watch watch(run->table, &run->prepared);
    const band_data &of = run->of;
    const int result = kernel(mesh, set, of.data_type, of.data, of.null_flag, of.null_value, of.lower,
                              of.upper, run->nold, of.node_map, run->table, run->lists.ncells,
                              run->lists.connect, run->lists.used, run->lists.capacity, run->lists.step,
                              run->nlines[0], run->lines[0], run->nlines[1], run->lines[1]);
    if (watch.seen() == kernel_failure::released) run->table = nullptr;
    return result == 1 && watch.seen() == kernel_failure::none;
}

bool band_one_set(band_run *run, int set)
{
    mesh_info *mesh = run->mesh;
    const auto kernel = set_function<contour_cell_func>(mesh, set, SLOT_CONTOUR, SLOT_SUB_CONTOUR);
    if (kernel == nullptr) return true;
    OMpush_status_range(100 * set / mesh->ncell_sets, 100 * (set + 1) / mesh->ncell_sets);
    bool good;
    if (mesh->cell_order[set] < 2) {
        good = run_band(run, mesh, set, kernel);
    } else {
        const auto tesselate = set_function<tesselate_func>(mesh, set, SLOT_TESSELATE);
        // Without a tesselator the set is passed over, and its range stays open: as with level surfaces.
        if (tesselate == nullptr) return true;
        good = for_each_block(mesh, set, tesselate, band_block, band_module, [&](const cell_block &block) {
            return run_band(run, block.mesh, set, kernel);
        });
    }
    OMpop_status_range();
    return good;
}

// The places of all output nodes; null without a node. False: there is no memory, or a fetch has failed.
bool place_nodes(const band_run &run, int nspace, float **coords)
{
    const contour_edge_table *table = run.table;
    const qx_long nnodes_out = table->nedges, count = run.nold + nnodes_out;
    *coords = nullptr;
    if (count == 0) return true;
    *coords = static_cast<float *>(ARRalloc_f(nullptr, DTYPE_FLOAT, count * nspace, 0, ALLOC_AT("contr")));
    if (*coords == nullptr) return false;
    expect_to_fill(*coords, count * nspace * static_cast<qx_long>(sizeof(float)));
    mesh_info *mesh = run.mesh;
    bool good = UTILget_coord_list(mesh, run.nold, run.of.node_map, *coords) == 1;
    if (good && nnodes_out > 0)
        good = UTILeval_contour(mesh->nnodes, nnodes_out, 0, run.of.data_type, run.of.data, run.of.lower,
                                run.of.upper, table->min_list, table->max_list, table->level_list, nspace,
                                DTYPE_FLOAT, 0, nullptr, 0, mesh->coords, *coords + run.nold * nspace) == 1;
    if (good) return true;
    ARRfree_f(*coords, ALLOC_AT("contr"));
    *coords = nullptr;
    return false;
}

// All sets, between the numbers of the nodes that stay and the places of all.
bool band_all_sets(band_run *run, int nspace, float **coords)
{
    mesh_info *mesh = run->mesh;
    const qx_long nnodes = mesh->nnodes;
    scratch memory;
    unsigned char *classes = memory.borrow<unsigned char>(nnodes);
    if (classes == nullptr) return false;
    expect_to_fill(classes, nnodes);
    if (!classify_all_nodes(run->of, nnodes, classes)) return false;
    run->prepared = {run->of, classes};
    run->table = contour_edge_create(nnodes);
    bool good = run->table != nullptr;
    for (int set = 0; good && set < mesh->ncell_sets; ++set)
        good = band_one_set(run, set);
    return good && place_nodes(*run, nspace, coords);
}

} // namespace

int UTILcontour_cells(mesh_info *mesh, const void *data, int data_type, int null_flag, const void *null_value,
                      double low_level, double high_level, qx_long *nold, qx_long **node_map,
                      qx_long *nnodes_out, qx_long **min_node, qx_long **max_node, unsigned char **level_list,
                      qx_long *cont_ncells, qx_long **cont_conn, qx_long *cont_nconn, int nspace,
                      float **coords, qx_long *nlow_lines, qx_long **low_lines, qx_long *nhigh_lines,
                      qx_long **high_lines)
{
    for (int list = 0; list < BAND_LISTS; ++list) {
        cont_ncells[list] = cont_nconn[list] = 0;
        cont_conn[list] = nullptr;
    }
    *low_lines = *high_lines = nullptr;
    *nold = 0;
    *node_map = nullptr;
    if (!fetch_coords(mesh)) return 0;
    const qx_long nnodes = mesh->nnodes;
    const size_t map_bytes = static_cast<size_t>(nnodes > 0 ? nnodes : 1) * sizeof(qx_long);
    *node_map = static_cast<qx_long *>(malloc(map_bytes));
    if (*node_map == nullptr) return 0;
    expect_to_fill(*node_map, static_cast<qx_long>(map_bytes));
    *nold =
        UTILnode_thresh2(nnodes, data_type, data, null_flag, null_value, low_level, high_level, *node_map);

    qx_long capacity[BAND_LISTS] = {}, step[BAND_LISTS] = {};
    const band_data of = {data_type, data, null_flag, null_value, low_level, high_level, *node_map};
    band_run run = {mesh,
                    of,
                    *nold,
                    nullptr,
                    {of, nullptr},
                    {cont_ncells, cont_conn, cont_nconn, capacity, step},
                    {nlow_lines, nhigh_lines},
                    {low_lines, high_lines}};
    if (!band_all_sets(&run, nspace, coords)) {
        contour_edge_delete(run.table);
        free(*node_map);
        *node_map = nullptr;
        return 0;
    }
    *nnodes_out = static_cast<qx_long>(run.table->nlow) + run.table->nhigh;
    *min_node = run.table->min_list;
    *max_node = run.table->max_list;
    *level_list = run.table->level_list;
    free(run.table->head);
    free(run.table->next);
    free(run.table);
    drop_empty_lists(cont_ncells, cont_conn, BAND_LISTS);
    if (*low_lines == nullptr) *nlow_lines = 0;
    if (*high_lines == nullptr) *nhigh_lines = 0;
    return 1;
}

#define EXPORT_KERNEL(kind, cases)                                                                     \
    int UTILcontour_##kind(mesh_info *mesh, int set, int data_type, const void *data, int null_flag,   \
                           const void *null_value, double low_level, double high_level, qx_long nold,  \
                           const qx_long *node_map, contour_edge_table *table, qx_long *cont_ncells,   \
                           qx_long **cont_conn, qx_long *cont_nconn, qx_long *capacity, qx_long *grow, \
                           qx_long *nlow_lines, qx_long **low_lines, qx_long *nhigh_lines,             \
                           qx_long **high_lines)                                                       \
    {                                                                                                  \
        band_call call = {mesh,                                                                        \
                          set,                                                                         \
                          {data_type, data, null_flag, null_value, low_level, high_level, node_map},   \
                          nold,                                                                        \
                          table,                                                                       \
                          {cont_ncells, cont_conn, cont_nconn, capacity, grow},                        \
                          {{nlow_lines, low_lines}, {nhigh_lines, high_lines}}};                       \
        return end_band_kernel(&call, band_set<cases>(&call));                                         \
    }
EXPORT_KERNEL(hex, solid_bands<hex_cut_cases>)
EXPORT_KERNEL(prism, solid_bands<prism_cut_cases>)
EXPORT_KERNEL(pyr, solid_bands<pyr_cut_cases>)
EXPORT_KERNEL(tet, solid_bands<tet_cut_cases>)
EXPORT_KERNEL(quad, surface_bands<quad_band_cases>)
EXPORT_KERNEL(tri, surface_bands<tri_band_cases>)
