#pragma once
// The version check shared by the system's JSON documents (graph, guide data, groom file).

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace tressora {

/// The document version this build reads and writes, for all three documents.
inline constexpr int kDocumentVersion = 1;

/// Checks that `document` is an object whose optional `version` this build can read.
/// `word` names the document in messages ("graph", "guide data", "groom file").
/// Throws SchemaError with a sentence that says what to do.
void checkDocumentVersion(const nlohmann::json& document, std::string_view word);

/// Parses text as JSON (no exceptions from the parser, no comments). Text that is not JSON
/// throws SchemaError "<word>: invalid JSON: <parser's text>".
nlohmann::json parseDocument(std::string_view text, std::string_view word);

}  // namespace tressora
