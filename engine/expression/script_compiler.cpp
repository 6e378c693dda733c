// The script compiler: statements, blocks and loops parsed here, values by the expression
// parser, which asks back (ScriptNames) for the names only scripts have. Code goes straight
// into the block being compiled; branches and loops jump to positions in it.

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <set>

#include "expression/code.h"
#include "expression/lexer.h"
#include "expression/parser.h"
#include "expression/script.h"
#include "expression/script_names.h"

namespace tressora {
namespace exprc {
namespace {

constexpr std::uint32_t kRampFlag = 0x80000000u;

std::string kindWord(ScriptBlockKind kind) { return kind == ScriptBlockKind::Strand ? "strand" : "point"; }

bool isOutputName(std::string_view name) { return name == "P" || name == "width" || name == "color"; }

int componentOf(char c) {
    switch (c) {
    case 'x': case 'r': return 0;
    case 'y': case 'g': return 1;
    default: return 2;
    }
}

class ScriptCompiler final : public ScriptNames {
public:
    ScriptCompiler(std::string_view text, std::span<const ScriptParamDecl> params, std::span<const std::string> writes)
        : text_(text), parser_(text, {}, this), scan_(parser_.scanner()) {
        for (const std::string& w : writes) {
            ScriptOutput out;
            out.name = w;
            out.width = (w == "P" || w == "color") ? 3 : 1;
            program_.outputs.push_back(std::move(out));
        }
        for (const ScriptParamDecl& p : params) {
            ScriptParamSlot slot;
            slot.name = p.name;
            slot.type = p.type;
            slot.min = p.min;
            slot.max = p.max;
            program_.params.push_back(std::move(slot));
        }
    }

    ScriptProgram run();

    std::optional<Code> read(Parser& parser, const NameToken& token) override;
    std::optional<Code> call(Parser& parser, const NameToken& token, Code* piped) override;

private:
    struct Local {
        std::uint32_t slot = 0;
        bool vector = false;
        bool counter = false;
    };
    struct Bound {
        bool param = false;
        float value = 0.0f;  // the bound, or the param's slot
    };

    [[noreturn]] void fail(std::size_t offset, const std::string& message) const { scan_.fail(offset, message); }

    void prescan();
    void block(ScriptBlockKind kind, std::size_t at);
    void innerBlock(const std::string& what);
    void statement();
    void ifStatement();
    void forStatement(std::size_t at);
    Bound bound();
    void assignment(std::size_t at);

    std::uint32_t allocate(int width, std::size_t at);
    ScriptOutput* findOutput(std::string_view name);
    std::uint32_t outputSlot(ScriptOutput& out, std::size_t at);
    ScriptParamSlot* findParam(std::string_view name);
    Code load(std::uint32_t slot, bool vector) const;
    Code withComponent(Code code, const NameToken& token);
    Code scriptCall(const NameToken& token, ScriptFunction function, Code* piped);
    Code rampCall(const NameToken& token, const ScriptParamSlot& param, Code* piped);

    std::size_t position() const { return out_->size(); }
    std::size_t emit(ExpressionOp op, std::uint8_t code = 0, std::uint16_t count = 0, std::uint32_t index = 0,
                     float value = 0.0f) {
        out_->push_back(instruction(op, code, count, index, value));
        return out_->size() - 1;
    }
    void emitCode(const Code& code) { out_->insert(out_->end(), code.ops.begin(), code.ops.end()); }
    void store(std::uint32_t slot, int width) { emit(ExpressionOp::StoreLocal, 0, static_cast<std::uint16_t>(width), slot); }

