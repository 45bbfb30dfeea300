// Removal of null nodes and null cells: what is left of a mesh, as explicit connect lists.
//
// Null nodes are dropped and the others renumbered in order, by a map that holds -1 for a dropped node. A cell
// stays if none of its nodes is dropped, which the sign of all its map entries or'ed together tells. Null
// cells are dropped with their connect rows; node numbers then stay as they are.
//
// Connect lists start at 1000 entries and grow by 1000: where nodes are removed each step is half as long
// again as the last, where cells are removed it stays. They are handed over as long as they have grown, with
// the entries in use told apart; a list without a cell is released. An operation that fails leaves nothing
// behind, and empty outputs.

#include <skoklana/cut.h>

#include "dtype.hpp"
#include "fetch.hpp"
#include "grow.hpp"
#include "memory.hpp"
#include "report.hpp"

#define MODULE "thresh_cell"

constexpr qx_long first_connect_entries = 1000;

// ---- lists under construction -----------------------------------------------------------------------

namespace {

// Node or cell numbers, released at the end of the scope unless handed over; data is null: no memory.
struct owned_numbers {
    qx_long *data;

    explicit owned_numbers(qx_long count) : data(alloc_numbers(count > 0 ? count : 1, ALLOC_AT(MODULE))) {}
    owned_numbers(const owned_numbers &) = delete;
    owned_numbers &operator=(const owned_numbers &) = delete;
    ~owned_numbers() { release(); }

    void release()
    {
        if (data != nullptr) ARRfree_f(data, ALLOC_AT(MODULE));
        data = nullptr;
    }

    qx_long *hand_over()
    {
        qx_long *list = data;
        data = nullptr;
        return list;
    }
};

// The connect rows of the cells that stay.
struct kept_cells {
    owned_numbers connect{first_connect_entries};
    qx_long used = 0, capacity = first_connect_entries, step = first_connect_entries;
    qx_long ncells = 0;
    bool raise_step;

    explicit kept_cells(bool raise) : raise_step(raise) {}

    // Where the next row of nnodes entries goes; null: no memory.
    qx_long *add_row(int nnodes)
    {
        if (!make_room(&connect.data, used, nnodes, {&capacity, &step, raise_step}, ALLOC_AT(MODULE)))
            return nullptr;
        qx_long *row = connect.data + used;
        used += nnodes;
        ++ncells;
        return row;
    }

    void hand_over(qx_long *ncells_out, qx_long **conn, qx_long *conn_size)
    {
        if (ncells == 0) connect.release();
        *ncells_out = ncells;
        *conn = connect.hand_over();
        *conn_size = used;
    }
};

} // namespace

// ---- structured cells ----------------------------------------------------------------------------------

namespace {

// The corners of a structured cell as offsets from its lowest node. Lines and quadrilaterals are numbered as
// UTILget_connect_struct does; hexahedra go along the second axis first.
struct removal_corners {
    int count;
    qx_long offset[8];
};

} // namespace

static removal_corners removal_corners_of(int ndim, const qx_long *dims)
{
    if (ndim == 1) return {2, {0, 1}};
    const qx_long row = dims[0];
    if (ndim == 2) return {4, {0, 1, 1 + row, row}};
    const qx_long plane = dims[0] * dims[1];
    return {8, {0, row, row + 1, 1, plane, plane + row, plane + row + 1, plane + 1}};
}

// Calls visit with the lowest node of each cell, in order, till it returns false; whether it never did.
template <typename Visit> static bool visit_lattice_cells(int ndim, const qx_long *dims, Visit visit)
{
    const qx_long ni = dims[0], nj = ndim > 1 ? dims[1] : 2, nk = ndim > 2 ? dims[2] : 2;
    for (qx_long k = 0; k < nk - 1; ++k)
        for (qx_long j = 0; j < nj - 1; ++j)
            for (qx_long i = 0; i < ni - 1; ++i)
                if (!visit((k * nj + j) * ni + i)) return false;
    return true;
}

static qx_long count_lattice_cells(int ndim, const qx_long *dims)
{
    qx_long ncells = 1;
    for (int d = 0; d < ndim; ++d)
        ncells *= dims[d] > 1 ? dims[d] - 1 : 0;
    return ncells;
}

// ---- null nodes --------------------------------------------------------------------------------------------

static bool is_dtype(int code)
{
    return with_dtype_silent(code, [](auto) -> int { return 1; }) != 0;
}

