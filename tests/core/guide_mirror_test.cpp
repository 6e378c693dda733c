#include <gtest/gtest.h>

#include <stdexcept>

#include "core/expect_text.h"
#include "core/test_guides.h"
#include "core/test_meshes.h"

namespace tressora {
namespace {

using testing::fails;

TEST(GuideMirror, KeptSideIsCopiedAcrossAndTheOtherSideReplaced) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(5, &main);  // roots at x = -2, -1, 0, 1, 2
    const std::uint32_t kids = h.addGroup("kids", main);
    const std::uint64_t onLeft = h.addChildGuide(kids, 1, {{-2.2f, 0, 0}, {-2.2f, 4, 0}});
    Tube tube;
    tube.twist = {0.5f};
    tube.samples = 2;
    h.setTube(4, tube);
    std::map<std::uint64_t, std::uint64_t> ids;
    h.mirrorAll(ids, 0, 0.0f, true);
    // Guides 1 and 2 (negative x) are gone with their follower; 3 sits on the plane and stays
    // single; 4 and 5 stay and gain mirrored copies with fresh ids.
    EXPECT_EQ(h.findGuide(1), nullptr);
    EXPECT_EQ(h.findGuide(onLeft), nullptr);
    ASSERT_NE(h.findGuide(3), nullptr);
    EXPECT_EQ(ids.size(), 2u);
    ASSERT_TRUE(ids.count(4) && ids.count(5));
    const Guide* copy = h.findGuide(ids[4]);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(ids[4], 4u);
    EXPECT_EQ(copy->group, main);
    EXPECT_EQ(copy->points.front(), (Vec3f{-1, 0, 0}));
    EXPECT_EQ(copy->points.back(), (Vec3f{-1, 4, 0}));
    EXPECT_EQ(copy->twist, (std::vector<float>{-0.5f, -0.5f}));  // turned the other way
    EXPECT_EQ(copy->root.face, -1);                               // no scalp given: no root
    EXPECT_EQ(h.guides().size(), 5u);

    // Keeping the negative side of a plane at x = 1.5 mirrors everything else onto x > 1.5.
    std::map<std::uint64_t, std::uint64_t> again;
    h.mirrorAll(again, 0, 1.5f, false);
    EXPECT_EQ(h.findGuide(5), nullptr);
    EXPECT_EQ(h.findGuide(again[4])->points.front().x, 2.0f);
    EXPECT_EQ(h.findGuide(again[3])->points.front().x, 3.0f);
}

TEST(GuideMirror, MessagesNameTheFault) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(2, &main);
    const std::uint32_t kids = h.addGroup("kids", main);
    std::map<std::uint64_t, std::uint64_t> ids;
    EXPECT_EQ(fails([&] { h.mirrorAll(ids, 3, 0.0f, true); }), "mirrorAll: axis must be 0, 1 or 2");
    EXPECT_EQ(fails([&] { h.mirrorGroup(99, 0, 0.0f, true, ids); }), "mirrorGroup: unknown group");
    EXPECT_EQ(fails([&] { h.mirrorGroup(kids, 0, 0.0f, true, ids); }),
              "mirrorGroup: mirror root groups (then regenerate children)");
    EXPECT_EQ(fails([&] { h.mirrorGroup(main, -1, 0.0f, true, ids); }), "mirrorGroup: axis must be 0, 1 or 2");
    EXPECT_TRUE(ids.empty());
    EXPECT_EQ(h.guides().size(), 2u);
}

TEST(GuideMirror, MirroredCopiesAreRootedOnAGivenScalp) {
    GuideHierarchy h;
    const std::uint32_t main = h.addGroup("main");
    const std::uint32_t other = h.addGroup("other");
    h.addGuide(main, 1, testing::straightGuide({0.5f, 1, 0}));
    h.addGuide(other, 2, testing::straightGuide({0.7f, 1, 0}));
    const ScalpMesh sphere = testing::icosphere(3);
    std::map<std::uint64_t, std::uint64_t> ids;
    h.mirrorGroup(main, 0, 0.0f, true, ids, &sphere);
    ASSERT_EQ(ids.size(), 1u);  // only the named group
    const Guide* copy = h.findGuide(ids[1]);
    ASSERT_GE(copy->root.face, 0);
    EXPECT_LT(sphere.positionAt(copy->root.face, copy->root.u, copy->root.v).x, 0.0f);
    EXPECT_EQ(copy->rootLocal.size(), copy->points.size());
}

TEST(GuideMirror, TransferReRootsAndCarriesTheCurveInItsRootFrame) {
    const ScalpMesh small = testing::icosphere(3, 1.0f);
    const ScalpMesh large = testing::icosphere(3, 2.0f);
    GuideHierarchy h;
    const std::uint32_t main = h.addGroup("main");
    const std::uint32_t kids = h.addGroup("kids", main);
    Guide g;
    for (int k = 0; k < 4; ++k) g.points.push_back({0, 1.0f + 0.5f * k, 0.1f * k});
    g.frameUp = {1, 0, 0};
    // Rooted at the middle of a face: the larger sphere (same topology) finds the same face.
    const SurfacePoint at = small.closestPoint(g.points.front());
    g.root = {at.face, 1.0f / 3, 1.0f / 3};
    const Vec3f shift = small.positionAt(at.face, 1.0f / 3, 1.0f / 3) - g.points.front();
    for (Vec3f& p : g.points) p += shift;
    h.addGuide(main, 1, g);
    const std::uint64_t child = h.addChildGuide(kids, 1, {{0.1f, 1, 0}, {0.1f, 2.5f, 0.3f}});
    h.computeRootLocal(small);
    EXPECT_EQ(h.findGuide(1)->rootLocal.size(), 4u);
    const Vec3f tipBefore = h.findGuide(1)->points.back() - h.findGuide(1)->points.front();

    EXPECT_EQ(fails([&] { h.transfer(ScalpMesh()); }), "transfer: the new scalp has no faces");
    h.transfer(large);
    EXPECT_EQ(h.scalpTopology(), large.topologyHash());
    const Guide* moved = h.findGuide(1);
    const Vec3f root = large.positionAt(moved->root.face, moved->root.u, moved->root.v);
    EXPECT_NEAR(length(moved->points.front() - root), 0.0f, 1e-5f);
    EXPECT_NEAR(length(root), 2.0f, 0.01f);
    // Same shape relative to the surface: the crown of either sphere faces up.
    const Vec3f tipAfter = moved->points.back() - moved->points.front();
    EXPECT_NEAR(length(tipAfter - tipBefore), 0.0f, 0.05f) << tipAfter.x << " " << tipAfter.y << " " << tipAfter.z
                                                          << " vs " << tipBefore.x << " " << tipBefore.y << " " << tipBefore.z;
    // The follower came along and is rooted on the new scalp too.
    const Guide* c = h.findGuide(child);
    EXPECT_GE(c->root.face, 0);
    EXPECT_NEAR(c->points.front().y, moved->points.front().y, 0.05f);
}

}  // namespace
}  // namespace tressora
