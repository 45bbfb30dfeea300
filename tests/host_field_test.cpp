// Fields of the embedded host from arrays: what their mesh records hold, and what is refused.
#include "support/host_calls.hpp"
#include "support/host_fields.hpp"

#include <skoklana/locate.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <thread>

namespace {

using namespace host_fields;

const float nan_value = std::numeric_limits<float>::quiet_NaN();
const float infinite = std::numeric_limits<float>::infinity();
const qx_long most = std::numeric_limits<qx_long>::max();
const qx_long least = std::numeric_limits<qx_long>::min();

} // namespace

// ---- the record ------------------------------------------------------------------------------------------------

TEST(MeshRecord, OfCellSetsHoldsOneEntryASet)
{
    const std::vector<int> kinds = {CELL_TET,  CELL_HEX, CELL_PYR,  CELL_PRISM,
                                    CELL_QUAD, CELL_TRI, CELL_LINE, CELL_TET};
    const std::vector<int> orders = {1, 2, 1, 2, 1, 2, 2, 2};
    const meshes::mesh_ptr made = meshes::mixed(kinds, orders, 2, 1);
    const mesh_info *mesh = made->mesh;
    EXPECT_EQ(mesh->ndim, 0);
    EXPECT_EQ(mesh->dims, nullptr);
    EXPECT_EQ(mesh->nspace, 3);
    EXPECT_EQ(mesh->nnodes, made->nnodes());
    EXPECT_EQ(mesh->points, nullptr);
    EXPECT_EQ(mesh->coords, nullptr);
    ASSERT_EQ(mesh->ncell_sets, 8);
    qx_long first = 0;
    for (size_t s = 0; s < kinds.size(); ++s) {
        const cell_kind_nodes &nodes = cell_kinds[kinds[s]];
        const int row = orders[s] == 1 ? nodes.ncorners : nodes.nnodes_2;
        EXPECT_EQ(mesh->cell_first[s], first);
        EXPECT_EQ(mesh->cell_count[s], static_cast<qx_long>(made->connect[s].size()) / row);
        EXPECT_EQ(mesh->cell_nnodes[s], row);
        EXPECT_EQ(mesh->cell_ndim[s], nodes.ndim);
        EXPECT_EQ(mesh->cell_order[s], orders[s]);
        EXPECT_EQ(mesh->cell_connect[s], nullptr);
        EXPECT_EQ(memcmp(mesh->cell_aux[s], nodes.position, static_cast<size_t>(row) * 3 * sizeof(float)), 0);
        first += mesh->cell_count[s];
    }
    EXPECT_EQ(mesh->ncells, first);
}

TEST(MeshRecord, OfStructuredMeshesDescribesTheCellInSet0)
{
    for (const std::vector<qx_long> &dims : lattices())
        for (int nspace = static_cast<int>(dims.size()); nspace <= 3; ++nspace)
            for (const meshes::mesh_ptr &made : structured(dims, nspace)) {
                const mesh_info *mesh = made->mesh;
                const int ndim = static_cast<int>(dims.size());
                qx_long nnodes = 1, ncells = 1;
                ASSERT_EQ(mesh->ndim, ndim);
                for (int d = 0; d < ndim; ++d) {
                    EXPECT_EQ(mesh->dims[d], dims[static_cast<size_t>(d)]);
                    nnodes *= mesh->dims[d];
                    ncells *= mesh->dims[d] - 1;
                }
                EXPECT_EQ(mesh->nspace, nspace);
                EXPECT_EQ(mesh->nnodes, nnodes);
                EXPECT_EQ(mesh->points, nullptr);
                EXPECT_EQ(mesh->coords, nullptr);
                EXPECT_EQ(mesh->ncells, ncells);
                ASSERT_EQ(mesh->ncell_sets, 1);
                EXPECT_EQ(mesh->cell_first[0], 0);
                EXPECT_EQ(mesh->cell_count[0], ncells);
                EXPECT_EQ(mesh->cell_nnodes[0], 1 << ndim);
                EXPECT_EQ(mesh->cell_ndim[0], ndim);
                EXPECT_EQ(mesh->cell_order[0], 1);
                EXPECT_EQ(mesh->cell_connect[0], nullptr);
                const int kind = ndim == 1 ? CELL_LINE : ndim == 2 ? CELL_QUAD : CELL_HEX;
                EXPECT_EQ(memcmp(mesh->cell_aux[0], cell_kinds[kind].position, sizeof(float) * 3 << ndim), 0);
            }
}

