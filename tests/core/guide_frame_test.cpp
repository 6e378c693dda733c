#include <gtest/gtest.h>

#include <cmath>

#include "core/guide_frame.h"
#include "core/test_meshes.h"

namespace tressora {
namespace {

void expectOrthonormal(const Frame& f) {
    EXPECT_NEAR(length(f.side), 1.0f, 1e-5f);
    EXPECT_NEAR(length(f.up), 1.0f, 1e-5f);
    EXPECT_NEAR(length(f.axis), 1.0f, 1e-5f);
    EXPECT_NEAR(dot(f.side, f.up), 0.0f, 1e-5f);
    EXPECT_NEAR(dot(f.up, f.axis), 0.0f, 1e-5f);
    EXPECT_NEAR(length(cross(f.side, f.up) - f.axis), 0.0f, 1e-5f);  // right-handed
}

TEST(GuideFrame, FramesStartFromFrameUpAndTurnOnlyWithTheCurve) {
    // Up the y axis, then bending over toward +x.
    const std::vector<Vec3f> curve = {{0, 0, 0}, {0, 1, 0}, {0, 2, 0}, {1, 3, 0}, {2, 3, 0}};
    const auto frames = carriedFrames(curve, {0, 0, 1});
    ASSERT_EQ(frames.size(), 5u);
    for (const Frame& f : frames) expectOrthonormal(f);
    EXPECT_EQ(frames[0].up, (Vec3f{0, 0, 1}));
    EXPECT_EQ(frames[1].up, (Vec3f{0, 0, 1}));
    // The bend is in the x-y plane, so the z-pointing up never needs to turn.
    for (const Frame& f : frames) EXPECT_NEAR(f.up.z, 1.0f, 1e-5f);
    EXPECT_NEAR(frames[4].axis.x, 1.0f, 1e-6f);
    // A frameUp along the curve is replaced by a world axis across it.
    const auto fallback = carriedFrames(curve, {0, 5, 0});
    EXPECT_NEAR(dot(fallback[0].up, fallback[0].axis), 0.0f, 1e-6f);
    EXPECT_NEAR(length(fallback[0].up), 1.0f, 1e-6f);
    // Coinciding points borrow a neighbouring tangent instead of failing.
    const auto stuck = carriedFrames(std::vector<Vec3f>{{0, 0, 0}, {0, 0, 0}, {0, 1, 0}}, {0, 0, 1});
    EXPECT_EQ(stuck[0].axis, (Vec3f{0, 1, 0}));
}

TEST(GuideFrame, RootFrameStandsOnTheSurface) {
    const ScalpMesh sphere = testing::icosphere(2);
    const SurfacePoint at = sphere.closestPoint({0.3f, 2.0f, 0.1f});
    const Frame f = rootFrame(sphere, {at.face, at.b1, at.b2});
    expectOrthonormal(f);
    EXPECT_EQ(f.origin, at.position);
    EXPECT_EQ(f.up, at.normal);
    EXPECT_EQ(rootFrame(sphere, {-1, 0, 0}).origin, (Vec3f{}));
}

TEST(GuideFrame, ResamplingKeepsEndsAndSpacesEvenly) {
    const std::vector<Vec3f> curve = {{0, 0, 0}, {0, 1, 0}, {0, 1, 3}};
    const auto even = resampleCurve(curve, 5);
    ASSERT_EQ(even.size(), 5u);
    EXPECT_EQ(even.front(), curve.front());
    EXPECT_EQ(even.back(), curve.back());
    EXPECT_NEAR(length(even[2] - Vec3f{0, 1, 1}), 0.0f, 1e-6f);
    const auto byIndex = resampleByIndex(curve, 5);
    EXPECT_NEAR(length(byIndex[1] - Vec3f{0, 0.5f, 0}), 0.0f, 1e-6f);
    EXPECT_NEAR(length(byIndex[3] - Vec3f{0, 1, 1.5f}), 0.0f, 1e-6f);
}

}  // namespace
}  // namespace tressora
