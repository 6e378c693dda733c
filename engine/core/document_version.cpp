#include "core/document_version.h"

#include <string>

#include <nlohmann/json.hpp>

#include "core/errors.h"
#include "core/json_depth.h"

namespace tressora {

void checkDocumentVersion(const nlohmann::json& document, std::string_view word, int current) {
    const std::string w(word);
    if (!document.is_object()) throw SchemaError(w + " must be a JSON object");
    const auto it = document.find("version");
    if (it == document.end()) return;
    const std::string v = it->dump();
    if (!it->is_number_integer()) throw SchemaError(w + " version " + v + " is not a whole number");
    const bool negative = it->is_number_integer() && !it->is_number_unsigned() && it->get<std::int64_t>() < 0;
    if (!negative && it->get<std::uint64_t>() > static_cast<std::uint64_t>(current))
        throw SchemaError(w + " version " + v + " is newer than this Tressora supports (" + std::to_string(current) +
                          "); update Tressora to open it");
    const std::int64_t version = negative ? it->get<std::int64_t>() : static_cast<std::int64_t>(it->get<std::uint64_t>());
    if (version < 1) throw SchemaError(w + " version " + v + " is not valid");
    if (version < current)
        throw SchemaError(w + " version " + v + " is older than this Tressora reads (" + std::to_string(current) + ")");
}

nlohmann::json parseDocument(std::string_view text, std::string_view word) {
    if (!jsonDepthWithin(text)) throw SchemaError(jsonTooDeepText(word));
    try {
        return nlohmann::json::parse(text.begin(), text.end(), nullptr, true, false);
    } catch (const nlohmann::json::parse_error& e) {
        std::string message = e.what();
        // The library's text starts with its own tag, "[json.exception.parse_error.101] ".
        if (const auto close = message.find("] "); message.rfind("[json.exception.", 0) == 0 && close != std::string::npos)
            message = message.substr(close + 2);
        throw SchemaError(std::string(word) + ": invalid JSON: " + message);
    }
}

}  // namespace tressora
