// Every compile fault of the language, with its message and where it points.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "expression_test_util.h"

namespace tressora {
namespace {

using testing::compileError;

struct Fault {
    std::string text;
    int position;
    std::string message;
};

void expectFaults(const std::vector<Fault>& faults) {
    for (const Fault& f : faults) {
        const std::string expected =
            "expression '" + f.text + "' at position " + std::to_string(f.position) + ": " + f.message;
        EXPECT_EQ(compileError(f.text), expected) << f.text;
    }
}

TEST(ExpressionErrors, LexicalAndPrimaryFaultsPointAtTheirCharacter) {
    expectFaults({
        {".x", 1, "bad number"},
        {"$ + 1", 1, "expected a name after '$'"},
        {"1 + \"hair\"", 5, "text in quotes names a map, in map(\"name\")"},
        {"\"hair\"", 1, "text in quotes names a map, in map(\"name\")"},
        {"map(\"m", 5, "text in quotes has no closing quote"},
        {"1 + )", 5, "unexpected ')'"},
        {"1 2", 3, "unexpected '2'"},
        {"1 +", 4, "unexpected end"},
        {"$a = 1;", 8, "unexpected end"},
        {"(1 + 2", 7, "expected ')'"},
        {"[P, 1, 2]", 2, "a vector's components are numbers"},
        {"[1 2 3]", 4, "a vector is [x, y, z]: expected ','"},
        {"[1, 2, 3", 9, "a vector is [x, y, z]: expected ']'"},
        {"foo.x", 1, "unknown vector $foo"},
    });
}

TEST(ExpressionErrors, OperatorFaultsNameTheRule) {
    expectFaults({
        {"x->1", 4, "expected a function's name after '->'"},
        {"x->sin", 7, "expected '(' after sin (-> applies a function: x->clamp(0, 1) is clamp(x, 0, 1))"},
        {"x->map(\"m\")", 4, "map takes a map's name in quotes; -> can't give it one"},
        {"P ? 1 : 2", 1, "a condition is a number, not a vector"},
        {"x ? 1 2", 7, "expected ':'"},
        {"P || 1", 3, "|| takes numbers, not vectors"},
        {"P && 1", 3, "&& takes numbers, not vectors"},
        {"P == P", 3, "comparisons are of numbers, not vectors (compare .x, length(...) or dot(...))"},
        {"1 < P", 3, "comparisons are of numbers, not vectors (compare .x, length(...) or dot(...))"},
        {"!P", 1, "! takes a number, not a vector"},
        {"x.x", 1, "a number has no .x"},
        {"(x).y", 4, "a number has no .y"},
        {"x[0]", 2, "a number has no components to index"},
        {"P[P]", 3, "a vector's index is a number"},
        {"P[0", 4, "expected ']' after the index"},
        {"P[3]", 3, "a vector's index is 0, 1 or 2"},
        {"[1,2,3][t]", 9, "a vector's index is 0, 1 or 2"},
        {"P[0.5]", 3, "a vector's index is 0, 1 or 2"},
    });
}

TEST(ExpressionErrors, StatementFaults) {
    expectFaults({
        {"$v.x = 1; $v", 1, "assign a whole vector ($v = [x, y, z];), not one component"},
        {"$a = 1 $a", 8, "expected ';' after the value of $a"},
        {"if (x) $a = 1; x", 8, "expected '{': an if's statements are in braces, if (c) { $a = 1; }"},
        {"if (x) { $a = 1; ", 18, "expected '}'"},
        {"if (x) { x + 1 } x", 10, "expected an assignment ($name = ...;) or an if inside { }"},
        {"if x", 4, "expected '(' after if"},
        {"if (P) { } x", 5, "an if's condition is a number, not a vector"},
        {"if (x { } x", 7, "expected ')' after the if's condition"},
        {"else { } x", 1, "an else without its if"},
        {"if (x) { $a = 1; } else { else { } } 1", 27, "an else without its if"},
    });
}

TEST(ExpressionErrors, CallFaults) {
    const std::string keysOfThree =
        " takes (t, position, value, interpolation, ...) as SeExpr: keys of three, the interpolation 0 (none), "
        "1 (linear), 2 (smooth), 3 (spline) or 4 (monotone spline)";
    const std::string keysFixed =
        "'s keys are numbers (or the node's own variables), fixed when the expression compiles";
    expectFaults({
        {"foo(1)", 1, "unknown function 'foo'"},
        {"sin(1, 2)", 1, "sin takes 1 argument(s), got 2"},
        {"fbm(P, 1, 2, 3, 4)", 1, "fbm takes 1 to 4 argument(s), got 5"},
        {"rand(1, 2, 3, 4)", 1, "rand takes 0 to 3 argument(s), got 4"},
        {"sin(1", 6, "expected ')' after the arguments of sin"},
        {"hash(P)", 6, "hash's arguments are numbers"},
        {"clamp(1, P, 2)", 10, "argument 2 of clamp is a number, not a vector"},
        {"snoise4(P, P)", 12, "snoise4 takes too many vectors"},
        {"dot(1, P)", 5, "argument 1 of dot is a vector, not a number (write [x, y, z])"},
        {"noise(P, 1)", 7, "noise takes a point, noise(p), or 2 to 4 numbers, noise(x, y, z, w)"},
        {"noise()", 1, "noise takes a point, noise(p), or 2 to 4 numbers, noise(x, y, z, w)"},
        {"wchoose(t, 1, 2, 3)", 1, "wchoose takes (t, value, weight, value, weight, ...)"},
        {"curve(t, 0, 1, 1, 1, 2)", 1, "curve" + keysOfThree},
        {"ccurve(t, 0, 1, 1, 1)", 1, "ccurve" + keysOfThree},
        {"curve(P, 0, 0, 1)", 7, "curve's first argument (where on the curve) is a number"},
        {"curve(t, x, 0, 1)", 10, "curve" + keysFixed},
        {"curve(t, 0, P, 1)", 13, "curve" + keysFixed},
        {"ccurve(t, 0, x, 1)", 14, "ccurve" + keysFixed + " (a value may be a color)"},
        {"curve(t, 0, 0, 5)", 16,
         "curve's interpolations are 0 (none), 1 (linear), 2 (smooth), 3 (spline) or 4 (monotone spline)"},
        {"curve(t, 0, 0, 1.5)", 16,
         "curve's interpolations are 0 (none), 1 (linear), 2 (smooth), 3 (spline) or 4 (monotone spline)"},
        {"linearcurve(t, 0, 1, 2)", 1, "linearcurve takes (t, position, value, position, value, ...): keys of two"},
        {"map(x)", 5, "map takes a map's name in quotes, map(\"name\")"},
        {"map(\"m\", \"q\")", 10, "a map's channel is \"r\", \"g\", \"b\", \"a\" or \"luminance\""},
        {"map(\"m\", 7)", 10, "a map's channel is 0 (r), 1 (g), 2 (b), 3 (a) or 4 (luminance)"},
        {"cmap(\"m\", \"r\")", 11, "cmap takes the map's name alone (it gives r, g, b)"},
    });
}

TEST(ExpressionErrors, XGenNamesWithoutEquivalentExplainThemselves) {
    expectFaults({
        {"$dPdu", 1,
         "XGen's surface derivatives ($dPdu, $dPdv) are not available: build a direction from $N, e.g. "
         "cross($N, [0, 1, 0])"},
        {"1 + $Cs", 5,
         "XGen's $Cs (the region color) has no Tressora equivalent: read a painted map with cmap(\"name\")"},
        {"$Nref.y", 1, "XGen's $Nref (the reference normal) has no Tressora equivalent: $N is the scalp's normal"},
    });
    // A local of that name wins: locals resolve first.
    EXPECT_EQ(compileError("$dPdu = 2; $dPdu"), "compiled");
}

TEST(ExpressionErrors, TextOfSeveralLinesGivesLineAndColumn) {
    EXPECT_EQ(compileError("$a = 1;\n$b = (2;\n$b"),
              "expression '$a = 1;\n$b = (2;\n$b' (line 2, column 8): expected ')'");
    EXPECT_EQ(compileError("$a = 1;\nx + 1\ny"),
              "expression '$a = 1;\nx + 1\ny' (line 3, column 1): expected ';' at the end of the line above (only "
              "the last line is the value)");
    EXPECT_EQ(compileError("x +\n  foo(1)"), "expression 'x +\n  foo(1)' (line 2, column 3): unknown function 'foo'");
    // A comment to the end of the line is skipped, and still counts for the column.
    EXPECT_EQ(compileError("1 # one\n+ ) // two"),
              "expression '1 # one\n+ ) // two' (line 2, column 3): unexpected ')'");
}

TEST(ExpressionErrors, DeferredLocalFaultsAreRaisedWhereTheLocalIsRead) {
    const std::string text = "$a = 1;\nif (x > 0) { $b = 2; }\n$b";
    EXPECT_EQ(compileError(text), "expression '" + text +
                                      "' (line 3, column 1): $b is set in only one branch of an if above: set it "
                                      "before the if too, or in both branches");
    // Never read, the fault never shows.
    EXPECT_EQ(compileError("if (x > 0) { $b = 2; } 1"), "compiled");
    EXPECT_EQ(compileError("$b = 0; if (x > 0) { $b = 2; } $b"), "compiled");
}

TEST(ExpressionErrors, ResultTypeMustMatchWhatTheCallerTakes) {
    EXPECT_EQ(compileError("P", ExpressionWant::Number),
              "expression 'P' gives a vector; this takes a number (use .x, length(...) or dot(...))");
    EXPECT_EQ(compileError("1", ExpressionWant::Vector),
              "expression '1' gives a number; this takes a vector, e.g. [0, -1, 0] or normalize(N)");
    EXPECT_EQ(compileError("P", ExpressionWant::Either), "compiled");
}

std::string parenthesised(int depth) { return std::string(depth, '(') + "1" + std::string(depth, ')'); }

TEST(ExpressionErrors, NestingDeeperThan200Fails) {
    EXPECT_EQ(compileError(parenthesised(200)), "compiled");
    EXPECT_EQ(compileError(parenthesised(201)),
              "expression '" + parenthesised(201) + "' at position 202: nested too deeply");
    std::string minuses(201, '-');
    EXPECT_NE(compileError(minuses + "x").find("nested too deeply"), std::string::npos);
    std::string powers = "x";
    for (int i = 0; i < 300; ++i) powers += "^x";
    EXPECT_NE(compileError(powers).find("nested too deeply"), std::string::npos);
}

TEST(ExpressionErrors, ProgramsNeedingMoreThan128StackSlotsFail) {
    const auto nestedSum = [](int depth) {
        std::string s = "x";
        for (int i = 0; i < depth; ++i) s = "x+(" + s + ")";
        return s;
    };
    EXPECT_EQ(Expression::compile(nestedSum(127))->maxStack(), 128);
    const std::string deep = nestedSum(128);
    EXPECT_EQ(compileError(deep), "expression '" + deep + "' is nested too deeply");
}

std::string doublings(int count) {
    std::string s = "$a = x;";
    for (int i = 0; i < count; ++i) s += "$a = $a + $a;";
    return s;
}

TEST(ExpressionErrors, LocalsThatGrowPastTheLimitFailWhereRead) {
    const std::string tooLong =
        "the expression is too long once $a is put in where it is read (1048576 operations at most): read it in "
        "fewer places";
    // 2^20 - 1 instructions fit; the next doubling's read does not.
    const std::string fits = doublings(19) + "$a";
    EXPECT_EQ(Expression::compile(fits)->program().size(), 1048575u);
    const std::string over = doublings(20) + "$a";
    EXPECT_EQ(compileError(over), "expression '" + over + "' at position " + std::to_string(over.size() - 1) +
                                      ": " + tooLong);
    // Two reads that fit alone still make a program past the limit.
    const std::string twice = doublings(19) + "$a + $a";
    EXPECT_NE(compileError(twice).find(tooLong), std::string::npos);
    const std::string ifOver = doublings(19) + "if (y) { $a = 1; } $a";
    EXPECT_NE(compileError(ifOver).find("the expression is too long once $a's if is put in where it is read"),
              std::string::npos);
}

TEST(ExpressionErrors, MoreCurvesThanAnIndexHoldsFail) {
    std::string text = "curve(t,0,0,1)";
    for (int i = 0; i < 65536; ++i) text += "+curve(t,0,0,1)";
    const std::string error = compileError(text);
    EXPECT_EQ(error.substr(error.size() - 15), "too many curves");
}

}  // namespace
}  // namespace tressora
