// Points of a file as the library takes them: in single precision, and all of them numbers.
#pragma once

#include <skoklana/types.h>

#include <functional>
#include <vector>

class vtkDataSet;

// What is far from the origin or of double precision and of an odd size is shifted and scaled first, so that as many
// digits as can be are left; ordinary coordinates stay as they are.
struct finite_points {
    std::vector<float> xyz;                      // rows of 3
    std::vector<qx_long> rows;                   // which points of the file they are
    double lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0}; // their box, in the file's coordinates
    double middle[3] = {0, 0, 0}, unit = 1;      // a point is at middle + unit * xyz

    int64_t count() const { return static_cast<int64_t>(rows.size()); }
    float in_units(double x, int axis) const { return static_cast<float>((x - middle[axis]) / unit); }
};

// Those that are wanted and have finite coordinates.
finite_points finite_points_of(vtkDataSet *data, const std::function<bool(qx_long)> &wanted);
