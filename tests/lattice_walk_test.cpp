#include "lattice_parts.hpp"

#include "support/host_calls.hpp"
#include "support/lattice_reference.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

namespace {

using lattice_reference::cell;
using lattice_reference::numbers;

constexpr int last_index(int naxes)
{
    return (1 << (1 << naxes)) - 1;
}

// Edges by their ends' places, in the order of their numbers.
template <int naxes> struct ends_of_edges {
    unsigned low[edges_of_cell<naxes>] = {}, high[edges_of_cell<naxes>] = {};

    constexpr ends_of_edges()
    {
        for (unsigned a = 0; a < 1u << naxes; ++a)
            for (int axis = 0; axis < naxes; ++axis)
                if ((a >> axis & 1) == 0) {
                    const int e = edge_between<naxes>(a, a | 1u << axis);
                    low[e] = a;
                    high[e] = a | 1u << axis;
                }
    }
};
template <int naxes> constexpr ends_of_edges<naxes> ends;

// All crossed edges of a case, from the last one down.
template <int naxes> struct falling_orders {
    edge_order<naxes> row[last_index(naxes) + 1] = {};

    constexpr falling_orders()
    {
        for (int index = 0; index <= last_index(naxes); ++index) {
            for (int e = edges_of_cell<naxes> - 1; e >= 0; --e) {
                const int at_low = index >> walk_bit<naxes>(ends<naxes>.low[e]) & 1;
                const int at_high = index >> walk_bit<naxes>(ends<naxes>.high[e]) & 1;
                if (at_low != at_high) row[index].append(e);
            }
            row[index].rank_own();
        }
    }
};
template <int naxes> constexpr falling_orders<naxes> falling;

// What a walk hands out: each crossed cell with its cases and the numbers of its edges, the whole cells, and the
// calls around them.
struct walked {
    struct crossed {
        qx_long cell;
        int lower, upper;
        numbers edges;
    };
    std::vector<crossed> cells;
    numbers whole;
    std::vector<std::string> calls;
};

bool operator==(const walked::crossed &a, const walked::crossed &b)
{
    return a.cell == b.cell && a.lower == b.lower && a.upper == b.upper && a.edges == b.edges;
}

template <int ntests> struct cell_tally {
    int ncells = 0, nnodes = 0; // nodes: room for them
    void add(const lattice_cell<ntests> &) { ++ncells, nnodes += 2 * edges_of_cell<3>; }
};

template <int naxes, int ntests, class List = batch_list>
struct recording_sink : lattice_sink<naxes, ntests, List> {
    using cell_type = lattice_cell<ntests>;
    using tally = cell_tally<ntests>;
    static constexpr bool wants_whole = true;
    walked *out;
    int ncells_ahead = 0, nwhole_ahead = 0; // promised by make_room
    std::string stop_at;

    explicit recording_sink(walked *out_) : out(out_) {}

    static const edge_order<naxes> &order(unsigned index) { return falling<naxes>.row[index]; }

    lattice_end enter_plane(qx_long k) { return called("plane " + std::to_string(k)); }
    lattice_end leave_slab(qx_long k) { return called("slab " + std::to_string(k)); }
    lattice_end called(const std::string &what)
    {
        out->calls.push_back(what);
        return what == stop_at ? lattice_end::no_map_memory : lattice_end::done;
    }

    lattice_end make_room(const tally &adds, int nwhole, double done)
    {
        EXPECT_EQ(ncells_ahead, 0);
        EXPECT_EQ(nwhole_ahead, 0);
        EXPECT_TRUE(done > 0 && done <= 1);
        ncells_ahead = adds.ncells;
        nwhole_ahead = nwhole;
        return lattice_end::done;
    }

    struct writer {
        recording_sink *sink;
        qx_long first_cell;
        int ntaken;

