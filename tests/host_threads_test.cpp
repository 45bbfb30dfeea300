// Extractions of the host by several threads: the results of one thread, byte for byte.
#include "support/meshes.hpp"

#include <skoklana/cut.h>
#include <skoklana/host/tool.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <string>

namespace {

struct result_freed {
    void operator()(host_result *result) const { host_free_result(result); }
};
using made_ptr = std::unique_ptr<host_result, result_freed>;

double waves(double x, double y, double z)
{
    return std::sin(5 * x) + std::cos(4 * y + 1) * std::sin(3 * z + 2) + 0.3 * x * y;
}

// Rows in random order, so that cells next to one another in the list are far from one another in the mesh.
void shuffle_rows(std::vector<qx_long> *connect, int nnodes, uint64_t seed)
{
    std::vector<size_t> order(connect->size() / static_cast<size_t>(nnodes));
    std::iota(order.begin(), order.end(), size_t{0});
    std::shuffle(order.begin(), order.end(), std::mt19937_64(seed));
    std::vector<qx_long> rows;
    for (const size_t row : order)
        rows.insert(rows.end(), connect->begin() + static_cast<std::ptrdiff_t>(row) * nnodes,
                    connect->begin() + static_cast<std::ptrdiff_t>(row + 1) * nnodes);
    *connect = rows;
}

meshes::mesh_ptr shuffled(int kind, int n)
{
    const meshes::mesh_ptr ordered = meshes::cells(kind, 1, {n, n, n}, 5);
    std::vector<std::vector<qx_long>> connect = ordered->connect;
    shuffle_rows(&connect[0], cell_kinds[kind].ncorners, 6);
    return meshes::from_cells(3, ordered->coords, {kind}, {1}, connect);
}

std::vector<meshes::mesh_ptr> meshes_of_cells()
{
    std::vector<meshes::mesh_ptr> all;
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (const int order : {1, 2})
            all.push_back(meshes::cells(kind, order, {4, 3, 3}, 7, 0.1));
    all.push_back(meshes::mixed({CELL_TRI, CELL_HEX, CELL_QUAD, CELL_TET, CELL_LINE}, {1, 1, 2, 1, 1}, 3, 2));
    all.push_back(meshes::mixed({CELL_HEX, CELL_PRISM, CELL_TRI, CELL_PYR}, {2, 1, 2, 2}, 3, 2));
    all.push_back(meshes::cells(CELL_TRI, 1, {5, 5}, 3, 0.1, 2));
    all.push_back(meshes::cells(CELL_HEX, 1, {1, 1, 1}, 3));
    all.push_back(shuffled(CELL_TET, 4));
    return all;
}

std::vector<meshes::mesh_ptr> lattices()
{
    std::vector<meshes::mesh_ptr> all;
    const std::vector<std::vector<qx_long>> shapes = {{7, 5},    {6, 5, 4}, {4, 1, 3},
                                                      {5, 4, 2}, {3, 3, 1}, {9, 8, 20}};
    for (const std::vector<qx_long> &dims : shapes) {
        all.push_back(meshes::uniform(dims, 3, {0, 0, 0}, {1, 1, 1}));
        all.push_back(meshes::rectilinear(dims, 3, {0, 0, 0}, {1, 1, 1}, 3));
        all.push_back(meshes::curvilinear(dims, 3, {0, 0, 0}, {1, 1, 1}, 3));
    }
    return all;
}

template <typename T> void expect_same(const T *found, const T *expected, qx_long count, const char *what)
{
    ASSERT_EQ(found != nullptr, expected != nullptr) << what;
    if (expected != nullptr && count > 0) {
        EXPECT_EQ(memcmp(found, expected, static_cast<size_t>(count) * sizeof(T)), 0) << what;
    }
}

void expect_same(const host_result &found, const host_result &expected)
{
    ASSERT_EQ(found.nnodes, expected.nnodes);
    ASSERT_EQ(found.nold, expected.nold);
    EXPECT_EQ(found.nspace, expected.nspace);
    ASSERT_EQ(found.ncells, expected.ncells);
    ASSERT_EQ(found.nsets, expected.nsets);
    const qx_long nnew = found.nnodes - found.nold;
    expect_same(found.t, expected.t, nnew, "t");
    expect_same(found.coords, expected.coords, found.nnodes * found.nspace, "coords");
    if (nnew > 0) {
        expect_same(found.first_node, expected.first_node, nnew, "first");
        expect_same(found.second_node, expected.second_node, nnew, "second");
    }
    if (found.nold > 0) expect_same(found.old_node, expected.old_node, found.nold, "old");
    for (int s = 0; s < found.nsets; ++s) {
        const host_set &a = found.sets[s], &b = expected.sets[s];
        ASSERT_EQ(a.kind, b.kind);
        ASSERT_EQ(a.order, b.order);
        ASSERT_EQ(a.ncells, b.ncells);
        expect_same(a.connect, b.connect, a.ncells * cell_kinds[a.kind].ncorners, "connect");
        expect_same(a.cell, b.cell, a.ncells, "cell");
    }
}

enum class extraction { surface, lines, below, above };
constexpr extraction every_extraction[] = {extraction::surface, extraction::lines, extraction::below,
                                           extraction::above};

int extract(extraction what, host_field *field, const host_array &array, double level, int threads,
            host_result **out, bool bare = false)
{
    const host_level_options level_options = {sizeof level_options, bare, bare, threads};
    const host_cut_options cut_options = {sizeof cut_options, bare, bare, threads};
    switch (what) {
    case extraction::surface: return host_isosurf(field, &array, level, &level_options, out);
    case extraction::lines: return host_isoline(field, &array, level, &level_options, out);
    case extraction::below: return host_cut(field, &array, level, HOST_BELOW, &cut_options, out);
    default: return host_cut(field, &array, level, HOST_ABOVE, &cut_options, out);
    }
}

made_ptr extracted(extraction what, const meshes::test_mesh &mesh, const host_array &array, double level,
                   int threads, bool bare = false)
{
    host_result *out = nullptr;
    EXPECT_EQ(extract(what, mesh.field, array, level, threads, &out, bare), HOST_DONE) << host_error();
    return made_ptr(out);
}

// All extractions by some numbers of threads; how many of them gave cells.
int expect_same_by_threads(const meshes::test_mesh &mesh, const host_array &array, double level,
                           const std::vector<int> &numbers)
{
    int with_cells = 0;
    for (const extraction what : every_extraction)
        for (const bool bare : {false, true}) {
            const made_ptr expected = extracted(what, mesh, array, level, 0, bare);
            with_cells += expected != nullptr && expected->ncells > 0;
            for (const int threads : numbers) {
                SCOPED_TRACE("by " + std::to_string(threads) + " threads, extraction " +
                             std::to_string(static_cast<int>(what)));
                const made_ptr found = extracted(what, mesh, array, level, threads, bare);
                if (found != nullptr && expected != nullptr) expect_same(*found, *expected);
            }
        }
    return with_cells;
}

// Each number from 1 to 16 comes with some mesh.
std::vector<int> some_numbers(size_t mesh)
{
    const int n = static_cast<int>(mesh);
    return {1 + n % 16, 1 + (n + 5) % 16, 1 + (n + 11) % 16};
}

} // namespace

