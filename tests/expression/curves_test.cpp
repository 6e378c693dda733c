// Curves through keys fixed at compile time: each interpolation, the ends, sorting,
// pairs and colours.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "expression_test_util.h"

namespace tressora {
namespace {

using testing::compileEither;
using testing::eval;

float at(const char* text, float t) {
    ExpressionEnvironment env;
    env[kSlotT] = t;
    return compileEither(text)->evaluate(env);
}

TEST(ExpressionCurves, EachInterpolationRunsFromItsLeftKey) {
    EXPECT_FLOAT_EQ(at("curve(t, 0, 0, 1, 1, 1, 1)", 0.3f), 0.3f);
    EXPECT_FLOAT_EQ(at("curve(t, 0, 2, 0, 1, 5, 0)", 0.7f), 2);
    EXPECT_FLOAT_EQ(at("curve(t, 0, 0, 2, 1, 1, 2)", 0.25f), 0.15625f);
    // Catmull-Rom with the end neighbours clamped to the end keys: halfway along the segments
    // (0, 0, 1, 4) and (0, 1, 4, 4).
    EXPECT_NEAR(at("curve(t, 0, 0, 3, 1, 1, 3, 2, 4, 3)", 0.5f), 0.3125, 1e-6);
    EXPECT_NEAR(at("curve(t, 0, 0, 3, 1, 1, 3, 2, 4, 3)", 1.5f), 2.5625, 1e-6);
    // Mixed: the segment after a held key holds, the one after a linear key is straight.
    EXPECT_FLOAT_EQ(at("curve(t, 0, 0, 1, 1, 1, 0, 2, 3, 1)", 0.5f), 0.5f);
    EXPECT_FLOAT_EQ(at("curve(t, 0, 0, 1, 1, 1, 0, 2, 3, 1)", 1.5f), 1);
}

TEST(ExpressionCurves, MonotoneSplineNeverOvershoots) {
    const char* text = "curve(t, 0, 0, 4, 1, 1, 4, 2, 1, 4, 3, 3, 4)";
    float previous = -1;
    for (int i = 0; i <= 300; ++i) {
        const float t = static_cast<float>(i) / 100.0f;
        const float v = at(text, t);
        EXPECT_GE(v, previous - 1e-6f) << t;
        EXPECT_GE(v, 0);
        EXPECT_LE(v, 3);
        if (t >= 1 && t <= 2) {
            EXPECT_FLOAT_EQ(v, 1) << t;  // the flat stretch stays flat
        }
        previous = v;
    }
    EXPECT_FLOAT_EQ(at(text, 3), 3);
    EXPECT_FLOAT_EQ(at(text, 1), 1);
}

TEST(ExpressionCurves, OutsideTheKeysGivesTheEndValues) {
    const char* text = "curve(t, 0.2, 5, 1, 0.8, 7, 1)";
    EXPECT_EQ(at(text, -3), 5);
    EXPECT_EQ(at(text, 0.2f), 5);
    EXPECT_EQ(at(text, 9), 7);
    EXPECT_EQ(at(text, std::numeric_limits<float>::quiet_NaN()), 5);
    EXPECT_EQ(at("curve(t, 0.5, 3, 2)", 0.1f), 3);  // one key is a constant
}

TEST(ExpressionCurves, KeysAreSortedAndMayComeInPairs) {
    for (float t : {0.1f, 0.5f, 0.9f}) {
        EXPECT_FLOAT_EQ(at("curve(t, 1, 1, 1, 0, 0, 1)", t), t);
        EXPECT_FLOAT_EQ(at("curve(t, 0, 0, 1, 2)", t), 2 * t);
        EXPECT_FLOAT_EQ(at("linearcurve(t, 1, 2, 0, 0)", t), 2 * t);
    }
    // Keys may come from the node's own variables.
    const std::vector<ExpressionVariable> vars = {testing::numberVariable("lo", 2), testing::numberVariable("hi", 4)};
    ExpressionEnvironment env;
    env[kSlotT] = 0.5f;
    EXPECT_FLOAT_EQ(testing::eval("curve(t, 0, lo, 1, 1, hi, 1)", env, vars), 3);
}

TEST(ExpressionCurves, ColourCurvesBlendPerComponent) {
    ExpressionEnvironment env;
    env[kSlotT] = 0.5f;
    EXPECT_EQ(testing::evalVector("ccurve(t, 0, [1, 0, 0], 1, 1, [0, 0, 1], 1)", env), (Vec3f{0.5f, 0, 0.5f}));
    EXPECT_EQ(testing::evalVector("ccurve(t, 0, 1, 1, 1, [0, 0, 1], 1)", env), (Vec3f{0.5f, 0.5f, 1}));
}

TEST(ExpressionCurves, CurvesReadAtAConstantPlaceAreFolded) {
    const auto e = compileEither("curve(0.5, 0, 0, 1, 1, 4, 1)");
    EXPECT_TRUE(e->isConstant());
    EXPECT_TRUE(e->curves().empty());
    EXPECT_FLOAT_EQ(e->evaluate({}), 2);
    EXPECT_EQ(compileEither("curve(t, 0, 0, 1, 1, 4, 1) + curve(t, 0, 0, 1, 1, 1, 1)")->curves().size(), 2u);
}

}  // namespace
}  // namespace tressora
