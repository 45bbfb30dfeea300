// The node thresholds of cut.h by a range, for sweeps over a mesh plane by plane: as UTILnode_thresh2 tests nodes,
// with the outputs of UTILnnode_thresh_struct and UTILnode_thresh_struct.
#pragma once

#include <skoklana/types.h>

// How a range is asked for: bounds are brought into the data's type first. The type is known to be one.
struct range_threshold {
    int data_type, null_flag;
    const void *null_value;
    double lo, hi;
};

qx_long count_nodes_in_range(qx_long nnodes, const void *data, const range_threshold &range);
void sweep_nodes_in_range(qx_long nnodes, const void *data, const range_threshold &range, qx_long base,
                          qx_long *count, qx_long *list, qx_long *map);
