#include "support/deriv_reference.hpp"
#include "support/fetches.hpp"
#include "support/host_calls.hpp"
#include "support/lattices.hpp"
#include "support/meshes.hpp"

#include <skoklana/deriv.h>

#include <gtest/gtest.h>

using namespace deriv_reference;

namespace {

constexpr float untouched = 77;

class DerivLattice : public testing::Test {
  protected:
    void SetUp() override { host_calls::reset(); }
};

// Elements of any type, the ends of the integer types among them.
struct typed_values {
    int type;
    std::vector<qx_long> bytes;

    typed_values(int type_, qx_long count, uint64_t seed) : type(type_)
    {
        bytes.resize(static_cast<size_t>(count) + 1);
        with_dtype_silent(type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            std::mt19937_64 random(seed);
            T *values = reinterpret_cast<T *>(bytes.data());
            for (qx_long i = 0; i < count; ++i) {
                const uint64_t x = random();
                values[i] = static_cast<T>(static_cast<double>(x % 20011) / 200.0);
                if (std::is_integral_v<T> && x % 7 == 0) values[i] = static_cast<T>(x);
                if (x % 31 == 0) values[i] = std::numeric_limits<T>::max();
                if (x % 37 == 0) values[i] = std::numeric_limits<T>::lowest();
            }
            return 1;
        });
    }
};

lattice make_lattice(lattice_kind kind, const std::vector<qx_long> &dims, int nspace, uint64_t seed)
{
    const int stride = dims.size() == 2 ? nspace : 3;
    qx_long rows = 2;
    if (kind == curved) rows = lattices::product(dims);
    if (kind == rectilinear) rows = std::accumulate(dims.begin(), dims.end(), qx_long{0});
    lattice made = {kind, dims, stride, {}};
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<float> spread(-4, 9);
    for (qx_long i = 0; i < rows * stride; ++i)
        made.places.push_back(spread(random));
    return made;
}

int run_kernel(operation op, const lattice &l, const array &data, float *out)
{
    const qx_long *dims = l.dims.data();
    const float *places = l.places.data();
    using in_space = int (*)(const qx_long *, const float *, const void *, int, float *);
    using in_plane = int (*)(const qx_long *, int, const float *, const void *, int, float *);
    static const in_space space[3][3] = {{UTILgrad_struct_3d, UTILgrad_unif_3d, UTILgrad_rect_3d},
                                         {UTILcurl_struct_3d, UTILcurl_unif_3d, UTILcurl_rect_3d},
                                         {UTILdiv_struct_3d, UTILdiv_unif_3d, UTILdiv_rect_3d}};
    static const in_plane plane[3] = {UTILgrad_struct_2d, UTILgrad_unif_2d, UTILgrad_rect_2d};
    if (l.dims.size() == 2) return plane[l.kind](dims, l.stride, places, data.data, data.type, out);
    return space[op][l.kind](dims, places, data.data, data.type, out);
}

std::vector<qx_long> position_of(const lattice &l, qx_long node)
{
    std::vector<qx_long> at;
    for (qx_long n : l.dims) {
        at.push_back(node % n);
        node /= n;
    }
    return at;
}

bool same_float(float a, float b)
{
    return memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

// Nodes at positions below columns on axis 0. The number of nodes compared.
qx_long expect_reference(operation op, const lattice &l, const array &data, const std::vector<float> &out,
                         qx_long columns)
{
    const int entries = entries_of(op);
    qx_long compared = 0;
    for (qx_long node = 0; node < lattices::product(l.dims); ++node) {
        const std::vector<qx_long> at = position_of(l, node);
        float row[3];
        if (at[0] >= columns || !at_node(op, l, data, at, row)) continue;
        ++compared;
        for (int e = 0; e < entries; ++e) {
            const float got = out[static_cast<size_t>(node * entries + e)];
            EXPECT_TRUE(same_float(got, row[e]))
                << "node " << node << " entry " << e << ": " << got << " for " << row[e];
            if (testing::Test::HasFailure()) return compared;
        }
    }
    return compared;
}

void compare_kernel(operation op, const lattice &l, int type, uint64_t seed)
{
    SCOPED_TRACE(testing::Message() << "operator " << op << ", kind " << l.kind << ", type " << type << ", "
                                    << lattices::text({l.dims, l.stride}));
    const qx_long nnodes = lattices::product(l.dims);
    const int ncomp = op == grad ? 1 : 3;
    // To the byte, so that a sanitizer sees what lies behind.
    const typed_values values(type, nnodes * ncomp, seed);
    std::vector<float> out(static_cast<size_t>(nnodes * entries_of(op)), untouched);
    const array data = {type, values.bytes.data()};
    const int result = run_kernel(op, l, data, out.data());
    EXPECT_EQ(result, is_refused(l) ? 0 : 1);
    if (result == 1)
        expect_reference(op, l, data, out, l.dims[0]);
    else
        EXPECT_EQ(out, std::vector<float>(out.size(), untouched));
}

const lattice_kind kinds[] = {curved, uniform, rectilinear};

} // namespace

