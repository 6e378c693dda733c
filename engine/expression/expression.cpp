#include "expression/expression.h"

#include <algorithm>

#include "core/errors.h"
#include "expression/lexer.h"
#include "expression/parser.h"

namespace tressora {
namespace {

std::string quotedSource(std::string_view text) { return "expression '" + std::string(text) + "'"; }

std::string faultText(std::string_view text, std::size_t offset, const std::string& fault) {
    const exprc::SourcePosition at = exprc::sourcePosition(text, offset);
    std::string where;
    if (text.find('\n') == std::string_view::npos) {
        where = " at position " + std::to_string(at.column);
    } else {
        where = " (line " + std::to_string(at.line) + ", column " + std::to_string(at.column) + ")";
    }
    return quotedSource(text) + where + ": " + fault;
}

}  // namespace

std::shared_ptr<const Expression> Expression::compile(std::string_view text,
                                                      std::span<const ExpressionVariable> variables,
                                                      ExpressionWant want) {
    exprc::CompiledParts parts;
    try {
        exprc::Parser parser(text, variables);
        parts = parser.run();
    } catch (const exprc::ParseFault& fault) {
        throw ExpressionError(faultText(text, fault.offset, fault.what()));
    }
    const bool vector = parts.code.vector;
    if (want == ExpressionWant::Number && vector) {
        throw ExpressionError(quotedSource(text) +
                              " gives a vector; this takes a number (use .x, length(...) or dot(...))");
    }
    if (want == ExpressionWant::Vector && !vector) {
        throw ExpressionError(quotedSource(text) +
                              " gives a number; this takes a vector, e.g. [0, -1, 0] or normalize(N)");
    }

    std::shared_ptr<Expression> e(new Expression());
    e->source_ = std::string(text);
    e->program_ = std::move(parts.code.ops);
    e->readChannels_ = std::move(parts.readChannels);
    e->mapNames_ = std::move(parts.mapNames);
    e->mapProbes_ = std::move(parts.mapProbes);
    e->curves_ = std::move(parts.curves);
    e->isVector_ = vector;

    int height = 0;
    for (const ExpressionInstr& in : e->program_) {
        height += exprc::stackEffect(in);
        e->maxStack_ = std::max(e->maxStack_, height);
        exprc::noteUses(e->uses_, in);
        if (in.op == ExpressionOp::PushVar && (in.code == kSlotFrame || in.code == kSlotTime)) e->readsTime_ = true;
    }
    if (e->maxStack_ > kExpressionStackSize) throw ExpressionError(quotedSource(text) + " is nested too deeply");
    return e;
}

bool Expression::isConstant() const {
    const std::size_t n = isVector_ ? 3 : 1;
    return program_.size() == n &&
           std::all_of(program_.begin(), program_.end(),
                       [](const ExpressionInstr& in) { return in.op == ExpressionOp::PushConst; });
}

}  // namespace tressora