    std::string_view text_;
    Parser parser_;
    Scanner& scan_;
    ScriptProgram program_;
    std::map<std::string, Local, std::less<>> locals_;
    std::set<std::string, std::less<>> assignedSomewhere_;
    ScriptBlockKind kind_ = ScriptBlockKind::Point;
    std::vector<ExpressionInstr>* out_ = nullptr;
    int depth_ = 0;
};

// Names assigned anywhere in the text ($name = ..., $name += ...): reading one of them before
// its first assignment is a fault, not a channel read.
void ScriptCompiler::prescan() {
    Scanner s(text_);
    for (;;) {
        const std::size_t at = s.here();
        if (s.atEnd()) return;
        try {
            if (s.lookingAtName()) {
                const NameToken token = s.readName();
                if (text_[at] == '$' &&
                    (s.lookingAt("=") || s.lookingAt("+=") || s.lookingAt("-=") || s.lookingAt("*=") || s.lookingAt("/=")))
                    assignedSomewhere_.insert(token.name);
                continue;
            }
            if (s.lookingAtQuote()) {
                s.readQuoted();
                continue;
            }
        } catch (const ParseFault&) {
            // The compile proper reports it where it stands.
        }
        s.reset(at + 1);
    }
}

ScriptProgram ScriptCompiler::run() {
    prescan();
    bool sawStrand = false, sawPoint = false;
    for (;;) {
        const std::size_t at = scan_.here();
        if (scan_.atEnd()) break;
        if (!parser_.takeWord("per")) fail(at, "a script is made of blocks: per strand { ... } and per point { ... }");
        const std::size_t kindAt = scan_.here();
        ScriptBlockKind kind;
        if (parser_.takeWord("strand")) {
            kind = ScriptBlockKind::Strand;
            if (sawStrand) fail(at, "a script has one per strand block");
            if (sawPoint) fail(at, "the per strand block comes before the per point block");
            sawStrand = true;
        } else if (parser_.takeWord("point")) {
            kind = ScriptBlockKind::Point;
            if (sawPoint) fail(at, "a script has one per point block");
            sawPoint = true;
        } else {
            fail(kindAt, "expected 'strand' or 'point' after 'per'");
        }
        block(kind, at);
    }
    if (!sawStrand && !sawPoint)
        fail(scan_.here(), "the script is empty: write a per point { ... } block (or per strand { ... })");

    CompiledParts& parts = parser_.parts();
    const auto rampBase = static_cast<std::uint32_t>(parts.curves.size());
    for (ScriptBlock* b : {&program_.strand, &program_.point}) {
        int height = 0;
        for (ExpressionInstr& in : b->code) {
            if (in.op == ExpressionOp::Call && (in.index & kRampFlag)) in.index = rampBase + (in.index & ~kRampFlag);
            height += stackEffect(in);
            b->maxStack = std::max(b->maxStack, height);
            noteUses(program_.uses, in);
            if (in.op == ExpressionOp::PushVar && (in.code == kSlotFrame || in.code == kSlotTime))
                program_.readsTime = true;
        }
        if (b->maxStack > kExpressionStackSize) fail(0, "nested too deeply");
    }
    program_.readChannels = std::move(parts.readChannels);
    program_.mapNames = std::move(parts.mapNames);
    program_.mapProbes = std::move(parts.mapProbes);
    program_.curves = std::move(parts.curves);
    return std::move(program_);
}

void ScriptCompiler::block(ScriptBlockKind kind, std::size_t at) {
    kind_ = kind;
    ScriptBlock& b = kind == ScriptBlockKind::Strand ? program_.strand : program_.point;
    b.present = true;
    out_ = &b.code;
    if (!scan_.take("{")) fail(scan_.here(), "expected '{' after per " + kindWord(kind) + " block");
    while (!scan_.take("}")) {
        if (scan_.atEnd()) fail(scan_.here(), "expected '}' to close the per " + kindWord(kind) + " block");
        statement();
    }
    (void)at;
}

void ScriptCompiler::innerBlock(const std::string& what) {
    const std::size_t at = scan_.here();
    if (!scan_.take("{")) fail(at, "expected '{': " + what + "'s statements are in braces");
    if (++depth_ > kMaxNesting) fail(at, "the script is nested too deeply");
    while (!scan_.take("}")) {
        if (scan_.atEnd()) fail(scan_.here(), "expected '}': a block is not closed");
        statement();
    }
    --depth_;
}

void ScriptCompiler::statement() {
    const std::size_t at = scan_.here();
    if (parser_.takeWord("per")) fail(at, "blocks don't nest: close this one before per");
    if (parser_.takeWord("if")) {
        ifStatement();
    } else if (parser_.takeWord("for")) {
        forStatement(at);
    } else if (parser_.takeWord("else")) {
        fail(at, "an else without its if");
    } else if (scan_.lookingAtName()) {
        assignment(at);
    } else {
        fail(at, "expected a statement: an assignment ($name = ...;), an if or a for");
    }
    if (out_->size() > kMaxScriptInstructions) fail(at, "the script is too long");
}

void ScriptCompiler::ifStatement() {
    if (!scan_.take("(")) fail(scan_.here(), "expected '(' after if");
    const std::size_t conditionAt = scan_.here();
    const Code condition = parser_.value();
    if (condition.vector) fail(conditionAt, "an if's condition is a number, not a vector");
    if (!scan_.take(")")) fail(scan_.here(), "expected ')' after the if's condition");
    emitCode(condition);
    const std::size_t skip = emit(ExpressionOp::JumpIfZero);
    innerBlock("an if");
    if (!parser_.takeWord("else")) {
        (*out_)[skip].index = static_cast<std::uint32_t>(position());
        return;
    }
    const std::size_t over = emit(ExpressionOp::Jump);
    (*out_)[skip].index = static_cast<std::uint32_t>(position());
    if (parser_.takeWord("if")) {
        if (++depth_ > kMaxNesting) fail(scan_.here(), "the script is nested too deeply");
        ifStatement();
        --depth_;
    } else {
        innerBlock("an else");
    }
    (*out_)[over].index = static_cast<std::uint32_t>(position());
}

ScriptCompiler::Bound ScriptCompiler::bound() {
    const std::size_t at = scan_.here();
    const auto endOfWord = [&](std::size_t from) {
        std::size_t end = from;
        while (end < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[end])) || text_[end] == '_' ||
                                      text_[end] == '$' || (text_[end] == '.' && end + 1 < text_.size() &&
                                                            text_[end + 1] != '.')))
            ++end;
        return end;
    };
    const std::string notAllowed = "a loop's bound is a whole number written out or a whole-number param with a max, not ";
    const char first = scan_.peek();
    const bool negative = first == '-' && std::isdigit(static_cast<unsigned char>(scan_.peek(1)));
    if (std::isdigit(static_cast<unsigned char>(first)) || negative) {
        const std::size_t end = endOfWord(at + (negative ? 1 : 0));
        const std::string written(text_.substr(at, end - at));
        std::size_t digits = negative ? 1 : 0;
        while (digits < written.size() && std::isdigit(static_cast<unsigned char>(written[digits]))) ++digits;
        if (digits != written.size()) fail(at, notAllowed + written + " (a script always finishes)");
        scan_.reset(end);
        const double v = written.size() > 8 ? 1e9 : std::stod(written);
        if (std::fabs(v) > kMaxLoopBound) fail(at, "a loop's bound is 100000 at most");
        return {false, static_cast<float>(v)};
    }
    if (scan_.lookingAtName()) {
        const NameToken token = scan_.readName();
        const ScriptParamSlot* p = token.component == 0 ? findParam(token.name) : nullptr;
        if (!p || p->type != ScriptParamType::Int || !p->max) {
            fail(at, notAllowed + std::string(text_.substr(at, scan_.lastTokenEnd() - at)) +
                         " (a script always finishes)");
        }
        if (*p->max > kMaxLoopBound || (p->min && *p->min < -kMaxLoopBound)) fail(at, "a loop's bound is 100000 at most");
        return {true, static_cast<float>(p->slot)};
    }
    fail(at, "a loop's bounds are whole numbers written out, for $i in 0 .. 8 (or a whole-number param)");
}

