// No function gives NaN or infinity, whatever it is fed: NaN, infinities, the
// largest floats, signed zeros and denormals, in every argument of every function.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "expression/functions.h"
#include "expression_test_util.h"

namespace tressora {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();

const std::vector<std::string> kHostileNames = {"nan_", "inf_", "ninf_", "big", "nbig", "zero", "nzero", "tiny", "one"};
const std::vector<float> kHostileValues = {std::numeric_limits<float>::quiet_NaN(), kInf, -kInf, 3e38f, -3e38f,
                                           0.0f, -0.0f, 1e-45f, 1.0f};

/// An environment whose channels, in the order the names are first read, hold the hostile values.
struct HostileEnvironment {
    std::vector<std::vector<float>> tables;
    std::vector<std::span<const float>> views;
    ExpressionEnvironment env;

    explicit HostileEnvironment(const Expression& e) {
        for (const std::string& name : e.readChannels()) {
            float value = 0.0f;
            for (std::size_t i = 0; i < kHostileNames.size(); ++i) {
                if (kHostileNames[i] == name) value = kHostileValues[i];
            }
            tables.push_back({value});
        }
        for (const auto& t : tables) views.emplace_back(t);
        env.strandChannels = views;
        for (float& s : env.slots) s = std::numeric_limits<float>::quiet_NaN();
    }
};

/// Arguments for a row: vectors where its signature wants them, the hostile names cycled.
std::string argumentsFor(const ExpressionFunction& row, int count, std::size_t& next) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        const auto at = static_cast<std::size_t>(i);
        const char kind = at < row.signature.size() ? row.signature[at] : 's';
        const auto name = [&] { return kHostileNames[next++ % kHostileNames.size()]; };
        if (i > 0) text += ", ";
        if (kind == 'v' || (kind == 'p' && next % 2 == 0)) {
            text += '[';
            for (int k = 0; k < 3; ++k) text.append(k > 0 ? ", " : "").append(name());
            text += ']';
        } else {
            text += name();
        }
    }
    return text;
}

/// The call's own result must be finite: anything else would spread through "* 0 + 1".
void expectFiniteCall(const std::string& call) {
    const auto e = Expression::compile(call + " * 0 + 1", {}, ExpressionWant::Either);
    HostileEnvironment h(*e);
    const Vec3f v = e->evaluateVector(h.env);
    EXPECT_EQ(v, (Vec3f{1, 1, 1})) << call;
}

TEST(ExpressionHostileInputs, EveryFunctionGivesFiniteResults) {
    int calls = 0;
    for (const ExpressionFunction& row : expressionFunctions()) {
        if (row.name.find(' ') != std::string_view::npos || row.group == FunctionGroup::Map ||
            row.group == FunctionGroup::Curve || row.code == kFnNoise) {
            continue;  // noise's forms are below, with the curves
        }
        const int most = std::min(row.maxArgs, row.minArgs + 4);
        for (int count = std::max(row.minArgs, 1); count <= most; ++count) {
            if (row.code == kFnWchoose && count % 2 == 0) continue;
            for (std::size_t start = 0; start < kHostileNames.size(); ++start) {
                std::size_t next = start;
                expectFiniteCall(std::string(row.name) + "(" + argumentsFor(row, count, next) + ")");
                ++calls;
            }
        }
    }
    EXPECT_GT(calls, 1000);
}

TEST(ExpressionHostileInputs, CurvesMapsAndArithmeticStayFinite) {
    for (const std::string& t : kHostileNames) {
        expectFiniteCall("curve(" + t + ", 0, 0, 4, 1, 1e38, 4, 2, -1e38, 3)");
        expectFiniteCall("ccurve(" + t + ", 0, [1e38, 0, 1], 3, 1, -1e38, 3)");
        expectFiniteCall("spline(" + t + ", 1e38, -1e38, 1e38, -1e38)");
        expectFiniteCall("noise(" + t + ")");
        expectFiniteCall("noise([" + t + ", 1, " + t + "])");
        expectFiniteCall("noise(" + t + ", " + t + ", 1)");
        expectFiniteCall("noise(" + t + ", 2, " + t + ", " + t + ")");
        expectFiniteCall("rand(" + t + ")");
        expectFiniteCall("rand(" + t + ", big, " + t + ")");
        expectFiniteCall("pick(" + t + ", nbig, big, inf_, nan_, big)");
    }
    // Division by zero is 0; overflow in arithmetic is caught at the end.
    const auto e = Expression::compile("big * big + nan_ / zero + (inf_ - inf_)", {}, ExpressionWant::Number);
    HostileEnvironment h(*e);
    EXPECT_EQ(e->evaluate(h.env), 0);
    EXPECT_EQ(testing::eval("1e39 * 0"), 0);
}

TEST(ExpressionFunctionTable, RowsAreCompleteAndReachableByTheirNamesAndAliases) {
    for (const ExpressionFunction& row : expressionFunctions()) {
        EXPECT_EQ(&expressionFunction(row.code), &row);
        EXPECT_FALSE(row.doc.empty() || row.args.empty()) << row.name;
        EXPECT_LE(row.minArgs, row.maxArgs);
        EXPECT_LE(row.defaultCount, row.maxArgs - row.minArgs) << row.name;
        if (row.group == FunctionGroup::Signature && row.code != kFnNoise) {
            EXPECT_EQ(row.signature.size(), static_cast<std::size_t>(row.maxArgs)) << row.name;
        }
        const bool internal = row.name.find(' ') != std::string_view::npos;
        EXPECT_EQ(findExpressionFunction(row.name), internal ? nullptr : &row) << row.name;
    }
    for (const auto& [alias, code] : std::vector<std::pair<const char*, int>>{
             {"rad", kFnRadians}, {"deg", kFnDegrees}, {"norm", kFnNormalize}, {"dist", kFnDistance}, {"vmap", kFnCmap}})
        EXPECT_EQ(findExpressionFunction(alias)->code, code) << alias;
    EXPECT_EQ(findExpressionFunction("nosuch"), nullptr);
}

}  // namespace
}  // namespace tressora
