// The host's derivatives: exact for linear fields wherever there are cells, and cell data at nodes by plain means.
#include "support/arrays.hpp"
#include "support/host_calls.hpp"
#include "support/lattices.hpp"
#include "support/meshes.hpp"

#include <skoklana_host.h>

#include <gtest/gtest.h>

namespace {

class HostDerivative : public testing::Test {
  protected:
    void SetUp() override
    {
        host_calls::reset();
        host_clear_interrupt();
    }
    void TearDown() override
    {
        host_clear_interrupt();
        host_set_progress_handler(nullptr, nullptr);
    }
};

using vec = std::array<double, 3>;

// A linear field of three components, u = A x + b.
const vec rows_of_field[3] = {{2, -3, 1}, {0.5, 4, -2}, {-1, 1.5, 3}};

double dot(const vec &a, const vec &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

vec place(const meshes::test_mesh &m, qx_long node)
{
    return {meshes::at(m, node, 0), meshes::at(m, node, 1), meshes::at(m, node, 2)};
}

// What of a gradient lies within the mesh; the whole of it in solids.
struct tangents {
    int ndim = 3;
    vec direction = {0, 0, 1}; // the normal of a plane, or along a line

    vec within(const vec &g) const
    {
        if (ndim == 3) return g;
        const double part = dot(g, direction);
        vec out;
        for (size_t d = 0; d < 3; ++d)
            out[d] = ndim == 2 ? g[d] - part * direction[d] : part * direction[d];
        return out;
    }
};

struct all_derivatives {
    std::vector<float> gradient, curl, divergence;
    std::vector<unsigned char> mask;
};

all_derivatives derive(const meshes::test_mesh &m, const double *null = nullptr, double null_share = 0)
{
    const size_t n = static_cast<size_t>(m.nnodes());
    std::vector<double> scalar, vectors;
    for (size_t node = 0; node < n; ++node) {
        const vec x = place(m, static_cast<qx_long>(node));
        const bool is_null = null != nullptr && static_cast<double>(node * 7919 % 100) < 100 * null_share;
        for (const vec &row : rows_of_field)
            vectors.push_back(is_null ? *null : dot(row, x) + 100);
        scalar.push_back(vectors[3 * node]);
    }
    all_derivatives out = {std::vector<float>(3 * n, 77), std::vector<float>(3 * n, 77),
                           std::vector<float>(n, 77), std::vector<unsigned char>(n, 9)};
    std::vector<unsigned char> other(n, 9);
    const host_array of_scalar = {scalar.data(), DTYPE_DOUBLE, 1, null};
    const host_array of_vector = {vectors.data(), DTYPE_DOUBLE, 3, null};
    EXPECT_EQ(host_gradient(m.field, &of_scalar, out.gradient.data(), out.mask.data()), HOST_DONE)
        << host_error();
    EXPECT_EQ(host_curl(m.field, &of_vector, out.curl.data(), other.data()), HOST_DONE) << host_error();
    EXPECT_EQ(other, out.mask);
    EXPECT_EQ(host_divergence(m.field, &of_vector, out.divergence.data(), other.data()), HOST_DONE)
        << host_error();
    EXPECT_EQ(other, out.mask);
    return out;
}

// Nodes that have a derivative.
qx_long expect_exact(const meshes::test_mesh &m, const all_derivatives &got, const tangents &t, double within)
{
    vec g[3];
    for (size_t c = 0; c < 3; ++c)
        g[c] = t.within(rows_of_field[c]);
    const double expected[7] = {g[0][0],
                                g[0][1],
                                g[0][2],
                                g[2][1] - g[1][2],
                                g[0][2] - g[2][0],
                                g[1][0] - g[0][1],
                                g[0][0] + g[1][1] + g[2][2]};
    qx_long count = 0;
    for (size_t node = 0; node < static_cast<size_t>(m.nnodes()); ++node) {
        count += got.mask[node];
        for (size_t e = 0; e < 7; ++e) {
            const float value = e < 3   ? got.gradient[3 * node + e]
                                : e < 6 ? got.curl[3 * node + e - 3]
                                        : got.divergence[node];
            if (got.mask[node] == 0)
                EXPECT_TRUE(std::isnan(value)) << "node " << node << " entry " << e;
            else
                EXPECT_NEAR(value, expected[e], within) << "node " << node << " entry " << e;
        }
        if (testing::Test::HasFailure()) break;
    }
    return count;
}

// Turns a flat mesh of x and y into a plane in space, or a line along x into one.
tangents tilt(meshes::test_mesh *m, int ndim)
{
    const vec normal = {2.0 / 7, 3.0 / 7, 6.0 / 7};
    for (qx_long node = 0; node < m->nnodes(); ++node) {
        float *x = &m->coords[static_cast<size_t>(3 * node)];
        if (ndim == 2) {
            x[2] = static_cast<float>(-(normal[0] * x[0] + normal[1] * x[1]) / normal[2]);
        } else {
            const float s = x[0];
            for (size_t d = 0; d < 3; ++d)
                x[d] = static_cast<float>(s * normal[d]);
        }
    }
    return {ndim, normal};
}

} // namespace

TEST_F(HostDerivative, LinearFieldsAreExactOnEveryLattice)
{
    for (const std::vector<qx_long> &dims : std::vector<std::vector<qx_long>>{
             {5, 4, 3}, {2, 2, 2}, {9, 2, 7}, {6, 5}, {2, 2}, {7}, {5, 1, 4}, {1, 4, 3}, {4, 1}, {1, 1, 6}}) {
        const lattices::shape shape = {dims, 3};
        SCOPED_TRACE(lattices::text(shape));
        const meshes::mesh_ptr kinds[2] = {lattices::uniform(shape), lattices::rectilinear(shape)};
        tangents t;
        t.ndim = 0;
        for (size_t d = 0; d < dims.size(); ++d)
            t.ndim += dims[d] > 1;
        // Along the only axis there is, or across the one there is not.
        t.direction = {0, 0, 0};
        for (size_t d = 0; d < 3; ++d) {
            const bool there = d < dims.size() && dims[d] > 1;
            if (there == (t.ndim == 1)) t.direction[d] = 1;
        }
        for (const meshes::mesh_ptr &m : kinds)
            EXPECT_EQ(expect_exact(*m, derive(*m), t, 2e-5), m->nnodes());
    }
}

TEST_F(HostDerivative, LinearFieldsAreExactOnCurvilinearSolidsPlanesAndLines)
{
    for (const std::vector<qx_long> &dims : std::vector<std::vector<qx_long>>{{5, 4, 3}, {6, 5}, {7}}) {
        const meshes::mesh_ptr m = lattices::curvilinear({dims, 3});
        tangents t;
        t.ndim = static_cast<int>(dims.size());
        if (t.ndim == 2) {
            // As it stands, in a plane of constant z, then tilted, then standing upright.
            EXPECT_EQ(expect_exact(*m, derive(*m), t, 2e-5), m->nnodes());
            const std::vector<float> level = m->coords;
            const auto keep = [&] { std::copy(level.begin(), level.end(), m->coords.begin()); };
            for (qx_long node = 0; node < m->nnodes(); ++node)
                std::swap(m->coords[static_cast<size_t>(3 * node + 1)],
                          m->coords[static_cast<size_t>(3 * node + 2)]);
            t.direction = {0, 1, 0};
            EXPECT_EQ(expect_exact(*m, derive(*m), t, 2e-5), m->nnodes());
            keep();
        }
        if (t.ndim < 3) t = tilt(m.get(), t.ndim);
        EXPECT_EQ(expect_exact(*m, derive(*m), t, 3e-5), m->nnodes());
    }
}

TEST_F(HostDerivative, LinearFieldsAreExactOnEveryKindOfCell)
{
    for (int kind = 0; kind < CELL_KINDS; ++kind)
        for (int order : {1, 2}) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << " order " << order);
            const meshes::mesh_ptr m = meshes::cells(kind, order, {3, 2, 2}, 5, 0.08);
            const int ndim = cell_kinds[kind].ndim;
            const tangents t = ndim < 3 ? tilt(m.get(), ndim) : tangents();
            EXPECT_EQ(expect_exact(*m, derive(*m), t, 5e-4), m->nnodes());
        }
}