void ScriptCompiler::forStatement(std::size_t at) {
    const std::size_t counterAt = scan_.here();
    if (!scan_.lookingAtName()) fail(counterAt, "expected the loop's counter after for: for $i in 0 .. 8 { ... }");
    const NameToken counter = scan_.readName();
    if (counter.component != 0 || counter.name == "in")
        fail(counterAt, "expected the loop's counter after for: for $i in 0 .. 8 { ... }");
    if (!parser_.takeWord("in"))
        fail(scan_.here(), "expected 'in' after for $" + counter.name + " (for $i in 0 .. 8 { ... })");
    const std::string& name = counter.name;
    if (locals_.count(name) || findParam(name) || findOutput(name) || isOutputName(name) || isScriptInputName(name) ||
        isScriptFunctionName(name))
        fail(counterAt, name + " is taken: name the loop's counter otherwise");
    const Bound low = bound();
    if (!scan_.take("..")) fail(scan_.here(), "expected '..' between the loop's bounds: for $i in 0 .. 8");
    const Bound high = bound();

    const std::uint32_t slot = allocate(1, counterAt);
    if (low.param) {
        emit(ExpressionOp::LoadLocal, 0, 1, static_cast<std::uint32_t>(low.value));
    } else {
        emit(ExpressionOp::PushConst, 0, 0, 0, low.value);
    }
    store(slot, 1);
    const std::size_t test = emit(ExpressionOp::LoopTest, high.param ? 1 : 0, static_cast<std::uint16_t>(slot), 0,
                                  high.value);
    locals_[name] = Local{slot, false, true};
    innerBlock("a for");
    locals_.erase(name);
    const std::size_t body = position() - test + 1;
    emit(ExpressionOp::LoopStep, 0, static_cast<std::uint16_t>(slot), static_cast<std::uint32_t>(test),
         static_cast<float>(body));
    (*out_)[test].index = static_cast<std::uint32_t>(position());
    (void)at;
}

