#include "io/usd_identifiers.h"

#include <unordered_set>

namespace tressora {
namespace {

bool identifierChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

}  // namespace

std::string sanitizeIdentifier(std::string_view name) {
    std::string out;
    out.reserve(name.size() + 1);
    for (char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte & 0xC0u) == 0x80u) continue;  // a UTF-8 continuation byte: its character is already '_'
        out += identifierChar(c) ? c : '_';
    }
    if (out.empty() || (out[0] >= '0' && out[0] <= '9')) out.insert(out.begin(), '_');
    return out;
}

std::vector<std::string> uniqueIdentifiers(std::span<const std::string> names,
                                           std::span<const std::string_view> reserved) {
    std::unordered_set<std::string> taken;
    for (std::string_view r : reserved) taken.emplace(r);
    std::vector<std::string> out;
    out.reserve(names.size());
    for (const std::string& name : names) {
        const std::string base = sanitizeIdentifier(name);
        std::string candidate = base;
        for (unsigned counter = 2; taken.count(candidate) != 0; ++counter) {
            candidate = base + "_" + std::to_string(counter);
        }
        taken.insert(candidate);
        out.push_back(std::move(candidate));
    }
    return out;
}

std::string cleanQuotedText(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c == '"') c = '\'';
        else if (c == '\\' || c == '\n' || c == '\r') c = ' ';
    }
    return out;
}

}  // namespace tressora
