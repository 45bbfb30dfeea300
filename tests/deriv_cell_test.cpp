#include "support/arrays.hpp"
#include "support/cell_reference.hpp"
#include "support/deriv_reference.hpp"
#include "support/fetches.hpp"
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <skoklana/deriv.h>

#include <gtest/gtest.h>

#include <numeric>

using namespace deriv_reference;

namespace {

constexpr float untouched = 77;

using mesh_operator = int (*)(mesh_info *, const void *, int, int, int, const void *, float *);

struct named_operator {
    const char *name;
    operation op;
    mesh_operator run;
};

const named_operator operators[] = {{"UTILgrad", grad, UTILgrad_cells},
                                    {"UTILcurl", curl, UTILcurl_cells},
                                    {"UTILdiv", divergence, UTILdiv_cells}};

class DerivCells : public testing::Test {
  protected:
    void SetUp() override { host_calls::reset(); }
};

// The same bits, NaN being NaN.
void expect_same(const std::vector<float> &got, const std::vector<float> &expected)
{
    ASSERT_EQ(got.size(), expected.size());
    for (size_t i = 0; i < got.size(); ++i) {
        if (std::isnan(got[i]) && std::isnan(expected[i])) continue;
        ASSERT_EQ(memcmp(&got[i], &expected[i], sizeof(float)), 0)
            << "entry " << i << ": " << got[i] << " for " << expected[i];
    }
}

// Values of any type in a vector of bytes: every tenth is null, the others are small.
struct typed_values {
    int type;
    std::vector<qx_long> bytes;
    qx_long null = 0;

    typed_values(int type_, qx_long count, uint64_t seed, int veclen) : type(type_)
    {
        bytes.resize(static_cast<size_t>(count));
        with_dtype_silent(type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            std::mt19937_64 random(seed);
            T *values = reinterpret_cast<T *>(bytes.data());
            for (qx_long i = 0; i < count; ++i)
                values[i] = static_cast<T>(static_cast<double>(random() % 20011) / 200.0);
            const T none = static_cast<T>(111);
            memcpy(&null, &none, sizeof none);
            for (qx_long i = 0; i < count / veclen; ++i)
                if (random() % 40 == 0) values[i * veclen] = none;
            return 1;
        });
    }
};

// Any mesh over one kind; surfaces are bent.
meshes::mesh_ptr bent_mesh(int kind, int order, std::vector<int> n, uint64_t seed, int nspace = 3)
{
    meshes::mesh_ptr made = meshes::cells(kind, order, std::move(n), seed, 0.15, nspace);
    if (cell_kinds[kind].ndim < 3 && nspace == 3)
        for (qx_long node = 0; node < made->nnodes(); ++node) {
            float *x = &made->coords[static_cast<size_t>(3 * node)];
            x[2] = 0.4f * x[0] * x[0] - 0.3f * x[0] * x[1] + 0.1f * static_cast<float>(node % 3);
        }
    return made;
}

std::vector<float> run(const named_operator &op, mesh_info *mesh, const typed_values &values, int veclen,
                       int null_flag, int expected_result = 1)
{
    std::vector<float> out(static_cast<size_t>(mesh->nnodes * entries_of(op.op)), untouched);
    EXPECT_EQ(op.run(mesh, values.bytes.data(), veclen, values.type, null_flag,
                     null_flag != 0 ? &values.null : nullptr, out.data()),
              expected_result)
        << op.name;
    return out;
}

void expect_reference(const meshes::test_mesh &made, int type, int veclen, int null_flag, uint64_t seed)
{
    const typed_values values(type, made.nnodes() * std::max(veclen, 1), seed, std::max(veclen, 1));
    const node_values of = {{type, values.bytes.data()}, veclen, null_flag, &values.null};
    for (const named_operator &op : operators) {
        SCOPED_TRACE(testing::Message()
                     << op.name << ", type " << type << ", veclen " << veclen << ", null " << null_flag);
        const bool takes = op.op == grad ? veclen <= 1 : veclen >= 2;
        const std::vector<float> got = run(op, made.mesh, values, veclen, null_flag, takes ? 1 : 0);
        if (takes)
            expect_same(got, over_cells(op.op, made.mesh, made.coords, of));
        else
            EXPECT_EQ(got, std::vector<float>(got.size(), untouched));
        EXPECT_TRUE(host_calls::seen().reports.empty());
        EXPECT_EQ(host_calls::seen().depth, 0);
    }
}

} // namespace

// ---- against the reference -----------------------------------------------------------------------------------