TEST_F(HostDerivative, CellsOfTheHighestDimensionCountWhereSeveralMeet)
{
    const meshes::mesh_ptr m =
        meshes::mixed({CELL_LINE, CELL_QUAD, CELL_HEX, CELL_PYR, CELL_TET}, {1, 1, 1, 1, 2}, 2, 3, 0.05);
    // A line and a quadrilateral take nodes of the hexahedra.
    const qx_long hex_node = m->connect[2][0], other = m->connect[2][6];
    m->connect[0][1] = hex_node;
    m->connect[1][0] = hex_node;
    m->connect[1][2] = other;
    const all_derivatives got = derive(*m);
    for (qx_long node : {hex_node, other})
        for (size_t d = 0; d < 3; ++d)
            EXPECT_NEAR(got.gradient[static_cast<size_t>(3 * node) + d], rows_of_field[0][d], 1e-4);
    // The nodes that these two had before may be left alone.
    EXPECT_GE(std::count(got.mask.begin(), got.mask.end(), 1), m->nnodes() - 3);
}

TEST_F(HostDerivative, NullNodesTakeTheirCellsOutAndNothingElse)
{
    const double null = -5;
    for (double share : {0.05, 0.3}) {
        for (const meshes::mesh_ptr &m :
             {lattices::uniform({{7, 6, 5}, 3}), lattices::rectilinear({{7, 6, 5}, 3}),
              meshes::cells(CELL_TET, 1, {3, 3, 3}, 2, 0.05),
              meshes::cells(CELL_HEX, 2, {2, 2, 3}, 2, 0.05)}) {
            const qx_long count = expect_exact(*m, derive(*m, &null, share), {}, 5e-4);
            EXPECT_LT(count, m->nnodes());
            EXPECT_GE(count, share < 0.1 ? 1 : 0);
        }
    }
}

