#include <gtest/gtest.h>

#include "core/errors.h"
#include "core/expect_text.h"
#include "core/guide_frame.h"
#include "interpolate_fixtures.h"
#include "../thread_runs.h"
#include "operators/growth/interpolate_bindings.h"
#include "operators/growth/interpolate_blend.h"

namespace tressora {
namespace {

using interp::bentCurve;
using interp::gridGuides;
using interp::makeNode;
using interp::run;
using interp::strandAt;
using interp::strandsOver;

void expectPointsNear(std::span<const Vec3f> a, std::span<const Vec3f> b, float tolerance) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        EXPECT_NEAR(a[i].x, b[i].x, tolerance) << "point " << i;
        EXPECT_NEAR(a[i].y, b[i].y, tolerance) << "point " << i;
        EXPECT_NEAR(a[i].z, b[i].z, tolerance) << "point " << i;
    }
}

TEST(Interpolate, StrandOnAGuideRootTakesThatGuidesShape) {
    const auto guides = gridGuides(4);
    auto node = makeNode();
    for (int neighbors : {1, 3, 8}) {
        node->paramValues.set("neighbors", std::int64_t{neighbors});
        const auto out = run(*node, strandAt({2, 1, 0}, 7), guides);
        // Guide 7 (i = 2, j = 1), laid along the strand's 7 points by arc length.
        expectPointsNear(out->strandPoints(0), resampleCurve(guides->guidePoints(6), 7), 1e-5f);
    }
}

TEST(Interpolate, OneNeighborGivesHardEdgesBetweenGuides) {
    auto guides = std::make_shared<GuideSet>();
    guides->addGuide(1, {}, bentCurve({0, 0, 0}, 2, 1.0f), {});
    guides->addGuide(2, {}, bentCurve({1, 0, 0}, 2, -1.0f), {});
    auto node = makeNode();
    node->paramValues.set("neighbors", std::int64_t{1});
    auto strands = std::make_shared<StrandSet>();
    for (float x : {0.49f, 0.51f}) strands->append(*strandAt({x, 0, 0}, 5, x < 0.5f ? 1 : 2));
    const auto out = run(*node, strands, guides);
    // Each takes its nearest guide's offsets whole, however close to the middle.
    EXPECT_NEAR(out->strandPoints(0)[4].x, 0.49f + 1.0f, 1e-5f);
    EXPECT_NEAR(out->strandPoints(1)[4].x, 0.51f - 1.0f, 1e-5f);
    // Three neighbours blend them smoothly instead.
    node->paramValues.set("neighbors", std::int64_t{3});
    const auto soft = run(*node, strands, guides);
    EXPECT_LT(std::fabs(soft->strandPoints(0)[4].x - soft->strandPoints(1)[4].x), 0.2f);
}

TEST(Interpolate, BindingsStandAcrossFramesAndAMovedGuideCurveRerunsOnlyTheBlend) {
    const auto strands = strandsOver(1000, 0.0f, 3.0f);
    auto guides = gridGuides(4);
    auto node = makeNode();
    const std::uint64_t before = bindingSearchCount();
    const auto first = run(*node, strands, guides);
    EXPECT_EQ(bindingSearchCount() - before, 1000u);

    // Next frame: the guides' tips move, their roots stay; a new strand set of the same ids.
    auto moved = std::make_shared<GuideSet>();
    for (std::size_t g = 0; g < guides->guideCount(); ++g) {
        std::vector<Vec3f> pts(guides->guidePoints(g).begin(), guides->guidePoints(g).end());
        for (std::size_t p = 1; p < pts.size(); ++p) pts[p].y += 0.5f * float(p);
        moved->addGuide(guides->ids()[g], guides->roots()[g], pts, {});
    }
    const auto copy = std::make_shared<StrandSet>(*strands);
    const std::uint64_t searched = bindingSearchCount();
    const auto second = run(*node, copy, moved);
    EXPECT_EQ(bindingSearchCount(), searched);
    EXPECT_NE(second->fingerprint(), first->fingerprint());
    // The same result as a fresh node that searches.
    auto fresh = makeNode();
    EXPECT_EQ(run(*fresh, copy, moved)->fingerprint(), second->fingerprint());

    // A param that chooses guides rebinds every strand.
    node->paramValues.set("reach", 2.0);
    const std::uint64_t beforeReach = bindingSearchCount();
    run(*node, copy, moved);
    EXPECT_EQ(bindingSearchCount() - beforeReach, 1000u);

    // One moved root rebinds its chunk of 256 only.
    auto shifted = std::make_shared<StrandSet>(*copy);
    shifted->mutablePoints()[shifted->pointRange(600).begin].x += 0.01f;
    const std::uint64_t beforeShift = bindingSearchCount();
    run(*node, shifted, moved);
    EXPECT_EQ(bindingSearchCount() - beforeShift, 256u);
}

