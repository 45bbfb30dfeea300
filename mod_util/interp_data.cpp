// Data at points anywhere: each point is located by the mesh's own search, node data is interpolated in the cell
// found, cell data is that of the cell. Where there is no value the component's null value stands in.
//
// A component without null data of its own needs a null value that its data does not hold: one above the
// largest value, or what the caller says. It is settled before the first point and given back in the caller's
// slot, while the flags tell on return which components came to use theirs.

#include "memory.hpp"
#include "node_request.hpp"
#include "status.hpp"

#include <skoklana/locate.h>

namespace {

struct cell_request {
    qx_long npts;
    sample_points points;
    mesh_info *mesh;
    const blk_tbl *table;
    cell_fields fields;
    const void *max_values;
    int *null_flag;
};

void report_no_search()
{
    print_error("UTILfind_cell: unable to find interp_cell function\n");
}

template <typename T> void settle_null_values(const node_request &request)
{
    const node_fields &fields = request.fields;
    for (int j = 0; j < fields.ncomp; ++j) {
        if (request.null_flags[j] != 0) continue;
        const int veclen = fields.veclens[j];
        if (veclen < 2 && request.set_null != 0)
            UTILdouble_to_type(fields.data_type, request.null_fill, null_slot(fields.null_values, j));
        else
            put_null_in_slot(fields.null_values, j, null_for_range<T>(veclen, request.max_values, j));
    }
}

template <typename T> int interpolate_nodes(const node_request &request)
{
    const node_fields &fields = request.fields;
    const mesh_methods *methods = request.mesh->methods;
    if (methods->find_cell_func == nullptr || methods->interp_data_func == nullptr) {
        report_no_search();
        return 0;
    }
    scratch work;
    int *flags = work.keep(insist_zeroed<int>(fields.ncomp, "Cannot alloc null flags array"));
    float *values = work.keep(insist_zeroed<float>(fields.longest_row(), "Cannot alloc values array"));
    std::copy_n(request.null_flags, fields.ncomp, flags);
    settle_null_values<T>(request);

    // What the interpolation is told of null data is the caller's flags: a point outside, which raises the
    // flags here, doesn't make the data's own values null.
    located_points points(request.mesh, request.table, request.points, request.npts);
    node_rows_writer<T> rows(request.mesh, fields, values, flags);
    const double npts = static_cast<double>(request.npts);
    for (qx_long done = 0, next; done < request.npts; done = next) {
        if (done > 0 && interrupted(static_cast<int>(static_cast<double>(done) * 100.0 / npts))) return 0;
        next = request.checks_status ? next_status_check(done, request.npts) : request.npts;
        sample_nodes(&points, done, next, &rows);
    }
    std::copy_n(flags, fields.ncomp, request.null_flags);
    return 1;
}

template <typename T> int interpolate_cells(const cell_request &request)
{
    if (request.mesh->methods->find_cell_func == nullptr) {
        report_no_search();
        return 0;
    }
    const cell_fields &fields = request.fields;
    if (*request.null_flag == 0)
        put_null_in_slot(fields.null_value, 0, null_for_range<T>(fields.veclen, request.max_values, 0));
    if (request.npts < 1) return 1;
    located_points points(request.mesh, request.table, request.points, request.npts);
    sample_cells<T>(request.mesh, &points, fields, 0, request.npts, request.null_flag);
    return 1;
}

} // namespace

int interpolate_node_data(const node_request &request)
{
    return with_dtype(request.fields.data_type, "UTILinterpolate_data",
                      [&](auto tag) { return interpolate_nodes<typename decltype(tag)::type>(request); });
}

int UTILinterpolate_data(qx_long npts, const float *points, int nspace, const float *xform, mesh_info *mesh,
                         const blk_tbl *tbl, int ncomp, int data_type, const int *veclens, void **data,
                         void *, void *max_values, int *null_flags, void *null_values, int set_null,
                         double null_fill, void **out)
{
    const node_request request = {npts,
                                  {points, nspace, xform},
                                  mesh,
                                  tbl,
                                  {ncomp, data_type, veclens, data, null_flags, null_values, out},
                                  max_values,
                                  null_flags,
                                  set_null,
                                  null_fill,
                                  true};
    return interpolate_node_data(request);
}

int UTILinterpolate_cell_data(qx_long npts, const float *points, int nspace, const float *xform,
                              mesh_info *mesh, const blk_tbl *tbl, const int *set_map, int data_type,
                              int veclen, void **data, void *, void *max_values, int *null_flag,
                              void *null_value, void *out)
{
    const cell_request request = {
        npts,     {points, nspace, xform}, mesh, tbl, {set_map, veclen, data, null_value, out}, max_values,
        null_flag};
    return with_dtype(data_type, "UTILinterpolate_cell_data",
                      [&](auto tag) { return interpolate_cells<typename decltype(tag)::type>(request); });
}