TEST_F(HostDerivative, NodesWithoutCellsHaveNone)
{
    for (int kind : {CELL_TET, CELL_LINE}) {
        const std::vector<qx_long> cell =
            kind == CELL_TET ? std::vector<qx_long>{1, 2, 3, 0} : std::vector<qx_long>{0, 1};
        const meshes::mesh_ptr m =
            meshes::from_cells(3, {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 5, 5, 5}, {kind}, {1}, {cell});
        const all_derivatives got = derive(*m);
        EXPECT_EQ(got.mask[0], 1);
        EXPECT_EQ(got.mask[4], 0);
        EXPECT_TRUE(std::isnan(got.gradient[12]));
    }
}

TEST_F(HostDerivative, LargeOffsetsLoseNothingOnSurfaces)
{
    const meshes::mesh_ptr m = meshes::cells(CELL_QUAD, 1, {4, 4}, 2, 0.1);
    std::vector<qx_long> data;
    for (qx_long node = 0; node < m->nnodes(); ++node)
        data.push_back((qx_long{1} << 40) + std::lround(4000 * meshes::at(*m, node, 0)));
    std::vector<float> out(data.size() * 3);
    const host_array values = {data.data(), DTYPE_QX_LONG, 2, nullptr};
    EXPECT_EQ(host_gradient(m->field, &values, out.data(), nullptr), HOST_FAILED);
    const meshes::mesh_ptr lines = meshes::cells(CELL_LINE, 2, {40}, 2, 0.1);
    std::vector<qx_long> along;
    for (qx_long node = 0; node < lines->nnodes(); ++node)
        along.push_back((qx_long{1} << 40) + std::lround(1e6 * meshes::at(*lines, node, 0)));
    std::vector<float> made(along.size() * 3);
    const host_array of_lines = {along.data(), DTYPE_QX_LONG, 1, nullptr};
    ASSERT_EQ(host_gradient(lines->field, &of_lines, made.data(), nullptr), HOST_DONE);
    for (size_t i = 0; i < made.size(); i += 3)
        EXPECT_NEAR(made[i], 1e6, 200);
}

TEST_F(HostDerivative, VectorsOfTwoAreTakenWithoutThird)
{
    const meshes::mesh_ptr m = lattices::uniform({{4, 4}, 2});
    std::vector<float> data, curl(48), div(16);
    for (qx_long node = 0; node < 16; ++node) {
        const float x = static_cast<float>(meshes::at(*m, node, 0)),
                    y = static_cast<float>(meshes::at(*m, node, 1));
        data.insert(data.end(), {2 * x + 3 * y, 5 * x + 7 * y});
    }
    const host_array values = {data.data(), DTYPE_FLOAT, 2, nullptr};
    ASSERT_EQ(host_curl(m->field, &values, curl.data(), nullptr), HOST_DONE);
    ASSERT_EQ(host_divergence(m->field, &values, div.data(), nullptr), HOST_DONE);
    for (size_t node = 0; node < 16; ++node) {
        EXPECT_NEAR(curl[3 * node], 0, 1e-5);
        EXPECT_NEAR(curl[3 * node + 2], 2, 2e-5);
        EXPECT_NEAR(div[node], 9, 2e-5);
    }
}