void ScriptCompiler::assignment(std::size_t at) {
    const bool dollar = text_[at] == '$';
    NameToken token = scan_.readName();
    std::string name = token.name;
    const std::string written(text_.substr(at, scan_.lastTokenEnd() - at));
    char component = token.component;
    if (name == "channel") {
        std::string channel;
        if (component != 0) {
            channel = std::string(1, component);
            component = 0;
        } else {
            if (!scan_.take(".") || !scan_.lookingAtName()) fail(scan_.here(), "channel.name reads a channel: expected '.' and its name");
            const NameToken c = scan_.readName();
            channel = c.name;
            component = c.component;
        }
        name = "channel." + channel;
    }

    BinaryCode op = BinaryCode::Add;
    bool compound = true;
    if (scan_.take("+=")) op = BinaryCode::Add;
    else if (scan_.take("-=")) op = BinaryCode::Subtract;
    else if (scan_.take("*=")) op = BinaryCode::Multiply;
    else if (scan_.take("/=")) op = BinaryCode::Divide;
    else if (scan_.take("=")) compound = false;
    else if (dollar) fail(scan_.here(), "expected '=' after " + written);
    else fail(at, name + ": a statement assigns a value ($name = ...;)");

    // What is assigned: an output, or a local; anything else is read only.
    ScriptOutput* output = nullptr;
    std::uint32_t slot = 0;
    bool vector = false;
    bool fresh = false;
    if (isOutputName(name) || name.rfind("channel.", 0) == 0) {
        output = findOutput(name);
        if (!output || !output->listed) fail(at, name + " is not in the node's \"writes\": add \"" + name + "\" to the header to change it");
        if (name == "P" && kind_ == ScriptBlockKind::Strand) fail(at, "P is per point: change it in a per point block");
        if (output->written && output->kind != kind_)
            fail(at, name + " is written per " + kindWord(output->kind) +
                         " already: a channel is a strand's or a point's, written in one block");
        output->written = true;
        output->kind = kind_;
        slot = outputSlot(*output, at);
        vector = output->width == 3;
    } else if (findParam(name)) {
        fail(at, name + " is a param of the node (read only): copy it into a local to change it");
    } else if (const auto it = locals_.find(name); it != locals_.end()) {
        if (it->second.counter) fail(at, name + " is the for loop's counter: it can't be assigned");
        slot = it->second.slot;
        vector = it->second.vector;
    } else if (isScriptInputName(name) || isScriptFunctionName(name)) {
        fail(at, name + " is an input of the script (read only): assign P, width, color, channel.name or a local of another name");
    } else {
        fresh = true;
    }

    if (component != 0) {
        if (fresh) fail(at, name + " is set whole first ($" + name + " = [x, y, z];), then a component");
        if (!vector) fail(at, name + " is a number, not a vector (use .x, length(...) or dot(...))");
    }
    if (fresh && compound) fail(at, name + " is read before it is set");

    const std::size_t valueAt = scan_.here();
    Code value = parser_.value();
    if (!scan_.take(";")) fail(scan_.here(), "expected ';' after the value of " + written);

    const int k = component != 0 ? componentOf(component) : 0;
    bool targetVector = vector && component == 0;
    if (compound) {
        Code current = load(slot, vector);
        if (component != 0) current = parser_.componentOf(std::move(current), k);
        value = parser_.binaryOf(std::move(current), std::move(value), op);
    }
    if (fresh) {
        vector = value.vector;
        targetVector = vector;
        slot = allocate(vector ? 3 : 1, at);
        locals_[name] = Local{slot, vector, false};
    } else if (targetVector && !value.vector) {
        if (name == "P" || !output) {
            fail(valueAt, name == "P" ? "P is a point: give it a vector, [x, y, z]"
                                      : name + " holds a vector: give it a vector, [x, y, z]");
        }
        value = parser_.splatOf(std::move(value));  // a grey colour
    } else if (!targetVector && value.vector) {
        fail(valueAt, (component != 0 ? name + "." + component : name) +
                          " is a number, not a vector (use .x, length(...) or dot(...))");
    }
    emitCode(value);
    store(slot + static_cast<std::uint32_t>(k), targetVector ? 3 : 1);
}

