// Results of the host's extractions: the library's own lists, with their places, and data carried onto them.
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <skoklana/host/tool.h>
#include <skoklana/iso.h>

#include "mod_util/type_switch.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>

namespace {

struct freed {
    void operator()(host_result *result) const { host_free_result(result); }
    void operator()(void *list) const { host_free(list); }
};
using result_ptr = std::unique_ptr<host_result, freed>;
using list_ptr = std::unique_ptr<qx_long, freed>;

double bumpy(double x, double y, double z)
{
    return std::sin(5 * x) + std::cos(4 * y + 1) * std::sin(3 * z + 2) + 0.3 * x * y;
}

std::vector<meshes::mesh_ptr> all_meshes()
{
    std::vector<meshes::mesh_ptr> all;
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (const int order : {1, 2})
            all.push_back(meshes::cells(kind, order, {4, 3, 3}, 7, 0.1));
    all.push_back(meshes::mixed({CELL_TRI, CELL_HEX, CELL_QUAD, CELL_TET, CELL_LINE}, {1, 1, 2, 1, 1}, 3, 2));
    all.push_back(meshes::cells(CELL_TRI, 1, {5, 5}, 3, 0.1, 2));
    const std::vector<std::vector<qx_long>> shapes = {{6}, {7, 5}, {6, 5, 4}, {4, 1, 3}};
    for (const std::vector<qx_long> &dims : shapes) {
        all.push_back(meshes::uniform(dims, 3, {0, 0, 0}, {1, 1, 1}));
        all.push_back(meshes::rectilinear(dims, 3, {0, 0, 0}, {1, 1, 1}, 3));
        all.push_back(meshes::curvilinear(dims, 3, {0, 0, 0}, {1, 1, 1}, 3));
    }
    return all;
}

// What the library gives itself.
struct library_lists {
    qx_long nnodes = 0, nline = 0, ntri = 0, nline_conn = 0, ntri_conn = 0;
    list_ptr min_node, max_node, line_conn, tri_conn;
    std::vector<qx_long> line_cell, tri_cell;

    // Of lattices only those that have cells of the dimension.
    library_lists(mesh_info *mesh, const void *data, int type, const void *null, double level, bool surfaces)
    {
        if (mesh->ndim == 1 || (mesh->ndim == 3 && !surfaces)) return;
        const size_t nmaps = static_cast<size_t>(mesh->ndim == 0 ? mesh->ncell_sets : 1);
        std::vector<qx_long> count(nmaps);
        std::vector<qx_long *> map(nmaps);
        qx_long *a = nullptr, *b = nullptr, *line = nullptr, *tri = nullptr;
        const int null_flag = null != nullptr;
        const int done =
            surfaces ? UTILisosurf(mesh, data, type, null_flag, null, level, &nnodes, &a, &b, &nline, &line,
                                   &nline_conn, &ntri, &tri, &ntri_conn, count.data(), map.data())
                     : UTILisoline(mesh, data, type, null_flag, null, level, &nnodes, &a, &b, &nline, &line,
                                   &nline_conn, count.data(), map.data());
        EXPECT_EQ(done, 1);
        min_node.reset(a);
        max_node.reset(b);
        line_conn.reset(line);
        tri_conn.reset(tri);
        for (size_t s = 0; s < nmaps; ++s) {
            const bool flat = mesh->ndim == 0 ? mesh->cell_ndim[s] == 2 : mesh->ndim == 2;
            for (qx_long i = 0; i < count[s]; ++i)
                (flat ? line_cell : tri_cell).push_back(map[s][i] + mesh->cell_first[s]);
            host_free(map[s]);
        }
    }
};

void expect_list(const qx_long *found, const qx_long *expected, qx_long count)
{
    EXPECT_TRUE(count == 0 || memcmp(found, expected, static_cast<size_t>(count) * sizeof(qx_long)) == 0);
}

void expect_set(const host_result *result, int kind, qx_long count, int corners, const qx_long *connect,
                const std::vector<qx_long> &cell)
{
    const host_set *set = host_set_of_kind(result, kind);
    ASSERT_EQ(set != nullptr, count > 0);
    if (set == nullptr) return;
    EXPECT_EQ(set->kind, kind);
    EXPECT_EQ(set->order, 1);
    ASSERT_EQ(set->ncells, count);
    expect_list(set->connect, connect, count * corners);
    ASSERT_EQ(static_cast<qx_long>(cell.size()), count);
    expect_list(set->cell, cell.data(), count);
}

result_ptr surface_of(const meshes::test_mesh &mesh, const host_array &array, double level,
                      const host_level_options *options = nullptr)
{
    host_result *result = nullptr;
    EXPECT_EQ(host_isosurf(mesh.field, &array, level, options, &result), HOST_DONE) << host_error();
    return result_ptr(result);
}

} // namespace

