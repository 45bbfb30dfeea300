#include "support/fetches.hpp"
#include "support/host_calls.hpp"
#include "support/lattices.hpp"

#include <skoklana.h>

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

// Lists long enough for whole blocks, with and without a remainder.
const std::vector<qx_long> counts = {0, 1, 2, 31, 32, 33, 63, 64, 65, 100, 1000};

std::vector<qx_long> random_nodes(uint64_t seed, qx_long count, qx_long nnodes)
{
    std::mt19937_64 random(seed);
    std::vector<qx_long> list(static_cast<size_t>(count));
    for (qx_long &node : list)
        node = static_cast<qx_long>(random() % static_cast<uint64_t>(nnodes));
    return list;
}

// Every second node or so, in a random order.
std::vector<qx_long> random_map(uint64_t seed, qx_long nnodes, qx_long *nkept)
{
    std::mt19937_64 random(seed);
    std::vector<qx_long> map(static_cast<size_t>(nnodes), -1);
    std::vector<qx_long> kept;
    for (qx_long node = 0; node < nnodes; ++node) {
        if (random() % 2 == 0)
            kept.push_back(node);
        else
            map[static_cast<size_t>(node)] = -1 - static_cast<qx_long>(random() % 3);
    }
    std::shuffle(kept.begin(), kept.end(), random);
    for (size_t i = 0; i < kept.size(); ++i)
        map[static_cast<size_t>(kept[i])] = static_cast<qx_long>(i);
    *nkept = static_cast<qx_long>(kept.size());
    return map;
}

std::vector<float> rows_of(const meshes::test_mesh &made, const std::vector<qx_long> &list)
{
    std::vector<float> rows;
    for (qx_long node : list)
        for (int d = 0; d < made.nspace; ++d)
            rows.push_back(made.coords[static_cast<size_t>(node * made.nspace + d)]);
    return rows;
}

// ---- coordinates ---------------------------------------------------------------------------------------------

using coord_list_form = int (*)(mesh_info *, qx_long, const qx_long *, float *);

// Random lists of all lengths, and all nodes in order, against the rows of the mesh.
void check_gather(const meshes::test_mesh &made, coord_list_form form, const std::string &what)
{
    std::vector<qx_long> all;
    for (qx_long node = 0; node < made.nnodes(); ++node)
        all.push_back(node);
    std::vector<std::vector<qx_long>> lists = {all};
    for (qx_long count : counts)
        lists.push_back(random_nodes(static_cast<uint64_t>(count), count, made.nnodes()));
    for (const std::vector<qx_long> &list : lists) {
        std::vector<float> out(list.size() * static_cast<size_t>(made.nspace), -7.0f);
        ASSERT_EQ(form(made.mesh, static_cast<qx_long>(list.size()), list.data(), out.data()), 1);
        ASSERT_EQ(out, rows_of(made, list)) << what << ", " << list.size() << " nodes";
    }
}

TEST(CoordList, GathersFromEveryStructuredKind)
{
    for (const std::vector<lattices::shape> &shapes : {lattices::small_shapes(), lattices::wide_shapes()})
        for (const lattices::shape &shape : shapes) {
            check_gather(*lattices::uniform(shape), UTILcoord_list_unif, "uniform, " + text(shape));
            check_gather(*lattices::rectilinear(shape), UTILcoord_list_rect, "rectilinear, " + text(shape));
            check_gather(*lattices::curvilinear(shape), UTILcoord_list_struct, "curvilinear, " + text(shape));
        }
}

TEST(CoordList, ScattersNodesOfCellSetsByAMap)
{
    for (int nspace : {1, 2, 3}) {
        const meshes::mesh_ptr made = meshes::cells(nspace == 1   ? CELL_LINE
                                                    : nspace == 2 ? CELL_TRI
                                                                  : CELL_TET,
                                                    2, {4, 4, 4}, 3, 0.2, nspace);
        qx_long nkept = 0;
        const std::vector<qx_long> map = random_map(11, made->nnodes(), &nkept);
        ASSERT_GT(nkept, 2);
        std::vector<float> expected(static_cast<size_t>(nkept * nspace));
        for (qx_long node = 0; node < made->nnodes(); ++node)
            for (int d = 0; d < nspace && map[static_cast<size_t>(node)] >= 0; ++d)
                expected[static_cast<size_t>(map[static_cast<size_t>(node)] * nspace + d)] =
                    made->coords[static_cast<size_t>(node * nspace + d)];
        for (qx_long ignored : {qx_long{0}, qx_long{-1}, qx_long{3}, std::numeric_limits<qx_long>::max()}) {
            std::vector<float> out(expected.size(), -7.0f);
            ASSERT_EQ(UTILcoord_list(made->mesh, ignored, map.data(), out.data()), 1);
            EXPECT_EQ(out, expected);
        }
    }
}

