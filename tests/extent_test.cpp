#include "support/fetches.hpp"
#include "support/host_calls.hpp"
#include "support/lattices.hpp"

#include <skoklana.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

struct box {
    std::vector<float> min, max;
};

bool operator==(const box &a, const box &b)
{
    return a.min == b.min && a.max == b.max;
}

std::ostream &operator<<(std::ostream &out, const box &b)
{
    for (size_t d = 0; d < b.min.size(); ++d)
        out << (d == 0 ? "" : " x ") << b.min[d] << ".." << b.max[d];
    return out;
}

using extent_form = int (*)(mesh_info *, qx_long, float *, float *);

const box untouched = {{7, 7, 7}, {-7, -7, -7}};

// Three entries a bound, so that one written too many is seen.
box extent(extent_form form, mesh_info *mesh, qx_long cell, int result = 1)
{
    box found = untouched;
    EXPECT_EQ(form(mesh, cell, found.min.data(), found.max.data()), result) << "cell " << cell;
    return found;
}

box field_extent(mesh_info *mesh, int result = 1)
{
    box found = untouched;
    EXPECT_EQ(UTILfield_extent(mesh, found.min.data(), found.max.data()), result);
    return found;
}

box box_of(const meshes::test_mesh &made, const std::vector<qx_long> &nodes)
{
    box found = untouched;
    for (int d = 0; d < made.nspace; ++d) {
        const size_t axis = static_cast<size_t>(d);
        found.min[axis] = found.max[axis] = made.coords[static_cast<size_t>(nodes[0] * made.nspace + d)];
        for (qx_long node : nodes) {
            const float x = made.coords[static_cast<size_t>(node * made.nspace + d)];
            found.min[axis] = std::min(found.min[axis], x);
            found.max[axis] = std::max(found.max[axis], x);
        }
    }
    return found;
}

// ---- cell sets -----------------------------------------------------------------------------------------------

TEST(CellExtent, BoxesOfCellsOfEveryKindAndOrder)
{
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (int order : {1, 2}) {
            const meshes::mesh_ptr made = meshes::cells(kind, order, {2, 2, 2}, 1, 0.2);
            const int nnodes = made->mesh->cell_nnodes[0];
            for (qx_long cell = 0; cell < made->mesh->ncells; ++cell) {
                const auto first = made->connect[0].begin() + cell * nnodes;
                EXPECT_EQ(extent(UTILcell_extent, made->mesh, cell), box_of(*made, {first, first + nnodes}))
                    << "kind " << kind << ", cell " << cell;
            }
        }
}

TEST(CellExtent, CellsAreNumberedAcrossTheSets)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_QUAD, CELL_PYR}, {2, 1, 1}, 1, 1, 0.1);
    qx_long cell = 0;
    for (size_t set = 0; set < 3; ++set) {
        const int nnodes = made->mesh->cell_nnodes[set];
        for (auto row = made->connect[set].begin(); row != made->connect[set].end(); row += nnodes, ++cell)
            EXPECT_EQ(extent(UTILcell_extent, made->mesh, cell), box_of(*made, {row, row + nnodes})) << cell;
    }
    EXPECT_EQ(cell, made->mesh->ncells);
}

TEST(CellExtent, EmptySetsHoldNoCell)
{
    const std::vector<float> coords = {0, 0, 1, 0, 0, 1, 3, 3};
    const meshes::mesh_ptr made =
        meshes::from_cells(2, coords, {CELL_LINE, CELL_TRI, CELL_LINE}, {1, 1, 1}, {{}, {0, 1, 2}, {1, 3}});
    EXPECT_EQ(extent(UTILcell_extent, made->mesh, 0), box_of(*made, {0, 1, 2}));
    EXPECT_EQ(extent(UTILcell_extent, made->mesh, 1), box_of(*made, {1, 3}));
    EXPECT_EQ(extent(UTILcell_extent, made->mesh, 2, 0), untouched);
}

