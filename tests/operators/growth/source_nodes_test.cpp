#include <gtest/gtest.h>

#include "core/guide_hierarchy.h"
#include "core/guide_set.h"
#include "core/test_guides.h"
#include "core/test_meshes.h"
#include "growth_nodes.h"

namespace tressora {
namespace {

using testing::NodeRun;

TEST(ScalpNode, HandsOnTheNamedScalpAndNotesAnUnknownName) {
    NodeRun node("Scalp");
    const auto own = std::make_shared<const ScalpMesh>(testing::icosphere(1));
    const auto ear = std::make_shared<const ScalpMesh>(testing::grid(2));
    node.scene.set("scalp", Value(own), 1);
    node.scene.set("scalp:ear", Value(ear), 2);
    EXPECT_EQ(node.run().as<ScalpMesh>(), own);
    EXPECT_EQ(node.op->sceneInputs(), std::vector<std::string>{"scalp"});

    node.set("input", std::string("ear"));
    EXPECT_EQ(node.run().as<ScalpMesh>(), ear);
    node.set("input", std::string("tail"));
    EXPECT_TRUE(node.run().empty());
    EXPECT_NE(node.op->note(node.context).find("no scalp named 'tail'"), std::string::npos);
    EXPECT_EQ(node.op->sceneInputs(), (std::vector<std::string>{"scalp", "scalp:tail"}));
}

TEST(ColliderMeshNode, ReadsTheRegisteredColliderOrNotesItsAbsence) {
    NodeRun node("ColliderMesh");
    const auto body = std::make_shared<const ScalpMesh>(testing::icosphere(1));
    node.scene.set("collider:collider", Value(body), 3);
    EXPECT_EQ(node.run().as<ScalpMesh>(), body);
    node.set("name", std::string("collar"));
    EXPECT_TRUE(node.run().empty());
    EXPECT_NE(node.op->note(node.context).find("no collider named 'collar'"), std::string::npos);
}

TEST(OutputNode, PassesItsInputOn) {
    NodeRun node("Output");
    const auto set = testing::standingStrands(2, 3);
    EXPECT_EQ(node.strands(set), set);
}

// main (root: guides 1, 2) with kids (its child group), and braids (root: guide 10).
class GuidesNode : public ::testing::Test {
protected:
    void SetUp() override {
        main = h.addGroup("main");
        braids = h.addGroup("braids");
        h.addGuide(main, 1, testing::straightGuide({0, 0, 0}));
        h.addGuide(main, 2, testing::straightGuide({1, 0, 0}));
        h.addGuide(braids, 10, testing::straightGuide({5, 0, 0}));
        kids = h.addGroup("kids", main);
        h.addChildGuide(kids, 1, testing::straightGuide({0.2f, 0, 0}).points);
        publish();
    }
    void publish() { node.scene.set("hierarchy", Value(std::make_shared<const GuideHierarchy>(h)), ++stamp); }
    std::vector<std::uint64_t> ids() {
        const auto set = node.run().as<GuideSet>();
        return {set->ids().begin(), set->ids().end()};
    }
    std::uint64_t narrowedStamp() {
        return node.op->sceneInputStamp("hierarchy", *node.scene.find("hierarchy"));
    }

