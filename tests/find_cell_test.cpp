#include "support/cell_reference.hpp"
#include "support/fetches.hpp"
#include "support/host_calls.hpp"
#include "support/lattices.hpp"
#include "support/locate_reference.hpp"
#include "support/meshes.hpp"

#include "locator.hpp"

#include <skoklana.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace reference = locate_reference;
using reference::found;
using reference::triple;

namespace {

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();
constexpr qx_long unwritten = -77;

struct release {
    void operator()(blk_tbl *table) const { host_free_table(table); }
};
using table_ptr = std::unique_ptr<blk_tbl, release>;

table_ptr table_of(mesh_info *mesh)
{
    blk_tbl *table = nullptr;
    EXPECT_EQ(mesh->methods->interp_init_func(mesh, &table), 1);
    return table_ptr(table);
}

found find(mesh_info *mesh, const blk_tbl *table, const triple &point)
{
    found at = {0, unwritten, {0, 0, 0}};
    at.result = mesh->methods->find_cell_func(mesh, table, point.data(), &at.cell, at.uvw.data());
    return at;
}

bool same_bits(const triple &a, const triple &b)
{
    for (size_t d = 0; d < 3; ++d)
        if (!(std::isnan(a[d]) && std::isnan(b[d])) && memcmp(&a[d], &b[d], sizeof(float)) != 0) return false;
    return true;
}

std::string text(const triple &p)
{
    char line[100];
    snprintf(line, sizeof line, "%.9g %.9g %.9g", static_cast<double>(p[0]), static_cast<double>(p[1]),
             static_cast<double>(p[2]));
    return line;
}

const cell_reference::cell_functions &functions_of(const mesh_info *mesh, int set)
{
    const rev_par_func map_back = reference::mapping_of(mesh, set);
    for (const cell_reference::cell_functions &cell : cell_reference::cells)
        if (cell.map_back == map_back) return cell;
    ADD_FAILURE() << "no such cell";
    return cell_reference::cells[0];
}

int set_of(const mesh_info *mesh, qx_long cell)
{
    int set = 0;
    while (mesh->ndim == 0 && cell >= mesh->cell_first[set] + mesh->cell_count[set])
        ++set;
    return set;
}

const reference::cell *cell_by_id(const std::vector<reference::cell> &cells, qx_long id)
{
    for (const reference::cell &c : cells)
        if (c.id == id) return &c;
    return nullptr;
}

// The point at some parameters of a cell.
triple point_in(mesh_info *mesh, const reference::cell &cell, const cell_reference::position &at)
{
    const float *coords = reference::coords_of(mesh);
    std::vector<float> gathered;
    for (qx_long node : cell.nodes)
        for (int d = 0; d < 3; ++d)
            gathered.push_back(d < mesh->nspace ? coords[node * mesh->nspace + d] : 0.0f);
    const auto x = cell_reference::map_forward(functions_of(mesh, set_of(mesh, cell.id)), gathered, at);
    return {static_cast<float>(x[0]), static_cast<float>(x[1]), static_cast<float>(x[2])};
}

// Every kind in both orders, mixed sets, curvilinear meshes of all shapes. The second-order pyramid has no
// mapping: nothing is found in it.
struct named_mesh {
    std::string name;
    meshes::mesh_ptr made;
};

std::vector<named_mesh> searched_meshes(int n, double jitter)
{
    std::vector<named_mesh> all;
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (int order : {1, 2})
            for (int nspace = cell_kinds[kind].ndim; nspace <= 3; ++nspace)
                all.push_back({"kind " + std::to_string(kind) + ", order " + std::to_string(order) + ", " +
                                   std::to_string(nspace) + " coordinates",
                               meshes::cells(kind, order, {n, n, n}, 5, jitter, nspace)});
    all.push_back({"mixed", meshes::mixed({CELL_HEX, CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX},
                                          {1, 1, 1, 1, 2}, n, 5, jitter)});
    for (const lattices::shape &s : lattices::small_shapes())
        all.push_back({lattices::text(s), lattices::curvilinear(s)});
    for (const lattices::shape &s : lattices::in_every_space({{40}, {9, 7}, {6, 7, 8}}))
        all.push_back({lattices::text(s), lattices::curvilinear(s)});
    return all;
}

} // namespace

// ---- numbers of cells ------------------------------------------------------------------------------------------

TEST(CellId, FirstSetThatTheNumberDoesNotLiePast)
{
    const std::vector<float> coords = {0, 0, 1, 0, 0, 1, 3, 3};
    const meshes::mesh_ptr made =
        meshes::from_cells(2, coords, {CELL_LINE, CELL_TRI, CELL_LINE, CELL_LINE}, {1, 1, 1, 1},
                           {{0, 1, 1, 2}, {0, 1, 2}, {}, {1, 3, 0, 3}});
    const int sets[] = {0, 0, 1, 3, 3}, locals[] = {0, 1, 0, 0, 1};
    for (int cell = 0; cell < 5; ++cell) {
        qx_long local = unwritten;
        int set = -1;
        EXPECT_EQ(UTILget_cell_id(made->mesh, cell, &local, &set), 1);
        EXPECT_EQ(set, sets[cell]);
        EXPECT_EQ(local, locals[cell]);
    }
}

TEST(CellId, WithoutASetTheCallersNumberDecides)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_TET, 1, {1, 1, 1}, 1);
    for (qx_long cell : {qx_long{6}, qx_long{100}, std::numeric_limits<qx_long>::max()})
        for (int before : {-1, -5, 0, 3}) {
            qx_long local = unwritten;
            int set = before;
            EXPECT_EQ(UTILget_cell_id(made->mesh, cell, &local, &set), before >= 0);
            EXPECT_EQ(set, before);
        }
}

TEST(CellId, NegativeNumbersLieInTheFirstSet)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_TET, 1, {1, 1, 1}, 1);
    qx_long local = unwritten;
    int set = -1;
    EXPECT_EQ(UTILget_cell_id(made->mesh, -4, &local, &set), 1);
    EXPECT_EQ(set, 0);
    EXPECT_EQ(local, -4);
}

// ---- the test of one cell --------------------------------------------------------------------------------------

TEST(CellTest, BoxThenMappingForCellsOfEveryKind)
{
    int inside = 0, outside = 0, in_box_only = 0;
    for (const named_mesh &m : searched_meshes(2, 0.2)) {
        SCOPED_TRACE(m.name);
        mesh_info *mesh = m.made->mesh;
        const auto cells = reference::cells_of(mesh);
        const auto test = mesh->ndim > 0 ? UTILinterp_cell_uvw_struct : UTILinterp_cell_uvw;
        std::mt19937_64 random(4);
        for (const triple &p : reference::points_around(mesh, random, 40)) {
            const reference::cell &c = cells[random() % cells.size()];
            for (bool check_box : {false, true})
                for (double tol : {0.0, 1e-6, 0.2, 1e30}) {
                    const host_calls::watch watch;
                    triple uvw = {9, 9, 9}, expected = uvw;
                    const int result = test(mesh, c.id, p.data(), check_box, tol, uvw.data());
                    ASSERT_EQ(result, reference::test_cell(c, reference::coords_of(mesh), mesh->nspace,
                                                           p.data(), check_box, tol, expected.data()))
                        << "cell " << c.id << " at " << text(p);
                    EXPECT_TRUE(same_bits(uvw, expected));
                    EXPECT_EQ(watch.allocations(), 0);
                    inside += result > 0;
                    outside += check_box && result == 0 && uvw[0] == 9;
                    in_box_only += check_box && result == 0 && uvw[0] != 9;
                }
        }
    }
    EXPECT_GT(inside, 500);
    EXPECT_GT(outside, 500);
    EXPECT_GT(in_box_only, 100);
}

