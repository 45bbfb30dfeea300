// Boxes of cells in one register a bound: the coordinates of a node are lanes x, y, z, and those that a mesh
// does not have are 0.
//
// A box starts empty and is widened node by node. A coordinate that is NaN widens nothing, so a cell with
// such nodes has the box of the others, and one without any other stays empty.
#pragma once

#include "simd.hpp"

#include <skoklana/types.h>

#include <limits>
#include <type_traits>

typedef float lanes4 __attribute__((vector_size(16)));

template <int Nspace> FORCE_INLINE lanes4 load_node(const float *coords, qx_long node)
{
    const float *row = coords + node * Nspace;
    return lanes4{row[0], Nspace > 1 ? row[1] : 0, Nspace > 2 ? row[2] : 0, 0};
}

struct lane_box {
    lanes4 min, max;
};

FORCE_INLINE lane_box empty_lane_box()
{
    constexpr float far = std::numeric_limits<float>::infinity();
    const lane_box box = {{far, far, far, far}, {-far, -far, -far, -far}};
    return box;
}

template <int Nspace>
FORCE_INLINE lane_box box_of_nodes(const float *coords, const qx_long *nodes, int nnodes)
{
    lane_box box = empty_lane_box();
    for (int k = 0; k < nnodes; ++k) {
        const lanes4 node = load_node<Nspace>(coords, nodes[k]);
        box.min = node < box.min ? node : box.min;
        box.max = node > box.max ? node : box.max;
    }
    return box;
}

// Calls body with the coordinates a node as a constant; for a number that is none, an empty result.
template <typename Body>
auto with_nspace(int nspace, Body body) -> decltype(body(std::integral_constant<int, 3>{}))
{
    switch (nspace) {
    case 1: return body(std::integral_constant<int, 1>{});
    case 2: return body(std::integral_constant<int, 2>{});
    case 3: return body(std::integral_constant<int, 3>{});
    default: return {};
    }
}
