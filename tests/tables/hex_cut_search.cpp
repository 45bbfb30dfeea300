// Finds the rows of the hexahedron's cut table: how the kept part of a cell is split into tetrahedra.
//
// A few rows are given and stay as they are; so do, for all others, the counts of tetrahedra: how many cases
// have 1, how many have 2, and so on. Within that the search keeps these rules:
//
//   - the tetrahedra of a case fill the part around its kept corners, which ends on each face of the cell in
//     the face's kept corners, diagonal ones apart, and inside the cell in triangles over new nodes
//   - at the midpoints of the edges none is inverted, none overlaps another one of its case or of the
//     complement, and the whole table has exactly 18 flat ones, each of which swaps the diagonal of a face
//   - a slab, four corners of one side, has six pieces as the two given ones have, though five would do
//   - where no face has diagonal corners a case and its complement share the triangles between them, so
//     that together they fill the cell wherever on its edges the new nodes are
//
// and among what remains prefers the best-shaped pieces: the least sum of reciprocal shapes at midpoints,
// where shape is 12 (3 V)^(2/3) over the sum of squared edges, 1 for a regular tetrahedron. A piece that
// could be inverted by moving new nodes along their edges counts a hundred more. The surfaces that a case and
// its complement end in are those of their cheapest splits; given these, the rows are the cheapest for the
// counts.
//
// A split is found through its boundary. Tetrahedra of positive orientation whose faces cancel but for the
// boundary of a region fill this region, and nothing twice: the count of pieces around a point is how often
// the boundary winds about it. So the search starts from the triangles inside the cell and, as long as a face
// has nothing behind it, tries the pieces that fit on it; faces in a side of the cell need nothing behind.
// It runs once for each shape of part, of which the others are turned copies. Counts are then shared out
// among the cases as goods among stores, at least cost, with a price on flat pieces at which as many are
// taken as are told.
//
// It prints the table in the notation of cut_tables.cpp, and fails if that one has other rows.
#include <skoklana/tables.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

// ---- the cell --------------------------------------------------------------------------------------------

// Corners stand at 0 and 2, so that midpoints are whole. Pieces of positive volume here have the sense that
// a first-order tetrahedron has in its own coordinates.
struct point {
    int x, y, z;
};
constexpr point corner_at[8] = {{0, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0},
                                {0, 0, 2}, {2, 0, 2}, {2, 2, 2}, {0, 2, 2}};
constexpr int faces[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4},
                             {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};
constexpr int edges[12][2] = {{0, 1}, {0, 3}, {0, 4}, {1, 2}, {1, 5}, {2, 3},
                              {2, 6}, {3, 7}, {4, 5}, {4, 7}, {5, 6}, {6, 7}};

int edge_of(int a, int b)
{
    for (int e = 0; e < 12; ++e)
        if ((edges[e][0] == a && edges[e][1] == b) || (edges[e][0] == b && edges[e][1] == a)) return e;
    return -1;
}

// Nodes of all cases: 0 to 7 are the corners, 8 + e is the new node of edge e.
point midpoint(int node)
{
    if (node < 8) return corner_at[node];
    const point a = corner_at[edges[node - 8][0]], b = corner_at[edges[node - 8][1]];
    return {(a.x + b.x) / 2, (a.y + b.y) / 2, (a.z + b.z) / 2};
}

// Six times the volume.
int volume_of(point a, point b, point c, point d)
{
    const int u[3] = {b.x - a.x, b.y - a.y, b.z - a.z}, v[3] = {c.x - a.x, c.y - a.y, c.z - a.z},
              w[3] = {d.x - a.x, d.y - a.y, d.z - a.z};
    return u[0] * (v[1] * w[2] - v[2] * w[1]) - u[1] * (v[0] * w[2] - v[2] * w[0]) +
           u[2] * (v[0] * w[1] - v[1] * w[0]);
}

using tet = std::array<int, 4>;
using triangle = std::array<int, 3>;

int volume_of(const tet &t)
{
    return volume_of(midpoint(t[0]), midpoint(t[1]), midpoint(t[2]), midpoint(t[3]));
}

