// Sampling onto the nodes of a uniform lattice, against the point-by-point reference and by what must hold.
#include "support/fetches.hpp"
#include "support/fresh_host.hpp"
#include "support/sample_reference.hpp"

#include <gtest/gtest.h>

using namespace sample_reference;

namespace {

constexpr const char *no_test = "UTILfind_cell: unable to find interp_cell function\n";
constexpr const char *no_values = "UTILinterpolate_data: unable to find interp_cell function\n";

// An output lattice: as many nodes an axis over a box.
struct out_lattice {
    std::vector<qx_long> dims;
    float min[3], max[3];
};

// About the mesh, or about the part of another space that the matrix takes there.
out_lattice lattice_about(const meshes::test_mesh &m, qx_long n)
{
    const box about(m);
    out_lattice out;
    for (int d = 0; d < m.nspace; ++d) {
        const float length = about.hi[d] - about.lo[d];
        out.dims.push_back(length > 0 ? n + d : 1);
        out.min[d] = about.lo[d] - 0.1f * length;
        out.max[d] = about.hi[d] + 0.15f * length;
    }
    return out;
}

std::vector<float> nodes_of(const out_lattice &lattice)
{
    std::vector<float> points;
    for (qx_long node = 0; node < lattices::product(lattice.dims); ++node) {
        qx_long rest = node;
        for (size_t d = 0; d < lattice.dims.size(); ++d) {
            const qx_long n = lattice.dims[d];
            const float step = n > 1 ? (lattice.max[d] - lattice.min[d]) / static_cast<float>(n - 1) : 0;
            points.push_back(lattice.min[d] + static_cast<float>(rest % n) * step);
            rest /= n;
        }
    }
    return points;
}

// into_table: takes the mesh into the space of the lattice; the request's own matrix takes points back.
template <typename Request>
unif_table_ptr place_on(Request *r, const meshes::test_mesh &made, const out_lattice &lattice, int single,
                        const float *into_table = nullptr)
{
    r->made = &made;
    r->mesh = made.mesh;
    r->nspace = static_cast<int>(lattice.dims.size());
    r->single = single;
    const auto build = made.ndim > 0 ? UTILinterp_init_struct2 : UTILinterp_init2;
    blk_tbl_unif *table = nullptr;
    EXPECT_EQ(build(made.mesh, into_table, r->nspace, lattice.dims.data(), r->nspace, lattice.min,
                    lattice.max, single, &table),
              1);
    r->unif_table = table;
    host_calls::reset();
    return unif_table_ptr(table);
}

// A table of n nodes from 0 to n - 1 that lists one cell a node: by its number, unless cells says another.
struct hand_made {
    std::vector<qx_long> blocks, cell_list, next_list;
    blk_tbl_unif table = {};

    explicit hand_made(qx_long n, std::vector<qx_long> cells = {}) : cell_list{0}, next_list{0}
    {
        for (qx_long b = 0; b < n; ++b) {
            blocks.push_back(b + 1);
            cell_list.push_back(cells.empty() ? b : cells[static_cast<size_t>(b)]);
            next_list.push_back(0);
        }
        table.blocks = blocks.data();
        table.nblocks = table.dims[0] = n;
        table.dims[1] = table.dims[2] = 1;
        table.max_ext[0] = static_cast<float>(n - 1);
        table.cell_list = cell_list.data();
        table.next_list = next_list.data();
        table.list_size = table.list_used = n + 1;
    }
};

// Lines from node to node of a ruler, and one point more than lines: a node's cell is the line behind it.
meshes::mesh_ptr ruler(qx_long n)
{
    std::vector<float> coords;
    std::vector<qx_long> connect;
    for (qx_long i = 0; i < n; ++i) {
        coords.push_back(static_cast<float>(i));
        if (i > 0) connect.insert(connect.end(), {i - 1, i});
    }
    return meshes::from_cells(1, coords, {CELL_LINE}, {1}, {connect});
}

template <typename T>
node_request<T> on_ruler(const meshes::test_mesh &made, const blk_tbl_unif *table, int single)
{
    node_request<T> r;
    r.made = &made;
    r.mesh = made.mesh;
    r.unif_table = table;
    r.nspace = 1;
    r.single = single;
    r.veclens = {1};
    r.data.emplace_back();
    for (qx_long i = 0; i < made.nnodes(); ++i)
        r.data[0].push_back(static_cast<T>(10 * i));
    r.null_flags = {0};
    r.null_values = {0};
    put<T>(&r.null_values, 0, 99);
    return r;
}

template <typename T> class UnifNodeSampling : public FreshHost {
};
TYPED_TEST_SUITE(UnifNodeSampling, arrays::all_types);

template <typename T> class UnifCellSampling : public FreshHost {
};
TYPED_TEST_SUITE(UnifCellSampling, arrays::all_types);

class UnifSampling : public FreshHost {};

// One array a set in another order than the sets, and one set without.
template <typename T> void fill_cell_data(cell_request<T> *r, int veclen, uint64_t seed)
{
    const int nsets = r->mesh->ncell_sets;
    r->veclen = veclen;
    const std::vector<T> edges = arrays::edge_values<T>();
    std::mt19937_64 random(seed);
    r->data.assign(static_cast<size_t>(nsets), {});
    for (int set = 0; set < nsets; ++set) {
        r->set_map.push_back(nsets - 1 - set);
        for (qx_long k = 0; k < r->mesh->cell_count[set] * veclen; ++k)
            r->data[static_cast<size_t>(nsets - 1 - set)].push_back(
                random() % 4 == 0 ? edges[random() % edges.size()] : static_cast<T>(random() % 100));
    }
    if (nsets > 2) r->set_map[1] = -1;
    put<T>(&r->null_value, 0, 88);
}

// A quarter turn about z with a shift, and the way back: the points' space is not the mesh's.
const float there[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 2, -0.5f, 0, 1};
const float back[16] = {0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0.5f, 2, 0, 1};

// The lattice about a mesh as it stands after the matrix there.
out_lattice moved_lattice_about(const meshes::test_mesh &m, qx_long n)
{
    const out_lattice still = lattice_about(m, n);
    out_lattice out = still;
    out.min[0] = 2 - still.max[1];
    out.max[0] = 2 - still.min[1];
    out.min[1] = still.min[0] - 0.5f;
    out.max[1] = still.max[0] - 0.5f;
    return out;
}

} // namespace

