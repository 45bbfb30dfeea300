// Band case tables of triangles and quadrilaterals.
//
// A row is a cell with corners above an upper level and corners below a lower one. It holds the key under
// which it is found, hi_mask << corners | lo_mask, and what is left of the cell between the levels, in four
// fields: new nodes, which are called a, b, c and so on in their order; triangles; lines at the lower level;
// lines at the upper one. A new node is the corners of its edge, the lower number first, and its level, L or
// U. A node of a triangle is a corner, a digit, or a new node, a letter. Everything exported here is derived
// from these rows at compile time, and so are the records of band_cases.hpp.
//
// The comment behind a row is its corners, in order: + above the upper level, - below the lower one, a digit
// in between. Lines turn either way; triangles are counter-clockwise. Where diagonal corners of a
// quadrilateral are cut off or joined, rows do as the cuts of cut_tables.cpp: 0 and 2 are joined, 1 and 3
// stand apart.
//
// Order of new nodes, of triangles and of lines fix the numbers and lists that a band gives: rows are not to
// be tidied.
#include <skoklana/tables.h>

#include "band_cases.hpp"

namespace {

struct listed_band {
    int key;
    const char *text;
};

} // namespace

// clang-format off

constexpr listed_band tri_band_rows[12] = {
    /*  1 */ {  9, "01L 02L 02U 01U : bda bcd : ab : cd"}, // +--
    /*  2 */ { 11, "12L 02L 01U 02U : ac1 bda adc : ab : cd"}, // +1-
    /*  3 */ { 13, "01L 12L 01U 02U : bca dcb 2db : ab : cd"}, // +-2
    /*  4 */ { 18, "01L 12L 01U 12U : acd bad : ab : cd"}, // -+-
    /*  5 */ { 19, "12L 02L 01U 12U : acd abc b0c : ab : cd"}, // 0+-
    /*  6 */ { 22, "01L 02L 01U 12U : dac bad 2bd : ab : cd"}, // -+2
    /*  7 */ { 27, "12L 02L 12U 02U : adc bda : ab : cd"}, // ++-
    /*  8 */ { 36, "12L 02L 02U 12U : dba cbd : ab : cd"}, // --+
    /*  9 */ { 37, "01L 12L 02U 12U : dab dca c0a : ab : cd"}, // 0-+
    /* 10 */ { 38, "01L 02L 12U 02U : ca1 dbc bac : ab : cd"}, // -1+
    /* 11 */ { 45, "01L 12L 01U 12U : bca dcb : ab : cd"}, // +-+
    /* 12 */ { 54, "01L 02L 01U 02U : dac dba : ab : cd"}, // -++
};

