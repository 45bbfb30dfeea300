// The formulas and the lattices of samples.hpp.
//
// Cells are made of the cubes of a lattice by tables of lattice corners, written as bits: bit d is set for
// the far end of axis d. Tetrahedra follow the six paths along edges from corner 000 to corner 111, one for
// each order of the axes, so that the diagonals of neighbouring cubes meet. Second-order nodes are found
// by their edge, the pair of corners that they stand between, and made once.
#include "samples.hpp"

#include <skoklana/cell_nodes.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>

namespace samples {

static const double pi = 3.14159265358979323846;

// ---- formulas -----------------------------------------------------------------------------------------------

// The orbital 4f z(x^2 - y^2) of hydrogen, lengths in Bohr radii:
// psi = sqrt(3 / pi) / 3072 * z (x^2 - y^2) exp(-r / 4), normalised to 1 over all space.
static void hydrogen(const double *x, float *out)
{
    const double r = std::sqrt(x[0] * x[0] + x[1] * x[1] + x[2] * x[2]);
    out[0] =
        static_cast<float>(std::sqrt(3 / pi) / 3072 * x[2] * (x[0] * x[0] - x[1] * x[1]) * std::exp(-r / 4));
}

// (1 - sin(pi z / 2) + a (1 + p(sqrt(x^2 + y^2)))) / (2 (1 + a)), p(r) = cos(2 pi f cos(pi r / 2)), with
// a = 0.25 and f = 6: hardly any of its frequencies can be represented on 41^3 nodes.
// Marschner and Lobb. An evaluation of reconstruction filters for volume rendering. 1994
static void marschner_lobb(const double *x, float *out)
{
    const double a = 0.25, f = 6;
    const double p = std::cos(2 * pi * f * std::cos(pi * std::hypot(x[0], x[1]) / 2));
    out[0] = static_cast<float>((1 - std::sin(pi * x[2] / 2) + a * (1 + p)) / (2 * (1 + a)));
}

// (A sin z + C cos y, B sin x + A cos z, C sin y + B cos x) with A, B, C the roots of 3, 2 and 1: a steady
// flow without divergence, each vector its own curl, with chaotic stream lines.
// Dombre et al. Chaotic streamlines in the ABC flows. 1986
static void abc_flow(const double *x, float *out)
{
    const double a = std::sqrt(3.0), b = std::sqrt(2.0), c = 1;
    out[0] = static_cast<float>(a * std::sin(x[2]) + c * std::cos(x[1]));
    out[1] = static_cast<float>(b * std::sin(x[0]) + a * std::cos(x[2]));
    out[2] = static_cast<float>(c * std::sin(x[1]) + b * std::cos(x[0]));
}

// A value of -1 to 1 for a lattice point: the bits of its coordinates, well mixed.
static double lattice_noise(const int64_t *at)
{
    uint64_t h = 0x9e3779b97f4a7c15u;
    for (int d = 0; d < 3; ++d) {
        h ^= static_cast<uint64_t>(at[d]);
        h *= 0xbf58476d1ce4e5b9u;
        h ^= h >> 29;
    }
    return static_cast<double>(h >> 11) / static_cast<double>(uint64_t{1} << 52) - 1;
}

// The lattice values, blended by 3 t^2 - 2 t^3 between lattice points.
static double noise(const double *x)
{
    int64_t base[3];
    double blend[3];
    for (int d = 0; d < 3; ++d) {
        const double floor = std::floor(x[d]), t = x[d] - floor;
        base[d] = static_cast<int64_t>(floor);
        blend[d] = t * t * (3 - 2 * t);
    }
    double sum = 0;
    for (int corner = 0; corner < 8; ++corner) {
        int64_t at[3];
        double weight = 1;
        for (int d = 0; d < 3; ++d) {
            const int far = corner >> d & 1;
            at[d] = base[d] + far;
            weight *= far != 0 ? blend[d] : 1 - blend[d];
        }
        sum += weight * lattice_noise(at);
    }
    return sum;
}

// 1 - r plus four octaves of noise: positive inside, 0 on the surface.
static void noisy_sphere(const double *x, float *out)
{
    double bumps = 0, height = 0.16, scale = 3;
    for (int octave = 0; octave < 4; ++octave, height /= 2, scale *= 2) {
        const double at[3] = {x[0] * scale, x[1] * scale, x[2] * scale};
        bumps += height * noise(at);
    }
    out[0] = static_cast<float>(1 - std::sqrt(x[0] * x[0] + x[1] * x[1] + x[2] * x[2]) + bumps);
}

const std::vector<field> &fields()
{
    static const std::vector<field> all = {
        {"hydrogen", "psi", 1, -30, 30, 0.003,
         "the 4f z(x^2 - y^2) orbital of hydrogen, lengths in Bohr radii", hydrogen},
        {"marschner-lobb", "density", 1, -1, 1, 0.5,
         "the test signal of Marschner and Lobb, hard to resample", marschner_lobb},
        {"abc-flow", "velocity", 3, 0, 2 * pi, 2.5,
         "the Arnold-Beltrami-Childress flow, a steady vector field", abc_flow},
        {"noisy-sphere", "height", 1, -1.5, 1.5, 0, "a unit sphere with four octaves of bumps", noisy_sphere},
    };
    return all;
}

const field *find(const std::string &name)
{
    for (const field &one : fields())
        if (name == one.name) return &one;
    return nullptr;
}

// ---- lattices -----------------------------------------------------------------------------------------------

int64_t mesh::nnodes() const
{
    if (!coords.empty() || kind == layout::cells) return static_cast<int64_t>(coords.size() / 3);
    int64_t n = 1;
    for (const int64_t dim : dims)
        n *= dim;
    return n;
}

void mesh::position(int64_t node, double *xyz) const
{
    if (kind == layout::curvilinear || kind == layout::cells) {
        for (int d = 0; d < 3; ++d)
            xyz[d] = coords[static_cast<size_t>(node * 3 + d)];
        return;
    }
    for (size_t d = 0; d < 3; ++d) {
        const int64_t dim = d < dims.size() ? dims[d] : 1;
        const int64_t at = node % dim;
        node /= dim;
        if (kind == layout::rectilinear)
            xyz[d] = axes[d][static_cast<size_t>(at)];
        else
            xyz[d] = dim < 2 ? corners[d]
                             : corners[d] + (double(corners[3 + d]) - corners[d]) * static_cast<double>(at) /
                                                static_cast<double>(dim - 1);
    }
}

// Place of position i of n along an axis from 0 to 1; an axis of one node stands at its middle.
static double even(int64_t i, int64_t n)
{
    return n < 2 ? 0.5 : static_cast<double>(i) / static_cast<double>(n - 1);
}

mesh structured(layout kind, const int64_t *dims, double lo, double hi)
{
    mesh out;
    out.kind = kind;
    out.dims.assign(dims, dims + 3);
    while (out.dims.size() > 1 && out.dims.back() == 1)
        out.dims.pop_back();

    const double size = hi - lo;
    if (kind == layout::uniform) {
        for (const int last : {0, 1})
            for (int d = 0; d < 3; ++d)
                out.corners.push_back(static_cast<float>(lo + size * (dims[d] < 2 ? 0.5 : last)));
    } else if (kind == layout::rectilinear) {
        // closest together in the middle of the cube
        for (int d = 0; d < 3; ++d) {
            out.axes.emplace_back();
            for (int64_t i = 0; i < dims[d]; ++i) {
                const double t = even(i, dims[d]);
                out.axes.back().push_back(static_cast<float>(lo + size * (t + 0.1 * std::sin(2 * pi * t))));
            }
        }
    } else {
        const double middle = (lo + hi) / 2;
        for (int64_t k = 0; k < dims[2]; ++k)
            for (int64_t j = 0; j < dims[1]; ++j)
                for (int64_t i = 0; i < dims[0]; ++i) {
                    const double x = size * (even(i, dims[0]) - 0.5), y = size * (even(j, dims[1]) - 0.5);
                    const double z = size * (even(k, dims[2]) - 0.5), angle = 0.8 * z / size;
                    const double c = std::cos(angle), s = std::sin(angle);
                    for (const double value : {c * x - s * y, s * x + c * y, z})
                        out.coords.push_back(static_cast<float>(middle + value));
                }
    }
    return out;
}

// ---- cells --------------------------------------------------------------------------------------------------

// The corners of each cell that a cube is cut into, as bits; 8 is the centre of the cube.
static std::vector<std::vector<int>> cut_of_cube(int kind)
{
    switch (kind) {
    case CELL_HEX: return {{6, 4, 5, 7, 2, 0, 1, 3}};
    case CELL_PRISM: return {{4, 5, 7, 0, 1, 3}, {4, 7, 6, 0, 3, 2}};
    case CELL_PYR: // the base goes around as seen from the centre
        return {{8, 0, 1, 3, 2}, {8, 4, 6, 7, 5}, {8, 0, 4, 5, 1},
                {8, 2, 3, 7, 6}, {8, 0, 2, 6, 4}, {8, 1, 5, 7, 3}};
    case CELL_TET: {
        std::vector<std::vector<int>> cut;
        int axis[3] = {0, 1, 2};
        bool even_order[6] = {true, false, false, true, true, false};
        int n = 0;
        do {
            const int second = 1 << axis[0], third = second | 1 << axis[1];
            // the paths of even order turn the other way than those of odd order
            if (even_order[n++])
                cut.push_back({second, third, 7, 0});
            else
                cut.push_back({third, second, 7, 0});
        } while (std::next_permutation(axis, axis + 3));
        return cut;
    }
    case CELL_QUAD: return {{0, 1, 3, 2}};
    default: return {{0, 1, 3}, {0, 3, 2}};
    }
}

// The two corners that each further node of the second order stands between.
static std::vector<std::array<int, 2>> edges_of(const cell_kind_nodes &kind)
{
    std::vector<std::array<int, 2>> edges;
    for (int node = kind.ncorners; node < kind.nnodes_2; ++node)
        for (int a = 0; a < kind.ncorners; ++a)
            for (int b = a + 1; b < kind.ncorners; ++b) {
                bool middle = true;
                for (int d = 0; d < 3; ++d)
                    middle &= kind.position[a][d] + kind.position[b][d] == 2 * kind.position[node][d];
                if (middle) edges.push_back({a, b});
            }
    return edges;
}

// The middle node of the edge between two nodes, made when first asked for.
static int64_t middle_node(mesh *out, std::map<std::array<int64_t, 2>, int64_t> *middles, int64_t a,
                           int64_t b)
{
    const auto found = middles->try_emplace({std::min(a, b), std::max(a, b)}, out->nnodes());
    if (found.second)
        for (int d = 0; d < 3; ++d)
            out->coords.push_back(
                (out->coords[static_cast<size_t>(a * 3 + d)] + out->coords[static_cast<size_t>(b * 3 + d)]) /
                2);
    return found.first->second;
}

mesh cells(int cell_kind, int order, const int64_t *dims, double lo, double hi)
{
    const mesh lattice = structured(layout::uniform, dims, lo, hi);
    mesh out;
    out.kind = layout::cells;
    out.cell_kind = cell_kind;
    out.order = order;
    for (int64_t node = 0; node < lattice.nnodes(); ++node) {
        double xyz[3];
        lattice.position(node, xyz);
        for (const double value : xyz)
            out.coords.push_back(static_cast<float>(value));
    }

    const cell_kind_nodes &kind = cell_kinds[cell_kind];
    const auto cut = cut_of_cube(cell_kind);
    const auto edges = edges_of(kind);
    std::map<std::array<int64_t, 2>, int64_t> middles;
    const int64_t layers = kind.ndim == 3 ? dims[2] - 1 : 1;
    for (int64_t k = 0; k < layers; ++k)
        for (int64_t j = 0; j < dims[1] - 1; ++j)
            for (int64_t i = 0; i < dims[0] - 1; ++i) {
                int64_t corners[9];
                for (int bits = 0; bits < 8; ++bits)
                    corners[bits] =
                        i + (bits & 1) + dims[0] * (j + (bits >> 1 & 1) + dims[1] * (k + (bits >> 2)));
                if (cell_kind == CELL_PYR) {
                    corners[8] = out.nnodes();
                    for (int d = 0; d < 3; ++d)
                        out.coords.push_back((out.coords[static_cast<size_t>(corners[0] * 3 + d)] +
                                              out.coords[static_cast<size_t>(corners[7] * 3 + d)]) /
                                             2);
                }
                for (const auto &cell : cut) {
                    for (const int bits : cell)
                        out.connect.push_back(corners[bits]);
                    if (order == 2)
                        for (const auto &edge : edges)
                            out.connect.push_back(
                                middle_node(&out, &middles, corners[cell[edge[0]]], corners[cell[edge[1]]]));
                    ++out.ncells;
                }
            }
    return out;
}

std::vector<float> values(const field &of, const mesh &on)
{
    const int64_t n = on.nnodes();
    std::vector<float> out(static_cast<size_t>(n * of.veclen));
    for (int64_t node = 0; node < n; ++node) {
        double xyz[3];
        on.position(node, xyz);
        of.value(xyz, &out[static_cast<size_t>(node * of.veclen)]);
    }
    return out;
}

} // namespace samples
