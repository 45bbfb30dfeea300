// Data carried onto results.
#include "core.hpp"

#include <skoklana/mesh.h>

#include <algorithm>
#include <cstring>

namespace {

// The lists of a result, from arrays of Python.
struct carried_onto {
    host_result lists = {};
    std::vector<py::array> keep;

    carried_onto(const py::dict &parts)
    {
        lists.nold = length(parts["old"]);
        lists.nnodes = lists.nold + length(parts["first"]);
        const qx_long nnew = lists.nnodes - lists.nold;
        lists.old_node = numbers(parts["old"], lists.nold);
        lists.first_node = numbers(parts["first"], nnew);
        lists.second_node = numbers(parts["second"], nnew);
        lists.t = places(parts["t"], nnew);
        if (parts.contains("third")) {
            lists.third_node = numbers(parts["third"], nnew);
            lists.s = places(parts["s"], nnew);
        }
    }

    bool is_within(qx_long nnodes) const
    {
        const auto good = [=](const qx_long *list, qx_long count, qx_long lowest) {
            return list == nullptr || std::all_of(list, list + count, [=](qx_long node) {
                       return node >= lowest && node < nnodes;
                   });
        };
        const qx_long nnew = lists.nnodes - lists.nold;
        return good(lists.old_node, lists.nold, 0) && good(lists.first_node, nnew, 0) &&
               good(lists.second_node, nnew, 0) && good(lists.third_node, nnew, -1);
    }

  private:
    static qx_long length(const py::handle &list) { return list.cast<py::array>().size(); }
    qx_long *numbers(const py::handle &list, qx_long count)
    {
        keep.push_back(list.cast<py::array>());
        return const_cast<qx_long *>(elements<qx_long>("nodes", keep.back(), count));
    }
    float *places(const py::handle &list, qx_long count)
    {
        keep.push_back(list.cast<py::array>());
        return const_cast<float *>(elements<float>("t", keep.back(), count));
    }
};

py::array empty_like(const py::array &values, qx_long rows)
{
    std::vector<py::ssize_t> shape(values.shape(), values.shape() + values.ndim());
    shape[0] = rows;
    return py::array(values.dtype(), shape);
}

// Rows at the nodes of a result, and a mark each.
py::tuple carry_of(const py::dict &parts, const py::array &values, const py::object &null)
{
    const rows_arg rows("values", values, values.ndim() > 0 ? values.shape(0) : 0, null);
    const carried_onto result(parts);
    py::array out = empty_like(values, result.lists.nnodes);
    py::array_t<bool> mask(result.lists.nnodes);
    void *to = out.mutable_data();
    auto *marks = reinterpret_cast<unsigned char *>(mask.mutable_data());
    run_call("carry", nullptr, py::none(), [&] {
        if (!result.is_within(rows.count)) throw std::out_of_range("values: has too few rows");
        return host_carry_nodes(&result.lists, &rows.array, to, marks);
    });
    return py::make_tuple(out, mask);
}

// The library's own way, for new nodes between two of the mesh: truncated, in single precision for most types.
py::array library_carry_of(const py::dict &parts, const py::array &values, const py::object &null)
{
    const rows_arg rows("values", values, values.ndim() > 0 ? values.shape(0) : 0, null);
    const carried_onto result(parts);
    const host_result &lists = result.lists;
    if (lists.third_node != nullptr)
        throw py::value_error(
            "carry: new nodes of this band lie between three nodes, and the library's way is for two");
    py::array out = empty_like(values, lists.nnodes);
    auto *to = static_cast<char *>(out.mutable_data());
    const qx_long row = rows.array.veclen * values.itemsize();
    run_call("carry", nullptr, py::none(), [&] {
        if (!result.is_within(rows.count)) throw std::out_of_range("values: has too few rows");
        for (qx_long i = 0; i < lists.nold; ++i)
            memcpy(to + i * row, static_cast<const char *>(rows.array.data) + lists.old_node[i] * row,
                   static_cast<size_t>(row));
        return of_library(UTILeval_param(lists.nnodes - lists.nold, rows.array.veclen, rows.array.type,
                                         rows.array.data, rows.null_flag(), rows.array.null, lists.first_node,
                                         lists.second_node, lists.t, to + lists.nold * row) == 1);
    });
    return out;
}

} // namespace

void bind_carrying(py::module_ &m)
{
    m.def("carry", &carry_of);
    m.def("carry_by_library", &library_carry_of);
}