TEST(CoordList, MapThatDropsEveryNodeWritesNothing)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 1);
    const std::vector<qx_long> map(static_cast<size_t>(made->nnodes()), -1);
    float untouched = -7;
    EXPECT_EQ(UTILcoord_list(made->mesh, made->nnodes(), map.data(), &untouched), 1);
    EXPECT_EQ(untouched, -7);
}

TEST(CoordList, AxisOfOneNodeStandsAtTheFirstCorner)
{
    const meshes::mesh_ptr made = meshes::uniform({3, 1, 2}, 3, {0, 5, 0}, {1, 9, 1});
    const std::vector<qx_long> list = {0, 1, 2, 3, 4, 5};
    std::vector<float> out(18);
    ASSERT_EQ(UTILcoord_list_unif(made->mesh, 6, list.data(), out.data()), 1);
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(out[3 * i + 1], 5.0f);
}

// (last - first) / (dims - 1), times the position, plus the first corner: each step rounded to float.
TEST(CoordList, UniformPositionsRoundAtEachStep)
{
    const qx_long n = 1000;
    const float first = 0.1f, last = 16777.3f;
    const meshes::mesh_ptr made = meshes::uniform({n}, 1, {first}, {last});
    std::vector<qx_long> list;
    for (qx_long i = 0; i < n; ++i)
        list.push_back(i);
    std::vector<float> out(static_cast<size_t>(n));
    ASSERT_EQ(UTILcoord_list_unif(made->mesh, n, list.data(), out.data()), 1);
    int differs_from_double = 0;
    for (qx_long i = 0; i < n; ++i) {
        const volatile float span = last - first;
        const volatile float step = span / static_cast<float>(n - 1);
        const volatile float moved = static_cast<float>(i) * step;
        const volatile float expected = moved + first;
        ASSERT_EQ(out[static_cast<size_t>(i)], expected) << i;
        const double exact =
            (static_cast<double>(last) - first) / static_cast<double>(n - 1) * static_cast<double>(i) + first;
        differs_from_double += expected != static_cast<float>(exact);
    }
    EXPECT_GT(differs_from_double, 0) << "the numbers no longer tell float from double";
}

// A lattice that no memory holds, by its corners alone: positions of the first 2^24 along an axis are floats.
struct vast_lattice {
    qx_long dims[3];
    float points[6];
    mesh_info mesh = {};

    vast_lattice(qx_long d0, qx_long d1, qx_long d2) : dims{d0, d1, d2}, points{0, 0, 0}
    {
        for (int d = 0; d < 3; ++d)
            points[3 + d] = static_cast<float>(dims[d] - 1); // a step of 1, as long as that is a float
        mesh.ndim = 3;
        mesh.dims = dims;
        mesh.nspace = 3;
        mesh.nnodes = d0 * d1 * d2;
        mesh.points = points;
    }
};

TEST(CoordList, PositionsAreExactOnVastLattices)
{
    std::mt19937_64 random(5);
    const qx_long shapes[][3] = {{16777216, 65536, 2048}, {16777215, 65537, 2047}, {3, 7, 16777216},
                                 {999983, 46337, 48611},  {1, 16777213, 16777199}, {16777216, 16777216, 32}};
    bool below = false, above = false;
    for (const auto &dims : shapes) {
        vast_lattice lattice(dims[0], dims[1], dims[2]);
        const qx_long nnodes = lattice.mesh.nnodes;
        std::vector<qx_long> list;
        for (int i = 0; i < 500; ++i)
            list.push_back(static_cast<qx_long>(random() % static_cast<uint64_t>(nnodes)));
        // Where a row or a plane ends and the next begins a quotient is at its most delicate.
        for (int i = 0; i < 500; ++i) {
            const qx_long unit = i % 2 == 0 ? dims[0] : dims[0] * dims[1];
            const qx_long at = static_cast<qx_long>(random() % static_cast<uint64_t>(nnodes / unit)) * unit;
            list.push_back(at);
            if (at > 0) list.push_back(at - 1);
            list.push_back(at + 1);
        }
        list.push_back(nnodes - 1);
        for (qx_long node : list) {
            below = below || node < qx_long{1} << 51;
            above = above || node >= qx_long{1} << 51;
        }
        std::vector<float> out(3 * list.size());
        ASSERT_EQ(
            UTILcoord_list_unif(&lattice.mesh, static_cast<qx_long>(list.size()), list.data(), out.data()),
            1);
        for (size_t i = 0; i < list.size(); ++i) {
            const qx_long i1 = list[i] / dims[0];
            ASSERT_EQ(out[3 * i], static_cast<float>(list[i] % dims[0])) << list[i];
            ASSERT_EQ(out[3 * i + 1], static_cast<float>(i1 % dims[1])) << list[i];
            ASSERT_EQ(out[3 * i + 2], static_cast<float>(i1 / dims[1])) << list[i];
        }
    }
    EXPECT_TRUE(below && above) << "not all sizes of node numbers were reached";
}

