// The tables are held against what lies between two levels of a triangle or a quadrilateral.
#include <skoklana/cell_nodes.h>
#include <skoklana/tables.h>

#include "band_cases.hpp"

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

struct band_kind {
    const char *name;
    int shape, ncorners, nrows;
    int npoints, ncells, nlines;
    const int *index, *nold, *nnew, *first_point, *ncell, *first_cell, *first_entry;
    const unsigned char *min, *max, *level, *type, *nnode, *connect, *is_new;
    const int *nlines_at[2], *first_line[2];
    const unsigned char *lines[2];
    const band_case *(*record)(int hi_mask, int lo_mask);

    int last() const { return (1 << ncorners) - 1; }
};

#define BAND_KIND(k, shape, ncorners, nrows, npoints, ncells, nlines)                                  \
    {                                                                                                  \
#k, shape, ncorners, nrows, npoints, ncells, nlines, CONTtable_index_##k, CONTnold_nodes_##k,  \
            CONTnnew_nodes_##k, CONTm_ind_##k, CONTncell_##k, CONTt_ind_##k, CONTc_ind_##k,            \
            CONTmin_node_##k, CONTmax_node_##k, CONTvalues_##k, CONTcell_type_##k, CONTcell_nnode_##k, \
            CONTconnect_list_##k, CONTnew_flag_list_##k,                                               \
            {CONTnedge1_##k, CONTnedge2_##k },                                                         \
             {CONTedge_ind1_##k, CONTedge_ind2_##k },                                                  \
              {CONTconnect_edge1_##k, CONTconnect_edge2_##k }, k##_band_cases::row                     \
    }
const band_kind tri_kind = BAND_KIND(tri, CELL_TRI, 3, 12, 48, 30, 12);
const band_kind quad_kind = BAND_KIND(quad, CELL_QUAD, 4, 50, 224, 160, 56);
#undef BAND_KIND

struct band_point {
    int a, b, level;
};

struct band_row {
    std::vector<band_point> points;
    std::vector<std::array<int, 3>> cells;     // new nodes from ncorners on
    std::vector<std::pair<int, int>> lines[2]; // the same numbers
};

band_row row_of(const band_kind &of, int row)
{
    band_row result;
    for (int p = of.first_point[row]; p < of.first_point[row] + of.nnew[row]; ++p)
        result.points.push_back({of.min[p], of.max[p], of.level[p]});
    for (int c = 0; c < of.ncell[row]; ++c) {
        std::array<int, 3> cell = {};
        for (int i = 0; i < 3; ++i) {
            const int at = of.first_entry[row] + 3 * c + i;
            cell[static_cast<size_t>(i)] = of.connect[at] + (of.is_new[at] != 0 ? of.ncorners : 0);
        }
        result.cells.push_back(cell);
    }
    for (int level = 0; level < 2; ++level)
        for (int l = 0; l < of.nlines_at[level][row]; ++l) {
            const unsigned char *line = of.lines[level] + of.first_line[level][row] + 2 * l;
            result.lines[level].push_back({line[0] + of.ncorners, line[1] + of.ncorners});
        }
    return result;
}

std::string text_of(const band_kind &of, int row)
{
    const band_row from = row_of(of, row);
    std::string text;
    const auto name = [&](int node) {
        return static_cast<char>(node < of.ncorners ? '0' + node : 'a' + node - of.ncorners);
    };
    for (const band_point &p : from.points)
        text += std::to_string(p.a) + std::to_string(p.b) + (p.level != 0 ? "U " : "L ");
    text += ":";
    for (const auto &cell : from.cells) {
        text += ' ';
        for (int node : cell)
            text += name(node);
    }
    for (const auto &lines : from.lines) {
        text += " :";
        for (const auto &line : lines) {
            text += ' ';
            text += name(line.first);
            text += name(line.second);
        }
    }
    return text;
}

bool is_set(int mask, int corner)
{
    return (mask >> corner & 1) != 0;
}

bool has_row(const band_kind &of, int key)
{
    const int hi = key >> of.ncorners, lo = key & of.last();
    return hi != 0 && (hi & ~lo) == 0 && lo != of.last();
}

using place = std::array<double, 2>;

place corner_at(const band_kind &of, int corner)
{
    return {cell_kinds[of.shape].position[corner][0], cell_kinds[of.shape].position[corner][1]};
}

double twice_area(const place &a, const place &b, const place &c)
{
    return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}

double distance(const place &a, const place &b)
{
    return std::hypot(a[0] - b[0], a[1] - b[1]);
}

// Lower level 0, upper level 1.
std::vector<place> places_of(const band_kind &of, const band_row &row, const std::vector<double> &value)
{
    std::vector<place> places;
    for (int c = 0; c < of.ncorners; ++c)
        places.push_back(corner_at(of, c));
    for (const band_point &p : row.points) {
        const double from = value[static_cast<size_t>(p.a)], to = value[static_cast<size_t>(p.b)];
        const double t = (p.level - from) / (to - from);
        const place a = places[static_cast<size_t>(p.a)], b = places[static_cast<size_t>(p.b)];
        places.push_back({a[0] + t * (b[0] - a[0]), a[1] + t * (b[1] - a[1])});
    }
    return places;
}

// Twice the area of the part of the cell where a linear field is at least level.
double area_above(const band_kind &of, const std::vector<double> &value, double level)
{
    std::vector<place> polygon;
    for (int c = 0; c < of.ncorners; ++c) {
        const int d = (c + 1) % of.ncorners;
        const double from = value[static_cast<size_t>(c)] - level, to = value[static_cast<size_t>(d)] - level;
        const place a = corner_at(of, c), b = corner_at(of, d);
        if (from >= 0) polygon.push_back(a);
        if ((from >= 0) != (to >= 0)) {
            const double t = from / (from - to);
            polygon.push_back({a[0] + t * (b[0] - a[0]), a[1] + t * (b[1] - a[1])});
        }
    }
    double sum = 0;
    for (size_t i = 1; i + 1 < polygon.size(); ++i)
        sum += twice_area(polygon[0], polygon[i], polygon[i + 1]);
    return sum;
}

class BandTables : public testing::TestWithParam<const band_kind *> {};

} // namespace

TEST_P(BandTables, KeysWithCornersOnAllThreeSidesHaveTheirRow)
{
    const band_kind &of = *GetParam();
    int row = 0;
    for (int key = 0; key < 1 << 2 * of.ncorners; ++key) {
        EXPECT_EQ(of.index[key], has_row(of, key) ? ++row : -1) << key;
        EXPECT_EQ(of.record(key >> of.ncorners, key & of.last()) != nullptr, has_row(of, key)) << key;
    }
    EXPECT_EQ(row, of.nrows);
}

TEST_P(BandTables, RunsFollowEachOtherInOrderOfRows)
{
    const band_kind &of = *GetParam();
    int points = 0, cells = 0, lines[2] = {0, 0};
    for (int row = 1; row <= of.nrows; ++row) {
        EXPECT_EQ(of.first_point[row], points);
        EXPECT_EQ(of.first_cell[row], cells);
        EXPECT_EQ(of.first_entry[row], 3 * cells);
        points += of.nnew[row];
        cells += of.ncell[row];
        for (int level = 0; level < 2; ++level) {
            EXPECT_EQ(of.first_line[level][row], 2 * lines[level]);
            lines[level] += of.nlines_at[level][row];
        }
    }
    EXPECT_EQ(points, of.npoints);
    EXPECT_EQ(cells, of.ncells);
    EXPECT_EQ(lines[0], of.nlines);
    EXPECT_EQ(lines[1], of.nlines);
    for (int c = 0; c < cells; ++c) {
        EXPECT_EQ(of.type[c], TRI_LIST);
        EXPECT_EQ(of.nnode[c], 3);
    }
    for (int row : {0, of.nrows + 1}) {
        EXPECT_EQ(of.nold[row] | of.nnew[row] | of.first_point[row] | of.ncell[row] | of.first_cell[row] |
                      of.first_entry[row],
                  0);
        for (int level = 0; level < 2; ++level)
            EXPECT_EQ(of.nlines_at[level][row] | of.first_line[level][row], 0);
    }
}

TEST_P(BandTables, EachCrossedEdgeHasANewNodeAtEachLevelThatCrossesIt)
{
    const band_kind &of = *GetParam();
    for (int key = 0; key < 1 << 2 * of.ncorners; ++key) {
        if (!has_row(of, key)) continue;
        const int masks[2] = {key & of.last(), key >> of.ncorners};
        const band_row row = row_of(of, of.index[key]);
        std::set<std::array<int, 3>> expected, found;
        for (int c = 0; c < of.ncorners; ++c)
            for (int level = 0; level < 2; ++level) {
                const int d = (c + 1) % of.ncorners;
                if (is_set(masks[level], c) != is_set(masks[level], d))
                    expected.insert({std::min(c, d), std::max(c, d), level});
            }
        for (const band_point &p : row.points)
            EXPECT_TRUE(found.insert({p.a, p.b, p.level}).second) << key;
        EXPECT_EQ(found, expected) << key;
        EXPECT_LE(row.points.size(), 8u);

        std::set<int> used, in_band;
        for (const auto &cell : row.cells)
            used.insert(cell.begin(), cell.end());
        for (int c = 0; c < of.ncorners; ++c)
            if (is_set(masks[0] & ~masks[1], c)) in_band.insert(c);
        EXPECT_EQ(of.nold[of.index[key]], static_cast<int>(in_band.size())) << key;
        for (size_t p = 0; p < row.points.size(); ++p)
            in_band.insert(of.ncorners + static_cast<int>(p));
        EXPECT_EQ(used, in_band) << key;
    }
}

// Sides of triangles that no two share lie along the sides of the cell, where they cover the band, or are the
// lines, each at its level.
TEST_P(BandTables, TrianglesCloseUpOnTheSidesAndTheLines)
{
    const band_kind &of = *GetParam();
    for (int key = 0; key < 1 << 2 * of.ncorners; ++key) {
        if (!has_row(of, key)) continue;
        const int lo = key & of.last(), hi = key >> of.ncorners;
        const band_row row = row_of(of, of.index[key]);
        std::vector<double> value;
        for (int c = 0; c < of.ncorners; ++c)
            value.push_back(is_set(hi, c) ? 2 : is_set(lo, c) ? 0.5 : -1);
        const std::vector<place> at = places_of(of, row, value);
        std::multiset<std::pair<int, int>> open;
        for (const auto &cell : row.cells) {
            EXPECT_GT(twice_area(at[static_cast<size_t>(cell[0])], at[static_cast<size_t>(cell[1])],
                                 at[static_cast<size_t>(cell[2])]),
                      0)
                << key;
            for (size_t i = 0; i < 3; ++i) {
                const std::pair<int, int> side = {cell[i], cell[(i + 1) % 3]};
                const auto other = open.find({side.second, side.first});
                if (other != open.end())
                    open.erase(other);
                else
                    open.insert(side);
            }
        }
        std::set<std::pair<int, int>> lines[2];
        std::map<std::pair<int, int>, double> along;
        for (const auto &side : open) {
            std::set<int> corners;
            for (int node : {side.first, side.second})
                if (node < of.ncorners) {
                    corners.insert(node);
                } else {
                    const band_point &p = row.points[static_cast<size_t>(node - of.ncorners)];
                    corners.insert({p.a, p.b});
                }
            if (corners.size() == 2) {
                along[{*corners.begin(), *corners.rbegin()}] +=
                    distance(at[static_cast<size_t>(side.first)], at[static_cast<size_t>(side.second)]);
                continue;
            }
            ASSERT_GE(std::min(side.first, side.second), of.ncorners) << key;
            const int level = row.points[static_cast<size_t>(side.first - of.ncorners)].level;
            EXPECT_EQ(level, row.points[static_cast<size_t>(side.second - of.ncorners)].level) << key;
            lines[level].insert(std::minmax(side.first, side.second));
        }
        for (int c = 0; c < of.ncorners; ++c) {
            const int d = (c + 1) % of.ncorners;
            const double from = value[static_cast<size_t>(c)], to = value[static_cast<size_t>(d)];
            const double low = std::max(0.0, std::min(from, to)), high = std::min(1.0, std::max(from, to));
            const double part =
                from == to ? (is_set(lo & ~hi, c) ? 1 : 0) : (high - low) / std::fabs(to - from);
            const double found = along[{std::min(c, d), std::max(c, d)}];
            EXPECT_NEAR(found, part * distance(corner_at(of, c), corner_at(of, d)), 1e-12) << key;
        }
        for (int level = 0; level < 2; ++level) {
            std::set<std::pair<int, int>> listed;
            for (const auto &line : row.lines[level])
                listed.insert(std::minmax(line.first, line.second));
            EXPECT_EQ(listed, lines[level]) << key;
            EXPECT_EQ(listed.size(), row.lines[level].size()) << key;
        }
    }
}

TEST_P(BandTables, LinearFieldsHaveTheAreaOfTheirBand)
{
    const band_kind &of = *GetParam();
    std::mt19937 random(7);
    std::uniform_real_distribution<double> any(-4, 4);
    std::set<int> seen;
    for (int trial = 0; trial < 4000; ++trial) {
        const double slope[2] = {any(random), any(random)}, base = any(random);
        std::vector<double> value;
        int lo = 0, hi = 0;
        for (int c = 0; c < of.ncorners; ++c) {
            const place p = corner_at(of, c);
            value.push_back(base + slope[0] * p[0] + slope[1] * p[1]);
            lo |= (value.back() >= 0) << c;
            hi |= (value.back() > 1) << c;
        }
        const int key = hi << of.ncorners | lo;
        if (!has_row(of, key)) continue;
        seen.insert(key);
        const band_row row = row_of(of, of.index[key]);
        const std::vector<place> at = places_of(of, row, value);
        double sum = 0;
        for (const auto &cell : row.cells) {
            const double area = twice_area(at[static_cast<size_t>(cell[0])], at[static_cast<size_t>(cell[1])],
                                           at[static_cast<size_t>(cell[2])]);
            EXPECT_GE(area, -1e-12) << key;
            sum += area;
        }
        EXPECT_NEAR(sum, area_above(of, value, 0) - area_above(of, value, 1), 1e-9) << key;
    }
    EXPECT_GE(seen.size(), of.ncorners == 3 ? 12u : 30u);
}

TEST_P(BandTables, RecordsSayTheSame)
{
    const band_kind &of = *GetParam();
    for (int key = 0; key < 1 << 2 * of.ncorners; ++key) {
        if (!has_row(of, key)) continue;
        const band_row row = row_of(of, of.index[key]);
        const band_case &record = *of.record(key >> of.ncorners, key & of.last());
        ASSERT_EQ(record.npoints, row.points.size());
        ASSERT_EQ(record.ncells, row.cells.size());
        for (size_t p = 0; p < row.points.size(); ++p) {
            EXPECT_EQ(record.left[p], row.points[p].a);
            EXPECT_EQ(record.right[p], row.points[p].b);
            EXPECT_EQ(record.level[p], row.points[p].level);
        }
        for (size_t i = 0; i < 3 * row.cells.size(); ++i)
            EXPECT_EQ(record.nodes[i], row.cells[i / 3][i % 3]);
        for (int level = 0; level < 2; ++level) {
            ASSERT_EQ(record.nlines[level], row.lines[level].size());
            for (size_t l = 0; l < row.lines[level].size(); ++l) {
                EXPECT_EQ(record.lines[level][2 * l] + of.ncorners, row.lines[level][l].first);
                EXPECT_EQ(record.lines[level][2 * l + 1] + of.ncorners, row.lines[level][l].second);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, BandTables, testing::Values(&tri_kind, &quad_kind),
                         [](const auto &p) { return p.param->name; });

TEST(BandTablesAll, RowsInTheirOrder)
{
    EXPECT_EQ(text_of(tri_kind, 1), "01L 02L 02U 01U : bda bcd : ab : cd");
    EXPECT_EQ(text_of(tri_kind, 12), "01L 02L 01U 02U : dac dba : ab : cd");
    EXPECT_EQ(text_of(quad_kind, 25), "01L 12L 23L 03L 01U 12U 23U 03U : fab fea cdh chg : ab cd : ef gh");
    EXPECT_EQ(text_of(quad_kind, 42), "01L 12L 23L 03L 03U 01U 12U 23U : afg agb ced che : ab cd : eh fg");
    EXPECT_EQ(text_of(quad_kind, 43), "12L 23L 01U 03U 12U 23U : bca cea dcb fdb d0c : ab : ce df");
    EXPECT_EQ(text_of(quad_kind, 44), "01L 03L 12U 23U 03U 01U : 2dc afc dac bad ebd : ab : cf de");
    EXPECT_EQ(text_of(quad_kind, 50), "01L 03L 03U 01U : cad cba : ab : cd");
    EXPECT_EQ(CONTtable_index_tri[9], 1);
    EXPECT_EQ(CONTtable_index_tri[0], -1);
    EXPECT_EQ(CONTtable_index_quad[238], 50);
    EXPECT_EQ(CONTtable_index_quad[0], -1);
}

// Orders within a row fix the numbers of new nodes and the lists. They follow from no rule: these are the
// hashes of all rows in their order.
TEST(BandTablesAll, AllRowsAreAsTheyWere)
{
    std::vector<std::string> hashes;
    for (const band_kind *of : {&tri_kind, &quad_kind}) {
        uint32_t seed = 2166136261u;
        for (int row = 1; row <= of->nrows; ++row)
            for (char c : text_of(*of, row) + "\n")
                seed = (seed ^ static_cast<unsigned char>(c)) * 16777619u;
        char text[16];
        std::snprintf(text, sizeof text, "%08x", seed);
        hashes.push_back(text);
    }
    EXPECT_EQ(hashes, (std::vector<std::string>{"5a3a6981", "4a4d6ae2"}));
}
