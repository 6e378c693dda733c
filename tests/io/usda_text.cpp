#include "usda_text.h"

#include <cctype>
#include <charconv>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>

namespace tressora::testing {
namespace {

class Parser {
public:
    explicit Parser(const std::string& text) : s_(text) {}

    UsdaLayer layer() {
        expectText("#usda 1.0");
        UsdaLayer layer;
        skip();
        if (peek() == '(') layer.metadata = metadataBlock();
        while (skip(), pos_ < s_.size()) layer.prims.push_back(prim());
        return layer;
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw std::runtime_error("usda: " + what + " at offset " + std::to_string(pos_));
    }

    void skip() {
        while (pos_ < s_.size()) {
            if (std::isspace(static_cast<unsigned char>(s_[pos_]))) {
                ++pos_;
            } else if (s_[pos_] == '#') {
                while (pos_ < s_.size() && s_[pos_] != '\n') ++pos_;
            } else {
                break;
            }
        }
    }
    char peek() {
        skip();
        return pos_ < s_.size() ? s_[pos_] : '\0';
    }
    void expect(char c) {
        if (peek() != c) fail(std::string("expected '") + c + "'");
        ++pos_;
    }
    void expectText(const std::string& t) {
        if (s_.compare(pos_, t.size(), t) != 0) fail("expected " + t);
        pos_ += t.size();
    }
    bool accept(char c) {
        if (peek() != c) return false;
        ++pos_;
        return true;
    }

    // A word: letters, digits and _ . : - + with "[]" allowed at its end ("float[]").
    std::string word() {
        skip();
        const std::size_t start = pos_;
        while (pos_ < s_.size()) {
            const char c = s_[pos_];
            if (std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.' || c == '-' || c == '+') {
                ++pos_;
            } else if (c == ':' && pos_ > start && std::isalpha(static_cast<unsigned char>(s_[start])) &&
                       pos_ + 1 < s_.size() && std::isalpha(static_cast<unsigned char>(s_[pos_ + 1]))) {
                ++pos_;
            } else if (c == '[' && pos_ > start && pos_ + 1 < s_.size() && s_[pos_ + 1] == ']') {
                pos_ += 2;
            } else {
                break;
            }
        }
        if (start == pos_) fail("expected a word");
        return s_.substr(start, pos_ - start);
    }

    std::string quoted() {
        expect('"');
        std::string out;
        while (pos_ < s_.size() && s_[pos_] != '"') {
            if (s_[pos_] == '\\') ++pos_;
            out += s_[pos_++];
        }
        expect('"');
        return out;
    }

    static bool numberStart(char c) { return std::isdigit(static_cast<unsigned char>(c)) || c == '-' || c == '.'; }

    UsdaValue number() {
        UsdaValue v;
        v.kind = UsdaValue::Kind::Number;
        v.text = word();
        const auto r = std::from_chars(v.text.data(), v.text.data() + v.text.size(), v.number);
        if (r.ec != std::errc() || r.ptr != v.text.data() + v.text.size()) fail("bad number '" + v.text + "'");
        return v;
    }

    UsdaValue value() {
        const char c = peek();
        UsdaValue v;
        if (c == '"') {
            v.kind = UsdaValue::Kind::String;
            v.text = quoted();
        } else if (c == '<') {
            ++pos_;
            const std::size_t end = s_.find('>', pos_);
            if (end == std::string::npos) fail("unterminated path");
            v.kind = UsdaValue::Kind::Path;
            v.text = s_.substr(pos_, end - pos_);
            pos_ = end + 1;
        } else if (c == '(' || c == '[') {
            v.kind = c == '(' ? UsdaValue::Kind::Tuple : UsdaValue::Kind::List;
            const char close = c == '(' ? ')' : ']';
            ++pos_;
            while (!accept(close)) {
                v.items.push_back(value());
                if (!accept(',')) {
                    expect(close);
                    break;
                }
            }
        } else if (c == '{') {
            ++pos_;
            if (numberStart(peek())) {
                v.kind = UsdaValue::Kind::TimeSamples;
                while (!accept('}')) {
                    const double time = number().number;
                    expect(':');
                    v.samples.emplace_back(time, value());
                    accept(',');
                }
            } else {
                v.kind = UsdaValue::Kind::Dictionary;
                while (!accept('}')) {
                    std::vector<std::string> words;
                    while (peek() != '=') words.push_back(word());
                    expect('=');
                    v.entries.emplace_back(words.back(), value());
                }
            }
        } else if (numberStart(c)) {
            v = number();
        } else {
            v.kind = UsdaValue::Kind::Word;
            v.text = word();
        }
        return v;
    }

