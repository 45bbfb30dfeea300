// What the library asks of a field, by the fetch functions of its mesh record and by the FLD calls.
//
// Arrays that the program gave are handed out as they are. What they do not hold as such is made when it is
// first asked for, and kept: coordinates of compact meshes, points of rectilinear ones, connect lists of
// lattices. Most operations never ask for the large ones.
#include "field.hpp"

#include "report.hpp"

#include <skoklana/host/fld.h>

#include <cstring>

namespace {

// The library's type numbers, by kind; second-order cells have them plus second_order_types.
const int cell_types[CELL_KINDS] = {3, 4, 5, 6, 9, 8, 7};
constexpr int second_order_types = 10;

// Handed out for lists without entries, so that a list that was fetched is never NULL.
const float no_coords[1] = {0};
const qx_long no_connect[1] = {0};

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
            const float y = nspace > 1 ? axis_coordinate(field, 1, j) : 0;
            const float z = nspace > 2 ? axis_coordinate(field, 2, k) : 0;
            for (qx_long i = lo[0]; i <= hi[0]; ++i) {
                *out++ = axis_coordinate(field, 0, i);
                if (nspace > 1) *out++ = y;
                if (nspace > 2) *out++ = z;
            }
        }
    }
}

float *coords_of(host_field *field)
{
    if (field->nnodes == 0) return const_cast<float *>(no_coords);
    if (field->coords != nullptr) return const_cast<float *>(field->coords);
    if (field->made_coords != nullptr) return field->made_coords;
    const size_t bytes = static_cast<size_t>(field->nnodes * field->nspace) * sizeof(float);
    field->made_coords = static_cast<float *>(malloc(bytes));
    if (field->made_coords == nullptr) {
        host_fail("coordinates of a field: no memory for %zu bytes", bytes);
        return nullptr;
    }
    const qx_long lo[3] = {0, 0, 0};
    const qx_long hi[3] = {field->dims[0] - 1, field->dims[1] - 1, field->dims[2] - 1};
    copy_range(field, lo, hi, field->made_coords);
    return field->made_coords;
}

// A row of nspace for each position of each axis. Only the axis's own coordinate and the constant ones are
// ever read; the others are 0.
float *rectilinear_points(const host_field *field)
{
    qx_long rows = 0;
    for (int d = 0; d < field->ndim; ++d)
        rows += field->dims[d];
    float *points = allocate_zeroed<float>(rows * field->nspace);
    if (points == nullptr) {
        host_fail("points of a field: no memory for %lld rows", static_cast<long long>(rows));
        return nullptr;
    }
    float *row = points;
    for (int axis = 0; axis < field->ndim; ++axis) {
        for (qx_long i = 0; i < field->dims[axis]; ++i, row += field->nspace) {
            row[axis] = axis_coordinate(field, axis, i);
            for (int d = field->ndim; d < field->nspace; ++d)
                row[d] = axis_coordinate(field, d, 0);
        }
    }
    return points;
}

float *points_of(host_field *field)
{
    switch (field->kind) {
    case KIND_UNIF: return const_cast<float *>(field->corners);
    case KIND_RECT:
        if (field->made_points == nullptr) field->made_points = rectilinear_points(field);
        return field->made_points;
    default: host_fail("points of a field: only uniform and rectilinear meshes have them"); return nullptr;
    }
}

qx_long *lattice_connect(host_field *field)
{
    if (field->made_connect != nullptr) return field->made_connect;
    const qx_long cells = field->lattice_set.count;
    const size_t bytes = static_cast<size_t>(cells * (qx_long{1} << field->ndim)) * sizeof(qx_long);
    field->made_connect = static_cast<qx_long *>(malloc(bytes));
    if (field->made_connect == nullptr) {
        host_fail("connect list of a field: no memory for %zu bytes", bytes);
        return nullptr;
    }
    get_connect_struct(field->ndim, field->dims, 0, cells, field->made_connect);
    return field->made_connect;
}

