// Coordinates and data of listed nodes.
//
// Whatever is stored is copied as rows of bytes: coordinates are rows of nspace floats, data rows of veclen
// elements, and neither is looked at. Cell sets scatter by a map over all nodes, structured meshes gather by
// a list. The usual row lengths are constants of the copying loop. Compact coordinates are computed row by
// row from the node numbers.

#include <skoklana/mesh.h>

#include "coord_block.hpp"
#include "dtype.hpp"
#include "fetch.hpp"
#include "rows.hpp"

// Row map[i] of to is row i of from, for each node that the map keeps. Returns the rows copied. A constant of 0
// stands for any row length.
template <size_t constant>
static qx_long scatter_rows(qx_long nnodes, const qx_long *map, size_t row_bytes, const char *from, char *to)
{
    const size_t bytes = constant != 0 ? constant : row_bytes;
    qx_long copied = 0;
    for (qx_long i = 0; i < nnodes; ++i) {
        if (map[i] < 0) continue;
        memcpy(to + static_cast<size_t>(map[i]) * bytes, from + static_cast<size_t>(i) * bytes, bytes);
        ++copied;
    }
    return copied;
}

// Row i of to is row list[i] of from. Asking ahead for rows was tried and lost: the loop is so short that the
// processor runs ahead by itself.
template <size_t constant>
static void gather_rows(qx_long count, const qx_long *list, size_t row_bytes, const char *from, char *to)
{
    const size_t bytes = constant != 0 ? constant : row_bytes;
    for (qx_long i = 0; i < count; ++i)
        memcpy(to + static_cast<size_t>(i) * bytes, from + static_cast<size_t>(list[i]) * bytes, bytes);
}

// Calls body with the row length as a constant if it is a usual one, else with 0. Rows without elements have
// nothing to copy, and maybe no arrays.
template <typename Body> static void with_row_bytes(size_t bytes, Body body)
{
    if (bytes > 0) with_constant<size_t, 1, 2, 3, 4, 8, 12, 16, 24>(bytes, body);
}

static qx_long scatter(qx_long nnodes, const qx_long *map, size_t row_bytes, const void *from, void *to)
{
    qx_long copied = 0;
    with_row_bytes(row_bytes, [&](auto constant) {
        copied = scatter_rows<constant()>(nnodes, map, row_bytes, static_cast<const char *>(from),
                                          static_cast<char *>(to));
    });
    return copied;
}

static void gather(qx_long count, const qx_long *list, size_t row_bytes, const void *from, void *to)
{
    with_row_bytes(row_bytes, [&](auto constant) {
        gather_rows<constant()>(count, list, row_bytes, static_cast<const char *>(from),
                                static_cast<char *>(to));
    });
}

// Row i of out is the position of node list[i].
template <typename Axes>
FORCE_INLINE void gather_compact(const compact_rows<Axes> &rows, qx_long count, const qx_long *list,
                                 float *out)
{
    const int nspace = rows.axes.nspace;
    for (qx_long i = 0; i < count;) {
        const qx_long *nodes = list + i;
        float *target = out + i * nspace;
        if (count - i >= block_nodes && rows.is_block(nodes)) {
            block_column columns[3];
            rows.read_block(nodes, columns);
            store_block(columns, nspace, target);
            i += block_nodes;
        } else {
            rows.read(*nodes, target);
            ++i;
        }
    }
}

template <typename Axes>
static void gather_compact_plain(const compact_rows<Axes> &rows, qx_long count, const qx_long *list,
                                 float *out)
{
    gather_compact(rows, count, list, out);
}

template <typename Axes>
TARGET_AVX2 static void gather_compact_avx2(const compact_rows<Axes> &rows, qx_long count,
                                            const qx_long *list, float *out)
{
    gather_compact(rows, count, list, out);
}

template <typename Axes>
static int list_compact(const Axes &axes, qx_long count, const qx_long *list, float *out)
{
    const compact_rows<Axes> rows(axes);
    (have_avx2() ? gather_compact_avx2<Axes> : gather_compact_plain<Axes>)(rows, count, list, out);
    return 1;
}

static size_t coord_bytes(const mesh_info *mesh)
{
    return static_cast<size_t>(mesh->nspace) * sizeof(float);
}

int UTILcoord_list(mesh_info *mesh, qx_long, const qx_long *map, float *out)
{
    if (!fetch_coords(mesh)) return 0;
    scatter(mesh->nnodes, map, coord_bytes(mesh), mesh->coords, out);
    return 1;
}

int UTILcoord_list_struct(mesh_info *mesh, qx_long count, const qx_long *list, float *out)
{
    if (!fetch_coords(mesh)) return 0;
    gather(count, list, coord_bytes(mesh), mesh->coords, out);
    return 1;
}

int UTILcoord_list_unif(mesh_info *mesh, qx_long count, const qx_long *list, float *out)
{
    if (!fetch_points(mesh)) return 0;
    return list_compact(uniform_axes(mesh->ndim, mesh->dims, mesh->nspace, mesh->points), count, list, out);
}

int UTILcoord_list_rect(mesh_info *mesh, qx_long count, const qx_long *list, float *out)
{
    if (!fetch_points(mesh)) return 0;
    return list_compact(rectilinear_axes(mesh->ndim, mesh->dims, mesh->nspace, mesh->points), count, list,
                        out);
}

qx_long UTILdata_list(mesh_info *mesh, int data_type, int veclen, const void *data, qx_long,
                      const qx_long *map, void *out)
{
    return with_dtype_silent(data_type, [=](auto type) -> qx_long {
        const size_t row_bytes = static_cast<size_t>(veclen) * sizeof(typename decltype(type)::type);
        return veclen * scatter(mesh->nnodes, map, row_bytes, data, out);
    });
}

qx_long UTILdata_list_struct(mesh_info *, int data_type, int veclen, const void *data, qx_long count,
                             const qx_long *list, void *out)
{
    return with_dtype_silent(data_type, [=](auto type) -> qx_long {
        const size_t row_bytes = static_cast<size_t>(veclen) * sizeof(typename decltype(type)::type);
        gather(count, list, row_bytes, data, out);
        return veclen * count;
    });
}
