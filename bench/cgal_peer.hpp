// CGAL's Delaunay triangulations, with exact predicates.
#pragma once

#include <functional>
#include <memory>
#include <vector>

namespace bench {

// Points in CGAL's own form, made once.
class cgal_points {
  public:
    // Rows of axes coordinates, 2 or 3.
    cgal_points(int axes, const std::vector<float> &coords);
    ~cgal_points();
    // What was made.
    std::shared_ptr<void> tesselate() const;
    // Calls what with the corners of each cell, three coordinates a corner.
    void for_each_cell(const std::shared_ptr<void> &made,
                       const std::function<void(const double *)> &what) const;

  private:
    struct points;
    std::unique_ptr<points> held;
};

} // namespace bench
