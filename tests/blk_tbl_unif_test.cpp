#include "support/fetches.hpp"
#include "support/host_calls.hpp"
#include "support/lattices.hpp"
#include "support/locate_reference.hpp"
#include "support/meshes.hpp"

#include <skoklana.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace reference = locate_reference;

namespace {

using request = reference::lattice_request;

struct release {
    void operator()(blk_tbl_unif *table) const { EXPECT_EQ(UTILinterp_end2(table), 1); }
};
using table_ptr = std::unique_ptr<blk_tbl_unif, release>;

blk_tbl_unif *const unset = reinterpret_cast<blk_tbl_unif *>(16); // what out holds before a call

int init(mesh_info *mesh, const request &r, blk_tbl_unif **out)
{
    const auto build = mesh->ndim > 0 ? UTILinterp_init_struct2 : UTILinterp_init2;
    return build(mesh, r.xform.empty() ? nullptr : r.xform.data(), static_cast<int>(r.dims.size()),
                 r.dims.data(), static_cast<int>(r.min.size()), r.min.data(), r.max.data(), r.single ? 3 : 0,
                 out);
}

table_ptr table_of(mesh_info *mesh, const request &r)
{
    blk_tbl_unif *table = nullptr;
    EXPECT_EQ(init(mesh, r, &table), 1);
    return table_ptr(table);
}

std::vector<qx_long> numbers(const qx_long *list, qx_long count)
{
    return std::vector<qx_long>(list, list + count);
}

std::vector<qx_long> cells_of_node(const blk_tbl_unif *table, qx_long node)
{
    std::vector<qx_long> cells;
    for (qx_long entry = table->blocks[node]; entry != 0; entry = table->next_list[entry])
        cells.push_back(table->cell_list[entry]);
    return cells;
}

void expect_table(const blk_tbl_unif *table, const request &r, const reference::lists &lists)
{
    EXPECT_EQ(table->owns_lists, 1);
    for (size_t d = 0; d < 3; ++d) {
        EXPECT_EQ(table->dims[d], d < r.dims.size() ? r.dims[d] : 1);
        EXPECT_EQ(table->min_ext[d], d < r.min.size() ? r.min[d] : 0);
        EXPECT_EQ(table->max_ext[d], d < r.max.size() ? r.max[d] : 0);
    }
    ASSERT_EQ(table->nblocks, static_cast<qx_long>(lists.blocks.size()));
    ASSERT_EQ(table->list_used, lists.used);
    ASSERT_EQ(table->list_size, lists.size);
    EXPECT_EQ(table->list_grow, lists.grow);
    EXPECT_EQ(numbers(table->blocks, table->nblocks), lists.blocks);
    EXPECT_EQ(numbers(table->cell_list + 1, lists.used - 1),
              std::vector<qx_long>(lists.cells.begin() + 1, lists.cells.begin() + lists.used));
    const qx_long nlinks = static_cast<qx_long>(lists.links.size());
    EXPECT_EQ(numbers(table->next_list, nlinks), lists.links) << "zeros where not in use";
}

void expect_as_reference(mesh_info *mesh, const request &r)
{
    const table_ptr table = table_of(mesh, r);
    ASSERT_NE(table, nullptr);
    expect_table(table.get(), r, reference::build_unif(mesh, r));
}

// An affine map near the one that does nothing; it may flip an axis.
std::vector<float> random_xform(std::mt19937_64 &random)
{
    std::uniform_real_distribution<float> spread(-0.3f, 0.3f);
    std::vector<float> m;
    const bool flip = random() % 2 == 0;
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 4; ++col)
            m.push_back((row == col ? row == 1 && flip ? -1.0f : 1.0f : 0.0f) + spread(random));
    return m;
}

