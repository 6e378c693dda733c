#pragma once
// The expression compiler: a recursive-descent parser that emits stack-machine code as
// it goes, folding constant parts, copying locals in where they are read and expanding
// if statements into selects. One parser compiles one text.

#include <cstddef>
#include <map>
#include <optional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "expression/code.h"
#include "expression/expression.h"
#include "expression/functions.h"
#include "expression/lexer.h"

namespace tressora::exprc {

/// Everything a compiled text consists of, ready to become an Expression.
struct CompiledParts {
    Code code;
    std::vector<std::string> readChannels;
    std::vector<std::string> mapNames;
    std::vector<MapProbe> mapProbes;
    std::vector<ExpressionCurve> curves;
};

/// Nesting deeper than this many levels is a compile error.
inline constexpr int kMaxNesting = 200;

class Parser;

/// What a script adds to reading names: asked before the expression rules, it gives the code
/// of a name it knows (a local, a param, an output) or nothing to leave the name to them.
class ScriptNames {
public:
    /// A name read as a value.
    virtual std::optional<Code> read(Parser& parser, const NameToken& token) = 0;
    /// A call; the scanner stands at the '('. `piped` is the value before a "->", or null.
    virtual std::optional<Code> call(Parser& parser, const NameToken& token, Code* piped) = 0;

protected:
    ~ScriptNames() = default;
};

class Parser {
public:
    Parser(std::string_view text, std::span<const ExpressionVariable> variables, ScriptNames* script = nullptr);

    /// Compiles the whole text. Throws ParseFault.
    CompiledParts run();

    // For the script compiler, which parses statements itself and values through these.
    /// One value (the chain level, one nesting level deeper).
    Code value() { return nested(); }
    Scanner& scanner() { return scan_; }
    CompiledParts& parts() { return parts_; }
    bool takeWord(std::string_view word);
    Code binaryOf(Code a, Code b, BinaryCode op) { return binary(std::move(a), std::move(b), op); }
    Code splatOf(Code a) { return splat(std::move(a)); }
    Code componentOf(Code v, int k) { return component(std::move(v), k); }

private:
    /// A local: the code that computes its value, shared by copies of the locals table, or a
    /// fault kept for the moment it is read.
    struct Local {
        std::shared_ptr<const Code> code;
        std::string deferred;
    };
    using Locals = std::map<std::string, Local, std::less<>>;

    struct Argument {
        Code code;
        std::size_t offset = 0;
    };

    class DepthGuard {
    public:
        DepthGuard(Parser& parser, std::size_t offset);
        ~DepthGuard() { --parser_.depth_; }
        DepthGuard(const DepthGuard&) = delete;
        DepthGuard& operator=(const DepthGuard&) = delete;

    private:
        Parser& parser_;
    };

    // Statements (statements.cpp).
    bool statementAhead();
    void statement();
    void ifStatement(std::size_t ifOffset);
    std::set<std::string> block();
    void assign(const std::string& name, Local local);

    // Expression levels, lowest precedence first (parser.cpp).
    Code nested();
    Code chain();
    Code conditional();
    Code logicalOr();
    Code logicalAnd();
    Code equality();
    Code relational();
    Code additive();
    Code multiplicative();
    Code unary();
    Code power();
    Code postfix();
    Code primary();
    Code vectorLiteral();
    Code name(const NameToken& token);
    Code readLocal(const NameToken& token, const Local& local);

    // Function calls (calls.cpp).
    Code call(const NameToken& token, Argument* piped);
    Code mapCall(const NameToken& token, const ExpressionFunction& row, bool piped);
    Code curveCall(const NameToken& token, const ExpressionFunction& row, std::vector<Argument>& args);
    Code noiseCall(const NameToken& token, std::vector<Argument>& args);
    Code emitCall(const ExpressionFunction& row, std::vector<Argument>& args, std::uint8_t code);
    void checkCount(const NameToken& token, const ExpressionFunction& row, std::size_t count);

    // Emitting with folding (fold.cpp).
    Code negate(Code a);
    Code binary(Code a, Code b, BinaryCode op);
    Code select(Code condition, Code then, Code otherwise);
    Code component(Code v, int k);
    Code splat(Code a);
    Code notZero(Code a);
    /// Runs code made of constant operands and one operation at compile time.
    Code fold(const Code& code);
    /// Counts instructions copied out of locals; past the budget the compile stops.
    void charge(std::size_t count, const NameToken& token);

    [[noreturn]] void fail(std::size_t offset, const std::string& message) const { scan_.fail(offset, message); }
    std::string tooLong(const std::string& name) const;

    std::string_view text_;
    Scanner scan_;
    ScriptNames* script_ = nullptr;
    std::map<std::string, ExpressionVariable, std::less<>> variables_;
    Locals locals_;
    std::vector<std::set<std::string>> assigned_;  // names set in each open block
    int depth_ = 0;
    std::size_t copied_ = 0;
    // The largest local put in where it is read, for the message when the program is too long.
    std::size_t largestRead_ = 0;
    std::string largestName_;
    std::size_t largestOffset_ = 0;
    CompiledParts parts_;
};

}  // namespace tressora::exprc