// ---- node data ---------------------------------------------------------------------------------------------------

TYPED_TEST(UnifNodeSampling, GivesWhatThePointsGiveOneByOneOnEveryMesh)
{
    using T = TypeParam;
    uint64_t seed = 1;
    qx_long found = 0, null_data_rows = 0;
    for (const named_mesh &m : all_meshes())
        for (int single : {0, 1}) {
            SCOPED_TRACE(m.name + (single ? ", single" : ""));
            const out_lattice lattice = lattice_about(*m.made, 5);
            node_request<T> r;
            const unif_table_ptr table = place_on(&r, *m.made, lattice, single);
            fill_node_data(&r, ++seed);
            r.points = nodes_of(lattice);
            tally seen;
            const samples<T> expected = slow_sample(r, true, &seen);
            expect_same(sample_to_unif(r), expected);
            EXPECT_GT(seen.found, single || m.can_locate ? 0 : -1);
            EXPECT_GT(seen.missed, 0);
            EXPECT_TRUE(single == 0 || seen.null_rows == 5 * seen.missed);
            found += single ? 0 : seen.found;
            null_data_rows += seen.null_rows - 5 * seen.missed;
            EXPECT_TRUE(host_calls::seen().reports.empty());
        }
    EXPECT_GT(found, 500);
    EXPECT_GT(null_data_rows, found / 10) << "too little null data was met";
}

TYPED_TEST(UnifNodeSampling, LooksUpThePointAndTestsWhereTheMatrixTakesIt)
{
    using T = TypeParam;
    std::vector<meshes::mesh_ptr> meshes_in_space;
    meshes_in_space.push_back(meshes::cells(CELL_HEX, 1, {3, 3, 3}, 5, 0.1));
    meshes_in_space.push_back(meshes::cells(CELL_TET, 2, {2, 3, 2}, 5, 0.1));
    meshes_in_space.push_back(meshes::curvilinear({4, 5, 3}, 3, {0, 0, 0}, {1, 1, 1}, 5));
    meshes_in_space.push_back(meshes::cells(CELL_QUAD, 1, {4, 4, 1}, 5, 0.1, 2));
    for (const meshes::mesh_ptr &made : meshes_in_space)
        for (int single : {0, 1}) {
            const out_lattice lattice = moved_lattice_about(*made, 6);
            node_request<T> r;
            const unif_table_ptr table = place_on(&r, *made, lattice, single, there);
            fill_node_data(&r, 3);
            r.points = nodes_of(lattice);
            r.xform = back;
            tally seen;
            const samples<T> expected = slow_sample(r, true, &seen);
            expect_same(sample_to_unif(r), expected);
            EXPECT_GT(seen.found, 10);
            EXPECT_GT(seen.missed, 10);
        }
}