TEST_F(DerivCells, AgreeWithTheReferenceOnEveryKindOfCell)
{
    uint64_t seed = 1;
    for (const cell_reference::cell_functions &cell : cell_reference::cells) {
        if (cell.ndim() == 1) continue;
        SCOPED_TRACE(cell.name);
        const meshes::mesh_ptr made = bent_mesh(cell.kind, cell.order, {3, 2, 3}, ++seed);
        for (int null_flag : {0, 1})
            for (int veclen : {1, 3})
                expect_reference(*made, DTYPE_FLOAT, veclen, null_flag, ++seed);
    }
}

TEST_F(DerivCells, AgreeWithTheReferenceForEveryTypeAndRowLength)
{
    uint64_t seed = 100;
    for (int kind : {CELL_HEX, CELL_QUAD, CELL_TET}) {
        SCOPED_TRACE(kind);
        const meshes::mesh_ptr made = bent_mesh(kind, 1, {3, 3, 1}, ++seed);
        for (int type = 0; type <= 6; ++type)
            for (int veclen : {1, 2, 3, 4, 5})
                for (int null_flag : {0, 1})
                    expect_reference(*made, type, veclen, null_flag, ++seed);
        expect_reference(*made, DTYPE_FLOAT, 70, 1, ++seed);
    }
}

TEST_F(DerivCells, SetsOfDifferentKindsAddUpInTheirOrder)
{
    const meshes::mesh_ptr made =
        meshes::mixed({CELL_HEX, CELL_QUAD, CELL_PYR, CELL_TET, CELL_TRI, CELL_PRISM, CELL_HEX},
                      {1, 1, 1, 2, 2, 1, 2}, 2, 5, 0.1);
    // All parts share the first nodes.
    for (size_t set = 0; set < made->connect.size(); ++set)
        made->connect[set][set] = static_cast<qx_long>(set % 3);
    for (int veclen : {1, 3})
        expect_reference(*made, DTYPE_DOUBLE, veclen, 1, 6);
}

TEST_F(DerivCells, FlatMeshesHaveNoThirdCoordinate)
{
    for (int nspace : {2, 3}) {
        const meshes::mesh_ptr made = meshes::cells(CELL_QUAD, 2, {3, 4}, 7, 0.1, nspace);
        for (int veclen : {1, 2, 3})
            expect_reference(*made, DTYPE_FLOAT, veclen, 0, 8);
    }
    // Solids in a plane have no volume: every corner is 0.
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 7, 0.1);
    std::vector<float> flat;
    for (qx_long node = 0; node < made->nnodes(); ++node)
        for (int d = 0; d < 2; ++d)
            flat.push_back(static_cast<float>(meshes::at(*made, node, d)));
    made->mesh->nspace = 2;
    made->mesh->coords = flat.data();
    const typed_values values(DTYPE_FLOAT, made->nnodes(), 1, 1);
    const std::vector<float> got = run(operators[0], made->mesh, values, 1, 0);
    EXPECT_EQ(got, std::vector<float>(got.size(), 0.0f));
}

TEST_F(DerivCells, DegenerateCornersAndCellsAgreeWithTheReference)
{
    int zero = 0;
    for (int kind : {CELL_HEX, CELL_TET, CELL_PRISM, CELL_QUAD, CELL_TRI, CELL_PYR}) {
        const meshes::mesh_ptr made = bent_mesh(kind, 1, {3, 2, 2}, 9);
        // Some cells lose an edge, so that some corners have no volume; some lose all.
        const size_t n = static_cast<size_t>(made->mesh->cell_nnodes[0]);
        std::vector<qx_long> &connect = made->connect[0];
        for (size_t c = 0; c * n < connect.size(); ++c) {
            if (c % 3 == 0) connect[c * n + 1 + c % (n - 1)] = connect[c * n];
            if (c % 5 == 0) std::fill_n(connect.begin() + static_cast<long>(c * n), n, connect[c * n]);
        }
        for (int veclen : {1, 3})
            expect_reference(*made, DTYPE_FLOAT, veclen, 0, 10);
        const typed_values values(DTYPE_FLOAT, made->nnodes(), 10, 1);
        for (float x : run(operators[0], made->mesh, values, 1, 0))
            zero += x == 0;
    }
    EXPECT_GT(zero, 0);
}

TEST_F(DerivCells, InfiniteAndHugeCoordinatesAgreeWithTheReference)
{
    const meshes::mesh_ptr made = bent_mesh(CELL_HEX, 1, {3, 2, 2}, 9);
    made->coords[10] = std::numeric_limits<float>::infinity();
    made->coords[20] = std::numeric_limits<float>::quiet_NaN();
    made->coords[30] = 1e38f;
    made->coords[40] = 1e-38f;
    for (int veclen : {1, 3})
        expect_reference(*made, DTYPE_FLOAT, veclen, 0, 10);
}