TEST(HostLevels, AreTheLibrarysOwnListsWithTheirPlaces)
{
    int triangles = 0, lines = 0;
    for (const meshes::mesh_ptr &mesh : all_meshes())
        for (const bool surfaces : {true, false})
            for (const double level : {0.25, 0.9, 50.0}) {
                std::vector<double> data = meshes::field_of<double>(*mesh, bumpy);
                const double null = data[data.size() / 3];
                const host_array array = {data.data(), DTYPE_DOUBLE, 1, level > 0.5 ? &null : nullptr};
                const library_lists expected(mesh->mesh, data.data(), DTYPE_DOUBLE, array.null, level,
                                             surfaces);
                host_result *made = nullptr;
                ASSERT_EQ(
                    (surfaces ? host_isosurf : host_isoline)(mesh->field, &array, level, nullptr, &made),
                    HOST_DONE)
                    << host_error();
                const result_ptr result(made);
                const qx_long nnodes = expected.nnodes;
                ASSERT_EQ(result->nnodes, nnodes);
                EXPECT_EQ(result->nold, 0);
                EXPECT_EQ(result->nspace, mesh->nspace);
                EXPECT_EQ(result->ncells, expected.nline + expected.ntri);
                expect_list(result->first_node, expected.min_node.get(), nnodes);
                expect_list(result->second_node, expected.max_node.get(), nnodes);
                expect_set(result.get(), CELL_LINE, expected.nline, 2, expected.line_conn.get(),
                           expected.line_cell);
                expect_set(result.get(), CELL_TRI, expected.ntri, 3, expected.tri_conn.get(),
                           expected.tri_cell);
                std::vector<float> t(static_cast<size_t>(nnodes) + 1),
                    coords(static_cast<size_t>(nnodes * mesh->nspace) + 1);
                if (nnodes == 0) continue;
                ASSERT_EQ(UTILget_param(nnodes, DTYPE_DOUBLE, data.data(), level, expected.min_node.get(),
                                        expected.max_node.get(), t.data()),
                          1);
                ASSERT_EQ(UTILeval_coord(mesh->mesh, nnodes, expected.min_node.get(), expected.max_node.get(),
                                         t.data(), coords.data()),
                          1);
                EXPECT_EQ(memcmp(result->t, t.data(), static_cast<size_t>(nnodes) * sizeof(float)), 0);
                EXPECT_EQ(memcmp(result->coords, coords.data(),
                                 static_cast<size_t>(nnodes * mesh->nspace) * sizeof(float)),
                          0);
                triangles += expected.ntri > 0;
                lines += expected.nline > 0;
            }
    EXPECT_GT(triangles, 20);
    EXPECT_GT(lines, 20);
}