// The volume is linear in the place of each new node, so it is least where all of them are at ends of their
// edges.
bool can_invert(const tet &t)
{
    for (int ends = 0; ends < 16; ++ends) {
        point p[4];
        for (int i = 0; i < 4; ++i)
            p[i] = t[i] < 8 ? corner_at[t[i]] : corner_at[edges[t[i] - 8][ends >> i & 1]];
        if (volume_of(p[0], p[1], p[2], p[3]) < 0) return true;
    }
    return false;
}

// Costs are whole, so that sums of them compare alike on every machine.
constexpr long unit_cost = 1000000;
constexpr long no_split = 1000000 * unit_cost;

long cost_of(const tet &t)
{
    double squares = 0;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < i; ++j) {
            const point a = midpoint(t[i]), b = midpoint(t[j]);
            squares += (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y) + (a.z - b.z) * (a.z - b.z);
        }
    const double volume = volume_of(t) / 6.0, shape = 12 * std::cbrt(9 * volume * volume) / squares;
    return std::lround(static_cast<double>(unit_cost) / shape) + (can_invert(t) ? 100 * unit_cost : 0);
}

// Whether three nodes in a side of the cell run counter-clockwise, seen from outside.
bool turns_left(int a, int b, int c)
{
    const point p = midpoint(a), q = midpoint(b), r = midpoint(c), inner = {1, 1, 1};
    return volume_of(inner, p, q, r) > 0;
}

// Whether the insides of two pieces meet: no plane along a face, and none along an edge of each, parts them.
bool overlap(const tet &a, const tet &b)
{
    point p[8];
    for (int i = 0; i < 4; ++i) {
        p[i] = midpoint(a[i]);
        p[4 + i] = midpoint(b[i]);
    }
    const auto parts = [&](int ux, int uy, int uz, int vx, int vy, int vz) {
        const int n[3] = {uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx};
        if (n[0] == 0 && n[1] == 0 && n[2] == 0) return false;
        int low[2] = {1 << 20, 1 << 20}, high[2] = {-(1 << 20), -(1 << 20)};
        for (int i = 0; i < 8; ++i) {
            const int at = n[0] * p[i].x + n[1] * p[i].y + n[2] * p[i].z;
            low[i / 4] = std::min(low[i / 4], at);
            high[i / 4] = std::max(high[i / 4], at);
        }
        return high[0] <= low[1] || high[1] <= low[0];
    };
    for (int i = 0; i < 8; ++i)
        for (int j = i / 4 * 4; j < i; ++j)
            for (int k = 0; k < 8; ++k)
                for (int l = k / 4 * 4; l < k; ++l)
                    if (parts(p[j].x - p[i].x, p[j].y - p[i].y, p[j].z - p[i].z, p[l].x - p[k].x,
                              p[l].y - p[k].y, p[l].z - p[k].z))
                        return false;
    return true;
}

bool overlap(const std::vector<tet> &a, const std::vector<tet> &b)
{
    for (const tet &one : a)
        for (const tet &other : b)
            if (volume_of(one) != 0 && volume_of(other) != 0 && overlap(one, other)) return true;
    return false;
}

// ---- turning ---------------------------------------------------------------------------------------------

using turn = std::array<int, 20>; // where each node goes

std::vector<turn> all_turns()
{
    std::vector<turn> turns;
    std::array<int, 8> to = {0, 1, 2, 3, 4, 5, 6, 7};
    do {
        turn all = {};
        bool rigid = volume_of(corner_at[to[0]], corner_at[to[1]], corner_at[to[3]], corner_at[to[4]]) == 8;
        for (int c = 0; c < 8; ++c)
            all[c] = to[c];
        for (int e = 0; e < 12 && rigid; ++e) {
            const int at = edge_of(to[edges[e][0]], to[edges[e][1]]);
            rigid = at >= 0;
            all[8 + e] = 8 + at;
        }
        if (rigid) turns.push_back(all);
    } while (std::next_permutation(to.begin(), to.end()));
    return turns;
}

int turned(int mask, const turn &by)
{
    int result = 0;
    for (int c = 0; c < 8; ++c)
        if ((mask >> c & 1) != 0) result |= 1 << by[c];
    return result;
}

template <size_t N> std::array<int, N> turned(std::array<int, N> nodes, const turn &by)
{
    for (int &node : nodes)
        node = by[node];
    return nodes;
}

// ---- the part around connected corners -------------------------------------------------------------------

