// The cell that holds a point.
//
// Cell sets and curvilinear meshes are searched through a block table: the point's block lists the cells whose
// boxes reach it, newest first, and the first that takes the point is the answer. Where cells overlap, and on
// shared faces, that is the one inserted last. Rectilinear and uniform meshes need no table: each axis is
// looked at by itself. Nothing is remembered from one call to the next.

#include "find_cell.hpp"
#include "own_methods.hpp"

#include <limits>

static int find_in_list(mesh_info *mesh, const blk_tbl *table, qx_long entry, const float *point, double tol,
                        qx_long *cell, float *uvw)
{
    const own_form own = own_cell_test(mesh);
    if (own != own_form::none)
        return with_nspace(mesh->nspace, [&](auto nspace) {
            constexpr int n = decltype(nspace)::value;
            return own == own_form::cells
                       ? search_cells<n>(set_cells{mesh}, mesh->coords, table, entry, point, tol, cell, uvw)
                       : search_cells<n>(lattice_cells(mesh), mesh->coords, table, entry, point, tol, cell,
                                         uvw);
        });
    return search_list(table, entry, cell, [&](qx_long tried) {
        return mesh->methods->interp_cell_func(mesh, tried, point, 1, tol, uvw);
    });
}

int UTILfind_cell(mesh_info *mesh, const blk_tbl *tbl, const float *point, qx_long *cell, float *uvw)
{
    if (!fetch_coords(mesh)) return 0;
    if (mesh->methods->interp_cell_func == nullptr) {
        print_error("UTILfind_cell: unable to find interp_cell function\n");
        return -1;
    }
    if (tbl == nullptr) return 0;
    const block_finder finder(tbl);
    if (!finder.reaches(point)) return 0;
    const qx_long block = finder.block_of(point);
    *cell = -1;
    if (block < 0) return 0;
    return find_in_list(mesh, tbl, tbl->blocks[block], point, finder.tol, cell, uvw);
}

int UTILfind_cell_unif(mesh_info *mesh, const blk_tbl *, const float *point, qx_long *cell, float *uvw)
{
    return fetch_points(mesh) ? uniform_finder(mesh).find(point, cell, uvw) : 0;
}

int UTILfind_cell_rect(mesh_info *mesh, const blk_tbl *, const float *point, qx_long *cell, float *uvw)
{
    return fetch_points(mesh) ? rectilinear_finder(mesh).find(point, cell, uvw) : 0;
}

int UTILinterp_cell_uvw(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                        float *uvw)
{
    if (!fetch_coords(mesh)) return 0;
    return with_nspace(mesh->nspace, [&](auto nspace) {
        return test_cell<decltype(nspace)::value>(set_cells{mesh}, mesh->coords, cell, point, check_box != 0,
                                                  tol, uvw);
    });
}

int UTILinterp_cell_uvw_struct(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                               float *uvw)
{
    if (!fetch_coords(mesh)) return 0;
    return with_nspace(mesh->nspace, [&](auto nspace) {
        return test_cell<decltype(nspace)::value>(lattice_cells(mesh), mesh->coords, cell, point,
                                                  check_box != 0, tol, uvw);
    });
}

// The parameter along one axis may leave its range by tol; one that is NaN is in no range.
static bool is_parameter(float u, double tol)
{
    return 1 + tol >= u && u >= -1 - tol;
}

int UTILinterp_cell_uvw_unif(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                             float *uvw)
{
    if (!fetch_points(mesh) || cell < 0 || cell >= mesh->nnodes) return 0;
    const lattice_position at = split_node(cell, mesh->ndim, mesh->dims);
    uvw[0] = uvw[1] = uvw[2] = 0;
    for (int d = 0; d < mesh->ndim; ++d) {
        const float first = mesh->points[d], last = mesh->points[mesh->nspace + d];
        if (mesh->dims[d] == 1) {
            if (check_box != 0 && !is_within(first, point[d], last, tol)) return 0;
            continue;
        }
        const float t = (point[d] - first) / (last - first) * static_cast<float>(mesh->dims[d] - 1);
        uvw[d] = 2 * (t - static_cast<float>(at.at[d])) - 1;
        if (check_box != 0 && !is_parameter(uvw[d], tol)) return 0;
    }
    if (check_box != 0 && !is_within_flat_axes(mesh, 2, point, tol)) return 0;
    turn_to_cell(mesh->ndim, uvw);
    return 1;
}

int UTILinterp_cell_uvw_rect(mesh_info *mesh, qx_long cell, const float *point, int check_box, double tol,
                             float *uvw)
{
    if (!fetch_points(mesh) || cell < 0 || cell >= mesh->nnodes) return 0;
    const rectilinear_axes axes(mesh->ndim, mesh->dims, mesh->nspace, mesh->points);
    const lattice_position at = split_node(cell, mesh->ndim, mesh->dims);
    qx_long nrows = 0;
    uvw[0] = uvw[1] = uvw[2] = 0;
    for (int d = 0; d < mesh->ndim; ++d) {
        nrows += mesh->dims[d];
        const float low = axes.coordinate(d, at.at[d]);
        if (mesh->dims[d] == 1) {
            if (check_box != 0 && !is_within(low, point[d], low, tol)) return 0;
            continue;
        }
        if (at.at[d] + 1 >= mesh->dims[d]) return 0; // the last position of an axis begins no cell
        const float high = axes.coordinate(d, at.at[d] + 1);
        uvw[d] = 2 * (point[d] - low) / (high - low) - 1;
        if (check_box != 0 && !is_parameter(uvw[d], tol)) return 0;
    }
    if (check_box != 0 && !is_within_flat_axes(mesh, nrows, point, tol)) return 0;
    turn_to_cell(mesh->ndim, uvw);
    return 1;
}

int UTILget_cell_id(mesh_info *mesh, qx_long cell, qx_long *local, int *set)
{
    const cell_place place = find_set(mesh, cell);
    if (place.set >= 0) {
        *local = place.local;
        *set = place.set;
    }
    return *set >= 0;
}
