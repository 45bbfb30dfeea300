#include <skoklana/iso.h>

#include "support/host_calls.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using numbers = std::vector<qx_long>;

// What both operations make of a list, step by step: the lines over nodes, the same over places, and each
// node's place.
struct joined {
    numbers chains, polylines, place;
    bool chain_of_three = false, closed = false, open = false, crowded = false, doubled = false;
    qx_long nchains = 0;
};

joined join(const numbers &lines, qx_long nnodes)
{
    constexpr qx_long none = -1;
    joined out;
    out.place.assign(static_cast<size_t>(nnodes), -7);
    std::vector<std::pair<qx_long, qx_long>> neighbours(static_cast<size_t>(nnodes), {none, none});
    const auto meet = [&](qx_long node, qx_long other) {
        auto &of = neighbours[static_cast<size_t>(node)];
        out.crowded |= of.second != none;
        out.doubled |= of.first == other;
        (of.first == none ? of.first : of.second) = other;
    };
    for (size_t line = 0; line < lines.size(); line += 2) {
        meet(lines[line + 1], lines[line]);
        meet(lines[line], lines[line + 1]);
    }

    std::vector<int> flag(static_cast<size_t>(nnodes), 0);
    const auto walk = [&](qx_long from, int mark) {
        numbers seen;
        for (qx_long node = from; node != none;) {
            flag[static_cast<size_t>(node)] = mark;
            seen.push_back(node);
            const auto of = neighbours[static_cast<size_t>(node)];
            const auto is_free = [&](qx_long n) { return n != none && flag[static_cast<size_t>(n)] == 0; };
            node = is_free(of.first) ? of.first : is_free(of.second) ? of.second : none;
        }
        return seen;
    };
    qx_long placed = 0;
    for (qx_long start = 0; start < nnodes; ++start) {
        if (flag[static_cast<size_t>(start)] != 0) continue;
        if (neighbours[static_cast<size_t>(start)].first == none) continue; // on no line
        const numbers way = walk(start, 2);
        for (qx_long node : way)
            flag[static_cast<size_t>(node)] = 0;
        const numbers chain = walk(way.back(), 1);
        const qx_long length = static_cast<qx_long>(chain.size());
        const auto add = [&](qx_long from, qx_long to) {
            out.chains.insert(out.chains.end(),
                              {chain[static_cast<size_t>(from)], chain[static_cast<size_t>(to)]});
            out.polylines.insert(out.polylines.end(), {placed + from, placed + to});
        };
        for (qx_long at = 0; at < length; ++at) {
            out.place[static_cast<size_t>(chain[static_cast<size_t>(at)])] = placed + at;
            if (at > 0) add(at - 1, at);
        }
        const auto ends = neighbours[static_cast<size_t>(chain.back())];
        const bool meets = ends.first == chain.front() || ends.second == chain.front();
        if (length > 2 && meets) add(length - 1, 0);
        out.closed |= length > 2 && meets;
        out.open |= length > 2 && !meets;
        out.chain_of_three |= length == 3 && meets;
        placed += length;
        ++out.nchains;
    }
    return out;
}

// What stands in the list beyond the lines of the result is of no interest.
bool begins_with(const numbers &list, const numbers &beginning)
{
    return list.size() >= beginning.size() && std::equal(beginning.begin(), beginning.end(), list.begin());
}

numbers chains_of(numbers lines, qx_long nnodes)
{
    EXPECT_EQ(UTILlines_to_chains(lines.data(), static_cast<qx_long>(lines.size()), nnodes), 1);
    return lines;
}

struct polylines {
    numbers lines, renumber;
};

polylines polylines_of(numbers lines, qx_long nnodes)
{
    numbers renumber(static_cast<size_t>(nnodes), -7);
    EXPECT_EQ(UTILlines_to_polyl(lines.data(), static_cast<qx_long>(lines.size()), nnodes, renumber.data()),
              1);
    return {lines, renumber};
}

TEST(Chains, ClosedSquareEndsWithItsClosingLine)
{
    const numbers lines = chains_of({0, 1, 2, 3, 1, 2, 3, 0}, 4);
    // From node 0 along its first neighbour 1 to the far end 3, and from there back.
    EXPECT_EQ(lines, (numbers{3, 2, 2, 1, 1, 0, 0, 3}));
}

TEST(Chains, OpenPathRunsFromTheFarEndOfItsLowestNode)
{
    EXPECT_EQ(chains_of({1, 2, 0, 1, 2, 3}, 4), (numbers{3, 2, 2, 1, 1, 0}));
    // The lowest node stands in the middle: the end that its first line leads to.
    EXPECT_EQ(chains_of({4, 0, 0, 2, 2, 3, 5, 4}, 6), (numbers{5, 4, 4, 0, 0, 2, 2, 3}));
    EXPECT_EQ(chains_of({0, 2, 4, 0, 2, 3, 5, 4}, 6), (numbers{3, 2, 2, 0, 0, 4, 4, 5}));
}

