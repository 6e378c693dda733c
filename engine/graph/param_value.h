#pragma once
// What a param can hold: bool, integer, float, text, vec3, ramp or map reference.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/vec.h"

namespace tressora {

/// The stored kind of a param; the numbers are the index in ParamValue.
enum class ParamKind { Bool = 0, Int, Float, String, Vec3, Ramp, Map };

/// "bool", "int", "float", "string", "vec3", "ramp" or "map".
std::string_view paramKindName(ParamKind kind);

/// A curve over [0, 1] given by keys (position, value). `linear` false means a smooth
/// curve through the keys.
struct Ramp {
    std::vector<std::pair<double, double>> keys;
    bool linear = false;
    bool operator==(const Ramp&) const = default;
};

/// Where a mappable param reads its value instead of a number.
enum class MapSource { Texture = 0, ColorSet, Attribute, Expression, Guide };

/// Which channel of a multi-channel source is read. Auto is the default: luminance for a
/// colour source, the only channel otherwise.
enum class MapComponent { Auto = 0, Red, Green, Blue, Alpha, Luminance };

/// "texture", "colorSet", "attribute", "expression" or "guide": the JSON key of a source.
std::string_view mapSourceKey(MapSource source);
/// "" (Auto), "r", "g", "b", "a" or "luminance".
std::string_view mapComponentName(MapComponent component);
/// The component of a word, or false when the word is not one.
bool parseMapComponent(std::string_view text, MapComponent& component);

/// A mappable param's source: exactly one of texture path, colour set, channel,
/// expression or guide layer, with the component read and a remap of the 0-1 value.
struct MapRef {
    MapSource source = MapSource::Texture;
    std::string text;  ///< the path, set name, channel name, expression or guide name
    MapComponent component = MapComponent::Auto;
    double min = 0.0;
    double max = 1.0;
    bool operator==(const MapRef&) const = default;
};

/// One param value. The alternative's index is its ParamKind.
using ParamValue = std::variant<bool, std::int64_t, double, std::string, Vec3f, Ramp, MapRef>;

inline ParamKind kindOf(const ParamValue& value) { return static_cast<ParamKind>(value.index()); }

/// Folds a value, bit for bit, into the running hash h.
std::uint64_t hashParamValue(std::uint64_t h, const ParamValue& value);

}  // namespace tressora
