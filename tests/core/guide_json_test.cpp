#include <gtest/gtest.h>

#include <tbb/task_arena.h>

#include "core/errors.h"
#include "core/expect_text.h"
#include "core/test_guides.h"

namespace tressora {
namespace {

using testing::failureText;

std::string readFailure(const std::string& text) {
    return failureText<SchemaError>([&] { GuideHierarchy::fromJson(text); });
}

/// A hierarchy with everything the format carries: groups, a library shape, a tube, painted
/// values, a following child, a locked child, rootLocal.
GuideHierarchy fullHierarchy() {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(3, &main);
    const std::uint32_t kids = h.addGroup("kids", main);
    h.setScalpTopology(0xFEEDFACECAFEBEEFull);
    h.addTubeShape({"leaf", {{0, 1.5f}, {-0.1f, -1}, {0.7f, -0.25f}}, 4.0f, {}, true});
    Tube tube;
    tube.shape = "leaf";
    tube.width = {0.3f, 0.1f};
    tube.twist = {0.0f, 0.7f};
    tube.samples = 4;
    h.setTube(2, tube);
    h.setAttribute(1, "density", 0.1f);
    Guide painted = testing::straightGuide({4, 0, 0}, 3);
    painted.pointAttributes["clump"] = {0.0f, 0.5f, -0.0f};
    painted.rootLocal = {{0, 0, 0}, {0, 1, 0}, {0, 2, 0}};
    painted.frameUpLocal = {1, 0, 0};
    painted.root = {12, 0.25f, 0.5f};
    h.addGuide(main, 900, painted);
    h.addChildGuide(kids, 1, {{-1.9f, 0, 0}, {-1.8f, 4, 0.3f}});
    h.setLocked(h.addChildGuide(kids, 2, {{-0.9f, 0, 0}, {-0.8f, 4, 0.3f}}), true);
    return h;
}

TEST(GuideJson, RoundTripsToTheSameText) {
    const GuideHierarchy h = fullHierarchy();
    const std::string text = h.toJson();
    std::string report = "untouched";
    const GuideHierarchy back = GuideHierarchy::fromJson(text, &report);
    EXPECT_EQ(report, "");
    EXPECT_EQ(back.toJson(), text);  // so every field read back is the one written
    EXPECT_EQ(back.scalpTopology(), 0xFEEDFACECAFEBEEFull);
    for (const Guide& g : h.guides()) {
        const Guide* r = back.findGuide(g.id);
        ASSERT_NE(r, nullptr);
        for (std::size_t k = 0; k < g.points.size(); ++k) EXPECT_LT(length(r->points[k] - g.points[k]), 1e-5f);
        EXPECT_EQ(r->pointAttributes, g.pointAttributes);
    }
    // New guides continue the id counter rather than reusing ids.
    EXPECT_EQ(back.freshGuideId(), h.freshGuideId());
}

TEST(GuideJson, WritesTheDocumentedLayout) {
    GuideHierarchy h;
    const std::uint32_t main = h.addGroup("main");
    const std::uint32_t kids = h.addGroup("kids", main);
    Guide g;
    g.points = {{0, 0, 0}, {0, 0.1f, 0}};
    g.frameUp = {0, 0, 1};
    h.addGuide(main, 5, g);
    const std::uint64_t child = h.addChildGuide(kids, 5, {{1, 0, 0}, {1, 0.1f, 0}});
    const std::uint64_t locked = h.addChildGuide(kids, 5, {{2, 0, 0}, {2, 0.1f, 0}});
    h.setLocked(locked, true);
    EXPECT_EQ(h.toJson(),
              R"({"groups":[{"id":1,"name":"main","parent":0},{"id":2,"name":"kids","parent":1}],"guides":[)"
              R"({"frameUp":[0.0,0.0,1.0],"group":1,"id":5,"points":[0.0,0.0,0.0,0.0,0.1,0.0],"root":[-1,0.0,0.0],)"
              R"("tube":{"aspect":[],"twist":[],"width":[]}},)"
              R"({"frameUp":[0.0,0.0,1.0],"group":2,"id":)" + std::to_string(child) +
                  R"(,"offsets":[-1.0,0.0,0.0,-1.0,0.0,0.0],"parent":5,"root":[-1,0.0,0.0],)"
                  R"("tube":{"aspect":[],"twist":[],"width":[]}},)"
                  R"({"frameUp":[0.0,0.0,1.0],"group":2,"id":)" + std::to_string(locked) +
                  R"(,"locked":true,"parent":5,"points":[2.0,0.0,0.0,2.0,0.1,0.0],"root":[-1,0.0,0.0],)"
                  R"("tube":{"aspect":[],"twist":[],"width":[]}}],"scalpTopology":0,"tubeShapes":[],"version":1})");
}

TEST(GuideJson, WritingDoesNotDependOnTheThreadCount) {
    std::uint32_t main = 0;
    GuideHierarchy h = testing::rowOfGuides(1, &main);
    ChildOptions o;
    o.count = 300;
    o.jitter = 0.3f;
    h.generateChildren(main, "kids", {}, o);
    const std::string many = h.toJson();
    std::string one;
    tbb::task_arena single(1);
    single.execute([&] { one = h.toJson(); });
    EXPECT_EQ(one, many);
}

TEST(GuideJson, VersionAndSyntaxFaultsAreSchemaErrors) {
    EXPECT_EQ(readFailure("[]"), "guide data must be a JSON object");
    EXPECT_EQ(readFailure(R"({"version":1.5})"), "guide data version 1.5 is not a whole number");
    EXPECT_EQ(readFailure(R"({"version":"1"})"), "guide data version \"1\" is not a whole number");
    EXPECT_EQ(readFailure(R"({"version":2})"),
              "guide data version 2 is newer than this Tressora supports (1); update Tressora to open it");
    EXPECT_EQ(readFailure(R"({"version":0})"), "guide data version 0 is not valid");
    EXPECT_EQ(readFailure(R"({"version":-3})"), "guide data version -3 is not valid");
    EXPECT_EQ(readFailure("{}"), "no failure");  // no version counts as 1
    EXPECT_EQ(readFailure(R"({"guides":[] /* note */})").rfind("guide data: invalid JSON: ", 0), 0u);
    EXPECT_EQ(readFailure("{\"groups\":"), "guide data: invalid JSON: parse error at line 1, column 11: syntax error "
                                           "while parsing value - unexpected end of input; expected '[', '{', or a literal");
}

TEST(GuideJson, StructureFaultsNameTheirPlace) {
    const std::string groups = R"("groups":[{"id":1,"name":"main","parent":0},{"id":2,"name":"kids","parent":1}])";
    const std::string guide = R"({"id":3,"group":1,"root":[-1,0,0],"frameUp":[0,0,1],"tube":{},"points":[0,0,0,0,1,0]})";
    EXPECT_EQ(readFailure("{" + groups + R"(,"guides":[)" + guide + "," + guide + "]}"),
              "invalid guide data: guides[1].id: guide 3 comes twice");
    EXPECT_EQ(readFailure("{" + groups + R"(,"guides":[{"id":3,"group":1,"root":[-1,0,0],"points":[0,0,0,0,1]}]})"),
              "invalid guide data: guides[0].points: x, y, z for each point (5 numbers)");
    EXPECT_EQ(readFailure("{" + groups + R"(,"guides":[{"id":3,"group":2,"root":[-1,0,0],"points":[0,0,0,0,1,0]}]})"),
              "invalid guide data: guides[0]: a primary guide (no parent) belongs in a root group");
    EXPECT_EQ(readFailure("{" + groups + R"(,"guides":[{"id":3,"group":2,"parent":9,"offsets":[0,0,0,0,1,0],"root":[-1,0,0]}]})"),
              "invalid guide data: guides[0].parent: no guide 9");
    EXPECT_EQ(readFailure("{" + groups + R"(,"guides":[{"id":3,"group":7,"root":[-1,0,0],"points":[0,0,0,0,1,0]}]})"),
              "invalid guide data: guides[0].group: the id of one of the groups");
    EXPECT_EQ(readFailure(R"({"groups":[{"id":1,"name":"a","parent":2},{"id":2,"name":"b","parent":1}]})"),
              "invalid guide data: groups[0].parent: the groups' parents go round in a circle");
    EXPECT_EQ(readFailure(R"({"tubeShapes":[{"name":"x","points":[0,1,0,2,0,3]}]})"),
              "invalid guide data: tubeShapes[0]: tube shape 'x': the points lie on a line; give the outline width and height");
}

TEST(GuideJson, UnknownShapesLoadRoundWithOneLineReport) {
    const std::string doc =
        R"({"groups":[{"id":1,"name":"main","parent":0}],"guides":[)"
        R"({"id":1,"group":1,"root":[-1,0,0],"tube":{"shape":"star","width":[1]},"points":[0,0,0,0,1,0]},)"
        R"({"id":2,"group":1,"root":[-1,0,0],"tube":{"shape":"star"},"points":[1,0,0,1,1,0]},)"
        R"({"id":3,"group":1,"root":[-1,0,0],"tube":{"shape":"moon"},"points":[2,0,0,2,1,0]},)"
        R"({"id":4,"group":1,"root":[-1,0,0],"tube":{"shape":"blade"},"points":[3,0,0,3,1,0]}]})";
    std::string report;
    const GuideHierarchy h = GuideHierarchy::fromJson(doc, &report);
    EXPECT_EQ(h.guides().size(), 4u);
    EXPECT_EQ(h.findGuide(1)->shape, "");
    EXPECT_EQ(h.findGuide(1)->width, std::vector<float>{1.0f});
    EXPECT_EQ(h.findGuide(4)->shape, "blade");
    EXPECT_EQ(report,
              "tube shape 'moon' is not in the groom's shape library: 1 guide taking it loaded round; "
              "tube shape 'star' is not in the groom's shape library: 2 guides taking it loaded round");
}

}  // namespace
}  // namespace tressora