// ---- against the reference -----------------------------------------------------------------------------------

TEST_F(DerivLattice, KernelsInSpaceAgreeWithTheReference)
{
    const std::vector<std::vector<qx_long>> shapes = {{2, 2, 2},   {5, 3, 4},  {1, 4, 3},   {4, 1, 3},
                                                      {4, 3, 1},   {1, 1, 1},  {130, 2, 3}, {9, 7, 2},
                                                      {128, 3, 2}, {257, 2, 2}};
    uint64_t seed = 1;
    for (const std::vector<qx_long> &dims : shapes)
        for (lattice_kind kind : kinds)
            for (operation op : {grad, curl, divergence})
                for (int type = 0; type <= 6; ++type)
                    compare_kernel(op, make_lattice(kind, dims, 3, ++seed), type, 7);
}

TEST_F(DerivLattice, KernelsInPlanesAgreeWithTheReference)
{
    uint64_t seed = 1;
    for (const std::vector<qx_long> &dims :
         std::vector<std::vector<qx_long>>{{2, 2}, {5, 4}, {1, 4}, {4, 1}, {130, 3}, {9, 40}})
        for (lattice_kind kind : kinds)
            for (int nspace : {2, 3})
                for (int type = 0; type <= 6; ++type)
                    compare_kernel(grad, make_lattice(kind, dims, nspace, ++seed), type, 7);
}

TEST_F(DerivLattice, UniformAxesWithoutLengthAreRefused)
{
    for (size_t axis : {0, 1, 2}) {
        lattice l = make_lattice(uniform, {3, 3, 3}, 3, 1);
        l.places[3 + axis] = l.places[axis];
        EXPECT_TRUE(is_refused(l));
        for (operation op : {grad, curl, divergence})
            compare_kernel(op, l, DTYPE_FLOAT, 2);
    }
}

TEST_F(DerivLattice, DegenerateNodesOfACurvedMeshAreExactlyZero)
{
    for (size_t ndim : {2, 3}) {
        lattice l = make_lattice(curved, std::vector<qx_long>(ndim, 5), 3, 1);
        // All of it in the plane x = y, so that nothing has an area seen from above, or a volume.
        for (size_t i = 0; i < l.places.size(); i += static_cast<size_t>(l.stride))
            l.places[i + 1] = l.places[i];
        const qx_long nnodes = lattices::product(l.dims);
        const typed_values values(DTYPE_FLOAT, nnodes * 3, 3);
        std::vector<float> modest(static_cast<size_t>(nnodes * 3));
        for (size_t i = 0; i < modest.size(); ++i)
            modest[i] = static_cast<float>(i % 13);
        for (operation op : {grad, curl, divergence}) {
            if (ndim == 2 && op != grad) continue;
            std::vector<float> out(static_cast<size_t>(nnodes * entries_of(op)), untouched);
            ASSERT_EQ(run_kernel(op, l, {DTYPE_FLOAT, modest.data()}, out.data()), 1);
            for (float x : out)
                EXPECT_EQ(x, 0);
        }
    }
}

TEST_F(DerivLattice, IntegerDifferencesWrapRound)
{
    lattice l = {uniform, {2, 2}, 2, {0, 0, 1, 1}};
    const int ints[4] = {std::numeric_limits<int>::max(), -1, 0, 0};
    const qx_long longs[4] = {std::numeric_limits<qx_long>::min(), 1, 0, 0};
    const unsigned char bytes[4] = {255, 0, 3, 1};
    float out[12];
    ASSERT_EQ(run_kernel(grad, l, {DTYPE_INT, ints}, out), 1);
    EXPECT_EQ(out[0], -2147483648.0f); // -1 - max
    ASSERT_EQ(run_kernel(grad, l, {DTYPE_QX_LONG, longs}, out), 1);
    EXPECT_EQ(out[0], -9223372036854775808.0f); // 1 - min wraps to min + 1
    ASSERT_EQ(run_kernel(grad, l, {DTYPE_BYTE, bytes}, out), 1);
    EXPECT_EQ(out[0], -255);
    EXPECT_EQ(out[1], -252);
    EXPECT_EQ(out[2], 0);
}

