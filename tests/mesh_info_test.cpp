#include "support/fetches.hpp"
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <skoklana.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

namespace {

struct release {
    void operator()(mesh_info *copy) const { free(copy); }
};
using copy_ptr = std::unique_ptr<mesh_info, release>;

copy_ptr copy_of(mesh_info *mesh)
{
    mesh_info *copy = nullptr;
    EXPECT_EQ(UTILcopy_mesh_info(mesh, &copy), 1);
    return copy_ptr(copy);
}

meshes::mesh_ptr two_sets()
{
    return meshes::mixed({CELL_HEX, CELL_TET}, {1, 2}, 2, 1);
}

TEST(CopyMeshInfo, CarriesScalarsFunctionsAndPerSetArrays)
{
    const meshes::mesh_ptr made = two_sets();
    mesh_info *mesh = made->mesh;
    const copy_ptr copy = copy_of(mesh);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->field_id, mesh->field_id);
    EXPECT_EQ(copy->ndim, mesh->ndim);
    EXPECT_EQ(copy->dims, mesh->dims);
    EXPECT_EQ(copy->nspace, mesh->nspace);
    EXPECT_EQ(copy->nnodes, mesh->nnodes);
    EXPECT_EQ(copy->methods, mesh->methods);
    EXPECT_EQ(copy->get_coords, mesh->get_coords);
    EXPECT_EQ(copy->get_coords_range, mesh->get_coords_range);
    EXPECT_EQ(copy->get_points, mesh->get_points);
    EXPECT_EQ(copy->ncell_sets, 2);
    EXPECT_EQ(copy->ncells, mesh->ncells);
    EXPECT_EQ(copy->get_connect, mesh->get_connect);
    EXPECT_EQ(copy->cell_first, mesh->cell_first);
    EXPECT_EQ(copy->cell_count, mesh->cell_count);
    EXPECT_EQ(copy->cell_nnodes, mesh->cell_nnodes);
    EXPECT_EQ(copy->cell_ndim, mesh->cell_ndim);
    EXPECT_EQ(copy->cell_connect, mesh->cell_connect);
    EXPECT_EQ(copy->cell_aux, mesh->cell_aux);
    EXPECT_EQ(copy->cell_funcs, mesh->cell_funcs);
}

TEST(CopyMeshInfo, CarriesTheLatticeOfStructuredMeshes)
{
    for (const meshes::mesh_ptr &made : {meshes::uniform({3, 4, 2}, 3, {0, 0, 0}, {1, 1, 1}),
                                         meshes::rectilinear({3, 4}, 2, {0, 0}, {1, 1}, 1),
                                         meshes::curvilinear({5}, 3, {0, 0, 0}, {1, 1, 1}, 1)}) {
        const copy_ptr copy = copy_of(made->mesh);
        EXPECT_EQ(copy->ndim, made->ndim);
        EXPECT_EQ(copy->dims, made->mesh->dims);
        EXPECT_EQ(copy->nspace, made->nspace);
        EXPECT_EQ(copy->nnodes, made->nnodes());
    }
}

TEST(CopyMeshInfo, FetchesAnewEvenWhereTheSourceIsFilled)
{
    const meshes::mesh_ptr made = meshes::uniform({3, 3}, 2, {0, 0}, {1, 1});
    mesh_info *mesh = made->mesh;
    const qx_long list[1] = {4};
    float out[2];
    ASSERT_EQ(UTILcoord_list_struct(mesh, 1, list, out), 1);
    ASSERT_EQ(UTILcoord_list_unif(mesh, 1, list, out), 1);
    ASSERT_NE(mesh->coords, nullptr);
    ASSERT_NE(mesh->points, nullptr);

    const copy_ptr copy = copy_of(mesh);
    EXPECT_EQ(copy->coords, nullptr);
    EXPECT_EQ(copy->points, nullptr);

    float again[2] = {-1, -1};
    EXPECT_EQ(UTILcoord_list_struct(copy.get(), 1, list, again), 1);
    EXPECT_NE(copy->coords, nullptr);
    EXPECT_EQ(again[0], out[0]);
    EXPECT_EQ(again[1], out[1]);
}

TEST(CopyMeshInfo, WithoutCellSetsPerSetPointersAreNotCopied)
{
    const meshes::mesh_ptr made = two_sets();
    mesh_info mesh = *made->mesh;
    mesh.ncell_sets = 0;
    const copy_ptr copy = copy_of(&mesh);
    EXPECT_NE(copy->cell_first, mesh.cell_first);
    EXPECT_NE(copy->cell_count, mesh.cell_count);
    EXPECT_NE(copy->cell_nnodes, mesh.cell_nnodes);
    EXPECT_NE(copy->cell_ndim, mesh.cell_ndim);
    EXPECT_NE(copy->cell_connect, mesh.cell_connect);
    EXPECT_NE(copy->cell_aux, mesh.cell_aux);
    EXPECT_NE(copy->cell_funcs, mesh.cell_funcs);

    // Operations on such a copy do without them.
    float min[3] = {7, 7, 7}, max[3] = {8, 8, 8};
    EXPECT_EQ(UTILfield_extent(copy.get(), min, max), 1);
    EXPECT_EQ(UTILcell_extent(copy.get(), 0, min, max), 0);
    EXPECT_EQ(min[0], 7);
    EXPECT_EQ(max[2], 8);
}

