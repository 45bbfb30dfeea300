// What node data is asked for at points anywhere, by the operation itself and by the form of it for threads.
#pragma once

#include "sample.hpp"

struct node_request {
    qx_long npts;
    sample_points points;
    mesh_info *mesh;
    const blk_tbl *table;
    node_fields fields;
    const void *max_values;
    int *null_flags;
    int set_null;
    double null_fill;
    bool checks_status; // whether the user can stop it
};

// 1, or 0 after a report or when stopped. Reports as UTILinterpolate_data.
int interpolate_node_data(const node_request &request);
