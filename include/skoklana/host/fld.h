/* What the library expects of a host's field layer: a field's attributes, read by its object id.
 *
 * The FLD calls return 1 on success, and 0 with nothing written where the id is no field's or the field has
 * no such thing. What is handed out stays the field's own. */
#ifndef SKOKLANA_HOST_FLD_H
#define SKOKLANA_HOST_FLD_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* The nodes along each computational axis of a structured field.
 *
 * dims   out, kept by the field, ndim entries
 * ndim   out, 1 to 3
 *
 * 0 for a field of cell sets: that is how the library tells the two apart. */
int FLDget_dims(OMobj_id field, qx_long **dims, int *ndim);

/* The compact coordinates of a uniform or rectilinear field, in the layouts of mesh.h.
 *
 * points   out, kept by the field
 *
 * 0 for a curvilinear field and one of cell sets. */
int FLDget_points(OMobj_id field, float **points);

/* The type number of a cell set.
 *
 * set    0 to the field's sets - 1; structured fields have set 0
 * type   out: 3 lines, 4 triangles, 5 quadrilaterals, 6 tetrahedra, 7 hexahedra, 8 prisms, 9 pyramids; 10
 *        more for cells of second order */
int FLDget_cell_type(OMobj_id field, int set, int *type);

/* The node numbers of structured cells start to end - 1, cells numbered with axis 0 fastest.
 *
 * ndim      1 to 3
 * dims      nodes an axis, ndim entries
 * connect   out, end - start rows of 2, 4 or 8: around the lower face, then around the upper one
 *
 * Returns 1, also for start >= end; 0, nothing written, for another ndim or a lattice that has no cell. */
int get_connect_struct(int ndim, const qx_long *dims, qx_long start, qx_long end, qx_long *connect);

SKOKLANA_END
#endif
