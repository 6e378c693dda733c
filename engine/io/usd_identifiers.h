#pragma once
// Names as USD accepts them: prim names, prototype names and primvar names are identifiers
// (letters, digits and '_', no leading digit), unique among their siblings. Also the cleaning
// of free text placed inside a quoted USD string.

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tressora {

/// Names a strand or point channel may not take as a primvar, because the curves prim
/// already writes them.
inline constexpr std::array<std::string_view, 7> kReservedPrimvarNames = {
    "st", "strandId", "displayColor", "displayOpacity", "widths", "points", "normals"};

/// Every character outside a-z, A-Z, 0-9 and '_' becomes '_' (a multi-byte UTF-8 character
/// counts as one); a result that is empty or starts with a digit gets a leading '_'.
std::string sanitizeIdentifier(std::string_view name);

/// Sanitises each name of the list and makes it unique, in list order, against the names
/// before it and against `reserved`: a taken name gets "_2", "_3", ... (the first free one).
/// The result has one entry per input name, in the same order.
std::vector<std::string> uniqueIdentifiers(std::span<const std::string> names,
                                           std::span<const std::string_view> reserved = {});

/// Free text made safe inside a double-quoted string: '"' becomes '\'', and backslash, line
/// feed and carriage return become a blank.
std::string cleanQuotedText(std::string_view text);

}  // namespace tressora
