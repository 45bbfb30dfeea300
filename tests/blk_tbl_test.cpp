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
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace reference = locate_reference;

namespace {

struct release {
    void operator()(blk_tbl *table) const { host_free_table(table); }
};
using table_ptr = std::unique_ptr<blk_tbl, release>;

blk_tbl *const unset = reinterpret_cast<blk_tbl *>(16); // what out holds before a call

table_ptr alloc_table(qx_long ncells, int nspace)
{
    blk_tbl *table = unset;
    EXPECT_EQ(UTILinterp_init_alloc(ncells, nspace, &table), 1);
    return table_ptr(table);
}

int init(mesh_info *mesh, blk_tbl **out)
{
    return mesh->ndim > 0 ? UTILinterp_init_struct(mesh, out) : UTILinterp_init(mesh, out);
}

table_ptr table_of(mesh_info *mesh)
{
    blk_tbl *table = unset;
    EXPECT_EQ(init(mesh, &table), 1);
    return table_ptr(table);
}

std::vector<qx_long> numbers(const qx_long *list, qx_long count)
{
    return std::vector<qx_long>(list, list + count);
}

std::vector<qx_long> cells_of_block(const blk_tbl *table, qx_long block)
{
    std::vector<qx_long> cells;
    for (qx_long entry = table->blocks[block]; entry != 0; entry = table->next_list[entry])
        cells.push_back(table->cell_list[entry]);
    return cells;
}

// All fields and all entries, those of the pool that are in use.
void expect_table(const blk_tbl *table, const reference::table &expected)
{
    const reference::lists &lists = expected.entries;
    EXPECT_EQ(table->nblk, expected.nblk);
    EXPECT_EQ(table->nspace, expected.nspace);
    EXPECT_EQ(table->owns_lists, 1);
    for (int d = 0; d < 3; ++d) {
        EXPECT_EQ(table->min_ext[d], expected.min[d]);
        EXPECT_EQ(table->max_ext[d], expected.max[d]);
    }
    ASSERT_EQ(table->nblocks, static_cast<qx_long>(lists.blocks.size()));
    ASSERT_EQ(table->list_used, lists.used);
    ASSERT_EQ(table->list_size, lists.size);
    EXPECT_EQ(table->list_grow, lists.grow);
    EXPECT_EQ(numbers(table->blocks, table->nblocks), lists.blocks);
    EXPECT_EQ(numbers(table->cell_list + 1, lists.used - 1),
              std::vector<qx_long>(lists.cells.begin() + 1, lists.cells.begin() + lists.used));
    EXPECT_EQ(numbers(table->next_list, lists.size), lists.links) << "zeros where not in use";
}

void expect_as_reference(mesh_info *mesh)
{
    const table_ptr table = table_of(mesh);
    ASSERT_NE(table.get(), unset);
    expect_table(table.get(), reference::build(mesh));
}

// count lines of nspace coordinates, one after another along each axis, from 0 to 1.
meshes::mesh_ptr chain(qx_long count, int nspace)
{
    std::vector<float> coords;
    std::vector<qx_long> connect;
    for (qx_long node = 0; node <= count; ++node)
        for (int d = 0; d < nspace; ++d)
            coords.push_back(static_cast<float>(node) / static_cast<float>(count));
    for (qx_long cell = 0; cell < count; ++cell) {
        connect.push_back(cell);
        connect.push_back(cell + 1);
    }
    return meshes::from_cells(nspace, coords, {CELL_LINE}, {1}, {connect});
}

// count lines that all lie at one end of an axis from 0 to 1, in its first block, and one that closes the box.
meshes::mesh_ptr heap(qx_long count)
{
    std::vector<qx_long> connect;
    for (qx_long cell = 0; cell < count; ++cell) {
        connect.push_back(0);
        connect.push_back(1);
    }
    return meshes::from_cells(1, {0, 0.01f, 1}, {CELL_LINE}, {1}, {connect});
}

// Cells between nodes picked at random, of boxes of all sizes. Several sets, some of them empty.
meshes::mesh_ptr soup(uint64_t seed, int nspace, qx_long most_cells)
{
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<float> spread(-3, 5);
    const uint64_t nnodes = 20 + random() % 100;
    std::vector<float> coords;
    for (uint64_t i = 0; i < nnodes * static_cast<uint64_t>(nspace); ++i)
        coords.push_back(spread(random));
    std::vector<int> kinds, orders;
    std::vector<std::vector<qx_long>> connect;
    const int nsets = 1 + static_cast<int>(random() % 4);
    for (int set = 0; set < nsets; ++set) {
        int kind = static_cast<int>(random() % CELL_KINDS);
        while (cell_kinds[kind].ndim > nspace)
            kind = static_cast<int>(random() % CELL_KINDS);
        const int order = 1 + static_cast<int>(random() % 2);
        const int row = order == 1 ? cell_kinds[kind].ncorners : cell_kinds[kind].nnodes_2;
        const uint64_t ncells = random() % 5 == 0 ? 0 : random() % static_cast<uint64_t>(most_cells);
        std::vector<qx_long> list;
        for (uint64_t c = 0; c < ncells; ++c) {
            // Most cells are small: their nodes are neighbours in number and then in place.
            const uint64_t base = random() % nnodes, reach = random() % 3 == 0 ? nnodes : 3;
            for (int k = 0; k < row; ++k)
                list.push_back(static_cast<qx_long>((base + random() % reach) % nnodes));
        }
        kinds.push_back(kind);
        orders.push_back(order);
        connect.push_back(list);
    }
    return meshes::from_cells(nspace, coords, kinds, orders, connect);
}

std::vector<std::string> status_texts()
{
    std::vector<std::string> texts;
    for (const host_calls::status &s : host_calls::seen().statuses)
        texts.push_back(std::to_string(s.percent) + " " + s.message + " " + std::to_string(s.depth));
    return texts;
}

// A mesh whose build makes status calls and lets the pool grow several times.
std::vector<meshes::mesh_ptr> meshes_to_disturb()
{
    std::vector<meshes::mesh_ptr> all;
    all.push_back(meshes::mixed({CELL_TET, CELL_HEX}, {1, 1}, 6, 3, 0.2));
    all.push_back(meshes::curvilinear({6, 7, 8}, 3, {0, 0, 0}, {1, 1, 1}, 3));
    return all;
}

} // namespace

