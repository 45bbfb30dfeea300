// The exact form stands on the host's location and sampling.
//
// By the library's own sampling, points are located once for each element type that the node arrays have: arrays
// of one type go through the library in one call. One more array of ones in the float call tells which points are
// inside. The library finds a cell for a null value by asking whether the output holds the null value that it was
// given, so each array gets one that its data does not hold: NaN, which equals nothing, or an unused integer, for
// which arrays that use all of their type's values are widened.
#include "probe.hpp"

#include "failure.hpp"
#include "host_results.hpp"
#include "join_pieces.hpp"
#include "progress.hpp"
#include "threads.hpp"

#include <skoklana/array.h>
#include <skoklana/host/om.h>
#include <skoklana/locate.h>

#include <vtkDataArray.h>
#include <vtkDataSet.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <type_traits>

// ---- points -------------------------------------------------------------------------------------------------

probe_points lattice_over(const double box[6], const qx_long dims[3])
{
    probe_points points;
    points.lattice = true;
    for (int d = 0; d < 3; ++d) {
        points.dims[d] = dims[d];
        points.lo[d] = box[2 * d];
        points.hi[d] = box[2 * d + 1];
        if (dims[d] == 1) points.lo[d] = points.hi[d] = points.lo[d] + (points.hi[d] - points.lo[d]) / 2;
    }
    const auto at = [&](int d, qx_long i) { // the ends exactly
        if (i == 0 || dims[d] == 1) return points.lo[d];
        if (i == dims[d] - 1) return points.hi[d];
        return points.lo[d] +
               (points.hi[d] - points.lo[d]) * static_cast<double>(i) / static_cast<double>(dims[d] - 1);
    };
    points.xyz.reserve(static_cast<size_t>(dims[0] * dims[1] * dims[2]) * 3);
    for (qx_long k = 0; k < dims[2]; ++k)
        for (qx_long j = 0; j < dims[1]; ++j)
            for (qx_long i = 0; i < dims[0]; ++i)
                for (const double value : {at(0, i), at(1, j), at(2, k)})
                    points.xyz.push_back(value);
    return points;
}

probe_points points_on_line(const double a[3], const double b[3], qx_long n)
{
    probe_points points;
    points.xyz.reserve(static_cast<size_t>(n) * 3);
    for (qx_long i = 0; i < n; ++i)
        for (int d = 0; d < 3; ++d)
            points.xyz.push_back(i == n - 1 && n > 1
                                     ? b[d]
                                     : a[d] + (b[d] - a[d]) * static_cast<double>(i) /
                                                  static_cast<double>(std::max<qx_long>(n - 1, 1)));
    return points;
}

// In the coordinates of the mesh.
template <typename T> static std::vector<T> mesh_points(const input_mesh &mesh, const probe_points &points)
{
    std::vector<T> xyz(points.xyz.size());
    for (size_t i = 0; i < xyz.size(); ++i)
        xyz[i] = static_cast<T>(points.xyz[i] - mesh.offset[i % 3]);
    return xyz;
}

// ---- rows ---------------------------------------------------------------------------------------------------

// Floats of rows that have no value are NaN.
static void blank(const typed_array &array, const std::vector<unsigned char> &inside)
{
    with_values(array, [&](auto *values) {
        using T = std::remove_reference_t<decltype(*values)>;
        for (size_t i = 0; i < inside.size(); ++i)
            if (inside[i] == 0)
                std::fill_n(values + i * static_cast<size_t>(array.veclen), array.veclen,
                            std::numeric_limits<T>::quiet_NaN()); // 0 for integers
    });
}

// Rows of a cell array, by VTK's cell of each point or -1.
static typed_array rows_of_cells(const typed_array &array, const std::vector<qx_long> &cells)
{
    typed_array out = like(array, static_cast<qx_long>(cells.size()));
    const size_t row = static_cast<size_t>(out.kept->GetDataTypeSize()) * static_cast<size_t>(array.veclen);
    for (size_t i = 0; i < cells.size(); ++i)
        if (cells[i] >= 0)
            memcpy(static_cast<char *>(out.values) + i * row,
                   static_cast<const char *>(array.values) + static_cast<size_t>(cells[i]) * row, row);
    return out;
}

