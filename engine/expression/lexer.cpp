#include "expression/lexer.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace tressora::exprc {
namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool continuesName(char c) { return isLetter(c) || isDigit(c) || c == '_'; }
bool isComponent(char c) {
    return c == 'x' || c == 'y' || c == 'z' || c == 'r' || c == 'g' || c == 'b';
}

}  // namespace

Scanner::Scanner(std::string_view text) : text_(text), terminated_(text) {}

char Scanner::peek(std::size_t ahead) const {
    const std::size_t at = pos_ + ahead;
    return at < text_.size() ? text_[at] : '\0';
}

void Scanner::skipSpace() {
    while (pos_ < text_.size()) {
        const char c = text_[pos_];
        if (isSpace(c)) {
            ++pos_;
        } else if (c == '#' || (c == '/' && peek(1) == '/')) {
            while (pos_ < text_.size() && text_[pos_] != '\n') ++pos_;
        } else {
            break;
        }
    }
}

std::size_t Scanner::here() {
    skipSpace();
    return pos_;
}

bool Scanner::atEnd() {
    skipSpace();
    return pos_ >= text_.size();
}

bool Scanner::lookingAt(std::string_view op) {
    skipSpace();
    if (text_.substr(pos_, op.size()) != op) return false;
    const char next = peek(op.size());
    if (op == "-") return next != '>';
    if (op == "=" || op == "<" || op == ">" || op == "!") return next != '=';
    return true;
}

bool Scanner::take(std::string_view op) {
    if (!lookingAt(op)) return false;
    pos_ += op.size();
    lastEnd_ = pos_;
    return true;
}

bool Scanner::lookingAtName() {
    skipSpace();
    const char c = peek();
    return isLetter(c) || c == '_' || c == '$';
}

bool Scanner::lookingAtNumber() {
    skipSpace();
    const char c = peek();
    return isDigit(c) || c == '.';
}

bool Scanner::lookingAtQuote() {
    skipSpace();
    return peek() == '"' || peek() == '\'';
}

NameToken Scanner::readName() {
    skipSpace();
    NameToken token;
    token.offset = pos_;
    if (peek() == '$') {
        ++pos_;
        if (!(isLetter(peek()) || peek() == '_')) fail(token.offset, "expected a name after '$'");
    }
    const std::size_t start = pos_;
    while (pos_ < text_.size() && continuesName(text_[pos_])) ++pos_;
    token.name.assign(text_.substr(start, pos_ - start));
    if (peek() == '.' && isComponent(peek(1)) && !continuesName(peek(2))) {
        token.component = peek(1);
        pos_ += 2;
    }
    lastEnd_ = pos_;
    return token;
}

double Scanner::readNumber() {
    skipSpace();
    const char* begin = terminated_.c_str() + pos_;
    char* end = nullptr;
    const double value = std::strtod(begin, &end);
    if (end == begin) fail(pos_, "bad number");
    pos_ += static_cast<std::size_t>(end - begin);
    lastEnd_ = pos_;
    return value;
}

std::string Scanner::readQuoted() {
    skipSpace();
    const std::size_t start = pos_;
    const char quote = peek();
    const std::size_t close = text_.find(quote, pos_ + 1);
    if (close == std::string_view::npos) fail(start, "text in quotes has no closing quote");
    pos_ = close + 1;
    lastEnd_ = pos_;
    return std::string(text_.substr(start + 1, close - start - 1));
}

char Scanner::takeComponent() {
    skipSpace();
    const char c = peek(1);
    if (peek() != '.' || !isComponent(c) || continuesName(peek(2))) return 0;
    pos_ += 2;
    lastEnd_ = pos_;
    return c;
}

bool Scanner::lineBreakBetween(std::size_t from, std::size_t to) const {
    return text_.substr(from, to - from).find('\n') != std::string_view::npos;
}

void Scanner::fail(std::size_t offset, const std::string& message) const { throw ParseFault(offset, message); }

SourcePosition sourcePosition(std::string_view text, std::size_t offset) {
    SourcePosition p;
    offset = std::min(offset, text.size());
    for (std::size_t i = 0; i < offset; ++i) {
        if (text[i] == '\n') {
            ++p.line;
            p.column = 1;
        } else {
            ++p.column;
        }
    }
    return p;
}

}  // namespace tressora::exprc
