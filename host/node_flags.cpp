#include "node_flags.hpp"

#include <skoklana/array.h>
#include <skoklana/cut.h>
#include <skoklana/host/tool.h>

#include "mod_util/cut_flags.hpp"

const void *node_flags::value(qx_long node) const
{
    return static_cast<const char *>(array.data) + node * DTYPEtype_size(array.type);
}

void node_flags::classify_nodes(qx_long first, qx_long end)
{
    UTILthreshold_scalar(end - first, value(first), array.type, has_null(), array.null, 1, level, 0, 1, 2,
                         flag.get() + first);
}

bool node_flags::classify()
{
    flag = allocate_list<unsigned char>(field->nnodes);
    if (flag == nullptr) return false;
    const int nworkers = team->size();
    auto classify_share = [this, nworkers](int k) {
        classify_nodes(share_begin(field->nnodes, k, nworkers), share_begin(field->nnodes, k + 1, nworkers));
    };
    team->run(classify_share);
    return true;
}

bool node_flags::classify_for_cut(int side)
{
    const qx_long nnodes = field->nnodes;
    const int nworkers = team->size();
    flag = allocate_list<unsigned char>(nnodes);
    number = allocate_list<qx_long>(nnodes);
    if (flag == nullptr || number == nullptr) return false;
    qx_long retained[most_workers];
    auto classify_share = [&](int k) {
        const qx_long first = share_begin(nnodes, k, nworkers),
                      count = share_begin(nnodes, k + 1, nworkers) - first;
        retained[k] = UTILnode_thresh(count, array.type, value(first), has_null(), array.null, level, side,
                                      number.get() + first);
        classify_nodes(first, first + count);
        match_flags_to_map(count, array.type, level, side, number.get() + first, flag.get() + first);
    };
    team->run(classify_share);
    qx_long before[most_workers];
    for (int k = 0; k < nworkers; ++k) {
        before[k] = nretained;
        nretained += retained[k];
    }
    old_node = allocate_list<qx_long>(nretained);
    if (old_node == nullptr) return false;
    auto number_share = [&](int k) {
        qx_long next = before[k];
        for (qx_long node = share_begin(nnodes, k, nworkers); node < share_begin(nnodes, k + 1, nworkers);
             ++node) {
            if (number[node] < 0) continue;
            number[node] = next;
            old_node[next++] = node;
        }
    };
    team->run(number_share);
    return true;
}