TEST(CellTest, BoxMayBeMissedByTheTolerance)
{
    // Any point is in a cell of this mapping, so that the box alone decides.
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    mesh_info *mesh = made->mesh;
    const cell_func own = mesh->cell_funcs[SLOT_REV_PAR];
    mesh->cell_funcs[SLOT_REV_PAR] = reinterpret_cast<cell_func>(
        static_cast<rev_par_func>([](const float *, const float *, float *) { return 1; }));
    float uvw[3];
    for (size_t d = 0; d < 3; ++d)
        for (double tol : {0.0, 1e-12, 0.001, 0.5, 2.0, -0.1})
            for (double beyond : {-1e-3, -1e-9, 0.0, 1e-13, 1e-9, 1e-3})
                for (int side : {0, 1}) {
                    triple p = {0.5f, 0.5f, 0.5f};
                    p[d] = static_cast<float>(side == 0 ? -tol - beyond : 1 + tol + beyond);
                    const bool holds = side == 0 ? !(0 - tol > static_cast<double>(p[d]))
                                                 : !(static_cast<double>(p[d]) > 1 + tol);
                    EXPECT_EQ(UTILinterp_cell_uvw(mesh, 0, p.data(), 1, tol, uvw), holds)
                        << tol << " " << beyond << " axis " << d;
                    EXPECT_EQ(UTILinterp_cell_uvw(mesh, 0, p.data(), 0, tol, uvw), 1);
                }
    mesh->cell_funcs[SLOT_REV_PAR] = own;
}

TEST(CellTest, AxesThatTheMeshDoesNotHaveAreZero)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_QUAD, 1, {1, 1, 1}, 1, 0, 2);
    float uvw[3];
    const triple above = {0.5f, 0.5f, 0.01f}, on = {0.5f, 0.5f, 0};
    EXPECT_EQ(UTILinterp_cell_uvw(made->mesh, 0, on.data(), 1, 0, uvw), 1);
    EXPECT_EQ(UTILinterp_cell_uvw(made->mesh, 0, above.data(), 1, 0.009, uvw), 0);
}

