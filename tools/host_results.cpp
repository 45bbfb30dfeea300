#include "host_results.hpp"

#include "failure.hpp"

#include <algorithm>

void check_call(const operation &run, int result, const std::string &what)
{
    if (result == HOST_FAILED && host_last_report(0, nullptr, nullptr) == 0)
        throw failure(what + " failed: " + host_error());
    run.check(result == HOST_DONE, what);
}

std::vector<qx_long> vtk_cells_of(const input_mesh &mesh, qx_long count, const qx_long *cells)
{
    std::vector<qx_long> numbers(cells, cells + count), first = {0};
    if (mesh.structured()) return numbers;
    for (const input_set &set : mesh.sets)
        first.push_back(first.back() + set.ncells);
    size_t set = 0; // of the cell before, most often
    for (qx_long &cell : numbers) {
        if (cell < 0) continue;
        if (cell < first[set] || cell >= first[set + 1])
            set = static_cast<size_t>(std::upper_bound(first.begin(), first.end(), cell) - first.begin() - 1);
        cell = mesh.sets[set].vtk_cell(cell - first[set]);
    }
    return numbers;
}