// The cells of a set that have lost no node, in new node numbers, and their numbers within the set.
static bool keep_cells_of_kept_nodes(const mesh_info *mesh, int set, const qx_long *map, kept_cells *kept,
                                     qx_long *cell_numbers)
{
    const int nnodes = mesh->cell_nnodes[set];
    const qx_long *nodes = mesh->cell_connect[set];
    for (qx_long cell = 0; cell < mesh->cell_count[set]; ++cell, nodes += nnodes) {
        qx_long any = 0;
        for (int n = 0; n < nnodes; ++n)
            any |= map[nodes[n]];
        if (any < 0) continue;
        cell_numbers[kept->ncells] = cell;
        qx_long *row = kept->add_row(nnodes);
        if (row == nullptr) return false;
        for (int n = 0; n < nnodes; ++n)
            row[n] = map[nodes[n]];
    }
    return true;
}

static bool keep_lattice_cells_of_kept_nodes(int ndim, const qx_long *dims, const qx_long *map,
                                             kept_cells *kept)
{
    const removal_corners corners = removal_corners_of(ndim, dims);
    return visit_lattice_cells(ndim, dims, [&](qx_long lowest) {
        qx_long any = 0;
        for (int c = 0; c < corners.count; ++c)
            any |= map[lowest + corners.offset[c]];
        if (any < 0) return true;
        qx_long *row = kept->add_row(corners.count);
        if (row == nullptr) return false;
        for (int c = 0; c < corners.count; ++c)
            row[c] = map[lowest + corners.offset[c]];
        return true;
    });
}

// The kept nodes in order, by their map.
static void list_kept_nodes(const qx_long *map, qx_long nkept, qx_long *node_list)
{
    for (qx_long node = 0, listed = 0; listed < nkept; ++node) {
        node_list[listed] = node; // stays if the node is kept
        listed += map[node] >= 0;
    }
}

// ---- null cells --------------------------------------------------------------------------------------------

// A map of ncells cells by the null test, in borrowed memory; null after a report.
static qx_long *map_kept_cells(qx_long ncells, const void *data, int data_type, const void *null_value,
                               const char *no_memory, scratch *borrowed)
{
    qx_long *map = borrowed->borrow<qx_long>(ncells);
    if (map == nullptr) {
        print_error("%s", no_memory);
        return nullptr;
    }
    UTILnode_thresh_null(ncells, data_type, data, null_value, map);
    return is_dtype(data_type) ? map : nullptr;
}

static bool keep_listed_cells(const mesh_info *mesh, int set, const qx_long *map, kept_cells *kept)
{
    const int nnodes = mesh->cell_nnodes[set];
    const qx_long *nodes = mesh->cell_connect[set];
    for (qx_long cell = 0; cell < mesh->cell_count[set]; ++cell, nodes += nnodes) {
        if (map[cell] < 0) continue;
        qx_long *row = kept->add_row(nnodes);
        if (row == nullptr) return false;
        memcpy(row, nodes, static_cast<size_t>(nnodes) * sizeof *row);
    }
    return true;
}

static bool keep_listed_lattice_cells(int ndim, const qx_long *dims, const qx_long *map, kept_cells *kept)
{
    const removal_corners corners = removal_corners_of(ndim, dims);
    return visit_lattice_cells(ndim, dims, [&](qx_long lowest) {
        if (*map++ < 0) return true;
        qx_long *row = kept->add_row(corners.count);
        if (row == nullptr) return false;
        for (int c = 0; c < corners.count; ++c)
            row[c] = lowest + corners.offset[c];
        return true;
    });
}

static int remove_null_cells_of_set(mesh_info *mesh, int set, const void *data, int data_type,
                                    const void *null_value, qx_long *ncells, qx_long **conn,
                                    qx_long *conn_size)
{
    scratch borrowed;
    const qx_long *map =
        map_kept_cells(mesh->cell_count[set], data, data_type, null_value,
                       "UTILthresh_null_cells_from_cells: cannot allocate cell indx array\n", &borrowed);
    if (map == nullptr || !fetch_connect(mesh, set)) return 0;

    kept_cells kept(false);
    if (kept.connect.data == nullptr || !keep_listed_cells(mesh, set, map, &kept)) {
        print_error("UTILcells_from_clist: realloc for connect list failed\n");
        return 0;
    }
    kept.hand_over(ncells, conn, conn_size);
    return 1;
}

static int remove_null_lattice_cells(mesh_info *mesh, const void *data, int data_type, const void *null_value,
                                     qx_long *ncells, qx_long **conn, qx_long *conn_size)
{
    if (mesh->ndim < 1 || mesh->ndim > 3) {
        print_error("UTILthresh_null_struct_from_cells: cannot compute connect for ndim %d\n", mesh->ndim);
        return 0;
    }
    scratch borrowed;
    const qx_long *map =
        map_kept_cells(count_lattice_cells(mesh->ndim, mesh->dims), data, data_type, null_value,
                       "UTILthresh_null_struct_from_cells: cannot allocate cell indx array\n", &borrowed);
    if (map == nullptr) return 0;

    kept_cells kept(false);
    if (kept.connect.data == nullptr || !keep_listed_lattice_cells(mesh->ndim, mesh->dims, map, &kept)) {
        print_error("UTILthresh_null_struct_from_cells: realloc for connect list failed\n");
        return 0;
    }
    kept.hand_over(ncells, conn, conn_size);
    return 1;
}

