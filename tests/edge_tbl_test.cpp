#include <skoklana/containers.h>

#include "support/host_calls.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

namespace {

using node_pair = std::pair<qx_long, qx_long>;

node_pair ordered(qx_long a, qx_long b)
{
    return {std::min(a, b), std::max(a, b)};
}

// Adds one pair and gives its number.
int add(edge_table *table, qx_long a, qx_long b)
{
    int number = -7;
    EXPECT_EQ(UTILedge_table_add_points(table, &a, &b, 1, &number), 1);
    return number;
}

int add_hash(edge_table *table, qx_long max_index, qx_long a, qx_long b)
{
    int number = -7;
    EXPECT_EQ(UTILedge_table_add_hash_points(table, &a, &b, max_index, 1, &number), 1);
    return number;
}

int add_str(edge_table_str *table, qx_long base, qx_long a, qx_long b)
{
    int number = -7;
    EXPECT_EQ(UTILedge_table_add_str(table, &a, &b, base, 1, &number), 1);
    return number;
}

// The chain of a bucket, newest edge first.
std::vector<int> chain(const edge_table *table, qx_long bucket)
{
    std::vector<int> edges;
    for (int link = table->head[bucket]; link != 0; link = table->next[link])
        edges.push_back(link - 1);
    return edges;
}

// Numbers pairs in order of first sight.
struct reference_table {
    std::map<node_pair, int> numbers;
    std::vector<node_pair> pairs;

    int add(qx_long a, qx_long b)
    {
        const auto added = numbers.emplace(ordered(a, b), static_cast<int>(pairs.size()));
        if (added.second) pairs.push_back(ordered(a, b));
        return added.first->second;
    }
};

template <typename Table> void expect_lists(const Table *table, const reference_table &expected)
{
    ASSERT_EQ(table->nedges, static_cast<int>(expected.pairs.size()));
    for (int e = 0; e < table->nedges; ++e) {
        ASSERT_EQ(table->min_list[e], expected.pairs[static_cast<size_t>(e)].first) << e;
        ASSERT_EQ(table->max_list[e], expected.pairs[static_cast<size_t>(e)].second) << e;
    }
}

} // namespace

// ---- plain table -----------------------------------------------------------------------------------------

TEST(EdgeTable, NewTableIsEmptyWithRoomFor1024)
{
    edge_table *table = UTILedge_table_create(10);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->size, 10);
    EXPECT_EQ(table->max_edges, 1024);
    EXPECT_EQ(table->grow, 1024);
    EXPECT_EQ(table->nedges, 0);
    EXPECT_TRUE(std::all_of(table->head, table->head + 10, [](int head) { return head == 0; }));
    EXPECT_TRUE(std::all_of(table->next, table->next + 1024, [](int next) { return next == 0; }));
    EXPECT_EQ(UTILedge_table_delete(table), 1);
}

TEST(EdgeTable, RepeatedPairInEitherOrderGetsOneNumber)
{
    edge_table *table = UTILedge_table_create(10);
    const qx_long first[] = {5, 9}, second[] = {9, 5};
    int numbers[2] = {-1, -1};
    EXPECT_EQ(UTILedge_table_add_points(table, first, second, 2, numbers), 1);
    EXPECT_EQ(numbers[0], 0);
    EXPECT_EQ(numbers[1], 0);
    EXPECT_EQ(add(table, 9, 5), 0);
    EXPECT_EQ(table->nedges, 1);
    EXPECT_EQ(first[1], 9);
    EXPECT_EQ(second[1], 5);
    UTILedge_table_delete(table);
}

TEST(EdgeTable, NumbersFollowFirstSightAndListsHoldTheLowerNodeFirst)
{
    edge_table *table = UTILedge_table_create(10);
    EXPECT_EQ(add(table, 7, 2), 0);
    EXPECT_EQ(add(table, 2, 4), 1);
    EXPECT_EQ(add(table, 7, 4), 2);
    EXPECT_EQ(std::vector<qx_long>(table->min_list, table->min_list + 3), (std::vector<qx_long>{2, 2, 4}));
    EXPECT_EQ(std::vector<qx_long>(table->max_list, table->max_list + 3), (std::vector<qx_long>{7, 4, 7}));
    EXPECT_EQ(chain(table, 2), (std::vector<int>{1, 0}));
    EXPECT_EQ(chain(table, 4), (std::vector<int>{2}));
    EXPECT_EQ(table->head[2], 2);
    EXPECT_EQ(table->next[2], 1);
    EXPECT_EQ(table->next[1], 0);
    UTILedge_table_delete(table);
}

