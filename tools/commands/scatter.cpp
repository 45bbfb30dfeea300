#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "finite_points.hpp"
#include "options.hpp"
#include "progress.hpp"
#include "threads.hpp"
#include "to_vtk.hpp"

#include <skoklana/scatter.h>
#include <skoklana/thread.h>

#include <vtkDataSet.h>
#include <vtkPointData.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace {

constexpr int most_axes = 3;

// In the coordinates of the file.
struct grid_box {
    double min[most_axes], max[most_axes];
};

// The least and greatest value of each component.
template <typename T> struct component_bounds {
    std::vector<T> lo, hi;
};

class scatter : public command {
  public:
    explicit scatter(CLI::App &app);
    void run() override;

  private:
    void check();
    grid_box chosen_box(const finite_points &points) const;
    void choose_radius(int64_t npoints, int *radius) const;

    input_options file;
    array_options array;
    std::vector<int64_t> size;
    std::vector<int> radii;
    int power = 2;
    std::vector<double> corners;
    result_options result;
    qx_long dims[most_axes] = {1, 1, 1};
    int ndim = 0;
};

scatter::scatter(CLI::App &app)
    : file(app, input_options::points_too::yes), array(app, array_place::node, component_kind::none),
      result(app, "result: .vti", result_options::drawn::yes, "--picture-size")
{
    app.footer(
        "\nValues weigh by 1 / distance^power (Shepard's method). Nodes that no point reaches are NaN; of "
        "integers\nthey are 0, with vtkValidPointMask 0. Results have single precision, and integers are "
        "rounded.\n\n"
        "Examples:\n"
        "  skoklana scatter wells.csv --array depth --size 200,150 -o depth.vti --picture depth.png\n"
        "  skoklana scatter soundings.csv --columns lon,lat --array depth --null -999 --size 400,300 -o "
        "sea.vti\n"
        "  skoklana scatter probes.vtp --array T --size 64,64,64 --radius 5 --power 3 -o T.vti");
    app.add_option("--size,-n", size, "nodes of the grid along each axis: NX,NY by x and y, or NX,NY,NZ")
        ->required()
        ->delimiter(',')
        ->allow_extra_args(false);
    app.add_option(
           "--radius,-r", radii,
           "how many nodes a point reaches to either side: one number, or one an axis; by default some "
           "six points reach a node")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::Range(1, 1000000));
    app.add_option("--power", power, "of the distance that values weigh by, inversely; 2 by default")
        ->check(CLI::Range(1, 100));
    app.add_option("--box", corners,
                   "X0,Y0,Z0,X1,Y1,Z1: corners of the grid, which is at Z0 if it is flat; by default it is "
                   "as large as "
                   "the points' own box")
        ->delimiter(',')
        ->allow_extra_args(false);
}

void scatter::check()
{
    if (size.size() != 2 && size.size() != 3)
        throw failure("--size: NX,NY or NX,NY,NZ is wanted", exit_usage);
    ndim = static_cast<int>(size.size());
    qx_long nodes = 1;
    for (size_t d = 0; d < size.size(); ++d) {
        dims[d] = size[d];
        if (size[d] < 2 || size[d] > INT32_MAX)
            throw failure("--size: from 2 to 2147483647 nodes are wanted along each axis", exit_usage);
        if (__builtin_mul_overflow(nodes, size[d], &nodes) || nodes > qx_long{1} << 40)
            throw failure("--size: that is more than 10^12 nodes", exit_usage);
    }
    if (!radii.empty() && radii.size() != 1 && radii.size() != size.size())
        throw failure("--radius: one number is wanted, or one for each axis of --size", exit_usage);
    for (size_t d = 0; d < size.size() && !corners.empty(); ++d)
        if (corners.size() != 6 || !(corners[d] < corners[d + 3]) || !std::isfinite(corners[d]) ||
            !std::isfinite(corners[d + 3]))
            throw failure("--box: X0,Y0,Z0,X1,Y1,Z1 are wanted, each of the first three below its fellow",
                          exit_usage);
    result.check(" .vti ", "a grid");
}

// Points with a value: a row of finite numbers whose first is not the null value.
std::vector<bool> rows_with_value(const typed_array &of, const std::optional<double> &null)
{
    std::vector<bool> wanted;
    wanted.reserve(static_cast<size_t>(of.count));
    with_values(of, [&](const auto *values) {
        using T = std::remove_cv_t<std::remove_pointer_t<decltype(values)>>;
        T null_value = 0;
        const bool has_null = null && value_in_type(of.type, *null, &null_value);
        for (qx_long i = 0; i < of.count; ++i) {
            const T *row = values + i * of.veclen;
            bool any = !(has_null && row[0] == null_value);
            if constexpr (std::is_floating_point_v<T>)
                any = any && std::all_of(row, row + of.veclen, [](T value) { return std::isfinite(value); });
            wanted.push_back(any);
        }
    });
    return wanted;
}

