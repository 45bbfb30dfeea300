#include <skoklana/cut.h>
#include <skoklana/thread.h>

#include "support/cut_reference.hpp"
#include "support/fresh_host.hpp"
#include "support/host_calls.hpp"
#include "support/levels.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

// The counts of cells are written by all threads, without a lock, and may come out low: that is their contract.
extern "C" __attribute__((visibility("default"))) const char *__tsan_default_suppressions()
{
    return "race:add_to_shared_counts\n";
}

namespace {

using numbers = std::vector<qx_long>;
using levels::bare_set;
using edges = std::vector<std::pair<qx_long, qx_long>>;

// One kind of cell with its three forms.
struct cut_forms {
    const char *name;
    int kind, nnodes, whole_list, piece_list, last_case;
    cut_cell_func plain;
    decltype(UTILmt_cut_hex) *threaded;
    void *(*worker)(void *);
};

const cut_forms forms[] = {
    {"hex", CELL_HEX, 8, 3, 0, 255, UTILcut_hex, UTILmt_cut_hex, thread_func_cut_hex},
    {"prism", CELL_PRISM, 6, 1, 0, 63, UTILcut_prism, UTILmt_cut_prism, thread_func_cut_prism},
    {"pyr", CELL_PYR, 5, 2, 0, 31, UTILcut_pyr, UTILmt_cut_pyr, thread_func_cut_pyr},
    {"tet", CELL_TET, 4, 0, 0, 15, UTILcut_tet, UTILmt_cut_tet, thread_func_cut_tet},
    {"quad", CELL_QUAD, 4, 5, 4, 15, UTILcut_quad, UTILmt_cut_quad, thread_func_cut_quad},
    {"tri", CELL_TRI, 3, 4, 4, 7, UTILcut_tri, UTILmt_cut_tri, thread_func_cut_tri},
    {"line", CELL_LINE, 2, 6, 6, 3, UTILcut_line, UTILmt_cut_line, thread_func_cut_line}};

// What kernels append to.
struct output {
    edge_table *table;
    qx_long ncells[7] = {}, used[7] = {}, capacity[7] = {}, step[7] = {}, map_count[7] = {};
    qx_long *connect[7] = {}, *map[7] = {};

    explicit output(qx_long nnodes) : table(UTILedge_table_create(nnodes))
    {
        for (qx_long *&list : map)
            list = static_cast<qx_long *>(malloc(1024 * sizeof(qx_long)));
    }
    output(const output &) = delete;
    output &operator=(const output &) = delete;
    ~output()
    {
        UTILedge_table_delete(table);
        for (int list = 0; list < 7; ++list) {
            free(connect[list]);
            free(map[list]);
        }
    }

    std::vector<numbers> lists() const
    {
        std::vector<numbers> all;
        for (int list = 0; list < 7; ++list) {
            all.emplace_back(connect[list], connect[list] + used[list]);
            all.emplace_back(map[list], map[list] + map_count[list]);
        }
        return all;
    }
    edges nodes() const
    {
        edges pairs;
        for (int e = 0; e < table->nedges; ++e)
            pairs.push_back({table->min_list[e], table->max_list[e]});
        return pairs;
    }
};

struct flagged_set {
    meshes::mesh_ptr mesh;
    std::vector<unsigned char> flags;
    numbers node_map;
    qx_long nold = 0;

    flagged_set(const cut_forms &form, int n, unsigned seed)
        : mesh(meshes::cells(form.kind, 1, cubes(form, n), seed))
    {
        std::mt19937 random(seed);
        for (qx_long node = 0; node < mesh->nnodes(); ++node) {
            flags.push_back(random() % 23 == 0 ? 2 : random() % 3 != 0);
            node_map.push_back(nold++);
        }
    }

    static std::vector<int> cubes(const cut_forms &form, int n)
    {
        const int ndim = cell_kinds[form.kind].ndim;
        return ndim == 3   ? std::vector<int>{n, n, n}
               : ndim == 2 ? std::vector<int>{n * n, n}
                           : std::vector<int>{n * n * n};
    }

