#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "core/expect_text.h"
#include "core/test_guides.h"
#include "core/tube_shape.h"

namespace tressora {
namespace {

using testing::fails;

// Pinned: children's ids are kept in groom files, and their offsets shape the groom.
TEST(GuideChildren, IdsAndOffsetsArePinnedAndRegenerateAlike) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(3, &main);
    ChildOptions o;
    o.count = 3;
    o.rootRadius = 0.5f;
    o.tipRadius = 0.25f;
    o.jitter = 0.1f;
    o.twist = 1.0f;
    o.seed = 42;
    const std::vector<std::uint64_t> ids = h.generateChildren(main, "kids", std::vector<std::uint64_t>{1}, o);
    // The root offset's x and y, and the tip's, turned by the whole twist.
    const std::vector<std::uint64_t> pinnedIds = {1669936555101054754ull, 80502057500993921ull, 17752345687451754692ull};
    const std::vector<std::array<float, 4>> pinnedOffsets = {{-0.40078789f, -0.274039119f, 0.00471317023f, -0.169163153f},
                                                             {0.265931994f, 0.244100451f, 0.0541686267f, 0.201461613f},
                                                             {-0.319721609f, -0.257945329f, 0.122197419f, -0.20210813f}};
    EXPECT_EQ(ids, pinnedIds);
    for (std::size_t i = 0; i < ids.size(); ++i) {
        const Guide* g = h.findGuide(ids[i]);
        ASSERT_EQ(g->offsets.size(), 5u);
        EXPECT_EQ((std::array<float, 4>{g->offsets[0].x, g->offsets[0].y, g->offsets[4].x, g->offsets[4].y}),
                  pinnedOffsets.at(i));
        EXPECT_EQ(g->offsets[4].z, 0.0f);
        EXPECT_EQ(g->parent, 1u);
    }

    o.count = 4;
    o.seed = 7;
    const auto first = h.generateChildren(main, "kids", {}, o);
    const Guide copy = *h.findGuide(first[5]);
    const auto second = h.generateChildren(main, "kids", {}, o);  // replaces the first batch
    EXPECT_EQ(first, second);
    EXPECT_EQ(*h.findGuide(second[5]), copy);
    EXPECT_EQ(h.guides().size(), 3u + 12u);

    // A hierarchy already holding the first candidate id takes the next in the rehash chain.
    std::uint32_t g2 = 0;
    GuideHierarchy b = testing::rowOfGuides(1, &g2);
    b.addGuide(g2, first[0], testing::straightGuide({5, 0, 0}));
    o.count = 1;
    const auto rehashed = b.generateChildren(g2, "kids", std::vector<std::uint64_t>{1}, o);
    ASSERT_EQ(rehashed.size(), 1u);
    EXPECT_EQ(rehashed[0], 8065282584018220374ull);
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
