#include "height_mesh.hpp"

#include <algorithm>
#include <cmath>
#include <queue>

namespace {

struct place {
    int64_t i, j;
};

// Twice the area, above 0 if a, b, c turn left.
int64_t turn(place a, place b, place c)
{
    return (b.i - a.i) * (c.j - a.j) - (b.j - a.j) * (c.i - a.i);
}

int64_t floor_of(int64_t a, int64_t b) // b above 0
{
    return a >= 0 ? a / b : -((-a + b - 1) / b);
}

// The nodes of a triangle that turns left: visit(row, first, last) of each row that has some.
template <typename Visit> void visit_rows(const std::array<place, 3> &corners, Visit visit)
{
    const int64_t low = std::min({corners[0].j, corners[1].j, corners[2].j});
    const int64_t high = std::max({corners[0].j, corners[1].j, corners[2].j});
    for (int64_t j = low; j <= high; ++j) {
        int64_t first = std::min({corners[0].i, corners[1].i, corners[2].i});
        int64_t last = std::max({corners[0].i, corners[1].i, corners[2].i});
        for (size_t k = 0; k < 3; ++k) {
            const place a = corners[k], b = corners[(k + 1) % 3];
            const int64_t di = b.i - a.i, dj = b.j - a.j, across = di * (j - a.j);
            if (dj > 0)
                last = std::min(last, a.i + floor_of(across, dj));
            else if (dj < 0)
                first = std::max(first, a.i - floor_of(across, -dj));
        }
        if (first <= last) visit(j, first, last);
    }
}

// The plane over three places.
struct plane_of_heights {
    double height, along, across; // at the first place, and by how much it rises a node
    place at;

    plane_of_heights(const std::array<place, 3> &p, const std::array<double, 3> &h) : height(h[0]), at(p[0])
    {
        const double area = static_cast<double>(turn(p[0], p[1], p[2]));
        const double h1 = h[1] - h[0], h2 = h[2] - h[0];
        along = (h1 * static_cast<double>(p[2].j - at.j) - h2 * static_cast<double>(p[1].j - at.j)) / area;
        across = (h2 * static_cast<double>(p[1].i - at.i) - h1 * static_cast<double>(p[2].i - at.i)) / area;
    }
    double in_row(int64_t j) const { return height + across * static_cast<double>(j - at.j); }
    double of(double row, int64_t i) const { return row + along * static_cast<double>(i - at.i); }
};

struct triangle {
    std::array<int, 3> corner;
    std::array<int, 3> beside; // the triangle across the edge from each corner to the next; -1: none
    int64_t worst = -1;        // node; -1: none within
    double error = 0;
    unsigned version = 0;
};

struct candidate {
    double error;
    int index;
    unsigned version;
    bool operator<(const candidate &other) const { return error < other.error; }
};

bool is_corner(const std::array<place, 3> &p, int64_t i, int64_t j)
{
    return std::any_of(p.begin(), p.end(), [&](place c) { return c.i == i && c.j == j; });
}

class refinement {
  public:
    refinement(const height_map &of, double bound) : map(of), tolerance(bound)
    {
        const int64_t right = map.nx - 1, top = (map.ny - 1) * map.nx;
        made.nodes = {0, right, top + right, top};
        triangles.push_back({{0, 1, 3}, {-1, 1, -1}});
        triangles.push_back({{2, 3, 1}, {-1, 0, -1}});
        changed = {0, 1};
        look_at_changed();
    }

    height_triangles run(const std::function<void()> &watch)
    {
        for (int64_t step = 0; !queue.empty(); ++step) {
            if (step % 1024 == 0) watch();
            const candidate worst = queue.top();
            queue.pop();
            const triangle &of = triangles[static_cast<size_t>(worst.index)];
            if (of.version != worst.version) continue;
            insert(worst.index, of.worst);
            look_at_changed();
        }
        for (const triangle &t : triangles)
            made.corners.push_back(t.corner);
        return std::move(made);
    }

  private:
    place at(int vertex) const
    {
        const int64_t node = made.nodes[static_cast<size_t>(vertex)];
        return {node % map.nx, node / map.nx};
    }

