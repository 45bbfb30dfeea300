// The tables are derived again here from the cells' faces alone: what is crossed, which crossings belong
// together, and which way round.
#include <skoklana/tables.h>

#include "iso_cases.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

using crossing = std::pair<int, int>; // flagged corner, unflagged corner
using loop = std::vector<crossing>;

// A cell kind, seen from outside its faces are counter-clockwise.
struct kind {
    std::string name;
    int ncorners;
    std::vector<int> corner_of_bit;
    std::vector<std::vector<int>> faces;
    bool normals_to_lower; // in table order; triangles of tetrahedra are turned once more

    int ncases() const { return 1 << ncorners; }

    std::vector<bool> flagged(int index) const
    {
        std::vector<bool> flags(static_cast<size_t>(ncorners));
        for (size_t bit = 0; bit < corner_of_bit.size(); ++bit)
            flags[static_cast<size_t>(corner_of_bit[bit])] = (index >> bit & 1) != 0;
        return flags;
    }
};

const kind hex = {"hex",
                  8,
                  {0, 1, 4, 5, 3, 2, 7, 6},
                  {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}},
                  true};
const kind prism = {
    "prism", 6, {5, 2, 0, 3, 1, 4}, {{0, 2, 1}, {3, 4, 5}, {0, 1, 4, 3}, {1, 2, 5, 4}, {2, 0, 3, 5}}, true};
const kind pyr = {
    "pyr", 5, {1, 2, 3, 4, 0}, {{4, 3, 2, 1}, {0, 1, 2}, {0, 2, 3}, {0, 3, 4}, {0, 4, 1}}, false};
const kind tet = {"tet", 4, {0, 1, 2, 3}, {{0, 2, 1}, {0, 1, 3}, {1, 2, 3}, {0, 3, 2}}, false};

// What the exported tables say of one case.
struct table_row {
    std::vector<crossing> crossings; // left, right as they stand
    std::vector<int> sizes;
};

template <typename Size, typename Corner, size_t Width>
table_row read_row(int npoints, int npolygons, const Size (&sizes)[4], const Corner (&left)[Width],
                   const Corner (&right)[Width])
{
    table_row row;
    for (int p = 0; p < npoints; ++p)
        row.crossings.push_back({left[p], right[p]});
    for (int polygon = 0; polygon < npolygons; ++polygon)
        row.sizes.push_back(sizes[polygon]);
    return row;
}