// ---- exported ----------------------------------------------------------------------------------------------

extern "C" {

int UTILcells_from_nlist(mesh_info *mesh, int set, qx_long, const qx_long *map, qx_long **cell_numbers,
                         qx_long *ncells, qx_long **conn, qx_long *conn_size)
{
    *cell_numbers = *conn = nullptr;
    *ncells = *conn_size = 0;
    if (!fetch_connect(mesh, set)) return 0;

    kept_cells kept(true);
    owned_numbers cells(mesh->cell_count[set]);
    if (kept.connect.data == nullptr || cells.data == nullptr ||
        !keep_cells_of_kept_nodes(mesh, set, map, &kept, cells.data)) {
        print_error("UTILcells_from_nlist: realloc for connect list failed\n");
        return 0;
    }
    if (kept.ncells > 0) *cell_numbers = cells.hand_over();
    kept.hand_over(ncells, conn, conn_size);
    return 1;
}

int UTILthresh_null_cells(mesh_info *mesh, const void *data, int data_type, const void *null_value,
                          qx_long *nkept, qx_long **map, qx_long **cell_numbers, qx_long *ncells,
                          qx_long **conn, qx_long *conn_size)
{
    *nkept = 0;
    *map = nullptr;
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        cell_numbers[set] = conn[set] = nullptr;
        ncells[set] = conn_size[set] = 0;
    }

    owned_numbers new_node(mesh->nnodes);
    if (new_node.data == nullptr) {
        print_error("UTILthresh_null_cells: cannot allocate node indx array\n");
        return 0;
    }
    const qx_long kept = UTILnode_thresh_null(mesh->nnodes, data_type, data, null_value, new_node.data);
    if (!is_dtype(data_type)) return 0;

    for (int set = 0; set < mesh->ncell_sets; ++set) {
        if (UTILcells_from_nlist(mesh, set, kept, new_node.data, &cell_numbers[set], &ncells[set], &conn[set],
                                 &conn_size[set]) != 0)
            continue;
        for (int done = 0; done < set; ++done) {
            release_numbers(&cell_numbers[done], ALLOC_AT(MODULE));
            release_numbers(&conn[done], ALLOC_AT(MODULE));
            ncells[done] = conn_size[done] = 0;
        }
        return 0;
    }
    *nkept = kept;
    *map = new_node.hand_over();
    return 1;
}

int UTILthresh_null_struct(mesh_info *mesh, const void *data, int data_type, const void *null_value,
                           qx_long *nkept, qx_long **node_list, qx_long **conn, qx_long *ncells,
                           qx_long *conn_size)
{
    *node_list = *conn = nullptr;
    *nkept = *ncells = *conn_size = 0;
    if (!is_dtype(data_type)) {
        report_error("UTILthresh_null_struct", "unknown data type");
        return 0;
    }
    if (mesh->ndim < 1 || mesh->ndim > 3) {
        print_error("UTILthresh_null_struct: cannot compute connect for ndim %d\n", mesh->ndim);
        return 0;
    }

    scratch borrowed;
    qx_long *map = borrowed.borrow<qx_long>(mesh->nnodes);
    const qx_long kept =
        map != nullptr ? UTILnode_thresh_null(mesh->nnodes, data_type, data, null_value, map) : 0;
    owned_numbers nodes(kept);
    if (map == nullptr || nodes.data == nullptr) {
        print_error("UTILthresh_null_struct: cannot allocate node indx array\n");
        return 0;
    }
    list_kept_nodes(map, kept, nodes.data);

    kept_cells cells(true);
    if (cells.connect.data == nullptr ||
        !keep_lattice_cells_of_kept_nodes(mesh->ndim, mesh->dims, map, &cells)) {
        print_error("UTILthresh_null_struct: realloc for connect list failed\n");
        return 0;
    }
    *nkept = kept;
    if (kept > 0) *node_list = nodes.hand_over();
    cells.hand_over(ncells, conn, conn_size);
    return 1;
}

int UTILthresh_null_from_cells(mesh_info *mesh, int set, const void *data, int data_type,
                               const void *null_value, qx_long *ncells, qx_long **conn, qx_long *conn_size)
{
    *conn = nullptr;
    *ncells = *conn_size = 0;
    if (mesh->ndim == 0)
        return remove_null_cells_of_set(mesh, set, data, data_type, null_value, ncells, conn, conn_size);
    return remove_null_lattice_cells(mesh, data, data_type, null_value, ncells, conn, conn_size);
}

} // extern "C"
