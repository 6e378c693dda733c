#include "graph/port.h"

#include <array>

#include "core/errors.h"

namespace tressora {

namespace {
constexpr std::array<std::string_view, 7> kNames = {"Strands", "Guides", "Mesh", "Field", "Curve", "Curves", "Value"};
}

std::string_view portTypeName(PortType type) {
    const auto i = static_cast<std::size_t>(type);
    return i < kNames.size() ? kNames[i] : std::string_view("Unknown");
}

PortType parsePortType(std::string_view text) {
    for (std::size_t i = 0; i < kNames.size(); ++i)
        if (kNames[i] == text) return static_cast<PortType>(i);
    throw GraphError("unknown port type '" + std::string(text) +
                     "' (Strands, Guides, Mesh, Field, Curve, Curves or Value)");
}

}  // namespace tressora
