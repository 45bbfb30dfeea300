// Parts of uniform meshes.
//
// Two corners cannot tell a part: those of the part, rounded, make other steps than those of the whole. So a part is a
// rectilinear mesh whose axes hold the whole's coordinates, and what would look at steps asks the whole: the search for
// cells, here and in axis_index.hpp, and the differences of derivative.cpp.
#include "field.hpp"
#include "lists.hpp"
#include "report.hpp"

#include <skoklana_host.h>

#include <algorithm>

namespace {

bool is_lattice_part(const host_field *part)
{
    for (int d = 0; d < part->ndim; ++d)
        if (part->dims[d] == 1 && part->whole->dims[d] > 1) return false;
    return true;
}

// Numbers of cells, by their lowest nodes. -1: the cell is not in the part.
qx_long number_in_part(const host_field *part, qx_long number_in_whole)
{
    const lattice_position at = split_node(number_in_whole, part->ndim, part->whole->dims);
    qx_long number = 0, stride = 1;
    for (int d = 0; d < part->ndim; stride *= part->dims[d], ++d) {
        const qx_long position = at.at[d] - part->first[d];
        if (position < 0 || position > std::max<qx_long>(part->dims[d] - 2, 0)) return -1;
        number += position * stride;
    }
    return number;
}

qx_long number_in_whole(const host_field *part, qx_long number_in_part)
{
    const lattice_position at = split_node(number_in_part, part->ndim, part->dims);
    qx_long number = 0, stride = 1;
    for (int d = 0; d < part->ndim; stride *= part->whole->dims[d], ++d)
        number += (at.at[d] + part->first[d]) * stride;
    return number;
}

int find_as_in_whole(mesh_info *mesh, const blk_tbl *, const float *point, qx_long *cell, float *uvw)
{
    const host_field *part = field_of(*mesh->field_id);
    mesh_info *whole = &part->whole->mesh;
    const int found = whole->methods->find_cell_func(whole, nullptr, point, cell, uvw);
    if (found != 1) return found;
    *cell = number_in_part(part, *cell);
    return *cell >= 0 ? 1 : 0;
}

int place_as_in_whole(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                      float *uvw)
{
    const host_field *part = field_of(*mesh->field_id);
    if (cell < 0 || cell >= part->nnodes) return 0;
    mesh_info *whole = &part->whole->mesh;
    return whole->methods->interp_cell_func(whole, number_in_whole(part, cell), point, check_box, tol, uvw);
}

// A field like another uniform one, which owns its corners and has its mesh.
host_field *copy_of_uniform(const host_field *from)
{
    const int nfloats = 2 * from->nspace;
    list_of<float> corners = allocate_list<float>(nfloats);
    if (corners == nullptr) {
        host_fail("host_uniform_part: no memory for the corners of the whole");
        return nullptr;
    }
    std::copy_n(from->corners, nfloats, corners.get());
    host_field *copy = host_uniform(from->ndim, from->dims, from->nspace, corners.get());
    if (copy == nullptr) return nullptr;
    copy->own_axes = corners.release();
    mesh_info *mesh = host_mesh(copy);
    if (mesh == nullptr) {
        host_free_field(copy);
        return nullptr;
    }
    mesh->points = copy->own_axes; // so that threads that search in it change nothing
    return copy;
}

} // namespace

void bind_search_of_whole(host_field *part)
{
    if (!is_lattice_part(part)) return;
    part->methods.find_cell_func = find_as_in_whole;
    part->methods.interp_cell_func = place_as_in_whole;
}

extern "C" {

host_field *host_uniform_part(const host_field *whole, const qx_long *extent)
{
    if (whole == nullptr || extent == nullptr) {
        host_fail("host_uniform_part: %s is NULL", whole == nullptr ? "whole" : "extent");
        return nullptr;
    }
    const host_field *root = searched_field(whole);
    if (root->kind != KIND_UNIF) {
        host_fail("host_uniform_part: the whole is no uniform mesh");
        return nullptr;
    }
    qx_long dims[3] = {1, 1, 1}, first[3] = {0, 0, 0}, total = 3;
    for (int d = 0; d < root->ndim; ++d) {
        const qx_long lo = extent[2 * d], hi = extent[2 * d + 1];
        if (lo < 0 || hi < lo || hi >= whole->dims[d]) {
            host_fail(
                "host_uniform_part: the part has nodes %lld to %lld along axis %d, but the whole has 0 to "
                "%lld",
                static_cast<long long>(lo), static_cast<long long>(hi), d,
                static_cast<long long>(whole->dims[d] - 1));
            return nullptr;
        }
        first[d] = whole->first[d] + lo;
        dims[d] = hi - lo + 1;
        total += dims[d];
    }
    list_of<float> values = allocate_list<float>(total);
    if (values == nullptr) {
        host_fail("host_uniform_part: no memory for %lld coordinates", static_cast<long long>(total));
        return nullptr;
    }
    const float *axes[3] = {nullptr, nullptr, nullptr};
    float *next = values.get();
    for (int d = 0; d < root->nspace; ++d) {
        axes[d] = next;
        for (qx_long i = 0; i < dims[d]; ++i)
            *next++ = axis_coordinate(root, d, first[d] + i);
    }
    host_field *copy = copy_of_uniform(root);
    if (copy == nullptr) return nullptr;
    host_field *part = host_rectilinear(root->ndim, dims, root->nspace, axes);
    if (part == nullptr) {
        host_free_field(copy);
        return nullptr;
    }
    part->whole = copy;
    std::copy_n(first, 3, part->first);
    part->own_axes = values.release();
    return part;
}

} // extern "C"
