// The library places the copies; cells are the shape's, shifted from copy to copy.
#include "glyphs.hpp"

#include "failure.hpp"
#include "progress.hpp"
#include "read.hpp"

#include <skoklana.h>
#include <skoklana_host.h>

#include <vtkCellArray.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkFloatArray.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkTypeInt64Array.h>
#include <vtkVector.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>

// ---- shapes ---------------------------------------------------------------------------------------------------------

namespace {

// Bands around the x axis from (x0, r0) to (x1, r1). Each has nodes of its own, so that edges between bands are sharp.
struct band {
    double x0, r0, x1, r1;
};

glyph_shape turned(const std::vector<band> &bands, bool smooth)
{
    constexpr int sides = 12;
    const double turn = 2 * std::acos(-1.0) / sides;
    glyph_shape shape;
    const auto add_ring = [&](double x, double r) {
        const vtkIdType first = shape.nnodes();
        for (int k = 0; k < (r > 0 ? sides : 1); ++k)
            for (const double value : {x, r * std::cos(k * turn), r * std::sin(k * turn)})
                shape.coords.push_back(static_cast<float>(value));
        return first;
    };
    vtkIdType last = 0;
    for (size_t b = 0; b < bands.size(); ++b) {
        const vtkIdType lower = smooth && b > 0 ? last : add_ring(bands[b].x0, bands[b].r0);
        const vtkIdType upper = last = add_ring(bands[b].x1, bands[b].r1);
        for (int k = 0; k < sides; ++k) {
            const int next = (k + 1) % sides;
            std::vector<vtkIdType> nodes;
            if (bands[b].r0 > 0) nodes.push_back(lower + next);
            nodes.push_back(bands[b].r0 > 0 ? lower + k : lower);
            nodes.push_back(bands[b].r1 > 0 ? upper + k : upper);
            if (bands[b].r1 > 0) nodes.push_back(upper + next);
            shape.poly_sizes.push_back(static_cast<vtkIdType>(nodes.size()));
            shape.poly_nodes.insert(shape.poly_nodes.end(), nodes.begin(), nodes.end());
        }
    }
    return shape;
}

glyph_shape ball()
{
    constexpr int stacks = 8;
    std::vector<band> bands(stacks);
    const double half_turn = std::acos(-1.0);
    const auto at = [&](int i) { return half_turn * i / stacks; };
    const auto radius = [&](int i) { return i == 0 || i == stacks ? 0 : 0.5 * std::sin(at(i)); };
    for (int i = 0; i < stacks; ++i)
        bands[static_cast<size_t>(i)] = {-0.5 * std::cos(at(i)), radius(i), -0.5 * std::cos(at(i + 1)),
                                         radius(i + 1)};
    return turned(bands, true);
}

// Four nodes a side, so that its edges are sharp.
glyph_shape box()
{
    glyph_shape shape;
    for (int axis = 0; axis < 3; ++axis)
        for (const double end : {-0.5, 0.5})
            for (int corner = 0; corner < 4; ++corner) {
                const int turn =
                    end < 0 ? 3 - corner : corner; // seen from outside all go the same way around
                double at[3];
                at[axis] = end;
                at[(axis + 1) % 3] = turn == 1 || turn == 2 ? 0.5 : -0.5;
                at[(axis + 2) % 3] = turn > 1 ? 0.5 : -0.5;
                shape.poly_nodes.push_back(shape.nnodes());
                shape.coords.insert(shape.coords.end(), at, at + 3);
                if (corner == 3) shape.poly_sizes.push_back(4);
            }
    return shape;
}

void take_cells(vtkCellArray *cells, std::vector<vtkIdType> *sizes, std::vector<vtkIdType> *all)
{
    vtkIdType count;
    const vtkIdType *nodes;
    for (cells->InitTraversal(); cells->GetNextCell(count, nodes) != 0;) {
        sizes->push_back(count);
        all->insert(all->end(), nodes, nodes + count);
    }
}

glyph_shape shape_in(const std::string &path)
{
    const input_file file = read_file(path, {});
    auto *data = vtkPolyData::SafeDownCast(file.data);
    if (data == nullptr || data->GetNumberOfPolys() + data->GetNumberOfLines() == 0)
        throw failure(path +
                      ": is no shape: polygons or lines are wanted, such as of .vtp, .stl or .ply files");
    glyph_shape shape;
    for (vtkIdType i = 0; i < data->GetNumberOfPoints(); ++i) {
        double at[3];
        data->GetPoint(i, at);
        shape.coords.insert(shape.coords.end(), at, at + 3);
    }
    take_cells(data->GetLines(), &shape.line_sizes, &shape.line_nodes);
    take_cells(data->GetPolys(), &shape.poly_sizes, &shape.poly_nodes);
    return shape;
}

} // namespace

