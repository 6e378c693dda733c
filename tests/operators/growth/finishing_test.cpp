#include <gtest/gtest.h>

#include <cmath>

#include "core/guide_set.h"
#include "graph/strand_changes.h"
#include "growth_nodes.h"
#include "operators/growth/node_support.h"

namespace tressora {
namespace {

using testing::NodeRun;
using testing::standingStrands;
using testing::straight;

// A strand bent at a right angle: 2 units up, then 2 along x, 5 points.
std::shared_ptr<StrandSet> bentStrand() {
    auto set = std::make_shared<StrandSet>();
    set->addStrand(1, {}, std::vector<Vec3f>{{0, 0, 0}, {0, 1, 0}, {0, 2, 0}, {1, 2, 0}, {2, 2, 0}});
    return set;
}

// Runs the node incrementally after strand `changed` of `before` moved, and compares with a
// full run on the new strands.
void expectIncrementalMatchesFull(NodeRun& node, std::shared_ptr<StrandSet> before, std::uint32_t changed) {
    const Value previous = node.run({Value(before)});
    auto after = std::make_shared<StrandSet>(*before);
    const PointRange r = after->pointRange(changed);
    for (std::size_t p = r.begin; p < r.end; ++p) after->mutablePoints()[p] += Vec3f{0.5f, float(p - r.begin) * 0.3f, 0};
    InputChanges changes;
    changes.inputs.push_back(std::make_shared<StrandChanges>(StrandChanges{false, {changed}, false}));
    Value result;
    StrandChanges made;
    ASSERT_TRUE(node.op->evaluateIncremental(node.context, {Value(after)}, changes, previous, result, made));
    EXPECT_EQ(made.strands, std::vector<std::uint32_t>{changed});
    EXPECT_EQ(result.as<StrandSet>()->fingerprint(), node.strands(after)->fingerprint());
}

TEST(GrowthNodes, AnUnconnectedInputFailsWithTheNodesSentence) {
    const struct {
        const char* type;
        const char* message;
    } cases[] = {
        {"Output", "Output: strands input not connected"}, {"ToStrands", "ToStrands: guides input not connected"},
        {"ToGuides", "ToGuides: strands input not connected"}, {"Length", "Length: strands input not connected"},
        {"Width", "Width: strands input not connected"},
    };
    for (const auto& c : cases) {
        NodeRun node(c.type);
        EXPECT_EQ(node.error({Value()}), c.message);
    }
}

TEST(LengthNode, KeepLaysThePointsEvenlyOverTheKeptShare) {
    NodeRun node("Length");
    node.set("keep", 0.5);
    const auto out = node.strands(bentStrand());
    ASSERT_EQ(out->pointCount(), 5u);
    EXPECT_NEAR(polylineLength(out->strandPoints(0)), 2.0f, 1e-5f);
    EXPECT_NEAR(out->strandPoints(0)[4].y, 2.0f, 1e-6f);
    EXPECT_NEAR(out->strandPoints(0)[4].x, 0.0f, 1e-6f);

    node.set("keep", 0.75);
    const auto more = node.strands(bentStrand());
    // The tip lies 3 units along the old polyline, past the bend.
    EXPECT_NEAR(more->strandPoints(0)[4].x, 1.0f, 1e-6f);
    EXPECT_NEAR(more->strandPoints(0)[4].y, 2.0f, 1e-6f);
}

TEST(LengthNode, RandomTrimTakesItsShareOfTheKeptLength) {
    NodeRun node("Length");
    node.set("keep", 0.8).set("trimMin", 0.5).set("trimMax", 0.5);
    const auto set = standingStrands(10, 9, 0.5f);  // 4 units long
    auto out = node.strands(set);
    for (std::size_t i = 0; i < out->strandCount(); ++i)
        EXPECT_NEAR(polylineLength(out->strandPoints(i)), 4.0f * 0.8f * 0.5f, 1e-5f) << i;

    node.set("trimMin", 0.0).set("trimMax", 0.6).set("fraction", 0.5);
    out = node.strands(standingStrands(400, 3));
    int trimmed = 0;
    for (std::size_t i = 0; i < out->strandCount(); ++i) {
        const float share = polylineLength(out->strandPoints(i)) / 2.0f;
        EXPECT_GE(share, 0.8f * 0.4f - 1e-5f);
        EXPECT_LE(share, 0.8f + 1e-5f);
        trimmed += share < 0.8f - 1e-5f;
    }
    EXPECT_GT(trimmed, 150);
    EXPECT_LT(trimmed, 250);

    node.set("fraction", 0.0);
    out = node.strands(standingStrands(50, 3));
    for (std::size_t i = 0; i < out->strandCount(); ++i) EXPECT_NEAR(polylineLength(out->strandPoints(i)), 1.6f, 1e-5f);
}

TEST(LengthNode, OnePointStrandsAndGuidesKeepTheirLayout) {
    NodeRun node("Length");
    node.set("keep", 0.25);
    auto set = std::make_shared<StrandSet>();
    set->addStrand(9, {}, std::vector<Vec3f>{{1, 2, 3}});
    set->addStrand(10, {}, straight({}, {0, 1, 0}, 3));
    const auto out = node.strands(set);
    EXPECT_EQ(out->points()[0], (Vec3f{1, 2, 3}));
    EXPECT_EQ(out->pointCount(), 4u);

    auto guides = std::make_shared<GuideSet>();
    guides->addGuide(4, {}, straight({}, {0, 1, 0}, 5), {}, {{"w", 2.0f}});
    const auto cut = node.run({Value(guides)}).as<GuideSet>();
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->pointCount(), 5u);
    EXPECT_NEAR(cut->points()[4].y, 1.0f, 1e-6f);
    EXPECT_FLOAT_EQ(cut->attribute("w")->at(0), 2.0f);
}

TEST(LengthNode, IncrementalRunRecomputesTheChangedStrand) {
    NodeRun node("Length");
    node.set("keep", 0.6).set("trimMax", 0.3).set("fraction", 0.5);
    expectIncrementalMatchesFull(node, standingStrands(600, 6), 417);
}

TEST(WidthNode, ProfileFollowsTheShareOfTheLength) {
    NodeRun node("Width");
    node.set("width", 0.01).set("profile", Ramp{{{0.0, 1.0}, {1.0, 0.0}}, true});
    auto set = std::make_shared<StrandSet>();
    // Uneven spacing: the point at index 1 lies at three quarters of the length.
    set->addStrand(1, {}, std::vector<Vec3f>{{0, 0, 0}, {0, 3, 0}, {0, 4, 0}});
    const auto out = node.strands(set);
    EXPECT_NEAR(out->widths()[0], 0.01f, 1e-6f);
    EXPECT_NEAR(out->widths()[1], 0.0025f, 1e-5f);
    EXPECT_NEAR(out->widths()[2], 0.0f, 1e-6f);
}

TEST(WidthNode, RandomnessVariesStrandsWithinItsShare) {
    NodeRun node("Width");
    node.set("width", 0.01).set("randomness", 0.5).set("profile", Ramp{{{0.0, 1.0}, {1.0, 1.0}}, true});
    const auto out = node.strands(standingStrands(200, 2));
    float low = 1, high = 0;
    for (std::size_t i = 0; i < out->strandCount(); ++i) {
        EXPECT_EQ(out->widths()[2 * i], out->widths()[2 * i + 1]);
        low = std::min(low, out->widths()[2 * i]);
        high = std::max(high, out->widths()[2 * i]);
    }
    EXPECT_GE(low, 0.005f);
    EXPECT_LE(high, 0.015f);
    EXPECT_LT(low, 0.006f);
    EXPECT_GT(high, 0.014f);
}

TEST(WidthNode, MappedWidthIsReadPerPoint) {
    NodeRun node("Width");
    auto set = standingStrands(2, 3);
    std::span<float> thick = set->addPointChannel("thick");
    for (std::size_t p = 0; p < thick.size(); ++p) thick[p] = float(p) * 0.1f;
    node.set("width", MapRef{MapSource::Attribute, "thick", MapComponent::Auto, 0.0, 1.0})
        .set("profile", Ramp{{{0.0, 1.0}, {1.0, 1.0}}, true});
    const auto out = node.strands(set);
    for (std::size_t p = 0; p < 6; ++p) EXPECT_NEAR(out->widths()[p], float(p) * 0.1f, 1e-6f);
    expectIncrementalMatchesFull(node, set, 1);
}

TEST(ResampleNode, EvenGivesEveryStrandItsSegments) {
    NodeRun node("Resample");
    auto set = standingStrands(3, 5);
    std::span<float> curl = set->addPointChannel("curl");
    for (std::size_t p = 0; p < curl.size(); ++p) curl[p] = float(p % 5);
    set->addStrand(77, {}, std::vector<Vec3f>{{4, 4, 4}});
    const auto out = node.strands(set);
    ASSERT_EQ(out->strandCount(), 4u);
    EXPECT_EQ(out->pointRange(0).size(), 17u);
    EXPECT_NEAR(out->strandPoints(1)[4].y, 1.0f, 1e-6f);
    EXPECT_NEAR(out->pointChannel("curl")->values()[17 + 2], 0.5f, 1e-6f);
    EXPECT_EQ(out->strandPoints(3).size(), 1u);  // one point passes through
    EXPECT_EQ(out->strandPoints(3)[0], (Vec3f{4, 4, 4}));

    node.set("segments", std::int64_t{0});
    EXPECT_EQ(node.strands(set), set);
}

TEST(ResampleNode, ModeWordsAreExact) {
    NodeRun node("Resample");
    for (const char* bad : {"Even", "spiral", ""}) {
        node.set("mode", std::string(bad));
        EXPECT_EQ(node.error({Value(standingStrands(1, 3))}), "Resample: mode must be even, length or curvature")
            << bad;
    }
}

TEST(ResampleNode, LengthModeCountsAgainstTheNinetyFifthPercentile) {
    NodeRun node("Resample");
    node.set("mode", std::string("length")).set("segments", std::int64_t{20});
    auto set = std::make_shared<StrandSet>();
    for (int i = 1; i <= 100; ++i) set->addStrand(std::uint64_t(i), {}, straight({}, {0, 1, 0}, 2, float(i)));
    const auto out = node.strands(set);
    for (std::size_t i = 94; i < 100; ++i) EXPECT_EQ(out->pointRange(i).size(), 21u) << i;
    EXPECT_EQ(out->pointRange(0).size(), 4u);  // minSegments
    EXPECT_EQ(out->pointRange(47).size(), 11u);

    auto longer = std::make_shared<StrandSet>(*set);
    longer->mutablePoints()[199] = {0, 5000, 0};
    const auto again = node.strands(longer);
    EXPECT_EQ(std::vector<std::uint64_t>(again->offsets().begin(), again->offsets().end()),
              std::vector<std::uint64_t>(out->offsets().begin(), out->offsets().end()));
}

TEST(ResampleNode, CurvatureGivesStraightStrandsTheFewestSegments) {
    NodeRun node("Resample");
    node.set("mode", std::string("curvature")).set("segments", std::int64_t{32}).set("minSegments", std::int64_t{4});
    auto set = standingStrands(1, 9);
    std::vector<Vec3f> arc;
    for (int k = 0; k <= 20; ++k) {
        const float a = float(k) / 20.0f * 3.14159265f;
        arc.push_back({std::cos(a), std::sin(a), 0});
    }
    set->addStrand(2, {}, arc);
    const auto out = node.strands(set);
    EXPECT_EQ(out->pointRange(0).size(), 5u);
    EXPECT_EQ(out->pointRange(1).size(), 13u);  // half a turn at 15 degrees a segment
    for (const Vec3f& p : out->strandPoints(1)) EXPECT_NEAR(length(p), 1.0f, 0.02f);
}

TEST(ResampleNode, IncrementalRunRecomputesTheChangedStrand) {
    NodeRun node("Resample");
    node.set("segments", std::int64_t{6});
    expectIncrementalMatchesFull(node, standingStrands(700, 9), 650);
    node.set("mode", std::string("curvature"));
    expectIncrementalMatchesFull(node, standingStrands(50, 9), 3);
}

TEST(ResampleNode, ResamplesGuidesWithTheirLayers) {
    NodeRun node("Resample");
    node.set("segments", std::int64_t{4});
    auto guides = std::make_shared<GuideSet>();
    guides->addGuide(3, {}, straight({}, {0, 1, 0}, 3), {}, {}, {{"paint", {0, 1, 2}}});
    const auto out = node.run({Value(guides)}).as<GuideSet>();
    ASSERT_TRUE(out);
    EXPECT_EQ(out->pointCount(), 5u);
    EXPECT_FLOAT_EQ(out->pointAttribute("paint")->at(1), 0.5f);
}

}  // namespace
}  // namespace tressora