    // "( key = value ... )": keys may be preceded by type words (dictionary entries).
    std::map<std::string, UsdaValue> metadataBlock() {
        expect('(');
        std::map<std::string, UsdaValue> out;
        while (!accept(')')) {
            std::vector<std::string> words;
            while (peek() != '=') words.push_back(word());
            expect('=');
            out[words.back()] = value();
        }
        return out;
    }

    UsdaPrim prim() {
        UsdaPrim p;
        p.specifier = word();
        p.type = word();
        p.name = quoted();
        if (peek() == '(') p.metadata = metadataBlock();
        expect('{');
        while (!accept('}')) {
            skip();
            if (s_.compare(pos_, 4, "def ") == 0) {
                p.children.push_back(prim());
                continue;
            }
            UsdaAttribute a;
            std::vector<std::string> words;
            while (peek() != '=' && peek() != '(') words.push_back(word());
            if (words.empty()) fail("expected an attribute");
            a.name = words.back();
            words.pop_back();
            a.qualifiers = words;
            const std::string suffix = ".timeSamples";
            if (a.name.size() > suffix.size() && a.name.compare(a.name.size() - suffix.size(), suffix.size(), suffix) == 0) {
                a.name.resize(a.name.size() - suffix.size());
                a.timeSamples = true;
            }
            if (accept('=')) {
                a.hasValue = true;
                a.value = value();
            }
            if (peek() == '(') a.metadata = metadataBlock();
            p.attributes.push_back(std::move(a));
        }
        return p;
    }

    const std::string& s_;
    std::size_t pos_ = 0;
};

void collectNumbers(const UsdaValue& v, std::vector<double>& out) {
    if (v.kind == UsdaValue::Kind::Number) out.push_back(v.number);
    for (const UsdaValue& item : v.items) collectNumbers(item, out);
}

}  // namespace

std::vector<double> UsdaValue::numbers() const {
    std::vector<double> out;
    collectNumbers(*this, out);
    return out;
}

std::vector<float> UsdaValue::floats() const {
    std::vector<float> out;
    const std::function<void(const UsdaValue&)> visit = [&](const UsdaValue& v) {
        if (v.kind == Kind::Number) {
            float f = 0.0f;
            std::from_chars(v.text.data(), v.text.data() + v.text.size(), f);
            out.push_back(f);
        }
        for (const UsdaValue& item : v.items) visit(item);
    };
    visit(*this);
    return out;
}

const UsdaValue& UsdaValue::at(const std::string& key) const {
    for (const auto& [k, v] : entries) {
        if (k == key) return v;
    }
    throw std::runtime_error("usda: no entry '" + key + "'");
}

bool UsdaPrim::hasChild(const std::string& name) const {
    for (const UsdaPrim& c : children) {
        if (c.name == name) return true;
    }
    return false;
}

const UsdaPrim& UsdaPrim::child(const std::string& name) const {
    for (const UsdaPrim& c : children) {
        if (c.name == name) return c;
    }
    throw std::runtime_error("usda: no prim '" + name + "' under '" + this->name + "'");
}

const UsdaAttribute& UsdaPrim::samples(const std::string& name) const {
    for (const UsdaAttribute& a : attributes) {
        if (a.name == name && a.timeSamples) return a;
    }
    throw std::runtime_error("usda: no samples of '" + name + "' on '" + this->name + "'");
}

const UsdaAttribute& UsdaPrim::attribute(const std::string& name) const {
    for (const UsdaAttribute& a : attributes) {
        if (a.name == name && a.hasValue) return a;
    }
    throw std::runtime_error("usda: no attribute '" + name + "' on '" + this->name + "'");
}

std::map<std::string, UsdaValue> UsdaPrim::attributeMetadata(const std::string& name) const {
    for (const UsdaAttribute& a : attributes) {
        if (a.name == name && !a.metadata.empty()) return a.metadata;
    }
    return {};
}

std::vector<std::string> UsdaPrim::sampledNames() const {
    std::vector<std::string> names;
    for (const UsdaAttribute& a : attributes) {
        if (a.timeSamples) names.push_back(a.name);
    }
    return names;
}

const UsdaPrim& UsdaLayer::prim(const std::string& path) const& {
    std::stringstream parts(path.substr(1));
    std::string name;
    std::getline(parts, name, '/');
    const UsdaPrim* current = nullptr;
    for (const UsdaPrim& p : prims) {
        if (p.name == name) current = &p;
    }
    if (!current) throw std::runtime_error("usda: no root prim '" + name + "'");
    while (std::getline(parts, name, '/')) current = &current->child(name);
    return *current;
}

UsdaLayer parseUsda(const std::string& text) { return Parser(text).layer(); }

std::string readTextFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

}  // namespace tressora::testing