// A hexahedron of the second order with a node more, which takes no part.
static void slopes_of_21_nodes(const float *uvw, float *d)
{
    float own[60];
    UTILsh_deriv_hex_2(uvw, own);
    for (int axis = 0; axis < 3; ++axis) {
        std::copy_n(own + 20 * axis, 20, d + 21 * axis);
        d[21 * axis + 20] = 0;
    }
}

TEST_F(DerivCells, CellsOfAHostsOwnKindAreServed)
{
    const meshes::mesh_ptr made = bent_mesh(CELL_HEX, 2, {2, 2, 1}, 9);
    std::vector<qx_long> connect;
    for (size_t c = 0; c * 20 < made->connect[0].size(); ++c) {
        connect.insert(connect.end(), made->connect[0].begin() + static_cast<long>(c * 20),
                       made->connect[0].begin() + static_cast<long>(c * 20 + 20));
        connect.push_back(0);
    }
    std::vector<float> positions(cell_kinds[CELL_HEX].position[0], cell_kinds[CELL_HEX].position[0] + 60);
    positions.insert(positions.end(), {0, 0, 0});
    mesh_info *mesh = made->mesh;
    mesh->cell_nnodes[0] = 21;
    mesh->cell_connect[0] = connect.data();
    float *own_positions = mesh->cell_aux[0];
    mesh->cell_aux[0] = positions.data();
    mesh->cell_funcs[SLOT_SHAPE_DERIV] = reinterpret_cast<cell_func>(slopes_of_21_nodes);
    for (int veclen : {1, 3})
        expect_reference(*made, DTYPE_FLOAT, veclen, 1, 10);
    mesh->cell_aux[0] = own_positions;
}

// ---- against analysis ----------------------------------------------------------------------------------------

TEST_F(DerivCells, LinearFieldsOnSolidsAreExact)
{
    for (const cell_reference::cell_functions &cell : cell_reference::cells) {
        if (cell.ndim() != 3 || cell.kind == CELL_PYR) continue;
        SCOPED_TRACE(cell.name);
        const meshes::mesh_ptr made = meshes::cells(cell.kind, cell.order, {2, 2, 2}, 3, 0.1);
        const std::vector<float> scalar = meshes::field_of<float>(
            *made, [](double x, double y, double z) { return 2 * x - 3 * y + z + 1; });
        std::vector<float> out(scalar.size() * 3), div(scalar.size()), vectors;
        ASSERT_EQ(UTILgrad_cells(made->mesh, scalar.data(), 1, DTYPE_FLOAT, 0, nullptr, out.data()), 1);
        for (size_t i = 0; i < out.size(); ++i)
            EXPECT_NEAR(out[i], std::vector<float>({2, -3, 1})[i % 3], 1e-4);
        for (qx_long node = 0; node < made->nnodes(); ++node) {
            const float x = static_cast<float>(meshes::at(*made, node, 0)),
                        y = static_cast<float>(meshes::at(*made, node, 1)),
                        z = static_cast<float>(meshes::at(*made, node, 2));
            vectors.insert(vectors.end(), {2 * y + 5 * z + x, 3 * x - z + 2 * y, 7 * x + 4 * y + 3 * z});
        }
        ASSERT_EQ(UTILcurl_cells(made->mesh, vectors.data(), 3, DTYPE_FLOAT, 0, nullptr, out.data()), 1);
        for (size_t i = 0; i < out.size(); ++i)
            EXPECT_NEAR(out[i], std::vector<float>({5, -2, 1})[i % 3], 3e-4);
        ASSERT_EQ(UTILdiv_cells(made->mesh, vectors.data(), 3, DTYPE_FLOAT, 0, nullptr, div.data()), 1);
        for (float d : div)
            EXPECT_NEAR(d, 6, 3e-4);
    }
}

