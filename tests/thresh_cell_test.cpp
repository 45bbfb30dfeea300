#include "support/arrays.hpp"
#include "support/fetches.hpp"
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <skoklana/cut.h>

#include <algorithm>
#include <array>
#include <string>

using namespace arrays;

namespace {

using numbers = std::vector<qx_long>;

// ---- references ------------------------------------------------------------------------------------------

template <typename T> numbers slow_map(const std::vector<T> &data, T null_value)
{
    numbers map;
    qx_long next = 0;
    for (T v : data)
        map.push_back(v == null_value ? -1 : next++);
    return map;
}

numbers kept_of(const numbers &map)
{
    numbers kept;
    for (size_t i = 0; i < map.size(); ++i)
        if (map[i] >= 0) kept.push_back(static_cast<qx_long>(i));
    return kept;
}

// The cells of a list, by row.
std::vector<numbers> rows_of(const numbers &connect, int nnodes)
{
    std::vector<numbers> rows;
    for (size_t at = 0; at < connect.size(); at += static_cast<size_t>(nnodes))
        rows.push_back(numbers(connect.begin() + static_cast<long>(at),
                               connect.begin() + static_cast<long>(at) + nnodes));
    return rows;
}

// The cells of a lattice in order of their lowest nodes, each corner by its position. A hexahedron's four
// corners of a layer start at the lowest and go along the second axis first.
std::vector<numbers> lattice_rows(const numbers &dims)
{
    using corner = std::array<qx_long, 3>;
    static const std::vector<corner> line = {{{0, 0, 0}}, {{1, 0, 0}}};
    static const std::vector<corner> quad = {{{0, 0, 0}}, {{1, 0, 0}}, {{1, 1, 0}}, {{0, 1, 0}}};
    static const std::vector<corner> hex = {{{0, 0, 0}}, {{0, 1, 0}}, {{1, 1, 0}}, {{1, 0, 0}},
                                            {{0, 0, 1}}, {{0, 1, 1}}, {{1, 1, 1}}, {{1, 0, 1}}};
    const std::vector<corner> &corners = dims.size() == 1 ? line : dims.size() == 2 ? quad : hex;
    numbers n = dims;
    n.resize(3, 1);
    std::vector<numbers> rows;
    for (qx_long lowest = 0; lowest < n[0] * n[1] * n[2]; ++lowest) {
        const corner at = {{lowest % n[0], lowest / n[0] % n[1], lowest / (n[0] * n[1])}};
        numbers row;
        for (const corner &c : corners) {
            bool inside = true;
            qx_long node = 0;
            for (size_t d = 3; d-- > 0;) {
                inside = inside && at[d] + c[d] < n[d];
                node = node * n[d] + at[d] + c[d];
            }
            if (inside) row.push_back(node);
        }
        if (row.size() == corners.size()) rows.push_back(row);
    }
    return rows;
}

// What removal leaves of some cells.
struct remains {
    numbers cells, connect;
};

remains slow_remove_nodes(const std::vector<numbers> &rows, const numbers &map)
{
    remains left;
    for (size_t cell = 0; cell < rows.size(); ++cell) {
        const numbers &row = rows[cell];
        if (std::any_of(row.begin(), row.end(), [&](qx_long n) { return map[static_cast<size_t>(n)] < 0; }))
            continue;
        left.cells.push_back(static_cast<qx_long>(cell));
        for (qx_long node : row)
            left.connect.push_back(map[static_cast<size_t>(node)]);
    }
    return left;
}

template <typename T>
remains slow_remove_cells(const std::vector<numbers> &rows, const std::vector<T> &data, T null_value)
{
    remains left;
    for (size_t cell = 0; cell < rows.size(); ++cell) {
        if (data[cell] == null_value) continue;
        left.cells.push_back(static_cast<qx_long>(cell));
        left.connect.insert(left.connect.end(), rows[cell].begin(), rows[cell].end());
    }
    return left;
}

// How often a connect list of 1000 entries grows while rows of nnodes entries are appended.
int slow_growths(qx_long nrows, int nnodes, bool raise)
{
    qx_long capacity = 1000, step = 1000;
    int growths = 0;
    for (qx_long row = 0; row < nrows; ++row)
        if (row * nnodes > capacity - nnodes) {
            capacity += step;
            if (raise) step = static_cast<qx_long>(static_cast<double>(step) * 1.5);
            ++growths;
        }
    return growths;
}

// ---- calls -----------------------------------------------------------------------------------------------

qx_long elsewhere = 0;
qx_long *const nowhere = &elsewhere; // no output may still point here after a call

numbers take(qx_long *list, qx_long count)
{
    numbers taken;
    if (list != nullptr) taken.assign(list, list + count);
    free(list);
    return taken;
}

template <typename Call> std::string stderr_of(Call call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

// Outputs of the removal of null nodes from cell sets.
struct set_outputs {
    int status = -7;
    qx_long nkept = -7, *map = nowhere;
    std::vector<qx_long *> cell_list, conn;
    numbers ncells, conn_size;

    explicit set_outputs(int nsets)
        : cell_list(static_cast<size_t>(nsets), nowhere), conn(static_cast<size_t>(nsets), nowhere),
          ncells(static_cast<size_t>(nsets), -7), conn_size(static_cast<size_t>(nsets), -7)
    {
    }

    bool empty() const
    {
        const auto all_null = [](const std::vector<qx_long *> &lists) {
            return std::all_of(lists.begin(), lists.end(), [](qx_long *list) { return list == nullptr; });
        };
        const numbers zeros(ncells.size());
        return nkept == 0 && map == nullptr && all_null(cell_list) && all_null(conn) && ncells == zeros &&
               conn_size == zeros;
    }
};

template <typename T> set_outputs remove_from_sets(mesh_info *mesh, const std::vector<T> &data, T null_value)
{
    set_outputs out(mesh->ncell_sets);
    out.status =
        UTILthresh_null_cells(mesh, data.data(), dtype_of<T>, &null_value, &out.nkept, &out.map,
                              out.cell_list.data(), out.ncells.data(), out.conn.data(), out.conn_size.data());
    return out;
}

template <typename T> set_outputs dispatch_to_sets(mesh_info *mesh, const std::vector<T> &data, T null_value)
{
    set_outputs out(mesh->ncell_sets);
    out.status =
        UTILthresh_null(mesh, data.data(), dtype_of<T>, &null_value, &out.nkept, &out.map,
                        out.cell_list.data(), out.ncells.data(), out.conn.data(), out.conn_size.data());
    return out;
}

// Outputs of the removal of null nodes from a lattice, or of null cells from either.
struct list_outputs {
    int status = -7;
    qx_long nkept = -7, *node_list = nowhere, *conn = nowhere, ncells = -7, conn_size = -7;

    bool no_cells() const { return conn == nullptr && ncells == 0 && conn_size == 0; }
    bool empty() const { return nkept == 0 && node_list == nullptr && no_cells(); }
};

template <typename T>
list_outputs remove_from_lattice(mesh_info *mesh, const std::vector<T> &data, T null_value)
{
    list_outputs out;
    out.status = UTILthresh_null_struct(mesh, data.data(), dtype_of<T>, &null_value, &out.nkept,
                                        &out.node_list, &out.conn, &out.ncells, &out.conn_size);
    return out;
}

template <typename T>
list_outputs dispatch_to_lattice(mesh_info *mesh, const std::vector<T> &data, T null_value)
{
    list_outputs out;
    int unread = 1;
    out.status = UTILthresh_null(mesh, data.data(), dtype_of<T>, &null_value, &out.nkept, &out.node_list,
                                 &out.conn, &out.ncells, &out.conn_size, &unread);
    return out;
}

template <typename T>
list_outputs remove_cells(mesh_info *mesh, int set, const std::vector<T> &data, T null_value)
{
    list_outputs out;
    out.status = UTILthresh_null_from_cells(mesh, set, data.data(), dtype_of<T>, &null_value, &out.ncells,
                                            &out.conn, &out.conn_size);
    return out;
}

// ---- data and meshes -------------------------------------------------------------------------------------

// Values of which about one in so many is null; 0: none is, 1: all are.
template <typename T> std::vector<T> values_with_nulls(uint64_t seed, qx_long count, int one_in, T null_value)
{
    std::mt19937_64 random(seed);
    const std::vector<T> edges = edge_values<T>();
    std::vector<T> values;
    for (qx_long i = 0; i < count; ++i) {
        const bool is_null = one_in > 0 && random() % static_cast<uint64_t>(one_in) == 0;
        T other = random() % 3 == 0 ? edges[random() % edges.size()] : T(random() % 6);
        if (other == null_value) other = T(null_value - 1);
        values.push_back(is_null ? null_value : other);
    }
    return values;
}

const std::vector<int> null_shares = {0, 1, 2, 4, 30};

struct mesh_case {
    std::string name;
    meshes::mesh_ptr mesh;
};

// Each cell kind in both orders by itself, and mixes of all of them.
std::vector<mesh_case> cell_meshes()
{
    std::vector<mesh_case> all;
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (int order : {1, 2})
            all.push_back({"kind " + std::to_string(kind) + " order " + std::to_string(order),
                           meshes::cells(kind, order, {3, 3, 3}, 1)});
    std::vector<int> kinds, firsts, seconds, both;
    for (int kind = 0; kind < CELL_KINDS; ++kind) {
        kinds.push_back(kind);
        firsts.push_back(1);
        seconds.push_back(2);
        both.push_back(1 + kind % 2);
    }
    all.push_back({"all kinds, first order", meshes::mixed(kinds, firsts, 2, 2)});
    all.push_back({"all kinds, second order", meshes::mixed(kinds, seconds, 2, 3)});
    all.push_back({"all kinds, both orders", meshes::mixed(kinds, both, 3, 4)});
    return all;
}

std::vector<mesh_case> lattice_meshes()
{
    const std::vector<float> lo = {0, 0, 0}, hi = {1, 2, 3};
    std::vector<mesh_case> all;
    for (const numbers &dims : std::vector<numbers>{{2},
                                                    {9},
                                                    {700},
                                                    {2, 2},
                                                    {5, 1},
                                                    {1, 5},
                                                    {4, 3},
                                                    {23, 19},
                                                    {2, 2, 2},
                                                    {1, 3, 4},
                                                    {3, 1, 4},
                                                    {3, 4, 1},
                                                    {3, 4, 5},
                                                    {9, 8, 7}}) {
        std::string size;
        for (qx_long dim : dims)
            size += " " + std::to_string(dim);
        all.push_back({"uniform" + size, meshes::uniform(dims, 3, lo, hi)});
        all.push_back({"rectilinear" + size, meshes::rectilinear(dims, 3, lo, hi, 5)});
        all.push_back({"curvilinear" + size, meshes::curvilinear(dims, 3, lo, hi, 6)});
    }
    return all;
}

int cell_nodes_of(const meshes::test_mesh &mesh, size_t set)
{
    const cell_kind_nodes &kind = cell_kinds[mesh.kinds[set]];
    return mesh.orders[set] == 1 ? kind.ncorners : kind.nnodes_2;
}

// How the nulls of a mesh struck its cells.
struct losses {
    int some = 0, all = 0, none = 0;

    void note(const remains &left, const std::vector<numbers> &rows)
    {
        ++(left.cells.empty() ? all : left.cells.size() == rows.size() ? none : some);
    }
    int rarest() const { return std::min({some, all, none}); }
};

// The cells in a call's list, which goes.
void expect_cells(const remains &expected, list_outputs *out, const std::string &name)
{
    EXPECT_EQ(1, out->status) << name;
    EXPECT_EQ(static_cast<qx_long>(expected.cells.size()), out->ncells) << name;
    EXPECT_EQ(static_cast<qx_long>(expected.connect.size()), out->conn_size) << name;
    EXPECT_EQ(expected.cells.empty(), out->conn == nullptr) << name;
    EXPECT_EQ(expected.connect, take(out->conn, out->conn_size)) << name;
}

template <typename T> class NullRemoval : public testing::Test {
};
TYPED_TEST_SUITE(NullRemoval, all_types);

} // namespace

// ---- null nodes of cell sets ---------------------------------------------------------------------------

TYPED_TEST(NullRemoval, CellSetsKeepTheCellsWithoutANullNode)
{
    using T = TypeParam;
    host_calls::reset();
    const T null_value = T(5);
    losses lost;
    for (const mesh_case &one : cell_meshes())
        for (int one_in : null_shares) {
            meshes::test_mesh &mesh = *one.mesh;
            const std::vector<T> data =
                values_with_nulls<T>(static_cast<uint64_t>(one_in), mesh.nnodes(), one_in, null_value);
            const numbers map = slow_map(data, null_value);
            for (bool dispatched : {false, true}) {
                host_calls::watch watch;
                set_outputs out = dispatched ? dispatch_to_sets(mesh.mesh, data, null_value)
                                             : remove_from_sets(mesh.mesh, data, null_value);
                ASSERT_EQ(1, out.status);
                ASSERT_EQ(static_cast<qx_long>(kept_of(map).size()), out.nkept);
                ASSERT_EQ(map, take(out.map, mesh.nnodes())) << one.name;
                for (size_t set = 0; set < mesh.kinds.size(); ++set) {
                    const std::vector<numbers> rows = rows_of(mesh.connect[set], cell_nodes_of(mesh, set));
                    const remains expected = slow_remove_nodes(rows, map);
                    ASSERT_EQ(static_cast<qx_long>(expected.cells.size()), out.ncells[set]) << one.name;
                    ASSERT_EQ(static_cast<qx_long>(expected.connect.size()), out.conn_size[set]);
                    ASSERT_EQ(expected.cells.empty(), out.conn[set] == nullptr);
                    ASSERT_EQ(expected.cells.empty(), out.cell_list[set] == nullptr);
                    ASSERT_EQ(expected.cells, take(out.cell_list[set], out.ncells[set])) << one.name;
                    ASSERT_EQ(expected.connect, take(out.conn[set], out.conn_size[set])) << one.name;
                    lost.note(expected, rows);
                }
                ASSERT_EQ(0, watch.live_blocks()) << one.name;
            }
        }
    EXPECT_GT(lost.rarest(), 20);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TYPED_TEST(NullRemoval, AllNodesNullLeaveNothing)
{
    using T = TypeParam;
    const T null_value = T(7);
    meshes::mesh_ptr sets = meshes::mixed({CELL_HEX, CELL_TRI}, {1, 2}, 2, 1);
    set_outputs of_sets = remove_from_sets(
        sets->mesh, std::vector<T>(static_cast<size_t>(sets->nnodes()), null_value), null_value);
    EXPECT_EQ(1, of_sets.status);
    EXPECT_EQ(numbers(static_cast<size_t>(sets->nnodes()), -1), take(of_sets.map, sets->nnodes()));
    of_sets.map = nullptr;
    EXPECT_TRUE(of_sets.empty());

    meshes::mesh_ptr lattice = meshes::uniform({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1});
    const list_outputs of_lattice =
        remove_from_lattice(lattice->mesh, std::vector<T>(27, null_value), null_value);
    EXPECT_EQ(1, of_lattice.status);
    EXPECT_TRUE(of_lattice.empty());
    const list_outputs of_cells = remove_cells(lattice->mesh, 0, std::vector<T>(8, null_value), null_value);
    EXPECT_EQ(1, of_cells.status);
    EXPECT_TRUE(of_cells.no_cells());
}

TEST(NullRemovalOfNodes, NaNIsNoNullAndZerosAreOne)
{
    const float nan = std::numeric_limits<float>::quiet_NaN(), zero = 0.0f;
    const std::vector<float> data = {nan, 0.0f, -0.0f, 1.0f, nan};
    meshes::mesh_ptr lattice = meshes::uniform({5}, 1, {0}, {1});
    list_outputs out = remove_from_lattice(lattice->mesh, data, nan);
    EXPECT_EQ((numbers{0, 1, 2, 3, 4}), take(out.node_list, out.nkept));
    EXPECT_EQ((numbers{0, 1, 1, 2, 2, 3, 3, 4}), take(out.conn, out.conn_size));
    out = remove_from_lattice(lattice->mesh, data, zero);
    EXPECT_EQ((numbers{0, 3, 4}), take(out.node_list, out.nkept));
    EXPECT_EQ((numbers{1, 2}), take(out.conn, out.conn_size));
}

TEST(NullRemovalOfNodes, ASetGetsByAnyMap)
{
    meshes::mesh_ptr mesh = meshes::from_cells(2, {0, 0, 1, 0, 1, 1, 0, 1, 2, 0, 2, 1}, {CELL_QUAD}, {1},
                                               {{0, 1, 2, 3, 1, 4, 5, 2}});
    const auto run = [&](const numbers &map) {
        qx_long *cells = nowhere, *conn = nowhere, ncells = -7, size = -7;
        EXPECT_EQ(1, UTILcells_from_nlist(mesh->mesh, 0, -1, map.data(), &cells, &ncells, &conn, &size));
        numbers all = {ncells, size};
        for (qx_long n : take(cells, ncells))
            all.push_back(n);
        for (qx_long n : take(conn, size))
            all.push_back(n);
        return all;
    };
    EXPECT_EQ((numbers{1, 4, 1, 10, 40, 50, 20}), run({-1, 10, 20, -5, 40, 50})) << "any negative drops";
    EXPECT_EQ((numbers{2, 8, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}), run({0, 0, 0, 0, 0, 0}));
    EXPECT_EQ((numbers{0, 0}), run({0, -1, 0, 0, 0, 0}));
}

TEST(NullRemovalOfNodes, ConnectListsGrowInRisingSteps)
{
    const numbers rows_of_hex = {1, 124, 125, 126, 250, 251, 437, 438, 2000};
    int most = 0;
    for (qx_long nrows : rows_of_hex) {
        numbers connect;
        for (qx_long row = 0; row < nrows; ++row)
            for (qx_long n = 0; n < 8; ++n)
                connect.push_back(n);
        meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
        mesh->mesh->cell_count[0] = nrows;
        mesh->mesh->cell_connect[0] = connect.data();
        const numbers map = {7, 6, 5, 4, 3, 2, 1, 0};
        qx_long *cells = nullptr, *conn = nullptr, ncells = 0, size = 0;
        host_calls::watch watch;
        ASSERT_EQ(1, UTILcells_from_nlist(mesh->mesh, 0, 8, map.data(), &cells, &ncells, &conn, &size));
        EXPECT_EQ(2 + slow_growths(nrows, 8, true), watch.allocations()) << nrows;
        EXPECT_EQ(2, watch.live_blocks());
        free(cells);
        free(conn);
        const double data = 1, null_value = 2;
        const std::vector<double> cell_data(static_cast<size_t>(nrows), data);
        const int before = watch.allocations();
        list_outputs out = remove_cells(mesh->mesh, 0, cell_data, null_value);
        EXPECT_EQ(2 + slow_growths(nrows, 8, false), watch.allocations() - before) << nrows;
        EXPECT_EQ(connect, take(out.conn, out.conn_size));
        EXPECT_EQ(0, watch.live_blocks());
        most = std::max(most, slow_growths(nrows, 8, false) - slow_growths(nrows, 8, true));
    }
    EXPECT_GT(most, 5) << "no list was long enough to tell the two rules apart";
}

TEST(NullRemovalOfNodes, FetchesConnectListsAsItReachesTheirSets)
{
    meshes::mesh_ptr mesh = meshes::mixed({CELL_HEX, CELL_TET, CELL_LINE}, {1, 1, 2}, 1, 1);
    const std::vector<int> data(static_cast<size_t>(mesh->nnodes()), 1);
    for (int set = 0; set < 3; ++set)
        mesh->mesh->cell_connect[set] = nullptr;
    host_calls::reset();
    {
        host_calls::watch watch;
        failing_fetches fetches(mesh->mesh);
        fetches.fail_connect_of_set = 1;
        const set_outputs out = remove_from_sets(mesh->mesh, data, 2);
        EXPECT_EQ(0, out.status);
        EXPECT_TRUE(out.empty());
        EXPECT_EQ(2, fetches.connect_calls);
        EXPECT_EQ(0, watch.live_blocks());
    }
    EXPECT_EQ((std::vector<host_calls::report>{{"fld_info", 0, 2, "unable to get cell set connect list"}}),
              host_calls::seen().reports);
    EXPECT_NE(nullptr, mesh->mesh->cell_connect[0]);
    EXPECT_EQ(nullptr, mesh->mesh->cell_connect[1]);
    EXPECT_EQ(nullptr, mesh->mesh->cell_connect[2]);

    failing_fetches fetches(mesh->mesh);
    set_outputs out = remove_from_sets(mesh->mesh, data, 2);
    EXPECT_EQ(1, out.status);
    EXPECT_EQ(2, fetches.connect_calls) << "the first list was there already";
    free(out.map);
    for (size_t set = 0; set < 3; ++set) {
        EXPECT_EQ(mesh->mesh->cell_count[set], out.ncells[set]);
        EXPECT_EQ(mesh->connect[set], take(out.conn[set], out.conn_size[set]));
        free(out.cell_list[set]);
    }
}

TEST(NullRemovalOfNodes, ASingleSetReportsAFailedFetch)
{
    meshes::mesh_ptr mesh = meshes::cells(CELL_TRI, 1, {2, 2}, 1);
    mesh->mesh->cell_connect[0] = nullptr;
    const std::vector<double> data(64, 1.0);
    const numbers map(static_cast<size_t>(mesh->nnodes()), 0);
    failing_fetches fetches(mesh->mesh);
    fetches.fail_connect_of_set = 0;
    for (int failure : {0, -1}) {
        fetches.failure = failure;
        host_calls::reset();
        host_calls::watch watch;
        qx_long *cells = nowhere, *conn = nowhere, ncells = -7, size = -7;
        EXPECT_EQ(0, UTILcells_from_nlist(mesh->mesh, 0, 1, map.data(), &cells, &ncells, &conn, &size));
        EXPECT_TRUE(cells == nullptr && conn == nullptr && ncells == 0 && size == 0);
        const list_outputs out = remove_cells(mesh->mesh, 0, data, 2.0);
        EXPECT_EQ(0, out.status);
        EXPECT_TRUE(out.no_cells());
        const std::string report = "fld_info: unable to get cell set connect list";
        EXPECT_EQ((std::vector<std::string>{report, report}), host_calls::report_texts());
        EXPECT_EQ(0, watch.live_blocks());
    }
}

TEST(NullRemovalOfNodes, NoSetsGiveTheMapAlone)
{
    meshes::mesh_ptr mesh = meshes::cells(CELL_TRI, 1, {1, 1}, 1);
    const int nsets = mesh->mesh->ncell_sets;
    mesh->mesh->ncell_sets = 0;
    const std::vector<short> data = {5, 6, 5, 6};
    ASSERT_EQ(4, mesh->nnodes());
    set_outputs out = remove_from_sets<short>(mesh->mesh, data, 5);
    mesh->mesh->ncell_sets = nsets;
    EXPECT_EQ(1, out.status);
    EXPECT_EQ(2, out.nkept);
    EXPECT_EQ((numbers{-1, 0, -1, 1}), take(out.map, 4));
}

// ---- null nodes of lattices ----------------------------------------------------------------------------

TYPED_TEST(NullRemoval, LatticesKeepTheCellsWithoutANullNode)
{
    using T = TypeParam;
    host_calls::reset();
    const T null_value = T(5);
    losses lost;
    for (const mesh_case &one : lattice_meshes())
        for (int one_in : null_shares) {
            meshes::test_mesh &mesh = *one.mesh;
            const std::vector<T> data =
                values_with_nulls<T>(static_cast<uint64_t>(one_in), mesh.nnodes(), one_in, null_value);
            const numbers map = slow_map(data, null_value);
            const std::vector<numbers> rows = lattice_rows(mesh.dims);
            const remains expected = slow_remove_nodes(rows, map);
            for (bool dispatched : {false, true}) {
                host_calls::watch watch;
                list_outputs out = dispatched ? dispatch_to_lattice(mesh.mesh, data, null_value)
                                              : remove_from_lattice(mesh.mesh, data, null_value);
                expect_cells(expected, &out, one.name);
                EXPECT_EQ(kept_of(map), take(out.node_list, out.nkept)) << one.name;
                ASSERT_EQ(0, watch.live_blocks()) << one.name;
            }
            lost.note(expected, rows);
        }
    EXPECT_GT(lost.rarest(), 20);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST(NullRemovalOfLattices, HexahedraGoAlongTheSecondAxisFirst)
{
    const auto cells_of = [](const numbers &dims) {
        meshes::mesh_ptr mesh = meshes::uniform(dims, 3, {0, 0, 0}, {1, 1, 1});
        list_outputs out = remove_from_lattice(
            mesh->mesh, std::vector<float>(static_cast<size_t>(mesh->nnodes()), 1.0f), 0.0f);
        free(out.node_list);
        return take(out.conn, out.conn_size);
    };
    EXPECT_EQ((numbers{0, 1, 1, 2}), cells_of({3}));
    EXPECT_EQ((numbers{0, 1, 4, 3, 1, 2, 5, 4}), cells_of({3, 2}));
    EXPECT_EQ((numbers{0, 3, 4, 1, 6, 9, 10, 7, 1, 4, 5, 2, 7, 10, 11, 8}), cells_of({3, 2, 2}));
}

TEST(NullRemovalOfLattices, ConnectListsGrowInRisingSteps)
{
    meshes::mesh_ptr mesh = meshes::uniform({13, 12, 11}, 3, {0, 0, 0}, {1, 1, 1});
    const qx_long ncells = 12 * 11 * 10;
    const std::vector<signed char> data(static_cast<size_t>(mesh->nnodes()), 1);
    host_calls::watch watch;
    list_outputs out = remove_from_lattice<signed char>(mesh->mesh, data, 0);
    EXPECT_EQ(ncells, out.ncells);
    // A map, a list of nodes, a list of cells, and the growths of that.
    EXPECT_EQ(3 + slow_growths(ncells, 8, true), watch.allocations());
    free(out.node_list);
    free(out.conn);
    const int before = watch.allocations();
    out = remove_cells<signed char>(mesh->mesh, 0, data, 0);
    EXPECT_EQ(2 + slow_growths(ncells, 8, false), watch.allocations() - before);
    EXPECT_LT(slow_growths(ncells, 8, true), slow_growths(ncells, 8, false));
    free(out.conn);
    EXPECT_EQ(0, watch.live_blocks());
}

TEST(NullRemovalOfLattices, NoOtherNumberOfAxes)
{
    meshes::mesh_ptr mesh = meshes::uniform({2, 2, 2}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<float> data(8, 1.0f);
    for (int ndim : {-1, 4, 100}) {
        mesh->mesh->ndim = ndim;
        host_calls::watch watch;
        list_outputs out;
        EXPECT_EQ("UTILthresh_null_struct: cannot compute connect for ndim " + std::to_string(ndim) + "\n",
                  stderr_of([&] { out = remove_from_lattice(mesh->mesh, data, 0.0f); }));
        EXPECT_EQ(0, out.status);
        EXPECT_TRUE(out.empty());
        EXPECT_EQ("UTILthresh_null_struct_from_cells: cannot compute connect for ndim " +
                      std::to_string(ndim) + "\n",
                  stderr_of([&] { out = remove_cells(mesh->mesh, 0, data, 0.0f); }));
        EXPECT_EQ(0, out.status);
        EXPECT_TRUE(out.no_cells());
        EXPECT_EQ(0, watch.live_blocks());
    }
    mesh->mesh->ndim = 0;
    list_outputs out;
    EXPECT_EQ("UTILthresh_null_struct: cannot compute connect for ndim 0\n",
              stderr_of([&] { out = remove_from_lattice(mesh->mesh, data, 0.0f); }));
    EXPECT_EQ(0, out.status);
    mesh->mesh->ndim = 3;
}

// ---- null cells ----------------------------------------------------------------------------------------

TYPED_TEST(NullRemoval, NullCellsOfASetGoAndNodesKeepTheirNumbers)
{
    using T = TypeParam;
    const T null_value = T(5);
    losses lost;
    for (const mesh_case &one : cell_meshes())
        for (size_t set = 0; set < one.mesh->kinds.size(); ++set)
            for (int one_in : null_shares) {
                const meshes::test_mesh &mesh = *one.mesh;
                const std::vector<numbers> rows = rows_of(mesh.connect[set], cell_nodes_of(mesh, set));
                const std::vector<T> data = values_with_nulls<T>(
                    static_cast<uint64_t>(one_in), static_cast<qx_long>(rows.size()), one_in, null_value);
                const remains expected = slow_remove_cells(rows, data, null_value);
                host_calls::watch watch;
                list_outputs out = remove_cells(mesh.mesh, static_cast<int>(set), data, null_value);
                expect_cells(expected, &out, one.name);
                ASSERT_EQ(0, watch.live_blocks()) << one.name;
                lost.note(expected, rows);
            }
    EXPECT_GT(lost.rarest(), 20);
}

TYPED_TEST(NullRemoval, NullCellsOfALatticeGoAndNodesKeepTheirNumbers)
{
    using T = TypeParam;
    const T null_value = T(5);
    losses lost;
    for (const mesh_case &one : lattice_meshes())
        for (int one_in : null_shares) {
            const std::vector<numbers> rows = lattice_rows(one.mesh->dims);
            const std::vector<T> data = values_with_nulls<T>(
                static_cast<uint64_t>(one_in), static_cast<qx_long>(rows.size()), one_in, null_value);
            const remains expected = slow_remove_cells(rows, data, null_value);
            host_calls::watch watch;
            for (int set : {0, -3, 99}) { // a lattice has none to choose from
                list_outputs out = remove_cells(one.mesh->mesh, set, data, null_value);
                expect_cells(expected, &out, one.name);
            }
            ASSERT_EQ(0, watch.live_blocks());
            lost.note(expected, rows);
        }
    EXPECT_GT(lost.some, 20);
}

TEST(NullRemovalOfCells, NaNIsNoNull)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    meshes::mesh_ptr mesh = meshes::uniform({4}, 1, {0}, {1});
    list_outputs out = remove_cells(mesh->mesh, 0, std::vector<double>{nan, 1, nan}, nan);
    EXPECT_EQ((numbers{0, 1, 1, 2, 2, 3}), take(out.conn, out.conn_size));
    out = remove_cells(mesh->mesh, 0, std::vector<double>{nan, 1, nan}, 1.0);
    EXPECT_EQ((numbers{0, 1, 2, 3}), take(out.conn, out.conn_size));
}

TEST(NullRemovalOfCells, ASetWithoutCellsGivesNone)
{
    meshes::mesh_ptr mesh = meshes::cells(CELL_TET, 1, {1, 1, 1}, 1);
    mesh->mesh->cell_count[0] = 0;
    host_calls::watch watch;
    const std::vector<int> data(64, 1);
    const list_outputs out = remove_cells(mesh->mesh, 0, data, 0);
    EXPECT_EQ(1, out.status);
    EXPECT_TRUE(out.no_cells());
    set_outputs of_nodes = remove_from_sets(mesh->mesh, data, 0);
    EXPECT_EQ(1, of_nodes.status);
    EXPECT_EQ(mesh->nnodes(), of_nodes.nkept);
    EXPECT_EQ(nullptr, of_nodes.conn[0]);
    EXPECT_EQ(nullptr, of_nodes.cell_list[0]);
    free(of_nodes.map);
    EXPECT_EQ(0, watch.live_blocks());
}

// ---- failures ------------------------------------------------------------------------------------------

namespace {

struct attempt {
    int status;
    bool empty;
};

// Refuses each allocation of a call in turn. The call then fails, says so in the words for that allocation,
// leaves empty outputs and nothing behind; with none refused it succeeds. The last text stands for all
// allocations from its own on.
template <typename Call> void refuse_each(const std::vector<std::string> &texts, Call call)
{
    host_calls::reset();
    host_calls::watch watch;
    for (size_t k = 0;; ++k) {
        host_calls::fail_allocation(static_cast<int>(k));
        attempt got = {-7, false};
        const std::string text = stderr_of([&] { got = call(); });
        EXPECT_EQ(0, watch.live_blocks()) << "allocation " << k;
        if (!host_calls::allocation_was_refused()) {
            EXPECT_EQ(1, got.status);
            EXPECT_EQ("", text);
            EXPECT_GT(k, texts.size()) << "no list grew";
            break;
        }
        EXPECT_EQ(0, got.status) << "allocation " << k;
        EXPECT_TRUE(got.empty) << "allocation " << k;
        EXPECT_EQ(texts[std::min(k, texts.size() - 1)], text) << "allocation " << k;
    }
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

} // namespace

TEST(NullRemovalWithoutMemory, CellSets)
{
    meshes::mesh_ptr mesh = meshes::mixed({CELL_HEX, CELL_TET, CELL_PRISM}, {2, 1, 1}, 5, 1);
    const std::vector<short> data = values_with_nulls<short>(1, mesh->nnodes(), 200, 5);
    refuse_each({"UTILthresh_null_cells: cannot allocate node indx array\n",
                 "UTILcells_from_nlist: realloc for connect list failed\n"},
                [&]() -> attempt {
                    set_outputs out = remove_from_sets<short>(mesh->mesh, data, 5);
                    const attempt got = {out.status, out.empty()};
                    free(out.map);
                    for (size_t set = 0; set < 3; ++set) {
                        free(out.cell_list[set]);
                        free(out.conn[set]);
                    }
                    return got;
                });
}

TEST(NullRemovalWithoutMemory, OneSetByAMap)
{
    meshes::mesh_ptr mesh = meshes::cells(CELL_TET, 1, {5, 5, 5}, 1);
    const numbers map(static_cast<size_t>(mesh->nnodes()), 0);
    refuse_each({"UTILcells_from_nlist: realloc for connect list failed\n"}, [&]() -> attempt {
        qx_long *cells = nowhere, *conn = nowhere, ncells = -7, size = -7;
        const int status = UTILcells_from_nlist(mesh->mesh, 0, 1, map.data(), &cells, &ncells, &conn, &size);
        const attempt got = {status, cells == nullptr && conn == nullptr && ncells == 0 && size == 0};
        free(cells);
        free(conn);
        return got;
    });
}

TEST(NullRemovalWithoutMemory, Lattices)
{
    meshes::mesh_ptr mesh = meshes::curvilinear({9, 9, 9}, 3, {0, 0, 0}, {1, 1, 1}, 1);
    const std::vector<qx_long> data = values_with_nulls<qx_long>(1, mesh->nnodes(), 200, 5);
    refuse_each({"UTILthresh_null_struct: cannot allocate node indx array\n",
                 "UTILthresh_null_struct: cannot allocate node indx array\n",
                 "UTILthresh_null_struct: realloc for connect list failed\n"},
                [&]() -> attempt {
                    const list_outputs out = remove_from_lattice<qx_long>(mesh->mesh, data, 5);
                    const attempt got = {out.status, out.empty()};
                    free(out.node_list);
                    free(out.conn);
                    return got;
                });
}

TEST(NullRemovalWithoutMemory, CellsOfASet)
{
    meshes::mesh_ptr mesh = meshes::cells(CELL_QUAD, 2, {30, 30}, 1);
    const std::vector<double> data = values_with_nulls<double>(1, 900, 50, 5);
    refuse_each({"UTILthresh_null_cells_from_cells: cannot allocate cell indx array\n",
                 "UTILcells_from_clist: realloc for connect list failed\n"},
                [&]() -> attempt {
                    const list_outputs out = remove_cells<double>(mesh->mesh, 0, data, 5);
                    const attempt got = {out.status, out.no_cells()};
                    free(out.conn);
                    return got;
                });
}

TEST(NullRemovalWithoutMemory, CellsOfALattice)
{
    meshes::mesh_ptr mesh = meshes::rectilinear({30, 30}, 2, {0, 0, 0}, {1, 1, 1}, 1);
    const std::vector<unsigned char> data = values_with_nulls<unsigned char>(1, 29 * 29, 50, 5);
    refuse_each({"UTILthresh_null_struct_from_cells: cannot allocate cell indx array\n",
                 "UTILthresh_null_struct_from_cells: realloc for connect list failed\n"},
                [&]() -> attempt {
                    const list_outputs out = remove_cells<unsigned char>(mesh->mesh, 0, data, 5);
                    const attempt got = {out.status, out.no_cells()};
                    free(out.conn);
                    return got;
                });
}

TEST(NullRemovalReports, UnknownTypeIsAReportedFailureThatLeavesNothing)
{
    meshes::mesh_ptr sets = meshes::mixed({CELL_HEX, CELL_TRI}, {1, 1}, 1, 1);
    meshes::mesh_ptr lattice = meshes::uniform({3, 3}, 2, {0, 0}, {1, 1});
    const int data[64] = {}, null_value = 0;
    for (int type : {-1, 7, 99}) {
        host_calls::reset();
        host_calls::watch watch;
        const auto reported_by = [](const char *operation) {
            const std::vector<host_calls::report> reports = host_calls::seen().reports;
            host_calls::reset();
            return reports.size() == 1 &&
                   reports[0] == host_calls::report{operation, 0, 2, "unknown data type"};
        };
        set_outputs of_sets(2);
        EXPECT_EQ(0, UTILthresh_null_cells(sets->mesh, data, type, &null_value, &of_sets.nkept, &of_sets.map,
                                           of_sets.cell_list.data(), of_sets.ncells.data(),
                                           of_sets.conn.data(), of_sets.conn_size.data()));
        EXPECT_TRUE(of_sets.empty());
        EXPECT_TRUE(reported_by("UTILnode_thresh_null")) << "whose test it is";
        list_outputs out;
        EXPECT_EQ(0, UTILthresh_null_struct(lattice->mesh, data, type, &null_value, &out.nkept,
                                            &out.node_list, &out.conn, &out.ncells, &out.conn_size));
        EXPECT_TRUE(out.empty());
        EXPECT_TRUE(reported_by("UTILthresh_null_struct"));
        for (meshes::test_mesh *mesh : {sets.get(), lattice.get()}) {
            out = list_outputs();
            EXPECT_EQ(0, UTILthresh_null_from_cells(mesh->mesh, 0, data, type, &null_value, &out.ncells,
                                                    &out.conn, &out.conn_size));
            EXPECT_TRUE(out.no_cells());
            EXPECT_TRUE(reported_by("UTILnode_thresh_null"));
        }
        EXPECT_EQ(0, watch.live_blocks());
    }
}

TEST(NullRemovalReports, NoneAsksWhetherToStop)
{
    meshes::mesh_ptr sets = meshes::mixed({CELL_HEX, CELL_TRI}, {1, 1}, 8, 1);
    meshes::mesh_ptr lattice = meshes::uniform({20, 20, 20}, 3, {0, 0, 0}, {1, 1, 1});
    host_calls::reset();
    host_calls::interrupt_at(0);
    set_outputs of_sets =
        remove_from_sets(sets->mesh, std::vector<float>(static_cast<size_t>(sets->nnodes()), 1), 0.0f);
    EXPECT_EQ(1, of_sets.status);
    free(of_sets.map);
    for (size_t set = 0; set < 2; ++set) {
        free(of_sets.cell_list[set]);
        free(of_sets.conn[set]);
    }
    const std::vector<float> ones(8000, 1);
    list_outputs out = remove_from_lattice(lattice->mesh, ones, 0.0f);
    EXPECT_EQ(1, out.status);
    free(out.node_list);
    free(out.conn);
    out = remove_cells(lattice->mesh, 0, ones, 0.0f);
    EXPECT_EQ(1, out.status);
    free(out.conn);
    EXPECT_TRUE(host_calls::seen().statuses.empty());
    EXPECT_TRUE(host_calls::seen().pushes.empty());
    host_calls::reset();
}

// ---- dispatch ------------------------------------------------------------------------------------------

namespace {

struct passed_on {
    std::vector<const void *> pointers;
    int data_type = -7, zero = -7;
} last_call;

int record_call(mesh_info *mesh, const void *data, int data_type, const void *null_value, qx_long *nkept,
                qx_long **map, void *out0, void *out1, void *out2, void *out3, int zero)
{
    last_call.pointers = {mesh, data, null_value, nkept, map, out0, out1, out2, out3};
    last_call.data_type = data_type;
    last_call.zero = zero;
    return 41;
}

} // namespace

TEST(NullRemovalDispatch, PassesAllOnWithAZeroBehind)
{
    meshes::mesh_ptr mesh = meshes::uniform({2}, 1, {0}, {1});
    mesh_methods methods = *mesh->mesh->methods;
    mesh_methods *const own = mesh->mesh->methods;
    mesh->mesh->methods = &methods;
    methods.thresh_null_func = record_call;
    char at[8];
    qx_long nkept = 0, *map = nullptr;
    EXPECT_EQ(
        41, UTILthresh_null(mesh->mesh, &at[0], 12345, &at[1], &nkept, &map, &at[2], &at[3], &at[4], &at[5]));
    EXPECT_EQ(
        (std::vector<const void *>{mesh->mesh, &at[0], &at[1], &nkept, &map, &at[2], &at[3], &at[4], &at[5]}),
        last_call.pointers);
    EXPECT_EQ(12345, last_call.data_type);
    EXPECT_EQ(0, last_call.zero);

    methods.thresh_null_func = nullptr;
    int status = -7;
    EXPECT_EQ("UTILthresh_null: no thresh_null function found\n", stderr_of([&] {
                  status = UTILthresh_null(mesh->mesh, &at[0], 1, &at[1], &nkept, &map, nullptr, nullptr,
                                           nullptr, nullptr);
              }));
    EXPECT_EQ(0, status);
    mesh->mesh->methods = own;
}