TYPED_TEST(UnifNodeSampling, OfSingleCellsIsANodesOwnValue)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {3, 3, 3}, 5, 0.2);
    const out_lattice lattice = lattice_about(*made, 9);
    node_request<T> r;
    const unif_table_ptr table = place_on(&r, *made, lattice, 1);
    // Values that no float keeps, and the null value among them.
    r.veclens = {1, 2};
    const std::vector<T> edges = arrays::edge_values<T>();
    for (int veclen : r.veclens) {
        r.data.emplace_back();
        for (qx_long k = 0; k < made->nnodes() * veclen; ++k)
            r.data.back().push_back(edges[static_cast<size_t>(7 * k + k / 5) % edges.size()]);
    }
    r.null_flags = {1, 0};
    r.null_values.assign(2, 0);
    put<T>(&r.null_values, 0, edges[0]);
    put<T>(&r.null_values, 1, 55);
    const std::vector<float> all = nodes_of(lattice);
    tally seen;
    slow_sample(r, true, &seen);
    // Only points with a cell, so that a flag could come from the data alone.
    for (size_t i = 0; i < all.size(); i += 3) {
        node_request<T> one = r;
        one.points.assign(all.begin() + static_cast<long>(i), all.begin() + static_cast<long>(i) + 3);
        tally of_one;
        slow_sample(one, true, &of_one);
        if (of_one.found == 1) r.points.insert(r.points.end(), one.points.begin(), one.points.end());
    }
    ASSERT_GT(r.npts(), 300);
    const samples<T> s = sample_to_unif(r);
    expect_same(s, slow_sample(r, true));
    EXPECT_EQ(s.null_flags, (std::vector<int>{1, 0}));
    qx_long nulls = 0;
    for (T value : s.rows[0])
        nulls += value == edges[0];
    EXPECT_GT(nulls, 0);
}

TYPED_TEST(UnifNodeSampling, OfSingleCellsTakesTheFirstOfNodesEquallyNear)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    const hand_made by_hand(2, {0, 1});
    node_request<T> r = on_ruler<T>(*made, &by_hand.table, 1);
    const float half[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0.5f, 0, 0, 1};
    r.points = {0, 1}; // the middles of both lines
    r.xform = half;
    EXPECT_EQ(sample_to_unif(r).rows[0], (std::vector<T>{0, 10}));
    const float more[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0.5625f, 0, 0, 1};
    r.xform = more;
    EXPECT_EQ(sample_to_unif(r).rows[0], (std::vector<T>{10, 20}));
}

TYPED_TEST(UnifNodeSampling, KeepsTheNullValuesItIsGiven)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    for (int single : {0, 1})
        for (int flag : {0, 4}) {
            const hand_made by_hand(3, {0, 0, 1});
            node_request<T> r = on_ruler<T>(*made, &by_hand.table, single);
            r.null_flags = {flag};
            r.points = {-5, 0, 2};
            samples<T> s = sample_to_unif(r);
            EXPECT_EQ(s.result, 1);
            EXPECT_EQ(s.rows[0], (std::vector<T>{99, 0, 20}));
            EXPECT_EQ(s.null_flags[0], 1);
            EXPECT_EQ(get<T>(s.null_values, 0), 99);
            r.points = {0, 2};
            EXPECT_EQ(sample_to_unif(r).null_flags[0], flag);
            r.points = {};
            s = sample_to_unif(r);
            EXPECT_EQ(s.result, 1);
            EXPECT_EQ(s.null_flags[0], flag);
        }
}

TYPED_TEST(UnifNodeSampling, ChecksForInterruptionEvery1025thPoint)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = meshes::cells(CELL_TET, 1, {2, 2, 2}, 4, 0.1);
    const out_lattice lattice = lattice_about(*made, 8);
    const std::vector<float> nodes = nodes_of(lattice);
    for (int single : {0, 1}) {
        node_request<T> r;
        const unif_table_ptr table = place_on(&r, *made, lattice, single);
        fill_node_data(&r, 2);
        for (qx_long npts : {1024, 1025, 2049, 2050, 4000}) {
            r.points.clear();
            for (qx_long k = 0; k < 3 * npts; ++k)
                r.points.push_back(nodes[static_cast<size_t>(k) % nodes.size()]);
            host_calls::reset();
            expect_same(sample_to_unif(r), slow_sample(r, true));
            std::vector<int> percents;
            for (qx_long i = 1024; i < npts; i += 1025)
                percents.push_back(
                    static_cast<int>(static_cast<float>(i) * (100.0f / static_cast<float>(npts))));
            SCOPED_TRACE(npts);
            host_calls::expect_checks(percents);
            for (size_t k = 0; k < percents.size(); ++k) {
                host_calls::reset();
                host_calls::interrupt_at(static_cast<int>(k));
                const samples<T> s = sample_to_unif(r);
                EXPECT_EQ(host_calls::seen().statuses.size(), k + 1);
                EXPECT_EQ(s.result, 0);
                expect_same(s, slow_sample<T>(r, true, nullptr, static_cast<qx_long>(1024 + 1025 * k)));
            }
        }
    }
}