// An axis list too long to be counted in int, of which only the start is there.
TEST(CoordList, LongAxisListsAreRead)
{
    qx_long dims[3] = {4, 3, qx_long{1} << 33};
    std::vector<float> points = meshes::random_values<float>(1, 3 * (4 + 3 + 50), -1, 1);
    mesh_info mesh = {};
    mesh.ndim = mesh.nspace = 3;
    mesh.dims = dims;
    mesh.points = points.data();
    const std::vector<qx_long> list = random_nodes(1, 200, 4 * 3 * 50);
    std::vector<float> out(3 * list.size());
    ASSERT_EQ(UTILcoord_list_rect(&mesh, 200, list.data(), out.data()), 1);
    for (size_t i = 0; i < list.size(); ++i) {
        const size_t node = static_cast<size_t>(list[i]);
        EXPECT_EQ(out[3 * i], points[3 * (node % 4)]);
        EXPECT_EQ(out[3 * i + 1], points[3 * (4 + node / 4 % 3) + 1]);
        EXPECT_EQ(out[3 * i + 2], points[3 * (7 + node / 12) + 2]);
    }
}

TEST(CoordList, FailedFetchGivesNothingAndTheNextCallSucceeds)
{
    const lattices::shape shape = {{4, 3}, 2};
    const struct {
        meshes::mesh_ptr made;
        coord_list_form form;
        const char *message;
    } cases[] = {
        {meshes::cells(CELL_QUAD, 1, {2, 2}, 1, 0, 2), UTILcoord_list, "unable to get field coordinates"},
        {lattices::curvilinear(shape), UTILcoord_list_struct, "unable to get field coordinates"},
        {lattices::rectilinear(shape), UTILcoord_list_rect, "unable to get field points"},
        {lattices::uniform(shape), UTILcoord_list_unif, "unable to get field points"}};
    for (const auto &c : cases) {
        failing_fetches fetches(c.made->mesh);
        fetches.fail_coords = fetches.fail_points = 1;
        std::vector<qx_long> list(static_cast<size_t>(c.made->nnodes()), 0);
        std::vector<float> out(2 * list.size(), -7.0f);
        host_calls::reset();
        EXPECT_EQ(c.form(c.made->mesh, c.made->nnodes(), list.data(), out.data()), 0);
        EXPECT_EQ(host_calls::seen().reports,
                  (std::vector<host_calls::report>{{"fld_info", 0, 2, c.message}}));
        EXPECT_EQ(out, std::vector<float>(out.size(), -7.0f));
        EXPECT_EQ(c.form(c.made->mesh, c.made->nnodes(), list.data(), out.data()), 1);
        EXPECT_EQ(host_calls::seen().reports.size(), 1u);
        EXPECT_EQ(out[0], c.made->coords[c.form == UTILcoord_list ? out.size() - 2 : 0]);
    }
}

TEST(CoordList, OneMeshDescribedInAllWaysHasTheSameCoordinates)
{
    for (const lattices::shape &shape : lattices::in_every_space({{9}, {6, 5}, {5, 4, 7}})) {
        std::vector<std::vector<float>> found;
        for (const meshes::mesh_ptr &made : lattices::in_all_ways(shape)) {
            ASSERT_NE(made->mesh, nullptr);
            std::vector<qx_long> every; // as a map and as a list: each node at its own place
            for (qx_long node = 0; node < made->nnodes(); ++node)
                every.push_back(node);
            found.emplace_back(every.size() * static_cast<size_t>(shape.nspace), -7.0f);
            ASSERT_EQ(UTILget_coord_list(made->mesh, made->nnodes(), every.data(), found.back().data()), 1);
        }
        ASSERT_EQ(found.size(), 4u);
        for (size_t way = 1; way < 4; ++way)
            EXPECT_EQ(found[way], found[0]) << text(shape) << ", way " << way;
    }
}

// ---- data ----------------------------------------------------------------------------------------------------

const int type_sizes[7] = {1, 1, 2, 4, 4, 8, 8};
const std::vector<int> veclens = {0, 1, 2, 3, 4, 5, 6, 9, 16};