std::vector<int> connected_parts(int mask)
{
    std::vector<int> parts;
    for (int left = mask; left != 0; left &= ~parts.back()) {
        int part = left & -left;
        for (int pass = 0; pass < 8; ++pass)
            for (const auto &e : edges)
                if (((part >> e[0] | part >> e[1]) & 1) != 0) part |= left & (1 << e[0] | 1 << e[1]);
        parts.push_back(part);
    }
    return parts;
}

// Triangles inside the cell that a part ends in, facing away from the corners, from the smallest node.
using cut_surface = std::set<triangle>;

triangle from_smallest(triangle t)
{
    std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
    return t;
}

void add_splits(const std::vector<int> &loop, std::vector<std::vector<triangle>> *splits)
{
    if (loop.size() < 3) {
        splits->push_back({});
        return;
    }
    for (size_t apex = 1; apex + 1 < loop.size(); ++apex) {
        std::vector<std::vector<triangle>> before, behind;
        add_splits({loop.begin(), loop.begin() + static_cast<long>(apex) + 1}, &before);
        add_splits({loop.begin() + static_cast<long>(apex), loop.end()}, &behind);
        for (const auto &one : before)
            for (const auto &other : behind) {
                splits->push_back(one);
                splits->back().insert(splits->back().end(), other.begin(), other.end());
                splits->back().push_back(from_smallest({loop[0], loop[apex], loop.back()}));
            }
    }
}

// On a face, the crossing that leads into kept corners is joined with the next one that leads out of them.
std::vector<std::vector<int>> loops_of(int part)
{
    std::map<int, int> next;
    for (const auto &face : faces)
        for (int in = 0; in < 4; ++in) {
            if ((part >> face[in] & 1) != 0 || (part >> face[(in + 1) % 4] & 1) == 0) continue;
            int out = in + 1;
            while ((part >> face[(out + 1) % 4] & 1) != 0)
                ++out;
            next[8 + edge_of(face[in], face[(in + 1) % 4])] = 8 + edge_of(face[out % 4], face[(out + 1) % 4]);
        }
    std::vector<std::vector<int>> loops;
    while (!next.empty()) {
        loops.emplace_back();
        for (auto at = next.begin(); at != next.end();) {
            loops.back().push_back(at->first);
            const int to = at->second;
            next.erase(at);
            at = next.find(to);
        }
    }
    return loops;
}

std::vector<cut_surface> surfaces_of(int part)
{
    std::vector<cut_surface> surfaces(1);
    for (const std::vector<int> &loop : loops_of(part)) {
        std::vector<std::vector<triangle>> splits;
        add_splits(loop, &splits);
        std::vector<cut_surface> longer;
        for (const cut_surface &surface : surfaces)
            for (const auto &split : splits) {
                longer.push_back(surface);
                longer.back().insert(split.begin(), split.end());
            }
        surfaces = longer;
    }
    return surfaces;
}

std::vector<int> nodes_of(int part)
{
    std::vector<int> nodes;
    for (int c = 0; c < 8; ++c)
        if ((part >> c & 1) != 0) nodes.push_back(c);
    for (int e = 0; e < 12; ++e)
        if ((part >> edges[e][0] & 1) != (part >> edges[e][1] & 1)) nodes.push_back(8 + e);
    return nodes;
}

bool on_face(int node, const int *face)
{
    int corners = 0;
    for (int i = 0; i < 4; ++i)
        corners +=
            node < 8 ? node == face[i] : edges[node - 8][0] == face[i] || edges[node - 8][1] == face[i];
    return corners == (node < 8 ? 1 : 2);
}

enum class place { inside, on_side, outside };

// Outside: in a side of the cell, across a face whose diagonal corners are kept.
place place_of(const triangle &t, int part)
{
    for (const auto &face : faces) {
        if (!on_face(t[0], face) || !on_face(t[1], face) || !on_face(t[2], face)) continue;
        int kept = 0;
        for (int i = 0; i < 4; ++i)
            kept |= (part >> face[i] & 1) << i;
        if (kept != 5 && kept != 10) return place::on_side;
        for (int corner : t) {
            bool touches_others = corner >= 8;
            for (int other : t)
                touches_others =
                    touches_others ||
                    (other != corner &&
                     (other < 8 || (edges[other - 8][0] != corner && edges[other - 8][1] != corner)));
            if (!touches_others) return place::on_side;
        }
        return place::outside;
    }
    return place::inside;
}

