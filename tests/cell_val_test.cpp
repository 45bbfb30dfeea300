#include "support/cell_reference.hpp"
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include "dtype.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <cstring>
#include <numeric>

using namespace cell_reference;

namespace {

template <typename T> constexpr int code_of();
#define ONE_CODE(code, T, suffix)          \
    template <> constexpr int code_of<T>() \
    {                                      \
        return code;                       \
    }
FOR_EACH_DTYPE(ONE_CODE)
#undef ONE_CODE

constexpr float unwritten = 77;

// The host binds a set's functions by name; here they are put in place by hand, so that this test leans on
// no other module.
void set_shape(mesh_info *mesh, int set, shape_func shape)
{
    mesh->cell_funcs[set * CELL_METHOD_SLOTS + SLOT_SHAPE_FUNC] = reinterpret_cast<cell_func>(shape);
}

meshes::mesh_ptr cell_mesh(const cell_functions &cell, uint64_t seed = 1)
{
    meshes::mesh_ptr made = meshes::cells(cell.kind, cell.order, {2, 2, 2}, seed, 0.1);
    set_shape(made->mesh, 0, cell.values);
    return made;
}

// One hexahedron with nodes 0 to 7.
meshes::mesh_ptr one_hex()
{
    const cell_functions &hex = cell_of(CELL_HEX, 1);
    std::vector<qx_long> row(8);
    std::iota(row.begin(), row.end(), 0);
    meshes::mesh_ptr made = meshes::from_cells(3, unit_cell(hex), {CELL_HEX}, {1}, {row});
    set_shape(made->mesh, 0, hex.values);
    return made;
}

std::vector<float> random_uvw(const cell_functions &cell, uint64_t seed, int npts)
{
    std::mt19937_64 random(seed);
    std::vector<float> uvw;
    for (int i = 0; i < npts; ++i)
        for (double x : random_position(cell, random))
            uvw.push_back(static_cast<float>(x));
    return uvw;
}

position position_in(const std::vector<float> &uvw, size_t point)
{
    return {uvw[3 * point], uvw[3 * point + 1], uvw[3 * point + 2]};
}

template <typename T> class CellValues : public testing::Test {
  protected:
    void SetUp() override { host_calls::reset(); }
};
using element_types = testing::Types<signed char, unsigned char, short, int, float, double, qx_long>;
TYPED_TEST_SUITE(CellValues, element_types);

class CellValue : public testing::Test {
  protected:
    void SetUp() override { host_calls::reset(); }
};

// A structured mesh of each kind over the box to (dims - 1), with the shape function of its cell.
std::vector<meshes::mesh_ptr> structured_meshes(const std::vector<qx_long> &dims)
{
    const int ndim = static_cast<int>(dims.size());
    std::vector<float> hi;
    for (qx_long n : dims)
        hi.push_back(static_cast<float>(n - 1));
    hi.resize(3, 0);
    std::vector<meshes::mesh_ptr> made;
    made.push_back(meshes::uniform(dims, 3, {0, 0, 0}, hi));
    made.push_back(meshes::rectilinear(dims, 3, {0, 0, 0}, hi, 4));
    made.push_back(meshes::curvilinear(dims, 3, {0, 0, 0}, hi, 4));
    for (const meshes::mesh_ptr &m : made)
        set_shape(m->mesh, 0,
                  ndim == 1   ? UTILsh_func_line_1
                  : ndim == 2 ? UTILsh_func_quad_1
                              : UTILsh_func_hex_1);
    return made;
}

} // namespace

// ---- values of all types -------------------------------------------------------------------------------------------