TEST(CellTest, CellsThatAreNotThere)
{
    const triple p = {0.4f, 0.4f, 0.4f};
    float uvw[3];
    host_calls::reset();
    const meshes::mesh_ptr sets = meshes::mixed({CELL_TET, CELL_HEX}, {1, 1}, 1, 1);
    for (qx_long cell : {qx_long{-1}, qx_long{-1000}, sets->mesh->ncells, sets->mesh->ncells + 5,
                         std::numeric_limits<qx_long>::max(), std::numeric_limits<qx_long>::min() + 1})
        EXPECT_EQ(UTILinterp_cell_uvw(sets->mesh, cell, p.data(), 0, 0, uvw), 0) << cell;
    const meshes::mesh_ptr lattice = meshes::curvilinear({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}, 1);
    const meshes::mesh_ptr even = meshes::uniform({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1});
    const meshes::mesh_ptr rect = meshes::rectilinear({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}, 1);
    for (qx_long cell : {qx_long{-1}, qx_long{27}, qx_long{28}, std::numeric_limits<qx_long>::max(),
                         std::numeric_limits<qx_long>::min()}) {
        EXPECT_EQ(UTILinterp_cell_uvw_struct(lattice->mesh, cell, p.data(), 0, 0, uvw), 0) << cell;
        EXPECT_EQ(UTILinterp_cell_uvw_unif(even->mesh, cell, p.data(), 0, 0, uvw), 0) << cell;
        EXPECT_EQ(UTILinterp_cell_uvw_rect(rect->mesh, cell, p.data(), 0, 0, uvw), 0) << cell;
    }
    // Corners past the last node; positions past the last interval.
    for (qx_long cell = 14; cell < 27; ++cell)
        EXPECT_EQ(UTILinterp_cell_uvw_struct(lattice->mesh, cell, p.data(), 0, 0, uvw), 0) << cell;
    for (qx_long cell : {2, 6, 18, 26})
        EXPECT_EQ(UTILinterp_cell_uvw_rect(rect->mesh, cell, p.data(), 0, 0, uvw), 0) << cell;
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST(CellTest, KindsWithoutAMappingHoldNothing)
{
    float uvw[3];
    const triple p = {0.5f, 0.5f, 0.5f};
    const meshes::mesh_ptr pyramids = meshes::cells(CELL_PYR, 2, {1, 1, 1}, 1);
    for (qx_long cell = 0; cell < pyramids->mesh->ncells; ++cell)
        EXPECT_EQ(UTILinterp_cell_uvw(pyramids->mesh, cell, p.data(), 0, 0, uvw), 0);
    const meshes::mesh_ptr lattice = meshes::curvilinear({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}, 1);
    const cell_func own = lattice->mesh->cell_funcs[SLOT_REV_PAR];
    lattice->mesh->cell_funcs[SLOT_REV_PAR] = nullptr;
    EXPECT_EQ(UTILinterp_cell_uvw_struct(lattice->mesh, 0, p.data(), 0, 0, uvw), 0);
    lattice->mesh->cell_funcs[SLOT_REV_PAR] = own;
}

TEST(CellTest, WhatCannotBeFetchedIsReported)
{
    const meshes::mesh_ptr sets = meshes::mixed({CELL_TET, CELL_HEX}, {1, 1}, 1, 1);
    const meshes::mesh_ptr lattice = meshes::curvilinear({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}, 1);
    const triple p = {1.5f, 0.5f, 0.5f};
    float uvw[3];
    for (const auto &[made, test] :
         {std::pair{&sets, UTILinterp_cell_uvw}, {&lattice, UTILinterp_cell_uvw_struct}}) {
        failing_fetches fetches((*made)->mesh);
        fetches.fail_coords = 1;
        host_calls::reset();
        EXPECT_EQ(test((*made)->mesh, 0, p.data(), 1, 0, uvw), 0);
        EXPECT_EQ(host_calls::report_texts(),
                  std::vector<std::string>{"fld_info: unable to get field coordinates"});
    }
    failing_fetches fetches(sets->mesh);
    fetches.fail_connect_of_set = 1;
    host_calls::reset();
    EXPECT_EQ(UTILinterp_cell_uvw(sets->mesh, 6, p.data(), 1, 0, uvw), 0);
    EXPECT_EQ(host_calls::report_texts(),
              std::vector<std::string>{"fld_info: unable to get cell set connect list"});
    EXPECT_EQ(UTILinterp_cell_uvw(sets->mesh, 100, p.data(), 1, 0, uvw), 0);
    EXPECT_EQ(host_calls::seen().reports.size(), 1u);
    fetches.fail_connect_of_set = -1;
    EXPECT_EQ(UTILinterp_cell_uvw(sets->mesh, 6, p.data(), 1, 0, uvw), 1);

    const meshes::mesh_ptr even = meshes::uniform({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1});
    const meshes::mesh_ptr rect = meshes::rectilinear({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}, 1);
    for (mesh_info *mesh : {even->mesh, rect->mesh}) {
        failing_fetches points(mesh);
        points.fail_points = 2;
        host_calls::reset();
        EXPECT_EQ(mesh->methods->interp_cell_func(mesh, 0, p.data(), 1, 0, uvw), 0);
        EXPECT_EQ(find(mesh, nullptr, p).result, 0);
        EXPECT_EQ(host_calls::report_texts(),
                  std::vector<std::string>(2, "fld_info: unable to get field points"));
        const triple inside = {0.1f, 0.1f, 0.1f};
        EXPECT_EQ(find(mesh, nullptr, inside).result, 1);
    }
}

// ---- search by block table ---------------------------------------------------------------------------------------

TEST(FindCell, AgreesWithTheSlowSearch)
{
    int hits = 0, misses = 0, outside = 0;
    for (double jitter : {0.0, 0.15, 0.6})
        for (const named_mesh &m : searched_meshes(3, jitter)) {
            SCOPED_TRACE(m.name);
            mesh_info *mesh = m.made->mesh;
            const table_ptr table = table_of(mesh);
            const auto cells = reference::cells_of(mesh);
            std::mt19937_64 random(9);
            for (const triple &p : reference::points_around(mesh, random, 80)) {
                const host_calls::watch watch;
                const found got = find(mesh, table.get(), p);
                EXPECT_EQ(watch.allocations(), 0);
                const found expected = reference::find(mesh, cells, table.get(), p.data(), unwritten);
                ASSERT_EQ(got.result, expected.result) << text(p);
                ASSERT_EQ(got.cell, expected.cell) << text(p);
                EXPECT_TRUE(got.result != 1 || same_bits(got.uvw, expected.uvw)) << text(p);
                hits += got.result == 1;
                misses += got.result == 0 && got.cell != unwritten;
                outside += got.cell == unwritten;
            }
        }
    EXPECT_GT(hits, 1000);
    EXPECT_GT(misses, 1000);
    EXPECT_GT(outside, 1000);
}

TEST(FindCell, GivesTheLastCellOfAllThatTakeThePoint)
{
    int hits = 0, several = 0;
    for (const named_mesh &m : searched_meshes(3, 0.3)) {
        SCOPED_TRACE(m.name);
        mesh_info *mesh = m.made->mesh;
        const table_ptr table = table_of(mesh);
        const auto cells = reference::cells_of(mesh);
        const float tol = reference::tolerance_of(table.get());
        std::mt19937_64 random(10);
        for (const triple &p : reference::points_around(mesh, random, 60)) {
            bool in_box = true;
            for (int d = 0; d < mesh->nspace; ++d)
                in_box = in_box && mesh->min_ext[d] <= p[static_cast<size_t>(d)] &&
                         p[static_cast<size_t>(d)] <= mesh->max_ext[d];
            if (!in_box) continue;
            const found got = find(mesh, table.get(), p);
            const found expected = reference::find_in_all(mesh, cells, p.data(), tol);
            ASSERT_EQ(got.result, expected.result) << text(p);
            if (got.result != 1) continue;
            EXPECT_EQ(got.cell, expected.cell) << text(p);
            EXPECT_TRUE(same_bits(got.uvw, expected.uvw)) << text(p);
            ++hits;
            for (const reference::cell &c : cells) {
                float uvw[3];
                if (c.id < got.cell &&
                    reference::test_cell(c, reference::coords_of(mesh), mesh->nspace, p.data(), true,
                                         static_cast<double>(tol), uvw) > 0) {
                    ++several;
                    break;
                }
            }
        }
    }
    EXPECT_GT(hits, 500);
    EXPECT_GT(several, 100) << "points that several cells take";
}

TEST(FindCell, FindsPointsOfCellsAndTheirParameters)
{
    int own = 0, others = 0;
    for (const named_mesh &m : searched_meshes(3, 0.15)) {
        mesh_info *mesh = m.made->mesh;
        // These have no mapping, or weights that do not sum to 1.
        if (mesh->ndim == 0 && mesh->cell_order[0] == 2 &&
            (m.made->kinds[0] == CELL_PYR || m.made->kinds[0] == CELL_PRISM))
            continue;
        // Cells along an axis of one node are degenerate.
        if (std::count(m.made->dims.begin(), m.made->dims.end(), 1) > 0) continue;
        SCOPED_TRACE(m.name);
        const table_ptr table = table_of(mesh);
        const auto cells = reference::cells_of(mesh);
        std::mt19937_64 random(11);
        for (int i = 0; i < 60; ++i) {
            const reference::cell &c = cells[random() % cells.size()];
            const auto &functions = functions_of(mesh, set_of(mesh, c.id));
            const auto at = cell_reference::random_position(functions, random);
            const triple p = point_in(mesh, c, at);
            const found got = find(mesh, table.get(), p);
            ASSERT_EQ(got.result, 1) << "cell " << c.id << " at " << text(p);
            EXPECT_GE(got.cell, c.id);
            const auto &taker = functions_of(mesh, set_of(mesh, got.cell));
            cell_reference::position back = {0, 0, 0};
            for (int d = 0; d < taker.ndim(); ++d)
                back[static_cast<size_t>(d)] = static_cast<double>(got.uvw[static_cast<size_t>(d)]);
            // 0.05 beyond its range a cell still counts.
            EXPECT_LE(cell_reference::distance_beyond(taker, back), 0.0501);
            if (got.cell == c.id) {
                ++own;
                for (size_t d = 0; d < static_cast<size_t>(taker.ndim()); ++d)
                    EXPECT_NEAR(back[d], at[d], 0.06) << "cell " << c.id;
            } else {
                ++others;
                const triple there = point_in(mesh, *cell_by_id(cells, got.cell), back);
                for (size_t d = 0; d < 3; ++d)
                    EXPECT_NEAR(there[d], p[d], 0.05) << "a fraction of a cell's width of a third";
            }
        }
    }
    EXPECT_GT(own, 1000);
    EXPECT_GT(others, 20);
}

TEST(FindCell, PointsOutsideAreNeverFound)
{
    for (const named_mesh &m : searched_meshes(2, 0.1)) {
        SCOPED_TRACE(m.name);
        mesh_info *mesh = m.made->mesh;
        const table_ptr table = table_of(mesh);
        host_calls::reset();
        for (int d = 0; d < mesh->nspace; ++d)
            for (float by : {0.01f, 1.0f, 1e10f, 3e38f, infinite})
                for (bool below : {false, true}) {
                    triple p = {0, 0, 0};
                    for (int k = 0; k < mesh->nspace; ++k)
                        p[static_cast<size_t>(k)] = (mesh->min_ext[k] + mesh->max_ext[k]) / 2;
                    p[static_cast<size_t>(d)] = below ? mesh->min_ext[d] - by : mesh->max_ext[d] + by;
                    const found got = find(mesh, table.get(), p);
                    EXPECT_EQ(got.result, 0) << text(p);
                    EXPECT_EQ(got.cell, unwritten) << text(p);
                }
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
}

TEST(FindCell, PointsThatAreNoPlacesAreNotFound)
{
    for (const named_mesh &m : searched_meshes(2, 0.1)) {
        SCOPED_TRACE(m.name);
        const table_ptr table = table_of(m.made->mesh);
        for (size_t d = 0; d < 3; ++d)
            for (float odd : {nan_value, infinite, -infinite}) {
                triple p = {0.5f, 0.5f, 0.5f};
                p[d] = odd;
                EXPECT_EQ(find(m.made->mesh, table.get(), p).result, 0);
            }
    }
    const meshes::mesh_ptr even = meshes::uniform({3, 3}, 3, {0, 0, 0}, {1, 1, 0});
    const meshes::mesh_ptr rect = meshes::rectilinear({3, 3}, 3, {0, 0, 0}, {1, 1, 0}, 1);
    for (mesh_info *mesh : {even->mesh, rect->mesh})
        for (size_t d = 0; d < 3; ++d)
            for (float odd : {nan_value, infinite, -infinite}) {
                triple p = {0.5f, 0.5f, 0};
                p[d] = odd;
                const found got = find(mesh, nullptr, p);
                EXPECT_EQ(got.result, 0);
                EXPECT_EQ(got.cell, -1);
            }
}

TEST(FindCell, JustBeyondTheBoxCountsAsTheLastBlock)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 1);
    const table_ptr table = table_of(made->mesh);
    const float tol = reference::tolerance_of(table.get());
    EXPECT_FLOAT_EQ(tol, 3e-6f);
    for (size_t d = 0; d < 3; ++d) {
        for (float part : {0.0f, 0.3f, 0.9f}) {
            triple p = {0.3f, 0.3f, 0.3f};
            p[d] = 1 + part * tol;
            const found high = find(made->mesh, table.get(), p);
            EXPECT_EQ(high.result, 1) << part;
            EXPECT_EQ(high.cell, qx_long{1} << d);
            p[d] = -part * tol;
            const found low = find(made->mesh, table.get(), p);
            EXPECT_EQ(low.result, 1) << part;
            EXPECT_EQ(low.cell, 0);
        }
        triple p = {0.3f, 0.3f, 0.3f};
        p[d] = 1 + 1.2f * tol;
        EXPECT_EQ(find(made->mesh, table.get(), p).cell, unwritten);
        p[d] = -1.2f * tol;
        EXPECT_EQ(find(made->mesh, table.get(), p).cell, unwritten);
    }
}

