// The expression grammar, lowest precedence first, and how names are read.

#include "expression/parser.h"

#include <cmath>
#include <limits>

#include "expression/names.h"

namespace tressora::exprc {
namespace {

int componentIndex(char c) {
    switch (c) {
    case 'x': case 'r': return 0;
    case 'y': case 'g': return 1;
    default: return 2;
    }
}

std::string quoted(char c) { return std::string("'") + c + "'"; }

/// A number as written, as a float: beyond the float range it is an infinity.
float toFloat(double v) {
    constexpr double kLargest = std::numeric_limits<float>::max();
    if (v > kLargest) return std::numeric_limits<float>::infinity();
    if (v < -kLargest) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(v);
}

}  // namespace

Parser::DepthGuard::DepthGuard(Parser& parser, std::size_t offset) : parser_(parser) {
    if (++parser_.depth_ > kMaxNesting) parser_.fail(offset, "nested too deeply");
}

Parser::Parser(std::string_view text, std::span<const ExpressionVariable> variables, ScriptNames* script)
    : text_(text), scan_(text), script_(script) {
    for (const ExpressionVariable& v : variables) {
        std::string key = v.name;
        if (!key.empty() && key[0] == '$') key.erase(0, 1);
        variables_[key] = v;
    }
}

CompiledParts Parser::run() {
    while (statementAhead()) statement();
    parts_.code = chain();
    const std::size_t valueEnd = scan_.lastTokenEnd();
    const bool semicolon = scan_.take(";");
    if (!scan_.atEnd()) {
        const std::size_t at = scan_.here();
        if (!semicolon && scan_.lineBreakBetween(valueEnd, at)) {
            fail(at, "expected ';' at the end of the line above (only the last line is the value)");
        }
        fail(at, "unexpected " + quoted(scan_.peek()));
    }
    if (parts_.code.size() > kMaxExpressionInstructions) {
        if (!largestName_.empty()) fail(largestOffset_, tooLong(largestName_));
        fail(0, "the expression is too long (1048576 operations at most)");
    }
    return std::move(parts_);
}

std::string Parser::tooLong(const std::string& name) const {
    return "the expression is too long once $" + name +
           " is put in where it is read (1048576 operations at most): read it in fewer places";
}

Code Parser::nested() {
    DepthGuard guard(*this, scan_.here());
    return chain();
}

Code Parser::chain() {
    Code value = conditional();
    while (scan_.take("->")) {
        const std::size_t at = scan_.here();
        if (!scan_.lookingAtName()) fail(at, "expected a function's name after '->'");
        const NameToken token = scan_.readName();
        if (token.component != 0 || !scan_.lookingAt("(")) {
            fail(scan_.here(), "expected '(' after " + token.name +
                                   " (-> applies a function: x->clamp(0, 1) is clamp(x, 0, 1))");
        }
        Argument piped{std::move(value), at};
        value = call(token, &piped);
    }
    return value;
}

Code Parser::conditional() {
    const std::size_t at = scan_.here();
    Code condition = logicalOr();
    if (!scan_.take("?")) return condition;
    if (condition.vector) fail(at, "a condition is a number, not a vector");
    Code then = nested();
    if (!scan_.take(":")) fail(scan_.here(), "expected ':'");
    DepthGuard guard(*this, scan_.here());
    Code otherwise = conditional();
    return select(std::move(condition), std::move(then), std::move(otherwise));
}

Code Parser::logicalOr() {
    Code a = logicalAnd();
    for (;;) {
        const std::size_t at = scan_.here();
        if (!scan_.take("||")) return a;
        Code b = logicalAnd();
        if (a.vector || b.vector) fail(at, "|| takes numbers, not vectors");
        a = notZero(binary(notZero(std::move(a)), notZero(std::move(b)), BinaryCode::Add));
    }
}

Code Parser::logicalAnd() {
    Code a = equality();
    for (;;) {
        const std::size_t at = scan_.here();
        if (!scan_.take("&&")) return a;
        Code b = equality();
        if (a.vector || b.vector) fail(at, "&& takes numbers, not vectors");
        // A product of two 0-or-1 values is 0 or 1 already.
        a = binary(notZero(std::move(a)), notZero(std::move(b)), BinaryCode::Multiply);
    }
}

namespace {
constexpr const char* kVectorComparison =
    "comparisons are of numbers, not vectors (compare .x, length(...) or dot(...))";
}

Code Parser::equality() {
    Code a = relational();
    for (;;) {
        const std::size_t at = scan_.here();
        BinaryCode op;
        if (scan_.take("==")) op = BinaryCode::Equal;
        else if (scan_.take("!=")) op = BinaryCode::NotEqual;
        else return a;
        Code b = relational();
        if (a.vector || b.vector) fail(at, kVectorComparison);
        a = binary(std::move(a), std::move(b), op);
    }
}

Code Parser::relational() {
    Code a = additive();
    for (;;) {
        const std::size_t at = scan_.here();
        BinaryCode op;
        if (scan_.take("<=")) op = BinaryCode::LessEqual;
        else if (scan_.take(">=")) op = BinaryCode::GreaterEqual;
        else if (scan_.take("<")) op = BinaryCode::Less;
        else if (scan_.take(">")) op = BinaryCode::Greater;
        else return a;
        Code b = additive();
        if (a.vector || b.vector) fail(at, kVectorComparison);
        a = binary(std::move(a), std::move(b), op);
    }
}

Code Parser::additive() {
    Code a = multiplicative();
    for (;;) {
        BinaryCode op;
        if (scan_.take("+")) op = BinaryCode::Add;
        else if (scan_.take("-")) op = BinaryCode::Subtract;  // never the start of "->"
        else return a;
        a = binary(std::move(a), multiplicative(), op);
    }
}

Code Parser::multiplicative() {
    Code a = unary();
    for (;;) {
        BinaryCode op;
        if (scan_.take("*")) op = BinaryCode::Multiply;
        else if (scan_.take("/")) op = BinaryCode::Divide;
        else if (scan_.take("%")) op = BinaryCode::Remainder;
        else return a;
        a = binary(std::move(a), unary(), op);
    }
}

Code Parser::unary() {
    const std::size_t at = scan_.here();
    if (scan_.take("+")) {
        DepthGuard guard(*this, at);
        return unary();
    }
    if (scan_.take("-")) {
        DepthGuard guard(*this, at);
        return negate(unary());
    }
    if (scan_.take("!")) {
        DepthGuard guard(*this, at);
        Code a = unary();
        if (a.vector) fail(at, "! takes a number, not a vector");
        return binary(std::move(a), numberConstant(0.0f), BinaryCode::Equal);
    }
    if (scan_.take("~")) {
        DepthGuard guard(*this, at);
        return binary(numberConstant(1.0f), unary(), BinaryCode::Subtract);
    }
    return power();
}

Code Parser::power() {
    Code base = postfix();
    const std::size_t at = scan_.here();
    if (!scan_.take("^")) return base;
    DepthGuard guard(*this, at);
    return binary(std::move(base), unary(), BinaryCode::Power);
}

Code Parser::postfix() {
    Code v = primary();
    for (;;) {
        const std::size_t at = scan_.here();
        if (const char c = scan_.takeComponent()) {
            if (!v.vector) fail(at, std::string("a number has no .") + c);
            v = component(std::move(v), componentIndex(c));
        } else if (scan_.take("[")) {
            if (!v.vector) fail(at, "a number has no components to index");
            const std::size_t indexAt = scan_.here();
            Code index = nested();
            if (index.vector) fail(indexAt, "a vector's index is a number");
            if (!scan_.take("]")) fail(scan_.here(), "expected ']' after the index");
            const float k = index.isConstant() ? index.constant() : -1.0f;
            if (!(k == 0.0f || k == 1.0f || k == 2.0f)) fail(indexAt, "a vector's index is 0, 1 or 2");
            v = component(std::move(v), static_cast<int>(k));
        } else {
            return v;
        }
    }
}

Code Parser::primary() {
    const std::size_t at = scan_.here();
    if (scan_.atEnd()) fail(at, "unexpected end");
    if (scan_.take("(")) {
        Code v = nested();
        if (!scan_.take(")")) fail(scan_.here(), "expected ')'");
        return v;
    }
    if (scan_.take("[")) return vectorLiteral();
    if (scan_.lookingAtNumber()) return numberConstant(toFloat(scan_.readNumber()));
    if (scan_.lookingAtQuote()) fail(at, "text in quotes names a map, in map(\"name\")");
    if (scan_.lookingAtName()) {
        const NameToken token = scan_.readName();
        if (token.component == 0 && scan_.lookingAt("(")) return call(token, nullptr);
        return name(token);
    }
    fail(at, "unexpected " + quoted(scan_.peek()));
}

Code Parser::vectorLiteral() {
    Code v;
    v.vector = true;
    for (int k = 0; k < 3; ++k) {
        const std::size_t at = scan_.here();
        Code c = nested();
        if (c.vector) fail(at, "a vector's components are numbers");
        append(v, c);
        if (k < 2 && !scan_.take(",")) fail(scan_.here(), "a vector is [x, y, z]: expected ','");
    }
    if (!scan_.take("]")) fail(scan_.here(), "a vector is [x, y, z]: expected ']'");
    return v;
}

Code Parser::name(const NameToken& token) {
    if (script_) {
        if (std::optional<Code> code = script_->read(*this, token)) return std::move(*code);
    }
    if (const auto local = locals_.find(token.name); local != locals_.end()) {
        return readLocal(token, local->second);
    }
    const std::string numberHasNo = std::string("a number has no .") + token.component;
    if (const auto variable = variables_.find(token.name); variable != variables_.end()) {
        const ExpressionVariable& v = variable->second;
        if (token.component != 0) {
            if (!v.isVector) fail(token.offset, numberHasNo);
            return numberConstant(v.value[componentIndex(token.component)]);
        }
        return v.isVector ? vectorConstant(v.value.x, v.value.y, v.value.z) : numberConstant(v.value.x);
    }
    std::string_view resolved = token.name;
    for (;;) {
        if (const auto first = vectorSlotOfName(resolved)) {
            if (token.component == 0) return vectorSlotRead(*first);
            return slotRead(static_cast<std::uint8_t>(*first + componentIndex(token.component)));
        }
        const std::string_view target = aliasTarget(resolved);
        if (target.empty()) break;
        resolved = target;
    }
    if (const std::string_view message = xgenNameMessage(resolved); !message.empty()) {
        fail(token.offset, std::string(message));
    }
    if (const auto slot = slotOfName(resolved)) {
        if (token.component != 0) fail(token.offset, numberHasNo);
        return slotRead(*slot);
    }
    if (resolved == "pi") {
        if (token.component != 0) fail(token.offset, numberHasNo);
        return numberConstant(kPi);
    }
    if (token.component != 0) fail(token.offset, "unknown vector $" + token.name);
    std::vector<std::string>& channels = parts_.readChannels;
    std::size_t index = 0;
    while (index < channels.size() && channels[index] != token.name) ++index;
    if (index == channels.size()) channels.push_back(token.name);
    Code c;
    c.ops.push_back(instruction(ExpressionOp::PushChannel, 0, 0, static_cast<std::uint32_t>(index)));
    return c;
}

Code Parser::readLocal(const NameToken& token, const Local& local) {
    if (!local.deferred.empty()) fail(token.offset, local.deferred);
    const Code& code = *local.code;
    if (token.component != 0 && !code.vector) fail(token.offset, std::string("a number has no .") + token.component);
    if (code.size() > kMaxExpressionInstructions) fail(token.offset, tooLong(token.name));
    charge(code.size(), token);
    if (code.size() > largestRead_) {
        largestRead_ = code.size();
        largestName_ = token.name;
        largestOffset_ = token.offset;
    }
    Code copy = code;
    if (token.component != 0) return component(std::move(copy), componentIndex(token.component));
    return copy;
}

void Parser::charge(std::size_t count, const NameToken& token) {
    // Locals are copied where they are read; this bounds the work and memory a text can ask for.
    constexpr std::size_t kCopyBudget = 16 * kMaxExpressionInstructions;
    copied_ += count;
    if (copied_ > kCopyBudget) fail(token.offset, tooLong(token.name));
}

}  // namespace tressora::exprc