TYPED_TEST(CellValues, AreTheWeightedValuesOfTheNodes)
{
    using T = TypeParam;
    for (const cell_functions &cell : cells) {
        SCOPED_TRACE(cell.name);
        const meshes::mesh_ptr made = cell_mesh(cell);
        const int npts = 3;
        const std::vector<float> uvw = random_uvw(cell, 2, npts);
        const double low = std::is_unsigned<T>::value ? 0 : -100;
        // Up to more components than go through the gather at once.
        for (int veclen : {1, 3, 16, 103, 300}) {
            const std::vector<T> data =
                meshes::random_values<T>(static_cast<uint64_t>(veclen), made->nnodes() * veclen, low, 120);
            for (qx_long c : {qx_long{0}, made->mesh->ncells / 2, made->mesh->ncells - 1}) {
                std::vector<float> out(static_cast<size_t>(npts * veclen), unwritten);
                ASSERT_EQ(UTILinterp_cell_val(made->mesh, c, veclen, data.data(), code_of<T>(), 0, nullptr,
                                              npts, uvw.data(), out.data()),
                          1);
                std::vector<float> same(out.size(), unwritten);
                const qx_long *nodes = made->connect[0].data() + c * cell.nnodes();
                ASSERT_EQ(UTILtesselate_cell_val(nodes, cell.nnodes(), cell.values, veclen, data.data(),
                                                 code_of<T>(), 0, nullptr, npts, uvw.data(), same.data()),
                          1);
                EXPECT_EQ(out, same);
                for (size_t i = 0; i < static_cast<size_t>(npts); ++i) {
                    const std::vector<double> n = shape(cell, position_in(uvw, i));
                    for (int k = 0; k < veclen; ++k) {
                        double expected = 0, size = 0;
                        for (size_t node = 0; node < n.size(); ++node) {
                            const double value =
                                static_cast<double>(data[static_cast<size_t>(nodes[node] * veclen + k)]);
                            expected += n[node] * value;
                            size += std::fabs(n[node] * value);
                        }
                        ASSERT_NEAR(out[i * static_cast<size_t>(veclen) + static_cast<size_t>(k)], expected,
                                    1e-5 + 8 * size * FLT_EPSILON);
                    }
                }
            }
        }
    }
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TYPED_TEST(CellValues, OfAScalarAreThoseOfTheFirstComponentBitForBit)
{
    using T = TypeParam;
    for (const cell_functions &cell : cells) {
        SCOPED_TRACE(cell.name);
        const meshes::mesh_ptr made = cell_mesh(cell);
        const double low = std::is_unsigned<T>::value ? 0 : -100;
        std::vector<T> scalars = meshes::random_values<T>(3, made->nnodes(), low, 120), pairs;
        scalars[0] = std::numeric_limits<T>::max();
        scalars[1] = static_cast<T>(-0.0);
        const T null = scalars[made->connect[0][0]];
        for (T value : scalars)
            pairs.insert(pairs.end(), {value, static_cast<T>(1)});
        const std::vector<float> uvw = random_uvw(cell, 4, 40);
        int nulls = 0;
        for (size_t i = 0; i < 40; ++i)
            for (int null_flag : {0, 1}) {
                const qx_long c = static_cast<qx_long>(i) % made->mesh->ncells;
                float out = unwritten, both[2] = {unwritten, unwritten};
                const int result = UTILinterp_cell_val(made->mesh, c, 1, scalars.data(), code_of<T>(),
                                                       null_flag, &null, 1, &uvw[3 * i], &out);
                EXPECT_EQ(result, UTILinterp_cell_val(made->mesh, c, 2, pairs.data(), code_of<T>(), null_flag,
                                                      &null, 1, &uvw[3 * i], both));
                EXPECT_EQ(memcmp(&out, both, sizeof out), 0) << out << " and " << both[0];
                nulls += result == 0;
            }
        EXPECT_GT(nulls, 0);
    }
}

TYPED_TEST(CellValues, KeepTheSignOfTheirType)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = one_hex();
    const std::vector<T> data(8, static_cast<T>(-1)); // a byte of 255
    const float middle[3] = {0, 0, 0};
    float out = unwritten;
    EXPECT_EQ(UTILinterp_cell_val(made->mesh, 0, 1, data.data(), code_of<T>(), 0, nullptr, 1, middle, &out),
              1);
    EXPECT_EQ(out, (std::is_same<T, unsigned char>::value ? 255.0f : -1.0f));
}

