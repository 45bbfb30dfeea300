#include "support/lattices.hpp"

#include <skoklana.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using lattices::product;

qx_long cells_of(std::vector<qx_long> dims)
{
    for (qx_long &d : dims)
        --d;
    return product(dims);
}

// A row by the plain formulas, one cell at a time.
std::vector<qx_long> row_of(const std::vector<qx_long> &dims, qx_long c)
{
    if (dims.size() == 1) return {c, c + 1};
    const qx_long d0 = dims[0];
    if (dims.size() == 2) {
        const qx_long b = c + c / (d0 - 1);
        return {b, b + 1, b + 1 + d0, b + d0};
    }
    const qx_long d1 = dims[1], area = (d0 - 1) * (d1 - 1), k = c / area, j = (c - k * area) / (d0 - 1),
                  i = c - k * area - j * (d0 - 1), b = i + j * d0 + k * d0 * d1, up = d0 * d1;
    return {b, b + 1, b + 1 + d0, b + d0, b + up, b + 1 + up, b + 1 + d0 + up, b + d0 + up};
}

std::vector<qx_long> connect_of(const std::vector<qx_long> &dims, qx_long start, qx_long end)
{
    const size_t width = size_t{1} << dims.size();
    std::vector<qx_long> out(end > start ? static_cast<size_t>(end - start) * width : 0, -7);
    EXPECT_EQ(UTILget_connect_struct(static_cast<int>(dims.size()), dims.data(), start, end, out.data()), 1);
    return out;
}

TEST(ConnectStruct, FirstCellInSpace)
{
    EXPECT_EQ(connect_of({5, 4, 3}, 0, 1), (std::vector<qx_long>{0, 1, 6, 5, 20, 21, 26, 25}));
}

TEST(ConnectStruct, EveryRangeAgreesWithThePlainFormulas)
{
    const std::vector<std::vector<qx_long>> all = {{6},       {2},       {5, 4},    {2, 5},    {5, 2},
                                                   {5, 4, 3}, {2, 2, 2}, {2, 4, 3}, {4, 2, 3}, {3, 4, 2}};
    for (const std::vector<qx_long> &dims : all) {
        const qx_long ncells = cells_of(dims);
        for (qx_long start = 0; start <= ncells; ++start)
            for (qx_long end = start; end <= ncells; ++end) {
                std::vector<qx_long> expected;
                for (qx_long c = start; c < end; ++c)
                    for (qx_long node : row_of(dims, c))
                        expected.push_back(node);
                ASSERT_EQ(connect_of(dims, start, end), expected) << start << " to " << end;
            }
    }
}

TEST(ConnectStruct, AgreesWithTheConnectListsOfTheHost)
{
    for (const lattices::shape &shape : lattices::in_every_space({{6}, {5, 4}, {5, 4, 3}}))
        for (const meshes::mesh_ptr &made : {lattices::uniform(shape), lattices::curvilinear(shape)}) {
            qx_long *connect = nullptr;
            ASSERT_EQ(made->mesh->get_connect(made->mesh, 0, &connect), 1);
            const std::vector<qx_long> all = connect_of(shape.dims, 0, made->mesh->ncells);
            EXPECT_EQ(all, std::vector<qx_long>(connect, connect + all.size())) << text(shape);
        }
}

TEST(ConnectStruct, NodeNumbersAreWide)
{
    const std::vector<qx_long> dims = {300000, 200000, 100000};
    const qx_long start = cells_of(dims) - 3;
    std::vector<qx_long> expected;
    for (qx_long c = start; c < start + 3; ++c)
        for (qx_long node : row_of(dims, c))
            expected.push_back(node);
    EXPECT_EQ(connect_of(dims, start, start + 3), expected);
    EXPECT_EQ(expected.back(), product(dims) - 2);
}

// Cells of the list meet: each inner node of the lattice is used by as many cells as it has corners around it.
TEST(ConnectStruct, UsesEachNodeAsOftenAsCellsMeetThere)
{
    const std::vector<qx_long> dims = {4, 3, 5};
    std::vector<int> used(static_cast<size_t>(product(dims)), 0);
    for (qx_long node : connect_of(dims, 0, cells_of(dims)))
        ++used[static_cast<size_t>(node)];
    for (qx_long node = 0; node < product(dims); ++node) {
        int expected = 1;
        qx_long rest = node;
        for (qx_long n : dims) {
            expected *= rest % n > 0 && rest % n < n - 1 ? 2 : 1;
            rest /= n;
        }
        EXPECT_EQ(used[static_cast<size_t>(node)], expected) << node;
    }
}