TEST(CellExtent, CellThatIsNotThereLeavesTheBoxWithoutAWord)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_HEX, CELL_TET}, {1, 1}, 1, 1);
    failing_fetches fetches(made->mesh);
    fetches.fail_coords = 1; // nothing is fetched for a cell that is not there
    host_calls::reset();
    testing::internal::CaptureStderr();
    for (qx_long cell : {made->mesh->ncells, made->mesh->ncells + 1, qx_long{-1}, qx_long{-100},
                         std::numeric_limits<qx_long>::min(), std::numeric_limits<qx_long>::max()})
        EXPECT_EQ(extent(UTILcell_extent, made->mesh, cell, 0), untouched);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(host_calls::seen().reports.empty());
    EXPECT_EQ(fetches.coords_calls + fetches.connect_calls, 0);
}

TEST(CellExtent, FailedConnectListIsReportedAndTheNextCallSucceeds)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_HEX, CELL_TET}, {1, 1}, 1, 1);
    failing_fetches fetches(made->mesh);
    fetches.fail_connect_of_set = 1;
    host_calls::reset();
    EXPECT_EQ(extent(UTILcell_extent, made->mesh, 1, 0), untouched);
    EXPECT_EQ(host_calls::seen().reports,
              (std::vector<host_calls::report>{{"fld_info", 0, 2, "unable to get cell set connect list"}}));
    EXPECT_EQ(fetches.connect_calls, 1) << "only the cell's own set is fetched";
    fetches.fail_connect_of_set = -1;
    EXPECT_EQ(extent(UTILcell_extent, made->mesh, 1),
              box_of(*made, {made->connect[1].begin(), made->connect[1].begin() + 4}));
    EXPECT_EQ(host_calls::seen().reports.size(), 1u);
}

// ---- structured meshes ---------------------------------------------------------------------------------------

// The corners of the cell above a node; along an axis of one node there is no further one.
std::vector<qx_long> corners(const std::vector<qx_long> &dims, qx_long lowest)
{
    std::vector<qx_long> nodes = {lowest};
    qx_long step = 1;
    for (qx_long n : dims) {
        const size_t before = nodes.size();
        for (size_t i = 0; i < before && n > 1; ++i)
            nodes.push_back(nodes[i] + step);
        step *= n;
    }
    return nodes;
}

// What the compact forms give: the position below and the one above, in this order also where an axis descends.
box box_of_corners(const meshes::test_mesh &made, qx_long lowest)
{
    const std::vector<qx_long> nodes = corners(made.dims, lowest);
    box found = untouched;
    for (int d = 0; d < made.nspace; ++d) {
        found.min[static_cast<size_t>(d)] = made.coords[static_cast<size_t>(nodes.front() * made.nspace + d)];
        found.max[static_cast<size_t>(d)] = made.coords[static_cast<size_t>(nodes.back() * made.nspace + d)];
    }
    return found;
}

TEST(CellExtentStructured, BoxesOfEveryCell)
{
    for (const lattices::shape &shape : lattices::in_every_space({{5}, {4, 3}, {3, 4, 2}})) {
        const meshes::mesh_ptr unif = lattices::uniform(shape), rect = lattices::rectilinear(shape),
                               curved = lattices::curvilinear(shape);
        for (qx_long cell : lattices::lowest_nodes(shape.dims)) {
            EXPECT_EQ(extent(UTILcell_extent_unif, unif->mesh, cell), box_of_corners(*unif, cell))
                << text(shape);
            EXPECT_EQ(extent(UTILcell_extent_rect, rect->mesh, cell), box_of_corners(*rect, cell))
                << text(shape);
            EXPECT_EQ(extent(UTILcell_extent_struct, curved->mesh, cell),
                      box_of(*curved, corners(shape.dims, cell)))
                << text(shape);
        }
    }
}

