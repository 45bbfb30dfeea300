#include <skoklana/containers.h>

#include "support/host_calls.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <vector>

// ---- visited cells ---------------------------------------------------------------------------------------

TEST(CellTable, FindsWhatWasAdded)
{
    cell_table *table = UTILcell_table_create(100, 3000);
    EXPECT_EQ(table->scale, 100.0f / 3000.0f);
    EXPECT_EQ(table->max_cells, 1024);
    EXPECT_EQ(table->grow, 1024);
    EXPECT_EQ(UTILcell_in_table(table, 17), 0);
    EXPECT_EQ(UTILcell_table_add(table, 17), 1);
    EXPECT_EQ(UTILcell_in_table(table, 17), 1);
    EXPECT_EQ(UTILcell_in_table(table, 18), 0) << "of the same bucket";
    EXPECT_EQ(table->ncells, 1);
    const qx_long bucket = static_cast<qx_long>(17.0f * table->scale);
    EXPECT_EQ(table->head[bucket], 1);
    EXPECT_EQ(UTILcell_table_add(table, 18), 1);
    EXPECT_EQ(table->head[bucket], 2);
    EXPECT_EQ(table->next[2], 1);
    EXPECT_EQ(UTILcell_table_add(table, 17), 1) << "a repeat is stored again";
    EXPECT_EQ(table->ncells, 3);
    EXPECT_EQ(UTILcell_table_delete(table), 1);
}

TEST(CellTable, NullTables)
{
    EXPECT_EQ(UTILcell_in_table(nullptr, 1), 0);
    EXPECT_EQ(UTILcell_table_add(nullptr, 1), 0);
    EXPECT_EQ(UTILcell_table_delete(nullptr), 1);
}

TEST(CellTable, GrowsByAConstantStep)
{
    cell_table *table = UTILcell_table_create(64, 10000);
    for (qx_long cell = 0; cell < 1022; ++cell)
        UTILcell_table_add(table, 3 * cell);
    EXPECT_EQ(table->max_cells, 1024);
    UTILcell_table_add(table, 3 * 1022);
    EXPECT_EQ(table->max_cells, 2048);
    EXPECT_EQ(table->grow, 1024);
    for (qx_long cell = 1023; cell < 3100; ++cell)
        UTILcell_table_add(table, 3 * cell);
    EXPECT_EQ(table->max_cells, 4096);
    EXPECT_EQ(table->grow, 1024);
    for (qx_long cell = 0; cell < 9300; ++cell)
        ASSERT_EQ(UTILcell_in_table(table, cell), cell % 3 == 0) << cell;
    UTILcell_table_delete(table);
}

TEST(CellTable, LastCellOfALargeMeshStaysInside)
{
    // As a float the last cell is rounded up to the count of cells, and so to the bucket behind the last.
    const qx_long ncells = (1 << 25) + 4;
    ASSERT_EQ(static_cast<float>(ncells - 1), static_cast<float>(ncells));
    cell_table *table = UTILcell_table_create(1000, ncells);
    EXPECT_EQ(UTILcell_table_add(table, ncells - 1), 1);
    EXPECT_EQ(UTILcell_in_table(table, ncells - 1), 1);
    EXPECT_EQ(UTILcell_in_table(table, ncells - 2), 0);
    UTILcell_table_delete(table);
}

TEST(CellTable, CellsThatAFloatRoundsBeyondTheBucketsStayInside)
{
    const qx_long ncells = (1 << 26) + 15;
    ASSERT_EQ(static_cast<float>(ncells - 1), static_cast<float>(ncells + 1));
    cell_table *table = UTILcell_table_create(ncells, ncells);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(UTILcell_table_add(table, ncells - 1), 1);
    EXPECT_EQ(UTILcell_in_table(table, ncells - 1), 1);
    EXPECT_EQ(table->head[ncells], 1);
    UTILcell_table_delete(table);
}

TEST(CellTable, AGrowthWithoutMemoryLeavesTheTableAsItWas)
{
    host_calls::watch watch;
    for (int k = 0; k < 2; ++k) {
        cell_table *table = UTILcell_table_create(64, 10000);
        for (qx_long cell = 0; cell < 1022; ++cell)
            UTILcell_table_add(table, cell);
        host_calls::fail_allocation(k);
        EXPECT_EQ(UTILcell_table_add(table, 5000), 0);
        EXPECT_EQ(UTILcell_in_table(table, 5000), 0);
        EXPECT_EQ(table->ncells, 1022);
        EXPECT_EQ(UTILcell_table_add(table, 5000), 1);
        EXPECT_EQ(UTILcell_in_table(table, 5000), 1);
        EXPECT_EQ(UTILcell_in_table(table, 1021), 1);
        UTILcell_table_delete(table);
        EXPECT_EQ(watch.live_blocks(), 0);
    }
}

// ---- cells to visit --------------------------------------------------------------------------------------

TEST(CellList, GivesCellsBackInReverseOrder)
{
    cell_list *list = UTILinit_cell_list(1024);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->nblocks, 1);
    EXPECT_EQ(list->top, nullptr);
    std::vector<qx_long> cells;
    for (qx_long cell = 0; cell < 2000; ++cell)
        cells.push_back(7 * cell);
    EXPECT_EQ(UTILadd_cell_to_list(list, 2000, cells.data()), 1);
    EXPECT_EQ(list->nblocks, 2);
    for (qx_long cell = 1999; cell >= 0; --cell) {
        ASSERT_NE(list->top, nullptr);
        ASSERT_EQ(list->top->cell, 7 * cell);
        EXPECT_EQ(UTILrm_cell_from_list(list), 1);
    }
    EXPECT_EQ(list->top, nullptr);
    EXPECT_EQ(UTILdelete_cell_list(list), 1);
}

