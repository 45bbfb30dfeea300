#include "cgal_peer.hpp"

#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Delaunay_triangulation_3.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>

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

std::shared_ptr<void> cgal_points::tesselate() const
{
    if (!held->flat.empty()) {
        auto made = std::make_shared<triangles>();
        made->insert(held->flat.begin(), held->flat.end());
        return made;
    }
    auto made = std::make_shared<tetrahedra>();
    made->insert(held->solid.begin(), held->solid.end());
    return made;
}

void cgal_points::for_each_cell(const std::shared_ptr<void> &made,
                                const std::function<void(const double *)> &what) const
{
    double corners[12] = {};
    if (!held->flat.empty()) {
        const auto &all = *static_cast<const triangles *>(made.get());
        for (auto face = all.finite_faces_begin(); face != all.finite_faces_end(); ++face) {
            for (int c = 0; c < 3; ++c)
                for (int k = 0; k < 2; ++k)
                    corners[3 * c + k] = face->vertex(c)->point()[k];
            what(corners);
        }
        return;
    }
    const auto &all = *static_cast<const tetrahedra *>(made.get());
    for (auto cell = all.finite_cells_begin(); cell != all.finite_cells_end(); ++cell) {
        for (int c = 0; c < 4; ++c)
            for (int k = 0; k < 3; ++k)
                corners[3 * c + k] = cell->vertex(c)->point()[k];
        what(corners);
    }
}

} // namespace bench
