// A node's compile-time variables read from JSON.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "expression_test_util.h"

namespace tressora {
namespace {

std::string errorOf(const char* json) {
    try {
        expressionVariablesFromJson(nlohmann::json::parse(json));
    } catch (const ExpressionError& e) {
        return e.what();
    }
    return "read";
}

TEST(ExpressionVariables, NumbersAndVectorsAreReadFromAnObject) {
    const auto vars =
        expressionVariablesFromJson(nlohmann::json::parse(R"({"scale": 2, "dir": [0, 1.5, 0], "$k": 3})"));
    ASSERT_EQ(vars.size(), 3u);
    EXPECT_EQ(vars[0].name, "k");
    EXPECT_EQ(vars[1].name, "dir");
    EXPECT_TRUE(vars[1].isVector);
    EXPECT_EQ(vars[1].value, (Vec3f{0, 1.5f, 0}));
    EXPECT_FALSE(vars[2].isVector);
    EXPECT_EQ(vars[2].value.x, 2);
    EXPECT_FLOAT_EQ(testing::eval("scale * dir.y + k", {}, vars), 6);
    EXPECT_TRUE(expressionVariablesFromJson(nlohmann::json()).empty());
}

TEST(ExpressionVariables, FaultsNameTheVariable) {
    EXPECT_EQ(errorOf("[1, 2]"), "variables are a JSON object of numbers and vectors");
    EXPECT_EQ(errorOf("3"), "variables are a JSON object of numbers and vectors");
    EXPECT_EQ(errorOf(R"({"bad-name": 1})"), "'bad-name' is not a variable name (letters, digits and _)");
    EXPECT_EQ(errorOf(R"({"2x": 1})"), "'2x' is not a variable name (letters, digits and _)");
    EXPECT_EQ(errorOf(R"({"v": [1, 2]})"), "v is neither a number nor a vector of three");
    EXPECT_EQ(errorOf(R"({"v": "x"})"), "v is neither a number nor a vector of three");
    EXPECT_EQ(errorOf(R"({"v": true})"), "v is neither a number nor a vector of three");
    EXPECT_EQ(errorOf(R"({"v": [1, "2", 3]})"), "v is neither a number nor a vector of three");
}

}  // namespace
}  // namespace tressora
