// Data at the nodes of a uniform lattice, located by that lattice's own block table.
//
// The lattice point, as the caller gives it, tells the table's node: the nearest one. The cells of its list are
// then tested with the point in the mesh's own space, in their order and without a look at their boxes, since
// the table lists a cell only where its box covers the node.
//
// In the single mode a node has one cell, taken without a test, and the value is that of the cell's node nearest
// to the point, as it stands.

#include "memory.hpp"
#include "sample.hpp"
#include "status.hpp"

#include <skoklana/locate.h>

namespace {

struct unif_node_request {
    qx_long npts;
    sample_points points;
    mesh_info *mesh;
    const blk_tbl_unif *table;
    node_fields fields;
    int *null_flags;
    bool single;
};

struct unif_cell_request {
    qx_long npts;
    sample_points points;
    mesh_info *mesh;
    const blk_tbl_unif *table;
    cell_fields fields;
    int *null_flag;
    bool single;
};

// Finds cells through a lattice's table.
struct unif_finder {
    mesh_info *mesh;
    const blk_tbl_unif *table;
    bool single;
    float extent[3], tol;

    unif_finder(mesh_info *mesh_, const blk_tbl_unif *table_, bool single_)
        : mesh(mesh_), table(table_), single(single_)
    {
        for (int d = 0; d < 3; ++d)
            extent[d] = table != nullptr ? table->max_ext[d] - table->min_ext[d] : 0;
        tol = 1e-6f * (extent[0] + extent[1] + extent[2]);
    }

    // The block of the lattice node nearest to a point; -1: none.
    qx_long block_of(const float *lattice_point) const
    {
        qx_long at[3] = {0, 0, 0};
        for (int d = 0; d < std::min(mesh->nspace, 3); ++d) {
            if (!(static_cast<double>(extent[d]) > 1e-30)) continue;
            const float position =
                (lattice_point[d] - table->min_ext[d]) * static_cast<float>(table->dims[d] - 1) / extent[d];
            const double rounded = position + 0.4999999;
            if (!(rounded > -1 && rounded < static_cast<double>(table->dims[d]))) return -1;
            at[d] = static_cast<qx_long>(rounded);
        }
        const qx_long block = (at[2] * table->dims[1] + at[1]) * table->dims[0] + at[0];
        return block < table->nblocks ? block : -1;
    }

    // 1, 0, or -1 where the mesh has no test of cells or the list a bad entry.
    int find(const float *lattice_point, const float *place, qx_long *cell, float *uvw) const
    {
        const auto test = mesh->methods->interp_cell_func;
        if (!single && test == nullptr) {
            print_error("UTILfind_cell: unable to find interp_cell function\n");
            return -1;
        }
        if (table == nullptr || !is_place(lattice_point)) return 0;
        const qx_long block = block_of(lattice_point);
        if (block < 0) return 0;
        return search_list(table, table->blocks[block], cell,
                           [&](qx_long tried) { return single ? 1 : test(mesh, tried, place, 0, tol, uvw); });
    }