std::array<triangle, 4> outer_faces(const tet &t)
{
    return {from_smallest({t[1], t[2], t[3]}), from_smallest({t[0], t[3], t[2]}),
            from_smallest({t[0], t[1], t[3]}), from_smallest({t[0], t[2], t[1]})};
}

triangle turned_over(const triangle &t)
{
    return from_smallest({t[0], t[2], t[1]});
}

// Six times the volume between a surface and the kept corners: over the origin, the sides of the cell count
// where they do not hold it.
int volume_of(int part, const cut_surface &surface)
{
    int volume = 0;
    const auto add = [&](int a, int b, int c) {
        volume += volume_of(midpoint(0), midpoint(a), midpoint(b), midpoint(c));
    };
    for (const triangle &t : surface)
        add(t[0], t[1], t[2]);
    for (const auto &face : faces) {
        // Kept polygons of a face: from each corner that leads in, on to where it leads out.
        int kept = 0;
        for (int i = 0; i < 4; ++i)
            kept |= (part >> face[i] & 1) << i;
        if (kept == 15) {
            add(face[0], face[1], face[2]);
            add(face[0], face[2], face[3]);
            continue;
        }
        for (int in = 0; in < 4; ++in) {
            if ((kept >> in & 1) != 0 || (kept >> (in + 1) % 4 & 1) == 0) continue;
            std::vector<int> polygon = {8 + edge_of(face[in], face[(in + 1) % 4])};
            int at = (in + 1) % 4;
            for (; (kept >> at & 1) != 0; at = (at + 1) % 4)
                polygon.push_back(face[at]);
            polygon.push_back(8 + edge_of(face[(at + 3) % 4], face[at]));
            for (size_t i = 1; i + 1 < polygon.size(); ++i)
                add(polygon[0], polygon[i], polygon[i + 1]);
        }
    }
    return volume;
}

// ---- splitting one part ----------------------------------------------------------------------------------

constexpr int most_pieces = 12;

struct split {
    long cost = no_split;
    std::vector<tet> pieces;
};
using splits_by_count = std::array<split, most_pieces + 1>;

class part_search {
  public:
    explicit part_search(int part_) : part(part_)
    {
        const std::vector<int> nodes = nodes_of(part);
        for (size_t a = 0; a < nodes.size(); ++a)
            for (size_t b = a + 1; b < nodes.size(); ++b)
                for (size_t c = b + 1; c < nodes.size(); ++c)
                    for (size_t d = c + 1; d < nodes.size(); ++d)
                        add_candidate({nodes[a], nodes[b], nodes[c], nodes[d]});
        meets.resize(candidates.size());
        for (size_t i = 0; i < candidates.size(); ++i)
            for (size_t j = 0; j <= i; ++j)
                meets[i][j] = meets[j][i] = i == j || overlap(candidates[i].nodes, candidates[j].nodes);
    }

    splits_by_count with(const cut_surface &surface)
    {
        best = {};
        chosen.clear();
        std::set<triangle> open;
        for (const triangle &t : surface)
            open.insert(t);
        std::bitset<512> allowed;
        for (size_t i = 0; i < candidates.size(); ++i)
            allowed[i] = true;
        go(open, allowed, volume_of(part, surface), 0);
        return best;
    }

  private:
    struct candidate {
        tet nodes;
        std::array<triangle, 4> sides;
        std::array<bool, 4> on_side;
        long cost;
        int volume;
    };

    int part;
    std::vector<candidate> candidates;
    std::map<triangle, std::vector<int>> by_face;
    std::vector<std::bitset<512>> meets;
    splits_by_count best;
    std::vector<int> chosen;

    void add_candidate(tet t)
    {
        if (volume_of(t) == 0) return;
        if (volume_of(t) < 0) std::swap(t[2], t[3]);
        candidate c = {t, outer_faces(t), {}, cost_of(t), volume_of(t)};
        for (size_t f = 0; f < 4; ++f) {
            const place at = place_of(c.sides[f], part);
            if (at == place::outside) return;
            c.on_side[f] = at == place::on_side;
        }
        for (const triangle &side : c.sides)
            by_face[side].push_back(static_cast<int>(candidates.size()));
        candidates.push_back(c);
    }