// ---- against analysis ----------------------------------------------------------------------------------------

namespace {

// Values of a x + b y + c z at the nodes of a mesh.
std::vector<float> linear(const meshes::test_mesh &m, float a, float b, float c)
{
    return meshes::field_of<float>(m, [=](double x, double y, double z) { return a * x + b * y + c * z; });
}

std::vector<float> linear_vectors(const meshes::test_mesh &m)
{
    const std::vector<float> u = linear(m, 1, 2, 5), v = linear(m, 3, 2, -1), w = linear(m, 7, 4, 3);
    std::vector<float> all;
    for (size_t i = 0; i < u.size(); ++i)
        all.insert(all.end(), {u[i], v[i], w[i]});
    return all;
}

} // namespace

TEST_F(DerivLattice, LinearFieldsInSpaceAreExactButAtTheEndOfARectilinearAxis)
{
    const lattices::shape shape = {{6, 5, 4}, 3};
    const meshes::mesh_ptr made[3] = {lattices::curvilinear(shape), lattices::uniform(shape),
                                      lattices::rectilinear(shape)};
    for (int kind = 0; kind < 3; ++kind) {
        const meshes::test_mesh &m = *made[kind];
        const std::vector<float> scalar = linear(m, 2, -3, 1), vectors = linear_vectors(m);
        const size_t n = scalar.size();
        std::vector<float> gradient(3 * n), curls(3 * n), divs(n);
        ASSERT_EQ(UTILgrad(m.mesh, scalar.data(), 1, DTYPE_FLOAT, 0, nullptr, gradient.data()), 1);
        ASSERT_EQ(UTILcurl(m.mesh, vectors.data(), 3, DTYPE_FLOAT, 0, nullptr, curls.data()), 1);
        ASSERT_EQ(UTILdiv(m.mesh, vectors.data(), 3, DTYPE_FLOAT, 0, nullptr, divs.data()), 1);
        int off = 0;
        for (size_t i = 0; i < n; ++i) {
            const bool odd = kind == 2 && i % 6 == 5;
            const float expected[7] = {2, -3, 1, 5, -2, 1, 6};
            for (size_t e = 0; e < 7; ++e) {
                const float got = e < 3 ? gradient[3 * i + e] : e < 6 ? curls[3 * i + e - 3] : divs[i];
                // What is taken along x: the gradient's x, curls about y and z, the divergence.
                const bool along_x = e == 0 || e > 3;
                if (odd && along_x)
                    off += std::fabs(got - expected[e]) > 0.01;
                else
                    EXPECT_NEAR(got, expected[e], 3e-4) << "kind " << kind << " node " << i << " entry " << e;
            }
        }
        EXPECT_EQ(off > 0, kind == 2);
    }
}

TEST_F(DerivLattice, RectilinearPlanesGiveProductsWithTheInterval)
{
    const float h = 0.5f, slope = 3;
    const qx_long dims[2] = {5, 4};
    std::vector<float> points, data;
    for (int axis = 0; axis < 2; ++axis)
        for (qx_long i = 0; i < dims[axis]; ++i) {
            float row[2] = {0, 0};
            row[axis] = h * static_cast<float>(i);
            points.insert(points.end(), row, row + 2);
        }
    for (qx_long node = 0; node < 20; ++node)
        data.push_back(slope * h * static_cast<float>(node % 5) + slope * h * static_cast<float>(node / 5));
    std::vector<float> out(60);
    ASSERT_EQ(UTILgrad_rect_2d(dims, 2, points.data(), data.data(), DTYPE_FLOAT, out.data()), 1);
    for (size_t node = 0; node < 20; ++node) {
        const size_t i = node % 5, j = node / 5;
        // The last node of axis 0 takes the difference from 0, the y of the row before.
        const float x = i == 4 ? slope * h * (4 * h) : i == 0 ? slope * h * h : 4 * slope * h * h;
        EXPECT_FLOAT_EQ(out[3 * node], x);
        EXPECT_FLOAT_EQ(out[3 * node + 1], j == 0 || j == 3 ? slope * h * h : 4 * slope * h * h);
        EXPECT_EQ(out[3 * node + 2], 0);
    }
}