// A lattice around the mesh or across a part of it, of 1 to 3 axes, at times with fewer or more axes than the
// mesh has.
request random_request(const mesh_info *mesh, std::mt19937_64 &random)
{
    request r;
    const int ndim = 1 + static_cast<int>(random() % 3), naxes = 1 + static_cast<int>(random() % 3);
    for (int d = 0; d < ndim; ++d)
        r.dims.push_back(1 + static_cast<qx_long>(random() % 12));
    for (int d = 0; d < naxes; ++d) {
        const float lo = d < mesh->nspace ? mesh->min_ext[d] : 0,
                    hi = d < mesh->nspace ? mesh->max_ext[d] : 0;
        std::uniform_real_distribution<float> spread(-0.2f, 0.4f);
        r.min.push_back(lo + spread(random) * (hi - lo));
        r.max.push_back(random() % 10 == 0 ? r.min.back() : hi - spread(random) * (hi - lo));
    }
    if (random() % 2 == 0) r.xform = random_xform(random);
    r.single = random() % 3 == 0;
    return r;
}

std::vector<meshes::mesh_ptr> meshes_to_disturb()
{
    std::vector<meshes::mesh_ptr> all;
    all.push_back(meshes::mixed({CELL_TET, CELL_HEX}, {1, 1}, 6, 3, 0.2));
    all.push_back(meshes::curvilinear({6, 7, 8}, 3, {0, 0, 0}, {1, 1, 1}, 3));
    return all;
}

request dense_request(bool with_xform, bool single)
{
    request r = {{}, {12, 13, 11}, {0, 0, 0}, {2, 1, 1}, single};
    if (with_xform) r.xform = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0.25f, 0, 0, 1};
    return r;
}

} // namespace

// ---- sizes ---------------------------------------------------------------------------------------------------

TEST(LatticeTable, SizesFollowCellsAndDims)
{
    struct size {
        int ncells;
        qx_long pool;
    };
    const qx_long dims[3] = {4, 5, 3};
    for (const size &s : {size{-1, 500},
                          {0, 500},
                          {999, 500},
                          {1000, 1000},
                          {1999, 1000},
                          {2000, 2000},
                          {20000, 2000},
                          {std::numeric_limits<int>::max(), 2000}})
        for (int ndim = 1; ndim <= 3; ++ndim) {
            blk_tbl_unif *out = nullptr;
            ASSERT_EQ(UTILinterp_init_alloc2(s.ncells, ndim, dims, &out), 1);
            const table_ptr table(out);
            const request none = {{}, std::vector<qx_long>(dims, dims + ndim), {}, {}, false};
            reference::lists lists(ndim == 1 ? 4 : ndim == 2 ? 20 : 60, s.ncells);
            EXPECT_EQ(lists.size, s.pool);
            expect_table(table.get(), none, lists);
        }
}

TEST(LatticeTable, NoTableForImpossibleDims)
{
    struct shape {
        int ndim;
        qx_long dims[3];
    };
    constexpr qx_long huge = std::numeric_limits<qx_long>::max();
    for (const shape &s : {shape{0, {2, 2, 2}},
                           {-1, {2, 2, 2}},
                           {4, {2, 2, 2}},
                           {1, {0, 1, 1}},
                           {2, {5, 0, 1}},
                           {3, {5, 5, -1}},
                           {1, {huge, 1, 1}},
                           {3, {huge, huge, huge}},
                           {2, {qx_long{1} << 32, qx_long{1} << 32, 1}}}) {
        const host_calls::watch watch;
        blk_tbl_unif *out = unset;
        EXPECT_EQ(UTILinterp_init_alloc2(10, s.ndim, s.dims, &out), 0);
        EXPECT_EQ(out, unset);
        EXPECT_EQ(watch.allocations(), 0);
    }
}