template <typename T>
component_bounds<T> bounds_of(const T *values, int veclen, const std::vector<qx_long> &rows)
{
    const T *first = values + rows.front() * veclen;
    component_bounds<T> bounds = {{first, first + veclen}, {first, first + veclen}};
    for (const qx_long row : rows)
        for (int c = 0; c < veclen; ++c) {
            const T value = values[row * veclen + c];
            T &lo = bounds.lo[static_cast<size_t>(c)], &hi = bounds.hi[static_cast<size_t>(c)];
            lo = std::min(lo, value);
            hi = std::max(hi, value);
        }
    return bounds;
}

// Integers are counted from the least one: that costs no digit, and single precision takes fewer of what is left.
template <typename T> double counted_from(T least, T value)
{
    if constexpr (std::is_floating_point_v<T>)
        return static_cast<double>(value);
    else
        return static_cast<double>(static_cast<uint64_t>(value) - static_cast<uint64_t>(least));
}

template <typename T> T back_from_count(T least, T most, double count)
{
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(count);
    } else {
        const double whole = std::round(count);
        if (whole >= counted_from(least, most)) return most;
        return static_cast<T>(static_cast<uint64_t>(least) + static_cast<uint64_t>(whole));
    }
}

// What is handed to the library: the values of some rows, and whether it takes digits off them.
struct counted_values {
    std::vector<double> values;
    bool is_rounded = false, is_cut = false;
};

counted_values count_values(const typed_array &of, const std::vector<qx_long> &rows)
{
    constexpr double whole_in_single = 1 << 24, most_spread = 1e38;
    counted_values made;
    made.values.reserve(rows.size() * static_cast<size_t>(of.veclen));
    with_values(of, [&](const auto *values) {
        using T = std::remove_cv_t<std::remove_pointer_t<decltype(values)>>;
        const component_bounds<T> bounds = bounds_of(values, of.veclen, rows);
        for (const qx_long row : rows)
            for (int c = 0; c < of.veclen; ++c)
                made.values.push_back(
                    counted_from(bounds.lo[static_cast<size_t>(c)], values[row * of.veclen + c]));
        for (const double value : made.values) {
            made.is_rounded = made.is_rounded || std::fabs(value) > whole_in_single;
            made.is_cut = made.is_cut || std::fabs(value) > most_spread;
        }
        if (std::is_floating_point_v<T>) made.is_rounded = std::is_same_v<T, double>;
    });
    return made;
}

grid_box scatter::chosen_box(const finite_points &points) const
{
    grid_box box = {};
    for (int d = 0; d < most_axes; ++d) {
        const auto k = static_cast<size_t>(d);
        box.min[d] = corners.empty() ? points.lo[d] : corners[k];
        box.max[d] = corners.empty() ? points.hi[d] : corners[k + 3];
        if (d < ndim && !(points.in_units(box.min[d], d) < points.in_units(box.max[d], d)))
            throw failure(
                file.path() + ": all " + "xyz"[d] + " of " +
                (corners.empty() ? "its points are equal; " : "the box are equal in single precision; ") +
                (d == 2 ? "--size NX,NY makes a flat grid" : "--box tells how large the grid is"));
    }
    return box;
}

// As many nodes to either side that some points reach a node, if they are spread evenly.
void scatter::choose_radius(int64_t npoints, int *radius) const
{
    constexpr double reaching = 6;
    double nodes = 1;
    for (int d = 0; d < ndim; ++d)
        nodes *= static_cast<double>(dims[d]);
    const double across = std::pow(reaching * nodes / static_cast<double>(npoints), 1.0 / ndim);
    for (int d = 0; d < ndim; ++d) {
        const auto k = static_cast<size_t>(d);
        if (!radii.empty())
            radius[d] = radii.size() == 1 ? radii[0] : radii[k];
        else
            radius[d] = static_cast<int>(
                std::min(std::max(1.0, std::ceil((across - 1) / 2)), static_cast<double>(dims[d])));
    }
}