TEST(FindCell, ToleranceCountsAllThreeAxesOfTheTable)
{
    // One coordinate, an extent of 1, but a table of three.
    const meshes::mesh_ptr made = meshes::cells(CELL_LINE, 1, {1, 1, 1}, 1, 0, 1);
    const table_ptr table = table_of(made->mesh);
    const triple p = {1 + 5e-4f, 0, 0};
    EXPECT_EQ(find(made->mesh, table.get(), p).cell, unwritten);
    table->max_ext[1] = 400;
    table->max_ext[2] = 600;
    EXPECT_EQ(find(made->mesh, table.get(), p).result, 1);
}

TEST(FindCell, SharedFacesGoToTheCellInsertedLast)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 1);
    const table_ptr table = table_of(made->mesh);
    EXPECT_EQ(find(made->mesh, table.get(), {0.5f, 0.2f, 0.2f}).cell, 1);
    EXPECT_EQ(find(made->mesh, table.get(), {0.2f, 0.5f, 0.2f}).cell, 2);
    EXPECT_EQ(find(made->mesh, table.get(), {0.5f, 0.5f, 0.5f}).cell, 7);
    // The same cells twice, in two sets: the later set has them all.
    const meshes::mesh_ptr twice = meshes::from_cells(3, made->coords, {CELL_HEX, CELL_HEX}, {1, 1},
                                                      {made->connect[0], made->connect[0]});
    const table_ptr both = table_of(twice->mesh);
    std::mt19937_64 random(1);
    for (const triple &p : reference::points_around(twice->mesh, random, 50)) {
        const found got = find(twice->mesh, both.get(), p);
        EXPECT_TRUE(got.result != 1 || got.cell >= 8) << text(p);
    }
}

TEST(FindCell, EmptyBlockGivesNoCell)
{
    const meshes::mesh_ptr made = meshes::from_cells(1, {0, 0.1f, 0.9f, 1}, {CELL_LINE}, {1}, {{0, 1, 2, 3}});
    const table_ptr table = table_of(made->mesh);
    const found got = find(made->mesh, table.get(), {0.5f, 0, 0});
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.cell, -1);
    const found last = find(made->mesh, table.get(), {0.12f, 0, 0});
    EXPECT_EQ(last.result, 0);
    EXPECT_EQ(last.cell, 0) << "the last one tried";
}

TEST(FindCell, NegativeNumberInAListEndsTheSearch)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    const table_ptr table = table_of(made->mesh);
    const triple p = {0.5f, 0.5f, 0.5f};
    EXPECT_EQ(find(made->mesh, table.get(), p).result, 1);
    for (qx_long bad : {qx_long{-1}, qx_long{-2}, std::numeric_limits<qx_long>::min()}) {
        // At the head of each list, before the cell that holds the point.
        std::vector<qx_long> heads(table->blocks, table->blocks + table->nblocks);
        table->cell_list[400] = bad;
        for (qx_long block = 0; block < table->nblocks; ++block) {
            table->next_list[400] = heads[static_cast<size_t>((3 * 7 + 3) * 7 + 3)];
            table->blocks[block] = 400;
        }
        const found got = find(made->mesh, table.get(), p);
        EXPECT_EQ(got.result, -1);
        EXPECT_EQ(got.cell, -1);
        std::copy(heads.begin(), heads.end(), table->blocks);
    }
}

TEST(FindCell, NumbersOfCellsThatAreNotThereArePassedOver)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    const table_ptr table = table_of(made->mesh);
    table->cell_list[400] = 1;
    for (qx_long block = 0; block < table->nblocks; ++block) {
        table->next_list[400] = table->blocks[block];
        if (block == (3 * 7 + 3) * 7 + 3) {
            table->blocks[block] = 400;
            break;
        }
    }
    const found got = find(made->mesh, table.get(), {0.5f, 0.5f, 0.5f});
    EXPECT_EQ(got.result, 1);
    EXPECT_EQ(got.cell, 0);
}

TEST(FindCell, AsksTheMeshsOwnTestInTheOrderOfTheList)
{
    struct asked {
        std::vector<qx_long> cells;
        qx_long accept = -1;
        int refusal = 0;
        double tol = 0;
        bool same = true;
        triple point = {0.5f, 0.5f, 0.5f};
    };
    static asked log;
    log = asked();
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 1);
    mesh_info *mesh = made->mesh;
    const table_ptr table = table_of(mesh);
    mesh_methods own = *mesh->methods, *const bound = mesh->methods;
    mesh->methods = &own;
    own.interp_cell_func = [](mesh_info *, qx_long cell, const float *point, int check_box, double tol,
                              float *uvw) {
        log.cells.push_back(cell);
        log.same = log.same && check_box == 1 && triple{point[0], point[1], point[2]} == log.point;
        log.tol = tol;
        uvw[0] = static_cast<float>(cell);
        return cell == log.accept ? 2 : log.refusal;
    };
    for (int refusal : {0, -1, -5}) {
        log.refusal = refusal;
        log.accept = 3;
        log.cells.clear();
        found got = find(mesh, table.get(), log.point);
        EXPECT_EQ(got.result, 1);
        EXPECT_EQ(got.cell, 3);
        EXPECT_EQ(got.uvw[0], 3);
        EXPECT_EQ(log.cells, (std::vector<qx_long>{7, 6, 5, 4, 3}));
        log.accept = -1;
        log.cells.clear();
        got = find(mesh, table.get(), log.point);
        EXPECT_EQ(got.result, 0);
        EXPECT_EQ(got.cell, 0) << "the last one tried";
        EXPECT_EQ(log.cells.size(), 8u);
    }
    EXPECT_TRUE(log.same);
    EXPECT_EQ(log.tol, static_cast<double>(reference::tolerance_of(table.get())));

    own.interp_cell_func = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(find(mesh, table.get(), log.point).result, -1);
    EXPECT_EQ(find(mesh, nullptr, log.point).result, -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "UTILfind_cell: unable to find interp_cell function\n"
                                                      "UTILfind_cell: unable to find interp_cell function\n");
    mesh->methods = bound;
}