TEST(LatticeTable, EndReleasesWhatTheTableOwns)
{
    EXPECT_EQ(UTILinterp_end2(nullptr), 0);
    const qx_long dims[1] = {4};
    blk_tbl_unif *table = nullptr;
    {
        const host_calls::watch watch;
        ASSERT_EQ(UTILinterp_init_alloc2(1, 1, dims, &table), 1);
        EXPECT_EQ(watch.live_blocks(), 4);
        EXPECT_EQ(UTILinterp_end2(table), 1);
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    // Lists that it does not own stay; lists that are not there are no trouble.
    ASSERT_EQ(UTILinterp_init_alloc2(1, 1, dims, &table), 1);
    const blk_tbl_unif kept = *table;
    table->owns_lists = 0;
    EXPECT_EQ(UTILinterp_end2(table), 1);
    for (qx_long *list : {kept.blocks, kept.cell_list, kept.next_list}) {
        list[0] = 5;
        ARRfree_f(list, "test", 1);
    }
    ASSERT_EQ(UTILinterp_init_alloc2(1, 1, dims, &table), 1);
    for (qx_long **list : {&table->blocks, &table->next_list}) {
        ARRfree_f(*list, "test", 1);
        *list = nullptr;
    }
    EXPECT_EQ(UTILinterp_end2(table), 1);
}

// ---- entries -------------------------------------------------------------------------------------------------

TEST(LatticeTable, EntriesOfRandomLatticesOverMeshesOfEveryKind)
{
    int flipped = 0, single = 0, grown = 0;
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (int order : {1, 2})
            for (int nspace = cell_kinds[kind].ndim; nspace <= 3; ++nspace) {
                const meshes::mesh_ptr made = meshes::cells(kind, order, {4, 3, 5}, 7, 0.3, nspace);
                for (uint64_t seed = 0; seed < 12; ++seed) {
                    SCOPED_TRACE("kind " + std::to_string(kind) + ", order " + std::to_string(order) + ", " +
                                 std::to_string(nspace) + " coordinates, seed " + std::to_string(seed));
                    std::mt19937_64 random(seed + 1000 * static_cast<uint64_t>(kind));
                    const request r = random_request(made->mesh, random);
                    expect_as_reference(made->mesh, r);
                    flipped += !r.xform.empty() && r.xform[5] < 0;
                    single += r.single;
                    grown += table_of(made->mesh, r)->list_grow > 500;
                }
            }
    EXPECT_GT(flipped, 10);
    EXPECT_GT(single, 10);
    EXPECT_GT(grown, 3);
}

TEST(LatticeTable, EntriesOfSeveralSets)
{
    const meshes::mesh_ptr made =
        meshes::mixed({CELL_HEX, CELL_TET, CELL_PRISM, CELL_PYR, CELL_QUAD, CELL_TRI, CELL_LINE},
                      {1, 2, 1, 2, 1, 2, 1}, 3, 5, 0.2);
    for (bool single : {false, true})
        expect_as_reference(made->mesh, {{}, {40, 9, 11}, {0, 0, 0}, {7, 1, 1}, single});
}

TEST(LatticeTable, EntriesOfStructuredMeshes)
{
    for (const auto &shapes : {lattices::small_shapes(), lattices::wide_shapes()})
        for (const lattices::shape &s : shapes) {
            const meshes::mesh_ptr made = lattices::curvilinear(s);
            for (uint64_t seed = 0; seed < 4; ++seed) {
                SCOPED_TRACE(lattices::text(s) + ", seed " + std::to_string(seed));
                std::mt19937_64 random(seed);
                expect_as_reference(made->mesh, random_request(made->mesh, random));
            }
        }
}

TEST(LatticeTable, CellListsTheNodesInsideItsBoxAndNoOthers)
{
    // Nodes at 0, 1, ..., 9; lines from a to b.
    struct line {
        float a, b;
        std::vector<qx_long> nodes;
    };
    for (const line &l : {line{2.5f, 4.5f, {3, 4}},
                          {2, 4, {2, 3, 4}},
                          {4, 2, {2, 3, 4}},
                          {2.1f, 2.9f, {}},
                          {3, 3, {3}},
                          {-5, 0.5f, {0}},
                          {8.5f, 30, {9}},
                          {9, 9, {9}},
                          {-0.5f, -0.2f, {0}},
                          {-3, -2, {}},
                          {10, 12, {}},
                          {-5, 50, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}}}) {
        const meshes::mesh_ptr made = meshes::from_cells(1, {l.a, l.b}, {CELL_LINE}, {1}, {{0, 1}});
        const request r = {{}, {10}, {0}, {9}, false};
        const table_ptr table = table_of(made->mesh, r);
        std::vector<qx_long> nodes;
        for (qx_long node = 0; node < 10; ++node)
            if (!cells_of_node(table.get(), node).empty()) nodes.push_back(node);
        EXPECT_EQ(nodes, l.nodes) << l.a << " to " << l.b;
        expect_table(table.get(), r, reference::build_unif(made->mesh, r));
    }
}

