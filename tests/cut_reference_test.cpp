// The references of cuts and bands themselves: counts and volumes that follow from geometry alone.
#include "support/arrays.hpp"
#include "support/contour_reference.hpp"
#include "support/fresh_host.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace {

class CutReference : public FreshHost {};

using place = std::array<double, 3>;

double volume(const place &a, const place &b, const place &c, const place &d)
{
    double u[3], v[3], w[3];
    for (size_t i = 0; i < 3; ++i) {
        u[i] = b[i] - a[i];
        v[i] = c[i] - a[i];
        w[i] = d[i] - a[i];
    }
    return std::fabs(u[0] * (v[1] * w[2] - v[2] * w[1]) - u[1] * (v[0] * w[2] - v[2] * w[0]) +
                     u[2] * (v[0] * w[1] - v[1] * w[0])) /
           6;
}

// Volume of an output with its nodes at these places: pieces, and whole tetrahedra and hexahedra.
double volume_of(const std::vector<place> &at, const cut_reference::numbers &tets,
                 const cut_reference::numbers &hexes)
{
    double sum = 0;
    const auto p = [&](qx_long node) { return at[static_cast<size_t>(node)]; };
    for (size_t i = 0; i < tets.size(); i += 4)
        sum += volume(p(tets[i]), p(tets[i + 1]), p(tets[i + 2]), p(tets[i + 3]));
    constexpr size_t split[6][4] = {{0, 1, 2, 6}, {0, 2, 3, 6}, {0, 3, 7, 6},
                                    {0, 7, 4, 6}, {0, 4, 5, 6}, {0, 5, 1, 6}};
    for (size_t i = 0; i < hexes.size(); i += 8)
        for (const auto &s : split)
            sum += volume(p(hexes[i + s[0]]), p(hexes[i + s[1]]), p(hexes[i + s[2]]), p(hexes[i + s[3]]));
    return sum;
}

std::vector<place> places_of(const std::vector<float> &coords)
{
    std::vector<place> at;
    for (size_t i = 0; i < coords.size(); i += 3)
        at.push_back({coords[i], coords[i + 1], coords[i + 2]});
    return at;
}

} // namespace

TEST_F(CutReference, SidesOfALinearFieldFillTheMesh)
{
    for (int kind : {CELL_TET, CELL_HEX, CELL_PRISM, CELL_PYR}) {
        const meshes::mesh_ptr mesh = meshes::cells(kind, 1, {3, 3, 3}, 1);
        const auto f = [](double x, double y, double z) { return x + 0.7 * y - 0.4 * z; };
        const std::vector<double> data = meshes::field_of<double>(*mesh, f);
        double sum = 0;
        for (int side : {1, -1}) {
            const cut_reference::result cut = cut_reference::cut_cells(
                *mesh, cut_reference::scalar_of<double>(data, DTYPE_DOUBLE, nullptr), 0.45, side);
            std::vector<place> at;
            const auto node = [&](qx_long n) {
                return place{meshes::at(*mesh, n, 0), meshes::at(*mesh, n, 1), meshes::at(*mesh, n, 2)};
            };
            for (qx_long n : cut.old_nodes)
                at.push_back(node(n));
            for (size_t e = 0; e < cut.min_node.size(); ++e) {
                const place a = node(cut.min_node[e]), b = node(cut.max_node[e]);
                const double from = data[static_cast<size_t>(cut.min_node[e])];
                const double t = (0.45 - from) / (data[static_cast<size_t>(cut.max_node[e])] - from);
                at.push_back({a[0] + t * (b[0] - a[0]), a[1] + t * (b[1] - a[1]), a[2] + t * (b[2] - a[2])});
            }
            sum += volume_of(at, cut.conn[cut_reference::tets], cut.conn[cut_reference::hexes]);
            // Whole prisms and pyramids have their volume from the mesh's evenness.
            sum += static_cast<double>(cut.ncells[cut_reference::prisms]) / 54 +
                   static_cast<double>(cut.ncells[cut_reference::pyramids]) / 162;
        }
        EXPECT_NEAR(sum, 1, 1e-5) << kind;
    }
}

TEST_F(CutReference, CornersOfOneHexahedron)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    std::vector<float> data(8, 0);
    const cut_reference::scalar field = cut_reference::scalar_of<float>(data, DTYPE_FLOAT, nullptr);
    data[3] = 1;
    const cut_reference::result corner = cut_reference::cut_cells(*mesh, field, 0.5, 0);
    EXPECT_EQ(corner.nold, 1);
    EXPECT_EQ(corner.old_nodes, cut_reference::numbers{3});
    EXPECT_EQ(corner.min_node.size(), 3u);
    EXPECT_EQ(corner.ncells[cut_reference::tets], 1);
    const cut_reference::result rest = cut_reference::cut_cells(*mesh, field, 0.5, -1);
    EXPECT_EQ(rest.nold, 7);
    EXPECT_GE(rest.ncells[cut_reference::tets], 7);
    // All at the level: kept whole from above; retained from below, but no cell is left.
    EXPECT_EQ(cut_reference::cut_cells(*mesh, field, 0, 1).ncells[cut_reference::hexes], 1);
    std::fill(data.begin(), data.end(), 0.0f);
    const cut_reference::result below = cut_reference::cut_cells(*mesh, field, 0, -1);
    EXPECT_EQ(below.nold, 8);
    EXPECT_EQ(below.ncells, (std::array<qx_long, 7>{}));
}