TYPED_TEST(UnifNodeSampling, OfAnUnknownTypeIsReported)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    mesh_methods none = {}, *own = made->mesh->methods;
    const hand_made by_hand(2, {0, 1});
    const node_request<T> nodes = on_ruler<T>(*made, &by_hand.table, 0);
    cell_request<T> cells;
    static_cast<where &>(cells) = nodes;
    fill_cell_data(&cells, 1, 1);
    cells.points = {0};
    made->mesh->methods = &none;
    for (int type : {-1, 7}) {
        host_calls::reset();
        samples<T> untouched = before(nodes);
        untouched.result = 0;
        expect_same(sample_to_unif(nodes, type), untouched);
        untouched = before(cells);
        untouched.result = 0;
        expect_same(sample_to_unif(cells, type), untouched);
        EXPECT_EQ(host_calls::seen().reports,
                  (std::vector<host_calls::report>{
                      {"UTILinterpolate_data_to_unif", 0, 2, "unknown data type"},
                      {"UTILinterpolate_cell_data_to_unif", 0, 2, "unknown data type"}}));
    }
    made->mesh->methods = own;
}

// The mesh's interpolation is asked for when the first value is due.
TYPED_TEST(UnifNodeSampling, NeedsTheInterpolationForAValueAlone)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    mesh_methods *own = made->mesh->methods, some = *own;
    const hand_made by_hand(3, {0, 0, 1});
    node_request<T> r = on_ruler<T>(*made, &by_hand.table, 0);
    some.find_cell_func = nullptr; // never asked for
    some.interp_data_func = nullptr;
    made->mesh->methods = &some;

    r.points = {-5, 7};
    samples<T> s = sample_to_unif(r);
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.rows[0], (std::vector<T>{99, 99}));

    r.points = {-5, 1, -5};
    testing::internal::CaptureStderr();
    s = sample_to_unif(r);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), no_values);
    EXPECT_EQ(s.result, 0);
    EXPECT_EQ(s.rows[0], (std::vector<T>{99, unwritten<T>, unwritten<T>}));
    EXPECT_EQ(s.null_flags[0], 0) << "the flags come back with success alone";

    r.single = 1; // no interpolation, and no test of cells either
    some.interp_cell_func = nullptr;
    s = sample_to_unif(r);
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.rows[0], (std::vector<T>{99, 10, 99}));
    made->mesh->methods = own;
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TYPED_TEST(UnifNodeSampling, WithoutATestOfCellsSaysSoOnceAPoint)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    mesh_methods *own = made->mesh->methods, some = *own;
    const hand_made by_hand(2, {0, 1});
    node_request<T> nodes = on_ruler<T>(*made, &by_hand.table, 0);
    nodes.points = {0, 1, -9};
    cell_request<T> cells;
    static_cast<where &>(cells) = nodes;
    fill_cell_data(&cells, 1, 1);
    some.interp_cell_func = nullptr;
    made->mesh->methods = &some;
    testing::internal::CaptureStderr();
    const samples<T> s = sample_to_unif(nodes), t = sample_to_unif(cells);
    std::string lines;
    for (int i = 0; i < 6; ++i)
        lines += no_test;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), lines);
    made->mesh->methods = own;
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.rows[0], std::vector<T>(3, 99));
    EXPECT_EQ(s.null_flags[0], 1);
    EXPECT_EQ(t.result, 1);
    EXPECT_EQ(t.rows[0], std::vector<T>(3, 88));
    EXPECT_EQ(t.null_flags[0], 1);
}