TEST(LatticeTable, FirstOrLastCellOfANode)
{
    const meshes::mesh_ptr made =
        meshes::from_cells(1, {0, 2, 4}, {CELL_LINE, CELL_LINE}, {1, 1}, {{0, 1, 1, 2}, {0, 2}});
    request r = {{}, {5}, {0}, {4}, false};
    const table_ptr all = table_of(made->mesh, r);
    EXPECT_EQ(cells_of_node(all.get(), 0), (std::vector<qx_long>{2, 0}));
    EXPECT_EQ(cells_of_node(all.get(), 2), (std::vector<qx_long>{2, 1, 0}));
    EXPECT_EQ(cells_of_node(all.get(), 4), (std::vector<qx_long>{2, 1}));
    r.single = true;
    const table_ptr first = table_of(made->mesh, r);
    EXPECT_EQ(first->list_used, 6);
    for (qx_long node = 0; node < 5; ++node)
        EXPECT_EQ(cells_of_node(first.get(), node), std::vector<qx_long>{node < 3 ? 0 : 1}) << node;
}

TEST(LatticeTable, SingleModeGrowsTheCellsButNotTheLinks)
{
    const meshes::mesh_ptr made = meshes::from_cells(1, {0, 1}, {CELL_LINE}, {1}, {{0, 1}});
    const request r = {{}, {1200}, {0}, {1}, true};
    const host_calls::watch watch;
    const table_ptr table = table_of(made->mesh, r);
    EXPECT_EQ(table->list_used, 1201);
    EXPECT_EQ(table->list_size, 1750);
    EXPECT_EQ(table->list_grow, 1125);
    EXPECT_EQ(watch.allocations(), 4 + 2) << "the record and its lists, two growths of one list";
    for (qx_long entry = 0; entry < 500; ++entry)
        EXPECT_EQ(table->next_list[entry], 0);
}

TEST(LatticeTable, PoolGrowsWhenAnEntryFindsItFull)
{
    struct growth {
        qx_long nnodes, size, grow;
    };
    for (bool single : {false, true})
        for (const growth &g : {growth{499, 500, 500},
                                {500, 1000, 750},
                                {999, 1000, 750},
                                {1000, 1750, 1125},
                                {1749, 1750, 1125},
                                {1750, 2875, 1687},
                                {2875, 4562, 2530}}) {
            const meshes::mesh_ptr made = meshes::from_cells(1, {0, 1}, {CELL_LINE}, {1}, {{0, 1}});
            const table_ptr whole = table_of(made->mesh, {{}, {g.nnodes}, {0}, {1}, single});
            EXPECT_EQ(whole->list_used, g.nnodes + 1);
            EXPECT_EQ(whole->list_size, g.size) << g.nnodes;
            EXPECT_EQ(whole->list_grow, g.grow) << g.nnodes;
        }
}

TEST(LatticeTable, FlippedAxisKeepsTheRanges)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {3, 4, 2}, 3, 0.2);
    const std::vector<float> flip = {1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0, 0, 1, 0, 1};
    const table_ptr plain = table_of(made->mesh, {{}, {7, 9, 8}, {0, 0, 0}, {1, 1, 1}, false});
    const table_ptr flipped = table_of(made->mesh, {flip, {7, 9, 8}, {0, 0, 0}, {1, 1, 1}, false});
    int entries = 0;
    for (qx_long k = 0; k < 8; ++k)
        for (qx_long j = 0; j < 9; ++j)
            for (qx_long i = 0; i < 7; ++i) {
                const auto there = cells_of_node(flipped.get(), (k * 9 + 8 - j) * 7 + i);
                EXPECT_EQ(cells_of_node(plain.get(), (k * 9 + j) * 7 + i), there);
                entries += !there.empty();
            }
    EXPECT_GT(entries, 300);
    // A lattice that runs down has no extent that counts: all is at its first node.
    const table_ptr down = table_of(made->mesh, {{}, {7, 9, 8}, {0, 1, 0}, {1, 0, 1}, false});
    for (qx_long node = 0; node < down->nblocks; ++node)
        EXPECT_TRUE(node / 7 % 9 == 0 || down->blocks[node] == 0) << node;
}

