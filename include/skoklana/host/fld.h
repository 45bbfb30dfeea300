/* What the library expects of a host's field layer: a field's attributes, read by its object id.
 * Each returns 1 on success and 0 where the field has no such thing; what is handed out stays the
 * field's own. */
#ifndef SKOKLANA_HOST_FLD_H
#define SKOKLANA_HOST_FLD_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* The nodes along each computational axis of a structured field, ndim entries. */
int FLDget_dims(OMobj_id field, qx_long **dims, int *ndim);
/* The compact coordinates of a uniform or rectilinear field. */
int FLDget_points(OMobj_id field, float **points);
/* The type number of a cell set. */
int FLDget_cell_type(OMobj_id field, int set, int *type);

/* Node numbers of the structured cells start to end - 1: around the lower face, then around the upper
 * one; rows of 2, 4 or 8. Returns 1, or 0 for an ndim other than 1, 2 and 3. */
int get_connect_struct(int ndim, const qx_long *dims, qx_long start, qx_long end, qx_long *connect);

SKOKLANA_END
#endif