TEST(MeshRecord, IsTheSameEachTime)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    made->mesh->coords = made->coords.data(); // as a fetch does
    EXPECT_EQ(host_mesh(made->field), made->mesh);
    EXPECT_EQ(made->mesh->coords, made->coords.data());
}

TEST(MeshRecord, MayBeBentByItsUserAndIsStillReleased)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_TRI}, {1, 1}, 1, 1);
    *made->mesh = mesh_info();
}

TEST(MeshRecord, WorksWithoutNodesCellsOrSets)
{
    held none(host_cells(0, 2, nullptr));
    const mesh_info *mesh = host_mesh(none.field);
    ASSERT_NE(mesh, nullptr);
    EXPECT_EQ(mesh->nnodes, 0);
    EXPECT_EQ(mesh->ncells, 0);
    EXPECT_EQ(mesh->ncell_sets, 0);
    EXPECT_TRUE(fetched_coords(const_cast<mesh_info *>(mesh)).empty());

    held empty(host_cells(0, 3, nullptr));
    EXPECT_EQ(host_add_cells(empty.field, CELL_HEX, 2, 0, nullptr), 1);
    mesh_info *with_set = host_mesh(empty.field);
    ASSERT_NE(with_set, nullptr);
    EXPECT_EQ(with_set->ncell_sets, 1);
    EXPECT_EQ(with_set->cell_count[0], 0);
    qx_long *connect = nullptr;
    EXPECT_EQ(with_set->get_connect(with_set, 0, &connect), 1);
    EXPECT_NE(connect, nullptr);
}

// Expectations come from the names that the library handed over, whichever it has.
TEST(MeshRecord, IsBoundByTheNamesThatTheLibraryHandsOver)
{
    FLD_METHinit();
    ASSERT_GT(host_calls::named_func_count(), 0);
    std::map<std::string, cell_func> names;
    for (int row = 0; row < host_calls::named_func_count(); ++row)
        names.insert({host_calls::named_funcs()[row].name, host_calls::named_funcs()[row].func});
    const auto of = [&](const std::string &name) {
        const auto found = names.find(name);
        return found != names.end() ? found->second : nullptr;
    };
    const char *const stems[21] = {
        "interp_init_func", "find_cell_func", "interp_cell_func", "interp_data_func", "cell_extent_func",
        "coord_list_func",  "data_list_func", "isosurf_func",     "isoline_func",     "cut_func",
        "eval_coord_func",  "glyph_func",     "thresh_null_func", "rslice_func",      "grad_func",
        "curl_func",        "div_func",       "deriv3d_func",     "deriv2d_func",     "contour_func",
        "cell_to_node_func"};
    const char *const suffixes[4] = {"_unif", "_rect", "_struct", ""};
    std::vector<meshes::mesh_ptr> made = structured({3, 3, 3}, 3);
    made.push_back(meshes::cells(CELL_TET, 1, {1, 1, 1}, 1));
    int bound = 0;
    for (size_t kind = 0; kind < 4; ++kind) {
        cell_func slots[21];
        static_assert(sizeof slots == sizeof *made[kind]->mesh->methods, "");
        memcpy(slots, made[kind]->mesh->methods, sizeof slots);
        for (int slot = 0; slot < 21; ++slot) {
            EXPECT_EQ(slots[slot], of(std::string(stems[slot]) + suffixes[kind]))
                << stems[slot] << suffixes[kind];
            bound += slots[slot] != nullptr;
        }
    }
    EXPECT_GT(bound, 0);

    const char *const cell_stems[9] = {"shape_func", "shape_deriv", "rev_par",      "slice_cell", "cut_cell",
                                       "isoline",    "vol_integr",  "contour_cell", "tesselate"};
    const char *const kind_names[CELL_KINDS] = {"line", "tri", "quad", "tet", "pyr", "prism", "hex"};
    const char *const parts[CELL_KINDS] = {"line", "tri", "tri", "tet", "tet", "tet", "tet"};
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (int order = 1; order <= 2; ++order) {
            const meshes::mesh_ptr cells = meshes::cells(kind, order, {1, 1, 1}, 1);
            const cell_func *row = cells->mesh->cell_funcs;
            const std::string ending = std::string("_") + kind_names[kind] + "_" + std::to_string(order);
            for (int slot = 0; slot < 9; ++slot)
                EXPECT_EQ(row[slot], of(cell_stems[slot] + ending)) << cell_stems[slot] << ending;
            const int part_slots[4] = {SLOT_SLICE, SLOT_CUT, SLOT_ISOLINE, SLOT_CONTOUR};
            for (int k = 0; k < 4; ++k)
                EXPECT_EQ(row[SLOT_SUB_SLICE + k],
                          order == 2 ? of(std::string(cell_stems[part_slots[k]]) + "_" + parts[kind] + "_1")
                                     : nullptr)
                    << "slot " << SLOT_SUB_SLICE + k << ending;
            for (int slot = SLOT_SUB_CONTOUR + 1; slot < CELL_METHOD_SLOTS; ++slot)
                EXPECT_EQ(row[slot], nullptr);
        }
}

