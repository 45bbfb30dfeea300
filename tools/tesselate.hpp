// Points tesselated by the library, and the result held against the convex hull of the points.
#pragma once

#include "carry.hpp"

#include <cstdint>
#include <string>
#include <vector>

struct tesselation {
    int ndim = 2; // 2: triangles, 3: tetrahedra
    std::vector<qx_long>
        cells;           // rows of 3 or 4 points: triangles counter-clockwise, tetrahedra as VTK has them
    int64_t doubled = 0; // points at the place of another
    int64_t skipped = 0; // further points that no cell has
    int64_t count() const { return static_cast<int64_t>(cells.size()) / (ndim + 1); }
};

// The box that is handed to the library: that of the points, or one so large that the convex hull comes out.
enum class tesselated_in { own_box, large_box };

// xyz: rows of 3, all finite. Throws failure, whose text starts with path.
tesselation tesselate_points(const std::string &path, int ndim, const std::vector<float> &xyz,
                             tesselated_in box);

// Facets that one cell alone has, outside on their right-hand side: rows of 2 or 3 points.
std::vector<qx_long> outside_of(const tesselation &made);

// Whether the points are on a line, or in a plane, as far as single precision tells.
bool is_flat(const tesselation &made, const std::vector<float> &xyz);

// What of the convex hull of the points is in no cell.
struct missing_part {
    int64_t points = 0;    // that should be corners of the outside, or stick out of it
    int64_t dents = 0;     // corners of the outline, or edges of the surface, that bend inwards
    double share = 0;      // of the area or volume of cells and dents; about, in space
    bool overlaps = false; // triangles cover more than the hull
    bool any() const { return points > 0 || dents > 0; }
};
missing_part missing_from_hull(const tesselation &made, const std::vector<float> &xyz);
