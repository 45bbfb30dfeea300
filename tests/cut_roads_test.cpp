// The same grid as a lattice and as a set of cells: cuts and bands are the same, piece by piece, where the
// cells' rows begin with the corners of the upper plane, as the lattice's cells do.
#include "support/arrays.hpp"
#include "support/contour_reference.hpp"
#include "support/fresh_host.hpp"
#include "support/lattices.hpp"

#include <skoklana/cut.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using cut_reference::numbers;

struct roads {
    meshes::mesh_ptr lattice, cells;
};

roads grid(const numbers &dims)
{
    const int nspace = static_cast<int>(dims.size());
    roads made;
    made.lattice = lattices::curvilinear({dims, nspace});
    const qx_long nx = dims[0], ny = dims[1], layers = nspace == 3 ? dims[2] - 1 : 1;
    numbers connect;
    for (qx_long k = 0; k < layers; ++k)
        for (qx_long j = 0; j + 1 < ny; ++j)
            for (qx_long i = 0; i + 1 < nx; ++i)
                for (int plane = nspace - 2; plane >= 0; --plane) {
                    const qx_long first = i + nx * (j + ny * (k + plane));
                    for (const qx_long corner : {first, first + 1, first + 1 + nx, first + nx})
                        connect.push_back(corner);
                }
    made.cells = meshes::from_cells(nspace, made.lattice->coords, {nspace == 3 ? CELL_HEX : CELL_QUAD}, {1},
                                    {connect});
    return made;
}

// Where a node of a result came from, in nodes of the mesh. Ends of a second cut are new nodes of the first.
template <typename Result> std::string origin(const Result &of, qx_long node, qx_long mesh_nodes)
{
    if (node < of.nold) return std::to_string(of.old_nodes[static_cast<size_t>(node)]);
    const auto at = static_cast<size_t>(node - of.nold);
    std::string level;
    if constexpr (std::is_same_v<Result, contour_reference::result>)
        level = of.levels[at] != 0 ? " above" : " below";
    const auto end = [&](qx_long number) {
        return number < mesh_nodes ? std::to_string(number)
                                   : origin(of, number - mesh_nodes + of.nold, mesh_nodes);
    };
    return "(" + end(of.min_node[at]) + " " + end(of.max_node[at]) + level + ")";
}

template <typename Result> std::vector<std::string> pieces_of(const Result &of, qx_long mesh_nodes)
{
    std::vector<std::string> rows;
    for (size_t list = 0; list < of.conn.size(); ++list) {
        const size_t width =
            of.ncells[list] == 0 ? 1 : of.conn[list].size() / static_cast<size_t>(of.ncells[list]);
        for (size_t i = 0; i < of.conn[list].size(); i += width) {
            std::string row = std::to_string(list) + ":";
            for (size_t n = i; n < i + width; ++n)
                row += " " + origin(of, of.conn[list][n], mesh_nodes);
            rows.push_back(row);
        }
    }
    return rows;
}

template <typename T> std::vector<T> rough(std::mt19937 *random, qx_long count, unsigned nvalues)
{
    std::vector<T> data;
    for (qx_long n = 0; n < count; ++n) {
        const unsigned wave = static_cast<unsigned>(n / 3 + n / 40) % (2 * nvalues);
        const bool noise = (*random)() % 4 == 0;
        data.push_back(
            static_cast<T>(noise ? (*random)() % nvalues : std::min(wave, 2 * nvalues - 1 - wave)));
    }
    return data;
}

const numbers sizes[] = {{2, 2, 2}, {5, 4, 3}, {66, 3, 4}, {17, 9, 5}, {2, 2}, {9, 7}, {130, 5}};

template <typename T> class CutRoads : public FreshHost {
};
TYPED_TEST_SUITE(CutRoads, arrays::all_types);

} // namespace

TYPED_TEST(CutRoads, CutsAgreePieceByPiece)
{
    using T = TypeParam;
    std::mt19937 random(5);
    size_t seen = 0;
    for (const numbers &dims : sizes) {
        const roads both = grid(dims);
        const qx_long nnodes = both.cells->nnodes();
        for (int pass = 0; pass < 4; ++pass) {
            const std::vector<T> data = rough<T>(&random, nnodes, 6);
            const T null = 4;
            const auto scalar =
                cut_reference::scalar_of(data, arrays::dtype_of<T>, pass % 2 ? &null : nullptr);
            for (const int side : {-1, 0}) {
                const auto one = cut_reference::run(UTILcut_struct, both.lattice->mesh, scalar, 2.5, side, 1);
                const auto other = cut_reference::run(UTILcut_cells, both.cells->mesh, scalar, 2.5, side, 1);
                ASSERT_EQ(one.old_nodes, other.old_nodes);
                ASSERT_EQ(one.maps, other.maps);
                const auto pieces = pieces_of(one, nnodes);
                ASSERT_EQ(pieces, pieces_of(other, nnodes));
                seen += pieces.size();
            }
        }
    }
    EXPECT_GT(seen, 4000u);
}

TYPED_TEST(CutRoads, BandsAgreePieceByPiece)
{
    using T = TypeParam;
    std::mt19937 random(6);
    size_t seen = 0;
    for (const numbers &dims : sizes) {
        const roads both = grid(dims);
        const qx_long nnodes = both.cells->nnodes();
        for (int pass = 0; pass < 4; ++pass) {
            const std::vector<T> data = rough<T>(&random, nnodes, 6);
            const T null = 5;
            const auto scalar =
                cut_reference::scalar_of(data, arrays::dtype_of<T>, pass % 2 ? &null : nullptr);
            const auto one =
                contour_reference::run(UTILcontour_struct, both.lattice->mesh, scalar, {1.5, 3.5});
            const auto other =
                contour_reference::run(UTILcontour_cells, both.cells->mesh, scalar, {1.5, 3.5});
            ASSERT_EQ(one.old_nodes, other.old_nodes);
            const auto pieces = pieces_of(one, nnodes);
            ASSERT_EQ(pieces, pieces_of(other, nnodes));
            seen += pieces.size();
        }
    }
    EXPECT_GT(seen, 4000u);
}
