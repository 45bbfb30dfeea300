// The tables are held against the geometry of the cells: what is crossed, what is kept, and whether the
// pieces fill it. Positions are those of the shape functions; new nodes stand at midpoints unless a test says
// otherwise.
#include <skoklana/cell_nodes.h>
#include <skoklana/tables.h>

#include "cut_cases.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using crossing = std::pair<int, int>; // lower corner, higher corner
using place = std::array<double, 3>;
using simplex = std::vector<int>; // corners, then new nodes of its row from ncorners on

// A volume cell's sides are counter-clockwise seen from outside; a surface cell is its only side.
struct cut_kind_under_test {
    std::string name;
    int shape, ncorners, ncases;
    int npoints, ncells, nentries; // of all cases
    cut_list whole, pieces;
    std::vector<std::vector<int>> sides;

    int last() const { return (1 << ncorners) - 1; }
    int nnodes() const { return cut_list_nnodes[pieces]; }
};

const cut_kind_under_test hex_kind = {
    "hex",    CELL_HEX,
    8,        255,
    1536,     1608,
    6432,     HEX_LIST,
    TET_LIST, {{0, 1, 2, 3}, {4, 7, 6, 5}, {0, 4, 5, 1}, {1, 5, 6, 2}, {2, 6, 7, 3}, {3, 7, 4, 0}}};
const cut_kind_under_test prism_kind = {
    "prism",  CELL_PRISM,
    6,        64,
    288,      274,
    1096,     PRISM_LIST,
    TET_LIST, {{0, 1, 2}, {3, 5, 4}, {0, 3, 4, 1}, {1, 4, 5, 2}, {2, 5, 3, 0}}};
const cut_kind_under_test pyr_kind = {
    "pyr", CELL_PYR, 5,        32,       128,
    121,   484,      PYR_LIST, TET_LIST, {{4, 3, 2, 1}, {0, 1, 2}, {0, 2, 3}, {0, 3, 4}, {0, 4, 1}}};
const cut_kind_under_test tet_kind = {
    "tet", CELL_TET, 4, 16, 48, 34, 136, TET_LIST, TET_LIST, {{0, 1, 2}, {0, 3, 1}, {1, 3, 2}, {0, 2, 3}}};
const cut_kind_under_test quad_kind = {"quad", CELL_QUAD, 4,         16,       32,
                                       30,     90,        QUAD_LIST, TRI_LIST, {{0, 1, 2, 3}}};
const cut_kind_under_test tri_kind = {"tri", CELL_TRI, 3, 8, 12, 9, 27, TRI_LIST, TRI_LIST, {{0, 1, 2}}};
const cut_kind_under_test line_kind = {"line", CELL_LINE, 2, 4, 1, 2, 4, LINE_LIST, LINE_LIST, {}};

struct cut_arrays {
    const int *nold, *nnew, *first_point, *ncell, *first_cell, *first_entry;
    const unsigned char *min, *max, *type, *nnode, *connect, *is_new;
    const cut_case *records;
};

const cut_arrays &arrays_of(const cut_kind_under_test &of)
{
#define ARRAYS(k)                                                                                       \
    {                                                                                                   \
        CUTnold_nodes_##k, CUTnnew_nodes_##k, CUTm_ind_##k, CUTncell_##k, CUTt_ind_##k, CUTc_ind_##k,   \
            CUTmin_node_##k, CUTmax_node_##k, CUTcell_type_##k, CUTcell_nnode_##k, CUTconnect_list_##k, \
            CUTnew_flag_list_##k, cut_rows_##k                                                          \
    }
    static const std::map<std::string, cut_arrays> all = {
        {"hex", ARRAYS(hex)},   {"prism", ARRAYS(prism)}, {"pyr", ARRAYS(pyr)},  {"tet", ARRAYS(tet)},
        {"quad", ARRAYS(quad)}, {"tri", ARRAYS(tri)},     {"line", ARRAYS(line)}};
#undef ARRAYS
    return all.at(of.name);
}

struct cut_row {
    std::vector<crossing> points;
    std::vector<simplex> cells;
};