TEST(CellExtentStructured, IsFlatAlongAxesOfOneNode)
{
    for (const lattices::shape &shape :
         lattices::in_every_space({{1}, {1, 3}, {3, 1}, {1, 3, 2}, {3, 1, 2}, {3, 2, 1}, {1, 1, 1}})) {
        const meshes::mesh_ptr unif = lattices::uniform(shape), rect = lattices::rectilinear(shape),
                               curved = lattices::curvilinear(shape);
        const box even = extent(UTILcell_extent_unif, unif->mesh, 0),
                  uneven = extent(UTILcell_extent_rect, rect->mesh, 0);
        for (size_t d = 0; d < shape.dims.size(); ++d) {
            if (shape.dims[d] == 1) {
                EXPECT_EQ(even.min[d], unif->corners[d]) << text(shape);
                EXPECT_EQ(even.max[d], unif->corners[d]) << text(shape);
            }
        }
        EXPECT_EQ(uneven, box_of_corners(*rect, 0)) << text(shape);
        EXPECT_EQ(extent(UTILcell_extent_struct, curved->mesh, 0), box_of(*curved, corners(shape.dims, 0)))
            << text(shape);
    }
}

TEST(CellExtentStructured, CellThatIsNotThereLeavesTheBoxWithoutAWord)
{
    const lattices::shape shape = {{4, 3, 2}, 3};
    const meshes::mesh_ptr made[3] = {lattices::uniform(shape), lattices::rectilinear(shape),
                                      lattices::curvilinear(shape)};
    const extent_form forms[3] = {UTILcell_extent_unif, UTILcell_extent_rect, UTILcell_extent_struct};
    host_calls::reset();
    testing::internal::CaptureStderr();
    for (int kind = 0; kind < 3; ++kind)
        for (qx_long cell : {qx_long{24}, qx_long{25}, qx_long{-1}, std::numeric_limits<qx_long>::min(),
                             std::numeric_limits<qx_long>::max()})
            EXPECT_EQ(extent(forms[kind], made[kind]->mesh, cell, 0), untouched);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

// The last position of an axis begins no cell. Nothing is read that is not there; a sanitizer would see it.
TEST(CellExtentStructured, LastPositionsReadNothingOutsideTheMesh)
{
    const lattices::shape shape = {{4, 3, 2}, 3};
    const meshes::mesh_ptr unif = lattices::uniform(shape), rect = lattices::rectilinear(shape),
                           curved = lattices::curvilinear(shape);
    EXPECT_EQ(extent(UTILcell_extent_struct, curved->mesh, 23, 0), untouched);
    const box at_end = extent(UTILcell_extent_rect, rect->mesh, 23);
    EXPECT_EQ(at_end.min, at_end.max);
    const box beyond = extent(UTILcell_extent_unif, unif->mesh, 23); // goes on by the formula
    const float step = (unif->corners[3] - unif->corners[0]) / 3.0f;
    EXPECT_EQ(beyond.max[0], 4.0f * step + unif->corners[0]);
}

TEST(CellExtentStructured, FailedFetchIsReportedAndTheNextCallSucceeds)
{
    const lattices::shape shape = {{4, 3}, 2};
    const meshes::mesh_ptr made[3] = {lattices::uniform(shape), lattices::rectilinear(shape),
                                      lattices::curvilinear(shape)};
    const extent_form forms[3] = {UTILcell_extent_unif, UTILcell_extent_rect, UTILcell_extent_struct};
    const char *messages[3] = {"unable to get field points", "unable to get field points",
                               "unable to get field coordinates"};
    for (int kind = 0; kind < 3; ++kind) {
        failing_fetches fetches(made[kind]->mesh);
        fetches.fail_coords = fetches.fail_points = 1;
        host_calls::reset();
        EXPECT_EQ(extent(forms[kind], made[kind]->mesh, 0, 0), untouched);
        EXPECT_EQ(host_calls::seen().reports,
                  (std::vector<host_calls::report>{{"fld_info", 0, 2, messages[kind]}}));
        EXPECT_FALSE(extent(forms[kind], made[kind]->mesh, 0) == untouched);
    }
}

TEST(CellExtentStructured, OneMeshDescribedInAllWaysHasTheSameBoxes)
{
    // Ascending axes, where all forms agree on what is below.
    for (const lattices::shape &shape : lattices::in_every_space({{9}, {6, 5}, {5, 4, 3}})) {
        const std::vector<meshes::mesh_ptr> ways = lattices::in_all_ways(shape);
        const std::vector<qx_long> lowest = lattices::lowest_nodes(shape.dims);
        ASSERT_EQ(ways[3]->mesh->ncells, static_cast<qx_long>(lowest.size()));
        for (size_t cell = 0; cell < lowest.size(); ++cell)
            for (const meshes::mesh_ptr &made : ways) {
                const bool by_number = &made == &ways[3];
                box found = extent(made->mesh->methods->cell_extent_func, made->mesh,
                                   by_number ? static_cast<qx_long>(cell) : lowest[cell]);
                for (size_t d = 0; d < 3; ++d) // the compact forms keep the order of a descending axis
                    if (d < static_cast<size_t>(shape.nspace) && found.min[d] > found.max[d])
                        std::swap(found.min[d], found.max[d]);
                EXPECT_EQ(found, box_of(*ways[0], corners(shape.dims, lowest[cell]))) << text(shape);
            }
    }
}

// ---- the field -----------------------------------------------------------------------------------------------

TEST(FieldExtent, BoxOfTheNodesOfAllSets)
{
    for (int nspace : {1, 2, 3}) {
        const int kind = nspace == 1 ? CELL_LINE : nspace == 2 ? CELL_QUAD : CELL_PRISM;
        const meshes::mesh_ptr made = meshes::cells(kind, 2, {3, 3, 3}, 1, 0.3, nspace);
        EXPECT_EQ(field_extent(made->mesh), box_of(*made, made->connect[0])) << nspace;
    }
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_QUAD, CELL_PYR}, {2, 1, 1}, 2, 1, 0.1);
    std::vector<qx_long> all;
    for (const std::vector<qx_long> &set : made->connect)
        all.insert(all.end(), set.begin(), set.end());
    EXPECT_EQ(field_extent(made->mesh), box_of(*made, all));
}