TEST_F(DerivCells, GradientsOnPlanesAreThePlanesShareOfThatInSpace)
{
    const double normal[3] = {2.0 / 7, 3.0 / 7, 6.0 / 7}, g[3] = {2, -3, 1};
    const double along_normal = g[0] * normal[0] + g[1] * normal[1] + g[2] * normal[2];
    for (int kind : {CELL_TRI, CELL_QUAD})
        for (int order : {1, 2}) {
            const meshes::mesh_ptr made = meshes::cells(kind, order, {3, 3}, 3, 0.1);
            for (qx_long node = 0; node < made->nnodes(); ++node) {
                float *x = &made->coords[static_cast<size_t>(3 * node)];
                x[2] = static_cast<float>(-(normal[0] * x[0] + normal[1] * x[1]) / normal[2]);
            }
            const std::vector<float> scalar = meshes::field_of<float>(
                *made, [&](double x, double y, double z) { return g[0] * x + g[1] * y + g[2] * z; });
            std::vector<float> out(scalar.size() * 3);
            ASSERT_EQ(UTILgrad_cells(made->mesh, scalar.data(), 1, DTYPE_FLOAT, 0, nullptr, out.data()), 1);
            for (size_t i = 0; i < out.size(); ++i)
                EXPECT_NEAR(out[i], g[i % 3] - along_normal * normal[i % 3], 1e-4);
        }
}

// ---- what is told of single nodes ----------------------------------------------------------------------------

namespace {

// Two tetrahedra on one face, and a node that no cell has.
meshes::mesh_ptr two_tets()
{
    return meshes::from_cells(3, {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1, 9, 9, 9}, {CELL_TET}, {1},
                              {{1, 2, 3, 0, 1, 2, 4, 3}});
}

} // namespace

TEST_F(DerivCells, NodeWithoutCellsIsNotANumberAlsoAfterTheNullPass)
{
    const meshes::mesh_ptr made = two_tets();
    const std::vector<float> data = {0, 1, 2, 3, 4, 5};
    const float null = 5;
    for (int null_flag : {0, 1}) {
        std::vector<float> out(18, untouched);
        ASSERT_EQ(UTILgrad_cells(made->mesh, data.data(), 1, DTYPE_FLOAT, null_flag, &null, out.data()), 1);
        for (int e = 0; e < 3; ++e) {
            EXPECT_TRUE(std::isnan(out[static_cast<size_t>(15 + e)]));
            EXPECT_FALSE(std::isnan(out[static_cast<size_t>(e)]));
        }
    }
}

TEST_F(DerivCells, NullNodeBlanksItsCellsAndPullsTheMeansOfTheOthers)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {3, 1, 1}, 1);
    std::vector<int> data(16, 1);
    qx_long corner = -1;
    for (qx_long node = 0; node < 16; ++node) {
        data[static_cast<size_t>(node)] = static_cast<int>(std::lround(3 * meshes::at(*made, node, 0)));
        if (meshes::at(*made, node, 0) == 0 && corner < 0) corner = node;
    }
    data[static_cast<size_t>(corner)] = -9;
    const int null = -9;
    std::vector<float> out(48);
    ASSERT_EQ(UTILgrad_cells(made->mesh, data.data(), 1, DTYPE_INT, 1, &null, out.data()), 1);
    for (qx_long node = 0; node < 16; ++node) {
        const double x = 3 * meshes::at(*made, node, 0);
        // The first cell is blanked; its far face belongs to it.
        EXPECT_NEAR(out[static_cast<size_t>(3 * node)], x < 1.5 ? 0 : 3, 1e-5) << "node " << node;
    }
}

TEST_F(DerivCells, DegenerateCellCountsWithZeroInTheMean)
{
    const meshes::mesh_ptr made = two_tets();
    made->connect[0][7] = 1; // the second has no volume
    const std::vector<float> data = {0, 1, 0, 0, 9, 0};
    std::vector<float> out(18);
    ASSERT_EQ(UTILgrad_cells(made->mesh, data.data(), 1, DTYPE_FLOAT, 0, nullptr, out.data()), 1);
    EXPECT_EQ(out[0], 1.0f);     // the first cell's alone
    EXPECT_EQ(out[3], 1.0f / 3); // one of its own, two empty corners
    EXPECT_EQ(out[6], 0.5f);     // one of each
    EXPECT_EQ(out[12], 0.0f);    // the second's alone
    EXPECT_FALSE(std::signbit(out[12]));
}

// ---- points of one cell --------------------------------------------------------------------------------------

