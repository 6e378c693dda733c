// The number functions against values worked out independently: closed forms,
// <cmath> in double precision, symmetry and ranges.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "expression_test_util.h"
#include "core/hash.h"

namespace tressora {
namespace {

using testing::eval;

constexpr double kPi = 3.14159265358979323846;

struct Case {
    std::string text;
    double value;
};

void expectNear(const std::vector<Case>& cases, double tolerance = 2e-6) {
    for (const Case& c : cases) {
        const double got = eval(c.text);
        EXPECT_NEAR(got, c.value, tolerance * std::max(1.0, std::fabs(c.value))) << c.text;
    }
}

TEST(ExpressionMath, TrigonometryInRadiansAndDegrees) {
    expectNear({
        {"sin(0.5)", std::sin(0.5)},     {"cos(2)", std::cos(2.0)},      {"tan(1)", std::tan(1.0)},
        {"asin(2)", kPi / 2},            {"acos(-3)", kPi},              {"atan(1)", kPi / 4},
        {"atan2(1, 0)", kPi / 2},        {"atan2(-1, -1)", -3 * kPi / 4}, {"sind(30)", 0.5},
        {"cosd(60)", 0.5},               {"tand(45)", 1},                {"asind(1)", 90},
        {"acosd(0)", 90},                {"acosd(5)", 0},                {"atand(1)", 45},
        {"atan2d(1, 1)", 45},            {"radians(180)", kPi},          {"rad(90)", kPi / 2},
        {"degrees(pi)", 180},            {"deg(pi / 2)", 90},
    });
}

TEST(ExpressionMath, HyperbolicAndPowerFunctionsGuardTheirDomains) {
    const double e = std::exp(1.0);
    expectNear({
        {"sinh(1)", (e - 1 / e) / 2},    {"cosh(1)", (e + 1 / e) / 2},  {"tanh(0.5)", std::tanh(0.5)},
        {"asinh(1)", std::log(1 + std::sqrt(2.0))},                     {"acosh(2)", std::log(2 + std::sqrt(3.0))},
        {"acosh(0.5)", 0},               {"atanh(0.5)", 0.5 * std::log(3.0)},
        {"atanh(1)", 0},                 {"atanh(-7)", 0},
        {"abs(-3)", 3},                  {"sqrt(9)", 3},                {"sqrt(-4)", 0},
        {"cbrt(-8)", -2},                {"pow(2, 10)", 1024},          {"pow(-8, 1 / 3)", 0},
        {"pow(0, -1)", 0},               {"exp(1)", e},                 {"exp(1000)", 0},
        {"log(exp(1))", 1},                  {"log(0)", 0},                 {"log(-1)", 0},
        {"log10(1000)", 3},              {"log10(0)", 0},               {"hypot(3, 4)", 5},
    });
}

TEST(ExpressionMath, RoundingAndRemainders) {
    expectNear({
        {"floor(-1.5)", -2}, {"ceil(-1.5)", -1}, {"round(2.5)", 3},   {"round(-2.5)", -3}, {"trunc(-1.7)", -1},
        {"fract(-1.25)", 0.75}, {"sign(-3)", -1}, {"sign(0)", 0},     {"sign(0.1)", 1},    {"min(2, -1)", -1},
        {"max(2, -1)", 2},   {"mod(-5, 3)", 1},  {"mod(5, -3)", -1}, {"mod(5, 0)", 0},    {"fmod(-5, 3)", -2},
        {"fmod(5.5, 2)", 1.5}, {"fmod(5, 0)", 0}, {"invert(0.25)", 0.75},
    });
}

TEST(ExpressionMath, ClampMixAndSteps) {
    expectNear({
        {"clamp(5, 3, 1)", 3},            {"clamp(-1, 0, 1)", 0},          {"clamp(0.5, 1, 0)", 0.5},
        {"mix(2, 4, 0.25)", 2.5},         {"lerp(2, 4, 1.5)", 5},          {"step(0.5, 0.5)", 1},
        {"step(0.5, 0.4)", 0},            {"boxstep(0.4, 0.5)", 0},        {"boxstep(0.5, 0.5)", 1},
        {"linearstep(0.25, 0, 1)", 0.25}, {"linearstep(5, 0, 1)", 1},      {"linearstep(-5, 0, 1)", 0},
        {"linearstep(0.75, 1, 0)", 0.25}, {"linearstep(2, 1, 0)", 0},      {"linearstep(-1, 1, 0)", 1},
        {"linearstep(0.5, 0.5, 0.5)", 1}, {"linearstep(0.4, 0.5, 0.5)", 0},
        {"smoothstep(0.25, 0, 1)", 0.15625}, {"smoothstep(0.25, 1, 0)", 1 - 0.15625},
        {"gaussstep(0.5, 0, 1)", 0.25},   {"gaussstep(0, 0, 1)", 0},       {"gaussstep(1, 0, 1)", 1},
        {"gaussstep(0.5, 1, 0)", 0.25},   {"gaussstep(-1, 1, 0)", 1},      {"gaussstep(2, 1, 0)", 0},
        {"gaussstep(0.5, 0.5, 0.5)", 1},  {"gaussstep(0.4, 0.5, 0.5)", 0},
        {"gaussstep(0.75, 0, 1)", std::pow(2.0, -8 * 0.0625)},
    });
}

TEST(ExpressionMath, RemappingFunctions) {
    expectNear({
        {"fit(5, 0, 10, 100, 200)", 150}, {"fit(15, 0, 10, 100, 200)", 250}, {"fit(5, 1, 1, 7, 9)", 7},
        {"remap(0.5, 0, 1, 1, 0)", 1},    {"remap(-1, 0, 1, 1, 0)", 1},       {"remap(1.5, 0, 1, 1)", 0.5},
        {"remap(3, 0, 1, 1, 0)", 0},      {"remap(1.25, 0, 1, 1, 1)", 1 - 0.15625},
        {"remap(1.5, 0, 1, 0, 0)", 0},    {"remap(1.5, 0, 1, 1, 2)", 1 - std::pow(2.0, -2)},
        {"compress(0.5, 2, 4)", 3},       {"expand(3, 2, 4)", 0.5},           {"expand(3, 2, 2)", 0},
    });
}

TEST(ExpressionMath, ShapingCurvesFollowTheirClosedForms) {
    expectNear({
        {"gamma(0.25, 0.5)", 0.0625}, {"gamma(-1, 2)", 0},       {"gamma(4, 0)", 0},
        {"bias(0.5, 0.8)", 0.8},      {"bias(0.25, 0.8)", 0.64}, {"bias(1, 0.3)", 1},
        {"bias(0, 0.3)", 0},          {"bias(0.3, 0)", 0},       {"bias(0.25, 0.5)", 0.25},
        {"gain(0.25, 0.5)", 0.25},    {"gain(0.25, 0.8)", 0.1},  {"gain(0.75, 0.8)", 0.9},
        {"contrast(0.25, 0.5)", 0.25}, {"contrast(0.25, 0.8)", 0.1}, {"contrast(0.75, 0.8)", 0.9},
        {"contrast(0.25, 0.2)", 0.4},  // less contrast: a quarter moves toward the middle
    }, 1e-5);
    // Both are point-symmetric about (0.5, 0.5) and keep the ends.
    for (float x : {0.0f, 0.1f, 0.3f, 0.45f}) {
        for (float g : {0.2f, 0.7f, 0.9f}) {
            const std::string a = std::to_string(x), b = std::to_string(1 - x), k = std::to_string(g);
            EXPECT_NEAR(eval("gain(" + a + ", " + k + ")") + eval("gain(" + b + ", " + k + ")"), 1, 1e-5);
            EXPECT_NEAR(eval("contrast(" + a + ", " + k + ")") + eval("contrast(" + b + ", " + k + ")"), 1, 1e-5);
        }
    }
    EXPECT_EQ(eval("gain(1, 0.8)"), 1);
    EXPECT_EQ(eval("contrast(0, 0.8)"), 0);
}

TEST(ExpressionMath, SplineIsCatmullRomThroughTheInnerValues) {
    expectNear({
        {"spline(0, 5, 1, 2, 7)", 1},
        {"spline(1, 5, 1, 2, 7)", 2},
        {"spline(-3, 5, 1, 2, 7)", 1},
        {"spline(0.5, 0, 1, 2, 3)", 1.5},
        {"spline(0.5, 0, 0, 1, 1)", 0.5},
        {"spline(0.3, 0, 1, 4, 9, 16, 25)", 3.61},   // the segment from 1 to 4, at 0.9
        {"spline(0.8, 0, 1, 4, 9, 16, 25)", 11.56},  // the segment from 9 to 16, at 0.4
    }, 1e-5);
}

TEST(ExpressionMath, HashAndRandFollowTheirDefinitions) {
    // hash folds the bits of its arguments into a fixed start; rand(seed) folds the seed into
    // the strand's own draw.
    std::uint64_t h = 0xEE83BFC8A6DE0083ull;
    for (float v : {1.5f, -2.0f, 0.0f}) h = combine(h, floatBits(v));
    EXPECT_EQ(eval("hash(1.5, -2, -0)"), unitFromBits(h));
    EXPECT_EQ(eval("hash(0)"), eval("hash(-0)"));
    EXPECT_NE(eval("hash(1, 2)"), eval("hash(2, 1)"));

    ExpressionEnvironment env;
    env[kSlotRand] = 0.37f;
    const float seeded = unitFromBits(combine(hash64(floatBits(0.37f)), floatBits(5.0f)));
    EXPECT_EQ(eval("rand()", env), 0.37f);
    EXPECT_EQ(eval("rand", env), 0.37f);  // the slot itself
    EXPECT_EQ(eval("rand(5)", env), seeded);
    EXPECT_FLOAT_EQ(eval("rand(2, 4)", env), 2 + 2 * 0.37f);
    EXPECT_FLOAT_EQ(eval("rand(2, 4, 5)", env), 2 + 2 * seeded);
}

TEST(ExpressionMath, SelectionFunctions) {
    expectNear({
        {"choose(0.5, 10, 20, 30)", 20}, {"choose(0, 10, 20, 30)", 10}, {"choose(1, 10, 20, 30)", 30},
        {"choose(7, 10, 20)", 20},       {"choose(-7, 10, 20)", 10},
        {"wchoose(0.5, 1, 0, 2, 0)", 1}, {"wchoose(0.2, 1, 1, 2, 3)", 1}, {"wchoose(0.3, 1, 1, 2, 3)", 2},
        {"wchoose(1, 1, 1, 2, 3, 9, 0)", 2}, {"wchoose(0.1, 1, -5, 2, 1)", 2},
        {"cycle(0, 5, 7)", 5}, {"cycle(3, 5, 7)", 5}, {"cycle(-1, 5, 7)", 7}, {"cycle(4, 7, 5)", 6},
        {"pick(12, 3, 3)", 3}, {"pick(12, 1, 3, 0, 0, 1)", 3}, {"pick(12, 1, 3, 0, 0, 0)", 1},
    });
    // pick is a whole number in range, spread evenly, the same for the same index.
    int counts[3] = {0, 0, 0};
    for (int i = 0; i < 3000; ++i) {
        const float v = eval("pick(" + std::to_string(i) + ", 3, 1)");
        ASSERT_TRUE(v == 1 || v == 2 || v == 3) << v;
        ++counts[static_cast<int>(v) - 1];
    }
    for (int c : counts) EXPECT_NEAR(c, 1000, 120);
    EXPECT_EQ(eval("pick(17, 0, 100)"), eval("pick(17, 0, 100)"));
    // A weight pushes its value up: value 1 weighs 8 against 1 and 1.
    int ones = 0;
    for (int i = 0; i < 1000; ++i) ones += eval("pick(" + std::to_string(i) + ", 1, 3, 8)") == 1;
    EXPECT_NEAR(ones, 800, 60);
}

}  // namespace
}  // namespace tressora
