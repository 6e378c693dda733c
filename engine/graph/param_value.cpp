#include "graph/param_value.h"

#include <array>

#include "core/hash.h"

namespace tressora {

namespace {
constexpr std::array<std::string_view, 7> kKindNames = {"bool", "int", "float", "string", "vec3", "ramp", "map"};
constexpr std::array<std::string_view, 5> kSourceKeys = {"texture", "colorSet", "attribute", "expression", "guide"};
constexpr std::array<std::string_view, 6> kComponentNames = {"", "r", "g", "b", "a", "luminance"};
}  // namespace

std::string_view paramKindName(ParamKind kind) { return kKindNames[static_cast<std::size_t>(kind)]; }
std::string_view mapSourceKey(MapSource source) { return kSourceKeys[static_cast<std::size_t>(source)]; }
std::string_view mapComponentName(MapComponent component) {
    return kComponentNames[static_cast<std::size_t>(component)];
}

bool parseMapComponent(std::string_view text, MapComponent& component) {
    for (std::size_t i = 0; i < kComponentNames.size(); ++i) {
        if (kComponentNames[i] == text) {
            component = static_cast<MapComponent>(i);
            return true;
        }
    }
    return false;
}

std::uint64_t hashParamValue(std::uint64_t h, const ParamValue& value) {
    h = combine(h, value.index());
    switch (kindOf(value)) {
        case ParamKind::Bool: return combine(h, std::get<bool>(value) ? 1 : 0);
        case ParamKind::Int: return combine(h, static_cast<std::uint64_t>(std::get<std::int64_t>(value)));
        case ParamKind::Float: return combine(h, doubleBits(std::get<double>(value)));
        case ParamKind::String: return combineText(h, std::get<std::string>(value));
        case ParamKind::Vec3: {
            const Vec3f& v = std::get<Vec3f>(value);
            return combine(combine(combine(h, floatBits(v.x)), floatBits(v.y)), floatBits(v.z));
        }
        case ParamKind::Ramp: {
            const Ramp& r = std::get<Ramp>(value);
            h = combine(combine(h, r.linear ? 1 : 0), r.keys.size());
            for (const auto& [position, v] : r.keys) h = combine(combine(h, doubleBits(position)), doubleBits(v));
            return h;
        }
        case ParamKind::Map: {
            const MapRef& m = std::get<MapRef>(value);
            h = combineText(combine(h, static_cast<std::uint64_t>(m.source)), m.text);
            h = combine(h, static_cast<std::uint64_t>(m.component));
            return combine(combine(h, doubleBits(m.min)), doubleBits(m.max));
        }
    }
    return h;
}

}  // namespace tressora
