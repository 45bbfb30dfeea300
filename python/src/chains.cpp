// Loose lines, joined end to end.
#include "core.hpp"

#include <skoklana/iso.h>

#include <algorithm>
#include <string>

namespace {

// Which lines have a node: those from first[node] to first[node + 1] - 1 of line, line i as 2 i or, from its other end,
// 2 i + 1.
struct line_ends {
    std::vector<qx_long> first, line;

    line_ends(const qx_long *lines, qx_long count, qx_long nnodes)
        : first(static_cast<size_t>(nnodes) + 2), line(static_cast<size_t>(2 * count))
    {
        for (qx_long i = 0; i < 2 * count; ++i) {
            stop_if_asked_at(i);
            ++first[static_cast<size_t>(lines[i]) + 2];
        }
        for (size_t node = 2; node < first.size(); ++node)
            first[node] += first[node - 1];
        for (qx_long i = 0; i < 2 * count; ++i)
            line[static_cast<size_t>(first[static_cast<size_t>(lines[i]) + 1]++)] = i;
    }
};

// Chains run from ends and forks first, then around rings; each line is in one chain once.
struct chained_lines {
    std::vector<qx_long> path, begin;

    chained_lines(const qx_long *lines_, qx_long count, qx_long nnodes)
        : lines(lines_), ends(lines_, count, nnodes), used(static_cast<size_t>(count))
    {
        const auto size = [&](qx_long node) {
            const auto n = static_cast<size_t>(node);
            return ends.first[n + 1] - ends.first[n];
        };
        for (const bool rings : {false, true})
            for (qx_long node = 0; node < nnodes; ++node) {
                stop_if_asked_at(node);
                if (rings || size(node) != 2)
                    while (follow(node, size)) {
                    }
            }
        begin.push_back(static_cast<qx_long>(path.size()));
    }

  private:
    qx_long unused_end(qx_long node) const
    {
        const auto n = static_cast<size_t>(node);
        for (qx_long i = ends.first[n]; i < ends.first[n + 1]; ++i) {
            const qx_long end = ends.line[static_cast<size_t>(i)];
            if (used[static_cast<size_t>(end / 2)] == 0) return end;
        }
        return -1;
    }

    // The chain along the first line of a node that none has; false: there is none.
    template <typename Size> bool follow(qx_long node, const Size &size)
    {
        qx_long end = unused_end(node);
        if (end < 0) return false;
        begin.push_back(static_cast<qx_long>(path.size()));
        path.push_back(node);
        while (end >= 0) {
            used[static_cast<size_t>(end / 2)] = 1;
            const qx_long next = lines[end ^ 1];
            path.push_back(next);
            end = size(next) == 2 ? unused_end(next) : -1;
        }
        return true;
    }

    const qx_long *lines;
    line_ends ends;
    std::vector<char> used;
};

list_of<qx_long> copied(const std::vector<qx_long> &from)
{
    list_of<qx_long> made = new_list<qx_long>(static_cast<qx_long>(from.size()));
    std::copy(from.begin(), from.end(), made.get());
    return made;
}

// The nodes of all chains, one chain after the other, and where each begins.
py::tuple chains_of(const py::array &lines, qx_long nnodes)
{
    const qx_long count = lines.size() / 2;
    const qx_long *given = elements<qx_long>("lines", lines, 2 * count);
    for (qx_long i = 0; i < 2 * count; ++i)
        if (given[i] < 0 || given[i] >= nnodes)
            throw py::index_error("lines: line " + std::to_string(i / 2) + " names node " +
                                  std::to_string(given[i]) + ", but there are " + std::to_string(nnodes));
    list_of<qx_long> path, begin;
    qx_long npath = 0, nbegin = 0;
    run_call("chains", nullptr, py::none(), [&] {
        const chained_lines chains(given, count, nnodes);
        npath = static_cast<qx_long>(chains.path.size());
        nbegin = static_cast<qx_long>(chains.begin.size());
        path = copied(chains.path);
        begin = copied(chains.begin);
        return static_cast<int>(HOST_DONE);
    });
    return py::make_tuple(adopt(std::move(path), {npath}), adopt(std::move(begin), {nbegin}));
}

// The library's own chains, in the place of the lines.
void join_lines(const py::array &lines, qx_long nnodes)
{
    const qx_long count = lines.size();
    auto *given = const_cast<qx_long *>(elements<qx_long>("lines", lines, count));
    for (qx_long i = 0; i < count; ++i)
        if (given[i] < 0 || given[i] >= nnodes)
            throw py::index_error("lines: a line names a node that there is not");
    run_call("join_lines", nullptr, py::none(),
             [&] { return of_library(UTILlines_to_chains(given, count, nnodes) == 1); });
}

} // namespace

void bind_chains(py::module_ &m)
{
    m.def("chains", &chains_of);
    m.def("join_lines", &join_lines);
}
