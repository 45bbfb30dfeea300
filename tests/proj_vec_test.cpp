// Vectors along a direction and across it.
#include <skoklana/array.h>

#include "support/arrays.hpp"
#include "support/fresh_host.hpp"
#include "support/meshes.hpp"

using namespace arrays;

namespace {

template <typename T> class Projection : public FreshHost {
};
TYPED_TEST_SUITE(Projection, all_types);

class Projections : public FreshHost {};

} // namespace

TYPED_TEST(Projection, IsTheFormulaInFloat)
{
    using T = TypeParam;
    const float dir[3] = {0.3f, -1.7f, 0.9f};
    for (int veclen : {1, 2, 3})
        for (qx_long count : {1, 2, 7, 33}) {
            const auto in = meshes::random_values<T>(7, count * veclen, 0, 120);
            for (int mode : {0, 1}) {
                std::vector<float> out(in.size(), -1), expected;
                ASSERT_EQ(1, UTILproj_vec(count, veclen, dtype_of<T>, in.data(), mode, dir, out.data()));
                for (qx_long i = 0; i < count; ++i) {
                    float v[3] = {0, 0, 0};
                    for (int c = 0; c < veclen; ++c)
                        v[c] = static_cast<float>(in[static_cast<size_t>(i * veclen + c)]);
                    const float along = v[0] * dir[0] + v[1] * dir[1] + v[2] * dir[2];
                    for (int c = 0; c < veclen; ++c)
                        expected.push_back(mode == 0 ? along * dir[c] : v[c] - along * dir[c]);
                }
                ASSERT_TRUE(same_bytes(expected, out)) << veclen << " " << count << " mode " << mode;
            }
        }
}

TYPED_TEST(Projection, PartsAlongAUnitVectorAddUp)
{
    using T = TypeParam;
    const float dir[3] = {0.6f, 0, 0.8f};
    const std::vector<T> in = {T(10), T(20), T(30)};
    float along[3], across[3];
    UTILproj_vec(1, 3, dtype_of<T>, in.data(), 0, dir, along);
    UTILproj_vec(1, 3, dtype_of<T>, in.data(), 1, dir, across);
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(static_cast<double>(in[static_cast<size_t>(c)]), along[c] + across[c], 1e-5);
}

TEST_F(Projections, ADirectionOfLengthTwoScalesByFour)
{
    const float in[3] = {1, 2, 3}, unit[3] = {0, 0, 1}, twice[3] = {0, 0, 2};
    float once[3], scaled[3];
    UTILproj_vec(1, 3, DTYPE_FLOAT, in, 0, unit, once);
    UTILproj_vec(1, 3, DTYPE_FLOAT, in, 0, twice, scaled);
    EXPECT_EQ(4 * once[2], scaled[2]);
}

TEST_F(Projections, MissingComponentsAreZerosThatAreMultipliedToo)
{
    const float in[2] = {1, 2}, dir[3] = {1, 0, std::numeric_limits<float>::infinity()};
    float out[2];
    UTILproj_vec(1, 2, DTYPE_FLOAT, in, 0, dir, out);
    EXPECT_TRUE(std::isnan(out[0]));
}

TEST_F(Projections, ComponentsPastTheThirdAreLeftAlone)
{
    const std::vector<double> in = {1, 2, 3, 1e9, 4, 5, 6, 1e9};
    const float dir[3] = {1, 0, 0};
    std::vector<float> out(8, 77.0f);
    EXPECT_EQ(1, UTILproj_vec(2, 4, DTYPE_DOUBLE, in.data(), 1, dir, out.data()));
    EXPECT_EQ((std::vector<float>{0, 2, 3, 77, 0, 5, 6, 77}), out);
}

TEST_F(Projections, LargeWholeNumbersAreRoundedOnce)
{
    const qx_long in = (qx_long{1} << 54) + (qx_long{1} << 30) + 1; // through double it would round down
    const float dir[3] = {1, 0, 0};
    float out;
    UTILproj_vec(1, 1, DTYPE_QX_LONG, &in, 0, dir, &out);
    EXPECT_EQ(static_cast<float>(in), out);
    EXPECT_NE(static_cast<float>(static_cast<double>(in)), out);
}

TEST_F(Projections, AnIllegalModeIsFoundAtTheFirstComponentOnly)
{
    const float in[3] = {1, 2, 3}, dir[3] = {1, 0, 0};
    float out[3] = {7, 7, 7};
    EXPECT_EQ(1, UTILproj_vec(0, 3, DTYPE_FLOAT, in, 2, dir, out));
    EXPECT_EQ(1, UTILproj_vec(1, 0, DTYPE_FLOAT, in, -1, dir, out));
    EXPECT_TRUE(host_calls::seen().reports.empty());
    EXPECT_EQ(0, UTILproj_vec(1, 3, DTYPE_FLOAT, in, 2, dir, out));
    EXPECT_EQ((std::vector<std::string>{"UTILproj_vec: Illegal mode. 0:Axial, 1:Tangential."}),
              host_calls::report_texts());
    EXPECT_EQ(2, host_calls::seen().reports[0].severity);
    EXPECT_EQ(7, out[0]);
}

TEST_F(Projections, UnknownTypesHaveWordsOfTheirOwnAndComeFirst)
{
    const float dir[3] = {1, 0, 0};
    EXPECT_EQ(0, UTILproj_vec(0, 3, 7, nullptr, 5, dir, nullptr));
    EXPECT_EQ(0, UTILproj_vec(1, 3, -1, nullptr, 5, dir, nullptr));
    EXPECT_EQ(
        (std::vector<std::string>{"UTILproj_vec: Illegal data type.", "UTILproj_vec: Illegal data type."}),
        host_calls::report_texts());
}
