#include <skoklana/iso.h>
#include <skoklana/thread.h>

#include "support/fresh_host.hpp"
#include "support/levels.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>

namespace {

using numbers = std::vector<qx_long>;
using levels::bare_set;
using edges = std::vector<std::pair<qx_long, qx_long>>;

// One kind of volume cell with its three forms.
struct volume_kind {
    int kind, nnodes;
    slice_cell_func plain;
    qx_long (*threaded)(int, mesh_info *, int, int, unsigned char *, edge_table *, qx_long **, qx_long *,
                        qx_long *, qx_long **);
    void *(*worker)(void *);
};

const volume_kind kinds[] = {{CELL_TET, 4, UTILslice_tet, UTILmt_slice_tet, thread_func_slice_tet},
                             {CELL_HEX, 8, UTILslice_hex, UTILmt_slice_hex, thread_func_slice_hex},
                             {CELL_PRISM, 6, UTILslice_prism, UTILmt_slice_prism, thread_func_slice_prism},
                             {CELL_PYR, 5, UTILslice_pyr, UTILmt_slice_pyr, thread_func_slice_pyr}};

// What kernels append to.
struct output {
    edge_table *table;
    qx_long *connect = nullptr, used = -7, capacity = 0;
    qx_long *map = nullptr;

    explicit output(qx_long nnodes, bool mapped = true) : table(UTILedge_table_create(nnodes))
    {
        if (mapped) map = static_cast<qx_long *>(malloc(1024 * sizeof(qx_long)));
    }
    output(const output &) = delete;
    output &operator=(const output &) = delete;
    ~output()
    {
        UTILedge_table_delete(table);
        free(connect);
        free(map);
    }

    numbers list() const { return {connect, connect + used}; }
    numbers cells(qx_long count) const { return {map, map + count}; }
    edges nodes() const
    {
        edges pairs;
        for (int e = 0; e < table->nedges; ++e)
            pairs.push_back({table->min_list[e], table->max_list[e]});
        return pairs;
    }
};

// A set with random flags.
struct flagged_set {
    meshes::mesh_ptr mesh;
    std::vector<unsigned char> flags;

