// Meshes for tests: every kind, every cell kind, both orders, with the arrays at hand.
#pragma once

#include <skoklana/cell_nodes.h>
#include <skoklana_host.h>

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

namespace meshes {

// A mesh and everything that describes it. The arrays may be changed in place to make illegal meshes of
// legal ones: the host checks only when the field is built.
struct test_mesh {
    int ndim = 0, nspace = 3; // ndim 0: cell sets
    std::vector<qx_long> dims;
    std::vector<float> corners;                // uniform
    std::vector<std::vector<float>> axes;      // rectilinear
    std::vector<float> coords;                 // curvilinear and cell sets; filled for all kinds as reference
    std::vector<int> kinds, orders;            // a cell set each
    std::vector<std::vector<qx_long>> connect; // a cell set each
    host_field *field = nullptr;
    mesh_info *mesh = nullptr;

    test_mesh() = default;
    test_mesh(const test_mesh &) = delete;
    test_mesh &operator=(const test_mesh &) = delete;
    ~test_mesh() { host_free_field(field); }

    qx_long nnodes() const { return static_cast<qx_long>(coords.size()) / nspace; }
};

using mesh_ptr = std::unique_ptr<test_mesh>;

// ---- structured meshes: nodes of dims over the box from lo to hi (3 entries each) ------------------------

mesh_ptr uniform(std::vector<qx_long> dims, int nspace, std::vector<float> lo, std::vector<float> hi);
// Unevenly spaced, ascending.
mesh_ptr rectilinear(std::vector<qx_long> dims, int nspace, std::vector<float> lo, std::vector<float> hi,
                     uint64_t seed);
// Each inner node moved at random by up to jitter of a cell along each axis of the box.
mesh_ptr curvilinear(std::vector<qx_long> dims, int nspace, std::vector<float> lo, std::vector<float> hi,
                     uint64_t seed, double jitter = 0.2);

// ---- cell sets ----------------------------------------------------------------------------------------------

// The unit box, square or segment in n[d] cubes along each axis of the kind, each cut into cells of the kind
// that meet face to face: 1 hex, 6 tets, 2 prisms, 6 pyramids around an added centre, 1 quad, 2 triangles or
// 1 line. Corner nodes are moved at random by up to jitter of a cube; second-order nodes stand in the
// middle of their edges. nspace 3, or less for kinds of lower dimension.
mesh_ptr cells(int kind, int order, std::vector<int> n, uint64_t seed, double jitter = 0.0, int nspace = 3);

// Several kinds side by side along x, a cell set each, every part one unit wide and with nodes of its own.
mesh_ptr mixed(const std::vector<int> &kinds, const std::vector<int> &orders, int n, uint64_t seed,
               double jitter = 0.0);

// A mesh from arrays: coords rows of nspace, and one set for each kind.
mesh_ptr from_cells(int nspace, std::vector<float> coords, std::vector<int> kinds, std::vector<int> orders,
                    std::vector<std::vector<qx_long>> connect);

// ---- data ---------------------------------------------------------------------------------------------------

// The coordinate of a node, 0 beyond nspace.
inline double at(const test_mesh &mesh, qx_long node, int axis)
{
    return axis < mesh.nspace ? mesh.coords[static_cast<size_t>(node * mesh.nspace + axis)] : 0.0;
}

// One value a node: f(x, y, z), converted to T.
template <typename T, typename F> std::vector<T> field_of(const test_mesh &mesh, F f)
{
    std::vector<T> values;
    for (qx_long node = 0; node < mesh.nnodes(); ++node)
        values.push_back(static_cast<T>(f(at(mesh, node, 0), at(mesh, node, 1), at(mesh, node, 2))));
    return values;
}

// count values spread evenly over [lo, hi], for types of any kind.
template <typename T> std::vector<T> random_values(uint64_t seed, qx_long count, double lo, double hi)
{
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> spread(lo, hi);
    std::vector<T> values(static_cast<size_t>(count));
    for (T &value : values)
        value = static_cast<T>(spread(random));
    return values;
}

} // namespace meshes
