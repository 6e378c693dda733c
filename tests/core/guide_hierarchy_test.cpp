#include <gtest/gtest.h>

#include <stdexcept>

#include "core/expect_text.h"
#include "core/guide_hierarchy.h"
#include "core/test_guides.h"

namespace tressora {
namespace {

using testing::fails;
using testing::straightGuide;

bool near(Vec3f a, Vec3f b, float eps = 1e-5f) { return length(a - b) < eps; }

TEST(GuideHierarchy, GroupsAreNamedOnceAndFormATree) {
    GuideHierarchy h;
    const std::uint32_t main = h.addGroup("main");
    const std::uint32_t kids = h.addGroup("kids", main);
    const std::uint32_t grand = h.addGroup("grand", kids);
    EXPECT_EQ(h.depth(grand), 2);
    EXPECT_EQ(fails([&] { h.addGroup("x", 99); }), "addGroup: unknown parent group");
    EXPECT_EQ(fails([&] { h.setGroupColor(99, {}); }), "setGroupColor: unknown group");
    EXPECT_EQ(fails([&] { h.addGroup("kids"); }), "addGroup: group 'kids' exists");
    EXPECT_EQ(fails([&] { h.addGroup(""); }), "a guide group needs a name");

    EXPECT_EQ(fails([&] { h.renameGroup("nope", "x"); }), "no such guide group");
    EXPECT_EQ(fails([&] { h.renameGroup("kids", ""); }), "a guide group needs a name");
    EXPECT_EQ(fails([&] { h.renameGroup("kids", "main"); }), "a guide group named 'main' exists");
    h.renameGroup("kids", "children");
    EXPECT_EQ(h.groupId("children"), kids);
    EXPECT_EQ(fails([&] { h.groupId("kids"); }), "no such guide group");
    h.removeGroup("children");  // takes its child group along
    EXPECT_EQ(h.groups().size(), 1u);
    EXPECT_EQ(fails([&] { h.removeGroup("grand"); }), "no such guide group");
}

TEST(GuideHierarchy, AddGuideChecksItsPlace) {
    GuideHierarchy h;
    const std::uint32_t main = h.addGroup("main");
    const std::uint32_t kids = h.addGroup("kids", main);
    EXPECT_EQ(fails([&] { h.addGuide(99, 1, straightGuide({})); }), "addGuide: unknown group");
    EXPECT_EQ(fails([&] { h.addGuide(kids, 1, straightGuide({})); }), "addGuide: primary guides belong in root groups");
    h.addGuide(main, 7, straightGuide({}));
    EXPECT_EQ(fails([&] { h.addGuide(main, 7, straightGuide({})); }), "addGuide: duplicate guide id");
    EXPECT_EQ(fails([&] { h.addGuide(main, 8, straightGuide({}, 1)); }), "addGuide: a guide needs at least 2 points");
    Guide bad = straightGuide({});
    bad.points[1].x = NAN;
    EXPECT_EQ(fails([&] { h.addGuide(main, 8, bad); }), "addGuide: a guide's points must be finite numbers");
    EXPECT_EQ(h.freshGuideId(), 8u);  // past the ids given so far
}

TEST(GuideHierarchy, ChildrenFollowTheirParentThroughOffsets) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(2, &main);
    const std::uint32_t kids = h.addGroup("kids", main);
    EXPECT_EQ(fails([&] { h.addChildGuide(main, 1, {{0, 0, 0}, {0, 1, 0}}); }), "addChildGuide: not a child group");
    EXPECT_EQ(fails([&] { h.addChildGuide(kids, 99, {{0, 0, 0}, {0, 1, 0}}); }),
              "addChildGuide: the parent must be in the group's parent group");
    EXPECT_EQ(fails([&] { h.addChildGuide(kids, 1, {{0, 0, 0}}); }), "addChildGuide: a guide needs at least 2 points");