    int run(const cut_forms &form, int nthreads, output *out, int null_flag, int side, bool mapped = true)
    {
        qx_long *const count = mapped ? out->map_count : nullptr, **const map = mapped ? out->map : nullptr;
        return nthreads == 0 ? form.plain(mesh->mesh, 0, null_flag, flags.data(), side, nold, node_map.data(),
                                          out->table, out->ncells, out->connect, out->used, out->capacity,
                                          out->step, count, map)
                             : form.threaded(nthreads, mesh->mesh, 0, null_flag, flags.data(), side, nold,
                                             node_map.data(), out->table, out->ncells, out->connect,
                                             out->used, out->capacity, out->step, count, map);
    }
};

template <typename T> void append(std::vector<T> *to, const std::vector<T> &more)
{
    to->insert(to->end(), more.begin(), more.end());
}

// What the kernel of one thread makes of shares of the cells, each with a table of its own.
struct pieces {
    std::vector<numbers> lists = std::vector<numbers>(14);
    edges nodes;
    qx_long ncells[7] = {};
};

pieces pieces_of(const cut_forms &form, flagged_set *in, int nthreads, int null_flag, int side)
{
    pieces all;
    numbers shares(static_cast<size_t>(nthreads));
    UTILmt_divide_number(nthreads, *in->mesh->mesh->cell_count, shares.data());
    qx_long first = 0;
    for (qx_long share : shares) {
        mesh_info mesh = *in->mesh->mesh;
        qx_long *rows = in->mesh->connect[0].data() + first * form.nnodes;
        mesh.cell_connect = &rows;
        mesh.cell_count = &share;
        output out(mesh.nnodes);
        form.plain(&mesh, 0, null_flag, in->flags.data(), side, in->nold, in->node_map.data(), out.table,
                   out.ncells, out.connect, out.used, out.capacity, out.step, out.map_count, out.map);
        const std::vector<numbers> lists = out.lists();
        for (size_t l = 0; l < 14; ++l) {
            numbers list = lists[l];
            if (l % 2 == 1)
                for (qx_long &cell : list)
                    cell += first;
            append(&all.lists[l], list);
        }
        append(&all.nodes, out.nodes());
        for (int l = 0; l < 7; ++l)
            all.ncells[l] += out.ncells[l];
        first += share;
    }
    return all;
}

TEST(ThreadedCellCut, EachThreadCountsForItselfAndAllIsAppended)
{
    for (const cut_forms &form : forms) {
        flagged_set in(form, 6, 3);
        for (const int side : {1, -1}) {
            for (int nthreads = 1; nthreads <= 16; ++nthreads) {
                SCOPED_TRACE(std::string(form.name) + ", threads " + std::to_string(nthreads));
                const int null_flag = nthreads % 2;
                const pieces wanted = pieces_of(form, &in, nthreads, null_flag, side);
                output out(in.mesh->mesh->nnodes);
                host_calls::reset();
                EXPECT_EQ(in.run(form, nthreads, &out, null_flag, side), 1);
                EXPECT_EQ(out.lists(), wanted.lists);
                EXPECT_EQ(out.nodes(), wanted.nodes);
                host_calls::expect_checks({20, 90, 100});
                for (int l = 0; l < 7; ++l) {
                    EXPECT_LE(out.ncells[l], wanted.ncells[l]);
                    EXPECT_GE(out.ncells[l], 0);
                    if (nthreads == 1) {
                        EXPECT_EQ(out.ncells[l], wanted.ncells[l]);
                    }
                    EXPECT_GE(out.capacity[l], std::max<qx_long>(out.used[l], 1024));
                }
                EXPECT_GT(wanted.nodes.size(), 30u);
                EXPECT_GE(out.table->max_edges, out.table->nedges);
            }
        }
    }
}

TEST(ThreadedCellCut, AppendsToWhatIsThere)
{
    const cut_forms &form = forms[0];
    flagged_set in(form, 9, 4);
    output out(in.mesh->mesh->nnodes);
    ASSERT_EQ(in.run(form, 2, &out, 0, 1), 1);
    const std::vector<numbers> once = out.lists();
    const edges nodes = out.nodes();
    EXPECT_GT(nodes.size(), 1100u);
    ASSERT_EQ(in.run(form, 2, &out, 0, 1), 1);
    std::vector<numbers> twice = once;
    for (size_t l = 0; l < 14; ++l)
        append(&twice[l], once[l]);
    EXPECT_EQ(out.lists(), twice);
    // A kernel of one thread goes on with lists and table.
    qx_long used[7];
    std::copy_n(out.used, 7, used);
    const int nedges = out.table->nedges;
    ASSERT_EQ(in.run(form, 0, &out, 0, 1, false), 1);
    EXPECT_EQ(out.used[0], used[0] / 2 * 3);
    EXPECT_GT(out.table->nedges, nedges);
}

TEST(ThreadedCellCut, WithoutMapsTheRestIsTheSame)
{
    for (const cut_forms &form : forms) {
        flagged_set in(form, 4, 4);
        output with(in.mesh->mesh->nnodes), without(in.mesh->mesh->nnodes);
        ASSERT_EQ(in.run(form, 3, &with, 0, 1), 1);
        ASSERT_EQ(in.run(form, 3, &without, 0, 1, false), 1);
        for (int l = 0; l < 7; ++l)
            EXPECT_EQ(numbers(with.connect[l], with.connect[l] + with.used[l]),
                      numbers(without.connect[l], without.connect[l] + without.used[l]));
        EXPECT_EQ(numbers(without.map_count, without.map_count + 7), numbers(7, 0));
    }
}

TEST(ThreadedCellCut, MapsThatAreNotThereAreMade)
{
    flagged_set in(forms[3], 3, 4);
    output out(in.mesh->mesh->nnodes), wanted(in.mesh->mesh->nnodes);
    for (qx_long *&list : out.map) {
        free(list);
        list = nullptr;
    }
    ASSERT_EQ(in.run(forms[3], 2, &out, 0, 1), 1);
    ASSERT_EQ(in.run(forms[3], 2, &wanted, 0, 1), 1);
    EXPECT_EQ(out.lists(), wanted.lists());
    EXPECT_GT(out.map_count[0], 100);
}

TEST(ThreadedCellCut, MoreThreadsThanCellsAreNotStarted)
{
    const cut_forms &form = forms[6];
    flagged_set in(form, 1, 4); // one line
    output out(in.mesh->mesh->nnodes);
    in.flags = {1, 0};
    const int before = host_calls::threads_started();
    EXPECT_EQ(in.run(form, 50, &out, 0, 1), 1);
    EXPECT_EQ(host_calls::threads_started() - before, 0) << "one share is the caller's own";
    EXPECT_EQ(out.ncells[6], 1);
    EXPECT_EQ(in.run(form, -3, &out, 0, 1), 1);
    EXPECT_EQ(out.used[6], 4);
    qx_long none = 0;
    in.mesh->mesh->cell_count = &none;
    EXPECT_EQ(in.run(form, 3, &out, 0, 1), 1);
    EXPECT_EQ(out.used[6], 4);
}

// A worker called on its own, with lists that it has to begin.
TEST(ThreadedCellCut, WorkersTakeRangesOfAnyone)
{
    for (const cut_forms &form : forms) {
        flagged_set in(form, 4, 12);
        const pieces wanted = pieces_of(form, &in, 1, 1, -1);
        qx_long ncells[7] = {5, 5, 5, 5, 5, 5, 5};
        thread_cut_arg arg = {};
        const qx_long count = *in.mesh->mesh->cell_count;
        arg.first = 0;
        arg.last = count - 1;
        arg.ncase = form.last_case;
        arg.cell_nnodes = form.nnodes;
        arg.connect = in.mesh->connect[0].data();
        arg.null_check = 1;
        arg.flags = in.flags.data();
        arg.direction = -1;
        arg.base = in.nold;
        arg.node_map = in.node_map.data();
        arg.edges = UTILmt_edge_table_create(in.mesh->nnodes());
        arg.ncells = ncells;
        host_calls::reset();
        EXPECT_EQ(form.worker(&arg), &arg);
        EXPECT_TRUE(host_calls::seen().arrays.empty());
        EXPECT_TRUE(host_calls::seen().statuses.empty());
        for (int l = 0; l < 7; ++l) {
            EXPECT_EQ(numbers(arg.conn[l], arg.conn[l] + arg.conn_used[l]),
                      wanted.lists[static_cast<size_t>(2 * l)]);
            EXPECT_EQ(arg.cells[l], nullptr);
            EXPECT_EQ(ncells[l], 5 + wanted.ncells[l]);
            free(arg.conn[l]);
            arg.conn[l] = nullptr;
            arg.conn_used[l] = arg.conn_cap[l] = 0;
        }
        EXPECT_EQ(arg.edges->count, static_cast<int>(wanted.nodes.size()));
        arg.first = 5;
        arg.last = 4;
        EXPECT_EQ(form.worker(&arg), &arg) << "no cells";
        EXPECT_EQ(arg.conn[form.whole_list], nullptr);
        UTILmt_edge_table_delete(arg.edges);
    }
}

TEST(ThreadedCellCut, AConnectListThatCannotBeHadTouchesNothing)
{
    bare_set in(4, 3, {0, 1, 2, 3});
    in.fetched = nullptr;
    in.mesh.get_connect = [](mesh_info *, int, qx_long **) { return 0; };
    std::vector<unsigned char> flags = {1, 0, 0, 0};
    const numbers node_map = {0, 1, 2, 3};
    output out(4);
    host_calls::reset();
    EXPECT_EQ(UTILmt_cut_tet(2, &in.mesh, 0, 0, flags.data(), 1, 4, node_map.data(), out.table, out.ncells,
                             out.connect, out.used, out.capacity, out.step, nullptr, nullptr),
              0);
    EXPECT_EQ(host_calls::report_texts(),
              (std::vector<std::string>{"fld_info: unable to get cell set connect list"}));
    EXPECT_EQ(out.connect[0], nullptr);
    EXPECT_TRUE(host_calls::seen().statuses.empty());
}

TEST(ThreadedCellCut, ThreadsThatCannotBeStartedAreDoneByTheCaller)
{
    for (int k = 0; k < 4; ++k) {
        flagged_set in(forms[0], 5, 4);
        output out(in.mesh->mesh->nnodes), wanted(in.mesh->mesh->nnodes);
        ASSERT_EQ(in.run(forms[0], 4, &wanted, 0, 1), 1);
        host_calls::reset();
        host_calls::fail_thread(k);
        ASSERT_EQ(in.run(forms[0], 4, &out, 0, 1), 1);
        EXPECT_EQ(out.lists(), wanted.lists()) << k;
    }
    host_calls::reset();
}

TEST(ThreadedCellCut, WithoutMemoryThereIsAReportAndNothingIsLeft)
{
    flagged_set in(forms[1], 9, 4);
    std::vector<std::string> known = {
        "UTILmt_cut_prism: cannot alloc thread argment array.", "UTILmt_cut: realloc for connect list failed",
        "UTILmt_cut: realloc for cell list failed", "UTILmt_cut: realloc for edge table failed"};
    std::vector<std::string> texts;
    for (int k = 0;; ++k) {
        SCOPED_TRACE(k);
        host_calls::reset();
        host_calls::watch watch;
        bool refused = false;
        {
            output out(in.mesh->mesh->nnodes);
            host_calls::fail_allocation(k);
            EXPECT_EQ(in.run(forms[1], 2, &out, 0, 1), 1);
            refused = host_calls::allocation_was_refused();
            const std::vector<std::string> reports = host_calls::report_texts();
            EXPECT_EQ(reports.size(), refused ? 1u : 0u);
            append(&texts, reports);
            ASSERT_FALSE(host_calls::seen().statuses.empty());
            EXPECT_EQ(host_calls::seen().statuses.back().percent, 100);
            const bool unstarted = !reports.empty() && reports[0] == known[0];
            EXPECT_EQ(host_calls::seen().statuses.size(), unstarted ? 1u : 3u);
        }
        EXPECT_EQ(watch.live_blocks(), 0);
        if (!refused || testing::Test::HasFailure()) break;
    }
    std::sort(texts.begin(), texts.end());
    texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
    std::sort(known.begin(), known.end());
    EXPECT_EQ(texts, known);
}

// ---- whole meshes ----------------------------------------------------------------------------------------

int cut_with_five(mesh_info *mesh, const void *data, int type, int null_flag, const void *null, double level,
                  int side, qx_long *nold, qx_long **node_map, qx_long *nnodes, qx_long **min_node,
                  qx_long **max_node, qx_long *ncells, qx_long **conn, qx_long *nconn, qx_long *map_count,
                  qx_long **map)
{
    return UTILmt_cut(5, mesh, data, type, null_flag, null, level, side, nold, node_map, nnodes, min_node,
                      max_node, ncells, conn, nconn, map_count, map);
}

TEST(ThreadedCutOfCells, IsThePlainCutWithoutAThread)
{
    const auto in = meshes::mixed({CELL_HEX, CELL_TET, CELL_QUAD, CELL_HEX}, {1, 1, 1, 2}, 2, 7);
    const std::vector<float> data = meshes::random_values<float>(4, in->nnodes(), 0, 1);
    const auto field = cut_reference::scalar_of<float>(data, DTYPE_FLOAT, nullptr);
    const int before = host_calls::threads_started();
    const auto wanted = cut_reference::run(UTILcut_cells, in->mesh, field, 0.5, 1, 4);
    host_calls::reset();
    const auto got = cut_reference::run(cut_with_five, in->mesh, field, 0.5, 1, 4);
    EXPECT_TRUE(got == wanted) << cut_reference::difference(got, wanted);
    EXPECT_EQ(host_calls::threads_started(), before);
    EXPECT_FALSE(host_calls::seen().pushes.empty());
    host_calls::reset();
}

} // namespace