TEST_F(DerivCells, PointsOfOneCellAgreeWithTheReference)
{
    std::mt19937_64 random(3);
    for (const cell_reference::cell_functions &cell : cell_reference::cells) {
        if (cell.ndim() == 1) continue;
        SCOPED_TRACE(cell.name);
        const meshes::mesh_ptr made = bent_mesh(cell.kind, cell.order, {2, 2, 2}, 4);
        mesh_info *mesh = made->mesh;
        std::vector<float> uvw;
        for (int p = 0; p < 5; ++p)
            for (double x : cell_reference::random_position(cell, random))
                uvw.push_back(static_cast<float>(x));
        const qx_long last = mesh->ncells - 1;
        for (int veclen : {1, 2, 3, 7, 200}) {
            const typed_values values(DTYPE_SHORT, made->nnodes() * veclen, 5, veclen);
            const void *data = values.bytes.data();
            const node_values of = {{DTYPE_SHORT, data}, veclen, 0, nullptr};
            // Any call fetches the lists that the reference reads.
            std::vector<float> matrix_(static_cast<size_t>(3 * veclen), untouched), frame(9), local(60);
            const bool solid = cell.ndim() == 3;
            ASSERT_EQ(solid ? UTILderiv_cell_3d(mesh, last, veclen, data, DTYPE_SHORT, 0, nullptr, uvw.data(),
                                                matrix_.data())
                            : UTILderiv_cell_2d(mesh, last, veclen, data, DTYPE_SHORT, 0, nullptr, uvw.data(),
                                                matrix_.data(), frame.data(), local.data()),
                      1);
            const deriv_reference::cell from = cell_of_set(mesh, 0, last, made->coords);
            matrix expected_frame(9);
            matrix expected = solid ? at_solid_point(from, of, uvw.data())
                                    : at_surface_point(from, of, uvw.data(), &expected_frame);
            if (!solid) {
                expect_same(frame, expected_frame);
                for (size_t i = expected.size(); i < matrix_.size(); ++i)
                    EXPECT_EQ(matrix_[i], untouched);
                expected.resize(matrix_.size(), untouched);
            }
            expect_same(matrix_, expected);

            std::vector<float> rows(15);
            ASSERT_EQ(UTILgrad_cell(mesh, cell.ndim(), last, data, DTYPE_SHORT, 0, nullptr, 5, uvw.data(),
                                    rows.data()),
                      1);
            expect_same(rows, at_points(grad, cell.ndim(), from, of, 5, uvw.data()));
            ASSERT_EQ(UTILcurl_cell(mesh, cell.ndim(), last, data, veclen, DTYPE_SHORT, 0, nullptr, 5,
                                    uvw.data(), rows.data()),
                      1);
            expect_same(rows, at_points(curl, cell.ndim(), from, of, 5, uvw.data()));
            rows.resize(5);
            ASSERT_EQ(UTILdiv_cell(mesh, cell.ndim(), last, data, veclen, DTYPE_SHORT, 0, nullptr, 5,
                                   uvw.data(), rows.data()),
                      1);
            expect_same(rows, at_points(divergence, cell.ndim(), from, of, 5, uvw.data()));
        }
    }
}

TEST_F(DerivCells, CurlAndDivergenceOfAPointThatFailsAreThoseOfThePointBefore)
{
    // A pyramid's base functions all vanish at the apex: there is no volume.
    const meshes::mesh_ptr made = meshes::cells(CELL_PYR, 1, {1, 1, 1}, 2, 0.1);
    const typed_values values(DTYPE_FLOAT, made->nnodes() * 3, 5, 3);
    const float uvw[12] = {0, 0, 1, 0.1f, 0.2f, 0.3f, 0, 0, 1, 0.5f, 0, 0};
    std::vector<float> rows(12, untouched), div(4, untouched);
    ASSERT_EQ(
        UTILcurl_cell(made->mesh, 3, 0, values.bytes.data(), 3, DTYPE_FLOAT, 0, nullptr, 4, uvw, rows.data()),
        1);
    ASSERT_EQ(
        UTILdiv_cell(made->mesh, 3, 0, values.bytes.data(), 3, DTYPE_FLOAT, 0, nullptr, 4, uvw, div.data()),
        1);
    for (size_t e = 0; e < 3; ++e) {
        EXPECT_EQ(rows[e], 0);
        EXPECT_NE(rows[3 + e], 0);
        EXPECT_EQ(rows[6 + e], rows[3 + e]);
        EXPECT_NE(rows[9 + e], rows[3 + e]);
    }
    EXPECT_EQ(div[0], 0);
    EXPECT_NE(div[1], 0);
    EXPECT_EQ(div[2], div[1]);
    ASSERT_EQ(
        UTILgrad_cell(made->mesh, 3, 0, values.bytes.data(), DTYPE_FLOAT, 0, nullptr, 4, uvw, rows.data()),
        1);
    for (size_t e = 0; e < 3; ++e)
        EXPECT_EQ(rows[6 + e], 0);
}

