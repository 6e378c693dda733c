#pragma once
// Reading expression text by position. The parser asks for what it expects next
// (an operator, a name, a number, text in quotes), so the lexer keeps no token list;
// white space and comments (# or // to the end of the line) are skipped before each.

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tressora::exprc {

/// A compile fault at a byte offset of the text; the caller turns it into the
/// user's message with line and column.
class ParseFault : public std::runtime_error {
public:
    ParseFault(std::size_t offset_, const std::string& message) : std::runtime_error(message), offset(offset_) {}
    std::size_t offset;
};

/// A name as written: without its leading $, with an optional component letter
/// (one of x y z r g b) read from a following ".c".
struct NameToken {
    std::string name;
    char component = 0;
    std::size_t offset = 0;  ///< where the name (or its $) starts
};

class Scanner {
public:
    /// The text must outlive the scanner.
    explicit Scanner(std::string_view text);

    /// Skips white space (C locale) and comments, then gives the offset.
    std::size_t here();
    /// The byte at the current offset + ahead, without skipping; 0 past the end.
    char peek(std::size_t ahead = 0) const;
    bool atEnd();
    /// Moves back (or on) to an offset the parser saw before.
    void reset(std::size_t offset) { pos_ = offset; }

    /// After white space: does the text go on with op? A "-" that starts "->", a "=" that
    /// starts "==" and "<", ">", "!" followed by "=" don't count as the shorter operator.
    bool lookingAt(std::string_view op);
    /// As lookingAt, and moves past op when it is there.
    bool take(std::string_view op);

    bool lookingAtName();    ///< a letter, "_" or "$"
    bool lookingAtNumber();  ///< a digit or "."
    bool lookingAtQuote();   ///< ' or "

    /// Reads a name; "expected a name after '$'" for a lone $.
    NameToken readName();
    /// Reads what strtod reads here; "bad number" when it reads nothing.
    double readNumber();
    /// Reads text in quotes (either kind), without the quotes.
    std::string readQuoted();
    /// After white space: a "." and a component letter not followed by more of a name are
    /// taken, and the letter given; otherwise 0 and nothing is taken.
    char takeComponent();

    /// Where the last token taken ends (before any white space after it).
    std::size_t lastTokenEnd() const { return lastEnd_; }

    /// Is there a line feed in [from, to)?
    bool lineBreakBetween(std::size_t from, std::size_t to) const;

    [[noreturn]] void fail(std::size_t offset, const std::string& message) const;

private:
    void skipSpace();

    std::string_view text_;
    std::string terminated_;  // a NUL-terminated copy for strtod
    std::size_t pos_ = 0;
    std::size_t lastEnd_ = 0;
};

/// Line and column, both from 1, of a byte offset.
struct SourcePosition {
    int line = 1;
    int column = 1;
};
SourcePosition sourcePosition(std::string_view text, std::size_t offset);

}  // namespace tressora::exprc