// ---- sizes ---------------------------------------------------------------------------------------------------

TEST(BlockTable, SizesFollowTheNumberOfCells)
{
    struct size {
        qx_long ncells;
        int nblk;
        qx_long pool;
    };
    for (const size &s : {size{-5, 7, 500},
                          {0, 7, 500},
                          {1, 7, 500},
                          {999, 7, 500},
                          {1000, 10, 1000},
                          {1999, 10, 1000},
                          {2000, 16, 2000},
                          {19999, 16, 2000},
                          {20000, 22, 2000},
                          {199999, 22, 2000},
                          {200000, 30, 2000},
                          {qx_long{1} << 40, 30, 2000}})
        for (int nspace = 1; nspace <= 3; ++nspace) {
            const table_ptr table = alloc_table(s.ncells, nspace);
            const qx_long nblocks = reference::power(s.nblk, nspace);
            EXPECT_EQ(table->nblk, s.nblk) << s.ncells << " cells";
            EXPECT_EQ(table->nspace, nspace);
            EXPECT_EQ(table->nblocks, nblocks);
            EXPECT_EQ(table->list_size, s.pool) << s.ncells << " cells";
            EXPECT_EQ(table->list_grow, s.pool);
            EXPECT_EQ(table->list_used, 1);
            EXPECT_EQ(table->owns_lists, 1);
            EXPECT_EQ(numbers(table->blocks, nblocks), std::vector<qx_long>(static_cast<size_t>(nblocks)));
            EXPECT_EQ(numbers(table->next_list, s.pool), std::vector<qx_long>(static_cast<size_t>(s.pool)));
            for (int d = 0; d < 3; ++d) {
                EXPECT_EQ(table->min_ext[d], 0);
                EXPECT_EQ(table->max_ext[d], 0);
            }
        }
}

TEST(BlockTable, BuildsTakeTheSizesOfTheirMesh)
{
    for (qx_long ncells : {999, 1000, 1999, 2000, 19999, 20000, 199999, 200000}) {
        SCOPED_TRACE(ncells);
        const meshes::mesh_ptr made = chain(ncells, 1);
        expect_as_reference(made->mesh);
    }
    expect_as_reference(chain(1500, 2)->mesh);
    expect_as_reference(chain(2500, 3)->mesh);
}

