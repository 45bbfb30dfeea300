// Triangles over a grid of heights, with a bound on the error at every node of the grid.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

// Corners are nodes of the grid, by number, and stand at their heights.
struct height_triangles {
    std::vector<int64_t> nodes;              // of the vertices
    std::vector<std::array<int, 3>> corners; // of the triangles, anticlockwise where both axes run forward
};

// Nodes along each axis, 2 and up, and their heights, the first axis fastest. No NaN.
struct height_map {
    int64_t nx, ny;
    const double *heights;
};

// As few triangles as come out when the worst node of all is made a vertex, over and over, until no node is more than
// the tolerance away from the surface. watch is called now and then and may throw.
//
// Garland, Heckbert. Fast polygonal approximation of terrains and height fields. 1995
height_triangles fit_heights(const height_map &map, double tolerance, const std::function<void()> &watch);

// The largest distance, along the height, between a node and a triangle over or under it. Vertices have heights of
// their own here.
struct height_error {
    double largest = 0;
    int64_t uncovered = 0; // nodes without a triangle
};
height_error error_of(const height_map &map, const height_triangles &made,
                      const std::vector<double> &heights);