TEST(HostThreads, GiveTheResultOfOneOnCells)
{
    int with_cells = 0;
    size_t nmeshes = 0;
    for (const meshes::mesh_ptr &mesh : meshes_of_cells()) {
        const std::vector<double> data = meshes::field_of<double>(*mesh, waves);
        const double null = data[data.size() / 3];
        const host_array array = {data.data(), DTYPE_DOUBLE, 1, nullptr},
                         holed = {data.data(), DTYPE_DOUBLE, 1, &null};
        with_cells += expect_same_by_threads(*mesh, array, 0.25, some_numbers(nmeshes++));
        expect_same_by_threads(*mesh, holed, 0.9, {2, 5});
        expect_same_by_threads(*mesh, array, 50.0, {2});
    }
    EXPECT_GT(with_cells, 60);
    // More than there are cells, and more than ever take part.
    const meshes::mesh_ptr few = meshes::mixed({CELL_QUAD, CELL_PYR}, {1, 2}, 2, 4);
    const std::vector<double> data = meshes::field_of<double>(*few, waves);
    std::vector<int> numbers = {64, 1000};
    for (int n = 1; n <= 16; ++n)
        numbers.push_back(n);
    expect_same_by_threads(*few, {data.data(), DTYPE_DOUBLE, 1, nullptr}, 0.25, numbers);
}

TEST(HostThreads, GiveTheResultOfOneOnLattices)
{
    int with_cells = 0;
    size_t nmeshes = 0;
    for (const meshes::mesh_ptr &mesh : lattices()) {
        std::vector<float> data = meshes::field_of<float>(*mesh, waves);
        const host_array array = {data.data(), DTYPE_FLOAT, 1, nullptr};
        with_cells += expect_same_by_threads(*mesh, array, 0.25, some_numbers(nmeshes++));
        // Null nodes all over, so that edges between two slabs belong to the upper one alone now and then.
        const float null = -9;
        for (size_t i = 0; i < data.size(); i += 1 + i % 5)
            data[i] = null;
        expect_same_by_threads(*mesh, {data.data(), DTYPE_FLOAT, 1, &null}, 0.25, {2, 3, 7, 64});
    }
    EXPECT_GT(with_cells, 60);
}

