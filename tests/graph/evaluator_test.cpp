#include <gtest/gtest.h>

#include "core/errors.h"
#include "core/expect_text.h"
#include "graph/graph.h"
#include "graph/strand_resolutions.h"
#include "test_operators.h"

namespace tressora {
namespace {

using testops::Shift;
using testops::testRegistry;

// grow -> shiftA -> shiftB -> output
class Evaluator : public ::testing::Test {
protected:
    void SetUp() override {
        g.connect(grow, 0, shiftA, 0);
        g.connect(shiftA, 0, shiftB, 0);
        g.connect(shiftB, 0, out, 0);
        g.setOutputNode(out);
    }
    std::shared_ptr<const StrandSet> run(EvalContext context = {}) {
        return g.evaluateOutput(out, 0, context).as<StrandSet>();
    }
    Graph g{testRegistry()};
    NodeId grow = g.addNode("Grow", "grow");
    NodeId shiftA = g.addNode("Shift", "shiftA");
    NodeId shiftB = g.addNode("Shift", "shiftB");
    NodeId out = g.addNode("Output", "output");
};

TEST_F(Evaluator, SecondEvaluationWithNothingChangedRunsNoOperator) {
    const auto first = run();
    ASSERT_TRUE(first);
    EXPECT_FLOAT_EQ(first->points()[0].x, 2.0f);
    const auto runs = g.operatorRuns();
    const auto second = run();
    EXPECT_EQ(g.operatorRuns(), runs);
    EXPECT_EQ(first.get(), second.get());
}

TEST_F(Evaluator, ParamEditRerunsOnlyTheNodeAndWhatIsDownstream) {
    run();
    Shift::runs = 0;
    const auto before = g.operatorRuns();
    g.setParam(shiftB, "amount", 3.0);
    const auto result = run();
    EXPECT_EQ(Shift::runs, 1);                  // shiftA and grow come from their last state
    EXPECT_EQ(g.operatorRuns() - before, 2u);   // shiftB and output
    EXPECT_FLOAT_EQ(result->points()[0].x, 4.0f);
    EXPECT_EQ(g.nodeModes().at(shiftB), "full 4");
}

TEST_F(Evaluator, BypassedNodeKeepsItsKeyWhenItsParamsChange) {
    g.setBypass(shiftA, true);
    std::unordered_map<NodeId, std::uint64_t> memo;
    const EvalContext context;
    const auto key = g.nodeKey(shiftA, context, memo);
    EXPECT_EQ(key, g.nodeKey(grow, context, memo));
    g.setParam(shiftA, "amount", 7.0);
    memo.clear();
    EXPECT_EQ(g.nodeKey(shiftA, context, memo), key);
    EXPECT_FLOAT_EQ(run()->points()[0].x, 1.0f);
    EXPECT_EQ(g.nodeModes().at(shiftA), "bypass");
}

TEST_F(Evaluator, EvaluationModesLeaveNodesOutOfTheOtherKindOfEvaluation) {
    g.setEvaluation(shiftA, Evaluation::ViewportOnly);
    EvalContext render;
    EXPECT_FLOAT_EQ(run(render)->points()[0].x, 1.0f);  // in a render it hands its input on
    EvalContext viewport;
    viewport.viewport = true;
    EXPECT_FLOAT_EQ(run(viewport)->points()[0].x, 2.0f);
    g.setEvaluation(shiftA, Evaluation::RenderOnly);
    EXPECT_FLOAT_EQ(run(viewport)->points()[0].x, 1.0f);
}

TEST_F(Evaluator, ScaleOfOneKeepsKeysAndTheFrameChangesThem) {
    std::unordered_map<NodeId, std::uint64_t> a, b, c;
    EvalContext plain, scaled, later;
    scaled.scale = 1.0;
    later.frame = 2.0;
    EXPECT_EQ(g.nodeKey(out, plain, a), g.nodeKey(out, scaled, b));
    EXPECT_NE(g.nodeKey(out, plain, a), g.nodeKey(out, later, c));
}

TEST_F(Evaluator, AffectMixesBypassesOrExplainsWhyNot) {
    g.setParam(shiftB, "affect", 0.0);
    EXPECT_FLOAT_EQ(run()->points()[0].x, 1.0f);  // 0 bypasses the node
    EXPECT_EQ(g.nodeModes().at(shiftB), "bypass");
    g.setParam(shiftB, "affect", 0.25);
    EXPECT_FLOAT_EQ(run()->points()[0].x, 1.25f);

    // A field on the affect input drives it per point.
    const NodeId constant = g.addNode("Constant", "c");
    g.setParam(constant, "value", 0.5);
    g.setParamInputs(shiftB, {"affect"});
    g.connect(constant, 0, shiftB, 1);
    EXPECT_FLOAT_EQ(run()->points()[0].x, 1.5f);

    // A node that changes the strand count is not mixed, and says so.
    Graph d(testRegistry());
    const NodeId grow2 = d.addNode("Grow");
    const NodeId drop = d.addNode("Drop");
    d.connect(grow2, 0, drop, 0);
    d.setParam(drop, "affect", 0.5);
    EvalContext context;
    EXPECT_EQ(d.evaluateOutput(drop, 0, context).as<StrandSet>()->strandCount(), 1u);
    EXPECT_EQ(d.nodeNotes().at(drop), "kept 1\naffect is not applied: this node changes how many strands or points there are");
}

TEST_F(Evaluator, ControlsAndValueInputsWriteParamsForOneRun) {
    SceneCatalog scene;
    scene.set("control:push", Value(std::make_shared<const UniformValue>(UniformValue::number(5.0))), 1);
    g.setParamControls(shiftA, "amount", {"push"});
    EvalContext context;
    context.scene = &scene;
    EXPECT_FLOAT_EQ(run(context)->points()[0].x, 6.0f);
    EXPECT_DOUBLE_EQ(g.op(shiftA).paramValues.getFloat("amount", 0), 1.0);  // the stored value stays

    const NodeId number = g.addNode("Number", "n");
    g.setParam(number, "value", -1.0);
    g.setParamInputs(shiftB, {"amount"});
    g.connect(number, 0, shiftB, 1);
    EXPECT_FLOAT_EQ(run(context)->points()[0].x, 4.0f);
}

TEST_F(Evaluator, InvariantBreaksEndTheEvaluation) {
    Graph l(testRegistry());
    const NodeId liar = l.addNode("Liar");
    EvalContext context;
    EXPECT_EQ(testing::failureText<GraphError>([&] { l.evaluate(liar, context); }), "Liar made 1 values for 2 outputs");
    EXPECT_EQ(testing::failureText<GraphError>([&] { g.evaluateOutput(out, 3, context); }), "Output has no output 3");
}

TEST_F(Evaluator, ZeroCacheLimitKeepsOnlyTheResult) {
    g.setCacheLimit(0);
    run();
    EXPECT_TRUE(g.node(out).state.valid);
    EXPECT_TRUE(g.node(shiftB).state.valid);  // shares every array with the result: frees nothing
    EXPECT_FALSE(g.node(shiftA).state.valid);
    EXPECT_FALSE(g.node(grow).state.valid);
    EXPECT_GT(g.evictionCount(), 0u);
    // A dropped node is simply evaluated again.
    g.setParam(shiftB, "amount", 2.0);
    EXPECT_FLOAT_EQ(run()->points()[0].x, 3.0f);
}

TEST(EvaluatorEviction, OnEqualLastUseTheCheapestPerByteGoesFirst) {
    Graph g(testRegistry());
    const NodeId slow = g.addNode("SlowGrow", "slow");  // few bytes, slow to make
    const NodeId big = g.addNode("Grow", "big");        // many bytes, quick to make
    const NodeId join = g.addNode("Join", "join");
    const NodeId other = g.addNode("Grow", "other");
    g.setParam(slow, "count", std::int64_t{10});
    g.setParam(big, "count", std::int64_t{2000});
    g.setParam(other, "count", std::int64_t{10});
    g.connect(slow, 0, join, 0);
    g.connect(big, 0, join, 1);
    EvalContext context;
    g.evaluate(join, context);  // slow, big and join share one lastUsed
    // Room for the new result and the slow set, not for the big ones.
    g.setCacheLimit(4000);
    g.evaluate(other, context);
    EXPECT_TRUE(g.node(other).state.valid);  // the result is never dropped
    EXPECT_TRUE(g.node(slow).state.valid);   // the most costly per byte to make again stays
    EXPECT_FALSE(g.node(big).state.valid);
    EXPECT_FALSE(g.node(join).state.valid);
    EXPECT_EQ(g.evictionCount(), 2u);
}

TEST(StrandResolutions, ScatterTakesTheMostAnyDownstreamResampleAsksFor) {
    Graph g(testRegistry());
    const NodeId scatter = g.addNode("Scatter", "scatter");
    const NodeId r1 = g.addNode("Resample", "fine");
    const NodeId r2 = g.addNode("Resample", "coarse");
    const NodeId out = g.addNode("Output", "output");
    g.connect(scatter, 0, r2, 0);
    g.connect(r2, 0, r1, 0);
    g.connect(r1, 0, out, 0);
    g.setOutputNode(out);
    g.setParam(r1, "segments", std::int64_t{12});
    g.setParam(r2, "segments", std::int64_t{5});
    EXPECT_EQ(strandResolutions(g).at(scatter), (Resolution{12, r1}));
    EXPECT_EQ(strandResolutionNote(g, scatter),
              "Its strands grow with 12 segments (13 points), set by Resample fine (the most segments any Resample "
              "after it asks for)");
    EXPECT_EQ(strandResolutionNote(g, r1),
              "Sets the resolution of Scatter scatter: 12 segments (13 points) (a Resample sets only its own branch's)");
    EXPECT_EQ(strandResolutionNote(g, r2), "Sets no Scatter's resolution: Resample fine after it asks for more");

    g.setParam(r1, "segments", std::int64_t{0});
    g.setParam(r2, "segments", std::int64_t{0});
    EXPECT_EQ(strandResolutionNote(g, scatter),
              "Its strands grow with 8 segments (9 points): no Resample after this Scatter sets their resolution "
              "(add one to its branch)");
    EXPECT_EQ(strandResolutionNote(g, r1), "Sets no Scatter's resolution (0 segments keeps each strand's)");

    const NodeId loose = g.addNode("Resample", "loose");
    g.setParam(loose, "segments", std::int64_t{20});
    EXPECT_EQ(strandResolutionNote(g, scatter),
              "Its strands grow with 20 segments (21 points), set by Resample loose (fed nothing, it sets the "
              "default: no Resample after this Scatter does)");
    EXPECT_EQ(strandResolutionNote(g, loose),
              "Fed nothing: it sets the default resolution, 20 segments (21 points), of every Scatter with no "
              "Resample after it (Scatter scatter)");

    const NodeId side = g.addNode("Resample", "side");
    g.connect(scatter, 0, side, 0);
    EXPECT_EQ(strandResolutionNote(g, side),
              "Its strands reach no Output: it sets no Scatter's resolution (connect it on the way to the Output)");
    g.setBypass(r2, true);
    g.disconnect(r2, 0);
    EXPECT_EQ(strandResolutionNote(g, r1),
              "No Scatter comes before it: it sets no Scatter's resolution (a Resample sets only its own branch's)");
}

}  // namespace
}  // namespace tressora