constexpr listed_band quad_band_rows[50] = {
    /*  1 */ { 17, "01L 03L 03U 01U : bda bcd : ab : cd"}, // +---
    /*  2 */ { 19, "12L 03L 01U 03U : ac1 bca bdc : ab : cd"}, // +1--
    /*  3 */ { 21, "01L 12L 23L 03L 01U 03U : cb2 eab ceb fec dfc : ab cd : ef"}, // +-2-
    /*  4 */ { 23, "23L 03L 01U 03U : 2c1 ac2 bdc bca : ab : cd"}, // +12-
    /*  5 */ { 25, "01L 23L 03U 01U : bca cda 3cb : ab : cd"}, // +--3
    /*  6 */ { 27, "12L 23L 01U 03U : ac1 bca dcb 3db : ab : cd"}, // +1-3
    /*  7 */ { 29, "01L 12L 03U 01U : 2cb cab 3c2 cda : ab : cd"}, // +-23
    /*  8 */ { 34, "01L 12L 01U 12U : bcd acb : ab : cd"}, // -+--
    /*  9 */ { 35, "12L 03L 01U 12U : acd bca b0c : ab : cd"}, // 0+--
    /* 10 */ { 38, "01L 23L 12U 01U : 2bc adc bac : ab : cd"}, // -+2-
    /* 11 */ { 39, "23L 03L 01U 12U : 2ad acd bca b0c : ab : cd"}, // 0+2-
    /* 12 */ { 42, "01L 12L 23L 03L 01U 12U : 3dc afb aef : ab cd : ef"}, // -+-3
    /* 13 */ { 43, "12L 23L 01U 12U : acd bca 30c 3cb : ab : cd"}, // 0+-3
    /* 14 */ { 46, "01L 03L 12U 01U : 3c2 3bc bdc bad : ab : cd"}, // -+23
    /* 15 */ { 51, "12L 03L 12U 03U : bca bdc : ab : cd"}, // ++--
    /* 16 */ { 55, "23L 03L 12U 03U : ac2 adc bda : ab : cd"}, // ++2-
    /* 17 */ { 59, "12L 23L 03U 12U : abd bcd 3cb : ab : cd"}, // ++-3
    /* 18 */ { 68, "12L 23L 12U 23U : cba dbc : ab : cd"}, // --+-
    /* 19 */ { 69, "01L 12L 23L 03L 12U 23U : eab fae daf cdf d0a : ab cd : ef"}, // 0-+-
    /* 20 */ { 70, "01L 23L 12U 23U : ca1 bac dbc : ab : cd"}, // -1+-
    /* 21 */ { 71, "23L 03L 12U 23U : c01 b0c dbc abd : ab : cd"}, // 01+-
    /* 22 */ { 76, "12L 03L 23U 12U : cad cba 3bc : ab : cd"}, // --+3
    /* 23 */ { 77, "01L 12L 23U 12U : dab cad 30c c0a : ab : cd"}, // 0-+3
    /* 24 */ { 78, "01L 03L 12U 23U : ca1 dac dba 3bd : ab : cd"}, // -1+3
    /* 25 */ { 85, "01L 12L 23L 03L 01U 12U 23U 03U : fab fea cdh chg : ab cd : ef gh"}, // +-+-
    /* 26 */ { 87, "23L 03L 01U 12U 23U 03U : 1dc abf afe : ab : cd ef"}, // +1+-
    /* 27 */ { 93, "01L 12L 23U 03U 01U 12U : 3dc abf afe : ab : cd ef"}, // +-+3
    /* 28 */ {102, "01L 23L 23U 01U : bdc bad : ab : cd"}, // -++-
    /* 29 */ {103, "23L 03L 01U 23U : abd bcd b0c : ab : cd"}, // 0++-
    /* 30 */ {110, "01L 03L 23U 01U : bad cbd 3bc : ab : cd"}, // -++3
    /* 31 */ {119, "23L 03L 23U 03U : adc bda : ab : cd"}, // +++-
    /* 32 */ {136, "23L 03L 03U 23U : dba cbd : ab : cd"}, // ---+
    /* 33 */ {137, "01L 23L 03U 23U : cab dcb c0a : ab : cd"}, // 0--+
    /* 34 */ {138, "01L 12L 23L 03L 03U 23U : 1ba dcf dfe : ab cd : ef"}, // -1-+
    /* 35 */ {139, "12L 23L 03U 23U : a01 c0a bca dcb : ab : cd"}, // 01-+
    /* 36 */ {140, "12L 03L 23U 03U : ca2 cba dbc : ab : cd"}, // --2+
    /* 37 */ {141, "01L 12L 23U 03U : 2cb cab cda d0a : ab : cd"}, // 0-2+
    /* 38 */ {142, "01L 03L 23U 03U : 2a1 ca2 dbc cba : ab : cd"}, // -12+
    /* 39 */ {153, "01L 23L 01U 23U : bca dcb : ab : cd"}, // +--+
    /* 40 */ {155, "12L 23L 01U 23U : ac1 bda dca : ab : cd"}, // +1-+
    /* 41 */ {157, "01L 12L 23U 01U : cb2 dab cdb : ab : cd"}, // +-2+
    /* 42 */ {170, "01L 12L 23L 03L 03U 01U 12U 23U : afg agb ced che : ab cd : eh fg"}, // -+-+
    /* 43 */ {171, "12L 23L 01U 03U 12U 23U : bca cea dcb fdb d0c : ab : ce df"}, // 0+-+
    /* 44 */ {174, "01L 03L 12U 23U 03U 01U : 2dc afc dac bad ebd : ab : cf de"}, // -+2+
    /* 45 */ {187, "12L 23L 12U 23U : bca bdc : ab : cd"}, // ++-+
    /* 46 */ {204, "12L 03L 03U 12U : cad cba : ab : cd"}, // --++
    /* 47 */ {205, "01L 12L 03U 12U : dab cad c0a : ab : cd"}, // 0-++
    /* 48 */ {206, "01L 03L 12U 03U : ca1 dac dba : ab : cd"}, // -1++
    /* 49 */ {221, "01L 12L 01U 12U : cbd cab : ab : cd"}, // +-++
    /* 50 */ {238, "01L 03L 03U 01U : cad cba : ab : cd"}, // -+++
};
// clang-format on

// ---- rows to records -------------------------------------------------------------------------------------

