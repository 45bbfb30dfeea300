// Fields from arrays, and the mesh record of each.
//
// A field keeps pointers to the arrays that describe it and checks them once, here, where they come in:
// later calls rely on it. Counts of nodes and cells are held to max_items, so that no product of a count
// and a row length can overflow anywhere behind this file.
#include "field.hpp"

#include "report.hpp"

#include <skoklana/locate.h>
#include <skoklana_host.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// Nodes or cells of a mesh. A row of the longest kind takes 20 * 8 bytes, less than 2^8, so that every list
// has less than 2^63 bytes.
constexpr qx_long max_items = qx_long{1} << 55;

long long printed(qx_long number)
{
    return number;
}

// ---- checks: false, and host_error set, where something is wrong ---------------------------------------------

bool is_given(const char *call, const char *argument, const void *array, const char *content)
{
    return array != nullptr || host_fail("%s: %s is NULL, but it must hold %s", call, argument, content) != 0;
}

bool check_nspace(const char *call, int ndim, int nspace)
{
    if (nspace >= std::max(ndim, 1) && nspace <= 3) return true;
    if (ndim == 3)
        return host_fail("%s: nspace is %d, but with 3 axes a node has 3 coordinates", call, nspace);
    return host_fail("%s: nspace is %d, but %sa node has %d to 3 coordinates", call, nspace,
                     ndim == 2 ? "with 2 axes " : "", std::max(ndim, 1));
}

// Counts the nodes of a lattice.
bool check_lattice(const char *call, int ndim, const qx_long *dims, int nspace, qx_long *nnodes)
{
    if (ndim < 1 || ndim > 3)
        return host_fail("%s: ndim is %d, but a structured mesh has 1 to 3 axes", call, ndim);
    if (!is_given(call, "dims", dims, "the nodes along each axis")) return false;
    *nnodes = 1;
    for (int d = 0; d < ndim; ++d) {
        if (dims[d] < 1)
            return host_fail("%s: dims[%d] is %lld, but an axis has at least 1 node", call, d,
                             printed(dims[d]));
        if (__builtin_mul_overflow(*nnodes, dims[d], nnodes) || *nnodes > max_items)
            return host_fail(
                "%s: dims[%d] is %lld, which makes more nodes than the %lld that a mesh may have", call, d,
                printed(dims[d]), printed(max_items));
    }
    return check_nspace(call, ndim, nspace);
}

bool check_corners(int nspace, const float *corners)
{
    if (!is_given("host_uniform", "corners", corners, "the first node and the last")) return false;
    for (int i = 0; i < 2 * nspace; ++i)
        if (!std::isfinite(corners[i]))
            return host_fail("host_uniform: corners[%d] is %g, but corners are finite", i,
                             static_cast<double>(corners[i]));
    return true;
}

// Corners near both ends of what a float can hold are further apart than that.
bool check_length(const host_field *field)
{
    for (int d = 0; d < field->nspace; ++d)
        if (!std::isfinite(axis_coordinate(field, d, field->dims[d] - 1)))
            return host_fail(
                "host_uniform: corners[%d] is %g and corners[%d] is %g, but the distance between "
                "corners is finite too",
                d, static_cast<double>(field->corners[d]), field->nspace + d,
                static_cast<double>(field->corners[field->nspace + d]));
    return true;
}

bool check_axes(int ndim, const qx_long *dims, int nspace, const float *const *axes)
{
    if (!is_given("host_rectilinear", "axes", axes, "the coordinates of each axis")) return false;
    for (int d = 0; d < nspace; ++d) {
        const qx_long count = d < ndim ? dims[d] : 1;
        if (axes[d] == nullptr && d < ndim)
            return host_fail("host_rectilinear: axes[%d] is NULL, but it must hold %lld coordinates", d,
                             printed(count));
        for (qx_long i = 0; axes[d] != nullptr && i < count; ++i)
            if (!std::isfinite(axes[d][i]))
                return host_fail("host_rectilinear: axes[%d][%lld] is %g, but coordinates of axes are finite",
                                 d, printed(i), static_cast<double>(axes[d][i]));
    }
    return true;
}