TEST(LatticeTable, FlatMeshesAreMovedInSpace)
{
    // A square in the plane, turned up so that y becomes z.
    const meshes::mesh_ptr made = meshes::cells(CELL_QUAD, 1, {2, 2, 1}, 1, 0, 2);
    const std::vector<float> up = {1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0.5f, 0, 1};
    const request r = {up, {3, 3, 3}, {0, 0, 0}, {1, 1, 1}, false};
    const table_ptr table = table_of(made->mesh, r);
    for (qx_long node = 0; node < 27; ++node)
        EXPECT_EQ(table->blocks[node] != 0, node / 3 % 3 == 1) << node;
    expect_table(table.get(), r, reference::build_unif(made->mesh, r));
    const meshes::mesh_ptr line = meshes::cells(CELL_LINE, 1, {3, 1, 1}, 1, 0, 1);
    expect_as_reference(line->mesh, r);
}

TEST(LatticeTable, EntriesAreCutTo32Bits)
{
    const meshes::mesh_ptr made = meshes::from_cells(1, {0, 1, 2}, {CELL_LINE}, {1}, {{0, 1, 1, 2}});
    const qx_long first = made->mesh->cell_first[0];
    made->mesh->cell_first[0] = (qx_long{5} << 32) + 0x7fffffff;
    const table_ptr table = table_of(made->mesh, {{}, {3}, {0}, {2}, false});
    EXPECT_EQ(cells_of_node(table.get(), 0), std::vector<qx_long>{0x7fffffff});
    EXPECT_EQ(cells_of_node(table.get(), 2), std::vector<qx_long>{-0x7fffffff - 1});
    made->mesh->cell_first[0] = first;
}

TEST(LatticeTable, CellsWithoutAPlaceAreHarmless)
{
    for (float odd : {std::nanf(""), std::numeric_limits<float>::infinity(),
                      -std::numeric_limits<float>::infinity(), 3e38f, -3e38f})
        for (bool single : {false, true}) {
            const meshes::mesh_ptr made = meshes::from_cells(
                3, {odd, odd, odd, 0, 0, 0, 1, 1, 1}, {CELL_LINE}, {1}, {{1, 2, 0, 0, 0, 1, 2, 0, 1, 2}});
            const table_ptr table = table_of(made->mesh, {{}, {3, 3, 3}, {0, 0, 0}, {1, 1, 1}, single});
            for (qx_long node = 0; node < 27; ++node) {
                const std::vector<qx_long> cells = cells_of_node(table.get(), node);
                EXPECT_EQ(cells.back(), 0);
                EXPECT_EQ(cells.front(), single ? 0 : 4);
            }
        }
}

// ---- progress and failures -------------------------------------------------------------------------------------

TEST(LatticeTable, ChecksAsTheOtherTableDoes)
{
    std::vector<qx_long> connect;
    for (int cell = 0; cell < 1300; ++cell)
        for (qx_long node : {0, 1})
            connect.push_back(node);
    const meshes::mesh_ptr sets = meshes::from_cells(1, {0, 1}, {CELL_LINE}, {1}, {connect});
    const meshes::mesh_ptr layers = meshes::curvilinear({3, 3, 6}, 3, {0, 0, 0}, {1, 1, 1}, 1);
    const std::vector<int> percents[2] = {{30, 61, 92, 100}, {20, 60, 100}};
    for (int m = 0; m < 2; ++m) {
        host_calls::reset();
        table_of((m == 0 ? sets : layers)->mesh, {{}, {3}, {0}, {1}, false});
        std::vector<int> seen;
        for (const host_calls::status &s : host_calls::seen().statuses) {
            seen.push_back(s.percent);
            EXPECT_EQ(s.message, s.percent < 100 ? "building block table" : "");
            EXPECT_EQ(s.depth, 1);
        }
        EXPECT_EQ(seen, percents[m]);
        ASSERT_EQ(host_calls::seen().pushes.size(), 1u);
        EXPECT_EQ(host_calls::seen().pushes[0].low, 0);
        EXPECT_EQ(host_calls::seen().pushes[0].high, 100);
        EXPECT_EQ(host_calls::seen().depth, 0);
    }
}