        void take(const cell_type &cell, const piece_edges<naxes, ntests> &edges, node_writer *nodes)
        {
            walked::crossed made = {first_cell + cell.i, cell.index[0], cell.index[ntests - 1], {}};
            for (int level = 0; level < ntests; ++level) {
                const edge_order<naxes> &crossed = order(cell.index[level]);
                if (ntests == 2) number_edges(edges, level, cell.i, crossed, cell.fresh, nodes);
                for (int e = 0; e < crossed.nedges; ++e)
                    made.edges.push_back(edges.slot[level][crossed.edges[e]][cell.i]);
            }
            sink->out->cells.push_back(made);
            ++ntaken;
        }
    };

    writer begin(const piece_place &place) { return {this, place.cell, 0}; }

    void end(const writer &used, const tally &added)
    {
        EXPECT_EQ(used.ntaken, added.ncells);
        ncells_ahead -= used.ntaken;
    }

    void take_whole(const piece_place &place, const bit_word *words, int nwords)
    {
        for (int i = 0; i < nwords * word_bits; ++i)
            if (bit_at(words, i) != 0) {
                out->whole.push_back(place.cell + i);
                --nwhole_ahead;
            }
    }
};

// Data and how it is looked at; the upper level counts with two tests.
struct looked_at {
    numbers dims;
    std::vector<int> data;
    const int *null;
    int lower, upper;
};

template <int ntests, typename Body> auto with_flags(const looked_at &in, Body body)
{
    const qx_long nnodes = static_cast<qx_long>(in.data.size());
    const equal_to<int> null = {in.null != nullptr ? *in.null : 0};
    if constexpr (ntests == 1)
        return with_tested_flags(in.data.data(), nnodes, in.null != nullptr, null, body,
                                 at_least<int>{in.lower});
    else
        return with_tested_flags(in.data.data(), nnodes, in.null != nullptr, null, body,
                                 at_least<int>{in.lower}, greater_than<int>{in.upper});
}

// One walk over a range and what it leaves.
template <int naxes, int ntests> struct ranged_walk {
    walked out;
    edge_slots<naxes, ntests> slots;
    edge_nodes nodes;
    lattice_end end;

    ranged_walk(const looked_at &in, plane_range range, lattice_checks checks = lattice_checks::never,
                const std::string &stop_at = "")
    {
        recording_sink<naxes, ntests> sink(&out);
        sink.stop_at = stop_at;
        EXPECT_TRUE(open_nodes(&nodes, 16));
        end = with_flags<ntests>(in, [&](const flag_source &flags) {
            return walk_range(in.dims.data(), flags, range, checks, &slots, &nodes, &sink);
        });
        EXPECT_EQ(nodes.min_node.used, nodes.max_node.used);
    }
    ranged_walk(const ranged_walk &) = delete;
    ranged_walk &operator=(const ranged_walk &) = delete;
    ~ranged_walk() { release_nodes(&nodes); }

    numbers min_node() const { return {nodes.min_node.data, nodes.min_node.data + nodes.min_node.used}; }
    numbers max_node() const { return {nodes.max_node.data, nodes.max_node.data + nodes.max_node.used}; }
};

template <int naxes, int ntests>
walked reference_walk(const looked_at &in, lattice_reference::edge_numbers *edges)
{
    walked out;
    lattice_reference::walk(in.dims, in.data, in.null, [&](const cell &c) {
        unsigned index[2] = {0, 0};
        numbers by_place(1 << naxes);
        for (int corner = 0; corner < 1 << naxes; ++corner) {
            const unsigned place = place_of_ring_corner(corner), bit = walk_bit<naxes>(place);
            by_place[place] = c.nodes[static_cast<size_t>(corner)];
            const int value = in.data[static_cast<size_t>(by_place[place])];
            index[0] |= static_cast<unsigned>(value >= in.lower) << bit;
            index[1] |= static_cast<unsigned>(ntests == 2 && value > in.upper) << bit;
        }
        const unsigned full = static_cast<unsigned>(last_index(naxes));
        if (index[0] == 0 || index[1] == full) return;
        if (index[0] == full && index[1] == 0) return out.whole.push_back(c.number);
        walked::crossed made = {
            c.number, static_cast<int>(index[0]), static_cast<int>(index[ntests - 1]), {}};
        for (int level = 0; level < ntests; ++level)
            for (int e = edges_of_cell<naxes> - 1; e >= 0; --e) {
                const unsigned low = ends<naxes>.low[e], high = ends<naxes>.high[e];
                const bool crossed =
                    (index[level] >> walk_bit<naxes>(low) & 1) != (index[level] >> walk_bit<naxes>(high) & 1);
                if (crossed) made.edges.push_back(edges->number(by_place[low], by_place[high], level));
            }
        out.cells.push_back(made);
    });
    return out;
}

struct random_meshes {
    std::mt19937 random;
    int null = 0;