TEST_F(DerivLattice, AxesOfTwoNodesHaveEqualDerivativesAtBoth)
{
    const lattices::shape shape = {{2, 2, 2}, 3};
    const meshes::mesh_ptr m = lattices::uniform(shape);
    const typed_values values(DTYPE_SHORT, 8, 4);
    std::vector<float> out(24);
    ASSERT_EQ(UTILgrad(m->mesh, values.bytes.data(), 1, DTYPE_SHORT, 0, nullptr, out.data()), 1);
    for (size_t node = 0; node < 8; ++node)
        for (size_t axis = 0; axis < 3; ++axis)
            EXPECT_EQ(out[3 * node + axis], out[3 * (node ^ (size_t{1} << axis)) + axis]);
}

// ---- the forms of a mesh -------------------------------------------------------------------------------------

namespace {

struct form {
    const char *name;
    operation op;
    lattice_kind kind;
    int (*run)(mesh_info *, const void *, int, int, int, const void *, float *);
};

const form forms[] = {
    {"UTILgrad", grad, curved, UTILgrad_struct},       {"UTILgrad", grad, uniform, UTILgrad_unif},
    {"UTILgrad", grad, rectilinear, UTILgrad_rect},    {"UTILcurl", curl, curved, UTILcurl_struct},
    {"UTILcurl", curl, uniform, UTILcurl_unif},        {"UTILcurl", curl, rectilinear, UTILcurl_rect},
    {"UTILdiv", divergence, curved, UTILdiv_struct},   {"UTILdiv", divergence, uniform, UTILdiv_unif},
    {"UTILdiv", divergence, rectilinear, UTILdiv_rect}};

meshes::mesh_ptr mesh_of_kind(lattice_kind kind, const std::vector<qx_long> &dims, int nspace = 3)
{
    const lattices::shape shape = {dims, nspace};
    if (kind == curved) return lattices::curvilinear(shape);
    return kind == uniform ? lattices::uniform(shape) : lattices::rectilinear(shape);
}

std::string word_of(const form &f)
{
    return std::string(f.name).substr(4);
}

using texts = std::vector<std::string>;

} // namespace

TEST_F(DerivLattice, FormsRunTheirKernels)
{
    for (const form &f : forms)
        for (const std::vector<qx_long> &dims : std::vector<std::vector<qx_long>>{{5, 4, 3}, {6, 5}}) {
            if (dims.size() == 2 && f.op != grad) continue;
            const meshes::mesh_ptr m = mesh_of_kind(f.kind, dims);
            const int ncomp = f.op == grad ? 1 : 3;
            const typed_values values(DTYPE_DOUBLE, m->nnodes() * ncomp, 3);
            std::vector<float> out(static_cast<size_t>(m->nnodes() * entries_of(f.op)));
            ASSERT_EQ(f.run(m->mesh, values.bytes.data(), ncomp, DTYPE_DOUBLE, 0, nullptr, out.data()), 1);
            const float *places = f.kind == curved ? m->mesh->coords : m->mesh->points;
            qx_long rows = f.kind == curved ? m->nnodes() : f.kind == uniform ? 2 : 0;
            if (f.kind == rectilinear) rows = std::accumulate(dims.begin(), dims.end(), qx_long{0});
            const lattice l = {f.kind, dims, 3, std::vector<float>(places, places + rows * 3)};
            EXPECT_EQ(expect_reference(f.op, l, {DTYPE_DOUBLE, values.bytes.data()}, out, dims[0]),
                      m->nnodes());
            // The mesh's methods lead here.
            const auto method = f.op == grad   ? m->mesh->methods->grad_func
                                : f.op == curl ? m->mesh->methods->curl_func
                                               : m->mesh->methods->div_func;
            EXPECT_EQ(method, f.run);
        }
}

TEST_F(DerivLattice, WrongRowLengthsAreRefusedFirst)
{
    const float data[30] = {};
    float out[3] = {untouched, untouched, untouched};
    for (const form &f : forms) {
        const meshes::mesh_ptr m = mesh_of_kind(f.kind, {2});
        failing_fetches fetches(m->mesh);
        const int wanted = f.op == grad ? 1 : 3;
        for (int veclen : {2, 4, wanted == 1 ? 3 : 1}) {
            host_calls::reset();
            EXPECT_EQ(f.run(m->mesh, data, veclen, 9, 1, data, out), 0);
            EXPECT_EQ(host_calls::report_texts(),
                      texts{f.name + std::string(": veclen must be ") + std::to_string(wanted)});
        }
        EXPECT_EQ(fetches.coords_calls + fetches.points_calls, 0);
    }
    EXPECT_EQ(out[0], untouched);
}

