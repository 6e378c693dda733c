#include "graph/document_version.h"

#include "core/errors.h"

namespace tressora {

void checkDocumentVersion(const nlohmann::json& document, std::string_view word) {
    const std::string w(word);
    if (!document.is_object()) throw SchemaError(w + " must be a JSON object");
    const auto it = document.find("version");
    if (it == document.end()) return;
    const std::string v = it->dump();
    if (!it->is_number_integer()) throw SchemaError(w + " version " + v + " is not a whole number");
    const bool huge = it->is_number_unsigned() && it->get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX);
    const std::int64_t version = huge ? INT64_MAX : it->get<std::int64_t>();
    const std::string current = std::to_string(kDocumentVersion);
    if (version > kDocumentVersion)
        throw SchemaError(w + " version " + v + " is newer than this Tressora supports (" + current +
                          "); update Tressora to open it");
    if (version < 1) throw SchemaError(w + " version " + v + " is not valid");
    if (version < kDocumentVersion)
        throw SchemaError(w + " version " + v + " is older than this Tressora reads (" + current + ")");
}

nlohmann::json parseDocument(std::string_view text, std::string_view word) {
    // The parser's own message is wanted in the error, so parse with exceptions here but
    // turn them into the document's SchemaError.
    try {
        return nlohmann::json::parse(text.begin(), text.end(), nullptr, true, false);
    } catch (const nlohmann::json::parse_error& e) {
        throw SchemaError(std::string(word) + ": invalid JSON: " + e.what());
    }
}

}  // namespace tressora