// ---- extents -------------------------------------------------------------------------------------------------------

TEST(Extents, AreTheBoxOfAllNodes)
{
    std::vector<meshes::mesh_ptr> made;
    for (const std::vector<qx_long> &dims : lattices())
        for (int nspace = static_cast<int>(dims.size()); nspace <= 3; ++nspace)
            for (meshes::mesh_ptr &mesh : structured(dims, nspace))
                made.push_back(std::move(mesh));
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        made.push_back(meshes::cells(kind, 2, {2, 2, 2}, 1, 0.2));
    for (const meshes::mesh_ptr &mesh : made)
        for (int d = 0; d < mesh->nspace; ++d) {
            float lo = infinite, hi = -infinite;
            for (qx_long node = 0; node < mesh->nnodes(); ++node) {
                lo = std::min(lo, mesh->coords[static_cast<size_t>(node * mesh->nspace + d)]);
                hi = std::max(hi, mesh->coords[static_cast<size_t>(node * mesh->nspace + d)]);
            }
            EXPECT_EQ(mesh->mesh->min_ext[d], lo);
            EXPECT_EQ(mesh->mesh->max_ext[d], hi);
        }
}

TEST(Extents, PassOverNan)
{
    const float coords[] = {nan_value, 1, nan_value, 5, nan_value, nan_value, 2, 7, nan_value};
    held field(host_cells(3, 3, coords));
    const mesh_info *mesh = host_mesh(field.field);
    EXPECT_EQ(mesh->min_ext[0], 2);
    EXPECT_EQ(mesh->max_ext[0], 5);
    EXPECT_EQ(mesh->min_ext[1], 1);
    EXPECT_EQ(mesh->max_ext[1], 7);
    EXPECT_EQ(mesh->min_ext[2], 0);
    EXPECT_EQ(mesh->max_ext[2], 0);
    const float last[] = {3, nan_value, 1, nan_value};
    const qx_long dims[1] = {4};
    held curve(host_curvilinear(1, dims, 1, last));
    EXPECT_EQ(host_mesh(curve.field)->min_ext[0], 1);
    EXPECT_EQ(host_mesh(curve.field)->max_ext[0], 3);
}

TEST(Extents, OfNoNodesAre0)
{
    held field(host_cells(0, 3, nullptr));
    const mesh_info *mesh = host_mesh(field.field);
    for (int d = 0; d < 3; ++d) {
        EXPECT_EQ(mesh->min_ext[d], 0);
        EXPECT_EQ(mesh->max_ext[d], 0);
    }
}

TEST(Extents, OfLargeUniformMeshesTakeNoTime)
{
    const qx_long dims[3] = {qx_long{1} << 20, qx_long{1} << 20,
                             1 << 15}; // 2^55 nodes, the most there can be
    const float corners[6] = {0, 5, 0, 1, -5, 2};
    held field(host_uniform(3, dims, 3, corners));
    const mesh_info *mesh = host_mesh(field.field);
    ASSERT_NE(mesh, nullptr) << host_error();
    EXPECT_EQ(mesh->nnodes, qx_long{1} << 55);
    EXPECT_EQ(mesh->min_ext[1], -5);
    EXPECT_EQ(mesh->max_ext[1], 5);
    EXPECT_NEAR(mesh->max_ext[2], 2, 1e-6);
    const qx_long lo[3] = {dims[0] - 1, 0, 3}, hi[3] = {dims[0] - 1, 0, 3};
    float node[3];
    EXPECT_EQ(mesh->get_coords_range(const_cast<mesh_info *>(mesh), lo, hi, node), 1);
    EXPECT_NEAR(node[0], 1, 1e-6);
}