    std::array<place, 3> places(const triangle &t) const
    {
        return {at(t.corner[0]), at(t.corner[1]), at(t.corner[2])};
    }

    triangle &get(int index) { return triangles[static_cast<size_t>(index)]; }

    static size_t edge_to(const triangle &t, int neighbour)
    {
        return t.beside[0] == neighbour ? 0 : t.beside[1] == neighbour ? 1 : 2;
    }

    void set_beside(int index, int old_neighbour, int neighbour)
    {
        if (index >= 0) get(index).beside[edge_to(get(index), old_neighbour)] = neighbour;
    }

    // The worst node of each triangle that is new or another.
    void look_at_changed()
    {
        std::sort(changed.begin(), changed.end());
        changed.erase(std::unique(changed.begin(), changed.end()), changed.end());
        for (const int index : changed) {
            triangle &t = get(index);
            const std::array<place, 3> p = places(t);
            std::array<double, 3> h = {};
            for (size_t k = 0; k < 3; ++k)
                h[k] = map.heights[made.nodes[static_cast<size_t>(t.corner[k])]];
            const plane_of_heights plane(p, h);
            t.error = tolerance;
            t.worst = -1;
            ++t.version;
            visit_rows(p, [&](int64_t j, int64_t first, int64_t last) {
                const double row = plane.in_row(j);
                const double *heights = map.heights + j * map.nx;
                for (int64_t i = first; i <= last; ++i) {
                    const double error = std::fabs(heights[i] - plane.of(row, i));
                    if (error > t.error && !is_corner(p, i, j)) {
                        t.error = error;
                        t.worst = j * map.nx + i;
                    }
                }
            });
            if (t.worst >= 0) queue.push({t.error, index, t.version});
        }
        changed.clear();
    }

    int add(std::array<int, 3> corner, std::array<int, 3> beside)
    {
        triangles.push_back({corner, beside});
        return static_cast<int>(triangles.size()) - 1;
    }

    void insert(int index, int64_t node)
    {
        const int vertex = static_cast<int>(made.nodes.size());
        made.nodes.push_back(node);
        const std::array<place, 3> p = places(get(index));
        for (size_t k = 0; k < 3; ++k)
            if (turn(p[k], p[(k + 1) % 3], at(vertex)) == 0) return split_edge(index, k, vertex);
        split_inside(index, vertex);
    }

    void split_inside(int index, int vertex)
    {
        const triangle old = get(index);
        const auto [a, b, c] = old.corner;
        const int next = static_cast<int>(triangles.size());
        add({b, c, vertex}, {old.beside[1], next + 1, index});
        add({c, a, vertex}, {old.beside[2], index, next});
        triangle &first = get(index);
        first.corner = {a, b, vertex};
        first.beside = {old.beside[0], next, next + 1};
        set_beside(old.beside[1], index, next);
        set_beside(old.beside[2], index, next + 1);
        for (const int t : {index, next, next + 1})
            legalise(t, 0);
    }

    // The triangle with its edge k first falls in two there, and so does the one across.
    void split_edge(int index, size_t k, int vertex)
    {
        const auto halve = [&](int which, size_t edge) {
            const triangle old = get(which);
            const int a = old.corner[edge], b = old.corner[(edge + 1) % 3], c = old.corner[(edge + 2) % 3];
            const int bc = old.beside[(edge + 1) % 3], ca = old.beside[(edge + 2) % 3];
            const int made_one = add({vertex, b, c}, {-1, bc, which});
            get(which).corner = {a, vertex, c};
            get(which).beside = {-1, made_one, ca};
            set_beside(bc, which, made_one);
            return made_one;
        };
        const int across = get(index).beside[k];
        const size_t edge = across >= 0 ? edge_to(get(across), index) : 0;
        const int second = halve(index, k);
        if (across >= 0) {
            const int fourth = halve(across, edge);
            // The halves of one meet those of the other, crosswise.
            get(index).beside[0] = fourth;
            get(fourth).beside[0] = index;
            get(second).beside[0] = across;
            get(across).beside[0] = second;
            legalise(across, 2);
            legalise(fourth, 1);
        }
        legalise(index, 2);
        legalise(second, 1);
    }

