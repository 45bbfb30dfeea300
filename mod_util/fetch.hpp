// Lazy fetches: what a mesh record does not hold yet comes from the host's fetch functions, is stored in
// the record and stays there. A failure is reported here, so that a caller only returns 0.
#pragma once

#include "report.hpp"

#include <skoklana/mesh.h>

// A failed fetch of coordinates or points leaves the field NULL: the next operation tries again.
inline bool fetch_coords(mesh_info *mesh)
{
    if (mesh->coords != nullptr) return true;
    float *coords = nullptr;
    if (mesh->get_coords(mesh, &coords) < 1) {
        report_error("fld_info", "unable to get field coordinates");
        return false;
    }
    mesh->coords = coords;
    return true;
}

inline bool fetch_points(mesh_info *mesh)
{
    if (mesh->points != nullptr) return true;
    float *points = nullptr;
    if (mesh->get_points(mesh, &points) < 1) {
        report_error("fld_info", "unable to get field points");
        return false;
    }
    mesh->points = points;
    return true;
}

// The connect list of a set, in mesh->cell_connect[set] after success. A failed fetch leaves the entry as
// it was.
inline bool fetch_connect(mesh_info *mesh, int set)
{
    if (mesh->cell_connect[set] != nullptr) return true;
    qx_long *connect = nullptr;
    if (mesh->get_connect(mesh, set, &connect) < 1) {
        report_error("fld_info", "unable to get cell set connect list");
        return false;
    }
    mesh->cell_connect[set] = connect;
    return true;
}