// ---- pieces -------------------------------------------------------------------------------------------------

namespace {

// The order in which the whole looks at cells, and what in it goes by the whole's size.
class piece_order {
  public:
    piece_order(const probed_piece &of_, const input_mesh &mesh_) : of(of_), mesh(mesh_)
    {
        double sum = 0;
        for (int d = 0; d < 3; ++d) {
            low[d] = static_cast<float>(of.whole_box[2 * d] - mesh.offset[d]);
            high[d] = static_cast<float>(of.whole_box[2 * d + 1] - mesh.offset[d]);
            const double length = static_cast<double>(high[d]) - static_cast<double>(low[d]);
            sum += length * length;
        }
        tolerance = 1e-6 * std::sqrt(sum);
        is_lattice = extent_of(mesh.data, extent);
        if (is_lattice) return;
        rank_of_cell.resize(static_cast<size_t>(mesh.data->GetNumberOfCells()));
        for (const input_set &set : mesh.sets)
            for (qx_long i = 0; i < set.ncells; ++i)
                rank_of_cell[static_cast<size_t>(set.vtk_cell(i))] =
                    static_cast<unsigned char>(2 * set.file_kind + set.file_order - 1);
    }

    // Of VTK's number of a cell. Lattices count through the whole, cells of sets by kind and order first.
    int64_t of_cell(qx_long cell) const
    {
        if (is_lattice) {
            int64_t number = 0, stride = 1;
            for (int d = 0; d < 3; ++d) {
                const qx_long cells = std::max(extent[2 * d + 1] - extent[2 * d], 1);
                number += stride * (cell % cells + extent[2 * d] - of.whole_extent[2 * d]);
                cell /= cells;
                stride *= std::max(of.whole_extent[2 * d + 1] - of.whole_extent[2 * d], 1);
            }
            return number;
        }
        return (int64_t{rank_of_cell[static_cast<size_t>(cell)]} << 54) +
               (static_cast<int64_t>(of.number) << 30) + cell;
    }

    // Follows all orders of cells.
    static constexpr int64_t last = int64_t{1} << 59;

    float low[3], high[3];
    double tolerance; // what host_locator_options has where it is not told

  private:
    const probed_piece &of;
    const input_mesh &mesh;
    int extent[6];
    bool is_lattice;
    std::vector<unsigned char> rank_of_cell; // by kind and order, as sets go
};

} // namespace

// ---- exactly ------------------------------------------------------------------------------------------------

namespace {

struct host_release {
    void operator()(host_locator *locator) const { host_free_locator(locator); }
    void operator()(host_places *places) const { host_free_places(places); }
};

void check_host(int result, const operation &run, const std::string &what)
{
    if (result == HOST_STOPPED) run.check(false, what);
    if (result != HOST_DONE) throw failure(what + " failed: " + host_error());
}

// Points that a cell holds go before those within the tolerance of one.
void order_answers(const input_mesh &mesh, const piece_order &order, const host_array &at,
                   const host_places &places, const std::vector<qx_long> &cells, const operation &run,
                   const std::string &what, probed *out)
{
    const host_locator_options strictly = {sizeof strictly, -1, threads_for(places.npoints)};
    host_locator *locator = nullptr;
    check_host(host_make_locator(mesh.field, &strictly, &locator), run, what);
    const std::unique_ptr<host_locator, host_release> owned_locator(locator);
    host_places *found = nullptr;
    check_host(host_locate(locator, &at, places.npoints, &found), run, what);
    const std::unique_ptr<host_places, host_release> held(found);
    for (size_t i = 0; i < cells.size(); ++i)
        out->order.push_back(cells[i] < 0
                                 ? probed_piece::none
                                 : order.of_cell(cells[i]) + (held->cell[i] < 0 ? piece_order::last : 0));
}

} // namespace

