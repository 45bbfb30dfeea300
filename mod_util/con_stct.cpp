// Contour bands over structured meshes: a sink of the walk over lattices (lattice_walk.hpp) with two tests, at or
// above the lower level and above the upper one. Cells that are all inside are copied, cells that one level crosses
// are split as by a cut (lattice_split.hpp), and those that both cross are quadrilaterals with a case of their own
// (band_cases.hpp) or hexahedra that are cut twice: at the lower level, and each of the tetrahedra of that at the
// upper one.
//
// An edge of the mesh has a new node at each level that crosses it, and a slot for each. The second cut has edges
// besides: across faces and through cells, and from a corner to a new node of the first cut, of which the one with
// number e is written nnodes + e as the end of an edge. These have their numbers in a table of pairs, for the slab
// at hand and the one below it. With the levels in the wrong order cells that are passed over have crossed edges
// too, so that the place of an edge does not tell whether it is new, and all edges are looked up.
//
// New nodes are placed slab by slab, the retained ones at the end.
#include <skoklana/cut.h>

#include "band_cases.hpp"
#include "dtype.hpp"
#include "lattice_split.hpp"
#include "thresh.hpp"

namespace {

constexpr qx_long first_band_entries = 1000; // of every list of cells
constexpr qx_long first_band_nodes = 1000;
constexpr qx_long first_line_entries = 2048;

// What a second cut of a tetrahedron adds at most.
constexpr int most_tet_points = 4, most_tet_pieces = 3;

// ---- edges that are not the mesh's -------------------------------------------------------------------------

// Numbers of edges by their ends and level: open addressing, kept half empty.
struct edge_lookup {
    struct entry {
        qx_long low, high;
        qx_long number; // below 0: no entry
        qx_long level;
    };
    entry *entries = nullptr;
    qx_long size = 0, used = 0; // size: a power of two, or 0

    edge_lookup() = default;
    edge_lookup(const edge_lookup &) = delete;
    edge_lookup &operator=(const edge_lookup &) = delete;
    ~edge_lookup() { free(entries); }

    entry *find(qx_long low, qx_long high, qx_long level) const
    {
        if (size == 0) return nullptr;
        const uint64_t mixed =
            (static_cast<uint64_t>(low) * 2 + static_cast<uint64_t>(level)) * 0x9e3779b97f4a7c15u ^
            static_cast<uint64_t>(high) * 0xc2b2ae3d27d4eb4fu;
        qx_long at = static_cast<qx_long>(mixed >> 20) & (size - 1);
        while (entries[at].number >= 0 &&
               (entries[at].low != low || entries[at].high != high || entries[at].level != level))
            at = (at + 1) & (size - 1);
        return &entries[at];
    }

    // Room for more entries. False: no memory, and the table is as it was.
    bool reserve(qx_long more)
    {
        if (2 * (used + more) <= size) return true;
        qx_long wanted = std::max<qx_long>(size, 1024);
        while (wanted < 2 * (used + more))
            wanted *= 2;
        entry *larger = static_cast<entry *>(malloc(static_cast<size_t>(wanted) * sizeof(entry)));
        if (larger == nullptr) return false;
        memset(larger, 0xff, static_cast<size_t>(wanted) * sizeof(entry));
        entry *old = entries;
        const qx_long old_size = size;
        entries = larger;
        size = wanted;
        for (qx_long at = 0; at < old_size; ++at)
            if (old[at].number >= 0) *find(old[at].low, old[at].high, old[at].level) = old[at];
        free(old);
        return true;
    }