    explicit random_meshes(unsigned seed) : random(seed) {}
    unsigned below(unsigned n) { return random() % n; }

    looked_at next(int naxes)
    {
        const qx_long widths[] = {1,  2,  3,  4,  5,  8,  31, 32, 33,  34,  63,
                                  64, 65, 66, 67, 96, 97, 98, 99, 129, 1026};
        looked_at in = {{widths[below(naxes == 3 ? 20 : 21)]}, {}, nullptr, 0, 0};
        for (int d = 1; d < naxes; ++d)
            in.dims.push_back(1 + static_cast<qx_long>(below(7)));
        qx_long nnodes = 1;
        for (qx_long n : in.dims)
            nnodes *= n;
        const unsigned nvalues = 2 + below(9);
        for (qx_long n = 0; n < nnodes; ++n)
            in.data.push_back(static_cast<int>(below(nvalues)));
        in.lower = static_cast<int>(below(nvalues + 1));
        in.upper = in.lower + static_cast<int>(below(nvalues));
        null = static_cast<int>(below(nvalues + 2));
        if (below(2) != 0) in.null = &null;
        return in;
    }
};

template <int naxes_, int ntests_> struct walk_kind {
    static constexpr int naxes = naxes_, ntests = ntests_;
};
using walk_kinds = testing::Types<walk_kind<2, 1>, walk_kind<3, 1>, walk_kind<2, 2>, walk_kind<3, 2>>;
template <typename Kind> class LatticeWalk : public testing::Test {
};
TYPED_TEST_SUITE(LatticeWalk, walk_kinds);

TYPED_TEST(LatticeWalk, HandsOutCellsAndNumbersAsTheReferenceDoes)
{
    constexpr int naxes = TypeParam::naxes, ntests = TypeParam::ntests;
    random_meshes meshes(5);
    int crossed = 0, whole = 0, with_nulls = 0;
    for (int pass = 0; pass < 150; ++pass) {
        SCOPED_TRACE("pass " + std::to_string(pass));
        const looked_at in = meshes.next(naxes);
        lattice_reference::edge_numbers edges;
        const walked expected = reference_walk<naxes, ntests>(in, &edges);
        const ranged_walk<naxes, ntests> got(in, all_planes<naxes>(in.dims.data()));
        ASSERT_EQ(got.end, lattice_end::done);
        ASSERT_TRUE(got.out.cells == expected.cells);
        ASSERT_EQ(got.out.whole, expected.whole);
        ASSERT_EQ(got.min_node(), edges.min_node);
        ASSERT_EQ(got.max_node(), edges.max_node);
        crossed += expected.cells.size() > 5;
        whole += expected.whole.size() > 5;
        with_nulls += in.null != nullptr && expected.cells.size() > 5;
    }
    EXPECT_GT(crossed, 50);
    EXPECT_GT(whole, 5);
    EXPECT_GT(with_nulls, 20);
}

// Tells what a part will add.
struct counting_sink : lattice_sink<3, 1> {
    static constexpr bool wants_whole = true;
    using tally = cell_tally<1>;
    qx_long nnodes = 0, ncells = 0, nwhole = 0;
    numbers slabs; // of the pieces

