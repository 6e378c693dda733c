#include "graph/param_json.h"

#include <cmath>
#include <optional>

#include "core/errors.h"
#include "core/json_depth.h"
#include "core/json_numbers.h"

namespace tressora {

namespace {

using nlohmann::json;

// Keys as [[position, value], ...]; nothing when the array is not of that form.
std::optional<std::vector<std::pair<double, double>>> readKeys(const json& keys) {
    if (!keys.is_array()) return std::nullopt;
    std::vector<std::pair<double, double>> out;
    out.reserve(keys.size());
    for (const json& key : keys) {
        if (!key.is_array() || key.size() != 2 || !key[0].is_number() || !key[1].is_number()) return std::nullopt;
        out.emplace_back(key[0].get<double>(), key[1].get<double>());
    }
    return out;
}

// A ramp from its object or bare-array form; nothing when malformed.
std::optional<Ramp> readRamp(const json& j) {
    Ramp ramp;
    const json* keys = &j;
    if (j.is_object()) {
        const auto it = j.find("keys");
        if (it == j.end()) return std::nullopt;
        keys = &*it;
        if (const auto linear = j.find("linear"); linear != j.end()) {
            if (!linear->is_boolean()) return std::nullopt;
            ramp.linear = linear->get<bool>();
        }
    }
    auto read = readKeys(*keys);
    if (!read) return std::nullopt;
    ramp.keys = std::move(*read);
    return ramp;
}

bool isVec3(const json& j) {
    return j.is_array() && j.size() == 3 && finiteFloat(j[0]) && finiteFloat(j[1]) && finiteFloat(j[2]);
}

[[noreturn]] void rampError(const std::string& name) {
    throw GraphError("ramp for param '" + name + "' needs keys [[position, value], ...]");
}

ParamValue readNumber(const json& j, const ParamSpec* spec, const std::string& name) {
    const bool wantsInt = spec && spec->kind() == ParamKind::Int;
    const bool wantsFloat = spec && spec->kind() == ParamKind::Float;
    if (wantsFloat) return j.get<double>();
    if (j.is_number_integer() && !j.is_number_unsigned()) return j.get<std::int64_t>();
    if (j.is_number_unsigned()) {
        const auto u = j.get<std::uint64_t>();
        if (u <= static_cast<std::uint64_t>(INT64_MAX)) return static_cast<std::int64_t>(u);
        if (!wantsInt) return static_cast<double>(u);
        throw GraphError("param '" + name + "' is out of range for an integer");
    }
    const double d = j.get<double>();
    if (wantsInt) {
        // 2^63 is the first double past the signed range; -2^63 itself is representable.
        if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0))
            throw GraphError("param '" + name + "' is out of range for an integer");
        return static_cast<std::int64_t>(d);
    }
    return d;
}

ParamValue readMap(const json& j, const std::string& name) {
    static constexpr MapSource kSources[] = {MapSource::Texture, MapSource::ColorSet, MapSource::Attribute,
                                             MapSource::Expression, MapSource::Guide};
    MapRef map;
    int found = 0;
    for (MapSource source : kSources) {
        const auto it = j.find(std::string(mapSourceKey(source)));
        if (it == j.end()) continue;
        ++found;
        map.source = source;
        if (it->is_string()) map.text = it->get<std::string>();
        else found = 99;  // a source must name something; same refusal as a doubled source
    }
    if (found != 1)
        throw GraphError("map for param '" + name +
                         "' needs exactly one of texture, colorSet, attribute, expression, guide");
    if (const auto it = j.find("component"); it != j.end()) {
        const std::string text = it->is_string() ? it->get<std::string>() : it->dump();
        if (!it->is_string() || !parseMapComponent(text, map.component))
            throw GraphError("map for param '" + name + "': unknown component '" + text + "'");
    }
    for (const char* bound : {"min", "max"}) {
        const auto it = j.find(bound);
        if (it == j.end()) continue;
        if (!it->is_number()) throw GraphError("map for param '" + name + "': " + bound + " must be a number");
        (bound[1] == 'i' ? map.min : map.max) = it->get<double>();
    }
    return map;
}

bool hasMapSource(const json& j) {
    for (const char* key : {"texture", "colorSet", "attribute", "expression", "guide"})
        if (j.contains(key)) return true;
    return false;
}

template <class J>
J toJson(const ParamValue& value) {
    switch (kindOf(value)) {
        case ParamKind::Bool: return std::get<bool>(value);
        case ParamKind::Int: return std::get<std::int64_t>(value);
        case ParamKind::Float: return std::get<double>(value);
        case ParamKind::String: return std::get<std::string>(value);
        case ParamKind::Vec3: {
            const Vec3f& v = std::get<Vec3f>(value);
            return J::array({v.x, v.y, v.z});
        }
        case ParamKind::Ramp: {
            const Ramp& r = std::get<Ramp>(value);
            J keys = J::array();
            for (const auto& [position, v] : r.keys) keys.push_back(J::array({position, v}));
            J j;
            j["keys"] = std::move(keys);
            if (r.linear) j["linear"] = true;
            return j;
        }
        case ParamKind::Map: {
            const MapRef& m = std::get<MapRef>(value);
            J j;
            j[std::string(mapSourceKey(m.source))] = m.text;
            if (m.component != MapComponent::Auto) j["component"] = mapComponentName(m.component);
            if (m.min != 0.0) j["min"] = m.min;
            if (m.max != 1.0) j["max"] = m.max;
            return j;
        }
    }
    return J();
}

}  // namespace

ParamValue paramFromJson(const json& j, const ParamSpec* spec, const std::string& name) {
    const bool wantsRamp = spec && spec->kind() == ParamKind::Ramp;
    if (j.is_boolean()) return j.get<bool>();
    if (j.is_string()) {
        if (wantsRamp) return rampFromText(j.get_ref<const std::string&>());
        return j.get<std::string>();
    }
    if (j.is_number()) return readNumber(j, spec, name);
    if (j.is_array()) {
        if (wantsRamp) {
            if (auto ramp = readRamp(j)) return *ramp;
            rampError(name);
        }
        if (isVec3(j)) return Vec3f(*finiteFloat(j[0]), *finiteFloat(j[1]), *finiteFloat(j[2]));
    }
    if (j.is_object()) {
        if (j.contains("keys")) {
            if (auto ramp = readRamp(j)) return *ramp;
            rampError(name);
        }
        if (hasMapSource(j)) return readMap(j, name);
    }
    throw GraphError("unsupported value for param '" + name + "'");
}

json paramToJson(const ParamValue& value) { return toJson<json>(value); }
nlohmann::ordered_json paramToOrderedJson(const ParamValue& value) { return toJson<nlohmann::ordered_json>(value); }

Ramp rampFromText(std::string_view text) {
    if (!jsonDepthWithin(text)) throw GraphError("ramp: malformed JSON");
    const json j = json::parse(text.begin(), text.end(), nullptr, false, false);
    if (j.is_discarded()) throw GraphError("ramp: malformed JSON");
    auto ramp = readRamp(j);
    if (!ramp) throw GraphError("ramp: needs keys [[position, value], ...]");
    return *ramp;
}

}  // namespace tressora
