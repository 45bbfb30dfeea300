// CGAL's Delaunay triangulations, with exact predicates.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace bench {

struct cgal_cells {
    int64_t count;
    double content; // area or volume of all
};

// Points in CGAL's own form, made once.
class cgal_points {
  public:
    // Rows of axes coordinates, 2 or 3.
    cgal_points(int axes, const std::vector<float> &coords);
    ~cgal_points();
    // What was made; its content is measured by measure.
    std::shared_ptr<void> tesselate(int64_t *count) const;
    cgal_cells measure(const std::shared_ptr<void> &made) const;

  private:
    struct points;
    std::unique_ptr<points> held;
};

} // namespace bench
