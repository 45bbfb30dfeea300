// One call of the library a band. Its bands are closed: a band that is not the last one ends at the number
// next to its upper level. Levels beyond the data's type are moved to the end of the type, which changes the
// class of no value; the library takes them as elements of the type.
#include "bands.hpp"

#include "carry.hpp"
#include "failure.hpp"
#include "progress.hpp"

#include <skoklana/array.h>
#include <skoklana/cut.h>

#include <vtkCellData.h>
#include <vtkDoubleArray.h>
#include <vtkIntArray.h>
#include <vtkPolyData.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>

namespace {

constexpr size_t nlists = 6;
constexpr int kind_of_list[nlists] = {CELL_TET, CELL_PRISM, CELL_PYR, CELL_HEX, CELL_TRI, CELL_QUAD};

// What one call gave, with the nodes that no cell uses taken out.
struct band {
    double low, high; // as the library took them
    qx_long nold = 0, nnew = 0;
    owned_list nodes, min_node, max_node;
    owned<unsigned char> level_of;
    owned<float> coords;
    qx_long ncells[nlists] = {}, used[nlists] = {};
    owned_list connect[nlists];
    qx_long nlines[2] = {1, 1}; // asked for
    owned_list lines[2];
    std::vector<qx_long> old_nodes; // input numbers
    std::vector<qx_long> new_nodes; // numbers among all new ones
};

double within_type(const typed_array &array, double level)
{
    double moved = level;
    with_values(array, [&](const auto *values) {
        using T = std::remove_const_t<std::remove_pointer_t<decltype(values)>>;
        moved = std::clamp(level, static_cast<double>(std::numeric_limits<T>::lowest()),
                           static_cast<double>(std::numeric_limits<T>::max()));
    });
    return moved;
}

bool run(input_mesh &mesh, const scalar_array &scalar, bool with_lines, band *out)
{
    qx_long *nodes = nullptr, *min_node = nullptr, *max_node = nullptr, *connect[nlists] = {}, *lines[2] = {};
    unsigned char *level_of = nullptr;
    float *coords = nullptr;
    const typed_array &data = scalar.array;
    if (!with_lines) out->nlines[0] = out->nlines[1] = 0;
    const int result =
        UTILcontour(mesh.mesh, data.values, data.type, scalar.null_flag, scalar.null_value(), out->low,
                    out->high, &out->nold, &nodes, &out->nnew, &min_node, &max_node, &level_of, out->ncells,
                    connect, out->used, 3, &coords, &out->nlines[0], &lines[0], &out->nlines[1], &lines[1]);
    if (result != 1) return false;
    out->nodes.reset(nodes);
    out->min_node.reset(min_node);
    out->max_node.reset(max_node);
    out->level_of.reset(level_of);
    out->coords.reset(coords);
    for (size_t list = 0; list < nlists; ++list)
        if (out->ncells[list] > 0) out->connect[list].reset(connect[list]);
    for (int l = 0; l < 2; ++l)
        out->lines[l].reset(lines[l]);
    return true;
}

// first: the lines along the lower level are wanted too.
void drop_unused_nodes(const input_mesh &mesh, bool first, band *of)
{
    std::vector<qx_long> retained;
    if (mesh.structured()) {
        retained.assign(of->nodes.get(), of->nodes.get() + of->nold);
    } else {
        for (qx_long node = 0; node < mesh.nnodes; ++node)
            if (of->nodes[static_cast<size_t>(node)] >= 0) retained.push_back(node);
    }
    if (!first) of->nlines[0] = 0;
    std::vector<node_entries> lists;
    for (size_t list = 0; list < nlists; ++list)
        if (of->ncells[list] > 0) lists.push_back({of->connect[list].get(), of->used[list]});
    for (int l = 0; l < 2; ++l)
        if (of->nlines[l] > 0) lists.push_back({of->lines[l].get(), 2 * of->nlines[l]});
    for (const qx_long node : drop_unused(of->nold + of->nnew, lists)) {
        if (node < of->nold)
            of->old_nodes.push_back(retained[static_cast<size_t>(node)]);
        else
            of->new_nodes.push_back(node - of->nold);
    }
}

// The values of an array at all new nodes of a band, of which those in use are copied to where they go.
bool carry(const input_mesh &mesh, const scalar_array &scalar, const band &of, const typed_array &array,
           void *to)
{
    const typed_array all = like(array, of.nnew);
    return UTILeval_contour(mesh.nnodes, of.nnew, 0, scalar.array.type, scalar.array.values, of.low, of.high,
                            of.min_node.get(), of.max_node.get(), of.level_of.get(), array.veclen, array.type,
                            0, nullptr, 0, array.values, all.values) == 1 &&
           UTILcopy_array_list(0, array.veclen, array.type, all.values,
                               static_cast<qx_long>(of.new_nodes.size()), of.new_nodes.data(), to) == 1;
}

bool add_nodes(const input_mesh &mesh, const scalar_array &scalar, const band &of, int number,
               node_results *nodes)
{
    std::vector<float> places;
    for (const qx_long node : of.new_nodes) {
        const float *at = of.coords.get() + 3 * (of.nold + node);
        places.insert(places.end(), at, at + 3);
    }
    return nodes->add(static_cast<qx_long>(of.old_nodes.size()), of.old_nodes.data()) &&
           nodes->add_placed(
               of.new_nodes, {of.min_node.get(), of.max_node.get(), number + 1}, places.data(),
               [&](const typed_array &array, void *to) { return carry(mesh, scalar, of, array, to); });
}

// The arrays that tell the bands of cells apart. Cells of each band, in the order in which data has them.
void add_limits(vtkPointSet *data, const std::vector<size_t> &band_of_cell, const std::vector<double> &levels)
{
    const auto count = static_cast<vtkIdType>(band_of_cell.size());
    const auto number = vtkSmartPointer<vtkIntArray>::New();
    vtkSmartPointer<vtkDoubleArray> limit[2];
    number->SetName("band");
    number->SetNumberOfValues(count);
    for (int l = 0; l < 2; ++l) {
        limit[l] = vtkSmartPointer<vtkDoubleArray>::New();
        limit[l]->SetName(l == 0 ? "band_lower" : "band_upper");
        limit[l]->SetNumberOfValues(count);
    }
    for (vtkIdType cell = 0; cell < count; ++cell) {
        const size_t band_number = band_of_cell[static_cast<size_t>(cell)];
        number->SetValue(cell, static_cast<int>(band_number));
        limit[0]->SetValue(cell, levels[band_number]);
        limit[1]->SetValue(cell, levels[band_number + 1]);
    }
    data->GetCellData()->AddArray(number);
    data->GetCellData()->AddArray(limit[0]);
    data->GetCellData()->AddArray(limit[1]);
}

} // namespace