// ---- what is refused -----------------------------------------------------------------------------------------------

namespace {

void expect_refused(host_field *field, const std::string &why)
{
    EXPECT_EQ(field, nullptr) << why;
    EXPECT_EQ(host_error(), why);
    host_free_field(field);
}

const float box[6] = {0, 0, 0, 1, 1, 1};
const qx_long two[3] = {2, 2, 2};
const float *const unit_axes[3] = {box + 2, box + 2, box + 2};

} // namespace

TEST(Refused, AreLatticesOfNoAxisOrTooMany)
{
    expect_refused(host_uniform(0, two, 3, box),
                   "host_uniform: ndim is 0, but a structured mesh has 1 to 3 axes");
    expect_refused(host_uniform(4, two, 3, box),
                   "host_uniform: ndim is 4, but a structured mesh has 1 to 3 axes");
    expect_refused(host_rectilinear(-1, two, 3, unit_axes),
                   "host_rectilinear: ndim is -1, but a structured mesh has 1 to 3 axes");
    expect_refused(host_curvilinear(4, two, 3, box),
                   "host_curvilinear: ndim is 4, but a structured mesh has 1 to 3 axes");
}

TEST(Refused, AreAxesWithoutNodes)
{
    for (int d = 0; d < 3; ++d)
        for (qx_long n : {qx_long{0}, qx_long{-1}, least}) {
            qx_long dims[3] = {2, 2, 2};
            dims[d] = n;
            const std::string why = "dims[" + std::to_string(d) + "] is " + std::to_string(n) +
                                    ", but an axis has at least 1 node";
            expect_refused(host_uniform(3, dims, 3, box), "host_uniform: " + why);
            expect_refused(host_rectilinear(3, dims, 3, unit_axes), "host_rectilinear: " + why);
            expect_refused(host_curvilinear(3, dims, 3, box), "host_curvilinear: " + why);
        }
}

TEST(Refused, AreMoreNodesThanAMeshMayHave)
{
    const std::string rest = ", which makes more nodes than the 36028797018963968 that a mesh may have";
    for (const std::vector<qx_long> &dims :
         std::vector<std::vector<qx_long>>{{most},
                                           {(qx_long{1} << 55) + 1},
                                           {3, qx_long{1} << 54},
                                           {1 << 20, 1 << 20, (1 << 15) + 1},
                                           {most, most, most},
                                           {qx_long{1} << 32, qx_long{1} << 32, 1},
                                           {2, qx_long{1} << 62, 2}}) {
        EXPECT_EQ(host_uniform(static_cast<int>(dims.size()), dims.data(), 3, box), nullptr);
        EXPECT_NE(std::string(host_error()).find(rest), std::string::npos) << host_error();
    }
    const qx_long dims[2] = {1, (qx_long{1} << 55) + 1};
    expect_refused(host_curvilinear(2, dims, 2, box),
                   "host_curvilinear: dims[1] is 36028797018963969" + rest);
    expect_refused(host_cells(most, 3, box),
                   "host_cells: nnodes is 9223372036854775807, but a mesh has 0 to 36028797018963968 nodes");
    expect_refused(host_cells(-1, 3, box),
                   "host_cells: nnodes is -1, but a mesh has 0 to 36028797018963968 nodes");
}

