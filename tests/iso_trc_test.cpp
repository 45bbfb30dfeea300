#include <skoklana/iso.h>

#include "support/arrays.hpp"
#include "support/fresh_host.hpp"
#include "support/lattice_reference.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>

namespace {

using arrays::dtype_of;
using lattice_reference::edge_numbers;
using lattice_reference::level_set;
using lattice_reference::numbers;

// ---- a mesh whose seed is where the test says ------------------------------------------------------------

struct seed_answer {
    int find_result = 1, interp_result = 1;
    qx_long cell = 0;
    float value = 0;
    // What was asked.
    int finds = 0, interpolations = 0;
    const void *tbl = nullptr, *data = nullptr, *null_value = nullptr;
    const float *point = nullptr;
    qx_long asked_cell = -7;
    int veclen = -7, data_type = -7, null_flag = -7, npts = -7;
    float u = -7;
} answer;

int find_seed(mesh_info *, const blk_tbl *tbl, const float *point, qx_long *cell, float *uvw)
{
    ++answer.finds;
    answer.tbl = tbl;
    answer.point = point;
    *cell = answer.cell;
    uvw[0] = 0.375f;
    return answer.find_result;
}

int value_at_seed(mesh_info *, qx_long cell, int veclen, const void *data, int data_type, int null_flag,
                  const void *null_value, int npts, const float *uvw, float *out)
{
    ++answer.interpolations;
    answer.asked_cell = cell;
    answer.veclen = veclen;
    answer.data = data;
    answer.data_type = data_type;
    answer.null_flag = null_flag;
    answer.null_value = null_value;
    answer.npts = npts;
    answer.u = uvw[0];
    *out = answer.value;
    return answer.interp_result;
}

struct seeded_lattice : lattice_reference::lattice {
    mesh_methods methods = {};
    qx_long ncells = 1;

    explicit seeded_lattice(numbers dims_) : lattice(std::move(dims_))
    {
        methods.find_cell_func = find_seed;
        methods.interp_data_func = value_at_seed;
        mesh.methods = &methods;
        for (qx_long n : dims)
            ncells *= n - 1;
        mesh.cell_count = &ncells;
    }
};

// The outputs of one call, as they were left.
struct trace_call {
    int result = -7;
    double level = -7;
    qx_long nnodes = -7, nprim = -7, nconn = -7;
    qx_long *min_node, *max_node, *conn;

    trace_call() { min_node = max_node = conn = &nnodes; } // not null, not to be freed
    trace_call(const trace_call &) = delete;
    trace_call &operator=(const trace_call &) = delete;
    ~trace_call() { release(); }

    void run(bool surface, mesh_info *mesh, const void *data, int type, const void *null)
    {
        const float seed[3] = {1, 2, 3};
        run_from(surface, mesh, seed, data, type, null, nullptr);
    }

    void run_from(bool surface, mesh_info *mesh, const float *seed, const void *data, int type,
                  const void *null, const blk_tbl *tbl)
    {
        result = (surface ? UTILiso_trace : UTILisoline_trace)(mesh, seed, data, type, null != nullptr, null,
                                                               tbl, &level, &nnodes, &min_node, &max_node,
                                                               &nprim, &conn, &nconn);
    }

    void release()
    {
        for (qx_long **list : {&min_node, &max_node, &conn}) {
            if (*list != &nnodes) free(*list);
            *list = nullptr;
        }
    }

    bool is_empty() const
    {
        return nnodes == 0 && nprim == 0 && nconn == 0 && min_node == nullptr && max_node == nullptr &&
               conn == nullptr;
    }

