// The walk over cells against a plain loop: which cells a sink is given, in which order, and when the status is
// checked.
#include "cell_walk.hpp"

#include "iso_cases.hpp"
#include "isoline_cases.hpp"

#include "support/host_calls.hpp"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

namespace {

// What a sink was given, cell by cell.
struct taken_cell {
    qx_long cell;
    bool whole;
    std::vector<qx_long> corners;
    std::vector<int> numbers;
};

bool operator==(const taken_cell &a, const taken_cell &b)
{
    return a.cell == b.cell && a.whole == b.whole && a.corners == b.corners && a.numbers == b.numbers;
}

template <bool Checks, bool Whole> struct recording_sink {
    static constexpr bool checks_status = Checks, takes_whole = Whole;
    int nnodes;
    std::vector<taken_cell> taken;
    size_t stops_after = ~size_t{0};

    walk_end answer() const
    {
        return taken.size() >= stops_after ? walk_end::no_connect : walk_end::complete;
    }

    template <typename Row>
    walk_end take(qx_long cell, const qx_long *corners, const Row &row, const int *number)
    {
        taken.push_back({cell, false, {corners, corners + nnodes}, {number, number + row.npoints}});
        return answer();
    }

    walk_end take_whole(qx_long first, const qx_long *corners, qx_long ncells)
    {
        EXPECT_GT(ncells, 0);
        for (qx_long c = 0; c < ncells; ++c, corners += nnodes)
            taken.push_back({first + c, true, {corners, corners + nnodes}, {}});
        return answer();
    }
};

struct counting_sink {
    static constexpr bool checks_status = false, takes_whole = false;
    int ntaken = 0;
    walk_end take(qx_long, const qx_long *, const iso_case &, const int *)
    {
        ++ntaken;
        return walk_end::complete;
    }
    walk_end take_whole(qx_long, const qx_long *, qx_long) { return walk_end::complete; }
};

// Cells of any nodes, with extra nodes behind the corners.
struct any_cells {
    std::vector<qx_long> connect;
    std::vector<unsigned char> flags;
    cell_rows rows;