template <int Corners> static constexpr band_case parse_band_row(const char *text)
{
    band_case row = {};
    const char *c = text;
    for (; *c != ':'; c += 4) {
        row.left[row.npoints] = static_cast<unsigned char>(c[0] - '0');
        row.right[row.npoints] = static_cast<unsigned char>(c[1] - '0');
        row.level[row.npoints] = c[2] == 'U';
        ++row.npoints;
    }
    int used = 0;
    for (c += 2; *c != ':'; ++c) {
        if (*c == ' ')
            ++row.ncells;
        else
            row.nodes[used++] = static_cast<unsigned char>(*c >= 'a' ? *c - 'a' + Corners : *c - '0');
    }
    int level = -1;
    for (; *c != 0; ++c) {
        if (*c == ':') {
            ++level;
            used = 0;
        } else if (*c != ' ') {
            row.lines[level][used++] = static_cast<unsigned char>(*c - 'a');
            row.nlines[level] = static_cast<unsigned char>(used / 2);
        }
    }
    return row;
}

namespace {

// Rows count from 1.
template <int Rows, int Corners> struct band_table {
    band_case row[Rows + 2];
    signed char index[1 << 2 * Corners];
    int nkept[Rows + 2];
};

} // namespace

template <int Corners, int Rows>
static constexpr band_table<Rows, Corners> parse_band_rows(const listed_band (&rows)[Rows])
{
    band_table<Rows, Corners> table = {};
    for (signed char &entry : table.index)
        entry = -1;
    for (int i = 1; i <= Rows; ++i) {
        const int hi_mask = rows[i - 1].key >> Corners, lo_mask = rows[i - 1].key & ((1 << Corners) - 1);
        table.row[i] = parse_band_row<Corners>(rows[i - 1].text);
        table.index[rows[i - 1].key] = static_cast<signed char>(i);
        for (int c = 0; c < Corners; ++c)
            table.nkept[i] += (lo_mask & ~hi_mask) >> c & 1;
    }
    return table;
}

constexpr auto tri_bands = parse_band_rows<3>(tri_band_rows);
constexpr auto quad_bands = parse_band_rows<4>(quad_band_rows);

// ---- what the tables lean on -----------------------------------------------------------------------------

// Each key that can come up has its row, and no other: corners above are not below, both sides have corners.
// An edge has a new node where its ends are on two sides of the lower level, and one where they are on two
// sides of the upper one. Triangles are over these and the corners in between.
template <int Rows, int Corners>
static constexpr bool bands_fit(const band_table<Rows, Corners> &table, const char *edges)
{
    for (int key = 0; key < 1 << 2 * Corners; ++key) {
        const int hi = key >> Corners, lo = key & ((1 << Corners) - 1);
        const bool is_needed = hi != 0 && (hi & ~lo) == 0 && lo != (1 << Corners) - 1;
        if ((table.index[key] > 0) != is_needed) return false;
        if (!is_needed) continue;
        const band_case &row = table.row[static_cast<int>(table.index[key])];
        int npoints = 0;
        for (const char *e = edges; *e != 0; e += *e == ' ' ? 1 : 2) {
            if (*e == ' ') continue;
            const int a = e[0] - '0', b = e[1] - '0';
            const int masks[2] = {lo, hi};
            for (int level = 0; level < 2; ++level) {
                int nlisted = 0;
                for (int p = 0; p < row.npoints; ++p)
                    nlisted += row.left[p] == a && row.right[p] == b && row.level[p] == level;
                const bool is_crossed = ((masks[level] >> a ^ masks[level] >> b) & 1) != 0;
                if (nlisted != (is_crossed ? 1 : 0)) return false;
                npoints += nlisted;
            }
        }
        if (npoints != row.npoints) return false;
        for (int node = 0; node < Corners + row.npoints; ++node) {
            bool used = false;
            for (int i = 0; i < 3 * row.ncells; ++i)
                used = used || row.nodes[i] == node;
            if (used != (node >= Corners || ((lo & ~hi) >> node & 1) != 0)) return false;
        }
        for (int level = 0; level < 2; ++level)
            for (int i = 0; i < 2 * row.nlines[level]; ++i)
                if (row.level[row.lines[level][i]] != level) return false;
    }
    return true;
}

static_assert(bands_fit(tri_bands, "01 02 12"), "tri bands");
static_assert(bands_fit(quad_bands, "01 03 12 23"), "quad bands");

// ---- runs ------------------------------------------------------------------------------------------------

namespace {

// Rows end to end, as they are exported.
template <int Rows, int Points, int Cells, int Lines> struct band_runs {
    int first_point[Rows], first_cell[Rows], first_entry[Rows], first_line[2][Rows];
    unsigned char left[Points], right[Points], level[Points];
    unsigned char type[Cells], nnodes[Cells];
    unsigned char node[3 * Cells], is_new[3 * Cells];
    unsigned char line[2][2 * Lines];
    int npoints, ncells, nlines[2];
};

} // namespace