TEST(LatticeTable, InterruptionAndRefusedMemoryLeaveNothingBehind)
{
    for (const meshes::mesh_ptr &made : meshes_to_disturb())
        for (bool with_xform : {false, true})
            for (bool single : {false, true}) {
                const request r = dense_request(with_xform, single);
                host_calls::reset();
                int checks, allocations;
                {
                    const host_calls::watch watch;
                    const table_ptr table = table_of(made->mesh, r);
                    checks = static_cast<int>(host_calls::seen().statuses.size());
                    allocations = watch.allocations();
                    EXPECT_EQ(watch.live_blocks(), 4) << "no working copy stays";
                }
                EXPECT_GT(checks, 3);
                EXPECT_GT(allocations, single ? 4 : 6);
                for (int k = 0; k < checks; ++k) {
                    host_calls::reset();
                    host_calls::interrupt_at(k);
                    const host_calls::watch watch;
                    blk_tbl_unif *table = unset;
                    EXPECT_EQ(init(made->mesh, r, &table), k + 1 < checks ? 0 : 1);
                    EXPECT_EQ(host_calls::seen().depth, 0);
                    if (k + 1 < checks) {
                        EXPECT_EQ(table, nullptr);
                    } else {
                        EXPECT_EQ(UTILinterp_end2(table), 1);
                    }
                    EXPECT_EQ(watch.live_blocks(), 0);
                }
                for (int k = 0; k < allocations; ++k) {
                    host_calls::reset();
                    const host_calls::watch watch;
                    host_calls::fail_allocation(k);
                    blk_tbl_unif *table = unset;
                    EXPECT_EQ(init(made->mesh, r, &table), 0);
                    EXPECT_TRUE(host_calls::allocation_was_refused());
                    EXPECT_EQ(table, k < (with_xform ? 5 : 4) ? unset : nullptr) << "allocation " << k;
                    EXPECT_EQ(watch.live_blocks(), 0) << "allocation " << k;
                    EXPECT_EQ(host_calls::seen().depth, 0);
                    EXPECT_TRUE(host_calls::seen().reports.empty());
                }
                host_calls::reset();
                expect_as_reference(made->mesh, r);
            }
}

TEST(LatticeTable, UnfetchableMesh)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_HEX}, {1, 1}, 3, 3, 0.2);
    failing_fetches fetches(made->mesh);
    for (bool with_xform : {false, true}) {
        const request r = dense_request(with_xform, false);
        made->mesh->coords = nullptr;
        for (int set = 0; set < 2; ++set)
            made->mesh->cell_connect[set] = nullptr;
        fetches.fail_coords = 1;
        host_calls::reset();
        blk_tbl_unif *table = unset;
        EXPECT_EQ(init(made->mesh, r, &table), 0);
        EXPECT_EQ(table, unset);
        fetches.fail_connect_of_set = 1;
        EXPECT_EQ(init(made->mesh, r, &table), 0);
        EXPECT_EQ(host_calls::report_texts(),
                  (std::vector<std::string>{"fld_info: unable to get field coordinates",
                                            "fld_info: unable to get cell set connect list"}));
        EXPECT_EQ(host_calls::seen().depth, 0);
        ASSERT_NE(table, nullptr);
        EXPECT_GT(table->list_used, 1) << "the cells of the first set are there";
        EXPECT_EQ(UTILinterp_end2(table), 1);
        fetches.fail_connect_of_set = -1;
        expect_as_reference(made->mesh, r);
    }
}