TEST(HostThreads, GiveTheResultOfOneOnManyCells)
{
    std::vector<meshes::mesh_ptr> all;
    all.push_back(meshes::cells(CELL_HEX, 1, {24, 24, 24}, 5));
    all.push_back(meshes::cells(CELL_QUAD, 1, {140, 130}, 5));
    all.push_back(meshes::cells(CELL_TET, 2, {7, 7, 7}, 5));
    all.push_back(shuffled(CELL_HEX, 24));
    all.push_back(meshes::mixed({CELL_TET, CELL_QUAD, CELL_PYR}, {1, 1, 1}, 12, 2));
    for (const meshes::mesh_ptr &mesh : all) {
        const std::vector<double> data = meshes::field_of<double>(*mesh, waves);
        const host_array array = {data.data(), DTYPE_DOUBLE, 1, nullptr};
        EXPECT_GT(expect_same_by_threads(*mesh, array, 0.25, {2, 3, 8}), 4);
    }
}

TEST(HostThreads, TellNodesApartAsOneDoesInEveryType)
{
    const meshes::mesh_ptr mesh = meshes::mixed({CELL_HEX, CELL_TRI}, {1, 1}, 4, 2);
    for (const int type :
         {DTYPE_CHAR, DTYPE_BYTE, DTYPE_SHORT, DTYPE_INT, DTYPE_FLOAT, DTYPE_DOUBLE, DTYPE_QX_LONG}) {
        const std::vector<double> values = meshes::field_of<double>(
            *mesh, [](double x, double y, double z) { return std::floor(50 + 20 * waves(x, y, z)); });
        std::vector<double> room(values.size()); // 8 bytes an element are enough for any
        for (size_t i = 0; i < values.size(); ++i) {
            const size_t width = static_cast<size_t>(DTYPEtype_size(type));
            UTILdouble_to_type(values[i], type, reinterpret_cast<char *>(room.data()) + i * width);
        }
        const host_array array = {room.data(), type, 1, room.data()};
        for (const double level : {50.0, 50.1, 61.5})
            expect_same_by_threads(*mesh, array, level, {2, 5});
    }
    // What is no number is on no side, and floats are compared with a level that has been rounded.
    std::vector<float> data = meshes::field_of<float>(*mesh, waves);
    data[10] = data[40] = std::numeric_limits<float>::quiet_NaN();
    data[20] = 0.1f;
    const host_array array = {data.data(), DTYPE_FLOAT, 1, nullptr};
    for (const double level : {0.1, 0.3, static_cast<double>(0.1f)})
        expect_same_by_threads(*mesh, array, level, {2, 5});
}

TEST(HostThreads, StopWithTheirCaller)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {24, 24, 24}, 5),
                           lattice = meshes::uniform({9, 8, 20}, 3, {0, 0, 0}, {1, 1, 1});
    for (const auto *one : {mesh.get(), lattice.get()})
        for (const extraction what : every_extraction) {
            const std::vector<double> data = meshes::field_of<double>(*one, waves);
            const host_array array = {data.data(), DTYPE_DOUBLE, 1, nullptr};
            host_context *context = host_new_context();
            host_context *before = host_use_context(context);
            host_interrupt_context(context);
            host_result *out = nullptr;
            if (what != extraction::lines || one == mesh.get()) {
                EXPECT_EQ(extract(what, one->field, array, 0.25, 3, &out), HOST_STOPPED);
                EXPECT_EQ(out, nullptr);
            }
            host_clear_interrupt();
            EXPECT_EQ(extract(what, one->field, array, 0.25, 3, &out), HOST_DONE);
            host_free_result(out);
            host_use_context(before);
            host_free_context(context);
        }
}

namespace {

// Percentages as they come.
int note_percent(void *user, int percent, const char *)
{
    static_cast<std::vector<int> *>(user)->push_back(percent);
    return 0;
}

} // namespace

TEST(HostThreads, TellTheCallersProgress)
{
    const meshes::mesh_ptr mesh = meshes::cells(CELL_HEX, 1, {32, 32, 32}, 5);
    const std::vector<double> data = meshes::field_of<double>(*mesh, waves);
    std::vector<int> seen;
    host_context *context = host_new_context();
    host_context *before = host_use_context(context);
    host_set_progress_handler(note_percent, &seen);
    extracted(extraction::surface, *mesh, {data.data(), DTYPE_DOUBLE, 1, nullptr}, 0.25, 2);
    host_use_context(before);
    host_free_context(context);
    EXPECT_GT(seen.size(), 2u);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.back(), 100);
}