probed probe_exactly(const std::string &path, input_mesh &mesh, const probe_points &points,
                     const std::vector<typed_array> &node, const std::vector<typed_array> &cell,
                     const probed_piece *of)
{
    const std::string what = path + ": sampling";
    const operation run("sampling");
    host_locator *locator = nullptr;
    const std::optional<piece_order> order =
        of != nullptr ? std::make_optional<piece_order>(*of, mesh) : std::nullopt;
    const host_locator_options how = {sizeof how, order ? order->tolerance : 0, threads_for(points.count())};
    check_host(host_make_locator(mesh.field, &how, &locator), run, what);
    const std::unique_ptr<host_locator, host_release> owned_locator(locator);

    const std::vector<double> xyz = mesh_points<double>(mesh, points);
    const host_array at = {xyz.data(), DTYPE_DOUBLE, 3, nullptr};
    host_places *found = nullptr;
    check_host(host_locate(locator, &at, points.count(), &found), run, what);
    const std::unique_ptr<host_places, host_release> places(found);

    probed out;
    out.inside.resize(static_cast<size_t>(points.count()));
    for (size_t i = 0; i < out.inside.size(); ++i)
        out.inside[i] = places->cell[i] >= 0 ? 1 : 0;
    for (const typed_array &array : node) {
        out.arrays.push_back(like(array, points.count()));
        const host_array values = {array.values, array.type, array.veclen, nullptr};
        check_host(host_sample_nodes(places.get(), &values, out.arrays.back().values, nullptr), run, what);
        blank(out.arrays.back(), out.inside);
    }
    if (cell.empty() && !order) return out;
    const std::vector<qx_long> cells = vtk_cells_of(mesh, places->npoints, places->cell);
    if (order) order_answers(mesh, *order, at, *places, cells, run, what, &out);
    for (const typed_array &array : cell) {
        out.arrays.push_back(rows_of_cells(array, cells));
        blank(out.arrays.back(), out.inside);
    }
    return out;
}

// ---- by the library's own sampling --------------------------------------------------------------------------

namespace {

struct table_release {
    void operator()(blk_tbl *table) const { host_free_table(table); }
    void operator()(blk_tbl_unif *table) const { UTILinterp_end2(table); }
};
using table_ptr = std::unique_ptr<blk_tbl, table_release>;
using lattice_table_ptr = std::unique_ptr<blk_tbl_unif, table_release>;

// One value of an array's type.
struct null_slot {
    double bits = 0;
};

// A value that the array does not hold. False: it holds every value of its type.
bool find_unused(const typed_array &array, null_slot *slot)
{
    bool found = true;
    with_values(array, [&](const auto *values) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(*values)>>;
        T candidate = std::numeric_limits<T>::quiet_NaN();
        if constexpr (std::is_integral_v<T>) {
            const T *end = values + array.count * array.veclen;
            candidate = std::numeric_limits<T>::lowest();
            while (std::find(values, end, candidate) != end && candidate != std::numeric_limits<T>::max())
                ++candidate;
            found = std::find(values, end, candidate) == end;
        }
        memcpy(&slot->bits, &candidate, sizeof candidate);
    });
    return found;
}

// The same values in another type, which holds them.
typed_array converted(const typed_array &array, int type)
{
    typed_array out = array;
    out.type = type;
    out = like(out, array.count);
    with_values(array, [&](const auto *from) {
        with_values(out, [&](auto *to) {
            for (qx_long i = 0; i < array.count * array.veclen; ++i)
                to[i] = static_cast<std::remove_reference_t<decltype(*to)>>(from[i]);
        });
    });
    return out;
}

// One probe: the mesh, its table, the points, and where to put what.
class prober {
  public:
    prober(const std::string &path, input_mesh &mesh_, const probe_points &points_, const probed_piece *of)
        : what(path + ": sampling"), mesh(mesh_), points(points_), xyz(mesh_points<float>(mesh_, points_)),
          run("sampling")
    {
        if (of == nullptr) return;
        order.emplace(*of, mesh);
        std::copy_n(order->low, 3, mesh.mesh->min_ext); // blocks and tolerances are those of the whole
        std::copy_n(order->high, 3, mesh.mesh->max_ext);
    }
    probed all(const std::vector<typed_array> &node, const std::vector<typed_array> &cell);

