// What the library asks of a field of the embedded host: coordinates, points, connect lists, attributes.
#include "support/host_fields.hpp"

#include <skoklana/host/fld.h>
#include <skoklana/host/om.h>

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

namespace {

using namespace host_fields;

const qx_long most = std::numeric_limits<qx_long>::max();
const qx_long least = std::numeric_limits<qx_long>::min();

// The coordinates of a box of nodes, taken out of all of them.
std::vector<float> box_of(const std::vector<float> &coords, int nspace, const std::vector<qx_long> &dims,
                          const qx_long *lo, const qx_long *hi)
{
    std::vector<float> box;
    for (qx_long node = 0; node < static_cast<qx_long>(coords.size()) / nspace; ++node) {
        qx_long rest = node;
        bool inside = true;
        for (size_t d = 0; d < dims.size(); ++d) {
            inside = inside && rest % dims[d] >= lo[d] && rest % dims[d] <= hi[d];
            rest /= dims[d];
        }
        for (int d = 0; inside && d < nspace; ++d)
            box.push_back(coords[static_cast<size_t>(node * nspace + d)]);
    }
    return box;
}

} // namespace

// ---- coordinates -----------------------------------------------------------------------------------------------

TEST(FetchedCoordinates, AreThoseOfEachForm)
{
    for (const std::vector<qx_long> &dims : lattices())
        for (int nspace = static_cast<int>(dims.size()); nspace <= 3; ++nspace)
            for (const meshes::mesh_ptr &made : structured(dims, nspace))
                EXPECT_EQ(fetched_coords(made->mesh), made->coords);
    const meshes::mesh_ptr cells = meshes::cells(CELL_PRISM, 2, {2, 2, 2}, 1, 0.2);
    EXPECT_EQ(fetched_coords(cells->mesh), cells->coords);
}

TEST(FetchedCoordinates, OfOneMeshAgreeInAllFourForms)
{
    const std::vector<qx_long> dims = {6, 5, 4};
    const meshes::mesh_ptr uniform = meshes::uniform(dims, 3, {-1.1f, 0.3f, 7}, {2.7f, 0.9f, -5});
    std::vector<float> axis[3];
    for (int d = 0; d < 3; ++d) {
        qx_long stride = 1;
        for (int lower = 0; lower < d; ++lower)
            stride *= dims[static_cast<size_t>(lower)];
        for (qx_long i = 0; i < dims[static_cast<size_t>(d)]; ++i)
            axis[d].push_back(uniform->coords[static_cast<size_t>(i * stride * 3 + d)]);
    }
    const float *const axes[3] = {axis[0].data(), axis[1].data(), axis[2].data()};
    held rect(host_rectilinear(3, dims.data(), 3, axes));
    held curved(host_curvilinear(3, dims.data(), 3, uniform->coords.data()));
    held cells(host_cells(uniform->nnodes(), 3, uniform->coords.data()));
    const std::vector<float> expected = fetched_coords(uniform->mesh);
    for (host_field *field : {rect.field, curved.field, cells.field}) {
        mesh_info *mesh = host_mesh(field);
        EXPECT_EQ(fetched_coords(mesh), expected);
        for (int d = 0; d < 3; ++d) {
            EXPECT_EQ(mesh->min_ext[d], uniform->mesh->min_ext[d]);
            EXPECT_EQ(mesh->max_ext[d], uniform->mesh->max_ext[d]);
        }
    }
}

