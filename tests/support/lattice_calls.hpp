// Calls of the level operations over structured meshes, their outputs at hand, and held against the references.
#pragma once

#include "support/arrays.hpp"
#include "support/host_calls.hpp"
#include "support/lattice_reference.hpp"

#include <skoklana/iso.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace lattice_calls {

using lattice_reference::lattice;
using lattice_reference::level_set;
using lattice_reference::numbers;

enum class operation { surface, lines };

inline numbers copied(const qx_long *list, qx_long count)
{
    return numbers(list, list + count);
}

// The outputs of one call, as they were left.
struct level_call {
    operation what;
    int result = -7;
    qx_long nnodes = -7, nline = -7, nline_conn = -7, ntri = -7, ntri_conn = -7, map_count = -7;
    qx_long *min_node, *max_node, *line_conn, *tri_conn, *map;

    explicit level_call(operation operation_) : what(operation_)
    {
        for (qx_long **list : lists())
            *list = &nnodes; // not null, not to be freed
    }
    level_call(const level_call &) = delete;
    level_call &operator=(const level_call &) = delete;
    ~level_call() { release(); }

    void run(mesh_info *mesh, const void *data, int type, const void *null, double level, bool mapped)
    {
        qx_long *const count = mapped ? &map_count : nullptr, **const list = mapped ? &map : nullptr;
        if (!mapped) {
            map_count = 0;
            map = nullptr;
        }
        if (what == operation::surface) {
            result = UTILslice_struct(mesh, data, type, null != nullptr, null, level, &nnodes, &min_node,
                                      &max_node, &nline, &line_conn, &nline_conn, &ntri, &tri_conn,
                                      &ntri_conn, count, list);
        } else {
            ntri = ntri_conn = 0;
            tri_conn = nullptr;
            result = UTILisoline_struct(mesh, data, type, null != nullptr, null, level, &nnodes, &min_node,
                                        &max_node, &nline, &line_conn, &nline_conn, count, list);
        }
    }

    void release()
    {
        for (qx_long **list : lists()) {
            if (*list != &nnodes) free(*list);
            *list = nullptr;
        }
    }

    bool is_empty() const
    {
        return nnodes == 0 && nline == 0 && nline_conn == 0 && ntri == 0 && ntri_conn == 0 &&
               map_count == 0 && min_node == nullptr && max_node == nullptr && line_conn == nullptr &&
               tri_conn == nullptr && map == nullptr;
    }

    level_set out() const
    {
        level_set made;
        made.min_node = copied(min_node, nnodes);
        made.max_node = copied(max_node, nnodes);
        made.connect =
            what == operation::surface ? copied(tri_conn, ntri_conn) : copied(line_conn, nline_conn);
        if (map != nullptr) made.cell = copied(map, map_count);
        return made;
    }

  private:
    std::vector<qx_long **> lists() { return {&min_node, &max_node, &line_conn, &tri_conn, &map}; }
};

// The surface of a mesh of three axes or the lines of one of two, with the counts held against each other.
template <typename T>
level_set extracted(mesh_info *mesh, const std::vector<T> &data, double level, const T *null,
                    bool mapped = true)
{
    level_call call(mesh->ndim == 3 ? operation::surface : operation::lines);
    call.run(mesh, data.data(), arrays::dtype_of<T>, null, level, mapped);
    EXPECT_EQ(call.result, 1);
    if (call.result != 1) return {};
    EXPECT_EQ(call.nline_conn, 2 * call.nline);
    EXPECT_EQ(call.ntri_conn, 3 * call.ntri);
    if (call.what == operation::surface) {
        EXPECT_EQ(call.nline, 0);
        EXPECT_EQ(call.line_conn, nullptr);
    }
    EXPECT_EQ(call.map_count, mapped ? call.nline + call.ntri : 0);
    return call.out();
}

template <typename T>
level_set expect_as_reference(lattice &in, const std::vector<T> &data, double level, const T *null)
{
    const level_set expected = in.dims.size() == 3 ? lattice_reference::surface(in.dims, data, level, null)
                                                   : lattice_reference::lines(in.dims, data, level, null);
    const level_set got = extracted(&in.mesh, data, level, null);
    EXPECT_EQ(got.min_node, expected.min_node);
    EXPECT_EQ(got.max_node, expected.max_node);
    EXPECT_EQ(got.connect, expected.connect);
    EXPECT_EQ(got.cell, expected.cell);
    return expected;
}

// Refuses each allocation of a call in turn. At least four failures, of the first lists and the new nodes, are
// silent; others are reported in one of the given ways, each of which comes twice or more.
template <typename T>
void expect_clean_failures(operation what, lattice &in, const std::vector<T> &data, double level, T null,
                           const std::vector<std::string> &reports)
{
    host_calls::reset();
    int nallocations = 0;
    level_set clean;
    {
        level_call call(what);
        host_calls::watch watch;
        call.run(&in.mesh, data.data(), arrays::dtype_of<T>, &null, level, true);
        nallocations = watch.allocations();
        ASSERT_EQ(call.result, 1);
        ASSERT_GT(call.map_count, 3000);
        EXPECT_EQ(watch.live_blocks(), 4);
        clean = call.out();
        call.release();
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    std::map<std::vector<std::string>, int> failures;
    int insisted = 0;
    for (int k = 0; k < nallocations; ++k) {
        SCOPED_TRACE(k);
        host_calls::reset();
        level_call call(what);
        host_calls::watch watch;
        host_calls::fail_allocation(k);
        call.run(&in.mesh, data.data(), arrays::dtype_of<T>, &null, level, true);
        EXPECT_TRUE(host_calls::allocation_was_refused());
        if (call.result == 1) {
            EXPECT_EQ(host_calls::seen().out_of_memory, std::vector<std::string>{"Cannot alloc flags array"});
            EXPECT_TRUE(call.out() == clean);
            ++insisted;
        } else {
            EXPECT_EQ(call.result, 0);
            EXPECT_TRUE(call.is_empty());
            EXPECT_EQ(watch.live_blocks(), 0);
            EXPECT_TRUE(host_calls::seen().out_of_memory.empty());
            ++failures[host_calls::report_texts()];
        }
    }
    EXPECT_GE(insisted, 1);
    EXPECT_GE(failures[{}], 4);
    for (const std::string &report : reports)
        EXPECT_GE(failures[{report}], 2) << report;
    EXPECT_EQ(failures.size(), 1 + reports.size());
    host_calls::reset();
}

// Calls that must be refused without a word.
inline void expect_silent_refusal(operation what, const numbers &dims, const std::vector<double> &data,
                                  int type)
{
    lattice in(dims);
    host_calls::reset();
    level_call call(what);
    call.run(&in.mesh, data.data(), type, nullptr, 0.5, true);
    EXPECT_EQ(call.result, 0);
    EXPECT_TRUE(call.is_empty());
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

} // namespace lattice_calls