  private:
    void build_table();
    std::vector<typed_array> sample(const std::vector<typed_array> &from);
    std::vector<qx_long> find_cells();

    std::string what;
    input_mesh &mesh;
    const probe_points &points;
    std::vector<float> xyz;
    operation run;
    std::optional<piece_order> order;
    table_ptr table;
    lattice_table_ptr lattice_table;
};

// Cell sets and curvilinear meshes sampled on a lattice get the table whose blocks are the lattice's own nodes;
// uniform and rectilinear meshes find their cells by arithmetic and get none.
void prober::build_table()
{
    int done = 1;
    if (points.lattice && (mesh.kind == "curvilinear" || mesh.kind == "cell sets")) {
        blk_tbl_unif *made = nullptr;
        const auto build = mesh.structured() ? UTILinterp_init_struct2 : UTILinterp_init2;
        float lo[3], hi[3];
        for (int d = 0; d < 3; ++d) {
            lo[d] = static_cast<float>(points.lo[d] - mesh.offset[d]);
            hi[d] = static_cast<float>(points.hi[d] - mesh.offset[d]);
        }
        done = build(mesh.mesh, nullptr, 3, points.dims, 3, lo, hi, 0, &made);
        if (done == 1) lattice_table.reset(made);
    } else {
        blk_tbl *made = nullptr;
        done = mesh.mesh->methods->interp_init_func(mesh.mesh, &made);
        if (done == 1) table.reset(made);
    }
    run.check(done == 1, what);
}

// Arrays of one type in one call.
std::vector<typed_array> prober::sample(const std::vector<typed_array> &from)
{
    const size_t n = from.size();
    std::vector<typed_array> to;
    std::vector<int> veclens(n), flags(n, 1);
    std::vector<void *> data(n), out(n);
    std::vector<null_slot> nulls(n), unused(n);
    for (size_t i = 0; i < n; ++i) {
        to.push_back(like(from[i], points.count()));
        veclens[i] = from[i].veclen;
        data[i] = from[i].values;
        out[i] = to.back().values;
        find_unused(from[i], &nulls[i]);
    }
    int done;
    if (lattice_table != nullptr)
        done = UTILinterpolate_data_to_unif(
            points.count(), xyz.data(), 3, nullptr, mesh.mesh, lattice_table.get(), static_cast<int>(n),
            from[0].type, veclens.data(), data.data(), nulls.data(), flags.data(), 0, out.data());
    else
        done =
            UTILinterpolate_data(points.count(), xyz.data(), 3, nullptr, mesh.mesh, table.get(),
                                 static_cast<int>(n), from[0].type, veclens.data(), data.data(),
                                 unused.data(), unused.data(), flags.data(), nulls.data(), 0, 0, out.data());
    run.check(done == 1, what);
    return to;
}

// VTK's number of the cell that holds each point, or -1.
std::vector<qx_long> prober::find_cells()
{
    std::vector<qx_long> cell(static_cast<size_t>(points.count()), -1);
    for (qx_long i = 0; i < points.count(); ++i) {
        int stop = 0, set = -1;
        if (i % 256 == 0) OMstatus_check(static_cast<int>(i * 100 / points.count()), nullptr, &stop);
        if (stop != 0) run.check(false, what);
        float uvw[3];
        qx_long found, local, &number = cell[static_cast<size_t>(i)];
        if (mesh.mesh->methods->find_cell_func(mesh.mesh, table.get(), &xyz[static_cast<size_t>(i * 3)],
                                               &found, uvw) != 1)
            continue;
        if (mesh.structured()) { // the cell's lowest node; cells have a node less along each axis
            number = 0;
            qx_long stride = 1;
            for (const qx_long dim : mesh.dims) {
                number += stride * std::min(found % dim, std::max<qx_long>(dim - 2, 0));
                found /= dim;
                stride *= std::max<qx_long>(dim - 1, 1);
            }
        } else if (UTILget_cell_id(mesh.mesh, found, &local, &set) == 1) {
            number = mesh.vtk_cell(static_cast<size_t>(set), local);
        }
    }
    return cell;
}