TEST_F(DerivCells, VectorsOfTwoInSpaceMakeTheirThirdComponentNothing)
{
    // (v_z, -u_y, v_x - v_y... ) by the rows of two: entries past the sixth are 0.
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {1, 1, 1}, 2);
    std::vector<float> data;
    for (qx_long node = 0; node < 8; ++node) {
        const float x = static_cast<float>(meshes::at(*made, node, 0)),
                    y = static_cast<float>(meshes::at(*made, node, 1)),
                    z = static_cast<float>(meshes::at(*made, node, 2));
        data.insert(data.end(), {x + 2 * y + 4 * z, 8 * x + 16 * y + 32 * z});
    }
    std::vector<float> out(24);
    ASSERT_EQ(UTILcurl_cells(made->mesh, data.data(), 2, DTYPE_FLOAT, 0, nullptr, out.data()), 1);
    // D is u_x, v_x, u_y, v_y, u_z, v_z.
    EXPECT_FLOAT_EQ(out[0], 32);
    EXPECT_FLOAT_EQ(out[1], -2);
    EXPECT_FLOAT_EQ(out[2], 8 - 16);
}

TEST_F(DerivCells, DivergenceOnASurfaceReadsTheDataAsAScalar)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_QUAD, 1, {1, 1}, 2);
    std::vector<float> data(12, 1000);
    for (qx_long node = 0; node < 4; ++node)
        data[static_cast<size_t>(node)] = static_cast<float>(5 * meshes::at(*made, node, 0));
    std::vector<float> out(4);
    ASSERT_EQ(UTILdiv_cells(made->mesh, data.data(), 3, DTYPE_FLOAT, 0, nullptr, out.data()), 1);
    for (float x : out)
        EXPECT_FLOAT_EQ(std::fabs(x), 5);
}

TEST_F(DerivCells, OtherDimensionsOfACellAreRefusedBeforeAnyPoint)
{
    const meshes::mesh_ptr made = two_tets();
    const std::vector<float> data(18);
    float out[3] = {untouched, untouched, untouched};
    const float uvw[3] = {};
    for (int cell_ndim : {1, 0, 4, -1})
        for (int npts : {0, 1}) {
            host_calls::reset();
            EXPECT_EQ(UTILgrad_cell(made->mesh, cell_ndim, 0, data.data(), 4, 0, nullptr, npts, uvw, out), 0);
            EXPECT_EQ(UTILcurl_cell(made->mesh, cell_ndim, 0, data.data(), 3, 4, 0, nullptr, npts, uvw, out),
                      0);
            EXPECT_EQ(UTILdiv_cell(made->mesh, cell_ndim, 0, data.data(), 3, 4, 0, nullptr, npts, uvw, out),
                      0);
            EXPECT_EQ(host_calls::report_texts(),
                      (std::vector<std::string>{"UTILgrad: no grad function for cell_ndim=1",
                                                "UTILcurl: no curl function for cell_ndim=1",
                                                "UTILdiv: no div function for cell_ndim=1"}));
        }
    EXPECT_EQ(out[0], untouched);
}

TEST_F(DerivCells, PointsThatCannotBeSeenGiveNothingAndSayNothing)
{
    const meshes::mesh_ptr made = two_tets();
    failing_fetches fetches(made->mesh);
    const std::vector<float> data = {0, 1, 2, 3, 4, 5};
    const float uvw[3] = {}, null = 4;
    float out[3] = {untouched, untouched, untouched};
    const auto derive = [&](qx_long cell, int veclen, const void *of, int null_flag) {
        return UTILderiv_cell_3d(made->mesh, cell, veclen, of, DTYPE_FLOAT, null_flag, &null, uvw, out);
    };
    for (qx_long cell : {qx_long{-1}, qx_long{2}, qx_long{1} << 40})
        EXPECT_EQ(derive(cell, 1, data.data(), 0), 0);
    EXPECT_EQ(fetches.coords_calls, 0);
    EXPECT_EQ(fetches.connect_calls, 0);
    EXPECT_EQ(derive(0, 0, data.data(), 0), 0);
    EXPECT_EQ(derive(0, 1, nullptr, 0), 0);
    EXPECT_EQ(derive(1, 1, data.data(), 1), 0); // node 4
    EXPECT_EQ(out[0], untouched);
    EXPECT_EQ(derive(0, 1, data.data(), 1), 1);
    made->mesh->cell_funcs[SLOT_SHAPE_DERIV] = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(UTILderiv_cell_3d(made->mesh, 0, 1, data.data(), 9, 0, nullptr, uvw, out), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

// ---- refusals and failures -----------------------------------------------------------------------------------

TEST_F(DerivCells, LineCellsEndTheOperationWithTheirRangeOpen)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_LINE, CELL_HEX}, {1, 1, 1}, 2, 1);
    const typed_values values(DTYPE_FLOAT, made->nnodes() * 3, 1, 3);
    for (const named_operator &op : operators) {
        host_calls::reset();
        host_calls::watch watch;
        std::vector<float> out = run(op, made->mesh, values, op.op == grad ? 1 : 3, 0, 0);
        const std::string word = std::string(op.name).substr(4);
        EXPECT_EQ(host_calls::report_texts(), std::vector<std::string>{std::string(op.name) + ": no " + word +
                                                                       " function for cell_ndim=1"});
        EXPECT_EQ(host_calls::seen().pushes.size(), 2u);
        EXPECT_EQ(host_calls::seen().depth, 1);
        // The sums of the first set stand.
        node_values of = {{DTYPE_FLOAT, values.bytes.data()}, 3, 0, nullptr};
        expect_same(out, over_cells(op.op, made->mesh, made->coords, of, made->mesh->cell_count[0]));
    }
    // A set of lines without a cell is no obstacle.
    host_calls::reset();
    made->mesh->cell_count[1] = 0;
    made->mesh->cell_first[2] = made->mesh->cell_first[1];
    run(operators[0], made->mesh, values, 1, 0);
    EXPECT_EQ(host_calls::seen().depth, 0);
}

