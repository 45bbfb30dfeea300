#include "support/cell_reference.hpp"
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <numeric>

using cell_reference::position;

namespace {

struct tesselator {
    const char *name;
    int kind, pieces, corners;
    tesselate_func cut;
    const char *rows; // the pieces of one cell, in order
};

const tesselator tesselators[] = {
    {"line", CELL_LINE, 2, 2, UTILtesselate_line_2, "0 2, 2 1"},
    {"tri", CELL_TRI, 4, 3, UTILtesselate_tri_2, "0 3 5, 1 4 3, 2 5 4, 3 4 5"},
    {"quad", CELL_QUAD, 6, 3, UTILtesselate_quad_2, "0 4 7, 1 5 4, 2 6 5, 3 7 6, 4 5 7, 6 7 5"},
    {"tet", CELL_TET, 8, 4, UTILtesselate_tet_2,
     "0 4 5 6, 1 7 4 9, 2 8 5 7, 3 6 8 9, 4 5 6 7, 4 6 9 7, 8 7 6 5, 8 9 6 7"},
    {"pyr", CELL_PYR, 13, 4, UTILtesselate_pyr_2,
     "11 8 12 4, 10 6 9 7, 7 6 9 5, 7 0 6 5, 10 7 9 12, 7 5 9 12, 5 1 9 12, 10 7 12 11, 10 3 7 11, 11 7 12 "
     "8, "
     "7 5 12 8, 7 0 5 8, 9 2 6 10"},
    {"prism", CELL_PRISM, 16, 4, UTILtesselate_prism_2,
     "7 2 8 14, 11 5 10 14, 11 7 8 14, 10 7 11 14, 9 6 12 10, 10 6 12 7, 7 6 12 0, 12 9 10 3, 10 7 12 11, "
     "12 3 10 11, 11 7 12 8, 7 0 12 8, 13 6 9 10, 9 4 13 10, 13 6 10 7, 13 1 6 7"},
    {"hex", CELL_HEX, 22, 4, UTILtesselate_hex_2,
     "13 6 18 14, 19 7 15 14, 19 13 18 14, 15 13 19 14, 19 10 11 3, 18 9 10 2, 18 9 19 10, 19 9 11 10, 13 9 "
     "19 18, "
     "13 9 11 19, 13 11 15 19, 13 11 16 15, 16 12 13 15, 13 8 11 9, 17 8 13 9, 13 8 16 11, 12 8 16 13, 17 8 "
     "12 13, "
     "12 5 17 13, 8 0 16 11, 17 1 8 9, 16 4 12 15"},
};

// Pieces of a prism that come out the other way round than the cell where its nodes stand as the shape
// functions have them: the table has nodes 12 and 13 exchanged.
bool is_inside_out(const tesselator &t, size_t piece)
{
    return t.kind == CELL_PRISM && (piece == 4 || piece == 5 || piece == 12 || piece == 14);
}

// The position of a node as the tables see it.
const float *tabled_position(int kind, int node)
{
    if (kind == CELL_PRISM && (node == 12 || node == 13)) node = 25 - node;
    return cell_kinds[kind].position[node];
}

const float *shape_position(int kind, int node)
{
    return cell_kinds[kind].position[node];
}

struct tesselation {
    int result = -1;
    qx_long ncells = -1;
    int nnodes = -1;
    qx_long *connect = nullptr;

