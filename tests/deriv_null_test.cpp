#include "support/arrays.hpp"
#include "support/deriv_reference.hpp"
#include "support/fetches.hpp"
#include "support/host_calls.hpp"
#include "support/lattices.hpp"

#include <skoklana/deriv.h>

#include <gtest/gtest.h>

namespace {

constexpr float untouched = 77;

class DerivNull : public testing::Test {
  protected:
    void SetUp() override { host_calls::reset(); }
};

template <typename T> class DerivNullOfType : public DerivNull {
};
TYPED_TEST_SUITE(DerivNullOfType, arrays::all_types);

// Mostly ordinary values, the given share of them null.
template <typename T>
std::vector<T> with_nulls(qx_long count, int veclen, T null, unsigned share, uint64_t seed)
{
    std::mt19937_64 random(seed);
    std::vector<T> data;
    for (qx_long i = 0; i < count * veclen; ++i)
        data.push_back(random() % 1000 < share ? null : static_cast<T>(random() % 50));
    return data;
}

} // namespace

TYPED_TEST(DerivNullOfType, CellsWithANullNodeAreBlanked)
{
    using T = TypeParam;
    const meshes::mesh_ptr made = meshes::mixed({CELL_TET, CELL_LINE, CELL_QUAD}, {1, 1, 2}, 3, 1);
    const T null = static_cast<T>(99);
    for (unsigned share : {0u, 20u, 1000u})
        for (int veclen : {1, 3})
            for (int entries : {1, 3, 5}) {
                const std::vector<T> data = with_nulls<T>(made->nnodes(), veclen, null, share, 3);
                std::vector<float> out(static_cast<size_t>(made->nnodes() * entries), untouched),
                    expected = out;
                ASSERT_EQ(UTILderiv_null(made->mesh, data.data(), veclen, arrays::dtype_of<T>, &null, entries,
                                         out.data()),
                          1);
                deriv_reference::blank_around_null(
                    made->mesh, {{arrays::dtype_of<T>, data.data()}, veclen, 1, &null}, entries, &expected);
                EXPECT_EQ(out, expected);
                const auto blank = std::count(out.begin(), out.end(), 0.0f);
                EXPECT_EQ(blank > 0, share > 0);
            }
}

TYPED_TEST(DerivNullOfType, NeighbourhoodsOfNullNodesAreBlanked)
{
    using T = TypeParam;
    const T null = static_cast<T>(99);
    for (const std::vector<qx_long> &dims :
         std::vector<std::vector<qx_long>>{{7, 5, 4}, {70, 2, 3}, {9, 8}, {40}, {1, 5, 1}}) {
        const meshes::mesh_ptr made = lattices::uniform({dims, 3});
        std::vector<qx_long> n = dims;
        n.resize(3, 1);
        for (unsigned share : {0u, 10u, 300u, 1000u}) {
            const int veclen = share == 10 ? 3 : 1, entries = share == 300 ? 1 : 3;
            const std::vector<T> data = with_nulls<T>(made->nnodes(), veclen, null, share, 3);
            std::vector<float> out(static_cast<size_t>(made->nnodes() * entries), untouched);
            ASSERT_EQ(UTILderiv_null_struct(made->mesh, data.data(), veclen, arrays::dtype_of<T>, &null,
                                            entries, out.data()),
                      1);
            const auto near = [](qx_long a, qx_long b) { return a - b <= 1 && b - a <= 1; };
            for (qx_long node = 0; node < made->nnodes(); ++node) {
                bool blank = false;
                for (qx_long other = 0; other < made->nnodes() && !blank; ++other)
                    blank = data[static_cast<size_t>(other * veclen)] == null &&
                            near(node % n[0], other % n[0]) &&
                            near(node / n[0] % n[1], other / n[0] % n[1]) &&
                            near(node / n[0] / n[1], other / n[0] / n[1]);
                for (int e = 0; e < entries; ++e)
                    ASSERT_EQ(out[static_cast<size_t>(node * entries + e)], blank ? 0 : untouched) << node;
            }
        }
    }
}