bool check_connect(qx_long nnodes, int row, qx_long ncells, const qx_long *connect)
{
    if (ncells > 0 && !is_given("host_add_cells", "connect", connect, "the node numbers of each cell"))
        return false;
    const auto outside = [=](qx_long i) {
        return static_cast<uint64_t>(connect[i]) >= static_cast<uint64_t>(nnodes);
    };
    const qx_long length = ncells * row;
    bool wrong = false;
    for (qx_long i = 0; i < length; ++i) // without a way out, so that it is as fast as memory is
        wrong |= outside(i);
    if (!wrong) return true;
    qx_long first = 0;
    while (!outside(first))
        ++first;
    if (nnodes == 0)
        return host_fail("host_add_cells: the set has %lld cells, but the field has no nodes",
                         printed(ncells));
    return host_fail("host_add_cells: cell %lld names node %lld, but the field has nodes 0 to %lld",
                     printed(first / row), printed(connect[first]), printed(nnodes - 1));
}

// ---- extents -------------------------------------------------------------------------------------------------

struct extent {
    float min = std::numeric_limits<float>::infinity(), max = -std::numeric_limits<float>::infinity();

    // NaN fails both tests.
    void add(float x)
    {
        min = x < min ? x : min;
        max = x > max ? x : max;
    }
};

void find_extents(const host_field *field, float *min, float *max)
{
    extent axis[3];
    if (field->kind == KIND_CELLS || field->kind == KIND_STRUCT) {
        for (qx_long node = 0; node < field->nnodes; ++node)
            for (int d = 0; d < field->nspace; ++d)
                axis[d].add(field->coords[node * field->nspace + d]);
    } else {
        for (int d = 0; d < field->nspace; ++d) {
            // Coordinates of an evenly spaced axis rise or fall along all of it.
            const qx_long stride = field->kind == KIND_UNIF ? std::max<qx_long>(field->dims[d] - 1, 1) : 1;
            for (qx_long i = 0; i < field->dims[d]; i += stride)
                axis[d].add(axis_coordinate(field, d, i));
        }
    }
    for (int d = 0; d < 3; ++d) {
        const bool known = axis[d].min <= axis[d].max;
        min[d] = known ? axis[d].min : 0;
        max[d] = known ? axis[d].max : 0;
    }
}

// ---- the mesh record -----------------------------------------------------------------------------------------

void free_set_arrays(mesh_info *mesh)
{
    free(mesh->cell_first);
    free(mesh->cell_count);
    free(mesh->cell_nnodes);
    free(mesh->cell_ndim);
    free(mesh->cell_order);
    free(mesh->cell_connect);
    free(mesh->cell_aux);
    free(mesh->cell_funcs);
}

// On failure what could be had stays in the record, to be freed.
bool allocate_set_arrays(mesh_info *mesh)
{
    const qx_long n = mesh->ncell_sets;
    return (mesh->cell_first = allocate_zeroed<qx_long>(n)) != nullptr &&
           (mesh->cell_count = allocate_zeroed<qx_long>(n)) != nullptr &&
           (mesh->cell_nnodes = allocate_zeroed<int>(n)) != nullptr &&
           (mesh->cell_ndim = allocate_zeroed<int>(n)) != nullptr &&
           (mesh->cell_order = allocate_zeroed<int>(n)) != nullptr &&
           (mesh->cell_connect = allocate_zeroed<qx_long *>(n)) != nullptr &&
           (mesh->cell_aux = allocate_zeroed<float *>(n)) != nullptr &&
           (mesh->cell_funcs = allocate_zeroed<cell_func>(n * CELL_METHOD_SLOTS)) != nullptr;
}

void describe_set(mesh_info *mesh, int s, const cell_set &set)
{
    const cell_kind_nodes &nodes = cell_kinds[set.kind];
    mesh->cell_first[s] = mesh->ncells;
    mesh->cell_count[s] = set.count;
    mesh->cell_nnodes[s] = set.order == 1 ? nodes.ncorners : nodes.nnodes_2;
    mesh->cell_ndim[s] = nodes.ndim;
    mesh->cell_order[s] = set.order;
    mesh->cell_aux[s] = const_cast<float *>(nodes.position[0]); // only ever read
    bind_cell_funcs(set.kind, set.order, mesh->cell_funcs + static_cast<qx_long>(s) * CELL_METHOD_SLOTS);
    mesh->ncells += set.count;
}