TYPED_TEST(UnifNodeSampling, DoesWithoutWhatMemoryItIsRefused)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 5, 0.1);
    const out_lattice lattice = lattice_about(*made, 12);
    for (int single : {0, 1}) {
        node_request<T> r;
        const unif_table_ptr table = place_on(&r, *made, lattice, single);
        fill_node_data(&r, 2);
        r.points = nodes_of(lattice);
        ASSERT_GT(r.npts(), 1024);
        const samples<T> expected = slow_sample(r, true);
        int allocations = 0;
        for (int k = -1; k <= allocations; ++k) {
            const bool stop = k == allocations;
            host_calls::reset();
            samples<T> s = before(r);
            pointers<T> data(r.data), out(s.rows);
            long left;
            {
                host_calls::watch watch;
                if (k >= 0 && !stop) host_calls::fail_allocation(k);
                if (stop) host_calls::interrupt_at(0);
                s.result = UTILinterpolate_data_to_unif(
                    r.npts(), r.points.data(), r.nspace, r.xform, r.mesh, r.unif_table, 5,
                    arrays::dtype_of<T>, r.veclens.data(), data.all.data(), s.null_values.data(),
                    s.null_flags.data(), r.single, out.all.data());
                if (k < 0) allocations = watch.allocations();
                left = watch.live_blocks();
            }
            EXPECT_EQ(left, 0);
            if (stop)
                EXPECT_EQ(s.result, 0);
            else
                expect_same(s, expected);
            EXPECT_EQ(host_calls::seen().out_of_memory.size(), k >= 0 && !stop ? 1u : 0u);
            EXPECT_TRUE(host_calls::seen().reports.empty());
        }
        EXPECT_LE(allocations, 4) << "none by the point";
    }
}

// ---- cell data ---------------------------------------------------------------------------------------------------

TYPED_TEST(UnifCellSampling, GivesTheRowOfTheCellThatHoldsThePoint)
{
    using T = TypeParam;
    uint64_t seed = 1;
    qx_long found = 0, null_though_found = 0;
    for (const named_mesh &m : all_meshes())
        for (int single : {0, 1}) {
            SCOPED_TRACE(m.name + (single ? ", single" : ""));
            const out_lattice lattice = lattice_about(*m.made, 5);
            cell_request<T> r;
            const unif_table_ptr table = place_on(&r, *m.made, lattice, single);
            ++seed;
            fill_cell_data(&r, seed % 3 == 0 ? 3 : 1, seed);
            r.points = nodes_of(lattice);
            r.null_flag = seed % 5 == 0 ? 2 : 0; // the null value stands in either case
            tally seen;
            const samples<T> expected = slow_sample(r, true, &seen);
            expect_same(sample_to_unif(r), expected);
            found += seen.found;
            null_though_found += seen.null_rows - seen.missed;
            EXPECT_TRUE(host_calls::seen().reports.empty());
            EXPECT_TRUE(host_calls::seen().statuses.empty());
        }
    EXPECT_GT(found, 1000);
    EXPECT_GT(null_though_found, 0);
}

TYPED_TEST(UnifCellSampling, LooksUpThePointAndTestsWhereTheMatrixTakesIt)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {3, 3, 3}, 5, 0.1);
    for (int single : {0, 1}) {
        const out_lattice lattice = moved_lattice_about(*made, 6);
        cell_request<T> r;
        const unif_table_ptr table = place_on(&r, *made, lattice, single, there);
        fill_cell_data(&r, 2, 3);
        r.points = nodes_of(lattice);
        r.xform = back;
        tally seen;
        const samples<T> expected = slow_sample(r, true, &seen);
        expect_same(sample_to_unif(r), expected);
        EXPECT_GT(seen.found, 10);
        EXPECT_GT(seen.missed, 10);
    }
}

TYPED_TEST(UnifCellSampling, OfManyPointsMakesNoStatusChecksAndNoAllocations)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = ruler(3);
    const hand_made by_hand(3, {0, 0, 1});
    cell_request<T> r;
    static_cast<where &>(r) = on_ruler<T>(*made, &by_hand.table, 0);
    fill_cell_data(&r, 1, 1);
    r.points.assign(3000, 1);
    samples<T> s = before(r);
    pointers<T> data(r.data);
    {
        host_calls::watch watch;
        s.result =
            UTILinterpolate_cell_data_to_unif(r.npts(), r.points.data(), 1, nullptr, r.mesh, r.unif_table,
                                              r.set_map.data(), arrays::dtype_of<T>, 1, data.all.data(),
                                              s.null_flags.data(), s.null_values.data(), 0, s.rows[0].data());
        EXPECT_EQ(watch.allocations(), 0);
    }
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.null_flags[0], 0);
    EXPECT_TRUE(host_calls::seen().statuses.empty());
}

// ---- the lattice -------------------------------------------------------------------------------------------------