    any_cells(uint64_t seed, int ncorners, int extra, qx_long ncells, qx_long nnodes, int above_of_10,
              bool nulls, int flip, bool local)
    {
        std::mt19937_64 random(seed);
        for (qx_long c = 0; c < ncells; ++c)
            for (int k = 0; k < ncorners + extra; ++k)
                connect.push_back(
                    static_cast<qx_long>(local ? (static_cast<uint64_t>(c) * static_cast<uint64_t>(nnodes) /
                                                      static_cast<uint64_t>(ncells) +
                                                  random() % 8) %
                                                     static_cast<uint64_t>(nnodes)
                                               : random() % static_cast<uint64_t>(nnodes)));
        for (qx_long n = 0; n < nnodes; ++n) {
            const bool above = static_cast<int>(random() % 10) < above_of_10;
            flags.push_back(nulls && random() % 30 == 0 ? 2 : above ? 1 : 0);
        }
        rows = {connect.data(), ncorners + extra, flags.data(), nulls, flip, nnodes};
    }
};

template <typename Cases>
std::vector<taken_cell> expected(const cell_rows &rows, const cell_range &range, bool whole)
{
    std::vector<taken_cell> taken;
    std::map<std::pair<qx_long, qx_long>, int> numbers;
    for (qx_long c = range.first; c < range.end; ++c) {
        const qx_long *nodes = rows.connect + c * rows.nnodes;
        bool null = false;
        for (int k = 0; k < rows.nnodes; ++k)
            null = null || rows.flags[nodes[k]] == 2;
        int key = 0;
        for (int b = 0; b < Cases::ncorners; ++b)
            key |= (rows.flags[nodes[Cases::corner_of_bit[b]]] & 1) << b;
        if (whole) key ^= rows.flip;
        if (null || key == 0) continue;
        taken_cell cell = {c, key == Cases::last_case, {nodes, nodes + rows.nnodes}, {}};
        if (cell.whole) {
            if (whole) taken.push_back(cell);
            continue;
        }
        const auto &row = Cases::row(key);
        for (int p = 0; p < row.npoints; ++p) {
            const qx_long a = nodes[row.left[p]], b = nodes[row.right[p]];
            cell.numbers.push_back(
                numbers.emplace(std::minmax(a, b), static_cast<int>(numbers.size())).first->second);
        }
        taken.push_back(cell);
    }
    return taken;
}

struct table_owner {
    edge_table *table;
    explicit table_owner(qx_long size) : table(UTILedge_table_create(size)) {}
    table_owner(const table_owner &) = delete;
    table_owner &operator=(const table_owner &) = delete;
    ~table_owner() { UTILedge_table_delete(table); }
};

template <typename Cases> class CellWalk : public testing::Test {
};
using walked_cases =
    testing::Types<hex_cases, prism_cases, pyr_cases, tet_cases, quad_line_cases, tri_line_cases>;
TYPED_TEST_SUITE(CellWalk, walked_cases);

TYPED_TEST(CellWalk, CellsComeInOrderWithTheNumbersOfTheirEdges)
{
    using Cases = TypeParam;
    bool saw_mixed = false, saw_whole = false, saw_scattered = false;
    uint64_t seed = 1;
    for (qx_long ncells : {0, 1, 2, 63, 64, 65, 255, 256, 257, 258, 513, 514, 3000})
        for (int above : {2, 8, 10})
            for (bool nulls : {false, true})
                for (bool local : {false, true}) {
                    ++seed;
                    const any_cells cells(seed, Cases::ncorners, static_cast<int>(seed % 3), ncells, 2000,
                                          above, nulls, seed % 2 == 0 ? Cases::last_case : 0, local);
                    // The whole, and a part that starts and ends anywhere.
                    for (const cell_range range :
                         {cell_range{0, 0, ncells}, cell_range{0, ncells / 7, ncells - ncells / 5}}) {
                        saw_scattered = saw_scattered || (ncells > 1000 && !local &&
                                                          are_scattered(cells.connect.data(), ncells,
                                                                        cells.rows.nnodes, 2000));
                        const table_owner all(2000), some(2000);
                        recording_sink<true, true> with_whole{cells.rows.nnodes, {}};
                        recording_sink<false, false> without{cells.rows.nnodes, {}};
                        EXPECT_EQ(walk_cells<Cases>(cells.rows, range, all.table, &with_whole),
                                  walk_end::complete);
                        EXPECT_EQ(walk_cells<Cases>(cells.rows, range, some.table, &without),
                                  walk_end::complete);
                        EXPECT_TRUE(with_whole.taken == expected<Cases>(cells.rows, range, true)) << seed;
                        EXPECT_TRUE(without.taken == expected<Cases>(cells.rows, range, false)) << seed;
                        for (const taken_cell &cell : with_whole.taken)
                            (cell.whole ? saw_whole : saw_mixed) = true;
                    }
                }
    EXPECT_TRUE(saw_mixed && saw_whole && saw_scattered);
}

// Ranges one after the other with one table are the whole.
TEST(CellWalkRanges, MakeTheWholeWithOneTable)
{
    const any_cells cells(5, 8, 0, 2000, 700, 5, true, 0, true);
    const table_owner whole(700), parts(700);
    recording_sink<false, true> of_whole{8, {}}, of_parts{8, {}};
    walk_cells<hex_cases>(cells.rows, {0, 0, 2000}, whole.table, &of_whole);
    for (qx_long first : {0, 300, 301, 1500})
        walk_cells<hex_cases>(cells.rows,
                              {0, first,
                               first == 0     ? 300
                               : first == 300 ? 301
                               : first == 301 ? 1500
                                              : 2000},
                              parts.table, &of_parts);
    EXPECT_GT(of_whole.taken.size(), 1000u);
    EXPECT_TRUE(of_whole.taken == of_parts.taken);
}

TEST(CellWalkStatus, IsCheckedFromTheFirstCellOfTheRange)
{
    const any_cells cells(5, 4, 0, 5000, 700, 5, false, 0, true);
    for (qx_long first : {0, 1234})
        for (qx_long ncells : {256, 257, 513, 514, 1000}) {
            host_calls::reset();
            const table_owner table(700);
            recording_sink<true, false> sink{4, {}};
            walk_cells<tet_cases>(cells.rows, {0, first, first + ncells}, table.table, &sink);
            std::vector<int> percents;
            for (const host_calls::status &check : host_calls::seen().statuses)
                percents.push_back(check.percent);
            std::vector<int> wanted;
            const float factor = static_cast<float>(100.0 / static_cast<double>(ncells));
            for (qx_long cell = 256; cell < ncells; cell += 257)
                wanted.push_back(static_cast<int>(static_cast<float>(cell) * factor));
            EXPECT_EQ(percents, wanted) << ncells;

            for (size_t k = 0; k < wanted.size(); ++k) {
                host_calls::reset();
                host_calls::interrupt_at(static_cast<int>(k));
                const table_owner again(700);
                recording_sink<true, false> stopped{4, {}};
                EXPECT_EQ(
                    walk_cells<tet_cases>(cells.rows, {0, first, first + ncells}, again.table, &stopped),
                    walk_end::interrupted);
                const qx_long reached = first + 256 + 257 * static_cast<qx_long>(k);
                EXPECT_TRUE(stopped.taken == expected<tet_cases>(cells.rows, {0, first, reached}, false));
            }
        }
}

TEST(CellWalkEnds, WhereTheSinkSaysSo)
{
    const any_cells cells(5, 3, 0, 600, 100, 7, false, 0, false);
    recording_sink<false, true> all{3, {}};
    const table_owner table(100);
    walk_cells<tri_line_cases>(cells.rows, {0, 0, 600}, table.table, &all);
    ASSERT_GT(all.taken.size(), 500u);
    for (size_t stop : {size_t{1}, size_t{2}, size_t{3}, size_t{100}, all.taken.size()}) {
        const table_owner again(100);
        recording_sink<false, true> sink{3, {}, stop};
        EXPECT_EQ(walk_cells<tri_line_cases>(cells.rows, {0, 0, 600}, again.table, &sink),
                  walk_end::no_connect);
        EXPECT_GE(sink.taken.size(), stop);
        EXPECT_LT(sink.taken.size(), stop + 65) << "a stretch at most";
    }
}

TEST(CellWalkEnds, WhereTheTableCannotGrow)
{
    const any_cells cells(5, 8, 0, 2000, 1500, 5, false, 0, false);
    host_calls::reset();
    host_calls::watch watch;
    const table_owner table(1500);
    counting_sink counting;
    host_calls::fail_allocation(0);
    EXPECT_EQ(walk_cells<hex_cases>(cells.rows, {0, 0, 2000}, table.table, &counting), walk_end::no_edges);
    EXPECT_TRUE(host_calls::allocation_was_refused());
    EXPECT_EQ(table.table->nedges, 1022);
    EXPECT_GT(counting.ntaken, 50);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST(WholeStretches, AgreeWithABitAtATime)
{
    std::mt19937_64 random(3);
    for (int round = 0; round < 2000; ++round) {
        uint64_t bits[5];
        const int density = static_cast<int>(random() % 4);
        for (uint64_t &word : bits)
            word = density == 0   ? random() & random() & random()
                   : density == 1 ? random()
                   : density == 2 ? random() | random() | random()
                                  : ~uint64_t{0};
        const int begin = static_cast<int>(random() % 257),
                  end = begin + static_cast<int>(random() % (258 - static_cast<unsigned>(begin)));
        std::vector<int> wanted, got;
        for (int b = begin; b < end; ++b)
            if ((bits[b / 64] >> b % 64 & 1) != 0) wanted.push_back(b);
        int first, behind, last = begin - 1;
        for (int from = begin; next_stretch(bits, from, end, &first, &behind); from = behind) {
            EXPECT_GT(behind, first);
            EXPECT_GT(first, last) << "stretches are as long as they can be";
            last = behind;
            for (int b = first; b < behind; ++b)
                got.push_back(b);
        }
        ASSERT_EQ(got, wanted);
    }
}

} // namespace
