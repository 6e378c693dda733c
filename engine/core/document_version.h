#pragma once
// The version check shared by the system's JSON documents (graph, guide data, groom file).

#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace tressora {

/// Checks document's `version` against the version this build reads, naming the document
/// by `word` ("guide data"). A missing version counts as 1. Throws SchemaError:
/// "<W> must be a JSON object", "<W> version <V> is not a whole number",
/// "<W> version <V> is newer than this Tressora supports (<current>); update Tressora to open it",
/// "<W> version <V> is not valid", "<W> version <V> is older than this Tressora reads (<current>)".
void checkDocumentVersion(const nlohmann::json& document, std::string_view word, int current);

/// Parses JSON text (no comments); throws SchemaError "<W>: invalid JSON: <parser's text>", or
/// "<W>: JSON nested deeper than 256 levels" for text the rest of the program could not handle.
nlohmann::json parseDocument(std::string_view text, std::string_view word);

}  // namespace tressora