table_row row_of(const kind &of, int i)
{
#define READ(k)                                                                                   \
    read_row(ISOninter_pts_##k[i], ISOninter_polys_##k[i], ISOnppoly_##k[i], ISOleft_vert_##k[i], \
             ISOright_vert_##k[i])
    return of.name == "hex"     ? READ(hex)
           : of.name == "prism" ? READ(prism)
           : of.name == "pyr"   ? READ(pyr)
                                : READ(tet);
#undef READ
}

bool flagged_is_left(const kind &of)
{
    return of.name != "tet";
}

loop from_smallest(loop points)
{
    std::rotate(points.begin(), std::min_element(points.begin(), points.end()), points.end());
    return points;
}

// The polygons of a row, flagged corners first.
std::multiset<loop> loops_of(const kind &of, const table_row &row)
{
    std::multiset<loop> loops;
    size_t next = 0;
    for (int size : row.sizes) {
        loop points;
        for (int p = 0; p < size; ++p, ++next) {
            const crossing &c = row.crossings[next];
            points.push_back(flagged_is_left(of) ? c : crossing{c.second, c.first});
        }
        loops.insert(from_smallest(points));
    }
    return loops;
}

// On each face, a crossing that leads into flagged corners is joined with the very next one that leads out of
// them, counter-clockwise: so a face with four crossings cuts off each flagged corner by itself. Each
// crossing leads in on one of its two faces and out on the other, which closes the loops; their normals
// point away from the flagged corners.
std::multiset<loop> derived_loops(const kind &of, int index)
{
    const std::vector<bool> flags = of.flagged(index);
    std::map<crossing, crossing> next;
    for (const std::vector<int> &face : of.faces) {
        const size_t n = face.size();
        for (size_t in = 0; in < n; ++in) {
            const int from = face[in], to = face[(in + 1) % n];
            if (flags[static_cast<size_t>(from)] || !flags[static_cast<size_t>(to)]) continue;
            size_t out = in + 1;
            while (flags[static_cast<size_t>(face[(out + 1) % n])])
                ++out;
            const crossing enters = {to, from}, leaves = {face[out % n], face[(out + 1) % n]};
            EXPECT_TRUE(next.emplace(enters, leaves).second);
        }
    }
    std::multiset<loop> loops;
    while (!next.empty()) {
        loop points;
        for (auto at = next.begin(); at != next.end(); at = next.find(points.back())) {
            if (points.empty()) points.push_back(at->first);
            points.push_back(at->second);
            next.erase(at);
        }
        EXPECT_EQ(points.front(), points.back());
        points.pop_back();
        if (!of.normals_to_lower) std::reverse(points.begin(), points.end());
        loops.insert(from_smallest(points));
    }
    return loops;
}

std::vector<crossing> edges_of(const kind &of)
{
    std::set<crossing> edges;
    for (const std::vector<int> &face : of.faces)
        for (size_t i = 0; i < face.size(); ++i) {
            const int a = face[i], b = face[(i + 1) % face.size()];
            edges.insert({std::min(a, b), std::max(a, b)});
        }
    return {edges.begin(), edges.end()};
}

uint32_t hash(uint32_t seed, const void *bytes, size_t size)
{
    for (size_t i = 0; i < size; ++i)
        seed = (seed ^ static_cast<const unsigned char *>(bytes)[i]) * 16777619u;
    return seed;
}

std::string text_of(const table_row &row)
{
    std::string text;
    size_t next = 0;
    for (size_t polygon = 0; polygon < row.sizes.size(); ++polygon) {
        text += polygon > 0 ? "/ " : "";
        for (int p = 0; p < row.sizes[polygon]; ++p, ++next)
            text +=
                std::to_string(row.crossings[next].first) + std::to_string(row.crossings[next].second) + " ";
    }
    if (!text.empty()) text.pop_back();
    return text;
}

class IsoTables : public testing::TestWithParam<const kind *> {};

} // namespace

TEST_P(IsoTables, EveryCrossedEdgeIsListedOnceFlaggedEndOnItsSide)
{
    const kind &of = *GetParam();
    for (int index = 0; index < of.ncases(); ++index) {
        const std::vector<bool> flags = of.flagged(index);
        const table_row row = row_of(of, index);
        std::set<crossing> listed;
        for (const crossing &c : row.crossings) {
            EXPECT_EQ(flags[static_cast<size_t>(c.first)], flagged_is_left(of)) << index;
            EXPECT_NE(flags[static_cast<size_t>(c.first)], flags[static_cast<size_t>(c.second)]) << index;
            EXPECT_TRUE(listed.insert({std::min(c.first, c.second), std::max(c.first, c.second)}).second)
                << index;
        }
        std::set<crossing> crossed;
        for (const crossing &e : edges_of(of))
            if (flags[static_cast<size_t>(e.first)] != flags[static_cast<size_t>(e.second)])
                crossed.insert(e);
        EXPECT_EQ(listed, crossed) << index;
    }
}

TEST_P(IsoTables, PolygonsAreTheLoopsOfTheFaceRuleEachInItsSense)
{
    const kind &of = *GetParam();
    for (int index = 0; index < of.ncases(); ++index)
        EXPECT_EQ(loops_of(of, row_of(of, index)), derived_loops(of, index)) << of.name << " case " << index;
}