TEST(BlockTable, NoTableForImpossibleNumbersOfAxes)
{
    for (int nspace : {0, -1, -100, 4, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        const host_calls::watch watch;
        blk_tbl *table = unset;
        EXPECT_EQ(UTILinterp_init_alloc(10, nspace, &table), 0);
        EXPECT_EQ(table, unset);
        EXPECT_EQ(watch.allocations(), 0);
    }
}

TEST(BlockTable, CompactMeshesNeedNone)
{
    blk_tbl *table = unset;
    EXPECT_EQ(UTILinterp_init_unif(nullptr, &table), 1);
    EXPECT_EQ(table, nullptr);
    table = unset;
    EXPECT_EQ(UTILinterp_init_rect(nullptr, &table), 1);
    EXPECT_EQ(table, nullptr);
}

// ---- entries -------------------------------------------------------------------------------------------------

TEST(BlockTable, EntriesOfMeshesOfEveryKindAndOrder)
{
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (int order : {1, 2})
            for (int nspace = cell_kinds[kind].ndim; nspace <= 3; ++nspace) {
                SCOPED_TRACE("kind " + std::to_string(kind) + ", order " + std::to_string(order) + ", " +
                             std::to_string(nspace) + " coordinates");
                expect_as_reference(meshes::cells(kind, order, {4, 3, 5}, 7, 0.3, nspace)->mesh);
            }
}

TEST(BlockTable, EntriesOfSeveralSets)
{
    expect_as_reference(
        meshes::mixed({CELL_HEX, CELL_TET, CELL_PRISM, CELL_PYR, CELL_QUAD, CELL_TRI, CELL_LINE},
                      {1, 2, 1, 2, 1, 2, 1}, 4, 5, 0.2)
            ->mesh);
}

TEST(BlockTable, EntriesOfRandomMeshes)
{
    bool grew = false, empty_set = false, most_blocks = false;
    for (uint64_t seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const meshes::mesh_ptr made = soup(seed, 1 + static_cast<int>(seed % 3), seed % 7 == 0 ? 1200 : 120);
        const table_ptr table = table_of(made->mesh);
        expect_table(table.get(), reference::build(made->mesh));
        grew = grew || table->list_grow > 2000;
        for (int set = 0; set < made->mesh->ncell_sets; ++set)
            empty_set = empty_set || made->mesh->cell_count[set] == 0;
        most_blocks = most_blocks || table->nblk > 7;
    }
    EXPECT_TRUE(grew && empty_set && most_blocks) << "the generator no longer reaches all cases";
}

TEST(BlockTable, EntriesOfStructuredMeshes)
{
    for (const auto &shapes : {lattices::small_shapes(), lattices::wide_shapes()})
        for (const lattices::shape &s : shapes) {
            SCOPED_TRACE(lattices::text(s));
            const meshes::mesh_ptr made = lattices::curvilinear(s);
            expect_as_reference(made->mesh);
        }
}

TEST(BlockTable, OneRowOfNodesHasALayerOnEveryAxis)
{
    const meshes::mesh_ptr made = meshes::curvilinear({5, 1, 1}, 3, {0, 0, 0}, {1, 1, 1}, 1, 0);
    const table_ptr table = table_of(made->mesh);
    std::set<qx_long> cells;
    for (qx_long block = 0; block < table->nblocks; ++block)
        for (qx_long cell : cells_of_block(table.get(), block))
            cells.insert(cell);
    EXPECT_EQ(cells, (std::set<qx_long>{0, 1, 2, 3}));
    expect_table(table.get(), reference::build(made->mesh));
}

TEST(BlockTable, StructuredCellsGoByTheirLowestNode)
{
    const meshes::mesh_ptr made = meshes::curvilinear({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}, 1, 0);
    const table_ptr table = table_of(made->mesh);
    // Blocks 0, 3, 6 on each axis: the first cells, all cells, the last ones; the newest first.
    EXPECT_EQ(cells_of_block(table.get(), 0), (std::vector<qx_long>{0}));
    EXPECT_EQ(cells_of_block(table.get(), (3 * 7 + 3) * 7 + 3),
              (std::vector<qx_long>{13, 12, 10, 9, 4, 3, 1, 0}));
    EXPECT_EQ(cells_of_block(table.get(), (6 * 7 + 6) * 7 + 6), (std::vector<qx_long>{13}));
    EXPECT_EQ(cells_of_block(table.get(), (0 * 7 + 6) * 7 + 0), (std::vector<qx_long>{3}));
}

TEST(BlockTable, ListsRunFromTheNewestCellToTheOldest)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_PYR}, {1, 1}, 3, 2);
    const table_ptr table = table_of(made->mesh);
    size_t longest = 0;
    for (qx_long block = 0; block < table->nblocks; ++block) {
        const std::vector<qx_long> cells = cells_of_block(table.get(), block);
        EXPECT_TRUE(std::is_sorted(cells.rbegin(), cells.rend())) << "block " << block;
        longest = std::max(longest, cells.size());
    }
    EXPECT_GT(longest, 10u);
}