// Which node's list is looked at, told by the cell that the list names.
TEST_F(UnifSampling, LooksAtTheNearestNode)
{
    const meshes::mesh_ptr made = ruler(6);
    const hand_made by_hand(5);
    cell_request<int> r;
    static_cast<where &>(r) = on_ruler<int>(*made, &by_hand.table, 1);
    r.set_map = {0};
    r.data = {{0, 1, 2, 3, 4}};
    put<int>(&r.null_value, 0, -1);
    const auto node_of = [&](float x) {
        r.points = {x};
        return sample_to_unif(r).rows[0][0];
    };
    EXPECT_EQ(node_of(0), 0);
    EXPECT_EQ(node_of(0.49f), 0);
    EXPECT_EQ(node_of(0.5f), 0) << "the middle belongs to the node below";
    EXPECT_EQ(node_of(std::nextafter(0.5f, 0.0f)), 0);
    EXPECT_EQ(node_of(std::nextafter(0.5f, 1.0f)), 0) << "a little of what is beyond as well";
    EXPECT_EQ(node_of(0.5000002f), 1);
    EXPECT_EQ(node_of(1.5f), 1);
    EXPECT_EQ(node_of(3.51f), 4);
    EXPECT_EQ(node_of(4.5f), 4);
    EXPECT_EQ(node_of(4.51f), -1);
    EXPECT_EQ(node_of(-0.51f), 0);
    EXPECT_EQ(node_of(-1.4f), 0) << "rounded towards the first node";
    EXPECT_EQ(node_of(-1.6f), -1);
    EXPECT_EQ(node_of(1e30f), -1);
    EXPECT_EQ(node_of(-1e30f), -1);
    EXPECT_EQ(node_of(std::numeric_limits<float>::quiet_NaN()), -1);
    EXPECT_EQ(node_of(std::numeric_limits<float>::infinity()), -1);
}

// A position past the end of a row is no position in the next one.
TEST_F(UnifSampling, FindsNothingBesideTheLattice)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_QUAD, 1, {2, 2, 1}, 5, 0, 2);
    const out_lattice lattice = {{3, 3}, {0, 0}, {1, 1}};
    cell_request<int> r;
    const unif_table_ptr table = place_on(&r, *made, lattice, 1);
    r.set_map = {0};
    r.data = {{10, 11, 12, 13}};
    put<int>(&r.null_value, 0, -1);
    r.points = {1.5f, 0, 2, 0.5f, -0.9f, 0.5f, 0.5f, 1.5f, 0.5f, -0.9f};
    EXPECT_EQ(sample_to_unif(r).rows[0], std::vector<int>(5, -1));
    r.points = {1.2f, 0};
    EXPECT_NE(sample_to_unif(r).rows[0][0], -1);
}

TEST_F(UnifSampling, TakesAnAxisWithoutExtentAsOneNode)
{
    const meshes::mesh_ptr made = ruler(6);
    hand_made by_hand(5);
    by_hand.table.max_ext[0] = 1e-31f;
    cell_request<int> r;
    static_cast<where &>(r) = on_ruler<int>(*made, &by_hand.table, 1);
    r.set_map = {0};
    r.data = {{10, 11, 12, 13, 14}};
    r.points = {3, -100};
    EXPECT_EQ(sample_to_unif(r).rows[0], (std::vector<int>{10, 10}));
}

TEST_F(UnifSampling, EndsAListAtABadEntry)
{
    const meshes::mesh_ptr made = ruler(4);
    for (int single : {0, 1}) {
        hand_made by_hand(2, {-3, 1});
        // The first node's list goes on to a cell that would do.
        by_hand.cell_list.push_back(0);
        by_hand.next_list.push_back(0);
        by_hand.next_list[1] = 3;
        by_hand.table.cell_list = by_hand.cell_list.data();
        by_hand.table.next_list = by_hand.next_list.data();
        node_request<float> r = on_ruler<float>(*made, &by_hand.table, single);
        r.points = {0, 1};
        const samples<float> s = sample_to_unif(r);
        EXPECT_EQ(s.result, 1);
        EXPECT_EQ(s.rows[0], (std::vector<float>{99, 10}));
    }
}

TEST_F(UnifSampling, FollowsTheListWithoutALookAtBoxes)
{
    const meshes::mesh_ptr made = ruler(8);
    hand_made by_hand(2, {6, 1});
    by_hand.cell_list.push_back(0);
    by_hand.next_list.push_back(0);
    by_hand.next_list[1] = 3;
    by_hand.table.cell_list = by_hand.cell_list.data();
    by_hand.table.next_list = by_hand.next_list.data();
    node_request<float> r = on_ruler<float>(*made, &by_hand.table, 0);
    const float half[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0.5f, 0, 0, 1};
    r.points = {0};
    r.xform = half;
    EXPECT_EQ(sample_to_unif(r).rows[0], (std::vector<float>{5})) << "from the second entry";

    // A line takes points a little beyond its end, which its box would not.
    const float beyond[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1.015625f, 0, 0, 1};
    r.xform = beyond;
    EXPECT_EQ(sample_to_unif(r).rows[0], (std::vector<float>{10.15625f}));
}

