// Statements of plain expressions: locals and if. A program has no storage for locals:
// an assignment records the value's code, and every read copies it in. An if compiles
// both branches and turns each local they set into a select on the condition.

#include "expression/parser.h"

namespace tressora::exprc {

bool Parser::takeWord(std::string_view word) {
    const std::size_t at = scan_.here();
    if (!scan_.lookingAtName()) return false;
    const NameToken token = scan_.readName();
    if (token.name == word && token.component == 0 && text_[at] != '$') return true;
    scan_.reset(at);
    return false;
}

bool Parser::statementAhead() {
    const std::size_t at = scan_.here();
    if (!scan_.lookingAtName()) return false;
    const NameToken token = scan_.readName();
    const bool keyword = text_[at] != '$' && token.component == 0 && (token.name == "if" || token.name == "else");
    const bool assignment = scan_.lookingAt("=");
    scan_.reset(at);
    return keyword || assignment;
}

void Parser::statement() {
    const NameToken token = scan_.readName();
    const bool bare = text_[token.offset] != '$' && token.component == 0;
    if (bare && token.name == "else") fail(token.offset, "an else without its if");
    if (bare && token.name == "if") {
        ifStatement(token.offset);
        return;
    }
    if (token.component != 0) fail(token.offset, "assign a whole vector ($v = [x, y, z];), not one component");
    scan_.take("=");
    Code value = chain();
    if (!scan_.take(";")) fail(scan_.here(), "expected ';' after the value of $" + token.name);
    assign(token.name, Local{std::make_shared<const Code>(std::move(value)), {}});
}

void Parser::assign(const std::string& name, Local local) {
    locals_[name] = std::move(local);
    if (!assigned_.empty()) assigned_.back().insert(name);
}

std::set<std::string> Parser::block() {
    if (!scan_.take("{")) fail(scan_.here(), "expected '{': an if's statements are in braces, if (c) { $a = 1; }");
    assigned_.emplace_back();
    while (!scan_.take("}")) {
        if (scan_.atEnd()) fail(scan_.here(), "expected '}'");
        if (!statementAhead()) fail(scan_.here(), "expected an assignment ($name = ...;) or an if inside { }");
        statement();
    }
    std::set<std::string> names = std::move(assigned_.back());
    assigned_.pop_back();
    return names;
}

void Parser::ifStatement(std::size_t ifOffset) {
    DepthGuard guard(*this, ifOffset);
    if (!scan_.take("(")) fail(scan_.here(), "expected '(' after if");
    const std::size_t conditionAt = scan_.here();
    Code condition = chain();
    if (condition.vector) fail(conditionAt, "an if's condition is a number, not a vector");
    if (!scan_.take(")")) fail(scan_.here(), "expected ')' after the if's condition");

    const Locals before = locals_;
    const std::set<std::string> thenSet = block();
    Locals thenLocals = std::move(locals_);
    locals_ = before;
    std::set<std::string> elseSet;
    if (takeWord("else")) {
        const std::size_t at = scan_.here();
        if (takeWord("if")) {
            assigned_.emplace_back();
            ifStatement(at);
            elseSet = std::move(assigned_.back());
            assigned_.pop_back();
        } else {
            elseSet = block();
        }
    }
    const Locals elseLocals = std::move(locals_);
    locals_ = before;

    std::set<std::string> names = thenSet;
    names.insert(elseSet.begin(), elseSet.end());
    const auto valueIn = [&](const std::set<std::string>& set, const Locals& branch,
                             const std::string& name) -> const Local* {
        const Locals& table = set.count(name) ? branch : before;
        const auto it = table.find(name);
        return it == table.end() ? nullptr : &it->second;
    };
    for (const std::string& name : names) {
        const Local* then = valueIn(thenSet, thenLocals, name);
        const Local* otherwise = valueIn(elseSet, elseLocals, name);
        Local merged;
        if (!then || !otherwise) {
            merged.deferred = "$" + name +
                              " is set in only one branch of an if above: set it before the if too, or in both "
                              "branches";
        } else if (!then->deferred.empty()) {
            merged.deferred = then->deferred;
        } else if (!otherwise->deferred.empty()) {
            merged.deferred = otherwise->deferred;
        } else {
            const std::size_t size = condition.size() + then->code->size() + otherwise->code->size() + 3;
            if (size > kMaxExpressionInstructions) {
                merged.deferred = "the expression is too long once $" + name + "'s if is put in where it is read";
            } else {
                charge(size, NameToken{name, 0, ifOffset});
                merged.code = std::make_shared<const Code>(select(condition, *then->code, *otherwise->code));
            }
        }
        assign(name, std::move(merged));
    }
}

}  // namespace tressora::exprc