TEST(FieldExtent, UnusedNodesDoNotCount)
{
    const meshes::mesh_ptr made =
        meshes::from_cells(2, {-9, -9, 1, 2, 4, 3, 2, 7, 50, 50}, {CELL_TRI}, {1}, {{1, 2, 3}});
    EXPECT_EQ(field_extent(made->mesh), (box{{1, 2, 7}, {4, 7, -7}}));
    EXPECT_EQ(made->mesh->min_ext[0], -9);
    EXPECT_EQ(made->mesh->max_ext[0], 50);
}

TEST(FieldExtent, FirstCellMayStandInALateSet)
{
    const meshes::mesh_ptr made = meshes::from_cells(2, {0, 0, 1, 2, 4, 3}, {CELL_TRI, CELL_LINE, CELL_LINE},
                                                     {1, 1, 1}, {{}, {}, {1, 2}});
    EXPECT_EQ(field_extent(made->mesh), (box{{1, 2, 7}, {4, 3, -7}}));
}

TEST(FieldExtent, WithoutCellsTheBoxIsLeft)
{
    const meshes::mesh_ptr empty_sets =
        meshes::from_cells(2, {0, 0, 1, 1}, {CELL_TRI, CELL_LINE}, {1, 1}, {{}, {}});
    EXPECT_EQ(field_extent(empty_sets->mesh), untouched);
    const meshes::mesh_ptr no_sets = meshes::from_cells(2, {0, 0, 1, 1}, {}, {}, {});
    EXPECT_EQ(field_extent(no_sets->mesh), untouched);
}