TEST(Chains, ThreeNodesInARingClose)
{
    EXPECT_EQ(chains_of({0, 1, 1, 2, 2, 0}, 3), (numbers{2, 1, 1, 0, 0, 2}));
}

TEST(Chains, TwoLinesBetweenTwoNodesAreOneLine)
{
    const numbers lines = chains_of({0, 1, 1, 0}, 2);
    EXPECT_TRUE(begins_with(lines, {1, 0}));
    EXPECT_EQ(lines[2], 1); // behind the one line the list is as it was
    EXPECT_EQ(lines[3], 0);
}

TEST(Chains, OneLineIsLeftAlone)
{
    host_calls::reset();
    host_calls::watch watch;
    for (size_t n : {0, 1, 2}) {
        numbers lines = {7, 3};
        numbers renumber(8, -7);
        EXPECT_EQ(UTILlines_to_chains(lines.data(), static_cast<qx_long>(n), 8), 1);
        EXPECT_EQ(UTILlines_to_polyl(lines.data(), static_cast<qx_long>(n), 8, renumber.data()), 1);
        EXPECT_EQ(lines, (numbers{7, 3}));
        EXPECT_EQ(renumber, numbers(8, -7));
    }
}

TEST(Chains, IsolatedNodesGiveNoLines)
{
    const numbers lines = chains_of({7, 4, 4, 9}, 20);
    EXPECT_EQ(lines, (numbers{7, 4, 4, 9}));
}

TEST(Chains, CrowdedNodeKeepsItsFirstAndItsLastLine)
{
    // Node 0 meets 1, 2 and 3: the line to 2 is forgotten at 0, and no chain takes it up at 2.
    EXPECT_TRUE(begins_with(chains_of({0, 1, 0, 2, 0, 3}, 4), {1, 0, 0, 3}));
}

TEST(Chains, LineFromANodeToItselfGivesNone)
{
    EXPECT_TRUE(begins_with(chains_of({2, 2, 0, 1}, 3), {1, 0}));
    const polylines of = polylines_of({2, 2, 0, 1}, 3);
    EXPECT_TRUE(begins_with(of.lines, {0, 1}));
    EXPECT_EQ(of.renumber, (numbers{1, 0, 2}));
}

TEST(Polylines, NodesOnLinesAreNumberedAlongThem)
{
    const polylines of = polylines_of({7, 4, 4, 9, 2, 3}, 10);
    EXPECT_EQ(of.lines, (numbers{0, 1, 2, 3, 3, 4}));
    EXPECT_EQ(of.renumber, (numbers{-7, -7, 1, 0, 3, -7, -7, 2, -7, 4}));
}

TEST(Polylines, RingClosesWithItsFirstPlace)
{
    const polylines of = polylines_of({5, 6, 0, 1, 1, 2, 2, 3, 3, 0}, 7);
    EXPECT_EQ(of.lines, (numbers{0, 1, 1, 2, 2, 3, 3, 0, 4, 5}));
    EXPECT_EQ(of.renumber, (numbers{3, 2, 1, 0, -7, 5, 4}));
}

// Random lines of every density: from loose ends to nodes where many lines meet.
TEST(Chains, RandomListsAgreeWithTheReference)
{
    std::mt19937 random(5);
    int three = 0, closed = 0, open = 0, crowded = 0, doubled = 0, nmany = 0;
    for (int pass = 0; pass < 20000; ++pass) {
        SCOPED_TRACE(pass);
        const qx_long nnodes = 1 + static_cast<qx_long>(random() % 12);
        const size_t nlines = 2 + random() % 10;
        numbers lines(2 * nlines);
        for (qx_long &node : lines)
            node = static_cast<qx_long>(random() % static_cast<unsigned>(nnodes));
        const joined expected = join(lines, nnodes);
        ASSERT_LE(expected.chains.size(), lines.size());
        ASSERT_TRUE(begins_with(chains_of(lines, nnodes), expected.chains));
        const polylines of = polylines_of(lines, nnodes);
        ASSERT_TRUE(begins_with(of.lines, expected.polylines));
        ASSERT_EQ(of.renumber, expected.place);
        three += expected.chain_of_three;
        closed += expected.closed;
        open += expected.open;
        crowded += expected.crowded;
        doubled += expected.doubled;
        nmany += expected.nchains > 1;
    }
    for (int reached : {three, closed, open, crowded, doubled, nmany})
        EXPECT_GT(reached, 500);
}