TEST(FetchedCoordinates, OfRangesAreThoseOfAll)
{
    std::mt19937_64 random(8);
    int boxes = 0;
    for (const std::vector<qx_long> &dims : lattices())
        for (int nspace = static_cast<int>(dims.size()); nspace <= 3; ++nspace)
            for (const meshes::mesh_ptr &made : structured(dims, nspace))
                for (int run = 0; run < 10; ++run) {
                    // Entries beyond ndim are not looked at.
                    qx_long lo[3] = {-7, -7, -7}, hi[3] = {99, 99, 99}, count = 1;
                    for (size_t d = 0; d < dims.size(); ++d) {
                        lo[d] = static_cast<qx_long>(random()) & 7;
                        hi[d] = static_cast<qx_long>(random()) & 7;
                        if (run == 0) lo[d] = 0, hi[d] = dims[d] - 1;
                        lo[d] %= dims[d];
                        hi[d] = lo[d] + hi[d] % (dims[d] - lo[d]);
                        count *= hi[d] - lo[d] + 1;
                    }
                    std::vector<float> out(static_cast<size_t>(count * nspace) + 1, 77);
                    EXPECT_EQ(made->mesh->get_coords_range(made->mesh, lo, hi, out.data()), 1)
                        << host_error();
                    EXPECT_EQ(out.back(), 77);
                    out.pop_back();
                    EXPECT_EQ(out, box_of(made->coords, nspace, dims, lo, hi));
                    boxes += count > 1;
                }
    EXPECT_GT(boxes, 100);
}

TEST(FetchedCoordinates, OfRangesOfCellSetsGoByNodeNumber)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 1, 0.1);
    const qx_long lo[3] = {3, 0, 0}, hi[3] = {9, 0, 0};
    float out[7 * 3];
    EXPECT_EQ(made->mesh->get_coords_range(made->mesh, lo, hi, out), 1);
    EXPECT_EQ(memcmp(out, made->coords.data() + 9, sizeof out), 0);
}

TEST(FetchedCoordinates, OfRangesOutsideTheMeshAreRefused)
{
    const meshes::mesh_ptr lattice = meshes::uniform({4, 3, 2}, 3, {0, 0, 0}, {1, 1, 1});
    const meshes::mesh_ptr cells = meshes::cells(CELL_LINE, 1, {3}, 1);
    float out[100];
    out[0] = 77;
    const struct {
        qx_long lo[3], hi[3];
    } wrong[] = {{{-1, 0, 0}, {1, 1, 1}}, {{0, 0, 0}, {4, 1, 1}}, {{0, 0, 0}, {1, 3, 1}},
                 {{0, 0, 0}, {1, 1, 2}},  {{2, 0, 0}, {1, 0, 0}}, {{0, 0, least}, {0, 0, most}}};
    for (const auto &range : wrong)
        EXPECT_EQ(lattice->mesh->get_coords_range(lattice->mesh, range.lo, range.hi, out), 0);
    EXPECT_EQ(cells->mesh->get_coords_range(cells->mesh, wrong[0].lo, wrong[0].hi, out), 0);
    EXPECT_EQ(cells->mesh->get_coords_range(cells->mesh, wrong[1].lo, wrong[1].hi, out), 0);
    EXPECT_STREQ(host_error(),
                 "coordinates of a field: there is no range 0 to 4 on axis 0, which has 4 nodes");
    EXPECT_EQ(out[0], 77);
}

TEST(FetchedCoordinates, AreBorrowedWhereTheProgramHasThemAndKeptElsewhere)
{
    const meshes::mesh_ptr cells = meshes::cells(CELL_TET, 1, {1, 1, 1}, 1);
    float *coords = nullptr, *again = nullptr;
    EXPECT_EQ(cells->mesh->get_coords(cells->mesh, &coords), 1);
    EXPECT_EQ(coords, cells->coords.data());
    for (const meshes::mesh_ptr &made : structured({3, 3, 3}, 3)) {
        mesh_info copy = *made->mesh; // a copy fetches from the same field
        EXPECT_EQ(made->mesh->get_coords(made->mesh, &coords), 1);
        EXPECT_EQ(copy.get_coords(&copy, &again), 1);
        EXPECT_EQ(coords, again);
        EXPECT_EQ(coords == made->coords.data(), made->corners.empty() && made->axes.empty());
    }
}