glyph_shape shape_named(const std::string &name)
{
    if (name == "arrow")
        return turned({{0, 0, 0, 0.03}, {0, 0.03, 0.65, 0.03}, {0.65, 0.03, 0.65, 0.1}, {0.65, 0.1, 1, 0}},
                      false);
    if (name == "cone") return turned({{0, 0, 0, 0.2}, {0, 0.2, 1, 0}}, false);
    if (name == "sphere") return ball();
    if (name == "cube") return box();
    return shape_in(name);
}

// ---- copies ---------------------------------------------------------------------------------------------------------

std::vector<double> lengths_of(const scalar_array &rows)
{
    const typed_array &array = rows.array;
    std::vector<double> lengths(static_cast<size_t>(array.count));
    with_values(array, [&](auto *values) {
        using T = std::remove_pointer_t<decltype(values)>;
        T null = 0;
        if (rows.null_flag != 0) memcpy(&null, rows.null_value(), sizeof null);
        for (qx_long i = 0; i < array.count; ++i) {
            const T *row = values + i * array.veclen;
            double square = 0;
            for (int c = 0; c < array.veclen; ++c)
                square += static_cast<double>(row[c]) * static_cast<double>(row[c]);
            lengths[static_cast<size_t>(i)] = rows.null_flag != 0 && row[0] == null
                                                  ? std::numeric_limits<double>::quiet_NaN()
                                                  : std::sqrt(square);
        }
    });
    return lengths;
}

namespace {

// The vectors of the nodes as three floats each, as they are and of length 1.
struct copied_vectors {
    std::vector<float> whole, unit;
};

} // namespace

static copied_vectors vectors_at(const typed_array &array, const std::vector<vtkIdType> &nodes)
{
    copied_vectors made = {std::vector<float>(3 * nodes.size()), std::vector<float>(3 * nodes.size())};
    with_values(array, [&](auto *values) {
        for (size_t i = 0; i < nodes.size(); ++i) {
            double v[3] = {0, 0, 0};
            for (int c = 0; c < std::min(array.veclen, 3); ++c)
                v[c] = static_cast<double>(values[nodes[i] * array.veclen + c]);
            const double length = std::hypot(v[0], v[1], v[2]);
            for (size_t c = 0; c < 3; ++c) {
                made.whole[3 * i + c] = static_cast<float>(v[c]);
                made.unit[3 * i + c] = static_cast<float>(v[c] / length);
            }
        }
    });
    return made;
}

static vtkSmartPointer<vtkCellArray> repeated(const std::vector<vtkIdType> &sizes,
                                              const std::vector<vtkIdType> &nodes, size_t copies,
                                              qx_long apart)
{
    auto offsets = vtkSmartPointer<vtkTypeInt64Array>::New(),
         connect = vtkSmartPointer<vtkTypeInt64Array>::New();
    const auto ncopies = static_cast<vtkIdType>(copies);
    offsets->SetNumberOfValues(ncopies * static_cast<vtkIdType>(sizes.size()) + 1);
    connect->SetNumberOfValues(ncopies * static_cast<vtkIdType>(nodes.size()));
    vtkTypeInt64 *offset = offsets->GetPointer(0), *node = connect->GetPointer(0), end = 0;
    *offset++ = 0;
    for (size_t copy = 0; copy < copies; ++copy) {
        for (const vtkIdType size : sizes)
            *offset++ = end += size;
        for (const vtkIdType corner : nodes)
            *node++ = corner + static_cast<qx_long>(copy) * apart;
    }
    auto cells = vtkSmartPointer<vtkCellArray>::New();
    cells->SetData(offsets, connect);
    return cells;
}

