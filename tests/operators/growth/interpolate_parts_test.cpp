#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "operators/growth/interpolate_bindings.h"
#include "operators/growth/interpolate_blend.h"

namespace tressora {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();

std::vector<float> weightsOf(std::vector<float> distances, std::vector<float> reaches, float power = 2.0f,
                             int neighbors = 3) {
    std::vector<float> w(distances.size());
    BindingSettings settings;
    settings.neighbors = neighbors;
    settings.power = power;
    guideWeights(distances, reaches, settings, w);
    return w;
}

TEST(GuideWeights, AreCutAtEachGuidesReachAndSumToOne) {
    const auto w = weightsOf({1.0f, 2.0f, 3.0f}, {4.0f, 4.0f, 2.5f});
    EXPECT_FLOAT_EQ(w[2], 0.0f);  // beyond its reach
    // raw = (R - d) / (R d): 0.75 and 0.25, over the largest, squared.
    EXPECT_NEAR(w[0], 1.0f / (1.0f + 1.0f / 9.0f), 1e-6f);
    EXPECT_NEAR(w[0] + w[1], 1.0f, 1e-6f);
    // Power 1 keeps the ratios of the raws.
    const auto linear = weightsOf({1.0f, 2.0f}, {4.0f, 4.0f}, 1.0f);
    EXPECT_NEAR(linear[0] / linear[1], 3.0f, 1e-5f);
}

TEST(GuideWeights, AStrandOnAGuideRootIsDominatedByItAndStaysFinite) {
    for (float reach : {kInf, 3.0f}) {
        const auto w = weightsOf({0.0f, 1.0f, 1.0f}, {reach, reach, reach});
        EXPECT_TRUE(std::isfinite(w[1]));
        EXPECT_GT(w[0], 1.0f - 1e-6f);
    }
}

TEST(GuideWeights, BeyondEveryReachTheStrandStillFollowsByInverseDistance) {
    const auto w = weightsOf({5.0f, 10.0f}, {1.0f, 1.0f});
    EXPECT_NEAR(w[0], 0.8f, 1e-6f);  // (1/5)^2 : (1/10)^2 is 4 : 1
    EXPECT_NEAR(w[1], 0.2f, 1e-6f);
}

TEST(GuideWeights, OneNeighborOrOneCandidateTakesTheNearestAlone) {
    EXPECT_EQ(weightsOf({0.5f, 0.6f}, {kInf, kInf}, 2.0f, 1), (std::vector<float>{1.0f, 0.0f}));
    EXPECT_EQ(weightsOf({0.5f}, {kInf}), (std::vector<float>{1.0f}));
}

TEST(GuideReaches, RunToTheNeighborsthNearestGuideTimesReachWithinTheirRegion) {
    const std::vector<Vec3f> roots{{0, 0, 0}, {1, 0, 0}, {3, 0, 0}, {10, 0, 0}};
    BindingSettings settings;
    settings.neighbors = 2;
    settings.reach = 1.5f;
    const auto reaches = guideReaches(roots, {}, settings);
    EXPECT_FLOAT_EQ(reaches[0], 4.5f);
    EXPECT_FLOAT_EQ(reaches[1], 3.0f);
    EXPECT_FLOAT_EQ(reaches[3], 13.5f);
    // Alone in its region a guide has no such neighbour: its reach is infinite.
    const std::vector<std::int32_t> regions{0, 0, 0, 1};
    settings.neighbors = 1;
    const auto regional = guideReaches(roots, regions, settings);
    EXPECT_FLOAT_EQ(regional[2], 3.0f);
    EXPECT_EQ(regional[3], kInf);
}

TEST(RootTurn, TakesOneNormalToTheOtherWithBothSpecialCases) {
    const Vec3f up{0, 0, 1};
    const Vec3f side = normalized(Vec3f{1, 1, 0.2f});
    const RootTurn turn = rootTurn(up, side);
    const Vec3f turned = turn.apply(up);
    EXPECT_NEAR(turned.x, side.x, 1e-6f);
    EXPECT_NEAR(turned.y, side.y, 1e-6f);
    EXPECT_NEAR(turned.z, side.z, 1e-6f);
    EXPECT_NEAR(length(turn.apply({0.3f, -2, 1})), length(Vec3f{0.3f, -2, 1}), 1e-5f);
    // Nearly parallel: the identity, exactly.
    EXPECT_TRUE(rootTurn(up, normalized(Vec3f{1e-4f, 0, 1})).identity);
    // Opposite: a half turn, which takes the normal to its opposite and keeps lengths.
    const RootTurn half = rootTurn(up, {0, 0, -1});
    EXPECT_FALSE(half.identity);
    const Vec3f flipped = half.apply(up);
    EXPECT_NEAR(flipped.z, -1.0f, 1e-6f);
    EXPECT_NEAR(length(half.apply({1, 2, 3})), length(Vec3f{1, 2, 3}), 1e-5f);
    // An unknown normal turns nothing.
    EXPECT_TRUE(rootTurn({}, up).identity);
}

TEST(GuideCurves, SampleByArcLengthAndFollowTheSmoothCurveWhenAsked) {
    GuideSet guides;
    guides.addGuide(1, {}, std::vector<Vec3f>{{0, 0, 0}, {0, 0, 1}, {1, 0, 1}}, {});
    const GuideCurves straight = prepareGuideCurves(guides, nullptr, false);
    EXPECT_FLOAT_EQ(straight.lengths[0], 2.0f);
    const Vec3f mid = straight.at(0, 1.5f);
    EXPECT_FLOAT_EQ(mid.x, 0.5f);
    EXPECT_FLOAT_EQ(mid.z, 1.0f);
    EXPECT_EQ(straight.at(0, 9.0f), (Vec3f{1, 0, 1}));
    // The spline passes through the guide's points and rounds the corner.
    const auto spline = centripetalSpline(guides.guidePoints(0), 8);
    ASSERT_EQ(spline.size(), 17u);
    EXPECT_EQ(spline[8], (Vec3f{0, 0, 1}));
    const GuideCurves smooth = prepareGuideCurves(guides, nullptr, true);
    EXPECT_GT(smooth.lengths[0], 2.0f);
    // Round the corner, the curve swings out past it on both sides.
    EXPECT_LT(spline[4].x, 0.0f);
    EXPECT_GT(spline[12].z, 1.0f);
}

TEST(ScaleToLength, ScalesSegmentsAboutTheRoot) {
    std::vector<Vec3f> pts{{1, 1, 1}, {2, 1, 1}, {2, 3, 1}};
    scaleToLength(pts, 6.0f);
    EXPECT_EQ(pts[0], (Vec3f{1, 1, 1}));
    EXPECT_FLOAT_EQ(pts[1].x, 3.0f);
    EXPECT_FLOAT_EQ(pts[2].y, 5.0f);
    std::vector<Vec3f> flat{{0, 0, 0}, {0, 0, 0}};
    scaleToLength(flat, 2.0f);
    EXPECT_EQ(flat[1], (Vec3f{0, 0, 0}));
}

}  // namespace
}  // namespace tressora
