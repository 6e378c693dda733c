// Vector and colour functions: products, turns, the up rotation, HSL round trips and
// the hue, saturation and intensity adjustments.

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "expression_test_util.h"

namespace tressora {
namespace {

using testing::eval;
using testing::evalVector;

void expectVecNear(Vec3f a, Vec3f b, float tolerance = 1e-5f) {
    EXPECT_NEAR(a.x, b.x, tolerance);
    EXPECT_NEAR(a.y, b.y, tolerance);
    EXPECT_NEAR(a.z, b.z, tolerance);
}

TEST(ExpressionVectors, ProductsLengthsAndAngles) {
    EXPECT_FLOAT_EQ(eval("dot([1, 2, 3], [4, -5, 6])"), 12);
    EXPECT_EQ(evalVector("cross([1, 0, 0], [0, 1, 0])"), (Vec3f{0, 0, 1}));
    EXPECT_FLOAT_EQ(eval("length([3, 4, 12])"), 13);
    EXPECT_FLOAT_EQ(eval("distance([1, 1, 1], [4, 5, 1])"), 5);
    EXPECT_FLOAT_EQ(eval("dist(0, [3, 4, 0])"), 5);  // a point argument takes a number for all three
    expectVecNear(evalVector("normalize([0, 3, 4])"), {0, 0.6f, 0.8f});
    EXPECT_EQ(evalVector("norm([0, 0, 0])"), (Vec3f{0, 0, 0}));
    EXPECT_NEAR(eval("angle([1, 0, 0], [0, 2, 0])"), 1.5707964f, 1e-6);
    EXPECT_NEAR(eval("angle([1, 1, 0], [-1, -1, 0])"), 3.1415927f, 1e-3);
    EXPECT_NEAR(eval("angle([0, 0, 0], [1, 0, 0])"), 1.5707964f, 1e-6);
    expectVecNear(evalVector("ortho([2, 0, 0], [0, 3, 0])"), {0, 0, 1});
    EXPECT_FLOAT_EQ(eval("[1, 2, 3][2] + (P + 1).x"), 4);
}

TEST(ExpressionVectors, RotationsKeepLengthAndTurnTheRightWay) {
    expectVecNear(evalVector("rotate([1, 0, 0], [0, 0, 1], pi / 2)"), {0, 1, 0});
    expectVecNear(evalVector("rotate([1, 0, 0], [0, 0, 5], pi)"), {-1, 0, 0});
    expectVecNear(evalVector("rotate([0, 0, 1], [0, 0, 1], 1.3)"), {0, 0, 1});  // on the axis
    EXPECT_EQ(evalVector("rotate([1, 2, 3], [0, 0, 0], 1)"), (Vec3f{1, 2, 3}));
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> c(-1, 1);
    for (int n = 0; n < 50; ++n) {
        const std::vector<ExpressionVariable> vars = {testing::vectorVariable("v", {c(rng), c(rng), c(rng)}),
                                                      testing::vectorVariable("u", {c(rng), c(rng), c(rng)})};
        const Vec3f v = vars[0].value, u = normalized(vars[1].value);
        EXPECT_NEAR(eval("length(rotate(v, u, 0.7))", {}, vars), length(v), 1e-5);
        EXPECT_NEAR(eval("length(up(v, u))", {}, vars), length(v), 1e-5);
        // up turns +Y onto the direction of upvec.
        expectVecNear(evalVector("up([0, 1, 0], u)", {}, vars), u);
    }
    EXPECT_EQ(evalVector("up([1, 2, 3], [0, 4, 0])"), (Vec3f{1, 2, 3}));
    expectVecNear(evalVector("up([0, 1, 0], [1, 0, 0])"), {1, 0, 0});
    expectVecNear(evalVector("up([1, 1, 0], [0, -1, 0])"), {1, -1, 0});
    EXPECT_EQ(evalVector("up([1, 2, 3], [0, 0, 0])"), (Vec3f{1, 2, 3}));
}

TEST(ExpressionColours, HslConversionsRoundTrip) {
    expectVecNear(evalVector("rgbtohsl([1, 0, 0])"), {0, 1, 0.5f});
    expectVecNear(evalVector("rgbtohsl([0, 1, 0])"), {1.0f / 3, 1, 0.5f});
    expectVecNear(evalVector("rgbtohsl([0.5, 0.5, 0.5])"), {0, 0, 0.5f});
    expectVecNear(evalVector("rgbtohsl([0.2, 0.4, 0.6])"), {7.0f / 12, 0.5f, 0.4f});
    expectVecNear(evalVector("hsltorgb([0.5, 1, 0.5])"), {0, 1, 1});
    expectVecNear(evalVector("hsltorgb([1.5, 1, 0.5])"), {0, 1, 1});  // hue wraps
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> c(0, 1);
    for (int n = 0; n < 100; ++n) {
        const std::vector<ExpressionVariable> vars = {testing::vectorVariable("c", {c(rng), c(rng), c(rng)})};
        expectVecNear(evalVector("hsltorgb(rgbtohsl(c))", {}, vars), vars[0].value, 1e-5f);
        expectVecNear(evalVector("hsi(c, 360, 1, 1)", {}, vars), vars[0].value, 1e-5f);
        expectVecNear(evalVector("saturate(c, 1)", {}, vars), vars[0].value, 1e-5f);
        const Vec3f grey = evalVector("saturate(c, 0)", {}, vars);
        EXPECT_NEAR(grey.x, grey.y, 1e-6);
        EXPECT_NEAR(grey.y, grey.z, 1e-6);
    }
}

TEST(ExpressionColours, HueSaturationIntensityAdjustments) {
    expectVecNear(evalVector("hsi([1, 0, 0], 120, 1, 1)"), {0, 1, 0});
    expectVecNear(evalVector("hsi([0.2, 0.4, 0.6], 0, 1, 2)"), {0.4f, 0.8f, 1.2f});
    expectVecNear(evalVector("hsi([0.2, 0.4, 0.6], 90, 0.5, 2, 0)"), {0.2f, 0.4f, 0.6f});
    expectVecNear(evalVector("hsi([1, 0, 0], 120, 1, 1, 0.5)"), {0.5f, 0.5f, 0});
    // midhsi changes nothing at a mask of 0.5 and everything at its ends.
    expectVecNear(evalVector("midhsi([1, 0, 0], 120, 1, 1, 0.5)"), {1, 0, 0});
    expectVecNear(evalVector("midhsi([1, 0, 0], 120, 1, 1, 1)"), {0, 1, 0});
    expectVecNear(evalVector("midhsi([1, 0, 0], 120, 1, 1, 0)"), {0, 1, 0});
    // Half way to an end with a linear falloff over the whole half range: half the change.
    expectVecNear(evalVector("midhsi([1, 0, 0], 120, 1, 1, 0.75, 1, 0)"), {0.5f, 0.5f, 0});
    // A short falloff reaches the full change early.
    expectVecNear(evalVector("midhsi([1, 0, 0], 120, 1, 1, 0.75, 0.25)"), {0, 1, 0});
}

}  // namespace
}  // namespace tressora