    // Below 0, 0, above 0: d is outside of, on, inside the circle of a, b, c, which turn left.
    int in_circle(place a, place b, place c, place d) const
    {
        using wide = __int128;
        const auto square = [&](place p) {
            return wide(p.i - d.i) * (p.i - d.i) + wide(p.j - d.j) * (p.j - d.j);
        };
        const auto cross = [&](place p, place q) {
            return wide(p.i - d.i) * (q.j - d.j) - wide(p.j - d.j) * (q.i - d.i);
        };
        const wide det = square(a) * cross(b, c) + square(b) * cross(c, a) + square(c) * cross(a, b);
        return det > 0 ? 1 : det < 0 ? -1 : 0;
    }

    // Turns edges until each circle is empty, beginning with one edge of a triangle.
    void legalise(int start, size_t start_edge)
    {
        std::vector<std::pair<int, size_t>> open = {{start, start_edge}};
        while (!open.empty()) {
            const auto [index, k] = open.back();
            open.pop_back();
            changed.push_back(index);
            const triangle t = get(index);
            const int across = t.beside[k];
            if (across < 0) continue;
            const triangle u = get(across);
            const size_t m = edge_to(u, index);
            const int a = t.corner[k], b = t.corner[(k + 1) % 3], c = t.corner[(k + 2) % 3],
                      d = u.corner[(m + 2) % 3];
            changed.push_back(across);
            if (in_circle(at(a), at(b), at(c), at(d)) <= 0) continue;
            // a b c and b a d become c d b and d c a.
            const int bc = t.beside[(k + 1) % 3], ca = t.beside[(k + 2) % 3];
            const int ad = u.beside[(m + 1) % 3], db = u.beside[(m + 2) % 3];
            get(index).corner = {c, d, b};
            get(index).beside = {across, db, bc};
            get(across).corner = {d, c, a};
            get(across).beside = {index, ca, ad};
            set_beside(db, across, index);
            set_beside(ca, index, across);
            open.push_back({index, 1});
            open.push_back({across, 2});
        }
    }

    const height_map &map;
    double tolerance;
    height_triangles made;
    std::vector<triangle> triangles;
    std::vector<int> changed;
    std::priority_queue<candidate> queue;
};

} // namespace

height_triangles fit_heights(const height_map &map, double tolerance, const std::function<void()> &watch)
{
    return refinement(map, tolerance).run(watch);
}

height_error error_of(const height_map &map, const height_triangles &made, const std::vector<double> &heights)
{
    height_error found;
    std::vector<bool> covered(static_cast<size_t>(map.nx * map.ny), false);
    for (const std::array<int, 3> &corners : made.corners) {
        std::array<place, 3> p = {};
        std::array<double, 3> h = {};
        for (size_t k = 0; k < 3; ++k) {
            const size_t vertex = static_cast<size_t>(corners[k]);
            p[k] = {made.nodes[vertex] % map.nx, made.nodes[vertex] / map.nx};
            h[k] = heights[vertex];
            found.largest = std::max(found.largest, std::fabs(h[k] - map.heights[made.nodes[vertex]]));
        }
        const int64_t area = turn(p[0], p[1], p[2]);
        if (area == 0) continue; // its nodes are those of triangles beside it
        if (area < 0) {
            std::swap(p[1], p[2]);
            std::swap(h[1], h[2]);
        }
        const plane_of_heights plane(p, h);
        visit_rows(p, [&](int64_t j, int64_t first, int64_t last) {
            for (int64_t i = first; i <= last; ++i) {
                const int64_t node = j * map.nx + i;
                covered[static_cast<size_t>(node)] = true;
                if (!is_corner(p, i, j))
                    found.largest =
                        std::max(found.largest, std::fabs(map.heights[node] - plane.of(plane.in_row(j), i)));
            }
        });
    }
    found.uncovered = std::count(covered.begin(), covered.end(), false);
    return found;
}