    GuideHierarchy h;
    std::uint32_t main = 0, braids = 0, kids = 0;
    std::uint64_t stamp = 0;
    NodeRun node{"Guides"};
};

TEST_F(GuidesNode, NarrowsByLevelGroupAndExclude) {
    EXPECT_EQ(ids().size(), 1u);  // level -1: the deepest level, the kids
    node.set("level", std::int64_t{0});
    EXPECT_EQ(ids(), (std::vector<std::uint64_t>{1, 2, 10}));
    node.set("exclude", std::string("braids"));
    EXPECT_EQ(ids(), (std::vector<std::uint64_t>{1, 2}));
    node.set("exclude", std::string(""));
    node.set("group", std::string("braids, main"));
    EXPECT_EQ(ids(), (std::vector<std::uint64_t>{1, 2, 10}));
    node.set("group", std::string("kids lost"));
    EXPECT_EQ(ids().size(), 1u);
    EXPECT_EQ(node.context.notes, std::vector<std::string>{"no guide group named 'lost'"});
    // Leaving a group out leaves out its child groups.
    node.set("exclude", std::string("main"));
    EXPECT_TRUE(ids().empty());
}

TEST_F(GuidesNode, ExcludingAGroupNoGroupBearsFails) {
    node.set("exclude", std::string("main,nope"));
    EXPECT_EQ(node.error(), "Guides: no guide group named 'nope' to exclude");
}

TEST_F(GuidesNode, StampFollowsOnlyTheGroupsItReads) {
    node.set("group", std::string("braids"));
    const std::uint64_t before = narrowedStamp();
    h.setPoints(1, testing::straightGuide({0, 0, 3}).points);
    publish();
    EXPECT_EQ(narrowedStamp(), before);
    h.setPoints(10, testing::straightGuide({5, 0, 3}).points);
    publish();
    EXPECT_NE(narrowedStamp(), before);
    node.set("group", std::string("main"));
    EXPECT_NE(narrowedStamp(), before);
}

TEST(GuidesNodeFlat, HandsOnTheFlatGuidesWithoutAHierarchy) {
    NodeRun node("Guides");
    EXPECT_EQ(node.run().as<GuideSet>()->guideCount(), 0u);
    auto flat = std::make_shared<GuideSet>();
    flat->addGuide(7, {}, testing::straightGuide({0, 0, 0}).points, {});
    node.scene.set("guides", Value(flat), 1);
    EXPECT_EQ(node.run().as<GuideSet>(), flat);
}

TEST(ToStrandsNode, ConvertsGuidesWithTheirSegmentsAndChannels) {
    NodeRun node("ToStrands");
    auto guides = std::make_shared<GuideSet>();
    guides->addGuide(5, {3, 0.25f, 0.5f}, testing::straightGuide({0, 0, 0}, 5).points, {}, {{"weight", 0.5f}},
                     {{"paint", {0, 1, 2, 3, 4}}});
    guides->addGuide(6, {}, testing::straightGuide({1, 0, 0}, 3).points, {});
    auto strands = node.run({Value(guides)}).as<StrandSet>();
    ASSERT_EQ(strands->strandCount(), 2u);
    EXPECT_EQ(strands->roots()[0], (StrandRoot{3, 0.25f, 0.5f}));
    EXPECT_EQ(strands->pointRange(0).size(), 5u);
    EXPECT_FLOAT_EQ(strands->widths()[0], 0.005f);
    EXPECT_EQ(strands->strandChannel("weight"), nullptr);
    EXPECT_FALSE(node.op->passesChannels(0));

    node.set("segments", std::int64_t{8}).set("channels", true);
    strands = node.run({Value(guides)}).as<StrandSet>();
    EXPECT_TRUE(node.op->passesChannels(0));
    EXPECT_EQ(strands->pointRange(0).size(), 9u);
    EXPECT_FLOAT_EQ(strands->strandPoints(0)[8].y, 4.0f);
    EXPECT_FLOAT_EQ(strands->strandChannel("weight")->values()[0], 0.5f);
    EXPECT_FLOAT_EQ(strands->strandChannel("weight")->values()[1], 0.0f);  // the guide without it
    EXPECT_FLOAT_EQ(strands->pointChannel("paint")->values()[4], 2.0f);    // halfway along guide 5
    EXPECT_FLOAT_EQ(strands->pointChannel("paint")->values()[12], 0.0f);
}

TEST(ToGuidesNode, FractionOneWithoutPreviewMakesAGuideOfEveryStrand) {
    NodeRun node("ToGuides");
    auto strands = testing::standingStrands(20, 4);
    strands->addStrandChannel("clumpId", 3.0f);
    node.set("channels", true);
    const auto guides = node.run({Value(strands)}).as<GuideSet>();
    ASSERT_EQ(guides->guideCount(), 20u);
    EXPECT_EQ(guides->pointCount(), 80u);
    EXPECT_FLOAT_EQ(guides->attribute("clumpId")->at(7), 3.0f);
}

TEST(ToGuidesNode, SkipsStrandsNotEveryPreviewHolds) {
    NodeRun node("ToGuides");
    auto strands = testing::standingStrands(4, 3);
    std::span<float> preview = strands->addStrandChannel("_preview", 1.0f);
    preview[1] = 0.2f;
    preview[2] = 0.5f;
    const auto guides = node.run({Value(strands)}).as<GuideSet>();
    EXPECT_EQ(std::vector<std::uint64_t>(guides->ids().begin(), guides->ids().end()),
              (std::vector<std::uint64_t>{1, 3, 4}));
}

TEST(ToGuidesNode, FractionChoosesByIdSoAddedStrandsChangeNothingElse) {
    NodeRun node("ToGuides");
    node.set("fraction", 0.3).set("seed", std::int64_t{4});
    const auto chosen = [&](int count) {
        const auto guides = node.run({Value(testing::standingStrands(count, 2))}).as<GuideSet>();
        return std::vector<std::uint64_t>(guides->ids().begin(), guides->ids().end());
    };
    const auto few = chosen(200);
    const auto more = chosen(400);
    EXPECT_GT(few.size(), 35u);
    EXPECT_LT(few.size(), 85u);
    ASSERT_GE(more.size(), few.size());
    EXPECT_TRUE(std::equal(few.begin(), few.end(), more.begin()));
    node.set("seed", std::int64_t{5});
    EXPECT_NE(chosen(200), few);
}

}  // namespace
}  // namespace tressora
