// Fields from arrays, and the mesh record of each.
//
// A field keeps pointers to the arrays that describe it and checks them once, where they come in. What the
// library may ask for but the arrays do not hold as such (coordinates of compact meshes, points of
// rectilinear ones, connect lists of lattices) is made when it is first fetched, and kept.
//
// All sizes are products of numbers up to max_items and a few small factors, so that testing counts
// against max_items is the only overflow check needed.
#include "bind.hpp"
#include "report.hpp"

#include <skoklana/host/fld.h>
#include <skoklana/locate.h>
#include <skoklana_host.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

// Nodes or cells of a mesh. A row of the longest kind takes 20 * 8 bytes, less than 2^8, so that every list
// has less than 2^63 bytes.
constexpr qx_long max_items = qx_long{1} << 55;

constexpr uint64_t field_tag = 0x646c656966; // tells ids of fields from those of settings

struct cell_set {
    int kind, order;
    qx_long count;
    const qx_long *connect; // borrowed
};

// Handed out where a list has no entries, so that a fetched list is never NULL.
const float no_coords[1] = {0};
const qx_long no_connect[1] = {0};

} // namespace

struct host_field {
    OMobj_id id;
    mesh_kind kind;
    int ndim; // 0: cell sets
    int nspace;
    qx_long dims[3]; // 1 from ndim on
    qx_long nnodes;

    // borrowed; those that the kind has not are NULL
    const float *corners;
    const float *axes[3]; // an axis may be NULL: constant 0
    const float *coords;

    float step[3];  // uniform
    cell_set *sets; // nsets entries
    int nsets, sets_capacity;

    // made when first fetched
    float *made_points;
    float *made_coords;
    qx_long *made_connect;

    bool mesh_made;
    mesh_methods methods;
    mesh_info made; // as it was filled; owns its per-set arrays
    mesh_info mesh; // as it is in use
};

namespace {

template <typename T> T *allocate(qx_long count)
{
    return static_cast<T *>(malloc(static_cast<size_t>(std::max<qx_long>(count, 1)) * sizeof(T)));
}

template <typename T> T *allocate_zeroed(qx_long count)
{
    return static_cast<T *>(calloc(static_cast<size_t>(std::max<qx_long>(count, 1)), sizeof(T)));
}

int out_of_memory(const char *call)
{
    return host_fail("%s: out of memory", call);
}

host_field *field_of(OMobj_id id)
{
    return id.word[0] == field_tag ? reinterpret_cast<host_field *>(static_cast<uintptr_t>(id.word[1]))
                                   : nullptr;
}

bool is_cell_sets(const host_field *field)
{
    return field->kind == KIND_CELLS;
}

// ---- lattices ------------------------------------------------------------------------------------------------

// The kind of a structured cell, by ndim.
const int lattice_cell[4] = {-1, CELL_LINE, CELL_QUAD, CELL_HEX};

qx_long lattice_cells(const host_field *field)
{
    qx_long cells = 1;
    for (int d = 0; d < field->ndim; ++d)
        cells *= field->dims[d] - 1;
    return cells;
}

// Positions on the axes of compact meshes; in float, rounded at each step.
float axis_coordinate(const host_field *field, int d, qx_long position)
{
    if (field->kind == KIND_RECT) return field->axes[d] != nullptr ? field->axes[d][position] : 0.0f;
    return static_cast<float>(position) * field->step[d] + field->corners[d];
}

// The coordinates of the box of nodes from lo to hi, both included, axis 0 fastest.
void copy_range(const host_field *field, const qx_long lo[3], const qx_long hi[3], float *out)
{
    const int nspace = field->nspace;
    for (qx_long k = lo[2]; k <= hi[2]; ++k) {
        for (qx_long j = lo[1]; j <= hi[1]; ++j) {
            if (field->coords != nullptr) {
                const qx_long first = lo[0] + field->dims[0] * (j + field->dims[1] * k);
                const qx_long count = (hi[0] - lo[0] + 1) * nspace;
                memcpy(out, field->coords + first * nspace, static_cast<size_t>(count) * sizeof(float));
                out += count;
                continue;
            }
            const float row[3] = {0, nspace > 1 ? axis_coordinate(field, 1, j) : 0,
                                  nspace > 2 ? axis_coordinate(field, 2, k) : 0};
            for (qx_long i = lo[0]; i <= hi[0]; ++i) {
                *out++ = axis_coordinate(field, 0, i);
                for (int d = 1; d < nspace; ++d)
                    *out++ = row[d];
            }
        }
    }
}

// ---- extents -------------------------------------------------------------------------------------------------

struct extent {
    float min = std::numeric_limits<float>::infinity(), max = -std::numeric_limits<float>::infinity();

