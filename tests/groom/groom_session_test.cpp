#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "../core/expect_text.h"
#include "core/errors.h"
#include "core/guide_set.h"
#include "graph/operator_registry.h"
#include "groom/graph_time.h"
#include "groom/groom_session.h"
#include "sample_groom.h"
#include "session_operators.h"

namespace tressora {
namespace {

using nlohmann::json;
using sessionops::chain;
using sessionops::Sprout;
using testing::failureText;
using testing::gridMesh;

GroomScene sceneWith(json graph, bool follow = false) {
    GroomScene s;
    s.graph = std::move(graph);
    s.scalp.mesh = gridMesh(2);
    s.followScalp = follow;
    return s;
}

std::vector<Vec3f> pointsOf(const ScalpMesh& mesh) { return {mesh.points().begin(), mesh.points().end()}; }

// Turns a point by a quarter turn about +x and moves it: a rigid motion of the whole scalp.
Vec3f turned(Vec3f p) { return Vec3f{p.x, -p.z, p.y} + Vec3f{5, 1, -2}; }

std::string noteOf(const GroomSession& session, const std::string& node) {
    for (const auto& [name, text] : session.notes())
        if (name == node) return text;
    return "(none)";
}

TEST(GroomSession, SameScalpPointsKeepTheStampAndTheCache) {
    GroomSession session(sceneWith(chain()), sessionops::registry());
    const auto first = session.evaluate(1.0);
    ASSERT_TRUE(first);
    const std::uint64_t stamp = session.scalpStamp();
    const std::uint64_t runs = session.graph()->operatorRuns();

    session.updateScalpPoints(pointsOf(*session.scalp()));
    EXPECT_EQ(session.scalpStamp(), stamp);
    EXPECT_EQ(session.evaluate(1.0).get(), first.get());
    EXPECT_EQ(session.graph()->operatorRuns(), runs);

    std::vector<Vec3f> moved = pointsOf(*session.scalp());
    moved[0].y = 0.5f;
    session.updateScalpPoints(moved);
    EXPECT_NE(session.scalpStamp(), stamp);
    EXPECT_NE(session.evaluate(1.0).get(), first.get());
    EXPECT_GT(session.graph()->operatorRuns(), runs);

    EXPECT_EQ(failureText<GroomFileError>([&] { session.updateScalpPoints(std::vector<Vec3f>(3)); }),
              "updateScalpPoints: 3 points for a scalp of 9");
    GroomScene bare;
    bare.graph = chain();
    GroomSession noScalp(bare, sessionops::registry());
    EXPECT_EQ(failureText<GroomFileError>([&] { noScalp.updateScalpPoints(std::vector<Vec3f>(3)); }),
              "updateScalpPoints: the session has no scalp");
}

TEST(GroomSession, GroomWithoutGraphSaysSo) {
    GroomScene scene = sceneWith(json());
    GroomSession session(scene, sessionops::registry());
    EXPECT_EQ(session.graph(), nullptr);
    EXPECT_EQ(failureText<GraphError>([&] { session.evaluate(1.0); }), "the groom has no graph");
    EXPECT_EQ(session.graphJson(), "");
    EXPECT_FALSE(session.hasMotion());
}

TEST(GroomSession, FollowScalpCarriesEachStrandRigidlyWithItsTriangle) {
    GroomSession following(sceneWith(chain(), true), sessionops::registry());
    const auto rest = following.evaluate(1.0);
    ASSERT_TRUE(rest);
    const std::uint64_t runs = following.graph()->operatorRuns();

    std::vector<Vec3f> moved = pointsOf(*following.scalp());
    for (Vec3f& p : moved) p = turned(p);
    following.updateScalpPoints(moved);
    const auto carried = following.evaluate(7.0);
    ASSERT_TRUE(carried);
    EXPECT_EQ(following.graph()->operatorRuns(), runs);  // the graph still sees the rest pose
    ASSERT_EQ(carried->pointCount(), rest->pointCount());
    for (std::size_t i = 0; i < rest->pointCount(); ++i)
        EXPECT_LT(length(carried->points()[i] - turned(rest->points()[i])), 1e-5f) << i;
    EXPECT_EQ(carried->ids()[3], rest->ids()[3]);
    EXPECT_EQ(following.evaluate(7.0).get(), carried.get());  // the same frame carries once
    EXPECT_EQ(following.stats().restEvaluations, 3u);

    // A bend moves each strand with its own triangle: every strand keeps its shape.
    std::vector<Vec3f> bent = pointsOf(*gridMesh(2));
    for (Vec3f& p : bent) p.y += 0.3f * p.x * p.x;
    following.updateScalpPoints(bent);
    const auto curved = following.evaluate(8.0);
    for (std::size_t s = 0; s < rest->strandCount(); ++s) {
        const auto a = rest->strandPoints(s), b = curved->strandPoints(s);
        for (std::size_t k = 1; k < a.size(); ++k) EXPECT_NEAR(length(b[k] - b[0]), length(a[k] - a[0]), 1e-5f);
        const Vec3f root = following.scalp()->positionAt(static_cast<std::int32_t>(s), 1.0f / 3, 1.0f / 3);
        EXPECT_NEAR(length(b[0] - root), 0.0f, 1e-5f);
    }

    // Without followScalp the graph grows on the moved scalp itself.
    GroomSession plain(sceneWith(chain()), sessionops::registry());
    plain.updateScalpPoints(moved);
    EXPECT_EQ(plain.stats().restEvaluations, 0u);
    const auto grown = plain.evaluate(7.0);
    EXPECT_NEAR(grown->points()[0].x, carried->points()[0].x, 1e-5f);
}

TEST(GroomSession, FollowingKeepsTheFrameOutOfAGraphThatDoesNotReadTime) {
    GroomSession still(sceneWith(chain({{"Report", json()}}), true), sessionops::registry());
    still.evaluate(12.0);
    EXPECT_EQ(noteOf(still, "report"), "frame 1");
    GroomSession windy(sceneWith(chain({{"Wind", json()}}), true), sessionops::registry());
    EXPECT_TRUE(windy.hasMotion());
    windy.evaluate(12.0);
    EXPECT_EQ(noteOf(windy, "wind"), "frame 12");
    GroomSession plain(sceneWith(chain({{"Report", json()}})), sessionops::registry());
    EXPECT_FALSE(plain.hasMotion());
    plain.evaluate(12.0);
    EXPECT_EQ(noteOf(plain, "report"), "frame 12");
}

TEST(GroomSession, ScalpThatGrewScalesTheGroomAndSaysSoOncePerValue) {
    GroomScene scene = sceneWith(chain({{"Report", json()}}));
    scene.scaleSource = "scaleReference";
    GroomSession session(scene, sessionops::registry());
    const auto before = session.evaluate(1.0);
    EXPECT_TRUE(session.messages().empty());
    const std::uint64_t runs = session.graph()->operatorRuns();
    session.evaluate(1.0);  // a factor of 1 leaves every key as it was
    EXPECT_EQ(session.graph()->operatorRuns(), runs);

    std::vector<Vec3f> doubled = pointsOf(*session.scalp());
    for (Vec3f& p : doubled) p = p * 2.0f;
    session.updateScalpPoints(doubled);
    const auto after = session.evaluate(1.0);
    EXPECT_DOUBLE_EQ(session.scaleFactor(), 2.0);
    ASSERT_EQ(session.messages().size(), 1u);
    EXPECT_EQ(session.messages()[0],
              "Tressora: the scalp's area changed 300%: the groom scaled x2.00. Set Scale Reference to keep its sizes.");
    EXPECT_EQ(noteOf(session, "report"), "frame 1 scale 2.000000");
    EXPECT_NEAR((after->points()[1] - after->points()[0]).y, 2.0f * (before->points()[1] - before->points()[0]).y, 1e-5f);
    session.evaluate(1.0);
    EXPECT_TRUE(session.messages().empty());

    // With the reference given, the factor follows it and nothing is said.
    scene.scaleReference = 1.0;  // the grid's area is 4
    GroomSession referenced(scene, sessionops::registry());
    referenced.evaluate(1.0);
    EXPECT_DOUBLE_EQ(referenced.scaleFactor(), 2.0);
    EXPECT_TRUE(referenced.messages().empty());
    scene.scaleSource = "transformScale";
    scene.scaleTransformReference = 2.0;
    GroomSession transformed(scene, sessionops::registry());
    transformed.setTransformScale(3.0);
    transformed.evaluate(1.0);
    EXPECT_DOUBLE_EQ(transformed.scaleFactor(), 1.5);
    transformed.setTransformScale(2.0001);
    transformed.evaluate(1.0);
    EXPECT_EQ(transformed.scaleFactor(), 1.0);
}

TEST(GroomSession, NotesTimingsAndStatsDescribeTheLastEvaluation) {
    GroomScene scene = sceneWith(chain({{"HairColor", json()}, {"Report", json()}}));
    scene.guides = {FlatGuide{4, {0.5f, 0, 0.5f}, {{0.5f, 0, 0.5f}, {0.5f, 1, 0.5f}}, std::nullopt}};
    scene.cardBake = {{"prefix", "cards/x_"}, {"strands", 8}};
    scene.maps = {{"paint", {{"kind", "texture"}}}, {"weights", {{"kind", "vertices"}}}};
    EvalRequest request;
    request.frame = 3.0;
    request.tag = "eval";
    GroomSession session(scene, sessionops::registry());
    session.evaluate(request);
    EXPECT_EQ(noteOf(session, "report"), "frame 3 guides 1");
    ASSERT_EQ(session.timings().size(), 4u);
    EXPECT_EQ(session.timings()[0].first, "sprout");

    const GroomStats s = session.stats();
    EXPECT_EQ(s.strands, 8u);
    EXPECT_EQ(s.points, 32u);
    EXPECT_TRUE(s.hairColor);
    EXPECT_EQ(s.colorNodes, 1u);
    EXPECT_TRUE(s.cards.cardsBaked);
    EXPECT_EQ(s.textures, 1u);
    EXPECT_EQ(s.runs, 1u);
    EXPECT_EQ(s.notes, 2u);
    EXPECT_GT(s.cacheBytes, 0u);

    const std::string line = session.statsJson();
    EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_EQ(json::parse(line)["strands"], 8);

    session.evaluate(4.0);
    session.evaluate(4.0);
    EXPECT_EQ(session.stats().frames, 2u);
    EXPECT_EQ(session.stats().runs, 3u);
}

TEST(GroomSession, MotionHistoryFramesAreTheJigglesLookBack) {
    GroomSession session(sceneWith(chain({{"Jiggle", {{"history", 3}}}})), sessionops::registry());
    Graph& graph = *session.graph();
    const NodeId out = graph.outputNode();
    EXPECT_EQ(scalpHistoryFrames(graph, out), 3);
    EXPECT_EQ(scalpHistoryLoopFrames(graph, out, 10.0), (std::vector<double>{7, 8, 9, 10}));
    graph.setParam(graph.nodeByName("jiggle"), "loop", true);
    graph.setParam(graph.nodeByName("jiggle"), "loopStart", std::int64_t{9});
    graph.setParam(graph.nodeByName("jiggle"), "loopEnd", std::int64_t{13});
    // 8 and 7 lie before the loop's start: they are read from its end.
    EXPECT_EQ(scalpHistoryLoopFrames(graph, out, 10.0), (std::vector<double>{9, 10, 11, 12}));
    EXPECT_TRUE(graphReadsTime(graph, out));
    graph.setBypass(graph.nodeByName("jiggle"), true);
    EXPECT_EQ(scalpHistoryFrames(graph, out), 0);
    EXPECT_EQ(scalpHistoryLoopFrames(graph, out, 10.0), (std::vector<double>{10}));
}

TEST(GroomSession, GraphReadsTimeThroughExpressionsControlsAndMaps) {
    GroomSession session(sceneWith(chain({{"Report", json()}})), sessionops::registry());
    Graph& graph = *session.graph();
    const NodeId out = graph.outputNode(), report = graph.nodeByName("report");
    EXPECT_FALSE(graphReadsTime(graph, out));
    graph.setParam(report, "drive", MapRef{MapSource::Expression, "sin(frame) * 0.5", MapComponent::Auto, 0, 1});
    EXPECT_TRUE(graphReadsTime(graph, out));
    graph.setParam(report, "drive", MapRef{MapSource::Expression, "u * timeless", MapComponent::Auto, 0, 1});
    EXPECT_FALSE(graphReadsTime(graph, out));
    graph.setParam(report, "drive", MapRef{MapSource::Texture, "paint/density.<f>.png", MapComponent::Auto, 0, 1});
    EXPECT_TRUE(graphReadsTime(graph, out));
    graph.setParam(report, "drive", std::string("frame"));  // plain text in a node that is no expression
    EXPECT_FALSE(graphReadsTime(graph, out));

    graph.setParamControls(graph.nodeByName("sprout"), "step", {"wind"});
    EXPECT_TRUE(graphReadsTime(graph, out));
    graph.setParamControls(graph.nodeByName("sprout"), "step", {});
    EXPECT_FALSE(graphReadsTime(graph, out));

    // An Expression node feeding nothing on the strands' way still counts through any input.
    const NodeId expression = graph.addNode("Expression", "expr");
    graph.setParam(expression, "label", std::string("time * 2"));
    graph.connect(expression, 0, report, 0);
    EXPECT_TRUE(graphReadsTime(graph, out));
    graph.setBypass(report, true);  // a bypassed node hands on its first input only
    EXPECT_TRUE(graphReadsTime(graph, out));
}

TEST(GroomSession, CachesBringTheScalpAndHistoryToAFrame) {
    GroomScene scene = sceneWith(chain({{"Jiggle", {{"history", 2}}}}));
    const auto base = gridMesh(2);
    scene.scalpFrames = [base](double frame) -> std::optional<std::vector<Vec3f>> {
        if (frame < 1.0) return std::nullopt;
        std::vector<Vec3f> points(base->points().begin(), base->points().end());
        for (Vec3f& p : points) p.y += static_cast<float>(frame);
        return points;
    };
    scene.guides = {FlatGuide{1, {0, 0, 0}, {{0, 0, 0}, {0, 1, 0}}, std::nullopt}};
    scene.guideFrames = [](double frame) {
        std::vector<std::vector<Vec3f>> curves{{{0, 0, 0}, {0, 1, static_cast<float>(frame)}}};
        if (frame >= 3.0) curves.push_back({{1, 0, 0}});  // the cache's guides change count
        return std::optional(curves);
    };
    GroomSession session(scene, sessionops::registry());
    EXPECT_TRUE(session.hasMotion());
    session.setFrame(2.0);
    EXPECT_FLOAT_EQ(session.scalp()->points()[0].y, 2.0f);
    session.evaluate(2.0);
    EXPECT_EQ(noteOf(session, "jiggle"), "frame 2 history 2 guides 1");  // frame 0 has no sample
    EXPECT_EQ(session.stats().scalpHistory, 2u);
    EXPECT_EQ(session.scene().guides[0].points[1].z, 2.0f);
    EXPECT_EQ(failureText<GroomFileError>([&] { session.setFrame(3.0); }),
              "setFrame: the guide cache has 2 curves for 1 guides");
}

TEST(GroomSession, DetachedEvaluationFoldsBackAndOlderOnesAreRefused) {
    GroomSession session(sceneWith(chain({{"Report", json()}})), sessionops::registry());
    EvalRequest request;
    request.frame = 5.0;
    auto detached = session.detach(request);
    std::thread worker([&] { detached->run(); });
    worker.join();
    const auto strands = session.join(*detached);
    ASSERT_TRUE(strands);
    EXPECT_EQ(strands->strandCount(), 8u);
    EXPECT_EQ(noteOf(session, "report"), "frame 5");
    // The folded state answers the same request without running an operator.
    const std::uint64_t runs = session.graph()->operatorRuns();
    EXPECT_EQ(session.evaluate(request)->fingerprint(), strands->fingerprint());
    EXPECT_EQ(session.graph()->operatorRuns(), runs);

    auto stale = session.detach(request);
    session.evaluate(6.0);
    EXPECT_EQ(failureText<GraphError>([&] { session.join(*stale); }),
              "a detached evaluation ran before the one it follows");

    // A failure on the other thread reaches the caller at the next evaluate.
    session.setGraphJson(chain({{"Fails", json()}}).dump());
    auto failing = session.detach(request);
    failing->run();
    EXPECT_EQ(session.join(*failing), nullptr);
    EXPECT_TRUE(session.stats().stale);
    EXPECT_EQ(failureText<GraphError>([&] { session.evaluate(1.0); }), "Fails: asked to fail");
    EXPECT_EQ(failureText<GraphError>([&] { session.evaluate(1.0); }), "Fails: asked to fail");  // the graph's own
    session.graph()->setParam(session.graph()->nodeByName("fails"), "fail", false);
    EXPECT_TRUE(session.evaluate(1.0));
    EXPECT_FALSE(session.stats().stale);
}

TEST(GroomSession, GraphAndGuideTextsSwapOnlyWhenTheyLoad) {
    GroomSession session(sceneWith(chain({{"Report", json()}})), sessionops::registry());
    session.evaluate(1.0);
    const std::string before = session.graphJson();
    EXPECT_THROW(session.setGraphJson(R"({"nodes":[{"name":"a","type":"Nope"}],"output":"a"})"), GraphError);
    EXPECT_THROW(session.setGraphJson("{"), SchemaError);
    EXPECT_EQ(session.graphJson(), before);

    // An edit keeps the nodes it did not touch: only the new node and what follows run.
    Sprout::runs = 0;
    session.setGraphJson(chain({{"Report", json()}, {"HairColor", json()}}).dump());
    session.evaluate(1.0);
    EXPECT_EQ(Sprout::runs, 0);
    EXPECT_EQ(noteOf(session, "report"), "frame 1");
    EXPECT_EQ(session.document().graph, json::parse(session.graphJson()));

    EXPECT_THROW(session.setGuidesJson("{"), SchemaError);
    EXPECT_EQ(session.guidesJson(), "");
    GuideHierarchy h;
    Guide guide;
    guide.points = {{0, 0, 0}, {0, 1, 0}};
    h.addGuide(h.addGroup("main"), 3, guide);
    session.setGuidesJson(h.toJson());
    EXPECT_EQ(session.guidesJson(), h.toJson());
    session.evaluate(1.0);
    EXPECT_NE(session.catalog().find("hierarchy"), nullptr);
    session.setGraphJson("  ");
    EXPECT_EQ(session.graph(), nullptr);
}

TEST(GroomSession, SceneItemsAreInTheCatalogueByName) {
    GroomScene scene = sceneWith(chain());
    scene.scalps["brows"].mesh = gridMesh(1, 2.0f);
    scene.colliders["body"].mesh = gridMesh(1, -1.0f);
    scene.guides = {FlatGuide{1, {0.5f, 0.1f, 0.5f}, {{0.5f, 0, 0.5f}, {0.5f, 1, 0.5f}}, std::nullopt},
                    FlatGuide{2, {9, 9, 9}, {{9, 9, 9}, {9, 10, 9}}, Vec3f{1, 0, 0}}};
    scene.hierarchy = std::make_shared<const GuideHierarchy>();
    GroomSession session(scene, sessionops::registry());
    const SceneCatalog& catalog = session.catalog();
    for (const char* name : {"scalp", "scalp:brows", "collider:body", "guides", "hierarchy"})
        EXPECT_NE(catalog.find(name), nullptr) << name;
    const auto guides = catalog.find("guides")->value.as<GuideSet>();
    ASSERT_EQ(guides->guideCount(), 2u);
    EXPECT_GE(guides->roots()[0].face, 0);  // rooted on the scalp
    EXPECT_EQ(catalog.find("scalp")->value.as<ScalpMesh>(), scene.scalp.mesh);
}

}  // namespace
}  // namespace tressora