TEST_F(DerivNull, CornerBlanksEightNodesInSpaceAndFourInAPlane)
{
    for (size_t ndim : {1, 2, 3}) {
        const meshes::mesh_ptr made = lattices::uniform({std::vector<qx_long>(ndim, 4), 3});
        std::vector<int> data(static_cast<size_t>(made->nnodes()));
        data.back() = 5;
        const int null = 5;
        std::vector<float> out(data.size(), untouched);
        ASSERT_EQ(UTILderiv_null_struct(made->mesh, data.data(), 1, DTYPE_INT, &null, 1, out.data()), 1);
        EXPECT_EQ(std::count(out.begin(), out.end(), 0.0f), 1 << ndim);
    }
}

TEST_F(DerivNull, NotANumberNeverMatchesAndZeroMatchesEitherSign)
{
    const meshes::mesh_ptr made = lattices::uniform({{3, 3}, 2});
    const double nan = std::numeric_limits<double>::quiet_NaN(), minus = -0.0;
    std::vector<double> data(9, nan);
    std::vector<float> out(9, untouched);
    ASSERT_EQ(UTILderiv_null_struct(made->mesh, data.data(), 1, DTYPE_DOUBLE, &nan, 1, out.data()), 1);
    EXPECT_EQ(out, std::vector<float>(9, untouched));
    data[0] = 0;
    ASSERT_EQ(UTILderiv_null_struct(made->mesh, data.data(), 1, DTYPE_DOUBLE, &minus, 1, out.data()), 1);
    EXPECT_EQ(std::count(out.begin(), out.end(), 0.0f), 4);
}

TEST_F(DerivNull, LaterComponentsDoNotCount)
{
    const meshes::mesh_ptr made = lattices::uniform({{3, 3}, 2});
    std::vector<short> data(27, 1);
    data[4] = data[14] = 7;
    const short null = 7;
    std::vector<float> out(27, untouched);
    ASSERT_EQ(UTILderiv_null_struct(made->mesh, data.data(), 3, DTYPE_SHORT, &null, 3, out.data()), 1);
    EXPECT_EQ(out, std::vector<float>(27, untouched));
}

TEST_F(DerivNull, UnknownTypesAreReportedBySetAfterItsList)
{
    const meshes::mesh_ptr made = meshes::cells(CELL_TRI, 1, {2, 2}, 1);
    const meshes::mesh_ptr lattice = lattices::uniform({{3, 3}, 2});
    const qx_long data[20] = {};
    float out[20] = {untouched};
    for (int type : {-1, 7, 100}) {
        host_calls::reset();
        EXPECT_EQ(UTILderiv_null(made->mesh, data, 1, type, data, 1, out), 0);
        EXPECT_EQ(UTILderiv_null_struct(lattice->mesh, data, 1, type, data, 1, out), 0);
        EXPECT_EQ(host_calls::report_texts(),
                  std::vector<std::string>(2, "UTILderiv_null: unknown data type"));
    }
    host_calls::reset();
    mesh_info empty = {};
    EXPECT_EQ(UTILderiv_null(&empty, data, 1, 7, data, 1, out), 1);
    failing_fetches fetches(made->mesh);
    fetches.fail_connect_of_set = 0;
    made->mesh->cell_connect[0] = nullptr;
    EXPECT_EQ(UTILderiv_null(made->mesh, data, 1, 7, data, 1, out), 0);
    EXPECT_EQ(host_calls::report_texts(),
              std::vector<std::string>{"fld_info: unable to get cell set connect list"});
    EXPECT_EQ(out[0], untouched);
}

TEST_F(DerivNull, SetsBeforeAListThatCannotBeHadAreDone)
{
    const meshes::mesh_ptr made = meshes::mixed({CELL_HEX, CELL_HEX}, {1, 1}, 1, 1);
    const std::vector<int> data(16, 3);
    const int null = 3;
    std::vector<float> out(16, untouched);
    failing_fetches fetches(made->mesh);
    fetches.fail_connect_of_set = 1;
    EXPECT_EQ(UTILderiv_null(made->mesh, data.data(), 1, DTYPE_INT, &null, 1, out.data()), 0);
    EXPECT_EQ(std::count(out.begin(), out.end(), 0.0f), 8);
    EXPECT_EQ(host_calls::report_texts(),
              std::vector<std::string>{"fld_info: unable to get cell set connect list"});
}
