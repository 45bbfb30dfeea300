// A list that is the only one of its kind, in VTK's order and numbered from 0 becomes VTK's without a copy.
#include "carry.hpp"

#include "cell_order.hpp"
#include "join_pieces.hpp"

#include <skoklana/array.h>
#include <skoklana/host/tool.h>
#include <skoklana/iso.h>

#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDoubleArray.h>
#include <vtkFloatArray.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkTypeInt64Array.h>
#include <vtkUnsignedCharArray.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <utility>

std::vector<typed_array> rows_of(const std::vector<typed_array> &arrays, const std::vector<qx_long> &rows)
{
    std::vector<typed_array> out;
    for (const typed_array &array : arrays) {
        out.push_back(like(array, static_cast<qx_long>(rows.size())));
        if (rows.empty()) continue;
        UTILcopy_array_list(0, array.veclen, array.type, array.values, out.back().count, rows.data(),
                            out.back().values);
    }
    return out;
}

std::vector<qx_long> drop_unused(qx_long count, const std::vector<node_entries> &lists)
{
    std::vector<qx_long> new_number(static_cast<size_t>(count)), kept;
    for (const node_entries &list : lists)
        for (qx_long i = 0; i < list.count; ++i)
            new_number[static_cast<size_t>(list.nodes[i])] = 1;
    for (qx_long node = 0; node < count; ++node) {
        if (new_number[static_cast<size_t>(node)] == 0) continue;
        new_number[static_cast<size_t>(node)] = static_cast<qx_long>(kept.size());
        kept.push_back(node);
    }
    for (const node_entries &list : lists)
        for (qx_long i = 0; i < list.count; ++i)
            list.nodes[i] = new_number[static_cast<size_t>(list.nodes[i])];
    return kept;
}

// ---- nodes --------------------------------------------------------------------------------------------------

static constexpr int ends_components = 7; // two places or numbers, and the part

node_results::node_results(input_mesh &mesh_, const std::vector<typed_array> &arrays, qx_long count,
                           joins how)
    : mesh(mesh_), from(arrays), places(vtkSmartPointer<vtkFloatArray>::New()), how_joined(how)
{
    places->SetNumberOfComponents(3);
    places->SetNumberOfTuples(count);
    for (const typed_array &array : from)
        made.push_back(like(array, count));
    if (mesh.whole == nullptr) return;
    ends = vtkSmartPointer<vtkDoubleArray>::New();
    ends->SetName(name_of_ends);
    ends->SetNumberOfComponents(ends_components);
    ends->SetNumberOfTuples(count);
    ends->FillValue(0);
}

// Of lattices by its place among the others, which is the same in all pieces.
static node_place key_of(vtkDataSet *data, vtkIdType node)
{
    int extent[6];
    if (!extent_of(data, extent)) return node_key(data, node);
    node_place key = {0, 0, 0};
    for (size_t d = 0; d < 3; ++d) {
        const vtkIdType n = extent[2 * d + 1] - extent[2 * d] + 1;
        key[d] = static_cast<double>(node % n + extent[2 * d]);
        node /= n;
    }
    return key;
}

static void put_ends(const node_place &first, const node_place &second, int part, double *row)
{
    row = std::copy(first.begin(), first.end(), row);
    *std::copy(second.begin(), second.end(), row) = part;
}

void node_results::note_ends(qx_long count, const qx_long *a, const qx_long *b)
{
    if (ends == nullptr) return;
    const auto n = static_cast<size_t>(count);
    std::vector<float> at_a, at_b;
    if (how_joined == joins::in_one_place) {
        const std::vector<float> start(n);
        at_a.resize(3 * n);
        at_b.resize(3 * n);
        UTILeval_coord(mesh.mesh, count, a, a, start.data(), at_a.data());
        UTILeval_coord(mesh.mesh, count, b, b, start.data(), at_b.data());
    }
    for (size_t i = 0; i < n; ++i) {
        node_place first = key_of(mesh.data, a[i]), second = key_of(mesh.data, b[i]);
        const float *at = coords(filled) + 3 * i;
        if (!at_a.empty() && std::equal(at, at + 3, &at_a[3 * i])) second = first;
        if (!at_b.empty() && std::equal(at, at + 3, &at_b[3 * i])) first = second;
        if (second < first) std::swap(first, second);
        put_ends(first, second, 0, ends->GetPointer(ends_components * (filled + static_cast<qx_long>(i))));
    }
}