// Any bytes, so that NaNs and padding values are among the elements.
std::vector<unsigned char> random_bytes(uint64_t seed, size_t count)
{
    std::mt19937_64 random(seed);
    std::vector<unsigned char> bytes(count);
    for (unsigned char &byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

TEST(DataList, GathersRowsOfEveryTypeAsTheyStand)
{
    const meshes::mesh_ptr made = meshes::uniform({10, 10}, 2, {0, 0}, {1, 1});
    for (int type = 0; type < 7; ++type)
        for (int veclen : veclens)
            for (qx_long count : counts) {
                const size_t row = static_cast<size_t>(veclen * type_sizes[type]);
                const std::vector<unsigned char> data = random_bytes(row, 100 * row);
                const std::vector<qx_long> list = random_nodes(row + 1, count, 100);
                std::vector<unsigned char> out(list.size() * row, 0xee), expected;
                for (qx_long node : list)
                    expected.insert(expected.end(),
                                    data.begin() + static_cast<long>(static_cast<size_t>(node) * row),
                                    data.begin() + static_cast<long>((static_cast<size_t>(node) + 1) * row));
                ASSERT_EQ(UTILdata_list_struct(made->mesh, type, veclen, data.data(), count, list.data(),
                                               out.data()),
                          veclen * count);
                ASSERT_EQ(out, expected)
                    << "type " << type << ", veclen " << veclen << ", " << count << " rows";
            }
}

TEST(DataList, ScattersRowsOfEveryTypeAsTheyStand)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 2, {3, 3, 3}, 1);
    const size_t nnodes = static_cast<size_t>(made->nnodes());
    qx_long nkept = 0;
    const std::vector<qx_long> map = random_map(3, made->nnodes(), &nkept);
    for (int type = 0; type < 7; ++type)
        for (int veclen : veclens) {
            const size_t row = static_cast<size_t>(veclen * type_sizes[type]);
            const std::vector<unsigned char> data = random_bytes(row, nnodes * row);
            std::vector<unsigned char> out(static_cast<size_t>(nkept) * row, 0xee), expected(out);
            for (size_t node = 0; node < nnodes; ++node)
                for (size_t k = 0; k < row && map[node] >= 0; ++k)
                    expected[static_cast<size_t>(map[node]) * row + k] = data[node * row + k];
            ASSERT_EQ(UTILdata_list(made->mesh, type, veclen, data.data(), -5, map.data(), out.data()),
                      veclen * nkept);
            ASSERT_EQ(out, expected) << "type " << type << ", veclen " << veclen;
        }
}

TEST(DataList, NothingToCopyIsACountOfNothing)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    const std::vector<qx_long> none(8, -1);
    const int data[8] = {};
    int untouched = -7;
    host_calls::reset();
    EXPECT_EQ(UTILdata_list(made->mesh, DTYPE_INT, 1, data, 8, none.data(), &untouched), 0);
    EXPECT_EQ(UTILdata_list_struct(made->mesh, DTYPE_INT, 1, data, 0, nullptr, &untouched), 0);
    EXPECT_EQ(untouched, -7);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST(DataList, UnknownTypeGivesNothingWithoutAWord)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 1);
    const std::vector<qx_long> list = {0, 1, 2, 3, 4, 5, 6, 7};
    const double data[8] = {};
    double untouched = -7;
    host_calls::reset();
    testing::internal::CaptureStderr();
    for (int type : {7, -1, 100}) {
        EXPECT_EQ(UTILdata_list(made->mesh, type, 1, data, 8, list.data(), &untouched), 0);
        EXPECT_EQ(UTILdata_list_struct(made->mesh, type, 1, data, 1, list.data(), &untouched), 0);
        EXPECT_EQ(UTILget_data_list(made->mesh, type, 1, data, 1, list.data(), &untouched), 0);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(host_calls::seen().reports.empty());
    EXPECT_EQ(untouched, -7);
}

TEST(DataList, OneMeshDescribedInAllWaysHasTheSameData)
{
    const lattices::shape shape = {{5, 4, 3}, 3};
    const std::vector<double> data = meshes::random_values<double>(1, 60 * 2, -9, 9);
    std::vector<qx_long> every;
    for (qx_long node = 0; node < 60; ++node)
        every.push_back(node);
    for (const meshes::mesh_ptr &made : lattices::in_all_ways(shape)) {
        std::vector<double> out(data.size());
        EXPECT_EQ(UTILget_data_list(made->mesh, DTYPE_DOUBLE, 2, data.data(), 60, every.data(), out.data()),
                  120);
        EXPECT_EQ(out, data);
    }
}

} // namespace