bool make_mesh(host_field *field)
{
    if (!register_library()) return host_fail("host_mesh: no memory for the library's functions");
    mesh_info mesh = {};
    mesh.ncell_sets = field->nsets;
    if (!allocate_set_arrays(&mesh)) {
        free_set_arrays(&mesh);
        return host_fail("host_mesh: no memory for %d cell sets", field->nsets);
    }
    mesh.field_id = &field->id;
    mesh.ndim = field->ndim;
    mesh.dims = field->kind == KIND_CELLS ? nullptr : field->dims;
    mesh.nspace = field->nspace;
    mesh.nnodes = field->nnodes;
    find_extents(field, mesh.min_ext, mesh.max_ext);
    mesh.methods = &field->methods;
    bind_methods(field->kind, &field->methods);
    if (field->whole != nullptr) bind_search_of_whole(field);
    mesh.get_coords = fetch_coords_of_field;
    mesh.get_coords_range = fetch_coords_range_of_field;
    mesh.get_points = fetch_points_of_field;
    mesh.get_connect = fetch_connect_of_field;
    for (int s = 0; s < field->nsets; ++s)
        describe_set(&mesh, s, field->sets[s]);
    field->made = field->mesh = mesh;
    field->mesh_made = true;
    return true;
}

// ---- building ------------------------------------------------------------------------------------------------

host_field *new_field(const char *call, mesh_kind kind, int nspace, qx_long nnodes)
{
    host_field *field = allocate_zeroed<host_field>(1);
    if (field == nullptr) {
        host_fail("%s: no memory for the field", call);
        return nullptr;
    }
    field->id = {{field_tag, static_cast<uint64_t>(reinterpret_cast<uintptr_t>(field))}};
    field->kind = kind;
    field->nspace = nspace;
    field->nnodes = nnodes;
    field->dims[0] = nnodes;
    field->dims[1] = field->dims[2] = 1;
    return field;
}

host_field *new_lattice(const char *call, mesh_kind kind, int ndim, const qx_long *dims, int nspace,
                        qx_long nnodes)
{
    host_field *field = new_field(call, kind, nspace, nnodes);
    if (field == nullptr) return nullptr;
    field->ndim = ndim;
    qx_long ncells = 1;
    for (int d = 0; d < ndim; ++d) {
        field->dims[d] = dims[d];
        ncells *= dims[d] - 1;
    }
    field->lattice_set = {lattice_cell[ndim], 1, ncells, nullptr, nullptr};
    field->sets = &field->lattice_set;
    field->nsets = 1;
    return field;
}

} // namespace

bool takes_cells(const char *call, const host_field *field, qx_long ncells)
{
    if (field == nullptr) return host_fail("%s: field is NULL", call) != 0;
    if (field->kind != KIND_CELLS)
        return host_fail("%s: the field is a lattice; only fields of host_cells take cell sets", call) != 0;
    if (field->mesh_made)
        return host_fail("%s: host_mesh was called already; add all cells before", call) != 0;
    qx_long room = max_items;
    for (int s = 0; s < field->nsets; ++s)
        room -= field->sets[s].count;
    return (ncells >= 0 && ncells <= room) ||
           host_fail("%s: ncells is %lld, but the mesh has room for 0 to %lld", call, printed(ncells),
                     printed(room)) != 0;
}

bool add_set(host_field *field, const cell_set &set)
{
    if (field->nsets == field->sets_capacity) {
        const int capacity = 4 + 2 * field->sets_capacity;
        void *sets = realloc(field->sets, static_cast<size_t>(capacity) * sizeof(cell_set));
        if (sets == nullptr) return false;
        field->sets = static_cast<cell_set *>(sets);
        field->sets_capacity = capacity;
    }
    field->sets[field->nsets++] = set;
    return true;
}

