// Level surfaces and lines as results: the library's extraction, its lists put into a record.
//
// Maps come a cell set each, in the order of the sets, as the primitives of all sets of one dimension follow one
// another in one list; so a set's stretch of the list goes by the set's dimension.
#include "options.hpp"
#include "progress.hpp"
#include "report.hpp"
#include "result.hpp"

#include <skoklana/host/tool.h>
#include <skoklana/iso.h>

#include "mod_util/type_switch.hpp"

#include <cmath>
#include <utility>

namespace {

enum class level_kind { surfaces, lines };

// What the library hands over.
struct level_lists {
    qx_long nnodes = 0, nline = 0, ntri = 0;
    list_of<qx_long> min_node, max_node, line_conn, tri_conn;
    qx_long nmaps;
    list_of<qx_long> map_count; // nmaps entries; null: no maps are wanted
    list_of<qx_long *> map;

    explicit level_lists(qx_long nmaps_) : nmaps(nmaps_) {}
    ~level_lists()
    {
        for (qx_long s = 0; map != nullptr && s < nmaps; ++s)
            free(map[s]);
    }
    level_lists(const level_lists &) = delete;
    level_lists &operator=(const level_lists &) = delete;

    bool want_maps()
    {
        map_count = list_of<qx_long>(allocate_zeroed<qx_long>(nmaps));
        map = list_of<qx_long *>(allocate_zeroed<qx_long *>(nmaps));
        return map_count != nullptr && map != nullptr;
    }
};

int extract(mesh_info *mesh, level_kind kind, const host_array &array, double level, level_lists *out)
{
    qx_long *min_node = nullptr, *max_node = nullptr, *line_conn = nullptr, *tri_conn = nullptr;
    qx_long nline_conn = 0, ntri_conn = 0;
    const int null_flag = array.null != nullptr ? 1 : 0;
    int done;
    if (kind == level_kind::surfaces)
        done = mesh->methods->isosurf_func(mesh, array.data, array.type, null_flag, array.null, level,
                                           &out->nnodes, &min_node, &max_node, &out->nline, &line_conn,
                                           &nline_conn, &out->ntri, &tri_conn, &ntri_conn,
                                           out->map_count.get(), out->map.get());
    else
        done = mesh->methods->isoline_func(mesh, array.data, array.type, null_flag, array.null, level,
                                           &out->nnodes, &min_node, &max_node, &out->nline, &line_conn,
                                           &nline_conn, out->map_count.get(), out->map.get());
    if (done != 1) { // what is left in them is not ours then
        for (qx_long s = 0; out->map != nullptr && s < out->nmaps; ++s)
            out->map[s] = nullptr;
        return done;
    }
    out->min_node.reset(min_node);
    out->max_node.reset(max_node);
    out->line_conn.reset(line_conn);
    out->tri_conn.reset(tri_conn);
    return 1;
}

// The numbers of the cells that primitives of a dimension were made of, one list for all sets. Null: no memory.
list_of<qx_long> joined_maps(const host_field *field, level_lists *lists, int ndim, qx_long count)
{
    const mesh_info &mesh = field->made;
    const bool is_alone = lists->nmaps == 1 && (mesh.ncell_sets < 1 || mesh.cell_first[0] == 0);
    if (is_alone) return list_of<qx_long>(std::exchange(lists->map[0], nullptr));
    list_of<qx_long> all = allocate_list<qx_long>(count);
    qx_long filled = 0;
    for (qx_long s = 0; all != nullptr && s < lists->nmaps; ++s) {
        if (mesh.cell_ndim[s] != ndim) continue;
        for (qx_long i = 0; i < lists->map_count[s]; ++i)
            all[filled++] = lists->map[s][i] + mesh.cell_first[s];
    }
    return all;
}

list_of<float> parameters(const host_array &array, double level, const level_lists &lists)
{
    list_of<float> t = allocate_list<float>(lists.nnodes);
    if (t == nullptr) return t;
    with_dtype_silent(array.type, [&](auto tag) {
        const auto *data = static_cast<const typename decltype(tag)::type *>(array.data);
        for (qx_long i = 0; i < lists.nnodes; ++i) {
            const double a = static_cast<double>(data[lists.min_node[i]]),
                         b = static_cast<double>(data[lists.max_node[i]]);
            t[i] = a == b ? 0 : static_cast<float>((level - a) / (b - a));
        }
        return 0;
    });
    return t;
}

int build(const char *call, host_field *field, level_kind kind, const host_array *array, double level,
          const host_level_options *given, host_result **out)
{
    *out = nullptr;
    mesh_info *mesh = host_mesh(field);
    if (mesh == nullptr) return HOST_FAILED;
    if (array == nullptr || array->data == nullptr) return host_fail("%s: array is NULL", call);
    if (DTYPEtype_size(array->type) == 0) return host_fail("%s: %d is no element type", call, array->type);
    if (array->veclen != 1)
        return host_fail("%s: a row has %d elements, but a level is one of a scalar", call, array->veclen);
    if (std::isnan(level)) return host_fail("%s: the level is not a number", call);
    const host_level_options options = settled_options(given);
    if (kind == level_kind::surfaces ? mesh->methods->isosurf_func == nullptr
                                     : mesh->methods->isoline_func == nullptr)
        return host_fail("%s: the library has no such operation for the mesh", call);

    // Lattices of another number of axes have no cells of the dimension, whatever the library makes of them.
    const bool has_cells =
        field->kind == KIND_CELLS || mesh->ndim == 2 || (mesh->ndim == 3 && kind == level_kind::surfaces);
    level_lists lists(field->kind == KIND_CELLS && mesh->ncell_sets > 0 ? mesh->ncell_sets : 1);
    if (options.without_cells == 0 && !lists.want_maps())
        return host_fail("%s: no memory for the maps", call);
    const operation_watch watch;
    if (has_cells && extract(mesh, kind, *array, level, &lists) != 1) return watch.failed(call);

    result_builder result(call, field);
    list_of<float> t = parameters(*array, level, lists);
    if (t == nullptr) return host_fail("%s: no memory for the places of the new nodes", call);
    if (!result.begin()) return HOST_FAILED;
    const bool with_cells = options.without_cells == 0;
    struct {
        int kind, ndim;
        qx_long count;
        list_of<qx_long> *connect;
    } const primitives[] = {{CELL_LINE, 2, lists.nline, &lists.line_conn},
                            {CELL_TRI, 3, lists.ntri, &lists.tri_conn}};
    for (const auto &of : primitives) {
        if (of.count == 0) continue;
        list_of<qx_long> cells;
        if (with_cells) cells = joined_maps(field, &lists, of.ndim, of.count);
        if (with_cells && cells == nullptr) return host_fail("%s: no memory for the cells", call);
        if (!result.add_set(of.kind, 1, of.count, std::move(*of.connect), std::move(cells)))
            return HOST_FAILED;
    }
    result.add_new_nodes(lists.nnodes, std::move(lists.min_node), std::move(lists.max_node), std::move(t));
    if (options.without_coords == 0 && !result.place()) return HOST_FAILED;
    *out = result.finish();
    return HOST_DONE;
}

} // namespace

extern "C" {

int host_isosurf(host_field *field, const host_array *array, double level, const host_level_options *options,
                 host_result **out)
{
    return build("host_isosurf", field, level_kind::surfaces, array, level, options, out);
}

int host_isoline(host_field *field, const host_array *array, double level, const host_level_options *options,
                 host_result **out)
{
    return build("host_isoline", field, level_kind::lines, array, level, options, out);
}

} // extern "C"
