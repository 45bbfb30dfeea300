#include "support/cell_reference.hpp"

#include <gtest/gtest.h>

#include <cfloat>

using namespace cell_reference;

namespace {

using rows = std::vector<position>;

// deriv times coords in double: a tangent for each parameter.
rows tangents_of(const cell_functions &cell, const std::vector<double> &slopes,
                 const std::vector<float> &coords)
{
    const size_t nnodes = static_cast<size_t>(cell.nnodes());
    rows out;
    for (size_t axis = 0; axis < static_cast<size_t>(cell.ndim()); ++axis) {
        position t = {0, 0, 0};
        for (size_t node = 0; node < nnodes; ++node)
            for (size_t d = 0; d < 3; ++d)
                t[d] += slopes[axis * nnodes + node] * coords[3 * node + d];
        out.push_back(t);
    }
    return out;
}

position cross_of(const position &a, const position &b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

double dot_of(const position &a, const position &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

position column(const float *frame, int k)
{
    return {frame[k], frame[3 + k], frame[6 + k]};
}

// frame holds three unit vectors at right angles, right-handed.
void expect_right_handed(const float *frame)
{
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b)
            EXPECT_NEAR(dot_of(column(frame, a), column(frame, b)), a == b, 1e-5) << a << b;
    EXPECT_NEAR(dot_of(cross_of(column(frame, 0), column(frame, 1)), column(frame, 2)), 1, 1e-5);
}

// local is coords seen in the frame.
void expect_local(const std::vector<float> &coords, const float *frame, const float *local)
{
    for (size_t node = 0; 3 * node < coords.size(); ++node)
        for (int k = 0; k < 3; ++k) {
            const position x = {coords[3 * node], coords[3 * node + 1], coords[3 * node + 2]};
            EXPECT_NEAR(local[3 * node + static_cast<size_t>(k)], dot_of(x, column(frame, k)), 1e-5);
        }
}

struct sample {
    std::vector<float> coords, deriv;
    rows tangents;
};

// A distorted, bent and warped cell, and its derivatives at a random position.
sample random_sample(const cell_functions &cell, std::mt19937_64 &random)
{
    cell_shape_options options;
    options.bend = options.warp = 0.1;
    sample s;
    s.coords = random_cell(cell, random, options);
    const position at = random_position(cell, random);
    const float uvw[3] = {static_cast<float>(at[0]), static_cast<float>(at[1]), static_cast<float>(at[2])};
    s.deriv.resize(static_cast<size_t>(cell.ndim() * cell.nnodes()));
    cell.slopes(uvw, s.deriv.data());
    s.tangents = tangents_of(cell, std::vector<double>(s.deriv.begin(), s.deriv.end()), s.coords);
    return s;
}

template <typename Body> void for_random_samples(int ndim, Body body)
{
    int seen = 0;
    for (const cell_functions &cell : cells) {
        if (cell.ndim() != ndim) continue;
        SCOPED_TRACE(cell.name);
        std::mt19937_64 random(5);
        for (int i = 0; i < 100; ++i, ++seen)
            body(cell, random_sample(cell, random));
    }
    EXPECT_GE(seen, 200);
}

} // namespace

TEST(Jacobian, LengthOfACurve)
{
    for_random_samples(1, [](const cell_functions &cell, const sample &s) {
        const double expected = std::sqrt(dot_of(s.tangents[0], s.tangents[0]));
        EXPECT_NEAR(UTILjacobian_1d_det(cell.nnodes(), s.deriv.data(), s.coords.data()), expected, 1e-6);
    });
}

TEST(Jacobian, AreaOfASurface)
{
    for_random_samples(2, [](const cell_functions &cell, const sample &s) {
        const position normal = cross_of(s.tangents[0], s.tangents[1]);
        EXPECT_NEAR(UTILjacobian_2d_det(cell.nnodes(), s.deriv.data(), s.coords.data()),
                    std::sqrt(dot_of(normal, normal)), 1e-5);
    });
}

TEST(Jacobian, VolumeOfASolid)
{
    for_random_samples(3, [](const cell_functions &cell, const sample &s) {
        EXPECT_NEAR(UTILjacobian_3d_det(cell.nnodes(), s.deriv.data(), s.coords.data()),
                    dot_of(s.tangents[0], cross_of(s.tangents[1], s.tangents[2])), 1e-5);
    });
}

TEST(Jacobian, VolumeOfAMirroredSolidIsNegative)
{
    std::mt19937_64 random(3);
    cell_shape_options mirrored;
    mirrored.inside_out = true;
    for (const cell_functions &cell : cells) {
        if (cell.ndim() != 3) continue;
        const float middle[3] = {0.25f, 0.25f, 0.25f};
        std::vector<float> d(static_cast<size_t>(3 * cell.nnodes()));
        cell.slopes(middle, d.data());
        for (bool inside_out : {false, true}) {
            mirrored.inside_out = inside_out;
            const std::vector<float> coords = random_cell(cell, random, mirrored);
            EXPECT_EQ(UTILjacobian_3d_det(cell.nnodes(), d.data(), coords.data()) < 0, inside_out)
                << cell.name;
        }
    }
}

TEST(Jacobian, InverseOfASolid)
{
    for_random_samples(3, [](const cell_functions &cell, const sample &s) {
        float inv[9];
        const float det = UTILjacobian_3d_inv(cell.nnodes(), s.deriv.data(), s.coords.data(), inv);
        EXPECT_NEAR(det, dot_of(s.tangents[0], cross_of(s.tangents[1], s.tangents[2])), 1e-5);
        for (size_t row = 0; row < 3; ++row)
            for (int k = 0; k < 3; ++k)
                EXPECT_NEAR(dot_of(s.tangents[row], column(inv, k)), static_cast<int>(row) == k, 1e-4);
    });
}

TEST(Jacobian, InverseOfASurfaceIsWithinItsTangentPlane)
{
    for_random_samples(2, [](const cell_functions &cell, const sample &s) {
        float inv[4], frame[9];
        std::vector<float> local(static_cast<size_t>(3 * cell.nnodes()));
        const float det =
            UTILjacobian_2d_inv(cell.nnodes(), s.deriv.data(), s.coords.data(), inv, frame, local.data());
        const position normal = cross_of(s.tangents[0], s.tangents[1]);
        EXPECT_NEAR(det, std::sqrt(dot_of(normal, normal)), 1e-5);
        expect_right_handed(frame);
        expect_local(s.coords, frame, local.data());
        for (size_t row = 0; row < 2; ++row) {
            EXPECT_NEAR(dot_of(s.tangents[row], column(frame, 2)), 0, 1e-5);
            const double in_plane[2] = {dot_of(s.tangents[row], column(frame, 0)),
                                        dot_of(s.tangents[row], column(frame, 1))};
            for (size_t k = 0; k < 2; ++k)
                EXPECT_NEAR(in_plane[0] * inv[k] + in_plane[1] * inv[2 + k], row == k, 1e-4);
        }
        EXPECT_NEAR(dot_of(s.tangents[0], column(frame, 1)), 0, 1e-5)
            << "the first axis is the first tangent's";
    });
}

TEST(Jacobian, InverseOfACurveIsAlongItsTangent)
{
    for_random_samples(1, [](const cell_functions &cell, const sample &s) {
        float inv = 0, frame[9];
        std::vector<float> local(static_cast<size_t>(3 * cell.nnodes()));
        const float len =
            UTILjacobian_1d_inv(cell.nnodes(), s.deriv.data(), s.coords.data(), &inv, frame, local.data());
        EXPECT_NEAR(len, std::sqrt(dot_of(s.tangents[0], s.tangents[0])), 1e-6);
        EXPECT_EQ(inv, static_cast<float>(1.0 / len));
        expect_right_handed(frame);
        expect_local(s.coords, frame, local.data());
        EXPECT_NEAR(dot_of(s.tangents[0], column(frame, 0)), len, 1e-5);
    });
}

TEST(Jacobian, SideOfACurveLiesInTheXZPlaneUnlessItRunsAlongY)
{
    const float deriv[2] = {-0.5f, 0.5f};
    const auto frame_along = [&](float x, float y, float z) {
        const float coords[6] = {0, 0, 0, 2 * x, 2 * y, 2 * z};
        std::array<float, 9> frame;
        float inv, local[6];
        UTILjacobian_1d_inv(2, deriv, coords, &inv, frame.data(), local);
        expect_right_handed(frame.data());
        return frame;
    };
    const std::array<float, 9> slanted = frame_along(0.1f, 0.995f, 0); // |t.y| 0.99499
    EXPECT_EQ(slanted[5], 0);                                          // y of the side
    EXPECT_NE(slanted[8], 0);
    const std::array<float, 9> upright = frame_along(0.08f, -0.997f, 0.01f); // |t.y| 0.99674
    EXPECT_EQ(upright[2], 0);                                                // x of the side
    EXPECT_NE(upright[8], 0);
    const std::array<float, 9> along_y = frame_along(0, 3, 0);
    EXPECT_EQ(along_y, (std::array<float, 9>{0, -1, 0, 1, 0, 0, 0, 0, 1}));
    const std::array<float, 9> along_x = frame_along(0.5f, 0, 0);
    EXPECT_EQ(along_x, (std::array<float, 9>{1, 0, 0, 0, 1, 0, 0, 0, 1}));
}

TEST(Jacobian, ACurveWithoutLengthGives0AndWritesNothing)
{
    const float deriv[2] = {-0.5f, 0.5f}, coords[6] = {1, 2, 3, 1, 2, 3};
    float inv = 7, frame[9] = {7, 7, 7, 7, 7, 7, 7, 7, 7}, local[6] = {7, 7, 7, 7, 7, 7};
    EXPECT_EQ(UTILjacobian_1d_inv(2, deriv, coords, &inv, frame, local), 0);
    EXPECT_EQ(inv, 7);
    for (float x : frame)
        EXPECT_EQ(x, 7);
    for (float x : local)
        EXPECT_EQ(x, 7);
    EXPECT_EQ(UTILjacobian_1d_det(2, deriv, coords), 0);
}

TEST(Jacobian, ASurfaceWithoutAreaGives0)
{
    const cell_functions &quad = cell_of(CELL_QUAD, 1);
    const float middle[2] = {0, 0}, line[12] = {0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0};
    float d[8], inv[4], frame[9], local[12];
    quad.slopes(middle, d);
    EXPECT_EQ(UTILjacobian_2d_det(4, d, line), 0);
    EXPECT_EQ(UTILjacobian_2d_inv(4, d, line, inv, frame, local), 0);
    EXPECT_EQ(frame[0], 1); // the frame is there: its first axis is the tangent
    EXPECT_EQ(local[3], 1);
}

TEST(Jacobian, ASolidWithoutVolumeGives0)
{
    const cell_functions &hex = cell_of(CELL_HEX, 1);
    std::vector<float> flat = unit_cell(hex);
    for (size_t node = 0; node < 8; ++node)
        flat[3 * node + 2] = 0;
    const float middle[3] = {0, 0, 0};
    float d[24], inv[9];
    hex.slopes(middle, d);
    EXPECT_EQ(UTILjacobian_3d_det(8, d, flat.data()), 0);
    EXPECT_EQ(UTILjacobian_3d_inv(8, d, flat.data(), inv), 0);
}

TEST(Jacobian, TangentsTooShortForADirectionKeepTheirLengthInAFrame)
{
    const cell_functions &quad = cell_of(CELL_QUAD, 1);
    const float middle[2] = {0, 0};
    float d[8], inv[4], frame[9], local[12];
    quad.slopes(middle, d);
    const auto first_axis = [&](float half_side) {
        std::vector<float> coords = unit_cell(quad);
        for (float &x : coords)
            x *= half_side;
        UTILjacobian_2d_inv(4, d, coords.data(), inv, frame, local);
        return frame[0];
    };
    EXPECT_EQ(first_axis(2e-5f), 1);
    EXPECT_EQ(first_axis(0.9e-5f), 0.9e-5f);
}
