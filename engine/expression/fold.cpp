// Emitting operations, with constant folding: an operation whose operands are all
// constants is run by the interpreter at compile time and replaced by its result.

#include <vector>

#include "expression/interpreter.h"
#include "expression/parser.h"

namespace tressora::exprc {
namespace {

/// Whether an instruction's result depends on its operands alone.
bool isPure(const ExpressionInstr& in) {
    if (in.op != ExpressionOp::Call && in.op != ExpressionOp::CallVector) return true;
    return in.code != kFnRand && in.code != kFnRandRange && in.code != kFnMap && in.code != kFnCmap;
}

}  // namespace

Code Parser::fold(const Code& code) {
    if (!isPure(code.ops.back())) return code;
    std::vector<float> stack(code.size() + 4);
    const ExpressionEnvironment blank;
    const float* top = execute(code.ops.data(), code.ops.data() + code.size(), blank,
                               {parts_.curves, parts_.mapProbes}, stack.data());
    return code.vector ? vectorConstant(top[-3], top[-2], top[-1]) : numberConstant(top[-1]);
}

Code Parser::negate(Code a) {
    const bool constant = a.isConstant();
    a.ops.push_back(instruction(a.vector ? ExpressionOp::NegateVector : ExpressionOp::Negate));
    if (constant) return fold(a);
    return a;
}

Code Parser::binary(Code a, Code b, BinaryCode op) {
    const bool constant = a.isConstant() && b.isConstant();
    const bool vector = a.vector || b.vector;
    const auto count = static_cast<std::uint16_t>((a.vector ? 1 : 0) | (b.vector ? 2 : 0));
    Code r = std::move(a);
    r.vector = vector;
    append(r, b);
    r.ops.push_back(instruction(vector ? ExpressionOp::BinaryVector : ExpressionOp::Binary,
                                static_cast<std::uint8_t>(op), vector ? count : 0));
    if (constant) return fold(r);
    return r;
}

Code Parser::select(Code condition, Code then, Code otherwise) {
    const bool vector = then.vector || otherwise.vector;
    if (vector && !then.vector) then = splat(std::move(then));
    if (vector && !otherwise.vector) otherwise = splat(std::move(otherwise));
    if (condition.isConstant()) return condition.constant() != 0.0f ? std::move(then) : std::move(otherwise);
    Code r = std::move(condition);
    r.vector = vector;
    append(r, then);
    append(r, otherwise);
    r.ops.push_back(instruction(vector ? ExpressionOp::SelectVector : ExpressionOp::Select));
    return r;
}

Code Parser::component(Code v, int k) {
    if (v.isConstant()) return numberConstant(v.constant(k));
    v.ops.push_back(instruction(ExpressionOp::Component, static_cast<std::uint8_t>(k)));
    v.vector = false;
    return v;
}

Code Parser::splat(Code a) {
    if (a.isConstant()) return vectorConstant(a.constant(), a.constant(), a.constant());
    a.ops.push_back(instruction(ExpressionOp::Splat));
    a.vector = true;
    return a;
}

Code Parser::notZero(Code a) {
    if (a.isBoolean()) return a;
    return binary(std::move(a), numberConstant(0.0f), BinaryCode::NotEqual);
}

}  // namespace tressora::exprc
