// Location of many points.
//
// What a search waits for is memory. So points are located a batch at a time, ahead of their use, and in lists
// they are taken by block: what blocks side by side have in common, entries of the table, cells and nodes, is
// read once, and the boxes of a list are worked out once for all points of its block. The answers wait in the
// points' own order. Axes of rectilinear meshes are copied and, where they ascend, searched by halving.
//
// All of this is for meshes whose search is the library's own. With any other function in their table of
// methods, and as long as coordinates or connect lists are still to be fetched, points go by that function one
// at a time: what it does beyond its result is then the same as without a locator. For the same reason points
// keep their order where a kind of cell has a mapping from elsewhere.

#include "locator.hpp"

#include "own_methods.hpp"

// Fewer points than this do not pay for setting up anything.
constexpr qx_long few_points = 64;

// A host's own table may have more blocks; it is searched point by point.
constexpr qx_long most_blocks = qx_long{1} << 22;

// About how many boxes are held against points in one call of locate: some tens of milliseconds' worth, in
// which nobody asks whether to go on.
constexpr qx_long boxes_a_call = qx_long{1} << 26;

point_locator::point_locator(mesh_info *mesh_, const blk_tbl *table_, qx_long npts_)
    : mesh(mesh_), table(table_), npts(npts_)
{
}

point_locator::~point_locator()
{
    free(axes);
    free(queue);
    free(queue_ends);
}

static bool all_lists_fetched(const mesh_info *mesh)
{
    return std::all_of(mesh->cell_connect, mesh->cell_connect + mesh->ncell_sets,
                       [](const qx_long *list) { return list != nullptr; });
}

// Whether the first sets are mapped by functions of this library, or not at all.
static bool has_own_mappings(const mesh_info *mesh, int nsets)
{
    for (int set = 0; set < nsets; ++set) {
        const auto mapping = set_function<rev_par_func>(mesh, set, SLOT_REV_PAR);
        if (mapping != nullptr && !is_own_mapping(mapping)) return false;
    }
    return true;
}

search_way own_search_way(const mesh_info *mesh, const blk_tbl *table)
{
    const own_form search = own_search(mesh), test = own_cell_test(mesh);
    if (search == own_form::uniform && mesh->points != nullptr) return search_way::uniform;
    if (search == own_form::rectilinear && mesh->points != nullptr) return search_way::rectilinear;
    if (search == own_form::cells && table != nullptr && mesh->coords != nullptr) {
        if (test == own_form::cells && all_lists_fetched(mesh)) return search_way::sets;
        if (test == own_form::structured) return search_way::lattice;
    }
    return search_way::by_method;
}

void point_locator::choose_way()
{
    chosen = own_search_way(mesh, table);
    if (chosen == search_way::rectilinear) {
        rectilinear.emplace(mesh);
        if (npts >= few_points) copy_axes();
    } else if (chosen == search_way::sets || chosen == search_way::lattice) {
        blocks.emplace(table);
        const int nmapped = chosen == search_way::sets ? mesh->ncell_sets : 1;
        if (npts >= few_points && table->nblocks <= most_blocks && has_own_mappings(mesh, nmapped))
            open_queue();
    }
}

// Without memory the axes are searched where they are.
void point_locator::copy_axes()
{
    axes = static_cast<float *>(malloc(static_cast<size_t>(rectilinear->nrows) * sizeof(float)));
    if (axes == nullptr) return;
    const float *from = mesh->points;
    float *to = axes;
    for (int d = 0; d < mesh->ndim; ++d) {
        const qx_long n = mesh->dims[d];
        for (qx_long i = 0; i < n; ++i, from += mesh->nspace)
            to[i] = from[d];
        if (rectilinear_finder::ascends(to, n, 1)) rectilinear->sorted[d] = to;
        to += n;
    }
}

// Without memory each point is searched for by itself.
void point_locator::open_queue()
{
    const qx_long most = std::min(npts, longest_batch);
    queue = static_cast<queued_point *>(malloc(static_cast<size_t>(most) * sizeof(queued_point)));
    queue_ends = static_cast<unsigned *>(malloc(static_cast<size_t>(table->nblocks) * sizeof(unsigned)));
    if (queue != nullptr && queue_ends != nullptr) capacity = most;
}

qx_long point_locator::batch()
{
    if (chosen == search_way::by_method) choose_way();
    return chosen == search_way::by_method ? 1 : std::max(capacity, short_batch);
}

// The first entry of the list that a point is to be sought in; 0: none.
qx_long point_locator::head_of(const float *point) const
{
    if (!blocks->reaches(point)) return 0;
    const qx_long block = blocks->block_of(point);
    return block >= 0 ? table->blocks[block] : 0;
}

