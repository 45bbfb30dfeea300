// Points are located once for each element type that the node arrays have: arrays of one type go through the
// library in one call. One more array of ones in the float call tells which points are inside. The library
// finds a cell for a null value by asking whether the output holds the null value that it was given, so each
// component gets one that its data does not hold: NaN, which equals nothing, or an unused integer.
//
// Cell arrays are gathered by the cell of each point, found once for all of them.
#include "probe.hpp"

#include "failure.hpp"
#include "progress.hpp"

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

namespace {

struct freed {
    void operator()(blk_tbl *table) const { host_free_table(table); }
    void operator()(blk_tbl_unif *table) const { UTILinterp_end2(table); }
};
using table_ptr = std::unique_ptr<blk_tbl, freed>;
using lattice_table_ptr = std::unique_ptr<blk_tbl_unif, freed>;

// One value of an array's type.
struct null_slot {
    double bits = 0;
};

template <typename T> void unused_integer(const typed_array &array, null_slot *slot)
{
    const T *values = static_cast<const T *>(array.values), *end = values + array.count * array.veclen;
    T candidate = std::numeric_limits<T>::lowest();
    // a byte array may hold every value there is; then the least one stands for null too
    while (std::find(values, end, candidate) != end && candidate != std::numeric_limits<T>::max())
        ++candidate;
    if (std::find(values, end, candidate) != end) candidate = std::numeric_limits<T>::lowest();
    memcpy(&slot->bits, &candidate, sizeof candidate);
}

template <typename T> void not_a_number(null_slot *slot)
{
    const T nan = std::numeric_limits<T>::quiet_NaN();
    memcpy(&slot->bits, &nan, sizeof nan);
}

null_slot null_of(const typed_array &array)
{
    null_slot slot;
    switch (array.type) {
    case DTYPE_CHAR: unused_integer<signed char>(array, &slot); break;
    case DTYPE_BYTE: unused_integer<unsigned char>(array, &slot); break;
    case DTYPE_SHORT: unused_integer<short>(array, &slot); break;
    case DTYPE_INT: unused_integer<int>(array, &slot); break;
    case DTYPE_FLOAT: not_a_number<float>(&slot); break;
    case DTYPE_DOUBLE: not_a_number<double>(&slot); break;
    default: unused_integer<qx_long>(array, &slot);
    }
    return slot;
}

} // namespace

probe_points lattice_over(const input_mesh &mesh, const qx_long dims[3])
{
    probe_points points;
    points.lattice = true;
    for (int d = 0; d < 3; ++d) {
        points.dims[d] = dims[d];
        points.lo[d] = mesh.mesh->min_ext[d];
        points.hi[d] = mesh.mesh->max_ext[d];
        if (dims[d] == 1) points.lo[d] = points.hi[d] = points.lo[d] + (points.hi[d] - points.lo[d]) / 2;
    }
    const auto at = [&](int d, qx_long i) { // the ends exactly
        if (i == 0 || dims[d] == 1) return points.lo[d];
        if (i == dims[d] - 1) return points.hi[d];
        return points.lo[d] +
               (points.hi[d] - points.lo[d]) * static_cast<float>(i) / static_cast<float>(dims[d] - 1);
    };
    points.xyz.reserve(static_cast<size_t>(dims[0] * dims[1] * dims[2]) * 3);
    for (qx_long k = 0; k < dims[2]; ++k)
        for (qx_long j = 0; j < dims[1]; ++j)
            for (qx_long i = 0; i < dims[0]; ++i)
                for (const float value : {at(0, i), at(1, j), at(2, k)})
                    points.xyz.push_back(value);
    return points;
}

probe_points points_on_line(const float a[3], const float b[3], qx_long n)
{
    probe_points points;
    for (qx_long i = 0; i < n; ++i)
        for (int d = 0; d < 3; ++d)
            points.xyz.push_back(i == n - 1 && n > 1
                                     ? b[d]
                                     : a[d] + (b[d] - a[d]) * static_cast<float>(i) /
                                                  static_cast<float>(std::max<qx_long>(n - 1, 1)));
    return points;
}

namespace {

// One probe: the mesh, its table, the points, and where to put what.
class prober {
  public:
    prober(const std::string &path, input_mesh &mesh_, const probe_points &points_)
        : what(path + ": sampling"), mesh(mesh_), points(points_), run("sampling")
    {
    }
    std::vector<typed_array> all(const std::vector<typed_array> &node, const std::vector<typed_array> &cell);

  private:
    void build_table();
    void sample(const std::vector<typed_array> &from, std::vector<typed_array> *to);
    void find_cells(qx_long *cell);

    std::string what;
    input_mesh &mesh;
    const probe_points &points;
    operation run;
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
        done = build(mesh.mesh, nullptr, 3, points.dims, 3, points.lo, points.hi, 0, &made);
        if (done == 1) lattice_table.reset(made);
    } else {
        blk_tbl *made = nullptr;
        done = mesh.mesh->methods->interp_init_func(mesh.mesh, &made);
        if (done == 1) table.reset(made);
    }
    run.check(done == 1, what);
}