std::uint32_t ScriptCompiler::allocate(int width, std::size_t at) {
    if (program_.slotCount + static_cast<std::uint32_t>(width) > kMaxScriptSlots) fail(at, "too many locals");
    const std::uint32_t slot = program_.slotCount;
    program_.slotCount += static_cast<std::uint32_t>(width);
    return slot;
}

ScriptOutput* ScriptCompiler::findOutput(std::string_view name) {
    for (ScriptOutput& o : program_.outputs)
        if (o.name == name) return &o;
    return nullptr;
}

std::uint32_t ScriptCompiler::outputSlot(ScriptOutput& out, std::size_t at) {
    if (out.slot == kNoScriptSlot) out.slot = allocate(out.width, at);
    return out.slot;
}

ScriptParamSlot* ScriptCompiler::findParam(std::string_view name) {
    for (ScriptParamSlot& p : program_.params) {
        if (p.name != name) continue;
        if (p.slot == kNoScriptSlot && p.type != ScriptParamType::Ramp)
            p.slot = allocate(p.type == ScriptParamType::Color ? 3 : 1, scan_.here());
        if (p.type == ScriptParamType::Ramp && p.ramp < 0) {
            int n = 0;
            for (const ScriptParamSlot& q : program_.params) n += q.ramp >= 0 ? 1 : 0;
            p.ramp = n;
        }
        return &p;
    }
    return nullptr;
}