TEST(ConnectStruct, EmptyRangeWritesNothing)
{
    qx_long untouched = -7;
    const qx_long dims[3] = {4, 4, 4}, flat[3] = {1, 1, 1};
    for (int ndim : {1, 2, 3}) {
        EXPECT_EQ(UTILget_connect_struct(ndim, dims, 2, 2, &untouched), 1);
        EXPECT_EQ(UTILget_connect_struct(ndim, dims, 3, 1, &untouched), 1);
        EXPECT_EQ(UTILget_connect_struct(ndim, flat, 0, 0, &untouched), 1);
    }
    EXPECT_EQ(untouched, -7);
}

TEST(ConnectStruct, OtherNumbersOfAxesAreReported)
{
    const qx_long dims[4] = {3, 3, 3, 3};
    for (int ndim : {4, 0, -1, 9}) {
        qx_long untouched = -7;
        testing::internal::CaptureStderr();
        EXPECT_EQ(UTILget_connect_struct(ndim, dims, 0, 1, &untouched), 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "get_connect_struct: cannot compute connect for ndim " + std::to_string(ndim) + "\n");
        EXPECT_EQ(untouched, -7);
    }
}

// ---- coordinates of a range of nodes ------------------------------------------------------------------------

// Both compact kinds: every shape, every range, every choice of components against the rows of the mesh.
void check_ranges(const meshes::test_mesh &made, const float *points,
                  int (*get)(int, const qx_long *, int, const float *, qx_long, qx_long, int, int, float *))
{
    const int nspace = made.nspace;
    const qx_long nnodes = made.nnodes();
    for (qx_long start = 0; start <= nnodes; ++start)
        for (qx_long end = start; end <= nnodes; ++end)
            for (int lo = 0; lo < nspace; ++lo)
                for (int hi = lo + 1; hi <= nspace; ++hi) {
                    std::vector<float> out(static_cast<size_t>((end - start) * (hi - lo)), -7.0f), expected;
                    for (qx_long node = start; node < end; ++node)
                        for (int d = lo; d < hi; ++d)
                            expected.push_back(made.coords[static_cast<size_t>(node * nspace + d)]);
                    ASSERT_EQ(
                        get(made.ndim, made.dims.data(), nspace, points, start, end, lo, hi, out.data()), 1);
                    ASSERT_EQ(out, expected)
                        << "nodes " << start << " to " << end << ", components " << lo << " to " << hi;
                }
}

TEST(GetCoords, RangesOfUniformMeshes)
{
    for (const lattices::shape &shape : lattices::small_shapes()) {
        const meshes::mesh_ptr made = lattices::uniform(shape);
        check_ranges(*made, made->corners.data(), UTILget_coords_unif);
    }
}

TEST(GetCoords, RangesOfRectilinearMeshes)
{
    for (const lattices::shape &shape : lattices::small_shapes()) {
        const meshes::mesh_ptr made = lattices::rectilinear(shape);
        float *points = nullptr;
        ASSERT_EQ(made->mesh->get_points(made->mesh, &points), 1);
        check_ranges(*made, points, UTILget_coords_rect);
    }
}

TEST(GetCoords, OneMeshDescribedInBothWaysHasTheSameCoordinates)
{
    for (const lattices::shape &shape : lattices::in_every_space({{9}, {4, 5}, {3, 2, 4}})) {
        const std::vector<meshes::mesh_ptr> ways = lattices::in_all_ways(shape);
        float *points = nullptr;
        ASSERT_EQ(ways[1]->mesh->get_points(ways[1]->mesh, &points), 1);
        check_ranges(*ways[0], points, UTILget_coords_rect); // the rows of the uniform mesh
    }
}

TEST(GetCoords, EmptyRangesWriteNothing)
{
    const qx_long dims[3] = {2, 2, 2};
    const float points[18] = {};
    float untouched = -7;
    for (const auto get : {UTILget_coords_unif, UTILget_coords_rect}) {
        EXPECT_EQ(get(3, dims, 3, points, 4, 4, 0, 3, &untouched), 1);
        EXPECT_EQ(get(3, dims, 3, points, 5, 2, 0, 3, &untouched), 1);
        EXPECT_EQ(get(3, dims, 3, points, 0, 8, 2, 2, &untouched), 1);
        EXPECT_EQ(get(3, dims, 3, points, 0, 8, 3, 1, &untouched), 1);
    }
    EXPECT_EQ(untouched, -7);
}

} // namespace