TEST(HostLevels, LeaveOutWhatIsNotWanted)
{
    const meshes::mesh_ptr mesh = meshes::uniform({5, 5, 5}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<double> data = meshes::field_of<double>(*mesh, bumpy);
    const host_array array = {data.data(), DTYPE_DOUBLE, 1, nullptr};
    const host_level_options options = {sizeof options, 1, 1, 0};
    const result_ptr bare = surface_of(*mesh, array, 0.5, &options), whole = surface_of(*mesh, array, 0.5);
    EXPECT_EQ(bare->coords, nullptr);
    EXPECT_EQ(bare->sets[0].cell, nullptr);
    EXPECT_EQ(bare->ncells, whole->ncells);
    expect_list(bare->sets[0].connect, whole->sets[0].connect, 3 * whole->ncells);
    std::vector<double> to(static_cast<size_t>(bare->ncells));
    EXPECT_EQ(host_carry_cells(bare.get(), &array, to.data()), HOST_FAILED);
    EXPECT_STREQ(host_error(),
                 "host_carry_cells: the result was made without the cells that its own come from");
    // A program that was built before there was an option has a shorter record.
    const host_level_options shorter = {offsetof(host_level_options, without_cells), 0, 1, 0};
    EXPECT_NE(surface_of(*mesh, array, 0.5, &shorter)->sets[0].cell, nullptr);
}

TEST(HostLevels, SayWhatCannotBeExtracted)
{
    const meshes::mesh_ptr mesh = meshes::uniform({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<double> data(81);
    host_result *result = nullptr;
    const host_array sound = {data.data(), DTYPE_DOUBLE, 1, nullptr}, untyped = {data.data(), 7, 1, nullptr},
                     rows = {data.data(), DTYPE_DOUBLE, 3, nullptr},
                     none = {nullptr, DTYPE_DOUBLE, 1, nullptr};
    const auto refused = [&](const host_array *array, double level, const char *text) {
        EXPECT_EQ(host_isosurf(mesh->field, array, level, nullptr, &result), HOST_FAILED);
        EXPECT_EQ(result, nullptr);
        EXPECT_STREQ(host_error(), text);
    };
    refused(nullptr, 0, "host_isosurf: array is NULL");
    refused(&none, 0, "host_isosurf: array is NULL");
    refused(&untyped, 0, "host_isosurf: 7 is no element type");
    refused(&rows, 0, "host_isosurf: a row has 3 elements, but a level is one of a scalar");
    refused(&sound, std::nan(""), "host_isosurf: the level is not a number");
    EXPECT_EQ(host_isoline(nullptr, &sound, 0, nullptr, &result), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_mesh: field is NULL");
    EXPECT_EQ(host_set_of_kind(nullptr, CELL_TRI), nullptr);
    host_free_result(nullptr);
    host_free(nullptr);
    EXPECT_EQ(host_version(), SKOKLANA_HOST_VERSION);
}

// ---- carry ----------------------------------------------------------------------------------------------------

namespace {

template <typename T> struct type_code;
#define ONE_CODE(code, T, suffix)          \
    template <> struct type_code<T> {      \
        static constexpr int value = code; \
    };
FOR_EACH_DTYPE(ONE_CODE)

template <typename T> class HostCarry : public testing::Test {
};
using types = testing::Types<signed char, unsigned char, short, int, float, double, qx_long>;
TYPED_TEST_SUITE(HostCarry, types);

} // namespace

TYPED_TEST(HostCarry, WeighsNodesInDoubleAndCopiesCells)
{
    using T = TypeParam;
    for (const meshes::mesh_ptr &mesh : all_meshes()) {
        const std::vector<double> data = meshes::field_of<double>(*mesh, bumpy);
        const host_array array = {data.data(), DTYPE_DOUBLE, 1, nullptr};
        const result_ptr result = surface_of(*mesh, array, 0.4);
        const std::vector<T> rows = meshes::random_values<T>(3, 2 * mesh->nnodes(), 0, 100);
        const T null = rows[4];
        const host_array nodes = {rows.data(), type_code<T>::value, 2, &null};
        std::vector<T> to(static_cast<size_t>(2 * result->nnodes) + 1, T{77});
        std::vector<unsigned char> mask(static_cast<size_t>(result->nnodes) + 1, 9);
        ASSERT_EQ(host_carry_nodes(result.get(), &nodes, to.data(), mask.data()), HOST_DONE);
        for (qx_long i = 0; i < result->nnodes; ++i) {
            const size_t a = static_cast<size_t>(2 * result->first_node[i]),
                         b = static_cast<size_t>(2 * result->second_node[i]), k = static_cast<size_t>(2 * i);
            const double t = static_cast<double>(result->t[i]);
            const bool is_null = (rows[a] == null && t < 1) || (rows[b] == null && t > 0);
            ASSERT_EQ(mask[static_cast<size_t>(i)], is_null ? 0 : 1);
            for (size_t c = 0; c < 2; ++c) {
                const double low = static_cast<double>(rows[a + c]), high = static_cast<double>(rows[b + c]);
                if (is_null)
                    EXPECT_EQ(to[k + c], c == 0 ? null : T{0});
                else
                    EXPECT_NEAR(static_cast<double>(to[k + c]), low + t * (high - low),
                                std::is_integral_v<T> ? 0.5 + 1e-9 : 1e-5);
            }
        }
        const std::vector<T> of_cells = meshes::random_values<T>(5, 3 * mesh->mesh->ncells + 3, 0, 100);
        const host_array cells = {of_cells.data(), type_code<T>::value, 3, nullptr};
        std::vector<T> on_cells(static_cast<size_t>(3 * result->ncells) + 1, T{77});
        ASSERT_EQ(host_carry_cells(result.get(), &cells, on_cells.data()), HOST_DONE);
        size_t at = 0;
        for (int s = 0; s < result->nsets; ++s)
            for (qx_long i = 0; i < result->sets[s].ncells; ++i)
                for (size_t c = 0; c < 3; ++c, ++at)
                    EXPECT_EQ(on_cells[at], of_cells[static_cast<size_t>(3 * result->sets[s].cell[i]) + c]);
    }
}

TYPED_TEST(HostCarry, BringsTheLevelAndConstantsBack)
{
    using T = TypeParam;
    const meshes::mesh_ptr mesh = meshes::cells(CELL_TET, 1, {4, 4, 4}, 2, 0.1);
    const std::vector<T> data =
        meshes::field_of<T>(*mesh, [](double x, double y, double z) { return 50 + 30 * bumpy(x, y, z); });
    const host_array array = {data.data(), type_code<T>::value, 1, nullptr};
    const result_ptr result = surface_of(*mesh, array, 60);
    ASSERT_GT(result->ncells, 20);
    std::vector<T> to(static_cast<size_t>(result->nnodes));
    ASSERT_EQ(host_carry_nodes(result.get(), &array, to.data(), nullptr), HOST_DONE);
    for (const T value : to)
        EXPECT_NEAR(static_cast<double>(value), 60, 1e-5);
    const std::vector<T> constant(data.size(), std::numeric_limits<T>::max());
    const host_array one = {constant.data(), type_code<T>::value, 1, nullptr};
    ASSERT_EQ(host_carry_nodes(result.get(), &one, to.data(), nullptr), HOST_DONE);
    for (const T value : to)
        EXPECT_EQ(value, std::numeric_limits<T>::max());
}

TEST(HostCarries, RefuseWhatIsNoArray)
{
    const meshes::mesh_ptr mesh = meshes::uniform({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<double> data = meshes::field_of<double>(*mesh, bumpy);
    const host_array sound = {data.data(), DTYPE_DOUBLE, 1, nullptr}, untyped = {data.data(), -1, 1, nullptr},
                     no_row = {data.data(), DTYPE_DOUBLE, 0, nullptr},
                     none = {nullptr, DTYPE_DOUBLE, 1, nullptr};
    const result_ptr result = surface_of(*mesh, sound, 0.5);
    std::vector<double> to(200);
    const auto nodes = [&](const host_result *of, const host_array *from, void *out) {
        return host_carry_nodes(of, from, out, nullptr);
    };
    for (const auto &call :
         {std::function<int(const host_result *, const host_array *, void *)>(nodes),
          std::function<int(const host_result *, const host_array *, void *)>(host_carry_cells)}) {
        EXPECT_EQ(call(nullptr, &sound, to.data()), HOST_FAILED);
        EXPECT_EQ(call(result.get(), nullptr, to.data()), HOST_FAILED);
        EXPECT_EQ(call(result.get(), &none, to.data()), HOST_FAILED);
        EXPECT_EQ(call(result.get(), &untyped, to.data()), HOST_FAILED);
        EXPECT_EQ(call(result.get(), &no_row, to.data()), HOST_FAILED);
        EXPECT_EQ(call(result.get(), &sound, nullptr), HOST_FAILED);
        EXPECT_EQ(call(result.get(), &sound, to.data()), HOST_DONE);
    }
}

TEST(HostCarries, WeighThreeNodes)
{
    qx_long old_node[1] = {3}, first[3] = {0, 1, 2}, second[3] = {1, 2, 0}, third[3] = {2, -1, 3};
    float t[3] = {0.25f, 0.5f, 1}, s[3] = {0.5f, 0.75f, 0};
    host_result record = {};
    record.nnodes = 4;
    record.nold = 1;
    record.old_node = old_node;
    record.first_node = first;
    record.second_node = second;
    record.third_node = third;
    record.t = t;
    record.s = s;
    const double data[4] = {8, 16, 32, 64}, null = 64;
    const host_array values = {data, DTYPE_DOUBLE, 1, nullptr}, holed = {data, DTYPE_DOUBLE, 1, &null};
    double to[4];
    unsigned char mask[4];
    ASSERT_EQ(host_carry_nodes(&record, &values, to, mask), HOST_DONE);
    EXPECT_EQ(to[0], 64);
    EXPECT_EQ(to[1], 0.75 * 8 + 0.125 * 16 + 0.125 * 32);
    EXPECT_EQ(to[2], 24);
    EXPECT_EQ(to[3], 8);
    ASSERT_EQ(host_carry_nodes(&record, &holed, to, mask), HOST_DONE);
    EXPECT_EQ(mask[0], 0);
    EXPECT_EQ(mask[1] + mask[2] + mask[3], 3); // the null node has no weight in the last one
}