    void clear()
    {
        if (used != 0) memset(entries, 0xff, static_cast<size_t>(size) * sizeof(entry));
        used = 0;
    }
};

// ---- the sink ----------------------------------------------------------------------------------------------

// The edge of the mesh between two corners of a cut hexahedron; -1: there is none.
struct corner_edges {
    signed char edge[8][8];
};

constexpr corner_edges derive_corner_edges()
{
    corner_edges table = {};
    for (int a = 0; a < 8; ++a)
        for (int b = 0; b < 8; ++b) {
            const unsigned differ = place_of_cut_corner<3>(a) ^ place_of_cut_corner<3>(b);
            const bool is_edge = differ == 1 || differ == 2 || differ == 4;
            table.edge[a][b] = static_cast<signed char>(
                is_edge ? edge_between<3>(place_of_cut_corner<3>(a), place_of_cut_corner<3>(b)) : -1);
        }
    return table;
}

constexpr corner_edges edges_of_corners = derive_corner_edges();

// What a band is asked for.
struct band_request {
    mesh_info *mesh;
    const void *data;
    size_t element_bytes;
    range_threshold range; // type, null and levels
    int nspace;
};

template <int naxes_> struct lattice_band_sink : split_sink<naxes_, 2> {
    using base = split_sink<naxes_, 2>;
    static constexpr int naxes = naxes_, ncorners = base::ncorners;
    static constexpr unsigned full = (1u << ncorners) - 1;
    using typename base::cases;

    const band_request *asked;
    bool in_order;         // the levels are
    edge_nodes *nodes;     // of the walk
    unsigned char *levels; // of the new nodes, room for as many as nodes has
    qx_long levels_capacity;
    batch_list lines[2];             // at the lower and the upper level; no data: not wanted
    float *coords;                   // of the output nodes; those of the retained ones are yet to come
    qx_long coords_capacity, placed; // output nodes, new nodes
    float *box;                      // coordinates of two planes
    edge_lookup *looked_up[2];       // edges of the slab below and of this one

    // The case of a cell that one level crosses.
    static const lattice_cut_case<naxes> &single_cut(const lattice_cell<2> &cell, int level)
    {
        return lattice_cut<naxes>(level == 0 ? cell.index[0] : full & ~static_cast<unsigned>(cell.index[1]));
    }

    // The only level that crosses a cell; -1: both do.
    static int crossing_level(const lattice_cell<2> &cell)
    {
        return cell.index[1] == 0 ? 0 : cell.index[0] == full ? 1 : -1;
    }

    static const band_case *band_row(const lattice_cell<2> &cell)
    {
        return quad_band_cases::row(lattice_cuts_quad.row[cell.index[1]].index,
                                    lattice_cuts_quad.row[cell.index[0]].index);
    }

    struct tally {
        int nnodes = 0, nlooked_up = 0, npieces = 0, nlines[2] = {0, 0}; // at most
        void add(const lattice_cell<2> &cell)
        {
            const int level = crossing_level(cell);
            if (level >= 0) {
                const cut_case &row = cases::row(single_cut(cell, level).index);
                nnodes += row.npoints;
                npieces += row.ncells;
                nlines[level] += row.nlines;
            } else if constexpr (naxes == 3) {
                const cut_case &row = cases::row(lattice_cut<3>(cell.index[0]).index);
                nnodes += row.npoints + most_tet_points * row.ncells;
                nlooked_up += row.npoints + most_tet_points * row.ncells;
                npieces += most_tet_pieces * row.ncells;
            } else if (const band_case *row = band_row(cell); row != nullptr) {
                nnodes += row->npoints;
                nlooked_up += row->npoints;
                npieces += row->ncells;
                nlines[0] += row->nlines[0];
                nlines[1] += row->nlines[1];
            }
        }
    };

    lattice_end enter_plane(qx_long k)
    {
        const qx_long first = this->plane * k;
        sweep_nodes_in_range(this->plane,
                             static_cast<const char *>(asked->data) +
                                 static_cast<size_t>(first) * asked->element_bytes,
                             asked->range, first, &this->nlisted, this->old_nodes, this->next_map());
        return lattice_end::done;
    }

    lattice_end make_room(const tally &adds, int nwhole, double done)
    {
        if (levels_capacity < nodes->min_node.capacity) {
            const qx_long capacity = nodes->min_node.capacity;
            void *grown = ARRrealloc_f(levels, DTYPE_BYTE, capacity, 0, ALLOC_AT("con_stct"));
            if (grown == nullptr) return lattice_end::no_node_memory;
            levels = static_cast<unsigned char *>(grown);
            levels_capacity = capacity;
        }
        if (!looked_up[1]->reserve(adds.nlooked_up)) return lattice_end::no_node_memory;
        for (int level = 0; level < 2; ++level)
            if (lines[level].data != nullptr &&
                !make_room_for(&lines[level], 2 * adds.nlines[level], 0, done, ALLOC_AT("con_stct")))
                return lattice_end::no_connect_memory;
        return this->make_room_for_split(adds.npieces, nwhole, done);
    }

    bool make_room_for_coords(qx_long noutput)
    {
        if (noutput <= coords_capacity) return true;
        const qx_long capacity = noutput + noutput / 2;
        void *grown = ARRrealloc_f(coords, DTYPE_FLOAT, capacity * asked->nspace, 0, ALLOC_AT("con_stct"));
        if (grown == nullptr) return false;
        expect_to_fill(grown, capacity * asked->nspace * static_cast<qx_long>(sizeof(float)));
        coords = static_cast<float *>(grown);
        coords_capacity = capacity;
        return true;
    }

    // Places the new nodes of the slab.
    lattice_end leave_slab(qx_long k)
    {
        mesh_info *mesh = asked->mesh;
        qx_long lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
        for (int d = 0; d < naxes - 1; ++d)
            hi[d] = mesh->dims[d] - 1;
        lo[naxes - 1] = k;
        hi[naxes - 1] = k + 1;
        if (mesh->get_coords_range(mesh, lo, hi, box) < 1) return lattice_end::no_coords;
        const qx_long nnew = nodes->min_node.used - placed;
        if (!make_room_for_coords(this->nold + placed + nnew)) return lattice_end::no_node_memory;
        UTILeval_contour(mesh->nnodes, nnew, placed, asked->range.data_type, asked->data, asked->range.lo,
                         asked->range.hi, nodes->min_node.data, nodes->max_node.data, levels, asked->nspace,
                         DTYPE_FLOAT, 0, nullptr, this->plane * k * asked->nspace, box,
                         coords + (this->nold + placed) * asked->nspace);
        placed += nnew;
        std::swap(looked_up[0], looked_up[1]);
        looked_up[1]->clear();
        return lattice_end::done;
    }

    struct writer {
        lattice_band_sink *sink;
        qx_long *entry;
        piece_place place;

        using edges_of = piece_edges<naxes, 2>;

        void add_node(qx_long low, qx_long high, int level, node_writer *made)
        {
            made->min_node[made->next] = low;
            made->max_node[made->next] = high;
            sink->levels[made->next] = static_cast<unsigned char>(level);
            ++made->next;
        }

        // The number of any edge.
        qx_long look_up(qx_long a, qx_long b, int level, node_writer *made)
        {
            const qx_long low = std::min(a, b), high = std::max(a, b);
            const edge_lookup::entry *below = sink->looked_up[0]->find(low, high, level);
            if (below != nullptr && below->number >= 0) return below->number;
            edge_lookup::entry *found = sink->looked_up[1]->find(low, high, level);
            if (found->number < 0) {
                *found = {low, high, made->next, level};
                ++sink->looked_up[1]->used;
                add_node(low, high, level, made);
            }
            return found->number;
        }

        // The number of an edge of the mesh. fresh: those that no cell before has, nor this one so far.
        qx_long number_one(const edges_of &edges, int edge, int level, qx_long i, unsigned *fresh,
                           node_writer *made)
        {
            const qx_long low = edges.low_node[edge] + i,
                          high = low + edges.step[edge / edges_an_axis<naxes>];
            if (!sink->in_order) return look_up(low, high, level, made);
            qx_long *slot = &edges.slot[level][edge][i];
            if ((*fresh >> edge & 1) != 0) {
                *fresh &= ~(1u << edge);
                *slot = made->next;
                add_node(low, high, level, made);
            }
            return *slot;
        }

        // The numbers of the new nodes of a case.
        void number_cut(const lattice_cut_case<naxes> &at, int level, const lattice_cell<2> &cell,
                        const edges_of &edges, node_writer *made, qx_long *numbers)
        {
            if (sink->in_order) {
                const qx_long before = made->next;
                number_edges(edges, level, cell.i, at.crossed, cell.fresh, made);
                for (qx_long n = before; n < made->next; ++n)
                    sink->levels[n] = static_cast<unsigned char>(level);
                for (int p = 0; p < at.crossed.nedges; ++p)
                    numbers[p] = edges.slot[level][at.crossed.edges[p]][cell.i];
            } else {
                unsigned fresh = 0;
                for (int p = 0; p < at.crossed.nedges; ++p)
                    numbers[p] = number_one(edges, at.crossed.edges[p], level, cell.i, &fresh, made);
            }
        }

        void add_lines(int level, int nlines, const unsigned char *points, const qx_long *numbers)
        {
            batch_list *list = &sink->lines[level];
            if (list->data == nullptr) return;
            for (int n = 0; n < 2 * nlines; ++n)
                list->data[list->used++] = numbers[points[n]];
        }

        void take(const lattice_cell<2> &cell, const edges_of &edges, node_writer *made)
        {
            qx_long numbers[most_cut_local]; // in the output
            const int level = crossing_level(cell);
            number_corners<naxes>(sink->map, sink->nx, sink->in_plane(place) + cell.i, numbers);
            if (level >= 0) {
                const lattice_cut_case<naxes> &at = single_cut(cell, level);
                const cut_case &row = cases::row(at.index);
                number_cut(at, level, cell, edges, made, numbers + ncorners);
                for (int p = 0; p < row.npoints; ++p)
                    numbers[ncorners + p] += sink->nold;
                entry = write_pieces(row.nodes, base::piece_nnodes * row.ncells, numbers, entry);
                add_lines(level, row.nlines, row.lines, numbers + ncorners);
            } else if constexpr (naxes == 3) {
                cut_twice(cell, edges, made, numbers);
            } else {
                use_row(cell, edges, made, numbers);
            }
        }

        void use_row(const lattice_cell<2> &cell, const edges_of &edges, node_writer *made, qx_long *numbers)
        {
            const band_case *row = band_row(cell);
            if (row == nullptr) return;
            unsigned fresh[2] = {cell.fresh, cell.fresh};
            for (int p = 0; p < row->npoints; ++p) {
                const int edge = edge_between<2>(place_of_cut_corner<2>(row->left[p]),
                                                 place_of_cut_corner<2>(row->right[p]));
                numbers[ncorners + p] =
                    sink->nold + number_one(edges, edge, row->level[p], cell.i, &fresh[row->level[p]], made);
            }
            entry = write_pieces(row->nodes, base::piece_nnodes * row->ncells, numbers, entry);
            for (int level = 0; level < 2; ++level)
                add_lines(level, row->nlines[level], row->lines[level], numbers + ncorners);
        }

        void cut_twice(const lattice_cell<2> &cell, const edges_of &edges, node_writer *made,
                       qx_long *numbers)
        {
            const lattice_cut_case<3> &first = lattice_cuts_hex.row[cell.index[0]];
            const cut_case &row = cut_rows_hex[first.index];
            number_cut(first, 0, cell, edges, made, numbers + ncorners);
            if (!sink->in_order) return; // all of it is above the upper level

            // Corners and new nodes as ends of edges, and which of them are not above the upper level.
            qx_long ends[most_cut_local];
            for (int corner = 0; corner < 8; ++corner) {
                const unsigned at = place_of_cut_corner<3>(corner);
                ends[corner] =
                    place.node + cell.i + (at & 1) + (at >> 1 & 1) * sink->nx + (at >> 2) * sink->plane;
            }
            for (int p = 0; p < row.npoints; ++p) {
                ends[8 + p] = sink->asked->mesh->nnodes + numbers[8 + p];
                numbers[8 + p] += sink->nold;
            }
            const unsigned kept = ~static_cast<unsigned>(lattice_cuts_hex.row[cell.index[1]].index) & 0xff;
            const unsigned inside = kept | ~0xffu;

            unsigned fresh = cell.fresh;
            for (int piece = 0; piece < row.ncells; ++piece) {
                const unsigned char *tet = row.nodes + 4 * piece;
                int index = 0;
                for (int n = 0; n < 4; ++n)
                    index |= static_cast<int>(inside >> tet[n] & 1) << n;
                if (index == 0) continue;
                if (index == 15) {
                    entry = write_pieces(tet, 4, numbers, entry);
                    continue;
                }
                const cut_case &second = cut_rows_tet[index];
                qx_long of_tet[4 + most_tet_points];
                for (int n = 0; n < 4; ++n)
                    of_tet[n] = numbers[tet[n]];
                for (int p = 0; p < second.npoints; ++p) {
                    const int a = tet[second.left[p]], b = tet[second.right[p]];
                    const int edge = a < 8 && b < 8 ? edges_of_corners.edge[a][b] : -1;
                    of_tet[4 + p] = sink->nold + (edge >= 0 ? number_one(edges, edge, 1, cell.i, &fresh, made)
                                                            : look_up(ends[a], ends[b], 1, made));
                }
                entry = write_pieces(second.nodes, 4 * second.ncells, of_tet, entry);
            }
        }
    };

    writer begin(const piece_place &place)
    {
        return {this, this->pieces.connect.data + this->pieces.connect.used, place};
    }

    void end(const writer &done, const tally &)
    {
        this->pieces.connect.used = done.entry - this->pieces.connect.data;
    }
};

// ---- tests of values ---------------------------------------------------------------------------------------

// Values that take their cells out of a band: null ones, and those between the levels that the range of the
// retained nodes does not hold, since the levels as elements are others (beyond the range of a narrow type).
template <typename T, typename Lower, typename Upper> struct left_out {
    in_range<T> null;
    Lower lower;
    Upper upper;
    in_range<T> retained;

    FORCE_INLINE bool one(T v) const
    {
        const int is_null = null.one(v), above_low = lower.one(v), below_high = !upper.one(v),
                  dropped = !retained.one(v);
        return (is_null | (above_low & below_high & dropped)) != 0;
    }
#if SKOKLANA_HAVE_AVX2_FORM
    template <typename V> TARGET_AVX2 FORCE_INLINE auto each(V v) const
    {
        return null.each(v) | (lower.each(v) & ~upper.each(v) & ~retained.each(v));
    }
#endif
};

// The values of an integer type from the least one on for which a test holds that holds for all larger ones.
template <typename T, typename Holds> in_range<T> from_least(Holds holds)
{
    using limits = std::numeric_limits<T>;
    if (!holds(limits::max())) return {limits::max(), limits::min()};
    return {least_that<T>(holds), limits::max()};
}

// (double)v >= level and (double)v > level.
template <typename T> auto reaches_level(double level)
{
    if constexpr (std::is_integral_v<T>) {
        return from_least<T>([=](T v) { return static_cast<double>(v) >= level; });
    } else {
        T bound = static_cast<T>(level);
        if (bound < level) bound = std::nextafter(bound, std::numeric_limits<T>::infinity());
        return at_least<T>{bound};
    }
}

template <typename T> auto above_level(double level)
{
    if constexpr (std::is_integral_v<T>) {
        return from_least<T>([=](T v) { return static_cast<double>(v) > level; });
    } else {
        T bound = static_cast<T>(level);
        if (bound > level) bound = std::nextafter(bound, -std::numeric_limits<T>::infinity());
        return greater_than<T>{bound};
    }
}

// The values that equal the null value as doubles.
template <typename T> in_range<T> equal_in_double(T value)
{
    if constexpr (std::is_integral_v<T>) {
        const double widened = static_cast<double>(value);
        const in_range<T> from = from_least<T>([=](T v) { return static_cast<double>(v) >= widened; });
        const in_range<T> beyond = from_least<T>([=](T v) { return static_cast<double>(v) > widened; });
        const bool to_the_end = beyond.lo > beyond.hi;
        return {from.lo, to_the_end ? from.hi : static_cast<T>(beyond.lo - 1)};
    } else {
        return {value, value};
    }
}

// Whether a value between the levels may be none that is retained: only of integers.
template <typename T, typename Lower, typename Upper>
bool may_miss_retained(const Lower &lower, const Upper &upper, const in_range<T> &retained)
{
    if constexpr (std::is_integral_v<T>) {
        if (lower.lo > lower.hi) return false;
        if (upper.lo <= upper.hi && upper.lo <= lower.lo) return false;
        const T last = upper.lo <= upper.hi ? static_cast<T>(upper.lo - 1) : lower.hi;
        return !(retained.one(lower.lo) && retained.one(last));
    }
    return false;
}

// ---- the operation -----------------------------------------------------------------------------------------

template <int naxes> struct band_result {
    edge_nodes nodes;
    lattice_band_sink<naxes> made = {};
    edge_lookup lookups[2];
    scratch memory;
};

template <int naxes> void release_band(band_result<naxes> *out)
{
    release_nodes(&out->nodes);
    release_cells(&out->made.whole);
    release_cells(&out->made.pieces);
    for (batch_list &lines : out->made.lines)
        release_list(&lines, ALLOC_AT("con_stct"));
    if (out->made.levels != nullptr) ARRfree_f(out->made.levels, ALLOC_AT("con_stct"));
    if (out->made.coords != nullptr) ARRfree_f(out->made.coords, ALLOC_AT("con_stct"));
    free(out->made.old_nodes);
}

template <int naxes>
bool open_band(band_result<naxes> *out, const band_request &asked, const bool *wants_lines)
{
    lattice_band_sink<naxes> &made = out->made;
    made.asked = &asked;
    made.in_order = !(asked.range.lo > asked.range.hi);
    made.nodes = &out->nodes;
    made.looked_up[0] = &out->lookups[0];
    made.looked_up[1] = &out->lookups[1];
    const qx_long nretained = count_nodes_in_range(asked.mesh->nnodes, asked.data, asked.range);
    bool opened = made.open_retained(asked.mesh->dims, nretained, &out->memory) &&
                  open_cells(&made.whole, first_band_entries, false) &&
                  open_cells(&made.pieces, first_band_entries, false) &&
                  open_nodes(&out->nodes, first_band_nodes);
    for (int level = 0; level < 2; ++level)
        if (opened && wants_lines[level])
            opened = open_list(&made.lines[level], first_line_entries, ALLOC_AT("con_stct"));
    if (!opened) return false;
    made.levels = static_cast<unsigned char *>(
        ARRalloc_f(nullptr, DTYPE_BYTE, first_band_nodes, 0, ALLOC_AT("con_stct")));
    made.levels_capacity = first_band_nodes;
    made.coords_capacity = nretained + first_band_nodes;
    made.coords = static_cast<float *>(
        ARRalloc_f(nullptr, DTYPE_FLOAT, made.coords_capacity * asked.nspace, 0, ALLOC_AT("con_stct")));
    made.box = out->memory.keep(
        static_cast<float *>(malloc(static_cast<size_t>(2 * made.plane * asked.nspace + 1) * sizeof(float))));
    return made.levels != nullptr && made.coords != nullptr && made.box != nullptr;
}

template <typename T, int naxes> lattice_end walk_band(const band_request &asked, band_result<naxes> *out)
{
    const range_threshold &range = asked.range;
    const auto lower = reaches_level<T>(range.lo);
    const auto upper = above_level<T>(range.hi);
    left_out<T, decltype(lower), decltype(upper)> out_of_it = {
        {no_upper_bound<T>(), no_lower_bound<T>()},
        lower,
        upper,
        {truncate_to<T>(range.lo), truncate_to<T>(range.hi)}};
    if (range.null_flag != 0) out_of_it.null = equal_in_double(null_value_of<T>(1, range.null_value));
    const bool leaves_out = range.null_flag != 0 || may_miss_retained(lower, upper, out_of_it.retained);
    return with_tested_flags(
        static_cast<const T *>(asked.data), asked.mesh->nnodes, leaves_out, out_of_it,
        [&](const flag_source &flags) {
            return walk_lattice(asked.mesh->dims, flags, lattice_checks::every_eighth_slab, &out->nodes,
                                &out->made);
        },
        lower, upper);
}

// The outputs of a call.
struct band_outputs {
    qx_long *nold, **old_nodes, *nnodes_out, **min_node, **max_node;
    unsigned char **level_list;
    qx_long *ncells, **conn, *nconn;
    float **coords;
    qx_long *nlines[2], **lines[2];