    void go(const std::set<triangle> &open, const std::bitset<512> &allowed, int volume_left, long cost)
    {
        if (open.empty()) {
            split &known = best[chosen.size()];
            if (volume_left != 0 || cost >= known.cost) return;
            known.cost = cost;
            known.pieces.clear();
            for (int c : chosen)
                known.pieces.push_back(candidates[c].nodes);
            return;
        }
        // A piece takes four open faces at most, and costs 1 at least.
        const size_t least = chosen.size() + std::max<size_t>(1, (open.size() + 3) / 4);
        bool hopeless = true;
        for (size_t count = least; count <= most_pieces && hopeless; ++count)
            hopeless = cost + static_cast<long>(count - chosen.size()) * unit_cost >= best[count].cost;
        if (hopeless || volume_left <= 0) return;

        const triangle *narrowest = nullptr;
        int fewest = 1 << 20;
        for (const triangle &face : open) {
            int count = 0;
            const auto found = by_face.find(face);
            if (found != by_face.end())
                for (int c : found->second)
                    count += allowed[c];
            if (count < fewest) {
                fewest = count;
                narrowest = &face;
            }
        }
        if (fewest == 0) return;
        for (int c : by_face[*narrowest]) {
            if (!allowed[c] || candidates[c].volume > volume_left) continue;
            std::set<triangle> rest = open;
            for (size_t f = 0; f < 4; ++f)
                if (!candidates[c].on_side[f] && rest.erase(candidates[c].sides[f]) == 0)
                    rest.insert(turned_over(candidates[c].sides[f]));
            chosen.push_back(c);
            go(rest, allowed & ~meets[c], volume_left - candidates[c].volume, cost + candidates[c].cost);
            chosen.pop_back();
        }
    }
};

// ---- the whole table -------------------------------------------------------------------------------------

constexpr int ncases = 255;
constexpr int most_per_case = 13;
constexpr int cases_with[most_per_case + 1] = {0, 8, 16, 20, 26, 24, 36, 31, 28, 38, 18, 4, 4, 1};
constexpr int flat_pieces = 18;
constexpr int most_flat = 2; // in one case
constexpr int given_cases[] = {1, 3, 5, 7, 15, 33, 51, 85, 105, 150, 165, 254};

bool is_given(int index)
{
    return std::find(std::begin(given_cases), std::end(given_cases), index) != std::end(given_cases);
}

std::vector<tet> table_row(int index)
{
    std::vector<tet> row;
    for (int t = 0; t < CUTncell_hex[index]; ++t) {
        tet nodes = {};
        for (int i = 0; i < 4; ++i) {
            const int at = CUTc_ind_hex[index] + 4 * t + i, entry = CUTconnect_list_hex[at];
            const int run = CUTm_ind_hex[index] + entry;
            nodes[i] = CUTnew_flag_list_hex[at] == 0
                           ? entry
                           : 8 + edge_of(CUTmin_node_hex[run], CUTmax_node_hex[run]);
        }
        row.push_back(nodes);
    }
    return row;
}

// What a row's pieces end in inside the cell.
cut_surface surface_of(const std::vector<tet> &row)
{
    cut_surface surface;
    for (const tet &t : row)
        for (const triangle &side : outer_faces(t))
            if (place_of(side, 0) == place::inside && surface.erase(turned_over(side)) == 0)
                surface.insert(side);
    return surface;
}

// The splits of a part of any shape, from those of the first one that it is a turned copy of.
struct part_choice {
    cut_surface surface;
    splits_by_count splits;

    const split &cheapest() const
    {
        return *std::min_element(splits.begin(), splits.end(),
                                 [](const split &a, const split &b) { return a.cost < b.cost; });
    }
};

const std::vector<part_choice> &choices_of(int part)
{
    static const std::vector<turn> turns = all_turns();
    static std::map<int, std::vector<part_choice>> known;
    const auto found = known.find(part);
    if (found != known.end()) return found->second;
    std::vector<part_choice> choices;
    for (const turn &by : turns) {
        const auto like = known.find(turned(part, by));
        if (like == known.end()) continue;
        turn back = {};
        for (int node = 0; node < 20; ++node)
            back[by[node]] = node;
        for (const part_choice &theirs : like->second) {
            part_choice ours = {{}, theirs.splits};
            for (const triangle &t : theirs.surface)
                ours.surface.insert(from_smallest(turned(t, back)));
            for (split &s : ours.splits)
                for (tet &t : s.pieces)
                    t = turned(t, back);
            choices.push_back(ours);
        }
        return known[part] = choices;
    }
    part_search search(part);
    const bool is_slab = nodes_of(part).size() == 8 && CUTnold_nodes_hex[part] == 4;
    for (const cut_surface &surface : surfaces_of(part)) {
        part_choice one = {surface, search.with(surface)};
        if (is_slab) one.splits[5] = {};
        if (one.cheapest().cost < no_split) choices.push_back(one);
    }
    return known[part] = choices;
}