    // NaN fails both tests.
    void add(float x)
    {
        if (x < min) min = x;
        if (x > max) max = x;
    }
};

void find_extents(const host_field *field, float *min, float *max)
{
    extent axis[3];
    if (field->kind == KIND_UNIF) {
        // Coordinates rise or fall along the whole axis.
        for (int d = 0; d < field->nspace; ++d) {
            axis[d].add(axis_coordinate(field, d, 0));
            axis[d].add(axis_coordinate(field, d, field->dims[d] - 1));
        }
    } else if (field->kind == KIND_RECT) {
        for (int d = 0; d < field->nspace; ++d)
            for (qx_long i = 0; i < field->dims[d]; ++i)
                axis[d].add(axis_coordinate(field, d, i));
    } else {
        for (qx_long node = 0; node < field->nnodes; ++node)
            for (int d = 0; d < field->nspace; ++d)
                axis[d].add(field->coords[node * field->nspace + d]);
    }
    for (int d = 0; d < 3; ++d) {
        const bool known = axis[d].min <= axis[d].max;
        min[d] = known ? axis[d].min : 0;
        max[d] = known ? axis[d].max : 0;
    }
}

// ---- checks --------------------------------------------------------------------------------------------------

bool check_nspace(const char *call, int ndim, int nspace)
{
    if (nspace >= std::max(ndim, 1) && nspace <= 3) return true;
    if (ndim == 0) return host_fail("%s: nspace is %d, but a node has 1 to 3 coordinates", call, nspace);
    return host_fail("%s: nspace is %d, but the nodes of a mesh with %d axes have %d to 3 coordinates", call,
                     nspace, ndim, ndim);
}

// Counts the nodes of a lattice.
bool check_lattice(const char *call, int ndim, const qx_long *dims, int nspace, qx_long *nnodes)
{
    if (ndim < 1 || ndim > 3)
        return host_fail("%s: ndim is %d, but a structured mesh has 1 to 3 axes", call, ndim);
    if (dims == nullptr) return host_fail("%s: dims is NULL; it must give the nodes along each axis", call);
    *nnodes = 1;
    for (int d = 0; d < ndim; ++d) {
        if (dims[d] < 1)
            return host_fail("%s: dims[%d] is %lld, but an axis has at least 1 node", call, d,
                             static_cast<long long>(dims[d]));
        if (__builtin_mul_overflow(*nnodes, dims[d], nnodes) || *nnodes > max_items)
            return host_fail("%s: dims[%d] of %lld makes more than the %lld nodes that a mesh may have", call,
                             d, static_cast<long long>(dims[d]), static_cast<long long>(max_items));
    }
    return check_nspace(call, ndim, nspace);
}

// ---- fetch functions -----------------------------------------------------------------------------------------

float *coords_of(host_field *field)
{
    if (field->coords != nullptr) return const_cast<float *>(field->coords);
    if (field->made_coords == nullptr) {
        field->made_coords = allocate<float>(field->nnodes * field->nspace);
        if (field->made_coords == nullptr) {
            out_of_memory("coordinates of a field");
            return nullptr;
        }
        const qx_long lo[3] = {0, 0, 0};
        const qx_long hi[3] = {field->dims[0] - 1, field->dims[1] - 1, field->dims[2] - 1};
        copy_range(field, lo, hi, field->made_coords);
    }
    return field->made_coords;
}

// A row of nspace for each position of each axis. Only the axis's own coordinate and the constant ones are
// ever read; the others are 0.
bool make_rectilinear_points(host_field *field)
{
    qx_long rows = 0;
    for (int d = 0; d < field->ndim; ++d)
        rows += field->dims[d];
    float *points = allocate_zeroed<float>(rows * field->nspace);
    if (points == nullptr) return out_of_memory("points of a field");
    field->made_points = points;
    for (int axis = 0; axis < field->ndim; ++axis) {
        for (qx_long i = 0; i < field->dims[axis]; ++i, points += field->nspace) {
            points[axis] = axis_coordinate(field, axis, i);
            for (int d = field->ndim; d < field->nspace; ++d)
                points[d] = axis_coordinate(field, d, 0);
        }
    }
    return true;
}

float *points_of(host_field *field)
{
    if (field->kind == KIND_UNIF) return const_cast<float *>(field->corners);
    if (field->kind != KIND_RECT) {
        host_fail("points of a field: only uniform and rectilinear meshes have them");
        return nullptr;
    }
    if (field->made_points == nullptr && !make_rectilinear_points(field)) return nullptr;
    return field->made_points;
}

qx_long *lattice_connect(host_field *field)
{
    if (field->made_connect == nullptr) {
        const qx_long cells = lattice_cells(field);
        field->made_connect = allocate<qx_long>(cells * cell_kinds[lattice_cell[field->ndim]].ncorners);
        if (field->made_connect == nullptr)
            out_of_memory("connect list of a field");
        else
            get_connect_struct(field->ndim, field->dims, 0, cells, field->made_connect);
    }
    return field->made_connect;
}

int fetch_field_coords(mesh_info *mesh, float **coords)
{
    float *found = coords_of(field_of(*mesh->field_id));
    if (found == nullptr) return 0;
    *coords = found;
    return 1;
}

int fetch_field_coords_range(mesh_info *mesh, const qx_long *lo, const qx_long *hi, float *coords)
{
    const host_field *field = field_of(*mesh->field_id);
    // Cell sets have one axis: the nodes.
    const int naxes = is_cell_sets(field) ? 1 : field->ndim;
    qx_long from[3] = {0, 0, 0}, to[3] = {0, 0, 0};
    for (int d = 0; d < naxes; ++d) {
        from[d] = lo[d];
        to[d] = hi[d];
        if (lo[d] < 0 || hi[d] < lo[d] || hi[d] >= field->dims[d])
            return host_fail("coordinates of a field: nodes %lld to %lld of axis %d, which has %lld",
                             static_cast<long long>(lo[d]), static_cast<long long>(hi[d]), d,
                             static_cast<long long>(field->dims[d]));
    }
    copy_range(field, from, to, coords);
    return 1;
}

int fetch_field_points(mesh_info *mesh, float **points)
{
    float *found = points_of(field_of(*mesh->field_id));
    if (found == nullptr) return 0;
    *points = found;
    return 1;
}

int fetch_field_connect(mesh_info *mesh, int set, qx_long **connect)
{
    host_field *field = field_of(*mesh->field_id);
    if (set < 0 || set >= field->made.ncell_sets)
        return host_fail("connect list of a field: there is no cell set %d", set);
    qx_long *found =
        is_cell_sets(field) ? const_cast<qx_long *>(field->sets[set].connect) : lattice_connect(field);
    if (found == nullptr) return 0;
    *connect = found;
    return 1;
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

bool allocate_set_arrays(mesh_info *mesh)
{
    const qx_long n = mesh->ncell_sets;
    mesh->cell_first = allocate_zeroed<qx_long>(n);
    mesh->cell_count = allocate_zeroed<qx_long>(n);
    mesh->cell_nnodes = allocate_zeroed<int>(n);
    mesh->cell_ndim = allocate_zeroed<int>(n);
    mesh->cell_order = allocate_zeroed<int>(n);
    mesh->cell_connect = allocate_zeroed<qx_long *>(n);
    mesh->cell_aux = allocate_zeroed<float *>(n);
    mesh->cell_funcs = allocate_zeroed<cell_func>(n * CELL_METHOD_SLOTS);
    return mesh->cell_first != nullptr && mesh->cell_count != nullptr && mesh->cell_nnodes != nullptr &&
           mesh->cell_ndim != nullptr && mesh->cell_order != nullptr && mesh->cell_connect != nullptr &&
           mesh->cell_aux != nullptr && mesh->cell_funcs != nullptr;
}

void describe_set(mesh_info *mesh, int s, const cell_set &set)
{
    const cell_kind_nodes &nodes = cell_kinds[set.kind];
    mesh->cell_first[s] = mesh->ncells;
    mesh->cell_count[s] = set.count;
    mesh->cell_nnodes[s] = set.order == 1 ? nodes.ncorners : nodes.nnodes_2;
    mesh->cell_ndim[s] = nodes.ndim;
    mesh->cell_order[s] = set.order;
    mesh->cell_aux[s] = const_cast<float *>(nodes.position[0]); // operations only read it
    bind_cell_funcs(set.kind, set.order, mesh->cell_funcs + static_cast<qx_long>(s) * CELL_METHOD_SLOTS);
    mesh->ncells += set.count;
}

bool make_mesh(host_field *field)
{
    if (!register_library()) return out_of_memory("host_mesh");
    mesh_info *mesh = &field->made;
    mesh->field_id = &field->id;
    mesh->ndim = field->ndim;
    mesh->dims = is_cell_sets(field) ? nullptr : field->dims;
    mesh->nspace = field->nspace;
    mesh->nnodes = field->nnodes;
    find_extents(field, mesh->min_ext, mesh->max_ext);
    mesh->methods = &field->methods;
    bind_methods(field->kind, &field->methods);
    mesh->get_coords = fetch_field_coords;
    mesh->get_coords_range = fetch_field_coords_range;
    mesh->get_points = fetch_field_points;
    mesh->get_connect = fetch_field_connect;
    mesh->ncell_sets = is_cell_sets(field) ? field->nsets : 1;
    mesh->ncells = 0;
    if (!allocate_set_arrays(mesh)) {
        free_set_arrays(mesh);
        return out_of_memory("host_mesh");
    }
    for (int s = 0; s < field->nsets; ++s)
        describe_set(mesh, s, field->sets[s]);
    if (!is_cell_sets(field))
        describe_set(mesh, 0, {lattice_cell[field->ndim], 1, lattice_cells(field), nullptr});
    field->mesh = field->made;
    field->mesh_made = true;
    return true;
}

// ---- building ------------------------------------------------------------------------------------------------

host_field *new_field(const char *call, mesh_kind kind, int ndim, const qx_long *dims, int nspace,
                      qx_long nnodes)
{
    host_field *field = static_cast<host_field *>(calloc(1, sizeof(host_field)));
    if (field == nullptr) {
        out_of_memory(call);
        return nullptr;
    }
    field->id = {{field_tag, static_cast<uint64_t>(reinterpret_cast<uintptr_t>(field))}};
    field->kind = kind;
    field->ndim = ndim;
    field->nspace = nspace;
    field->nnodes = nnodes;
    for (int d = 0; d < 3; ++d)
        field->dims[d] = d < ndim ? dims[d] : 1;
    return field;
}

bool check_corners(const host_field *field)
{
    for (int d = 0; d < field->nspace; ++d) {
        const float first = axis_coordinate(field, d, 0),
                    last = axis_coordinate(field, d, field->dims[d] - 1);
        if (!std::isfinite(first) || !std::isfinite(last))
            return host_fail("host_uniform: axis %d from %g to %g is longer than a float can tell", d,
                             static_cast<double>(field->corners[d]),
                             static_cast<double>(field->corners[field->nspace + d]));
    }
    return true;
}

} // namespace

extern "C" {

// ---- what the library asks for -------------------------------------------------------------------------------

int FLDget_dims(OMobj_id id, qx_long **dims, int *ndim)
{
    host_field *field = field_of(id);
    if (field == nullptr || is_cell_sets(field)) return 0;
    *dims = field->dims;
    *ndim = field->ndim;
    return 1;
}

int FLDget_points(OMobj_id id, float **points)
{
    host_field *field = field_of(id);
    float *found = field != nullptr ? points_of(field) : nullptr;
    if (found == nullptr) return 0;
    *points = found;
    return 1;
}

int FLDget_cell_type(OMobj_id id, int set, int *type)
{
    const host_field *field = field_of(id);
    if (field == nullptr) return 0;
    if (!is_cell_sets(field) && set == 0) {
        *type = 3 + lattice_cell[field->ndim];
        return 1;
    }
    if (set < 0 || set >= field->nsets) return 0;
    *type = 3 + field->sets[set].kind + (field->sets[set].order > 1 ? 10 : 0);
    return 1;
}

int get_connect_struct(int ndim, const qx_long *dims, qx_long start, qx_long end, qx_long *connect)
{
    if (ndim < 1 || ndim > 3) return 0;
    const qx_long cells_i = dims[0] - 1, cells_j = ndim > 1 ? dims[1] - 1 : 1;
    const qx_long row = ndim > 1 ? dims[0] : 0, plane = ndim > 2 ? dims[0] * dims[1] : 0;
    const qx_long offsets[8] = {0, 1, 1 + row, row, plane, plane + 1, plane + 1 + row, plane + row};
    const int ncorners = 1 << ndim;
    for (qx_long cell = start; cell < end; ++cell) {
        const qx_long cell_row = cell / cells_i;
        const qx_long k = cell_row / cells_j, j = cell_row - k * cells_j, i = cell - cell_row * cells_i;
        const qx_long lowest = ndim == 1 ? cell : i + j * row + k * plane;
        for (int corner = 0; corner < ncorners; ++corner)
            *connect++ = lowest + offsets[corner];
    }
    return 1;
}

// ---- what the program calls ----------------------------------------------------------------------------------

host_field *host_uniform(int ndim, const qx_long *dims, int nspace, const float *corners)
{
    qx_long nnodes;
    if (!check_lattice("host_uniform", ndim, dims, nspace, &nnodes)) return nullptr;
    if (corners == nullptr) {
        host_fail("host_uniform: corners is NULL; it must hold the first and the last node");
        return nullptr;
    }
    for (int i = 0; i < 2 * nspace; ++i) {
        if (!std::isfinite(corners[i])) {
            host_fail("host_uniform: corners[%d] is %g, but corners are finite", i,
                      static_cast<double>(corners[i]));
            return nullptr;
        }
    }
    host_field *field = new_field("host_uniform", KIND_UNIF, ndim, dims, nspace, nnodes);
    if (field == nullptr) return nullptr;
    field->corners = corners;
    for (int d = 0; d < ndim; ++d)
        if (dims[d] > 1)
            field->step[d] = (corners[nspace + d] - corners[d]) / static_cast<float>(dims[d] - 1);
    if (!check_corners(field)) {
        host_free_field(field);
        return nullptr;
    }
    return field;
}

host_field *host_rectilinear(int ndim, const qx_long *dims, int nspace, const float *const *axes)
{
    qx_long nnodes;
    if (!check_lattice("host_rectilinear", ndim, dims, nspace, &nnodes)) return nullptr;
    if (axes == nullptr) {
        host_fail("host_rectilinear: axes is NULL; it must hold a list of coordinates for each axis");
        return nullptr;
    }
    for (int d = 0; d < nspace; ++d) {
        if (d < ndim && axes[d] == nullptr) {
            host_fail("host_rectilinear: axes[%d] is NULL, but it must hold %lld coordinates", d,
                      static_cast<long long>(dims[d]));
            return nullptr;
        }
        for (qx_long i = 0; axes[d] != nullptr && i < (d < ndim ? dims[d] : 1); ++i) {
            if (!std::isfinite(axes[d][i])) {
                host_fail("host_rectilinear: axes[%d][%lld] is %g, but coordinates of axes are finite", d,
                          static_cast<long long>(i), static_cast<double>(axes[d][i]));
                return nullptr;
            }
        }
    }
    host_field *field = new_field("host_rectilinear", KIND_RECT, ndim, dims, nspace, nnodes);
    if (field == nullptr) return nullptr;
    for (int d = 0; d < nspace; ++d)
        field->axes[d] = axes[d];
    return field;
}

host_field *host_curvilinear(int ndim, const qx_long *dims, int nspace, const float *coords)
{
    qx_long nnodes;
    if (!check_lattice("host_curvilinear", ndim, dims, nspace, &nnodes)) return nullptr;
    if (coords == nullptr) {
        host_fail("host_curvilinear: coords is NULL, but the mesh has %lld nodes",
                  static_cast<long long>(nnodes));
        return nullptr;
    }
    host_field *field = new_field("host_curvilinear", KIND_STRUCT, ndim, dims, nspace, nnodes);
    if (field != nullptr) field->coords = coords;
    return field;
}

host_field *host_cells(qx_long nnodes, int nspace, const float *coords)
{
    if (nnodes < 0 || nnodes > max_items) {
        host_fail("host_cells: nnodes is %lld, but a mesh has 0 to %lld nodes",
                  static_cast<long long>(nnodes), static_cast<long long>(max_items));
        return nullptr;
    }
    if (!check_nspace("host_cells", 0, nspace)) return nullptr;
    if (coords == nullptr && nnodes > 0) {
        host_fail("host_cells: coords is NULL, but the mesh has %lld nodes", static_cast<long long>(nnodes));
        return nullptr;
    }
    host_field *field = new_field("host_cells", KIND_CELLS, 0, nullptr, nspace, nnodes);
    if (field == nullptr) return nullptr;
    field->dims[0] = nnodes; // as a range of nodes
    field->coords = coords != nullptr ? coords : no_coords;
    return field;
}

int host_add_cells(host_field *field, int kind, int order, qx_long ncells, const qx_long *connect)
{
    if (field == nullptr) return host_fail("host_add_cells: field is NULL");
    if (!is_cell_sets(field))
        return host_fail(
            "host_add_cells: the field has a lattice of cells; only fields of host_cells take sets");
    if (field->mesh_made) return host_fail("host_add_cells: the field's mesh was asked for already");
    if (kind < 0 || kind >= CELL_KINDS)
        return host_fail("host_add_cells: kind is %d, but kinds are CELL_LINE (%d) to CELL_HEX (%d)", kind,
                         CELL_LINE, CELL_HEX);
    if (order != 1 && order != 2)
        return host_fail("host_add_cells: order is %d, but cells have order 1 or 2", order);
    const cell_kind_nodes &nodes = cell_kinds[kind];
    if (nodes.ndim > field->nspace)
        return host_fail("host_add_cells: a %s has %d dimensions, but the field's nodes have %d coordinates",
                         cell_kind_names[kind], nodes.ndim, field->nspace);
    qx_long already = 0;
    for (int s = 0; s < field->nsets; ++s)
        already += field->sets[s].count;
    if (ncells < 0 || ncells > max_items - already)
        return host_fail("host_add_cells: ncells is %lld, but the mesh may have 0 to %lld more",
                         static_cast<long long>(ncells), static_cast<long long>(max_items - already));
    if (connect == nullptr && ncells > 0)
        return host_fail("host_add_cells: connect is NULL, but the set has %lld cells",
                         static_cast<long long>(ncells));
    const int nnodes = order == 1 ? nodes.ncorners : nodes.nnodes_2;
    for (qx_long i = 0; i < ncells * nnodes; ++i)
        if (static_cast<uint64_t>(connect[i]) >= static_cast<uint64_t>(field->nnodes))
            return host_fail(
                "host_add_cells: cell %lld names node %lld, but the field has %lld nodes, from 0 on",
                static_cast<long long>(i / nnodes), static_cast<long long>(connect[i]),
                static_cast<long long>(field->nnodes));
    if (field->nsets == field->sets_capacity) {
        const int capacity = 2 * field->sets_capacity + 4;
        void *sets = realloc(field->sets, static_cast<size_t>(capacity) * sizeof(cell_set));
        if (sets == nullptr) return out_of_memory("host_add_cells");
        field->sets = static_cast<cell_set *>(sets);
        field->sets_capacity = capacity;
    }
    field->sets[field->nsets++] = {kind, order, ncells, connect != nullptr ? connect : no_connect};
    return 1;
}

mesh_info *host_mesh(host_field *field)
{
    if (field == nullptr) {
        host_fail("host_mesh: field is NULL");
        return nullptr;
    }
    if (!field->mesh_made && !make_mesh(field)) return nullptr;
    return &field->mesh;
}

void host_free_field(host_field *field)
{
    if (field == nullptr) return;
    if (field->mesh_made) free_set_arrays(&field->made);
    free(field->made_points);
    free(field->made_coords);
    free(field->made_connect);
    free(field->sets);
    free(field);
}

void host_free_table(blk_tbl *table)
{
    if (table == nullptr) return;
    free(table->blocks);
    free(table->cell_list);
    free(table->next_list);
    free(table);
}

} // extern "C"