Code ScriptCompiler::load(std::uint32_t slot, bool vector) const {
    Code c;
    c.vector = vector;
    c.ops.push_back(instruction(ExpressionOp::LoadLocal, 0, vector ? 3 : 1, slot));
    return c;
}

Code ScriptCompiler::withComponent(Code code, const NameToken& token) {
    if (token.component == 0) return code;
    if (!code.vector) fail(token.offset, std::string("a number has no .") + token.component);
    return parser_.componentOf(std::move(code), componentOf(token.component));
}

std::optional<Code> ScriptCompiler::read(Parser&, const NameToken& token) {
    const std::string& name = token.name;
    if (name == "prev") {
        if (token.component != 0 || !scan_.take(".") || !scan_.lookingAtName())
            fail(token.offset, "prev has .P alone (the point before, as this run left it)");
        const NameToken p = scan_.readName();
        if (p.name != "P") fail(token.offset, "prev has .P alone (the point before, as this run left it)");
        if (kind_ != ScriptBlockKind::Point) fail(token.offset, "prev.P is per point: read it in a per point block");
        if (program_.prevSlot == kNoScriptSlot) program_.prevSlot = allocate(3, token.offset);
        return withComponent(load(program_.prevSlot, true), p);
    }
    if (name == "channel") {
        std::string channel;
        char component = 0;
        if (token.component != 0) {
            channel = std::string(1, token.component);
        } else {
            if (!scan_.take(".") || !scan_.lookingAtName())
                fail(scan_.here(), "channel.name reads a channel: expected '.' and its name");
            const NameToken c = scan_.readName();
            channel = c.name;
            component = c.component;
        }
        if (component != 0) fail(token.offset, std::string("a number has no .") + component);
        if (ScriptOutput* out = findOutput("channel." + channel)) return load(outputSlot(*out, token.offset), false);
        std::vector<std::string>& channels = parser_.parts().readChannels;
        std::size_t index = 0;
        while (index < channels.size() && channels[index] != channel) ++index;
        if (index == channels.size()) channels.push_back(channel);
        Code c;
        c.ops.push_back(instruction(ExpressionOp::PushChannel, 0, 0, static_cast<std::uint32_t>(index)));
        return c;
    }
    if (isOutputName(name)) {
        if (ScriptOutput* out = findOutput(name)) return withComponent(load(outputSlot(*out, token.offset), out->width == 3), token);
        if (name == "P") {
            // Not written: the point as it came in (the root in the per strand block).
            const std::uint8_t first = kind_ == ScriptBlockKind::Point ? kSlotPx : kSlotX;
            return withComponent(vectorSlotRead(first), token);
        }
        // width and color read what comes in; the runner fills their slots like an output's.
        ScriptOutput extra;
        extra.name = name;
        extra.width = name == "color" ? 3 : 1;
        extra.listed = false;
        program_.outputs.push_back(std::move(extra));
        ScriptOutput& out = program_.outputs.back();
        return withComponent(load(outputSlot(out, token.offset), out.width == 3), token);
    }
    if (const auto it = locals_.find(name); it != locals_.end()) return withComponent(load(it->second.slot, it->second.vector), token);
    if (assignedSomewhere_.count(name)) fail(token.offset, name + " is read before it is set");
    if (const ScriptParamSlot* p = findParam(name)) {
        if (p->type == ScriptParamType::Ramp) fail(token.offset, name + " is a ramp: read it as $" + name + "(x), x from 0 to 1");
        return withComponent(load(p->slot, p->type == ScriptParamType::Color), token);
    }
    return std::nullopt;
}

std::optional<Code> ScriptCompiler::call(Parser&, const NameToken& token, Code* piped) {
    if (token.component != 0) return std::nullopt;
    const std::string_view names[] = {"strandPoint", "guidePoint", "scalpNormal", "closestOnScalp"};
    for (std::uint8_t f = 0; f < 4; ++f)
        if (token.name == names[f]) return scriptCall(token, static_cast<ScriptFunction>(f), piped);
    if (const ScriptParamSlot* p = findParam(token.name); p && p->type == ScriptParamType::Ramp)
        return rampCall(token, *p, piped);
    return std::nullopt;
}