extern "C" {

host_field *host_uniform(int ndim, const qx_long *dims, int nspace, const float *corners)
{
    qx_long nnodes;
    if (!check_lattice("host_uniform", ndim, dims, nspace, &nnodes) || !check_corners(nspace, corners))
        return nullptr;
    host_field *field = new_lattice("host_uniform", KIND_UNIF, ndim, dims, nspace, nnodes);
    if (field == nullptr) return nullptr;
    field->corners = corners;
    for (int d = 0; d < ndim; ++d)
        field->step[d] = uniform_step(corners[d], corners[nspace + d], dims[d]);
    if (check_length(field)) return field;
    host_free_field(field);
    return nullptr;
}

host_field *host_rectilinear(int ndim, const qx_long *dims, int nspace, const float *const *axes)
{
    qx_long nnodes;
    if (!check_lattice("host_rectilinear", ndim, dims, nspace, &nnodes) ||
        !check_axes(ndim, dims, nspace, axes))
        return nullptr;
    host_field *field = new_lattice("host_rectilinear", KIND_RECT, ndim, dims, nspace, nnodes);
    for (int d = 0; field != nullptr && d < nspace; ++d)
        field->axes[d] = axes[d];
    return field;
}

host_field *host_curvilinear(int ndim, const qx_long *dims, int nspace, const float *coords)
{
    qx_long nnodes;
    if (!check_lattice("host_curvilinear", ndim, dims, nspace, &nnodes) ||
        !is_given("host_curvilinear", "coords", coords, "the coordinates of each node"))
        return nullptr;
    host_field *field = new_lattice("host_curvilinear", KIND_STRUCT, ndim, dims, nspace, nnodes);
    if (field != nullptr) field->coords = coords;
    return field;
}

host_field *host_cells(qx_long nnodes, int nspace, const float *coords)
{
    if (nnodes < 0 || nnodes > max_items) {
        host_fail("host_cells: nnodes is %lld, but a mesh has 0 to %lld nodes", printed(nnodes),
                  printed(max_items));
        return nullptr;
    }
    if (!check_nspace("host_cells", 0, nspace) ||
        (nnodes > 0 && !is_given("host_cells", "coords", coords, "the coordinates of each node")))
        return nullptr;
    host_field *field = new_field("host_cells", KIND_CELLS, nspace, nnodes);
    if (field != nullptr) field->coords = coords;
    return field;
}

int host_add_cells(host_field *field, int kind, int order, qx_long ncells, const qx_long *connect)
{
    if (!takes_cells("host_add_cells", field, ncells)) return 0;
    if (kind < 0 || kind >= CELL_KINDS)
        return host_fail("host_add_cells: kind is %d, but kinds run from CELL_LINE (%d) to CELL_HEX (%d)",
                         kind, CELL_LINE, CELL_HEX);
    if (order != 1 && order != 2)
        return host_fail("host_add_cells: order is %d, but cells are of order 1 or 2", order);
    const cell_kind_nodes &nodes = cell_kinds[kind];
    if (nodes.ndim > field->nspace)
        return host_fail("host_add_cells: a %s needs %d coordinates a node, but the field has %d",
                         cell_kind_names[kind], nodes.ndim, field->nspace);
    if (!check_connect(field->nnodes, order == 1 ? nodes.ncorners : nodes.nnodes_2, ncells, connect))
        return 0;
    if (!add_set(field, {kind, order, ncells, connect, nullptr}))
        return host_fail("host_add_cells: no memory for the cell set");
    return 1;
}

mesh_info *host_mesh(host_field *field)
{
    if (field == nullptr) {
        host_fail("host_mesh: field is NULL");
        return nullptr;
    }
    return field->mesh_made || make_mesh(field) ? &field->mesh : nullptr;
}

void host_free_field(host_field *field)
{
    if (field == nullptr) return;
    free_set_arrays(&field->made);
    free(field->made_points);
    free(field->made_coords);
    free(field->made_connect);
    free(field->own_axes);
    host_free_field(field->whole);
    for (int s = 0; s < field->nsets; ++s)
        free(field->sets[s].owned);
    if (field->kind == KIND_CELLS) free(field->sets);
    free(field);
}

void host_free_table(blk_tbl *table)
{
    if (table == nullptr) return;
    if (table->owns_lists != 0) {
        free(table->blocks);
        free(table->cell_list);
        free(table->next_list);
    }
    free(table);
}

} // extern "C"