    level_set out() const
    {
        level_set made;
        made.min_node.assign(min_node, min_node + nnodes);
        made.max_node.assign(max_node, max_node + nnodes);
        made.connect.assign(conn, conn + nconn);
        return made;
    }
};

// ---- references ------------------------------------------------------------------------------------------

// The cells to visit, the cells visited, and what the status was told.
struct reference_walk {
    level_set out; // cell holds the crossed cells here, in the order of the visits
    std::vector<int> percents;
    qx_long nprimitives = 0, revisits = 0, dead_ends = 0;
};

// visit(cell, &next) appends the cells to go on to and tells whether the cell was crossed.
template <typename Visit>
void walk_from(qx_long seed, qx_long ncells, bool checks_status, reference_walk *walk, Visit visit)
{
    std::vector<qx_long> stack = {seed};
    std::set<qx_long> seen;
    const float factor = static_cast<float>(400.0 / static_cast<double>(ncells));
    int counter = 0, visits = 0;
    while (!stack.empty()) {
        const qx_long cell = stack.back();
        if (seen.count(cell) != 0) {
            ++walk->revisits;
            stack.pop_back();
            continue;
        }
        if (counter == 400) {
            if (checks_status)
                walk->percents.push_back(static_cast<int>(static_cast<float>(visits) * factor));
            counter = 0;
        } else {
            ++counter;
        }
        ++visits;
        stack.pop_back();
        std::vector<qx_long> next;
        if (!visit(cell, &next)) {
            ++walk->dead_ends;
            continue;
        }
        seen.insert(cell);
        walk->out.cell.push_back(cell);
        stack.insert(stack.end(), next.begin(), next.end());
    }
}

template <typename T>
reference_walk trace_surface(const numbers &dims, const std::vector<T> &data, double level, const T *null,
                             qx_long seed)
{
    constexpr size_t corner_of_bit[8] = {0, 1, 4, 5, 3, 2, 7, 6};
    reference_walk walk;
    edge_numbers edges;
    const qx_long d0 = dims[0], plane = dims[0] * dims[1];
    walk_from(seed, (dims[0] - 1) * (dims[1] - 1) * (dims[2] - 1), true, &walk,
              [&](qx_long c, std::vector<qx_long> *next) {
                  const std::array<qx_long, 8> nodes = {
                      c,         c + 1,         c + 1 + d0,         c + d0,
                      c + plane, c + plane + 1, c + plane + 1 + d0, c + plane + d0};
                  if (lattice_reference::has_null(data, nodes, null)) return false;
                  int index = 0;
                  for (size_t bit = 0; bit < 8; ++bit)
                      index |= lattice_reference::above(data, nodes[corner_of_bit[bit]], level) << bit;
                  if (index == 0 || index == 255) return false;
                  qx_long points[12];
                  for (int p = 0; p < ISOninter_pts_hex[index]; ++p)
                      points[p] =
                          edges.number(nodes[ISOleft_vert_hex[index][p]], nodes[ISOright_vert_hex[index][p]]);
                  const size_t ncells = walk.out.cell.size();
                  lattice_reference::append_triangles(index, points, c, &walk.out);
                  walk.nprimitives += static_cast<qx_long>(walk.out.cell.size() - ncells);
                  walk.out.cell.resize(ncells);
                  // The faces of the index's three axes in turn are taken for those of i, j and k.
                  const auto crosses = [index](int axis, int side) {
                      std::set<int> flags;
                      for (int b = 0; b < 8; ++b)
                          if ((b >> axis & 1) == side) flags.insert(index >> b & 1);
                      return flags.size() == 2;
                  };
                  const qx_long at[3] = {c % d0, c / d0 % dims[1], c / plane}, step[3] = {1, d0, plane};
                  for (int axis = 0; axis < 3; ++axis) {
                      const qx_long n = dims[static_cast<size_t>(axis)];
                      if (crosses(axis, 0) && at[axis] >= 1) next->push_back(c - step[axis]);
                      if (crosses(axis, 1) && at[axis] < n - 2) next->push_back(c + step[axis]);
                  }
                  return true;
              });
    walk.out.min_node = edges.min_node;
    walk.out.max_node = edges.max_node;
    return walk;
}

template <typename T>
reference_walk trace_lines(const numbers &dims, const std::vector<T> &data, double level, const T *null,
                           qx_long seed, std::map<size_t, int> *by_crossings = nullptr)
{
    reference_walk walk;
    edge_numbers edges;
    const qx_long d0 = dims[0];
    walk_from(seed, (dims[0] - 1) * (dims[1] - 1), false, &walk, [&](qx_long c, std::vector<qx_long> *next) {
        const std::array<qx_long, 4> nodes = {c, c + 1, c + 1 + d0, c + d0};
        if (lattice_reference::has_null(data, nodes, null)) return false;
        const auto value = [&](size_t corner) { return data[static_cast<size_t>(nodes[corner & 3])]; };
        std::vector<std::pair<qx_long, qx_long>> crossings;
        bool crossed[4];
        for (size_t e = 0; e < 4; ++e) {
            const double a = static_cast<double>(value(e)), b = static_cast<double>(value(e + 1));
            crossed[e] = (level >= a && b > level) || (a >= level && level > b) || (a == level && b == level);
            if (crossed[e]) crossings.push_back({nodes[e], nodes[(e + 1) & 3]});
        }
        if (by_crossings != nullptr) ++(*by_crossings)[crossings.size()];
        if (crossings.empty()) return false;
        numbers p;
        for (const auto &crossing : crossings)
            p.push_back(edges.number(crossing.first, crossing.second));
        numbers made;
        if (p.size() == 1)
            made = {p[0], p[0]};
        else if (p.size() < 4)
            made = {p[0], p[1]};
        else if (value(0) >= value(1))
            made = {p[0], p[3], p[2], p[1]};
        else
            made = {p[0], p[1], p[2], p[3]};
        walk.out.connect.insert(walk.out.connect.end(), made.begin(), made.end());
        walk.nprimitives += static_cast<qx_long>(made.size() / 2);
        const qx_long i = c % d0, j = c / d0;
        if (crossed[3] && i >= 1) next->push_back(c - 1);
        if (crossed[1] && i < d0 - 2) next->push_back(c + 1);
        if (crossed[0] && j >= 1) next->push_back(c - d0);
        if (crossed[2] && j < dims[1] - 2) next->push_back(c + d0);
        return true;
    });
    walk.out.min_node = edges.min_node;
    walk.out.max_node = edges.max_node;
    return walk;
}

// Traces from a cell and holds everything against the reference.
template <typename T>
reference_walk expect_as_reference(bool surface, seeded_lattice &in, const std::vector<T> &data, float level,
                                   const T *null, qx_long seed)
{
    answer = seed_answer();
    answer.cell = seed;
    answer.value = level;
    host_calls::reset();
    trace_call call;
    call.run(surface, &in.mesh, data.data(), dtype_of<T>, null);
    const double exact_level = static_cast<double>(level);
    reference_walk expected = surface ? trace_surface(in.dims, data, exact_level, null, seed)
                                      : trace_lines(in.dims, data, exact_level, null, seed);
    EXPECT_EQ(call.result, 1);
    if (call.result != 1) return expected;
    EXPECT_EQ(call.level, exact_level);
    EXPECT_EQ(call.nprim, expected.nprimitives);
    EXPECT_EQ(call.nconn, (surface ? 3 : 2) * call.nprim);
    const level_set got = call.out();
    EXPECT_EQ(got.min_node, expected.out.min_node);
    EXPECT_EQ(got.max_node, expected.out.max_node);
    EXPECT_EQ(got.connect, expected.out.connect);
    host_calls::expect_checks(expected.percents);
    return expected;
}

template <typename T> std::vector<T> small_values(std::mt19937 &random, qx_long count, unsigned nvalues)
{
    std::vector<T> data;
    for (qx_long n = 0; n < count; ++n)
        data.push_back(static_cast<T>(random() % nvalues));
    data.shrink_to_fit();
    return data;
}

// Every cell has four crossings of 0.5: a walk gets everywhere.
std::vector<float> checkered(const numbers &dims)
{
    std::vector<float> data;
    for (qx_long n = 0; n < dims[0] * dims[1]; ++n)
        data.push_back((n % dims[0] + n / dims[0]) % 2 != 0 ? 1.0f : 0.0f);
    return data;
}

qx_long any_cell(std::mt19937 &random, const numbers &dims)
{
    qx_long cell = 0, step = 1;
    for (qx_long n : dims) {
        cell += step * static_cast<qx_long>(random() % static_cast<unsigned>(n - 1));
        step *= n;
    }
    return cell;
}

// ---- surfaces --------------------------------------------------------------------------------------------

template <typename T> class TraceOfType : public testing::Test {
};
TYPED_TEST_SUITE(TraceOfType, arrays::all_types);

// Meshes on both sides of 1024 nodes: up to there each node has a bucket of its own, from there on all edges
// stand in one chain.
TYPED_TEST(TraceOfType, SurfacesAgreeWithTheReferenceOnRandomData)
{
    using T = TypeParam;
    std::mt19937 random(31 + dtype_of<T>);
    qx_long small = 0, large = 0, with_nulls = 0, at_once = 0, grown = 0, revisits = 0, dead_ends = 0;
    for (int pass = 0; pass < 60; ++pass) {
        SCOPED_TRACE(pass);
        const bool is_large = pass % 3 == 0;
        numbers dims;
        for (int axis = 0; axis < 3; ++axis)
            dims.push_back(is_large ? 11 + random() % 3 : 2 + random() % 7);
        seeded_lattice in(dims);
        const std::vector<T> data = small_values<T>(random, in.nnodes(), 16);
        const T null = T(15);
        const bool nulls = pass % 2 != 0;
        const float level = static_cast<float>(random() % 24) / 2 + 1.5f;
        const reference_walk walk =
            expect_as_reference(true, in, data, level, nulls ? &null : nullptr, any_cell(random, in.dims));
        if (testing::Test::HasFailure()) return;
        const bool crossed = walk.nprimitives > 0;
        small += crossed && in.nnodes() <= 1024;
        large += crossed && in.nnodes() > 1024;
        with_nulls += crossed && nulls;
        at_once += !crossed;
        grown += walk.out.connect.size() > 4000;
        revisits += walk.revisits;
        dead_ends += walk.dead_ends;
    }
    EXPECT_GT(small, 10);
    EXPECT_GT(large, 5);
    EXPECT_GT(with_nulls, 5);
    EXPECT_GT(at_once, 0);
    EXPECT_GT(grown, 2);
    EXPECT_GT(revisits, 1000);
    EXPECT_GT(dead_ends, 10);
}

TYPED_TEST(TraceOfType, LinesAgreeWithTheReferenceOnRandomData)
{
    using T = TypeParam;
    std::mt19937 random(37 + dtype_of<T>);
    qx_long small = 0, large = 0, with_nulls = 0, grown = 0, on_values = 0;
    for (int pass = 0; pass < 120; ++pass) {
        SCOPED_TRACE(pass);
        const unsigned most = pass % 4 == 0 ? 50 : 12;
        seeded_lattice in(
            {2 + static_cast<qx_long>(random() % most), 2 + static_cast<qx_long>(random() % most)});
        std::vector<T> data = small_values<T>(random, in.nnodes(), 3 + random() % 4);
        // Lines of noise are short. Where high and low nodes take turns the walk gets everywhere.
        for (qx_long n = 0; pass % 4 < 2 && n < in.nnodes(); ++n)
            data[static_cast<size_t>(n)] =
                T(((n % in.dims[0] + n / in.dims[0]) % 2 != 0 ? 3 : 0) + random() % 2);
        const T null = T(pass % 8 < 4 ? 9 : random() % 8);
        const bool nulls = pass % 2 != 0;
        const float level = static_cast<float>(random() % 6) / 2;
        const reference_walk walk =
            expect_as_reference(false, in, data, level, nulls ? &null : nullptr, any_cell(random, in.dims));
        if (testing::Test::HasFailure()) return;
        const bool crossed = walk.nprimitives > 0;
        small += crossed && in.nnodes() <= 1024;
        large += crossed && in.nnodes() > 1024;
        with_nulls += crossed && nulls;
        grown += walk.out.connect.size() > 2000;
        on_values += crossed && level == std::floor(level);
    }
    EXPECT_GT(small, 30);
    EXPECT_GT(large, 3);
    EXPECT_GT(with_nulls, 20);
    EXPECT_GT(grown, 3);
    EXPECT_GT(on_values, 20);
}

// What the walk reaches is part of the whole surface, each triangle as it stands there.
TEST(SurfaceTrace, TrianglesAreThoseOfTheWholeSurface)
{
    seeded_lattice in({14, 13, 12});
    const std::vector<float> data = meshes::random_values<float>(3, in.nnodes(), 0, 1);
    const reference_walk walk =
        expect_as_reference(true, in, data, 0.625f, static_cast<const float *>(nullptr), 0);
    const level_set whole =
        lattice_reference::surface(in.dims, data, 0.625, static_cast<const float *>(nullptr));
    const auto triangles = [](const level_set &of) {
        std::multiset<std::array<qx_long, 6>> all;
        for (size_t t = 0; t < of.connect.size(); t += 3) {
            std::array<qx_long, 6> triangle;
            for (size_t c = 0; c < 3; ++c) {
                triangle[2 * c] = of.min_node[static_cast<size_t>(of.connect[t + c])];
                triangle[2 * c + 1] = of.max_node[static_cast<size_t>(of.connect[t + c])];
            }
            all.insert(triangle);
        }
        return all;
    };
    const auto traced = triangles(walk.out), all = triangles(whole);
    EXPECT_GT(traced.size(), 2000u);
    EXPECT_TRUE(std::includes(all.begin(), all.end(), traced.begin(), traced.end()));
}

// A sheet across k is crossed by the walls across i and j. The walk steps along i, and for the walls across j
// it steps along k, where there is nothing: it follows a single row. A sheet across j likewise; one across i
// is followed everywhere.
TEST(SurfaceTrace, StepsAlongJForFacesAcrossKAndTheOtherWayRound)
{
    const qx_long n = 8;
    for (size_t across = 0; across < 3; ++across) {
        SCOPED_TRACE(across);
        seeded_lattice in({n, n, n});
        std::vector<int> data;
        numbers at(3);
        for (qx_long node = 0; node < n * n * n; ++node) {
            at = {node % n, node / n % n, node / n / n};
            data.push_back(static_cast<int>(at[across]));
        }
        const qx_long seed = 3 + n * 3 + n * n * 3;
        const reference_walk walk =
            expect_as_reference(true, in, data, 3.5f, static_cast<const int *>(nullptr), seed);
        std::set<qx_long> reached(walk.out.cell.begin(), walk.out.cell.end()), row;
        for (qx_long a = 0; a < n - 1; ++a)
            for (qx_long b = 0; b < n - 1; ++b)
                if (across == 0)
                    row.insert(3 + n * a + n * n * b);
                else
                    row.insert(a + n * 3 + n * n * 3);
        EXPECT_EQ(reached, row);
        EXPECT_EQ(walk.nprimitives, static_cast<qx_long>(2 * row.size()));
    }
}

TEST(SurfaceTrace, SeedAwayFromTheLevelGivesNothingButTheLevel)
{
    seeded_lattice in({5, 5, 5});
    const std::vector<double> data(125, 2.0);
    const reference_walk walk =
        expect_as_reference(true, in, data, 2.0f, static_cast<const double *>(nullptr), 31);
    EXPECT_EQ(walk.nprimitives, 0);
    EXPECT_EQ(walk.dead_ends, 1);
}

TEST(SurfaceTrace, LevelIsTheValueInSinglePrecision)
{
    seeded_lattice in({2, 2, 2});
    const std::vector<double> data = {0.1, 0, 0, 0, 0, 0, 0, 0};
    // 0.1f widened is above 0.1: nothing is at or above the level.
    EXPECT_EQ(expect_as_reference(true, in, data, 0.1f, static_cast<const double *>(nullptr), 0).nprimitives,
              0);
}

TEST(SurfaceTrace, NanIsBelow)
{
    seeded_lattice in({9, 9, 9});
    std::mt19937 random(4);
    std::vector<float> data;
    for (qx_long n = 0; n < in.nnodes(); ++n)
        data.push_back(random() % 3 == 0 ? std::nanf("") : static_cast<float>(random() % 3));
    const float nan = std::nanf("");
    EXPECT_GT(expect_as_reference(true, in, data, 1.5f, &nan, 100).nprimitives, 100);
}

// The find function's cell is taken as it comes, also one past the last whole cell: that holds no surface.
TEST(Traces, CellsWithoutAllTheirCornersHoldNothing)
{
    seeded_lattice in({4, 4, 4}), flat({4, 4});
    const std::vector<int> data = meshes::random_values<int>(1, 64, 0, 2);
    for (qx_long cell : {qx_long(-1), qx_long(43), qx_long(63), qx_long(64), qx_long(1) << 60}) {
        answer = seed_answer();
        answer.cell = cell;
        answer.value = 1;
        trace_call call;
        call.run(true, &in.mesh, data.data(), DTYPE_INT, nullptr);
        EXPECT_EQ(call.result, 1);
        EXPECT_EQ(call.nprim, 0);
        trace_call lines;
        answer.cell = cell == 43 ? 11 : cell;
        lines.run(false, &flat.mesh, data.data(), DTYPE_INT, nullptr);
        EXPECT_EQ(lines.result, 1);
        EXPECT_EQ(lines.nprim, 0);
    }
}

// ---- lines -----------------------------------------------------------------------------------------------

// Corners 0 to 3 are the nodes 0, 1, 3, 2; edge e runs from corner e to the next.
TEST(LineTrace, FourCrossingsAreJoinedByTheFirstTwoCorners)
{
    struct {
        std::vector<int> data;
        numbers connect;
    } const cases[] = {
        {{1, 1, 1, 1}, {0, 3, 2, 1}}, // all at the level: every edge counts
        {{2, 0, 0, 2}, {0, 3, 2, 1}},
        {{0, 2, 2, 0}, {0, 1, 2, 3}},
    };
    for (const auto &one : cases) {
        seeded_lattice in({2, 2});
        answer = seed_answer();
        answer.value = 1;
        trace_call call;
        call.run(false, &in.mesh, one.data.data(), DTYPE_INT, nullptr);
        ASSERT_EQ(call.result, 1);
        EXPECT_EQ(call.nprim, 2);
        EXPECT_EQ(call.out().connect, one.connect);
        EXPECT_EQ(call.out().min_node, (numbers{0, 1, 2, 0}));
        EXPECT_EQ(call.out().max_node, (numbers{1, 3, 3, 2}));
    }
}

TEST(LineTrace, OneToThreeCrossings)
{
    struct {
        std::vector<float> data;
        numbers connect, min_node, max_node;
    } const cases[] = {
        // NaN at corner 1: of its two edges and the others only the one from 0 to 2 is crossed
        {{0, std::nanf(""), 2, 2}, {0, 0}, {0}, {2}},
        {{0, 0, 2, 2}, {0, 1}, {1, 0}, {3, 2}},
        // corner 3 below, the others at the level: the two edges between these, and one of the other two
        {{1, 1, 0, 1}, {0, 1}, {0, 1, 2}, {1, 3, 3}},
    };
    for (const auto &one : cases) {
        seeded_lattice in({2, 2});
        answer = seed_answer();
        answer.value = 1;
        trace_call call;
        call.run(false, &in.mesh, one.data.data(), DTYPE_FLOAT, nullptr);
        ASSERT_EQ(call.result, 1);
        EXPECT_EQ(call.nprim, 1);
        EXPECT_EQ(call.out().connect, one.connect);
        EXPECT_EQ(call.out().min_node, one.min_node);
        EXPECT_EQ(call.out().max_node, one.max_node);
    }
}

TEST(LineTrace, RandomRealsReachEveryCountOfCrossings)
{
    std::mt19937 random(12);
    std::map<size_t, int> by_crossings;
    for (int pass = 0; pass < 30; ++pass) {
        seeded_lattice in({20, 20});
        std::vector<double> data;
        for (qx_long n = 0; n < in.nnodes(); ++n)
            data.push_back(random() % 8 == 0 ? std::nan("") : static_cast<double>(random() % 4));
        const qx_long seed = any_cell(random, in.dims);
        expect_as_reference(false, in, data, 1.0f, static_cast<const double *>(nullptr), seed);
        trace_lines(in.dims, data, 1.0, static_cast<const double *>(nullptr), seed, &by_crossings);
    }
    for (size_t count : {1, 2, 3, 4})
        EXPECT_GT(by_crossings[count], 50) << count;
}

// On a mesh of three axes the walk stays in the plane of its first two.
TEST(LineTrace, MeshOfThreeAxesIsTracedInItsFirstPlane)
{
    seeded_lattice in({9, 8, 3});
    std::vector<short> data;
    for (qx_long n = 0; n < in.nnodes(); ++n)
        data.push_back(static_cast<short>(n % 9 + n / 9 % 8 + n / 72));
    answer = seed_answer();
    answer.cell = 4;
    answer.value = 5;
    trace_call call;
    call.run(false, &in.mesh, data.data(), DTYPE_SHORT, nullptr);
    ASSERT_EQ(call.result, 1);
    const reference_walk walk = trace_lines({9, 8}, data, 5.0, static_cast<const short *>(nullptr), 4);
    EXPECT_GT(walk.nprimitives, 4);
    EXPECT_EQ(call.out().connect, walk.out.connect);
}

TEST(LineTrace, NeverChecksTheStatus)
{
    seeded_lattice in({60, 60});
    const std::vector<float> data = checkered(in.dims);
    EXPECT_GT(expect_as_reference(false, in, data, 0.5f, static_cast<const float *>(nullptr), 0).nprimitives,
              1000);
    EXPECT_TRUE(host_calls::seen().statuses.empty());
}

// ---- the seed --------------------------------------------------------------------------------------------

TEST(Traces, SeedIsLocatedAndEvaluatedByTheMesh)
{
    for (bool surface : {true, false}) {
        seeded_lattice in(surface ? numbers{3, 3, 3} : numbers{3, 3});
        const std::vector<int> data(27, 4);
        const int null = 7;
        const float seed[3] = {1, 2, 3};
        const blk_tbl *const tbl = reinterpret_cast<const blk_tbl *>(&data);
        answer = seed_answer();
        answer.cell = 1;
        answer.value = 2.5f;
        trace_call call;
        call.run_from(surface, &in.mesh, seed, data.data(), DTYPE_INT, &null, tbl);
        EXPECT_EQ(call.result, 1);
        EXPECT_EQ(call.level, 2.5);
        EXPECT_EQ(answer.finds, 1);
        EXPECT_EQ(answer.interpolations, 1);
        EXPECT_EQ(answer.tbl, tbl);
        EXPECT_EQ(answer.point, seed);
        EXPECT_EQ(answer.asked_cell, 1);
        EXPECT_EQ(answer.veclen, 1);
        EXPECT_EQ(answer.npts, 1);
        EXPECT_EQ(answer.data, data.data());
        EXPECT_EQ(answer.data_type, DTYPE_INT);
        EXPECT_EQ(answer.null_flag, 1);
        EXPECT_EQ(answer.null_value, &null);
        EXPECT_EQ(answer.u, 0.375f);
    }
}

TEST(Traces, SeedThatIsNotFoundOrHasNoValueGivesNothing)
{
    const std::vector<int> data = meshes::random_values<int>(1, 27, 0, 2);
    host_calls::reset();
    for (bool surface : {true, false})
        for (int what = 0; what < 2; ++what)
            for (int result : {0, -1, 2}) {
                seeded_lattice in(surface ? numbers{3, 3, 3} : numbers{3, 3});
                answer = seed_answer();
                (what == 0 ? answer.find_result : answer.interp_result) = result;
                trace_call call;
                host_calls::watch watch;
                call.run(surface, &in.mesh, data.data(), DTYPE_INT, nullptr);
                EXPECT_EQ(call.result, 0);
                EXPECT_TRUE(call.is_empty());
                EXPECT_EQ(call.level, -7);
                EXPECT_EQ(watch.allocations(), 0);
            }
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST(Traces, MeshWithoutASearchIsReportedOnTheErrorStream)
{
    const std::vector<int> data(27, 1);
    for (bool surface : {true, false})
        for (int what = 0; what < 2; ++what) {
            seeded_lattice in(surface ? numbers{3, 3, 3} : numbers{3, 3});
            if (what == 0)
                in.methods.find_cell_func = nullptr;
            else
                in.methods.interp_data_func = nullptr;
            host_calls::reset();
            trace_call call;
            testing::internal::CaptureStderr();
            call.run(surface, &in.mesh, data.data(), DTYPE_INT, nullptr);
            EXPECT_EQ(testing::internal::GetCapturedStderr(),
                      "UTILfind_cell: unable to find interp_cell function\n");
            EXPECT_EQ(call.result, 0);
            EXPECT_TRUE(call.is_empty());
            EXPECT_TRUE(host_calls::seen().reports.empty());
        }
}

TEST(Traces, UnknownTypesAndTooFewAxesAreRefusedInSilence)
{
    const std::vector<double> data(27, 1);
    host_calls::reset();
    testing::internal::CaptureStderr();
    for (bool surface : {true, false}) {
        for (int type : {-1, 7, 100}) {
            seeded_lattice in(surface ? numbers{3, 3, 3} : numbers{3, 3});
            answer = seed_answer();
            trace_call call;
            call.run(surface, &in.mesh, data.data(), type, nullptr);
            EXPECT_EQ(call.result, 0);
            EXPECT_TRUE(call.is_empty());
            EXPECT_EQ(answer.finds, 0);
        }
        seeded_lattice thin(surface ? numbers{3, 3} : numbers{3});
        trace_call call;
        call.run(surface, &thin.mesh, data.data(), DTYPE_DOUBLE, nullptr);
        EXPECT_EQ(call.result, 0);
        EXPECT_TRUE(call.is_empty());
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

// By way of a real mesh: its own search, its own interpolation.
TEST(Traces, SeedInAUniformMeshPicksItsLevel)
{
    const auto grid = meshes::uniform({20, 20, 20}, 3, {0, 0, 0}, {19, 19, 19});
    const std::vector<float> data = meshes::field_of<float>(*grid, [](double x, double y, double z) {
        return (x - 9) * (x - 9) + (y - 9.5) * (y - 9.5) + (z - 10) * (z - 10);
    });
    const float seed[3] = {14.25f, 9.5f, 10.25f};
    trace_call call;
    call.run_from(true, grid->mesh, seed, data.data(), DTYPE_FLOAT, nullptr, nullptr);
    ASSERT_EQ(call.result, 1);
    // Interpolation within the cell is linear, the field is not.
    EXPECT_NEAR(call.level, 5.25 * 5.25 + 0.25 * 0.25, 0.7);
    EXPECT_GT(call.nprim, 100);
    for (qx_long n = 0; n < call.nnodes; ++n) {
        const double a = static_cast<double>(data[static_cast<size_t>(call.min_node[n])]),
                     b = static_cast<double>(data[static_cast<size_t>(call.max_node[n])]);
        EXPECT_NE(a >= call.level, b >= call.level);
    }
}

// ---- status and faults -----------------------------------------------------------------------------------

TEST(SurfaceTrace, ChecksTheStatusAtEvery401stVisit)
{
    seeded_lattice in({13, 13, 13});
    const std::vector<float> data = meshes::random_values<float>(2, in.nnodes(), 0, 1);
    const reference_walk walk =
        expect_as_reference(true, in, data, 0.5f, static_cast<const float *>(nullptr), 0);
    const float factor = static_cast<float>(400.0 / (12 * 12 * 12));
    ASSERT_GE(walk.percents.size(), 4u);
    EXPECT_EQ(walk.percents[0], static_cast<int>(400 * factor));
    EXPECT_EQ(walk.percents[1], static_cast<int>(801 * factor));
}

// Cells of which the percents come out otherwise in other precisions.
TEST(SurfaceTrace, PercentsAreFormedInSinglePrecision)
{
    for (qx_long ncells : {625, 1335}) {
        seeded_lattice in({13, 13, 13});
        in.ncells = ncells;
        const std::vector<float> data = meshes::random_values<float>(2, in.nnodes(), 0, 1);
        answer = seed_answer();
        answer.value = 0.5f;
        host_calls::reset();
        trace_call call;
        call.run(true, &in.mesh, data.data(), DTYPE_FLOAT, nullptr);
        EXPECT_EQ(call.result, 1);
        const std::vector<host_calls::status> &seen = host_calls::seen().statuses;
        ASSERT_GE(seen.size(), 2u);
        EXPECT_EQ(seen[0].percent, ncells == 625 ? 256 : 119);
        EXPECT_EQ(seen[1].percent, ncells == 625 ? 512 : 239);
    }
}

TEST(SurfaceTrace, InterruptionReleasesEverything)
{
    seeded_lattice in({13, 13, 13});
    const std::vector<float> data = meshes::random_values<float>(2, in.nnodes(), 0, 1);
    const size_t nchecks =
        expect_as_reference(true, in, data, 0.5f, static_cast<const float *>(nullptr), 0).percents.size();
    ASSERT_GE(nchecks, 4u);
    for (size_t k = 0; k <= nchecks; ++k) {
        SCOPED_TRACE(k);
        host_calls::reset();
        trace_call call;
        {
            host_calls::watch watch;
            host_calls::interrupt_at(static_cast<int>(k));
            call.run(true, &in.mesh, data.data(), DTYPE_FLOAT, nullptr);
            EXPECT_EQ(watch.live_blocks(), k < nchecks ? 0 : 3);
        }
        EXPECT_EQ(call.result, k < nchecks ? -1 : 1);
        EXPECT_EQ(call.is_empty(), k < nchecks);
        EXPECT_EQ(call.level, 0.5);
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
    host_calls::reset();
}

// A row of cells of six entries each, two triangles, or of four, two lines; the last one may have a single line.
TEST(Traces, ListsGrowWhereACellLeavesTooLittle)
{
    const struct {
        bool surface;
        qx_long nprim;
        std::vector<qx_long> sizes; // of all lists
    } rows[] = {{true, 332, {}},    // 996 entries of 1024, 25 are to be left
                {true, 334, {2048}},
                {true, 674, {2048}},
                {true, 676, {2048, 3584}},
                {false, 507, {}}, // 1014 entries of 1024, 10 are to be left
                {false, 508, {2048}},
                {false, 1019, {2048, 2048, 2048}}, // and of both lists of new nodes
                {false, 1020, {2048, 2048, 2048, 3584}}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.nprim);
        const qx_long ncells = (row.nprim + 1) / 2;
        seeded_lattice in(row.surface ? numbers{ncells + 1, 2, 2} : numbers{ncells + 1, 2});
        std::vector<float> data = checkered(in.dims);
        if (row.surface) { // above in one row of nodes
            data.assign(static_cast<size_t>(in.nnodes()), 0.0f);
            std::fill(data.begin(), data.begin() + ncells + 1, 1.0f);
        } else {
            if (row.nprim % 2 != 0) data[static_cast<size_t>(ncells)] = data.back() = 0;
            in.mesh.cell_count = nullptr; // a trace of lines tells no progress
        }
        answer = seed_answer();
        answer.value = 0.5f;
        host_calls::reset();
        trace_call call;
        call.run(row.surface, &in.mesh, data.data(), DTYPE_FLOAT, nullptr);
        ASSERT_EQ(call.result, 1);
        EXPECT_EQ(call.nprim, row.nprim);
        EXPECT_EQ(host_calls::resized_counts(), row.sizes);
        for (const host_calls::array &array : host_calls::seen().arrays) {
            EXPECT_EQ(array.type, DTYPE_QX_LONG);
            EXPECT_TRUE(array.resized || array.count == 1024);
        }
    }
}

// A table has 4 bytes a bucket: one for 256 nodes and 1024 besides, 100000 at most, and one to spare.
TEST(Traces, TablesStaySmallInLargeMeshes)
{
    const std::pair<qx_long, size_t> meshes[] = {{1000000, 1000000 / 256 + 1024},
                                                 {25337600, 99999}, // (100000 - 1024) * 256 is 25337856
                                                 {25337856, 100000},
                                                 {40000000, 100000}};
    for (const auto &[nnodes, nbuckets] : meshes)
        for (bool surface : {true, false}) {
            seeded_lattice in(surface ? numbers{nnodes / 4, 2, 2} : numbers{nnodes / 2, 2});
            const std::unique_ptr<unsigned char, decltype(&free)> data(
                static_cast<unsigned char *>(calloc(static_cast<size_t>(nnodes), 1)), free);
            answer = seed_answer();
            answer.cell = in.dims[0] - 2; // the last cell, from where the walk goes nowhere
            answer.value = 0.5f;
            data.get()[answer.cell + 1] = 1;
            trace_call call;
            host_calls::watch watch;
            call.run(surface, &in.mesh, data.get(), DTYPE_BYTE, nullptr);
            EXPECT_EQ(call.result, 1);
            EXPECT_EQ(call.nprim, 1);
            EXPECT_EQ(watch.largest(), 4 * (nbuckets + 1));
        }
}

TEST(Traces, RefusedMemoryIsReportedAndNothingLeaks)
{
    for (bool surface : {true, false}) {
        SCOPED_TRACE(surface);
        seeded_lattice in(surface ? numbers{10, 10, 10} : numbers{32, 32});
        const std::vector<float> data =
            surface ? meshes::random_values<float>(2, in.nnodes(), 0, 1) : checkered(in.dims);
        answer = seed_answer();
        answer.value = 0.5f;
        host_calls::reset();
        int nallocations = 0;
        qx_long nprim = 0;
        {
            trace_call call;
            host_calls::watch watch;
            call.run(surface, &in.mesh, data.data(), DTYPE_FLOAT, nullptr);
            nallocations = watch.allocations();
            ASSERT_EQ(call.result, 1);
            nprim = call.nprim;
            EXPECT_GT(nprim, 1500);
            EXPECT_EQ(watch.live_blocks(), 3);
            call.release();
            EXPECT_EQ(watch.live_blocks(), 0);
        }
        int reported = 0, silent = 0;
        for (int k = 0; k < nallocations; ++k) {
            SCOPED_TRACE(k);
            host_calls::reset();
            trace_call call;
            testing::internal::CaptureStderr();
            host_calls::watch watch;
            host_calls::fail_allocation(k);
            call.run(surface, &in.mesh, data.data(), DTYPE_FLOAT, nullptr);
            EXPECT_TRUE(host_calls::allocation_was_refused());
            EXPECT_EQ(call.result, 0);
            EXPECT_TRUE(call.is_empty());
            EXPECT_EQ(watch.live_blocks(), 0);
            EXPECT_TRUE(host_calls::seen().reports.empty());
            const std::string printed = testing::internal::GetCapturedStderr();
            EXPECT_TRUE(printed.empty() || printed == "realloc for connect list failed\n");
            ++(printed.empty() ? silent : reported);
        }
        EXPECT_GE(reported, 2);
        EXPECT_GE(silent, 10);
        host_calls::reset();
    }
}

} // namespace