TEST(FieldExtent, ListsOfEmptySetsAreFetchedAsWell)
{
    const meshes::mesh_ptr made =
        meshes::from_cells(2, {0, 0, 1, 1}, {CELL_LINE, CELL_TRI}, {1, 1}, {{0, 1}, {}});
    failing_fetches fetches(made->mesh);
    fetches.fail_connect_of_set = 1;
    host_calls::reset();
    EXPECT_EQ(field_extent(made->mesh, 0), untouched);
    EXPECT_EQ(host_calls::seen().reports,
              (std::vector<host_calls::report>{{"fld_info", 0, 2, "unable to get cell set connect list"}}));
    fetches.fail_connect_of_set = -1;
    EXPECT_EQ(field_extent(made->mesh), (box{{0, 0, 7}, {1, 1, -7}}));
    EXPECT_NE(made->mesh->cell_connect[1], nullptr);
}

TEST(FieldExtent, CoordinatesAreFetchedEvenWithoutSets)
{
    const meshes::mesh_ptr made = meshes::from_cells(2, {0, 0, 1, 1}, {}, {}, {});
    failing_fetches fetches(made->mesh);
    fetches.fail_coords = 1;
    host_calls::reset();
    EXPECT_EQ(field_extent(made->mesh, 0), untouched);
    EXPECT_EQ(host_calls::seen().reports,
              (std::vector<host_calls::report>{{"fld_info", 0, 2, "unable to get field coordinates"}}));
    EXPECT_EQ(field_extent(made->mesh, 1), untouched);
}

TEST(FieldExtent, StructuredMeshesGoThroughTheirCellSet)
{
    const lattices::shape shape = {{4, 3, 3}, 3};
    for (const meshes::mesh_ptr &made :
         {lattices::uniform(shape), lattices::rectilinear(shape), lattices::curvilinear(shape)}) {
        std::vector<qx_long> all;
        for (qx_long node = 0; node < made->nnodes(); ++node)
            all.push_back(node);
        EXPECT_EQ(field_extent(made->mesh), box_of(*made, all));
    }
}

TEST(FieldExtent, OneMeshDescribedInAllWaysHasTheSameBox)
{
    for (const lattices::shape &shape : lattices::in_every_space({{9}, {6, 5}, {5, 4, 7}})) {
        const std::vector<meshes::mesh_ptr> ways = lattices::in_all_ways(shape);
        std::vector<qx_long> all;
        for (qx_long node = 0; node < ways[0]->nnodes(); ++node)
            all.push_back(node);
        for (const meshes::mesh_ptr &made : ways) {
            EXPECT_EQ(field_extent(made->mesh), box_of(*ways[0], all)) << text(shape);
            for (size_t d = 0; d < static_cast<size_t>(shape.nspace); ++d) {
                EXPECT_EQ(field_extent(made->mesh).min[d], made->mesh->min_ext[d]) << text(shape);
                EXPECT_EQ(field_extent(made->mesh).max[d], made->mesh->max_ext[d]) << text(shape);
            }
        }
    }
}

// The first node fills the box and a comparison with NaN never widens it.
TEST(FieldExtent, NanStaysWhereItComesFirstAndIsPassedOverElsewhere)
{
    const meshes::mesh_ptr made = meshes::from_cells(2, {0, 5, 1, 6, 2, 7}, {CELL_TRI}, {1}, {{0, 1, 2}});
    made->coords[0] = NAN;
    made->coords[5] = NAN;
    for (const box &found : {field_extent(made->mesh), extent(UTILcell_extent, made->mesh, 0)}) {
        EXPECT_TRUE(std::isnan(found.min[0]));
        EXPECT_TRUE(std::isnan(found.max[0]));
        EXPECT_EQ(found.min[1], 5);
        EXPECT_EQ(found.max[1], 6);
    }
}

} // namespace