TEST(FindCell, WithoutATableOrCoordinates)
{
    for (const meshes::mesh_ptr &made : {meshes::cells(CELL_HEX, 1, {2, 2, 2}, 1),
                                         meshes::curvilinear({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}, 1)}) {
        const triple p = {0.5f, 0.5f, 0.5f};
        const table_ptr table = table_of(made->mesh);
        const found got = find(made->mesh, nullptr, p);
        EXPECT_EQ(got.result, 0);
        EXPECT_EQ(got.cell, unwritten);
        failing_fetches fetches(made->mesh);
        made->mesh->coords = nullptr;
        fetches.fail_coords = 1;
        mesh_methods own = *made->mesh->methods, *const bound = made->mesh->methods;
        own.interp_cell_func = nullptr;
        made->mesh->methods = &own;
        host_calls::reset();
        testing::internal::CaptureStderr();
        EXPECT_EQ(find(made->mesh, table.get(), p).result, 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(host_calls::report_texts(),
                  std::vector<std::string>{"fld_info: unable to get field coordinates"});
        made->mesh->methods = bound;
        EXPECT_EQ(find(made->mesh, table.get(), p).result, 1);
    }
}

TEST(FindCell, UnfetchableConnectListsAreReportedForEachCellThatNeedsThem)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 1);
    const table_ptr table = table_of(made->mesh);
    failing_fetches fetches(made->mesh);
    made->mesh->cell_connect[0] = nullptr;
    fetches.fail_connect_of_set = 0;
    host_calls::reset();
    const found got = find(made->mesh, table.get(), {0.5f, 0.5f, 0.5f});
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.cell, 0);
    EXPECT_EQ(host_calls::report_texts(),
              std::vector<std::string>(8, "fld_info: unable to get cell set connect list"));
}

TEST(FindCell, OddMeshesAreSearchedWithoutHarm)
{
    // NaN and infinite nodes, folded and degenerate cells, boxes that do not hold the mesh.
    int hits = 0;
    for (uint64_t seed = 0; seed < 40; ++seed) {
        std::mt19937_64 random(seed);
        const meshes::mesh_ptr made = meshes::mixed({CELL_HEX, CELL_TET, CELL_PRISM, CELL_PYR},
                                                    {seed % 2 == 0 ? 1 : 2, 2, 1, 1}, 2, seed, 0.7);
        for (int i = 0; i < 12; ++i) {
            const float odd[] = {nan_value, infinite, -infinite, 1e30f, 0};
            made->coords[random() % made->coords.size()] = odd[random() % 5];
        }
        if (seed % 3 == 0)
            for (int d = 0; d < 3; ++d)
                made->mesh->max_ext[d] = made->mesh->min_ext[d] + 0.01f * static_cast<float>(d);
        const table_ptr table = table_of(made->mesh);
        for (const triple &p : reference::points_around(made->mesh, random, 60)) {
            const found got = find(made->mesh, table.get(), p);
            if (got.result != 1) continue;
            ++hits;
            float uvw[3];
            EXPECT_GT(UTILinterp_cell_uvw(made->mesh, got.cell, p.data(), 1,
                                          static_cast<double>(reference::tolerance_of(table.get())), uvw),
                      0);
        }
    }
    EXPECT_GT(hits, 50);
}

// ---- compact meshes ------------------------------------------------------------------------------------------------

namespace {

std::vector<lattices::shape> compact_shapes()
{
    std::vector<lattices::shape> shapes = lattices::small_shapes();
    for (const lattices::shape &s : lattices::in_every_space({{60}, {13, 9}, {7, 8, 9}, {2, 2, 2}}))
        shapes.push_back(s);
    return shapes;
}

const float *points_of(mesh_info *mesh)
{
    float *points = nullptr;
    mesh->get_points(mesh, &points);
    return points;
}

// Around the nodes of a compact mesh: on them, between them, a step of a float away from them, outside. Flat
// axes at their place, mostly.
std::vector<triple> compact_points(const meshes::test_mesh &made, std::mt19937_64 &random, int count)
{
    std::vector<triple> points = reference::points_around(made.mesh, random, count);
    for (size_t i = 0; i < points.size(); ++i) {
        const qx_long node = static_cast<qx_long>(random() % static_cast<uint64_t>(made.nnodes()));
        for (int d = 0; d < made.nspace; ++d) {
            const size_t at = static_cast<size_t>(d);
            const float x = made.coords[static_cast<size_t>(node * made.nspace + d)];
            const bool flat = d >= made.ndim || made.dims[at] == 1;
            if ((flat && i % 9 != 0) || i % 3 == 0) points[i][at] = x;
            if (i % 15 == 0) points[i][at] = std::nextafter(x, random() % 2 == 0 ? 100.0f : -100.0f);
        }
    }
    return points;
}

} // namespace

TEST(FindCellCompact, AgreesWithTheSlowSearch)
{
    for (bool uniform : {true, false}) {
        int hits = 0, outside = 0;
        for (const lattices::shape &s : compact_shapes())
            for (bool ascending : {true, false}) {
                SCOPED_TRACE(lattices::text(s));
                const std::vector<float> lo = {0.1f, -2.3f, 7.7f}, up = {1.9f, -0.4f, 8.1f},
                                         down = {1.9f, -0.4f, 3};
                const std::vector<float> &hi = ascending ? up : down;
                const meshes::mesh_ptr made = uniform ? meshes::uniform(s.dims, s.nspace, lo, hi)
                                                      : meshes::rectilinear(s.dims, s.nspace, lo, hi, 5);
                std::mt19937_64 random(3);
                for (const triple &p : compact_points(*made, random, 120)) {
                    const found got = find(made->mesh, nullptr, p);
                    const float *points = points_of(made->mesh);
                    const found expected = uniform ? reference::find_unif(made->mesh, points, p.data())
                                                   : reference::find_rect(made->mesh, points, p.data());
                    ASSERT_EQ(got.result, expected.result) << text(p);
                    ASSERT_EQ(got.cell, expected.cell) << text(p);
                    EXPECT_TRUE(got.result != 1 || same_bits(got.uvw, expected.uvw)) << text(p);
                    hits += got.result;
                    outside += got.result == 0;
                }
            }
        EXPECT_GT(hits, 500) << uniform;
        EXPECT_GT(outside, 500) << uniform;
    }
}