TEST(Interpolate, AdoptedNodeKeepsTheBindings) {
    const auto strands = strandsOver(300, 0.0f, 3.0f);
    const auto guides = gridGuides(4);
    auto old = makeNode();
    const auto first = run(*old, strands, guides);
    auto replacement = makeNode();
    replacement->adoptState(*old);
    replacement->adoptState(*replacement);  // itself: nothing happens
    const std::uint64_t before = bindingSearchCount();
    EXPECT_EQ(run(*replacement, strands, guides)->fingerprint(), first->fingerprint());
    EXPECT_EQ(bindingSearchCount(), before);
}

TEST(Interpolate, WithoutGuidesTheInputPassesThroughWithANote) {
    const auto strands = strandsOver(10, 0.0f, 1.0f);
    auto node = makeNode();
    for (const auto& guides : {std::shared_ptr<const GuideSet>{}, std::make_shared<const GuideSet>()}) {
        EvalContext context;
        const auto out = run(*node, strands, guides, &context);
        EXPECT_EQ(out.get(), strands.get());
        ASSERT_EQ(context.notes.size(), 1u);
        EXPECT_EQ(context.notes[0], "no guides: place some with the guide tools; the strands keep their incoming shape");
    }
}

TEST(Interpolate, FailuresOfTheTypeAreGraphErrors) {
    auto node = makeNode();
    EvalContext context;
    EXPECT_EQ(testing::failureText<GraphError>([&] { node->evaluate(context, {Value(), Value(gridGuides(2))}); }),
              "Interpolate: strands input not connected");
    node->paramValues.set("take", std::string("curl"));
    EXPECT_EQ(testing::failureText<GraphError>([&] { run(*node, strandAt({0, 0, 0}), gridGuides(2)); }),
              "Interpolate: take must be shape or length");
}

TEST(Interpolate, LimitDistanceZeroIgnoresFalloffAndWritesNoInfluence) {
    const auto strands = strandsOver(200, -3.0f, 6.0f);
    const auto guides = gridGuides(3);
    auto node = makeNode();
    const auto plain = run(*node, strands, guides);
    node->paramValues.set("falloff", Ramp{{{0.0, 0.2}, {1.0, 0.0}}, true});
    const auto withFalloff = run(*node, strands, guides);
    EXPECT_EQ(plain->fingerprint(), withFalloff->fingerprint());
    EXPECT_EQ(withFalloff->strandChannel("guideInfluence"), nullptr);

    // Above 0: a strand beyond the limit keeps its incoming shape and reads influence 0.
    node->paramValues.set("limitDistance", 1.0);
    node->paramValues.set("falloff", Ramp{{{0.0, 1.0}, {1.0, 0.0}}, true});
    auto two = std::make_shared<StrandSet>();
    two->append(*strandAt({1, 1, 0}, 5, 1));
    two->append(*strandAt({10, 10, 0}, 5, 2));
    two->append(*strandAt({1.25f, 1, 0}, 5, 3));
    const auto limited = run(*node, two, guides);
    const StrandChannel* influence = limited->strandChannel("guideInfluence");
    ASSERT_NE(influence, nullptr);
    EXPECT_FLOAT_EQ(influence->values()[0], 1.0f);
    EXPECT_FLOAT_EQ(influence->values()[1], 0.0f);
    EXPECT_NEAR(influence->values()[2], 0.75f, 1e-5f);
    expectPointsNear(limited->strandPoints(1), two->strandPoints(1), 0.0f);
    node->paramValues.set("influenceChannel", std::string());
    EXPECT_EQ(run(*node, two, guides)->strandChannel("guideInfluence"), nullptr);
}

