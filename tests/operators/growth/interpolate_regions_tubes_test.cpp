#include <gtest/gtest.h>

#include <cmath>

#include "core/test_meshes.h"
#include "interpolate_fixtures.h"
#include "operators/growth/interpolate_blend.h"

namespace tressora {
namespace {

using interp::bentCurve;
using interp::makeNode;
using interp::run;

/// A 4 by 4 grid painted red left of x = 2 and blue right of it, in the colour set "zones".
std::shared_ptr<ScalpMesh> paintedGrid() {
    auto scalp = std::make_shared<ScalpMesh>(testing::grid(8, 4.0f));
    std::vector<ScalpMesh::Color> colours;
    for (const auto& tri : scalp->triangles()) {
        const Vec3f centre = (scalp->points()[tri[0]] + scalp->points()[tri[1]] + scalp->points()[tri[2]]) / 3.0f;
        const ScalpMesh::Color c = centre.x < 2.0f ? ScalpMesh::Color{1, 0, 0, 1} : ScalpMesh::Color{0, 0, 1, 1};
        for (int k = 0; k < 3; ++k) colours.push_back(c);
    }
    scalp->setColorSet("zones", colours);
    return scalp;
}

StrandRoot rootOn(const ScalpMesh& scalp, Vec3f p) {
    const SurfacePoint s = scalp.closestPoint(p);
    return {s.face, s.b1, s.b2};
}

TEST(InterpolateRegions, StrandsBlendOnlyTheGuidesOfTheirOwnRegion) {
    const auto scalp = paintedGrid();
    auto guides = std::make_shared<GuideSet>();
    guides->addGuide(1, rootOn(*scalp, {1.5f, 2, 0}), bentCurve({1.5f, 2, 0}, 2, 1.0f), {});
    guides->addGuide(2, rootOn(*scalp, {2.5f, 2, 0}), bentCurve({2.5f, 2, 0}, 2, -1.0f), {});
    guides->addGuide(3, rootOn(*scalp, {0.5f, 0.5f, 0}), bentCurve({0.5f, 0.5f, 0}, 2, 1.0f), {});
    auto strands = std::make_shared<StrandSet>();
    for (float x : {1.9f, 2.1f}) {
        const Vec3f root{x, 2, 0};
        strands->addStrand(x < 2 ? 1 : 2, rootOn(*scalp, root), bentCurve(root, 1, 0));
    }
    auto node = makeNode();
    const auto across = run(*node, strands, guides, nullptr, scalp);
    EXPECT_LT(across->strandPoints(0)[4].x, 1.9f + 0.9f);  // the right guide pulls it back

    node->paramValues.set("regionMap", std::string("zones"));
    EvalContext context;
    const auto split = run(*node, strands, guides, &context, scalp);
    EXPECT_TRUE(context.notes.empty());
    // Left of the edge only the left guides blend: both bend +x by 1, so does the strand.
    EXPECT_NEAR(split->strandPoints(0)[4].x, 1.9f + 1.0f, 1e-5f);
    EXPECT_NEAR(split->strandPoints(1)[4].x, 2.1f - 1.0f, 1e-5f);
    const StrandChannel* region = split->strandChannel("region");
    ASSERT_NE(region, nullptr);
    EXPECT_EQ(region->values()[0], 0.0f);
    EXPECT_EQ(region->values()[1], 1.0f);

    // A map that can't be found leaves a note and blends across regions.
    node->paramValues.set("regionMap", std::string("nowhere"));
    EvalContext missing;
    const auto fallback = run(*node, strands, guides, &missing, scalp);
    ASSERT_EQ(missing.notes.size(), 1u);
    EXPECT_NE(missing.notes[0].find("no map, color set or image of that name"), std::string::npos);
    EXPECT_EQ(fallback->fingerprint(), across->fingerprint());
}

/// A thin folded shell: a strip along x at z = 0, turned up at x = 4 and back over itself at
/// z = 0.3, so the two layers are close in space but far apart along the surface.
std::shared_ptr<const ScalpMesh> foldedStrip() {
    std::vector<Vec3f> profile;
    for (int i = 0; i <= 8; ++i) profile.push_back({0.5f * float(i), 0, 0});
    profile.push_back({4.0f, 0, 0.15f});
    for (int i = 8; i >= 0; --i) profile.push_back({0.5f * float(i), 0, 0.3f});
    std::vector<Vec3f> points;
    for (const Vec3f& p : profile) points.push_back(p);
    for (const Vec3f& p : profile) points.push_back(p + Vec3f{0, 1, 0});
    const int n = static_cast<int>(profile.size());
    std::vector<ScalpMesh::Triangle> triangles;
    for (int i = 0; i + 1 < n; ++i) {
        triangles.push_back({i, i + 1, n + i + 1});
        triangles.push_back({i, n + i + 1, n + i});
    }
    return std::make_shared<const ScalpMesh>(std::move(points), std::move(triangles));
}

TEST(InterpolateFollowSurface, GuidesDoNotReachAcrossAThinShell) {
    const auto shell = foldedStrip();
    auto guides = std::make_shared<GuideSet>();
    const Vec3f below{1, 0.5f, 0}, above{1, 0.5f, 0.3f};
    guides->addGuide(1, rootOn(*shell, below), bentCurve(below, 1, 1.0f), {});
    guides->addGuide(2, rootOn(*shell, above), bentCurve(above, 1, -1.0f), {});
    guides->addGuide(3, rootOn(*shell, {3, 0.5f, 0}), bentCurve({3, 0.5f, 0}, 1, 1.0f), {});
    auto strands = std::make_shared<StrandSet>();
    const Vec3f root{1.2f, 0.5f, 0};
    strands->addStrand(1, rootOn(*shell, root), bentCurve(root, 1, 0));
    auto node = makeNode();
    node->paramValues.set("neighbors", std::int64_t{2});
    // The guide across the gap, turned over from the upper layer, pulls the tip down.
    const Vec3f straight = run(*node, strands, guides, nullptr, shell)->strandPoints(0)[4];
    EXPECT_LT(straight.z, 0.95f);
    node->paramValues.set("followSurface", true);
    const Vec3f along = run(*node, strands, guides, nullptr, shell)->strandPoints(0)[4];
    EXPECT_NEAR(along.x, 1.2f + 1.0f, 1e-5f);
    EXPECT_NEAR(along.z, 1.0f, 1e-5f);
    // Without the scalp input it measures straight, and says so.
    EvalContext context;
    EXPECT_LT(run(*node, strands, guides, &context)->strandPoints(0)[4].x, 1.2f + 0.9f);
    ASSERT_EQ(context.notes.size(), 1u);
}

TEST(InterpolateTubes, StrandsInsideATubeKeepTheirPlaceInItsSectionToTheTip) {
    auto guides = std::make_shared<GuideSet>();
    GuideTube tube;
    tube.width = {0.5f, 0.25f};
    tube.aspect = {1.0f};
    tube.twist = {0.0f};
    guides->addGuide(1, {}, bentCurve({0, 0, 0}, 2, 0), tube);
    guides->addGuide(2, {}, bentCurve({5, 0, 0}, 2, 1.0f), {});
    auto strands = std::make_shared<StrandSet>();
    const Vec3f inside{0.2f, 0, 0}, edge{0.55f, 0, 0}, far{3, 0, 0};
    strands->addStrand(1, {}, bentCurve(inside, 1, 0));
    strands->addStrand(2, {}, bentCurve(edge, 1, 0));
    strands->addStrand(3, {}, bentCurve(far, 1, 0));
    auto node = makeNode();
    node->paramValues.set("fillTubes", true);
    node->paramValues.set("neighbors", std::int64_t{1});
    const auto out = run(*node, strands, guides);
    const auto id = out->strandChannel("tubeId")->values();
    const auto u = out->strandChannel("tubeU")->values();
    const auto v = out->strandChannel("tubeV")->values();
    EXPECT_EQ(id[0], 0.0f);
    EXPECT_EQ(id[1], 0.0f);  // on the soft edge
    EXPECT_EQ(id[2], -1.0f);
    EXPECT_NEAR(std::hypot(u[0], v[0]), 0.4f, 1e-5f);
    // Inside, the strand tapers with the tube: 0.4 of the half-width at the tip too.
    const Vec3f tip = out->strandPoints(0)[4];
    EXPECT_NEAR(std::hypot(tip.x, tip.y), 0.4f * 0.25f, 1e-4f);
    EXPECT_NEAR(tip.z, 2.0f, 1e-4f);
    // On the soft edge it leans part of the way: between the blend (0.55) and riding (0.275).
    const float edgeTip = out->strandPoints(1)[4].x;
    EXPECT_GT(edgeTip, 0.276f);
    EXPECT_LT(edgeTip, 0.549f);
    // A hard edge: tubeBlend 0 leaves the edge strand to the blend.
    node->paramValues.set("tubeBlend", 0.0);
    const auto hard = run(*node, strands, guides);
    EXPECT_EQ(hard->strandChannel("tubeId")->values()[1], -1.0f);
    EXPECT_NEAR(hard->strandPoints(1)[4].x, 0.55f, 1e-5f);
    // Without fillTubes no tube channels appear.
    node->paramValues.set("fillTubes", false);
    EXPECT_EQ(run(*node, strands, guides)->strandChannel("tubeId"), nullptr);
}

TEST(InterpolateClearance, LiftsWhatSinksIntoTheSkinAndKeepsTheLength) {
    const auto sphere = std::make_shared<const ScalpMesh>(testing::icosphere(4, 1.0f));
    const Vec3f pole{0, 0, 1};
    const SurfacePoint at = sphere->closestPoint(pole);
    auto guides = std::make_shared<GuideSet>();
    // A guide that dives through the sphere.
    guides->addGuide(1, {at.face, at.b1, at.b2},
                     std::vector<Vec3f>{at.position, at.position + Vec3f{0.3f, 0, -0.2f},
                                        at.position + Vec3f{0.7f, 0, -0.5f}, at.position + Vec3f{1.3f, 0, -0.9f}},
                     {});
    auto strands = std::make_shared<StrandSet>();
    strands->addStrand(1, {at.face, at.b1, at.b2}, interp::bentCurve(at.position, 1.0f, 0.0f, 9));
    auto node = makeNode();
    node->paramValues.set("neighbors", std::int64_t{1});
    const auto sunk = run(*node, strands, guides, nullptr, sphere);
    const auto deepest = [&](std::span<const Vec3f> pts) {
        float d = 1e9f;
        for (std::size_t j = 1; j < pts.size(); ++j) d = std::min(d, length(pts[j]) - 1.0f);
        return d;
    };
    EXPECT_LT(deepest(sunk->strandPoints(0)), -0.15f);
    node->paramValues.set("keepClearance", true);
    EvalContext context;
    const auto kept = run(*node, strands, guides, &context, sphere);
    EXPECT_TRUE(context.notes.empty());
    EXPECT_GT(deepest(kept->strandPoints(0)), -0.02f);
    EXPECT_NEAR(polylineLength(kept->strandPoints(0)), polylineLength(sunk->strandPoints(0)), 1e-4f);
    EXPECT_EQ(kept->strandPoints(0)[0], sunk->strandPoints(0)[0]);
    // Without the scalp input it can't, and says so.
    EvalContext without;
    run(*node, strands, guides, &without);
    ASSERT_EQ(without.notes.size(), 1u);
    EXPECT_EQ(without.notes[0], "keepClearance needs the scalp input: it does not keep clearance");
}

}  // namespace
}  // namespace tressora
