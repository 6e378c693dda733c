#include <gtest/gtest.h>

#include "core/guide_set.h"
#include "core/test_guides.h"

namespace tressora {
namespace {

TEST(GuideSet, FlattensChosenGroupsWithPointRanges) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(2, &main);
    const std::uint32_t kids = h.addGroup("kids", main);
    h.setGroupColor(kids, {1, 0, 0});
    const std::uint64_t child = h.addChildGuide(kids, 2, {{-0.5f, 0, 0}, {-0.5f, 4, 0}});
    const GuideSet all = GuideSet::fromHierarchy(h);
    EXPECT_EQ(all.guideCount(), 3u);
    EXPECT_EQ(all.pointCount(), 15u);
    const std::uint32_t only[] = {kids};
    const GuideSet children = GuideSet::fromHierarchy(h, only);
    ASSERT_EQ(children.guideCount(), 1u);
    EXPECT_EQ(children.ids()[0], child);
    EXPECT_EQ(children.color(), (Vec3f{1, 0, 0}));
    EXPECT_EQ(all.pointRange(1), (std::pair<std::uint64_t, std::uint64_t>{5, 10}));
    EXPECT_EQ(all.guidePoints(1)[4], (Vec3f{-1, 4, 0}));
}

TEST(GuideSet, AttributesAreFilledForEveryGuideAndPoint) {
    GuideSet set;
    set.addGuide(1, {}, std::vector<Vec3f>{{0, 0, 0}, {0, 1, 0}}, {});
    set.addGuide(2, {3, 0.5f, 0.25f}, std::vector<Vec3f>{{1, 0, 0}, {1, 1, 0}, {1, 2, 0}}, {}, {{"density", 2.0f}},
                 {{"clump", {1.0f, 2.0f}}});
    set.addGuide(3, {}, std::vector<Vec3f>{{2, 0, 0}, {2, 1, 0}}, {});
    EXPECT_EQ(*set.attribute("density"), (std::vector<float>{0, 2, 0}));
    EXPECT_EQ(*set.pointAttribute("clump"), (std::vector<float>{0, 0, 1, 2, 0, 0, 0}));
    EXPECT_EQ(set.attribute("none"), nullptr);
    EXPECT_EQ(set.roots()[1], (StrandRoot{3, 0.5f, 0.25f}));
}

}  // namespace
}  // namespace tressora
