// What Scatter refuses, what it warns about, and how it plans a preview.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/errors.h"
#include "core/expect_text.h"
#include "core/hash.h"
#include "operators/growth/scatter_plan.h"
#include "scatter_fixture.h"

namespace tressora {
namespace {

using namespace scattertest;

std::string failure(Operator& op, std::shared_ptr<const ScalpMesh> scalp, EvalContext context = {},
                    std::vector<Value> inputs = {}) {
    std::vector<Value> all{Value(std::move(scalp)), Value()};
    all.insert(all.end(), inputs.begin(), inputs.end());
    try {
        op.evaluate(context, all);
    } catch (const GraphError& e) {
        return e.what();
    }
    return "no error";
}

TEST(ScatterLimits, RefusesWhatCannotBeMadeWithTheUsersSentence) {
    const auto scalp = sphere(1.0f, 1);  // area about 12
    auto huge = makeScatter({{"density", 5e6}});
    EXPECT_EQ(failure(*huge, scalp), "Scatter: density would create more than 50M strands");
    auto grid = makeScatter({{"layout", std::string("uvGrid")}, {"gridRows", std::int64_t{20000}},
                             {"gridColumns", std::int64_t{20000}}});
    EXPECT_EQ(failure(*grid, square(2)), "Scatter: the grid would create more than 50M strands");
    auto infinite = makeScatter({{"density", std::numeric_limits<double>::infinity()}});
    EXPECT_EQ(failure(*infinite, scalp), "Scatter: the density (or the scalp's area) is not a finite number");
    auto nan = makeScatter({{"density", std::nan("")}});
    EXPECT_EQ(failure(*nan, scalp), "Scatter: the density (or the scalp's area) is not a finite number");
    // 30M strands of 16 points in a full evaluation: 480M points.
    EvalContext fine;
    fine.segments = 15;
    auto heavy = makeScatter({{"density", 30e6 / scalp->area()}});
    EXPECT_EQ(failure(*heavy, scalp, fine),
              "Scatter: 480M points (strands x 16) is more than memory holds: lower the density or the Resample's "
              "segments");
    // The same as a preview of 1/4 without a budget: 120M points held.
    fine.previewFraction = 0.25f;
    EXPECT_EQ(failure(*heavy, scalp, fine),
              "Scatter: the preview would have 120M points (7500k strands x 16): lower the preview density, density "
              "or the Resample's segments");
}

TEST(ScatterLimits, RefusesALayoutOrFilterThatLacksItsInput) {
    auto grid = makeScatter({{"layout", std::string("uvGrid")}});
    EXPECT_EQ(failure(*grid, sphere()), "Scatter: the uvGrid layout needs the scalp's UVs");
    auto near = makeScatter({{"guideRadius", 0.5}});
    EXPECT_EQ(failure(*near, sphere()), "Scatter: guideRadius needs guides on the guides input (a Guides node)");
    auto empty = std::make_shared<const GuideSet>();
    std::vector<Value> inputs{Value(sphere()), Value(empty)};
    EvalContext context;
    EXPECT_EQ(testing::failureText<GraphError>([&] { near->evaluate(context, inputs); }),
              "Scatter: guideRadius needs guides on the guides input (a Guides node)");
}

TEST(ScatterLimits, PlanningWarnsAboutHeavyGroomsAndSetsThePreviewShares) {
    ScatterPlanInput in;
    in.plannedCount = 2.5e6;
    EXPECT_EQ(planScatter(in).note,
              "2.5M strands: heavy (a human head has about 0.1-0.15M); renders, exports and a full preview hold every "
              "one. Lower the density, or thin it with a density map");
    in.grid = true;
    EXPECT_EQ(planScatter(in).note,
              "2.5M strands: heavy (a human head has about 0.1-0.15M); renders, exports and a full preview hold every "
              "one. Lower the grid's rows and columns, or thin it with a density map");
    in.plannedCount = 2e6;
    EXPECT_EQ(planScatter(in).note, "") << "the limit itself is no warning";

    // The floor halves for each doubling above 5000 strands, down to 0.03.
    in = {};
    in.previewFraction = 0.01f;
    const auto floorAt = [&](double count) {
        in.plannedCount = count;
        return planScatter(in).floorFraction;
    };
    EXPECT_EQ(floorAt(5000), 1.0f);
    EXPECT_EQ(floorAt(5001), 0.5f);
    EXPECT_EQ(floorAt(20000), 0.25f);
    EXPECT_FLOAT_EQ(floorAt(1e6), 0.03f);
    in.plannedCount = 1e6;
    EXPECT_FLOAT_EQ(planScatter(in).generate, 0.03f) << "a preview below the floor makes the floor";
    in.previewFraction = 0.5f;
    EXPECT_FLOAT_EQ(planScatter(in).generate, 0.5f);
    in.previewAll = true;
    const ScatterPlan all = planScatter(in);
    EXPECT_EQ(all.fraction, 1.0f);
    EXPECT_EQ(all.floorFraction, 1.0f);
    EXPECT_EQ(all.generate, 1.0f);
}

TEST(ScatterLimits, APointBudgetCapsThePreviewAndSaysSo) {
    const auto scalp = sphere(1.0f, 3);
    auto op = makeScatter({{"density", 800.0}});  // about 10000 strands of 9 points
    EvalContext context;
    context.previewFraction = 1.0f;
    context.previewPointBudget = 9.0 * 2000;
    const auto capped = run(*op, scalp, context);
    EXPECT_NE(op->note(context), "");
    ASSERT_NE(capped->strandChannel("_preview"), nullptr);
    // About 2000 shown (marks 0 and 1), the rest of the floor (a quarter of 10000) marked 2.
    std::size_t shown = 0;
    for (const float mark : capped->strandChannel("_preview")->values()) shown += mark < 1.5f;
    EXPECT_NEAR(static_cast<double>(shown), 2000.0, 250.0);
    EXPECT_NEAR(static_cast<double>(capped->strandCount()), scalp->area() * 800.0 / 4.0, 300.0);

    // Without the budget every root shows; the channel still marks the floor that every
    // preview holds (1) against the rest (0), for nodes that must agree across previews.
    context.previewPointBudget = 0.0;
    const auto full = run(*op, scalp, context);
    EXPECT_NEAR(static_cast<double>(full->strandCount()), scalp->area() * 800.0, 400.0);
    const auto marks = full->strandChannel("_preview")->values();
    for (std::size_t i = 0; i < full->strandCount(); ++i)
        ASSERT_EQ(marks[i], unit(full->ids()[i]) < 0.25f ? 1.0f : 0.0f);
    EXPECT_EQ(run(*makeScatter({{"density", 100.0}}), scalp)->strandChannel("_preview"), nullptr)
        << "up to 5000 strands every preview holds all";
    EXPECT_EQ(op->note(context), "") << "the flag is cleared when the budget does not bite";
}

TEST(ScatterLimits, PreviewAllShowsEveryRootWhateverThePreviewDensity) {
    const auto scalp = sphere(1.0f, 3);
    auto op = makeScatter({{"density", 800.0}, {"previewAll", true}});
    const auto full = run(*op, scalp);
    EvalContext preview;
    preview.previewFraction = 0.1f;
    EXPECT_EQ(run(*op, scalp, preview)->fingerprint(), full->fingerprint());
}

}  // namespace
}  // namespace tressora