    tesselation(const tesselator &t, const std::vector<qx_long> &rows)
    {
        const qx_long n = static_cast<qx_long>(rows.size()) / cell_kinds[t.kind].nnodes_2;
        result = t.cut(n, rows.data(), &ncells, &connect, &nnodes);
    }
    tesselation(const tesselation &) = delete;
    tesselation &operator=(const tesselation &) = delete;
    ~tesselation() { free(connect); } // what is handed over may be released so
};

std::vector<qx_long> row_of_positions(const tesselator &t)
{
    std::vector<qx_long> row(static_cast<size_t>(cell_kinds[t.kind].nnodes_2));
    std::iota(row.begin(), row.end(), 0);
    return row;
}

// The determinant of the edges from the last corner: length, twice the area, six times the volume, signed.
double measure(int corners, const std::vector<position> &x)
{
    double e[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (size_t row = 0; row + 1 < static_cast<size_t>(corners); ++row)
        for (size_t d = 0; d + 1 < static_cast<size_t>(corners); ++d)
            e[row][d] = x[row][d] - x[static_cast<size_t>(corners) - 1][d];
    return e[0][0] * (e[1][1] * e[2][2] - e[1][2] * e[2][1]) +
           e[0][1] * (e[1][2] * e[2][0] - e[1][0] * e[2][2]) +
           e[0][2] * (e[1][0] * e[2][1] - e[1][1] * e[2][0]);
}

// Whether a point lies in a piece, and how near to its rim: the least of its barycentric coordinates.
double least_barycentric(int corners, const std::vector<position> &x, const position &p)
{
    const double whole = measure(corners, x);
    double least = 1;
    for (size_t k = 0; k < static_cast<size_t>(corners); ++k) {
        std::vector<position> part = x;
        part[k] = p;
        least = std::min(least, measure(corners, part) / whole);
    }
    return least;
}

std::vector<position> corners_of(const tesselation &cut, size_t piece, const std::vector<position> &nodes)
{
    std::vector<position> x;
    for (int k = 0; k < cut.nnodes; ++k)
        x.push_back(nodes[static_cast<size_t>(
            cut.connect[piece * static_cast<size_t>(cut.nnodes) + static_cast<size_t>(k)])]);
    return x;
}

// Twice, or six times, the measure of a kind in its own parameters; 1 and 2 for lines and triangles.
double whole_measure(const tesselator &t)
{
    switch (t.kind) {
    case CELL_LINE: return 2;
    case CELL_TRI: return 1;
    case CELL_QUAD: return 8;
    case CELL_TET: return 1;
    case CELL_PYR: return 16;
    case CELL_PRISM: return 6;
    default: return 48;
    }
}

// Node positions of the kind in its own parameters, taken by an affine map: edges stay straight and faces
// flat.
template <typename Place>
std::vector<position> affine_nodes(const tesselator &t, std::mt19937_64 &random, double *determinant,
                                   Place place)
{
    std::uniform_real_distribution<double> spread(-0.4, 0.4);
    double m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (int r = 0; r < cell_kinds[t.kind].ndim; ++r)
        for (int c = 0; c < cell_kinds[t.kind].ndim; ++c)
            m[r][c] += spread(random);
    *determinant = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) +
                   m[0][1] * (m[1][2] * m[2][0] - m[1][0] * m[2][2]) +
                   m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    std::vector<position> nodes;
    for (int node = 0; node < cell_kinds[t.kind].nnodes_2; ++node) {
        const float *p = place(t.kind, node);
        position x = {0, 0, 0};
        for (size_t d = 0; d < 3; ++d)
            x[d] = m[d][0] * p[0] + m[d][1] * p[1] + m[d][2] * p[2];
        nodes.push_back(x);
    }
    return nodes;
}

class Tesselation : public testing::TestWithParam<tesselator> {
  protected:
    void SetUp() override { host_calls::reset(); }
};

} // namespace

TEST_P(Tesselation, PiecesComeInTheOrderOfTheTable)
{
    const tesselator &t = GetParam();
    const tesselation cut(t, row_of_positions(t));
    ASSERT_EQ(cut.result, 1);
    EXPECT_EQ(cut.ncells, t.pieces);
    EXPECT_EQ(cut.nnodes, t.corners);
    std::string rows;
    for (int i = 0; i < t.pieces * t.corners; ++i)
        rows += (i == 0 ? "" : i % t.corners == 0 ? ", " : " ") + std::to_string(cut.connect[i]);
    EXPECT_EQ(rows, t.rows);
}