TEST(CopyMeshInfo, DoesNotCarryExtentsOrOrders)
{
    const meshes::mesh_ptr made = two_sets();
    mesh_info mesh = *made->mesh;
    mesh.min_ext[0] = -1234.5f;
    mesh.max_ext[0] = 1234.5f;
    const copy_ptr copy = copy_of(&mesh);
    EXPECT_NE(copy->cell_order, mesh.cell_order);
    EXPECT_NE(copy->min_ext[0], -1234.5f);
    EXPECT_NE(copy->max_ext[0], 1234.5f);
}

TEST(CopyMeshInfo, IsOneBlockThatPlainFreeReleases)
{
    const meshes::mesh_ptr made = two_sets();
    host_calls::watch watch;
    mesh_info *copy = nullptr;
    ASSERT_EQ(UTILcopy_mesh_info(made->mesh, &copy), 1);
    EXPECT_EQ(watch.allocations(), 1);
    free(copy);
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST(CopyMeshInfo, WithoutMemoryGivesNoCopyAndNoReport)
{
    const meshes::mesh_ptr made = two_sets();
    host_calls::reset();
    host_calls::watch watch;
    host_calls::fail_allocation(0);
    mesh_info *copy = made->mesh;
    const int result = UTILcopy_mesh_info(made->mesh, &copy);
    EXPECT_TRUE(host_calls::allocation_was_refused());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(watch.live_blocks(), 0);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST(ReplaceCellSet, WritesThroughACopyReachTheSource)
{
    const meshes::mesh_ptr made = two_sets();
    mesh_info *mesh = made->mesh;
    float min[3], max[3];
    ASSERT_EQ(UTILcell_extent(mesh, mesh->cell_first[1], min, max), 1); // fetches the connect list
    const qx_long count = mesh->cell_count[1];
    qx_long *const connect = mesh->cell_connect[1];
    const int nnodes = mesh->cell_nnodes[1];
    const qx_long first_count = mesh->cell_count[0];

    const copy_ptr copy = copy_of(mesh);
    qx_long other[4] = {0, 1, 2, 3};
    EXPECT_EQ(UTILreplace_cell_set(copy.get(), 1, 2, other, 2), 1);
    for (const mesh_info *seen :
         {static_cast<const mesh_info *>(copy.get()), static_cast<const mesh_info *>(mesh)}) {
        EXPECT_EQ(seen->cell_count[1], 2);
        EXPECT_EQ(seen->cell_connect[1], other);
        EXPECT_EQ(seen->cell_nnodes[1], 2);
        EXPECT_EQ(seen->cell_count[0], first_count);
    }

    EXPECT_EQ(UTILreplace_cell_set(copy.get(), 1, count, connect, nnodes), 1);
    EXPECT_EQ(mesh->cell_count[1], count);
    EXPECT_EQ(mesh->cell_connect[1], connect);
    EXPECT_EQ(mesh->cell_nnodes[1], nnodes);
}

// ---- memory --------------------------------------------------------------------------------------------------

// With every allocation refused from the start the operations give what they always give.
TEST(MeshOperations, AskForNoMemoryThemselves)
{
    std::vector<meshes::mesh_ptr> all;
    all.push_back(two_sets());
    all.push_back(meshes::curvilinear({3, 4, 2}, 3, {0, 0, 0}, {1, 1, 1}, 1));
    all.push_back(meshes::rectilinear({3, 4, 2}, 3, {0, 0, 0}, {1, 1, 1}, 1));
    all.push_back(meshes::uniform({3, 4, 2}, 3, {0, 0, 0}, {1, 1, 1}));
    for (const meshes::mesh_ptr &made : all) {
        mesh_info *mesh = made->mesh;
        const qx_long nnodes = mesh->nnodes;
        std::vector<qx_long> list(static_cast<size_t>(nnodes)), connect(2 * 3 * 8);
        for (qx_long node = 0; node < nnodes; ++node)
            list[static_cast<size_t>(node)] = node;
        const std::vector<float> data(list.size(), 1.0f);
        std::vector<float> t(list.size()), out(3 * list.size());
        float min[3], max[3];

        host_calls::watch watch;
        host_calls::fail_allocations_from(0);
        EXPECT_EQ(UTILget_coord_list(mesh, nnodes, list.data(), out.data()), 1);
        EXPECT_EQ(UTILget_data_list(mesh, DTYPE_FLOAT, 1, data.data(), nnodes, list.data(), out.data()),
                  nnodes);
        EXPECT_EQ(UTILget_param(nnodes, DTYPE_FLOAT, data.data(), 0.5, list.data(), list.data(), t.data()),
                  1);
        EXPECT_EQ(UTILeval_coord(mesh, nnodes, list.data(), list.data(), t.data(), out.data()), 1);
        EXPECT_EQ(UTILeval_param(nnodes, 1, DTYPE_FLOAT, data.data(), 0, nullptr, list.data(), list.data(),
                                 t.data(), out.data()),
                  1);
        EXPECT_EQ(mesh->methods->cell_extent_func(mesh, 0, min, max), 1);
        EXPECT_EQ(UTILfield_extent(mesh, min, max), 1);
        if (mesh->ndim > 0) {
            EXPECT_EQ(UTILget_connect_struct(mesh->ndim, mesh->dims, 0, mesh->ncells, connect.data()), 1);
        }
        EXPECT_EQ(watch.allocations(), 0);
        EXPECT_EQ(watch.live_blocks(), 0);
    }
}

// ---- what is fetched when it is first needed -----------------------------------------------------------------

TEST(LazyFetch, CoordinatesThatFailOnceAreThereTheNextTime)
{
    const meshes::mesh_ptr made = two_sets();
    failing_fetches fetches(made->mesh);
    fetches.fail_coords = 1;
    host_calls::reset();
    float min[3] = {7, 7, 7}, max[3] = {8, 8, 8};
    EXPECT_EQ(UTILcell_extent(made->mesh, 0, min, max), 0);
    EXPECT_EQ(host_calls::seen().reports,
              (std::vector<host_calls::report>{{"fld_info", 0, 2, "unable to get field coordinates"}}));
    EXPECT_EQ(made->mesh->coords, nullptr);
    EXPECT_EQ(min[0], 7);
    EXPECT_EQ(max[0], 8);

    EXPECT_EQ(UTILcell_extent(made->mesh, 0, min, max), 1);
    EXPECT_EQ(host_calls::seen().reports.size(), 1u);
    EXPECT_NE(made->mesh->coords, nullptr);
    EXPECT_EQ(min[0], 0);

    EXPECT_EQ(UTILcell_extent(made->mesh, 1, min, max), 1);
    EXPECT_EQ(fetches.coords_calls, 2) << "what is there is not fetched again";
}

TEST(LazyFetch, PointsThatFailOnceAreThereTheNextTime)
{
    const meshes::mesh_ptr made = meshes::uniform({3, 3}, 2, {0, 0}, {1, 1});
    failing_fetches fetches(made->mesh);
    fetches.fail_points = 1;
    host_calls::reset();
    float min[2] = {7, 7}, max[2] = {8, 8};
    EXPECT_EQ(UTILcell_extent_unif(made->mesh, 0, min, max), 0);
    EXPECT_EQ(host_calls::seen().reports,
              (std::vector<host_calls::report>{{"fld_info", 0, 2, "unable to get field points"}}));
    EXPECT_EQ(made->mesh->points, nullptr);
    EXPECT_EQ(min[0], 7);

    EXPECT_EQ(UTILcell_extent_unif(made->mesh, 0, min, max), 1);
    EXPECT_EQ(max[0], 0.5f);
    EXPECT_EQ(UTILcell_extent_unif(made->mesh, 1, min, max), 1);
    EXPECT_EQ(fetches.points_calls, 2);
    EXPECT_EQ(host_calls::seen().reports.size(), 1u);
}

TEST(LazyFetch, FailureInALateSetLeavesTheEarlierEntriesFilled)
{
    const meshes::mesh_ptr made = two_sets();
    failing_fetches fetches(made->mesh);
    fetches.fail_connect_of_set = 1;
    host_calls::reset();
    float min[3] = {7, 7, 7}, max[3] = {8, 8, 8};
    EXPECT_EQ(UTILfield_extent(made->mesh, min, max), 0);
    EXPECT_EQ(host_calls::seen().reports,
              (std::vector<host_calls::report>{{"fld_info", 0, 2, "unable to get cell set connect list"}}));
    EXPECT_NE(made->mesh->cell_connect[0], nullptr);
    EXPECT_EQ(made->mesh->cell_connect[1], nullptr);
    EXPECT_EQ(min[0], 7);
    EXPECT_EQ(max[0], 8);

    fetches.fail_connect_of_set = -1;
    EXPECT_EQ(UTILfield_extent(made->mesh, min, max), 1);
    EXPECT_EQ(host_calls::seen().reports.size(), 1u);
    EXPECT_EQ(min[0], 0);
    EXPECT_EQ(max[0], 2);
}

// Every result below 1 is a failure, and what the host wrote before it failed is not kept.
TEST(LazyFetch, NegativeResultIsAFailureAndItsPointerIsDropped)
{
    const meshes::mesh_ptr made = two_sets();
    failing_fetches fetches(made->mesh);
    fetches.failure = -1;
    fetches.fail_coords = 1;
    fetches.deliver_on_failure = true;
    float min[3], max[3];
    EXPECT_EQ(UTILcell_extent(made->mesh, 0, min, max), 0);
    EXPECT_EQ(made->mesh->coords, nullptr);
    EXPECT_EQ(UTILcell_extent(made->mesh, 0, min, max), 1);
    fetches.fail_connect_of_set = 1;
    EXPECT_EQ(UTILcell_extent(made->mesh, made->mesh->cell_first[1], min, max), 0);
    EXPECT_EQ(made->mesh->cell_connect[1], nullptr);
}

} // namespace
