// Data at points anywhere, for threads that a caller has: the operations of interp_data.cpp without status calls. All
// that they write is the caller's, so that each thread can have points, outputs and flags of its own.
#include <skoklana/locate.h>
#include <skoklana/thread.h>

#include "node_request.hpp"

extern "C" {

int UTILmt_interpolate_data(qx_long npts, const float *points, int nspace, const float *xform,
                            mesh_info *mesh, const blk_tbl *tbl, int ncomp, int data_type, const int *veclens,
                            void **data, void *, void *max_values, int *null_flags, void *null_values,
                            int set_null, double null_fill, void **out)
{
    return interpolate_node_data({npts,
                                  {points, nspace, xform},
                                  mesh,
                                  tbl,
                                  {ncomp, data_type, veclens, data, null_flags, null_values, out},
                                  max_values,
                                  null_flags,
                                  set_null,
                                  null_fill,
                                  false});
}

// Cell data is taken without a status call anyway.
int UTILmt_interpolate_cell_data(qx_long npts, const float *points, int nspace, const float *xform,
                                 mesh_info *mesh, const blk_tbl *tbl, const int *set_map, int data_type,
                                 int veclen, void **data, void *min_values, void *max_values, int *null_flag,
                                 void *null_value, void *out)
{
    return UTILinterpolate_cell_data(npts, points, nspace, xform, mesh, tbl, set_map, data_type, veclen, data,
                                     min_values, max_values, null_flag, null_value, out);
}

} // extern "C"