TEST(EdgeTable, PairOfOneNodeIsAPairLikeAnyOther)
{
    edge_table *table = UTILedge_table_create(10);
    EXPECT_EQ(add(table, 3, 3), 0);
    EXPECT_EQ(add(table, 3, 4), 1);
    EXPECT_EQ(add(table, 3, 3), 0);
    EXPECT_EQ(table->min_list[0], 3);
    EXPECT_EQ(table->max_list[0], 3);
    UTILedge_table_delete(table);
}

TEST(EdgeTable, CountBelowOneDoesNothing)
{
    edge_table *table = UTILedge_table_create(10);
    int number = -7;
    const qx_long node = 1;
    for (int count : {0, -1}) {
        EXPECT_EQ(UTILedge_table_add_points(table, &node, &node, count, &number), 1);
        EXPECT_EQ(UTILedge_table_add_hash_points(table, &node, &node, 10, count, &number), 1);
    }
    EXPECT_EQ(number, -7);
    EXPECT_EQ(table->nedges, 0);
    UTILedge_table_delete(table);
}

TEST(EdgeTable, NullTables)
{
    int number = -7;
    const qx_long node = 1;
    qx_long *lo = nullptr, *hi = nullptr, count = -7;
    EXPECT_EQ(UTILedge_table_add_points(nullptr, &node, &node, 1, &number), -1);
    EXPECT_EQ(UTILedge_table_add_hash_points(nullptr, &node, &node, 10, 1, &number), -1);
    EXPECT_EQ(UTILedge_table_add_str(nullptr, &node, &node, 0, 1, &number), -1);
    EXPECT_EQ(UTILedge_table_clean(nullptr, 1), -1);
    EXPECT_EQ(UTILedge_table_get_free(nullptr, &lo, &hi, &count), 0);
    EXPECT_EQ(UTILedge_table_free_str(nullptr, &lo, &hi, &count), 0);
    EXPECT_EQ(UTILedge_table_delete(nullptr), 1);
    EXPECT_EQ(UTILedge_table_delete_str(nullptr), 1);
    EXPECT_EQ(number, -7);
    EXPECT_EQ(count, -7);
}

TEST(EdgeTable, GrowsWithTheEdgeThatLeavesOneEntry)
{
    edge_table *table = UTILedge_table_create(4000);
    for (int e = 0; e < 1022; ++e)
        ASSERT_EQ(add(table, e, 4000), e);
    EXPECT_EQ(table->max_edges, 1024);
    EXPECT_EQ(table->grow, 1024);
    EXPECT_EQ(add(table, 5, 4000), 5) << "a repeat grows nothing";
    EXPECT_EQ(table->max_edges, 1024);

    EXPECT_EQ(add(table, 1022, 4000), 1022);
    EXPECT_EQ(table->max_edges, 2048);
    EXPECT_EQ(table->grow, 1536);
    // The part that is new is clear, but for the link of the edge just made, which has nothing behind it.
    EXPECT_TRUE(std::all_of(table->next + 1023, table->next + 2048, [](int next) { return next == 0; }));

    for (int e = 1023; e < 2046; ++e)
        ASSERT_EQ(add(table, e, 4000), e);
    EXPECT_EQ(table->max_edges, 2048);
    EXPECT_EQ(add(table, 2046, 4000), 2046);
    EXPECT_EQ(table->max_edges, 3584);
    EXPECT_EQ(table->grow, 2304);
    for (int e = 2047; e < 3583; ++e)
        ASSERT_EQ(add(table, e, 4000), e);
    EXPECT_EQ(table->max_edges, 5888);
    EXPECT_EQ(table->grow, 3456);
    UTILedge_table_delete(table);
}

