#include "graph/param_spec.h"

#include <cmath>
#include <string_view>

#include "graph/param_json.h"

namespace tressora {

namespace {

bool hasMappableMarker(std::string_view description) {
    constexpr std::string_view marker = "(mappable";
    for (std::size_t at = description.find('('); at != std::string_view::npos; at = description.find('(', at + 1)) {
        if (description.size() - at >= marker.size() && description.compare(at, marker.size(), marker) == 0)
            return true;
    }
    return false;
}

int decimalsForSpan(double span) {
    if (span >= 100.0) return 1;
    if (span >= 10.0) return 2;
    if (span >= 0.1 || !(span > 0.0)) return 3;
    return 4;
}

nlohmann::ordered_json conditionToJson(const ParamCondition& c) {
    nlohmann::ordered_json j;
    j["param"] = c.param;
    j["in"] = c.in;
    return j;
}

}  // namespace

bool ParamSpec::mappable() const { return hasMappableMarker(description); }

int ParamSpec::decimals() const {
    if (kind() == ParamKind::Int || unit == "pixels") return 0;
    if (unit == "angle") return 1;
    if (unit == "fraction" || unit == "color") return 3;
    if (unit == "turns" || unit == "seconds") return 2;
    if (softMin && softMax) return decimalsForSpan(*softMax - *softMin);
    if (kind() != ParamKind::Float) return 3;
    return decimalsForSpan(std::fabs(std::get<double>(defaultValue)));
}

ValueKind ParamSpec::valueKind() const {
    switch (kind()) {
        case ParamKind::Bool: return ValueKind::Bool;
        case ParamKind::Int: return ValueKind::Integer;
        case ParamKind::Float: return ValueKind::Number;
        case ParamKind::String: return choices.empty() ? ValueKind::Text : ValueKind::Choice;
        case ParamKind::Vec3: return ValueKind::Vec3;
        default: return ValueKind::Any;
    }
}

std::optional<Port> paramPort(const ParamSpec& spec) {
    const auto port = [&](PortType type, ValueKind kind) { return Port{spec.name, type, true, kind}; };
    const ParamKind kind = spec.kind();
    if (spec.port == ParamPort::None) return std::nullopt;
    if (spec.port == ParamPort::Value) {
        if (kind == ParamKind::Ramp || kind == ParamKind::Map) return std::nullopt;
        return port(PortType::Value, spec.valueKind());
    }
    if (kind == ParamKind::Ramp) return port(PortType::Curve, ValueKind::Any);
    if (spec.mappable() || (spec.colorField && kind == ParamKind::Map)) return port(PortType::Field, ValueKind::Any);
    return port(PortType::Value, spec.valueKind());
}

nlohmann::ordered_json paramSpecToJson(const ParamSpec& spec) {
    nlohmann::ordered_json j;
    j["name"] = spec.name;
    j["kind"] = paramKindName(spec.kind());
    j["default"] = paramToOrderedJson(spec.defaultValue);
    j["description"] = spec.description;
    if (spec.mappable()) j["mappable"] = true;
    if (!spec.unit.empty()) j["unit"] = spec.unit;
    if (!spec.choices.empty()) j["choices"] = spec.choices;
    if (spec.animatable) j["animatable"] = true;
    if (!spec.group.empty()) j["group"] = spec.group;
    if (spec.advanced) j["advanced"] = true;
    if (spec.worldDirection) j["worldDirection"] = true;
    if (spec.vectorExpression) j["vectorExpression"] = true;
    if (spec.colorField) j["colorField"] = true;
    if (spec.channel != ChannelMode::None) j["channel"] = spec.channel == ChannelMode::Writes ? "writes" : "reads";
    const ParamKind kind = spec.kind();
    if (kind == ParamKind::Int || kind == ParamKind::Float || kind == ParamKind::Vec3) j["decimals"] = spec.decimals();
    if (spec.softMin) j["softMin"] = *spec.softMin;
    if (spec.softMax) j["softMax"] = *spec.softMax;
    if (spec.showWhen) j["showWhen"] = conditionToJson(*spec.showWhen);
    if (spec.channelOptional) j["channelOptional"] = true;
    if (spec.unitWhen) j["unitWhen"] = conditionToJson(*spec.unitWhen);
    if (const auto port = paramPort(spec)) {
        j["port"] = portTypeName(port->type);
        if (port->type == PortType::Value) j["valueKind"] = valueKindName(port->valueKind);
    }
    return j;
}

}  // namespace tressora