TYPED_TEST(CellValues, OfACellWithANullNodeAreTheNullValueInOneRow)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = one_hex();
    const int veclen = 3, npts = 2;
    const std::vector<float> uvw(static_cast<size_t>(3 * npts), 0.25f);
    const T null = static_cast<T>(100);
    for (size_t node = 0; node < 8; ++node) {
        std::vector<T> data(24, static_cast<T>(5));
        data[3 * node] = null;
        std::vector<float> out(static_cast<size_t>(npts * veclen), unwritten);
        EXPECT_EQ(UTILinterp_cell_val(made->mesh, 0, veclen, data.data(), code_of<T>(), 1, &null, npts,
                                      uvw.data(), out.data()),
                  0);
        EXPECT_EQ(out, (std::vector<float>{100, 100, 100, unwritten, unwritten, unwritten}))
            << "node " << node;
        // The same data with the flag down.
        EXPECT_EQ(UTILinterp_cell_val(made->mesh, 0, veclen, data.data(), code_of<T>(), 0, &null, npts,
                                      uvw.data(), out.data()),
                  1);
        EXPECT_NE(out[0], 100);
    }
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TYPED_TEST(CellValues, AreNullByTheFirstComponentAlone)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = one_hex();
    const T null = static_cast<T>(100);
    std::vector<T> data(16, static_cast<T>(5));
    for (size_t node = 0; node < 8; ++node)
        data[2 * node + 1] = null;
    const float middle[3] = {0, 0, 0};
    float out[2] = {unwritten, unwritten};
    EXPECT_EQ(UTILinterp_cell_val(made->mesh, 0, 2, data.data(), code_of<T>(), 1, &null, 1, middle, out), 1);
    EXPECT_EQ(out[0], 5);
    EXPECT_EQ(out[1], 100);
}

TEST_F(CellValue, NullIsToldInTheDatasOwnType)
{
    const meshes::mesh_ptr made = one_hex();
    const float middle[3] = {0, 0, 0};
    float out = unwritten;
    // Equal as floats, different in their own type.
    const qx_long null = (qx_long{1} << 40) + 1;
    std::vector<qx_long> numbers(8, qx_long{1} << 40);
    EXPECT_EQ(UTILinterp_cell_val(made->mesh, 0, 1, numbers.data(), DTYPE_QX_LONG, 1, &null, 1, middle, &out),
              1);
    numbers[7] = null;
    EXPECT_EQ(UTILinterp_cell_val(made->mesh, 0, 1, numbers.data(), DTYPE_QX_LONG, 1, &null, 1, middle, &out),
              0);
    EXPECT_EQ(out, static_cast<float>(null));
    // NaN equals nothing, itself included.
    const double nan = std::nan("");
    const std::vector<double> reals(8, nan);
    EXPECT_EQ(UTILinterp_cell_val(made->mesh, 0, 1, reals.data(), DTYPE_DOUBLE, 1, &nan, 1, middle, &out), 1);
    EXPECT_TRUE(std::isnan(out));
}

TEST_F(CellValue, ANullNodeCountsWithoutPointsToo)
{
    const meshes::mesh_ptr made = one_hex();
    const float null = 1;
    std::vector<float> data(8, 2), out(2, unwritten);
    data[5] = null;
    EXPECT_EQ(
        UTILinterp_cell_val(made->mesh, 0, 1, data.data(), DTYPE_FLOAT, 1, &null, 0, nullptr, out.data()), 0);
    EXPECT_EQ(out, (std::vector<float>{null, unwritten}));
}

TEST_F(CellValue, WithoutPointsThereIsNothingToWrite)
{
    const meshes::mesh_ptr made = one_hex();
    const std::vector<float> data(8, 2);
    float out = unwritten;
    for (int npts : {0, -1})
        EXPECT_EQ(
            UTILinterp_cell_val(made->mesh, 0, 1, data.data(), DTYPE_FLOAT, 0, nullptr, npts, nullptr, &out),
            1);
    EXPECT_EQ(out, unwritten);
}

// ---- no value ----------------------------------------------------------------------------------------------------------