TEST_F(DerivCells, KindsWithoutShapeDerivativesGiveZero)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_PYR, 2, {2, 1, 1}, 1);
    const typed_values values(DTYPE_FLOAT, made->nnodes() * 3, 1, 3);
    for (const named_operator &op : operators)
        for (float x : run(op, made->mesh, values, op.op == grad ? 1 : 3, 0))
            EXPECT_EQ(x, 0);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(DerivCells, MeshWithoutAnythingIsDone)
{
    mesh_info mesh = {};
    float out = untouched;
    for (const named_operator &op : operators)
        EXPECT_EQ(op.run(&mesh, nullptr, op.op == grad ? 1 : 3, DTYPE_FLOAT, 1, &out, &out), 1);
    EXPECT_EQ(out, untouched);
}

TEST_F(DerivCells, NoDataGivesZero)
{
    const meshes::mesh_ptr made = two_tets();
    std::vector<float> out(18, untouched);
    ASSERT_EQ(UTILgrad_cells(made->mesh, nullptr, 1, DTYPE_FLOAT, 0, nullptr, out.data()), 1);
    for (size_t i = 0; i < 15; ++i)
        EXPECT_EQ(out[i], 0);
}

TEST_F(DerivCells, CoordinatesThatCannotBeHadAreReportedByEveryCorner)
{
    const meshes::mesh_ptr made = two_tets();
    const std::vector<float> data = {0, 1, 0, 0, 9, 0};
    failing_fetches fetches(made->mesh);
    fetches.fail_coords = 1000;
    std::vector<float> out(18, untouched);
    ASSERT_EQ(UTILgrad_cells(made->mesh, data.data(), 1, DTYPE_FLOAT, 0, nullptr, out.data()), 1);
    EXPECT_EQ(host_calls::report_texts(),
              std::vector<std::string>(8, "fld_info: unable to get field coordinates"));
    for (size_t i = 0; i < 15; ++i)
        EXPECT_EQ(out[i], 0);
    EXPECT_TRUE(std::isnan(out[15]));

    // A host that finds them again is asked no more.
    host_calls::reset();
    fetches.fail_coords = 3;
    fetches.coords_calls = 0;
    ASSERT_EQ(UTILgrad_cells(made->mesh, data.data(), 1, DTYPE_FLOAT, 0, nullptr, out.data()), 1);
    EXPECT_EQ(host_calls::report_texts().size(), 3u);
    EXPECT_EQ(fetches.coords_calls, 4);
    EXPECT_EQ(out[0], 1); // node 0 is the fourth corner
}

TEST_F(DerivCells, ConnectListThatCannotBeHadEndsTheOperation)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_HEX}, {1, 1}, 1, 1);
    const typed_values values(DTYPE_FLOAT, made->nnodes() * 3, 1, 3);
    for (int set : {0, 1})
        for (const named_operator &op : operators) {
            host_calls::reset();
            failing_fetches fetches(made->mesh);
            fetches.fail_connect_of_set = set;
            made->mesh->cell_connect[set] = nullptr;
            host_calls::watch watch;
            const std::vector<float> out = run(op, made->mesh, values, op.op == grad ? 1 : 3, 0, 0);
            EXPECT_EQ(host_calls::report_texts(),
                      std::vector<std::string>{"fld_info: unable to get cell set connect list"});
            EXPECT_EQ(host_calls::seen().depth, 0);
            EXPECT_EQ(host_calls::seen().pushes.size(), static_cast<size_t>(set));
            EXPECT_EQ(std::count(out.begin(), out.end(), untouched), 0);
        }
}