    void clear() const
    {
        *nold = *nnodes_out = 0;
        *old_nodes = *min_node = *max_node = nullptr;
        *level_list = nullptr;
        *coords = nullptr;
        for (int list = 0; list < BAND_LISTS; ++list) {
            ncells[list] = nconn[list] = 0;
            conn[list] = nullptr;
        }
        for (int level = 0; level < 2; ++level) {
            *nlines[level] = 0;
            *lines[level] = nullptr;
        }
    }
};

template <int naxes> void hand_over(band_result<naxes> *from, const band_outputs &out)
{
    lattice_band_sink<naxes> &made = from->made;
    *out.nold = made.nold;
    *out.old_nodes = made.old_nodes;
    *out.nnodes_out = from->nodes.min_node.used;
    *out.min_node = from->nodes.min_node.data;
    *out.max_node = from->nodes.max_node.data;
    *out.level_list = made.levels;
    *out.coords = made.coords;
    using cases = typename lattice_band_sink<naxes>::cases;
    for (made_cells *cells : {&made.whole, &made.pieces}) {
        const int list = cells == &made.whole ? cases::whole_list : cases::piece_list;
        out.ncells[list] = cells->connect.used / cut_list_nnodes[list];
        out.nconn[list] = cells->connect.used;
        if (cells->connect.used == 0) release_list(&cells->connect, ALLOC_AT("con_stct"));
        out.conn[list] = cells->connect.data;
    }
    for (int level = 0; level < 2; ++level) {
        *out.nlines[level] = made.lines[level].used / 2;
        *out.lines[level] = made.lines[level].data;
    }
}

template <int naxes> int band_lattice(band_request asked, const band_outputs &outputs)
{
    const bool wants_lines[2] = {naxes == 2 && *outputs.nlines[0] != 0,
                                 naxes == 2 && *outputs.nlines[1] != 0};
    outputs.clear();
    return with_dtype_silent(asked.range.data_type, [&](auto type) {
        using T = typename decltype(type)::type;
        asked.element_bytes = sizeof(T);
        band_result<naxes> out;
        lattice_end end = lattice_end::no_node_memory;
        if (open_band(&out, asked, wants_lines)) end = walk_band<T>(asked, &out);
        lattice_band_sink<naxes> &made = out.made;
        bool placed = end == lattice_end::done;
        if (placed && made.nold != 0)
            placed = UTILget_coord_list(asked.mesh, made.nold, made.old_nodes, made.coords) >= 1;
        if (!placed) {
            release_band(&out);
            if (end == lattice_end::no_coords)
                report_error("fld_info", "unable to get field sub-coordinates");
            return 0;
        }
        if (made.nold + out.nodes.min_node.used == 0) {
            ARRfree_f(made.coords, ALLOC_AT("con_stct"));
            made.coords = nullptr;
        }
        hand_over(&out, outputs);
        return 1;
    });
}

} // namespace

int UTILcontour_struct(mesh_info *mesh, const void *data, int data_type, int null_flag,
                       const void *null_value, double lower, double upper, qx_long *nold, qx_long **old_nodes,
                       qx_long *nnodes_out, qx_long **min_node, qx_long **max_node,
                       unsigned char **level_list, qx_long *cont_ncells, qx_long **cont_conn,
                       qx_long *cont_nconn, int nspace, float **coords, qx_long *nlow_lines,
                       qx_long **low_lines, qx_long *nhigh_lines, qx_long **high_lines)
{
    if (mesh->ndim != 2 && mesh->ndim != 3) return 0;
    const band_request asked = {mesh, data, 0, {data_type, null_flag, null_value, lower, upper}, nspace};
    const band_outputs outputs = {nold,
                                  old_nodes,
                                  nnodes_out,
                                  min_node,
                                  max_node,
                                  level_list,
                                  cont_ncells,
                                  cont_conn,
                                  cont_nconn,
                                  coords,
                                  {nlow_lines, nhigh_lines},
                                  {low_lines, high_lines}};
    return mesh->ndim == 3 ? band_lattice<3>(asked, outputs) : band_lattice<2>(asked, outputs);
}