TEST_F(CellValue, NoDataNoComponentsNoFunctionGive0Unreported)
{
    const meshes::mesh_ptr made = one_hex(), grid = meshes::uniform({2, 2, 2}, 3, {0, 0, 0}, {1, 1, 1});
    set_shape(grid->mesh, 0, UTILsh_func_hex_1);
    const std::vector<float> data(8, 2);
    const float middle[3] = {0, 0, 0};
    float out = unwritten;
    const qx_long *nodes = made->connect[0].data();
    const auto all_forms = [&](int veclen, const void *values, shape_func shape, int type) {
        set_shape(made->mesh, 0, shape);
        set_shape(grid->mesh, 0, shape);
        EXPECT_EQ(UTILinterp_cell_val(made->mesh, 0, veclen, values, type, 0, nullptr, 1, middle, &out), 0);
        EXPECT_EQ(
            UTILinterp_cell_val_struct(grid->mesh, 0, veclen, values, type, 0, nullptr, 1, middle, &out), 0);
        EXPECT_EQ(UTILtesselate_cell_val(nodes, 8, shape, veclen, values, type, 0, nullptr, 1, middle, &out),
                  0);
    };
    // An unknown type is not looked at before.
    for (int type : {static_cast<int>(DTYPE_FLOAT), 7}) {
        all_forms(0, data.data(), UTILsh_func_hex_1, type);
        all_forms(1, nullptr, UTILsh_func_hex_1, type);
        all_forms(1, data.data(), nullptr, type);
    }
    EXPECT_EQ(out, unwritten);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(CellValue, AnUnknownTypeIsReported)
{
    const meshes::mesh_ptr made = one_hex(), grid = meshes::uniform({2, 2, 2}, 3, {0, 0, 0}, {1, 1, 1});
    set_shape(grid->mesh, 0, UTILsh_func_hex_1);
    const std::vector<float> data(8, 2);
    const float middle[3] = {0, 0, 0};
    float out = unwritten;
    for (int type : {-1, 7}) {
        for (int form = 0; form < 3; ++form) {
            host_calls::reset();
            const int result =
                form == 0
                    ? UTILinterp_cell_val(made->mesh, 0, 1, data.data(), type, 0, nullptr, 1, middle, &out)
                : form == 1 ? UTILinterp_cell_val_struct(grid->mesh, 0, 1, data.data(), type, 0, nullptr, 1,
                                                         middle, &out)
                            : UTILtesselate_cell_val(made->connect[0].data(), 8, UTILsh_func_hex_1, 1,
                                                     data.data(), type, 0, nullptr, 1, middle, &out);
            EXPECT_EQ(result, 0);
            const std::vector<host_calls::report> expected = {{"UTILinterp", 0, 2, "unknown data type"}};
            EXPECT_EQ(host_calls::seen().reports, expected);
        }
    }
    EXPECT_EQ(out, unwritten);
}

TEST_F(CellValue, ACellThatIsNotThereGives0Unreported)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_HEX, CELL_TET}, {1, 1}, 1, 1);
    set_shape(made->mesh, 0, UTILsh_func_hex_1);
    set_shape(made->mesh, 1, UTILsh_func_tet_1);
    const std::vector<float> data(static_cast<size_t>(made->nnodes()), 2);
    const float at[3] = {0.25f, 0.25f, 0.25f};
    float out = unwritten;
    for (qx_long cell : {qx_long{-1}, qx_long{7}, qx_long{8}, INT64_MIN / 2, INT64_MAX})
        EXPECT_EQ(UTILinterp_cell_val(made->mesh, cell, 1, data.data(), DTYPE_FLOAT, 0, nullptr, 1, at, &out),
                  0);
    EXPECT_EQ(out, unwritten);
    EXPECT_TRUE(host_calls::seen().reports.empty());
    for (qx_long cell = 0; cell < 7; ++cell) {
        EXPECT_EQ(UTILinterp_cell_val(made->mesh, cell, 1, data.data(), DTYPE_FLOAT, 0, nullptr, 1, at, &out),
                  1);
        EXPECT_EQ(out, 2);
    }
}

TEST_F(CellValue, NoSetsAtAll)
{
    const meshes::mesh_ptr made = one_hex();
    made->mesh->ncell_sets = 0;
    float out = unwritten;
    const float middle[3] = {0, 0, 0};
    EXPECT_EQ(UTILinterp_cell_val(made->mesh, 0, 1, &out, DTYPE_FLOAT, 0, nullptr, 1, middle, &out), 0);
    EXPECT_EQ(out, unwritten);
}

namespace {

std::vector<qx_long> *lent_connect = nullptr;
int connect_result = 1;

int lend_connect(mesh_info *, int, qx_long **connect)
{
    *connect = lent_connect->data();
    return connect_result;
}

} // namespace