TEST(BlockTable, PoolGrowsWhenAnEntryFindsItFull)
{
    struct growth {
        qx_long ncells, size, grow;
    };
    // Entry 0 is not used: the pool of 500 holds 499 entries.
    for (const growth &g : {growth{498, 500, 500}, {499, 500, 500}, {500, 1000, 750}, {999, 1000, 750}}) {
        const meshes::mesh_ptr made = heap(g.ncells);
        const table_ptr table = table_of(made->mesh);
        EXPECT_EQ(table->list_used, g.ncells + 1);
        EXPECT_EQ(table->list_size, g.size) << g.ncells << " cells";
        EXPECT_EQ(table->list_grow, g.grow) << g.ncells << " cells";
    }
    // Cells over all of 343 blocks.
    const qx_long sizes[] = {500, 1000, 1750, 2875, 4562, 7092}, steps[] = {500, 750, 1125, 1687, 2530, 3795};
    int growths = 0;
    for (qx_long ncells = 1; ncells <= 20; ++ncells) {
        std::vector<qx_long> connect;
        for (qx_long cell = 0; cell < ncells; ++cell)
            for (qx_long node : {0, 1})
                connect.push_back(node);
        const meshes::mesh_ptr made = meshes::from_cells(3, {0, 0, 0, 1, 1, 1}, {CELL_LINE}, {1}, {connect});
        const table_ptr table = table_of(made->mesh);
        EXPECT_EQ(table->list_used, 1 + 343 * ncells);
        while (sizes[growths] < table->list_used)
            ++growths;
        EXPECT_EQ(table->list_size, sizes[growths]);
        EXPECT_EQ(table->list_grow, steps[growths]);
        for (qx_long entry = table->list_used; entry < table->list_size; ++entry)
            EXPECT_EQ(table->next_list[entry], 0);
    }
    EXPECT_EQ(growths, 5);
}

TEST(BlockTable, CellOverAllOfTheMeshStandsInEveryBlock)
{
    for (int nspace = 1; nspace <= 3; ++nspace) {
        std::vector<float> coords;
        for (float x : {-2.0f, 3.5f})
            coords.insert(coords.end(), static_cast<size_t>(nspace), x);
        const meshes::mesh_ptr made = meshes::from_cells(nspace, coords, {CELL_LINE}, {1}, {{0, 1}});
        const table_ptr table = table_of(made->mesh);
        EXPECT_EQ(table->list_used, 1 + reference::power(7, nspace));
        for (qx_long block = 0; block < table->nblocks; ++block)
            EXPECT_EQ(cells_of_block(table.get(), block), std::vector<qx_long>{0}) << block;
    }
}

TEST(BlockTable, FlatAxesHaveOneLayerOfBlocks)
{
    // The bound itself, as a float, lies a little above 1e-30.
    struct flat {
        float thickness;
        bool is_flat;
    };
    for (const flat &f : {flat{0, true}, {9.9e-31f, true}, {1e-30f, false}, {1e-20f, false}}) {
        const meshes::mesh_ptr made =
            meshes::from_cells(3, {0, 0, 0, 1, 0, f.thickness, 0, 1, 0}, {CELL_TRI}, {1}, {{0, 1, 2}});
        const table_ptr table = table_of(made->mesh);
        EXPECT_EQ(table->list_used, 1 + (f.is_flat ? 49 : 343)) << f.thickness;
        expect_table(table.get(), reference::build(made->mesh));
    }
    const meshes::mesh_ptr point = meshes::from_cells(2, {4, 5, 4, 5}, {CELL_LINE}, {1}, {{0, 1}});
    EXPECT_EQ(cells_of_block(table_of(point->mesh).get(), 0), std::vector<qx_long>{0});
}

