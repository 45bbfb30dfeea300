#include "cgal_peer.hpp"

#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Delaunay_triangulation_3.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>

#include <cmath>

namespace bench {
namespace {

using kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using triangles = CGAL::Delaunay_triangulation_2<kernel>;
using tetrahedra = CGAL::Delaunay_triangulation_3<kernel>;

} // namespace

struct cgal_points::points {
    std::vector<kernel::Point_2> flat;
    std::vector<kernel::Point_3> solid;
};

cgal_points::cgal_points(int axes, const std::vector<float> &coords) : held(new points)
{
    for (size_t i = 0; i + 1 < coords.size(); i += static_cast<size_t>(axes))
        if (axes == 2)
            held->flat.emplace_back(coords[i], coords[i + 1]);
        else
            held->solid.emplace_back(coords[i], coords[i + 1], coords[i + 2]);
}

cgal_points::~cgal_points() = default;

std::shared_ptr<void> cgal_points::tesselate(int64_t *count) const
{
    if (!held->flat.empty()) {
        auto made = std::make_shared<triangles>();
        made->insert(held->flat.begin(), held->flat.end());
        *count = static_cast<int64_t>(made->number_of_faces());
        return made;
    }
    auto made = std::make_shared<tetrahedra>();
    made->insert(held->solid.begin(), held->solid.end());
    *count = static_cast<int64_t>(made->number_of_finite_cells());
    return made;
}

cgal_cells cgal_points::measure(const std::shared_ptr<void> &made) const
{
    cgal_cells sum = {0, 0};
    if (!held->flat.empty()) {
        const auto &all = *static_cast<const triangles *>(made.get());
        for (auto face = all.finite_faces_begin(); face != all.finite_faces_end(); ++face, ++sum.count)
            sum.content += std::fabs(all.triangle(face).area());
        return sum;
    }
    const auto &all = *static_cast<const tetrahedra *>(made.get());
    for (auto cell = all.finite_cells_begin(); cell != all.finite_cells_end(); ++cell, ++sum.count)
        sum.content += std::fabs(all.tetrahedron(cell).volume());
    return sum;
}

} // namespace bench