// Arrays of one type in one call.
void prober::sample(const std::vector<typed_array> &from, std::vector<typed_array> *to)
{
    const size_t n = from.size();
    std::vector<int> veclens(n), flags(n, 1);
    std::vector<void *> data(n), out(n);
    std::vector<null_slot> nulls(n), unused(n);
    for (size_t i = 0; i < n; ++i) {
        to->push_back(like(from[i], points.count()));
        veclens[i] = from[i].veclen;
        data[i] = from[i].values;
        out[i] = to->back().values;
        nulls[i] = null_of(from[i]);
    }
    int done;
    if (lattice_table != nullptr)
        done = UTILinterpolate_data_to_unif(points.count(), points.xyz.data(), 3, nullptr, mesh.mesh,
                                            lattice_table.get(), static_cast<int>(n), from[0].type,
                                            veclens.data(), data.data(), nulls.data(), flags.data(), 0,
                                            out.data());
    else
        done =
            UTILinterpolate_data(points.count(), points.xyz.data(), 3, nullptr, mesh.mesh, table.get(),
                                 static_cast<int>(n), from[0].type, veclens.data(), data.data(),
                                 unused.data(), unused.data(), flags.data(), nulls.data(), 0, 0, out.data());
    run.check(done == 1, what);
}

// VTK's number of the cell that holds each point, or -1.
void prober::find_cells(qx_long *cell)
{
    for (qx_long i = 0; i < points.count(); ++i) {
        int stop = 0, set = -1;
        if (i % 256 == 0) OMstatus_check(static_cast<int>(i * 100 / points.count()), nullptr, &stop);
        if (stop != 0) return run.check(false, what);
        float uvw[3];
        qx_long found, local;
        cell[i] = -1;
        if (mesh.mesh->methods->find_cell_func(mesh.mesh, table.get(),
                                               &points.xyz[static_cast<size_t>(i * 3)], &found, uvw) != 1)
            continue;
        if (mesh.structured()) { // the cell's lowest node; cells have a node less along each axis
            cell[i] = 0;
            qx_long stride = 1;
            for (const qx_long dim : mesh.dims) {
                cell[i] += stride * std::min(found % dim, std::max<qx_long>(dim - 2, 0));
                found /= dim;
                stride *= std::max<qx_long>(dim - 1, 1);
            }
        } else if (UTILget_cell_id(mesh.mesh, found, &local, &set) == 1) {
            cell[i] = mesh.sets[static_cast<size_t>(set)].vtk_cell(local);
        }
    }
}

std::vector<typed_array> prober::all(const std::vector<typed_array> &node,
                                     const std::vector<typed_array> &cell)
{
    typed_array ones;
    ones.name = "vtkValidPointMask";
    ones = like(ones, mesh.nnodes);
    std::fill_n(static_cast<float *>(ones.values), mesh.nnodes, 1.0f);

    std::vector<typed_array> groups[DTYPE_QX_LONG + 1], sampled;
    for (const typed_array &array : node)
        groups[array.type].push_back(array);
    groups[DTYPE_FLOAT].push_back(ones);
    const int ngroups = static_cast<int>(std::count_if(std::begin(groups), std::end(groups),
                                                       [](const auto &group) { return !group.empty(); }));
    const int nparts = ngroups + (cell.empty() ? 0 : 1);
    int part = 0;
    build_table();
    for (const auto &group : groups) {
        if (group.empty()) continue;
        const status_part share(part++, nparts);
        sample(group, &sampled);
    }

    // as in the file: node arrays in their order, then cell arrays, then the mask
    std::vector<typed_array> out;
    out.reserve(node.size() + cell.size() + 1);
    for (const typed_array &array : node)
        out.push_back(*std::find_if(sampled.begin(), sampled.end(),
                                    [&](const typed_array &made) { return made.name == array.name; }));
    if (!cell.empty()) {
        const status_part share(part, nparts);
        std::vector<qx_long> cells(static_cast<size_t>(points.count()));
        if (lattice_table != nullptr) { // cells are found by the table for points anywhere
            lattice_table.reset();
            blk_tbl *made = nullptr;
            run.check(mesh.mesh->methods->interp_init_func(mesh.mesh, &made) == 1, what);
            table.reset(made);
        }
        find_cells(cells.data());
        for (const typed_array &array : cell) {
            out.push_back(like(array, points.count()));
            const null_slot null = null_of(array);
            const size_t element = static_cast<size_t>(out.back().kept->GetDataTypeSize());
            const size_t row = element * static_cast<size_t>(array.veclen);
            for (size_t i = 0; i < cells.size(); ++i) {
                char *to = static_cast<char *>(out.back().values) + i * row;
                if (cells[i] >= 0)
                    memcpy(to, static_cast<const char *>(array.values) + static_cast<size_t>(cells[i]) * row,
                           row);
                else
                    for (size_t at = 0; at < row; at += element)
                        memcpy(to + at, &null.bits, element);
            }
        }
    }

    const typed_array &inside = sampled[static_cast<size_t>(
        std::find_if(sampled.begin(), sampled.end(),
                     [](const typed_array &made) { return made.name == "vtkValidPointMask"; }) -
        sampled.begin())];
    typed_array mask = inside;
    mask.type = DTYPE_CHAR;
    mask = like(mask, points.count());
    for (qx_long i = 0; i < points.count(); ++i)
        static_cast<signed char *>(mask.values)[i] =
            std::isnan(static_cast<float *>(inside.values)[i]) ? 0 : 1;
    out.push_back(mask);
    return out;
}

} // namespace

std::vector<typed_array> probe(const std::string &path, input_mesh &mesh, const probe_points &points,
                               const std::vector<typed_array> &node, const std::vector<typed_array> &cell)
{
    return prober(path, mesh, points).all(node, cell);
}