TEST(FetchedCoordinates, RoundEachStepInFloat)
{
    const qx_long dims[1] = {8};
    const float corners[2] = {0.1f, 16777216.0f};
    held field(host_uniform(1, dims, 1, corners));
    const std::vector<float> coords = fetched_coords(host_mesh(field.field));
    const volatile float length = corners[1] - corners[0], step = length / 7.0f;
    for (int i = 0; i < 8; ++i) {
        const volatile float way = static_cast<float>(i) * step;
        const volatile float expected = way + corners[0];
        EXPECT_EQ(coords[static_cast<size_t>(i)], expected);
    }
}

// ---- points ------------------------------------------------------------------------------------------------------

TEST(FetchedPoints, OfUniformMeshesAreTheCornersThemselves)
{
    const meshes::mesh_ptr made = meshes::uniform({3, 2}, 3, {1, 2, 3}, {4, 5, 6});
    float *points = nullptr;
    EXPECT_EQ(made->mesh->get_points(made->mesh, &points), 1);
    EXPECT_EQ(points, made->corners.data());
}

TEST(FetchedPoints, OfRectilinearMeshesAreARowAPosition)
{
    for (const std::vector<qx_long> &dims : lattices())
        for (int nspace = static_cast<int>(dims.size()); nspace <= 3; ++nspace) {
            const meshes::mesh_ptr made = meshes::rectilinear(dims, nspace, {1, 2, 3}, {4, 5, 6}, 3);
            float *points = nullptr, *again = nullptr;
            ASSERT_EQ(made->mesh->get_points(made->mesh, &points), 1);
            qx_long row = 0;
            for (size_t d = 0; d < dims.size(); ++d)
                for (qx_long i = 0; i < dims[d]; ++i, ++row)
                    EXPECT_EQ(points[row * nspace + static_cast<qx_long>(d)],
                              made->axes[d][static_cast<size_t>(i)]);
            for (size_t d = dims.size(); d < static_cast<size_t>(nspace); ++d)
                for (qx_long r = 0; r < row; ++r)
                    EXPECT_EQ(points[r * nspace + static_cast<qx_long>(d)], made->axes[d][0]);
            EXPECT_EQ(made->mesh->get_points(made->mesh, &again), 1);
            EXPECT_EQ(points, again);
        }
}

TEST(FetchedPoints, TakeMissingConstantAxesAs0)
{
    const qx_long dims[1] = {3};
    const float x[3] = {5, 6, 9}, z[1] = {4};
    const float *const axes[3] = {x, nullptr, z};
    held field(host_rectilinear(1, dims, 3, axes));
    mesh_info *mesh = host_mesh(field.field);
    EXPECT_EQ(fetched_coords(mesh), (std::vector<float>{5, 0, 4, 6, 0, 4, 9, 0, 4}));
    float *points = nullptr;
    EXPECT_EQ(mesh->get_points(mesh, &points), 1);
    EXPECT_EQ(points[1], 0);
    EXPECT_EQ(points[2], 4);
    EXPECT_EQ(mesh->min_ext[1], 0);
    EXPECT_EQ(mesh->max_ext[2], 4);
}

TEST(FetchedPoints, AreNotThereForOtherMeshes)
{
    const meshes::mesh_ptr made[2] = {meshes::curvilinear({3, 3}, 2, {0, 0}, {1, 1}, 1),
                                      meshes::cells(CELL_TRI, 1, {1, 1}, 1)};
    for (const meshes::mesh_ptr &mesh : made) {
        float *points = mesh->coords.data();
        EXPECT_EQ(mesh->mesh->get_points(mesh->mesh, &points), 0);
        EXPECT_EQ(points, mesh->coords.data());
        EXPECT_STREQ(host_error(), "points of a field: only uniform and rectilinear meshes have them");
    }
}

// ---- connect lists -----------------------------------------------------------------------------------------------