TEST(EdgeTable, AgreesWithAMapThroughSeveralGrowths)
{
    for (uint64_t seed = 1; seed <= 3; ++seed) {
        std::mt19937_64 random(seed);
        const qx_long nnodes = 700;
        edge_table *table = UTILedge_table_create(nnodes);
        reference_table expected;
        int repeats = 0;
        for (int call = 0; call < 4000; ++call) {
            const int count = static_cast<int>(random() % 13);
            qx_long first[12], second[12];
            int numbers[12];
            for (int i = 0; i < count; ++i) {
                first[i] = static_cast<qx_long>(random() % static_cast<uint64_t>(nnodes));
                second[i] = std::min<qx_long>(first[i] + static_cast<qx_long>(random() % 30), nnodes - 1);
                if (random() % 2 == 0) std::swap(first[i], second[i]);
            }
            ASSERT_EQ(UTILedge_table_add_points(table, first, second, count, numbers), 1);
            for (int i = 0; i < count; ++i) {
                const size_t before = expected.pairs.size();
                ASSERT_EQ(numbers[i], expected.add(first[i], second[i]))
                    << "seed " << seed << " call " << call;
                repeats += expected.pairs.size() == before;
            }
        }
        EXPECT_GT(table->max_edges, 5000) << "too few edges for several growths";
        EXPECT_GT(repeats, 1000);
        expect_lists(table, expected);
        UTILedge_table_delete(table);
    }
}

TEST(EdgeTable, NodeListsAreHostArraysAndGrowWithTheTable)
{
    host_calls::reset();
    edge_table *table = UTILedge_table_create(4000);
    for (int e = 0; e < 2047; ++e)
        add(table, e, 4000);
    UTILedge_table_delete(table);
    edge_table_str *band = UTILedge_table_create_str(4000, 1000);
    for (int e = 0; e < 1001; ++e)
        add_str(band, 0, e, 4000);
    UTILedge_table_delete_str(band);
    UTILcell_table_delete(UTILcell_table_create(64, 10000));
    std::vector<qx_long> counts;
    for (const host_calls::array &array : host_calls::seen().arrays) {
        EXPECT_EQ(array.type, DTYPE_QX_LONG);
        counts.push_back(array.count);
    }
    EXPECT_EQ(counts, (std::vector<qx_long>{1024, 1024, 2048, 2048, 3584, 3584, 1000, 1000, 2500, 2500}));
    EXPECT_EQ(host_calls::resized_counts(), (std::vector<qx_long>{2048, 2048, 3584, 3584, 2500, 2500}));
}