// A choice for each part of a case.
using case_choice = std::vector<const part_choice *>;

std::vector<case_choice> choices_of_case(int index)
{
    std::vector<case_choice> all = {{}};
    for (int part : connected_parts(index)) {
        std::vector<case_choice> longer;
        for (const case_choice &before : all)
            for (const part_choice &choice : choices_of(part)) {
                if (is_given(index)) {
                    const cut_surface whole = surface_of(table_row(index));
                    if (!std::includes(whole.begin(), whole.end(), choice.surface.begin(),
                                       choice.surface.end()))
                        continue;
                }
                longer.push_back(before);
                longer.back().push_back(&choice);
            }
        all = longer;
    }
    return all;
}

long cost_of(const case_choice &choice)
{
    long cost = 0;
    for (const part_choice *part : choice)
        cost += part->cheapest().cost;
    return cost;
}

cut_surface surface_of(const case_choice &choice)
{
    cut_surface surface;
    for (const part_choice *part : choice)
        surface.insert(part->surface.begin(), part->surface.end());
    return surface;
}

bool has_diagonal_face(int index)
{
    for (const auto &face : faces) {
        int kept = 0;
        for (int i = 0; i < 4; ++i)
            kept |= (index >> face[i] & 1) << i;
        if (kept == 5 || kept == 10) return true;
    }
    return false;
}

// Whether two cases may end as they do.
bool go_together(int index, const case_choice &one, const case_choice &other)
{
    if (!has_diagonal_face(index)) {
        cut_surface over;
        for (const triangle &t : surface_of(one))
            over.insert(turned_over(t));
        return over == surface_of(other);
    }
    case_choice parts = one;
    parts.insert(parts.end(), other.begin(), other.end());
    for (size_t i = 0; i < parts.size(); ++i)
        for (size_t j = 0; j < i; ++j)
            if (overlap(parts[i]->cheapest().pieces, parts[j]->cheapest().pieces)) return false;
    return true;
}

// For each case the choice of its surfaces, a case and its complement together.
std::vector<case_choice> choose_surfaces()
{
    std::vector<case_choice> chosen(256);
    for (int index = 1; index < 128; ++index) {
        struct pair_choice {
            long cost;
            const case_choice *one, *other;
        };
        const std::vector<case_choice> ones = choices_of_case(index), others = choices_of_case(255 - index);
        std::vector<pair_choice> pairs;
        for (const case_choice &one : ones)
            for (const case_choice &other : others)
                pairs.push_back({cost_of(one) + cost_of(other), &one, &other});
        std::stable_sort(pairs.begin(), pairs.end(),
                         [](const pair_choice &a, const pair_choice &b) { return a.cost < b.cost; });
        for (const pair_choice &pair : pairs) {
            if (!go_together(index, *pair.one, *pair.other)) continue;
            chosen[index] = *pair.one;
            chosen[255 - index] = *pair.other;
            break;
        }
        if (chosen[index].empty()) {
            std::fprintf(stderr, "no surfaces for case %d\n", index);
            std::exit(1);
        }
    }
    return chosen;
}

// By count, the cheapest split of a case: those of its parts together.
using case_splits = std::array<split, most_per_case + 1>;

case_splits splits_of(const case_choice &choice)
{
    case_splits all;
    all[0].cost = 0;
    for (const part_choice *part : choice) {
        case_splits longer;
        for (size_t a = 0; a < all.size(); ++a)
            for (size_t b = 1; b < part->splits.size() && a + b < all.size(); ++b) {
                const long cost = all[a].cost + part->splits[b].cost;
                if (cost >= longer[a + b].cost) continue;
                longer[a + b] = {cost, all[a].pieces};
                longer[a + b].pieces.insert(longer[a + b].pieces.end(), part->splits[b].pieces.begin(),
                                            part->splits[b].pieces.end());
            }
        all = longer;
    }
    return all;
}