void node_results::note_edges(const std::vector<qx_long> &numbers, const edges &on)
{
    if (ends == nullptr) return;
    const auto end_of = [&](qx_long node) {
        if (node < mesh.nnodes) return key_of(mesh.data, node);
        const node_place a = key_of(mesh.data, on.a[node - mesh.nnodes]),
                         b = key_of(mesh.data, on.b[node - mesh.nnodes]);
        return node_place{a[0] + b[0], a[1] + b[1], a[2] + b[2]}; // whichever comes first
    };
    for (size_t i = 0; i < numbers.size(); ++i) {
        const node_place first = end_of(on.a[numbers[i]]), second = end_of(on.b[numbers[i]]);
        put_ends(std::min(first, second), std::max(first, second), on.part,
                 ends->GetPointer(ends_components * (filled + static_cast<qx_long>(i))));
    }
}

float *node_results::coords(qx_long row)
{
    return places->GetPointer(row * 3);
}

void *node_results::row_of(size_t array) const
{
    const typed_array &of = made[array];
    return static_cast<char *>(of.values) + filled * of.veclen * DTYPEtype_size(of.type);
}

bool node_results::add(qx_long count, const qx_long *nodes)
{
    if (count == 0) return true;
    if (mesh.positions != nullptr) // the library's own call takes a map of all nodes for cell sets
        UTILcopy_array_list(0, 3, DTYPE_FLOAT, mesh.positions, count, nodes, coords(filled));
    else if (UTILget_coord_list(mesh.mesh, count, nodes, coords(filled)) != 1)
        return false;
    for (size_t i = 0; i < from.size(); ++i)
        UTILcopy_array_list(0, from[i].veclen, from[i].type, from[i].values, count, nodes, row_of(i));
    note_ends(count, nodes, nodes);
    filled += count;
    return true;
}

// The library cuts integers off, which shows: the nodes of level 5 would have 4 where rounding went down.
template <typename T>
static void round_between(const T *from, int veclen, qx_long count, const qx_long *a, const qx_long *b,
                          const float *t, T *to)
{
    for (qx_long i = 0; i < count; ++i)
        for (int c = 0; c < veclen; ++c) {
            const T first = from[a[i] * veclen + c], second = from[b[i] * veclen + c];
            const double step = t[i] * (static_cast<double>(second) - static_cast<double>(first));
            *to++ = static_cast<T>(first + static_cast<T>(std::llround(step)));
        }
}

namespace {

// Where a node of the mesh is met exactly, the result has what that node has, whichever of its edges led there:
// a + 1 (b - a) may be another number than b.
struct met_nodes {
    std::vector<qx_long> node, row; // of the mesh, of the result

    met_nodes(qx_long count, const qx_long *a, const qx_long *b, const float *t)
    {
        for (qx_long i = 0; i < count; ++i) {
            if (t[i] != 0 && t[i] != 1) continue;
            node.push_back(t[i] == 0 ? a[i] : b[i]);
            row.push_back(i);
        }
    }

    template <typename T> void copy(const T *from, int veclen, T *to) const
    {
        for (size_t i = 0; i < node.size(); ++i)
            std::copy_n(from + node[i] * veclen, veclen, to + row[i] * veclen);
    }

    bool place(mesh_info *mesh, float *coords) const
    {
        const std::vector<float> start(node.size());
        std::vector<float> places(3 * node.size());
        if (UTILeval_coord(mesh, static_cast<qx_long>(node.size()), node.data(), node.data(), start.data(),
                           places.data()) != 1)
            return false;
        for (size_t i = 0; i < node.size(); ++i)
            std::copy_n(&places[3 * i], 3, coords + 3 * row[i]);
        return true;
    }
};

} // namespace