TEST(Refused, AreSpacesThatDoNotHoldTheMesh)
{
    expect_refused(host_uniform(3, two, 2, box),
                   "host_uniform: nspace is 2, but with 3 axes a node has 3 coordinates");
    expect_refused(host_uniform(2, two, 1, box),
                   "host_uniform: nspace is 1, but with 2 axes a node has 2 to 3 coordinates");
    expect_refused(host_rectilinear(1, two, 0, unit_axes),
                   "host_rectilinear: nspace is 0, but a node has 1 to 3 coordinates");
    expect_refused(host_curvilinear(3, two, 4, box),
                   "host_curvilinear: nspace is 4, but with 3 axes a node has 3 coordinates");
    expect_refused(host_cells(2, 0, box), "host_cells: nspace is 0, but a node has 1 to 3 coordinates");
    expect_refused(host_cells(2, 4, box), "host_cells: nspace is 4, but a node has 1 to 3 coordinates");
}

TEST(Refused, AreMissingArrays)
{
    expect_refused(host_uniform(3, nullptr, 3, box),
                   "host_uniform: dims is NULL, but it must hold the nodes along each axis");
    expect_refused(host_uniform(3, two, 3, nullptr),
                   "host_uniform: corners is NULL, but it must hold the first node and the last");
    expect_refused(host_rectilinear(3, two, 3, nullptr),
                   "host_rectilinear: axes is NULL, but it must hold the coordinates of each axis");
    const float *const one_missing[3] = {box, nullptr, box};
    expect_refused(host_rectilinear(3, two, 3, one_missing),
                   "host_rectilinear: axes[1] is NULL, but it must hold 2 coordinates");
    expect_refused(host_curvilinear(3, two, 3, nullptr),
                   "host_curvilinear: coords is NULL, but it must hold the coordinates of each node");
    expect_refused(host_cells(1, 3, nullptr),
                   "host_cells: coords is NULL, but it must hold the coordinates of each node");
}

TEST(Refused, AreCornersAndAxesThatAreNotFinite)
{
    const char *const names[3] = {"nan", "inf", "-inf"};
    const float values[3] = {nan_value, infinite, -infinite};
    for (int v = 0; v < 3; ++v) {
        for (int c = 0; c < 6; ++c) {
            float corners[6] = {0, 0, 0, 1, 1, 1};
            corners[c] = values[v];
            expect_refused(host_uniform(3, two, 3, corners), "host_uniform: corners[" + std::to_string(c) +
                                                                 "] is " + names[v] +
                                                                 ", but corners are finite");
        }
        const float bad[2] = {0, values[v]};
        const float *const inner[2] = {box, bad}, *const constant[2] = {box, bad + 1};
        expect_refused(host_rectilinear(2, two, 2, inner), std::string("host_rectilinear: axes[1][1] is ") +
                                                               names[v] +
                                                               ", but coordinates of axes are finite");
        expect_refused(host_rectilinear(1, two, 2, constant),
                       std::string("host_rectilinear: axes[1][0] is ") + names[v] +
                           ", but coordinates of axes are finite");
    }
}

TEST(Refused, AreCornersFurtherApartThanAFloatCanTell)
{
    const float corners[2] = {-3e38f, 3e38f};
    const qx_long three[1] = {3}, one[1] = {1};
    expect_refused(host_uniform(1, three, 1, corners),
                   "host_uniform: corners[0] is -3e+38 and corners[1] is 3e+38, but the distance between "
                   "corners is finite too");
    held single(host_uniform(1, one, 1, corners)); // there is nothing between
    EXPECT_NE(single.field, nullptr);
    const float opposite[2] = {3e38f, 2e38f};
    held fine(host_uniform(1, three, 1, opposite));
    EXPECT_NE(fine.field, nullptr);
}

namespace {

class AddCells : public testing::Test {
  protected:
    int add(int kind, int order, qx_long ncells, const std::vector<qx_long> &connect)
    {
        return host_add_cells(cells.field, kind, order, ncells, connect.data());
    }
    void expect_added(int nsets)
    {
        const mesh_info *mesh = host_mesh(cells.field);
        ASSERT_NE(mesh, nullptr);
        EXPECT_EQ(mesh->ncell_sets, nsets);
    }

    std::vector<float> coords = std::vector<float>(30);
    held cells{host_cells(10, 3, coords.data())};
};

} // namespace