template <int Points, int Cells, int Lines, int Rows, int Corners>
static constexpr band_runs<Rows + 2, Points, Cells, Lines>
join_band_rows(const band_table<Rows, Corners> &table)
{
    band_runs<Rows + 2, Points, Cells, Lines> runs = {};
    for (int i = 1; i <= Rows; ++i) {
        const band_case &row = table.row[i];
        runs.first_point[i] = runs.npoints;
        runs.first_cell[i] = runs.ncells;
        runs.first_entry[i] = 3 * runs.ncells;
        for (int p = 0; p < row.npoints; ++p, ++runs.npoints) {
            runs.left[runs.npoints] = row.left[p];
            runs.right[runs.npoints] = row.right[p];
            runs.level[runs.npoints] = row.level[p];
        }
        for (int e = 0; e < 3 * row.ncells; ++e) {
            const bool is_new = row.nodes[e] >= Corners;
            runs.node[3 * runs.ncells + e] =
                static_cast<unsigned char>(row.nodes[e] - (is_new ? Corners : 0));
            runs.is_new[3 * runs.ncells + e] = is_new;
        }
        for (int cell = 0; cell < row.ncells; ++cell, ++runs.ncells) {
            runs.type[runs.ncells] = TRI_LIST;
            runs.nnodes[runs.ncells] = 3;
        }
        for (int level = 0; level < 2; ++level) {
            runs.first_line[level][i] = 2 * runs.nlines[level];
            for (int e = 0; e < 2 * row.nlines[level]; ++e)
                runs.line[level][2 * runs.nlines[level] + e] = row.lines[level][e];
            runs.nlines[level] += row.nlines[level];
        }
    }
    return runs;
}

constexpr auto tri = join_band_rows<48, 32, 12>(tri_bands);
constexpr auto quad = join_band_rows<224, 160, 56>(quad_bands);

static_assert(tri.npoints == 48 && tri.ncells == 30 && tri.nlines[0] == 12 && tri.nlines[1] == 12,
              "tri runs");
static_assert(quad.npoints == 224 && quad.ncells == 160 && quad.nlines[0] == 56 && quad.nlines[1] == 56,
              "quad runs");

// ---- exported arrays -------------------------------------------------------------------------------------

// clang-format off
#define LIST_2(ENTRY, k, i) ENTRY(k, i), ENTRY(k, i + 1)
#define LIST_4(ENTRY, k, i) LIST_2(ENTRY, k, i), LIST_2(ENTRY, k, i + 2)
#define LIST_8(ENTRY, k, i) LIST_4(ENTRY, k, i), LIST_4(ENTRY, k, i + 4)
#define LIST_13(ENTRY, k, i) LIST_8(ENTRY, k, i), LIST_4(ENTRY, k, i + 8), ENTRY(k, i + 12)
#define LIST_14(ENTRY, k, i) LIST_13(ENTRY, k, i), ENTRY(k, i + 13)
#define LIST_16(ENTRY, k, i) LIST_8(ENTRY, k, i), LIST_8(ENTRY, k, i + 8)
#define LIST_24(ENTRY, k, i) LIST_16(ENTRY, k, i), LIST_8(ENTRY, k, i + 16)
#define LIST_32(ENTRY, k, i) LIST_16(ENTRY, k, i), LIST_16(ENTRY, k, i + 16)
#define LIST_48(ENTRY, k, i) LIST_32(ENTRY, k, i), LIST_16(ENTRY, k, i + 32)
#define LIST_51(ENTRY, k, i) LIST_48(ENTRY, k, i), LIST_2(ENTRY, k, i + 48), ENTRY(k, i + 50)
#define LIST_52(ENTRY, k, i) LIST_48(ENTRY, k, i), LIST_4(ENTRY, k, i + 48)
#define LIST_64(ENTRY, k, i) LIST_32(ENTRY, k, i), LIST_32(ENTRY, k, i + 32)
#define LIST_96(ENTRY, k, i) LIST_64(ENTRY, k, i), LIST_32(ENTRY, k, i + 64)
#define LIST_112(ENTRY, k, i) LIST_64(ENTRY, k, i), LIST_48(ENTRY, k, i + 64)
#define LIST_160(ENTRY, k, i) LIST_96(ENTRY, k, i), LIST_64(ENTRY, k, i + 96)
#define LIST_224(ENTRY, k, i) LIST_160(ENTRY, k, i), LIST_64(ENTRY, k, i + 160)
#define LIST_256(ENTRY, k, i) LIST_160(ENTRY, k, i), LIST_96(ENTRY, k, i + 160)
#define LIST_480(ENTRY, k, i) LIST_256(ENTRY, k, i), LIST_224(ENTRY, k, i + 256)