TEST_F(CellValue, AConnectListIsFetchedOnceAndAFailureReportedBeforeAnythingElse)
{
    const meshes::mesh_ptr made = one_hex();
    lent_connect = &made->connect[0];
    made->mesh->get_connect = lend_connect;
    made->mesh->cell_connect[0] = nullptr;
    const std::vector<float> data(8, 2);
    const float middle[3] = {0, 0, 0};
    float out = unwritten;
    connect_result = 0;
    for (const void *values : {static_cast<const void *>(data.data()), static_cast<const void *>(nullptr)}) {
        host_calls::reset();
        EXPECT_EQ(UTILinterp_cell_val(made->mesh, 0, 1, values, DTYPE_FLOAT, 0, nullptr, 1, middle, &out), 0);
        const std::vector<host_calls::report> expected = {
            {"fld_info", 0, 2, "unable to get cell set connect list"}};
        EXPECT_EQ(host_calls::seen().reports, expected);
        EXPECT_EQ(made->mesh->cell_connect[0], nullptr);
        EXPECT_EQ(out, unwritten);
    }
    connect_result = 1;
    EXPECT_EQ(UTILinterp_cell_val(made->mesh, 0, 1, data.data(), DTYPE_FLOAT, 0, nullptr, 1, middle, &out),
              1);
    EXPECT_EQ(out, 2);
    EXPECT_EQ(made->mesh->cell_connect[0], lent_connect->data());
}

TEST_F(CellValue, AsksForNoMemory)
{
    const meshes::mesh_ptr made = one_hex();
    const std::vector<float> data(8 * 5000, 2);
    const float middle[3] = {0, 0, 0};
    std::vector<float> out(5000, unwritten);
    const host_calls::watch watch;
    EXPECT_EQ(
        UTILinterp_cell_val(made->mesh, 0, 5000, data.data(), DTYPE_FLOAT, 0, nullptr, 1, middle, out.data()),
        1);
    EXPECT_EQ(watch.allocations(), 0);
    EXPECT_EQ(out, std::vector<float>(5000, 2));
}

// ---- cells of the caller's own --------------------------------------------------------------------------------------------

namespace {

int own_nnodes = 0;

// Every node weighs the same.
void even_weights(const float *, float *n)
{
    for (int k = 0; k < own_nnodes; ++k)
        n[k] = 1;
}

} // namespace

TEST_F(CellValue, CellsOfOtherMakeMayHaveUpTo256Nodes)
{
    for (int nnodes : {1, 27, 64, 256}) {
        own_nnodes = nnodes;
        std::vector<qx_long> nodes(static_cast<size_t>(nnodes));
        std::iota(nodes.begin(), nodes.end(), 0);
        for (int veclen : {1, 7, 8, 9, 40}) {
            std::vector<short> data;
            for (int node = 0; node < nnodes; ++node)
                for (int k = 0; k < veclen; ++k)
                    data.push_back(static_cast<short>(k + 1));
            const float uvw[6] = {};
            std::vector<float> out(static_cast<size_t>(2 * veclen), unwritten);
            ASSERT_EQ(UTILtesselate_cell_val(nodes.data(), nnodes, even_weights, veclen, data.data(),
                                             DTYPE_SHORT, 0, nullptr, 2, uvw, out.data()),
                      1);
            for (int i = 0; i < 2 * veclen; ++i)
                EXPECT_EQ(out[static_cast<size_t>(i)], static_cast<float>(nnodes * (i % veclen + 1)));
        }
    }
    float out = unwritten;
    const float uvw[3] = {};
    const std::vector<qx_long> nodes(257, 0);
    const short one = 1;
    own_nnodes = 257;
    EXPECT_EQ(UTILtesselate_cell_val(nodes.data(), 257, even_weights, 1, &one, DTYPE_SHORT, 0, nullptr, 1,
                                     uvw, &out),
              0);
    EXPECT_EQ(
        UTILtesselate_cell_val(nodes.data(), 0, even_weights, 1, &one, DTYPE_SHORT, 0, nullptr, 1, uvw, &out),
        0);
    EXPECT_EQ(out, unwritten);
}

// ---- fields in space --------------------------------------------------------------------------------------------------------

