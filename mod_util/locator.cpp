// Location of many points.
//
// What a search waits for is memory. So points are located in batches, and a batch goes through the search in
// steps, each of which asks for what the next one reads: the block's packed list; the first candidate's nodes;
// their coordinates. Axes of rectilinear meshes are copied and, where they ascend, searched by halving.
//
// All of this is for meshes whose search is the library's own. With any other function in their table of
// methods, and as long as coordinates or connect lists are still to be fetched, points go by that function one
// at a time: what it does beyond its result is then the same as without a locator.

#include "locator.hpp"

// Fewer points than this do not pay for setting up anything.
constexpr qx_long few_points = 64;

static FORCE_INLINE void ask_for(const void *address)
{
    __builtin_prefetch(address);
}

point_locator::point_locator(mesh_info *mesh_, const blk_tbl *table_, qx_long npts_)
    : mesh(mesh_), table(table_), npts(npts_)
{
}

point_locator::~point_locator()
{
    free(axes);
}

static bool all_lists_fetched(const mesh_info *mesh)
{
    return std::all_of(mesh->cell_connect, mesh->cell_connect + mesh->ncell_sets,
                       [](const qx_long *list) { return list != nullptr; });
}

void point_locator::choose_way()
{
    const auto search = mesh->methods->find_cell_func;
    const auto test = mesh->methods->interp_cell_func;
    if (search == UTILfind_cell_unif && mesh->points != nullptr) {
        chosen = way::uniform;
    } else if (search == UTILfind_cell_rect && mesh->points != nullptr) {
        chosen = way::rectilinear;
        rectilinear.emplace(mesh);
        if (npts >= few_points) copy_axes();
    } else if (search == UTILfind_cell && table != nullptr && mesh->coords != nullptr) {
        if (test == UTILinterp_cell_uvw && all_lists_fetched(mesh)) chosen = way::sets;
        if (test == UTILinterp_cell_uvw_struct) chosen = way::lattice;
        if (chosen == way::by_method) return;
        blocks.emplace(table);
        if (npts >= few_points) packed.open(*blocks, npts);
    }
}

// Of axes that ascend, NaN ascending to nothing. Without memory the axes are searched where they are.
void point_locator::copy_axes()
{
    axes = static_cast<float *>(malloc(static_cast<size_t>(rectilinear->nrows) * sizeof(float)));
    if (axes == nullptr) return;
    const float *from = mesh->points;
    float *to = axes;
    for (int d = 0; d < mesh->ndim; ++d) {
        const qx_long n = mesh->dims[d];
        bool ascends = true;
        for (qx_long i = 0; i < n; ++i, from += mesh->nspace) {
            to[i] = from[d];
            ascends = ascends && (i > 0 ? to[i - 1] <= to[i] : to[i] == to[i]);
        }
        if (ascends) rectilinear->sorted[d] = to;
        to += n;
    }
}

int point_locator::batch()
{
    if (chosen == way::by_method) choose_way();
    return chosen == way::by_method ? 1 : most_points;
}

namespace {

// A point on its way through the steps.
struct query {
    qx_long entry = 0; // of the block's list, where that is not packed
    packed_search search;
    qx_long candidate = -1;
};

} // namespace

template <typename Cells>
void point_locator::locate_in_lists(const Cells &cells, int n, const float (*points)[3], located *out)
{
    query queries[most_points];
    with_nspace(mesh->nspace, [&](auto nspace) {
        constexpr int dims = decltype(nspace)::value;
        const float *coords = mesh->coords;
        for (int i = 0; i < n; ++i) {
            out[i].found = false;
            if (!blocks->reaches(points[i])) continue;
            const qx_long block = blocks->block_of(points[i]);
            if (block < 0 || table->blocks[block] == 0) continue;
            packed_list *list = packed.list_of<dims>(cells, coords, block);
            if (list == nullptr) {
                queries[i].entry = table->blocks[block];
                continue;
            }
            queries[i].search.list = list;
            for (int line = 0; line < 8; ++line)
                ask_for(reinterpret_cast<const char *>(list) + 64 * line);
        }
        for (int i = 0; i < n; ++i) {
            query *q = &queries[i];
            if (q->search.list == nullptr) continue;
            q->search.start(points[i], packed.scale);
            q->candidate = q->search.next();
            if (q->candidate >= 0) cells.template ask_for_cell<dims>(coords, q->candidate);
        }
        for (int i = 0; i < n; ++i) {
            cell_view view;
            if (queries[i].candidate < 0 || !cells.look_up(queries[i].candidate, &view)) continue;
            for (int k = 0; k < view.nnodes; ++k)
                ask_for(coords + view.nodes[k] * dims);
        }
        for (int i = 0; i < n; ++i) {
            query *q = &queries[i];
            if (q->entry != 0)
                out[i].found = search_cells<dims>(cells, coords, table, q->entry, points[i], blocks->tol,
                                                  &out[i].cell, out[i].uvw) == 1;
            for (; q->candidate >= 0 && !out[i].found; q->candidate = q->search.next()) {
                out[i].cell = q->candidate;
                out[i].found = test_cell<dims>(cells, coords, q->candidate, points[i], true, blocks->tol,
                                               out[i].uvw) > 0;
            }
        }
        return 1;
    });
}

void point_locator::locate(int n, const float (*points)[3], located *out)
{
    switch (chosen) {
    case way::by_method:
        for (int i = 0; i < n; ++i)
            out[i].found =
                mesh->methods->find_cell_func(mesh, table, points[i], &out[i].cell, out[i].uvw) == 1;
        return;
    case way::uniform: {
        const uniform_finder finder(mesh);
        for (int i = 0; i < n; ++i)
            out[i].found = finder.find(points[i], &out[i].cell, out[i].uvw) == 1;
        return;
    }
    case way::rectilinear:
        for (int i = 0; i < n; ++i)
            out[i].found = rectilinear->find(points[i], &out[i].cell, out[i].uvw) == 1;
        return;
    case way::sets: return locate_in_lists(set_cells{mesh}, n, points, out);
    case way::lattice: return locate_in_lists(lattice_cells(mesh), n, points, out);
    }
}