namespace {

struct question {
    qx_long cell;
    float point[3];
    int check_box;
    double tol;
};
std::vector<question> questions;

int recorded_test(mesh_info *, qx_long cell, const float *point, int check_box, double tol, float *uvw)
{
    questions.push_back({cell, {point[0], point[1], point[2]}, check_box, tol});
    uvw[0] = uvw[1] = uvw[2] = 0;
    return cell == 2 ? -1 : cell == 1 ? 0 : 3;
}

} // namespace

TEST_F(UnifSampling, AsksTheTestWithoutBoxAndWithAFloatTolerance)
{
    const meshes::mesh_ptr made = ruler(8);
    hand_made by_hand(2, {2, 0});
    by_hand.cell_list.insert(by_hand.cell_list.end(), {1, 4});
    by_hand.next_list.insert(by_hand.next_list.end(), {4, 0});
    by_hand.next_list[1] = 3;
    by_hand.table.cell_list = by_hand.cell_list.data();
    by_hand.table.next_list = by_hand.next_list.data();
    by_hand.table.max_ext[1] = 0.7f; // axes that the mesh has not count
    by_hand.table.max_ext[2] = 0.1f;
    mesh_methods *own = made->mesh->methods, some = *own;
    some.interp_cell_func = recorded_test;
    made->mesh->methods = &some;
    cell_request<int> r;
    static_cast<where &>(r) = on_ruler<int>(*made, &by_hand.table, 0);
    r.set_map = {0};
    r.data = {{10, 11, 12, 13, 14, 15, 16}};
    r.points = {0.25f};
    r.xform = there;
    questions.clear();
    EXPECT_EQ(sample_to_unif(r).rows[0][0], 14);
    made->mesh->methods = own;
    ASSERT_EQ(questions.size(), 3u);
    const qx_long cells[] = {2, 1, 4};
    const double tol = static_cast<double>(1e-6f * (1.0f + 0.7f + 0.1f));
    for (size_t q = 0; q < 3; ++q) {
        EXPECT_EQ(questions[q].cell, cells[q]);
        EXPECT_EQ(questions[q].check_box, 0);
        EXPECT_EQ(questions[q].tol, tol);
        EXPECT_EQ(questions[q].point[0], 2) << "after the matrix";
        EXPECT_EQ(questions[q].point[1], -0.25f);
    }
}

// ---- fetches -------------------------------------------------------------------------------------------------------

TEST_F(UnifSampling, OfSingleCellsFailsWhereNodesCanNotBeFetched)
{
    const meshes::mesh_ptr made = ruler(3);
    const hand_made by_hand(3, {0, 0, 1});
    node_request<float> r = on_ruler<float>(*made, &by_hand.table, 1);
    r.points = {-5, 1, 2};
    r.null_flags = {0};
    r.mesh->coords = nullptr;
    r.mesh->cell_connect[0] = nullptr;
    failing_fetches fetches(r.mesh);
    fetches.fail_coords = 1;
    samples<float> s = sample_to_unif(r);
    EXPECT_EQ(s.result, 0);
    EXPECT_EQ(s.rows[0], (std::vector<float>{99, 33, 33}));
    EXPECT_EQ(s.null_flags[0], 0);
    EXPECT_EQ(host_calls::report_texts(),
              (std::vector<std::string>{"fld_info: unable to get field coordinates"}));

    host_calls::reset();
    fetches.fail_connect_of_set = 0;
    s = sample_to_unif(r);
    EXPECT_EQ(s.result, 0);
    EXPECT_EQ(s.rows[0], (std::vector<float>{99, 33, 33}));
    EXPECT_EQ(host_calls::report_texts(),
              (std::vector<std::string>{"fld_info: unable to get cell set connect list"}));

    fetches.fail_connect_of_set = -1;
    s = sample_to_unif(r);
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.rows[0], (std::vector<float>{99, 10, 20}));
}

TEST_F(UnifSampling, OtherwiseReportsOnceAPointWhatCanNotBeFetched)
{
    const meshes::mesh_ptr made = ruler(3);
    const hand_made by_hand(3, {0, 0, 1});
    node_request<float> r = on_ruler<float>(*made, &by_hand.table, 0);
    r.points = {1, 1, 2};
    r.mesh->coords = nullptr;
    failing_fetches fetches(r.mesh);
    fetches.fail_coords = 2;
    const samples<float> s = sample_to_unif(r);
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.rows[0], (std::vector<float>{99, 99, 20}));
    EXPECT_EQ(s.null_flags[0], 1);
    EXPECT_EQ(host_calls::report_texts(),
              std::vector<std::string>(2, "fld_info: unable to get field coordinates"));
}