TEST_F(AddCells, RefusesNodesOutsideTheField)
{
    for (qx_long wrong : {qx_long{-1}, qx_long{10}, least, most})
        for (size_t place : {size_t{0}, size_t{1}, size_t{100}, size_t{4001}, size_t{8003}}) {
            std::vector<qx_long> connect(8004, 9);
            connect[place] = wrong;
            EXPECT_EQ(add(CELL_TET, 1, 2001, connect), 0);
            EXPECT_EQ(host_error(), "host_add_cells: cell " + std::to_string(place / 4) + " names node " +
                                        std::to_string(wrong) + ", but the field has nodes 0 to 9");
        }
    std::vector<qx_long> two_wrong(8, 0);
    two_wrong[3] = 12;
    two_wrong[6] = 11;
    EXPECT_EQ(add(CELL_TET, 1, 2, two_wrong), 0);
    EXPECT_STREQ(host_error(), "host_add_cells: cell 0 names node 12, but the field has nodes 0 to 9");
    EXPECT_EQ(add(CELL_TET, 1, 2, {0, 9, 0, 9, 9, 9, 0, 0}), 1);
    expect_added(1);
}

TEST_F(AddCells, RefusesCellsOfAFieldWithoutNodes)
{
    held none(host_cells(0, 3, nullptr));
    const qx_long connect[2] = {0, 0};
    EXPECT_EQ(host_add_cells(none.field, CELL_LINE, 1, 1, connect), 0);
    EXPECT_STREQ(host_error(), "host_add_cells: the set has 1 cells, but the field has no nodes");
}

TEST_F(AddCells, RefusesKindsAndOrdersThatAreNone)
{
    for (int kind : {-1, 7, INT32_MAX}) {
        EXPECT_EQ(add(kind, 1, 1, {0, 1, 2, 3, 4, 5, 6, 7}), 0);
        EXPECT_EQ(host_error(), "host_add_cells: kind is " + std::to_string(kind) +
                                    ", but kinds run from CELL_LINE (0) to CELL_HEX (6)");
    }
    for (int order : {-1, 0, 3}) {
        EXPECT_EQ(add(CELL_TRI, order, 1, {0, 1, 2}), 0);
        EXPECT_EQ(host_error(),
                  "host_add_cells: order is " + std::to_string(order) + ", but cells are of order 1 or 2");
    }
    expect_added(0);
}

TEST_F(AddCells, RefusesCountsThatCannotBe)
{
    const std::string rest = ", but the mesh has room for 0 to 36028797018963968";
    for (qx_long ncells : {qx_long{-1}, least, most, (qx_long{1} << 55) + 1, most / 8, most / 20 + 1}) {
        EXPECT_EQ(add(CELL_HEX, 2, ncells, {}), 0);
        EXPECT_EQ(host_error(), "host_add_cells: ncells is " + std::to_string(ncells) + rest);
    }
    EXPECT_EQ(host_add_cells(cells.field, CELL_HEX, 2, 1, nullptr), 0);
    EXPECT_STREQ(host_error(),
                 "host_add_cells: connect is NULL, but it must hold the node numbers of each cell");
    EXPECT_EQ(add(CELL_LINE, 1, 3, {0, 1, 1, 2, 2, 3}), 1);
    EXPECT_EQ(add(CELL_LINE, 1, qx_long{1} << 55, {}), 0);
    EXPECT_STREQ(
        host_error(),
        "host_add_cells: ncells is 36028797018963968, but the mesh has room for 0 to 36028797018963965");
    expect_added(1);
}

TEST_F(AddCells, RefusesCellsOfMoreDimensionsThanTheSpace)
{
    for (int nspace = 1; nspace <= 3; ++nspace)
        for (int kind = 0; kind < CELL_KINDS; ++kind) {
            held field(host_cells(10, nspace, coords.data()));
            const std::vector<qx_long> connect(8);
            const bool fits = cell_kinds[kind].ndim <= nspace;
            EXPECT_EQ(host_add_cells(field.field, kind, 1, 1, connect.data()), fits ? 1 : 0);
            const std::string dimensions = std::to_string(cell_kinds[kind].ndim);
            EXPECT_TRUE(fits || std::string(host_error())
                                        .find(" needs " + dimensions +
                                              " coordinates a node, but the "
                                              "field has " +
                                              std::to_string(nspace)) != std::string::npos)
                << host_error();
        }
}