namespace {

// The corners of structured cells in turn: around the lower face, then the upper one.
std::vector<qx_long> reference_connect(const std::vector<qx_long> &dims)
{
    const int turn[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                            {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    std::vector<qx_long> n = dims, connect;
    n.resize(3, 1);
    const int ndim = static_cast<int>(dims.size());
    for (qx_long k = 0; k < (ndim > 2 ? n[2] - 1 : 1); ++k)
        for (qx_long j = 0; j < (ndim > 1 ? n[1] - 1 : 1); ++j)
            for (qx_long i = 0; i < n[0] - 1; ++i)
                for (int corner = 0; corner < 1 << ndim; ++corner)
                    connect.push_back(i + turn[corner][0] +
                                      n[0] * (j + turn[corner][1] + n[1] * (k + turn[corner][2])));
    return connect;
}

} // namespace

TEST(FetchedConnectLists, OfLatticesGoAroundTheLowerFaceAndThenTheUpper)
{
    for (const std::vector<qx_long> &dims : lattices())
        for (const meshes::mesh_ptr &made : structured(dims, 3)) {
            const std::vector<qx_long> expected = reference_connect(dims);
            qx_long *connect = nullptr, *again = nullptr;
            ASSERT_EQ(made->mesh->get_connect(made->mesh, 0, &connect), 1);
            ASSERT_NE(connect, nullptr);
            EXPECT_EQ(std::vector<qx_long>(connect, connect + expected.size()), expected);
            EXPECT_EQ(static_cast<qx_long>(expected.size()), made->mesh->ncells * made->mesh->cell_nnodes[0]);
            EXPECT_EQ(made->mesh->get_connect(made->mesh, 0, &again), 1);
            EXPECT_EQ(connect, again);
        }
}

TEST(FetchedConnectLists, OfCellSetsAreTheProgramsOwn)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_HEX}, {1, 2}, 1, 1);
    for (int s = 0; s < 2; ++s) {
        qx_long *connect = nullptr;
        EXPECT_EQ(made->mesh->get_connect(made->mesh, s, &connect), 1);
        EXPECT_EQ(connect, made->connect[static_cast<size_t>(s)].data());
    }
}

TEST(FetchedConnectLists, OfSetsThatAreNotThereAreRefused)
{
    const meshes::mesh_ptr made[2] = {meshes::uniform({3, 3}, 2, {0, 0}, {1, 1}),
                                      meshes::cells(CELL_TRI, 1, {1, 1}, 1)};
    for (const meshes::mesh_ptr &mesh : made)
        for (int set : {-1, 1, INT32_MAX}) {
            qx_long *connect = nullptr;
            EXPECT_EQ(mesh->mesh->get_connect(mesh->mesh, set, &connect), 0);
            EXPECT_EQ(connect, nullptr);
        }
    EXPECT_STREQ(host_error(), "connect list of a field: there is no cell set 2147483647, the field has 1");
}

TEST(ConnectStruct, GivesAnyRangeOfCells)
{
    for (const std::vector<qx_long> &dims : lattices()) {
        const int ndim = static_cast<int>(dims.size());
        const std::vector<qx_long> all = reference_connect(dims);
        const qx_long row = 1 << ndim, ncells = static_cast<qx_long>(all.size()) / row;
        for (qx_long start = 0; start <= ncells; ++start)
            for (qx_long end : {start, start + 1, start + 3, ncells}) {
                if (end > ncells || end < start) continue;
                std::vector<qx_long> out(static_cast<size_t>((end - start) * row) + 1, -9);
                EXPECT_EQ(get_connect_struct(ndim, dims.data(), start, end, out.data()), 1);
                EXPECT_EQ(out.back(), -9);
                EXPECT_TRUE(std::equal(out.begin(), out.end() - 1, all.begin() + start * row));
            }
    }
}