TEST_F(DerivLattice, TooFewAxesAreRefused)
{
    const float data[60] = {};
    float out[60] = {untouched};
    for (const form &f : forms)
        for (int ndim = 1; ndim <= (f.op == grad ? 1 : 2); ++ndim) {
            const meshes::mesh_ptr m =
                mesh_of_kind(f.kind, std::vector<qx_long>(static_cast<size_t>(ndim), 3));
            failing_fetches fetches(m->mesh);
            host_calls::reset();
            EXPECT_EQ(f.run(m->mesh, data, f.op == grad ? 1 : 3, DTYPE_FLOAT, 0, nullptr, out), 0);
            EXPECT_EQ(host_calls::report_texts(), texts{f.name + (": no " + word_of(f)) +
                                                        " function for ndim=" + (f.op == grad ? "1" : "2")});
            // Only the gradient has asked the host by then.
            EXPECT_EQ(fetches.coords_calls + fetches.points_calls, f.op == grad ? 1 : 0);
        }
    EXPECT_EQ(out[0], untouched);
}

TEST_F(DerivLattice, PlacesThatCannotBeHadAreReported)
{
    const float data[60] = {};
    float out[60] = {untouched};
    for (const form &f : forms) {
        // Before the number of axes is looked at, by the gradient.
        const meshes::mesh_ptr m =
            mesh_of_kind(f.kind, f.op == grad ? std::vector<qx_long>{3} : std::vector<qx_long>{2, 2, 2});
        failing_fetches fetches(m->mesh);
        fetches.fail_coords = fetches.fail_points = 1;
        host_calls::reset();
        EXPECT_EQ(f.run(m->mesh, data, f.op == grad ? 1 : 3, DTYPE_FLOAT, 1, data, out), 0);
        EXPECT_EQ(host_calls::report_texts(),
                  texts{f.kind == curved ? "fld_info: unable to get field coordinates"
                                         : "fld_info: unable to get field points"});
    }
    EXPECT_EQ(out[0], untouched);
}

TEST_F(DerivLattice, UnknownTypesAreReportedAndOnlyTheCurvedGradientFails)
{
    for (const form &f : forms)
        for (int type : {-1, 7})
            for (int null_flag : {0, 1}) {
                const meshes::mesh_ptr m = mesh_of_kind(f.kind, {2, 2, 2});
                const float data[24] = {};
                std::vector<float> out(24, untouched);
                host_calls::reset();
                const bool fails = f.run == UTILgrad_struct || null_flag != 0;
                EXPECT_EQ(f.run(m->mesh, data, f.op == grad ? 1 : 3, type, null_flag, data, out.data()),
                          fails ? 0 : 1);
                texts expected = {f.name + std::string(": unknown data type")};
                if (null_flag != 0 && f.run != UTILgrad_struct)
                    expected.push_back("UTILderiv_null: unknown data type");
                EXPECT_EQ(host_calls::report_texts(), expected);
                EXPECT_EQ(out, std::vector<float>(24, untouched));
            }
}

TEST_F(DerivLattice, RefusedUniformMeshesCountAsDone)
{
    for (const form &f : forms) {
        if (f.kind != uniform) continue;
        const meshes::mesh_ptr m = mesh_of_kind(uniform, {3, 1, 3});
        const std::vector<float> data(27, 5);
        const float null = 5;
        std::vector<float> out(27, untouched);
        EXPECT_EQ(f.run(m->mesh, data.data(), f.op == grad ? 1 : 3, DTYPE_FLOAT, 0, nullptr, out.data()), 1);
        EXPECT_EQ(out, std::vector<float>(27, untouched));
        // The null pass still comes.
        EXPECT_EQ(f.run(m->mesh, data.data(), f.op == grad ? 1 : 3, DTYPE_FLOAT, 1, &null, out.data()), 1);
        EXPECT_EQ(std::count(out.begin(), out.end(), 0.0f), 9 * entries_of(f.op));
        EXPECT_TRUE(host_calls::seen().reports.empty());
    }
}