// Where coordinates are so far from 0 that float does not hold small shapes apart: the middle of the data, around
// which they are placed. Else 0.
static vtkVector3d offset_of(const double box[6])
{
    const vtkVector3d middle((box[0] + box[1]) / 2, (box[2] + box[3]) / 2, (box[4] + box[5]) / 2);
    const double far = std::max({std::abs(middle[0]), std::abs(middle[1]), std::abs(middle[2])}),
                 length = std::hypot(box[1] - box[0], box[3] - box[2], box[5] - box[4]);
    return far > 10 * length ? middle : vtkVector3d(0, 0, 0);
}

vtkSmartPointer<vtkPolyData> place_glyphs(const std::string &path, vtkDataSet *data, const glyph_shape &shape,
                                          const glyph_options &options)
{
    const size_t n = options.nodes.size();
    const qx_long each = shape.nnodes(), rows = static_cast<qx_long>(n) * each;
    constexpr qx_long most_rows = qx_long{1} << 31; // 50 GB
    if (rows > most_rows)
        throw failure(path + ": " + std::to_string(n) + " glyphs of " + std::to_string(each) +
                      " nodes are too many; take fewer with --every N");
    const vtkVector3d offset = offset_of(options.box);
    std::vector<float> places(3 * n);
    for (size_t i = 0; i < n; ++i) {
        double at[3];
        data->GetPoint(options.nodes[i], at);
        for (size_t d = 0; d < 3; ++d)
            places[3 * i + d] = static_cast<float>(at[d] - offset[static_cast<int>(d)]);
    }
    const copied_vectors vectors = vectors_at(*options.vectors, options.nodes);
    const std::vector<float> lengths(options.lengths.begin(), options.lengths.end()),
        values(options.values.begin(), options.values.end());

    auto coords = vtkSmartPointer<vtkFloatArray>::New();
    coords->SetNumberOfComponents(3);
    coords->SetNumberOfTuples(rows);
    const auto repeated_values = new_vtk_array(DTYPE_FLOAT, 1, rows, options.value_name);
    const auto repeated_vectors = new_vtk_array(DTYPE_FLOAT, 3, rows, options.vectors->name);

    const operation run("glyphs");
    const std::unique_ptr<host_field, decltype(&host_free_field)> field(
        host_cells(static_cast<qx_long>(n), 3, places.data()), host_free_field);
    mesh_info *mesh = field != nullptr ? host_mesh(field.get()) : nullptr;
    if (mesh == nullptr) throw failure(path + ": glyphs: " + host_error());
    const int axes[3] = {1, 1, 1};
    // Sized by lengths apart from the vectors, whose squares a float might not hold.
    run.check(UTILglyph_func(mesh, DTYPE_FLOAT, 3, vectors.unit.data(), 0, nullptr, 1, 1, lengths.data(),
                             values.data(), 1, 0, 0, 1, axes, nullptr, each, 3, shape.coords.data(), nullptr,
                             3, coords->GetPointer(0), values_of(repeated_values)) == 1,
              path + ": glyphs");
    auto *row = static_cast<float *>(values_of(repeated_vectors));
    for (size_t i = 0; i < n; ++i)
        for (qx_long g = 0; g < each; ++g, row += 3)
            std::copy_n(&vectors.whole[3 * i], 3, row);

    auto points = vtkSmartPointer<vtkPoints>::New();
    if (offset == vtkVector3d(0, 0, 0)) {
        points->SetData(coords);
    } else {
        points->SetDataTypeToDouble();
        points->SetNumberOfPoints(rows);
        for (vtkIdType i = 0; i < rows; ++i) {
            const float *at = coords->GetPointer(3 * i);
            points->SetPoint(i, at[0] + offset[0], at[1] + offset[1], at[2] + offset[2]);
        }
    }
    auto made = vtkSmartPointer<vtkPolyData>::New();
    made->SetPoints(points);
    if (!shape.line_sizes.empty()) made->SetLines(repeated(shape.line_sizes, shape.line_nodes, n, each));
    if (!shape.poly_sizes.empty()) made->SetPolys(repeated(shape.poly_sizes, shape.poly_nodes, n, each));
    made->GetPointData()->AddArray(repeated_values);
    made->GetPointData()->AddArray(repeated_vectors);
    made->GetPointData()->SetActiveScalars(options.value_name.c_str());
    return made;
}
