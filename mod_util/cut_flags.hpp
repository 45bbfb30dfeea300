// The embedded host includes this header too.
//
// How the flags and the numbers of a cut's nodes are brought to agree.
#pragma once

#include <skoklana/types.h>

#include <cmath>

// Flags are made by a test in the data's type, the map by one in double, and NaN is on no side: a node whose flag
// would keep it though it has no number gets the other flag. With integers this takes a level of NaN.
inline void match_flags_to_map(qx_long nnodes, int data_type, double level, int side, const qx_long *node_map,
                               unsigned char *flags)
{
    const bool rounds_down =
        data_type == DTYPE_FLOAT && !(static_cast<double>(static_cast<float>(level)) >= level);
    const bool has_nan = data_type == DTYPE_FLOAT || data_type == DTYPE_DOUBLE || std::isnan(level);
    if (side < 0 ? !has_nan : !rounds_down) return;
    const unsigned char keeps = side < 0 ? 0 : 1;
    for (qx_long node = 0; node < nnodes; ++node)
        flags[node] ^= static_cast<unsigned char>((flags[node] == keeps) & (node_map[node] < 0));
}