// ---- location and sampling ------------------------------------------------------------------------------------------

namespace {

// Places and values at points by a number of threads.
struct sampled {
    std::vector<qx_long> cell;
    std::vector<double> uvw, values;
    std::vector<unsigned char> mask;

    sampled(const meshes::test_mesh &mesh, const std::vector<float> &points, int threads)
    {
        const auto n = static_cast<qx_long>(points.size()) / 3;
        const host_locator_options options = {sizeof options, 0, threads};
        host_locator *locator = nullptr;
        host_places *places = nullptr;
        EXPECT_EQ(host_make_locator(mesh.field, &options, &locator), HOST_DONE) << host_error();
        const host_array at = {points.data(), DTYPE_FLOAT, 3, nullptr};
        EXPECT_EQ(host_locate(locator, &at, n, &places), HOST_DONE) << host_error();
        if (places != nullptr) {
            const std::vector<double> data = meshes::field_of<double>(mesh, waves);
            const host_array of = {data.data(), DTYPE_DOUBLE, 1, &data[3]};
            values.resize(static_cast<size_t>(n));
            mask.resize(static_cast<size_t>(n));
            EXPECT_EQ(host_sample_nodes(places, &of, values.data(), mask.data()), HOST_DONE);
            cell.assign(places->cell, places->cell + n);
            uvw.assign(places->uvw, places->uvw + 3 * n);
        }
        host_free_places(places);
        host_free_locator(locator);
    }
};

void expect_same_samples(const meshes::test_mesh &mesh, const std::vector<float> &points,
                         const std::vector<int> &numbers)
{
    const sampled expected(mesh, points, 0);
    for (const int threads : numbers) {
        const sampled found(mesh, points, threads);
        EXPECT_EQ(found.cell, expected.cell);
        EXPECT_EQ(found.uvw, expected.uvw);
        EXPECT_EQ(found.values, expected.values);
        EXPECT_EQ(found.mask, expected.mask);
    }
}

} // namespace

TEST(HostThreads, SampleAsOneDoes)
{
    std::vector<meshes::mesh_ptr> all = meshes_of_cells();
    for (meshes::mesh_ptr &lattice : lattices())
        all.push_back(std::move(lattice));
    size_t nmeshes = 0;
    for (const meshes::mesh_ptr &mesh : all) {
        std::vector<float> points = meshes::random_values<float>(nmeshes, 3000, -0.2, 1.2);
        if (mesh->nspace == 2 || mesh->ndim == 2)
            for (size_t i = 2; i < points.size(); i += 3)
                points[i] = 0;
        expect_same_samples(*mesh, points, some_numbers(nmeshes++));
    }
    // Fewer points than threads, none, and more than are located at a time.
    const meshes::mesh_ptr mesh = meshes::cells(CELL_TET, 1, {3, 3, 3}, 7);
    for (const qx_long n : {0, 1, 3, (1 << 20) + 999})
        expect_same_samples(*mesh, meshes::random_values<float>(1, 3 * n, 0, 1), {2, 5});
}

// ---- host_cut ---------------------------------------------------------------------------------------------------

namespace {

// The library's own lists, those of cell sets with the map made a list.
struct own_cut {
    qx_long nold = 0, nnew = 0, ncells[7] = {}, nconnect[7] = {};
    qx_long *nodes = nullptr, *first = nullptr, *second = nullptr, *connect[7] = {};
    std::vector<qx_long> old, cells[7];

    own_cut(const meshes::test_mesh &mesh, const host_array &array, double level, int side)
    {
        const size_t nsets = static_cast<size_t>(std::max(mesh.mesh->ncell_sets, 1));
        std::vector<qx_long> count(nsets * 7);
        std::vector<qx_long *> map(nsets * 7);
        EXPECT_EQ(UTILcut(mesh.mesh, array.data, array.type, array.null != nullptr, array.null, level, side,
                          &nold, &nodes, &nnew, &first, &second, ncells, connect, nconnect, count.data(),
                          map.data()),
                  1);
        for (qx_long i = 0; i < (mesh.ndim > 0 ? nold : mesh.nnodes()); ++i)
            if (mesh.ndim > 0)
                old.push_back(nodes[i]);
            else if (nodes[i] >= 0)
                old.push_back(i);
        for (size_t m = 0; m < nsets * 7; ++m) {
            for (qx_long i = 0; i < count[m]; ++i)
                cells[m % 7].push_back(map[m][i] + (mesh.ndim > 0 ? 0 : mesh.mesh->cell_first[m / 7]));
            host_free(map[m]);
        }
    }
    ~own_cut()
    {
        for (qx_long *list : {nodes, first, second})
            host_free(list);
        for (qx_long *list : connect)
            host_free(list);
    }
    own_cut(const own_cut &) = delete;
    own_cut &operator=(const own_cut &) = delete;
};

} // namespace

