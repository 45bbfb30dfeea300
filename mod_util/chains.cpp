// Joins loose lines into chains, in the place of the list.
//
// Two neighbours are kept for each node, the first line's and the last one's, so where more than two lines
// meet some of them are left out. From each node in turn that no chain holds yet, a walk along free
// neighbours finds one end of its chain; from there a second walk passes the whole chain and writes its
// lines. Both walks take the first neighbour that is free, else the second. A chain whose ends are neighbours
// is closed by one more line.
//
// A line is written only where its two nodes were neighbours, each pair once, so the new list is never
// longer.
#include <skoklana/iso.h>

#include "memory.hpp"
#include "report.hpp"

namespace {

enum node_mark : unsigned char { free_node = 0, in_chain = 1, on_way = 2 };

struct line_net {
    qx_long (*link)[2]; // 1 + the neighbours of each node; 0: none
    unsigned char *mark;
};

} // namespace

static void add_neighbour(const line_net &net, qx_long node, qx_long neighbour)
{
    net.link[node][net.link[node][0] == 0 ? 0 : 1] = neighbour + 1;
}

// The neighbour of a node that has a mark, the first before the second; -1: neither.
static qx_long neighbour_with(const line_net &net, qx_long node, node_mark mark)
{
    const qx_long *link = net.link[node];
    if (link[0] != 0 && net.mark[link[0] - 1] == mark) return link[0] - 1;
    if (link[1] != 0 && net.mark[link[1] - 1] == mark) return link[1] - 1;
    return -1;
}

// The end of the chain that is reached from a node. The way there is marked, and cleared by the same rule:
// the marks still on it lead the same way.
static qx_long far_end(const line_net &net, qx_long start)
{
    qx_long end = start;
    for (qx_long node = start; node != -1; node = neighbour_with(net, node, free_node)) {
        net.mark[node] = on_way;
        end = node;
    }
    for (qx_long node = start; node != -1; node = neighbour_with(net, node, on_way))
        net.mark[node] = free_node;
    return end;
}

static int join_lines(qx_long *lines, qx_long n, qx_long nnodes, qx_long *renumber, const char *module)
{
    if (n < 3) return 1;
    scratch memory;
    line_net net = {};
    net.link = memory.borrow<qx_long[2]>(nnodes);
    net.mark = memory.borrow<unsigned char>(nnodes);
    if (net.link == nullptr || net.mark == nullptr) {
        report_error(module, "alloc of working arrays failed");
        return 0;
    }
    for (qx_long line = 0; line + 1 < n; line += 2) {
        add_neighbour(net, lines[line + 1], lines[line]);
        add_neighbour(net, lines[line], lines[line + 1]);
    }

    qx_long *out = lines;
    qx_long nplaced = 0; // nodes of chains so far
    for (qx_long start = 0; start < nnodes; ++start) {
        if (net.mark[start] != free_node || net.link[start][0] == 0) continue;
        const qx_long first = far_end(net, start), first_place = nplaced;
        qx_long last = first;
        for (qx_long node = first; node != -1; node = neighbour_with(net, node, free_node)) {
            net.mark[node] = in_chain;
            if (renumber != nullptr) renumber[node] = nplaced;
            if (node != first) {
                *out++ = renumber != nullptr ? nplaced - 1 : last;
                *out++ = renumber != nullptr ? nplaced : node;
            }
            ++nplaced;
            last = node;
        }
        const bool ends_meet = net.link[last][0] == first + 1 || net.link[last][1] == first + 1;
        if (nplaced - first_place > 2 && ends_meet) {
            *out++ = renumber != nullptr ? nplaced - 1 : last;
            *out++ = renumber != nullptr ? first_place : first;
        }
    }
    return 1;
}

int UTILlines_to_chains(qx_long *lines, qx_long n, qx_long nnodes)
{
    return join_lines(lines, n, nnodes, nullptr, "UTILline_connect");
}

int UTILlines_to_polyl(qx_long *lines, qx_long n, qx_long nnodes, qx_long *renumber)
{
    return join_lines(lines, n, nnodes, renumber, "UTILlines_to_poly");
}