    // The same for point i of a list.
    located locate(const sample_points &points, qx_long i, float *place) const
    {
        float lattice_point[3];
        points.read(i, lattice_point);
        points.place(i, place);
        located at = {};
        at.found = find(lattice_point, place, &at.cell, at.uvw) == 1;
        return at;
    }
};

enum class nearest_result { found, no_cell, failed };

// The node of a cell that is nearest to a place; the first of several. A mesh is structured where its test of
// cells says so, or, with another or none, where it has axes.
nearest_result nearest_node(mesh_info *mesh, qx_long cell, const float *place, qx_long *nearest)
{
    const own_form own = own_cell_test(mesh);
    const bool has_axes = mesh->ndim > 0 && mesh->dims != nullptr;
    const bool structured = own == own_form::structured || (own == own_form::none && has_axes);
    if (!fetch_coords(mesh)) return nearest_result::failed;
    cell_view view;
    if (structured) {
        if (!lattice_cells(mesh).nodes_of(cell, &view)) return nearest_result::no_cell;
    } else {
        const cell_place at = find_set(mesh, cell);
        if (!is_cell(at)) return nearest_result::no_cell;
        if (!fetch_connect(mesh, at.set)) return nearest_result::failed;
        set_cells::nodes_of(mesh, at, &view);
    }

    float best = std::numeric_limits<float>::max();
    *nearest = view.nodes[0];
    for (int k = 0; k < view.nnodes; ++k) {
        const float *row = mesh->coords + view.nodes[k] * mesh->nspace;
        float distance = 0;
        for (int d = 0; d < 3; ++d) {
            const float apart = (d < mesh->nspace ? row[d] : 0) - place[d];
            distance += apart * apart;
        }
        if (distance < best) {
            best = distance;
            *nearest = view.nodes[k];
        }
    }
    return nearest_result::found;
}

// Row i of all components from one node, as it stands. False: coordinates or a connect list can't be had.
template <typename T>
bool copy_nearest_rows(const unif_node_request &request, qx_long cell, const float *place, qx_long i,
                       int *flags)
{
    const node_fields &fields = request.fields;
    qx_long node;
    const nearest_result result = nearest_node(request.mesh, cell, place, &node);
    if (result == nearest_result::failed) return false;
    for (int j = 0; j < fields.ncomp; ++j) {
        if (result == nearest_result::no_cell)
            write_null_row<T>(fields, j, i, flags);
        else
            std::copy_n(static_cast<const T *>(fields.data[j]) + node * fields.veclens[j], fields.veclens[j],
                        row_of<T>(fields, j, i));
    }
    return true;
}

template <typename T> int sample_nodes_of_lattice(const unif_node_request &request)
{
    const node_fields &fields = request.fields;
    scratch work;
    int *flags = work.keep(insist_zeroed<int>(fields.ncomp, "Cannot alloc null flags array"));
    float *values = work.keep(insist_zeroed<float>(fields.longest_row(), "Cannot alloc values array"));
    std::copy_n(request.null_flags, fields.ncomp, flags);

    const unif_finder finder(request.mesh, request.table, request.single);
    node_rows_writer<T> rows(request.mesh, fields, values, flags);
    const float step = 100.0f / static_cast<float>(request.npts);
    status_cadence cadence(1024);
    for (qx_long i = 0; i < request.npts; ++i) {
        if (cadence.due() && interrupted(static_cast<int>(static_cast<float>(i) * step))) return 0;
        float place[3];
        const located at = finder.locate(request.points, i, place);
        if (!at.found) {
            rows.write_null(i);
        } else if (request.single) {
            if (!copy_nearest_rows<T>(request, at.cell, place, i, flags)) return 0;
        } else if (fields.ncomp > 0 && request.mesh->methods->interp_data_func == nullptr) {
            print_error("UTILinterpolate_data: unable to find interp_cell function\n");
            return 0;
        } else {
            rows.write(i, at);
        }
    }
    std::copy_n(flags, fields.ncomp, request.null_flags);
    return 1;
}

template <typename T> int sample_cells_of_lattice(const unif_cell_request &request)
{
    const unif_finder finder(request.mesh, request.table, request.single);
    for (qx_long i = 0; i < request.npts; ++i) {
        float place[3];
        const located at = finder.locate(request.points, i, place);
        write_cell_row<T>(request.fields, request.mesh, at, i, request.null_flag);
    }
    return 1;
}

} // namespace

int UTILinterpolate_data_to_unif(qx_long npts, const float *points, int nspace, const float *xform,
                                 mesh_info *mesh, const blk_tbl_unif *tbl, int ncomp, int data_type,
                                 const int *veclens, void **data, void *null_values, int *null_flags,
                                 int single, void **out)
{
    const unif_node_request request = {npts,
                                       {points, nspace, xform},
                                       mesh,
                                       tbl,
                                       {ncomp, data_type, veclens, data, null_flags, null_values, out},
                                       null_flags,
                                       single != 0};
    return with_dtype(data_type, "UTILinterpolate_data_to_unif", [&](auto tag) {
        return sample_nodes_of_lattice<typename decltype(tag)::type>(request);
    });
}

int UTILinterpolate_cell_data_to_unif(qx_long npts, const float *points, int nspace, const float *xform,
                                      mesh_info *mesh, const blk_tbl_unif *tbl, const int *set_map,
                                      int data_type, int veclen, void **data, int *null_flag,
                                      void *null_value, int single, void *out)
{
    const unif_cell_request request = {
        npts,       {points, nspace, xform}, mesh, tbl, {set_map, veclen, data, null_value, out}, null_flag,
        single != 0};
    return with_dtype(data_type, "UTILinterpolate_cell_data_to_unif", [&](auto tag) {
        return sample_cells_of_lattice<typename decltype(tag)::type>(request);
    });
}