TEST(FindCellCompact, ParametersLeadBackToThePoint)
{
    for (const auto find_again : {true, false})
        for (const lattices::shape &s : lattices::in_every_space({{5}, {4, 3}, {3, 4, 5}}))
            for (const meshes::mesh_ptr &made :
                 {meshes::uniform(s.dims, s.nspace, {0, -1, 2}, {1, 1, 3}),
                  meshes::rectilinear(s.dims, s.nspace, {0, -1, 2}, {1, 1, 3}, 5)}) {
                SCOPED_TRACE(lattices::text(s));
                std::mt19937_64 random(4);
                const auto cells = reference::cells_of_lattice(made->mesh);
                const auto &functions = functions_of(made->mesh, 0);
                for (int i = 0; i < 50; ++i) {
                    const reference::cell &c = cells[random() % cells.size()];
                    const auto at = cell_reference::random_position(functions, random);
                    const triple p = point_in(made->mesh, c, at);
                    found got = find(made->mesh, nullptr, p);
                    if (!find_again) {
                        got.cell = c.id;
                        got.result = made->mesh->methods->interp_cell_func(made->mesh, c.id, p.data(), 1,
                                                                           1e-4, got.uvw.data());
                    }
                    ASSERT_EQ(got.result, 1);
                    ASSERT_EQ(got.cell, c.id);
                    for (size_t d = 0; d < static_cast<size_t>(made->ndim); ++d)
                        EXPECT_NEAR(got.uvw[d], at[d], 2e-5);
                }
            }
}

TEST(FindCellCompact, InnerNodesOfRectilinearAxesFallInTheIntervalBelow)
{
    const std::vector<float> x = {0, 1, 3, 3.5f};
    const float *axes[1] = {x.data()};
    const qx_long dims[1] = {4};
    host_field *field = host_rectilinear(1, dims, 1, axes);
    mesh_info *mesh = host_mesh(field);
    const qx_long cells[] = {0, 0, 1, 2};
    const float u[] = {1, -1, -1, -1}; // against the axis
    for (size_t i = 0; i < 4; ++i) {
        const found got = find(mesh, nullptr, {x[i], 0, 0});
        EXPECT_EQ(got.result, 1);
        EXPECT_EQ(got.cell, cells[i]);
        EXPECT_EQ(got.uvw[0], u[i]);
    }
    host_free_field(field);
}

TEST(FindCellCompact, InnerNodesOfUniformAxesFallInTheIntervalAbove)
{
    const meshes::mesh_ptr made = meshes::uniform({5}, 1, {0, 0, 0}, {4, 0, 0});
    for (int i = 0; i < 5; ++i) {
        const found got = find(made->mesh, nullptr, {static_cast<float>(i), 0, 0});
        EXPECT_EQ(got.result, 1);
        EXPECT_EQ(got.cell, std::min(i, 3));
        EXPECT_EQ(got.uvw[0], i < 4 ? 1 : -1); // against the axis
    }
}

TEST(FindCellCompact, LastNodeOfUniformAxesBelongsToTheLastInterval)
{
    const meshes::mesh_ptr made = meshes::uniform({6, 7, 4}, 3, {0.1f, 0.2f, 0.3f}, {0.77f, 1.3f, 9.1f});
    const found got = find(made->mesh, nullptr, {0.77f, 1.3f, 9.1f});
    EXPECT_EQ(got.result, 1);
    EXPECT_EQ(got.cell, 4 + 5 * 6 + 2 * 42);
    EXPECT_NEAR(got.uvw[0], 1, 1e-4);
    EXPECT_NEAR(got.uvw[1], 1, 1e-4);
    EXPECT_NEAR(got.uvw[2], -1, 1e-4);
}

TEST(FindCellCompact, AxesOfOneNode)
{
    for (const meshes::mesh_ptr &made : {meshes::rectilinear({3, 1, 3}, 3, {0, 5, 0}, {2, 5, 2}, 1),
                                         meshes::uniform({3, 1, 3}, 3, {0, 5, 0}, {2, 5, 2})}) {
        found got = find(made->mesh, nullptr, {0.1f, 5, 1.9f});
        EXPECT_EQ(got.result, 1);
        EXPECT_EQ(got.cell, 3);
        EXPECT_EQ(got.uvw[0], 0) << "the axis of one node, turned";
        EXPECT_NE(got.uvw[1], 0);
        EXPECT_NE(got.uvw[2], 0);
        float uvw[3];
        const auto test = made->mesh->methods->interp_cell_func;
        const triple at = {0.1f, 5, 1.9f}, beside = {0.1f, 5.01f, 1.9f};
        EXPECT_EQ(test(made->mesh, 3, at.data(), 1, 1e-6, uvw), 1);
        EXPECT_EQ(uvw[0], 0);
        EXPECT_EQ(test(made->mesh, 3, beside.data(), 1, 1e-6, uvw), 0);
        EXPECT_EQ(test(made->mesh, 3, beside.data(), 1, 0.1, uvw), 1);
        EXPECT_EQ(test(made->mesh, 3, beside.data(), 0, 0, uvw), 1);
        EXPECT_EQ(find(made->mesh, nullptr, beside).result, 0);
    }
}

TEST(FindCellCompact, ParametersAreTurnedToTheCell)
{
    const std::vector<float> lo = {0, 0, 0}, hi = {2, 2, 2};
    const triple p = {0.5f, 0.8f, 0.2f}; // parameters 0, 0.6, -0.6 with one cell of length 1 (of two)
    for (int ndim = 1; ndim <= 3; ++ndim)
        for (bool uniform : {true, false}) {
            const std::vector<qx_long> dims(static_cast<size_t>(ndim), 3);
            const meshes::mesh_ptr made =
                uniform ? meshes::uniform(dims, ndim, lo, hi) : meshes::rectilinear(dims, ndim, lo, hi, 1);
            const found got = find(made->mesh, nullptr, p);
            ASSERT_EQ(got.result, 1);
            const float *points = points_of(made->mesh);
            const found plain = uniform ? reference::find_unif(made->mesh, points, p.data())
                                        : reference::find_rect(made->mesh, points, p.data());
            EXPECT_TRUE(same_bits(got.uvw, plain.uvw));
            if (!uniform) continue;
            const triple expected[] = {{0, 0, 0}, {0, 0.6f, 0}, {0.6f, 0, 0.6f}};
            for (size_t d = 0; d < 3; ++d)
                EXPECT_NEAR(got.uvw[d], expected[ndim - 1][d], 1e-6) << ndim << " axes";
        }
}

TEST(FindCellCompact, CloseToZeroTheLimitsGiveALittle)
{
    const meshes::mesh_ptr rect = meshes::rectilinear({3}, 1, {-2, 0, 0}, {0, 0, 0}, 1);
    const meshes::mesh_ptr even = meshes::uniform({3}, 1, {-2, 0, 0}, {0, 0, 0});
    // Past the last node by less than the tolerance: in no interval, yet found.
    found got = find(rect->mesh, nullptr, {5e-31f, 0, 0});
    EXPECT_EQ(got.result, 1);
    EXPECT_EQ(got.cell, 2);
    EXPECT_EQ(got.uvw[0], 0);
    got = find(even->mesh, nullptr, {5e-31f, 0, 0});
    EXPECT_EQ(got.result, 1);
    EXPECT_EQ(got.cell, 1);
    for (mesh_info *mesh : {rect->mesh, even->mesh}) {
        EXPECT_EQ(find(mesh, nullptr, {2e-30f, 0, 0}).result, 0);
        EXPECT_EQ(find(mesh, nullptr, {std::nextafter(-2.0f, -3.0f), 0, 0}).result, 0);
    }
}