TEST(Interpolate, TakeLengthKeepsTheStrandsShapeAtTheGuidesLength) {
    auto guides = std::make_shared<GuideSet>();
    guides->addGuide(1, {}, std::vector<Vec3f>{{0, 0, 0}, {0, 0, 3}}, {});
    auto node = makeNode();
    node->paramValues.set("take", std::string("length"));
    auto strands = std::make_shared<StrandSet>();
    const std::vector<Vec3f> pts{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}};
    strands->addStrand(1, {}, pts);
    const auto out = run(*node, strands, guides);
    const auto p = out->strandPoints(0);
    EXPECT_NEAR(polylineLength(p), 3.0f, 1e-5f);
    EXPECT_NEAR(p[1].x, 1.5f, 1e-5f);
    EXPECT_NEAR(p[2].y, 1.5f, 1e-5f);
}

TEST(Interpolate, PreserveLengthGivesTheGuidesBlendedLength) {
    // Two guides bending opposite ways: their blend is shorter than either.
    auto guides = std::make_shared<GuideSet>();
    guides->addGuide(1, {}, std::vector<Vec3f>{{0, 0, 0}, {2, 0, 0}}, {});
    guides->addGuide(2, {}, std::vector<Vec3f>{{1, 0, 0}, {1, 0, 2}}, {});
    auto node = makeNode();
    const auto strands = strandAt({0.5f, 0, 0}, 5);
    const float blended = polylineLength(run(*node, strands, guides)->strandPoints(0));
    EXPECT_LT(blended, 1.9f);
    node->paramValues.set("preserveLength", true);
    EXPECT_NEAR(polylineLength(run(*node, strands, guides)->strandPoints(0)), 2.0f, 1e-4f);
}

TEST(Interpolate, ResultsDoNotDependOnTheThreadCount) {
    const auto strands = strandsOver(5000, -0.5f, 4.5f);
    const auto guides = gridGuides(5);
    const auto fingerprints = testing::oneThreadThenAll([&] {
        auto node = makeNode();
        node->paramValues.set("smoothGuides", true);
        node->paramValues.set("limitDistance", 0.8);
        return run(*node, strands, guides)->fingerprint();
    });
    EXPECT_EQ(fingerprints.first, fingerprints.second);
}

TEST(Interpolate, CarriesGuideAttributesAndLayersOntoTheStrands) {
    auto guides = std::make_shared<GuideSet>();
    guides->addGuide(1, {}, bentCurve({0, 0, 0}, 2, 0), {}, {{"tint", 1.0f}}, {{"fade", {0, 0, 0, 0, 4}}});
    guides->addGuide(2, {}, bentCurve({1, 0, 0}, 2, 0), {}, {{"tint", 3.0f}}, {{"fade", {0, 0, 0, 0, 8}}});
    auto node = makeNode();
    const auto out = run(*node, strandAt({0.5f, 0, 0}, 3), guides);
    ASSERT_NE(out->strandChannel("tint"), nullptr);
    EXPECT_NEAR(out->strandChannel("tint")->values()[0], 2.0f, 1e-5f);
    const auto fade = out->pointChannel("fade")->values();
    EXPECT_NEAR(fade[0], 0.0f, 1e-6f);
    EXPECT_NEAR(fade[1], 0.0f, 1e-6f);  // halfway: the guides' third point
    EXPECT_NEAR(fade[2], 6.0f, 1e-5f);
}

TEST(Interpolate, PassesTheStrandsChannelsAndClampsWhatItReads) {
    auto node = makeNode();
    EXPECT_TRUE(node->passesChannels(1));
    EXPECT_FALSE(node->passesChannels(2));
    EXPECT_TRUE(node->sceneInputs().empty());
    node->paramValues.set("respectParts", true);
    EXPECT_EQ(node->sceneInputs(), std::vector<std::string>{"parts"});
    node->paramValues.set("neighbors", std::int64_t{40});
    EXPECT_EQ(node->paramValues.getInt("neighbors", 0), 16);
    node->paramValues.set("reach", 0.5);
    EXPECT_EQ(node->paramValues.getFloat("reach", 0), 1.0);
}

}  // namespace
}  // namespace tressora