// ---- boxes that do not hold the mesh --------------------------------------------------------------------------

TEST(BlockTable, PositionsPastTheLastBlockFallInTheNextRow)
{
    // One line over the mesh's box of 0 to 1 and beyond it, from block 6 to 7 of 7.
    const meshes::mesh_ptr made = meshes::from_cells(2, {1, 0.5f, 1.2f, 0.5f}, {CELL_LINE}, {1}, {{0, 1}});
    made->mesh->min_ext[0] = made->mesh->min_ext[1] = 0;
    made->mesh->max_ext[0] = made->mesh->max_ext[1] = 1;
    const table_ptr table = table_of(made->mesh);
    EXPECT_EQ(table->list_used, 3);
    EXPECT_EQ(cells_of_block(table.get(), 3 * 7 + 6), std::vector<qx_long>{0});
    EXPECT_EQ(cells_of_block(table.get(), 4 * 7 + 0), std::vector<qx_long>{0});
}

TEST(BlockTable, BlocksThatTheTableDoesNotHaveAreLeftOut)
{
    bool below = false, above = false;
    for (uint64_t seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const int nspace = 1 + static_cast<int>(seed % 3);
        const meshes::mesh_ptr made = soup(100 + seed, nspace, 60);
        std::mt19937_64 random(seed);
        for (int d = 0; d < nspace; ++d) {
            const float length = made->mesh->max_ext[d] - made->mesh->min_ext[d];
            made->mesh->min_ext[d] += std::uniform_real_distribution<float>(-0.2f, 0.6f)(random) * length;
            made->mesh->max_ext[d] -= std::uniform_real_distribution<float>(-0.2f, 0.6f)(random) * length;
            below = below || made->mesh->min_ext[d] > made->mesh->max_ext[d];
            above = above || made->mesh->min_ext[d] + 0.5f * length < made->mesh->max_ext[d];
        }
        expect_as_reference(made->mesh);
    }
    EXPECT_TRUE(below && above);
}

TEST(BlockTable, CellsFarOutsideTheBoxAreHarmless)
{
    for (float far : {1e3f, 1e10f, 1e17f, 1e19f, 1e30f, 3e38f})
        for (float size : {0.5f, 1e-3f, 1e-20f}) {
            const meshes::mesh_ptr made = meshes::from_cells(
                3, {far, far, 0, 2 * far / 3, far / 2, 0, -far, far, -far, far, -far, far, 0, 0, 0, 0, 0, 0},
                {CELL_LINE}, {1}, {{0, 1, 0, 3, 4, 5}});
            for (int d = 0; d < 3; ++d) {
                made->mesh->min_ext[d] = 0;
                made->mesh->max_ext[d] = size;
            }
            const table_ptr table = table_of(made->mesh);
            EXPECT_EQ(cells_of_block(table.get(), 0).front(), 2) << far;
            EXPECT_EQ(table->list_size, 500) << "cells of which nothing is listed let nothing grow";
        }
}

TEST(BlockTable, CellsWithoutAPlaceLeaveTheOthersAsTheyAre)
{
    for (float odd :
         {std::nanf(""), std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()}) {
        const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {3, 3, 3}, 1, 0.1);
        const table_ptr clean = table_of(made->mesh);
        const qx_long node = made->connect[0][8 * 13 + 2]; // of the cell in the middle
        made->coords[static_cast<size_t>(3 * node + 1)] = odd;
        const table_ptr table = table_of(made->mesh);
        std::set<qx_long> touched;
        for (size_t c = 0; c < 27; ++c)
            for (size_t k = 0; k < 8; ++k)
                if (made->connect[0][8 * c + k] == node) touched.insert(static_cast<qx_long>(c));
        EXPECT_EQ(touched.size(), 8u);
        for (qx_long block = 0; block < table->nblocks; ++block) {
            std::vector<qx_long> now, before;
            for (qx_long cell : cells_of_block(table.get(), block))
                if (touched.count(cell) == 0) now.push_back(cell);
            for (qx_long cell : cells_of_block(clean.get(), block))
                if (touched.count(cell) == 0) before.push_back(cell);
            EXPECT_EQ(now, before) << "block " << block;
        }
    }
}

