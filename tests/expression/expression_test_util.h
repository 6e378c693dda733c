#pragma once
// Helpers shared by the expression tests: compile and run in one call, catch the
// compile error's text.

#include <string>
#include <string_view>
#include <vector>

#include "core/errors.h"
#include "expression/expression.h"

namespace tressora::testing {

inline std::shared_ptr<const Expression> compileEither(std::string_view text,
                                                       const std::vector<ExpressionVariable>& variables = {}) {
    return Expression::compile(text, variables, ExpressionWant::Either);
}

/// The value of a number expression in env.
inline float eval(std::string_view text, const ExpressionEnvironment& env = {},
                  const std::vector<ExpressionVariable>& variables = {}) {
    return Expression::compile(text, variables, ExpressionWant::Number)->evaluate(env);
}

/// The value of a vector expression in env.
inline Vec3f evalVector(std::string_view text, const ExpressionEnvironment& env = {},
                        const std::vector<ExpressionVariable>& variables = {}) {
    return Expression::compile(text, variables, ExpressionWant::Vector)->evaluateVector(env);
}

/// The text of the compile error, or "compiled" when there is none.
inline std::string compileError(std::string_view text, ExpressionWant want = ExpressionWant::Either,
                                const std::vector<ExpressionVariable>& variables = {}) {
    try {
        Expression::compile(text, variables, want);
    } catch (const ExpressionError& e) {
        return e.what();
    }
    return "compiled";
}

inline ExpressionVariable numberVariable(std::string name, float v) { return {std::move(name), false, {v, 0, 0}}; }
inline ExpressionVariable vectorVariable(std::string name, Vec3f v) { return {std::move(name), true, v}; }

}  // namespace tressora::testing