// Flat pieces, each on two triangles of a side of the cell that share an edge: behind it they have the other
// diagonal. Those of the shortest diagonals first.
std::vector<tet> flat_pieces_on(const std::vector<tet> &pieces)
{
    std::set<triangle> on_sides;
    for (const tet &t : pieces)
        for (const triangle &side : outer_faces(t))
            if (place_of(side, 0) == place::on_side) on_sides.insert(side);
    std::vector<std::pair<int, tet>> found;
    for (const triangle &one : on_sides)
        for (const triangle &other : on_sides)
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) {
                    const int a = one[i], b = one[(i + 1) % 3], c = one[(i + 2) % 3], d = other[(j + 2) % 3];
                    // one is a b c, other is a c d.
                    if (other[j] != a || other[(j + 1) % 3] != c || a > c) continue;
                    const tet flat = {a, b, c, d};
                    const point p = midpoint(b), q = midpoint(d);
                    if (volume_of(flat) != 0 || !turns_left(a, b, d) || !turns_left(b, c, d)) continue;
                    found.push_back(
                        {(p.x - q.x) * (p.x - q.x) + (p.y - q.y) * (p.y - q.y) + (p.z - q.z) * (p.z - q.z),
                         flat});
                }
    std::sort(found.begin(), found.end());
    std::vector<tet> apart;
    std::set<triangle> taken;
    for (const auto &[length, flat] : found) {
        const triangle one = from_smallest({flat[0], flat[1], flat[2]}),
                       other = from_smallest({flat[0], flat[2], flat[3]});
        if (taken.count(one) != 0 || taken.count(other) != 0) continue;
        taken.insert({one, other});
        apart.push_back(flat);
    }
    return apart;
}

// The cheapest way to give each case a count so that as many have each count as are told. A case may have
// flat pieces at a price each, which all count the same but for the last digits, so that they come one by
// one.
std::vector<std::pair<int, int>> share_counts(const std::vector<case_splits> &splits, long price)
{
    struct lane {
        int from, to, room;
        long cost;
        int flat;
    };
    std::vector<lane> lanes;
    const auto add = [&](int from, int to, int room, long cost, int flat) {
        lanes.push_back({from, to, room, cost, flat});
        lanes.push_back({to, from, 0, -cost, flat});
    };
    const int source = 0, first_count = ncases, sink = first_count + most_per_case + 1;
    int left[most_per_case + 1];
    std::copy(std::begin(cases_with), std::end(cases_with), left);
    for (int index = 1; index < ncases; ++index) {
        if (is_given(index)) {
            --left[table_row(index).size()];
            continue;
        }
        add(source, index, 1, 0, 0);
        for (int count = 1; count <= most_per_case; ++count) {
            int flat = 0;
            long cost = no_split;
            for (int f = 0; f <= most_flat && f < count; ++f) {
                const split &real = splits[index][count - f];
                if (real.cost >= no_split || static_cast<int>(flat_pieces_on(real.pieces).size()) < f)
                    continue;
                if (real.cost + f * (price + index) >= cost) continue;
                cost = real.cost + f * (price + index);
                flat = f;
            }
            if (cost < no_split) add(index, first_count + count, 1, cost, flat);
        }
    }
    for (int count = 1; count <= most_per_case; ++count)
        add(first_count + count, sink, left[count], 0, 0);

    for (;;) {
        std::vector<long> distance(static_cast<size_t>(sink) + 1, no_split * 1000);
        std::vector<int> by(distance.size(), -1);
        distance[source] = 0;
        for (bool changed = true; changed;) {
            changed = false;
            for (size_t i = 0; i < lanes.size(); ++i)
                if (lanes[i].room > 0 && distance[lanes[i].from] + lanes[i].cost < distance[lanes[i].to]) {
                    distance[lanes[i].to] = distance[lanes[i].from] + lanes[i].cost;
                    by[lanes[i].to] = static_cast<int>(i);
                    changed = true;
                }
        }
        if (by[sink] < 0) break;
        for (int node = sink; node != source; node = lanes[by[node]].from) {
            --lanes[by[node]].room;
            ++lanes[by[node] ^ 1].room;
        }
    }
    std::vector<std::pair<int, int>> shares(ncases); // count, flat ones among them
    for (size_t i = 0; i < lanes.size(); i += 2)
        if (lanes[i].from > 0 && lanes[i].from < ncases && lanes[i].room == 0)
            shares[lanes[i].from] = {lanes[i].to - first_count, lanes[i].flat};
    return shares;
}