TEST(FindCellCompact, RepeatedAndDisorderedPositions)
{
    struct axis {
        std::vector<float> x;
    };
    std::mt19937_64 random(8);
    for (const axis &a : {axis{{0, 0, 1, 1, 1, 2}},
                          {{0, 1, 1, 0.5f, 2, 1.5f, 3}},
                          {{2, 1, 0}},
                          {{0, 5, -5, 5}},
                          {{1, 1, 1}},
                          {{0, nan_value, 1, 2}},
                          {{0, 1, nan_value, 2}},
                          {{0, 3, infinite}}}) {
        std::vector<float> positions(a.x.size(), 0);
        const float *axes[1] = {positions.data()};
        const qx_long dims[1] = {static_cast<qx_long>(a.x.size())};
        host_field *field = host_rectilinear(1, dims, 1, axes);
        mesh_info *mesh = host_mesh(field);
        std::vector<float> points = a.x;
        float *const own = mesh->points;
        mesh->points = points.data();
        for (int i = 0; i < 200; ++i) {
            const float p = i < 20 ? a.x[static_cast<size_t>(i) % a.x.size()]
                                   : std::uniform_real_distribution<float>(-6, 6)(random);
            const found got = find(mesh, nullptr, {p, 0, 0});
            const triple at = {p, 0, 0};
            const found expected = reference::find_rect(mesh, points.data(), at.data());
            EXPECT_EQ(got.result, expected.result);
            EXPECT_EQ(got.cell, expected.cell);
            EXPECT_TRUE(got.result != 1 || same_bits(got.uvw, expected.uvw)) << p;
        }
        mesh->points = own;
        host_free_field(field);
    }
}

TEST(FindCellCompact, UniformAxisLongerThanFloatsCanCount)
{
    const meshes::mesh_ptr made = meshes::uniform({3}, 1, {0, 0, 0}, {1, 0, 0});
    qx_long dims[1] = {(qx_long{1} << 24) + 3};
    qx_long *const own = made->mesh->dims;
    made->mesh->dims = dims;
    float points[2] = {0, static_cast<float>(1 << 24)};
    float *const own_points = made->mesh->points;
    made->mesh->points = points;
    for (float p : {0.0f, 1.0f, 12345.5f, 16777214.0f, 16777215.0f, 16777216.0f}) {
        const found got = find(made->mesh, nullptr, {p, 0, 0});
        EXPECT_EQ(got.cell, reference::find_unif(made->mesh, points, &p).cell) << p;
    }
    made->mesh->dims = own;
    made->mesh->points = own_points;
}

TEST(FindCellCompact, MeshOfOneNode)
{
    for (int nspace = 1; nspace <= 3; ++nspace)
        for (const meshes::mesh_ptr &made : {meshes::uniform({1}, nspace, {1, 2, 3}, {1, 2, 3}),
                                             meshes::rectilinear({1}, nspace, {1, 2, 3}, {1, 2, 3}, 1)}) {
            const triple at = {1, nspace > 1 ? 2.0f : 0, nspace > 2 ? 3.0f : 0};
            const found got = find(made->mesh, nullptr, at);
            EXPECT_EQ(got.result, 1);
            EXPECT_EQ(got.cell, 0);
            triple beside = at;
            beside[static_cast<size_t>(nspace - 1)] += 0.1f;
            EXPECT_EQ(find(made->mesh, nullptr, beside).result, 0);
        }
}

TEST(CellTestCompact, AgreesWithTheFormulas)
{
    int inside = 0, outside = 0;
    for (bool uniform : {true, false})
        for (const lattices::shape &s : compact_shapes()) {
            SCOPED_TRACE(lattices::text(s));
            const meshes::mesh_ptr made = uniform ? lattices::uniform(s) : lattices::rectilinear(s);
            const auto test = made->mesh->methods->interp_cell_func;
            std::mt19937_64 random(6);
            for (const triple &p : compact_points(*made, random, 60)) {
                qx_long cell = static_cast<qx_long>(random() % static_cast<uint64_t>(made->nnodes()));
                const found at = find(made->mesh, nullptr, p);
                if (random() % 2 == 0 && at.result == 1) cell = at.cell;
                bool begins_cell = true; // on axes of more than one node
                qx_long rest = cell;
                for (qx_long n : s.dims) {
                    begins_cell = begins_cell && (n == 1 || rest % n < n - 1);
                    rest /= n;
                }
                if (!uniform && !begins_cell) continue;
                for (bool check_box : {false, true})
                    for (double tol : {0.0, 1e-6, 0.3}) {
                        triple uvw = {9, 9, 9};
                        const int result = test(made->mesh, cell, p.data(), check_box, tol, uvw.data());
                        const found expected = reference::test_compact(
                            made->mesh, points_of(made->mesh), uniform, cell, p.data(), check_box, tol);
                        ASSERT_EQ(result, expected.result) << text(p) << " in " << cell;
                        EXPECT_TRUE(result != 1 || same_bits(uvw, expected.uvw)) << text(p);
                        inside += check_box && result == 1;
                        outside += check_box && result == 0;
                    }
            }
        }
    EXPECT_GT(inside, 500);
    EXPECT_GT(outside, 500);
}

TEST(CellTestCompact, ParametersThatAreNoNumbersAreInNoCell)
{
    // First and last corner are one place: 0 / 0.
    const meshes::mesh_ptr even = meshes::uniform({3}, 1, {1, 0, 0}, {1, 0, 0});
    const triple p = {1, 0, 0};
    float uvw[3];
    EXPECT_EQ(UTILinterp_cell_uvw_unif(even->mesh, 0, p.data(), 1, 1e-6, uvw), 0);
    EXPECT_EQ(UTILinterp_cell_uvw_unif(even->mesh, 0, p.data(), 0, 1e-6, uvw), 1);
    EXPECT_TRUE(std::isnan(uvw[0]));
    const found got = find(even->mesh, nullptr, p);
    EXPECT_EQ(got.result, 1);
    EXPECT_EQ(got.cell, 0);
    EXPECT_EQ(got.uvw[0], 0);
}

// ---- many points ------------------------------------------------------------------------------------------------

namespace {

// Points in batches of up to most by a locator, against each by itself.
void expect_located_alike(mesh_info *mesh, const blk_tbl *table, const std::vector<triple> &points,
                          qx_long most = point_locator::longest_batch)
{
    const qx_long npts = static_cast<qx_long>(points.size());
    point_locator locator(mesh, table, npts);
    std::mt19937_64 random(points.size());
    std::vector<std::array<float, 3>> places(points.begin(), points.end());
    for (qx_long first = 0; first < npts;) {
        const qx_long batch = std::min(most, locator.batch());
        ASSERT_GE(batch, 1);
        ASSERT_LE(batch, point_locator::longest_batch);
        const qx_long n = std::min<qx_long>(
            npts - first, 1 + static_cast<qx_long>(random() % static_cast<uint64_t>(batch)));
        const auto rows = reinterpret_cast<const float(*)[3]>(places.data() + first);
        EXPECT_EQ(locator.worthwhile(n, rows), n) << "lists are short";
        std::vector<located> got(static_cast<size_t>(n));
        locator.locate(n, rows, got.data());
        for (qx_long i = 0; i < n; ++i) {
            const triple &p = points[static_cast<size_t>(first + i)];
            const located &at = got[static_cast<size_t>(i)];
            const found expected = find(mesh, table, p);
            ASSERT_EQ(at.found, expected.result == 1) << text(p);
            if (!at.found) continue;
            ASSERT_EQ(at.cell, expected.cell) << text(p);
            ASSERT_TRUE(same_bits({at.uvw[0], at.uvw[1], at.uvw[2]}, expected.uvw)) << text(p);
        }
        first += n;
    }
}

std::vector<triple> many_points(const meshes::test_mesh &made, int count)
{
    std::mt19937_64 random(21);
    std::vector<triple> points = made.corners.empty() && made.axes.empty()
                                     ? reference::points_around(made.mesh, random, count)
                                     : compact_points(made, random, count);
    for (size_t i = 0; i < points.size(); i += 37)
        points[i][random() % 3] = i % 2 == 0 ? nan_value : infinite;
    return points;
}

} // namespace