    flagged_set(const volume_kind &kind, int n, unsigned seed)
        : mesh(meshes::cells(kind.kind, 1, {n, n, n}, seed))
    {
        std::mt19937 random(seed);
        for (qx_long node = 0; node < mesh->nnodes(); ++node)
            flags.push_back(random() % 23 == 0 ? 2 : random() % 2);
    }
};

// What the kernel of one thread makes of some cells alone, with a table of their own.
struct piece {
    numbers connect, cells;
    edges nodes;
};

piece piece_of(const volume_kind &kind, const flagged_set &in, qx_long first, qx_long count, int null_flag)
{
    mesh_info mesh = *in.mesh->mesh;
    qx_long *rows = in.mesh->connect[0].data() + first * kind.nnodes;
    mesh.cell_connect = &rows;
    mesh.cell_count = &count;
    output out(mesh.nnodes);
    std::vector<unsigned char> flags = in.flags;
    const qx_long made = kind.plain(&mesh, 0, null_flag, flags.data(), out.table, &out.connect, &out.used,
                                    &out.capacity, &out.map);
    piece got = {out.list(), out.cells(made), out.nodes()};
    for (qx_long &cell : got.cells)
        cell += first;
    return got;
}

template <typename T> void append(std::vector<T> *to, const std::vector<T> &more)
{
    to->insert(to->end(), more.begin(), more.end());
}

TEST(ThreadedCellSurface, EachThreadCountsForItselfAndAllIsAppended)
{
    for (const volume_kind &kind : kinds) {
        for (const int null_flag : {0, 1}) {
            flagged_set in(kind, kind.kind == CELL_HEX ? 8 : 4, 3 + static_cast<unsigned>(kind.kind));
            const qx_long ncells = *in.mesh->mesh->cell_count;
            for (int nthreads = 1; nthreads <= 16; ++nthreads) {
                SCOPED_TRACE(std::to_string(kind.kind) + ", threads " + std::to_string(nthreads));
                numbers shares(static_cast<size_t>(nthreads));
                UTILmt_divide_number(nthreads, ncells, shares.data());
                piece wanted;
                qx_long first = 0;
                for (const qx_long share : shares) {
                    const piece p = piece_of(kind, in, first, share, null_flag);
                    append(&wanted.connect, p.connect);
                    append(&wanted.cells, p.cells);
                    append(&wanted.nodes, p.nodes);
                    first += share;
                }
                output out(in.mesh->mesh->nnodes);
                host_calls::reset();
                const qx_long made =
                    kind.threaded(nthreads, in.mesh->mesh, 0, null_flag, in.flags.data(), out.table,
                                  &out.connect, &out.used, &out.capacity, &out.map);
                EXPECT_EQ(3 * made, static_cast<qx_long>(wanted.connect.size()));
                EXPECT_GT(made, 100);
                EXPECT_EQ(out.list(), wanted.connect);
                EXPECT_EQ(out.cells(made), wanted.cells);
                EXPECT_EQ(out.nodes(), wanted.nodes);
                EXPECT_GE(out.capacity, out.used + 25);
                EXPECT_GE(out.table->max_edges, out.table->nedges);
                host_calls::expect_checks({20, 90});
            }
        }
    }
}

TEST(ThreadedCellSurface, OneThreadGivesWhatTheKernelGives)
{
    for (const volume_kind &kind : kinds) {
        flagged_set in(kind, 5, 9);
        output plain(in.mesh->mesh->nnodes), threaded(in.mesh->mesh->nnodes);
        const qx_long wanted = kind.plain(in.mesh->mesh, 0, 1, in.flags.data(), plain.table, &plain.connect,
                                          &plain.used, &plain.capacity, &plain.map);
        const qx_long made =
            kind.threaded(1, in.mesh->mesh, 0, 1, in.flags.data(), threaded.table, &threaded.connect,
                          &threaded.used, &threaded.capacity, &threaded.map);
        EXPECT_EQ(made, wanted);
        EXPECT_EQ(threaded.list(), plain.list());
        EXPECT_EQ(threaded.nodes(), plain.nodes());
        EXPECT_EQ(threaded.cells(made), plain.cells(made));
    }
}

// Calls on one list, one after the other: numbers begin at 0 again, edges go behind those that are there, and a kernel
// of one thread may follow.
TEST(ThreadedCellSurface, AppendsToWhatIsThere)
{
    const volume_kind &kind = kinds[1];
    flagged_set in(kind, 12, 4);
    mesh_info *mesh = in.mesh->mesh;
    output out(mesh->nnodes, false);
    const qx_long once = kind.threaded(2, mesh, 0, 0, in.flags.data(), out.table, &out.connect, &out.used,
                                       &out.capacity, nullptr);
    const numbers list = out.list();
    const edges nodes = out.nodes();
    EXPECT_GT(list.size(), 3000u);
    EXPECT_GT(nodes.size(), 2000u);
    qx_long *no_map = nullptr;
    EXPECT_EQ(kind.threaded(2, mesh, 0, 0, in.flags.data(), out.table, &out.connect, &out.used, &out.capacity,
                            &no_map),
              once);
    EXPECT_EQ(no_map, nullptr);
    numbers twice = list;
    append(&twice, list);
    edges both = nodes;
    append(&both, nodes);
    EXPECT_EQ(out.list(), twice);
    EXPECT_EQ(out.nodes(), both);
    EXPECT_EQ(
        kind.plain(mesh, 0, 0, in.flags.data(), out.table, &out.connect, &out.used, &out.capacity, nullptr),
        once);
    EXPECT_EQ(out.used, 3 * static_cast<qx_long>(list.size()));
    EXPECT_EQ(out.connect[2 * list.size()], static_cast<qx_long>(both.size()))
        << "merged edges are not found";
}

TEST(ThreadedCellSurface, EmptyAndFullCasesMakeNothing)
{
    const volume_kind &kind = kinds[0];
    flagged_set in(kind, 2, 4);
    for (const unsigned char flag : {0, 1}) {
        std::fill(in.flags.begin(), in.flags.end(), flag);
        output out(in.mesh->mesh->nnodes);
        EXPECT_EQ(kind.threaded(3, in.mesh->mesh, 0, 1, in.flags.data(), out.table, &out.connect, &out.used,
                                &out.capacity, &out.map),
                  0);
        EXPECT_EQ(out.table->nedges, 0);
        EXPECT_EQ(out.used, 0);
        EXPECT_NE(out.connect, nullptr);
        EXPECT_EQ(out.capacity, 1024);
    }
}

TEST(ThreadedCellSurface, MoreThreadsThanCellsAreNotStarted)
{
    bare_set in(4, 3, {0, 1, 2, 3, 4, 5, 6, 7});
    std::vector<unsigned char> flags = {1, 0, 0, 0, 1, 0, 0, 0};
    output out(8);
    const int before = host_calls::threads_started();
    EXPECT_EQ(UTILmt_slice_tet(50, &in.mesh, 0, 0, flags.data(), out.table, &out.connect, &out.used,
                               &out.capacity, &out.map),
              2);
    EXPECT_EQ(host_calls::threads_started() - before, 2);
    EXPECT_EQ(out.list(), (numbers{out.connect[0], out.connect[1], out.connect[2], out.connect[0],
                                   out.connect[1], out.connect[2]}));
    in.count = 0;
    EXPECT_EQ(UTILmt_slice_tet(50, &in.mesh, 0, 0, flags.data(), out.table, &out.connect, &out.used,
                               &out.capacity, nullptr),
              0);
    EXPECT_EQ(UTILmt_slice_tet(-2, &in.mesh, 0, 0, flags.data(), out.table, &out.connect, &out.used,
                               &out.capacity, nullptr),
              0);
}

// A worker called on its own, with lists that it has to begin.
TEST(ThreadedCellSurface, WorkersTakeRangesOfAnyone)
{
    for (const volume_kind &kind : kinds) {
        flagged_set in(kind, 4, 12);
        const piece wanted = piece_of(kind, in, 11, 30, 1);
        qx_long *conn = nullptr, used = 5, capacity = 0, *cells = static_cast<qx_long *>(malloc(1024 * 8)),
                cells_used = -7;
        thread_slice_arg arg = {};
        arg.first = 11;
        arg.last = 40;
        arg.cell_nnodes = kind.nnodes;
        arg.connect = in.mesh->connect[0].data();
        arg.null_check = 1;
        arg.flags = in.flags.data();
        arg.edges = UTILmt_edge_table_create(in.mesh->nnodes());
        arg.conn = &conn;
        arg.conn_used = &used;
        arg.conn_cap = &capacity;
        arg.cells = &cells;
        arg.cells_used = &cells_used;
        host_calls::reset();
        EXPECT_EQ(kind.worker(&arg), &arg);
        EXPECT_EQ(numbers(conn, conn + used), wanted.connect);
        EXPECT_EQ(numbers(cells, cells + cells_used), wanted.cells);
        EXPECT_EQ(arg.edges->count, static_cast<int>(wanted.nodes.size()));
        EXPECT_TRUE(host_calls::seen().arrays.empty());
        EXPECT_TRUE(host_calls::seen().statuses.empty());
        arg.first = 5;
        arg.last = 4;
        EXPECT_EQ(kind.worker(&arg), &arg) << "no cells";
        EXPECT_EQ(used, static_cast<qx_long>(wanted.connect.size()));
        UTILmt_edge_table_delete(arg.edges);
        free(conn);
        free(cells);
    }
}

TEST(ThreadedCellSurface, AConnectListThatCannotBeHadIsReported)
{
    bare_set in(4, 3, {0, 1, 2, 3});
    in.fetched = nullptr;
    in.mesh.get_connect = [](mesh_info *, int, qx_long **) { return 0; };
    std::vector<unsigned char> flags = {1, 0, 0, 0};
    output out(4);
    host_calls::reset();
    EXPECT_EQ(UTILmt_slice_tet(2, &in.mesh, 0, 0, flags.data(), out.table, &out.connect, &out.used,
                               &out.capacity, &out.map),
              0);
    EXPECT_EQ(host_calls::report_texts(),
              (std::vector<std::string>{"fld_info: unable to get cell set connect list"}));
    EXPECT_EQ(out.connect, nullptr);
    EXPECT_TRUE(host_calls::seen().statuses.empty());
}

TEST(ThreadedCellSurface, ThreadsThatCannotBeStartedAreDoneByTheCaller)
{
    const volume_kind &kind = kinds[1];
    flagged_set in(kind, 6, 4);
    numbers wanted;
    for (int k = -1; k < 4; ++k) {
        host_calls::reset();
        if (k >= 0) host_calls::fail_thread(k);
        output out(in.mesh->mesh->nnodes);
        kind.threaded(4, in.mesh->mesh, 0, 0, in.flags.data(), out.table, &out.connect, &out.used,
                      &out.capacity, &out.map);
        if (k < 0) wanted = out.list();
        EXPECT_EQ(out.list(), wanted) << k;
    }
    host_calls::reset();
}

// Lists can be appended to afterwards: their capacity is not more than there is.
TEST(ThreadedCellSurface, WithoutMemoryThereIsAReportAndNothingIsLeft)
{
    const volume_kind &kind = kinds[0];
    flagged_set in(kind, 8, 4);
    const std::vector<std::string> known = {
        "UTILmt_slice: cannot alloc thread argment array.", "UTILslice: alloc for connect list failed",
        "UTILslice: realloc for connect list failed", "UTILslice: realloc for cell list failed",
        "UTILslice: realloc for edge table failed"};
    for (const int nthreads : {1, 2}) {
        std::vector<std::string> texts;
        qx_long triangles = 0;
        for (int k = -1;; ++k) {
            SCOPED_TRACE(std::to_string(nthreads) + " threads, allocation " + std::to_string(k));
            host_calls::reset();
            host_calls::watch watch;
            bool refused = false;
            {
                output out(in.mesh->mesh->nnodes);
                const auto slice = [&] {
                    return kind.threaded(nthreads, in.mesh->mesh, 0, 0, in.flags.data(), out.table,
                                         &out.connect, &out.used, &out.capacity, &out.map);
                };
                if (k >= 0) host_calls::fail_allocation(k);
                const qx_long made = slice();
                refused = k >= 0 && host_calls::allocation_was_refused();
                EXPECT_EQ(host_calls::seen().reports.size(), refused ? 1u : 0u);
                append(&texts, host_calls::report_texts());
                if (k < 0) triangles = made;
                if (refused) {
                    host_calls::reset();
                    const qx_long before = out.used;
                    EXPECT_LE(out.used, out.capacity);
                    EXPECT_EQ(slice(), triangles);
                    EXPECT_EQ(out.used, before + 3 * triangles);
                }
            }
            EXPECT_EQ(watch.live_blocks(), 0);
            if ((k >= 0 && !refused) || testing::Test::HasFailure()) break;
        }
        EXPECT_GT(triangles, 1000);
        std::sort(texts.begin(), texts.end());
        texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
        for (const std::string &text : texts)
            EXPECT_NE(std::find(known.begin(), known.end(), text), known.end()) << text;
        EXPECT_EQ(texts.size(), known.size()) << testing::PrintToString(texts);
    }
}

// ---- whole meshes ----------------------------------------------------------------------------------------

levels::output sliced(int nthreads, const levels::call &c)
{
    levels::raw_output out;
    qx_long *map_count = nullptr, **map = nullptr;
    if (c.with_maps) {
        out.map_count.assign(static_cast<size_t>(c.mesh->ncell_sets), -7);
        out.map.assign(static_cast<size_t>(c.mesh->ncell_sets), nullptr);
        map_count = out.map_count.data();
        map = out.map.data();
    }
    out.status =
        UTILmt_slice_cells(nthreads, c.mesh, c.data, c.data_type, c.null_flag, c.null_value, c.level,
                           &out.nnodes, &out.min_node, &out.max_node, &out.nline, &out.line_conn,
                           &out.nline_conn, &out.ntri, &out.tri_conn, &out.ntri_conn, map_count, map);
    return levels::taken(out);
}

// The places of triangles' corners, whatever the new nodes are called: for that each thread's numbers are to be told
// apart, so this goes by maps and counts only.
TEST(ThreadedSlice, OneThreadAndOneSetGiveThePlainSurface)
{
    for (const volume_kind &kind : kinds) {
        const auto in = levels::bind(meshes::cells(kind.kind, 1, {6, 6, 6}, 5));
        const std::vector<float> data = levels::rough_values<float>(3, in->nnodes(), 50, 7);
        const float null = 7;
        const levels::call call = {
            in->mesh, data.data(), DTYPE_FLOAT, 1, &null, 50, levels::operation::isosurface, true};
        const levels::output plain = levels::run(call), threaded = sliced(1, call);
        EXPECT_EQ(threaded.status, 1);
        EXPECT_TRUE(threaded == plain);
        EXPECT_GT(plain.ntri, 50);
    }
}

TEST(ThreadedSlice, CountsAndMapsAreThoseOfThePlainFormOnEveryMesh)
{
    const auto in = levels::bind(
        meshes::mixed({CELL_HEX, CELL_TET, CELL_QUAD, CELL_PRISM, CELL_LINE, CELL_PYR, CELL_HEX, CELL_TET},
                      {1, 1, 1, 1, 1, 1, 2, 2}, 3, 7));
    const std::vector<double> data = levels::rough_values<double>(4, in->nnodes(), 50, 7);
    const levels::call call = {
        in->mesh, data.data(), DTYPE_DOUBLE, 0, nullptr, 50, levels::operation::isosurface, true};
    const levels::output plain = levels::run(call);
    for (int nthreads : {1, 2, 3, 5, 16, 400}) {
        SCOPED_TRACE(nthreads);
        const levels::output threaded = sliced(nthreads, call);
        EXPECT_EQ(threaded.status, 1);
        EXPECT_EQ(threaded.ntri, plain.ntri);
        EXPECT_EQ(threaded.nline, 0);
        EXPECT_FALSE(threaded.has_lines);
        ASSERT_EQ(threaded.maps.size(), plain.maps.size());
        for (size_t set = 0; set < plain.maps.size(); ++set) {
            // Surface cells make nothing.
            EXPECT_EQ(threaded.maps[set], set == 2 ? numbers() : plain.maps[set]) << set;
        }
        EXPECT_GE(threaded.nodes.size(), plain.nodes.size() / 2);
        for (const qx_long node : threaded.triangles) {
            EXPECT_GE(node, 0);
            EXPECT_LT(node, static_cast<qx_long>(threaded.nodes.size()));
        }
    }
}

TEST(ThreadedSlice, StatusCallsOfTheSets)
{
    const auto in = levels::bind(meshes::mixed({CELL_HEX, CELL_TRI}, {1, 1}, 2, 7));
    const std::vector<float> data = meshes::random_values<float>(4, in->nnodes(), 0, 1);
    host_calls::reset();
    host_calls::interrupt_at(0);
    EXPECT_EQ(sliced(2, {in->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5}).status, 1);
    std::vector<int> told;
    for (const host_calls::status &status : host_calls::seen().statuses)
        told.push_back(status.percent);
    EXPECT_EQ(told, (std::vector<int>{20, 90}));
    EXPECT_EQ(host_calls::seen().depth, 0);
    host_calls::reset();
}

TEST(ThreadedSlice, ASetWithoutAConnectListMakesNothingAndTheOthersGoOn)
{
    const auto in = levels::bind(meshes::mixed({CELL_HEX, CELL_TET}, {1, 1}, 2, 7));
    const std::vector<float> data = meshes::random_values<float>(4, in->nnodes(), 0, 1);
    static int (*fetch)(mesh_info *, int, qx_long **);
    fetch = in->mesh->get_connect;
    in->mesh->get_connect = [](mesh_info *mesh, int set, qx_long **connect) {
        return set == 0 ? 0 : fetch(mesh, set, connect);
    };
    const levels::call call = {
        in->mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5, levels::operation::isosurface, true};
    host_calls::reset();
    const levels::output out = sliced(2, call);
    EXPECT_EQ(out.status, 1);
    EXPECT_GT(out.ntri, 5);
    EXPECT_TRUE(out.maps[0].empty());
    EXPECT_EQ(static_cast<qx_long>(out.maps[1].size()), out.ntri);
    EXPECT_EQ(host_calls::report_texts(),
              (std::vector<std::string>{"fld_info: unable to get cell set connect list"}));
    host_calls::reset();
}

TEST(ThreadedSlice, UnknownTypeFailsAsThePlainForm)
{
    const auto in = levels::bind(meshes::cells(CELL_HEX, 1, {2, 2, 2}, 7));
    const std::vector<float> data(27, 0.0f);
    host_calls::reset();
    EXPECT_EQ(sliced(2, {in->mesh, data.data(), 9}).status, 0);
    EXPECT_EQ(host_calls::report_texts(),
              (std::vector<std::string>{"UTILthreshold_scalar: unknown data type"}));
    host_calls::reset();
}

} // namespace
