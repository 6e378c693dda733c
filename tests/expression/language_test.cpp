// The language: precedence, folding, the program it compiles to, locals and if,
// names, channels, maps, and what the uses flags report.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "core/parallel.h"
#include "expression_test_util.h"

namespace tressora {
namespace {

using testing::compileEither;
using testing::eval;
using testing::evalVector;
using testing::numberVariable;
using testing::vectorVariable;

TEST(ExpressionLanguage, OperatorsBindByPrecedence) {
    const std::vector<std::pair<const char*, float>> cases = {
        {"1 + 2 * 3", 7},          {"(1 + 2) * 3", 9},      {"2 ^ 3 ^ 2", 512},     {"-2 ^ 2", -4},
        {"2 ^ -1", 0.5f},          {"10 - 4 - 3", 3},       {"12 / 3 / 2", 2},      {"7 % 4 * 2", 6},
        {"1 + 2 < 4", 1},          {"1 < 2 == 1", 1},       {"1 || 0 && 0", 1},     {"0 && 1 || 1", 1},
        {"!0 + 1", 2},             {"!3", 0},               {"~0.25", 0.75f},       {"3 - -3", 6},
        {"1 ? 2 : 0 ? 3 : 4", 2},  {"0 ? 2 : 0 ? 3 : 4", 4}, {"0 ? 2 : 1 ? 3 : 4", 3},
        {"1/0", 0},                {"5 % 0", 0},            {"-5 % 3", -2},         {"5 % -3", 2},
        {"2 >= 2", 1},             {"2 > 2", 0},            {"2 <= 1", 0},          {"3 != 3", 0},
        {"0.5 || 0", 1},           {"2 && 3", 1},           {"[1,2,3].y", 2},       {"[1,2,3][1]", 2},
        {"[4,5,6].b + [4,5,6].r", 10}, {"1e2 + .5", 100.5f}, {"pi", 3.1415927f},
    };
    for (const auto& [text, value] : cases) EXPECT_FLOAT_EQ(eval(text), value) << text;
    // The same rules on run-time values: nothing is folded here.
    ExpressionEnvironment env;
    env[kSlotX] = 2;
    env[kSlotY] = 3;
    EXPECT_FLOAT_EQ(eval("-x ^ y", env), -8);
    EXPECT_FLOAT_EQ(eval("x + y * x ^ 2", env), 14);
    EXPECT_FLOAT_EQ(eval("x > 1 && y > 5 || x == 2", env), 1);
    EXPECT_FLOAT_EQ(eval("y % x - x / 0", env), 1);
}

TEST(ExpressionLanguage, ConstantPartsAreFoldedToTheRunTimeValue) {
    EXPECT_EQ(compileEither("1 + 2 * 3")->program().size(), 1u);
    EXPECT_TRUE(compileEither("sin(0.5) * 2 + [1, 2, 3].z")->isConstant());
    EXPECT_TRUE(compileEither("[1, 2, 3] * 2 - 1")->isConstant());
    // x + 1 * 2 keeps x and folds the product.
    const auto e = compileEither("x + 1 * 2");
    ASSERT_EQ(e->program().size(), 3u);
    EXPECT_EQ(e->program()[1].value, 2.0f);
    // A known condition picks its branch and drops the other.
    EXPECT_EQ(compileEither("1 ? x : y")->program().size(), 1u);
    // Reading the environment is never folded, even with constant arguments.
    EXPECT_FALSE(compileEither("rand(3)")->isConstant());
    EXPECT_FALSE(compileEither("map(\"m\")")->isConstant());
    // Folding runs the interpreter, so folded and run-time values agree to the bit.
    ExpressionEnvironment env;
    env[kSlotX] = 2.0f;
    const std::vector<std::pair<std::string, std::string>> forms = {
        {"pow(", ", 0.37)"}, {"fbm([", ", 1.5, 0.2])"}, {"", " ^ 0.3 / 7"}, {"voronoi([", ", 0.2, 0.1], 4)"}};
    for (const auto& [before, after] : forms) {
        const std::string folded = before + "2" + after;
        const std::string runtime = before + "x" + after;
        EXPECT_TRUE(compileEither(folded)->isConstant()) << folded;
        EXPECT_EQ(eval(folded), eval(runtime, env)) << runtime;
    }
}

TEST(ExpressionLanguage, LocalsAreReadAsTheirLastValue) {
    ExpressionEnvironment env;
    env[kSlotX] = 3;
    EXPECT_FLOAT_EQ(eval("$a = x * 2; $a + $a", env), 12);
    EXPECT_FLOAT_EQ(eval("$a = 1; $a = $a + x; $a = $a * 2; $a", env), 8);
    EXPECT_FLOAT_EQ(eval("$v = [1, 2, x]; $v.z + $v[1]", env), 5);
    EXPECT_FLOAT_EQ(eval("a = 2; a;", env), 2);  // the $ is optional
    // Locals resolve before variables, vector names, aliases and slots.
    EXPECT_FLOAT_EQ(eval("$length = 5; length", env), 5);
    EXPECT_FLOAT_EQ(eval("$Pg = 7; Pg", env), 7);
    EXPECT_FLOAT_EQ(eval("$k = 4; k", env, {numberVariable("k", 9)}), 4);
    // A local costs nothing at run time: its code is put in where it is read.
    EXPECT_EQ(compileEither("$a = x * y; $a + $a")->program().size(), 7u);
}

TEST(ExpressionLanguage, IfSelectsEachLocalSetInItsBranches) {
    const char* text =
        "$a = 0; $b = 10;\n"
        "if (x > 1) { $a = 1; $b = 11; }\n"
        "else if (x > 0) { $a = 2; }\n"
        "else { $a = 3; if (y > 0) { $b = 13; } }\n"
        "$a * 100 + $b";
    const auto e = compileEither(text);
    ExpressionEnvironment env;
    const auto at = [&](float x, float y) {
        env[kSlotX] = x;
        env[kSlotY] = y;
        return e->evaluate(env);
    };
    EXPECT_FLOAT_EQ(at(2, 0), 111);
    EXPECT_FLOAT_EQ(at(0.5f, 0), 210);
    EXPECT_FLOAT_EQ(at(-1, 0), 310);
    EXPECT_FLOAT_EQ(at(-1, 1), 313);
    // A number in one branch and a vector in the other becomes a vector.
    EXPECT_EQ(evalVector("$c = 2; if (1 > 0) { $c = [1, 2, 3]; } $c", env), (Vec3f{1, 2, 3}));
    EXPECT_EQ(evalVector("$c = 2; if (0 > 1) { $c = [1, 2, 3]; } $c", env), (Vec3f{2, 2, 2}));
}

TEST(ExpressionLanguage, NamesResolveToSlotsVectorsAliasesAndVariables) {
    ExpressionEnvironment env;
    for (int s = 0; s < kExpressionSlotCount; ++s) env.slots[s] = static_cast<float>(s) + 0.5f;
    const std::vector<std::pair<const char*, Vec3f>> names = {
        {"u", {0.5f, 0.5f, 0.5f}},          {"$prefz", {30.5f, 30.5f, 30.5f}},   {"pointIndex", {23.5f, 23.5f, 23.5f}},
        {"P", {2.5f, 3.5f, 4.5f}},          {"N", {5.5f, 6.5f, 7.5f}},           {"Pref", {28.5f, 29.5f, 30.5f}},
        {"tip", {15.5f, 16.5f, 17.5f}},     {"pointP", {20.5f, 21.5f, 22.5f}},   {"$Pg.y", {3.5f, 3.5f, 3.5f}},
        {"Prefgw.x + Ng.z", {36, 36, 36}},  {"cLength", {10.5f, 10.5f, 10.5f}},  {"faceid", {27.5f, 27.5f, 27.5f}},
        {"F", {24.5f, 24.5f, 24.5f}},       {"P.g + N.b", {11, 11, 11}},
    };
    for (const auto& [text, value] : names) EXPECT_EQ(compileEither(text)->evaluateVector(env), value) << text;
    // Variables are fixed at compile time and folded.
    const std::vector<ExpressionVariable> vars = {numberVariable("scale", 3), vectorVariable("dir", {1, 2, 3})};
    const auto e = compileEither("scale * dir.y + $dir[2]", vars);
    EXPECT_TRUE(e->isConstant());
    EXPECT_FLOAT_EQ(e->evaluate(env), 9);
    EXPECT_EQ(testing::compileError("scale.x", ExpressionWant::Either, vars),
              "expression 'scale.x' at position 1: a number has no .x");
}

TEST(ExpressionLanguage, ChannelsAreReadByIndexFromTheEnvironment) {
    const auto e = compileEither("density * 2 + length + other + density");
    ASSERT_EQ(e->readChannels(), (std::vector<std::string>{"density", "other"}));  // length is the variable
    const std::vector<float> density = {1, 2, 3};
    const std::vector<float> other = {10, 20, 30};
    const std::vector<float> pointDensity = {100, 200, 300, 400};
    const std::vector<std::span<const float>> strandTables = {density, other};
    const std::vector<std::span<const float>> pointTables = {pointDensity, {}};
    ExpressionEnvironment env;
    env[kSlotLength] = 0.5f;
    env.strandChannels = strandTables;
    env.strand = 1;
    EXPECT_FLOAT_EQ(e->evaluate(env), 2 * 3 + 0.5f + 20);
    // A point channel of the name wins when the element has a point; an empty one falls back.
    env.pointChannels = pointTables;
    env.point = 3;
    EXPECT_FLOAT_EQ(e->evaluate(env), 400 * 3 + 0.5f + 20);
    // Missing elements and tables read 0.
    env.point = 9;
    env.strand = 7;
    EXPECT_FLOAT_EQ(e->evaluate(env), 0.5f);
    EXPECT_FLOAT_EQ(compileEither("density")->evaluate(ExpressionEnvironment{}), 0);
}

class FakeMaps : public ExpressionMaps {
public:
    float value(std::uint32_t map, int channel, const ExpressionEnvironment& env) const override {
        return static_cast<float>(map) * 10 + static_cast<float>(channel) + env[kSlotU];
    }
    Vec3f color(std::uint32_t map, const ExpressionEnvironment&) const override {
        return {static_cast<float>(map), 0.5f, std::numeric_limits<float>::infinity()};
    }
};

TEST(ExpressionLanguage, MapCallsReferToTheirMapsAndChannels) {
    const auto e = compileEither("map(\"bald\") + map('bald', \"r\") + map(\"dense\", 2) + map(\"bald\", 'r')");
    EXPECT_EQ(e->mapNames(), (std::vector<std::string>{"bald", "dense"}));
    EXPECT_EQ(e->mapProbes(), (std::vector<MapProbe>{{0, 4}, {0, 0}, {1, 2}}));
    FakeMaps maps;
    ExpressionEnvironment env;
    env[kSlotU] = 0.25f;
    EXPECT_FLOAT_EQ(e->evaluate(env), 0);  // no maps bound: 0
    env.maps = &maps;
    EXPECT_FLOAT_EQ(e->evaluate(env), 4.25f + 0.25f + 12.25f + 0.25f);
    // A colour comes through finite; vmap is cmap.
    EXPECT_EQ(compileEither("vmap(\"dense\")")->evaluateVector(env), (Vec3f{0, 0.5f, 0}));
}

TEST(ExpressionLanguage, ArrowAppliesAFunctionToTheValueOnItsLeft) {
    ExpressionEnvironment env;
    env[kSlotX] = -1.5f;
    EXPECT_FLOAT_EQ(eval("x->clamp(0, 1)", env), 0);
    EXPECT_FLOAT_EQ(eval("x->abs()->sqrt()", env), std::sqrt(1.5f));
    EXPECT_FLOAT_EQ(eval("x - 1->abs()", env), 2.5f);  // -> binds looser than -
    EXPECT_FLOAT_EQ(eval("(x - 1)->abs()", env), 2.5f);
    EXPECT_FLOAT_EQ(eval("P->length()", env), 1.5f);
}

TEST(ExpressionLanguage, UsesFlagsReportWhatTheProgramReads) {
    const auto uses = [](const char* text) { return compileEither(text)->uses(); };
    EXPECT_EQ(uses("1 + rand"), ExpressionUses{});
    EXPECT_EQ(uses("u"), (ExpressionUses{.surface = true}));
    EXPECT_EQ(uses("N.y"), (ExpressionUses{.surface = true}));
    EXPECT_EQ(uses("lift"), (ExpressionUses{.surface = true, .shape = true}));
    EXPECT_EQ(uses("prefy"), (ExpressionUses{.restPose = true}));
    EXPECT_EQ(uses("longest"), (ExpressionUses{.shape = true, .longest = true}));
    EXPECT_EQ(uses("tip.x"), (ExpressionUses{.shape = true}));
    EXPECT_EQ(uses("pt"), (ExpressionUses{.perPoint = true}));
    EXPECT_EQ(uses("pointIndex"), (ExpressionUses{.perPoint = true}));
    EXPECT_EQ(uses("t"), (ExpressionUses{.perPoint = true, .pointPosition = true}));
    EXPECT_EQ(uses("noise(pointP)"), (ExpressionUses{.perPoint = true, .pointPosition = true}));
    EXPECT_TRUE(compileEither("frame * 2")->readsTime());
    EXPECT_TRUE(compileEither("$F")->readsTime());
    EXPECT_TRUE(compileEither("sin(time)")->readsTime());
    EXPECT_FALSE(compileEither("0 ? frame : 1")->readsTime());
}

TEST(ExpressionLanguage, ResultsAreAlwaysFinite) {
    ExpressionEnvironment env;
    env[kSlotX] = 1e30f;
    EXPECT_EQ(eval("x * x", env), 0);
    EXPECT_EQ(eval("x * x - x * x", env), 0);
    EXPECT_EQ(evalVector("[x * x, 1, -x * x]", env), (Vec3f{0, 1, 0}));
    // A number program read as a vector gives the number thrice; a vector read as a number its x.
    EXPECT_EQ(compileEither("2")->evaluateVector(env), (Vec3f{2, 2, 2}));
    EXPECT_EQ(compileEither("[4, 5, 6]")->evaluate(env), 4);
}

TEST(ExpressionLanguage, SharedProgramGivesTheSameValuesOnEveryThread) {
    const auto e = compileEither("fbm(pointP * 3) * curve(t, 0, 1, 4, 1, 0, 4) + rand(2)");
    const std::size_t n = 20000;
    std::vector<float> serial(n), parallel(n);
    const auto run = [&](std::vector<float>& out, std::size_t lo, std::size_t hi) {
        ExpressionEnvironment env;
        for (std::size_t i = lo; i < hi; ++i) {
            env[kSlotPx] = static_cast<float>(i) * 0.013f;
            env[kSlotT] = static_cast<float>(i % 100) / 100.0f;
            env[kSlotRand] = static_cast<float>(i % 7) / 7.0f;
            out[i] = e->evaluate(env);
        }
    };
    run(serial, 0, n);
    parallelRange(0, n, 64, [&](std::size_t lo, std::size_t hi) { run(parallel, lo, hi); });
    EXPECT_EQ(serial, parallel);
}

}  // namespace
}  // namespace tressora