TEST_F(CellValue, OfLinearFieldsAreExactInEveryKind)
{
    for (const cell_functions &cell : cells) {
        if (has_odd_weights(cell)) continue;
        SCOPED_TRACE(cell.name);
        const meshes::mesh_ptr made = cell_mesh(cell);
        const auto field = [](double x, double y, double z) { return 1 + 2 * x - 3 * y + 0.5 * z; };
        const std::vector<double> data = meshes::field_of<double>(*made, field);
        const int npts = 20;
        const std::vector<float> uvw = random_uvw(cell, 3, npts);
        for (qx_long c = 0; c < made->mesh->ncells; ++c) {
            std::vector<float> coords;
            for (int k = 0; k < cell.nnodes(); ++k)
                for (int d = 0; d < 3; ++d)
                    coords.push_back(static_cast<float>(
                        meshes::at(*made, made->connect[0][static_cast<size_t>(c * cell.nnodes() + k)], d)));
            std::vector<float> out(static_cast<size_t>(npts), unwritten);
            ASSERT_EQ(UTILinterp_cell_val(made->mesh, c, 1, data.data(), DTYPE_DOUBLE, 0, nullptr, npts,
                                          uvw.data(), out.data()),
                      1);
            for (size_t i = 0; i < out.size(); ++i) {
                const position x = map_forward(cell, coords, position_in(uvw, i));
                EXPECT_NEAR(out[i], field(x[0], x[1], x[2]), 2e-5);
            }
        }
    }
}

TEST_F(CellValue, OfQuadraticFieldsAreExactInStraightCellsOfSecondOrder)
{
    for (const cell_functions &cell : cells) {
        if (cell.order == 1 || has_odd_weights(cell)) continue;
        SCOPED_TRACE(cell.name);
        const auto field = [](double x, double y, double z) {
            return 1 + x - y + x * x - 2 * y * y + 0.5 * z * z + x * y - y * z + 2 * x * z;
        };
        // Parallelepipeds only: elsewhere positions are no longer linear in the parameters.
        const std::vector<float> coords = unit_cell(cell);
        std::vector<float> data;
        for (size_t node = 0; node < static_cast<size_t>(cell.nnodes()); ++node)
            data.push_back(
                static_cast<float>(field(coords[3 * node], coords[3 * node + 1], coords[3 * node + 2])));
        std::vector<qx_long> nodes(static_cast<size_t>(cell.nnodes()));
        std::iota(nodes.begin(), nodes.end(), 0);
        const int npts = 50;
        const std::vector<float> uvw = random_uvw(cell, 3, npts);
        std::vector<float> out(static_cast<size_t>(npts), unwritten);
        ASSERT_EQ(UTILtesselate_cell_val(nodes.data(), cell.nnodes(), cell.values, 1, data.data(),
                                         DTYPE_FLOAT, 0, nullptr, npts, uvw.data(), out.data()),
                  1);
        for (size_t i = 0; i < out.size(); ++i) {
            const position x = position_in(uvw, i);
            EXPECT_NEAR(out[i], field(x[0], x[1], x[2]), 1e-5);
        }
    }
}

// ---- structured meshes -------------------------------------------------------------------------------------------------------

TEST_F(CellValue, OfStructuredCellsStandAtTheirCorners)
{
    for (const std::vector<qx_long> &dims : {std::vector<qx_long>{5}, {4, 3}, {4, 3, 5}}) {
        const int ndim = static_cast<int>(dims.size());
        const cell_functions &cell = cell_of(ndim == 1 ? CELL_LINE : ndim == 2 ? CELL_QUAD : CELL_HEX, 1);
        for (const meshes::mesh_ptr &made : structured_meshes(dims)) {
            std::vector<int> data(static_cast<size_t>(made->nnodes()));
            std::iota(data.begin(), data.end(), 0); // each node's own number
            const qx_long row = ndim > 1 ? dims[0] : 0, plane = ndim > 2 ? dims[0] * dims[1] : 0;
            int ncells = 0;
            for (qx_long b = 0; b < made->nnodes(); ++b) {
                qx_long rest = b;
                bool is_lowest = true;
                for (qx_long n : dims) {
                    is_lowest = is_lowest && rest % n < n - 1;
                    rest /= n;
                }
                if (!is_lowest) continue;
                ++ncells;
                const qx_long corners[8] = {b + 1,         b,         b + row,         b + row + 1,
                                            b + plane + 1, b + plane, b + plane + row, b + plane + row + 1};
                for (int k = 0; k < cell.nnodes(); ++k) {
                    float out = unwritten;
                    ASSERT_EQ(UTILinterp_cell_val_struct(made->mesh, b, 1, data.data(), DTYPE_INT, 0, nullptr,
                                                         1, cell_kinds[cell.kind].position[k], &out),
                              1);
                    EXPECT_EQ(out, static_cast<float>(corners[k])) << "cell " << b << " corner " << k;
                }
            }
            EXPECT_EQ(ncells, std::accumulate(dims.begin(), dims.end(), qx_long{1},
                                              [](qx_long product, qx_long n) { return product * (n - 1); }));
        }
    }
}

