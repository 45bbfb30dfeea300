#include "traced_field.hpp"

// Points located on a rectilinear mesh before it pays to know whether its axes ascend: a look at an axis costs
// about two scans of it.
constexpr int points_before_axes = 4;

traced_field::traced_field(mesh_info *mesh_, const blk_tbl *table_, const node_data &of_)
    : mesh(mesh_), of(of_), table(table_), cells_of_data(mesh_)
{
}

void traced_field::choose_way()
{
    way = own_search_way(mesh, table);
    if (way == search_way::uniform) uniform.emplace(mesh);
    if (way == search_way::rectilinear) rectilinear.emplace(mesh);
    if (way == search_way::sets || way == search_way::lattice) blocks.emplace(table);
    if (way == search_way::lattice) lattice.emplace(mesh);
}

int traced_field::locate(const float *point, qx_long *cell, float *uvw)
{
    if (way == search_way::by_method) choose_way();
    switch (way) {
    case search_way::uniform: return uniform->find(point, cell, uvw);
    case search_way::rectilinear: return locate_by_axes(point, cell, uvw);
    case search_way::sets: return locate_in_lists(set_cells{mesh}, point, cell, uvw);
    case search_way::lattice: return locate_in_lists(*lattice, point, cell, uvw);
    case search_way::by_method: break;
    }
    return mesh->methods->find_cell_func(mesh, table, point, cell, uvw);
}

int traced_field::locate_by_axes(const float *point, qx_long *cell, float *uvw)
{
    if (nlocated == points_before_axes) {
        const float *x = mesh->points;
        for (int d = 0; d < mesh->ndim; x += mesh->dims[d] * mesh->nspace, ++d)
            ascends[d] = rectilinear_finder::ascends(x + d, mesh->dims[d], mesh->nspace);
    }
    if (nlocated <= points_before_axes) ++nlocated;
    return rectilinear->find_by(point, cell, uvw, [this](int d, const float *x, qx_long n, float p) {
        if (!ascends[d]) return rectilinear_finder::scan(x, n, mesh->nspace, p);
        const qx_long interval = rectilinear_finder::walk(x, n, mesh->nspace, p, intervals[d]);
        intervals[d] = interval;
        return interval;
    });
}

// ---- block tables ------------------------------------------------------------------------------------------

traced_field::list_boxes *traced_field::boxes_of(qx_long block)
{
    if (lists[newest].block == block) return &lists[newest];
    newest = 1 - newest;
    list_boxes *list = &lists[newest];
    if (list->block != block) {
        list->block = block;
        list->rest = table->blocks[block];
        list->ntiles = 0;
    }
    return list;
}

template <typename Cells>
int traced_field::locate_in_lists(const Cells &cells, const float *point, qx_long *cell, float *uvw)
{
    if (!blocks->reaches(point)) return 0;
    const qx_long block = blocks->block_of(point);
    if (block < 0) return 0;
    list_boxes *list = boxes_of(block);
    return with_nspace(mesh->nspace, [&](auto nspace) {
        return search<decltype(nspace)::value>(cells, list, point, cell, uvw);
    });
}

template <int Nspace, typename Cells>
int traced_field::search(const Cells &cells, list_boxes *list, const float *point, qx_long *cell, float *uvw)
{
    const box_window window(point, blocks->tol);
    for (int t = 0;; ++t) {
        cell_tile *tile = &list->tiles[t];
        if (t == list->ntiles) {
            if (t == list_boxes::most_tiles)
                return search_cells<Nspace>(cells, mesh->coords, table, list->rest, point, blocks->tol, cell,
                                            uvw);
            if (list->rest == 0) return 0;
            list->rest = tile->fill<Nspace>(cells, mesh->coords, table, list->rest);
            if (tile->ncells == 0) return -1;
            list->bounds[t] = tile->bounds();
            ++list->ntiles;
        }
        if (window.misses(list->bounds[t])) continue;
        for (unsigned mask = tile->meeting(window); mask != 0; mask &= mask - 1) {
            const int k = __builtin_ctz(mask);
            cell_view view;
            if (!box_holds(tile->box_of(k), point, blocks->tol) || !cells.look_up(tile->cells[k], &view))
                continue;
            if (map_into_cell<Nspace>(mesh->coords, view, point, uvw) <= 0) continue;
            *cell = tile->cells[k];
            return 1;
        }
    }
}

// ---- values ------------------------------------------------------------------------------------------------

int traced_field::sample(qx_long cell, const float *uvw, float *out)
{
    cell_view room;
    valued_cell view;
    if (cells_of_data.look_up(cell, &room, &view)) return interpolate_any_type(view, of, 1, uvw, out);
    return mesh->methods->interp_data_func(mesh, cell, of.veclen, of.data, of.data_type, of.null_flag,
                                           of.null_value, 1, uvw, out);
}
