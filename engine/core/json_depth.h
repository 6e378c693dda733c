#pragma once
// A bound on how deeply a JSON text may nest arrays and objects. The JSON library parses
// deep text without trouble, but copies, compares and prints values recursively, so a
// hostile document nested a hundred thousand levels deep would overflow the stack long
// after it was read. Every reader checks the text first and refuses such documents.

#include <string>
#include <string_view>

namespace tressora {

/// The deepest nesting of arrays and objects any document of the system may have. Graphs
/// with compounds inside compounds stay far below it.
inline constexpr int kMaxJsonDepth = 256;

/// True when the arrays and objects of `text` nest no deeper than `limit` (brackets inside
/// strings do not count). Reads the text once and stops at the first level past the limit.
bool jsonDepthWithin(std::string_view text, int limit = kMaxJsonDepth);

/// The sentence for a refused document: "<word>: JSON nested deeper than 256 levels".
std::string jsonTooDeepText(std::string_view word);

}  // namespace tressora
