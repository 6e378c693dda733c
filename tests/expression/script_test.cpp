// Scripts: every compile fault with its line and column, and what blocks, locals, branches,
// loops and the step budget do when a block runs.

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "expression/script.h"

namespace tressora {
namespace {

const std::vector<ScriptParamDecl> kParams = {
    {"amount", ScriptParamType::Length, std::nullopt, std::nullopt},
    {"count", ScriptParamType::Int, 0.0, 12.0},
    {"loose", ScriptParamType::Int, std::nullopt, std::nullopt},
    {"big", ScriptParamType::Int, 0.0, 200000.0},
    {"profile", ScriptParamType::Ramp, std::nullopt, std::nullopt},
    {"tint", ScriptParamType::Color, std::nullopt, std::nullopt},
};
const std::vector<std::string> kWrites = {"P", "width", "channel.mass"};

struct Fault {
    const char* script;
    const char* message;
    int line;
    int column;
};

TEST(ScriptCompile, EveryFaultHasItsMessageLineAndColumn) {
    const Fault faults[] = {
        {"", "the script is empty: write a per point { ... } block (or per strand { ... })", 1, 1},
        {"# nothing\n", "the script is empty: write a per point { ... } block (or per strand { ... })", 2, 1},
        {"P = 1;", "a script is made of blocks: per strand { ... } and per point { ... }", 1, 1},
        {"per curve { }", "expected 'strand' or 'point' after 'per'", 1, 5},
        {"per strand { }\nper strand { }", "a script has one per strand block", 2, 1},
        {"per point { }\nper point { }", "a script has one per point block", 2, 1},
        {"per point { }\nper strand { }", "the per strand block comes before the per point block", 2, 1},
        {"per point\n  $a = 1;", "expected '{' after per point block", 2, 3},
        {"per point {\n  $a = 1;\n", "expected '}' to close the per point block", 3, 1},
        {"per point {\n  if (t > 0) {\n    $a = 1;\n", "expected '}': a block is not closed", 4, 1},
        {"per strand {\n  per point { }\n}", "blocks don't nest: close this one before per", 2, 3},
        {"per point { $a 1; }", "expected '=' after $a", 1, 16},
        {"per point { $a = 1 }", "expected ';' after the value of $a", 1, 20},
        {"per point { a + 1; }", "a: a statement assigns a value ($name = ...;)", 1, 13},
        {"per point { 3 = 1; }", "expected a statement: an assignment ($name = ...;), an if or a for", 1, 13},
        {"per point { $q.x = 1; }", "q is set whole first ($q = [x, y, z];), then a component", 1, 13},
        {"per point { $n = 1;\n $n.y = 2; }", "n is a number, not a vector (use .x, length(...) or dot(...))", 2, 2},
        {"per point { $b = $c + 1; $c = 2; }", "c is read before it is set", 1, 18},
        {"per point { color = [1, 0, 0]; }",
         "color is not in the node's \"writes\": add \"color\" to the header to change it", 1, 13},
        {"per point { channel.other = 1; }",
         "channel.other is not in the node's \"writes\": add \"channel.other\" to the header to change it", 1, 13},
        {"per strand { P = [0, 0, 0]; }", "P is per point: change it in a per point block", 1, 14},
        {"per strand { channel.mass = 1; }\nper point { channel.mass = 2; }",
         "channel.mass is written per strand already: a channel is a strand's or a point's, written in one block", 2,
         13},
        {"per point { if (t > 0) $a = 1; }", "expected '{': an if's statements are in braces", 1, 24},
        {"per point { else { } }", "an else without its if", 1, 13},
        {"per point { if (P) { } }", "an if's condition is a number, not a vector", 1, 17},
        {"per point { for $i in 0 .. t { } }",
         "a loop's bound is a whole number written out or a whole-number param with a max, not t (a script always "
         "finishes)",
         1, 28},
        {"per point { for $i in 0 .. 2.5 { } }",
         "a loop's bound is a whole number written out or a whole-number param with a max, not 2.5 (a script always "
         "finishes)",
         1, 28},
        {"per point { for $i in 0 .. loose { } }",
         "a loop's bound is a whole number written out or a whole-number param with a max, not loose (a script "
         "always finishes)",
         1, 28},
        {"per point { for $i in 0 .. (4) { } }",
         "a loop's bounds are whole numbers written out, for $i in 0 .. 8 (or a whole-number param)", 1, 28},
        {"per point { for $i in 0 .. 100001 { } }", "a loop's bound is 100000 at most", 1, 28},
        {"per point { for $i in 0 .. big { } }", "a loop's bound is 100000 at most", 1, 28},
        {"per point { for $i in 0 .. 3 { $i = 1; } }", "i is the for loop's counter: it can't be assigned", 1, 32},
        {"per point { $i = 0; for $i in 0 .. 3 { } }", "i is taken: name the loop's counter otherwise", 1, 25},
        {"per point { for in 0 .. 3 { } }", "expected the loop's counter after for: for $i in 0 .. 8 { ... }", 1, 17},
        {"per point { for $i 0 .. 3 { } }", "expected 'in' after for $i (for $i in 0 .. 8 { ... })", 1, 20},
        {"per point { for $i in 0 3 { } }", "expected '..' between the loop's bounds: for $i in 0 .. 8", 1, 25},
        {"per point { amount = 1; }", "amount is a param of the node (read only): copy it into a local to change it",
         1, 13},
        {"per point { $a = profile; }", "profile is a ramp: read it as $profile(x), x from 0 to 1", 1, 18},
        {"per point { t = 1; }",
         "t is an input of the script (read only): assign P, width, color, channel.name or a local of another name", 1,
         13},
        {"per point { $a = channel; }", "channel.name reads a channel: expected '.' and its name", 1, 25},
        {"per point { $a = prev.N; }", "prev has .P alone (the point before, as this run left it)", 1, 18},
        {"per strand { $a = prev.P; }", "prev.P is per point: read it in a per point block", 1, 19},
        {"per point { $a = strandPoint(); }", "strandPoint takes one argument", 1, 30},
        {"per point { $a = strandPoint(t, t); }", "strandPoint takes one argument", 1, 31},
        {"per point { $a = guidePoint(t; }", "guidePoint takes one argument: expected ')'", 1, 30},
        {"per point { $a = strandPoint(P); }", "strandPoint's argument is a number, not a vector", 1, 30},
        {"per point { $a = sin(; }", "unexpected ';'", 1, 22},
    };
    for (const Fault& f : faults) {
        try {
            compileScript(f.script, kParams, kWrites);
            ADD_FAILURE() << "compiled: " << f.script;
        } catch (const ScriptError& e) {
            EXPECT_EQ(std::string(e.what()), std::string(f.message) + " (line " + std::to_string(f.line) +
                                                 ", column " + std::to_string(f.column) + ")")
                << f.script;
        }
    }
}

TEST(ScriptCompile, NestingAndSizeLimits) {
    const auto failure = [](const std::string& script) {
        try {
            compileScript(script, {}, kWrites);
        } catch (const ScriptError& e) {
            return e.message();
        }
        return std::string("compiled");
    };
    std::string deep = "per point {";
    for (int i = 0; i < 201; ++i) deep += " if (t > 0) {";
    EXPECT_EQ(failure(deep + std::string(201, '}') + " }"), "the script is nested too deeply");
    EXPECT_NE(failure("per point { $a = " + std::string(300, '(') + "1" + std::string(300, ')') + "; }"), "compiled");
    std::string longScript = "per point {";
    for (int i = 0; i < 12000; ++i) longScript += " $a = t * 2 + 1;";
    EXPECT_EQ(failure(longScript + " }"), "the script is too long");
}

/// Answers the script functions with fixed points.
class Functions final : public ScriptFunctions {
public:
    void call(std::uint8_t code, const float* args, int, float* out) const override {
        out[0] = static_cast<float>(code);
        out[1] = args[0];
        out[2] = 0.0f;
    }
};

/// Runs the per point block of a script once with t set, and gives the locals.
struct PointRun {
    ScriptProgram program;
    std::vector<float> locals;
    bool finished = true;
};

PointRun runPoint(const std::string& script, float t = 0.5f) {
    PointRun r;
    r.program = compileScript(script, kParams, kWrites);
    r.locals.assign(r.program.slotCount, 0.0f);
    ExpressionEnvironment env;
    env[kSlotT] = t;
    const Functions functions;
    r.finished = runScriptBlock(r.program.point, r.locals.data(), env, r.program.curves, r.program.mapProbes, functions);
    return r;
}

float channelMass(const PointRun& r) { return r.locals[r.program.output("channel.mass")->slot]; }

TEST(ScriptRun, BranchesLoopsAndLocals) {
    struct Case {
        const char* body;
        float mass;
    };
    const Case cases[] = {
        {"channel.mass = 2 * t + 1;", 2.0f},
        {"$a = 1; if (t > 0.25) { $a = 5; } else { $a = 7; } channel.mass = $a;", 5.0f},
        {"$a = 1; if (t > 0.75) { $a = 5; } else if (t > 0.4) { $a = 6; } else { $a = 7; } channel.mass = $a;", 6.0f},
        {"$s = 0; for $i in 0 .. 10 { $s += $i; } channel.mass = $s;", 45.0f},
        {"$s = 0; for $i in 3 .. 3 { $s = 99; } channel.mass = $s;", 0.0f},
        {"$s = 0; for $i in -2 .. 2 { for $j in 0 .. 3 { $s += 1; } } channel.mass = $s;", 12.0f},
        {"$q = [1, 2, 3]; $q.y = 10; $q *= 2; channel.mass = $q.y + $q.z;", 26.0f},
        {"$a = 1 / 0; $b = 5 % 0; channel.mass = $a + $b + sqrt(-1);", 0.0f},
        {"$p = strandPoint(0.25); channel.mass = $p.x * 10 + $p.y;", 0.25f},
        {"$p = closestOnScalp([1, 2, 3]); channel.mass = $p.x * 10 + $p.y;", 31.0f},
        {"channel.mass = channel.mass + 3;", 3.0f},
    };
    for (const Case& c : cases) {
        const PointRun r = runPoint(std::string("per point { ") + c.body + " }");
        EXPECT_TRUE(r.finished) << c.body;
        EXPECT_FLOAT_EQ(channelMass(r), c.mass) << c.body;
    }
}

TEST(ScriptRun, TheStepBudgetStopsARunaway) {
    const PointRun r = runPoint(
        "per point { $s = 0; for $i in 0 .. 100000 { for $j in 0 .. 100000 { $s += 1; } } channel.mass = 1; }");
    EXPECT_FALSE(r.finished);
    EXPECT_EQ(channelMass(r), 0.0f);  // stopped before the assignment after the loops
    EXPECT_LE(r.locals[0], 100000.0f * 100000.0f);
}

TEST(ScriptCompile, ProgramRecordsWhatItNeeds) {
    const ScriptProgram p = compileScript(
        "per strand { $len = length; channel.mass = $len * amount; }\n"
        "per point { P += N * $profile(t) * tint.x; $q = prev.P + guidePoint(t); $r = melanin; }",
        kParams, kWrites);
    EXPECT_TRUE(p.strand.present);
    EXPECT_TRUE(p.point.present);
    EXPECT_TRUE(p.callsGuidePoint);
    EXPECT_NE(p.prevSlot, kNoScriptSlot);
    EXPECT_TRUE(p.uses.shape);
    EXPECT_TRUE(p.uses.perPoint);
    EXPECT_EQ(p.readChannels, std::vector<std::string>{"melanin"});
    ASSERT_NE(p.output("channel.mass"), nullptr);
    EXPECT_EQ(p.output("channel.mass")->kind, ScriptBlockKind::Strand);
    EXPECT_TRUE(p.output("P")->written);
    EXPECT_FALSE(p.output("width")->written);
}

}  // namespace
}  // namespace tressora