TEST_F(DerivLattice, NullNodesBlankTheirNeighbourhood)
{
    for (const form &f : forms) {
        const meshes::mesh_ptr m = mesh_of_kind(f.kind, {5, 4, 4});
        const int ncomp = f.op == grad ? 1 : 3, entries = entries_of(f.op);
        std::vector<double> data(static_cast<size_t>(m->nnodes() * ncomp));
        for (size_t i = 0; i < data.size(); ++i)
            data[i] = static_cast<double>(i * i % 101) + 1;
        data[static_cast<size_t>(0 * ncomp)] = -1;                      // a corner
        if (ncomp == 3) data[static_cast<size_t>(40 * ncomp + 1)] = -1; // no null: not the first component
        const double null = -1;
        std::vector<float> with(static_cast<size_t>(m->nnodes() * entries)), without = with;
        ASSERT_EQ(f.run(m->mesh, data.data(), ncomp, DTYPE_DOUBLE, 0, &null, without.data()), 1);
        ASSERT_EQ(f.run(m->mesh, data.data(), ncomp, DTYPE_DOUBLE, 1, &null, with.data()), 1);
        for (qx_long node = 0; node < m->nnodes(); ++node) {
            const bool blank = node % 5 < 2 && node / 5 % 4 < 2 && node / 20 < 2;
            for (int e = 0; e < entries; ++e) {
                const size_t at = static_cast<size_t>(node * entries + e);
                EXPECT_EQ(with[at], blank ? 0 : without[at]);
            }
        }
    }
}

// ---- progress ------------------------------------------------------------------------------------------------

TEST_F(DerivLattice, ChecksComeBeforeEachEighthPositionOfAxis0)
{
    for (const qx_long n : {2, 7, 8, 9, 16, 30})
        for (const std::vector<qx_long> &dims : std::vector<std::vector<qx_long>>{{n, 2, 3}, {n, 5}})
            for (lattice_kind kind : kinds) {
                const lattice l = make_lattice(kind, dims, 3, 1);
                const typed_values values(DTYPE_FLOAT, lattices::product(dims), 1);
                std::vector<float> out(static_cast<size_t>(lattices::product(dims) * 3));
                host_calls::reset();
                ASSERT_EQ(run_kernel(grad, l, {DTYPE_FLOAT, values.bytes.data()}, out.data()), 1);
                std::vector<int> expected, got;
                for (qx_long i = 0; i < n; ++i)
                    if ((i & 7) == 7)
                        expected.push_back(static_cast<int>(
                            static_cast<float>(i) * static_cast<float>(100.0 / static_cast<double>(n - 1))));
                for (const host_calls::status &s : host_calls::seen().statuses) {
                    got.push_back(s.percent);
                    EXPECT_EQ(s.message, "");
                    EXPECT_EQ(s.depth, 0);
                }
                EXPECT_EQ(got, expected);
            }
}

TEST_F(DerivLattice, StopLeavesTheColumnsBeforeItDone)
{
    for (const std::vector<qx_long> &dims :
         std::vector<std::vector<qx_long>>{{30, 3, 5}, {30, 7}, {140, 2, 2}})
        for (lattice_kind kind : kinds)
            for (operation op : {grad, curl, divergence}) {
                if (dims.size() == 2 && op != grad) continue;
                const lattice l = make_lattice(kind, dims, 2, 1);
                const typed_values values(DTYPE_SHORT, lattices::product(dims) * 3, 1);
                const array data = {DTYPE_SHORT, values.bytes.data()};
                for (int check = 0; check<dims[0] / 8; check += dims[0]> 100 ? 5 : 1) {
                    std::vector<float> out(static_cast<size_t>(lattices::product(dims) * 3), untouched);
                    host_calls::reset();
                    host_calls::watch watch;
                    host_calls::interrupt_at(check);
                    ASSERT_EQ(run_kernel(op, l, data, out.data()), 0);
                    EXPECT_EQ(host_calls::seen().statuses.size(), static_cast<size_t>(check + 1));
                    EXPECT_GT(expect_reference(op, l, data, out, 8 * check + 7), 0);
                    EXPECT_EQ(watch.live_blocks(), 0);
                }
            }
}