namespace tressora {
namespace {

// Scalp, Scatter, Width and Output of the built-in types; the width may follow the frame.
json growGraph(bool animatedWidth) {
    json g = json::parse(R"({"version":1,"output":"output","nodes":[
        {"name":"scalp","type":"Scalp"},
        {"name":"scatter","type":"Scatter","params":{"density":50.0}},
        {"name":"width","type":"Width"},
        {"name":"output","type":"Output"}],
      "connections":[{"from":"scalp","to":"scatter","input":"scalp"},
        {"from":"scatter","to":"width","input":"strands"},
        {"from":"width","to":"output","input":"strands"}]})");
    if (animatedWidth) g["nodes"][2]["params"] = {{"width", {{"expression", "0.001 * frame"}}}};
    return g;
}

TEST(GroomSession, NodesThatDoNotReadTimeKeepTheirResultsAcrossFrames) {
    GroomSession still(sceneWith(growGraph(false)), OperatorRegistry::instance());
    const auto first = still.evaluate(1.0);
    ASSERT_TRUE(first && first->strandCount() > 0);
    const std::uint64_t runs = still.graph()->operatorRuns();
    EXPECT_EQ(still.evaluate(2.0).get(), first.get());
    EXPECT_EQ(still.graph()->operatorRuns(), runs);

    // Only the animated Width and what follows it run again; Scatter's roots stand.
    GroomSession moving(sceneWith(growGraph(true)), OperatorRegistry::instance());
    const auto one = moving.evaluate(1.0);
    const std::uint64_t before = moving.graph()->operatorRuns();
    const auto two = moving.evaluate(2.0);
    EXPECT_EQ(moving.graph()->operatorRuns(), before + 2);
    ASSERT_EQ(one->strandCount(), two->strandCount());
    EXPECT_FLOAT_EQ(two->widths()[0], 2.0f * one->widths()[0]);
}

}  // namespace
}  // namespace tressora