TYPED_TEST(CellValues, OfStructuredCellsFollowTheSameRules)
{
    using T = TypeParam;
    const std::vector<meshes::mesh_ptr> made = structured_meshes({3, 4, 2});
    const T null = static_cast<T>(100);
    const cell_functions &hex = cell_of(CELL_HEX, 1);
    const std::vector<float> uvw = random_uvw(hex, 6, 4);
    std::vector<T> data = meshes::random_values<T>(5, 24 * 2, 0, 90);
    const qx_long nodes[8] = {1, 0, 3, 4, 13, 12, 15, 16};
    std::vector<float> out(8), expected(8);
    ASSERT_EQ(UTILtesselate_cell_val(nodes, 8, UTILsh_func_hex_1, 2, data.data(), code_of<T>(), 1, &null, 4,
                                     uvw.data(), expected.data()),
              1);
    for (const meshes::mesh_ptr &m : made) {
        EXPECT_EQ(UTILinterp_cell_val_struct(m->mesh, 0, 2, data.data(), code_of<T>(), 1, &null, 4,
                                             uvw.data(), out.data()),
                  1);
        EXPECT_EQ(out, expected);
    }
    data[2 * 16] = null;
    for (const meshes::mesh_ptr &m : made) {
        std::fill(out.begin(), out.end(), unwritten);
        EXPECT_EQ(UTILinterp_cell_val_struct(m->mesh, 0, 2, data.data(), code_of<T>(), 1, &null, 4,
                                             uvw.data(), out.data()),
                  0);
        EXPECT_EQ(out, (std::vector<float>{100, 100, unwritten, unwritten, unwritten, unwritten, unwritten,
                                           unwritten}));
    }
}

TEST_F(CellValue, OfStructuredCellsThatAreNotThere)
{
    for (const meshes::mesh_ptr &made : structured_meshes({3, 4, 2})) {
        const std::vector<float> data(24, 2); // to the byte: a sanitizer sees what reads past the last node
        const float middle[3] = {0, 0, 0};
        float out = unwritten;
        for (qx_long cell : {qx_long{-1}, qx_long{24}, INT64_MAX, INT64_MIN, qx_long{23}, qx_long{12}})
            EXPECT_EQ(UTILinterp_cell_val_struct(made->mesh, cell, 1, data.data(), DTYPE_FLOAT, 0, nullptr, 1,
                                                 middle, &out),
                      0)
                << cell;
        EXPECT_EQ(out, unwritten);
    }
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST_F(CellValue, AlongAnAxisOfOneNodeBothSidesAreThatNode)
{
    for (const std::vector<qx_long> &dims :
         {std::vector<qx_long>{1, 3, 4}, {3, 1, 4}, {3, 4, 1}, {1, 1, 4}, {1, 1, 1}, {1, 5}, {5, 1}, {1}}) {
        const meshes::mesh_ptr made = meshes::uniform(dims, 3, {0, 0, 0}, {2, 2, 2});
        set_shape(made->mesh, 0,
                  dims.size() == 1   ? UTILsh_func_line_1
                  : dims.size() == 2 ? UTILsh_func_quad_1
                                     : UTILsh_func_hex_1);
        std::vector<float> data(static_cast<size_t>(made->nnodes()));
        std::iota(data.begin(), data.end(), 1.0f);
        const float middle[3] = {0, 0, 0};
        float out = unwritten, expected = 1;
        // Node 0 and its neighbours along the axes that have any: the mean is half their steps on.
        qx_long step = 1;
        for (qx_long n : dims) {
            if (n > 1) expected += static_cast<float>(step) / 2;
            step *= n;
        }
        EXPECT_EQ(UTILinterp_cell_val_struct(made->mesh, 0, 1, data.data(), DTYPE_FLOAT, 0, nullptr, 1,
                                             middle, &out),
                  1);
        EXPECT_EQ(out, expected);
    }
}