TEST_P(Tesselation, CellsFollowOneAnotherEachWithItsOwnNodes)
{
    const tesselator &t = GetParam();
    const size_t nnodes = static_cast<size_t>(cell_kinds[t.kind].nnodes_2);
    const tesselation one(t, row_of_positions(t));
    std::vector<qx_long> rows;
    const qx_long far = INT_MAX * qx_long{5}; // node numbers are 64-bit
    for (qx_long c = 0; c < 50; ++c)
        for (size_t k = 0; k < nnodes; ++k)
            rows.push_back(far + 100 * c - 3 * static_cast<qx_long>(k));
    const tesselation cut(t, rows);
    ASSERT_EQ(cut.result, 1);
    ASSERT_EQ(cut.ncells, 50 * t.pieces);
    for (qx_long c = 0; c < 50; ++c)
        for (qx_long i = 0; i < t.pieces * t.corners; ++i)
            ASSERT_EQ(cut.connect[c * t.pieces * t.corners + i], far + 100 * c - 3 * one.connect[i]);
}

TEST_P(Tesselation, PiecesFillTheCellTheSameWayRound)
{
    const tesselator &t = GetParam();
    const tesselation cut(t, row_of_positions(t));
    std::mt19937_64 random(21);
    for (int i = 0; i < 40; ++i) {
        const bool as_tabled = i % 2 == 0;
        double stretch;
        const std::vector<position> nodes =
            affine_nodes(t, random, &stretch, as_tabled ? tabled_position : shape_position);
        double sum = 0;
        for (size_t piece = 0; piece < static_cast<size_t>(t.pieces); ++piece) {
            const std::vector<position> x = corners_of(cut, piece, nodes);
            // A line runs from its first node to its last, against the edge from the last.
            const double signed_measure = measure(t.corners, x) / stretch * (t.kind == CELL_LINE ? -1 : 1);
            EXPECT_EQ(signed_measure < 0, !as_tabled && is_inside_out(t, piece)) << "piece " << piece;
            EXPECT_GT(std::fabs(signed_measure), 0.01) << "piece " << piece << " has no extent";
            sum += std::fabs(signed_measure);
        }
        EXPECT_NEAR(sum, whole_measure(t), 1e-12);
    }
}

namespace {

// Of random points in the cell, how many lie in no piece, in one, in more.
std::array<int, 3> count_pieces_about_points(const tesselator &t, const float *(*place)(int, int))
{
    const tesselation cut(t, row_of_positions(t));
    std::mt19937_64 random(22);
    double stretch;
    const std::vector<position> nodes = affine_nodes(t, random, &stretch, place);
    std::uniform_real_distribution<double> weight(0, 1);
    std::array<int, 3> points = {0, 0, 0};
    for (int i = 0; i < 3000; ++i) {
        position p = {0, 0, 0}; // a mean of the corners: all kinds are convex
        double sum = 0;
        for (size_t corner = 0; corner < static_cast<size_t>(cell_kinds[t.kind].ncorners); ++corner) {
            const double share = std::pow(weight(random), 3);
            sum += share;
            for (size_t d = 0; d < 3; ++d)
                p[d] += share * nodes[corner][d];
        }
        for (double &x : p)
            x /= sum;
        size_t inside = 0;
        bool on_rim = false;
        for (size_t piece = 0; piece < static_cast<size_t>(t.pieces); ++piece) {
            const double least = least_barycentric(t.corners, corners_of(cut, piece, nodes), p);
            inside += least > 0;
            on_rim = on_rim || std::fabs(least) < 1e-9;
        }
        if (!on_rim) ++points[std::min<size_t>(inside, 2)];
    }
    return points;
}

} // namespace

TEST_P(Tesselation, EachPointLiesInOnePiece)
{
    const std::array<int, 3> points = count_pieces_about_points(GetParam(), tabled_position);
    EXPECT_EQ(points[0], 0);
    EXPECT_GT(points[1], 2900);
    EXPECT_EQ(points[2], 0);
}