TEST(ConnectStruct, GivesNothingWithoutCells)
{
    const qx_long dims[4] = {1, 3, 3, 3}, thin[3] = {3, 1, 3};
    qx_long out[8] = {-9};
    EXPECT_EQ(get_connect_struct(3, dims, 5, 5, out), 1);
    EXPECT_EQ(get_connect_struct(3, dims, 0, 1, out), 0);
    EXPECT_EQ(get_connect_struct(3, thin, 0, 1, out), 0);
    EXPECT_EQ(get_connect_struct(0, dims, 0, 1, out), 0);
    EXPECT_EQ(get_connect_struct(4, dims, 0, 1, out), 0);
    EXPECT_EQ(out[0], -9);
}

// ---- attributes by object id ---------------------------------------------------------------------------------------

TEST(FieldAttributes, AreReadByTheIdInTheRecord)
{
    qx_long *dims = nullptr;
    int ndim = 0, type = 0;
    float *points = nullptr;
    const std::vector<meshes::mesh_ptr> made = structured({4, 3, 2}, 3);
    for (size_t kind = 0; kind < 3; ++kind) {
        const OMobj_id id = *made[kind]->mesh->field_id;
        EXPECT_EQ(FLDget_dims(id, &dims, &ndim), 1);
        EXPECT_EQ(ndim, 3);
        EXPECT_EQ(dims[0], 4);
        EXPECT_EQ(dims[1], 3);
        EXPECT_EQ(dims[2], 2);
        EXPECT_EQ(FLDget_points(id, &points), kind == 2 ? 0 : 1);
        EXPECT_EQ(FLDget_cell_type(id, 0, &type), 1);
        EXPECT_EQ(type, 7);
    }
    const meshes::mesh_ptr cells = meshes::cells(CELL_TET, 1, {1, 1, 1}, 1);
    dims = nullptr;
    ndim = -5;
    EXPECT_EQ(FLDget_dims(*cells->mesh->field_id, &dims, &ndim), 0);
    EXPECT_EQ(FLDget_points(*cells->mesh->field_id, &points), 0);
    EXPECT_EQ(dims, nullptr);
    EXPECT_EQ(ndim, -5);
}

TEST(FieldAttributes, TellTheTypeOfEachCellSet)
{
    const std::vector<int> kinds = {CELL_LINE, CELL_TRI, CELL_QUAD, CELL_TET, CELL_HEX, CELL_PRISM, CELL_PYR};
    for (int order = 1; order <= 2; ++order) {
        const meshes::mesh_ptr made = meshes::mixed(kinds, std::vector<int>(7, order), 1, 1);
        for (int s = 0; s < 7; ++s) {
            int type = 0;
            EXPECT_EQ(FLDget_cell_type(*made->mesh->field_id, s, &type), 1);
            EXPECT_EQ(type, 3 + s + (order - 1) * 10);
        }
        int type = -5;
        EXPECT_EQ(FLDget_cell_type(*made->mesh->field_id, 7, &type), 0);
        EXPECT_EQ(FLDget_cell_type(*made->mesh->field_id, -1, &type), 0);
        EXPECT_EQ(type, -5);
    }
}

TEST(FieldAttributes, OfOtherObjectsAreNotThere)
{
    qx_long *dims = nullptr;
    float *points = nullptr;
    int number = -5;
    for (OMobj_id id :
         {OMnull_obj, OMroot_obj, OMfind_str_subobj(OMroot_obj, "Templates.CONFIG.num_threads")}) {
        EXPECT_EQ(FLDget_dims(id, &dims, &number), 0);
        EXPECT_EQ(FLDget_points(id, &points), 0);
        EXPECT_EQ(FLDget_cell_type(id, 0, &number), 0);
    }
    EXPECT_EQ(dims, nullptr);
    EXPECT_EQ(points, nullptr);
    EXPECT_EQ(number, -5);
}

TEST(FieldAttributes, AreNotSettings)
{
    const meshes::mesh_ptr made = meshes::uniform({2}, 1, {0}, {1});
    EXPECT_EQ(OMset_int_val(*made->mesh->field_id, 4), 0);
}