TEST_F(AddCells, RefusesFieldsThatTakeNone)
{
    const qx_long connect[2] = {0, 1};
    EXPECT_EQ(host_add_cells(nullptr, CELL_LINE, 1, 1, connect), 0);
    EXPECT_STREQ(host_error(), "host_add_cells: field is NULL");
    held lattice(host_uniform(3, two, 3, box));
    EXPECT_EQ(host_add_cells(lattice.field, CELL_LINE, 1, 1, connect), 0);
    EXPECT_STREQ(host_error(),
                 "host_add_cells: the field is a lattice; only fields of host_cells take cell sets");
    expect_added(0);
    EXPECT_EQ(host_add_cells(cells.field, CELL_LINE, 1, 1, connect), 0);
    EXPECT_STREQ(host_error(), "host_add_cells: host_mesh was called already; add all cells before");
    EXPECT_EQ(host_mesh(nullptr), nullptr);
    EXPECT_STREQ(host_error(), "host_mesh: field is NULL");
    host_free_field(nullptr);
}

TEST_F(AddCells, TakesAnyNumberOfSetsInTheirOrder)
{
    std::vector<std::vector<qx_long>> connect;
    for (qx_long s = 0; s < 50; ++s)
        connect.push_back({s % 10, (s + 1) % 10, (s + 2) % 10});
    for (int s = 0; s < 50; ++s)
        EXPECT_EQ(
            add(s % 2 == 0 ? CELL_TRI : CELL_LINE, s % 2 == 0 ? 1 : 2, 1, connect[static_cast<size_t>(s)]),
            1);
    mesh_info *mesh = host_mesh(cells.field);
    ASSERT_EQ(mesh->ncell_sets, 50);
    for (int s = 0; s < 50; ++s) {
        qx_long *list = nullptr;
        EXPECT_EQ(mesh->get_connect(mesh, s, &list), 1);
        EXPECT_EQ(list, connect[static_cast<size_t>(s)].data());
        EXPECT_EQ(mesh->cell_ndim[s], s % 2 == 0 ? 2 : 1);
        EXPECT_EQ(mesh->cell_first[s], s);
    }
}

TEST(Borrowed, ArraysAreNotCopiedAndDimsAre)
{
    qx_long dims[2] = {3, 2};
    float coords[12] = {};
    const float *axes[2] = {coords, coords + 4};
    held curved(host_curvilinear(2, dims, 2, coords));
    held rect(host_rectilinear(2, dims, 2, axes));
    dims[0] = 99;
    axes[0] = nullptr;
    coords[2] = 7;
    EXPECT_EQ(host_mesh(curved.field)->dims[0], 3);
    EXPECT_EQ(fetched_coords(host_mesh(curved.field))[2], 7);
    EXPECT_EQ(fetched_coords(host_mesh(rect.field))[4], 7);
}

// ---- the rest ------------------------------------------------------------------------------------------------------

TEST(FreeTable, ReleasesATableAndTheListsThatItOwns)
{
    host_calls::watch watch;
    blk_tbl *owner = static_cast<blk_tbl *>(calloc(1, sizeof(blk_tbl)));
    owner->blocks = static_cast<qx_long *>(malloc(8));
    owner->cell_list = static_cast<qx_long *>(ARRalloc_f(nullptr, DTYPE_QX_LONG, 10, 0, "tests", 1));
    owner->next_list = static_cast<qx_long *>(ARRalloc_f(nullptr, DTYPE_QX_LONG, 10, 0, "tests", 1));
    blk_tbl *user = static_cast<blk_tbl *>(malloc(sizeof(blk_tbl)));
    *user = *owner;
    owner->owns_lists = 1;
    host_free_table(user);
    host_free_table(
        owner); // released lists would be released twice here, lost ones be found by the sanitizer
    host_free_table(nullptr);
}

TEST(Fields, OfSeveralThreadsAreBuiltAtOnce)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int run = 0; run < 50; ++run) {
                const meshes::mesh_ptr made = meshes::uniform({3 + t, 4, 2}, 3, {0, 0, 0}, {1, 1, 1});
                EXPECT_EQ(fetched_coords(made->mesh), made->coords);
                EXPECT_EQ(host_uniform(9 + t, nullptr, 3, nullptr), nullptr);
                EXPECT_EQ(std::string(host_error()).find("host_uniform: ndim is " + std::to_string(9 + t)),
                          0u);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}
