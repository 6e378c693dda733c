#pragma once
// Value kinds: what travels on a Value port, and which kinds may feed which.

#include <string>
#include <string_view>

namespace tressora {

enum class ValueKind { Any = 0, Number, Integer, Bool, Vec3, Choice, Text };

/// The word of a value kind: "any", "number", "integer", "bool", "vec3", "choice", "text".
std::string_view valueKindName(ValueKind kind);

/// Reads one of the seven words; anything else throws GraphError.
ValueKind parseValueKind(std::string_view text);

/// Whether a value of kind `source` may feed a param or port of kind `target`: either is
/// any; they are equal; numbers, integers and bools feed each other and vec3; choices and
/// texts feed each other.
bool valueKindsCompatible(ValueKind source, ValueKind target);

}  // namespace tressora