TEST_F(DerivLattice, StopFailsTheCurvedGradientAlone)
{
    for (const form &f : forms) {
        const meshes::mesh_ptr m = mesh_of_kind(f.kind, {9, 3, 3});
        std::vector<short> data(static_cast<size_t>(m->nnodes() * 3), 1);
        const short null = 1;
        for (int null_flag : {0, 1}) {
            std::vector<float> out(static_cast<size_t>(m->nnodes() * 3), untouched);
            host_calls::reset();
            host_calls::interrupt_at(0);
            EXPECT_EQ(
                f.run(m->mesh, data.data(), f.op == grad ? 1 : 3, DTYPE_SHORT, null_flag, &null, out.data()),
                f.run == UTILgrad_struct ? 0 : 1);
            // Each node is null: the pass blanks them all, where it comes.
            if (null_flag == 0 || f.run == UTILgrad_struct) continue;
            EXPECT_EQ(std::count(out.begin(), out.end(), 0.0f), m->nnodes() * entries_of(f.op));
        }
    }
}

TEST_F(DerivLattice, RefusedMemoryIsAskedForAgain)
{
    int refused = 0;
    for (lattice_kind kind : kinds) {
        const lattice l = make_lattice(kind, {5, 4, 3}, 3, 1);
        const typed_values values(DTYPE_FLOAT, 180, 1);
        const array data = {DTYPE_FLOAT, values.bytes.data()};
        for (int k = 0; k < 3; ++k) {
            host_calls::reset();
            host_calls::watch watch;
            host_calls::fail_allocation(k);
            std::vector<float> out(180);
            ASSERT_EQ(run_kernel(curl, l, data, out.data()), 1);
            EXPECT_EQ(expect_reference(curl, l, data, out, 5), 60);
            refused += static_cast<int>(host_calls::seen().out_of_memory.size());
            EXPECT_EQ(watch.live_blocks(), 0);
        }
    }
    EXPECT_EQ(refused, 4);
}

// ---- points of cells -----------------------------------------------------------------------------------------

namespace {

struct point_forms {
    lattice_kind kind;
    int (*solid)(mesh_info *, qx_long, int, const void *, int, int, const void *, const float *, float *);
    int (*plane)(mesh_info *, qx_long, int, const void *, int, int, const void *, const float *, float *,
                 float *, float *);
};

const point_forms points[] = {{curved, UTILderiv_struct_3d, UTILderiv_struct_2d},
                              {uniform, UTILderiv_unif_3d, UTILderiv_unif_2d},
                              {rectilinear, UTILderiv_rect_3d, UTILderiv_rect_2d}};

// The cell at a node of a lattice, with the corners as the shape functions number them.
deriv_reference::cell lattice_cell(const meshes::test_mesh &m, qx_long node)
{
    const qx_long row = m.dims[0], plane = m.ndim == 3 ? m.dims[0] * m.dims[1] : 0;
    deriv_reference::cell c;
    for (qx_long lowest : m.ndim == 3 ? std::vector<qx_long>{node, node + plane} : std::vector<qx_long>{node})
        for (qx_long corner : {lowest + 1, lowest, lowest + row, lowest + row + 1})
            c.nodes.push_back(corner);
    for (qx_long corner : c.nodes)
        for (int d = 0; d < 3; ++d)
            c.xyz.push_back(static_cast<float>(meshes::at(m, corner, d)));
    c.slopes = m.ndim == 3 ? UTILsh_deriv_hex_1 : UTILsh_deriv_quad_1;
    return c;
}

} // namespace

TEST_F(DerivLattice, PointsOfCellsAgreeWithTheReference)
{
    for (const point_forms &f : points)
        for (const lattices::shape &shape :
             {lattices::shape{{4, 3, 5}, 3}, lattices::shape{{4, 5}, 2}, lattices::shape{{4, 5}, 3}}) {
            const meshes::mesh_ptr m = mesh_of_kind(f.kind, shape.dims, shape.nspace);
            const float uvw[3] = {0.3f, -0.6f, 0.2f};
            for (int veclen : {1, 3, 4})
                for (int type : {DTYPE_SHORT, DTYPE_DOUBLE})
                    for (qx_long node : lattices::lowest_nodes(shape.dims)) {
                        const typed_values values(type, m->nnodes() * veclen, 8);
                        const node_values of = {{type, values.bytes.data()}, veclen, 0, nullptr};
                        std::vector<float> got(static_cast<size_t>(3 * veclen)), frame(9), local(12);
                        matrix expected_frame(9), expected;
                        if (m->ndim == 3) {
                            ASSERT_EQ(
                                f.solid(m->mesh, node, veclen, of.of.data, type, 0, nullptr, uvw, got.data()),
                                1);
                            expected = at_solid_point(lattice_cell(*m, node), of, uvw);
                        } else {
                            ASSERT_EQ(f.plane(m->mesh, node, veclen, of.of.data, type, 0, nullptr, uvw,
                                              got.data(), frame.data(), local.data()),
                                      1);
                            expected = at_surface_point(lattice_cell(*m, node), of, uvw, &expected_frame);
                            EXPECT_EQ(frame, expected_frame);
                            got.resize(expected.size());
                        }
                        for (size_t i = 0; i < got.size(); ++i)
                            EXPECT_TRUE(same_float(got[i], expected[i])) << got[i] << " for " << expected[i];
                    }
            // The dispatchers lead here.
            EXPECT_EQ(m->mesh->methods->deriv3d_func, f.solid);
            EXPECT_EQ(m->mesh->methods->deriv2d_func, f.plane);
        }
}