qx_long *connect_of(host_field *field, int set)
{
    if (field->sets[set].count == 0) return const_cast<qx_long *>(no_connect);
    if (field->kind == KIND_CELLS) return const_cast<qx_long *>(field->sets[set].connect);
    return lattice_connect(field);
}

// Stores what was found; 0 for NULL.
template <typename T> int hand_out(T *found, T **out)
{
    if (found == nullptr) return 0;
    *out = found;
    return 1;
}

} // namespace

void copy_node(const host_field *field, qx_long node, float *coords)
{
    if (field->coords != nullptr) {
        memcpy(coords, field->coords + node * field->nspace,
               static_cast<size_t>(field->nspace) * sizeof(float));
        return;
    }
    const lattice_position at = split_node(node, field->ndim, field->dims);
    for (int d = 0; d < field->nspace; ++d)
        coords[d] = axis_coordinate(field, d, at.at[d]);
}

int fetch_coords_of_field(mesh_info *mesh, float **coords)
{
    return hand_out(coords_of(field_of(*mesh->field_id)), coords);
}

int fetch_coords_range_of_field(mesh_info *mesh, const qx_long *lo, const qx_long *hi, float *coords)
{
    const host_field *field = field_of(*mesh->field_id);
    const int naxes = field->kind == KIND_CELLS ? 1 : field->ndim;
    qx_long from[3] = {0, 0, 0}, to[3] = {0, 0, 0};
    for (int d = 0; d < naxes; ++d) {
        if (lo[d] < 0 || hi[d] < lo[d] || hi[d] >= field->dims[d])
            return host_fail(
                "coordinates of a field: there is no range %lld to %lld on axis %d, which has %lld nodes",
                static_cast<long long>(lo[d]), static_cast<long long>(hi[d]), d,
                static_cast<long long>(field->dims[d]));
        from[d] = lo[d];
        to[d] = hi[d];
    }
    copy_range(field, from, to, coords);
    return 1;
}

int fetch_points_of_field(mesh_info *mesh, float **points)
{
    return hand_out(points_of(field_of(*mesh->field_id)), points);
}

int fetch_connect_of_field(mesh_info *mesh, int set, qx_long **connect)
{
    host_field *field = field_of(*mesh->field_id);
    if (set < 0 || set >= field->nsets)
        return host_fail("connect list of a field: there is no cell set %d, the field has %d", set,
                         field->nsets);
    return hand_out(connect_of(field, set), connect);
}

extern "C" {

int FLDget_dims(OMobj_id id, qx_long **dims, int *ndim)
{
    host_field *field = field_of(id);
    if (field == nullptr || field->kind == KIND_CELLS) return 0;
    *dims = field->dims;
    *ndim = field->ndim;
    return 1;
}

int FLDget_points(OMobj_id id, float **points)
{
    host_field *field = field_of(id);
    return field != nullptr ? hand_out(points_of(field), points) : 0;
}

int FLDget_cell_type(OMobj_id id, int set, int *type)
{
    const host_field *field = field_of(id);
    if (field == nullptr || set < 0 || set >= field->nsets) return 0;
    *type = cell_types[field->sets[set].kind] + (field->sets[set].order > 1 ? second_order_types : 0);
    return 1;
}

int get_connect_struct(int ndim, const qx_long *dims, qx_long start, qx_long end, qx_long *connect)
{
    if (ndim < 1 || ndim > 3) return 0;
    if (start >= end) return 1;
    const qx_long cells_i = dims[0] - 1, cells_j = ndim > 1 ? dims[1] - 1 : 1;
    if (cells_i < 1 || cells_j < 1) return 0;
    const lattice_steps step = steps_of(ndim, dims);
    const int ncorners = 1 << ndim;
    qx_long i = start % cells_i, j = start / cells_i % cells_j, k = start / cells_i / cells_j;
    for (qx_long cell = start; cell < end; ++cell) {
        connect_order_nodes(i + j * step.row + k * step.plane, step, ncorners, connect);
        connect += ncorners;
        if (++i < cells_i) continue;
        i = 0;
        if (++j < cells_j) continue;
        j = 0;
        ++k;
    }
    return 1;
}

} // extern "C"