TEST(HostCut, IsTheLibrarysOwn)
{
    constexpr int kind_of_list[7] = {CELL_TET, CELL_PRISM, CELL_PYR, CELL_HEX,
                                     CELL_TRI, CELL_QUAD,  CELL_LINE};
    std::vector<meshes::mesh_ptr> all = meshes_of_cells();
    for (meshes::mesh_ptr &lattice : lattices())
        all.push_back(std::move(lattice));
    int nsets = 0;
    for (const meshes::mesh_ptr &mesh : all)
        for (const int side : {HOST_BELOW, HOST_ABOVE}) {
            const std::vector<double> data = meshes::field_of<double>(*mesh, waves);
            const double level = side == HOST_BELOW ? 0.25 : 0.6;
            const host_array array = {data.data(), DTYPE_DOUBLE, 1, side == HOST_BELOW ? nullptr : &data[5]};
            const made_ptr found =
                extracted(side == HOST_BELOW ? extraction::below : extraction::above, *mesh, array, level, 0);
            ASSERT_NE(found, nullptr);
            const own_cut expected(*mesh, array, level, side);
            ASSERT_EQ(found->nold, expected.nold);
            ASSERT_EQ(found->nnodes, expected.nold + expected.nnew);
            EXPECT_TRUE(std::equal(expected.old.begin(), expected.old.end(), found->old_node));
            EXPECT_TRUE(std::equal(expected.first, expected.first + expected.nnew, found->first_node));
            EXPECT_TRUE(std::equal(expected.second, expected.second + expected.nnew, found->second_node));
            for (qx_long i = 0; i < found->nold; ++i)
                for (int d = 0; d < mesh->nspace; ++d)
                    ASSERT_EQ(found->coords[i * mesh->nspace + d],
                              mesh->coords[static_cast<size_t>(found->old_node[i] * mesh->nspace + d)]);
            qx_long ncells = 0;
            for (int list = 0; list < 7; ++list) {
                const host_set *set = host_set_of_kind(found.get(), kind_of_list[list]);
                ASSERT_EQ(set != nullptr, expected.ncells[list] > 0);
                if (set == nullptr) continue;
                ++nsets;
                ASSERT_EQ(set->ncells, expected.ncells[list]);
                EXPECT_TRUE(
                    std::equal(set->connect, set->connect + expected.nconnect[list], expected.connect[list]));
                ASSERT_EQ(expected.cells[list].size(), static_cast<size_t>(set->ncells));
                EXPECT_TRUE(std::equal(expected.cells[list].begin(), expected.cells[list].end(), set->cell));
                ncells += set->ncells;
            }
            EXPECT_EQ(found->ncells, ncells);
        }
    EXPECT_GT(nsets, 60);
}

TEST(HostCut, SaysWhatItDoesNotTake)
{
    const meshes::mesh_ptr mesh = meshes::uniform({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}),
                           line = meshes::uniform({3}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<double> data(27);
    const host_array sound = {data.data(), DTYPE_DOUBLE, 1, nullptr},
                     rows = {data.data(), DTYPE_DOUBLE, 3, nullptr};
    host_result *out = nullptr;
    const auto refused = [&](const meshes::test_mesh &of, const host_array *array, double level, int side,
                             const char *text) {
        EXPECT_EQ(host_cut(of.field, array, level, side, nullptr, &out), HOST_FAILED);
        EXPECT_EQ(out, nullptr);
        EXPECT_STREQ(host_error(), text);
    };
    refused(*mesh, nullptr, 0, HOST_ABOVE, "host_cut: array is NULL");
    refused(*mesh, &rows, 0, HOST_ABOVE, "host_cut: a row has 3 elements, but a level is one of a scalar");
    refused(*mesh, &sound, std::nan(""), HOST_ABOVE, "host_cut: the level is not a number");
    refused(*mesh, &sound, 0, 0, "host_cut: side is 0, but sides are HOST_BELOW (-1) and HOST_ABOVE (1)");
    refused(*line, &sound, 0, HOST_ABOVE,
            "host_cut: the library has no such operation for a mesh of one axis");
    EXPECT_EQ(host_cut(nullptr, &sound, 0, HOST_ABOVE, nullptr, &out), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_mesh: field is NULL");
}