// Of the twelve orders of a piece's nodes that keep its sense, the first.
std::string name_of(const tet &nodes, const std::string &letters)
{
    std::string best = "~";
    tet at = {0, 1, 2, 3};
    do {
        int swaps = 0;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < i; ++j)
                swaps += at[j] > at[i];
        std::string name;
        for (int i : at)
            name += letters[nodes[i]];
        if (swaps % 2 == 0) best = std::min(best, name);
    } while (std::next_permutation(at.begin(), at.end()));
    return best;
}

std::string row_text(int index, const std::vector<tet> &pieces)
{
    std::string text, letters = "01234567------------";
    char next = 'a';
    for (int e = 0; e < 12; ++e) {
        if ((index >> edges[e][0] & 1) == (index >> edges[e][1] & 1)) continue;
        letters[8 + e] = next++;
        text += std::to_string(edges[e][0]) + std::to_string(edges[e][1]) + " ";
    }
    std::vector<std::string> names;
    for (const tet &t : pieces)
        names.push_back(name_of(t, letters));
    std::sort(names.begin(), names.end());
    text += ":";
    for (const std::string &name : names)
        text += " " + name;
    return text;
}

std::string given_text(int index)
{
    std::string text;
    for (int n = 0; n < CUTnnew_nodes_hex[index]; ++n)
        text += std::to_string(CUTmin_node_hex[CUTm_ind_hex[index] + n]) +
                std::to_string(CUTmax_node_hex[CUTm_ind_hex[index] + n]) + " ";
    text += ":";
    for (int i = 0; i < 4 * CUTncell_hex[index]; ++i) {
        const int entry = CUTconnect_list_hex[CUTc_ind_hex[index] + i];
        text += i % 4 == 0 ? " " : "";
        text += static_cast<char>((CUTnew_flag_list_hex[CUTc_ind_hex[index] + i] == 0 ? '0' : 'a') + entry);
    }
    return text;
}

} // namespace

int main()
{
    const std::vector<case_choice> chosen = choose_surfaces();
    std::vector<case_splits> splits(256);
    int flat_given = 0;
    for (int index = 1; index < ncases; ++index) {
        splits[index] = splits_of(chosen[index]);
        if (is_given(index))
            for (const tet &t : table_row(index))
                flat_given += volume_of(t) == 0;
    }

    // A higher price, fewer flat pieces.
    std::vector<std::pair<int, int>> shares;
    long low = -20 * unit_cost, high = 200 * unit_cost;
    int flat = -1;
    while (flat != flat_pieces && high - low > 1) {
        const long price = (low + high) / 2;
        shares = share_counts(splits, price);
        flat = flat_given;
        for (const auto &share : shares)
            flat += share.second;
        (flat > flat_pieces ? low : high) = price;
    }

    int differ = flat != flat_pieces, total = 0, invertible = 0;
    long cost = 0;
    for (int index = 0; index < ncases; ++index) {
        std::string corners, text;
        for (int c = 0; c < 8; ++c)
            corners += (index >> c & 1) != 0 ? static_cast<char>('0' + c) : '-';
        if (index > 0) {
            std::vector<tet> row = table_row(index);
            text = given_text(index);
            if (!is_given(index)) {
                const auto [count, nflat] = shares[index];
                row = splits[index][count - nflat].pieces;
                cost += splits[index][count - nflat].cost;
                const std::vector<tet> flats = flat_pieces_on(row);
                row.insert(row.end(), flats.begin(), flats.begin() + nflat);
                text = row_text(index, row);
                for (const tet &t : row)
                    invertible += can_invert(t);
            }
            total += static_cast<int>(row.size());
            differ += text != given_text(index);
        }
        std::printf("    /* %3d  %s */ \"%s\",\n", index, corners.c_str(), text.c_str());
    }
    std::fprintf(
        stderr,
        "price %ld; %d pieces, %d flat, cost of the rows found %ld, %d of them may invert; %d rows differ\n",
        low, total, flat, cost, invertible, differ);
    return differ != 0;
}