probed prober::all(const std::vector<typed_array> &node, const std::vector<typed_array> &cell)
{
    // by type, with the place of each among the results
    std::vector<typed_array> groups[DTYPE_QX_LONG + 1];
    std::vector<size_t> places[DTYPE_QX_LONG + 1];
    typed_array ones;
    ones = like(ones, mesh.nnodes);
    std::fill_n(static_cast<float *>(ones.values), mesh.nnodes, 1.0f);
    groups[DTYPE_FLOAT].push_back(ones);
    places[DTYPE_FLOAT].push_back(node.size());
    for (size_t i = 0; i < node.size(); ++i) {
        null_slot slot;
        typed_array array = node[i];
        while (!find_unused(array, &slot))
            array = converted(array, array.type <= DTYPE_BYTE    ? DTYPE_SHORT
                                     : array.type == DTYPE_SHORT ? DTYPE_INT
                                                                 : DTYPE_QX_LONG);
        groups[array.type].push_back(array);
        places[array.type].push_back(i);
    }
    const int nparts = static_cast<int>(std::count_if(std::begin(groups), std::end(groups),
                                                      [](const auto &group) { return !group.empty(); })) +
                       (cell.empty() && !order ? 0 : 1);
    int part = 0;
    build_table();
    std::vector<typed_array> sampled(node.size() + 1);
    for (size_t type = 0; type <= DTYPE_QX_LONG; ++type) {
        if (groups[type].empty()) continue;
        const status_part share(part++, nparts);
        const auto made = sample(groups[type]);
        for (size_t i = 0; i < made.size(); ++i)
            sampled[places[type][i]] = made[i];
    }

    probed out;
    const auto *inside = static_cast<const float *>(sampled.back().values);
    for (qx_long i = 0; i < points.count(); ++i)
        out.inside.push_back(std::isnan(inside[i]) ? 0 : 1);
    for (size_t i = 0; i < node.size(); ++i) {
        // rows outside hold what stood for null, which a narrower type may not
        blank(sampled[i], out.inside);
        out.arrays.push_back(sampled[i].type == node[i].type ? sampled[i]
                                                             : converted(sampled[i], node[i].type));
    }
    if (cell.empty() && !order) return out;
    const status_part share(part, nparts);
    if (lattice_table != nullptr) { // cells are found by the table for points anywhere
        lattice_table.reset();
        blk_tbl *made = nullptr;
        run.check(mesh.mesh->methods->interp_init_func(mesh.mesh, &made) == 1, what);
        table.reset(made);
    }
    const std::vector<qx_long> cells = find_cells();
    std::vector<unsigned char> found(cells.size());
    std::transform(cells.begin(), cells.end(), found.begin(),
                   [](qx_long one) -> unsigned char { return one >= 0 ? 1 : 0; });
    if (order) {
        // Block tables give the cell of the highest number first, lattices the lowest.
        const bool highest = mesh.kind == "curvilinear" || mesh.kind == "cell sets";
        for (size_t i = 0; i < cells.size(); ++i) {
            const int64_t place = cells[i] < 0 ? piece_order::last
                                  : highest    ? piece_order::last - 1 - order->of_cell(cells[i])
                                               : order->of_cell(cells[i]);
            out.order.push_back(out.inside[i] != 0 || cells[i] >= 0 ? place : probed_piece::none);
        }
    }
    for (const typed_array &array : cell) {
        out.arrays.push_back(rows_of_cells(array, cells));
        blank(out.arrays.back(), found);
    }
    return out;
}

} // namespace

probed probe_by_library(const std::string &path, input_mesh &mesh, const probe_points &points,
                        const std::vector<typed_array> &node, const std::vector<typed_array> &cell,
                        const probed_piece *of)
{
    return prober(path, mesh, points, of).all(node, cell);
}