cut_row row_of(const cut_kind_under_test &of, int index)
{
    const cut_arrays &from = arrays_of(of);
    cut_row row;
    for (int p = from.first_point[index]; p < from.first_point[index] + from.nnew[index]; ++p)
        row.points.push_back({from.min[p], from.max[p]});
    int entry = from.first_entry[index];
    for (int c = from.first_cell[index]; c < from.first_cell[index] + from.ncell[index]; ++c) {
        row.cells.emplace_back();
        for (int i = 0; i < from.nnode[c]; ++i, ++entry)
            row.cells.back().push_back(from.connect[entry] + (from.is_new[entry] != 0 ? of.ncorners : 0));
    }
    return row;
}

std::string text_of(const cut_kind_under_test &of, const cut_row &row)
{
    std::string text;
    for (const crossing &p : row.points)
        text += std::to_string(p.first) + std::to_string(p.second) + " ";
    text += ":";
    for (const simplex &cell : row.cells) {
        text += " ";
        for (int node : cell)
            text += static_cast<char>(node < of.ncorners ? '0' + node : 'a' + node - of.ncorners);
    }
    return text;
}

bool kept(int index, int corner)
{
    return (index >> corner & 1) != 0;
}

std::vector<crossing> edges_of(const cut_kind_under_test &of)
{
    if (of.sides.empty()) return {{0, 1}};
    std::set<crossing> edges;
    for (const std::vector<int> &side : of.sides)
        for (size_t i = 0; i < side.size(); ++i)
            edges.insert(std::minmax(side[i], side[(i + 1) % side.size()]));
    return {edges.begin(), edges.end()};
}

// ---- geometry --------------------------------------------------------------------------------------------