    static const edge_order<3> &order(unsigned index) { return falling<3>.row[index]; }
    void count(const row_piece<1, tally> &piece, qx_long k)
    {
        nnodes += piece.nnodes;
        ncells += piece.ncells;
        nwhole += piece.nwhole;
        slabs.push_back(k);
    }
};

using recorded_part = lattice_part<cell_tally<1>, true>;

// Parts that know how many nodes there are below them are the walk over all of them.
void expect_parts_to_be_the_whole(const looked_at &in, random_meshes *meshes, int *in_seams)
{
    const plane_range all = all_planes<3>(in.dims.data());
    const ranged_walk<3, 1> expected(in, all);
    const qx_long total = expected.nodes.min_node.used;
    walked made;
    numbers min_node(static_cast<size_t>(total) + 1, -1), max_node = min_node;
    qx_long reached = 0;
    for (qx_long first = 0, end = 0; first < all.end; first = end) {
        end = std::min(all.end, first + 1 + static_cast<qx_long>(meshes->below(3)));
        with_flags<1>(in, [&](const flag_source &flags) {
            recorded_part part = {};
            part.open(in.dims.data(), flags, {first, end});
            counting_sink counted;
            part.count(&counted);
            EXPECT_EQ(part.end, lattice_end::done);
            EXPECT_TRUE(std::is_sorted(counted.slabs.begin(), counted.slabs.end()));
            EXPECT_TRUE(counted.slabs.empty() || (counted.slabs[0] >= first && counted.slabs.back() < end));
            const size_t ncells = made.cells.size(), nwhole = made.whole.size();
            edge_nodes_of<placed_list> nodes = {stretch_of(min_node.data(), reached, counted.nnodes),
                                                stretch_of(max_node.data(), reached, counted.nnodes)};
            recording_sink<3, 1, placed_list> sink(&made);
            part.write(&sink, &nodes);
            finish_nodes(&nodes);
            EXPECT_EQ(part.end, lattice_end::done);
            EXPECT_EQ(nodes.min_node.used - reached, counted.nnodes);
            EXPECT_EQ(static_cast<qx_long>(made.cells.size() - ncells), counted.ncells);
            EXPECT_EQ(static_cast<qx_long>(made.whole.size() - nwhole), counted.nwhole);
            reached += counted.nnodes;
            *in_seams += first > 0 && part.numbered_below > 0;
            part.close();
            return 0;
        });
    }
    EXPECT_EQ(reached, total);
    for (numbers *list : {&min_node, &max_node}) {
        EXPECT_EQ(list->back(), -1); // behind the last stretch
        list->pop_back();
    }
    EXPECT_EQ(min_node, expected.min_node());
    EXPECT_EQ(max_node, expected.max_node());
    EXPECT_TRUE(made.cells == expected.out.cells);
    EXPECT_EQ(made.whole, expected.out.whole);
}

TEST(LatticeParts, AreTheWalkOverAll)
{
    random_meshes meshes(6);
    int in_seams = 0;
    for (int pass = 0; pass < 200 && !testing::Test::HasFailure(); ++pass) {
        SCOPED_TRACE("pass " + std::to_string(pass));
        expect_parts_to_be_the_whole(meshes.next(3), &meshes, &in_seams);
    }
    EXPECT_GT(in_seams, 50);
}

// Rows that are kept in many blocks, and rows that need more than one piece.
TEST(LatticeParts, KeepAnyNumberOfPieces)
{
    random_meshes meshes(7);
    for (const numbers &dims : {numbers{1100, 9, 9}, numbers{40, 60, 40}}) {
        looked_at in = {dims, {}, nullptr, 1, 2};
        for (qx_long n = 0; n < dims[0] * dims[1] * dims[2]; ++n)
            in.data.push_back(static_cast<int>(meshes.below(3)));
        int in_seams = 0;
        expect_parts_to_be_the_whole(in, &meshes, &in_seams);
        EXPECT_GT(in_seams, 1);
    }
}

TEST(LatticeParts, EndWhereThereIsNoMemoryForPieces)
{
    random_meshes meshes(8);
    looked_at in = {{80, 60, 12}, {}, nullptr, 1, 2};
    for (qx_long n = 0; n < in.dims[0] * in.dims[1] * in.dims[2]; ++n)
        in.data.push_back(static_cast<int>(meshes.below(3)));
    with_flags<1>(in, [&](const flag_source &flags) {
        int failed = 0;
        for (int k = 0;; ++k) {
            recorded_part part = {};
            part.open(in.dims.data(), flags, {2, 11});
            counting_sink counted;
            host_calls::reset();
            {
                host_calls::watch watch;
                host_calls::fail_allocation(k);
                part.count(&counted);
                host_calls::reset();
                part.pieces.release();
                EXPECT_EQ(watch.live_blocks(), 0);
            }
            part.close();
            if (part.end == lattice_end::done) break;
            EXPECT_EQ(part.end, lattice_end::no_connect_memory);
            ++failed;
        }
        EXPECT_GT(failed, 2); // blocks of 64, 128, 256 KiB
        return 0;
    });
}

looked_at rising(const numbers &dims)
{
    looked_at in = {dims, {}, nullptr, 1, 2};
    qx_long nnodes = 1;
    for (qx_long n : dims)
        nnodes *= n;
    for (qx_long n = 0; n < nnodes; ++n)
        in.data.push_back(static_cast<int>(n % 4));
    return in;
}

TYPED_TEST(LatticeWalk, TellsOfPlanesAndSlabsInTurn)
{
    constexpr int naxes = TypeParam::naxes, ntests = TypeParam::ntests;
    const looked_at in = rising(naxes == 3 ? numbers{5, 3, 5} : numbers{5, 5});
    using strings = std::vector<std::string>;
    const ranged_walk<naxes, ntests> some(in, {1, 3});
    EXPECT_EQ(some.out.calls, (strings{"plane 1", "plane 2", "slab 1", "plane 3", "slab 2"}));
    EXPECT_FALSE(some.out.cells.empty());
    const ranged_walk<naxes, ntests> none(in, {4, 4}), beyond(in, {5, 5});
    EXPECT_EQ(none.out.calls, strings{"plane 4"});
    EXPECT_TRUE(none.out.cells.empty());
    EXPECT_TRUE(beyond.out.calls.empty());
    for (const char *stop : {"plane 1", "plane 2", "slab 1", "plane 3", "slab 2"}) {
        const ranged_walk<naxes, ntests> stopped(in, {1, 3}, lattice_checks::never, stop);
        EXPECT_EQ(stopped.end, lattice_end::no_map_memory);
        EXPECT_EQ(stopped.out.calls.back(), stop);
    }
}

// The cadence is that of the mesh wherever a range begins.
TYPED_TEST(LatticeWalk, LooksAtTheStatusWhereItIsAskedTo)
{
    constexpr int naxes = TypeParam::naxes, ntests = TypeParam::ntests;
    const looked_at in = rising(naxes == 3 ? numbers{3, 3, 31} : numbers{3, 31});
    const auto checks_of = [&](plane_range range, lattice_checks checks) {
        host_calls::reset();
        const ranged_walk<naxes, ntests> walk(in, range, checks);
        EXPECT_EQ(walk.end, lattice_end::done);
        std::vector<int> percents;
        for (const host_calls::status &status : host_calls::seen().statuses)
            percents.push_back(status.percent);
        return percents;
    };
    EXPECT_EQ(checks_of({0, 30}, lattice_checks::every_eighth_slab), (std::vector<int>{23, 50, 76}));
    EXPECT_EQ(checks_of({8, 20}, lattice_checks::every_eighth_slab), std::vector<int>{50});
    EXPECT_TRUE(checks_of({0, 30}, lattice_checks::never).empty());

    host_calls::reset();
    host_calls::interrupt_at(1);
    const ranged_walk<naxes, ntests> stopped(in, {0, 30}, lattice_checks::every_eighth_slab);
    EXPECT_EQ(stopped.end, lattice_end::interrupted);
    EXPECT_EQ(stopped.out.calls.back(), "slab 14");
    host_calls::reset();
}

} // namespace