TEST_F(DerivLattice, PointsWithoutACellGiveNothingAndSayNothing)
{
    const float uvw[3] = {}, data[40] = {}, null = 0;
    float out[9] = {untouched}, frame[9], local[30];
    for (const point_forms &f : points)
        for (int ndim : {2, 3}) {
            const meshes::mesh_ptr m =
                mesh_of_kind(f.kind, std::vector<qx_long>(static_cast<size_t>(ndim), 3));
            failing_fetches fetches(m->mesh);
            const auto derive = [&](qx_long node, int veclen, const void *of, int null_flag, int type) {
                return ndim == 3 ? f.solid(m->mesh, node, veclen, of, type, null_flag, &null, uvw, out)
                                 : f.plane(m->mesh, node, veclen, of, type, null_flag, &null, uvw, out, frame,
                                           local);
            };
            testing::internal::CaptureStderr();
            // Beyond the mesh, or at the end of all axes.
            for (qx_long node : {qx_long{-1}, m->nnodes(), m->nnodes() - 1, qx_long{1} << 40})
                EXPECT_EQ(derive(node, 1, data, 0, DTYPE_FLOAT), 0);
            EXPECT_EQ(fetches.coords_calls + fetches.points_calls, 0);
            EXPECT_EQ(derive(0, 0, data, 0, DTYPE_FLOAT), 0);
            EXPECT_EQ(derive(0, 1, nullptr, 0, DTYPE_FLOAT), 0);
            EXPECT_EQ(derive(0, 1, data, 1, DTYPE_FLOAT), 0); // all of it is null
            // The other form finds no volume, or no cell.
            EXPECT_EQ(ndim == 2
                          ? f.solid(m->mesh, 0, 1, data, DTYPE_FLOAT, 0, nullptr, uvw, out)
                          : f.plane(m->mesh, 0, 1, data, DTYPE_FLOAT, 0, nullptr, uvw, out, frame, local),
                      0);
            EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
            testing::internal::CaptureStderr();
            EXPECT_EQ(derive(0, 1, data, 0, 7), 0);
            EXPECT_EQ(testing::internal::GetCapturedStderr(), "interpolate: unknown data type\n");
            m->mesh->cell_funcs[SLOT_SHAPE_DERIV] = nullptr;
            testing::internal::CaptureStderr();
            EXPECT_EQ(derive(0, 1, data, 0, 7), 0);
            EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
            EXPECT_TRUE(host_calls::seen().reports.empty());
            EXPECT_EQ(out[0], untouched);

            fetches.fail_coords = fetches.fail_points = 1;
            m->mesh->coords = m->mesh->points = nullptr;
            EXPECT_EQ(derive(0, 1, data, 0, DTYPE_FLOAT), 0);
            EXPECT_EQ(host_calls::report_texts(),
                      texts{f.kind == curved ? "fld_info: unable to get field coordinates"
                                             : "fld_info: unable to get field points"});
            host_calls::reset();
        }
}

TEST_F(DerivLattice, CellsWithoutThicknessGiveNothing)
{
    const float uvw[3] = {}, data[9] = {};
    float out[9];
    for (const point_forms &f : points) {
        const meshes::mesh_ptr m = mesh_of_kind(f.kind, {3, 1, 3});
        for (qx_long node = 0; node < 9; ++node)
            EXPECT_EQ(f.solid(m->mesh, node, 1, data, DTYPE_FLOAT, 0, nullptr, uvw, out), 0);
    }
}