Code ScriptCompiler::scriptCall(const NameToken& token, ScriptFunction function, Code* piped) {
    const std::string& name = token.name;
    scan_.take("(");
    Code arg;
    std::size_t argAt = scan_.here();
    if (piped) {
        if (!scan_.lookingAt(")")) fail(scan_.here(), name + " takes one argument");
        arg = std::move(*piped);
        argAt = token.offset;
    } else {
        if (scan_.lookingAt(")")) fail(scan_.here(), name + " takes one argument");
        arg = parser_.value();
        if (scan_.lookingAt(",")) fail(scan_.here(), name + " takes one argument");
    }
    if (!scan_.take(")")) fail(scan_.here(), name + " takes one argument: expected ')'");
    const bool wantsVector = function == kScriptScalpNormal || function == kScriptClosestOnScalp;
    if (!wantsVector && arg.vector) fail(argAt, name + "'s argument is a number, not a vector");
    if (wantsVector && !arg.vector) fail(argAt, name + "'s argument is a point, a vector [x, y, z], not a number");
    if (function == kScriptGuidePoint) program_.callsGuidePoint = true;
    if (wantsVector) program_.callsScalp = true;
    Code c = std::move(arg);
    c.ops.push_back(instruction(ExpressionOp::ScriptCall, function, c.vector ? 3 : 1));
    c.vector = true;
    return c;
}

Code ScriptCompiler::rampCall(const NameToken& token, const ScriptParamSlot& param, Code* piped) {
    const std::string message = token.name + " is a ramp: read it as $" + token.name + "(x), x from 0 to 1";
    scan_.take("(");
    Code arg;
    if (piped) {
        arg = std::move(*piped);
    } else {
        if (scan_.lookingAt(")")) fail(token.offset, message);
        arg = parser_.value();
    }
    if (!scan_.take(")") || arg.vector) fail(token.offset, message);
    arg.ops.push_back(instruction(ExpressionOp::Call, kFnCurve, 1, kRampFlag | static_cast<std::uint32_t>(param.ramp)));
    return arg;
}

}  // namespace
}  // namespace exprc

ScriptError::ScriptError(const std::string& message, int line, int column)
    : std::runtime_error(message + " (line " + std::to_string(line) + ", column " + std::to_string(column) + ")"),
      message_(message),
      line_(line),
      column_(column) {}

std::optional<ScriptParamType> scriptParamType(std::string_view word) {
    constexpr std::pair<std::string_view, ScriptParamType> kTypes[] = {
        {"number", ScriptParamType::Number}, {"length", ScriptParamType::Length}, {"int", ScriptParamType::Int},
        {"bool", ScriptParamType::Bool},     {"enum", ScriptParamType::Enum},     {"color", ScriptParamType::Color},
        {"ramp", ScriptParamType::Ramp},
    };
    for (const auto& t : kTypes)
        if (t.first == word) return t.second;
    return std::nullopt;
}

const ScriptOutput* ScriptProgram::output(std::string_view name) const {
    for (const ScriptOutput& o : outputs)
        if (o.name == name) return &o;
    return nullptr;
}

ScriptProgram compileScript(std::string_view text, std::span<const ScriptParamDecl> params,
                            std::span<const std::string> writes) {
    try {
        exprc::ScriptCompiler compiler(text, params, writes);
        return compiler.run();
    } catch (const exprc::ParseFault& fault) {
        const exprc::SourcePosition at = exprc::sourcePosition(text, std::min(fault.offset, text.size()));
        throw ScriptError(fault.what(), at.line, at.column);
    }
}

}  // namespace tressora