// ---- exactness -------------------------------------------------------------------------------------------------------

TEST_F(UnifSampling, OfFieldsTheCellsHoldExactlyIsExactWhereTheSearchEnds)
{
    qx_long checked = 0;
    for (const named_mesh &m : all_meshes()) {
        // Compact meshes have no test without boxes: a listed cell takes any point.
        const bool is_compact = m.name.find("uniform") == 0 || m.name.find("rectilinear") == 0;
        if (!m.can_locate || is_compact) continue;
        SCOPED_TRACE(m.name);
        const out_lattice lattice = lattice_about(*m.made, 7);
        node_request<double> r;
        const unif_table_ptr table = place_on(&r, *m.made, lattice, 0);
        r.veclens = {1, m.made->nspace};
        r.null_flags = {0, 0};
        r.null_values.assign(2, 0);
        r.data = {meshes::field_of<double>(
                      *m.made, [](double x, double y, double z) { return 3 * x - 2 * y + z + 5; }),
                  std::vector<double>(m.made->coords.begin(), m.made->coords.end())};
        r.points = nodes_of(lattice);
        const samples<double> s = sample_to_unif(r);
        for (qx_long i = 0; i < r.npts(); ++i) {
            if (s.rows[0][static_cast<size_t>(i)] == 0) continue;
            double at[3] = {0, 0, 0};
            for (int d = 0; d < r.nspace; ++d) {
                at[d] = s.rows[1][static_cast<size_t>(i * r.nspace + d)];
                EXPECT_NEAR(at[d], static_cast<double>(r.points[static_cast<size_t>(i * r.nspace + d)]), 0.1);
            }
            EXPECT_NEAR(s.rows[0][static_cast<size_t>(i)], 3 * at[0] - 2 * at[1] + at[2] + 5, 2e-5);
            ++checked;
        }
    }
    EXPECT_GT(checked, 1000);
}

// ---- meshes that are none ---------------------------------------------------------------------------------------------

TEST_F(UnifSampling, OfRuinedMeshesGivesWhatThePointsGiveOneByOne)
{
    std::mt19937_64 random(77);
    const float odd[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                         1e30f, -1e30f, 0};
    tally seen;
    int bad_entries = 0;
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const meshes::mesh_ptr made =
            round % 3 == 0   ? meshes::curvilinear({5, 4, 3}, 3, {0, 0, 0}, {1, 1, 1}, random(), 0.3)
            : round % 3 == 1 ? meshes::mixed({CELL_HEX, CELL_TET, CELL_PYR}, {2, 2, 1}, 1, random(), 0.2)
                             : meshes::cells(CELL_TRI, 1 + round % 2, {4, 4, 1}, random(), 0.4);
        const out_lattice lattice = lattice_about(*made, 6);
        const size_t ncoords = made->coords.size();
        const auto ruin = [&] {
            for (size_t k = random() % (ncoords / 6 + 1); k > 0; --k)
                made->coords[random() % ncoords] =
                    random() % 2 == 0 ? odd[random() % std::size(odd)] : made->coords[random() % ncoords];
        };
        if (round % 2 == 0) ruin();
        node_request<float> r;
        const int single = round / 2 % 2;
        const unif_table_ptr table = place_on(&r, *made, lattice, single);
        ruin();
        for (int k = 0; round % 5 < 2 && k < 30 && table->list_used > 1; ++k) {
            const qx_long ids[] = {-1,
                                   -100,
                                   r.mesh->ncells,
                                   r.mesh->nnodes,
                                   r.mesh->nnodes - 1,
                                   std::numeric_limits<qx_long>::max() / 2};
            table->cell_list[1 + random() % static_cast<uint64_t>(table->list_used - 1)] =
                ids[random() % std::size(ids)];
            ++bad_entries;
        }
        r.veclens = {1, 2};
        for (int veclen : r.veclens)
            r.data.push_back(meshes::random_values<float>(random(), made->nnodes() * veclen, -5, 5));
        r.null_flags = {0, 1};
        r.null_values.assign(2, 0);
        r.points = nodes_of(lattice);
        for (int k = 0; k < 10; ++k)
            r.points[random() % r.points.size()] = odd[random() % std::size(odd)];
        const samples<float> expected = slow_sample(r, true, &seen);
        expect_same(sample_to_unif(r), expected);
    }
    EXPECT_GT(seen.found, 2000);
    EXPECT_GT(seen.missed, 2000);
    EXPECT_GT(bad_entries, 500);
}