    // A child a half unit beside guide 1 (at x = -2), given with 3 points for the parent's 5.
    const std::uint64_t child = h.addChildGuide(kids, 1, {{-1.5f, 0, 0}, {-1.5f, 2, 0}, {-1.5f, 4, 0}});
    const Guide* c = h.findGuide(child);
    ASSERT_EQ(c->offsets.size(), 5u);
    ASSERT_EQ(c->points.size(), 5u);
    for (int k = 0; k < 5; ++k) EXPECT_TRUE(near(c->points[k], {-1.5f, static_cast<float>(k), 0}));

    // Moving the parent carries the child; bending it turns the child's offsets with it.
    h.setPoints(1, {{-2, 0, 0}, {-2, 1, 0}, {-2, 2, 0}, {-2, 3, 1}, {-2, 3, 2}});
    c = h.findGuide(child);
    EXPECT_TRUE(near(c->points[0], {-1.5f, 0, 0}));
    EXPECT_NEAR(length(c->points[4] - Vec3f{-2, 3, 2}), 0.5f, 1e-5f);
    // Fewer parent points: the offsets are resampled to match.
    h.setPoints(1, {{-2, 0, 0}, {-2, 4, 0}});
    EXPECT_EQ(h.findGuide(child)->points.size(), 2u);
    EXPECT_EQ(fails([&] { h.setPoints(99, {{0, 0, 0}, {0, 1, 0}}); }), "setPoints: unknown guide");

    // Setting a child's points recomputes its offsets.
    h.setPoints(child, {{-1, 0, 0}, {-1, 4, 0}});
    // One unit off the parent along +x, which is the parent frame's -side (side = up x tangent).
    EXPECT_TRUE(near(h.findGuide(child)->offsets[0], {-1, 0, 0}));
    EXPECT_TRUE(near(h.findGuide(child)->points[1], {-1, 4, 0}));
}

TEST(GuideHierarchy, ReparentLockAndRemoveKeepTheTreeConsistent) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(3, &main);
    const std::uint32_t kids = h.addGroup("kids", main);
    const std::uint32_t grand = h.addGroup("grand", kids);
    const std::uint64_t child = h.addChildGuide(kids, 1, {{-1.8f, 0, 0}, {-1.8f, 4, 0}});
    const std::uint64_t grandChild = h.addChildGuide(grand, child, {{-1.7f, 0, 0}, {-1.7f, 4, 0}});

    EXPECT_EQ(fails([&] { h.reparent(99, 2); }), "reparent: unknown guide");
    EXPECT_EQ(fails([&] { h.reparent(child, 99); }), "reparent: unknown parent guide");
    EXPECT_EQ(fails([&] { h.reparent(child, grandChild); }), "reparent: the new parent must be in the guide's parent group");
    EXPECT_EQ(fails([&] { h.reparent(2, 3); }), "reparent: the new parent must be in the guide's parent group");
    h.reparent(child, 2);  // the curve stays where it was
    EXPECT_TRUE(near(h.findGuide(child)->points[0], {-1.8f, 0, 0}));
    h.setPoints(2, {{-1, 1, 0}, {-1, 5, 0}, {-1, 6, 0}});
    EXPECT_TRUE(near(h.findGuide(child)->points[0], {-1.8f, 1, 0}));

    // A locked child keeps its points when the parent moves.
    h.setLocked(child, true);
    EXPECT_TRUE(h.findGuide(child)->offsets.empty());
    const std::vector<Vec3f> kept = h.findGuide(child)->points;
    h.setPoints(2, {{5, 0, 0}, {5, 1, 0}});
    EXPECT_EQ(h.findGuide(child)->points, kept);
    EXPECT_EQ(fails([&] { h.setLocked(1, true); }), "setLocked: only child guides follow or lock");

    // Removing a guide removes what follows it, locked or not.
    h.removeGuide(2);
    EXPECT_EQ(h.findGuide(child), nullptr);
    EXPECT_EQ(h.findGuide(grandChild), nullptr);
    EXPECT_EQ(fails([&] { h.removeGuide(2); }), "removeGuide: unknown guide");
}