// ---- progress ------------------------------------------------------------------------------------------------

TEST(BlockTable, ChecksBeforeEvery401stCellOfAllSets)
{
    std::vector<std::vector<qx_long>> connect(4);
    const size_t counts[4] = {350, 0, 700, 250};
    for (size_t set = 0; set < 4; ++set)
        for (size_t c = 0; c < counts[set]; ++c)
            for (qx_long node : {0, 1})
                connect[set].push_back(node);
    const meshes::mesh_ptr made =
        meshes::from_cells(1, {0, 1}, {CELL_LINE, CELL_LINE, CELL_LINE, CELL_LINE}, {1, 1, 1, 1}, connect);
    host_calls::reset();
    const table_ptr table = table_of(made->mesh);
    EXPECT_EQ(status_texts(),
              (std::vector<std::string>{"30 building block table 1", "61 building block table 1",
                                        "92 building block table 1", "100  1"}));
    ASSERT_EQ(host_calls::seen().pushes.size(), 1u);
    EXPECT_EQ(host_calls::seen().pushes[0].low, 0);
    EXPECT_EQ(host_calls::seen().pushes[0].high, 100);
    EXPECT_EQ(host_calls::seen().depth, 0);
    EXPECT_EQ(host_calls::seen().lowest_depth, 0);
}

TEST(BlockTable, FourHundredCellsMakeNoCheckButTheLast)
{
    for (qx_long ncells : {1, 400, 401}) {
        const meshes::mesh_ptr made = chain(ncells, 1);
        host_calls::reset();
        table_of(made->mesh);
        EXPECT_EQ(host_calls::seen().statuses.size(), ncells == 401 ? 2u : 1u) << ncells;
    }
}

TEST(BlockTable, StructuredBuildsCheckAtEveryOtherLayer)
{
    struct layers {
        std::vector<qx_long> dims;
        std::vector<std::string> texts;
    };
    const std::string text = " building block table 1";
    for (const layers &l : {layers{{3, 3, 8}, {"14" + text, "42" + text, "71" + text, "100  1"}},
                            {{3, 3, 3}, {"50" + text, "100  1"}},
                            {{3, 3, 2}, {"100  1"}},
                            {{3, 3, 1}, {"100  1"}},
                            {{40, 50}, {"100  1"}},
                            {{900}, {"100  1"}}}) {
        const meshes::mesh_ptr made = meshes::curvilinear(l.dims, 3, {0, 0, 0}, {1, 1, 1}, 1);
        host_calls::reset();
        table_of(made->mesh);
        EXPECT_EQ(status_texts(), l.texts);
        EXPECT_EQ(host_calls::seen().depth, 0);
    }
}

TEST(BlockTable, MeshWithoutCellsGivesAnEmptyTable)
{
    for (const std::vector<std::vector<qx_long>> &connect :
         {std::vector<std::vector<qx_long>>{}, std::vector<std::vector<qx_long>>{{}}}) {
        const std::vector<int> ones(connect.size(), 1), kinds(connect.size(), CELL_TRI);
        const meshes::mesh_ptr made = meshes::from_cells(2, {0, 0, 1, 1}, kinds, ones, connect);
        host_calls::reset();
        const table_ptr table = table_of(made->mesh);
        EXPECT_EQ(table->list_used, 1);
        expect_table(table.get(), reference::build(made->mesh));
        EXPECT_EQ(status_texts(), std::vector<std::string>{"100  1"});
    }
}

TEST(BlockTable, InterruptionReleasesTheTable)
{
    for (const meshes::mesh_ptr &made : meshes_to_disturb()) {
        host_calls::reset();
        const table_ptr whole = table_of(made->mesh);
        const int checks = static_cast<int>(host_calls::seen().statuses.size());
        EXPECT_GT(checks, 3);
        for (int k = 0; k < checks; ++k) {
            host_calls::reset();
            host_calls::interrupt_at(k);
            const host_calls::watch watch;
            blk_tbl *table = unset;
            const int result = init(made->mesh, &table);
            EXPECT_EQ(host_calls::seen().statuses.size(), static_cast<size_t>(k + 1));
            EXPECT_EQ(host_calls::seen().depth, 0);
            EXPECT_TRUE(host_calls::seen().reports.empty());
            if (k + 1 < checks) {
                EXPECT_EQ(result, 0);
                EXPECT_EQ(table, nullptr);
                EXPECT_EQ(watch.live_blocks(), 0);
            } else { // the table is complete by then
                EXPECT_EQ(result, 1);
                EXPECT_EQ(table->list_used, whole->list_used);
                host_free_table(table);
            }
        }
        host_calls::reset();
    }
}