TEST_P(IsoTables, PolygonsUseUpTheCrossings)
{
    const kind &of = *GetParam();
    for (int index = 0; index < of.ncases(); ++index) {
        const table_row row = row_of(of, index);
        int sum = 0;
        for (int size : row.sizes) {
            EXPECT_GE(size, 3);
            EXPECT_LE(size, 7);
            sum += size;
        }
        EXPECT_EQ(sum, static_cast<int>(row.crossings.size())) << index;
        EXPECT_EQ(row.crossings.empty(), index == 0 || index == of.ncases() - 1) << index;
    }
}

TEST_P(IsoTables, FlatRowsSayTheSame)
{
    const kind &of = *GetParam();
    for (int index = 0; index < of.ncases(); ++index) {
        const table_row row = row_of(of, index);
        const iso_case &flat = of.name == "hex"     ? hex_cases::row(index)
                               : of.name == "prism" ? prism_cases::row(index)
                               : of.name == "pyr"   ? pyr_cases::row(index)
                                                    : tet_cases::row(index);
        ASSERT_EQ(flat.npoints, row.crossings.size());
        for (size_t p = 0; p < row.crossings.size(); ++p) {
            EXPECT_EQ(flat.left[p], row.crossings[p].first);
            EXPECT_EQ(flat.right[p], row.crossings[p].second);
        }
        std::vector<int> points;
        int first = 0;
        for (int size : row.sizes) {
            const iso_pair split = of.name == "hex"     ? ISOncell_hex[size - 1]
                                   : of.name == "prism" ? ISOncell_prism[size - 1]
                                   : of.name == "pyr"   ? ISOncell_pyr[size - 1]
                                                        : ISOncell_tet[size - 1];
            EXPECT_EQ(split.ntri, size - 2);
            for (int t = split.first; t < split.first + split.ntri; ++t)
                for (int corner : of.name == "hex"     ? ISOnpcel_hex[t].p
                                  : of.name == "prism" ? ISOnpcel_prism[t].p
                                  : of.name == "pyr"   ? ISOnpcel_pyr[t].p
                                                       : ISOnpcel_tet[t].p)
                    points.push_back(first + corner);
            first += size;
        }
        ASSERT_EQ(flat.ntriangles * 3u, points.size());
        for (size_t i = 0; i < points.size(); ++i)
            EXPECT_EQ(flat.points[i], points[i]) << of.name << " case " << index;
    }
}