made_bands extract_bands(const std::string &path, input_mesh &mesh, const scalar_array &scalar,
                         const std::vector<double> &levels, const std::vector<typed_array> &carried,
                         bool surface)
{
    const std::string what = path + ": bands";
    const size_t nbands = levels.size() - 1;
    std::vector<band> bands(nbands);
    const operation banding("bands");
    qx_long count = 0;
    for (size_t b = 0; b < nbands; ++b) {
        const status_part part(static_cast<int>(b), static_cast<int>(nbands));
        const double high = levels[b + 1];
        bands[b].low = within_type(scalar.array, levels[b]);
        bands[b].high = within_type(
            scalar.array,
            b + 1 < nbands ? std::nextafter(high, -std::numeric_limits<double>::infinity()) : high);
        banding.check(run(mesh, scalar, surface, &bands[b]), what);
        drop_unused_nodes(mesh, b == 0, &bands[b]);
        count += static_cast<qx_long>(bands[b].old_nodes.size() + bands[b].new_nodes.size());
    }

    made_bands made;
    node_results nodes(mesh, carried, count);
    cell_results cells;
    std::vector<size_t> of_lines, of_cells;
    qx_long first = 0;
    for (size_t b = 0; b < nbands; ++b) {
        band &one = bands[b];
        banding.check(add_nodes(mesh, scalar, one, static_cast<int>(b), &nodes), what);
        qx_long ncells = 0;
        for (size_t list = 0; list < nlists; ++list) {
            ncells += one.ncells[list];
            cells.add(kind_of_list[list], 1, one.ncells[list], std::move(one.connect[list]), {}, first);
        }
        of_cells.insert(of_cells.end(), static_cast<size_t>(ncells), b);
        made.ncells.push_back(ncells);
        for (int l = 0; l < 2; ++l) {
            of_lines.insert(of_lines.end(), static_cast<size_t>(one.nlines[l]), b);
            cells.add(CELL_LINE, 1, one.nlines[l], std::move(one.lines[l]), {}, first);
        }
        first += static_cast<qx_long>(one.old_nodes.size() + one.new_nodes.size());
    }
    if (surface) {
        const auto data = vtkSmartPointer<vtkPolyData>::New();
        cells.hand_over(data, {});
        made.data = data;
    } else {
        const auto data = vtkSmartPointer<vtkUnstructuredGrid>::New();
        cells.hand_over(data, {});
        made.data = data;
    }
    nodes.hand_over(made.data);
    of_lines.insert(of_lines.end(), of_cells.begin(), of_cells.end());
    add_limits(made.data, of_lines, levels);
    return made;
}