static bool write_between(const typed_array &from, qx_long count, const qx_long *a, const qx_long *b,
                          const float *t, const met_nodes &met, void *to)
{
    bool done = true;
    with_values(from, [&](const auto *values) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(*values)>>;
        if constexpr (std::is_integral_v<T>)
            round_between(values, from.veclen, count, a, b, t, static_cast<T *>(to));
        else
            done = UTILeval_param(count, from.veclen, from.type, values, 0, nullptr, a, b, t, to) == 1;
        met.copy(values, from.veclen, static_cast<T *>(to));
    });
    return done;
}

bool node_results::add_between(qx_long count, const qx_long *a, const qx_long *b, const float *t)
{
    if (count == 0) return true;
    const met_nodes met(count, a, b, t);
    if (UTILeval_coord(mesh.mesh, count, a, b, t, coords(filled)) != 1 ||
        !met.place(mesh.mesh, coords(filled)))
        return false;
    for (size_t i = 0; i < from.size(); ++i)
        if (!write_between(from[i], count, a, b, t, met, row_of(i))) return false;
    note_ends(count, a, b);
    filled += count;
    return true;
}

bool rows_between(const std::vector<typed_array> &arrays, qx_long count, const qx_long *a, const qx_long *b,
                  const float *t, std::vector<typed_array> *out)
{
    const met_nodes met(count, a, b, t);
    for (const typed_array &array : arrays) {
        out->push_back(like(array, count));
        if (!write_between(array, count, a, b, t, met, out->back().values)) return false;
    }
    return true;
}

void node_results::hand_over(vtkPointSet *data)
{
    auto points = vtkSmartPointer<vtkPoints>::New();
    if (mesh.shifted()) {
        auto shifted = vtkSmartPointer<vtkDoubleArray>::New();
        shifted->SetNumberOfComponents(3);
        shifted->SetNumberOfTuples(places->GetNumberOfTuples());
        for (vtkIdType i = 0; i < places->GetNumberOfValues(); ++i)
            shifted->SetValue(i, places->GetValue(i) + mesh.offset[i % 3]);
        points->SetData(shifted);
    } else {
        points->SetData(places);
    }
    data->SetPoints(points);
    for (const typed_array &array : made)
        data->GetPointData()->AddArray(array.kept);
    if (ends != nullptr) data->GetPointData()->AddArray(ends);
}

// ---- cells --------------------------------------------------------------------------------------------------

void cell_results::add(int kind, int order, qx_long ncells, owned_list connect, std::vector<qx_long> vtk_cell,
                       qx_long first_node)
{
    if (ncells > 0)
        parts.push_back({kind, order, ncells, std::move(connect), std::move(vtk_cell), first_node});
}

qx_long cell_results::count(int ndim) const
{
    qx_long sum = 0;
    for (const part &one : parts)
        sum += cell_kinds[one.kind].ndim == ndim ? one.ncells : 0;
    return sum;
}

// Rows in VTK's order, written from to on; what follows them.
static qx_long *write_rows(const cell_order &order, qx_long ncells, const qx_long *connect,
                           qx_long first_node, qx_long *to)
{
    const int n = order.vtk_nodes;
    for (qx_long c = 0; c < ncells; ++c, connect += n, to += n)
        for (int i = 0; i < n; ++i)
            to[order.node[i]] = connect[i] + first_node;
    return to;
}

static bool in_vtk_order(const cell_order &order)
{
    for (int i = 0; i < order.vtk_nodes; ++i)
        if (order.node[i] != i) return false;
    return true;
}

static vtkSmartPointer<vtkTypeInt64Array> list_of(qx_long entries)
{
    auto made = vtkSmartPointer<vtkTypeInt64Array>::New();
    made->SetNumberOfValues(entries);
    return made;
}