// Split polygons keep their outline: a triangle's side is a side of the polygon or is used by a second
// triangle the other way round.
TEST_P(IsoTables, TrianglesFillTheirPolygons)
{
    const kind &of = *GetParam();
    const bool mirrored = of.name == "tet";
    const iso_pair *pairs = of.name == "hex"     ? ISOncell_hex
                            : of.name == "prism" ? ISOncell_prism
                            : of.name == "pyr"   ? ISOncell_pyr
                                                 : ISOncell_tet;
    const iso_triple *triples = of.name == "hex"     ? ISOnpcel_hex
                                : of.name == "prism" ? ISOnpcel_prism
                                : of.name == "pyr"   ? ISOnpcel_pyr
                                                     : ISOnpcel_tet;
    for (int size = 3; size <= (of.name == "hex" ? 7 : 6); ++size) {
        std::multiset<crossing> sides;
        for (int t = 0; t < pairs[size - 1].ntri; ++t) {
            const int *p = triples[pairs[size - 1].first + t].p;
            for (int i = 0; i < 3; ++i)
                sides.insert({p[i], p[(i + 1) % 3]});
        }
        for (int i = 0; i < size; ++i) {
            const crossing side = {i, (i + 1) % size};
            EXPECT_EQ(sides.count(mirrored ? crossing{side.second, side.first} : side), 1u) << size;
            sides.erase(mirrored ? crossing{side.second, side.first} : side);
        }
        for (const crossing &inner : sides)
            EXPECT_EQ(sides.count(inner), sides.count({inner.second, inner.first})) << size;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, IsoTables, testing::Values(&hex, &prism, &pyr, &tet),
                         [](const auto &p) { return p.param->name; });

TEST(IsoTablesHex, CountsOfPolygonsPointsAndTriangles)
{
    std::map<int, int> rows_with;
    int most_points = 0, most_triangles = 0;
    for (int index = 0; index < 256; ++index) {
        ++rows_with[ISOninter_polys_hex[index]];
        most_points = std::max(most_points, ISOninter_pts_hex[index]);
        most_triangles = std::max<int>(most_triangles, hex_cases::row(index).ntriangles);
    }
    EXPECT_EQ(rows_with, (std::map<int, int>{{0, 2}, {1, 162}, {2, 82}, {3, 8}, {4, 2}}));
    EXPECT_EQ(most_points, 12);
    EXPECT_EQ(most_triangles, 5);
    for (int index : {105, 150}) {
        EXPECT_EQ(ISOninter_pts_hex[index], 12);
        EXPECT_EQ(hex_cases::row(index).ntriangles, 4);
    }
}

TEST(IsoTablesOther, LargestCases)
{
    EXPECT_EQ(*std::max_element(ISOninter_pts_prism, ISOninter_pts_prism + 64), 7);
    EXPECT_EQ(*std::max_element(ISOninter_polys_prism, ISOninter_polys_prism + 64), 2);
    EXPECT_EQ(*std::max_element(ISOninter_pts_pyr, ISOninter_pts_pyr + 32), 6);
    EXPECT_EQ(*std::max_element(ISOninter_polys_pyr, ISOninter_polys_pyr + 32), 2);
    EXPECT_EQ(*std::max_element(ISOninter_pts_tet, ISOninter_pts_tet + 16), 4);
    EXPECT_EQ(*std::max_element(ISOninter_polys_tet, ISOninter_polys_tet + 16), 1);
}

TEST(IsoTablesHex, ComplementsOfAmbiguousFacesDiffer)
{
    EXPECT_EQ(text_of(row_of(hex, 33)), "01 03 04 / 23 21 26");
    EXPECT_EQ(row_of(hex, 222).sizes, (std::vector<int>{6}));
}

TEST(IsoTablesAll, RowsInTheirOrder)
{
    EXPECT_EQ(text_of(row_of(hex, 1)), "01 03 04");
    EXPECT_EQ(text_of(row_of(hex, 94)), "30 32 76 56 12 10 40");
    EXPECT_EQ(text_of(row_of(hex, 105)), "01 03 04 / 23 21 26 / 56 51 54 / 76 74 73");
    EXPECT_EQ(text_of(row_of(hex, 254)), "30 10 40");
    EXPECT_EQ(text_of(row_of(prism, 25)), "52 54 34 30 / 14 12 10");
    EXPECT_EQ(text_of(row_of(prism, 62)), "45 25 35");
    EXPECT_EQ(text_of(row_of(pyr, 16)), "01 02 03 04");
    EXPECT_EQ(text_of(row_of(pyr, 26)), "01 21 23 03 43 41");
    EXPECT_EQ(text_of(row_of(tet, 1)), "10 30 20");
    EXPECT_EQ(text_of(row_of(tet, 9)), "10 13 23 20");
}

// Order of the polygons of a case, and starting point of each, fix the numbers of new nodes. They follow from
// no rule: these are the hashes of all rows in their order.
TEST(IsoTablesAll, AllRowsAreAsTheyWere)
{
    const kind *kinds[] = {&hex, &prism, &pyr, &tet};
    std::vector<uint32_t> hashes;
    for (const kind *of : kinds) {
        uint32_t all = 2166136261u;
        for (int index = 0; index < of->ncases(); ++index) {
            const std::string text = text_of(row_of(*of, index)) + "\n";
            all = hash(all, text.data(), text.size());
        }
        hashes.push_back(all);
    }
    EXPECT_EQ(hashes, (std::vector<uint32_t>{0x918f1153, 0x07632d11, 0xc6003737, 0x10b0b6c5}));
}

TEST(IsoTablesAll, EntriesBehindARowsContent)
{
    for (int index = 0; index < 256; ++index)
        for (int p = ISOninter_pts_hex[index]; p < 12; ++p)
            EXPECT_EQ(ISOleft_vert_hex[index][p] | ISOright_vert_hex[index][p], 0);
    for (int index = 0; index < 64; ++index)
        for (int p = ISOninter_pts_prism[index]; p < 12; ++p)
            EXPECT_EQ(ISOleft_vert_prism[index][p] | ISOright_vert_prism[index][p], 0);
    for (int index = 0; index < 32; ++index)
        for (int p = ISOninter_pts_pyr[index]; p < 12; ++p)
            EXPECT_EQ(ISOleft_vert_pyr[index][p] | ISOright_vert_pyr[index][p], 0);
    for (int index = 0; index < 16; ++index)
        for (int p = ISOninter_pts_tet[index]; p < 4; ++p) {
            EXPECT_EQ(ISOleft_vert_tet[index][p], -1);
            EXPECT_EQ(ISOright_vert_tet[index][p], -1);
        }
    for (int index = 0; index < 256; ++index)
        for (int polygon = ISOninter_polys_hex[index]; polygon < 4; ++polygon)
            EXPECT_EQ(ISOnppoly_hex[index][polygon], 0);
    for (int index = 0; index < 64; ++index)
        for (int polygon = ISOninter_polys_prism[index]; polygon < 4; ++polygon)
            EXPECT_EQ(ISOnppoly_prism[index][polygon], 0);
    for (int index = 0; index < 32; ++index)
        for (int polygon = ISOninter_polys_pyr[index]; polygon < 4; ++polygon)
            EXPECT_EQ(ISOnppoly_pyr[index][polygon], 0);
    for (int index = 0; index < 16; ++index)
        for (int polygon = ISOninter_polys_tet[index]; polygon < 4; ++polygon)
            EXPECT_EQ(ISOnppoly_tet[index][polygon], 0);
}

TEST(IsoTablesAll, SplitsOfPolygons)
{
    const int pairs[8][2] = {{0, 0}, {0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 3}, {5, 7}, {0, 0}};
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(ISOncell_hex[i].ntri, pairs[i][0]);
        EXPECT_EQ(ISOncell_hex[i].first, pairs[i][1]);
    }
    for (int i = 0; i < 6; ++i)
        for (const iso_pair *of : {ISOncell_prism, ISOncell_pyr, ISOncell_tet}) {
            EXPECT_EQ(of[i].ntri, pairs[i][0]);
            EXPECT_EQ(of[i].first, pairs[i][1]);
        }
    const int triples[12][3] = {{0, 1, 2}, {0, 2, 3}, {0, 3, 4}, {0, 1, 2}, {0, 2, 3}, {0, 3, 5},
                                {3, 4, 5}, {0, 1, 2}, {0, 2, 3}, {0, 3, 6}, {3, 4, 6}, {4, 5, 6}};
    for (int i = 0; i < 12; ++i)
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(ISOnpcel_hex[i].p[c], triples[i][c]);
            if (i >= 8) continue;
            EXPECT_EQ(ISOnpcel_prism[i].p[c], i < 7 ? triples[i][c] : 0);
            EXPECT_EQ(ISOnpcel_pyr[i].p[c], i < 7 ? triples[i][c] : 0);
            EXPECT_EQ(ISOnpcel_tet[i].p[c], i < 7 ? triples[i][c == 0 ? 0 : 3 - c] : 0);
        }
    const int edge_table[12] = {0, 1, 0, 2, 0, 3, 1, 2, 1, 3, 2, 3};
    EXPECT_TRUE(std::equal(edge_table, edge_table + 12, ISOedge_table_hex));
}
