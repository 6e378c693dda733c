#include "graph/value_kind.h"

#include <array>

#include "core/errors.h"

namespace tressora {

namespace {
constexpr std::array<std::string_view, 7> kNames = {"any", "number", "integer", "bool", "vec3", "choice", "text"};

bool isScalar(ValueKind k) { return k == ValueKind::Number || k == ValueKind::Integer || k == ValueKind::Bool; }
bool isWords(ValueKind k) { return k == ValueKind::Choice || k == ValueKind::Text; }
}  // namespace

std::string_view valueKindName(ValueKind kind) {
    const auto i = static_cast<std::size_t>(kind);
    return i < kNames.size() ? kNames[i] : std::string_view("any");
}

ValueKind parseValueKind(std::string_view text) {
    for (std::size_t i = 0; i < kNames.size(); ++i)
        if (kNames[i] == text) return static_cast<ValueKind>(i);
    throw GraphError("unknown value kind '" + std::string(text) +
                     "' (any, number, integer, bool, vec3, choice or text)");
}

bool valueKindsCompatible(ValueKind source, ValueKind target) {
    if (source == ValueKind::Any || target == ValueKind::Any || source == target) return true;
    if (isScalar(source)) return isScalar(target) || target == ValueKind::Vec3;
    if (isWords(source)) return isWords(target);
    return false;
}

}  // namespace tressora
