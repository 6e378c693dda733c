#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "core/expect_text.h"
#include "core/hash.h"
#include "core/test_guides.h"
#include "core/tube_shape.h"

namespace tressora {
namespace {

using testing::fails;

TEST(GuideChildren, IdsAndOffsetsFollowTheHashExactly) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(1, &main);
    ChildOptions o;
    o.count = 3;
    o.rootRadius = 0.5f;
    o.tipRadius = 0.25f;
    o.jitter = 0.1f;
    o.twist = 1.0f;
    o.seed = 42;
    const std::vector<std::uint64_t> ids = h.generateChildren(main, "kids", {}, o);
    ASSERT_EQ(ids.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        const std::uint64_t c = combine(combine(hash64(1), 42), static_cast<std::uint64_t>(i));
        ASSERT_EQ(ids[i], c);
        // Draw k is mix(hash64(c) + 0x3C6EF372FE94F82A + (k - 1) golden), top 24 bits.
        auto draw = [&](int k) {
            return unitFromBits(mix(hash64(c) + 0x3C6EF372FE94F82Aull + static_cast<std::uint64_t>(k - 1) * kGolden));
        };
        const float r = std::sqrt(draw(1)), a = draw(2) * 6.2831855f;
        const float tipX = 0.25f * r * std::sin(a) + 0.1f * (2 * draw(3) - 1);
        const float tipY = 0.25f * r * std::cos(a) + 0.1f * (2 * draw(4) - 1);
        const Guide* g = h.findGuide(c);
        ASSERT_EQ(g->offsets.size(), 5u);
        EXPECT_FLOAT_EQ(g->offsets[0].x, 0.5f * r * std::sin(a));
        EXPECT_FLOAT_EQ(g->offsets[0].y, 0.5f * r * std::cos(a));
        // At the tip the offset has turned by the whole twist.
        EXPECT_FLOAT_EQ(g->offsets[4].x, tipX * std::cos(1.0f) - tipY * std::sin(1.0f));
        EXPECT_FLOAT_EQ(g->offsets[4].y, tipX * std::sin(1.0f) + tipY * std::cos(1.0f));
        EXPECT_EQ(g->offsets[4].z, 0.0f);
        EXPECT_EQ(g->parent, 1u);
    }
}

TEST(GuideChildren, RegeneratingGivesTheSameChildrenAndIdsNeverCollide) {
    std::uint32_t main = 0;
    GuideHierarchy a = testing::rowOfGuides(3, &main);
    ChildOptions o;
    o.seed = 7;
    const auto first = a.generateChildren(main, "kids", {}, o);
    const Guide copy = *a.findGuide(first[5]);
    const auto second = a.generateChildren(main, "kids", {}, o);  // replaces the first batch
    EXPECT_EQ(first, second);
    EXPECT_EQ(*a.findGuide(second[5]), copy);
    EXPECT_EQ(a.guides().size(), 3u + 12u);

    // A hierarchy already holding the first candidate id takes the next in the rehash chain.
    std::uint32_t g2 = 0;
    GuideHierarchy b = testing::rowOfGuides(1, &g2);
    const std::uint64_t taken = combine(combine(hash64(1), 7), 0);
    b.addGuide(g2, taken, testing::straightGuide({5, 0, 0}));
    o.count = 1;
    const auto ids = b.generateChildren(g2, "kids", std::vector<std::uint64_t>{1}, o);
    ASSERT_EQ(ids.size(), 1u);
    EXPECT_EQ(ids[0], hash64(taken));
}

TEST(GuideChildren, NothingIsMadeForNoCountOrShortParents) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(1, &main);
    ChildOptions o;
    o.count = 0;
    EXPECT_TRUE(h.generateChildren(main, "kids", {}, o).empty());
    EXPECT_EQ(h.guides().size(), 1u);
    EXPECT_NE(h.findGroup("kids"), nullptr);  // the group is made all the same

    EXPECT_EQ(fails([&] { h.generateChildren(99, "kids", {}, o); }), "generateChildren: unknown parent group");
    EXPECT_EQ(fails([&] { h.generateChildren(main, "kids", std::vector<std::uint64_t>{5}, o); }),
              "generateChildren: guide 5 is not in the parent group");
    const std::uint32_t other = h.addGroup("other");
    h.addGroup("theirs", other);
    EXPECT_EQ(fails([&] { h.generateChildren(main, "theirs", {}, o); }),
              "generateChildren: group 'theirs' belongs to another parent group");
}

TEST(GuideChildren, ShapedTubesPlaceChildrenInsideTheirSection) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(1, &main);
    Tube tube;
    tube.shape = "blade";
    h.setTube(1, tube);
    ChildOptions o;
    o.count = 200;
    o.rootRadius = 2.0f;
    o.tipRadius = 2.0f;
    const auto ids = h.generateChildren(main, "kids", {}, o);
    const auto outline = tubeShapeOutline("blade", {});
    for (std::uint64_t id : ids) {
        const Guide* g = h.findGuide(id);
        const Vec3f off = g->offsets[0];
        ASSERT_TRUE(insideOutline(outline, {off.x / 2.0f, off.y / 2.0f}));
        EXPECT_EQ(g->shape, "blade");  // the child takes the parent's tube
        EXPECT_EQ(g->width, h.findGuide(1)->width);
    }
}

TEST(GuideChildren, ChildrenAreRootedOnTheScalpWhenGiven) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(1, &main);
    const ScalpMesh floor({{-5, 0, -5}, {5, 0, -5}, {5, 0, 5}, {-5, 0, 5}}, {{0, 2, 1}, {0, 3, 2}});
    ChildOptions o;
    o.count = 5;
    o.scalp = &floor;
    for (std::uint64_t id : h.generateChildren(main, "kids", {}, o)) {
        const Guide* g = h.findGuide(id);
        ASSERT_GE(g->root.face, 0);
        EXPECT_NEAR(length(floor.positionAt(g->root.face, g->root.u, g->root.v) - g->points.front()), 0.0f, 1e-5f);
    }
}

}  // namespace
}  // namespace tressora