// Where no node has more than two lines, the result has the same lines, joined end to end.
TEST(Chains, PathsAndRingsKeepAllTheirLines)
{
    std::mt19937 random(6);
    for (int pass = 0; pass < 300; ++pass) {
        SCOPED_TRACE(pass);
        numbers names(200);
        for (size_t n = 0; n < names.size(); ++n)
            names[n] = static_cast<qx_long>(n);
        std::shuffle(names.begin(), names.end(), random);
        std::vector<std::pair<qx_long, qx_long>> lines;
        size_t nstretches = 0;
        for (size_t next = 0; next + 3 < 180; ++nstretches) {
            const size_t length = std::min<size_t>(3 + random() % 40, 180 - next);
            for (size_t n = 1; n < length; ++n)
                lines.push_back({names[next + n - 1], names[next + n]});
            if (random() % 2 != 0) lines.push_back({names[next + length - 1], names[next]});
            next += length;
        }
        std::shuffle(lines.begin(), lines.end(), random);
        numbers list;
        std::multiset<std::pair<qx_long, qx_long>> before, after, placed;
        for (auto &line : lines) {
            if (random() % 2 != 0) std::swap(line.first, line.second);
            list.insert(list.end(), {line.first, line.second});
            before.insert(std::minmax(line.first, line.second));
        }
        const numbers chains = chains_of(list, 200);
        const polylines of = polylines_of(list, 200);
        std::map<qx_long, qx_long> node_at;
        for (size_t node = 0; node < 200; ++node)
            if (of.renumber[node] != -7) node_at[of.renumber[node]] = static_cast<qx_long>(node);
        size_t nbreaks = 0;
        for (size_t entry = 0; entry < chains.size(); entry += 2) {
            after.insert(std::minmax(chains[entry], chains[entry + 1]));
            const qx_long from = of.lines[entry], to = of.lines[entry + 1];
            ASSERT_TRUE(node_at.count(from) == 1 && node_at.count(to) == 1);
            placed.insert(std::minmax(node_at[from], node_at[to]));
            EXPECT_TRUE(to == from + 1 || to < from - 1);
            nbreaks += entry > 0 && chains[entry] != chains[entry - 1];
        }
        ASSERT_EQ(after, before);
        ASSERT_EQ(placed, before);
        ASSERT_EQ(nbreaks + 1, nstretches);
        EXPECT_EQ(static_cast<qx_long>(node_at.size()), node_at.rbegin()->first + 1);
    }
}

TEST(Chains, LongPathNeedsNoMoreThanItsNodes)
{
    constexpr qx_long n = 100000;
    numbers lines;
    for (qx_long node = n - 1; node > 0; --node)
        lines.insert(lines.end(), {node - 1, node});
    const numbers chain = chains_of(lines, n);
    for (qx_long line = 0; line < n - 1; ++line) {
        ASSERT_EQ(chain[static_cast<size_t>(2 * line)], n - 1 - line);
        ASSERT_EQ(chain[static_cast<size_t>(2 * line + 1)], n - 2 - line);
    }
}

TEST(Chains, RefusedMemoryIsReportedAndLeavesTheLines)
{
    const numbers lines = {0, 1, 2, 3, 1, 2, 3, 0};
    const std::pair<std::function<int(numbers &, numbers &)>, std::string> operations[] = {
        {[](numbers &list, numbers &) { return UTILlines_to_chains(list.data(), 8, 4); },
         "UTILline_connect: alloc of working arrays failed"},
        {[](numbers &list, numbers &renumber) {
             return UTILlines_to_polyl(list.data(), 8, 4, renumber.data());
         },
         "UTILlines_to_poly: alloc of working arrays failed"}};
    for (const auto &operation : operations) {
        host_calls::reset();
        int nallocations = 0;
        {
            numbers list = lines, renumber(4, -7);
            host_calls::watch watch;
            ASSERT_EQ(operation.first(list, renumber), 1);
            nallocations = watch.allocations();
            EXPECT_EQ(watch.live_blocks(), 0);
        }
        ASSERT_GE(nallocations, 1);
        for (int k = 0; k < nallocations; ++k) {
            host_calls::reset();
            numbers list = lines, renumber(4, -7);
            host_calls::watch watch;
            host_calls::fail_allocation(k);
            EXPECT_EQ(operation.first(list, renumber), 0);
            EXPECT_TRUE(host_calls::allocation_was_refused());
            EXPECT_EQ(watch.live_blocks(), 0);
            EXPECT_EQ(list, lines);
            EXPECT_EQ(renumber, numbers(4, -7));
            EXPECT_EQ(host_calls::report_texts(), std::vector<std::string>{operation.second});
        }
        host_calls::reset();
    }
}

} // namespace
