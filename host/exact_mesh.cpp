// A mesh record whose functions for places and values are exact.
//
// What traces a field asks for one point at a time, and knows no more of the mesh than its record. So the record stands
// at the beginning of a larger one, by which the functions find the search that they continue.
#include "cell_map.hpp"
#include "locate.hpp"
#include "report.hpp"
#include "values.hpp"

#include "mod_util/type_switch.hpp"

#include <algorithm>
#include <new>

namespace {

struct exact_mesh {
    mesh_info mesh; // first
    mesh_methods methods;
    field_cells cells;
    host_point_search *search;
};

exact_mesh *exact_of(mesh_info *mesh)
{
    return reinterpret_cast<exact_mesh *>(mesh);
}

int find_cell(mesh_info *mesh, const blk_tbl *, const float *point, qx_long *cell, float *uvw)
{
    const exact_mesh *exact = exact_of(mesh);
    double at[3] = {0, 0, 0}, place[3];
    std::copy_n(point, std::min(mesh->nspace, 3), at);
    qx_long number;
    const int found = find_point(exact->search, at, &number, place);
    if (found < 0) host_fail("host_exact_mesh: no memory for the cells of a block");
    if (found != 1) return found;
    *cell = exact->cells.mesh_number(number);
    for (int d = 0; d < 3; ++d)
        uvw[d] = static_cast<float>(place[d]);
    return 1;
}

void weigh_cell(const cell_view &cell, const float *uvw, weighted_nodes *nodes)
{
    const double place[3] = {uvw[0], uvw[1], uvw[2]};
    double weights[most_cell_nodes];
    with_shape(cell.kind, cell.order, [&](auto shape) {
        decltype(shape)::values(place, weights);
        return 0;
    });
    *nodes = weighted_nodes();
    for (int k = 0; k < cell.nnodes; ++k)
        nodes->add(cell.nodes[k], weights[k]);
    nodes->make_sum_1();
}

// As values are weighted between nodes, but without rounding to the data's own type.
template <typename T> float value_between(const weighted_nodes &nodes, const T *values, int veclen)
{
    const double base = static_cast<double>(values[nodes.node[nodes.largest] * veclen]);
    double differences = 0;
    for (int k = 0; k < nodes.count; ++k)
        differences += nodes.weight[k] * (static_cast<double>(values[nodes.node[k] * veclen]) - base);
    return static_cast<float>(base + differences);
}

int interpolate(mesh_info *mesh, qx_long number, int veclen, const void *data, int data_type, int null_flag,
                const void *null_value, int npts, const float *uvw, float *out)
{
    const field_cells &cells = exact_of(mesh)->cells;
    const qx_long cell = cells.from_mesh_number(number);
    if (cell < 0 || data == nullptr || veclen < 1) return 0;
    cell_view view;
    cells.look_up(cell, &view);
    const host_array of = {data, data_type, veclen, null_flag != 0 ? null_value : nullptr};
    return with_dtype_silent(data_type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        for (qx_long i = 0; i < npts; ++i) {
            weighted_nodes nodes;
            weigh_cell(view, uvw + 3 * i, &nodes);
            if (nodes.count == 0 || touches_null<T>(nodes, of)) return 0;
            for (int c = 0; c < veclen; ++c)
                out[i * veclen + c] = value_between(nodes, static_cast<const T *>(data) + c, veclen);
        }
        return 1;
    });
}

} // namespace

extern "C" {

mesh_info *host_exact_mesh(const host_locator *locator)
{
    if (locator == nullptr) {
        host_fail("host_exact_mesh: locator is NULL");
        return nullptr;
    }
    void *room = malloc(sizeof(exact_mesh));
    host_point_search *search = start_search(locator);
    if (room == nullptr || search == nullptr) {
        free(room);
        end_search(search);
        host_fail("host_exact_mesh: no memory");
        return nullptr;
    }
    const host_field *field = field_of(locator);
    exact_mesh *exact = new (room) exact_mesh{field->made, field->methods, field_cells(field), search};
    exact->mesh.methods = &exact->methods;
    exact->methods.find_cell_func = find_cell;
    exact->methods.interp_data_func = interpolate;
    return &exact->mesh;
}

void host_free_exact_mesh(mesh_info *mesh)
{
    if (mesh == nullptr) return;
    end_search(exact_of(mesh)->search);
    free(exact_of(mesh));
}

} // extern "C"