// Judged by the lists of a few points. Where all cells lie in one block a list may be as long as the mesh.
qx_long point_locator::worthwhile(qx_long n, const float (*points)[3]) const
{
    constexpr qx_long tried = 16, long_enough = qx_long{1} << 16;
    if (capacity == 0 || n <= short_batch) return n;
    qx_long entries = 0;
    for (qx_long k = 0; k < tried; ++k) {
        const qx_long most = entries + long_enough;
        for (qx_long entry = head_of(points[k * (n - 1) / (tried - 1)]); entry != 0 && entries < most;
             entry = table->next_list[entry])
            ++entries;
    }
    return std::clamp(boxes_a_call / (entries / tried + 1), short_batch, n);
}

template <typename Cells>
void point_locator::locate_in_lists(const Cells &cells, qx_long n, const float (*points)[3], located *out)
{
    if (n >= few_points && n <= capacity) return locate_by_block(cells, n, points, out);
    with_nspace(mesh->nspace, [&](auto nspace) {
        for (qx_long i = 0; i < n; ++i)
            out[i].found =
                search_cells<decltype(nspace)::value>(cells, mesh->coords, table, head_of(points[i]),
                                                      points[i], blocks->tol, &out[i].cell, out[i].uvw) == 1;
        return 1;
    });
}

// Sorts the points by block, by counting, and goes through the blocks in the order in which the table was
// filled.
template <typename Cells>
void point_locator::locate_by_block(const Cells &cells, qx_long n, const float (*points)[3], located *out)
{
    std::fill_n(queue_ends, table->nblocks, 0u);
    for (qx_long i = 0; i < n; ++i) {
        const qx_long block = blocks->reaches(points[i]) ? blocks->block_of(points[i]) : -1;
        out[i].found = false;
        out[i].cell = block; // until it is sought
        if (block >= 0) ++queue_ends[block];
    }
    unsigned before = 0;
    for (qx_long block = 0; block < table->nblocks; ++block) {
        const unsigned count = queue_ends[block];
        queue_ends[block] = before;
        before += count;
    }
    for (qx_long i = 0; i < n; ++i) {
        if (out[i].cell < 0) continue;
        const float *p = points[i];
        queue[queue_ends[out[i].cell]++] = {{p[0], p[1], p[2]}, static_cast<unsigned>(i)};
    }
    with_nspace(mesh->nspace, [&](auto nspace) {
        queued_point *first = queue;
        for (qx_long block = 0; block < table->nblocks; ++block) {
            queued_point *end = queue + queue_ends[block];
            if (first != end)
                search_block<decltype(nspace)::value>(cells, mesh->coords, table, table->blocks[block], first,
                                                      end, blocks->tol, out);
            first = end;
        }
        return 1;
    });
}

void point_locator::locate(qx_long n, const float (*points)[3], located *out)
{
    switch (chosen) {
    case search_way::by_method:
        for (qx_long i = 0; i < n; ++i)
            out[i].found =
                mesh->methods->find_cell_func(mesh, table, points[i], &out[i].cell, out[i].uvw) == 1;
        return;
    case search_way::uniform: {
        const uniform_finder finder(mesh);
        for (qx_long i = 0; i < n; ++i)
            out[i].found = finder.find(points[i], &out[i].cell, out[i].uvw) == 1;
        return;
    }
    case search_way::rectilinear:
        for (qx_long i = 0; i < n; ++i)
            out[i].found = rectilinear->find(points[i], &out[i].cell, out[i].uvw) == 1;
        return;
    case search_way::sets: return locate_in_lists(set_cells{mesh}, n, points, out);
    case search_way::lattice: return locate_in_lists(lattice_cells(mesh), n, points, out);
    }
}

// ---- ahead of their use -------------------------------------------------------------------------------------

located_points::located_points(mesh_info *mesh, const blk_tbl *table, const sample_points &points_,
                               qx_long npts_)
    : locator(mesh, table, npts_), points(points_), npts(npts_)
{
}

located_points::~located_points()
{
    free(more_places);
    free(more_found);
}

// For batches of any length; without memory they stay short. Asked for once.
void located_points::make_room()
{
    const size_t most = static_cast<size_t>(std::min(npts, point_locator::longest_batch));
    has_asked = true;
    more_places = malloc(most * sizeof *places);
    more_found = malloc(most * sizeof *found);
    if (more_places == nullptr || more_found == nullptr) return;
    places = static_cast<float(*)[3]>(more_places);
    found = static_cast<located *>(more_found);
    room = static_cast<qx_long>(most);
}

void located_points::locate_from(qx_long i)
{
    const qx_long batch = locator.batch();
    if (batch > room && !has_asked && npts > room) make_room();
    const qx_long n = std::min({batch, room, npts - i});
    for (qx_long k = 0; k < n; ++k)
        points.place(i + k, places[k]);
    const qx_long worthwhile = locator.worthwhile(n, places);
    locator.locate(worthwhile, places, found);
    first = i;
    end = i + worthwhile;
}