place minus(const place &a, const place &b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

place cross(const place &a, const place &b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

double dot(const place &a, const place &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

place corner_at(const cut_kind_under_test &of, int corner)
{
    const float *at = cell_kinds[of.shape].position[corner];
    return {at[0], at[1], at[2]};
}

// The corners, then new nodes at a part of the way from the lower corner to the higher one.
template <typename Part>
std::vector<place> places_of(const cut_kind_under_test &of, const cut_row &row, Part part)
{
    std::vector<place> places;
    for (int c = 0; c < of.ncorners; ++c)
        places.push_back(corner_at(of, c));
    for (const crossing &p : row.points) {
        const place a = places[static_cast<size_t>(p.first)], b = places[static_cast<size_t>(p.second)];
        const double t = part(p);
        places.push_back({a[0] + t * (b[0] - a[0]), a[1] + t * (b[1] - a[1]), a[2] + t * (b[2] - a[2])});
    }
    return places;
}

std::vector<place> at_midpoints(const cut_kind_under_test &of, const cut_row &row)
{
    return places_of(of, row, [](const crossing &) { return 0.5; });
}

// Six times a volume, twice an area, a length: positive in the sense of a first-order cell.
double size_of(const simplex &cell, const std::vector<place> &at)
{
    const auto p = [&](size_t i) { return at[static_cast<size_t>(cell[i])]; };
    if (cell.size() == 2) return p(1)[0] - p(0)[0];
    if (cell.size() == 3) return cross(minus(p(1), p(0)), minus(p(2), p(0)))[2];
    return -dot(minus(p(1), p(0)), cross(minus(p(2), p(0)), minus(p(3), p(0))));
}

double size_of(const cut_row &row, const std::vector<place> &at)
{
    double sum = 0;
    for (const simplex &cell : row.cells)
        sum += size_of(cell, at);
    return sum;
}

// The cell cut into simplices from its first corner: sides that hold it add nothing.
double whole_size(const cut_kind_under_test &of)
{
    const std::vector<place> at = at_midpoints(of, {});
    if (of.sides.empty()) return size_of({0, 1}, at);
    double sum = 0;
    for (const std::vector<int> &side : of.sides)
        for (size_t i = 1; i + 1 < side.size(); ++i)
            sum += of.sides.size() == 1 ? size_of({side[0], side[i], side[i + 1]}, at)
                                        : std::fabs(size_of({0, side[0], side[i], side[i + 1]}, at));
    return sum;
}

// Whether the insides of two simplices meet: no axis across a face or across two edges parts them.
bool overlap(const simplex &a, const std::vector<place> &at_a, const simplex &b,
             const std::vector<place> &at_b)
{
    std::vector<place> p, q, axes;
    for (int node : a)
        p.push_back(at_a[static_cast<size_t>(node)]);
    for (int node : b)
        q.push_back(at_b[static_cast<size_t>(node)]);
    std::vector<place> edges;
    for (const auto *corners : {&p, &q})
        for (size_t i = 0; i < corners->size(); ++i)
            for (size_t j = 0; j < i; ++j)
                edges.push_back(minus((*corners)[i], (*corners)[j]));
    const bool flat = a.size() == 3;
    for (size_t i = 0; i < edges.size(); ++i) {
        if (flat) axes.push_back({-edges[i][1], edges[i][0], 0});
        for (size_t j = 0; j < i && !flat; ++j)
            axes.push_back(cross(edges[i], edges[j]));
    }
    for (const place &axis : axes) {
        if (dot(axis, axis) == 0) continue;
        double low[2] = {1e9, 1e9}, high[2] = {-1e9, -1e9};
        for (int which = 0; which < 2; ++which)
            for (const place &corner : which == 0 ? p : q) {
                low[which] = std::min(low[which], dot(axis, corner));
                high[which] = std::max(high[which], dot(axis, corner));
            }
        if (high[0] <= low[1] || high[1] <= low[0]) return false;
    }
    return true;
}

simplex from_smallest(simplex t)
{
    std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
    return t;
}

// Faces of a tetrahedron, or sides of a triangle, all seen from outside.
std::vector<simplex> boundary_of(const simplex &c)
{
    if (c.size() == 3) return {{c[0], c[1]}, {c[1], c[2]}, {c[2], c[0]}};
    return {from_smallest({c[1], c[3], c[2]}), from_smallest({c[0], c[2], c[3]}),
            from_smallest({c[0], c[3], c[1]}), from_smallest({c[0], c[1], c[2]})};
}

simplex turned_over(const simplex &t)
{
    return t.size() == 2 ? simplex{t[1], t[0]} : from_smallest({t[0], t[2], t[1]});
}

// What is left of the pieces' boundaries once those that two pieces share are gone.
std::multiset<simplex> outer_boundary(const cut_row &row)
{
    std::multiset<simplex> open;
    for (const simplex &cell : row.cells)
        for (const simplex &face : boundary_of(cell)) {
            const auto other = open.find(turned_over(face));
            if (other != open.end())
                open.erase(other);
            else
                open.insert(face);
        }
    return open;
}

// A node of a row as the corners that it is at or between.
std::set<int> corners_of(const cut_kind_under_test &of, const cut_row &row, int node)
{
    if (node < of.ncorners) return {node};
    const crossing &p = row.points[static_cast<size_t>(node - of.ncorners)];
    return {p.first, p.second};
}

bool lies_on(const cut_kind_under_test &of, const cut_row &row, const simplex &face,
             const std::vector<int> &side)
{
    for (int node : face)
        for (int corner : corners_of(of, row, node))
            if (std::find(side.begin(), side.end(), corner) == side.end()) return false;
    return true;
}

// The kept polygons of a side of a volume cell, each from the crossing that leads in to the one that leads
// out.
std::vector<simplex> kept_polygons(const cut_kind_under_test &of, const cut_row &row, int index,
                                   const std::vector<int> &side)
{
    const size_t n = side.size();
    const auto point_between = [&](int a, int b) {
        const crossing edge = std::minmax(a, b);
        return of.ncorners +
               static_cast<int>(std::find(row.points.begin(), row.points.end(), edge) - row.points.begin());
    };
    if (std::all_of(side.begin(), side.end(), [&](int c) { return kept(index, c); })) return {side};
    std::vector<simplex> polygons;
    for (size_t in = 0; in < n; ++in) {
        if (kept(index, side[in]) || !kept(index, side[(in + 1) % n])) continue;
        simplex polygon = {point_between(side[in], side[(in + 1) % n])};
        size_t at = in + 1;
        for (; kept(index, side[at % n]); ++at)
            polygon.push_back(side[at % n]);
        polygon.push_back(point_between(side[(at - 1) % n], side[at % n]));
        polygons.push_back(polygon);
    }
    return polygons;
}

place area_of(const simplex &polygon, const std::vector<place> &at)
{
    place sum = {};
    for (size_t i = 1; i + 1 < polygon.size(); ++i) {
        const place a = at[static_cast<size_t>(polygon[0])];
        const place n = cross(minus(at[static_cast<size_t>(polygon[i])], a),
                              minus(at[static_cast<size_t>(polygon[i + 1])], a));
        for (size_t d = 0; d < 3; ++d)
            sum[d] += n[d];
    }
    return sum;
}

bool has_diagonal_side(const cut_kind_under_test &of, int index)
{
    for (const std::vector<int> &side : of.sides)
        if (side.size() == 4 && kept(index, side[0]) == kept(index, side[2]) &&
            kept(index, side[1]) == kept(index, side[3]) && kept(index, side[0]) != kept(index, side[1]))
            return true;
    return false;
}

class CutTables : public testing::TestWithParam<const cut_kind_under_test *> {};
class CutTablesOfVolumes : public testing::TestWithParam<const cut_kind_under_test *> {};

std::string hash_of_rows(const cut_kind_under_test &of)
{
    uint32_t seed = 2166136261u;
    for (int index = 1; index < of.last(); ++index)
        for (char c : text_of(of, row_of(of, index)) + "\n")
            seed = (seed ^ static_cast<unsigned char>(c)) * 16777619u;
    char text[16];
    std::snprintf(text, sizeof text, "%08x", seed);
    return text;
}

} // namespace

TEST_P(CutTables, NewNodesAreTheCrossedEdgesLowerCornerFirst)
{
    const cut_kind_under_test &of = *GetParam();
    for (int index = 1; index < of.last(); ++index) {
        std::set<crossing> crossed;
        for (const crossing &edge : edges_of(of))
            if (kept(index, edge.first) != kept(index, edge.second)) crossed.insert(edge);
        const cut_row row = row_of(of, index);
        EXPECT_EQ(std::set<crossing>(row.points.begin(), row.points.end()), crossed) << index;
        EXPECT_EQ(row.points.size(), crossed.size()) << index;
    }
}

TEST_P(CutTables, PiecesUseAllKeptCornersAndNewNodesAndNothingElse)
{
    const cut_kind_under_test &of = *GetParam();
    for (int index = 1; index < of.last(); ++index) {
        const cut_row row = row_of(of, index);
        std::set<int> used, expected;
        for (const simplex &cell : row.cells) {
            EXPECT_EQ(std::set<int>(cell.begin(), cell.end()).size(), cell.size()) << index;
            used.insert(cell.begin(), cell.end());
        }
        for (int c = 0; c < of.ncorners; ++c)
            if (kept(index, c)) expected.insert(c);
        for (size_t p = 0; p < row.points.size(); ++p)
            expected.insert(of.ncorners + static_cast<int>(p));
        EXPECT_EQ(used, expected) << index;
    }
}

TEST_P(CutTables, RunsFollowEachOtherInOrderOfCases)
{
    const cut_kind_under_test &of = *GetParam();
    const cut_arrays &from = arrays_of(of);
    int points = 0, cells = 0, entries = 0;
    for (int index = 0; index < of.ncases; ++index) {
        int bits = 0;
        for (int c = 0; c < of.ncorners; ++c)
            bits += kept(index, c);
        const bool has_entry = of.name != "tet" || index < 15;
        if (has_entry) {
            EXPECT_EQ(from.nold[index], bits);
        }
        if (index == 0 || index == of.last()) {
            if (has_entry) {
                EXPECT_EQ(from.nnew[index], 0);
            }
            EXPECT_EQ(from.ncell[index], 0);
            continue;
        }
        if (of.name == "line") points = 0;
        EXPECT_EQ(from.first_point[index], points) << index;
        EXPECT_EQ(from.first_cell[index], cells) << index;
        EXPECT_EQ(from.first_entry[index], entries) << index;
        points += from.nnew[index];
        cells += from.ncell[index];
        entries += from.ncell[index] * of.nnodes();
    }
    EXPECT_EQ(points, of.npoints);
    EXPECT_EQ(cells, of.ncells);
    EXPECT_EQ(entries, of.nentries);
    for (int c = 0; c < cells; ++c) {
        EXPECT_EQ(from.type[c], of.pieces);
        EXPECT_EQ(from.nnode[c], of.nnodes());
    }
}

TEST_P(CutTables, NoPieceIsInvertedAtMidpoints)
{
    const cut_kind_under_test &of = *GetParam();
    const std::map<std::string, std::set<std::string>> known_flat = {
        {"prism", {"29 20fe", "31 20cb", "43 f35a"}}, {"pyr", {"14 c23d", "22 41ed", "23 41ac"}}};
    std::set<std::string> flat;
    for (int index = 1; index < of.last(); ++index) {
        const cut_row row = row_of(of, index);
        const std::vector<place> at = at_midpoints(of, row);
        for (const simplex &cell : row.cells) {
            EXPECT_GE(size_of(cell, at), 0) << of.name << index << " " << text_of(of, {{}, {cell}});
            if (size_of(cell, at) == 0)
                flat.insert(std::to_string(index) + text_of(of, {{}, {cell}}).substr(1));
        }
    }
    if (of.name == "hex")
        EXPECT_EQ(flat.size(), 18u);
    else if (known_flat.count(of.name) != 0)
        EXPECT_EQ(flat, known_flat.at(of.name));
    else
        EXPECT_TRUE(flat.empty());
}

TEST_P(CutTables, NothingOverlapsAtMidpoints)
{
    const cut_kind_under_test &of = *GetParam();
    if (of.name == "line") return;
    for (int index = 1; index < of.last(); ++index) {
        const cut_row row = row_of(of, index), other = row_of(of, of.last() - index);
        const std::vector<place> at = at_midpoints(of, row), at_other = at_midpoints(of, other);
        for (size_t i = 0; i < row.cells.size(); ++i) {
            if (size_of(row.cells[i], at) == 0) continue;
            for (size_t j = 0; j < i; ++j)
                EXPECT_FALSE(size_of(row.cells[j], at) != 0 && overlap(row.cells[i], at, row.cells[j], at))
                    << of.name << " " << index;
            for (const simplex &cell : other.cells)
                EXPECT_FALSE(size_of(cell, at_other) != 0 && overlap(row.cells[i], at, cell, at_other))
                    << of.name << " " << index << " and its complement";
        }
    }
}

// Where the crossings lie in a plane nothing is inverted and the two sides of the level fill the cell.
TEST_P(CutTables, LinearFieldsSplitTheCellInTwo)
{
    const cut_kind_under_test &of = *GetParam();
    std::mt19937 random(5);
    std::uniform_real_distribution<double> any(-1, 1);
    std::set<int> seen;
    for (int trial = 0; trial < 4000; ++trial) {
        const place slope = {any(random), any(random), any(random)};
        const double level = any(random);
        std::vector<double> value;
        int index = 0;
        for (int c = 0; c < of.ncorners; ++c) {
            value.push_back(dot(slope, corner_at(of, c)) - level);
            if (value.back() >= 0) index |= 1 << c;
        }
        if (index == 0 || index == of.last()) continue;
        seen.insert(index);
        double sum = 0;
        for (int side : {index, of.last() - index}) {
            const cut_row row = row_of(of, side);
            const std::vector<place> at = places_of(of, row, [&](const crossing &p) {
                const double a = value[static_cast<size_t>(p.first)],
                             b = value[static_cast<size_t>(p.second)];
                return a / (a - b);
            });
            for (const simplex &cell : row.cells)
                EXPECT_GE(size_of(cell, at), -1e-12) << of.name << " " << side;
            sum += size_of(row, at);
        }
        EXPECT_NEAR(sum, whole_size(of), 1e-9) << of.name << " " << index;
    }
    EXPECT_GE(seen.size(), of.ncorners > 4 ? 20u : 2u);
}

TEST_P(CutTables, RecordsSayTheSame)
{
    const cut_kind_under_test &of = *GetParam();
    const cut_kind &kind = cut_kinds[of.whole];
    EXPECT_EQ(kind.ncorners, of.ncorners);
    EXPECT_EQ(kind.last_case, of.last());
    EXPECT_EQ(kind.whole_list, of.whole);
    EXPECT_EQ(kind.piece_list, of.pieces);
    EXPECT_EQ(kind.rows, arrays_of(of).records);
    for (int index = 0; index <= of.last(); ++index) {
        const cut_case &record = kind.rows[index];
        if (index == 0 || index == of.last()) {
            EXPECT_EQ(record.npoints + record.ncells + record.nlines, 0);
            continue;
        }
        cut_row row;
        for (int p = 0; p < record.npoints; ++p)
            row.points.push_back({record.left[p], record.right[p]});
        for (int c = 0; c < record.ncells; ++c)
            row.cells.emplace_back(record.nodes + c * of.nnodes(), record.nodes + (c + 1) * of.nnodes());
        EXPECT_EQ(text_of(of, row), text_of(of, row_of(of, index)));
    }
}

TEST_P(CutTablesOfVolumes, PiecesFillExactlyTheKeptPartOfEachSide)
{
    const cut_kind_under_test &of = *GetParam();
    for (int index = 1; index < of.last(); ++index) {
        const cut_row row = row_of(of, index);
        const std::vector<place> at = at_midpoints(of, row);
        std::multiset<simplex> left = outer_boundary(row);
        for (const std::vector<int> &side : of.sides) {
            const std::vector<simplex> polygons = kept_polygons(of, row, index, side);
            place expected = {}, sum = {};
            for (const simplex &polygon : polygons)
                for (size_t d = 0; d < 3; ++d)
                    expected[d] += area_of(polygon, at)[d];
            std::vector<simplex> found;
            for (auto face = left.begin(); face != left.end();) {
                if (!lies_on(of, row, *face, side)) {
                    ++face;
                    continue;
                }
                // A triangle of one kept polygon, seen from outside as the polygon is.
                bool inside = false;
                for (const simplex &polygon : polygons)
                    inside = inside || std::all_of(face->begin(), face->end(), [&](int node) {
                                 return std::find(polygon.begin(), polygon.end(), node) != polygon.end();
                             });
                EXPECT_TRUE(inside) << of.name << " " << index;
                EXPECT_GT(dot(area_of(*face, at), area_of(side, at)), 0) << of.name << " " << index;
                for (size_t d = 0; d < 3; ++d)
                    sum[d] += area_of(*face, at)[d];
                face = left.erase(face);
            }
            EXPECT_EQ(sum, expected) << of.name << " " << index;
        }
        for (const simplex &face : left)
            for (int node : face)
                EXPECT_GE(node, of.ncorners) << of.name << " " << index << ": an inner face has one piece";
    }
}

TEST(CutTablesOfSurfaces, PiecesCloseUpOnTheSidesAndTheLines)
{
    for (const cut_kind_under_test *of : {&quad_kind, &tri_kind}) {
        int nlines = 0;
        for (int index = 1; index < of->last(); ++index) {
            const cut_row row = row_of(*of, index);
            const std::vector<place> at = at_midpoints(*of, row);
            std::set<crossing> lines;
            std::map<crossing, double> along; // the length that is kept of each side
            for (const simplex &edge : outer_boundary(row)) {
                std::set<int> corners = corners_of(*of, row, edge[0]);
                for (int corner : corners_of(*of, row, edge[1]))
                    corners.insert(corner);
                const place step = minus(at[static_cast<size_t>(edge[1])], at[static_cast<size_t>(edge[0])]);
                if (corners.size() == 2)
                    along[{*corners.begin(), *corners.rbegin()}] += std::sqrt(dot(step, step));
                else
                    lines.insert(std::minmax(edge[0] - of->ncorners, edge[1] - of->ncorners));
            }
            for (const crossing &edge : edges_of(*of)) {
                const place step = minus(corner_at(*of, edge.second), corner_at(*of, edge.first));
                const int nkept = kept(index, edge.first) + kept(index, edge.second);
                EXPECT_NEAR(along[edge], nkept * std::sqrt(dot(step, step)) / 2, 1e-12) << of->name << index;
            }
            const int *count = of == &quad_kind ? CUTedge_nline_quad : CUTedge_nline_tri;
            const int *first = of == &quad_kind ? CUTedge_cind_quad : CUTedge_cind_tri;
            const unsigned char *connect =
                of == &quad_kind ? CUTedge_connect_list_quad : CUTedge_connect_list_tri;
            const cut_case &record = arrays_of(*of).records[index];
            ASSERT_EQ(count[index], static_cast<int>(lines.size())) << of->name << index;
            ASSERT_EQ(record.nlines, count[index]);
            EXPECT_EQ(first[index], 2 * nlines);
            std::set<crossing> listed;
            for (int l = 0; l < count[index]; ++l) {
                listed.insert({connect[first[index] + 2 * l], connect[first[index] + 2 * l + 1]});
                EXPECT_EQ(record.lines[2 * l], connect[first[index] + 2 * l]);
                EXPECT_EQ(record.lines[2 * l + 1], connect[first[index] + 2 * l + 1]);
            }
            EXPECT_EQ(listed, lines) << of->name << index;
            nlines += count[index];
        }
        EXPECT_EQ(nlines, of == &quad_kind ? 16 : 6);
        EXPECT_EQ((of == &quad_kind ? CUTedge_nline_quad : CUTedge_nline_tri)[0], 0);
        EXPECT_EQ((of == &quad_kind ? CUTedge_nline_quad : CUTedge_nline_tri)[of->last()], 0);
    }
}

const cut_kind_under_test *const all_cut_kinds[] = {&hex_kind,  &prism_kind, &pyr_kind, &tet_kind,
                                                    &quad_kind, &tri_kind,   &line_kind};
INSTANTIATE_TEST_SUITE_P(Kinds, CutTables, testing::ValuesIn(all_cut_kinds),
                         [](const auto &p) { return p.param->name; });
INSTANTIATE_TEST_SUITE_P(Kinds, CutTablesOfVolumes,
                         testing::Values(&hex_kind, &prism_kind, &pyr_kind, &tet_kind),
                         [](const auto &p) { return p.param->name; });

TEST(CutTablesHex, CountsOfTetrahedra)
{
    std::map<int, int> cases_with;
    for (int index = 1; index < 255; ++index)
        ++cases_with[CUTncell_hex[index]];
    EXPECT_EQ(cases_with, (std::map<int, int>{{1, 8},
                                              {2, 16},
                                              {3, 20},
                                              {4, 26},
                                              {5, 24},
                                              {6, 36},
                                              {7, 31},
                                              {8, 28},
                                              {9, 38},
                                              {10, 18},
                                              {11, 4},
                                              {12, 4},
                                              {13, 1}}));
    EXPECT_EQ(CUTncell_hex[1], 1);
    EXPECT_EQ(CUTncell_hex[254], 13);
    EXPECT_EQ(CUTncell_quad[5], 4);
    EXPECT_EQ(CUTncell_quad[10], 2);
}

// Without diagonal corners the two sides of the level end in the same triangles: nothing is lost or taken
// twice, wherever the crossings are.
TEST(CutTablesHex, ComplementsEndInTheSameTriangles)
{
    int npairs = 0;
    for (int index = 1; index < 128; ++index) {
        std::set<std::set<crossing>> ends[2];
        for (int which = 0; which < 2; ++which) {
            const cut_row row = row_of(hex_kind, which == 0 ? index : 255 - index);
            for (const simplex &face : outer_boundary(row)) {
                bool on_side = false;
                for (const std::vector<int> &side : hex_kind.sides)
                    on_side = on_side || lies_on(hex_kind, row, face, side);
                if (on_side) continue;
                std::set<crossing> points;
                for (int node : face)
                    points.insert(row.points[static_cast<size_t>(node - 8)]);
                ends[which].insert(points);
            }
        }
        if (has_diagonal_side(hex_kind, index)) {
            ++npairs;
            continue;
        }
        EXPECT_EQ(ends[0], ends[1]) << index;
    }
    EXPECT_GT(npairs, 0);
    EXPECT_LT(npairs, 127);
}

// A volume is linear in the place of each new node: whoever is not inverted with new nodes at the ends of
// their edges never is.
TEST(CutTablesHex, NoPieceIsInvertedWhereverTheCrossingsAre)
{
    for (int index = 1; index < 255; ++index) {
        const cut_row row = row_of(hex_kind, index);
        for (unsigned ends = 0; ends < 1u << row.points.size(); ++ends) {
            size_t point = 0;
            const std::vector<place> at =
                places_of(hex_kind, row, [&](const crossing &) { return ends >> point++ & 1; });
            for (const simplex &cell : row.cells)
                if (size_of(cell, at) < 0) FAIL() << "case " << index;
        }
    }
}

TEST(CutTablesAll, WhereDiagonalCornersLeaveAGap)
{
    const auto covered = [](const cut_kind_under_test &of, int index) {
        double sum = 0;
        for (int side : {index, of.last() - index})
            sum += size_of(row_of(of, side), at_midpoints(of, row_of(of, side)));
        return sum / whole_size(of);
    };
    EXPECT_DOUBLE_EQ(covered(hex_kind, 165), 1.0 / 6);
    EXPECT_EQ(CUTncell_hex[165], 4);
    EXPECT_EQ(CUTncell_hex[90], 4);
    EXPECT_DOUBLE_EQ(covered(prism_kind, 19), 5.0 / 6);
    EXPECT_DOUBLE_EQ(covered(prism_kind, 26), 5.0 / 6);
    EXPECT_DOUBLE_EQ(covered(pyr_kind, 5), 7.0 / 8);
    for (int index = 1; index < 255; ++index)
        if (!has_diagonal_side(hex_kind, index)) {
            EXPECT_DOUBLE_EQ(covered(hex_kind, index), 1) << index;
        }
    for (int index = 1; index < 15; ++index)
        EXPECT_DOUBLE_EQ(covered(tet_kind, index), 1) << index;
}

TEST(CutTablesAll, RowsInTheirOrder)
{
    EXPECT_EQ(text_of(tet_kind, row_of(tet_kind, 1)), "01 03 02 : b0ca");
    EXPECT_EQ(text_of(hex_kind, row_of(hex_kind, 1)), "01 03 04 : c0ba");
    EXPECT_EQ(text_of(hex_kind, row_of(hex_kind, 254)),
              "03 01 04 : 2156 b126 51b6 b2a6 3276 a236 a376 7456 75c6 c5b6 a7c6 bac6 74c5");
    EXPECT_EQ(text_of(prism_kind, row_of(prism_kind, 62)), "02 01 03 : 51a2 41a5 c345 c4a5 41ba c4ba");
    EXPECT_EQ(text_of(pyr_kind, row_of(pyr_kind, 30)), "02 01 04 03 : 42c3 c2d3 c124 b12c c2ad b2ac");
    EXPECT_EQ(text_of(quad_kind, row_of(quad_kind, 5)), "01 12 23 03 : 2cb cab dac d0a");
    EXPECT_EQ(text_of(tri_kind, row_of(tri_kind, 6)), "01 02 : 2a1 2ba");
    EXPECT_EQ(text_of(line_kind, row_of(line_kind, 1)), "01 : 0a");
    EXPECT_EQ(text_of(line_kind, row_of(line_kind, 2)), "01 : a1");
    EXPECT_EQ(CUTm_ind_line[1], 0);
    EXPECT_EQ(CUTm_ind_line[2], 0);
}

TEST(CutTablesAll, SingleValues)
{
    EXPECT_EQ(CUTmax_index_hex, 255);
    EXPECT_EQ(CUTmax_index_prism, 63);
    EXPECT_EQ(CUTmax_index_pyr, 31);
    EXPECT_EQ(CUTmax_index_tet, 15);
    EXPECT_EQ(CUTmax_index_quad, 15);
    EXPECT_EQ(CUTmax_index_tri, 7);
    EXPECT_EQ(CUTmax_index_line, 3);
}

// Orders within a row fix the numbers of new nodes and the connect lists. They follow from no rule: these are
// the hashes of all rows in their order.
TEST(CutTablesAll, AllRowsAreAsTheyWere)
{
    std::vector<std::string> hashes;
    for (const cut_kind_under_test *of : all_cut_kinds)
        hashes.push_back(hash_of_rows(*of));
    EXPECT_EQ(hashes, (std::vector<std::string>{"d2eeb58c", "3b4f8cf0", "9c8ee0ae", "d7153133", "fa1b737f",
                                                "3b9eb6a4", "3945d10a"}));
}