TEST(PointLocator, GivesWhatASearchForEachPointGives)
{
    for (int count : {1, 50, 900})
        for (const named_mesh &m : searched_meshes(3, 0.4)) {
            SCOPED_TRACE(m.name + ", " + std::to_string(count) + " points");
            const table_ptr table = table_of(m.made->mesh);
            expect_located_alike(m.made->mesh, table.get(), many_points(*m.made, count));
        }
    for (const lattices::shape &s : compact_shapes())
        for (const meshes::mesh_ptr &made : {lattices::uniform(s), lattices::rectilinear(s)}) {
            SCOPED_TRACE(lattices::text(s));
            expect_located_alike(made->mesh, nullptr, many_points(*made, 300));
        }
}

TEST(PointLocator, FetchesAndForeignFunctionsAreAskedPointByPoint)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_HEX}, {1, 1}, 2, 1);
    const table_ptr table = table_of(made->mesh);
    for (int set = 0; set < 2; ++set)
        made->mesh->cell_connect[set] = nullptr;
    point_locator before(made->mesh, table.get(), 100);
    EXPECT_EQ(before.batch(), 1);
    expect_located_alike(made->mesh, table.get(), many_points(*made, 200));
    EXPECT_EQ(before.batch(), point_locator::short_batch) << "all lists are there by now";

    mesh_methods own = *made->mesh->methods, *const bound = made->mesh->methods;
    own.interp_cell_func = [](mesh_info *, qx_long, const float *, int, double, float *uvw) {
        uvw[0] = uvw[1] = uvw[2] = 0.5f;
        return 1;
    };
    made->mesh->methods = &own;
    point_locator foreign(made->mesh, table.get(), 100);
    EXPECT_EQ(foreign.batch(), 1);
    expect_located_alike(made->mesh, table.get(), many_points(*made, 200));
    made->mesh->methods = bound;
}

namespace {

std::vector<triple> mapped_points;

int recorded_mapping(const float *coords, const float *point, float *uvw)
{
    mapped_points.push_back({point[0], point[1], point[2]});
    return UTILrev_par_hex_1(coords, point, uvw);
}

} // namespace

TEST(PointLocator, ForeignMappingsAreAskedInTheOrderOfThePoints)
{
    const meshes::mesh_ptr hexes = meshes::cells(CELL_HEX, 1, {4, 4, 4}, 1, 0.2);
    const meshes::mesh_ptr lattice = meshes::curvilinear({5, 5, 5}, 3, {0, 0, 0}, {1, 1, 1}, 1);
    for (const meshes::test_mesh *made : {hexes.get(), lattice.get()}) {
        const table_ptr table = table_of(made->mesh);
        const std::vector<triple> points = many_points(*made, 500);
        find(made->mesh, table.get(), points[0]); // fetches
        made->mesh->cell_funcs[SLOT_REV_PAR] = reinterpret_cast<cell_func>(recorded_mapping);
        mapped_points.clear();
        for (const triple &p : points)
            find(made->mesh, table.get(), p);
        const std::vector<triple> expected = std::exchange(mapped_points, {});
        EXPECT_GT(expected.size(), 200u);

        point_locator locator(made->mesh, table.get(), 500);
        std::vector<std::array<float, 3>> places(points.begin(), points.end());
        for (size_t first = 0; first < places.size(); first += 100) {
            ASSERT_GE(locator.batch(), 100);
            located got[100];
            locator.locate(100, reinterpret_cast<const float(*)[3]>(places.data() + first), got);
        }
        EXPECT_EQ(mapped_points, expected);
    }
}

// With an extent far beyond the cells, all of them lie in one block.
TEST(PointLocator, LongListsAreSearchedForFewerPointsAtATime)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {13, 13, 13}, 1, 0.2);
    for (int d = 0; d < 3; ++d)
        made->mesh->max_ext[d] = 1000;
    const table_ptr table = table_of(made->mesh);
    const qx_long ncells = made->mesh->ncells;
    ASSERT_EQ(table->list_used, ncells + 1);
    const qx_long npts = 100000;
    point_locator locator(made->mesh, table.get(), npts);
    ASSERT_EQ(locator.batch(), npts);
    const std::vector<std::array<float, 3>> places(static_cast<size_t>(npts), {0.5f, 0.5f, 0.5f});
    const auto rows = reinterpret_cast<const float(*)[3]>(places.data());
    const qx_long worthwhile = locator.worthwhile(npts, rows);
    EXPECT_GE(worthwhile, point_locator::short_batch);
    EXPECT_LT(worthwhile, npts);
    EXPECT_EQ(locator.worthwhile(200, rows), 200);
    expect_located_alike(made->mesh, table.get(), many_points(*made, 700));
}

TEST(PointLocator, DisorderedAxesAndBadLists)
{
    const meshes::mesh_ptr rect = meshes::rectilinear({9, 8}, 3, {0, 0, 0}, {1, 1, 0}, 4);
    find(rect->mesh, nullptr, {0, 0, 0}); // fetches the points
    std::swap(rect->mesh->points[3 * 3], rect->mesh->points[3 * 5]);
    rect->mesh->points[3 * 12 + 1] = nan_value;
    expect_located_alike(rect->mesh, nullptr, many_points(*rect, 400));

    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {4, 4, 4}, 1, 0.2);
    const table_ptr table = table_of(made->mesh);
    for (qx_long entry = 5; entry < table->list_used; entry += 23)
        table->cell_list[entry] = entry % 2 == 0 ? -1 : 1000;
    expect_located_alike(made->mesh, table.get(), many_points(*made, 2000));
}

TEST(PointLocator, DoesWithoutMemory)
{
    std::vector<meshes::mesh_ptr> all;
    all.push_back(meshes::cells(CELL_TET, 1, {3, 3, 3}, 1, 0.2));
    all.push_back(meshes::curvilinear({4, 4, 4}, 3, {0, 0, 0}, {1, 1, 1}, 1));
    all.push_back(meshes::rectilinear({9, 8, 7}, 3, {0, 0, 0}, {1, 1, 1}, 4));
    for (const meshes::mesh_ptr &made : all) {
        const table_ptr table = table_of(made->mesh);
        const std::vector<triple> points = many_points(*made, 500);
        find(made->mesh, table.get(), points[0]); // fetches
        for (int k = 0; k < 3; ++k) {
            const host_calls::watch watch;
            if (k < 2) host_calls::fail_allocation(k);
            point_locator locator(made->mesh, table.get(), 500);
            locator.batch();
        }
        for (int k = 0; k < 2; ++k) {
            host_calls::reset();
            const host_calls::watch watch;
            host_calls::fail_allocations_from(k);
            expect_located_alike(made->mesh, table.get(), points);
            EXPECT_TRUE(k > 0 || host_calls::allocation_was_refused());
            EXPECT_TRUE(host_calls::seen().out_of_memory.empty());
            EXPECT_EQ(watch.live_blocks(), 0);
        }
    }
    host_calls::reset();
}