TEST(CellList, BlocksAreChainedInArrayOrderBehindTheLastFreeNode)
{
    cell_list *list = UTILinit_cell_list(1024);
    const auto chained = [](const cell_node *block) {
        for (int i = 0; i < 1023; ++i)
            if (block[i].next != &block[i + 1]) return false;
        return block[1023].next == nullptr;
    };
    EXPECT_EQ(list->free_nodes, list->blocks[0]);
    EXPECT_TRUE(chained(list->blocks[0]));
    const std::vector<qx_long> cells(1023, 5);
    UTILadd_cell_to_list(list, 1023, cells.data());
    EXPECT_EQ(list->free_nodes, list->blocks[0] + 1023);
    EXPECT_EQ(list->free_nodes->next, nullptr);
    const qx_long more = 6;
    UTILadd_cell_to_list(list, 1, &more);
    ASSERT_EQ(list->nblocks, 2);
    EXPECT_EQ(list->top, list->blocks[0] + 1023);
    EXPECT_EQ(list->top->next, list->blocks[0] + 1022);
    EXPECT_EQ(list->free_nodes, list->blocks[1]);
    EXPECT_TRUE(chained(list->blocks[1]));
    UTILdelete_cell_list(list);
}

TEST(CellList, ANodeTakenOffIsTheFirstToBeUsedAgain)
{
    cell_list *list = UTILinit_cell_list(1024);
    const qx_long cells[] = {1, 2, 3};
    UTILadd_cell_to_list(list, 3, cells);
    cell_node *const top = list->top, *const spare = list->free_nodes;
    UTILrm_cell_from_list(list);
    EXPECT_EQ(list->free_nodes, top);
    EXPECT_EQ(list->free_nodes->next, spare);
    EXPECT_EQ(list->top->cell, 2);
    UTILadd_cell_to_list(list, 1, cells);
    EXPECT_EQ(list->top, top);
    EXPECT_EQ(list->free_nodes, spare);
    UTILdelete_cell_list(list);
}

TEST(CellList, GetsABlockBeforeTheLastFreeNodeGoes)
{
    cell_list *list = UTILinit_cell_list(1024);
    const std::vector<qx_long> cells(1024, 5);
    UTILadd_cell_to_list(list, 1023, cells.data());
    EXPECT_EQ(list->nblocks, 1);
    UTILadd_cell_to_list(list, 1, cells.data());
    EXPECT_EQ(list->nblocks, 2);
    EXPECT_NE(list->free_nodes, nullptr);
    UTILadd_cell_to_list(list, 1023, cells.data());
    EXPECT_EQ(list->nblocks, 2);
    UTILadd_cell_to_list(list, 1, cells.data());
    EXPECT_EQ(list->nblocks, 3);
    UTILdelete_cell_list(list);
}

TEST(CellList, CountBelowOneDoesNothing)
{
    cell_list *list = UTILinit_cell_list(1024);
    const qx_long cell = 5;
    EXPECT_EQ(UTILadd_cell_to_list(list, 0, &cell), 1);
    EXPECT_EQ(UTILadd_cell_to_list(list, -1, &cell), 1);
    EXPECT_EQ(list->top, nullptr);
    UTILdelete_cell_list(list);
}

TEST(CellList, IsAStackUnderAnySequence)
{
    host_calls::watch watch;
    std::mt19937_64 random(5);
    cell_list *list = UTILinit_cell_list(1024);
    std::vector<qx_long> expected;
    size_t deepest = 0;
    for (int i = 0; i < 40000; ++i) {
        if (random() % 8 < (i < 20000 ? 5u : 3u)) {
            qx_long cells[3];
            const int count = static_cast<int>(random() % 3) + 1;
            for (int c = 0; c < count; ++c) {
                cells[c] = static_cast<qx_long>(random() % 1000000);
                expected.push_back(cells[c]);
            }
            UTILadd_cell_to_list(list, count, cells);
        } else if (!expected.empty()) {
            ASSERT_EQ(list->top->cell, expected.back());
            UTILrm_cell_from_list(list);
            expected.pop_back();
        }
        deepest = std::max(deepest, expected.size());
    }
    EXPECT_GT(deepest, 5000u);
    // Nodes come back: no more blocks than the deepest stack needed.
    EXPECT_EQ(list->nblocks, static_cast<int>(deepest / 1024 + 1));
    while (!expected.empty()) {
        ASSERT_EQ(list->top->cell, expected.back());
        UTILrm_cell_from_list(list);
        expected.pop_back();
    }
    EXPECT_EQ(list->top, nullptr);
    UTILdelete_cell_list(list);
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST(CellList, ABlockThatCannotBeHadLeavesTheListInUse)
{
    host_calls::watch watch;
    for (int k = 0; k < 2; ++k) {
        cell_list *list = UTILinit_cell_list(1024);
        const std::vector<qx_long> cells(1023, 5);
        UTILadd_cell_to_list(list, 1023, cells.data());
        host_calls::fail_allocation(k);
        const qx_long more = 6;
        EXPECT_EQ(UTILadd_cell_to_list(list, 1, &more), 0);
        EXPECT_EQ(list->nblocks, 1);
        EXPECT_EQ(list->top->cell, 5);
        EXPECT_EQ(UTILadd_cell_to_list(list, 1, &more), 1);
        EXPECT_EQ(list->nblocks, 2);
        EXPECT_EQ(list->top->cell, 6);
        UTILdelete_cell_list(list);
        EXPECT_EQ(watch.live_blocks(), 0);
    }
}
