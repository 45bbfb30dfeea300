#include "node_means.hpp"

#include "carry.hpp"
#include "failure.hpp"
#include "progress.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <type_traits>

namespace {

// Rows in the order of the library's cells.
typed_array by_our_cells(const input_mesh &mesh, const typed_array &array)
{
    if (mesh.structured()) return array;
    std::vector<qx_long> order;
    for (const input_set &set : mesh.sets)
        for (qx_long c = 0; c < set.ncells; ++c)
            order.push_back(set.vtk_cell(c));
    return rows_of({array}, order).front();
}

// Nodes without a value: NaN where the type has it, else the null value that there is.
void mark_nodes_without(const std::vector<unsigned char> &mask, const scalar_array &from, typed_array *means)
{
    with_values(*means, [&](auto *values) {
        using T = std::remove_reference_t<decltype(*values)>;
        T mark = 0;
        if (std::is_floating_point_v<T>)
            mark = std::numeric_limits<T>::quiet_NaN();
        else if (from.null_flag != 0)
            memcpy(&mark, &from.null_value_bits, sizeof mark);
        for (size_t node = 0; node < mask.size(); ++node) {
            if (mask[node] != 0) continue;
            std::fill_n(values + static_cast<qx_long>(node) * means->veclen, means->veclen, mark);
        }
    });
}

} // namespace

node_mean means_at_nodes(const std::string &path, input_mesh &mesh, const typed_array &cell_array,
                         mean_weight weight, bool has_null, double null)
{
    const scalar_array from = rows_with_null(by_our_cells(mesh, cell_array), has_null, null);
    node_mean made;
    made.array = like(cell_array, mesh.nnodes);
    std::vector<unsigned char> mask(static_cast<size_t>(mesh.nnodes));
    if (mesh.nnodes == 0) return made;
    const host_array values = {from.array.values, from.array.type, from.array.veclen,
                               from.null_flag != 0 ? from.null_value() : nullptr};
    const host_cell_to_node_options options = {
        sizeof options, weight == mean_weight::none ? HOST_WEIGHT_NONE : HOST_WEIGHT_DISTANCE};
    int done = HOST_DONE;
    {
        const operation run("means at nodes");
        // A mesh without cells has no values to point at.
        if (from.array.count > 0)
            done = host_cell_to_node(mesh.field, &values, &options, made.array.values, mask.data());
        stop_if_asked();
    }
    if (done != HOST_DONE) throw failure(path + ": " + host_error());
    mark_nodes_without(mask, from, &made.array);
    made.has_value = std::move(mask);
    return made;
}