static void add_cell_arrays(vtkDataSet *data, const std::vector<typed_array> &arrays,
                            const std::vector<qx_long> &cells)
{
    for (const typed_array &array : rows_of(arrays, cells))
        data->GetCellData()->AddArray(array.kept);
}

void cell_results::hand_over(vtkPolyData *data, const std::vector<typed_array> &arrays)
{
    std::vector<qx_long> cells;
    for (const int ndim : {1, 2}) {
        std::vector<part *> chosen;
        qx_long entries = 0, ncells = 0;
        bool one_kind = true;
        for (part &one : parts) {
            if (cell_kinds[one.kind].ndim != ndim) continue;
            chosen.push_back(&one);
            one_kind = one_kind && one.kind == chosen[0]->kind;
            entries += one.ncells * cell_kinds[one.kind].ncorners;
            ncells += one.ncells;
            cells.insert(cells.end(), one.vtk_cell.begin(), one.vtk_cell.end());
        }
        if (chosen.empty()) continue;
        const cell_order &order = *order_of_kind(chosen[0]->kind, 1);
        vtkSmartPointer<vtkTypeInt64Array> connect;
        if (chosen.size() == 1 && chosen[0]->first_node == 0 && in_vtk_order(order)) {
            connect = vtkSmartPointer<vtkTypeInt64Array>::New();
            connect->SetArray(vtk_list(chosen[0]->connect.release()), entries, 0,
                              vtkTypeInt64Array::VTK_DATA_ARRAY_FREE);
        } else {
            connect = list_of(entries);
            qx_long *to = our_list(connect->GetPointer(0));
            for (const part *one : chosen)
                to = write_rows(*order_of_kind(one->kind, 1), one->ncells, one->connect.get(),
                                one->first_node, to);
        }
        auto rows = vtkSmartPointer<vtkCellArray>::New();
        if (one_kind) {
            rows->SetData(order.vtk_nodes, connect);
        } else {
            const auto offsets = list_of(ncells + 1);
            qx_long *to = our_list(offsets->GetPointer(0));
            *to = 0;
            for (const part *one : chosen)
                for (qx_long c = 0; c < one->ncells; ++c, ++to)
                    to[1] = to[0] + cell_kinds[one->kind].ncorners;
            rows->SetData(offsets, connect);
        }
        if (ndim == 1)
            data->SetLines(rows);
        else
            data->SetPolys(rows);
    }
    add_cell_arrays(data, arrays, cells);
}

void cell_results::hand_over(vtkUnstructuredGrid *data, const std::vector<typed_array> &arrays)
{
    qx_long entries = 0, ncells = 0;
    std::vector<qx_long> cells;
    for (const part &one : parts) {
        entries += one.ncells * order_of_kind(one.kind, one.order)->vtk_nodes;
        ncells += one.ncells;
        cells.insert(cells.end(), one.vtk_cell.begin(), one.vtk_cell.end());
    }
    const auto offsets = list_of(ncells + 1), connect = list_of(entries);
    auto types = vtkSmartPointer<vtkUnsignedCharArray>::New();
    types->SetNumberOfValues(ncells);
    qx_long *to = entries > 0 ? our_list(connect->GetPointer(0)) : nullptr;
    qx_long *offset = our_list(offsets->GetPointer(0));
    unsigned char *type = ncells > 0 ? types->GetPointer(0) : nullptr;
    *offset = 0;
    for (const part &one : parts) {
        const cell_order &order = *order_of_kind(one.kind, one.order);
        to = write_rows(order, one.ncells, one.connect.get(), one.first_node, to);
        type = std::fill_n(type, one.ncells, static_cast<unsigned char>(order.vtk));
        for (qx_long c = 0; c < one.ncells; ++c, ++offset)
            offset[1] = offset[0] + order.vtk_nodes;
    }
    auto rows = vtkSmartPointer<vtkCellArray>::New();
    rows->SetData(offsets, connect);
    data->SetCells(types, rows);
    add_cell_arrays(data, arrays, cells);
}