TEST_F(HostDerivative, WrongArgumentsAreNamed)
{
    const meshes::mesh_ptr m = lattices::uniform({{3, 3}, 2});
    const float data[27] = {};
    float out[27];
    const host_array scalar = {data, DTYPE_FLOAT, 1, nullptr}, vectors = {data, DTYPE_FLOAT, 3, nullptr},
                     strange = {data, 9, 1, nullptr}, none = {nullptr, DTYPE_FLOAT, 1, nullptr};
    EXPECT_EQ(host_gradient(nullptr, &scalar, out, nullptr), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_gradient: field is NULL");
    EXPECT_EQ(host_gradient(m->field, nullptr, out, nullptr), HOST_FAILED);
    EXPECT_EQ(host_gradient(m->field, &none, out, nullptr), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_gradient: values is NULL");
    EXPECT_EQ(host_gradient(m->field, &scalar, nullptr, nullptr), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_gradient: out is NULL");
    EXPECT_EQ(host_gradient(m->field, &strange, out, nullptr), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_gradient: 9 is no element type");
    EXPECT_EQ(host_gradient(m->field, &vectors, out, nullptr), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_gradient: rows of 1 are wanted, and these have 3");
    EXPECT_EQ(host_curl(m->field, &scalar, out, nullptr), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_curl: rows of 2 or 3 are wanted, and these have 1");
    EXPECT_EQ(host_divergence(m->field, &scalar, out, nullptr), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_divergence: rows of 2 or 3 are wanted, and these have 1");
    host_cell_to_node_options options = {sizeof options, 3};
    EXPECT_EQ(host_cell_to_node(m->field, &scalar, &options, out, nullptr), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_cell_to_node: there is no weight 3");
    EXPECT_EQ(host_cell_to_node(m->field, &none, nullptr, out, nullptr), HOST_FAILED);
    EXPECT_STREQ(host_error(), "host_cell_to_node: values is NULL");
    EXPECT_EQ(host_cell_to_node(m->field, &strange, nullptr, out, nullptr), HOST_FAILED);
    EXPECT_EQ(host_cell_to_node(m->field, &scalar, nullptr, nullptr, nullptr), HOST_FAILED);
}

TEST_F(HostDerivative, StopsAtItsChecks)
{
    host_set_progress_handler([](void *, int, const char *) { return 1; }, nullptr);
    const meshes::mesh_ptr made[3] = {lattices::uniform({{20, 3, 3}, 3}),
                                      meshes::cells(CELL_LINE, 1, {40}, 1),
                                      meshes::cells(CELL_TET, 1, {4, 4, 4}, 1)};
    for (const meshes::mesh_ptr &m : made) {
        const std::vector<double> data(static_cast<size_t>(std::max(m->nnodes(), m->mesh->ncells)));
        std::vector<float> out(3 * data.size());
        std::vector<double> means(data.size());
        const host_array values = {data.data(), DTYPE_DOUBLE, 1, nullptr};
        EXPECT_EQ(host_gradient(m->field, &values, out.data(), nullptr), HOST_STOPPED);
        EXPECT_EQ(host_cell_to_node(m->field, &values, nullptr, means.data(), nullptr), HOST_STOPPED);
    }
}

// ---- cell data at nodes --------------------------------------------------------------------------------------

template <typename T> class HostNodeMeans : public HostDerivative {
};
TYPED_TEST_SUITE(HostNodeMeans, arrays::all_types);

TYPED_TEST(HostNodeMeans, AreThoseOfTheCellsAroundInDouble)
{
    using T = TypeParam;
    const T null = static_cast<T>(99);
    for (const meshes::mesh_ptr &m :
         {meshes::mixed({CELL_TET, CELL_QUAD, CELL_HEX}, {1, 1, 2}, 2, 1, 0.1),
          lattices::uniform({{5, 1, 4}, 3}), lattices::curvilinear({{4, 3, 3}, 3})})
        for (int weight : {HOST_WEIGHT_NONE, HOST_WEIGHT_DISTANCE})
            for (const T *null_value : {static_cast<const T *>(nullptr), &null}) {
                // The host's lattices are numbered as cells of a set that names their nodes: see the mesh.
                const size_t n = static_cast<size_t>(m->nnodes());
                std::vector<std::vector<qx_long>> cells;
                if (m->ndim == 0) {
                    for (int s = 0; s < m->mesh->ncell_sets; ++s)
                        for (qx_long c = 0; c < m->mesh->cell_count[s]; ++c) {
                            const long k = m->mesh->cell_nnodes[s];
                            const auto row = m->connect[static_cast<size_t>(s)].begin() + c * k;
                            cells.emplace_back(row, row + k);
                        }
                } else {
                    std::vector<qx_long> dims;
                    for (qx_long d : m->dims)
                        if (d > 1) dims.push_back(d);
                    const qx_long plane = dims.size() > 2 ? dims[0] * dims[1] : 0;
                    for (qx_long low : lattices::lowest_nodes(dims)) {
                        cells.emplace_back();
                        for (qx_long up :
                             dims.size() > 2 ? std::vector<qx_long>{0, plane} : std::vector<qx_long>{0})
                            for (qx_long corner : {qx_long{1}, qx_long{0}, dims[0], dims[0] + 1})
                                cells.back().push_back(low + up + corner);
                    }
                }
                std::mt19937_64 random(5);
                std::vector<T> data;
                for (size_t i = 0; i < 2 * cells.size(); ++i)
                    data.push_back(random() % 6 == 0 ? null : static_cast<T>(random() % 120));
                std::vector<double> sums(2 * n), weights(n);
                for (size_t c = 0; c < cells.size(); ++c) {
                    if (null_value != nullptr && data[2 * c] == null) continue;
                    vec middle = {0, 0, 0};
                    for (qx_long node : cells[c])
                        for (size_t d = 0; d < 3; ++d)
                            middle[d] += place(*m, node)[d] / static_cast<double>(cells[c].size());
                    for (qx_long node : cells[c]) {
                        const vec x = place(*m, node),
                                  off = {x[0] - middle[0], x[1] - middle[1], x[2] - middle[2]};
                        const double w = weight == HOST_WEIGHT_NONE ? 1 : 1 / std::sqrt(dot(off, off));
                        const size_t at = static_cast<size_t>(node);
                        weights[at] += w;
                        for (size_t e = 0; e < 2; ++e)
                            sums[2 * at + e] += w * static_cast<double>(data[2 * c + e]);
                    }
                }
                std::vector<T> out(2 * n, T{7});
                std::vector<unsigned char> mask(n, 9);
                const host_array values = {data.data(), arrays::dtype_of<T>, 2, null_value};
                const host_cell_to_node_options options = {sizeof options, weight};
                ASSERT_EQ(host_cell_to_node(m->field, &values, &options, out.data(), mask.data()), HOST_DONE);
                for (size_t node = 0; node < n; ++node) {
                    EXPECT_EQ(mask[node], weights[node] > 0);
                    for (size_t e = 0; e < 2; ++e) {
                        const double exact = weights[node] > 0 ? sums[2 * node + e] / weights[node] : 0;
                        const double got = static_cast<double>(out[2 * node + e]);
                        EXPECT_NEAR(got, exact, std::is_integral_v<T> ? 0.5 + 1e-9 : 1e-4);
                    }
                }
            }
}

TEST_F(HostDerivative, NodeMeansRoundToNearestAndDoNotOverflow)
{
    const meshes::mesh_ptr m = meshes::from_cells(1, {0, 1, 2}, {CELL_LINE}, {1}, {{0, 1, 1, 2}});
    const unsigned char bytes[2] = {200, 201};
    unsigned char out[3];
    const host_array of_bytes = {bytes, DTYPE_BYTE, 1, nullptr};
    ASSERT_EQ(host_cell_to_node(m->field, &of_bytes, nullptr, out, nullptr), HOST_DONE);
    EXPECT_EQ(out[0], 200);
    EXPECT_EQ(out[1], 200); // of 200.5, to even
    EXPECT_EQ(out[2], 201);
    const short shorts[2] = {-7, -8}, null = -8;
    short means[3];
    const host_array of_shorts = {shorts, DTYPE_SHORT, 1, &null};
    unsigned char mask[3];
    ASSERT_EQ(host_cell_to_node(m->field, &of_shorts, nullptr, means, mask), HOST_DONE);
    EXPECT_EQ(means[1], -7);
    EXPECT_EQ(means[2], 0);
    EXPECT_EQ(mask[2], 0);
}

TEST_F(HostDerivative, NodeInTheMiddleOfACellTakesThatCell)
{
    const meshes::mesh_ptr m = meshes::from_cells(1, {0, 4}, {CELL_LINE}, {1}, {{0, 1, 1, 1}});
    const double data[2] = {8, 10};
    double out[2];
    const host_array values = {data, DTYPE_DOUBLE, 1, nullptr};
    const host_cell_to_node_options options = {sizeof options, HOST_WEIGHT_DISTANCE};
    ASSERT_EQ(host_cell_to_node(m->field, &values, &options, out, nullptr), HOST_DONE);
    EXPECT_EQ(out[0], 8);
    EXPECT_EQ(out[1], 10);
}
