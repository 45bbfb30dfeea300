// Cell arrays as node arrays.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"

#include <string>
#include <vector>

enum class mean_weight { none, distance };

struct node_mean {
    typed_array array; // of the cell array's name and type
    std::vector<unsigned char>
        has_value; // 0: at nodes at which no cell has one; NaN, or the null value, or 0
};

// Each node gets the mean of the cells around it, by 1 / distance where weighted. Cells that are null take no part:
// by null where has_null, and NaN in any case. Throws failure or interrupted; text starts with path.
node_mean means_at_nodes(const std::string &path, input_mesh &mesh, const typed_array &cell_array,
                         mean_weight weight, bool has_null, double null);