TEST_F(DerivCells, UnknownTypeIsToldByEveryCornerAndByTheNullPass)
{
    const meshes::mesh_ptr made = two_tets();
    const std::vector<float> data(18);
    for (int type : {-1, 7}) {
        for (int null_flag : {0, 1}) {
            host_calls::reset();
            std::vector<float> out(18, untouched);
            testing::internal::CaptureStderr();
            EXPECT_EQ(UTILgrad_cells(made->mesh, data.data(), 1, type, null_flag, data.data(), out.data()),
                      null_flag != 0 ? 0 : 1);
            std::string expected;
            for (int corner = 0; corner < 8; ++corner)
                expected += "interpolate: unknown data type\n";
            EXPECT_EQ(testing::internal::GetCapturedStderr(), expected);
            EXPECT_EQ(out[0], 0);
            EXPECT_EQ(host_calls::report_texts(),
                      null_flag != 0 ? std::vector<std::string>{"UTILderiv_null: unknown data type"}
                                     : std::vector<std::string>{});
        }
    }
}

// ---- progress ------------------------------------------------------------------------------------------------

TEST_F(DerivCells, ChecksComeOnEvery257thCellOfASet)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_QUAD, CELL_TET}, {1, 1, 1}, 5, 1);
    ASSERT_EQ(made->mesh->cell_count[0], 750);
    const typed_values values(DTYPE_FLOAT, made->nnodes() * 3, 1, 3);
    for (const named_operator &op : operators) {
        host_calls::reset();
        run(op, made->mesh, values, op.op == grad ? 1 : 3, 0);
        const host_calls::record &seen = host_calls::seen();
        ASSERT_EQ(seen.pushes.size(), 3u);
        EXPECT_EQ(seen.pushes[1].low, 33);
        EXPECT_EQ(seen.pushes[1].high, 66);
        ASSERT_EQ(seen.statuses.size(), 4u);
        for (size_t i = 0; i < 4; ++i) {
            const float c = i % 2 == 0 ? 256 : 513;
            EXPECT_EQ(seen.statuses[i].percent, static_cast<int>(c * static_cast<float>(100.0 / 750)));
            EXPECT_EQ(seen.statuses[i].message, "");
            EXPECT_EQ(seen.statuses[i].depth, 1);
        }
        EXPECT_EQ(seen.depth, 0);
    }
}

TEST_F(DerivCells, InterruptionLeavesTheSumsOfTheCellsBeforeIt)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_TET}, {1, 1}, 5, 1, 0.1);
    const typed_values values(DTYPE_FLOAT, made->nnodes() * 3, 1, 3);
    const node_values of = {{DTYPE_FLOAT, values.bytes.data()}, 3, 0, nullptr};
    const qx_long before[4] = {256, 513, 750 + 256, 750 + 513};
    run(operators[0], made->mesh, values, 1, 0);
    for (const named_operator &op : operators)
        for (int check = 0; check < 4; ++check) {
            host_calls::reset();
            host_calls::watch watch;
            host_calls::interrupt_at(check);
            const std::vector<float> out = run(op, made->mesh, values, op.op == grad ? 1 : 3, 0, 0);
            expect_same(out, over_cells(op.op, made->mesh, made->coords, of, before[check]));
            EXPECT_EQ(host_calls::seen().depth, 0);
            EXPECT_TRUE(host_calls::seen().reports.empty());
        }
}

TEST_F(DerivCells, RefusedMemoryIsAskedForAgain)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_HEX, 1, {2, 2, 2}, 1);
    const meshes::mesh_ptr surface = meshes::cells(CELL_QUAD, 2, {2, 2}, 1);
    int refused = 0;
    for (const meshes::test_mesh *mesh : {made.get(), surface.get()})
        for (int veclen : {3, 300}) {
            const typed_values values(DTYPE_FLOAT, mesh->nnodes() * veclen, 1, veclen);
            const std::vector<float> expected = run(operators[1], mesh->mesh, values, veclen, 0);
            for (int k = 0; k < 20; ++k) {
                host_calls::reset();
                host_calls::watch watch;
                host_calls::fail_allocation(k);
                std::vector<float> out(expected.size());
                EXPECT_EQ(UTILcurl_cells(mesh->mesh, values.bytes.data(), veclen, DTYPE_FLOAT, 0, nullptr,
                                         out.data()),
                          1);
                expect_same(out, expected);
                EXPECT_EQ(watch.live_blocks(), 0);
                refused += static_cast<int>(host_calls::seen().out_of_memory.size());
            }
        }
    EXPECT_GT(refused, 40);
}