TEST(EdgeTable, HandsItsListsOver)
{
    host_calls::watch watch;
    edge_table *table = UTILedge_table_create(10);
    qx_long *lo = nullptr, *hi = nullptr, count = -7;
    EXPECT_EQ(UTILedge_table_get_free(table, &lo, &hi, &count), 1);
    EXPECT_NE(lo, nullptr);
    EXPECT_NE(hi, nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(watch.live_blocks(), 2);
    free(lo);
    free(hi);

    table = UTILedge_table_create(10);
    add(table, 8, 3);
    add(table, 1, 2);
    EXPECT_EQ(UTILedge_table_get_free(table, &lo, &hi, &count), 1);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(lo[0], 3);
    EXPECT_EQ(hi[0], 8);
    EXPECT_EQ(lo[1], 1);
    EXPECT_EQ(hi[1], 2);
    free(lo);
    free(hi);
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST(EdgeTable, CreationWithoutMemoryGivesNullAndKeepsNothing)
{
    host_calls::watch watch;
    UTILedge_table_delete(UTILedge_table_create(10));
    const int plain = watch.allocations();
    UTILedge_table_delete_str(UTILedge_table_create_str(10, 1000));
    const int banded = watch.allocations() - plain;
    UTILcell_table_delete(UTILcell_table_create(10, 20));
    const int cells = watch.allocations() - plain - banded;
    UTILdelete_cell_list(UTILinit_cell_list(1024));
    const int list = watch.allocations() - plain - banded - cells;
    ASSERT_EQ(watch.live_blocks(), 0);
    ASSERT_GT(std::min({plain, banded, cells, list}), 2);

    for (int k = 0; k < plain; ++k) {
        host_calls::fail_allocation(k);
        EXPECT_EQ(UTILedge_table_create(10), nullptr) << k;
        EXPECT_EQ(watch.live_blocks(), 0) << k;
    }
    for (int k = 0; k < banded; ++k) {
        host_calls::fail_allocation(k);
        EXPECT_EQ(UTILedge_table_create_str(10, 1000), nullptr) << k;
        EXPECT_EQ(watch.live_blocks(), 0) << k;
    }
    for (int k = 0; k < cells; ++k) {
        host_calls::fail_allocation(k);
        EXPECT_EQ(UTILcell_table_create(10, 20), nullptr) << k;
        EXPECT_EQ(watch.live_blocks(), 0) << k;
    }
    for (int k = 0; k < list; ++k) {
        host_calls::fail_allocation(k);
        EXPECT_EQ(UTILinit_cell_list(1024), nullptr) << k;
        EXPECT_EQ(watch.live_blocks(), 0) << k;
    }
}

TEST(EdgeTable, AGrowthWithoutMemoryLeavesTheTableAsItWas)
{
    host_calls::watch watch;
    for (int k = 0; k < 3; ++k) {
        edge_table *table = UTILedge_table_create(4000);
        for (int e = 0; e < 1022; ++e)
            add(table, e, 4000);
        host_calls::fail_allocation(k);
        const qx_long first[] = {7, 2000, 8}, second[] = {4000, 2001, 4000};
        int numbers[] = {-7, -7, -7};
        EXPECT_EQ(UTILedge_table_add_points(table, first, second, 3, numbers), 0);
        EXPECT_TRUE(host_calls::allocation_was_refused());
        EXPECT_EQ(numbers[0], 7);
        EXPECT_EQ(numbers[2], -7);
        EXPECT_EQ(table->nedges, 1022);
        EXPECT_EQ(table->max_edges, 1024);
        EXPECT_EQ(table->grow, 1024);
        // The next one grows it.
        EXPECT_EQ(add(table, 2000, 2001), 1022);
        EXPECT_EQ(table->max_edges, 2048);
        EXPECT_EQ(chain(table, 2000), (std::vector<int>{1022}));
        for (int e = 0; e < 1022; ++e)
            ASSERT_EQ(add(table, 4000, e), e);
        UTILedge_table_delete(table);
        EXPECT_EQ(watch.live_blocks(), 0);
    }
}

// ---- hashed use ------------------------------------------------------------------------------------------

TEST(EdgeHash, FewerBucketsThanNodesMakeOneChain)
{
    edge_table *table = UTILedge_table_create(1000);
    EXPECT_EQ(add_hash(table, 2000, 5, 9), 0);
    EXPECT_EQ(add_hash(table, 2000, 1999, 9), 1) << "the same upper node would match by itself";
    EXPECT_EQ(add_hash(table, 2000, 3, 9), 2);
    EXPECT_EQ(add_hash(table, 2000, 9, 5), 0);
    EXPECT_EQ(add_hash(table, 2000, 9, 1999), 1);
    EXPECT_EQ(chain(table, 0), (std::vector<int>{2, 1, 0}));
    for (qx_long bucket = 1; bucket < 1000; ++bucket)
        ASSERT_EQ(table->head[bucket], 0);
    UTILedge_table_delete(table);
}

TEST(EdgeHash, AsManyBucketsAsNodesGiveABucketANode)
{
    edge_table *table = UTILedge_table_create(50);
    EXPECT_EQ(add_hash(table, 50, 9, 7), 0);
    EXPECT_EQ(add_hash(table, 50, 49, 48), 1);
    EXPECT_EQ(add_hash(table, 50, 9, 7), 0);
    EXPECT_EQ(chain(table, 7), (std::vector<int>{0}));
    EXPECT_EQ(chain(table, 48), (std::vector<int>{1}));
    UTILedge_table_delete(table);
}

TEST(EdgeHash, NodesThatAFloatRoundsBeyondTheBucketsStayInside)
{
    // As a float this node is the number behind the spare bucket.
    const qx_long size = (1 << 25) + 7, node = size - 1;
    ASSERT_EQ(static_cast<float>(node), static_cast<float>(size + 1));
    edge_table *table = UTILedge_table_create(size);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(add_hash(table, size, node, node), 0);
    EXPECT_EQ(add_hash(table, size, node, size), 1);
    EXPECT_EQ(add_hash(table, size, node, node), 0);
    EXPECT_EQ(chain(table, size), (std::vector<int>{1, 0}));
    UTILedge_table_delete(table);
}

TEST(EdgeHash, AgreesWithAMapForEveryQuotient)
{
    for (qx_long size : {100, 399, 400, 1000, 1200}) {
        const qx_long max_index = 400;
        std::mt19937_64 random(static_cast<uint64_t>(size));
        edge_table *table = UTILedge_table_create(size);
        reference_table expected;
        for (int i = 0; i < 6000; ++i) {
            const qx_long a = static_cast<qx_long>(random() % 400), b = static_cast<qx_long>(random() % 400);
            ASSERT_EQ(add_hash(table, max_index, a, b), expected.add(a, b)) << size;
            ASSERT_LE(a * (size / max_index), size);
        }
        EXPECT_GT(table->max_edges, 5000);
        expect_lists(table, expected);
        // Buckets are those of the integer quotient.
        int chained = 0;
        for (qx_long node = 0; node < max_index; ++node) {
            const qx_long bucket = node * (size / max_index);
            if (size < max_index && node > 0) break;
            for (int e : chain(table, bucket)) {
                ++chained;
                ASSERT_EQ(table->min_list[e] * (size / max_index), bucket);
            }
        }
        EXPECT_EQ(chained, table->nedges);
        UTILedge_table_delete(table);
    }
}

// ---- banded table ----------------------------------------------------------------------------------------

TEST(EdgeBand, NewTableTakesTheGivenCapacity)
{
    edge_table_str *table = UTILedge_table_create_str(8, 1000);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->size, 8);
    EXPECT_EQ(table->max_edges, 1000);
    EXPECT_EQ(table->max_links, 1000);
    EXPECT_EQ(table->grow, 1000);
    EXPECT_EQ(table->nedges, 0);
    EXPECT_EQ(table->nlinks, 1);
    EXPECT_TRUE(std::all_of(table->head, table->head + 8, [](int head) { return head == 0; }));
    EXPECT_TRUE(std::all_of(table->next, table->next + 1000, [](int next) { return next == 0; }));
    EXPECT_EQ(UTILedge_table_delete_str(table), 1);
}

TEST(EdgeBand, FindsAPairWithinItsBucket)
{
    edge_table_str *table = UTILedge_table_create_str(8, 1000);
    EXPECT_EQ(add_str(table, 100, 103, 107), 0);
    EXPECT_EQ(add_str(table, 100, 104, 103), 1);
    EXPECT_EQ(add_str(table, 100, 107, 103), 0);
    EXPECT_EQ(add_str(table, 100, 103, 104), 1);
    EXPECT_EQ(table->nlinks, table->nedges + 1);
    EXPECT_EQ(table->head[3], 2);
    EXPECT_EQ(table->next[2], 1);
    EXPECT_EQ(table->next[1], 0);
    EXPECT_EQ(table->link_edge[0], 0);
    EXPECT_EQ(table->link_edge[1], 1);
    UTILedge_table_delete_str(table);
}

TEST(EdgeBand, LinksGrowBeforeEdgesAndBothRaiseTheStep)
{
    edge_table_str *table = UTILedge_table_create_str(4000, 1000);
    for (int e = 0; e < 998; ++e)
        ASSERT_EQ(add_str(table, 0, e, 4000), e);
    EXPECT_EQ(table->max_links, 1000);
    EXPECT_EQ(table->grow, 1000);
    EXPECT_EQ(add_str(table, 0, 998, 4000), 998);
    EXPECT_EQ(table->max_links, 2000);
    EXPECT_EQ(table->max_edges, 1000);
    EXPECT_EQ(table->grow, 1500);
    EXPECT_EQ(add_str(table, 0, 999, 4000), 999);
    EXPECT_EQ(table->max_edges, 1000);
    EXPECT_EQ(add_str(table, 0, 1000, 4000), 1000);
    EXPECT_EQ(table->max_edges, 2500);
    EXPECT_EQ(table->max_links, 2000);
    EXPECT_EQ(table->grow, 2250);
    for (int e = 1001; e < 1999; ++e)
        ASSERT_EQ(add_str(table, 0, e, 4000), e);
    EXPECT_EQ(table->max_links, 4250);
    EXPECT_EQ(table->grow, 3375);
    UTILedge_table_delete_str(table);
}

TEST(EdgeBand, BothGrowthsAtOnceRaiseTheStepOnce)
{
    edge_table_str *table = UTILedge_table_create_str(100, 1);
    EXPECT_EQ(add_str(table, 0, 1, 2), 0);
    EXPECT_EQ(table->max_links, 2);
    EXPECT_EQ(table->max_edges, 1);
    EXPECT_EQ(add_str(table, 0, 2, 3), 1); // links to 3, edges to 2
    EXPECT_EQ(table->max_links, 3);
    EXPECT_EQ(table->max_edges, 2);
    EXPECT_EQ(table->grow, 1);
    UTILedge_table_delete_str(table);

    table = UTILedge_table_create_str(100, 2);
    EXPECT_EQ(add_str(table, 0, 1, 2), 0); // links to 4, step 3
    EXPECT_EQ(add_str(table, 0, 2, 3), 1);
    EXPECT_EQ(table->max_links, 4);
    EXPECT_EQ(table->max_edges, 2);
    EXPECT_EQ(table->grow, 3);
    EXPECT_EQ(add_str(table, 0, 3, 4), 2); // links to 7, edges to 5, step 4
    EXPECT_EQ(table->max_links, 7);
    EXPECT_EQ(table->max_edges, 5);
    EXPECT_EQ(table->grow, 4);
    UTILedge_table_delete_str(table);
}

TEST(EdgeBand, CleaningMovesTheUpperHalfDownAndLeavesItInPlace)
{
    edge_table_str *table = UTILedge_table_create_str(8, 1000);
    add_str(table, 0, 0, 1); // link 1
    add_str(table, 0, 0, 4); // link 2, behind it 1
    add_str(table, 0, 5, 6); // link 3
    add_str(table, 0, 5, 9); // link 4, behind it 3
    add_str(table, 0, 7, 9); // link 5
    const std::vector<int> before(table->head, table->head + 8);
    EXPECT_EQ(before, (std::vector<int>{2, 0, 0, 0, 0, 4, 0, 5}));
    EXPECT_EQ(table->next[2], 1);
    EXPECT_EQ(UTILedge_table_clean(table, 4), 1);
    EXPECT_EQ(std::vector<int>(table->head, table->head + 8), (std::vector<int>{0, 4, 0, 5, 0, 4, 0, 5}));
    EXPECT_EQ(table->next[2], 0) << "links left behind are unchained";
    EXPECT_EQ(table->next[4], 3);

    // Edges of the plane in common are found again, those left behind are not; the lists keep all.
    EXPECT_EQ(add_str(table, 4, 9, 5), 3);
    EXPECT_EQ(add_str(table, 4, 6, 5), 2);
    EXPECT_EQ(table->nedges, 5);
    // The stale upper half chains on: bucket 5 now stands for node 9.
    EXPECT_EQ(add_str(table, 4, 9, 10), 5);
    EXPECT_EQ(table->next[6], 4);
    UTILedge_table_delete_str(table);
}

TEST(EdgeBand, CleaningByAllBucketsForgetsAll)
{
    edge_table_str *table = UTILedge_table_create_str(4, 1000);
    add_str(table, 0, 0, 1);
    add_str(table, 0, 3, 4);
    EXPECT_EQ(UTILedge_table_clean(table, 4), 1);
    EXPECT_EQ(std::vector<int>(table->head, table->head + 4), (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(UTILedge_table_clean(table, 0), 1);
    EXPECT_EQ(add_str(table, 0, 0, 1), 2) << "a pair left behind is new";
    UTILedge_table_delete_str(table);
}

TEST(EdgeBand, AgreesWithAMapWhileItMovesOverALattice)
{
    const qx_long nx = 7, ny = 5, nz = 60, plane = nx * ny;
    std::mt19937_64 random(11);
    edge_table_str *table = UTILedge_table_create_str(2 * plane, 40);
    reference_table expected;
    int found_again = 0;
    for (qx_long k = 0; k + 1 < nz; ++k) {
        const qx_long base = k * plane;
        const size_t before_slab = expected.pairs.size();
        for (int i = 0; i < 400; ++i) {
            // An axis-aligned edge of the slab between the planes k and k + 1.
            const qx_long x = static_cast<qx_long>(random() % static_cast<uint64_t>(nx));
            const qx_long y = static_cast<qx_long>(random() % static_cast<uint64_t>(ny));
            const qx_long z = static_cast<qx_long>(random() % 2);
            const int axis = static_cast<int>(random() % 3);
            if ((axis == 0 && x == nx - 1) || (axis == 1 && y == ny - 1) || (axis == 2 && z == 1)) continue;
            const qx_long a = base + x + nx * y + plane * z, b = a + (axis == 0 ? 1 : axis == 1 ? nx : plane);
            const int number = random() % 2 == 0 ? add_str(table, base, a, b) : add_str(table, base, b, a);
            ASSERT_EQ(number, expected.add(a, b)) << "slab " << k;
            found_again += number < static_cast<int>(before_slab);
        }
        ASSERT_EQ(UTILedge_table_clean(table, plane), 1);
    }
    EXPECT_GT(found_again, 1000);
    EXPECT_GT(expected.pairs.size(), 4000u);
    expect_lists(table, expected);
    EXPECT_EQ(table->nlinks, table->nedges + 1);
    UTILedge_table_delete_str(table);
}

TEST(EdgeBand, CountBelowOneDoesNothing)
{
    edge_table_str *table = UTILedge_table_create_str(10, 1000);
    int number = -7;
    const qx_long node = 1;
    for (int count : {0, -1})
        EXPECT_EQ(UTILedge_table_add_str(table, &node, &node, 0, count, &number), 1);
    EXPECT_EQ(number, -7);
    EXPECT_EQ(table->nedges, 0);
    EXPECT_EQ(table->nlinks, 1);
    UTILedge_table_delete_str(table);
}

TEST(EdgeBand, HandsItsListsOver)
{
    host_calls::watch watch;
    edge_table_str *table = UTILedge_table_create_str(10, 1000);
    add_str(table, 0, 8, 3);
    qx_long *lo = nullptr, *hi = nullptr, count = -7;
    EXPECT_EQ(UTILedge_table_free_str(table, &lo, &hi, &count), 1);
    ASSERT_EQ(count, 1);
    EXPECT_EQ(lo[0], 3);
    EXPECT_EQ(hi[0], 8);
    EXPECT_EQ(watch.live_blocks(), 2);
    free(lo);
    free(hi);
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST(EdgeBand, AFailedGrowthGivesZeroAndTheTableCanBeReleased)
{
    host_calls::watch watch;
    int failures = 0;
    for (int k = 0; k < 4; ++k) {
        edge_table_str *table = UTILedge_table_create_str(10, 2);
        add_str(table, 0, 1, 2);
        add_str(table, 0, 2, 3);
        host_calls::fail_allocation(k); // the next edge grows all four lists
        const qx_long first = 3, second = 4;
        int number = -7;
        failures += UTILedge_table_add_str(table, &first, &second, 0, 1, &number) == 0;
        EXPECT_TRUE(host_calls::allocation_was_refused()) << k;
        EXPECT_EQ(UTILedge_table_delete_str(table), 1);
        EXPECT_EQ(watch.live_blocks(), 0) << k;
    }
    EXPECT_EQ(failures, 4);
}