// The result as the array's own type, with a mask: real types as they are, integers rounded. Returns how many nodes
// have no value.
template <typename T>
int64_t hand_over_values(const std::vector<double> &spread, const component_bounds<T> &bounds, T *out,
                         signed char *reached)
{
    int64_t empty = 0;
    const size_t veclen = bounds.lo.size();
    for (size_t i = 0; i < spread.size(); ++i) {
        const size_t c = i % veclen;
        const bool none = std::isnan(spread[i]);
        if (c == 0) {
            reached[i / veclen] = none ? 0 : 1;
            empty += none ? 1 : 0;
        }
        if (none && std::is_integral_v<T>)
            out[i] = T(0);
        else
            out[i] = back_from_count(bounds.lo[c], bounds.hi[c], spread[i]);
    }
    return empty;
}

void scatter::run()
{
    check();
    const input in = file.points();
    const typed_array of = array.choose(in).array;
    const std::vector<bool> has_value = rows_with_value(of, array.null);
    const finite_points points =
        finite_points_of(in.file.data, [&](qx_long i) { return has_value[static_cast<size_t>(i)]; });
    if (points.count() == 0) throw failure(file.path() + ": none of its points has a value");
    if (points.count() < of.count)
        say_note("left out for want of a value or a place: " + std::to_string(of.count - points.count()) +
                 " of " + std::to_string(of.count) + " points");
    const counted_values values = count_values(of, points.rows);
    if (values.is_rounded) say_note(of.name + " is spread in single precision");
    if (values.is_cut) say_note("values of " + of.name + " beyond 1e38 count as that");
    const grid_box box = chosen_box(points);
    int radius[most_axes] = {1, 1, 1};
    choose_radius(points.count(), radius);
    stage_done("read");

    const qx_long ngrid = dims[0] * dims[1] * dims[2];
    std::vector<double> spread(static_cast<size_t>(ngrid) * static_cast<size_t>(of.veclen));
    const double none = std::numeric_limits<double>::quiet_NaN();
    {
        float min[most_axes], max[most_axes];
        for (int d = 0; d < most_axes; ++d) {
            min[d] = points.in_units(box.min[d], d);
            max[d] = points.in_units(box.max[d], d);
        }
        int null_flag = 0;
        const operation working("scatter");
        working.check(UTILmt_scat_data_interp2(threads_for(ngrid), points.count(), 3, points.xyz.data(),
                                               DTYPE_DOUBLE, of.veclen, values.values.data(), min, max, ndim,
                                               dims, radius, power, &null_flag, &none, spread.data()) == 1,
                      file.path() + ": its values could not be spread");
    }
    double top[most_axes] = {box.max[0], box.max[1], ndim == 3 ? box.max[2] : box.min[2]};
    const auto made = lattice_to_vtk(dims, box.min, top);
    typed_array out = of;
    out.type = of.type == DTYPE_DOUBLE ? DTYPE_FLOAT : of.type;
    out.kept = new_vtk_array(out.type, of.veclen, ngrid, of.name);
    out.values = values_of(out.kept);
    const auto mask = new_vtk_array(DTYPE_CHAR, 1, ngrid, "vtkValidPointMask");
    auto *reached = static_cast<signed char *>(values_of(mask));
    int64_t empty = 0;
    with_values(of, [&](const auto *values_in) {
        using T = std::remove_cv_t<std::remove_pointer_t<decltype(values_in)>>;
        if constexpr (std::is_floating_point_v<T>) {
            const auto unused = static_cast<size_t>(of.veclen);
            empty = hand_over_values<float>(spread, {std::vector<float>(unused), std::vector<float>(unused)},
                                            static_cast<float *>(out.values), reached);
        } else {
            empty = hand_over_values(spread, bounds_of(values_in, of.veclen, points.rows),
                                     static_cast<T *>(out.values), reached);
        }
    });
    made->GetPointData()->AddArray(out.kept);
    if (of.veclen == 1) made->GetPointData()->SetActiveScalars(of.name.c_str());
    if (out.type != DTYPE_FLOAT) made->GetPointData()->AddArray(mask);
    stage_done("compute");

    std::string counts = std::to_string(dims[0]) + " x " + std::to_string(dims[1]) +
                         (ndim == 3 ? " x " + std::to_string(dims[2]) : "") + " nodes, of radius";
    for (int d = 0; d < ndim; ++d)
        counts += (d > 0 ? "," : " ") + std::to_string(radius[d]);
    if (empty > 0) counts += ", " + std::to_string(empty) + " of them out of reach";
    result.write(made, counts);
    if (!result.pictured()) return;
    drawing picture;
    picture.data = made;
    picture.colour_by = of.name;
    made->GetBounds(picture.box);
    result.draw(picture, counts);
}

} // namespace

extern const command_entry scatter_command{"scatter", "Spreads values at points onto a regular grid",
                                           make_command<scatter>};
