#include "finite_points.hpp"

#include <vtkDataSet.h>
#include <vtkPointSet.h>
#include <vtkPoints.h>

#include <algorithm>
#include <cmath>

// Whether coordinates can have more digits than single precision has.
static bool has_long_coordinates(vtkDataSet *data)
{
    auto *set = vtkPointSet::SafeDownCast(data);
    return set == nullptr || set->GetPoints() == nullptr || set->GetPoints()->GetDataType() != VTK_FLOAT;
}

// Where an axis begins to count. A whole number of steps of some size of the box moves whole and short numbers without
// a loss.
static double middle_of(double lo, double hi, bool is_long)
{
    const double size = hi - lo;
    if (size == 0) return lo;
    const bool is_far = std::min(std::fabs(lo), std::fabs(hi)) > 2 * size && (lo < 0) == (hi < 0);
    if (!is_long || !is_far) return 0;
    const double step = std::exp2(std::floor(std::log2(size)));
    return std::round((lo + size / 2) / step) * step;
}

// A power of two that makes the numbers ordinary ones, whose squares are still numbers.
static double unit_for(double most)
{
    constexpr int ordinary = 40;
    if (most == 0) return 1;
    const int exponent = std::ilogb(most);
    return std::abs(exponent) <= ordinary ? 1 : std::ldexp(1, exponent);
}

finite_points finite_points_of(vtkDataSet *data, const std::function<bool(qx_long)> &wanted)
{
    finite_points points;
    const qx_long npoints = data->GetNumberOfPoints();
    for (qx_long i = 0; i < npoints; ++i) {
        double p[3];
        data->GetPoint(i, p);
        if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2]) || !wanted(i)) continue;
        for (int d = 0; d < 3; ++d) {
            points.lo[d] = points.rows.empty() ? p[d] : std::min(points.lo[d], p[d]);
            points.hi[d] = points.rows.empty() ? p[d] : std::max(points.hi[d], p[d]);
        }
        points.rows.push_back(i);
    }
    const bool is_long = has_long_coordinates(data);
    double most = 0;
    for (int d = 0; d < 3; ++d) {
        points.middle[d] = middle_of(points.lo[d], points.hi[d], is_long);
        most = std::max(
            {most, std::fabs(points.lo[d] - points.middle[d]), std::fabs(points.hi[d] - points.middle[d])});
    }
    points.unit = unit_for(most);
    points.xyz.reserve(3 * points.rows.size());
    for (const qx_long row : points.rows) {
        double p[3];
        data->GetPoint(row, p);
        for (int d = 0; d < 3; ++d)
            points.xyz.push_back(points.in_units(p[d], d));
    }
    return points;
}