// Single precision of the flags against double of the map: no entry is ever -1.
TEST_F(CutReference, NodesThatTheMapDropsAreNotKept)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_TET, 1, {2, 2, 2}, 1);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<float> data;
    for (qx_long node = 0; node < mesh->nnodes(); ++node)
        data.push_back(node % 3 == 0 ? 0.7f : node % 7 == 1 ? nan : node % 2 == 0 ? 1.0f : 0.0f);
    for (int side : {1, -1}) {
        const cut_reference::result cut = cut_reference::cut_cells(
            *mesh, cut_reference::scalar_of<float>(data, DTYPE_FLOAT, nullptr), 0.7, side);
        EXPECT_GT(cut.ncells[cut_reference::tets], 0);
        for (qx_long entry : cut.conn[cut_reference::tets])
            EXPECT_GE(entry, 0);
    }
}

TEST_F(CutReference, LatticesAndSetsOfTheSameCellsAgree)
{
    const cut_reference::numbers dims = {4, 3, 3};
    const meshes::mesh_ptr lattice = meshes::curvilinear(dims, 3, {0, 0, 0}, {3, 2, 2}, 5);
    cut_reference::numbers connect;
    cut_reference::each_lattice_cell(dims, [&](int, const cut_reference::numbers &nodes, qx_long) {
        connect.insert(connect.end(), nodes.begin(), nodes.end());
    });
    const meshes::mesh_ptr cells = meshes::from_cells(3, lattice->coords, {CELL_HEX}, {1}, {connect});
    const std::vector<short> data = meshes::random_values<short>(3, lattice->nnodes(), 0, 9);
    const short null = 4;
    const cut_reference::scalar field = cut_reference::scalar_of(data, DTYPE_SHORT, &null);
    cut_reference::result from_cells = cut_reference::cut_cells(*cells, field, 2.5, 1);
    const cut_reference::result from_lattice = cut_reference::cut_lattice(dims, field, 2.5, 1);
    EXPECT_GT(from_lattice.ncells[cut_reference::tets], 5);
    from_cells.node_map.clear();
    EXPECT_EQ(cut_reference::difference(from_cells, from_lattice), "nothing");

    contour_reference::result band_of_cells = contour_reference::band_cells(*cells, field, {2.5, 6});
    const contour_reference::result band_of_lattice =
        contour_reference::band_lattice(lattice->mesh, field, {2.5, 6});
    EXPECT_GT(band_of_lattice.ncells[cut_reference::tets], 5);
    EXPECT_GT(*std::max_element(band_of_lattice.max_node.begin(), band_of_lattice.max_node.end()),
              lattice->nnodes());
    band_of_cells.node_map.clear();
    EXPECT_EQ(contour_reference::difference(band_of_cells, band_of_lattice), "nothing");
}

TEST_F(CutReference, BandsOfALinearFieldFillTheMesh)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_TET, 1, {3, 3, 3}, 1);
    const std::vector<float> data =
        meshes::field_of<float>(*mesh, [](double x, double y, double z) { return x + 0.7 * y - 0.4 * z; });
    double sum = 0;
    const double levels[] = {-1, 0.1, 0.3, 0.35, 1.2, 2};
    for (size_t b = 0; b + 1 < 6; ++b) {
        const contour_reference::result band = contour_reference::band_cells(
            *mesh, cut_reference::scalar_of<float>(data, DTYPE_FLOAT, nullptr), {levels[b], levels[b + 1]});
        sum += volume_of(places_of(band.coords), band.conn[cut_reference::tets],
                         band.conn[cut_reference::hexes]);
    }
    EXPECT_NEAR(sum, 1, 1e-5);
}

TEST_F(CutReference, BandsOfSurfacesAddUpAndLinesAreAtTheirLevels)
{
    for (int kind : {CELL_TRI, CELL_QUAD}) {
        const meshes::mesh_ptr mesh = meshes::cells(kind, 1, {5, 5}, 1);
        const std::vector<float> data =
            meshes::field_of<float>(*mesh, [](double x, double y, double) { return 3 * x * x + 0.7 * y; });
        double sum = 0;
        const double levels[] = {-1, 0.4, 0.5, 1.25, 3, 5};
        for (size_t b = 0; b + 1 < 6; ++b) {
            const contour_reference::result band = contour_reference::band_cells(
                *mesh, cut_reference::scalar_of<float>(data, DTYPE_FLOAT, nullptr),
                {levels[b], levels[b + 1]});
            const std::vector<place> at = places_of(band.coords);
            const auto area = [&](qx_long a, qx_long c, qx_long d) {
                const place p = at[static_cast<size_t>(a)], q = at[static_cast<size_t>(c)],
                            r = at[static_cast<size_t>(d)];
                return ((q[0] - p[0]) * (r[1] - p[1]) - (q[1] - p[1]) * (r[0] - p[0])) / 2;
            };
            const auto &tris = band.conn[cut_reference::triangles], &quads = band.conn[cut_reference::quads];
            for (size_t i = 0; i < tris.size(); i += 3)
                sum += area(tris[i], tris[i + 1], tris[i + 2]);
            for (size_t i = 0; i < quads.size(); i += 4)
                sum +=
                    area(quads[i], quads[i + 1], quads[i + 2]) + area(quads[i], quads[i + 2], quads[i + 3]);
            for (size_t l : {0, 1}) {
                EXPECT_TRUE(band.has_lines[l]);
                for (qx_long node : band.lines[l]) {
                    ASSERT_GE(node, band.nold);
                    EXPECT_EQ(band.levels[static_cast<size_t>(node - band.nold)], l);
                }
            }
        }
        EXPECT_NEAR(std::fabs(sum), 1, 1e-5) << kind;
    }
}