TEST(TesselationOfPrisms, NumberedAsTheShapeFunctionsDoOverlapsAndLeavesRoom)
{
    for (const tesselator &t : tesselators) {
        const std::array<int, 3> points = count_pieces_about_points(t, shape_position);
        EXPECT_EQ(points[0] > 0, t.kind == CELL_PRISM) << t.name;
        EXPECT_EQ(points[2] > 0, t.kind == CELL_PRISM) << t.name;
    }
}

TEST_P(Tesselation, OfNoCellsIsAnEmptyList)
{
    const tesselator &t = GetParam();
    const host_calls::watch watch;
    qx_long ncells = -1, *connect = nullptr;
    int nnodes = -1;
    EXPECT_EQ(t.cut(0, nullptr, &ncells, &connect, &nnodes), 1);
    EXPECT_EQ(ncells, 0);
    EXPECT_EQ(nnodes, t.corners);
    EXPECT_NE(connect, nullptr);
    EXPECT_EQ(watch.allocations(), 1);
    ARRfree_f(connect, "test", __LINE__);
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST_P(Tesselation, WithoutMemoryGives0AndNoList)
{
    const tesselator &t = GetParam();
    const std::vector<qx_long> row = row_of_positions(t);
    const host_calls::watch watch;
    host_calls::fail_allocation(0);
    qx_long ncells = -1, other = 0, *connect = &other;
    int nnodes = -1;
    EXPECT_EQ(t.cut(1, row.data(), &ncells, &connect, &nnodes), 0);
    EXPECT_TRUE(host_calls::allocation_was_refused());
    EXPECT_EQ(connect, nullptr);
    EXPECT_EQ(ncells, t.pieces);
    EXPECT_EQ(nnodes, t.corners);
    EXPECT_EQ(watch.live_blocks(), 0);
    EXPECT_TRUE(host_calls::seen().reports.empty());
    EXPECT_EQ(t.cut(1, row.data(), &ncells, &connect, &nnodes), 1);
    ARRfree_f(connect, "test", __LINE__);
}

TEST_P(Tesselation, TooLongToBeAddressedGives0WithoutAskingForMemory)
{
    const tesselator &t = GetParam();
    const host_calls::watch watch;
    for (qx_long many : {INT64_MAX, INT64_MAX / 8, INT64_MAX / (t.pieces * t.corners * 8) + 1}) {
        qx_long ncells = -1, other = 0, *connect = &other;
        int nnodes = -1;
        EXPECT_EQ(t.cut(many, nullptr, &ncells, &connect, &nnodes), 0);
        EXPECT_EQ(connect, nullptr);
        EXPECT_EQ(ncells, 0);
    }
    EXPECT_EQ(watch.allocations(), 0);
}

// Neighbouring cells of one mesh: the pieces of all cells fill the box that the cells fill.
TEST_P(Tesselation, OfAMeshFillsItsBox)
{
    const tesselator &t = GetParam();
    const meshes::mesh_ptr made = meshes::cells(t.kind, 2, {2, 3, 2}, 1);
    std::vector<position> nodes;
    for (qx_long node = 0; node < made->nnodes(); ++node)
        nodes.push_back({meshes::at(*made, node, 0), meshes::at(*made, node, 1), meshes::at(*made, node, 2)});
    const tesselation cut(t, made->connect[0]);
    ASSERT_EQ(cut.result, 1);
    double sum = 0;
    for (size_t piece = 0; piece < static_cast<size_t>(cut.ncells); ++piece)
        sum += std::fabs(measure(t.corners, corners_of(cut, piece, nodes)));
    const int ndim = cell_kinds[t.kind].ndim;
    EXPECT_NEAR(sum, ndim == 3 ? 6 : ndim == 2 ? 2 : 1, 1e-5);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Tesselation, testing::ValuesIn(tesselators),
                         [](const testing::TestParamInfo<tesselator> &row) { return row.param.name; });