TEST(GuideHierarchy, PromoteAndDemoteMoveWholeGroups) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(2, &main);
    const std::uint32_t kids = h.addGroup("kids", main);
    const std::uint64_t child = h.addChildGuide(kids, 1, {{-1.8f, 0, 0}, {-1.8f, 4, 0}});
    EXPECT_EQ(fails([&] { h.promoteGroup(99); }), "promoteGroup: unknown group");
    EXPECT_EQ(fails([&] { h.promoteGroup(main); }), "promoteGroup: 'main' is already a root group");
    const std::vector<Vec3f> before = h.findGuide(child)->points;
    h.promoteGroup(kids);
    EXPECT_EQ(h.findGroup(kids)->parent, 0u);
    EXPECT_EQ(h.findGuide(child)->parent, 0u);
    EXPECT_EQ(h.findGuide(child)->points, before);

    const std::uint32_t empty = h.addGroup("empty");
    EXPECT_EQ(fails([&] { h.demoteGroup(99, main); }), "demoteGroup: unknown group");
    EXPECT_EQ(fails([&] { h.demoteGroup(kids, kids); }), "demoteGroup: the new parent group must be a sibling of 'kids'");
    EXPECT_EQ(fails([&] { h.demoteGroup(kids, empty); }), "demoteGroup: 'empty' has no guides to follow");
    // Guide 2 stands at x = -1, guide 1 at -2: the child at -1.8 picks the nearer, guide 1.
    h.demoteGroup(kids, main);
    const Guide* c = h.findGuide(child);
    EXPECT_EQ(c->parent, 1u);
    EXPECT_EQ(c->offsets.size(), 5u);
    EXPECT_TRUE(near(c->points.front(), before.front()));
    EXPECT_TRUE(near(c->points.back(), before.back()));
}

TEST(GuideHierarchy, TubeShapesAndAttributesAreEditedByName) {
    GuideHierarchy h = testing::rowOfGuides(2);
    const CustomTubeShape star{"star", {{0, 1}, {-1, -1}, {1, -1}}, {}, {}, false};
    h.addTubeShape(star);
    EXPECT_EQ(fails([&] { h.addTubeShape(star); }), "a tube shape named 'star' already exists");
    EXPECT_EQ(fails([&] { h.addTubeShape({"round", star.points, {}, {}, false}); }),
              "'round' is a built-in tube shape: pick another name");
    EXPECT_EQ(fails([&] { h.removeTubeShape("moon"); }), "no tube shape named 'moon'");
    EXPECT_EQ(fails([&] { h.replaceTubeShape({"moon", star.points, {}, {}, false}); }), "no tube shape named 'moon'");

    Tube tube;
    tube.shape = "star";
    tube.width = {1.0f, 0.0f};
    tube.samples = 3;
    h.setTube(1, tube);
    EXPECT_EQ(h.findGuide(1)->width, (std::vector<float>{1.0f, 0.5f, 0.0f}));
    tube.shape = "moon";
    EXPECT_EQ(fails([&] { h.setTube(1, tube); }), "no tube shape named 'moon'");
    h.renameTubeShape("star", "spark");
    EXPECT_EQ(h.findGuide(1)->shape, "spark");
    h.removeTubeShape("spark");
    EXPECT_EQ(h.findGuide(1)->shape, "");
    tube.shape = "round";
    h.setTube(2, tube);
    EXPECT_EQ(h.findGuide(2)->shape, "");  // round is no shape

    h.addAttribute("density", 0.5f);
    EXPECT_EQ(fails([&] { h.addAttribute("density"); }), "a guide attribute named 'density' already exists");
    EXPECT_EQ(h.findGuide(2)->attributes.at("density"), 0.5f);
    h.setAttribute(1, "clump", 2.0f);
    EXPECT_EQ(h.attributeNames(), (std::vector<std::string>{"density", "clump"}));
    EXPECT_EQ(h.findGuide(2)->attributes.at("clump"), 0.0f);
    EXPECT_EQ(h.findGuide(1)->attributes.at("clump"), 2.0f);
}

}  // namespace
}  // namespace tressora