// ---- failures ------------------------------------------------------------------------------------------------

TEST(BlockTable, RefusedMemoryLeavesNothingBehind)
{
    for (const meshes::mesh_ptr &made : meshes_to_disturb()) {
        int allocations;
        {
            const host_calls::watch watch;
            const table_ptr table = table_of(made->mesh);
            allocations = watch.allocations();
        }
        EXPECT_GT(allocations, 6) << "the record, three lists, growth";
        for (int k = 0; k < allocations; ++k) {
            host_calls::reset();
            const host_calls::watch watch;
            host_calls::fail_allocation(k);
            blk_tbl *table = unset;
            EXPECT_EQ(init(made->mesh, &table), 0);
            EXPECT_TRUE(host_calls::allocation_was_refused());
            EXPECT_EQ(table, k < 4 ? unset : nullptr) << "allocation " << k;
            EXPECT_EQ(watch.live_blocks(), 0) << "allocation " << k;
            EXPECT_EQ(host_calls::seen().depth, 0);
            EXPECT_TRUE(host_calls::seen().reports.empty());
        }
        expect_as_reference(made->mesh);
    }
}

TEST(BlockTable, RefusedMemoryOfTheAllocatorAlone)
{
    for (int k = 0; k < 4; ++k) {
        const host_calls::watch watch;
        host_calls::fail_allocation(k);
        blk_tbl *table = unset;
        EXPECT_EQ(UTILinterp_init_alloc(10, 3, &table), 0);
        EXPECT_EQ(table, unset);
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    host_calls::reset();
}

TEST(BlockTable, NoCoordinatesNoTable)
{
    for (const meshes::mesh_ptr &made : meshes_to_disturb()) {
        failing_fetches fetches(made->mesh);
        fetches.fail_coords = 1;
        host_calls::reset();
        blk_tbl *table = unset;
        {
            const host_calls::watch watch;
            EXPECT_EQ(init(made->mesh, &table), 0);
            EXPECT_EQ(watch.allocations(), 0);
        }
        EXPECT_EQ(table, unset);
        EXPECT_EQ(made->mesh->coords, nullptr);
        EXPECT_EQ(host_calls::report_texts(),
                  std::vector<std::string>{"fld_info: unable to get field coordinates"});
        EXPECT_TRUE(host_calls::seen().pushes.empty());
        expect_as_reference(made->mesh);
    }
}

TEST(BlockTable, UnfetchableConnectListLeavesTheTableToTheCaller)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_HEX, CELL_PYR}, {1, 1, 1}, 3, 3, 0.2);
    failing_fetches fetches(made->mesh);
    for (int set = 0; set < 3; ++set) {
        for (int s = 0; s < 3; ++s)
            made->mesh->cell_connect[s] = nullptr;
        fetches.fail_connect_of_set = set;
        host_calls::reset();
        blk_tbl *out = unset;
        EXPECT_EQ(UTILinterp_init(made->mesh, &out), 0);
        ASSERT_NE(out, unset);
        ASSERT_NE(out, nullptr);
        const table_ptr table(out);
        EXPECT_EQ(host_calls::report_texts(),
                  std::vector<std::string>{"fld_info: unable to get cell set connect list"});
        EXPECT_EQ(host_calls::seen().depth, 0);
        for (int s = 0; s < 3; ++s)
            EXPECT_EQ(made->mesh->cell_connect[s] != nullptr, s < set);
        // What was inserted is there.
        qx_long highest = -1;
        for (qx_long block = 0; block < table->nblocks; ++block)
            for (qx_long cell : cells_of_block(table.get(), block))
                highest = std::max(highest, cell);
        EXPECT_EQ(highest, made->mesh->cell_first[set] - 1);
    }
    fetches.fail_connect_of_set = -1;
    expect_as_reference(made->mesh);
}