#define ROW(k, i) k##_bands.index[i]
#define KEPT(k, i) k##_bands.nkept[i]
#define POINTS(k, i) k##_bands.row[i].npoints
#define CELLS(k, i) k##_bands.row[i].ncells
#define LOW_LINES(k, i) k##_bands.row[i].nlines[0]
#define HIGH_LINES(k, i) k##_bands.row[i].nlines[1]
#define RECORD(k, i) k##_bands.row[i]
#define FIRST_POINT(k, i) k.first_point[i]
#define FIRST_CELL(k, i) k.first_cell[i]
#define FIRST_ENTRY(k, i) k.first_entry[i]
#define FIRST_LOW_LINE(k, i) k.first_line[0][i]
#define FIRST_HIGH_LINE(k, i) k.first_line[1][i]
#define LEFT(k, i) k.left[i]
#define RIGHT(k, i) k.right[i]
#define LEVEL(k, i) k.level[i]
#define TYPE(k, i) k.type[i]
#define NNODES(k, i) k.nnodes[i]
#define NODE(k, i) k.node[i]
#define IS_NEW(k, i) k.is_new[i]
#define LOW_LINE(k, i) k.line[0][i]
#define HIGH_LINE(k, i) k.line[1][i]

#define BAND_ARRAYS(k, KEYS, ROWS, POINT_LIST, CELL_LIST, ENTRY_LIST, LINE_LIST) \
    const int CONTtable_index_##k[KEYS] = {LIST_##KEYS(ROW, k, 0)}; \
    const int CONTnold_nodes_##k[ROWS] = {LIST_##ROWS(KEPT, k, 0)}; \
    const int CONTnnew_nodes_##k[ROWS] = {LIST_##ROWS(POINTS, k, 0)}; \
    const int CONTm_ind_##k[ROWS] = {LIST_##ROWS(FIRST_POINT, k, 0)}; \
    const unsigned char CONTmin_node_##k[] = {POINT_LIST(LEFT, k, 0)}; \
    const unsigned char CONTmax_node_##k[] = {POINT_LIST(RIGHT, k, 0)}; \
    const unsigned char CONTvalues_##k[] = {POINT_LIST(LEVEL, k, 0)}; \
    const int CONTncell_##k[ROWS] = {LIST_##ROWS(CELLS, k, 0)}; \
    const int CONTt_ind_##k[ROWS] = {LIST_##ROWS(FIRST_CELL, k, 0)}; \
    const unsigned char CONTcell_type_##k[] = {CELL_LIST(TYPE, k, 0)}; \
    const unsigned char CONTcell_nnode_##k[] = {CELL_LIST(NNODES, k, 0)}; \
    const int CONTc_ind_##k[ROWS] = {LIST_##ROWS(FIRST_ENTRY, k, 0)}; \
    const unsigned char CONTconnect_list_##k[] = {ENTRY_LIST(NODE, k, 0)}; \
    const unsigned char CONTnew_flag_list_##k[] = {ENTRY_LIST(IS_NEW, k, 0)}; \
    const int CONTnedge1_##k[ROWS] = {LIST_##ROWS(LOW_LINES, k, 0)}; \
    const int CONTnedge2_##k[ROWS] = {LIST_##ROWS(HIGH_LINES, k, 0)}; \
    const int CONTedge_ind1_##k[ROWS] = {LIST_##ROWS(FIRST_LOW_LINE, k, 0)}; \
    const int CONTedge_ind2_##k[ROWS] = {LIST_##ROWS(FIRST_HIGH_LINE, k, 0)}; \
    const unsigned char CONTconnect_edge1_##k[] = {LINE_LIST(LOW_LINE, k, 0)}; \
    const unsigned char CONTconnect_edge2_##k[] = {LINE_LIST(HIGH_LINE, k, 0)};

BAND_ARRAYS(tri, 64, 14, LIST_48, LIST_32, LIST_96, LIST_24)
BAND_ARRAYS(quad, 256, 52, LIST_224, LIST_160, LIST_480, LIST_112)

constexpr band_case band_rows_tri[13] = {LIST_13(RECORD, tri, 0)};
constexpr band_case band_rows_quad[51] = {LIST_51(RECORD, quad, 0)};
constexpr signed char band_index_tri[64] = {LIST_64(ROW, tri, 0)};
constexpr signed char band_index_quad[256] = {LIST_256(ROW, quad, 0)};
// clang-format on
